#include "valrepcache.hpp"

#include "eval/evalrep_detail.hpp"
#include "evalflags.hpp"

#include <ostream>

namespace {

/// A table with this many names more than a pass used is given up at the end of that pass; of a pass with more names
/// than this no value objects are kept.
constexpr unsigned tooManyNames = 1024;

} // namespace

ValRepCache::ValRepCache(const ArrayAllocatorPtr& allocator) : allocator_(allocator) {}

ValRepCache::~ValRepCache() = default;

std::pair<bool, ValRepPtr> ValRepCache::getVar(const std::string& name, unsigned flags)
{
    const unsigned variant = flags & EvalVariantMask;
    const QxHashFun hash;
    const QxHashLookup hit =
        values_.lookupWith(QxHashFun::combine(hash(name), hash(variant)),
                           [&](const Key& key) { return key.second == variant && key.first == name; });
    if (hit) {
        Kept& kept = values_.at(hit.slot);
        if (kept.live)
            return {true, kept.value};
        if (!kept.value)
            kept.value = ValRep::make(allocator_);
        kept.live = true;
        ++live_;
        return {false, kept.value};
    }
    ValRepPtr rep = ValRep::make(allocator_);
    values_.insert(Key(name, variant), Kept{rep, true});
    ++live_;
    return {false, rep};
}

ValRepPtr ValRepCache::getEmpty()
{
    return ValRep::make(allocator_);
}

void ValRepCache::setBVar(const std::string& name)
{
    bVars_.insert(name);
}

void ValRepCache::reset()
{
    const bool keepValues = live_ <= tooManyNames;
    if (values_.size() - live_ > tooManyNames)
        values_.reset();
    else
        for (auto& entry : values_) {
            Kept& kept = entry.value;
            kept.live = false;
            if (keepValues && kept.value && ValRepOps::isOnlyReference(kept.value))
                ValRepOps::renew(*kept.value, allocator_);
            else
                kept.value.reset();
        }
    live_ = 0;
    bVars_.reset();
}

void ValRepCache::report(std::ostream& out) const
{
    out << "The following variable names are stored in cache:\n"
        << "=================================================\n";
    for (const auto& entry : values_)
        if (entry.value.live) {
            const ValRep& value = *entry.value.value;
            out << entry.key.first << "            : " << (value.isScalar() ? "scalar    " : "nonscalar ")
                << (value.isComplex() ? "complex " : "real    ") << (value.isEvaluated() ? "(evaluated)  " : "") << '\n';
        }
}

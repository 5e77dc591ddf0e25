#include "valrepcache.hpp"

#include "evalflags.hpp"
#include "evalrep.hpp"

#include <ostream>

namespace {

/// A table with this many names more than a pass used is given up at the end of that pass.
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
        ValRepPtr& rep = values_.at(hit.slot);
        if (rep)
            return {true, rep};
        rep = ValRep::make(allocator_);
        ++live_;
        return {false, rep};
    }
    ValRepPtr rep = ValRep::make(allocator_);
    values_.insert(Key(name, variant), rep);
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
    if (values_.size() - live_ > tooManyNames)
        values_.reset();
    else
        for (auto& entry : values_)
            entry.value.reset();
    live_ = 0;
    bVars_.reset();
}

void ValRepCache::report(std::ostream& out) const
{
    out << "The following variable names are stored in cache:\n"
        << "=================================================\n";
    for (const auto& entry : values_)
        if (entry.value)
            out << entry.key.first << "            : " << (entry.value->isScalar() ? "scalar    " : "nonscalar ")
                << (entry.value->isComplex() ? "complex " : "real    ")
                << (entry.value->isEvaluated() ? "(evaluated)  " : "") << '\n';
}

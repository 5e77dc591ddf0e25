// SPDX-License-Identifier: LicenseRef-qxkernel
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

std::pair<bool, ValRepPtr> ValRepCache::Table::get(const std::string& name, unsigned variant,
                                                   const ArrayAllocatorPtr& allocator)
{
    const QxHashFun hash;
    const QxHashLookup hit =
        values.lookupWith(QxHashFun::combine(hash(name), hash(variant)),
                          [&](const Key& key) { return key.second == variant && key.first == name; });
    if (hit) {
        Kept& kept = values.at(hit.slot);
        if (kept.live)
            return {true, kept.value};
        if (!kept.value)
            kept.value = ValRep::make(allocator);
        kept.live = true;
        ++live;
        return {false, kept.value};
    }
    ValRepPtr rep = ValRep::make(allocator);
    values.insert(Key(name, variant), Kept{rep, true});
    ++live;
    return {false, rep};
}

void ValRepCache::Table::reset(const ArrayAllocatorPtr& allocator)
{
    const bool keepValues = live <= tooManyNames;
    if (values.size() - live > tooManyNames)
        values.reset();
    else
        for (auto& entry : values) {
            Kept& kept = entry.value;
            kept.live = false;
            if (keepValues && kept.value && ValRepOps::isOnlyReference(kept.value))
                ValRepOps::renew(*kept.value, allocator);
            else
                kept.value.reset();
        }
    live = 0;
}

std::pair<bool, ValRepPtr> ValRepCache::getVar(const std::string& name, unsigned flags)
{
    Table& table = !name.empty() && name.front() == derivativeMark ? derivatives_ : variables_;
    return table.get(name, flags & EvalVariantMask, allocator_);
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
    variables_.reset(allocator_);
    derivatives_.reset(allocator_);
    bVars_.reset();
}

void ValRepCache::report(std::ostream& out) const
{
    out << "The following variable names are stored in cache:\n"
        << "=================================================\n";
    for (const auto& entry : variables_.values)
        if (entry.value.live) {
            const ValRep& value = *entry.value.value;
            out << entry.key.first << "            : " << (value.isScalar() ? "scalar    " : "nonscalar ")
                << (value.isComplex() ? "complex " : "real    ") << (value.isEvaluated() ? "(evaluated)  " : "") << '\n';
        }
}

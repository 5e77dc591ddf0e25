// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"
#include "qxexport.hpp"
#include "qxhash.hpp"

#include <iosfwd>
#include <string>
#include <utility>

/// The values of the named variables of one evaluation: a variable used twice is computed once.
///
/// A key is a name with the flag bits of EvalVariantMask, so one name has up to four values. reset() starts the next
/// pass; names and storage of the last one are kept, so that a pass with the same names and shapes allocates nothing.
/// Derivatives of definitions are kept beside the variables, under names that begin with derivativeMark.
/// One object belongs to one thread. std::bad_alloc passes through; the cache stays usable.
class QX_API ValRepCache
{
public:
    using BVarIterator = QxHashSet<std::string>::const_iterator;

    /// First byte of a key that is no variable's name.
    static constexpr char derivativeMark = '\0';

    /// With an allocator new values lease their arrays from it; it may be null.
    explicit ValRepCache(const ArrayAllocatorPtr& allocator = ArrayAllocatorPtr());
    virtual ~ValRepCache();
    ValRepCache(const ValRepCache&) = delete;
    ValRepCache& operator=(const ValRepCache&) = delete;

    /// The value kept for a name, and whether it was there. A miss makes an unevaluated one.
    virtual std::pair<bool, ValRepPtr> getVar(const std::string& name, unsigned flags);
    /// A new unevaluated value with the cache's allocator; it is not kept.
    virtual ValRepPtr getEmpty();
    /// Remembers the name of a basic variable.
    virtual void setBVar(const std::string& name);

    /// Forgets all values and names and hands their arrays back; the tables keep their sizes.
    void reset();
    const ArrayAllocatorPtr& getAllocator() const { return allocator_; }
    BVarIterator bVarBegin() const { return bVars_.begin(); }
    BVarIterator bVarEnd() const { return bVars_.end(); }
    /// A listing of the variables for diagnosis.
    void report(std::ostream& out) const;

private:
    using Key = std::pair<std::string, unsigned>;
    // An entry that is not live is left from an earlier pass: its name, and an empty value unless others held that one,
    // are kept so that meeting the name again allocates nothing.
    struct Kept
    {
        ValRepPtr value;
        bool live = false;
    };
    struct Table
    {
        QxHashMap<Kept, Key> values;
        unsigned live = 0;

        std::pair<bool, ValRepPtr> get(const std::string& name, unsigned variant, const ArrayAllocatorPtr& allocator);
        void reset(const ArrayAllocatorPtr& allocator);
    };

    ArrayAllocatorPtr allocator_;
    Table variables_, derivatives_;
    QxHashSet<std::string> bVars_;
};

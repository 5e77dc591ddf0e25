// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"
#include "perthread_detail.hpp"

#include <new>
#include <utility>
#include <vector>

namespace qxeval {

/// An empty vector of values for a scope. Its storage comes from the thread and goes back to it, one vector for each level
/// of nesting, so that an evaluation that was done before allocates nothing.
class BorrowedValues
{
public:
    BorrowedValues() : kept_(PerThread<Kept>::get())
    {
        if (kept_ && !kept_->empty()) {
            values.swap(kept_->back());
            kept_->pop_back();
        }
    }
    ~BorrowedValues()
    {
        values.clear();
        if (kept_ && values.capacity() <= mostKept)
            try {
                kept_->push_back(std::move(values));
            } catch (const std::bad_alloc&) {
            }
    }
    BorrowedValues(const BorrowedValues&) = delete;
    BorrowedValues& operator=(const BorrowedValues&) = delete;

    std::vector<ValRepPtr> values;

private:
    using Kept = std::vector<std::vector<ValRepPtr>>;
    static constexpr std::size_t mostKept = std::size_t(1) << 20; // of larger ones the memory goes back
    Kept* const kept_;
};

} // namespace qxeval

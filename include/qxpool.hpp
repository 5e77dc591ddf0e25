// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"
#include "qxhash.hpp"

#include <deque>
#include <string>
#include <string_view>

/// Small integers for texts: equal texts have equal handles, counted from 0 in the order of first sight.
///
/// References from getString stay good as long as the pool. Not shared between threads. Copies are independent.
class QX_API QxStringPool
{
public:
    QxStringPool() = default;
    QxStringPool(const QxStringPool& other);
    QxStringPool& operator=(const QxStringPool& other);

    int getHandle(std::string_view text);
    /// Raises "Internal_error_string_pool" for a handle that the pool never gave.
    const std::string& getString(int handle) const;
    int size() const { return static_cast<int>(texts_.size()); }

private:
    std::deque<std::string> texts_; // never moves its elements: handles_ points into them
    QxHashMap<int, std::string_view> handles_;
};

/// The platform's set of integers.
using QxIntHashSet = QxHashSet<int>;

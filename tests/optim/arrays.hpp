// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"

#include <algorithm>
#include <vector>

namespace qxtest {

/// Lists as the arrays that the drivers take.
inline Array<int, 1> ints(const std::vector<int>& from)
{
    Array<int, 1> to(from.size());
    std::copy(from.begin(), from.end(), to.data());
    return to;
}

inline Array<double, 1> doubles(const std::vector<double>& from)
{
    Array<double, 1> to(from.size());
    std::copy(from.begin(), from.end(), to.data());
    return to;
}

} // namespace qxtest

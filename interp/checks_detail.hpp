// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What every interpolator refuses.

#include "qxexception.hpp"

#include <vector>

namespace qxinterp_detail {

[[noreturn]] inline void refuse(const char* id) { QX_RAISE("interpolator", id); }

inline void checkCoordinates(const std::vector<double>& x, int dim)
{
    if (x.size() != static_cast<std::size_t>(dim))
        refuse("Wrong_size_of_interpolation_data");
}

/// axis counts from 1.
inline void checkAxis(int axis, int dim)
{
    if (axis < 1 || axis > dim)
        refuse("QUORIX_assertion_failure");
}

} // namespace qxinterp_detail

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Slopes of piecewise cubics at their points.

#include <vector>

namespace qxinterp_detail {

/// Slopes that keep monotone data monotone, for at least three points (x, y), x ascending.
std::vector<double> monotoneSlopes(const std::vector<double>& x, const std::vector<double>& y);

/// Slopes of the cubic spline with not-a-knot ends, for at least three points (x, y), x ascending; of the parabola through
/// three points.
std::vector<double> splineSlopes(const std::vector<double>& x, const std::vector<double>& y);

} // namespace qxinterp_detail

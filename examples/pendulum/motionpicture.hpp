// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace examples {

struct PlanePoint
{
    double x, y;
};

/// One moment of a motion: the mechanism as a chain of points, and a quantity that is plotted against time.
struct Frame
{
    double time;
    std::vector<PlanePoint> chain;
    double quantity;
};

/// Writes an SVG picture: on the left the mechanism at some moments, older ones paler, and the paths of its points; on
/// the right the quantity over time.
void writeMotion(std::ostream& out, const std::vector<Frame>& frames, const std::string& title,
                 const std::string& quantity);

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "contour.hpp"

#include <iosfwd>
#include <string>
#include <vector>

namespace examples {

/// What a picture of a field over a mesh shows besides the field.
struct PictureText
{
    std::string title;
    std::string subtitle;
    std::string unit;                   ///< above the colour bar
};

/// Writes an SVG picture: bands of colour, iso-lines at the ticks of the colour bar, the outline, arrows if there are any.
///
/// The bands are exact for the field that is linear on each triangle, so the file grows with the length of the lines and
/// not with the number of triangles. A field with values on both sides of zero gets a diverging colour map centred there.
/// Infinite and NaN values stay grey. `arrows` has one vector a point or is empty; they are drawn where they are wanted,
/// one a cell of a regular grid, their length in proportion to the largest.
void writePicture(std::ostream& out, const Mesh& mesh, const std::vector<double>& field, const PictureText& text,
                  const std::vector<Point>& arrows = {});

/// Round numbers in [low, high], `about` of them at most: multiples of 1, 2 or 5 times a power of ten.
std::vector<double> roundNumbers(double low, double high, int about);

} // namespace examples

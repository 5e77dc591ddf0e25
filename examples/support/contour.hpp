#pragma once

#include <array>
#include <vector>

namespace examples {

using Point = std::array<double, 2>;
using Line = std::vector<Point>;

/// Triangles in the plane. Corners are positions in points, in counterclockwise order.
struct Mesh
{
    std::vector<Point> points;
    std::vector<std::array<int, 3>> triangles;
};

/// Turns clockwise triangles round. Raises std::invalid_argument when a corner is no point.
void orient(Mesh& mesh);

/// The closed boundary lines of the region of the mesh in which the field is at least `level`, the field taken as linear
/// on each triangle. Outer lines run counterclockwise, holes clockwise. Triangles with a NaN at a corner do not count.
/// A level of -infinity gives the outline of the mesh.
///
///     cost: time and memory linear in the triangles
std::vector<Line> regionAbove(const Mesh& mesh, const std::vector<double>& field, double level);

/// The lines on which the field equals `level`: the part of that boundary that runs through triangles.
std::vector<Line> isoLines(const Mesh& mesh, const std::vector<double>& field, double level);

} // namespace examples

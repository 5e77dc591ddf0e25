#pragma once

#include <array>
#include <vector>

namespace examples {

using Point = std::array<double, 2>;
using Line = std::vector<Point>;
using Triangle = std::array<int, 3>;

/// Triangles in the plane. Corners are positions in points, in counterclockwise order.
struct Mesh
{
    std::vector<Point> points;
    std::vector<Triangle> triangles;
};

/// Turns clockwise triangles round. Raises std::invalid_argument when a corner is no point.
void orient(Mesh& mesh);

/// Lines of a field that is linear on each triangle. Triangles with a NaN at a corner do not count.
///
/// Lines run counterclockwise round what they enclose and clockwise round holes. Mesh and field are lent.
/// Cost: making it, one hash entry an edge; each level, two comparisons a triangle and a hash entry a cut one.
class Contours
{
public:
    Contours(const Mesh& mesh, const std::vector<double>& field);

    /// The closed boundary lines of the region in which the field is at least `level`.
    std::vector<Line> regionAbove(double level) const;
    /// The lines on which the field equals `level`: the part of that boundary that runs through triangles.
    std::vector<Line> isoLines(double level) const;
    /// The boundary of the mesh.
    std::vector<Line> outline() const;

private:
    using Edge = std::array<int, 2>;

    double at(int point) const { return field_[static_cast<std::size_t>(point)]; }
    Point position(int i, int j, double level) const;
    std::vector<Line> lines(double level, bool inside, bool boundary) const;

    const Mesh& mesh_;
    const std::vector<double>& field_;
    std::vector<Triangle> triangles_;   // those that count
    std::vector<std::array<double, 2>> span_; // smallest and largest value on each
    std::vector<Edge> boundary_;        // of theirs, counterclockwise
};

} // namespace examples

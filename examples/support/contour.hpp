// SPDX-License-Identifier: LicenseRef-qxkernel
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
/// Cost: making it, a sort of the edges at each point; each level, work in proportion to the triangles whose values are
/// near it, and a hash entry for each one that it cuts.
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
    void findBoundary();
    void sortIntoBins();
    std::size_t binOf(double value) const;
    Point position(int i, int j, double level) const;
    std::vector<Line> lines(double level, bool inside, bool boundary) const;

    const Mesh& mesh_;
    const std::vector<double>& field_;
    std::vector<Triangle> triangles_;   // those that count
    std::vector<std::array<double, 2>> span_; // smallest and largest value on each
    double low_ = 0.0;                  // finite values of the field are cut into bins of equal width
    double perWidth_ = 0.0;             // bins a unit
    std::vector<std::size_t> binStart_; // triangles whose span meets bin b: binned_[binStart_[b]] and on
    std::vector<int> binned_;
    std::vector<Edge> boundary_;        // of theirs, counterclockwise
};

} // namespace examples

#include "contour.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

namespace examples {
namespace {

// A corner of a cut triangle: a node (i, i), or the cut of the edge from i to j, i < j. So two triangles that share an
// edge name its cut alike, and the pieces fit together by names instead of by nearly equal numbers.
struct Corner
{
    std::int32_t i;
    std::int32_t j;

    bool isCut() const { return i != j; }
    std::uint64_t key() const { return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(i)) << 32) |
                                       static_cast<std::uint32_t>(j); }
};

Point position(const Mesh& mesh, const std::vector<double>& field, double level, Corner c)
{
    const Point& p = mesh.points[static_cast<std::size_t>(c.i)];
    if (!c.isCut())
        return p;
    const Point& q = mesh.points[static_cast<std::size_t>(c.j)];
    const double fp = field[static_cast<std::size_t>(c.i)];
    const double fq = field[static_cast<std::size_t>(c.j)];
    const double t = std::isinf(fp) || std::isinf(fq) ? 0.5 : (level - fp) / (fq - fp);
    return {p[0] + t * (q[0] - p[0]), p[1] + t * (q[1] - p[1])};
}

// Directed pieces from one corner to the next; each start may have several where the region touches itself in a point.
class Pieces
{
public:
    void add(Corner from, Corner to) { next_.emplace(from.key(), Piece{from, to, false}); }

    // A piece that runs in both directions lies inside the region.
    void addUnlessOpposite(Corner from, Corner to)
    {
        const auto [first, last] = next_.equal_range(to.key());
        for (auto at = first; at != last; ++at)
            if (at->second.to.key() == from.key()) {
                next_.erase(at);
                return;
            }
        add(from, to);
    }

    template <class Test>
    void keepIf(Test test)
    {
        for (auto at = next_.begin(); at != next_.end();)
            at = test(at->second.from, at->second.to) ? std::next(at) : next_.erase(at);
    }

    // Joins the pieces to lines; a closed line ends before its start is repeated, an open one keeps both ends.
    std::vector<std::vector<Corner>> lines()
    {
        std::unordered_map<std::uint64_t, int> arriving;
        for (const auto& [key, piece] : next_)
            ++arriving[piece.to.key()];
        std::vector<std::vector<Corner>> all;
        for (auto& [key, piece] : next_) // open lines begin where nothing arrives
            if (!piece.used && arriving.find(key) == arriving.end())
                all.push_back(follow(piece));
        for (auto& [key, piece] : next_)
            if (!piece.used)
                all.push_back(follow(piece));
        return all;
    }

private:
    struct Piece
    {
        Corner from;
        Corner to;
        bool used;
    };

    std::vector<Corner> follow(Piece& first)
    {
        std::vector<Corner> line{first.from};
        Piece* piece = &first;
        while (piece) {
            piece->used = true;
            line.push_back(piece->to);
            const auto [begin, end] = next_.equal_range(piece->to.key());
            piece = nullptr;
            for (auto at = begin; at != end && !piece; ++at)
                if (!at->second.used)
                    piece = &at->second;
        }
        return line;
    }

    std::unordered_multimap<std::uint64_t, Piece> next_;
};

Pieces boundaryAbove(const Mesh& mesh, const std::vector<double>& field, double level)
{
    Pieces pieces;
    for (const auto& triangle : mesh.triangles) {
        Corner polygon[6];
        int n = 0;
        bool isNaN = false;
        for (std::size_t k = 0; k < 3; ++k) {
            const int a = triangle[k];
            const int b = triangle[(k + 1) % 3];
            const double fa = field[static_cast<std::size_t>(a)];
            const double fb = field[static_cast<std::size_t>(b)];
            isNaN = isNaN || std::isnan(fa);
            if (fa >= level)
                polygon[n++] = {a, a};
            if ((fa >= level) != (fb >= level))
                polygon[n++] = {std::min(a, b), std::max(a, b)};
        }
        if (isNaN)
            continue;
        for (int k = 0; k < n; ++k)
            pieces.addUnlessOpposite(polygon[k], polygon[(k + 1) % n]);
    }
    return pieces;
}

std::vector<Line> positions(const Mesh& mesh, const std::vector<double>& field, double level,
                            const std::vector<std::vector<Corner>>& corners)
{
    std::vector<Line> lines;
    for (const auto& line : corners) {
        Line points;
        for (const Corner c : line)
            points.push_back(position(mesh, field, level, c));
        lines.push_back(std::move(points));
    }
    return lines;
}

} // namespace

void orient(Mesh& mesh)
{
    const auto size = static_cast<long>(mesh.points.size());
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        auto& corner = mesh.triangles[t];
        for (const int c : corner)
            if (c < 0 || c >= size)
                throw std::invalid_argument("triangle " + std::to_string(t + 1) + " names point " +
                                            std::to_string(c + 1) + ", there are " + std::to_string(size));
        const Point& a = mesh.points[static_cast<std::size_t>(corner[0])];
        const Point& b = mesh.points[static_cast<std::size_t>(corner[1])];
        const Point& c = mesh.points[static_cast<std::size_t>(corner[2])];
        if ((b[0] - a[0]) * (c[1] - a[1]) < (b[1] - a[1]) * (c[0] - a[0]))
            std::swap(corner[1], corner[2]);
    }
}

std::vector<Line> regionAbove(const Mesh& mesh, const std::vector<double>& field, double level)
{
    return positions(mesh, field, level, boundaryAbove(mesh, field, level).lines());
}

std::vector<Line> isoLines(const Mesh& mesh, const std::vector<double>& field, double level)
{
    Pieces pieces = boundaryAbove(mesh, field, level);
    pieces.keepIf([](Corner from, Corner to) { return from.isCut() && to.isCut(); });
    return positions(mesh, field, level, pieces.lines());
}

} // namespace examples

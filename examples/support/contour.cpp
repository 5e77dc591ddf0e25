#include "contour.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

namespace examples {
namespace {

// A corner of a line: a node (i, i), or the cut of the edge between i and j, i < j. Two triangles that share an edge name
// its cut alike, so pieces of lines fit together by names instead of by nearly equal numbers.
struct Corner
{
    std::int32_t i;
    std::int32_t j;

    std::uint64_t key() const
    {
        return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(i)) << 32) | static_cast<std::uint32_t>(j);
    }
};

Corner node(int a)
{
    return {a, a};
}

Corner cut(int a, int b)
{
    return {std::min(a, b), std::max(a, b)};
}

// Directed pieces of lines. Several may leave one corner where a region touches itself.
class Pieces
{
public:
    void add(Corner from, Corner to) { next_.emplace(from.key(), Piece{from, to, false}); }

    // Joins the pieces: open lines first, which begin where no piece arrives; a closed line repeats its first corner.
    std::vector<std::vector<Corner>> lines()
    {
        std::unordered_map<std::uint64_t, int> arriving;
        for (const auto& [key, piece] : next_)
            ++arriving[piece.to.key()];
        std::vector<std::vector<Corner>> all;
        for (auto& [key, piece] : next_)
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
        for (Piece* piece = &first; piece;) {
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

} // namespace

void orient(Mesh& mesh)
{
    const auto size = static_cast<long>(mesh.points.size());
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        auto& corner = mesh.triangles[t];
        for (const int c : corner)
            if (c < 0 || c >= size)
                throw std::invalid_argument("triangle " + std::to_string(t + 1) + " names point " +
                                            std::to_string(static_cast<long>(c) + 1) + ", there are " +
                                            std::to_string(size));
        const Point& a = mesh.points[static_cast<std::size_t>(corner[0])];
        const Point& b = mesh.points[static_cast<std::size_t>(corner[1])];
        const Point& c = mesh.points[static_cast<std::size_t>(corner[2])];
        if ((b[0] - a[0]) * (c[1] - a[1]) < (b[1] - a[1]) * (c[0] - a[0]))
            std::swap(corner[1], corner[2]);
    }
}

Contours::Contours(const Mesh& mesh, const std::vector<double>& field) : mesh_(mesh), field_(field)
{
    // An edge inside is met twice, once in each direction; the edges left over are the boundary.
    std::unordered_map<std::uint64_t, bool> once; // whether it runs from the lower number to the higher
    once.reserve(2 * mesh.triangles.size());
    for (const Triangle& t : mesh.triangles) {
        if (std::isnan(at(t[0])) || std::isnan(at(t[1])) || std::isnan(at(t[2])))
            continue;
        triangles_.push_back(t);
        const auto [low, high] = std::minmax({at(t[0]), at(t[1]), at(t[2])});
        span_.push_back({low, high});
        for (std::size_t k = 0; k < 3; ++k) {
            const int a = t[k];
            const int b = t[(k + 1) % 3];
            const auto [entry, isNew] = once.try_emplace(cut(a, b).key(), a < b);
            if (!isNew)
                once.erase(entry);
        }
    }
    for (const auto& [key, rises] : once) {
        const int low = static_cast<int>(key >> 32);
        const int high = static_cast<int>(key & 0xffffffffu);
        boundary_.push_back(rises ? Edge{low, high} : Edge{high, low});
    }
    std::sort(boundary_.begin(), boundary_.end()); // the order of a hash table is not the same everywhere
}

std::vector<Line> Contours::lines(double level, bool inside, bool boundary) const
{
    Pieces pieces;
    const auto above = [&](int point) { return at(point) >= level; };
    if (inside)
        for (std::size_t k = 0; k < triangles_.size(); ++k) {
            if (!(span_[k][0] < level && level <= span_[k][1]))
                continue;
            const Triangle& t = triangles_[k];
            const bool high[3] = {above(t[0]), above(t[1]), above(t[2])};
            Corner leaves{};    // where the counterclockwise walk leaves the part above, and where it enters
            Corner enters{};
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t next = (c + 1) % 3;
                if (high[c] && !high[next])
                    leaves = cut(t[c], t[next]);
                if (!high[c] && high[next])
                    enters = cut(t[c], t[next]);
            }
            pieces.add(leaves, enters);
        }
    if (boundary)
        for (const auto& [a, b] : boundary_)
            if (above(a) || above(b))
                pieces.add(above(a) ? node(a) : cut(a, b), above(b) ? node(b) : cut(a, b));

    std::vector<Line> result;
    for (const auto& corners : pieces.lines()) {
        Line line;
        line.reserve(corners.size());
        for (const Corner c : corners)
            line.push_back(position(c.i, c.j, level));
        result.push_back(std::move(line));
    }
    return result;
}

Point Contours::position(int i, int j, double level) const
{
    const Point& p = mesh_.points[static_cast<std::size_t>(i)];
    if (i == j)
        return p;
    const Point& q = mesh_.points[static_cast<std::size_t>(j)];
    const double t = std::isinf(at(i)) || std::isinf(at(j)) ? 0.5 : (level - at(i)) / (at(j) - at(i));
    return {p[0] + t * (q[0] - p[0]), p[1] + t * (q[1] - p[1])};
}

std::vector<Line> Contours::regionAbove(double level) const
{
    return lines(level, true, true);
}

std::vector<Line> Contours::isoLines(double level) const
{
    return lines(level, true, false);
}

std::vector<Line> Contours::outline() const
{
    return lines(-std::numeric_limits<double>::infinity(), false, true);
}

} // namespace examples

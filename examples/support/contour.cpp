// SPDX-License-Identifier: LicenseRef-qxkernel
#include "contour.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
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
    for (const Triangle& t : mesh.triangles) {
        if (std::isnan(at(t[0])) || std::isnan(at(t[1])) || std::isnan(at(t[2])))
            continue;
        triangles_.push_back(t);
        const auto [low, high] = std::minmax({at(t[0]), at(t[1]), at(t[2])});
        span_.push_back({low, high});
    }
    findBoundary();
    sortIntoBins();
}

// An edge inside is met twice, once in each direction; the edges left over are the boundary. Edges are kept at their lower
// point.
void Contours::findBoundary()
{
    std::vector<std::size_t> start(mesh_.points.size() + 1, 0);
    const auto eachEdge = [&](auto act) {
        for (const Triangle& t : triangles_)
            for (std::size_t k = 0; k < 3; ++k)
                act(t[k], t[(k + 1) % 3]);
    };
    eachEdge([&](int a, int b) { ++start[static_cast<std::size_t>(std::min(a, b)) + 1]; });
    std::partial_sum(start.begin(), start.end(), start.begin());
    std::vector<Edge> others(start.back()); // the higher point, and whether the edge rises to it
    std::vector<std::size_t> next(start.begin(), start.end() - 1);
    eachEdge([&](int a, int b) { others[next[static_cast<std::size_t>(std::min(a, b))]++] = {std::max(a, b), a < b}; });
    for (std::size_t i = 0; i + 1 < start.size(); ++i) {
        const auto from = others.begin() + static_cast<std::ptrdiff_t>(start[i]);
        const auto to = others.begin() + static_cast<std::ptrdiff_t>(start[i + 1]);
        std::sort(from, to);
        for (auto e = from; e != to;) {
            const int j = (*e)[0];
            const auto end = std::find_if(e, to, [j](const Edge& other) { return other[0] != j; });
            if ((end - e) % 2 != 0)
                boundary_.push_back((*e)[1] != 0 ? Edge{static_cast<int>(i), j} : Edge{j, static_cast<int>(i)});
            e = end;
        }
    }
    std::sort(boundary_.begin(), boundary_.end());
}

// So many bins that on the average a triangle is in no more than four.
void Contours::sortIntoBins()
{
    double high = -std::numeric_limits<double>::infinity();
    low_ = -high;
    for (const auto& span : span_)
        for (const double v : span)
            if (std::isfinite(v)) {
                low_ = std::min(low_, v);
                high = std::max(high, v);
            }
    for (std::size_t bins = 1024;; bins /= 2) {
        perWidth_ = static_cast<double>(bins) / (high - low_);
        if (bins == 1 || !std::isfinite(perWidth_))
            perWidth_ = 0.0; // all in one
        binStart_.assign(perWidth_ == 0.0 ? 2 : bins + 1, 0);
        std::size_t entries = 0;
        for (const auto& span : span_)
            entries += binOf(span[1]) - binOf(span[0]) + 1;
        if (perWidth_ == 0.0 || entries <= 4 * span_.size())
            break;
    }
    const auto eachPlace = [&](auto act) {
        for (std::size_t t = 0; t < span_.size(); ++t)
            for (std::size_t b = binOf(span_[t][0]); b <= binOf(span_[t][1]); ++b)
                act(b, static_cast<int>(t));
    };
    eachPlace([&](std::size_t b, int) { ++binStart_[b + 1]; });
    std::partial_sum(binStart_.begin(), binStart_.end(), binStart_.begin());
    binned_.resize(binStart_.back());
    std::vector<std::size_t> next(binStart_.begin(), binStart_.end() - 1);
    eachPlace([&](std::size_t b, int t) { binned_[next[b]++] = t; });
}

// Never falls when the value rises.
std::size_t Contours::binOf(double value) const
{
    const double place = perWidth_ == 0.0 ? 0.0 : (value - low_) * perWidth_;
    const auto last = static_cast<double>(binStart_.size() - 2);
    return static_cast<std::size_t>(std::clamp(place, 0.0, last));
}

std::vector<Line> Contours::lines(double level, bool inside, bool boundary) const
{
    Pieces pieces;
    const auto above = [&](int point) { return at(point) >= level; };
    if (inside)
        for (std::size_t p = binStart_[binOf(level)]; p < binStart_[binOf(level) + 1]; ++p) {
            const auto k = static_cast<std::size_t>(binned_[p]);
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

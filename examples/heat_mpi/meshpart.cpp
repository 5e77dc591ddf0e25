// SPDX-License-Identifier: LicenseRef-qxkernel
#include "meshpart.hpp"

#include <metis.h>

#include <algorithm>
#include <numeric>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace examples {
namespace {

using Edge = NamedMesh::Edge;

Edge sorted(int a, int b) { return a < b ? Edge{a, b} : Edge{b, a}; }

std::uint64_t keyOf(int a, int b)
{
    return static_cast<std::uint64_t>(std::min(a, b)) << 32 | static_cast<std::uint64_t>(std::max(a, b));
}

template <class T>
void broadcast(const Session& session, std::vector<T>& list)
{
    auto size = static_cast<long>(list.size());
    MPI_Bcast(&size, 1, MPI_LONG, 0, session.comm());
    list.resize(static_cast<std::size_t>(size));
    constexpr long piece = (1 << 28) / sizeof(T);
    for (long from = 0; from < size; from += piece)
        MPI_Bcast(list.data() + from, static_cast<int>(std::min(piece, size - from) * static_cast<long>(sizeof(T))),
                  MPI_BYTE, 0, session.comm());
}

/// Ranks of triangles: neighbours together, as few shared sides as METIS finds.
std::vector<int> ranksOf(const NamedMesh& mesh, int ranks)
{
    const std::size_t count = mesh.triangles.size();
    std::vector<int> rank(count, 0);
    if (ranks == 1)
        return rank;
    if (count <= static_cast<std::size_t>(ranks)) { // a triangle each; some ranks have none
        std::iota(rank.begin(), rank.end(), 0);
        return rank;
    }
    std::vector<idx_t> start{0}, corner, part(count), nodePart(mesh.points.size());
    for (const Triangle& t : mesh.triangles) {
        corner.insert(corner.end(), t.begin(), t.end());
        start.push_back(static_cast<idx_t>(corner.size()));
    }
    auto elements = static_cast<idx_t>(count);
    auto nodes = static_cast<idx_t>(mesh.points.size());
    idx_t common = 2; // nodes of a shared side
    idx_t parts = ranks;
    idx_t cut = 0;
    const int status = METIS_PartMeshDual(&elements, &nodes, start.data(), corner.data(), nullptr, nullptr, &common, &parts,
                                          nullptr, nullptr, &cut, part.data(), nodePart.data());
    if (status != METIS_OK)
        throw std::runtime_error("METIS cannot partition the mesh: status " + std::to_string(status));
    std::copy(part.begin(), part.end(), rank.begin());
    return rank;
}

/// The first rank's mesh on all.
void share(const Session& session, NamedMesh& mesh)
{
    broadcast(session, mesh.points);
    broadcast(session, mesh.triangles);
    std::vector<char> names;
    std::vector<Edge> edges;
    std::vector<long> counts;
    for (const auto& [name, list] : mesh.boundaries) {
        names.insert(names.end(), name.begin(), name.end());
        names.push_back('\0');
        edges.insert(edges.end(), list.begin(), list.end());
        counts.push_back(static_cast<long>(list.size()));
    }
    broadcast(session, names);
    broadcast(session, edges);
    broadcast(session, counts);
    mesh.boundaries.clear();
    const char* name = names.data();
    auto edge = edges.begin();
    for (const long n : counts) {
        const std::string word(name);
        mesh.boundaries[word].assign(edge, edge + n);
        name += word.size() + 1;
        edge += n;
    }
}

/// The sides of triangles on several ranks, in the order of their ends; chains hold numbers of the whole mesh.
std::vector<MeshPart::Side> sharedSides(const NamedMesh& mesh, const std::vector<int>& rank)
{
    std::map<Edge, std::pair<int, std::set<int>>> ranksOfSide;
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
        for (std::size_t k = 0; k < 3; ++k) {
            const Edge side = sorted(mesh.triangles[t][k], mesh.triangles[t][(k + 1) % 3]);
            ranksOfSide.try_emplace(side, rank[t], std::set<int>()).first->second.second.insert(rank[t]);
        }
    std::vector<MeshPart::Side> sides;
    for (const auto& [side, of] : ranksOfSide)
        if (of.second.size() > 1)
            sides.push_back({of.first, {of.second.begin(), of.second.end()}, {side[0], side[1]}});
    return sides;
}

} // namespace

MeshPart readPart(const Session& session, const std::string& file)
{
    NamedMesh whole;
    session.together([&] {
        if (session.rank() == 0)
            whole = readMsh(file);
    });
    return partOf(session, whole);
}

MeshPart partOf(const Session& session, const NamedMesh& given)
{
    NamedMesh whole;
    std::vector<int> rank;
    session.together([&] {
        if (session.rank() != 0)
            return;
        whole = given;
        rank = ranksOf(whole, session.size());
    });
    share(session, whole);
    broadcast(session, rank);

    MeshPart part;
    part.nodes = static_cast<Index>(whole.points.size());
    part.triangleCount = static_cast<Index>(whole.triangles.size());
    std::vector<int> local(whole.points.size(), -1);
    std::vector<int> lowest(whole.points.size(), session.size());
    for (std::size_t t = 0; t < whole.triangles.size(); ++t)
        for (const int corner : whole.triangles[t]) {
            auto at = static_cast<std::size_t>(corner);
            lowest[at] = std::min(lowest[at], rank[t]);
            if (rank[t] == session.rank())
                local[at] = 0;
        }
    for (std::size_t n = 0; n < whole.points.size(); ++n)
        if (local[n] == 0) {
            local[n] = static_cast<int>(part.points.size());
            part.points.push_back(whole.points[n]);
            part.nodeNumber.push_back(static_cast<Index>(n));
            part.owner.push_back(lowest[n]);
        }
    const auto at = [&](int node) { return local[static_cast<std::size_t>(node)]; };
    std::set<Edge> sidesHere;
    for (std::size_t t = 0; t < whole.triangles.size(); ++t)
        if (rank[t] == session.rank()) {
            const auto& [a, b, c] = whole.triangles[t];
            part.triangles.push_back({at(a), at(b), at(c)});
            part.numbers.push_back(static_cast<Index>(t));
            sidesHere.insert({sorted(a, b), sorted(b, c), sorted(c, a)});
        }
    for (const auto& [name, edges] : whole.boundaries) {
        std::vector<Edge>& here = part.boundaries[name];
        for (const auto& [a, b] : edges)
            if (sidesHere.count(sorted(a, b)) != 0)
                here.push_back({at(a), at(b)});
    }
    for (MeshPart::Side& side : sharedSides(whole, rank))
        if (std::binary_search(side.sharers.begin(), side.sharers.end(), session.rank())) {
            for (int& node : side.chain)
                node = at(node);
            part.sides.push_back(std::move(side));
        }
    return part;
}

namespace {

/// One step of refinement on a rank.
class Refinement
{
public:
    Refinement(const Session& session, const MeshPart& from) : session_(session), from_(from)
    {
        to_.points = from.points;
        to_.nodeNumber = from.nodeNumber;
        to_.owner = from.owner;
        to_.triangleCount = 4 * from.triangleCount;
        to_.level = from.level + 1;
        for (const MeshPart::Side& side : from.sides)
            if (side.owner != session.rank())
                for (std::size_t k = 1; k < side.chain.size(); ++k)
                    foreign_[keyOf(side.chain[k - 1], side.chain[k])] = side.owner;
    }

    MeshPart run()
    {
        cut();
        number();
        halveSides();
        exchange();
        halveBoundaries();
        return std::move(to_);
    }

private:
    /// The middle of two nodes; where it is met first, its triangle of the mesh that was read gives it out.
    int middle(int a, int b, Index root)
    {
        const auto [at, isNew] = middles_.try_emplace(keyOf(a, b), static_cast<int>(to_.points.size()));
        if (isNew) {
            const Point& p = from_.points[static_cast<std::size_t>(std::min(a, b))];
            const Point& q = from_.points[static_cast<std::size_t>(std::max(a, b))];
            to_.points.push_back({0.5 * (p[0] + q[0]), 0.5 * (p[1] + q[1])});
            const auto other = foreign_.find(at->first);
            const bool mine = other == foreign_.end();
            to_.owner.push_back(mine ? session_.rank() : other->second);
            to_.nodeNumber.push_back(-1);
            if (mine)
                given_.emplace_back(root, at->second);
        }
        return at->second;
    }

    void cut()
    {
        const Index children = Index(1) << (2 * from_.level); // of a triangle that was read
        roots_ = from_.triangleCount / children;
        for (std::size_t t = 0; t < from_.triangles.size(); ++t) {
            const auto& [a, b, c] = from_.triangles[t];
            const Index root = from_.numbers[t] / children;
            const int ab = middle(a, b, root);
            const int bc = middle(b, c, root);
            const int ca = middle(c, a, root);
            Index number = 4 * from_.numbers[t];
            for (const Triangle& child : {Triangle{a, ab, ca}, Triangle{ab, b, bc}, Triangle{ca, bc, c}, Triangle{ab, bc, ca}}) {
                to_.triangles.push_back(child);
                to_.numbers.push_back(number++);
            }
        }
    }

    /// Numbers run over the triangles that were read, in each in the order in which middles are met.
    void number()
    {
        std::vector<Index> first(static_cast<std::size_t>(roots_) + 1, 0);
        for (const auto& [root, node] : given_)
            ++first[static_cast<std::size_t>(root) + 1];
        MPI_Allreduce(MPI_IN_PLACE, first.data(), static_cast<int>(first.size()), MPI_INT64_T, MPI_SUM, session_.comm());
        first[0] = from_.nodes;
        std::partial_sum(first.begin(), first.end(), first.begin());
        for (const auto& [root, node] : given_)
            to_.nodeNumber[static_cast<std::size_t>(node)] = first[static_cast<std::size_t>(root)]++;
        to_.nodes = from_.nodes;
        const auto mine = static_cast<Index>(given_.size());
        Index all = 0;
        MPI_Allreduce(&mine, &all, 1, MPI_INT64_T, MPI_SUM, session_.comm());
        to_.nodes += all;
    }

    void halveSides()
    {
        for (const MeshPart::Side& side : from_.sides) {
            MeshPart::Side fine{side.owner, side.sharers, {side.chain.front()}};
            for (std::size_t k = 1; k < side.chain.size(); ++k) {
                fine.chain.push_back(middles_.at(keyOf(side.chain[k - 1], side.chain[k])));
                fine.chain.push_back(side.chain[k]);
            }
            to_.sides.push_back(std::move(fine));
        }
    }

    /// Owners of sides send the numbers of the new nodes to the sharers: one message for each pair of ranks.
    void exchange()
    {
        std::map<int, std::vector<Index>> out, in;
        for (const MeshPart::Side& side : to_.sides) {
            const std::size_t news = side.chain.size() / 2;
            if (side.owner != session_.rank()) {
                std::vector<Index>& room = in[side.owner];
                room.resize(room.size() + news);
                continue;
            }
            for (const int sharer : side.sharers)
                if (sharer != session_.rank())
                    for (std::size_t k = 1; k < side.chain.size(); k += 2)
                        out[sharer].push_back(to_.nodeNumber[static_cast<std::size_t>(side.chain[k])]);
        }
        std::vector<MPI_Request> requests;
        const auto open = [&] { return &requests.emplace_back(); };
        constexpr int tag = 1;
        for (auto& [rank, list] : in)
            MPI_Irecv(list.data(), static_cast<int>(list.size()), MPI_INT64_T, rank, tag, session_.comm(), open());
        for (auto& [rank, list] : out)
            MPI_Isend(list.data(), static_cast<int>(list.size()), MPI_INT64_T, rank, tag, session_.comm(), open());
        MPI_Waitall(static_cast<int>(requests.size()), requests.data(), MPI_STATUSES_IGNORE);
        std::map<int, std::size_t> read;
        for (const MeshPart::Side& side : to_.sides)
            if (side.owner != session_.rank())
                for (std::size_t k = 1; k < side.chain.size(); k += 2)
                    to_.nodeNumber[static_cast<std::size_t>(side.chain[k])] = in[side.owner][read[side.owner]++];
    }

    void halveBoundaries()
    {
        for (const auto& [name, edges] : from_.boundaries) {
            std::vector<Edge>& halves = to_.boundaries[name];
            for (const auto& [a, b] : edges) {
                const int ab = middles_.at(keyOf(a, b));
                halves.push_back({a, ab});
                halves.push_back({ab, b});
            }
        }
    }

    const Session& session_;
    const MeshPart& from_;
    MeshPart to_;
    Index roots_ = 0;
    std::unordered_map<std::uint64_t, int> middles_;
    std::unordered_map<std::uint64_t, int> foreign_; ///< edges of sides that others own
    std::vector<std::pair<Index, int>> given_;       ///< new nodes that this rank numbers, by their triangle
};

} // namespace

MeshPart refined(const Session& session, const MeshPart& part)
{
    return Refinement(session, part).run();
}

} // namespace examples

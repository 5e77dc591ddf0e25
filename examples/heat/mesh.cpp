// SPDX-License-Identifier: LicenseRef-qxkernel
#include "mesh.hpp"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>

namespace examples {

const std::vector<NamedMesh::Edge>& NamedMesh::boundary(const std::string& name) const
{
    const auto at = boundaries.find(name);
    if (at != boundaries.end())
        return at->second;
    std::string known;
    for (const auto& [n, edges] : boundaries)
        known += (known.empty() ? "" : ", ") + n;
    throw std::invalid_argument("the mesh has no boundary '" + name + "', only " + (known.empty() ? "none" : known));
}

std::vector<int> NamedMesh::boundaryNodes(const std::string& name) const
{
    std::vector<int> nodes;
    for (const Edge& e : boundary(name))
        nodes.insert(nodes.end(), e.begin(), e.end());
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    return nodes;
}

NamedMesh refined(const NamedMesh& mesh)
{
    NamedMesh fine;
    fine.points = mesh.points;
    std::unordered_map<std::uint64_t, int> middles;
    middles.reserve(2 * mesh.triangles.size());
    const auto middle = [&](int a, int b) {
        const auto low = static_cast<std::uint64_t>(std::min(a, b));
        const auto high = static_cast<std::uint64_t>(std::max(a, b));
        const auto [at, isNew] = middles.try_emplace(low << 32 | high, static_cast<int>(fine.points.size()));
        if (isNew) {
            const Point& p = mesh.points[low];
            const Point& q = mesh.points[high];
            fine.points.push_back({0.5 * (p[0] + q[0]), 0.5 * (p[1] + q[1])});
        }
        return at->second;
    };
    fine.triangles.reserve(4 * mesh.triangles.size());
    for (const auto& [a, b, c] : mesh.triangles) {
        const int ab = middle(a, b);
        const int bc = middle(b, c);
        const int ca = middle(c, a);
        for (const Triangle& t : {Triangle{a, ab, ca}, Triangle{ab, b, bc}, Triangle{ca, bc, c}, Triangle{ab, bc, ca}})
            fine.triangles.push_back(t);
    }
    for (const auto& [name, edges] : mesh.boundaries) {
        std::vector<NamedMesh::Edge>& halves = fine.boundaries[name];
        for (const auto& [a, b] : edges) {
            const int ab = middle(a, b);
            halves.push_back({a, ab});
            halves.push_back({ab, b});
        }
    }
    return fine;
}

} // namespace examples

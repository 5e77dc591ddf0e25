// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "support/contour.hpp"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace examples {

/// A triangle mesh with named boundaries, each a set of edges.
struct NamedMesh : Mesh
{
    using Edge = std::array<int, 2>;
    std::map<std::string, std::vector<Edge>> boundaries;
    std::vector<long> numbers; ///< of the triangles of a part, in the whole mesh; empty: their own

    /// The edges of a boundary; raises std::invalid_argument that lists the names there are.
    const std::vector<Edge>& boundary(const std::string& name) const;
    /// The nodes of a boundary, each once, ascending.
    std::vector<int> boundaryNodes(const std::string& name) const;
};

/// Reads a mesh in Gmsh's MSH 4.1 ASCII format: flat, lines and triangles of first order.
///
/// Physical groups of curves become boundaries under their names (their numbers if they have none). Nodes that no
/// triangle uses are dropped, triangles are turned counterclockwise. Sections that are not needed are skipped.
/// Raises FileError with file and line for anything else: a damaged or cut file, unknown or repeated nodes, counts that
/// the file cannot hold, triangles without area. Memory stays in proportion to the size of the file.
/// Source: Gmsh reference manual, "MSH file format", version 4.1.
NamedMesh readMsh(const std::string& file);
NamedMesh readMshText(const std::string& text, const std::string& file);

/// Each triangle in four by the middles of its edges; boundaries are refined alike.
NamedMesh refined(const NamedMesh& mesh);

} // namespace examples

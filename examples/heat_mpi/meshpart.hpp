// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "heat/mesh.hpp"

#include "distributed.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace examples {

using qx::distributed::Index;
using qx::distributed::Session;

/// What one rank has of a mesh: its triangles, their corners, and the boundary edges among their sides.
///
/// Nodes and triangles keep the numbers that they have in the whole mesh, which refinement gives out as the serial
/// `refined` does: the same for any number of ranks. Sides of the mesh that was read are shared where its triangles lie on
/// different ranks; the rank of the triangle with the lowest number owns what lies within such a side, the lowest rank a
/// shared corner.
struct MeshPart : NamedMesh // `numbers` are those of the triangles
{
    std::vector<Index> nodeNumber;  ///< of each point
    std::vector<int> owner;         ///< its rank
    Index nodes = 0;                ///< of the whole mesh
    Index triangleCount = 0;        ///< of the whole mesh
    int level = 0;                  ///< refinements since the mesh was read

    /// A shared side of the mesh that was read: its nodes from one end to the other, local.
    struct Side
    {
        int owner;
        std::vector<int> sharers; ///< ranks, ascending, the owner among them
        std::vector<int> chain;
    };
    std::vector<Side> sides; ///< in an order that all ranks agree on
};

/// Together: the mesh is read on the first rank, partitioned there by METIS, and sent to all; each keeps its part.
/// Memory: each rank holds the mesh as it was read for a while.
/// Source: Karypis, Kumar, SIAM J. Sci. Comput. 20 (1998) 359-392 (METIS_PartMeshDual).
MeshPart readPart(const Session& session, const std::string& file);
/// The same for a mesh that the first rank has.
MeshPart partOf(const Session& session, const NamedMesh& whole);

/// Together: each triangle in four. What ranks share is numbered by its owner and sent to its sharers.
MeshPart refined(const Session& session, const MeshPart& part);

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "meshpart.hpp"

#include "heat/model.hpp"
#include "heat/solution.hpp"

#include "distributed.hpp"

#include <string>
#include <vector>

namespace examples {

using qx::distributed::Scalar;

struct FieldOptions
{
    SolutionOptions newton;
    qx::distributed::SolverOptions linear;
    std::vector<Scalar> start; ///< at the nodes of the part; empty: none
};

/// A solution at the nodes of a part, and what it took.
struct Field
{
    std::vector<Scalar> u;
    Index unknowns = 0;
    Index conditions = 0; ///< eliminated
    double entries = 0;   ///< of the matrix, on all ranks
    int steps = 0;
    int iterations = 0;   ///< of all steps
    double residual = 0.0;
};

/// Together: solves a model on a mesh of which each rank has a part, as `solve` does on one machine: conditions by a null
/// space, Newton's method with the graph's derivative, each step by a method of PETSc's.
///
/// Raises what `solve` raises, on all ranks, with the rank that it came from; conditions that contradict each other are named by
/// boundary and node.
Field solve(const Session& session, const MeshPart& part, const HeatModel& model, const FieldOptions& options,
            qxutil::RunInfo& runInfo, Phases& phases);

/// Together: the L2 norm of u - exact.
double error(const Session& session, const MeshPart& part, const HeatModel& model, const Effort& effort,
             const std::vector<Scalar>& u, const std::string& exact);

/// Places of the nodes in the order that Unknowns wants: those that this rank owns first.
std::vector<std::size_t> ownedFirst(const Session& session, const MeshPart& part, std::size_t& owned);

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "assembly.hpp"
#include "mesh.hpp"
#include "model.hpp"

#include "sparse.hpp"

#include <string>
#include <utility>
#include <vector>

namespace examples {

/// The linear conditions on the node values: N^H u = value, one column of N a condition.
template <class T>
struct Constraints
{
    Sparse N;                   ///< nodes by conditions
    std::vector<T> value;
    std::vector<std::pair<std::size_t, std::string>> origins; ///< first condition and what it and the next ones stand for

    /// A condition in words: what was asked for, and where, by node number and place.
    std::string describe(std::size_t condition, const NamedMesh& mesh) const;
};

/// Writes the model's fixed values, periodic pairs and mean values as conditions, in this order. They may repeat each
/// other; whether they contradict each other is found when they are solved.
///
/// A node on two fixed boundaries takes the one named first. Periodic boundaries that are no translates of each other
/// raise std::invalid_argument.
template <class T>
Constraints<T> constraintsOf(const NamedMesh& mesh, const HeatModel& model, const Assembly& assembly);

} // namespace examples

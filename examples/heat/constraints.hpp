#pragma once

#include "assembly.hpp"
#include "mesh.hpp"
#include "model.hpp"

#include "sparse.hpp"

#include <vector>

namespace examples {

/// The linear conditions on the node values: N^H u = value, one column of N a condition.
template <class T>
struct Constraints
{
    Sparse N;                   ///< nodes by conditions, of full rank
    std::vector<T> value;
};

/// Writes the model's fixed values, periodic pairs and mean values as conditions, each independent of the others.
///
/// A node on two fixed boundaries takes the one named first. A periodic pair that earlier conditions already tie
/// together is left out; two fixed partners with different values raise std::invalid_argument, as do periodic boundaries
/// that are no translates of each other and a mean over a boundary whose nodes are all fixed.
template <class T>
Constraints<T> constraintsOf(const NamedMesh& mesh, const HeatModel& model, const Assembly& assembly);

} // namespace examples

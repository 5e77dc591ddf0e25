// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "coefficient.hpp"
#include "mesh.hpp"

#include "assemblypattern.hpp"
#include "sparse.hpp"

#include <array>
#include <complex>
#include <string>
#include <vector>

namespace examples {

/// The finite-element form of a model on linear triangles, with shape functions phi_i and u = sum u_j phi_j:
///
///     F_i  = int k grad u . grad phi_i - int f phi_i - int_boundary q phi_i
///     J_ij = dF_i/du_j = int k grad phi_j . grad phi_i + int k' phi_j grad u . grad phi_i
///                        - int f' phi_j phi_i - int_boundary q' phi_j phi_i
///
/// where ' is d/du, from the evaluation graph. Integrals by three points a triangle and two Gauss points an edge: exact for
/// products of two linear functions. Formulas are evaluated at all points of many elements, on several threads; each element has its
/// own place among the triplets and sums run in element order, so results have the same bits for any number of threads.
/// Source: Braess, Finite Elements, 3rd ed., Cambridge 2007, chapter II.
class Assembly
{
public:
    /// Mesh and model are lent. Raises EvaluationError for text that is no formula, std::invalid_argument for an unknown
    /// boundary.
    Assembly(const NamedMesh& mesh, const HeatModel& model, const Effort& effort);

    /// F is affine in u.
    bool isLinear() const { return linear_; }

    /// J and F at u, one number a node; formulas see u as real. T is double or std::complex<double>.
    /// Raises EvaluationError that names the formula, the element and the point.
    template <class T>
    void assemble(const std::vector<double>& u, Sparse& J, std::vector<T>& F) const;

    /// The values of a formula of x and y at nodes; `name` is for messages.
    template <class T>
    std::vector<T> atNodes(const std::string& name, const std::string& text, const std::vector<int>& nodes) const;

    /// The L2 norm of u - exact, by the same rule.
    template <class T>
    double error(const std::vector<T>& u, const std::string& exact) const;

private:
    /// Cells of N corners: triangles with conduction and source, or edges with a flux.
    template <int N>
    struct Part
    {
        std::string cell;                       ///< for messages: "element" or "edge of inlet"
        std::vector<std::array<int, N>> nodes;
        std::vector<Coefficient> coefficients;  ///< what acts on phi_i, and for triangles the conductivity
        std::size_t firstTriplet = 0;
        std::size_t firstLoad = 0;
    };

    /// A half-open range of cells.
    struct Range
    {
        std::size_t first;
        std::size_t count;
    };
    /// Value and slope of a coefficient at the points of some cells.
    template <class T>
    struct Values
    {
        std::vector<T> value, slope;
    };

    Coefficient read(const std::string& name, const std::string& text) const { return {name, text, model_}; }
    template <int N>
    Part<N> part(const std::string& cell, std::vector<std::array<int, N>> nodes,
                 std::vector<Coefficient> coefficients);
    template <int N>
    Points pointsOf(const Part<N>& part, Range cells, const std::vector<double>& u) const;
    template <class T>
    Values<T> evaluate(const Coefficient& c, const Points& points, const std::string& cell, std::size_t firstCell,
                       std::size_t pointsOfCell) const;
    template <class T, int N>
    void assemblePart(const Part<N>& part, const std::vector<double>& u, std::vector<T>& triplets,
                      std::vector<T>& loads) const;
    template <class T, int N>
    void addCell(const Part<N>& part, std::size_t cell, std::size_t firstPoint, const std::vector<double>& u,
                 const Values<T>& f, const Values<T>& k, T* J, T* F) const;

    const NamedMesh& mesh_;
    const HeatModel& model_;
    Effort effort_;
    Part<3> body_;
    std::vector<Part<2>> boundaries_;
    std::vector<unsigned long> rows_, columns_; // of all triplets; none once there is a pattern
    AssemblyPattern pattern_;                   // where J is assembled more than once
    std::vector<int> loadNodes_;                // of all element vectors
    bool linear_ = true;
};

} // namespace examples

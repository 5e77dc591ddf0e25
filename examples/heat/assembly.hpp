#pragma once

#include "coefficient.hpp"
#include "formulas/blocks.hpp"
#include "mesh.hpp"

#include "sparse.hpp"

#include <array>
#include <complex>
#include <functional>
#include <string>
#include <vector>

namespace examples {

/// How the work is cut up.
struct Effort
{
    int threads = 1;
    std::size_t block = 1000;           ///< cells evaluated together
    std::function<void()> pulse = [] {}; ///< called before each block, on any thread; raises to stop
};

/// The finite-element form of a model on linear triangles, with shape functions phi_i and u = sum u_j phi_j:
///
///     F_i  = int k grad u . grad phi_i - int f phi_i - int_boundary q phi_i
///     J_ij = dF_i/du_j = int k grad phi_j . grad phi_i + int k' phi_j grad u . grad phi_i
///                        - int f' phi_j phi_i - int_boundary q' phi_j phi_i
///
/// where ' is d/du, from the evaluation graph. Integrals by three points a triangle and two Gauss points an edge: exact for
/// products of two linear functions. Formulas are evaluated for blocks of points, on several threads; each element has its
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

    template <int N>
    Part<N> part(const std::string& cell, std::vector<std::array<int, N>> nodes,
                 std::vector<Coefficient> coefficients);
    template <int N>
    Points pointsOf(const Part<N>& part, Range cells, const std::vector<double>& u) const;
    template <class T, int N>
    void assemblePart(const Part<N>& part, const std::vector<double>& u, std::vector<T>& triplets,
                      std::vector<T>& loads) const;
    template <class T, int N>
    [[noreturn]] void tell(const Part<N>& part, Range cells, const std::vector<double>& u) const;

    const NamedMesh& mesh_;
    Effort effort_;
    Coefficients coefficients_;
    Part<3> body_;
    std::vector<Part<2>> boundaries_;
    std::vector<unsigned long> rows_, columns_; // of all triplets
    std::vector<int> loadNodes_;                // of all element vectors
    bool linear_ = true;
};

} // namespace examples

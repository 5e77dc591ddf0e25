// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"
#include "sparse.hpp"

#include <complex>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

class Umfpack;

namespace qxutil {
class RunInfo;
}

/// Sparse systems with linear constraints, in one call each.
///
///     qx::Factor lu(A);
///     const std::vector<double> x = lu.solve(b);                     // A x = b
///
///     const qx::NullSpace basis = qx::nullSpace(N, {.orthonormal = true});
///
///     const auto s = qx::solveConstrained(K, f, N, g);               // K u = f where N^H u = g leaves u free
///     s.u, s.residual, s.dropped
///
/// N has one row for each unknown and one column for each constraint. Matrices may be stored in any way; a Symmetric or
/// Hermitian store means the matrix that it stands for. Umfpack and qxNull are what these calls are made of.
///
/// Raises what those raise, and from "constrained": "Wrong_number_of_values" with "Name", "Expected", "Found" where a vector
/// or N does not fit; "Complex_matrix_for_real_values" with "Name"; "Out_of_memory_constraint_elimination"; others at the functions. All is as it was after a failure.
/// Threads: an object belongs to one thread at a time; no more than one factorisation at a time in a process.
namespace qx {

/// A x, transpose(A) x or conj(transpose(A)) x, on vectors of the standard library; a complex A and a real x do not go
/// together. Raises from "constrained" and what AMulx raises. Cost: AMulx and two copies of vectors; in loops that
/// care, use that.
QX_API std::vector<double> multiply(const Sparse& A, std::span<const double> x, Trans_t trans = NoTrans);
QX_API std::vector<std::complex<double>> multiply(const Sparse& A, std::span<const std::complex<double>> x,
                                                  Trans_t trans = NoTrans);

struct FactorOptions
{
    bool transposed = false;          ///< solves with the transpose of the matrix (never conjugated)
    bool accurate = true;             ///< refuses solutions without two good digits: "Singular_matrix" with "Estimated_error"
    qxutil::RunInfo* run = nullptr;   ///< progress and cancel, lent for the life of the object
};

/// A matrix factorised once for any number of right-hand sides.
class QX_API Factor
{
public:
    /// Raises "Matrix_not_square", "Matrix_is_zero", "Singular_matrix" and what else Umfpack::init raises.
    explicit Factor(const Sparse& A, const FactorOptions& options = {});
    ~Factor();
    Factor(Factor&&) noexcept;
    Factor& operator=(Factor&&) noexcept;

    /// x with A x = b, refined. A real b and a complex matrix do not go together.
    std::vector<double> solve(std::span<const double> b);
    std::vector<std::complex<double>> solve(std::span<const std::complex<double>> b);
    /// |e| / |x| of the last solution, with e the solution for its residual: how much a second look would change it. 0
    /// before, and without `accurate`.
    double estimatedError() const { return error_; }

private:
    template <class T>
    std::vector<T> solveAny(std::span<const T> b);

    std::unique_ptr<qxutil::RunInfo> silent_;
    std::unique_ptr<Umfpack> solver_;
    unsigned long size_;
    bool real_;
    bool accurate_;
    double error_ = 0;
};

/// Bases to N: N^H null = 0, [null complement] is invertible, range = complement^H N.
struct NullSpace
{
    Sparse null;
    Sparse complement;
    Sparse range;
};

struct NullSpaceOptions
{
    bool orthonormal = false;       ///< orthonormal columns by singular values; otherwise sparse ones by elimination
    qxutil::RunInfo* run = nullptr; ///< progress and cancel, lent for the call
};

/// Raises what qxNull raises.
QX_API NullSpace nullSpace(const Sparse& N, const NullSpaceOptions& options = {});

/// All u with N^H u = g: particular + null z for any z. `dropped` are constraints (from 0, ascending) that follow from
/// the others and were left out; `space` belongs to the rest.
template <class T>
struct Admissible
{
    std::vector<T> particular;
    NullSpace space;
    std::vector<std::size_t> dropped;
};

/// Raises "Contradicting_constraints" with "Constraint" (from 0), "With" (those it contradicts, the first 20 of "Others"),
/// "Difference" and "Value" (of g there), if a sum of constraints that is 0 on the left is not 0 on the right: by more than 1e-9 of the
/// magnitudes in the sum.
QX_API Admissible<double> admissible(const Sparse& N, std::span<const double> g, const NullSpaceOptions& options = {});
QX_API Admissible<std::complex<double>> admissible(const Sparse& N, std::span<const std::complex<double>> g,
                                                   const NullSpaceOptions& options = {});

/// A solution under constraints.
template <class T>
struct Constrained
{
    std::vector<T> u;
    double residual;                  ///< |Null^H (f - K u)| / (|Null^H f| + |Null^H K u|); 0 for 0 / 0
    std::vector<std::size_t> dropped; ///< constraints (from 0, ascending) that follow from the others
    std::size_t unknowns;             ///< of the reduced system
};

/// Solves for u = particular + Null z with Null^H (K u - f) = 0, which is K u = f up to the forces that the constraints
/// exert. An N without columns means no constraints. K need not be symmetric, nor regular without the constraints.
///
/// Raises as Factor and admissible; "Singular_matrix" for a system that the constraints leave singular.
/// Cost: two elimination passes over N where constraints repeat others, otherwise one; the sparse factorisation of
/// Null^H K Null.
QX_API Constrained<double> solveConstrained(const Sparse& K, std::span<const double> f, const Sparse& N,
                                            std::span<const double> g, const NullSpaceOptions& options = {});
QX_API Constrained<std::complex<double>> solveConstrained(const Sparse& K, std::span<const std::complex<double>> f,
                                                          const Sparse& N, std::span<const std::complex<double>> g,
                                                          const NullSpaceOptions& options = {});

} // namespace qx

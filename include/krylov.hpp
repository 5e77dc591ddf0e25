// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Building blocks of Krylov solvers, and a restarted GMRES on a dense matrix.
//
// Rotations. A stored rotation (c, s) maps a pair (t, u) to (c t - conj(s) u, s t + c u), with c real (its imaginary part 0
// in complex storage) and |c|^2 + |s|^2 = 1. The one that gmres makes for (t, h), h real, has s t + c h = 0.
//
// Failures (source "arrayutil"): "Internal_numerical_error" with the detail named below; operands are as they were.
// Threads: no state. Do not call inside an OpenMP region: products use BLAS.

#include "array.hpp"
#include "matrix.hpp"
#include "multitree.hpp"
#include "qxexport.hpp"
#include "transt.hpp"

#include <complex>

namespace qxarray {

/// Modified Gram-Schmidt, one pass: makes w orthogonal to the first j + 1 vectors of V and writes the coefficients to
/// column j of H.
///
///   for i = 0 .. j:    H(i, j) = conj(v_i) . w,    w -= H(i, j) v_i
///
/// In:    w (n); V (n, more than j) or a list of more than j vectors of length n, orthonormal; H with more than j rows and
///        columns, of which only H(0..j, j) is written. T is double or std::complex<double>
/// Fails: "Column index out of bounds." if H or V has not more than j columns, "Size of input mismatch." for vectors of
///        other lengths or too few rows of H
/// Cost:  4 n (j + 1) flops; w is read once a vector, the subtraction of one and the product with the next in one pass
/// Source: Saad, Iterative Methods for Sparse Linear Systems, 2nd ed., SIAM 2003, section 6.3.2
template <class T>
QX_API void gramSchmidt(Array<T, 2>& H, Array<T, 1>& w, const Array<T, 2>& V, unsigned long j);
template <class T>
QX_API void gramSchmidt(Array<T, 2>& H, Array<T, 1>& w, const MultiTree<Array<T, 1>, 1>& V, unsigned long j);

/// Applies the first j rotations to column j of H and returns what comes out for row j; H(j, j) is not written.
///
///   t = H(0, j);   for i = 0 .. j-1:    u = H(i+1, j),    H(i, j) = c_i t - conj(s_i) u,    t = s_i t + c_i u
///
/// Fails: "Column index out of bounds." if H has not more than j columns, "Size of input mismatch." if it has not more than
///        j rows, or c and s differ in length or have less than j elements
template <class T>
QX_API T givensRot(Array<T, 2>& H, const Array<T, 1>& c, const Array<T, 1>& s, unsigned long j);

} // namespace qxarray

/// The same on matrices, which must be all real or all complex: otherwise "Types must agree.".
QX_API void gramSchmidt(Matrix<2>& H, Matrix<1>& w, const Matrix<2>& V, unsigned long j);
QX_API void gramSchmidt(Matrix<2>& H, Matrix<1>& w, const MultiTree<Matrix<1>, 1>& V, unsigned long j);
QX_API std::complex<double> givensRot(Matrix<2>& H, const Matrix<1>& c, const Matrix<1>& s, unsigned long j);

/// qxarray::triSolve on matrices. Fails also: "triSolve: Mixed real and complex case not implemented.".
QX_API void triSolve(const Matrix<2>& R, Matrix<1>& x, bool upper, Trans_t trans, int n);

/// y += op(A) x on the leading m-by-n block of A; m or n below 0 means all. A real y is promoted if A or x is complex. flops
/// grows by 2 m n, by 4 m n if one of A and x is complex, by 8 m n if both are. Fails as qxarray::yPlusAMulx.
QX_API void yPlusAMulx(Matrix<1>& y, const Matrix<2>& A, const Matrix<1>& x, double& flops, Trans_t trans = NoTrans,
                       int m = -1, int n = -1);

/// Solves A x = b by GMRES, restarted every m steps. Returns 1 when it has converged, -1 at the iteration limit.
///
///   converged:    scale |b - A x| <= tol |b|
///
/// In:      A (n, n), b (n), x (n) the initial guess; m >= 1 the size of the Krylov space; maxIts the limit on steps over
///          all restarts (one step is made at least, unless the guess is good enough)
/// Out:     x the last iterate, promoted if A or b is complex; flops grows by those of the products with A, counted as
///          yPlusAMulx does
/// Within a cycle the residual is the one that the rotations estimate; it is computed at the end of each cycle, and that
/// one decides. b of norm 0 gives x = 0 at once. A zero on the diagonal of the triangular system, which needs a singular A,
/// writes "Warning: Singular Hessenberg matrix." to the standard output; the system is then not solved, and its right-hand
/// side is used as it is.
/// Fails:   "Internal_error_solver" (source "matrix") with "gmres: RHS or initial guess has wrong size.", "gmres: Matrix is
///          not square." or "gmres: Size of the Krylov space is less than 1."; "Internal_error_matrix" if x would have to
///          be promoted and has its noRealloc mark; std::bad_alloc. x is as it was then
/// Cost:    a step is one product with A and 4 n (j + 1) flops at step j of a cycle; n (m + 4) + m^2 numbers of memory
/// Threads: those of BLAS in products with A; all else has the same bits for any number
/// Source:  Saad and Schultz, SIAM J. Sci. Stat. Comput. 7 (1986) 856-869
QX_API int gmres(const Matrix<2>& A, const Matrix<1>& b, Matrix<1>& x, double tol, int m, double scale, int maxIts,
                 double& flops);

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Dense linear algebra on Array<double,N> and Array<std::complex<double>,N> through LAPACK and BLAS.
//
// Arrays are column-major; the leading dimension of a matrix is its number of rows. T is double or
// std::complex<double>; every template below is instantiated for both unless its docstring says otherwise.
//
// FLAGS. Most functions end with a bit set that says what raises:
//   1  a positive INFO (the computation broke down) raises the failure named in the docstring; without the bit INFO is
//      returned, and a solver fills its whole result with NaN
//   2  a negative INFO (an argument does not fit) raises "Internal_numerical_error" with
//      "Illegal_input_values_in_LAPACK_call"; without the bit INFO is returned and nothing is changed
// Shapes and option letters are checked before the call with LAPACK's argument numbers, so that its own error handler,
// which may print or stop the process, never runs. A NaN or an infinity in the matrix of an iteration (singular values,
// eigenvalues, leastSquares) counts as an argument that does not fit.
//
// SIZES. An empty problem returns at once. Results that a function resizes are resized before the call. Extents and
// work sizes beyond the 32-bit integers of LAPACK throw std::bad_alloc, as an allocation failure does: matrices that
// go in are unchanged then, results that come out may have lost their contents.
//
// THREADS. No state of their own; functions may run at the same time on different arrays. Do not call them inside an
// OpenMP region: BLAS has threads too. Where a result may depend on the number of BLAS threads, that is the BLAS
// library's doing; the functions on vectors give the same bits for any number.

#include "array.hpp"
#include "qxexport.hpp"
#include "transt.hpp"

#include <complex>
#include <type_traits>

namespace qxarray {

/// Prepares the library for use by a host; a second call does nothing. Safe to call from several threads.
QX_API void initializeArray();

// --- Linear systems -------------------------------------------------------------------------------------------------

/// Solves A X = B by LU with row interchanges; B becomes X. LAPACK gesv.
///
/// In:      A (n, n), B rank 1 or 2 with at least n rows
/// Out:     A its factors L and U, B the solution in its first n rows
/// Returns: INFO; 1 if B is empty or n is 0, whatever the flags
/// Fails:   bit 1 and a zero pivot: "Error_in_LAPACK_call", "Singular_matrix". Without bit 1 all of B becomes NaN
/// Cost:    2/3 n^3 flops, n ints
template <class T, int N>
QX_API int linsolv(Array<T, 2>& A, Array<T, N>& B, int flags);

/// LU factors of A (m, n) with row interchanges, without flags: as lu(A, ipiv, 0). LAPACK getrf.
template <class T>
QX_API int linsolvdecomp(Array<T, 2>& A, Array<int, 1>& ipiv);

/// P A = L U: unit lower L and upper U overwrite A (m, n); ipiv (min(m, n), resized) holds the 1-based row that was
/// exchanged with each row. LAPACK getrf.
///
/// Fails: bit 1 and a zero pivot: "Error_in_LAPACK_call", "Singular_matrix"; the factors are complete all the same
template <class T>
QX_API int lu(Array<T, 2>& A, Array<int, 1>& ipiv, int flags);

/// Solves A X = B with the factors of lu; B of rank 1, 2 or 3 with at least n rows, each column a right-hand side.
/// LAPACK getrs.
///
/// Returns: INFO; 1 if B is empty or n is 0. A zero pivot is not looked for: it gives Inf or NaN
template <class T, int N>
QX_API int linsolvsolve(const Array<T, 2>& LU, const Array<int, 1>& ipiv, Array<T, N>& B, int flags);

/// A = R^H R of a Hermitian positive definite matrix, from its upper triangle: R overwrites the upper triangle, the
/// strict lower triangle stays as it was. LAPACK potrf.
///
/// flag is not a bit set: if it is not 0, any INFO but 0 raises "Input matrix must be positive definite.".
template <class T>
QX_API int chol(Array<T, 2>& A, int flag);

/// Least squares by singular values: the X of smallest norm that minimises |A X - B|. LAPACK gelss.
///
/// In:      A (m, n), destroyed; B of rank 1 or 2 with at least max(m, n) rows, of which the first m count; rcond:
///          singular values up to rcond times the largest count as zero, negative means machine precision
/// Out:     X resized to n rows and the columns of B; B itself is unchanged
/// Returns: INFO; 1 if B is empty
/// Fails:   bit 1 and no convergence: "DBDSQR_did_not_converge", "Unconverged_superdiagonals" (value). Without bit 1
///          all of X becomes NaN
template <class T, int N>
QX_API int leastSquares(Array<T, 2>& A, const Array<T, N>& B, Array<T, N>& X, double rcond, int flags);

/// Least squares (m >= n) or minimum norm (m < n) for A of full rank, by QR or LQ, real only. LAPACK gels.
///
/// In:      the leading m-by-n block of A (destroyed), the leading max(m, n)-by-nrhs block of B; work as made by
///          leastSquaresQRResize or larger. Nothing is allocated
/// Out:     the solution in the first n rows of B
/// Returns: INFO; 1 if nrhs is 0 or B is empty
/// Fails:   bit 1 and a zero on the diagonal of the triangle: "Error_in_LAPACK_call", "Singular_matrix". Without bit 1
///          all of B becomes NaN
QX_API int leastSquaresQR(unsigned long m, unsigned long n, unsigned long nrhs, Array<double, 2>& A,
                          Array<double, 2>& B, Array<double, 1>& work, int flags);

/// Sizes A (m, n), B (max(m, n), nrhs) and work (the best size LAPACK names) for leastSquaresQR. Contents are lost.
QX_API void leastSquaresQRResize(unsigned long m, unsigned long n, unsigned long nrhs, Array<double, 2>& A,
                                 Array<double, 2>& B, Array<double, 1>& work);

// --- Orthogonal factorisations --------------------------------------------------------------------------------------

/// A = Q R: R overwrites the upper triangle of A (m, n), the reflectors of Q the rest; tau is resized to min(m, n).
/// LAPACK geqrf.
template <class T>
QX_API int qr(Array<T, 2>& A, Array<T, 1>& tau, int flags);

/// A P = Q R with column pivoting: |R(k, k)| never increases. jpvt is resized to n and holds the 1-based column of A
/// that became each column of A P; its contents at entry do not matter. LAPACK geqp3.
template <class T>
QX_API int qr(Array<T, 2>& A, Array<T, 1>& tau, Array<int, 1>& jpvt, int flags);

/// The same without tau and without flags: for callers who want R and P only.
template <class T>
QX_API int qr(Array<T, 2>& A, Array<int, 1>& jpvt);

/// Q of a qr result: A (m, n), m >= n, with reflectors in its first columns becomes n orthonormal columns.
/// LAPACK orgqr, ungqr.
template <class T>
QX_API int q(Array<T, 2>& A, const Array<T, 1>& tau, int flags);

/// A = U diag(s) V^H. LAPACK gesvd.
///
/// In:      A (m, n), destroyed; jobu, jobvt: "A" all, "S" the first min(m, n), "O" overwrite A (not both), "N" none
/// Out:     s resized to min(m, n), descending; U (m, m or min) and VT = V^H (n or min, n) are resized for "A" and
///          "S" and left alone for "O" and "N"
/// Fails:   bit 1 and no convergence: "DBDSQR_did_not_converge", "Unconverged_superdiagonals" (value)
/// Source:  Golub and Van Loan, Matrix Computations, 4th ed., section 8.6
template <class T>
QX_API int svd(const char* jobu, const char* jobvt, Array<T, 2>& A, Array<T, 2>& U, Array<double, 1>& s,
               Array<T, 2>& VT, int flags);

/// Singular values only, as svd("N", "N", ...).
template <class T>
QX_API int svd(Array<T, 2>& A, Array<double, 1>& s, int flags);

/// Number of singular values above limit = tol * s_1 * max(m, n); 0 for an empty or zero matrix. limit, if given,
/// receives that number. A is unchanged.
///
/// Fails: as svd with flags 3
template <class T>
QX_API int rank(const Array<T, 2>& A, double tol, double* limit = nullptr);

// --- Eigenvalues ----------------------------------------------------------------------------------------------------

/// A x = lambda x, real: lambda = wr + i wi. LAPACK geev.
///
/// In:      A (n, n), destroyed; jobvl, jobvr: "V" or "N"
/// Out:     wr, wi resized to n, pairs adjacent, positive imaginary part first; VL, VR resized to (n, n) for "V" and
///          left alone for "N". Of a pair j, j+1 the vectors are V(:, j) + i V(:, j+1) and its conjugate; each has
///          2-norm 1
/// Fails:   bit 1 and no convergence: "Iteration_in_the_QR_algorithm_failed", "Iteration" (value)
QX_API int eig(const char* jobvl, const char* jobvr, Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi,
               Array<double, 2>& VL, Array<double, 2>& VR, int flags);
QX_API int eig(Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi, int flags);

/// A x = lambda x, complex: w holds lambda, otherwise as the real form.
QX_API int eig(const char* jobvl, const char* jobvr, Array<std::complex<double>, 2>& A,
               Array<std::complex<double>, 1>& w, Array<std::complex<double>, 2>& VL,
               Array<std::complex<double>, 2>& VR, int flags);
QX_API int eig(Array<std::complex<double>, 2>& A, Array<std::complex<double>, 1>& w, int flags);

/// A x = lambda B x, real: lambda = (alphar + i alphai) / beta, infinite where beta is 0. LAPACK ggev; a QZ iteration
/// that does not converge is repeated with varied shifts.
///
/// In:      A, B (n, n), destroyed
/// Out:     alphar, alphai, beta resized to n; VL, VR as above, largest component of size 1
/// Fails:   bit 1 and no convergence: "Iteration_in_the_QZ_algorithm_failed", "Iteration" (value)
QX_API int eig(const char* jobvl, const char* jobvr, Array<double, 2>& A, Array<double, 2>& B,
               Array<double, 1>& alphar, Array<double, 1>& alphai, Array<double, 1>& beta, Array<double, 2>& VL,
               Array<double, 2>& VR, int flags);
QX_API int eig(Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar, Array<double, 1>& alphai,
               Array<double, 1>& beta, int flags);

/// A x = lambda B x, complex: lambda = alpha / beta. No retry.
QX_API int eig(const char* jobvl, const char* jobvr, Array<std::complex<double>, 2>& A,
               Array<std::complex<double>, 2>& B, Array<std::complex<double>, 1>& alpha,
               Array<std::complex<double>, 1>& beta, Array<std::complex<double>, 2>& VL,
               Array<std::complex<double>, 2>& VR, int flags);
QX_API int eig(Array<std::complex<double>, 2>& A, Array<std::complex<double>, 2>& B,
               Array<std::complex<double>, 1>& alpha, Array<std::complex<double>, 1>& beta, int flags);

/// Balanced generalised eigenvalues with the reciprocal condition number of each (rconde, resized to n; 0 for an
/// eigenvalue 0/0 of a singular pencil); abnrm and bbnrm receive the 1-norms of the balanced matrices. Real only; with retry. LAPACK ggevx.
QX_API int eig(Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar, Array<double, 1>& alphai,
               Array<double, 1>& beta, double* abnrm, double* bbnrm, Array<double, 1>& rconde, int flags = 3);

/// Selected eigenvalues of a real symmetric matrix in packed storage. LAPACK spevx.
///
/// In:      AP (n (n+1) / 2), the triangle `uplo` ("U" or "L") column by column, destroyed; jobz "V" or "N"; range "A"
///          all, "V" the half-open interval (vl, vu], "I" the il-th to iu-th (1-based, ascending); abstol: width to
///          which an eigenvalue is located, 0 or negative for the default
/// Out:     w resized to the number found, ascending; for "V" the columns of Z (n, found) and ifail (found): the
///          1-based indices of the vectors that did not converge come first, the rest is 0
/// Returns: INFO: the number of vectors that did not converge
QX_API int eig(Array<double, 1>& AP, Array<double, 1>& w, Array<double, 2>& Z, const char* jobz, const char* range,
               const char* uplo, double vl, double vu, int il, int iu, double abstol, Array<int, 1>& ifail);

/// A = Q T Q^H: T, upper triangular or in the real form with 2-by-2 blocks for complex pairs, overwrites A; Q is resized
/// to (n, n) if wanted and left alone otherwise. LAPACK gehrd, orghr, hseqr. Returns INFO.
template <class T>
QX_API int schur(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ);

/// Reorders A = Q T Q^H so that the eigenvalues with a non-zero select (n) come first; of a complex pair either member
/// selects both. Q may be empty: then only T is reordered. LAPACK trsen.
///
/// Returns: INFO; 1 if two values were too close to exchange, T and Q then hold a partly reordered form
template <class T>
QX_API int ordschur(Array<T, 2>& Tri, Array<T, 2>& Q, const Array<int, 1>& select);

/// A = Q H Q^H with zeros below the first subdiagonal of H, which overwrites A; Q as for schur. LAPACK gehrd, orghr.
template <class T>
QX_API int hess(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ);

/// A = Q H Z^H, B = Q R Z^H with H upper Hessenberg and R upper triangular in the places of A and B; Q, Z resized to
/// (n, n). A B that is not triangular is made so by QR first. LAPACK gghrd.
template <class T>
QX_API int generalizedHess(Array<T, 2>& A, Array<T, 2>& B, Array<T, 2>& Q, Array<T, 2>& Z);

/// Zeros of coefficients[0] x^k + ... + coefficients[k] as eigenvalues of the companion matrix. Leading zeros are
/// skipped; a constant, the zero polynomial included, has no zeros. Results are resized. Fails as eig.
/// Source: Horn and Johnson, Matrix Analysis, section 3.3
QX_API int roots(const Array<double, 1>& coefficients, Array<double, 1>& zr, Array<double, 1>& zi, int flags);
QX_API int roots(const Array<std::complex<double>, 1>& coefficients, Array<std::complex<double>, 1>& z, int flags);

// --- Matrices and vectors -------------------------------------------------------------------------------------------

/// B = conjugate transpose of A, B resized. A and B must be different arrays.
template <class T>
QX_API void adjoint(const Array<T, 2>& A, Array<T, 2>& B);

/// Solves op(R) x = x in place, R the upper or lower triangle of the leading n-by-n block of A. BLAS trsv. A zero on the
/// diagonal gives Inf or NaN.
///
/// Fails: "Internal_numerical_error", "triSolve: Size of A or x less than required by n."
template <class T>
QX_API void triSolve(const Array<T, 2>& A, Array<T, 1>& x, bool upper, Trans_t trans, int n);

/// y += op(A) x on the leading m-by-n block of A; m or n of 0 means all. BLAS gemv.
///
/// Fails: "Internal_numerical_error", "yPlusAMulx: Size of A less than required by m and n." or
///        "yPlusAMulx: Size of x or y less than required by m and n."; y is unchanged
template <class T>
QX_API void yPlusAMulx(Array<T, 1>& y, const Array<T, 2>& A, const Array<T, 1>& x, Trans_t trans = NoTrans,
                       unsigned long m = 0, unsigned long n = 0);

/// y += a x. BLAS axpy.
///
/// Fails: "Internal_numerical_error", "yPlusaMulx: x and y does not have the same length." (real) or
///        "yPlusaMulx: y and x does not have the same length." (complex)
template <class T>
QX_API void yPlusaMulx(Array<T, 1>& y, std::type_identity_t<T> a, const Array<T, 1>& x);
template <class T>
QX_API void yPlusaMulx(T* y, std::type_identity_t<T> a, const T* x, unsigned long n);

/// y_i += a.
template <class T, int N>
QX_API void yPlusa(Array<T, N>& y, std::type_identity_t<T> a);
template <class T>
QX_API void yPlusa(T* y, std::type_identity_t<T> a, unsigned long n);

/// Sum of x_i y_i, for ConjTrans of conj(x_i) y_i; without trans unconjugated. BLAS dot, dotu, dotc on blocks of fixed
/// length, so that the order of additions does not depend on the number of BLAS threads.
///
/// Fails: "Internal_numerical_error", "dot: x and y does not have the same length."
template <class T>
QX_API T dot(const Array<T, 1>& x, const Array<T, 1>& y);
template <class T>
QX_API T dot(const Array<T, 1>& x, const Array<T, 1>& y, Trans_t trans);

/// 2-norm, the Frobenius norm for a matrix, without overflow or underflow on the way. BLAS nrm2.
template <class T, int N>
QX_API double norm(const Array<T, N>& x);
template <class T>
QX_API double norm(const T* x, unsigned long n);

/// x_i *= a. BLAS scal; a complex x times a real a, or one with imaginary part 0, takes the real path (zdscal).
template <class T, int N>
QX_API void scale(Array<T, N>& x, std::type_identity_t<T> a);
template <class T>
QX_API void scale(T* x, std::type_identity_t<T> a, unsigned long n);

/// y = x. The first form resizes y to the shape of x. BLAS copy.
template <class T, int N>
QX_API void copy(const Array<T, N>& x, Array<T, N>& y);
template <class T>
QX_API void copy(unsigned long n, const T* x, T* y);

/// z_i = x_i y_i; z may be x or y. Parallel from 10000 elements on, same bits.
template <class T>
QX_API void times(unsigned long n, const T* x, const T* y, T* z);

/// x_i = x_i^p; anything to the power 0 is 1. A real negative x with a p that is no integer gives NaN. A complex zero to
/// a complex power gives 0 if Re p > 0 and NaN if not, to a negative real power infinity.
/// (T, P) is (double, double), (complex, double) or (complex, complex).
template <class T, class P>
QX_API void pow(T* x, P p, unsigned long n);

} // namespace qxarray

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The generalised real eigenvalue problem A x = lambda B x by a QZ iteration whose exceptional shifts can be varied: for
// the rare pencils on which the iteration of LAPACK's dggev and dggevx does not converge.
//
// The functions take the arguments of LAPACK's DGGEV, DGGEVX and DHGEQZ in their order, with the same meaning, workspace
// and INFO, and behind them one number more. There are no hidden string lengths. Bad arguments go to LAPACK's xerbla under
// the names "DGGEV", "DGGEVX" and "DHGEQZ", which prints and, with some libraries, stops the process.
//
// shiftScale. When ten double or single steps in a row have not split the active block that ends at row l, the next shift
// is an exceptional one,
//
//     e += shiftScale H(l-1, l) / T(l-1, l-1),        or        e += 1 / (safmin maxit)
//
// where the quotient would overflow; e starts from 0 for each block. 1 is the usual value.
//
// Threads: no state; those of LAPACK and BLAS. dhgeqz_mod itself runs in one thread and has the same bits everywhere.
// Source: Moler and Stewart, An Algorithm for Generalized Matrix Eigenvalue Problems, SIAM J. Numer. Anal. 10 (1973)
//         241-256; Golub and Van Loan, Matrix Computations, 4th ed., section 7.7; interface, scaling and tolerances: LAPACK
//         Users' Guide, 3rd ed., and the documentation of the three routines.

#include "qxexport.hpp"

extern "C" {

/// Eigenvalues and, with jobvl or jobvr "V", left and right eigenvectors. Cost: about 46 n^3 flops with vectors.
QX_API void dggev_mod(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* b,
                      const int* ldb, double* alphar, double* alphai, double* beta, double* vl, const int* ldvl, double* vr,
                      const int* ldvr, double* work, const int* lwork, int* info, double shiftScale);

/// The same with balancing and reciprocal condition numbers.
QX_API void dggevx_mod(const char* balanc, const char* jobvl, const char* jobvr, const char* sense, const int* n, double* a,
                       const int* lda, double* b, const int* ldb, double* alphar, double* alphai, double* beta, double* vl,
                       const int* ldvl, double* vr, const int* ldvr, int* ilo, int* ihi, double* lscale, double* rscale,
                       double* abnrm, double* bbnrm, double* rconde, double* rcondv, double* work, const int* lwork,
                       int* iwork, int* bwork, int* info, double shiftScale);

/// The iteration: (H, T), upper Hessenberg and upper triangular, to generalised real Schur form, eigenvalues
/// (alphar + i alphai) / beta. INFO from 1 to n: no convergence after 30 (ihi - ilo + 1) steps; eigenvalues INFO + 1 to n
/// are good.
QX_API void dhgeqz_mod(const char* job, const char* compq, const char* compz, const int* n, const int* ilo, const int* ihi,
                       double* h, const int* ldh, double* t, const int* ldt, double* alphar, double* alphai, double* beta,
                       double* q, const int* ldq, double* z, const int* ldz, double* work, const int* lwork, int* info,
                       double shiftScale);
}

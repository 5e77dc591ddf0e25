// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// A second chance for a QZ iteration that did not converge.

#include "array.hpp"

#include <cmath>

namespace qxarray_detail {

constexpr int kMostQZTries = 1000;

/// The factor of exceptional shifts in try k, from 0: 1, -exp(0.01), exp(-0.02), -exp(-0.03), exp(0.04), ... The sign
/// alternates; the exponent k is taken negative for every other pair.
inline double shiftScaleOfTry(int k)
{
    const int exponent = (k & 2) != 0 ? -k : k;
    return (k % 2 == 0 ? 1.0 : -1.0) * std::exp(0.01 * exponent);
}

/// Calls attempt(shiftScale), which restores its input and returns INFO, until INFO is not positive or all tries are made.
/// Returns the last INFO. info: of the call before; nothing is tried unless it is positive.
template <class Attempt>
int retryQZ(int info, Attempt attempt)
{
    for (int k = 0; info > 0 && k < kMostQZTries; ++k)
        info = attempt(shiftScaleOfTry(k));
    return info;
}

/// The arguments of dggev but for the matrices, whose contents are lost after a call.
struct DggevCall
{
    const char* jobvl;
    const char* jobvr;
    int n;
    double* a; ///< (n, n) place of A during the call
    double* b;
    double *alphar, *alphai, *beta;
    double* vl;
    int ldvl;
    double* vr;
    int ldvr;
    double* work;
    int lwork;
};

/// The arguments of dggevx in the use made of it here: balanced, no vectors, condition numbers of the eigenvalues.
struct DggevxCall
{
    int n;
    double* a;
    double* b;
    double *alphar, *alphai, *beta;
    int *ilo, *ihi;
    double *lscale, *rscale;
    double *abnrm, *bbnrm, *rconde;
    double* work;
    int lwork;
    int* iwork;
    int* bwork;
};

/// Called after dggev or dggevx returned info > 0, with copies of the matrices as they were: repeats the computation with
/// the iteration of qzmod.hpp and varied shifts. Returns the INFO of the last try.
int retryQZ(int info, const DggevCall& call, const double* A, const double* B);
int retryQZ(int info, const DggevxCall& call, const double* A, const double* B);

} // namespace qxarray_detail

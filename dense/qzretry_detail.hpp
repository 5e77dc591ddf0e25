#pragma once

// A second chance for a QZ iteration that did not converge.

#include "array.hpp"

namespace qxarray_detail {

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

/// Called after dggev returned info > 0, with copies of the matrices as they were: repeats the computation in other
/// ways and returns the INFO of the last one. There is no other way so far: info is returned.
int retryQZ(int info, const DggevCall& call, const double* A, const double* B);
int retryQZ(int info, const DggevxCall& call, const double* A, const double* B);

} // namespace qxarray_detail

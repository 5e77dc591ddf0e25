// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// LAPACK's routines for the generalised eigenvalue problem, and the exceptional shift.

#include <cmath>
#include <cstddef>
#include <string_view>

extern "C" {
double dlamch_(const char* cmach, std::size_t);
void dlag2_(const double* a, const int* lda, const double* b, const int* ldb, const double* safmin, double* scale1,
            double* scale2, double* wr1, double* wr2, double* wi);
void dlasv2_(const double* f, const double* g, const double* h, double* ssmin, double* ssmax, double* snr, double* csr,
             double* snl, double* csl);
void dlartg_(const double* f, const double* g, double* c, double* s, double* r);
double dlanhs_(const char* norm, const int* n, const double* a, const int* lda, double* work, std::size_t);
double dlange_(const char* norm, const int* m, const int* n, const double* a, const int* lda, double* work, std::size_t);
void dlascl_(const char* type, const int* kl, const int* ku, const double* cfrom, const double* cto, const int* m,
             const int* n, double* a, const int* lda, int* info, std::size_t);
void dlacpy_(const char* uplo, const int* m, const int* n, const double* a, const int* lda, double* b, const int* ldb,
             std::size_t);
void dlaset_(const char* uplo, const int* m, const int* n, const double* alpha, const double* beta, double* a,
             const int* lda, std::size_t);
void dggbal_(const char* job, const int* n, double* a, const int* lda, double* b, const int* ldb, int* ilo, int* ihi,
             double* lscale, double* rscale, double* work, int* info, std::size_t);
void dggbak_(const char* job, const char* side, const int* n, const int* ilo, const int* ihi, const double* lscale,
             const double* rscale, const int* m, double* v, const int* ldv, int* info, std::size_t, std::size_t);
void dtgevc_(const char* side, const char* howmny, const int* select, const int* n, const double* s, const int* lds,
             const double* p, const int* ldp, double* vl, const int* ldvl, double* vr, const int* ldvr, const int* mm, int* m,
             double* work, int* info, std::size_t, std::size_t);
void dtgsna_(const char* job, const char* howmny, const int* select, const int* n, const double* a, const int* lda,
             const double* b, const int* ldb, const double* vl, const int* ldvl, const double* vr, const int* ldvr, double* s,
             double* dif, const int* mm, int* m, double* work, const int* lwork, int* iwork, int* info, std::size_t,
             std::size_t);
int ilaenv_(const int* ispec, const char* name, const char* opts, const int* n1, const int* n2, const int* n3, const int* n4,
            std::size_t, std::size_t);
void xerbla_(const char* name, const int* info, std::size_t);
}

namespace qxarray_detail {

/// Reports argument number -info of a routine as LAPACK does.
inline void reportArgument(const char* routine, int info)
{
    const int argument = -info;
    xerbla_(routine, &argument, std::string_view(routine).size());
}

/// The accumulated exceptional shift after the next one: h = H(l-1, l) and t = T(l-1, l-1) for the last row l of the block.
inline double nextExceptionalShift(double shift, double h, double t, int maxit, double safmin, double shiftScale)
{
    if (static_cast<double>(maxit) * safmin * std::fabs(h) < std::fabs(t))
        return shift + shiftScale * h / t;
    return shift + 1.0 / (safmin * static_cast<double>(maxit));
}

} // namespace qxarray_detail

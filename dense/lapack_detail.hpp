// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// LAPACK and BLAS as templates over the element type: Lapack<T>::gesv is dgesv or zgesv.
//
// Prototypes carry the hidden string lengths that gfortran appends to the arguments. Real routines that differ from
// their complex sister only by the absence of the real work array are wrapped to take and ignore it.

#include <cblas.h>
#include <complex>
#include <cstddef>

namespace qxarray_detail {

using cplx = std::complex<double>;

#define QX_LAPACK_PROTOTYPES(p, u, T)                                                                                  \
    void p##gesv_(const int* n, const int* nrhs, T* a, const int* lda, int* ipiv, T* b, const int* ldb, int* info);    \
    void p##getrf_(const int* m, const int* n, T* a, const int* lda, int* ipiv, int* info);                            \
    void p##getrs_(const char* trans, const int* n, const int* nrhs, const T* a, const int* lda, const int* ipiv,      \
                   T* b, const int* ldb, int* info, std::size_t);                                                      \
    void p##potrf_(const char* uplo, const int* n, T* a, const int* lda, int* info, std::size_t);                      \
    void p##geqrf_(const int* m, const int* n, T* a, const int* lda, T* tau, T* work, const int* lwork, int* info);    \
    void u##gqr_(const int* m, const int* n, const int* k, T* a, const int* lda, const T* tau, T* work,                \
                 const int* lwork, int* info);                                                                         \
    void u##mqr_(const char* side, const char* trans, const int* m, const int* n, const int* k, const T* a,            \
                 const int* lda, const T* tau, T* c, const int* ldc, T* work, const int* lwork, int* info,             \
                 std::size_t, std::size_t);                                                                            \
    void p##gehrd_(const int* n, const int* ilo, const int* ihi, T* a, const int* lda, T* tau, T* work,                \
                   const int* lwork, int* info);                                                                       \
    void u##ghr_(const int* n, const int* ilo, const int* ihi, T* a, const int* lda, const T* tau, T* work,            \
                 const int* lwork, int* info);                                                                         \
    void p##gghrd_(const char* compq, const char* compz, const int* n, const int* ilo, const int* ihi, T* a,           \
                   const int* lda, T* b, const int* ldb, T* q, const int* ldq, T* z, const int* ldz, int* info,        \
                   std::size_t, std::size_t);

extern "C" {
QX_LAPACK_PROTOTYPES(d, dor, double)
QX_LAPACK_PROTOTYPES(z, zun, cplx)

void dgels_(const char* trans, const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b,
            const int* ldb, double* work, const int* lwork, int* info, std::size_t);

void dgeqp3_(const int* m, const int* n, double* a, const int* lda, int* jpvt, double* tau, double* work,
             const int* lwork, int* info);
void zgeqp3_(const int* m, const int* n, cplx* a, const int* lda, int* jpvt, cplx* tau, cplx* work, const int* lwork,
             double* rwork, int* info);

void dgelss_(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b, const int* ldb,
             double* s, const double* rcond, int* rank, double* work, const int* lwork, int* info);
void zgelss_(const int* m, const int* n, const int* nrhs, cplx* a, const int* lda, cplx* b, const int* ldb, double* s,
             const double* rcond, int* rank, cplx* work, const int* lwork, double* rwork, int* info);

void dgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, double* a, const int* lda, double* s,
             double* u, const int* ldu, double* vt, const int* ldvt, double* work, const int* lwork, int* info,
             std::size_t, std::size_t);
void zgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, cplx* a, const int* lda, double* s,
             cplx* u, const int* ldu, cplx* vt, const int* ldvt, cplx* work, const int* lwork, double* rwork,
             int* info, std::size_t, std::size_t);

void dgeev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* wr, double* wi,
            double* vl, const int* ldvl, double* vr, const int* ldvr, double* work, const int* lwork, int* info,
            std::size_t, std::size_t);
void zgeev_(const char* jobvl, const char* jobvr, const int* n, cplx* a, const int* lda, cplx* w, cplx* vl,
            const int* ldvl, cplx* vr, const int* ldvr, cplx* work, const int* lwork, double* rwork, int* info,
            std::size_t, std::size_t);

void dggev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* b, const int* ldb,
            double* alphar, double* alphai, double* beta, double* vl, const int* ldvl, double* vr, const int* ldvr,
            double* work, const int* lwork, int* info, std::size_t, std::size_t);
void zggev_(const char* jobvl, const char* jobvr, const int* n, cplx* a, const int* lda, cplx* b, const int* ldb,
            cplx* alpha, cplx* beta, cplx* vl, const int* ldvl, cplx* vr, const int* ldvr, cplx* work,
            const int* lwork, double* rwork, int* info, std::size_t, std::size_t);

void dggevx_(const char* balanc, const char* jobvl, const char* jobvr, const char* sense, const int* n, double* a,
             const int* lda, double* b, const int* ldb, double* alphar, double* alphai, double* beta, double* vl,
             const int* ldvl, double* vr, const int* ldvr, int* ilo, int* ihi, double* lscale, double* rscale,
             double* abnrm, double* bbnrm, double* rconde, double* rcondv, double* work, const int* lwork, int* iwork,
             int* bwork, int* info, std::size_t, std::size_t, std::size_t, std::size_t);

void dspevx_(const char* jobz, const char* range, const char* uplo, const int* n, double* ap, const double* vl,
             const double* vu, const int* il, const int* iu, const double* abstol, int* m, double* w, double* z,
             const int* ldz, double* work, int* iwork, int* ifail, int* info, std::size_t, std::size_t, std::size_t);

void dhseqr_(const char* job, const char* compz, const int* n, const int* ilo, const int* ihi, double* h,
             const int* ldh, double* wr, double* wi, double* z, const int* ldz, double* work, const int* lwork,
             int* info, std::size_t, std::size_t);
void zhseqr_(const char* job, const char* compz, const int* n, const int* ilo, const int* ihi, cplx* h,
             const int* ldh, cplx* w, cplx* z, const int* ldz, cplx* work, const int* lwork, int* info, std::size_t,
             std::size_t);

void dtrsen_(const char* job, const char* compq, const int* select, const int* n, double* t, const int* ldt, double* q,
             const int* ldq, double* wr, double* wi, int* m, double* s, double* sep, double* work, const int* lwork,
             int* iwork, const int* liwork, int* info, std::size_t, std::size_t);
void ztrsen_(const char* job, const char* compq, const int* select, const int* n, cplx* t, const int* ldt, cplx* q,
             const int* ldq, cplx* w, int* m, double* s, double* sep, cplx* work, const int* lwork, int* info,
             std::size_t, std::size_t);
}
#undef QX_LAPACK_PROTOTYPES

#define QX_LAPACK_TABLE(p, u)                                                                                          \
    static constexpr auto* gesv = p##gesv_;                                                                            \
    static constexpr auto* getrf = p##getrf_;                                                                          \
    static constexpr auto* getrs = p##getrs_;                                                                          \
    static constexpr auto* potrf = p##potrf_;                                                                          \
    static constexpr auto* geqrf = p##geqrf_;                                                                          \
    static constexpr auto* orgqr = u##gqr_;                                                                            \
    static constexpr auto* ormqr = u##mqr_;                                                                            \
    static constexpr auto* gehrd = p##gehrd_;                                                                          \
    static constexpr auto* orghr = u##ghr_;                                                                            \
    static constexpr auto* gghrd = p##gghrd_;

template <class T>
struct Lapack;

template <>
struct Lapack<double>
{
    QX_LAPACK_TABLE(d, dor)

    /// Letter that selects the (conjugate) transpose in routines on orthogonal (unitary) matrices.
    static constexpr const char* adjointLetter = "T";

    /// Where eigenvalues go: real and imaginary parts apart.
    struct Values
    {
        double* re;
        double* im;
    };

    static void geqp3(const int* m, const int* n, double* a, const int* lda, int* jpvt, double* tau, double* work,
                      const int* lwork, double*, int* info)
    {
        dgeqp3_(m, n, a, lda, jpvt, tau, work, lwork, info);
    }
    static void gelss(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b,
                      const int* ldb, double* s, const double* rcond, int* rank, double* work, const int* lwork,
                      double*, int* info)
    {
        dgelss_(m, n, nrhs, a, lda, b, ldb, s, rcond, rank, work, lwork, info);
    }
    static void gesvd(const char* jobu, const char* jobvt, const int* m, const int* n, double* a, const int* lda,
                      double* s, double* u, const int* ldu, double* vt, const int* ldvt, double* work,
                      const int* lwork, double*, int* info)
    {
        dgesvd_(jobu, jobvt, m, n, a, lda, s, u, ldu, vt, ldvt, work, lwork, info, 1, 1);
    }
    static void geev(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, Values w,
                     double* vl, const int* ldvl, double* vr, const int* ldvr, double* work, const int* lwork, double*,
                     int* info)
    {
        dgeev_(jobvl, jobvr, n, a, lda, w.re, w.im, vl, ldvl, vr, ldvr, work, lwork, info, 1, 1);
    }
    static void ggev(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* b,
                     const int* ldb, Values alpha, double* beta, double* vl, const int* ldvl, double* vr,
                     const int* ldvr, double* work, const int* lwork, double*, int* info)
    {
        dggev_(jobvl, jobvr, n, a, lda, b, ldb, alpha.re, alpha.im, beta, vl, ldvl, vr, ldvr, work, lwork, info, 1, 1);
    }
    static void hseqr(const char* job, const char* compz, const int* n, const int* ilo, const int* ihi, double* h,
                      const int* ldh, Values w, double* z, const int* ldz, double* work, const int* lwork, int* info)
    {
        dhseqr_(job, compz, n, ilo, ihi, h, ldh, w.re, w.im, z, ldz, work, lwork, info, 1, 1);
    }
    /// Reordering without condition estimates: work of n elements suffices.
    static void trsen(const char* compq, const int* select, const int* n, double* t, const int* ldt, double* q,
                      const int* ldq, Values w, double* work, int* info)
    {
        int count = 0, iwork = 0;
        const int liwork = 1;
        double s = 0.0, sep = 0.0;
        dtrsen_("N", compq, select, n, t, ldt, q, ldq, w.re, w.im, &count, &s, &sep, work, n, &iwork, &liwork, info, 1,
                1);
    }
};

template <>
struct Lapack<cplx>
{
    QX_LAPACK_TABLE(z, zun)

    static constexpr const char* adjointLetter = "C";

    struct Values
    {
        cplx* z;
    };

    static constexpr auto* geqp3 = zgeqp3_;
    static constexpr auto* gelss = zgelss_;
    static void gesvd(const char* jobu, const char* jobvt, const int* m, const int* n, cplx* a, const int* lda,
                      double* s, cplx* u, const int* ldu, cplx* vt, const int* ldvt, cplx* work, const int* lwork,
                      double* rwork, int* info)
    {
        zgesvd_(jobu, jobvt, m, n, a, lda, s, u, ldu, vt, ldvt, work, lwork, rwork, info, 1, 1);
    }
    static void geev(const char* jobvl, const char* jobvr, const int* n, cplx* a, const int* lda, Values w, cplx* vl,
                     const int* ldvl, cplx* vr, const int* ldvr, cplx* work, const int* lwork, double* rwork,
                     int* info)
    {
        zgeev_(jobvl, jobvr, n, a, lda, w.z, vl, ldvl, vr, ldvr, work, lwork, rwork, info, 1, 1);
    }
    static void ggev(const char* jobvl, const char* jobvr, const int* n, cplx* a, const int* lda, cplx* b,
                     const int* ldb, Values alpha, cplx* beta, cplx* vl, const int* ldvl, cplx* vr, const int* ldvr,
                     cplx* work, const int* lwork, double* rwork, int* info)
    {
        zggev_(jobvl, jobvr, n, a, lda, b, ldb, alpha.z, beta, vl, ldvl, vr, ldvr, work, lwork, rwork, info, 1, 1);
    }
    static void hseqr(const char* job, const char* compz, const int* n, const int* ilo, const int* ihi, cplx* h,
                      const int* ldh, Values w, cplx* z, const int* ldz, cplx* work, const int* lwork, int* info)
    {
        zhseqr_(job, compz, n, ilo, ihi, h, ldh, w.z, z, ldz, work, lwork, info, 1, 1);
    }
    static void trsen(const char* compq, const int* select, const int* n, cplx* t, const int* ldt, cplx* q,
                      const int* ldq, Values w, cplx* work, int* info)
    {
        int count = 0;
        double s = 0.0, sep = 0.0;
        ztrsen_("N", compq, select, n, t, ldt, q, ldq, w.z, &count, &s, &sep, work, n, info, 1, 1);
    }
};
#undef QX_LAPACK_TABLE

/// BLAS through its C interface, which also settles how complex values are returned.
template <class T>
struct Blas;

template <>
struct Blas<double>
{
    static void axpy(int n, double a, const double* x, double* y) { cblas_daxpy(n, a, x, 1, y, 1); }
    static double dot(int n, const double* x, const double* y, bool) { return cblas_ddot(n, x, 1, y, 1); }
    static double nrm2(int n, const double* x) { return cblas_dnrm2(n, x, 1); }
    static void scal(int n, double a, double* x) { cblas_dscal(n, a, x, 1); }
    static void copy(int n, const double* x, double* y) { cblas_dcopy(n, x, 1, y, 1); }
    static void gemv(CBLAS_TRANSPOSE trans, int m, int n, const double* a, int lda, const double* x, double* y)
    {
        cblas_dgemv(CblasColMajor, trans, m, n, 1.0, a, lda, x, 1, 1.0, y, 1);
    }
    static void trsv(CBLAS_UPLO uplo, CBLAS_TRANSPOSE trans, int n, const double* a, int lda, double* x)
    {
        cblas_dtrsv(CblasColMajor, uplo, trans, CblasNonUnit, n, a, lda, x, 1);
    }
};

template <>
struct Blas<cplx>
{
    static void axpy(int n, cplx a, const cplx* x, cplx* y) { cblas_zaxpy(n, &a, x, 1, y, 1); }
    static cplx dot(int n, const cplx* x, const cplx* y, bool conjugate)
    {
        cplx sum;
        if (conjugate)
            cblas_zdotc_sub(n, x, 1, y, 1, &sum);
        else
            cblas_zdotu_sub(n, x, 1, y, 1, &sum);
        return sum;
    }
    static double nrm2(int n, const cplx* x) { return cblas_dznrm2(n, x, 1); }
    static void scal(int n, cplx a, cplx* x)
    {
        if (a.imag() == 0.0)
            cblas_zdscal(n, a.real(), x, 1);
        else
            cblas_zscal(n, &a, x, 1);
    }
    static void copy(int n, const cplx* x, cplx* y) { cblas_zcopy(n, x, 1, y, 1); }
    static void gemv(CBLAS_TRANSPOSE trans, int m, int n, const cplx* a, int lda, const cplx* x, cplx* y)
    {
        const cplx one(1.0);
        cblas_zgemv(CblasColMajor, trans, m, n, &one, a, lda, x, 1, &one, y, 1);
    }
    static void trsv(CBLAS_UPLO uplo, CBLAS_TRANSPOSE trans, int n, const cplx* a, int lda, cplx* x)
    {
        cblas_ztrsv(CblasColMajor, uplo, trans, CblasNonUnit, n, a, lda, x, 1);
    }
};

} // namespace qxarray_detail

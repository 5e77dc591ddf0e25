// SPDX-License-Identifier: LicenseRef-qxkernel
#include "solvers/umfpack_context.h"

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <umfpack.h>

/* Work done since the factorisation began, the work predicted, and how much is to be done before the next report, in the
   units of UMFPACK_FLOPS_ESTIMATE. */
static _Thread_local double flopsDone, flopsPredicted, flopsToReport;
static _Thread_local umfpackReporter reporter;
static _Thread_local void* reporterHost;

void umfpackSetReporter(umfpackReporter function, void* host)
{
    reporter = function;
    reporterHost = host;
}

/* The team for large products, set by the driver; 0 leaves threads to BLAS. */
static _Thread_local int team = 1;

void umfpackSetTeam(int threads) { team = threads; }

static void report(double fraction)
{
    flopsToReport = flopsDone + 0.01 * flopsPredicted;
    if (reporter && reporter(reporterHost, fraction) != 0) {
        qxcDisarm();
        longjmp(*qxcGetEnvPtr(), qxcCancelled);
    }
}

/* What the analysis says of the work to come: nearly exact for the symmetric strategy, an upper bound for the others. */
static double predictedFlops(const double Info[])
{
    const int symmetric = Info[UMFPACK_STRATEGY_USED] == UMFPACK_STRATEGY_SYMMETRIC;
    return symmetric && Info[UMFPACK_SYMMETRIC_FLOPS] > 0.0 ? Info[UMFPACK_SYMMETRIC_FLOPS] : Info[UMFPACK_FLOPS_ESTIMATE];
}

/* Called before each piece of dense work. */
static void countAndPoll(double flops)
{
    if (flopsPredicted > 0.0) {
        flopsDone += flops;
        const double fraction = flopsDone < flopsPredicted ? flopsDone / flopsPredicted : 1.0;
        qxcReportProgress(fraction);
        if (flopsDone >= flopsToReport)
            report(fraction);
    }
    qxcPoll();
}

#ifdef QX_UMFPACK_POLLS_BLAS

/* UMFPACK's allocations are up to a second apart, its BLAS calls are not. In the library's private copy of UMFPACK the
   BLAS routines and the allocations are renamed to those below (cmake/QxDependencies.cmake); a jump from here leaves no
   BLAS call behind. The real routines take the lengths of their character arguments at the end, which UMFPACK does not pass. */

typedef double _Complex cplx;

/* Large products are cut into panels of 64 columns, or rows where there are more of them, and a team works on these with
   one-thread BLAS. The cuts follow from the sizes alone: the bits are the same for any team, also of one. Regions begin
   after the poll and end before the next: no jump leaves one. */
enum { panelWidth = 64 };
static const double largeFlops = 2e7;

static int panelsOf(int extent) { return (extent + panelWidth - 1) / panelWidth; }
static int widthOf(int panel, int extent)
{
    const int rest = extent - panel * panelWidth;
    return rest < panelWidth ? rest : panelWidth;
}
static int isPlain(const char* trans) { return *trans == 'N' || *trans == 'n'; }
static int isLeft(const char* side) { return *side == 'L' || *side == 'l'; }

#define QX_OVER_PANELS _Pragma("omp parallel for schedule(dynamic) num_threads(team) if(team > 1)")

#define QX_WRAP_BLAS(p, ger, T, unit)                                                                                  \
    void p##gemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const T* alpha,            \
                           const T* a, const int* lda, const T* b, const int* ldb, const T* beta, T* c,                \
                           const int* ldc, size_t, size_t);                                                            \
    void qx_umfpack_##p##gemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const T* alpha,\
                           const T* a, const int* lda, const T* b, const int* ldb, const T* beta, T* c,                \
                           const int* ldc);                                                                            \
    void qx_umfpack_##p##gemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const T* alpha,\
                           const T* a, const int* lda, const T* b, const int* ldb, const T* beta, T* c,                \
                           const int* ldc)                                                                             \
    {                                                                                                                  \
        const double flops = 2.0 * unit * *m * *n * *k;                                                                \
        countAndPoll(flops);                                                                                           \
        if (flops < largeFlops || team == 0) {                                                                         \
            p##gemm_(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);                                      \
            return;                                                                                                    \
        }                                                                                                              \
        const int byColumns = *n >= *m, extent = byColumns ? *n : *m, panels = panelsOf(extent);                       \
        const size_t stepA = byColumns ? 0 : isPlain(ta) ? 1 : (size_t)*lda;                                           \
        const size_t stepB = !byColumns ? 0 : isPlain(tb) ? (size_t)*ldb : 1, stepC = byColumns ? (size_t)*ldc : 1;    \
        QX_OVER_PANELS                                                                                                 \
        for (int panel = 0; panel < panels; ++panel) {                                                                 \
            const size_t first = (size_t)panel * panelWidth;                                                           \
            const int width = widthOf(panel, extent), rows = byColumns ? *m : width, columns = byColumns ? width : *n; \
            p##gemm_(ta, tb, &rows, &columns, k, alpha, a + first * stepA, lda, b + first * stepB, ldb, beta,          \
                     c + first * stepC, ldc, 1, 1);                                                                    \
        }                                                                                                              \
    }                                                                                                                  \
    void p##trsm_(const char* side, const char* uplo, const char* ta, const char* diag, const int* m,                  \
                           const int* n, const T* alpha, const T* a, const int* lda, T* b, const int* ldb, size_t,     \
                           size_t, size_t, size_t);                                                                    \
    void qx_umfpack_##p##trsm_(const char* side, const char* uplo, const char* ta, const char* diag, const int* m,     \
                           const int* n, const T* alpha, const T* a, const int* lda, T* b, const int* ldb);            \
    void qx_umfpack_##p##trsm_(const char* side, const char* uplo, const char* ta, const char* diag, const int* m,     \
                           const int* n, const T* alpha, const T* a, const int* lda, T* b, const int* ldb)             \
    {                                                                                                                  \
        const int left = isLeft(side), extent = left ? *n : *m, panels = panelsOf(extent);                             \
        const double flops = 1.0 * unit * *m * *n * (left ? *m : *n);                                                  \
        countAndPoll(flops);                                                                                           \
        if (flops < largeFlops || team == 0) {                                                                         \
            p##trsm_(side, uplo, ta, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);                                   \
            return;                                                                                                    \
        }                                                                                                              \
        const size_t step = left ? (size_t)*ldb : 1;                                                                   \
        QX_OVER_PANELS                                                                                                 \
        for (int panel = 0; panel < panels; ++panel) {                                                                 \
            const int width = widthOf(panel, extent), rows = left ? *m : width, columns = left ? width : *n;           \
            p##trsm_(side, uplo, ta, diag, &rows, &columns, alpha, a, lda, b + (size_t)panel * panelWidth * step, ldb, \
                     1, 1, 1, 1);                                                                                      \
        }                                                                                                              \
    }                                                                                                                  \
    void ger##_(const int* m, const int* n, const T* alpha, const T* x, const int* incx, const T* y,                   \
                         const int* incy, T* a, const int* lda);                                                       \
    void qx_umfpack_##ger##_(const int* m, const int* n, const T* alpha, const T* x, const int* incx, const T* y,      \
                         const int* incy, T* a, const int* lda);                                                       \
    void qx_umfpack_##ger##_(const int* m, const int* n, const T* alpha, const T* x, const int* incx, const T* y,      \
                         const int* incy, T* a, const int* lda)                                                        \
    {                                                                                                                  \
        countAndPoll(2.0 * unit * *m * *n);                                                                            \
        ger##_(m, n, alpha, x, incx, y, incy, a, lda);                                                                 \
    }                                                                                                                  \
    void p##gemv_(const char* ta, const int* m, const int* n, const T* alpha, const T* a, const int* lda,              \
                           const T* x, const int* incx, const T* beta, T* y, const int* incy, size_t);                 \
    void qx_umfpack_##p##gemv_(const char* ta, const int* m, const int* n, const T* alpha, const T* a, const int* lda, \
                           const T* x, const int* incx, const T* beta, T* y, const int* incy);                         \
    void qx_umfpack_##p##gemv_(const char* ta, const int* m, const int* n, const T* alpha, const T* a, const int* lda, \
                           const T* x, const int* incx, const T* beta, T* y, const int* incy)                          \
    {                                                                                                                  \
        countAndPoll(2.0 * unit * *m * *n);                                                                            \
        p##gemv_(ta, m, n, alpha, a, lda, x, incx, beta, y, incy, 1);                                                  \
    }                                                                                                                  \
    void p##trsv_(const char* uplo, const char* ta, const char* diag, const int* n, const T* a,                        \
                           const int* lda, T* x, const int* incx, size_t, size_t, size_t);                             \
    void qx_umfpack_##p##trsv_(const char* uplo, const char* ta, const char* diag, const int* n, const T* a,           \
                           const int* lda, T* x, const int* incx);                                                     \
    void qx_umfpack_##p##trsv_(const char* uplo, const char* ta, const char* diag, const int* n, const T* a,           \
                           const int* lda, T* x, const int* incx)                                                      \
    {                                                                                                                  \
        countAndPoll(1.0 * unit * *n * *n);                                                                            \
        p##trsv_(uplo, ta, diag, n, a, lda, x, incx, 1, 1, 1);                                                         \
    }

QX_WRAP_BLAS(d, dger, double, 1.0)
QX_WRAP_BLAS(z, zgeru, cplx, 4.0)

/* The private copy has settings of its own: what other users of SuiteSparse in the process allocate is none of ours. */
struct SuiteSparse_config_struct qx_umfpack_config = {qxcMalloc, qxcCalloc,         qxcRealloc,             qxcFree,
                                                      printf,    SuiteSparse_hypot, SuiteSparse_divcomplex};

void* qx_umfpack_malloc(size_t count, size_t size)
{
    if (count == 0)
        count = 1;
    return size != 0 && count > SIZE_MAX / size ? NULL : qx_umfpack_config.malloc_func(count * size);
}

void* qx_umfpack_free(void* block)
{
    if (block)
        qx_umfpack_config.free_func(block);
    return NULL;
}

void umfpackInstallHooks(void) {}

#else

/* With a shared UMFPACK its BLAS calls cannot be told from those of others: the allocation hooks poll, and in the
   complex version the division of numbers, one time in 1024. */
static int (*divide)(double, double, double, double, double*, double*);

static int pollingDivide(double ar, double ai, double br, double bi, double* cr, double* ci)
{
    static _Thread_local unsigned calls;
    if (++calls % 1024 == 0)
        countAndPoll(0.0);
    return divide(ar, ai, br, bi, cr, ci);
}

static void install(void)
{
    SuiteSparse_config.malloc_func = qxcMalloc;
    SuiteSparse_config.calloc_func = qxcCalloc;
    SuiteSparse_config.realloc_func = qxcRealloc;
    SuiteSparse_config.free_func = qxcFree;
    divide = SuiteSparse_config.divcomplex_func;
    SuiteSparse_config.divcomplex_func = pollingDivide;
}

void umfpackInstallHooks(void)
{
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, install);
}

#endif

/* The frame of each wrapper holds no variable that changes after setjmp. */
#define QX_CALL(predicted, call)                                                                                       \
    const int code = setjmp(*qxcGetEnvPtr());                                                                          \
    if (code > 0) {                                                                                                    \
        flopsPredicted = 0.0;                                                                                          \
        return code;                                                                                                   \
    }                                                                                                                  \
    flopsDone = 0.0;                                                                                                   \
    flopsPredicted = predicted;                                                                                        \
    flopsToReport = 0.01 * flopsPredicted;                                                                             \
    qxcArm();                                                                                                          \
    *status = call;                                                                                                    \
    qxcDisarm();                                                                                                       \
    flopsPredicted = 0.0;                                                                                              \
    return 0

int wrap_umfpack_dl_symbolic(long m, long n, const long Ap[], const long Ai[], const double Ax[], void** Symbolic,
                             const double Control[], double Info[], long* status)
{
    QX_CALL(0.0, umfpack_dl_symbolic(m, n, Ap, Ai, Ax, Symbolic, Control, Info));
}

int wrap_umfpack_zl_symbolic(long m, long n, const long Ap[], const long Ai[], const double Ax[], const double Az[],
                             void** Symbolic, const double Control[], double Info[], long* status)
{
    QX_CALL(0.0, umfpack_zl_symbolic(m, n, Ap, Ai, Ax, Az, Symbolic, Control, Info));
}

int wrap_umfpack_dl_numeric(const long Ap[], const long Ai[], const double Ax[], void* Symbolic, void** Numeric,
                            const double Control[], double Info[], long* status)
{
    QX_CALL(predictedFlops(Info), umfpack_dl_numeric(Ap, Ai, Ax, Symbolic, Numeric, Control, Info));
}

int wrap_umfpack_zl_numeric(const long Ap[], const long Ai[], const double Ax[], const double Az[], void* Symbolic,
                            void** Numeric, const double Control[], double Info[], long* status)
{
    QX_CALL(predictedFlops(Info), umfpack_zl_numeric(Ap, Ai, Ax, Az, Symbolic, Numeric, Control, Info));
}

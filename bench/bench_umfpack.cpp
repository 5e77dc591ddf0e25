// SPDX-License-Identifier: LicenseRef-qxkernel
// Factorise and solve through the driver against UMFPACK called directly on the same arrays, both with one BLAS thread:
// time, with the driver's copies, progress and cancel polling, and peak memory. The polling alone: the same calls of
// UMFPACK with and without a look at the cancel flag before each call of BLAS.
#include "harness.hpp"
#include "qxcutil.h"
#include "qxparallel.hpp"
#include "qxrun.hpp"
#include "umfpack.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <umfpack.h>
#include <unistd.h>

namespace {

using cplx = std::complex<double>;

bool polling = false;
long looks = 0;

void look()
{
    if (!polling)
        return;
    ++looks;
    qxcReportProgress(1e-9 * double(looks));
    qxcPoll();
}

} // namespace

// This program has a copy of UMFPACK in which the BLAS routines and the allocations bear other names, as the
// library has one: those below.
#ifdef QX_UMFPACK_POLLS_BLAS
using P = const void*;
#define QX_LOOK_BEFORE(routine, PARAMETERS, ARGUMENTS)                                                                 \
    extern "C" void routine PARAMETERS;                                                                                \
    extern "C" void qx_umfpack_##routine PARAMETERS;                                                                   \
    extern "C" void qx_umfpack_##routine PARAMETERS                                                                    \
    {                                                                                                                  \
        look();                                                                                                        \
        routine ARGUMENTS;                                                                                             \
    }
#define QX_LOOK_BEFORE_ALL(p, ger)                                                                                     \
    QX_LOOK_BEFORE(p##gemm_, (P a, P b, P c, P d, P e, P f, P g, P h, P i, P j, P k, P l, P m),                        \
                   (a, b, c, d, e, f, g, h, i, j, k, l, m))                                                            \
    QX_LOOK_BEFORE(p##trsm_, (P a, P b, P c, P d, P e, P f, P g, P h, P i, P j, P k), (a, b, c, d, e, f, g, h, i, j, k))\
    QX_LOOK_BEFORE(ger, (P a, P b, P c, P d, P e, P f, P g, P h, P i), (a, b, c, d, e, f, g, h, i))                    \
    QX_LOOK_BEFORE(p##gemv_, (P a, P b, P c, P d, P e, P f, P g, P h, P i, P j, P k), (a, b, c, d, e, f, g, h, i, j, k))\
    QX_LOOK_BEFORE(p##trsv_, (P a, P b, P c, P d, P e, P f, P g, P h), (a, b, c, d, e, f, g, h))
QX_LOOK_BEFORE_ALL(d, dger_)
QX_LOOK_BEFORE_ALL(z, zgeru_)

extern "C" SuiteSparse_config_struct qx_umfpack_config;
SuiteSparse_config_struct qx_umfpack_config = {std::malloc, std::calloc, std::realloc, std::free,
                                               std::printf, SuiteSparse_hypot, SuiteSparse_divcomplex};
extern "C" void* qx_umfpack_malloc(std::size_t count, std::size_t size);
extern "C" void* qx_umfpack_malloc(std::size_t count, std::size_t size) { return std::malloc(std::max(count, std::size_t(1)) * size); }
extern "C" void* qx_umfpack_free(void* block);
extern "C" void* qx_umfpack_free(void* block)
{
    std::free(block);
    return nullptr;
}
#endif

namespace {

/// Second differences on a grid of edge^dimensions points, shift on the diagonal, as sorted columns.
template <class T>
Sparse laplacian(unsigned long edge, int dimensions, T shift)
{
    unsigned long n = 1;
    for (int d = 0; d < dimensions; ++d)
        n *= edge;
    std::vector<unsigned long> rows, cols;
    std::vector<T> values;
    for (unsigned long k = 0; k < n; ++k) {
        rows.push_back(k);
        cols.push_back(k);
        values.push_back(T(2.0 * dimensions) + shift);
        for (unsigned long stride = 1; stride < n; stride *= edge)
            for (const int step : {-1, 1}) {
                const unsigned long place = k / stride % edge;
                if (step < 0 ? place == 0 : place + 1 == edge)
                    continue;
                rows.push_back(step < 0 ? k - stride : k + stride);
                cols.push_back(k);
                values.push_back(T(-1));
            }
    }
    Sparse A;
    A.triplet2sparse(rows, cols, values, n, n);
    A.format(FormSorted, true);
    return A;
}

/// UMFPACK on arrays made beforehand.
struct Direct
{
    std::vector<long> Ap, Ai;
    std::vector<double> Ax, Az, x, xz, b, bz;

    explicit Direct(const Sparse& A) : x(A.getM()), xz(A.getM()), b(A.getM(), 1.0), bz(A.getM(), 0.0)
    {
        Ap.assign(A.getColPtr(), A.getColPtr() + A.getN() + 1);
        Ai.assign(A.getRow(), A.getRow() + A.getNnz());
        for (unsigned long k = 0; k < A.getNnz(); ++k) {
            const cplx v = A.isReal() ? cplx(A.getDoubleVal()[k]) : A.getDcmplxVal()[k];
            Ax.push_back(v.real());
            if (!A.isReal())
                Az.push_back(v.imag());
        }
    }

    /// With one BLAS thread, as the driver, or with as many as BLAS likes.
    void run(bool oneThread = true)
    {
        std::optional<qxbase::BlasThreadScope> one;
        if (oneThread)
            one.emplace(1);
        const long n = long(x.size());
        void *symbolic = nullptr, *numeric = nullptr;
        if (Az.empty()) {
            umfpack_dl_symbolic(n, n, Ap.data(), Ai.data(), Ax.data(), &symbolic, nullptr, nullptr);
            umfpack_dl_numeric(Ap.data(), Ai.data(), Ax.data(), symbolic, &numeric, nullptr, nullptr);
            umfpack_dl_free_symbolic(&symbolic);
            umfpack_dl_solve(UMFPACK_A, Ap.data(), Ai.data(), Ax.data(), x.data(), b.data(), numeric, nullptr, nullptr);
        } else {
            umfpack_zl_symbolic(n, n, Ap.data(), Ai.data(), Ax.data(), Az.data(), &symbolic, nullptr, nullptr);
            umfpack_zl_numeric(Ap.data(), Ai.data(), Ax.data(), Az.data(), symbolic, &numeric, nullptr, nullptr);
            umfpack_dl_free_symbolic(&symbolic);
            umfpack_zl_solve(UMFPACK_A, Ap.data(), Ai.data(), Ax.data(), Az.data(), x.data(), xz.data(), b.data(),
                             bz.data(), numeric, nullptr, nullptr);
        }
        umfpack_dl_free_numeric(&numeric);
    }
};

/// Peak memory of work in a process of its own, in MB beyond what the process began with.
template <class Work>
double peakMegabytes(Work work)
{
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    rusage used{};
    wait4(child, &status, 0, &used);
    return double(used.ru_maxrss) / 1024.0;
}

template <class T>
void memory(const std::string& name, unsigned long edge, int dimensions, T shift)
{
    const double matrixOnly = peakMegabytes([&] { const Sparse A = laplacian(edge, dimensions, shift); });
    const double ours = peakMegabytes([&] {
        Sparse A = laplacian(edge, dimensions, shift);
        qxutil::RunInfo run;
        Umfpack solver(run);
        solver.init(A, false, false, false, true);
    });
    const double cleared = peakMegabytes([&] {
        Sparse A = laplacian(edge, dimensions, shift);
        qxutil::RunInfo run;
        Umfpack solver(run);
        solver.init(A, true, false, false, true);
    });
    const double direct = peakMegabytes([&] { Direct(laplacian(edge, dimensions, shift)).run(); });
    std::printf("peak memory  %-24s  matrix %.0f MB, driver %.0f MB, with clearInput %.0f MB, direct %.0f MB\n",
                name.c_str(), matrixOnly, ours, cleared, direct);
}

template <class T>
void measure(const std::string& name, unsigned long edge, int dimensions, T shift)
{
    Sparse A = laplacian(edge, dimensions, shift);
    Direct direct(A);
    qxutil::RunInfo run;
    Umfpack solver(run);
    Matrix<1> b(A.getM(), true), x;
    b = cplx(1.0);
    const int before = qxbase::setAvailableThreads(1);
    BENCH("factorise and solve/" + name)
        .ours([&] {
            solver.init(A, false, false, false, true);
            solver.solve(b, x);
            solver.clear();
        })
        .peer("UMFPACK direct", [&] { direct.run(); })
        .check(
            [&] {
                double d = 0.0;
                for (unsigned long i = 0; i < x.size(); ++i)
                    d = std::max(d, std::abs(x[i] - cplx(direct.x[i], direct.xz[i])));
                return d;
            },
            1e-9)
        .atMost(1.03)
        .fastest();
    qxbase::setAvailableThreads(before);
}

/// All threads that there are: our team over panels, the same bits as one thread, against BLAS with threads of its own.
template <class T>
void measureTeams(const std::string& name, unsigned long edge, int dimensions, T shift)
{
    Sparse A = laplacian(edge, dimensions, shift);
    Direct direct(A);
    qxutil::RunInfo run;
    Umfpack solver(run);
    Matrix<1> b(A.getM(), true), x;
    b = cplx(1.0);
    BENCH("factorise and solve, all threads/" + name)
        .ours([&] {
            solver.init(A, false, false, false, true);
            solver.solve(b, x);
            solver.clear();
        })
        .peer("UMFPACK, BLAS threads", [&] { direct.run(false); })
        .check(
            [&] {
                double d = 0.0;
                for (unsigned long i = 0; i < x.size(); ++i)
                    d = std::max(d, std::abs(x[i] - cplx(direct.x[i], direct.xz[i])));
                return d;
            },
            1e-9)
        .fastest();
}

#ifdef QX_UMFPACK_POLLS_BLAS
template <class T>
void measurePolling(const std::string& name, unsigned long edge, int dimensions, T shift)
{
    Direct direct(laplacian(edge, dimensions, shift));
    const int id = qxcNextFreeID();
    volatile int cancel = 0;
    double progress = 0.0;
    qxcSetID(id);
    qxcSetCancelAdr(&cancel);
    qxcSetLastProgressAdr(&progress);
    BENCH("cancel polling/" + name)
        .ours([&] {
            polling = true;
            qxcArm(); // nothing is recorded: this copy of UMFPACK allocates by itself
            direct.run();
            qxcDisarm();
            polling = false;
        })
        .peer("without", [&] { direct.run(); })
        .check([&] { return looks > 1000 && progress > 0.0 ? 0.0 : 1.0; }, 0.0)
        .atMost(1.01)
        .fastest();
    qxcFreeID(id);
}
#endif

} // namespace

void qxbench::benchmarks()
{
    const unsigned long square = sized(300ul, 40ul), cube = sized(30ul, 8ul), largeCube = sized(40ul, 10ul);
    const auto name = [](unsigned long n, int dimensions, const char* type) {
        return std::to_string(dimensions) + "D " + std::to_string(n) + "^" + std::to_string(dimensions) + " " + type;
    };
    const cplx imaginary(0.0, 1.0);

    // First, while no thread has been started: a forked process has only one.
    memory(name(cube, 3, "real"), cube, 3, 0.0);
    memory(name(cube, 3, "complex"), cube, 3, imaginary);

    measure(name(square, 2, "real"), square, 2, 0.0);
    measure(name(square, 2, "complex"), square, 2, imaginary);
    measure(name(cube, 3, "real"), cube, 3, 0.0);
    measure(name(cube, 3, "complex"), cube, 3, imaginary);
    measureTeams(name(cube, 3, "real"), cube, 3, 0.0);
    measureTeams(name(largeCube, 3, "real"), largeCube, 3, 0.0);

#ifdef QX_UMFPACK_POLLS_BLAS
    measurePolling(name(square, 2, "real"), square, 2, 0.0);
    measurePolling(name(cube, 3, "real"), cube, 3, 0.0);
#endif
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// What factorisations and null spaces do to the threads of their host, and what is left of threads after a fork.

#include "arrayutil.hpp"
#include "qxnull.hpp"
#include "qxparallel.hpp"
#include "qxrun.hpp"
#include "sparse_values.hpp"
#include "support/threads.hpp"
#include "umfpack.hpp"

#include <algorithm>
#include <dlfcn.h>
#include <functional>
#include <future>
#include <omp.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace solverstest;
using qxbase::BlasThreadScope;
using qxtest::Threads;

/// Calls act at the first report of a factorisation.
class AtFirstReport : public qxutil::RunListener
{
public:
    explicit AtFirstReport(std::function<void()> act_) : act(std::move(act_)) {}
    void onProgress(const std::string&, double fraction) override
    {
        if (fraction > 0.0 && fraction < 1.0 && !called) {
            called = true;
            act();
        }
    }
    bool called = false;

private:
    std::function<void()> act;
};

/// Factorises on this thread, with act in the middle.
void factorise(const std::function<void()>& act)
{
    AtFirstReport listener(act);
    qxutil::RunInfo run(&listener);
    Umfpack solver(run);
    Sparse A = laplacian(12, 3);
    solver.init(A, false, false, false, true);
    EXPECT_TRUE(listener.called);
}

/// OpenMP's count for a scope, as a host would set it for its own regions.
class HostThreads
{
public:
    explicit HostThreads(int count) : before_(omp_get_max_threads()) { omp_set_num_threads(count); }
    ~HostThreads() { omp_set_num_threads(before_); }

private:
    int before_;
};

/// Whether BLAS takes its threads from OpenMP: then the count is each thread's own, and the host's.
bool blasIsOpenMp()
{
    auto* kind = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "openblas_get_parallel"));
    return kind && kind() == 2;
}

} // namespace

// --- The host's counts --------------------------------------------------------------------------------------------

TEST(HostThreads, AFactorisationLeavesTheCountOfItsThreadAsItWas)
{
    const HostThreads host(3);
    int other = 0;

    factorise([&] {
        std::thread([&] {
            omp_set_num_threads(5);
            other = omp_get_max_threads();
        }).join();
        EXPECT_EQ(BlasThreadScope::current(), 1);
    });

    EXPECT_EQ(other, 5);
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(HostThreads, AFactorisationThatFailsGivesTheCountBack)
{
    const HostThreads host(3);
    qxutil::RunInfo run;
    Umfpack solver(run);
    Sparse singular = sparseOf({{1, 1}, {1, 1}});
    EXPECT_EQ(idOf([&] { solver.init(singular, false, false, false, true); }), "Singular_matrix");
    AtFirstReport listener([&] { throw 1; });
    qxutil::RunInfo stopped(&listener);
    Umfpack other(stopped);
    Sparse A = laplacian(12, 3);
    EXPECT_THROW(other.init(A, false, false, false, true), int);

    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(HostThreads, OverlappingFactorisationsLeaveEveryCountAsItWas)
{
    // The first to enter is the first to leave: each waits for the other in its middle, the second until the first is done.
    std::promise<void> firstInside, secondInside, firstDone;
    const int before = BlasThreadScope::current();
    int counts[2] = {};
    std::thread first([&] {
        omp_set_num_threads(3);
        factorise([&] {
            firstInside.set_value();
            secondInside.get_future().wait();
        });
        counts[0] = omp_get_max_threads();
        firstDone.set_value();
    });
    std::thread second([&] {
        omp_set_num_threads(4);
        firstInside.get_future().wait();
        factorise([&] {
            secondInside.set_value();
            firstDone.get_future().wait();
            EXPECT_EQ(BlasThreadScope::current(), 1); // still alone
        });
        counts[1] = omp_get_max_threads();
    });
    first.join();
    second.join();

    EXPECT_EQ(counts[0], 3);
    EXPECT_EQ(counts[1], 4);
    EXPECT_EQ(BlasThreadScope::current(), before);
}

TEST(HostThreads, AnOrthonormalNullSpaceLeavesTheCountAsItWas)
{
    const HostThreads host(3);
    qxutil::RunInfo run;
    Sparse Null, none;
    const Sparse N = sparseOf(randomDense(30, 10, 3));

    qxNull(run, N, Sparse(), Sparse(), true, Null, false, none, false, none, none, false, none, false, none, false,
           NullFunOrthonormal, false);

    EXPECT_EQ(Null.getN(), 20u);
    EXPECT_EQ(omp_get_max_threads(), 3);
}

TEST(BlasThreads, ScopesOfOpenMpBlasAreTheirThreadsOwn)
{
    if (!blasIsOpenMp())
        GTEST_SKIP() << "BLAS has threads of its own";
    const HostThreads host(3);
    const BlasThreadScope one(1);
    std::thread([] {
        omp_set_num_threads(4);
        EXPECT_EQ(BlasThreadScope::current(), 4);
        {
            const BlasThreadScope two(2);
            EXPECT_EQ(omp_get_max_threads(), 2);
        }
        EXPECT_EQ(omp_get_max_threads(), 4);
    }).join();
    EXPECT_EQ(BlasThreadScope::current(), 1);
}

TEST(BlasThreads, ScopesMayEndInAnyOrder)
{
    const int before = BlasThreadScope::current();
    auto first = std::make_unique<BlasThreadScope>(2);
    if (blasIsOpenMp()) { // of one thread they nest, of several they do not meet
        first.reset();
    } else {
        auto second = std::make_unique<BlasThreadScope>(1);
        first.reset();
        EXPECT_EQ(BlasThreadScope::current(), 1);
        second.reset();
    }
    EXPECT_EQ(BlasThreadScope::current(), before);
}

// --- Teams over the products of a factorisation -------------------------------------------------------------------

namespace {

/// Solution for a right-hand side of ones, with the library's and BLAS's threads as given.
std::vector<cplx> solutionWith(int threads, int blasThreads, Sparse A)
{
    const Threads some(threads);
    qxutil::RunInfo run;
    Umfpack solver(run);
    solver.setBlasThreads(blasThreads);
    solver.init(A, false, false, false, true);
    Matrix<1> x;
    solver.solve(realVector(std::vector<double>(A.getN(), 1.0)), x);
    std::vector<cplx> values;
    for (unsigned long i = 0; i < x.size(); ++i)
        values.push_back(x[i]);
    return values;
}

} // namespace

TEST(FactorisationTeams, PanelsGiveTheSameBitsForAnyNumberOfThreads)
{
    for (const cplx shift : {cplx(0.0), cplx(0.0, 1.0)}) {
        const Sparse A = laplacian(shift == 0.0 ? 18 : 15, 3, shift); // fronts beyond 600: products above the limit
        const std::vector<cplx> one = solutionWith(1, 1, A);
        for (const int threads : {2, 3, 7, 64})
            EXPECT_EQ(solutionWith(threads, 1, A), one) << threads;
        Matrix<1> x = complexVector(one), r = AMulx(A, x, NoTrans);
        for (unsigned long i = 0; i < r.size(); ++i)
            ASSERT_LE(std::abs(r[i] - 1.0), 1e-10);
    }
}

TEST(FactorisationTeams, TheChoiceMayBeLeftToBlas)
{
    const Sparse A = laplacian(14, 3);
    const std::vector<cplx> wanted = solutionWith(1, 1, A);
    const HostThreads host(2);
    for (const int blasThreads : {0, 2, -3}) {
        const std::vector<cplx> got = solutionWith(2, blasThreads, A);
        for (std::size_t i = 0; i < wanted.size(); ++i)
            ASSERT_LE(std::abs(got[i] - wanted[i]), 1e-12 * (1.0 + std::abs(wanted[i]))) << blasThreads;
        EXPECT_EQ(omp_get_max_threads(), 2);
    }
    AtFirstReport listener([] { EXPECT_EQ(BlasThreadScope::current(), 2); });
    qxutil::RunInfo run(&listener);
    Umfpack solver(run);
    solver.setBlasThreads(2);
    Sparse input = A;
    solver.init(input, false, false, false, true);
    EXPECT_TRUE(listener.called);
}

TEST(FactorisationTeams, ACancelledFactorisationWithATeamLeavesItReady)
{
    const Threads two(2);
    qxutil::RunInfo* runOf = nullptr;
    AtFirstReport listener([&] { runOf->cancel(); });
    qxutil::RunInfo run(&listener);
    runOf = &run;
    Umfpack solver(run);
    Sparse A = laplacian(18, 3);
    EXPECT_THROW(solver.init(A, false, false, false, true), qxbase::CancelException);
    run.cancel(false);
    solver.init(A, false, false, false, true);
    Matrix<1> x;
    EXPECT_EQ(solver.solve(realVector(std::vector<double>(A.getN(), 1.0)), x), 1);
}

// The thread sanitizer does not follow a process with threads into its child.
#if !defined(__has_feature)
#define QX_FORK_TESTS
#elif !__has_feature(thread_sanitizer)
#define QX_FORK_TESTS
#endif
#ifdef QX_FORK_TESTS

// --- Fork ---------------------------------------------------------------------------------------------------------

namespace {

/// Products, a transposition, a factorisation, dense decompositions: enough for a team in each. Returns some numbers.
std::vector<double> work()
{
    const Sparse A = laplacian(16, 3);
    const Matrix<1> x = realVector(std::vector<double>(4096, 0.7));
    std::vector<double> numbers;
    const auto keep = [&](const Matrix<1>& v) {
        for (unsigned long i = 0; i < v.size(); i += 97)
            numbers.push_back(v[i].real());
    };
    keep(A * x); // unsorted: parts and their sum
    Sparse sorted = A;
    sorted.format(FormSortedDiag, true);
    keep(sorted * x);
    Matrix<1> r = realVector(std::vector<double>(4096, 0.3)), u = realVector(std::vector<double>(4096, 0.0));
    SORItUpdater(sorted, r, u, 1.1, false);
    keep(u);
    keep(transpose(A, Trans) * A * x);
    qxutil::RunInfo run;
    Umfpack solver(run);
    Sparse input = A;
    solver.init(input, false, false, false, true);
    Matrix<1> solution;
    solver.solve(x, solution);
    keep(solution);
    const unsigned long n = 150;
    Array<double, 2> D(n, n), B(n, n);
    for (unsigned long i = 0; i < n * n; ++i)
        D[i] = std::cos(double(i * i % 1013)), B[i] = std::sin(double(i % 97));
    Array<double, 2> copy(D);
    qxarray::linsolv(copy, B, 0); // BLAS of level 3
    numbers.push_back(B[17]);
    return numbers;
}

/// In a child process of fork: check, which must end within a minute. Returns what it gave, or -1 for a child that died.
int inChild(const std::function<int()>& check)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(60); // a child that hangs dies
        _exit(check());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Equal to rounding: one thread may add in another order than a team, in BLAS and in products of unsorted matrices.
bool agree(const std::vector<double>& a, const std::vector<double>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](double x, double y) {
        return std::abs(x - y) <= 1e-9 * (1.0 + std::abs(x));
    });
}

/// The child finds the numbers of its parent with one thread; 0 for success.
std::function<int()> sameAsParent(std::vector<double> wanted)
{
    return [wanted] {
        if (AVAILABLETHREADS() != 1 || omp_get_max_threads() != 1)
            return 2;
        return agree(work(), wanted) ? 0 : 1;
    };
}

} // namespace

TEST(Fork, TheChildOfAThreadThatUsedATeamWorksAlone)
{
    const Threads two(2);
    const HostThreads host(2);
    const std::vector<double> wanted = work();

    EXPECT_EQ(inChild(sameAsParent(work())), 0);

    EXPECT_EQ(AVAILABLETHREADS(), 2); // the parent keeps its team
    EXPECT_EQ(omp_get_max_threads(), 2);
    EXPECT_EQ(work(), wanted);
}

TEST(Fork, TheChildOfAnotherThreadThatUsedATeamWorksAlone)
{
    const Threads two(2);
    work(); // a team of the main thread, which the child does not have either
    int result = -1;
    std::thread([&] {
        omp_set_num_threads(2);
        const std::vector<double> wanted = work();
        result = inChild(sameAsParent(wanted));
    }).join();
    EXPECT_EQ(result, 0);
}

TEST(Fork, ThreadsMadeInTheChildHaveTeamsOfTheirOwn)
{
    const Threads two(2);
    const std::vector<double> wanted = work();

    const int result = inChild([&] {
        int outcome = -1;
        std::thread([&] {
            omp_set_num_threads(2);
            const bool team = AVAILABLETHREADS() == 2;
            int size = 0;
#pragma omp parallel num_threads(2)
#pragma omp single
            size = omp_get_num_threads();
            outcome = !team || size != 2 ? 2 : work() == wanted ? 0 : 1;
        }).join();
        return outcome;
    });

    EXPECT_EQ(result, 0);
}

TEST(Fork, AGrandchildWorksToo)
{
    const Threads two(2);
    const std::vector<double> wanted = work();
    EXPECT_EQ(inChild([&] { return inChild(sameAsParent(wanted)); }), 0);
}

using ForkDeathTest = testing::Test; // a new process each: no parallel work has been done in it

TEST(ForkDeathTest, AForkBeforeAnyParallelWorkIsHarmlessToBothSides)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            qxbase::setAvailableThreads(2);
            std::vector<double> inParent;
            int pipes[2];
            if (pipe(pipes) != 0)
                _exit(3);
            const pid_t child = fork();
            alarm(60);
            const std::vector<double> numbers = work();
            if (child == 0) {
                const auto bytes = numbers.size() * sizeof(double);
                _exit(write(pipes[1], numbers.data(), bytes) == ssize_t(bytes) ? 0 : 4);
            }
            int status = 0;
            waitpid(child, &status, 0);
            inParent.resize(numbers.size());
            const auto bytes = numbers.size() * sizeof(double);
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || read(pipes[0], inParent.data(), bytes) != ssize_t(bytes))
                _exit(5);
            _exit(agree(inParent, numbers) ? 0 : 6);
        },
        testing::ExitedWithCode(0), "");
}

#ifdef QX_SHARED_LIBRARY
TEST(ForkDeathTest, TheLibraryLeavesNothingBehindWhenItIsClosed)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            void* const library = dlopen(QX_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
            if (!library)
                _exit(3);
            dlclose(library);
            _exit(inChild([] { return 0; }));
        },
        testing::ExitedWithCode(0), "");
}
#endif
#endif // QX_FORK_TESTS

#ifdef QX_SHARED_LIBRARY
TEST(SharedLibrary, SymbolsCarryTheMajorVersion)
{
    void* const library = dlopen(QX_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();

    EXPECT_NE(dlvsym(library, "_Z16AVAILABLETHREADSv", QX_SYMBOL_VERSION), nullptr);
    EXPECT_EQ(dlvsym(library, "_Z16AVAILABLETHREADSv", "QXKERNEL_OTHER"), nullptr);
    EXPECT_EQ(dlsym(library, "umfpack_dl_solve"), nullptr); // what is linked privately stays inside
}
#endif

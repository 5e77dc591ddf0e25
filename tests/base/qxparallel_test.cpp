// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxparallel.hpp"

#include "qxexception.hpp"
#include "qxlib.hpp"
#include "support/threads.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

#include <omp.h>

using qxbase::Parallel;

namespace {

using Slice = std::pair<unsigned long, unsigned long>;

/// The slices of a team are in order, touch each other and cover [0, n).
void expectDisjointCover(const std::vector<Slice>& slices, unsigned long n)
{
    unsigned long next = 0;
    for (const auto& [from, to] : slices) {
        EXPECT_EQ(from, next);
        EXPECT_LE(from, to);
        next = to;
    }
    EXPECT_EQ(next, n);
}

std::vector<Slice> evenSlices(unsigned long n, int team)
{
    std::vector<Slice> slices(team);
    for (int p = 0; p < team; ++p)
        Parallel::evenSlice(n, p, team, slices[p].first, slices[p].second);
    return slices;
}

std::vector<Slice> weightedSlices(const std::vector<unsigned long>& counts, int team)
{
    std::vector<unsigned long> sums(counts.size() + 1, 0);
    std::partial_sum(counts.begin(), counts.end(), sums.begin() + 1);
    std::vector<Slice> slices(team);
    for (int p = 0; p < team; ++p)
        Parallel::weightedSlice(counts.size(), sums.back(), p, team, sums.data(), slices[p].first, slices[p].second);
    return slices;
}

} // namespace

TEST(Parallel, EvenSlicesCoverEverythingOnceAndDifferByOneAtMost)
{
    for (const int team : {1, 2, 3, 7, 64})
        for (const unsigned long n : {0ul, 1ul, 2ul, 6ul, 7ul, 63ul, 100ul, 12345ul}) {
            const auto slices = evenSlices(n, team);
            expectDisjointCover(slices, n);
            for (const auto& [from, to] : slices) {
                EXPECT_LE(to - from, n / team + 1);
                EXPECT_GE(to - from, n / team);
            }
        }
}

TEST(Parallel, OutsideARegionTheCallerIsATeamOfOne)
{
    Parallel parallel;
    unsigned long from = 9, to = 9;

    parallel.optimalWork(100, from, to);
    EXPECT_EQ(Slice(from, to), Slice(0, 100));
    EXPECT_EQ(parallel.getPID(), 0);

    const unsigned long sums[] = {0, 5, 6, 20};
    parallel.optimalWork(3, 20, sums, from, to);
    EXPECT_EQ(Slice(from, to), Slice(0, 3));
}

TEST(Parallel, TheSlicesOfARunningTeamCoverEverything)
{
    const qxtest::Threads threads(3);
    Parallel parallel;
    parallel.setNumberThreads(20000);
    ASSERT_EQ(parallel.getNumberThreads(), 3);
    std::vector<Slice> slices(3, {0, 0});
    int team = 0;

#pragma omp parallel num_threads(parallel.getNumberThreads())
    {
        const int p = parallel.getPID();
        parallel.optimalWork(1000, slices[p].first, slices[p].second);
#pragma omp single
        team = omp_get_num_threads();
    }

    slices.resize(team);
    expectDisjointCover(slices, 1000);
}

TEST(Parallel, WeightedSlicesCoverEverythingForEveryTeam)
{
    for (const int team : {1, 2, 3, 7, 64}) {
        expectDisjointCover(weightedSlices({}, team), 0);
        expectDisjointCover(weightedSlices({5}, team), 1);
        expectDisjointCover(weightedSlices({0, 0, 0}, team), 3);
        expectDisjointCover(weightedSlices({3, 0, 0, 9, 1, 1, 1, 1, 0}, team), 9);
    }
}

TEST(Parallel, WeightedSlicesShareTheWeightEvenly)
{
    // 8 columns of weight 1, 2, ..., 8: total 36, so half of it is reached before the sixth column (15 < 18 <= 21).
    EXPECT_EQ(weightedSlices({1, 2, 3, 4, 5, 6, 7, 8}, 2), (std::vector<Slice>{{0, 6}, {6, 8}}));
}

TEST(Parallel, AllWeightInOneColumnGoesToExactlyOneThread)
{
    for (const int team : {2, 3, 7}) {
        const auto slices = weightedSlices({0, 0, 0, 100, 0, 0}, team);
        int owners = 0;
        for (const auto& [from, to] : slices)
            owners += from <= 3 && 3 < to;
        EXPECT_EQ(owners, 1);
    }
}

TEST(Parallel, WeightsNearTheLimitOfAWordDoNotOverflow)
{
    const unsigned long huge = ~0ul / 4;
    const std::vector<Slice> slices = weightedSlices({huge, huge, huge}, 3);

    EXPECT_EQ(slices, (std::vector<Slice>{{0, 1}, {1, 2}, {2, 3}}));
}

TEST(Parallel, ANamedThreadsSliceIsThatOfTheChosenTeam)
{
    const qxtest::Threads threads(4);
    Parallel parallel;
    parallel.setNumberThreads(10000);
    const unsigned long sums[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    std::vector<Slice> slices(4);

    for (int p = 0; p < 4; ++p)
        parallel.optimalWork(8, 8, p, sums, slices[p].first, slices[p].second);

    EXPECT_EQ(slices, (std::vector<Slice>{{0, 2}, {2, 4}, {4, 6}, {6, 8}}));
}

TEST(Parallel, GoesParallelFromTenThousandOnWithMoreThanOneThread)
{
    Parallel parallel;
    {
        const qxtest::Threads threads(2);
        EXPECT_FALSE(parallel.isParallelizable(9999));
        EXPECT_TRUE(parallel.isParallelizable(10000));
        EXPECT_TRUE(qxbase::isParallelLoop(10000));
        parallel.setNumberThreads(9999);
        EXPECT_EQ(parallel.getNumberThreads(), 1);
    }
    const qxtest::Threads one(1);
    EXPECT_FALSE(parallel.isParallelizable(1000000));
    EXPECT_FALSE(qxbase::isParallelLoop(1000000));
}

TEST(Parallel, IsNeverParallelizableInsideARegion)
{
    const qxtest::Threads threads(2);
    Parallel parallel;
    std::atomic<int> yes{0};
    bool wasParallel = false;

#pragma omp parallel num_threads(2)
    {
        if (parallel.isParallelizable(1000000) || qxbase::isParallelLoop(1000000))
            ++yes;
#pragma omp single
        wasParallel = omp_in_parallel();
    }

    ASSERT_TRUE(wasParallel);
    EXPECT_EQ(yes, 0);
}

TEST(Parallel, TheMaximumNeverFallsBelowTheThreadsInUse)
{
    const qxtest::Threads threads(MAXAVAILABLETHREADS() + 5);

    EXPECT_GE(MAXAVAILABLETHREADS(), AVAILABLETHREADS());
}

TEST(Parallel, CountsBelowOneMeanOne)
{
    const qxtest::Threads threads(-3);

    EXPECT_EQ(AVAILABLETHREADS(), 1);
}

TEST(ParallelException, OfTwoThreadsOneFailureIsRaised)
{
    qxbase::ParallelException failures;
#pragma omp parallel num_threads(2)
    {
        try {
            QX_RAISE("test", "Failure_in_region", "Thread", omp_get_thread_num());
        } catch (const qxbase::Exception& e) {
            failures.storeException(e);
        }
    }

    try {
        failures.throwException();
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.size(), 1u);
        EXPECT_EQ(e.getId(), "Failure_in_region");
    }
}

TEST(ParallelException, StoreCurrentKeepsForeignFailures)
{
    qxbase::ParallelException failures;
    try {
        throw std::bad_alloc();
    } catch (...) {
        failures.storeCurrent();
    }

    EXPECT_TRUE(failures.isStored());
    EXPECT_THROW(failures.throwException(), std::bad_alloc);
}

TEST(BlasThreadScope, SetsTheCountForItsScopeOnly)
{
    const qxbase::QxLib openblas("libopenblas.so.0"); // with local symbol scope, as a Java host would load it
    const int before = qxbase::BlasThreadScope::current();
    ASSERT_GE(before, 1);
    {
        const qxbase::BlasThreadScope scope(before + 1);
        EXPECT_EQ(qxbase::BlasThreadScope::current(), before + 1);
        const qxbase::BlasThreadScope inner(1);
        EXPECT_EQ(qxbase::BlasThreadScope::current(), 1);
    }
    EXPECT_EQ(qxbase::BlasThreadScope::current(), before);
}

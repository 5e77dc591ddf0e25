// SPDX-License-Identifier: LicenseRef-qxkernel
// The small services: locks, string pool, run progress, diagnostics, stopwatch.
#include "diagnostic.hpp"
#include "qxexception.hpp"
#include "qxlock.hpp"
#include "qxpool.hpp"
#include "qxrun.hpp"
#include "stopwatch.hpp"
#include "support/alloc_fault.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

using qxbase::LockHandler;
using qxbase::NestedLock;

TEST(NestedLock, ItsOwnerMayTakeItAgainAndOthersWait)
{
    const auto lock = boost::make_shared<NestedLock>();
    bool otherGotIt = true;
    {
        const LockHandler outer(lock);
        const LockHandler inner(lock);
        std::thread([&] { otherGotIt = lock->try_lock(); }).join();
    }
    bool otherGotItLater = false;
    std::thread([&] {
        otherGotItLater = lock->try_lock();
        if (otherGotItLater)
            lock->unlock();
    }).join();

    EXPECT_FALSE(otherGotIt);
    EXPECT_TRUE(otherGotItLater);
}

TEST(NestedLock, CanBeTakenAgainFromANestedRegionOfTheSameThread)
{
    const auto lock = boost::make_shared<NestedLock>();
    const LockHandler outer(lock);
    bool entered = false;

#pragma omp parallel num_threads(1)
    {
        const LockHandler inner(lock);
        entered = true;
    }

    EXPECT_TRUE(entered);
}

TEST(LockHandler, KeepsTheLockAliveWhileItHoldsIt)
{
    auto lock = boost::make_shared<NestedLock>();
    const LockHandler holder(lock);

    EXPECT_EQ(lock.use_count(), 2);
    lock.reset(); // the handler unlocks a living lock at the end of the scope
}

TEST(OmpLock, ExcludesOtherThreads)
{
    qxbase::OmpLock lock;
    long sum = 0;

#pragma omp parallel for num_threads(4)
    for (int i = 0; i < 1000; ++i) {
        const std::lock_guard guard(lock);
        ++sum;
    }

    EXPECT_EQ(sum, 1000);
}

TEST(QxStringPool, EqualTextsHaveEqualSmallHandles)
{
    QxStringPool pool;

    EXPECT_EQ(pool.getHandle("x"), 0);
    EXPECT_EQ(pool.getHandle("y"), 1);
    EXPECT_EQ(pool.getHandle("x"), 0);
    EXPECT_EQ(pool.getHandle(""), 2);
    EXPECT_EQ(pool.getString(1), "y");
    EXPECT_EQ(pool.size(), 3);
}

TEST(QxStringPool, HandlesAndReferencesSurviveAHundredThousandInsertions)
{
    QxStringPool pool;
    const int first = pool.getHandle("the first text of all, and a long one");
    const std::string& text = pool.getString(first);

    for (int i = 0; i < 100000; ++i)
        pool.getHandle(std::to_string(i));

    EXPECT_EQ(&pool.getString(first), &text);
    EXPECT_EQ(text, "the first text of all, and a long one");
    EXPECT_EQ(pool.getHandle("the first text of all, and a long one"), first);
    EXPECT_EQ(pool.getString(pool.getHandle("77777")), "77777");
    EXPECT_EQ(pool.size(), 100001);
}

TEST(QxStringPool, AnUnknownHandleRaises)
{
    QxStringPool pool;
    pool.getHandle("x");

    for (const int handle : {-1, 1})
        try {
            pool.getString(handle);
            FAIL() << handle;
        } catch (const qxbase::Exception& e) {
            EXPECT_EQ(e.getId(), "Internal_error_string_pool");
        }
}

TEST(QxStringPool, CopiesAreIndependent)
{
    auto original = boost::make_shared<QxStringPool>();
    original->getHandle("x");
    QxStringPool copy(*original);

    original->getHandle("only there");
    original.reset();

    EXPECT_EQ(copy.getHandle("x"), 0);
    EXPECT_EQ(copy.getHandle("y"), 1);
    EXPECT_EQ(copy.size(), 2);
}

TEST(QxStringPool, AssignedToItselfStays)
{
    QxStringPool pool;
    pool.getHandle("a");
    const int b = pool.getHandle("b");
    const QxStringPool& same = pool;

    pool = same;

    EXPECT_EQ(pool.size(), 2);
    EXPECT_EQ(pool.getString(b), "b");
}

TEST(QxStringPool, AFailingAllocationChangesNothing)
{
    const std::string text(50, 't');
    qxtest::failEveryAllocation(
        [&] {
            QxStringPool pool;
            for (int i = 0; i < 10; ++i) {
                const std::string next = text + std::to_string(i);
                try {
                    pool.getHandle(next);
                } catch (const std::bad_alloc&) {
                    if (pool.size() != i || pool.getHandle(next) != i)
                        QX_RAISE("test", "Pool_was_changed");
                    throw;
                }
            }
        },
        [](const qxtest::FaultRun& run) {
            EXPECT_EQ(run.id, "");
            EXPECT_EQ(run.badAlloc, run.faulted);
            EXPECT_EQ(run.leaked, 0);
        });
}

TEST(QxIntHashSet, HoldsEachIntegerOnce)
{
    QxIntHashSet set;

    EXPECT_TRUE(set.insert(-5).inserted);
    EXPECT_FALSE(set.insert(-5).inserted);
    EXPECT_TRUE(set.contains(-5));
    EXPECT_FALSE(set.contains(5));
}

namespace {

struct Recorder : qxutil::RunListener
{
    std::vector<std::string> lines;
    void onMessage(const std::string& title, const std::string& text) override { lines.push_back(title + ": " + text); }
    void onProgress(const std::string& title, double fraction) override
    {
        lines.push_back(title + " " + std::to_string(static_cast<int>(100 * fraction)) + "%");
    }
    void onParam(const std::string& title, const std::string& name, double value) override
    {
        lines.push_back(title + " " + name + "=" + std::to_string(static_cast<int>(value)));
    }
};

} // namespace

TEST(RunInfo, IsActiveWhenSomebodyListens)
{
    Recorder recorder;

    EXPECT_TRUE(qxutil::RunInfo(&recorder).isActive());
    EXPECT_FALSE(qxutil::RunInfo().isActive());
}

TEST(RunInfo, TheCancelFlagIsSeenThroughItsAddress)
{
    qxutil::RunInfo info;
    const volatile int* flag = info.adrCancel();
    EXPECT_EQ(*flag, 0);
    EXPECT_NO_THROW(info.throwIfCancelled("test", 1));

    info.cancel();

    EXPECT_NE(*flag, 0);
    EXPECT_TRUE(info.isCancelled());
    EXPECT_THROW(info.throwIfCancelled("test", 1), qxbase::CancelException);

    info.cancel(false);
    EXPECT_FALSE(info.isCancelled());
}

TEST(RunInfo, CancelArrivesFromAnotherThread)
{
    qxutil::RunInfo info;
    std::thread other([&] { info.cancel(); });

    while (!info.isCancelled())
        std::this_thread::yield();

    other.join();
    SUCCEED();
}

TEST(RunLog, PassesProgressMessagesAndParametersToTheListener)
{
    Recorder recorder;
    qxutil::RunInfo info(&recorder);
    qxutil::RunLog log(info);

    log.init("UMFPACK");
    log.setParam("Step", 2);
    log.setProgressScale(200);
    log.setProgress(50);
    log.addMessage("half of the half");

    EXPECT_EQ(recorder.lines, (std::vector<std::string>{"UMFPACK Step=2", "UMFPACK 25%", "UMFPACK: half of the half"}));
    EXPECT_EQ(*log.adrLastProgress(), 50);
    EXPECT_EQ(*log.adrParamValue(), 2);
}

TEST(RunLog, AListenerNeedsToListenToNothing)
{
    qxutil::RunListener deaf;
    qxutil::RunInfo info(&deaf);
    qxutil::RunLog log(info);

    log.init("Title");
    log.addMessage("text");
    log.setParam("Step", 2);
    log.setProgress(0.5);

    EXPECT_EQ(log.getParam(), 2);
    EXPECT_EQ(log.getFraction(), 0.5);
}

TEST(RunLog, WhatIsWrittenThroughTheAddressesIsTheState)
{
    qxutil::RunInfo info;
    qxutil::RunLog log(info);
    log.init("UMFPACK");

    *log.adrLastProgress() = 0.75;
    *log.adrParamValue() = 3;

    EXPECT_EQ(log.getFraction(), 0.75);
    EXPECT_EQ(log.getParam(), 3);
}

TEST(RunLog, InitForgetsTheParameterAndItsName)
{
    qxutil::RunInfo info;
    qxutil::RunLog log(info);
    log.init("first");
    log.setParam("Step", 3.0);
    EXPECT_EQ(log.getParamName(), "Step");

    log.init("second");

    EXPECT_EQ(log.getParamName(), "");
    EXPECT_EQ(log.getParam(), 0.0);
    EXPECT_EQ(log.getTitle(), "second");
}

TEST(RunLog, FlagsSwitchProgressAndMessagesOff)
{
    Recorder recorder;
    qxutil::RunInfo info(&recorder);
    qxutil::RunLog quiet(info, false, false);

    quiet.init("quiet");
    quiet.setProgress(1);
    quiet.addMessage("unheard");
    quiet.setParam("p", 1);

    EXPECT_TRUE(recorder.lines.empty());
}

TEST(RunLog, FractionStaysBetweenZeroAndOneAndInitStartsAnew)
{
    qxutil::RunInfo info;
    qxutil::RunLog log(info);
    log.init("first");
    log.setProgressScale(0); // ignored
    log.setProgress(7);
    EXPECT_EQ(log.getFraction(), 1);

    log.init("second");

    EXPECT_EQ(log.getFraction(), 0);
    EXPECT_EQ(log.getTitle(), "second");
    EXPECT_EQ(log.getParamName(), "");
}

TEST(DiagnosticLine, GoesToTheStandardOutputStream)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();

    qxbase::diagnosticLine("Warning: a test");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: a test\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Stopwatch, NamedTimersSumTheirTurns)
{
    Stopwatch watch;
    StopwatchTimer& timer = watch["sweep"];

    timer.tic();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const double first = timer.toc();
    timer.tic();
    const double second = timer.toc();

    EXPECT_GE(first, 0.002);
    EXPECT_GE(second, 0);
    EXPECT_EQ(watch["sweep"].getTotal(), first + second);
    EXPECT_EQ(watch["sweep"].getTurns(), 2);
    EXPECT_EQ(watch["other"].getTurns(), 0);
}

TEST(Stopwatch, TocWithoutTicIsNothing)
{
    StopwatchTimer timer;

    EXPECT_EQ(timer.toc(), 0);
    EXPECT_EQ(timer.getTurns(), 0);
}

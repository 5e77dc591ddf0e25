// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxcutil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace {

/// A solver library in small: called through a frame with setjmp, as the contexts want it. 0, or the code of a jump.
int runArmed(void (*work)())
{
    const int code = setjmp(*qxcGetEnvPtr());
    if (code > 0)
        return code;
    qxcArm();
    work();
    qxcDisarm();
    return 0;
}

class MemoryContext : public testing::Test
{
protected:
    void SetUp() override
    {
        id = qxcNextFreeID();
        ASSERT_GE(id, 0);
        ASSERT_EQ(qxcSetID(id), 0);
        kept = nullptr;
    }
    void TearDown() override
    {
        qxcFreeID(id);
        qxcSetID(-1);
    }

    int id = -1;
    static void* kept;
};

void* MemoryContext::kept = nullptr;

} // namespace

TEST_F(MemoryContext, RecordsBlocksWhileArmedOnly)
{
    void* before = qxcMalloc(10);
    EXPECT_EQ(qxcBlockCount(), 0);

    EXPECT_EQ(runArmed([] {
        kept = qxcMalloc(100);
        qxcCalloc(3, 8);
    }), 0);

    EXPECT_EQ(qxcBlockCount(), 2);
    void* after = qxcMalloc(10);
    EXPECT_EQ(qxcBlockCount(), 2);
    qxcFree(before);
    qxcFree(after);
    qxcFree(nullptr);
}

TEST_F(MemoryContext, CallocGivesZeros)
{
    runArmed([] { kept = qxcCalloc(100, 8); });

    const std::vector<char> zeros(800, 0);
    EXPECT_EQ(std::memcmp(kept, zeros.data(), 800), 0);
}

TEST_F(MemoryContext, FreeAllReleasesWhatWasRecorded)
{
    runArmed([] {
        for (int i = 0; i < 1000; ++i)
            qxcMalloc(16);
    });
    ASSERT_EQ(qxcBlockCount(), 1000);

    qxcFreeAll(); // a leak would show under the address sanitizer

    EXPECT_EQ(qxcBlockCount(), 0);
}

TEST_F(MemoryContext, BlocksFreedByTheLibraryAreForgotten)
{
    runArmed([] { kept = qxcMalloc(16); });

    qxcFree(kept); // disarmed by now

    EXPECT_EQ(qxcBlockCount(), 0);
    qxcFreeAll(); // would free it twice
}

TEST_F(MemoryContext, ABlockMayBeFreedOnAnotherThreadOrUnderAnotherContext)
{
    runArmed([] { kept = qxcMalloc(16); });
    std::thread([] { qxcFree(kept); }).join();
    EXPECT_EQ(qxcBlockCount(), 0);

    runArmed([] { kept = qxcMalloc(16); });
    const int other = qxcNextFreeID();
    qxcSetID(other);
    qxcFree(kept);
    qxcSetID(id);
    EXPECT_EQ(qxcBlockCount(), 0);
    qxcFreeID(other);
}

TEST_F(MemoryContext, ReallocKeepsTheRecordAndTheContents)
{
    runArmed([] {
        kept = qxcRealloc(nullptr, 4);
        std::memcpy(kept, "abc", 4);
        kept = qxcRealloc(kept, 100000);
    });

    EXPECT_EQ(qxcBlockCount(), 1);
    EXPECT_STREQ(static_cast<char*>(kept), "abc");
}

TEST_F(MemoryContext, ACancelledRunJumpsOutWithSix)
{
    static volatile int cancel;
    static bool reached;
    cancel = 0;
    reached = false;
    qxcSetCancelAdr(&cancel);

    const int code = runArmed([] {
        qxcMalloc(16);
        qxcPoll();
        cancel = 1;
        qxcPoll();
        reached = true;
    });

    EXPECT_EQ(code, qxcCancelled);
    EXPECT_EQ(code, 6);
    EXPECT_FALSE(reached);
    EXPECT_EQ(qxcBlockCount(), 1);
    qxcPoll(); // disarmed: no jump
    qxcFreeAll();
    EXPECT_EQ(qxcBlockCount(), 0);
}

TEST_F(MemoryContext, EveryAllocationLooksAtTheCancelFlag)
{
    static volatile int cancel = 1;

    for (void (*work)() : {+[] { qxcMalloc(1); }, +[] { qxcCalloc(1, 1); }, +[] { qxcRealloc(nullptr, 1); }}) {
        qxcSetCancelAdr(&cancel);
        EXPECT_EQ(runArmed(work), qxcCancelled);
        qxcSetCancelAdr(nullptr);
        EXPECT_EQ(runArmed(work), 0);
    }
}

TEST_F(MemoryContext, FreeAllForgetsTheAddressesAndFaults)
{
    static volatile int cancel = 1;
    qxcSetCancelAdr(&cancel);
    qxcSetFault(8, 1);

    qxcFreeAll();

    EXPECT_EQ(runArmed([] { qxcPoll(); }), 0);
}

TEST_F(MemoryContext, FaultsArriveAsTheirCodesAtTheCallAskedFor)
{
    for (const int code : {int(qxcOutOfMemory), int(qxcCallocFailed), int(qxcOverflowInBlas)}) {
        static int calls;
        calls = 0;
        qxcSetFault(code, 3);
        EXPECT_EQ(runArmed([] {
            for (; calls < 10; ++calls)
                qxcMalloc(8);
        }), code);
        EXPECT_EQ(calls, 2);
    }
    EXPECT_EQ(qxcBlockCount(), 6);
}

TEST_F(MemoryContext, ExhaustedMemoryIsANullPointerAndNoJump)
{
    static void *first, *second, *third;
    qxcSetFault(0, 2);

    EXPECT_EQ(runArmed([] {
        first = qxcMalloc(8);
        second = qxcMalloc(8);
        third = qxcMalloc(8);
    }), 0);

    EXPECT_TRUE(first && !second && third);
    EXPECT_EQ(qxcBlockCount(), 2);
    EXPECT_EQ(runArmed([] { first = qxcMalloc(~std::size_t(0) / 2); }), 0);
    EXPECT_EQ(first, nullptr);
}

TEST_F(MemoryContext, AFailingReallocKeepsTheBlock)
{
    static void* moved;
    EXPECT_EQ(runArmed([] { kept = qxcMalloc(8); }), 0);
    qxcSetFault(0, 1);

    EXPECT_EQ(runArmed([] { moved = qxcRealloc(kept, 100); }), 0);

    EXPECT_EQ(moved, nullptr);
    EXPECT_EQ(qxcBlockCount(), 1);
}

TEST_F(MemoryContext, ProgressGoesToTheAddressesGiven)
{
    double progress = 0, param = 0;
    qxcReportProgress(0.1); // nobody asked

    qxcSetLastProgressAdr(&progress);
    qxcSetParamValueAdr(&param);
    qxcReportProgress(0.5);
    qxcReportParam(3);

    EXPECT_EQ(progress, 0.5);
    EXPECT_EQ(param, 3);
}

TEST_F(MemoryContext, IdsAreGivenOutAgainAfterFreeing)
{
    const int second = qxcNextFreeID();
    EXPECT_NE(second, id);
    qxcFreeID(second);

    EXPECT_EQ(qxcSetID(second), -1);
    EXPECT_EQ(qxcNextFreeID(), second);
    qxcFreeID(second);
}

TEST(MemoryContexts, WithoutASelectionTheyAreTheCLibrarysFunctions)
{
    EXPECT_EQ(qxcSetID(-1), 0);
    EXPECT_EQ(qxcSetID(12345), -1);

    EXPECT_EQ(qxcGetEnvPtr(), nullptr);
    EXPECT_EQ(qxcBlockCount(), 0);
    qxcArm();
    qxcPoll();
    void* block = qxcRealloc(qxcMalloc(8), 16);
    EXPECT_NE(block, nullptr);
    qxcFree(block);
    qxcFreeAll();
    qxcDisarm();
}

TEST(MemoryContexts, TwoThreadsWorkInTwoContextsAtOnce)
{
    std::atomic<int> failures{0};
    const auto work = [&] {
        const int id = qxcNextFreeID();
        for (int turn = 0; turn < 50; ++turn) {
            qxcSetID(id);
            qxcSetFault(1, 40);
            if (runArmed([] {
                    for (int i = 0; i < 100; ++i)
                        qxcMalloc(16);
                }) != 1 || qxcBlockCount() != 39)
                ++failures;
            qxcFreeAll();
        }
        qxcFreeID(id);
    };

    std::thread one(work), two(work);
    one.join();
    two.join();

    EXPECT_EQ(failures, 0);
}

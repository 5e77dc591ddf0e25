// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/alloc_fault.hpp"
#include "support/deep_stack.hpp"

#include "qxexception.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

/// Out of line, so that the compiler cannot leave the allocation out.
[[gnu::noinline]] std::unique_ptr<int> allocateOne() { return std::make_unique<int>(1); }

} // namespace

TEST(AllocFault, FailsTheAllocationThatItNames)
{
    std::unique_ptr<int> first, second, third;

    bool happened = false;
    bool thrown = false;
    {
        const qxtest::AllocFault fault(2);
        first = allocateOne();
        try {
            second = allocateOne();
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
        third = allocateOne();
        happened = fault.happened();
    }

    EXPECT_TRUE(thrown);
    EXPECT_TRUE(happened);
    EXPECT_TRUE(first && !second && third);
}

TEST(AllocFault, CountsAllocationsAndLiveBlocks)
{
    const long made = qxtest::allocationCount(), alive = qxtest::liveAllocations();

    // Direct calls: new-expressions whose result is not used may be left out by the compiler.
    void* one = ::operator new(4);
    void* many = ::operator new[](40);
    const long madeAfter = qxtest::allocationCount(), aliveAfter = qxtest::liveAllocations();
    ::operator delete(one);
    ::operator delete[](many);

    EXPECT_EQ(madeAfter - made, 2);
    EXPECT_EQ(aliveAfter - alive, 2);
    EXPECT_EQ(qxtest::liveAllocations(), alive);
}

TEST(AllocFault, CountsAllocationsOfTheCLibraryWhereNoSanitizerHasReplacedThem)
{
    const long made = qxtest::allocationCount();

    char* volatile copy = ::strdup("text");
    const long madeAfter = qxtest::allocationCount();
    std::free(copy);

    if (madeAfter == made)
        GTEST_SKIP() << "a sanitizer's malloc";
    EXPECT_EQ(madeAfter - made, 1);
}

TEST(AllocFault, RunsThroughEveryAllocationOnceAndThenUndisturbed)
{
    std::vector<qxtest::FaultRun> runs;
    runs.reserve(10);

    const long count = qxtest::failEveryAllocation(
        [] {
            const auto a = allocateOne();
            try {
                const auto b = allocateOne();
            } catch (const std::bad_alloc&) {
                QX_RAISE("test", "Out_of_memory_test");
            }
        },
        [&](const qxtest::FaultRun& run) { runs.push_back(run); });

    EXPECT_EQ(count, 2);
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_TRUE(runs[0].badAlloc);
    EXPECT_EQ(runs[1].id, "Out_of_memory_test");
    EXPECT_FALSE(runs[2].faulted);
    for (const auto& run : runs)
        EXPECT_EQ(run.leaked, 0);
}

TEST(AllocFault, IsOverBeforeTheIdentifierOfAFailureIsRead)
{
    const std::string id = "An_identifier_longer_than_what_a_string_keeps_without_an_allocation";
    std::vector<qxtest::FaultRun> runs;
    runs.reserve(100);

    const long count = qxtest::failEveryAllocation([&] { QX_RAISE("test", id); },
                                                   [&](const qxtest::FaultRun& run) { runs.push_back(run); });

    ASSERT_EQ(runs.size(), static_cast<std::size_t>(count) + 1);
    EXPECT_GT(count, 0);
    EXPECT_FALSE(runs.back().faulted);
    EXPECT_EQ(runs.back().id, id);
    for (const auto& run : runs)
        EXPECT_EQ(run.leaked, 0);
}

namespace {

/// Bytes of stack from the frame of the first call to that of the last. Each frame is used again after the call below it.
std::size_t descend(int levels, const volatile char* top)
{
    volatile char frame[4096];
    frame[0] = 0;
    const std::size_t below = levels > 0 ? descend(levels - 1, top) : static_cast<std::size_t>(top - frame);
    return below + static_cast<std::size_t>(frame[0]);
}

} // namespace

TEST(DeepStack, GivesTheStackAskedForAndPassesOnWhatIsThrown)
{
    std::size_t used = 0;

    qxtest::runOnStack(qxtest::largeStack, [&] {
        volatile char top = 0;
        used = descend(8000, &top);
    });

    EXPECT_GT(used, std::size_t(8000) * 4096);
    EXPECT_THROW(qxtest::runOnStack(qxtest::javaStack, [] { QX_RAISE("test", "Some_failure"); }), qxbase::Exception);
}

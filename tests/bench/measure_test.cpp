// SPDX-License-Identifier: LicenseRef-qxkernel
#include "measure.hpp"

#include <gtest/gtest.h>

#include <cmath>

using namespace qxbench;

TEST(Spread, IsTheMedianAndTheMedianDeviation)
{
    const Spread odd = spreadOf({5.0, 1.0, 2.0, 100.0, 3.0}); // sorted 1 2 3 5 100, deviations 2 1 0 2 97
    EXPECT_EQ(odd.median, 3.0);
    EXPECT_EQ(odd.mad, 2.0);
    const Spread even = spreadOf({4.0, 1.0, 3.0, 2.0}); // deviations from 2.5: 1.5 1.5 0.5 0.5
    EXPECT_EQ(even.median, 2.5);
    EXPECT_EQ(even.mad, 1.0);
}

TEST(Spread, OfOneSampleIsItselfAndOfNoneIsZero)
{
    EXPECT_EQ(spreadOf({7.0}).median, 7.0);
    EXPECT_EQ(spreadOf({7.0}).mad, 0.0);
    EXPECT_EQ(spreadOf({}).median, 0.0);
}

TEST(Spread, IsNotMovedByOneLongSample)
{
    EXPECT_EQ(spreadOf({1.0, 1.0, 1.0, 1.0, 1e9}).median, 1.0);
    EXPECT_EQ(spreadOf({1.0, 1.0, 1.0, 1.0, 1e9}).mad, 0.0);
}

TEST(Interleaved, TakesTurnsForwardAndBackwardWithOneSampleEachARound)
{
    // Times are whatever the machine gives; what is called when is not.
    std::string order;
    bool counting = false;
    const auto work = [&](char name) {
        return [&order, &counting, name] {
            if (counting && (order.empty() || order.back() != name))
                order += name;
        };
    };
    counting = true;
    Effort effort;
    effort.rounds = 6;
    effort.sampleSeconds = 1e-6;

    const auto times = interleaved({work('a'), work('b'), work('c')}, effort);

    ASSERT_EQ(times.size(), 3u);
    for (const auto& samples : times) {
        EXPECT_EQ(samples.size(), 6u);
        for (const double t : samples)
            EXPECT_TRUE(t >= 0.0 && std::isfinite(t)) << t;
    }
    // Each is first called to find its number of calls, then forward and backward rounds follow; turns of one name merge.
    EXPECT_EQ(order, "abc" "abc" "ba" "bc" "ba" "bc" "ba");
}

TEST(Interleaved, MeasuresTheLeastNumberOfRoundsHoweverLongTheyTake)
{
    Effort effort;
    effort.rounds = 1;
    effort.sampleSeconds = 1e-6;
    effort.caseSeconds = 0.0;
    effort.leastRounds = 4;
    EXPECT_EQ(interleaved({[] {}}, effort)[0].size(), 4u);
}

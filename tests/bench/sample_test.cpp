// SPDX-License-Identifier: LicenseRef-qxkernel
// A benchmark program as a whole: what it prints, what it writes, how it ends.

#include "examples/program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::HasSubstr;

namespace {

class BenchProgram : public testing::Test
{
protected:
    Outcome sample(const std::string& filter) const
    {
        return run(QX_BENCH_SAMPLE, {"--filter", filter, "--rounds", "5", "--commit", "abc", "--json", scratch.path("b.json")});
    }
    std::string json() const { return ScratchDirectory::read(scratch.path("b.json")); }

    ScratchDirectory scratch;
};

} // namespace

TEST_F(BenchProgram, PrintsATableAndWritesJson)
{
    const Outcome o = sample("good");

    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_THAT(o.out, AllOf(HasSubstr("goal met"), HasSubstr("slow"), HasSubstr("0.5 met"), HasSubstr("Mpoints/s"), HasSubstr("alone")));
    EXPECT_THAT(json(), AllOf(HasSubstr("\"case\": \"goal met\""), HasSubstr("\"met\": true"), HasSubstr("\"commit\": \"abc\"")));
    EXPECT_EQ(o.err, "");
}

TEST_F(BenchProgram, AQuickRunTakesTheSmallSizesAndSaysSo)
{
    const Outcome o = run(QX_BENCH_SAMPLE, {"--filter", "size", "--quick", "--json", scratch.path("b.json")});

    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_THAT(o.out, AllOf(HasSubstr("size 10"), HasSubstr("A QUICK RUN")));
    EXPECT_THAT(json(), AllOf(HasSubstr("\"quick\": true"), HasSubstr("\"sample's peer\": \"7.8\"")));
    EXPECT_THAT(sample("size").out, HasSubstr("size 1000"));
}

TEST_F(BenchProgram, AMissedGoalIsToldAndIsNoFailure)
{
    const Outcome o = sample("slow");

    EXPECT_EQ(o.status, 0);
    EXPECT_THAT(o.out, HasSubstr("1 MISSED"));
    EXPECT_THAT(json(), HasSubstr("\"met\": false"));
}

TEST_F(BenchProgram, AMissedGoalIsAFailureWhereAskedFor)
{
    EXPECT_EQ(run(QX_BENCH_SAMPLE, {"--filter", "slow", "--strict", "--json", scratch.path("b.json")}).status, 1);
    EXPECT_EQ(run(QX_BENCH_SAMPLE, {"--filter", "goal met", "--strict", "--json", scratch.path("b.json")}).status, 0);
}

TEST_F(BenchProgram, AWrongAnswerGetsNoTimeAndEndsWithStatusOne)
{
    const struct { const char* name; const char* message; } cases[] = {
        {"wrong/answer", "WRONG ANSWER: differs by 0.5, allowed 0.25"},
        {"wrong/nan", "WRONG ANSWER: differs by nan, allowed 1"},
        {"wrong/ours raises", "Nothing_works"},
        {"wrong/peer raises", "failed"},
    };
    for (const auto& c : cases) {
        const Outcome o = sample(c.name);
        EXPECT_EQ(o.status, 1) << c.name;
        EXPECT_THAT(o.out, HasSubstr(c.message));
        EXPECT_THAT(json(), HasSubstr("\"failure\": \""));
        EXPECT_EQ(json().find("ours_s"), std::string::npos) << c.name;
    }
}

TEST_F(BenchProgram, RefusesUnknownOptionsAndPlacesItCannotWriteTo)
{
    EXPECT_EQ(run(QX_BENCH_SAMPLE, {"--what"}).status, 2);
    EXPECT_EQ(run(QX_BENCH_SAMPLE, {"--filter"}).status, 2);
    const Outcome o = run(QX_BENCH_SAMPLE, {"--filter", "nothing", "--json", "/nowhere/b.json"});
    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, HasSubstr("cannot write /nowhere/b.json"));
}

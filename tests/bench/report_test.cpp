// SPDX-License-Identifier: LicenseRef-qxkernel
#include "report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <sstream>

using namespace qxbench;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

Row row(const std::string& group, const std::string& name, double ours, double theirs, double mad = 0.0)
{
    Row r;
    r.group = group;
    r.name = name;
    r.peer = "peer";
    r.ours = {ours, 0.0};
    r.theirs = {theirs, 0.0};
    r.ratio = {ours / theirs, mad};
    r.rounds = 15;
    return r;
}

std::string table(const std::vector<Row>& rows)
{
    std::ostringstream out;
    printTables(out, Machine{"gcc", "-O2", "cpu", 2, "2000-01-01", "abc"}, rows);
    return out.str();
}

std::string json(const std::vector<Row>& rows)
{
    std::ostringstream out;
    writeJson(out, "bench_x", Machine{"gcc", "-O2", "cpu", 2, "2000-01-01", "abc"}, rows);
    return out.str();
}

} // namespace

TEST(Report, SaysWhichSideIsAheadAndByHowMuch)
{
    EXPECT_THAT(table({row("g", "a", 1.0, 4.0)}), HasSubstr("ours 4x"));
    EXPECT_THAT(table({row("g", "a", 3.0, 1.0)}), HasSubstr("peer 3x"));
    EXPECT_THAT(table({row("g", "a", 1.05, 1.0, 0.03)}), HasSubstr("level")); // within twice the spread
    EXPECT_THAT(table({row("g", "a", 1.05, 1.0, 0.01)}), HasSubstr("peer 1.05x"));
}

TEST(Report, SaysWhetherAGoalIsMet)
{
    Row r = row("g", "a", 1.0, 4.0);
    r.goal = 0.25;
    EXPECT_FALSE(r.missesGoal());
    EXPECT_THAT(table({r}), AllOf(HasSubstr("0.25 met"), Not(HasSubstr("MISSED"))));
    r.goal = 0.2;
    EXPECT_TRUE(r.missesGoal());
    EXPECT_THAT(table({r}), HasSubstr("0.2 MISSED"));
}

TEST(Report, GivesEachGroupATableWithItsGeometricMeanAndItsWorst)
{
    const std::string text = table({row("first", "a", 1.0, 4.0), row("second", "b", 8.0, 1.0), row("first", "c", 1.0, 1.0)});

    EXPECT_THAT(text, HasSubstr("geometric mean 0.5 over 2, worst 1 (c against peer)"));
    EXPECT_THAT(text, HasSubstr("geometric mean 8 over 1, worst 8 (b against peer)"));
    EXPECT_LT(text.find("first"), text.find("second"));
}

TEST(Report, AFailureStandsWhereTheTimesWouldBeAndIsLeftOutOfTheMean)
{
    Row bad = row("g", "bad", 100.0, 1.0);
    bad.failure = "WRONG ANSWER: differs by 1, allowed 0";
    const std::string text = table({row("g", "a", 1.0, 2.0), bad});

    EXPECT_THAT(text, HasSubstr("WRONG ANSWER: differs by 1, allowed 0"));
    EXPECT_THAT(text, HasSubstr("geometric mean 0.5 over 1"));
}

TEST(Report, ShowsRatesAndTheShareOfTheBandwidth)
{
    Row r = row("g", "a", 1e-3, 2e-3);
    r.items = 2e6;
    r.itemUnit = "points";
    r.bytes = 5e6;
    r.bandwidth = 10e9;
    EXPECT_THAT(table({r}), AllOf(HasSubstr("2000 Mpoints/s"), HasSubstr("5.0"), HasSubstr("50 %"), HasSubstr("1 ms")));
}

TEST(Report, JsonHoldsEveryFigureAndQuotesTexts)
{
    Row r = row("g", "a \"b\"\\", 1.0, 4.0, 0.5);
    r.goal = 1.0;
    r.difference = 1e-16;
    Row bad = row("g", "bad", 1.0, 1.0);
    bad.failure = "failed:\nsecond line";
    bad.difference = std::numeric_limits<double>::quiet_NaN();

    const std::string text = json({r, bad});

    EXPECT_THAT(text, HasSubstr(R"("case": "a \"b\"\\")"));
    EXPECT_THAT(text, HasSubstr(R"("ratio": {"median": 0.25, "mad": 0.5}, "goal": 1, "met": true)"));
    EXPECT_THAT(text, HasSubstr("\"failure\": \"failed: second line\", \"difference\": null}"));
    EXPECT_THAT(text, HasSubstr("\"commit\": \"abc\""));
}

TEST(Report, NamesVersionsAndSaysWhenTheRunWasQuick)
{
    Machine m{"gcc", "-O2", "cpu", 2, "2000-01-01", "abc"};
    std::ostringstream full, quick, quickTable;
    m.versions = {{"qxkernel", "1.2.3"}, {"Peer \"x\"", "4"}};
    writeJson(full, "bench_x", m, {});
    m.quick = true;
    writeJson(quick, "bench_x", m, {});
    printTables(quickTable, m, {});

    EXPECT_THAT(full.str(), HasSubstr(R"("versions": {"qxkernel": "1.2.3", "Peer \"x\"": "4"})"));
    EXPECT_THAT(full.str(), HasSubstr(R"("quick": false)"));
    EXPECT_THAT(quick.str(), HasSubstr(R"("quick": true)"));
    EXPECT_THAT(quickTable.str(), AllOf(HasSubstr("A QUICK RUN"), HasSubstr("qxkernel 1.2.3")));
}

TEST(Report, KnowsTheMachine)
{
    const Machine m = thisMachine("abc");
    EXPECT_FALSE(m.compiler.empty());
    EXPECT_EQ(m.flags, "-O0");
    EXPECT_GE(m.cores, 1);
    EXPECT_EQ(m.commit, "abc");
    EXPECT_EQ(m.date.size(), 10u);
}

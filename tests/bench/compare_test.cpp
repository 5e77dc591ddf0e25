// SPDX-License-Identifier: LicenseRef-qxkernel
// tools/bench-compare: which rows of two runs are named.

#include "examples/program.hpp"
#include "report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace qxbench;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

Row row(const std::string& name, double ratio, double mad, const std::string& peer = "peer")
{
    Row r;
    r.group = "g";
    r.name = name;
    r.peer = peer;
    r.ours = {ratio, mad};
    r.theirs = {1.0, 0.0};
    r.ratio = {ratio, mad};
    r.rounds = 15;
    return r;
}

class BenchCompare : public testing::Test
{
protected:
    std::string write(const std::string& name, const std::vector<Row>& rows, const std::string& program = "bench_x")
    {
        const std::string path = scratch.path(name);
        std::ofstream file(path);
        writeJson(file, program, Machine{"gcc", "-O2", "cpu", 2, "2000-01-01", "abc", false, {{"peer", "1"}}}, rows);
        return path;
    }
    Outcome compare(const std::vector<std::string>& arguments) const { return run(QX_BENCH_COMPARE, arguments); }

    ScratchDirectory scratch;
};

} // namespace

TEST_F(BenchCompare, NamesRowsThatMovedByMoreThanTheirSpread)
{
    const std::string before = write("old.json", {row("slower", 1.0, 0.01), row("faster", 1.0, 0.01), row("noisy", 1.0, 0.2),
                                                  row("still", 1.0, 0.0), row("alone", 2.0, 0.01, "")});
    const std::string after = write("new.json", {row("slower", 1.1, 0.01), row("faster", 0.9, 0.01), row("noisy", 1.3, 0.2),
                                                 row("still", 1.01, 0.0), row("alone", 3.0, 0.01, "")});

    const Outcome o = compare({before, after});

    EXPECT_EQ(o.status, 1) << o.err;
    EXPECT_THAT(o.out, AllOf(HasSubstr("SLOWER   bench_x: g/slower against peer: 1 +- 0.01 -> 1.1 +- 0.01"),
                             HasSubstr("faster   bench_x: g/faster against peer"), HasSubstr("SLOWER   bench_x: g/alone: 2"),
                             Not(HasSubstr("noisy")), Not(HasSubstr("still"))));
}

TEST_F(BenchCompare, IsContentWhenNothingMovedOrBecameFaster)
{
    const std::string before = write("old.json", {row("a", 1.0, 0.01)});
    const std::string after = write("new.json", {row("a", 0.5, 0.01)});

    EXPECT_EQ(compare({before, after}).status, 0);
    const Outcome same = compare({before, before});
    EXPECT_EQ(same.status, 0);
    EXPECT_THAT(same.out, HasSubstr("no row moved"));
}

TEST_F(BenchCompare, NamesRowsThatFailAreNewOrGone)
{
    Row failing = row("fails", 1.0, 0.0);
    failing.failure = "WRONG ANSWER";
    const std::string before = write("old.json", {row("fails", 1.0, 0.0), row("gone", 1.0, 0.0)});
    const std::string after = write("new.json", {failing, row("new", 1.0, 0.0)});

    const Outcome o = compare({before, after});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.out, AllOf(HasSubstr("FAILS    bench_x: g/fails"), HasSubstr("WRONG ANSWER"), HasSubstr("new      bench_x: g/new"),
                             HasSubstr("GONE     bench_x: g/gone")));
}

TEST_F(BenchCompare, MergesProgramsAndReadsFolders)
{
    const std::string x = write("bench_x.json", {row("a", 1.0, 0.01)}), y = write("bench_y.json", {row("b", 1.0, 0.01)}, "bench_y");
    const std::string merged = scratch.path("all.json");
    ASSERT_EQ(compare({"--merge", merged, x, y}).status, 0);

    EXPECT_THAT(ScratchDirectory::read(merged), AllOf(HasSubstr("bench_x"), HasSubstr("bench_y"), HasSubstr("\"cpu\""),
                                                      HasSubstr("\"versions\""), HasSubstr("\"date\"")));
    EXPECT_EQ(compare({merged, merged}).status, 0);
    const Outcome less = compare({merged, x});
    EXPECT_EQ(less.status, 1);
    EXPECT_THAT(less.out, HasSubstr("GONE     bench_y: g/b"));
}

TEST_F(BenchCompare, RefusesWhatIsNoResult)
{
    const std::string bad = scratch.path("bad.json");
    std::ofstream(bad) << "[1, 2]";

    EXPECT_EQ(compare({bad, bad}).status, 2);
    EXPECT_EQ(compare({scratch.path("none.json"), bad}).status, 2);
    EXPECT_EQ(compare({bad}).status, 2);
}

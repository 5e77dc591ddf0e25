// SPDX-License-Identifier: LicenseRef-qxkernel
// Tables from files in the programs that evaluate formulas.

#include "examples/program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::HasSubstr;

namespace {

class Tables : public testing::Test
{
protected:
    ScratchDirectory scratch;
    const std::string points = scratch.file("p.csv", "T,B\n0.5,2\n1,1\n3,4\n");
    const std::string table = scratch.file("t.csv", "T,mu,k\n0,1,10\n1,2,20\n2,5,20\n"); // 1 + T^2
    const std::string grid = scratch.file("g.csv", "x,y,v\n0,0,0\n4,0,4\n0,4,40\n4,4,44\n"); // x + 10 y

    static Outcome evaluate(const std::vector<std::string>& arguments) { return run(QX_EVALUATE, arguments); }
};

} // namespace

TEST_F(Tables, AreFunctionsOfFormulas)
{
    EXPECT_EQ(evaluate({points, "--table", "mu=" + table, "f=mu(T)*B^2"}).out, "f\n6\n2\n80\n");
    EXPECT_EQ(evaluate({points, "--table", "v=" + grid, "v(T,B)"}).out, "\"v(T,B)\"\n20.5\n11\n43\n");
}

TEST_F(Tables, OfSeveralColumnsGiveSeveralFunctions)
{
    EXPECT_EQ(evaluate({points, "--table", "a,b=" + table, "f=a(T)+b(T)"}).out, "f\n16.5\n22\n25\n");
}

TEST_F(Tables, HaveADerivativeByOneColumn)
{
    EXPECT_EQ(evaluate({points, "--table", "mu=" + table + ",cubicspline,linear", "f=mu(T)*B^2", "--gradient", "T"}).out,
              "f,\"d(f,T)\"\n5,4\n2,2\n144,64\n");
}

TEST_F(Tables, TakeWhatHoldsOutside)
{
    const auto last = [&](const std::string& how) {
        const std::string out = evaluate({points, "--table", "mu=" + table + how, "f=mu(T)"}).out;
        return out.substr(out.find_last_of('\n', out.size() - 2) + 1);
    };

    EXPECT_EQ(last(""), "5\n");
    EXPECT_EQ(last(",neighbor"), "5\n");
    EXPECT_EQ(last(",linear,linear"), "8\n");
    EXPECT_EQ(last(",linear,value=-7"), "-7\n");
    EXPECT_EQ(last(",cubicspline,linear"), "9\n");
    EXPECT_EQ(last(",cubicspline,polynomial"), "10\n");
}

TEST_F(Tables, TellTheStoryOfAPointOutside)
{
    const Outcome o = evaluate({points, "--table", "mu=" + table + ",linear,error", "q=2*b", "--define", "b=mu(T)"});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, HasSubstr("fails at " + points + ":4 (T = 3, B = 4)"));
    EXPECT_THAT(o.err, HasSubstr("mu: the argument lies outside its table"));
    EXPECT_THAT(o.err, HasSubstr("in the definition  b = mu(T)"));
}

TEST_F(Tables, AreRefusedInWordsWithFileAndLine)
{
    const auto refusal = [&](const std::string& option) {
        const Outcome o = evaluate({points, "T", "--table", option});
        EXPECT_NE(o.status, 0);
        return o.err;
    };

    EXPECT_THAT(refusal("mu"), HasSubstr("is not NAME=FILE,METHOD,OUTSIDE"));
    EXPECT_THAT(refusal("mu=" + table + ",a,b,c"), HasSubstr("is not NAME=FILE,METHOD,OUTSIDE"));
    EXPECT_THAT(refusal("mu=" + scratch.path("no.csv")), HasSubstr("no.csv: cannot be opened"));
    EXPECT_THAT(refusal("mu=" + scratch.file("bad.csv", "0,1\n1,x\n")), HasSubstr("bad.csv:2: column 2: 'x' is not a number"));
    EXPECT_THAT(refusal("mu=" + scratch.file("down.csv", "0,1\n2,1\n1,1\n")), HasSubstr("down.csv:3: column 1: 1 does not ascend"));
    EXPECT_THAT(refusal("a,b,c=" + table), HasSubstr("2 columns of values, not 3"));
    EXPECT_THAT(refusal("mu=" + table + ",spline"), HasSubstr("there is no interpolation method 'spline'"));
    EXPECT_THAT(refusal("mu=" + table + ",linear,polynomial"), HasSubstr("'polynomial' is nothing that holds outside"));
    EXPECT_THAT(refusal("mu=" + grid + ",cubicspline"), HasSubstr("one coordinate"));
    EXPECT_THAT(refusal("sin=" + table), HasSubstr("there is a function 'sin' already"));
    EXPECT_THAT(refusal("2a=" + table), HasSubstr("'2a' is no name"));
}

TEST_F(Tables, AreDrawnWithTheirPointsAndSlopes)
{
    const std::string line = scratch.file("line.csv", "T\n0\n0.5\n1\n1.5\n2\n");

    EXPECT_EQ(evaluate({line, "--table", "mu,k=" + table + ",piecewisecubic", "mu(T)", "f=2*k(T)", "--gradient", "T", "--curve",
                        scratch.path("c.svg")})
                  .status,
              0);

    const std::string svg = scratch.read(scratch.path("c.svg"));
    EXPECT_THAT(svg, HasSubstr("<circle"));
    EXPECT_THAT(svg, HasSubstr("d(mu(T),T)"));
    EXPECT_THAT(svg, HasSubstr("f = 2*k(T)"));
}

TEST_F(Tables, MakeHeatNonlinear)
{
    // k = 0.6 + 0.02 u from a table of three points and as a formula: Newton's method sees the same derivative.
    const std::string k = scratch.file("k.csv", "u,k\n0,0.6\n50,1.6\n100,2.6\n");
    const std::vector<std::string> rest = {QX_EXAMPLE_DATA "/finned_pipe.msh", "--fixed", "inlet: 80+10*sin(10*y)", "--fixed", "fins: 20"};
    const auto heat = [&](std::vector<std::string> words) {
        words.insert(words.end(), rest.begin(), rest.end());
        const Outcome o = run(QX_HEAT, words);
        EXPECT_EQ(o.status, 0) << o.err;
        return o.out.substr(0, o.out.find("residual")) + o.out.substr(o.out.find("\nu "));
    };

    EXPECT_EQ(heat({"--table", "k=" + k, "--k", "k(u)"}), heat({"--k", "0.6+0.02*u"}));
}

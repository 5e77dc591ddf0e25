// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"
#include "support/csv.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

const std::string kProgram = QX_EVALUATE;
const std::string kPoints = QX_EXAMPLE_DATA "/finned_pipe_points.csv";
const std::string kTriangles = QX_EXAMPLE_DATA "/finned_pipe_triangles.csv";

class Evaluate : public testing::Test
{
protected:
    ScratchDirectory scratch;
    const std::string points = scratch.file("p.csv", "x,y\n1,2\n-3,0.5\n4,4\n");

    static Outcome evaluate(const std::vector<std::string>& arguments) { return run(kProgram, arguments); }

    // The columns of a successful run.
    static examples::Table values(const std::vector<std::string>& arguments)
    {
        const Outcome o = evaluate(arguments);
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_EQ(o.err, "");
        std::istringstream in(o.out);
        return examples::readCsv(in, "output");
    }
};

} // namespace

TEST_F(Evaluate, WritesOneColumnAFormula)
{
    const Outcome o = evaluate({points, "s=x+2*y", "x^2-y", "3"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "s,x^2-y,\"3\"\n5,-1,3\n-2,8.5,3\n12,12,3\n");
}

TEST_F(Evaluate, ReadsWhatItHasWritten)
{
    const std::vector<std::string> formulas{"s=x+2*y", "x^2-y", "3", "max(x,y)", "--gradient", "x,y"};
    std::vector<std::string> words{points};
    words.insert(words.end(), formulas.begin(), formulas.end());
    const examples::Table first = values(words);

    const std::string file = scratch.file("again.csv", evaluate(words).out);
    const examples::Table second = values({file, "t=s+1", "--keep", "s,x^2-y,3"});

    EXPECT_EQ(first.names, (std::vector<std::string>{"s", "d(s,x)", "d(s,y)", "x^2-y", "d(x^2-y,x)", "d(x^2-y,y)", "3",
                                                     "d(3,x)", "d(3,y)", "max(x,y)", "d(max(x,y),x)", "d(max(x,y),y)"}));
    for (const char* name : {"s", "x^2-y", "3"})
        EXPECT_EQ(second.column(name), first.column(name)) << name;
    EXPECT_EQ(second.column("t")[1], first.column("s")[1] + 1);
}

TEST_F(Evaluate, NotANumberHasNoSign)
{
    const std::string file = scratch.file("n.csv", "x,y\n-nan,1\n2,nan\n");

    EXPECT_EQ(evaluate({file, "1", "--keep", "x,y"}).out, "x,y,\"1\"\nnan,1,1\n2,nan,1\n");
}

TEST_F(Evaluate, ColumnsOfOneNameAreRefused)
{
    for (const char* keep : {"x,x", "s"}) {
        const Outcome o = evaluate({points, "s=x", "--keep", keep});
        EXPECT_EQ(o.status, 2) << keep;
        EXPECT_THAT(o.err, StartsWith("evaluate: --keep: "));
    }
}

TEST_F(Evaluate, KeepsColumnsOfTheInput)
{
    EXPECT_EQ(evaluate({points, "s=x*y", "--keep", "y,x"}).out, "y,x,s\n2,1,2\n0.5,-3,-1.5\n4,4,16\n");
}

TEST_F(Evaluate, WritesToAFile)
{
    const Outcome o = evaluate({points, "y", "--output", scratch.path("out.csv")});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(ScratchDirectory::read(scratch.path("out.csv")), "y\n2\n0.5\n4\n");
}

TEST_F(Evaluate, DefinitionsMayUseEachOtherInAnyOrder)
{
    EXPECT_EQ(evaluate({points, "q=a+b", "--define", "a=2*b", "--define=b=x-1"}).out, "q\n0\n-12\n9\n");
}

TEST_F(Evaluate, KnowsPiAndTheImaginaryUnit)
{
    const examples::Table t = values({points, "a=pi", "b=i*i", "c=abs(exp(i*x))"});

    EXPECT_EQ(t.column("a")[0], M_PI);
    EXPECT_EQ(t.column("b")[0], -1.0);
    EXPECT_NEAR(t.column("c")[1], 1.0, 1e-15);
}

TEST_F(Evaluate, ComplexValuesTakeTwoColumns)
{
    EXPECT_EQ(evaluate({points, "z=x+i*y", "w=x", "--complex"}).out,
              "z.re,z.im,w.re,w.im\n1,2,1,0\n-3,0.5,-3,0\n4,4,4,0\n");
}

TEST_F(Evaluate, ATableWithoutRowsGivesAHeader)
{
    EXPECT_EQ(evaluate({scratch.file("e.csv", "x,y\n"), "x*y"}).out, "x*y\n");
}

TEST_F(Evaluate, AgreesWithTheSameFormulasInCOnTheMesh)
{
    const examples::Table in = examples::readCsv(kPoints);
    const std::vector<double>&x = in.column("x"), &y = in.column("y"), &T = in.column("T");

    const examples::Table t = values({kPoints, "k=400*(1-0.0004*(T-20))", "w=sin(3*x)*exp(-y^2)+sqrt(x^2+y^2+1)",
                                      "s=(y>0.1)*T+min(x,y)"});

    ASSERT_EQ(t.rows(), in.rows());
    for (std::size_t i = 0; i < t.rows(); ++i) {
        const double w = std::sin(3 * x[i]) * std::exp(-y[i] * y[i]) + std::sqrt(x[i] * x[i] + y[i] * y[i] + 1);
        EXPECT_NEAR(t.column("k")[i], 400 * (1 - 0.0004 * (T[i] - 20)), 1e-12);
        EXPECT_NEAR(t.column("w")[i], w, 4e-15);
        EXPECT_EQ(t.column("s")[i], (y[i] > 0.1 ? T[i] : 0.0) + std::min(x[i], y[i]));
    }
}

TEST_F(Evaluate, GradientAddsTheDerivativesByTwoColumns)
{
    EXPECT_EQ(evaluate({points, "f=x^2*y", "g=a", "--define", "a=3*x-y", "--gradient", "x,y"}).out,
              "f,\"d(f,x)\",\"d(f,y)\",g,\"d(g,x)\",\"d(g,y)\"\n2,4,1,1,3,-1\n4.5,-3,9,-9.5,3,-1\n64,32,16,8,3,-1\n");
}

TEST_F(Evaluate, StepsAndBesselFunctionsHaveValuesAndGradients)
{
    const examples::Table in = examples::readCsv(kPoints);
    const std::vector<double>&x = in.column("x"), &y = in.column("y");

    const Outcome o = evaluate({kPoints, "J=besselj(1,20*x*x)", "s=qxc1hs(y-0.1,0.05)", "--gradient", "x,y"});
    ASSERT_EQ(o.status, 0) << o.err;
    std::istringstream out(o.out);
    const examples::Table t = examples::readCsv(out, "output");

    ASSERT_EQ(t.rows(), in.rows());
    for (std::size_t i = 0; i < t.rows(); ++i) {
        const double u = 20 * x[i] * x[i], q = (y[i] - 0.1) / 0.05;
        EXPECT_NEAR(t.column("J")[i], j1(u), 1e-14);
        EXPECT_NEAR(t.column("d(J,x)")[i], (j0(u) - jn(2, u)) / 2 * 40 * x[i], 1e-13);
        EXPECT_EQ(t.column("d(J,y)")[i], 0.0);
        const bool inside = std::fabs(q) < 1;
        EXPECT_NEAR(t.column("s")[i], inside ? 0.5 + 0.75 * q - 0.25 * q * q * q : q > 0, 1e-14);
        EXPECT_NEAR(t.column("d(s,y)")[i], inside ? (0.75 - 0.75 * q * q) / 0.05 : 0.0, 1e-12);
    }
}

TEST_F(Evaluate, SameBitsForAnyThreadsAndBlocks)
{
    const std::vector<std::string> formulas{kPoints, "sin(20*x)*cos(20*y)+log(T)", "T^1.5*exp(-w)"};
    const std::string one = evaluate(formulas).out;
    EXPECT_GT(one.size(), 3895u * 20u);
    for (const auto& [threads, block] : {std::pair("2", "1000"), {"4", "7"}, {"1", "1"}, {"1", "100000"}}) {
        std::vector<std::string> words = formulas;
        words.insert(words.end(), {"--threads", threads, "--block", block});
        EXPECT_EQ(evaluate(words).out, one) << threads << " threads, blocks of " << block;
    }
}

TEST_F(Evaluate, ShowsProgressOnLongTablesWhenAskedForAndElseOnTerminalsOnly)
{
    std::string text = "x\n";
    for (int i = 0; i < 100000; ++i)
        text += std::to_string(i) + "\n";
    const std::string file = scratch.file("long.csv", text);

    const Outcome silent = evaluate({file, "sin(x)"});
    const Outcome asked = evaluate({file, "sin(x)", "--progress"});

    EXPECT_EQ(silent.err, "");
    EXPECT_THAT(asked.err, AllOf(StartsWith("\revaluating ["), testing::EndsWith("] 100 %\n")));
    EXPECT_EQ(asked.out, silent.out);
}

TEST_F(Evaluate, SummaryPrintsSmallestMeanAndLargest)
{
    const Outcome o = evaluate({points, "s=x+2*y", "--summary"});

    EXPECT_THAT(o.out, MatchesRegex("formula +smallest +mean +largest\ns +-2 +5 +12\n"));
    EXPECT_THAT(o.err, HasSubstr("3 points"));
}

TEST_F(Evaluate, AnElementErrorTellsItsWholeStory)
{
    const Outcome o = evaluate({points, "q=2*b", "--define", "a=erf(i*(x+3)*(x-1))", "--define", "b=a+1"});

    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.out, "");
    EXPECT_THAT(o.err, StartsWith("evaluate: formula 'q' fails at " + points + ":4 (x = 4, y = 4)\n  erf: takes real"));
    EXPECT_THAT(o.err, AllOf(HasSubstr("\n  in the definition  a = erf("), HasSubstr("\n  in the definition  b = "),
                             HasSubstr("\n  in the formula     2*b\n")));
    EXPECT_LT(o.err.find("a = erf("), o.err.find("b = "));
}

TEST_F(Evaluate, TheFirstFailingRowIsFoundWhateverTheThreads)
{
    std::string text = "x\n";
    for (int i = 0; i < 5000; ++i)
        text += i == 3210 || i == 4999 ? "nan\n" : "1\n";
    const std::string file = scratch.file("n.csv", text);
    for (const std::string threads : {"1", "3"})
        EXPECT_THAT(evaluate({file, "erf(x)", "--threads", threads, "--block", "100"}).err, HasSubstr("n.csv:3212 (x = nan)"));
}

TEST_F(Evaluate, AComplexValueAmongRealOnesIsAnErrorThatNamesTheRow)
{
    const Outcome o = evaluate({points, "sqrt(x)"});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, HasSubstr("formula 'sqrt(x)' fails at " + points + ":3 (x = -3, y = 0.5)\n  the value is complex: "
                                 "(0+1.7320508075688772*i) (--complex allows"));
}

TEST_F(Evaluate, MistakesInFormulasAreToldInWords)
{
    const struct { std::vector<std::string> words; const char* message; } cases[] = {
        {{points, "z+1"}, "z is neither a column nor a definition"},
        {{points, "q=frob(x)"}, "formula 'q' cannot be read\n  there is no function frob"},
        {{points, "q=sin(x,y)"}, "sin takes another number of arguments"},
        {{points, "q=2*(x"}, "  this is no formula: 2*(x\n                          ^ expected an operator, ',' or ')'"},
        {{points, "q=x+*y"}, "  this is no formula: x+*y\n                        ^ expected a number, a name"},
        {{points, "q=x+\n*y"}, "  this is no formula: x+\n*y\n                      *y\n                      ^ expected a number"},
        {{points, "q="}, "cannot be read"},
        {{points, "x", "--define", "a=)"}, "definition 'a' cannot be read"},
        {{points, "a", "--define", "a=b", "--define", "b=a+1"}, "leads back to itself"},
        {{points, "a", "--define", "a=1", "--define", "a=2"}, "'a' is defined twice"},
        {{points, "x", "--define", "x=1"}, "definition 'x' has the name of a column"},
        {{points, "x", "x"}, "there are two formulas 'x'"},
        {{points, "'text'"}, "a text between quotes can only be an argument of a function"},
    };
    for (const auto& c : cases) {
        const Outcome o = evaluate(c.words);
        EXPECT_EQ(o.status, 1) << c.message;
        EXPECT_EQ(o.out, "");
        EXPECT_THAT(o.err, HasSubstr(c.message));
    }
}

TEST_F(Evaluate, FiftyThousandParenthesesAreReadOrRefused)
{
    const std::string deep = std::string(50000, '(') + "x" + std::string(50000, ')');
    const Outcome o = evaluate({points, "q=" + deep});

    EXPECT_EQ(o.status, 0) << o.err.substr(0, 300);
    EXPECT_EQ(o.out, "q\n1\n-3\n4\n");
}

TEST_F(Evaluate, BadTablesGiveOneLineWithFileAndLine)
{
    const struct { const char* text; const char* message; } cases[] = {
        {"x,y\n1\n", "t.csv:2: 1 field, the header names 2 columns\n"},
        {"x,y\n0,5,1,5\n", "t.csv:2: 4 fields, the header names 2 columns; numbers need a decimal point, and commas between them\n"},
        {"x\none\n", "t.csv:2: 'one' in column 'x' is no number\n"},
        {"", "t.csv: is empty: the first line names the columns\n"},
    };
    for (const auto& c : cases) {
        const std::string file = scratch.file("t.csv", c.text);
        const Outcome o = evaluate({file, "x"});
        EXPECT_EQ(o.status, 1);
        EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
        EXPECT_THAT(o.err, testing::EndsWith(c.message));
    }
    EXPECT_THAT(evaluate({"/nowhere.csv", "x"}).err, StartsWith("evaluate: /nowhere.csv: "));
    EXPECT_THAT(evaluate({points, "x", "--keep", "z"}).err, HasSubstr("p.csv: there is no column 'z'\n"));
}

TEST_F(Evaluate, MistakesOnTheCommandLineEndWithStatusTwo)
{
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {}, {points}, {points, "x", "--what"}, {points, "x", "--threads", "0"}, {points, "x", "--plot", "a.svg"},
             {points, "x", "--define", "2*x"}, {points, "x", "--gradient", "x,y,x"}}) {
        const Outcome o = evaluate(words);
        EXPECT_EQ(o.status, 2) << o.err;
        EXPECT_THAT(o.err, StartsWith("evaluate: "));
    }
    EXPECT_EQ(evaluate({"--help"}).status, 0);
}

TEST_F(Evaluate, DrawsAPictureOfTheField)
{
    const std::string svg = scratch.path("t.svg");

    const Outcome o = evaluate({kPoints, "q=T-22", "--summary", "--plot", svg, "--triangles", kTriangles, "--unit", "K"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(ScratchDirectory::read(svg), AllOf(StartsWith("<svg"), HasSubstr("q = T-22"), HasSubstr("</svg>")));
}

TEST_F(Evaluate, DrawsTheGradientAsArrows)
{
    const auto picture = [&](const std::vector<std::string>& more) {
        std::vector<std::string> words{kPoints, "q=T-22", "--summary", "--plot", scratch.path("g.svg"), "--triangles", kTriangles};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome o = evaluate(words);
        EXPECT_EQ(o.status, 0) << o.err;
        return ScratchDirectory::read(scratch.path("g.svg"));
    };
    const std::string without = picture({}), with = picture({"--gradient", "T,w"}); // d(T-22)/dT = 1: all of one size
    EXPECT_GT(std::count(with.begin(), with.end(), 'M'), std::count(without.begin(), without.end(), 'M') + 100);
}

TEST_F(Evaluate, TrianglesThatNameNoPointAreRefused)
{
    for (const char* bad : {"4", "0", "1.5", "nan", "-1"}) {
        const std::string file = scratch.file("tri.csv", std::string("a,b,c\n1,2,3\n1,2,") + bad + "\n");
        const Outcome o = evaluate({points, "x", "--plot", scratch.path("a.svg"), "--triangles", file});
        EXPECT_EQ(o.status, 1);
        EXPECT_THAT(o.err, HasSubstr("tri.csv:3: " + std::string(bad) + " is no row of "));
    }
}

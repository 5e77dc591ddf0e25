// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::HasSubstr;

namespace {

const std::string kMisra = QX_EXAMPLE_DATA "/misra1a.csv";

Outcome optimise(const std::vector<std::string>& arguments) { return run(QX_OPTIMISE, arguments); }

/// The number behind the first occurrence of a text.
double numberAfter(const std::string& text, const std::string& key)
{
    const std::size_t at = text.find(key);
    EXPECT_NE(at, std::string::npos) << key << " in " << text;
    return at == std::string::npos ? 0.0 : std::stod(text.substr(at + key.size()));
}

TEST(Optimise, PrintsVariablesConstraintsAndWhatHoldsThem)
{
    // By hand: x = (3/2, 1/2), the constraint costs 1 a unit.
    const Outcome o = optimise({"--minimise", "(x-2)^2+(y-1)^4/2+(y-1)^2/2", "--variables", "x=0, y=0 in [1,3]", "--subject-to",
                                "x+y<=2"});

    // With y = 1 at its bound: x = 1, multiplier of the constraint -2, of y: 0 - (-2) = 2.
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("Optimality conditions satisfied."));
    EXPECT_NEAR(numberAfter(o.out, "minimum  "), 1, 1e-6);
    EXPECT_THAT(o.out, AllOf(HasSubstr("lower bound  multiplier 2\n"), HasSubstr("upper bound  multiplier -2\n")));
}

TEST(Optimise, MaximisesWithMultipliersOfTheUsersOwnSign)
{
    // x y under x + 2 y <= 4: (2, 1), and one more unit of 4 would gain 1.
    const Outcome o = optimise({"--maximise", "x*y", "--variables", "x in [0,3], y in [0,4]", "--subject-to", "x+2*y<=4",
                                "--json"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("\"solved\": true"));
    EXPECT_NEAR(numberAfter(o.out, "\"value\": "), 2, 1e-6);
    EXPECT_NEAR(numberAfter(o.out.substr(o.out.find("constraints")), "\"multiplier\": "), 1, 1e-6);
}

TEST(Optimise, KnowsDefinitionsAndQuadraticProblems)
{
    const Outcome o = optimise({"--minimise", "d2", "--define", "d2=(x-3)^2+y^2", "--variables", "x,y", "--subject-to", "x+y=1"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NEAR(numberAfter(o.out, "minimum  "), 2, 1e-6);
    EXPECT_THAT(o.out, HasSubstr("quadratic problem"));
}

TEST(Optimise, ChecksGradients)
{
    const Outcome o = optimise({"--minimise", "sin(x)*exp(y)", "--variables", "x=1,y=2", "--check"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_LT(numberAfter(o.out, "and differences "), 1e-6);
}

TEST(Optimise, DrawsProblemsOfTwoVariables)
{
    const ScratchDirectory scratch;
    const Outcome o = optimise({"--minimise", "100*(y-x^2)^2+(1-x)^2", "--variables", "x=-1.2, y=1 in [0,2]", "--subject-to",
                                "x^2+y^2<=2", "--plot", scratch.path("p.svg")});

    EXPECT_EQ(o.status, 0) << o.err;
    const std::string svg = ScratchDirectory::read(scratch.path("p.svg"));
    EXPECT_THAT(svg, AllOf(HasSubstr("<svg"), HasSubstr("</svg>"), HasSubstr("grey: forbidden")));
    EXPECT_EQ(optimise({"--minimise", "x^2", "--variables", "x=1", "--plot", scratch.path("q.svg")}).status, 2);
}

TEST(Optimise, WritesTheOptimizersProtocol)
{
    const ScratchDirectory scratch;

    EXPECT_EQ(optimise({"--minimise", "x^4", "--variables", "x=1", "--print", scratch.path("log")}).status, 0);

    EXPECT_THAT(ScratchDirectory::read(scratch.path("log")), HasSubstr("exit 1 after"));
}

TEST(Optimise, ProgressGoesToTheErrorStream)
{
    const Outcome o = optimise({"--minimise", "x^4", "--variables", "x=1", "--progress"});

    EXPECT_EQ(o.status, 0);
    EXPECT_THAT(o.err, HasSubstr("     0                   1  violation 0.00e+00\n     1  "));
}

TEST(Optimise, AnInterruptGivesTheBestPointSoFar)
{
    // A run that takes long: 400 coupled variables, far from the answer.
    std::string f, variables;
    for (int k = 1; k <= 400; ++k) {
        const std::string x = "x" + std::to_string(k), next = "x" + std::to_string(k + 1);
        f += (k > 1 ? "+" : "") + ("100*(" + next + "-" + x + "^2)^2+(1-" + x + ")^2");
        variables += x + "=-1.2,";
    }
    const Outcome o = runOnTerminal(QX_OPTIMISE, {"--minimise", f, "--variables", variables + "x401=1", "--progress",
                                                  "--iterations", "100000", "--tolerance", "1e-14"},
                                    "    40 ", "\x03");

    EXPECT_EQ(o.status, 3);
    EXPECT_THAT(o.out, HasSubstr("Cancelled; the best point so far."));
}

TEST(Optimise, TellsWhyAFormulaCannotBeUsed)
{
    const struct { std::vector<std::string> arguments; const char* text; int status; } cases[] = {
        {{"--minimise", "x+q", "--variables", "x"}, "q is neither a column nor a definition", 1},
        {{"--minimise", "x+(", "--variables", "x"}, "this is no formula: x+(", 1},
        {{"--minimise", "x", "--variables", "x=1 in [2"}, "a range is [low,high]", 2},
        {{"--minimise", "x", "--variables", "x", "--subject-to", "x"}, "a constraint is two formulas", 2},
        {{"--minimise", "x"}, "--variables is needed", 2},
        {{"--variables", "x"}, "either --minimise, --maximise or --fit", 2},
        {{"--fit", kMisra, "--variables", "b"}, "--fit and --model need each other", 2},
        {{"--fit", kMisra, "--model", "b", "--variables", "b"}, "which column was observed, x or y?", 2},
        {{"--fit", kMisra, "--model", "x+y", "--variables", "x"}, "all columns", 2},
        {{"--fit", "no.csv", "--model", "x", "--variables", "b"}, "no.csv", 1},
    };
    for (const auto& [arguments, text, status] : cases) {
        const Outcome o = optimise(arguments);

        EXPECT_EQ(o.status, status) << text;
        EXPECT_THAT(o.err, HasSubstr(text));
    }
}

TEST(Optimise, ProblemsWithoutAnAnswerSaySo)
{
    const Outcome infeasible = optimise({"--minimise", "x", "--variables", "x in [0,1]", "--subject-to", "x>=2"}),
                  unbounded = optimise({"--minimise", "-x", "--variables", "x in [0,inf]"}),
                  undefined = optimise({"--minimise", "log(x)", "--variables", "x=-1"});

    for (const Outcome* o : {&infeasible, &unbounded, &undefined})
        EXPECT_EQ(o->status, 3);
    EXPECT_THAT(infeasible.out, AllOf(HasSubstr("Infeasible linear constraints."), HasSubstr("largest violation")));
    EXPECT_THAT(unbounded.out, HasSubstr("Unbounded objective."));
    EXPECT_THAT(undefined.out, HasSubstr("Undefined function at the initial point."));
}

// Statistical Reference Datasets of NIST, nonlinear regression, Misra1a: certified to eleven digits.
TEST(OptimiseFit, HasTheCertifiedValuesFromBothStarts)
{
    for (const char* start : {"b1=500, b2=0.0001", "b1=250, b2=0.0005"}) {
        const Outcome o = optimise({"--fit", kMisra, "--model", "b1*(1-exp(-b2*x))", "--variables", start, "--json"});

        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_NEAR(numberAfter(o.out, "\"name\": \"b1\", \"value\": "), 2.3894212918e2, 1e-3);
        EXPECT_NEAR(numberAfter(o.out, "\"name\": \"b2\", \"value\": "), 5.5015643181e-4, 5e-9);
        EXPECT_NEAR(numberAfter(o.out, "\"error\": "), 2.7070075241, 1e-3);
        EXPECT_NEAR(numberAfter(o.out.substr(o.out.find("\"name\": \"b2\"")), "\"error\": "), 7.2668688436e-6, 5e-9);
        EXPECT_NEAR(numberAfter(o.out, "\"sum\": "), 1.2455138894e-1, 1e-8);
        EXPECT_NEAR(numberAfter(o.out, "\"deviation\": "), 1.0187876330e-1, 1e-7);
        EXPECT_EQ(numberAfter(o.out, "\"degreesOfFreedom\": "), 12);
    }
}

TEST(OptimiseFit, WeightsCountLikeRepeatedRows)
{
    const ScratchDirectory scratch;
    const std::string weighted = scratch.file("w.csv", "t,y,w\n0,1,1\n1,3,2\n2,4,1\n"),
                      repeated = scratch.file("r.csv", "t,y\n0,1\n1,3\n1,3\n2,4\n");
    const std::vector<std::string> line = {"--model", "a+b*t", "--variables", "a=1,b=1", "--json"};
    const auto with = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), line.begin(), line.end());
        return optimise(arguments).out;
    };

    const std::string w = with({"--fit", weighted, "--weights", "w"}), r = with({"--fit", repeated});

    // Normal equations by hand: 4 a + 4 b = 11, 4 a + 6 b = 14.
    for (const std::string* out : {&w, &r}) {
        EXPECT_NEAR(numberAfter(*out, "\"name\": \"a\", \"value\": "), 1.25, 1e-6);
        EXPECT_NEAR(numberAfter(*out, "\"name\": \"b\", \"value\": "), 1.5, 1e-6);
        EXPECT_NEAR(numberAfter(*out, "\"sum\": "), 0.25, 1e-9);
    }
}

TEST(OptimiseFit, DrawsTheCurveAndRespectsRanges)
{
    const ScratchDirectory scratch;
    const Outcome o = optimise({"--fit", kMisra, "--model", "b1*(1-exp(-b2*x))", "--variables",
                                "b1=200 in [0,220], b2=0.0005", "--plot", scratch.path("f.svg")});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NEAR(numberAfter(o.out, "b1  "), 220, 1e-3);
    EXPECT_THAT(ScratchDirectory::read(scratch.path("f.svg")), AllOf(HasSubstr("<path"), HasSubstr("R^2 = 0.99")));
}

TEST(OptimiseFit, DrawsASmoothCurveWhereTheModelNeedsOneColumn)
{
    const ScratchDirectory scratch;
    const std::string data = scratch.file("d.csv", "t,u,y\n0,1,1\n1,2,3\n2,1,4\n");
    const auto segments = [&](const std::string& model) {
        const Outcome o = optimise({"--fit", data, "--model", model, "--observed", "y", "--variables", "a=1,b=1", "--plot",
                                    scratch.path("f.svg")});
        EXPECT_EQ(o.status, 0) << o.err;
        const std::string svg = ScratchDirectory::read(scratch.path("f.svg"));
        const std::size_t path = svg.find(" d=\"", svg.find("stroke=\"#d40000\""));
        const std::string points = svg.substr(path, svg.find("/>", path) - path);
        return std::count(points.begin(), points.end(), 'L');
    };

    EXPECT_EQ(segments("a+b*t"), 400);
    EXPECT_EQ(segments("a*u+b*t"), 2) << "the values at the data, where u is known";
}

TEST(OptimiseFit, ParametersThatTheDataDoNotDetermineHaveNoErrors)
{
    const Outcome o = optimise({"--fit", kMisra, "--model", "(a+b)*x", "--variables", "a=1,b=1", "--json"});

    EXPECT_THAT(o.out, HasSubstr("\"error\": null"));
}

} // namespace

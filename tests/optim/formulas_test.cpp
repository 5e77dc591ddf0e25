// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimise/solve.hpp"

#include "optimstate.hpp"
#include "qxexception.hpp"
#include "support/csv.hpp"
#include "support/options.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

// Optimisation of formulas by the code of the example, with the gradients of the evaluation graph.

namespace {

using namespace examples;

struct Reference
{
    int number = 0;
    Problem problem;
    double optimum = 0.0;
    std::vector<double> locals;
};

double numberOf(const std::string& formula)
{
    const Graph graph({"unused"}, {});
    return constantValue(graph, graph.read(formula));
}

std::vector<Reference> readReferences()
{
    std::vector<Reference> all;
    std::ifstream in(QX_REFERENCE_DIR "/hock_schittkowski.txt");
    for (std::string line; std::getline(in, line);) {
        const std::size_t blank = line.find(' ');
        if (line.empty() || line[0] == '#' || blank == std::string::npos)
            continue;
        const std::string word = line.substr(0, blank), rest = line.substr(blank + 1);
        if (word == "problem") {
            all.emplace_back();
            all.back().number = std::stoi(rest);
            continue;
        }
        Reference& r = all.back();
        if (word == "minimise")
            r.problem.objective = rest;
        else if (word == "variables")
            r.problem.variables = parseVariables(rest);
        else if (word == "subject-to")
            r.problem.constraints.push_back(parseConstraint(rest));
        else if (word == "define")
            r.problem.definitions[rest.substr(0, rest.find('='))] = rest.substr(rest.find('=') + 1);
        else if (word == "optimum")
            r.optimum = numberOf(rest);
        else if (word == "local")
            r.locals.push_back(numberOf(rest));
        else
            ADD_FAILURE() << line;
    }
    return all;
}

class FormulaOptimum : public testing::Test
{
protected:
    FormulaOptimum() { OptimState::setLibraryPath(QX_OPTIMIZER_FOLDER); }

    static bool isNear(double f, double wanted) { return std::fabs(f - wanted) <= 1e-6 * std::max(1.0, std::fabs(wanted)); }
};

/// How far a point is from the conditions of optimality, by the multipliers that came with it: the gradient of the
/// Lagrangian, and multipliers of bounds and constraints that are not active or push the wrong way.
double stationarity(const Model& model, const Solution& s)
{
    const auto& variables = model.problem().variables;
    const double sign = model.problem().maximise ? -1.0 : 1.0;
    std::vector<double> lagrangian, g;
    EXPECT_TRUE(model.gradientOf(0, s.x.data(), lagrangian));
    double scale = 1.0, worst = 0.0;
    for (const double d : lagrangian)
        scale = std::max(scale, std::fabs(d));
    const auto check = [&](double multiplier, double value, double low, double high) {
        const double near = 1e-4 * std::max(1.0, std::fabs(value));
        const double pushed = sign * multiplier;
        if (value - low > near)
            worst = std::max(worst, pushed);
        if (high - value > near)
            worst = std::max(worst, -pushed);
    };
    for (std::size_t i = 1; i < model.rows().size(); ++i) {
        EXPECT_TRUE(model.gradientOf(static_cast<int>(i), s.x.data(), g));
        for (std::size_t j = 0; j < g.size(); ++j)
            lagrangian[j] -= s.multiplier[i] * g[j];
        check(s.multiplier[i], s.F[i], model.rows()[i].low, model.rows()[i].high);
    }
    for (std::size_t j = 0; j < variables.size(); ++j) {
        worst = std::max(worst, std::fabs(lagrangian[j] - s.xMultiplier[j]));
        check(s.xMultiplier[j], s.x[j], variables[j].low, variables[j].high);
    }
    return worst / scale;
}

TEST_F(FormulaOptimum, CollectionHasItsPublishedOptima)
{
    const std::vector<Reference> all = readReferences();
    ASSERT_GE(all.size(), 60u);
    std::string elsewhere;
    for (const Reference& r : all) {
        const Model model(r.problem);

        const Solution s = solveFrom(model, {}, model.start());

        ASSERT_FALSE(s.F.empty());
        const bool local = std::any_of(r.locals.begin(), r.locals.end(), [&](double f) { return isNear(s.F[0], f); });
        if (local && !isNear(s.F[0], r.optimum)) {
            elsewhere += " " + std::to_string(r.number);
            SolveOptions several;
            several.starts = 20;
            EXPECT_TRUE(isNear(solve(model, several).F[0], r.optimum)) << "problem " << r.number << " from 20 starts";
        }
        EXPECT_TRUE(isNear(s.F[0], r.optimum) || local)
            << "problem " << r.number << ": " << toText(s.F[0]) << " instead of " << toText(r.optimum) << ", " << s.exit;
        EXPECT_LE(s.violation, 1e-6) << "problem " << r.number;
        EXPECT_LE(stationarity(model, s), 1e-5) << "problem " << r.number;
    }
    RecordProperty("ended_in_another_local_optimum", elsewhere);
    std::cout << all.size() << " problems; another local optimum:" << (elsewhere.empty() ? " none" : elsewhere) << '\n';
}

TEST_F(FormulaOptimum, WarmStartsEndInTheSamePlace)
{
    for (const Reference& r : readReferences()) {
        if (r.number % 3 != 0)
            continue;
        const Model model(r.problem);
        const Solution cold = solveFrom(model, {}, model.start());

        const Solution warm = solveFrom(model, {}, cold.x, &cold);

        EXPECT_NEAR(warm.F[0], cold.F[0], 2e-6 * std::max(1.0, std::fabs(cold.F[0]))) << "problem " << r.number;
        EXPECT_LE(warm.violation, 1e-6) << "problem " << r.number;
    }
}

TEST_F(FormulaOptimum, MaximisingTheNegativeIsMinimising)
{
    for (const Reference& r : readReferences()) {
        if (r.number % 7 != 0)
            continue;
        Problem negative = r.problem;
        negative.objective = "-(" + negative.objective + ")";
        negative.maximise = true;
        const Model model(negative), original(r.problem);

        const Solution s = solveFrom(model, {}, model.start()), o = solveFrom(original, {}, original.start());

        EXPECT_NEAR(s.F[0], -o.F[0], 2e-6 * std::max(1.0, std::fabs(o.F[0]))) << "problem " << r.number;
        EXPECT_LE(stationarity(model, s), 1e-5) << "problem " << r.number;
    }
}

TEST_F(FormulaOptimum, QuadraticProblemsAreRecognisedAndAgreeWithTheGeneralWay)
{
    int recognised = 0;
    for (const Reference& r : readReferences()) {
        const Model model(r.problem);
        if (!model.isQuadratic())
            continue;
        ++recognised;
        SolveOptions general;
        general.general = true;

        const Solution s = solveFrom(model, {}, model.start()), g = solveFrom(model, general, model.start());

        if (s.quadratic) { // a convex one
            EXPECT_NEAR(s.F[0], g.F[0], 2e-6 * std::max(1.0, std::fabs(g.F[0]))) << "problem " << r.number;
        }
        EXPECT_LE(stationarity(model, s), 1e-5) << "problem " << r.number;
    }
    EXPECT_GE(recognised, 10); // 3, 21, 28, 35, 44, 48, 51, 52, 53, 76
}

// --- The model -------------------------------------------------------------------------------------------------------------

Problem problemOf(const std::string& objective, const std::string& variables, const std::vector<std::string>& constraints = {})
{
    Problem p;
    p.objective = objective;
    p.variables = parseVariables(variables);
    for (const std::string& c : constraints)
        p.constraints.push_back(parseConstraint(c));
    return p;
}

TEST(FormulaModel, GradientsAgreeWithDifferences)
{
    for (const Reference& r : readReferences()) {
        const GradientCheck check = checkGradient(Model(r.problem));

        EXPECT_LE(check.worst, 1e-5) << "problem " << r.number << " row " << check.row << " column " << check.column;
    }
}

TEST(FormulaModel, GradientsOfAllKindsOfFunctions)
{
    const char* formulas[] = {"exp(x*y)/(1+x^2)",        "atan2(y,x)+sqrt(x^2+y^2)", "log(x)*y^x",
                              "tanh(x-y)*abs(x+2*y)",     "besselj(0,x)*erf(y)",      "x^3/y^2-acos(x/10)",
                              "d(x^3*y,x)*y",             "sinh(x)/cosh(y)+asinh(x*y)"};
    for (const char* formula : formulas) {
        const GradientCheck check = checkGradient(Model(problemOf(formula, "x=1.3, y=0.7")));

        EXPECT_LE(check.worst, 1e-6) << formula;
    }
}

TEST(FormulaModel, ComplexNumbersOnTheWayToRealValuesAreTaken)
{
    const Graph graph({"x", "y"}, {});
    const auto values = makeValues(graph, {graph.read("abs(x+i*y)"), graph.read("x")});
    const double x[] = {3, 4};
    double out[2];

    EXPECT_TRUE(values->at(x, out));

    EXPECT_THAT(out, testing::ElementsAre(5, 3));
    EXPECT_FALSE(makeValues(graph, {graph.read("x+i*y")})->at(x, out));
}

TEST(FormulaModel, LinearPartsAreFound)
{
    // Row 0: 3 x is linear in it, y^2 is not. Row 1 is linear. Row 2: x*y, and z with a constant factor.
    const Model model(problemOf("3*x+y^2", "x=1, y=2, z=3", {"x+2*z<=1", "x*y+2*pi*z>=0"}));

    std::vector<std::tuple<int, int, double>> linear;
    for (const Entry& e : model.linear())
        linear.emplace_back(e.row, e.column, e.value);
    EXPECT_THAT(linear, testing::ElementsAre(std::tuple(0, 0, 3.0), std::tuple(1, 0, 1.0), std::tuple(1, 2, 2.0),
                                             std::tuple(2, 2, 2 * M_PI)));
    EXPECT_EQ(model.nonlinear().size(), 3u);
    EXPECT_FALSE(model.isQuadratic());
    std::vector<double> F;
    EXPECT_TRUE(model.total(model.start().data(), F));
    EXPECT_THAT(F, testing::ElementsAre(7, 7, testing::DoubleNear(2 + 6 * M_PI, 1e-12)));
}

TEST(FormulaModel, SecondDerivativesOfAQuadraticObjective)
{
    const Model model(problemOf("x^2+3*x*y-y*2", "x=1, y=2", {"x+y<=3"}));

    EXPECT_TRUE(model.isQuadratic());
    std::vector<std::tuple<int, int, double>> hessian;
    for (const Entry& e : model.hessian())
        hessian.emplace_back(e.row, e.column, e.value);
    EXPECT_THAT(hessian, testing::UnorderedElementsAre(std::tuple(0, 0, 2.0), std::tuple(0, 1, 3.0), std::tuple(1, 0, 3.0)));
}

TEST(FormulaModel, UndefinedPointsAreNoValues)
{
    const Model model(problemOf("sqrt(x)+1/y", "x=1, y=1"));
    double F[1], G[2];

    for (const auto& x : {std::vector<double>{-1, 1}, {1, 0}})
        EXPECT_FALSE(model.evaluate(x.data(), F, G));
    const std::vector<double> good = {4, 0.5};
    EXPECT_TRUE(model.evaluate(good.data(), F, G));
    EXPECT_EQ(F[0], 4);
    EXPECT_THAT(G, testing::ElementsAre(0.25, -4));
}

TEST(FormulaModel, BadInputIsRefused)
{
    for (const char* typed : {"", "1x=2", "x=", "x=a", "x in [1,0]", "x in [1]", "x=1,x=2", "x in [a,b]"})
        EXPECT_THROW(parseVariables(typed), UsageError) << typed;
    for (const char* typed : {"", "x", "x<=", "<=1", "x=1=2", "1<=x>=2", "1<=x<=2<=3"})
        EXPECT_THROW(parseConstraint(typed), UsageError) << typed;
    EXPECT_THROW(Model(problemOf("x+(", "x")), qxbase::Exception);
    EXPECT_THROW(Model(problemOf("x", "x", {"x<=log(0)"})), qxbase::Exception);
    EXPECT_THROW(Model(problemOf("x", "x, y", {"x<=y<=x"})), qxbase::Exception);
}

TEST(FormulaModel, ConstraintsWithVariablesOnBothSides)
{
    const Model model(problemOf("x", "x=1, y=2", {"x^2<=y", "y>=x", "x=y"}));
    std::vector<double> F;

    EXPECT_TRUE(model.total(model.start().data(), F));

    EXPECT_THAT(F, testing::ElementsAre(1, -1, 1, -1));
    EXPECT_EQ(model.rows()[1].high, 0);
    EXPECT_EQ(model.rows()[2].low, 0);
    EXPECT_EQ(model.rows()[3].low, 0);
    EXPECT_EQ(model.rows()[3].high, 0);
    EXPECT_EQ(model.violation(F), 1);
}

/// sum of (x_k - 1)^2, coupled by (x_{k+1} - x_k^2)^2.
Problem chain(int n)
{
    Problem p;
    std::ostringstream f;
    for (int k = 1; k <= n; ++k)
        f << (k > 1 ? "+" : "") << "(x" << k << "-1)^2";
    for (int k = 1; k < n; ++k)
        f << "+0.1*(x" << k + 1 << "-x" << k << "^2)^2";
    p.objective = f.str();
    for (int k = 1; k <= n; ++k)
        p.variables.push_back({"x" + std::to_string(k), 0.5});
    return p;
}

TEST(FormulaModel, GradientsGrowLinearlyWithTheNodesOfTheFormula)
{
    const auto nodes = [](int n) {
        const Problem p = chain(n);
        std::vector<std::string> names;
        for (const Variable& v : p.variables)
            names.push_back(v.name);
        const Graph graph(names, {});
        std::vector<EvalNodePtr> roots;
        for (const auto& [column, derivative] : graph.gradient(graph.read(p.objective)))
            roots.push_back(derivative);
        EXPECT_EQ(roots.size(), static_cast<std::size_t>(n));
        return static_cast<double>(graph.nodesOf(roots).size());
    };

    const double few = nodes(100), many = nodes(1000);

    EXPECT_LE(std::log(many / few) / std::log(10.0), 1.1);
}

#ifdef QX_SANITIZED
constexpr int kMany = 1000; // an instrumented program would take minutes
#else
constexpr int kMany = 10000;
#endif

TEST_F(FormulaOptimum, ManyVariables)
{
    const Model model(chain(kMany));

    const Solution s = solve(model, {});

    EXPECT_TRUE(s.solved) << s.exit;
    EXPECT_NEAR(s.F[0], 0, 1e-6);
    EXPECT_LE(stationarity(model, s), 1e-5);
}

TEST_F(FormulaOptimum, SeveralStartsFindTheBestOfTheirEnds)
{
    SolveOptions one, many;
    many.starts = 12;
    const Model model(problemOf("sin(3*x)+0.1*x^2", "x=4 in [-10,10]"));

    const Solution single = solve(model, one), best = solve(model, many);

    EXPECT_LT(best.F[0], single.F[0] - 0.1);
    EXPECT_NEAR(best.x[0], -0.5122, 1e-3); // 3 cos(3x) + x/5 = 0 next to -pi/6
}

TEST_F(FormulaOptimum, CancelGivesTheBestPointSoFar)
{
    qxutil::RunInfo run;
    SolveOptions options;
    options.run = &run;
    std::vector<double> seen;
    options.progress = [&](long count, double f, double) {
        seen.push_back(f);
        if (count == 8)
            run.cancel();
    };
    const Model model(problemOf("100*(y-x^2)^2+(1-x)^2", "x=-1.2, y=1"));

    const Solution s = solve(model, options);

    EXPECT_TRUE(s.cancelled);
    EXPECT_FALSE(s.solved);
    EXPECT_LE(s.F[0], *std::min_element(seen.begin(), seen.end()));
    EXPECT_EQ(seen.size(), 9u) << "the start and eight iterations";
}

TEST_F(FormulaOptimum, UndefinedRegionsAreAvoided)
{
    const Model model(problemOf("x-log(x)", "x=5"));

    const Solution s = solve(model, {});

    EXPECT_TRUE(s.solved);
    EXPECT_NEAR(s.x[0], 1, 1e-5);
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
// Values, gradients, patterns.

#include "formulas.hpp"

#include "formulas/points.hpp"
#include "support/failure.hpp"
#include "support/threads.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <omp.h>
#include <random>
#include <thread>

using namespace qxtest;

namespace {

/// The program in the documentation of the header.
struct Wave
{
    qx::Formulas f{{"x", "y", "a"}};
    qx::Formula wave;
    qx::Program program = make();

    qx::Program make()
    {
        f.define("r", "sqrt(x^2+y^2)");
        wave = f.add("exp(-r^2)*sin(a*x)");
        return f.compile();
    }
};

} // namespace

TEST(Program, EvaluatesAFormulaOverPoints)
{
    const Wave w;
    const std::size_t n = 2500; // two blocks and a half
    const std::vector<double> x = ramp(n, -1, 2), y = ramp(n, 0.5, 1.5);
    std::vector<double> out(n);
    qx::Points p(n);
    p.set("x", x).set("y", y).set("a", 3.0);

    const qx::Failures failures = w.program.evaluate(p, w.wave, out);

    EXPECT_EQ(failures.count, 0u);
    for (std::size_t i = 0; i < n; ++i)
        ASSERT_NEAR(out[i], std::exp(-x[i] * x[i] - y[i] * y[i]) * std::sin(3 * x[i]), 1e-15) << i;
}

TEST(Program, DifferentiatesByVariables)
{
    const Wave w;
    const std::size_t n = 300;
    const std::vector<double> x = ramp(n, -1, 2), y = ramp(n, 0.5, 1.5);
    std::vector<double> out(n), dx(n), dy(n);
    qx::Points p(n);
    p.set("x", x).set("y", y).set("a", 3.0);

    w.program.gradient(p, w.wave, out, {{"x", dx}, {"y", dy}});

    for (std::size_t i = 0; i < n; ++i) {
        const double e = std::exp(-x[i] * x[i] - y[i] * y[i]), s = std::sin(3 * x[i]), c = std::cos(3 * x[i]);
        ASSERT_NEAR(out[i], e * s, 1e-15) << i;
        ASSERT_NEAR(dx[i], e * (3 * c - 2 * x[i] * s), 1e-14) << i;
        ASSERT_NEAR(dy[i], -2 * y[i] * e * s, 1e-14) << i;
    }
}

TEST(Program, DifferentiatesWithoutTheValueAsWell)
{
    const Wave w;
    const std::vector<double> x{0.0};
    std::vector<double> dx(1);
    qx::Points p(1);
    p.set("x", x).set("y", 1.0).set("a", 3.0);

    w.program.gradient(p, w.wave, std::span<double>(), {{"x", dx}});

    EXPECT_NEAR(dx[0], 3 * std::exp(-1.0), 1e-15); // d/dx of e^(-x^2-1) sin 3x at 0
}

TEST(Program, GivesADerivativeOf0WhereAFormulaDoesNotDepend)
{
    const std::vector<double> x = ramp(10, 0, 1);
    std::vector<double> out(10, 7.0);
    qx::Formulas f({"x", "y"});
    const qx::Formula formula = f.add("x^2");
    qx::Points p(10);
    p.set("x", x);

    f.compile().gradient(p, formula, std::span<double>(), {{"y", out}});

    EXPECT_EQ(out, std::vector<double>(10, 0.0));
}

TEST(Program, EvaluatesFormulasTogetherToTheSameBitsAsAlone)
{
    const std::size_t n = 1700;
    const std::vector<double> x = ramp(n, 0.1, 4);
    qx::Formulas f({"x"});
    f.define("s", "sin(x)^2+x");
    const qx::Formula a = f.add("exp(s)/s"), b = f.add("log(s)*exp(s)"), c = f.add("7"), d = f.add("x");
    const qx::Program program = f.compile();
    std::vector<double> out[8];
    for (auto& o : out)
        o.resize(n);
    qx::Points p(n);
    p.set("x", x);

    program.evaluate(p, {{a, out[0]}, {b, out[1]}, {c, out[2]}, {d, out[3]}});
    const qx::Formula each[] = {a, b, c, d};
    for (std::size_t k = 0; k < 4; ++k)
        program.evaluate(p, each[k], out[k + 4]);

    for (std::size_t k = 0; k < 4; ++k)
        EXPECT_EQ(std::memcmp(out[k].data(), out[k + 4].data(), n * sizeof(double)), 0) << k;
    EXPECT_EQ(out[2], std::vector<double>(n, 7.0));
    EXPECT_EQ(out[3], x);
}

TEST(Program, EvaluatesInComplexNumbers)
{
    const std::size_t n = 1200;
    std::vector<cplx> z(n), out(n);
    for (std::size_t i = 0; i < n; ++i)
        z[i] = std::polar(1.0 + 1e-3 * static_cast<double>(i), 0.01 * static_cast<double>(i));
    qx::Formulas f({"z", "x"});
    const qx::Formula formula = f.add("z^2+i*x");
    qx::Points p(n);
    p.set("z", z).set("x", 2.0);

    f.compile().evaluate(p, formula, out);

    for (std::size_t i = 0; i < n; ++i)
        ASSERT_LT(std::abs(out[i] - (z[i] * z[i] + cplx(0, 2))), 1e-14) << i;
}

TEST(Program, WritesRealValuesToComplexTargets)
{
    const std::vector<double> x = ramp(20, 1, 2);
    std::vector<cplx> out(20);
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add("-x");
    qx::Points p(20);
    p.set("x", x);

    f.compile().evaluate(p, formula, out);

    for (std::size_t i = 0; i < 20; ++i)
        EXPECT_EQ(out[i], cplx(-x[i]));
}

TEST(Program, TakesComplexValuesThatComeOutReal)
{
    const std::vector<double> x = ramp(20, -3, 3);

    const std::vector<double> out = valuesOf("abs(sqrt(x))", x); // imaginary inside for half of the points

    for (std::size_t i = 0; i < 20; ++i)
        EXPECT_NEAR(out[i], std::sqrt(std::abs(x[i])), 1e-15) << x[i];
}

TEST(Program, TakesANumberInAPlaceOfValues)
{
    const std::vector<double> x = ramp(10, 0, 1);
    std::vector<double> out(10);
    std::vector<cplx> complexOut(10);
    qx::Formulas f({"x", "a"});
    const qx::Formula formula = f.add("a*x"), onlyA = f.add("a^2");
    const qx::Program program = f.compile();
    qx::Points p(10);
    p.set("x", x).set("a", 3.0);
    program.evaluate(p, formula, out);
    EXPECT_EQ(out[5], 3 * x[5]);

    p.set("a", cplx(0, 2)); // replaces
    program.evaluate(p, formula, complexOut);
    program.evaluate(p, onlyA, out);

    EXPECT_EQ(complexOut[5], cplx(0, 2 * x[5]));
    EXPECT_EQ(out, std::vector<double>(10, -4.0));
}

TEST(Program, TakesAComplexNumberOnTheAxisForThatRealNumber)
{
    qx::Formulas f({"y", "z"});
    const auto quotient = f.add("y/z");
    const auto program = f.compile();
    const std::vector<double> y{-0.575, -0.75, -0.075, 2.8}; // -0.075 times the reciprocal of 2.8 is no rounded quotient
    const auto valuesWith = [&](const auto& z) {
        std::vector<double> out(y.size());
        program.evaluate(qx::Points(y.size()).set("y", y).set("z", z), quotient, out);
        return out;
    };

    EXPECT_EQ(valuesWith(std::complex<double>(2.8, 0.0)), valuesWith(2.8));
}

TEST(Program, EvaluatesNoPoints)
{
    EXPECT_TRUE(valuesOf("1/x", {}).empty());
}

TEST(Program, KeepsValuesThatAreInfinite)
{
    EXPECT_EQ(valuesOf("1/x", {0.0, 2.0}), (std::vector<double>{INFINITY, 0.5}));
}

TEST(Program, RefusesPointsThatDoNotFit)
{
    const Wave w;
    const std::vector<double> x(3);
    std::vector<double> out(3), shorter(2);
    qx::Points p(3), q(3);
    p.set("x", x).set("y", 0.0).set("a", 1.0);
    q.set("x", x).set("a", 1.0);

    EXPECT_EQ(idOf([&] { p.set("x", shorter); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([&] { w.program.evaluate(p, w.wave, shorter); }), "Wrong_number_of_values");
    const qxbase::Exception e = failureOf([&] { w.program.evaluate(q, w.wave, out); });
    EXPECT_EQ(e.getId(), "Variable_without_values");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Name", "y"}}));
    q.set("z", 1.0);
    EXPECT_EQ(idOf([&] { w.program.evaluate(q, w.wave, out); }), "Unknown_variable_name");
}

TEST(Program, NeedsNoValuesOfVariablesThatAFormulaDoesNotUse)
{
    qx::Formulas f({"x", "y"});
    const qx::Formula formula = f.add("2*x");
    f.add("y");
    double out = 0;
    qx::Points p(1);
    p.set("x", 4.0);

    f.compile().evaluate(p, formula, std::span(&out, 1));

    EXPECT_EQ(out, 8.0);
}

TEST(Program, RefusesFormulasOfOthersAndOptionsThatMakeNoSense)
{
    const Wave w, other;
    double out = 0;
    qx::Points p(1);
    p.set("x", 0.0).set("y", 0.0).set("a", 1.0);
    const auto evaluate = [&](qx::Formula f, const qx::Options& o) { w.program.evaluate(p, f, std::span(&out, 1), o); };

    EXPECT_EQ(idOf([&] { evaluate(other.wave, {}); }), "Unknown_formula");
    EXPECT_EQ(idOf([&] { evaluate(qx::Formula(), {}); }), "Unknown_formula");
    EXPECT_EQ(idOf([&] { evaluate(w.wave, {.threads = -1}); }), "Invalid_option");
    EXPECT_EQ(idOf([&] { evaluate(w.wave, {.block = 0}); }), "Invalid_option");
    EXPECT_EQ(idOf([&] { w.program.gradient(p, w.wave, std::span(&out, 1), {{"r", std::span(&out, 1)}}); }),
              "Unknown_variable_name");
}

TEST(Program, IsEmptyWhenMadeOfNothing)
{
    double out = 0;

    EXPECT_EQ(idOf([&] { qx::Program().evaluate(qx::Points(1), qx::Formula(), std::span(&out, 1)); }), "Unknown_formula");
    EXPECT_TRUE(qx::Program().variables().empty());
}

TEST(Program, TellsWhatDependsOnWhat)
{
    qx::Formulas f({"u", "v", "w"});
    f.define("k", "1+u");
    const std::vector<qx::Formula> formulas{f.add("k*v"), f.add("w^2"), f.add("3"), f.add("d(u*v,u)"), f.add("0*u+v")};
    const std::vector<std::string> variables{"u", "v", "w"};
    const qx::Program program = f.compile();

    const qx::Pattern pattern = program.jacobianPattern(formulas, variables);

    EXPECT_EQ(pattern.rowStart, (std::vector<std::size_t>{0, 2, 3, 3, 4, 5}));
    EXPECT_EQ(pattern.column, (std::vector<std::size_t>{0, 1, 2, 1, 1}));
    EXPECT_TRUE(program.isNonlinearIn(formulas[0], {"u", "v"}));
    EXPECT_FALSE(program.isNonlinearIn(formulas[0], {"u"}));
    EXPECT_TRUE(program.isNonlinearIn(formulas[1], {"w"}));
    EXPECT_FALSE(program.isNonlinearIn(formulas[1], {}));
    EXPECT_EQ(idOf([&] { program.dependsOn(formulas[0], "k"); }), "Unknown_variable_name");
}

TEST(Program, ShowsItsFormulas)
{
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add("x ^2");
    const qx::Program program = f.compile();

    EXPECT_EQ(program.text(formula), "x ^2");
    EXPECT_EQ(program.derivativeText(formula, "x"), "(x*2)");
    EXPECT_EQ(program.variables(), (std::vector<std::string>{"x"}));
}

TEST(Program, HasTheSameBitsForAnyNumberOfThreadsAndAnyBlock)
{
    const std::size_t n = 30011;
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> uniform(0.01, 3);
    std::vector<double> x(n), y(n), first(n), out(n);
    for (std::size_t i = 0; i < n; ++i) {
        x[i] = uniform(random);
        y[i] = uniform(random);
    }
    qx::Formulas f({"x", "y"});
    f.define("s", "sqrt(x)*y+x^1.3");
    const qx::Formula formula = f.add("exp(-s)*sin(s)/(1+log(1+s))+atan2(y,x)");
    const qx::Program program = f.compile();
    qx::Points p(n);
    p.set("x", x).set("y", y);
    program.evaluate(p, formula, first, {.threads = 1});

    for (const int threads : {2, 3, 7})
        for (const std::size_t block : {1000u, 17u, 40000u}) {
            program.evaluate(p, formula, out, {.threads = threads, .block = block});

            EXPECT_EQ(std::memcmp(out.data(), first.data(), n * sizeof(double)), 0) << threads << " " << block;
        }
}

TEST(Program, UsesOneThreadInsideAParallelRegion)
{
    const Threads allowed(4);
    const std::size_t n = 20000;
    const std::vector<double> x = ramp(n, 0, 1);
    std::atomic<int> largestTeam{0}, calls{0};
    qx::Formulas f({"x"});
    f.function("team", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> out) {
                            int seen = largestTeam;
                            // A region inside another one: how deep it is nested tells about a team of its own.
                            while (seen < omp_get_active_level() && !largestTeam.compare_exchange_weak(seen, omp_get_active_level())) {
                            }
                            ++calls;
                            std::copy(args[0].begin(), args[0].end(), out.begin());
                        }});
    const qx::Formula formula = f.add("team(x)");
    const qx::Program program = f.compile();
    std::vector<double> out[2] = {std::vector<double>(n), std::vector<double>(n)};

    omp_set_max_active_levels(2);
#pragma omp parallel for num_threads(2)
    for (int k = 0; k < 2; ++k) {
        qx::Points p(n);
        p.set("x", x);
        program.evaluate(p, formula, out[k]);
    }
    omp_set_max_active_levels(1);

    EXPECT_EQ(largestTeam, 1);
    EXPECT_EQ(calls, 40);
    EXPECT_EQ(out[0], x);
    EXPECT_EQ(out[1], x);
}

TEST(Program, ServesEightThreadsAtATime)
{
    const Wave w, alone;
    const std::size_t n = 12000;
    const std::vector<double> x = ramp(n, -1, 2), y = ramp(n, 0.5, 1.5);
    std::vector<double> value(n), dx(n);
    qx::Points all(n);
    all.set("x", x).set("y", y).set("a", 3.0);
    alone.program.gradient(all, alone.wave, value, {{"x", dx}}); // w has made no derivative yet

    std::vector<std::vector<double>> values(8, std::vector<double>(n)), derivatives = values;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            qx::Points p(n);
            p.set("x", x).set("y", y).set("a", 3.0);
            for (int round = 0; round < 3; ++round)
                w.program.gradient(p, w.wave, values[t], {{"x", derivatives[t]}});
        });
    for (std::thread& t : threads)
        t.join();

    for (std::size_t t = 0; t < 8; ++t) {
        EXPECT_EQ(values[t], value) << t;
        EXPECT_EQ(derivatives[t], dx) << t;
    }
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Points without a value.

#include "formulas.hpp"

#include "formulas/points.hpp"
#include "support/failure.hpp"

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace qxtest;

namespace {

// In real arithmetic the logarithm of a negative number fails.
constexpr qx::Options real{.keepReal = true};
constexpr qx::Options toNaN{.onFailure = qx::OnFailure::nan, .keepReal = true};

std::string argument(const qxbase::Exception& e, std::size_t entry, const std::string& key)
{
    for (const auto& [k, v] : e.getArgs(entry))
        if (k == key)
            return v;
    return "(none)";
}

} // namespace

TEST(FailingPoint, IsNamedWithItsWholeStory)
{
    std::vector<double> x = ramp(5000, 1, 2);
    x[3141] = -2;
    x[4000] = -1;
    qx::Formulas f({"x", "unused"});
    f.define("p", "log(x)");
    const qx::Formula formula = f.add("p+1");
    std::vector<double> out(5000);
    qx::Points points(5000);
    points.set("x", x);

    const qxbase::Exception e = failureOf([&] { f.compile().evaluate(points, formula, out, real); });

    ASSERT_EQ(e.size(), 4u) << e.toString();
    EXPECT_EQ(e.getId(0), "log");
    EXPECT_EQ(e.getId(1), "vareval");
    EXPECT_EQ(argument(e, 1, "var"), "p");
    EXPECT_EQ(e.getId(2), "expreval");
    EXPECT_EQ(e.getId(3), "Evaluation_failed_at_point");
    EXPECT_EQ(e.getArgs(3), (qxbase::ExceptionArgs{{"Point", "3141"}, {"x", "-2"}, {"Expression", "p+1"}}));
}

TEST(FailingPoint, IsTheFirstOneForAnyNumberOfThreads)
{
    std::vector<double> x = ramp(50000, 1, 2);
    for (const std::size_t i : {12345u, 12346u, 40000u})
        x[i] = -1;
    for (const int threads : {1, 2, 5})
        for (int round = 0; round < 5; ++round) {
            const qxbase::Exception e = failureOf([&] { valuesOf("log(x)", x, {.threads = threads, .keepReal = true}); });

            ASSERT_EQ(argument(e, e.size() - 1, "Point"), "12345") << threads;
        }
}

TEST(FailingPoint, IsOfTheFirstFormulaThatFailsInTheBlock)
{
    const std::vector<double> x{3, 3, -1, -4, 3};
    qx::Formulas f({"x"});
    const qx::Formula good = f.add("x"), later = f.add("log(x+2)"), sooner = f.add("log(x)");
    std::vector<double> a(5), b(5), c(5);
    qx::Points points(5);
    points.set("x", x);

    const qxbase::Exception e =
        failureOf([&] { f.compile().evaluate(points, {{good, a}, {later, b}, {sooner, c}}, real); });

    EXPECT_EQ(argument(e, e.size() - 1, "Point"), "3");
    EXPECT_EQ(argument(e, e.size() - 1, "Expression"), "log(x+2)");
}

TEST(FailingPoint, OfAComplexValueInARealTargetTellsTheValue)
{
    const std::vector<double> x{4, 1, -9, -1};

    const qxbase::Exception e = failureOf([&] { valuesOf("sqrt(x)", x); });

    EXPECT_EQ(e.getId(), "Complex_number_in_real_expression");
    EXPECT_EQ(argument(e, e.size() - 1, "Point"), "2");
    EXPECT_NE(argument(e, 0, "Value").find('3'), std::string::npos) << e.toString();
}

TEST(FailingPoint, OfRealArithmeticFailsWhereTheNumberTurnsComplex)
{
    const std::vector<double> x{4, -9};

    const qxbase::Exception e = failureOf([&] { valuesOf("abs(sqrt(x))", x, {.keepReal = true}); });

    EXPECT_EQ(e.getId(), "sqrt");
    EXPECT_EQ(argument(e, e.size() - 1, "Point"), "1");
}

TEST(FailingPoint, IsOneThatIsNotANumberEvenWithoutAFunction)
{
    EXPECT_EQ(idOf([] { valuesOf("x", {1.0, NAN}); }), "Unexpected_NaN");
    EXPECT_EQ(idOf([] { valuesOf("0/x", {1.0, 0.0}); }), "Unexpected_NaN");
}

TEST(FailingPoint, IsAnInfiniteOneOnlyOnRequest)
{
    const std::vector<double> x{1.0, 0.0};

    EXPECT_EQ(valuesOf("1/x", x), (std::vector<double>{1.0, INFINITY}));
    const qxbase::Exception e = failureOf([&] { valuesOf("1/x", x, {.requireFinite = true}); });
    EXPECT_EQ(e.getId(), "Infinite_value");
    EXPECT_EQ(argument(e, e.size() - 1, "Point"), "1");
    EXPECT_EQ(idOf([&] { valuesOf("exp(1000)+0*x", x, {.requireFinite = true}); }), "Infinite_value"); // a number
}

TEST(FailingPoint, OfComplexTargetsIsFoundInBothParts)
{
    const std::vector<cplx> z{{1, 1}, {1, NAN}, {INFINITY, 0}};
    std::vector<cplx> out(3);
    qx::Formulas f({"z"});
    const qx::Formula formula = f.add("z");
    qx::Points points(3);
    points.set("z", z);

    const qx::Failures failures =
        f.compile().evaluate(points, formula, out, {.onFailure = qx::OnFailure::nan, .requireFinite = true});

    ASSERT_EQ(failures.count, 2u);
    EXPECT_EQ(failures.first[0].story.getId(), "Unexpected_NaN");
    EXPECT_EQ(failures.first[1].story.getId(), "Infinite_value");
    EXPECT_EQ(out[0], z[0]);
}

TEST(FailingPoints, BecomeNaNAndAllOthersKeepTheirValues)
{
    const std::size_t n = 4321;
    std::vector<double> x = ramp(n, 1, 2), out(n);
    std::vector<bool> bad(n);
    std::mt19937 random(3);
    for (int k = 0; k < 500; ++k) {
        const std::size_t i = random() % n;
        x[i] = -1;
        bad[i] = true;
    }
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add("log(x)");
    qx::Points points(n);
    points.set("x", x);

    const qx::Failures failures = f.compile().evaluate(points, formula, out, toNaN);

    std::vector<std::size_t> wanted, listed;
    for (std::size_t i = 0; i < n; ++i) {
        if (bad[i]) {
            EXPECT_TRUE(std::isnan(out[i])) << i;
            wanted.push_back(i);
        } else {
            EXPECT_NEAR(out[i], std::log(x[i]), 1e-15) << i;
        }
    }
    EXPECT_EQ(failures.count, wanted.size());
    for (const qx::Failure& one : failures.first)
        listed.push_back(one.point);
    wanted.resize(qx::Failures::listed);
    EXPECT_EQ(listed, wanted);
}

TEST(FailingPoints, AreTheSameListForAnyNumberOfThreads)
{
    const std::size_t n = 40000;
    std::vector<double> x(n);
    std::mt19937 random(4);
    for (double& v : x)
        v = random() % 3 == 0 ? -1.0 : 1.0;
    qx::Formulas f({"x"});
    const qx::Formula a = f.add("log(x)"), b = f.add("log(2*x)");
    const qx::Program program = f.compile();
    qx::Points points(n);
    points.set("x", x);
    std::vector<double> outA(n), outB(n);
    qx::Options options = toNaN;
    std::vector<std::string> first;
    for (const int threads : {1, 2, 6}) {
        options.threads = threads;

        const qx::Failures failures = program.evaluate(points, {{a, outA}, {b, outB}}, options);

        std::vector<std::string> list;
        for (const qx::Failure& one : failures.first)
            list.push_back(std::to_string(one.point) + (one.formula == a ? "a " : "b ") + one.story.getId() + " " +
                           argument(one.story, one.story.size() - 1, "Expression"));
        EXPECT_EQ(failures.count, 2 * static_cast<std::size_t>(std::count(x.begin(), x.end(), -1.0)));
        ASSERT_EQ(list.size(), qx::Failures::listed);
        EXPECT_EQ(list[1].substr(list[1].find(' ')), " log log(2*x)"); // by point, then in the order of the outputs
        if (first.empty())
            first = list;
        EXPECT_EQ(list, first) << threads;
    }
}

TEST(FailingPoints, DoNotTouchOtherFormulas)
{
    const std::vector<double> x{1, -4, 4};
    qx::Formulas f({"x"});
    const qx::Formula a = f.add("log(x)"), b = f.add("x^2");
    std::vector<double> outA(3), outB(3);
    qx::Points points(3);
    points.set("x", x);

    const qx::Failures failures = f.compile().evaluate(points, {{a, outA}, {b, outB}}, toNaN);

    EXPECT_EQ(failures.count, 1u);
    EXPECT_EQ(failures.first[0].formula, a);
    EXPECT_EQ(outB, (std::vector<double>{1, 16, 16}));
}

TEST(FailingPoints, AreListedWhenAllFail)
{
    const std::size_t n = 2500;
    const std::vector<double> x(n, -1.0);
    std::vector<double> out(n);
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add("log(x)");
    qx::Points points(n);
    points.set("x", x);

    const qx::Failures failures = f.compile().evaluate(points, formula, out, toNaN);

    EXPECT_EQ(failures.count, n);
    EXPECT_EQ(failures.first.size(), qx::Failures::listed);
    EXPECT_EQ(failures.first.back().point, qx::Failures::listed - 1);
}

/// Halving costs one evaluation of the block more for each doubling of its size, whatever the number of failing points.
TEST(FailingPoints, CostAtMostThirtyEvaluationsOfTheBlock)
{
    const std::size_t block = 1000;
    for (const std::size_t failing : {1u, 7u, 500u, 1000u}) {
        std::atomic<std::size_t> computed{0};
        qx::Formulas f({"x"});
        f.function("count", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> out) {
                                 computed += out.size();
                                 std::copy(args[0].begin(), args[0].end(), out.begin());
                             }});
        const qx::Formula formula = f.add("log(count(x))");
        std::vector<double> x(block, 1.0), out(block);
        for (std::size_t k = 0; k < failing; ++k)
            x[k * block / failing] = -1;
        qx::Points points(block);
        points.set("x", x);

        const qx::Failures failures = f.compile().evaluate(points, formula, out, toNaN);

        EXPECT_EQ(failures.count, failing);
        EXPECT_LE(computed, 30 * block) << failing;
        if (failing == 1) {
            EXPECT_LE(computed, 4 * block); // the block, its halves, their halves ...: less than three, and the story
        }
    }
}

TEST(FailingPoints, CostNothingAfterTheFirstWhenRaised)
{
    std::size_t computed = 0;
    qx::Formulas f({"x"});
    f.function("count", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> out) {
                             computed += out.size();
                             std::copy(args[0].begin(), args[0].end(), out.begin());
                         }});
    const qx::Formula formula = f.add("log(count(x))");
    const std::vector<double> x(100000, -1.0);
    std::vector<double> out(x.size());
    qx::Points points(x.size());
    points.set("x", x);

    EXPECT_EQ(idOf([&] { f.compile().evaluate(points, formula, out, {.threads = 1, .keepReal = true}); }), "log");
    EXPECT_LE(computed, 4000u);
}

/// A block can fail where no point does: a neighbour's complex number turns a whole block complex, and erf has no complex
/// values. Alone each point has one.
TEST(FailingPoints, AreThoseThatFailAlone)
{
    std::vector<double> x = ramp(3000, 0.5, 1.5), out(3000);
    x[1500] = -1;
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add("erf(sqrt(x))");
    const qx::Program program = f.compile();
    qx::Points points(3000);
    points.set("x", x);

    const qx::Failures failures = program.evaluate(points, formula, out, {.onFailure = qx::OnFailure::nan});

    ASSERT_EQ(failures.count, 1u);
    EXPECT_EQ(failures.first[0].point, 1500u);
    for (const std::size_t i : {0u, 1000u, 1499u, 1501u, 1999u, 2999u})
        EXPECT_NEAR(out[i], std::erf(std::sqrt(x[i])), 1e-15) << i;
}

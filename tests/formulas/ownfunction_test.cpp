// SPDX-License-Identifier: LicenseRef-qxkernel
// Functions of the user's own.

#include "formulas.hpp"

#include "formulas/points.hpp"
#include "interptable.hpp"
#include "support/failure.hpp"

#include <atomic>
#include <boost/make_shared.hpp>
#include <cmath>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace qxtest;

namespace {

/// sin(t)/t with its limit at 0.
template <class T>
T sinc(T t)
{
    return t == T(0) ? T(1) : std::sin(t) / t;
}

template <class T, class F>
auto each(F f)
{
    return [f](qx::Arguments<T> args, std::span<T> out) {
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = f(args[0][i]);
    };
}

qx::Function sincFunction()
{
    return {.parameters = {"t"},
            .real = each<double>(sinc<double>),
            .complex = each<cplx>(sinc<cplx>),
            .derivatives = {"(cos(t)-sinc(t))/t"}};
}

double value(qx::Formulas& f, const std::string& expression, double x)
{
    const qx::Formula formula = f.add(expression);
    double out = 0;
    qx::Points p(1);
    p.set("x", x);
    f.compile().evaluate(p, formula, std::span(&out, 1));
    return out;
}

} // namespace

TEST(OwnFunction, IsComputedBlockByBlock)
{
    const std::size_t n = 2200;
    const std::vector<double> x = ramp(n, -2, 2);
    std::vector<double> out(n);
    qx::Formulas f({"x"});
    f.function("sinc", sincFunction());
    const qx::Formula formula = f.add("1+sinc(2*x)");
    qx::Points p(n);
    p.set("x", x);

    f.compile().evaluate(p, formula, out);

    for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(out[i], 1 + sinc(2 * x[i])) << i;
}

TEST(OwnFunction, LeavesItsArgumentsAsTheyWere)
{
    qx::Formulas f({"x"});
    f.define("a", "x*2").function("sinc", sincFunction());

    EXPECT_EQ(value(f, "sinc(a)+a", 0.5), sinc(1.0) + 1.0);
}

TEST(OwnFunction, IsDifferentiatedByItsFormulas)
{
    const double x = 0.7;
    qx::Formulas f({"x"});
    f.function("sinc", sincFunction());
    const double u = 3 * x, du = (std::cos(u) - sinc(u)) / u;

    EXPECT_NEAR(value(f, "d(sinc(3*x),x)", x), 3 * du, 1e-15);
    // sinc'' = -sinc - 2 sinc'/t, from t f'' + 2 f' + t f = 0
    EXPECT_NEAR(value(f, "d(d(sinc(3*x),x),x)", x), 9 * (-sinc(u) - 2 * du / u), 1e-13);
}

TEST(OwnFunction, IsDifferentiatedByEachArgument)
{
    qx::Formulas f({"x", "y", "t"});
    f.define("k", "2");
    f.function("poly", {.parameters = {"t", "y"}, // named like variables: in derivatives they are the parameters
                        .real =
                            [](qx::Arguments<double> args, std::span<double> out) {
                                for (std::size_t i = 0; i < out.size(); ++i)
                                    out[i] = args[0][i] * args[0][i] * args[1][i];
                            },
                        .derivatives = {"k*t*y", "t^2"}});
    const qx::Formula formula = f.add("poly(x+y,x)");
    double out = 0, dx = 0, dy = 0, dt = 5;
    qx::Points p(1);
    p.set("x", 3.0).set("y", 1.0).set("t", 100.0);
    const auto at = [](double& v) { return std::span(&v, 1); };

    f.compile().gradient(p, formula, at(out), {{"x", at(dx)}, {"y", at(dy)}, {"t", at(dt)}});

    EXPECT_EQ(out, 48.0);       // (x+y)^2 x
    EXPECT_EQ(dx, 24.0 + 16.0); // 2(x+y)x + (x+y)^2
    EXPECT_EQ(dy, 24.0);
    EXPECT_EQ(dt, 0.0);
}

TEST(OwnFunction, TakesComplexArguments)
{
    const std::vector<cplx> z{{1, 2}, {0, 0}, {-1, 0.5}};
    std::vector<cplx> out(3);
    qx::Formulas f({"z"});
    f.function("sinc", sincFunction());
    const qx::Formula formula = f.add("sinc(z)");
    qx::Points p(3);
    p.set("z", z);

    f.compile().evaluate(p, formula, out);

    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(out[i], sinc(z[i]));
}

TEST(OwnFunction, WithoutAComplexBodyFailsAtComplexArguments)
{
    qx::Formulas f({"x"});
    f.function("same", {.parameters = {"t"}, .real = each<double>([](double t) { return t; })});

    EXPECT_EQ(value(f, "same(sqrt(x))", 4.0), 2.0);
    EXPECT_EQ(idOf([&] { value(f, "same(sqrt(x))", -4.0); }), "funeval");
}

TEST(OwnFunction, WithOnlyAComplexBodyTakesRealArguments)
{
    qx::Formulas f({"x"});
    f.function("turn", {.parameters = {"t"}, .complex = each<cplx>([](cplx t) { return t * cplx(0, 1); })});

    EXPECT_EQ(value(f, "imag(turn(x))", 2.0), 2.0);
    EXPECT_EQ(value(f, "turn(turn(x))", 2.0), -2.0);
}

TEST(OwnFunction, MakesPointsFailByNaN)
{
    const std::vector<double> x{1, 2, -1, 3};
    std::vector<double> out(4);
    qx::Formulas f({"x"});
    f.function("root", {.parameters = {"t"}, .real = each<double>([](double t) { return std::sqrt(t); })});
    const qx::Formula formula = f.add("root(x)+1");
    qx::Points p(4);
    p.set("x", x);

    const qx::Failures failures = f.compile().evaluate(p, formula, out, {.onFailure = qx::OnFailure::nan});

    ASSERT_EQ(failures.count, 1u);
    EXPECT_EQ(failures.first[0].point, 2u);
    EXPECT_EQ(failures.first[0].story.getId(), "funeval");
    EXPECT_EQ(failures.first[0].story.getArgs(0), (qxbase::ExceptionArgs{{"fun", "root"}}));
}

TEST(OwnFunction, MakesPointsFailByExceptions)
{
    const std::vector<double> x = ramp(30000, 0, 3);
    std::vector<double> out(x.size());
    qx::Formulas f({"x"});
    f.function("picky", {.parameters = {"t"}, .real = each<double>([](double t) {
                             if (t == 1.5)
                                 throw std::domain_error("not one and a half");
                             return t;
                         })});
    const qx::Formula formula = f.add("picky(x)"), other = f.add("2*x");
    const qx::Program program = f.compile();
    qx::Points p(x.size());
    p.set("x", x);

    const qxbase::Exception e = failureOf([&] { program.evaluate(p, formula, out); });
    std::vector<double> twice(x.size());
    const qx::Failures failures =
        program.evaluate(p, {{formula, out}, {other, twice}}, {.onFailure = qx::OnFailure::nan});

    EXPECT_EQ(e.getId(), "Exception_in_function");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Name", "picky"}, {"Reason", "not one and a half"}}));
    ASSERT_EQ(failures.count, 1u);
    EXPECT_EQ(failures.first[0].point, 15000u);
    EXPECT_TRUE(std::isnan(out[15000]));
    EXPECT_EQ(out[14999], x[14999]);
    EXPECT_EQ(twice[15000], 3.0);
}

TEST(OwnFunction, ThatFailsOnlyForWholeBlocksFailsNowhere)
{
    const std::vector<double> x = ramp(2000, 0, 1);
    std::vector<double> out(2000);
    qx::Formulas f({"x"});
    f.function("shy", {.parameters = {"t"}, .real = [](qx::Arguments<double> args, std::span<double> values) {
                           if (values.size() > 1)
                               throw std::runtime_error("one at a time");
                           values[0] = args[0][0];
                       }});
    const qx::Formula formula = f.add("shy(x)");
    qx::Points p(2000);
    p.set("x", x);

    f.compile().evaluate(p, formula, out);

    EXPECT_EQ(out, x);
}

TEST(OwnFunction, MayEvaluateFormulasItself)
{
    qx::Formulas inner({"s"});
    const qx::Formula square = inner.add("s^2");
    const qx::Program program = inner.compile();
    qx::Formulas f({"x"});
    f.function("square", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> out) {
                              qx::Points p(out.size());
                              p.set("s", args[0]);
                              program.evaluate(p, square, out);
                          }});

    EXPECT_EQ(value(f, "square(square(x))+1", 2.0), 17.0);
}

TEST(OwnFunction, OfConstantsIsComputedOnce)
{
    std::atomic<int> calls{0};
    qx::Formulas f({"x"});
    f.function("count", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> out) {
                             ++calls;
                             out[0] = args[0][0];
                         }});
    std::vector<double> x(5000), out(5000);
    const qx::Formula formula = f.add("x+count(2)");
    qx::Points p(5000);
    p.set("x", x);

    f.compile().evaluate(p, formula, out);

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(out, std::vector<double>(5000, 2.0));
}

TEST(OwnFunction, IsRefusedWithoutWhatItNeeds)
{
    qx::Formulas f({"x"});
    const auto body = each<double>([](double t) { return t; });

    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {}, .real = body}); }), "Invalid_function");
    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {"t", "t"}, .real = body}); }), "Invalid_function");
    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {"1"}, .real = body}); }), "Invalid_function");
    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {"t"}}); }), "Invalid_function");
    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {"t"}, .real = body, .derivatives = {"1", "2"}}); }),
              "Invalid_function");
    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {"t"}, .real = body, .derivatives = {"1+"}}); }),
              "Syntax_error_in_expression");
    EXPECT_EQ(idOf([&] { f.function("sin", {.parameters = {"t"}, .real = body}); }), "Name_in_use");
    EXPECT_EQ(idOf([&] { f.function("d", {.parameters = {"t"}, .real = body}); }), "Name_in_use");
    f.function("g", {.parameters = {"t"}, .real = body});
    EXPECT_EQ(idOf([&] { f.function("g", {.parameters = {"t"}, .real = body}); }), "Name_in_use");
}

TEST(OwnFunction, HasItsDerivativesCheckedWhenCompiled)
{
    qx::Formulas f({"x"});
    f.function("g", {.parameters = {"t"}, .real = each<double>([](double t) { return t; }), .derivatives = {"2*q"}});

    const qxbase::Exception e = failureOf([&] { f.compile(); });

    EXPECT_EQ(e.getId(0), "Unknown_variable_name");
    EXPECT_EQ(e.getId(1), "In_derivative");
    EXPECT_EQ(e.getArgs(1), (qxbase::ExceptionArgs{{"Name", "g"}, {"Expression", "2*q"}}));
}

TEST(OwnFunction, WithoutDerivativesCannotBeDifferentiated)
{
    qx::Formulas f({"x"});
    f.function("g", {.parameters = {"t"}, .real = each<double>([](double t) { return t; })});

    EXPECT_EQ(value(f, "g(x)", 2.0), 2.0);
    EXPECT_EQ(value(f, "d(g(2),x)+x", 2.0), 2.0); // there is nothing to differentiate
    const qxbase::Exception e = failureOf([&] { value(f, "d(g(x),x)", 2.0); });
    EXPECT_EQ(e.getId(), "No_derivative_of_function");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Name", "g"}}));
}

// ---- tables

TEST(TableFunction, IsAFunctionWithItsOwnDerivatives)
{
    const auto axes = boost::make_shared<const Interpolator::Axes>(Interpolator::Axes{{0.0, 1.0, 2.0}});
    const auto values = boost::make_shared<const std::vector<double>>(std::vector<double>{1.0, 2.0, 5.0});
    const InterpTable table{Interpolator::createInterpolator(axes, values, "cubicspline", Interpolator::ExtLine, 0.0), false};
    qx::Formulas f({"x"});

    f.table("mu", table);

    EXPECT_NEAR(value(f, "mu(x)^2", 1.5), 3.25 * 3.25, 1e-14);
    EXPECT_NEAR(value(f, "d(mu(x),x)", 1.5), 3.0, 1e-14);
    EXPECT_NEAR(value(f, "d(d(mu(x),x),x)", 1.5), 2.0, 1e-14);
    EXPECT_EQ(idOf([&] { f.table("mu", table); }), "Name_in_use");
    EXPECT_EQ(idOf([&] { f.table("sin", table); }), "Name_in_use");
    EXPECT_EQ(idOf([&] { f.table("2", table); }), "Invalid_name");
    EXPECT_EQ(idOf([&] { f.table("empty", InterpTable{}); }), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(idOf([&] { value(f, "mu(x,x)", 1.0); }), "Wrong_number_of_function_arguments");
}

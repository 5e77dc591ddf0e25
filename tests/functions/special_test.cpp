// SPDX-License-Identifier: LicenseRef-qxkernel
// Smoothed steps, piecewise polynomials, Bessel functions, n-ary sums, and the scalar mathematics.

#include "evalfun_spec.hpp"
#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "qxmathfun.hpp"
#include "tests/functions/fun_support.hpp"
#include "tests/support/failure.hpp"

#include <gtest/gtest.h>

using namespace qxtest;

namespace {

double step(const char* name, double x, double w) { return callReal(*fun(name), x, w).value.real(); }

// ---- steps

TEST(SmoothedStep, RunsFromLowToHigh)
{
    for (const char* name : {"qxsmhs", "qxc1hs", "qxc2hs"}) {
        EXPECT_EQ(step(name, -2.0, 1.0), 0.0) << name;
        EXPECT_EQ(step(name, -1.0, 1.0), 0.0) << name;
        EXPECT_EQ(step(name, 0.0, 1.0), 0.5) << name;
        EXPECT_EQ(step(name, 1.0, 1.0), 1.0) << name;
        EXPECT_EQ(step(name, 2.0, 1.0), 1.0) << name;
        EXPECT_NEAR(step(name, std::nextafter(1.0, 0.0), 1.0), 1.0, 4e-16) << name;
        EXPECT_NEAR(step(name, -std::nextafter(1.0, 0.0), 1.0), 0.0, 4e-16) << name;
    }
    EXPECT_EQ(step("qxsmsign", -3.0, 1.0), -1.0);
    EXPECT_EQ(step("qxsmsign", 0.0, 1.0), 0.0);
    EXPECT_EQ(step("qxsmsign", 3.0, 1.0), 1.0);
    EXPECT_NEAR(step("qxsmsign", std::nextafter(1.0, 0.0), 1.0), 1.0, 8e-16);
}

TEST(SmoothedStep, HasTheStatedPolynomials)
{
    // At q = 1/2, by hand from the coefficients.
    EXPECT_DOUBLE_EQ(step("qxsmhs", 1.0, 2.0), 0.5 + 1.640625 / 2 - 2.734375 / 8 + 2.296875 / 32 - 0.703125 / 128);
    EXPECT_DOUBLE_EQ(step("qxsmsign", 1.0, 2.0), 3.28125 / 2 - 5.46875 / 8 + 4.59375 / 32 - 1.40625 / 128);
    EXPECT_DOUBLE_EQ(step("qxc1hs", 1.0, 2.0), 0.5 + 0.75 / 2 - 0.25 / 8);
    EXPECT_DOUBLE_EQ(step("qxc2hs", 1.0, 2.0), 0.5 + 0.9375 / 2 - 0.625 / 8 + 0.1875 / 32);
    EXPECT_DOUBLE_EQ(step("qxdsmhs", 1.0, 2.0), (1.640625 - 8.203125 / 4 + 11.484375 / 16 - 4.921875 / 64) / 2);
    EXPECT_DOUBLE_EQ(step("qxdsmsign", 1.0, 2.0), (3.28125 - 16.40625 / 4 + 22.96875 / 16 - 9.84375 / 64) / 2);
    EXPECT_DOUBLE_EQ(step("qxdc1hs", 1.0, 2.0), (0.75 - 0.75 / 4) / 2);
    EXPECT_DOUBLE_EQ(step("qxdc2hs", 1.0, 2.0), (0.9375 - 1.875 / 4 + 0.9375 / 16) / 2);
}

TEST(SmoothedStep, EveryPolynomialAtItsCornersForWidthsOfBothSigns)
{
    const struct
    {
        const char *step, *dirac;
        double low, middle, slope; ///< at 0; high is 1
    } steps[] = {{"qxsmhs", "qxdsmhs", 0.0, 0.5, 1.640625},
                 {"qxsmsign", "qxdsmsign", -1.0, 0.0, 3.28125},
                 {"qxc1hs", "qxdc1hs", 0.0, 0.5, 0.75},
                 {"qxc2hs", "qxdc2hs", 0.0, 0.5, 0.9375}};
    const double below = std::nextafter(1.0, 0.0);
    for (const auto& s : steps)
        for (const double w : {1.0, -1.0}) { // f(x, -w) = f(-x, w), the derivative by x changes its sign too
            const double left = w > 0 ? s.low : 1.0, right = w > 0 ? 1.0 : s.low;
            for (const double x : {1.0, 2.0, inf}) {
                EXPECT_EQ(step(s.step, x, w), right) << s.step << ' ' << x << ' ' << w;
                EXPECT_EQ(step(s.step, -x, w), left) << s.step << ' ' << x << ' ' << w;
                EXPECT_EQ(step(s.dirac, x, w), 0.0) << s.dirac << ' ' << x << ' ' << w;
                EXPECT_EQ(step(s.dirac, -x, w), 0.0) << s.dirac << ' ' << x << ' ' << w;
            }
            EXPECT_EQ(step(s.step, 0.0, w), s.middle) << s.step;
            EXPECT_EQ(step(s.dirac, 0.0, w), s.slope / w) << s.dirac;
            EXPECT_NEAR(step(s.step, below, w), right, 1e-15) << s.step;
            EXPECT_NEAR(step(s.step, -below, w), left, 1e-15) << s.step;
            EXPECT_NEAR(step(s.dirac, below, w), 0.0, 1e-14) << s.dirac;
            EXPECT_NEAR(step(s.dirac, -below, w), 0.0, 1e-14) << s.dirac;
        }
}

TEST(SmoothedStep, AnEmptyZoneIsAJump)
{
    EXPECT_EQ(step("qxsmhs", -1e-300, 0.0), 0.0);
    EXPECT_EQ(step("qxsmhs", 1e-300, 0.0), 1.0);
    EXPECT_EQ(step("qxsmhs", 0.0, 0.0), 1.0);
    EXPECT_EQ(step("qxdsmhs", 1.0, 0.0), 0.0);
    EXPECT_EQ(step("qxdsmhs", 0.0, 0.0), 0.0);
}

TEST(SmoothedStep, RequiredQuirkANaNGivesHighAndAMinusZeroWidthSwapsTheSides)
{
    EXPECT_EQ(step("qxsmhs", kNaN, 1.0), 1.0);
    EXPECT_EQ(step("qxsmhs", -1.0, -0.0), 1.0);
    EXPECT_EQ(step("qxsmhs", 1.0, -0.0), 0.0);
    EXPECT_EQ(step("qxsmhs", -2.0, -1.0), 1.0); // a negative width too
}

TEST(SmoothedStep, DerivativeEqualsTheDifferenceQuotient)
{
    const double h = 1e-6;
    for (const char* name : {"smhs", "smsign", "c1hs", "c2hs"})
        for (const double x : {-0.9, -0.3, 0.0, 0.5, 0.99, 1.5}) {
            const std::string f = std::string("qx") + name, d = std::string("qxd") + name;
            const double slope = (step(f.c_str(), x + h, 1.2) - step(f.c_str(), x - h, 1.2)) / (2 * h);
            EXPECT_NEAR(step(d.c_str(), x, 1.2), slope, 1e-9) << name << ' ' << x;
        }
}

TEST(SmoothedStep, ComplexArgumentsGoByTheModuli)
{
    const Complex x(0.3, 0.2), q = x / 2.0;
    EXPECT_TRUE(close(callComplex(*fun("qxc1hs"), x, 2.0).value, 0.5 + 0.75 * q - 0.25 * q * q * q, 1e-15));
    EXPECT_EQ(callComplex(*fun("qxc1hs"), {-1.0, 3.0}, 2.0).value, Complex(0.0));
    EXPECT_EQ(callComplex(*fun("qxc1hs"), {1.0, 3.0}, 2.0).value, Complex(1.0));
    EXPECT_EQ(callComplex(*fun("qxc1hs"), {1.0, 3.0}, 2.0).bits, 0u);
    EXPECT_EQ(callComplex(*fun("qxdc1hs"), {1.0, 3.0}, 2.0).value, Complex(0.0));
    EXPECT_EQ(callComplex(*fun("qxc1hs"), {0.1, 0.0}, {2.0, 1.0}).bits & kFunErrorMask, unsigned(kFunDomain));
}

TEST(SmoothedStep, WritesIntoTheOperandThatWasAskedFor)
{
    const auto x = arrayOf<double>({-2.0, 0.0, 2.0}), w = arrayOf<double>({1.0, 1.0, 1.0});

    (*fun("qxsmhs"))(x, w, 3, 2);

    EXPECT_EQ((*x)[2], 2.0);
    EXPECT_EQ((*w)[0], 0.0);
    EXPECT_EQ((*w)[1], 0.5);
    EXPECT_EQ((*w)[2], 1.0);
}

TEST(SmoothedStep, SecondDerivativeHasADoubledName)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const EvalNodePtr x = maker->makeVarNode("x"), w = maker->makeVarNode("w");
    std::ostringstream out;

    fun("qxdsmhs")->diffRule({x, w}, 1, maker)->ostreamOperator(out);

    EXPECT_EQ(out.str(), "(qxddsmhs(x,w)/w)");
}

TEST(SmoothedStep, AnUnknownNameIsRefused)
{
    EXPECT_EQ(idOf([] { makeStepFunction("qxnone"); }), "Evaluation_internal_error");
    EXPECT_EQ(idOf([] { BesselFun("besselq"); }), "Evaluation_internal_error");
}

// ---- piecewise polynomials

ExtendedPolyEvaluatorBase::Sum sumOf(std::vector<double> c) { return {boost::make_shared<PolyEvaluator>(std::move(c))}; }

PiecewisePolyFun::Pieces twoPieces()
{
    return {boost::make_shared<ExtendedPolyEvaluator>(sumOf({0.0, 1.0})),
            boost::make_shared<ExtendedPolyEvaluatorSN>(sumOf({0.0, 0.0, 1.0}), 1.0, 2.0, 4.0)};
}

TEST(PiecewisePoly, TakesThePieceWhoseIntervalHoldsTheArgument)
{
    const PiecewisePolyFun f("pw", {0.0, 1.0, 3.0}, twoPieces(), true, false);

    EXPECT_EQ(f.locatePolynom(0.0), 0);
    EXPECT_EQ(f.locatePolynom(1.0), 1);
    EXPECT_EQ(f.locatePolynom(3.0), 1);
    EXPECT_EQ(f.locatePolynom(3.5), -1);
    EXPECT_EQ(f.locatePolynom(kNaN), -1);
    EXPECT_EQ(callReal(f, 0.25).value.real(), 0.25);
    EXPECT_EQ(callReal(f, 2.0).value.real(), 1.0); // 4 ((2-1)/2)^2
    EXPECT_EQ(callComplex(f, {2.0, 0.0}).value, Complex(1.0));
    EXPECT_TRUE(f.isRealIfReal());
    EXPECT_FALSE(f.isLinear(1));
}

TEST(PiecewisePoly, ReportsArgumentsOutsideAndComplexOnes)
{
    const PiecewisePolyFun f("pw", {0.0, 1.0, 3.0}, twoPieces(), true, false);

    EXPECT_EQ(callReal(f, -1.0).bits, unsigned(kFunDomain));
    EXPECT_EQ(f.makeError(kFunDomain)->get(0, "message"), "piecewise_range");
    EXPECT_EQ(callComplex(f, {0.5, 1.0}).bits & kFunErrorMask, unsigned(kFunKind));
    EXPECT_EQ(f.makeError(kFunKind)->get(0, "message"), "piecewise_cmplx");
}

TEST(PiecewisePoly, RefusesBadConstruction)
{
    const auto build = [](std::vector<double> bounds, PiecewisePolyFun::Pieces pieces) {
        return idOf([&] { PiecewisePolyFun("pw", bounds, pieces, true, false); });
    };
    EXPECT_EQ(build({0.0}, {}), "Piecewise_unsupported_intervals");
    EXPECT_EQ(build({0.0, 1.0}, twoPieces()), "Piecewise_unsupported_intervals");
    EXPECT_EQ(build({0.0, 2.0, 1.0}, twoPieces()), "Piecewise_specification_out_of_order");
    EXPECT_EQ(build({0.0, kNaN, 1.0}, twoPieces()), "Piecewise_specification_out_of_order");
    EXPECT_EQ(build({0.0, 1.0, 2.0}, {twoPieces()[0], nullptr}), "Piecewise_unsupported_order");
}

TEST(PiecewisePoly, DerivativeIsPieceByPiece)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const PiecewisePolyFun f("pw", {0.0, 1.0, 3.0}, twoPieces(), true, false);

    const auto slope = [&](double x) { return f.diffRule({maker->makeConstNode(x)}, 1, maker)->getScalar()->getDouble(); };

    EXPECT_EQ(slope(0.5), 1.0);
    EXPECT_EQ(slope(2.5), 3.0); // d/dx (x-1)^2
}

TEST(PolyEvaluators, AgreeWithTheirFormulas)
{
    const PolyEvaluator p({1.0, 2.0, 3.0});
    const NegativePolyEvaluator n({1.0, 2.0, 3.0});
    const GenericPolyEvaluator g({{0.5, 2.0}, {-1.0, 3.0}});
    const Complex z(1.0, 2.0);

    EXPECT_EQ(p(2.0), 17.0);
    EXPECT_EQ((*p.diff())(2.0), 14.0);
    EXPECT_EQ(n(2.0), 2.75);
    EXPECT_EQ((*n.diff())(2.0), -1.25); // -2/x^2 - 6/x^3
    EXPECT_EQ(g(4.0), 4.75);
    EXPECT_EQ((*g.diff())(4.0), 0.5 - 3.0 / 16.0);
    EXPECT_TRUE(close(p(z), 1.0 + 2.0 * z + 3.0 * z * z));
    EXPECT_TRUE(close(n(z), 1.0 + 2.0 / z + 3.0 / (z * z)));
    EXPECT_TRUE(close(g(z), 2.0 * std::sqrt(z) + 3.0 / z));
}

// ---- Bessel functions

TEST(Bessel, KindsAtOnePoint)
{
    // DLMF 10.75, A&S tables 9.1, 9.8.
    EXPECT_TRUE(close(callReal(*fun("besselj"), 0.0, 1.0).value, 0.7651976865579666, 1e-15));
    EXPECT_TRUE(close(callReal(*fun("bessel"), 1.0, 1.0).value, 0.4400505857449335, 1e-15));
    EXPECT_TRUE(close(callReal(*fun("bessely"), 0.0, 1.0).value, 0.08825696421567697, 1e-14));
    EXPECT_TRUE(close(callReal(*fun("besseli"), 0.0, 1.0).value, 1.2660658777520084, 1e-15));
    EXPECT_TRUE(close(callReal(*fun("besselk"), 0.0, 1.0).value, 0.42102443824070834, 1e-15));
}

TEST(Bessel, NegativeAndHalfIntegerOrders)
{
    // J_{-n} = (-1)^n J_n; J_{1/2} = sqrt(2/(pi x)) sin x, J_{-1/2} with cos.
    EXPECT_TRUE(close(callReal(*fun("besselj"), -1.0, 1.0).value, -0.4400505857449335, 1e-15));
    const double f = std::sqrt(2.0 / (pi * 1.3));
    EXPECT_TRUE(close(callReal(*fun("besselj"), 0.5, 1.3).value, f * std::sin(1.3), 1e-15));
    EXPECT_TRUE(close(callReal(*fun("besselj"), -0.5, 1.3).value, f * std::cos(1.3), 1e-15));
    EXPECT_TRUE(close(callReal(*fun("besselk"), -0.5, 1.3).value, std::sqrt(pi / 2.6) * std::exp(-1.3), 1e-15));
    EXPECT_TRUE(close(callReal(*fun("besseli"), 0.5, 1.3).value, f * std::sinh(1.3), 1e-15));
    EXPECT_TRUE(close(callReal(*fun("bessely"), 0.5, 1.3).value, -f * std::cos(1.3), 1e-15));
}

TEST(Bessel, ComplexArguments)
{
    // J_nu(iy) = i^nu I_nu(y)
    const Result r = callComplex(*fun("besselj"), 1.0, Complex(0.0, 2.0));
    EXPECT_TRUE(close(r.value, Complex(0.0, 1.5906368546373291), 1e-14));
    EXPECT_EQ(r.bits, unsigned(kFunComplex));
    EXPECT_TRUE(std::abs(callComplex(*fun("besselj"), 0.5, -2.0).value.imag()) > 0.1); // fractional order, negative argument
    EXPECT_EQ(callComplex(*fun("besselj"), 2.0, -2.0).bits, 0u);
}

TEST(Bessel, ErrorsByKindOfFailure)
{
    EXPECT_EQ(callReal(*fun("besselk"), 0.0, 0.0).bits, unsigned(kFunDomain));
    EXPECT_EQ(callReal(*fun("besselj"), 0.0, kNaN).bits, unsigned(kFunDomain));
    EXPECT_EQ(callReal(*fun("besselj"), 0.5, -1.0).bits, unsigned(kFunKind)); // complex value of real arguments
    EXPECT_EQ(callComplex(*fun("besselj"), {1.0, 1.0}, 1.0).bits & kFunErrorMask, unsigned(kFunKind));
}

TEST(Bessel, OneBadElementMakesTheValueNaNWithItsKey)
{
    ValRepPtr order = ValRep::make(0.0), x = ValRep::make();
    x->reset(false, false, 3);
    DArrayPtr a;
    x->addDArray(a);
    (*a)[0] = 1.0, (*a)[1] = 0.0, (*a)[2] = 2.0;
    x->setEvaluated();

    const ValRepPtr r = ValRep::applyOp(*fun("besselk"), order, x, ValRep::kKeepReal);

    EXPECT_TRUE(r->isNaN());
    EXPECT_EQ(idOf([&] { r->getDouble(); }), "bessel_range");
}

// ---- sums of many terms

TEST(GenAdd, AddsFromLeftToRight)
{
    const GenAddFun f("sum", 3);
    std::vector<FunObj::D> args = {real(1e100), real(-1e100), real(1.0)};

    EXPECT_EQ(f(args, 2), 0u);

    EXPECT_EQ(*args[1], 1.0); // the other order gives 0
    EXPECT_EQ(*args[0], 1e100);
}

TEST(GenAdd, TheTargetMayBeAnyArgument)
{
    const GenAddFun f("sum", 3);
    for (const int which : {1, 2, 3}) {
        std::vector<double> x(600), y(600), z(600);
        for (int i = 0; i < 600; ++i)
            x[i] = i, y[i] = 0.5 * i, z[i] = 1.0;
        std::vector<FunObj::DA> args = {arrayOf(x, 1), arrayOf(y, 1), arrayOf(z, 1)};
        f(args, 600, which);
        for (int i = 0; i < 600; ++i)
            ASSERT_EQ((*args[which - 1])[i], 1.5 * i + 1.0) << which << ' ' << i;
        EXPECT_EQ((*args[which - 1])[600], -777.0);
    }
    std::vector<FunObj::C> args = {complex({1.0, 2.0}), complex({3.0, 4.0})};
    f(args, 1);
    EXPECT_EQ(*args[0], Complex(4.0, 6.0));
}

TEST(GenAdd, IsLinearWithUnitDerivatives)
{
    const GenAddFun f("sum", 3);
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const EvalNodePtr x = maker->makeVarNode("x");

    EXPECT_TRUE(f.isMulti() && f.isLinear(1) && f.isLinear(3));
    EXPECT_EQ(f.nArgs(), 3);
    EXPECT_TRUE(f.diffRule({x, x, x}, 2, maker)->isUnit());
}

// ---- scalar mathematics

TEST(QxMath, GivesTheBitsOfTheFunctionObjects)
{
    using Real = double (*)(double);
    const std::pair<const char*, Real> functions[] = {
        {"acos", qxmath::acosDouble}, {"asin", qxmath::asinDouble}, {"atan", qxmath::atan}, {"exp", qxmath::exp},
        {"log2", qxmath::log2Double}, {"log10", qxmath::log10Double}, {"log", qxmath::logDouble}, {"cos", qxmath::cos},
        {"cosh", qxmath::cosh}, {"sin", qxmath::sin}, {"sinh", qxmath::sinh}, {"sqrt", qxmath::sqrtDouble},
        {"tan", qxmath::tan}, {"tanh", qxmath::tanh}, {"erf", qxmath::erf}};
    for (const auto& [name, f] : functions)
        for (const double x : {-2.0, -0.3, 0.0, 0.7, 1.9, 30.0})
            EXPECT_TRUE(same(f(x), callReal(*fun(name), x).value.real())) << name << ' ' << x;
    EXPECT_EQ(qxmath::atan2(1.0, -1.0), 0.75 * pi);
    EXPECT_EQ(qxmath::mod(-1.0, 3.0), 2.0);
}

TEST(QxMath, RaisesAFailedBesselFunctionWithItsData)
{
    EXPECT_TRUE(close(qxmath::besselj(0.0, 1.0), 0.7651976865579666, 1e-15));
    EXPECT_TRUE(close(qxmath::besselh(0.0, 1.0), Complex(0.7651976865579666, 0.08825696421567697), 1e-14));
    EXPECT_TRUE(close(qxmath::besselh(2, 0.0, 1.0), Complex(0.7651976865579666, -0.08825696421567697), 1e-14));
    try {
        qxmath::besselk(0.5, 0.0);
        FAIL() << "nothing raised";
    } catch (qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Error_calculating_bessel_function");
        ASSERT_EQ(e.getArgs(0).size(), 3u);
        EXPECT_EQ(e.getArgs(0)[0], (std::pair<std::string, std::string>("m", "3")));
        EXPECT_EQ(e.getArgs(0)[1], (std::pair<std::string, std::string>("nu", "0.5")));
        EXPECT_EQ(e.getArgs(0)[2].first, "Error_code");
    }
}

TEST(QxMath, IncompleteGammaHasItsLimitsAndRefusals)
{
    EXPECT_TRUE(close(qxmath::gammainc(1.0, 1.0), 1.0 - std::exp(-1.0), 1e-15));
    EXPECT_EQ(qxmath::gammainc(0.0, 2.0), 0.0);
    EXPECT_EQ(qxmath::gammainc(3.0, 0.0), 1.0);
    EXPECT_EQ(qxmath::gammainc(inf, 2.0), 1.0);
    EXPECT_EQ(qxmath::gammainc(2.0, inf), 0.0);
    EXPECT_TRUE(std::isnan(qxmath::gammainc(inf, inf)));
    EXPECT_TRUE(std::isnan(qxmath::gammainc(kNaN, 1.0)));
    EXPECT_TRUE(std::isnan(qxmath::gammainc(1.0, kNaN)));
    EXPECT_EQ(idOf([] { qxmath::gammainc(-1.0, 1.0); }), "Argument 1 must be nonnegative.");
    EXPECT_EQ(idOf([] { qxmath::gammainc(1.0, -1.0); }), "Argument 1 must be nonnegative.");
}

TEST(QxMath, IncompleteBetaHasItsLimitsAndRefusals)
{
    EXPECT_TRUE(close(qxmath::betainc(0.3, 1.0, 1.0), 0.3, 1e-15));
    EXPECT_TRUE(close(qxmath::betainc(0.3, 2.0, 1.0), 0.09, 1e-15));
    EXPECT_EQ(qxmath::betainc(0.0, 2.0, 3.0), 0.0);
    EXPECT_EQ(qxmath::betainc(1.0, 2.0, 3.0), 1.0);
    EXPECT_EQ(qxmath::betainc(0.5, inf, 1.0), 0.0);
    EXPECT_EQ(qxmath::betainc(0.5, 1.0, inf), 1.0);
    EXPECT_TRUE(std::isnan(qxmath::betainc(0.5, inf, inf)));
    for (const double x : {0.0, 1.0}) // the ends hold for any shape
        for (const double a : {0.5, inf})
            EXPECT_EQ(qxmath::betainc(x, a, inf), x) << a;
    EXPECT_TRUE(std::isnan(qxmath::betainc(kNaN, 1.0, 1.0)));
    EXPECT_TRUE(std::isnan(qxmath::betainc(0.5, kNaN, 1.0)));
    EXPECT_EQ(idOf([] { qxmath::betainc(1.5, 1.0, 1.0); }), "Argument 1 must be in [0,1], inclusive.");
    EXPECT_EQ(idOf([] { qxmath::betainc(0.5, -1.0, 1.0); }), "Argument 2 must be nonnegative.");
    EXPECT_EQ(idOf([] { qxmath::betainc(0.5, 1.0, -1.0); }), "Argument 3 must be nonnegative.");
}

TEST(QxMath, ErrorFunctions)
{
    EXPECT_TRUE(close(qxmath::erfc(1.0), 0.15729920705028513, 1e-15));
    EXPECT_TRUE(close(qxmath::erfcx(1.0), 0.427583576155807, 1e-15));
    EXPECT_TRUE(close(qxmath::erf(Complex(1.0, 1.0)), Complex(1.3161512816979477, 0.19045346923783469), 1e-14));
    EXPECT_TRUE(close(qxmath::erfc(Complex(1.0, 1.0)), Complex(-0.3161512816979477, -0.19045346923783469), 1e-14));
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
// Every function of the standard table as a host calls it, through ValRep::applyOp: real, promoted and complex operands,
// numbers and arrays, shared and not, with real storage kept or not and bad elements told or not, against a slow
// evaluator of this test's own, which takes one number at a time through the C library in extended precision.

#include "evalrep.hpp"
#include "tests/functions/fun_support.hpp"
#include "tests/support/failure.hpp"

#include <functional>
#include <gtest/gtest.h>
#include <set>

using namespace qxtest;

namespace {

using Real = long double;
using Wide = std::complex<long double>;

constexpr Real kNoValue = std::numeric_limits<Real>::quiet_NaN();
const Real kPi = std::acos(Real(-1));

// ---- the slow evaluator

/// What one element gives: a number, or the key of the message that it leads to.
struct Answer
{
    Wide value;
    const char* error = nullptr;
};

struct Unary
{
    const char* name;
    std::function<Real(Real)> real;  ///< NaN where no real value exists
    std::function<Wide(Wide)> plane; ///< off the axis, and on it where no real value exists
    const char* key = nullptr;       ///< of a real argument without a real value
};

/// The side from which a number on the axis beyond 1 is looked at by asin, acos and atanh: below on the right.
Wide fromSide(Wide z) { return {z.real(), z.imag() == 0 && z.real() > 1 ? Real(-0.0L) : z.imag()}; }
Wide asinOf(Wide z) { return std::asin(fromSide(z)); }
Wide acosOf(Wide z) { return std::acos(fromSide(z)); }
Wide acoshOf(Wide z) { return std::acosh(z); }
Wide atanhOf(Wide z) { return std::atanh(fromSide(z)); }
Wide inverse(Wide z) { return z.imag() == 0 ? Wide(1 / z.real(), 0) : Real(1) / z; }
Wide partByPart(Wide z, Real (*f)(Real)) { return {f(z.real()), f(z.imag())}; }
Real roundOf(Real x) { return std::floor(x + Real(0.5)); }
Real floorOf(Real x) { return std::floor(x); }
Real ceilOf(Real x) { return std::ceil(x); }
Real fixOf(Real x) { return std::trunc(x); }

const std::vector<Unary>& unaryFunctions()
{
    static const std::vector<Unary> all = {
        {"sign", [](Real x) { return Real((x > 0) - (x < 0)); }, [](Wide z) { return z / std::abs(z); }},
        {"exp", [](Real x) { return std::exp(x); }, [](Wide z) { return std::exp(z); }},
        {"sqrt", [](Real x) { return std::sqrt(x); }, [](Wide z) { return std::sqrt(z); }, "sqrt"},
        {"arg", [](Real x) { return x < 0 ? kPi : x >= 0 ? 0 : x; }, [](Wide z) { return Wide(std::arg(z)); }},
        {"abs", [](Real x) { return std::fabs(x); }, [](Wide z) { return Wide(std::abs(z)); }},
        {"real", [](Real x) { return x; }, [](Wide z) { return Wide(z.real()); }},
        {"imag", [](Real) { return Real(0); }, [](Wide z) { return Wide(z.imag()); }},
        {"conj", [](Real x) { return x; }, [](Wide z) { return std::conj(z); }},
        {"log", [](Real x) { return std::log(x); }, [](Wide z) { return std::log(z); }, "log"},
        {"log10", [](Real x) { return std::log10(x); }, [](Wide z) { return std::log(z) / std::log(Real(10)); }, "log"},
        {"log2", [](Real x) { return std::log2(x); }, [](Wide z) { return std::log(z) / std::log(Real(2)); }, "log"},
        {"round", roundOf, [](Wide z) { return partByPart(z, roundOf); }},
        {"ceil", ceilOf, [](Wide z) { return partByPart(z, ceilOf); }},
        {"floor", floorOf, [](Wide z) { return partByPart(z, floorOf); }},
        {"fix", fixOf, [](Wide z) { return partByPart(z, fixOf); }},
        {"sin", [](Real x) { return std::sin(x); }, [](Wide z) { return std::sin(z); }},
        {"cos", [](Real x) { return std::cos(x); }, [](Wide z) { return std::cos(z); }},
        {"tan", [](Real x) { return std::tan(x); }, [](Wide z) { return std::tan(z); }},
        {"sec", [](Real x) { return 1 / std::cos(x); }, [](Wide z) { return inverse(std::cos(z)); }},
        {"csc", [](Real x) { return 1 / std::sin(x); }, [](Wide z) { return inverse(std::sin(z)); }},
        {"cot", [](Real x) { return 1 / std::tan(x); }, [](Wide z) { return inverse(std::tan(z)); }},
        {"asin", [](Real x) { return std::asin(x); }, asinOf, "range"},
        {"acos", [](Real x) { return std::acos(x); }, acosOf, "range"},
        {"atan", [](Real x) { return std::atan(x); }, [](Wide z) { return std::atan(z); }},
        {"asec", [](Real x) { return std::acos(1 / x); }, [](Wide z) { return acosOf(inverse(z)); }, "range"},
        {"acsc", [](Real x) { return std::asin(1 / x); }, [](Wide z) { return asinOf(inverse(z)); }, "range"},
        {"acot", [](Real x) { return std::atan(1 / x); }, [](Wide z) { return std::atan(inverse(z)); }},
        {"sinh", [](Real x) { return std::sinh(x); }, [](Wide z) { return std::sinh(z); }},
        {"cosh", [](Real x) { return std::cosh(x); }, [](Wide z) { return std::cosh(z); }},
        {"tanh", [](Real x) { return std::tanh(x); }, [](Wide z) { return std::tanh(z); }},
        {"sech", [](Real x) { return 1 / std::cosh(x); }, [](Wide z) { return inverse(std::cosh(z)); }},
        {"csch", [](Real x) { return 1 / std::sinh(x); }, [](Wide z) { return inverse(std::sinh(z)); }},
        {"coth", [](Real x) { return 1 / std::tanh(x); }, [](Wide z) { return inverse(std::tanh(z)); }},
        {"asinh", [](Real x) { return std::asinh(x); }, [](Wide z) { return std::asinh(z); }},
        {"acosh", [](Real x) { return std::acosh(x); }, acoshOf, "range"},
        {"atanh", [](Real x) { return std::atanh(x); }, atanhOf, "range"},
        {"asech", [](Real x) { return std::acosh(1 / x); }, [](Wide z) { return acoshOf(inverse(z)); }, "range"},
        {"acsch", [](Real x) { return std::asinh(1 / x); }, [](Wide z) { return std::asinh(inverse(z)); }},
        {"acoth", [](Real x) { return std::atanh(1 / x); }, [](Wide z) { return atanhOf(inverse(z)); }, "range"},
        {"erf", [](Real x) { return std::erf(x); }, [](Wide) { return Wide(kNoValue); }},
    };
    return all;
}

Answer unary(const Unary& f, Wide z, bool inPlane)
{
    const Real x = z.imag() == 0 ? f.real(z.real()) : kNoValue;
    if (!std::isnan(x))
        return {x};
    if (inPlane)
        return {f.plane(z), std::string(f.name) == "erf" ? "erf" : nullptr};
    return {kNoValue, f.key};
}

/// J, or I, of order nu by its power series; principal powers, so that values on the cut come from above.
Wide besselSeries(Real nu, Wide z, Real sign)
{
    const Wide half = z / Real(2), square = half * half * sign;
    Wide sum = 0, power = std::exp(nu * std::log(half));
    Real factorial = 1;
    for (int k = 0; k < 60; ++k) {
        sum += power / (factorial * std::tgamma(nu + Real(k) + 1));
        power *= square;
        factorial *= Real(k + 1);
    }
    return sum;
}

/// For orders that are not whole.
Wide bessel(char kind, Real nu, Wide z)
{
    switch (kind) {
    case 'j':
        return besselSeries(nu, z, -1);
    case 'i':
        return besselSeries(nu, z, 1);
    case 'y':
        return (besselSeries(nu, z, -1) * std::cos(nu * kPi) - besselSeries(-nu, z, -1)) / std::sin(nu * kPi);
    default:
        return (besselSeries(-nu, z, 1) - besselSeries(nu, z, 1)) * kPi / (2 * std::sin(nu * kPi));
    }
}

struct Step
{
    const char* name;
    Real low, high; ///< equal for the derivatives, which are 0 outside the zone
    std::vector<Real> coefficients;
};

const std::vector<Step>& steps()
{
    static const std::vector<Step> all = {
        {"qxsmhs", 0, 1, {0.5L, 1.640625L, 0, -2.734375L, 0, 2.296875L, 0, -0.703125L}},
        {"qxdsmhs", 0, 0, {1.640625L, 0, -8.203125L, 0, 11.484375L, 0, -4.921875L}},
        {"qxsmsign", -1, 1, {0, 3.28125L, 0, -5.46875L, 0, 4.59375L, 0, -1.40625L}},
        {"qxdsmsign", 0, 0, {3.28125L, 0, -16.40625L, 0, 22.96875L, 0, -9.84375L}},
        {"qxc1hs", 0, 1, {0.5L, 0.75L, 0, -0.25L}},
        {"qxdc1hs", 0, 0, {0.75L, 0, -0.75L}},
        {"qxc2hs", 0, 1, {0.5L, 0.9375L, 0, -0.625L, 0, 0.1875L}},
        {"qxdc2hs", 0, 0, {0.9375L, 0, -1.875L, 0, 0.9375L}},
    };
    return all;
}

Answer step(const Step& s, Wide x, Wide w)
{
    if (w.imag() != 0)
        return {kNoValue, "trans"};
    const bool slope = s.low == s.high;
    if (!(std::abs(w) > std::abs(x)))
        return {slope ? 0 : (x / w).real() < 0 ? s.low : s.high};
    Wide sum = 0, power = 1;
    for (const Real c : s.coefficients) {
        sum += c * power;
        power *= x / w;
    }
    return {slope ? sum / w : sum};
}

const std::set<std::string>& binaryNames()
{
    static const std::set<std::string> all = [] {
        std::set<std::string> names = {"realdot", "min", "max", "mod", "atan2", "bessel", "besselj", "bessely", "besseli", "besselk"};
        for (const Step& s : steps())
            names.insert(s.name);
        return names;
    }();
    return all;
}

Answer binary(const std::string& name, Wide x, Wide y, bool inPlane)
{
    if (name == "realdot")
        return {x.real() * y.real() + x.imag() * y.imag()};
    if (name == "min")
        return {y.real() < x.real() ? y : x};
    if (name == "max")
        return {y.real() > x.real() ? y : x};
    if (name == "atan2")
        return {std::atan2(x.real(), y.real())};
    if (name == "mod") {
        if (x.imag() != 0 || y.imag() != 0)
            return {kNoValue, "impl"};
        return {x.real() - std::floor(x.real() / y.real()) * y.real()};
    }
    if (name.rfind("bessel", 0) == 0) {
        if (x.imag() != 0 || (!inPlane && y.real() < 0)) // of an order that is not whole
            return {kNoValue, "bessel_cmplx"};
        return {bessel(name.size() > 6 ? name[6] : 'j', x.real(), y)};
    }
    for (const Step& s : steps())
        if (name == s.name)
            return step(s, x, y);
    return {kNoValue, "no reference"};
}

// ---- operands

enum class Storage { ForReals, RealInComplex, ForComplex };

struct Operand
{
    std::vector<Complex> points;
    Storage storage;
    bool array;

    bool isComplex() const { return storage == Storage::ForComplex; }

    ValRepPtr make(std::size_t first, std::size_t count) const
    {
        const ValRepPtr v = ValRep::make();
        v->reset(!array, storage != Storage::ForReals, array ? count : 0);
        const auto fill = [&](auto* to) {
            for (std::size_t i = 0; i < count; ++i)
                if constexpr (std::is_same_v<decltype(to), double*>)
                    to[i] = points[first + i].real();
                else
                    to[i] = points[first + i];
        };
        if (array && storage == Storage::ForReals) {
            DArrayPtr a;
            v->addDArray(a);
            fill(a->data());
        } else if (array) {
            CArrayPtr a;
            v->addCArray(a);
            fill(a->data());
        } else if (storage == Storage::ForReals) {
            boost::shared_ptr<double> a;
            v->addDScalar(a);
            fill(a.get());
        } else {
            boost::shared_ptr<Complex> a;
            v->addCScalar(a);
            fill(a.get());
        }
        v->setEvaluated();
        if (storage == Storage::RealInComplex)
            v->checkComplex();
        return v;
    }
};

const std::vector<Complex> kReals = {-2.5, -1.3, -0.6, -0.25, 0.3, 0.75, 1.5, 2.75};
const std::vector<Complex> kPlane = {{0.3, 0.4}, {-0.7, 1.1}, {1.4, -0.6}, {-2.1, -0.3}, {0.2, -2.2}, {2.5, 0.1}, {-1.2, 0.9}, {-0.4, -0.8}};

std::vector<Operand> operands(const std::vector<Complex>& reals, const std::vector<Complex>& plane)
{
    std::vector<Operand> all;
    for (const bool array : {false, true})
        for (const Storage s : {Storage::ForReals, Storage::RealInComplex, Storage::ForComplex})
            all.push_back({s == Storage::ForComplex ? plane : reals, s, array});
    return all;
}

const unsigned kFlags[] = {0, ValRep::kKeepReal, ValRep::kKeepNaN, ValRep::kKeepReal | ValRep::kKeepNaN};

// ---- comparison

std::string raisedBy(const ValRepPtr& value)
{
    return idOf([&] { value->throwError(); });
}

bool agrees(Complex got, Wide wanted)
{
    return std::abs(Wide(got) - wanted) <= 1e-12L * std::max(Real(1), std::abs(wanted));
}

/// What a value must be: the answers of its elements, or the first error among them.
void expectValue(const ValRepPtr& got, const std::vector<Answer>& wanted, unsigned flags, bool inPlane, const std::string& what)
{
    const char* error = nullptr;
    bool imaginary = false;
    for (const Answer& a : wanted) {
        if (!error)
            error = a.error;
        imaginary = imaginary || a.value.imag() != 0;
    }
    if (error && (flags & ValRep::kKeepNaN) == 0) {
        EXPECT_TRUE(got->isNaN()) << what;
        EXPECT_EQ(raisedBy(got), error) << what;
        return;
    }
    ASSERT_FALSE(got->isNaN()) << what << " raises " << raisedBy(got);
    EXPECT_TRUE(got->isEvaluated()) << what;
    const auto read = got->getComplexReader();
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const Complex value = (*read)(static_cast<int>(i), 0);
        if (!wanted[i].error) {
            EXPECT_TRUE(agrees(value, wanted[i].value))
                << what << " element " << i << ": got " << value << ", wanted " << Complex(wanted[i].value);
        } else if (!inPlane) {
            EXPECT_TRUE(std::isnan(value.real())) << what << " element " << i;
        }
    }
    if (imaginary && !error) {
        EXPECT_TRUE(got->isComplex()) << what;
    }
    if (!inPlane) {
        EXPECT_FALSE(got->isComplex() || got->isStoredAsComplex()) << what;
    }
}

/// The texts of all numbers of an operand: to see that a shared one is left alone.
std::string textOf(const ValRepPtr& v) { return v->toString() + (v->isComplex() ? " complex" : ""); }

std::string describe(const std::string& name, const Operand& a, unsigned flags)
{
    return name + " of " + (a.storage == Storage::ForReals ? "real" : a.isComplex() ? "complex" : "stored complex") +
           (a.array ? " array" : " number") + ", flags " + std::to_string(flags);
}

} // namespace

TEST(AppliedFunctions, TheReferenceKnowsTheWholeTable)
{
    std::set<std::string> names = binaryNames();
    for (const Unary& f : unaryFunctions())
        names.insert(f.name);
    std::vector<FunObjPtr> all;
    makeStandardFunctions(all);
    ASSERT_EQ(names.size(), all.size());
    for (const FunObjPtr& f : all)
        EXPECT_EQ(names.count(f->getName()), 1u) << f->getName();
}

TEST(AppliedFunctions, OfOneArgumentAgreeWithTheReferenceForEveryStorageAndFlag)
{
    for (const Unary& reference : unaryFunctions()) {
        const FunObj& f = *fun(reference.name);
        for (const Operand& a : operands(kReals, kPlane))
            for (const unsigned flags : kFlags) {
                const bool promoted = !f.isRealIfReal() && (flags & ValRep::kKeepReal) == 0 && !f.isAlwaysReal();
                const bool inPlane = promoted || a.isComplex();
                const std::size_t step = a.array ? a.points.size() : 1;
                for (std::size_t first = 0; first < a.points.size(); first += step) {
                    const std::string what = describe(reference.name, a, flags) + ", from point " + std::to_string(first);
                    std::vector<Answer> wanted;
                    for (std::size_t i = first; i < first + step; ++i)
                        wanted.push_back(unary(reference, a.points[i], inPlane));

                    ValRepPtr unique = a.make(first, step), shared = a.make(first, step);
                    const ValRepPtr other = shared;
                    const std::string before = textOf(other);
                    expectValue(ValRep::applyOp(f, unique, flags), wanted, flags, inPlane, what);
                    expectValue(ValRep::applyOp(f, shared, flags), wanted, flags, inPlane, what + ", shared");
                    EXPECT_EQ(textOf(other), before) << what;
                }
            }
    }
}

TEST(AppliedFunctions, OfTwoArgumentsAgreeWithTheReferenceForEveryStorageAndFlag)
{
    // Bessel functions: orders that are not whole on the left. Steps: widths on the right, the zone's ends on both sides.
    const std::vector<Complex> orders = {0.3, 1.7, 0.3, 1.7, 0.3, 1.7, 0.3, 1.7};
    const std::vector<Complex> right = {0.8, 1.6, -0.7, 2.5, -1.9, 0.9, 2.2, 1.1};
    const std::vector<Complex> rightPlane = {{0.8, 0.5}, {-1.6, 0.3}, {0.7, -0.4}, {2.5, 0.2}, {1.9, -1.1}, {0.9, 0.6}, {-0.2, 1.2}, {1.1, 0.7}};

    for (const std::string& name : binaryNames()) {
        const FunObj& f = *fun(name);
        const bool isBessel = name.rfind("bessel", 0) == 0;
        for (const Operand& a : operands(isBessel ? orders : kReals, kPlane))
            for (const Operand& b : operands(right, rightPlane))
                for (const unsigned flags : kFlags) {
                    const bool promoted = !f.isRealIfReal() && (flags & ValRep::kKeepReal) == 0;
                    const bool inPlane = promoted || a.isComplex() || b.isComplex();
                    // One point at a time unless both are arrays: a scalar stands for all points.
                    const std::size_t step = a.array && b.array ? a.points.size() : 1;
                    for (std::size_t first = 0; first < a.points.size(); first += step) {
                        const std::string what = describe(name, a, flags) + " and " + describe("", b, flags) + ", from point " + std::to_string(first);
                        std::vector<Answer> wanted;
                        for (std::size_t i = first; i < first + step; ++i)
                            wanted.push_back(binary(name, a.points[i], b.points[i], inPlane));

                        ValRepPtr x = a.make(first, step), y = b.make(first, step);
                        ValRepPtr sharedX = a.make(first, step), sharedY = b.make(first, step);
                        const ValRepPtr otherX = sharedX, otherY = sharedY;
                        const std::string before = textOf(otherX) + textOf(otherY);
                        expectValue(ValRep::applyOp(f, x, y, flags), wanted, flags, inPlane, what);
                        expectValue(ValRep::applyOp(f, sharedX, sharedY, flags), wanted, flags, inPlane, what + ", shared");
                        EXPECT_EQ(textOf(otherX) + textOf(otherY), before) << what;
                    }
                }
    }
}

TEST(AppliedFunctions, OfOneArgumentAgreeWithTheReferenceAtTheEdgesOfNumbers)
{
    // Poles, and what the formulas of the inverse functions make of their surroundings, have tests of their own.
    const std::set<std::string> ofTheReciprocal = {"asec", "acsc", "acot", "asech", "acsch", "acoth"};
    const double points[] = {0.0, -0.0, 1e-300, -1e-300, 1e-8, -1e-8, 0.5, -0.5, 1.0, -1.0, 2.0, -2.0, 30.5, -30.5, inf, -inf, kNaN};
    for (const Unary& reference : unaryFunctions())
        for (const double x : points)
            for (const unsigned flags : {0u, ValRep::kKeepReal | ValRep::kKeepNaN}) {
                if ((ofTheReciprocal.count(reference.name) != 0 && std::fabs(x) < 1e-5) ||
                    (std::string(reference.name) == "atanh" && std::isinf(x)))
                    continue;
                const FunObj& f = *fun(reference.name);
                const bool promoted = !f.isRealIfReal() && flags == 0 && !f.isAlwaysReal();
                const Wide wanted = unary(reference, x, promoted).value;

                ValRepPtr v = ValRep::make(x);
                const ValRepPtr r = ValRep::applyOp(f, v, flags);

                const std::string what = std::string(reference.name) + '(' + std::to_string(x) + "), flags " + std::to_string(flags);
                if (r->isNaN()) {
                    EXPECT_TRUE(std::isnan(wanted.real())) << what << " raises " << raisedBy(r) << ", wanted " << Complex(wanted);
                    continue;
                }
                const Complex got = r->getComplex();
                const bool right = std::isnan(wanted.real())              ? std::isnan(got.real())
                                   : !std::isfinite(std::abs(wanted)) ? same(got.real(), double(wanted.real()))
                                                                      : agrees(got, wanted);
                EXPECT_TRUE(right) << what << ": got " << got << ", wanted " << Complex(wanted);
            }
}

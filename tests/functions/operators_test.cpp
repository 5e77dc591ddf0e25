// SPDX-License-Identifier: LicenseRef-qxkernel
// Every function of two arguments in its sixteen forms, both targets, against a plain scalar reference.

#include "tests/functions/fun_support.hpp"

#include <gtest/gtest.h>

using namespace qxtest;

namespace {

using LongComplex = std::complex<long double>;

Complex truth(bool t) { return t ? 1.0 : 0.0; }
bool isTrue(Complex z) { return z.real() != 0.0 || z.imag() != 0.0; }

/// The operation on complex numbers, written without the kernels; real operands have imaginary part 0.
Complex reference(const std::string& name, Complex x, Complex y)
{
    const bool onAxis = x.imag() == 0.0 && y.imag() == 0.0;
    if (name == "+")
        return x + y;
    if (name == "-")
        return x - y;
    if (name == "*")
        return {x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real()};
    if (name == "/") {
        if (!isTrue(y))
            return onAxis ? Complex(x.real() / 0.0) : Complex(x.real() / 0.0, x.imag() / 0.0);
        return Complex(LongComplex(x) / LongComplex(y));
    }
    if (name == "plussq")
        return reference("*", x, x) + reference("*", y, y);
    if (name == "^")
        return !isTrue(x) ? truth(!isTrue(y)) : onAxis && (x.real() >= 0.0 || std::floor(y.real()) == y.real())
                              ? Complex(std::pow(x.real(), y.real()))
                              : Complex(std::exp(y * std::log(x)));
    if (name == "<")
        return truth(x.real() < y.real());
    if (name == ">")
        return truth(x.real() > y.real());
    if (name == "<=")
        return truth(x.real() <= y.real());
    if (name == ">=")
        return truth(x.real() >= y.real());
    if (name == "==")
        return truth(x == y);
    if (name == "!=")
        return truth(x != y);
    if (name == "&&")
        return truth(isTrue(x) && isTrue(y));
    if (name == "||")
        return truth(isTrue(x) || isTrue(y));
    if (name == "min")
        return y.real() < x.real() ? y : x;
    if (name == "max")
        return y.real() > x.real() ? y : x;
    if (name == "realdot")
        return x.real() * y.real() + x.imag() * y.imag();
    if (name == "atan2")
        return std::atan2(x.real(), y.real());
    throw std::runtime_error(name);
}

class Operator : public testing::TestWithParam<const char*>
{
protected:
    const std::vector<Complex> xs = {{1.5, 0.5}, {0.0, 0.0}, {-2.0, 1.0}, {3.0, 0.0}, {2.0, -2.0}, {-1.0, 0.0}, {0.25, 4.0},
                                     {1.0, 1.0}, {7.0, -3.0}, {-0.5, 0.0}, {2.0, 2.0}};
    const std::vector<Complex> ys = {{1.5, 0.5}, {2.0, 1.0}, {-2.0, 0.0}, {3.0, 0.0}, {2.0, 2.0}, {0.5, 0.0}, {1.0, -1.0},
                                     {0.0, 1.0}, {2.0, 0.0}, {-3.0, 0.0}, {0.75, 0.5}};

    static std::vector<double> realParts(const std::vector<Complex>& z)
    {
        std::vector<double> x;
        for (const Complex& w : z)
            x.push_back(w.real());
        return x;
    }

    /// Runs one array form on n elements, a scalar operand being the first number of its list, and compares.
    template <class X, class Y>
    void check(const X& x, const Y& y, bool xComplex, bool yComplex, bool intoY, int which, const char* form)
    {
        const FunObj& f = *fun(GetParam());
        const auto n = static_cast<unsigned>(xs.size());
        constexpr bool xScalar = std::is_same_v<X, FunObj::D> || std::is_same_v<X, FunObj::C>;
        constexpr bool yScalar = std::is_same_v<Y, FunObj::D> || std::is_same_v<Y, FunObj::C>;
        const bool outComplex = intoY ? yComplex : xComplex;
        const std::string name = GetParam();
        const bool bothParts = name == "==" || name == "!=" || name == "&&" || name == "||";

        unsigned bits = 0;
        if constexpr (xScalar && yScalar)
            bits = f(x, y, which);
        else
            bits = f(x, y, n, which);

        bool anyImaginary = false, zeroDivisor = false;
        for (unsigned i = 0; i < (xScalar && yScalar ? 1u : n); ++i) {
            Complex a = xs[xScalar ? 0 : i], b = ys[yScalar ? 0 : i];
            if (!xComplex || (!outComplex && !bothParts))
                a = a.real();
            if (!yComplex || (!outComplex && !bothParts))
                b = b.real();
            Complex wanted = reference(name, a, b);
            const Complex got = intoY ? at(y, i) : at(x, i);
            anyImaginary = anyImaginary || got.imag() != 0.0;
            zeroDivisor = zeroDivisor || !isTrue(b);
            if (!outComplex)
                wanted = name == "^" ? !isTrue(a) ? wanted : std::pow(a.real(), b.real()) : wanted.real();
            if (name == "/" && !isTrue(b)) {
                EXPECT_FALSE(std::isfinite(got.real())) << form;
                continue;
            }
            EXPECT_TRUE(close(got, wanted, name == "^" ? 4e-15 : 5e-16))
                << form << ": " << a << ' ' << name << ' ' << b << " gave " << got << ", wanted " << wanted;
        }
        const bool keepsFlag = name == "+" || name == "-";
        EXPECT_EQ((bits & kFunComplex) != 0, outComplex && (keepsFlag || anyImaginary)) << form;
        if (name == "/") {
            EXPECT_EQ((bits & kFunDomain) != 0, zeroDivisor) << form;
        }
        // The elements beyond the count stay untouched.
        if constexpr (!xScalar) {
            EXPECT_EQ(at(x, n), Complex(-777.0)) << form;
        }
        if constexpr (!yScalar) {
            EXPECT_EQ(at(y, n), Complex(-777.0)) << form;
        }
    }

    static Complex at(const FunObj::D& x, unsigned) { return *x; }
    static Complex at(const FunObj::C& x, unsigned) { return *x; }
    static Complex at(const FunObj::DA& x, unsigned i) { return (*x)[i]; }
    static Complex at(const FunObj::CA& x, unsigned i) { return (*x)[i]; }
};

TEST_P(Operator, AllSixteenFormsAgreeWithTheScalarReference)
{
    const auto D = [](const std::vector<Complex>& z) { return real(z[0].real()); };
    const auto C = [](const std::vector<Complex>& z) { return complex(z[0]); };
    const auto DA = [](const std::vector<Complex>& z) { return arrayOf(realParts(z), 2); };
    const auto CA = [](const std::vector<Complex>& z) { return arrayOf(z, 2); };

    for (const int which : {1, 2}) {
        const bool second = which == 2;
        check(D(xs), D(ys), false, false, second, which, "D,D");
        check(C(xs), D(ys), true, false, second, which, "C,D");
        check(D(xs), C(ys), false, true, second, which, "D,C");
        check(C(xs), C(ys), true, true, second, which, "C,C");
        check(DA(xs), D(ys), false, false, false, which, "DA,D");
        check(CA(xs), D(ys), true, false, false, which, "CA,D");
        check(DA(xs), C(ys), false, true, false, which, "DA,C");
        check(CA(xs), C(ys), true, true, false, which, "CA,C");
        check(D(xs), DA(ys), false, false, true, which, "D,DA");
        check(C(xs), DA(ys), true, false, true, which, "C,DA");
        check(D(xs), CA(ys), false, true, true, which, "D,CA");
        check(C(xs), CA(ys), true, true, true, which, "C,CA");
        check(DA(xs), DA(ys), false, false, second, which, "DA,DA");
        check(CA(xs), DA(ys), true, false, second, which, "CA,DA");
        check(DA(xs), CA(ys), false, true, second, which, "DA,CA");
        check(CA(xs), CA(ys), true, true, second, which, "CA,CA");
    }
}

TEST_P(Operator, MayTakeOneArrayForBothOperands)
{
    auto values = realParts(xs);
    if (GetParam() == std::string("/"))
        std::erase(values, 0.0); // 0 / 0 and 0 ^ 0 have tests of their own; a negative base need not have a real power
    if (GetParam() == std::string("^"))
        std::erase_if(values, [](double v) { return v <= 0.0; });
    ASSERT_GE(values.size(), 2u);
    const auto x = arrayOf(values);

    (*fun(GetParam()))(x, x, static_cast<unsigned>(values.size()), 1);

    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_TRUE(close((*x)[i], reference(GetParam(), values[i], values[i]), 5e-16)) << values[i];
}

INSTANTIATE_TEST_SUITE_P(All, Operator,
                         testing::Values("+", "-", "*", "/", "plussq", "^", "<", ">", "<=", ">=", "==", "!=", "&&", "||",
                                         "min", "max", "realdot", "atan2"));

TEST(Divide, AnArrayByARealNumberIsMultipliedByTheReciprocal)
{
    // RequiredQuirk: 5 * (1/49) and 5/49 differ in the last bit.
    const auto x = arrayOf<double>({5.0});

    (*fun("/"))(x, real(49.0), 1, 1);

    EXPECT_EQ((*x)[0], 5.0 * (1.0 / 49.0));
    bool differs = false;
    for (double a = 1.0; a < 100.0; ++a)
        differs = differs || a * (1.0 / 49.0) != a / 49.0;
    EXPECT_TRUE(differs);
}

TEST(Divide, AnArrayByTheNumberZeroIsAllNaN)
{
    const auto x = arrayOf<double>({5.0, 0.0, -1.0}, 1);

    EXPECT_EQ((*fun("/"))(x, real(0.0), 3, 1), unsigned(kFunDomain));

    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(std::isnan((*x)[i]));
    EXPECT_EQ((*x)[3], -777.0);
}

TEST(Divide, RequiredQuirkTheReciprocalOfInfinityOrOfADenormalDecides)
{
    const auto x = arrayOf<double>({inf, 1.0, 0.0});
    (*fun("/"))(x, real(inf), 3, 1);
    EXPECT_TRUE(std::isnan((*x)[0]));
    EXPECT_EQ((*x)[1], 0.0);

    const auto y = arrayOf<double>({0.0, 1e-310}); // 1 / 1e-310 overflows
    (*fun("/"))(y, real(1e-310), 2, 1);
    EXPECT_TRUE(std::isnan((*y)[0]));
    EXPECT_EQ((*y)[1], inf);
}

TEST(Divide, NumbersByZeroFollowTheArithmetic)
{
    EXPECT_EQ(callReal(*fun("/"), 1.0, 0.0).value.real(), inf);
    EXPECT_TRUE(std::isnan(callReal(*fun("/"), 0.0, 0.0).value.real()));
    const Result r = callComplex(*fun("/"), {1.0, -1.0}, {0.0, 0.0});
    EXPECT_TRUE(same(r.value, Complex(inf, -inf)));
    EXPECT_EQ(r.bits, unsigned(kFunDomain | kFunComplex));
}

TEST(Divide, ComplexQuotientsNeitherOverflowNorLoseDigits)
{
    EXPECT_TRUE(close(callComplex(*fun("/"), {1e300, 1e300}, {2e300, -1e300}).value, Complex(0.2, 0.6), 2e-16));
    EXPECT_TRUE(close(callComplex(*fun("/"), {1e-300, 1e-300}, {2e-300, -1e-300}).value, Complex(0.2, 0.6), 2e-16));
    // Cancellation in the real part: (1 + i(1+e)) / (1+e - i) has the real part ~1e-16.
    const double e = 0x1p-50;
    const Complex got = callComplex(*fun("/"), {1.0, 1.0 + e}, {1.0 + e, -1.0}).value;
    EXPECT_EQ(got, Complex(LongComplex(1.0L, 1.0L + e) / LongComplex(1.0L + e, -1.0L)));
}

TEST(Equality, AComplexNumberBesideARealTargetCountsWithBothParts)
{
    const auto x = arrayOf<double>({1.0, 2.0});

    EXPECT_EQ((*fun("=="))(x, complex({1.0, 2.0}), 2, 1), 0u);
    EXPECT_EQ((*x)[0], 0.0);

    const auto y = arrayOf<double>({0.0, 2.0});
    (*fun("&&"))(complex({0.0, 1.0}), y, 2, 2);
    EXPECT_EQ((*y)[0], 0.0);
    EXPECT_EQ((*y)[1], 1.0);

    const auto z = arrayOf<double>({1.0});
    (*fun("<"))(z, complex({2.0, 5.0}), 1, 1); // an order looks at real parts
    EXPECT_EQ((*z)[0], 1.0);
}

TEST(Logic, NaNIsTrueAndComparesFalse)
{
    EXPECT_EQ(callReal(*fun("<"), 1.0, kNaN).value.real(), 0.0);
    EXPECT_EQ(callReal(*fun("=="), kNaN, kNaN).value.real(), 0.0);
    EXPECT_EQ(callReal(*fun("!="), kNaN, kNaN).value.real(), 1.0);
    EXPECT_EQ(callReal(*fun("!"), kNaN).value.real(), 0.0);
    EXPECT_EQ(callReal(*fun("!"), -0.0).value.real(), 1.0);
    EXPECT_EQ(callComplex(*fun("!"), {0.0, 1.0}).value, Complex(0.0));
    EXPECT_EQ(callReal(*fun("&&"), kNaN, 1.0).value.real(), 1.0);
}

TEST(Signs, MinusNegatesAndPlusLeaves)
{
    EXPECT_TRUE(same(callReal(*fun("U-"), 0.0).value.real(), -0.0));
    EXPECT_EQ(callComplex(*fun("U-"), {1.0, 2.0}).value, Complex(-1.0, -2.0));
    EXPECT_EQ(callComplex(*fun("U+"), {1.0, 2.0}).value, Complex(1.0, 2.0));
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_support.hpp"

#include <cmath>
#include <limits>

using namespace qxtest;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

Number real(double value)
{
    Number n;
    n.type = Number::Real;
    n.num = value;
    return n;
}

testing::Matcher<const Number&> Is(Number::Type type, double num, double den = 1.0)
{
    return testing::AllOf(testing::Field("type", &Number::type, type), testing::Field("num", &Number::num, num),
                          testing::Field("den", &Number::den, den));
}

} // namespace

TEST(Number, ClassifiesDoublesByWholenessAndMagnitude)
{
    EXPECT_THAT(Number(), Is(Number::Integer, 0));
    EXPECT_THAT(Number(-0.0), Is(Number::Integer, 0));
    EXPECT_THAT(Number(0.5), Is(Number::Real, 0.5));
    EXPECT_THAT(Number(999999999999999.0), Is(Number::Integer, 999999999999999.0));
    EXPECT_THAT(Number(-999999999999999.0), Is(Number::Integer, -999999999999999.0));
    EXPECT_THAT(Number(1e15), Is(Number::Real, 1e15));
    EXPECT_THAT(Number(-1e15), Is(Number::Real, -1e15));
    EXPECT_THAT(Number(infinity), Is(Number::Real, infinity));
    EXPECT_EQ(Number(notANumber).type, Number::Real);
}

TEST(Number, BringsRationalsToLowestTermsWithPositiveDenominator)
{
    EXPECT_THAT(Number(6, -4), Is(Number::Rational, -3, 2));
    EXPECT_THAT(Number(4, 2), Is(Number::Integer, 2));
    EXPECT_THAT(Number(0, 5), Is(Number::Integer, 0));
    EXPECT_THAT(Number(0, -7), Is(Number::Integer, 0));
    EXPECT_THAT(Number(-9, -6), Is(Number::Rational, 3, 2));
    EXPECT_THAT(Number(1.5, 2.0), Is(Number::Real, 0.75));
    EXPECT_THAT(Number(3.0, 1.5), Is(Number::Real, 2.0)); // whole, but not classified again
}

TEST(Number, RaisesDivideByZeroForAZeroDenominator)
{
    EXPECT_EQ(idOf([] { Number(1, 0); }), "Divide_by_zero");
    EXPECT_EQ(idOf([] { (void)(Number(1) / Number(0)); }), "Divide_by_zero");
    EXPECT_EQ(idOf([] { (void)(real(1.5) / real(0.0)); }), "Divide_by_zero");
    EXPECT_EQ(idOf([] { (void)(Number(1, 3) / Number(0)); }), "Divide_by_zero");
}

TEST(Number, LeavesRationalsUnreducedFrom1e15On)
{
    EXPECT_THAT(Number(2e15, 4.0), Is(Number::Rational, 2e15, 4));
    EXPECT_THAT(Number(999999999999998.0, 4.0), Is(Number::Rational, 499999999999999.0, 2));
    EXPECT_EQ(Number(2e15, 4.0), Number(1e15, 2.0)); // by cross-multiplication
    EXPECT_EQ(Number(3.0, 3e15).toString(), Number(1.0, 1e15).toString());
}

struct Arithmetic
{
    const char* what;
    Number a, b, sum, difference, product, quotient;
};

class NumberPromotion : public testing::TestWithParam<Arithmetic>
{
};

TEST_P(NumberPromotion, GivesTheMoreGeneralTypeOrAWholeInteger)
{
    const Arithmetic& c = GetParam();
    const auto same = [](const Number& x) { return Is(x.type, x.num, x.den); };

    EXPECT_THAT(c.a + c.b, same(c.sum));
    EXPECT_THAT(c.a - c.b, same(c.difference));
    EXPECT_THAT(c.a * c.b, same(c.product));
    EXPECT_THAT(c.a / c.b, same(c.quotient));
}

// Integer, Rational and Real on either side; by hand.
INSTANTIATE_TEST_SUITE_P(
    AllPairs, NumberPromotion,
    testing::Values(
        Arithmetic{"II", 7, 2, 9, 5, 14, Number(7, 2)},
        Arithmetic{"IQ", 2, Number(1, 3), Number(7, 3), Number(5, 3), Number(2, 3), 6},
        Arithmetic{"QI", Number(1, 3), 2, Number(7, 3), Number(-5, 3), Number(2, 3), Number(1, 6)},
        Arithmetic{"QQ", Number(1, 3), Number(1, 6), Number(1, 2), Number(1, 6), Number(1, 18), 2},
        Arithmetic{"IR", 2, 0.5, 2.5, 1.5, 1, real(4)},
        Arithmetic{"RI", 0.5, 2, 2.5, -1.5, 1, 0.25},
        Arithmetic{"QR", Number(1, 4), 0.25, 0.5, 0, 0.0625, real(1)},
        Arithmetic{"RQ", 0.5, Number(1, 2), 1, 0, 0.25, real(1)},
        Arithmetic{"RR", 0.5, 0.25, 0.75, 0.25, 0.125, real(2)}),
    [](const testing::TestParamInfo<Arithmetic>& test) { return test.param.what; });

TEST(Number, SumOfTwoRealsThatIsWholeBecomesAnInteger)
{
    EXPECT_THAT(Number(0.5) + Number(0.5), Is(Number::Integer, 1));
    EXPECT_THAT(real(1e15) - real(1e15 - 1), Is(Number::Integer, 1));
    EXPECT_THAT(real(6.0) / real(3.0), Is(Number::Integer, 2));
    EXPECT_EQ((Number(1, 3) + Number(0.5)).type, Number::Real);
}

TEST(Number, PowersByHand)
{
    EXPECT_THAT(Number(2) ^ Number(0), Is(Number::Integer, 1));
    EXPECT_THAT(Number(0) ^ Number(0), Is(Number::Integer, 1));
    EXPECT_THAT(Number(2) ^ Number(3), Is(Number::Integer, 8));
    EXPECT_THAT(Number(2) ^ Number(10), Is(Number::Integer, 1024));
    EXPECT_THAT(Number(2) ^ Number(-2), Is(Number::Rational, 1, 4));
    EXPECT_THAT(Number(-3) ^ Number(3), Is(Number::Integer, -27));
    EXPECT_THAT(Number(1, 2) ^ Number(2), Is(Number::Rational, 1, 4));
    EXPECT_THAT(Number(2, 3) ^ Number(4), Is(Number::Rational, 16, 81));
    EXPECT_THAT(Number(1, 2) ^ Number(-2), Is(Number::Integer, 4));
    EXPECT_EQ((Number(2) ^ Number(0.5)).toReal(), std::sqrt(2.0));
    EXPECT_EQ((Number(2) ^ Number(2e9)).toReal(), infinity);
}

TEST(Number, RaisesPowerOfNegativeForABrokenExponent)
{
    EXPECT_EQ(idOf([] { (void)(Number(-8) ^ Number(1, 3)); }), "Power_of_negative");
    EXPECT_EQ(idOf([] { (void)(Number(-1) ^ Number(1e9)); }), "Power_of_negative"); // from 1e9 on by pow
    EXPECT_THAT(Number(-1) ^ Number(999999999), Is(Number::Integer, -1));
}

TEST(Number, RequiredQuirkPowerOneSquares32Times)
{
    EXPECT_EQ((Number(2) ^ Number(1)).toReal(), infinity);
    EXPECT_THAT(Number(0.5) ^ Number(1), Is(Number::Integer, 0));
    EXPECT_TRUE(std::isnan((Number(2, 3) ^ Number(1)).toReal()));
    EXPECT_THAT(Number(1) ^ Number(1), Is(Number::Integer, 1));
    EXPECT_THAT(Number(-1) ^ Number(1), Is(Number::Integer, -1));
    EXPECT_THAT(Number(0) ^ Number(1), Is(Number::Integer, 0));
}

TEST(Number, RequiredQuirkPowerMinusOneOverflowsOrDividesByZero)
{
    EXPECT_EQ(idOf([] { (void)(Number(0) ^ Number(-1)); }), "Divide_by_zero");
    EXPECT_EQ(idOf([] { (void)(Number(0.5) ^ Number(-1)); }), "Divide_by_zero");
    EXPECT_EQ((Number(2) ^ Number(-1)).toString(), "0"); // 1/inf
    EXPECT_THAT(Number(-1) ^ Number(-1), Is(Number::Integer, -1));
}

TEST(Number, RequiredQuirkOddPowerOfARationalIsReal)
{
    EXPECT_THAT(Number(1, 2) ^ Number(3), Is(Number::Real, 0.125));
}

TEST(Number, ComparesAcrossTypes)
{
    EXPECT_EQ(Number(1), real(1.0));
    EXPECT_EQ(Number(1, 2), Number(0.5));
    EXPECT_TRUE(Number(1, 2) == 0.5);
    EXPECT_TRUE(0.5 == Number(1, 2));
    EXPECT_NE(Number(1, 3), Number(1, 2));
    EXPECT_LT(Number(1, 3), Number(1, 2));
    EXPECT_LT(Number(-1), Number(-1, 2));
    EXPECT_GE(Number(2), Number(2));
    EXPECT_GT(Number(0.75), Number(1, 2));
    EXPECT_LE(Number(1, 2), Number(0.75));
    EXPECT_FALSE(Number(notANumber) == Number(notANumber));
    EXPECT_EQ(Number(0.0), Number(-0.0));
}

TEST(Number, HashMixesTheBitsOfBothMembersButNotTheType)
{
    // 1.0 is 0x3ff00000'00000000: low halves 0, so the hash is 2654435761*(w>>5) ^ 2733093237*(w>>11), w = 0x3ff00000.
    const std::uint32_t w = 0x3ff00000u;
    EXPECT_EQ(Number(1).getHashCode(), (2654435761u * (w >> 5)) ^ (2733093237u * (w >> 11)));
    EXPECT_EQ(Number(1).getHashCode(), real(1.0).getHashCode());
    EXPECT_NE(Number(0.0).getHashCode(), Number(-0.0).getHashCode());
}

struct Printed
{
    Number number;
    const char* text;
};

class NumberPrint : public testing::TestWithParam<Printed>
{
};

TEST_P(NumberPrint, Is) { EXPECT_EQ(GetParam().number.toString(), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    Values, NumberPrint,
    testing::Values(Printed{Number(1, 3), "1/3"}, Printed{Number(2, 3), "2/3"}, Printed{Number(22, 7), "22/7"},
                    Printed{Number(1, 9), "1/9"}, Printed{Number(2, 9), "0.2222222222222222"},
                    Printed{Number(1, 4), "0.25"}, Printed{Number(1, 1000), "0.001"}, Printed{Number(1, 999), "1/999"},
                    Printed{Number(1, 1001), "0.000999000999000999"}, Printed{Number(-2, 3), "-2/3"},
                    Printed{Number(-7), "-7"}, Printed{Number(0.1), "0.1"}, Printed{Number(1e20), "1e+20"},
                    Printed{Number(3, 2), "1.5"}, Printed{Number(1.0, infinity), "0"}, Printed{Number(-0.0), "0"},
                    Printed{Number(notANumber), "NaN"}, Printed{Number(infinity), "Inf"}, Printed{Number(infinity, infinity), "NaN"}));

TEST(Number, RequiredQuirkMinusInfinityPrintsWithoutSign) { EXPECT_EQ(Number(-infinity).toString(), "Inf"); }

TEST(Number, PrintsMinusInfForANegativeDenominatorOnly)
{
    Number n = real(infinity);
    n.den = -1.0;
    EXPECT_EQ(n.toString(), "-Inf");
}

// Recognition of rationals in literals.

struct Literal
{
    const char* text;
    Number value;
};

class NumberText : public testing::TestWithParam<Literal>
{
};

TEST_P(NumberText, IsReadAs)
{
    ExprImpl e;
    e.scanInfix(GetParam().text);
    ASSERT_STREQ(e.getRoot()->getTypeName(), "Constant");
    const Number& n = e.getRoot()->getNumVal();
    const Number& wanted = GetParam().value;
    EXPECT_THAT(n, Is(wanted.type, wanted.num, wanted.den)) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Literals, NumberText,
    testing::Values(Literal{"0.1", Number(1, 10)}, Literal{"0.3333333333333333", Number(1, 3)}, Literal{"2", 2},
                    Literal{"-5", -5}, Literal{"+3", 3}, Literal{".5", Number(1, 2)}, Literal{"1.", 1},
                    Literal{"-0.25", Number(-1, 4)}, Literal{"1e9", 1000000000}, Literal{"0", 0},
                    Literal{"1e-7", 1e-7}, Literal{"9999999", 9999999}, Literal{"1e7", 10000000},
                    Literal{"0x10", 0}, Literal{"1.5x", Number(3, 2)}, Literal{"1e-400", 0}));

TEST(NumberRecognition, RequiredQuirkLongLiteralsMoveByAFewUnitsInTheLastPlace)
{
    ExprImpl e;
    e.scanInfix("1.23456789");
    EXPECT_THAT(e.getRoot()->getNumVal(), Is(Number::Rational, 12210011, 9890109));
    e.scanInfix("1.0000000000000002");
    EXPECT_THAT(e.getRoot()->getNumVal(), Is(Number::Integer, 1));
}

TEST(NumberRecognition, ReproducesTheLiteralToTenUnitsInTheLastPlace)
{
    for (const double v : {3.14159, 2.718281828, 0.000123, 123456.789, -0.7071067811865476}) {
        ExprImpl e;
        char text[40];
        std::snprintf(text, sizeof text, "%.17g", v);
        e.scanInfix(text);
        EXPECT_NEAR(e.getRoot()->getNumVal().toReal(), v, std::fabs(v) * 2.3e-15) << text;
    }
}

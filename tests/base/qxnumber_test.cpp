// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxnumber.hpp"

#include "qxexception.hpp"
#include "support/comma_locale.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <bit>
#include <cstdint>

using Complex = std::complex<double>;

TEST(Number, ConstantsAreWhatTheyAreCalled)
{
    EXPECT_TRUE(std::isnan(qxGetNaN()));
    EXPECT_EQ(qxGetInf(), HUGE_VAL);
    EXPECT_EQ(qxGetEps(), 0x1p-52);
    EXPECT_EQ(qxGetPi(), std::acos(-1.0));
}

TEST(Number, ComplexNumbersAreNaNOrInfiniteByEitherPart)
{
    EXPECT_TRUE(qxIsNaN(Complex(1, qxGetNaN())));
    EXPECT_FALSE(qxIsNaN(Complex(qxGetInf(), 0)));
    EXPECT_TRUE(qxIsInf(Complex(0, -qxGetInf())));
    EXPECT_FALSE(qxIsInf(Complex(qxGetNaN(), 0)));
    EXPECT_TRUE(qxIsNaNorInf(Complex(qxGetNaN(), 0)));
    EXPECT_TRUE(qxIsNaNorInf(-qxGetInf()));
    EXPECT_FALSE(qxIsNaNorInf(Complex(1e308, -1e-320)));
}

TEST(Number, AnyNaNorInfFindsOneBadElementAtEveryPosition)
{
    // Lengths around the chunk of 1024 that the search works in.
    for (const std::size_t count : {1u, 2u, 7u, 1023u, 1024u, 1025u, 2100u}) {
        std::vector<double> data(count, 1e308);
        EXPECT_FALSE(anyNaNorInf(data.data(), count));
        for (const std::size_t at : {std::size_t(0), count / 2, count - 1})
            for (const double bad : {qxGetNaN(), -qxGetNaN(), qxGetInf(), -qxGetInf()}) {
                data[at] = bad;
                EXPECT_TRUE(anyNaNorInf(data.data(), count)) << count << " " << at;
                data[at] = -0.0;
            }
    }
}

TEST(Number, AnyNaNorInfLooksAtBothPartsOfComplexData)
{
    std::vector<Complex> data(600, {1, -1});
    EXPECT_FALSE(anyNaNorInf(data.data(), data.size()));

    data.back() = {1, qxGetNaN()};

    EXPECT_TRUE(anyNaNorInf(data.data(), data.size()));
    EXPECT_FALSE(anyNaNorInf(data.data(), data.size() - 1));
}

TEST(Number, AnyNaNorInfOfNothingIsFalse)
{
    EXPECT_FALSE(anyNaNorInf(static_cast<const double*>(nullptr), 0));
    EXPECT_FALSE(anyNaNorInf(static_cast<const Complex*>(nullptr), 0));
}

TEST(Getline, TakesEveryKindOfLineEnd)
{
    std::istringstream stream("unix\nwindows\r\nold\r\rafter empty\nlast");
    std::vector<std::string> lines;

    for (std::string line; qxGetline(stream, line);)
        lines.push_back(line);

    EXPECT_EQ(lines, (std::vector<std::string>{"unix", "windows", "old", "", "after empty", "last"}));
}

TEST(Getline, NoLineFollowsAFinalLineEnd)
{
    std::istringstream stream("one\n");
    std::string line = "before";

    EXPECT_TRUE(qxGetline(stream, line));
    EXPECT_FALSE(qxGetline(stream, line));
    EXPECT_EQ(line, "");
    EXPECT_TRUE(stream.eof());
}

TEST(NumberText, IntegersOfEveryWidth)
{
    EXPECT_EQ(qxutil::toString(-2147483647 - 1), "-2147483648");
    EXPECT_EQ(qxutil::toString(4294967295u), "4294967295");
    EXPECT_EQ(qxutil::toString(-9223372036854775807L - 1), "-9223372036854775808");
    EXPECT_EQ(qxutil::toString(18446744073709551615UL), "18446744073709551615");
}

TEST(NumberText, DoublesAreAsShortAsCanBe)
{
    EXPECT_EQ(qxutil::toString(0.1), "0.1");
    EXPECT_EQ(qxutil::toString(1.0), "1");
    EXPECT_EQ(qxutil::toString(-0.0), "-0");
    EXPECT_EQ(qxutil::toString(1e100), "1e+100");
    EXPECT_EQ(qxutil::toString(5e-324), "5e-324");
    EXPECT_EQ(qxutil::toString(1.0 / 3), "0.3333333333333333");
    EXPECT_EQ(qxutil::toString(-1.7976931348623157e308), "-1.7976931348623157e+308");
}

TEST(NumberText, ValuesWithoutDigitsHaveNames)
{
    EXPECT_EQ(qxutil::toString(qxGetNaN()), "NaN");
    EXPECT_EQ(qxutil::toString(qxGetInf()), "Inf");
    EXPECT_EQ(qxutil::toString(-qxGetInf()), "-Inf");
}

TEST(NumberText, ComplexNumbersStandInParentheses)
{
    EXPECT_EQ(qxutil::toString(Complex(1, 2.5)), "(1+2.5*i)");
    EXPECT_EQ(qxutil::toString(Complex(-1e20, -3)), "(-1e+20-3*i)");
    EXPECT_EQ(qxutil::toString(Complex(0, -0.0)), "(0-0*i)");
    EXPECT_EQ(qxutil::toString(Complex(qxGetNaN(), qxGetInf())), "(NaN+Inf*i)");
}

TEST(NumberText, FormatAgreesWithPrintf)
{
    for (const double x : {0.0, 1.0, -2.5, 1.0 / 3, 6.02214076e23, 1e-5, 123456789.0, 5e-324})
        for (const int digits : {1, 6, 12, 16, 17}) {
            SCOPED_TRACE(testing::Message() << "x = " << x << ", digits = " << digits);
            char expected[64];
            std::snprintf(expected, sizeof expected, "%.*g", digits, x);
            EXPECT_EQ(qxutil::formatDouble(x, digits), expected);
        }
}

TEST(NumberText, EveryDoubleReadsBackAsItself)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 100000; ++i) {
        const auto bits = random();
        const double x = std::bit_cast<double>(bits);
        if (qxIsNaNorInf(x))
            continue;
        ASSERT_EQ(std::bit_cast<std::uint64_t>(qxutil::parseDouble(qxutil::toString(x))), bits) << x;
    }
}

TEST(NumberText, ReadsWhatStrtodReads)
{
    for (const char* text : {"0", "-1", "+1", "12.", ".5", "-.5e3", "1e5", "1E-5", "1e+05", "0001", "1e400", "-1e400", "1e-400",
                             "4.9e-324", "2.4703282292062327e-324", "123456789012345678901234567890", "0.1", "inf", "-Infinity", "INF"}) {
        double value = -7;
        EXPECT_TRUE(qxutil::isDouble(text, value)) << text;
        EXPECT_EQ(value, std::strtod(text, nullptr)) << text;
        EXPECT_EQ(std::signbit(value), std::signbit(std::strtod(text, nullptr))) << text;
    }
}

TEST(NumberText, ReadsNaNByName)
{
    double value = 0;
    EXPECT_TRUE(qxutil::isDouble("NaN", value));
    EXPECT_TRUE(qxIsNaN(value));
}

TEST(NumberText, BlanksAroundANumberAreAllowed)
{
    EXPECT_EQ(qxutil::parseDouble(" \t1.5\r\n"), 1.5);
}

TEST(NumberText, WhatIsNotAllNumberIsNoNumber)
{
    for (const char* text : {"", " ", "1x", "x1", "1 2", "1,5", "0x10", "--1", "+-1", "-+1", "+", ".", "e5", "1e5.", "nan(1)", "1..2"}) {
        double value = -7;
        EXPECT_FALSE(qxutil::isDouble(text, value)) << text;
        EXPECT_EQ(value, -7) << text;
    }
}

TEST(NumberText, ParseDoubleRaisesForOtherText)
{
    try {
        qxutil::parseDouble("1x");
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Text_is_not_a_number");
        EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Text", "1x"}}));
    }
}

TEST(NumberText, ScanTakesTheLongestNumberAtTheStart)
{
    double value = 0;
    EXPECT_EQ(qxutil::scanDouble("1.5*x", value), 3u);
    EXPECT_EQ(value, 1.5);
    EXPECT_EQ(qxutil::scanDouble("2e", value), 1u); // an exponent needs digits
    EXPECT_EQ(qxutil::scanDouble("+3e+x", value), 2u);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(qxutil::scanDouble(" 1", value), 0u);
    EXPECT_EQ(qxutil::scanDouble("1e999)", value), 5u);
    EXPECT_EQ(value, qxGetInf());
}

TEST(NumberText, ReadsAndWritesPointsUnderACommaLocale)
{
    const qxtest::CommaLocale comma;
    ASSERT_TRUE(qxtest::CommaLocale::isInForce());

    EXPECT_EQ(qxutil::toString(1234567.5), "1234567.5");
    EXPECT_EQ(qxutil::toString(1234567), "1234567");
    EXPECT_EQ(qxutil::toString(Complex(0.5, 0.25)), "(0.5+0.25*i)");
    EXPECT_EQ(qxutil::formatDouble(0.5, 16), "0.5");
    EXPECT_EQ(qxutil::parseDouble("1.5"), 1.5);
    EXPECT_EQ(qxutil::parseDouble("1.5e999"), qxGetInf());
    double value = 0;
    EXPECT_FALSE(qxutil::isDouble("1,5", value));
}

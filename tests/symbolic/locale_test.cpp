// SPDX-License-Identifier: LicenseRef-qxkernel
// Formulas are read and written the same whatever the locale of the host says about points, commas and thousands.

#include "symbolic_support.hpp"

#include "support/comma_locale.hpp"

#include <sstream>

using namespace qxtest;

namespace {

class CommaLocaleHost : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(CommaLocale::isInForce()); }

    const CommaLocale comma;
};

} // namespace

TEST_F(CommaLocaleHost, InfixTextHasPointsInItsNumbersAndCommasBetweenItems)
{
    EXPECT_EQ(qxInfixToPrefix("1.5*x+.25"), "+ * 1.5 x .25");
    EXPECT_EQ(qxInfixToPrefix("f(1,5)"), "() f 2 1 5");
    EXPECT_EQ(printedInfix("1.5*x+.25-1e-3"), "1.5*x+0.25-0.001");
    EXPECT_EQ(printedInfix("1,5"), "1 , 5");
    EXPECT_EQ(printedInfix("1234567*x"), "1234567*x");
    EXPECT_EQ(simplified("0.1*x+0.15*x+123456.5"), "123456.5+0.25*x");
}

TEST_F(CommaLocaleHost, PrefixTextHasPointsInItsNumbers)
{
    EXPECT_EQ(printedPrefix("+ 1.5 x"), "1.5+x");
    EXPECT_EQ(printedPrefix("* 0.125 1e+300"), "0.125*1e+300");
    EXPECT_EQ(printedPrefix("+ 1,5 x"), "1+x"); // a number with a tail: a comma is no part of it
    const ExprImpl e;
    EXPECT_EQ(ExprImpl::UnparsedNumber(e.getRules(), "1.5").value, 1.5);
    EXPECT_EQ(ExprImpl::UnparsedNumber(e.getRules(), "1,5").value, 1.0);
}

TEST_F(CommaLocaleHost, CountsHaveNoSeparators)
{
    std::string args = "x";
    for (int i = 1; i < 1234; ++i)
        args += ",x";
    EXPECT_EQ(qxInfixToPrefix("f(" + args + ")").substr(0, 12), "() f 1234 x ");
    EXPECT_EQ(printedInfix("f(" + args + ")"), "f(" + args + ")");
    EXPECT_EQ(qxInfixToPrefix("'" + std::string(1234, 'a') + "'").substr(0, 9), "\"\" 1234 a");
}

TEST_F(CommaLocaleHost, NumbersAreWrittenWithPoints)
{
    EXPECT_EQ(Number(12345678.25).toString(), "12345678.25");
    EXPECT_EQ(Number(1, 999).toString(), "1/999");
    EXPECT_EQ(Number(1e20).toString(), "1e+20");
    std::ostringstream stream; // takes the global locale
    stream << Number(1234.5) << ' ';
    ExprImpl e;
    e.scan("2.5*a[m]");
    stream << e;
    EXPECT_EQ(stream.str(), "1234.5 2.5*a[m]");
}

TEST_F(CommaLocaleHost, RulesWithNumbersAreRead)
{
    ExprTree tree;
    tree.scan("log2(x)+sqrt(x)+erf(x)");
    tree.simp(false);
    tree.diff("x");
    std::string text;
    tree.print(text);
    EXPECT_EQ(text.find(','), std::string::npos) << text;
    EXPECT_EQ(idOf([&] { tree.scan(text); }), "") << text;
}

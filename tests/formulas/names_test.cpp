// SPDX-License-Identifier: LicenseRef-qxkernel
#include "formulas/names_detail.hpp"

#include "support/failure.hpp"

#include <gtest/gtest.h>

TEST(Names, AreLettersDigitsAndUnderscoresNotBeginningWithADigit)
{
    for (const char* good : {"x", "_", "T_0", "Abc9", "_9"})
        EXPECT_TRUE(qx::isName(good)) << good;
    for (const char* bad : {"", "9x", "a.b", "a b", " a", "a-", "\xc3\xa4", "a(b)", "1"})
        EXPECT_FALSE(qx::isName(bad)) << bad;
}

TEST(NearestName, IsFoundByOneEdit)
{
    const std::vector<std::string> known{"lambda", "pressure", "rho", "x"};

    EXPECT_EQ(qx::nearestName("lamda", known), "lambda");     // missing
    EXPECT_EQ(qx::nearestName("lambdda", known), "lambda");   // too many
    EXPECT_EQ(qx::nearestName("presure", known), "pressure");
    EXPECT_EQ(qx::nearestName("rhp", known), "rho");          // another
    EXPECT_EQ(qx::nearestName("alphabet", known), "");
}

TEST(NearestName, CountsASwapOfNeighboursAsOneEdit)
{
    EXPECT_EQ(qx::nearestName("hro", {"rho"}), "rho"); // two edits otherwise, which is more than half of three letters
}

TEST(NearestName, OffersNothingThatSharesLessThanHalf)
{
    EXPECT_EQ(qx::nearestName("y", {"x"}), "");
    EXPECT_EQ(qx::nearestName("ab", {"cd", "xb"}), "");
}

TEST(NearestName, PrefersTheNearerAndThenTheFirst)
{
    EXPECT_EQ(qx::nearestName("radii", {"radial", "radio", "radix"}), "radio");
    EXPECT_EQ(qx::nearestName("viscosity", {"viscocity1", "viscocity"}), "viscocity");
}

TEST(NearestName, LeavesVeryLongNamesAlone)
{
    const std::string text(100000, 'a');

    EXPECT_EQ(qx::nearestName(text, {text + "b", "a"}), "");
}

TEST(RaiseUnknown, NamesTheNearestOnlyIfThereIsOne)
{
    const auto near = qxtest::failureOf([] { qx::raiseUnknown("Unknown_variable_name", "presure", {"pressure"}); });
    const auto far = qxtest::failureOf([] { qx::raiseUnknown("Unknown_variable_name", "q", {"pressure"}); });

    EXPECT_EQ(near.getArgs(0), (qxbase::ExceptionArgs{{"Name", "presure"}, {"Nearest", "pressure"}}));
    EXPECT_EQ(far.getArgs(0), (qxbase::ExceptionArgs{{"Name", "q"}}));
}

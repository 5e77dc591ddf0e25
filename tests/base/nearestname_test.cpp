// SPDX-License-Identifier: LicenseRef-qxkernel
#include "base/nearestname_detail.hpp"

#include <gtest/gtest.h>

TEST(NearestName, IsFoundByOneEdit)
{
    const std::vector<std::string> known{"lambda", "pressure", "rho", "x"};

    EXPECT_EQ(qxbase::nearestName("lamda", known), "lambda");     // missing
    EXPECT_EQ(qxbase::nearestName("lambdda", known), "lambda");   // too many
    EXPECT_EQ(qxbase::nearestName("presure", known), "pressure");
    EXPECT_EQ(qxbase::nearestName("rhp", known), "rho");          // another
    EXPECT_EQ(qxbase::nearestName("alphabet", known), "");
}

TEST(NearestName, CountsASwapOfNeighboursAsOneEdit)
{
    EXPECT_EQ(qxbase::nearestName("hro", {"rho"}), "rho"); // two edits otherwise, which is more than half of three letters
}

TEST(NearestName, OffersNothingThatSharesLessThanHalf)
{
    EXPECT_EQ(qxbase::nearestName("y", {"x"}), "");
    EXPECT_EQ(qxbase::nearestName("ab", {"cd", "xb"}), "");
}

TEST(NearestName, PrefersTheNearerAndThenTheFirst)
{
    EXPECT_EQ(qxbase::nearestName("radii", {"radial", "radio", "radix"}), "radio");
    EXPECT_EQ(qxbase::nearestName("viscosity", {"viscocity1", "viscocity"}), "viscocity");
}

TEST(NearestName, LeavesVeryLongNamesAlone)
{
    const std::string text(100000, 'a');

    EXPECT_EQ(qxbase::nearestName(text, {text + "b", "a"}), "");
}

TEST(UnknownName, NamesTheNearestOnlyIfThereIsOne)
{
    EXPECT_EQ(qxbase::unknownName("presure", {"pressure"}),
              (qxbase::ExceptionArgs{{"Name", "presure"}, {"Nearest", "pressure"}}));
    EXPECT_EQ(qxbase::unknownName("q", {"pressure"}), (qxbase::ExceptionArgs{{"Name", "q"}}));
}

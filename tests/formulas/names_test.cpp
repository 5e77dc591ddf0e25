// SPDX-License-Identifier: LicenseRef-qxkernel
#include "formulas/names_detail.hpp"

#include <gtest/gtest.h>

TEST(Names, AreLettersDigitsAndUnderscoresNotBeginningWithADigit)
{
    for (const char* good : {"x", "_", "T_0", "Abc9", "_9"})
        EXPECT_TRUE(qx::isName(good)) << good;
    for (const char* bad : {"", "9x", "a.b", "a b", " a", "a-", "\xc3\xa4", "a(b)", "1"})
        EXPECT_FALSE(qx::isName(bad)) << bad;
}

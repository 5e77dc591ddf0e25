// SPDX-License-Identifier: LicenseRef-qxkernel
// One call of simp is enough, and the order in which a user writes operands does not change the value.
#include "symbolic_support.hpp"

#include "eval_text.hpp"
#include "random_text.hpp"

#include <cmath>

using namespace qxtest;

TEST(Idempotence, WhatIsLeftAloneAfterACancellationStandsBare)
{
    // A term of one factor beside the bare factor, a sign over a sum, a power of a power that was a product before.
    for (const auto& [infix, wanted] :
         {std::pair("f(a+sin(b)-a)-f(sin(b))", "0"), std::pair("sqrt(x+1/y-x)-sqrt(1/y)", "0"),
          std::pair("(a-a+y^2)^3-y^6", "0"), std::pair("w-(w-y)*w", "w*(1-w+y)"), std::pair("exp(-((y+sin(y)-y)^3))",
           "exp(-sin(y)^3)"), std::pair("f(a-(b+c)-a)", "f(-b-c)"), std::pair("(-(((w+((y^(-1))^(-2))-w)^(-1))^2))", "-(1/y)^4"),
          std::pair("sin(2)/(z^(-3))-sin(2)/(z^(-3))", "0")}) {
        ExprImpl e;
        e.scan(infix);

        e.simp(false);

        EXPECT_EQ(e.toString(), wanted) << infix;
        e.simp(false);
        EXPECT_EQ(e.toString(), wanted) << infix;
    }
}

TEST(Idempotence, OfTwentyThousandRandomFormulas)
{
    int compared = 0;
    for (unsigned seed = 0; seed < 20000; ++seed) {
        RandomText random(seed);
        const std::string text = seed % 2 ? random.make(3 + seed % 4) : random.makeCancelling(2 + seed % 5).first;
        for (const bool evalFuncs : {false, true}) {
            ExprImpl e;
            try {
                e.scan(text);
                e.simp(evalFuncs);
            } catch (const qxbase::Exception&) {
                continue;
            }
            const std::string once = e.toString();
            e.simp(evalFuncs);
            ASSERT_EQ(e.toString(), once) << text << ", seed " << seed;
            ++compared;
        }
    }
    EXPECT_GT(compared, 35000);
}

TEST(Idempotence, OfDerivatives)
{
    for (unsigned seed = 0; seed < 2000; ++seed) {
        ExprTree tree;
        std::string once, twice;
        try {
            tree.scan(RandomText(seed + 400000).makeCancelling(4).first);
            tree.simp(false);
            tree.diff("x");
            tree.print(once);
            tree.simp(false);
        } catch (const qxbase::Exception&) {
            continue;
        }
        tree.print(twice);
        ASSERT_EQ(twice, once) << "seed " << seed;
    }
}

TEST(Idempotence, ShuffledOperandsGiveTheSameValue)
{
    const Point at{{"x", 0.83}, {"y", 1.37}, {"z", 2.11}, {"w", 0.59}};
    int compared = 0;
    for (unsigned seed = 0; seed < 10000; ++seed) {
        const auto [text, shuffled] = RandomText(seed + 700000).makeCancelling(2 + seed % 4);
        std::string results[2];
        try {
            results[0] = simplified(text);
            results[1] = simplified(shuffled);
        } catch (const qxbase::Exception&) {
            continue;
        }
        const Wide wanted = evalWide(text, at);
        if (!std::isfinite(wanted.value) || !(wanted.condition < 1e6))
            continue;
        for (const std::string& result : results)
            if (result.find("Inf") == result.npos) {
                EXPECT_NEAR(evalText(result, at) / wanted.scale(), wanted.value / wanted.scale(), 1e-12 * (1.0 + wanted.condition))
                    << text << "\n" << shuffled << "\n" << result << ", seed " << seed;
            }
        ++compared;
    }
    EXPECT_GT(compared, 5000);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "depinfo.hpp"

#include <gtest/gtest.h>

TEST(DepInfo, IsFreshWithoutAnyDependence)
{
    const DepInfo info;
    EXPECT_FALSE(info.isSolDepAll());
    EXPECT_FALSE(info.isParDepAll());
    EXPECT_FALSE(info.isSolDep(0));
    EXPECT_FALSE(info.isParDep(7));
    EXPECT_FALSE(info.getSolDep(3, 0));
    EXPECT_FALSE(info.isFailed());
    EXPECT_FALSE(info.isIncomplete());
}

TEST(DepInfo, KeepsBitsOfAllOrdersInsideAndBeyondTheInlineWords)
{
    for (int order = 0; order <= 5; ++order) {
        DepInfo info;
        info.setSolDep(3, order);
        info.setParDep(4, order);
        for (int other = 0; other <= 6; ++other) {
            EXPECT_EQ(info.isSolDep(other), other == order) << order << ' ' << other;
            EXPECT_EQ(info.isParDep(other), other == order) << order << ' ' << other;
            EXPECT_EQ(info.getSolDep(3, other), other == order);
            EXPECT_FALSE(info.getSolDep(4, other));
            EXPECT_EQ(info.getParDep(4, other), other == order);
        }
        EXPECT_TRUE(info.isSolDepAll());
        EXPECT_TRUE(info.isParDepAll());
    }
}

TEST(DepInfo, RequiredQuirkTakesBit31AndWrapsBit32OntoBit0)
{
    DepInfo info;
    info.setSolDep(31, 0);
    EXPECT_TRUE(info.getSolDep(31, 0));
    EXPECT_FALSE(info.getSolDep(0, 0));

    info.setSolDep(32, 0);
    EXPECT_TRUE(info.getSolDep(0, 0));
}

TEST(DepInfo, AnswersTrueToEverythingWhenFailed)
{
    DepInfo info;
    info.setFailed();
    EXPECT_TRUE(info.isSolDep(100));
    EXPECT_TRUE(info.isParDep(0));
    EXPECT_TRUE(info.getSolDep(5, 9));
    EXPECT_TRUE(info.getParDep(5, 9));
    EXPECT_TRUE(info.isSolDepAll());
    EXPECT_TRUE(info.isParDepAll());
}

TEST(DepInfo, ForgetsEverythingWhenMadeFailed)
{
    DepInfo info;
    info.setSolDep(1, 4);
    info.setIncompleteJac();
    info.makeFailed();
    EXPECT_TRUE(info.isFailed());
    EXPECT_FALSE(info.isIncomplete());
}

TEST(DepInfo, CopiesOverflowWordsDeeply)
{
    DepInfo info;
    info.setSolDep(2, 5);
    DepInfo copy(info);
    copy.setSolDep(3, 5);
    DepInfo assigned;
    assigned = copy;
    assigned.setSolDep(4, 5);

    EXPECT_FALSE(info.getSolDep(3, 5));
    EXPECT_TRUE(copy.getSolDep(2, 5));
    EXPECT_FALSE(copy.getSolDep(4, 5));
    EXPECT_TRUE(assigned.getSolDep(3, 5));
}

TEST(DepInfo, UnitesSetsOfDifferentLengthsBothWaysRound)
{
    DepInfo shorter, longer;
    shorter.setSolDep(1, 0);
    longer.setSolDep(2, 4);
    longer.setIncompleteJac();

    DepInfo a = shorter, b = longer;
    a |= longer;
    b |= shorter;

    for (const DepInfo& info : {a, b}) {
        EXPECT_TRUE(info.getSolDep(1, 0));
        EXPECT_TRUE(info.getSolDep(2, 4));
        EXPECT_FALSE(info.isSolDep(2));
        EXPECT_TRUE(info.isIncomplete());
    }
}

TEST(DepInfo, CarriesAFailureThroughAUnion)
{
    DepInfo a, failed;
    failed.setFailed();
    a |= failed;
    EXPECT_TRUE(a.isFailed());
}

TEST(DepInfo, MakesTheDependenceThatIsAskedForAndNothingElse)
{
    DepInfo info;
    info.setSolDep(9, 9);
    info.makeDependent(3, 1, 2, 4);

    EXPECT_FALSE(info.isSolDep(9));
    for (int order = 0; order <= 2; ++order)
        for (int bit = 0; bit < 32; ++bit)
            EXPECT_EQ(info.getSolDep(bit, order), bit <= 4) << order << ' ' << bit;
    EXPECT_FALSE(info.isSolDep(3));
    for (int order = 0; order <= 1; ++order)
        for (int bit = 0; bit < 32; ++bit)
            EXPECT_EQ(info.getParDep(bit, order), bit < 3) << order << ' ' << bit;
    EXPECT_FALSE(info.isParDep(2));
}

TEST(DepInfo, FillsWholeWordsForBitCountsFrom32On)
{
    DepInfo info;
    info.makeDependent(40, 0, 0, 35);
    EXPECT_TRUE(info.getSolDep(31, 0));
    EXPECT_TRUE(info.getParDep(31, 0));
}

TEST(DepInfo, MakesFullDependenceOfOrders0And1WithoutFailing)
{
    DepInfo info;
    info.makeDependent();
    EXPECT_FALSE(info.isFailed());
    EXPECT_TRUE(info.getSolDep(31, 0));
    EXPECT_TRUE(info.getParDep(17, 1));
    EXPECT_FALSE(info.isSolDep(2));
}

TEST(DepInfo, NarrowsToOneOrder)
{
    DepInfo info;
    info.setSolDep(3, 2);
    info.setSolDep(1, 0);
    info.selectJacTOrder(2);
    EXPECT_TRUE(info.getSolDep(3, 0));
    EXPECT_FALSE(info.getSolDep(1, 0));
    EXPECT_FALSE(info.isSolDep(2));

    info.selectJacTOrder(5); // past the end
    EXPECT_FALSE(info.isSolDepAll());
}

TEST(DepInfo, AddsOrdersInTheChainRule)
{
    DepInfo partial, argument, result;
    partial.setSolDep(1, 0);
    partial.setSolDep(2, 3);
    partial.setParDep(5, 1);
    argument.setSolDep(7, 0);
    argument.setSolDep(0, 2);
    argument.setParDep(0, 4);

    result.setJacDep(partial, argument);

    // By hand: partial's words at orders {0, 3} plus argument's orders {0, 2}.
    EXPECT_TRUE(result.getSolDep(1, 0));
    EXPECT_TRUE(result.getSolDep(1, 2));
    EXPECT_TRUE(result.getSolDep(2, 3));
    EXPECT_TRUE(result.getSolDep(2, 5));
    EXPECT_FALSE(result.getSolDep(7, 0));
    EXPECT_FALSE(result.isSolDep(1));
    EXPECT_TRUE(result.getParDep(5, 5));
    EXPECT_FALSE(result.isParDep(1));
}

TEST(DepInfo, CarriesMarksThroughTheChainRule)
{
    DepInfo partial, argument, result;
    partial.setIncompleteJac();
    argument.setFailed();
    result.setJacDep(partial, argument);
    EXPECT_TRUE(result.isIncomplete());
    EXPECT_TRUE(result.isFailed());
}

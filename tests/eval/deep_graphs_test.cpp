// SPDX-License-Identifier: LicenseRef-qxkernel
// Expressions whose depth or length would end a machine stack if any step took stack in proportion to them.

#include "host.hpp"
#include "support/alloc_fault.hpp"
#include "support/deep_stack.hpp"

#include <gtest/gtest.h>

using namespace qxtest;

namespace {

constexpr int million = 1000000;

std::string repeated(const std::string& piece, int count)
{
    std::string text;
    text.reserve(piece.size() * static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        text += piece;
    return text;
}

} // namespace

TEST(DeepGraph, AMillionNestedParenthesesEvaluateOnASmallStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}});
        EXPECT_EQ(realValue(repeated("(", million) + "x" + repeated(")", million), host), 2.0);
    });
}

TEST(DeepGraph, AMillionTermsEvaluateOnASmallStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}, {"y", {0.5}}});
        EXPECT_EQ(realValue("x" + repeated("+y", million), host), 2.0 + 0.5 * million);
    });
}

TEST(DeepGraph, AMillionTermsInNestedParenthesesEvaluateOnASmallStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}, {"y", {0.5}}});
        EXPECT_EQ(realValue(repeated("y+(", million) + "x" + repeated(")", million), host), 2.0 + 0.5 * million);
    });
}

TEST(DeepGraph, NestedFunctionsAndSignsEvaluateOnASmallStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}});
        EXPECT_EQ(realValue(repeated("-", million) + "x", host), 2.0);
        EXPECT_EQ(realValue(repeated("abs(", 100000) + "x" + repeated(")", 100000), host), 2.0);
        EXPECT_EQ(realValue(repeated("max(1,", 100000) + "x" + repeated(")", 100000), host), 2.0);
    });
}

TEST(DeepGraph, DifferentiatesAndSimplifiesLongChainsOnASmallStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {0.5}}, {"y", {0.5}}});
        const EvalTreePtr tree = treeOf("x" + repeated("*y+x", 100000));
        EXPECT_TRUE(tree->depends({"x"}, host).isSolDepAll());
        EXPECT_TRUE(tree->jacDepends({"x", "y"}, host).isSolDepAll());
        EXPECT_FALSE(tree->depends({"z"}, host).isSolDepAll());
        EXPECT_EQ(tree->getBVarNames(host), (std::vector<std::string>{"x", "y"}));
        // d/dx of x + sum of y*x = 1 + 100000 y
        EXPECT_EQ(tree->diff("x", host)->eval(host, makeCache(), EvalValues)->getDouble(), 50001.0);
        EXPECT_EQ(tree->simplify(host)->eval(host, makeCache(), EvalValues)->getDouble(),
                  tree->eval(host, makeCache(), EvalValues)->getDouble());
    });
}

TEST(DeepGraph, RefusesToPrintWhatIsTooDeepForTheStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}});
        const EvalTree printed(treeOf("x" + repeated("+1/x", 100000))->getRoot(host));
        EXPECT_EQ(raisedId([&] { printed.getExpr(); }), "Expression_nested_too_deeply");
    });
}

TEST(DeepGraph, TellsOfAFailureInADefinitionThatIsTooDeepToPrint)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {-2.0}}});
        host->definitions["y"] = "sqrt(x)" + repeated("+1/x", 100000);
        const ValRepPtr value = evalText("y", host, EvalValues | EvalKeepReal);
        ASSERT_TRUE(value->isNaN());
        EXPECT_EQ(value->getErrors()->get(0, "message"), "sqrt");
        EXPECT_EQ(value->getErrors()->get(1, "defexpr"), "...");
    });
}

TEST(DeepGraph, ChainsOfCombinedTreesAreParsedPrintedAndReleasedOnASmallStack)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}});
        const EvalTreePtr one = treeOf("1"), x = treeOf("x");
        EvalTreePtr sum = x;
        for (int i = 0; i < 200000; ++i)
            sum = EvalTree::plus(sum, one);
        EXPECT_EQ(sum->getExpr().size(), 1u + 200000u * 6u);
        EXPECT_EQ(sum->eval(host, makeCache(), EvalValues)->getDouble(), 200002.0);
    });
}

TEST(DeepGraph, NestedDerivativesAndDependenceOfHostOperatorsAreRefusedBeforeTheStackEnds)
{
    runOnStack(javaStack, [] {
        const HostPtr host = makeHost({{"x", {2.0}}});
        host->operators["op"] = 1;
        const EvalTreePtr operators = treeOf(repeated("op(", 20000) + "x" + repeated(")", 20000));
        EXPECT_EQ(operators->eval(host, makeCache(), EvalValues)->getDouble(), 2.0);
        EXPECT_EQ(raisedId([&] { operators->depends({"x"}, host); }), "Expression_nested_too_deeply");
        const EvalTreePtr derivatives = treeOf(repeated("d(", 20000) + "x" + repeated(",x)", 20000));
        EXPECT_EQ(raisedId([&] { derivatives->eval(host, makeCache(), EvalValues); }), "Expression_nested_too_deeply");
        EXPECT_EQ(realValue(repeated("op(", 100) + "x" + repeated(")", 100), host), 2.0);
    });
}

TEST(DeepGraph, TakesNodesAndAllocationsInProportionToTheTerms)
{
    struct Cost
    {
        std::size_t nodes;
        long allocations;
    };
    const auto costOf = [&](int terms) {
        const HostPtr host = makeHost({{"x", {2.0}}, {"y", {0.5}}});
        const std::string text = "x" + repeated("+y*x", terms);
        Cost cost;
        const long before = allocationCount();
        cost.nodes = countNodesMade(*host->getNodeMaker(), [&] { realValue(text, host); });
        cost.allocations = allocationCount() - before;
        return cost;
    };
    for (const int terms : {20000, 400000}) {
        const Cost cost = costOf(terms);
        EXPECT_LE(cost.nodes, 4u * static_cast<unsigned>(terms));
        EXPECT_LE(cost.allocations, 12 * terms);
    }
}

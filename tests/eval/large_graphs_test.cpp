// SPDX-License-Identifier: LicenseRef-qxkernel
// Graphs of any size are evaluated and differentiated in time linear in their distinct nodes, or refused.

#include "evaltreeset.hpp"
#include "host.hpp"
#include "support/deep_stack.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

using namespace qxtest;

namespace {

/// u_0 = x, u_i = u_{i-1} / (1 + c u_{i-1}); in closed form u_n = x / (1 + n c x).
EvalNodePtr nestedQuotient(const HostPtr& host, int levels, double c)
{
    NodeMaker& maker = *host->getNodeMaker();
    EvalNodePtr u = maker.makeVarNode("x");
    for (int i = 0; i < levels; ++i)
        u = maker.makeOpNode(DIV, u, maker.makeOpNode(PLUS, maker.makeUnitNode(), maker.makeOpNode(TIMES, maker.makeConstNode(c), u)));
    return u;
}

/// Each level uses the one below twice: 2^levels ways through the graph.
EvalNodePtr sharedLevels(const HostPtr& host, int levels)
{
    NodeMaker& maker = *host->getNodeMaker();
    EvalNodePtr s = maker.makeVarNode("x");
    for (int i = 0; i < levels; ++i)
        s = maker.makeOpNode(TIMES, maker.makeOpNode(SIN, s), maker.makeOpNode(PLUS, s, maker.makeUnitNode()));
    return s;
}

double sharedLevelsAt(double x, int levels)
{
    for (int i = 0; i < levels; ++i)
        x = std::sin(x) * (x + 1.0);
    return x;
}

/// A function of a host: the identity, evaluated at each use.
class Marker : public UnFunObj
{
public:
    using UnFunObj::operator();
    unsigned int operator()(const D&) const override { return ++calls, 0; }
    unsigned int operator()(const C&) const override { return 0; }
    unsigned int operator()(const DA&, Size) const override { return ++calls, 0; }
    unsigned int operator()(const CA&, Size) const override { return 0; }
    std::string getName() const override { return "marker"; }
    bool isBuiltin() const override { return false; }
    mutable int calls = 0;
};

std::string nestedDerivative(int levels)
{
    std::string text = "x^x";
    for (int i = 0; i < levels; ++i)
        text = "d(x^x*" + text + ",x)";
    return text;
}

} // namespace

TEST(LargeGraph, TheDerivativeOf20000NestedQuotientsHasItsValue)
{
    constexpr int levels = 20000;
    constexpr double c = 1e-5, x = 0.7;
    const HostPtr host = makeHost({{"x", {x}}});
    const EvalNodePtr u = nestedQuotient(host, levels, c);

    const EvalNodePtr derivative = u->diff("x", host);
    const double value = u->eval(host, makeCache(), EvalValues)->getDouble();
    const double slope = derivative->eval(host, makeCache(), EvalValues)->getDouble();

    const double scale = 1.0 + levels * c * x;
    EXPECT_GT(countNodes(derivative), 65536u * 3);
    EXPECT_NEAR(value, x / scale, 1e-10);
    EXPECT_NEAR(slope, 1.0 / (scale * scale), 1e-10);
}

TEST(LargeGraph, HasAProgramWithOneOperationForEachNodeOfTheGraph)
{
    for (const int levels : {5000, 25000}) {
        const HostPtr host = makeHost({{"x", {0.5}}});
        const EvalNodePtr u = nestedQuotient(host, levels, 1e-5);
        EvalTreeSet set({boost::make_shared<EvalTree>(u)});
        std::vector<ValRepPtr> values;

        set.eval(host, makeCache(), EvalValues, values);

        EXPECT_EQ(set.getOperationCount(), 3u * static_cast<unsigned>(levels));
    }
}

TEST(LargeGraph, TwoHundredThousandOperationsOverManyPointsHaveTheValuesOfALoop)
{
    constexpr int steps = 100000, points = 50;
    const HostPtr host = makeHost();
    std::vector<double> expected;
    for (int i = 0; i < points; ++i)
        host->reals["x"].push_back(0.01 * i);
    expected = host->reals["x"];
    NodeMaker& maker = *host->getNodeMaker();
    EvalNodePtr u = maker.makeVarNode("x");
    for (int k = 1; k <= steps; ++k) {
        const double a = 1e-9 * k, b = 1.0 - 1e-6 / k;
        u = maker.makeOpNode(TIMES, maker.makeOpNode(PLUS, u, maker.makeConstNode(a)), maker.makeConstNode(b));
        for (double& e : expected)
            e = (e + a) * b;
    }

    const ValRepPtr value = u->eval(host, makeCache(), EvalValues);

    for (int i = 0; i < points; ++i)
        ASSERT_EQ(value->getDoubleIterator(0)[i], expected[static_cast<std::size_t>(i)]) << i;
}

TEST(LargeGraph, SharedPartsAreWalkedOnceWhateverTheFlags)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    const EvalNodePtr s = sharedLevels(host, 60);

    EXPECT_TRUE(s->eval(host, makeCache(), 0)->isNaN());
    EXPECT_TRUE(s->eval(host, makeCache(), EvalGatherBVars)->isNaN());
    EXPECT_NEAR(s->eval(host, makeCache(), EvalValues)->getDouble(), sharedLevelsAt(0.5, 60), 1e-9);
}

TEST(LargeGraph, SharedPartsBelowAHostFunctionAreComputedOnceOnASmallStack)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    const auto marker = boost::make_shared<Marker>();
    NodeMaker& maker = *host->getNodeMaker();
    const EvalNodePtr below = maker.makeOpNode(marker, sharedLevels(host, 60));
    const EvalNodePtr root = maker.makeOpNode(marker, maker.makeOpNode(PLUS, below, sharedLevels(host, 60)));

    for (const std::size_t stack : {std::max(smallestStack, javaStack / 2), largeStack})
        runOnStack(stack, [&] {
            marker->calls = 0;
            const double s = sharedLevelsAt(0.5, 60);
            EXPECT_NEAR(root->eval(host, makeCache(), EvalValues)->getDouble(), s + s, 1e-9) << stack;
            EXPECT_EQ(marker->calls, 2) << stack;
        });
}

TEST(NestedDerivatives, OfTwelveLevelsHaveTheValueOfTwelveCalls)
{
    const HostPtr host = makeHost({{"x", {0.7}}});
    NodeMaker& maker = *host->getNodeMaker();
    const EvalNodePtr x = maker.makeVarNode("x"), power = maker.makeOpNode(POW, x, x);
    EvalNodePtr byCalls = power;
    for (int i = 0; i < 12; ++i)
        byCalls = maker.makeOpNode(TIMES, power, byCalls)->diff("x", host);

    const double value = realValue(nestedDerivative(12), host);

    const double expected = byCalls->eval(host, makeCache(), EvalValues)->getDouble();
    EXPECT_NEAR(value / expected, 1.0, 1e-9);
}

TEST(NestedDerivatives, OfTooManyOperationsAreRefused)
{
    const HostPtr host = makeHost({{"x", {0.7}}});
    const EvalTreePtr tree = treeOf(nestedDerivative(26));

    EXPECT_EQ(raisedId([&] { tree->eval(host, makeCache(), EvalValues); }), "Derivative_too_large");
    EXPECT_EQ(raisedArgument([&] { tree->eval(host, makeCache(), EvalValues); }, "Operations"), "131072");
    EXPECT_EQ(realValue("d(x^2,x)", host), 1.4);
}

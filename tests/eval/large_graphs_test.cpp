// SPDX-License-Identifier: LicenseRef-qxkernel
// Graphs of any size are evaluated and differentiated in time linear in their distinct nodes, or refused.

#include "evaltreeset.hpp"
#include "host.hpp"
#include "support/alloc_fault.hpp"
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

/// A function of a host: the identity.
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

/// A function of a host of three arguments: their sum.
class Sum3 : public MultiFunObj
{
public:
    Sum3() : MultiFunObj("sum3", 3, false, true) {}
    using MultiFunObj::operator();
    unsigned int operator()(const std::vector<D>& args, int which) const override
    {
        *args[static_cast<std::size_t>(which - 1)] = *args[0] + *args[1] + *args[2];
        return ++calls, 0;
    }
    unsigned int operator()(const std::vector<C>&, int) const override { return 0; }
    unsigned int operator()(const std::vector<DA>& args, Size size, int which) const override
    {
        for (Size i = 0; i < size; ++i)
            args[static_cast<std::size_t>(which - 1)]->data()[i] =
                args[0]->data()[i] + args[1]->data()[i] + args[2]->data()[i];
        return ++calls, 0;
    }
    unsigned int operator()(const std::vector<CA>&, Size, int) const override { return 0; }
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

TEST(LargeGraph, FunctionsAndOperatorsOfAHostThatAreNestedAreCalledOnceForEachNode)
{
    // s_i = 0.25 (sum3(m, s, m) + op(m)), m = marker(s): all of s_i is 0.25 (3 + 1) s_{i-1} = s_{i-1}
    for (const int levels : {30, 60}) {
        const HostPtr host = makeHost({{"x", {0.5, 0.75}}});
        host->operators["op"] = 1;
        const auto marker = boost::make_shared<Marker>();
        const auto sum3 = boost::make_shared<Sum3>();
        NodeMaker& maker = *host->getNodeMaker();
        EvalNodePtr s = maker.makeVarNode("x");
        for (int i = 0; i < levels; ++i) {
            const EvalNodePtr m = maker.makeOpNode(marker, s);
            s = maker.makeOpNode(TIMES, maker.makeConstNode(0.25),
                                 maker.makeOpNode(PLUS, maker.makeOpNode(sum3, {m, s, m}), maker.makeGenOpNode("op", {m})));
        }

        const ValRepPtr value = s->eval(host, makeCache(), EvalValues);

        EXPECT_EQ(value->getDoubleIterator(0)[0], 0.5);
        EXPECT_EQ(value->getDoubleIterator(0)[1], 0.75);
        EXPECT_EQ(marker->calls, levels);
        EXPECT_EQ(sum3->calls, levels);
        EXPECT_EQ(host->evaluations["op"], levels);
    }
}

TEST(LargeGraph, OperatorsOfAHostAloneAreCalledOnceForEachNode)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    host->operators["op"] = 2;
    NodeMaker& maker = *host->getNodeMaker();
    EvalNodePtr s = maker.makeVarNode("x");
    for (int i = 0; i < 40; ++i)
        s = maker.makeGenOpNode("op", {s, s});

    EXPECT_EQ(s->eval(host, makeCache(), EvalValues)->getDouble(), std::ldexp(0.5, 40));

    EXPECT_EQ(host->evaluations["op"], 40);
}

TEST(LargeGraph, OperationsBelowManyCallsAreComputedOnce)
{
    // f(s_1) + ... + f(s_n) on a chain s_i = 0.5 s_{i-1} + 1: a program for each argument would be quadratic work.
    for (const int terms : {1000, 2000}) {
        const HostPtr host = makeHost({{"x", {2.0}}});
        const auto marker = boost::make_shared<Marker>();
        NodeMaker& maker = *host->getNodeMaker();
        EvalNodePtr s = maker.makeVarNode("x"), sum = maker.makeZeroNode();
        for (int i = 0; i < terms; ++i) {
            s = maker.makeOpNode(PLUS, maker.makeOpNode(TIMES, maker.makeConstNode(0.5), s), maker.makeUnitNode());
            sum = maker.makeOpNode(PLUS, sum, maker.makeOpNode(marker, s));
        }
        EvalTreeSet set({boost::make_shared<EvalTree>(sum), boost::make_shared<EvalTree>(s)});
        std::vector<ValRepPtr> values;

        set.eval(host, makeCache(), EvalValues, values);

        EXPECT_EQ(values[0]->getDouble(), 2.0 * terms);
        EXPECT_EQ(values[1]->getDouble(), 2.0);
        EXPECT_EQ(marker->calls, terms);
        EXPECT_EQ(set.getOperationCount(), 4u * static_cast<unsigned>(terms) - 1) << "two of the chain, a call and a sum each";
    }
}

TEST(LargeGraph, CallsInAnEvaluationThatWasDoneBeforeAllocateNothing)
{
    const HostPtr host = makeHost({{"x", {0.5, 0.75}}});
    host->operators["op"] = 1;
    NodeMaker& maker = *host->getNodeMaker();
    const EvalNodePtr x = maker.makeVarNode("x"), m = maker.makeOpNode(boost::make_shared<Marker>(), x);
    const EvalNodePtr sum = maker.makeOpNode(boost::make_shared<Sum3>(), {m, x, m});
    const EvalNodePtr root = maker.makeOpNode(PLUS, maker.makeOpNode(SIN, sum), m);
    const ValRepCachePtr cache = makeCache(boost::make_shared<SerialArrayAllocator>(8, 0));
    const auto pass = [&] {
        cache->reset();
        return root->eval(host, cache, EvalValues)->getDoubleIterator(0)[1];
    };
    const double value = pass();
    pass();

    const long before = allocationCount();
    EXPECT_EQ(pass(), value);
    EXPECT_EQ(allocationCount(), before);
}

TEST(LargeGraph, NestedCallsSurviveEveryAllocationFailure)
{
    const HostPtr host = makeHost({{"x", {0.5, 0.75}}});
    const auto marker = boost::make_shared<Marker>();
    NodeMaker& maker = *host->getNodeMaker();
    double value = 0.0;

    failEveryAllocation(
        [&] {
            const EvalNodePtr x = maker.makeVarNode("x"), m = maker.makeOpNode(marker, maker.makeOpNode(marker, x));
            const EvalNodePtr root = maker.makeOpNode(PLUS, maker.makeOpNode(TIMES, m, m), m);
            for (int i = 0; i < 2; ++i)
                value = root->eval(host, makeCache(), EvalValues)->getDoubleIterator(0)[1];
        },
        [&](const FaultRun& run) {
            EXPECT_EQ(run.badAlloc, run.faulted) << run.n << ' ' << run.id;
            if (!run.faulted) {
                EXPECT_EQ(value, 0.75 * 0.75 + 0.75);
            }
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

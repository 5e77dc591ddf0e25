// SPDX-License-Identifier: LicenseRef-qxkernel
// Definitions that fail, circular ones and derivatives of definitions: work in proportion to what was written.

#include "evaltreeset.hpp"
#include "host.hpp"
#include "support/alloc_fault.hpp"
#include "support/deep_stack.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

namespace {

std::string level(const char* name, int i) { return name + std::to_string(i); }

/// d0 := bottom, d1 := f(d0), ... where "#" in f stands for the definition before.
HostPtr ladder(const std::string& bottom, const std::string& f, int levels)
{
    const HostPtr host = makeHost({{"x", {-0.25}}});
    host->definitions["d0"] = bottom;
    for (int i = 1; i <= levels; ++i) {
        std::string& text = host->definitions[level("d", i)];
        for (const char c : f)
            text += c == '#' ? level("d", i - 1) : std::string(1, c);
    }
    return host;
}

/// Variables entered by one evaluation.
long stepsOf(const std::string& text, const HostPtr& host, unsigned flags)
{
    const long before = host->entered;
    evalText(text, host, flags);
    return host->entered - before;
}

std::string story(const ValRepPtr& value)
{
    return value->isNaN() ? value->getErrors()->makeException().toString() : "no NaN";
}

constexpr unsigned realValues = EvalValues | EvalKeepReal;

} // namespace

// Circles ------------------------------------------------------------------------------------------------------------

TEST(CircularDefinitions, EndAtTheDepthLimitAlthoughEachLevelHasTwoWaysOn)
{
    const HostPtr host = makeHost();
    host->definitions = {{"c", "a+1"}, {"a", "b+d"}, {"b", "a"}, {"d", "a"}};

    ValRepPtr value;
    runOnStack(largeStack, [&] { value = evalText("c", host); }); // sanitized frames of 10000 levels need it

    EXPECT_EQ(raisedId([&] { value->getDouble(); }), "circvar");
    EXPECT_LE(host->entered, 10001) << "10000 levels, and d once";
    EXPECT_EQ(host->getRecCount()->getDepth(), 0);
}

TEST(CircularDefinitions, FoundByDepthTellOneLineALevel)
{
    const HostPtr host = makeHost();
    host->definitions = {{"c", "a+1"}, {"a", "b"}, {"b", "a"}};

    const ValRepPtr value = evalText("c", host);

    ASSERT_TRUE(value->isNaN());
    const qxbase::Exception told = value->getErrors()->makeException();
    ASSERT_EQ(told.size(), 10001u); // circvar, vareval for 9999 levels, expreval
    EXPECT_EQ(told.getId(0), "circvar");
    EXPECT_EQ(told.getId(1), "vareval");
    EXPECT_EQ(told.getId(9999), "vareval");
    EXPECT_EQ(told.getId(10000), "expreval");
    EXPECT_EQ(host->entered, 10000);
}

TEST(CircularDefinitions, AllocateInProportionToTheirLines)
{
    runOnStack(largeStack, [] {
        const HostPtr host = makeHost();
        host->definitions = {{"c", "a+1"}, {"a", "b"}, {"b", "a"}};
        evalText("c", host);

        const long before = allocationCount();
        evalText("c", host);

        EXPECT_LT(allocationCount() - before, 15 * 10001);
    });
}

TEST(CircularDefinitions, LeaveOtherVariablesOfTheSameRootAlone)
{
    const HostPtr host = makeHost({{"z", {3.0}}});
    host->definitions = {{"a", "b*z"}, {"b", "a"}}; // z is reached while the loop stands
    EvalTreeSet set({treeOf("a"), treeOf("z+1")});
    std::vector<ValRepPtr> values;

    set.eval(host, makeCache(), EvalValues, values);

    EXPECT_TRUE(values[0]->isNaN());
    EXPECT_EQ(values[1]->getDouble(), 4.0);
}

TEST(CircularDefinitions, AreFollowedToTheDepthLimitOnceHoweverManyUsesLeadToThem)
{
    runOnStack(largeStack, [] {
        for (const int uses : {10, 40}) {
            const HostPtr host = makeHost();
            host->definitions = {{"a", "b"}, {"b", "g"}, {"g", "a"}};
            std::string sum = "1";
            for (int i = 0; i < uses; ++i) {
                host->definitions[level("c", i)] = level("u", i) + "+1";
                host->definitions[level("u", i)] = std::string(1, "abg"[i % 3]);
                sum += "+" + level("c", i);
            }

            EXPECT_TRUE(evalText(sum, host)->isNaN());

            EXPECT_LE(host->entered, 10000 + 2 * uses + 2);
        }
    });
}

TEST(CircularDefinitions, AreFollowedToTheDepthLimitOnceByRootsOfASet)
{
    runOnStack(largeStack, [] {
        for (const int roots : {10, 40}) {
            const HostPtr host = makeHost();
            host->definitions = {{"a", "b"}, {"b", "a"}};
            std::vector<EvalTreePtr> trees;
            for (int i = 0; i < roots; ++i) { // each from a level nearer to the circle
                host->definitions[level("c", i)] = i + 1 < roots ? level("c", i + 1) : "a";
                trees.push_back(treeOf(level("c", i)));
            }
            EvalTreeSet set(trees);
            std::vector<ValRepPtr> values;

            set.eval(host, makeCache(), EvalValues, values);

            EXPECT_EQ(raisedId([&] { values.back()->getDouble(); }), "circvar");
            EXPECT_LE(host->entered, 10000 + 2 * roots);
        }
    });
}

TEST(CircularDefinitions, OfManyVariablesAreAsMuchWorkAsTheirVariables)
{
    for (const int variables : {100, 200}) {
        const HostPtr host = makeHost();
        std::vector<EvalTreePtr> trees;
        for (int i = 0; i < variables; ++i) {
            host->definitions[level("a", i)] = level("a", (i + 1) % variables) + "+1";
            trees.push_back(treeOf(level("a", i)));
        }
        EvalTreeSet set(trees);
        std::vector<ValRepPtr> values;

        set.eval(host, makeCache(), EvalValues, values);

        for (const ValRepPtr& value : values)
            EXPECT_TRUE(value->isNaN());
        EXPECT_LE(host->entered, 3 * variables) << "found by its start at the first root, known at the others";
    }
}

TEST(CircularDefinitions, AreFollowedAgainInAnotherEvaluation)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->definitions = {{"a", "b+1"}, {"b", "a"}};
    const ValRepCachePtr cache = makeCache();
    EXPECT_TRUE(treeOf("a")->eval(host, cache, EvalValues)->isNaN());

    host->definitions["b"] = "x";
    host->updateVersion();

    EXPECT_EQ(treeOf("a")->eval(host, cache, EvalValues)->getDouble(), 4.0);
}

TEST(CircularDefinitions, KeepTheValuesBelowADefinitionThatIsNestedTooDeeply)
{
    runOnStack(largeStack, [] {
        const HostPtr host = makeHost({{"v0", {0.0}}});
        for (int i = 1; i <= 10050; ++i)
            host->definitions[level("v", i)] = level("v", i - 1) + "+1";
        const ValRepCachePtr cache = makeCache();
        EvalTreeSet set({treeOf("v10050"), treeOf("v40"), treeOf("v60")});
        std::vector<ValRepPtr> values;

        set.eval(host, cache, EvalValues, values);

        EXPECT_TRUE(values[0]->isNaN());
        EXPECT_EQ(values[1]->getDouble(), 40.0);
        EXPECT_EQ(values[2]->getDouble(), 60.0) << "it failed on the way up only";
        EXPECT_EQ(treeOf("v10050")->eval(host, cache, EvalValues)->getDouble(), 10050.0) << "v60 is known by now";
    });
}

// Failures -----------------------------------------------------------------------------------------------------------

TEST(FailingDefinitions, AreAsMuchWorkAsThoseThatSucceed)
{
    for (const int levels : {20, 40}) {
        const std::string top = level("d", levels);
        const HostPtr fails = ladder("sqrt(x)", "#*(1+#)", levels);
        const HostPtr succeeds = ladder("cos(x)", "#*(1+#)*0.1", levels);

        EXPECT_EQ(stepsOf(top, fails, realValues), levels + 2); // d0 to the top, and x
        EXPECT_EQ(stepsOf(top, succeeds, realValues), levels + 2);
    }
}

TEST(FailingDefinitions, AllocateInProportionToTheChain)
{
    const auto allocations = [](int levels) {
        const HostPtr host = ladder("sqrt(x)", "#+1", levels);
        evalText(level("d", levels), host, realValues);
        const long before = allocationCount();
        EXPECT_TRUE(evalText(level("d", levels), host, realValues)->isNaN());
        return allocationCount() - before;
    };

    const long small = allocations(1000), large = allocations(2000);

    EXPECT_LT(static_cast<double>(large), 2.2 * static_cast<double>(small));
}

TEST(FailingDefinitions, AskForABasicVariableOnceInAnEvaluation)
{
    const HostPtr host = makeHost({{"x", {1.0}}});
    host->fails = true;
    host->definitions = {{"a", "x+1"}, {"b", "x*a"}};

    EXPECT_TRUE(evalText("a+b", host)->isNaN());

    EXPECT_EQ(host->evaluations["x"], 1);
}

TEST(FailingDefinitions, AddNoLineWhenTheyAreMetAgain)
{
    const HostPtr host = ladder("sqrt(x)", "#+1", 2);
    const ValRepCachePtr cache = makeCache();
    EvalTreeSet set({treeOf("d2"), treeOf("d2*1.5"), treeOf("d2")});
    std::vector<ValRepPtr> values;

    set.eval(host, cache, realValues, values);

    EXPECT_EQ(values[0]->getErrors()->size(), 5u); // sqrt, d0, d1, d2, the expression
    EXPECT_EQ(story(values[2]), story(values[0]));
    EXPECT_EQ(values[1]->getErrors()->size(), 5u);
    EXPECT_EQ(story(evalText("d2", host, realValues)), story(values[0]));
}

TEST(FailingDefinitions, AreTriedAgainInAnotherEvaluation)
{
    const HostPtr host = ladder("x", "#+1", 3);
    const ValRepCachePtr cache = makeCache();
    host->fails = true;
    EXPECT_TRUE(treeOf("d3")->eval(host, cache, EvalValues)->isNaN());

    host->fails = false;

    EXPECT_EQ(treeOf("d3")->eval(host, cache, EvalValues)->getDouble(), 2.75);
}

TEST(FailingDefinitions, AreTriedAgainWhenANodeIsEvaluatedByItself)
{
    const HostPtr host = ladder("x", "#+1", 3);
    const ValRepCachePtr cache = makeCache();
    const EvalNodePtr var = host->getNodeMaker()->makeVarNode("d3");
    const EvalNodePtr sum = treeOf("d3+1")->getRoot(host);
    host->fails = true;
    EXPECT_TRUE(var->eval(host, cache, EvalValues)->isNaN());
    EXPECT_TRUE(sum->eval(host, cache, EvalValues)->isNaN());
    EXPECT_EQ(host->evaluations["x"], 2);

    host->fails = false;

    EXPECT_EQ(sum->eval(host, cache, EvalValues)->getDouble(), 3.75);
}

TEST(FailingDefinitions, AreTriedAgainWithOtherFlagsInTheSameEvaluation)
{
    const HostPtr host = makeHost();
    host->complexes = {{"z", {cplx(0.0, 1.0)}}};
    host->definitions["u"] = "z*2";
    const ValRepCachePtr cache = makeCache();
    const EvaluationScope evaluation(host);
    EXPECT_TRUE(treeOf("u")->eval(host, cache, EvalValues | EvalNoComplex)->isNaN());
    EXPECT_TRUE(treeOf("u")->eval(host, cache, EvalValues | EvalNoComplex)->isNaN());
    EXPECT_EQ(host->evaluations["z"], 1) << "once in one evaluation";

    const ValRepPtr value = treeOf("u")->eval(host, cache, EvalValues);

    ASSERT_FALSE(value->isNaN());
    EXPECT_EQ(value->getComplex(), cplx(0.0, 2.0));
}

TEST(FailingDefinitions, AreTriedAgainAtAnotherVersionInTheSameEvaluation)
{
    const HostPtr host = makeHost({{"x", {-1.0}}});
    host->definitions["u"] = "sqrt(x)";
    const ValRepCachePtr cache = makeCache();
    const EvaluationScope evaluation(host);
    EXPECT_TRUE(treeOf("u")->eval(host, cache, realValues)->isNaN());
    host->definitions["u"] = "5";
    EXPECT_TRUE(treeOf("u")->eval(host, cache, realValues)->isNaN()) << "still the old version";

    host->updateVersion();

    EXPECT_EQ(treeOf("u")->eval(host, cache, realValues)->getDouble(), 5.0);
}

TEST(FailingDefinitions, GiveTheSameStoryAfterAnyFailedAllocation)
{
    const HostPtr host = ladder("sqrt(x)", "#*(1+#)", 3);
    const std::string expected = story(evalText("d3", host, realValues));

    const long runs = failEveryAllocation([&] { evalText("d3", host, realValues); },
                                          [&](const FaultRun& run) {
                                              EXPECT_EQ(run.badAlloc, run.faulted) << run.n << ' ' << run.id;
                                              EXPECT_EQ(host->getRecCount()->getDepth(), 0);
                                              EXPECT_EQ(story(evalText("d3", host, realValues)), expected) << run.n;
                                          });

    EXPECT_GT(runs, 20);
}

// Derivatives of definitions -----------------------------------------------------------------------------------------

namespace {

/// Value and derivative at x of u_n, u_0 = x, u_i = sin(u_{i-1}) (c u_{i-1}), by the product rule.
std::pair<double, double> sinLadder(double x, double c, int levels)
{
    double u = x, du = 1.0;
    for (int i = 0; i < levels; ++i) {
        const double value = std::sin(u) * (c * u);
        du = std::cos(u) * du * (c * u) + std::sin(u) * (c * du);
        u = value;
    }
    return {u, du};
}

} // namespace

TEST(DerivativesOfDefinitions, OfThreeLevelsHaveTheValueOfTheProductRule)
{
    const HostPtr host = ladder("x", "sin(#)*(3*#)", 3);

    const double value = treeOf("d3")->diff("x", host)->eval(host, makeCache(), EvalValues)->getDouble();

    EXPECT_NEAR(value, sinLadder(-0.25, 3.0, 3).second, 1e-13);
}

TEST(DerivativesOfDefinitions, AreComputedOnceInAnEvaluation)
{
    for (const unsigned flags : {unsigned(EvalValues), unsigned(EvalGatherBVars), 0u, EvalValues | EvalGatherBVars})
        for (const int levels : {20, 40}) {
            const HostPtr host = ladder("x", "sin(#)*(0.25*#)", levels);
            const EvalTreePtr derivative = treeOf(level("d", levels))->diff("x", host);
            derivative->eval(host, makeCache(), flags); // differentiates all levels
            host->entered = 0;

            derivative->eval(host, makeCache(), flags);

            EXPECT_LE(host->entered, 2 * levels + 2) << flags; // each definition and its derivative, and x
        }
}

TEST(DerivativesOfDefinitions, OfATextAreComputedOnceInAnEvaluation)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    host->definitions["u"] = "sin(x)";
    host->definitions["v"] = "d(u*x,x)+d(u*x,x)";
    const EvalTreePtr tree = treeOf("v+d(u*x,x)^2");
    const ValRepCachePtr cache = makeCache();
    tree->eval(host, cache, EvalValues);
    host->entered = 0;

    cache->reset();
    const double value = tree->eval(host, cache, EvalValues)->getDouble();

    const double d = std::sin(0.5) + 0.5 * std::cos(0.5);
    EXPECT_NEAR(value, 2 * d + d * d, 1e-15);
    EXPECT_EQ(host->entered, 4) << "v, u, x and d(u,x)";
}

TEST(DerivativesOfDefinitions, DifferentiateNotAgainInALaterPass)
{
    const HostPtr host = ladder("x", "sin(#)*(0.25*#)", 10);
    const EvalTreePtr derivative = treeOf("d(d10,x)");
    const ValRepCachePtr cache = makeCache();
    derivative->eval(host, cache, EvalValues);

    const std::size_t made = countNodesMade(*host->getNodeMaker(), [&] {
        cache->reset();
        derivative->eval(host, cache, EvalValues);
    });

    EXPECT_EQ(made, 0u);
}

TEST(DerivativesOfDefinitions, FailAsFastAsTheySucceed)
{
    for (const int levels : {20, 40}) {
        const HostPtr host = ladder("sqrt(x)", "#*(1+#)", levels);
        const EvalTreePtr derivative = treeOf(level("d", levels))->diff("x", host);
        derivative->eval(host, makeCache(), realValues);
        host->entered = 0;

        EXPECT_TRUE(derivative->eval(host, makeCache(), realValues)->isNaN());

        EXPECT_LE(host->entered, 2 * levels + 4);
    }
}

TEST(DerivativesOfDefinitions, AreToldApartFromVariablesOfTheSameText)
{
    const HostPtr host = makeHost({{"x", {0.5}}, {"d(u,x)", {77.0}}});
    host->definitions["u"] = "x^3";
    const ValRepCachePtr cache = makeCache();
    const EvalTreePtr derivative = treeOf("u")->diff("x", host);
    const auto variable = boost::make_shared<EvalTree>("d(u,x)", true);

    EXPECT_EQ(derivative->eval(host, cache, EvalValues)->getDouble(), 0.75);
    EXPECT_EQ(variable->eval(host, cache, EvalValues)->getDouble(), 77.0);
    EXPECT_EQ(derivative->eval(host, cache, EvalValues)->getDouble(), 0.75);
}

TEST(DerivativesOfDefinitions, ThatAreComplexFailOnlyWhereNoComplexNumberIsAllowed)
{
    for (const bool byText : {false, true}) {
        const HostPtr host = makeHost({{"x", {-1.0}}});
        host->definitions["u"] = "x*sqrt(x)"; // du/dx = 3/2 sqrt(x)
        const EvalTreePtr derivative = byText ? treeOf("d(x*sqrt(x),x)") : treeOf("u")->diff("x", host);
        const ValRepCachePtr cache = makeCache();

        const ValRepPtr first = derivative->eval(host, cache, EvalValues);
        EXPECT_NEAR(std::abs(first->getComplex() - cplx(0.0, 1.5)), 0.0, 1e-15);
        const ValRepPtr refused = derivative->eval(host, cache, EvalValues | EvalNoComplex);
        ASSERT_TRUE(refused->isNaN()) << byText;
        EXPECT_EQ(refused->getErrors()->get(0, "message"), "varcmplx");
        EXPECT_EQ(refused->getErrors()->get(0, "var"), byText ? "x" : "u");
        const ValRepPtr again = derivative->eval(host, cache, EvalValues);
        EXPECT_NEAR(std::abs(again->getComplex() - cplx(0.0, 1.5)), 0.0, 1e-15);
    }
}

TEST(DerivativesOfDefinitions, AllocateNothingInTheSteadyState)
{
    const HostPtr host = ladder("x", "sin(#)*(0.25*#)", 6);
    const EvalTreePtr derivative = treeOf("d(d6,x)*2");
    const ValRepCachePtr cache = makeCache();
    const auto pass = [&] {
        cache->reset();
        return derivative->eval(host, cache, EvalValues)->getDouble();
    };
    const double value = pass();
    pass();

    const long before = allocationCount();
    EXPECT_EQ(pass(), value);
    EXPECT_EQ(allocationCount(), before);
}

TEST(DerivativesOfDefinitions, SurviveEveryAllocationFailure)
{
    const HostPtr host = ladder("x", "sin(#)*(3*#)", 3);
    const double expected = sinLadder(-0.25, 3.0, 3).second;

    failEveryAllocation(
        [&] {
            host->updateVersion();
            treeOf("d(d3,x)")->eval(host, makeCache(), EvalValues);
        },
        [&](const FaultRun& run) {
            EXPECT_EQ(run.id, "") << run.n;
            EXPECT_NEAR(realValue("d(d3,x)", host), expected, 1e-13) << run.n;
        });
}

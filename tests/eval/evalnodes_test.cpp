// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalnodes.hpp"

#include "derivativenodes.hpp"
#include "host.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace qxtest;

namespace {

std::string text(const EvalNode& node)
{
    std::ostringstream out;
    out << node;
    return out.str();
}

} // namespace

TEST(EvalNode, HasNoFormInCompiledCodeUnlessItSaysSo)
{
    struct Bare : ConstNode
    {
        using ConstNode::ConstNode;
        int createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& host) const override
        {
            return EvalNode::createDefs(comp, names, nextId, host);
        }
    };
    int dummy = 0, nextId = 0;
    DefIds names;
    EXPECT_EQ(raisedId([&] { Bare(2.5, 7).createDefs(reinterpret_cast<ExprComp&>(dummy), names, nextId, makeHost()); }),
              "Cannot create definitions from EvalNode");
}

// Constants ----------------------------------------------------------------------------------------------------------

TEST(ConstNode, KnowsItsRealNumber)
{
    double v = 0;
    EXPECT_TRUE(ConstNode(2.5, 7).isRealScalar(v));
    EXPECT_EQ(v, 2.5);
    EXPECT_TRUE(ConstNode(cplx(3, 0), 7).isRealScalar(v));
    EXPECT_EQ(v, 3.0);
    EXPECT_TRUE(ConstNode(std::string("-1.5e2"), 7).isRealScalar(v));
    EXPECT_EQ(v, -150.0);
    EXPECT_FALSE(ConstNode(cplx(3, 1), 7).isRealScalar(v));
    EXPECT_FALSE(ConstNode(std::nan(""), 7).isRealScalar(v));
    EXPECT_FALSE(ConstNode(std::string("x"), 7).isRealScalar(v));
    EXPECT_EQ(ConstNode(2.5, 7).getId(), 7u);
}

TEST(ConstNode, TakesTheNumberAtTheStartOfAText)
{
    const auto number = [](const char* text) {
        double v = -1;
        return ConstNode(std::string(text), 7).isRealScalar(v) ? v : -1;
    };
    EXPECT_EQ(number("1.5x"), 1.5);
    EXPECT_EQ(number(" \t2 3"), 2.0);
    EXPECT_EQ(number("1,5"), 1.0);
    EXPECT_EQ(number("1e5e3"), 1e5);
    for (const char* none : {"", "  ", "x", ".", "--1", "nan"})
        EXPECT_EQ(number(none), -1.0) << none;
}

TEST(ConstNode, IsAScalarAndZeroByItsValue)
{
    EXPECT_TRUE(ConstNode(2.5, 7).isScalar());
    EXPECT_FALSE(ConstNode(2.5, 7).isZero());
    EXPECT_TRUE(ConstNode(0.0, 7).isZero());
    EXPECT_FALSE(ConstNode(1.0, 7).isUnit()) << "only the unit node says so";
    EXPECT_EQ(ConstNode(2.5, 7).getScalar()->getDouble(), 2.5);
}

TEST(ConstNode, KeepsAPrivateCloneOfAValue)
{
    const auto value = boost::make_shared<ValRep>(2.5);
    const ConstNode node(value, 7);
    EXPECT_NE(node.getScalar(), value);
    EXPECT_EQ(node.getScalar()->getDouble(), 2.5);
}

TEST(ConstNode, GivesItsSharedValue)
{
    const ConstNode node(2.5, 7);
    const HostPtr host = makeHost();
    EXPECT_EQ(node.eval(host, makeCache(), EvalValues), node.getScalar());
    EXPECT_EQ(node.eval(host, makeCache(), 0), node.getScalar());
}

TEST(ConstNode, RequiredQuirkPutsTheRefusalOfAComplexNumberIntoItsStoredValue)
{
    const ConstNode node(cplx(1, 2), 7);
    const HostPtr host = makeHost();
    const ValRepPtr value = node.eval(host, makeCache(), EvalValues | EvalNoComplex);
    ASSERT_TRUE(value->isNaN());
    EXPECT_EQ(raisedId([&] { value->getDouble(); }), "Unexpected_NaN");
    EXPECT_EQ(node.getScalar()->getErrors()->get(0, "message"), "varcmplx");
    EXPECT_EQ(node.getScalar()->getErrors()->getFile(0), "evalnodes");
    EXPECT_EQ(node.eval(host, makeCache(), EvalValues)->getComplex(), cplx(1, 2));
}

TEST(ConstNode, PrintsTextThatReadsBackEqual)
{
    EXPECT_EQ(text(ConstNode(0.1, 7)), "0.1");
    EXPECT_EQ(text(ConstNode(2.0, 7)), "2");
    EXPECT_EQ(text(ConstNode(-2.5, 7)), "(-2.5)");
    EXPECT_EQ(std::stod(text(ConstNode(1.0 / 3, 7))), 1.0 / 3);
    EXPECT_EQ(text(ConstNode(cplx(1, 2), 7)), "(1+2*i)");
    EXPECT_EQ(text(ConstNode(cplx(1, -2), 7)), "(1-2*i)");
    EXPECT_EQ(text(ConstNode(std::nan(""), 7)), "NaN");
}

TEST(SmallConstants, KnowThemselves)
{
    const ZeroNode zero(0);
    const UnitNode unit(1);
    const NUnitNode nunit(2);
    double v = 9;
    EXPECT_TRUE(zero.isZero() && zero.isScalar() && zero.isRealScalar(v) && v == 0);
    EXPECT_TRUE(unit.isUnit() && unit.isScalar() && unit.isRealScalar(v) && v == 1);
    EXPECT_TRUE(nunit.isNUnit() && nunit.isScalar() && nunit.isRealScalar(v) && v == -1);
    EXPECT_FALSE(zero.isUnit() || unit.isZero() || nunit.isUnit());
    EXPECT_TRUE(zero.getScalar()->isZero());
    EXPECT_EQ(nunit.getScalar()->getDouble(), -1.0);
    EXPECT_EQ(text(zero), "0");
    EXPECT_EQ(text(unit), "1");
    EXPECT_EQ(text(nunit), "(-1)");
}

// Strings ------------------------------------------------------------------------------------------------------------

TEST(StringNode, HasATextAndNothingElse)
{
    const StringNode node("it's", 7);
    const HostPtr host = makeHost();
    NodeIdSet seen;
    NameSet names;
    EXPECT_TRUE(node.isString());
    EXPECT_EQ(node.getVarName(), "it's");
    const std::string id = "Strings_are_only_allowed_in_function_arguments";
    EXPECT_EQ(raisedId([&] { node.eval(host, makeCache(), EvalValues); }), id);
    EXPECT_EQ(raisedId([&] { node.diff("x", host); }), id);
    EXPECT_EQ(raisedId([&] { node.simplify(host); }), id);
    EXPECT_EQ(raisedId([&] { node.gatherBVars(host, seen, names); }), id);
    int nextId = 0;
    DefIds defs;
    EXPECT_EQ(raisedId([&] { node.createDefs(reinterpret_cast<ExprComp&>(nextId), defs, nextId, host); }), id);
}

TEST(StringNode, RequiredQuirkPrintsWithoutQuotes)
{
    EXPECT_EQ(text(StringNode("a b", 7)), "a b");
}

// Other nodes' defaults ------------------------------------------------------------------------------------------------

TEST(EvalNode, HasNoValueOrNameUnlessItSaysSo)
{
    const VarNode x("x", 7);
    double v;
    EXPECT_FALSE(x.isZero() || x.isUnit() || x.isNUnit() || x.isScalar() || x.isString() || x.isRealScalar(v));
    EXPECT_TRUE(x.getScalar()->isNaN());
    EXPECT_EQ(x.getVarName(), "x");
    EXPECT_EQ(text(x), "x");
    EXPECT_EQ(ConstNode(2.0, 8).getVarName(), "");
}

TEST(ProxyNode, ForwardsEveryQuestion)
{
    const EvalNodePtr minusOne = boost::make_shared<NUnitNode>(3);
    const ProxyNode proxy(minusOne, 9);
    double v = 0;
    EXPECT_TRUE(proxy.isNUnit() && proxy.isScalar() && proxy.isRealScalar(v) && v == -1);
    EXPECT_FALSE(proxy.isZero() || proxy.isUnit() || proxy.isString());
    EXPECT_EQ(proxy.getScalar(), minusOne->getScalar());
    EXPECT_EQ(text(proxy), "(-1)");
    EXPECT_EQ(proxy.getId(), 9u);
    EXPECT_EQ(ProxyNode(boost::make_shared<StringNode>("s", 4), 5).getVarName(), "s");
    EXPECT_TRUE(ProxyNode(boost::make_shared<StringNode>("s", 4), 5).isString());
}

TEST(ProxyNode, IsMarkedAsSharedForGood)
{
    const ProxyNode proxy(boost::make_shared<UnitNode>(3), 9);
    EXPECT_FALSE(proxy.isShared());
    proxy.markAsShared();
    proxy.markAsShared();
    EXPECT_TRUE(proxy.isShared());
}

// Variables ----------------------------------------------------------------------------------------------------------

TEST(VarNode, IsComputedOncePerEvaluation)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    const ValRepCachePtr cache = makeCache();
    const EvalTreePtr tree = treeOf("x*x+sin(x)");
    tree->eval(host, cache, EvalValues);
    EXPECT_EQ(host->evaluations["x"], 1);
    tree->eval(host, cache, EvalValues);
    EXPECT_EQ(host->evaluations["x"], 1);
    host->updateVersion();
    tree->eval(host, cache, EvalValues);
    EXPECT_EQ(host->evaluations["x"], 1) << "an evaluated entry does not look at the version";
    tree->eval(host, makeCache(), EvalValues);
    EXPECT_EQ(host->evaluations["x"], 2);
}

TEST(VarNode, ComputesDefinitionsOnce)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->definitions["y"] = "x^2";
    EXPECT_EQ(realValue("y+y*2", host), 27.0);
    EXPECT_EQ(host->evaluations["x"], 1);
    EXPECT_EQ(host->evaluations.count("y"), 0u);
}

TEST(VarNode, AsksForTheDefinitionAgainInEachPass)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->definitions["y"] = "x+1";
    const EvalTreePtr tree = treeOf("y");
    EXPECT_EQ(tree->eval(host, makeCache(), EvalValues)->getDouble(), 4.0);
    host->definitions["y"] = "x+2";
    EXPECT_EQ(tree->eval(host, makeCache(), EvalValues)->getDouble(), 5.0);
}

TEST(VarNode, TriesANaNAgainWithinOnePass)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    const ValRepCachePtr cache = makeCache();
    const EvalTreePtr tree = treeOf("x+1");
    EXPECT_TRUE(tree->eval(host, cache, 0)->isNaN());
    EXPECT_EQ(host->evaluations["x"], 0);
    EXPECT_EQ(tree->eval(host, cache, EvalValues)->getDouble(), 4.0);
    host->fails = true;
    const ValRepCachePtr other = makeCache();
    EXPECT_TRUE(tree->eval(host, other, EvalValues)->isNaN());
    host->fails = false;
    EXPECT_EQ(tree->eval(host, other, EvalValues)->getDouble(), 4.0);
}

TEST(VarNode, KeepsVariantsApartAndFindsOtherFlagsAgain)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    const ValRepCachePtr cache = makeCache();
    const EvalTreePtr tree = treeOf("x");
    for (const unsigned flag : {0u, 0x200u, 0x400u, 0x600u})
        tree->eval(host, cache, EvalValues | flag);
    EXPECT_EQ(host->evaluations["x"], 4);
    for (const unsigned flag : {8u, 0x10u, 0x100u})
        tree->eval(host, cache, EvalValues | flag);
    EXPECT_EQ(host->evaluations["x"], 4);
}

TEST(VarNode, CollectsOnlyNamesWithoutADefinition)
{
    const HostPtr host = makeHost({{"x", {3.0}}, {"z", {1.0}}});
    host->definitions["y"] = "x+1";
    const ValRepCachePtr cache = makeCache();
    treeOf("y*z")->eval(host, cache, EvalGatherBVars);
    std::vector<std::string> names;
    for (auto it = cache->bVarBegin(); it != cache->bVarEnd(); ++it)
        names.push_back(it->key);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"x", "z"}));
    EXPECT_EQ(host->evaluations["x"], 0) << "gathering computes no numbers";
}

TEST(VarNode, RequiredQuirkGathersNotAgainBelowAnEntryThatWasFound)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->definitions["y"] = "x+1";
    const ValRepCachePtr cache = makeCache();
    treeOf("y")->eval(host, cache, 0);
    treeOf("y")->eval(host, cache, EvalGatherBVars);
    EXPECT_TRUE(cache->bVarBegin() == cache->bVarEnd());
}

TEST(VarNode, RefusesComplexValuesWhereNoneAreAllowed)
{
    const HostPtr host = makeHost();
    host->complexes["z"] = {cplx(1, 2)};
    const ValRepCachePtr cache = makeCache();
    const EvalTreePtr tree = treeOf("z");
    const ValRepPtr value = tree->eval(host, cache, EvalValues | EvalNoComplex);
    ASSERT_TRUE(value->isNaN());
    EXPECT_EQ(value->getErrors()->get(0, "message"), "varcmplx");
    EXPECT_EQ(value->getErrors()->get(0, "var"), "z");
    EXPECT_EQ(value->getErrors()->getFile(0), "evalnodes");
    EXPECT_EQ(tree->eval(host, cache, EvalValues)->getComplex(), cplx(1, 2));
}

TEST(VarNode, TellsTheDefinitionOfAFailedVariable)
{
    const HostPtr host = makeHost({{"x", {-1.0}}});
    host->definitions["y"] = "sqrt(x)";
    host->definitions["w"] = "y+1";
    const ValRepPtr value = evalText("2*w", host, EvalValues | EvalKeepReal);
    ASSERT_TRUE(value->isNaN());
    const ErrInfo& errors = *value->getErrors();
    ASSERT_EQ(errors.size(), 4u);
    EXPECT_EQ(errors.get(0, "message"), "sqrt");
    EXPECT_EQ(errors.get(1, "message"), "vareval");
    EXPECT_EQ(errors.get(1, "var"), "y");
    EXPECT_EQ(errors.get(1, "defexpr"), "sqrt(x)");
    EXPECT_EQ(errors.get(2, "var"), "w");
    EXPECT_EQ(errors.get(3, "message"), "expreval");
    EXPECT_EQ(errors.get(3, "exprs"), "2*w");
}

TEST(VarNode, TellsAFailureInTheSameWordsAtEveryEvaluation)
{
    const HostPtr host = makeHost({{"x", {-1.0}}});
    host->definitions["y"] = "sqrt(x)";
    const EvalTreePtr tree = treeOf("1+y");
    const ValRepCachePtr cache = makeCache();
    const std::size_t lines = tree->eval(host, cache, EvalValues | EvalKeepReal)->getErrors()->size();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(tree->eval(host, cache, EvalValues | EvalKeepReal)->getErrors()->size(), lines);
        EXPECT_EQ(tree->eval(host, makeCache(), EvalValues | EvalKeepReal)->getErrors()->size(), lines);
    }
    // A tree that is the variable itself must not extend the cached value's record either.
    const EvalTreePtr variable = treeOf("y");
    const std::size_t own = variable->eval(host, cache, EvalValues | EvalKeepReal)->getErrors()->size();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(variable->eval(host, cache, EvalValues | EvalKeepReal)->getErrors()->size(), own);
}

// Operations ---------------------------------------------------------------------------------------------------------

TEST(OpNode, OverwritesTemporariesAndNothingElse)
{
    const HostPtr host = makeHost({{"x", {1.0, 2.0, 3.0}}});
    const ValRepCachePtr cache = makeCache();
    const ValRepPtr value = treeOf("sin(x)+2*x")->eval(host, cache, EvalValues);
    EXPECT_DOUBLE_EQ(value->getDoubleIterator(0)[2], std::sin(3.0) + 6);
    const ValRepPtr x = cache->getVar("x", EvalValues).second;
    EXPECT_EQ(x->getDoubleIterator(0)[0], 1.0);
    EXPECT_EQ(x->getDoubleIterator(0)[2], 3.0);
    EXPECT_EQ(treeOf("2")->getRoot(host)->getScalar()->getDouble(), 2.0);
}

TEST(OpNode, ComputesNothingWithoutTheFlags)
{
    const HostPtr host = makeHost({{"x", {1.0}}});
    const EvalNodePtr node = treeOf("x+1")->getRoot(host);
    EXPECT_TRUE(node->eval(host, makeCache(), 0)->isNaN());
    EXPECT_EQ(raisedId([&] { node->eval(host, makeCache(), 0)->getDouble(); }), "Unexpected_NaN");
    EXPECT_EQ(node->eval(host, makeCache(), EvalValues)->getDouble(), 2.0);
}

TEST(OpNode, PrintsThroughItsFunction)
{
    const HostPtr host = makeHost();
    EXPECT_EQ(textOf(treeOf("a-b/c")->getRoot(host)), "(a-(b/c))");
    EXPECT_EQ(textOf(treeOf("sin(a)^2")->getRoot(host)), "(sin(a)^2)");
    EXPECT_EQ(textOf(treeOf("atan2(a,b)")->getRoot(host)), "atan2(a,b)");
}

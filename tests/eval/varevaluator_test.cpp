// SPDX-License-Identifier: LicenseRef-qxkernel
#include "host.hpp"
#include "support/alloc_fault.hpp"
#include "support/deep_stack.hpp"

#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

// Versions -----------------------------------------------------------------------------------------------------------

TEST(VersionKey, OfOneMasterAreNeverEqual)
{
    const auto first = boost::make_shared<VersionKey>();
    const VersionKey second(first), third(first);
    EXPECT_FALSE(*first == second);
    EXPECT_FALSE(second == third);
}

TEST(VersionKey, KeepsItsNumberInACopyAndTakesANewOneInAnUpdate)
{
    VersionKey key;
    const VersionKey copy(key);
    EXPECT_TRUE(copy == key);
    key.update();
    EXPECT_FALSE(copy == key);
}

TEST(VersionKey, RequiredQuirkKeysOfTwoMastersCanBeEqual)
{
    EXPECT_TRUE(VersionKey() == VersionKey());
}

TEST(VarEvaluator, MakesShadowsStaleWithANewVersion)
{
    const HostPtr host = makeHost();
    ProxyNodeShadow shadow;
    EXPECT_TRUE(shadow.shouldUpdateCache(host->getVersion()));
    shadow.initCache(host);
    EXPECT_FALSE(shadow.shouldUpdateCache(host->getVersion()));
    host->updateVersion();
    EXPECT_TRUE(shadow.shouldUpdateCache(host->getVersion()));
}

TEST(VarEvaluator, ShowsANewVersionToEvaluatorsThatShareIt)
{
    const HostPtr parent = makeHost();
    const auto child = boost::make_shared<Host>(*parent);
    ProxyNodeShadow ofParent, ofChild;
    ofParent.initCache(parent);
    ofChild.initCache(child);

    parent->updateVersion();
    EXPECT_TRUE(ofChild.shouldUpdateCache(child->getVersion()));

    ofParent.initCache(parent);
    child->updateVersion();
    EXPECT_TRUE(ofParent.shouldUpdateCache(parent->getVersion()));
}

// Defaults -----------------------------------------------------------------------------------------------------------

TEST(VarEvaluator, RefusesOperatorsThatNobodyDefined)
{
    const HostPtr host = makeHost();
    VarEvaluator& base = *host;
    const auto evalIt = [&] { base.eval(host, "op", std::vector<ValRepPtr>(), EvalValues, makeCache()); };
    EXPECT_EQ(raisedId(evalIt), "Internal_evaluator_error");
    EXPECT_EQ(raisedArgument(evalIt, "Undefined_operator"), "op");
    EXPECT_EQ(raisedId([&] { base.diff(host, "op", EvalNodes(), "x"); }), "Internal_evaluator_error");
}

TEST(VarEvaluator, TellsDependenceOfVariablesByName)
{
    const HostPtr host = makeHost();
    host->definitions["y"] = "2*x";
    EXPECT_TRUE(host->depends(host, "x", std::vector<std::string>{"x"}).getSolDep(0, 0));
    EXPECT_FALSE(host->depends(host, "x", std::vector<std::string>{"z"}).isSolDepAll());
    EXPECT_TRUE(host->depends(host, "x", std::vector<std::string>()).isSolDepAll());
    EXPECT_TRUE(host->depends(host, "y", std::vector<std::string>{"x"}).isSolDepAll());
    EXPECT_FALSE(host->jacDepends(host, "x", std::vector<std::string>{"x"}).isSolDepAll());
}

TEST(VarEvaluator, TakesHostOperatorsAsNonlinearInTheirArguments)
{
    const HostPtr host = makeHost();
    const EvalNodes args{host->getNodeMaker()->makeVarNode("x"), host->getNodeMaker()->makeVarNode("y")};
    EXPECT_TRUE(host->depends(host, "op", args, std::vector<std::string>{"y"}).isSolDepAll());
    EXPECT_TRUE(host->jacDepends(host, "op", args, std::vector<std::string>{"y"}).isSolDepAll());
    EXPECT_FALSE(host->jacDepends(host, "op", args, std::vector<std::string>{"z"}).isSolDepAll());
}

TEST(VarEvaluator, GathersBasicVariablesThroughDefinitionsAndOperators)
{
    const HostPtr host = makeHost();
    host->definitions["y"] = "x+z";
    NodeIdSet seen;
    NameSet names;
    host->gatherBVars(host, "y", seen, names);
    host->gatherBVars(host, "op", EvalNodes{host->getNodeMaker()->makeVarNode("w")}, seen, names);
    EXPECT_TRUE(names.contains("x"));
    EXPECT_TRUE(names.contains("z"));
    EXPECT_TRUE(names.contains("w"));
    EXPECT_FALSE(names.contains("y"));
}

TEST(VarEvaluator, RemembersDataOfHostOperators)
{
    const HostPtr host = makeHost();
    const EvalNodePtr x = host->getNodeMaker()->makeVarNode("x");
    const std::string name = host->makeOpCacheName("op", {x});
    EXPECT_NE(name, host->makeOpCacheName("op", {x, x}));
    EXPECT_NE(name, host->makeOpCacheName("up", {x}));
    EXPECT_FALSE(host->findOpCacheData(name));
    const auto data = boost::make_shared<OperatorData>();
    host->addOpCacheData(name, data);
    EXPECT_EQ(host->findOpCacheData(name), data);
}

TEST(VarEvaluator, ComparesVariablesByName)
{
    const HostPtr host = makeHost();
    EXPECT_TRUE(host->isSameVariable("x", "x"));
    EXPECT_FALSE(host->isSameVariable("x", "X"));
    host->tic("x");
    host->toc("x");
}

// Recursion ----------------------------------------------------------------------------------------------------------

TEST(RecLimCheck, FindsAVariableThatIsDefinedThroughItselfByName)
{
    const HostPtr host = makeHost();
    host->definitions["a"] = "a";
    const ValRepPtr value = evalText("a", host);
    ASSERT_TRUE(value->isNaN());
    EXPECT_EQ(value->getErrors()->get(0, "message"), "circvar");
    EXPECT_EQ(value->getErrors()->get(0, "var"), "a");
    EXPECT_EQ(value->getErrors()->getFile(0), "varevaluator");
    EXPECT_EQ(raisedId([&] { value->getDouble(); }), "circvar");
}

TEST(RecLimCheck, GoesBackToDepthZeroAfterAFailure)
{
    const HostPtr host = makeHost();
    host->definitions["a"] = "a+1";
    evalText("a", host);
    EXPECT_EQ(host->getRecCount()->getDepth(), 0);
    EXPECT_FALSE(host->getRecCount()->isInfiniteLoop());
    host->definitions["b"] = "unknown+1";
    EXPECT_EQ(raisedId([&] { evalText("b", host); }), "Unknown_variable_name");
    EXPECT_EQ(host->getRecCount()->getDepth(), 0);
}

TEST(RecLimCheck, GoesBackAfterAFailedAllocationAtAnyPlace)
{
    const HostPtr host = makeHost();
    host->definitions["a"] = "a";
    const std::string name = "a";
    failEveryAllocation([&] { const RecLimCheck outer(host, name), inner(host, name); },
                        [&](const FaultRun&) { EXPECT_EQ(host->getRecCount()->getDepth(), 0); });
}

TEST(RecLimCheck, StoresTheStartAtDepthOne)
{
    RecCountImpl count;
    count.enter("a", RecVarData());
    EXPECT_FALSE(count.isInfiniteLoop());
    count.enter("b", RecVarData());
    EXPECT_FALSE(count.isInfiniteLoop());
    count.enter("a", RecVarData());
    EXPECT_TRUE(count.isInfiniteLoop());
    for (int i = 0; i < 3; ++i)
        count.leave();
    EXPECT_EQ(count.getDepth(), 0);
    EXPECT_FALSE(count.isInfiniteLoop());
    count.enter("b", RecVarData());
    EXPECT_FALSE(count.isInfiniteLoop());
}

TEST(RecLimCheck, RequiredQuirkOnlyTheStartVariableIsFoundByName)
{
    RecCountImpl count;
    for (const char* name : {"a", "b", "c", "b"})
        count.enter(name, RecVarData());
    EXPECT_FALSE(count.isInfiniteLoop());
}

TEST(RecLimCheck, ExemptsIndexedNames)
{
    RecCountImpl count;
    count.enter("u{1}", RecVarData());
    count.enter("u{1}", RecVarData());
    EXPECT_FALSE(count.isInfiniteLoop());
}

TEST(RecLimCheck, TellsEntriesWithOtherDataApart)
{
    RecCountImpl count;
    RecVarData first, second;
    second.words[2] = 1;
    count.enter("u", first);
    count.enter("u", second);
    EXPECT_FALSE(count.isInfiniteLoop());
    count.enter("u", first);
    EXPECT_TRUE(count.isInfiniteLoop());
}

TEST(SerialRecCount, ForwardsToItsOwnCounter)
{
    SerialRecCount count;
    count.enter("a", RecVarData());
    count.enter("a", RecVarData());
    EXPECT_EQ(count.getDepth(), 2);
    EXPECT_TRUE(count.isInfiniteLoop());
    count.leave();
    count.leave();
    EXPECT_EQ(count.getDepth(), 0);
}

namespace {

/// v0 is basic, v1 := v0+1, v2 := v1+1, ...
HostPtr chainHost(int length)
{
    const HostPtr host = makeHost({{"v0", {0.0}}});
    for (int i = 1; i <= length; ++i)
        host->definitions["v" + std::to_string(i)] = "v" + std::to_string(i - 1) + "+1";
    return host;
}

} // namespace

TEST(RecLimCheck, PassesADepthOf9999AndRefusesADepthOf10000)
{
    runOnStack(largeStack, [] {
        const HostPtr host = chainHost(9999);
        EXPECT_EQ(realValue("v9998", host), 9998.0); // v9998 .. v0 are 9999 variables
        const ValRepPtr value = evalText("v9999", host);
        ASSERT_TRUE(value->isNaN());
        EXPECT_EQ(value->getErrors()->get(0, "message"), "circvar");
        EXPECT_EQ(host->getRecCount()->getDepth(), 0);
    });
}

TEST(RecLimCheck, RefusesBeforeASmallStackEnds)
{
    for (const std::size_t stack : {javaStack, 2 * smallestStack, smallestStack})
        runOnStack(stack, [stack] {
            const HostPtr host = chainHost(9000);
            EXPECT_EQ(realValue("v20", host), 20.0) << stack;
            const ValRepPtr value = evalText("v9000", host);
            ASSERT_TRUE(value->isNaN()) << stack;
            EXPECT_EQ(value->getErrors()->get(0, "message"), "Expression_nested_too_deeply") << stack;
            EXPECT_EQ(raisedId([&] { treeOf("v9000")->diff("v0", host); }), "Expression_nested_too_deeply") << stack;
            EXPECT_EQ(raisedId([&] { treeOf("v9000")->depends({"v0"}, host); }), "Expression_nested_too_deeply") << stack;
        });
}

TEST(RecLimCheck, RecordsALackOfStackOnce)
{
    runOnStack(2 * smallestStack, [] {
        const ValRepPtr value = evalText("v9000", chainHost(9000));
        ASSERT_TRUE(value->isNaN());
        std::size_t told = 0;
        const qxbase::Exception story = value->getErrors()->makeException();
        for (std::size_t i = 0; i < story.size(); ++i)
            told += story.getId(i) == "Expression_nested_too_deeply";
        EXPECT_EQ(told, 1u);
        EXPECT_GT(story.size(), 20u);
    });
}

TEST(RecLimCheck, EvaluatesFunctionsOfEveryKindOnA128KilobyteStack)
{
    runOnStack(smallestStack, [] {
        const HostPtr host = makeHost({{"x", {0.5, 0.25}}, {"y", {-0.5}}});
        host->definitions["u"] = "sqrt(y)+besselj(0.5,x)+d(sin(x)*exp(x),x)+erf(x)+qxsmhs(x,0.5)";
        EXPECT_FALSE(evalText("abs(u)+x^1.5+log(y)", host)->isNaN());
    });
}

TEST(RecLimCheck, RaisesForCircularDefinitionsInDerivatives)
{
    const HostPtr host = makeHost();
    host->definitions["a"] = "b*2";
    host->definitions["b"] = "a+1";
    const EvalTreePtr tree = treeOf("a");
    EXPECT_EQ(raisedId([&] { tree->diff("x", host); }), "circvar");
    EXPECT_EQ(raisedId([&] { tree->depends({"x"}, host); }), "circvar");
    EXPECT_EQ(raisedId([&] { tree->jacDepends({"x"}, host); }), "circvar");
    EXPECT_EQ(raisedId([&] { tree->simplify(host); }), "circvar");
    EXPECT_EQ(host->getRecCount()->getDepth(), 0);
}

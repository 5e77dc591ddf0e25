// SPDX-License-Identifier: LicenseRef-qxkernel
// The model: adding, looking up, reading.
#include "dae.hpp"
#include "exprtree.hpp"
#include "qxexception.hpp"
#include "support/alloc_fault.hpp"
#include "systems.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using qxtest::equationText;
using qxtest::makeDae;

std::string idOf(const std::function<void()>& act)
{
    try {
        act();
    } catch (const qxbase::Exception& e) {
        return e.getFile(0) + ": " + e.getId();
    }
    return "nothing raised";
}

std::vector<Dae::VarOrder> occurrences(const Dae& dae, int eq)
{
    std::vector<Dae::VarOrder> pairs;
    dae.getVarOccurrences(*dae.getEqs().at(eq).expr, pairs);
    return pairs;
}

} // namespace

TEST(Dae, StartsEmpty)
{
    const Dae dae("t");

    EXPECT_TRUE(dae.getVars().empty());
    EXPECT_TRUE(dae.getEqs().empty());
    EXPECT_EQ(dae.getTimeName(), "t");
    EXPECT_EQ(dae.getTimeIndex(), -1);
}

TEST(Dae, FirstTrueFlagDecidesTheTypeOfAVariable)
{
    Dae dae("t");

    EXPECT_EQ(dae.addVar("a"), 0);
    EXPECT_EQ(dae.addVar("b", true, true, true, 2.5), 1);
    EXPECT_EQ(dae.addVar("c", false, true, true), 2);
    EXPECT_EQ(dae.addVar("d", false, false, true), 3);

    EXPECT_EQ(dae.getVars()[0].type, 0);
    EXPECT_EQ(dae.getVars()[1].type, 2);
    EXPECT_EQ(dae.getVars()[1].value, 2.5);
    EXPECT_EQ(dae.getVars()[2].type, 1);
    EXPECT_EQ(dae.getVars()[3].type, 6);
    EXPECT_EQ(dae.getVars()[3].order, 0);
    EXPECT_EQ(dae.getVars()[3].deriv, -1);
}

TEST(Dae, SyncGivesEachVariableTheKindOfItsType)
{
    Dae dae("t");
    dae.addVar("unknown");
    dae.addVar("function", false, true);
    dae.addVar("constant", true);
    dae.addVar("excluded", false, false, true);
    const int time = dae.addVar("t");

    dae.syncVars();

    EXPECT_EQ(dae.getVars()[0].var->getType(), ExprVar::TypeDifferentiated);
    EXPECT_EQ(dae.getVars()[1].var->getType(), ExprVar::TypeFunction);
    EXPECT_EQ(dae.getVars()[2].var->getType(), ExprVar::TypeConstant);
    EXPECT_EQ(dae.getVars()[3].var->getType(), ExprVar::TypeDependent);
    EXPECT_EQ(dae.getStore()->getVar("t")->getType(), ExprVar::TypeIndependent);
    EXPECT_EQ(dae.getTimeIndex(), time);
}

TEST(Dae, NameOfADerivativeHasAMarkForEachOrder)
{
    const Dae::Var x(boost::make_shared<ExprVar>("x"), 0, 0, 0.0);

    EXPECT_EQ(x.getName(), "x");
    EXPECT_EQ(Dae::Var(x, 1).getName(), "x'");
    EXPECT_EQ(Dae::Var(Dae::Var(x, 1), 1).getName(), "x''");
}

TEST(Dae, DerivativeOfAVariableTakesOverItsTypeOnly)
{
    Dae::Var p(boost::make_shared<ExprVar>("p"), 0, 6, 4.0);
    p.deriv = 3;
    p.occurrences = {1, 2};

    const Dae::Var q(p, 2);

    EXPECT_EQ(q.order, 2);
    EXPECT_EQ(q.type, 6);
    EXPECT_EQ(q.deriv, -1);
    EXPECT_TRUE(q.occurrences.empty());
}

TEST(Dae, EquationReadsAsItWasGiven)
{
    const auto dae = makeDae({"x"}, {"(x+1)*(x+1)/(2*x)-d(x,t)"});

    EXPECT_EQ(dae->getEq(0), "(x+1)*(x+1)/(2*x)-xt");
}

TEST(Dae, TextThatDoesNotReadAddsNoEquation)
{
    Dae dae("t");

    EXPECT_EQ(idOf([&] { dae.addEq("(DIFF) x 1"); }), "exprimpl: Syntax_error_in_expression");
    EXPECT_EQ(idOf([&] { dae.addEq(""); }), "exprimpl: Internal_error_symbolic_processing");
    EXPECT_TRUE(dae.getEqs().empty());
}

TEST(Dae, IndicesOutOfRangeAreRefused)
{
    const auto dae = makeDae({"x"}, {"x"});

    for (const int i : {-1, 1}) {
        EXPECT_EQ(idOf([&] { dae->getEq(i); }), "dae: Internal_error_symbolic_processing");
        EXPECT_EQ(idOf([&] { dae->getVarName(i); }), "dae: Internal_error_symbolic_processing");
        EXPECT_EQ(idOf([&] { dae->getVarElimExpr(i); }), "dae: Internal_error_symbolic_processing");
    }
}

TEST(Dae, ReportsUnknownsAndOrdersByIndex)
{
    const auto dae = makeDae({"z", "a"}, {"d(d(a,t),t)*z+a-d(z,t)+k*t"});

    dae->syncVars();

    EXPECT_THAT(occurrences(*dae, 0),
                ElementsAre(Dae::VarOrder(0, 0), Dae::VarOrder(0, 1), Dae::VarOrder(1, 0), Dae::VarOrder(1, 2)));
}

TEST(Dae, NeverReportsConstantsFunctionsParametersOrTime)
{
    Dae dae("t");
    dae.addVar("c", true);
    dae.addVar("f", false, true);
    dae.addVar("x");
    dae.addEq(equationText("c*f+k*t+x"));

    dae.syncVars();

    EXPECT_THAT(occurrences(dae, 0), ElementsAre(Dae::VarOrder(2, 0)));
}

TEST(Dae, ReportsExcludedUnknowns)
{
    Dae dae("t");
    dae.addVar("p", false, false, true);
    dae.addEq(equationText("p-1"));

    dae.syncVars();

    EXPECT_THAT(occurrences(dae, 0), ElementsAre(Dae::VarOrder(0, 0)));
}

TEST(Dae, UnknownThatWasNeverAddedIsRefusedByName)
{
    const auto dae = makeDae({"x"}, {"x-stranger"});
    dae->getStore()->getVar("stranger")->setType(ExprVar::TypeDifferentiated);
    dae->syncVars();

    try {
        occurrences(*dae, 0);
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getFile(0), "dae");
        EXPECT_EQ(e.getId(), "Unknown_variable_name");
        EXPECT_THAT(e.getArgs(0), ElementsAre(testing::Pair("Name", "stranger")));
    }
}

TEST(Dae, OfTheKnownUnknownsTheNearestIsOffered)
{
    const auto dae = makeDae({"speed", "angle"}, {"speed-angel"});
    dae->getStore()->getVar("angel")->setType(ExprVar::TypeDifferentiated);
    dae->syncVars();

    try {
        occurrences(*dae, 0);
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_THAT(e.getArgs(0), ElementsAre(testing::Pair("Name", "angel"), testing::Pair("Nearest", "angle")));
    }
}

TEST(Dae, NameAddedTwiceLeadsToTheFirstEntry)
{
    const auto dae = makeDae({"x", "x"}, {"x"});

    dae->syncVars();

    EXPECT_THAT(occurrences(*dae, 0), ElementsAre(Dae::VarOrder(0, 0)));
}

TEST(Dae, LogListsUnknownsThenABlankLineThenEquations)
{
    Dae dae("t");
    dae.addVar("x");
    dae.addVar("c", true);
    dae.addVar("p", false, false, true);
    dae.addVar("y");
    dae.addEq("- (DIFF) x t y");
    dae.addEq("- y c");
    std::ostringstream stream;

    dae.log(stream);

    EXPECT_EQ(stream.str(), "x\ny\n\nxt-y\ny-c\n");
}

TEST(Dae, GraphShowsOccurrencesAndMatching)
{
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y", "x*0", "x+y"});
    Dae::Matching matching;
    dae->extendMatching(matching);
    std::ostringstream stream;

    dae->outputGraph(matching, stream);

    const std::string text = stream.str();
    EXPECT_THAT(text, testing::StartsWith("-----"));
    EXPECT_THAT(text, HasSubstr("\nEquations:\n"));
    // The second equation takes x from the first.
    EXPECT_THAT(text, HasSubstr("xt-y {x, y} (assigned to y)\n"));
    EXPECT_THAT(text, HasSubstr("x*0 {x} (assigned to x)\n"));
    EXPECT_THAT(text, HasSubstr("x+y {x, y}\n"));
    EXPECT_THAT(text, HasSubstr("\nVariables:\nx {0, 1, 2} (assigned to 1)\ny {0, 2} (assigned to 0)\n"));
}

TEST(Dae, ExtendMatchingFillsOccurrencesOnBothSides)
{
    Dae dae("t");
    dae.addVar("x");
    dae.addVar("p", false, false, true);
    dae.addVar("y");
    dae.addEq(equationText("d(x,t)+x+p"));
    dae.addEq(equationText("y*x"));
    dae.addEq(equationText("p"));
    Dae::Matching matching;

    dae.extendMatching(matching);

    EXPECT_THAT(dae.getEqs()[0].occurrences, ElementsAre(0)); // once, though x and x' occur
    EXPECT_THAT(dae.getEqs()[1].occurrences, ElementsAre(0, 2));
    EXPECT_THAT(dae.getEqs()[2].occurrences, ElementsAre()); // an excluded unknown is never matched
    EXPECT_THAT(dae.getVars()[0].occurrences, ElementsAre(0, 1));
    EXPECT_THAT(dae.getVars()[1].occurrences, ElementsAre());
    EXPECT_EQ(matching.size(), 2);
    dae.clearOccurrences();
    EXPECT_TRUE(dae.getEqs()[1].occurrences.empty());
    EXPECT_TRUE(dae.getVars()[0].occurrences.empty());
}

TEST(Dae, ExtendMatchingKeepsWhatIsMatched)
{
    const auto dae = makeDae({"x", "y"}, {"x+y", "x+y"});
    Dae::Matching matching;
    matching.setVarMatch(1, 0);

    dae->extendMatching(matching);

    EXPECT_EQ(matching.getVarMatch(1), 0);
    EXPECT_EQ(matching.getVarMatch(0), 1);
}

TEST(Dae, AllocationFailureWhileAddingLeavesNothingBehind)
{
    Dae dae("t");
    dae.addVar("x");
    qxtest::failEveryAllocation(
        [&] {
            Dae other("t");
            other.addVar("x");
            other.addEq("+ x 1");
        },
        [&](const qxtest::FaultRun& run) { EXPECT_EQ(run.leaked, 0) << "allocation " << run.n; });
}

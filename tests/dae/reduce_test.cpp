// SPDX-License-Identifier: LicenseRef-qxkernel
// Index reduction of whole systems.
#include "curves.hpp"
#include "dae.hpp"
#include "exprtree.hpp"
#include "jet.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"
#include "support/alloc_fault.hpp"
#include "systems.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;
using qxtest::Curves;
using qxtest::Jet;
using qxtest::makeDae;
using qxtest::System;

constexpr char inconsistent[] = "The DAE is structurally inconsistent.";
constexpr char overDetermined[] = "The DAE is locally over-determined with inconsistent right-hand sides.";

std::vector<std::string> equations(const Dae& dae)
{
    std::vector<std::string> all;
    for (int i = 0; i < static_cast<int>(dae.getEqs().size()); ++i)
        all.push_back(dae.getEq(i));
    return all;
}

std::vector<std::string> names(const Dae& dae)
{
    std::vector<std::string> all;
    for (int i = 0; i < static_cast<int>(dae.getVars().size()); ++i)
        all.push_back(dae.getVarName(i));
    return all;
}

std::vector<std::string> dummies(const Dae& dae)
{
    std::vector<std::string> all = names(dae);
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const std::string& name) {
                                 return name.find("_dummy") == std::string::npos || name.back() == '\'';
                             }),
              all.end());
    return all;
}

std::string logOf(const Dae& dae)
{
    std::ostringstream stream;
    dae.log(stream);
    return stream.str();
}

int countDifferentiations(const Dae& dae, int eq)
{
    int count = 0;
    for (int q = dae.getEqs()[eq].deriv; q >= 0; q = dae.getEqs()[q].deriv)
        ++count;
    return count;
}

qxbase::Exception refusal(Dae& dae)
{
    try {
        dae.reduceIndex();
    } catch (const qxbase::Exception& e) {
        return e;
    }
    ADD_FAILURE() << "nothing raised";
    return qxbase::Exception();
}

class ReducedSystem : public testing::TestWithParam<System>
{
};

INSTANTIATE_TEST_SUITE_P(All, ReducedSystem, testing::ValuesIn(qxtest::systems()),
                         [](const auto& test) { return test.param.name; });

} // namespace

TEST_P(ReducedSystem, DifferentiatesAsOftenAsTheOrdersDemand)
{
    const auto dae = makeDae(GetParam());

    dae->pantelides();

    const std::vector<int>& wanted = GetParam().differentiations;
    int sum = 0;
    for (int i = 0; i < static_cast<int>(wanted.size()); ++i) {
        EXPECT_EQ(countDifferentiations(*dae, i), wanted[i]) << GetParam().equations[i];
        sum += wanted[i];
    }
    EXPECT_EQ(dae->getEqs().size(), wanted.size() + sum);
    EXPECT_EQ(dummies(*dae).size(), sum);
}

TEST_P(ReducedSystem, TakesTheValuesOfTheDifferentiatedOriginals)
{
    const auto original = makeDae(GetParam());
    const auto reduced = makeDae(GetParam());
    reduced->pantelides();

    for (unsigned seed = 1; seed <= 20; ++seed) {
        Curves curves(seed);
        for (const char* parameter : {"m", "m1", "m2", "g", "l", "l1", "l2", "R", "L", "C", "w", "L1", "L2", "k1", "k2",
                                      "k3", "k4", "k5", "c0", "T0", "J1", "J2", "M", "r"})
            if (GetParam().name != "ChemicalReactor" || std::string(parameter) != "r")
                curves.makeConstant(parameter);
        const auto value = [&](const Dae& dae, int eq) {
            return qxtest::valueOf(dae.getEqs()[eq].expr->getImpl()->getRoot(),
                                   [&](const std::string& name) { return curves(name); });
        };
        for (int i = 0; i < static_cast<int>(original->getEqs().size()); ++i) {
            const Jet jet = value(*original, i);
            for (int q = i, k = 0; q >= 0; q = reduced->getEqs()[q].deriv, ++k) {
                const double wanted = jet.derivative(k);
                EXPECT_NEAR(value(*reduced, q).c[0], wanted, 1e-9 * (1.0 + std::abs(wanted)))
                    << "derivative " << k << " of " << original->getEq(i) << ", reduced to " << reduced->getEq(q);
            }
        }
    }
}

TEST_P(ReducedSystem, HoldsNoneOfTheReplacedDerivatives)
{
    const auto dae = makeDae(GetParam());

    dae->pantelides();

    const std::vector<std::string> made = dummies(*dae);
    for (int i = 0; i < static_cast<int>(dae->getEqs().size()); ++i) {
        std::vector<Dae::VarOrder> pairs;
        dae->getVarOccurrences(*dae->getEqs()[i].expr, pairs);
        for (const auto& [var, order] : pairs)
            EXPECT_THAT(made, testing::Not(Contains(dae->getVarName(var) + "_dummy" + std::to_string(order))))
                << dae->getEq(i);
    }
}

TEST_P(ReducedSystem, PutsEachEquationInThePlaceOfItsVariable)
{
    const auto dae = makeDae(GetParam());
    const auto unordered = makeDae(GetParam());

    dae->reduceIndex();
    unordered->pantelides();

    EXPECT_THAT(equations(*dae), testing::UnorderedElementsAreArray(equations(*unordered)));
    int nUnknowns = 0;
    std::vector<int> unknowns;
    for (int v = 0; v < static_cast<int>(dae->getVars().size()); ++v)
        if (dae->getVars()[v].isUnknown() && dae->getVars()[v].order == 0)
            unknowns.push_back(v), ++nUnknowns;
    ASSERT_EQ(dae->getEqs().size(), nUnknowns);
    for (int i = 0; i < nUnknowns; ++i) {
        std::vector<Dae::VarOrder> pairs;
        dae->getVarOccurrences(*dae->getEqs()[i].expr, pairs);
        EXPECT_TRUE(std::any_of(pairs.begin(), pairs.end(), [&](const auto& p) { return p.first == unknowns[i]; }))
            << dae->getVarName(unknowns[i]) << " is not in " << dae->getEq(i);
    }
}

TEST_P(ReducedSystem, IsLeftAloneByASecondCall)
{
    const auto dae = makeDae(GetParam());
    dae->reduceIndex();
    const std::string once = logOf(*dae);

    dae->reduceIndex();

    EXPECT_EQ(logOf(*dae), once);
}

TEST_P(ReducedSystem, LinksOfDerivativesSurviveTheNewOrder)
{
    const auto dae = makeDae(GetParam());
    const auto unordered = makeDae(GetParam());

    dae->reduceIndex();
    unordered->pantelides();

    std::map<std::string, std::string> links, wanted;
    for (const auto* d : {dae.get(), unordered.get()})
        for (int i = 0; i < static_cast<int>(d->getEqs().size()); ++i)
            if (d->getEqs()[i].deriv >= 0)
                (d == dae.get() ? links : wanted)[d->getEq(i)] = d->getEq(d->getEqs()[i].deriv);
    EXPECT_EQ(links, wanted);
}

TEST(ReduceIndex, PendulumGetsFourEquationsAndFourDummies)
{
    const auto dae = makeDae(qxtest::pendulum());

    dae->reduceIndex();

    EXPECT_EQ(dae->getEqs().size(), 9u);
    EXPECT_THAT(dummies(*dae), UnorderedElementsAre("x_dummy1", "x_dummy2", "y_dummy1", "y_dummy2"));
    EXPECT_THAT(names(*dae), testing::IsSupersetOf({"x", "y", "x'", "y'", "x''", "y''", "u'", "v'"}));
    EXPECT_THAT(equations(*dae), Contains("x_dummy1-u"));
}

TEST(ReduceIndex, SystemOfIndexOneIsOnlyPutInOrder)
{
    const auto dae = makeDae({"x", "y"}, {"y^2-sin(t)", "d(x,t)+y"});

    dae->reduceIndex();

    EXPECT_THAT(equations(*dae), ElementsAre("xt+y", "y^2-sin(t)"));
    EXPECT_TRUE(dummies(*dae).empty());
    EXPECT_TRUE(dae->getEqs()[0].occurrences.empty());
}

TEST(ReduceIndex, EmptySystemIsReducedAlready)
{
    Dae dae("t");

    dae.reduceIndex();

    EXPECT_EQ(logOf(dae), "\n");
}

TEST(ReduceIndex, UntouchedEquationsKeepTheirText)
{
    const std::string text = "m*ut+lam*(x+0)*1+(1+1)*u^1";
    const auto dae = makeDae({"x", "y", "u", "v", "lam"}, {"d(x,t)-u", "d(y,t)-v", "m*d(u,t)+lam*(x+0)*1+(1+1)*u^1",
                                                           "m*d(v,t)+lam*y+m*g", "x^2+y^2-l^2"});

    dae->reduceIndex();

    EXPECT_THAT(equations(*dae), Contains(text));
    EXPECT_THAT(equations(*dae), Contains("x^2+y^2-l^2"));
}

TEST(ReduceIndex, MoreUnknownsThanEquationsAreRefusedWithTheirNumbersAndNames)
{
    const auto dae = makeDae({"x", "y"}, {"x-1"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getFile(0), "dae");
    EXPECT_EQ(e.getId(), inconsistent);
    EXPECT_THAT(e.getArgs(0), ElementsAre(Pair("Variables", "2"), Pair("Equations", "1"), Pair("Unmatched_variables", "y")));
}

TEST(ReduceIndex, MoreEquationsThanUnknownsAreRefusedWithTheirNumbersAndTexts)
{
    const auto dae = makeDae({"x"}, {"x-1", "x-2", "x^2"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getId(), inconsistent);
    EXPECT_THAT(e.getArgs(0),
                ElementsAre(Pair("Variables", "1"), Pair("Equations", "3"), Pair("Unmatched_equations", "x-2; x^2")));
}

TEST(ReduceIndex, TwoEquationsForOneOfTwoUnknownsAreRefused)
{
    const auto dae = makeDae({"x", "y"}, {"x-1", "x-2"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getFile(0), "dae");
    EXPECT_EQ(e.getId(), overDetermined);
    EXPECT_THAT(e.getArgs(0), ElementsAre(Pair("Overdetermined_equations", "x-1; x-2"), Pair("Overdetermined_variables", "x"),
                                         Pair("Unmatched_equations", "x-2"), Pair("Unmatched_variables", "y")));
}

TEST(ReduceIndex, OverDeterminedPartIsRefusedThoughTheCountsAgreeAndNothingIsEmpty)
{
    const auto dae = makeDae({"x", "y", "z"}, {"x-1", "d(x,t)-2", "y+z"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getId(), overDetermined);
    EXPECT_THAT(e.getArgs(0), ElementsAre(Pair("Overdetermined_equations", "x-1; xt-2"), Pair("Overdetermined_variables", "x"),
                                         Pair("Unmatched_equations", "xt-2"), Pair("Unmatched_variables", "z")));
}

TEST(ReduceIndex, RefusalNamesTheWholeOverDeterminedPartAndNothingElse)
{
    // Three equations share a and b; the chain over c and d, and e, which nothing determines, have no part in it.
    const auto dae = makeDae({"a", "b", "c", "d", "e"}, {"a+b", "c+d", "a-b", "d-1", "d(a,t)*b-2"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getId(), overDetermined);
    EXPECT_THAT(e.getArgs(0), testing::IsSupersetOf({Pair("Overdetermined_equations", "a+b; a-b; at*b-2"),
                                                     Pair("Overdetermined_variables", "a; b")}));
}

TEST(ReduceIndex, LongListsOfTheUnmatchedAreCutAfterTen)
{
    std::vector<std::string> unknowns;
    for (int i = 0; i < 13; ++i)
        unknowns.push_back("z" + std::to_string(i));
    const auto dae = makeDae(unknowns, {"z0"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_THAT(e.getArgs(0),
                Contains(Pair("Unmatched_variables", "z1; z2; z3; z4; z5; z6; z7; z8; z9; z10; ...")));
}

TEST(ReduceIndex, EquationWithoutUnknownsPairsWithAnUnknownWithoutEquations)
{
    const auto dae = makeDae({"x", "free", "y"}, {"d(x,t)-y", "k-1", "x-sin(t)"});

    dae->reduceIndex();

    EXPECT_THAT(dummies(*dae), ElementsAre("x_dummy1"));
    EXPECT_EQ(dae->getEqs().size(), 4u);
    EXPECT_THAT(equations(*dae), Contains("k-1"));
}

TEST(ReduceIndex, RefusedSystemIsAsItWas)
{
    const auto dae = makeDae({"x", "y", "w"}, {"d(w,t)-y", "x", "x+w-w"});
    const std::string before = logOf(*dae);

    EXPECT_EQ(refusal(*dae).getId(), "Index_reduction_failed");

    EXPECT_EQ(logOf(*dae), before);
    EXPECT_EQ(names(*dae), (std::vector<std::string>{"x", "y", "w"}));
    EXPECT_EQ(dae->getVars()[0].deriv, -1);
}

// w seems to be in the last equation, until its derivative shows that it is not.
TEST(ReduceIndex, DifferentiationWithoutEndIsRefused)
{
    const auto dae = makeDae({"x", "y", "w"}, {"d(w,t)-y", "x", "x+w-w"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getFile(0), "dae");
    EXPECT_EQ(e.getId(), "Index_reduction_failed");
    EXPECT_THAT(e.getArgs(0), ElementsAre(Pair("Equation", "x+w-w")));
}

TEST(ReduceIndex, NewEquationWithoutDerivativesIsRefused)
{
    // x - x + 1 has the derivative 0, in which nothing can be replaced.
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y", "x-x+1"});

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getFile(0), "dae");
    EXPECT_EQ(e.getId(), "Index_reduction_failed");
    EXPECT_THAT(e.getArgs(0), ElementsAre(Pair("New_equations", "1")));
}

TEST(ReduceIndex, FunctionWithoutARuleIsRefusedByItsName)
{
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y", "mystery(x)"});
    const std::string before = logOf(*dae);

    const qxbase::Exception e = refusal(*dae);

    EXPECT_EQ(e.getId(), "Differentiation_rule_missing");
    EXPECT_THAT(e.getArgs(0), Contains(Pair("Function", "mystery")));
    EXPECT_EQ(logOf(*dae), before);
}

TEST(ReduceIndex, UnknownFunctionIsWelcomeWhereNothingIsDifferentiated)
{
    const auto dae = makeDae({"x"}, {"d(x,t)-mystery(x)"});

    dae->reduceIndex();

    EXPECT_THAT(equations(*dae), ElementsAre("xt-mystery(x)"));
}

TEST(ReduceIndex, ExcludedUnknownIsNeverMatchedNorReplaced)
{
    Dae dae("t");
    dae.addVar("p", false, false, true);
    dae.addVar("x");
    dae.addVar("y");
    dae.addEq(qxtest::equationText("d(x,t)-y"));
    dae.addEq(qxtest::equationText("x-p"));

    dae.reduceIndex();

    EXPECT_THAT(dummies(dae), ElementsAre("x_dummy1"));
    EXPECT_THAT(equations(dae), Contains("x_dummy1-pt"));
}

TEST(ReduceIndex, ExcludedUnknownAloneDoesNotCarryAnEquation)
{
    Dae dae("t");
    dae.addVar("p", false, false, true);
    dae.addVar("x");
    dae.addEq(qxtest::equationText("p-1"));
    dae.addEq(qxtest::equationText("x-1"));

    EXPECT_EQ(refusal(dae).getId(), inconsistent); // one unknown, two equations
}

TEST(ReduceIndex, RequiredQuirkGivenFunctionDoesNotChangeInTime)
{
    Dae dae("t");
    dae.addVar("x");
    dae.addVar("y");
    dae.addVar("f", false, true);
    dae.addEq(qxtest::equationText("d(x,t)-y"));
    dae.addEq(qxtest::equationText("x-f"));

    dae.reduceIndex();

    EXPECT_THAT(equations(dae), Contains("x_dummy1")); // not x' - f'
}

TEST(ReduceIndex, SecondPassForDummiesStopsAtTheNumberOfNewEquations)
{
    // New equations, in this order: x'+y' = cos t, x' = -sin t, z'+w' = 1. The first pass takes x', none, z'; the
    // second y', and must leave w' alone.
    const auto dae = makeDae({"x", "y", "z", "w", "p", "q", "r", "s"},
                             {"d(x,t)-p", "d(y,t)-q", "d(z,t)-r", "d(w,t)-s", "x+y-sin(t)", "x-cos(t)", "z+w-t", "s-1"});

    dae->pantelides();

    EXPECT_THAT(dummies(*dae), ElementsAre("x_dummy1", "z_dummy1", "y_dummy1"));
}

TEST(ReduceIndex, OrderOfAddingDecidesWhichDerivativeIsReplaced)
{
    const std::vector<std::string> equations{"d(x,t)-p", "d(y,t)-q", "x+y-t", "p-q"};
    const auto xFirst = makeDae({"x", "y", "p", "q"}, equations);
    const auto yFirst = makeDae({"y", "x", "p", "q"}, equations);

    xFirst->reduceIndex();
    yFirst->reduceIndex();

    EXPECT_THAT(dummies(*xFirst), ElementsAre("x_dummy1"));
    EXPECT_THAT(dummies(*yFirst), ElementsAre("y_dummy1"));
}

TEST(ReduceIndex, DummyTakesAnotherNameIfItsOwnIsGiven)
{
    const auto dae = makeDae({"x", "y", "x_dummy1"}, {"d(x,t)-y", "x-sin(t)", "x_dummy1-1"});

    dae->reduceIndex();

    EXPECT_THAT(dummies(*dae), ElementsAre("x_dummy1", "x_dummy1_"));
    EXPECT_THAT(equations(*dae), testing::IsSupersetOf({"x_dummy1-1", "x_dummy1_-y"}));
}

TEST(ReduceIndex, SystemThatGrowsBetweenTwoCallsIsReducedAgain)
{
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y", "x-sin(t)"});
    dae->reduceIndex();
    const int z = dae->addVar("z");
    dae->addVar("w");
    dae->addEq(qxtest::equationText("d(z,t)-w"));
    dae->addEq(qxtest::equationText("z-y"));

    dae->reduceIndex();

    // z' = w, z = y, y = x_dummy1, x_dummy1 = cos t: all but the first are differentiated.
    EXPECT_THAT(dummies(*dae), UnorderedElementsAre("x_dummy1", "z_dummy1", "y_dummy1", "x_dummy1_dummy1"));
    EXPECT_EQ(dae->getEqs().size(), 8u);
    EXPECT_EQ(dae->getVarName(z), "z");
}

TEST(ReduceIndex, CancelledRunLeavesTheSystemAsItWas)
{
    const auto dae = makeDae(qxtest::pendulum());
    const std::string before = logOf(*dae);
    qxutil::RunInfo info;
    info.cancel();

    EXPECT_THROW(dae->reduceIndex(&info), qxbase::CancelException);
    EXPECT_EQ(logOf(*dae), before);

    info.cancel(false);
    dae->reduceIndex(&info);
    EXPECT_EQ(dae->getEqs().size(), 9u);
}

namespace {

/// Cancels the run when it has come half way.
class Impatient : public qxutil::RunListener
{
public:
    void onProgress(const std::string&, double fraction) override
    {
        fractions.push_back(fraction);
        if (fraction >= 0.5 && info)
            info->cancel();
    }
    qxutil::RunInfo* info = nullptr;
    std::vector<double> fractions;
};

} // namespace

TEST(ReduceIndex, CanBeCancelledHalfWay)
{
    const auto dae = makeDae(qxtest::pendulum());
    const std::string before = logOf(*dae);
    Impatient listener;
    qxutil::RunInfo info(&listener);
    listener.info = &info;

    EXPECT_THROW(dae->reduceIndex(&info), qxbase::CancelException);

    EXPECT_EQ(logOf(*dae), before);
    ASSERT_FALSE(listener.fractions.empty());
    EXPECT_LT(listener.fractions.back(), 1.0);
}

TEST(ReduceIndex, ReportsItsProgressToTheEnd)
{
    const auto dae = makeDae(qxtest::pendulum());
    Impatient listener;
    qxutil::RunInfo info(&listener);

    dae->reduceIndex(&info);

    EXPECT_TRUE(std::is_sorted(listener.fractions.begin(), listener.fractions.end()));
    ASSERT_FALSE(listener.fractions.empty());
    EXPECT_EQ(listener.fractions.back(), 1.0);
}

TEST(ReduceIndex, AllocationFailureLeavesTheSystemAsItWas)
{
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y", "x*x-sin(t)"});
    dae->getStore()->getVar("x_dummy1"); // names stay in the store whatever happens
    dae->syncVars();
    const std::string before = logOf(*dae);
    qxtest::failEveryAllocation([&] { dae->reduceIndex(); },
                                [&](const qxtest::FaultRun& run) {
                                    if (run.faulted && (run.badAlloc || !run.id.empty())) {
                                        ASSERT_EQ(logOf(*dae), before) << "allocation " << run.n;
                                        ASSERT_EQ(dae->getVars().size(), 2u);
                                    }
                                });
    EXPECT_THAT(dummies(*dae), ElementsAre("x_dummy1"));
}

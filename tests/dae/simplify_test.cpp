// SPDX-License-Identifier: LicenseRef-qxkernel
// Removal of unknowns that others give directly.
#include "dae.hpp"
#include "exprtree.hpp"
#include "jet.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"
#include "support/alloc_fault.hpp"
#include "systems.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

namespace {

using testing::Contains;
using testing::ElementsAre;
using qxtest::Jet;
using qxtest::makeDae;

std::vector<std::string> equations(const Dae& dae)
{
    std::vector<std::string> all;
    for (int i = 0; i < static_cast<int>(dae.getEqs().size()); ++i)
        all.push_back(dae.getEq(i));
    return all;
}

std::string logOf(const Dae& dae)
{
    std::ostringstream stream;
    dae.log(stream);
    return stream.str();
}

int typeOf(const Dae& dae, int i) { return dae.getVars()[i].type; }

} // namespace

TEST(Simplify, BringsEquationsToCanonicalForm)
{
    const auto dae = makeDae({"x", "y"}, {"x*x*y-d(y,t)+0", "sin(x)*sin(x)-y*y*y"});

    dae->simplify();

    EXPECT_THAT(equations(*dae), ElementsAre("x^2*y-yt", "sin(x)^2-y^3"));
}

TEST(Simplify, MarksVariablesThatOccurWithADerivative)
{
    const auto dae = makeDae({"x", "y"}, {"sin(x)-d(y,t)", "sin(x)*y-1"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 0), 0);
    EXPECT_EQ(typeOf(*dae, 1), 3);
}

TEST(Simplify, EliminatesAnUnknownThatAnEquationDefines)
{
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y^2", "y-2*x"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 1), 4);
    EXPECT_EQ(dae->getVarElimExpr(1), "2*x");
    EXPECT_EQ(dae->getEqs().size(), 1u);
    EXPECT_THAT(logOf(*dae), testing::StartsWith("x\n\n"));
}

TEST(Simplify, DefinitionOfAVariableThatIsThereIsRefused)
{
    const auto dae = makeDae({"x", "y"}, {"d(x,t)-y^2", "y-2*x"});
    dae->simplify();

    try {
        dae->getVarElimExpr(0);
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getFile(0), "dae");
        EXPECT_EQ(e.getId(), "Internal_error_symbolic_processing");
    }
}

TEST(Simplify, ReplacesAnUnknownByItsEqual)
{
    const auto dae = makeDae({"x", "y", "z"}, {"d(x,t)-sin(y)*z", "x-y", "z^3-y"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 1), 5);
    EXPECT_THAT(equations(*dae), ElementsAre("xt-sin(x)*z", "z^3-x"));
    // What says y from now on means x.
    std::vector<Dae::VarOrder> pairs;
    ExprTree tree(dae->getStore(), {});
    tree.scanInfix("y");
    dae->getVarOccurrences(tree, pairs);
    EXPECT_THAT(pairs, ElementsAre(Dae::VarOrder(0, 0)));
}

TEST(Simplify, FollowsChainsOfEquals)
{
    const auto dae = makeDae({"a", "b", "c"}, {"c-b", "b-a", "c^2+d(a,t)"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 1), 5);
    EXPECT_EQ(typeOf(*dae, 2), 5);
    EXPECT_THAT(equations(*dae), ElementsAre("a^2+at"));
}

TEST(Simplify, TimesAnExcludedUnknownIsADefinition)
{
    Dae dae("t");
    dae.addVar("p", false, false, true);
    dae.addVar("x");
    dae.addEq("- x p");

    dae.simplify();

    EXPECT_EQ(typeOf(dae, 0), 6);
    EXPECT_EQ(typeOf(dae, 1), 4);
    EXPECT_EQ(dae.getVarElimExpr(1), "p");
}

TEST(Simplify, KeepsAnUnknownWhoseDefinitionWouldHoldIt)
{
    const auto dae = makeDae({"x"}, {"x+sin(x)"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 0), 0);
    EXPECT_EQ(dae->getEqs().size(), 1u);
}

TEST(Simplify, DefinitionsHoldNothingThatIsGone)
{
    const auto dae = makeDae({"x", "a", "b", "c"}, {"d(x,t)-a", "a-2*b", "b-3*c", "c-x-1"});

    dae->simplify();

    EXPECT_EQ(dae->getEqs().size(), 1u);
    for (int i = 1; i <= 3; ++i)
        for (const char* gone : {"a", "b", "c"})
            EXPECT_EQ(dae->getVarElimExpr(i).find(gone), std::string::npos) << dae->getVarElimExpr(i);
}

TEST(Simplify, DoesNotSpreadSumsOverManyEquations)
{
    // y is a sum of two unknowns and stands in two more equations: putting it there would make the system larger.
    const auto dae = makeDae({"u", "v", "y"}, {"d(u,t)-y^2", "d(v,t)-sin(y)", "y-u-v"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 2), 0);
    EXPECT_EQ(dae->getEqs().size(), 3u);
}

TEST(Simplify, ContradictionIsRefusedAndNothingChanged)
{
    const auto dae = makeDae({"x", "y"}, {"x-1", "x-2"});
    const std::string before = logOf(*dae);

    try {
        dae->simplify();
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getFile(0), "dae");
        EXPECT_EQ(e.getId(), "The DAE is locally over-determined with inconsistent right-hand sides.");
        EXPECT_THAT(e.getArgs(0), ElementsAre(testing::Pair("Equation", "x-2")));
    }
    EXPECT_EQ(logOf(*dae), before);
    EXPECT_EQ(typeOf(*dae, 0), 0);
}

TEST(Simplify, EquationSaidTwiceIsNoContradiction)
{
    const auto dae = makeDae({"x", "y"}, {"x-1", "2*x-2"});

    dae->simplify();

    EXPECT_THAT(equations(*dae), ElementsAre("0"));
}

TEST(Simplify, StopsWhenCancelledAndLeavesTheSystemAsItWas)
{
    const auto dae = makeDae({"x", "y"}, {"x-1", "y-x"});
    const std::string before = logOf(*dae);
    qxutil::RunInfo info;
    info.cancel();

    EXPECT_THROW(dae->simplify(&info), qxbase::CancelException);

    EXPECT_EQ(logOf(*dae), before);
    EXPECT_EQ(typeOf(*dae, 0), 0);
}

TEST(Simplify, SecondCallExpressesOldDefinitionsByWhatIsLeft)
{
    const auto dae = makeDae({"x", "a", "b"}, {"d(x,t)-a^2", "a-x*b", "sin(b)-x"});
    dae->simplify();
    ASSERT_EQ(dae->getVarElimExpr(1), "x*b");
    dae->addEq("- b 5");

    dae->simplify();

    EXPECT_EQ(dae->getVarElimExpr(1), "5*x");
}

TEST(Simplify, LooksAgainAtAnEquationThatALaterOneMadeSimple)
{
    // x + y*z - 1 defines nothing at first: x, y and z stand in two other equations each. z = 2 comes later and makes it
    // an equation of two unknowns, in which one is linear.
    const auto dae = makeDae({"x", "y", "z"}, {"x+y*z-1", "d(x,t)+sin(y)*z", "z-2"});

    dae->simplify();

    EXPECT_EQ(typeOf(*dae, 2), 4);
    EXPECT_EQ(dae->getVarElimExpr(2), "2");
    EXPECT_EQ(typeOf(*dae, 1), 4); // x + 2 y - 1 gives y, passed over the first time
    EXPECT_EQ(dae->getEqs().size(), 1u);
}

TEST(Simplify, LinksToDerivativesSurviveTheRemovalOfEquations)
{
    // x = sin t is differentiated; a = 2 goes and all behind it move up.
    const auto dae = makeDae({"a", "x", "y"}, {"a-2", "d(x,t)-y*a", "x^3-sin(t)"});
    dae->reduceIndex();
    std::map<std::string, std::string> wanted;
    for (const Dae::Eq& eq : dae->getEqs())
        if (eq.deriv >= 0)
            wanted[dae->getEqs()[eq.deriv].expr ? dae->getEq(eq.deriv) : std::string()] = "";
    ASSERT_EQ(wanted.size(), 1u);
    const std::size_t before = dae->getEqs().size();

    dae->simplify();

    ASSERT_LT(dae->getEqs().size(), before);
    int nLinks = 0;
    for (int i = 0; i < static_cast<int>(dae->getEqs().size()); ++i) {
        const int deriv = dae->getEqs()[i].deriv;
        if (deriv < 0)
            continue;
        ++nLinks;
        EXPECT_THAT(dae->getEq(i), testing::HasSubstr("x^3"));
        EXPECT_THAT(dae->getEq(deriv), testing::HasSubstr("cos(t)")); // the derivative of sin t
    }
    EXPECT_EQ(nLinks, 1);
}

TEST(Simplify, ExpressionAboveTheNodeLimitStays)
{
    // y = x + sum of sines: short enough it defines y, long it is not put into the other equation.
    for (const int n : {10, 400}) {
        std::string text = "y-x";
        for (int k = 2; k < n; ++k)
            text += "-sin(" + std::to_string(k) + "*t)";
        const auto dae = makeDae({"x", "y"}, {"d(x,t)-y^2", text});

        dae->simplify();

        EXPECT_EQ(typeOf(*dae, 1), n == 10 ? 4 : 0) << n;
        EXPECT_EQ(dae->getEqs().size(), n == 10 ? 1u : 2u) << n;
    }
}

TEST(Simplify, AllocationFailureLeavesTheSystemAsItWas)
{
    int failures = 0;
    for (long n = 1;; ++n) {
        const auto dae = makeDae({"x", "y", "z"}, {"d(x,t)-sin(y)*z", "y-2*x", "z-y"});
        dae->syncVars();
        const std::string before = logOf(*dae);
        bool failed = false, happened = false;
        {
            const qxtest::AllocFault fault(n);
            try {
                dae->simplify();
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            happened = fault.happened();
        }
        if (!happened)
            break;
        if (!failed)
            continue;
        ++failures;
        ASSERT_EQ(logOf(*dae), before) << "allocation " << n;
        ASSERT_EQ(typeOf(*dae, 1), 0) << "allocation " << n;
        dae->simplify();
        ASSERT_EQ(dae->getEqs().size(), 1u) << "allocation " << n;
    }
    EXPECT_GT(failures, 50);
}

namespace {

class SimplifiedSystem : public testing::TestWithParam<qxtest::System>
{
};

INSTANTIATE_TEST_SUITE_P(All, SimplifiedSystem, testing::ValuesIn(qxtest::systems()),
                         [](const auto& test) { return test.param.name; });

} // namespace

// Any values of what is left make the equations that are gone true and the others equal to the simplified ones.
TEST_P(SimplifiedSystem, HasTheEquationsOfTheReducedOne)
{
    const auto reduced = makeDae(GetParam());
    reduced->reduceIndex();
    const auto dae = makeDae(GetParam());
    dae->reduceIndex();

    dae->simplify();

    EXPECT_EQ(reduced->getEqs().size() - dae->getEqs().size(),
              std::count_if(dae->getVars().begin(), dae->getVars().end(),
                            [](const Dae::Var& v) { return v.type == Dae::Var::TypeEliminated || v.type == Dae::Var::TypeReplaced; }));
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        std::map<std::string, Jet> left;
        std::map<std::string, int> index;
        for (int i = 0; i < static_cast<int>(dae->getVars().size()); ++i)
            if (dae->getVars()[i].order == 0)
                index[dae->getVarName(i)] = i;
        const qxtest::JetOf valueOfLeft = [&](const std::string& name) {
            const auto [found, isNew] = left.insert({name, Jet()});
            if (isNew)
                for (double& c : found->second.c)
                    c = std::uniform_real_distribution<>(0.5, 1.5)(random);
            return found->second;
        };
        const qxtest::JetOf valueOfAny = [&](const std::string& name) {
            const auto found = index.find(name);
            if (found == index.end())
                return valueOfLeft(name);
            const Dae::Var& var = dae->getVars()[found->second];
            if (var.type == Dae::Var::TypeEliminated)
                return qxtest::valueOf(var.elimExpr->getImpl()->getRoot(), valueOfLeft);
            if (var.type == Dae::Var::TypeReplaced) {
                ExprTree tree(dae->getStore(), {});
                tree.scanInfix(name);
                std::vector<Dae::VarOrder> pairs;
                dae->getVarOccurrences(tree, pairs);
                const Dae::Var& other = dae->getVars()[pairs.at(0).first];
                return other.type == Dae::Var::TypeEliminated
                           ? qxtest::valueOf(other.elimExpr->getImpl()->getRoot(), valueOfLeft)
                           : valueOfLeft(other.getName());
            }
            return valueOfLeft(name);
        };
        std::vector<double> simplified, original;
        for (const Dae::Eq& eq : dae->getEqs())
            simplified.push_back(qxtest::valueOf(eq.expr->getImpl()->getRoot(), valueOfLeft).c[0]);
        for (const Dae::Eq& eq : reduced->getEqs()) {
            const double value = qxtest::valueOf(eq.expr->getImpl()->getRoot(), valueOfAny).c[0];
            if (std::abs(value) > 1e-12)
                original.push_back(value);
        }
        std::sort(simplified.begin(), simplified.end());
        std::sort(original.begin(), original.end());
        ASSERT_EQ(simplified.size(), original.size()) << logOf(*dae) << logOf(*reduced);
        for (std::size_t i = 0; i < simplified.size(); ++i)
            EXPECT_NEAR(simplified[i], original[i], 1e-11 * (1.0 + std::abs(original[i])));
    }
}

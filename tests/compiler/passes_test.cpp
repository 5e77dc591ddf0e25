// SPDX-License-Identifier: LicenseRef-qxkernel
#include "probe.hpp"

#include "qxnumber.hpp"

#include <gmock/gmock.h>
#include <limits>
#include <set>
#include <sstream>

using namespace qxtest;
using testing::ElementsAre;

namespace {

/// A list on the inputs a, b, c after all passes.
class Passed : public Probe
{
public:
    explicit Passed(const Texts& definitions, const Texts& outputNames = {"y"})
        : Probe(definitions, {"a", "b", "c"}, outputNames)
    {
        runPasses();
    }
};

std::string compileFailure(const Texts& definitions, const Texts& inputNames, const Texts& outputNames)
{
    return idOf([&] { Probe(definitions, inputNames, outputNames).classBytes(); });
}

} // namespace

// crossRef -------------------------------------------------------------------------------------------------------------

TEST(ExprCompCrossRef, NumbersInputsDownFromMinusOneAndDefinitionsByPosition)
{
    Probe comp({"y=+(s,b)", "s=sin(a)"}, {"a", "b"}, {"y"});

    comp.crossRef();

    EXPECT_THAT(comp.inputs, ElementsAre(-1, -2));
    EXPECT_THAT(comp.outputs, ElementsAre(0));
    EXPECT_EQ(comp.defs[0].args[0], 1);
    EXPECT_EQ(comp.defs[0].args[1], -2);
    EXPECT_EQ(comp.defs[1].args[0], -1);
    EXPECT_EQ(comp.getVarName(-2), "b");
    EXPECT_EQ(comp.getVarName(1), "s");
}

TEST(ExprCompCrossRef, IdsMayBeAnyNumbers)
{
    constexpr int low = std::numeric_limits<int>::min(), high = std::numeric_limits<int>::max();
    for (const int step : {1, 1000000}) {
        Probe comp;
        comp.addInput(low);
        comp.addInput(7);
        comp.addDef(high, ExprComp::Minus, low, 7);
        int last = high;
        for (int i = 1; i <= 20; ++i) {
            comp.addDef(100 + step * i, ExprComp::Plus, last, 7);
            last = 100 + step * i;
        }
        comp.addOutput(last);
        comp.addOutput(high);
        comp.runPasses();
        EXPECT_THAT(comp.valuesAt({5, 2}), ElementsAre(43, 3));
    }
    Probe duplicate;
    duplicate.addInput(low);
    duplicate.addDef(high, 1.0);
    duplicate.addDef(low, 1.0);
    EXPECT_EQ(idOf([&] { duplicate.classBytes(); }), "Duplicate definition of _v-2147483648");
    Probe undefined;
    undefined.addDef(5, ExprComp::Sin, 1000);
    undefined.addDef(6, ExprComp::Sin, -1000);
    EXPECT_EQ(idOf([&] { undefined.classBytes(); }), "Undefined inputs: _v1000_v-1000");
}

TEST(ExprCompCrossRef, DuplicatesAreNamed)
{
    EXPECT_EQ(compileFailure({"y=sin(a)"}, {"a", "b", "a"}, {"y"}), "Duplicate input: a");
    EXPECT_EQ(compileFailure({"y=sin(a)", "y=cos(a)"}, {"a"}, {"y"}), "Duplicate definition of y");
    EXPECT_EQ(compileFailure({"a=1", "y=sin(a)"}, {"a"}, {"y"}), "Duplicate definition of a");
    EXPECT_EQ(compileFailure({"y=sin(a)"}, {"a", "a"}, {"y"}), "Duplicate input: a");
}

TEST(ExprCompCrossRef, UndefinedNamesAreListedAsFoundWithRepetitionsUpToTen)
{
    EXPECT_EQ(compileFailure({"y=+(p,q)", "z=+(q,r)"}, {}, {"y"}), "Undefined inputs: pqqr"); // z is reached by nothing
    Texts definitions;
    for (int i = 0; i < 10; ++i)
        definitions.push_back("y" + std::to_string(i) + "=sin(u" + std::to_string(i) + ")");
    EXPECT_EQ(compileFailure(definitions, {}, {"y0"}), "Undefined inputs: u0u1u2u3u4u5u6u7u8u9");
    definitions.push_back("y=+(u10,u11)");
    EXPECT_EQ(compileFailure(definitions, {}, {"y0"}), "Undefined inputs: u0u1u2u3u4u5u6u7u8u9 (2 more)");
}

TEST(ExprCompCrossRef, OutputsNeedDefinitions)
{
    EXPECT_EQ(compileFailure({"y=sin(a)"}, {"a"}, {"y", "z"}), "Output #1 lacks definition.");
    EXPECT_EQ(compileFailure({}, {}, {"y"}), "Output #0 lacks definition.");
}

TEST(ExprCompCrossRef, OutputThatIsAnInputOrRepeatedGetsADefinitionOfItsOwn)
{
    Probe comp({"y=sin(a)"}, {"a"}, {"a", "y", "y", "a"});
    comp.runPasses();

    EXPECT_EQ(std::set<int>(comp.outputs.begin(), comp.outputs.end()).size(), 4u);
    EXPECT_EQ(comp.outputIndex.size(), 4u);
    const double s = interpretedFunction("sin", {0.3});
    EXPECT_THAT(comp.valuesAt({0.3}), ElementsAre(0.3, s, s, 0.3));
}

// topoSort -------------------------------------------------------------------------------------------------------------

TEST(ExprCompTopoSort, EmitsTheLastArgumentsSubtreeFirst)
{
    const Passed comp({"y=+(p,q)", "p=sin(a)", "q=cos(b)"});

    EXPECT_THAT(comp.orderedNames(), ElementsAre("q", "p", "y"));
    EXPECT_EQ(comp.lifeRange[static_cast<std::size_t>(comp.find("q"))], (std::pair<int, int>(0, 2)));
    EXPECT_EQ(comp.lifeRange[static_cast<std::size_t>(comp.find("y"))], (std::pair<int, int>(2, 2)));
}

TEST(ExprCompTopoSort, DropsWhatNoOutputReachesErrorsIncluded)
{
    const Passed comp({"y=sin(a)", "p=/(one,zero)", "one=1", "zero=0", "r=identity(r)"});

    EXPECT_THAT(comp.orderedNames(), ElementsAre("y"));
}

TEST(ExprCompTopoSort, CyclesAreNamedByDefinition)
{
    const std::string message = compileFailure({"a=identity(b)", "b=identity(a)"}, {}, {"a"});
    EXPECT_THAT(message, testing::MatchesRegex("Cyclic dependency for definition #[01]."));
    EXPECT_EQ(compileFailure({"a=sin(a)"}, {}, {"a"}), "Cyclic dependency for definition #0.");
    EXPECT_EQ(compileFailure({"y=+(x,a)", "a=+(x,a)"}, {"x"}, {"y"}), "Cyclic dependency for definition #1.");
    EXPECT_THAT(compileFailure({"p=sin(q)", "q=sin(r)", "r=sin(s)", "s=+(x,p)"}, {"x"}, {"p"}),
                testing::MatchesRegex("Cyclic dependency for definition #[0123]."));
}

TEST(ExprCompTopoSort, QuirkEqualsWithAWordIsANumberAndNoCycle)
{
    const Probe comp({"a=b", "b=a"}, {}, {"a"});
    EXPECT_EQ(comp.defs[0].kind, ExprComp::Constant);
}

// eliminateCommon --------------------------------------------------------------------------------------------------------

TEST(ExprCompEliminate, FoldsSignsSumsProductsAndFiniteQuotientsOfConstants)
{
    const auto folded = [](const std::string& text) {
        Passed comp({"y=" + text, "p=6", "q=1.5", "z=0"});
        return std::pair(comp.kindOfName("y"), comp.valuesAt({0, 0, 0})[0]);
    };

    EXPECT_EQ(folded("+(p,q)"), std::pair(int(ExprComp::Constant), 7.5));
    EXPECT_EQ(folded("-(p,q)"), std::pair(int(ExprComp::Constant), 4.5));
    EXPECT_EQ(folded("*(p,q)"), std::pair(int(ExprComp::Constant), 9.0));
    EXPECT_EQ(folded("/(p,q)"), std::pair(int(ExprComp::Constant), 4.0));
    EXPECT_EQ(folded("U-(p)"), std::pair(int(ExprComp::Constant), -6.0));
    EXPECT_EQ(folded("U+(p)"), std::pair(int(ExprComp::Constant), 6.0));
    EXPECT_EQ(folded("/(p,z)"), std::pair(int(ExprComp::Divide), qxGetInf())); // not finite: stays as it is
    EXPECT_EQ(Passed({"y=/(z,z)", "z=0"}).kindOfName("y"), ExprComp::Divide);
    for (const char* text : {"sin(p)", "^(p,q)", "abs(p)", "<(p,q)", "min(p,q)", "mod(p,q)", "if(p,q,z)", "real(p)"})
        EXPECT_NE(folded(text).first, ExprComp::Constant) << text;
}

TEST(ExprCompEliminate, FoldsThroughLevels)
{
    Passed comp({"y=+(s,a)", "s=*(t,t)", "t=-(p,q)", "p=6", "q=1.5"});

    EXPECT_EQ(comp.kindOfName("s"), ExprComp::Constant);
    EXPECT_EQ(comp.order.size(), 2u);
    EXPECT_THAT(comp.valuesAt({1, 0, 0}), ElementsAre(21.25));
}

TEST(ExprCompEliminate, RewritesSigns)
{
    EXPECT_THAT(Passed({"y=sin(p)", "p=U-(q)", "q=U-(a)"}).orderedNames(), ElementsAre("y"));
    const auto form = [](const std::string& text) {
        Passed comp({"y=" + text, "m=U-(b)", "n=U-(c)"});
        const ExprComp::Def& y = comp.defs[static_cast<std::size_t>(comp.find("y"))];
        return y.getName() + comp.getVarName(y.args[0]) + comp.getVarName(y.args[1]);
    };
    EXPECT_EQ(form("-(a,m)"), "+ab");
    EXPECT_EQ(form("+(a,m)"), "-ab");
    EXPECT_EQ(form("+(m,a)"), "-ab");
    EXPECT_EQ(form("+(m,n)"), "-mc"); // the second operand's sign goes, and no further rule applies
    EXPECT_EQ(form("-(m,n)"), "+mc");
    EXPECT_EQ(form("-(m,a)"), "-ma");
}

TEST(ExprCompEliminate, DivisionByAConstantOtherThanZeroIsMarked)
{
    EXPECT_EQ(Passed({"y=/(a,k)", "k=2"}).kindOfName("y"), ExprComp::DivideNonZero);
    EXPECT_EQ(Passed({"y=/(a,k)", "k=nan"}).kindOfName("y"), ExprComp::DivideNonZero);
    EXPECT_EQ(Passed({"y=/(a,k)", "k=0"}).kindOfName("y"), ExprComp::Divide);
    EXPECT_EQ(Passed({"y=/(a,b)"}).kindOfName("y"), ExprComp::Divide);
}

TEST(ExprCompEliminate, SmallWholePowersBecomeProducts)
{
    const auto kind = [](const std::string& k) { return Passed({"y=^(a,k)", "k=" + k}).kindOfName("y"); };
    EXPECT_EQ(kind("1"), ExprComp::Identity);
    EXPECT_EQ(kind("2"), ExprComp::Square);
    EXPECT_EQ(kind("3"), ExprComp::Cube);
    EXPECT_EQ(kind("4"), ExprComp::Fourth);
    EXPECT_EQ(kind("5"), ExprComp::Power);
    EXPECT_EQ(kind("0"), ExprComp::Power);
    EXPECT_EQ(kind("-1"), ExprComp::Power);
    EXPECT_EQ(Passed({"y=^(a,b)"}).kindOfName("y"), ExprComp::Power);
}

TEST(ExprCompEliminate, FollowsIdentitiesOfIdentities)
{
    Passed comp({"y=+(p,r)", "p=identity(q)", "q=identity(a)", "r=identity(s)", "s=identity(k)", "k=4"});

    EXPECT_THAT(comp.orderedNames(), ElementsAre("k", "y"));
    EXPECT_THAT(comp.valuesAt({1, 0, 0}), ElementsAre(5.0));
}

TEST(ExprCompEliminate, QuirkIdentityOfAConstantIsAnAliasAndNoConstant)
{
    // y stays a definition of its own, kind identity, as it is an output.
    Passed comp({"y=identity(k)", "k=4"});

    EXPECT_EQ(comp.kindOfName("y"), ExprComp::Identity);
    EXPECT_THAT(comp.valuesAt({0, 0, 0}), ElementsAre(4.0));
}

TEST(ExprCompEliminate, EqualDefinitionsAreComputedOnce)
{
    EXPECT_EQ(Passed({"y=+(p,q)", "p=sin(a)", "q=sin(a)"}).order.size(), 2u);
    EXPECT_EQ(Passed({"y=+(p,q)", "p=+(a,b)", "q=+(b,a)"}).order.size(), 2u);
    EXPECT_EQ(Passed({"y=+(p,q)", "p=-(a,b)", "q=-(b,a)"}).order.size(), 3u);
    EXPECT_EQ(Passed({"y=+(p,q)", "p=max(a,b)", "q=max(b,a)"}).order.size(), 2u);
    EXPECT_EQ(Passed({"y=+(p,q)", "p=<(a,b)", "q=>(b,a)"}).order.size(), 3u);
}

TEST(ExprCompEliminate, ZerosMergeAndNaNsDoNot)
{
    EXPECT_EQ(Passed({"y=atan2(p,q)", "p=0", "q=-0"}).order.size(), 2u);
    EXPECT_EQ(Passed({"y=atan2(p,q)", "p=nan", "q=nan"}).order.size(), 3u);
}

TEST(ExprCompEliminate, EqualOutputsStayDefinitionsOfTheirOwn)
{
    Passed comp({"y=sin(a)", "z=sin(a)", "w=+(y,z)"}, {"y", "z", "w"});

    EXPECT_EQ(comp.order.size(), 3u);
    const double s = interpretedFunction("sin", {0.5});
    EXPECT_THAT(comp.valuesAt({0.5, 0, 0}), ElementsAre(s, s, 2 * s));
}

// allocateRegs -----------------------------------------------------------------------------------------------------------

TEST(ExprCompRegisters, OutputsAndConstantsHaveNone)
{
    const Passed comp({"y=*(s,k)", "s=sin(a)", "k=3"});

    EXPECT_EQ(comp.registerOf("y"), -1);
    EXPECT_EQ(comp.registerOf("k"), -1);
    EXPECT_EQ(comp.registerOf("s"), 0);
    EXPECT_EQ(comp.regState.size(), 8u);
}

TEST(ExprCompRegisters, ChainOfAnyLengthNeedsNoMoreThanTheFirstEight)
{
    Texts definitions{"v0=sin(a)"};
    for (int i = 1; i < 1000; ++i)
        definitions.push_back("v" + std::to_string(i) + "=sin(v" + std::to_string(i - 1) + ")");
    const Passed comp(definitions, {"v999"});

    EXPECT_EQ(comp.regState.size(), 8u);
    for (int i = 0; i < 999; ++i) // eight in turn: a dying argument's register goes to the end of the queue
        EXPECT_EQ(comp.registerOf("v" + std::to_string(i)), i % 8);
}

TEST(ExprCompRegisters, ValuesAliveAtOnceNeverShareOne)
{
    Texts definitions;
    std::string last;
    for (int i = 0; i < 100; ++i) {
        const std::string n = std::to_string(i);
        definitions.push_back("k" + n + "=" + n + ".5");
        definitions.push_back("v" + n + "=+(a,k" + n + ")");
        definitions.push_back("w" + n + (i == 0 ? "=sin(v0)" : "=*(w" + std::to_string(i - 1) + ",v" + n + ")"));
    }
    const Passed comp(definitions, {"w99"});

    EXPECT_EQ(comp.regState.size(), 100u); // a hundred sums wait for the products
    for (const int d : comp.order)
        for (const int e : comp.order) {
            SCOPED_TRACE(testing::Message() << "d = " << d << ", e = " << e);
            const auto p = static_cast<std::size_t>(d), q = static_cast<std::size_t>(e);
            if (d != e && comp.regOf[p] >= 0 && comp.regOf[p] == comp.regOf[q]) {
                EXPECT_TRUE(comp.lifeRange[p].second <= comp.lifeRange[q].first ||
                            comp.lifeRange[q].second <= comp.lifeRange[p].first);
            }
        }
}

// optimizeStack ----------------------------------------------------------------------------------------------------------

TEST(ExprCompStack, SquareOfAValueJustComputedDuplicatesIt)
{
    const Passed comp({"y=*(s,s)", "s=sin(a)"});

    EXPECT_EQ(comp.stackModeOf("s"), 1);
    EXPECT_EQ(comp.swapModeOf("y"), 2);
}

TEST(ExprCompStack, OrderOfOperandsIsMendedWhereItMatters)
{
    const Passed minus({"y=-(b,s)", "s=sin(a)"}), plus({"y=+(b,s)", "s=sin(a)"}), first({"y=-(s,b)", "s=sin(a)"});

    EXPECT_EQ(minus.stackModeOf("s"), 1);
    EXPECT_EQ(minus.swapModeOf("y"), 1);
    EXPECT_EQ(plus.stackModeOf("s"), 1);
    EXPECT_EQ(plus.swapModeOf("y"), 0);
    EXPECT_EQ(first.swapModeOf("y"), 0);
}

TEST(ExprCompStack, ValueWithALaterUseIsStoredAsWell)
{
    const Passed comp({"y=+(t,s)", "t=cos(s)", "s=sin(a)"});

    EXPECT_THAT(comp.orderedNames(), ElementsAre("s", "t", "y"));
    EXPECT_EQ(comp.stackModeOf("s"), 2);
    EXPECT_EQ(comp.stackModeOf("t"), 1);
}

TEST(ExprCompStack, OutputsConstantsAndThreeArgumentsDoNotPassThroughTheStack)
{
    const Passed output({"y=sin(a)", "z=cos(y)"}, {"y", "z"}), constant({"y=sin(k)", "k=2"}),
        three({"y=if(s,a,b)", "s=sin(a)"});

    EXPECT_EQ(output.stackModeOf("y"), 0);
    EXPECT_EQ(constant.stackModeOf("k"), 0);
    EXPECT_EQ(three.stackModeOf("s"), 0);
}

TEST(ExprCompStack, ChainsEndAfterTwentySixPositions)
{
    for (const char* step : {"sin(", "+(a,", "-(b,"}) {
        Texts definitions{"v0=sin(a)"};
        for (int i = 1; i < 300; ++i)
            definitions.push_back("v" + std::to_string(i) + "=" + step + "v" + std::to_string(i - 1) + ")");
        const Passed comp(definitions, {"v299"});

        int longest = 0, now = 0;
        for (const int d : comp.order) {
            now = comp.stackMode[static_cast<std::size_t>(d)] ? now + 1 : 0;
            longest = std::max(longest, now);
        }
        EXPECT_EQ(longest, 25) << step; // 25 values passed between 26 positions
    }
}

// dumpFlatList -----------------------------------------------------------------------------------------------------------

TEST(ExprCompDump, ListsInputsOutputsAndTheOrderedDefinitions)
{
    Probe comp({"y=*(s,k)", "s=sin(a)", "k=0.1", "unused=cos(a)"}, {"a", "b"}, {"y"});
    comp.classBytes();
    std::ostringstream text;

    comp.dumpFlatList(text);

    EXPECT_EQ(text.str(), "2 inputs:\n"
                          "  a\n"
                          "  b\n"
                          "1 outputs:\n"
                          "  y\n"
                          "4 original definitions\n"
                          "Topological order, lifetimes and registers:\n"
                          "0: #2: (0, 2) -1                        k=0.10000000000000000555\n"
                          "1: #1: (1, 2) 0                         s=sin(a)\n"
                          "2: #0: (2, 2) -1                        y=*(s,k)\n");
}

TEST(ExprCompDump, WorksOnAListThatIsNotCompiled)
{
    const Probe comp({"y=sin(a)"}, {"a"}, {"y"});
    std::ostringstream text;

    comp.dumpFlatList(text);

    EXPECT_EQ(text.str(), "1 inputs:\n  a\n1 outputs:\n  y\n1 original definitions\n"
                          "Topological order, lifetimes and registers:\n");
}

#include "derivativenodes.hpp"
#include "funfactory.hpp"
#include "host.hpp"

#include <chrono>
#include <cmath>
#include <gtest/gtest.h>

using namespace qxtest;

namespace {

double valueOf(const EvalTreePtr& tree, const HostPtr& host)
{
    return tree->eval(host, makeCache(), EvalValues)->getDouble();
}

EvalNodePtr derivative(const std::string& text, const std::string& var, const HostPtr& host)
{
    return treeOf(text)->getRoot(host)->diff(var, host);
}

/// The text with a piece repeated around it.
std::string nested(const std::string& before, const std::string& inner, const std::string& after, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += before;
    text += inner;
    for (int i = 0; i < count; ++i)
        text += after;
    return text;
}

double milliseconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return 1e3 * std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

// Rules by hand --------------------------------------------------------------------------------------------------------

struct DiffCase
{
    const char* text;
    const char* var;
    double expected; // at x = 0.7, y = 1.9
};

class TreeDiffValue : public testing::TestWithParam<DiffCase>
{
};

TEST_P(TreeDiffValue, IsThatOfTheDerivativeByHand)
{
    const HostPtr host = makeHost({{"x", {0.7}}, {"y", {1.9}}});
    const DiffCase& c = GetParam();
    EXPECT_NEAR(valueOf(treeOf(c.text)->diff(c.var, host), host), c.expected, 1e-13 * (1 + std::abs(c.expected)))
        << c.text << " by " << c.var;
    const std::string asText = std::string("d(") + c.text + "," + c.var + ")";
    EXPECT_NEAR(realValue(asText, host), c.expected, 1e-13 * (1 + std::abs(c.expected)));
    EXPECT_NEAR(realValue("p" + asText, host), c.expected, 1e-13 * (1 + std::abs(c.expected)));
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, TreeDiffValue,
    testing::Values(DiffCase{"3", "x", 0}, DiffCase{"x", "x", 1}, DiffCase{"y", "x", 0}, DiffCase{"x+y", "x", 1},
                    DiffCase{"x-y", "y", -1}, DiffCase{"-x", "x", -1}, DiffCase{"+x", "x", 1}, DiffCase{"x*y", "x", 1.9},
                    DiffCase{"x*y", "y", 0.7}, DiffCase{"x/y", "x", 1 / 1.9}, DiffCase{"x/y", "y", -0.7 / 3.61},
                    DiffCase{"x^2", "x", 1.4}, DiffCase{"x^3", "x", 3 * 0.49}, DiffCase{"x^4", "x", 4 * 0.343},
                    DiffCase{"x^-1", "x", -1 / 0.49}, DiffCase{"x^-2", "x", -2 / 0.343},
                    DiffCase{"x^5", "x", 5 * 0.2401}, DiffCase{"x^y", "x", 1.9 * std::pow(0.7, 0.9)},
                    DiffCase{"x^y", "y", std::log(0.7) * std::pow(0.7, 1.9)}, DiffCase{"x^2+y^2", "x", 1.4},
                    DiffCase{"x^2+y^2", "y", 3.8}, DiffCase{"sin(x)", "x", std::cos(0.7)},
                    DiffCase{"cos(x*y)", "x", -1.9 * std::sin(0.7 * 1.9)},
                    DiffCase{"exp(-y^2)", "y", -3.8 * std::exp(-3.61)}, DiffCase{"sqrt(x)", "x", 0.5 / std::sqrt(0.7)},
                    DiffCase{"abs(x-y)", "x", -1}, DiffCase{"log(x)", "x", 1 / 0.7},
                    DiffCase{"atan2(x,y)", "x", 1.9 / (0.49 + 3.61)}, DiffCase{"x<y", "x", 0}, DiffCase{"!x", "x", 0},
                    DiffCase{"x*sin(x)", "x", std::sin(0.7) + 0.7 * std::cos(0.7)},
                    DiffCase{"(x>0.5)*x^2+(x<=0.5)*3", "x", 1.4}));

TEST(TreeDiff, MakesTheSecondDerivative)
{
    const HostPtr host = makeHost({{"x", {0.7}}});
    const EvalTreePtr second = treeOf("x*sin(x)")->diff("x", host)->diff("x", host);
    EXPECT_NEAR(valueOf(second, host), 2 * std::cos(0.7) - 0.7 * std::sin(0.7), 1e-14);
    EXPECT_NEAR(realValue("d(d(x*sin(x),x),x)", host), 2 * std::cos(0.7) - 0.7 * std::sin(0.7), 1e-14);
}

TEST(TreeDiff, IsTheZeroNodeForAConstantAndKeepsTheText)
{
    const HostPtr host = makeHost();
    const EvalTreePtr tree = treeOf("2+3")->diff("x", host);
    EXPECT_TRUE(tree->getRoot(host)->isZero());
    EXPECT_EQ(tree->getExpr(), "d(2+3,x)");
}

TEST(TreeDiff, IsTheUnitNodeForTheVariableItself)
{
    const HostPtr host = makeHost();
    EXPECT_EQ(treeOf("x")->diff("x", host)->getRoot(host), host->getNodeMaker()->makeUnitNode());
}

TEST(TreeDiff, GivesTheSameNodeAndTreeWithinOneVersion)
{
    const HostPtr host = makeHost();
    host->definitions["w"] = "x^2";
    for (const char* text : {"x*y", "sin(x)^2", "tan(x)*log(y+x)", "(x+y)*(x+y)+1", "w*x"}) {
        const EvalTreePtr tree = treeOf(text);
        EXPECT_EQ(tree->getRoot(host)->diff("x", host), tree->getRoot(host)->diff("x", host)) << text;
        EXPECT_EQ(tree->diff("x", host), tree->diff("x", host)) << text;
    }
}

TEST(TreeDiff, MakesTheWorkAnewForAnotherVersion)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->definitions["w"] = "x^2";
    const EvalTreePtr tree = treeOf("2*w");
    const EvalTreePtr derived = tree->diff("x", host);
    EXPECT_EQ(valueOf(derived, host), 12.0);

    host->definitions["w"] = "5*x";
    host->updateVersion();
    EXPECT_EQ(valueOf(derived, host), 10.0) << "the derivative of a defined variable is resolved per version";

    host->definitions["w"] = "7";
    host->updateVersion();
    EXPECT_TRUE(tree->diff("x", host)->getRoot(host)->isZero());
}

TEST(TreeDiff, GoesThroughDefinitions)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->definitions["u"] = "x^2";
    host->definitions["w"] = "u*x";
    EXPECT_EQ(valueOf(treeOf("w")->diff("x", host), host), 27.0);
    EXPECT_EQ(valueOf(treeOf("w")->diff("u", host), host), 3.0);
    EXPECT_EQ(textOf(derivative("w", "x", host)), "d(w,x)");
    EXPECT_TRUE(derivative("w", "z", host)->isZero());
}

TEST(TreeDiff, AsksAHostThatKnowsDerivatives)
{
    /// x moves with t: dx/dt is the variable xt.
    class Moving : public Host
    {
    public:
        using Host::diff;
        EvalNodePtr diff(const VarEvaluatorPtr& evaluator, const std::string& name, const std::string& var) override
        {
            if (name == "x" && var == "t")
                return evaluator->getNodeMaker()->makeVarNode("xt");
            return Host::diff(evaluator, name, var);
        }
        bool isSameVariable(const std::string& a, const std::string& b) override
        {
            return a == b || (a == "x" && b == "X");
        }
    };
    const auto host = boost::make_shared<Moving>();
    host->reals = {{"x", {3.0}}, {"xt", {5.0}}};
    EXPECT_EQ(realValue("d(x^2,t)", host), 30.0);
    EXPECT_EQ(valueOf(treeOf("x^2")->diff("t", host), host), 30.0);
    EXPECT_EQ(valueOf(treeOf("x^2")->diff("X", host), host), 6.0);
}

TEST(TreeDiff, NeedsNoEvaluatorForBasicVariables)
{
    const HostPtr host = makeHost({{"x", {0.7}}});
    const EvalTreePtr derived = EvalTree::diffStatic(treeOf("sin(x)*z"), "z", host->getNodeMaker());
    EXPECT_DOUBLE_EQ(valueOf(derived, host), std::sin(0.7));
    EXPECT_EQ(derived->getExpr(), "d(sin(x)*z,z)");
    EXPECT_EQ(raisedId([&] { EvalTree::diffStatic(treeOf("nofun(x)"), "x", host->getNodeMaker()); }),
              "Unknown_function_name");
}

TEST(TreeDiff, RaisesForHostOperatorsWithoutARule)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    host->operators["op"] = 1;
    EXPECT_EQ(raisedId([&] { treeOf("op(x)")->diff("x", host); }), "Internal_evaluator_error");
}

// Nodes of derivatives and tests ----------------------------------------------------------------------------------------

TEST(DiffNode, RaisesAtItsFirstUseForWhatIsNoVariable)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    for (const char* text : {"d(x^2,x+1)", "d(x,2)", "pd(x^2,2*x)"}) {
        const EvalTreePtr tree = treeOf(text);
        tree->parse(host);
        EXPECT_EQ(raisedId([&] { valueOf(tree, host); }), "Can_only_diff_wrt_variables") << text;
        EXPECT_EQ(raisedId([&] { tree->diff("x", host); }), "Can_only_diff_wrt_variables") << text;
    }
}

TEST(DiffNode, GivesANaNWithoutAStoryForAZeroThatNobodyReads)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    const EvalNodePtr node = treeOf("d(y,x)")->getRoot(host);
    const ValRepPtr value = node->eval(host, makeCache(), 0);
    EXPECT_TRUE(value->isNaN());
    EXPECT_EQ(raisedId([&] { value->getDouble(); }), "Unexpected_NaN");
    EXPECT_EQ(node->eval(host, makeCache(), EvalValues)->getDouble(), 0.0);
    EXPECT_EQ(node->eval(host, makeCache(), EvalGatherBVars)->getDouble(), 0.0);
}

TEST(DiffNode, PrintsAsItIsWritten)
{
    const HostPtr host = makeHost();
    EXPECT_EQ(textOf(treeOf("d(x*y,x)")->getRoot(host)), "d((x*y),x)");
}

TEST(VarDiffNode, TellsTheVariableWhoseDerivativeFailed)
{
    const HostPtr host = makeHost({{"x", {-1.0}}});
    host->definitions["w"] = "sqrt(x)";
    const ValRepPtr value = treeOf("w")->diff("x", host)->eval(host, makeCache(), EvalValues | EvalKeepReal);
    ASSERT_TRUE(value->isNaN());
    bool found = false;
    for (std::size_t i = 0; i < value->getErrors()->size(); ++i)
        found = found || (value->getErrors()->get(i, "message") == "diffvareval" && value->getErrors()->get(i, "var") == "w");
    EXPECT_TRUE(found);
}

TEST(VarDiffNode, RefusesComplexDerivativesWhereNoneAreAllowed)
{
    const HostPtr host = makeHost({{"x", {-4.0}}});
    host->definitions["w"] = "sqrt(x)";
    const EvalTreePtr derived = treeOf("w")->diff("x", host);
    EXPECT_EQ(derived->eval(host, makeCache(), EvalValues)->getComplex(), cplx(0, -0.25));
    const ValRepPtr value = derived->eval(host, makeCache(), EvalValues | EvalNoComplex);
    ASSERT_TRUE(value->isNaN());
    EXPECT_EQ(value->getErrors()->get(0, "message"), "varcmplx");
    EXPECT_EQ(value->getErrors()->get(0, "var"), "w");
}

TEST(VarDiffNode, GivesANaNForACircularDefinitionInsteadOfRaising)
{
    const HostPtr host = makeHost({{"x", {1.0}}});
    host->definitions["w"] = "2*x";
    const EvalTreePtr derived = treeOf("w")->diff("x", host);
    host->definitions["w"] = "w+x";
    host->updateVersion();
    EXPECT_EQ(raisedId([&] { derived->eval(host, makeCache(), EvalValues)->getDouble(); }), "circvar");
    EXPECT_EQ(host->getRecCount()->getDepth(), 0);
    EXPECT_EQ(raisedId([&] { treeOf("w")->diff("x", host); }), "circvar");
    EXPECT_EQ(host->getRecCount()->getDepth(), 0);
}

TEST(DependencyTests, AnswerOneOrZero)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {3.0}}});
    host->definitions["w"] = "x^2";
    for (const auto& [text, expected] : std::map<std::string, double>{
             {"depends(x,x)", 1}, {"depends(y,x)", 0}, {"depends(w,x)", 1}, {"depends(x)", 1}, {"depends(3)", 0},
             {"depends(x-x,x)", 1}, {"depends(2*y,x)", 0}, {"depends(0*x,x)", 0}, {"depends(w+y)", 1},
             {"jacdepends(x*y,x)", 0}, {"jacdepends(x^2,x)", 1}, {"jacdepends(x)", 0}, {"jacdepends(w)", 1},
             {"islinear(x)", 1}, {"islinear(2*x)", 1}, {"islinear(x+y)", 1}, {"islinear(x*y)", 0},
             {"islinear(x/y)", 0}, {"islinear(y/2)", 1}, {"islinear(real(x))", 0}, {"islinear(sin(2))", 1},
             {"islinear(sin(x))", 0}, {"islinear(-x)", 1}, {"islinear(x-2*(y+x/4))", 1}, {"islinear(w)", 0}})
        EXPECT_EQ(realValue(text, host), expected) << text;
}

TEST(DependencyTests, RaiseAtTheirFirstUseForWhatIsNoVariable)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    for (const char* text : {"depends(x,x+1)", "jacdepends(x,2*x)"}) {
        const EvalTreePtr tree = treeOf(text);
        tree->parse(host);
        EXPECT_EQ(raisedId([&] { valueOf(tree, host); }), "Can_only_test_dependency_wrt_variables") << text;
    }
}

TEST(DependencyTests, GiveANaNForAZeroThatNobodyReads)
{
    const HostPtr host = makeHost();
    const EvalNodePtr node = treeOf("depends(0)")->getRoot(host);
    EXPECT_TRUE(node->eval(host, makeCache(), 0)->isNaN());
    EXPECT_EQ(node->eval(host, makeCache(), EvalValues)->getDouble(), 0.0);
}

TEST(DependencyTests, AreConstantUnderDifferentiation)
{
    const HostPtr host = makeHost();
    EXPECT_TRUE(derivative("depends(x,x)", "x", host)->isZero());
}

TEST(DependencyTests, PrintTheirNames)
{
    const HostPtr host = makeHost();
    EXPECT_EQ(textOf(treeOf("depends(x,y)")->getRoot(host)), "depends(x,y)");
    EXPECT_EQ(textOf(treeOf("depends(x)")->getRoot(host)), "depends(x)");
    EXPECT_EQ(textOf(treeOf("jacdepends(x,y)")->getRoot(host)), "jacdepends(x,y)");
}

TEST(DependencyTests, RequiredQuirkNonlinearityPrintsANameThatDoesNotReadBack)
{
    const HostPtr host = makeHost();
    EXPECT_EQ(textOf(treeOf("jacdepends(x)")->getRoot(host)), "isnonlinear(x)");
}

TEST(DerivativeNodes, HaveNoFormInCompiledCode)
{
    const HostPtr host = makeHost();
    host->operators["op"] = 1;
    int dummy = 0, nextId = 0;
    DefIds names;
    const auto refusal = [&](const char* text) {
        const EvalNodePtr node = treeOf(text)->getRoot(host);
        return raisedId([&] { node->createDefs(reinterpret_cast<ExprComp&>(dummy), names, nextId, host); });
    };
    EXPECT_EQ(refusal("depends(x,y)"), "Cannot create definitions from DepNode");
    EXPECT_EQ(refusal("depends(x)"), "Cannot create definitions from UDepNode");
    EXPECT_EQ(refusal("jacdepends(x,y)"), "Cannot create definitions from JacDepNode");
    EXPECT_EQ(refusal("jacdepends(x)"), "Cannot create definitions from JacUDepNode");
    EXPECT_EQ(refusal("op(x)"), "Cannot create definitions from GenOpNode::op");
}

// Dependence ------------------------------------------------------------------------------------------------------------

TEST(TreeDepends, IsAskedOfTheHostByNameAndOperator)
{
    /// Names stand for groups: the variable k depends on parameter group k at order 1.
    class Groups : public Host
    {
    public:
        using Host::depends;
        DepInfo depends(const VarEvaluatorPtr&, const std::string& name, const std::vector<std::string>&) override
        {
            DepInfo info;
            if (name == "k")
                info.setParDep(3, 1);
            else
                info.setSolDep(2, 0);
            return info;
        }
    };
    const auto host = boost::make_shared<Groups>();
    const DepInfo info = treeOf("k*u+1")->depends({"u"}, host);
    EXPECT_TRUE(info.getParDep(3, 1));
    EXPECT_TRUE(info.getSolDep(2, 0));
    EXPECT_FALSE(info.getSolDep(0, 0));
}

TEST(TreeDepends, CarriesAFailureOfTheHost)
{
    class Unknowing : public Host
    {
    public:
        using Host::depends;
        DepInfo depends(const VarEvaluatorPtr&, const std::string&, const std::vector<std::string>&) override
        {
            DepInfo info;
            info.setFailed();
            return info;
        }
    };
    const auto host = boost::make_shared<Unknowing>();
    EXPECT_TRUE(treeOf("2*u+1")->depends({"u"}, host).isFailed());
    EXPECT_TRUE(treeOf("sin(u)")->jacDepends({"u"}, host).isFailed());
}

TEST(TreeDepends, IsMemoisedPerVariablesAndVersion)
{
    class Counting : public Host
    {
    public:
        int asked = 0;
        using Host::depends;
        DepInfo depends(const VarEvaluatorPtr& e, const std::string& name, const std::vector<std::string>& vars) override
        {
            ++asked;
            return Host::depends(e, name, vars);
        }
    };
    const auto host = boost::make_shared<Counting>();
    const EvalTreePtr tree = treeOf("x*x+sin(x)+x");
    tree->depends({"x"}, host);
    tree->depends({"x"}, host);
    EXPECT_EQ(host->asked, 1);
    EXPECT_FALSE(tree->depends({"y"}, host).isSolDepAll());
    EXPECT_EQ(host->asked, 2);
    host->updateVersion();
    tree->depends({"y"}, host);
    EXPECT_EQ(host->asked, 3);
}

// Simplification --------------------------------------------------------------------------------------------------------

TEST(TreeSimplify, UsesTheFunctionsRulesAndKeepsTheText)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    host->definitions["zero"] = "2-2";
    host->definitions["one"] = "1";
    const EvalTreePtr tree = treeOf("zero*x+x*one")->simplify(host);
    EXPECT_EQ(tree->getExpr(), "simplify(zero*x+x*one)");
    EXPECT_EQ(textOf(tree->getRoot(host)), "x");
    EXPECT_EQ(textOf(treeOf("sin(x+zero)")->simplify(host)->getRoot(host)), "sin(x)");
    EXPECT_EQ(textOf(treeOf("x-zero")->simplify(host)->getRoot(host)), "x");
}

TEST(TreeSimplify, LooksAtTheDefinitionsOfTheVersion)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    host->definitions["k"] = "0";
    const EvalTreePtr tree = treeOf("k*x");
    EXPECT_TRUE(tree->simplify(host)->getRoot(host)->isZero());
    host->definitions["k"] = "x";
    host->updateVersion();
    EXPECT_EQ(textOf(tree->simplify(host)->getRoot(host)), "(k*x)") << "a variable that is no constant stays";
}

TEST(TreeSimplify, KeepsDerivativesTestsAndOperators)
{
    const HostPtr host = makeHost({{"x", {3.0}}});
    host->operators["op"] = 1;
    for (const char* text : {"d(x^2,x)", "depends(x)", "jacdepends(x,x)", "op(x)", "d(x^3,x)+op(x)*2"})
        EXPECT_EQ(valueOf(treeOf(text)->simplify(host), host), realValue(text, host)) << text;
}

// Linear forms ----------------------------------------------------------------------------------------------------------

TEST(TreeLinearize, GivesTheNonZeroDerivativesByBasicVariable)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {3.0}}, {"z", {5.0}}});
    host->definitions["w"] = "x*y";
    const EvalTreePtr tree = treeOf("w+z^2+(y>1)*0");
    const EvalTree::Pairs& linear = tree->linearize(host);
    ASSERT_EQ(linear.size(), 3u);
    EXPECT_EQ(linear[0].first, "x");
    EXPECT_EQ(valueOf(linear[0].second, host), 3.0);
    EXPECT_EQ(linear[1].first, "y");
    EXPECT_EQ(valueOf(linear[1].second, host), 2.0);
    EXPECT_EQ(linear[2].first, "z");
    EXPECT_EQ(valueOf(linear[2].second, host), 10.0);
    EXPECT_EQ(tree->linearize(host)[0].second, linear[0].second);
}

TEST(TreeLinearize, LeavesVariablesOutWhoseDerivativeIsZero)
{
    const HostPtr host = makeHost();
    const EvalTree::Pairs linear = treeOf("x+(y>1)")->linearize(host);
    ASSERT_EQ(linear.size(), 1u);
    EXPECT_EQ(linear[0].first, "x");
}

TEST(TreeLinearize, IsMadeAnewForAnotherVersionOrFlag)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    host->definitions["w"] = "x";
    const EvalTreePtr tree = treeOf("w");
    EXPECT_EQ(tree->linearize(host).size(), 1u);
    host->definitions["w"] = "3";
    EXPECT_EQ(tree->linearize(host).size(), 1u) << "nobody said that anything changed";
    *host->getDiffFlagManager() = 1;
    host->updateVersion();
    EXPECT_EQ(tree->linearize(host).size(), 0u);
}

TEST(TreeLinearize, TakesGivenVariables)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {3.0}}});
    EvalTree::Pairs pairs;
    treeOf("x*y")->linearize(host, {"y", "q"}, pairs);
    ASSERT_EQ(pairs.size(), 1u);
    EXPECT_EQ(pairs[0].first, "y");
    EXPECT_EQ(valueOf(pairs[0].second, host), 2.0);
}

TEST(TreeGatherBVars, FindsBasicVariablesOnce)
{
    const HostPtr host = makeHost();
    host->definitions["w"] = "x*q";
    host->operators["op"] = 1;
    EXPECT_EQ(treeOf("w+x+op(r)+d(s^2*t,s)+depends(u)")->getBVarNames(host),
              (std::vector<std::string>{"q", "r", "s", "t", "x"}));
}

// Size and time of derivative graphs ---------------------------------------------------------------------------------------

struct SizeCase
{
    const char* name;
    std::string text;
};

class DerivativeSize : public testing::TestWithParam<SizeCase>
{
};

TEST_P(DerivativeSize, StaysWithinFiveOperationsPerOperation)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    const EvalTreePtr tree = treeOf(GetParam().text);
    const std::size_t size = countOperations(tree->getRoot(host));
    EvalNodePtr derived;
    const double time = milliseconds([&] { derived = tree->getRoot(host)->diff("x", host); });
    EXPECT_LE(countOperations(derived), 5 * size) << size << " operations";
    EXPECT_LT(time, 500) << "a walk over distinct nodes takes a few milliseconds, one over all paths never ends";
}

INSTANTIATE_TEST_SUITE_P(Shapes, DerivativeSize,
                         testing::Values(SizeCase{"sum", nested("", "x", "+x", 1000)},
                                         SizeCase{"products", nested("", "x", "*(x+1)", 500)},
                                         SizeCase{"quotients", nested("1/(x+", "x", ")", 500)},
                                         SizeCase{"sines", nested("sin(", "x", ")", 1000)},
                                         SizeCase{"tangents", nested("tan(", "x", ")", 1000)},
                                         SizeCase{"powers", nested("(x+", "x", ")^2", 500)},
                                         SizeCase{"roots", nested("sqrt(1+", "x", ")", 500)},
                                         SizeCase{"exponentials", nested("exp(-", "x", ")", 500)}),
                         [](const auto& shape) { return shape.param.name; });

TEST(DerivativeGraphs, OfAChainOf1000CallsAreMadeInMilliseconds)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    for (const char* f : {"sin(", "atan(", "tanh("}) {
        const EvalTreePtr tree = treeOf(nested(f, "x", ")", 1000));
        tree->parse(host);
        EXPECT_LT(milliseconds([&] { tree->diff("x", host); }), 200) << f;
        EXPECT_LT(milliseconds([&] { tree->simplify(host); }), 200) << f;
        EXPECT_LT(milliseconds([&] { tree->depends({"x"}, host); }), 200) << f;
        EXPECT_LT(milliseconds([&] { tree->jacDepends({"x"}, host); }), 200) << f;
    }
}

TEST(DerivativeGraphs, OfAProductShared60DeepAreMadeInMilliseconds)
{
    const HostPtr host = makeHost({{"x", {1.0}}});
    NodeMaker& maker = *host->getNodeMaker();
    // p(k+1) = p(k)*(p(k)+1): 2^60 paths, 121 operations
    EvalNodePtr p = maker.makeVarNode("x");
    for (int k = 0; k < 60; ++k)
        p = maker.makeOpNode(TIMES, p, maker.makeOpNode(PLUS, p, maker.makeUnitNode()));
    EvalNodePtr derived;
    EXPECT_LT(milliseconds([&] { derived = p->diff("x", host); }), 200);
    EXPECT_LE(countOperations(derived), 5 * countOperations(p));
    EXPECT_LT(milliseconds([&] { p->simplify(host); }), 200);
    EXPECT_LT(milliseconds([&] { p->depends({"x"}, host); }), 200);
    EXPECT_LT(milliseconds([&] { p->jacDepends({"x"}, host); }), 200);
    NodeIdSet seen;
    NameSet names;
    EXPECT_LT(milliseconds([&] { p->gatherBVars(host, seen, names); }), 200);
    EXPECT_EQ(names.size(), 1u);
}

TEST(DerivativeGraphs, OfSharedObjectOperationsAreMadeInMilliseconds)
{
    const HostPtr host = makeHost({{"x", {1.0}}});
    NodeMaker& maker = *host->getNodeMaker();
    const FunObjPtr f = host->functions["atan2"]; // never shared by the factory: no proxies to memoise at
    EvalNodePtr p = maker.makeVarNode("x");
    for (int k = 0; k < 60; ++k)
        p = maker.makeOpNode(f, p, p);
    EXPECT_LT(milliseconds([&] { p->diff("x", host); }), 200);
    EXPECT_LT(milliseconds([&] { p->simplify(host); }), 200);
    EXPECT_LT(milliseconds([&] { p->jacDepends({"x"}, host); }), 200);
}

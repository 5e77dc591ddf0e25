// SPDX-License-Identifier: LicenseRef-qxkernel
#include "derivativenodes.hpp"
#include "evalfun_spec.hpp"
#include "funfactory.hpp"
#include "host.hpp"
#include "support/alloc_fault.hpp"
#include "support/reference_lines.hpp"

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

namespace {

/// Points and derivatives of the reference table for one function and argument.
struct ReferencePoints
{
    std::vector<cplx> x, y, wanted;
};

/// kind: d, z or c of the table.
std::map<std::pair<std::string, int>, ReferencePoints> referencePoints(const std::string& kind)
{
    std::map<std::pair<std::string, int>, ReferencePoints> all;
    for (const ReferenceLine& line : readReferences(QX_REFERENCE_FILE, kind)) {
        const std::vector<double>& n = line.numbers;
        ReferencePoints& p = all[{line.name, kind == "z" ? 1 : static_cast<int>(n[0])}];
        if (kind == "d") {
            p.x.emplace_back(n[1]), p.y.emplace_back(n[2]), p.wanted.emplace_back(n[3]);
        } else if (kind == "z") {
            p.x.emplace_back(n[0], n[1]), p.y.emplace_back(0.0), p.wanted.emplace_back(n[4], n[5]);
        } else {
            p.x.emplace_back(n[1], n[2]), p.y.emplace_back(n[3], n[4]), p.wanted.emplace_back(n[5], n[6]);
        }
    }
    return all;
}

std::vector<double> realParts(const std::vector<cplx>& z)
{
    std::vector<double> x;
    for (const cplx& v : z)
        x.push_back(v.real());
    return x;
}

} // namespace

// The rules have a test of their own; here they are reached from a text, through the chain rule, over arrays.
TEST(TreeDiff, AgreesWithTheReferencesForEveryFunctionAndArgument)
{
    for (const char* kind : {"d", "z", "c"})
        for (const auto& [key, points] : referencePoints(kind)) {
            const auto& [name, argument] = key;
            if (name == "pow" || name == "plussq")
                continue; // these have no name in the language
            const HostPtr host = makeHost();
            const bool isOperator = std::string("+-*/^").find(name) != std::string::npos, isReal = *kind == 'd';
            if (isReal)
                host->reals = {{"x", realParts(points.x)}, {"y", realParts(points.y)}};
            else
                host->complexes = {{"x", points.x}, {"y", points.y}};
            const bool two = isOperator || host->functions.at(name)->nArgs() == 2;
            // Composed arguments: u = x, v = y at the points, but neither is a plain variable.
            const std::string text = isOperator ? "(2*x-x)" + name + "(y/2+y/2)" : name + "(2*x-x" + (two ? ",y/2+y/2)" : ")");
            const EvalTreePtr derived = treeOf(text)->diff(argument == 1 ? "x" : "y", host);
            const ValRepPtr value = derived->eval(host, makeCache(), isReal ? EvalValues | EvalKeepReal : EvalValues);
            ASSERT_FALSE(value->isNaN()) << text;
            const CValRepReaderPtr read = value->getComplexReader();
            for (std::size_t i = 0; i < points.x.size(); ++i) {
                const cplx got = (*read)(static_cast<int>(i), 0), wanted = points.wanted[i];
                EXPECT_LE(std::abs(got - wanted), 1e-12 * std::fmax(std::abs(wanted), 1e-3))
                    << text << " by argument " << argument << " at " << points.x[i] << ", " << points.y[i];
            }
        }
}

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

// Failures of functions within derivatives --------------------------------------------------------------------------------

namespace {

/// The identifier of the failure of a text's value, evaluated as a real expression; empty if it has a value.
std::string failureOf(const std::string& text, const HostPtr& host, unsigned flags = EvalValues | EvalKeepReal)
{
    const ValRepPtr value = evalText(text, host, flags);
    return value->isNaN() ? raisedId([&] { value->getDouble(); }) : "";
}

} // namespace

TEST(DerivativeFailures, BesselFunctionOutOfRange)
{
    const HostPtr host = makeHost({{"x", {0.0}}});
    EXPECT_EQ(failureOf("d(besselk(0,x),x)", host), "bessel_range");
    EXPECT_EQ(failureOf("d(bessely(1,x),x)", host), "bessel_range");
    EXPECT_EQ(failureOf("d(besselj(0,x),x)", host), "");
    host->definitions["w"] = "besselk(0,x)";
    EXPECT_EQ(failureOf("d(2*w,x)", host), "bessel_range");
}

TEST(DerivativeFailures, BesselFunctionOutOfRangeInOneElement)
{
    const HostPtr host = makeHost({{"x", {1.0, 0.0, 2.0}}});
    EXPECT_EQ(failureOf("d(besselk(0,x),x)", host), "bessel_range");
    host->reals["x"] = {1.0, 0.5, 2.0};
    const ValRepPtr value = evalText("d(besselk(0,x),x)", host, EvalValues | EvalKeepReal);
    ASSERT_FALSE(value->isNaN());
    EXPECT_NEAR((*value->getDoubleReader())(2, 0), -0.13986588181652243, 1e-15); // -K1(2), A&S table 9.8
}

TEST(DerivativeFailures, BesselFunctionWithoutARealValue)
{
    const HostPtr host = makeHost({{"x", {-1.0}}});
    EXPECT_EQ(failureOf("d(besselj(0.5,x),x)", host), "bessel_cmplx");
    EXPECT_EQ(failureOf("d(besselj(0.5,x),x)", host, EvalValues), ""); // a complex value
    host->complexes = {{"nu", {cplx(1.0, 1.0)}}};
    EXPECT_EQ(failureOf("d(besselj(nu,x),x)", host, EvalValues), "bessel_cmplx");
}

TEST(DerivativeFailures, StepWithAComplexWidth)
{
    const HostPtr host = makeHost({{"x", {0.5}}});
    host->complexes = {{"w", {cplx(1.0, 1.0)}}};
    for (const char* text : {"d(qxsmhs(x,w),x)", "d(qxc2hs(x,w),w)", "d(qxdc1hs(x,w),x)", "d(qxdsmsign(x,w),w)"})
        EXPECT_EQ(failureOf(text, host, EvalValues), "trans") << text;
}

TEST(DerivativeFailures, PiecewiseFunctionOutsideItsIntervals)
{
    const HostPtr host = makeHost({{"x", {5.0}}});
    const auto square = boost::make_shared<ExtendedPolyEvaluator>(
        ExtendedPolyEvaluatorBase::Sum{boost::make_shared<PolyEvaluator>(std::vector<double>{0.0, 0.0, 1.0})});
    host->functions["pw"] = boost::make_shared<PiecewisePolyFun>("pw", std::vector<double>{0.0, 3.0},
                                                                 PiecewisePolyFun::Pieces{square}, true, false);
    EXPECT_EQ(failureOf("d(pw(x),x)", host), "piecewise_range");
    host->reals["x"] = {2.0};
    EXPECT_EQ(realValue("d(pw(x),x)", host), 4.0);
    host->reals.clear();
    host->complexes = {{"x", {cplx(1.0, 1.0)}}};
    EXPECT_EQ(failureOf("d(pw(x),x)", host, EvalValues), "piecewise_cmplx");
}

TEST(DerivativeBranches, ThatAreNotTakenGiveNoNaN)
{
    const HostPtr host = makeHost({{"x", {-2.0}}, {"y", {3.0}}, {"w", {0.0}}});
    // The logarithm in the rule of the exponent does not appear where the exponent is constant.
    EXPECT_EQ(realValue("d(x^y,x)", host, EvalValues | EvalKeepReal), 12.0);
    EXPECT_EQ(realValue("d(x^3,x)", host), 12.0);
    host->reals["x"] = {0.0};
    EXPECT_EQ(realValue("d(x^2,x)", host), 0.0);
    EXPECT_EQ(realValue("d(x^y,x)", host, EvalValues | EvalKeepReal), 0.0);
    EXPECT_EQ(realValue("d(abs(x),x)", host), 0.0);
    EXPECT_EQ(realValue("d(max(x,y),x)+d(min(x,y),y)", host), 0.0);
    // The polynomial of a step is not evaluated where the zone is empty.
    for (const char* f : {"qxsmhs", "qxsmsign", "qxc1hs", "qxc2hs"})
        EXPECT_EQ(realValue("d(" + std::string(f) + "(x,w),x)", host), 0.0) << f;
}

TEST(DerivativeBranches, RequiredQuirkStepsDividedByAnEmptyZoneHaveNoValue)
{
    // The rules by the width and of the second derivative divide by it: no value at 0, where the step jumps.
    const HostPtr host = makeHost({{"x", {0.5}}, {"w", {0.0}}});
    for (const char* text : {"d(qxsmhs(x,w),w)", "d(qxdsmhs(x,w),w)", "d(qxdsmhs(x,w),x)", "d(d(qxc2hs(x,w),x),x)"})
        EXPECT_TRUE(std::isnan(realValue(text, host))) << text;
    host->reals["w"] = {0.25}; // outside the zone, but with a width
    for (const char* text : {"d(qxsmhs(x,w),w)", "d(qxdsmhs(x,w),w)", "d(qxdsmhs(x,w),x)", "d(d(qxc2hs(x,w),x),x)"})
        EXPECT_EQ(realValue(text, host), 0.0) << text;
}

TEST(DerivativeBranches, RequiredQuirkAcoshInTheLeftHalfPlaneHasTheSignOfTheOtherBranch)
{
    // 1/sqrt(u^2-1) is the derivative for Re u > 0; the principal acosh has the opposite sign to the left.
    const HostPtr host = makeHost();
    const auto value = [&](const std::string& text, cplx at) {
        host->complexes = {{"u", {at}}};
        return evalText(text, host)->getComplex();
    };
    for (const cplx u : {cplx(1.5, 0.5), cplx(0.3, -2.0), cplx(-1.5, 0.5), cplx(-0.3, -2.0)}) {
        const double h = 1e-5;
        const cplx slope = (std::acosh(u + h) - std::acosh(u - h)) / (2 * h);
        const cplx rule = value("d(acosh(u),u)", u);
        EXPECT_NEAR(std::abs(rule - (u.real() > 0 ? slope : -slope)), 0.0, 1e-8) << u;
    }
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

TEST(DependencyTests, AndHostOperatorsAllocateNothingInTheSteadyState)
{
    class Quiet : public Host
    {
    public:
        ValRepPtr eval(const VarEvaluatorPtr&, const std::string&, const std::vector<ValRepPtr>& args, unsigned,
                       const ValRepCachePtr&) override
        {
            return args.back();
        }
        using Host::eval;
    };
    const auto host = boost::make_shared<Quiet>();
    host->reals = {{"x", {2.0}}, {"y", {3.0}}};
    host->operators["op"] = 2;
    for (const char* text : {"depends(x*y+sin(x),x)+x", "jacdepends(x*y,y)*y", "op(x,y)", "op(x,op(y,x+y))+1", "islinear(x^2)"}) {
        const EvalTreePtr tree = treeOf(text);
        const ValRepCachePtr cache = makeCache();
        const auto pass = [&] {
            cache->reset();
            return tree->eval(host, cache, EvalValues)->getDouble();
        };
        const double value = pass();
        pass();

        const long before = allocationCount();
        EXPECT_EQ(pass(), value) << text;
        EXPECT_EQ(allocationCount(), before) << text;
    }
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

TEST(TreeDepends, OfASharedPartIsTheSameWhenItIsAskedAgain)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {3.0}}});
    NodeMaker& maker = *host->getNodeMaker();
    const EvalNodePtr x = maker.makeVarNode("x"), y = maker.makeVarNode("y");
    const EvalNodePtr part = maker.makeOpNode(SIN, x), again = maker.makeOpNode(SIN, x); // shared now
    ASSERT_EQ(part, again);
    const EvalNodePtr root = maker.makeOpNode(TIMES, part, maker.makeOpNode(PLUS, again, y));

    for (int pass = 0; pass < 2; ++pass)
        for (const EvalNodePtr& node : {part, root}) {
            EXPECT_TRUE(node->depends({"x"}, host).isSolDepAll()) << pass;
            EXPECT_EQ(node->depends({"y"}, host).isSolDepAll(), node == root) << pass;
            EXPECT_FALSE(node->depends({"z"}, host).isSolDepAll()) << pass;
            EXPECT_TRUE(node->jacDepends({"x"}, host).isSolDepAll()) << pass;
            EXPECT_FALSE(node->jacDepends({"z"}, host).isSolDepAll()) << pass;
        }
}

TEST(TreeDepends, OfAHostOperatorIsAskedOnceAVersionWhateverTheNumberOfArguments)
{
    class Counting : public Host
    {
    public:
        using Host::depends;
        using Host::diff;
        using Host::jacDepends;
        DepInfo depends(const VarEvaluatorPtr& e, const std::string& op, const EvalNodes& args,
                        const std::vector<std::string>& vars) override
        {
            return ++asked, VarEvaluator::depends(e, op, args, vars);
        }
        DepInfo jacDepends(const VarEvaluatorPtr& e, const std::string& op, const EvalNodes& args,
                           const std::vector<std::string>& vars) override
        {
            return ++asked, VarEvaluator::jacDepends(e, op, args, vars);
        }
        EvalNodePtr diff(const VarEvaluatorPtr&, const std::string&, const EvalNodes& args, const std::string&) override
        {
            return ++asked, args[0];
        }
        int asked = 0;
    };
    for (const char* text : {"op(x,y)", "op(x,y,x,y,x)"}) {
        const auto host = boost::make_shared<Counting>();
        host->operators["op"] = text[6] == ')' ? 2 : 5;
        const EvalNodePtr root = treeOf(text)->getRoot(host);
        for (int pass = 0; pass < 2; ++pass) {
            root->depends({"x"}, host);
            root->jacDepends({"x"}, host);
            root->diff("x", host);
        }
        EXPECT_EQ(host->asked, 3) << text;
        host->updateVersion();
        root->depends({"x"}, host);
        EXPECT_EQ(host->asked, 4) << text;
    }
}

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

TEST(TreeLinearize, IsMadeAnewForAnotherVersion)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    host->definitions["w"] = "x";
    const EvalTreePtr tree = treeOf("w");
    EXPECT_EQ(tree->linearize(host).size(), 1u);
    host->definitions["w"] = "3";
    EXPECT_EQ(tree->linearize(host).size(), 1u) << "nobody said that anything changed";
    host->updateVersion();
    EXPECT_EQ(tree->linearize(host).size(), 0u);
}

TEST(TreeLinearize, IsMadeAnewForAnotherFlag)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    const EvalTreePtr tree = treeOf("x^2");
    const auto derivative = [&] { return tree->linearize(host).at(0).second; };
    const EvalTreePtr first = derivative();
    EXPECT_EQ(derivative(), first);
    host->getNodeMaker()->reset(); // what is made from here on are new trees

    EXPECT_EQ(derivative(), first) << "kept";
    *host->getDiffFlagManager() = 1;
    EXPECT_NE(derivative(), first) << "made again";
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

// Size of derivative graphs ------------------------------------------------------------------------------------------------

struct SizeCase
{
    const char* name;
    std::string text;
    std::size_t ratio = 5; ///< nodes of the derivative for each node of the value
};

void PrintTo(const SizeCase& c, std::ostream* stream) { *stream << c.name; }

class DerivativeSize : public testing::TestWithParam<SizeCase>
{
};

TEST_P(DerivativeSize, StaysWithinItsNodesPerNode)
{
    const HostPtr host = makeHost();
    const EvalNodePtr root = treeOf(GetParam().text)->getRoot(host);
    const std::size_t size = countNodes(root), bound = GetParam().ratio * size;
    EvalNodePtr derived;
    const std::size_t made = countNodesMade(*host->getNodeMaker(), [&] { derived = root->diff("x", host); });
    EXPECT_LE(countNodes(derived), bound) << size << " nodes";
    EXPECT_LE(made, 2 * bound) << "work that came to nothing counts too; each operation may have a proxy";
    RecordProperty("nodes_per_node", std::to_string(double(countNodes(derived)) / double(size)));
}

TEST_P(DerivativeSize, IsNotWhatSimplifyingMakes)
{
    const HostPtr host = makeHost();
    const EvalNodePtr root = treeOf(GetParam().text)->getRoot(host);
    const std::size_t size = countNodes(root);
    EvalNodePtr simple;
    EXPECT_LE(countNodesMade(*host->getNodeMaker(), [&] { simple = root->simplify(host); }), 2 * size);
    EXPECT_LE(countNodes(simple), size);
}

INSTANTIATE_TEST_SUITE_P(Shapes, DerivativeSize,
                         testing::Values(SizeCase{"sum", nested("", "x", "+x", 1000)},
                                         SizeCase{"products", nested("", "x", "*(x+1)", 500)},
                                         SizeCase{"quotients", nested("1/(x+", "x", ")", 500)},
                                         SizeCase{"sines", nested("sin(", "x", ")", 1000)},
                                         SizeCase{"tangents", nested("tan(", "x", ")", 1000)},
                                         SizeCase{"arctangents", nested("atan(", "x", ")", 1000)},
                                         SizeCase{"powers", nested("(x+", "x", ")^2", 500)},
                                         SizeCase{"roots", nested("sqrt(1+", "x", ")", 500)},
                                         SizeCase{"exponentials", nested("exp(-", "x", ")", 500)},
                                         SizeCase{"largest", nested("max(1,", "x", ")", 500)},
                                         SizeCase{"steps", nested("qxsmhs(", "x", ",2)", 500)}),
                         [](const auto& shape) { return shape.param.name; });

// Rules that are longer than that of a tangent, stacked up with nothing between them.
INSTANTIATE_TEST_SUITE_P(LongRules, DerivativeSize,
                         testing::Values(SizeCase{"bessel", nested("besselj(1,", "x", ")", 500), 6},
                                         SizeCase{"arcsines", nested("asin(", "x", ")", 500), 6},
                                         SizeCase{"angles", nested("atan2(x,", "x", ")", 500), 7},
                                         SizeCase{"quotientsOfBoth", nested("(x+3)/(1/(x+2)/", "x", ")", 500), 8},
                                         SizeCase{"generalPowers", nested("x^(", "x", ")", 500), 8},
                                         SizeCase{"arcsecants", nested("asec(", "x", ")", 500), 8},
                                         SizeCase{"hyperbolicArcsecants", nested("asech(", "x", ")", 500), 12}),
                         [](const auto& shape) { return shape.param.name; });

// A walk over all paths of these graphs would never end.

TEST(DerivativeGraphs, OfAChainOf1000CallsAreLinear)
{
    for (const char* f : {"sin(", "atan(", "tanh("}) {
        const HostPtr host = makeHost();
        const EvalNodePtr root = treeOf(nested(f, "x", ")", 1000))->getRoot(host);
        const std::size_t size = countNodes(root);
        EXPECT_LE(countNodesMade(*host->getNodeMaker(), [&] { root->simplify(host); }), 2 * size) << f;
        EXPECT_LE(countNodesMade(*host->getNodeMaker(), [&] { root->diff("x", host); }), 2 * 5 * size) << f;
        EXPECT_TRUE(root->depends({"x"}, host).isSolDepAll()) << f;
        EXPECT_TRUE(root->jacDepends({"x"}, host).isSolDepAll()) << f;
    }
}

TEST(DerivativeGraphs, OfAProductShared60DeepAreLinear)
{
    const HostPtr host = makeHost();
    NodeMaker& maker = *host->getNodeMaker();
    // p(k+1) = p(k)*(p(k)+1): 2^60 paths, 121 operations
    EvalNodePtr p = maker.makeVarNode("x");
    for (int k = 0; k < 60; ++k)
        p = maker.makeOpNode(TIMES, p, maker.makeOpNode(PLUS, p, maker.makeUnitNode()));
    const std::size_t size = countNodes(p);
    EvalNodePtr derived;
    EXPECT_LE(countNodesMade(maker, [&] { p->simplify(host); }), 2 * size);
    EXPECT_LE(countNodesMade(maker, [&] { derived = p->diff("x", host); }), 2 * 5 * size);
    EXPECT_LE(countNodes(derived), 5 * size);
    EXPECT_TRUE(p->depends({"x"}, host).isSolDepAll());
    EXPECT_TRUE(p->jacDepends({"x"}, host).isSolDepAll());
    NodeIdSet seen;
    NameSet names;
    p->gatherBVars(host, seen, names);
    EXPECT_EQ(names.size(), 1u);
}

TEST(DerivativeGraphs, OfSharedObjectOperationsAreLinear)
{
    const HostPtr host = makeHost();
    NodeMaker& maker = *host->getNodeMaker();
    const FunObjPtr f = host->functions["atan2"]; // never shared by the factory: no proxies to memoise at
    EvalNodePtr p = maker.makeVarNode("x");
    for (int k = 0; k < 60; ++k)
        p = maker.makeOpNode(f, p, p);
    const std::size_t size = countNodes(p);
    EXPECT_LE(countNodesMade(maker, [&] { p->simplify(host); }), 2 * size);
    EXPECT_LE(countNodesMade(maker, [&] { p->diff("x", host); }), 2 * 8 * size);
    EXPECT_TRUE(p->jacDepends({"x"}, host).isSolDepAll());
}

TEST(DerivativeGraphs, OfAGradientStayWithinFiveNodesPerNodeForEachVariable)
{
    const HostPtr host = makeHost();
    std::string text = "1";
    for (int k = 0; k < 10; ++k)
        text = "sin(" + text + "+x" + std::to_string(k) + ")*exp(x" + std::to_string((k + 3) % 10) + ")";
    const EvalTreePtr tree = treeOf(text);
    const std::size_t size = countNodes(tree->getRoot(host));
    const std::size_t made = countNodesMade(*host->getNodeMaker(), [&] { tree->linearize(host); });
    EXPECT_LE(made, 2 * 5 * size * 10);
    RecordProperty("objects_per_node_and_variable", std::to_string(double(made) / double(size) / 10));
}

// The list of variables is shared by all nodes that keep an answer for it ----------------------------------------------

namespace {

std::vector<std::string> longNames(int n)
{
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i)
        names.push_back("a_name_too_long_for_the_string_itself_" + std::to_string(i));
    return names;
}

/// The sum of x*sin(x) over all names: every product keeps an answer for the whole list.
EvalNodePtr sumOver(const std::vector<std::string>& names, NodeMaker& maker)
{
    EvalNodePtr sum = maker.makeZeroNode();
    for (const std::string& name : names) {
        const EvalNodePtr x = maker.makeVarNode(name);
        sum = maker.makeOpNode(PLUS, sum, maker.makeOpNode(TIMES, x, maker.makeOpNode(SIN, x)));
    }
    return sum;
}

} // namespace

TEST(TreeDepends, ALongListOfNamesIsCopiedOnceNotForEachNode)
{
    const auto allocations = [](int n) {
        const std::vector<std::string> names = longNames(n);
        HostPtr host = makeHost({});
        for (const std::string& name : names)
            host->reals[name] = {0.5};
        const EvalNodePtr sum = sumOver(names, *host->getNodeMaker());
        const long before = allocationCount();
        EXPECT_TRUE(sum->jacDepends(names, host).isSolDepAll());
        EXPECT_TRUE(sum->depends(names, host).isSolDepAll());
        return allocationCount() - before;
    };

    const long small = allocations(100), large = allocations(400);

    EXPECT_LT(large, 5 * small); // a copy for each node made it sixteen times as many
}

TEST(TreeDepends, AnAnswerForOneListIsNotTakenForAnother)
{
    HostPtr host = makeHost({{"x", {0.5}}, {"y", {0.5}}});
    NodeMaker& maker = *host->getNodeMaker();
    const EvalNodePtr x = maker.makeVarNode("x"), y = maker.makeVarNode("y");
    const EvalNodePtr part = maker.makeOpNode(SIN, x);
    const EvalNodePtr root = maker.makeOpNode(TIMES, part, maker.makeOpNode(PLUS, part, maker.makeOpNode(TIMES, y, y)));

    std::vector<std::string> names;
    for (int pass = 0; pass < 3; ++pass)
        for (const char* name : {"x", "y", "z"}) {
            names.assign(1, name); // the same list object with other contents
            EXPECT_EQ(part->depends(names, host).isSolDepAll(), names[0] == "x") << pass << name;
            EXPECT_EQ(root->jacDepends(names, host).isSolDepAll(), names[0] != "z") << pass << name;
            const std::vector<std::string> copy = names;
            EXPECT_EQ(root->depends(copy, host).isSolDepAll(), names[0] != "z") << pass << name;
        }
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evaltree.hpp"

#include "derivativenodes.hpp"
#include "evaltreeset.hpp"
#include "funfactory.hpp"
#include "host.hpp"
#include "qxrun.hpp"
#include "support/alloc_fault.hpp"
#include "support/comma_locale.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <pthread.h>

using namespace qxtest;

namespace {

/// A function of strings and numbers for getStringFun: the identity on its first remaining argument.
HostPtr stringHost(std::string& name, int& nArgs, std::vector<std::string>& strings, std::vector<int>& positions)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {5.0}}});
    host->stringFun = [&, raw = host.get()](const std::string& f, int n, const std::vector<std::string>& s,
                                            const std::vector<int>& p) {
        name = f;
        nArgs = n;
        strings = s;
        positions = p;
        return raw->functions[s.size() + 2 == std::size_t(n) ? "atan2" : "abs"];
    };
    return host;
}

} // namespace

// Values -------------------------------------------------------------------------------------------------------------

struct TextValue
{
    const char* text;
    double expected; // at x = 2, y = 5
};

class EvalTreeValue : public testing::TestWithParam<TextValue>
{
};

TEST_P(EvalTreeValue, IsThatOfTheFormula)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {5.0}}});
    EXPECT_DOUBLE_EQ(realValue(GetParam().text, host), GetParam().expected) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Formulas, EvalTreeValue,
    testing::Values(TextValue{"x+y", 7}, TextValue{"x-y", -3}, TextValue{"x*y", 10}, TextValue{"y/x", 2.5},
                    TextValue{"x^3", 8}, TextValue{"x^y", 32}, TextValue{"-x", -2}, TextValue{"+x", 2},
                    TextValue{"!x", 0}, TextValue{"x<y", 1}, TextValue{"x>y", 0}, TextValue{"x<=2", 1},
                    TextValue{"x>=3", 0}, TextValue{"x==2", 1}, TextValue{"x!=2", 0}, TextValue{"x&&y", 1},
                    TextValue{"x||0", 1}, TextValue{"x&&0", 0}, TextValue{"x^2+y^2", 29}, TextValue{"42", 42},
                    TextValue{"x", 2}, TextValue{"2*(x+3)-y/5", 9}, TextValue{"abs(-x)", 2}, TextValue{"sin(0*x)", 0},
                    TextValue{"cos(x)", std::cos(2.0)}, TextValue{"exp(x)", std::exp(2.0)},
                    TextValue{"sqrt(x+7)", 3}, TextValue{"min(x,y)", 2}, TextValue{"atan2(y,x)", std::atan2(5.0, 2.0)},
                    TextValue{"1-2-3", -4}, TextValue{"2^3^2", 64}, TextValue{"0", 0}, TextValue{"1", 1}));

TEST(EvalTree, EvaluatesComplexSumsOfSquaresWithoutConjugation)
{
    const HostPtr host = makeHost();
    host->complexes = {{"x", {cplx(1, 2)}}, {"y", {cplx(0, 3)}}};
    EXPECT_EQ(evalText("x^2+y^2", host)->getComplex(), cplx(-12, 4)); // (-3+4i) + (-9)
    EXPECT_EQ(textOf(treeOf("x^2+y^2")->getRoot(host)), "plussq(x,y)");
}

TEST(EvalTree, FoldsEveryZeroTreeToAZeroValueForAnyFlags)
{
    const HostPtr host = makeHost();
    for (const unsigned flags : {0u, 1u, 4u, 5u, 0x1eu}) {
        const ValRepPtr value = evalText("0", host, flags);
        EXPECT_TRUE(value->isZero());
        EXPECT_FALSE(value->isNaN());
        EXPECT_TRUE(evalText("0*x", host, flags)->isZero());
    }
}

TEST(EvalTree, GivesConstantsWithoutFlagsAndNaNForVariables)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    for (const unsigned flags : {0u, 1u, 4u, 5u}) {
        EXPECT_EQ(evalText("3", host, flags)->getDouble(), 3.0);
        EXPECT_EQ(evalText("1+2", host, flags)->getDouble(), 3.0);
        // No constant node, yet all its arguments are: left to evaluation, since it turns complex.
        EXPECT_EQ(evalText("sqrt(-4)", host, flags)->getComplex(), cplx(0, 2)) << flags;
        for (const char* text : {"x", "x+1", "sin(x)"}) {
            const ValRepPtr value = evalText(text, host, flags);
            EXPECT_EQ(value->isNaN(), !(flags & EvalValues)) << text << ' ' << flags;
            if (value->isNaN()) {
                EXPECT_EQ(raisedId([&] { value->getDouble(); }), "Unexpected_NaN");
            }
        }
    }
}

TEST(EvalTree, TellsTheStoryOfAnElementFailure)
{
    const HostPtr host = makeHost({{"x", {-1.0, 4.0}}});
    const ValRepPtr value = evalText("1+sqrt(x)", host, EvalValues | EvalKeepReal);
    ASSERT_TRUE(value->isNaN());
    const auto read = [&] { value->getDoubleReader(); };
    EXPECT_EQ(raisedId(read), "sqrt");
    EXPECT_EQ(raisedArgument(read, "exprs"), "1+sqrt(x)");
    EXPECT_EQ(value->getErrors()->getFile(value->getErrors()->size() - 1), "evaltree");
}

struct ElementError
{
    const char* text;
    const char* key;
    const char* function;
};

class EvalTreeElementError : public testing::TestWithParam<ElementError>
{
};

TEST_P(EvalTreeElementError, IsToldByItsKeyWithFunctionAndExpression)
{
    const HostPtr host = makeHost({{"x", {2.0, 3.0}}, {"n", {1.0, std::nan("")}}});
    host->complexes = {{"z", {cplx(1, 2), cplx(1, 0)}}};
    const auto& [text, key, function] = GetParam();

    const ValRepPtr value = evalText(text, host, EvalValues | EvalKeepReal);

    ASSERT_TRUE(value->isNaN()) << text;
    const auto read = [&] { value->getComplexReader(); };
    EXPECT_EQ(raisedId(read), key) << text;
    EXPECT_EQ(raisedArgument(read, "fun"), function) << text;
    EXPECT_EQ(raisedArgument(read, "exprs"), text);
    EXPECT_FALSE(evalText(text, host, EvalValues | EvalKeepReal | EvalIgnoreElementErrors)->isNaN()) << text;
    EXPECT_EQ(realValue("x+1", host), 3.0) << "later evaluations are right";
}

INSTANTIATE_TEST_SUITE_P(
    Keys, EvalTreeElementError,
    testing::Values(ElementError{"sqrt(-x)", "sqrt", "sqrt"}, ElementError{"log(-x)", "log", "log"},
                    ElementError{"log10(-x)", "log", "log10"}, ElementError{"log2(-x)", "log", "log2"},
                    ElementError{"erf(n)", "nan", "erf"}, ElementError{"erf(z)", "erf", "erf"},
                    ElementError{"mod(z,x)", "impl", "mod"}, ElementError{"(-x)^0.5", "pow", "^"},
                    ElementError{"asin(x)", "range", "asin"}, ElementError{"acos(x)", "range", "acos"},
                    ElementError{"asec(x/10)", "range", "asec"}, ElementError{"acsc(x/10)", "range", "acsc"},
                    ElementError{"acosh(x/10)", "range", "acosh"}, ElementError{"acoth(x/10)", "range", "acoth"},
                    ElementError{"asech(x)", "range", "asech"}, ElementError{"atanh(x)", "range", "atanh"},
                    ElementError{"besselk(0,x-x)", "bessel_range", "besselk"},
                    ElementError{"besselj(0.5,-x)", "bessel_cmplx", "besselj"},
                    ElementError{"besselj(z,x)", "bessel_cmplx", "besselj"},
                    ElementError{"qxsmhs(x,z)", "trans", "qxsmhs"}, ElementError{"qxdc1hs(x,z)", "trans", "qxdc1hs"}));

TEST(EvalTree, RequiredQuirkAComplexConstantWhereNoneIsAllowedShowsOnlyTheExpression)
{
    const HostPtr host = makeHost();
    const auto tree = boost::make_shared<EvalTree>(host->getNodeMaker()->makeConstNode(cplx(1, 2)));
    const ValRepPtr value = tree->eval(host, makeCache(), EvalValues | EvalNoComplex);
    EXPECT_EQ(raisedId([&] { value->getDouble(); }), "expreval");
}

TEST(EvalTree, KeepsElementNaNsWhenErrorsOfElementsAreIgnored)
{
    const HostPtr host = makeHost({{"x", {-1.0, 4.0}}});
    const ValRepPtr value = evalText("sqrt(x)", host, EvalValues | EvalKeepReal | EvalIgnoreElementErrors);
    EXPECT_FALSE(value->isNaN());
    EXPECT_TRUE(std::isnan(value->getDoubleIterator(0)[0]));
    EXPECT_EQ(value->getDoubleIterator(0)[1], 2.0);
}

TEST(EvalTree, EvaluatesHostOperators)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {5.0}}});
    host->operators = {{"total", 2}, {"sin", 3}};
    EXPECT_EQ(realValue("total(x,2*y)", host), 12.0);
    EXPECT_EQ(realValue("sin(x,x,x)", host), 6.0);
    EXPECT_EQ(raisedId([&] { evalText("total(x)", host); }), "Unknown_function_name");
    EXPECT_TRUE(evalText("total(x,y)", host, 0)->isNaN());
    EXPECT_EQ(textOf(treeOf("total(x,y)")->getRoot(host)), "total(x,y)");
}

TEST(EvalTree, RequiredQuirkAHostCannotHideFixedFunctionsAndKeywords)
{
    const HostPtr host = makeHost({{"x", {4.0}}});
    for (const char* name : {"abs", "cos", "exp", "sin", "sqrt"})
        host->functions.erase(name);
    EXPECT_EQ(realValue("sqrt(x)", host), 2.0);
    EXPECT_EQ(realValue("abs(-x)", host), 4.0);
    host->functions.erase("log");
    EXPECT_EQ(raisedId([&] { evalText("log(x)", host); }), "Unknown_function_name");
}

TEST(EvalTree, RequiredQuirkNumbersInsideAFormulaPassTheRecognitionOfRationals)
{
    const HostPtr host = makeHost({{"x", {1.0}}});
    EXPECT_EQ(realValue("x*1.23456789", host), 12210011.0 / 9890109.0);
    EXPECT_NE(realValue("x*1.23456789", host), 1.23456789);
    EXPECT_EQ(realValue("x*1.0000000000000002", host), 1.0);
    EXPECT_EQ(realValue("x*0.1", host), 0.1);
}

TEST(EvalTree, TextsOfGraphsReadBackToTheSameValue)
{
    const HostPtr host = makeHost({{"x", {0.3, -1.25}}, {"y", {2.0, 0.5}}});
    for (const char* text : {"x-(y-2)", "-(x+y)", "!(x*y)", "(-x)^2", "-x^2", "x^-0.5", "2^x^y", "x/(y/3)", "min(x,-y)*(x<y&&y>=1)",
                             "(x+y)^3/(x-y)", "1e-300*x", "sin(-x)+tan(x)^-1"}) {
        const EvalNodePtr root = treeOf(text)->getRoot(host);
        const std::string back = textOf(root);
        Array<cplx, 1> first, second;
        evalText(text, host)->copyToArray(first);
        evalText(back, host)->copyToArray(second);
        EXPECT_EQ(std::vector<cplx>(first.begin(), first.end()), std::vector<cplx>(second.begin(), second.end()))
            << text << " prints as " << back;
    }
}

TEST(EvalTree, RequiredQuirkSumsOfSquaresStringsAndComplexConstantsPrintWhatReadsBackAsSomethingElse)
{
    const HostPtr host = makeHost({{"x", {3.0}}, {"y", {4.0}}});
    const NodeMakerPtr& maker = host->getNodeMaker();
    const std::string squares = textOf(treeOf("x^2+y^2")->getRoot(host));
    EXPECT_EQ(squares, "plussq(x,y)");
    EXPECT_EQ(raisedId([&] { evalText(squares, host); }), "Unknown_function_name");
    EXPECT_EQ(textOf(maker->makeStringNode("x")), "x"); // reads back as the variable
    const std::string complex = textOf(maker->makeConstNode(cplx(1, 2)));
    EXPECT_EQ(complex, "(1+2*i)");
    EXPECT_EQ(raisedId([&] { evalText(complex, host); }), "Unknown_variable_name");
    host->complexes["i"] = {cplx(0, 1)};
    EXPECT_EQ(evalText(complex, host)->getComplex(), cplx(1, 2));
}

// Parsing ------------------------------------------------------------------------------------------------------------

TEST(EvalTree, ParsesOnce)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    const EvalTreePtr tree = treeOf("x+1");
    EXPECT_FALSE(tree->isParsed());
    const EvalNodePtr root = tree->getRoot(host);
    EXPECT_TRUE(tree->isParsed());
    host->getNodeMaker()->reset();
    EXPECT_EQ(tree->getRoot(host), root);
}

TEST(EvalTree, ParsesOnceUnderEightThreads)
{
    const EvalTreePtr tree = treeOf("sin(x)+x*(x-1)/(x+2)");
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    struct Job
    {
        EvalTreePtr tree;
        NodeMakerPtr maker;
        EvalNode* root = nullptr;
        double value = 0;
    };
    const auto work = [](void* argument) -> void* {
        Job& job = *static_cast<Job*>(argument);
        const auto host = boost::make_shared<Host>(job.maker);
        host->reals["x"] = {2.0};
        job.value = job.tree->eval(host, makeCache(), EvalValues)->getDouble();
        job.root = job.tree->getRoot(host).get();
        return nullptr;
    };
    std::vector<Job> jobs(8, Job{tree, maker});
    std::vector<pthread_t> threads(8);
    for (std::size_t i = 0; i < threads.size(); ++i)
        ASSERT_EQ(pthread_create(&threads[i], nullptr, work, &jobs[i]), 0);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    for (const Job& job : jobs) {
        EXPECT_EQ(job.root, jobs[0].root);
        EXPECT_DOUBLE_EQ(job.value, std::sin(2.0) + 0.5);
    }
}

class EvalTreeSyntaxError : public testing::TestWithParam<const char*>
{
};

TEST_P(EvalTreeSyntaxError, RaisesWithTheExpression)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {2.0}}});
    const auto parse = [&] { treeOf(GetParam())->parse(host); };
    EXPECT_EQ(raisedId(parse), "Syntax_error_in_expression");
    EXPECT_EQ(raisedArgument(parse, "Expression"), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Texts, EvalTreeSyntaxError,
                         testing::Values("", " ", "x+", "(x", "x)", "x y", "1..2", "x[m]", "[x,y]", "x,y",
                                         "sin(x[m])", "f('a", "x=y", "2x", "1,5"));

TEST(EvalTree, IsUnparsedAfterAFailureAndParsesLater)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    const EvalTreePtr tree = treeOf("later(x)");
    EXPECT_EQ(raisedId([&] { tree->parse(host); }), "Unknown_function_name");
    EXPECT_FALSE(tree->isParsed());
    host->functions["later"] = host->functions["sqrt"];
    EXPECT_DOUBLE_EQ(tree->eval(host, makeCache(), EvalValues)->getDouble(), std::sqrt(2.0));
}

TEST(EvalTree, TakesAnyNameForAVariableTree)
{
    const HostPtr host = makeHost({{"comp1.T+1", {2.0}}});
    EvalTree tree("comp1.T+1", true);
    EXPECT_EQ(tree.eval(host, makeCache(), EvalValues)->getDouble(), 2.0);
    EXPECT_EQ(tree.getExpr(), "comp1.T+1");
}

TEST(EvalTree, RequiredQuirkLiteralsMoveByAFewUnitsInTheLastPlace)
{
    // Numbers within a text become the short fraction that is close enough; a text of nothing but a number does not.
    const HostPtr host = makeHost({{"x", {1.0}}});
    EXPECT_EQ(realValue("x*1.0000000000000002", host), 1.0);
    EXPECT_NE(realValue("x*1.23456789", host), 1.23456789);
    EXPECT_NEAR(realValue("x*1.23456789", host), 1.23456789, 20 * 2.3e-16);
    EXPECT_EQ(realValue("x*0.1", host), 0.1);
}

TEST(EvalTree, RaisesWithoutARoot)
{
    const HostPtr host = makeHost();
    EvalTree tree{EvalNodePtr()};
    const auto fails = [&](auto&& work) { EXPECT_EQ(raisedId(work), "Evaluation_internal_error"); };
    fails([&] { tree.eval(host, makeCache(), EvalValues); });
    fails([&] { tree.diff("x", host); });
    fails([&] { tree.simplify(host); });
    fails([&] { tree.depends({"x"}, host); });
    fails([&] { tree.jacDepends({"x"}, host); });
}

TEST(EvalTree, RefusesToBeParsedWhileItIsParsed)
{
    class Reentrant : public Host
    {
    public:
        EvalTree* tree = nullptr;
        VarEvaluatorPtr self;
        bool isOp(const std::string&, int) override
        {
            tree->parse(self);
            return false;
        }
    };
    const auto host = boost::make_shared<Reentrant>();
    EvalTree tree("f(x)", false);
    host->tree = &tree;
    host->self = VarEvaluatorPtr(VarEvaluatorPtr(), host.get());
    EXPECT_EQ(raisedId([&] { tree.parse(host); }), "Evaluation_internal_error");
}

TEST(EvalTree, MakesKeywordsOfTheRightArgumentCountsOnly)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {3.0}}});
    const auto target = [&](const char* text) {
        return dynamic_cast<const ProxyNode&>(*treeOf(text)->getRoot(host)).getTarget();
    };
    EXPECT_TRUE(dynamic_cast<const DiffNode*>(target("d(x*y,x)").get()));
    EXPECT_EQ(dynamic_cast<const DiffNode&>(*target("d(x*y,x)")).getMode(), 0u);
    EXPECT_EQ(dynamic_cast<const DiffNode&>(*target("pd(x*y,x)")).getMode(), 1u);
    EXPECT_TRUE(dynamic_cast<const UDepNode*>(target("depends(x)").get()));
    EXPECT_TRUE(dynamic_cast<const DepNode*>(target("depends(x,y)").get()));
    EXPECT_TRUE(dynamic_cast<const JacUDepNode*>(target("jacdepends(x)").get()));
    EXPECT_TRUE(dynamic_cast<const JacDepNode*>(target("jacdepends(x,y)").get()));
    EXPECT_TRUE(dynamic_cast<const OpNode*>(target("islinear(x)").get()));

    for (const char* text : {"d(x)", "d(x,y,x)", "pd(x)", "depends(x,y,x)", "jacdepends(x,y,x)", "islinear(x,y)"})
        EXPECT_EQ(raisedId([&] { treeOf(text)->parse(host); }), "Unknown_function_name") << text;

    host->operators = {{"islinear", 2}, {"d", 3}};
    EXPECT_EQ(realValue("islinear(x,y)", host), 5.0);
    EXPECT_EQ(realValue("d(x,y,y)", host), 8.0);
}

struct StringCase
{
    const char* text;
    std::vector<std::string> strings;
    std::vector<int> positions;
    int nArgs;
};

class EvalTreeStringCall : public testing::TestWithParam<StringCase>
{
};

TEST_P(EvalTreeStringCall, HandsStringsOverWithTheirPositions)
{
    std::string name;
    int nArgs = 0;
    std::vector<std::string> strings;
    std::vector<int> positions;
    const HostPtr host = stringHost(name, nArgs, strings, positions);

    const double value = realValue(GetParam().text, host);

    EXPECT_EQ(name, "f");
    EXPECT_EQ(nArgs, GetParam().nArgs);
    EXPECT_EQ(strings, GetParam().strings);
    EXPECT_EQ(positions, GetParam().positions);
    const bool two = GetParam().nArgs - int(GetParam().strings.size()) == 2;
    EXPECT_DOUBLE_EQ(value, two ? std::atan2(2.0, 5.0) : 2.0) << "the other arguments stay in source order";
}

INSTANTIATE_TEST_SUITE_P(Positions, EvalTreeStringCall,
                         testing::Values(StringCase{"f('a',x)", {"a"}, {0}, 2}, StringCase{"f(x,'a')", {"a"}, {1}, 2},
                                         StringCase{"f(x,'a',y)", {"a"}, {1}, 3},
                                         StringCase{"f('a',x,'b',y)", {"a", "b"}, {0, 2}, 4},
                                         StringCase{"f('it''s',x)", {"it's"}, {0}, 2}));

TEST(EvalTree, CallsExternalFunctionsOfStringsAtOnce)
{
    std::string name;
    int nArgs = 0;
    std::vector<std::string> strings;
    std::vector<int> positions;
    const HostPtr host = stringHost(name, nArgs, strings, positions);
    EXPECT_EQ(raisedId([&] { treeOf("f('a','b')")->parse(host); }), "Internal_error_callback");
    EXPECT_EQ(strings, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(nArgs, 2);
}

TEST(EvalTree, RaisesForAStringThatIsNoArgument)
{
    const HostPtr host = makeHost();
    EXPECT_EQ(raisedId([&] { evalText("'a'", host); }), "Strings_are_only_allowed_in_function_arguments");
    EXPECT_EQ(raisedId([&] { evalText("1+'a'", host); }), "Strings_are_only_allowed_in_function_arguments");
}

TEST(EvalTree, LeavesNothingBehindWhenAnAllocationFails)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {5.0}}});
    const EvalTreePtr tree = treeOf("x*y+sqrt(x)-d(x^2,x)");
    const double expected = 10 + std::sqrt(2.0) - 4;
    double value = 0.0;
    failEveryAllocation(
        [&] {
            value = 0.0;
            value = treeOf("x*y+sqrt(x)-d(x^2,x)")->eval(host, makeCache(), EvalValues)->getDouble();
        },
        [&](const FaultRun& run) {
            EXPECT_EQ(run.id, "") << run.n;
            EXPECT_NE(run.badAlloc, value == expected) << run.n << ": the value, unless memory was needed";
            EXPECT_EQ(host->getRecCount()->getDepth(), 0) << run.n;
        });
    EXPECT_EQ(tree->eval(host, makeCache(), EvalValues)->getDouble(), expected);
}

TEST(EvalTree, LeaksNothingFromTextToValueWhicheverAllocationFails)
{
    const auto textToValue = [] {
        const HostPtr host = makeHost({{"x", {2.0, 3.0}}, {"y", {5.0, 6.0}}});
        host->definitions = {{"k", "1+0.25*x"}};
        const auto cache = makeCache(boost::make_shared<SerialArrayAllocator>(2, 1000));
        for (const char* text : {"k*(x^2+y^2)-sqrt(k*y)+min(x,2.5)", "d(sin(k*x),x)", "besselj(0.5,x)+k", "x+(", "log(-x)*frob(x)"})
            try {
                treeOf(text)->eval(host, cache, EvalValues)->getComplexReader();
            } catch (const qxbase::Exception&) { // the last two
            }
    };
    textToValue(); // what threads and libraries keep is made once
    const auto watched = [&](const FaultRun& run) {
        EXPECT_TRUE(run.badAlloc || !run.faulted || run.id.empty()) << run.n << ' ' << run.id;
        EXPECT_LE(run.leaked, 0) << run.n;
    };
    EXPECT_GT(failEveryAllocation(textToValue, watched), 500);
}

TEST(EvalTree, ValuesOfNoPointsHaveNoPoints)
{
    const HostPtr host = makeHost();
    host->reals = {{"x", {}}, {"y", {}}, {"s", {2.0}}};
    host->complexes = {{"z", {}}};
    for (const char* text : {"x", "x+y", "s*x-2", "sin(x)", "sqrt(x)", "x^2+y^2", "x^s", "z*x", "abs(z)", "x<y", "min(x,s)",
                             "besselj(1,x)", "d(x^3,x)", "erf(x)", "x/0", "mod(x,y)"})
        for (const unsigned flags : {unsigned(EvalValues), EvalValues | EvalKeepReal}) {
            const ValRepPtr value = evalText(text, host, flags);
            EXPECT_FALSE(value->isNaN()) << text;
            EXPECT_FALSE(value->isScalar()) << text;
            EXPECT_EQ(value->getSize(), 0u) << text;
            Array<cplx, 1> out;
            value->copyToArray(out);
            EXPECT_EQ(out.size(), 0u) << text;
        }
    EXPECT_EQ(realValue("s+1", host), 3.0) << "later evaluations are right";
}

// Combined trees -----------------------------------------------------------------------------------------------------

TEST(EvalTree, CombinesTreesWithoutParsingThem)
{
    const HostPtr host = makeHost({{"x", {2.0}}, {"y", {5.0}}});
    struct Case
    {
        EvalTreePtr tree;
        const char* text;
        double value;
    };
    const EvalTreePtr a = treeOf("x+1"), b = treeOf("y");
    for (const Case& c : {Case{EvalTree::plus(a, b), "(x+1)+(y)", 8}, {EvalTree::minus(a, b), "(x+1)-(y)", -2},
                          {EvalTree::times(a, b), "(x+1)*(y)", 15}, {EvalTree::uminus(a), "-(x+1)", -3}}) {
        EXPECT_EQ(c.tree->getExpr(), c.text);
        EXPECT_FALSE(c.tree->isParsed());
        EXPECT_EQ(c.tree->eval(host, makeCache(), EvalValues)->getDouble(), c.value);
    }
    EXPECT_TRUE(a->isParsed());
}

TEST(EvalTree, TakesTheTextOfItsNode)
{
    const HostPtr host = makeHost();
    const EvalNodePtr root = treeOf("a*b")->getRoot(host);
    EXPECT_EQ(EvalTree(root).getExpr(), "(a*b)");
    EXPECT_EQ(EvalTree(root, "name").getExpr(), "name");
    EXPECT_EQ(EvalTree(root).getRoot(host), root);
}

TEST(EvalTree, HasAnIdOfItsOwnInEachCopy)
{
    const HostPtr host = makeHost({{"x", {2.0}}});
    EvalTree tree("x+1", false);
    tree.parse(host);
    EvalTree copy(tree);
    EXPECT_NE(copy.getId(), tree.getId());
    EXPECT_TRUE(copy.isParsed());
    EXPECT_EQ(copy.getRoot(host), tree.getRoot(host));

    EvalTree other("x+2", false);
    const unsigned long before = other.getId();
    other = tree;
    EXPECT_NE(other.getId(), before);
    EXPECT_NE(other.getId(), tree.getId());
    EXPECT_EQ(other.eval(host, makeCache(), EvalValues)->getDouble(), 3.0);
    other = *&other;
    EXPECT_EQ(other.getExpr(), "x+1");
}

// The end of the process ---------------------------------------------------------------------------------------------

namespace {

/// Evaluates when static objects end: after the thread's own storage.
class EvaluatesAtTheEnd
{
public:
    ~EvaluatesAtTheEnd()
    {
        if (!armed)
            return;
        const HostPtr host = makeHost({{"x", {1.0, 2.0}}, {"y", {3.0}}});
        const ValRepPtr value = evalText("max(x,y)*x+sqrt(x)-min(y,1)", host);
        const double wanted = 3.0 * 2.0 + std::sqrt(2.0) - 1.0;
        std::_Exit((*value->getDoubleReader())(1, 0) == wanted ? 17 : 18);
    }
    bool armed = false;
} evaluatesAtTheEnd;

} // namespace

TEST(EvalTreeDeathTest, EvaluatesFromAStaticDestructor)
{
    EXPECT_EXIT(
        {
            realValue("1+x^2+sin(x)", makeHost({{"x", {2.0}}})); // the thread's storage is in use
            evaluatesAtTheEnd.armed = true;
            std::exit(0);
        },
        testing::ExitedWithCode(17), "");
}

// Cancel -------------------------------------------------------------------------------------------------------------

namespace {

/// Variables of several blocks; the variable "stop" cancels the run when it is asked for.
class CancellingHost : public Host
{
public:
    qxutil::RunInfo run;
    int blocks = 1;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep, const ValRepCachePtr&) override
    {
        ++evaluations[name];
        if (name == "stop")
            run.cancel();
        rep->reset(false, false, 3);
        for (int b = 0; b < blocks; ++b) {
            DArrayPtr out;
            rep->addDArray(out);
            std::fill_n(rep->getDoubleIterator(b), 3, 2.0 + b);
        }
    }
    using Host::eval;
};

/// The identity; cancels the run at its third block.
class CancelAtThree : public UnFunObj
{
public:
    explicit CancelAtThree(qxutil::RunInfo& run) : run_(run) {}
    using UnFunObj::operator();
    unsigned int operator()(const D&) const override { return 0; }
    unsigned int operator()(const C&) const override { return 0; }
    unsigned int operator()(const DA&, Size) const override
    {
        if (++calls == 3)
            run_.cancel();
        return 0;
    }
    unsigned int operator()(const CA&, Size) const override { return 0; }
    std::string getName() const override { return "cancelatthree"; }
    bool isBuiltin() const override { return false; }
    mutable int calls = 0;

private:
    qxutil::RunInfo& run_;
};

} // namespace

TEST(EvalCancel, StopsBetweenOperationsAndCanBeRepeated)
{
    const auto host = boost::make_shared<CancellingHost>();
    for (const char* text : {"x*x+sin(stop)", "sin(stop)*x+x^2", "max(stop,2)^x", "a+x"}) {
        host->definitions["a"] = "stop*2";
        const EvalTreePtr tree = treeOf(text);
        const ValRepCachePtr cache = makeCache();
        host->run.cancel(false);
        EXPECT_THROW(tree->eval(host, cache, EvalValues, &host->run), qxbase::CancelException) << text;
        EXPECT_THROW(tree->eval(host, makeCache(), EvalValues, &host->run), qxbase::CancelException) << "still cancelled";

        host->run.cancel(false);
        const ValRepPtr again = tree->eval(host, cache, EvalValues); // nobody cancels this one
        EXPECT_EQ(again->toString(), tree->eval(host, makeCache(), EvalValues)->toString()) << text;
        EXPECT_EQ(cache->getVar("x", EvalValues).second->getDoubleIterator(0)[2], 2.0) << text;
    }
}

TEST(EvalCancel, StopsBetweenTwoBlocksOfOneOperation)
{
    const auto host = boost::make_shared<CancellingHost>();
    host->blocks = 1000;
    const auto function = boost::make_shared<CancelAtThree>(host->run);
    host->functions["cancelatthree"] = function;
    const EvalTreePtr tree = treeOf("cancelatthree(x)+1");
    EXPECT_THROW(tree->eval(host, makeCache(), EvalValues, &host->run), qxbase::CancelException);
    EXPECT_EQ(function->calls, 3);

    host->run.cancel(false);
    EXPECT_EQ(tree->eval(host, makeCache(), EvalValues, &host->run)->getDoubleIterator(999)[1], 1002.0);
}

TEST(EvalCancel, AsksForNoFurtherVariable)
{
    const auto host = boost::make_shared<CancellingHost>();
    EvalTreeSet set({treeOf("stop+1"), treeOf("x+y")});
    std::vector<ValRepPtr> values;
    EXPECT_THROW(set.eval(host, makeCache(), EvalValues, values, &host->run), qxbase::CancelException);
    EXPECT_EQ(host->evaluations["stop"], 1);
    EXPECT_EQ(host->evaluations["x"] + host->evaluations["y"], 0);

    host->run.cancel(false);
    set.eval(host, makeCache(), EvalValues, values);
    EXPECT_EQ(values[1]->getDoubleIterator(0)[0], 4.0);
    EXPECT_EQ(set.getTrees()[1]->eval(host, makeCache(), EvalValues)->getDoubleIterator(0)[0], 4.0)
        << "the cancelled run ends with the call that it was given to";
}

// The steady state ---------------------------------------------------------------------------------------------------

/// Formula, and blocks of each variable: a program takes one, more are left to value objects.
class EvalTreeSteadyState : public testing::TestWithParam<std::tuple<const char*, int>>
{
};

TEST_P(EvalTreeSteadyState, TouchesNoAllocator)
{
    /// Fills its variables without allocating.
    class QuietHost : public Host
    {
    public:
        int blocks = 1;
        void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
                  const ValRepCachePtr&) override
        {
            rep->reset(false, false, 1000);
            for (int b = 0; b < blocks; ++b) {
                DArrayPtr out;
                rep->addDArray(out);
                double* const values = rep->getDoubleIterator(b);
                for (int i = 0; i < 1000; ++i)
                    values[i] = (name[0] - 'w') * 0.1 + i * 0.001 + b * 0.05;
            }
        }
    };
    const auto [text, blocks] = GetParam();
    const auto host = boost::make_shared<QuietHost>();
    host->blocks = blocks;
    const auto cache = makeCache(boost::make_shared<SerialArrayAllocator>(1000, 0));
    const EvalTreePtr tree = treeOf(text);
    const auto pass = [&] {
        cache->reset();
        return tree->eval(host, cache, EvalValues)->getComplex();
    };
    const cplx value = pass();
    pass();

    const long before = allocationCount();
    EXPECT_EQ(pass(), value);
    EXPECT_EQ(allocationCount() - before, 0) << text << " of " << blocks;
}

INSTANTIATE_TEST_SUITE_P(
    Formulas, EvalTreeSteadyState,
    testing::Combine(testing::Values("x", "x+y", "2*x+3*y+1", "x^2+y^2", "(x>0.5)*x*(1-x)+abs(y)",
                                     "sin(x)*exp(-y^2)+sqrt(x^2+y^2+1)", "x^1.5", "min(x,y)", "log(x+2)/tan(y+1)",
                                     "sqrt(x-1)*sqrt(y)", "besselj(1,x)+erf(y)"),
                     testing::Values(1, 2, 5)));

// Hosts --------------------------------------------------------------------------------------------------------------

TEST(EvalTree, ReadsAndWritesPointsUnderACommaLocale)
{
    const CommaLocale comma;
    ASSERT_TRUE(CommaLocale::isInForce());
    const HostPtr host = makeHost({{"x", {1234.5, -0.25}}, {"y", {2.5}}});

    EXPECT_EQ(realValue("1.5*y", host), 3.75);
    EXPECT_EQ(realValue("min(1,5)", host), 1.0);
    EXPECT_EQ(raisedId([&] { evalText("1,5", host); }), "Syntax_error_in_expression");
    EXPECT_EQ(evalText("x", host)->toString(), "1234.5, -0.25");
    host->complexes = {{"z", {cplx(0.5, -1234.5)}}};
    EXPECT_EQ(evalText("z", host)->toString(), "(0.5-1234.5*i)");
    EXPECT_EQ(textOf(treeOf("x-1234567.5")->getRoot(host)), "(x-1234567.5)");
    const NodeMakerPtr& maker = host->getNodeMaker();
    EXPECT_EQ(maker->makeConstNode("0.5")->getScalar()->getDouble(), 0.5);
    const EvalNodePtr root = maker->makeOpNode(makeConstPow(0.5), {maker->makeVarNode("x")});
    EXPECT_EQ(textOf(root), "(x^0.5)");
}

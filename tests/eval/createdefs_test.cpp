// SPDX-License-Identifier: LicenseRef-qxkernel
// Nodes and function objects as definitions of the expression compiler.

#include "host.hpp"

#include "classfile.hpp"
#include "evalfun_binary.hpp"
#include "evalfun_spec.hpp"
#include "exprcomp.hpp"
#include "funfactory.hpp"
#include "qxmathfun.hpp"
#include "support/alloc_fault.hpp"
#include "support/deep_stack.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>

using namespace qxtest;

namespace {

/// A compiler that shows its list.
struct Compiler : ExprComp
{
    using ExprComp::defs;

    int feed(const EvalNodePtr& node, const HostPtr& host) { return node->createDefs(*this, names_, nextId_, host); }
    int feed(const std::string& text, const HostPtr& host) { return feed(treeOf(text)->getRoot(host), host); }
    int idOf(const std::string& name)
    {
        const QxHashLookup hit = names_.lookup(name);
        return hit ? names_.at(hit.slot) : -1;
    }
    /// Everything that has a name and no definition.
    std::vector<double> values(const std::vector<std::pair<std::string, double>>& inputValues, const std::vector<int>& ids)
    {
        std::vector<double> in, out;
        for (const auto& [name, value] : inputValues) {
            addInput(idOf(name) >= 0 ? idOf(name) : nextId_++);
            in.push_back(value);
        }
        for (const int id : ids)
            addOutput(id);
        std::vector<unsigned char> bytes;
        compile("T", "f", bytes, false);
        eval(in, out);
        return out;
    }

    DefIds names_;
    int nextId_ = 0;
};

double compiledValue(const std::string& text, const HostPtr& host, double x, double y)
{
    Compiler comp;
    const int id = comp.feed(text, host);
    return comp.values({{"x", x}, {"y", y}}, {id})[0];
}

std::string refusal(const std::string& text, const HostPtr& host)
{
    Compiler comp;
    return raisedId([&] { comp.feed(text, host); });
}

} // namespace

TEST(CreateDefs, ConstantsAndTheirSmallForms)
{
    const HostPtr host = makeHost();
    Compiler comp;

    for (const EvalNodePtr& node :
         {host->getNodeMaker()->makeZeroNode(), host->getNodeMaker()->makeUnitNode(), host->getNodeMaker()->makeNUnitNode(),
          host->getNodeMaker()->makeConstNode(2.5), host->getNodeMaker()->makeConstNode(cplx(3, 0)),
          host->getNodeMaker()->makeConstNode(std::nan(""))})
        comp.feed(node, host);

    ASSERT_EQ(comp.defs.size(), 6u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(comp.defs[static_cast<std::size_t>(i)].kind, 37);
        EXPECT_EQ(comp.defs[static_cast<std::size_t>(i)].id, i);
        EXPECT_EQ(comp.defs[static_cast<std::size_t>(i)].value, (std::vector<double>{0, 1, -1, 2.5, 3})[static_cast<std::size_t>(i)]);
    }
    EXPECT_TRUE(std::isnan(comp.defs[5].value));
}

TEST(CreateDefs, ComplexConstantsStringsAndHostFunctionsAreRefused)
{
    const HostPtr host = makeHost({{"x", {1}}});
    host->operators["op"] = 1;
    Compiler comp;

    EXPECT_EQ(raisedId([&] { comp.feed(host->getNodeMaker()->makeConstNode(cplx(1, 2)), host); }),
              "Definition set may not contain complex variables.");
    EXPECT_EQ(refusal("op(x)", host), "Cannot create definitions from GenOpNode::op");
    EXPECT_EQ(refusal("depends(x)", host), "Cannot create definitions from UDepNode");
    try {
        comp.feed(host->getNodeMaker()->makeStringNode("text"), host);
        FAIL() << "nothing raised";
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Strings_are_only_allowed_in_function_arguments");
        ASSERT_EQ(e.size(), 2u);
        EXPECT_EQ(e.getId(1), "Cannot create definitions from StringNode");
    }
}

TEST(CreateDefs, FunctionsHaveTheKindsOfTheTable)
{
    const std::map<std::string, int> kinds{
        {"abs", 1}, {"acos", 2}, {"&&", 3}, {"asin", 4}, {"atan", 5}, {"atan2", 6}, {"ceil", 7}, {"conj", 8}, {"cos", 9},
        {"cosh", 10}, {"cot", 11}, {"coth", 12}, {"csc", 13}, {"csch", 14}, {"/", 15}, {"==", 17}, {"exp", 18}, {"fix", 19},
        {"floor", 20}, {">=", 21}, {">", 22}, {"imag", 25}, {"<=", 26}, {"log", 27}, {"log10", 28}, {"log2", 29}, {"<", 30},
        {"max", 31}, {"min", 32}, {"-", 33}, {"mod", 34}, {"!=", 35}, {"!", 36}, {"||", 38}, {"+", 39}, {"real", 44},
        {"round", 45}, {"sec", 46}, {"sech", 47}, {"sign", 48}, {"sin", 49}, {"sinh", 50}, {"sqrt", 51}, {"tan", 52},
        {"tanh", 53}, {"*", 54}, {"U-", 55}, {"U+", 56}};
    std::vector<FunObjPtr> functions;
    makeStandardFunctions(functions);
    for (int id = ABS; id <= UPLUS; ++id)
        functions.push_back(makeFunObj(static_cast<FunId>(id)));
    const HostPtr host = makeHost();
    const EvalNodes args{host->getNodeMaker()->makeVarNode("x"), host->getNodeMaker()->makeVarNode("y")};
    std::map<std::string, int> seen;

    for (const FunObjPtr& f : functions) {
        Compiler comp;
        const EvalNodes own(args.begin(), args.begin() + f->nArgs());
        const auto define = [&] { return f->createDefs(own, comp, comp.names_, comp.nextId_, host); };
        const auto kind = kinds.find(f->getName());
        if (kind == kinds.end()) {
            const bool composite = f->getName() == "^" || f->getName() == "plussq" || f->getName().substr(0, 2) == "qx";
            EXPECT_EQ(raisedId(define), composite ? "" : "Cannot create definitions from " + f->getName());
            continue;
        }
        seen[f->getName()] = 1;
        const int id = define();
        ASSERT_EQ(comp.defs.size(), 1u) << f->getName();
        EXPECT_EQ(comp.defs[0].kind, kind->second) << f->getName();
        EXPECT_EQ(comp.defs[0].id, id);
        EXPECT_EQ(id, f->nArgs()); // arguments first
        for (int i = 0; i < f->nArgs(); ++i)
            EXPECT_EQ(comp.defs[0].args[static_cast<std::size_t>(i)], i) << f->getName();
    }
    EXPECT_EQ(seen.size(), kinds.size());
}

TEST(CreateDefs, FunctionsWithoutACompiledFormAreRefusedByName)
{
    const HostPtr host = makeHost({{"x", {1}}});
    for (const char* name : {"arg", "erf", "acot", "acsc", "asec", "acosh", "acoth", "acsch", "asech", "asinh", "atanh"})
        EXPECT_EQ(refusal(std::string(name) + "(x)", host), std::string("Cannot create definitions from ") + name);
    for (const char* name : {"realdot", "bessel", "besselj", "bessely", "besseli", "besselk"})
        EXPECT_EQ(refusal(std::string(name) + "(x,x+1)", host), std::string("Cannot create definitions from ") + name);
}

TEST(CreateDefs, PowersWithAFixedExponentAndSumsOfSquares)
{
    const HostPtr host = makeHost();
    for (const double e : {-2.0, -1.0, 2.0, 3.0, 4.0, 0.5}) {
        Compiler comp;
        const EvalNodePtr x = host->getNodeMaker()->makeVarNode("x");
        const EvalNodePtr power = boost::make_shared<OpNode>(makeConstPow(e), EvalNodes{x}, 1000 + static_cast<unsigned long>(e + 5));
        const int id = comp.feed(power, host);
        EXPECT_EQ(comp.defs.back().kind, 40);
        EXPECT_DOUBLE_EQ(comp.values({{"x", 1.5}}, {id})[0], std::pow(1.5, e)) << e;
    }
    Compiler comp;
    const EvalNodePtr sum = host->getNodeMaker()->makeOpNode(PLUSSQ, host->getNodeMaker()->makeVarNode("x"),
                                                             host->getNodeMaker()->makeVarNode("y"));
    const int id = comp.feed(sum, host);
    ASSERT_EQ(comp.defs.size(), 3u);
    EXPECT_EQ(comp.defs[0].kind, 41);
    EXPECT_EQ(comp.defs[1].kind, 41);
    EXPECT_EQ(comp.values({{"x", 3}, {"y", 4}}, {id})[0], 25);
}

TEST(CreateDefs, SmoothedStepsHaveTheValuesOfTheGraph)
{
    const double inf = std::numeric_limits<double>::infinity();
    for (const char* name : {"qxsmhs", "qxdsmhs", "qxsmsign", "qxdsmsign", "qxc1hs", "qxdc1hs", "qxc2hs", "qxdc2hs"})
        for (const double x : {-2.0, -1.0, -0.999, -0.25, 0.0, 0.1, 0.7, 1.0, 1.5, inf, -inf})
            for (const double w : {1.0, 0.5, 0.0, -1.0}) {
                const HostPtr host = makeHost({{"x", {x}}, {"y", {w}}});
                const std::string text = std::string(name) + "(x,y)";
                EXPECT_EQ(compiledValue(text, host, x, w), realValue(text, host, EvalValues | EvalKeepReal)) << text << x << ' ' << w;
            }
}

TEST(CreateDefs, SumsOfManyTermsAreChains)
{
    const HostPtr host = makeHost();
    EvalNodes args;
    for (const char* name : {"x", "y", "z"})
        args.push_back(host->getNodeMaker()->makeVarNode(name));
    Compiler comp;
    const int id = GenAddFun("add", 3).createDefs(args, comp, comp.names_, comp.nextId_, host);

    EXPECT_EQ(comp.defs.size(), 2u);
    EXPECT_EQ(comp.values({{"x", 1}, {"y", 2}, {"z", 4}}, {id})[0], 7);
}

TEST(CreateDefs, HostOperatorsThatEveryCompilerKnows)
{
    const HostPtr host = makeHost();
    const EvalNodePtr x = host->getNodeMaker()->makeVarNode("x"), y = host->getNodeMaker()->makeVarNode("y");
    const auto kind = [&](const std::string& name, const EvalNodes& args) {
        Compiler comp;
        comp.feed(host->getNodeMaker()->makeGenOpNode(name, args), host);
        return comp.defs.back().kind;
    };

    EXPECT_EQ(kind("real", {x}), 44);
    EXPECT_EQ(kind("imag", {x}), 25);
    EXPECT_EQ(kind("conj", {x}), 8);
    EXPECT_EQ(kind("abs", {x}), 1);
    EXPECT_EQ(kind("if", {x, y, x}), 24);
    for (const auto& [name, args] : std::vector<std::pair<std::string, EvalNodes>>{
             {"if", {x, y}}, {"real", {x, y}}, {"sin", {x}}, {"max", {x, y}}, {"", {x}}})
        EXPECT_EQ(raisedId([&, n = name, a = args] { kind(n, a); }), "Cannot create definitions from GenOpNode::" + name);
}

TEST(CreateDefs, VariablesAreDefinedOnceByTheHostsExpression)
{
    const HostPtr host = makeHost();
    host->definitions = {{"r", "x^2+y^2"}, {"s", "r+1"}};
    Compiler comp;
    const int first = comp.feed("s*r", host);
    const std::size_t size = comp.defs.size();
    const int second = comp.feed("r-s", host);

    EXPECT_EQ(comp.defs.size(), size + 1); // both names are known
    EXPECT_EQ(comp.getVarName(comp.idOf("r")), "r");
    const std::vector<double> values = comp.values({{"x", 1}, {"y", 2}}, {first, second});
    EXPECT_EQ(values, (std::vector<double>{30, -1}));
}

TEST(CreateDefs, VariablesWithoutAnExpressionStayUndefined)
{
    const HostPtr host = makeHost();
    Compiler comp;
    comp.addOutput(comp.feed("sin(x)", host));
    std::vector<unsigned char> bytes;

    EXPECT_EQ(raisedId([&] { comp.compile("T", "f", bytes, false); }), "Undefined inputs: x");
}

TEST(CreateDefs, CircularNamesBecomeACycleThatTheCompilerNames)
{
    const HostPtr host = makeHost();
    host->definitions = {{"a", "b+1"}, {"b", "a+1"}};
    Compiler comp;
    comp.addOutput(comp.feed("a", host));
    std::vector<unsigned char> bytes;

    EXPECT_EQ(raisedId([&] { comp.compile("T", "f", bytes, false); }).substr(0, 33), "Cyclic dependency for definition ");
}

TEST(CreateDefs, DerivativesAreTheDefinitionsOfWhatTheyResolveTo)
{
    const HostPtr host = makeHost();
    host->definitions = {{"r", "x^3"}};
    Compiler comp;
    const int direct = comp.feed("d(sin(x)*y,x)", host);
    const int named = comp.feed(host->getNodeMaker()->makeVarDiffNode(host->getNodeMaker()->makeVarNode("r"), "r", "x"), host);
    const std::size_t size = comp.defs.size();
    EXPECT_EQ(comp.feed("d(sin(x)*y,x)", host), direct);
    EXPECT_EQ(comp.defs.size(), size);

    const std::vector<double> values = comp.values({{"x", 0.5}, {"y", 2}}, {direct, named});

    EXPECT_EQ(comp.getVarName(-1), "x");
    EXPECT_DOUBLE_EQ(values[0], 2 * std::cos(0.5));
    EXPECT_DOUBLE_EQ(values[1], 0.75);
}

TEST(CreateDefs, SharedNodesBecomeOneDefinition)
{
    // Sixty levels of p * p: 2^60 operations if they were written out.
    const HostPtr host = makeHost();
    EvalNodePtr p = host->getNodeMaker()->makeVarNode("x");
    const FunObjPtr product = makeFunObj(TIMES);
    for (unsigned long i = 0; i < 60; ++i) // the factory would make squares
        p = boost::make_shared<ProxyNode>(boost::make_shared<OpNode>(product, EvalNodes{p, p}, 1000 + 2 * i), 1001 + 2 * i);
    Compiler comp;
    const int id = comp.feed(p, host);

    EXPECT_EQ(comp.defs.size(), 60u);
    EXPECT_EQ(comp.feed(p, host), id);
    EXPECT_EQ(comp.defs.size(), 60u);
    EXPECT_EQ(comp.values({{"x", 1}}, {id})[0], 1);
}

TEST(CreateDefs, DerivativeOfASharedGraphIsFedInLinearTime)
{
    const HostPtr host = makeHost();
    EvalNodePtr p = host->getNodeMaker()->makeVarNode("x");
    for (int i = 0; i < 60; ++i)
        p = host->getNodeMaker()->makeOpNode(TIMES, p, p);
    Compiler comp;
    const int id = comp.feed(host->getNodeMaker()->makeDiffNode(p, host->getNodeMaker()->makeVarNode("x"), 0), host);

    EXPECT_LT(comp.defs.size(), 400u);
    EXPECT_EQ(comp.values({{"x", 1}}, {id})[0], std::ldexp(1.0, 60)); // x^(2^60)
}

TEST(CreateDefs, OneGraphFeedsManyCompilers)
{
    const HostPtr host = makeHost();
    const EvalNodePtr node = treeOf("sin(x)+2.5*sin(x)")->getRoot(host);
    Compiler first;
    first.feed(node, host);
    for (int i = 0; i < 3; ++i) { // no id of one shows in the next
        Compiler comp;
        comp.nextId_ = 100 * i;
        const int id = comp.feed(node, host);
        EXPECT_EQ(comp.defs.size(), first.defs.size());
        EXPECT_DOUBLE_EQ(comp.values({{"x", 0.3}}, {id})[0], 3.5 * qxmath::sin(0.3));
    }
}

TEST(CreateDefs, NodesThatWereDifferentiatedAreFedAndDifferentiatedAgain)
{
    const HostPtr host = makeHost();
    const EvalTreePtr tree = treeOf("sin(x*y)^2/(1+x^2)");
    const EvalTreePtr before = tree->diff("x", host);
    Compiler comp;
    const int value = comp.feed(tree->getRoot(host), host), slope = comp.feed(before->getRoot(host), host);

    EXPECT_EQ(tree->diff("x", host)->getExpr(), before->getExpr());
    EXPECT_EQ(comp.feed(before->getRoot(host), host), slope);
    const std::vector<double> values = comp.values({{"x", 0.5}, {"y", 2}}, {value, slope});
    const double s = std::sin(1.0), c = std::cos(1.0);
    EXPECT_DOUBLE_EQ(values[0], s * s / 1.25);
    EXPECT_DOUBLE_EQ(values[1], 4 * s * c / 1.25 - s * s / (1.25 * 1.25));
}

TEST(CreateDefs, ADerivativeOfADefinedNameIsThatOfItsDefinition)
{
    const HostPtr host = makeHost();
    host->definitions["u"] = "x^2";

    EXPECT_EQ(compiledValue("d(u,x)", host, 0.5, 0), 1.0);
    EXPECT_EQ(compiledValue("d(u,x)*u+d(x,x)+d(y,x)", host, 0.5, 0), 1.25);
}

TEST(CreateDefs, GiveTheSameValuesAfterAnyFailedAllocation)
{
    // u = x^2, v = u sin(u) + (x > u), d(v,x) = (sin u + u cos u) 2x, at x = 0.5
    const double u = 0.25, v = u * std::sin(u) + 1.0, slope = (std::sin(u) + u * std::cos(u)) * 2 * 0.5;
    std::vector<double> values;

    const long runs = failEveryAllocation(
        [&] {
            values.clear();
            const HostPtr host = makeHost();
            host->definitions = {{"u", "x^2"}, {"v", "u*sin(u)+(x>u)"}};
            Compiler comp;
            const int value = comp.feed("v+0*y", host), derivative = comp.feed("d(v,x)", host);
            values = comp.values({{"x", 0.5}}, {value, derivative});
        },
        [&](const FaultRun& run) {
            EXPECT_EQ(run.id, "") << run.n;
            EXPECT_TRUE(run.badAlloc || run.faulted || !values.empty()) << run.n;
            EXPECT_LE(run.leaked, 1) << run.n << ": at most the values that are kept";
            if (!run.badAlloc) { // it could do without the memory
                ASSERT_EQ(values.size(), 2u) << run.n;
                EXPECT_DOUBLE_EQ(values[0], v) << run.n;
                EXPECT_DOUBLE_EQ(values[1], slope) << run.n;
            }
        });

    EXPECT_GT(runs, 100);
}

TEST(CreateDefs, CanBeRepeatedInTheSameCompilerAfterAnyFailedAllocation)
{
    for (long n = 1;; ++n) {
        const HostPtr host = makeHost();
        host->definitions = {{"u", "x^2"}, {"v", "u*sin(u)+d(u,x)"}};
        const EvalNodePtr root = treeOf("v*u")->getRoot(host);
        Compiler comp;
        bool faulted = false;
        {
            const AllocFault fault(n);
            try {
                comp.feed(root, host);
            } catch (const std::bad_alloc&) {
            }
            faulted = fault.happened();
        }

        const int id = comp.feed(root, host);

        EXPECT_DOUBLE_EQ(comp.values({{"x", 0.5}}, {id})[0], (0.25 * std::sin(0.25) + 1.0) * 0.25) << n;
        if (!faulted)
            break;
    }
}

TEST(CreateDefs, OfADefinitionThatHasNoFormAreRefusedEachTime)
{
    const HostPtr host = makeHost();
    host->definitions["a"] = "besselj(0,x)+1";
    Compiler comp;

    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(raisedId([&] { comp.feed("a*2", host); }), "Cannot create definitions from besselj") << i;
}

TEST(CreateDefs, ChainOfAMillionOperationsTakesNoMachineStack)
{
    const HostPtr host = makeHost();
    EvalNodePtr p = host->getNodeMaker()->makeVarNode("x");
    const FunObjPtr f = makeFunObj(UMINUS);
    constexpr int n = 1000000;
    for (int i = 0; i < n; ++i)
        p = boost::make_shared<OpNode>(f, EvalNodes{p}, static_cast<unsigned long>(1000 + i));
    Compiler comp;

    const int id = comp.feed(p, host);

    EXPECT_EQ(comp.defs.size(), static_cast<std::size_t>(n));
    EXPECT_EQ(comp.values({{"x", 3}}, {id})[0], 3);
}

TEST(CreateDefs, NamesDefinedByNamesWithoutEndAreRefused)
{
    const HostPtr host = makeHost();
    for (int i = 0; i < 200000; ++i)
        host->definitions["v" + std::to_string(i)] = "v" + std::to_string(i + 1) + "+1";
    Compiler comp;

    EXPECT_EQ(raisedId([&] { comp.feed("v0", host); }), "Expression_nested_too_deeply");
}

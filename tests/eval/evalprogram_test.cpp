// SPDX-License-Identifier: LicenseRef-qxkernel
// Evaluation runs a program over arrays. Every flag and every bit must be what a walk over the graph gives that applies
// each function to value objects.

#include "evaltreeset.hpp"
#include "support/alloc_fault.hpp"
#include "walk.hpp"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace qxtest;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity(), kNaN = std::numeric_limits<double>::quiet_NaN();

struct Operands
{
    const char* name;
    std::vector<double> reals; // used when there are no complex numbers
    std::vector<cplx> complexes;
};

/// Arrays of 43 points, which fill the unrolled loops and leave a rest, and numbers.
std::vector<Operands> operandKinds()
{
    constexpr int points = 43;
    const std::vector<double> odd{0.0, -0.0, 1, -1, kInf, -kInf, kNaN, 1e-320, 1e300, -1e300, 2};
    std::vector<double> positive, mixed, special;
    std::vector<cplx> general, halfReal, onAxis;
    for (int i = 0; i < points; ++i) {
        positive.push_back(0.05 + 0.02 * i);
        mixed.push_back(-1.7 + 0.1 * i);
        special.push_back(odd[static_cast<std::size_t>(i) % odd.size()]);
        general.push_back({-0.9 + 0.05 * i, 0.3 - 0.04 * i});
        halfReal.push_back({0.3 + 0.02 * i, i % 2 ? 0.4 : 0.0});
        onAxis.push_back({0.05 * i - 0.7, 0.0});
    }
    return {{"positive", positive, {}},  {"mixed", mixed, {}},         {"special", special, {}}, {"number", {0.75}, {}},
            {"zero", {0.0}, {}},         {"negative zero", {-0.0}, {}}, {"complex", {}, general}, {"partly complex", {}, halfReal},
            {"on the axis", {}, onAxis}, {"complex number", {}, {{0.4, -0.8}}}, {"real complex number", {}, {{0.4, 0.0}}}};
}

void setOperands(Host& host, const Operands& x, const Operands& y)
{
    for (const auto& [name, v] : {std::pair("x", &x), std::pair("y", &y)}) {
        host.reals.erase(name);
        host.complexes.erase(name);
        if (v->complexes.empty())
            host.reals[name] = v->reals;
        else
            host.complexes[name] = v->complexes;
    }
}

void expectSameFromProgram(const EvalTreePtr& tree, const HostPtr& host, const Operands& x, const Operands& y, unsigned flags)
{
    setOperands(*host, x, y);
    const EvalNodePtr root = tree->getRoot(host);
    const ArrayAllocatorPtr allocator = boost::make_shared<SerialArrayAllocator>(64, 0);
    const std::string expected = stateOf(walk(root, host, makeCache(allocator), flags));
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(stateOf(root->eval(host, makeCache(allocator), flags)), expected)
            << tree->getExpr() << " of " << x.name << ", " << y.name << " under flags " << flags;
}

const std::vector<unsigned> kFlags{EvalValues, EvalValues | EvalKeepReal, EvalValues | EvalIgnoreElementErrors,
                                   EvalValues | EvalKeepReal | EvalIgnoreElementErrors, EvalGatherBVars,
                                   EvalValues | EvalNoComplex};

/// Two of the flag sets, other ones each time that a test asks: all pairs of operands under all flags take minutes.
class SomeFlags
{
public:
    std::array<unsigned, 2> next()
    {
        ++turn_;
        return {kFlags[turn_ % kFlags.size()], kFlags[(turn_ + 2) % kFlags.size()]};
    }

private:
    std::size_t turn_ = 0;
};

/// The text of x and y over every pair of operands.
void expectSameForAllOperands(const std::string& text, const HostPtr& host, SomeFlags& someFlags)
{
    const EvalTreePtr tree = treeOf(text);
    const std::vector<Operands> kinds = operandKinds();
    for (const Operands& x : kinds)
        for (const Operands& y : kinds)
            for (unsigned flags : someFlags.next())
                expectSameFromProgram(tree, host, x, y, flags);
}

/// f between other operations, so that operands and results are leaves, temporaries and roots.
std::vector<std::string> formulasOf(const FunObj& f)
{
    const std::string& name = f.getName();
    if (f.nArgs() == 1)
        return {name + "(x)", name + "(x+y)-y", "x*" + name + "(" + name + "(x*0.5))", name + "(x)*" + name + "(x)+" + name + "(y)"};
    if (f.nArgs() == 2)
        return {name + "(x,y)", name + "(x*2,y-1)+x", name + "(y," + name + "(x,0.5))", name + "(x+1,x+1)"};
    return {};
}

/// Adds the number of its calls so far.
class CountFun : public UnFunObj
{
public:
    using UnFunObj::operator();
    mutable int calls = 0;
    unsigned operator()(const D& x) const override { return *x += ++calls, 0u; }
    unsigned operator()(const C& x) const override { return *x += ++calls, 0u; }
    unsigned operator()(const DA& x, Size n) const override { return add(x->data(), n); }
    unsigned operator()(const CA& x, Size n) const override { return add(x->data(), n); }
    std::string getName() const override { return "count"; }
    bool isBuiltin() const override { return false; }

private:
    template <class T>
    unsigned add(T* x, Size n) const
    {
        ++calls;
        for (Size i = 0; i < n; ++i)
            x[i] += calls;
        return 0;
    }
};

} // namespace

TEST(EvalProgram, HasTheBitsOfTheWalkForEveryFunction)
{
    SomeFlags someFlags;
    const HostPtr host = makeHost();
    const std::vector<Operands> kinds = operandKinds();
    for (const auto& [name, f] : host->functions) {
        if (name.starts_with("bessel"))
            continue; // slow, and no part of a program
        for (const std::string& text : formulasOf(*f)) {
            const EvalTreePtr tree = treeOf(text);
            for (std::size_t i = 0; i < kinds.size(); ++i)
                for (std::size_t j : {std::size_t(0), (i + 3) % kinds.size(), std::size_t(6)})
                    for (unsigned flags : someFlags.next())
                        expectSameFromProgram(tree, host, kinds[i], kinds[j], flags);
        }
    }
}

TEST(EvalProgram, HasTheBitsOfTheWalkForEveryOperatorAndPairOfStorages)
{
    SomeFlags someFlags;
    const HostPtr host = makeHost();
    for (const std::string op : {"+", "-", "*", "/", "^", "<", ">", "<=", ">=", "==", "!=", "&&", "||"})
        for (const std::string& text : {"x" + op + "y", "(x" + op + "y)*y-x", "(x+1)" + op + "(y*x)", "3" + op + "(x-y)",
                                        "abs((y-2)" + op + "0.5)+(y-2)", "0.5+(y" + op + "x)", "y-(x" + op + "2)",
                                        "(2" + op + "x)*(y+1)"})
            expectSameForAllOperands(text, host, someFlags);
}

TEST(EvalProgram, HasTheBitsOfTheWalkForWholePowersSignsAndRepeatedParts)
{
    SomeFlags someFlags;
    const HostPtr host = makeHost();
    host->complexes["i0"] = {{0.0, 1.0}};
    for (const char* text : {"x^2+y^2", "x^3-x^4", "x^-1+y^-2", "(-x)*(-y)", "!x+!(y-x)", "x^2.5", "x^y+x^y",
                             "(x+y)*(x+y)*(x+y)", "sqrt(x)*sqrt(x)+log(x)", "exp(sqrt(x-y))", "i0+x", "1/(x-x)", "x/0",
                             "(x>0.5)*x*(1-x)+abs(y)", "abs(x)*abs(y)+real(x)", "min(abs(x),y)", "0.7*x+1.3*y+2.1"})
        expectSameForAllOperands(text, host, someFlags);
}

TEST(EvalProgram, HasTheBitsOfTheWalkBesideAFunctionWithoutAKernel)
{
    SomeFlags someFlags;
    const HostPtr host = makeHost();
    const std::vector<Operands> kinds = operandKinds();
    const EvalTreePtr tree = treeOf("besselj(0,x)*x+y");
    for (const Operands& x : kinds)
        for (unsigned flags : someFlags.next())
            expectSameFromProgram(tree, host, x, kinds[0], flags);
}

TEST(EvalProgram, AddsUpEqualPartsOnce)
{
    const HostPtr host = makeHost({{"x", {0.25, 0.5, 0.75}}});
    EvalTreeSet set({treeOf("sin(x)*2+1"), treeOf("sin(x)*2+x"), treeOf("x"), treeOf("2"), treeOf("sin(x)*2+1")});
    std::vector<ValRepPtr> values;
    EXPECT_EQ(set.getOperationCount(), 0u);
    set.eval(host, makeCache(), EvalValues, values);
    EXPECT_EQ(set.getOperationCount(), 4u); // sin, times, and two sums
    ASSERT_EQ(values.size(), 5u);
    EXPECT_DOUBLE_EQ(values[0]->getDoubleIterator(0)[1], std::sin(0.5) * 2 + 1);
    EXPECT_DOUBLE_EQ(values[1]->getDoubleIterator(0)[1], std::sin(0.5) * 2 + 0.5);
    EXPECT_EQ(values[2]->getDoubleIterator(0)[2], 0.75);
    EXPECT_EQ(values[3]->getDouble(), 2);
    EXPECT_EQ(stateOf(values[4]), stateOf(values[0]));
}

TEST(EvalProgram, EvaluatesFunctionsOfAHostAtEachUse)
{
    const HostPtr host = makeHost({{"x", {1, 2, 3}}});
    const auto count = boost::make_shared<CountFun>();
    host->functions["count"] = count;
    const EvalTreePtr tree = treeOf("10*count(x)+count(x)");
    for (int i = 0; i < 3; ++i) {
        count->calls = 0;
        EXPECT_EQ(tree->eval(host, makeCache(), EvalValues)->getDoubleIterator(0)[0], 10 * (1 + 1) + (1 + 2)) << i;
        EXPECT_EQ(count->calls, 2) << i;
    }
}

TEST(EvalProgram, LeavesTheValuesOfVariablesAlone)
{
    const HostPtr host = makeHost({{"x", {1, 2, 3}}});
    const EvalTreePtr tree = treeOf("x*2+x^2");
    const ValRepCachePtr cache = makeCache();
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(tree->eval(host, cache, EvalValues)->getDoubleIterator(0)[2], 15);
        EXPECT_EQ(cache->getVar("x", EvalValues).second->getDoubleIterator(0)[2], 3);
    }
    EXPECT_EQ(host->evaluations["x"], 1);
}

TEST(EvalProgram, TakesEachSizeAsItComes)
{
    const HostPtr host = makeHost();
    const EvalTreePtr tree = treeOf("x*y+x");
    for (const std::size_t n : {5u, 2u, 1000u, 3u, 17u}) {
        host->reals = {{"x", std::vector<double>(n, 2.0)}, {"y", std::vector<double>(n, 3.0)}};
        const ValRepPtr v = tree->eval(host, makeCache(), EvalValues);
        ASSERT_EQ(v->getSize(), n);
        for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(v->getDoubleIterator(0)[i], 8);
    }
    host->reals["y"] = {1, 2};
    EXPECT_EQ(raisedId([&] { tree->eval(host, makeCache(), EvalValues); }), "QUORIX_assertion_failure");
}

TEST(EvalProgram, RunsInsideAnother)
{
    const HostPtr host = makeHost({{"x", {1, 2, 3}}});
    host->definitions = {{"a", "x*x+1"}, {"b", "a*a-x"}};
    const EvalTreePtr tree = treeOf("a*b+sin(b)");
    const auto value = [&] { return stateOf(tree->eval(host, makeCache(), EvalValues)); };
    const std::string first = value();
    EXPECT_EQ(value(), first);
    EXPECT_EQ(value(), first);
    EXPECT_DOUBLE_EQ(tree->eval(host, makeCache(), EvalValues)->getDoubleIterator(0)[1], 5 * 23.0 + std::sin(23.0));
}

TEST(EvalProgram, SurvivesEveryAllocationFailure)
{
    const HostPtr host = makeHost({{"x", {1, 2, 3}}});
    const std::string text = "sin(x)*x+sqrt(x)", expected = stateOf(evalText(text, host));
    std::string state;
    failEveryAllocation(
        [&] {
            const EvalTreePtr tree = treeOf(text);
            for (int i = 0; i < 3; ++i)
                state = stateOf(tree->eval(host, makeCache(), EvalValues));
        },
        [&](const FaultRun& run) {
            if (!run.faulted) {
                EXPECT_EQ(state, expected);
            }
            const EvalTreePtr tree = treeOf(text);
            for (int i = 0; i < 3; ++i)
                EXPECT_EQ(stateOf(tree->eval(host, makeCache(), EvalValues)), expected) << run.n;
        });
}

TEST(EvalTreeSet, TellsTheStoryOfEachFailure)
{
    const HostPtr host = makeHost({{"x", {1, -2, 3}}});
    EvalTreeSet set({treeOf("sqrt(x)+1"), treeOf("x+1"), treeOf("2*sqrt(x)")});
    std::vector<ValRepPtr> values;
    for (int i = 0; i < 2; ++i) {
        set.eval(host, makeCache(), EvalValues | EvalKeepReal, values);
        for (std::size_t t : {0u, 2u})
            EXPECT_EQ(stateOf(values[t]), stateOf(evalText(set.getTrees()[t]->getExpr(), host, EvalValues | EvalKeepReal)));
        EXPECT_EQ(values[1]->getDoubleIterator(0)[1], -1);
    }
}

TEST(EvalTreeSet, TouchesNoAllocatorInTheSteadyState)
{
    const auto allocator = boost::make_shared<SerialArrayAllocator>(100, 0);
    const HostPtr host = makeHost({{"x", std::vector<double>(100, 0.5)}, {"y", std::vector<double>(100, 0.25)}});
    const ValRepCachePtr cache = makeCache(allocator);
    const EvalTreePtr f = treeOf("exp(-x*y)*cos(x)");
    EvalTreeSet set({f, f->diff("x", host), f->diff("y", host)});
    std::vector<ValRepPtr> values;
    const auto pass = [&] {
        cache->reset();
        set.eval(host, cache, EvalValues, values);
        return values[1]->getDouble();
    };
    const double first = pass();
    pass();
    const long before = allocationCount();
    EXPECT_EQ(pass(), first);
    EXPECT_EQ(allocationCount() - before, 0);
}

TEST(EvalTreeSet, OfNothingGivesNothing)
{
    EvalTreeSet set({});
    std::vector<ValRepPtr> values(3);
    set.eval(makeHost(), makeCache(), EvalValues, values);
    EXPECT_TRUE(values.empty());
}

TEST(EvalTreeSet, RefusesATreeWithoutARoot)
{
    EvalTreeSet set({boost::make_shared<EvalTree>(EvalNodePtr())});
    std::vector<ValRepPtr> values;
    EXPECT_EQ(raisedId([&] { set.eval(makeHost(), makeCache(), EvalValues, values); }), "Evaluation_internal_error");
}

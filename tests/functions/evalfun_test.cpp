// SPDX-License-Identifier: LicenseRef-qxkernel
// What function objects say about themselves: names, flags, text, errors, simplification.

#include "evalnodes.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "tests/functions/fun_support.hpp"

#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

namespace {

struct Entry
{
    const char* name;
    int nArgs;
    bool alwaysReal, realIfReal;
};

// In the search order of names.
const Entry standardTable[] = {
    {"sign", 1, 0, 1}, {"exp", 1, 0, 1}, {"sqrt", 1, 0, 0}, {"arg", 1, 1, 1}, {"realdot", 2, 1, 1}, {"abs", 1, 1, 1},
    {"real", 1, 1, 1}, {"imag", 1, 1, 1}, {"conj", 1, 0, 1}, {"log", 1, 0, 0}, {"log10", 1, 0, 0}, {"log2", 1, 0, 0},
    {"erf", 1, 0, 1}, {"round", 1, 0, 1}, {"ceil", 1, 0, 1}, {"floor", 1, 0, 1}, {"fix", 1, 0, 1}, {"min", 2, 0, 1},
    {"max", 2, 0, 1}, {"mod", 2, 0, 1}, {"acos", 1, 0, 0}, {"acot", 1, 0, 1}, {"acsc", 1, 0, 0}, {"asec", 1, 0, 0},
    {"asin", 1, 0, 0}, {"atan", 1, 0, 1}, {"cos", 1, 0, 1}, {"cot", 1, 0, 1}, {"csc", 1, 0, 1}, {"sec", 1, 0, 1},
    {"sin", 1, 0, 1}, {"tan", 1, 0, 1}, {"atan2", 2, 1, 1}, {"acosh", 1, 0, 0}, {"acoth", 1, 0, 0}, {"acsch", 1, 0, 1},
    {"asech", 1, 0, 0}, {"asinh", 1, 0, 1}, {"atanh", 1, 0, 0}, {"cosh", 1, 0, 1}, {"coth", 1, 0, 1}, {"csch", 1, 0, 1},
    {"sech", 1, 0, 1}, {"sinh", 1, 0, 1}, {"tanh", 1, 0, 1}, {"bessel", 2, 0, 0}, {"besselj", 2, 0, 0},
    {"bessely", 2, 0, 0}, {"besseli", 2, 0, 0}, {"besselk", 2, 0, 0}, {"qxsmhs", 2, 0, 1}, {"qxdsmhs", 2, 0, 1},
    {"qxsmsign", 2, 0, 1}, {"qxdsmsign", 2, 0, 1}, {"qxc1hs", 2, 0, 1}, {"qxdc1hs", 2, 0, 1}, {"qxc2hs", 2, 0, 1},
    {"qxdc2hs", 2, 0, 1}};

TEST(StandardFunctions, AreFiftyEightInSearchOrderWithTheirProperties)
{
    std::vector<FunObjPtr> all;
    makeStandardFunctions(all);

    ASSERT_EQ(all.size(), 58u);
    ASSERT_EQ(std::size(standardTable), 58u);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Entry& e = standardTable[i];
        EXPECT_EQ(all[i]->getName(), e.name) << i;
        EXPECT_EQ(all[i]->nArgs(), e.nArgs) << e.name;
        EXPECT_EQ(all[i]->isAlwaysReal(), e.alwaysReal) << e.name;
        EXPECT_EQ(all[i]->isRealIfReal(), e.realIfReal) << e.name;
        EXPECT_FALSE(all[i]->isMulti()) << e.name;
        EXPECT_FALSE(all[i]->isLinear(1) || all[i]->isLinear(2)) << e.name;
        EXPECT_TRUE(all[i]->isBuiltin()) << e.name;
    }
}

const Entry operatorTable[] = {{"U+", 1, 0, 1}, {"U-", 1, 0, 1}, {"!", 1, 1, 1}, {"+", 2, 0, 1}, {"plussq", 2, 0, 1},
                               {"-", 2, 0, 1}, {"*", 2, 0, 1}, {"/", 2, 0, 1}, {"^", 2, 0, 0}, {"<", 2, 1, 1},
                               {">", 2, 1, 1}, {"<=", 2, 1, 1}, {">=", 2, 1, 1}, {"==", 2, 1, 1}, {"!=", 2, 1, 1},
                               {"&&", 2, 1, 1}, {"||", 2, 1, 1}};

TEST(Operators, HaveTheirProperties)
{
    for (const Entry& e : operatorTable) {
        const FunObj& f = *fun(e.name);
        EXPECT_EQ(f.nArgs(), e.nArgs) << e.name;
        EXPECT_EQ(f.isAlwaysReal(), e.alwaysReal) << e.name;
        EXPECT_EQ(f.isRealIfReal(), e.realIfReal) << e.name;
    }
}

TEST(Operators, LinearityByArgument)
{
    const std::map<std::string, std::pair<bool, bool>> linear = {
        {"U+", {true, false}}, {"U-", {true, false}}, {"!", {false, false}}, {"+", {true, true}}, {"plussq", {false, false}},
        {"-", {true, true}}, {"*", {true, true}}, {"/", {true, false}}, {"^", {false, false}}, {"<", {false, false}},
        {"==", {false, false}}, {"&&", {false, false}}};
    for (const auto& [name, wanted] : linear) {
        EXPECT_EQ(fun(name)->isLinear(1), wanted.first) << name;
        EXPECT_EQ(fun(name)->isLinear(2), wanted.second) << name;
    }
}

TEST(Factory, EveryIdHasItsObject)
{
    for (int id = ABS; id <= UPLUS; ++id) {
        const FunObjPtr f = makeFunObj(static_cast<FunId>(id));
        EXPECT_EQ(f->nArgs(), funArity(static_cast<FunId>(id)));
    }
    EXPECT_EQ(makeFunObj(POWM2)->getName(), "^");
    EXPECT_EQ(callReal(*makeFunObj(POWM2), 2.0).value.real(), 0.25);
    EXPECT_EQ(callReal(*makeFunObj(POWM1), 2.0).value.real(), 0.5);
    EXPECT_EQ(callReal(*makeFunObj(POW3), 2.0).value.real(), 8.0);
    EXPECT_EQ(callReal(*makeFunObj(POW4), 2.0).value.real(), 16.0);
}

TEST(Factory, RefusesANumberThatIsNoId)
{
    EXPECT_EQ(funArity(static_cast<FunId>(30)), 0);
    try {
        makeFunObj(static_cast<FunId>(0));
        FAIL() << "nothing raised";
    } catch (qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Evaluation_internal_error");
    }
}

// ---- forms that do not fit

TEST(WrongForm, DoesNothingAndReturnsZero)
{
    const auto x = real(2.0), y = real(3.0);
    std::vector<FunObj::D> args = {x, y};

    EXPECT_EQ((*fun("sqrt"))(x, y, 1), 0u);
    EXPECT_EQ((*fun("sqrt"))(args, 1), 0u);
    EXPECT_EQ((*fun("+"))(x), 0u);
    EXPECT_EQ((*fun("+"))(args, 1), 0u);
    EXPECT_EQ(*x, 2.0);
    EXPECT_EQ(*y, 3.0);
}

// ---- errors

struct ErrorCase
{
    const char* name;
    unsigned bits;
    const char* file;
    const char* message;
};

TEST(MakeError, NamesFileKeyAndFunction)
{
    const ErrorCase cases[] = {
        {"sqrt", 2, "evalfun_basic", "sqrt"}, {"log", 2, "evalfun_basic", "log"}, {"log10", 2, "evalfun_basic", "log"},
        {"log2", 3, "evalfun_basic", "log"}, {"erf", 2, "evalfun_basic", "nan"}, {"erf", 4, "evalfun_basic", "erf"},
        {"mod", 2, "evalfun_basic", "impl"}, {"^", 2, "evalfun_binary", "pow"}, {"/", 2, "evalfun_binary", "div"},
        {"asin", 2, "evalfun_trig", "range"}, {"acos", 2, "evalfun_trig", "range"}, {"asec", 2, "evalfun_trig", "range"},
        {"acsc", 2, "evalfun_trig", "range"}, {"acosh", 2, "evalfun_hyp", "range"}, {"acoth", 2, "evalfun_hyp", "range"},
        {"asech", 2, "evalfun_hyp", "range"}, {"atanh", 2, "evalfun_hyp", "range"}, {"sin", 2, "evalfun", "funeval"},
        {"sqrt", 4, "evalfun", "funeval"}, {"+", 8, "evalfun", "funeval"}, {"qxsmhs", 2, "evalfun_spec", "trans"},
        {"qxdsmhs", 2, "evalfun_spec", "trans"}, {"besselj", 2, "evalfun_spec", "bessel_range"},
        {"besselk", 4, "evalfun_spec", "bessel_cmplx"}};
    for (const ErrorCase& c : cases) {
        const auto errors = fun(c.name)->makeError(c.bits);
        ASSERT_TRUE(errors) << c.name;
        ASSERT_EQ(errors->size(), 1u) << c.name;
        EXPECT_EQ(errors->getFile(0), c.file) << c.name << ' ' << c.bits;
        EXPECT_EQ(errors->get(0, "message"), c.message) << c.name << ' ' << c.bits;
        EXPECT_EQ(errors->get(0, "fun"), c.name);
    }
}

TEST(MakeError, IsNullWithoutAnErrorBit)
{
    for (const char* name : {"sqrt", "erf", "+", "besselj", "qxsmhs"})
        for (const unsigned bits : {0u, 1u, 0x400u})
            EXPECT_FALSE(fun(name)->makeError(bits)) << name << ' ' << bits;
}

TEST(CreateDefs, IsRefusedWithTheNameByDefault)
{
    struct Host : UnFunObj
    {
        using UnFunObj::operator();
        unsigned int operator()(const D&) const override { return 0; }
        unsigned int operator()(const C&) const override { return 0; }
        unsigned int operator()(const DA&, Size) const override { return 0; }
        unsigned int operator()(const CA&, Size) const override { return 0; }
        std::string getName() const override { return "hostfun"; }
    } host;
    FunObj::DefIds names;
    alignas(16) char place[16]; // a compiler is only passed on
    ExprComp& compiler = reinterpret_cast<ExprComp&>(place);
    int next = 0;
    try {
        host.createDefs({}, compiler, names, next, VarEvaluatorPtr());
        FAIL() << "nothing raised";
    } catch (qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Cannot create definitions from hostfun");
        EXPECT_EQ(e.getFile(0), "evalfun");
    }
}

// ---- text and simplification

class Rules : public testing::Test
{
protected:
    NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    EvalNodePtr x = maker->makeVarNode("x"), y = maker->makeVarNode("y");
    EvalNodePtr zero = maker->makeZeroNode(), one = maker->makeUnitNode(), minusOne = maker->makeNUnitNode();

    static std::string text(const EvalNodePtr& node)
    {
        std::ostringstream out;
        node->ostreamOperator(out);
        return out.str();
    }
    std::string text(const FunObj& f) const
    {
        std::ostringstream out;
        f.ostreamOperator(f.nArgs() == 1 ? EvalNodes{x} : EvalNodes{x, y}, out);
        return out.str();
    }
    EvalNodePtr simplify(const char* name, const EvalNodes& args) const { return fun(name)->simpRule(fun(name), args, maker); }
};

TEST_F(Rules, OperatorsPrintBetweenTheirOperands)
{
    EXPECT_EQ(text(*fun("+")), "(x+y)");
    EXPECT_EQ(text(*fun("^")), "(x^y)");
    EXPECT_EQ(text(*fun("<=")), "(x<=y)");
    EXPECT_EQ(text(*fun("&&")), "(x&&y)");
    EXPECT_EQ(text(*fun("U-")), "(-x)");
    EXPECT_EQ(text(*fun("U+")), "(+x)");
    EXPECT_EQ(text(*fun("!")), "!(x)");
    EXPECT_EQ(text(*fun("plussq")), "plussq(x,y)");
    EXPECT_EQ(text(*fun("sin")), "sin(x)");
    EXPECT_EQ(text(*fun("atan2")), "atan2(x,y)");
    EXPECT_EQ(text(*makeConstPow(-2.0)), "(x^-2)");
    EXPECT_EQ(text(*makeConstPow(0.5)), "(x^0.5)");
}

TEST_F(Rules, SumsDropZeros)
{
    EXPECT_EQ(simplify("+", {zero, y}), y);
    EXPECT_EQ(simplify("+", {x, zero}), x);
    EXPECT_EQ(simplify("-", {x, zero}), x);
    EXPECT_EQ(text(simplify("-", {zero, y})), "(-y)");
    EXPECT_EQ(text(simplify("-", {x, y})), "(x-y)");
}

TEST_F(Rules, ProductsDropUnitsAndVanishWithZeros)
{
    EXPECT_EQ(simplify("*", {zero, y}), zero);
    EXPECT_EQ(simplify("*", {x, zero}), zero);
    EXPECT_EQ(simplify("*", {one, y}), y);
    EXPECT_EQ(simplify("*", {x, one}), x);
    EXPECT_EQ(text(simplify("*", {minusOne, y})), "(-y)");
    EXPECT_EQ(text(simplify("*", {x, minusOne})), "(-x)");
    EXPECT_EQ(text(simplify("*", {x, y})), "(x*y)");
}

TEST_F(Rules, OthersAreBuiltAgain)
{
    EXPECT_EQ(simplify("U+", {x}), x);
    EXPECT_EQ(text(simplify("/", {x, one})), "(x/1)");
    EXPECT_EQ(text(simplify("sin", {x})), "sin(x)");
    EXPECT_TRUE(simplify("sin", {zero})->isZero()); // folded by the factory
}

} // namespace

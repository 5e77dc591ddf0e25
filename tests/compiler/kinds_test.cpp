// SPDX-License-Identifier: LicenseRef-qxkernel
#include "probe.hpp"

#include "compiler/exprkinds_detail.hpp"
#include "qxnumber.hpp"
#include "support/comma_locale.hpp"

#include <gmock/gmock.h>
#include <limits>

using namespace qxtest;
using Def = ExprComp::Def;

namespace {

Def make(int kind, const std::vector<int>& args)
{
    return Def(0, kind, args.data(), args.size());
}

} // namespace

TEST(ExprCompKinds, HaveTheNumbersNamesAndArgumentsOfTheInterface)
{
    const std::vector<std::pair<std::string, int>> wanted{
        {"abs", 1}, {"acos", 1}, {"and", 2}, {"asin", 1}, {"atan", 1}, {"atan2", 2}, {"ceil", 1}, {"conj", 1}, {"cos", 1},
        {"cosh", 1}, {"cot", 1}, {"coth", 1}, {"csc", 1}, {"csch", 1}, {"/", 2}, {"/NZ", 2}, {"==", 2}, {"exp", 1},
        {"fix", 1}, {"floor", 1}, {">=", 2}, {">", 2}, {"identity", 1}, {"if", 3}, {"imag", 1}, {"<=", 2}, {"log", 1},
        {"log10", 1}, {"log2", 1}, {"<", 2}, {"max", 2}, {"min", 2}, {"-", 2}, {"mod", 2}, {"!=", 2}, {"!", 1}, {"", 0},
        {"or", 2}, {"+", 2}, {"^", 2}, {"^2", 1}, {"^3", 1}, {"^", 1}, {"real", 1}, {"round", 1}, {"sec", 1}, {"sech", 1},
        {"sign", 1}, {"sin", 1}, {"sinh", 1}, {"sqrt", 1}, {"tan", 1}, {"tanh", 1}, {"*", 2}, {"U-", 1}, {"U+", 1}};
    ASSERT_EQ(wanted.size(), 56u);

    for (int kind = 1; kind <= 56; ++kind) {
        const auto& [name, nArgs] = wanted[static_cast<std::size_t>(kind - 1)];
        EXPECT_EQ(ExprComp::nameOf(kind), name) << kind;
        EXPECT_EQ(ExprComp::nArgsOf(kind), nArgs) << kind;
        const bool inText = kind != 16 && kind != 37 && kind != 41 && kind != 42 && kind != 43;
        EXPECT_EQ(ExprComp::kindOf(name, nArgs), inText ? kind : 0) << name;
    }
    EXPECT_EQ(ExprComp::nArgsOf(0), -1);
    EXPECT_EQ(ExprComp::nArgsOf(57), -1);
    EXPECT_EQ(ExprComp::kindOf("sin", 2), 0);
    EXPECT_EQ(ExprComp::kindOf("sine", 1), 0);
}

TEST(ExprCompKinds, CommutativeOnesAreEight)
{
    std::vector<int> commutative;
    for (int kind = 1; kind <= 56; ++kind)
        if (ExprComp::nArgsOf(kind) == 2 && make(kind, {1, 2}).isBinaryCommutative())
            commutative.push_back(kind);

    EXPECT_EQ(commutative, (std::vector<int>{3, 17, 31, 32, 35, 38, 39, 54}));
}

TEST(ExprCompDef, RefusesAWrongKindAndAWrongNumberOfArguments)
{
    for (const int kind : {0, 57, -1, 1000})
        EXPECT_EQ(idOf([&] { make(kind, {1}); }), "QUORIX_assertion_failure") << kind;
    EXPECT_EQ(idOf([] { make(ExprComp::Sin, {1, 2}); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([] { make(ExprComp::Plus, {1}); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([] { make(ExprComp::If, {1, 2, 3, 4}); }), "QUORIX_assertion_failure");

    ExprComp comp;
    EXPECT_EQ(idOf([&] { comp.addDef(1, ExprComp::If, std::vector<int>{1, 2, 3, 4}); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { comp.addDef(1, ExprComp::Sin, 1, 2); }), "QUORIX_assertion_failure");
    EXPECT_EQ(failureOf([&] { comp.addDef(1, 99, 1); }).getFile(0), "exprcomp");
}

TEST(ExprCompDef, PrintsItsOperationAndConstantsToTwentyDigitsInAnyLocale)
{
    const CommaLocale comma;
    ASSERT_TRUE(CommaLocale::isInForce());

    EXPECT_EQ(make(ExprComp::Atan2, {3, -1}).toString(), "atan2(3,-1)");
    EXPECT_EQ(make(ExprComp::If, {0, 1, 2}).toString(), "if(0,1,2)");
    EXPECT_EQ(make(ExprComp::Fourth, {7}).toString(), "^(7)"); // quirk: the fourth power prints as the power
    EXPECT_EQ(Def(0, 0.1).toString(), "0.10000000000000000555");
    EXPECT_EQ(Def(0, 1234567.0).getName(), "1234567");
}

TEST(ExprCompDef, GivesTheNumberOfAConstantOnly)
{
    double number = 5;

    EXPECT_FALSE(make(ExprComp::Sin, {1}).getNumVal(number));
    EXPECT_EQ(number, 5);
    EXPECT_TRUE(Def(0, 2.5).getNumVal(number));
    EXPECT_EQ(number, 2.5);
}

TEST(ExprCompDef, HashOfAConstantFollowsTheFormula)
{
    // By hand for 1.0 = 0x3ff00000_00000000: x = 0x3ff00000, ~(x << 9) = ~0xe0000000 = 0x1fffffff, u = 0x5fefffff;
    // u ^ (u >> 14) = 0x5fefffff ^ 0x00017fbf = 0x5fee8040, times 17 = 0x65ed684c... modulo 2^32.
    std::uint32_t u = 0x3ff00000u + 0x1fffffffu;
    ASSERT_EQ(u, 0x5fefffffu);
    u = (0x5fefffffu ^ 0x00017fbfu) * 17u;
    const auto wanted = static_cast<int>(u ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(u) >> 10));

    EXPECT_EQ(Def(0, 1.0).getExprHash(), wanted);
}

TEST(ExprCompDef, ZerosMergeAndNaNStayApart)
{
    const double nan = qxGetNaN();
    const double otherNan = -std::numeric_limits<double>::signaling_NaN();

    EXPECT_EQ(Def(0, 0.0).getExprHash(), Def(1, -0.0).getExprHash());
    EXPECT_TRUE(Def::exprEqual(Def(0, 0.0), Def(1, -0.0)));
    EXPECT_EQ(Def(0, nan).getExprHash(), Def(1, otherNan).getExprHash());
    EXPECT_FALSE(Def::exprEqual(Def(0, nan), Def(1, nan)));
    EXPECT_FALSE(Def::exprEqual(Def(0, 1.0), Def(1, 2.0)));
}

TEST(ExprCompDef, OrderOfOperandsMattersUnlessTheKindCommutes)
{
    for (int kind = 1; kind <= 56; ++kind) {
        if (ExprComp::nArgsOf(kind) != 2)
            continue;
        const Def ab = make(kind, {3, -8}), ba = make(kind, {-8, 3});
        EXPECT_EQ(Def::exprEqual(ab, ba), ab.isBinaryCommutative()) << kind;
        EXPECT_EQ(ab.getExprHash() == ba.getExprHash(), ab.isBinaryCommutative()) << kind;
    }
    EXPECT_FALSE(Def::exprEqual(make(ExprComp::Sin, {1}), make(ExprComp::Cos, {1})));
    EXPECT_TRUE(Def::exprEqual(make(ExprComp::If, {1, 2, 3}), make(ExprComp::If, {1, 2, 3})));
    EXPECT_FALSE(Def::exprEqual(make(ExprComp::If, {1, 2, 3}), make(ExprComp::If, {1, 3, 2})));
}

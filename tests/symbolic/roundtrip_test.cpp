// SPDX-License-Identifier: LicenseRef-qxkernel
// Text that the printer writes, read again: the same tree for all that infix text can say, and what happens otherwise.

#include "symbolic_support.hpp"

#include <limits>
#include <random>

using namespace qxtest;
using E = ExprImpl;

namespace {

/// Trees of what infix text can say: numbers, names, texts, operators, calls, units, vectors, lists. Left out are signs
/// over operators that print without parentheses behind a sign, and lists where commas mean something else.
class RandomTrees
{
public:
    explicit RandomTrees(unsigned seed) : random_(seed) {}

    E expression;

    NodePtr make(int depth)
    {
        if (depth == 0)
            return leaf();
        switch (pick(12)) {
        case 0:
            return leaf();
        case 1:
            return sign(depth);
        case 2:
            return boost::make_shared<E::FuncCall>(rules(), name("f"), several(depth, 0, 3));
        case 3:
            return boost::make_shared<E::UnitConversion>(rules(), make(depth - 1), make(depth - 1));
        case 4:
            return boost::make_shared<E::Vector>(rules(), several(depth, 0, 3));
        case 5:
            return list(depth);
        default:
            return binary(anyOf(kBinary), depth);
        }
    }

    /// A list is no item of a list and no argument.
    NodePtr list(int depth) { return boost::make_shared<E::List>(rules(), several(depth, 2, 4)); }

private:
    static constexpr Node::Type kBinary[] = {Node::TypeOr, Node::TypeAnd, Node::TypeEqual, Node::TypeNotEqual,
                                             Node::TypeLessEq, Node::TypeGreaterEq, Node::TypeLess, Node::TypeGreater,
                                             Node::TypeAdd, Node::TypeSub, Node::TypeMul, Node::TypeDiv, Node::TypePow};
    static constexpr Node::Type kBelowSign[] = {Node::TypeOr, Node::TypeAnd, Node::TypeEqual, Node::TypeNotEqual,
                                                Node::TypeLessEq, Node::TypeGreaterEq, Node::TypeLess,
                                                Node::TypeGreater, Node::TypePow};
    static constexpr Node::Type kSign[] = {Node::TypeUnaryPlus, Node::TypeUnaryMinus, Node::TypeUnaryNot};

    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    template <std::size_t n> Node::Type anyOf(const Node::Type (&types)[n]) { return types[pick(int(n))]; }
    const E::RulesPtr& rules() const { return expression.getRules(); }
    std::string name(const char* start) { return start + std::to_string(pick(4)); }

    NodePtr binary(Node::Type type, int depth)
    {
        NodePtr left = make(depth - 1); // in a statement of its own: one order of evaluation on every machine
        return boost::make_shared<E::Binary>(rules(), type, left, make(depth - 1));
    }

    NodePtr sign(int depth)
    {
        const Node::Type type = anyOf(kSign);
        NodePtr below = pick(2) == 0 ? leaf() : binary(anyOf(kBelowSign), depth);
        for (int n = pick(3); n > 0; --n)
            below = boost::make_shared<E::Unary>(rules(), anyOf(kSign), below);
        return boost::make_shared<E::Unary>(rules(), type, below);
    }

    E::Nodes several(int depth, int least, int most)
    {
        E::Nodes items;
        for (int n = least + pick(most - least + 1); n > 0; --n) {
            NodePtr item = make(depth - 1);
            while (item->type == Node::TypeList)
                item = make(depth - 1);
            items.push_back(item);
        }
        return items;
    }

    NodePtr number()
    {
        static const Number numbers[] = {0,   1,    2, 17, 999, 123456789, Number(1, 4), Number(3, 2), Number(1, 1000),
                                         0.1, 1e15, 1e300, 1e-300, 6.5e-7};
        return boost::make_shared<E::Constant>(rules(), numbers[pick(int(std::size(numbers)))]);
    }

    NodePtr leaf()
    {
        switch (pick(6)) {
        case 0:
        case 1:
            return number();
        case 2:
            return boost::make_shared<E::StringLiteral>(rules(), text());
        default:
            return boost::make_shared<E::Identifier>(rules(), expression.getStore()->getVar(name("x_")));
        }
    }

    std::string text()
    {
        std::string t;
        for (int n = pick(6); n > 0; --n)
            t += "' +()x1,\"\xc3\xa9"[pick(11)];
        return t;
    }

    std::mt19937 random_;
};

/// What infix text reads as, on the store of another expression: its names are then the same variables.
NodePtr readBack(const E& like, const std::string& text)
{
    E e(like);
    e.scan(text);
    return e.getRoot();
}

/// A tree and what its text reads back as. Nodes made by hand, on one store.
class RoundTrip : public testing::Test
{
protected:
    NodePtr unary(Node::Type t, NodePtr x) { return boost::make_shared<E::Unary>(rules, t, x); }
    NodePtr binary(Node::Type t, NodePtr x, NodePtr y) { return boost::make_shared<E::Binary>(rules, t, x, y); }
    NodePtr number(Number n) { return boost::make_shared<E::Constant>(rules, n); }
    NodePtr var(const char* name) { return boost::make_shared<E::Identifier>(rules, e.getStore()->getVar(name)); }
    NodePtr call(const char* name, E::Nodes args) { return boost::make_shared<E::FuncCall>(rules, name, args); }
    NodePtr list(E::Nodes items) { return boost::make_shared<E::List>(rules, items); }
    NodePtr vector(E::Nodes items) { return boost::make_shared<E::Vector>(rules, items); }
    NodePtr sum(E::Nodes terms, Number constant) { return boost::make_shared<E::Sum>(rules, terms, constant); }
    NodePtr term(E::Nodes above, E::Nodes below, Number n) { return boost::make_shared<E::Term>(rules, above, below, n); }
    NodePtr derivative(NodePtr x, const char* by)
    {
        return boost::make_shared<E::Derivative>(rules, x, e.getStore()->getVar(by));
    }

    /// node prints as text, and text reads back as another tree: wanted.
    void expectChange(const NodePtr& node, const std::string& text, const NodePtr& wanted)
    {
        EXPECT_EQ(node->toString(), text);
        const NodePtr back = readBack(e, text);
        EXPECT_TRUE(Node::equals(back, wanted)) << text << " reads back as " << back->toString();
        EXPECT_FALSE(Node::equals(back, node)) << text;
    }

    /// node prints as text, which is no formula.
    void expectError(const NodePtr& node, const std::string& text)
    {
        EXPECT_EQ(node->toString(), text);
        EXPECT_EQ(idOf([&] { readBack(e, text); }), syntaxError) << text;
    }

    std::string simplifiedText(const NodePtr& node)
    {
        E copy(e);
        copy.setRoot(node->getCopy(node));
        copy.simp(false);
        return copy.toString();
    }

    E e;
    E::RulesPtr rules = e.getRules();
    NodePtr a = var("a"), b = var("b"), c = var("c"), d = var("d");
};

} // namespace

TEST(RoundTripOfRandomTrees, ReadsBackTheTreeThatWasPrinted)
{
    int operators = 0;
    for (unsigned seed = 0; seed < 20000; ++seed) {
        RandomTrees trees(seed);
        const NodePtr tree = trees.make(1 + static_cast<int>(seed % 6));
        if (tree->type == Node::TypeConstant)
            continue; // digits alone stay an unparsed number
        operators += tree->getChildCount() > 0;
        const std::string text = tree->toString();
        NodePtr back;
        ASSERT_NO_THROW(back = readBack(trees.expression, text)) << seed << ": " << text;
        ASSERT_TRUE(Node::equals(tree, back)) << seed << ": " << text << " reads back as " << back->toString();
        ASSERT_EQ(back->toString(), text) << seed;
    }
    EXPECT_GT(operators, 15000);
}

TEST(RoundTripOfRandomTrees, PrefixAndInfixGiveTheSameTree)
{
    for (unsigned seed = 0; seed < 2000; ++seed) {
        RandomTrees trees(seed);
        const NodePtr tree = trees.list(4);
        const std::string text = tree->toString();
        E direct(trees.expression);
        direct.scanInfix(qxInfixToPrefix(text));
        ASSERT_TRUE(Node::equals(tree, direct.getRoot())) << seed << ": " << text;
    }
}

// What infix text cannot say, kind by kind.

TEST_F(RoundTrip, RequiredQuirkASignOverASumReadsBackAsTheSignOfTheFirstTerm)
{
    for (const auto type : {Node::TypeUnaryMinus, Node::TypeUnaryPlus}) {
        const std::string s = type == Node::TypeUnaryMinus ? "-" : "+";
        const NodePtr signedA = unary(type, a);
        expectChange(unary(type, binary(Node::TypeAdd, a, b)), s + "a+b", binary(Node::TypeAdd, signedA, b));
        expectChange(unary(type, binary(Node::TypeSub, a, b)), s + "a-b", binary(Node::TypeSub, signedA, b));
        expectChange(unary(type, sum({a, b}, 0)), s + "a+b", binary(Node::TypeAdd, signedA, b));
        const NodePtr squares = binary(Node::TypeSquareSum, a, b);
        const NodePtr squareOfA = binary(Node::TypePow, a, number(2)), squareOfB = binary(Node::TypePow, b, number(2));
        expectChange(unary(type, squares), s + "a^2+b^2", binary(Node::TypeAdd, unary(type, squareOfA), squareOfB));
    }
}

TEST_F(RoundTrip, RequiredQuirkANotOverArithmeticReadsBackAsTheNotOfTheFirstOperand)
{
    for (const auto& [type, sign] : {std::pair(Node::TypeAdd, "+"), {Node::TypeSub, "-"}, {Node::TypeMul, "*"},
                                     {Node::TypeDiv, "/"}})
        expectChange(unary(Node::TypeUnaryNot, binary(type, a, b)), std::string("!a") + sign + "b",
                     binary(type, unary(Node::TypeUnaryNot, a), b));
}

TEST_F(RoundTrip, AMinusOverAProductReadsBackAsAnotherTreeOfTheSameValue)
{
    const NodePtr minusA = unary(Node::TypeUnaryMinus, a);
    for (const auto& [type, text] : {std::pair(Node::TypeMul, "-a*b"), {Node::TypeDiv, "-a/b"}}) {
        const NodePtr tree = unary(Node::TypeUnaryMinus, binary(type, a, b));
        expectChange(tree, text, binary(type, minusA, b));
        EXPECT_EQ(simplifiedText(tree), simplifiedText(readBack(e, text)));
    }
    const NodePtr product = unary(Node::TypeUnaryMinus, term({a, b}, {}, 1));
    expectChange(product, "-a*b", binary(Node::TypeMul, minusA, b));
    EXPECT_EQ(simplifiedText(product), simplifiedText(readBack(e, "-a*b")));
}

TEST_F(RoundTrip, ADerivativeOfAVariableReadsBackAsAVariable)
{
    expectChange(derivative(derivative(a, "t"), "x"), "axt", var("axt"));
}

TEST_F(RoundTrip, AnotherDerivativeReadsBackAsACallOfD)
{
    const NodePtr sumOfTwo = binary(Node::TypeAdd, a, b);
    expectChange(derivative(sumOfTwo, "t"), "d(a+b,t)", call("d", {sumOfTwo, var("t")}));
}

TEST_F(RoundTrip, AListInsideAnotherListIsSplicedIntoIt)
{
    const NodePtr ab = list({a, b});
    expectChange(call("f", {ab}), "f(a , b)", call("f", {a, b}));
    expectChange(vector({ab}), "[a , b]", vector({a, b}));
    expectChange(list({ab, c}), "a , b , c", list({a, b, c}));
    expectChange(boost::make_shared<E::UnitConversion>(rules, c, list({ab, d})), "c[a , b , d]",
                 boost::make_shared<E::UnitConversion>(rules, c, list({a, b, d})));
}

TEST_F(RoundTrip, RowsOfAMatrixReadBackAsOneRow)
{
    expectChange(vector({list({a, b}), list({c, d})}), "[a , b , c , d]", vector({a, b, c, d}));
}

TEST_F(RoundTrip, AListOfOneIsItsItemAndAListOfNoneIsNoFormula)
{
    expectChange(list({a}), "a", a);
    expectError(list({}), "");
}

TEST_F(RoundTrip, FractionsAndNegativeNumbersReadBackAsOperations)
{
    const NodePtr two = number(2), three = number(3);
    const struct { Number n; const char* text; NodePtr wanted; } cases[] = {
        {Number(2, 3), "2/3", binary(Node::TypeDiv, two, three)},
        {-2, "-2", unary(Node::TypeUnaryMinus, two)},
        {Number(-2, 3), "-2/3", binary(Node::TypeDiv, unary(Node::TypeUnaryMinus, two), three)},
    };
    for (const auto& given : cases) {
        expectChange(number(given.n), given.text, given.wanted);
        EXPECT_EQ(simplifiedText(given.wanted), simplifiedText(number(given.n)));
    }
}

TEST_F(RoundTrip, NumbersOfMoreThanSixteenDigitsReadBackAsANeighbour)
{
    // 2^53 + 2 has all its sixteen digits; 0.1 + 0.2 has seventeen; 2/9 none that ends.
    const auto back = [&](const Number& n) {
        const NodePtr read = readBack(e, "x+" + number(n)->toString());
        return read->getChild(1)->getNumVal().toReal();
    };
    EXPECT_EQ(back(9007199254740994.0), 9007199254740994.0);
    EXPECT_EQ(number(0.1 + 0.2)->toString(), "0.3");
    EXPECT_EQ(back(0.1 + 0.2), 0.3);
    EXPECT_EQ(number(Number(2, 9))->toString(), "0.2222222222222222");
    EXPECT_NEAR(back(Number(2, 9)), 2.0 / 9.0, 1e-15);
}

TEST_F(RoundTrip, NaNAndInfinityReadBackAsNames)
{
    expectChange(number(std::numeric_limits<double>::quiet_NaN()), "NaN", var("NaN"));
    expectChange(number(std::numeric_limits<double>::infinity()), "Inf", var("Inf"));
}

TEST_F(RoundTrip, AnUnparsedNumberWithATailIsNoFormula)
{
    expectError(boost::make_shared<E::UnparsedNumber>(rules, "1.5x"), "1.5x");
}

TEST_F(RoundTrip, ASumOfSquaresIsOneAgainOnceItIsMadeBinary)
{
    const NodePtr squares = binary(Node::TypeSquareSum, a, b);
    const NodePtr two = number(2);
    expectChange(squares, "a^2+b^2", binary(Node::TypeAdd, binary(Node::TypePow, a, two), binary(Node::TypePow, b, two)));
    E copy(e);
    copy.setRoot(readBack(e, "a^2+b^2"));
    copy.makeBinary();
    EXPECT_TRUE(Node::equals(copy.getRoot(), squares));
}

TEST(RandomTokens, WhatTheConverterTakesIsReadAndAllElseIsASyntaxError)
{
    static const char* const tokens[] = {"a", "b_1", "f(", "d(", "2", ".5", "(", ")", "[", "]", ",", ";", "+", "-", "*",
                                         "/", "^", "!", "<", "<=", "==", "!=", "&&", "||", "'x y'", "''", " ", "\n", "@"};
    std::mt19937 random(1);
    int taken = 0;
    for (int n = 0; n < 200000; ++n) {
        std::string text;
        for (auto k = 1 + random() % 9; k > 0; --k)
            text += tokens[random() % std::size(tokens)];
        E e;
        const std::string id = idOf([&] { e.scanInfix(qxInfixToPrefix(text)); });
        const bool accepted = !qxInfixToPrefix(text).empty();
        taken += accepted;
        ASSERT_EQ(id, accepted ? "" : internalError) << text; // an empty prefix text is no expression
        ASSERT_EQ(idOf([&] { e.scan(text); }), accepted ? "" : syntaxError) << text;
    }
    EXPECT_GT(taken, 5000);
}

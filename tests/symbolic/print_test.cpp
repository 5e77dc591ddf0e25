// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_support.hpp"

#include <cmath>
#include <limits>
#include <sstream>

using namespace qxtest;
using E = ExprImpl;

namespace {

/// Nodes made by hand on one store.
class Print : public testing::Test
{
protected:
    NodePtr var(const char* name) { return boost::make_shared<E::Identifier>(rules, e.getStore()->getVar(name)); }
    NodePtr num(Number n) { return boost::make_shared<E::Constant>(rules, n); }
    NodePtr term(E::Nodes above, E::Nodes below, Number coeff)
    {
        return boost::make_shared<E::Term>(rules, above, below, coeff);
    }
    NodePtr sum(E::Nodes terms, Number constant) { return boost::make_shared<E::Sum>(rules, terms, constant); }
    NodePtr unary(Node::Type t, NodePtr a) { return boost::make_shared<E::Unary>(rules, t, a); }
    NodePtr binary(Node::Type t, NodePtr a, NodePtr b) { return boost::make_shared<E::Binary>(rules, t, a, b); }
    NodePtr diff(NodePtr a, const char* by) { return boost::make_shared<E::Derivative>(rules, a, e.getStore()->getVar(by)); }

    E e;
    E::RulesPtr rules = e.getRules();
    NodePtr x = var("x"), y = var("y"), z = var("z");
};

} // namespace

TEST_F(Print, ParenthesesFollowTheStrengthOfTheOperators)
{
    for (const char* text : {"a-(b-c)", "a-b-c", "a^(b^c)", "a^b^c", "a*(b+c)", "a*b+c", "a/(b*c)", "a/b/c", "(a+b)^2",
                             "a+b<c", "(a<b)+c", "a<(b<c)", "a&&(b||c)", "a||b&&c", "(a+b)[m]", "a^b[m]", "f(a+b,c)",
                             "[a , b+c]", "a==b!=c"})
        EXPECT_EQ(printedInfix(text), text);
    EXPECT_EQ(printedInfix("(a-b)-c"), "a-b-c");
    EXPECT_EQ(printedInfix("(a^b)^c"), "a^b^c");
}

TEST_F(Print, RequiredQuirkSignsPrintWithoutTheParenthesesOfTheirOperand)
{
    EXPECT_EQ(printedInfix("-(a+b)"), "-a+b");
    EXPECT_EQ(printedInfix("!(a+b)"), "!a+b");
    EXPECT_EQ(printedInfix("!(a*b)"), "!a*b");
    EXPECT_EQ(printedInfix("-(a*b)"), "-a*b");
    EXPECT_EQ(printedInfix("(-a)*b"), "(-a)*b");
    EXPECT_EQ(printedInfix("a+-b"), "a+(-b)");
}

TEST_F(Print, NumbersTakeTheStrengthOfTheirText)
{
    EXPECT_EQ(binary(Node::TypeSub, x, num(Number(-2, 3)))->toString(), "x--2/3");
    EXPECT_EQ(binary(Node::TypePow, num(Number(2, 3)), x)->toString(), "(2/3)^x");
    EXPECT_EQ(binary(Node::TypePow, num(-2), x)->toString(), "(-2)^x");
    EXPECT_EQ(binary(Node::TypeSub, x, num(-2))->toString(), "x-(-2)");
    EXPECT_EQ(binary(Node::TypePow, num(2), x)->toString(), "2^x");
}

TEST_F(Print, TermsPrintCoefficientNumeratorsAndDenominators)
{
    EXPECT_EQ(term({x}, {}, Number(1, 3))->toString(), "x/3");
    EXPECT_EQ(term({x}, {}, Number(3, 2))->toString(), "1.5*x");
    EXPECT_EQ(term({x, y}, {}, 1)->toString(), "x*y");
    EXPECT_EQ(term({x}, {}, -1)->toString(), "-x");
    EXPECT_EQ(term({x}, {y}, -2)->toString(), "-2*x/y");
    EXPECT_EQ(term({}, {y}, 1)->toString(), "1/y");
    EXPECT_EQ(term({}, {y, z}, 5)->toString(), "5/(y*z)");
    EXPECT_EQ(term({x}, {y}, Number(2, 3))->toString(), "2*x/(3*y)");
    EXPECT_EQ(term({}, {}, Number(1, 3))->toString(), "1/3");
    EXPECT_EQ(term({sum({x, y}, 0)}, {}, 2)->toString(), "2*(x+y)");
}

TEST_F(Print, CoefficientsThatAreNoNumbersPrintByName)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(term({x}, {}, infinity)->toString(), "Inf*x");
    EXPECT_EQ(term({x}, {}, -infinity)->toString(), "-Inf*x");
    EXPECT_EQ(term({x}, {y}, std::numeric_limits<double>::quiet_NaN())->toString(), "NaN*x/y");
    EXPECT_EQ(sum({term({x}, {}, infinity)}, infinity)->toString(), "Inf+Inf*x");
}

TEST_F(Print, TheLargestNumbersReadBack)
{
    const double largest = std::numeric_limits<double>::max();
    // Sixteen digits of these round up to 1.797693134862316e308, which is beyond the largest.
    for (double v = largest; v > 1.7976931348623155e308; v = std::nextafter(v, 0.0))
        for (const double value : {v, -v}) {
            EXPECT_EQ(std::stod(num(value)->toString()), value);
            EXPECT_EQ(term({x}, {}, value)->toString(), num(value)->toString() + "*x");
        }
    EXPECT_EQ(num(1.797693134862315e308)->toString(), "1.797693134862315e+308");
}

TEST_F(Print, SumsPrintConstantAndTermsWithTheirSigns)
{
    EXPECT_EQ(sum({}, 0)->toString(), "0");
    EXPECT_EQ(sum({}, Number(1, 3))->toString(), "1/3");
    EXPECT_EQ(sum({x, y}, 0)->toString(), "x+y");
    EXPECT_EQ(sum({x, term({y}, {}, -2)}, 1)->toString(), "1+x-2*y");
    EXPECT_EQ(sum({term({x}, {}, -1), y}, 0)->toString(), "-x+y");
    EXPECT_EQ(binary(Node::TypeMul, x, sum({y, z}, 0))->toString(), "x*(y+z)");
}

TEST_F(Print, DerivativesOfAVariablePrintAsNamesSideBySide)
{
    const NodePtr u = var("u");
    EXPECT_EQ(diff(u, "t")->toString(), "ut");
    EXPECT_EQ(diff(diff(u, "t"), "x")->toString(), "uxt");
    EXPECT_EQ(diff(binary(Node::TypeAdd, u, x), "t")->toString(), "d(u+x,t)");
    EXPECT_EQ(diff(diff(binary(Node::TypeAdd, u, x), "t"), "s")->toString(), "d(d(u+x,t),s)");
}

TEST_F(Print, SquareSumPrintsItsBasesAsPowers)
{
    EXPECT_EQ(binary(Node::TypeSquareSum, x, y)->toString(), "x^2+y^2");
    EXPECT_EQ(binary(Node::TypeSquareSum, binary(Node::TypeAdd, x, z), y)->toString(), "(x+z)^2+y^2");
}

TEST_F(Print, ListsAndTexts)
{
    EXPECT_EQ(E::List(rules, {x, y}).toString(), "x , y");
    EXPECT_EQ(E::List(rules, {}).toString(), "");
    EXPECT_EQ(E::List(rules, {x}).toString(), "x");
    EXPECT_EQ(E::Vector(rules, {x, y}).toString(), "[x , y]");
    EXPECT_EQ(printedInfix("[a,b;c,d]"), "[a , b , c , d]");
    EXPECT_EQ(E::StringLiteral(rules, "it's 'x'").toString(), "'it''s ''x'''");
    EXPECT_EQ(E::UnparsedNumber(rules, "1.5x").toString(), "1.5x");
    EXPECT_EQ(E::FuncCall(rules, "f", {x, E::NodePtr(new E::StringLiteral(rules, "s"))}).toString(), "f(x,'s')");
}

TEST_F(Print, WriteParenEnclosesWhatBindsWeaker)
{
    const auto paren = [](const NodePtr& node, int outer) {
        std::ostringstream stream;
        node->writeParen(stream, outer);
        return stream.str();
    };
    const NodePtr s = binary(Node::TypeAdd, x, y);
    EXPECT_EQ(paren(s, 80), "x+y");
    EXPECT_EQ(paren(s, 81), "(x+y)");
    EXPECT_EQ(paren(num(Number(1, 3)), 91), "(1/3)");
    EXPECT_EQ(paren(num(-1), 71), "(-1)");
    std::ostringstream stream;
    stream.width(20);
    s->writeNoParen(stream);
    EXPECT_EQ(stream.str(), "x+y");
}

TEST_F(Print, DumpIndentsByOneBlankForEachLevel)
{
    std::ostringstream stream;
    binary(Node::TypeAdd, x, unary(Node::TypeUnaryMinus, num(2)))->dump(stream, 1);
    EXPECT_EQ(stream.str(), " Binary\n  Identifier\n  Unary\n   Constant\n");
}

TEST_F(Print, ExpressionAndTreeStreamTheSameText)
{
    ExprTree tree;
    tree.scan("a+b*c");
    std::ostringstream one, two;
    one << tree;
    two << *tree.getImpl();
    std::string text;
    tree.print(text);
    EXPECT_EQ(one.str(), "a+b*c");
    EXPECT_EQ(two.str(), "a+b*c");
    EXPECT_EQ(text, "a+b*c");
}

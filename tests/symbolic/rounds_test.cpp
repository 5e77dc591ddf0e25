// SPDX-License-Identifier: LicenseRef-qxkernel
// Later rounds of a simplification pass by what no rule can change any more: the outcome is that of rounds over everything.

#include "symbolic_support.hpp"

using namespace qxtest;

namespace {

/// The canonical text after simp, and after simp of a copy that was taken apart into plain operations.
std::string again(const std::string& infix)
{
    ExprImpl e;
    e.scan(infix);
    e.simp(false);
    e.makeBinary();
    e.simp(false);
    return e.toString();
}

} // namespace

TEST(Rounds, ASumThatVanishesInAProductEndsTheProduct)
{
    // The sum becomes 0*w while the product around it is at work: no later round may take that product for finished.
    EXPECT_EQ(simplified("((w-w)/y)*((w+z)*z^3)"), "0");
    EXPECT_EQ(simplified("if(z^x>y-x,-1.5*(z-z),1+3*y)"), "if(z^x>y-x,0,1+3*y)");
    EXPECT_EQ(simplified("sin(-(((z-z)*x)^w))"), again("sin(-(((z-z)*x)^w))"));
}

TEST(Rounds, AFunctionAloneInASumStaysWhereItIs)
{
    EXPECT_EQ(simplified("sin(x)+cos(y)+x^3+(x-x)*exp(y)"), "sin(x)+cos(y)+x^3");
    EXPECT_EQ(simplified("(sin(x)+z*(y-y))*(sin(x)+cos(y))/(sin(x)+cos(y))"), again("sin(x)*(cos(y)+sin(x))^0"));
}

TEST(Rounds, AnEqualSubtreeMadeLateIsJoinedToTheOneThatIsFinished)
{
    ExprImpl e;
    e.scan("sin(x*y+1)+z*cos(x*(y+0*z)+1*1)*sin(x*y+1)");
    e.simp(false);

    const NodePtr root = e.getRoot();
    std::vector<const Node*> sums;
    std::vector<Node*> open{root.get()};
    while (!open.empty()) {
        Node* node = open.back();
        open.pop_back();
        if (node->toString() == "1+x*y")
            sums.push_back(node);
        for (int i = 0; i < node->getChildCount(); ++i)
            open.push_back(node->getChild(i).get());
    }
    ASSERT_EQ(sums.size(), 2u); // sin(1+x*y)*(1+z*cos(1+x*y)): x*y + 1 below each function
    EXPECT_EQ(sums[1], sums[0]);
}

TEST(Rounds, ASecondSimplificationStartsAnew)
{
    ExprImpl e;
    e.scan("x*sin(z)+y*sin(z)");
    e.simp(false);
    e.rename({{"y", "x"}}, {});
    e.simp(false);

    EXPECT_THAT(e.toString(), testing::AnyOf("2*sin(z)*x", "2*x*sin(z)"));
}

TEST(Rounds, ADerivativeOfAPowerIsThatOfTheGeneralRule)
{
    // n x^n/x: one power of x, whatever the form of the base.
    const auto derivative = [](const std::string& infix) {
        ExprImpl e;
        e.scan(infix);
        e.simp(false);
        e.diff(e.getStore()->getVar("x"));
        return e.toString();
    };
    EXPECT_EQ(derivative("x^3"), "3*x^2");
    EXPECT_EQ(derivative("7*x^5"), "35*x^4");
    EXPECT_EQ(derivative("sin(x)^3"), "3*sin(x)^2*cos(x)");
    EXPECT_EQ(derivative("(x+y)^2"), "2*(x+y)^1");
    EXPECT_EQ(derivative("y^3"), "0");
    EXPECT_EQ(derivative("(2*x)^3"), "3*(2*x)^3/x"); // a product as base: 3 (2x)^3/(2x) 2
    EXPECT_EQ(derivative("1/x^2"), "-2*x^(-3)");
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_support.hpp"

#include "support/deep_stack.hpp"

using namespace qxtest;
using E = ExprImpl;

namespace {

class Nodes : public testing::Test
{
protected:
    NodePtr var(const char* name) { return boost::make_shared<E::Identifier>(rules, e.getStore()->getVar(name)); }
    NodePtr read(const char* prefix) { return E::InfixParser(e.getStore(), rules).parse(prefix); }

    E e;
    E::RulesPtr rules = e.getRules();
    NodePtr x = var("x"), y = var("y");
    NodePtr one = boost::make_shared<E::Constant>(rules, Number(1));
};

std::uint32_t low(const void* p) { return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p)); }

} // namespace

TEST_F(Nodes, ConstructorsCheckTheirType)
{
    for (const auto type : {Node::TypeAdd, Node::TypeTerm, Node::Type(0)})
        EXPECT_EQ(idOf([&] { E::Unary(rules, type, x); }), internalError);
    for (const auto type : {Node::TypeUnaryPlus, Node::TypeSum, Node::Type(7)})
        EXPECT_EQ(idOf([&] { E::Binary(rules, type, x, y); }), internalError);
}

TEST_F(Nodes, NamesCountsAndStrengths)
{
    const auto term = boost::make_shared<E::Term>(rules, E::Nodes{x, y}, E::Nodes{x}, Number(2));
    const auto sum = boost::make_shared<E::Sum>(rules, E::Nodes{x, y}, Number(2));
    struct Row
    {
        NodePtr node;
        const char* name;
        int children;
        int prec;
    };
    for (const Row& row : {Row{read("U- x"), "Unary", 1, 70}, Row{read("+ x y"), "Binary", 2, 80},
                           Row{read("() f 3 x y x"), "FuncCall", 3, 1000}, Row{read("(DIFF) x y"), "Derivative", 1, 1000},
                           Row{read(", 2 x y"), "List", 2, 30}, Row{read("(MAT) 2 x y"), "Vector", 2, 30},
                           Row{read("(UNIT) x y"), "UnitConversion", 2, 100}, Row{x, "Identifier", 0, 1000},
                           Row{read("\"\" 1 a"), "LiteralValue", 0, 1000}, Row{one, "Constant", 0, 1000},
                           Row{term, "Term", 3, 90}, Row{sum, "Sum", 2, 80}}) {
        EXPECT_STREQ(row.node->getTypeName(), row.name);
        EXPECT_EQ(row.node->getChildCount(), row.children) << row.name;
        EXPECT_EQ(row.node->prec, row.prec) << row.name;
        EXPECT_EQ(idOf([&] { row.node->getChild(row.children); }), internalError) << row.name;
        EXPECT_EQ(idOf([&] { row.node->getChild(-1); }), internalError) << row.name;
        EXPECT_EQ(idOf([&] { row.node->getNumVal(); }), row.node == one ? "" : internalError) << row.name;
    }
    EXPECT_EQ(term->getChild(1), y);
    EXPECT_EQ(term->getChild(2), x);
}

TEST_F(Nodes, BaseCopyOfAnInteriorNodeIsRefused)
{
    EXPECT_EQ(idOf([&] { read("+ x y")->Node::rebuild(x, {}); }), internalError);
    EXPECT_EQ(x->Node::rebuild(x, {}), x);
}

TEST_F(Nodes, CopiesAreDeepShareLeavesAndKeepTheirClass)
{
    const NodePtr original = read("() f 3 + x y (MAT) 2 x , 1 y (UNIT) U- x (DIFF) y x");
    const NodePtr copy = original->getCopy(original);
    EXPECT_EQ(copy->toString(), original->toString());
    EXPECT_TRUE(Node::equals(copy, original));
    EXPECT_NE(copy, original);
    EXPECT_NE(copy->getChild(0), original->getChild(0));
    EXPECT_EQ(copy->getChild(0)->getChild(0), original->getChild(0)->getChild(0));
    EXPECT_STREQ(copy->getChild(1)->getTypeName(), "Vector");
    EXPECT_STREQ(copy->getChild(1)->getChild(1)->getTypeName(), "List");
    EXPECT_EQ(x->getCopy(x), x);

    const NodePtr shared = read("* x y");
    const NodePtr twice = boost::make_shared<E::Binary>(rules, Node::TypeAdd, shared, shared);
    const NodePtr copied = twice->getCopy(twice);
    EXPECT_EQ(copied->getChild(0), copied->getChild(1));
    EXPECT_NE(copied->getChild(0), shared);
}

TEST_F(Nodes, HashCodesByHand)
{
    const NodePtr add = read("+ x y");
    std::uint32_t h = Node::TypeAdd;
    h = h * 69069u + low(add->getChild(0).get());
    h = h * 69069u + low(add->getChild(1).get());
    EXPECT_EQ(add->getHashCode(), h);

    EXPECT_EQ(x->getHashCode(), low(e.getStore()->getVar("x").get()));
    EXPECT_EQ(one->getHashCode(), Number(1).getHashCode());

    // FNV-1a of "f" by hand: (0x811c9dc5 ^ 0x66) * 16777619, then folded.
    std::uint32_t v = (0x811c9dc5u ^ 0x66u) * 16777619u;
    v = v ^ (v >> 8) ^ (v >> 16) ^ (v >> 24);
    EXPECT_EQ(read("() f 0")->getHashCode(), Node::TypeFuncCall ^ v);
    EXPECT_EQ(read("\"\" 1 f")->getHashCode(), Node::TypeStringLiteral ^ v);

    const NodePtr d = read("(DIFF) x y");
    EXPECT_EQ(d->getHashCode(), Node::TypeDerivative ^ low(d->getChild(0).get()) ^ low(d->as<E::Derivative>().var.get()));

    const E::Term term(rules, {x}, {y}, Number(2));
    const std::uint32_t quotient =
        y->getHashCode() * 1664525u + (69069u + x->getHashCode()) * 69069u + 1013904223u;
    EXPECT_EQ(term.getQuotientHashCode(), quotient);
    EXPECT_EQ(const_cast<E::Term&>(term).getHashCode(), Node::TypeTerm ^ Number(2).getHashCode() ^ quotient);

    E::Sum sum(rules, {x}, Number(3));
    EXPECT_EQ(sum.getHashCode(), (Node::TypeSum ^ Number(3).getHashCode()) * 69069u + low(x.get()));
}

TEST_F(Nodes, QuotientHashIgnoresOrderAndCoefficient)
{
    EXPECT_EQ(E::Term(rules, {x, y}, {}, 2).getQuotientHashCode(), E::Term(rules, {y, x}, {}, 3).getQuotientHashCode());
    EXPECT_NE(E::Term(rules, {x}, {y}, 1).getQuotientHashCode(), E::Term(rules, {y}, {x}, 1).getQuotientHashCode());
}

TEST_F(Nodes, EqualityByClassAndContent)
{
    const auto same = [&](const char* a, const char* b) { return Node::equals(read(a), read(b)); };
    EXPECT_TRUE(same("+ x y", "+ x y"));
    EXPECT_FALSE(same("+ x y", "+ y x"));
    EXPECT_FALSE(same("+ x y", "- x y"));
    EXPECT_TRUE(same("() f 2 x y", "() f 2 x y"));
    EXPECT_FALSE(same("() f 1 x", "() g 1 x"));
    EXPECT_FALSE(same("() f 1 x", "() f 2 x x"));
    EXPECT_TRUE(same("(DIFF) x y", "(DIFF) x y"));
    EXPECT_FALSE(same("(DIFF) x y", "(DIFF) x z"));
    EXPECT_TRUE(same("\"\" 2 ab", "\"\" 2 ab"));
    EXPECT_FALSE(same("\"\" 2 ab", "\"\" 2 ac"));
    EXPECT_FALSE(same(", 1 x", "(MAT) 1 x"));
    EXPECT_TRUE(same("0.5", "0.50"));
    EXPECT_FALSE(same("x", "y"));
    Number realOne;
    realOne.type = Number::Real;
    realOne.num = 1.0;
    EXPECT_TRUE(Node::equals(one, boost::make_shared<E::Constant>(rules, realOne)));
    EXPECT_TRUE(Node::equals(boost::make_shared<E::Term>(rules, E::Nodes{x, y}, E::Nodes(), Number(2)),
                             boost::make_shared<E::Term>(rules, E::Nodes{y, x}, E::Nodes(), Number(2))));
    EXPECT_FALSE(Node::equals(boost::make_shared<E::Sum>(rules, E::Nodes{x, y}, Number(2)),
                              boost::make_shared<E::Sum>(rules, E::Nodes{y, x}, Number(3))));
}

TEST_F(Nodes, UnorderedComparisonGoesByPointer)
{
    const NodePtr x2 = var("x");
    EXPECT_TRUE(Node::equalsWithoutOrder({}, {}));
    EXPECT_TRUE(Node::equalsWithoutOrder({x, y, x}, {y, x, x}));
    EXPECT_FALSE(Node::equalsWithoutOrder({x, y}, {x, x}));
    EXPECT_FALSE(Node::equalsWithoutOrder({x}, {x2}));
    EXPECT_FALSE(Node::equalsWithoutOrder({x}, {x, x}));
}

TEST_F(Nodes, SharedGraphsAreComparedOncePerPair)
{
    const auto tower = [&] {
        NodePtr p = read("() f 1 x");
        for (int i = 0; i < 60; ++i)
            p = boost::make_shared<E::Binary>(rules, Node::TypePow, p, p);
        return p;
    };
    EXPECT_TRUE(Node::equals(tower(), tower()));
}

TEST_F(Nodes, ConstantsComeFromACacheOfTen)
{
    const NodePtr half = rules->constant(0.5);
    EXPECT_EQ(rules->constant(0.5), half);
    EXPECT_EQ(rules->constant(Number(1, 2)), half);
    EXPECT_EQ(rules->constant(0.0), rules->constant(-0.0));
    const double nan = std::nan("");
    EXPECT_NE(rules->constant(nan), rules->constant(nan));
    EXPECT_NE(rules->constant(Number(1, 3)), rules->constant(Number(1, 3))); // not entered
    for (int i = 100; i < 110; ++i)
        rules->constant(double(i));
    EXPECT_NE(rules->constant(0.5), half); // ten later ones pushed it out
}

TEST_F(Nodes, ClearedRulesCacheNothing)
{
    rules->clear();
    EXPECT_NE(rules->constant(0.5), rules->constant(0.5));
    EXPECT_NE(rules->getDiffRule("sin", 1), rules->getDiffRule("sin", 1));
}

TEST_F(Nodes, ReleaseOfMillionDeepChainsOfEveryClassOnASmallStack)
{
    runOnStack(javaStack, [&] {
        for (int kind = 0; kind < 9; ++kind) {
            NodePtr p = x;
            for (int i = 0; i < 300000; ++i) {
                switch (kind) {
                case 0: p = boost::make_shared<E::Unary>(rules, Node::TypeUnaryMinus, p); break;
                case 1: p = boost::make_shared<E::Binary>(rules, Node::TypePow, p, p); break; // two slots each
                case 2: p = boost::make_shared<E::FuncCall>(rules, "f", p); break;
                case 3: p = boost::make_shared<E::Derivative>(rules, p, e.getStore()->getVar("t")); break;
                case 4: p = boost::make_shared<E::List>(rules, E::Nodes{p}); break;
                case 5: p = boost::make_shared<E::Vector>(rules, E::Nodes{p}); break;
                case 6: p = boost::make_shared<E::UnitConversion>(rules, p, y); break;
                case 7: p = boost::make_shared<E::Term>(rules, E::Nodes{y}, E::Nodes{p}, Number(1)); break;
                default: p = boost::make_shared<E::Sum>(rules, E::Nodes{p, y}, Number(1)); break;
                }
            }
        }
    });
}

TEST_F(Nodes, ReleaseLeavesSharedChildrenAlone)
{
    NodePtr child = read("+ x y");
    {
        const NodePtr parent = boost::make_shared<E::Unary>(rules, Node::TypeUnaryMinus, child);
    }
    EXPECT_EQ(child->toString(), "x+y");
    EXPECT_EQ(child.use_count(), 1);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_support.hpp"

#include "array.hpp"

using namespace qxtest;
using E = ExprImpl;
using Names = std::vector<std::string>;
using Table = Array<int, 2>;

namespace {

std::string printed(const ExprTree& tree)
{
    std::string text;
    tree.print(text);
    return text;
}

std::string renamed(std::string text, const Names& oldVars, const Names& newVars, const Names& oldFuncs = {},
                    const Names& newFuncs = {})
{
    ExprTree().rename(text, oldVars, newVars, oldFuncs, newFuncs);
    return text;
}

Names varsOf(const std::string& text)
{
    Names names;
    ExprTree().getVars(text, names);
    return names;
}

using Occurrence = std::pair<std::string, int>;

std::vector<Occurrence> occurrences(const ExprTree& tree)
{
    ExprVarOccurrences set;
    tree.getVarOccurrences(set);
    std::vector<Occurrence> list;
    for (const auto& [var, order] : set)
        list.emplace_back(var->getName(), order);
    return list;
}

Table table(std::initializer_list<int> values)
{
    Table t(2ul, values.size() / 2);
    std::copy(values.begin(), values.end(), t.data());
    return t;
}

std::vector<int> boolEval(const std::string& text)
{
    ExprTree tree;
    tree.scan(text);
    Table result;
    tree.boolEval({"a", "b"}, {table({0, 0, 1, 7}), table({0, 1, 0, 1})}, result);
    EXPECT_EQ(result.extent(0), 2u);
    return std::vector<int>(result.data(), result.end());
}

} // namespace

TEST(ExprVar, KindsOutsideTheRangeAreRefused)
{
    ExprVar var("x");
    EXPECT_EQ(var.getType(), ExprVar::TypeIndependent);
    for (const int kind : {-1, 5})
        EXPECT_EQ(idOf([&] { var.setType(kind); }), internalError);
    EXPECT_EQ(idOf([] { ExprVar("y", 7); }), internalError);
    EXPECT_EQ(var.getType(), ExprVar::TypeIndependent);
    try {
        var.setType(9);
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getFile(0), "exprvar");
    }
    var.setType(4);
    EXPECT_EQ(var.getType(), ExprVar::TypeDependent);
}

TEST(ExprVarStore, OneNameIsOneObject)
{
    ExprVarStore store;
    const auto x = store.getVar("x");
    EXPECT_EQ(store.getVar("x"), x);
    EXPECT_NE(store.getVar("y"), x);
    EXPECT_EQ(store.size(), 2u);
}

TEST(ExprTree, StartsAsZero)
{
    double value = 1.0;
    EXPECT_EQ(printed(ExprTree()), "0");
    EXPECT_TRUE(ExprTree().toReal(value));
    EXPECT_EQ(value, 0.0);
}

TEST(ExprTree, ToRealKnowsConstantsOnly)
{
    ExprTree tree;
    double value = -1.0;
    tree.scan("42");
    EXPECT_FALSE(tree.toReal(value)); // still a text
    tree.simp(false);
    EXPECT_TRUE(tree.toReal(value));
    EXPECT_EQ(value, 42.0);
    tree.scan("1/3+0");
    tree.simp(false);
    EXPECT_TRUE(tree.toReal(value));
    EXPECT_EQ(value, 1.0 / 3.0);
    tree.scan("x");
    EXPECT_FALSE(tree.toReal(value));
}

TEST(ExprTree, DivideAndMinusJoinTwoRoots)
{
    const auto store = boost::make_shared<ExprVarStore>();
    ExprTree a(store, {}), b(store, {}), c(store, {});
    a.scan("x+y");
    b.scan("y");
    c.divide(a, b);
    EXPECT_EQ(printed(c), "(x+y)/y");
    c.minus(a, b);
    EXPECT_EQ(printed(c), "x+y-y");
    c.simp(false);
    EXPECT_EQ(printed(c), "x");
}

TEST(ExprTree, GetVarsListsNamesWithRepeatsAndWithoutUnits)
{
    EXPECT_EQ(varsOf("a+a[b]"), (Names{"a", "a"}));
    EXPECT_EQ(varsOf("f(x,y*x)+z"), (Names{"x", "y", "x", "z"}));
    EXPECT_EQ(varsOf("5"), Names{});
}

TEST(ExprTree, RenameWritesTheTextAsThePrinterDoes)
{
    EXPECT_EQ(renamed(" ( a + b ) ", {}, {}), "a+b");
    EXPECT_EQ(renamed("a*b", {"a"}, {"c"}), "c*b");
    EXPECT_EQ(renamed("a", {"a", "a"}, {"c", "d"}), "d"); // the later pair
}

TEST(ExprTree, RenameChainsAndSwapsNamesAtOnce)
{
    EXPECT_EQ(renamed("x*x", {"x", "y"}, {"y", "z"}), "y*y");
    EXPECT_EQ(renamed("x*x+y", {"x", "y"}, {"y", "x"}), "y*y+x");
    EXPECT_EQ(renamed("x*x*x", {"x", "y"}, {"y", "x"}), "y*y*y");
}

TEST(ExprTree, RenameReachesNestedFunctions)
{
    EXPECT_EQ(renamed("f(g(f(x)),f)", {}, {}, {"f", "g"}, {"g", "h"}), "g(h(g(x)),f)");
}

TEST(ExprTree, RenameNeedsPairs)
{
    EXPECT_EQ(idOf([] { renamed("a", {"a"}, {}); }), internalError);
    EXPECT_EQ(idOf([] { renamed("a", {}, {}, {"f"}, {}); }), internalError);
}

TEST(ExprTree, ReplaceArgsPutsLiteralsInPlaceOfArguments)
{
    const auto run = [](std::string text, const Names& names, Names& old) {
        ExprTree().replaceArgs(text, names, old);
        return text;
    };
    Names old;
    EXPECT_EQ(run("f(x+1,y)", {}, old), "f('','')");
    EXPECT_EQ(old, (Names{"x+1", "y"}));
    old.clear();
    EXPECT_EQ(run("f(x)+2*g(y,h(z))", {"p", "q", "r"}, old), "f('p')+2*g('q','r')");
    EXPECT_EQ(old, (Names{"x", "y", "h(z)"}));
    old.clear();
    EXPECT_EQ(run("a+f()", {}, old), "a+f()");
    EXPECT_EQ(idOf([&] { run("f(x,y)", {"p"}, old); }), internalError);
}

TEST(ExprTree, OccurrencesReportUnknownsWithTheirOrders)
{
    for (const int kind : {2, 3, 4}) {
        ExprTree tree;
        tree.getStore()->getVar("u")->setType(kind);
        tree.scanInfix("+ (DIFF) u t u");
        EXPECT_EQ(occurrences(tree), kind == 2 ? std::vector<Occurrence>{} : (std::vector<Occurrence>{{"u", 0}, {"u", 1}}));
    }
    ExprTree tree;
    tree.getStore()->getVar("u")->setType(3);
    tree.getStore()->getVar("a")->setType(4);
    tree.scanInfix("* (DIFF) (DIFF) u t t () f 2 a (DIFF) + a u t");
    EXPECT_EQ(occurrences(tree), (std::vector<Occurrence>{{"a", 0}, {"a", 1}, {"u", 1}, {"u", 2}}));
}

TEST(ExprTree, ReplaceVarsTakesVariablesAndTheirTimeDerivatives)
{
    ExprTree tree;
    const auto var = [&](const char* name) { return tree.getStore()->getVar(name); };
    const auto replaced = [&](const char* prefix, const ExprVarMap& map) {
        tree.scanInfix(prefix);
        tree.replaceVars(map, "t");
        return printed(tree);
    };
    const ExprVarMap map{{{var("u"), 0}, var("v")}, {{var("u"), 2}, var("w")}};
    EXPECT_EQ(replaced("+ u z", map), "v+z"); // z is not in the map and stays
    EXPECT_EQ(replaced("(DIFF) (DIFF) u t t", map), "w");
    EXPECT_EQ(replaced("(DIFF) u t", map), "ut");
    EXPECT_EQ(replaced("(DIFF) (DIFF) u t s", map), "ust");
    EXPECT_EQ(replaced("(DIFF) + u z t", map), "d(u+z,t)");
    EXPECT_EQ(replaced("() f 2 U- u (UNIT) u u", map), "f(-v,v[v])");
    EXPECT_EQ(replaced("(MAT) 2 u 1.5", map), "[v , 1.5]");
    tree.scan("2*u+3");
    tree.simp(false);
    tree.replaceVars(map, "t");
    EXPECT_EQ(printed(tree), "3+2*v");
}

TEST(BoolEval, TruthTable)
{
    EXPECT_EQ(boolEval("a"), (std::vector<int>{0, 0, 1, 7}));
    EXPECT_EQ(boolEval("a*b"), (std::vector<int>{0, 0, 0, 1}));
    EXPECT_EQ(boolEval("a+b"), (std::vector<int>{0, 1, 1, 1}));
    EXPECT_EQ(boolEval("a-b"), (std::vector<int>{0, 0, 1, 0}));
    EXPECT_EQ(boolEval("b-a"), (std::vector<int>{0, 1, 0, 0}));
    EXPECT_EQ(boolEval("(a+b)*(b-(a*b))"), (std::vector<int>{0, 1, 0, 0}));
    EXPECT_EQ(boolEval("a-(b-(a-b))"), (std::vector<int>{0, 0, 1, 0}));
}

TEST(BoolEval, RefusesWhatItCannotCombine)
{
    EXPECT_EQ(idOf([] { boolEval("!a"); }), "Unimplemented_operator");
    EXPECT_EQ(argsOf([] { boolEval("!a"); }), (qxbase::ExceptionArgs{{"Name", "Unary"}}));
    EXPECT_EQ(argsOf([] { boolEval("a/b"); }), (qxbase::ExceptionArgs{{"Name", "Binary"}}));
    EXPECT_EQ(argsOf([] { boolEval("a^2+b^2"); }), (qxbase::ExceptionArgs{{"Name", "Binary"}}));
    EXPECT_EQ(idOf([] { boolEval("c"); }), "Unknown_variable_name");
    EXPECT_EQ(argsOf([] { boolEval("a+c"); }), (qxbase::ExceptionArgs{{"Name", "c"}}));
    ExprTree misspelt;
    misspelt.scan("switch1*vlave");
    Table none;
    EXPECT_EQ(argsOf([&] { misspelt.boolEval({"switch1", "valve"}, {table({1}), table({1})}, none); }),
              (qxbase::ExceptionArgs{{"Name", "vlave"}, {"Nearest", "valve"}}));
    ExprTree tree;
    tree.scan("a+b");
    Table result;
    EXPECT_EQ(idOf([&] { tree.boolEval({"a", "b"}, {table({1, 0}), table({1, 0, 1, 0})}, result); }), internalError);
}

TEST(Copies, ShareNodesUntilOneIsRewritten)
{
    ExprTree tree;
    tree.scan("f(x+x)");
    const ExprTree copy(tree);
    EXPECT_EQ(copy.getImpl()->getRoot(), tree.getImpl()->getRoot());
    EXPECT_EQ(copy.getStore(), tree.getStore());

    tree.simp(false);

    EXPECT_EQ(printed(tree), "f(2*x)");
    EXPECT_EQ(printed(copy), "f(x+x)");
}

TEST(Copies, DieInEitherOrder)
{
    for (const bool sourceFirst : {true, false}) {
        boost::weak_ptr<E::FuncRules> rules;
        boost::weak_ptr<Node> root;
        {
            auto a = std::make_unique<E>();
            a->scan("x*sin(x)+0.5");
            a->simp(false);
            rules = a->getRules();
            auto b = std::make_unique<E>(*a);
            root = a->getRoot();
            (sourceFirst ? a : b).reset();
            E& left = sourceFirst ? *b : *a;
            left.diff(left.getStore()->getVar("x"));
            left.simp(true);
        }
        EXPECT_TRUE(root.expired());
        EXPECT_TRUE(rules.expired());
    }
}

TEST(Copies, AssignmentTakesStoreRulesAndRoot)
{
    E a, b;
    const boost::weak_ptr<E::FuncRules> old = a.getRules();
    b.scan("x+y");
    a.scan("z*0.5");
    a.simp(false);
    a = b;
    EXPECT_EQ(a.getRoot(), b.getRoot());
    EXPECT_EQ(a.getStore(), b.getStore());
    EXPECT_EQ(a.getRules(), b.getRules());
    EXPECT_TRUE(old.expired());
    const E& self = a;
    a = self;
    EXPECT_EQ(a.toString(), "x+y");
}

TEST(Copies, NodesOutliveTheirFamily)
{
    NodePtr root;
    {
        E e;
        e.scan("sin(x)*x^3+7");
        e.simp(false);
        root = e.getRoot();
    }
    const auto var = root->rules->getStore()->getVar("x");
    for (int i = 0; i < 3; ++i) { // nothing is cached any more: no cycle comes up again
        const NodePtr d = root->diff(root, var);
        EXPECT_FALSE(d->toString().empty());
    }
    const boost::weak_ptr<E::FuncRules> rules = root->rules;
    root.reset();
    EXPECT_TRUE(rules.expired());
}

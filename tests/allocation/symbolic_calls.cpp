// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "exprimpl.hpp"
#include "exprtree.hpp"
#include "exprvar.hpp"

namespace qxtest {

namespace {

void show(std::ostream& out, const ExprTree& tree) { out << tree; }

auto tree(const char* text, bool simplified)
{
    return [=] {
        auto t = std::make_shared<ExprTree>();
        t->scan(text);
        if (simplified)
            t->simp(false);
        return t;
    };
}

/// A tree and what a call writes beside it.
struct Beside
{
    ExprTree tree, other;
    std::string text = "p+q*sin(p)";
    std::vector<std::string> names{"kept"};
};

std::shared_ptr<Beside> beside()
{
    auto b = std::make_shared<Beside>();
    b->tree.scan("2*x+b*(a+x)");
    b->tree.simp(false);
    return b;
}

void showBeside(std::ostream& out, const Beside& b)
{
    out << b.tree << '|' << b.other << '|' << b.text << '|';
    showAll(out, b.names);
}

} // namespace

std::vector<Call> symbolicCalls()
{
    const char* const text = "sin(x*y)^2/(1+x)+b+a*x+b*x+x*2*x";
    return Module("symbolic", "bad_alloc")
        .add("scan", tree("a+b", false), [](ExprTree& t) { t.scan("c*f(d,e)-[1,2.5;y,'z']"); }, show)
        .add("scanInfix", tree("a+b", false), [](ExprTree& t) { t.scanInfix("* c () f 2 d e"); }, show)
        .add("simp", tree("x*y+y*x+2*x/exp(x)+y*(a/y+b)-(x^2)^3*x+sin(0)", false), [](ExprTree& t) { t.simp(true); }, show)
        .add("simp with definitions", tree("a+b*a", false), [](ExprTree& t) { t.simp({"a", "b"}, {"* 2 x", "+ a 1"}); }, show)
        .add("diff", tree(text, true), [](ExprTree& t) { t.diff("x"); }, show)
        .add("makeBinary", tree(text, true), [](ExprTree& t) { t.makeBinary(); }, show)
        .add("copy and simp", tree(text, false), [](ExprTree& t) {
                 ExprTree copy(t);
                 copy.simp(false);
                 t = copy;
             }, show)
        .add("replaceVars", tree(text, true), [](ExprTree& t) {
                 t.replaceVars({{{t.getStore()->getVar("x"), 0}, t.getStore()->getVar("z")}}, "t");
             }, show)
        .add("print", tree(text, true), [](ExprTree& t) {
                 std::string printed;
                 t.print(printed);
             }, show)
        .add("solveFor", beside, [](Beside& b) { b.tree.solveFor(b.tree.getStore()->getVar("b"), b.other); }, showBeside)
        .add("getVars", beside, [](Beside& b) { b.tree.getVars(b.text, b.names); }, showBeside)
        .add("rename", beside, [](Beside& b) { b.tree.rename(b.text, {"p"}, {"pp"}, {"sin"}, {"cos"}); }, showBeside)
        .add("replaceArgs", beside, [](Beside& b) {
                 std::vector<std::string> old = b.names;
                 std::string rewritten = b.text;
                 b.tree.replaceArgs(rewritten, {}, old);
                 b.text.swap(rewritten);
                 b.names.swap(old);
             }, showBeside)
        .calls();
}

} // namespace qxtest

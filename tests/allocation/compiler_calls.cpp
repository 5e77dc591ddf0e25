// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "exprcomp.hpp"

namespace qxtest {

namespace {

/// A list, the class made from it, values.
struct Compiled
{
    ExprComp comp;
    std::vector<unsigned char> bytes;
    std::vector<double> out;
};

std::shared_ptr<Compiled> list()
{
    auto c = std::make_shared<Compiled>();
    c->comp.parse({"p=*(x,y)", "two=2", "a=+(p,two)", "s=sin(a)", "c=>(x,two)", "b=*(s,a)", "q=if(c,a,y)", "z=+(b,q)"}, {"x", "y"}, {"z", "b"});
    return c;
}

std::shared_ptr<Compiled> compiled()
{
    const auto c = list();
    c->comp.compile("C", "f", c->bytes, false);
    return c;
}

std::shared_ptr<Compiled> empty() { return std::make_shared<Compiled>(); }

void show(std::ostream& out, const Compiled& c)
{
    c.comp.dumpFlatList(out);
    out << c.comp.getInputCount() << ' ' << c.comp.getOutputCount() << ' ' << c.bytes.size() << '\n';
    showAll(out, c.out);
}

} // namespace

std::vector<Call> compilerCalls()
{
    return Module("compiler", "bad_alloc")
        .add("addInput", empty, [](Compiled& c) { c.comp.addInput(-1); }, show)
        .add("addOutput", empty, [](Compiled& c) { c.comp.addOutput(1); }, show)
        .add("addDef", empty, [](Compiled& c) { c.comp.addDef(1, ExprComp::Plus, -1, -1); }, show)
        .add("addDef of a number", empty, [](Compiled& c) { c.comp.addDef(1, 2.5); }, show)
        .add("setName", empty, [](Compiled& c) { c.comp.setName(-1, "a_name_longer_than_what_a_string_keeps"); }, show)
        .add("parse", empty, [](Compiled& c) { c.comp.parse({"p=*(x,y)", "two=2.125", "a=+(p,two)", "z=sin(a)"}, {"x", "y"}, {"z"}); }, show)
        .add("compile", empty, [](Compiled& c) {
                 ExprComp::compile("C", "f", c.bytes, {"p=*(x,y)", "t=2.125", "a=+(p,t)", "z=sin(a)"}, {"x", "y"}, {"z"}, true);
             }, show)
        .add("eval", compiled, [](Compiled& c) { c.comp.eval({2.0, 3.0}, c.out); }, show)
        .calls();
}

} // namespace qxtest

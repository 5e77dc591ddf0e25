// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "evalconst.hpp"
#include "evaltreeset.hpp"
#include "tests/eval/host.hpp"

namespace qxtest {

namespace {

/// A host with variables at three points and a definition, a tree on it, values.
struct Evaluation
{
    HostPtr host = makeHost({{"x", {0.5, 1.5, 2.5}}, {"y", {1.0, 2.0, 3.0}}});
    EvalTreePtr tree = treeOf("sin(x)*g+sqrt(y-2)*x^2.5/(1+x)");
    ValRepCachePtr cache = makeCache();
    std::vector<cplx> values;
    std::string text;
    double number = 0.0;

    Evaluation() { host->definitions["g"] = "x*y-1"; }
    /// The numbers of a value, all or none.
    void keep(const ValRepPtr& value)
    {
        const CValRepReaderPtr read = value->getComplexReader();
        std::vector<cplx> all;
        for (int i = 0; i < 3; ++i)
            all.push_back((*read)(i, 0));
        values.swap(all);
    }
};

std::shared_ptr<Evaluation> unread() { return std::make_shared<Evaluation>(); }

std::shared_ptr<Evaluation> parsed()
{
    auto e = unread();
    e->tree->parse(e->host);
    return e;
}

void show(std::ostream& out, const Evaluation& e)
{
    out << e.tree->getExpr() << '|' << e.text << '|' << e.number << '|';
    showAll(out, e.values);
}

/// Two values and the result of an operation on them.
struct Values
{
    ValRepPtr a = evalText("x", makeHost({{"x", {1.0, 2.0, 3.0}}})), b = evalText("x", makeHost({{"x", {-1.0, 0.5, 2.0}}})), result;
};

void showValue(std::ostream& out, const ValRepPtr& v)
{
    if (v && v->isNaN())
        out << "NaN";
    else if (v)
        out << v->toString() << v->isComplex() << v->getSize();
    out << '|';
}

void showValues(std::ostream& out, const Values& v)
{
    showValue(out, v.a);
    showValue(out, v.b);
    showValue(out, v.result);
}

std::shared_ptr<Values> values() { return std::make_shared<Values>(); }

} // namespace

std::vector<Call> evalCalls()
{
    return Module("eval", "bad_alloc")
        .add("EvalTree", unread, [](Evaluation& e) { e.tree = treeOf("a+b*c+d+e+f+a_name_that_is_long"); }, show)
        .add("EvalTree plus", unread, [](Evaluation& e) { e.tree = EvalTree::plus(e.tree, treeOf("z")); }, show)
        .add("parse", unread, [](Evaluation& e) { e.tree->parse(e.host); }, show)
        .add("eval the first time", unread, [](Evaluation& e) { e.keep(e.tree->eval(e.host, e.cache, EvalValues)); }, show)
        .add("eval parsed", parsed, [](Evaluation& e) { e.keep(e.tree->eval(e.host, e.cache, EvalValues)); }, show)
        .add("eval of a failure", parsed, [](Evaluation& e) {
                 const ValRepPtr v = e.tree->eval(e.host, e.cache, EvalValues | EvalNoComplex | EvalKeepReal);
                 e.number = v->isNaN() ? static_cast<double>(v->getErrors()->size()) : 0.0;
             }, show)
        .add("diff", parsed, [](Evaluation& e) { e.text = e.tree->diff("x", e.host)->getExpr(); }, show)
        .add("diff and eval", parsed, [](Evaluation& e) { e.keep(e.tree->diff("x", e.host)->eval(e.host, e.cache, EvalValues)); }, show)
        .add("simplify", parsed, [](Evaluation& e) { e.text = e.tree->simplify(e.host)->getExpr(); }, show)
        .add("linearize", parsed, [](Evaluation& e) { e.number = static_cast<double>(e.tree->linearize(e.host).size()); }, show)
        .add("getBVarNames", parsed, [](Evaluation& e) { e.number = static_cast<double>(e.tree->getBVarNames(e.host).size()); }, show)
        .add("depends", parsed, [](Evaluation& e) { e.number = e.tree->depends({"x"}, e.host).isSolDepAll(); }, show)
        .add("EvalTreeSet eval", parsed, [](Evaluation& e) {
                 EvalTreeSet set({e.tree, treeOf("x*y"), treeOf("sin(x)")});
                 std::vector<ValRepPtr> all;
                 set.eval(e.host, e.cache, EvalValues, all);
                 e.keep(all[1]);
             }, show)
        .add("NodeMaker makeOpNode", unread, [](Evaluation& e) {
                 const NodeMakerPtr maker = e.host->getNodeMaker();
                 e.text = textOf(maker->makeOpNode(TIMES, maker->makeVarNode("x"), maker->makeConstNode(2.5)));
             }, show)
        .add("EvalConst", unread, [](Evaluation& e) { e.number = EvalConst({"a=2", "b=a^2"}).evalExpr("a*b+sin(0)"); }, show)
        .add("ValRep plus", values, [](Values& v) { ValRep::plus(v.a, v.b, v.result, false); }, showValues)
        .add("ValRep sqrt", values, [](Values& v) { ValRep::sqrt(v.b, v.result, false); }, showValues)
        .add("ValRep clone", values, [](Values& v) { v.result = v.a->clone(); }, showValues)
        .add("ValRep cloneCast", values, [](Values& v) { v.result = v.a->cloneCast(ArrayAllocatorPtr(), 3, false, true, 1); }, showValues)
        .add("ValRep copyToArray", values, [](Values& v) {
                 Array<cplx, 1> target(3);
                 v.a->copyToArray(target);
                 v.result = ValRep::make(target[2]);
             }, showValues)
        .calls();
}

} // namespace qxtest

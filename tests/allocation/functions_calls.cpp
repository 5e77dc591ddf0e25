// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "evalfun_binary.hpp"
#include "evalnodes.hpp"
#include "funfactory.hpp"
#include "interpfun.hpp"
#include "nodemaker.hpp"
#include "polyevaluator.hpp"
#include "tests/functions/fun_support.hpp"

namespace qxtest {

namespace {

/// Arguments of a function at five points, and what came of it.
struct Points
{
    boost::shared_ptr<Array<double, 1>> x = arrayOf<double>({0.5, 1.5, 2.5, 0.25, 3.0}), y = arrayOf<double>({1.0, 2.0, 3.0, 4.0, 5.0});
    boost::shared_ptr<Array<Complex, 1>> z = arrayOf<Complex>({{0.5, 1.0}, 2.0, {0.0, -1.0}, {0.1, 0.2}, 1.0});
    FunObjPtr f;
    std::vector<FunObjPtr> all;
    boost::shared_ptr<ErrInfo> story;
};

std::shared_ptr<Points> points() { return std::make_shared<Points>(); }

void show(std::ostream& out, const Points& p)
{
    showAll(out, *p.x);
    showAll(out, *p.y);
    showAll(out, *p.z);
    out << (p.f ? p.f->getName() : "none") << ' ' << p.all.size() << ' ' << (p.story ? p.story->size() : 0);
}

InterpTable table()
{
    const auto axes = boost::make_shared<const Interpolator::Axes>(Interpolator::Axes{{0.0, 1.0, 2.0, 4.0}});
    const auto values = boost::make_shared<const std::vector<double>>(std::vector<double>{1.0, 3.0, 2.0, 5.0});
    return {Interpolator::createInterpolator(axes, values, "linear", Interpolator::ExtEnd, 0.0), true};
}

/// A node of x and y, and its derivative by the function's rule.
struct Rule
{
    NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    EvalNodes args{maker->makeVarNode("x"), maker->makeVarNode("y")};
    EvalNodePtr derivative;
};

void showRule(std::ostream& out, const Rule& r)
{
    if (r.derivative)
        r.derivative->ostreamOperator(out);
}

void addRule(Module& functions, const char* name)
{
    functions.add(std::string("diffRule of ") + name, [] { return std::make_shared<Rule>(); }, [f = fun(name)](Rule& r) {
        r.derivative = f->diffRule(EvalNodes(r.args.begin(), r.args.begin() + f->nArgs()), 1, r.maker);
    }, showRule);
}

} // namespace

std::vector<Call> functionsCalls()
{
    const InterpTable data = table();
    Module functions("functions", "bad_alloc");
    functions.add("makeStandardFunctions", points, [](Points& p) {
              std::vector<FunObjPtr> all;
              makeStandardFunctions(all);
              p.all.swap(all);
          }, show)
        .add("makeFunObj", points, [](Points& p) { p.f = makeFunObj(TIMES); }, show)
        .add("makeConstPow", points, [](Points& p) { p.f = makeConstPow(2.5); }, show)
        .add("InterpFun", points, [data](Points& p) { p.f = FunObjPtr(new InterpFun("a_table_with_a_name_that_is_long", data)); }, show)
        .add("PolyEvaluator derivative", points, [](Points& p) {
                 const auto poly = PolyEvaluator({1.0, 2.0, 3.0, 4.0}).derivative();
                 (*p.y)[0] = (*poly)(2.0);
             }, show);
    for (const char* name : {"sin", "asec", "^", "atan2"})
        addRule(functions, name);
    return functions.calls();
}

} // namespace qxtest

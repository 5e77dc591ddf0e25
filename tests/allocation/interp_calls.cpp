// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "cubicinterpolator.hpp"
#include "interpfilereader.hpp"
#include "interpolator.hpp"
#include "interptable.hpp"

#include <boost/make_shared.hpp>

namespace qxtest {

namespace {

/// A table of one or two axes, what interpolates it, and coefficients.
struct Table
{
    InterpTableData data;
    boost::shared_ptr<Interpolator> f;
    std::vector<double> coefficients{7.0};
};

Table table(std::size_t axes)
{
    Interpolator::Axes points(axes, {0.0, 1.0, 2.5, 4.0});
    std::vector<double> values;
    for (std::size_t i = 0; i < (axes == 1 ? 4u : 16u); ++i)
        values.push_back(static_cast<double>(i * i) - 3.0);
    Table t;
    t.data.axes = boost::make_shared<const Interpolator::Axes>(points);
    t.data.values.push_back(boost::make_shared<const std::vector<double>>(values));
    t.data.axisNames.resize(axes);
    t.data.names.resize(1);
    return t;
}

void show(std::ostream& out, const Table& t)
{
    for (const auto& axis : *t.data.axes)
        showAll(out, axis);
    for (const auto& values : t.data.values)
        showAll(out, *values);
    showAll(out, t.data.axisNames);
    showAll(out, t.data.names);
    showAll(out, t.coefficients);
    if (t.f)
        out << (*t.f)(std::vector<double>(t.data.axes->size(), 1.2));
}

auto interpolatorOf(std::size_t axes, const char* method)
{
    return [=] {
        auto t = std::make_shared<Table>(table(axes));
        t->f = Interpolator::createInterpolator(t->data.axes, t->data.values[0], method, Interpolator::ExtEnd, 0.0);
        return t;
    };
}

} // namespace

std::vector<Call> interpCalls()
{
    Module interp("interp", "bad_alloc");
    for (const auto& [method, axes] : {std::pair("neighbor", 2u), std::pair("linear", 1u), std::pair("linear", 2u),
                                       std::pair("piecewisecubic", 1u), std::pair("cubicspline", 1u)}) {
        const std::string name = std::string(method) + " of " + std::to_string(axes);
        interp.add("createInterpolator " + name, fresh(table(axes)), [m = method](Table& t) {
                  t.f = Interpolator::createInterpolator(t.data.axes, t.data.values[0], m, Interpolator::ExtEnd, 0.0);
              }, show)
            .add("diff " + name, interpolatorOf(axes, method), [](Table& t) { t.f = t.f->diff(1); }, show);
    }
    interp.add("createStdCubic", fresh(table(1)), [](Table& t) {
              t.f = Interpolator::createStdCubic(t.data.axes, t.data.values[0], "cubicspline", t.coefficients);
          }, show)
        .add("makeInterpolator", fresh(table(2)), [](Table& t) { t.f = makeInterpolator(t.data, 0, {"linear", "value=3"}).interpolator; },
             show)
        .add("InterpFileReader of columns", fresh(table(1)), [](Table& t) {
                 std::istringstream in("T k c\n20 53.3 440\n100 50.7 488\n200.5 -47.3 530\n");
                 t.data = InterpFileReader().read(in, "table.txt");
             }, show)
        .add("InterpFileReader of a grid", fresh(table(1)), [](Table& t) {
                 std::istringstream in("% grid\n0 1 2\n10 20\n% data pressure\n1.5 1.7 1.9   1.1 1.2 1.4\n");
                 t.data = InterpFileReader().read(in, "table.txt");
             }, show);
    return interp.calls();
}

} // namespace qxtest

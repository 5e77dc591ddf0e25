// SPDX-License-Identifier: LicenseRef-qxkernel
#include "coefficient.hpp"

#include "formulas/explain.hpp"
#include "support/options.hpp"

#include "qxexception.hpp"

#include <algorithm>

namespace examples {
namespace {

const std::vector<std::string> kVariables{"x", "y", "u"};

qx::Formulas hostOf(const HeatModel& model)
{
    qx::Formulas host(kVariables);
    addTables(host, model.tables);
    for (const Formula& d : model.definitions) {
        try {
            host.define(d.name, d.text);
        } catch (const qxbase::Exception& e) {
            if (e.getId() != "Name_in_use")
                throw EvaluationError("definition " + d.name + " cannot be read: " + d.text + explain(e));
            const bool hides = std::find(kVariables.begin(), kVariables.end(), d.name) != kVariables.end();
            throw EvaluationError(hides ? "definition '" + d.name + "' hides the variable of that name"
                                        : "'" + d.name + "' is defined twice");
        }
    }
    return host;
}

} // namespace

BoundaryFormula BoundaryFormula::parse(const std::string& typed)
{
    const std::size_t colon = typed.find(':');
    if (colon == std::string::npos)
        throw UsageError("'" + typed + "' has no colon: BOUNDARY: FORMULA");
    return {split(typed.substr(0, colon), ':').front(), typed.substr(colon + 1)};
}

void Points::resize(std::size_t n)
{
    x.resize(n);
    y.resize(n);
    u.resize(n);
}

Coefficient::Coefficient(const std::string& name, const std::string& text, const HeatModel& model)
    : name_(name)
{
    qx::Formulas host = hostOf(model);
    try {
        formula_ = host.add(text);
        program_ = host.compile();
        program_.dependsOn(formula_, "u"); // makes the derivative: what has none is told now
    } catch (const qxbase::Exception& e) {
        const std::string definition = argumentOf(e, "In_definition", "Name");
        throw EvaluationError((definition.empty() ? name : "definition " + definition) + " cannot be read: " +
                              (definition.empty() ? text : argumentOf(e, "In_definition", "Expression")) + explain(e));
    }
}

template <class T>
void Coefficient::evaluate(const Points& points, const Effort& effort, std::vector<T>& value,
                           std::vector<T>& slope) const
{
    qx::Points at(points.size());
    at.set("x", points.x).set("y", points.y).set("u", points.u);
    const qx::Options options{.threads = effort.threads, .requireFinite = true, .block = effort.block, .run = effort.run};
    value.resize(points.size());
    slope.assign(points.size(), T(0.0));
    if (dependsOnU())
        program_.gradient(at, formula_, value, {{"u", slope}}, options);
    else
        program_.evaluate(at, formula_, value, options);
}

template void Coefficient::evaluate(const Points&, const Effort&, std::vector<double>&, std::vector<double>&) const;
template void Coefficient::evaluate(const Points&, const Effort&, std::vector<std::complex<double>>&,
                                    std::vector<std::complex<double>>&) const;

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "dae_binding.hpp"

#include "failures.hpp"
#include "interruptible.hpp"

#include "dae.hpp"
#include "exprimpl.hpp"
#include "exprtree.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

/// In prefix text: the end of the token at `at`. A string literal with its bytes counts as one.
std::size_t endOfToken(const std::string& text, std::size_t at)
{
    std::size_t end = std::min(text.find(' ', at), text.size());
    if (text.compare(at, end - at, "\"\"") != 0 || end == text.size())
        return end;
    const std::size_t count = std::stoul(text.substr(end + 1));
    end = std::min(text.find(' ', end + 1), text.size());
    return std::min(end + 1 + count, text.size());
}

/// Prefix text of an equation. Users write the derivative in time as d(x,t); the reader knows it as "(DIFF) x t".
std::string equationText(const std::string& infix)
{
    ExprTree().scan(infix); // raises for a text that is no expression
    const std::string prefix = qxInfixToPrefix(infix);
    const std::string call = "() d 2 ";
    std::string text;
    for (std::size_t at = 0; at < prefix.size();) {
        if (prefix.compare(at, call.size(), call) == 0) {
            text += "(DIFF) ";
            at += call.size();
            continue;
        }
        const std::size_t end = endOfToken(prefix, at);
        text.append(prefix, at, end + 1 - at);
        at = end + 1;
    }
    return text;
}

const char* typeName(int type)
{
    switch (type) {
    case Dae::Var::TypeFunction: return "function";
    case Dae::Var::TypeConstant: return "constant";
    case Dae::Var::TypeEliminated: return "eliminated";
    case Dae::Var::TypeReplaced: return "replaced";
    case Dae::Var::TypeExcluded: return "excluded";
    default: return "unknown";
    }
}

/// A system with what its reduction is told.
class System
{
public:
    explicit System(const std::string& timeName) : dae_(timeName) {}

    void addVariable(const std::string& name, const std::string& kind, double value)
    {
        const bool isConstant = kind == "constant", isFunction = kind == "function", isExcluded = kind == "excluded";
        if (!isConstant && !isFunction && !isExcluded && kind != "unknown")
            raiseError("Invalid_argument", "kind", kind);
        dae_.addVar(name, isConstant, isFunction, isExcluded, value);
    }
    void addEquation(const std::string& text) { dae_.addEq(equationText(text)); }

    template <void (Dae::*step)(qxutil::RunInfo*)>
    void run(const py::object& progress, const std::shared_ptr<CancelToken>& cancel)
    {
        runInterruptible({progress, cancel}, [this](qxutil::RunInfo& info) { (dae_.*step)(&info); });
    }

    std::vector<std::string> equations() const
    {
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < dae_.getEqs().size(); ++i)
            texts.push_back(dae_.getEq(static_cast<int>(i)));
        return texts;
    }
    /// For each equation the index of its derivative in time, -1 for none.
    std::vector<int> equationDerivatives() const
    {
        std::vector<int> links;
        for (const Dae::Eq& eq : dae_.getEqs())
            links.push_back(eq.deriv);
        return links;
    }
    /// (name, order, kind, value, index of the derivative).
    py::list variables() const
    {
        py::list list;
        for (const Dae::Var& var : dae_.getVars())
            list.append(py::make_tuple(var.var->getName(), var.order, typeName(var.type), var.value, var.deriv));
        return list;
    }
    /// For each equation the unknowns in it: ((index of the variable, order of the derivative), ...).
    std::vector<std::vector<Dae::VarOrder>> occurrences() const
    {
        std::vector<std::vector<Dae::VarOrder>> all(dae_.getEqs().size());
        for (std::size_t i = 0; i < all.size(); ++i)
            dae_.getVarOccurrences(*dae_.getEqs()[i].expr, all[i]);
        return all;
    }
    std::string definition(int i) const { return dae_.getVarElimExpr(i); }
    std::string log() const
    {
        std::ostringstream stream;
        dae_.log(stream);
        return stream.str();
    }

private:
    Dae dae_;
};

} // namespace

void bindDae(py::module_& module)
{
    py::class_<System>(module, "DaeSystem")
        .def(py::init<const std::string&>(), py::arg("time"))
        .def("add_variable", &System::addVariable, py::arg("name"), py::arg("kind"), py::arg("value"))
        .def("add_equation", &System::addEquation, py::arg("text"))
        .def("reduce_index", &System::run<&Dae::reduceIndex>, py::arg("progress"), py::arg("cancel"))
        .def("simplify", &System::run<&Dae::simplify>, py::arg("progress"), py::arg("cancel"))
        .def("equations", &System::equations)
        .def("equation_derivatives", &System::equationDerivatives)
        .def("variables", &System::variables)
        .def("occurrences", &System::occurrences)
        .def("definition", &System::definition, py::arg("index"))
        .def("log", &System::log);
}

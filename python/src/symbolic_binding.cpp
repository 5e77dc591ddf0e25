// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_binding.hpp"

#include "failures.hpp"

#include "exprimpl.hpp"
#include "exprtree.hpp"
#include "exprvar.hpp"

#include <pybind11/stl.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

// An expression is kept as text, and each operation reads it into a tree of its own: values that nothing can change
// behind their back, on any thread. Reading is linear and quick beside what follows.

std::string printed(const ExprTree& tree)
{
    std::string text;
    tree.print(text);
    return text;
}

/// The text of a tree in canonical form. Only there does what is printed read back as what it was, and a "not" over an
/// arithmetic operation not even there: such a tree is refused.
std::string textOf(const ExprTree& tree)
{
    const std::string text = printed(tree);
    if (text.find('!') != std::string::npos) {
        ExprTree again;
        again.scan(text);
        again.simp(false);
        if (printed(again) != text)
            raiseError("Expression_has_no_text", "Expression", text);
    }
    return text;
}

/// Raises what the reader raises.
void check(const std::string& text) { ExprTree().scan(text); }

std::string simplified(const std::string& text, bool evaluateFunctions)
{
    ExprTree tree;
    tree.scan(text);
    tree.simp(evaluateFunctions);
    return textOf(tree);
}

/// Prefix text of an infix one; the reader's own failure if it does not read.
std::string prefixOf(const std::string& text)
{
    check(text);
    return qxInfixToPrefix(text);
}

std::string substituted(const std::string& text, const std::map<std::string, std::string>& values)
{
    std::vector<std::string> names, definitions;
    for (const auto& [name, definition] : values) {
        names.push_back(name);
        definitions.push_back(prefixOf(definition));
    }
    ExprTree tree;
    tree.scan(text);
    tree.simp(names, definitions);
    return textOf(tree);
}

std::string derivative(const std::string& text, const std::string& name)
{
    ExprTree tree;
    tree.scan(text);
    tree.simp(false);
    tree.diff(name);
    return textOf(tree);
}

/// The solution of text = 0 for a name; None where the expression is not linear in it at first sight.
py::object solution(const std::string& text, const std::string& name)
{
    ExprTree tree;
    tree.scan(text);
    tree.simp(false);
    ExprTree result(tree.getStore(), {});
    if (!tree.solveFor(tree.getStore()->getVar(name), result))
        return py::none();
    result.simp(false);
    return py::str(textOf(result));
}

std::vector<std::string> variables(const std::string& text)
{
    std::vector<std::string> names;
    ExprTree().getVars(text, names);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

py::object number(const std::string& text)
{
    ExprTree tree;
    tree.scan(text);
    tree.simp(true);
    double value = 0.0;
    if (!tree.toReal(value))
        return py::none();
    return py::float_(value);
}

} // namespace

void bindSymbolic(py::module_& module)
{
    module.def("expr_check", &check, py::arg("text"));
    module.def("expr_simplify", &simplified, py::arg("text"), py::arg("evaluate_functions"));
    module.def("expr_substitute", &substituted, py::arg("text"), py::arg("values"));
    module.def("expr_diff", &derivative, py::arg("text"), py::arg("name"));
    module.def("expr_solve", &solution, py::arg("text"), py::arg("name"));
    module.def("expr_variables", &variables, py::arg("text"));
    module.def("expr_number", &number, py::arg("text"));
}

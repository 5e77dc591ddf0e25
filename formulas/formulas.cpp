// SPDX-License-Identifier: LicenseRef-qxkernel
#include "formulas.hpp"

#include "exprtree.hpp"
#include "guarded_detail.hpp"
#include "interpfun.hpp"
#include "names_detail.hpp"
#include "program_detail.hpp"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <iterator>
#include <string_view>

namespace qx {

namespace {

std::atomic<unsigned long> lastOwner{0};

/// Raises "Syntax_error_in_expression" for a text that is no formula.
void checkSyntax(const std::string& expression)
{
    ExprTree().scan(expression);
}

[[noreturn]] void refuse(const std::string& name, const char* reason)
{
    QX_RAISE("formulas", "Invalid_function", qxbase::ExceptionArgs{{"Name", name}, {"Reason", reason}});
}

void checkParameters(const std::string& name, const std::vector<std::string>& parameters)
{
    if (parameters.empty())
        refuse(name, "no parameters");
    std::set<std::string> seen;
    for (const std::string& p : parameters)
        if (!isName(p) || !seen.insert(p).second)
            refuse(name, "parameters are different names");
}

/// A name that is still free for a value or a function.
void requireFree(const std::set<std::string>& used, const std::string& name)
{
    if (!isName(name))
        QX_RAISE("formulas", "Invalid_name", "Name", name);
    if (used.count(name) != 0)
        QX_RAISE("formulas", "Name_in_use", "Name", name);
}

/// A name that is still free for a function.
void requireFreeFunction(const std::set<std::string>& used, const std::string& name)
{
    // Never destroyed: hosts may still collect formulas in static destructors.
    static const FunTable& standard = *new const FunTable(qxeval::standardFunctions());
    static constexpr std::string_view keywords[] = {"d", "pd", "depends", "jacdepends", "islinear"};
    requireFree(used, name);
    if (standard.count(name) != 0 || std::count(std::begin(keywords), std::end(keywords), name) != 0)
        QX_RAISE("formulas", "Name_in_use", "Name", name);
}

/// Appends to a list and enters the name, or does neither.
template <class List, class Value>
void enter(List& list, std::set<std::string>& used, const std::string& name, Value&& value)
{
    list.emplace_back(name, std::forward<Value>(value));
    try {
        used.insert(name);
    } catch (...) {
        list.pop_back();
        throw;
    }
}

} // namespace

Formulas::Formulas(const std::vector<std::string>& variables) : text_(std::make_unique<FormulaText>())
{
    text_->owner = ++lastOwner;
    for (const std::string& name : variables) {
        requireFree(text_->names, name);
        text_->names.insert(name);
    }
    text_->variables = variables;
}

Formulas::~Formulas() = default;
Formulas::Formulas(Formulas&&) noexcept = default;
Formulas& Formulas::operator=(Formulas&&) noexcept = default;

Formulas& Formulas::define(const std::string& name, const std::string& expression)
{
    requireFree(text_->names, name);
    checkSyntax(expression);
    enter(text_->definitions, text_->names, name, expression);
    return *this;
}

Formulas& Formulas::function(const std::string& name, Function function)
{
    requireFreeFunction(text_->functionNames, name);
    checkParameters(name, function.parameters);
    if (!function.real && !function.complex)
        refuse(name, "neither a real nor a complex body");
    if (!function.derivatives.empty() && function.derivatives.size() != function.parameters.size())
        refuse(name, "not one derivative for each parameter");
    for (const std::string& d : function.derivatives)
        checkSyntax(d);
    enter(text_->functions, text_->functionNames, name, std::make_shared<const Function>(std::move(function)));
    return *this;
}

Formulas& Formulas::table(const std::string& name, const InterpTable& table)
{
    requireFreeFunction(text_->functionNames, name);
    enter(text_->tables, text_->functionNames, name, boost::make_shared<InterpFun>(name, table));
    return *this;
}

Formula Formulas::add(const std::string& expression)
{
    checkSyntax(expression);
    text_->formulas.push_back(expression);
    return Formula(text_->owner, text_->formulas.size() - 1);
}

Program Formulas::compile() const
{
    return guarded([&] { return Program(std::make_shared<const CompiledFormulas>(*text_)); }, kNoMemoryToCompile);
}

} // namespace qx

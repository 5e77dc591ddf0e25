// SPDX-License-Identifier: LicenseRef-qxkernel
// The model: variables and equations as they are added, looked up and read.

#include "dae.hpp"

#include "base/nearestname_detail.hpp"
#include "exprtree.hpp"
#include "qxexception.hpp"
#include "text_detail.hpp"

#include <boost/make_shared.hpp>
#include <algorithm>
#include <ostream>

namespace {

/// The kind of ExprVar that goes with each type of Dae::Var.
constexpr int exprVarType[] = {
    ExprVar::TypeDifferentiated, // TypeUnknown
    ExprVar::TypeFunction,       // TypeFunction
    ExprVar::TypeConstant,       // TypeConstant
    ExprVar::TypeDifferentiated, // TypeFurther
    ExprVar::TypeDifferentiated, // TypeEliminated
    ExprVar::TypeDifferentiated, // TypeReplaced
    ExprVar::TypeDependent       // TypeExcluded
};

template <class T>
const T& elementAt(const std::vector<T>& elements, int i)
{
    if (i < 0 || i >= static_cast<int>(elements.size()))
        QX_RAISE("dae", "Internal_error_symbolic_processing", "Index", i);
    return elements[static_cast<std::size_t>(i)];
}

} // namespace

Dae::Var::Var(const boost::shared_ptr<ExprVar>& exprVar, int derivOrder, int varType, double varValue)
    : var(exprVar), order(derivOrder), type(varType), value(varValue)
{
}

Dae::Var::Var(const Var& source, int n) : var(source.var), order(source.order + n), type(source.type) {}

std::string Dae::Var::getName() const
{
    return var->getName() + std::string(static_cast<std::size_t>(order), '\'');
}

Dae::Dae(const std::string& timeName) : timeName_(timeName), store_(boost::make_shared<ExprVarStore>()) {}

Dae::~Dae() = default;

int Dae::addVar(const std::string& name, bool isConstant, bool isFunction, bool isExcluded, double value)
{
    const int type = isConstant   ? Var::TypeConstant
                     : isFunction ? Var::TypeFunction
                     : isExcluded ? Var::TypeExcluded
                                  : Var::TypeUnknown;
    vars_.push_back(Var(store_->getVar(name), 0, type, value));
    return static_cast<int>(vars_.size()) - 1;
}

void Dae::addEq(const std::string& text)
{
    const auto tree = boost::make_shared<ExprTree>(store_, ExprTree::RulePairs());
    tree->scanInfix(text);
    eqs_.push_back(Eq(tree));
}

void Dae::syncVar(int i)
{
    const Var& var = vars_[static_cast<std::size_t>(i)];
    if (var.order > 0)
        return; // all orders share one ExprVar
    var.var->setType(exprVarType[var.type]);
    // An entry that is there stays: a replaced variable leads to the one that stands for it.
    varIndex_.emplace(var.var.get(), i);
}

void Dae::syncVars()
{
    for (std::size_t i = 0; i < vars_.size(); ++i)
        syncVar(static_cast<int>(i));
    timeVar_ = store_->getVar(timeName_);
    timeVar_->setType(ExprVar::TypeIndependent);
    const auto found = varIndex_.find(timeVar_.get());
    timeIndex_ = found == varIndex_.end() ? -1 : found->second;
}

int Dae::findVar(const ExprVar& var) const
{
    auto found = varIndex_.find(&var);
    while (found != varIndex_.end()) {
        const Var& entry = vars_[static_cast<std::size_t>(found->second)];
        if (entry.type != Var::TypeReplaced)
            return found->second;
        found = varIndex_.find(entry.var.get());
    }
    std::vector<std::string> known;
    for (const Var& v : vars_)
        known.push_back(v.var->getName());
    QX_RAISE("dae", "Unknown_variable_name", qxbase::unknownName(var.getName(), known));
}

void Dae::getVarOccurrences(const ExprTree& tree, std::vector<VarOrder>& pairs) const
{
    ExprVarOccurrences occurrences;
    tree.getVarOccurrences(occurrences);
    pairs.clear();
    for (const auto& [var, order] : occurrences)
        pairs.push_back({findVar(*var), order});
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
}

std::string Dae::getEq(int i) const
{
    return qxdae::toText(*elementAt(eqs_, i).expr);
}

std::string Dae::getVarName(int i) const
{
    return elementAt(vars_, i).getName();
}

std::string Dae::getVarElimExpr(int i) const
{
    const Var& var = elementAt(vars_, i);
    if (var.type != Var::TypeEliminated)
        QX_RAISE("dae", "Internal_error_symbolic_processing", "Variable_name", var.getName());
    return qxdae::toText(*var.elimExpr);
}

void Dae::log(std::ostream& stream) const
{
    for (const Var& var : vars_)
        if (var.isUnknown())
            stream << var.getName() << '\n';
    stream << '\n';
    for (const Eq& eq : eqs_)
        stream << *eq.expr << '\n';
}

void Dae::outputGraph(const Matching& matching, std::ostream& stream) const
{
    std::vector<int> varMatch(vars_.size(), -1);
    stream << std::string(78, '-') << "\nEquations:\n";
    for (std::size_t i = 0; i < eqs_.size(); ++i) {
        stream << i << ": " << *eqs_[i].expr << " {";
        const char* separator = "";
        for (const int var : eqs_[i].occurrences) {
            stream << separator << getVarName(var);
            separator = ", ";
        }
        stream << '}';
        const int match = matching.getEqMatch(static_cast<int>(i));
        if (match >= 0) {
            stream << " (assigned to " << getVarName(match) << ')';
            varMatch[static_cast<std::size_t>(match)] = static_cast<int>(i);
        }
        stream << '\n';
    }
    stream << "Variables:\n";
    for (std::size_t i = 0; i < vars_.size(); ++i) {
        stream << vars_[i].getName() << " {";
        const char* separator = "";
        for (const int eq : vars_[i].occurrences) {
            stream << separator << eq;
            separator = ", ";
        }
        stream << '}';
        if (varMatch[i] >= 0)
            stream << " (assigned to " << varMatch[i] << ')';
        stream << '\n';
    }
}

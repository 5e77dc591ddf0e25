// SPDX-License-Identifier: LicenseRef-qxkernel
#include "model.hpp"

#include "depinfo.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <cmath>

namespace examples {

namespace {

std::vector<std::string> namesOf(const std::vector<Variable>& variables)
{
    std::vector<std::string> names;
    for (const Variable& v : variables)
        names.push_back(v.name);
    return names;
}

} // namespace

Model::Model(const Problem& problem) : problem_(problem), graph_(namesOf(problem.variables), problem.definitions)
{
    const EvalNodePtr objective = graph_.read(problem_.objective);
    addRow(objective, {problem_.objective});
    for (const Constraint& constraint : problem_.constraints) {
        Row row{constraint.text};
        const EvalNodePtr node = nodeOf(constraint, row);
        addRow(node, row);
    }
    quadratic_ = std::all_of(rows_.begin() + 1, rows_.end(), [](const Row& row) { return row.isLinear; }) &&
                 graph_.degree(objective) <= 2;
    if (quadratic_)
        findHessian(objective);
    values_ = makeValues(graph_, expressions_);
    out_.resize(expressions_.size());
}

/// What stands between bounds: the middle alone where the sides are constant, otherwise the difference of middle and side.
EvalNodePtr Model::nodeOf(const Constraint& constraint, Row& row) const
{
    const auto side = [&](const std::string& text) { return text.empty() ? EvalNodePtr() : graph_.read(text); };
    const EvalNodePtr left = side(constraint.left), right = side(constraint.right);
    EvalNodePtr middle = graph_.read(constraint.middle);
    const auto isConstant = [&](const EvalNodePtr& node) { return !node || graph_.degree(node) == 0; };
    if (!isConstant(left) || !isConstant(right)) {
        if (left && right)
            QX_RAISE("optimise", "Bounds_on_both_sides_must_be_constant", "Constraint", constraint.text);
        middle = graph_.nodeMaker()->makeOpNode(MINUS, middle, left ? left : right);
        row.low = left || constraint.isEquation ? 0.0 : -kUnbounded;
        row.high = right ? 0.0 : kUnbounded;
        return middle;
    }
    row.low = left ? constantValue(graph_, left) : -kUnbounded;
    row.high = right ? constantValue(graph_, right) : kUnbounded;
    if (constraint.isEquation)
        row.low = row.high;
    return middle;
}

void Model::addRow(const EvalNodePtr& node, Row row)
{
    const int number = static_cast<int>(rows_.size());
    const std::vector<std::pair<int, EvalNodePtr>> gradient = graph_.gradient(node);
    std::vector<EvalNodePtr> all, constant, varying;
    for (const auto& [column, derivative] : gradient)
        all.push_back(derivative);
    // An expression whose derivatives depend on nothing is linear; single derivatives may be constant in the others too.
    row.isLinear = !EvalTree(node).jacDepends({}, graph_.evaluator()).isSolDepAll();
    const std::vector<int> degrees = graph_.degrees(all);
    const std::size_t firstLinear = linear_.size();
    for (std::size_t k = 0; k < all.size(); ++k) {
        const bool isConstant = row.isLinear || degrees[k] == 0;
        (isConstant ? constant : varying).push_back(all[k]);
        (isConstant ? linear_ : nonlinear_).push_back({number, gradient[k].first, 0.0});
    }
    const std::vector<double> values = constantValues(graph_, constant);
    for (std::size_t k = 0; k < values.size(); ++k)
        linear_[firstLinear + k].value = values[k];
    if (row.isLinear) {
        const std::vector<double> origin(problem_.variables.size(), 0.0);
        if (!makeValues(graph_, {node})->at(origin.data(), &row.constant))
            QX_RAISE("optimise", "Unexpected_NaN");
    } else {
        expressions_.insert(expressions_.begin() + static_cast<long>(nonlinearRows_.size()), node);
        nonlinearRows_.push_back(number);
        expressions_.insert(expressions_.end(), varying.begin(), varying.end());
    }
    rows_.push_back(std::move(row));
}

/// The derivatives of the objective are linear: theirs are the entries of the Hessian.
void Model::findHessian(const EvalNodePtr& objective)
{
    std::vector<EvalNodePtr> seconds;
    for (const auto& [row, derivative] : graph_.gradient(objective))
        for (const auto& [column, second] : graph_.gradient(derivative)) {
            hessian_.push_back({row, column, 0.0});
            seconds.push_back(second);
        }
    const std::vector<double> values = constantValues(graph_, seconds);
    for (std::size_t k = 0; k < values.size(); ++k)
        hessian_[k].value = values[k];
}

bool Model::evaluate(const double* x, double* F, double* G) const
{
    if (!values_->at(x, out_.data()))
        return false;
    const std::size_t count = nonlinearRows_.size();
    for (std::size_t i = 0; i < rows_.size(); ++i)
        F[i] = rows_[i].constant;
    for (std::size_t k = 0; k < count; ++k)
        F[nonlinearRows_[k]] = out_[k];
    for (const Entry& e : linear_)
        if (!rows_[static_cast<std::size_t>(e.row)].isLinear)
            F[e.row] -= e.value * x[e.column];
    std::copy(out_.begin() + static_cast<long>(count), out_.end(), G);
    return true;
}

bool Model::total(const double* x, std::vector<double>& F) const
{
    std::vector<double> G(nonlinear_.size() + 1);
    F.resize(rows_.size());
    if (!evaluate(x, F.data(), G.data()))
        return false;
    for (const Entry& e : linear_)
        F[static_cast<std::size_t>(e.row)] += e.value * x[e.column];
    return true;
}

double Model::violation(const std::vector<double>& F) const
{
    double worst = 0.0;
    for (std::size_t i = 1; i < rows_.size(); ++i)
        worst = std::max({worst, rows_[i].low - F[i], F[i] - rows_[i].high});
    return worst;
}

bool Model::gradientOf(int row, const double* x, std::vector<double>& g) const
{
    std::vector<double> F(rows_.size()), G(nonlinear_.size() + 1);
    g.assign(problem_.variables.size(), 0.0);
    if (!evaluate(x, F.data(), G.data()))
        return false;
    for (const Entry& e : linear_)
        if (e.row == row)
            g[static_cast<std::size_t>(e.column)] += e.value;
    for (std::size_t k = 0; k < nonlinear_.size(); ++k)
        if (nonlinear_[k].row == row)
            g[static_cast<std::size_t>(nonlinear_[k].column)] += G[k];
    return true;
}

std::vector<double> Model::start() const
{
    std::vector<double> x;
    for (const Variable& v : problem_.variables)
        x.push_back(v.start);
    return x;
}

} // namespace examples

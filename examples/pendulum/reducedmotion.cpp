// SPDX-License-Identifier: LicenseRef-qxkernel
#include "reducedmotion.hpp"

#include "array.hpp"
#include "arrayutil.hpp"
#include "dae.hpp"
#include "exprimpl.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

namespace examples {
namespace {

/// Prefix text of an equation; the reader knows derivatives in time under a name of their own.
std::string equationText(const std::string& infix)
{
    const std::string call = "() d 2 ";
    std::string text = qxInfixToPrefix(infix);
    for (std::size_t at = text.find(call); at != std::string::npos; at = text.find(call, at))
        text.replace(at, call.size(), "(DIFF) ");
    return text;
}

std::string logOf(const Dae& dae)
{
    std::ostringstream stream;
    dae.log(stream);
    return stream.str();
}

/// The name of a derivative in the text of an equation.
std::string derivativeName(const std::string& name, int order)
{
    return name + std::string(static_cast<std::size_t>(order), 't');
}

} // namespace

ReducedMotion::ReducedMotion(const MotionText& text) : values_(text.parameters)
{
    Dae dae("t");
    for (const std::string& name : text.unknowns)
        dae.addVar(name);
    for (const std::string& equation : text.equations)
        dae.addEq(equationText(equation));
    original_ = logOf(dae);
    dae.reduceIndex();
    reduced_ = logOf(dae);

    readStructure(dae);
    values_["t"] = time_;
    for (const auto& [name, value] : text.start)
        values_[name] = value;
    makeFormulas(dae, text.energy);
    solve();
}

ReducedMotion::~ReducedMotion() = default;

// Finds the highest derivative of each unknown that is left.
void ReducedMotion::readStructure(const Dae& dae)
{
    std::vector<int> highest(dae.getVars().size(), 0);
    std::vector<Dae::VarOrder> pairs;
    for (const Dae::Eq& eq : dae.getEqs()) {
        dae.getVarOccurrences(*eq.expr, pairs);
        for (const auto& [var, order] : pairs)
            highest[static_cast<std::size_t>(var)] = std::max(highest[static_cast<std::size_t>(var)], order);
    }
    for (std::size_t i = 0; i < dae.getVars().size(); ++i) {
        const Dae::Var& var = dae.getVars()[i];
        if (!var.isUnknown() || var.order > 0)
            continue;
        for (int k = 0; k < highest[i]; ++k) {
            states_.push_back(derivativeName(var.getName(), k));
            rates_.push_back(derivativeName(var.getName(), k + 1));
        }
        computed_.push_back(derivativeName(var.getName(), highest[i]));
    }
}

// From here on the equations are formulas of all that has a value.
void ReducedMotion::makeFormulas(const Dae& dae, const std::string& energy)
{
    for (const auto& names : {states_, computed_})
        for (const std::string& name : names)
            values_.insert({name, 0.0});
    std::vector<std::string> names;
    for (const auto& entry : values_)
        names.push_back(entry.first);
    qx::Formulas host(names);
    for (std::size_t i = 0; i < dae.getEqs().size(); ++i)
        equations_.push_back({host.add(dae.getEq(static_cast<int>(i))), {}});
    energy_ = host.add(energy);
    program_ = host.compile();
    for (Equation& e : equations_)
        for (std::size_t j = 0; j < computed_.size(); ++j)
            if (program_.dependsOn(e.formula, computed_[j]))
                e.unknowns.push_back(j);
}

qx::Points ReducedMotion::point() const
{
    qx::Points p(1);
    for (const auto& [name, value] : values_)
        p.set(name, value);
    return p;
}

double ReducedMotion::evaluate(qx::Formula formula) const
{
    double value = 0.0;
    program_.evaluate(point(), formula, std::span(&value, 1));
    return value;
}

double ReducedMotion::getEnergy() const
{
    return evaluate(energy_);
}

double ReducedMotion::getResidual() const
{
    double largest = 0.0;
    for (const Equation& e : equations_)
        largest = std::max(largest, std::abs(evaluate(e.formula)));
    return largest;
}

void ReducedMotion::solve()
{
    const std::size_t n = computed_.size();
    Array<double, 2> A(n, n);
    Array<double, 1> b(n);
    for (int iteration = 0; iteration < 30; ++iteration) {
        const qx::Points p = point();
        A = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            std::vector<qx::Derivative> row;
            for (const std::size_t j : equations_[i].unknowns)
                row.push_back({computed_[j], std::span(&A(i, j), 1)});
            program_.gradient(p, equations_[i].formula, std::span(&b(i), 1), row);
            b(i) = -b(i);
        }
        const int raiseIfSingular = 1;
        qxarray::linsolv(A, b, raiseIfSingular);
        double change = 0.0;
        for (std::size_t j = 0; j < n; ++j) {
            double& value = values_[computed_[j]];
            value += b(j);
            change = std::max(change, std::abs(b(j)) / (1.0 + std::abs(value)));
        }
        if (change < 1e-13)
            return;
    }
    throw std::runtime_error("no solution of the reduced equations at t = " + std::to_string(time_));
}

std::vector<double> ReducedMotion::rates()
{
    solve();
    std::vector<double> r;
    for (const std::string& name : rates_)
        r.push_back(values_.at(name));
    return r;
}

void ReducedMotion::step(double h)
{
    std::vector<double> start;
    for (const std::string& name : states_)
        start.push_back(values_.at(name));
    const double startTime = time_;
    std::vector<double> sum(states_.size(), 0.0);
    const auto moveTo = [&](double fraction, const std::vector<double>& rate) {
        time_ = startTime + fraction * h;
        values_["t"] = time_;
        for (std::size_t i = 0; i < states_.size(); ++i)
            values_[states_[i]] = start[i] + fraction * h * rate[i];
    };
    const double fractions[] = {0.5, 0.5, 1.0};
    const double weights[] = {1.0 / 6, 1.0 / 3, 1.0 / 3, 1.0 / 6};
    for (int stage = 0; stage < 4; ++stage) {
        const std::vector<double> rate = rates();
        for (std::size_t i = 0; i < states_.size(); ++i)
            sum[i] += weights[stage] * rate[i];
        if (stage < 3)
            moveTo(fractions[stage], rate);
    }
    moveTo(1.0, sum);
    solve();
}

} // namespace examples

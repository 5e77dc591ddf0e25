// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/nonlinear.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

constexpr double kUnboundedFrom = 1e15;
constexpr int kUndefinedIterations = 20; // without progress, then the run ends

} // namespace

NonlinearProgram::NonlinearProgram(Parts parts, UserFunctions& functions)
    : parts_(std::move(parts)), functions_(functions), total_(static_cast<std::size_t>(parts_.nF)),
      bestF_(std::numeric_limits<double>::infinity()), leastViolation_(bestF_)
{
    xl = parts_.xl;
    xu = parts_.xu;
    for (int i = 0; i < parts_.nF; ++i)
        if (constraintOf(i) >= 0) {
            gl.push_back(parts_.Fl[static_cast<std::size_t>(i)]);
            gu.push_back(parts_.Fu[static_cast<std::size_t>(i)]);
        }
    if (gl.empty()) { // IPOPT wants a row
        gl.push_back(-std::numeric_limits<double>::max());
        gu.push_back(std::numeric_limits<double>::max());
    }
    const auto collect = [this](const std::vector<int>& rows, const std::vector<int>& columns, std::vector<std::size_t>& own) {
        for (std::size_t k = 0; k < rows.size(); ++k)
            if (const int constraint = constraintOf(rows[k] - 1); constraint >= 0) {
                own.push_back(k);
                jacobianRow.push_back(constraint + 1);
                jacobianColumn.push_back(columns[k]);
            }
    };
    collect(parts_.iA, parts_.jA, constraintA_);
    collect(parts_.iG, parts_.jG, constraintG_);
    if (jacobianRow.empty()) { // and an entry
        jacobianRow.push_back(1);
        jacobianColumn.push_back(1);
    }
    exactHessian = isLinear(); // it is zero
    isQuadratic = exactHessian;
}

int NonlinearProgram::constraintOf(int row) const
{
    if (row == parts_.objectiveRow - 1)
        return -1;
    return parts_.objectiveRow > 0 && row >= parts_.objectiveRow ? row - 1 : row;
}

bool NonlinearProgram::hasLinearConstraints() const { return constraintG_.empty(); }

void NonlinearProgram::widenEqualities(double by)
{
    for (std::size_t i = 0; i < gl.size(); ++i)
        if (gl[i] == gu[i]) {
            gl[i] -= by;
            gu[i] += by;
        }
}

bool NonlinearProgram::update(const double* x)
{
    if (functions_.at(x) != UserFunctions::State::Defined)
        return false;
    total_ = functions_.F();
    for (std::size_t k = 0; k < parts_.A.size(); ++k)
        total_[static_cast<std::size_t>(parts_.iA[k] - 1)] += parts_.A[k] * x[parts_.jA[k] - 1];
    return std::all_of(total_.begin(), total_.end(), [](double v) { return std::isfinite(v); });
}

bool NonlinearProgram::objective(const double* x, double& f)
{
    if (!update(x))
        return false;
    f = parts_.objectiveRow > 0
            ? sign() * (parts_.objectiveAdd + total_[static_cast<std::size_t>(parts_.objectiveRow - 1)])
            : 0.0;
    return true;
}

bool NonlinearProgram::gradient(const double* x, double* df)
{
    if (!update(x))
        return false;
    acceptedX_ = functions_.point(); // gradients are asked for at iterates only
    acceptedF_ = total_;
    std::fill(df, df + n(), 0.0);
    for (std::size_t k = 0; k < parts_.A.size(); ++k)
        if (parts_.iA[k] == parts_.objectiveRow)
            df[parts_.jA[k] - 1] += sign() * parts_.A[k];
    for (std::size_t k = 0; k < parts_.iG.size(); ++k)
        if (parts_.iG[k] == parts_.objectiveRow)
            df[parts_.jG[k] - 1] += sign() * functions_.G()[k];
    return true;
}

bool NonlinearProgram::constraints(const double* x, double* g)
{
    if (!update(x))
        return false;
    g[0] = 0.0; // the free row of a problem without constraints
    for (int i = 0; i < parts_.nF; ++i)
        if (const int constraint = constraintOf(i); constraint >= 0)
            g[constraint] = total_[static_cast<std::size_t>(i)];
    return true;
}

bool NonlinearProgram::jacobian(const double* x, double* values)
{
    if (!update(x))
        return false;
    values[0] = 0.0;
    for (const std::size_t k : constraintA_)
        *values++ = parts_.A[k];
    for (const std::size_t k : constraintG_)
        *values++ = functions_.G()[k];
    return true;
}

bool NonlinearProgram::hessian(double, double*) { return true; } // no entries

bool NonlinearProgram::proceed(double f, double violation)
{
    if (functions_.isStopped())
        return false;
    if (std::fabs(f) > kUnboundedFrom && violation < 1.0) {
        unbounded_ = true;
        return false;
    }
    const auto lowered = [](double& least, double value) {
        const bool better = value < least - 1e-6 * (1.0 + std::fabs(least)) || !std::isfinite(least);
        least = better ? value : least;
        return better;
    };
    const bool lowerF = lowered(bestF_, f), lessViolation = lowered(leastViolation_, violation);
    const bool undefined = functions_.takeUndefined();
    undefinedInARow_ = undefined && !lowerF && !lessViolation ? undefinedInARow_ + 1 : 0;
    stuck_ = undefinedInARow_ >= kUndefinedIterations;
    return !stuck_;
}

std::vector<double> NonlinearProgram::reducedGradient(const std::vector<double>& pi) const
{
    std::vector<double> z(xl.size(), 0.0);
    const auto add = [&](int row, int column, double value) {
        const int constraint = constraintOf(row - 1);
        z[static_cast<std::size_t>(column - 1)] +=
            constraint < 0 ? value : -value * pi[static_cast<std::size_t>(constraint)];
    };
    for (std::size_t k = 0; k < parts_.A.size(); ++k)
        add(parts_.iA[k], parts_.jA[k], parts_.A[k]);
    for (std::size_t k = 0; k < parts_.iG.size(); ++k)
        add(parts_.iG[k], parts_.jG[k], functions_.G()[k]);
    return z;
}

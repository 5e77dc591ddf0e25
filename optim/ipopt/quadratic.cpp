// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/quadratic.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

// LAPACK: Cholesky factorisation of the lower triangle.
extern "C" void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info, std::size_t length);

namespace {

constexpr int kLargestBuilt = 2000;
constexpr double kUnboundedFrom = 1e15;
constexpr double kNone = std::numeric_limits<double>::max();

} // namespace

QuadraticProgram::QuadraticProgram(Parts parts, const Caller& caller)
    : parts_(std::move(parts)), caller_(caller), Hx_(static_cast<std::size_t>(parts_.ncolH))
{
    const auto n = parts_.lower.begin() + parts_.n;
    xl.assign(parts_.lower.begin(), n);
    gl.assign(n, parts_.lower.end());
    const auto above = parts_.upper.begin() + parts_.n;
    xu.assign(parts_.upper.begin(), above);
    gu.assign(above, parts_.upper.end());
    for (std::size_t k = 0; k < parts_.A.size(); ++k) {
        jacobianRow.push_back(parts_.rowOf[k] + 1);
        jacobianColumn.push_back(parts_.columnOf[k] + 1);
    }
    jacobianValue_ = parts_.A;
    if (jacobianRow.empty()) { // IPOPT wants an entry
        jacobianRow.push_back(1);
        jacobianColumn.push_back(1);
        jacobianValue_.push_back(0.0);
    }
    isQuadratic = true;
}

bool QuadraticProgram::multiply(const double* x, std::vector<double>& Hx)
{
    if (parts_.ncolH == 0)
        return true;
    if (stopped_)
        return false;
    int status = std::exchange(first_, false) ? 1 : 0;
    caller_.function(&parts_.ncolH, x, Hx.data(), &status, caller_.cu, caller_.lencu, caller_.iu, caller_.leniu, caller_.ru,
                     caller_.lenru, caller_.cuLength);
    stopped_ = status <= -2;
    return status >= 0 && std::all_of(Hx.begin(), Hx.end(), [](double v) { return std::isfinite(v); });
}

bool QuadraticProgram::build()
{
    if (parts_.ncolH > kLargestBuilt)
        return true;
    std::vector<double> unit(static_cast<std::size_t>(parts_.n), 0.0);
    for (int j = 0; j < parts_.ncolH; ++j) {
        unit[static_cast<std::size_t>(j)] = 1.0;
        if (!multiply(unit.data(), Hx_)) {
            stopped_ = true;
            return false;
        }
        unit[static_cast<std::size_t>(j)] = 0.0;
        for (int i = j; i < parts_.ncolH; ++i)
            if (const double h = Hx_[static_cast<std::size_t>(i)]; h != 0.0) {
                hessianRow.push_back(i + 1);
                hessianColumn.push_back(j + 1);
                hessianValue_.push_back(h);
            }
    }
    built_ = true;
    exactHessian = true;
    return true;
}

/// Cholesky of +-H with its diagonal raised by what rounding may have taken from it.
bool QuadraticProgram::isConvex() const
{
    if (!built_ || hessianValue_.empty())
        return true;
    const int order = parts_.ncolH;
    const auto size = static_cast<std::size_t>(order);
    std::vector<double> dense(size * size, 0.0);
    double largest = 0.0;
    for (std::size_t k = 0; k < hessianValue_.size(); ++k) {
        const auto i = static_cast<std::size_t>(hessianRow[k] - 1), j = static_cast<std::size_t>(hessianColumn[k] - 1);
        dense[i + size * j] = sign() * hessianValue_[k];
        largest = std::max(largest, std::fabs(hessianValue_[k]));
    }
    for (std::size_t i = 0; i < size; ++i)
        dense[i + size * i] += 1e-10 * largest * static_cast<double>(order);
    int info = 0;
    dpotrf_("L", &order, dense.data(), &order, &info, 1);
    return info == 0;
}

bool QuadraticProgram::hasElasticBounds() const
{
    return std::any_of(parts_.elastic.begin(), parts_.elastic.end(), [](int type) { return type != 0; });
}

/// A new non-negative variable in a row.
void QuadraticProgram::addSlack(int row, double coefficient)
{
    xl.push_back(0.0);
    xu.push_back(kNone);
    jacobianRow.push_back(row + 1);
    jacobianColumn.push_back(n());
    jacobianValue_.push_back(coefficient);
}

void QuadraticProgram::makeElastic(double forF, double weight)
{
    forF_ = forF;
    for (int k = 0; k < parts_.n + parts_.m; ++k) {
        const int type = parts_.elastic[static_cast<std::size_t>(k)];
        if (type == 0)
            continue;
        int row = k - parts_.n;
        if (row < 0) { // the bounds of a variable become those of a row
            const auto j = static_cast<std::size_t>(k);
            row = m();
            gl.push_back(xl[j]);
            gu.push_back(xu[j]);
            xl[j] = -kNone;
            xu[j] = kNone;
            jacobianRow.push_back(row + 1);
            jacobianColumn.push_back(k + 1);
            jacobianValue_.push_back(1.0);
        }
        if ((type & 1) != 0)
            addSlack(row, 1.0);
        if ((type & 2) != 0)
            addSlack(row, -1.0);
    }
    slackCost_.assign(xl.size() - static_cast<std::size_t>(parts_.n), weight);
}

void QuadraticProgram::widenEqualities(double by)
{
    for (std::size_t i = 0; i < gl.size(); ++i)
        if (gl[i] == gu[i]) {
            gl[i] -= by;
            gu[i] += by;
        }
}

bool QuadraticProgram::value(const double* x, double& f, std::vector<double>& df)
{
    if (!multiply(x, Hx_))
        return false;
    df.assign(static_cast<std::size_t>(parts_.n), 0.0);
    f = parts_.objectiveAdd;
    for (std::size_t j = 0; j < df.size(); ++j) {
        const double Hxj = j < Hx_.size() ? Hx_[j] : 0.0;
        f += (parts_.c[j] + 0.5 * Hxj) * x[j];
        df[j] = parts_.c[j] + Hxj;
    }
    return std::isfinite(f);
}

bool QuadraticProgram::objective(const double* x, double& f)
{
    std::vector<double> df;
    if (!value(x, f, df))
        return false;
    f *= sign() * forF_;
    for (std::size_t s = 0; s < slackCost_.size(); ++s)
        f += slackCost_[s] * x[df.size() + s];
    return true;
}

bool QuadraticProgram::gradient(const double* x, double* df)
{
    std::vector<double> own;
    double f = 0.0;
    if (!value(x, f, own))
        return false;
    for (const double d : own)
        *df++ = sign() * forF_ * d;
    std::copy(slackCost_.begin(), slackCost_.end(), df);
    return true;
}

bool QuadraticProgram::constraints(const double* x, double* g)
{
    std::fill(g, g + m(), 0.0);
    for (std::size_t k = 0; k < jacobianValue_.size(); ++k)
        g[jacobianRow[k] - 1] += jacobianValue_[k] * x[jacobianColumn[k] - 1];
    return std::all_of(g, g + m(), [](double v) { return std::isfinite(v); });
}

bool QuadraticProgram::jacobian(const double*, double* values)
{
    std::copy(jacobianValue_.begin(), jacobianValue_.end(), values);
    return true;
}

bool QuadraticProgram::hessian(double objectiveFactor, double* values)
{
    for (const double h : hessianValue_)
        *values++ = objectiveFactor * sign() * forF_ * h;
    return true;
}

bool QuadraticProgram::proceed(double f, double violation)
{
    unbounded_ = unbounded_ || (std::fabs(f) > kUnboundedFrom && violation < 1.0);
    return !stopped_ && !unbounded_;
}

std::vector<double> QuadraticProgram::withRows(const double* x) const
{
    std::vector<double> all(x, x + parts_.n);
    all.resize(static_cast<std::size_t>(parts_.n + parts_.m), 0.0);
    for (std::size_t k = 0; k < parts_.A.size(); ++k)
        all[static_cast<std::size_t>(parts_.n + parts_.rowOf[k])] += parts_.A[k] * x[parts_.columnOf[k]];
    return all;
}

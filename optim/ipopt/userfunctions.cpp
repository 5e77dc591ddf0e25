// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/userfunctions.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr double kUnset = -11111.0; // what an entry holds that the caller did not write
constexpr int kFirstCall = 1;

bool allFinite(const std::vector<double>& values)
{
    return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

} // namespace

UserFunctions::UserFunctions(const Caller& caller, std::vector<int> iG, std::vector<int> jG, std::vector<double> xl,
                             std::vector<double> xu, double interval, bool withDerivatives)
    : caller_(caller), iG_(std::move(iG)), jG_(std::move(jG)), xl_(std::move(xl)), xu_(std::move(xu)), interval_(interval),
      withDerivatives_(withDerivatives), x_(xl_.size()), F_(static_cast<std::size_t>(caller.nF)), G_(iG_.size()), newF_(F_),
      newG_(G_), shifted_(x_), shiftedF_(F_)
{
    missing_.reserve(G_.size());
}

bool UserFunctions::takeUndefined() { return std::exchange(undefined_, false); }

UserFunctions::State UserFunctions::call(const double* x, bool needG, std::vector<double>& F, std::vector<double>& G)
{
    if (stopped_)
        return State::Stopped;
    int status = std::exchange(first_, false) ? kFirstCall : 0;
    const int needF = 1, wantG = needG ? 1 : 0, lenG = static_cast<int>(G.size());
    double none = 0.0; // no null pointer where there is no nonlinear entry
    caller_.function(&status, &caller_.n, x, &needF, &caller_.nF, F.data(), &wantG, &lenG, G.empty() ? &none : G.data(),
                     caller_.cu, caller_.lencu, caller_.iu, caller_.leniu, caller_.ru, caller_.lenru, caller_.cuLength);
    if (status <= -2) {
        stopped_ = true;
        return State::Stopped;
    }
    return status == -1 || !allFinite(F) ? State::Undefined : State::Defined;
}

UserFunctions::State UserFunctions::at(const double* x)
{
    if (known_ && std::equal(x_.begin(), x_.end(), x))
        return State::Defined;
    if (std::equal(lastUndefined_.begin(), lastUndefined_.end(), x, x + lastUndefined_.size()) && !lastUndefined_.empty())
        return State::Undefined;
    std::fill(newG_.begin(), newG_.end(), kUnset);
    State state = call(x, withDerivatives_ && !newG_.empty(), newF_, newG_);
    if (state == State::Defined)
        state = complete(x, newF_, newG_);
    if (state == State::Defined && !allFinite(newG_))
        state = State::Undefined;
    if (state == State::Undefined) {
        undefined_ = true;
        lastUndefined_.assign(x, x + x_.size());
    }
    if (state == State::Defined) {
        std::copy_n(x, x_.size(), x_.begin());
        F_.swap(newF_);
        G_.swap(newG_);
        known_ = true;
    }
    return state;
}

UserFunctions::State UserFunctions::valuesAt(const double* x, std::vector<double>& F) { return call(x, false, F, newG_); }

/// A step away from the nearer bound; 0 when there is no room.
double UserFunctions::stepFor(const double* x, int j, double interval) const
{
    const auto k = static_cast<std::size_t>(j);
    const double step = interval * (1.0 + std::fabs(x[k]));
    if (x[k] + step <= xu_[k])
        return step;
    return x[k] - step >= xl_[k] ? -step : 0.0;
}

/// Greedy colouring of the columns that have missing entries: columns of one group share no row, so that one shifted
/// evaluation serves them all. Curtis, Powell, Reid, J. Inst. Math. Appl. 13 (1974) 117-119.
void UserFunctions::group(const std::vector<int>& missing)
{
    std::vector<std::pair<int, int>> byColumn; // (column, entry)
    for (const int k : missing)
        byColumn.emplace_back(jG_[static_cast<std::size_t>(k)], k);
    std::sort(byColumn.begin(), byColumn.end());
    groups_.clear();
    std::vector<std::vector<char>> taken; // rows of each group
    for (std::size_t first = 0; first < byColumn.size();) {
        std::size_t last = first;
        while (last < byColumn.size() && byColumn[last].first == byColumn[first].first)
            ++last;
        const auto rowOf = [&](std::size_t e) {
            return static_cast<std::size_t>(iG_[static_cast<std::size_t>(byColumn[e].second)] - 1);
        };
        std::size_t g = 0;
        for (; g < groups_.size(); ++g) {
            bool free = true;
            for (std::size_t e = first; e < last; ++e)
                free = free && taken[g][rowOf(e)] == 0;
            if (free)
                break;
        }
        if (g == groups_.size()) {
            groups_.emplace_back();
            taken.emplace_back(static_cast<std::size_t>(caller_.nF), char(0));
        }
        for (std::size_t e = first; e < last; ++e) {
            groups_[g].push_back(byColumn[e].second);
            taken[g][rowOf(e)] = 1;
        }
        first = last;
    }
}

/// Fills the entries that the caller left by forward differences.
UserFunctions::State UserFunctions::complete(const double* x, const std::vector<double>& F, std::vector<double>& G)
{
    std::vector<int> missing;
    for (std::size_t k = 0; k < G.size(); ++k)
        if (G[k] == kUnset)
            missing.push_back(static_cast<int>(k));
    if (missing.empty())
        return State::Defined;
    if (missing != missing_) {
        group(missing);
        missing_ = missing;
    }
    for (const std::vector<int>& entries : groups_) {
        std::copy_n(x, shifted_.size(), shifted_.begin());
        for (const int k : entries) {
            const int j = jG_[static_cast<std::size_t>(k)] - 1;
            shifted_[static_cast<std::size_t>(j)] = x[j] + stepFor(x, j, interval_);
        }
        const State state = call(shifted_.data(), false, shiftedF_, G);
        if (state != State::Defined)
            return state;
        for (const int k : entries) {
            const auto e = static_cast<std::size_t>(k), i = static_cast<std::size_t>(iG_[e] - 1),
                       j = static_cast<std::size_t>(jG_[e] - 1);
            const double step = shifted_[j] - x[j]; // as it was rounded
            G[e] = step != 0.0 ? (shiftedF_[i] - F[i]) / step : 0.0; // a fixed variable needs none
        }
    }
    return State::Defined;
}

int UserFunctions::findWrongDerivative(double step)
{
    const std::vector<double> x = x_, F = F_, G = G_;
    std::vector<double> upF(F), downF(F);
    int current = -1;
    double width = 0.0;
    std::vector<std::size_t> order(G.size());
    for (std::size_t k = 0; k < order.size(); ++k)
        order[k] = k;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return jG_[a] < jG_[b]; });
    for (const std::size_t k : order) {
        if (jG_[k] != current) {
            current = jG_[k];
            const auto j = static_cast<std::size_t>(current - 1);
            const double h = step * (1.0 + std::fabs(x[j]));
            const double up = std::min(x[j] + h, xu_[j]), down = std::max(x[j] - h, xl_[j]);
            width = up - down;
            shifted_ = x;
            shifted_[j] = up;
            bool defined = width > 0.0 && valuesAt(shifted_.data(), upF) == State::Defined;
            shifted_[j] = down;
            defined = defined && valuesAt(shifted_.data(), downF) == State::Defined;
            if (!defined)
                width = 0.0;
        }
        if (width == 0.0)
            continue;
        const auto i = static_cast<std::size_t>(iG_[k] - 1);
        const double difference = (upF[i] - downF[i]) / width;
        if (std::fabs(difference - G[k]) > 1e-3 * (1.0 + std::fabs(difference)))
            return static_cast<int>(k);
    }
    return -1;
}

void UserFunctions::finish(int status)
{
    if (stopped_)
        return;
    const int none = 0, lenG = static_cast<int>(G_.size());
    double unused = 0.0;
    caller_.function(&status, &caller_.n, x_.data(), &none, &caller_.nF, newF_.data(), &none, &lenG,
                     newG_.empty() ? &unused : newG_.data(), caller_.cu, caller_.lencu, caller_.iu, caller_.leniu,
                     caller_.ru, caller_.lenru, caller_.cuLength);
}

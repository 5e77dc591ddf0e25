// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/settings.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr int kFound = 102, kUndefined = 61, kStopped = 71, kNoRoom = 91;
constexpr int kPoints = 3;

/// Numbers in (-1, 1), the same in every run: a linear congruential generator, Knuth, The Art of Computer Programming,
/// vol. 2, 3rd ed., section 3.3.4, line 26.
class Draw
{
public:
    double operator()()
    {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(state_ >> 11) * 0x1p-52 - 1.0;
    }

private:
    std::uint64_t state_ = 12345;
};

class Prober
{
public:
    Prober(UserFunctions& functions, const std::vector<double>& x, const std::vector<double>& xl,
           const std::vector<double>& xu, int nF)
        : functions_(functions), x_(x), xl_(xl), xu_(xu), base_(x), F_(static_cast<std::size_t>(nF)), shifted_(F_)
    {
    }

    /// A base point near x, the p-th: x itself, then some way off, nearer and nearer until the functions are defined.
    UserFunctions::State moveTo(int p)
    {
        double reach = p == 0 ? 0.0 : 0.1;
        for (int attempt = 0; attempt < 30; ++attempt, reach *= 0.5) {
            for (std::size_t j = 0; j < x_.size(); ++j)
                base_[j] = std::clamp(x_[j] + reach * (1.0 + std::fabs(x_[j])) * draw_(), xl_[j], xu_[j]);
            const UserFunctions::State state = functions_.valuesAt(base_.data(), F_);
            if (state != UserFunctions::State::Undefined || p == 0)
                return state;
        }
        return UserFunctions::State::Undefined;
    }

    /// Slopes of all functions in variable j at the base point.
    UserFunctions::State slopes(std::size_t j, std::vector<double>& out)
    {
        const double at = base_[j];
        double reach = 0.01 * (1.0 + std::fabs(at));
        UserFunctions::State state = UserFunctions::State::Undefined;
        for (int attempt = 0; attempt < 30 && state == UserFunctions::State::Undefined; ++attempt) {
            const double up = std::min(at + reach, xu_[j]), down = std::max(at - reach, xl_[j]);
            base_[j] = (attempt % 2 == 0) == (up - at >= at - down) ? up : down;
            const double step = base_[j] - at;
            if (step == 0.0) { // a fixed variable
                std::fill(out.begin(), out.end(), 0.0);
                return UserFunctions::State::Defined;
            }
            state = functions_.valuesAt(base_.data(), shifted_);
            for (std::size_t i = 0; i < out.size(); ++i)
                out[i] = (shifted_[i] - F_[i]) / step;
            reach *= attempt % 2 == 0 ? 1.0 : 0.25;
        }
        base_[j] = at;
        return state;
    }

private:
    UserFunctions& functions_;
    const std::vector<double>&x_, &xl_, &xu_;
    std::vector<double> base_, F_, shifted_;
    Draw draw_;
};

} // namespace

int findStructure(UserFunctions& functions, const std::vector<double>& x, const std::vector<double>& xl,
                  const std::vector<double>& xu, int nF, const Structure& out)
{
    const std::size_t n = x.size(), rows = static_cast<std::size_t>(nF);
    const auto exitOf = [](UserFunctions::State state) {
        return state == UserFunctions::State::Stopped ? kStopped : kUndefined;
    };
    std::vector<double> start(x);
    for (std::size_t j = 0; j < n; ++j)
        start[j] = std::clamp(start[j], xl[j], xu[j]);
    Prober prober(functions, start, xl, xu, nF);
    std::vector<std::vector<double>> slope(kPoints, std::vector<double>(rows * n));
    std::vector<double> column(rows);
    for (int p = 0; p < kPoints; ++p) {
        if (const auto state = prober.moveTo(p); state != UserFunctions::State::Defined)
            return exitOf(state);
        for (std::size_t j = 0; j < n; ++j) {
            if (const auto state = prober.slopes(j, column); state != UserFunctions::State::Defined)
                return exitOf(state);
            std::copy(column.begin(), column.end(), slope[static_cast<std::size_t>(p)].begin() + static_cast<long>(rows * j));
        }
    }

    *out.neA = *out.neG = 0;
    for (std::size_t j = 0; j < n; ++j)
        for (std::size_t i = 0; i < rows; ++i) {
            const double a = slope[0][rows * j + i], b = slope[1][rows * j + i], c = slope[2][rows * j + i];
            const double largest = std::max({std::fabs(a), std::fabs(b), std::fabs(c)});
            if (largest == 0.0)
                continue;
            const bool constant = std::max({a, b, c}) - std::min({a, b, c}) <= 1e-8 * std::max(largest, 1e-4);
            int& count = constant ? *out.neA : *out.neG;
            if (count == (constant ? out.lenA : out.lenG))
                return kNoRoom;
            if (constant)
                out.A[count] = a;
            (constant ? out.iA : out.iG)[count] = static_cast<int>(i) + 1;
            (constant ? out.jA : out.jG)[count] = static_cast<int>(j) + 1;
            ++count;
        }
    return kFound;
}

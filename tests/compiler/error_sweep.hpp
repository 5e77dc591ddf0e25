// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "probe.hpp"

#include <cmath>
#include <limits>

namespace qxtest {

/// How far two engines may be apart on a compiled list, from the values of its tape.
///
/// Every operation errs by 2 ulp of its value, the hyperbolic ones by 4 eps cosh and what follows from it. An output may
/// differ by 4 times the sum over the operations of |d out / d operation| times that error (reverse sweep). A switch (a
/// comparison, floor, the border of a domain) whose argument lies within its own bound (forward sweep) proves nothing.
class ErrorSweep
{
public:
    /// After comp.eval at some point, failed or not.
    explicit ErrorSweep(const Probe& comp) : c_(comp), w_(comp.evalWork), bound_(w_.size(), 0.0), own_(w_.size(), 0.0)
    {
        for (last_ = 0; last_ < c_.evalOps.size(); ++last_) {
            const Probe::Step& s = c_.evalOps[last_];
            const int refused = statusOf(s);
            if (refused != 0) {
                status = refused;
                break;
            }
            forward(s);
        }
    }

    /// No switch is near, and no number is infinite or NaN.
    bool decided = true;
    /// Only operations that both sides compute without rounding differences.
    bool exact = true;
    /// What a class returns: 0 or the code of the first operation outside its domain.
    int status = 0;

    /// Allowed difference of output k.
    double allowed(std::size_t k) const
    {
        std::vector<double> adjoint(w_.size(), 0.0);
        adjoint[at(c_.evalOuts[k])] = 1;
        double sum = 0;
        for (std::size_t i = c_.evalOps.size(); i-- > 0;) {
            const Probe::Step& s = c_.evalOps[i];
            const double a = adjoint[at(s.slot)];
            sum += std::fabs(a) * own_[at(s.slot)];
            double partials[3];
            partialsOf(s, partials);
            for (int j = 0; j < ExprComp::nArgsOf(s.kind); ++j)
                if (partials[j] != 0)
                    adjoint[at(s.args[at(j)])] += a * partials[j];
        }
        return 4 * sum;
    }

private:
    static std::size_t at(int i) { return static_cast<std::size_t>(i); }
    double arg(const Probe::Step& s, int k) const { return w_[at(s.args[at(k)])]; }
    double boundOf(const Probe::Step& s, int k) const { return bound_[at(s.args[at(k)])]; }

    void near(double distance, double bound)
    {
        if (!(std::fabs(distance) > 8 * bound) && bound > 0)
            decided = false;
    }

    int statusOf(const Probe::Step& s)
    {
        const double x = arg(s, 0);
        switch (s.kind) {
        case ExprComp::Sqrt:
            near(x, boundOf(s, 0));
            return x < 0 ? -2 : 0;
        case ExprComp::Log: case ExprComp::Log10: case ExprComp::Log2:
            near(x, boundOf(s, 0));
            return x < 0 ? -1 : 0;
        case ExprComp::Acos: case ExprComp::Asin:
            near(std::fabs(x) - 1, boundOf(s, 0));
            return std::fabs(x) > 1 ? -4 : 0;
        case ExprComp::Power:
            near(x, boundOf(s, 0));
            if (boundOf(s, 1) > 0 && x <= 0)
                decided = false; // the exponent decides by being whole
            return x != 0 && std::isnan(std::pow(x, arg(s, 1))) ? -5 : 0;
        default:
            return 0;
        }
    }

    void forward(const Probe::Step& s)
    {
        const double v = w_[at(s.slot)], x = arg(s, 0), y = arg(s, 1);
        if (!std::isfinite(v))
            decided = false;
        switch (s.kind) {
        case ExprComp::Floor: case ExprComp::Ceil: case ExprComp::Fix:
            near(x - std::nearbyint(x), boundOf(s, 0));
            break;
        case ExprComp::Round: // two definitions of rounding: apart from halves and huge numbers
            if (std::fabs(x) > 1e15)
                decided = false;
            near(x - 0.5 - std::nearbyint(x - 0.5), boundOf(s, 0) + 1e-12);
            break;
        case ExprComp::Sign: case ExprComp::Not: case ExprComp::If: near(x, boundOf(s, 0)); break;
        case ExprComp::And: case ExprComp::Or:
            near(x, boundOf(s, 0));
            near(y, boundOf(s, 1));
            break;
        case ExprComp::Less: case ExprComp::LessEqual: case ExprComp::Greater: case ExprComp::GreaterEqual:
        case ExprComp::Equal: case ExprComp::NotEqual:
            near(x - y, boundOf(s, 0) + boundOf(s, 1));
            break;
        case ExprComp::Mod: {
            const double q = x / y, error = (boundOf(s, 0) + std::fabs(q) * boundOf(s, 1)) / std::fabs(y);
            near(y, boundOf(s, 1));
            near(y - std::nearbyint(y), boundOf(s, 1));
            if (y != 0)
                near(q - std::nearbyint(q), error > 0 ? error + 16 * std::fabs(q) * eps : 0);
            break;
        }
        case ExprComp::Divide:
            near(y, boundOf(s, 1));
            break;
        case ExprComp::Atan2:
            if (x == 0 && y <= 0)
                decided = false;
            if (y < 0)
                near(x, boundOf(s, 0));
            break;
        case ExprComp::Tan: case ExprComp::Cot: case ExprComp::Sec: case ExprComp::Csc:
            if (std::fabs(v) > 1e12)
                decided = false;
            break;
        default: break;
        }

        own_[at(s.slot)] = ownError(s, v, x);
        double partials[3], sum = own_[at(s.slot)];
        partialsOf(s, partials);
        for (int k = 0; k < ExprComp::nArgsOf(s.kind); ++k)
            if (partials[k] != 0)
                sum += std::fabs(partials[k]) * boundOf(s, k);
        bound_[at(s.slot)] = sum;
        if (!std::isfinite(sum))
            decided = false;
    }

    double ownError(const Probe::Step& s, double v, double x)
    {
        const double ulps = 2 * std::fabs(v) * eps + 1e-320, c = std::cosh(x), h = std::sinh(x);
        switch (s.kind) {
        case ExprComp::Sinh:                       exact = false; return 4 * eps * c;
        case ExprComp::Tanh:                       exact = false; return 4 * eps;
        case ExprComp::Csch:                       exact = false; return 4 * eps * c / (h * h) + 2 * ulps;
        case ExprComp::Coth:                       exact = false; return 4 * eps * v * v + 2 * ulps;
        case ExprComp::Cosh: case ExprComp::Sech:  exact = false; return 2 * ulps;
        case ExprComp::Csc: case ExprComp::Cot: case ExprComp::Sec: exact = false; return 2 * ulps;
        case ExprComp::Sin: case ExprComp::Cos: case ExprComp::Tan: case ExprComp::Atan: case ExprComp::Exp:
        case ExprComp::Log: case ExprComp::Log10: case ExprComp::Log2: case ExprComp::Acos: case ExprComp::Asin:
        case ExprComp::Atan2: case ExprComp::Power:
            exact = false;
            return ulps;
        case ExprComp::Round:
            exact = false;
            return 0;
        case ExprComp::Mod: return 4 * (std::fabs(x) + std::fabs(v)) * eps;
        case ExprComp::Plus: case ExprComp::Minus: case ExprComp::Times: case ExprComp::Divide:
        case ExprComp::DivideNonZero: case ExprComp::Square: case ExprComp::Cube: case ExprComp::Fourth:
        case ExprComp::Sqrt:
            return ulps;
        default: return 0;
        }
    }

    void partialsOf(const Probe::Step& s, double* p) const
    {
        const double v = w_[at(s.slot)], x = arg(s, 0), y = arg(s, 1);
        p[0] = p[1] = p[2] = 0;
        switch (s.kind) {
        case ExprComp::Conj: case ExprComp::Identity: case ExprComp::Real: case ExprComp::UnaryPlus: p[0] = 1; break;
        case ExprComp::UnaryMinus: p[0] = -1; break;
        case ExprComp::Plus:  p[0] = p[1] = 1; break;
        case ExprComp::Minus: p[0] = 1; p[1] = -1; break;
        case ExprComp::Times: p[0] = y; p[1] = x; break;
        case ExprComp::Divide: case ExprComp::DivideNonZero: p[0] = 1 / y; p[1] = -v / y; break;
        case ExprComp::Abs:   p[0] = 1; break;
        case ExprComp::Exp:   p[0] = v; break;
        case ExprComp::Sin:   p[0] = std::cos(x); break;
        case ExprComp::Cos:   p[0] = -std::sin(x); break;
        case ExprComp::Tan:   p[0] = 1 + v * v; break;
        case ExprComp::Atan:  p[0] = 1 / (1 + x * x); break;
        case ExprComp::Sinh:  p[0] = std::cosh(x); break;
        case ExprComp::Cosh:  p[0] = std::sinh(x); break;
        case ExprComp::Tanh:  p[0] = 1 - v * v; break;
        case ExprComp::Sec:   p[0] = v * std::tan(x); break;
        case ExprComp::Csc:   p[0] = -v / std::tan(x); break;
        case ExprComp::Cot:   p[0] = -(1 + v * v); break;
        case ExprComp::Sech:  p[0] = -v * std::tanh(x); break;
        case ExprComp::Csch:  p[0] = -v / std::tanh(x); break;
        case ExprComp::Coth:  p[0] = 1 - v * v; break;
        case ExprComp::Sqrt:  p[0] = 0.5 / v; break;
        case ExprComp::Log:   p[0] = 1 / x; break;
        case ExprComp::Log10: p[0] = 1 / (x * std::log(10.0)); break;
        case ExprComp::Log2:  p[0] = 1 / (x * std::log(2.0)); break;
        case ExprComp::Acos: case ExprComp::Asin: p[0] = 1 / std::sqrt(1 - x * x); break;
        case ExprComp::Atan2: p[0] = y / (x * x + y * y); p[1] = -x / (x * x + y * y); break;
        case ExprComp::Power:
            if (x != 0) {
                p[0] = y * std::pow(x, y - 1);
                p[1] = v * std::log(std::fabs(x));
            }
            break;
        case ExprComp::Square: p[0] = 2 * x; break;
        case ExprComp::Cube:   p[0] = 3 * x * x; break;
        case ExprComp::Fourth: p[0] = 4 * x * x * x; break;
        case ExprComp::Mod:
            p[0] = 1;
            p[1] = y != 0 ? -std::floor(x / y) : 0;
            break;
        case ExprComp::Min: p[y < x ? 1 : 0] = 1; break;
        case ExprComp::Max: p[x < y ? 1 : 0] = 1; break;
        case ExprComp::If:  p[x == 0 ? 2 : 1] = 1; break;
        default: break;
        }
    }

    static constexpr double eps = std::numeric_limits<double>::epsilon();
    const Probe& c_;
    const std::vector<double>& w_;
    std::vector<double> bound_, own_;
    std::size_t last_ = 0;
};

} // namespace qxtest

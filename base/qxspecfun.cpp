// SPDX-License-Identifier: LicenseRef-qxkernel
// The gamma and beta functions.

#include "qxspecfun_detail.hpp"

#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>

#include <algorithm>

#include <arb_fpwrap.h>

using namespace qxspecfun_detail;
using Complex = std::complex<double>;

namespace {

/// The incomplete beta function of parameters that are both so large that its continued fraction has no end: 0 or 1 beside
/// the mean, by the bound exp(-n D) of the tails with n = a + b, D the relative entropy of the mean and x, which is at
/// least (x - mean)^2 / (2 max(mean, x)). Between, no double has its digits.
double betaStep(double x, double a, double b)
{
    constexpr double none = 760; // exp(-none) is 0
    const double ratio = b / a, mean = 1 / (1 + ratio), rest = ratio / (1 + ratio), difference = x - mean;
    const double spread = std::min(std::max(mean, x), std::max(rest, 1 - x));
    const double digits = 8 * std::numeric_limits<double>::epsilon() * std::max(mean, x);
    const bool isBeside = std::fabs(difference) > digits && difference / (2 * spread) * difference > none / a / (1 + ratio);
    return !isBeside ? quietNaN : difference < 0 ? 0.0 : 1.0;
}

} // namespace

int qxgamma(double x, double& result)
{
    if (std::isnan(x) || (x < 0 && isWhole(x)))
        return noValue(result);
    if (x == 0)
        return conclude(std::copysign(infinity, x), result);
    return conclude(static_cast<double>(std::tgamma(static_cast<long double>(x))), result);
}

int qxgamma(const Complex& z, Complex& result)
{
    if (!isFinite(z) || (z.imag() == 0 && z.real() < 0 && isWhole(z.real())))
        return noValue(result);
    if (z == 0.0) {
        result = {infinity, 0};
        return QxSpecfunInfinite;
    }
    complex_double value{quietNaN, quietNaN};
    if (arb_fpwrap_cdouble_gamma(&value, {z.real(), z.imag()}, 0) != FPWRAP_SUCCESS)
        value = {quietNaN, quietNaN};
    return conclude(Complex(value.real, value.imag), result);
}

int qxgammainc(double x, double a, double& result)
{
    if (!(x >= 0 && a >= 0))
        return noValue(result);
    if (a == 0 || (std::isinf(x) && !std::isinf(a)))
        return conclude(1.0, result);
    if (std::isinf(a))
        return std::isinf(x) ? noValue(result) : conclude(0.0, result);
    return conclude(attempt([=] { return boost::math::gamma_p(a, x, Quiet()); }), result);
}

int qxbetainc(double x, double a, double b, double& result)
{
    if (!(x >= 0 && x <= 1 && a >= 0 && b >= 0) || (a == 0 && b == 0) || (std::isinf(a) && std::isinf(b)))
        return noValue(result);
    if (a == 0 || std::isinf(b))
        return conclude(x > 0 || a == 0 ? 1.0 : 0.0, result);
    if (b == 0 || std::isinf(a))
        return conclude(x < 1 ? 0.0 : 1.0, result);
    constexpr double mostSteps = 1e13; // some milliseconds
    if (std::min(a, b) > mostSteps)
        return conclude(a == b && x == 0.5 ? 0.5 : betaStep(x, a, b), result);
    return conclude(attempt([=] { return boost::math::ibeta(a, b, x, Quiet()); }), result);
}

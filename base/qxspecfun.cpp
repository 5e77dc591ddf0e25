// SPDX-License-Identifier: LicenseRef-qxkernel
// The gamma and beta functions.

#include "qxspecfun_detail.hpp"

#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>

#include <arb_fpwrap.h>

using namespace qxspecfun_detail;
using Complex = std::complex<double>;

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
    return conclude(boost::math::gamma_p(a, x, Quiet()), result);
}

int qxbetainc(double x, double a, double b, double& result)
{
    if (!(x >= 0 && x <= 1 && a >= 0 && b >= 0) || (a == 0 && b == 0) || (std::isinf(a) && std::isinf(b)))
        return noValue(result);
    if (a == 0 || std::isinf(b))
        return conclude(x > 0 || a == 0 ? 1.0 : 0.0, result);
    if (b == 0 || std::isinf(a))
        return conclude(x < 1 ? 0.0 : 1.0, result);
    return conclude(boost::math::ibeta(a, b, x, Quiet()), result);
}

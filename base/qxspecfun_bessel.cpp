// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxspecfun_detail.hpp"
#include "qxspecfun_order_detail.hpp"

#include <boost/math/special_functions/bessel.hpp>
#include <boost/math/special_functions/sin_pi.hpp>

#include <numbers>

#include <arb_fpwrap.h>

namespace {

using namespace qxspecfun_detail;
using Complex = std::complex<double>;
constexpr long double pi = std::numbers::pi_v<long double>;

/// True when a real value may exist; needsPositive: only for x >= 0.
bool hasRealValue(double nu, double x, bool needsPositive)
{
    if (std::isnan(nu) || std::isnan(x) || std::isinf(nu))
        return false;
    return x >= 0 || (!needsPositive && isWhole(nu));
}

/// Limit of (x/2)^nu / Gamma(nu + 1) for x -> 0+ and negative fractional nu: the leading term of J and I.
double limitAtZero(double nu) { return std::fmod(std::floor(nu), 2.0) == 0 ? -infinity : infinity; }

bool isPoleAtZero(double nu) { return nu < 0 && !isWhole(nu); }

using ArbBessel = int (*)(double*, double, double, int);
using ArbComplexBessel = int (*)(complex_double*, complex_double, complex_double, int);

/// The value by ball arithmetic, correct to the last bit or so at any cost: the fallback of the faster ways.
int byArb(ArbBessel function, double nu, double x, double& result)
{
    double value = quietNaN;
    if (function(&value, nu, x, 0) != FPWRAP_SUCCESS)
        value = quietNaN;
    return conclude(value, result);
}

int byArb(ArbComplexBessel function, double nu, const Complex& z, Complex& result)
{
    complex_double value{quietNaN, quietNaN};
    if (function(&value, {nu, 0}, {z.real(), z.imag()}, 0) != FPWRAP_SUCCESS)
        value = {quietNaN, quietNaN};
    return conclude(Complex(value.real, value.imag), result);
}

double sinPi(double x) { return boost::math::sin_pi(x, Quiet()); }
double cosPi(double x) { return boost::math::cos_pi(x, Quiet()); }

/// The infinity, or zero, that a real function of large order goes to (DLMF 10.2.3, 10.4.7, 10.27.2 for negative orders).
double limitOfLargeOrder(Bessel kind, double nu, double x, bool isByK)
{
    const bool isOdd = std::fmod(nu, 2.0) != 0;
    switch (kind) {
    case Bessel::J: return std::copysign(infinity, sinPi(-nu));
    case Bessel::Y: {
        const double factor = nu < 0 ? cosPi(nu) : 1.0;
        return factor == 0 ? 0.0 : std::copysign(infinity, -factor);
    }
    case Bessel::I:
        if (isByK)
            return std::copysign(infinity, sinPi(-nu));
        return x < 0 && isOdd ? -infinity : infinity;
    case Bessel::K: break;
    }
    return infinity;
}

/// True with result and status when the order alone decides: the value is zero or infinite in double, or the methods end
/// without one.
bool isDecidedByOrder(Bessel kind, double nu, double x, double& result, int& status)
{
    const bool isModified = kind == Bessel::I || kind == Bessel::K;
    const Magnitude magnitude = magnitudeOf(kind, nu, x);
    if (magnitude.size == Size::Zero)
        status = conclude(0.0, result);
    else if (magnitude.size == Size::Infinite)
        status = conclude(limitOfLargeOrder(kind, nu, x, magnitude.isByK), result);
    else if (std::fabs(nu) > (isModified ? mostExpanded : mostOscillating))
        status = conclude(quietNaN, result);
    else
        return false;
    return true;
}

bool isDecidedByOrder(Bessel kind, double nu, const Complex& z, Complex& result, int& status)
{
    const Size size = magnitudeOf(kind, nu, z).size;
    if (size == Size::Zero) {
        status = conclude(Complex(0, 0), result);
    } else if (size == Size::Infinite) {
        result = {quietNaN, quietNaN}; // its direction is not known
        status = QxSpecfunInfinite;
    } else if (std::fabs(nu) > mostComplex) {
        status = conclude(Complex(quietNaN, quietNaN), result);
    } else {
        return false;
    }
    return true;
}

/// Infinity of either function at 0 that has one there.
int pole(double value, Complex& result)
{
    result = {value, 0};
    return QxSpecfunInfinite;
}

bool isUsable(double nu, const Complex& z) { return std::isfinite(nu) && isFinite(z); }

/// exp(i pi x / 2), exact for whole x.
Complex quarterTurns(double x)
{
    const double reduced = std::remainder(x, 4.0); // exact, in [-2, 2]
    if (isWhole(reduced)) {
        constexpr double c[] = {-1, 0, 1, 0, -1}, s[] = {0, -1, 0, 1, 0};
        const int i = static_cast<int>(reduced) + 2;
        return {c[i], s[i]};
    }
    return std::polar(1.0, reduced * (std::numbers::pi / 2));
}

/// a b by the plain formula: no recovery of infinities.
Complex times(const Complex& a, const Complex& b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

} // namespace

int qxbesselj(double nu, double x, double& result)
{
    if (!hasRealValue(nu, x, false))
        return noValue(result);
    if (x == 0 && isPoleAtZero(nu))
        return conclude(limitAtZero(nu), result);
    if (std::isinf(x))
        return conclude(0.0, result);
    if (int status; x != 0 && isDecidedByOrder(Bessel::J, nu, x, result, status))
        return status;
    const double value = attempt([=] { return boost::math::cyl_bessel_j(nu, x, Quiet()); });
    return std::isnan(value) ? byArb(arb_fpwrap_double_bessel_j, nu, x, result) : conclude(value, result);
}

int qxbessely(double nu, double x, double& result)
{
    if (!hasRealValue(nu, x, true))
        return noValue(result);
    if (x == 0)
        return conclude(-infinity, result);
    if (std::isinf(x))
        return conclude(0.0, result);
    if (int status; isDecidedByOrder(Bessel::Y, nu, x, result, status))
        return status;
    const double value = attempt([=] { return boost::math::cyl_neumann(nu, x, Quiet()); });
    return std::isnan(value) ? byArb(arb_fpwrap_double_bessel_y, nu, x, result) : conclude(value, result);
}

int qxbesseli(double nu, double x, double& result)
{
    if (!hasRealValue(nu, x, false))
        return noValue(result);
    if (std::isinf(x))
        return conclude(x < 0 && std::fmod(nu, 2.0) != 0 ? -infinity : infinity, result);
    if (x == 0 && isPoleAtZero(nu))
        return conclude(limitAtZero(nu), result);
    if (isWhole(nu))
        nu = std::abs(nu); // DLMF 10.27.1
    if (int status; x != 0 && isDecidedByOrder(Bessel::I, nu, x, result, status))
        return status;
    if (x != 0 && std::fabs(nu) > mostRecurred) {
        const Modified m = modifiedOfLargeOrder(std::fabs(nu), std::fabs(x));
        const long double i = x < 0 && std::fmod(nu, 2.0) != 0 ? -m.i : m.i;
        return conclude(static_cast<double>(nu < 0 ? i + 2 / pi * sinPi(-nu) * m.k : i), result);
    }
    const double value = attempt([=] { return boost::math::cyl_bessel_i(nu, x, Quiet()); });
    return std::isnan(value) ? byArb(arb_fpwrap_double_bessel_i, nu, x, result) : conclude(value, result);
}

int qxbesselk(double nu, double x, double& result)
{
    if (!hasRealValue(nu, x, true))
        return noValue(result);
    if (x == 0)
        return conclude(infinity, result);
    if (std::isinf(x))
        return conclude(0.0, result);
    nu = std::abs(nu); // DLMF 10.27.3
    if (int status; isDecidedByOrder(Bessel::K, nu, x, result, status))
        return status;
    if (nu > mostRecurred)
        return conclude(static_cast<double>(modifiedOfLargeOrder(nu, x).k), result);
    const double value = attempt([=] { return boost::math::cyl_bessel_k(nu, x, Quiet()); });
    return std::isnan(value) ? byArb(arb_fpwrap_double_bessel_k, nu, x, result) : conclude(value, result);
}

int qxbesselj(double nu, const Complex& z, Complex& result)
{
    if (!isUsable(nu, z))
        return noValue(result);
    if (z == 0.0 && isPoleAtZero(nu))
        return pole(limitAtZero(nu), result);
    if (int status; z != 0.0 && isDecidedByOrder(Bessel::J, nu, z, result, status))
        return status;
    return byArb(arb_fpwrap_cdouble_bessel_j, nu, z, result);
}

int qxbessely(double nu, const Complex& z, Complex& result)
{
    if (!isUsable(nu, z))
        return noValue(result);
    if (z == 0.0)
        return pole(-infinity, result);
    if (int status; isDecidedByOrder(Bessel::Y, nu, z, result, status))
        return status;
    return byArb(arb_fpwrap_cdouble_bessel_y, nu, z, result);
}

int qxbesseli(double nu, const Complex& z, Complex& result)
{
    if (!isUsable(nu, z))
        return noValue(result);
    if (z == 0.0 && isPoleAtZero(nu))
        return pole(limitAtZero(nu), result);
    if (int status; z != 0.0 && isDecidedByOrder(Bessel::I, nu, z, result, status))
        return status;
    return byArb(arb_fpwrap_cdouble_bessel_i, nu, z, result);
}

int qxbesselk(double nu, const Complex& z, Complex& result)
{
    if (!isUsable(nu, z))
        return noValue(result);
    if (z == 0.0)
        return pole(infinity, result);
    if (int status; isDecidedByOrder(Bessel::K, nu, z, result, status))
        return status;
    return byArb(arb_fpwrap_cdouble_bessel_k, nu, z, result);
}

/// In the half plane where K's argument stays on its branch, with s = +1 for kind 1 and -1 for kind 2 (DLMF 10.27.8):
///
///   H_nu(z) = -s 2i/pi exp(-s i pi nu/2) K_nu(-s i z)       -pi/2 < s arg z <= pi
///
/// and elsewhere, where H is the growing solution, H1 = 2 J - H2 and the other way round (DLMF 10.4.4).
int qxbesselh(int kind, double nu, const Complex& z, Complex& result)
{
    if (!isUsable(nu, z) || (kind != 1 && kind != 2))
        return noValue(result);
    if (z == 0.0) {
        result = {quietNaN, quietNaN};
        return QxSpecfunInfinite;
    }
    const double s = kind == 1 ? 1 : -1;
    const bool isOnBranch = z.real() > 0 || s * z.imag() > 0 || (z.imag() == 0 && kind == 1);
    if (isOnBranch) {
        Complex k;
        const int status = qxbesselk(nu, Complex(s * z.imag(), -s * z.real()), k);
        if (status != QxSpecfunOk)
            return conclude(k, result);
        constexpr double twoOverPi = 2 / std::numbers::pi;
        const Complex turned = times(quarterTurns(-s * nu), k);
        return conclude({s * twoOverPi * turned.imag(), -s * twoOverPi * turned.real()}, result);
    }
    Complex j, other;
    const int first = qxbesselj(nu, z, j), second = qxbesselh(3 - kind, nu, z, other);
    const Complex value = 2.0 * j - other;
    result = value;
    return first != QxSpecfunOk ? first : second != QxSpecfunOk ? second : conclude(value, result);
}

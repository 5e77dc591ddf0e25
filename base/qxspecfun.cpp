#include "qxspecfun_detail.hpp"

#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>

#include <arb_fpwrap.h>
#include <cerf.h>

namespace {

using namespace qxspecfun_detail;
using Complex = std::complex<double>;

using Extended = long double; // 64 bits of mantissa: exp of a square loses as many bits as the square has before the point
using ExtendedComplex = std::complex<Extended>;

constexpr Extended twoOverRootPi = 2 / 1.7724538509055160272981674833411452L;

ExtendedComplex extended(const Complex& z) { return {z.real(), z.imag()}; }
Complex rounded(const ExtendedComplex& z) { return {static_cast<double>(z.real()), static_cast<double>(z.imag())}; }

/// exp(x^2) without the error of rounding the square.
Extended expSquare(Extended x)
{
    const Extended square = x * x, rest = std::fma(x, x, -square);
    return std::exp(square) * (1 + rest);
}

/// exp(-z^2), with -z^2 = (y - x)(y + x) - 2ixy.
ExtendedComplex expMinusSquare(const Complex& z)
{
    const Extended x = z.real(), y = z.imag();
    return std::polar(std::exp((y - x) * (y + x)), -2 * x * y);
}

/// exp(z^2) erfc(z) in the right half plane, where it is bounded. C's complex numbers are a compiler extension in C++.
ExtendedComplex scaledErfc(const Complex& z)
{
    double _Complex argument;
    __real__ argument = z.real();
    __imag__ argument = z.imag();
    const double _Complex value = cerfcx(argument);
    return {__real__ value, __imag__ value};
}

/// erf(z) = 2/sqrt(pi) sum_n (-1)^n z^(2n+1) / (n! (2n+1)), DLMF 7.6.1.
ExtendedComplex erfSeries(const Complex& z)
{
    const ExtendedComplex minusSquare = -extended(z) * extended(z);
    ExtendedComplex power = extended(z), sum = power;
    for (int n = 1; n < 100; ++n) {
        power *= minusSquare / Extended(n);
        const ExtendedComplex term = power / Extended(2 * n + 1);
        sum += term;
        if (std::norm(term) < 1e-42L * std::norm(sum))
            break;
    }
    return twoOverRootPi * sum;
}

/// erf, erfc and erfcx share one road: through erfcx in the right half plane, mirrored by erfc(-z) = 2 - erfc(z).
template <class Function>
int errorFunction(const Complex& z, Complex& result, Function&& function)
{
    if (isNaN(z))
        return noValue(result);
    return conclude(rounded(function(z)), result);
}

} // namespace

int qxerf(double x, double& result) { return std::isnan(x) ? noValue(result) : conclude(std::erf(x), result); }
int qxerfc(double x, double& result)
{
    return std::isnan(x) ? noValue(result) : conclude(static_cast<double>(std::erfc(Extended(x))), result);
}

int qxerfcx(double x, double& result)
{
    if (std::isnan(x))
        return noValue(result);
    if (x < 50)
        return conclude(static_cast<double>(expSquare(x) * std::erfc(Extended(x))), result);
    // DLMF 7.12.1 with five terms: the next one is below 2^-60 here
    const Extended s = 1 / (2 * Extended(x) * x);
    const Extended series = 1 - s * (1 - 3 * s * (1 - 5 * s * (1 - 7 * s)));
    return conclude(static_cast<double>(twoOverRootPi / 2 / x * series), result);
}

int qxerf(const Complex& z, Complex& result)
{
    return errorFunction(z, result, [](const Complex& w) -> ExtendedComplex {
        if (std::norm(w) < 9)
            return erfSeries(w);
        return w.real() >= 0 ? ExtendedComplex(1) - expMinusSquare(w) * scaledErfc(w)
                             : expMinusSquare(w) * scaledErfc(-w) - ExtendedComplex(1);
    });
}

int qxerfc(const Complex& z, Complex& result)
{
    return errorFunction(z, result, [](const Complex& w) {
        return w.real() >= 0 ? expMinusSquare(w) * scaledErfc(w)
                             : ExtendedComplex(2) - expMinusSquare(w) * scaledErfc(-w);
    });
}

int qxerfcx(const Complex& z, Complex& result)
{
    return errorFunction(z, result, [](const Complex& w) {
        return w.real() >= 0 ? scaledErfc(w)
                             : Extended(2) * expMinusSquare({-w.imag(), w.real()}) - scaledErfc(-w);
    });
}

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

// SPDX-License-Identifier: LicenseRef-qxkernel
// The error functions. Those of complex argument share one road: erfcx in the right half plane, by the trapezoidal rule;
// erf, erfc and the left half plane follow by reflection.

#include "qxspecfun_detail.hpp"

#include <algorithm>
#include <array>
#include <numbers>

#include <arb_fpwrap.h>

namespace {

using namespace qxspecfun_detail;
using Complex = std::complex<double>;

using Extended = long double; // 64 bits of mantissa: eleven more than the result has, for what reflection cancels
using ExtendedComplex = std::complex<Extended>;

constexpr Extended pi = std::numbers::pi_v<Extended>, twoOverRootPi = 2 * std::numbers::inv_sqrtpi_v<Extended>;

ExtendedComplex extended(const Complex& z) { return {z.real(), z.imag()}; }
Complex rounded(const ExtendedComplex& z) { return {static_cast<double>(z.real()), static_cast<double>(z.imag())}; }

/// a b and 1/a by the plain formulas: no recovery of infinities.
ExtendedComplex times(const ExtendedComplex& a, const ExtendedComplex& b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}
ExtendedComplex inverse(const ExtendedComplex& a)
{
    const Extended scale = 1 / std::norm(a);
    return {a.real() * scale, -a.imag() * scale};
}

/// exp(x^2) without the error of rounding the square.
Extended expSquare(Extended x)
{
    const Extended square = x * x, rest = std::fma(x, x, -square);
    return std::exp(square) * (1 + rest);
}

/// exp(-z^2), with -z^2 = (y - x)(y + x) - 2ixy.
ExtendedComplex expMinusSquare(const ExtendedComplex& z)
{
    const Extended x = z.real(), y = z.imag();
    return std::polar(std::exp((y - x) * (y + x)), -2 * x * y);
}

/// The rule's step h and, at t = 0, h/2, h, ..., its t^2 and weight 2h/pi exp(-t^2). With n points on either side the
/// error of the rule is exp(-pi^2/h^2) and that of cutting the sum exp(-(nh)^2): both are exp(-pi n) for h^2 = pi/n.
struct TrapezoidalRule
{
    static constexpr int n = 16; // exp(-16 pi) = 2^-72

    TrapezoidalRule() : h(std::sqrt(pi / n))
    {
        for (int k = 0; k <= 2 * n; ++k) {
            square[k] = k * k * (h * h / 4);
            weight[k] = 2 * h / pi * std::exp(-square[k]);
        }
    }

    Extended h;
    std::array<Extended, 2 * n + 1> square, weight;
};

/// w(z) = exp(-z^2) erfc(-iz) in the first quadrant: w(z) = 2iz/pi int_0^inf exp(-t^2)/(z^2 - t^2) dt by the midpoint or
/// the trapezoidal rule, whichever has its points further from z, plus the residue of the poles that z is close to.
/// Al Azah and Chandler-Wilde, SIAM J. Numer. Anal. 59 (2021) 2346-2367.
ExtendedComplex faddeeva(const ExtendedComplex& z)
{
    static const TrapezoidalRule rule;
    const Extended x = z.real(), y = z.imag(), h = rule.h;
    const Extended place = x / h - std::floor(x / h);
    const bool onPoints = y < x && place >= 0.25L && place <= 0.75L; // z lies between the multiples of h

    const ExtendedComplex square = times(z, z);
    ExtendedComplex sum = 0;
    for (int k = onPoints ? 2 : 1; k <= 2 * rule.n; k += 2)
        sum += rule.weight[k] * inverse(square - rule.square[k]);
    if (onPoints)
        sum += rule.weight[0] / 2 * inverse(square);
    ExtendedComplex w = times({-y, x}, sum); // i z

    if (y < pi / h) {
        const ExtendedComplex turns = std::polar(std::exp(2 * pi / h * y), -2 * pi / h * x);
        w += 2.0L * times(expMinusSquare(z), inverse(onPoints ? 1.0L - turns : 1.0L + turns));
    }
    return w;
}

/// erfcx(z) = w(iz) for Re z >= 0, with w(-conj z) = conj w(z).
ExtendedComplex scaledErfc(const ExtendedComplex& z)
{
    return z.imag() <= 0 ? faddeeva({-z.imag(), z.real()}) : std::conj(faddeeva({z.imag(), z.real()}));
}

/// A difference whose operands may cancel.
struct Difference
{
    ExtendedComplex value;
    Extended size; ///< of the operands, squared

    /// True where the 11 bits beyond the result's would not make up for what cancelled.
    bool cancels() const { return std::norm(value) < size * 0x1p-14L; }
};

Difference difference(const ExtendedComplex& a, const ExtendedComplex& b)
{
    return {a - b, std::max(std::norm(a), std::norm(b))};
}

/// erf(z) = 2/sqrt(pi) sum_n (-1)^n z^(2n+1) / (n! (2n+1)), DLMF 7.6.1. Its terms grow up to exp(|z|^2).
ExtendedComplex erfSeries(const ExtendedComplex& z)
{
    const ExtendedComplex minusSquare = -times(z, z);
    ExtendedComplex power = z, sum = z;
    for (int n = 1; n < 100; ++n) {
        power = times(power, minusSquare / Extended(n));
        const ExtendedComplex term = power / Extended(2 * n + 1);
        sum += term;
        if (std::norm(term) < 1e-42L * std::norm(sum))
            break;
    }
    return twoOverRootPi * sum;
}

using ArbFunction = int (*)(complex_double*, complex_double, int);

/// By ball arithmetic: close to a zero of the function.
Complex byArb(ArbFunction function, const Complex& z)
{
    complex_double value{quietNaN, quietNaN};
    if (function(&value, {z.real(), z.imag()}, 0) != FPWRAP_SUCCESS)
        value = {quietNaN, quietNaN};
    return {value.real, value.imag};
}

Complex erfOf(const Complex& z)
{
    const ExtendedComplex w = extended(z);
    if (std::norm(w) < 4)
        return rounded(erfSeries(w));
    const bool right = w.real() >= 0;
    const ExtendedComplex tail = times(expMinusSquare(w), scaledErfc(right ? w : -w));
    const Difference d = right ? difference(1, tail) : difference(tail, 1);
    return d.cancels() ? byArb(arb_fpwrap_cdouble_erf, z) : rounded(d.value);
}

Complex erfcOf(const Complex& z)
{
    const ExtendedComplex w = extended(z);
    if (w.real() >= 0)
        return rounded(times(expMinusSquare(w), scaledErfc(w)));
    const Difference d = difference(2, times(expMinusSquare(w), scaledErfc(-w)));
    return d.cancels() ? byArb(arb_fpwrap_cdouble_erfc, z) : rounded(d.value);
}

Complex erfcxOf(const Complex& z)
{
    const ExtendedComplex w = extended(z);
    if (w.real() >= 0)
        return rounded(scaledErfc(w));
    const ExtendedComplex growth = expMinusSquare({-w.imag(), w.real()}); // exp(w^2)
    const Difference d = difference(2.0L * growth, scaledErfc(-w));
    return rounded(d.cancels() ? times(growth, extended(byArb(arb_fpwrap_cdouble_erfc, z))) : d.value);
}

/// The real axis has the real function's values, infinite arguments among them.
int errorFunction(const Complex& z, Complex& result, int (*real)(double, double&), Complex (*complex)(const Complex&))
{
    if (isNaN(z))
        return noValue(result);
    if (z.imag() != 0)
        return conclude(complex(z), result);
    double value;
    const int status = real(z.real(), value);
    result = {value, 0.0};
    return status;
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

int qxerf(const Complex& z, Complex& result) { return errorFunction(z, result, qxerf, erfOf); }
int qxerfc(const Complex& z, Complex& result) { return errorFunction(z, result, qxerfc, erfcOf); }
int qxerfcx(const Complex& z, Complex& result) { return errorFunction(z, result, qxerfcx, erfcxOf); }

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "functions/complex_lanes_detail.hpp"

#include <cmath>
#include <complex>

namespace qxkernels {

namespace {

using Complex = std::complex<double>;

template <class F>
void apply(double* z, F f)
{
    const Complex result = f(Complex(z[0], z[1]));
    z[0] = result.real();
    z[1] = result.imag();
}

constexpr double kHalfPi = 1.5707963267948966;

} // namespace

void laneHypot(double* z)
{
    z[0] = std::hypot(z[0], z[1]);
    z[1] = 0.0;
}

void laneExp(double* z) { apply(z, [](Complex w) { return std::exp(w); }); }
void laneRealExp(double* z) { z[0] = std::exp(z[0]); }
void laneRealSin(double* z) { z[0] = std::sin(z[0]); }
void laneRealCos(double* z) { z[0] = std::cos(z[0]); }
void laneRealTan(double* z) { z[0] = std::tan(z[0]); }
double laneRealPow(double x, double y) { return std::pow(x, y); }
void laneSqrt(double* z) { apply(z, [](Complex w) { return std::sqrt(w); }); }
void laneSin(double* z) { apply(z, [](Complex w) { return std::sin(w); }); }
void laneCos(double* z) { apply(z, [](Complex w) { return std::cos(w); }); }
void laneTan(double* z) { apply(z, [](Complex w) { return std::tan(w); }); }
void laneSinh(double* z) { apply(z, [](Complex w) { return std::sinh(w); }); }
void laneCosh(double* z) { apply(z, [](Complex w) { return std::cosh(w); }); }
void laneTanh(double* z) { apply(z, [](Complex w) { return std::tanh(w); }); }
void laneAsin(double* z) { apply(z, [](Complex w) { return std::asin(w); }); }
void laneAcos(double* z) { apply(z, [](Complex w) { return std::acos(w); }); }
void laneAcosh(double* z) { apply(z, [](Complex w) { return std::acosh(w); }); }
void laneAtanh(double* z) { apply(z, [](Complex w) { return std::atanh(w); }); }

// On their cuts, which lie on the imaginary axis beyond +-i, the values do not depend on the sign of a zero real part:
// they continue those of asin and atanh on the real axis, asinh(z) = i asin(-iz) and atan(z) = -i atanh(iz).
void laneAsinh(double* z)
{
    const double y = std::fabs(z[1]);
    if (z[0] == 0.0 && y > 1.0) {
        z[0] = std::copysign(std::acosh(y), z[1]);
        z[1] = std::copysign(kHalfPi, z[1]);
        return;
    }
    apply(z, [](Complex w) { return std::asinh(w); });
}

void laneAtan(double* z)
{
    const double y = std::fabs(z[1]);
    if (z[0] == 0.0 && y > 1.0) {
        z[0] = std::copysign(kHalfPi, z[1]);
        z[1] = std::copysign(0.5 * std::log1p(2.0 / (y - 1.0)), z[1]);
        return;
    }
    apply(z, [](Complex w) { return std::atan(w); });
}

void laneDivide(double* x, const double* y)
{
    const long double a = x[0], b = x[1], c = y[0], d = y[1];
    if (std::fabs(d) < std::fabs(c)) {
        const long double r = d / c, scale = 1.0L / (r * d + c);
        x[0] = static_cast<double>((a + b * r) * scale);
        x[1] = static_cast<double>((b - a * r) * scale);
    } else {
        const long double r = c / d, scale = 1.0L / (r * c + d);
        x[0] = static_cast<double>((a * r + b) * scale);
        x[1] = static_cast<double>((b * r - a) * scale);
    }
}

void lanePow(double* x, const double* y)
{
    const Complex exponent(y[0], y[1]);
    apply(x, [exponent](Complex w) { return std::pow(w, exponent); });
}

} // namespace qxkernels

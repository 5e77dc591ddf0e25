// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"
#include "qxreal.hpp"

#include <complex>

/// Scalar mathematics: checked wrappers around the special functions, beside the plain real ones of qxreal.hpp. Threads: all may be called on any thread at once.
namespace qxmath {

/// Which Bessel function: J, Y (first and second kind), I, K (modified).
enum class BesselKind { J = 0, Y = 1, I = 2, K = 3 };

/// Bessel functions of real order (any sign) and complex argument, principal branch. The status is that of the special
/// function library (qxspecfun.hpp), 0 for success; a result that is infinite or not accurate has another one. Nothing is
/// raised.
QX_API int besselStatus(BesselKind kind, double nu, const std::complex<double>& z, std::complex<double>& result);
/// The same for a real argument; status QxSpecfunDomain where the value is not real.
QX_API int besselStatus(BesselKind kind, double nu, double x, double& result);

/// The same, raised: "Error_calculating_bessel_function" (qxmathfun) with "m" (the kind's number), "nu" and "Error_code"
/// for a status other than 0.
QX_API std::complex<double> besselj(double nu, const std::complex<double>& z);
QX_API std::complex<double> bessely(double nu, const std::complex<double>& z);
QX_API std::complex<double> besseli(double nu, const std::complex<double>& z);
QX_API std::complex<double> besselk(double nu, const std::complex<double>& z);
/// Hankel functions J + i Y (kind 1) and J - i Y (kind 2); "m" is the kind. Without a kind: 1.
QX_API std::complex<double> besselh(double nu, const std::complex<double>& z);
QX_API std::complex<double> besselh(int kind, double nu, const std::complex<double>& z);

/// erf(x) = 2/sqrt(pi) int_0^x exp(-t^2) dt, erfc = 1 - erf, erfcx = exp(x^2) erfc. NaN gives NaN.
QX_API double erf(double x);
QX_API double erfc(double x);
QX_API double erfcx(double x);
QX_API std::complex<double> erf(const std::complex<double>& z);
QX_API std::complex<double> erfc(const std::complex<double>& z);
QX_API std::complex<double> erfcx(const std::complex<double>& z);

/// Regularised lower incomplete gamma function P(a, x), the argument first (DLMF 8.2.4). 1 for a = 0; limits for infinite
/// arguments, NaN when both are infinite or one is NaN.
/// Raises "Argument 1 must be nonnegative." for negative x, and for negative a too.
QX_API double gammainc(double x, double a);

/// Regularised incomplete beta function I_x(a, b) (DLMF 8.17.2). Limits for infinite a or b, NaN when one is NaN.
/// Raises "Argument 1 must be in [0,1], inclusive.", "Argument 2 must be nonnegative.", "Argument 3 must be
/// nonnegative.".
QX_API double betainc(double x, double a, double b);

} // namespace qxmath

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <complex>

/// Special functions that the language's own library lacks. Every function writes its value to result and returns a
/// status; nothing is thrown. Threads: all may be called on any thread at once.
///
/// Accuracy, in units in the last place of the value (of its norm if it is complex), measured against 1000 points or more
/// of mpmath for each function; the table with all ranges is base/accuracy.def:
///   1  J, Y for |nu| <= 20 and 0.001 <= x <= 1000 (of a tenth of their amplitude next to their zeros), I, K to x = 700;
///      J, Y, I, K of complex argument for |nu| <= 10 and 0.01 <= |z| <= 100; erf, erfc, erfcx for 0.001 <= |x| <= 6, 25
///      and -25 <= x <= 50, of complex argument for 0.01 <= |z| <= 10; gamma, incomplete gamma and beta functions
///   2  erfcx of complex argument next to its zeros
///   4  Hankel functions for 0.01 <= |z| <= 20
/// Cost: about a microsecond for real arguments and for complex error functions, 20 to 150 for complex Bessel functions.
enum QxSpecfunStatus
{
    QxSpecfunOk = 0,
    QxSpecfunDomain = 1,    ///< no (real) value there: result is NaN. A NaN argument gives this status too.
    QxSpecfunInfinite = 2,  ///< a pole, or too large for a double: result is infinite, with the right sign where it has one
    QxSpecfunInaccurate = 3 ///< the method did not reach double accuracy: result is NaN
};

/// Bessel functions of real order nu (any sign) and real argument: J, Y, I, K in the notation of DLMF 10.2 and 10.25.
///
/// Real values exist for x >= 0, and for x < 0 where nu is whole and the function is J or I. At x = 0: Y gives -Inf, K
/// gives +Inf, J and I of negative fractional order give an infinity, all with status QxSpecfunInfinite.
///
/// Any order ends at a bounded cost: 0 or an infinity where the value is beyond the range of doubles; I and K of 1e4 <=
/// |nu| <= 1e9 within 1e-15 + |nu| 2e-19 of themselves; J and Y by at most 1e5 steps of their recurrence; else
/// QxSpecfunInaccurate.
QX_API int qxbesselj(double nu, double x, double& result);
QX_API int qxbessely(double nu, double x, double& result);
QX_API int qxbesseli(double nu, double x, double& result);
QX_API int qxbesselk(double nu, double x, double& result);

/// The same for complex argument: principal branches, cut along the negative real axis, where the values are those from
/// above (the sign of a zero imaginary part does not count). Too large for a double: NaN and QxSpecfunInfinite; |nu| above
/// 4000 with a value between: QxSpecfunInaccurate.
QX_API int qxbesselj(double nu, const std::complex<double>& z, std::complex<double>& result);
QX_API int qxbessely(double nu, const std::complex<double>& z, std::complex<double>& result);
QX_API int qxbesseli(double nu, const std::complex<double>& z, std::complex<double>& result);
QX_API int qxbesselk(double nu, const std::complex<double>& z, std::complex<double>& result);
/// Hankel functions: kind 1: J + i Y, kind 2: J - i Y (DLMF 10.4.3), without the cancellation of that sum. Another kind:
/// QxSpecfunDomain.
QX_API int qxbesselh(int kind, double nu, const std::complex<double>& z, std::complex<double>& result);

/// erf(x) = 2/sqrt(pi) int_0^x exp(-t^2) dt,  erfc(x) = 1 - erf(x),  erfcx(x) = exp(x^2) erfc(x)  (DLMF 7.2).
QX_API int qxerf(double x, double& result);
QX_API int qxerfc(double x, double& result);
QX_API int qxerfcx(double x, double& result);
QX_API int qxerf(const std::complex<double>& z, std::complex<double>& result);
QX_API int qxerfc(const std::complex<double>& z, std::complex<double>& result);
QX_API int qxerfcx(const std::complex<double>& z, std::complex<double>& result);

/// Gamma(x) = int_0^inf t^(x-1) exp(-t) dt, continued to the plane. Infinite at 0; no value at negative whole numbers.
QX_API int qxgamma(double x, double& result);
QX_API int qxgamma(const std::complex<double>& z, std::complex<double>& result);

/// Regularised lower incomplete gamma function P(a, x) = 1/Gamma(a) int_0^x t^(a-1) exp(-t) dt for x, a >= 0, the
/// argument first (DLMF 8.2.4). 1 for a = 0.
QX_API int qxgammainc(double x, double a, double& result);
/// Regularised incomplete beta function I_x(a, b) = 1/B(a, b) int_0^x t^(a-1) (1-t)^(b-1) dt for 0 <= x <= 1 and
/// a, b >= 0, not both 0 (DLMF 8.17.2). Limits: 1 for a = 0; for b = 0 it is 0 below x = 1 and 1 there.
/// For a and b both above 1e13: 0 or 1 beside the mean a/(a+b), QxSpecfunInaccurate in the step between.
QX_API int qxbetainc(double x, double a, double b, double& result);

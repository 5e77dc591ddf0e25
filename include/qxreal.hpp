// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

/// Real functions of single numbers with the bits of the expression language's array forms.
///
/// exp, log, log10, sin, cos, tan, asin, acos, atan, atan2, sinh, cosh, tanh: below 1 ulp; log2, as log(x) times log2(e),
/// 2 ulp; sqrt correctly rounded. NaN where there is no real value. Cost: one call of the vector library's scalar form.
/// Threads: all may be called on any thread at once.
namespace qxmath {

QX_API double acosDouble(double x);
QX_API double asinDouble(double x);
QX_API double atan(double x);
QX_API double atan2(double y, double x);
QX_API double cos(double x);
QX_API double cosh(double x);
QX_API double exp(double x);
QX_API double log2Double(double x);
QX_API double log10Double(double x);
QX_API double logDouble(double x);
/// x - floor(x / y) y, x for y = 0. For a whole y quotients that miss a whole number from below by 5 eps relative count
/// as that number.
QX_API double mod(double x, double y);
QX_API double sin(double x);
QX_API double sinh(double x);
QX_API double sqrtDouble(double x);
QX_API double tan(double x);
QX_API double tanh(double x);

} // namespace qxmath

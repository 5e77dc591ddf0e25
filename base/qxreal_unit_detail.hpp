// SPDX-License-Identifier: LicenseRef-qxkernel
// The table of functions for one family of the vector library: the including source defines QX_REAL_TABLE, its name, and
// QX_REAL_FMA if it is compiled for processors that have it.

#include "base/qxreal_detail.hpp"

#ifdef QX_REAL_FMA
#define FP_FAST_FMA 1 // shows the vector library's scalar FMA family
#define QX_REAL(name) Sleef_finz_##name##d1_u10purecfma
#else
#define QX_REAL(name) Sleef_cinz_##name##d1_u10purec
#endif
#include <sleef.h>

namespace {

#define QX_UNARY(name) \
    double name##Of(double x) { return QX_REAL(name)(x); }
QX_UNARY(log)
QX_UNARY(log10)
QX_UNARY(asin)
QX_UNARY(acos)
QX_UNARY(atan)
QX_UNARY(tanh)
#undef QX_UNARY

// The library's form is infinite a little before the range of doubles ends.
double expOf(double x)
{
    const double r = QX_REAL(exp)(x);
    return r == __builtin_inf() && x < 710.0 ? __builtin_exp(x) : r;
}

// Its reduction of arguments is good for one unit in the last place up to 1e9; the C library's is exact.
#define QX_CIRCULAR(name) \
    double name##Of(double x) { return __builtin_fabs(x) > 1e9 ? __builtin_##name(x) : QX_REAL(name)(x); }
QX_CIRCULAR(sin)
QX_CIRCULAR(cos)
#undef QX_CIRCULAR
double tanOf(double x)
{
    if (__builtin_fabs(x) < 1e-8)
        return x;
    return __builtin_fabs(x) > 1e9 ? __builtin_tan(x) : QX_REAL(tan)(x);
}
double atan2Of(double y, double x) { return QX_REAL(atan2)(y, x); }

// The library's forms end at 709; the rest of the range up to 710.47 by exp(|x| / 2)^2 / 2.
double sinhOf(double x)
{
    if (!(__builtin_fabs(x) > 709.0))
        return QX_REAL(sinh)(x);
    const double half = expOf(0.5 * __builtin_fabs(x));
    return __builtin_copysign((0.5 * half) * half, x);
}

double coshOf(double x)
{
    if (!(__builtin_fabs(x) > 709.0))
        return QX_REAL(cosh)(x);
    const double half = expOf(0.5 * __builtin_fabs(x));
    return (0.5 * half) * half;
}

} // namespace

const qxmath::RealFunctions qxmath::QX_REAL_TABLE = {expOf,  logOf,  log10Of, sinOf,  cosOf,  tanOf,  asinOf,
                                                     acosOf, atanOf, sinhOf,  coshOf, tanhOf, atan2Of};

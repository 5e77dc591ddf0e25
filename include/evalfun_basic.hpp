// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun_kernel.hpp"

// Parts, rounding, exponential, logarithms, roots and simple functions of two arguments.
//
// x is a real, z = (re, im) a complex argument. A complex form whose imaginary part is 0 takes the value of the real
// axis; a NaN imaginary part is not 0. "1 ulp" means below one unit in the last place of the result.

/// sign: 1, -1 or 0 (also for NaN); z / |z| off the real axis.
class QX_API SignFun : public KernelUnFun
{
public:
    SignFun();
};

/// exp: 1 ulp. Complex: always reported as complex.
class QX_API ExpFun : public KernelUnFun
{
public:
    ExpFun();
};

/// sqrt, correctly rounded. Real form: NaN for x < 0, error "sqrt". Complex: the root with non-negative real part;
/// (0, sqrt(-x)) on the negative axis.
class QX_API SqrtFun : public KernelUnFun
{
public:
    SqrtFun();
};

/// arg: 0 for x >= 0, pi for x < 0; atan2(im, re). Always real.
class QX_API ArgFun : public KernelUnFun
{
public:
    ArgFun();
};

/// abs: |x|, |z| without undue overflow; infinite when |re| + |im| is. Always real.
class QX_API AbsFun : public KernelUnFun
{
public:
    AbsFun();
};

/// real: the real part. Always real.
class QX_API RealFun : public KernelUnFun
{
public:
    RealFun();
};

/// imag: the imaginary part, 0 for a real argument. Always real.
class QX_API ImagFun : public KernelUnFun
{
public:
    ImagFun();
};

/// conj: (re, -im).
class QX_API ConjFun : public KernelUnFun
{
public:
    ConjFun();
};

/// log: natural logarithm, 1 ulp; log(0) = -inf. Real form: NaN for x < 0, error "log".
/// Complex: (log |z|, arg z); (log(-x), pi) on the negative axis.
class QX_API LogFun : public KernelUnFun
{
public:
    LogFun();
};

/// log10, 1 ulp. Error "log". Complex: log(z) / log(10).
class QX_API Log10Fun : public KernelUnFun
{
public:
    Log10Fun();
};

/// log2: log(x) * 1.4426950408889634, 2 ulp. Error "log".
class QX_API Log2Fun : public KernelUnFun
{
public:
    Log2Fun();
};

/// erf, 1 ulp. Error "nan" for a NaN argument, "erf" off the real axis, where the value stays untouched.
class QX_API ErfFun : public KernelUnFun
{
public:
    ErfFun();
};

/// round: floor(x + 0.5), part by part: halves go up.
class QX_API RoundFun : public KernelUnFun
{
public:
    RoundFun();
};

/// ceil, part by part.
class QX_API CeilFun : public KernelUnFun
{
public:
    CeilFun();
};

/// floor, part by part.
class QX_API FloorFun : public KernelUnFun
{
public:
    FloorFun();
};

/// fix: toward zero, part by part; fix(-0.5) is -0.
class QX_API FixFun : public KernelUnFun
{
public:
    FixFun();
};

/// realdot(a, b): Re(conj(a) b). Always real.
class QX_API RealDotFun : public KernelBinFun
{
public:
    RealDotFun();
};

/// min(a, b): b if b < a, else a, by the real parts; so min(NaN, 1) is NaN and min(1, NaN) is 1.
class QX_API MinFun : public KernelBinFun
{
public:
    MinFun();
};

/// max(a, b): b if b > a, else a, by the real parts.
class QX_API MaxFun : public KernelBinFun
{
public:
    MaxFun();
};

/// mod(x, y): x - floor(x / y) y, x for y = 0. For a whole y quotients that miss a whole number from below by 5 eps
/// relative count as that number. Error "impl" when an imaginary part is not 0.
class QX_API ModFun : public KernelBinFun
{
public:
    ModFun();
};

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun_kernel.hpp"

// Trigonometric functions and their inverses. x real, z complex; real values within 1 ulp except where noted.
//
// Complex inverse functions, on the real axis beyond a branch point: the limit from below for x > 1 and from above for
// x < -1, whatever the sign of a zero imaginary part.

/// sin. Complex: always reported as complex, as for cos and tan.
class QX_API SinFun : public KernelUnFun
{
public:
    SinFun();
};

/// cos.
class QX_API CosFun : public KernelUnFun
{
public:
    CosFun();
};

/// tan. Complex: +-i from |im| = 30 on.
class QX_API TanFun : public KernelUnFun
{
public:
    TanFun();
};

/// sec: 1 / cos, 2 ulp.
class QX_API SecFun : public KernelUnFun
{
public:
    SecFun();
};

/// csc: 1 / sin, 2 ulp.
class QX_API CscFun : public KernelUnFun
{
public:
    CscFun();
};

/// cot: 1 / tan, 2 ulp.
class QX_API CotFun : public KernelUnFun
{
public:
    CotFun();
};

/// asin. Real form: NaN for |x| > 1, error "range".
class QX_API AsinFun : public KernelUnFun
{
public:
    AsinFun();
};

/// acos. Real form: NaN for |x| > 1, error "range".
class QX_API AcosFun : public KernelUnFun
{
public:
    AcosFun();
};

/// atan.
class QX_API AtanFun : public KernelUnFun
{
public:
    AtanFun();
};

/// acot: atan(1 / x), pi/2 at 0.
class QX_API AcotFun : public KernelUnFun
{
public:
    AcotFun();
};

/// asec: acos(1 / x). Error "range".
class QX_API AsecFun : public KernelUnFun
{
public:
    AsecFun();
};

/// acsc: asin(1 / x), infinite at 0. Error "range".
class QX_API AcscFun : public KernelUnFun
{
public:
    AcscFun();
};

/// atan2(y, x): the angle of the point (x, y), by the real parts. Always real.
class QX_API Atan2Fun : public KernelBinFun
{
public:
    Atan2Fun();
};

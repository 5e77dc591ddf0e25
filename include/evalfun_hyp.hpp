// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun_kernel.hpp"

// Hyperbolic functions and their inverses. The inverse ones are computed by the logarithmic formulas below as they stand:
// they lose relative accuracy near 0 (near 1 for acosh) and overflow from about 1e154 on.

/// sinh, 1 ulp to |x| = 709, 3 ulp beyond. Complex: always reported as complex, as for cosh and tanh.
class QX_API SinhFun : public KernelUnFun
{
public:
    SinhFun();
};

/// cosh, 1 ulp to |x| = 709, 3 ulp beyond.
class QX_API CoshFun : public KernelUnFun
{
public:
    CoshFun();
};

/// tanh, 1 ulp. Complex: +-1 from |re| = 30 on.
class QX_API TanhFun : public KernelUnFun
{
public:
    TanhFun();
};

/// sech: 1 / cosh.
class QX_API SechFun : public KernelUnFun
{
public:
    SechFun();
};

/// csch: 1 / sinh.
class QX_API CschFun : public KernelUnFun
{
public:
    CschFun();
};

/// coth: 1 / tanh.
class QX_API CothFun : public KernelUnFun
{
public:
    CothFun();
};

/// asinh: log(x + sqrt(x^2 + 1)), odd; computed without its cancellation near 0, infinite from 1.34e154, where x^2 overflows.
class QX_API AsinhFun : public KernelUnFun
{
public:
    AsinhFun();
};

/// acosh: log(x + sqrt(x^2 - 1)). Error "range" for x < 1 in the real form; (log(-x + sqrt(x^2 - 1)), pi) for
/// x <= -1 and (0, acos x) between in the complex one.
class QX_API AcoshFun : public KernelUnFun
{
public:
    AcoshFun();
};

/// atanh: log((1 + x) / (1 - x)) / 2, +-inf at +-1, computed without its cancellation near 0. Error "range".
class QX_API AtanhFun : public KernelUnFun
{
public:
    AtanhFun();
};

/// acoth: atanh(1 / x) = log1p(2 / (|x| - 1)) / 2 with the sign of x. Error "range".
class QX_API AcothFun : public KernelUnFun
{
public:
    AcothFun();
};

/// asech: acosh(1 / x). Error "range".
class QX_API AsechFun : public KernelUnFun
{
public:
    AsechFun();
};

/// acsch: asinh(1 / x), infinite at 0.
class QX_API AcschFun : public KernelUnFun
{
public:
    AcschFun();
};

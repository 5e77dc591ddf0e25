// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Trigonometric and hyperbolic functions, their reciprocals and inverses. The real formulas of the inverse hyperbolic
// functions are those in the docstrings of their classes (evalfun_trig.hpp, evalfun_hyp.hpp), with the accuracy that follows.

#include "functions/kernels_elementary_detail.hpp"

namespace qxkernels {
namespace QX_UNIT {
namespace {

/// sinh y and cosh y together, for |y| <= 700: from one exponential, sinh by its series up to y^17 where |y| < 1.
inline void sinhCosh(V y, V& sh, V& ch)
{
    const V e = vexp(absolute(y)), inverse = 1.0 / e;
    ch = 0.5 * (e + inverse);
    const V t = y * y;
    V p = splat(1.0 / 355687428096000.0);
    p = p * t + 1.0 / 1307674368000.0;
    p = p * t + 1.0 / 6227020800.0;
    p = p * t + 1.0 / 39916800.0;
    p = p * t + 1.0 / 362880.0;
    p = p * t + 1.0 / 5040.0;
    p = p * t + 1.0 / 120.0;
    p = p * t + 1.0 / 6.0;
    const V series = y + y * (t * p), large = copySign(0.5 * (e - inverse), y);
    sh = t < 1.0 ? series : large;
}

// The library's real forms end at 709; the rest of the range up to 710.47 by exp(|x| / 2)^2 / 2.
inline V realSinh(V x)
{
    const V r = vsinh(x);
    const M large = absolute(x) > 709.0;
    if (!any(large))
        return r;
    const V half = vexp(0.5 * absolute(x));
    return large ? copySign((0.5 * half) * half, x) : r;
}
inline V realCosh(V x)
{
    const V r = vcosh(x);
    const M large = absolute(x) > 709.0;
    if (!any(large))
        return r;
    const V half = vexp(0.5 * absolute(x));
    return large ? (0.5 * half) * half : r;
}

// Arguments beyond kReduced go through the C library, which reduces them exactly. A tiny x is its own tangent.
inline V realSin(V x) { return patchReal(absolute(x) > kReduced, laneRealSin, x, vsin(x)); }
inline V realCos(V x) { return patchReal(absolute(x) > kReduced, laneRealCos, x, vcos(x)); }
inline V realTan(V x)
{
    const V r = patchReal(absolute(x) > kReduced, laneRealTan, x, vtan(x));
    return absolute(x) < 1e-8 ? x : r;
}

/// Sine and cosine of the part that is circular in a function, their hyperbolic twins of the other part.
struct SineParts
{
    SineParts(V circular, V hyperbolic) : hard(outside(hyperbolic, -700.0, 700.0) | outside(circular, -kReduced, kReduced))
    {
        sinCos(circular, s, c);
        sinhCosh(hyperbolic, sh, ch);
    }
    V s, c, sh, ch;
    M hard; ///< for the C99 forms
};

inline Z complexSin(Z z, M lanes)
{
    const SineParts p(z.re, z.im);
    return patch(p.hard & lanes, laneSin, z, {p.s * p.ch, p.c * p.sh});
}
inline Z complexCos(Z z, M lanes)
{
    const SineParts p(z.re, z.im);
    return patch(p.hard & lanes, laneCos, z, {p.c * p.ch, -(p.s * p.sh)});
}
inline Z complexSinh(Z z, M lanes)
{
    const SineParts p(z.im, z.re);
    return patch(p.hard & lanes, laneSinh, z, {p.sh * p.c, p.ch * p.s});
}
inline Z complexCosh(Z z, M lanes)
{
    const SineParts p(z.im, z.re);
    return patch(p.hard & lanes, laneCosh, z, {p.ch * p.c, p.sh * p.s});
}
// tan(x + iy) = (sin x cos x + i sinh y cosh y) / (cos^2 x + sinh^2 y); from |y| = 30 on it is +-i.
inline Z complexTan(Z z, M lanes)
{
    V s, c, sh, ch;
    sinCos(z.re, s, c);
    const M inside = absolute(z.im) < 30.0;
    sinhCosh(inside ? z.im : V{}, sh, ch);
    const V d = c * c + sh * sh;
    const Z near = patch(inside & lanes & outside(z.re, -kReduced, kReduced), laneTan, z, {s * c / d, sh * ch / d});
    return select(inside, near, {V{}, z.im > 0.0 ? one() : -one()});
}
inline Z complexTanh(Z z, M lanes)
{
    V s, c, sh, ch;
    sinCos(z.im, s, c);
    const M inside = absolute(z.re) < 30.0;
    sinhCosh(inside ? z.re : V{}, sh, ch);
    const V d = sh * sh + c * c;
    const Z near = patch(inside & lanes & outside(z.im, -kReduced, kReduced), laneTanh, z, {sh * ch / d, s * c / d});
    return select(inside, near, {z.re > 0.0 ? one() : -one(), V{}});
}

/// A function whose complex form reports kFunComplex always; on the axis the zero imaginary part stays.
template <V (*realForm)(V), Z (*offAxis)(Z, M)>
struct Circular : FunctionDefaults
{
    static constexpr ComplexBit bit = ComplexBit::Always;
    static V real(V x) { return realForm(x); }
    static Z complex(Z z)
    {
        const M on = z.im == 0.0;
        if (!any(~on))
            return {realForm(z.re), z.im};
        const Z off = offAxis(z, ~on);
        return any(on) ? select(on, {realForm(z.re), z.im}, off) : off;
    }
};
using Sin = Circular<realSin, complexSin>;
using Cos = Circular<realCos, complexCos>;
using Tan = Circular<realTan, complexTan>;
using Sinh = Circular<realSinh, complexSinh>;
using Cosh = Circular<realCosh, complexCosh>;
using Tanh = Circular<vtanh, complexTanh>;

/// 1 / F.
template <class F, Z (*offAxis)(Z, M)>
struct Reciprocal : FunctionDefaults
{
    static V real(V x) { return 1.0 / F::real(x); }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return QX_UNIT::real(real(x)); }, [](Z w, M lanes) {
                const Z r = offAxis(w, lanes);
                const M infinite = (absolute(r.re) == infinity()) | (absolute(r.im) == infinity());
                return select(infinite, Z{}, reciprocal(select(infinite, QX_UNIT::real(one()), r)));
            });
    }
};
using Sec = Reciprocal<Cos, complexCos>;
using Csc = Reciprocal<Sin, complexSin>;
using Cot = Reciprocal<Tan, complexTan>;
using Sech = Reciprocal<Cosh, complexCosh>;
using Csch = Reciprocal<Sinh, complexSinh>;
using Coth = Reciprocal<Tanh, complexTanh>;

// ---- inverse functions
//
// Off the real axis by the C99 routines, number by number. On the axis beyond a branch point the value is the limit
// counter-clockwise around that point: from below for x > 1, from above for x < -1 (Kahan, Branch cuts for complex
// elementary functions, in: The State of the Art in Numerical Analysis, Oxford 1987). The sign of a zero imaginary part
// does not matter.

/// log(x + sqrt(x^2 - 1)), x >= 1
inline V arcosh(V x) { return vlog(x + squareRoot(x * x - 1.0)); }

/// log((x + 1) / (x - 1)) / 2 = log1p(2 / (|x| - 1)) / 2 with the sign of x; NaN for |x| < 1.
inline V arcoth(V x) { return copySign(0.5 * vlog1p(2.0 / (absolute(x) - 1.0)), x); }

template <class F>
Z byLanes(Z z, LaneFunction f)
{
    return splitAxis(z, F::onAxis, [f](Z w, M lanes) { return throughLanes(lanes, f, w, w); });
}

struct Acos : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return vacos(x); }
    static Z complex(Z z) { return byLanes<Acos>(z, laneAcos); }
    static Z onAxis(V x)
    {
        const M right = x > 1.0, left = x < -1.0;
        if (!any(right | left))
            return QX_UNIT::real(vacos(x));
        const V l = arcosh(absolute(x));
        return {right ? V{} : (left ? splat(kPi) : vacos(x)), right ? l : (left ? -l : V{})};
    }
};

struct Asin : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return vasin(x); }
    static Z complex(Z z) { return byLanes<Asin>(z, laneAsin); }
    static Z onAxis(V x)
    {
        const M right = x > 1.0, left = x < -1.0;
        if (!any(right | left))
            return QX_UNIT::real(vasin(x));
        const V l = arcosh(absolute(x));
        return {right | left ? copySign(splat(kHalfPi), x) : vasin(x), right ? -l : (left ? l : V{})};
    }
};

struct Atan : FunctionDefaults
{
    static V real(V x) { return vatan(x); }
    static Z complex(Z z) { return byLanes<Atan>(z, laneAtan); }
    static Z onAxis(V x) { return QX_UNIT::real(vatan(x)); }
};

struct Asinh : FunctionDefaults
{
    static V real(V x) { return vasinh(x); } // infinite from 1.34e154, where x^2 overflows
    static Z complex(Z z) { return byLanes<Asinh>(z, laneAsinh); }
    static Z onAxis(V x) { return QX_UNIT::real(real(x)); }
};

struct Acosh : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return arcosh(x); }
    static Z complex(Z z) { return byLanes<Acosh>(z, laneAcosh); }
    static Z onAxis(V x)
    {
        const M left = x <= -1.0, middle = (x > -1.0) & (x < 1.0);
        const V l = arcosh(left ? -x : x);
        return {middle ? V{} : l, left ? splat(kPi) : (middle ? vacos(x) : V{})};
    }
};

struct Atanh : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return vatanh(x); }
    static Z complex(Z z) { return byLanes<Atanh>(z, laneAtanh); }
    static Z onAxis(V x)
    {
        const M beyond = absolute(x) > 1.0;
        const V r = beyond ? arcoth(x) : vatanh(x);
        return {absolute(x) == infinity() ? r * V{} / V{} : r, x > 1.0 ? splat(-kHalfPi) : (x < -1.0 ? splat(kHalfPi) : V{})};
    }
};

/// F(1 / z).
template <class F>
struct OfInverse : FunctionDefaults
{
    static constexpr bool nanIsError = F::nanIsError;
    static V real(V x) { return F::real(1.0 / x); }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return F::onAxis(1.0 / x); }, [](Z w, M) { return F::complex(reciprocal(w)); });
    }
};

/// F(1 / z) with a value of its own at 0.
template <class F>
struct OfInverseInfiniteAtZero : OfInverse<F>
{
    static V real(V x) { return x == 0.0 ? infinity() : F::real(1.0 / x); }
    static Z complex(Z z)
    {
        const M zero = (z.re == 0.0) & (z.im == 0.0);
        return select(zero, QX_UNIT::real(infinity()), OfInverse<F>::complex(z));
    }
};

struct Acot : FunctionDefaults
{
    static V real(V x) { return x == 0.0 ? splat(kHalfPi) : vatan(1.0 / x); }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return QX_UNIT::real(real(x)); }, [](Z w, M) { return Atan::complex(reciprocal(w)); });
    }
};

using Asec = OfInverse<Acos>;
using Acsc = OfInverseInfiniteAtZero<Asin>;
using Asech = OfInverse<Acosh>;
using Acsch = OfInverseInfiniteAtZero<Asinh>;

struct Acoth : OfInverse<Atanh>
{
    static V real(V x) { return arcoth(x); }
    static Z complex(Z z)
    {
        return splitAxis(z, onAxis, [](Z w, M) { return Atanh::complex(reciprocal(w)); });
    }
    // atanh(1 / x); within (-1, 1) the real part is atanh(x), at 0 the formula has none.
    static Z onAxis(V x)
    {
        const Z inside = Atanh::onAxis(1.0 / x);
        const M zero = x == 0.0;
        const V r = absolute(x) < 1.0 ? vatanh(x) : arcoth(x);
        return {zero ? inside.re : r, inside.im};
    }
};

} // namespace
} // namespace QX_UNIT
} // namespace qxkernels

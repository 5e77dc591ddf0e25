// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Functions of one argument: parts, rounding, exponential, logarithms, roots, whole powers. What each computes in real
// and in complex arithmetic is stated at its class in include/evalfun_basic.hpp.

#include "functions/kernels_loops_detail.hpp"

namespace qxkernels {
namespace QX_UNIT {
namespace {

constexpr double kPi = 3.141592653589793, kHalfPi = 1.5707963267948966, kLog2E = 1.4426950408889634,
                 kPiLog2E = 4.532360141827193, kLn10 = 2.302585092994046;

inline V infinity() { return splat(__builtin_inf()); }
inline V one() { return splat(1.0); }

/// Up to this the vector library reduces the arguments of circular functions well enough for one unit in the last place.
constexpr double kReduced = 1e9;

/// f of the lanes of m, for arguments that the vector library does not do well.
inline V patchReal(M m, LaneFunction f, V x, V other)
{
    return any(m) ? throughLanes(m, f, Z{x, V{}}, Z{other, V{}}).re : other;
}

/// Arguments whose squares neither overflow nor underflow.
constexpr double kSmall = 1e-140, kLarge = 1e140;

/// |z| to about half a unit in the last place: the rounding errors of the squares, found by FMA, correct the root.
inline V modulus(Z z)
{
    const V a = absolute(z.re), b = absolute(z.im);
    const V large = a > b ? a : b, small = a > b ? b : a;
    const V p = large * large, q = small * small, s = p + q;
    const V lost = (p - s + q) + (fma(large, large, -p) + fma(small, small, -q));
    const V r = squareRoot(s);
    const V result = r + (lost + fma(-r, r, s)) / (r + r);
    return patch(outside(large, kSmall, kLarge), laneHypot, z, real(result)).re;
}

/// The products and quotients of complex division keep about 100 bits: the result is that of the formula
/// (a conj(b)) / |b|^2 rounded once, as Smith's method in extended precision gives it.
/// A zero divisor gives (re / 0, im / 0).
inline Z divide(Z a, Z b)
{
    struct Double
    {
        V high, low;
    };
    const auto sumOfProducts = [](V p, V q, V r, V s) { // p q + r s
        const V pq = p * q, rs = r * s, high = pq + rs, t = high - pq;
        const V lost = (pq - (high - t)) + (rs - t);
        return Double{high, lost + (fma(p, q, -pq) + fma(r, s, -rs))};
    };
    const Double den = sumOfProducts(b.re, b.re, b.im, b.im);
    const V inverse = 1.0 / den.high;
    const auto quotient = [&](const Double& num) {
        const V q = num.high * inverse;
        return q + (fma(-q, den.high, num.high) + (num.low - q * den.low)) * inverse;
    };
    const Z result{quotient(sumOfProducts(a.re, b.re, a.im, b.im)), quotient(sumOfProducts(a.im, b.re, -a.re, b.im))};

    const V sizeA = absolute(a.re) > absolute(a.im) ? absolute(a.re) : absolute(a.im);
    const V sizeB = absolute(b.re) > absolute(b.im) ? absolute(b.re) : absolute(b.im);
    const M zero = (b.re == 0.0) & (b.im == 0.0);
    const M hard = (outside(sizeB, 1e-100, 1e100) & ~zero) | (outside(sizeA, 1e-100, 1e100) & (sizeA != 0.0));
    Z safe = result;
    if (any(hard))
        safe = throughLanes(hard & ~zero, laneDivide, a, b, safe);
    return any(zero) ? select(zero, Z{a.re / b.re, a.im / b.re}, safe) : safe;
}

/// 1 / w; (inf, 0) for w = 0.
inline Z reciprocal(Z w)
{
    const M zero = (w.re == 0.0) & (w.im == 0.0);
    const Z r = divide(real(one()), select(zero, real(one()), w));
    return select(zero, real(infinity()), r);
}

inline Z multiply(Z a, Z b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline Z square(Z z) { return {z.re * z.re - z.im * z.im, 2.0 * (z.re * z.im)}; }

/// log |z|. For |z|^2 between 1/2 and 2 it is log1p(|z|^2 - 1) / 2, the difference formed to about twice the precision: products by
/// FMA, the sums with their rounding errors (Knuth, The Art of Computer Programming, vol. 2, section 4.2.2).
inline V logModulus(Z z)
{
    const V a = absolute(z.re), b = absolute(z.im);
    const V x = a > b ? a : b, y = a > b ? b : a;
    const V p = x * x, q = y * y;
    const M near = ~outside(p + q, 0.5, 2.0);
    if (!any(near))
        return vlog(modulus(z));
    const auto twoSum = [](V u, V v, V& sum, V& error) {
        sum = u + v;
        const V t = sum - u;
        error = (u - (sum - t)) + (v - t);
    };
    V s1, e1, s2, e2, low, e3, s4, e4, s5, e5;
    twoSum(p, splat(-1.0), s1, e1);
    twoSum(s1, q, s2, e2);
    twoSum(fma(x, x, -p), fma(y, y, -q), low, e3);
    twoSum(s2, low, s4, e4);
    twoSum(s4, e2, s5, e5);
    const V difference = s5 + ((e4 + e5) + (e3 + e1));
    const V result = 0.5 * vlog1p(near ? difference : V{});
    return any(~near) ? (near ? result : vlog(modulus(z))) : result;
}

inline Z complexLog(Z z) { return {logModulus(z), vatan2(z.im, z.re)}; }
inline Z complexExp(Z z)
{
    V s, c;
    sinCos(z.im, s, c);
    const V e = vexp(z.re);
    const M hard = outside(z.re, -700.0, 700.0) | outside(absolute(z.im), 0.0, kReduced);
    return patch(hard, laneExp, z, Z{e * c, e * s});
}

/// z^w for z other than 0.
inline Z complexPower(Z z, Z w)
{
    const Z r = complexExp(multiply(w, complexLog(z)));
    const M hard = outside(modulus(z), 1e-300, 1e300) | outside(absolute(w.re) + absolute(w.im), 0.0, 1e300);
    return any(hard) ? throughLanes(hard, lanePow, z, w, r) : r;
}

// ---- parts and signs

struct UPlus : FunctionDefaults
{
    static V real(V x) { return x; }
    static Z complex(Z z) { return z; }
};

struct UMinus : FunctionDefaults
{
    static V real(V x) { return -x; }
    static Z complex(Z z) { return {-z.re, -z.im}; }
};

struct Not : FunctionDefaults
{
    static constexpr ComplexBit bit = ComplexBit::Never;
    static V real(V x) { return x == 0.0 ? one() : V{}; }
    static Z complex(Z z) { return {((z.re == 0.0) & (z.im == 0.0)) ? one() : V{}, V{}}; }
};

struct Abs : FunctionDefaults
{
    static V real(V x) { return absolute(x); }
    static Z complex(Z z)
    {
        const M infinite = absolute(z.re) + absolute(z.im) == infinity();
        return {infinite ? infinity() : modulus(z), V{}};
    }
};

struct Real : FunctionDefaults
{
    static V real(V x) { return x; }
    static Z complex(Z z) { return {z.re, V{}}; }
};

struct Imag : FunctionDefaults
{
    static V real(V) { return V{}; }
    static Z complex(Z z) { return {z.im, V{}}; }
};

struct Conj : FunctionDefaults
{
    static constexpr ComplexBit bit = ComplexBit::Always;
    static V real(V x) { return x; }
    static Z complex(Z z) { return {z.re, -z.im}; }
};

struct Arg : FunctionDefaults
{
    static V real(V x) { return x >= 0.0 ? V{} : (x < 0.0 ? splat(kPi) : x); }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return QX_UNIT::real(real(x)); }, [](Z w, M) { return Z{vatan2(w.im, w.re), V{}}; });
    }
};

struct Sign : FunctionDefaults
{
    static V real(V x) { return x > 0.0 ? one() : (x < 0.0 ? -one() : V{}); }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return QX_UNIT::real(real(x)); },
            [](Z w, M) {
                const V size = modulus(w);
                return Z{w.re / size, w.im / size};
            });
    }
};

// ---- rounding: part by part

template <V (*round)(V)>
struct Rounding : FunctionDefaults
{
    static constexpr ComplexBit bit = ComplexBit::Always;
    static V real(V x) { return round(x); }
    static Z complex(Z z) { return {round(z.re), round(z.im)}; }
};

inline V halfUp(V x) { return floor(x + 0.5); }
inline V towardZero(V x) { return x <= 0.0 ? ceil(x) : floor(x); }
inline V down(V x) { return floor(x); }
inline V up(V x) { return ceil(x); }
using Round = Rounding<halfUp>;
using Fix = Rounding<towardZero>;
using Floor = Rounding<down>;
using Ceil = Rounding<up>;

// ---- exponential, logarithms, roots

struct Exp : FunctionDefaults
{
    static constexpr ComplexBit bit = ComplexBit::AxisOrByResult;
    static V real(V x)
    {
        const V r = vexp(x); // infinite a little before the range of doubles ends
        return patchReal((r == infinity()) & (x < 710.0), laneRealExp, x, r);
    }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return QX_UNIT::real(real(x)); }, [](Z w, M) { return complexExp(w); });
    }
};

struct Sqrt : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return squareRoot(x); }
    static Z complex(Z z) { return splitAxis(z, onAxis, offAxis); }

    static Z onAxis(V x)
    {
        const M negative = x < 0.0;
        const V root = squareRoot(negative ? -x : x);
        return {negative ? V{} : root, negative ? root : V{}};
    }
    // t = sqrt((|x| + |z|) / 2) is the larger part, y / (2 t) the other one.
    static Z offAxis(Z z, M lanes)
    {
        const V x = absolute(z.re), y = absolute(z.im);
        const V size = squareRoot(x * x + y * y);
        const V t = squareRoot(0.5 * (x + size)), other = y / (t + t);
        const M right = z.re >= 0.0;
        const Z root{right ? t : other, copySign(right ? other : t, z.im)};
        const M hard = (outside(x > y ? x : y, kSmall, kLarge) | (z.re != z.re) | (y < 1e-140)) & lanes;
        return patch(hard, laneSqrt, z, root);
    }
};

struct Log : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return vlog(x); }
    static Z complex(Z z)
    {
        return splitAxis(z, onAxis, [](Z w, M) { return complexLog(w); });
    }
    static Z onAxis(V x)
    {
        const M negative = x < 0.0;
        return {vlog(negative ? -x : x), negative ? splat(kPi) : V{}};
    }
};

struct Log10 : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return vlog10(x); }
    static Z complex(Z z)
    {
        return splitAxis(z, onAxis, [](Z w, M) { return scaled(complexLog(w)); });
    }
    static Z onAxis(V x) { return select(x < 0.0, scaled(Log::onAxis(x)), QX_UNIT::real(vlog10(x))); }
    static Z scaled(Z z) { return {z.re / kLn10, z.im / kLn10}; }
};

struct Log2 : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static V real(V x) { return vlog(x) * kLog2E; }
    static Z complex(Z z)
    {
        return splitAxis(z, onAxis, [](Z w, M) {
            const Z l = complexLog(w);
            return Z{l.re * kLog2E, l.im * kLog2E};
        });
    }
    static Z onAxis(V x)
    {
        const M negative = x < 0.0;
        return {vlog(negative ? -x : x) * kLog2E, negative ? splat(kPiLog2E) : V{}};
    }
};

struct Erf : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static constexpr ComplexBit bit = ComplexBit::Never;
    static V real(V x) { return verf(x); }
    static Z complex(Z z) { return {kindError(z) ? z.re : verf(z.re), z.im}; }
    static M kindError(Z z) { return z.im != 0.0; }
};

// ---- whole powers; 0 for a zero base whatever the exponent

template <int e>
struct WholePower : FunctionDefaults
{
    static constexpr bool nanIsError = e < 0;

    template <class T>
    static T power(T x)
    {
        const T x2 = square(x);
        if constexpr (e == 2)
            return x2;
        else if constexpr (e == 3)
            return multiply(x, x2);
        else
            return square(x2);
    }
    static V square(V x) { return x * x; }
    static V multiply(V a, V b) { return a * b; }
    static Z square(Z z) { return QX_UNIT::square(z); }
    static Z multiply(Z a, Z b) { return QX_UNIT::multiply(a, b); }

    static V real(V x)
    {
        if constexpr (e > 0) {
            return power(x);
        } else {
            const V inverse = 1.0 / x;
            return x == 0.0 ? V{} : (e == -1 ? inverse : inverse * inverse);
        }
    }
    static Z complex(Z z)
    {
        return splitAxis(
            z, [](V x) { return QX_UNIT::real(real(x)); },
            [](Z w, M) {
                Z r;
                if constexpr (e > 0) {
                    r = power(w);
                } else {
                    const Z inverse = reciprocal(w);
                    r = e == -1 ? inverse : QX_UNIT::square(inverse);
                }
                // Products that overflow on the way give NaN; the general power does not.
                const M lost = ((r.re != r.re) | (r.im != r.im)) & (w.re == w.re) & (w.im == w.im) & ((w.re != 0.0) | (w.im != 0.0));
                return any(lost) ? throughLanes(lost, lanePow, w, QX_UNIT::real(splat(e)), r) : r;
            });
    }
};
using PowM2 = WholePower<-2>;
using PowM1 = WholePower<-1>;
using Pow2 = WholePower<2>;
using Pow3 = WholePower<3>;
using Pow4 = WholePower<4>;

} // namespace
} // namespace QX_UNIT
} // namespace qxkernels

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Functions and operators of two arguments.

#include "functions/kernels_elementary_detail.hpp"

namespace qxkernels {
namespace QX_UNIT {
namespace {

// ---- arithmetic: with one real operand only the parts that it touches are computed

struct Plus : FunctionDefaults
{
    static constexpr bool cheap = true;
    static constexpr ComplexBit bit = ComplexBit::Always;
    static constexpr bool partByPart = true;
    static V real(V x, V y) { return x + y; }
    static Z complex(Z x, Z y) { return {x.re + y.re, x.im + y.im}; }
    static Z complexReal(Z x, V y) { return {x.re + y, x.im}; }
    static Z realComplex(V x, Z y) { return {x + y.re, y.im}; }
};

struct Minus : FunctionDefaults
{
    static constexpr bool cheap = true;
    static constexpr ComplexBit bit = ComplexBit::Always;
    static constexpr bool partByPart = true;
    static V real(V x, V y) { return x - y; }
    static Z complex(Z x, Z y) { return {x.re - y.re, x.im - y.im}; }
    static Z complexReal(Z x, V y) { return {x.re - y, x.im}; }
    static Z realComplex(V x, Z y) { return {x - y.re, -y.im}; }
};

struct Mult : FunctionDefaults
{
    static constexpr bool cheap = true;
    static constexpr bool realFactor = true;
    static V real(V x, V y) { return x * y; }
    static Z complex(Z x, Z y) { return multiply(x, y); }
    static Z complexReal(Z x, V y) { return {x.re * y, x.im * y}; }
    static Z realComplex(V x, Z y) { return {x * y.re, x * y.im}; }
};

struct Div : FunctionDefaults
{
    static constexpr bool cheap = true;
    static V real(V x, V y) { return x / y; }
    static Z complex(Z x, Z y) { return divide(x, y); }
    static Z complexReal(Z x, V y) { return {x.re / y, x.im / y}; }
    static M domainError(V, V y) { return y == 0.0; }
    static M domainError(Z, Z y) { return (y.re == 0.0) & (y.im == 0.0); }
};

struct PlusSq : FunctionDefaults
{
    static V real(V x, V y) { return x * x + y * y; }
    static Z complex(Z x, Z y)
    {
        const Z a = square(x), b = square(y);
        return {a.re + b.re, a.im + b.im};
    }
};

struct RealDot : FunctionDefaults
{
    static V real(V x, V y) { return x * y; }
    static Z complex(Z x, Z y)
    {
        const V re = x.re * y.re;
        return QX_UNIT::real(((x.im == 0.0) | (y.im == 0.0)) ? re : re + x.im * y.im); // a real factor meets the real part alone
    }
};

// The tests are made in this order: a zero base, then the exponents 2, 1 and 0, then the general power.
struct Pow : FunctionDefaults
{
    static constexpr bool nanIsError = true;
    static constexpr bool realOnAxis = false; // negative bases
    static V power(V x, V y)
    {
        const V r = vpow(x, y); // its range ends a little below that of doubles
        const M hard = (absolute(r) == infinity()) & (absolute(x) < infinity()) & (absolute(y) < infinity());
        if (!any(hard))
            return r;
        V exact = r;
        for (std::size_t i = 0; i < kLanes; ++i)
            if (hard[i] != 0)
                exact[i] = laneRealPow(x[i], y[i]);
        return exact;
    }
    static V real(V x, V y)
    {
        const M zero = x == 0.0, two = y == 2.0, first = y == 1.0, none = y == 0.0;
        V r = V{};
        if (any(~(zero | two | first | none)))
            r = power(x, y);
        r = none ? one() : r;
        r = first ? x : r;
        r = two ? x * x : r;
        return zero ? (none ? one() : V{}) : r;
    }
    // Real base and exponent keep to the real power where that is real.
    static Z complex(Z x, Z y)
    {
        const M axis = (x.im == 0.0) & (y.im == 0.0) & ((x.re >= 0.0) | (floor(y.re) == y.re) | (x.re != x.re));
        const M zero = (x.re == 0.0) & (x.im == 0.0), realY = y.im == 0.0;
        const M two = realY & (y.re == 2.0), first = realY & (y.re == 1.0), none = realY & (y.re == 0.0);
        Z r{};
        if (any(axis))
            r.re = real(x.re, y.re);
        const M general = ~(axis | zero | two | first | none);
        if (any(general)) {
            const Z base = select(general, x, QX_UNIT::real(one()));
            r = select(general, complexPower(base, select(general, y, QX_UNIT::real(one()))), r);
        }
        r = select(~axis & none, QX_UNIT::real(one()), r);
        r = select(~axis & first, x, r);
        r = select(~axis & two, square(x), r);
        return select(zero, {none ? one() : V{}, V{}}, r);
    }
};

// ---- comparisons and logic: 1 or 0, always real

template <M (*test)(V, V)>
struct Ordering : FunctionDefaults // by the real parts
{
    static constexpr bool cheap = true;
    static constexpr ComplexBit bit = ComplexBit::Never;
    static V real(V x, V y) { return test(x, y) ? one() : V{}; }
    static Z complex(Z x, Z y) { return QX_UNIT::real(real(x.re, y.re)); }
};
inline M less(V x, V y) { return x < y; }
inline M greater(V x, V y) { return x > y; }
inline M lessOrEqual(V x, V y) { return x <= y; }
inline M greaterOrEqual(V x, V y) { return x >= y; }
using LT = Ordering<less>;
using GT = Ordering<greater>;
using LE = Ordering<lessOrEqual>;
using GE = Ordering<greaterOrEqual>;

template <M (*test)(Z, Z)>
struct TestOfBothParts : FunctionDefaults
{
    static constexpr ComplexBit bit = ComplexBit::Never;
    static constexpr bool bothParts = true;
    static V real(V x, V y) { return complex(QX_UNIT::real(x), QX_UNIT::real(y)).re; }
    static Z complex(Z x, Z y) { return QX_UNIT::real(test(x, y) ? one() : V{}); }
};
inline M isTrue(Z x) { return (x.re != 0.0) | (x.im != 0.0); }
inline M equal(Z x, Z y) { return (x.re == y.re) & (x.im == y.im); }
inline M unequal(Z x, Z y) { return ~equal(x, y); }
inline M conjunction(Z x, Z y) { return isTrue(x) & isTrue(y); }
inline M disjunction(Z x, Z y) { return isTrue(x) | isTrue(y); }
using EQ = TestOfBothParts<equal>;
using NE = TestOfBothParts<unequal>;
using And = TestOfBothParts<conjunction>;
using Or = TestOfBothParts<disjunction>;

// ---- others

/// The second operand when it is strictly on the better side, else the first: a NaN first operand stays, a NaN second
/// one loses. By the real parts.
template <M (*better)(V, V)>
struct Choice : FunctionDefaults
{
    static V real(V x, V y) { return better(y, x) ? y : x; }
    static Z complex(Z x, Z y) { return select(better(y.re, x.re), y, x); }
};
using Min = Choice<less>;
using Max = Choice<greater>;

struct Mod : FunctionDefaults
{
    static V real(V x, V y)
    {
        constexpr double eps = 0x1p-52;
        const V q = x / y;
        const V nudged = floor(y) == y ? 5.0 * eps * absolute(q) + q : q; // for quotients a hair below a whole number
        return y == 0.0 ? x : x - floor(nudged) * y;
    }
    static Z complex(Z x, Z y) { return QX_UNIT::real(real(x.re, y.re)); }
    static M domainError(V, V) { return M{}; }
    static M domainError(Z x, Z y) { return (x.im != 0.0) | (y.im != 0.0); }
};

struct Atan2 : FunctionDefaults
{
    static V real(V y, V x) { return vatan2(y, x); }
    static Z complex(Z y, Z x) { return QX_UNIT::real(vatan2(y.re, x.re)); }
};

} // namespace
} // namespace QX_UNIT
} // namespace qxkernels

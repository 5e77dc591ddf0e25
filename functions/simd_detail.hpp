// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// One vector of doubles, its complex twin and the functions on it, for the unit that the including source is compiled
// for: QX_UNIT (a namespace) and QX_UNIT_LANES must be defined first. Nothing here may be an inline function of the
// standard library: the linker keeps one copy of those for all units, and it might be the one with the widest
// instructions.

#include "functions/complex_lanes_detail.hpp"

#include <cstddef>

#ifdef QX_UNIT_FMA
#define FP_FAST_FMA 1 // shows the vector library's scalar FMA family
#endif
#include <sleef.h>

#if QX_UNIT_LANES > 1
#include <immintrin.h>
#endif

namespace qxkernels {
namespace QX_UNIT {
namespace {

constexpr std::size_t kLanes = QX_UNIT_LANES;

using V = double __attribute__((vector_size(8 * QX_UNIT_LANES)));
using M = decltype(V{} < V{});

inline V load(const double* p)
{
    V x;
    __builtin_memcpy(&x, p, sizeof x);
    return x;
}
inline void store(double* p, V x) { __builtin_memcpy(p, &x, sizeof x); }
inline V splat(double x) { return x - V{}; }
inline V bits(V x, long mask) { return reinterpret_cast<V>(reinterpret_cast<M>(x) & mask); }

constexpr long kSignBit = static_cast<long>(0x8000000000000000UL);
inline V absolute(V x) { return bits(x, ~kSignBit); }
inline V copySign(V size, V sign)
{
    return reinterpret_cast<V>(reinterpret_cast<M>(absolute(size)) | (reinterpret_cast<M>(sign) & kSignBit));
}

#if QX_UNIT_LANES == 8
inline bool any(M m) { return _mm512_test_epi64_mask(reinterpret_cast<__m512i>(m), reinterpret_cast<__m512i>(m)) != 0; }
inline V squareRoot(V x) { return _mm512_maskz_sqrt_pd(0xff, x); }
inline V floor(V x) { return _mm512_maskz_roundscale_pd(0xff, x, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC); }
inline V ceil(V x) { return _mm512_maskz_roundscale_pd(0xff, x, _MM_FROUND_TO_POS_INF | _MM_FROUND_NO_EXC); }
inline V fma(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
#define QX_EVEN(a, b) __builtin_shufflevector(a, b, 0, 2, 4, 6, 8, 10, 12, 14)
#define QX_ODD(a, b) __builtin_shufflevector(a, b, 1, 3, 5, 7, 9, 11, 13, 15)
#define QX_FIRST(a, b) __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11)
#define QX_LAST(a, b) __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15)
#define QX_SLEEF(name, ulp, ...) Sleef_finz_##name##d8_u##ulp##avx512f(__VA_ARGS__)
#elif QX_UNIT_LANES == 4
inline bool any(M m) { return !_mm256_testz_si256(reinterpret_cast<__m256i>(m), reinterpret_cast<__m256i>(m)); }
inline V squareRoot(V x) { return _mm256_sqrt_pd(x); }
inline V floor(V x) { return _mm256_floor_pd(x); }
inline V ceil(V x) { return _mm256_ceil_pd(x); }
inline V fma(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
#define QX_EVEN(a, b) __builtin_shufflevector(a, b, 0, 2, 4, 6)
#define QX_ODD(a, b) __builtin_shufflevector(a, b, 1, 3, 5, 7)
#define QX_FIRST(a, b) __builtin_shufflevector(a, b, 0, 4, 1, 5)
#define QX_LAST(a, b) __builtin_shufflevector(a, b, 2, 6, 3, 7)
#define QX_SLEEF(name, ulp, ...) Sleef_finz_##name##d4_u##ulp##avx2(__VA_ARGS__)
#else
inline bool any(M m) { return m[0] != 0; }
inline V squareRoot(V x) { return V{__builtin_sqrt(x[0])}; }
inline V floor(V x) { return V{__builtin_floor(x[0])}; }
inline V ceil(V x) { return V{__builtin_ceil(x[0])}; }
inline V fma(V a, V b, V c) { return V{__builtin_fma(a[0], b[0], c[0])}; }
#define QX_EVEN(a, b) a
#define QX_ODD(a, b) b
#define QX_FIRST(a, b) a
#define QX_LAST(a, b) b
#endif

#if QX_UNIT_LANES > 1
inline V vpow(V x, V y) { return QX_SLEEF(pow, 10, x, y); }
inline V vatan2(V y, V x) { return QX_SLEEF(atan2, 10, y, x); }
#define QX_VECTOR_FUNCTION(name) \
    inline V v##name(V x) { return QX_SLEEF(name, 10, x); }
inline void sinCos(V x, V& s, V& c)
{
    const auto both = QX_SLEEF(sincos, 10, x);
    s = both.x;
    c = both.y;
}
#else
#ifdef QX_UNIT_FMA
#define QX_SLEEF(name, ulp, ...) Sleef_finz_##name##d1_u##ulp##purecfma(__VA_ARGS__)
#else
#define QX_SLEEF(name, ulp, ...) Sleef_cinz_##name##d1_u##ulp##purec(__VA_ARGS__)
#endif
inline V vpow(V x, V y) { return V{QX_SLEEF(pow, 10, x[0], y[0])}; }
inline V vatan2(V y, V x) { return V{QX_SLEEF(atan2, 10, y[0], x[0])}; }
#define QX_VECTOR_FUNCTION(name) \
    inline V v##name(V x) { return V{QX_SLEEF(name, 10, x[0])}; }
inline void sinCos(V x, V& s, V& c)
{
    const auto both = QX_SLEEF(sincos, 10, x[0]);
    s = V{both.x};
    c = V{both.y};
}
#endif
QX_VECTOR_FUNCTION(exp)
QX_VECTOR_FUNCTION(log)
QX_VECTOR_FUNCTION(log10)
QX_VECTOR_FUNCTION(erf)
QX_VECTOR_FUNCTION(sin)
QX_VECTOR_FUNCTION(cos)
QX_VECTOR_FUNCTION(tan)
QX_VECTOR_FUNCTION(asin)
QX_VECTOR_FUNCTION(acos)
QX_VECTOR_FUNCTION(atan)
QX_VECTOR_FUNCTION(sinh)
QX_VECTOR_FUNCTION(cosh)
QX_VECTOR_FUNCTION(tanh)
QX_VECTOR_FUNCTION(asinh)
QX_VECTOR_FUNCTION(atanh)
QX_VECTOR_FUNCTION(log1p)
#undef QX_VECTOR_FUNCTION

/// Complex numbers, one in each lane.
struct Z
{
    V re, im;
};

/// kLanes complex numbers from (re, im) pairs, and back.
inline Z loadZ(const double* p)
{
    const V a = load(p), b = load(p + kLanes);
    return {QX_EVEN(a, b), QX_ODD(a, b)};
}
inline void storeZ(double* p, Z z)
{
    const V first = QX_FIRST(z.re, z.im), last = QX_LAST(z.re, z.im);
    store(p, first);
    store(p + kLanes, last);
}

inline Z select(M m, Z a, Z b) { return {m ? a.re : b.re, m ? a.im : b.im}; }
inline Z real(V x) { return {x, V{}}; }

/// The numbers of z in the lanes of m through f, those of `other` elsewhere. For arguments too large, too small or too
/// special for the vector formulas.
__attribute__((noinline)) Z throughLanes(M m, LaneFunction f, Z z, Z other)
{
    for (std::size_t i = 0; i < kLanes; ++i)
        if (m[i] != 0) {
            double pair[2] = {z.re[i], z.im[i]};
            f(pair);
            other.re[i] = pair[0];
            other.im[i] = pair[1];
        }
    return other;
}
inline Z patch(M m, LaneFunction f, Z z, Z other) { return any(m) ? throughLanes(m, f, z, other) : other; }

/// The same for functions of two complex numbers.
__attribute__((noinline)) Z throughLanes(M m, LaneFunction2 f, Z x, Z y, Z other)
{
    for (std::size_t i = 0; i < kLanes; ++i)
        if (m[i] != 0) {
            double pair[2] = {x.re[i], x.im[i]};
            const double second[2] = {y.re[i], y.im[i]};
            f(pair, second);
            other.re[i] = pair[0];
            other.im[i] = pair[1];
        }
    return other;
}

/// f on the real axis by onAxis(x), elsewhere by offAxis(z, lanes that matter). A NaN imaginary part is off the axis.
template <class OnAxis, class OffAxis>
inline Z splitAxis(Z z, OnAxis onAxis, OffAxis offAxis)
{
    const M on = z.im == 0.0;
    if (!any(~on))
        return onAxis(z.re);
    const Z off = offAxis(z, ~on);
    return any(on) ? select(on, onAxis(z.re), off) : off;
}

/// True outside [low, high] and for NaN.
inline M outside(V x, double low, double high) { return ~((x >= low) & (x <= high)); }

} // namespace
} // namespace QX_UNIT
} // namespace qxkernels

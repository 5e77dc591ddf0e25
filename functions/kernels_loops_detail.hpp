// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The loops that turn a function on one vector into a kernel over n elements. A function is a class with
//
//   static V real(V x)                   the real form
//   static Z complex(Z z)                the complex form
//   static constexpr bool nanIsError     a NaN result of the real form is a domain failure (default false)
//   static constexpr ComplexBit bit      when the complex form reports kFunComplex (default: by the results)
//   static M kindError(Z z)              lanes where the complex form is not defined (default: none)
//
// and two arguments in the forms of two arguments, which may also have
//
//   static Z complexReal(Z x, V y), realComplex(V x, Z y)     one operand real (default: imaginary part 0)
//   static M domainError(V x, V y), domainError(Z x, Z y)     lanes that set kFunDomain (default: none)
//   static constexpr bool partByPart     complex operands are combined part by part, reporting kFunComplex always
//   static constexpr bool bothParts      a complex operand of a real result counts with both parts (default: real part)
//   static constexpr bool realFactor     a complex operand and a real one: the real form part by part (default: no)
//   static constexpr bool realOnAxis     where both operands are real the result is that of the real form (default: yes)
//   static constexpr bool cheap          the real form costs less than loading its operands: its loop is unrolled
//
// In complex storage a point whose operands have no imaginary part has the bits that real storage gives: a real result is
// that of the real form, with +0 as its imaginary part. So a value does not depend on what the other points of a block are.
//
// The last elements, fewer than a vector, are computed in a vector filled up with copies of the last one: a value never
// depends on its position or on how many are computed together.

#include "functions/kernels_detail.hpp"
#include "functions/simd_detail.hpp"

namespace qxkernels {
namespace QX_UNIT {
namespace {

constexpr unsigned kComplexBit = 1, kDomainBit = 2, kKindBit = 4; // FunBits

enum class ComplexBit { Never, ByResult, AxisOrByResult, Always }; // Axis: where the imaginary part of z is 0

struct FunctionDefaults
{
    static constexpr bool nanIsError = false;
    static constexpr bool bothParts = false;
    static constexpr bool partByPart = false;
    static constexpr bool realFactor = false;
    static constexpr bool cheap = false;
    static constexpr bool realOnAxis = true;
    static constexpr ComplexBit bit = ComplexBit::ByResult;
};

/// Finds a NaN among many numbers by one sum. The factor 2^-64 is exact and keeps the sum from overflowing, so that only
/// a NaN, or infinities of both signs, make it a NaN.
class NaNSum
{
public:
    void add(V x) { sum_ += x * 0x1p-64; }
    void add(const NaNSum& other) { sum_ += other.sum_; }
    bool isNaN() const
    {
        double total = 0.0;
        for (std::size_t i = 0; i < kLanes; ++i)
            total += sum_[i];
        return total != total;
    }

private:
    V sum_{};
};

/// Whether no number is infinite or a NaN: 0 x is 0 for all others, and a NaN for those.
inline bool allFinite(const double* x, std::size_t n)
{
    V even{}, odd{};
    std::size_t i = 0;
    for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        even += load(x + i) * 0.0;
        odd += load(x + i + kLanes) * 0.0;
    }
    double rest = 0.0;
    for (; i < n; ++i)
        rest += x[i] * 0.0;
    const V sum = even + odd;
    for (std::size_t k = 0; k < kLanes; ++k)
        rest += sum[k];
    return rest == rest;
}

/// The real parts of complex numbers. out may be z.
inline unsigned realPartsLoop(double* out, const double* z, std::size_t n)
{
    std::size_t i = 0;
    for (; i + kLanes <= n; i += kLanes)
        store(out + i, loadZ(z + 2 * i).re);
    for (; i < n; ++i)
        out[i] = z[2 * i];
    return 0u;
}

/// `width` numbers for every lane from n of them, filled up with copies of the last.
template <std::size_t width>
inline void fillUp(double* buffer, const double* x, std::size_t n)
{
    for (std::size_t i = 0; i < kLanes; ++i)
        for (std::size_t k = 0; k < width; ++k)
            buffer[width * i + k] = x[width * (i < n ? i : n - 1) + k];
}

template <std::size_t width>
inline void copyOut(double* x, const double* buffer, std::size_t n)
{
    for (std::size_t i = 0; i < width * n; ++i)
        x[i] = buffer[i];
}

template <bool complexStorage>
inline auto loadAs(const double* p)
{
    if constexpr (complexStorage)
        return loadZ(p);
    else
        return load(p);
}
inline Z asComplex(V x) { return real(x); }
inline Z asComplex(Z x) { return x; }

template <class F>
unsigned realLoop(double* out, const double* x, std::size_t n)
{
    NaNSum even, odd;
    const auto step = [](double* to, const double* from, NaNSum& sum) {
        const V y = F::real(load(from));
        store(to, y);
        if constexpr (F::nanIsError)
            sum.add(y);
    };
    std::size_t i = 0;
    for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        step(out + i, x + i, even);
        step(out + i + kLanes, x + i + kLanes, odd);
    }
    for (; i < n; i += kLanes) {
        if (i + kLanes <= n) {
            step(out + i, x + i, even);
            continue;
        }
        double rest[kLanes];
        fillUp<1>(rest, x + i, n - i);
        step(rest, rest, even);
        copyOut<1>(out + i, rest, n - i);
    }
    if constexpr (F::nanIsError) {
        even.add(odd);
        return even.isNaN() ? kDomainBit : 0u;
    }
    return 0u;
}

/// The complex form, on complex or on real x.
template <class F, bool xComplex>
unsigned complexLoop(double* out, const double* x, std::size_t n)
{
    constexpr std::size_t width = xComplex ? 2 : 1;
    M notReal{}, undefined{};
    const auto step = [&](double* to, const double* from) {
        const Z z = asComplex(loadAs<xComplex>(from));
        Z w = F::complex(z);
        w.im = ((z.im == 0.0) & (w.im == 0.0)) ? V{} : w.im;
        storeZ(to, w);
        if constexpr (F::bit == ComplexBit::ByResult || F::bit == ComplexBit::AxisOrByResult)
            notReal |= w.im != 0.0;
        if constexpr (F::bit == ComplexBit::AxisOrByResult)
            notReal |= z.im == 0.0;
        if constexpr (requires { F::kindError(z); })
            undefined |= F::kindError(z);
    };
    std::size_t i = 0;
    for (; i + kLanes <= n; i += kLanes)
        step(out + 2 * i, x + width * i);
    if (i < n) {
        double rest[2 * kLanes];
        fillUp<width>(rest, x + width * i, n - i);
        step(rest, rest);
        copyOut<2>(out + 2 * i, rest, n - i);
    }
    const bool complexResult = F::bit == ComplexBit::Always || any(notReal);
    return (complexResult ? kComplexBit : 0u) | (any(undefined) ? kKindBit : 0u);
}

inline V realPart(V x) { return x; }
inline V realPart(Z x) { return x.re; }

/// f(x, y) for storage types X and Y, in real storage.
template <class F, class X, class Y>
inline V realResult(X x, Y y)
{
    if constexpr (F::bothParts && !(__is_same(X, V) && __is_same(Y, V)))
        return F::complex(asComplex(x), asComplex(y)).re;
    else
        return F::real(realPart(x), realPart(y));
}

/// The same in complex storage.
template <class F, class X, class Y>
inline Z complexResult(X x, Y y)
{
    if constexpr (__is_same(Y, V) && requires { F::complexReal(asComplex(x), realPart(y)); })
        return F::complexReal(x, y);
    else if constexpr (__is_same(X, V) && requires { F::realComplex(realPart(x), asComplex(y)); })
        return F::realComplex(x, y);
    else
        return F::complex(asComplex(x), asComplex(y));
}

/// The result with the points put right whose operands, one or both, have no imaginary part: as if they were stored so.
template <class F, class X, class Y>
inline Z asOnTheAxis(X x, Y y, Z r)
{
    const M realX = asComplex(x).im == 0.0, realY = asComplex(y).im == 0.0;
    if constexpr (F::realOnAxis) {
        if (!any(realX | realY))
            return r;
        if constexpr (!__is_same(Y, V) && requires { F::complexReal(asComplex(x), realPart(y)); })
            r = select(realY, F::complexReal(asComplex(x), realPart(y)), r);
        if constexpr (!__is_same(X, V) && requires { F::realComplex(realPart(x), asComplex(y)); })
            r = select(realX, F::realComplex(realPart(x), asComplex(y)), r);
        r = select(realX & realY, QX_UNIT::real(F::real(realPart(x), realPart(y))), r);
    }
    return r;
}

/// The real form over as many elements as fill four vectors again and again; how many. A scalar operand is given as a
/// vector.
template <class F, bool xScalar, bool yScalar>
inline std::size_t unrolled(double* out, const double* x, const double* y, std::size_t n, M& failed)
{
    static_assert(!F::nanIsError);
    constexpr std::size_t width = 4 * kLanes;
    const V constX = xScalar ? load(x) : V{}, constY = yScalar ? load(y) : V{};
    const std::size_t count = n / width * width;
    for (std::size_t i = 0; i < count; i += width) {
        V r[4];
        for (std::size_t k = 0; k < 4; ++k) {
            const V a = xScalar ? constX : load(x + i + k * kLanes), b = yScalar ? constY : load(y + i + k * kLanes);
            if constexpr (requires { F::domainError(a, b); })
                failed |= F::domainError(a, b);
            r[k] = F::real(a, b);
        }
        for (std::size_t k = 0; k < 4; ++k)
            store(out + i + k * kLanes, r[k]);
    }
    return count;
}

template <class F, bool xComplex, bool yComplex, bool outComplex>
unsigned binaryLoop(double* out, const double* x, const double* y, unsigned shape, std::size_t n)
{
    constexpr std::size_t widthX = xComplex ? 2 : 1, widthY = yComplex ? 2 : 1, widthOut = outComplex ? 2 : 1;
    double scalarX[2 * kLanes], scalarY[2 * kLanes];
    std::size_t stepX = widthX, stepY = widthY; // doubles from one element to the next
    if (shape & kXScalar) {
        fillUp<widthX>(scalarX, x, 1);
        x = scalarX;
        stepX = 0;
    }
    if (shape & kYScalar) {
        fillUp<widthY>(scalarY, y, 1);
        y = scalarY;
        stepY = 0;
    }

    NaNSum sum;
    M notReal{}, failed{};
    const auto step = [&](double* to, const double* fromX, const double* fromY) {
        const auto a = loadAs<xComplex>(fromX);
        const auto b = loadAs<yComplex>(fromY);
        if constexpr (requires { F::domainError(realPart(a), realPart(b)); }) {
            if constexpr (outComplex)
                failed |= F::domainError(asComplex(a), asComplex(b));
            else
                failed |= F::domainError(realPart(a), realPart(b));
        }
        if constexpr (outComplex) {
            const Z r = asOnTheAxis<F>(a, b, complexResult<F>(a, b));
            storeZ(to, r);
            if constexpr (F::bit == ComplexBit::ByResult)
                notReal |= r.im != 0.0;
        } else {
            const V r = realResult<F>(a, b);
            store(to, r);
            if constexpr (F::nanIsError)
                sum.add(r);
        }
    };
    std::size_t i = 0;
    if constexpr (F::cheap && !xComplex && !yComplex && !outComplex) {
        if (stepX != 0 || stepY != 0)
            i = stepX == 0   ? unrolled<F, true, false>(out, x, y, n, failed)
                : stepY == 0 ? unrolled<F, false, true>(out, x, y, n, failed)
                             : unrolled<F, false, false>(out, x, y, n, failed);
    }
    for (; i + kLanes <= n; i += kLanes)
        step(out + widthOut * i, x + stepX * i, y + stepY * i);
    if (i < n) {
        double restX[2 * kLanes], restY[2 * kLanes], rest[2 * kLanes];
        if (stepX != 0)
            fillUp<widthX>(restX, x + stepX * i, n - i);
        if (stepY != 0)
            fillUp<widthY>(restY, y + stepY * i, n - i);
        step(rest, stepX != 0 ? restX : x, stepY != 0 ? restY : y);
        copyOut<widthOut>(out + widthOut * i, rest, n - i);
    }
    const bool complexOut = outComplex && (F::bit == ComplexBit::Always || any(notReal));
    return (complexOut ? kComplexBit : 0u) | (any(failed) || sum.isNaN() ? kDomainBit : 0u);
}

/// The lanes with imaginary parts in a vector of (re, im) pairs that begins at an element.
inline M imaginaryParts(std::size_t first)
{
    M parts{};
    for (std::size_t k = 0; k < kLanes; ++k)
        parts[k] = (first + k) % 2 == 1 ? -1 : 0;
    return parts;
}

/// Two complex arrays part by part. Adding +0 to the imaginary parts alone turns their -0, which only points on the axis
/// have, into +0; adding -0 changes nothing.
template <class F>
void partByPartLoop(double* out, const double* x, const double* y, std::size_t n)
{
    V zeros[2];
    for (std::size_t k = 0; k < 2; ++k)
        zeros[k] = imaginaryParts(k * kLanes) ? V{} : -V{};
    const auto step = [&](double* to, const double* a, const double* b, V zero) { store(to, F::real(load(a), load(b)) + zero); };
    std::size_t i = 0;
    for (; i + 2 * kLanes <= 2 * n; i += 2 * kLanes) {
        step(out + i, x + i, y + i, zeros[0]);
        step(out + i + kLanes, x + i + kLanes, y + i + kLanes, zeros[1]);
    }
    if (i < 2 * n) {
        double restX[2 * kLanes], restY[2 * kLanes];
        fillUp<2>(restX, x + i, n - i / 2);
        fillUp<2>(restY, y + i, n - i / 2);
        step(restX, restX, restY, zeros[0]);
        step(restX + kLanes, restX + kLanes, restY + kLanes, zeros[1]);
        copyOut<2>(out + i, restX, n - i / 2);
    }
}

/// A complex array and a real number, part by part: the real form over twice as many numbers.
template <class F, bool xScalar>
unsigned realFactorLoop(double* out, const double* x, const double* y, std::size_t n)
{
    static_assert(F::bit == ComplexBit::ByResult && !F::nanIsError);
    const double* const array = xScalar ? y : x;
    double number[kLanes];
    fillUp<1>(number, xScalar ? x : y, 1);
    const V factor = load(number);
    M even{}, odd{}; // lanes of the first and of the second vector of each pair that are not 0
    const M evenParts = imaginaryParts(0), oddParts = imaginaryParts(kLanes);
    const auto step = [&](double* to, const double* from, M& notZero) {
        const V a = load(from);
        const V r = xScalar ? F::real(factor, a) : F::real(a, factor);
        const V kept = ((&notZero == &even ? evenParts : oddParts) & (a == 0.0)) ? V{} : r;
        store(to, kept);
        notZero |= kept != 0.0;
    };
    std::size_t i = 0;
    for (; i + 2 * kLanes <= 2 * n; i += 2 * kLanes) {
        step(out + i, array + i, even);
        step(out + i + kLanes, array + i + kLanes, odd);
    }
    if (i < 2 * n) {
        double rest[2 * kLanes];
        fillUp<2>(rest, array + i, n - i / 2);
        step(rest, rest, even);
        step(rest + kLanes, rest + kLanes, odd);
        copyOut<2>(out + i, rest, n - i / 2);
    }
    bool complexResult = false;
    for (std::size_t k = 0; k < kLanes; ++k)
        complexResult = complexResult || (k % 2 == 1 && even[k] != 0) || ((kLanes + k) % 2 == 1 && odd[k] != 0);
    return complexResult ? kComplexBit : 0u;
}

/// Two operators in one pass, see PairLoop. Neither reports anything.
template <class First, class Second, bool resultFirst>
void pairLoop(double* out, const double* x, const double* y, const double* z, unsigned shape, std::size_t n)
{
    static_assert(First::cheap && Second::cheap && !First::nanIsError && !Second::nanIsError);
    double scalars[3][kLanes];
    const double* operands[3] = {x, y, z};
    std::size_t steps[3] = {1, 1, 1};
    for (unsigned k = 0; k < 3; ++k)
        if (shape & (1u << k)) {
            fillUp<1>(scalars[k], operands[k], 1);
            operands[k] = scalars[k];
            steps[k] = 0;
        }
    const double *const px = operands[0], *const py = operands[1], *const pz = operands[2];
    const std::size_t sx = steps[0], sy = steps[1], sz = steps[2];
    const auto both = [](V a, V b, V c) {
        const V r = First::real(a, b);
        return resultFirst ? Second::real(r, c) : Second::real(c, r);
    };
    std::size_t i = 0;
    for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        const std::size_t j = i + kLanes;
        const V even = both(load(px + sx * i), load(py + sy * i), load(pz + sz * i));
        const V odd = both(load(px + sx * j), load(py + sy * j), load(pz + sz * j));
        store(out + i, even);
        store(out + j, odd);
    }
    if (i + kLanes <= n) {
        store(out + i, both(load(px + sx * i), load(py + sy * i), load(pz + sz * i)));
        i += kLanes;
    }
    if (i < n) {
        double rest[3][kLanes];
        for (unsigned k = 0; k < 3; ++k)
            fillUp<1>(rest[k], operands[k] + steps[k] * i, steps[k] != 0 ? n - i : 1);
        double result[kLanes];
        store(result, both(load(rest[0]), load(rest[1]), load(rest[2])));
        copyOut<1>(out + i, result, n - i);
    }
}

template <class F>
unsigned binary(double* out, const double* x, const double* y, unsigned shape, std::size_t n)
{
    if constexpr (F::realFactor) {
        if (shape == (kXComplex | kYScalar))
            return realFactorLoop<F, false>(out, x, y, n);
        if (shape == (kYComplex | kXScalar | kLikeY))
            return realFactorLoop<F, true>(out, x, y, n);
    }
    switch (shape & (kXComplex | kYComplex | kLikeY)) {
    case 0:
    case kLikeY:             return binaryLoop<F, false, false, false>(out, x, y, shape, n);
    case kXComplex:          return binaryLoop<F, true, false, true>(out, x, y, shape, n);
    case kXComplex | kLikeY: return binaryLoop<F, true, false, false>(out, x, y, shape, n);
    case kYComplex:          return binaryLoop<F, false, true, false>(out, x, y, shape, n);
    case kYComplex | kLikeY: return binaryLoop<F, false, true, true>(out, x, y, shape, n);
    }
    if constexpr (F::partByPart)
        if ((shape & (kXScalar | kYScalar)) == 0) { // complex arrays are real ones of twice the length
            partByPartLoop<F>(out, x, y, n);
            return kComplexBit;
        }
    return binaryLoop<F, true, true, true>(out, x, y, shape, n);
}

} // namespace
} // namespace QX_UNIT
} // namespace qxkernels

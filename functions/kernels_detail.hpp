// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The element loops behind every function object. Each function exists once as source (kernels_*_detail.hpp) and is
// compiled for several vector units; the best one that the processor has is chosen at the first call.
//
// All units give the same bits: the vector library promises it for its FMA family, and the code around it uses only
// operations that IEEE 754 rounds one way. The last unit, for processors without FMA, is the exception: its elementary
// functions come from the library's other family and may differ in the last bit.

#include <cstddef>

namespace qxkernels {

/// out = f(x) over n elements; complex ones are (re, im) pairs. out may be x. Returns FunBits.
using UnaryLoop = unsigned (*)(double* out, const double* x, std::size_t n);

/// Which operands are one number for all elements, which are complex, and which one has the storage type of the result.
/// kOutComplex, for one argument only: a real x gives complex storage.
enum Shape : unsigned { kXScalar = 1, kYScalar = 2, kXComplex = 4, kYComplex = 8, kLikeY = 16, kOutComplex = 32 };

/// out = f(x, y). out may be x or y or both.
using BinaryLoop = unsigned (*)(double* out, const double* x, const double* y, unsigned shape, std::size_t n);

/// out = second(first(x, y), z), or second(z, first(x, y)), of real numbers, bit for bit what the two loops give one after
/// the other; shape: which of x, y, z are one number for all elements. out may be any operand.
using PairLoop = void (*)(double* out, const double* x, const double* y, const double* z, unsigned shape, std::size_t n);
constexpr unsigned kZScalar = 4; // of a PairLoop

struct Unary
{
    UnaryLoop real;
    UnaryLoop complex;
    UnaryLoop promoted; ///< the complex form on real x; out is not x
    bool sums;          ///< the real form looks for a NaN by a sum of all results
};

// Names of the kernels. The order means nothing.
#define QX_UNARY_KERNELS(_) \
    _(Abs) _(Acos) _(Acosh) _(Acot) _(Acoth) _(Acsc) _(Acsch) _(Arg) _(Asec) _(Asech) _(Asin) _(Asinh) _(Atan) _(Atanh) \
    _(Ceil) _(Conj) _(Cos) _(Cosh) _(Cot) _(Coth) _(Csc) _(Csch) _(Erf) _(Exp) _(Fix) _(Floor) _(Imag) _(Log) _(Log10) \
    _(Log2) _(Not) _(PowM1) _(PowM2) _(Pow2) _(Pow3) _(Pow4) _(Real) _(Round) _(Sec) _(Sech) _(Sign) _(Sin) _(Sinh) \
    _(Sqrt) _(Tan) _(Tanh) _(UMinus) _(UPlus)
#define QX_BINARY_KERNELS(_) \
    _(And) _(Atan2) _(Div) _(EQ) _(GE) _(GT) _(LE) _(LT) _(Max) _(Min) _(Minus) _(Mod) _(Mult) _(NE) _(Or) _(Plus) \
    _(PlusSq) _(Pow) _(RealDot)
// Two operators of which the second reads the result of the first, in one pass over the elements: what sums of products,
// products of factors and masks consist of.
#define QX_PAIR_KERNELS(_) \
    _(Mult, Plus) _(Mult, Minus) _(Mult, Mult) _(Plus, Plus) _(Plus, Mult) _(Minus, Plus) _(Minus, Mult) _(LT, Mult) _(GT, Mult)

struct KernelTable
{
    const char* unit;
    /// Whether no number is infinite or a NaN.
    bool (*allFinite)(const double* x, std::size_t n);
    /// The real parts of complex numbers. out may be z.
    UnaryLoop realParts;
#define QX_FIELD(name) Unary name;
    QX_UNARY_KERNELS(QX_FIELD)
#undef QX_FIELD
#define QX_FIELD(name) BinaryLoop name;
    QX_BINARY_KERNELS(QX_FIELD)
#undef QX_FIELD
    struct Pair
    {
        BinaryLoop first, second;
        PairLoop resultFirst, resultSecond; ///< the result of `first` as x, as y of `second`
    };
#define QX_COUNT(first, second) +1
    Pair pairs[0 QX_PAIR_KERNELS(QX_COUNT)];
#undef QX_COUNT

    /// The loop of two operators in one pass; null when there is none.
    PairLoop pairOf(BinaryLoop first, BinaryLoop second, bool resultFirst) const
    {
        for (const Pair& p : pairs)
            if (p.first == first && p.second == second)
                return resultFirst ? p.resultFirst : p.resultSecond;
        return nullptr;
    }
};

/// The kernels for this processor.
const KernelTable& kernels();

enum class Unit { Avx512, Avx2, Fma, Portable };
/// The kernels of one unit, null when the processor does not have it. For tests and measurements.
const KernelTable* kernelsOf(Unit unit);

} // namespace qxkernels

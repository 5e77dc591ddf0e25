// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What the sources of llsparse<T> share: the instances of each member template, and small helpers.

#include "llsparse.hpp"
#include "scalar.hpp"

#include <cstdint>
#include <limits>
#include <new>

namespace qxsparse {

/// Raises "Symmetry_sparse_matrices_disagree" for a RowStored store with an Unsymmetric one.
void checkMixture(Symm_t a, Symm_t b);

/// Largest number of rows or columns: extents of arrays and row markers are 32 bits wide, and one more must be countable.
constexpr unsigned long sizeLimit = std::numeric_limits<std::uint32_t>::max() - 1;

/// A number of rows or columns beyond sizeLimit: to members like an array that is too large.
struct SizeTooLarge : std::bad_alloc
{
    explicit SizeTooLarge(unsigned long size_) : size(size_) {}
    unsigned long size;
};

/// a + b, a number of rows or columns. Throws SizeTooLarge.
inline unsigned long extent(unsigned long a, unsigned long b = 0)
{
    unsigned long sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        sum = std::numeric_limits<unsigned long>::max();
    if (sum > sizeLimit)
        throw SizeTooLarge(sum);
    return sum;
}

/// Raises an identifier with "Size" and "Limit", the largest that is allowed.
[[noreturn]] void refuseSize(const char* id, unsigned long size, unsigned long limit);
/// Raises "Internal_error_sparse" with "Index", "Size" and "Limit", the last index ("none" where there is none), unless
/// index < size.
[[noreturn]] void refuseIndex(const std::string& index, unsigned long size);
inline void checkIndex(unsigned long index, unsigned long size)
{
    if (index >= size)
        refuseIndex(std::to_string(index), size);
}
/// A summand A = S + S^T must be square: "Internal_error_sparse" with the sizes.
void checkSquare(Symm_t symm, unsigned long m, unsigned long n);
template <class T>
void checkSummand(const llsparse<T>& s)
{
    checkSquare(s.symm, s.m, s.n);
}

} // namespace qxsparse

/// The element types of a store.
#define QX_FOR_EACH_STORE(_) _(double) _(qxsparse::cplx)
/// store, type of the scalar or diagonal
#define QX_FOR_EACH_SCALE(_) _(double, double) _(qxsparse::cplx, double) _(qxsparse::cplx, qxsparse::cplx)
/// result, scalar, A, B: at least one complex operand makes the result complex
#define QX_FOR_EACH_ADD(_)                                                                                            \
    _(double, double, double, double)                                                                                 \
    _(qxsparse::cplx, qxsparse::cplx, qxsparse::cplx, qxsparse::cplx)                                                 \
    _(qxsparse::cplx, qxsparse::cplx, double, qxsparse::cplx)                                                         \
    _(qxsparse::cplx, double, double, qxsparse::cplx)                                                                 \
    _(qxsparse::cplx, qxsparse::cplx, qxsparse::cplx, double)                                                         \
    _(qxsparse::cplx, qxsparse::cplx, double, double)                                                                 \
    _(qxsparse::cplx, double, qxsparse::cplx, qxsparse::cplx)                                                         \
    _(qxsparse::cplx, double, qxsparse::cplx, double)
/// result and second summand, scalar, B
#define QX_FOR_EACH_INPLACE_ADD(_)                                                                                    \
    _(double, double, double)                                                                                         \
    _(qxsparse::cplx, double, double)                                                                                 \
    _(qxsparse::cplx, qxsparse::cplx, qxsparse::cplx)                                                                 \
    _(qxsparse::cplx, double, qxsparse::cplx)                                                                         \
    _(qxsparse::cplx, qxsparse::cplx, double)
/// result, left factor or upper part, right factor or lower part
#define QX_FOR_EACH_PAIR(_)                                                                                           \
    _(double, double, double)                                                                                         \
    _(qxsparse::cplx, qxsparse::cplx, qxsparse::cplx)                                                                 \
    _(qxsparse::cplx, double, qxsparse::cplx)                                                                         \
    _(qxsparse::cplx, qxsparse::cplx, double)
/// store, type of the other factor of an in-place product
#define QX_FOR_EACH_INPLACE_MUL(_) _(double, double) _(qxsparse::cplx, qxsparse::cplx) _(qxsparse::cplx, double)
/// store, y, x of a product with vectors
#define QX_FOR_EACH_PRODUCT(_)                                                                                        \
    _(double, double, double)                                                                                         \
    _(double, qxsparse::cplx, qxsparse::cplx)                                                                         \
    _(double, qxsparse::cplx, double)                                                                                 \
    _(qxsparse::cplx, qxsparse::cplx, qxsparse::cplx)                                                                 \
    _(qxsparse::cplx, qxsparse::cplx, double)
/// store, type of residual and iterate of a sweep
#define QX_FOR_EACH_SWEEP(_) _(double, double) _(double, qxsparse::cplx) _(qxsparse::cplx, qxsparse::cplx)

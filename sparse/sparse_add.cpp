// SPDX-License-Identifier: LicenseRef-qxkernel
// Sums of stores.

#include "llsparse_detail.hpp"
#include "qxexception.hpp"
#include "two_pass.hpp"

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace qxsparse {

/// RowStored and Unsymmetric stores do not mix.
void checkMixture(Symm_t a, Symm_t b)
{
    if ((a == RowStored && b == Unsymmetric) || (a == Unsymmetric && b == RowStored))
        QX_RAISE("sputil", "Symmetry_sparse_matrices_disagree");
}

} // namespace qxsparse

namespace {

using namespace qxsparse;

Symm_t symmetryOfSum(Symm_t a, Symm_t b)
{
    if (a == RowStored || b == RowStored)
        return RowStored;
    return a == b ? a : Unsymmetric;
}

/// dst = alpha src over count values; the factors 1 and -1 are exact and cost nothing.
template <class W, class U, class V>
void copyScaled(const U& alpha, const V* src, unsigned long count, W* dst)
{
    if (alpha == U(1.0))
        for (unsigned long p = 0; p < count; ++p)
            dst[p] = W(src[p]);
    else if (alpha == U(-1.0))
        for (unsigned long p = 0; p < count; ++p)
            dst[p] = W(-src[p]);
    else
        for (unsigned long p = 0; p < count; ++p)
            dst[p] = W(mul(alpha, src[p]));
}

/// Column j of both operands has the same strictly ascending rows.
template <class V, class W>
bool sameColumn(const llsparse<V>& A, const llsparse<W>& B, unsigned long j)
{
    const unsigned long count = A.colPtr[j + 1] - A.colPtr[j];
    if (B.colPtr[j + 1] - B.colPtr[j] != count)
        return false;
    const unsigned long *a = A.row + A.colPtr[j], *b = B.row + B.colPtr[j];
    unsigned long differ = 0; // no early exit: the loop vectorises
    for (unsigned long p = 0; p < count; ++p)
        differ |= a[p] ^ b[p];
    for (unsigned long p = 1; p < count; ++p)
        differ |= a[p] <= a[p - 1];
    return differ == 0;
}

/// Number of entries of column j of alpha A + B. Marks are j + 1: below them a row has not been seen in this column.
template <class V, class W>
unsigned long countColumn(const llsparse<V>& A, const llsparse<W>& B, unsigned long j, std::uint32_t* marker)
{
    const auto mark = static_cast<std::uint32_t>(j + 1);
    unsigned long count = A.colPtr[j + 1] - A.colPtr[j];
    for (unsigned long p = A.colPtr[j]; p < A.colPtr[j + 1]; ++p)
        marker[A.row[p]] = mark;
    for (unsigned long p = B.colPtr[j]; p < B.colPtr[j + 1]; ++p) {
        std::uint32_t& seen = marker[B.row[p]];
        count += seen != mark;
        seen = mark;
    }
    return count;
}

/// Writes column j of alpha A + B to row, val and returns its length. A marker above `base` holds base + 1 + the row's
/// place in this column; smaller ones are left from columns before.
template <class U, class V, class W, class R>
unsigned long addColumn(const U& alpha, const llsparse<V>& A, const llsparse<W>& B, unsigned long j,
                        std::uint32_t* marker, std::uint32_t base, unsigned long* row, R* val)
{
    unsigned long count = A.colPtr[j + 1] - A.colPtr[j];
    std::copy_n(A.row + A.colPtr[j], count, row);
    copyScaled(alpha, A.val + A.colPtr[j], count, val);
    const W* b = B.val + B.colPtr[j];
    if (sameColumn(A, B, j)) {
        for (unsigned long p = 0; p < count; ++p)
            val[p] += b[p];
        return count;
    }
    for (unsigned long p = 0; p < count; ++p)
        marker[row[p]] = base + 1 + static_cast<std::uint32_t>(p);
    for (unsigned long p = B.colPtr[j]; p < B.colPtr[j + 1]; ++p, ++b) {
        std::uint32_t& seen = marker[B.row[p]];
        if (seen > base) {
            val[seen - base - 1] += *b;
        } else {
            row[count] = B.row[p];
            val[count++] = R(*b);
            seen = base + static_cast<std::uint32_t>(count);
        }
    }
    return count;
}

} // namespace

template <class T>
template <class V, class W>
void llsparse<T>::llsp_addPrivateSetup(const llsparse<V>& A, const llsparse<W>& B, unsigned long* colPtr_,
                                       std::uint32_t* marker, unsigned long from, unsigned long to)
{
    for (unsigned long j = from; j < to; ++j)
        colPtr_[j + 1] = sameColumn(A, B, j) ? A.colPtr[j + 1] - A.colPtr[j] : countColumn(A, B, j, marker);
}

/// No mark of the counting pass exceeds the column count n: places are counted from n on, and need no clearing in between.
template <class T>
template <class U, class V, class W>
void llsparse<T>::llsp_addPrivateWork(const U& alpha, const llsparse<V>& A, const llsparse<W>& B,
                                      const unsigned long* colPtr_, unsigned long* row_, T* val_,
                                      std::uint32_t* marker, unsigned long from, unsigned long to)
{
    for (unsigned long j = from; j < to; ++j) {
        const unsigned long place = colPtr_[j] - colPtr_[from];
        addColumn(alpha, A, B, j, marker, static_cast<std::uint32_t>(A.n + colPtr_[j]), row_ + place, val_ + place);
    }
}

template <class T>
template <class U, class V, class W>
void llsparse<T>::llsp_add(const U& alpha, const llsparse<V>& A, const llsparse<W>& B, const qxutil::RunInfo* run)
{
    checkMixture(A.symm, B.symm);
    build(TwoPass(A.m, A.n, symmetryOfSum(A.symm, B.symm), A.colPtr, A.nnz() + B.nnz(), run),
          [&](auto... pass) { llsp_addPrivateSetup(A, B, pass...); },
          [&](auto... pass) { llsp_addPrivateWork(alpha, A, B, pass...); });
}

template <class T>
template <class U, class V>
void llsparse<T>::llsp_inplaceAdd(const U& alpha, const llsparse<V>& B)
{
    checkMixture(symm, B.symm);
    buildInPlace(TwoPass(m, n, symmetryOfSum(B.symm, symm), B.colPtr, nnz() + B.nnz()),
                 [&](auto... pass) { llsp_addPrivateSetup(B, *this, pass...); },
                 [&](auto... pass) { llsp_addPrivateWork(alpha, B, *this, pass...); });
}

#define QX_INSTANTIATE(T, U, V, W)                                                                                    \
    template void llsparse<T>::llsp_add(const U&, const llsparse<V>&, const llsparse<W>&, const qxutil::RunInfo*);
QX_FOR_EACH_ADD(QX_INSTANTIATE)
#undef QX_INSTANTIATE
#define QX_INSTANTIATE(T, U, V) template void llsparse<T>::llsp_inplaceAdd(const U&, const llsparse<V>&);
QX_FOR_EACH_INPLACE_ADD(QX_INSTANTIATE)

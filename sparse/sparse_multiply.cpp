// SPDX-License-Identifier: LicenseRef-qxkernel
// Products of stores.

#include "llsparse_detail.hpp"
#include "two_pass.hpp"

#include <cstdint>

namespace {

using namespace qxsparse;

Symm_t symmetryOfProduct(Symm_t a, Symm_t b) { return a == RowStored || b == RowStored ? RowStored : Unsymmetric; }

/// Column j of A B. A marker above `base` holds base + 1 + the row's place in this column.
template <class U, class V, class R>
void mulColumn(const llsparse<U>& A, const llsparse<V>& B, unsigned long j, std::uint32_t* marker, std::uint32_t base,
               unsigned long* row, R* val)
{
    std::uint32_t end = base;
    for (unsigned long q = B.colPtr[j]; q < B.colPtr[j + 1]; ++q) {
        const unsigned long k = B.row[q], stop = A.colPtr[k + 1];
        const V b = B.val[q];
        for (unsigned long p = A.colPtr[k]; p < stop; ++p) {
            const unsigned long i = A.row[p];
            const R product = mul(A.val[p], b);
            const std::uint32_t seen = marker[i];
            if (seen > base) {
                val[seen - base - 1] += product;
            } else {
                row[end - base] = i;
                val[end - base] = product;
                marker[i] = ++end;
            }
        }
    }
}

} // namespace

/// A mark is the number of the last column that touched the row, plus one.
template <class T>
template <class U, class V>
void llsparse<T>::llsp_mulPrivateSetup(const llsparse<U>& A, const llsparse<V>& B, unsigned long* colPtr_,
                                       std::uint32_t* marker, unsigned long from, unsigned long to)
{
    const unsigned long* const row_ = A.row;
    for (unsigned long j = from; j < to; ++j) {
        const auto mark = static_cast<std::uint32_t>(j + 1);
        unsigned long count = 0;
        for (unsigned long q = B.colPtr[j]; q < B.colPtr[j + 1]; ++q) {
            const unsigned long k = B.row[q], end = A.colPtr[k + 1];
            for (unsigned long p = A.colPtr[k]; p < end; ++p) {
                std::uint32_t& seen = marker[row_[p]];
                count += seen != mark;
                seen = mark;
            }
        }
        colPtr_[j + 1] = count;
    }
}

/// The marks of the counting pass do not exceed n: places are counted from n on.
template <class T>
template <class U, class V>
void llsparse<T>::llsp_mulPrivateWork(const llsparse<U>& A, const llsparse<V>& B, const unsigned long* colPtr_,
                                      unsigned long* row_, T* val_, std::uint32_t* marker, unsigned long from,
                                      unsigned long to)
{
    for (unsigned long j = from; j < to; ++j) {
        const unsigned long place = colPtr_[j] - colPtr_[from];
        mulColumn(A, B, j, marker, static_cast<std::uint32_t>(B.n + colPtr_[j]), row_ + place, val_ + place);
    }
}

template <class T>
template <class U, class V>
void llsparse<T>::llsp_mulPrivate(const llsparse<U>& A, const llsparse<V>& B, const qxutil::RunInfo* run)
{
    checkMixture(A.symm, B.symm);
    build(TwoPass(A.m, B.n, symmetryOfProduct(A.symm, B.symm), B.colPtr, A.nnz() + B.nnz(), run),
          [&](auto... pass) { llsp_mulPrivateSetup(A, B, pass...); },
          [&](auto... pass) { llsp_mulPrivateWork(A, B, pass...); });
}

template <class T>
template <class U, class V>
void llsparse<T>::llsp_multPrivateSetup(const llsparse<U>& A, const llsparse<V>& B, const qxutil::RunInfo* run)
{
    llsp_mulPrivate(A, B, run);
}

template <class T>
void llsparse<T>::llsp_multPrivateWork(const llsparse& product, Trans_t trans, const qxutil::RunInfo* run)
{
    llsp_transp(product, trans, run);
    form = FormSorted;
}

/// Each sum runs over the same terms in the same order as in a direct form.
template <class T>
template <class U, class V>
void llsparse<T>::llsp_multPrivate(const llsparse<U>& A, const llsparse<V>& B, Trans_t trans,
                                   const qxutil::RunInfo* run)
{
    llsparse product;
    product.llsp_multPrivateSetup(A, B, run);
    llsp_multPrivateWork(product, trans, run);
}

template <class T>
template <class U>
void llsparse<T>::llsp_inplaceMulLeftPrivate(const llsparse<U>& B)
{
    checkMixture(symm, B.symm);
    buildInPlace(TwoPass(B.m, n, symmetryOfProduct(B.symm, symm), colPtr, nnz() + B.nnz()),
                 [&](auto... pass) { llsp_mulPrivateSetup(B, *this, pass...); },
                 [&](auto... pass) { llsp_mulPrivateWork(B, *this, pass...); });
}

/// A column of this B may need any column of the old store: unlike the other in-place forms it cannot be merged from the
/// first column on, and goes through new arrays.
template <class T>
template <class U>
void llsparse<T>::llsp_inplaceMulRightPrivate(const llsparse<U>& B)
{
    llsparse result;
    result.llsp_mulPrivate(*this, B);
    adopt(result, true);
}

#define QX_INSTANTIATE(T, U, V)                                                                                       \
    template void llsparse<T>::llsp_mulPrivate(const llsparse<U>&, const llsparse<V>&, const qxutil::RunInfo*);       \
    template void llsparse<T>::llsp_multPrivate(const llsparse<U>&, const llsparse<V>&, Trans_t,                      \
                                                const qxutil::RunInfo*);
QX_FOR_EACH_PAIR(QX_INSTANTIATE)
#undef QX_INSTANTIATE
#define QX_INSTANTIATE(T, U)                                                                                          \
    template void llsparse<T>::llsp_inplaceMulLeftPrivate(const llsparse<U>&);                                        \
    template void llsparse<T>::llsp_inplaceMulRightPrivate(const llsparse<U>&);
QX_FOR_EACH_INPLACE_MUL(QX_INSTANTIATE)

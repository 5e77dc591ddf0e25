// SPDX-License-Identifier: LicenseRef-qxkernel
// Products of a store with vectors.

#include "llsparse_detail.hpp"
#include "product_kernels.hpp"

namespace {

using namespace qxsparse;

template <class T>
ColumnView<T> viewOf(const llsparse<T>& s)
{
    return {s.n, s.colPtr, s.row, s.val};
}

/// One thread's share; without a list, the columns from .. to - 1.
template <bool Minus, class T, class Y, class X>
void multiplyShare(const llsparse<T>& s, Y* y, const X* x, Trans_t trans, const ListedColumns& list, unsigned long from,
                   unsigned long to)
{
    if (to == 0)
        to = s.n;
    if (list.cols)
        multiply<Minus>(viewOf(s), s.symm, y, x, trans, list, from, to);
    else
        multiply<Minus>(viewOf(s), s.symm, y, x, trans, WholeColumns<unsigned long>(s.colPtr, from, to), from, to);
}

} // namespace

template <class T>
template <class Y, class X>
void llsparse<T>::yPlusAMulx(Y* y, const X* x, Trans_t trans) const
{
    multiplyShare<false>(*this, y, x, trans, {}, 0, n);
}

template <class T>
template <class Y, class X>
void llsparse<T>::yMinusAMulx(Y* y, const X* x, Trans_t trans) const
{
    multiplyShare<true>(*this, y, x, trans, {}, 0, n);
}

template <class T>
template <class Y, class X>
void llsparse<T>::yPlusAMulx(Y* y, const X* x, Trans_t trans, const unsigned long* cols, unsigned long ncols,
                             const unsigned long* starts, const unsigned long* ends, unsigned long from,
                             unsigned long to) const
{
    multiplyShare<false>(*this, y, x, trans, {cols, starts, ends, ncols}, from, to);
}

template <class T>
template <class Y, class X>
void llsparse<T>::yMinusAMulx(Y* y, const X* x, Trans_t trans, const unsigned long* cols, unsigned long ncols,
                              const unsigned long* starts, const unsigned long* ends, unsigned long from,
                              unsigned long to) const
{
    multiplyShare<true>(*this, y, x, trans, {cols, starts, ends, ncols}, from, to);
}

#define QX_INSTANTIATE(T, Y, X)                                                                                       \
    template void llsparse<T>::yPlusAMulx(Y*, const X*, Trans_t) const;                                               \
    template void llsparse<T>::yMinusAMulx(Y*, const X*, Trans_t) const;                                              \
    template void llsparse<T>::yPlusAMulx(Y*, const X*, Trans_t, const unsigned long*, unsigned long,                 \
                                          const unsigned long*, const unsigned long*, unsigned long, unsigned long)   \
        const;                                                                                                        \
    template void llsparse<T>::yMinusAMulx(Y*, const X*, Trans_t, const unsigned long*, unsigned long,                \
                                           const unsigned long*, const unsigned long*, unsigned long, unsigned long)  \
        const;
QX_FOR_EACH_PRODUCT(QX_INSTANTIATE)

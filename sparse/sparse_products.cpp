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

} // namespace

template <class T>
template <class Y, class X>
void llsparse<T>::yPlusAMulx(Y* y, const X* x, Trans_t trans) const
{
    multiply<false>(viewOf(*this), symm, y, x, trans, AllColumns<unsigned long>{colPtr, n}, 0, n);
}

template <class T>
template <class Y, class X>
void llsparse<T>::yMinusAMulx(Y* y, const X* x, Trans_t trans) const
{
    multiply<true>(viewOf(*this), symm, y, x, trans, AllColumns<unsigned long>{colPtr, n}, 0, n);
}

template <class T>
template <class Y, class X>
void llsparse<T>::yPlusAMulx(Y* y, const X* x, Trans_t trans, const unsigned long* cols, unsigned long ncols,
                             const unsigned long* starts, const unsigned long* ends, unsigned long from,
                             unsigned long to) const
{
    multiply<false>(viewOf(*this), symm, y, x, trans, ListedColumns{cols, starts, ends, ncols}, from, to == 0 ? n : to);
}

template <class T>
template <class Y, class X>
void llsparse<T>::yMinusAMulx(Y* y, const X* x, Trans_t trans, const unsigned long* cols, unsigned long ncols,
                              const unsigned long* starts, const unsigned long* ends, unsigned long from,
                              unsigned long to) const
{
    multiply<true>(viewOf(*this), symm, y, x, trans, ListedColumns{cols, starts, ends, ncols}, from, to == 0 ? n : to);
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

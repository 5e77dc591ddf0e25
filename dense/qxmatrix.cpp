// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/elementloop_detail.hpp"
#include "matrix.hpp"

using qxarray_detail::elementLoop;
using qxarray_detail::product;

namespace qxmatrix {

namespace {

using cplx = std::complex<double>;

template <class... T>
constexpr bool sameType = true;
template <class T, class... U>
constexpr bool sameType<T, U...> = (std::is_same_v<T, U> && ...);

} // namespace

template <class Y, class X>
void copy(Y* y, const X* x, unsigned long n)
{
    if constexpr (sameType<Y, X>)
        qxarray::copy(n, x, y);
    else
        elementLoop(n, [=](unsigned long i) { y[i] = x[i]; });
}

template <class X>
double norm(const X* x, unsigned long n)
{
    return qxarray::norm(x, n);
}

template <class X, class A>
void scale(X* x, A a, unsigned long n)
{
    if constexpr (sameType<X, A>)
        qxarray::scale(x, a, n);
    else
        elementLoop(n, [=](unsigned long i) { x[i] = product(x[i], a); });
}

template <class Y, class X>
void times(Y* y, const X* x, unsigned long n)
{
    if constexpr (sameType<Y, X>)
        qxarray::times(n, y, x, y);
    else
        elementLoop(n, [=](unsigned long i) { y[i] = product(y[i], x[i]); });
}

template <class Y, class A>
void yPlusa(Y* y, A a, unsigned long n)
{
    if constexpr (sameType<Y, A>)
        qxarray::yPlusa(y, a, n);
    else
        elementLoop(n, [=](unsigned long i) { y[i] += a; });
}

template <class Y, class A, class X>
void yPlusaMulx(Y* y, A a, const X* x, unsigned long n)
{
    if constexpr (sameType<Y, A, X>)
        qxarray::yPlusaMulx(y, a, x, n);
    else
        elementLoop(n, [=](unsigned long i) { y[i] += product(a, x[i]); });
}

#define QX_FOR_EACH_PAIR(_) _(double, double) _(cplx, cplx) _(cplx, double)
#define QX_INSTANTIATE(Y, X)                                                                                           \
    template void copy<Y, X>(Y*, const X*, unsigned long);                                                             \
    template void scale<Y, X>(Y*, X, unsigned long);                                                                   \
    template void times<Y, X>(Y*, const X*, unsigned long);                                                            \
    template void yPlusa<Y, X>(Y*, X, unsigned long);                                                                  \
    template void yPlusaMulx<Y, X, X>(Y*, X, const X*, unsigned long);
QX_FOR_EACH_PAIR(QX_INSTANTIATE)
template void yPlusaMulx<cplx, double, cplx>(cplx*, double, const cplx*, unsigned long);
template void yPlusaMulx<cplx, cplx, double>(cplx*, cplx, const double*, unsigned long);
template double norm<double>(const double*, unsigned long);
template double norm<cplx>(const cplx*, unsigned long);

} // namespace qxmatrix

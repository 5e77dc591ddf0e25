// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "dense/elementloop_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "qxparallel.hpp"

#include <cmath>

using namespace qxarray_detail;

namespace qxarray {

namespace {

[[noreturn]] void refuse(const char* detail)
{
    QX_RAISE("arrayutil", "Internal_numerical_error", detail);
}

CBLAS_TRANSPOSE blasTrans(Trans_t trans)
{
    return trans == NoTrans ? CblasNoTrans : trans == Trans ? CblasTrans : CblasConjTrans;
}

/// 0^p for a complex zero, where exp(p log 0) would be NaN throughout.
cplx powerOfZero(const cplx& p)
{
    if (p.imag() == 0.0)
        return std::pow(0.0, p.real());
    return p.real() > 0.0 ? cplx(0.0) : nanValue<cplx>();
}

/// Blocks that are too short for any BLAS to divide among threads: the bits of a sum, or of a kernel that treats the last
/// elements of its share in another way, then do not depend on their number.
constexpr unsigned long blockLength = 8192;
/// From here on a region costs less than it saves.
constexpr unsigned long parallelLength = 100000;

/// f(block, from, count) for blocks first .. last - 1 of n elements, by a team where that pays. f must not throw.
template <class F>
void forBlocks(unsigned long n, unsigned long first, unsigned long last, const F& f)
{
    const auto call = [&](unsigned long b) {
        const unsigned long from = b * blockLength;
        f(b, from, static_cast<int>(std::min(blockLength, n - from)));
    };
    const unsigned long length = std::min(n, last * blockLength) - first * blockLength;
    if (length < parallelLength || !qxbase::isParallelLoop(length)) {
        for (unsigned long b = first; b < last; ++b)
            call(b);
        return;
    }
#pragma omp parallel for schedule(static) num_threads(AVAILABLETHREADS())
    for (unsigned long b = first; b < last; ++b)
        call(b);
}

unsigned long blocksOf(unsigned long n) { return (n + blockLength - 1) / blockLength; }

/// f(from, count) for all blocks.
template <class F>
void forEachBlock(unsigned long n, const F& f)
{
    forBlocks(n, 0, blocksOf(n), [&](unsigned long, unsigned long from, int count) { f(from, count); });
}

/// Sum of f(from, count) over all blocks, added in their order whoever computes them.
template <class T, class F>
T sumOverBlocks(unsigned long n, const F& f)
{
    constexpr unsigned long batch = 256;
    T partial[batch];
    T sum(0);
    for (unsigned long first = 0, blocks = blocksOf(n); first < blocks; first += batch) {
        const unsigned long last = std::min(blocks, first + batch);
        forBlocks(n, first, last, [&](unsigned long b, unsigned long from, int count) { partial[b - first] = f(from, count); });
        for (unsigned long b = first; b < last; ++b)
            sum += partial[b - first];
    }
    return sum;
}

double power(double x, double p) { return std::pow(x, p); }
template <class P>
cplx power(const cplx& x, const P& p)
{
    return x == 0.0 ? powerOfZero(p) : std::pow(x, p);
}

} // namespace

template <class T>
void adjoint(const Array<T, 2>& A, Array<T, 2>& B)
{
    const unsigned long m = A.extent(0), n = A.extent(1);
    B.resize(n, m);
    // Square tiles: the strided side stays in cache.
    constexpr unsigned long tile = 16;
    for (unsigned long j0 = 0; j0 < n; j0 += tile)
        for (unsigned long i0 = 0; i0 < m; i0 += tile)
            for (unsigned long j = j0; j < std::min(n, j0 + tile); ++j)
                for (unsigned long i = i0; i < std::min(m, i0 + tile); ++i)
                    if constexpr (std::is_same_v<T, cplx>)
                        B(j, i) = std::conj(A(i, j));
                    else
                        B(j, i) = A(i, j);
}

template <class T>
void triSolve(const Array<T, 2>& A, Array<T, 1>& x, bool upper, Trans_t trans, int n)
{
    if (n < 0 || A.extent(0) < static_cast<unsigned long>(n) || A.extent(1) < static_cast<unsigned long>(n) ||
        x.size() < static_cast<unsigned long>(n))
        refuse("triSolve: Size of A or x less than required by n.");
    if (n != 0)
        Blas<T>::trsv(upper ? CblasUpper : CblasLower, blasTrans(trans), n, A.data(), leading(A), x.data());
}

template <class T>
void yPlusAMulx(Array<T, 1>& y, const Array<T, 2>& A, const Array<T, 1>& x, Trans_t trans, unsigned long m,
                unsigned long n)
{
    const unsigned long usedRows = m != 0 ? m : A.extent(0), usedColumns = n != 0 ? n : A.extent(1);
    if (usedRows > A.extent(0) || usedColumns > A.extent(1))
        refuse("yPlusAMulx: Size of A less than required by m and n.");
    if (y.size() < (trans == NoTrans ? usedRows : usedColumns) || x.size() < (trans == NoTrans ? usedColumns : usedRows))
        refuse("yPlusAMulx: Size of x or y less than required by m and n.");
    if (usedRows != 0 && usedColumns != 0)
        Blas<T>::gemv(blasTrans(trans), lapackInt(usedRows), lapackInt(usedColumns), A.data(), leading(A), x.data(),
                      y.data());
}

template <class T>
void yPlusaMulx(Array<T, 1>& y, std::type_identity_t<T> a, const Array<T, 1>& x)
{
    if (x.size() != y.size())
        refuse(std::is_same_v<T, double> ? "yPlusaMulx: x and y does not have the same length."
                                         : "yPlusaMulx: y and x does not have the same length.");
    yPlusaMulx(y.data(), a, x.data(), x.size());
}

template <class T>
void yPlusaMulx(T* y, std::type_identity_t<T> a, const T* x, unsigned long n)
{
    forEachBlock(n, [=](unsigned long i, int count) { Blas<T>::axpy(count, a, x + i, y + i); });
}

template <class T, int N>
void yPlusa(Array<T, N>& y, std::type_identity_t<T> a)
{
    yPlusa(y.data(), a, y.size());
}

template <class T>
void yPlusa(T* y, std::type_identity_t<T> a, unsigned long n)
{
    for (unsigned long i = 0; i < n; ++i)
        y[i] += a;
}

template <class T>
T dot(const Array<T, 1>& x, const Array<T, 1>& y)
{
    return dot(x, y, NoTrans);
}

template <class T>
T dot(const Array<T, 1>& x, const Array<T, 1>& y, Trans_t trans)
{
    if (x.size() != y.size())
        refuse("dot: x and y does not have the same length.");
    return sumOverBlocks<T>(x.size(), [&](unsigned long i, int count) {
        return Blas<T>::dot(count, x.data() + i, y.data() + i, trans == ConjTrans);
    });
}

template <class T, int N>
double norm(const Array<T, N>& x)
{
    return norm(x.data(), x.size());
}

template <class T>
double norm(const T* x, unsigned long n)
{
    return Blas<T>::nrm2(lapackInt(n), x);
}

template <class T, int N>
void scale(Array<T, N>& x, std::type_identity_t<T> a)
{
    scale(x.data(), a, x.size());
}

template <class T>
void scale(T* x, std::type_identity_t<T> a, unsigned long n)
{
    // Some BLAS libraries set x to zero then, NaN and infinities too.
    if (a == 0.0)
        elementLoop(n, [=](unsigned long i) { x[i] = product(x[i], 0.0); });
    else
        forEachBlock(n, [=](unsigned long i, int count) { Blas<T>::scal(count, a, x + i); });
}

template <class T, int N>
void copy(const Array<T, N>& x, Array<T, N>& y)
{
    unsigned long extents[N];
    for (int d = 0; d < N; ++d)
        extents[d] = x.extent(d);
    y.resize(extents);
    copy(x.size(), x.data(), y.data());
}

template <class T>
void copy(unsigned long n, const T* x, T* y)
{
    Blas<T>::copy(lapackInt(n), x, y);
}

template <class T>
void times(unsigned long n, const T* x, const T* y, T* z)
{
    elementLoop(n, [=](unsigned long i) { z[i] = product(x[i], y[i]); });
}

template <class T, class P>
void pow(T* x, P p, unsigned long n)
{
    if (p == 0.0) {
        std::fill_n(x, n, T(1));
        return;
    }
    for (unsigned long i = 0; i < n; ++i)
        x[i] = power(x[i], p);
}

#define QX_INSTANTIATE_RANK(T, N)                                                                                      \
    template void yPlusa<T, N>(Array<T, N>&, std::type_identity_t<T>);                                                 \
    template double norm<T, N>(const Array<T, N>&);                                                                    \
    template void scale<T, N>(Array<T, N>&, std::type_identity_t<T>);                                                  \
    template void copy<T, N>(const Array<T, N>&, Array<T, N>&);
#define QX_INSTANTIATE(T)                                                                                              \
    QX_INSTANTIATE_RANK(T, 1)                                                                                          \
    QX_INSTANTIATE_RANK(T, 2)                                                                                          \
    QX_INSTANTIATE_RANK(T, 3)                                                                                          \
    template void adjoint<T>(const Array<T, 2>&, Array<T, 2>&);                                                        \
    template void triSolve<T>(const Array<T, 2>&, Array<T, 1>&, bool, Trans_t, int);                                   \
    template void yPlusAMulx<T>(Array<T, 1>&, const Array<T, 2>&, const Array<T, 1>&, Trans_t, unsigned long,          \
                                unsigned long);                                                                        \
    template void yPlusaMulx<T>(Array<T, 1>&, std::type_identity_t<T>, const Array<T, 1>&);                            \
    template void yPlusaMulx<T>(T*, std::type_identity_t<T>, const T*, unsigned long);                                 \
    template void yPlusa<T>(T*, std::type_identity_t<T>, unsigned long);                                               \
    template T dot<T>(const Array<T, 1>&, const Array<T, 1>&);                                                         \
    template T dot<T>(const Array<T, 1>&, const Array<T, 1>&, Trans_t);                                                \
    template double norm<T>(const T*, unsigned long);                                                                  \
    template void scale<T>(T*, std::type_identity_t<T>, unsigned long);                                                \
    template void copy<T>(unsigned long, const T*, T*);                                                                \
    template void times<T>(unsigned long, const T*, const T*, T*);
QX_INSTANTIATE(double)
QX_INSTANTIATE(cplx)
template void pow<double, double>(double*, double, unsigned long);
template void pow<cplx, double>(cplx*, double, unsigned long);
template void pow<cplx, cplx>(cplx*, cplx, unsigned long);

} // namespace qxarray

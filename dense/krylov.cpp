// SPDX-License-Identifier: LicenseRef-qxkernel
#include "krylov.hpp"

#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "dense/elementloop_detail.hpp"
#include "qxexception.hpp"

using namespace qxarray_detail;

namespace {

[[noreturn]] void refuse(const char* detail)
{
    QX_RAISE("arrayutil", "Internal_numerical_error", detail);
}

constexpr const char* kColumn = "Column index out of bounds.";
constexpr const char* kSize = "Size of input mismatch.";
constexpr const char* kTypes = "Types must agree.";

template <class T>
T conjugate(const T& x)
{
    if constexpr (std::is_same_v<T, cplx>)
        return std::conj(x);
    else
        return x;
}

/// column(i) gives the numbers of basis vector i. Blocks that no BLAS divides among threads, as in qxarray::dot: their
/// sums have the same bits.
template <class T, class Column>
void orthogonalize(Array<T, 2>& H, Array<T, 1>& w, Column column, unsigned long j)
{
    constexpr unsigned long block = 8192;
    const unsigned long n = w.size();
    T h(0);
    for (unsigned long i = 0; i <= j + 1; ++i) {
        const T* subtracted = i > 0 ? column(i - 1) : nullptr;
        const T* next = i <= j ? column(i) : nullptr;
        T sum(0);
        for (unsigned long k = 0; k < n; k += block) {
            const int count = lapackInt(std::min(block, n - k));
            if (subtracted)
                Blas<T>::axpy(count, -h, subtracted + k, w.data() + k);
            if (next)
                sum += Blas<T>::dot(count, next + k, w.data() + k, true);
        }
        if (next)
            H(i, j) = h = sum;
    }
}

template <class T>
void checkTarget(const Array<T, 2>& H, unsigned long vectors, unsigned long j)
{
    if (j >= H.extent(1) || j >= vectors)
        refuse(kColumn);
    if (j >= H.extent(0))
        refuse(kSize);
}

/// As qxarray::gramSchmidt, with the list of vectors given by their number and vector(i), a Array<T, 1>.
template <class T, class Vector>
void gramSchmidtOnList(Array<T, 2>& H, Array<T, 1>& w, unsigned long vectors, Vector vector, unsigned long j)
{
    checkTarget(H, vectors, j);
    for (unsigned long i = 0; i <= j; ++i)
        if (vector(i).size() != w.size())
            refuse(kSize);
    orthogonalize(H, w, [&](unsigned long i) { return vector(i).data(); }, j);
}

/// Calls f(T()) with the element type that all matrices have.
template <class F, class... M>
auto withCommonType(F f, const M&... matrices)
{
    const bool real = (matrices.isReal() && ...);
    if (!real && (matrices.isReal() || ...))
        refuse(kTypes);
    return real ? f(double()) : f(cplx());
}

template <class T, int N>
Array<T, N>& writable(Matrix<N>& A)
{
    if constexpr (std::is_same_v<T, double>)
        return A.getdArr();
    else
        return A.getzArr();
}

template <class T, int N>
const Array<T, N>& readable(const Matrix<N>& A)
{
    if constexpr (std::is_same_v<T, double>)
        return A.gethdArr();
    else
        return A.gethzArr();
}

} // namespace

namespace qxarray {

template <class T>
void gramSchmidt(Array<T, 2>& H, Array<T, 1>& w, const Array<T, 2>& V, unsigned long j)
{
    checkTarget(H, V.extent(1), j);
    if (V.extent(0) != w.size())
        refuse(kSize);
    orthogonalize(H, w, [&](unsigned long i) { return &V(0, i); }, j);
}

template <class T>
void gramSchmidt(Array<T, 2>& H, Array<T, 1>& w, const MultiTree<Array<T, 1>, 1>& V, unsigned long j)
{
    gramSchmidtOnList(H, w, V.size(), [&](unsigned long i) -> const Array<T, 1>& { return V[i]; }, j);
}

template <class T>
T givensRot(Array<T, 2>& H, const Array<T, 1>& c, const Array<T, 1>& s, unsigned long j)
{
    if (j >= H.extent(1))
        refuse(kColumn);
    if (j >= H.extent(0) || c.size() != s.size() || c.size() < j)
        refuse(kSize);
    T t = H(0, j);
    for (unsigned long i = 0; i < j; ++i) {
        const T u = H(i + 1, j);
        H(i, j) = product(c[i], t) - product(conjugate(s[i]), u);
        t = product(c[i], u) + product(s[i], t);
    }
    return t;
}

#define QX_INSTANTIATE(T)                                                                                              \
    template void gramSchmidt<T>(Array<T, 2>&, Array<T, 1>&, const Array<T, 2>&, unsigned long);                       \
    template void gramSchmidt<T>(Array<T, 2>&, Array<T, 1>&, const MultiTree<Array<T, 1>, 1>&, unsigned long);         \
    template T givensRot<T>(Array<T, 2>&, const Array<T, 1>&, const Array<T, 1>&, unsigned long);
QX_INSTANTIATE(double)
QX_INSTANTIATE(cplx)

} // namespace qxarray

void gramSchmidt(Matrix<2>& H, Matrix<1>& w, const Matrix<2>& V, unsigned long j)
{
    withCommonType(
        [&]<class T>(T) { qxarray::gramSchmidt(writable<T>(H), writable<T>(w), readable<T>(V), j); }, H, w, V);
}

void gramSchmidt(Matrix<2>& H, Matrix<1>& w, const MultiTree<Matrix<1>, 1>& V, unsigned long j)
{
    for (unsigned long i = 0; i < V.size() && i <= j; ++i)
        if (V[i].isReal() != w.isReal())
            refuse(kTypes);
    withCommonType(
        [&]<class T>(T) {
            gramSchmidtOnList(
                writable<T>(H), writable<T>(w), V.size(),
                [&](unsigned long i) -> const Array<T, 1>& { return readable<T>(V[i]); }, j);
        },
        H, w);
}

cplx givensRot(Matrix<2>& H, const Matrix<1>& c, const Matrix<1>& s, unsigned long j)
{
    return withCommonType(
        [&]<class T>(T) -> cplx { return qxarray::givensRot(writable<T>(H), readable<T>(c), readable<T>(s), j); }, H, c, s);
}

void triSolve(const Matrix<2>& R, Matrix<1>& x, bool upper, Trans_t trans, int n)
{
    if (R.isReal() != x.isReal())
        refuse("triSolve: Mixed real and complex case not implemented.");
    if (x.isReal())
        qxarray::triSolve(R.gethdArr(), x.getdArr(), upper, trans, n);
    else
        qxarray::triSolve(R.gethzArr(), x.getzArr(), upper, trans, n);
}

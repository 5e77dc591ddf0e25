// SPDX-License-Identifier: LicenseRef-qxkernel
#include "matrix.hpp"

#include "arrayutil.hpp"
#include "qxexception.hpp"

#include <atomic>

namespace {

using cplx = std::complex<double>;

// Failures of the container carry the name of the header that declares it.
constexpr const char* source = "../include/matrix.hpp";

[[noreturn]] void internalError()
{
    QX_RAISE(source, "Internal_error_matrix");
}

template <class T, int N>
boost::shared_ptr<Array<T, N>> sameShape(const auto& other)
{
    unsigned long extents[N];
    for (int d = 0; d < N; ++d)
        extents[d] = other.extent(d);
    return boost::shared_ptr<Array<T, N>>(new Array<T, N>(extents));
}

template <class T, int N>
bool isShared(const boost::shared_ptr<Array<T, N>>& holder)
{
    if (holder.use_count() > 1)
        return true;
    // The count is read relaxed: what the last other holder did with the array must be seen before it is written.
    std::atomic_thread_fence(std::memory_order_acquire);
    return false;
}

template <class T, int N>
boost::shared_ptr<Array<T, N>> orEmpty(const boost::shared_ptr<Array<T, N>>& array)
{
    return array ? array : boost::shared_ptr<Array<T, N>>(new Array<T, N>());
}

template <class A>
boost::shared_ptr<A> filledWithZero(boost::shared_ptr<A> array)
{
    *array = typename A::value_type(0);
    return array;
}

/// Of a real and a complex matrix the real one becomes complex.
template <int M, int N>
void promotePair(Matrix<M>& A, Matrix<N>& B)
{
    if (A.isReal() != B.isReal()) {
        A.real2complex();
        B.real2complex();
    }
}

} // namespace

template <int N>
Matrix<N>::Matrix() : dArr(new RealArray())
{
}

template <int N>
Matrix<N>::Matrix(const boost::shared_ptr<RealArray>& array) : dArr(orEmpty(array))
{
}

template <int N>
Matrix<N>::Matrix(const boost::shared_ptr<ComplexArray>& array) : zArr(orEmpty(array)), real(false)
{
}

template <int N>
Matrix<N>::Matrix(uninit_t, unsigned long size, bool isReal) requires(N == 1) : real(isReal)
{
    if (real)
        dArr.reset(new RealArray(size));
    else
        zArr.reset(new ComplexArray(size));
}

template <int N>
Matrix<N>::Matrix(uninit_t, unsigned long m, unsigned long n, bool isReal) requires(N == 2) : real(isReal)
{
    if (real)
        dArr.reset(new RealArray(m, n));
    else
        zArr.reset(new ComplexArray(m, n));
}

template <int N>
Matrix<N>::Matrix(unsigned long size, bool isReal) requires(N == 1) : Matrix(uninit_t(), size, isReal)
{
    *this = cplx(0.0);
}

template <int N>
Matrix<N>::Matrix(unsigned long m, unsigned long n, bool isReal) requires(N == 2) : Matrix(uninit_t(), m, n, isReal)
{
    *this = cplx(0.0);
}

template <int N>
void Matrix<N>::trueCopy(const Matrix& other, bool wantReal)
{
    Matrix copy(other);
    copy.noRealloc = false;
    if (copy.real && wantReal)
        copy.dArr.reset(new RealArray(*other.dArr));
    else if (copy.real)
        copy.real2complex();
    else
        copy.zArr.reset(new ComplexArray(*other.zArr));
    *this = copy;
}

template <int N>
unsigned long Matrix<N>::size() const
{
    return real ? dArr->size() : zArr->size();
}

template <int N>
unsigned long Matrix<N>::size(int dim) const
{
    return real ? dArr->extent(dim) : zArr->extent(dim);
}

template <int N>
bool Matrix<N>::hasUniqueData() const
{
    return real ? !isShared(dArr) : !isShared(zArr);
}

template <int N>
void Matrix<N>::makeUnique()
{
    if (real && isShared(dArr))
        dArr.reset(new RealArray(*dArr));
    else if (!real && isShared(zArr))
        zArr.reset(new ComplexArray(*zArr));
}

template <int N>
typename Matrix<N>::RealArray& Matrix<N>::getdArr()
{
    if (!real)
        internalError();
    if (!noRealloc)
        makeUnique();
    return *dArr;
}

template <int N>
typename Matrix<N>::ComplexArray& Matrix<N>::getzArr()
{
    real2complex();
    if (!noRealloc)
        makeUnique();
    return *zArr;
}

template <int N>
const typename Matrix<N>::RealArray& Matrix<N>::gethdArr() const
{
    if (!real)
        internalError();
    return *dArr;
}

template <int N>
const typename Matrix<N>::ComplexArray& Matrix<N>::gethzArr() const
{
    if (real)
        internalError();
    return *zArr;
}

template <int N>
void Matrix<N>::real2complex()
{
    if (!real)
        return;
    if (noRealloc)
        internalError();
    zArr = sameShape<cplx, N>(*dArr);
    qxmatrix::copy(zArr->data(), dArr->data(), dArr->size());
    dArr.reset();
    real = false;
}

template <int N>
void Matrix<N>::set(unsigned long i, cplx value)
{
    if (real && value.imag() == 0.0)
        getdArr()[i] = value.real();
    else
        getzArr()[i] = value;
}

template <int N>
void Matrix<N>::set(unsigned long i, unsigned long j, cplx value) requires(N == 2)
{
    set(i + j * size(0), value);
}

template <int N>
Matrix<N>& Matrix<N>::operator=(cplx value)
{
    if (real && value.imag() == 0.0)
        getdArr() = value.real();
    else
        getzArr() = value;
    return *this;
}

template <int N>
Matrix<N>& Matrix<N>::operator*=(cplx factor)
{
    if (real && factor.imag() == 0.0)
        qxarray::scale(getdArr(), factor.real());
    else
        qxarray::scale(getzArr(), factor);
    return *this;
}

template <int N>
void Matrix<N>::clear()
{
    if (noRealloc)
        internalError();
    if (real)
        dArr.reset(new RealArray());
    else
        zArr.reset(new ComplexArray());
}

template <int N>
void Matrix<N>::setNoRealloc(bool value)
{
    if (value)
        makeUnique();
    noRealloc = value;
}

template <int N>
void Matrix<N>::fill(const Matrix<1>& column, unsigned long j) requires(N == 2)
{
    const unsigned long m = size(0);
    if (column.size() < m)
        QX_RAISE(source, "Too_few_elements_in_fill");
    if (j >= size(1))
        internalError();
    if (real && column.real)
        qxmatrix::copy(getdArr().data() + j * m, column.dArr->data(), m);
    else if (column.real)
        qxmatrix::copy(getzArr().data() + j * m, column.dArr->data(), m);
    else
        qxmatrix::copy(getzArr().data() + j * m, column.zArr->data(), m);
}

template <int N>
double norm(const Matrix<N>& x)
{
    return x.isReal() ? qxarray::norm(x.gethdArr()) : qxarray::norm(x.gethzArr());
}

cplx dot(const Matrix<1>& x, const Matrix<1>& y)
{
    if (x.isReal() && y.isReal())
        return qxarray::dot(x.gethdArr(), y.gethdArr());
    Matrix<1> zx(x), zy(y);
    zx.setNoRealloc(false);
    zy.setNoRealloc(false);
    zx.real2complex();
    zy.real2complex();
    return qxarray::dot(zx.gethzArr(), zy.gethzArr());
}

void yPlusaMulx(Matrix<1>& y, cplx a, const Matrix<1>& x)
{
    const bool realFactor = a.imag() == 0.0;
    const bool allReal = y.isReal() && realFactor && x.isReal();
    if (x.size() != y.size())
        QX_RAISE("arrayutil", "Internal_numerical_error",
                 allReal ? "yPlusaMulx: x and y does not have the same length."
                         : "yPlusaMulx: y and x does not have the same length.");
    const unsigned long n = y.size();
    const Matrix<1> operand(x); // y may be x, or share its array
    if (allReal) {
        qxmatrix::yPlusaMulx(y.getdArr().data(), a.real(), operand.gethdArr().data(), n);
        return;
    }
    cplx* target = y.getzArr().data();
    if (operand.isReal() && realFactor)
        qxmatrix::yPlusaMulx(target, a.real(), operand.gethdArr().data(), n);
    else if (operand.isReal())
        qxmatrix::yPlusaMulx(target, a, operand.gethdArr().data(), n);
    else if (realFactor)
        qxmatrix::yPlusaMulx(target, a.real(), operand.gethzArr().data(), n);
    else
        qxmatrix::yPlusaMulx(target, a, operand.gethzArr().data(), n);
}

Matrix<2> hcat(const std::vector<Matrix<1>>& columns)
{
    bool allReal = true;
    for (const Matrix<1>& column : columns)
        allReal = allReal && column.isReal();
    Matrix<2> result(uninit_t(), columns.empty() ? 0 : columns.front().size(), columns.size(), allReal);
    for (std::size_t j = 0; j < columns.size(); ++j)
        result.fill(columns[j], j);
    return result;
}

template <int N>
int linsolv(Matrix<2>& A, Matrix<N>& B, int flags)
{
    promotePair(A, B);
    return A.isReal() ? qxarray::linsolv(A.getdArr(), B.getdArr(), flags)
                      : qxarray::linsolv(A.getzArr(), B.getzArr(), flags);
}

int lu(Matrix<2>& A, Array<int, 1>& ipiv, int flags)
{
    return A.isReal() ? qxarray::lu(A.getdArr(), ipiv, flags) : qxarray::lu(A.getzArr(), ipiv, flags);
}

template <int N>
int linsolvsolve(Matrix<2>& LU, const Array<int, 1>& ipiv, Matrix<N>& B, int flags)
{
    promotePair(LU, B);
    return LU.isReal() ? qxarray::linsolvsolve(LU.gethdArr(), ipiv, B.getdArr(), flags)
                       : qxarray::linsolvsolve(LU.gethzArr(), ipiv, B.getzArr(), flags);
}

template class Matrix<1>;
template class Matrix<2>;
template class Matrix<3>;
#define QX_INSTANTIATE(N)                                                                                              \
    template double norm<N>(const Matrix<N>&);                                                                         \
    template int linsolv<N>(Matrix<2>&, Matrix<N>&, int);                                                              \
    template int linsolvsolve<N>(Matrix<2>&, const Array<int, 1>&, Matrix<N>&, int);
QX_INSTANTIATE(1)
QX_INSTANTIATE(2)

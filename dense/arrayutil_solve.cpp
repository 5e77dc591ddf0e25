// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "qxexception.hpp"

#include <cmath>

using namespace qxarray_detail;

namespace qxarray {

namespace {

constexpr int emptyRightHandSide = 1;

template <class T>
int factorise(Array<T, 2>& A, Array<int, 1>& ipiv)
{
    const int m = rows(A), n = columns(A), lda = leading(A);
    ipiv.resize(static_cast<unsigned long>(std::min(m, n)));
    int info = 0;
    if (ipiv.size() != 0)
        Lapack<T>::getrf(&m, &n, A.data(), &lda, ipiv.data(), &info);
    return info;
}

template <class T, int N>
void resizeRows(Array<T, N>& X, unsigned long n, const Array<T, N>& B)
{
    if constexpr (N == 1)
        X.resize(n);
    else
        X.resize(n, B.extent(1));
}

/// X = the first rows of W, column by column.
template <class T, int N>
void copyLeadingRows(const Array<T, N>& W, Array<T, N>& X)
{
    const unsigned long n = X.extent(0), ld = W.extent(0), nrhs = n == 0 ? 0 : X.size() / n;
    for (unsigned long j = 0; j < nrhs; ++j)
        std::copy_n(W.data() + j * ld, n, X.data() + j * n);
}

} // namespace

template <class T, int N>
int linsolv(Array<T, 2>& A, Array<T, N>& B, int flags)
{
    if (A.extent(0) == 0 || B.size() == 0)
        return emptyRightHandSide;
    if (!isSquare(A))
        return judge(-1, flags);
    if (B.extent(0) < A.extent(0))
        return judge(-7, flags);

    const int n = rows(A), nrhs = rightHandSides(B), lda = leading(A), ldb = leading(B);
    Scratch<int, 64> ipiv(A.extent(0));
    int info = 0;
    Lapack<T>::gesv(&n, &nrhs, A.data(), &lda, ipiv.data(), B.data(), &ldb, &info);
    if (info > 0 && !(flags & RaisePositive))
        B = nanValue<T>();
    return judge(info, flags, singularMatrix);
}

template <class T>
int linsolvdecomp(Array<T, 2>& A, Array<int, 1>& ipiv)
{
    return factorise(A, ipiv);
}

template <class T>
int lu(Array<T, 2>& A, Array<int, 1>& ipiv, int flags)
{
    return judge(factorise(A, ipiv), flags, singularMatrix);
}

template <class T, int N>
int linsolvsolve(const Array<T, 2>& LU, const Array<int, 1>& ipiv, Array<T, N>& B, int flags)
{
    if (LU.extent(0) == 0 || B.size() == 0)
        return emptyRightHandSide;
    if (!isSquare(LU))
        return judge(-2, flags);
    if (ipiv.size() < LU.extent(0))
        return judge(-6, flags);
    if (B.extent(0) < LU.extent(0))
        return judge(-8, flags);

    const int n = rows(LU), nrhs = rightHandSides(B), lda = leading(LU), ldb = leading(B);
    int info = 0;
    Lapack<T>::getrs("N", &n, &nrhs, LU.data(), &lda, ipiv.data(), B.data(), &ldb, &info, 1);
    return judge(info, flags);
}

template <class T>
int chol(Array<T, 2>& A, int flag)
{
    int info = isSquare(A) ? 0 : -2;
    if (info == 0 && A.size() != 0) {
        const int n = rows(A), lda = leading(A);
        Lapack<T>::potrf("U", &n, A.data(), &lda, &info, 1);
        // Not every LAPACK tells a NaN pivot from a positive one.
        for (int j = 0; j < n && info == 0; ++j)
            if (std::isnan(std::real(A(j, j))))
                info = j + 1;
    }
    if (info != 0 && flag != 0)
        QX_RAISE("arrayutil", "Input matrix must be positive definite.");
    return info;
}

template <class T, int N>
int leastSquares(Array<T, 2>& A, const Array<T, N>& B, Array<T, N>& X, double rcond, int flags)
{
    if (B.size() == 0) {
        resizeRows(X, A.extent(1), B);
        X = T(0);
        return emptyRightHandSide;
    }
    if (!isFinite(A))
        return judge(-4, flags);
    if (B.extent(0) < std::max(A.extent(0), A.extent(1)))
        return judge(-7, flags);

    Array<T, N> solution(B);
    resizeRows(X, A.extent(1), B);
    if (A.size() == 0) {
        X = T(0);
        return 0;
    }
    const int m = rows(A), n = columns(A), nrhs = rightHandSides(B), lda = leading(A), ldb = leading(B);
    const auto smaller = static_cast<unsigned long>(std::min(m, n));
    Scratch<double, smallDimension> s(smaller);
    RealWork<T> rwork(5 * smaller);
    WithSpareColumn a(A);
    WithSpareColumn b(solution);
    int rank = 0, info = 0;
    withSpareWorkspace<T>(std::max({m, n, nrhs}), a.spare(m, n), [&](T* work, int lwork) {
        Lapack<T>::gelss(&m, &n, &nrhs, a.data(), &lda, b.data(), &ldb, s.data(), &rcond, &rank, work, &lwork,
                         rwork.data(), &info);
    });
    a.giveBack();
    b.giveBack();
    if (info == 0)
        copyLeadingRows(solution, X);
    else if (info > 0 && !(flags & RaisePositive))
        X = nanValue<T>();
    return judge(info, flags, svdFailed);
}

int leastSquaresQR(unsigned long m, unsigned long n, unsigned long nrhs, Array<double, 2>& A, Array<double, 2>& B,
                   Array<double, 1>& work, int flags)
{
    if (nrhs == 0 || B.size() == 0)
        return emptyRightHandSide;
    if (A.extent(0) < m || A.extent(1) < n)
        return judge(-6, flags);
    if (B.extent(0) < std::max(m, n) || B.extent(1) < nrhs)
        return judge(-8, flags);
    const unsigned long smaller = std::min(m, n);
    if (work.size() < std::max(1ul, smaller + std::max(smaller, nrhs)))
        return judge(-10, flags);

    const int im = lapackInt(m), in = lapackInt(n), inrhs = lapackInt(nrhs), lda = leading(A), ldb = leading(B),
              lwork = lapackInt(work.size());
    int info = 0;
    dgels_("N", &im, &in, &inrhs, A.data(), &lda, B.data(), &ldb, work.data(), &lwork, &info, 1);
    if (info > 0 && !(flags & RaisePositive))
        B = nanValue<double>();
    return judge(info, flags, singularMatrix);
}

void leastSquaresQRResize(unsigned long m, unsigned long n, unsigned long nrhs, Array<double, 2>& A,
                          Array<double, 2>& B, Array<double, 1>& work)
{
    A.resize(m, n);
    B.resize(std::max(m, n), nrhs);
    const int im = lapackInt(m), in = lapackInt(n), inrhs = lapackInt(nrhs), lda = leading(A), ldb = leading(B),
              query = -1;
    int info = 0;
    double answer = 0.0;
    dgels_("N", &im, &in, &inrhs, A.data(), &lda, B.data(), &ldb, &answer, &query, &info, 1);
    work.resize(static_cast<unsigned long>(workSize(answer)));
}

#define QX_INSTANTIATE_RANK(T, N)                                                                                      \
    template int linsolvsolve<T, N>(const Array<T, 2>&, const Array<int, 1>&, Array<T, N>&, int);
#define QX_INSTANTIATE_RANK12(T, N)                                                                                    \
    QX_INSTANTIATE_RANK(T, N)                                                                                          \
    template int linsolv<T, N>(Array<T, 2>&, Array<T, N>&, int);                                                       \
    template int leastSquares<T, N>(Array<T, 2>&, const Array<T, N>&, Array<T, N>&, double, int);
#define QX_INSTANTIATE(T)                                                                                              \
    QX_INSTANTIATE_RANK12(T, 1)                                                                                        \
    QX_INSTANTIATE_RANK12(T, 2)                                                                                        \
    QX_INSTANTIATE_RANK(T, 3)                                                                                          \
    template int linsolvdecomp<T>(Array<T, 2>&, Array<int, 1>&);                                                       \
    template int lu<T>(Array<T, 2>&, Array<int, 1>&, int);                                                             \
    template int chol<T>(Array<T, 2>&, int);
QX_INSTANTIATE(double)
QX_INSTANTIATE(cplx)

} // namespace qxarray

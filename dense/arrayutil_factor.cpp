// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"

using namespace qxarray_detail;

namespace qxarray {

namespace {

template <class T>
void setIdentity(Array<T, 2>& A)
{
    A = T(0);
    for (unsigned long i = 0; i < std::min(A.extent(0), A.extent(1)); ++i)
        A(i, i) = T(1);
}

/// Sizes the result of one side of a singular value decomposition. Returns its leading dimension.
template <class T>
int resizeVectors(const char* job, Array<T, 2>& V, unsigned long rowsIfAll, unsigned long rowsIfSome,
                  unsigned long columnsIfAll, unsigned long columnsIfSome)
{
    if (isOption(job, "A"))
        V.resize(rowsIfAll, columnsIfAll);
    else if (isOption(job, "S"))
        V.resize(rowsIfSome, columnsIfSome);
    else
        return 1;
    return leading(V);
}

} // namespace

template <class T>
int qr(Array<T, 2>& A, Array<T, 1>& tau, int flags)
{
    const int m = rows(A), n = columns(A), lda = leading(A);
    tau.resize(static_cast<unsigned long>(std::min(m, n)));
    int info = 0;
    if (tau.size() != 0)
        withWorkspace<T>(std::max(m, n), [&](T* work, int lwork) {
            Lapack<T>::geqrf(&m, &n, A.data(), &lda, tau.data(), work, &lwork, &info);
        });
    return judge(info, flags);
}

template <class T>
int qr(Array<T, 2>& A, Array<T, 1>& tau, Array<int, 1>& jpvt, int flags)
{
    const int m = rows(A), n = columns(A), lda = leading(A);
    tau.resize(static_cast<unsigned long>(std::min(m, n)));
    jpvt.resize(A.extent(1));
    if (tau.size() == 0) {
        for (int j = 0; j < n; ++j)
            jpvt[static_cast<unsigned long>(j)] = j + 1;
        return 0;
    }
    jpvt = 0; // every column is free to move
    RealWork<T> rwork(2 * A.extent(1));
    int info = 0;
    withWorkspace<T>(std::max(m, n), [&](T* work, int lwork) {
        Lapack<T>::geqp3(&m, &n, A.data(), &lda, jpvt.data(), tau.data(), work, &lwork, rwork.data(), &info);
    });
    return judge(info, flags);
}

template <class T>
int qr(Array<T, 2>& A, Array<int, 1>& jpvt)
{
    Array<T, 1> tau;
    return qr(A, tau, jpvt, 0);
}

template <class T>
int q(Array<T, 2>& A, const Array<T, 1>& tau, int flags)
{
    if (A.extent(1) > A.extent(0))
        return judge(-2, flags);
    if (tau.size() > A.extent(1))
        return judge(-3, flags);
    const int m = rows(A), n = columns(A), k = lapackInt(tau.size()), lda = leading(A);
    int info = 0;
    if (A.size() != 0)
        withWorkspace<T>(std::max(m, n), [&](T* work, int lwork) {
            Lapack<T>::orgqr(&m, &n, &k, A.data(), &lda, tau.data(), work, &lwork, &info);
        });
    return judge(info, flags);
}

template <class T>
int svd(const char* jobu, const char* jobvt, Array<T, 2>& A, Array<T, 2>& U, Array<double, 1>& s, Array<T, 2>& VT,
        int flags)
{
    if (!isOption(jobu, "ASON"))
        return judge(-1, flags);
    if (!isOption(jobvt, "ASON") || (isOption(jobu, "O") && isOption(jobvt, "O")))
        return judge(-2, flags);
    if (!isFinite(A))
        return judge(-5, flags);

    const int m = rows(A), n = columns(A), lda = leading(A);
    const unsigned long k = std::min(A.extent(0), A.extent(1));
    s.resize(k);
    const int ldu = resizeVectors(jobu, U, A.extent(0), A.extent(0), A.extent(0), k);
    const int ldvt = resizeVectors(jobvt, VT, A.extent(1), k, A.extent(1), A.extent(1));
    if (k == 0) {
        if (isOption(jobu, "A"))
            setIdentity(U);
        if (isOption(jobvt, "A"))
            setIdentity(VT);
        return 0;
    }
    RealWork<T> rwork(5 * k);
    WithSpareColumn a(A), u(U), vt(VT);
    int info = 0;
    // The size of the work array shows where it takes what overwrites A: asked for whatever the dimension.
    const int dimension = isOption(jobu, "O") || isOption(jobvt, "O") ? INT_MAX : std::max(m, n);
    withSpareWorkspace<T>(dimension, a.spare(m, n), [&](T* work, int lwork) {
        Lapack<T>::gesvd(jobu, jobvt, &m, &n, a.data(), &lda, s.data(), u.data(), &ldu, vt.data(), &ldvt, work, &lwork,
                         rwork.data(), &info);
    });
    a.giveBack();
    u.giveBack();
    vt.giveBack();
    return judge(info, flags, svdFailed);
}

template <class T>
int svd(Array<T, 2>& A, Array<double, 1>& s, int flags)
{
    Array<T, 2> none;
    return svd("N", "N", A, none, s, none, flags);
}

template <class T>
int rank(const Array<T, 2>& A, double tol, double* limit)
{
    Array<T, 2> copy(A);
    Array<double, 1> s;
    svd(copy, s, RaisePositive | RaiseNegative);

    // limit = tol s_1 max(m, n)
    const double largest = s.size() == 0 ? 0.0 : s[0];
    const double bound = tol * largest * static_cast<double>(std::max(A.extent(0), A.extent(1)));
    if (limit != nullptr)
        *limit = bound;
    return static_cast<int>(std::count_if(s.begin(), s.end(), [bound](double value) { return value > bound; }));
}

#define QX_INSTANTIATE(T)                                                                                              \
    template int qr<T>(Array<T, 2>&, Array<T, 1>&, int);                                                               \
    template int qr<T>(Array<T, 2>&, Array<T, 1>&, Array<int, 1>&, int);                                               \
    template int qr<T>(Array<T, 2>&, Array<int, 1>&);                                                                  \
    template int q<T>(Array<T, 2>&, const Array<T, 1>&, int);                                                          \
    template int svd<T>(const char*, const char*, Array<T, 2>&, Array<T, 2>&, Array<double, 1>&, Array<T, 2>&, int);   \
    template int svd<T>(Array<T, 2>&, Array<double, 1>&, int);                                                         \
    template int rank<T>(const Array<T, 2>&, double, double*);
QX_INSTANTIATE(double)
QX_INSTANTIATE(cplx)

} // namespace qxarray

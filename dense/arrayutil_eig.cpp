// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "dense/qzretry_detail.hpp"

#include <cmath>

using namespace qxarray_detail;

namespace qxarray {

namespace {

/// Sizes the eigenvectors of one side if they are wanted. Returns the leading dimension.
template <class T>
int resizeVectors(const char* job, Array<T, 2>& V, unsigned long n)
{
    if (isOption(job, "V"))
        V.resize(n, n);
    return leading(V);
}

template <class T>
int standardEig(const char* jobvl, const char* jobvr, Array<T, 2>& A, typename Lapack<T>::Values w, Array<T, 2>& VL,
                Array<T, 2>& VR, int flags)
{
    const int n = rows(A), lda = leading(A);
    const int ldvl = resizeVectors(jobvl, VL, A.extent(0)), ldvr = resizeVectors(jobvr, VR, A.extent(0));
    if (n == 0)
        return 0;
    RealWork<T> rwork(2 * A.extent(0));
    int info = 0;
    withWorkspace<T>(n, [&](T* work, int lwork) {
        Lapack<T>::geev(jobvl, jobvr, &n, A.data(), &lda, w, VL.data(), &ldvl, VR.data(), &ldvr, work, &lwork,
                        rwork.data(), &info);
    });
    return judge(info, flags, qrFailed);
}

/// INFO for arguments of geev that do not fit, 0 if they do.
template <class T>
int checkStandard(const char* jobvl, const char* jobvr, const Array<T, 2>& A)
{
    if (!isOption(jobvl, "NV"))
        return -1;
    if (!isOption(jobvr, "NV"))
        return -2;
    return isSquare(A) && isFinite(A) ? 0 : -3;
}

template <class T>
bool fitsPencil(const Array<T, 2>& A, const Array<T, 2>& B)
{
    return isSquare(B) && B.extent(0) == A.extent(0) && isFinite(B);
}

template <class T>
int checkGeneralized(const char* jobvl, const char* jobvr, const Array<T, 2>& A, const Array<T, 2>& B)
{
    const int info = checkStandard(jobvl, jobvr, A);
    if (info != 0)
        return info;
    return fitsPencil(A, B) ? 0 : -7;
}

template <class T>
int generalizedEig(const char* jobvl, const char* jobvr, Array<T, 2>& A, Array<T, 2>& B,
                   typename Lapack<T>::Values alpha, Array<T, 1>& beta, Array<T, 2>& VL, Array<T, 2>& VR, int flags)
{
    constexpr bool retries = std::is_same_v<T, double>;
    const int n = rows(A), ld = leading(A);
    const int ldvl = resizeVectors(jobvl, VL, A.extent(0)), ldvr = resizeVectors(jobvr, VR, A.extent(0));
    if (n == 0)
        return 0;
    Array<T, 2> savedA, savedB;
    if (retries) {
        savedA = A;
        savedB = B;
    }
    RealWork<T> rwork(8 * A.extent(0));
    int info = 0;
    withWorkspace<T>(n, [&](T* work, int lwork) {
        Lapack<T>::ggev(jobvl, jobvr, &n, A.data(), &ld, B.data(), &ld, alpha, beta.data(), VL.data(), &ldvl,
                        VR.data(), &ldvr, work, &lwork, rwork.data(), &info);
        if constexpr (retries)
            if (info > 0)
                info = retryQZ(info,
                               DggevCall{jobvl, jobvr, n, A.data(), B.data(), alpha.re, alpha.im, beta.data(),
                                         VL.data(), ldvl, VR.data(), ldvr, work, lwork},
                               savedA.data(), savedB.data());
    });
    return judge(info, flags, qzFailed);
}

/// A call for withWorkspace. A = Q H Q^H: H, with the reflectors below it in A and their factors in tau.
template <class T>
auto hessenbergCall(Array<T, 2>& A, Array<T, 1>& tau)
{
    return [&](T* work, int lwork) {
        const int n = rows(A), first = 1;
        int info = 0;
        Lapack<T>::gehrd(&n, &first, &n, A.data(), &n, tau.data(), work, &lwork, &info);
    };
}

/// A call for withWorkspace. Q, of the size of A, = the product of the reflectors below the first subdiagonal of A.
template <class T>
auto hessenbergQCall(const Array<T, 2>& A, const Array<T, 1>& tau, Array<T, 2>& Q)
{
    return [&](T* work, int lwork) {
        const int n = rows(A), first = 1;
        int info = 0;
        if (lwork != workQuery)
            std::copy_n(A.data(), A.size(), Q.data());
        Lapack<T>::orghr(&n, &first, &n, Q.data(), &n, tau.data(), work, &lwork, &info);
    };
}

/// Zeros below the given subdiagonal: 0 keeps the upper triangle, 1 the Hessenberg form.
template <class T>
void clearBelow(Array<T, 2>& A, unsigned long subdiagonal)
{
    for (unsigned long j = 0; j < A.extent(1); ++j)
        for (unsigned long i = j + subdiagonal + 1; i < A.extent(0); ++i)
            A(i, j) = T(0);
}

/// A = Q T Q^H with eigenvalues in w.
template <class T>
int schurForm(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ, typename Lapack<T>::Values w)
{
    const int n = rows(A), first = 1;
    if (wantQ)
        Q.resize(A.extent(0), A.extent(0));
    if (n == 0)
        return 0;
    Array<T, 1> tau(n);
    int info = 0;
    const auto iteration = [&](T* work, int lwork) {
        Lapack<T>::hseqr("S", wantQ ? "V" : "N", &n, &first, &n, A.data(), &n, w, wantQ ? Q.data() : nullptr, &n, work,
                         &lwork, &info);
    };
    if (wantQ)
        withWorkspace<T>(n, hessenbergCall(A, tau), hessenbergQCall(A, tau, Q), iteration);
    else
        withWorkspace<T>(n, hessenbergCall(A, tau), iteration);
    return info;
}

template <class T>
int reorderSchur(Array<T, 2>& Tri, Array<T, 2>& Q, const Array<int, 1>& select, typename Lapack<T>::Values w)
{
    const int n = rows(Tri), ldt = leading(Tri), ldq = leading(Q);
    Array<int, 1> chosen(n);
    for (unsigned long i = 0; i < chosen.size(); ++i)
        chosen[i] = select[i] != 0;
    Array<T, 1> work(n);
    int info = 0;
    Lapack<T>::trsen(Q.size() == 0 ? "N" : "V", chosen.data(), &n, Tri.data(), &ldt, Q.data(), &ldq, w, work.data(),
                     &info);
    return info;
}

/// Calls f with a place for n eigenvalues that nobody will read.
template <class T, class F>
int withDiscardedValues(unsigned long n, F f)
{
    if constexpr (std::is_same_v<T, double>) {
        Array<double, 1> re(n), im(n);
        return f(Lapack<double>::Values{re.data(), im.data()});
    } else {
        Array<cplx, 1> z(n);
        return f(Lapack<cplx>::Values{z.data()});
    }
}

template <class T>
bool isUpperTriangular(const Array<T, 2>& A)
{
    for (unsigned long j = 0; j < A.extent(1); ++j)
        for (unsigned long i = j + 1; i < A.extent(0); ++i)
            if (A(i, j) != T(0))
                return false;
    return true;
}

/// B = Q R by QR; R replaces B, Q^H A replaces A.
template <class T>
void triangularizeB(Array<T, 2>& A, Array<T, 2>& B, Array<T, 2>& Q)
{
    const int n = rows(A);
    Array<T, 1> tau(n);
    int info = 0;
    withWorkspace<T>(
        n, [&](T* work, int lwork) { Lapack<T>::geqrf(&n, &n, B.data(), &n, tau.data(), work, &lwork, &info); },
        [&](T* work, int lwork) {
            Lapack<T>::ormqr("L", Lapack<T>::adjointLetter, &n, &n, &n, B.data(), &n, tau.data(), A.data(), &n, work,
                             &lwork, &info, 1, 1);
        },
        [&](T* work, int lwork) {
            if (lwork != workQuery)
                std::copy_n(B.data(), B.size(), Q.data());
            Lapack<T>::orgqr(&n, &n, &n, Q.data(), &n, tau.data(), work, &lwork, &info);
        });
    clearBelow(B, 0);
}

/// Companion matrix of the polynomial without its leading zeros: order 0 for a constant.
template <class T>
Array<T, 2> companion(const Array<T, 1>& c)
{
    unsigned long first = 0;
    while (first < c.size() && c[first] == T(0))
        ++first;
    const unsigned long n = first + 1 < c.size() ? c.size() - first - 1 : 0;
    Array<T, 2> A(n, n);
    A = T(0);
    for (unsigned long j = 0; j < n; ++j)
        A(0, j) = -c[first + 1 + j] / c[first];
    for (unsigned long j = 0; j + 1 < n; ++j)
        A(j + 1, j) = T(1);
    return A;
}

} // namespace

int eig(const char* jobvl, const char* jobvr, Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi,
        Array<double, 2>& VL, Array<double, 2>& VR, int flags)
{
    if (const int info = checkStandard(jobvl, jobvr, A))
        return judge(info, flags);
    wr.resize(A.extent(0));
    wi.resize(A.extent(0));
    return standardEig(jobvl, jobvr, A, {wr.data(), wi.data()}, VL, VR, flags);
}

int eig(Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi, int flags)
{
    Array<double, 2> none;
    return eig("N", "N", A, wr, wi, none, none, flags);
}

int eig(const char* jobvl, const char* jobvr, Array<cplx, 2>& A, Array<cplx, 1>& w, Array<cplx, 2>& VL,
        Array<cplx, 2>& VR, int flags)
{
    if (const int info = checkStandard(jobvl, jobvr, A))
        return judge(info, flags);
    w.resize(A.extent(0));
    return standardEig(jobvl, jobvr, A, {w.data()}, VL, VR, flags);
}

int eig(Array<cplx, 2>& A, Array<cplx, 1>& w, int flags)
{
    Array<cplx, 2> none;
    return eig("N", "N", A, w, none, none, flags);
}

int eig(const char* jobvl, const char* jobvr, Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar,
        Array<double, 1>& alphai, Array<double, 1>& beta, Array<double, 2>& VL, Array<double, 2>& VR, int flags)
{
    if (const int info = checkGeneralized(jobvl, jobvr, A, B))
        return judge(info, flags);
    alphar.resize(A.extent(0));
    alphai.resize(A.extent(0));
    beta.resize(A.extent(0));
    return generalizedEig(jobvl, jobvr, A, B, {alphar.data(), alphai.data()}, beta, VL, VR, flags);
}

int eig(Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar, Array<double, 1>& alphai,
        Array<double, 1>& beta, int flags)
{
    Array<double, 2> none;
    return eig("N", "N", A, B, alphar, alphai, beta, none, none, flags);
}

int eig(const char* jobvl, const char* jobvr, Array<cplx, 2>& A, Array<cplx, 2>& B, Array<cplx, 1>& alpha,
        Array<cplx, 1>& beta, Array<cplx, 2>& VL, Array<cplx, 2>& VR, int flags)
{
    if (const int info = checkGeneralized(jobvl, jobvr, A, B))
        return judge(info, flags);
    alpha.resize(A.extent(0));
    beta.resize(A.extent(0));
    return generalizedEig(jobvl, jobvr, A, B, {alpha.data()}, beta, VL, VR, flags);
}

int eig(Array<cplx, 2>& A, Array<cplx, 2>& B, Array<cplx, 1>& alpha, Array<cplx, 1>& beta, int flags)
{
    Array<cplx, 2> none;
    return eig("N", "N", A, B, alpha, beta, none, none, flags);
}

int eig(Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar, Array<double, 1>& alphai,
        Array<double, 1>& beta, double* abnrm, double* bbnrm, Array<double, 1>& rconde, int flags)
{
    if (!isSquare(A) || !isFinite(A))
        return judge(-6, flags);
    if (!fitsPencil(A, B))
        return judge(-8, flags);
    for (Array<double, 1>* result : {&alphar, &alphai, &beta, &rconde})
        result->resize(A.extent(0));
    *abnrm = *bbnrm = 0.0;
    const int n = rows(A), ld = leading(A), one = 1;
    if (n == 0)
        return 0;

    const Array<double, 2> savedA(A), savedB(B);
    Array<double, 1> lscale(n), rscale(n);
    Array<int, 1> iwork(A.extent(0) + 6), bwork(n);
    int ilo = 0, ihi = 0, info = 0;
    withWorkspace<double>(n, [&](double* work, int lwork) {
        dggevx_("B", "N", "N", "E", &n, A.data(), &ld, B.data(), &ld, alphar.data(), alphai.data(), beta.data(),
                nullptr, &one, nullptr, &one, &ilo, &ihi, lscale.data(), rscale.data(), abnrm, bbnrm, rconde.data(),
                nullptr, work, &lwork, iwork.data(), bwork.data(), &info, 1, 1, 1, 1);
        if (info > 0)
            info = retryQZ(info,
                           DggevxCall{n, A.data(), B.data(), alphar.data(), alphai.data(), beta.data(), &ilo, &ihi,
                                      lscale.data(), rscale.data(), abnrm, bbnrm, rconde.data(), work, lwork,
                                      iwork.data(), bwork.data()},
                           savedA.data(), savedB.data());
    });
    // 0/0: the pencil is singular, and any perturbation moves the eigenvalue anywhere. LAPACK leaves -1, NaN or the norm.
    for (unsigned long j = 0; j < rconde.size(); ++j)
        if ((alphar[j] == 0.0 && alphai[j] == 0.0 && beta[j] == 0.0) || !(rconde[j] >= 0.0))
            rconde[j] = 0.0;
    return judge(info, flags, qzFailed);
}

int eig(Array<double, 1>& AP, Array<double, 1>& w, Array<double, 2>& Z, const char* jobz, const char* range,
        const char* uplo, double vl, double vu, int il, int iu, double abstol, Array<int, 1>& ifail)
{
    // n (n + 1) / 2 elements
    unsigned long n = 0;
    while (n * (n + 1) / 2 < AP.size())
        ++n;
    if (!isOption(jobz, "NV"))
        return -1;
    if (!isOption(range, "AVI"))
        return -2;
    if (!isOption(uplo, "UL"))
        return -3;
    if (n * (n + 1) / 2 != AP.size())
        return -4;
    if (!isFinite(AP))
        return -5;
    if (n != 0 && isOption(range, "V") && !(vl < vu))
        return -7;
    if (isOption(range, "I") && (il < 1 || il > std::max(1, lapackInt(n))))
        return -8;
    if (isOption(range, "I") && (iu < std::min(lapackInt(n), il) || iu > lapackInt(n)))
        return -9;

    const bool vectors = isOption(jobz, "V");
    const unsigned long most = !isOption(range, "I") ? n : n == 0 ? 0 : static_cast<unsigned long>(iu - il + 1);
    Array<double, 1> values(n), work(8 * n);
    Array<double, 2> columns(vectors ? n : 0, vectors ? most : 0);
    Array<int, 1> iwork(5 * n), failed(n);
    failed = 0;
    Array<double, 1> packed(AP); // AP itself stays until everything has succeeded
    int found = 0, info = 0;
    const int order = lapackInt(n), ldz = leading(columns);
    if (n != 0)
        dspevx_(jobz, range, uplo, &order, packed.data(), &vl, &vu, &il, &iu, &abstol, &found, values.data(),
                columns.data(), &ldz, work.data(), iwork.data(), failed.data(), &info, 1, 1, 1);

    const auto count = static_cast<unsigned long>(found);
    Array<double, 1> foundValues(count);
    Array<double, 2> foundColumns(n, vectors ? count : 0);
    Array<int, 1> foundFailures(vectors ? count : 0);
    std::copy_n(values.data(), count, foundValues.data());
    std::copy_n(columns.data(), foundColumns.size(), foundColumns.data());
    std::copy_n(failed.data(), foundFailures.size(), foundFailures.data());
    AP.swap(packed);
    w.swap(foundValues);
    if (vectors) {
        Z.swap(foundColumns);
        ifail.swap(foundFailures);
    }
    return info;
}

template <class T>
int schur(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ)
{
    if (!isSquare(A) || !isFinite(A))
        return -1;
    return withDiscardedValues<T>(A.extent(0), [&](auto w) { return schurForm(A, Q, wantQ, w); });
}

template <class T>
int ordschur(Array<T, 2>& Tri, Array<T, 2>& Q, const Array<int, 1>& select)
{
    if (select.size() < Tri.extent(0))
        return -3;
    if (!isSquare(Tri))
        return -4;
    if (Q.size() != 0 && (!isSquare(Q) || Q.extent(0) != Tri.extent(0)))
        return -8;
    if (Tri.size() == 0)
        return 0;
    return withDiscardedValues<T>(Tri.extent(0), [&](auto w) { return reorderSchur(Tri, Q, select, w); });
}

template <class T>
int hess(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ)
{
    if (!isSquare(A))
        return -1;
    if (wantQ)
        Q.resize(A.extent(0), A.extent(0));
    if (A.size() == 0)
        return 0;
    Array<T, 1> tau(A.extent(0));
    if (wantQ)
        withWorkspace<T>(rows(A), hessenbergCall(A, tau), hessenbergQCall(A, tau, Q));
    else
        withWorkspace<T>(rows(A), hessenbergCall(A, tau));
    clearBelow(A, 1);
    return 0;
}

template <class T>
int generalizedHess(Array<T, 2>& A, Array<T, 2>& B, Array<T, 2>& Q, Array<T, 2>& Z)
{
    if (!isSquare(A))
        return -3;
    if (!isSquare(B) || B.extent(0) != A.extent(0))
        return -9;
    Q.resize(A.extent(0), A.extent(0));
    Z.resize(A.extent(0), A.extent(0));
    if (A.size() == 0)
        return 0;

    const int n = rows(A), ld = leading(A), first = 1;
    const bool triangular = isUpperTriangular(B);
    if (!triangular)
        triangularizeB(A, B, Q);
    int info = 0;
    Lapack<T>::gghrd(triangular ? "I" : "V", "I", &n, &first, &n, A.data(), &ld, B.data(), &ld, Q.data(), &ld,
                     Z.data(), &ld, &info, 1, 1);
    return info;
}

int roots(const Array<double, 1>& coefficients, Array<double, 1>& zr, Array<double, 1>& zi, int flags)
{
    Array<double, 2> A = companion(coefficients);
    return eig(A, zr, zi, flags);
}

int roots(const Array<cplx, 1>& coefficients, Array<cplx, 1>& z, int flags)
{
    Array<cplx, 2> A = companion(coefficients);
    return eig(A, z, flags);
}

#define QX_INSTANTIATE(T)                                                                                              \
    template int schur<T>(Array<T, 2>&, Array<T, 2>&, bool);                                                           \
    template int ordschur<T>(Array<T, 2>&, Array<T, 2>&, const Array<int, 1>&);                                        \
    template int hess<T>(Array<T, 2>&, Array<T, 2>&, bool);                                                            \
    template int generalizedHess<T>(Array<T, 2>&, Array<T, 2>&, Array<T, 2>&, Array<T, 2>&);
QX_INSTANTIATE(double)
QX_INSTANTIATE(cplx)

} // namespace qxarray

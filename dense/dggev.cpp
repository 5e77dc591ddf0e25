// SPDX-License-Identifier: LicenseRef-qxkernel
// Drivers around the QZ iteration: scaling, balancing, reduction, eigenvectors, condition numbers.

#include "dense/arrayutil_detail.hpp"
#include "dense/qz_detail.hpp"
#include "qzmod.hpp"

#include <algorithm>
#include <cmath>

using namespace qxarray_detail;

namespace {

/// A matrix whose largest entry is very small or very large is scaled to one that is not.
class Scaling
{
public:
    Scaling(int n, double* a, int lda)
    {
        const double precision = dlamch_("P", 1), small = std::sqrt(dlamch_("S", 1)) / precision, big = 1.0 / small;
        double none;
        const double norm = dlange_("M", &n, &n, a, &lda, &none, 1);
        if (norm > 0.0 && norm < small)
            to_ = small;
        else if (norm > big)
            to_ = big;
        if (isOn()) {
            from_ = norm;
            scale("G", from_, to_, n, n, a, lda);
        }
    }
    bool isOn() const { return to_ != 0.0; }
    /// Takes the scaling back from a vector of n numbers, or from one number.
    void undo(double* x, int n) const
    {
        if (isOn())
            scale("G", to_, from_, n, 1, x, std::max(1, n));
    }

private:
    static void scale(const char* type, double from, double to, int m, int n, double* x, int ld)
    {
        const int zero = 0;
        int info;
        dlascl_(type, &zero, &zero, &from, &to, &m, &n, x, &ld, &info, 1);
    }
    double from_ = 0.0, to_ = 0.0;
};

/// A pencil (A, B) of order n with the bases that are wanted; indices ilo and ihi from 1, as LAPACK counts.
struct Pencil
{
    int n;
    double* a;
    int lda;
    double* b;
    int ldb;
    double* vl;
    int ldvl;
    double* vr;
    int ldvr;
    bool left, right;

    bool vectors() const { return left || right; }
    double* at(double* m, int ld, int i, int j) const { return m + (i - 1) + std::ptrdiff_t(ld) * (j - 1); }
};

void setTo(const char* uplo, int m, int n, double offDiagonal, double diagonal, double* a, int lda)
{
    dlaset_(uplo, &m, &n, &offDiagonal, &diagonal, a, &lda, 1);
}

/// To Hessenberg-triangular form between ilo and ihi. whole: all columns take part, as a Schur form needs; otherwise the
/// block alone. work holds the factors of reflectors first.
void reduce(const Pencil& p, int ilo, int ihi, bool whole, double* work, int lwork)
{
    const int rows = ihi + 1 - ilo, columns = whole ? p.n + 1 - ilo : rows, rest = lwork - rows;
    double *const tau = work, *const space = work + rows;
    double *const bBlock = p.at(p.b, p.ldb, ilo, ilo), *const aBlock = p.at(p.a, p.lda, ilo, ilo);
    int info = 0;
    if (rows > 0) {
        Lapack<double>::geqrf(&rows, &columns, bBlock, &p.ldb, tau, space, &rest, &info);
        Lapack<double>::ormqr("L", "T", &rows, &columns, &rows, bBlock, &p.ldb, tau, aBlock, &p.lda, space, &rest, &info, 1,
                              1);
    }
    if (p.left) {
        setTo("F", p.n, p.n, 0.0, 1.0, p.vl, p.ldvl);
        double* const block = p.at(p.vl, p.ldvl, ilo, ilo);
        if (rows > 1) {
            const int below = rows - 1;
            dlacpy_("L", &below, &below, bBlock + 1, &p.ldb, block + 1, &p.ldvl, 1);
        }
        if (rows > 0)
            Lapack<double>::orgqr(&rows, &rows, &rows, block, &p.ldvl, tau, space, &rest, &info);
    }
    if (p.right)
        setTo("F", p.n, p.n, 0.0, 1.0, p.vr, p.ldvr);
    if (whole) {
        Lapack<double>::gghrd(p.left ? "V" : "N", p.right ? "V" : "N", &p.n, &ilo, &ihi, p.a, &p.lda, p.b, &p.ldb, p.vl,
                              &p.ldvl, p.vr, &p.ldvr, &info, 1, 1);
    } else {
        const int one = 1;
        Lapack<double>::gghrd("N", "N", &rows, &one, &rows, aBlock, &p.lda, bBlock, &p.ldb, p.vl, &p.ldvl, p.vr, &p.ldvr,
                              &info, 1, 1);
    }
}

/// The QZ iteration. INFO as the drivers report it: 0, the row up to which eigenvalues failed, or n + 1.
int iterate(const Pencil& p, bool schur, int ilo, int ihi, double* alphar, double* alphai, double* beta, double* work,
            int lwork, double shiftScale)
{
    int info;
    dhgeqz_mod(schur ? "S" : "E", p.left ? "V" : "N", p.right ? "V" : "N", &p.n, &ilo, &ihi, p.a, &p.lda, p.b, &p.ldb, alphar,
               alphai, beta, p.vl, &p.ldvl, p.vr, &p.ldvr, work, &lwork, &info, shiftScale);
    return info > 2 * p.n ? p.n + 1 : info > p.n ? info - p.n : info;
}

/// Eigenvectors of the Schur form, times the bases. False if that fails.
bool backSubstitute(const Pencil& p, double* work)
{
    int found, info;
    dtgevc_(p.left && p.right ? "B" : p.left ? "L" : "R", "B", nullptr, &p.n, p.a, &p.lda, p.b, &p.ldb, p.vl, &p.ldvl, p.vr,
            &p.ldvr, &p.n, &found, work, &info, 1, 1);
    return info == 0;
}

/// Takes balancing back and gives every vector, real or of a pair of columns, a largest component of |re| + |im| = 1.
void finishVectors(const char* balance, const char* side, int n, int ilo, int ihi, const double* lscale, const double* rscale,
                   const double* alphai, double* v, int ldv)
{
    int info;
    dggbak_(balance, side, &n, &ilo, &ihi, lscale, rscale, &n, v, &ldv, &info, 1, 1);
    const double tiny = std::sqrt(dlamch_("S", 1)) / dlamch_("P", 1);
    for (int j = 0; j < n; ++j) {
        if (alphai[j] < 0.0)
            continue; // belongs to the column before
        const bool pair = alphai[j] != 0.0 && j + 1 < n;
        double *re = v + std::ptrdiff_t(ldv) * j, *im = re + ldv;
        double largest = 0.0;
        for (int i = 0; i < n; ++i)
            largest = std::max(largest, std::fabs(re[i]) + (pair ? std::fabs(im[i]) : 0.0));
        if (largest < tiny)
            continue;
        const double factor = 1.0 / largest;
        for (int i = 0; i < n; ++i) {
            re[i] *= factor;
            if (pair)
                im[i] *= factor;
        }
    }
}

int blockSize(const char* routine, int n, int n4)
{
    const int one = 1, which = 1;
    return ilaenv_(&which, routine, " ", &n, &one, &n, &n4, 6, 1);
}

/// base + factor n for the routine that gains most from it.
int bestWork(int n, int extra, bool left)
{
    int most = n * (extra + blockSize("DGEQRF", n, 0));
    most = std::max(most, n * (extra + blockSize("DORMQR", n, 0)));
    if (left)
        most = std::max(most, n * (extra + blockSize("DORGQR", n, -1)));
    return most;
}

} // namespace

extern "C" void dggev_mod(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* b,
                          const int* ldb, double* alphar, double* alphai, double* beta, double* vl, const int* ldvl, double* vr,
                          const int* ldvr, double* work, const int* lwork, int* info, double shiftScale)
{
    const bool left = isOption(jobvl, "V"), right = isOption(jobvr, "V");
    const int least = std::max(1, 8 * *n);
    *info = !isOption(jobvl, "NV")                 ? -1
            : !isOption(jobvr, "NV")               ? -2
            : *n < 0                               ? -3
            : *lda < std::max(1, *n)               ? -5
            : *ldb < std::max(1, *n)               ? -7
            : *ldvl < 1 || (left && *ldvl < *n)    ? -12
            : *ldvr < 1 || (right && *ldvr < *n)   ? -14
            : *lwork < least && *lwork != workQuery ? -16
                                                   : 0;
    if (*info != 0) {
        reportArgument("DGGEV", *info);
        return;
    }
    const int best = std::max(least, bestWork(*n, 7, left));
    work[0] = best;
    if (*lwork == workQuery || *n == 0)
        return;

    const Pencil p{*n, a, *lda, b, *ldb, vl, *ldvl, vr, *ldvr, left, right};
    const Scaling scaleA(p.n, a, *lda), scaleB(p.n, b, *ldb);
    int ilo, ihi, unused;
    double *const lscale = work, *const rscale = work + p.n, *const rest = work + 2 * p.n;
    const int restSize = *lwork - 2 * p.n;
    dggbal_("P", &p.n, a, lda, b, ldb, &ilo, &ihi, lscale, rscale, rest, &unused, 1);
    reduce(p, ilo, ihi, p.vectors(), rest, restSize);

    // For eigenvalues alone the whole of a balanced pencil is iterated on as well: rows outside ilo..ihi are triangular.
    *info = iterate(p, p.vectors(), ilo, ihi, alphar, alphai, beta, rest, restSize, shiftScale);
    if (*info == 0 && p.vectors()) {
        if (!backSubstitute(p, rest))
            *info = p.n + 2;
        else {
            if (left)
                finishVectors("P", "L", p.n, ilo, ihi, lscale, rscale, alphai, vl, *ldvl);
            if (right)
                finishVectors("P", "R", p.n, ilo, ihi, lscale, rscale, alphai, vr, *ldvr);
        }
    }
    scaleA.undo(alphar, p.n);
    scaleA.undo(alphai, p.n);
    scaleB.undo(beta, p.n);
    work[0] = best;
}

extern "C" void dggevx_mod(const char* balanc, const char* jobvl, const char* jobvr, const char* sense, const int* n, double* a,
                           const int* lda, double* b, const int* ldb, double* alphar, double* alphai, double* beta, double* vl,
                           const int* ldvl, double* vr, const int* ldvr, int* ilo, int* ihi, double* lscale, double* rscale,
                           double* abnrm, double* bbnrm, double* rconde, double* rcondv, double* work, const int* lwork,
                           int* iwork, int* bwork, int* info, double shiftScale)
{
    const bool left = isOption(jobvl, "V"), right = isOption(jobvr, "V"), vectors = left || right;
    const bool unscaled = isOption(balanc, "NP"), conditions = !isOption(sense, "N");
    int least = 1;
    if (*n > 0) {
        least = unscaled && !vectors ? 2 * *n : 6 * *n;
        if (isOption(sense, "E"))
            least = 10 * *n;
        else if (isOption(sense, "VB"))
            least = 2 * *n * (*n + 4) + 16;
    }
    *info = !isOption(balanc, "NPSB")              ? -1
            : !isOption(jobvl, "NV")               ? -2
            : !isOption(jobvr, "NV")               ? -3
            : !isOption(sense, "NEVB")             ? -4
            : *n < 0                               ? -5
            : *lda < std::max(1, *n)               ? -7
            : *ldb < std::max(1, *n)               ? -9
            : *ldvl < 1 || (left && *ldvl < *n)    ? -14
            : *ldvr < 1 || (right && *ldvr < *n)   ? -16
            : *lwork < least && *lwork != workQuery ? -26
                                                   : 0;
    if (*info != 0) {
        reportArgument("DGGEVX", *info);
        return;
    }
    const int best = std::max(least, bestWork(*n, 1, left));
    work[0] = best;
    if (*lwork == workQuery || *n == 0)
        return;

    const Pencil p{*n, a, *lda, b, *ldb, vl, *ldvl, vr, *ldvr, left, right};
    const Scaling scaleA(p.n, a, *lda), scaleB(p.n, b, *ldb);
    int unused;
    dggbal_(balanc, &p.n, a, lda, b, ldb, ilo, ihi, lscale, rscale, work, &unused, 1);
    *abnrm = dlange_("1", &p.n, &p.n, a, lda, work, 1);
    scaleA.undo(abnrm, 1);
    *bbnrm = dlange_("1", &p.n, &p.n, b, ldb, work, 1);
    scaleB.undo(bbnrm, 1);

    const bool whole = vectors || conditions;
    reduce(p, *ilo, *ihi, whole, work, *lwork);
    *info = iterate(p, whole, *ilo, *ihi, alphar, alphai, beta, work, *lwork, shiftScale);

    if (*info == 0 && vectors && !backSubstitute(p, work))
        *info = p.n + 2;
    // Condition numbers of one eigenvalue, or one pair, at a time: its vectors fit in the work array.
    for (int i = 0; *info == 0 && conditions && i < p.n;) {
        const int count = i + 1 < p.n && *(a + (i + 1) + std::ptrdiff_t(*lda) * i) != 0.0 ? 2 : 1;
        for (int j = 0; j < p.n; ++j)
            bwork[j] = j >= i && j < i + count;
        double *const y = work, *const x = y + std::ptrdiff_t(count) * p.n, *const rest = x + std::ptrdiff_t(count) * p.n;
        const int restSize = *lwork - 2 * count * p.n;
        int found, failed = 0;
        if (isOption(sense, "EB"))
            dtgevc_("B", "S", bwork, &p.n, a, lda, b, ldb, y, &p.n, x, &p.n, &count, &found, rest, &failed, 1, 1);
        if (failed != 0) {
            *info = p.n + 2;
            break;
        }
        dtgsna_(sense, "S", bwork, &p.n, a, lda, b, ldb, y, &p.n, x, &p.n, rconde + i, rcondv ? rcondv + i : nullptr, &count,
                &found, rest, &restSize, iwork, &unused, 1, 1);
        i += count;
    }
    if (*info == 0 && left)
        finishVectors(balanc, "L", p.n, *ilo, *ihi, lscale, rscale, alphai, vl, *ldvl);
    if (*info == 0 && right)
        finishVectors(balanc, "R", p.n, *ilo, *ihi, lscale, rscale, alphai, vr, *ldvr);
    scaleA.undo(alphar, p.n);
    scaleA.undo(alphai, p.n);
    scaleB.undo(beta, p.n);
    work[0] = best;
}

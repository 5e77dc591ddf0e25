// SPDX-License-Identifier: LicenseRef-qxkernel
// Members that drop, merge or move entries, and the conversions between summand form and triangles.

#include "sparse_detail.hpp"

#include "diagnostic.hpp"
#include "team.hpp"

#include <algorithm>

namespace {

using namespace qxsparse;

/// Compacts the entries that keep(j, p) lets stay and rewrites the offsets. It may change values, and read columns
/// before j in their new place. Structure changes: new version, no diagonal form.
template <class T, class Keep>
void compact(llsparse<T>& s, const Keep& keep)
{
    s.rowColptrVersion = llsparse<T>::getNewRowColptrVersion();
    s.releaseDiag();
    unsigned long from = 0, end = 0;
    for (unsigned long j = 0; j < s.n; ++j) {
        const unsigned long to = s.colPtr[j + 1];
        for (unsigned long p = from; p < to; ++p)
            if (keep(j, p)) {
                s.row[end] = s.row[p];
                s.val[end++] = s.val[p];
            }
        from = to;
        s.colPtr[j + 1] = end;
    }
}

template <class T>
void dropSmall(llsparse<T>& s, double tol)
{
    if (!(tol > 0.0)) {
        compact(s, [&](unsigned long, unsigned long p) { return s.val[p] != T(0.0); });
        return;
    }
    const Scratch<double> limit(s.n);
    for (unsigned long j = 0; j < s.n; ++j) {
        double largest = 0.0;
        for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p)
            if (const double a = magnitude(s.val[p]); a > largest)
                largest = a;
        limit[j] = largest * tol;
    }
    compact(s, [&](unsigned long j, unsigned long p) { return magnitude(s.val[p]) > limit[j]; });
}

template <class T>
void mergeMirrors(llsparse<T>& s)
{
    compact(s, [&](unsigned long j, unsigned long p) {
        const unsigned long i = s.row[p];
        if (i >= j)
            return true;
        const unsigned long *begin = s.row + s.colPtr[i], *end = s.row + s.colPtr[i + 1];
        const unsigned long* mirror = s.form & FormSorted ? std::lower_bound(begin, end, j) : std::find(begin, end, j);
        if (mirror == end || *mirror != j)
            return true;
        s.val[mirror - s.row] += s.symm == Hermitian ? qxsparse::conjugate(s.val[p]) : s.val[p];
        return false;
    });
}

template <class T>
void keepLowerTriangle(llsparse<T>& s)
{
    compact(s, [&](unsigned long j, unsigned long p) {
        if (s.row[p] == j)
            s.val[p] = mul(0.5, s.val[p]);
        return s.row[p] >= j;
    });
}

/// Sorted columns: sums runs of equal rows, drops sums of zero.
template <class T>
void mergeRuns(llsparse<T>& s)
{
    s.rowColptrVersion = llsparse<T>::getNewRowColptrVersion();
    unsigned long p = 0, end = 0;
    for (unsigned long j = 0; j < s.n; ++j) {
        const unsigned long to = s.colPtr[j + 1];
        while (p < to) {
            const unsigned long i = s.row[p];
            T sum = s.val[p++];
            for (; p < to && s.row[p] == i; ++p)
                sum += s.val[p];
            if (sum != T(0.0)) {
                s.row[end] = i;
                s.val[end++] = sum;
            }
        }
        s.colPtr[j + 1] = end;
    }
    if (s.form & FormDiag)
        s.locateDiagonals();
}

/// Number of stored columns that are not empty.
template <class T>
unsigned long usedColumns(const llsparse<T>& s)
{
    unsigned long used = 0;
    for (unsigned long j = 0; j < s.n; ++j)
        used += s.colPtr[j + 1] > s.colPtr[j];
    return used;
}

template <class T>
void dropEmptyStoredColumns(llsparse<T>& s)
{
    unsigned long used = 0;
    for (unsigned long j = 0; j < s.n; ++j)
        if (s.colPtr[j + 1] > s.colPtr[used]) // colPtr[used] is where the last column kept ends
            s.colPtr[++used] = s.colPtr[j + 1];
    s.n = used;
}

template <class T>
void dropEmptyStoredRows(llsparse<T>& s)
{
    const Scratch<unsigned long> rank(s.m);
    std::fill_n(rank.get(), s.m, 0UL);
    for (unsigned long p = 0; p < s.nnz(); ++p)
        rank[s.row[p]] = 1;
    unsigned long used = 0;
    for (unsigned long i = 0; i < s.m; ++i)
        rank[i] = rank[i] ? used++ : 0;
    for (unsigned long p = 0; p < s.nnz(); ++p)
        s.row[p] = rank[s.row[p]];
    s.m = used;
}

/// Columns of the triangle: a diagonal slot in front, entries below the diagonal in their column, those above it
/// mirrored into the column of their row.
template <class T>
void lowerTriangle(const llsparse<T>& a, llsparse<T>& t)
{
    t.m = a.m;
    t.n = a.n;
    t.symm = a.symm;
    t.form = FormNone;
    t.allocColPtr();
    t.colPtr[0] = 0;
    std::fill_n(t.colPtr + 1, t.n, 1UL);
    const auto walk = [&](const auto& f) {
        for (unsigned long j = 0; j < a.n; ++j)
            for (unsigned long p = a.colPtr[j]; p < a.colPtr[j + 1]; ++p)
                f(a.row[p], j, p);
    };
    walk([&](unsigned long i, unsigned long j, unsigned long) {
        if (i != j)
            ++t.colPtr[std::min(i, j) + 1];
    });
    runningSum(t.colPtr, t.n);
    t.nzmax = t.nnz();
    t.allocRow();
    t.allocVal();
    const Scratch<unsigned long> next(t.n);
    for (unsigned long j = 0; j < t.n; ++j) {
        next[j] = t.colPtr[j] + 1;
        t.row[t.colPtr[j]] = j;
        t.val[t.colPtr[j]] = T(0.0);
    }
    walk([&](unsigned long i, unsigned long j, unsigned long p) {
        if (i == j) {
            t.val[t.colPtr[j]] += mul(0.5, a.val[p]);
            return;
        }
        const bool mirrored = i < j;
        const unsigned long q = next[std::min(i, j)]++;
        t.row[q] = std::max(i, j);
        t.val[q] = mirrored && a.symm == Hermitian ? qxsparse::conjugate(a.val[p]) : a.val[p];
    });
}

} // namespace

void Sparse::truncateCols(double tol)
{
    guarded([&] {
        if (!hasUniqueData())
            qxbase::diagnosticLine("Warning: truncateCols with non-unique llsparse matrix");
        makeUnique();
        clearAuxData();
        visitStore(*this, [&](auto& s) { dropSmall(s, tol); });
        trim(0.7);
    });
}

void Sparse::uniqueSymmetric()
{
    if (getSymm() != Symmetric && getSymm() != Hermitian)
        return;
    guarded([&] {
        visitStore(*this, [](const auto& s) { checkSummand(s); });
        makeUnique();
        clearAuxData();
        visitStore(*this, [](auto& s) { mergeMirrors(s); });
        trim(0.7);
    });
}

void Sparse::makeSymmetric(Trans_t trans)
{
    guarded([&] {
        visitStore(*this, [](const auto& s) { checkSquare(Symmetric, s.m, s.n); });
        makeUnique();
        clearAuxData();
        visitStore(*this, [&](auto& s) {
            keepLowerTriangle(s);
            if (s.symm == RowStored && trans == ConjTrans)
                s.conjugate();
            s.symm = real || trans == Trans ? Symmetric : Hermitian;
        });
    });
}

void Sparse::removeDuplicates()
{
    guarded([&] {
        makeUnique();
        clearAuxData();
        visitStore(*this, [](auto& s) {
            s.format(FormSorted, true);
            mergeRuns(s);
        });
    });
}

void Sparse::removeZeroCols()
{
    guarded([&] {
        visitStore(*this, [](const auto& s) { checkSquare(s.symm, s.m, usedColumns(s)); });
        makeUnique();
        clearAuxData();
        visitStore(*this, [](auto& s) {
            if (s.symm == RowStored)
                dropEmptyStoredRows(s);
            else
                dropEmptyStoredColumns(s);
            s.releaseDiag();
            s.rowColptrVersion = std::remove_reference_t<decltype(s)>::getNewRowColptrVersion();
        });
    });
}

Sparse sparse2tril(const Sparse& A)
{
    if (A.getSymm() == Unsymmetric || A.getSymm() == RowStored)
        return A;
    if (A.getM() != A.getN())
        QX_RAISE("sparse", "Matrix_not_square");
    return guarded([&] {
        return visitStore(A, [](const auto& a) {
            return makeSparse<ElementOf<std::remove_reference_t<decltype(a)>>>([&](auto& t) { lowerTriangle(a, t); });
        });
    });
}

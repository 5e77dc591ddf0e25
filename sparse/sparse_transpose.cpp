// SPDX-License-Identifier: LicenseRef-qxkernel
// Transposition and concatenation.

#include "llsparse_detail.hpp"
#include "qxrun.hpp"
#include "team.hpp"

#include <algorithm>

namespace {

using namespace qxsparse;

/// Scatters the columns of a slice of A into the places that `next` (one cursor a row of A) tells.
template <bool Conj, class T>
void scatterTransposed(const llsparse<T>& A, Slice s, unsigned long* next, unsigned long* row, T* val)
{
    for (unsigned long j = s.from; j < s.to; ++j)
        for (unsigned long p = A.colPtr[j]; p < A.colPtr[j + 1]; ++p) {
            const unsigned long q = next[A.row[p]]++;
            row[q] = j;
            val[q] = conjugateIf<Conj>(A.val[p]);
        }
}

/// f(slice) for a slice in pieces of some thousand columns, with a look at the run before each; at once without one.
template <class F>
void forEachPiece(Slice all, const qxutil::RunInfo* run, const F& f)
{
    constexpr unsigned long piece = 4096;
    for (unsigned long from = all.from; from < all.to;) {
        if (run)
            run->throwIfCancelled("sparse", __LINE__);
        const unsigned long to = run ? std::min(all.to, from + piece) : all.to;
        f(Slice{from, to});
        from = to;
    }
}

} // namespace

/// Each share counts the rows of its slice of A's columns; running over rows first and shares second turns the counts
/// into cursors. Slices ascend, so the rows of every result column do.
template <class T>
void llsparse<T>::llsp_transp(const llsparse& A, Trans_t trans, const qxutil::RunInfo* run)
{
    llsparse result;
    result.m = A.n;
    result.n = A.m;
    result.symm = A.symm == RowStored ? RowStored : Unsymmetric;
    result.form = A.form & ~FormDiag;
    result.nzmax = A.nnz();
    result.allocColPtr();
    result.colPtr[0] = 0;
    result.allocRow();
    result.allocVal();

    const Team team = Team::ofWork(result.n);
    const unsigned long shares = static_cast<unsigned long>(team.size());
    const Scratch<unsigned long> cursors(A.m * shares);
    team.run([&](int share) {
        unsigned long* count = cursors.get() + A.m * static_cast<unsigned long>(share);
        std::fill_n(count, A.m, 0UL);
        forEachPiece(team.weighted(A.n, A.colPtr, share), run, [&](Slice s) {
            for (unsigned long p = A.colPtr[s.from]; p < A.colPtr[s.to]; ++p)
                ++count[A.row[p]];
        });
    });
    unsigned long position = 0;
    for (unsigned long i = 0; i < A.m; ++i) {
        for (unsigned long share = 0; share < shares; ++share) {
            unsigned long& cursor = cursors[A.m * share + i];
            const unsigned long count = cursor;
            cursor = position;
            position += count;
        }
        result.colPtr[i + 1] = position;
    }
    team.run([&](int share) {
        unsigned long* next = cursors.get() + A.m * static_cast<unsigned long>(share);
        forEachPiece(team.weighted(A.n, A.colPtr, share), run, [&](Slice s) {
            if (trans == ConjTrans)
                scatterTransposed<true>(A, s, next, result.row, result.val);
            else
                scatterTransposed<false>(A, s, next, result.row, result.val);
        });
    });
    adopt(result, false);
}

template <class T>
template <class U, class V>
void llsparse<T>::llsp_hcatPrivate(const llsparse<U>& A, const llsparse<V>& B)
{
    checkMixture(A.symm, B.symm);
    llsparse result;
    result.m = std::max(A.m, B.m);
    result.n = extent(A.n, B.n);
    result.symm = A.symm == RowStored || B.symm == RowStored ? RowStored : Unsymmetric;
    result.form = A.form & B.form & FormSorted;
    result.nzmax = A.nnz() + B.nnz();
    result.allocColPtr();
    result.allocRow();
    result.allocVal();
    std::copy_n(A.colPtr, A.n, result.colPtr);
    std::transform(B.colPtr, B.colPtr + B.n + 1, result.colPtr + A.n, [&](auto p) { return p + A.nnz(); });
    std::copy_n(A.row, A.nnz(), result.row);
    std::copy_n(B.row, B.nnz(), result.row + A.nnz());
    std::copy_n(A.val, A.nnz(), result.val);
    std::copy_n(B.val, B.nnz(), result.val + A.nnz());
    adopt(result, false);
}

template <class T>
template <class U, class V>
void llsparse<T>::llsp_vcatPrivate(const llsparse<U>& A, const llsparse<V>& B)
{
    checkMixture(A.symm, B.symm);
    llsparse result;
    result.m = extent(A.m, B.m);
    result.n = std::max(A.n, B.n);
    result.symm = A.symm == RowStored || B.symm == RowStored ? RowStored : Unsymmetric;
    result.form = A.form & B.form & FormSorted;
    result.nzmax = A.nnz() + B.nnz();
    result.allocColPtr();
    result.allocRow();
    result.allocVal();
    unsigned long end = 0;
    const auto append = [&](const auto& S, unsigned long j, unsigned long shift) {
        if (j >= S.n)
            return;
        for (unsigned long p = S.colPtr[j]; p < S.colPtr[j + 1]; ++p) {
            result.row[end] = S.row[p] + shift;
            result.val[end++] = S.val[p];
        }
    };
    for (unsigned long j = 0; j < result.n; ++j) {
        result.colPtr[j] = end;
        append(A, j, 0);
        append(B, j, A.m);
    }
    result.colPtr[result.n] = end;
    adopt(result, false);
}

#define QX_INSTANTIATE(T) template void llsparse<T>::llsp_transp(const llsparse&, Trans_t, const qxutil::RunInfo*);
QX_FOR_EACH_STORE(QX_INSTANTIATE)
#undef QX_INSTANTIATE
#define QX_INSTANTIATE(T, U, V)                                                                                       \
    template void llsparse<T>::llsp_hcatPrivate(const llsparse<U>&, const llsparse<V>&);                              \
    template void llsparse<T>::llsp_vcatPrivate(const llsparse<U>&, const llsparse<V>&);
QX_FOR_EACH_PAIR(QX_INSTANTIATE)

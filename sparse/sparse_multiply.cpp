// Products of stores.

#include "llsparse_detail.hpp"
#include "merge_in_place.hpp"
#include "team.hpp"

#include <algorithm>
#include <cstdint>

namespace {

using namespace qxsparse;

Symm_t symmetryOfProduct(Symm_t a, Symm_t b) { return a == RowStored || b == RowStored ? RowStored : Unsymmetric; }

/// Counts of the columns of a slice of A B: counts[j + 1]. A mark is the number of the last column that touched the row,
/// plus one.
template <class U, class V>
void llsp_mulPrivateSetup(const llsparse<U>& A, const llsparse<V>& B, unsigned long* counts, std::uint32_t* marker,
                          Slice s)
{
    const unsigned long* const row = A.row;
    for (unsigned long j = s.from; j < s.to; ++j) {
        const auto mark = static_cast<std::uint32_t>(j + 1);
        unsigned long count = 0;
        for (unsigned long q = B.colPtr[j]; q < B.colPtr[j + 1]; ++q) {
            const unsigned long k = B.row[q], end = A.colPtr[k + 1];
            for (unsigned long p = A.colPtr[k]; p < end; ++p) {
                std::uint32_t& seen = marker[row[p]];
                count += seen != mark;
                seen = mark;
            }
        }
        counts[j + 1] = count;
    }
}

/// Column j of A B. A marker above `base` holds base + 1 + the row's place in this column.
template <class U, class V, class R>
void mulColumn(const llsparse<U>& A, const llsparse<V>& B, unsigned long j, std::uint32_t* marker, std::uint32_t base,
               unsigned long* row, R* val)
{
    std::uint32_t end = base;
    for (unsigned long q = B.colPtr[j]; q < B.colPtr[j + 1]; ++q) {
        const unsigned long k = B.row[q], stop = A.colPtr[k + 1];
        const V b = B.val[q];
        for (unsigned long p = A.colPtr[k]; p < stop; ++p) {
            const unsigned long i = A.row[p];
            const R product = mul(A.val[p], b);
            const std::uint32_t seen = marker[i];
            if (seen > base) {
                val[seen - base - 1] += product;
            } else {
                row[end - base] = i;
                val[end - base] = product;
                marker[i] = ++end;
            }
        }
    }
}

/// Entries of the columns of a slice. The marks of the counting pass do not exceed n: places are counted from n on.
template <class U, class V, class R>
void llsp_mulPrivateWork(const llsparse<U>& A, const llsparse<V>& B, const unsigned long* colPtr, unsigned long* row,
                         R* val, std::uint32_t* marker, Slice s)
{
    for (unsigned long j = s.from; j < s.to; ++j)
        mulColumn(A, B, j, marker, static_cast<std::uint32_t>(B.n + colPtr[j]), row + colPtr[j], val + colPtr[j]);
}

/// A B into fresh arrays of result.
template <class U, class V, class R>
void product(const llsparse<U>& A, const llsparse<V>& B, llsparse<R>& result)
{
    const Team team = Team::ofWork(A.nnz() + B.nnz());
    const Markers markers(team, A.m);
    result.m = A.m;
    result.n = B.n;
    result.symm = symmetryOfProduct(A.symm, B.symm);
    result.form = FormNone;
    result.allocColPtr();
    result.colPtr[0] = 0;
    team.run([&](int share) {
        llsp_mulPrivateSetup(A, B, result.colPtr, markers.make(share), team.weighted(B.n, B.colPtr, share));
    });
    runningSum(result.colPtr, result.n);
    result.nzmax = result.nnz();
    result.allocRow();
    result.allocVal();
    team.run([&](int share) {
        llsp_mulPrivateWork(A, B, result.colPtr, result.row, result.val, markers.of(share),
                            team.weighted(B.n, B.colPtr, share));
    });
}

} // namespace

template <class T>
template <class U, class V>
void llsparse<T>::llsp_mulPrivate(const llsparse<U>& A, const llsparse<V>& B)
{
    checkMixture(A.symm, B.symm);
    llsparse result;
    product(A, B, result);
    adopt(result, false);
}

/// The transposed product in two steps: each sum runs over the same terms in the same order as in a direct form, and
/// the transposition sorts.
template <class T>
template <class U, class V>
void llsparse<T>::llsp_multPrivate(const llsparse<U>& A, const llsparse<V>& B, Trans_t trans)
{
    checkMixture(A.symm, B.symm);
    llsparse unsorted, result;
    product(A, B, unsorted);
    result.llsp_transp(unsorted, trans);
    result.form = FormSorted;
    adopt(result, false);
}

template <class T>
template <class U>
void llsparse<T>::llsp_inplaceMulLeftPrivate(const llsparse<U>& B)
{
    checkMixture(symm, B.symm);
    const Team team = Team::ofWork(nnz() + B.nnz());
    const Markers markers(team, B.m);
    boost::shared_ptr<IndexArray> offsets;
    unsigned long* newColPtr = allocate(offsets, n + 1);
    newColPtr[0] = 0;
    team.run([&](int share) {
        llsp_mulPrivateSetup(B, *this, newColPtr, markers.make(share), team.weighted(n, colPtr, share));
    });
    runningSum(newColPtr, n);
    if (newColPtr[n] > nzmax) {
        llsparse result;
        result.m = B.m;
        result.n = n;
        result.symm = symmetryOfProduct(B.symm, symm);
        result.form = FormNone;
        result.setColPtr(offsets);
        result.nzmax = newColPtr[n];
        result.allocRow();
        result.allocVal();
        team.run([&](int share) {
            llsp_mulPrivateWork(B, *this, newColPtr, result.row, result.val, markers.of(share),
                                team.weighted(n, colPtr, share));
        });
        adopt(result, false);
        return;
    }
    // Marks of a counting pass never exceed n, whichever columns it covered: any share's area serves.
    std::uint32_t* marker = markers.of(0);
    mergeInPlace(*this, newColPtr, [&](unsigned long j, unsigned long* mergedRow, T* mergedVal) {
        mulColumn(B, *this, j, marker, static_cast<std::uint32_t>(n + newColPtr[j]), mergedRow, mergedVal);
    });
    m = B.m;
    symm = symmetryOfProduct(B.symm, symm);
    form = FormNone;
    diagArray.reset();
    diag = nullptr;
    setColPtr(offsets);
}

/// A column of this B may need any column of the old store: unlike the other in-place forms it cannot be merged from the
/// first column on, and goes through new arrays.
template <class T>
template <class U>
void llsparse<T>::llsp_inplaceMulRightPrivate(const llsparse<U>& B)
{
    checkMixture(symm, B.symm);
    llsparse result;
    product(*this, B, result);
    adopt(result, true);
}

#define QX_INSTANTIATE(T, U, V)                                                                                       \
    template void llsparse<T>::llsp_mulPrivate(const llsparse<U>&, const llsparse<V>&);                               \
    template void llsparse<T>::llsp_multPrivate(const llsparse<U>&, const llsparse<V>&, Trans_t);
QX_FOR_EACH_PAIR(QX_INSTANTIATE)
#undef QX_INSTANTIATE
#define QX_INSTANTIATE(T, U)                                                                                          \
    template void llsparse<T>::llsp_inplaceMulLeftPrivate(const llsparse<U>&);                                        \
    template void llsparse<T>::llsp_inplaceMulRightPrivate(const llsparse<U>&);
QX_FOR_EACH_INPLACE_MUL(QX_INSTANTIATE)

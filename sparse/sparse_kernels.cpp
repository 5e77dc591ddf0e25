// SPDX-License-Identifier: LicenseRef-qxkernel
// Products and sweeps on handles: sizes, types, and the choice between serial and parallel forms.

#include "sparse_detail.hpp"

#include "externalsparse.hpp"
#include "parallelsparse.hpp"
#include "vector_access.hpp"

#include <algorithm>

using namespace qxsparse;

namespace {

void checkVectors(const Matrix<1>& y, const Sparse& A, unsigned long xSize, Trans_t trans)
{
    const unsigned long rows = trans == NoTrans ? A.getM() : A.getN();
    const unsigned long columns = trans == NoTrans ? A.getN() : A.getM();
    if (y.size() != rows || xSize != columns)
        QX_RAISE("sparse", "Size_vector_sparse_matrix_disagree");
}

template <bool Minus>
void serialProduct(Matrix<1>& y, const Sparse& A, const VectorView& x, Trans_t trans)
{
    withProductTypes(y, A, x, [&](const auto& store, auto* yData, const auto* xData) {
        if constexpr (Minus)
            store.yMinusAMulx(yData, xData, trans);
        else
            store.yPlusAMulx(yData, xData, trans);
    });
}

bool goesExternal(const Matrix<1>& y, const Sparse& A, bool realVector)
{
    return y.isReal() && A.isReal() && realVector && ExternalSparse::isRealMatVec();
}

/// The sweeps that may go parallel; f is the member of both the store and ParallelSparse.
bool goesParallel(const Sparse& A) { return qxbase::isParallelLoop(A.getNnz()); }

} // namespace

// --- Products -----------------------------------------------------------------------------------------------------

void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    checkVectors(y, A, x.size(), trans);
    selectyPlusAMulx(y, A, x, trans);
}

void yMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    checkVectors(y, A, x.size(), trans);
    selectyMinusAMulx(y, A, x, trans);
}

void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col)
{
    checkVectors(y, A, x.size(0), trans);
    if (col >= x.size(1))
        QX_RAISE("sparse", "Size_vector_sparse_matrix_disagree",
                 qxbase::ExceptionArgs{{"Index", std::to_string(col)}, {"Size", std::to_string(x.size(1))}});
    selectyPlusAMulx(y, A, x, trans, col);
}

void selectyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    guarded([&] {
        if (goesParallel(A))
            A.getParallelSparse()->yPlusAMulx(y, A, x, trans);
        else
            serialyPlusAMulx(y, A, x, trans);
    });
}

void selectyMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    guarded([&] {
        if (goesParallel(A))
            A.getParallelSparse()->yMinusAMulx(y, A, x, trans);
        else
            serialyMinusAMulx(y, A, x, trans);
    });
}

void selectyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col)
{
    guarded([&] {
        if (goesParallel(A))
            A.getParallelSparse()->yPlusAMulx(y, A, x, trans, col);
        else
            serialyPlusAMulx(y, A, x, trans, col);
    });
}

void serialyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    guarded([&] {
        if (goesExternal(y, A, x.isReal()))
            A.getExternalSparse()->yPlusAMulx(y, A, x, trans);
        else
            serialProduct<false>(y, A, VectorView(x), trans);
    });
}

void serialyMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    guarded([&] { serialProduct<true>(y, A, VectorView(x), trans); });
}

void serialyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col)
{
    guarded([&] {
        if (goesExternal(y, A, x.isReal()))
            A.getExternalSparse()->yPlusAMulx(y, A, x, trans, col);
        else
            serialProduct<false>(y, A, VectorView(x, col), trans);
    });
}

Matrix<1> AMulx(const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    return guarded([&] {
        Matrix<1> y(trans == NoTrans ? A.getM() : A.getN(), A.isReal() && x.isReal());
        yPlusAMulx(y, A, x, trans);
        return y;
    });
}

Matrix<1> operator*(const Sparse& A, const Matrix<1>& x) { return AMulx(A, x, NoTrans); }

// --- Sweeps -------------------------------------------------------------------------------------------------------

int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse)
{
    return guarded([&] {
        if (goesParallel(A))
            return A.getParallelSparse()->SORIt(A, r, x, omega, reverse);
        return withSweepTypes(A, [&](const auto& s, auto type) {
            using R = decltype(type);
            return s.SORIt(writable<R>(r), writable<R>(x), omega, reverse);
        }, r, x);
    });
}

int SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse)
{
    return guarded([&] {
        if (goesParallel(A))
            return A.getParallelSparse()->SORItUpdater(A, r, x, omega, reverse);
        return withSweepTypes(A, [&](const auto& s, auto type) {
            using R = decltype(type);
            return s.SORItUpdater(writable<R>(r), writable<R>(x), omega, reverse);
        }, r, x);
    });
}

int SORUpdater(const Sparse& A, Matrix<1>& u, double omega, bool reverse)
{
    return guarded([&] {
        if (goesParallel(A))
            return A.getParallelSparse()->SORUpdater(A, u, omega, reverse);
        return withSweepTypes(A, [&](const auto& s, auto type) {
            return s.SORUpdater(writable<decltype(type)>(u), omega, reverse);
        }, u);
    });
}

int JacobiIts(const Sparse& A, const Matrix<1>& r, Matrix<1>& x, double omega)
{
    return guarded([&] {
        if (qxbase::isParallelLoop(A.getN()))
            return A.getParallelSparse()->JacobiIts(r, A, x, omega);
        Matrix<1> rr = r;
        return withSweepTypes(A, [&](const auto& s, auto type) {
            using R = decltype(type);
            return s.JacobiIts(readable<R>(rr), writable<R>(x), omega);
        }, rr, x);
    });
}

namespace {

using IndexList = Array<unsigned long, 1>;

void checkBelow(const unsigned long* index, unsigned long count, unsigned long end)
{
    for (unsigned long k = 0; k < count; ++k)
        checkIndex(index[k], end);
}

/// Correction lists of a subset sweep, checked.
SweepCorrections corrections(const Sparse& A, const IndexList& idx, const IndexList& ptr, const IndexList& list)
{
    const unsigned long n = idx.size();
    if (n == 0)
        return {};
    if (ptr.size() != n + 1 || !std::is_sorted(ptr.begin(), ptr.end()) || ptr[n] > list.size())
        QX_RAISE("sparse", "Size_vector_sparse_matrix_disagree");
    checkBelow(list.data() + ptr[0], ptr[n] - ptr[0], A.getNnz());
    return {ptr.data(), list.data()};
}

/// f(store, element type) for the index-subset forms.
template <class F, class... Vectors>
int subsetSweep(const Sparse& A, const IndexList& idx, const F& f, Vectors&... vectors)
{
    return guarded([&] {
        checkSweepVectors(A, vectors...);
        checkBelow(idx.data(), idx.size(), visitStore(A, [](const auto& s) { return s.n; }));
        checkDiagonal(A, idx.size(), [list = idx.data()](unsigned long k) { return list[k]; });
        return promoted(A, f, vectors...);
    });
}

int subsetSORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const IndexList& idx, const SweepCorrections& later,
                const SweepCorrections& earlier, double omega, bool reverse)
{
    return subsetSweep(A, idx, [&](const auto& s, auto type) {
        using R = decltype(type);
        return s.SORIt(writable<R>(r), writable<R>(x), idx.data(), idx.size(), later, earlier, omega, reverse);
    }, r, x);
}

int subsetSORUpdater(const Sparse& A, Matrix<1>& u, const IndexList& idx, const SweepCorrections& later,
                     const SweepCorrections& earlier, double omega, bool reverse)
{
    return subsetSweep(A, idx, [&](const auto& s, auto type) {
        return s.SORUpdater(writable<decltype(type)>(u), idx.data(), idx.size(), later, earlier, omega, reverse);
    }, u);
}

} // namespace

int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const IndexList& idx, double omega, bool reverse)
{
    return subsetSORIt(A, r, x, idx, {}, {}, omega, reverse);
}

int SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const IndexList& idx, double omega, bool reverse)
{
    return subsetSweep(A, idx, [&](const auto& s, auto type) {
        using R = decltype(type);
        return s.SORItUpdater(writable<R>(r), writable<R>(x), idx.data(), idx.size(), omega, reverse);
    }, r, x);
}

int SORUpdater(const Sparse& A, Matrix<1>& u, const IndexList& idx, double omega, bool reverse)
{
    return subsetSORUpdater(A, u, idx, {}, {}, omega, reverse);
}

int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const IndexList& idx, const IndexList& ptr,
          const IndexList& list, double omega, bool reverse)
{
    return subsetSORIt(A, r, x, idx, corrections(A, idx, ptr, list), {}, omega, reverse);
}

int SORUpdater(const Sparse& A, Matrix<1>& u, const IndexList& idx, const IndexList& ptr, const IndexList& list,
               double omega, bool reverse)
{
    return subsetSORUpdater(A, u, idx, corrections(A, idx, ptr, list), {}, omega, reverse);
}

int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const IndexList& idx, const IndexList& ptr,
          const IndexList& list, const IndexList& ptr2, const IndexList& list2, double omega, bool reverse)
{
    return subsetSORIt(A, r, x, idx, corrections(A, idx, ptr, list), corrections(A, idx, ptr2, list2), omega, reverse);
}

int SORUpdater(const Sparse& A, Matrix<1>& u, const IndexList& idx, const IndexList& ptr, const IndexList& list,
               const IndexList& ptr2, const IndexList& list2, double omega, bool reverse)
{
    return subsetSORUpdater(A, u, idx, corrections(A, idx, ptr, list), corrections(A, idx, ptr2, list2), omega, reverse);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Sums, products, scaling and concatenation of matrices.

#include "llsparse_detail.hpp"
#include "sparse_detail.hpp"

#include <algorithm>

using namespace qxsparse;
using SparseList = std::vector<boost::shared_ptr<Sparse>>;

namespace {

/// alpha A + B of checked operands, the real scalar where alpha is real.
Sparse combination(std::complex<double> alpha, const Sparse& A, const Sparse& B, const qxutil::RunInfo* run = nullptr)
{
    return visitStore(A, [&](const auto& a) {
        return visitStore(B, [&](const auto& b) {
            using Both = Common<ElementOf<std::remove_reference_t<decltype(a)>>,
                                ElementOf<std::remove_reference_t<decltype(b)>>>;
            if (alpha.imag() == 0.0)
                return makeSparse<Both>([&](auto& s) { s.llsp_add(alpha.real(), a, b, run); });
            return makeSparse<cplx>([&](auto& s) { s.llsp_add(alpha, a, b, run); });
        });
    });
}

void checkSum(const Sparse& A, const Sparse& B)
{
    checkSizes(A.getM() == B.getM() && A.getN() == B.getN());
    checkMixture(A, B);
}

void checkProduct(const Sparse& A, const Sparse& B)
{
    checkSizes(A.getN() == B.getM());
    checkMixture(A, B);
}

/// form(s, a, b) with the stores in the order of the stored product: the transposes of row stores multiply the other way
/// round.
template <class Form>
Sparse productOf(const Sparse& A, const Sparse& B, const Form& form)
{
    const bool byRow = isRowStored(A) || isRowStored(B);
    return visitStore(byRow ? B : A, [&](const auto& a) {
        return visitStore(byRow ? A : B, [&](const auto& b) {
            using Both = Common<ElementOf<std::remove_reference_t<decltype(a)>>,
                                ElementOf<std::remove_reference_t<decltype(b)>>>;
            return makeSparse<Both>([&](auto& s) { form(s, a, b); });
        });
    });
}

} // namespace

// --- Members ------------------------------------------------------------------------------------------------------

void Sparse::addMat(Complex alpha, const Sparse& B, bool inPlace)
{
    guarded([&] {
        checkSum(*this, B);
        const bool becomesComplex = real && (!B.real || alpha.imag() != 0.0);
        if (!inPlace || becomesComplex || sharesStore(B)) {
            *this = combination(alpha, B, *this);
            return;
        }
        makeUnique();
        clearAuxData();
        if (real)
            dSp->llsp_inplaceAdd(alpha.real(), *B.dSp);
        else
            visitStore(B, [&](const auto& b) {
                if (alpha.imag() == 0.0)
                    zSp->llsp_inplaceAdd(alpha.real(), b);
                else
                    zSp->llsp_inplaceAdd(alpha, b);
            });
    });
}

/// The selection B keeps rows or columns of this matrix: keep(store, list, length of the list).
template <class Keep>
void Sparse::select(const Sparse& B, const Keep& keep)
{
    const Sparse list = B; // stays if B is this matrix
    visitStore(*this, [&](const auto& s) { checkSquare(s.symm, s.m, list.getNnz()); });
    makeUnique();
    clearAuxData();
    visitStore(*this, [&](auto& s) { keep(s, list.getRow(), list.getNnz()); });
    trim(0.95);
}

/// this = factor this, or this factor, of checked operands.
void Sparse::multiply(const Sparse& factor, bool fromLeft, bool inPlace)
{
    if (!inPlace || (real && !factor.real) || sharesStore(factor)) {
        *this = fromLeft ? factor * *this : *this * factor;
        return;
    }
    makeUnique();
    clearAuxData();
    // A row store holds the transpose: its product from the left is one of the store from the right.
    const bool storeFromLeft = fromLeft != (isRowStored(*this) || isRowStored(factor));
    const auto apply = [&](auto& s, const auto& b) {
        storeFromLeft ? s.llsp_inplaceMulLeftPrivate(b) : s.llsp_inplaceMulRightPrivate(b);
    };
    if (real)
        apply(*dSp, *factor.dSp);
    else
        visitStore(factor, [&](const auto& b) { apply(*zSp, b); });
    trim(0.95);
}

void Sparse::multLeft(const Sparse& B, Trans_t trans, bool inPlace)
{
    guarded([&] {
        checkMixture(*this, B);
        if (trans != NoTrans && B.getSymm() == Unsymmetric && B.isSimple()) {
            checkSizes(getM() == B.getM());
            select(B, [](auto& s, const auto* keep, auto count) { s.llsp_removeRows(keep, count); });
            return;
        }
        const Sparse left = transpose(B, trans);
        checkProduct(left, *this);
        multiply(left, true, inPlace);
    });
}

void Sparse::mulRight(const Sparse& B, bool inPlace)
{
    guarded([&] {
        checkProduct(*this, B);
        if (B.getSymm() == Unsymmetric && B.isSimple())
            select(B, [](auto& s, const auto* keep, auto count) { s.llsp_removeCols(keep, count); });
        else
            multiply(B, false, inPlace);
    });
}

void Sparse::scale(Complex alpha)
{
    guarded([&] {
        if (alpha == 0.0) {
            zeros(getM(), getN(), 0, true);
            return;
        }
        if (alpha.imag() != 0.0)
            real2complex();
        makeUnique();
        visitStore(*this, [&](auto& s) {
            if constexpr (std::is_same_v<ElementOf<std::remove_reference_t<decltype(s)>>, cplx>) {
                if (alpha.imag() != 0.0) {
                    s.scale(alpha);
                    return;
                }
            }
            s.scale(alpha.real());
        });
    });
}

template <class Member>
void Sparse::scaleByDiagonal(const Matrix<1>& d, unsigned long length, const Member& member)
{
    guarded([&] {
        if (d.size() != length)
            QX_RAISE("sparse", "Size_vector_sparse_matrix_disagree");
        if (!d.isReal())
            real2complex();
        makeUnique();
        if (real)
            member(*dSp, d.gethdArr().data());
        else if (d.isReal())
            member(*zSp, d.gethdArr().data());
        else
            member(*zSp, d.gethzArr().data());
    });
}

void Sparse::colscale(const Matrix<1>& d)
{
    scaleByDiagonal(d, getN(), [](auto& s, const auto* f) { s.colscale(f); });
}

void Sparse::colscaleInv(const Matrix<1>& d)
{
    scaleByDiagonal(d, getN(), [](auto& s, const auto* f) { s.colscaleInv(f); });
}

void Sparse::rowscale(const Matrix<1>& d)
{
    scaleByDiagonal(d, getM(), [](auto& s, const auto* f) { s.rowscale(f); });
}

void Sparse::rowscaleInv(const Matrix<1>& d)
{
    scaleByDiagonal(d, getM(), [](auto& s, const auto* f) { s.rowscaleInv(f); });
}

void Sparse::conjugate()
{
    if (real)
        return;
    guarded([&] {
        makeUnique();
        zSp->conjugate();
    });
}

void Sparse::sign()
{
    if (!real)
        QX_RAISE("sparse", "Sign_of_complex_Sparse_not_implemented");
    guarded([&] {
        makeUnique();
        std::for_each(dSp->val, dSp->val + dSp->nnz(), [](double& v) { v = v > 0.0 ? 1.0 : v < 0.0 ? -1.0 : 0.0; });
    });
}

namespace {

/// Lists of row stores join the other way round.
bool joinsRowStores(const Sparse& target, const SparseList& list)
{
    return isRowStored(target) || (!list.empty() && list.front() && isRowStored(*list.front()));
}

/// An empty store of the type, size and capacity that the members take side by side or on top of one another, all in
/// terms of the stored matrices; `other` is the dimension that they share.
Sparse roomFor(const Sparse& target, const SparseList& list, unsigned long other, bool sideBySide)
{
    const bool byRow = joinsRowStores(target, list);
    unsigned long count = 0, joined = 0;
    bool allReal = true, sorted = true;
    for (const auto& member : list) {
        if (!member)
            QX_RAISE("sparse", "Internal_error_sparse");
        checkMixture(target, *member);
        const bool acrossColumns = sideBySide != byRow; // of the logical matrices
        checkSizes((acrossColumns ? member->getM() : member->getN()) <= other);
        count += member->getNnz();
        joined = extent(joined, acrossColumns ? member->getN() : member->getM());
        allReal = allReal && member->isReal();
        sorted = sorted && (member->getForm() & FormSorted);
    }
    Sparse result;
    result.zeros(sideBySide ? other : joined, sideBySide ? joined : other, count, allReal);
    result.setSymm(byRow ? RowStored : Unsymmetric);
    result.setForm(sorted ? FormSorted : FormNone);
    return result;
}

/// Copies column j of a member behind the first `end` entries of s, rows moved down by `shift`. A complex member never
/// meets a real s.
template <class S, class M>
void appendColumn(S& s, const M& member, unsigned long j, unsigned long shift, unsigned long& end)
{
    for (unsigned long p = member.colPtr[j]; p < member.colPtr[j + 1]; ++p) {
        s.row[end] = member.row[p] + shift;
        if constexpr (requires { s.val[end] = member.val[p]; })
            s.val[end] = member.val[p];
        ++end;
    }
}

} // namespace

void Sparse::hcat(const SparseList& list, unsigned long m)
{
    guarded([&] { joinsRowStores(*this, list) ? vcatPrivate(list, m) : hcatPrivate(list, m); });
}

void Sparse::vcat(const SparseList& list, unsigned long n)
{
    guarded([&] { joinsRowStores(*this, list) ? hcatPrivate(list, n) : vcatPrivate(list, n); });
}

/// The stored matrices side by side, m stored rows.
void Sparse::hcatPrivate(const SparseList& list, unsigned long m)
{
    const Sparse result = roomFor(*this, list, m, true);
    visitStore(result, [&](auto& s) {
        unsigned long end = 0, column = 0;
        for (const auto& A : list)
            visitStore(*A, [&](const auto& member) {
                for (unsigned long j = 0; j < member.n; ++j) {
                    appendColumn(s, member, j, 0, end);
                    s.colPtr[++column] = end;
                }
            });
        if (s.n > 0)
            *this = result;
    });
}

/// The stored matrices on top of one another, n stored columns.
void Sparse::vcatPrivate(const SparseList& list, unsigned long n)
{
    const Sparse result = roomFor(*this, list, n, false);
    visitStore(result, [&](auto& s) {
        unsigned long end = 0;
        for (unsigned long j = 0; j < s.n; ++j) {
            unsigned long shift = 0;
            for (const auto& A : list)
                visitStore(*A, [&](const auto& member) {
                    if (j < member.n)
                        appendColumn(s, member, j, shift, end);
                    shift += member.m;
                });
            s.colPtr[j + 1] = end;
        }
        if (s.m > 0)
            *this = result;
    });
}

// --- Free functions -----------------------------------------------------------------------------------------------

Sparse add(const Sparse& A, std::complex<double> alpha, const Sparse& B, const qxutil::RunInfo* run)
{
    return guarded([&] {
        checkSum(A, B);
        return combination(alpha, A, B, run);
    });
}

Sparse operator+(const Sparse& A, const Sparse& B)
{
    return guarded([&] {
        checkSum(A, B);
        const bool swap = A.isReal() && B.isReal() && B.getNnz() > A.getNnz(); // columns of the first are copied as blocks
        return swap ? combination(1.0, B, A) : combination(1.0, A, B);
    });
}

Sparse operator-(const Sparse& A, const Sparse& B)
{
    return guarded([&] {
        checkSum(A, B);
        return combination(-1.0, B, A);
    });
}

Sparse operator+(const Sparse& A) { return A; }

Sparse operator-(const Sparse& A) { return A * std::complex<double>(-1.0); }

Sparse operator*(const Sparse& A, const Sparse& B) { return mul(A, B, NoTrans); }

Sparse operator*(std::complex<double> alpha, const Sparse& A) { return A * alpha; }

Sparse operator*(const Sparse& A, std::complex<double> alpha)
{
    Sparse scaled = A;
    scaled.scale(alpha);
    return scaled;
}

Sparse mul(const Sparse& A, const Sparse& B, Trans_t trans, const qxutil::RunInfo* run)
{
    return guarded([&] {
        checkProduct(A, B);
        return productOf(A, B, [&](auto& s, const auto& a, const auto& b) {
            trans == NoTrans ? s.llsp_mulPrivate(a, b, run) : s.llsp_multPrivate(a, b, trans, run);
        });
    });
}

Sparse transpose(const Sparse& A, Trans_t trans, const qxutil::RunInfo* run)
{
    if (trans == NoTrans)
        return A;
    return guarded([&] {
        return visitStore(A, [&](const auto& a) {
            using T = ElementOf<std::remove_reference_t<decltype(a)>>;
            return makeSparse<T>([&](auto& s) { s.llsp_transp(a, A.isReal() ? Trans : trans, run); });
        });
    });
}

namespace {

/// [A, B], or [A; B], of checked operands.
Sparse joined(const Sparse& A, const Sparse& B, bool byColumns)
{
    checkMixture(A, B);
    const bool sideBySide = byColumns != (isRowStored(A) || isRowStored(B)); // of the stored matrices
    return visitStore(A, [&](const auto& a) {
        return visitStore(B, [&](const auto& b) {
            using Both = Common<ElementOf<std::remove_reference_t<decltype(a)>>,
                                ElementOf<std::remove_reference_t<decltype(b)>>>;
            return makeSparse<Both>(
                [&](auto& s) { sideBySide ? s.llsp_hcatPrivate(a, b) : s.llsp_vcatPrivate(a, b); });
        });
    });
}

} // namespace

Sparse hcat(const Sparse& A, const Sparse& B, bool force)
{
    return guarded([&] {
        checkSizes(force || A.getM() == B.getM());
        return joined(A, B, true);
    });
}

Sparse vcat(const Sparse& A, const Sparse& B, bool force)
{
    return guarded([&] {
        checkSizes(force || A.getN() == B.getN());
        return joined(A, B, false);
    });
}

Sparse subMatrix(const Sparse& A, const Array<int, 1>& rows, const Array<int, 1>& cols)
{
    return guarded([&] {
        const auto checkList = [](const Array<int, 1>& list, unsigned long end) {
            for (int i : list)
                if (i < 0 || static_cast<unsigned long>(i) >= end)
                    refuseIndex(std::to_string(i), end);
        };
        checkList(rows, A.getM());
        checkList(cols, A.getN());
        return visitStore(A, [&](const auto& a) {
            using T = ElementOf<std::remove_reference_t<decltype(a)>>;
            return makeSparse<T>([&](auto& s) {
                s.llsp_subMatrix(a, rows.data(), rows.size(), cols.data(), cols.size());
            });
        });
    });
}

namespace {

/// The other layout of the same matrix.
Sparse relaidOut(const Sparse& A, Symm_t symm)
{
    const bool empty = A.getM() == 0 && A.getN() == 0;
    Sparse result = empty ? A : transpose(A, Trans);
    result.setSymm(symm);
    return result;
}

} // namespace

Sparse convertToRow(const Sparse& A) { return A.getSymm() == Unsymmetric ? relaidOut(A, RowStored) : A; }

Sparse convertToCol(const Sparse& A) { return isRowStored(A) ? relaidOut(A, Unsymmetric) : A; }

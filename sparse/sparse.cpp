// SPDX-License-Identifier: LicenseRef-qxkernel
// The handle: sharing of the store, inspection, single elements, formats.

#include "sparse_detail.hpp"

#include "externalsparse.hpp"
#include "parallelsparse.hpp"
#include "team.hpp"

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>

namespace qxsparse {

void checkMixture(const Sparse& A, const Sparse& B)
{
    const bool mixed = (A.getSymm() == RowStored && B.getSymm() == Unsymmetric) ||
                       (A.getSymm() == Unsymmetric && B.getSymm() == RowStored);
    if (mixed)
        QX_RAISE("sparse", "Symmetry_sparse_matrices_disagree");
}

void refuseIndex(const std::string& index, unsigned long size)
{
    QX_RAISE("sparse", "Internal_error_sparse",
             qxbase::ExceptionArgs{{"Index", index},
                                   {"Size", std::to_string(size)},
                                   {"Limit", size == 0 ? "none" : std::to_string(size - 1)}});
}

void refuseSize(const char* id, unsigned long size, unsigned long limit)
{
    QX_RAISE("sparse", id, qxbase::ExceptionArgs{{"Size", std::to_string(size)}, {"Limit", std::to_string(limit)}});
}

void checkSquare(Symm_t symm, unsigned long m, unsigned long n)
{
    if ((symm == Symmetric || symm == Hermitian) && m != n)
        QX_RAISE("sparse", "Internal_error_sparse",
                 qxbase::ExceptionArgs{{"Rows", std::to_string(m)}, {"Columns", std::to_string(n)}});
}

void checkSizes(bool agree)
{
    if (!agree)
        QX_RAISE("sparse", "Size_sparse_matrices_disagree");
}

} // namespace qxsparse

namespace {

using namespace qxsparse;

/// Guards the lazily made helpers of all handles: held for pointer copies and the rare creation only.
std::mutex helperLock;

/// A use count of 1, with everything former sharers did to the store made visible.
template <class S>
bool isUnique(const boost::shared_ptr<S>& store)
{
    if (store.use_count() != 1)
        return false;
    std::atomic_thread_fence(std::memory_order_acquire);
    return true;
}

} // namespace

// --- Sharing ------------------------------------------------------------------------------------------------------

Sparse::Sparse()
{
    guarded([&] { dSp.reset(new RealStore(0, 0, 0)); });
}

Sparse::Sparse(const boost::shared_ptr<RealStore>& store) : Sparse()
{
    if (store && store->colPtr)
        dSp = store;
}

Sparse::Sparse(const boost::shared_ptr<ComplexStore>& store) : Sparse()
{
    if (store && store->colPtr)
        install(store);
}

Sparse::Sparse(const Sparse& other) : dSp(other.dSp), zSp(other.zSp), real(other.real) { copyHelpers(other); }

Sparse& Sparse::operator=(const Sparse& other)
{
    if (this != &other) {
        dSp = other.dSp;
        zSp = other.zSp;
        real = other.real;
        copyHelpers(other);
    }
    return *this;
}

Sparse::~Sparse() = default;

void Sparse::copyHelpers(const Sparse& other)
{
    const std::lock_guard<std::mutex> hold(helperLock);
    hasExternal = other.hasExternal;
    externalSp = other.externalSp;
    hasParallel = other.hasParallel;
    parallelSp = other.parallelSp;
}

void Sparse::dropHelpers()
{
    const std::lock_guard<std::mutex> hold(helperLock);
    hasExternal = hasParallel = false;
    externalSp.reset();
    parallelSp.reset();
}

boost::shared_ptr<ParallelSparse> Sparse::getParallelSparse() const
{
    return guarded([&] {
        const std::lock_guard<std::mutex> hold(helperLock);
        if (!hasParallel) {
            parallelSp.reset(new ParallelSparse);
            hasParallel = true;
        }
        return parallelSp;
    });
}

boost::shared_ptr<ExternalSparse> Sparse::getExternalSparse() const
{
    return guarded([&] {
        const std::lock_guard<std::mutex> hold(helperLock);
        if (!hasExternal) {
            externalSp.reset(new ExternalSparse);
            hasExternal = true;
        }
        return externalSp;
    });
}

bool Sparse::getHasParallel() const
{
    const std::lock_guard<std::mutex> hold(helperLock);
    return hasParallel;
}

bool Sparse::getHasExternal() const
{
    const std::lock_guard<std::mutex> hold(helperLock);
    return hasExternal;
}

void Sparse::clearAuxData()
{
    const std::lock_guard<std::mutex> hold(helperLock);
    if (hasExternal)
        externalSp->clear();
    if (hasParallel)
        parallelSp->clear();
}

template <class T>
void Sparse::install(const boost::shared_ptr<llsparse<T>>& store)
{
    if constexpr (std::is_same_v<T, double>) {
        dSp = store;
        zSp.reset();
        real = true;
    } else {
        zSp = store;
        dSp.reset();
        real = false;
    }
    dropHelpers();
}
template void Sparse::install(const boost::shared_ptr<llsparse<double>>&);
template void Sparse::install(const boost::shared_ptr<llsparse<cplx>>&);

bool Sparse::hasUniqueData() const { return real ? isUnique(dSp) : isUnique(zSp); }

void Sparse::makeUnique()
{
    if (!hasUniqueData())
        visitStore(*this, [&](auto& s) {
            using Store = std::remove_reference_t<decltype(s)>;
            install(boost::shared_ptr<Store>(new Store(s)));
        });
}

bool Sparse::sharesStore(const Sparse& other) const { return dSp == other.dSp && zSp == other.zSp; }

bool Sparse::reallocate(double fraction)
{
    if (!(static_cast<double>(getNnz()) < fraction * static_cast<double>(getNzmax())))
        return false;
    guarded([&] {
        clearAuxData();
        visitStore(*this, [&](auto& s) {
            using Store = std::remove_reference_t<decltype(s)>;
            install(boost::shared_ptr<Store>(new Store(s)));
        });
    });
    return true;
}

/// Gives unused capacity back if memory for the smaller arrays can be had; the matrix is complete either way.
void Sparse::trim(double fraction)
{
    try {
        reallocate(fraction);
    } catch (const qxbase::Exception&) {
    }
}

void Sparse::real2complex()
{
    if (!real)
        return;
    guarded([&] {
        const boost::shared_ptr<ComplexStore> store(new ComplexStore);
        llsp_real2complex(*dSp, *store, static_cast<int>(dSp.use_count()));
        install(store);
    });
}

void Sparse::clear()
{
    guarded([&] { install(boost::shared_ptr<RealStore>(new RealStore(0, 0, 0))); });
}

// --- Inspection ---------------------------------------------------------------------------------------------------

unsigned long Sparse::getM() const
{
    return visitStore(*this, [](const auto& s) { return s.symm == RowStored ? s.n : s.m; });
}

unsigned long Sparse::getN() const
{
    return visitStore(*this, [](const auto& s) { return s.symm == RowStored ? s.m : s.n; });
}

unsigned long Sparse::getNnz() const
{
    return visitStore(*this, [](const auto& s) { return s.nnz(); });
}

unsigned long Sparse::getNzmax() const
{
    return visitStore(*this, [](const auto& s) { return s.nzmax; });
}

Symm_t Sparse::getSymm() const
{
    return visitStore(*this, [](const auto& s) { return s.symm; });
}

Form_t Sparse::getForm() const
{
    return visitStore(*this, [](const auto& s) { return s.form; });
}

unsigned long* Sparse::getColPtr() const
{
    return visitStore(*this, [](const auto& s) { return s.colPtr; });
}

unsigned long* Sparse::getRow() const
{
    return visitStore(*this, [](const auto& s) { return s.row; });
}

unsigned long* Sparse::getDiag() const
{
    return visitStore(*this, [](const auto& s) { return s.diag; });
}

double* Sparse::getDoubleVal() const { return real ? dSp->val : nullptr; }
Sparse::Complex* Sparse::getDcmplxVal() const { return real ? nullptr : zSp->val; }

std::int64_t Sparse::getRowColptrVersion() const
{
    return visitStore(*this, [](const auto& s) { return s.rowColptrVersion; });
}

void Sparse::setSymm(Symm_t symm)
{
    guarded([&] {
        visitStore(*this, [&](const auto& s) { checkSquare(symm, s.m, s.n); });
        makeUnique();
        visitStore(*this, [&](auto& s) { s.symm = real && symm == Hermitian ? Symmetric : symm; });
    });
}

void Sparse::setForm(Form_t form)
{
    guarded([&] {
        makeUnique();
        visitStore(*this, [&](auto& s) { s.form = form; });
    });
}

bool Sparse::isSimple() const
{
    if (!real)
        return false;
    const RealStore& s = *dSp;
    for (unsigned long j = 0; j <= s.n; ++j)
        if (s.colPtr[j] != j)
            return false;
    for (unsigned long j = 0; j < s.n; ++j)
        if (s.val[j] != 1.0 || (j > 0 && s.row[j] <= s.row[j - 1]))
            return false;
    return true;
}

bool Sparse::isSymmetric(double tol, Trans_t trans) const
{
    return guarded([&] {
        return real || trans == Trans ? visitStore(*this, [&](const auto& s) { return s.isSymmetric(tol); })
                                      : zSp->isHermitian(tol);
    });
}

namespace {

template <class T>
bool closeTo(const T& a, const T& b, double tol, Trans_t trans)
{
    const T d = a - (trans == ConjTrans ? qxsparse::conjugate(b) : b);
    return squaredAbs(d) < tol * tol * (squaredAbs(a) + squaredAbs(b));
}

template <class T>
bool storesEqual(const llsparse<T>& a, const llsparse<T>& b, double tol, Trans_t trans)
{
    if (a.symm != b.symm || a.m != b.m || a.n != b.n || a.nnz() != b.nnz() ||
        !std::equal(a.colPtr, a.colPtr + a.n + 1, b.colPtr))
        return false;
    if (a.form & b.form & FormSorted) {
        for (unsigned long p = 0; p < a.nnz(); ++p)
            if (a.row[p] != b.row[p] || !closeTo(a.val[p], b.val[p], tol, trans))
                return false;
        return true;
    }
    for (unsigned long j = 0; j < a.n; ++j) {
        const unsigned long *begin = b.row + b.colPtr[j], *end = b.row + b.colPtr[j + 1];
        for (unsigned long p = a.colPtr[j]; p < a.colPtr[j + 1]; ++p) {
            const unsigned long* found = std::find(begin, end, a.row[p]);
            if (found == end || !closeTo(a.val[p], b.val[found - b.row], tol, trans))
                return false;
        }
    }
    return true;
}

} // namespace

bool Sparse::isEqual(const Sparse& other, double tol, Trans_t trans) const
{
    if (real != other.real)
        return false;
    return real ? storesEqual(*dSp, *other.dSp, tol, trans) : storesEqual(*zSp, *other.zSp, tol, trans);
}

bool Sparse::posDiag() const
{
    return visitStore(*this, [](const auto& s) {
        if ((s.symm != Symmetric && s.symm != Hermitian) || s.form != FormSorted)
            return false;
        for (unsigned long j = 0; j < s.n; ++j) {
            const unsigned long p = s.colPtr[j];
            if (p == s.colPtr[j + 1] || s.row[p] != j || !(std::real(s.val[p]) > 0.0))
                return false;
        }
        return true;
    });
}

unsigned long Sparse::nonZeros(unsigned long k, int* mask) const
{
    checkIndex(k, getM());
    return visitStore(*this, [&](const auto& s) {
        unsigned long count = 0;
        const auto mark = [&](unsigned long j) {
            count += mask[j] != 1;
            mask[j] = 1;
        };
        std::fill_n(mask, s.symm == RowStored ? s.m : s.n, 0);
        if (s.symm == RowStored) {
            for (unsigned long p = s.colPtr[k]; p < s.colPtr[k + 1]; ++p)
                mark(s.row[p]);
            return count;
        }
        for (unsigned long j = 0; j < s.n; ++j)
            for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p)
                if (s.row[p] == k)
                    mark(j);
        return count;
    });
}

void Sparse::getReal(double* out) const
{
    visitStore(*this, [&](const auto& s) {
        std::transform(s.val, s.val + s.nnz(), out, [](const auto& value) { return std::real(value); });
    });
}

void Sparse::getIdx(std::vector<int*>& out) const
{
    visitStore(*this, [&](const auto& s) {
        constexpr unsigned long limit = std::numeric_limits<int>::max();
        if (s.m > limit || s.n >= limit || s.nnz() > limit)
            refuseSize("Matrix_too_large_for_JNI_interface", std::max({s.m, s.n, s.nnz()}), limit);
        if (out.size() < 2)
            refuseSize("Matrix_too_large_for_JNI_interface", 2, out.size());
        const auto narrow = [](unsigned long i) { return static_cast<int>(i); };
        std::transform(s.colPtr, s.colPtr + s.n + 1, out[0], narrow);
        std::transform(s.row, s.row + s.nnz(), out[1], narrow);
    });
}

void Sparse::getVectorPair(std::vector<std::pair<int, int>>& out) const
{
    guarded([&] {
        constexpr unsigned long limit = std::numeric_limits<int>::max();
        if (!real)
            QX_RAISE("sparse", "Internal_error_sparse", "Reason", "pairs are made of real entries");
        if (getM() > limit || getN() > limit)
            refuseSize("Internal_error_sparse", std::max(getM(), getN()), limit);
        const Sparse byColumn = convertToCol(*this);
        const RealStore& s = *byColumn.dSp;
        out.reserve(out.size() + s.nnz());
        for (unsigned long j = 0; j < s.n; ++j)
            for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p) {
                const int i = static_cast<int>(s.row[p]);
                out.emplace_back(static_cast<int>(j), s.val[p] > 0.0 ? i : -1 - i);
            }
    });
}

// --- Elements and structure ---------------------------------------------------------------------------------------

void Sparse::setElem(unsigned long i, unsigned long j, Complex value)
{
    guarded([&] {
        if (real && value.imag() != 0.0) { // on a copy: a failure leaves this matrix real
            Sparse promoted = *this;
            promoted.real2complex();
            promoted.setElem(i, j, value);
            *this = promoted;
            return;
        }
        makeUnique();
        visitStore(*this, [&](auto& s) {
            const Symm_t before = s.symm;
            if (before != RowStored)
                s.symm = Unsymmetric;
            try {
                if constexpr (std::is_same_v<ElementOf<std::remove_reference_t<decltype(s)>>, double>)
                    s.setElem(i, j, value.real());
                else
                    s.setElem(i, j, value);
            } catch (...) {
                s.symm = before;
                throw;
            }
        });
    });
}

void Sparse::format(Form_t form, bool checkDiag)
{
    guarded([&] { visitStore(*this, [&](auto& s) { s.format(form, checkDiag); }); });
}

void Sparse::reshape(int m, int n)
{
    guarded([&] {
        makeUnique();
        clearAuxData();
        visitStore(*this, [&](auto& s) { s.reshape(m, n); });
    });
}

void Sparse::zeroCols(const int* mask)
{
    guarded([&] {
        visitStore(*this, [&](auto& s) {
            using Store = std::remove_reference_t<decltype(s)>;
            const boost::shared_ptr<Store> result(new Store);
            result->zeroCols(s, mask);
            install(result);
        });
    });
}

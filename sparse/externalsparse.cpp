// SPDX-License-Identifier: LicenseRef-qxkernel
#include "externalsparse.hpp"

#include "product_kernels.hpp"
#include "sparse_detail.hpp"
#include "vector_access.hpp"

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>

using namespace qxsparse;

namespace {

/// The loops of llsparse over 32-bit indices.
class BuiltIn : public ExternalMatVec
{
public:
    void multiply(double* y, double alpha, unsigned long, unsigned long n, const int* colPtr, const int* row,
                  const double* val, const double* x, Trans_t trans) const override
    {
        const ColumnView<double, int> view{n, colPtr, row, val};
        const WholeColumns<int> columns(colPtr, 0, n);
        if (alpha > 0.0)
            qxsparse::multiply<false>(view, Unsymmetric, y, x, trans, columns, 0, n);
        else
            qxsparse::multiply<true>(view, Unsymmetric, y, x, trans, columns, 0, n);
    }
};

struct Library
{
    std::mutex lock;
    boost::shared_ptr<ExternalMatVec> externalMatVecLib;
    std::atomic<bool> hasRealMatVec{false}, hasComplexMatVec{false}, libLoaded{false};
};

Library& library()
{
    static Library instance;
    return instance;
}

} // namespace

ExternalMatVec::~ExternalMatVec() = default;

boost::shared_ptr<ExternalMatVec> ExternalSparse::getMatVecLibrary()
{
    const std::lock_guard<std::mutex> hold(library().lock);
    return library().externalMatVecLib;
}

void ExternalSparse::setMatVecLibrary(const boost::shared_ptr<ExternalMatVec>& matVec)
{
    const std::lock_guard<std::mutex> hold(library().lock);
    library().externalMatVecLib = matVec;
    library().hasRealMatVec = matVec != nullptr;
}

void ExternalSparse::useBuiltIn(bool on)
{
    setMatVecLibrary(on ? boost::shared_ptr<ExternalMatVec>(new BuiltIn) : boost::shared_ptr<ExternalMatVec>());
}

void ExternalSparse::loadLibrary(bool) { library().libLoaded = true; }
bool ExternalSparse::libraryLoaded() { return library().libLoaded; }

bool ExternalSparse::isRealMatVec()
{
    loadLibrary(false);
    return library().hasRealMatVec;
}

bool ExternalSparse::isComplexMatVec()
{
    loadLibrary(false);
    return library().hasComplexMatVec;
}

ExternalSparse::ExternalSparse() = default;
ExternalSparse::~ExternalSparse() = default;

void ExternalSparse::clear()
{
    const std::lock_guard<std::mutex> hold(lock);
    release();
}

void ExternalSparse::release()
{
    intRep = false;
    intColPtrArray = Array<int, 1>();
    intRowArray = Array<int, 1>();
    intColPtr = intRow = nullptr;
}

namespace {

unsigned long storedColumns(const Sparse& A) { return A.getSymm() == RowStored ? A.getM() : A.getN(); }

bool fitsInt(unsigned long count) { return count <= static_cast<unsigned long>(std::numeric_limits<int>::max()); }

} // namespace

bool ExternalSparse::isIntRep(const Sparse& A)
{
    const std::lock_guard<std::mutex> hold(lock);
    return update(A);
}

int* ExternalSparse::allocate(Array<int, 1>& holder, unsigned long n)
{
    holder.resize(n);
    return holder.data();
}

void ExternalSparse::allocIntColPtr(const Sparse& A)
{
    intRep = false;
    intColPtr = allocate(intColPtrArray, storedColumns(A) + 1);
}

void ExternalSparse::allocIntRow(const Sparse& A)
{
    intRep = false;
    intRow = allocate(intRowArray, A.getNnz());
}

bool ExternalSparse::update(const Sparse& A)
{
    const unsigned long n = storedColumns(A), m = A.getM() + A.getN() - n, nnz = A.getNnz();
    if (intRep && versionSeen == A.getRowColptrVersion() && colPtrSeen == A.getColPtr() && rowSeen == A.getRow() &&
        mSeen == m && nSeen == n && nnzSeen == nnz)
        return true;
    release();
    if (!fitsInt(nnz) || !fitsInt(n + 1) || !fitsInt(m))
        return false;
    try {
        allocIntColPtr(A);
        allocIntRow(A);
    } catch (const std::bad_alloc&) {
        release();
        return false;
    }
    const auto narrow = [](unsigned long i) { return static_cast<int>(i); };
    std::transform(A.getColPtr(), A.getColPtr() + n + 1, intColPtr, narrow);
    std::transform(A.getRow(), A.getRow() + nnz, intRow, narrow);
    versionSeen = A.getRowColptrVersion();
    colPtrSeen = A.getColPtr();
    rowSeen = A.getRow();
    mSeen = m;
    nSeen = n;
    nnzSeen = nnz;
    intRep = true;
    return true;
}

const int* ExternalSparse::getIntRow(const Sparse& A) { return isIntRep(A) ? intRow : nullptr; }
const int* ExternalSparse::getIntColPtr(const Sparse& A) { return isIntRep(A) ? intColPtr : nullptr; }

namespace {

void checkReal(bool real)
{
    if (!real)
        QX_RAISE("externalsparse", "Internal_error_in_ExternalSparse");
}

} // namespace

void ExternalSparse::multiply(Matrix<1>& y, double alpha, const Sparse& A, const VectorView& x, Trans_t trans)
{
    checkReal(y.isReal() && A.isReal() && x.isReal());
    const boost::shared_ptr<ExternalMatVec> matVec = isRealMatVec() ? getMatVecLibrary() : nullptr;
    std::unique_lock<std::mutex> hold(lock, std::defer_lock);
    const bool external = matVec && hold.try_lock() && update(A);
    withProductTypes(y, A, x, [&](const auto& s, auto* yData, const auto* xData) {
        using Y = std::remove_cvref_t<decltype(*yData)>;
        if constexpr (std::is_same_v<Y, double>) {
            if (!external) {
                if (alpha > 0.0)
                    s.yPlusAMulx(yData, xData, trans);
                else
                    s.yMinusAMulx(yData, xData, trans);
                return;
            }
            const double sign = alpha > 0.0 ? 1.0 : -1.0;
            const auto product = [&](Trans_t form) {
                matVec->multiply(yData, sign, s.m, s.n, intColPtr, intRow, s.val, xData, form);
            };
            if (s.symm == Symmetric || s.symm == Hermitian) {
                product(NoTrans);
                product(Trans);
            } else {
                product((trans == NoTrans) == (s.symm == Unsymmetric) ? NoTrans : Trans);
            }
        }
    });
}

void ExternalSparse::yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    realyPlusAlphaAMulx(y, 1.0, A, x, trans);
}

void ExternalSparse::yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col)
{
    realyPlusAlphaAMulx(y, 1.0, A, x, trans, col);
}

void ExternalSparse::yMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    realyPlusAlphaAMulx(y, -1.0, A, x, trans);
}

void ExternalSparse::realyPlusAlphaAMulx(Matrix<1>& y, double alpha, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    multiply(y, alpha, A, VectorView(x), trans);
}

void ExternalSparse::realyPlusAlphaAMulx(Matrix<1>& y, double alpha, const Sparse& A, const Matrix<2>& x, Trans_t trans,
                                         unsigned long col)
{
    multiply(y, alpha, A, VectorView(x, col), trans);
}

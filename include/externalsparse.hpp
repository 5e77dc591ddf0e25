// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "matrix.hpp"
#include "qxexport.hpp"
#include "transt.hpp"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <mutex>

class Sparse;

namespace qxsparse {
class VectorView;
}

/// A library of products with 32-bit indices on compressed columns, as ExternalSparse hands them over.
class QX_API ExternalMatVec
{
public:
    virtual ~ExternalMatVec();
    /// y += alpha op(S) x for the stored m-by-n matrix S; alpha is 1 or -1, trans NoTrans or Trans. Arrays are lent.
    virtual void multiply(double* y, double alpha, unsigned long m, unsigned long n, const int* colPtr, const int* row,
                          const double* val, const double* x, Trans_t trans) const = 0;
};

/// The hook through which serial real products can go to a matrix-vector library with 32-bit indices: a quarter less
/// memory traffic. Without a library, the default, every call runs the kernels of llsparse. The library brings one of
/// its own, useBuiltIn(): the same loops, and the same bits but for Symmetric stores, whose two halves run one after the
/// other.
///
/// One object belongs to one matrix (and its copies) and keeps the index arrays in 32 bits until the structure changes.
/// Cost of the conversion: 4 bytes and one pass an entry. Failures: "Internal_error_in_ExternalSparse" for complex
/// arguments. A matrix that is too large for 32 bits, or no memory for the copy: the llsparse kernels.
/// Threads: the library is switched while no product runs; an object serves one call at a time, others fall back.
class QX_API ExternalSparse
{
public:
    ExternalSparse();
    ~ExternalSparse();
    ExternalSparse(const ExternalSparse&) = delete;
    ExternalSparse& operator=(const ExternalSparse&) = delete;

    /// The library in use, null without one.
    static boost::shared_ptr<ExternalMatVec> getMatVecLibrary();
    /// Puts a library to use for real products; null for none.
    static void setMatVecLibrary(const boost::shared_ptr<ExternalMatVec>& library);
    /// Switches the built-in kernels on or off.
    static void useBuiltIn(bool on);
    /// Marks the library as looked for. The argument has no effect.
    static void loadLibrary(bool);
    static bool libraryLoaded();
    /// Whether a library serves real (complex) products; look for it first.
    static bool isRealMatVec();
    static bool isComplexMatVec();

    /// Whether the indices of A are at hand in 32 bits; makes them if needed.
    bool isIntRep(const Sparse& A);
    /// The 32-bit arrays of the last isIntRep; null if it was false.
    const int* getIntRow(const Sparse& A);
    const int* getIntColPtr(const Sparse& A);
    /// Make room for the 32-bit offsets and rows of A, of any contents; std::bad_alloc. allocate makes holder n elements
    /// long and returns them.
    void allocIntColPtr(const Sparse& A);
    void allocIntRow(const Sparse& A);
    static int* allocate(Array<int, 1>& holder, unsigned long n);

    void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
    void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col);
    void yMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
    /// alpha above 0 adds op(A) x, any other subtracts it.
    void realyPlusAlphaAMulx(Matrix<1>& y, double alpha, const Sparse& A, const Matrix<1>& x, Trans_t trans);
    void realyPlusAlphaAMulx(Matrix<1>& y, double alpha, const Sparse& A, const Matrix<2>& x, Trans_t trans,
                             unsigned long col);
    void clear();

private:
    bool update(const Sparse& A);
    void release();
    void multiply(Matrix<1>& y, double alpha, const Sparse& A, const qxsparse::VectorView& x, Trans_t trans);

    Array<int, 1> intColPtrArray, intRowArray;
    const unsigned long* colPtrSeen = nullptr;
    const unsigned long* rowSeen = nullptr;
    int* intColPtr = nullptr;
    int* intRow = nullptr;
    std::int64_t versionSeen = 0;
    bool intRep = false;
    unsigned long mSeen = 0, nSeen = 0, nnzSeen = 0;
    std::mutex lock;
};

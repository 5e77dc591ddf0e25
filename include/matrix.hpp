// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "qxexport.hpp"
#include "transt.hpp"

#include <boost/shared_ptr.hpp>
#include <complex>
#include <vector>

/// Tag for a constructor that leaves real elements uninitialised: for callers who write every element next.
struct uninit_t
{
};

/// Real or complex dense value of N dimensions with shared storage: the dense vectors (N = 1) and matrices (N = 2) that
/// the solvers exchange. N = 3 is instantiated for storage only: construction, sharing, sizes, getdArr, getzArr.
///
/// A matrix starts real and becomes complex on demand; it never returns to real by itself. Copies share the array, and
/// writing makes a private copy first. Indices are not checked.
///
/// External buffers: setNoRealloc(true) marks the array as the stand-in for memory that the caller owns. It is then
/// never replaced: writes go to it even when it is shared, so copies of such a matrix (which take the mark over) alias
/// the buffer, and promotion to complex raises "Internal_error_matrix". trueCopy clears the mark.
///
/// Failures: "Internal_error_matrix" where promotion would replace a noRealloc array, where the real array of a complex
/// matrix (or, for reading, the complex array of a real one) is asked for, and for fill beyond the last column;
/// std::bad_alloc. In every case the matrix is as it was.
/// Threads: no lock. Many may read one matrix; a writer needs a handle of its own.
template <int N>
class QX_API Matrix
{
public:
    using RealArray = Array<double, N>;
    using ComplexArray = Array<std::complex<double>, N>;

    /// Real, empty.
    Matrix();
    /// Adopts the array, kept and shared with the caller; null means an empty one.
    explicit Matrix(const boost::shared_ptr<RealArray>& array);
    explicit Matrix(const boost::shared_ptr<ComplexArray>& array);
    /// size elements of value 0.
    Matrix(unsigned long size, bool real) requires(N == 1);
    /// m rows and n columns of value 0.
    Matrix(unsigned long m, unsigned long n, bool real) requires(N == 2);
    Matrix(uninit_t, unsigned long size, bool real) requires(N == 1);
    Matrix(uninit_t, unsigned long m, unsigned long n, bool real) requires(N == 2);
    /// Shares the array, takes the noRealloc mark over.
    Matrix(const Matrix&) = default;
    Matrix& operator=(const Matrix&) = default;

    /// Makes this a deep copy of other without the noRealloc mark; with real false the copy is complex whatever other
    /// is. A complex matrix is never made real: real true keeps its type.
    void trueCopy(const Matrix& other, bool real);

    bool isReal() const { return real; }
    bool isNoRealloc() const { return noRealloc; }
    /// Number of elements; extent of dimension dim (0-based).
    unsigned long size() const;
    unsigned long size(int dim) const;
    /// True if no other matrix or holder shares the array.
    bool hasUniqueData() const;

    /// Element by linear index; the imaginary part of a real matrix is 0.
    std::complex<double> operator[](unsigned long i) const
    {
        return real ? std::complex<double>((*dArr)[i]) : (*zArr)[i];
    }

    /// The array for writing: made private first if it is shared. The reference lives until the matrix is assigned to,
    /// promoted or copied and written.
    RealArray& getdArr();
    /// Promotes a real matrix.
    ComplexArray& getzArr();
    /// The array for reading, no copy.
    const RealArray& gethdArr() const;
    const ComplexArray& gethzArr() const;

    /// A value with an imaginary part that is not 0 (NaN is not 0) promotes.
    void set(unsigned long i, std::complex<double> value);
    void set(unsigned long i, unsigned long j, std::complex<double> value) requires(N == 2);
    /// Sets, or multiplies, all elements; promotes like set.
    Matrix& operator=(std::complex<double> value);
    Matrix& operator*=(std::complex<double> factor);
    /// Real to complex with imaginary parts 0; nothing if complex already, also with the noRealloc mark.
    void real2complex();
    /// Empties the array and keeps the element type.
    void clear();
    /// With true the array is first made private if it is shared.
    void setNoRealloc(bool value);
    /// Writes the first m elements of a vector into column j, m the number of rows. A longer vector is cut; a shorter one
    /// raises "Too_few_elements_in_fill". A complex vector promotes.
    void fill(const Matrix<1>& column, unsigned long j) requires(N == 2);

private:
    template <int>
    friend class Matrix;

    void makeUnique();

    boost::shared_ptr<RealArray> dArr;
    boost::shared_ptr<ComplexArray> zArr;
    bool real = true;
    bool noRealloc = false;
};

/// 2-norm, the Frobenius norm of a matrix.
template <int N>
QX_API double norm(const Matrix<N>& x);

/// Sum of x_i y_i, not conjugated. Fails as qxarray::dot.
QX_API std::complex<double> dot(const Matrix<1>& x, const Matrix<1>& y);

/// y += a x; a real y is promoted if a or x is complex (a with imaginary part 0 is real). Fails as qxarray::yPlusaMulx.
QX_API void yPlusaMulx(Matrix<1>& y, std::complex<double> a, const Matrix<1>& x);

/// The vectors as columns of one matrix, complex if any of them is. The first vector gives the number of rows; a longer
/// one is cut, a shorter one raises "Too_few_elements_in_fill".
QX_API Matrix<2> hcat(const std::vector<Matrix<1>>& columns);

/// qxarray::linsolv, lu, linsolvsolve by element type. Of a real and a complex argument the real one is promoted.
template <int N>
QX_API int linsolv(Matrix<2>& A, Matrix<N>& B, int flags);
QX_API int lu(Matrix<2>& A, Array<int, 1>& ipiv, int flags);
template <int N>
QX_API int linsolvsolve(Matrix<2>& LU, const Array<int, 1>& ipiv, Matrix<N>& B, int flags);

/// Kernels on raw vectors of n elements whose types may differ: Y is complex, or all are double. Equal types go to
/// qxarray, mixed ones are loops, parallel from 10000 elements on with the same bits. y and x may be the same vector but
/// must not overlap otherwise.
namespace qxmatrix {

/// y_i = x_i
template <class Y, class X>
QX_API void copy(Y* y, const X* x, unsigned long n);
/// 2-norm
template <class X>
QX_API double norm(const X* x, unsigned long n);
/// x_i *= a
template <class X, class A>
QX_API void scale(X* x, A a, unsigned long n);
/// y_i *= x_i
template <class Y, class X>
QX_API void times(Y* y, const X* x, unsigned long n);
/// y_i += a
template <class Y, class A>
QX_API void yPlusa(Y* y, A a, unsigned long n);
/// y_i += a x_i
template <class Y, class A, class X>
QX_API void yPlusaMulx(Y* y, A a, const X* x, unsigned long n);

} // namespace qxmatrix

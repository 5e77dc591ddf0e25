// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "llsparse.hpp"
#include "matrix.hpp"
#include "qxexport.hpp"
#include "transt.hpp"

#include <boost/shared_ptr.hpp>

#include <complex>
#include <cstdint>
#include <iosfwd>
#include <utility>
#include <vector>

namespace qxutil {
class RunInfo;
}

class AssemblyPattern;
class ExternalSparse;
class ParallelSparse;

/// A real or complex sparse matrix: the value that solvers and hosts exchange. See llsparse.hpp for the store.
///
/// A matrix is real until something makes it complex; only scale(0) and clear() make it real again. Copies share the
/// store; a member that modifies first makes a private, trimmed copy when the store is shared. format alone works on
/// the shared store: it permutes entries and changes no value.
///
/// Sums, products and selections act on the stored matrices (see llsparse): expand Symmetric and Hermitian operands
/// first where the represented matrix is meant. A store by columns (Unsymmetric) and one by rows (RowStored) do not mix.
///
/// Failures come from "sparse" unless llsparse.hpp names them, and leave operands and this matrix as they were:
/// "Size_sparse_matrices_disagree", "Size_vector_sparse_matrix_disagree", "Length_triplet_vectors_disagree",
/// "Out_of_memory_creating_sparse_matrix" (triplet2sparse, flat2sparse), "Out_of_memory_operation_sparse_matrix" (all
/// others), "Internal_error_sparse" (any other failure, and an index out of range, with "Index", "Size" and "Limit"). More than
/// 2^32 - 2 rows or columns are refused as memory is, with "Size" and "Limit". A Symmetric or Hermitian store that is not
/// square is refused where it would arise, and by products and sweeps: "Internal_error_sparse" with "Rows" and "Columns".
/// Further failures stand at their members.
///
/// Threads: concurrent reading of one handle is free, products and sweeps included; a writer, and format, needs the
/// store for itself. Operations fork as llsparse says and give the same bits for any number of threads; products and
/// sweeps with vectors: see parallelsparse.hpp.
class QX_API Sparse
{
public:
    using Complex = std::complex<double>;
    using RealStore = llsparse<double>;
    using ComplexStore = llsparse<Complex>;
    using IndexArray = Array<unsigned long, 1>;

    /// Real, 0 by 0.
    Sparse();
    /// Shares the store, kept. Null, and a store without arrays, make a 0-by-0 matrix.
    explicit Sparse(const boost::shared_ptr<RealStore>& store);
    explicit Sparse(const boost::shared_ptr<ComplexStore>& store);
    Sparse(const Sparse& other);
    Sparse& operator=(const Sparse& other);
    ~Sparse();

    // --- Inspection: constant time unless it is said otherwise ----------------------------------------------------

    unsigned long getM() const;  ///< logical rows
    unsigned long getN() const;  ///< logical columns
    unsigned long getNnz() const;
    unsigned long getNzmax() const;
    Symm_t getSymm() const;
    Form_t getForm() const;
    bool isReal() const { return real; }
    /// A real store takes Hermitian as Symmetric. No entry changes. A matrix that is not square is refused as a summand:
    /// "Internal_error_sparse" with "Rows" and "Columns".
    void setSymm(Symm_t symm);
    /// Believes the caller: nothing is checked. FormDiag needs a valid diagonal array.
    void setForm(Form_t form);
    /// Raw views of the store; lent until the matrix is modified. The value view of the other type is null.
    unsigned long* getColPtr() const;
    unsigned long* getRow() const;
    unsigned long* getDiag() const;
    double* getDoubleVal() const;
    Complex* getDcmplxVal() const;
    const boost::shared_ptr<RealStore>& getptrD() const { return dSp; }
    const boost::shared_ptr<ComplexStore>& getptrZ() const { return zSp; }
    std::int64_t getRowColptrVersion() const;
    /// Whether no other handle shares the store.
    bool hasUniqueData() const;
    /// Whether the block structure, or the accelerator, for products has been made.
    bool getHasParallel() const;
    bool getHasExternal() const;

    /// A real store with exactly one entry in each column, rows strictly increasing, all values 1.0: a selection. O(n).
    bool isSimple() const;
    /// For a complex store with trans other than Trans: isHermitian; else isSymmetric (see llsparse). O(nnz log).
    bool isSymmetric(double tol, Trans_t trans) const;
    /// Same type, symm, sizes, number of entries and structure, and |d|^2 < tol^2 (|a|^2 + |b|^2) for d = a - b (b
    /// conjugated for ConjTrans) of each pair: strict, so that with tol 0 only matrices without entries are equal.
    bool isEqual(const Sparse& other, double tol, Trans_t trans) const;
    /// A Symmetric or Hermitian store of form FormSorted exactly, whose columns all begin with a diagonal entry of
    /// positive real part.
    bool posDiag() const;
    /// Sets mask[j] = 1 for each logical column j with an entry in logical row k and returns their number; mask (getN).
    /// No such row: "Internal_error_sparse".
    unsigned long nonZeros(unsigned long k, int* mask) const;
    /// Real parts of the stored values to out (getNnz).
    void getReal(double* out) const;
    /// Column offsets and rows as int to out[0] (stored n + 1) and out[1] (nnz). "Matrix_too_large_for_JNI_interface".
    void getIdx(std::vector<int*>& out) const;
    /// Appends for each entry of a real matrix, logical column by column, (j, i) if its value is positive, else
    /// (j, -1 - i). "Internal_error_sparse" with "Reason" for complex matrices, with "Size" and "Limit" for sizes beyond int.
    void getVectorPair(std::vector<std::pair<int, int>>& out) const;

    // --- Construction ---------------------------------------------------------------------------------------------

    /// No entries, room for nzmax.
    Sparse& zeros(unsigned long m, unsigned long n, unsigned long nzmax, bool real);
    Sparse& zeros(unsigned long n) { return zeros(n, n, 0, true); }
    Sparse& eye(unsigned long m, unsigned long n);
    Sparse& eye(unsigned long n) { return eye(n, n); }
    /// Sum of triplets; see llsparse::triplet2sparse, and assemblypattern.hpp for the same list with other values. The
    /// number form gives every triplet the same value. More than 4009617631 triplets raise "Size_input_vector_too_large" with
    /// "Size" and "Limit", an index out of range "Internal_error_sparse".
    void triplet2sparse(const IndexArray& rows, const IndexArray& cols, const Matrix<1>& vals, unsigned long m,
                        unsigned long n);
    void triplet2sparse(const IndexArray& rows, const IndexArray& cols, double val, unsigned long m, unsigned long n);
    void triplet2sparse(const IndexArray& rows, const IndexArray& cols, Complex val, unsigned long m,
                        unsigned long n);
    void triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                        const Matrix<1>& vals, unsigned long m, unsigned long n);
    void triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols, double val,
                        unsigned long m, unsigned long n);
    void triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols, Complex val,
                        unsigned long m, unsigned long n);
    void triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                        const std::vector<double>& vals, unsigned long m, unsigned long n);
    void triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                        const std::vector<Complex>& vals, unsigned long m, unsigned long n);
    /// Compressed columns: colPtr (n + 1), rows and vals (colPtr[n]). Same failures as triplet2sparse; offsets that do
    /// not begin at 0, decrease or end elsewhere raise "Internal_error_sparse".
    void flat2sparse(const IndexArray& rows, const IndexArray& colPtr, const Matrix<1>& vals, unsigned long m,
                     unsigned long n);
    void flat2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& colPtr,
                     const Matrix<1>& vals, unsigned long m, unsigned long n);
    /// The triplet form behind the others, on arrays that the caller lends. V is double or Complex; nVals 1 with
    /// constVal. A cancelled run raises qxbase::CancelException within milliseconds and leaves this matrix as it was.
    template <class V>
    void triplet2sparse(const unsigned long* rows, unsigned long nRows, const unsigned long* cols, unsigned long nCols,
                        const V* vals, unsigned long nVals, unsigned long m, unsigned long n, bool constVal,
                        const qxutil::RunInfo* run = nullptr);
    /// 0 by 0 and real.
    void clear();

    // --- Storage --------------------------------------------------------------------------------------------------

    void real2complex();
    /// True, and the store trimmed, if nnz is below fraction times the capacity.
    bool reallocate(double fraction);
    /// Forgets what was made for products; the objects stay.
    void clearAuxData();

    // --- Structure ------------------------------------------------------------------------------------------------

    /// See llsparse::setElem. A store that is not RowStored becomes Unsymmetric; a value with an imaginary part makes a
    /// real matrix complex.
    void setElem(unsigned long i, unsigned long j, Complex value);
    /// See llsparse::format. Acts on the store of all sharers.
    void format(Form_t form, bool checkDiag);
    void reshape(int m, int n);
    /// See llsparse::zeroCols; mask (getN).
    void zeroCols(const int* mask);
    /// Merges entries of the same row and column; a sum of exactly zero is dropped. Columns end sorted.
    void removeDuplicates();
    /// Drops the logical columns that have no entry. A Symmetric or Hermitian store that would lose one is refused.
    void removeZeroCols();
    /// Drops the entries of each column that are not above tol times its largest magnitude, NaN entries too; with tol
    /// not above 0, the exact zeros. A shared store is reported on the standard output stream: the saving is lost.
    void truncateCols(double tol);
    /// Symmetric and Hermitian stores: moves entries above the diagonal onto their mirrors where these exist. The
    /// represented matrix stays.
    void uniqueSymmetric();
    /// Turns a general store of a symmetric (Hermitian) matrix into the summand form: its lower triangle with half the
    /// diagonal. trans Trans makes it Symmetric, others Hermitian; a real store always Symmetric.
    void makeSymmetric(Trans_t trans);

    // --- Algebra --------------------------------------------------------------------------------------------------

    /// this = alpha B + this.
    void addMat(Complex alpha, const Sparse& B, bool inPlace);
    /// this = op(B) this. A transposed selection (isSimple) keeps the rows listed in B without a product.
    void multLeft(const Sparse& B, Trans_t trans, bool inPlace);
    /// this = this B. By a selection B the columns listed in B are kept.
    void mulRight(const Sparse& B, bool inPlace);
    /// An alpha of exactly 0 makes the matrix an empty real one of the same size, stored by columns, also over NaN.
    void scale(Complex alpha);
    /// Column j times, or divided by, d_j; row i times, or divided by, d_i. Values of the store (see llsparse).
    void colscale(const Matrix<1>& d);
    void colscaleInv(const Matrix<1>& d);
    void rowscale(const Matrix<1>& d);
    void rowscaleInv(const Matrix<1>& d);
    void conjugate();
    /// 1, -1 or 0 for each value. "Sign_of_complex_Sparse_not_implemented".
    void sign();

    /// This becomes the concatenation of the list; members may have fewer than m rows (n columns). An empty total leaves
    /// this as it was.
    void hcat(const std::vector<boost::shared_ptr<Sparse>>& list, unsigned long m);
    void vcat(const std::vector<boost::shared_ptr<Sparse>>& list, unsigned long n);

    /// The helpers for products: made at the first use, shared by copies, any thread.
    boost::shared_ptr<ParallelSparse> getParallelSparse() const;
    boost::shared_ptr<ExternalSparse> getExternalSparse() const;

private:
    friend class AssemblyPattern;
    template <class T>
    void install(const boost::shared_ptr<llsparse<T>>& store);
    void makeUnique();
    void trim(double fraction);
    void dropHelpers();
    void copyHelpers(const Sparse& other);
    bool sharesStore(const Sparse& other) const;
    template <class Keep>
    void select(const Sparse& B, const Keep& keep);
    void multiply(const Sparse& factor, bool fromLeft, bool inPlace);
    void hcatPrivate(const std::vector<boost::shared_ptr<Sparse>>& list, unsigned long m);
    void vcatPrivate(const std::vector<boost::shared_ptr<Sparse>>& list, unsigned long n);
    template <class Member>
    void scaleByDiagonal(const Matrix<1>& d, unsigned long length, const Member& member);
    template <class V>
    void compressed(const unsigned long* rows, unsigned long nRows, const unsigned long* colPtr, unsigned long nColPtr,
                    const V* vals, unsigned long nVals, unsigned long m, unsigned long n);

    boost::shared_ptr<RealStore> dSp;
    boost::shared_ptr<ComplexStore> zSp;
    bool real = true;
    // Made lazily through const handles, under a lock.
    mutable bool hasExternal = false;
    mutable boost::shared_ptr<ExternalSparse> externalSp;
    mutable bool hasParallel = false;
    mutable boost::shared_ptr<ParallelSparse> parallelSp;
};

// --- Sums, products, selections: see llsparse for orders, forms and work memory -----------------------------------

/// alpha A + B. A cancelled run raises qxbase::CancelException.
QX_API Sparse add(const Sparse& A, std::complex<double> alpha, const Sparse& B, const qxutil::RunInfo* run = nullptr);
QX_API Sparse operator+(const Sparse& A, const Sparse& B);
QX_API Sparse operator-(const Sparse& A, const Sparse& B);
/// Shares the store.
QX_API Sparse operator+(const Sparse& A);
QX_API Sparse operator-(const Sparse& A);
QX_API Sparse operator*(const Sparse& A, const Sparse& B);
QX_API Sparse operator*(std::complex<double> alpha, const Sparse& A);
QX_API Sparse operator*(const Sparse& A, std::complex<double> alpha);
/// A B, or its transpose or conjugate transpose with sorted columns. A cancelled run raises qxbase::CancelException.
QX_API Sparse mul(const Sparse& A, const Sparse& B, Trans_t trans, const qxutil::RunInfo* run = nullptr);
/// op(A) x; complex if A or x is.
QX_API Matrix<1> operator*(const Sparse& A, const Matrix<1>& x);
QX_API Matrix<1> AMulx(const Sparse& A, const Matrix<1>& x, Trans_t trans);
/// The transpose of the store; NoTrans shares it. A real matrix takes ConjTrans as Trans. A cancelled run raises
/// qxbase::CancelException.
QX_API Sparse transpose(const Sparse& A, Trans_t trans, const qxutil::RunInfo* run = nullptr);
/// [A, B] and [A; B]. Unless force is set the other dimension must agree; with it the larger one counts.
QX_API Sparse hcat(const Sparse& A, const Sparse& B, bool force);
QX_API Sparse vcat(const Sparse& A, const Sparse& B, bool force);
/// A(rows, cols), 0-based. A row listed twice keeps its last place, a column listed twice appears twice. An index out of
/// range raises "Internal_error_sparse".
QX_API Sparse subMatrix(const Sparse& A, const Array<int, 1>& rows, const Array<int, 1>& cols);
/// Of a Symmetric or Hermitian store: its entries moved to the lower triangle, every column with a diagonal entry in
/// front that holds half of the stored one. Others are shared. "Matrix_not_square".
QX_API Sparse sparse2tril(const Sparse& A);
/// The same matrix stored by rows, or by columns.
QX_API Sparse convertToRow(const Sparse& A);
QX_API Sparse convertToCol(const Sparse& A);
/// A head line with sizes and nnz, then one line an entry: row, column (0-based), value.
QX_API std::ostream& operator<<(std::ostream& stream, const Sparse& A);

// --- Products and relaxation with vectors: formulas and conditions at the llsparse members ------------------------

/// y += op(A) x, y -= op(A) x. "Size_vector_sparse_matrix_disagree", then y is promoted if A or x is complex. y and x may
/// be the same vector. The select forms do not check sizes and choose: from 10000 entries on, with more than one thread
/// available, ParallelSparse; else the serial form.
QX_API void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
QX_API void yMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
QX_API void selectyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
QX_API void selectyMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
QX_API void serialyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
QX_API void serialyMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
/// With column col of x.
QX_API void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col);
QX_API void selectyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col);
QX_API void serialyPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col);

/// Sweeps; r, x and u are promoted if one of them or A is complex. All return -1. A needs diagonal positions for every
/// column that is visited: call A.format(FormDiag, true) first. The form bit itself is not looked at, nor whether setElem
/// has moved entries since. A position that is missing ("Missing_diagonal_entry", a column), a matrix that is not square
/// ("Rows", "Columns"): "Internal_error_sparse". Vectors shorter than A: "Size_vector_sparse_matrix_disagree".
QX_API int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse);
QX_API int SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse);
QX_API int SORUpdater(const Sparse& A, Matrix<1>& u, double omega, bool reverse);
QX_API int JacobiIts(const Sparse& A, const Matrix<1>& r, Matrix<1>& x, double omega);
/// Over the unknowns listed in idx, never parallel; correction lists as SweepCorrections says: ptr and list name the
/// entries `later`, ptr2 and list2 those `earlier`. Indices out of range: "Internal_error_sparse"; a ptr that does not
/// have one slot more than idx, or does not fit its list: "Size_vector_sparse_matrix_disagree".
QX_API int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const Array<unsigned long, 1>& idx, double omega,
                 bool reverse);
QX_API int SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const Array<unsigned long, 1>& idx, double omega,
                        bool reverse);
QX_API int SORUpdater(const Sparse& A, Matrix<1>& u, const Array<unsigned long, 1>& idx, double omega, bool reverse);
QX_API int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const Array<unsigned long, 1>& idx,
                 const Array<unsigned long, 1>& ptr, const Array<unsigned long, 1>& list, double omega, bool reverse);
QX_API int SORUpdater(const Sparse& A, Matrix<1>& u, const Array<unsigned long, 1>& idx,
                      const Array<unsigned long, 1>& ptr, const Array<unsigned long, 1>& list, double omega,
                      bool reverse);
QX_API int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const Array<unsigned long, 1>& idx,
                 const Array<unsigned long, 1>& ptr, const Array<unsigned long, 1>& list,
                 const Array<unsigned long, 1>& ptr2, const Array<unsigned long, 1>& list2, double omega,
                 bool reverse);
QX_API int SORUpdater(const Sparse& A, Matrix<1>& u, const Array<unsigned long, 1>& idx,
                      const Array<unsigned long, 1>& ptr, const Array<unsigned long, 1>& list,
                      const Array<unsigned long, 1>& ptr2, const Array<unsigned long, 1>& list2, double omega,
                      bool reverse);

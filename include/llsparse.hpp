// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "qxexport.hpp"
#include "transt.hpp"

#include <boost/shared_ptr.hpp>

#include <complex>
#include <cstdint>

namespace qxutil {
class RunInfo;
}

/// Guarantees that a store currently gives: a bit set.
enum Form_t : unsigned {
    FormNone = 0,
    FormSorted = 1,    ///< row indices ascend inside every column
    FormDiag = 2,      ///< `diag` is valid; rows above the diagonal entry stand before it, rows below it after it
    FormSortedDiag = 3 ///< both
};
constexpr Form_t operator|(Form_t a, Form_t b) { return Form_t(unsigned(a) | unsigned(b)); }
constexpr Form_t operator&(Form_t a, Form_t b) { return Form_t(unsigned(a) & unsigned(b)); }
constexpr Form_t operator~(Form_t a) { return Form_t(~unsigned(a) & unsigned(FormSortedDiag)); }

/// Correction lists of an index-subset sweep: for the k-th unknown of the subset, the positions list[ptr[k]] up to
/// list[ptr[k+1]] - 1 of the store. Null for none.
struct SweepCorrections
{
    const unsigned long* ptr = nullptr;
    const unsigned long* list = nullptr;
};

/// Size of a hash table for len entries at a load factor of 0.7: the first prime of a fixed table that is not less than
/// len / 0.7, never the table's first; 0 for 0.
QX_API unsigned long llsp_hashsize(unsigned long len);
/// Second modulus for double hashing in a table of `size` slots: size - 2, capped so that a slot number plus a step
/// stays below 2^32.
QX_API unsigned long llsp_hash2nd(unsigned long size);

/// The sparse matrix store: compressed columns in reference-counted arrays. T is double or std::complex<double>.
///
/// Column j holds the entries at positions colPtr[j] .. colPtr[j+1] - 1 of `row` and `val`. How the stored matrix S is to
/// be read is told by `symm`:
///
///     Unsymmetric   A = S
///     Symmetric     A = S + S^T       (a summand, not a triangle: a stored diagonal entry is half of A's)
///     Hermitian     A = S + S^H       (complex stores only)
///     RowStored     A = S^T           (the store is compressed by rows)
///
/// Members whose names begin with llsp_, and the arithmetic, act on the stored matrix S, never on A: the sum of two
/// Symmetric stores is Symmetric, a product with one is the plain product of the stores. Expand first where A is meant.
///
/// Invariants: colPtr[0] = 0, colPtr never decreases, colPtr[n] <= nzmax. A column may hold several entries of one row
/// (Sparse::removeDuplicates merges them); explicit zeros are entries like others.
///
/// The store favours column walks, products and appending whole columns. It is not for random insertion: setElem moves
/// everything behind the new entry. Assemble through triplet2sparse.
///
/// Nothing here checks index ranges or sizes: the handle Sparse does. Raised from "sputil" are
/// "Symmetry_sparse_matrices_disagree" (a binary operation on RowStored with Unsymmetric),
/// "Matrix_has_zero_on_diagonal" (format) and "Internal_error_sparse" (reshape). A failed allocation leaves as
/// std::bad_alloc, with this store as it was unless it is said otherwise.
///
/// Threads: reading is free; a writer needs the store for itself. Parallel members give the same bits for any number of
/// threads.
template <class T>
class QX_API llsparse
{
public:
    using Index = unsigned long;
    using IndexArray = Array<unsigned long, 1>;

    // Owners, and raw views that spare the kernels the way through Array.
    boost::shared_ptr<IndexArray> colPtrArray;
    boost::shared_ptr<IndexArray> rowArray;
    boost::shared_ptr<Array<T, 1>> valArray;
    boost::shared_ptr<IndexArray> diagArray; ///< empty unless FormDiag is set; shorter than n after setElem added columns
    unsigned long* colPtr = nullptr;         ///< n + 1 offsets
    unsigned long* row = nullptr;            ///< 0-based row of each entry, nzmax slots
    T* val = nullptr;                        ///< value of each entry, nzmax slots
    unsigned long* diag = nullptr;           ///< position of column j's non-zero diagonal entry, or colPtr[n]; n slots
    unsigned long m = 0;                     ///< stored rows
    unsigned long n = 0;                     ///< stored columns
    unsigned long nzmax = 0;                 ///< capacity of row and val
    Symm_t symm = Unsymmetric;
    Form_t form = FormSorted;
    std::int64_t rowColptrVersion; ///< identity of the structure; positive for real stores, negative for complex ones

    /// No arrays at all.
    llsparse();
    /// No entries, room for nzmax.
    llsparse(unsigned long m, unsigned long n, unsigned long nzmax);
    /// Deep copy, trimmed: nzmax is the source's number of entries. `diag` is copied too.
    llsparse(const llsparse& other);
    llsparse& operator=(const llsparse&) = delete;
    ~llsparse() = default;

    /// Number of stored entries.
    unsigned long nnz() const { return colPtr ? colPtr[n] : 0; }

    // --- Construction -------------------------------------------------------------------------------------------

    /// As the constructor of the same arguments.
    void llsp_zeros(unsigned long m, unsigned long n, unsigned long nzmax);
    /// Ones on the diagonal of an m-by-n store.
    void eye(unsigned long m, unsigned long n);
    /// Deep copy of compressed columns that the caller owns: colPtr (n + 1), row and val (colPtr[n]).
    void sparseCopy(const unsigned long* colPtr, const unsigned long* row, const T* val, unsigned long m,
                    unsigned long n);
    /// Sums len triplets (row[k], col[k], val[k]) into a new store; with constVal every value is val[0].
    ///
    /// Entries of a column stand in the order of their first appearance, duplicates are added in input order, zeros are
    /// kept; form is FormNone. Indices are checked, as Sparse says. Cost: O(len + m + n); work of 4 bytes a row and thread, 12
    /// (20) an entry, 16 (24) a triplet where neighbours differ in column. Forks by len, same bits for any thread count.
    /// run: looked at every million triplets and in each block of columns; a cancelled one raises qxbase::CancelException.
    void triplet2sparse(const unsigned long* row, const unsigned long* col, const T* val, unsigned long len,
                        unsigned long m, unsigned long n, bool constVal = false, const qxutil::RunInfo* run = nullptr);

    // --- Storage ------------------------------------------------------------------------------------------------

    /// Puts a new array of n elements into holder and returns its data.
    template <class E>
    static E* allocate(boost::shared_ptr<Array<E, 1>>& holder, unsigned long n);
    void allocColPtr(); ///< n + 1 slots
    void allocRow();    ///< nzmax slots
    void allocVal();    ///< nzmax slots
    void allocDiag();   ///< n slots
    /// Adopt a shared array and its raw view; a null holder gives a null view. The structural ones take a new version.
    void setColPtr(const boost::shared_ptr<IndexArray>& holder);
    void setRow(const boost::shared_ptr<IndexArray>& holder);
    void setVal(const boost::shared_ptr<Array<T, 1>>& holder);
    /// The next structure number. Process-wide, one sequence for each T, never 0. Any thread.
    static std::int64_t getNewRowColptrVersion();

    // --- Entries and structure ----------------------------------------------------------------------------------

    /// Sets the element at logical (i, j); grows the matrix as needed. Zero is stored only where the matrix grows or an
    /// entry exists. A full store grows to nnz + 1 + nnz / 32 slots. Takes a new version, touches neither form nor diag:
    /// clear FormDiag and format again before a sweep. Cost: O(nnz).
    void setElem(unsigned long i, unsigned long j, const T& value);

    /// Establishes those guarantees of `wanted` that do not hold yet; never clears one. Positions that FormDiag promises
    /// for fewer columns than there are by now are found anew, whatever is wanted.
    ///
    /// FormSorted sorts each column that is not strictly ascending. FormDiag fills `diag` and partitions each column
    /// around its diagonal entry; an exact zero counts as missing, NaN does not. With checkDiag a missing diagonal entry
    /// raises "Matrix_has_zero_on_diagonal": earlier columns stay rearranged, FormDiag stays clear.
    /// Sweeps need merged stores: of several diagonal entries one is the diagonal, the others count as neighbours.
    /// Source: Sedgewick, Implementing Quicksort programs, CACM 21 (1978), for the sort.
    void format(Form_t wanted, bool checkDiag);

    /// Finds diag again after entries moved inside sorted columns. FormSorted and FormDiag are set.
    void locateDiagonals();
    /// Clears FormDiag.
    void releaseDiag();

    /// Keep the listed logical rows (columns), in the order of the list, and drop the others, in place. An index listed
    /// twice keeps its last place. A list that does not ascend clears FormSorted.
    void llsp_removeRows(const unsigned long* keep, unsigned long count);
    void llsp_removeCols(const unsigned long* keep, unsigned long count);
    /// Makes this a copy of source with logical columns j of mask[j] >= 1 emptied. For a symmetric source the stored
    /// summand is masked, no more.
    void zeroCols(const llsparse& source, const int* mask);
    /// Gives the matrix another shape; every entry keeps its column-major index i + M j in the logical matrix. Raises
    /// "Internal_error_sparse" when the last entry does not fit. A symmetric store becomes Unsymmetric.
    void reshape(int m, int n);
    /// This becomes source(rows, cols). A row listed twice keeps its last place, a column listed twice appears twice.
    void llsp_subMatrix(const llsparse& source, const int* rows, unsigned long nRows, const int* cols,
                        unsigned long nCols);

    /// Whether |a - b|^2 <= tol^2 (|a|^2 + d_i d_j) for each entry a at (i, j), its mirror b and the diagonal magnitudes
    /// d; without a mirror, |a|^2 <= tol^2 d_i d_j. A store with symm other than Unsymmetric answers whether symm is
    /// Symmetric, or Hermitian for isHermitian. Not square: false. isHermitian takes the conjugate of b.
    bool isSymmetric(double tol) const;
    bool isHermitian(double tol) const;
    /// The same for the entries of column j, with the diagonal magnitudes d (n).
    bool isSymmetric(double tol, const double* d, unsigned long j) const;
    bool isHermitian(double tol, const double* d, unsigned long j) const;

    // --- Arithmetic ---------------------------------------------------------------------------------------------

    /// this = alpha A + B. Column order: A's entries in A's order, then B's new rows in B's order. Entries that cancel
    /// stay as zeros; duplicates of A stay, those of B are merged. form FormNone; symm RowStored if either operand is,
    /// Symmetric or Hermitian if both are, else Unsymmetric. Put the operand with more entries first: its columns are
    /// copied as blocks. Work: one 4- or 8-byte marker a row and thread.
    template <class U, class V, class W>
    void llsp_add(const U& alpha, const llsparse<V>& A, const llsparse<W>& B, const qxutil::RunInfo* run = nullptr);
    /// this = alpha B + this, B's entries first. Inside the old arrays when the result fits nzmax (nzmax stays), else in
    /// new ones. B must not be this store.
    template <class U, class V>
    void llsp_inplaceAdd(const U& alpha, const llsparse<V>& B);
    /// this = A B by Gustavson's two-pass algorithm; rows of a column in the order of first touch, form FormNone.
    /// Work: one marker a row and thread. Source: Gustavson, ACM TOMS 4 (1978) 250.
    /// run: looked at every few columns of each pass; a cancelled one raises qxbase::CancelException.
    template <class U, class V>
    void llsp_mulPrivate(const llsparse<U>& A, const llsparse<V>& B, const qxutil::RunInfo* run = nullptr);
    /// this = (A B)^T, or (A B)^H for ConjTrans, with sorted columns (FormSorted). Work: the unsorted product.
    template <class U, class V>
    void llsp_multPrivate(const llsparse<U>& A, const llsparse<V>& B, Trans_t trans,
                          const qxutil::RunInfo* run = nullptr);
    /// this = B this, and this = this B, inside the old arrays when the result fits. B must not be this store.
    template <class U>
    void llsp_inplaceMulLeftPrivate(const llsparse<U>& B);
    template <class U>
    void llsp_inplaceMulRightPrivate(const llsparse<U>& B);
    /// this = S^T, or S^H for ConjTrans; columns ascend. Keeps A's form without FormDiag: an unsorted A gives FormNone.
    void llsp_transp(const llsparse& A, Trans_t trans, const qxutil::RunInfo* run = nullptr);

    /// In place: values times alpha; stored columns (rows) times, or divided by, the elements of d. On a RowStored store
    /// rows and columns exchange roles. A symmetric store is scaled as it stands: it no longer represents D A.
    template <class U>
    void scale(const U& alpha);
    template <class U>
    void colscale(const U* d);
    template <class U>
    void colscaleInv(const U* d);
    template <class U>
    void rowscale(const U* d);
    template <class U>
    void rowscaleInv(const U* d);
    /// In place: values replaced by their conjugates.
    void conjugate();

    /// this = [A; B] and [A, B] of the stores. FormSorted if both are; symm RowStored if either is, else Unsymmetric.
    template <class U, class V>
    void llsp_vcatPrivate(const llsparse<U>& A, const llsparse<V>& B);
    template <class U, class V>
    void llsp_hcatPrivate(const llsparse<U>& A, const llsparse<V>& B);

    // --- Products with vectors ----------------------------------------------------------------------------------

    /// y += op(A) x, and y -= op(A) x, over the whole matrix. x and y do not overlap. A real y takes a real store and x.
    template <class Y, class X>
    void yPlusAMulx(Y* y, const X* x, Trans_t trans) const;
    template <class Y, class X>
    void yMinusAMulx(Y* y, const X* x, Trans_t trans) const;
    /// The share of one thread. Scatter part (y[row] += val x[j]): columns cols[k], k < ncols, positions starts[k] up to
    /// ends[k]; with cols null, the columns from .. to - 1. Gather part (y[j] += sum of val x[row]): columns from ..
    /// to - 1; to = 0 means n.
    template <class Y, class X>
    void yPlusAMulx(Y* y, const X* x, Trans_t trans, const unsigned long* cols, unsigned long ncols,
                    const unsigned long* starts, const unsigned long* ends, unsigned long from, unsigned long to) const;
    template <class Y, class X>
    void yMinusAMulx(Y* y, const X* x, Trans_t trans, const unsigned long* cols, unsigned long ncols,
                     const unsigned long* starts, const unsigned long* ends, unsigned long from,
                     unsigned long to) const;

    // --- Relaxation ---------------------------------------------------------------------------------------------
    // All need FormDiag with every diagonal entry present (not checked: a zero gives infinities), a square store, and
    // work on r = A x - b. All return -1. With w = omega, halved for Symmetric and Hermitian stores (their stored
    // diagonal is half of A's), a correction is t_j = -w s_j / a_jj. Complex division: Smith, CACM 5 (1962) 435.
    // Source: Saad, Iterative Methods for Sparse Linear Systems, 2nd ed., SIAM 2003, section 4.1.

    /// x_j -= w r_j / a_jj for j = from .. to - 1 (to = 0 means n). r stays.
    template <class R, class X>
    int JacobiIts(const R* r, X* x, double omega, unsigned long from = 0, unsigned long to = 0) const;

    /// One sweep, j ascending (descending with reverse). L is the triangle after the diagonal in forward sweeps and
    /// before it in backward ones, U the other one:
    ///
    ///     s_j = r_j + sum over U of val r_row     (RowStored, Symmetric; Hermitian: conjugated val)
    ///     t_j = -w s_j / a_jj,   x_j += t_j,   r_j = t_j
    ///     r_row += val t_j over L                 (Unsymmetric, Symmetric, Hermitian)
    ///
    /// Out: x the next iterate; r the corrections t, no longer a residual. Cost: one triangle of A.
    template <class R, class X>
    int SORIt(R* r, X* x, double omega, bool reverse) const;
    /// One sweep that leaves r = A x - b of the new x.
    template <class R, class X>
    int SORItUpdater(R* r, X* x, double omega, bool reverse) const;
    /// Turns the corrections that SORIt left in u into the residual. reverse is the direction of this pass: false walks
    /// j down. After a forward sweep call it with reverse true. With c = (omega - 1) / omega, doubled for Symmetric and
    /// Hermitian: u_j = c a_jj t_j plus the contributions of the triangle that the sweep left out.
    template <class R>
    int SORUpdater(R* u, double omega, bool reverse) const;

    /// Sweep over the unknowns idx[0 .. nIdx-1] (from the end with reverse). The natural triangles are used; what they
    /// get wrong when idx does not ascend is put right by the lists. For a forward sweep `later` lists the entries of
    /// the column above the diagonal whose row is visited later, `earlier` those below the diagonal whose row was
    /// visited before; backward sweeps exchange above and below. Gathers: s -= val r_row over `later`, s += val r_row
    /// over `earlier`; scatters: r_row += val t over `later`, r_row -= val t over `earlier`. A RowStored store gathers
    /// only. In the layouts that gather, unknowns outside idx count as visited: let idx be a permutation of all there.
    template <class R, class X>
    int SORIt(R* r, X* x, const unsigned long* idx, unsigned long nIdx, const SweepCorrections& later,
              const SweepCorrections& earlier, double omega, bool reverse) const;
    template <class R, class X>
    int SORItUpdater(R* r, X* x, const unsigned long* idx, unsigned long nIdx, double omega, bool reverse) const;
    /// The pass after SORIt over the same list and the same correction lists; reverse false walks idx from its end.
    template <class R>
    int SORUpdater(R* u, const unsigned long* idx, unsigned long nIdx, const SweepCorrections& later,
                   const SweepCorrections& earlier, double omega, bool reverse) const;

    /// Block form of SORIt for one thread of a pipeline, over entries from .. to - 1 of the thread's column list: column
    /// cols[k] with positions starts[k] .. ends[k] - 1 inside the thread's rows. scatterOnly applies corrections that
    /// were decided before; otherwise the sweep step is done, its gather over the whole column. Not for RowStored.
    template <class R, class X>
    int SORIt(R* r, X* x, double omega, bool reverse, const unsigned long* cols, const unsigned long* starts,
              const unsigned long* ends, bool scatterOnly, unsigned long from, unsigned long to) const;
    /// Block form of SORUpdater: writes u at rows firstRow .. lastRow - 1 only, reads the corrections from t, a copy.
    template <class R>
    int SORUpdater(R* u, const R* t, double omega, bool reverse, const unsigned long* cols, unsigned long ncols,
                   const unsigned long* starts, const unsigned long* ends, unsigned long firstRow,
                   unsigned long lastRow) const;

private:
    bool hasShortDiag() const;
    void sortColumns();
    void partitionColumns(bool checkDiag);
    void locateDiagonal(unsigned long j);
    void adopt(llsparse& result, bool keepCapacity);
    void keepStoredRows(const unsigned long* keep, unsigned long count);
    void keepStoredColumns(const unsigned long* keep, unsigned long count);

    // The two passes of sums and products over columns from .. to - 1 of the result. Setup counts the entries of column
    // j into colPtr[j + 1]; Work writes them, those of column `from` at row[0] and val[0]. marker has one slot a row,
    // zero before Setup; the same slots go to Work as they are.
    template <class V, class W>
    static void llsp_addPrivateSetup(const llsparse<V>& A, const llsparse<W>& B, unsigned long* colPtr,
                                     std::uint32_t* marker, unsigned long from, unsigned long to);
    template <class U, class V, class W>
    static void llsp_addPrivateWork(const U& alpha, const llsparse<V>& A, const llsparse<W>& B,
                                    const unsigned long* colPtr, unsigned long* row, T* val, std::uint32_t* marker,
                                    unsigned long from, unsigned long to);
    template <class U, class V>
    static void llsp_mulPrivateSetup(const llsparse<U>& A, const llsparse<V>& B, unsigned long* colPtr,
                                     std::uint32_t* marker, unsigned long from, unsigned long to);
    template <class U, class V>
    static void llsp_mulPrivateWork(const llsparse<U>& A, const llsparse<V>& B, const unsigned long* colPtr,
                                    unsigned long* row, T* val, std::uint32_t* marker, unsigned long from,
                                    unsigned long to);
    // A transposed product in two steps: the product in the order of first touch, and its transposition, which sorts.
    template <class U, class V>
    void llsp_multPrivateSetup(const llsparse<U>& A, const llsparse<V>& B, const qxutil::RunInfo* run);
    void llsp_multPrivateWork(const llsparse& product, Trans_t trans, const qxutil::RunInfo* run = nullptr);

    struct TwoPass;
    template <class Setup>
    void countColumns(const TwoPass& result, const Setup& setup);
    template <class Work>
    void fillColumns(const TwoPass& result, const Work& work);
    template <class Setup, class Work>
    void build(const TwoPass& result, const Setup& setup, const Work& work);
    template <class Setup, class Work>
    void buildInPlace(const TwoPass& result, const Setup& setup, const Work& work);
};

/// target = source with zero imaginary parts. With useCount below 2 the source gives up its index arrays and is left
/// empty; otherwise they are copied.
QX_API void llsp_real2complex(llsparse<double>& source, llsparse<std::complex<double>>& target, int useCount);

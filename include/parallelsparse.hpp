// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "matrix.hpp"
#include "qxexport.hpp"
#include "qxparallel.hpp"
#include "transt.hpp"
#include "xdevutils.hpp"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <complex>
#include <cstdint>
#include <utility>
#include <vector>

class Sparse;
template <class T>
class llsparse;

namespace qxsparse {
class VectorView;
}

class ParallelSparse;

/// What one thread of a ParallelSparse keeps: its rows of the block structure and its accumulation vector.
class QX_API ParallelSparseData
{
public:
    /// Share pid of owner, which outlives it.
    ParallelSparseData(ParallelSparse& owner, int pid);

    /// Judges the block structure by the matrix as it is now, for owner.getBlockShares() shares: isBlocked becomes false
    /// if it does not fit. Returns whether blockMatrix has work to do: a matrix that is not square or not sorted takes no
    /// blocks.
    bool changeBlockMatrix(const Sparse& A);
    /// Makes the block structure where changeBlockMatrix says so. std::bad_alloc leaves isBlocked false.
    void blockMatrix(const Sparse& A);
    bool isBlocked() const { return blocked; }
    int getPid() const { return pid; }
    unsigned long getNCol() const { return nCol; }
    /// Half-open range of rows of this thread.
    unsigned long getStartRows() const { return startRows; }
    unsigned long getStopRows() const { return stopRows; }
    /// The columns that hold entries in the row range, ascending (getNCol), and the positions in the store of their
    /// first entry in it and one past the last.
    const unsigned long* getProcCol() const { return procCol; }
    const unsigned long* getStartCol() const { return startCol; }
    const unsigned long* getStopCol() const { return stopCol; }
    /// The longest part of getProcCol whose columns follow one another, belong to the row range and lie in it whole: for
    /// these the offsets of the store tell all.
    unsigned long getWholeStart() const { return wholeStart; }
    unsigned long getWholeStop() const { return wholeStop; }
    /// The part of getProcCol that falls into the row range of thread q.
    unsigned long getProcStart(int q) const { return procStart[q]; }
    unsigned long getProcStop(int q) const { return procStop[q]; }

    /// Whether work has still to be made for max(m, n) sums of the given type.
    bool changeWorkArray(const Sparse& A, bool real) const;
    /// Makes room for so many sums, as setWorkArray does.
    void growWork(unsigned long size, bool real);
    /// Makes it. 1000 elements are kept in reserve; a work array never shrinks. Raises "Internal_error_matrix" from
    /// "matrix" if the array does not serve even then: no index type counts that many elements.
    void setWorkArray(const Sparse& A, bool real);
    bool isRealWork() const { return work.isReal(); }
    /// Elements that the work array has room for.
    unsigned long workSize() const { return hasWork ? work.size() : 0; }
    double* getCurrentWorkdArray();
    std::complex<double>* getCurrentWorkzArray();
    /// Makes holder n elements long and returns them.
    static unsigned long* allocate(Array<unsigned long, 1>& holder, unsigned long n);
    void clear();

private:
    ParallelSparse& owner;
    int pid;
    Matrix<1> work;
    const Matrix<1> noWork;
    bool hasWork = false;
    const unsigned long* colPtrSeen = nullptr;
    const unsigned long* rowSeen = nullptr;
    std::int64_t versionSeen = 0;
    unsigned long mSeen = 0, nSeen = 0;
    bool blocked = false;
    Array<unsigned long, 1> procColArray, startColArray, stopColArray, procStartArray, procStopArray;
    unsigned long nCol = 0;
    unsigned long startRows = 0, stopRows = 0;
    unsigned long wholeStart = 0, wholeStop = 0;
    const unsigned long* procCol = nullptr;
    const unsigned long* startCol = nullptr;
    const unsigned long* stopCol = nullptr;
    unsigned long nProcs = 0;
    const unsigned long* procStart = nullptr;
    const unsigned long* procStop = nullptr;
};

/// Products and sweeps of a large matrix on several threads. The free functions of sparse.hpp come here by themselves.
///
/// Block scheme, for square sorted matrices: rows are divided among the threads by entry count, and each thread keeps
/// the list of columns that reach its rows. Every element of y has one writer that adds in the order of the columns: the
/// bits are those of the serial kernels, for any number of threads. Sweeps keep the serial order: a pipeline in which
/// one thread sweeps its unknowns while the others bring the corrections of the stage before into their rows. Extra
/// memory: 24 bytes for each column and thread that it reaches.
///
/// Work-array scheme, for the others: the columns are divided into parts, each part has a vector of its own over the rows
/// that it touches, and these are added in order. There are 2 to 64 parts, a number of the matrix's structure alone, as long
/// as their vectors hold no more than half as many elements as the matrix has entries. Fixed are the order of the
/// additions within a part and of the parts: the bits are the same for any number of threads above one. One thread adds
/// column by column. The rows of the parts are found at the first product after a change of structure. format(FormSorted)
/// pays where a square matrix takes many products and its columns reach far: blocks need no vectors. Products that only
/// gather have one writer an element in any case. Sweeps of such matrices, and of RowStored ones, run serially.
///
/// One object belongs to one matrix and its copies, and serves one call at a time: a call that finds it busy runs the
/// serial kernels. Block data stay valid while version, arrays and sizes are those seen: value changes keep them.
/// Failures, from "parallelsparse": "Out_of_memory_operation_sparse_matrix." and "Internal_error_sparse_matrix.", with
/// the object cleared and usable; vectors as they were.
class QX_API ParallelSparse
{
public:
    ParallelSparse();
    ~ParallelSparse();
    ParallelSparse(const ParallelSparse&) = delete;
    ParallelSparse& operator=(const ParallelSparse&) = delete;

    void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
    void yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col);
    void yMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans);
    int SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse);
    int SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse);
    int SORUpdater(const Sparse& A, Matrix<1>& u, double omega, bool reverse);
    int JacobiIts(const Matrix<1>& r, const Sparse& A, Matrix<1>& x, double omega);

    /// Makes the block structure for nThreads threads if it is not there; false below two threads and for a matrix that
    /// is not square or has no FormSorted.
    bool isBlocked(const Sparse& A, int nThreads, Trans_t trans);
    /// Makes nThreads work arrays for sums of the given type; nothing below two.
    void setWorkArray(const Sparse& A, bool real, int nThreads);
    /// Releases block structures and work arrays. Does nothing while a call is running.
    void clear();
    /// The data of thread t; t below the largest thread count seen.
    const ParallelSparseData& getData(int t) const { return *data[static_cast<std::size_t>(t)]; }
    /// Threads and parts that data have been made for.
    std::size_t dataCount() const { return data.size(); }
    /// Shares of the block structure that isBlocked was asked for last.
    int getBlockShares() const { return blockShares; }
    /// Time spent on "blocks", "products" and "sweeps". Look while no call is running.
    const XDevUtils& getUtils() const { return *utils; }

private:
    class Busy;
    int chooseThreads(unsigned long work);
    void makeData(int count);
    void clearData();
    template <class Prepare>
    void prepare(int shares, const Prepare& body);
    template <bool Minus>
    bool multiply(Matrix<1>& y, const Sparse& A, const qxsparse::VectorView& x, Trans_t trans);
    template <class Serial, class Blocked>
    int sweep(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const Serial& serial, const Blocked& blocked);
    template <class R>
    R* resultVector(unsigned long n);
    template <class R>
    const R* copyToResult(const R* u, unsigned long n);
    template <class Y>
    void zero(Y* y, unsigned long n) const;
    template <class Y>
    void updateResultVector(Y* y, unsigned long n) const;

    template <class Work>
    void inBlocks(const Work& work) const;
    template <class Product>
    void multiplyBlocks(const Product& product) const;
    template <class T, class Y, class X>
    void blockyPlusAMulx(const llsparse<T>& s, Y* y, const X* x, Trans_t trans) const;
    template <class T, class Y, class X>
    void blockyMinusAMulx(const llsparse<T>& s, Y* y, const X* x, Trans_t trans) const;
    template <class T, class R>
    void blockSORIt(const llsparse<T>& s, R* r, R* x, double omega, bool reverse) const;
    template <class T, class R>
    void blockSORItUpdater(const llsparse<T>& s, R* r, R* x, double omega, bool reverse);
    template <class T, class R>
    void blockSORUpdater(const llsparse<T>& s, R* u, double omega, bool reverse);

    template <bool Minus, class T, class Y, class X>
    void gatherMultiply(const llsparse<T>& s, Y* y, const X* x, Trans_t trans) const;
    template <class T, class R>
    void gatherSORUpdater(const llsparse<T>& s, R* u, double omega, bool reverse);

    template <class Y, class T, class Product>
    void inParts(const llsparse<T>& s, const Product& product) const;
    template <class T, class Y, class X>
    void workPlusAMulx(const llsparse<T>& s, Y* y, const X* x, unsigned long len, Trans_t trans) const;
    template <class T, class Y, class X>
    void workMinusAMulx(const llsparse<T>& s, Y* y, const X* x, unsigned long len, Trans_t trans) const;
    template <class T, class R>
    void workSORUpdater(const llsparse<T>& s, R* u, double omega, bool reverse);
    void planParts(const Sparse& A);
    void setPartVectors(const Sparse& A, bool real);

    /// The parts of a product that scatters: for each the half-open range of rows that it touches. Valid for the structure
    /// that was seen.
    struct PartPlan
    {
        std::vector<std::pair<unsigned long, unsigned long>> rows;
        std::int64_t versionSeen = 0;
        const unsigned long* rowSeen = nullptr;
        unsigned long mSeen = 0, nSeen = 0, nnzSeen = 0;
    };

    boost::shared_ptr<XDevUtils> utils;
    boost::shared_ptr<qxbase::Parallel> parallel; // the team of the call that runs
    std::vector<boost::shared_ptr<ParallelSparseData>> data;
    Matrix<1> result; // what an updater reads while it overwrites its vector
    const Matrix<1> noResult;
    PartPlan plan;
    int blockShares = 0;
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
};

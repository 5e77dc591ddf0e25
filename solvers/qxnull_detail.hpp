// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What the two null-space methods and their driver share.

#include "llsparse.hpp"
#include "qxexception.hpp"
#include "qxnull.hpp"
#include "qxrun.hpp"
#include "sparse.hpp"

#include <boost/shared_ptr.hpp>
#include <complex>
#include <new>
#include <vector>

namespace qxnull_detail {

using cplx = std::complex<double>;
using Index = unsigned long;

/// Entries, and singular values, that are smaller in relation to their column, or block, do not count.
constexpr double tolerance = 1e-10;

template <class T>
struct StoreOf;
template <>
struct StoreOf<double>
{
    static const llsparse<double>& of(const Sparse& A) { return *A.getptrD(); }
    static boost::shared_ptr<llsparse<double>> make(Index m, Index n, Index nnz)
    {
        return boost::shared_ptr<llsparse<double>>(new llsparse<double>(m, n, nnz));
    }
};
template <>
struct StoreOf<cplx>
{
    static const llsparse<cplx>& of(const Sparse& A) { return *A.getptrZ(); }
    static boost::shared_ptr<llsparse<cplx>> make(Index m, Index n, Index nnz)
    {
        return boost::shared_ptr<llsparse<cplx>>(new llsparse<cplx>(m, n, nnz));
    }
};

inline double conjugate(double x) { return x; }
inline cplx conjugate(const cplx& x) { return std::conj(x); }

/// A sparse matrix that grows column by column, rows ascending.
template <class T>
class ColumnWriter
{
public:
    explicit ColumnWriter(Index rows) : rows_(rows) {}
    /// Exact zeros are dropped.
    void add(Index row, const T& value)
    {
        if (value != T(0)) {
            row_.push_back(row);
            value_.push_back(value);
        }
    }
    void endColumn() { end_.push_back(row_.size()); }
    Sparse finish() const
    {
        const auto store = StoreOf<T>::make(rows_, end_.size(), row_.size());
        for (std::size_t j = 0; j < end_.size(); ++j)
            store->colPtr[j + 1] = end_[j];
        std::copy(row_.begin(), row_.end(), store->row);
        std::copy(value_.begin(), value_.end(), store->val);
        return Sparse(store);
    }

private:
    Index rows_;
    std::vector<Index> end_, row_;
    std::vector<T> value_;
};

/// Which outputs are built.
struct Selection
{
    bool null, compl_, range;
};

/// The outputs for one matrix.
struct Triple
{
    Sparse Null, Compl, Range;
    Index rank = 0;
    std::vector<bool> hasPivot; ///< for each constraint; left empty by the orthonormal method
};

/// Progress and cancel of one computation: looked at between the columns of every pass.
class Monitor
{
public:
    /// cancelId: what a cancelled run raises, behind "<CANCEL>".
    Monitor(qxutil::RunInfo& run, const char* cancelId);
    /// Counts on the steps of one more matrix with its transpose.
    void expect(const Sparse& N) { expected_ += 4 * (N.getM() + N.getN()); }
    /// Raises if the run is cancelled.
    void poll() const
    {
        if (run_.isCancelled())
            raiseCancelled();
    }
    /// A B, given up when the run is cancelled.
    Sparse product(const Sparse& A, const Sparse& B) const;
    /// The same, and one step is done.
    void step()
    {
        poll();
        if (++done_ >= nextReport_)
            report();
    }

private:
    [[noreturn]] void raiseCancelled() const;
    void report();

    qxutil::RunInfo& run_;
    const char* cancelId_;
    qxutil::RunLog log_;
    Index expected_ = 0, done_ = 0, nextReport_ = 0;
};

/// Runs f; failed allocations, those of matrix operations too, become this module's failure.
template <class F>
void guarded(const F& f)
{
    constexpr const char* id = "Out_of_memory_constraint_elimination";
    try {
        f();
    } catch (const std::bad_alloc&) {
        QX_RAISE("qxnull", id);
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception& e) {
        if (e.getId().starts_with("Out_of_memory_"))
            QX_RAISE("qxnull", id);
        throw;
    }
}

/// The bases of N and NF fit each other and the number of unknowns: equal ranks, or "Inconsistent_non-ideal_constraint"
/// with the constraints that make the difference; Null and Compl share out the unknowns, or "Internal_solver_error".
void checkRanks(Index unknowns, const Triple& first, const Triple& second);

/// As many unknowns are flagged as pivots as were found in the rows, or "Internal_error_solver".
void checkPivots(const std::vector<char>& isPivot, const std::vector<Index>& pivots);

/// Sparse method on one or two matrices; sorted column stores of one type. NF null: one matrix.
void eliminateSparse(Monitor& monitor, const Sparse& N, const Sparse& NT, const Sparse* NF,
                     const Sparse* NFT, Selection want, Selection wantF, Triple& result, Triple& resultF);

/// blockdsp, monitored.
void findBlocks(Monitor& monitor, const Sparse& N, const Sparse& NT, NullBlocks& blocks, NullPairs& pairs);

/// reorderNullF, monitored.
void reorder(Monitor& monitor, Sparse& NullF, const Sparse& Null);

/// Orthonormal method on the blocks of one matrix; sorted column stores. blasThreads 0: as many as BLAS likes.
void eliminateOrthonormal(Monitor& monitor, int blasThreads, const Sparse& N, const NullBlocks& blocks,
                          const NullPairs& pairs, Selection want, Triple& result);

} // namespace qxnull_detail

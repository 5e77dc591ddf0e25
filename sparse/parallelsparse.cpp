#include "parallelsparse.hpp"

#include "sparse_detail.hpp"
#include "vector_access.hpp"

#include <algorithm>

using namespace qxsparse;

// --- Block structure and work array of one share ------------------------------------------------------------------

namespace {

constexpr unsigned long workReserve = 1000;

bool takesBlocks(const Sparse& A) { return A.getM() == A.getN() && (A.getForm() & FormSorted); }

/// A pass over the non-empty parts of all columns inside rows [first, last).
template <class F>
void forEachPart(const Sparse& A, unsigned long first, unsigned long last, const F& f)
{
    const unsigned long *colPtr = A.getColPtr(), *row = A.getRow();
    for (unsigned long j = 0; j < A.getN(); ++j) {
        const unsigned long* end = row + colPtr[j + 1];
        const unsigned long* start = std::lower_bound(row + colPtr[j], end, first);
        const unsigned long* stop = std::lower_bound(start, end, last);
        if (start != stop)
            f(j, static_cast<unsigned long>(start - row), static_cast<unsigned long>(stop - row));
    }
}

} // namespace

unsigned long* ParallelSparseData::allocate(Array<unsigned long, 1>& holder, unsigned long n)
{
    holder.resize(n);
    return holder.data();
}

bool ParallelSparseData::isCurrent(const Sparse& A, int nThreads) const
{
    if (!takesBlocks(A))
        return !blocked;
    return blocked && versionSeen == A.getRowColptrVersion() && colPtrSeen == A.getColPtr() && rowSeen == A.getRow() &&
           mSeen == A.getM() && nSeen == A.getN() && nProcs == static_cast<unsigned long>(nThreads);
}

void ParallelSparseData::blockMatrix(const Sparse& A, int nThreads)
{
    blocked = false;
    if (!takesBlocks(A))
        return;
    const unsigned long* colPtr = A.getColPtr();
    const unsigned long n = A.getN();
    const auto rowsOf = [&](int share) {
        Slice s;
        qxbase::Parallel::weightedSlice(n, colPtr[n], share, nThreads, colPtr, s.from, s.to);
        return s;
    };
    // The matrix is square: the division of the columns by their entries serves rows and columns.
    const Slice own = rowsOf(pid);
    nCol = 0;
    forEachPart(A, own.from, own.to, [&](unsigned long, unsigned long, unsigned long) { ++nCol; });
    unsigned long* columns = allocate(procColArray, nCol);
    unsigned long* starts = allocate(startColArray, nCol);
    unsigned long* stops = allocate(stopColArray, nCol);
    unsigned long k = 0;
    forEachPart(A, own.from, own.to, [&](unsigned long j, unsigned long start, unsigned long stop) {
        columns[k] = j;
        starts[k] = start;
        stops[k++] = stop;
    });
    nProcs = static_cast<unsigned long>(nThreads);
    unsigned long* first = allocate(procStartArray, nProcs);
    unsigned long* last = allocate(procStopArray, nProcs);
    for (int q = 0; q < nThreads; ++q) {
        const Slice s = rowsOf(q);
        first[q] = static_cast<unsigned long>(std::lower_bound(columns, columns + nCol, s.from) - columns);
        last[q] = static_cast<unsigned long>(std::lower_bound(columns, columns + nCol, s.to) - columns);
    }
    startRows = own.from;
    stopRows = own.to;
    procCol = columns;
    startCol = starts;
    stopCol = stops;
    procStart = first;
    procStop = last;
    versionSeen = A.getRowColptrVersion();
    colPtrSeen = colPtr;
    rowSeen = A.getRow();
    mSeen = A.getM();
    nSeen = n;
    blocked = true;
}

bool ParallelSparseData::hasWorkArray(const Sparse& A, bool real) const
{
    return hasWork && work.isReal() == real && work.size() >= std::max(A.getM(), A.getN());
}

void ParallelSparseData::setWorkArray(const Sparse& A, bool real)
{
    if (hasWorkArray(A, real))
        return;
    const unsigned long size = std::max(std::max(A.getM(), A.getN()) + workReserve, work.size());
    hasWork = false;
    work = Matrix<1>(uninit_t(), size, real);
    hasWork = true;
}

double* ParallelSparseData::getCurrentWorkdArray() { return work.getdArr().data(); }
std::complex<double>* ParallelSparseData::getCurrentWorkzArray() { return work.getzArr().data(); }

void ParallelSparseData::clear()
{
    *this = ParallelSparseData(pid);
}

// --- The matrix's operations --------------------------------------------------------------------------------------

/// Holds the object for one call; false if another call has it.
class ParallelSparse::Busy
{
public:
    explicit Busy(ParallelSparse& p) : flag_(p.busy), taken_(!flag_.test_and_set(std::memory_order_acquire)) {}
    ~Busy()
    {
        if (taken_)
            flag_.clear(std::memory_order_release);
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;
    explicit operator bool() const { return taken_; }

private:
    std::atomic_flag& flag_;
    bool taken_;
};

ParallelSparse::ParallelSparse()
{
    const int count = qxbase::Parallel().getNumberCPUs();
    makeData(count);
}

ParallelSparse::~ParallelSparse() = default;

void ParallelSparse::makeData(int count)
{
    while (data.size() < static_cast<std::size_t>(count))
        data.push_back(boost::shared_ptr<ParallelSparseData>(new ParallelSparseData(static_cast<int>(data.size()))));
}

void ParallelSparse::clear()
{
    if (const Busy hold(*this); hold)
        clearData();
}

void ParallelSparse::clearData()
{
    for (const auto& d : data)
        d->clear();
}

/// Runs prepare(share) for all shares; a failure clears everything and leaves under the module's names.
template <class Prepare>
void ParallelSparse::prepare(int shares, const Prepare& body)
{
    try {
        makeData(shares);
        Team(shares).run(body);
    } catch (const std::bad_alloc&) {
        clearData();
        QX_RAISE("parallelsparse", "Out_of_memory_operation_sparse_matrix.");
    } catch (...) {
        clearData();
        QX_RAISE("parallelsparse", "Internal_error_sparse_matrix.");
    }
}

bool ParallelSparse::isBlocked(const Sparse& A, int nThreads, Trans_t)
{
    if (nThreads < 2)
        return false;
    bool current = data.size() >= static_cast<std::size_t>(nThreads);
    for (int t = 0; current && t < nThreads; ++t)
        current = data[static_cast<std::size_t>(t)]->isCurrent(A, nThreads);
    if (!current)
        prepare(nThreads, [&](int share) { data[static_cast<std::size_t>(share)]->blockMatrix(A, nThreads); });
    return std::all_of(data.begin(), data.begin() + nThreads, [](const auto& d) { return d->isBlocked(); });
}

void ParallelSparse::setWorkArray(const Sparse& A, bool real, int parts)
{
    prepare(parts, [&](int part) { data[static_cast<std::size_t>(part)]->setWorkArray(A, real); });
}

namespace {

/// Threads for an operation on `work` items; 1 means serial.
int teamSize(unsigned long work)
{
    qxbase::Parallel policy;
    policy.setNumberThreads(work);
    return policy.isParallelizable(work) ? policy.getNumberThreads() : 1;
}

/// Into how many vectors a product is split: a number of the matrix's own, so that results do not depend on threads,
/// and small enough for the vectors to cost little beside the entries.
int partialVectors(const Sparse& A)
{
    const unsigned long length = std::max(std::max(A.getM(), A.getN()), 1UL);
    return static_cast<int>(std::clamp(A.getNnz() / (4 * length), 2UL, 16UL));
}

template <class T>
T* workOf(ParallelSparseData& d)
{
    if constexpr (std::is_same_v<T, double>)
        return d.getCurrentWorkdArray();
    else
        return d.getCurrentWorkzArray();
}

bool onlyGathers(const Sparse& A, Trans_t trans)
{
    return (A.getSymm() == Unsymmetric && trans != NoTrans) || (A.getSymm() == RowStored && trans == NoTrans);
}

} // namespace

/// y (len) += work vectors of the parts, in their order, each share its even slice of y.
template <class Y>
void ParallelSparse::updateResultVector(Y* y, unsigned long len, int parts, int shares)
{
    const Team team(shares);
    team.run([&](int share) {
        const Slice s = team.even(len, share);
        for (int part = 0; part < parts; ++part) {
            const Y* work = workOf<Y>(*data[static_cast<std::size_t>(part)]);
            for (unsigned long i = s.from; i < s.to; ++i)
                y[i] += work[i];
        }
    });
}

/// Each share adds into its own rows.
template <bool Minus, class T, class Y, class X>
void ParallelSparse::blockMultiply(const llsparse<T>& s, Y* y, const X* x, Trans_t trans, int shares)
{
    Team(shares).run([&](int share) {
        const ParallelSparseData& d = *data[static_cast<std::size_t>(share)];
        if (d.getStartRows() == d.getStopRows())
            return; // an empty range at the front would read as "all columns"
        if constexpr (Minus)
            s.yMinusAMulx(y, x, trans, d.getProcCol(), d.getNCol(), d.getStartCol(), d.getStopCol(), d.getStartRows(),
                          d.getStopRows());
        else
            s.yPlusAMulx(y, x, trans, d.getProcCol(), d.getNCol(), d.getStartCol(), d.getStopCol(), d.getStartRows(),
                         d.getStopRows());
    });
}

/// Each share computes its own elements of y: one writer and one order of additions.
template <bool Minus, class T, class Y, class X>
void ParallelSparse::gatherMultiply(const llsparse<T>& s, Y* y, const X* x, Trans_t trans, int shares)
{
    const Team team(shares);
    team.run([&](int share) {
        const Slice own = team.weighted(s.n, s.colPtr, share);
        if (own.from == own.to)
            return;
        if constexpr (Minus)
            s.yMinusAMulx(y, x, trans, nullptr, 0, nullptr, nullptr, own.from, own.to);
        else
            s.yPlusAMulx(y, x, trans, nullptr, 0, nullptr, nullptr, own.from, own.to);
    });
}

/// The columns in parts, each into a vector of its own; then their sum.
template <bool Minus, class T, class Y, class X>
void ParallelSparse::workMultiply(const llsparse<T>& s, Y* y, const X* x, unsigned long len, Trans_t trans, int parts,
                                  int shares)
{
    const Team team(parts, shares);
    team.run([&](int part) {
        Y* work = workOf<Y>(*data[static_cast<std::size_t>(part)]);
        std::fill_n(work, len, Y(0.0));
        const Slice own = team.weighted(s.n, s.colPtr, part);
        const Scratch<unsigned long> columns(own.to - own.from);
        for (unsigned long j = own.from; j < own.to; ++j)
            columns[j - own.from] = j;
        if (own.from == own.to)
            return;
        if constexpr (Minus)
            s.yMinusAMulx(work, x, trans, columns.get(), own.to - own.from, s.colPtr + own.from,
                          s.colPtr + own.from + 1, own.from, own.to);
        else
            s.yPlusAMulx(work, x, trans, columns.get(), own.to - own.from, s.colPtr + own.from, s.colPtr + own.from + 1,
                         own.from, own.to);
    });
    updateResultVector(y, len, parts, shares);
}

template <bool Minus>
bool ParallelSparse::multiply(Matrix<1>& y, const Sparse& A, const VectorView& x, Trans_t trans)
{
    const Busy hold(*this);
    const int shares = teamSize(A.getNnz());
    if (!hold || shares < 2)
        return false;
    const bool gathers = onlyGathers(A, trans), blocked = !gathers && isBlocked(A, shares, trans);
    const int parts = partialVectors(A);
    if (!blocked && !gathers)
        setWorkArray(A, y.isReal() && A.isReal() && x.isReal(), parts);
    withProductTypes(y, A, x, [&](const auto& s, auto* yData, const auto* xData) {
        if (gathers)
            gatherMultiply<Minus>(s, yData, xData, trans, shares);
        else if (blocked)
            blockMultiply<Minus>(s, yData, xData, trans, shares);
        else
            workMultiply<Minus>(s, yData, xData, y.size(), trans, parts, shares);
    });
    return true;
}

void ParallelSparse::yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    if (!multiply<false>(y, A, VectorView(x), trans))
        serialyPlusAMulx(y, A, x, trans);
}

void ParallelSparse::yMinusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<1>& x, Trans_t trans)
{
    if (!multiply<true>(y, A, VectorView(x), trans))
        serialyMinusAMulx(y, A, x, trans);
}

void ParallelSparse::yPlusAMulx(Matrix<1>& y, const Sparse& A, const Matrix<2>& x, Trans_t trans, unsigned long col)
{
    if (!multiply<false>(y, A, VectorView(x, col), trans))
        serialyPlusAMulx(y, A, x, trans, col);
}

// --- Sweeps -------------------------------------------------------------------------------------------------------

/// The pipeline: in stage p the owner of rows p sweeps them, in the serial order of the unknowns; the others bring the
/// corrections of the stage before, now final, into their own rows. A thread writes only r and x of its own rows.
template <class T, class R>
void ParallelSparse::blockSORIt(const llsparse<T>& s, R* r, R* x, double omega, bool reverse, int shares)
{
    std::vector<Slice> pending(static_cast<std::size_t>(shares), Slice{0, 0});
    const auto apply = [&](int p, Slice range, bool scatterOnly) {
        const ParallelSparseData& d = *data[static_cast<std::size_t>(p)];
        s.SORIt(r, x, omega, reverse, d.getProcCol(), d.getStartCol(), d.getStopCol(), scatterOnly, range.from,
                range.to);
    };
#pragma omp parallel num_threads(shares)
    {
        const int first = omp_get_thread_num(), team = omp_get_num_threads();
        for (int stage = 0; stage < shares; ++stage) {
            const int owner = reverse ? shares - 1 - stage : stage;
            for (int p = first; p < shares; p += team) {
                const ParallelSparseData& d = *data[static_cast<std::size_t>(p)];
                Slice& waiting = pending[static_cast<std::size_t>(p)];
                const Slice part{d.getProcStart(owner), d.getProcStop(owner)};
                apply(p, waiting, true);
                if (p == owner)
                    apply(p, part, false);
                waiting = p == owner ? Slice{0, 0} : part;
            }
#pragma omp barrier
        }
        for (int p = first; p < shares; p += team)
            apply(p, pending[static_cast<std::size_t>(p)], true);
    }
}

/// The updater only reads corrections: with a copy of them it is a product, one writer a row.
template <class T, class R>
void ParallelSparse::blockSORUpdater(const llsparse<T>& s, R* u, const R* t, double omega, bool reverse, int shares)
{
    Team(shares).run([&](int share) {
        const ParallelSparseData& d = *data[static_cast<std::size_t>(share)];
        s.SORUpdater(u, t, omega, reverse, d.getProcCol(), d.getNCol(), d.getStartCol(), d.getStopCol(),
                     d.getStartRows(), d.getStopRows());
    });
}

/// The same for a store by rows, which only gathers: any division of the rows will do.
template <class T, class R>
void ParallelSparse::gatherSORUpdater(const llsparse<T>& s, R* u, const R* t, double omega, bool reverse, int shares)
{
    const Team team(shares);
    team.run([&](int share) {
        const Slice own = team.weighted(s.n, s.colPtr, share);
        s.SORUpdater(u, t, omega, reverse, nullptr, 0, nullptr, nullptr, own.from, own.to);
    });
}

template <class T, class R>
void ParallelSparse::workSORUpdater(const llsparse<T>& s, R* u, const R* t, double omega, bool reverse, int parts,
                                    int shares)
{
    const Team team(parts, shares);
    team.run([&](int part) {
        R* work = workOf<R>(*data[static_cast<std::size_t>(part)]);
        std::fill_n(work, s.n, R(0.0));
        const Slice own = team.weighted(s.n, s.colPtr, part);
        s.SORUpdater(work, t, omega, reverse, nullptr, 0, nullptr, nullptr, own.from, own.to);
    });
    std::fill_n(u, s.n, R(0.0));
    updateResultVector(u, s.n, parts, shares);
}

int ParallelSparse::SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse)
{
    const Busy hold(*this);
    const int shares = hold ? teamSize(A.getNnz()) : 1;
    const bool blocked = shares > 1 && A.getSymm() != RowStored && isBlocked(A, shares, NoTrans);
    return withSweepTypes(A, [&](const auto& s, auto type) {
        using R = decltype(type);
        if (!blocked)
            return s.SORIt(writable<R>(r), writable<R>(x), omega, reverse);
        blockSORIt(s, writable<R>(r), writable<R>(x), omega, reverse, shares);
        return -1;
    }, r, x);
}

int ParallelSparse::SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse)
{
    SORIt(A, r, x, omega, reverse);
    return SORUpdater(A, r, omega, !reverse);
}

int ParallelSparse::SORUpdater(const Sparse& A, Matrix<1>& u, double omega, bool reverse)
{
    const Busy hold(*this);
    const int shares = hold ? teamSize(A.getNnz()) : 1;
    if (shares < 2)
        return withSweepTypes(A, [&](const auto& s, auto type) {
            return s.SORUpdater(writable<decltype(type)>(u), omega, reverse);
        }, u);
    const bool byRow = A.getSymm() == RowStored, blocked = !byRow && isBlocked(A, shares, NoTrans);
    const int parts = partialVectors(A);
    if (!byRow && !blocked)
        setWorkArray(A, u.isReal() && A.isReal(), parts);
    return withSweepTypes(A, [&](const auto& s, auto type) {
        using R = decltype(type);
        R* data_ = writable<R>(u);
        const Scratch<R> t(u.size());
        std::copy_n(data_, u.size(), t.get());
        if (byRow)
            gatherSORUpdater(s, data_, t.get(), omega, reverse, shares);
        else if (blocked)
            blockSORUpdater(s, data_, t.get(), omega, reverse, shares);
        else
            workSORUpdater(s, data_, t.get(), omega, reverse, parts, shares);
        return -1;
    }, u);
}

int ParallelSparse::JacobiIts(const Matrix<1>& r, const Sparse& A, Matrix<1>& x, double omega)
{
    Matrix<1> residual = r;
    return withSweepTypes(A, [&](const auto& s, auto type) {
        using R = decltype(type);
        const Team team(teamSize(A.getN()));
        R* xData = writable<R>(x);
        const R* rData = readable<R>(residual);
        team.run([&](int share) {
            const Slice own = team.even(s.n, share);
            if (own.from < own.to)
                s.JacobiIts(rData, xData, omega, own.from, own.to);
        });
        return -1;
    }, residual, x);
}

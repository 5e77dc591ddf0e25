// SPDX-License-Identifier: LicenseRef-qxkernel
#include "parallelsparse.hpp"

#include "sparse_detail.hpp"
#include "vector_access.hpp"

#include <algorithm>
#include <cstdint>

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

ParallelSparseData::ParallelSparseData(ParallelSparse& owner_, int share) : owner(owner_), pid(share) {}

unsigned long* ParallelSparseData::allocate(Array<unsigned long, 1>& holder, unsigned long n)
{
    holder.resize(n);
    return holder.data();
}

bool ParallelSparseData::changeBlockMatrix(const Sparse& A)
{
    const bool takes = takesBlocks(A);
    blocked = takes && blocked && versionSeen == A.getRowColptrVersion() && colPtrSeen == A.getColPtr() &&
              rowSeen == A.getRow() && mSeen == A.getM() && nSeen == A.getN() &&
              nProcs == static_cast<unsigned long>(owner.getBlockShares());
    return takes && !blocked;
}

void ParallelSparseData::blockMatrix(const Sparse& A)
{
    if (!changeBlockMatrix(A))
        return;
    const int nThreads = owner.getBlockShares();
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
    wholeStart = wholeStop = first[pid];
    for (k = first[pid]; k < last[pid];) { // runs of whole columns
        const unsigned long begin = k;
        while (k < last[pid] && columns[k] == columns[begin] + (k - begin) && starts[k] == colPtr[columns[k]] &&
               stops[k] == colPtr[columns[k] + 1])
            ++k;
        if (k - begin > wholeStop - wholeStart) {
            wholeStart = begin;
            wholeStop = k;
        }
        k = std::max(k, begin + 1);
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

bool ParallelSparseData::changeWorkArray(const Sparse& A, bool real) const
{
    return !hasWork || work.isReal() != real || work.size() < std::max(A.getM(), A.getN());
}

void ParallelSparseData::growWork(unsigned long size, bool real)
{
    if (hasWork && work.isReal() == real && work.size() >= size)
        return;
    hasWork = false;
    work = Matrix<1>(uninit_t(), std::max(size + workReserve, work.size()), real);
    hasWork = true;
}

void ParallelSparseData::setWorkArray(const Sparse& A, bool real)
{
    if (!changeWorkArray(A, real))
        return;
    growWork(std::max(A.getM(), A.getN()), real);
    if (changeWorkArray(A, real)) {
        hasWork = false;
        QX_RAISE("matrix", "Internal_error_matrix");
    }
}

double* ParallelSparseData::getCurrentWorkdArray() { return work.getdArr().data(); }
std::complex<double>* ParallelSparseData::getCurrentWorkzArray() { return work.getzArr().data(); }

void ParallelSparseData::clear()
{
    work = noWork; // no allocation: this runs after failed ones
    hasWork = blocked = false;
    for (Array<unsigned long, 1>* holder :
         {&procColArray, &startColArray, &stopColArray, &procStartArray, &procStopArray})
        *holder = Array<unsigned long, 1>();
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

ParallelSparse::ParallelSparse() : utils(new XDevUtils), parallel(new qxbase::Parallel)
{
    makeData(parallel->getNumberCPUs());
    for (const char* timer : {"blocks", "products", "sweeps"})
        utils->getStopwatch()[timer]; // made here, so that no operation allocates for them
}

ParallelSparse::~ParallelSparse() = default;

void ParallelSparse::makeData(int count)
{
    while (data.size() < static_cast<std::size_t>(count))
        data.push_back(
            boost::shared_ptr<ParallelSparseData>(new ParallelSparseData(*this, static_cast<int>(data.size()))));
}

void ParallelSparse::clear()
{
    if (const Busy hold(*this); hold) {
        clearData();
        plan = PartPlan();
        result = noResult;
    }
}

/// Every thread releases what it made.
void ParallelSparse::clearData()
{
    const int shares = static_cast<int>(data.size());
    Team(shares, AVAILABLETHREADS()).run([&](int share) { data[static_cast<std::size_t>(share)]->clear(); });
}

/// The team of this call; 1 means serial.
int ParallelSparse::chooseThreads(unsigned long work)
{
    parallel->setNumberThreads(work);
    return parallel->getNumberThreads();
}

/// Runs prepare(share) for all shares; a failure clears everything and leaves under the module's names.
template <class Prepare>
void ParallelSparse::prepare(int shares, const Prepare& body)
{
    try {
        makeData(shares);
        Team(shares).run([&](int share) { body(*data[static_cast<std::size_t>(share)]); });
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
    blockShares = nThreads;
    bool change = data.size() < static_cast<std::size_t>(nThreads);
    for (int t = 0; !change && t < nThreads; ++t)
        change = data[static_cast<std::size_t>(t)]->changeBlockMatrix(A);
    if (change)
        utils->timed("blocks", [&] { prepare(nThreads, [&](ParallelSparseData& d) { d.blockMatrix(A); }); });
    return std::all_of(data.begin(), data.begin() + nThreads, [](const auto& d) { return d->isBlocked(); });
}

void ParallelSparse::setWorkArray(const Sparse& A, bool real, int nThreads)
{
    if (nThreads >= 2)
        prepare(nThreads, [&](ParallelSparseData& d) { d.setWorkArray(A, real); });
}

namespace {

using Range = std::pair<unsigned long, unsigned long>;

Range unionOf(const Range& a, const Range& b)
{
    if (a.first == a.second || b.first == b.second)
        return a.first == a.second ? b : a;
    return {std::min(a.first, b.first), std::max(a.second, b.second)};
}

/// Largest power of two up to `most` that leaves each part a few thousand entries; at least 2.
unsigned long mostParts(unsigned long nnz)
{
    constexpr unsigned long most = 64, entriesOfPart = 5000;
    unsigned long parts = 2;
    while (2 * parts <= std::min(most, nnz / entriesOfPart))
        parts *= 2;
    return parts;
}

/// The place where element 0 of a vector would stand whose element `first` stands at data.
template <class Y>
Y* beginOf(Y* data, unsigned long first)
{
    return reinterpret_cast<Y*>(reinterpret_cast<std::uintptr_t>(data) - first * sizeof(Y));
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

/// `result` with n elements of type R.
template <class R>
R* ParallelSparse::resultVector(unsigned long n)
{
    constexpr bool real = std::is_same_v<R, double>;
    if (result.isReal() != real || result.size() != n)
        result = Matrix<1>(uninit_t(), n, real);
    return writable<R>(result);
}

/// A copy of u in `result`.
template <class R>
const R* ParallelSparse::copyToResult(const R* u, unsigned long n)
{
    return std::copy_n(u, n, resultVector<R>(n)) - n;
}

/// y (n) = 0, each share its even slice.
template <class Y>
void ParallelSparse::zero(Y* y, unsigned long n) const
{
    const Team team(parallel->getNumberThreads());
    team.run([&](int share) {
        const Slice s = team.even(n, share);
        std::fill(y + s.from, y + s.to, Y(0.0));
    });
}

/// y (n) += work vectors of the parts, in their order, each share its even slice of y.
template <class Y>
void ParallelSparse::updateResultVector(Y* y, unsigned long n) const
{
    const Team team(parallel->getNumberThreads());
    team.run([&](int share) {
        const Slice s = team.even(n, share);
        for (std::size_t part = 0; part < plan.rows.size(); ++part) {
            const auto [first, last] = plan.rows[part];
            const Y* work = beginOf(workOf<Y>(*data[part]), first);
            for (unsigned long i = std::max(s.from, first), end = std::min(s.to, last); i < end; ++i)
                y[i] += work[i];
        }
    });
}

/// Divides the columns into parts of about the same number of entries and finds the rows that each touches. Where their
/// vectors would outgrow the matrix, neighbours are joined: the parts of half as many are unions of two.
void ParallelSparse::planParts(const Sparse& A)
{
    const unsigned long nnz = A.getNnz(), *colPtr = A.getColPtr(), *row = A.getRow();
    const bool byRow = A.getSymm() == RowStored, square = A.getM() == A.getN();
    const unsigned long n = byRow ? A.getM() : A.getN(), m = byRow ? A.getN() : A.getM();
    if (!plan.rows.empty() && plan.versionSeen == A.getRowColptrVersion() && plan.rowSeen == row && plan.mSeen == m &&
        plan.nSeen == n && plan.nnzSeen == nnz)
        return;
    std::vector<Range> rows(mostParts(nnz));
    const Team team(static_cast<int>(rows.size()), parallel->getNumberThreads());
    team.run([&](int part) {
        const Slice own = team.weighted(n, colPtr, part);
        Range range(0, 0);
        if (own.from < own.to && colPtr[own.from] < colPtr[own.to]) {
            const auto [least, most] = std::minmax_element(row + colPtr[own.from], row + colPtr[own.to]);
            range = {*least, *most + 1};
        }
        if (square) // gathered sums and the updater's diagonal go to the part's own columns
            range = unionOf(range, {own.from, own.to});
        rows[static_cast<std::size_t>(part)] = range;
    });
    const auto elements = [&rows] {
        unsigned long count = 0;
        for (const auto& [first, last] : rows)
            count += last - first;
        return count;
    };
    while (rows.size() > 2 && elements() > nnz / 2) {
        for (std::size_t k = 0; k < rows.size() / 2; ++k)
            rows[k] = unionOf(rows[2 * k], rows[2 * k + 1]);
        rows.resize(rows.size() / 2);
    }
    plan = {std::move(rows), A.getRowColptrVersion(), row, m, n, nnz};
}

/// The vectors of the parts, ready for sums of the given type.
void ParallelSparse::setPartVectors(const Sparse& A, bool real)
{
    try {
        planParts(A);
    } catch (const std::bad_alloc&) {
        QX_RAISE("parallelsparse", "Out_of_memory_operation_sparse_matrix.");
    }
    prepare(static_cast<int>(plan.rows.size()), [&](ParallelSparseData& d) {
        const Range& range = plan.rows[static_cast<std::size_t>(d.getPid())];
        d.growWork(range.second - range.first, real);
    });
}

/// work(d) for each share that owns rows.
template <class Work>
void ParallelSparse::inBlocks(const Work& work) const
{
    Team(blockShares).run([&](int share) {
        const ParallelSparseData& d = *data[static_cast<std::size_t>(share)];
        if (d.getStartRows() < d.getStopRows())
            work(d);
    });
}

/// The shares of a product: product(cols, ncols, starts, ends, from, to) for the columns before the whole ones, for these
/// without a list, and for those behind them. Columns keep their order, and so do the additions to each element.
template <class Product>
void ParallelSparse::multiplyBlocks(const Product& product) const
{
    inBlocks([&](const ParallelSparseData& d) {
        const unsigned long head = d.getWholeStart(), tail = d.getWholeStop(), end = d.getNCol();
        const auto listed = [&](unsigned long k, unsigned long stop, unsigned long from, unsigned long to) {
            if (k < stop || from < to) // an empty range at the front would read as "all columns"
                product(d.getProcCol() + k, stop - k, d.getStartCol() + k, d.getStopCol() + k, from, to);
        };
        if (head == tail) {
            listed(0, end, d.getStartRows(), d.getStopRows());
            return;
        }
        const unsigned long first = d.getProcCol()[head], last = d.getProcCol()[tail - 1] + 1;
        listed(0, head, d.getStartRows(), first);
        product(nullptr, 0, nullptr, nullptr, first, last);
        listed(tail, end, last, d.getStopRows());
    });
}

template <class T, class Y, class X>
void ParallelSparse::blockyPlusAMulx(const llsparse<T>& s, Y* y, const X* x, Trans_t trans) const
{
    multiplyBlocks([&](auto... share) { s.yPlusAMulx(y, x, trans, share...); });
}

template <class T, class Y, class X>
void ParallelSparse::blockyMinusAMulx(const llsparse<T>& s, Y* y, const X* x, Trans_t trans) const
{
    multiplyBlocks([&](auto... share) { s.yMinusAMulx(y, x, trans, share...); });
}

/// Each share computes its own elements of y: one writer and one order of additions.
template <bool Minus, class T, class Y, class X>
void ParallelSparse::gatherMultiply(const llsparse<T>& s, Y* y, const X* x, Trans_t trans) const
{
    const Team team(parallel->getNumberThreads());
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

/// product(work, from, to) with the columns in parts, each part into a zeroed vector of its own.
template <class Y, class T, class Product>
void ParallelSparse::inParts(const llsparse<T>& s, const Product& product) const
{
    const Team team(static_cast<int>(plan.rows.size()), parallel->getNumberThreads());
    team.run([&](int part) {
        const auto [first, last] = plan.rows[static_cast<std::size_t>(part)];
        Y* work = workOf<Y>(*data[static_cast<std::size_t>(part)]);
        std::fill_n(work, last - first, Y(0.0));
        const Slice own = team.weighted(s.n, s.colPtr, part);
        if (own.from < own.to)
            product(beginOf(work, first), own.from, own.to);
    });
}

template <class T, class Y, class X>
void ParallelSparse::workPlusAMulx(const llsparse<T>& s, Y* y, const X* x, unsigned long len, Trans_t trans) const
{
    inParts<Y>(s, [&](Y* work, unsigned long from, unsigned long to) {
        s.yPlusAMulx(work, x, trans, nullptr, 0, nullptr, nullptr, from, to);
    });
    updateResultVector(y, len);
}

template <class T, class Y, class X>
void ParallelSparse::workMinusAMulx(const llsparse<T>& s, Y* y, const X* x, unsigned long len, Trans_t trans) const
{
    inParts<Y>(s, [&](Y* work, unsigned long from, unsigned long to) {
        s.yMinusAMulx(work, x, trans, nullptr, 0, nullptr, nullptr, from, to);
    });
    updateResultVector(y, len);
}

template <bool Minus>
bool ParallelSparse::multiply(Matrix<1>& y, const Sparse& A, const VectorView& x, Trans_t trans)
{
    const Busy hold(*this);
    if (!hold)
        return false;
    const int shares = chooseThreads(A.getNnz());
    if (shares < 2)
        return false;
    const bool gathers = onlyGathers(A, trans), blocked = !gathers && isBlocked(A, shares, trans);
    visitStore(A, [](const auto& store) { checkSummand(store); });
    if (!blocked && !gathers)
        setPartVectors(A, y.isReal() && A.isReal() && x.isReal());
    utils->timed("products", [&] {
        withProductTypes(y, A, x, [&](const auto& s, auto* yData, const auto* xData) {
            if (gathers)
                gatherMultiply<Minus>(s, yData, xData, trans);
            else if (blocked)
                Minus ? blockyMinusAMulx(s, yData, xData, trans) : blockyPlusAMulx(s, yData, xData, trans);
            else
                Minus ? workMinusAMulx(s, yData, xData, y.size(), trans)
                      : workPlusAMulx(s, yData, xData, y.size(), trans);
        });
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
void ParallelSparse::blockSORIt(const llsparse<T>& s, R* r, R* x, double omega, bool reverse) const
{
    const int shares = blockShares;
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
void ParallelSparse::blockSORUpdater(const llsparse<T>& s, R* u, double omega, bool reverse)
{
    const R* t = copyToResult(u, s.n);
    inBlocks([&](const ParallelSparseData& d) {
        s.SORUpdater(u, t, omega, reverse, d.getProcCol(), d.getNCol(), d.getStartCol(), d.getStopCol(),
                     d.getStartRows(), d.getStopRows());
    });
}

/// In two passes: what an owner's step overwrites with the residual, later stages still need as a correction.
template <class T, class R>
void ParallelSparse::blockSORItUpdater(const llsparse<T>& s, R* r, R* x, double omega, bool reverse)
{
    resultVector<R>(s.n); // the last allocation comes before the first change
    blockSORIt(s, r, x, omega, reverse);
    blockSORUpdater(s, r, omega, !reverse);
}

/// The same for a store by rows, which only gathers: any division of the rows will do.
template <class T, class R>
void ParallelSparse::gatherSORUpdater(const llsparse<T>& s, R* u, double omega, bool reverse)
{
    const R* t = copyToResult(u, s.n);
    const Team team(parallel->getNumberThreads());
    team.run([&](int share) {
        const Slice own = team.weighted(s.n, s.colPtr, share);
        s.SORUpdater(u, t, omega, reverse, nullptr, 0, nullptr, nullptr, own.from, own.to);
    });
}

template <class T, class R>
void ParallelSparse::workSORUpdater(const llsparse<T>& s, R* u, double omega, bool reverse)
{
    const R* t = copyToResult(u, s.n);
    zero(u, s.n);
    inParts<R>(s, [&](R* work, unsigned long from, unsigned long to) {
        s.SORUpdater(work, t, omega, reverse, nullptr, 0, nullptr, nullptr, from, to);
    });
    updateResultVector(u, s.n);
}

/// serial(s, type), or blocked(s, type) where the block structure serves.
template <class Serial, class Blocked>
int ParallelSparse::sweep(const Sparse& A, Matrix<1>& r, Matrix<1>& x, const Serial& serial, const Blocked& blocked)
{
    const Busy hold(*this);
    const int shares = hold ? chooseThreads(A.getNnz()) : 1;
    const bool inBlocks = shares > 1 && A.getSymm() != RowStored && isBlocked(A, shares, NoTrans);
    return withSweepTypes(A, [&](const auto& s, auto type) {
        if (!inBlocks)
            return serial(s, type);
        utils->timed("sweeps", [&] { blocked(s, type); });
        return -1;
    }, r, x);
}

int ParallelSparse::SORIt(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse)
{
    return sweep(A, r, x,
                 [&](const auto& s, auto type) {
                     using R = decltype(type);
                     return s.SORIt(writable<R>(r), writable<R>(x), omega, reverse);
                 },
                 [&](const auto& s, auto type) {
                     using R = decltype(type);
                     blockSORIt(s, writable<R>(r), writable<R>(x), omega, reverse);
                 });
}

int ParallelSparse::SORItUpdater(const Sparse& A, Matrix<1>& r, Matrix<1>& x, double omega, bool reverse)
{
    return sweep(A, r, x,
                 [&](const auto& s, auto type) {
                     using R = decltype(type);
                     return s.SORItUpdater(writable<R>(r), writable<R>(x), omega, reverse);
                 },
                 [&](const auto& s, auto type) {
                     using R = decltype(type);
                     blockSORItUpdater(s, writable<R>(r), writable<R>(x), omega, reverse);
                 });
}

int ParallelSparse::SORUpdater(const Sparse& A, Matrix<1>& u, double omega, bool reverse)
{
    const Busy hold(*this);
    const int shares = hold ? chooseThreads(A.getNnz()) : 1;
    if (shares < 2)
        return withSweepTypes(A, [&](const auto& s, auto type) {
            return s.SORUpdater(writable<decltype(type)>(u), omega, reverse);
        }, u);
    const bool byRow = A.getSymm() == RowStored, blocked = !byRow && isBlocked(A, shares, NoTrans);
    if (!byRow && !blocked) {
        checkSweepVectors(A, u);
        setPartVectors(A, u.isReal() && A.isReal());
    }
    return utils->timed("sweeps", [&] {
        return withSweepTypes(A, [&](const auto& s, auto type) {
            auto* uData = writable<decltype(type)>(u);
            if (byRow)
                gatherSORUpdater(s, uData, omega, reverse);
            else if (blocked)
                blockSORUpdater(s, uData, omega, reverse);
            else
                workSORUpdater(s, uData, omega, reverse);
            return -1;
        }, u);
    });
}

int ParallelSparse::JacobiIts(const Matrix<1>& r, const Sparse& A, Matrix<1>& x, double omega)
{
    Matrix<1> residual = r;
    return withSweepTypes(A, [&](const auto& s, auto type) {
        using R = decltype(type);
        const Team team = Team::ofWork(A.getN());
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

// SPDX-License-Identifier: LicenseRef-qxkernel
// Assembly of a store from triplets.

#include "llsparse_detail.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"
#include "team.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

namespace {

using namespace qxsparse;

/// One triplet on its way into its column.
template <class T>
struct Entry
{
    std::uint32_t row, col;
    T val;
};

/// Neighbours in the input that go to one block.
struct Run
{
    std::uint32_t block, first, count;
};

/// Assembly by stable counting sorts, so that every column sees its triplets in input order whatever the number of
/// threads. Columns are grouped into blocks whose triplets fit the second-level cache:
///
///   survey   counts triplets by share and block, and notes the runs of neighbours that go to one block
///   bucket   if the runs are short, each share copies its triplets to their blocks, behind those of the shares before
///            it; long runs are read where they are, and this copy, as large as the input, is never made
///   merge    block by block: a counting sort by column, then duplicates are summed with a marker a row; rows take 4
///            bytes here
///   store    the merged blocks are copied into the exactly sized store and released
///
/// The table of row markers replaces a hash table: marker[i] > first says that row i already stands in the column that
/// begins at `first`, at position marker[i] - 1. Indices are checked on the way.
template <class T>
class Assembly
{
public:
    Assembly(const unsigned long* row, const unsigned long* col, const T* val, bool constVal, unsigned long len,
             unsigned long m, unsigned long n, const qxutil::RunInfo* run)
        : row_(row), col_(col), val_(val), step_(constVal ? 0 : 1), len_(len), m_(m), n_(n), run_(run),
          team_(Team::ofWork(len))
    {
        constexpr unsigned long blockBytes = 256 * 1024, maxBlocks = 2048;
        const unsigned long wanted = std::clamp(len * sizeof(Entry<T>) / blockBytes, 1UL, maxBlocks);
        while ((n_ >> shift_) >= wanted && (n_ >> shift_) > 0)
            ++shift_;
        blocks_ = (n_ >> shift_) + 1;
    }

    void run(llsparse<T>& store)
    {
        if (survey())
            bucket();
        store.allocColPtr();
        store.colPtr[0] = 0;
        merge(store.colPtr);
        runningSum(store.colPtr, n_);
        store.nzmax = store.colPtr[n_];
        store.allocRow();
        store.allocVal();
        copyTo(store);
    }

private:
    /// Runs of less than this on average: neighbours in memory have little to do with each other.
    static constexpr unsigned long shortRun = 8;

    /// Triplets between two looks at the run.
    static constexpr unsigned long pollInterval = 1 << 20;

    void poll() const
    {
        if (run_)
            run_->throwIfCancelled("sparse", __LINE__);
    }
    unsigned long firstColumn(unsigned long block) const { return std::min(block << shift_, n_); }
    unsigned long blockSize(unsigned long b) const { return blockStart_[b + 1] - blockStart_[b]; }

    /// Fills blockStart_, cursor_ (where the triplets of each share and block go) and, sorted by block, runs_. True if
    /// the runs are short; they are dropped then.
    bool survey()
    {
        const int shares = team_.size();
        cursor_ = Scratch<unsigned long>(blocks_ * static_cast<unsigned long>(shares));
        std::vector<std::vector<Run>> runs(static_cast<std::size_t>(shares));
        team_.run([&](int share) {
            const Slice s = team_.even(len_, share);
            surveySlice(s, cursor_.get() + blocks_ * static_cast<unsigned long>(share),
                        runs[static_cast<std::size_t>(share)]);
        });

        blockStart_ = Scratch<unsigned long>(blocks_ + 1);
        unsigned long position = 0;
        for (unsigned long b = 0; b < blocks_; ++b) {
            blockStart_[b] = position;
            for (int share = 0; share < shares; ++share) {
                unsigned long& cursor = cursor_[blocks_ * static_cast<unsigned long>(share) + b];
                const unsigned long count = cursor;
                cursor = position;
                position += count;
            }
            largestBlock_ = std::max(largestBlock_, position - blockStart_[b]);
        }
        blockStart_[blocks_] = position;

        unsigned long count = 0;
        for (int share = 0; share < shares; ++share) {
            if (runs[static_cast<std::size_t>(share)].size() >= mostRuns(team_.even(len_, share)))
                return true;
            count += runs[static_cast<std::size_t>(share)].size();
        }
        runs_ = Scratch<Run>(count);
        runStart_ = Scratch<unsigned long>(blocks_ + 1);
        std::fill_n(runStart_.get(), blocks_ + 1, 0UL);
        for (const auto& list : runs)
            for (const Run& r : list)
                ++runStart_[r.block + 1];
        runningSum(runStart_.get(), blocks_);
        for (const auto& list : runs) // runStart_[b] moves on to the end of block b
            for (const Run& r : list)
                runs_[runStart_[r.block]++] = r;
        std::copy_backward(runStart_.get(), runStart_.get() + blocks_, runStart_.get() + blocks_ + 1);
        runStart_[0] = 0;
        return false;
    }

    static unsigned long mostRuns(Slice s) { return (s.to - s.from) / shortRun + 16; }

    void surveySlice(Slice s, unsigned long* count, std::vector<Run>& runs) const
    {
        std::fill_n(count, blocks_, 0UL);
        const unsigned long most = mostRuns(s);
        unsigned long k = s.from, end = s.from;
        while (k < s.to) {
            if (k == end) {
                poll();
                end = std::min(s.to, k + pollInterval);
            }
            const unsigned long first = k, block = col_[k] >> shift_;
            checkIndex(col_[k], n_);
            const unsigned long beyond = firstColumn(block + 1), begin = block << shift_;
            do
                ++k;
            while (k < end && col_[k] - begin < beyond - begin);
            count[block] += k - first;
            if (runs.size() < most)
                runs.push_back({static_cast<std::uint32_t>(block), static_cast<std::uint32_t>(first),
                                static_cast<std::uint32_t>(k - first)});
        }
    }

    /// The triplet at position k of the input. mostRow keeps the largest row.
    Entry<T> entry(unsigned long k, unsigned long& mostRow) const
    {
        mostRow = std::max(mostRow, row_[k]);
        return {static_cast<std::uint32_t>(row_[k]), static_cast<std::uint32_t>(col_[k]), val_[k * step_]};
    }

    /// Fills entries_ block by block. Neighbours in the input often go to one block: its cursor stays in a register.
    void bucket()
    {
        entries_ = Scratch<Entry<T>>(len_);
        team_.run([&](int share) {
            unsigned long* next = cursor_.get() + blocks_ * static_cast<unsigned long>(share);
            const Slice s = team_.even(len_, share);
            unsigned long block = 0, mostRow = 0;
            Entry<T>* at = entries_.get() + next[0];
            for (unsigned long k = s.from; k < s.to;) {
                poll();
                for (const unsigned long end = std::min(s.to, k + pollInterval); k < end; ++k, ++at) {
                    if (const unsigned long b = col_[k] >> shift_; b != block) {
                        next[block] = static_cast<unsigned long>(at - entries_.get());
                        block = b;
                        at = entries_.get() + next[b];
                    }
                    *at = entry(k, mostRow);
                }
            }
            checkIndex(mostRow, m_);
        });
    }

    /// Asks for the head of a run some way ahead: runs are too short for the processor to foresee the next one.
    template <class... Arrays>
    void prefetchRun(unsigned long r, unsigned long end, const Arrays*... arrays) const
    {
        constexpr unsigned long ahead = 6, head = 64, line = 8;
        if (r + ahead >= end)
            return;
        const Run& run = runs_[r + ahead];
        for (unsigned long k = run.first, stop = k + std::min<unsigned long>(run.count, head); k < stop; k += line)
            (__builtin_prefetch(arrays + k), ...);
    }

    /// f(column, position of the triplet in the input or in entries_) over the triplets of a block, in input order. f
    /// will read the named arrays of the input there.
    template <class F, class... Arrays>
    void forEachOf(unsigned long block, const F& f, const Arrays*... arrays) const
    {
        if (entries_.get()) {
            for (unsigned long k = blockStart_[block]; k < blockStart_[block + 1]; ++k)
                f(entries_[k].col, k);
            return;
        }
        for (unsigned long r = runStart_[block], last = runStart_[block + 1]; r < last; ++r) {
            prefetchRun(r, last, arrays...);
            for (unsigned long k = runs_[r].first, end = k + runs_[r].count; k < end; ++k)
                f(static_cast<std::uint32_t>(col_[k]), k);
        }
    }

    /// What one thread needs to merge blocks.
    struct Workspace
    {
        Scratch<std::uint32_t> marker, offset;
        Scratch<Entry<T>> sorted;
        std::uint32_t base = 0; // positions grow from block to block: no marker needs clearing in between
    };

    /// Rows and values of a merged block.
    struct Merged
    {
        std::uint32_t* row;
        T* val;
    };

    /// The merged blocks of a share, in pieces that are released one by one.
    struct Pieces
    {
        struct Piece
        {
            Scratch<std::uint32_t> row;
            Scratch<T> val;
        };
        std::vector<Piece> list;
        unsigned long room = 0;
        Merged end{nullptr, nullptr};

        /// Room for a block of up to count entries; no more than `most` will follow.
        Merged reserve(unsigned long count, unsigned long most)
        {
            if (room < count) {
                constexpr unsigned long usual = 2 << 20;
                room = std::max(count, std::min(most, usual));
                list.push_back({Scratch<std::uint32_t>(room), Scratch<T>(room)});
                end = {list.back().row.get(), list.back().val.get()};
            }
            return end;
        }
        void take(unsigned long count)
        {
            end.row += count;
            end.val += count;
            room -= count;
        }
    };

    /// Leaves the merged entries of each block, by column, at merged_[b], and the number of entries of column j in
    /// counts[j + 1]. Releases the bucketed input.
    void merge(unsigned long* counts)
    {
        merged_ = Scratch<Merged>(blocks_);
        pieces_.resize(static_cast<std::size_t>(team_.size()));
        team_.run([&](int share) {
            const Slice blocks = team_.weighted(blocks_, blockStart_.get(), share);
            if (blocks.from == blocks.to)
                return;
            Workspace w{Scratch<std::uint32_t>(m_), Scratch<std::uint32_t>((1UL << shift_) + 1),
                        Scratch<Entry<T>>(largestBlock_)};
            std::fill_n(w.marker.get(), m_, 0U);
            Pieces& pieces = pieces_[static_cast<std::size_t>(share)];
            for (unsigned long b = blocks.from; b < blocks.to; ++b) {
                poll();
                sortByColumn(b, w);
                merged_[b] = pieces.reserve(blockSize(b), blockStart_[blocks.to] - blockStart_[b]);
                pieces.take(mergeColumns(b, counts, w));
            }
        });
        entries_ = Scratch<Entry<T>>();
    }

    /// w.sorted takes the triplets of block b by column, w.offset[j] the end of its column j.
    void sortByColumn(unsigned long b, Workspace& w) const
    {
        const std::uint32_t first = static_cast<std::uint32_t>(firstColumn(b));
        const unsigned long columns = firstColumn(b + 1) - first;
        std::uint32_t* const offset = w.offset.get();
        std::fill_n(offset, columns + 1, 0U);
        std::uint32_t column = first, repeats = 0; // a column that repeats stays in a register
        forEachOf(b, [&](std::uint32_t j, unsigned long) {
            if (j != column) {
                offset[column - first + 1] += repeats;
                column = j;
                repeats = 0;
            }
            ++repeats;
        }, col_);
        if (columns > 0)
            offset[column - first + 1] += repeats;
        for (unsigned long j = 0; j < columns; ++j)
            offset[j + 1] += offset[j];

        unsigned long mostRow = 0;
        Entry<T>* const sorted = w.sorted.get();
        column = first;
        std::uint32_t at = 0;
        forEachOf(b, [&](std::uint32_t j, unsigned long k) {
            if (j != column) {
                offset[column - first] = at;
                column = j;
                at = offset[j - first];
            }
            sorted[at++] = entries_.get() ? entries_[k] : entry(k, mostRow);
        }, row_, val_);
        offset[column - first] = at;
        checkIndex(mostRow, m_);
    }

    /// Sums the duplicates of each column of w.sorted into merged_[b]; returns their number. Whether a row is new cannot
    /// be foreseen, so no branch asks: the free slot holds -0.0, to which the first value is added unchanged.
    std::uint32_t mergeColumns(unsigned long b, unsigned long* counts, Workspace& w) const
    {
        const unsigned long first = firstColumn(b), columns = firstColumn(b + 1) - first;
        const T nothing = -T(0.0);
        std::uint32_t* const marker = w.marker.get();
        const Merged out = merged_[b];
        // Positions are counted on from w.base, one above zero.
        std::uint32_t written = 0, k = 0;
        for (unsigned long j = 0; j < columns; ++j) {
            const std::uint32_t columnStart = w.base + written;
            for (; k < w.offset[j]; ++k) {
                const Entry<T>& e = w.sorted[k];
                const std::uint32_t seen = marker[e.row];
                const bool isNew = seen <= columnStart;
                const std::uint32_t at = isNew ? written : seen - w.base - 1;
                out.val[written] = nothing;
                out.row[at] = e.row;
                out.val[at] += e.val;
                marker[e.row] = w.base + 1 + at;
                written += isNew;
            }
            counts[first + j + 1] = w.base + written - columnStart;
        }
        w.base += written;
        return written;
    }

    /// Each share copies the blocks that it merged and releases its pieces on the way.
    void copyTo(llsparse<T>& store)
    {
        team_.run([&](int share) {
            const Slice blocks = team_.weighted(blocks_, blockStart_.get(), share);
            auto& pieces = pieces_[static_cast<std::size_t>(share)].list;
            std::size_t piece = 0;
            for (unsigned long b = blocks.from; b < blocks.to; ++b) {
                poll();
                const Merged from = merged_[b];
                if (piece + 1 < pieces.size() && from.row == pieces[piece + 1].row.get())
                    pieces[piece++] = {};
                const unsigned long first = store.colPtr[firstColumn(b)], to = store.colPtr[firstColumn(b + 1)];
                std::copy_n(from.row, to - first, store.row + first);
                std::copy_n(from.val, to - first, store.val + first);
            }
        });
    }

    const unsigned long* row_;
    const unsigned long* col_;
    const T* val_;
    const unsigned long step_; // 0 repeats the first value
    const unsigned long len_, m_, n_;
    const qxutil::RunInfo* const run_; // null: nobody cancels
    const Team team_;
    unsigned shift_ = 0; // a block holds 2^shift_ columns
    unsigned long blocks_ = 1;
    unsigned long largestBlock_ = 0;
    Scratch<unsigned long> blockStart_, cursor_, runStart_;
    Scratch<Run> runs_;
    Scratch<Entry<T>> entries_; // null where runs are read in place
    Scratch<Merged> merged_;
    std::vector<Pieces> pieces_;
};

/// Few triplets in many rows: assembled by the ranks of their rows among those in use, so that the markers do not
/// outgrow the input.
template <class T>
void assembleByRank(const unsigned long* row, const unsigned long* col, const T* val, bool constVal, unsigned long len,
                    unsigned long m, unsigned long n, const qxutil::RunInfo* run, llsparse<T>& store)
{
    const Scratch<unsigned long> used(len), rank(len);
    std::copy_n(row, len, used.get());
    std::sort(used.get(), used.get() + len);
    unsigned long* const end = std::unique(used.get(), used.get() + len);
    if (len > 0)
        checkIndex(end[-1], m);
    for (unsigned long k = 0; k < len; ++k)
        rank[k] = static_cast<unsigned long>(std::lower_bound(used.get(), end, row[k]) - used.get());
    const auto count = static_cast<unsigned long>(end - used.get());
    Assembly<T>(rank.get(), col, val, constVal, len, std::max(count, 1UL), n, run).run(store);
    for (unsigned long p = 0; p < store.nnz(); ++p)
        store.row[p] = used[store.row[p]];
}

} // namespace

template <class T>
void llsparse<T>::triplet2sparse(const unsigned long* row_, const unsigned long* col_, const T* val_,
                                 unsigned long len, unsigned long m_, unsigned long n_, bool constVal,
                                 const qxutil::RunInfo* run)
{
    if (len > std::numeric_limits<std::uint32_t>::max())
        throw std::bad_alloc();
    llsparse result;
    result.m = qxsparse::extent(m_);
    result.n = qxsparse::extent(n_);
    if (m_ == 0 || n_ == 0) {
        result.allocColPtr();
        std::fill_n(result.colPtr, n_ + 1, 0UL);
    } else if (m_ > std::max(8 * len, 1UL << 20)) {
        assembleByRank(row_, col_, val_, constVal, len, m_, n_, run, result);
    } else {
        Assembly<T>(row_, col_, val_, constVal, len, m_, n_, run).run(result);
    }
    result.form = FormNone;
    adopt(result, false);
}

#define QX_INSTANTIATE(T)                                                                                             \
    template void llsparse<T>::triplet2sparse(const unsigned long*, const unsigned long*, const T*, unsigned long,    \
                                              unsigned long, unsigned long, bool, const qxutil::RunInfo*);
QX_FOR_EACH_STORE(QX_INSTANTIATE)

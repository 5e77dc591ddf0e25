// Assembly of a store from triplets.

#include "llsparse_detail.hpp"
#include "team.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>

namespace {

/// 206 primes, each about a tenth above the one before it.
constexpr unsigned long primes[] = {
    2u, 3u, 5u, 7u, 11u, 13u, 17u, 19u, 23u, 29u, 37u, 43u, 47u, 53u, 59u, 61u, 67u, 71u, 79u, 89u, 97u, 103u, 113u,
    127u, 139u, 149u, 157u, 173u, 191u, 211u, 227u, 251u, 277u, 307u, 331u, 359u, 397u, 433u, 479u, 521u, 571u, 631u,
    691u, 761u, 839u, 929u, 1021u, 1129u, 1249u, 1373u, 1511u, 1669u, 1847u, 2039u, 2251u, 2477u, 2729u, 2999u, 3299u,
    3623u, 3989u, 4391u, 4831u, 5309u, 5839u, 6421u, 7057u, 7759u, 8537u, 9391u, 10333u, 11369u, 12511u, 13759u,
    15137u, 16649u, 18313u, 20149u, 22171u, 24391u, 26839u, 29527u, 32479u, 35729u, 39301u, 43237u, 47563u, 52321u,
    57571u, 63331u, 69661u, 76631u, 84299u, 92717u, 101987u, 112181u, 123397u, 135731u, 149309u, 164239u, 180667u,
    198733u, 218611u, 240479u, 264527u, 290959u, 320041u, 352049u, 387253u, 425977u, 468577u, 515429u, 566971u,
    623671u, 686041u, 754651u, 830131u, 913151u, 1004477u, 1104919u, 1215421u, 1336963u, 1470659u, 1617727u, 1779497u,
    1957453u, 2153201u, 2368511u, 2605363u, 2865899u, 3152489u, 3467729u, 3814501u, 4195951u, 4615549u, 5077099u,
    5584819u, 6143303u, 6757627u, 7433381u, 8176723u, 8994407u, 9893839u, 10883221u, 11971541u, 13168709u, 14485567u,
    15934097u, 17527487u, 19280237u, 21208259u, 23329127u, 25662037u, 28228229u, 31051021u, 34156117u, 37571741u,
    41328913u, 45461803u, 50007961u, 55008773u, 60509653u, 66560639u, 73216697u, 80538371u, 88592201u, 97451441u,
    107196589u, 117916241u, 129707863u, 142678663u, 156946529u, 172641181u, 189905293u, 208895833u, 229785419u,
    252763949u, 278040337u, 305844359u, 336428791u, 370071673u, 407078843u, 447786727u, 492565399u, 541821941u,
    596004127u, 655604539u, 721164991u, 793281499u, 872609653u, 959870621u, 1055857669u, 1161443441u, 1277587771u,
    1405346561u, 1545881203u, 1700469307u, 1870516217u, 2057567843u, 2263324607u, 2489657081u, 2738622797u,
    3012485081u, 3313733573u, 3645106919u, 4009617631u
};
static_assert(std::size(primes) == 206);

} // namespace

unsigned long llsp_hashsize(unsigned long len)
{
    if (len == 0)
        return 0;
    const auto wanted = static_cast<unsigned long>(static_cast<double>(len) * 1.4285714285714286);
    const unsigned long* found = std::lower_bound(primes + 1, std::end(primes), wanted);
    return found == std::end(primes) ? *std::prev(found) : *found;
}

unsigned long llsp_hash2nd(unsigned long size)
{
    constexpr unsigned long cap = 285349621; // 4009617630 + cap is the last sum below 2^32
    return size >= cap + 1 ? cap : size - 2;
}

namespace {

using namespace qxsparse;

/// One triplet on its way into its column.
template <class T>
struct Entry
{
    std::uint32_t row, col;
    T val;
};

/// Assembly in two rounds of bucketing, both stable, so that every column sees its triplets in input order whatever the
/// number of threads. Columns are grouped into blocks whose triplets fit the second-level cache:
///
///   count    each share counts the triplets of its slice of the input by block
///   scatter  each share copies its triplets to their blocks, behind those of the shares before it
///   merge    block by block: a counting sort by column, then duplicates are summed with a marker a row
///   store    the merged blocks are copied into the exactly sized store
///
/// The table of row markers replaces a hash table: marker[i] > first says that row i already stands in the column that
/// begins at `first`, at position marker[i] - 1.
template <class T>
class Assembly
{
public:
    Assembly(const unsigned long* row, const unsigned long* col, const T* val, bool constVal, unsigned long len,
             unsigned long m, unsigned long n)
        : row_(row), col_(col), val_(val), step_(constVal ? 0 : 1), len_(len), m_(m), n_(n), team_(Team::ofWork(len))
    {
        constexpr unsigned long blockBytes = 256 * 1024, maxBlocks = 2048;
        const unsigned long wanted = std::clamp(len * sizeof(Entry<T>) / blockBytes, 1UL, maxBlocks);
        while ((n_ >> shift_) >= wanted && (n_ >> shift_) > 0)
            ++shift_;
        blocks_ = (n_ >> shift_) + 1;
    }

    void run(llsparse<T>& store)
    {
        bucketByBlock();
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
    unsigned long firstColumn(unsigned long block) const { return std::min(block << shift_, n_); }

    /// Fills entries_ block by block; blockStart_[b] .. blockStart_[b+1] is block b. Neighbours in the input mostly go to
    /// one block: its cursor stays in a register.
    void bucketByBlock()
    {
        const int shares = team_.size();
        Scratch<unsigned long> cursor(blocks_ * shares);
        team_.run([&](int share) {
            unsigned long* count = cursor.get() + blocks_ * share;
            std::fill_n(count, blocks_, 0UL);
            const Slice s = team_.even(len_, share);
            unsigned long block = 0, run = 0;
            for (unsigned long k = s.from; k < s.to; ++k, ++run)
                if (const unsigned long b = col_[k] >> shift_; b != block) {
                    count[block] += run;
                    block = b;
                    run = 0;
                }
            count[block] += run;
        });
        blockStart_ = Scratch<unsigned long>(blocks_ + 1);
        unsigned long position = 0;
        for (unsigned long b = 0; b < blocks_; ++b) {
            blockStart_[b] = position;
            for (int share = 0; share < shares; ++share) {
                const unsigned long count = cursor[blocks_ * share + b];
                cursor[blocks_ * share + b] = position;
                position += count;
            }
            largestBlock_ = std::max(largestBlock_, position - blockStart_[b]);
        }
        blockStart_[blocks_] = position;

        entries_ = Scratch<Entry<T>>(len_);
        team_.run([&](int share) {
            unsigned long* next = cursor.get() + blocks_ * share;
            const Slice s = team_.even(len_, share);
            unsigned long block = 0;
            Entry<T>* at = entries_.get() + next[0];
            for (unsigned long k = s.from; k < s.to; ++k, ++at) {
                const unsigned long j = col_[k];
                if (const unsigned long b = j >> shift_; b != block) {
                    next[block] = static_cast<unsigned long>(at - entries_.get());
                    block = b;
                    at = entries_.get() + next[b];
                }
                at->row = static_cast<std::uint32_t>(row_[k]);
                at->col = static_cast<std::uint32_t>(j);
                at->val = val_[k * step_];
            }
        });
    }

    /// Leaves the merged entries of each block, by column, at the block's start in entries_, and the number of entries
    /// of column j in counts[j + 1].
    void merge(unsigned long* counts)
    {
        team_.run([&](int share) {
            const Slice blocks = team_.weighted(blocks_, blockStart_.get(), share);
            if (blocks.from == blocks.to)
                return;
            const Scratch<std::uint32_t> marker(m_);
            std::fill_n(marker.get(), m_, 0U);
            const Scratch<Entry<T>> sorted(largestBlock_);
            const Scratch<std::uint32_t> offset((1UL << shift_) + 1);
            std::uint32_t base = 0; // positions grow from block to block: no marker needs clearing in between
            for (unsigned long b = blocks.from; b < blocks.to; ++b)
                base = mergeBlock(b, counts, marker.get(), sorted.get(), offset.get(), base);
        });
    }

    std::uint32_t mergeBlock(unsigned long b, unsigned long* counts, std::uint32_t* marker, Entry<T>* sorted,
                             std::uint32_t* offset, std::uint32_t base)
    {
        Entry<T>* const entries = entries_.get() + blockStart_[b];
        const unsigned long count = blockStart_[b + 1] - blockStart_[b];
        const unsigned long first = firstColumn(b), columns = firstColumn(b + 1) - first;

        std::fill_n(offset, columns + 1, 0U);
        for (unsigned long k = 0; k < count; ++k)
            ++offset[entries[k].col - first + 1];
        for (unsigned long j = 0; j < columns; ++j)
            offset[j + 1] += offset[j];
        for (unsigned long k = 0; k < count; ++k)
            sorted[offset[entries[k].col - first]++] = entries[k];

        // offset[j] is now the end of column j. Positions are counted on from `base`, one above zero.
        std::uint32_t written = 0, k = 0;
        for (unsigned long j = 0; j < columns; ++j) {
            const std::uint32_t columnStart = base + written;
            for (; k < offset[j]; ++k) {
                const std::uint32_t row = sorted[k].row, seen = marker[row];
                if (seen > columnStart) {
                    entries[seen - base - 1].val += sorted[k].val;
                } else {
                    entries[written] = sorted[k];
                    marker[row] = base + ++written;
                }
            }
            counts[first + j + 1] = base + written - columnStart;
        }
        return base + written;
    }

    void copyTo(llsparse<T>& store) const
    {
        team_.run([&](int share) {
            const Slice blocks = team_.weighted(blocks_, blockStart_.get(), share);
            for (unsigned long b = blocks.from; b < blocks.to; ++b) {
                const Entry<T>* from = entries_.get() + blockStart_[b];
                const unsigned long to = store.colPtr[firstColumn(b + 1)];
                for (unsigned long p = store.colPtr[firstColumn(b)]; p < to; ++p, ++from) {
                    store.row[p] = from->row;
                    store.val[p] = from->val;
                }
            }
        });
    }

    const unsigned long* row_;
    const unsigned long* col_;
    const T* val_;
    const unsigned long step_; // 0 repeats the first value
    const unsigned long len_, m_, n_;
    const Team team_;
    unsigned shift_ = 0; // a block holds 2^shift_ columns
    unsigned long blocks_ = 1;
    unsigned long largestBlock_ = 0;
    Scratch<unsigned long> blockStart_;
    Scratch<Entry<T>> entries_;
};

} // namespace

template <class T>
void llsparse<T>::triplet2sparse(const unsigned long* row_, const unsigned long* col_, const T* val_,
                                 unsigned long len, unsigned long m_, unsigned long n_, bool constVal)
{
    constexpr unsigned long indexLimit = std::numeric_limits<std::uint32_t>::max();
    if (len > indexLimit || m_ > indexLimit || n_ > indexLimit)
        throw std::bad_alloc();
    llsparse result;
    result.m = m_;
    result.n = n_;
    if (m_ == 0 || n_ == 0) {
        result.allocColPtr();
        std::fill_n(result.colPtr, n_ + 1, 0UL);
    } else {
        Assembly<T>(row_, col_, val_, constVal, len, m_, n_).run(result);
    }
    result.form = FormNone;
    adopt(result, false);
}

#define QX_INSTANTIATE(T)                                                                                             \
    template void llsparse<T>::triplet2sparse(const unsigned long*, const unsigned long*, const T*, unsigned long,    \
                                              unsigned long, unsigned long, bool);
QX_FOR_EACH_STORE(QX_INSTANTIATE)

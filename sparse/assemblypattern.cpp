// SPDX-License-Identifier: LicenseRef-qxkernel
// Assembly of new values into a known pattern.

#include "assemblypattern.hpp"

#include "qxrun.hpp"
#include "sparse_detail.hpp"
#include "team.hpp"

#include <algorithm>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

namespace {

using namespace qxsparse;

/// Neighbours in the list.
struct Stretch
{
    std::uint32_t first, count;
};

/// The positions of entries in one column by row: sorted, so that no work array as long as a column of the matrix is
/// needed.
class ColumnSearch
{
public:
    void take(const llsparse<double>& s, unsigned long column)
    {
        entries_.clear();
        for (unsigned long p = s.colPtr[column]; p < s.colPtr[column + 1]; ++p)
            entries_.push_back({s.row[p], static_cast<std::uint32_t>(p)});
        std::sort(entries_.begin(), entries_.end());
    }
    std::uint32_t position(unsigned long row) const
    {
        return std::lower_bound(entries_.begin(), entries_.end(), std::pair(row, 0U))->second;
    }

private:
    std::vector<std::pair<unsigned long, std::uint32_t>> entries_;
};

/// place[k] becomes the position of triplet k among the entries. The triplets are walked column by column, in the order of
/// a counting sort; rows are found by markers, or by search where there are far more rows than triplets.
void findPlaces(const llsparse<double>& s, const unsigned long* row, const unsigned long* col, unsigned long count,
                std::uint32_t* place, const qxutil::RunInfo* run)
{
    const Team team = Team::ofWork(count);
    team.run([&](int share) {
        const Slice columns = team.weighted(s.n, s.colPtr, share);
        const bool search = s.m > std::max(8 * count, 1UL << 20);
        const Scratch<std::uint32_t> marker(search ? 0 : s.m);
        ColumnSearch rows;
        const Scratch<std::uint32_t> end(columns.to - columns.from + 1);
        std::fill_n(end.get(), columns.to - columns.from + 1, 0U);
        const auto isMine = [&](unsigned long k) { return col[k] - columns.from < columns.to - columns.from; };
        for (unsigned long k = 0; k < count; ++k)
            if (isMine(k))
                ++end[col[k] - columns.from + 1];
        for (unsigned long j = columns.from; j < columns.to; ++j)
            end[j - columns.from + 1] += end[j - columns.from];
        const Scratch<std::uint32_t> order(end[columns.to - columns.from]);
        for (unsigned long k = 0; k < count; ++k) // end[j] moves from the start of column j to its end
            if (isMine(k))
                order[end[col[k] - columns.from]++] = static_cast<std::uint32_t>(k);

        const std::uint32_t* next = order.get();
        for (unsigned long j = columns.from; j < columns.to; ++j) {
            constexpr unsigned long pollInterval = 1024;
            if (run && (j - columns.from) % pollInterval == 0)
                run->throwIfCancelled("sparse", __LINE__);
            if (search)
                rows.take(s, j);
            else
                for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p)
                    marker[s.row[p]] = static_cast<std::uint32_t>(p);
            for (const std::uint32_t* last = order.get() + end[j - columns.from]; next < last; ++next)
                place[*next] = search ? rows.position(row[*next]) : marker[row[*next]];
        }
    });
}

} // namespace

/// What an assembly needs to know. The entries are parted evenly into as many parts as there were threads; each part has
/// its stretches of the list, so that every entry has one writer that adds in the order of the list.
struct AssemblyPattern::Layout
{
    llsparse<double> structure; ///< without values
    std::int64_t complexVersion = llsparse<Complex>::getNewRowColptrVersion();
    unsigned long count = 0;
    Scratch<std::uint32_t> place;
    std::vector<std::vector<Stretch>> parts; ///< none where one thread serves

    template <class V>
    std::int64_t version() const
    {
        return std::is_same_v<V, double> ? structure.rowColptrVersion : complexVersion;
    }
    Slice entriesOf(std::size_t part) const
    {
        Slice s;
        qxbase::Parallel::evenSlice(structure.nnz(), static_cast<int>(part), static_cast<int>(parts.size()), s.from, s.to);
        return s;
    }

    void divide(int shares)
    {
        if (shares < 2)
            return;
        parts.resize(static_cast<std::size_t>(shares));
        Team(shares).run([&](int share) {
            const Slice mine = entriesOf(static_cast<std::size_t>(share));
            std::vector<Stretch>& stretches = parts[static_cast<std::size_t>(share)];
            const auto isMine = [&](unsigned long k) { return place[k] - mine.from < mine.to - mine.from; };
            for (unsigned long k = 0; k < count;) {
                while (k < count && !isMine(k))
                    ++k;
                const unsigned long first = k;
                while (k < count && isMine(k))
                    ++k;
                if (k > first)
                    stretches.push_back({static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(k - first)});
            }
            stretches.shrink_to_fit();
        });
    }

    /// val[p] = sum of the values whose place is p, in the order of the list. -0.0 is the sum of nothing: whatever is added
    /// to it stays as it is.
    template <class V>
    void scatter(const V* values, bool constVal, V* val) const
    {
        constVal ? scatterBy<V, 0>(values, val) : scatterBy<V, 1>(values, val);
    }

    template <class V, unsigned long step>
    void scatterBy(const V* __restrict values, V* __restrict val) const
    {
        const std::uint32_t* __restrict to = place.get();
        const auto add = [&](unsigned long first, unsigned long end) {
            for (unsigned long k = first; k < end; ++k)
                val[to[k]] += values[k * step];
        };
        if (parts.empty() || AVAILABLETHREADS() == 1) {
            std::fill_n(val, structure.nnz(), -V(0.0));
            add(0, count);
            return;
        }
        Team(static_cast<int>(parts.size())).run([&](int share) {
            const auto part = static_cast<std::size_t>(share);
            const Slice mine = entriesOf(part);
            std::fill(val + mine.from, val + mine.to, -V(0.0));
            for (const Stretch& s : parts[part])
                add(s.first, s.first + s.count);
        });
    }

    /// Whether a store is one that this pattern filled, and nothing changed it but for its values.
    template <class V>
    bool fits(const llsparse<V>& s) const
    {
        return s.rowColptrVersion == version<V>() && s.symm == Unsymmetric && s.form == FormNone && s.val;
    }
    template <class V>
    static const boost::shared_ptr<llsparse<V>>& storeOf(const Sparse& A)
    {
        if constexpr (std::is_same_v<V, double>)
            return A.getptrD();
        else
            return A.getptrZ();
    }
    /// A store with this structure and its version, values unset.
    template <class V>
    boost::shared_ptr<llsparse<V>> makeStore() const
    {
        const boost::shared_ptr<llsparse<V>> s(new llsparse<V>);
        s->m = structure.m;
        s->n = structure.n;
        s->nzmax = structure.nnz();
        s->form = FormNone;
        s->allocColPtr();
        std::copy_n(structure.colPtr, structure.n + 1, s->colPtr);
        if (structure.row) {
            s->allocRow();
            std::copy_n(structure.row, s->nzmax, s->row);
            s->allocVal();
        }
        s->rowColptrVersion = version<V>();
        return s;
    }
};

AssemblyPattern::AssemblyPattern() : AssemblyPattern(nullptr, 0, nullptr, 0, 0, 0) {}

AssemblyPattern::AssemblyPattern(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                                 unsigned long m, unsigned long n)
    : AssemblyPattern(rows.data(), rows.size(), cols.data(), cols.size(), m, n)
{
}

AssemblyPattern::AssemblyPattern(const unsigned long* rows, unsigned long nRows, const unsigned long* cols,
                                 unsigned long nCols, unsigned long m, unsigned long n, const qxutil::RunInfo* run)
{
    guarded(
        [&] {
            checkLength(nRows == nCols);
            checkNotTooLarge(nRows);
            const boost::shared_ptr<Layout> layout(new Layout);
            llsparse<double>& s = layout->structure;
            const double zero = 0.0;
            s.triplet2sparse(rows, cols, &zero, nRows, m, n, true, run);
            s.setVal({});
            layout->count = nRows;
            if (s.row) {
                layout->place = Scratch<std::uint32_t>(nRows);
                findPlaces(s, rows, cols, nRows, layout->place.get(), run);
                layout->divide(Team::ofWork(nRows).size());
            }
            layout_ = layout;
        },
        outOfMemoryCreating);
}

unsigned long AssemblyPattern::getM() const { return layout_->structure.m; }
unsigned long AssemblyPattern::getN() const { return layout_->structure.n; }
unsigned long AssemblyPattern::getNnz() const { return layout_->structure.nnz(); }
unsigned long AssemblyPattern::getCount() const { return layout_->count; }

template <class V>
void AssemblyPattern::assemble(const V* vals, unsigned long nVals, bool constVal, Sparse& A) const
{
    checkLength(nVals == (constVal ? 1 : layout_->count));
    guarded(
        [&] {
            const boost::shared_ptr<llsparse<V>>& present = Layout::storeOf<V>(A);
            if (present && A.hasUniqueData() && layout_->fits(*present)) {
                layout_->scatter(vals, constVal, present->val);
                return;
            }
            const boost::shared_ptr<llsparse<V>> store = layout_->makeStore<V>();
            if (store->val)
                layout_->scatter(vals, constVal, store->val);
            A.install(store);
        },
        outOfMemoryCreating);
}
template QX_API void AssemblyPattern::assemble(const double*, unsigned long, bool, Sparse&) const;
template QX_API void AssemblyPattern::assemble(const Complex*, unsigned long, bool, Sparse&) const;

void AssemblyPattern::assemble(const std::vector<double>& vals, Sparse& A) const
{
    assemble(vals.data(), vals.size(), false, A);
}

void AssemblyPattern::assemble(const std::vector<Complex>& vals, Sparse& A) const
{
    assemble(vals.data(), vals.size(), false, A);
}

void AssemblyPattern::assemble(const Matrix<1>& vals, Sparse& A) const
{
    if (vals.isReal())
        assemble(vals.gethdArr().data(), vals.size(), false, A);
    else
        assemble(vals.gethzArr().data(), vals.size(), false, A);
}

void AssemblyPattern::assemble(double val, Sparse& A) const { assemble(&val, 1, true, A); }
void AssemblyPattern::assemble(Complex val, Sparse& A) const { assemble(&val, 1, true, A); }

void AssemblyPattern::assemble(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                               const std::vector<double>& vals, Sparse& A) const
{
    checkLength(vals.size() == rows.size());
    checkIndices(rows.data(), rows.size(), cols.data(), cols.size());
    assemble(vals, A);
}

void AssemblyPattern::assemble(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                               const std::vector<Complex>& vals, Sparse& A) const
{
    checkLength(vals.size() == rows.size());
    checkIndices(rows.data(), rows.size(), cols.data(), cols.size());
    assemble(vals, A);
}

void AssemblyPattern::checkIndices(const unsigned long* rows, unsigned long nRows, const unsigned long* cols,
                                   unsigned long nCols) const
{
    const Layout& l = *layout_;
    checkLength(nRows == nCols && nRows == l.count);
    if (!l.place.get())
        return;
    const llsparse<double>& s = l.structure;
    const auto differs = [&](unsigned long k) {
        const unsigned long p = l.place[k];
        return rows[k] != s.row[p] || cols[k] >= s.n || p < s.colPtr[cols[k]] || p >= s.colPtr[cols[k] + 1];
    };
    const Team team = Team::ofLoop(nRows);
    guarded([&] {
        std::vector<unsigned long> bad(static_cast<std::size_t>(team.size()), nRows);
        team.run([&](int share) {
            const Slice part = team.even(nRows, share);
            unsigned long k = part.from;
            while (k < part.to && !differs(k))
                ++k;
            if (k < part.to)
                bad[static_cast<std::size_t>(share)] = k;
        });
        const unsigned long k = *std::min_element(bad.begin(), bad.end());
        if (k < nRows)
            QX_RAISE("sparse", "Indices_assembly_pattern_disagree",
                     qxbase::ExceptionArgs{{"Triplet", std::to_string(k)},
                                           {"Row", std::to_string(rows[k])},
                                           {"Column", std::to_string(cols[k])}});
    });
}

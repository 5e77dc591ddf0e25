// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/batch_detail.hpp"
#include "distributed/reduction_detail.hpp"

#include "constrained.hpp"
#include "qxnumber.hpp"
#include "qxrun.hpp"
#include "sparse.hpp"

#include <algorithm>
#include <complex>
#include <cmath>
#include <map>
#include <sstream>
#include <tuple>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

Conditions& Conditions::add(std::span<const std::pair<Index, Scalar>> entries, Scalar wanted)
{
    for (const auto& [which, by] : entries) {
        unknown.push_back(which);
        factor.push_back(by);
    }
    start.push_back(static_cast<Index>(unknown.size()));
    value.push_back(wanted);
    return *this;
}

Conditions& Conditions::fix(Index which, Scalar wanted)
{
    const std::pair<Index, Scalar> one{which, 1.0};
    return add({&one, 1}, wanted);
}

Conditions& Conditions::join(Index a, Index b)
{
    const std::pair<Index, Scalar> two[2] = {{a, 1.0}, {b, -1.0}};
    return add(two, 0.0);
}

namespace detail {
namespace {

/// What messages whose lengths are ints can carry.
constexpr Index kMostEntries = 100'000'000;

/// The conditions of all ranks, one behind the other; on the first rank only.
struct Gathered
{
    Conditions all;
    std::vector<Index> ofRank; ///< the first condition of each rank, and their number

    ConditionPlace placeOf(Index condition) const
    {
        const auto behind = std::upper_bound(ofRank.begin(), ofRank.end(), condition);
        const auto rank = behind - ofRank.begin() - 1;
        return {static_cast<int>(rank), condition - ofRank[static_cast<std::size_t>(rank)]};
    }
};

/// A condition as others are compared with it: entries by unknown.
using Entries = std::vector<std::pair<Index, Scalar>>;

std::pair<double, double> parts(const Scalar& z) { return {std::real(z), std::imag(z)}; }

void check(const Conditions& c, Index count)
{
    if (c.start.size() != c.value.size() + 1)
        raiseCount("start", c.value.size() + 1, c.start.size());
    if (c.factor.size() != c.unknown.size())
        raiseCount("factor", c.unknown.size(), c.factor.size());
    if (c.start.front() != 0 || !std::is_sorted(c.start.begin(), c.start.end()) ||
        c.start.back() != static_cast<Index>(c.unknown.size()))
        raiseCount("unknown", static_cast<std::size_t>(c.start.back()), c.unknown.size());
    const auto isFinite = [](const Scalar& z) { return std::isfinite(std::abs(z)); };
    for (std::size_t k = 0; k < c.value.size(); ++k) {
        for (Index e = c.start[k]; e < c.start[k + 1]; ++e) {
            const Index u = c.unknown[static_cast<std::size_t>(e)];
            if (u < 0 || u >= count)
                QX_RAISE("distributed", "Unknown_out_of_range",
                         qxbase::ExceptionArgs{{"Unknown", std::to_string(u)},
                                               {"Count", std::to_string(count)},
                                               {"Condition", std::to_string(k)}});
            if (!isFinite(c.factor[static_cast<std::size_t>(e)]))
                QX_RAISE("distributed", "Value_not_finite", "Condition", static_cast<unsigned long>(k));
        }
        if (!isFinite(c.value[k]))
            QX_RAISE("distributed", "Value_not_finite", "Condition", static_cast<unsigned long>(k));
    }
}

/// The lists of all ranks one behind the other, on the first rank. Counts fit an int: the limit sees to it.
template <class T>
std::vector<T> gathered(const SessionState& s, const std::vector<T>& mine, std::vector<Index>* firsts = nullptr)
{
    const int bytes = static_cast<int>(mine.size() * sizeof(T));
    std::vector<int> counts(static_cast<std::size_t>(s.size)), at(static_cast<std::size_t>(s.size) + 1, 0);
    MPI_Gather(&bytes, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, s.comm);
    if (s.rank == 0)
        for (std::size_t r = 0; r < counts.size(); ++r)
            at[r + 1] = at[r] + counts[r];
    std::vector<T> all(static_cast<std::size_t>(at.back()) / sizeof(T));
    MPI_Gatherv(mine.data(), bytes, MPI_BYTE, all.data(), counts.data(), at.data(), MPI_BYTE, 0, s.comm);
    if (firsts != nullptr)
        for (const int a : at)
            firsts->push_back(a / static_cast<int>(sizeof(T)));
    return all;
}

Gathered gather(const SessionState& s, const Conditions& mine)
{
    std::vector<Index> lengths;
    for (std::size_t k = 0; k < mine.size(); ++k)
        lengths.push_back(mine.start[k + 1] - mine.start[k]);
    Gathered g;
    g.all.value = gathered(s, mine.value, &g.ofRank);
    g.all.unknown = gathered(s, mine.unknown);
    g.all.factor = gathered(s, mine.factor);
    for (const Index n : gathered(s, lengths))
        g.all.start.push_back(g.all.start.back() + n);
    return g;
}

/// The conditions in an order that depends on what they say only; of equal ones the first alone. `repeats` are the others.
struct Ordered
{
    std::vector<Entries> entries;
    std::vector<Scalar> value;
    std::vector<Index> origin; ///< number among the gathered ones
    std::vector<Index> repeats;
};

Ordered inOrder(const Conditions& c)
{
    const std::size_t m = c.size();
    std::vector<Entries> entries(m);
    for (std::size_t k = 0; k < m; ++k) {
        std::map<Index, Scalar> merged;
        for (auto e = static_cast<std::size_t>(c.start[k]); e < static_cast<std::size_t>(c.start[k + 1]); ++e)
            merged[c.unknown[e]] += c.factor[e];
        entries[k].assign(merged.begin(), merged.end());
    }
    const auto compare = [&](Index a, Index b) {
        const Entries& x = entries[static_cast<std::size_t>(a)];
        const Entries& y = entries[static_cast<std::size_t>(b)];
        for (std::size_t i = 0; i < std::min(x.size(), y.size()); ++i)
            if (x[i].first != y[i].first)
                return x[i].first < y[i].first ? -1 : 1;
        if (x.size() != y.size())
            return x.size() < y.size() ? -1 : 1;
        for (std::size_t i = 0; i < x.size(); ++i)
            if (x[i].second != y[i].second)
                return parts(x[i].second) < parts(y[i].second) ? -1 : 1;
        const Scalar& g = c.value[static_cast<std::size_t>(a)];
        const Scalar& h = c.value[static_cast<std::size_t>(b)];
        return g == h ? 0 : parts(g) < parts(h) ? -1 : 1;
    };
    std::vector<Index> order(m);
    for (std::size_t k = 0; k < m; ++k)
        order[k] = static_cast<Index>(k);
    std::sort(order.begin(), order.end(), [&](Index a, Index b) {
        const int sign = compare(a, b);
        return sign < 0 || (sign == 0 && a < b);
    });
    std::vector<bool> repeats(m, false);
    for (std::size_t k = 1; k < m; ++k)
        repeats[k] = compare(order[k - 1], order[k]) == 0;
    Ordered o;
    for (std::size_t k = 0; k < m; ++k) {
        const auto at = static_cast<std::size_t>(order[k]);
        if (repeats[k]) {
            o.repeats.push_back(order[k]);
            continue;
        }
        o.entries.push_back(std::move(entries[at]));
        o.value.push_back(c.value[at]);
        o.origin.push_back(order[k]);
    }
    return o;
}

std::string argument(const qxbase::Exception& e, const std::string& key)
{
    for (const auto& [name, value] : e.getArgs(0))
        if (name == key)
            return value;
    return {};
}

/// The failure of the elimination, its constraints named by rank and condition.
[[noreturn]] void raiseByPlace(const qxbase::Exception& e, const Ordered& o, const Gathered& g)
{
    const auto placeOf = [&](std::size_t k) { return g.placeOf(o.origin[k]); };
    const ConditionPlace own = placeOf(std::stoul(argument(e, "Constraint")));
    std::string with;
    std::istringstream others(argument(e, "With"));
    for (std::size_t k = 0; others >> k;) {
        const ConditionPlace p = placeOf(k);
        with += (with.empty() ? "" : " ") + std::to_string(p.rank) + ":" + std::to_string(p.condition);
    }
    QX_RAISE("distributed", "Contradicting_conditions",
             qxbase::ExceptionArgs{{"Rank", std::to_string(own.rank)},
                                   {"Condition", std::to_string(own.condition)},
                                   {"With", with},
                                   {"Others", argument(e, "Others")},
                                   {"Difference", argument(e, "Difference")},
                                   {"Value", argument(e, "Value")}});
}

/// For each column of Null the unknown that it stands for, by place among those named: a row with a one, in ascending order.
/// Where elimination has scaled that one away, any row that is left.
std::vector<std::size_t> homesOf(const Sparse& null, const std::vector<std::vector<std::pair<std::size_t, Scalar>>>& columns)
{
    std::vector<bool> taken(null.getM(), false);
    std::vector<std::size_t> home(columns.size());
    std::vector<std::size_t> homeless;
    std::size_t least = 0;
    for (std::size_t j = 0; j < columns.size(); ++j) {
        std::size_t best = null.getM();
        for (const auto& [row, value] : columns[j])
            if (row >= least && row < best && value == Scalar(1.0) && !taken[row])
                best = row;
        if (best == null.getM()) {
            homeless.push_back(j);
            continue;
        }
        home[j] = best;
        taken[best] = true;
        least = best + 1;
    }
    for (const std::size_t j : homeless) {
        std::size_t best = null.getM();
        double largest = -1.0;
        for (const auto& [row, value] : columns[j])
            if (!taken[row] && std::abs(value) > largest) {
                best = row;
                largest = std::abs(value);
            }
        if (best == null.getM())
            best = static_cast<std::size_t>(std::find(taken.begin(), taken.end(), false) - taken.begin());
        home[j] = best;
        taken[best] = true;
    }
    return home;
}

Scalar entryOf(const Sparse& A, unsigned long k)
{
#ifdef QX_DISTRIBUTED_COMPLEX
    return A.isReal() ? Scalar(A.getDoubleVal()[k]) : A.getDcmplxVal()[k];
#else
    return A.getDoubleVal()[k];
#endif
}

Reduction reduce(const Gathered& g, const UnknownsOptions& options)
{
    Ordered o = inOrder(g.all);
    Reduction r;
    for (const Entries& e : o.entries)
        for (const auto& entry : e)
            r.named.push_back(entry.first);
    std::sort(r.named.begin(), r.named.end());
    r.named.erase(std::unique(r.named.begin(), r.named.end()), r.named.end());

    // N^H u = g: a column a condition
    std::vector<unsigned long> rows, columns;
    std::vector<Scalar> values;
    for (std::size_t k = 0; k < o.entries.size(); ++k)
        for (const auto& [unknown, factor] : o.entries[k]) {
            const auto at = std::lower_bound(r.named.begin(), r.named.end(), unknown);
            rows.push_back(static_cast<unsigned long>(at - r.named.begin()));
            columns.push_back(k);
            values.push_back(conjugate(factor));
        }
    Sparse N;
    N.triplet2sparse(rows, columns, values, r.named.size(), o.entries.size());
    qxutil::RunInfo silent;
    Admissible<Scalar> a;
    try {
        a = admissible(N, std::span<const Scalar>(o.value), {.run = options.run != nullptr ? options.run : &silent});
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "Contradicting_constraints")
            raiseByPlace(e, o, g);
        throw;
    }
    for (const std::size_t k : a.dropped)
        r.redundant.push_back(g.placeOf(o.origin[k]));
    for (const Index k : o.repeats)
        r.redundant.push_back(g.placeOf(k));
    std::sort(r.redundant.begin(), r.redundant.end(), [](const ConditionPlace& x, const ConditionPlace& y) {
        return std::tie(x.rank, x.condition) < std::tie(y.rank, y.condition);
    });

    const Sparse& null = a.space.null;
    std::vector<std::vector<std::pair<std::size_t, Scalar>>> byColumn(null.getN());
    for (unsigned long j = 0; j < null.getN(); ++j)
        for (unsigned long k = null.getColPtr()[j]; k < null.getColPtr()[j + 1]; ++k)
            byColumn[j].emplace_back(null.getRow()[k], entryOf(null, k));
    const std::vector<std::size_t> home = homesOf(null, byColumn);
    std::vector<bool> isHome(r.named.size(), false);
    for (const std::size_t h : home)
        isHome[h] = true;
    std::vector<Index> below(r.named.size()); // eliminated ones
    for (std::size_t k = 0; k < r.named.size(); ++k) {
        below[k] = static_cast<Index>(r.eliminated.size());
        if (!isHome[k])
            r.eliminated.push_back(r.named[k]);
    }
    std::vector<Entries> byRow(r.named.size());
    for (std::size_t j = 0; j < byColumn.size(); ++j)
        for (const auto& [row, value] : byColumn[j])
            byRow[row].emplace_back(r.named[home[j]] - below[home[j]], value);
    for (Entries& row : byRow) {
        std::sort(row.begin(), row.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
        for (const auto& [column, value] : row) {
            r.column.push_back(column);
            r.factor.push_back(value);
        }
        r.rowStart.push_back(static_cast<Index>(r.column.size()));
    }
    r.particular = std::move(a.particular);
    return r;
}

} // namespace

Index Reduction::eliminatedBelow(Index unknown, bool& found) const
{
    const auto at = std::lower_bound(eliminated.begin(), eliminated.end(), unknown);
    found = at != eliminated.end() && *at == unknown;
    return at - eliminated.begin();
}

Reduction reductionOf(const SessionState& s, const Conditions& mine, Index count, const UnknownsOptions& options)
{
    together(s, [&] { check(mine, count); });
    const Index entries = sumOf(s, static_cast<Index>(mine.unknown.size()) + static_cast<Index>(mine.size()));
    Reduction r;
    if (entries == 0)
        return r;
    together(s, [&] {
        const Index limit = std::min(options.entryLimit, kMostEntries);
        if (entries > limit)
            QX_RAISE("distributed", "Too_many_condition_entries",
                     qxbase::ExceptionArgs{{"Entries", std::to_string(entries)}, {"Limit", std::to_string(limit)}});
    });
    const Gathered g = gather(s, mine);
    together(s, [&] {
        if (s.rank == 0)
            r = reduce(g, options);
    });
    broadcast(s, r.eliminated);
    broadcast(s, r.named);
    broadcast(s, r.rowStart);
    broadcast(s, r.column);
    broadcast(s, r.factor);
    broadcast(s, r.particular);
    broadcast(s, r.redundant);
    return r;
}

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

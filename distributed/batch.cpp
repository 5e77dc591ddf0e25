// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/batch_detail.hpp"

#include "qxparallel.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {
namespace detail {
namespace {

using Signed = std::ptrdiff_t; // loop variables of OpenMP

const unsigned long* asUnsigned(const std::vector<Index>& v) { return reinterpret_cast<const unsigned long*>(v.data()); }

/// Numbers of unknowns become places.
void toPlaces(const UnknownsState& u, std::vector<Index>& numbers)
{
    const auto n = static_cast<Signed>(numbers.size());
    Signed unknown = n;
#pragma omp parallel for num_threads(threadsFor(numbers.size())) reduction(min : unknown)
    for (Signed k = 0; k < n; ++k) {
        Index& number = numbers[static_cast<std::size_t>(k)];
        const std::uint32_t place = u.placeOf.find(number);
        if (place == IndexMap::none)
            unknown = std::min(unknown, k);
        else
            number = place;
    }
    if (unknown < n)
        QX_RAISE("distributed", "Unknown_not_touched",
                 qxbase::ExceptionArgs{{"Unknown", std::to_string(numbers[static_cast<std::size_t>(unknown)])},
                                       {"Triplet", std::to_string(unknown)}});
}

std::vector<LiftTerm> liftOf(const UnknownsState& u, const std::vector<Index>& rows, const std::vector<Index>& columns)
{
    std::vector<LiftTerm> terms;
    for (std::size_t t = 0; t < rows.size(); ++t)
        if (const Scalar value = u.particular[static_cast<std::size_t>(columns[t])]; value != Scalar(0.0))
            terms.push_back({static_cast<std::uint32_t>(t), static_cast<std::uint32_t>(rows[t]), value});
    return terms;
}

/// A triplet at places (i, j): its products of the two rows of Null, behind all others.
void spread(const UnknownsState& u, std::size_t triplet, std::size_t i, std::size_t j, Condensed& to)
{
    for (std::size_t a = u.rowStart[i]; a < u.rowStart[i + 1]; ++a)
        for (std::size_t b = u.rowStart[j]; b < u.rowStart[j + 1]; ++b) {
            to.row.push_back(u.entries[a].free);
            to.column.push_back(u.entries[b].free);
            to.source.push_back(static_cast<std::uint32_t>(triplet));
            to.factor.push_back(conjugate(u.entries[a].factor) * u.entries[b].factor);
        }
}

} // namespace

int threadsFor(std::size_t count) { return qxbase::isParallelLoop(count) ? AVAILABLETHREADS() : 1; }

Scalar conjugate(const Scalar& z)
{
#ifdef QX_DISTRIBUTED_COMPLEX
    return std::conj(z);
#else
    return z;
#endif
}

Condensed condensed(const UnknownsState& u, std::vector<Index> rows, std::vector<Index> columns, bool lifted)
{
    if (rows.size() != columns.size())
        raiseCount("columns", rows.size(), columns.size());
    if (rows.size() >= IndexMap::none)
        raiseCount("triplets of one batch", IndexMap::none - 1, rows.size());
    toPlaces(u, rows);
    toPlaces(u, columns);
    Condensed c;
    c.triplets = rows.size();
    if (lifted)
        c.lift = liftOf(u, rows, columns);

    std::vector<std::uint32_t> others; // triplets that do not stay as they are, and their places
    std::vector<std::pair<Index, Index>> places;
    std::size_t kept = 0;
    for (std::size_t t = 0; t < rows.size(); ++t) {
        const std::uint32_t row = u.plain[static_cast<std::size_t>(rows[t])];
        const std::uint32_t column = u.plain[static_cast<std::size_t>(columns[t])];
        if (row == UnknownsState::notPlain || column == UnknownsState::notPlain) {
            if (others.empty()) { // from here on the order is not the old one
                c.source.reserve(rows.size());
                for (std::size_t k = 0; k < kept; ++k)
                    c.source.push_back(static_cast<std::uint32_t>(k));
            }
            others.push_back(static_cast<std::uint32_t>(t));
            places.emplace_back(rows[t], columns[t]);
            continue;
        }
        if (!others.empty())
            c.source.push_back(static_cast<std::uint32_t>(t));
        rows[kept] = row;
        columns[kept++] = column;
    }
    rows.resize(kept);
    columns.resize(kept);
    c.row = std::move(rows);
    c.column = std::move(columns);
    for (std::size_t k = 0; k < others.size(); ++k)
        spread(u, others[k], static_cast<std::size_t>(places[k].first), static_cast<std::size_t>(places[k].second), c);
    if (c.triplets + c.factor.size() >= IndexMap::none)
        raiseCount("terms of one batch", IndexMap::none - 1, c.triplets + c.factor.size());
    return c;
}

void applyLift(const std::vector<LiftTerm>& terms, std::span<const Scalar> values, std::vector<Scalar>& f)
{
    for (const LiftTerm& t : terms)
        f[t.row] -= values[t.triplet] * t.value;
}

Pattern::Pattern(Condensed c, std::size_t size)
    : factors_(std::move(c.factor)), lift_(std::move(c.lift)), triplets_(c.triplets)
{
    const std::size_t count = c.row.size();
    const std::size_t plain = count - factors_.size();
    const double one = 1.0;
    store_.triplet2sparse(asUnsigned(c.column), count, asUnsigned(c.row), count, &one, 1, size, size, true);
    if ((store_.getForm() & FormSorted) == 0)
        store_.format(FormSorted, false);

    std::vector<std::uint32_t> position(count);
    const unsigned long* const first = store_.getColPtr();
    const unsigned long* const second = store_.getRow();
#pragma omp parallel for num_threads(threadsFor(count))
    for (Signed k = 0; k < static_cast<Signed>(count); ++k) {
        const auto t = static_cast<std::size_t>(k);
        const auto from = second + first[c.row[t]];
        const auto to = second + first[c.row[t] + 1];
        position[t] = static_cast<std::uint32_t>(std::lower_bound(from, to, static_cast<unsigned long>(c.column[t])) - second);
    }
    std::vector<Index>().swap(c.row);
    std::vector<Index>().swap(c.column);

    // A stable counting sort of the terms by entry.
    start_.assign(store_.getNnz() + 1, 0);
    for (const std::uint32_t p : position)
        ++start_[p + 1];
    for (std::size_t e = 1; e < start_.size(); ++e)
        start_[e] += start_[e - 1];
    terms_.resize(count);
    for (std::size_t k = 0; k < count; ++k)
        terms_[start_[position[k]]++] =
            static_cast<std::uint32_t>(k < plain ? c.sourceOf(k) : triplets_ + (k - plain));
    for (std::size_t e = start_.size(); --e > 0;)
        start_[e] = start_[e - 1];
    start_[0] = 0;
    if (!factors_.empty())
        spread_.assign(c.source.begin() + static_cast<Signed>(plain), c.source.end());
}

void Pattern::sum(std::span<const Scalar> values, Scalar* sums) const
{
    const auto count = static_cast<Signed>(entries());
    const auto triplets = static_cast<std::uint32_t>(triplets_);
#pragma omp parallel for num_threads(threadsFor(terms_.size())) schedule(static)
    for (Signed e = 0; e < count; ++e) {
        const auto at = static_cast<std::size_t>(e);
        Scalar s = 0.0;
        for (std::uint32_t k = start_[at]; k < start_[at + 1]; ++k) {
            const std::uint32_t term = terms_[k];
            s += term < triplets ? values[term] : factors_[term - triplets] * values[spread_[term - triplets]];
        }
        sums[at] = s;
    }
}

std::vector<std::uint32_t> positionsIn(const Sparse& whole, const Sparse& part)
{
    std::vector<std::uint32_t> at(part.getNnz());
    const unsigned long* const row = whole.getRow();
    for (unsigned long j = 0; j < part.getN(); ++j) {
        const unsigned long* from = row + whole.getColPtr()[j];
        const unsigned long* const to = row + whole.getColPtr()[j + 1];
        for (unsigned long k = part.getColPtr()[j]; k < part.getColPtr()[j + 1]; ++k) {
            from = std::lower_bound(from, to, part.getRow()[k]);
            at[k] = static_cast<std::uint32_t>(from - row);
        }
    }
    return at;
}

Sparse assembled(Condensed c, std::span<const Scalar> values, std::size_t size)
{
    std::vector<Scalar> own; // where the triplets are not the batch's, one by one
    if (!c.source.empty() || c.size() != c.triplets) {
        own.resize(c.size());
        for (std::size_t k = 0; k < own.size(); ++k)
            own[k] = values[c.sourceOf(k)];
        for (std::size_t k = c.plain(); k < own.size(); ++k)
            own[k] *= c.factor[k - c.plain()];
        values = own;
    }
    Sparse A;
    A.triplet2sparse(asUnsigned(c.column), c.size(), asUnsigned(c.row), c.size(), values.data(), values.size(), size, size,
                     false);
    return A;
}

const Scalar* valuesOf(const Sparse& A)
{
#ifdef QX_DISTRIBUTED_COMPLEX
    return A.getDcmplxVal();
#else
    return A.getDoubleVal();
#endif
}

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed/unknowns_detail.hpp"

#include "sparse.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {
namespace detail {

/// A part of f - A particular: a triplet of a column with a particular value.
struct LiftTerm
{
    std::uint32_t triplet;
    std::uint32_t row; ///< place of its row
    Scalar value;      ///< particular
};

/// Triplets of one batch, condensed: those whose row and column are free unknowns stay as they are, each of the others is
/// spread over the rows of Null of its row and column.
struct Condensed
{
    std::vector<Index> row, column;         ///< places in the list of free unknowns
    std::vector<std::uint32_t> source;      ///< triplet it comes from; empty: all triplets in order
    std::vector<Scalar> factor;             ///< of the last ones; those before have none
    std::size_t triplets = 0;               ///< of the batch
    std::vector<LiftTerm> lift;

    std::size_t size() const { return row.size(); }
    std::size_t plain() const { return row.size() - factor.size(); }
    std::size_t sourceOf(std::size_t k) const { return source.empty() ? k : source[k]; }
};

/// Takes the triplets' arrays over. Raises "Unknown_not_touched" with "Unknown", "Triplet"; "Wrong_number_of_values".
Condensed condensed(const UnknownsState& u, std::vector<Index> rows, std::vector<Index> columns, bool lifted);

/// f -= A particular, for the triplets of a batch; f by place.
void applyLift(const std::vector<LiftTerm>& terms, std::span<const Scalar> values, std::vector<Scalar>& f);

/// Which triplets of a batch each distinct entry sums.
class Pattern
{
public:
    Pattern(Condensed triplets, std::size_t size);

    /// The distinct entries, every value a number of triplets, until they are forgotten. Rows of the matrix are columns of
    /// the store: what the kernel sorts by is what PETSc wants first.
    const Sparse& store() const { return store_; }
    void forgetStore() { store_.clear(); }
    std::size_t entries() const { return start_.size() - 1; }
    std::size_t triplets() const { return triplets_; }
    const std::vector<LiftTerm>& liftTerms() const { return lift_; }
    /// The sums, in the order of triplets whatever the number of threads.
    void sum(std::span<const Scalar> values, Scalar* sums) const;

private:
    Sparse store_;
    std::vector<std::uint32_t> start_;      ///< by entry: its first in terms_
    std::vector<std::uint32_t> terms_;      ///< a triplet, or, counted on from their number, a spread one
    std::vector<std::uint32_t> spread_;     ///< the triplets of spread ones
    std::vector<Scalar> factors_;
    std::vector<LiftTerm> lift_;
    std::size_t triplets_;
};

/// Positions of the entries of a store in another one that has them all; both have sorted columns.
std::vector<std::uint32_t> positionsIn(const Sparse& whole, const Sparse& part);

/// The kernel's sum of condensed triplets, for one assembly only. Rows as in Pattern::store.
Sparse assembled(Condensed triplets, std::span<const Scalar> values, std::size_t size);

const Scalar* valuesOf(const Sparse& A);

Scalar conjugate(const Scalar& z);

/// Threads for a loop over count elements.
int threadsFor(std::size_t count);

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

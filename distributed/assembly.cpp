// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/batch_detail.hpp"

#include <petscmat.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <optional>
#include <utility>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

using detail::Owned;

namespace {

/// With reuse: what a batch sums, and where its sums go among the entries of all batches.
struct Batch
{
    explicit Batch(detail::Pattern p) : pattern(std::move(p)) {}

    detail::Pattern pattern;
    std::vector<std::uint32_t> position; ///< empty: it is the only batch
    std::vector<Scalar> sums;            ///< until they are added up
};

Sparse sumOf(const Sparse& a, const Sparse& b)
{
    Sparse s = a + b;
    s.format(FormSorted, false);
    return s;
}

/// Stores that are added up in pairs of like size, so that each entry takes part in few sums.
class Pile
{
public:
    void add(Sparse A)
    {
        levels_.emplace_back(std::move(A));
        while (levels_.size() > 1 && levels_[levels_.size() - 2].getNnz() <= 2 * levels_.back().getNnz())
            mergeLast();
    }
    /// All of it; nothing stays.
    Sparse take(std::size_t size)
    {
        while (levels_.size() > 1)
            mergeLast();
        Sparse all;
        if (levels_.empty())
            all.zeros(size, size, 0, std::is_same_v<Scalar, double>);
        else
            all = std::move(levels_.back());
        levels_.clear();
        return all;
    }

private:
    void mergeLast()
    {
        const Sparse last = std::move(levels_.back());
        levels_.pop_back();
        levels_.back() = sumOf(levels_.back(), last);
    }

    std::vector<Sparse> levels_;
};

} // namespace

struct AssemblyState
{
    AssemblyState(const Unknowns& unknowns, const AssemblyOptions& given)
        : handle(unknowns), u(*handle.state()), options(given), matrix(u.session), rightSide(u.session),
          load(u.numbers.size(), Scalar(0.0))
    {
    }

    Unknowns handle;
    const UnknownsState& u;
    AssemblyOptions options;

    std::vector<Batch> batches;    ///< with reuse
    bool hasPattern = false;       ///< the matrix has been made from these batches
    std::size_t arrived = 0;       ///< batches since the last restart
    Pile pile;                     ///< without reuse
    Index entries = 0;
    std::exception_ptr failure;    ///< the first since the last restart

    Owned<Mat, MatDestroy> matrix;
    Owned<Vec, VecDestroy> rightSide;
    std::vector<Scalar> load;      ///< by place

    std::size_t size() const { return u.freeRow.size(); }

    /// Runs a local step; what it raises is kept, with the batch.
    template <class Step>
    void keepFailure(const Step& step);
    void take(Batch& batch, std::span<const Scalar> values);
    Sparse mergePatterns();
    std::vector<Scalar> sumBatches(std::size_t count) const;
    std::vector<Scalar> condensedLoad() const;
    void makeMatrix(Sparse whole, std::vector<Scalar> values);
    void makeRightSide(const std::vector<Scalar>& values);
};

namespace {

void requireFinite(const Scalar* values, std::size_t count)
{
    for (std::size_t k = 0; k < count; ++k)
        if (!std::isfinite(std::real(values[k])) || !std::isfinite(std::imag(values[k])))
            QX_RAISE("distributed", "Value_not_finite");
}

void requireCount(const char* name, std::size_t expected, std::size_t found)
{
    if (expected != found)
        detail::raiseCount(name, expected, found);
}

} // namespace

template <class Step>
void AssemblyState::keepFailure(const Step& step)
{
    if (failure)
        return;
    try {
        try {
            step();
        } catch (qxbase::Exception& e) {
            e.add("distributed", __LINE__, "In_batch", {{"Batch", std::to_string(arrived)}});
            throw;
        } catch (const std::bad_alloc&) {
            QX_RAISE("distributed", "Out_of_memory_assembly");
        }
    } catch (...) {
        failure = std::current_exception();
    }
}

/// The sums of a batch of known pattern.
void AssemblyState::take(Batch& batch, std::span<const Scalar> values)
{
    requireCount("values", batch.pattern.triplets(), values.size());
    batch.sums.resize(batch.pattern.entries());
    batch.pattern.sum(values, batch.sums.data());
    requireFinite(batch.sums.data(), batch.sums.size());
    detail::applyLift(batch.pattern.liftTerms(), values, load);
}

/// The entries of all batches; each batch learns where its own are, and forgets what they are.
Sparse AssemblyState::mergePatterns()
{
    Pile patterns;
    for (const Batch& b : batches)
        patterns.add(b.pattern.store());
    Sparse whole = patterns.take(size());
    for (Batch& b : batches) {
        if (batches.size() > 1)
            b.position = detail::positionsIn(whole, b.pattern.store());
        b.pattern.forgetStore();
    }
    return whole;
}

std::vector<Scalar> AssemblyState::sumBatches(std::size_t count) const
{
    std::vector<Scalar> values(count, Scalar(0.0));
    for (const Batch& b : batches)
        for (std::size_t e = 0; e < b.sums.size(); ++e)
            values[b.position.empty() ? e : b.position[e]] += b.sums[e];
    return values;
}

/// Null^H load, by place in the list of free unknowns.
std::vector<Scalar> AssemblyState::condensedLoad() const
{
    requireFinite(load.data(), load.size());
    std::vector<Scalar> b(size(), Scalar(0.0));
    for (std::size_t k = 0; k < load.size(); ++k)
        for (std::size_t e = u.rowStart[k]; e < u.rowStart[k + 1]; ++e)
            b[u.entries[e].free] += detail::conjugate(u.entries[e].factor) * load[k];
    return b;
}

/// Together. What is not needed any more is released on the way: this is where memory is short.
void AssemblyState::makeMatrix(Sparse whole, std::vector<Scalar> values)
{
    const std::size_t count = whole.getNnz();
    std::vector<PetscInt> row, column;
    detail::together(*u.session, [&] {
        row.resize(count);
        column.resize(count);
        for (unsigned long i = 0; i < whole.getN(); ++i)
            for (unsigned long k = whole.getColPtr()[i]; k < whole.getColPtr()[i + 1]; ++k) {
                row[k] = u.freeRow[i];
                column[k] = u.freeRow[whole.getRow()[k]];
            }
        whole.clear();
    });
    Owned<Mat, MatDestroy> made(u.session);
    detail::collectively(*u.session, [&] {
        QX_PETSC(MatCreate(u.session->comm, made.put()));
        QX_PETSC(MatSetSizes(made.get(), u.ownedFree, u.ownedFree, u.freeCount, u.freeCount));
        QX_PETSC(MatSetType(made.get(), MATAIJ));
        QX_PETSC(MatSetPreallocationCOO(made.get(), static_cast<PetscCount>(count), row.data(), column.data()));
        std::vector<PetscInt>().swap(row);
        std::vector<PetscInt>().swap(column);
        QX_PETSC(MatSetValuesCOO(made.get(), values.data(), INSERT_VALUES));
    });
    matrix.swap(made);
    entries = static_cast<Index>(count);
}

/// Together.
void AssemblyState::makeRightSide(const std::vector<Scalar>& values)
{
    detail::collectively(*u.session, [&] {
        if (rightSide.get() == nullptr) {
            Owned<Vec, VecDestroy> made(u.session);
            QX_PETSC(VecDuplicate(u.like.get(), made.put()));
            QX_PETSC(VecSetPreallocationCOO(made.get(), static_cast<PetscCount>(size()), u.freeRow.data()));
            rightSide.swap(made);
        }
        QX_PETSC(VecSetValuesCOO(rightSide.get(), values.data(), INSERT_VALUES));
    });
}

Assembly::Assembly(const Unknowns& unknowns, const AssemblyOptions& options)
    : state_(std::make_unique<AssemblyState>(unknowns, options))
{
}

Assembly::~Assembly() = default;
Assembly::Assembly(Assembly&&) noexcept = default;
Assembly& Assembly::operator=(Assembly&&) noexcept = default;

void Assembly::add(std::vector<Index> rows, std::vector<Index> columns, std::span<const Scalar> values)
{
    AssemblyState& s = *state_;
    s.keepFailure([&] {
        if (s.hasPattern)
            QX_RAISE("distributed", "Pattern_is_kept");
        requireCount("values", rows.size(), values.size());
        detail::Condensed triplets = detail::condensed(s.u, std::move(rows), std::move(columns), s.options.lifted);
        if (s.options.reuse) {
            Batch batch(detail::Pattern(std::move(triplets), s.size()));
            s.take(batch, values);
            s.batches.push_back(std::move(batch));
        } else {
            detail::applyLift(triplets.lift, values, s.load);
            Sparse sums = detail::assembled(std::move(triplets), values, s.size());
            requireFinite(detail::valuesOf(sums), sums.getNnz());
            s.pile.add(std::move(sums));
        }
    });
    ++s.arrived;
}

void Assembly::add(std::span<const Scalar> values)
{
    AssemblyState& s = *state_;
    s.keepFailure([&] {
        if (!s.hasPattern || s.arrived >= s.batches.size())
            QX_RAISE("distributed", "No_pattern_for_batch");
        s.take(s.batches[s.arrived], values);
    });
    ++s.arrived;
}

void Assembly::addLoad(std::span<const Index> unknowns, std::span<const Scalar> values)
{
    AssemblyState& s = *state_;
    s.keepFailure([&] {
        requireCount("values", unknowns.size(), values.size());
        for (std::size_t k = 0; k < values.size(); ++k) {
            const std::uint32_t place = s.u.placeOf.find(unknowns[k]);
            if (place == detail::IndexMap::none)
                QX_RAISE("distributed", "Unknown_not_touched",
                         qxbase::ExceptionArgs{{"Unknown", std::to_string(unknowns[k])}, {"Load", std::to_string(k)}});
            s.load[place] += values[k];
        }
    });
}

void Assembly::finish()
{
    AssemblyState& s = *state_;
    const bool isNew = !s.hasPattern;
    Sparse whole;
    std::vector<Scalar> values, load;
    detail::together(*s.u.session, [&] {
        if (s.failure)
            std::rethrow_exception(s.failure);
        if (s.options.reuse && s.arrived != s.batches.size())
            QX_RAISE("distributed", "Pattern_incomplete",
                     qxbase::ExceptionArgs{{"Batches", std::to_string(s.arrived)},
                                           {"Expected", std::to_string(s.batches.size())}});
        load = s.condensedLoad();
        if (!s.options.reuse)
            whole = s.pile.take(s.size());
        else if (isNew)
            whole = s.mergePatterns();
        if (s.options.reuse)
            values = s.sumBatches(isNew ? whole.getNnz() : static_cast<std::size_t>(s.entries));
        else
            values.assign(detail::valuesOf(whole), detail::valuesOf(whole) + whole.getNnz());
    });
    if (isNew)
        s.makeMatrix(std::move(whole), std::move(values));
    else
        detail::collectively(*s.u.session,
                             [&] { QX_PETSC(MatSetValuesCOO(s.matrix.get(), values.data(), INSERT_VALUES)); });
    s.makeRightSide(load);
    s.hasPattern = s.options.reuse;
}

void Assembly::finishLoads()
{
    AssemblyState& s = *state_;
    std::vector<Scalar> load;
    detail::together(*s.u.session, [&] {
        if (s.failure)
            std::rethrow_exception(s.failure);
        load = s.condensedLoad();
    });
    s.makeRightSide(load);
}

void Assembly::restart()
{
    AssemblyState& s = *state_;
    s.failure = nullptr;
    s.arrived = 0;
    s.pile = Pile();
    if (!s.hasPattern)
        s.batches.clear();
    std::fill(s.load.begin(), s.load.end(), Scalar(0.0));
}

Index Assembly::entries() const { return state_->entries; }
_p_Mat* Assembly::matrix() const { return state_->matrix.get(); }
_p_Vec* Assembly::rightSide() const { return state_->rightSide.get(); }
const Unknowns& Assembly::unknowns() const { return state_->handle; }
const AssemblyOptions& Assembly::options() const { return state_->options; }

double Assembly::rightSideNorm() const
{
    const AssemblyState& s = *state_;
    PetscReal norm = 0.0;
    detail::collectively(*s.u.session, [&] {
        if (s.rightSide.get() == nullptr)
            QX_RAISE("distributed", "Assembly_not_finished");
        QX_PETSC(VecNorm(s.rightSide.get(), NORM_2, &norm));
    });
    return norm;
}

} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/unknowns_detail.hpp"

#include "qxrun.hpp"

#include <petscao.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

static_assert(sizeof(PetscInt) == sizeof(Index), "PETSc has been built with 32-bit indices");
static_assert(sizeof(PetscScalar) == sizeof(Scalar), "PETSc's numbers are of the other kind");

using detail::Owned;

namespace {

PetscInt* asPetsc(Index* numbers) { return reinterpret_cast<PetscInt*>(numbers); }

void checkNumbers(const UnknownsState& u)
{
    if (u.owned > u.numbers.size())
        detail::raiseCount("numbers", u.owned, u.numbers.size());
    if (u.numbers.size() >= detail::IndexMap::none)
        detail::raiseCount("numbers", detail::IndexMap::none - 1, u.numbers.size());
    for (const Index n : u.numbers)
        if (n < 0 || n >= u.count)
            QX_RAISE("distributed", "Unknown_out_of_range",
                     qxbase::ExceptionArgs{{"Unknown", std::to_string(n)}, {"Count", std::to_string(u.count)}});
    if (const Index twice = u.placeOf.repeated(); twice >= 0)
        QX_RAISE("distributed", "Unknown_listed_twice", "Unknown", static_cast<long>(twice));
}

/// Together: PETSc adds up owners. Numbers are in range.
void checkOwners(const UnknownsState& u)
{
    if (u.count == 0)
        return;
    PetscInt lowestAt = 0;
    PetscInt highestAt = 0;
    PetscReal lowest = 1.0;
    PetscReal highest = 1.0;
    detail::collectively(*u.session, [&] {
        Owned<Vec, VecDestroy> owners(u.session);
        QX_PETSC(VecCreate(u.session->comm, owners.put()));
        QX_PETSC(VecSetSizes(owners.get(), PETSC_DECIDE, u.count));
        QX_PETSC(VecSetType(owners.get(), VECSTANDARD));
        QX_PETSC(VecSetPreallocationCOO(owners.get(), static_cast<PetscCount>(u.owned), u.numbers.data()));
        const std::vector<Scalar> ones(u.owned, Scalar(1.0));
        QX_PETSC(VecSetValuesCOO(owners.get(), ones.data(), INSERT_VALUES));
        QX_PETSC(VecMin(owners.get(), &lowestAt, &lowest));
        QX_PETSC(VecMax(owners.get(), &highestAt, &highest));
    });
    detail::together(*u.session, [&] {
        const bool missing = lowest < 0.5;
        if (missing || highest > 1.5)
            QX_RAISE("distributed", "Unknown_without_one_owner",
                     qxbase::ExceptionArgs{{"Unknown", std::to_string(missing ? lowestAt : highestAt)},
                                           {"Owners", std::to_string(static_cast<int>(missing ? lowest : highest))}});
    });
}

/// Rows of Null for the numbers of this rank, by number of free unknown.
struct Rows
{
    std::vector<std::size_t> start{0};
    std::vector<Index> column;
    std::vector<Scalar> factor;
    std::vector<std::pair<Index, std::uint32_t>> owned; ///< free unknowns at home here, and their places
};

Rows rowsOf(UnknownsState& u, const detail::Reduction& r)
{
    Rows rows;
    u.particular.assign(u.numbers.size(), Scalar(0.0));
    for (std::size_t k = 0; k < u.numbers.size(); ++k) {
        const Index number = u.numbers[k];
        bool eliminated = false;
        const Index below = r.eliminatedBelow(number, eliminated);
        const auto at = std::lower_bound(r.named.begin(), r.named.end(), number);
        if (at != r.named.end() && *at == number) {
            const auto n = static_cast<std::size_t>(at - r.named.begin());
            u.particular[k] = r.particular[n];
            for (auto e = static_cast<std::size_t>(r.rowStart[n]); e < static_cast<std::size_t>(r.rowStart[n + 1]); ++e) {
                rows.column.push_back(r.column[e]);
                rows.factor.push_back(r.factor[e]);
            }
        } else {
            rows.column.push_back(number - below);
            rows.factor.push_back(1.0);
        }
        rows.start.push_back(rows.column.size());
        if (k < u.owned && !eliminated)
            rows.owned.emplace_back(number - below, static_cast<std::uint32_t>(k));
    }
    std::sort(rows.owned.begin(), rows.owned.end());
    return rows;
}

/// Together: the free unknowns that this rank needs, in PETSc's order.
void listFree(UnknownsState& u, const Rows& rows)
{
    std::vector<Index> owned;
    for (const auto& entry : rows.owned)
        owned.push_back(entry.first);
    std::vector<Index> others = rows.column;
    std::sort(others.begin(), others.end());
    others.erase(std::unique(others.begin(), others.end()), others.end());
    std::erase_if(others, [&](Index z) { return std::binary_search(owned.begin(), owned.end(), z); });

    u.ownedFree = static_cast<Index>(owned.size());
    MPI_Exscan(&u.ownedFree, &u.firstFree, 1, MPI_INT64_T, MPI_SUM, u.session->comm);
    if (u.session->rank == 0)
        u.firstFree = 0;
    u.freeCount = detail::sumOf(*u.session, u.ownedFree);

    std::vector<Index> rowOfOther = others;
    detail::collectively(*u.session, [&] {
        Owned<AO, AODestroy> order(u.session);
        QX_PETSC(AOCreateMemoryScalable(u.session->comm, u.ownedFree, asPetsc(owned.data()), nullptr, order.put()));
        QX_PETSC(AOApplicationToPetsc(order.get(), static_cast<PetscInt>(rowOfOther.size()), asPetsc(rowOfOther.data())));
    });

    std::vector<std::pair<PetscInt, Index>> list;
    for (std::size_t k = 0; k < others.size(); ++k)
        list.emplace_back(rowOfOther[k], others[k]);
    for (std::size_t k = 0; k < owned.size(); ++k)
        list.emplace_back(u.firstFree + static_cast<Index>(k), owned[k]);
    std::sort(list.begin(), list.end());
    for (const auto& [row, number] : list) {
        u.freeRow.push_back(row);
        u.freeNumber.push_back(number);
    }
    u.firstOwnedFree = static_cast<std::uint32_t>(
        std::lower_bound(u.freeRow.begin(), u.freeRow.end(), u.firstFree) - u.freeRow.begin());
    for (const auto& entry : rows.owned)
        u.home.push_back(entry.second);
}

/// Null's rows by place in the list of free unknowns.
void keepRows(UnknownsState& u, const Rows& rows)
{
    const detail::IndexMap free(u.freeNumber);
    u.rowStart = rows.start;
    u.entries.reserve(rows.column.size());
    for (std::size_t e = 0; e < rows.column.size(); ++e)
        u.entries.push_back({free.find(rows.column[e]), rows.factor[e]});
    u.plain.assign(u.numbers.size(), UnknownsState::notPlain);
    for (std::size_t k = 0; k < u.numbers.size(); ++k)
        if (u.rowStart[k + 1] == u.rowStart[k] + 1 && u.entries[u.rowStart[k]].factor == Scalar(1.0))
            u.plain[k] = u.entries[u.rowStart[k]].free;
}

/// Together: how values of the free unknowns travel.
void makeVectors(UnknownsState& u)
{
    detail::collectively(*u.session, [&] {
        QX_PETSC(VecCreate(u.session->comm, u.like.put()));
        QX_PETSC(VecSetSizes(u.like.get(), u.ownedFree, u.freeCount));
        QX_PETSC(VecSetType(u.like.get(), VECSTANDARD));
        const auto listed = static_cast<PetscInt>(u.freeRow.size());
        QX_PETSC(VecCreateSeq(PETSC_COMM_SELF, listed, u.local.put()));
        Owned<IS, ISDestroy> rows(u.session);
        QX_PETSC(ISCreateGeneral(u.session->comm, listed, u.freeRow.data(), PETSC_COPY_VALUES, rows.put()));
        QX_PETSC(VecScatterCreate(u.like.get(), rows.get(), u.local.get(), nullptr, u.scatter.put()));
    });
}

} // namespace

std::vector<Scalar> UnknownsState::expanded(Vec z, bool lifted) const
{
    std::vector<Scalar> values(numbers.size());
    detail::collectively(*session, [&] {
        QX_PETSC(VecScatterBegin(scatter.get(), z, local.get(), INSERT_VALUES, SCATTER_FORWARD));
        QX_PETSC(VecScatterEnd(scatter.get(), z, local.get(), INSERT_VALUES, SCATTER_FORWARD));
        const PetscScalar* free = nullptr;
        QX_PETSC(VecGetArrayRead(local.get(), &free));
        for (std::size_t k = 0; k < values.size(); ++k) {
            values[k] = lifted ? particular[k] : Scalar(0.0);
            for (std::size_t e = rowStart[k]; e < rowStart[k + 1]; ++e)
                values[k] += entries[e].factor * free[entries[e].free];
        }
        QX_PETSC(VecRestoreArrayRead(local.get(), &free));
    });
    return values;
}

Unknowns::Unknowns(const Session& session, std::span<const Index> numbers, std::size_t owned, const Conditions& conditions,
                   const UnknownsOptions& options)
{
    const detail::State& s = session.state();
    auto u = std::make_shared<UnknownsState>(s);
    u->count = detail::sumOf(*s, static_cast<Index>(owned));
    detail::together(*s, [&] {
        u->numbers.assign(numbers.begin(), numbers.end());
        u->owned = owned;
        u->placeOf = detail::IndexMap(u->numbers);
        checkNumbers(*u);
    });
    checkOwners(*u);
    const detail::Reduction reduction = detail::reductionOf(*s, conditions, u->count, options);
    Rows rows;
    detail::together(*s, [&] { rows = rowsOf(*u, reduction); });
    listFree(*u, rows);
    detail::together(*s, [&] { keepRows(*u, rows); });
    makeVectors(*u);
    u->redundant = reduction.redundant;
    state_ = std::move(u);
}

Index Unknowns::count() const { return state_->count; }
Index Unknowns::freeCount() const { return state_->freeCount; }
Index Unknowns::ownedFree() const { return state_->ownedFree; }
Index Unknowns::firstFree() const { return state_->firstFree; }
std::size_t Unknowns::size() const { return state_->numbers.size(); }
std::size_t Unknowns::owned() const { return state_->owned; }
std::span<const Scalar> Unknowns::particular() const { return state_->particular; }
const std::vector<ConditionPlace>& Unknowns::redundant() const { return state_->redundant; }

std::vector<Scalar> Unknowns::admissible(std::span<const Scalar> values) const
{
    const UnknownsState& u = *state_;
    detail::together(*u.session, [&] {
        if (values.size() != u.numbers.size())
            detail::raiseCount("values", u.numbers.size(), values.size());
    });
    Owned<Vec, VecDestroy> z(u.session);
    detail::collectively(*u.session, [&] {
        QX_PETSC(VecDuplicate(u.like.get(), z.put()));
        PetscScalar* free = nullptr;
        QX_PETSC(VecGetArrayWrite(z.get(), &free));
        for (std::size_t k = 0; k < u.home.size(); ++k)
            free[k] = values[u.home[k]] - u.particular[u.home[k]];
        QX_PETSC(VecRestoreArrayWrite(z.get(), &free));
    });
    return u.expanded(z.get(), true);
}

std::vector<std::pair<Index, Scalar>> Unknowns::row(std::size_t k) const
{
    if (k >= state_->numbers.size())
        detail::raiseCount("numbers", k + 1, state_->numbers.size());
    std::vector<std::pair<Index, Scalar>> row;
    for (std::size_t e = state_->rowStart[k]; e < state_->rowStart[k + 1]; ++e)
        row.emplace_back(state_->freeNumber[state_->entries[e].free], state_->entries[e].factor);
    std::sort(row.begin(), row.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return row;
}

} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed/indexmap_detail.hpp"
#include "distributed/reduction_detail.hpp"
#include "distributed/session_detail.hpp"

#include <petscvec.h>

#include <cstdint>
#include <vector>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

/// An entry of Null: a free unknown by its place among those that this rank needs.
struct NullEntry
{
    std::uint32_t free;
    Scalar factor;
};

/// What Unknowns know. Free unknowns that this rank owns or its elements reach are listed in PETSc's order: a place in
/// that list is what triplets are summed under.
struct UnknownsState
{
    explicit UnknownsState(detail::State shared)
        : session(std::move(shared)), like(session), local(session), scatter(session)
    {
    }

    static constexpr std::uint32_t notPlain = 0xffffffff;

    detail::State session;
    Index count = 0;
    Index freeCount = 0;
    Index ownedFree = 0;
    Index firstFree = 0;

    std::vector<Index> numbers;           ///< as the caller gave them
    std::size_t owned = 0;
    detail::IndexMap placeOf;             ///< in numbers
    std::vector<Scalar> particular;
    std::vector<std::uint32_t> plain;     ///< by place: the free unknown that it is, or notPlain
    std::vector<std::size_t> rowStart;    ///< by place: its row of Null among entries; of plain ones too
    std::vector<NullEntry> entries;

    std::vector<PetscInt> freeRow;        ///< PETSc's number of each free unknown listed, ascending
    std::vector<Index> freeNumber;        ///< the caller's
    std::uint32_t firstOwnedFree = 0;     ///< the owned ones follow from here
    std::vector<std::uint32_t> home;      ///< by owned free unknown: the place of the unknown that it is

    std::vector<ConditionPlace> redundant;

    detail::Owned<Vec, VecDestroy> like;  ///< what vectors of the free unknowns are copies of
    detail::Owned<Vec, VecDestroy> local; ///< values of the free unknowns listed
    detail::Owned<VecScatter, VecScatterDestroy> scatter;

    /// Together: Null z, and particular where it is wanted, at the unknowns of this rank.
    std::vector<Scalar> expanded(Vec z, bool lifted) const;
};

} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

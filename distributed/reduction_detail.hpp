// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed/session_detail.hpp"

#include <vector>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {
namespace detail {

/// What the conditions of all ranks make of the unknowns that they name: u = particular + Null z there. Free unknowns are
/// numbered over the whole problem in ascending order.
struct Reduction
{
    std::vector<Index> eliminated;      ///< unknowns that are no free ones, ascending
    std::vector<Index> named;           ///< unknowns in conditions, ascending
    std::vector<Index> rowStart{0};     ///< row of Null of named[k], by number of free unknown and factor
    std::vector<Index> column;
    std::vector<Scalar> factor;
    std::vector<Scalar> particular;     ///< of named
    std::vector<ConditionPlace> redundant;

    /// How many eliminated unknowns have a lower number; found says whether this one is among them.
    Index eliminatedBelow(Index unknown, bool& found) const;
};

/// Together: the same reduction on all ranks, whatever their number. count: of unknowns.
Reduction reductionOf(const SessionState& session, const Conditions& mine, Index count, const UnknownsOptions& options);

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

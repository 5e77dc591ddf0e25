// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"

namespace qxeval {

/// Drops references from a destructor without recursion: the outermost call of a thread releases what the inner ones
/// hand over, so the depth of a graph takes heap and no stack.
void releaseLater(EvalNodePtr& node) noexcept;
void releaseLater(EvalNodes& nodes) noexcept;
void releaseLater(EvalTreePtr& tree) noexcept;

} // namespace qxeval

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstddef>

/// Machine stack that evaluation leaves untouched, so that a graph of any depth never ends the process.
namespace qxeval {

/// What is left for the rest of the work, of a stack of any size: the smaller of a fixed room and a share of the stack.
struct StackRoom
{
    std::size_t fixed;
    unsigned share; ///< one part in this many
};
/// With less than this no variable is entered.
constexpr StackRoom variableRoom{std::size_t(256) << 10, 4};
/// With less than this anything else that recurses refuses.
constexpr StackRoom minimalRoom{std::size_t(128) << 10, 8};

/// Less than the room is left on the calling thread's stack. False if the stack is not one of the system's (a fibre).
bool lacksStack(const StackRoom& room);

/// Raises "Expression_nested_too_deeply" with less than minimalRoom left.
void requireStack();

} // namespace qxeval

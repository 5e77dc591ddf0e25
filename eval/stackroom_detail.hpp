#pragma once

#include <cstddef>

/// Machine stack that evaluation leaves untouched, so that a graph of any depth never ends the process.
namespace qxeval {

/// Below this a graph of operations is evaluated with an explicit stack.
constexpr std::size_t deepEvalRoom = std::size_t(512) << 10;
/// Below this a variable counts as nested without end.
constexpr std::size_t variableRoom = std::size_t(256) << 10;
/// Below this anything else that recurses refuses.
constexpr std::size_t minimalRoom = std::size_t(128) << 10;

/// Bytes left on the calling thread's stack; a very large number if the stack is not one of the system's (a fibre).
std::size_t stackRoom();

/// Raises "Expression_nested_too_deeply" with less than minimalRoom bytes left.
void requireStack();

} // namespace qxeval

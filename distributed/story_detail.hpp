// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed.hpp"

#include "qxexception.hpp"

#include <exception>
#include <string>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {
namespace detail {

/// A failure as bytes that another rank can raise: entries, and whether it is a cancel. Exceptions that are not the
/// library's own become "Exception_on_rank" with "Reason", std::bad_alloc "Out_of_memory_on_rank".
std::string packed(const std::exception_ptr& failure) noexcept;

/// Raises what `packed` made, with a last entry "Failed_on_rank" with "Rank".
[[noreturn]] void raisePacked(const std::string& bytes, int rank);

/// For messages.
std::string storyOf(const std::exception_ptr& failure);

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

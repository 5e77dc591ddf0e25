// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>
#include <string>
#include <vector>

namespace qxbase {
class Exception;
}

/// Failures of the kernel as Python exceptions: qxkernel.Error with its whole stack, qxkernel.Cancelled for a cancelled
/// run, MemoryError for a failed allocation.
void bindFailures(pybind11::module_& module);

/// Raises qxkernel.Error(message, identifier, arguments, story) with one entry of this module's own. The GIL is held.
[[noreturn]] void raiseError(const std::string& identifier, const std::string& key, const std::string& value);

/// A qxkernel.Error for a failing point: the point that the story tells, or else `point`, counted `first` points further
/// and told as an index into arrays of the given shape.
pybind11::object errorAtPoint(const qxbase::Exception& story, std::size_t point, std::size_t first,
                              const std::vector<pybind11::ssize_t>& shape);
/// Raises one; a failure that has no point is raised as it is.
[[noreturn]] void raiseAtPoint(const qxbase::Exception& story, std::size_t first,
                               const std::vector<pybind11::ssize_t>& shape);

#pragma once

#include <pybind11/pybind11.h>

#include <string>

/// Failures of the kernel as Python exceptions: qxkernel.Error with its whole stack, qxkernel.Cancelled for a cancelled
/// run, MemoryError for a failed allocation.
void bindFailures(pybind11::module_& module);

/// Raises qxkernel.Error(message, identifier, arguments, story) with one entry of this module's own. The GIL is held.
[[noreturn]] void raiseError(const std::string& identifier, const std::string& key, const std::string& value);

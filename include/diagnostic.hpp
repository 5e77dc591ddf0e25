// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

namespace qxbase {

/// Writes text and a line end to the standard output stream and flushes it: the only direct output of the library.
QX_API void diagnosticLine(const char* text);

} // namespace qxbase

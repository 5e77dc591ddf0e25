// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

namespace qxkernel {

/// The version of the library that runs, as "0.1.0"; it may be another one than the headers came with. Lent for good.
QX_API const char* version();

} // namespace qxkernel

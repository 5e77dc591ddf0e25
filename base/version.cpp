// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxversion.hpp"

namespace qxkernel {

const char* version() { return QX_VERSION; }

} // namespace qxkernel

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <string>

namespace qx {

/// A letter or underscore, then letters, digits and underscores: what the reader of formulas takes for a name.
bool isName(const std::string& name);

} // namespace qx

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"

#include <string>
#include <vector>

namespace qx {

/// A letter or underscore, then letters, digits and underscores: what the reader of formulas takes for a name.
bool isName(const std::string& name);

/// The known name that a typing error makes of another one: the nearest in insertions, deletions, exchanges and swapped
/// neighbours, at most two of them and less than half the length; the first of equals. Empty if none is near.
std::string nearestName(const std::string& name, const std::vector<std::string>& known);

/// Raises an identifier with "Name", and "Nearest" if there is one.
[[noreturn]] void raiseUnknown(const char* id, const std::string& name, const std::vector<std::string>& known);

} // namespace qx

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <string>
#include <vector>

namespace qxbase {

/// The known name that a typing error makes of another one: the nearest in insertions, deletions, exchanges and swapped
/// neighbours, at most two of them and less than half the length; the first of equals. Empty if none is near.
std::string nearestName(const std::string& name, const std::vector<std::string>& known);

/// The arguments of a failure about a name that nobody knows: "Name", and "Nearest" if one of the known is near.
ExceptionArgs unknownName(const std::string& name, const std::vector<std::string>& known);

} // namespace qxbase

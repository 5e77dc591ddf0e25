// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstdio>
#include <string>

/// Files under the unit numbers that callers give them.
namespace printfile {

/// Opens for appending; a file that is open under this unit is closed before. False: it cannot be opened.
bool open(int unit, const std::string& name);
void close(int unit);
/// The open file, or null.
std::FILE* find(int unit);

} // namespace printfile

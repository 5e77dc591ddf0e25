// SPDX-License-Identifier: LicenseRef-qxkernel
#include "diagnostic.hpp"

#include <cstdio>

namespace qxbase {

void diagnosticLine(const char* text)
{
    std::fprintf(stdout, "%s\n", text);
    std::fflush(stdout);
}

} // namespace qxbase

// SPDX-License-Identifier: LicenseRef-qxkernel
// Any bytes as a table of comma-separated numbers: read or refused, and what is read has one length.

#include "support/csv.hpp"
#include "support/fileerror.hpp"

#include <cstdint>
#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
        const examples::Table table = examples::readCsv(in, "fuzz");
        if (table.columns.size() != table.names.size())
            std::abort();
        for (const auto& column : table.columns)
            if (column.size() != table.rows())
                std::abort();
    } catch (const examples::FileError&) {
    }
    return 0;
}

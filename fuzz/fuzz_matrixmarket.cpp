// SPDX-License-Identifier: LicenseRef-qxkernel
// Any bytes as a Matrix Market file: read or refused, and what is read survives writing and reading again.

#include "matrixmarket.hpp"
#include "qxexception.hpp"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    MatrixMarketOptions options;
    options.maxSize = options.maxEntries = 100000;
    options.expand = size % 2 == 0;
    try {
        std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
        const Sparse A = readMatrixMarket(stream, "fuzz", options);
        std::stringstream again;
        writeMatrixMarket(again, A);
        const Sparse B = readMatrixMarket(again, "again", options);
        if (A.getM() != B.getM() || A.getN() != B.getN())
            std::abort();
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "Internal_error_sparse")
            std::abort();
    }
    return 0;
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// The prefix reader on any bytes: a tree that prints and is made binary, or one of two errors.
#include "exprimpl.hpp"
#include "qxexception.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        ExprImpl e;
        e.scanInfix(std::string(reinterpret_cast<const char*>(data), size));
        e.toString();
        e.makeBinary();
        e.toString();
    } catch (const qxbase::Exception& raised) {
        if (raised.getId() != "Syntax_error_in_expression" && raised.getId() != "Internal_error_symbolic_processing")
            std::abort();
    }
    return 0;
}

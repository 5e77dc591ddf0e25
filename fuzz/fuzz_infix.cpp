// SPDX-License-Identifier: LicenseRef-qxkernel
// Infix text to prefix text: what the converter accepts the prefix reader reads, and the printed tree reads back.
#include "exprimpl.hpp"
#include "qxexception.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string prefix = qxInfixToPrefix(std::string(reinterpret_cast<const char*>(data), size));
    if (prefix.empty())
        return 0;
    try {
        ExprImpl e;
        e.scanInfix(prefix);
        e.makeBinary();
        e.toString();
    } catch (const qxbase::Exception& raised) {
        if (raised.getId() != "Syntax_error_in_expression") // a number that overflows
            std::abort();
    }
    return 0;
}

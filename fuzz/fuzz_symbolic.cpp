// SPDX-License-Identifier: LicenseRef-qxkernel
// Infix text through canonical form, derivative and print.
#include "exprimpl.hpp"
#include "qxexception.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 400) // the derivative of a product of n factors has n^2
        return 0;
    try {
        ExprTree tree;
        tree.scan(std::string(reinterpret_cast<const char*>(data), size));
        tree.simp(true);
        tree.diff("x");
        std::string text;
        tree.print(text);
        tree.makeBinary();
        tree.print(text);
    } catch (const qxbase::Exception&) {
    }
    return 0;
}

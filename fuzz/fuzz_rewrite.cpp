// SPDX-License-Identifier: LicenseRef-qxkernel
// Rewriting of trees in random order of operations, on copies that share nodes. One simp is enough, a copy does not see what
// happens to its source, and a failure leaves the text as it was.
#include "exprimpl.hpp"
#include "qxexception.hpp"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string printed(const ExprTree& tree)
{
    std::string text;
    tree.print(text);
    return text;
}

void check(bool holds)
{
    if (!holds)
        std::abort();
}

void apply(ExprTree& tree, unsigned operation)
{
    const auto var = [&](const char* name) { return tree.getStore()->getVar(name); };
    switch (operation % 8) {
    case 0: {
        tree.simp(false);
        const std::string once = printed(tree);
        tree.simp(false);
        check(printed(tree) == once);
        break;
    }
    case 1: tree.simp(true); break;
    case 2: tree.diff("x"); break;
    case 3: tree.makeBinary(); break;
    case 4: tree.replaceVars({{{var("x"), 0}, var("y")}}, "t"); break;
    case 5: tree.simp({"a", "y"}, {"* 2 x", "+ a 1"}); break;
    case 6: {
        ExprTree solution;
        tree.solveFor(var("x"), solution);
        break;
    }
    default: {
        ExprVarOccurrences set;
        tree.getVarOccurrences(set);
        break;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2 || size > 300)
        return 0;
    const std::size_t nOperations = std::size_t(1) + data[0] % 6;
    if (size <= nOperations + 1)
        return 0;
    ExprTree tree;
    try {
        tree.scan(std::string(reinterpret_cast<const char*>(data) + nOperations + 1, size - nOperations - 1));
    } catch (const qxbase::Exception&) {
        return 0;
    }
    for (std::size_t i = 1; i <= nOperations; ++i) {
        const ExprTree copy(tree);
        const std::string before = printed(tree);
        if (before.size() > 20000)
            return 0;
        try {
            apply(tree, data[i]);
        } catch (const qxbase::Exception&) {
            check(printed(tree) == before);
        }
        check(printed(copy) == before);
    }
    return 0;
}

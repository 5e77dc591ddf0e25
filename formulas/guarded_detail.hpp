// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <new>

namespace qx {

/// f(); when memory runs out, the identifier is raised.
template <class F>
decltype(auto) guarded(const F& f, const char* outOfMemory)
{
    try {
        return f();
    } catch (const std::bad_alloc&) {
        QX_RAISE("formulas", outOfMemory);
    }
}

inline constexpr const char* kNoMemoryToCompile = "Out_of_memory_compiling_formulas";
inline constexpr const char* kNoMemoryToEvaluate = "Out_of_memory_evaluating_formulas";

} // namespace qx

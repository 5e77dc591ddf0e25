// SPDX-License-Identifier: LicenseRef-qxkernel
#include "functions/kernels_detail.hpp"

#include <initializer_list>

namespace qxkernels {

namespace avx512 {
extern const KernelTable table;
}
namespace avx2 {
extern const KernelTable table;
}
namespace fma {
extern const KernelTable table;
}
namespace portable {
extern const KernelTable table;
}

const KernelTable* kernelsOf(Unit unit)
{
    switch (unit) {
    case Unit::Avx512: return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("fma") ? &avx512::table : nullptr;
    case Unit::Avx2:   return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? &avx2::table : nullptr;
    case Unit::Fma:    return __builtin_cpu_supports("fma") ? &fma::table : nullptr;
    case Unit::Portable: break;
    }
    return &portable::table;
}

const KernelTable& kernels()
{
    static const KernelTable& best = []() -> const KernelTable& {
        for (const Unit unit : {Unit::Avx512, Unit::Avx2, Unit::Fma})
            if (const KernelTable* table = kernelsOf(unit))
                return *table;
        return portable::table;
    }();
    return best;
}

} // namespace qxkernels

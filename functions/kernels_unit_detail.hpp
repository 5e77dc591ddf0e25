// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The table of all kernels for the unit that the including source is compiled for.

#include "functions/kernels_binary_detail.hpp"
#include "functions/kernels_trig_detail.hpp"

#define QX_TEXT_OF(x) #x
#define QX_TEXT(x) QX_TEXT_OF(x)

namespace qxkernels {
namespace QX_UNIT {

extern const KernelTable table;
const KernelTable table = {
    QX_TEXT(QX_UNIT), allFinite, realPartsLoop,
#define QX_ENTRY(name) {realLoop<name>, complexLoop<name, true>, complexLoop<name, false>, name::nanIsError},
    QX_UNARY_KERNELS(QX_ENTRY)
#undef QX_ENTRY
#define QX_ENTRY(name) binary<name>,
    QX_BINARY_KERNELS(QX_ENTRY)
#undef QX_ENTRY
#define QX_ENTRY(first, second) {binary<first>, binary<second>, pairLoop<first, second, true>, pairLoop<first, second, false>},
    {QX_PAIR_KERNELS(QX_ENTRY)}
#undef QX_ENTRY
};

} // namespace QX_UNIT
} // namespace qxkernels

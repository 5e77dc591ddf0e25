// SPDX-License-Identifier: LicenseRef-qxkernel
#define QX_UNIT avx2
#define QX_UNIT_LANES 4
#include "functions/kernels_unit_detail.hpp"

// SPDX-License-Identifier: LicenseRef-qxkernel
#define QX_UNIT avx512
#define QX_UNIT_LANES 8
#include "functions/kernels_unit_detail.hpp"

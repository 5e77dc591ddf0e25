// SPDX-License-Identifier: LicenseRef-qxkernel
#define QX_UNIT fma
#define QX_UNIT_LANES 1
#define QX_UNIT_FMA
#include "functions/kernels_unit_detail.hpp"

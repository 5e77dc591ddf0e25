// SPDX-License-Identifier: LicenseRef-qxkernel
#define QX_UNIT portable
#define QX_UNIT_LANES 1
#include "functions/kernels_unit_detail.hpp"

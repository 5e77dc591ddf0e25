// SPDX-License-Identifier: LicenseRef-qxkernel
#define QX_REAL_TABLE fmaFunctions
#define QX_REAL_FMA
#include "base/qxreal_unit_detail.hpp"

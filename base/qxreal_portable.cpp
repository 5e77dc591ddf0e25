// SPDX-License-Identifier: LicenseRef-qxkernel
#define QX_REAL_TABLE portableFunctions
#include "base/qxreal_unit_detail.hpp"

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "sparse.hpp"

namespace qxsolvers_detail {

/// The matrix that a store stands for, by columns, rows ascending. Shares the store if it is of that kind already, and
/// sorts it then.
Sparse expanded(const Sparse& A);

} // namespace qxsolvers_detail

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "sparse.hpp"

#include <pybind11/pybind11.h>

void bindSparse(pybind11::module_& module);

/// The matrix that a store stands for, by columns: Symmetric and Hermitian stores are expanded, row stores turned. Stores
/// by columns are shared.
Sparse expanded(const Sparse& A);

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <pybind11/pybind11.h>

void bindFormulas(pybind11::module_& module);

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/entrypoints_detail.hpp"

// A library in which all entry points but the first are missing.
void qxsninit(const int*, const int*, char*, const int*, int*, const int*, double*, const int*, HiddenLength) {}

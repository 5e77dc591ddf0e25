// SPDX-License-Identifier: LicenseRef-qxkernel
// A folder whose subsystem has no source file yet still has its object library and its row in the floor table.

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/// Which form of a matrix an operation applies: A, its transpose, its conjugate transpose. For real matrices the last
/// two are the same.
enum Trans_t { NoTrans = 0, Trans = 1, ConjTrans = 2 };

/// The matrix A that a sparse store S stands for: S itself, S + transpose(S), S + conjugate transpose(S), transpose(S).
enum Symm_t { Unsymmetric = 0, Symmetric = 1, Hermitian = 2, RowStored = 3 };

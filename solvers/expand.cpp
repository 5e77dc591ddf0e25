// SPDX-License-Identifier: LicenseRef-qxkernel
#include "solvers/expand_detail.hpp"

namespace qxsolvers_detail {

Sparse expanded(const Sparse& A)
{
    Sparse general = A.getSymm() == Symmetric   ? A + transpose(A, Trans)
                     : A.getSymm() == Hermitian ? A + transpose(A, ConjTrans)
                                                : convertToCol(A);
    general.format(FormSorted, true);
    return general;
}

} // namespace qxsolvers_detail

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "dense/qzretry_detail.hpp"

#include "qzmod.hpp"

#include <algorithm>
#include <cstddef>

namespace qxarray_detail {

namespace {

template <class Call>
void restore(const Call& call, const double* A, const double* B)
{
    const std::size_t size = static_cast<std::size_t>(call.n) * static_cast<std::size_t>(call.n);
    std::copy_n(A, size, call.a);
    std::copy_n(B, size, call.b);
}

} // namespace

int retryQZ(int info, const DggevCall& call, const double* A, const double* B)
{
    return retryQZ(info, [&](double shiftScale) {
        restore(call, A, B);
        int result;
        dggev_mod(call.jobvl, call.jobvr, &call.n, call.a, &call.n, call.b, &call.n, call.alphar, call.alphai, call.beta,
                  call.vl, &call.ldvl, call.vr, &call.ldvr, call.work, &call.lwork, &result, shiftScale);
        return result;
    });
}

int retryQZ(int info, const DggevxCall& call, const double* A, const double* B)
{
    const int one = 1;
    return retryQZ(info, [&](double shiftScale) {
        restore(call, A, B);
        int result;
        dggevx_mod("B", "N", "N", "E", &call.n, call.a, &call.n, call.b, &call.n, call.alphar, call.alphai, call.beta, nullptr,
                   &one, nullptr, &one, call.ilo, call.ihi, call.lscale, call.rscale, call.abnrm, call.bbnrm, call.rconde,
                   nullptr, call.work, &call.lwork, call.iwork, call.bwork, &result, shiftScale);
        return result;
    });
}

} // namespace qxarray_detail

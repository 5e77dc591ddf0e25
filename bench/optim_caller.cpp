// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/entrypoints_detail.hpp"

#include <vector>

// An optimizer that only calls back: a thousand evaluations of functions and derivatives at the start.

namespace {
constexpr int kCalls = 1000;
}

#define QX_NO_WORKSPACES char*, const int*, int*, const int*, double*, const int*

void qxsninit(const int*, const int*, QX_NO_WORKSPACES, HiddenLength) {}
void qxsnset(const char*, const int*, const int*, int*, QX_NO_WORKSPACES, HiddenLength, HiddenLength) {}
void qxsnseti(const char*, const int*, const int*, const int*, int*, QX_NO_WORKSPACES, HiddenLength, HiddenLength) {}
void qxsnsetr(const char*, const double*, const int*, const int*, int*, QX_NO_WORKSPACES, HiddenLength, HiddenLength) {}
void qxsnmema(int* info, const int*, const int*, const int*, const int*, const int*, const int*, int* mincw, int* miniw,
              int* minrw, QX_NO_WORKSPACES, HiddenLength)
{
    *info = 104;
    *mincw = *miniw = *minrw = 500;
}
void qxsnopta(const int*, const int* nF, const int* n, const int*, const int*, const double*, const int*, const char*,
              OptimUserFunction* usrfun, const int*, const int*, const int*, const int*, const double*, const int*,
              const int*, const int*, const int* neG, const double*, const double*, const char*, const double*,
              const double*, const char*, double* x, int*, double*, double* F, int*, double*, int* info, int*, int*, int*,
              int*, int*, double*, QX_USER_DATA, QX_NO_WORKSPACES, HiddenLength, HiddenLength, HiddenLength,
              HiddenLength cuLength, HiddenLength)
{
    std::vector<double> G(static_cast<std::size_t>(*neG));
    const int need = 1;
    for (int call = 0; call < kCalls; ++call) {
        int status = call == 0 ? 1 : 0;
        usrfun(&status, n, x, &need, nF, F, &need, neG, G.data(), cu, lencu, iu, leniu, ru, lenru, cuLength);
    }
    *info = 1;
}

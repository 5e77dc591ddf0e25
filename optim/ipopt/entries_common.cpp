// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/entrypoints_detail.hpp"
#include "optim/ipopt/options.hpp"
#include "optim/ipopt/printfile.hpp"

#include <string_view>

// The entry points that nonlinear and quadratic problems share: start, options, estimates of storage, print files.

namespace {

constexpr int kEstimated = 104;
constexpr int kLeastWords = 500;

void estimate(int* info, int* mincw, int* miniw, int* minrw)
{
    *info = kEstimated;
    *mincw = *miniw = *minrw = kLeastWords;
}

/// Writes the complaint about an unknown option to the print file and counts it.
void judge(bool known, std::string_view text, const int* unit, int* errors)
{
    if (known)
        return;
    ++*errors;
    if (std::FILE* file = printfile::find(*unit))
        std::fprintf(file, "unknown option: %.*s\n", static_cast<int>(text.size()), text.data());
}

} // namespace

#define QX_STORE OptionStore(cw, lencw, iw, leniw, rw, lenrw)

#define QX_SHARED_ENTRIES(sn)                                                                                           \
    void qx##sn##init(const int*, const int*, QX_WORKSPACES, HiddenLength)                                              \
    {                                                                                                                   \
        if (OptionStore store = QX_STORE; store.storageExit() == 0)                                                     \
            store.initialise();                                                                                         \
    }                                                                                                                   \
    void qx##sn##set(const char* buffer, const int* iPrint, const int*, int* errors, QX_WORKSPACES,                     \
                     HiddenLength length, HiddenLength)                                                                 \
    {                                                                                                                   \
        OptionStore store = QX_STORE;                                                                                   \
        judge(store.storageExit() == 0 && store.setLine({buffer, length}), {buffer, length}, iPrint, errors);           \
    }                                                                                                                   \
    void qx##sn##seti(const char* buffer, const int* value, const int* iPrint, const int*, int* errors, QX_WORKSPACES,  \
                      HiddenLength length, HiddenLength)                                                                \
    {                                                                                                                   \
        OptionStore store = QX_STORE;                                                                                   \
        judge(store.storageExit() == 0 && store.setInteger({buffer, length}, *value), {buffer, length}, iPrint,         \
              errors);                                                                                                  \
    }                                                                                                                   \
    void qx##sn##setr(const char* buffer, const double* value, const int* iPrint, const int*, int* errors,              \
                      QX_WORKSPACES, HiddenLength length, HiddenLength)                                                 \
    {                                                                                                                   \
        OptionStore store = QX_STORE;                                                                                   \
        judge(store.storageExit() == 0 && store.setReal({buffer, length}, *value), {buffer, length}, iPrint, errors);   \
    }
QX_SHARED_ENTRIES(sn)
QX_SHARED_ENTRIES(sq)

void qxsnmema(int* info, const int*, const int*, const int*, const int*, const int*, const int*, int* mincw, int* miniw,
              int* minrw, char*, const int*, int*, const int*, double*, const int*, HiddenLength)
{
    estimate(info, mincw, miniw, minrw);
}

void qxsqmem(int* info, const int*, const int*, const int*, const int*, const int*, int* mincw, int* miniw, int* minrw,
             char*, const int*, int*, const int*, double*, const int*, HiddenLength)
{
    estimate(info, mincw, miniw, minrw);
}

void qxsnopenappend(const int* unit, const char* name, int* inform, HiddenLength length)
{
    *inform = printfile::open(*unit, {name, length}) ? 0 : 1;
}

void qxsnclose(const int* unit) { printfile::close(*unit); }

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "optim/call_detail.hpp"
#include "optim/exits_detail.hpp"

#include <algorithm>
#include <string>

// What the two drivers share.
namespace qxoptim {

inline constexpr char kBlankName[] = "        "; ///< no name: eight blanks
inline constexpr int kMinorIterations = 420;       ///< where the optimizer leaves its counts in the integer workspace
inline constexpr int kMajorIterations = 421;

/// The print file is closed when a run is left, however that happens.
class PrintFileScope
{
public:
    explicit PrintFileScope(OptimState& state) : state_(state) {}
    ~PrintFileScope()
    {
        try {
            state_.closePrintFile();
        } catch (...) { // the destructor of the state tries again
        }
    }
    PrintFileScope(const PrintFileScope&) = delete;
    PrintFileScope& operator=(const PrintFileScope&) = delete;

private:
    OptimState& state_;
};

/// Lengthens the workspaces to what the optimizer estimates, and to its minimum. False: more than an int can say.
inline bool reserveEstimate(OptimState& state, int mincw, int miniw, int minrw)
{
    if (mincw > 0x7fffffff / 8)
        return false;
    state.reserve(8 * std::max(mincw, kLeastWords), std::max(miniw, kLeastWords), std::max(minrw, kLeastWords));
    return true;
}

/// The user data and workspaces of one call, by address.
struct CallArguments
{
    explicit CallArguments(OptimState& state)
        : lencw(state.getCwLength()), leniw(state.getIwLength()), lenrw(state.getRwLength())
    {
    }
    int lencw, leniw, lenrw;
    int one = 1;
    int iu = 0;
    double ru = 0.0;
    int mincw = 0, miniw = 0, minrw = 0;
    int nS = 0;
};

/// Elements for the optimizer, which takes no empty arrays.
template <class T>
Array<T, 1> atLeastOne(const Array<T, 1>& from)
{
    Array<T, 1> to(std::max(from.size(), 1UL));
    to = T(0);
    std::copy_n(from.data(), from.size(), to.data());
    return to;
}

} // namespace qxoptim

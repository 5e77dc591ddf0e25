// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optimstate.hpp"

#include <string>

namespace qxoptim {

/// What an exit code means to the caller: an ordinary end; a run that was stopped, raised unless the property "stop" is
/// off; a failure, always raised.
enum class ExitState { End = 0, Stopped = 1, Failed = 2 };

/// The verdict on an exit code of one driver. Unknown codes have an empty message.
struct Exit
{
    ExitState state;
    std::string message;
};
Exit judgeExit(int code, bool np);

/// Codes 80 to 84: the workspaces are too short.
inline bool isStorageExit(int code) { return code >= 80 && code <= 84; }

/// Calls the optimizer, which gives its exit code, up to five times; after each exit for want of storage but the last the
/// workspaces grow to int(1.5 length). Returns the last code.
template <class Call>
int withGrowingWorkspaces(OptimState& state, const Call& call)
{
    constexpr int attempts = 5;
    const auto longer = [](int length) { return static_cast<int>(static_cast<double>(length) * 1.5); };
    constexpr int longest = static_cast<int>(0x7fffffff / 1.5);
    for (int attempt = 0;; ++attempt) {
        const int code = call();
        const int cw = state.getCwBytes(), iw = state.getIwLength(), rw = state.getRwLength();
        if (!isStorageExit(code) || attempt == attempts - 1 || cw > longest || iw > longest || rw > longest)
            return code;
        state.reallocate(longer(cw), longer(iw), longer(rw));
    }
}

} // namespace qxoptim

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace examples {

/// A bar on the standard error stream for work that takes long.
///
/// Any thread may report. The bar is drawn at most ten times a second. On a terminal it is wiped at the end; elsewhere
/// it is drawn only when always is asked for, and its last state stays, on a line of its own.
class Progress
{
public:
    /// patience: time until the bar is drawn first; short work shows none.
    Progress(std::string title, long total, bool always = false,
             std::chrono::milliseconds patience = std::chrono::milliseconds(500));
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Further n of the total are done.
    void advance(long n);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace examples

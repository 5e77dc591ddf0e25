// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "stopwatch.hpp"

#include <string>

/// Where the time of an object's operations went, for those who tune it. No part in any result.
/// Threads: belongs to one thread at a time.
class XDevUtils
{
public:
    /// Runs work() and adds its time to the timer of that name; returns what work returns.
    template <class Work>
    decltype(auto) timed(const std::string& name, const Work& work)
    {
        struct Turn
        {
            StopwatchTimer& timer;
            explicit Turn(StopwatchTimer& t) : timer(t) { timer.tic(); }
            ~Turn() { timer.toc(); }
        } const turn(stopwatch_[name]);
        return work();
    }

    Stopwatch& getStopwatch() { return stopwatch_; }
    const Stopwatch& getStopwatch() const { return stopwatch_; }

private:
    Stopwatch stopwatch_;
};

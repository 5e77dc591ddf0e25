// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <chrono>
#include <map>
#include <string>

/// Elapsed wall time of one kind of work, summed over all its turns.
class StopwatchTimer
{
public:
    /// Starts a turn; a turn that runs already starts anew.
    void tic()
    {
        started_ = Clock::now();
        running_ = true;
    }

    /// Ends the turn and returns its length in seconds; 0 without tic.
    double toc()
    {
        if (!running_)
            return 0;
        running_ = false;
        const double seconds = std::chrono::duration<double>(Clock::now() - started_).count();
        total_ += seconds;
        ++turns_;
        return seconds;
    }

    /// Seconds over all ended turns, and their number.
    double getTotal() const { return total_; }
    long getTurns() const { return turns_; }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point started_;
    double total_ = 0;
    long turns_ = 0;
    bool running_ = false;
};

/// Timers by name, made at first use; references to them stay good. Threads: belongs to one thread.
class Stopwatch
{
public:
    StopwatchTimer& operator[](const std::string& name) { return timers_[name]; }
    const std::map<std::string, StopwatchTimer>& getTimers() const { return timers_; }

private:
    std::map<std::string, StopwatchTimer> timers_;
};

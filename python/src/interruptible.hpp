// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxrun.hpp"

#include <pybind11/pybind11.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>

/// A wish to stop that any thread may utter: handed to long calls as their argument `cancel`.
class CancelToken
{
public:
    void cancel() { wanted_.store(true, std::memory_order_relaxed); }
    void clear() { wanted_.store(false, std::memory_order_relaxed); }
    bool isCancelled() const { return wanted_.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> wanted_{false};
};

/// What a caller may hand to every long call: a function of (title, fraction) or None, and a CancelToken or None.
struct RunOptions
{
    pybind11::object progress = pybind11::none();
    std::shared_ptr<CancelToken> cancel;
};

/// The kernel's view of a call: its cancel flag, and a listener that calls the user's progress function.
///
/// An object of the kernel that keeps the RunInfo it was made with needs a Run that lives as long.
class Run : private qxutil::RunListener
{
public:
    Run() : info_(this) {}

    /// Runs work on a thread of its own, without the GIL, while the calling thread, which holds it at entry and at
    /// return, looks every 50 ms at Python's signals and at the token. Either raises the cancel flag, and the call ends
    /// when work has answered: with KeyboardInterrupt (or what the signal's handler raised) or qxkernel.Cancelled.
    ///
    /// Failures of work come out unchanged; those of the progress function cancel the run and win. Signals are seen on
    /// the main thread only, as Python has it.
    /// Cost: one thread, some 20 microseconds; for work that may take long.
    void execute(const RunOptions& options, const std::function<void(qxutil::RunInfo&)>& work);

    qxutil::RunInfo& info() { return info_; }

private:
    void onProgress(const std::string& title, double fraction) override;

    qxutil::RunInfo info_;
    const pybind11::object* progress_ = nullptr; // the caller's, during execute
    std::exception_ptr failure_;
};

/// One call of Run::execute.
void runInterruptible(const RunOptions& options, const std::function<void(qxutil::RunInfo&)>& work);

void bindInterruptible(pybind11::module_& module);

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxrun.hpp"

namespace qxeval {

/// Evaluations of this thread belong to a run for a scope: they look at its flag between variables, operations and blocks.
/// Without a run of its own a scope keeps the outer one's.
class RunScope
{
public:
    explicit RunScope(const qxutil::RunInfo* run) : outer_(current_)
    {
        if (run != nullptr)
            current_ = run;
    }
    ~RunScope() { current_ = outer_; }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;

    /// Raises qxbase::CancelException when the run of this thread is cancelled.
    static void throwIfCancelled()
    {
        if (current_ != nullptr) [[unlikely]]
            current_->throwIfCancelled("eval", __LINE__);
    }

private:
    const qxutil::RunInfo* const outer_;
    __attribute__((tls_model("initial-exec"))) inline static thread_local constinit const qxutil::RunInfo* current_ = nullptr;
};

} // namespace qxeval

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "stopwatch.hpp"

namespace qxcompiler {

/// A turn of a timer as long as this scope.
class Timed
{
public:
    explicit Timed(StopwatchTimer& timer) : timer_(timer) { timer_.tic(); }
    ~Timed() { timer_.toc(); }
    Timed(const Timed&) = delete;
    Timed& operator=(const Timed&) = delete;

private:
    StopwatchTimer& timer_;
};

} // namespace qxcompiler

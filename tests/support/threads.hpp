// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxparallel.hpp"

namespace qxtest {

/// The library uses this many threads for a scope.
class Threads
{
public:
    explicit Threads(int count) : before_(qxbase::setAvailableThreads(count)) {}
    ~Threads() { qxbase::setAvailableThreads(before_); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

private:
    int before_;
};

} // namespace qxtest

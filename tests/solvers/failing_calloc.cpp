// SPDX-License-Identifier: LicenseRef-qxkernel
#include "failing_calloc.hpp"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<bool> failing{false};

} // namespace

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return failing ? nullptr : __real_calloc(count, size);
}
}

namespace solverstest {

void failCalloc(bool wanted)
{
    failing = wanted;
}

} // namespace solverstest

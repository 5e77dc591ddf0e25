// SPDX-License-Identifier: LicenseRef-qxkernel
#include "stackroom_detail.hpp"

#include "qxexception.hpp"

#include <algorithm>
#include <pthread.h>

namespace qxeval {

namespace {

/// Bounds of the thread's stack; equal when they are not known.
struct StackBounds
{
    const char* low;
    const char* high;
};

// In static storage of the thread: read on every evaluation of an operation, so without a call.
__attribute__((tls_model("initial-exec"))) thread_local StackBounds bounds = {nullptr, nullptr};

__attribute__((noinline)) void findBounds()
{
    pthread_attr_t attributes;
    void* low = nullptr;
    std::size_t size = 0, guard = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getstack(&attributes, &low, &size);
        pthread_attr_getguardsize(&attributes, &guard);
        pthread_attr_destroy(&attributes);
    }
    const char* const first = static_cast<const char*>(low);
    bounds = {first + guard, first + size};
    if (bounds.high == nullptr)
        bounds = {reinterpret_cast<const char*>(1), reinterpret_cast<const char*>(1)};
}

} // namespace

bool lacksStack(const StackRoom& room)
{
    const char* const here = static_cast<const char*>(__builtin_frame_address(0));
    if (bounds.high == nullptr)
        findBounds();
    if (here <= bounds.low || here >= bounds.high)
        return false;
    const auto size = static_cast<std::size_t>(bounds.high - bounds.low);
    return static_cast<std::size_t>(here - bounds.low) < std::min(room.fixed, size / room.share);
}

void requireStack()
{
    if (lacksStack(minimalRoom))
        QX_RAISE("evalnodes", "Expression_nested_too_deeply");
}

} // namespace qxeval

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstddef>
#include <exception>
#include <stdexcept>

#include <pthread.h>

/// Runs work on a thread whose stack has a known size: what a Java thread gives, or plenty.
namespace qxtest {

constexpr std::size_t javaStack = std::size_t(1) << 20;   ///< 1 MB, the default of a Java thread
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QX_TEST_LARGE_FRAMES
#endif
#endif
#ifdef QX_TEST_LARGE_FRAMES // sanitized frames are several times as large
constexpr std::size_t smallestStack = javaStack;
#else
constexpr std::size_t smallestStack = std::size_t(128) << 10; ///< what some hosts give their threads
#endif
constexpr std::size_t largeStack = std::size_t(64) << 20; ///< 64 MB

/// Calls work() on a fresh thread with a stack of bytes and waits for it; what it throws comes out here.
template <class Work>
void runOnStack(std::size_t bytes, Work&& work)
{
    struct Job
    {
        Work& work;
        std::exception_ptr failure;
    } job{work, nullptr};
    const auto entry = [](void* argument) -> void* {
        Job& j = *static_cast<Job*>(argument);
        try {
            j.work();
        } catch (...) {
            j.failure = std::current_exception();
        }
        return nullptr;
    };

    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, bytes);
    const int status = pthread_create(&thread, &attributes, entry, &job);
    pthread_attr_destroy(&attributes);
    if (status != 0)
        throw std::runtime_error("no thread with the wanted stack");
    pthread_join(thread, nullptr);
    if (job.failure)
        std::rethrow_exception(job.failure);
}

} // namespace qxtest

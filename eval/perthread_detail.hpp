// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstdint>
#include <new>

namespace qxeval {

/// One T for each thread, made at its first use and ended with the thread, for one pointer of static thread storage.
template <class T>
class PerThread
{
public:
    /// The calling thread's object. Null once it has ended (an evaluation from a static destructor) or without memory for
    /// it: the caller then does with an object of its own.
    static T* get()
    {
        T* const there = object_;
        return isAlive(there) ? there : make();
    }

private:
    static bool isAlive(const T* p) { return reinterpret_cast<std::uintptr_t>(p) > ended; }

    __attribute__((noinline)) static T* make()
    {
        struct End
        {
            ~End()
            {
                T* const last = object_;
                object_ = reinterpret_cast<T*>(ended);
                if (isAlive(last))
                    delete last;
            }
        };
        if (reinterpret_cast<std::uintptr_t>(object_) == ended)
            return nullptr;
        T* const made = new (std::nothrow) T();
        if (made == nullptr)
            return nullptr;
        static thread_local const End end;
        (void)end;
        return object_ = made;
    }

    static constexpr std::uintptr_t ended = 1;
    __attribute__((tls_model("initial-exec"))) inline static thread_local constinit T* object_ = nullptr;
};

} // namespace qxeval

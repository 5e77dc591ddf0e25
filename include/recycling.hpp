// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Storage that ended values leave behind is used again by the next ones, so that an evaluation with unchanged shapes
// calls no allocator.

#include <cstddef>
#include <cstdint>
#include <new>

namespace qxeval {

/// Free blocks of one thread, by size class. A block that ends on another thread than it began on joins that thread's
/// list. At most kKept blocks of a class wait; the others go back to operator new's heap.
class RecycledBlocks
{
public:
    static constexpr std::size_t kStep = 32, kLargest = 512, kKept = 256;

    static void* take(std::size_t bytes)
    {
        const std::size_t c = classOf(bytes);
        if (c >= kClasses)
            return ::operator new(bytes);
        Lists* const mine = ofThread();
        Block* const b = isInUse(mine) ? mine->free[c] : nullptr;
        if (b == nullptr)
            return ::operator new((c + 1) * kStep);
        mine->free[c] = b->next;
        --mine->count[c];
        return b;
    }

    static void give(void* p, std::size_t bytes) noexcept
    {
        const std::size_t c = classOf(bytes);
        if (c < kClasses && (isInUse(ofThread()) || begin())) {
            Lists& mine = *ofThread();
            if (mine.count[c] < kKept) {
                mine.free[c] = new (p) Block{mine.free[c]};
                ++mine.count[c];
                return;
            }
        }
        ::operator delete(p);
    }

private:
    struct Block
    {
        Block* next;
    };
    static constexpr std::size_t kClasses = kLargest / kStep;
    struct Lists
    {
        Block* free[kClasses] = {};
        std::size_t count[kClasses] = {};
    };
    static constexpr std::uintptr_t kEnded = 1; // values with static storage may end after their thread's lists

    static std::size_t classOf(std::size_t bytes) { return (bytes - 1) / kStep; }
    static bool isInUse(const Lists* lists) { return reinterpret_cast<std::uintptr_t>(lists) > kEnded; }

    /// The lists of this thread: null at first, kEnded at last. One pointer of static thread storage.
    static Lists*& ofThread()
    {
#ifdef QX_BUILDING_LIBRARY
        __attribute__((tls_model("initial-exec")))
#endif
        static thread_local constinit Lists* lists = nullptr;
        return lists;
    }

    /// Makes the lists of this thread and sees to their end. False when they have ended, or without memory for them.
    __attribute__((noinline)) static bool begin() noexcept
    {
        struct End
        {
            ~End()
            {
                Lists* const mine = ofThread();
                ofThread() = reinterpret_cast<Lists*>(kEnded);
                for (Block*& head : mine->free)
                    while (Block* b = head) {
                        head = b->next;
                        ::operator delete(b);
                    }
                delete mine;
            }
        };
        if (ofThread() != nullptr)
            return false;
        ofThread() = new (std::nothrow) Lists;
        if (ofThread() == nullptr)
            return false;
        static thread_local const End end;
        (void)end;
        return true;
    }
};

/// Allocator of the standard form over RecycledBlocks.
template <class T>
struct Recycling
{
    using value_type = T;
    Recycling() = default;
    template <class U>
    Recycling(const Recycling<U>&) noexcept
    {
    }
    T* allocate(std::size_t n)
    {
        if (n > std::size_t(-1) / 2 / sizeof(T))
            throw std::bad_array_new_length();
        return static_cast<T*>(RecycledBlocks::take(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t n) noexcept { RecycledBlocks::give(p, n * sizeof(T)); }
    friend bool operator==(const Recycling&, const Recycling&) { return true; }
};

} // namespace qxeval

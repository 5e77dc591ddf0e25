#pragma once

// Storage that ended values leave behind is used again by the next ones, so that an evaluation with unchanged shapes
// calls no allocator.

#include <array>
#include <cstddef>
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
        if (c < kClasses) {
            RecycledBlocks& mine = ofThread();
            if (Block* b = mine.free_[c]) {
                mine.free_[c] = b->next;
                --mine.count_[c];
                return b;
            }
            return ::operator new((c + 1) * kStep);
        }
        return ::operator new(bytes);
    }

    static void give(void* p, std::size_t bytes) noexcept
    {
        const std::size_t c = classOf(bytes);
        if (c < kClasses) {
            RecycledBlocks& mine = ofThread();
            if (mine.count_[c] < kKept && !mine.ended_) {
                mine.free_[c] = new (p) Block{mine.free_[c]};
                ++mine.count_[c];
                return;
            }
        }
        ::operator delete(p);
    }

    ~RecycledBlocks()
    {
        ended_ = true; // values with static storage may end after this thread's list
        for (Block*& head : free_)
            while (Block* b = head) {
                head = b->next;
                ::operator delete(b);
            }
    }

private:
    struct Block
    {
        Block* next;
    };
    static constexpr std::size_t kClasses = kLargest / kStep;
    static std::size_t classOf(std::size_t bytes) { return (bytes - 1) / kStep; }
    static RecycledBlocks& ofThread()
    {
        static thread_local RecycledBlocks blocks;
        return blocks;
    }

    std::array<Block*, kClasses> free_{};
    std::array<std::size_t, kClasses> count_{};
    bool ended_ = false;
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

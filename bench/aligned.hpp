// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace qxbench {

/// Memory that begins at a cache line, as the arrays of the library do: what vector loops are compared on.
template <class T>
struct LineAllocator
{
    using value_type = T;
    static constexpr std::align_val_t line{64};

    LineAllocator() = default;
    template <class U>
    LineAllocator(const LineAllocator<U>&)
    {
    }
    T* allocate(std::size_t n) { return static_cast<T*>(::operator new(n * sizeof(T), line)); }
    void deallocate(T* p, std::size_t) { ::operator delete(p, line); }
    bool operator==(const LineAllocator&) const { return true; }
};
template <class T>
using AlignedVector = std::vector<T, LineAllocator<T>>;

} // namespace qxbench

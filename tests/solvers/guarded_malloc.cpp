// SPDX-License-Identifier: LicenseRef-qxkernel
// The C allocations of the library, UMFPACK's among them, end at unmapped pages while a GuardPages lives.

#include "support/guard_pages.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void __wrap_free(void* block);

void* __wrap_malloc(std::size_t size)
{
    void* const guarded = qxtest::takeGuarded(size);
    return guarded ? guarded : __real_malloc(size);
}

void __wrap_free(void* block)
{
    if (qxtest::isGuarded(block))
        qxtest::giveGuarded(block);
    else
        __real_free(block);
}

void* __wrap_realloc(void* block, std::size_t size)
{
    if (!qxtest::isGuarded(block))
        return __real_realloc(block, size);
    void* const moved = __wrap_malloc(size);
    if (moved) {
        std::memcpy(moved, block, std::min(size, qxtest::guardedSize(block)));
        qxtest::giveGuarded(block);
    }
    return moved;
}
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstddef>

/// Memory that ends at a page nobody may touch: reading one element too many ends the program instead of going unseen.
namespace qxtest {

/// While one of these lives, every block of operator new, of any thread, ends within 16 bytes of an unmapped page. Blocks
/// are aligned to 16 bytes, whatever was asked for, and their addresses are not used again.
class GuardPages
{
public:
    GuardPages();
    ~GuardPages();
    GuardPages(const GuardPages&) = delete;
    GuardPages& operator=(const GuardPages&) = delete;
    /// Blocks given out so far in this process.
    static long blocks();
};

/// For those who replace allocation functions: a block while a GuardPages lives, else null.
void* takeGuarded(std::size_t size);
bool isGuarded(const void* block);
void giveGuarded(void* block);
/// Bytes of a guarded block, at most 15 more than were asked for.
std::size_t guardedSize(const void* block);

} // namespace qxtest

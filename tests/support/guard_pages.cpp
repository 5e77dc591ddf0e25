// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/guard_pages.hpp"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <sys/mman.h>

namespace {

// One range of addresses without memory; blocks take pages from it in order, with one page between them.
constexpr std::size_t page = 4096, rangeSize = std::size_t(1) << 36;
std::atomic<int> users{0};
std::atomic<long> given{0};
std::atomic<char*> range{nullptr};
std::size_t used = 0;
std::mutex mutex;

std::size_t pagesOf(std::size_t size) { return (size + page - 1) / page * page; }

} // namespace

namespace qxtest {

GuardPages::GuardPages()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (!range) {
        void* const memory = mmap(nullptr, rangeSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED)
            std::abort();
        range = static_cast<char*>(memory);
    }
    ++users;
}

GuardPages::~GuardPages() { --users; }

long GuardPages::blocks() { return given; }

void* takeGuarded(std::size_t size)
{
    if (users == 0)
        return nullptr;
    size = (size + 15) / 16 * 16;
    const std::lock_guard<std::mutex> lock(mutex);
    const std::size_t pages = pagesOf(size + 16); // the size stands in front
    if (used + pages + page > rangeSize)
        std::abort();
    char* const begin = range + used;
    if (mprotect(begin, pages, PROT_READ | PROT_WRITE) != 0)
        std::abort();
    used += pages + page;
    ++given;
    char* const block = begin + pages - size;
    reinterpret_cast<std::size_t*>(block)[-1] = size;
    return block;
}

bool isGuarded(const void* block)
{
    const char* const begin = range;
    return begin && block >= begin && block < begin + rangeSize;
}

std::size_t guardedSize(const void* block) { return static_cast<const std::size_t*>(block)[-1]; }

void giveGuarded(void* block)
{
    const std::size_t size = guardedSize(block), pages = pagesOf(size + 16);
    char* const begin = static_cast<char*>(block) + size - pages;
    madvise(begin, pages, MADV_DONTNEED);
    mprotect(begin, pages, PROT_NONE);
}

} // namespace qxtest

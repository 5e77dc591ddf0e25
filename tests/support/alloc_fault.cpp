// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/alloc_fault.hpp"
#include "support/guard_pages.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <optional>

namespace {

std::atomic<long> allocations{0};
std::atomic<long> live{0};
std::atomic<long> remaining{0}; // allocations until the fault; 0: none planned
std::atomic<bool> sticky{false};
std::atomic<bool> failed{false};

#if defined(__has_feature)
#define QX_HAS_FEATURE(f) __has_feature(f)
#else
#define QX_HAS_FEATURE(f) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || QX_HAS_FEATURE(address_sanitizer) || \
    QX_HAS_FEATURE(thread_sanitizer)
constexpr bool countsMalloc = false;
#else
#define QX_COUNTS_MALLOC
constexpr bool countsMalloc = true;
#endif

void count() { allocations.fetch_add(1, std::memory_order_relaxed); }

std::atomic<const char*> codeFrom{nullptr}, codeTo{nullptr}; // whose allocations may fail; null: everybody's

bool isDue(const void* caller)
{
    if (const char* const from = codeFrom.load(std::memory_order_relaxed))
        if (caller < static_cast<const void*>(from) || caller >= static_cast<const void*>(codeTo.load()))
            return false;
    if (remaining.load(std::memory_order_relaxed) <= 0)
        return sticky.load(std::memory_order_relaxed) && failed.load(std::memory_order_relaxed);
    if (remaining.fetch_sub(1) != 1)
        return false;
    failed = true;
    return true;
}

void* take(std::size_t size, std::size_t alignment, const void* caller)
{
    const bool fails = isDue(caller);
    void* block = fails ? nullptr : qxtest::takeGuarded(std::max<std::size_t>(size, 1));
    if (fails || block || !countsMalloc)
        count();
    if (fails)
        return nullptr;
    if (size == 0)
        size = 1;
    if (!block)
        block = alignment > alignof(std::max_align_t)
                      ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                      : std::malloc(size);
    if (block)
        live.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void* takeOrThrow(std::size_t size, std::size_t alignment, const void* caller)
{
    if (void* block = take(size, alignment, caller))
        return block;
    throw std::bad_alloc();
}

void give(void* block) noexcept
{
    if (!block)
        return;
    live.fetch_sub(1, std::memory_order_relaxed);
    if (qxtest::isGuarded(block))
        qxtest::giveGuarded(block);
    else
        std::free(block);
}

} // namespace

#ifdef QX_COUNTS_MALLOC
// The C library's own names for what the program replaces here; its free knows these blocks.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

void* malloc(std::size_t n) noexcept { return count(), __libc_malloc(n); }
void* calloc(std::size_t n, std::size_t size) noexcept { return count(), __libc_calloc(n, size); }
void* realloc(void* p, std::size_t n) noexcept { return count(), __libc_realloc(p, n); }
void* memalign(std::size_t a, std::size_t n) noexcept { return count(), __libc_memalign(a, n); }
void* aligned_alloc(std::size_t a, std::size_t n) noexcept { return count(), __libc_memalign(a, n); }
int posix_memalign(void** out, std::size_t a, std::size_t n) noexcept
{
    void* const block = memalign(a, n);
    return block ? (*out = block, 0) : ENOMEM;
}
}
#endif

// The sanitizers' malloc ends the process at impossible sizes unless told to fail as the system's does.
extern "C" const char* __asan_default_options();
extern "C" const char* __tsan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1 ignore_noninstrumented_modules=1";
}

#define QX_CALLER __builtin_return_address(0)
void* operator new(std::size_t n) { return takeOrThrow(n, 0, QX_CALLER); }
void* operator new[](std::size_t n) { return takeOrThrow(n, 0, QX_CALLER); }
void* operator new(std::size_t n, std::align_val_t a) { return takeOrThrow(n, std::size_t(a), QX_CALLER); }
void* operator new[](std::size_t n, std::align_val_t a) { return takeOrThrow(n, std::size_t(a), QX_CALLER); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return take(n, 0, QX_CALLER); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return take(n, 0, QX_CALLER); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return take(n, std::size_t(a), QX_CALLER); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return take(n, std::size_t(a), QX_CALLER); }
void operator delete(void* p) noexcept { give(p); }
void operator delete[](void* p) noexcept { give(p); }
void operator delete(void* p, std::size_t) noexcept { give(p); }
void operator delete[](void* p, std::size_t) noexcept { give(p); }
void operator delete(void* p, std::align_val_t) noexcept { give(p); }
void operator delete[](void* p, std::align_val_t) noexcept { give(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { give(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { give(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { give(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { give(p); }

namespace qxtest {

void failOnlyIn(const void* from, const void* to)
{
    codeTo = static_cast<const char*>(to);
    codeFrom = static_cast<const char*>(from);
}

long allocationCount() { return allocations.load(); }
long liveAllocations() { return live.load(); }

AllocFault::AllocFault(long n, bool andAllLater)
{
    failed = false;
    sticky = andAllLater;
    remaining = n;
}

AllocFault::~AllocFault()
{
    remaining = 0;
    sticky = false;
}

bool AllocFault::happened() const { return failed.load(); }

long failEveryAllocation(const std::function<void()>& act, const std::function<void(const FaultRun&)>& check)
{
    for (long n = 1;; ++n) {
        FaultRun run{n, false, false, {}, 0};
        run.id.reserve(256); // so that keeping the identifier does not count as a leak
        const long before = liveAllocations();
        {
            std::optional<AllocFault> fault(std::in_place, n);
            const auto end = [&] { // before anything of this function's own allocates: a copy of an identifier, say
                run.faulted = fault->happened();
                fault.reset();
            };
            try {
                act();
                end();
            } catch (const std::bad_alloc&) {
                end();
                run.badAlloc = true;
            } catch (const qxbase::Exception& e) {
                end();
                run.id.append(e.getId());
            }
        }
        run.leaked = liveAllocations() - before;
        check(run);
        if (!run.faulted)
            return n - 1;
    }
}

} // namespace qxtest

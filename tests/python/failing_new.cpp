// SPDX-License-Identifier: LicenseRef-qxkernel
// Loaded before everything else: operator new fails once when it is told to, for the code of one library. The binder is no
// such library: it ends the process when it has no memory to note a new object.

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <new>

namespace {

std::atomic<long> remaining{0}; // allocations until the failure; 0: none planned
std::atomic<bool> failed{false};

/// The addresses of the library's code.
struct Code
{
    const char* name;
    const char *from = nullptr, *to = nullptr;
};
Code code{nullptr};

int noteCode(dl_phdr_info* info, std::size_t, void* data)
{
    Code& wanted = *static_cast<Code*>(data);
    if (std::strstr(info->dlpi_name, wanted.name) == nullptr)
        return 0;
    for (int k = 0; k < info->dlpi_phnum; ++k)
        if (const ElfW(Phdr)& part = info->dlpi_phdr[k]; part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            wanted.from = reinterpret_cast<const char*>(info->dlpi_addr + part.p_vaddr);
            wanted.to = wanted.from + part.p_memsz;
        }
    return 1;
}

void* take(std::size_t size, std::size_t alignment, const void* caller) noexcept
{
    if (caller >= code.from && caller < code.to && remaining.load(std::memory_order_relaxed) > 0 && remaining.fetch_sub(1) == 1) {
        failed = true;
        return nullptr;
    }
    size = size == 0 ? 1 : size;
    return alignment == 0 ? std::malloc(size) : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* takeOrThrow(std::size_t size, std::size_t alignment, const void* caller)
{
    if (void* const block = take(size, alignment, caller))
        return block;
    throw std::bad_alloc();
}

} // namespace

extern "C" {
/// Whose allocations may fail: the loaded library with this in its name. 0 if there is none.
__attribute__((visibility("default"))) int failing_new_only_in(const char* library)
{
    code = {library};
    dl_iterate_phdr(&noteCode, &code);
    return code.from != nullptr ? 1 : 0;
}
__attribute__((visibility("default"))) void failing_new_at(long n)
{
    failed = false;
    remaining = n;
}
/// Whether it failed; plans no failure any more.
__attribute__((visibility("default"))) int failing_new_happened()
{
    remaining = 0;
    return failed.load() ? 1 : 0;
}
}

#define QX_CALLER __builtin_return_address(0)
// clang-format off
void* operator new(std::size_t n) { return takeOrThrow(n, 0, QX_CALLER); }
void* operator new[](std::size_t n) { return takeOrThrow(n, 0, QX_CALLER); }
void* operator new(std::size_t n, std::align_val_t a) { return takeOrThrow(n, std::size_t(a), QX_CALLER); }
void* operator new[](std::size_t n, std::align_val_t a) { return takeOrThrow(n, std::size_t(a), QX_CALLER); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return take(n, 0, QX_CALLER); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return take(n, 0, QX_CALLER); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return take(n, std::size_t(a), QX_CALLER); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return take(n, std::size_t(a), QX_CALLER); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
// clang-format on

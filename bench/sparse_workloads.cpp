// SPDX-License-Identifier: LicenseRef-qxkernel
#include "sparse_workloads.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <malloc.h>
#include <sys/mman.h>

namespace qxbench {

namespace {

/// A line of /proc/self/status in bytes.
double memory(const char* key)
{
    double kilobytes = 0.0;
    if (std::FILE* file = std::fopen("/proc/self/status", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, file))
            if (std::strncmp(line, key, std::strlen(key)) == 0)
                std::sscanf(line + std::strlen(key) + 1, "%lf", &kilobytes);
        std::fclose(file);
    }
    return 1024.0 * kilobytes;
}

} // namespace

void introducePeers()
{
    uses("Eigen", std::to_string(EIGEN_WORLD_VERSION) + "." + std::to_string(EIGEN_MAJOR_VERSION) + "." +
                      std::to_string(EIGEN_MINOR_VERSION));
    uses("CXSparse", std::to_string(CS_VER) + "." + std::to_string(CS_SUBVER) + "." + std::to_string(CS_SUBSUB));
    Eigen::setNbThreads(1);
}

WarmMemory::WarmMemory(std::size_t bytes)
{
    mallopt(M_MMAP_MAX, 0); // everything from the heap
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_TOP_PAD, 1 << 30);
    if (void* block = std::malloc(bytes)) {
        const auto page = reinterpret_cast<std::uintptr_t>(block) & ~std::uintptr_t{4095};
        madvise(reinterpret_cast<void*>(page), bytes, MADV_HUGEPAGE);
        std::memset(block, 1, bytes);
        keep(block);
        std::free(block);
    }
}

WarmMemory::~WarmMemory()
{
    mallopt(M_MMAP_MAX, 65536);
    mallopt(M_TOP_PAD, 128 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
    malloc_trim(0);
}

double peakMemory(const std::function<void()>& work)
{
    malloc_trim(0);
    if (std::FILE* file = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", file); // the high-water mark starts again
        std::fclose(file);
    }
    const double before = memory("VmRSS");
    work();
    return memory("VmHWM") - before;
}

void reportPeak(const char* name, double resultBytes, const std::function<void()>& work)
{
    const double peak = peakMemory(work);
    std::printf("peak memory  %-34s %7.0f MB above the operands, result %7.0f MB, ratio %.2f\n", name, peak / 1e6,
                resultBytes / 1e6, peak / resultBytes);
}

} // namespace qxbench

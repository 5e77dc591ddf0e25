// SPDX-License-Identifier: LicenseRef-qxkernel
#include "sparse_workloads.hpp"

#include <cstdio>
#include <cstring>
#include <functional>
#include <malloc.h>

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

void reportPeak(const char* name, double resultBytes, const std::function<void()>& work)
{
    malloc_trim(0);
    if (std::FILE* file = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", file); // the high-water mark starts again
        std::fclose(file);
    }
    const double before = memory("VmRSS");
    work();
    const double peak = memory("VmHWM") - before;
    std::printf("peak memory  %-34s %7.0f MB above the operands, result %7.0f MB, ratio %.2f\n", name, peak / 1e6,
                resultBytes / 1e6, peak / resultBytes);
}

} // namespace qxbench

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "measure.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <map>

namespace qxbench {
namespace {

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double timeOf(const Work& work, long calls)
{
    const double start = seconds();
    for (long i = 0; i < calls; ++i)
        work();
    return (seconds() - start) / static_cast<double>(calls);
}

double median(std::vector<double>& v)
{
    const auto middle = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), middle, v.end());
    if (v.size() % 2 == 1)
        return *middle;
    return 0.5 * (*middle + *std::max_element(v.begin(), middle));
}

// Sixteen independent sums: enough for the adders of any vector unit to keep up with memory.
__attribute__((target_clones("default", "avx2", "avx512f"))) double sumOf(const double* __restrict x, std::size_t n)
{
    double s[16] = {};
    for (std::size_t i = 0; i + 16 <= n; i += 16)
        for (int k = 0; k < 16; ++k)
            s[k] += x[i + static_cast<std::size_t>(k)];
    double total = 0.0;
    for (double v : s)
        total += v;
    return total;
}

double measureBandwidth(int threads)
{
    const std::size_t perThread = (std::size_t{1} << 25) / static_cast<std::size_t>(threads); // 256 MB together
    std::vector<std::vector<double>> blocks(static_cast<std::size_t>(threads));
    double best = 0.0;
    for (int pass = 0; pass < 6; ++pass) {
        const double start = seconds();
#pragma omp parallel for num_threads(threads) schedule(static, 1)
        for (int t = 0; t < threads; ++t) {
            auto& block = blocks[static_cast<std::size_t>(t)];
            if (pass == 0)
                block.assign(perThread, 1.0); // touched by the thread that will read it
            keep(sumOf(block.data(), block.size()));
        }
        const double bytes = 8.0 * static_cast<double>(perThread) * threads;
        if (pass > 0)
            best = std::max(best, bytes / (seconds() - start));
    }
    return best;
}

} // namespace

Spread spreadOf(std::vector<double> samples)
{
    if (samples.empty())
        return {};
    Spread s;
    s.median = median(samples);
    for (double& x : samples)
        x = std::abs(x - s.median);
    s.mad = median(samples);
    return s;
}

std::vector<std::vector<double>> interleaved(const std::vector<Work>& works, const Effort& effort)
{
    std::vector<long> calls;
    double roundSeconds = 0.0;
    for (const Work& work : works) {
        long n = 1;
        double t = timeOf(work, n);
        while (t * static_cast<double>(n) < 0.3 * effort.sampleSeconds) {
            n *= 4;
            t = timeOf(work, n);
        }
        n = std::max(1L, std::lround(effort.sampleSeconds / t));
        calls.push_back(n);
        roundSeconds += t * static_cast<double>(n);
    }

    const int affordable = static_cast<int>(std::min(1e6, effort.caseSeconds / roundSeconds));
    const int rounds = std::max(effort.leastRounds, std::min(effort.rounds, affordable));
    std::vector<std::vector<double>> times(works.size());
    for (int round = 0; round < rounds; ++round)
        for (std::size_t k = 0; k < works.size(); ++k) {
            const std::size_t w = round % 2 == 0 ? k : works.size() - 1 - k;
            times[w].push_back(timeOf(works[w], calls[w]));
        }
    return times;
}

double readBandwidth(int threads)
{
    static std::map<int, double> known;
    auto [entry, isNew] = known.try_emplace(threads, 0.0);
    if (isNew)
        entry->second = measureBandwidth(threads);
    return entry->second;
}

} // namespace qxbench

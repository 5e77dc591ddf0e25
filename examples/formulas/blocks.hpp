#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <optional>

namespace examples {

/// A half-open range of points, elements or rows.
struct Range
{
    std::size_t first;
    std::size_t count;
};

/// Runs work(state, range) over [0, n) in blocks, on several threads; makeState() gives each thread what belongs to it.
///
/// Nothing may leave a parallel region by an exception, and which of several failures comes first depends on the threads.
/// So a failure only marks its block: the result is the first failed block (empty if none failed), and the caller repeats
/// that one alone to learn what is wrong. Blocks behind a failed one are skipped.
template <class MakeState, class Work>
Range runBlocks(std::size_t n, std::size_t size, int threads, MakeState makeState, Work work)
{
    const std::size_t blocks = (n + size - 1) / size;
    std::atomic<std::size_t> bad{blocks};
    const auto mark = [&](std::size_t b) {
        std::size_t known = bad;
        while (b < known && !bad.compare_exchange_weak(known, b)) {
        }
    };
    const auto rangeOf = [&](std::size_t b) {
        const std::size_t first = std::min(b * size, n);
        return Range{first, std::min(size, n - first)};
    };
#pragma omp parallel num_threads(threads)
    {
        std::optional<decltype(makeState())> state;
#pragma omp for schedule(dynamic)
        for (std::size_t b = 0; b < blocks; ++b) {
            if (b > bad)
                continue;
            try {
                if (!state)
                    state.emplace(makeState());
                work(*state, rangeOf(b));
            } catch (...) {
                mark(b);
            }
        }
    }
    return rangeOf(bad);
}

/// Halves a failing range until one item is left: the first that fails(range) holds for.
template <class Fails>
std::size_t firstFailing(Range range, Fails fails)
{
    while (range.count > 1) {
        const Range half{range.first, range.count / 2};
        range = fails(half) ? half : Range{range.first + half.count, range.count - half.count};
    }
    return range.first;
}

} // namespace examples

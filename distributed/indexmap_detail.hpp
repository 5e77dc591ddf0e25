// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed.hpp"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {
namespace detail {

/// Places of numbers in a list: numbers sorted into buckets of a power of two, as many buckets as numbers or more, so that
/// the numbers of a mesh part, which lie in a few dense ranges, are found at once and any others by a short search.
///
/// Cost: 16 bytes a number and 4 a bucket; making it, a sort. Immutable: any number of threads may look.
class IndexMap
{
public:
    static constexpr std::uint32_t none = 0xffffffff;

    IndexMap() = default;
    explicit IndexMap(std::span<const std::int64_t> numbers)
    {
        sorted_.reserve(numbers.size());
        for (std::size_t k = 0; k < numbers.size(); ++k)
            sorted_.emplace_back(numbers[k], static_cast<std::uint32_t>(k));
        std::sort(sorted_.begin(), sorted_.end());
        if (sorted_.empty())
            return;
        first_ = sorted_.front().first;
        const auto span = static_cast<std::uint64_t>(sorted_.back().first - first_) + 1;
        while ((span >> shift_) > 2 * sorted_.size())
            ++shift_;
        start_.assign((span >> shift_) + 2, 0);
        for (const auto& entry : sorted_)
            ++start_[bucketOf(entry.first) + 1];
        for (std::size_t b = 1; b < start_.size(); ++b)
            start_[b] += start_[b - 1];
    }

    /// The place of a number; `none` if it is not in the list.
    std::uint32_t find(std::int64_t number) const
    {
        if (sorted_.empty() || number < first_ || number > sorted_.back().first)
            return none;
        const std::uint64_t b = bucketOf(number);
        const auto from = sorted_.begin() + start_[b];
        const auto to = sorted_.begin() + start_[b + 1];
        const auto at = std::lower_bound(from, to, std::pair<std::int64_t, std::uint32_t>(number, 0));
        return at != to && at->first == number ? at->second : none;
    }

    /// A number that the list has more than once; -1 if there is none. Numbers are not negative.
    std::int64_t repeated() const
    {
        const auto at = std::adjacent_find(sorted_.begin(), sorted_.end(),
                                           [](const auto& a, const auto& b) { return a.first == b.first; });
        return at == sorted_.end() ? -1 : at->first;
    }

private:
    std::uint64_t bucketOf(std::int64_t number) const { return static_cast<std::uint64_t>(number - first_) >> shift_; }

    std::vector<std::pair<std::int64_t, std::uint32_t>> sorted_;
    std::vector<std::uint32_t> start_;
    std::int64_t first_ = 0;
    unsigned shift_ = 0;
};

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed

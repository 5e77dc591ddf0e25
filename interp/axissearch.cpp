// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interp/axissearch_detail.hpp"

#include "qxnumber.hpp"

#include <cmath>

namespace qxinterp_detail {

AxisSearch::AxisSearch(const std::vector<double>& points) : size_(points.size())
{
    points_.reserve(size_ + kScan);
    points_ = points;
    points_.resize(size_ + kScan, qxGetInf());

    // Few points need no guide, and an axis whose length overflows or nearly vanishes can have none.
    constexpr std::size_t most = std::size_t(1) << 28;
    const double buckets = static_cast<double>(std::min(2 * size_, most)), length = last() - first();
    const double scale = buckets / length;
    if (size_ <= kScan || !std::isfinite(length) || !std::isfinite(scale))
        return;
    scale_ = scale;
    starts_.assign(bucketOf(last()) + 2, 0);
    for (std::size_t i = 0; i < size_; ++i)
        ++starts_[bucketOf(points_[i]) + 1];
    for (std::size_t b = 1; b < starts_.size(); ++b)
        starts_[b] += starts_[b - 1];
}

bool isAscending(const std::vector<double>& points)
{
    for (std::size_t i = 1; i < points.size(); ++i)
        if (!(points[i - 1] < points[i]))
            return false;
    return !points.empty();
}

} // namespace qxinterp_detail

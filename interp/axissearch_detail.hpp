// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Finding the place of a coordinate on an ascending axis.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qxinterp_detail {

/// A guide table: the axis is cut into buckets of equal width, two a point, and each knows where its points begin. A search
/// goes straight to the bucket and is binary inside it, so that its cost does not grow with an axis whose points are spread
/// more or less evenly. The result is that of std::lower_bound for every x: the bucket of a number is computed by a rounded
/// but never decreasing formula, the same for points and for arguments.
///
/// Source: Chen and Asau, On Generating Random Variates from an Empirical Distribution, AIIE Transactions 6 (1974)
///         163-166 (the guide table).
class AxisSearch
{
public:
    /// points: at least one, strictly ascending if more.
    explicit AxisSearch(const std::vector<double>& points);

    std::size_t size() const { return size_; }
    double first() const { return points_.front(); }
    double last() const { return points_[size_ - 1]; }
    double operator[](std::size_t i) const { return points_[i]; }

    /// x moved into the axis; a NaN becomes the first point.
    double clamped(double x) const
    {
        const double below = x > first() ? x : first();
        return below < last() ? below : last();
    }

    /// Number of points below x: where std::lower_bound points. 0 for a NaN.
    std::size_t lowerBound(double x) const
    {
        if (x > last())
            return size_;
        return x > first() ? inside(x) : 0;
    }

    /// The upper end of the cell of x: lowerBound, but at least 1. x must lie within the axis, of two points or more.
    std::size_t cellEnd(double x) const { return std::max<std::size_t>(inside(x), 1); }

private:
    static constexpr std::size_t kScan = 4; ///< as many points are counted, more are halved first

    /// lowerBound for first() <= x <= last().
    std::size_t inside(double x) const
    {
        std::size_t low = 0, high = size_;
        if (scale_ != 0.0) {
            const std::size_t bucket = bucketOf(x);
            low = starts_[bucket];
            high = starts_[bucket + 1];
        }
        const double* p = points_.data();
        while (high - low > kScan) {
            const std::size_t middle = low + (high - low) / 2;
            if (p[middle] < x)
                low = middle + 1;
            else
                high = middle;
        }
        // Points behind `high` are not below x, and behind the last one stand infinities.
        std::size_t below = 0;
        for (std::size_t k = 0; k < kScan; ++k)
            below += p[low + k] < x;
        return low + below;
    }

    std::size_t bucketOf(double x) const
    {
        return static_cast<std::size_t>(static_cast<std::int32_t>((x - points_.front()) * scale_));
    }

    std::size_t size_;
    std::vector<double> points_;        ///< and kScan infinities
    std::vector<std::uint32_t> starts_; ///< index of the first point in each bucket or behind it
    double scale_ = 0.0;                ///< buckets a unit; 0 for an axis without a guide
};

/// At least one point, strictly ascending if there are more; false for NaN.
bool isAscending(const std::vector<double>& points);

} // namespace qxinterp_detail

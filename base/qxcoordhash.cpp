// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxcoordhash.hpp"

#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <cmath>

CoordHashMap::CoordHashMap(unsigned capacity, double tolerance, int dimension, bool relative, const double* lower,
                           const double* upper)
    : dimension_(dimension), cells_(capacity, true)
{
    if (dimension < 1 || dimension > 3)
        QX_RAISE("qxcoordhash", "Invalid_coordinate_hash", "Dimension", dimension);
    double side = 0, magnitude = 0;
    for (int d = 0; d < dimension; ++d) {
        origin_[d] = lower[d];
        side = std::max(side, upper[d] - lower[d]);
        magnitude = std::max({magnitude, std::abs(lower[d]), std::abs(upper[d])});
    }
    tolerance_ = relative ? tolerance * side : tolerance;
    const bool isUsable = tolerance_ >= 0 && std::isfinite(tolerance_) && std::isfinite(side) &&
                          !anyNaNorInf(lower, dimension) && !anyNaNorInf(upper, dimension);
    if (!isUsable)
        QX_RAISE("qxcoordhash", "Invalid_coordinate_hash", "Tolerance", qxutil::toString(tolerance_));
    // Far more cells than points gain nothing, and cell numbers must stay well inside a long.
    constexpr double finest = 1.0 / (1L << 40);
    width_ = std::max({2.5 * tolerance_, side * finest, magnitude * finest, 1e-300});
}

CoordHashMap::Cell CoordHashMap::cellAt(const std::array<double, 3>& at) const
{
    constexpr double limit = 4e18; // points this far outside the box share the last cell
    Cell cell{};
    for (int d = 0; d < dimension_; ++d)
        cell[d] = static_cast<long>(std::clamp(std::floor((at[d] - origin_[d]) / width_), -limit, limit));
    return cell;
}

int CoordHashMap::insert(const double* coords, int index, bool add)
{
    if (anyNaNorInf(coords, dimension_))
        QX_RAISE("qxcoordhash", "Undefined_coordinate");
    std::array<double, 3> at{}, low{}, high{};
    for (int d = 0; d < dimension_; ++d) {
        at[d] = coords[d];
        low[d] = coords[d] - tolerance_;
        high[d] = coords[d] + tolerance_;
    }

    int nearest = -1;
    double nearestDistance = tolerance_;
    const Cell first = cellAt(low), last = cellAt(high);
    for (long i = first[0]; i <= last[0]; ++i)
        for (long j = first[1]; j <= last[1]; ++j)
            for (long k = first[2]; k <= last[2]; ++k) {
                const QxHashLookup cell = cells_.lookup(keyOf({i, j, k}));
                for (int p = cell.notFound ? -1 : cells_.at(cell.slot); p >= 0; p = points_[p].next) {
                    double distance = 0;
                    for (int d = 0; d < dimension_; ++d)
                        distance = std::max(distance, std::abs(points_[p].at[d] - at[d]));
                    const bool isNearer = distance < nearestDistance || (distance == nearestDistance && p < nearest);
                    if (isNearer || (nearest < 0 && distance <= nearestDistance)) {
                        nearest = p;
                        nearestDistance = distance;
                    }
                }
            }
    if (nearest >= 0)
        return points_[nearest].index;
    if (!add)
        return -1;

    points_.reserve(points_.size() == points_.capacity() ? 2 * points_.size() + 8 : points_.capacity());
    const QxHashInsert slot = cells_.insertKey(keyOf(cellAt(at)));
    points_.push_back({at, index, slot.inserted ? -1 : cells_.at(slot.slot)});
    cells_.at(slot.slot) = size() - 1;
    return index;
}

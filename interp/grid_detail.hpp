// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// A tensor grid as evaluation needs it, shared by the interpolators on it.

#include "interp/axissearch_detail.hpp"
#include "interpolator.hpp"

namespace qxinterp_detail {

struct Grid
{
    /// Fails as GridInterpolator.
    Grid(const Interpolator::AxesPtr& axes, const Interpolator::ValuesPtr& values);

    /// An axis of two points or more.
    struct Axis
    {
        AxisSearch search;
        int coordinate;     ///< 0-based
        std::size_t stride; ///< between values of neighbouring points
    };

    /// Whether a coordinate of the point lies outside its axis.
    template <class Coordinate>
    bool isOutside(Coordinate x) const
    {
        for (std::size_t k = 0; k < axes->size(); ++k) {
            const double c = x(static_cast<int>(k));
            if (c < (*axes)[k].front() || c > (*axes)[k].back())
                return true;
        }
        return false;
    }

    int dim() const { return static_cast<int>(axes->size()); }

    Interpolator::AxesPtr axes;
    Interpolator::ValuesPtr values;
    std::vector<Axis> wide;     ///< in the order of the axes, without those of one point
    bool hasPointAxis = false;  ///< there is an axis of one point
};

} // namespace qxinterp_detail

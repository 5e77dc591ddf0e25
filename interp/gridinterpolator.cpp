// SPDX-License-Identifier: LicenseRef-qxkernel
#include "gridinterpolator.hpp"

#include "interp/checks_detail.hpp"
#include "interp/grid_detail.hpp"

#include <boost/make_shared.hpp>
#include <limits>

using namespace qxinterp_detail;

namespace qxinterp_detail {

Grid::Grid(const Interpolator::AxesPtr& gridAxes, const Interpolator::ValuesPtr& gridValues)
    : axes(gridAxes), values(gridValues)
{
    if (!axes || !values || axes->size() > std::size_t(std::numeric_limits<int>::max()))
        refuse("Wrong_size_of_interpolation_data");
    std::size_t count = 1;
    for (const std::vector<double>& points : *axes) {
        if (points.empty() || count > values->size() / points.size())
            refuse("Wrong_size_of_interpolation_data");
        if (!isAscending(points))
            refuse("Non_monotonous_interpolation_grid");
        count *= points.size();
    }
    if (count != values->size())
        refuse("Wrong_size_of_interpolation_data");

    std::size_t stride = 1;
    for (std::size_t k = 0; k < axes->size(); ++k) {
        const std::vector<double>& points = (*axes)[k];
        if (points.size() > 1)
            wide.push_back({AxisSearch(points), static_cast<int>(k), stride});
        else
            hasPointAxis = true;
        stride *= points.size();
    }
}

} // namespace qxinterp_detail

namespace {

/// The share of one axis in a value: two neighbouring points and their weights.
struct Cell
{
    std::size_t offset; ///< of the lower point's values
    double low, high;   ///< weights
};

/// Weights (p - x) / (p - q) and the rest. At and beyond an end they are 1 and 0 exactly.
inline Cell valueCell(const Grid::Axis& axis, double x, bool continues)
{
    const double inside = axis.search.clamped(x);
    const std::size_t end = axis.search.cellEnd(inside);
    const double p = axis.search[end], q = axis.search[end - 1];
    const double w = (p - (continues ? x : inside)) / (p - q);
    return {(end - 1) * axis.stride, w, 1.0 - w};
}

/// Weights -1 / (p - q) and 1 / (p - q); both 0 far outside.
inline Cell slopeCell(const Grid::Axis& axis, double x, bool continues)
{
    const AxisSearch& points = axis.search;
    const double tolerance = 1e-10 * (points.last() - points.first());
    if (!continues && (x < points.first() - tolerance || x > points.last() + tolerance))
        return {0, 0.0, 0.0};
    const std::size_t end = points.cellEnd(points.clamped(x));
    const double w = 1.0 / (points[end] - points[end - 1]);
    return {(end - 1) * axis.stride, -w, w};
}

/// sum_e w_e v_e over the 2^D corners of a cell, bit k of e for the upper point of axis k, w_e the product of the axes'
/// weights from the first axis to the last.
template <int D>
double cornerSum(const Grid& grid, const Cell* cells)
{
    std::size_t origin = 0;
    for (int k = 0; k < D; ++k)
        origin += cells[k].offset;
    double sum = 0.0;
    for (int e = 0; e < 1 << D; ++e) {
        double w = 1.0;
        std::size_t at = origin;
        for (int k = 0; k < D; ++k) {
            const bool upper = e >> k & 1;
            w *= upper ? cells[k].high : cells[k].low;
            at += upper ? grid.wide[static_cast<std::size_t>(k)].stride : 0;
        }
        sum += w * (*grid.values)[at];
    }
    return sum;
}

/// The same for any number of axes. An axis of one point doubles the terms: the second half has the weight 0, which
/// only tells when a value is not finite.
double cornerSum(const Grid& grid, const Cell* cells, std::size_t d)
{
    std::size_t origin = 0;
    for (std::size_t k = 0; k < d; ++k)
        origin += cells[k].offset;
    const auto term = [&](std::size_t e, double w) {
        std::size_t at = origin;
        for (std::size_t k = 0; k < d; ++k) {
            const bool upper = e >> k & 1;
            w *= upper ? cells[k].high : cells[k].low;
            at += upper ? grid.wide[k].stride : 0;
        }
        return w * (*grid.values)[at];
    };
    double sum = 0.0;
    for (std::size_t e = 0; e < std::size_t(1) << d; ++e)
        sum += term(e, 1.0);
    if (grid.hasPointAxis)
        for (std::size_t e = 0; e < std::size_t(1) << d; ++e)
            sum += term(e, 0.0);
    return sum;
}

/// The value at one point. x(k) gives coordinate k, cell(axis, x) the share of an axis.
template <int D, class Coordinate, class CellOf>
inline double multilinear(const Grid& grid, Coordinate x, CellOf cell)
{
    if constexpr (D > 0) {
        Cell cells[D];
        for (int k = 0; k < D; ++k)
            cells[k] = cell(grid.wide[static_cast<std::size_t>(k)], x(grid.wide[static_cast<std::size_t>(k)].coordinate));
        return cornerSum<D>(grid, cells);
    } else {
        // The number of values, a power of 2 at least, has less digits.
        Cell cells[std::numeric_limits<std::size_t>::digits];
        for (std::size_t k = 0; k < grid.wide.size(); ++k)
            cells[k] = cell(grid.wide[k], x(grid.wide[k].coordinate));
        return cornerSum(grid, cells, grid.wide.size());
    }
}

/// One point or many: f of the coordinates, or a constant where one of them lies outside.
template <class F>
double valueAt(const Grid& grid, const std::vector<double>& point, bool constantOutside, double extValue, F f)
{
    checkCoordinates(point, grid.dim());
    const auto x = [&](int k) { return point[static_cast<std::size_t>(k)]; };
    return constantOutside && grid.isOutside(x) ? extValue : f(x);
}

template <class F>
void valuesAt(const Grid& grid, const double* const* points, std::size_t n, double* out, bool constantOutside,
              double extValue, F f)
{
    for (std::size_t i = 0; i < n; ++i) {
        const auto x = [&](int k) { return points[k][i]; };
        out[i] = constantOutside && grid.isOutside(x) ? extValue : f(x);
    }
}

/// Calls f<D>() with the number of axes that have more than one point, 0 for the general case.
template <class F>
auto withDimension(const Grid& grid, F f)
{
    const std::size_t d = grid.hasPointAxis ? 0 : grid.wide.size();
    return d == 1   ? f.template operator()<1>()
           : d == 2 ? f.template operator()<2>()
           : d == 3 ? f.template operator()<3>()
                    : f.template operator()<0>();
}

/// Calls f(at) with the multilinear function at(coordinates) whose share of an axis is cell(axis, coordinate).
template <class CellOf, class F>
auto withMultilinear(const Grid& grid, CellOf cell, F f)
{
    return withDimension(grid, [&]<int D>() { return f([&](auto x) { return multilinear<D>(grid, x, cell); }); });
}

} // namespace

GridInterpolator::GridInterpolator(const AxesPtr& axes, const ValuesPtr& values)
    : grid_(boost::make_shared<const Grid>(axes, values))
{
}

int GridInterpolator::dim() const { return grid_->dim(); }

std::pair<double, double> GridInterpolator::range(int axis) const
{
    checkAxis(axis, dim());
    const std::vector<double>& points = (*grid_->axes)[static_cast<std::size_t>(axis - 1)];
    return {points.front(), points.back()};
}

// ---- multilinear

LinGridInterpolator::LinGridInterpolator(const AxesPtr& axes, const ValuesPtr& values, ExtMethod extMethod, double extValue)
    : GridInterpolator(axes, values), extMethod_(extMethod), extValue_(extValue)
{
}

/// Calls f with the function of the coordinates inside the grid.
template <class F>
inline auto LinGridInterpolator::withFunction(F f) const
{
    const bool continues = extMethod_ == ExtContinue;
    return withMultilinear(
        *grid_, [continues](const Grid::Axis& axis, double x) { return valueCell(axis, x, continues); }, f);
}

double LinGridInterpolator::operator()(const std::vector<double>& x) const
{
    return withFunction([&](auto f) { return valueAt(*grid_, x, extMethod_ == ExtValue, extValue_, f); });
}

void LinGridInterpolator::evaluate(const double* const* points, std::size_t n, double* out) const
{
    withFunction([&](auto f) { valuesAt(*grid_, points, n, out, extMethod_ == ExtValue, extValue_, f); });
}

boost::shared_ptr<Interpolator> LinGridInterpolator::diff(const int& axis) const
{
    checkAxis(axis, dim());
    std::vector<int> flags(static_cast<std::size_t>(dim()), 0);
    flags[static_cast<std::size_t>(axis - 1)] = 1;
    return boost::shared_ptr<Interpolator>(new DLinGridInterpolator(grid_, flags, extMethod_));
}

// ---- derivatives of multilinear functions

DLinGridInterpolator::DLinGridInterpolator(const AxesPtr& axes, const ValuesPtr& values, const std::vector<int>& flags,
                                           ExtMethod extMethod)
    : DLinGridInterpolator(boost::make_shared<const Grid>(axes, values), flags, extMethod)
{
}

DLinGridInterpolator::DLinGridInterpolator(const boost::shared_ptr<const Grid>& grid, const std::vector<int>& flags,
                                           ExtMethod extMethod)
    : GridInterpolator(grid), flags_(flags), extMethod_(extMethod)
{
    if (flags.size() != grid->axes->size())
        refuse("Wrong_size_of_interpolation_data");
    for (std::size_t k = 0; k < flags.size(); ++k)
        zero_ = zero_ || (flags[k] != 0 && (*grid->axes)[k].size() == 1);
}

template <class F>
inline auto DLinGridInterpolator::withFunction(F f) const
{
    const bool continues = extMethod_ == ExtContinue;
    const auto cell = [continues, flags = flags_.data()](const Grid::Axis& axis, double x) {
        return flags[axis.coordinate] != 0 ? slopeCell(axis, x, continues) : valueCell(axis, x, continues);
    };
    return withMultilinear(*grid_, cell, f);
}

double DLinGridInterpolator::operator()(const std::vector<double>& x) const
{
    if (zero_)
        return ZeroInterpolator(dim())(x);
    return withFunction([&](auto f) { return valueAt(*grid_, x, extMethod_ == ExtValue, 0.0, f); });
}

void DLinGridInterpolator::evaluate(const double* const* points, std::size_t n, double* out) const
{
    if (zero_)
        std::fill_n(out, n, 0.0);
    else
        withFunction([&](auto f) { valuesAt(*grid_, points, n, out, extMethod_ == ExtValue, 0.0, f); });
}

boost::shared_ptr<Interpolator> DLinGridInterpolator::diff(const int& axis) const
{
    checkAxis(axis, dim());
    std::vector<int> flags = flags_;
    int& flag = flags[static_cast<std::size_t>(axis - 1)];
    if (flag != 0)
        return boost::make_shared<ZeroInterpolator>(dim());
    flag = 1;
    return boost::shared_ptr<Interpolator>(new DLinGridInterpolator(grid_, flags, extMethod_));
}

// ---- nearest neighbour

namespace {

template <class Coordinate>
double nearest(const Grid& grid, Coordinate x)
{
    std::size_t at = 0;
    for (const Grid::Axis& axis : grid.wide) {
        const double c = x(axis.coordinate);
        std::size_t i = axis.search.lowerBound(c);
        if (i == axis.search.size())
            --i;
        else if (i > 0 && c - axis.search[i - 1] <= axis.search[i] - c)
            --i;
        at += i * axis.stride;
    }
    return (*grid.values)[at];
}

} // namespace

NNGridInterpolator::NNGridInterpolator(const AxesPtr& axes, const ValuesPtr& values, ExtMethod extMethod, double extValue)
    : GridInterpolator(axes, values), extMethod_(extMethod), extValue_(extValue)
{
}

double NNGridInterpolator::operator()(const std::vector<double>& x) const
{
    return valueAt(*grid_, x, extMethod_ == ExtValue, extValue_, [&](auto c) { return nearest(*grid_, c); });
}

void NNGridInterpolator::evaluate(const double* const* points, std::size_t n, double* out) const
{
    valuesAt(*grid_, points, n, out, extMethod_ == ExtValue, extValue_,
             [&](auto c) { return nearest(*grid_, c); });
}

boost::shared_ptr<Interpolator> NNGridInterpolator::diff(const int& axis) const
{
    checkAxis(axis, dim());
    return boost::make_shared<ZeroInterpolator>(dim());
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "cubicinterpolator.hpp"

#include "interp/axissearch_detail.hpp"
#include "interp/checks_detail.hpp"
#include "interp/slopes_detail.hpp"
#include "qxnumber.hpp"

#include <boost/make_shared.hpp>
#include <limits>

using namespace qxinterp_detail;

namespace {

/// The points of the one axis, after all that can be wrong with them.
const std::vector<double>& checkedPoints(const Interpolator::AxesPtr& axes, const Interpolator::ValuesPtr& values,
                                         const std::string& method)
{
    const bool spline = method == "cubicspline";
    if (!spline && method != "piecewisecubic")
        QX_RAISE("interpolator", "Unknown_interpolation_method", "Method", method);
    if (!axes || axes->size() != 1)
        refuse(spline ? "Cubic_spline_interpolation_only_1D" : "Piecewise_cubic_interpolation_only_1D");
    const std::vector<double>& x = axes->front();
    if (!values || values->size() != x.size() || x.size() > std::size_t(std::numeric_limits<int>::max()))
        refuse("Wrong_size_of_interpolation_data");
    if (x.size() < 3)
        refuse("Not_enough_interpolation_points");
    if (!isAscending(x))
        refuse("Non_monotonous_interpolation_grid");
    return x;
}

} // namespace

CubicInterpolator::CubicInterpolator(const AxesPtr& axes, const ValuesPtr& values, const std::string& method,
                                     ExtMethod extMethod, double extValue)
    : axes_(axes), extMethod_(extMethod)
{
    const std::vector<double>& x = checkedPoints(axes, values, method);
    const std::vector<double>& y = *values;
    const bool forEver = extMethod == ExtDefault || extMethod == ExtContinue;
    xLow_ = forEver ? -qxGetInf() : x.front();
    xHigh_ = forEver ? qxGetInf() : x.back();
    yLow_ = extMethod == ExtValue ? extValue : y.front();
    yHigh_ = extMethod == ExtValue ? extValue : y.back();
    nIntervals_ = static_cast<int>(x.size() - 1);
    search_ = boost::make_shared<AxisSearch>(x);

    const std::vector<double> d = method == "cubicspline" ? splineSlopes(x, y) : monotoneSlopes(x, y);
    coefficients_.reserve(4 * (x.size() - 1));
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
        const double h = x[i + 1] - x[i], del = (y[i + 1] - y[i]) / h;
        const double a = (d[i] + d[i + 1] - 2.0 * del) / (h * h);
        const double b = (del - d[i]) / h - h * a;
        for (const double c : {a, b, d[i], y[i]})
            coefficients_.push_back(c);
    }
}

CubicInterpolator::CubicInterpolator(int nIntervals, const AxesPtr& axes, const std::vector<double>& coefficients,
                                     double xLow, double yLow, double xHigh, double yHigh, ExtMethod extMethod)
    : xLow_(xLow), yLow_(yLow), xHigh_(xHigh), yHigh_(yHigh), nIntervals_(nIntervals), axes_(axes),
      coefficients_(coefficients), extMethod_(extMethod)
{
    const auto intervals = static_cast<std::size_t>(std::max(nIntervals, 0));
    if (!axes || axes->size() != 1 || intervals == 0 || axes->front().size() != intervals + 1 ||
        coefficients.size() != 4 * intervals)
        refuse("Wrong_size_of_interpolation_data");
    if (!isAscending(axes->front()))
        refuse("Non_monotonous_interpolation_grid");
    search_ = boost::make_shared<AxisSearch>(axes->front());
}

inline double CubicInterpolator::value(double x) const
{
    if (x < xLow_)
        return extMethod_ == ExtLine ? linExt(x, 0, xLow_, yLow_) : yLow_;
    if (x <= xHigh_) {
        const AxisSearch& axis = *search_;
        const std::size_t i = axis.cellEnd(axis.clamped(x)) - 1;
        const double t = x - axis[i];
        const double* c = coefficients_.data() + 4 * i;
        return ((c[0] * t + c[1]) * t + c[2]) * t + c[3];
    }
    return extMethod_ == ExtLine ? linExt(x, nIntervals_ - 1, xHigh_, yHigh_) : yHigh_;
}

double CubicInterpolator::slope(int interval, double x) const
{
    const double* c = coefficients_.data() + 4 * std::ptrdiff_t(interval);
    const double t = x - (*search_)[static_cast<std::size_t>(interval)];
    return (3.0 * c[0] * t + 2.0 * c[1]) * t + c[2];
}

/// The straight line through (xEnd, yEnd) with the slope that the interval has there.
double CubicInterpolator::linExt(double x, int interval, double xEnd, double yEnd) const
{
    return yEnd + (x - xEnd) * slope(interval, xEnd);
}

double CubicInterpolator::operator()(const std::vector<double>& x) const
{
    checkCoordinates(x, 1);
    return value(x[0]);
}

void CubicInterpolator::evaluate(const double* const* points, std::size_t n, double* out) const
{
    const double* x = points[0];
    for (std::size_t i = 0; i < n; ++i)
        out[i] = value(x[i]);
}

boost::shared_ptr<Interpolator> CubicInterpolator::diff(const int& axis) const
{
    checkAxis(axis, 1);
    std::vector<double> d;
    d.reserve(coefficients_.size());
    for (std::size_t i = 0; i < coefficients_.size(); i += 4)
        for (const double c : {0.0, 3.0 * coefficients_[i], 2.0 * coefficients_[i + 1], coefficients_[i + 2]})
            d.push_back(c);
    const bool line = extMethod_ == ExtLine;
    auto result = boost::make_shared<CubicInterpolator>(*this);
    result->coefficients_.swap(d);
    result->yLow_ = line ? slope(0, xLow_) : 0.0;
    result->yHigh_ = line ? slope(nIntervals_ - 1, xHigh_) : 0.0;
    result->extMethod_ = line ? ExtEnd : extMethod_;
    return result;
}

std::pair<double, double> CubicInterpolator::range(int axis) const
{
    checkAxis(axis, 1);
    return {search_->first(), search_->last()};
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "interpolator.hpp"

namespace qxinterp_detail {
class AxisSearch;
}

/// Piecewise cubic in one coordinate: a t^3 + b t^2 + c t + d on each interval, t the distance from its left end, by
/// Horner's rule.
///
/// Both methods match values and slopes at the points; they differ in the slopes.
///   "piecewisecubic": a weighted harmonic mean of the neighbouring secants, 0 where they differ in sign, and a limited
///       three-point formula at the ends. Monotone data give a monotone curve that stays within the data. First
///       derivative continuous.
///   "cubicspline": two continuous derivatives; the third one too at the second point and the last but one (not-a-knot).
///       Three points give one parabola. A tridiagonal elimination, linear in the number of points.
/// Source: Fritsch and Butland, SIAM J. Sci. Stat. Comput. 5 (1984) 300-304; Moler, Numerical Computing with MATLAB,
///         SIAM 2004, sections 3.3 to 3.5; de Boor, A Practical Guide to Splines, chapter IV.
///
/// Fails: "Cubic_spline_interpolation_only_1D", "Piecewise_cubic_interpolation_only_1D" for a number of axes other than
///        one, "Wrong_size_of_interpolation_data" if values and points differ in number, "Not_enough_interpolation_points"
///        for less than three points, "Non_monotonous_interpolation_grid" if they are not strictly ascending,
///        "Unknown_interpolation_method"; std::bad_alloc
class QX_API CubicInterpolator : public Interpolator
{
public:
    CubicInterpolator(const AxesPtr& axes, const ValuesPtr& values, const std::string& method, ExtMethod extMethod,
                      double extValue);
    /// From coefficients a, b, c, d of each of nIntervals intervals in turn; below xLow the value is yLow, above xHigh
    /// yHigh, or with ExtLine a straight line through it. Fails: "Wrong_size_of_interpolation_data" if sizes disagree.
    CubicInterpolator(int nIntervals, const AxesPtr& axes, const std::vector<double>& coefficients, double xLow,
                      double yLow, double xHigh, double yHigh, ExtMethod extMethod);

    double operator()(const std::vector<double>& x) const override;
    /// Coefficients 0, 3a, 2b, c. Outside, the slope of the end for ExtLine (and then ExtEnd in force, so that the second
    /// derivative is 0 there), 0 for ExtValue and ExtEnd.
    boost::shared_ptr<Interpolator> diff(const int& axis) const override;
    void evaluate(const double* const* points, std::size_t n, double* out) const override;
    int dim() const override { return 1; }
    std::pair<double, double> range(int axis) const override;

    /// a, b, c, d of each interval in turn.
    const std::vector<double>& getCoeffFlat() const { return coefficients_; }
    int getNIntervals() const { return nIntervals_; }

private:
    double value(double x) const;
    double slope(int interval, double x) const;
    double linExt(double x, int interval, double xEnd, double yEnd) const;

    double xLow_, yLow_, xHigh_, yHigh_;
    int nIntervals_;
    AxesPtr axes_;
    std::vector<double> coefficients_;
    ExtMethod extMethod_;
    boost::shared_ptr<const qxinterp_detail::AxisSearch> search_;
};

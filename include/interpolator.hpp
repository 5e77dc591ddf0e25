// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Tabulated data as functions of their coordinates: the abstract interpolator and how one is made.

#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

/// A function given by a table. Immutable: evaluated by any number of threads at once, without locks, buffers or
/// allocation.
///
/// Outside the table. What an interpolator does with a coordinate outside its axis is its ExtMethod; the numbers mean
/// different things for grids and for cubics:
///
///     value  on grids                                      on cubics
///     0      clamp to the end value                        the end polynomial continues for ever
///     1      extValue if any coordinate lies outside       extValue
///     2      clamp                                         the end value of the data
///     3      "linear": the end cell's formula continues;   as 0
///            "neighbor": clamp
///     4      clamp                                         straight line through the end value, slope of the end
///
/// Both ends belong to the table. A NaN coordinate is not outside: on a grid it counts as the first point of its axis
/// (with method 3 the result is NaN), on a cubic it takes the branch above the last point. Values that are not finite
/// follow ordinary arithmetic: a NaN also reaches points of the neighbouring cells' edges, where its weight is 0.
///
/// Fails (source "interpolator"): "Wrong_size_of_interpolation_data" for a number of coordinates other than dim();
/// "QUORIX_assertion_failure" for an axis outside 1..dim() in diff and range.
class QX_API Interpolator
{
public:
    using Axes = std::vector<std::vector<double>>;
    using AxesPtr = boost::shared_ptr<const Axes>;
    using ValuesPtr = boost::shared_ptr<const std::vector<double>>;

    enum ExtMethod : int { ExtDefault = 0, ExtValue = 1, ExtEnd = 2, ExtContinue = 3, ExtLine = 4 };

    virtual ~Interpolator();

    /// The value at the point x of dim() coordinates.
    virtual double operator()(const std::vector<double>& x) const = 0;
    /// The partial derivative by an axis, counted from 1, as an interpolator over the same table.
    virtual boost::shared_ptr<Interpolator> diff(const int& axis) const = 0;

    /// The values at n points, out[i] = value at (points[0][i], points[1][i], ...): same bits as the single calls. The
    /// coordinates come axis by axis, dim() arrays of n numbers; out may be one of them.
    virtual void evaluate(const double* const* points, std::size_t n, double* out) const = 0;
    /// Number of coordinates; 0 means any number.
    virtual int dim() const = 0;
    /// First and last point of an axis, counted from 1.
    virtual std::pair<double, double> range(int axis) const = 0;

    /// An interpolator by the name of its method: "neighbor" (NNGridInterpolator), "linear" (LinGridInterpolator),
    /// "piecewisecubic" or "cubicspline" (CubicInterpolator).
    ///
    /// In:    axes, one ascending vector of points a coordinate; values on the tensor grid, first axis fastest; both are
    ///        kept and shared with the caller, who must not change them
    /// Fails: "Unknown_interpolation_method", "Unknown_extrapolation_method" (extMethod outside 0..4), and as the
    ///        classes' constructors
    static boost::shared_ptr<Interpolator> createInterpolator(const AxesPtr& axes, const ValuesPtr& values,
                                                              const std::string& method, ExtMethod extMethod,
                                                              double extValue);
    /// A CubicInterpolator with ExtContinue and extValue 0 together with its coefficients: coeffs receives a, b, c, d of
    /// each interval in turn (CubicInterpolator::getCoeffFlat). coeffs is unchanged after a failure.
    static boost::shared_ptr<Interpolator> createStdCubic(const AxesPtr& axes, const ValuesPtr& values,
                                                          const std::string& method, std::vector<double>& coeffs);
};

/// The function 0 of dim coordinates, or of any number for dim 0: derivatives end here.
class QX_API ZeroInterpolator : public Interpolator
{
public:
    explicit ZeroInterpolator(int dim = 0) : dim_(dim) {}
    double operator()(const std::vector<double>& x) const override;
    boost::shared_ptr<Interpolator> diff(const int& axis) const override;
    void evaluate(const double* const* points, std::size_t n, double* out) const override;
    int dim() const override { return dim_; }
    /// Minus to plus infinity.
    std::pair<double, double> range(int axis) const override;

private:
    int dim_;
};

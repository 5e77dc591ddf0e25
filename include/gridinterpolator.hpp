// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "interpolator.hpp"

namespace qxinterp_detail {
struct Grid;
}

/// A table on a tensor grid of any dimension: value (i, j, ...) stands at i + j n_1 + ... for axes of n_1, n_2, ... points.
///
/// Fails: "Non_monotonous_interpolation_grid" for an axis of more than one point that is not strictly ascending (NaN
///        included), "Wrong_size_of_interpolation_data" for an empty axis or a number of values other than the product of
///        the axis lengths; std::bad_alloc
/// Cost:  one search of an axis a coordinate (guide table, then binary inside its bucket) and 2^d products and sums, d the
///        number of axes with more than one point
class QX_API GridInterpolator : public Interpolator
{
public:
    int dim() const override;
    std::pair<double, double> range(int axis) const override;

protected:
    GridInterpolator(const AxesPtr& axes, const ValuesPtr& values);
    explicit GridInterpolator(const boost::shared_ptr<const qxinterp_detail::Grid>& grid) : grid_(grid) {}

    boost::shared_ptr<const qxinterp_detail::Grid> grid_;
};

/// Multilinear interpolation. With p the first grid point not below x and q the one before it, an axis contributes the
/// weights (p - x) / (p - q) and 1 minus that; the value is the sum over the 2^d corners of the cell.
///
/// At a grid point the cell below it is used; the value there is exact. Multilinear data are reproduced to 1e-15 of the
/// largest value inside a cell.
class QX_API LinGridInterpolator : public GridInterpolator
{
public:
    LinGridInterpolator(const AxesPtr& axes, const ValuesPtr& values, ExtMethod extMethod, double extValue);
    double operator()(const std::vector<double>& x) const override;
    /// A DLinGridInterpolator along that axis.
    boost::shared_ptr<Interpolator> diff(const int& axis) const override;
    void evaluate(const double* const* points, std::size_t n, double* out) const override;

private:
    template <class F>
    auto withFunction(F f) const;

    ExtMethod extMethod_;
    double extValue_;
};

/// A mixed partial derivative of multilinear interpolation: along each flagged axis the weights are -1 / (p - q) and
/// 1 / (p - q). At a grid point it is that of the cell below.
///
/// Outside. Up to 1e-10 of the axis's length beyond a flagged axis counts as its end cell. Further outside the result is 0,
/// with ExtContinue the end cell's slope. With ExtValue any coordinate outside its axis, however little, gives 0. Along a
/// flagged axis of one point it is 0 everywhere; a NaN there counts as in the first cell.
class QX_API DLinGridInterpolator : public GridInterpolator
{
public:
    /// flags: one number an axis, not 0 for an axis to differentiate along.
    /// Fails: "Wrong_size_of_interpolation_data" for another number of flags.
    DLinGridInterpolator(const AxesPtr& axes, const ValuesPtr& values, const std::vector<int>& flags,
                         ExtMethod extMethod);
    double operator()(const std::vector<double>& x) const override;
    /// Along a further axis; along a flagged one the function is linear, and its derivative a ZeroInterpolator.
    boost::shared_ptr<Interpolator> diff(const int& axis) const override;
    void evaluate(const double* const* points, std::size_t n, double* out) const override;

private:
    friend class LinGridInterpolator;
    DLinGridInterpolator(const boost::shared_ptr<const qxinterp_detail::Grid>& grid, const std::vector<int>& flags,
                         ExtMethod extMethod);
    template <class F>
    auto withFunction(F f) const;

    std::vector<int> flags_;
    ExtMethod extMethod_;
    bool zero_ = false; ///< flagged along an axis of one point
};

/// The value of the nearest grid point; half way between two points it is that of the lower one.
class QX_API NNGridInterpolator : public GridInterpolator
{
public:
    NNGridInterpolator(const AxesPtr& axes, const ValuesPtr& values, ExtMethod extMethod, double extValue);
    double operator()(const std::vector<double>& x) const override;
    /// A ZeroInterpolator.
    boost::shared_ptr<Interpolator> diff(const int& axis) const override;
    void evaluate(const double* const* points, std::size_t n, double* out) const override;

private:
    ExtMethod extMethod_;
    double extValue_;
};

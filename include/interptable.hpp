// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Tables as data, and interpolators from them by the names that a user types.

#include "interpolator.hpp"

/// A table as a file holds it: axes and one or more columns of values over them.
struct InterpTableData
{
    Interpolator::AxesPtr axes;
    std::vector<Interpolator::ValuesPtr> values; ///< each first axis fastest
    std::vector<std::string> axisNames;          ///< one an axis; empty texts where the file gives none
    std::vector<std::string> names;              ///< one a column of values; empty texts where the file gives none
};

/// How a user wants a table to be read between and beyond its points.
struct InterpOptions
{
    std::string method = "linear";   ///< as Interpolator::createInterpolator
    std::string extension = "clamp"; ///< see makeInterpolator
};

/// An interpolator, and whether points outside the table are errors: for those who evaluate it to see to.
struct InterpTable
{
    boost::shared_ptr<Interpolator> interpolator;
    bool errorOutside = false;
};

/// The interpolator of one column of values by names:
///
///     extension      neighbor  linear  piecewisecubic, cubicspline
///     "clamp"        yes       yes     yes                           the end value
///     "value=v"      yes       yes     yes                           the number v
///     "linear"       -         yes     yes                           a straight line with the slope of the end
///     "polynomial"   -         -       yes                           the formula of the end interval
///     "error"        yes       yes     yes                           errorOutside is set; the interpolator clamps
///
/// Fails: "Unknown_extrapolation_method" with "Method" and "Extension" for one that the method has not; as
///        Interpolator::createInterpolator; "Wrong_size_of_interpolation_data" for a column that is not there
QX_API InterpTable makeInterpolator(const InterpTableData& data, std::size_t column, const InterpOptions& options);

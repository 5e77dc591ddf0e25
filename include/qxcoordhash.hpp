// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"
#include "qxhash.hpp"

#include <array>
#include <utility>
#include <vector>

/// Points in 1, 2 or 3 dimensions with an index each, found again by position: points that agree in every coordinate
/// within the tolerance are one point.
///
/// Method: a grid of cells wider than twice the tolerance, hashed by cell; a search looks into the cells that its box of
/// half-width tolerance touches, at most 2^dimension. Cost: constant a point while few points share a cell.
/// Among several points within reach the nearest wins (largest coordinate difference), of equally near ones the first.
/// Threads: as for a plain value.
class QX_API CoordHashMap
{
public:
    /// capacity: points expected. tolerance >= 0: a length, or with relative a fraction of the longest side of the box.
    /// lower, upper (dimension): box of the points; points outside it are allowed. Both are only read here.
    /// Raises "Invalid_coordinate_hash" ("Dimension" or "Tolerance") for other dimensions and a negative or non-finite
    /// tolerance or box.
    CoordHashMap(unsigned capacity, double tolerance, int dimension, bool relative, const double* lower,
                 const double* upper);

    /// The index of the point at coords (dimension). If there is none and add is true, the point is stored with index;
    /// if add is false the result is -1. Raises "Undefined_coordinate" for NaN or infinity.
    int insert(const double* coords, int index, bool add = true);

    /// Number of different points.
    int size() const { return static_cast<int>(points_.size()); }

private:
    using Cell = std::array<long, 3>;
    using Key = std::pair<long, std::pair<long, long>>;

    struct Point
    {
        std::array<double, 3> at;
        int index;
        int next; ///< next point of the same cell, or -1
    };

    static Key keyOf(const Cell& cell) { return {cell[0], {cell[1], cell[2]}}; }
    Cell cellAt(const std::array<double, 3>& at) const;

    int dimension_;
    double tolerance_;
    double width_;
    std::array<double, 3> origin_{};
    QxHashMap<int, Key> cells_; ///< first point of each cell
    std::vector<Point> points_;
};

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace examples {

/// Numbers y over x, as a line or as dots.
struct ChartSeries
{
    std::vector<double> x, y;
    bool dots = false;
};

/// One pair of axes.
struct ChartPanel
{
    std::string title;
    std::vector<ChartSeries> series;
    bool sameScale = false; ///< one unit of x is as long as one of y
};

/// Writes an SVG picture: panels in rows, each with round numbers at its axes. Lines break at numbers that are not finite.
void writeChart(std::ostream& out, const std::string& title, const std::string& xLabel,
                const std::vector<std::vector<ChartPanel>>& rows);

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fit.hpp"
#include "model.hpp"
#include "solve.hpp"

#include <iosfwd>

namespace examples {

/// Draws a problem of two variables as an SVG picture: level lines of the objective, what the constraints forbid, their
/// boundaries, the iterates and the end. Raises UsageError for another number of variables.
void drawLandscape(std::ostream& out, const Model& model, const Solution& solution);

/// Draws the observations and the fitted curve over a column as an SVG picture.
void drawFit(std::ostream& out, const Fit& fit, const FitResult& result, const Table& data, const std::string& over);

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "solve.hpp"

#include <iosfwd>

namespace examples {

/// The answer for a reader: variables, constraints, which bounds hold it, multipliers.
void printReport(std::ostream& out, const Model& model, const Solution& solution);
/// The same as one JSON object.
void printJson(std::ostream& out, const Model& model, const Solution& solution);

/// Text as a JSON string, numbers as JSON numbers (null for what is not finite).
std::string jsonText(const std::string& text);
std::string jsonNumber(double value);

} // namespace examples

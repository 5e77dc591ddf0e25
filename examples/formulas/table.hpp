// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "interptable.hpp"

#include "formulas.hpp"

#include <string>
#include <vector>

namespace examples {

/// A table from a file, as a function of formulas.
struct NamedTable
{
    std::string name;
    InterpTable table;
    std::vector<double> x, y; ///< its points, if it has one axis

    /// Reads "mu=steel.csv", "mu,k=steel.csv,cubicspline,linear": names of the columns of values in turn, the file, the
    /// method ("linear") and what holds outside ("clamp"). Raises UsageError for what is none of this, FileError with file
    /// and line for a table that cannot be used.
    static std::vector<NamedTable> parse(const std::string& typed);
};

/// The help text of the option that takes them.
inline constexpr const char* kTableHelp =
    "table as function: METHOD neighbor, linear, piecewisecubic, cubicspline; OUTSIDE clamp, value=V, linear, polynomial, error";

/// Makes the tables known. Raises EvaluationError for a name that is taken or none.
void addTables(qx::Formulas& host, const std::vector<NamedTable>& tables);

} // namespace examples

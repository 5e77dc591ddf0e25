// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "problem.hpp"
#include "solve.hpp"
#include "support/csv.hpp"

#include <array>
#include <iosfwd>

namespace examples {

/// A formula of columns and parameters, to be brought near a column of observations:
///
///     minimise  sum over rows of  w (y - model)^2
struct Fit
{
    std::string model;
    std::string observed;                ///< name of the column y
    std::string weights;                 ///< name of a column w > 0; empty: 1
    std::vector<Variable> parameters;
    std::map<std::string, std::string> definitions;
};

struct FitResult
{
    Solution solution;                   ///< of the parameters
    std::vector<double> error;           ///< standard errors; NaN where the data do not determine a parameter
    std::vector<std::vector<double>> correlation;
    std::vector<double> fitted, residual;
    double sumOfSquares = 0.0, deviation = 0.0, rSquared = 0.0;
    long degreesOfFreedom = 0;
};

/// The column that the model does not mention and that is no weight, where there is exactly one. Raises UsageError.
std::string observedColumn(const Fit& fit, const Table& data);

/// Fits by the optimizer, with derivatives of the model by its parameters evaluated over all rows at once. Standard errors
/// and correlations come from s^2 (J^T W J)^-1 with s^2 = sum / (rows - parameters): Draper, Smith, Applied Regression
/// Analysis, 3rd ed., Wiley 1998, section 24.1. Raises UsageError, FileError, qxbase::Exception.
FitResult fitParameters(const Fit& fit, const Table& data, const SolveOptions& options);

/// Points (column, model) of the fitted curve, ascending: over the column's range where the model needs no other column,
/// otherwise at the data. NaN where the model has no value.
std::vector<std::array<double, 2>> fittedCurve(const Fit& fit, const FitResult& result, const Table& data,
                                               const std::string& over);

void printReport(std::ostream& out, const Fit& fit, const FitResult& result);
void printJson(std::ostream& out, const Fit& fit, const FitResult& result);

} // namespace examples

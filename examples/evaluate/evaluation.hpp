// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas/formula.hpp"
#include "formulas/table.hpp"
#include "support/csv.hpp"

#include <complex>
#include <string>
#include <vector>

/// The values of a formula, one a row. Only one of the two vectors is filled.
struct Column
{
    std::string name;
    std::vector<double> real;
    std::vector<std::complex<double>> complex;
};

struct EvaluationOptions
{
    bool complex = false;           ///< columns are complex; otherwise a complex value is an error
    int threads = 1;
    std::size_t block = 1000;       ///< rows evaluated together
    bool progress = false;          ///< a progress bar from the start, terminal or not; else on a terminal if it takes long
    std::vector<examples::NamedTable> tables; ///< functions that formulas may use
    std::vector<std::string> gradient; ///< adds for each formula its derivatives with respect to these columns
};

/// Evaluates the formulas over all rows of the table, block by block, in parallel.
///
/// The values do not depend on the number of threads. Raises EvaluationError naming the first failing formula at the first
/// failing row of the first failing block.
std::vector<Column> evaluate(const examples::Table& table, const std::vector<examples::Formula>& definitions,
                             const std::vector<examples::Formula>& formulas, const EvaluationOptions& options);

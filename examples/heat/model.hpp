// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas/formula.hpp"
#include "formulas/table.hpp"

#include <complex>
#include <string>
#include <utility>
#include <vector>

namespace examples {

/// A formula on a named boundary, typed as "inlet: 20+5*sin(10*y)".
struct BoundaryFormula
{
    std::string boundary;
    std::string text;

    /// Raises UsageError when there is no colon.
    static BoundaryFormula parse(const std::string& typed);
};

/// Stationary heat conduction, or anything of its form, for u(x, y):
///
///     -div(k grad u) = f       k conductivity (W/(m K)), f source (W/m^3)
///     k du/dn = q              q heat that enters through a boundary (W/m^2), 0 where nothing is said
///     u = g                    on boundaries where it is fixed
///     u = u on the partner     on boundaries that are periodic
///     mean of u = m            over a boundary
///
/// Formulas of x and y (m); k, f and q may also use u (K): q = h*(T0-u) is a film, and f = -i*w*u makes it the
/// harmonic problem in complex arithmetic.
struct HeatModel
{
    std::vector<Formula> definitions;
    std::vector<NamedTable> tables; ///< functions that formulas may use
    std::string conductivity = "1";
    std::string source = "0";
    std::vector<BoundaryFormula> flux;
    std::vector<BoundaryFormula> fixed;
    std::vector<BoundaryFormula> mean;
    std::vector<std::pair<std::string, std::string>> periodic;
};

} // namespace examples

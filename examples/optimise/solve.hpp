// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "model.hpp"
#include "qxrun.hpp"

#include <functional>
#include <string>
#include <vector>

namespace examples {

struct SolveOptions
{
    double tolerance = 1e-8;
    int iterations = 1000;
    int starts = 1;
    bool general = false;    ///< treat a quadratic problem like any other
    std::string printFile;
    qxutil::RunInfo* run = nullptr;
    /// Hears of each iteration: its number, the objective, the largest violation.
    std::function<void(long, double, double)> progress;
};

struct Solution
{
    std::vector<double> x, F;             ///< variables; objective and constraints as they were typed
    std::vector<double> xMultiplier;      ///< reduced gradient: how the objective changes with an active bound
    std::vector<double> multiplier;       ///< of constraint i - 1 at i; in the sign of the user's objective
    int code = 0;
    std::string exit;                     ///< the optimizer's words
    bool solved = false, cancelled = false, quadratic = false;
    int iterations = 0;
    long evaluations = 0;
    double violation = 0.0;
    std::vector<std::vector<double>> path; ///< the iterates, from the start to the end
};

/// Optimises from the start of the problem and from starts - 1 random points; gives the best end.
/// Raises qxbase::Exception without an optimizer library.
Solution solve(const Model& model, const SolveOptions& options);
/// From one point; with a solution to begin from, its multipliers count as well.
Solution solveFrom(const Model& model, const SolveOptions& options, const std::vector<double>& start,
                   const Solution* warm = nullptr);

/// Largest relative difference between gradients of the model and central differences at the start, and where.
struct GradientCheck
{
    double worst = 0.0;
    int row = 0, column = 0;
};
GradientCheck checkGradient(const Model& model);

} // namespace examples

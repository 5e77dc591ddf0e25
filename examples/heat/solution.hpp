// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "assembly.hpp"
#include "mesh.hpp"
#include "model.hpp"

#include "qxrun.hpp"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace examples {

/// Of a clock that never goes back.
double secondsNow();

/// Seconds by phase, in the order in which the phases were met.
class Phases
{
public:
    /// onStart is told the name of each phase as it starts.
    explicit Phases(std::function<void(const std::string&)> onStart = [](const std::string&) {})
        : onStart_(std::move(onStart))
    {
    }

    /// Ends the running phase and starts the next; an empty name only ends.
    void start(const std::string& name);
    const std::vector<std::pair<std::string, double>>& seconds() const { return seconds_; }

private:
    std::function<void(const std::string&)> onStart_;
    std::vector<std::pair<std::string, double>> seconds_;
    double since_ = 0.0;
    bool running_ = false;
    std::size_t current_ = 0;
};

template <class T>
struct Solution
{
    std::vector<T> u;               ///< one number a node
    std::size_t unknowns = 0;       ///< of the reduced system
    std::size_t entries = 0;        ///< of its matrix
    std::size_t constraints = 0;
    int steps = 0;                  ///< of Newton's method; 1 for a linear problem
    double residual = 0.0;          ///< of the reduced system, relative to that of the start
};

struct SolutionOptions
{
    Effort effort;
    double tolerance = 1e-10;       ///< of the relative residual
    int maxSteps = 40;
};

/// Solves a model on a mesh.
///
/// With the conditions N^H u = g and a basis Null, Compl, Range of the null space of N^H (Range = Compl^H N):
///
///     u = Compl y + Null z,   Range^H y = g,   Null^H F(u) = 0
///
/// which Newton's method solves for z with the matrix Null^H J Null and UMFPACK; steps are halved while they do not reduce
/// the residual. Only real problems may be nonlinear.
/// Raises EvaluationError; std::invalid_argument for conditions that contradict each other, a matrix that is singular or
/// nearly so (a solution with less than two digits), and when Newton's method does not converge; qxbase::Exception of the library, qxbase::CancelException when runInfo
/// is cancelled.
template <class T>
Solution<T> solve(const NamedMesh& mesh, const HeatModel& model, const SolutionOptions& options,
                  qxutil::RunInfo& runInfo, Phases& phases);

} // namespace examples

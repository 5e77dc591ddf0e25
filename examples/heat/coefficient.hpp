// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "model.hpp"

#include "formulas.hpp"

#include <complex>
#include <string>
#include <vector>

namespace examples {

/// How the work is cut up.
struct Effort
{
    int threads = 1;
    std::size_t block = 3000;       ///< points evaluated together
    qxutil::RunInfo* run = nullptr; ///< progress and cancel
};

/// Points at which formulas are evaluated.
struct Points
{
    std::vector<double> x, y, u;

    std::size_t size() const { return x.size(); }
    void resize(std::size_t n);
};

/// A formula of x, y and u with its derivative by u, which the evaluation graph makes.
class Coefficient
{
public:
    /// `name` is for messages: "conductivity". Raises EvaluationError with the story for a text that cannot be read.
    Coefficient(const std::string& name, const std::string& text, const HeatModel& model);

    const std::string& name() const { return name_; }
    std::string text() const { return program_.text(formula_); }
    bool dependsOnU() const { return program_.dependsOn(formula_, "u"); }
    /// The derivative by u depends on u itself.
    bool slopeVaries() const { return program_.isNonlinearIn(formula_, {"u"}); }

    /// Value and derivative by u at the points. T is double or std::complex<double>. What fails leaves as the library's
    /// exception.
    template <class T>
    void evaluate(const Points& points, const Effort& effort, std::vector<T>& value, std::vector<T>& slope) const;

private:
    std::string name_;
    qx::Formula formula_;
    qx::Program program_;
};

} // namespace examples

#pragma once

#include "formulas/pointevaluator.hpp"
#include "model.hpp"

#include <complex>
#include <string>
#include <vector>

namespace examples {

/// A formula of x, y and u with its derivative by u, which the evaluation graph makes.
struct Coefficient
{
    std::string name;       ///< for messages: "conductivity"
    EvalTreePtr value;
    EvalTreePtr slope;      ///< null when the formula does not depend on u
    bool slopeVaries = false; ///< the slope depends on u itself
};

/// Points at which formulas are evaluated.
struct Points
{
    std::vector<double> x, y, u;

    std::size_t size() const { return x.size(); }
    void resize(std::size_t n);
};

/// The formulas of a model, read once; evaluators for the threads.
class Coefficients
{
public:
    /// Raises EvaluationError for a definition that cannot be read or hides x, y or u.
    explicit Coefficients(const std::vector<Formula>& definitions);

    /// Reads a formula. Raises EvaluationError with the story when it cannot be read or differentiated.
    Coefficient read(const std::string& name, const std::string& text) const;
    /// For blocks of at most blockSize points.
    BlockEvaluator makeEvaluator(std::size_t blockSize) const;

    /// Value and slope at the points (slope 0 without one). T is double or std::complex<double>.
    template <class T>
    static void evaluate(BlockEvaluator& evaluator, const Coefficient& c, const Points& points, std::vector<T>& value,
                         std::vector<T>& slope);
    /// What stops the formula at these points; empty if nothing does.
    template <class T>
    std::string failure(const Coefficient& c, const Points& points) const;

private:
    std::vector<std::string> names_{"x", "y", "u"};
    Definitions definitions_;
    NodeMakerPtr nodeMaker_;
};

} // namespace examples

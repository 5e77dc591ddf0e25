// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"
#include "varevaluator.hpp"

#include <string>
#include <unordered_map>
#include <vector>

namespace examples {

/// Definitions by name, parsed once.
using Definitions = std::unordered_map<std::string, EvalTreePtr>;

/// What the names in a formula mean: variables have the coordinates of a point, definitions are expanded, "pi" and the
/// imaginary unit "i" are known unless they are given another meaning, functions are the standard ones.
///
/// The ready-made host of formulas.hpp does all this and more, but keeps its graph to itself; here the graph is what counts.
class Host : public VarEvaluator
{
public:
    /// Names and definitions are lent.
    Host(const std::vector<std::string>& variables, const Definitions& definitions, const NodeMakerPtr& nodeMaker);

    /// The number of a variable, or -1.
    int numberOf(const std::string& name) const;
    /// The point that the next evaluation is about, lent.
    void setPoint(const double* x) { x_ = x; }

    using VarEvaluator::eval;
    /// Raises "Unknown_variable_name" with "Name".
    void eval(const VarEvaluatorPtr& evaluator, const std::string& name, unsigned flags, const ValRepPtr& rep,
              const ValRepCachePtr& cache) override;
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override;
    /// Raises "Unknown_function_name" or "Wrong_number_of_function_arguments", each with "Name".
    FunObjPtr getFun(const std::string& name, int nArgs) override;
    FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                           const std::vector<int>& positions) override;

private:
    const Definitions& definitions_;
    std::unordered_map<std::string, int> numbers_;
    std::unordered_map<std::string, FunObjPtr> functions_;
    const double* x_ = nullptr;
};

} // namespace examples

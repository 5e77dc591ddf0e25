#pragma once

#include "support/csv.hpp"

#include "varevaluator.hpp"

#include <map>
#include <string>

/// Definitions by name, parsed once and shared by the evaluators of all threads.
using Definitions = std::map<std::string, EvalTreePtr>;

/// What the names in a formula mean at a range of rows of a table.
///
/// Columns are the basic variables, definitions come through expand(), "pi" and the imaginary unit "i" are known unless a
/// column or definition has that name, and the functions are the standard ones. Table and definitions are lent. One
/// object belongs to one thread; the NodeMaker may be shared.
class PointEvaluator : public VarEvaluator
{
public:
    PointEvaluator(const examples::Table& table, const Definitions& definitions, const NodeMakerPtr& nodeMaker);

    /// The rows that the next evaluation is about. The caller resets its ValRepCache.
    void setRows(std::size_t first, std::size_t count);

    using VarEvaluator::eval;
    /// Fills rep with the rows of a column. Raises "Unknown_variable_name" with "Name".
    void eval(const VarEvaluatorPtr& evaluator, const std::string& name, unsigned flags, const ValRepPtr& rep,
              const ValRepCachePtr& cache) override;
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override;
    /// Raises "Unknown_function_name" or "Wrong_number_of_function_arguments", each with "Name".
    FunObjPtr getFun(const std::string& name, int nArgs) override;
    FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                           const std::vector<int>& positions) override;

private:
    const examples::Table& table_;
    const Definitions& definitions_;
    std::map<std::string, FunObjPtr> functions_;
    std::size_t first_ = 0;
    std::size_t count_ = 0;
};

#pragma once

#include "fwd.hpp"
#include "varevaluator.hpp"

#include <complex>
#include <map>
#include <string>
#include <vector>

namespace examples {

/// Definitions by name, parsed once and shared by the evaluators of all threads.
using Definitions = std::map<std::string, EvalTreePtr>;

/// What the names in a formula mean at a block of points.
///
/// The named columns are the basic variables, definitions come through expand(), "pi" and the imaginary unit "i" are known
/// unless a column or definition has that name, and the functions are the standard ones. Names and definitions are lent.
/// One object belongs to one thread; the NodeMaker may be shared.
class PointEvaluator : public VarEvaluator
{
public:
    PointEvaluator(const std::vector<std::string>& columns, const Definitions& definitions,
                   const NodeMakerPtr& nodeMaker);

    /// The points that the next evaluation is about: for each column its `count` numbers, lent. The caller resets its
    /// ValRepCache.
    void setPoints(std::vector<const double*> values, std::size_t count);

    using VarEvaluator::eval;
    /// Fills rep with a column. Raises "Unknown_variable_name" with "Name".
    void eval(const VarEvaluatorPtr& evaluator, const std::string& name, unsigned flags, const ValRepPtr& rep,
              const ValRepCachePtr& cache) override;
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override;
    /// Raises "Unknown_function_name" or "Wrong_number_of_function_arguments", each with "Name".
    FunObjPtr getFun(const std::string& name, int nArgs) override;
    FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                           const std::vector<int>& positions) override;

private:
    const std::vector<std::string>& columns_;
    const Definitions& definitions_;
    std::map<std::string, FunObjPtr> functions_;
    std::vector<const double*> values_;
    std::size_t count_ = 0;
};

/// A value that is complex where it has to be real.
struct ComplexValue
{
    std::complex<double> value;
};

/// The evaluation of formulas by one thread: an evaluator, a cache and an allocator that belong to it alone.
///
///     BlockEvaluator block(names, definitions, nodeMaker, 1000);
///     block.setPoints({x, y, T}, n);
///     block.values(*tree, out);               // n numbers; further formulas find definitions already computed
class BlockEvaluator
{
public:
    BlockEvaluator(const std::vector<std::string>& columns, const Definitions& definitions,
                   const NodeMakerPtr& nodeMaker, std::size_t blockSize);

    const VarEvaluatorPtr& evaluator() const { return asEvaluator_; }
    /// The next block: values of named variables are kept from one formula to the next, not longer.
    void setPoints(std::vector<const double*> values, std::size_t count);
    /// The values of a formula at the points. Raise the failure of an element as qxbase::Exception; the real form raises
    /// ComplexValue when one of them is complex.
    void values(EvalTree& tree, double* out);
    void values(EvalTree& tree, std::complex<double>* out);

private:
    ValRepPtr evaluate(EvalTree& tree);

    boost::shared_ptr<PointEvaluator> points_;
    VarEvaluatorPtr asEvaluator_;
    ValRepCachePtr cache_;
    std::size_t count_ = 0;
};

} // namespace examples

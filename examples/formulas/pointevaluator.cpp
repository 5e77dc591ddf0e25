#include "pointevaluator.hpp"

#include "arrayalloc.hpp"
#include "evalflags.hpp"
#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <utility>

namespace examples {

PointEvaluator::PointEvaluator(const std::vector<std::string>& columns, const Definitions& definitions,
                               const NodeMakerPtr& nodeMaker)
    : VarEvaluator(nodeMaker, boost::make_shared<ShadowHandler>()), columns_(columns), definitions_(definitions)
{
    std::vector<FunObjPtr> standard;
    getStdFuns(standard);
    for (const FunObjPtr& f : standard)
        functions_.emplace(f->getName(), f);
}

void PointEvaluator::setPoints(std::vector<const double*> values, std::size_t count)
{
    values_ = std::move(values);
    count_ = count;
}

void PointEvaluator::eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
                          const ValRepCachePtr&)
{
    const auto column = std::find(columns_.begin(), columns_.end(), name);
    if (column != columns_.end()) {
        rep->reset(false, false, count_);
        DArrayPtr array;
        rep->addDArray(array);
        std::copy_n(values_[static_cast<std::size_t>(column - columns_.begin())], count_, array->data());
    } else if (name == "pi") {
        rep->reset(true, false, 0);
        boost::shared_ptr<double> number;
        rep->addDScalar(number);
        *number = M_PI;
    } else if (name == "i") {
        rep->reset(true, true, 0);
        boost::shared_ptr<std::complex<double>> number;
        rep->addCScalar(number);
        *number = {0.0, 1.0};
    } else {
        QX_RAISE("pointevaluator", "Unknown_variable_name", "Name", name);
    }
    rep->setEvaluated();
}

EvalNodePtr PointEvaluator::expand(const VarEvaluatorPtr& evaluator, const std::string& name)
{
    const auto at = definitions_.find(name);
    return at == definitions_.end() ? EvalNodePtr() : at->second->getRoot(evaluator);
}

FunObjPtr PointEvaluator::getFun(const std::string& name, int nArgs)
{
    const auto at = functions_.find(name);
    if (at == functions_.end())
        QX_RAISE("pointevaluator", "Unknown_function_name", "Name", name);
    if (at->second->nArgs() != nArgs)
        QX_RAISE("pointevaluator", "Wrong_number_of_function_arguments", "Name", name);
    return at->second;
}

FunObjPtr PointEvaluator::getStringFun(const std::string& name, int, const std::vector<std::string>&,
                                       const std::vector<int>&)
{
    QX_RAISE("pointevaluator", "Unknown_function_name", "Name", name);
}

BlockEvaluator::BlockEvaluator(const std::vector<std::string>& columns, const Definitions& definitions,
                               const NodeMakerPtr& nodeMaker, std::size_t blockSize)
    : points_(boost::make_shared<PointEvaluator>(columns, definitions, nodeMaker)), asEvaluator_(points_),
      cache_(boost::make_shared<ValRepCache>(boost::make_shared<ArrayAllocImpl>(blockSize, 1ul << 24)))
{
}

void BlockEvaluator::setPoints(std::vector<const double*> values, std::size_t count)
{
    points_->setPoints(std::move(values), count);
    cache_->reset();
    count_ = count;
}

ValRepPtr BlockEvaluator::evaluate(EvalTree& tree)
{
    ValRepPtr value = tree.eval(asEvaluator_, cache_, EvalValues);
    value->throwError();
    return value;
}

void BlockEvaluator::values(EvalTree& tree, double* out)
{
    const ValRepPtr value = evaluate(tree);
    if (value->isComplex()) {
        std::vector<std::complex<double>> numbers(count_);
        value->copyToArray(numbers.data(), static_cast<int>(count_), 1);
        for (const std::complex<double>& z : numbers)
            if (z.imag() != 0.0)
                throw ComplexValue{z};
    }
    value->copyToArray(out, static_cast<int>(count_), 1);
}

void BlockEvaluator::values(EvalTree& tree, std::complex<double>* out)
{
    evaluate(tree)->copyToArray(out, static_cast<int>(count_), 1);
}

} // namespace examples

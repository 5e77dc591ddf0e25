#include "pointevaluator.hpp"

#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "qxexception.hpp"

#include <boost/make_shared.hpp>
#include <cmath>

PointEvaluator::PointEvaluator(const examples::Table& table, const Definitions& definitions,
                               const NodeMakerPtr& nodeMaker)
    : VarEvaluator(nodeMaker, boost::make_shared<ShadowHandler>()), table_(table), definitions_(definitions)
{
    std::vector<FunObjPtr> standard;
    getStdFuns(standard);
    for (const FunObjPtr& f : standard)
        functions_.emplace(f->getName(), f);
}

void PointEvaluator::setRows(std::size_t first, std::size_t count)
{
    first_ = first;
    count_ = count;
}

void PointEvaluator::eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
                          const ValRepCachePtr&)
{
    const int column = table_.find(name);
    if (column >= 0) {
        const double* values = table_.columns[static_cast<std::size_t>(column)].data() + first_;
        rep->reset(false, false, count_);
        DArrayPtr array;
        rep->addDArray(array);
        for (std::size_t i = 0; i < count_; ++i)
            (*array)[i] = values[i];
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
        QX_RAISE("evaluate", "Unknown_variable_name", "Name", name);
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
        QX_RAISE("evaluate", "Unknown_function_name", "Name", name);
    if (at->second->nArgs() != nArgs)
        QX_RAISE("evaluate", "Wrong_number_of_function_arguments", "Name", name);
    return at->second;
}

FunObjPtr PointEvaluator::getStringFun(const std::string& name, int, const std::vector<std::string>&,
                                       const std::vector<int>&)
{
    QX_RAISE("evaluate", "Unknown_function_name", "Name", name);
}

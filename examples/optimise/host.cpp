#include "host.hpp"

#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <boost/make_shared.hpp>
#include <cmath>

namespace examples {

Host::Host(const std::vector<std::string>& variables, const Definitions& definitions, const NodeMakerPtr& nodeMaker)
    : VarEvaluator(nodeMaker, boost::make_shared<ShadowHandler>()), definitions_(definitions)
{
    for (std::size_t j = 0; j < variables.size(); ++j)
        numbers_.emplace(variables[j], static_cast<int>(j));
    std::vector<FunObjPtr> standard;
    getStdFuns(standard);
    for (const FunObjPtr& f : standard)
        functions_.emplace(f->getName(), f);
}

int Host::numberOf(const std::string& name) const
{
    const auto at = numbers_.find(name);
    return at == numbers_.end() ? -1 : at->second;
}

void Host::eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep, const ValRepCachePtr&)
{
    const int number = numberOf(name);
    if (number < 0 && name != "pi" && name != "i")
        QX_RAISE("host", "Unknown_variable_name", "Name", name);
    if (number < 0 && name == "i") {
        rep->reset(true, true, 0);
        boost::shared_ptr<std::complex<double>> unit;
        rep->addCScalar(unit);
        *unit = {0.0, 1.0};
    } else {
        rep->reset(true, false, 0);
        boost::shared_ptr<double> value;
        rep->addDScalar(value);
        *value = number < 0 ? M_PI : x_[number];
    }
    rep->setEvaluated();
}

EvalNodePtr Host::expand(const VarEvaluatorPtr& evaluator, const std::string& name)
{
    const auto at = definitions_.find(name);
    return at == definitions_.end() ? EvalNodePtr() : at->second->getRoot(evaluator);
}

FunObjPtr Host::getFun(const std::string& name, int nArgs)
{
    const auto at = functions_.find(name);
    if (at == functions_.end())
        QX_RAISE("host", "Unknown_function_name", "Name", name);
    if (at->second->nArgs() != nArgs)
        QX_RAISE("host", "Wrong_number_of_function_arguments", "Name", name);
    return at->second;
}

FunObjPtr Host::getStringFun(const std::string& name, int, const std::vector<std::string>&, const std::vector<int>&)
{
    QX_RAISE("host", "Unknown_function_name", "Name", name);
}

} // namespace examples

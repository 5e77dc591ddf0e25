// SPDX-License-Identifier: LicenseRef-qxkernel
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
    if (number < 0)
        QX_RAISE("host", "Unknown_variable_name", "Name", name);
    rep->reset(true, false, 0);
    boost::shared_ptr<double> value;
    rep->addDScalar(value);
    *value = x_[number];
    rep->setEvaluated();
}

EvalNodePtr Host::expand(const VarEvaluatorPtr& evaluator, const std::string& name)
{
    if (const auto at = definitions_.find(name); at != definitions_.end())
        return at->second->getRoot(evaluator);
    if (numberOf(name) >= 0)
        return {};
    if (name == "pi") // constants, so that nothing counts as depending on them
        return getNodeMaker()->makeConstNode(M_PI);
    return name == "i" ? getNodeMaker()->makeConstNode(std::complex<double>(0.0, 1.0)) : EvalNodePtr();
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

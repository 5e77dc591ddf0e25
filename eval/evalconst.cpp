// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalconst.hpp"

#include "base/nearestname_detail.hpp"
#include "evalflags.hpp"
#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "funlookup_detail.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"

#include <boost/make_shared.hpp>

namespace {

/// Flags of evaluations that allow no complex number, and of those that do.
constexpr unsigned realFlags = 0x1e;
constexpr unsigned complexFlags = realFlags & ~(EvalKeepReal | EvalNoComplex);

ValRepPtr evaluate(const VarEvaluatorPtr& evaluator, const std::string& text, unsigned flags)
{
    EvalTree tree(text, false);
    return tree.eval(evaluator, boost::make_shared<ValRepCache>(), flags);
}

} // namespace

ConstVarEvaluator::ConstVarEvaluator(const std::vector<std::string>& constants)
    : VarEvaluator(boost::make_shared<NodeMaker>(), boost::make_shared<ShadowHandler>()),
      funs_(qxeval::standardFunctions())
{
    // The evaluation of a definition needs a shared pointer to this object, which does not own it.
    const VarEvaluatorPtr self(VarEvaluatorPtr(), this);
    for (const std::string& constant : constants)
        define(self, constant);
}

ConstVarEvaluator::~ConstVarEvaluator() = default;

void ConstVarEvaluator::define(const VarEvaluatorPtr& self, const std::string& constant)
{
    const std::size_t sign = constant.find('=');
    const std::size_t first = constant.find_first_not_of(" \t");
    if (sign == std::string::npos || first == sign)
        QX_RAISE("evalconst", "Syntax_error_in_expression", "Expression", constant);
    const std::size_t last = constant.find_last_not_of(" \t", sign - 1);
    ValRepPtr value = evaluate(self, constant.substr(sign + 1), complexFlags);
    value->throwError();
    values_[constant.substr(first, last - first + 1)] = value;
}

void ConstVarEvaluator::eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
                             const ValRepCachePtr&)
{
    const auto known = values_.find(name);
    if (known != values_.end()) {
        rep->reset(known->second, false);
    } else if (name == "i" || name == "j") {
        boost::shared_ptr<std::complex<double>> number;
        rep->reset(true, true, 0);
        rep->addCScalar(number);
        *number = std::complex<double>(0.0, 1.0);
        rep->setEvaluated();
    } else {
        QX_RAISE("evalconst", "Unknown_variable_name", qxbase::unknownName(name, qxeval::namesOf(values_)));
    }
}

FunObjPtr ConstVarEvaluator::getFun(const std::string& name, int nArgs)
{
    return qxeval::findFunction(funs_, name, nArgs);
}

FunObjPtr ConstVarEvaluator::getStringFun(const std::string& name, int, const std::vector<std::string>&,
                                          const std::vector<int>&)
{
    QX_RAISE("evalconst", "Unknown_function_name", "Name", name);
}

EvalNodePtr ConstVarEvaluator::expand(const VarEvaluatorPtr&, const std::string&)
{
    return EvalNodePtr();
}

EvalConst::EvalConst(const std::vector<std::string>& constants)
    : evaluator_(boost::make_shared<ConstVarEvaluator>(constants))
{
}

double EvalConst::evalExpr(const std::string& text) const
{
    const ValRepPtr value = evaluate(evaluator_, text, realFlags);
    if (value->isComplex())
        QX_RAISE("evalconst", "Complex_number_in_real_expression");
    return value->getDouble();
}

std::complex<double> EvalConst::evalExprComplex(const std::string& text) const
{
    return evaluate(evaluator_, text, complexFlags)->getComplex();
}

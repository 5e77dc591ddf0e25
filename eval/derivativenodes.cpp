// SPDX-License-Identifier: LicenseRef-qxkernel
#include "derivativenodes.hpp"

#include "errinfo.hpp"
#include "evalrep_detail.hpp"
#include "graphwalk_detail.hpp"
#include "nodemaker.hpp"
#include "noderelease_detail.hpp"
#include "qxexception.hpp"
#include "stackroom_detail.hpp"
#include "stagedprogram_detail.hpp"
#include "valrepcache.hpp"
#include "varevaluator.hpp"

#include <ostream>

namespace {

constexpr unsigned numbersWanted = EvalValues | EvalGatherBVars;

bool isVariable(const EvalNode& node)
{
    return dynamic_cast<const VarNode*>(&node) != nullptr;
}

void print(std::ostream& out, const std::string& name, const EvalNodes& args)
{
    qxeval::requireStack();
    out << name << '(';
    for (std::size_t i = 0; i < args.size(); ++i)
        out << (i ? "," : "") << *args[i];
    out << ')';
}

/// The root of a derivative that is resolved by the evaluator: taken from the shadow, made anew for a new version.
template <class Resolve>
EvalNodePtr resolved(const EvalNode& node, const VarEvaluatorPtr& evaluator, Resolve&& resolve)
{
    qxeval::requireStack();
    boost::shared_ptr<DiffNodeShadow> shadow;
    node.getShadow(evaluator, shadow);
    if (shadow->shouldUpdateCache(evaluator->getVersion()))
        shadow->initCache(evaluator, resolve());
    return shadow->root;
}

/// Derivatives of derivatives grow by a factor with each: beyond this many distinct operations they are refused.
constexpr std::size_t mostOperations = std::size_t(1) << 17;

/// The derivative of a resolved derivative.
EvalNodePtr higherDerivative(const EvalNodePtr& root, const std::string& var, const VarEvaluatorPtr& evaluator)
{
    const EvalNodePtr result = root->diff(var, evaluator);
    if (qxeval::countOperations(*result, mostOperations) > mostOperations)
        QX_RAISE("evalnodes", "Derivative_too_large", "Operations", static_cast<unsigned long>(mostOperations));
    return result;
}

/// Opens a line of the record of rep: "message" = message.
ErrInfo& newLine(const ValRepPtr& rep, const char* message, int line)
{
    ErrInfo& errors = *rep->getErrors();
    errors.newLine("evalnodes", line);
    errors["message"] = message;
    return errors;
}

/// The value that the cache keeps under a key: filled by compute(rep) once in an evaluation, a NaN again as a variable's
/// is. A complex value where none is allowed becomes a NaN of `var`.
template <class Compute>
ValRepPtr keptValue(const std::string& key, const std::string& var, const VarEvaluatorPtr& evaluator,
                    const ValRepCachePtr& cache, unsigned flags, Compute&& compute)
{
    const EvaluationScope scope(evaluator);
    ValRepPtr rep = cache->getVar(key, flags).second;
    if (ValRepOps::isKnownFailure(*rep, evaluator, flags))
        return rep;
    if (rep->isNaN())
        rep->reset(cache->getEmpty(), true);
    if (!rep->isEvaluated()) {
        compute(rep);
        rep->setEvaluated();
    }
    if ((flags & EvalValues) && (flags & EvalNoComplex) && !rep->isNaN() && rep->isComplex()) {
        rep->setNaN();
        newLine(rep, "varcmplx", __LINE__)["var"] = var;
    }
    if (rep->isNaN())
        ValRepOps::rememberFailure(*rep, evaluator, flags);
    return rep;
}

} // namespace

// GenOpNode ----------------------------------------------------------------------------------------------------------

GenOpNode::GenOpNode(const std::string& name, EvalNodes args, unsigned long id)
    : EvalNode(id), name_(name), args_(std::move(args))
{
}

GenOpNode::~GenOpNode()
{
    delete program_.load(std::memory_order_relaxed);
    qxeval::releaseLater(args_);
}

ValRepPtr GenOpNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    const EvaluationScope scope(evaluator);
    ValRepPtr value;
    qxeval::programOf(*this, program_).run(evaluator, cache, flags, &value);
    return value;
}

ValRepPtr GenOpNode::apply(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, const std::vector<ValRepPtr>& values,
                           unsigned flags) const
{
    if (!(flags & numbersWanted))
        return ValRep::makeNaN();
    const ValRepPtr result = evaluator->eval(evaluator, name_, values, flags, cache);
    if (!result)
        return ValRep::makeNaN();
    result->setEvaluated();
    return result;
}

boost::shared_ptr<GenOpNodeShadow> GenOpNode::currentShadow(const VarEvaluatorPtr& evaluator) const
{
    boost::shared_ptr<GenOpNodeShadow> shadow;
    getShadow(evaluator, shadow);
    if (shadow->shouldUpdateCache(evaluator->getVersion()))
        shadow->initCache(evaluator);
    return shadow;
}

EvalNodePtr GenOpNode::diff(const std::string& var, const VarEvaluatorPtr& evaluator) const
{
    qxeval::requireStack();
    const auto shadow = currentShadow(evaluator);
    if (shadow->diff && shadow->diffVar == var)
        return shadow->diff;
    const EvalNodePtr result = evaluator->diff(evaluator, name_, args_, var);
    shadow->diff = result;
    shadow->diffVar = var;
    return result;
}

DepInfo GenOpNode::depends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const
{
    qxeval::requireStack();
    const auto shadow = currentShadow(evaluator);
    if (const DepInfo* const known = shadow->depends.find(vars))
        return *known;
    const DepInfo info = evaluator->depends(evaluator, name_, args_, vars);
    shadow->depends.store(vars, info);
    return info;
}

DepInfo GenOpNode::jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const
{
    qxeval::requireStack();
    const auto shadow = currentShadow(evaluator);
    if (const DepInfo* const known = shadow->jacDepends.find(vars))
        return *known;
    const DepInfo info = evaluator->jacDepends(evaluator, name_, args_, vars);
    shadow->jacDepends.store(vars, info);
    return info;
}

EvalNodePtr GenOpNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    qxeval::requireStack();
    EvalNodes args;
    args.reserve(args_.size());
    for (const EvalNodePtr& arg : args_)
        args.push_back(arg->simplify(evaluator));
    return evaluator->getNodeMaker()->makeGenOpNode(name_, args);
}

void GenOpNode::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const
{
    qxeval::requireStack();
    if (seen.insert(getId()).inserted)
        evaluator->gatherBVars(evaluator, name_, args_, seen, names);
}

void GenOpNode::ostreamOperator(std::ostream& out) const
{
    print(out, name_, args_);
}

// VarDiffNode --------------------------------------------------------------------------------------------------------

VarDiffNode::VarDiffNode(const EvalNodePtr& base, const std::string& name, const std::string& var, unsigned long id)
    : EvalNode(id), base_(base), name_(name), var_(var), text_("d(" + name + ',' + var + ')'),
      key_(ValRepCache::derivativeMark + text_)
{
}

VarDiffNode::~VarDiffNode()
{
    qxeval::releaseLater(base_);
}

EvalNodePtr VarDiffNode::resolve(const VarEvaluatorPtr& evaluator) const
{
    return resolved(*this, evaluator, [&] {
        const RecLimCheck check(evaluator, name_);
        check.throwError();
        return evaluator->diff(evaluator, name_, var_);
    });
}

ValRepPtr VarDiffNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    return keptValue(key_, name_, evaluator, cache, flags,
                     [&](const ValRepPtr& rep) { compute(rep, evaluator, cache, flags); });
}

void VarDiffNode::compute(const ValRepPtr& rep, const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache,
                          unsigned flags) const
{
    EvalNodePtr root;
    try {
        root = resolve(evaluator);
    } catch (const qxbase::Exception& e) {
        const std::string id = e.getId();
        if (id != "circvar" && id != "Expression_nested_too_deeply")
            throw;
        rep->setNaN(); // what raises in a derivative is a NaN in an evaluation
        newLine(rep, id.c_str(), __LINE__)["var"] = name_;
        return;
    }
    const RecLimCheck check(evaluator, text_);
    if (check.isError()) {
        rep->setNaN();
        rep->getErrors()->append(*check.getErrors());
        return;
    }
    const ValRepPtr value = root->eval(evaluator, cache, flags);
    rep->reset(value, true);
    if ((flags & EvalValues) && rep->isNaN())
        newLine(rep, "diffvareval", __LINE__)["var"] = name_;
}

EvalNodePtr VarDiffNode::diff(const std::string& var, const VarEvaluatorPtr& evaluator) const
{
    return higherDerivative(resolve(evaluator), var, evaluator);
}

DepInfo VarDiffNode::depends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const
{
    return resolve(evaluator)->depends(vars, evaluator);
}

DepInfo VarDiffNode::jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const
{
    return resolve(evaluator)->jacDepends(vars, evaluator);
}

EvalNodePtr VarDiffNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    return evaluator->getNodeMaker()->makeVarDiffNode(base_, name_, var_);
}

void VarDiffNode::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const
{
    if (seen.insert(getId()).inserted)
        resolve(evaluator)->gatherBVars(evaluator, seen, names);
}

void VarDiffNode::ostreamOperator(std::ostream& out) const
{
    out << text_;
}

// DiffNode -----------------------------------------------------------------------------------------------------------

DiffNode::DiffNode(const EvalNodePtr& expr, const EvalNodePtr& var, unsigned mode, unsigned long id)
    : EvalNode(id), expr_(expr), var_(var), mode_(mode), key_(ValRepCache::derivativeMark + std::to_string(id))
{
}

DiffNode::~DiffNode()
{
    qxeval::releaseLater(expr_);
    qxeval::releaseLater(var_);
}

EvalNodePtr DiffNode::resolve(const VarEvaluatorPtr& evaluator) const
{
    return resolved(*this, evaluator, [&] {
        if (!isVariable(*var_))
            QX_RAISE("evalnodes", "Can_only_diff_wrt_variables");
        return expr_->diff(var_->getVarName(), evaluator);
    });
}

ValRepPtr DiffNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    const EvalNodePtr root = resolve(evaluator);
    return keptValue(key_, var_->getVarName(), evaluator, cache, flags, [&](const ValRepPtr& rep) {
        if (root->isZero() && !(flags & numbersWanted))
            rep->setNaN();
        else
            rep->reset(root->eval(evaluator, cache, flags), true);
    });
}

EvalNodePtr DiffNode::diff(const std::string& var, const VarEvaluatorPtr& evaluator) const
{
    return higherDerivative(resolve(evaluator), var, evaluator);
}

DepInfo DiffNode::depends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const
{
    return resolve(evaluator)->depends(vars, evaluator);
}

DepInfo DiffNode::jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const
{
    return resolve(evaluator)->jacDepends(vars, evaluator);
}

EvalNodePtr DiffNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    qxeval::requireStack();
    return evaluator->getNodeMaker()->makeDiffNode(expr_->simplify(evaluator), var_, mode_);
}

void DiffNode::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const
{
    if (seen.insert(getId()).inserted)
        resolve(evaluator)->gatherBVars(evaluator, seen, names);
}

void DiffNode::ostreamOperator(std::ostream& out) const
{
    print(out, "d", {expr_, var_});
}

// Dependency tests ---------------------------------------------------------------------------------------------------

DependencyTestNode::DependencyTestNode(const Form& form, const EvalNodePtr& expr, const EvalNodePtr& var,
                                       unsigned long id)
    : EvalNode(id), form_(form), expr_(expr), var_(var)
{
    if (var_ && !var_->getVarName().empty())
        vars_.push_back(var_->getVarName());
}

DependencyTestNode::~DependencyTestNode()
{
    qxeval::releaseLater(expr_);
    qxeval::releaseLater(var_);
}

ValRepPtr DependencyTestNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr&, unsigned flags) const
{
    qxeval::requireStack();
    if (var_ && !isVariable(*var_))
        QX_RAISE("evalnodes", "Can_only_test_dependency_wrt_variables");
    if (expr_->isZero() && !(flags & numbersWanted))
        return ValRep::makeNaN();
    boost::shared_ptr<ProxyNodeShadow> shadow;
    getShadow(evaluator, shadow);
    if (shadow->shouldUpdateCache(evaluator->getVersion()))
        shadow->initCache(evaluator);
    DepCache& kept = form_.jacobian ? shadow->jacDepends : shadow->depends;
    if (!kept.find(vars_))
        kept.store(vars_, form_.jacobian ? expr_->jacDepends(vars_, evaluator) : expr_->depends(vars_, evaluator));
    const DepInfo& info = *kept.find(vars_);
    return info.isSolDepAll() || info.isParDepAll() ? ValRep::make(1.0) : ValRep::makeZero();
}

EvalNodePtr DependencyTestNode::diff(const std::string&, const VarEvaluatorPtr& evaluator) const
{
    return evaluator->getNodeMaker()->makeZeroNode();
}

EvalNodePtr DependencyTestNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    NodeMaker& maker = *evaluator->getNodeMaker();
    if (form_.jacobian)
        return var_ ? maker.makeJacDepNode(expr_, var_) : maker.makeJacUDepNode(expr_);
    return var_ ? maker.makeDepNode(expr_, var_) : maker.makeUDepNode(expr_);
}

/// The value is a number: no variable is read for it.
void DependencyTestNode::gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const {}

void DependencyTestNode::ostreamOperator(std::ostream& out) const
{
    print(out, form_.printedName, var_ ? EvalNodes{expr_, var_} : EvalNodes{expr_});
}

DepNode::DepNode(const EvalNodePtr& expr, const EvalNodePtr& var, unsigned long id)
    : DependencyTestNode({"DepNode", "depends", false}, expr, var, id)
{
}

UDepNode::UDepNode(const EvalNodePtr& expr, unsigned long id)
    : DependencyTestNode({"UDepNode", "depends", false}, expr, EvalNodePtr(), id)
{
}

JacDepNode::JacDepNode(const EvalNodePtr& expr, const EvalNodePtr& var, unsigned long id)
    : DependencyTestNode({"JacDepNode", "jacdepends", true}, expr, var, id)
{
}

JacUDepNode::JacUDepNode(const EvalNodePtr& expr, unsigned long id)
    : DependencyTestNode({"JacUDepNode", "isnonlinear", true}, expr, EvalNodePtr(), id)
{
}

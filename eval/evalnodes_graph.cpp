// SPDX-License-Identifier: LicenseRef-qxkernel
// What operations, proxies and variables know about their dependence on variables: derivative, dependence, simplified
// form, basic variables. The walks over operations are iterative and visit each node once.

#include "evalfun.hpp"
#include "evalnodes.hpp"
#include "evalshadow.hpp"
#include "graphwalk_detail.hpp"
#include "nodemaker.hpp"
#include "varevaluator.hpp"

namespace {

using Names = std::vector<std::string>;

bool dependsOnAnything(const DepInfo& info)
{
    return info.isSolDepAll() || info.isParDepAll();
}

/// The shadow of a node, filled at the evaluator's version.
boost::shared_ptr<ProxyNodeShadow> currentShadow(const EvalNode& node, const VarEvaluatorPtr& evaluator)
{
    boost::shared_ptr<ProxyNodeShadow> shadow;
    node.getShadow(evaluator, shadow);
    if (shadow->shouldUpdateCache(evaluator->getVersion()))
        shadow->initCache(evaluator);
    return shadow;
}

/// The chain rule:   d f(a1 .. an) / dx = sum over i of  (df/dai) (dai/dx),   without the terms that are zero.
class DiffPass
{
public:
    using Result = EvalNodePtr;

    DiffPass(const std::string& var, const VarEvaluatorPtr& evaluator)
        : var_(var), evaluator_(evaluator), maker_(evaluator->getNodeMaker())
    {
    }

    Result leaf(const EvalNode& node) { return node.diff(var_, evaluator_); }

    bool known(const ProxyNode& proxy, Result& result)
    {
        if (!proxy.isShared())
            return false;
        const auto shadow = currentShadow(proxy, evaluator_);
        if (!shadow->diff || shadow->diffVar != var_)
            return false;
        result = shadow->diff;
        return true;
    }

    void done(const ProxyNode& proxy, const Result& result)
    {
        if (proxy.isShared())
            store(proxy, result);
    }

    void store(const EvalNode& node, const Result& result)
    {
        const auto shadow = currentShadow(node, evaluator_);
        shadow->diff = result;
        shadow->diffVar = var_;
    }

    Result combine(const OpNode& op, const std::vector<Result>& argDiffs)
    {
        EvalNodePtr sum;
        for (std::size_t i = 0; i < argDiffs.size(); ++i) {
            if (argDiffs[i]->isZero())
                continue;
            const EvalNodePtr partial = op.getFun()->diffRule(op.getArgs(), static_cast<int>(i) + 1, maker_);
            if (partial->isZero())
                continue;
            const EvalNodePtr term = maker_->makeOpNode(TIMES, partial, argDiffs[i]);
            sum = sum ? maker_->makeOpNode(PLUS, sum, term) : term;
        }
        return sum ? sum : maker_->makeZeroNode();
    }

private:
    const std::string& var_;
    const VarEvaluatorPtr& evaluator_;
    const NodeMakerPtr& maker_;
};

/// Dependence: the union over the arguments, without those in which the function is linear with a zero partial.
class DependsPass
{
public:
    using Result = DepInfo;

    DependsPass(const Names& vars, const VarEvaluatorPtr& evaluator) : query_(vars), vars_(vars), evaluator_(evaluator) {}

    Result leaf(const EvalNode& node) { return node.depends(vars_, evaluator_); }

    bool known(const ProxyNode& proxy, Result& result)
    {
        if (!proxy.isShared())
            return false;
        const auto shadow = currentShadow(proxy, evaluator_);
        const DepInfo* const info = shadow->depends.find(vars_);
        if (!info)
            return false;
        result = *info;
        return true;
    }

    void done(const ProxyNode& proxy, const Result& result)
    {
        if (proxy.isShared())
            currentShadow(proxy, evaluator_)->depends.store(vars_, result);
    }

    Result combine(const OpNode& op, const std::vector<Result>& args)
    {
        DepInfo info;
        for (std::size_t i = 0; i < args.size(); ++i) {
            const int number = static_cast<int>(i) + 1;
            if (op.getFun()->isLinear(number)
                && op.getFun()->diffRule(op.getArgs(), number, evaluator_->getNodeMaker())->isZero())
                continue;
            info |= args[i];
        }
        return info;
    }

private:
    const DepQuery query_;
    const Names& vars_;
    const VarEvaluatorPtr& evaluator_;
};

/// Dependence of an expression and of its derivatives.
struct BothInfos
{
    DepInfo value;
    DepInfo jacobian;
};

/// Dependence of the derivatives, by d(f(a))/dx = f_a(a) da/dx: a linear argument gives what its partial and its own
/// derivative depend on, any other all that it depends on itself.
class JacDependsPass
{
public:
    using Result = BothInfos;

    JacDependsPass(const Names& vars, const VarEvaluatorPtr& evaluator)
        : vars_(vars), evaluator_(evaluator), depends_(vars, evaluator)
    {
    }

    Result leaf(const EvalNode& node) { return {depends_.leaf(node), node.jacDepends(vars_, evaluator_)}; }

    bool known(const ProxyNode& proxy, Result& result)
    {
        if (!depends_.known(proxy, result.value))
            return false;
        const DepInfo* const info = currentShadow(proxy, evaluator_)->jacDepends.find(vars_);
        if (!info)
            return false;
        result.jacobian = *info;
        return true;
    }

    void done(const ProxyNode& proxy, const Result& result)
    {
        if (!proxy.isShared())
            return;
        depends_.done(proxy, result.value);
        currentShadow(proxy, evaluator_)->jacDepends.store(vars_, result.jacobian);
    }

    Result combine(const OpNode& op, const std::vector<Result>& args)
    {
        Result result;
        for (std::size_t i = 0; i < args.size(); ++i) {
            const int number = static_cast<int>(i) + 1;
            const bool linear = op.getFun()->isLinear(number);
            const EvalNodePtr partial =
                linear ? op.getFun()->diffRule(op.getArgs(), number, evaluator_->getNodeMaker()) : EvalNodePtr();
            if (linear && partial->isZero())
                continue;
            result.value |= args[i].value;
            if (!dependsOnAnything(args[i].value))
                continue;
            if (linear) {
                result.jacobian.setJacDep(dependenceOf(partial, op, args), args[i].value);
                result.jacobian |= args[i].jacobian;
            } else {
                result.jacobian |= args[i].value;
            }
        }
        return result;
    }

private:
    /// The partial of a product is another argument, whose dependence is known.
    DepInfo dependenceOf(const EvalNodePtr& partial, const OpNode& op, const std::vector<Result>& args)
    {
        for (std::size_t j = 0; j < args.size(); ++j)
            if (op.getArgs()[j] == partial)
                return args[j].value;
        return partial->depends(vars_, evaluator_);
    }

    const Names& vars_;
    const VarEvaluatorPtr& evaluator_;
    DependsPass depends_;
};

/// Rebuilds bottom up through the functions' rules.
class SimplifyPass
{
public:
    using Result = EvalNodePtr;

    explicit SimplifyPass(const VarEvaluatorPtr& evaluator) : evaluator_(evaluator) {}

    Result leaf(const EvalNode& node) { return node.simplify(evaluator_); }
    bool known(const ProxyNode&, Result&) { return false; }
    void done(const ProxyNode&, const Result&) {}
    Result combine(const OpNode& op, const std::vector<Result>& args)
    {
        return op.getFun()->simpRule(op.getFun(), args, evaluator_->getNodeMaker());
    }

private:
    const VarEvaluatorPtr& evaluator_;
};

/// Asks all nodes below for their basic variables, each once; there is no result to combine.
class GatherPass
{
public:
    struct Result
    {
    };

    GatherPass(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names)
        : evaluator_(evaluator), seen_(seen), names_(names)
    {
    }

    Result leaf(const EvalNode& node)
    {
        node.gatherBVars(evaluator_, seen_, names_);
        return {};
    }
    bool known(const ProxyNode& proxy, Result&) { return seen_.contains(proxy.getId()); }
    void done(const ProxyNode& proxy, const Result&) { seen_.insert(proxy.getId()); }
    Result combine(const OpNode& op, const std::vector<Result>&)
    {
        seen_.insert(op.getId());
        return {};
    }

private:
    const VarEvaluatorPtr& evaluator_;
    NodeIdSet& seen_;
    NameSet& names_;
};

/// Enters a variable for the length of a walk over its definition. Raises "circvar" for one defined through itself.
class DefinitionScope
{
public:
    DefinitionScope(const VarEvaluatorPtr& evaluator, const std::string& name) : check_(evaluator, name)
    {
        check_.throwError();
    }

private:
    const RecLimCheck check_;
};

boost::shared_ptr<VarNodeShadow> currentVarShadow(const VarNode& node, const VarEvaluatorPtr& evaluator)
{
    boost::shared_ptr<VarNodeShadow> shadow;
    node.getShadow(evaluator, shadow);
    if (shadow->shouldUpdateCache(evaluator->getVersion()))
        shadow->initCache(evaluator, node.getVarName());
    return shadow;
}

} // namespace

// Operations ---------------------------------------------------------------------------------------------------------

EvalNodePtr OpNode::diff(const std::string& var, const VarEvaluatorPtr& evaluator) const
{
    const auto shadow = currentShadow(*this, evaluator);
    if (shadow->diff && shadow->diffVar == var)
        return shadow->diff;
    DiffPass pass(var, evaluator);
    const EvalNodePtr result = qxeval::walkGraph(*this, pass);
    pass.store(*this, result);
    return result;
}

DepInfo OpNode::depends(const Names& vars, const VarEvaluatorPtr& evaluator) const
{
    DependsPass pass(vars, evaluator);
    return qxeval::walkGraph(*this, pass);
}

DepInfo OpNode::jacDepends(const Names& vars, const VarEvaluatorPtr& evaluator) const
{
    JacDependsPass pass(vars, evaluator);
    return qxeval::walkGraph(*this, pass).jacobian;
}

EvalNodePtr OpNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    SimplifyPass pass(evaluator);
    return qxeval::walkGraph(*this, pass);
}

void OpNode::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const
{
    GatherPass pass(evaluator, seen, names);
    qxeval::walkGraph(*this, pass);
}

// Proxies: the walk looks through them and memoises at those that are shared ------------------------------------------

EvalNodePtr ProxyNode::diff(const std::string& var, const VarEvaluatorPtr& evaluator) const
{
    if (!isShared())
        return target_->diff(var, evaluator);
    DiffPass pass(var, evaluator);
    EvalNodePtr result;
    if (!pass.known(*this, result)) {
        result = target_->diff(var, evaluator);
        pass.done(*this, result);
    }
    return result;
}

DepInfo ProxyNode::depends(const Names& vars, const VarEvaluatorPtr& evaluator) const
{
    if (!isShared())
        return target_->depends(vars, evaluator);
    DependsPass pass(vars, evaluator);
    DepInfo result;
    if (!pass.known(*this, result)) {
        result = target_->depends(vars, evaluator);
        pass.done(*this, result);
    }
    return result;
}

DepInfo ProxyNode::jacDepends(const Names& vars, const VarEvaluatorPtr& evaluator) const
{
    if (!isShared())
        return target_->jacDepends(vars, evaluator);
    if (const DepInfo* const info = currentShadow(*this, evaluator)->jacDepends.find(vars))
        return *info;
    const DepInfo result = target_->jacDepends(vars, evaluator);
    currentShadow(*this, evaluator)->jacDepends.store(vars, result);
    return result;
}

EvalNodePtr ProxyNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    return target_->simplify(evaluator);
}

void ProxyNode::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const
{
    if (seen.insert(getId()).inserted)
        target_->gatherBVars(evaluator, seen, names);
}

// Variables ----------------------------------------------------------------------------------------------------------

EvalNodePtr VarNode::diff(const std::string& var, const VarEvaluatorPtr& evaluator) const
{
    const NodeMakerPtr& maker = evaluator->getNodeMaker();
    if (evaluator->isSameVariable(name_, var))
        return maker->makeUnitNode();
    const auto shadow = currentVarShadow(*this, evaluator);
    if (const QxHashLookup hit = shadow->diffs.lookup(var))
        return shadow->diffs.at(hit.slot);

    const DefinitionScope scope(evaluator, name_);
    const bool varies = !evaluator->diff(evaluator, name_, var)->isZero();
    const EvalNodePtr result =
        varies ? maker->makeVarDiffNode(maker->makeVarNode(name_), name_, var) : maker->makeZeroNode();
    shadow->diffs.insert(var, result);
    return result;
}

DepInfo VarNode::depends(const Names& vars, const VarEvaluatorPtr& evaluator) const
{
    const auto shadow = currentVarShadow(*this, evaluator);
    if (const DepInfo* const info = shadow->depends.find(vars))
        return *info;
    const DefinitionScope scope(evaluator, name_);
    const DepInfo info = evaluator->depends(evaluator, name_, vars);
    shadow->depends.store(vars, info);
    return info;
}

DepInfo VarNode::jacDepends(const Names& vars, const VarEvaluatorPtr& evaluator) const
{
    const auto shadow = currentVarShadow(*this, evaluator);
    if (const DepInfo* const info = shadow->jacDepends.find(vars))
        return *info;
    const DefinitionScope scope(evaluator, name_);
    const DepInfo info = evaluator->jacDepends(evaluator, name_, vars);
    shadow->jacDepends.store(vars, info);
    return info;
}

/// A variable whose definition simplifies to a constant is that constant; any other stays a variable.
EvalNodePtr VarNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    const auto shadow = currentVarShadow(*this, evaluator);
    if (shadow->simplified)
        return shadow->simplified;
    EvalNodePtr result;
    if (const EvalNodePtr root = shadow->root) {
        const DefinitionScope scope(evaluator, name_);
        result = root->simplify(evaluator);
    }
    if (!result || !result->isScalar())
        result = evaluator->getNodeMaker()->makeVarNode(name_);
    shadow->simplified = result;
    return result;
}

void VarNode::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const
{
    if (!seen.insert(getId()).inserted)
        return;
    const DefinitionScope scope(evaluator, name_);
    evaluator->gatherBVars(evaluator, name_, seen, names);
}

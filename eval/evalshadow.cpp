// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalshadow.hpp"

#include "evalnodes.hpp"
#include "evaltree.hpp"
#include "varevaluator.hpp"

ShadowBase::~ShadowBase() = default;
ProxyNodeShadow::~ProxyNodeShadow() = default;
VarNodeShadow::~VarNodeShadow() = default;
DiffNodeShadow::~DiffNodeShadow() = default;
EvalTreeShadow::~EvalTreeShadow() = default;

bool ShadowBase::shouldUpdateCache(const VersionKeyPtr& current) const
{
    return !version_ || !(*version_ == *current);
}

void ShadowBase::setVersion(const VarEvaluatorPtr& evaluator)
{
    if (!shouldUpdateCache(evaluator->getVersion()))
        return;
    if (version_)
        *version_ = *evaluator->getVersion();
    else
        version_ = boost::make_shared<VersionKey>(*evaluator->getVersion());
}

void DepCache::store(const std::vector<std::string>& vars, const DepInfo& info)
{
    valid_ = false;
    vars_ = vars;
    info_ = info;
    valid_ = true;
}

void ProxyNodeShadow::initCache(const VarEvaluatorPtr& evaluator)
{
    setVersion(evaluator);
    depends.clear();
    jacDepends.clear();
    diff.reset();
}

void VarNodeShadow::initCache(const VarEvaluatorPtr& evaluator, const std::string& name)
{
    root = evaluator->expand(evaluator, name);
    setVersion(evaluator);
    if (!diffs.empty())
        diffs.reset();
    simplified.reset();
    depends.clear();
    jacDepends.clear();
}

void DiffNodeShadow::initCache(const VarEvaluatorPtr& evaluator, const EvalNodePtr& resolved)
{
    root = resolved;
    setVersion(evaluator);
}

void EvalTreeShadow::initCache(const VarEvaluatorPtr& evaluator)
{
    setVersion(evaluator);
    valid = false;
    linear.clear();
}

ShadowHandler::ShadowHandler() = default;
ShadowHandler::~ShadowHandler() = default;

boost::shared_ptr<EvalTreeShadow> ShadowHandler::getEvalTreeShadow(unsigned long treeId)
{
    const QxHashLookup hit = trees_.lookup(treeId);
    if (hit)
        return trees_.at(hit.slot);
    const auto shadow = boost::make_shared<EvalTreeShadow>();
    trees_.insert(treeId, shadow);
    return shadow;
}

bool ShadowHandler::findDefinition(unsigned long nodeId, unsigned long compiler, int& id) const
{
    const QxHashLookup hit = definitions_.lookup(nodeId);
    if (!hit || definitions_.at(hit.slot).first != compiler)
        return false;
    id = definitions_.at(hit.slot).second;
    return true;
}

void ShadowHandler::setDefinition(unsigned long nodeId, unsigned long compiler, int id)
{
    definitions_.at(definitions_.insertKey(nodeId).slot) = {compiler, id};
}

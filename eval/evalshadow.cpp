// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalshadow.hpp"

#include "evalnodes.hpp"
#include "evaltree.hpp"
#include "perthread_detail.hpp"
#include "varevaluator.hpp"

#include <boost/weak_ptr.hpp>

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

namespace {

using Names = std::vector<std::string>;

/// What the queries of a thread share.
struct Lists
{
    const Names* vars = nullptr;           // of the innermost query under way
    boost::shared_ptr<const Names> copy;   // of these; null: no cache has asked for it yet
    boost::weak_ptr<const Names> last;     // made before, perhaps for a query that is over

    /// The copy of a list, the one made last if it says the same.
    boost::shared_ptr<const Names> copyOf(const Names& names)
    {
        if (&names == vars && copy)
            return copy;
        boost::shared_ptr<const Names> made = last.lock();
        if (!made || *made != names)
            last = made = boost::make_shared<const Names>(names);
        if (&names == vars)
            copy = made;
        return made;
    }
};

} // namespace

DepQuery::DepQuery(const Names& vars)
{
    Lists* const lists = qxeval::PerThread<Lists>::get();
    if (!lists || lists->vars == &vars)
        return;
    entered_ = true;
    outerVars_ = lists->vars;
    outerCopy_.swap(lists->copy);
    lists->vars = &vars;
    if (boost::shared_ptr<const Names> last = lists->last.lock(); last && *last == vars)
        lists->copy.swap(last);
}

DepQuery::~DepQuery()
{
    if (!entered_)
        return;
    Lists* const lists = qxeval::PerThread<Lists>::get();
    lists->vars = outerVars_;
    lists->copy.swap(outerCopy_);
}

const DepInfo* DepCache::find(const Names& vars) const
{
    if (!vars_)
        return nullptr;
    const Lists* const lists = qxeval::PerThread<Lists>::get();
    const bool same = lists && lists->vars == &vars && lists->copy == vars_;
    return same || *vars_ == vars ? &info_ : nullptr;
}

void DepCache::store(const Names& vars, const DepInfo& info)
{
    Lists* const lists = qxeval::PerThread<Lists>::get();
    vars_.reset();
    info_ = info;
    vars_ = lists ? lists->copyOf(vars) : boost::make_shared<const Names>(vars);
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

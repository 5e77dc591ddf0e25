// SPDX-License-Identifier: LicenseRef-qxkernel
#include "varevaluator.hpp"

#include "errinfo.hpp"
#include "evalshadow.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "stackroom_detail.hpp"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>

namespace {

/// Variables nested this deep count as defined through themselves.
constexpr int variableDepthLimit = 10000;

} // namespace

unsigned VersionMaster::newKey()
{
    unsigned number;
#pragma omp critical(versionMasterNewKey)
    number = ++counter_;
    return number;
}

VersionKey::VersionKey() : master_(boost::make_shared<VersionMaster>()), number_(master_->newKey()) {}

VersionKey::VersionKey(const VersionKeyPtr& other) : master_(other->master_), number_(master_->newKey()) {}

namespace {

/// Where the next mark begins to count: more apart than anyone evaluates.
std::atomic<std::uint64_t> nextFirstTick{0};

} // namespace

EvaluationMark::EvaluationMark() : tick_(nextFirstTick.fetch_add(std::uint64_t(1) << 40, std::memory_order_relaxed)) {}

RecCount::~RecCount() = default;

void RecCountImpl::enter(const std::string& name, const RecVarData& data)
{
    if (depth_ == 0) {
        start_ = name;
        startData_ = data;
    } else if (!infiniteLoop_) {
        const bool exempt = !name.empty() && name.back() == '}';
        infiniteLoop_ = !exempt && name == start_ && data == startData_;
    }
    ++depth_;
}

void RecCountImpl::leave()
{
    if (--depth_ == 0) {
        start_.clear();
        infiniteLoop_ = false;
    }
}

SerialRecCount::SerialRecCount() : impl_(boost::make_shared<RecCountImpl>()) {}

RecLimCheck::RecLimCheck(const VarEvaluatorPtr& evaluator, const std::string& name) : name_(name)
{
    try {
        evaluator->initRecLimCheck(*this, name);
    } catch (...) {
        leave();
        throw;
    }
}

RecLimCheck::~RecLimCheck()
{
    leave();
}

void RecLimCheck::leave()
{
    if (!count_)
        return;
    count_->leave();
    if (count_->getDepth() == 0)
        count_->getMark().surface();
}

void RecLimCheck::init(const boost::shared_ptr<RecCount>& count, const std::string& name, const RecVarData& data)
{
    count->enter(name, data);
    count_ = count.get(); // from here on leave() has something to take back
}

bool RecLimCheck::isLimitExceeded() const
{
    return isTooDeep() || qxeval::lacksStack(qxeval::variableRoom);
}

bool RecLimCheck::isTooDeep() const
{
    return count_ && count_->getDepth() >= variableDepthLimit;
}

bool RecLimCheck::isInfiniteLoop() const
{
    return count_ && count_->isInfiniteLoop();
}

void RecLimCheck::setCircular(const std::string& name)
{
    if (count_)
        count_->getMark().meetLimit();
    if (!errors_)
        errors_ = boost::make_shared<ErrInfo>();
    const bool stackEnds = !isTooDeep() && !isInfiniteLoop() && qxeval::lacksStack(qxeval::variableRoom);
    errors_->newLine("varevaluator", __LINE__);
    (*errors_)["message"] = stackEnds ? "Expression_nested_too_deeply" : "circvar";
    (*errors_)["var"] = name;
}

bool RecLimCheck::isError() const
{
    return errors_ && !errors_->isEmpty();
}

void RecLimCheck::throwError() const
{
    if (isError())
        throw errors_->makeException();
}

OperatorData::~OperatorData() = default;

VarEvaluator::VarEvaluator(const NodeMakerPtr& nodeMaker, const boost::shared_ptr<ShadowHandler>& shadows)
    : VarEvaluator(boost::make_shared<VersionKey>(), boost::make_shared<SerialRecCount>(),
                   boost::make_shared<unsigned int>(0), nodeMaker, shadows)
{
}

VarEvaluator::VarEvaluator(const VersionKeyPtr& version, const boost::shared_ptr<RecCount>& recCount,
                           const boost::shared_ptr<unsigned int>& diffFlags, const NodeMakerPtr& nodeMaker,
                           const boost::shared_ptr<ShadowHandler>& shadows)
    : version_(version), recCount_(recCount), diffFlags_(diffFlags), nodeMaker_(nodeMaker), shadows_(shadows)
{
}

VarEvaluator::~VarEvaluator() = default;

ValRepPtr VarEvaluator::eval(const VarEvaluatorPtr&, const std::string& op, const std::vector<ValRepPtr>&, unsigned,
                             const ValRepCachePtr&)
{
    QX_RAISE("varevaluator", "Internal_evaluator_error", "Undefined_operator", op);
}

EvalNodePtr VarEvaluator::expand(const VarEvaluatorPtr&, const std::string&)
{
    return EvalNodePtr();
}

EvalNodePtr VarEvaluator::diff(const VarEvaluatorPtr& evaluator, const std::string& name, const std::string& var)
{
    const EvalNodePtr root = evaluator->expand(evaluator, name);
    return root ? root->diff(var, evaluator) : nodeMaker_->makeZeroNode();
}

EvalNodePtr VarEvaluator::diff(const VarEvaluatorPtr&, const std::string& op, const EvalNodes&, const std::string&)
{
    QX_RAISE("varevaluator", "Internal_evaluator_error", "Undefined_operator", op);
}

DepInfo VarEvaluator::depends(const VarEvaluatorPtr& evaluator, const std::string& name,
                              const std::vector<std::string>& vars)
{
    if (const EvalNodePtr root = evaluator->expand(evaluator, name))
        return root->depends(vars, evaluator);
    DepInfo info;
    if (vars.empty() || std::find(vars.begin(), vars.end(), name) != vars.end())
        info.setSolDep(0, 0);
    return info;
}

DepInfo VarEvaluator::depends(const VarEvaluatorPtr& evaluator, const std::string&, const EvalNodes& args,
                              const std::vector<std::string>& vars)
{
    DepInfo info;
    for (const EvalNodePtr& arg : args)
        info |= arg->depends(vars, evaluator);
    return info;
}

DepInfo VarEvaluator::jacDepends(const VarEvaluatorPtr& evaluator, const std::string& name,
                                 const std::vector<std::string>& vars)
{
    const EvalNodePtr root = evaluator->expand(evaluator, name);
    return root ? root->jacDepends(vars, evaluator) : DepInfo();
}

DepInfo VarEvaluator::jacDepends(const VarEvaluatorPtr& evaluator, const std::string&, const EvalNodes& args,
                                 const std::vector<std::string>& vars)
{
    DepInfo info;
    for (const EvalNodePtr& arg : args)
        info |= arg->depends(vars, evaluator);
    return info;
}

void VarEvaluator::gatherBVars(const VarEvaluatorPtr& evaluator, const std::string& name, NodeIdSet& seen,
                               NameSet& names)
{
    if (const EvalNodePtr root = evaluator->expand(evaluator, name))
        root->gatherBVars(evaluator, seen, names);
    else
        names.insert(name);
}

void VarEvaluator::gatherBVars(const VarEvaluatorPtr& evaluator, const std::string&, const EvalNodes& args,
                               NodeIdSet& seen, NameSet& names)
{
    for (const EvalNodePtr& arg : args)
        arg->gatherBVars(evaluator, seen, names);
}

bool VarEvaluator::isOp(const std::string&, int)
{
    return false;
}

std::string VarEvaluator::makeOpCacheName(const std::string& op, const EvalNodes& args)
{
    std::string key = op + '(';
    for (const EvalNodePtr& arg : args)
        key += std::to_string(arg->getId()) + ',';
    key += ')';
    return key;
}

boost::shared_ptr<OperatorData> VarEvaluator::findOpCacheData(const std::string& cacheName)
{
    const auto found = operatorData_.find(cacheName);
    return found == operatorData_.end() ? boost::shared_ptr<OperatorData>() : found->second;
}

void VarEvaluator::addOpCacheData(const std::string& cacheName, const boost::shared_ptr<OperatorData>& data)
{
    operatorData_[cacheName] = data;
}

bool VarEvaluator::isSameVariable(const std::string& a, const std::string& b)
{
    return a == b;
}

void VarEvaluator::initRecLimCheck(RecLimCheck& check, const std::string& name)
{
    check.init(recCount_, name, RecVarData());
    if (check.isLimitExceeded() || check.isInfiniteLoop())
        check.setCircular(name);
}

void VarEvaluator::tic(const std::string&) {}

void VarEvaluator::toc(const std::string&) {}

boost::shared_ptr<EvalTreeShadow> VarEvaluator::getEvalTreeShadow(unsigned long treeId)
{
    return shadows_->getEvalTreeShadow(treeId);
}

void VarEvaluator::updateVersion()
{
    if (version_.use_count() > 1)
        version_->update(); // the evaluators that share the key are to see it
    else
        version_ = boost::make_shared<VersionKey>(version_);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evaltreeset.hpp"

#include "cancel_detail.hpp"
#include "evalflags.hpp"
#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "evaltree.hpp"
#include "qxexception.hpp"
#include "stagedprogram_detail.hpp"
#include "varevaluator.hpp"

EvalTreeSet::EvalTreeSet(std::vector<EvalTreePtr> trees) : trees_(std::move(trees)) {}

EvalTreeSet::~EvalTreeSet() = default;

void EvalTreeSet::prepare(const VarEvaluatorPtr& evaluator)
{
    if (prepared_.load(std::memory_order_acquire))
        return;
    const std::lock_guard<std::mutex> hold(mutex_);
    if (prepared_.load(std::memory_order_relaxed))
        return;
    roots_.clear();
    std::vector<const EvalNode*> nodes;
    for (const EvalTreePtr& tree : trees_) {
        roots_.push_back(tree->getRoot(evaluator));
        if (!roots_.back())
            QX_RAISE("evaltree", "Evaluation_internal_error");
        nodes.push_back(roots_.back().get());
    }
    program_ = qxeval::StagedProgram::compile(nodes);
    prepared_.store(true, std::memory_order_release);
}

void EvalTreeSet::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags,
                       std::vector<ValRepPtr>& values, const qxutil::RunInfo* run)
{
    const qxeval::RunScope cancel(run);
    prepare(evaluator);
    const EvaluationScope scope(evaluator);
    values.resize(trees_.size());
    for (ValRepPtr& v : values)
        v.reset(); // the arrays of the last call serve this one
    if ((flags & (EvalValues | EvalGatherBVars)) != 0) {
        program_->run(evaluator, cache, flags, values.data());
        for (std::size_t i = 0; i < values.size(); ++i)
            trees_[i]->addStory(values[i], flags);
    } else {
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = trees_[i]->eval(evaluator, cache, flags);
    }
}

std::size_t EvalTreeSet::getOperationCount() const
{
    return program_ ? program_->operationCount() : 0;
}

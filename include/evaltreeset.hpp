// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"
#include "qxexport.hpp"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace qxutil {
class RunInfo;
}
namespace qxeval {
class StagedProgram;
}

/// Trees that are always evaluated together, such as a value and its gradient: what they have in common is computed once.
///
/// Common means: the same node of one NodeMaker. Functions and operators of a host are called once for each node.
///
/// Ownership: the trees are shared and must not be assigned to. Threads: any number may evaluate one set, each with an
/// evaluator and a cache of its own.
class QX_API EvalTreeSet
{
public:
    explicit EvalTreeSet(std::vector<EvalTreePtr> trees);
    ~EvalTreeSet();
    EvalTreeSet(const EvalTreeSet&) = delete;
    EvalTreeSet& operator=(const EvalTreeSet&) = delete;

    /// values[i] becomes what tree i gives when it is evaluated on its own, a NaN value with its story included.
    /// The first call parses the trees and finds what they share. Cost: one pass over the points for each distinct
    /// operation; no allocation from the second call on with the same shapes.
    /// Fails: as EvalTree::eval, std::bad_alloc and a cancelled run included; values is then unspecified, the set stays
    /// usable.
    void eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags, std::vector<ValRepPtr>& values,
              const qxutil::RunInfo* run = nullptr);

    const std::vector<EvalTreePtr>& getTrees() const { return trees_; }
    /// Number of distinct operations and calls, for diagnosis; 0 before the first evaluation.
    std::size_t getOperationCount() const;

private:
    void prepare(const VarEvaluatorPtr& evaluator);

    const std::vector<EvalTreePtr> trees_;
    std::vector<EvalNodePtr> roots_; // keep alive what the program refers to
    std::mutex mutex_;
    std::atomic<bool> prepared_{false};
    std::unique_ptr<const qxeval::StagedProgram> program_; // null before the first evaluation
};

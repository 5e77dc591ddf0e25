// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas/program_detail.hpp"

#include <atomic>
#include <mutex>

namespace qx {

/// One evaluation of jobs over points: blocks, threads, failures.
class Evaluation
{
public:
    /// Everything is lent. set evaluates the jobs' trees together; null: there is one job.
    Evaluation(const CompiledFormulas& program, const Names& names, const Columns& columns, std::size_t points,
               const std::vector<Job>& jobs, EvalTreeSet* set, const Options& options);

    Failures run();

private:
    class Lease;

    int threads() const;
    Range rangeOf(std::size_t block) const;
    void throwIfCancelled() const;
    void compute(std::size_t first, qxutil::RunLog* log);
    void block(Worker& worker, std::size_t number);
    bool together(Worker& worker, Range range, std::vector<std::size_t>& failing);
    bool attempt(Worker& worker, std::size_t job, Range range) const;
    bool attemptAt(Worker& worker, std::size_t job, Range range) const;
    bool store(std::size_t job, const ValRepPtr& value, Range range) const;
    template <class Found>
    bool narrow(Worker& worker, std::size_t job, Range range, const Found& found) const;
    void list(Worker& worker, const std::vector<std::size_t>& failing, Range range);
    void raiseFirst(Range range);
    qxbase::Exception story(Worker& worker, std::size_t job, std::size_t point) const;
    [[noreturn]] void raiseNumber(std::size_t job, const ValRepPtr& value) const;

    const CompiledFormulas& program_;
    const Names& names_;
    const Columns& columns_;
    const std::size_t points_;
    const std::vector<Job>& jobs_;
    EvalTreeSet* const set_;
    const Options& options_;
    const std::size_t blocks_;
    const unsigned flags_;

    std::atomic<std::size_t> bad_; ///< the first block that is known to fail, with OnFailure::raise
    std::mutex mutex_;
    Failures failures_;
};

} // namespace qx

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalprogram_detail.hpp"
#include "fwd.hpp"

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

namespace qxeval {

/// How a graph is evaluated: programs over arrays, and between them calls of what has no kernel. These are functions of any
/// number of arguments, functions of a host and operators of a host; each is called once, on the values of its arguments.
///
/// The stage of a node is the number of calls that lie one inside the other below it, its own included. A stage makes its
/// calls, in the order of the text, and then runs the program of its operations. What a later stage or a call needs is kept
/// as a value until its last use. A graph without calls is one program.
///
/// Ownership: the nodes are lent and must live as long as this. Threads: immutable after construction; any number of
/// threads may run it.
class StagedProgram
{
public:
    /// With a result for each root. Cost: time and memory linear in the distinct nodes; no recursion.
    static std::unique_ptr<const StagedProgram> compile(const std::vector<const EvalNode*>& roots);

    /// values[i] becomes the value of root i. Memory: that of the programs, and the values that are kept.
    void run(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags, ValRepPtr* values) const;
    /// Evaluates the leaves, for what that leaves in the cache.
    void visitLeaves(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const;
    /// Distinct operations and calls.
    std::size_t operationCount() const;

private:
    class Compiler;

    struct Source
    {
        const EvalNode* leaf; // evaluates itself; null: the value is kept at a place
        std::size_t place;
        bool last; // nobody reads the place again
    };
    struct Call
    {
        const EvalNode* node;
        std::size_t firstSource, sources;
        std::size_t place; // of the result
    };
    struct Stage
    {
        std::size_t firstCall = 0, calls = 0;
        std::unique_ptr<const Program> program; // null without operations
        std::size_t firstPlace = 0;             // of the program's results
        std::size_t firstDone = 0, done = 0;    // places that nobody reads after this stage
    };

    std::vector<Stage> stages_;
    std::vector<Call> calls_;
    std::vector<Source> sources_, roots_;
    std::vector<std::size_t> done_;
    std::size_t places_ = 0;
    bool isOneProgram_ = false; // whose results are the roots: nothing is kept in between
};

/// The program of the graph below a node, made when it is first asked for and kept by the node at `kept`.
const StagedProgram& programOf(const EvalNode& node, std::atomic<const StagedProgram*>& kept);

} // namespace qxeval

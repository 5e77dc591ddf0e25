// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "functions/kernels_detail.hpp"
#include "fwd.hpp"
#include "qxhash.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class EvalNode;
class OpNode;

namespace qxeval {

/// The operations of a graph in a row, arguments first: what evaluation runs over arrays, without a value object, a
/// reference count or a walk for each operation.
///
/// Each distinct operation stands here once, however often it is referred to. Whatever has no kernel is a leaf that
/// evaluates itself, or is given (StagedProgram).
///
/// The results are those of ValRep::applyOp, bit by bit; whatever is no plain array or number, as well as any failure of an
/// element, is left to it.
///
/// Ownership: the nodes are lent and must live as long as the program. Threads: immutable after construction; any number
/// of threads may run it.
class Program
{
public:
    /// A built-in function of one or two arguments that computes from one place to another.
    static bool hasKernel(const OpNode& op);
    /// Where a run finds the values of nodes, behind no proxies, that it gets from elsewhere.
    using Given = QxHashMap<std::size_t, const EvalNode*>;
    /// A program with a result for each root. Cost: time and memory linear in the distinct operations, about 150 bytes each.
    static std::unique_ptr<const Program> compile(const std::vector<const EvalNode*>& roots, const Given& given);

    /// given: the values of the nodes that compile was told of, at their places. values[i] becomes the value of root i over
    /// the points that the leaves have. Memory beside the leaves and the roots: at most 8 kB (16 kB where complex numbers
    /// turn up), and 2 kB in long rows, for each result that is still needed, at the operation where these are most.
    void run(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags, const ValRepPtr* given,
             ValRepPtr* values) const;
    /// Evaluates the leaves that are not given, for what that leaves in the cache.
    void visitLeaves(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const;
    std::size_t operationCount() const { return operations_.size(); }

private:
    class Compiler;
    class Run;

    using Slot = std::uint32_t;
    static constexpr Slot kNone = ~Slot(0);

    struct Operation
    {
        const FunObj* fun;
        const qxkernels::Unary* unary; // its loops, null when only the object knows them
        qxkernels::BinaryLoop binary;
        Slot x, y;                     // y is kNone for one argument
        Slot out;
        bool lastX, lastY;             // nobody reads the operand after this operation
        bool alwaysReal, mayTurnComplex, toleratesErrors;
        // The next operation is the only reader of this one's result, and both in one pass over real numbers are this loop.
        qxkernels::PairLoop pair;
        Slot z; // the other operand of the next operation
    };

    // Slots are numbered: constants, leaves, registers, results. A register is used by one operation after the other; a
    // result has its slot, and its array, to itself.
    std::vector<double> numbers_;
    std::vector<const EvalNode*> constants_;
    struct Leaf
    {
        const EvalNode* node;
        std::size_t place; // of the value among those that are given; kEvaluated: the node evaluates itself
    };
    static constexpr std::size_t kEvaluated = ~std::size_t(0);

    std::vector<Leaf> leaves_;
    std::vector<Operation> operations_;
    std::vector<Slot> roots_;
    Slot registers_ = 0, results_ = 0;
    bool mayTurnComplex_ = false;

    Slot firstLeaf() const { return static_cast<Slot>(constants_.size()); }
    Slot firstRegister() const { return static_cast<Slot>(constants_.size() + leaves_.size()); }
    Slot firstResult() const { return firstRegister() + registers_; }
    Slot slots() const { return firstResult() + results_; }
};

} // namespace qxeval

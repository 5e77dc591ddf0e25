// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalprogram_detail.hpp"

#include "evalfun_kernel.hpp"
#include "evalnodes.hpp"
#include "evalrep_detail.hpp"
#include "graphwalk_detail.hpp"

namespace qxeval {

bool Program::hasKernel(const OpNode& op)
{
    const FunObj& f = *op.getFun();
    if (!f.isBuiltin() || f.isMulti())
        return false;
    unsigned bits = 0;
    switch (op.getArgs().size()) {
    case 1: return f.nArgs() == 1 && f.unaryInto(nullptr, nullptr, 0, 0, bits); // of no elements: an inquiry
    case 2: return f.nArgs() == 2 && f.binaryInto(nullptr, nullptr, nullptr, 0, 0, bits);
    default: return false;
    }
}

/// First the graph is walked with an explicit stack, each operation taking a number of its own; then the numbers are
/// mapped to slots. A register is free again after the last use of what it holds.
class Program::Compiler
{
public:
    Compiler(Program& program, const Given& given) : program_(program), given_(given) {}

    void compile(const std::vector<const EvalNode*>& roots)
    {
        for (const EvalNode* root : roots)
            walk(root);
        assignSlots();
    }

private:
    // What an operand refers to while slots have no final numbers.
    struct Ref
    {
        enum Kind { Constant, Leaf, Result } kind;
        Slot index;
    };
    struct Draft
    {
        const FunObj* fun;
        Ref x, y;
        bool binary;
        std::size_t lastUse; // number of the last reader; kKept for the result of a root
    };
    struct Frame
    {
        const OpNode* op;
        std::size_t next;
    };
    static constexpr std::size_t kKept = ~std::size_t(0);

    /// Appends the operations below a root that are not there yet. Leaves values_ with one more entry.
    void walk(const EvalNode* root)
    {
        visit(root);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            const EvalNodes& args = frame.op->getArgs();
            if (frame.next < args.size()) {
                visit(args[frame.next++].get());
                continue;
            }
            const bool binary = args.size() == 2;
            const Ref y = values_.back();
            if (binary)
                values_.pop_back();
            const Ref x = values_.back();
            values_.pop_back();
            const Ref result{Ref::Result, static_cast<Slot>(drafts_.size())};
            drafts_.push_back({frame.op->getFun().get(), x, y, binary, 0});
            known_.insert(frame.op, result);
            values_.push_back(result);
            frames_.pop_back();
        }
    }

    void visit(const EvalNode* node)
    {
        const EvalNode* const key = &behindProxies(*node);
        const OpNode* const op = asOperation(key);
        if (const QxHashLookup hit = known_.lookup(key))
            values_.push_back(known_.at(hit.slot));
        else if (op != nullptr && hasKernel(*op) && !given_.lookup(key))
            frames_.push_back({op, 0});
        else
            values_.push_back(leaf(key));
    }

    Ref leaf(const EvalNode* node)
    {
        double number;
        Ref ref;
        if (node->isRealScalar(number)) {
            ref = {Ref::Constant, static_cast<Slot>(program_.constants_.size())};
            program_.constants_.push_back(node);
            program_.numbers_.push_back(number);
        } else {
            const QxHashLookup given = given_.lookup(node);
            ref = {Ref::Leaf, static_cast<Slot>(program_.leaves_.size())};
            program_.leaves_.push_back({node, given ? given_.at(given.slot) : kEvaluated});
        }
        known_.insert(node, ref);
        return ref;
    }

    void assignSlots()
    {
        std::vector<std::size_t> lastOfLeaf(program_.leaves_.size());
        const auto last = [&](const Ref& r) -> std::size_t* {
            return r.kind == Ref::Leaf ? &lastOfLeaf[r.index] : r.kind == Ref::Result ? &drafts_[r.index].lastUse : nullptr;
        };
        for (std::size_t i = 0; i < drafts_.size(); ++i)
            for (const Ref& r : {drafts_[i].x, drafts_[i].y})
                if (std::size_t* const reader = last(r))
                    *reader = i;
        for (const Ref& root : values_)
            if (std::size_t* const reader = last(root))
                *reader = kKept;

        // Registers and results each count from 0 until the number of registers is known.
        std::vector<Slot> free, slotOfResult(drafts_.size());
        for (std::size_t i = 0; i < drafts_.size(); ++i) {
            const Draft& d = drafts_[i];
            Operation op{};
            op.fun = d.fun;
            if (const auto* const f = dynamic_cast<const KernelBinFun*>(d.fun))
                op.binary = f->loop();
            else if (const auto* const g = dynamic_cast<const LoopUnFun*>(d.fun))
                op.unary = g->loops();
            const auto ends = [&](const Ref& r) { return last(r) != nullptr && *last(r) == i; };
            const bool twice = d.binary && d.x.kind == d.y.kind && d.x.index == d.y.index;
            op.lastX = ends(d.x) && !twice; // of two equal operands the second one is the last
            op.lastY = d.binary && ends(d.y);
            for (const auto& [ref, ended] : {std::pair(d.y, op.lastY), std::pair(d.x, op.lastX)})
                if (ended && ref.kind == Ref::Result)
                    free.push_back(slotOfResult[ref.index]);
            if (d.lastUse == kKept) {
                slotOfResult[i] = program_.results_++;
            } else {
                if (free.empty())
                    free.push_back(program_.registers_++);
                slotOfResult[i] = free.back(); // the one that was written or read last
                free.pop_back();
            }
            op.alwaysReal = d.fun->isAlwaysReal();
            op.mayTurnComplex = !d.fun->isRealIfReal() && !op.alwaysReal;
            op.toleratesErrors = ValRepOps::toleratesErrors(*d.fun);
            program_.mayTurnComplex_ = program_.mayTurnComplex_ || op.mayTurnComplex;
            program_.operations_.push_back(op);
        }
        const auto slotOf = [&](const Ref& r) {
            switch (r.kind) {
            case Ref::Constant: return r.index;
            case Ref::Leaf:     return program_.firstLeaf() + r.index;
            case Ref::Result:   break;
            }
            return (drafts_[r.index].lastUse == kKept ? program_.firstResult() : program_.firstRegister()) +
                   slotOfResult[r.index];
        };
        for (std::size_t i = 0; i < drafts_.size(); ++i) {
            Operation& op = program_.operations_[i];
            op.x = slotOf(drafts_[i].x);
            op.y = drafts_[i].binary ? slotOf(drafts_[i].y) : kNone;
            op.out = slotOf({Ref::Result, static_cast<Slot>(i)});
        }
        for (const Ref& root : values_)
            program_.roots_.push_back(slotOf(root));
        for (std::size_t i = 0; i + 1 < drafts_.size(); ++i)
            findPair(program_.operations_[i], program_.operations_[i + 1]);
    }

    /// Marks two operations that can be computed in one pass.
    void findPair(Operation& first, const Operation& second) const
    {
        const bool resultFirst = second.x == first.out, resultSecond = second.y == first.out;
        if (resultFirst == resultSecond || !(resultFirst ? second.lastX : second.lastY) || second.y == kNone)
            return;
        first.pair = qxkernels::kernels().pairOf(first.binary, second.binary, resultFirst);
        first.z = resultFirst ? second.y : second.x;
    }

    Program& program_;
    const Given& given_;
    std::vector<Frame> frames_;
    std::vector<Ref> values_;
    std::vector<Draft> drafts_;
    QxHashMap<Ref, const EvalNode*> known_;
};

std::unique_ptr<const Program> Program::compile(const std::vector<const EvalNode*>& roots, const Given& given)
{
    auto program = std::make_unique<Program>();
    Compiler(*program, given).compile(roots);
    return program;
}

void Program::visitLeaves(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    for (const Leaf& leaf : leaves_)
        if (leaf.place == kEvaluated)
            leaf.node->eval(evaluator, cache, flags);
}

} // namespace qxeval

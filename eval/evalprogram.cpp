// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalprogram_detail.hpp"

#include "cancel_detail.hpp"
#include "evalflags.hpp"
#include "evalfun_kernel.hpp"
#include "evalnodes.hpp"
#include "evalrep_detail.hpp"
#include "functions/kernels_detail.hpp"
#include "graphwalk_detail.hpp"
#include "perthread_detail.hpp"

#include <algorithm>
#include <cstring>
#include <new>

using Ops = ValRepOps;
using qxkernels::kLikeY, qxkernels::kOutComplex, qxkernels::kXComplex, qxkernels::kXScalar;

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

// Compilation --------------------------------------------------------------------------------------------------------

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
            op.isDivision = d.fun->getName() == "/";
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
        const auto* const f = dynamic_cast<const KernelBinFun*>(first.fun);
        const auto* const g = dynamic_cast<const KernelBinFun*>(second.fun);
        if (f == nullptr || g == nullptr)
            return;
        first.pair = qxkernels::kernels().pairOf(f->loop(), g->loop(), resultFirst);
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

// Execution ----------------------------------------------------------------------------------------------------------

namespace {

/// A number for all points, or an array. Complex numbers are (re, im) pairs.
struct Operand
{
    const double* data;
    unsigned kind;

    // The bits that kernels take for x (Shape), and one more.
    static constexpr unsigned kScalar = kXScalar, kComplex = kXComplex;
    static constexpr unsigned kOdd = 1u << 8; // neither real nor complex with an imaginary part that counts

    bool isScalar() const { return (kind & kScalar) != 0; }
    bool isComplex() const { return (kind & kComplex) != 0; }
    bool isPlain() const { return (kind & kOdd) == 0; }
    unsigned shape() const { return kind & (kScalar | kComplex); }
};

/// Complex storage of a value that is really real needs value objects.
unsigned oddness(bool complexStorage, bool isComplex) { return complexStorage == isComplex ? 0u : Operand::kOdd; }

struct Number
{
    double parts[2];
};

/// The registers of the run that computes. One set is enough for a thread: runs nest only while leaves are evaluated,
/// before anything is computed, and so the innermost cache holds it.
class Registers
{
public:
    Registers() = default;
    Registers(const Registers&) = delete;
    Registers& operator=(const Registers&) = delete;
    ~Registers() { discard(); }

    /// At least count buffers of n doubles each, on cache lines of their own and apart by no power of two.
    void provide(std::size_t count, std::size_t n)
    {
        const std::size_t wanted = (n + 7) / 8 * 8 + 40;
        if (wanted == stride_ && buffers_.size() >= count)
            return;
        if (capacity_ < count * wanted) {
            discard();
            block_ = static_cast<double*>(::operator new[](count * wanted * sizeof(double), alignment));
            capacity_ = count * wanted;
        }
        buffers_.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            buffers_[i] = block_ + i * wanted;
        stride_ = wanted;
    }
    double*& operator[](std::size_t i) { return buffers_[i]; }
    /// One that no register number stands for.
    double*& spare() { return buffers_.back(); }
    /// Gives back what only few would want to keep.
    void shrink() noexcept
    {
        if (capacity_ > keptElements)
            discard();
    }

private:
    static constexpr std::align_val_t alignment{64};
    static constexpr std::size_t keptElements = std::size_t(1) << 21;

    void discard() noexcept
    {
        ::operator delete[](block_, alignment);
        block_ = nullptr;
        capacity_ = stride_ = 0;
        buffers_.clear();
    }

    std::vector<double*> buffers_;
    double* block_ = nullptr;
    std::size_t capacity_ = 0, stride_ = 0;
};

/// The slots of a run.
struct Workspace
{
    std::vector<ValRepPtr> values;
    std::vector<Operand> operands;
    std::vector<Number> numbers; // of scalar operands that are computed
};

/// What the runs of one thread use again and again: a workspace for each level of nesting.
struct Workspaces
{
    std::vector<std::unique_ptr<Workspace>> levels;
    std::size_t used = 0;
    Registers registers;
};

/// The workspace of the next level for a scope.
class WorkspaceLease
{
public:
    explicit WorkspaceLease(std::size_t slots) : slots_(slots), all_(PerThread<Workspaces>::get())
    {
        if (all_ == nullptr) {
            own_ = std::make_unique<Workspaces>();
            all_ = own_.get();
        }
        if (all_->used == all_->levels.size())
            all_->levels.push_back(std::make_unique<Workspace>());
        space_ = all_->levels[all_->used].get();
        if (space_->operands.size() < slots) {
            space_->values.resize(slots);
            space_->numbers.resize(slots);
            space_->operands.resize(slots);
        }
        ++all_->used;
    }
    ~WorkspaceLease()
    {
        for (std::size_t i = 0; i < slots_; ++i)
            space_->values[i].reset();
        all_->registers.shrink();
        if (space_->operands.size() > keptSlots)
            *space_ = Workspace();
        --all_->used;
    }
    WorkspaceLease(const WorkspaceLease&) = delete;
    WorkspaceLease& operator=(const WorkspaceLease&) = delete;

    Workspace* operator->() const { return space_; }
    Registers& registers() const { return all_->registers; }

private:
    static constexpr std::size_t keptSlots = std::size_t(1) << 20; // of larger ones the memory goes back

    const std::size_t slots_;
    Workspaces* all_;
    std::unique_ptr<Workspaces> own_; // after the end of the thread's
    Workspace* space_;
};

bool isError(unsigned bits, bool ignored, unsigned flags)
{
    return (bits & kFunFatal) != 0 || ((bits & ~unsigned(kFunComplex)) != 0 && !ignored && (flags & ValRep::kKeepNaN) == 0);
}

} // namespace

class Program::Run
{
public:
    Run(const Program& program, unsigned flags)
        : program_(program), flags_(flags), keepReal_((flags & ValRep::kKeepReal) != 0),
          firstRegister_(program.firstRegister()), firstResult_(program.firstResult()), space_(program.slots()),
          registers_(space_.registers())
    {
    }

    void operator()(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, const ValRepPtr* given, ValRepPtr* results)
    {
        const Slot first = program_.firstLeaf();
        for (Slot i = first; i < firstRegister_; ++i) {
            const Leaf& leaf = program_.leaves_[i - first];
            space_->values[i] = leaf.place == kEvaluated ? leaf.node->eval(evaluator, cache, flags_) : given[leaf.place];
        }
        for (Slot i = first; i < firstRegister_; ++i)
            bind(i);

        std::size_t done = 0;
        if (shape_ != nullptr) {
            for (Slot i = 0; i < program_.constants_.size(); ++i) {
                space_->operands[i].data = &program_.numbers_[i];
                space_->operands[i].kind = Operand::kScalar;
            }
            wide_ = wide_ || (program_.mayTurnComplex_ && !keepReal_);
            registers_.provide(program_.registers_ + 1, (wide_ ? 2 : 1) * size_);
            done = computeAll();
        }
        finish(done, evaluator, cache);
        for (std::size_t i = 0; i < program_.roots_.size(); ++i) {
            const bool last = i + 1 == program_.roots_.size(); // earlier roots may come again
            results[i] = take(program_.roots_[i], last, evaluator, cache);
        }
    }

private:
    /// Makes an operand of a leaf's value.
    void bind(Slot slot)
    {
        const ValRep& v = *space_->values[slot];
        Operand& operand = space_->operands[slot];
        operand.kind = Operand::kOdd;
        if (v.isNaN())
            return;
        if (Ops::needsZeroScalar(v)) {
            static constexpr double zero = 0.0;
            operand = {&zero, Operand::kScalar};
            return;
        }
        if (v.getNBlocks() != 1)
            return;
        operand.data = Ops::firstBlock(v);
        const bool complex = v.isStoredAsComplex();
        unsigned kind = oddness(complex, v.isComplex()) | (complex ? Operand::kComplex : 0u);
        wide_ = wide_ || complex;
        if (v.isScalar()) {
            kind |= Operand::kScalar;
        } else if (shape_ == nullptr) {
            shape_ = &v;
            size_ = v.getSize();
        } else if (v.getSize() != size_ || v.getAllocator() != shape_->getAllocator()) {
            kind |= Operand::kOdd;
        }
        operand.kind = kind;
    }

    /// Where an operation on arrays writes: a result in an array of its own, anything else in a buffer that holds no
    /// operand of another width.
    double* target(const Operation& op, bool complex)
    {
        if (op.out >= firstResult_) {
            ValRepPtr& result = space_->values[op.out];
            result = Ops::newArrayValue(shape_->getAllocator(), size_, complex);
            return Ops::firstBlock(*result);
        }
        double*& buffer = registers_[op.out - firstRegister_];
        const auto inTheWay = [&](Slot s) {
            return s != kNone && space_->operands[s].data == buffer && space_->operands[s].isComplex() != complex;
        };
        if (wide_ && (inTheWay(op.x) || inTheWay(op.y)))
            std::swap(buffer, registers_.spare());
        return buffer;
    }

    enum class Outcome { Done, Failed, Untouched };

    /// What an operation makes of its operands.
    struct Form
    {
        bool computable, scalar, complex;
        unsigned shape; // for the kernel
    };

    __attribute__((noinline)) Form complexForm(const Operation& op, const Operand& x, const Operand& y, bool turns) const
    {
        if (!x.isPlain() || !y.isPlain())
            return {};
        if (op.y == kNone) {
            const bool complex = x.isComplex() || turns;
            return {true, x.isScalar(), complex, x.isComplex() ? kXComplex : complex ? kOutComplex : 0u};
        }
        const bool complex = x.isComplex() || y.isComplex();
        if ((op.alwaysReal && x.isComplex() != y.isComplex()) || (turns && !complex))
            return {};
        return {true, x.isScalar() && y.isScalar(), complex,
                x.shape() | y.shape() << 1 | (y.isComplex() && !x.isComplex() ? kLikeY : 0u)};
    }

    Form formOf(const Operation& op, const Operand& x, const Operand& y) const
    {
        const bool turns = op.mayTurnComplex && !keepReal_;
        if (turns || ((x.kind | y.kind) & ~Operand::kScalar) != 0) [[unlikely]]
            return complexForm(op, x, y, turns);
        const bool scalar = (x.kind & y.kind & Operand::kScalar) != 0;
        return {true, scalar, false, op.y == kNone ? 0u : (x.kind & kXScalar) | (y.kind & kXScalar) << 1};
    }

    /// One operation on plain operands. Failed: its result is a NaN value in its slot, so that the rest needs value
    /// objects. Untouched: it is not for kernels.
    Outcome compute(const Operation& op)
    {
        const bool binary = op.y != kNone;
        const Operand& x = space_->operands[op.x];
        const Operand& y = binary ? space_->operands[op.y] : x;
        const Form form = formOf(op, x, y);
        if (!form.computable) [[unlikely]]
            return Outcome::Untouched;

        double number[2];
        double* const to = form.scalar ? number : target(op, form.complex);
        const std::size_t n = form.scalar ? 1 : size_;
        unsigned bits = 0;
        const bool able = binary ? op.fun->binaryInto(to, x.data, y.data, form.shape, n, bits)
                                 : op.fun->unaryInto(to, x.data, form.shape, n, bits);
        if (!able) [[unlikely]]
            return Outcome::Untouched;
        const bool isComplex = form.complex && (bits & kFunComplex) != 0 && (binary || !op.alwaysReal);
        const unsigned kind = (form.scalar ? Operand::kScalar : 0u) | (form.complex ? Operand::kComplex : 0u);
        if (bits > kFunComplex && isError(bits, op.isDivision, flags_)) [[unlikely]] {
            ValRepPtr& value = space_->values[op.out];
            if (!value)
                value = valueOf({to, kind}, isComplex);
            ValRep::applyOpPost(value, *op.fun, flags_, bits);
            return Outcome::Failed;
        }
        if (form.scalar) {
            keepNumber(op.out, number, form.complex);
            return Outcome::Done;
        }
        if (op.out >= firstResult_)
            Ops::markEvaluated(*space_->values[op.out], isComplex);
        Operand& out = space_->operands[op.out];
        out.data = to;
        out.kind = kind | oddness(form.complex, isComplex);
        return Outcome::Done;
    }

    /// Two operations on real operands in one pass. False, and nothing done, when they are other ones, or numbers only.
    bool computePair(const Operation& first, const Operation& second)
    {
        const Operand &x = space_->operands[first.x], &y = space_->operands[first.y], &z = space_->operands[first.z];
        if (((x.kind | y.kind | z.kind) & ~Operand::kScalar) != 0 || (x.kind & y.kind & Operand::kScalar) != 0)
            return false;
        double* const to = target(second, false);
        first.pair(to, x.data, y.data, z.data, (x.kind & kXScalar) | (y.kind & kXScalar) << 1 | (z.kind & kXScalar) << 2, size_);
        if (second.out >= firstResult_)
            Ops::markEvaluated(*space_->values[second.out], false);
        Operand& out = space_->operands[second.out];
        out.data = to;
        out.kind = 0;
        return true;
    }

    /// The operations that can be computed on plain operands; how many are done.
    std::size_t computeAll()
    {
        const std::size_t count = program_.operations_.size();
        for (std::size_t i = 0; i < count; ++i) {
            RunScope::throwIfCancelled();
            const Operation& op = program_.operations_[i];
            if (op.pair != nullptr && computePair(op, program_.operations_[i + 1])) {
                ++i;
                continue;
            }
            if (const Outcome outcome = compute(op); outcome != Outcome::Done) [[unlikely]]
                return outcome == Outcome::Failed ? i + 1 : i;
        }
        return count;
    }

    /// A scalar result; zeros of any sign become the real number 0.
    void keepNumber(Slot slot, const double* number, bool complex)
    {
        Number& kept = space_->numbers[slot];
        const bool real = !complex || number[1] == 0.0, zero = real && number[0] == 0.0;
        const bool stored = complex && !zero;
        kept = {{zero ? 0.0 : number[0], stored ? number[1] : 0.0}};
        Operand& out = space_->operands[slot];
        out.data = kept.parts;
        out.kind = Operand::kScalar | (stored ? Operand::kComplex : 0u) | oddness(stored, !real);
    }

    /// The remaining operations, on value objects.
    void finish(std::size_t done, const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache)
    {
        for (std::size_t i = done; i < program_.operations_.size(); ++i) {
            RunScope::throwIfCancelled();
            const Operation& op = program_.operations_[i];
            ValRepPtr x = take(op.x, op.lastX, evaluator, cache), value;
            if (op.y == kNone) {
                value = ValRep::applyOp(*op.fun, x, flags_);
            } else {
                ValRepPtr y = take(op.y, op.lastY, evaluator, cache);
                value = ValRep::applyOp(*op.fun, x, y, flags_);
            }
            value->setEvaluated();
            space_->values[op.out] = std::move(value);
        }
    }

    /// The value in a slot; of its last use alone, so that it may be overwritten.
    ValRepPtr take(Slot slot, bool last, const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache)
    {
        if (slot < program_.firstLeaf())
            return program_.constants_[slot]->eval(evaluator, cache, flags_);
        ValRepPtr& value = space_->values[slot];
        if (!value) {
            const Operand& operand = space_->operands[slot];
            value = valueOf(operand, operand.isComplex() && operand.isPlain());
        }
        return last ? std::move(value) : value;
    }

    ValRepPtr valueOf(const Operand& operand, bool isComplex) const
    {
        if (operand.isScalar() && !operand.isComplex() && *operand.data == 0.0)
            return ValRep::makeZero();
        if (operand.isScalar())
            return Ops::newScalarValue(operand.data, operand.isComplex(), isComplex);
        // An array among the operands has set the shape.
        ValRepPtr value = Ops::newArrayValue(shape_->getAllocator(), size_, operand.isComplex()); // NOLINT(clang-analyzer-core.CallAndMessage)
        std::memcpy(Ops::firstBlock(*value), operand.data, (operand.isComplex() ? 2 : 1) * sizeof(double) * size_);
        Ops::markEvaluated(*value, isComplex);
        return value;
    }

    const Program& program_;
    const unsigned flags_;
    const bool keepReal_;
    const Slot firstRegister_, firstResult_;
    const WorkspaceLease space_;
    Registers& registers_;
    const ValRep* shape_ = nullptr; // the first leaf that is an array: size and allocator of all
    std::size_t size_ = 0;
    bool wide_ = false;             // some value may be complex
};

void Program::visitLeaves(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    for (const Leaf& leaf : leaves_)
        if (leaf.place == kEvaluated)
            leaf.node->eval(evaluator, cache, flags);
}

void Program::run(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags, const ValRepPtr* given,
                  ValRepPtr* values) const
{
    Run(*this, flags)(evaluator, cache, given, values);
}

} // namespace qxeval

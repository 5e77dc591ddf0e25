// SPDX-License-Identifier: LicenseRef-qxkernel
// How a program runs. Everything is computed tile by tile: a piece of the points goes through all operations, in registers
// that stay in the first-level cache, before the next piece is looked at.
//
// Which values are real and which complex must be known before the first tile. It is guessed: a function that may turn
// complex is taken to stay real, an operation on complex numbers to give complex ones. What the tiles report tells whether
// that was right for the block as a whole; if not, they run again under the other guess. Whatever is no plain array or
// number, and any failure, is left to value objects, which compute the block anew: they tell which operation fails first.

#include "evalprogram_detail.hpp"

#include "eval/cancel_detail.hpp"
#include "eval/evalrep_detail.hpp"
#include "eval/evalworkspace_detail.hpp"
#include "evalnodes.hpp"

#include <algorithm>

using Ops = ValRepOps;
using qxkernels::kLikeY, qxkernels::kOutComplex, qxkernels::kXComplex, qxkernels::kXScalar;

namespace qxeval {

class Program::Run
{
public:
    Run(const Program& program, unsigned flags)
        : program_(program), kernels_(qxkernels::kernels()), flags_(flags), keepReal_((flags & ValRep::kKeepReal) != 0),
          firstRegister_(program.firstRegister()), firstResult_(program.firstResult()),
          space_(program.slots(), program.operations_.size()), registers_(space_.registers())
    {
    }

    void operator()(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, const ValRepPtr* given, ValRepPtr* results)
    {
        for (Slot i = program_.firstLeaf(); i < firstRegister_; ++i) {
            const Leaf& leaf = program_.leaves_[i - program_.firstLeaf()];
            space_->values[i] = leaf.place != kEvaluated ? given[leaf.place] : leaf.node->eval(evaluator, cache, flags_);
        }
        if (!compute())
            applyToValues(evaluator, cache);
        for (std::size_t i = 0; i < program_.roots_.size(); ++i) {
            const bool last = i + 1 == program_.roots_.size(); // earlier roots may come again
            results[i] = take(program_.roots_[i], last, evaluator, cache);
        }
    }

private:
    enum class Outcome { Done, Otherwise, Failed };

    // A block of up to kWhole points is one tile; pieces of more are shorter, since what comes from memory needs room too.
    // Columns of more than kCached points come from beyond the second-level cache: short tiles keep its prefetchers going.
    static constexpr std::size_t kCached = std::size_t(1) << 17;
    static constexpr std::size_t kWhole = 1024, kTile = 256, kSmallTile = 64, kCacheBytes = std::size_t(1) << 15;
    static constexpr int kMostAttempts = 16;

    /// All operations by kernels. False: they need value objects.
    bool compute()
    {
        Outcome outcome = Outcome::Otherwise;
        for (int attempt = 0; outcome == Outcome::Otherwise && attempt < kMostAttempts; ++attempt) {
            if (!bindOperands())
                break;
            provideRegisters(attempt == 0);
            outcome = firstTile();
            if (outcome == Outcome::Done)
                outcome = otherTiles();
            if (wasted_ > size_ + 4 * kTile)
                break;
        }
        if (outcome == Outcome::Done)
            return true;
        for (Slot i = firstRegister_; i < program_.slots(); ++i)
            space_->values[i].reset();
        return false;
    }

    // ---- operands

    /// Makes operands of the constants and of the values of leaves. False when one is no plain array or number.
    bool bindOperands()
    {
        for (Slot i = 0; i < program_.constants_.size(); ++i) {
            space_->operands[i].data = &program_.numbers_[i];
            space_->operands[i].kind = Operand::kScalar;
        }
        shape_ = nullptr;
        pairedLeaves_ = 0;
        for (Slot i = program_.firstLeaf(); i < firstRegister_; ++i)
            if (!bind(i))
                return false;
        return true;
    }

    bool bind(Slot slot)
    {
        const ValRep& v = *space_->values[slot];
        Operand& operand = space_->operands[slot];
        if (v.isNaN())
            return false;
        if (Ops::needsZeroScalar(v)) {
            static constexpr double zero = 0.0;
            operand.data = &zero;
            operand.kind = Operand::kScalar;
            return true;
        }
        const bool pairs = v.isStoredAsComplex(), complex = v.isComplex();
        if (v.getNBlocks() != 1 || (complex && !pairs))
            return false;
        wide_ = wide_ || complex;
        operand.data = Ops::firstBlock(v);
        operand.kind = complex ? Operand::kComplex : 0u;
        if (v.isScalar()) {
            operand.kind |= Operand::kScalar;
            return true;
        }
        operand.kind |= (pairs ? 2u : 1u) << Operand::kAdvance;
        if (pairs && !complex) {
            operand.kind |= Operand::kPairs;
            ++pairedLeaves_;
        }
        if (shape_ != nullptr)
            return v.getSize() == size_ && v.getAllocator() == shape_->getAllocator();
        shape_ = &v;
        size_ = v.getSize();
        return true;
    }

    /// Buffers for the registers, one that no register number stands for, and those where real and stored complex results
    /// are told apart.
    void provideRegisters(bool first)
    {
        nextExtra_ = program_.registers_ + 1;
        const std::size_t width = wide_ ? 2 : 1;
        tile_ = size_ <= kWhole ? kWhole : size_ <= kCached ? kTile : kSmallTile;
        while (tile_ > kSmallTile && nextExtra_ * tile_ * width * sizeof(double) > kCacheBytes)
            tile_ /= 2;
        if (first) {
            storesComplex_ = wide_ || (program_.mayTurnComplex_ && !keepReal_);
            if (storesComplex_)
                space_->turned.assign(program_.operations_.size(), 0);
        }
        registers_.provide(nextExtra_ + pairedLeaves_ + (storesComplex_ ? program_.results_ : 0), width * tile_);
    }

    double*& spareBuffer() { return registers_[program_.registers_]; }

    /// A slot as an operand: of pairs that are really real, the real parts.
    const Operand& operandOf(Slot slot)
    {
        Operand& operand = space_->operands[slot];
        if (operand.hasPairs()) [[unlikely]] {
            Step& step = addMove(kernels_.realParts, operand.data, operand.advance());
            const bool ownBuffer = slot >= firstRegister_ && slot < firstResult_;
            step.out = ownBuffer ? const_cast<double*>(operand.data) : registers_[nextExtra_++];
            operand.data = step.out;
            operand.kind = 0;
            runFirst(step);
        }
        return operand;
    }

    static unsigned shapeOf(const Operand& x, const Operand& y)
    {
        constexpr unsigned mask = Operand::kScalar | Operand::kComplex;
        return (x.kind & mask) | (y.kind & mask) << 1 | (y.isComplex() && !x.isComplex() ? kLikeY : 0u);
    }

    // ---- steps

    /// Lays out the steps of a tile and runs each on the first one. Numbers are computed once.
    Outcome firstTile()
    {
        space_->steps.clear();
        const std::size_t count = program_.operations_.size();
        for (std::size_t i = 0; i < count; ++i) {
            const Operation& op = program_.operations_[i];
            if (op.pair != nullptr && addPair(op, program_.operations_[i + 1])) {
                ++i;
                continue;
            }
            if (const Outcome outcome = addOperation(i, op); outcome != Outcome::Done) [[unlikely]]
                return outcome;
        }
        return Outcome::Done;
    }

    Step& addStep() { return space_->steps.emplace_back(); }

    /// A step that changes how numbers are stored.
    Step& addMove(qxkernels::UnaryLoop loop, const double* x, std::uint8_t advance)
    {
        Step& step = addStep();
        step.call = Step::Unary;
        step.unary = loop;
        step.x = step.y = x;
        step.xAdvance = advance;
        return step;
    }

    /// Two operations on real operands in one pass. False when they are other ones, or numbers only.
    bool addPair(const Operation& first, const Operation& second)
    {
        const Operand &x = space_->operands[first.x], &y = space_->operands[first.y], &z = space_->operands[first.z];
        if (((x.kind | y.kind | z.kind) & (Operand::kComplex | Operand::kPairs)) != 0 ||
            (x.kind & y.kind & Operand::kScalar) != 0)
            return false;
        Step& step = addStep();
        step.call = Step::Pair;
        step.pair = first.pair;
        step.shape = (x.kind & kXScalar) | (y.kind & kXScalar) << 1 | (z.kind & kXScalar) << 2;
        step.x = x.data;
        step.y = y.data;
        step.z = z.data;
        step.xAdvance = x.advance();
        step.yAdvance = y.advance();
        step.zAdvance = z.advance();
        aim(step, second, false);
        setResult(second.out, step, 0);
        runFirst(step);
        return true;
    }

    Outcome addOperation(std::size_t number, const Operation& op)
    {
        const bool binary = op.y != kNone;
        const Operand& x = operandOf(op.x);
        const Operand& y = binary ? operandOf(op.y) : x;
        const bool turns = op.mayTurnComplex && !keepReal_, turned = storesComplex_ && space_->turned[number] != 0;
        const bool anyComplex = x.isComplex() || y.isComplex();
        if (binary && op.alwaysReal && x.isComplex() != y.isComplex())
            return Outcome::Failed;
        if (x.isScalar() && y.isScalar())
            return computeNumber(number, op, x, y, turns);

        // Real where it can be, complex where an operand is or where this was tried and did not do.
        const bool complex = anyComplex || (turns && turned);
        if (complex && !anyComplex && binary)
            return Outcome::Failed;
        if (complex && !wide_) {
            wide_ = true;
            return Outcome::Otherwise;
        }
        Step& step = addStep();
        step.operation = static_cast<std::uint32_t>(number);
        setCall(step, op, binary ? shapeOf(x, y) : anyComplex ? unsigned(kXComplex) : complex ? unsigned(kOutComplex) : 0u);
        step.sums = !complex && size_ > tile_ && sumsUp(op);
        step.x = x.data;
        step.y = y.data;
        step.xAdvance = x.advance();
        step.yAdvance = y.advance();
        step.keepsReal = turns && !complex;
        step.storesComplex = complex;
        step.complex = complex && (!anyComplex || op.alwaysReal == turned);
        // Where no imaginary part is expected, those in storage are 0, unless the function failed.
        step.stop = step.complex == complex && !step.keepsReal ? stopBits(op) : ~0u;
        const bool promoted = step.keepsReal && op.out >= firstResult_; // a result that is stored complex all the same
        if (promoted)
            step.out = registers_[nextExtra_++];
        else
            aim(step, op, complex);
        setResult(op.out, step, !complex ? 0u : step.complex ? Operand::kComplex : Operand::kPairs);
        if (const Outcome outcome = runFirst(step); outcome != Outcome::Done) [[unlikely]]
            return outcome;
        if (promoted) {
            const double* const from = step.out;
            Step& move = addMove(kernels_.UPlus.promoted, from, 0);
            aim(move, op, true);
            runFirst(move);
        }
        return Outcome::Done;
    }

    unsigned stopBits(const Operation& op) const
    {
        return op.toleratesErrors || (flags_ & ValRep::kKeepNaN) != 0 ? unsigned(kFunFatal) : ~unsigned(kFunComplex);
    }

    bool sumsUp(const Operation& op) const
    {
        return op.binary != nullptr ? op.binary == kernels_.Pow : op.unary != nullptr ? op.unary->sums : true;
    }

    static void setCall(Step& step, const Operation& op, unsigned shape)
    {
        step.shape = shape;
        if (op.binary != nullptr) {
            step.call = Step::Binary;
            step.binary = op.binary;
        } else if (op.unary != nullptr) {
            step.call = Step::Unary;
            step.unary = shape == kXComplex ? op.unary->complex : shape == kOutComplex ? op.unary->promoted : op.unary->real;
        } else {
            step.call = op.y != kNone ? Step::BinaryObject : Step::UnaryObject;
            step.object = op.fun;
        }
    }

    /// Where an operation on arrays writes: a result in an array of its own, anything else in a buffer that holds no
    /// operand of another width.
    void aim(Step& step, const Operation& op, bool complex)
    {
        if (op.out >= firstResult_) {
            ValRepPtr& result = space_->values[op.out];
            result = Ops::newArrayValue(shape_->getAllocator(), size_, complex);
            step.out = Ops::firstBlock(*result);
            step.outAdvance = complex ? 2 : 1;
            return;
        }
        double*& buffer = registers_[op.out - firstRegister_];
        const auto inTheWay = [&](Slot s) {
            return s != kNone && space_->operands[s].data == buffer && space_->operands[s].isComplex() != complex;
        };
        if (wide_ && (inTheWay(op.x) || inTheWay(op.y)))
            std::swap(buffer, spareBuffer());
        step.out = buffer;
    }

    void setResult(Slot slot, const Step& step, unsigned kind)
    {
        Operand& result = space_->operands[slot];
        result.data = step.out;
        result.kind = kind | unsigned(step.outAdvance) << Operand::kAdvance;
    }

    // ---- computing

    /// An operation on numbers only.
    Outcome computeNumber(std::size_t number, const Operation& op, const Operand& x, const Operand& y, bool turns)
    {
        const bool binary = op.y != kNone, anyComplex = x.isComplex() || y.isComplex();
        double result[2] = {0.0, 0.0};
        Step step{};
        setCall(step, op, binary ? shapeOf(x, y) : anyComplex ? unsigned(kXComplex) : turns ? unsigned(kOutComplex) : 0u);
        step.out = result;
        step.x = x.data;
        step.y = y.data;
        unsigned bits = 0;
        if (!step.run(0, 1, bits) || (bits & stopBits(op)) != 0)
            return Outcome::Failed;
        if (turns && binary && !anyComplex && (bits != 0 || !areFinite(step, 0, 1) || !kernels_.allFinite(result, 1)))
            return Outcome::Failed;

        // zeros of any sign become the real number 0
        const bool real = result[1] == 0.0, zero = real && result[0] == 0.0, stored = (anyComplex || turns) && !zero;
        double* const kept = space_->numbers[number].parts;
        kept[0] = zero ? 0.0 : result[0];
        kept[1] = stored ? result[1] : 0.0;
        Operand& out = space_->operands[op.out];
        out.data = kept;
        out.kind = Operand::kScalar | (stored ? Operand::kStoredComplex : 0u) | (stored && !real ? Operand::kComplex : 0u);
        wide_ = wide_ || (stored && !real);
        return Outcome::Done;
    }

    /// Whether all numbers that a step reads are finite: only then a finite real result is that of the complex form.
    bool areFinite(const Step& step, std::size_t first, std::size_t n) const
    {
        const auto check = [&](const double* data, std::size_t advance, unsigned scalar) {
            return kernels_.allFinite(data + advance * first, (step.shape & scalar) != 0 ? 1 : n);
        };
        return check(step.x, step.xAdvance, kXScalar) && (step.y == step.x || check(step.y, step.yAdvance, qxkernels::kYScalar));
    }

    /// A step on the points from `first` on.
    Outcome run(Step& step, std::size_t first, std::size_t n)
    {
        RunScope::throwIfCancelled();
        unsigned bits = 0;
        const bool regular = !step.keepsReal || areFinite(step, first, n);
        if (!step.run(first, n, bits)) [[unlikely]]
            return Outcome::Failed;
        step.bits |= bits;
        const bool mustBeFinite = step.keepsReal || step.sums;
        if ((bits & step.stop) == 0 && regular && (!mustBeFinite || kernels_.allFinite(step.outAt(first), n))) [[likely]]
            return Outcome::Done;
        wasted_ += first + n;
        return step.keepsReal ? turn(step) : Outcome::Failed;
    }
    Outcome runFirst(Step& step) { return run(step, 0, std::min(tile_, size_)); }

    Outcome otherTiles()
    {
        std::vector<Step>& steps = space_->steps;
        for (std::size_t first = tile_; first < size_; first += tile_)
            for (Step& s : steps)
                if (const Outcome outcome = run(s, first, std::min(tile_, size_ - first)); outcome != Outcome::Done) [[unlikely]]
                    return outcome;
        if (storesComplex_)
            for (const Step& s : steps)
                if (s.storesComplex && s.complex != ((s.bits & kFunComplex) != 0)) [[unlikely]] {
                    wasted_ += size_;
                    return turn(s);
                }
        for (Slot i = firstResult_; i < program_.slots(); ++i)
            if (space_->values[i])
                Ops::markEvaluated(*space_->values[i], space_->operands[i].isComplex());
        return Outcome::Done;
    }

    /// The other guess about the kind of a result.
    Outcome turn(const Step& step)
    {
        unsigned char& turned = space_->turned[step.operation];
        if (turned != 0)
            return Outcome::Failed;
        turned = 1;
        return Outcome::Otherwise;
    }

    // ---- values

    /// All operations on value objects: the definition of what a program computes.
    void applyToValues(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache)
    {
        for (const Operation& op : program_.operations_) {
            RunScope::throwIfCancelled();
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
        if (!value)
            value = valueOfNumber(space_->operands[slot]);
        return last ? std::move(value) : value;
    }

    static ValRepPtr valueOfNumber(const Operand& operand)
    {
        const bool stored = (operand.kind & Operand::kStoredComplex) != 0;
        return stored || *operand.data != 0.0 ? Ops::newScalarValue(operand.data, stored, operand.isComplex())
                                                    : ValRep::makeZero();
    }

    const Program& program_;
    const qxkernels::KernelTable& kernels_;
    const unsigned flags_;
    const bool keepReal_;
    const Slot firstRegister_, firstResult_;
    const WorkspaceLease space_;
    Registers& registers_;
    const ValRep* shape_ = nullptr; // the first leaf that is an array: size and allocator of all
    std::size_t size_ = 0, tile_ = kTile;
    std::size_t pairedLeaves_ = 0;  // arrays stored complex that are really real
    std::size_t nextExtra_ = 0;     // the next buffer that is no register's
    std::size_t wasted_ = 0;        // points computed under a wrong guess
    bool wide_ = false;             // some array may be complex
    bool storesComplex_ = false;    // some result may be stored complex
};

void Program::run(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags, const ValRepPtr* given,
                  ValRepPtr* values) const
{
    Run(*this, flags)(evaluator, cache, given, values);
}

} // namespace qxeval

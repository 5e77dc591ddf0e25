// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What the runs of programs use again and again, so that a run touches no allocator.

#include "eval/perthread_detail.hpp"
#include "evalfun.hpp"
#include "evalrep.hpp"
#include "functions/kernels_detail.hpp"

#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace qxeval {

/// Buffers of one tile for each register of a program. One set is enough for a thread: runs nest only while leaves are
/// evaluated, before anything is computed, and so the innermost cache holds it.
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
        const std::size_t wanted = (n + 7) / 8 * 8 + 8;
        if (wanted == stride_ && buffers_.size() >= count)
            return;
        if (capacity_ < count * wanted) {
            discard();
            block_ = static_cast<double*>(::operator new[](count * wanted * sizeof(double), alignment));
            capacity_ = count * wanted;
        }
        stride_ = 0; // until all are there
        buffers_.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            buffers_[i] = block_ + i * wanted;
        stride_ = wanted;
    }
    double*& operator[](std::size_t i) { return buffers_[i]; }
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

/// What a slot holds, as kernels see it: its numbers in the first tile. Complex numbers are (re, im) pairs.
struct Operand
{
    enum : unsigned {
        kScalar = qxkernels::kXScalar,   ///< one number for all points
        kComplex = qxkernels::kXComplex, ///< pairs, and the imaginary parts count
        kPairs = 1u << 8,                ///< an array of pairs of which only the real parts count
        kStoredComplex = 1u << 9         ///< a number that is complex as a value object
    };
    static constexpr unsigned kAdvance = 10; ///< from this bit on: by how many doubles it advances with each point

    const double* data;
    unsigned kind;

    bool isScalar() const { return (kind & kScalar) != 0; }
    bool isComplex() const { return (kind & kComplex) != 0; }
    bool hasPairs() const { return (kind & kPairs) != 0; }
    std::uint8_t advance() const { return static_cast<std::uint8_t>(kind >> kAdvance); }
};

/// One kernel call of each tile, and where it finds and leaves the numbers of the first one. What stays in place is a number
/// or a register.
struct Step
{
    enum Call : std::uint8_t { Unary, Binary, Pair, UnaryObject, BinaryObject };

    double* out;
    const double *x, *y, *z;
    union {
        qxkernels::UnaryLoop unary;
        qxkernels::BinaryLoop binary;
        qxkernels::PairLoop pair;
        const FunObj* object;
    };
    unsigned shape;
    unsigned stop;           ///< bits that no tile may report
    unsigned bits;           ///< of all tiles so far
    std::uint32_t operation; ///< its number
    Call call;
    std::uint8_t outAdvance, xAdvance, yAdvance, zAdvance;
    bool keepsReal;          ///< computed as real in the hope that nothing turns complex
    bool sums;               ///< looks for a NaN by a sum, which knows no tiles: infinities of both signs make one
    bool storesComplex;      ///< the result is in complex storage
    bool complex;            ///< and is expected to have imaginary parts

    double* outAt(std::size_t point) const { return out + outAdvance * point; }

    /// Computes n points. False when the object does not know this form.
    bool run(std::size_t first, std::size_t n, unsigned& reported) const
    {
        double* const to = outAt(first);
        const double *const a = x + xAdvance * first, *const b = y + yAdvance * first;
        switch (call) {
        case Pair:
            pair(to, a, b, z + zAdvance * first, shape, n);
            return true;
        case Binary:
            reported = binary(to, a, b, shape, n);
            return true;
        case Unary:
            reported = unary(to, a, n);
            return true;
        case BinaryObject: return object->binaryInto(to, a, b, shape, n, reported);
        case UnaryObject:  break;
        }
        return object->unaryInto(to, a, shape, n, reported);
    }
};

/// The slots and steps of one run.
struct Workspace
{
    struct Number
    {
        double parts[2];
    };

    std::vector<ValRepPtr> values;     ///< of slots
    std::vector<Operand> operands;     ///< of slots
    std::vector<Number> numbers;       ///< results of operations on numbers only
    std::vector<Step> steps;
    std::vector<unsigned char> turned; ///< operations whose results were not of the kind expected at first
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
    WorkspaceLease(std::size_t slots, std::size_t operations) : slots_(slots), all_(PerThread<Workspaces>::get())
    {
        if (all_ == nullptr) {
            own_ = std::make_unique<Workspaces>();
            all_ = own_.get();
        }
        if (all_->used == all_->levels.size())
            all_->levels.push_back(std::make_unique<Workspace>());
        space_ = all_->levels[all_->used].get();
        if (space_->values.size() < slots)
            space_->values.resize(slots);
        if (space_->operands.size() < slots)
            space_->operands.resize(slots);
        if (space_->numbers.size() < operations)
            space_->numbers.resize(operations);
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

} // namespace qxeval

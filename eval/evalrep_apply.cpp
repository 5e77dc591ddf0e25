// SPDX-License-Identifier: LicenseRef-qxkernel
// How function objects are applied to values: which operand is overwritten, in what storage, and what the returned bits
// make of the result.

#include "eval/borrowedvalues_detail.hpp"
#include "eval/cancel_detail.hpp"
#include "eval/evalrep_detail.hpp"
#include "eval/perthread_detail.hpp"
#include "evalfun.hpp"
#include "evalfun_basic.hpp"
#include "evalfun_binary.hpp"
#include "functions/kernels_detail.hpp"

#include <utility>

using Complex = std::complex<double>;
using Ops = ValRepOps;

namespace {

// Shape of an operand as bits; the numbers also weigh the costs.
constexpr unsigned kManyBlocks = 1, kArray = 4, kComplex = 16, kCopyCost = 64;

using qxkernels::kLikeY, qxkernels::kOutComplex, qxkernels::kXComplex, qxkernels::kXScalar, qxkernels::kYComplex,
    qxkernels::kYScalar;

unsigned shapeBits(const ValRep& v, bool complex)
{
    return (v.getNBlocks() > 1 ? kManyBlocks : 0u) | (v.isScalar() ? 0u : kArray) | (complex ? kComplex : 0u);
}

/// The value itself when nobody else refers to it, otherwise a copy: what an operation without work returns.
ValRepPtr passOn(const ValRepPtr& v) { return Ops::isOnlyReference(v) ? v : v->clone(); }

bool staysStoredComplexButReal(const ValRep& v) { return v.isStoredAsComplex() && !v.isComplex(); }

void replaceBareZero(ValRepPtr& v)
{
    if (Ops::needsZeroScalar(*v))
        v = ValRep::make(0.0);
}

ValRepPtr inOwnShape(const ValRep& v, bool complex)
{
    return v.cloneCast(v.getAllocator(), v.getSize(), v.isScalar(), complex, 0);
}

template <class Blocks>
constexpr bool isArrayStorage = requires(const Blocks& b) { b[0]->data(); };

unsigned callUnary(const FunObj& f, ValRep& target)
{
    const auto size = static_cast<FunObj::Size>(target.getSize());
    return Ops::withBlocks(target, [&](const auto& blocks) {
        unsigned bits = 0;
        for (const auto& block : blocks) {
            qxeval::RunScope::throwIfCancelled();
            if constexpr (isArrayStorage<std::decay_t<decltype(blocks)>>)
                bits |= f(block, size);
            else
                bits |= f(block);
        }
        return bits;
    });
}

unsigned callBinary(const FunObj& f, ValRep& x, ValRep& y, unsigned size, int which)
{
    return Ops::withBlocks(x, [&](const auto& xs) {
        return Ops::withBlocks(y, [&](const auto& ys) {
            const std::size_t n = std::max(xs.size(), ys.size());
            unsigned bits = 0;
            for (std::size_t j = 0; j < n; ++j) {
                qxeval::RunScope::throwIfCancelled();
                const auto& a = xs[xs.size() == 1 ? 0 : j];
                const auto& b = ys[ys.size() == 1 ? 0 : j];
                if constexpr (isArrayStorage<std::decay_t<decltype(xs)>> || isArrayStorage<std::decay_t<decltype(ys)>>)
                    bits |= f(a, b, size, which);
                else
                    bits |= f(a, b, which);
            }
            return bits;
        });
    });
}

/// A value of one fresh array, for a function that computes into a place of its own. Null when the function cannot, or
/// the operands have not one block each.
class DirectResult
{
public:
    DirectResult(const ArrayAllocatorPtr& allocator, unsigned long size, bool complex)
        : value_(Ops::newArrayValue(allocator, size, complex)), out_(Ops::firstBlock(*value_)), complex_(complex)
    {
    }

    bool unary(const FunObj& f, const ValRep& x, unsigned& bits) const
    {
        const unsigned shape = x.isStoredAsComplex() ? kXComplex : complex_ ? kOutComplex : 0u;
        return f.unaryInto(out_, Ops::firstBlock(x), shape, value_->getSize(), bits);
    }
    bool binary(const FunObj& f, const ValRep& x, const ValRep& y, int which, unsigned& bits) const
    {
        const unsigned shape = (x.isScalar() ? kXScalar : 0u) | (y.isScalar() ? kYScalar : 0u) |
                               (x.isStoredAsComplex() ? kXComplex : 0u) | (y.isStoredAsComplex() ? kYComplex : 0u) |
                               (which == 2 ? kLikeY : 0u);
        return f.binaryInto(out_, Ops::firstBlock(x), Ops::firstBlock(y), shape, value_->getSize(), bits);
    }
    const ValRepPtr& value() const { return value_; }

private:
    ValRepPtr value_;
    double* out_;
    bool complex_;
};

/// Sizes and block counts that can be combined: equal, or one of them not more than one.
void checkFit(const ValRep& a, const ValRep& b)
{
    Ops::check(a.isScalar() || b.isScalar() || a.getSize() == b.getSize());
    Ops::check(a.getNBlocks() <= 1 || b.getNBlocks() <= 1 || a.getNBlocks() == b.getNBlocks());
}

} // namespace

ValRepPtr ValRep::applyOp(const FunObj& f, ValRepPtr& a, unsigned flags)
{
    if (f.isMulti()) {
        qxeval::BorrowedValues args;
        args.values.push_back(std::move(a)); // a second pointer would keep the operand from being overwritten
        return applyOp(f, args.values, flags);
    }
    if (a->nan_ || Ops::isEmpty(*a))
        return passOn(a);
    replaceBareZero(a);

    const bool unique = Ops::isUnique(a);
    const bool mayTurnComplex = !f.isRealIfReal() && (flags & kKeepReal) == 0;
    const bool complexResult = (a->complex_ || mayTurnComplex) && !f.isAlwaysReal();
    const bool inPlace = unique && (complexResult ? a->storedComplex_ : !a->storedComplex_ || a->complex_);
    const bool complexStorage = complexResult || a->complex_;
    ValRepPtr target;
    unsigned bits = 0;
    if (!inPlace && !a->scalar_ && a->nBlocks_ == 1 && (complexStorage || !a->storedComplex_)) {
        const DirectResult direct(a->allocator_, a->size_, complexStorage);
        if (direct.unary(f, *a, bits))
            target = direct.value();
    }
    if (target) {
        target->complex_ = complexResult;
    } else {
        target = inPlace ? a : inOwnShape(*a, complexStorage);
        target->complex_ = complexResult;
        bits = callUnary(f, *target);
    }
    applyOpPost(target, f, flags, bits);
    return target;
}

ValRepPtr ValRep::applyOp(const FunObj& f, ValRepPtr& a, ValRepPtr& b, unsigned flags)
{
    if (f.isMulti()) {
        qxeval::BorrowedValues args;
        args.values.resize(2);
        if (&a == &b)
            args.values[0] = a;
        else
            args.values[0].swap(a);
        args.values[1].swap(b);
        return applyOp(f, args.values, flags);
    }
    for (const ValRepPtr* v : {&a, &b})
        if ((*v)->nan_)
            return passOn(*v);
    for (const ValRepPtr* v : {&a, &b})
        if (Ops::isEmpty(**v))
            return passOn(*v);
    replaceBareZero(a);
    replaceBareZero(b);
    checkFit(*a, *b);

    const unsigned logicalA = shapeBits(*a, a->complex_), logicalB = shapeBits(*b, b->complex_);
    unsigned r = logicalA | logicalB;
    if (!f.isRealIfReal() && (flags & kKeepReal) == 0)
        r |= kComplex;
    r &= f.isAlwaysReal() ? kManyBlocks | kArray : kManyBlocks | kArray | kComplex;
    r |= logicalA & logicalB & kComplex;

    struct Side
    {
        bool unique, demote, copy;
    };
    const auto sideOf = [r, twice = a.get() == b.get()](const ValRepPtr& v) {
        Side s{!twice && Ops::isUnique(v), staysStoredComplexButReal(*v), true};
        const bool covered = (r & ~shapeBits(*v, v->storedComplex_)) == 0;
        s.copy = !(s.unique && covered && !(s.demote && (r & kComplex) == 0));
        return s;
    };
    const Side sideA = sideOf(a), sideB = sideOf(b);
    const unsigned costA = logicalB + (logicalA | r) + (sideA.copy ? kCopyCost : 0) + (sideB.demote ? kCopyCost : 0);
    const unsigned costB = logicalA + (logicalB | r) + (sideB.copy ? kCopyCost : 0) + (sideA.demote ? kCopyCost : 0);
    const int which = costA > costB ? 2 : 1;
    ValRepPtr& into = which == 1 ? a : b;
    ValRepPtr& from = which == 1 ? b : a;
    const Side& intoSide = which == 1 ? sideA : sideB;
    const Side& fromSide = which == 1 ? sideB : sideA;

    const ValRep* shape = !a->scalar_ ? a.get() : !b->scalar_ ? b.get() : nullptr;
    const unsigned size = shape != nullptr ? shape->size_ : 0;
    const ValRepPtr other = fromSide.demote ? inOwnShape(*from, false) : from;
    // An always-real function still sees both parts of a really complex operand.
    const bool complexStorage = (r & kComplex) != 0 || (f.isAlwaysReal() && into->complex_);
    if (intoSide.copy && !into->scalar_ && complexStorage == into->storedComplex_ && a->nBlocks_ == 1 && b->nBlocks_ == 1) {
        const DirectResult direct(shape->allocator_, size, complexStorage);
        unsigned bits = 0;
        if (which == 1 ? direct.binary(f, *into, *other, 1, bits) : direct.binary(f, *other, *into, 2, bits)) {
            ValRepPtr result = direct.value();
            result->complex_ = (r & kComplex) != 0;
            applyOpPost(result, f, flags, bits);
            return result;
        }
    }
    ValRepPtr target = into;
    if (intoSide.copy) {
        const unsigned nBlocks = a->nBlocks_ > 1 ? a->nBlocks_ : b->nBlocks_;
        target = into->cloneCast(shape != nullptr ? shape->allocator_ : ArrayAllocatorPtr(), size, (r & kArray) == 0,
                                 complexStorage, nBlocks);
        if (intoSide.unique)
            into = target;
    }
    target->complex_ = (r & kComplex) != 0;
    const unsigned bits = which == 1 ? callBinary(f, *target, *other, size, 1) : callBinary(f, *other, *target, size, 2);
    applyOpPost(target, f, flags, bits);
    return target;
}

// ---- n-ary

namespace {

/// The working vectors of n-ary calls keep their storage from call to call.
template <class T>
class Scratch
{
public:
    Scratch()
    {
        if (std::vector<T>* const kept = qxeval::PerThread<std::vector<T>>::get())
            vector.swap(*kept);
    }
    ~Scratch()
    {
        vector.clear();
        if (std::vector<T>* const kept = qxeval::PerThread<std::vector<T>>::get())
            vector.swap(*kept);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::vector<T> vector;
};

template <class BlocksOf>
unsigned callMulti(const FunObj& f, const std::vector<ValRepPtr>& work, std::size_t nBlocks, unsigned size, int which,
                   BlocksOf blocksOf)
{
    using P = std::decay_t<decltype(blocksOf(*work[0])[0])>;
    Scratch<P> args;
    unsigned bits = 0;
    for (std::size_t j = 0; j < nBlocks; ++j) {
        qxeval::RunScope::throwIfCancelled();
        args.vector.clear();
        for (const ValRepPtr& v : work) {
            const auto& blocks = blocksOf(*v);
            args.vector.push_back(blocks[blocks.size() == 1 ? 0 : j]);
        }
        if constexpr (requires { args.vector[0]->data(); })
            bits |= f(args.vector, size, which);
        else
            bits |= f(args.vector, which);
    }
    return bits;
}

} // namespace

ValRepPtr ValRep::applyOp(const FunObj& f, std::vector<ValRepPtr>& args, unsigned flags)
{
    if (args.empty() || (!f.isMulti() && args.size() > 2))
        QX_RAISE("evalrep", "Evaluation_internal_error", "fun", f.getName());
    if (!f.isMulti())
        return args.size() == 1 ? applyOp(f, args[0], flags) : applyOp(f, args[0], args[1], flags);

    for (const ValRepPtr& v : args)
        if (v->nan_)
            return passOn(v);
    for (const ValRepPtr& v : args)
        if (Ops::isEmpty(*v))
            return passOn(v);

    const ValRep* shape = nullptr;
    const ValRep* many = nullptr;
    bool anyComplex = false;
    unsigned nBlocks = 1;
    for (const ValRepPtr& v : args) {
        anyComplex = anyComplex || v->complex_;
        if (!v->scalar_ && !v->zero_) {
            if (shape == nullptr)
                shape = v.get();
            checkFit(*shape, *v);
        }
        if (v->nBlocks_ != 1 && !v->zero_) {
            if (many != nullptr)
                checkFit(*many, *v);
            many = v.get();
            nBlocks = v->nBlocks_;
        }
    }
    const bool scalar = shape == nullptr;
    const unsigned size = scalar ? 0 : shape->size_;
    const ArrayAllocatorPtr allocator = scalar ? ArrayAllocatorPtr() : shape->allocator_;
    const bool complexStorage = anyComplex || (!f.isRealIfReal() && (flags & kKeepReal) == 0 && !f.isAlwaysReal());

    Scratch<ValRepPtr> work;
    ValRepPtr target;
    int which = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const ValRepPtr& v = args[i];
        const bool fits = !v->zero_ && v->storedComplex_ == complexStorage && v->scalar_ == scalar;
        const bool mayOverwrite = !fits || Ops::isUnique(v);
        work.vector.push_back(fits ? v : v->cloneCast(allocator, size, scalar, complexStorage, 0));
        if (mayOverwrite && (work.vector.back()->nBlocks_ > 1) == (nBlocks > 1)) {
            target = work.vector.back();
            which = static_cast<int>(i) + 1;
        }
    }
    if (which == 0) {
        target = work.vector[0] = args[0]->cloneCast(allocator, size, scalar, complexStorage, nBlocks);
        which = 1;
    }
    target->complex_ = complexStorage;
    const unsigned bits = [&] {
        if (scalar)
            return complexStorage
                       ? callMulti(f, work.vector, nBlocks, size, which, [](const ValRep& v) -> auto& { return v.cScalars_; })
                       : callMulti(f, work.vector, nBlocks, size, which, [](const ValRep& v) -> auto& { return v.dScalars_; });
        return complexStorage
                   ? callMulti(f, work.vector, nBlocks, size, which, [](const ValRep& v) -> auto& { return v.cArrays_; })
                   : callMulti(f, work.vector, nBlocks, size, which, [](const ValRep& v) -> auto& { return v.dArrays_; });
    }();
    applyOpPost(target, f, flags, bits);
    return target;
}

// ---- after the calls

void ValRep::applyOpPost(ValRepPtr& result, const FunObj& f, unsigned flags, unsigned bits)
{
    result->evaluated_ = true;
    if ((bits & kFunComplex) == 0)
        result->complex_ = false;

    const bool elementError = (flags & kKeepNaN) == 0 && (bits & ~unsigned(kFunComplex)) != 0 && !Ops::toleratesErrors(f);
    if ((bits & kFunFatal) != 0 || elementError) {
        result->setNaN();
        result->errors_ = f.makeError(bits);
    }
    if (result->nan_ || !result->scalar_)
        return;
    bool zero = true, complex = false;
    for (const auto& x : result->dScalars_)
        zero = zero && *x == 0.0;
    for (const auto& z : result->cScalars_) {
        zero = zero && z->real() == 0.0 && z->imag() == 0.0;
        complex = complex || z->imag() != 0.0;
    }
    if (zero) {
        result = makeZero();
        return;
    }
    result->zero_ = false;
    if (result->storedComplex_)
        result->complex_ = complex;
}

// ---- helpers

void ValRep::evalUnary(ValRepPtr& a, ValRepPtr& result, const FunObj& f, bool mayConsume)
{
    ValRepPtr held = a;
    if (mayConsume) {
        held.reset();
        result = applyOp(f, a, 0);
    } else {
        result = applyOp(f, held, 0);
    }
}

void ValRep::evalBinary(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, const FunObj& f, bool mayConsume)
{
    if (mayConsume) {
        result = applyOp(f, a, b, 0);
        return;
    }
    ValRepPtr heldA = a, heldB = b; // with a second reference neither is overwritten
    result = applyOp(f, heldA, heldB, 0);
}

void ValRep::plus(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume)
{
    evalBinary(a, b, result, PlusFun(), mayConsume);
}
void ValRep::minus(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume)
{
    evalBinary(a, b, result, MinusFun(), mayConsume);
}
void ValRep::times(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume)
{
    evalBinary(a, b, result, MultFun(), mayConsume);
}
void ValRep::times(ValRepPtr& a, double b, ValRepPtr& result, bool mayConsume)
{
    ValRepPtr factor = make(b);
    evalBinary(a, factor, result, MultFun(), mayConsume);
}
void ValRep::divide(ValRepPtr& a, ValRepPtr& b, ValRepPtr& result, bool mayConsume)
{
    evalBinary(a, b, result, DivFun(), mayConsume);
}
void ValRep::uminus(ValRepPtr& a, ValRepPtr& result, bool mayConsume) { evalUnary(a, result, UMinusFun(), mayConsume); }
void ValRep::sqrt(ValRepPtr& a, ValRepPtr& result, bool mayConsume) { evalUnary(a, result, SqrtFun(), mayConsume); }

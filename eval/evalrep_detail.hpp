// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Access to the storage of a value by element type and shape, shared by the sources of ValRep.

#include "errinfo.hpp"
#include "evalfun.hpp"
#include "evalrep.hpp"
#include "qxexception.hpp"
#include "varevaluator.hpp"

#include <atomic>
#include <boost/make_shared.hpp>

class ValRepOps
{
public:
    using Complex = std::complex<double>;
    template <class T>
    using ArrayPtr = boost::shared_ptr<Array<T, 1>>;

    /// A number in a storage type: complex to real keeps the real part.
    template <class To>
    static To convert(const auto& x)
    {
        if constexpr (std::is_same_v<To, double>)
            return std::real(x);
        else
            return x;
    }

    static bool isOnlyReference(const ValRepPtr& v)
    {
        if (v.use_count() != 1)
            return false;
        std::atomic_thread_fence(std::memory_order_acquire); // what the last other owner wrote is seen from here on
        return true;
    }
    static bool isUnique(const ValRepPtr& v) { return isOnlyReference(v) && v->hasUniqueData(); }

    /// Calls f with the active vector of blocks.
    template <class V, class F>
    static decltype(auto) withBlocks(V& v, F f)
    {
        if (v.scalar_)
            return v.storedComplex_ ? f(v.cScalars_) : f(v.dScalars_);
        return v.storedComplex_ ? f(v.cArrays_) : f(v.dArrays_);
    }

    /// The numbers of the first block, complex ones as (re, im) pairs.
    static double* firstBlock(const ValRep& v)
    {
        return withBlocks(v, [](const auto& blocks) {
            if constexpr (requires { blocks[0]->data(); })
                return reinterpret_cast<double*>(blocks[0]->data());
            else
                return reinterpret_cast<double*>(blocks[0].get());
        });
    }

    /// One fresh array, not evaluated.
    static ValRepPtr newArrayValue(const ArrayAllocatorPtr& allocator, unsigned long size, bool complex)
    {
        ValRepPtr value = ValRep::make(allocator);
        value->scalar_ = false;
        value->storedComplex_ = value->complex_ = complex;
        value->size_ = static_cast<unsigned>(size);
        value->nBlocks_ = 1;
        if (complex)
            lease(*value, value->cArrays_.emplace_back());
        else
            lease(*value, value->dArrays_.emplace_back());
        return value;
    }

    /// One evaluated number, given as a (re, im) pair if it is stored as a complex one.
    static ValRepPtr newScalarValue(const double* number, bool stored, bool complex)
    {
        ValRepPtr value = ValRep::make();
        value->storedComplex_ = stored;
        value->nBlocks_ = 1;
        if (stored)
            value->cScalars_.push_back(newScalar(Complex(number[0], number[1])));
        else
            value->dScalars_.push_back(newScalar(*number));
        markEvaluated(*value, complex);
        return value;
    }

    /// As newly made.
    static void renew(ValRep& v, const ArrayAllocatorPtr& allocator)
    {
        v.reset(true, false, 0);
        if (v.allocator_ != allocator)
            v.allocator_ = allocator;
    }

    static void markEvaluated(ValRep& v, bool complex)
    {
        v.evaluated_ = true;
        v.complex_ = complex;
    }

    template <class T>
    static boost::shared_ptr<T> newScalar(const T& value)
    {
        return boost::allocate_shared<T>(qxeval::Recycling<T>(), value);
    }

    /// An array for `size` elements from v's allocator, or from the heap without one.
    static void lease(const ValRep& v, DArrayPtr& out)
    {
        if (!v.allocator_)
            out = boost::make_shared<Array<double, 1>>(static_cast<unsigned long>(v.size_));
        else if (v.size_ > v.allocator_->getBlockSize())
            v.allocator_->dCheckout(static_cast<int>(v.size_), out);
        else
            v.allocator_->dCheckout(out);
    }
    static void lease(const ValRep& v, CArrayPtr& out)
    {
        if (!v.allocator_)
            out = boost::make_shared<Array<Complex, 1>>(static_cast<unsigned long>(v.size_));
        else if (v.size_ > v.allocator_->getBlockSize())
            v.allocator_->cCheckout(static_cast<int>(v.size_), out);
        else
            v.allocator_->cCheckout(out);
    }

    static void copyFlags(ValRep& to, const ValRep& from)
    {
        to.scalar_ = from.scalar_;
        to.storedComplex_ = from.storedComplex_;
        to.complex_ = from.complex_;
        to.zero_ = from.zero_;
        to.nan_ = from.nan_;
        to.evaluated_ = from.evaluated_;
    }

    static boost::shared_ptr<ErrInfo> copyOf(const boost::shared_ptr<ErrInfo>& errors)
    {
        return errors ? boost::make_shared<ErrInfo>(*errors) : errors;
    }

    /// Remembers that this evaluation left a NaN in a value that a cache keeps.
    static void rememberFailure(ValRep& v, const VarEvaluatorPtr& evaluator, unsigned flags, bool circular = false)
    {
        v.attempt_ = {evaluator->getRecCount()->getMark().stamp(circular), evaluator->getVersion()->getNumber(), flags};
    }
    /// A NaN that this evaluation, with these flags and at this version, has found already.
    static bool isKnownFailure(const ValRep& v, const VarEvaluatorPtr& evaluator, unsigned flags)
    {
        return v.nan_ && v.attempt_.flags == flags &&
               evaluator->getRecCount()->getMark().isCurrent(v.attempt_.stamp) &&
               v.attempt_.version == evaluator->getVersion()->getNumber();
    }

    static void check(bool condition)
    {
        if (!condition)
            QX_RAISE("evalrep", "QUORIX_assertion_failure");
    }

    /// Division alone: by zero it gives infinities and NaNs like any number.
    static bool toleratesErrors(const FunObj& f) { return f.getName() == "/"; }

    static bool needsZeroScalar(const ValRep& v) { return v.zero_ && v.dScalars_.empty() && v.cScalars_.empty(); }
    /// The flag, whatever the numbers are.
    static bool isFlaggedZero(const ValRep& v) { return v.zero_; }
    /// Stands for any number of points. An array of zeros does not, unless it carries the flag.
    static bool repeats(const ValRep& v) { return v.scalar_ || v.zero_; }
    static bool isEmpty(const ValRep& v) { return v.nBlocks_ == 0 && !v.zero_; }
};

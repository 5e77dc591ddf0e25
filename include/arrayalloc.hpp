// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"

#include <cstddef>
#include <memory>
#include <pthread.h>
#include <vector>

using DArrayPtr = boost::shared_ptr<Array<double, 1>>;
using CArrayPtr = boost::shared_ptr<Array<std::complex<double>, 1>>;
using DArray2Ptr = boost::shared_ptr<Array<double, 2>>;
using CArray2Ptr = boost::shared_ptr<Array<std::complex<double>, 2>>;
using DArray3Ptr = boost::shared_ptr<Array<double, 3>>;
using CArray3Ptr = boost::shared_ptr<Array<std::complex<double>, 3>>;

/// Source of the arrays that values are made of. A checkout leases an array with elements that are not initialised, a
/// release hands it back for the next lease. The out parameter is always the last one; what it held before is dropped.
///
/// A leased array may be longer than what its user needs: the user keeps its own count.
/// Fails: std::bad_alloc as Array does. Threads: see the implementation; a value is used by one thread at a time.
class QX_API ArrayAllocator
{
public:
    virtual ~ArrayAllocator();

    /// Block-size arrays.
    virtual void dCheckout(DArrayPtr& out) = 0;
    virtual void cCheckout(CArrayPtr& out) = 0;
    /// Arrays of n elements.
    virtual void dCheckout(int n, DArrayPtr& out) = 0;
    virtual void cCheckout(int n, CArrayPtr& out) = 0;
    virtual void dvCheckout(int m, int n, DArray2Ptr& out) = 0;
    virtual void cvCheckout(int m, int n, CArray2Ptr& out) = 0;
    virtual void dtCheckout(int a, int b, int c, DArray3Ptr& out) = 0;
    virtual void ctCheckout(int a, int b, int c, CArray3Ptr& out) = 0;

    /// Block-size arrays filled with a number; a complex number put into a real array gives its real part.
    virtual void dReplicate(double value, DArrayPtr& out) = 0;
    virtual void dReplicate(const std::complex<double>& value, DArrayPtr& out) = 0;
    virtual void cReplicate(double value, CArrayPtr& out) = 0;
    virtual void cReplicate(const std::complex<double>& value, CArrayPtr& out) = 0;
    /// The same with n elements.
    virtual void dReplicate(double value, int n, DArrayPtr& out) = 0;
    virtual void dReplicate(const std::complex<double>& value, int n, DArrayPtr& out) = 0;
    virtual void cReplicate(double value, int n, CArrayPtr& out) = 0;
    virtual void cReplicate(const std::complex<double>& value, int n, CArrayPtr& out) = 0;

    /// Arrays of the source's capacity with a converted copy; complex to real keeps the real part.
    virtual void dClone(const DArrayPtr& source, DArrayPtr& out) = 0;
    virtual void dClone(const CArrayPtr& source, DArrayPtr& out) = 0;
    virtual void cClone(const DArrayPtr& source, CArrayPtr& out) = 0;
    virtual void cClone(const CArrayPtr& source, CArrayPtr& out) = 0;

    /// Takes an array back and empties the pointer.
    virtual void release(DArrayPtr& array) = 0;
    virtual void release(CArrayPtr& array) = 0;
    virtual void release(DArray2Ptr& array) = 0;
    virtual void release(CArray2Ptr& array) = 0;
    virtual void release(DArray3Ptr& array) = 0;
    virtual void release(CArray3Ptr& array) = 0;

    /// The standard length.
    virtual unsigned long getBlockSize() const = 0;
    /// The byte limit of the caches of odd-sized arrays.
    virtual unsigned long getMaxExtraSize() const = 0;
};

/// The working allocator, one for each thread of an evaluation.
///
/// Block-size arrays cycle through two stacks without a limit, so that an evaluation with unchanged shapes allocates
/// nothing. Real arrays of other sizes wait in three lists, oldest first, of at most 50 entries each and
/// getMaxExtraSize() bytes together. Complex arrays of other sizes are not kept.
///
/// Threads: not locked. An array released on another thread than the constructing one, or one that is still referred to
/// elsewhere, is not kept; only the reference goes.
class QX_API ArrayAllocImpl : public ArrayAllocator
{
public:
    ArrayAllocImpl(unsigned long blockSize, unsigned long maxExtraSize);

    void dCheckout(DArrayPtr& out) override;
    void cCheckout(CArrayPtr& out) override;
    void dCheckout(int n, DArrayPtr& out) override;
    void cCheckout(int n, CArrayPtr& out) override;
    void dvCheckout(int m, int n, DArray2Ptr& out) override;
    void cvCheckout(int m, int n, CArray2Ptr& out) override;
    void dtCheckout(int a, int b, int c, DArray3Ptr& out) override;
    void ctCheckout(int a, int b, int c, CArray3Ptr& out) override;

    void dReplicate(double value, DArrayPtr& out) override;
    void dReplicate(const std::complex<double>& value, DArrayPtr& out) override;
    void cReplicate(double value, CArrayPtr& out) override;
    void cReplicate(const std::complex<double>& value, CArrayPtr& out) override;
    void dReplicate(double value, int n, DArrayPtr& out) override;
    void dReplicate(const std::complex<double>& value, int n, DArrayPtr& out) override;
    void cReplicate(double value, int n, CArrayPtr& out) override;
    void cReplicate(const std::complex<double>& value, int n, CArrayPtr& out) override;

    void dClone(const DArrayPtr& source, DArrayPtr& out) override;
    void dClone(const CArrayPtr& source, DArrayPtr& out) override;
    void cClone(const DArrayPtr& source, CArrayPtr& out) override;
    void cClone(const CArrayPtr& source, CArrayPtr& out) override;

    void release(DArrayPtr& array) override;
    void release(CArrayPtr& array) override;
    void release(DArray2Ptr& array) override;
    void release(CArray2Ptr& array) override;
    void release(DArray3Ptr& array) override;
    void release(CArray3Ptr& array) override;

    unsigned long getBlockSize() const override { return blockSize_; }
    unsigned long getMaxExtraSize() const override { return maxExtraSize_; }

    /// Bytes held in the caches of odd-sized arrays, for diagnosis.
    std::size_t getExtraBytes() const { return extraBytes_; }

private:
    bool isOwnThread() const;
    template <class P>
    void keepExtra(P& array, std::vector<P>& list);
    template <class P>
    bool takeExtra(std::vector<P>& list, unsigned long count, P& out);
    template <class P>
    void dropOldest(std::vector<P>& list);
    void pruneExtraCaches();

    const unsigned long blockSize_;
    const unsigned long maxExtraSize_;
    std::size_t extraBytes_ = 0;
    std::vector<DArrayPtr> dFree_;
    std::vector<CArrayPtr> cFree_;
    std::vector<DArrayPtr> extraArrays1_;
    std::vector<DArray3Ptr> extraArrays3_;
    std::vector<DArray2Ptr> extraArrays2_;
    const int ompThread_;       // the same number on every thread outside a parallel region, hence the next one
    const pthread_t osThread_;
};

/// The one allocator that all values of serial code share: forwards every operation to an ArrayAllocImpl of its own.
class QX_API SerialArrayAllocator : public ArrayAllocator
{
public:
    SerialArrayAllocator(unsigned long blockSize, unsigned long maxExtraSize);
    ~SerialArrayAllocator() override;

    void dCheckout(DArrayPtr& out) override;
    void cCheckout(CArrayPtr& out) override;
    void dCheckout(int n, DArrayPtr& out) override;
    void cCheckout(int n, CArrayPtr& out) override;
    void dvCheckout(int m, int n, DArray2Ptr& out) override;
    void cvCheckout(int m, int n, CArray2Ptr& out) override;
    void dtCheckout(int a, int b, int c, DArray3Ptr& out) override;
    void ctCheckout(int a, int b, int c, CArray3Ptr& out) override;

    void dReplicate(double value, DArrayPtr& out) override;
    void dReplicate(const std::complex<double>& value, DArrayPtr& out) override;
    void cReplicate(double value, CArrayPtr& out) override;
    void cReplicate(const std::complex<double>& value, CArrayPtr& out) override;
    void dReplicate(double value, int n, DArrayPtr& out) override;
    void dReplicate(const std::complex<double>& value, int n, DArrayPtr& out) override;
    void cReplicate(double value, int n, CArrayPtr& out) override;
    void cReplicate(const std::complex<double>& value, int n, CArrayPtr& out) override;

    void dClone(const DArrayPtr& source, DArrayPtr& out) override;
    void dClone(const CArrayPtr& source, DArrayPtr& out) override;
    void cClone(const DArrayPtr& source, CArrayPtr& out) override;
    void cClone(const CArrayPtr& source, CArrayPtr& out) override;

    void release(DArrayPtr& array) override;
    void release(CArrayPtr& array) override;
    void release(DArray2Ptr& array) override;
    void release(CArray2Ptr& array) override;
    void release(DArray3Ptr& array) override;
    void release(CArray3Ptr& array) override;

    unsigned long getBlockSize() const override;
    unsigned long getMaxExtraSize() const override;

private:
    std::unique_ptr<ArrayAllocImpl> impl_;
};

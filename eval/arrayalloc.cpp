// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayalloc.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <omp.h>

namespace {

constexpr std::size_t kMaxExtraCount = 50;

template <class T>
T converted(double x)
{
    return x;
}
template <class T>
T converted(const std::complex<double>& z)
{
    if constexpr (std::is_same_v<T, double>)
        return z.real();
    else
        return z;
}

/// out = an array of source's capacity with its converted elements.
template <class Source, class Lease>
void cloneInto(const Source& source, Lease lease)
{
    auto& out = lease(source->capacity());
    using T = std::decay_t<decltype((*out)[0])>;
    const auto* from = source->data();
    T* to = out->data();
    for (std::size_t i = 0; i < source->capacity(); ++i)
        to[i] = converted<T>(from[i]);
}

} // namespace

ArrayAllocator::~ArrayAllocator() = default;

ArrayAllocImpl::ArrayAllocImpl(unsigned long blockSize, unsigned long maxExtraSize)
    : blockSize_(blockSize), maxExtraSize_(maxExtraSize), ompThread_(omp_get_thread_num()), osThread_(pthread_self())
{
}

bool ArrayAllocImpl::isOwnThread() const
{
    return omp_get_thread_num() == ompThread_ && pthread_equal(pthread_self(), osThread_) != 0;
}

/// Pops the last array of a stack, or makes one.
template <class P>
static void takeBlock(std::vector<P>& stack, unsigned long blockSize, P& out)
{
    if (stack.empty()) {
        out = boost::make_shared<typename P::element_type>(blockSize);
        return;
    }
    out = std::move(stack.back());
    stack.pop_back();
}

void ArrayAllocImpl::dCheckout(DArrayPtr& out) { takeBlock(dFree_, blockSize_, out); }
void ArrayAllocImpl::cCheckout(CArrayPtr& out) { takeBlock(cFree_, blockSize_, out); }

/// The oldest kept array of count elements, if there is one.
template <class P>
bool ArrayAllocImpl::takeExtra(std::vector<P>& list, unsigned long count, P& out)
{
    const auto found = std::find_if(list.begin(), list.end(), [count](const P& a) { return a->capacity() == count; });
    if (found == list.end())
        return false;
    out = std::move(*found);
    list.erase(found);
    extraBytes_ -= sizeof(double) * count;
    return true;
}

void ArrayAllocImpl::dCheckout(int n, DArrayPtr& out)
{
    const auto count = static_cast<unsigned long>(n);
    if (count == blockSize_)
        dCheckout(out);
    else if (!takeExtra(extraArrays1_, count, out))
        out = boost::make_shared<Array<double, 1>>(count);
}

void ArrayAllocImpl::cCheckout(int n, CArrayPtr& out)
{
    const auto count = static_cast<unsigned long>(n);
    if (count == blockSize_)
        cCheckout(out);
    else
        out = boost::make_shared<Array<std::complex<double>, 1>>(count);
}

void ArrayAllocImpl::dvCheckout(int m, int n, DArray2Ptr& out)
{
    const unsigned long extents[] = {static_cast<unsigned long>(m), static_cast<unsigned long>(n)};
    if (m >= 0 && n >= 0 && takeExtra(extraArrays2_, extents[0] * extents[1], out))
        out->resize(extents);
    else
        out = boost::make_shared<Array<double, 2>>(extents);
}

void ArrayAllocImpl::cvCheckout(int m, int n, CArray2Ptr& out)
{
    out = boost::make_shared<Array<std::complex<double>, 2>>(static_cast<unsigned long>(m), static_cast<unsigned long>(n));
}

void ArrayAllocImpl::dtCheckout(int a, int b, int c, DArray3Ptr& out)
{
    const unsigned long extents[] = {static_cast<unsigned long>(a), static_cast<unsigned long>(b),
                                     static_cast<unsigned long>(c)};
    if (a >= 0 && b >= 0 && c >= 0 && takeExtra(extraArrays3_, extents[0] * extents[1] * extents[2], out))
        out->resize(extents);
    else
        out = boost::make_shared<Array<double, 3>>(extents);
}

void ArrayAllocImpl::ctCheckout(int a, int b, int c, CArray3Ptr& out)
{
    out = boost::make_shared<Array<std::complex<double>, 3>>(static_cast<unsigned long>(a), static_cast<unsigned long>(b),
                                                             static_cast<unsigned long>(c));
}

void ArrayAllocImpl::dReplicate(double value, DArrayPtr& out)
{
    dCheckout(out);
    *out = value;
}
void ArrayAllocImpl::dReplicate(const std::complex<double>& value, DArrayPtr& out) { dReplicate(value.real(), out); }
void ArrayAllocImpl::cReplicate(double value, CArrayPtr& out) { cReplicate(std::complex<double>(value), out); }
void ArrayAllocImpl::cReplicate(const std::complex<double>& value, CArrayPtr& out)
{
    cCheckout(out);
    *out = value;
}
void ArrayAllocImpl::dReplicate(double value, int n, DArrayPtr& out)
{
    dCheckout(n, out);
    *out = value;
}
void ArrayAllocImpl::dReplicate(const std::complex<double>& value, int n, DArrayPtr& out) { dReplicate(value.real(), n, out); }
void ArrayAllocImpl::cReplicate(double value, int n, CArrayPtr& out) { cReplicate(std::complex<double>(value), n, out); }
void ArrayAllocImpl::cReplicate(const std::complex<double>& value, int n, CArrayPtr& out)
{
    cCheckout(n, out);
    *out = value;
}

void ArrayAllocImpl::dClone(const DArrayPtr& source, DArrayPtr& out)
{
    cloneInto(source, [&](unsigned long n) -> DArrayPtr& { return dCheckout(static_cast<int>(n), out), out; });
}
void ArrayAllocImpl::dClone(const CArrayPtr& source, DArrayPtr& out)
{
    cloneInto(source, [&](unsigned long n) -> DArrayPtr& { return dCheckout(static_cast<int>(n), out), out; });
}
void ArrayAllocImpl::cClone(const DArrayPtr& source, CArrayPtr& out)
{
    cloneInto(source, [&](unsigned long n) -> CArrayPtr& { return cCheckout(static_cast<int>(n), out), out; });
}
void ArrayAllocImpl::cClone(const CArrayPtr& source, CArrayPtr& out)
{
    cloneInto(source, [&](unsigned long n) -> CArrayPtr& { return cCheckout(static_cast<int>(n), out), out; });
}

template <class P>
void ArrayAllocImpl::dropOldest(std::vector<P>& list)
{
    if (list.empty())
        return;
    extraBytes_ -= sizeof(double) * list.front()->capacity();
    list.erase(list.begin());
}

void ArrayAllocImpl::pruneExtraCaches()
{
    while (extraArrays1_.size() > kMaxExtraCount)
        dropOldest(extraArrays1_);
    while (extraArrays3_.size() > kMaxExtraCount)
        dropOldest(extraArrays3_);
    while (extraArrays2_.size() > kMaxExtraCount)
        dropOldest(extraArrays2_);
    while (extraBytes_ > maxExtraSize_ && !(extraArrays1_.empty() && extraArrays3_.empty() && extraArrays2_.empty())) {
        dropOldest(extraArrays1_);
        dropOldest(extraArrays3_);
        dropOldest(extraArrays2_);
    }
}

template <class P>
void ArrayAllocImpl::keepExtra(P& array, std::vector<P>& list)
{
    const std::size_t bytes = sizeof(double) * array->capacity();
    list.push_back(std::move(array));
    extraBytes_ += bytes;
    pruneExtraCaches();
}

// An array that cannot be kept for want of memory is dropped: release never fails.
template <class F>
static void keepIfPossible(F keep) noexcept
{
    try {
        keep();
    } catch (const std::bad_alloc&) {
    }
}

void ArrayAllocImpl::release(DArrayPtr& array)
{
    if (array && array.use_count() == 1 && isOwnThread())
        keepIfPossible([&] {
            if (array->capacity() == blockSize_)
                dFree_.push_back(std::move(array));
            else
                keepExtra(array, extraArrays1_);
        });
    array.reset();
}

void ArrayAllocImpl::release(CArrayPtr& array)
{
    if (array && array.use_count() == 1 && isOwnThread() && array->capacity() == blockSize_)
        keepIfPossible([&] { cFree_.push_back(std::move(array)); });
    array.reset();
}

void ArrayAllocImpl::release(DArray2Ptr& array)
{
    if (array && array.use_count() == 1 && isOwnThread())
        keepIfPossible([&] { keepExtra(array, extraArrays2_); });
    array.reset();
}

void ArrayAllocImpl::release(DArray3Ptr& array)
{
    if (array && array.use_count() == 1 && isOwnThread())
        keepIfPossible([&] { keepExtra(array, extraArrays3_); });
    array.reset();
}

void ArrayAllocImpl::release(CArray2Ptr& array) { array.reset(); }
void ArrayAllocImpl::release(CArray3Ptr& array) { array.reset(); }

SerialArrayAllocator::SerialArrayAllocator(unsigned long blockSize, unsigned long maxExtraSize)
    : impl_(std::make_unique<ArrayAllocImpl>(blockSize, maxExtraSize))
{
}
SerialArrayAllocator::~SerialArrayAllocator() = default;

void SerialArrayAllocator::dCheckout(DArrayPtr& out) { impl_->dCheckout(out); }
void SerialArrayAllocator::cCheckout(CArrayPtr& out) { impl_->cCheckout(out); }
void SerialArrayAllocator::dCheckout(int n, DArrayPtr& out) { impl_->dCheckout(n, out); }
void SerialArrayAllocator::cCheckout(int n, CArrayPtr& out) { impl_->cCheckout(n, out); }
void SerialArrayAllocator::dvCheckout(int m, int n, DArray2Ptr& out) { impl_->dvCheckout(m, n, out); }
void SerialArrayAllocator::cvCheckout(int m, int n, CArray2Ptr& out) { impl_->cvCheckout(m, n, out); }
void SerialArrayAllocator::dtCheckout(int a, int b, int c, DArray3Ptr& out) { impl_->dtCheckout(a, b, c, out); }
void SerialArrayAllocator::ctCheckout(int a, int b, int c, CArray3Ptr& out) { impl_->ctCheckout(a, b, c, out); }
void SerialArrayAllocator::dReplicate(double value, DArrayPtr& out) { impl_->dReplicate(value, out); }
void SerialArrayAllocator::dReplicate(const std::complex<double>& v, DArrayPtr& out) { impl_->dReplicate(v, out); }
void SerialArrayAllocator::cReplicate(double value, CArrayPtr& out) { impl_->cReplicate(value, out); }
void SerialArrayAllocator::cReplicate(const std::complex<double>& v, CArrayPtr& out) { impl_->cReplicate(v, out); }
void SerialArrayAllocator::dReplicate(double v, int n, DArrayPtr& out) { impl_->dReplicate(v, n, out); }
void SerialArrayAllocator::dReplicate(const std::complex<double>& v, int n, DArrayPtr& out) { impl_->dReplicate(v, n, out); }
void SerialArrayAllocator::cReplicate(double v, int n, CArrayPtr& out) { impl_->cReplicate(v, n, out); }
void SerialArrayAllocator::cReplicate(const std::complex<double>& v, int n, CArrayPtr& out) { impl_->cReplicate(v, n, out); }
void SerialArrayAllocator::dClone(const DArrayPtr& source, DArrayPtr& out) { impl_->dClone(source, out); }
void SerialArrayAllocator::dClone(const CArrayPtr& source, DArrayPtr& out) { impl_->dClone(source, out); }
void SerialArrayAllocator::cClone(const DArrayPtr& source, CArrayPtr& out) { impl_->cClone(source, out); }
void SerialArrayAllocator::cClone(const CArrayPtr& source, CArrayPtr& out) { impl_->cClone(source, out); }
void SerialArrayAllocator::release(DArrayPtr& array) { impl_->release(array); }
void SerialArrayAllocator::release(CArrayPtr& array) { impl_->release(array); }
void SerialArrayAllocator::release(DArray2Ptr& array) { impl_->release(array); }
void SerialArrayAllocator::release(CArray2Ptr& array) { impl_->release(array); }
void SerialArrayAllocator::release(DArray3Ptr& array) { impl_->release(array); }
void SerialArrayAllocator::release(CArray3Ptr& array) { impl_->release(array); }
unsigned long SerialArrayAllocator::getBlockSize() const { return impl_->getBlockSize(); }
unsigned long SerialArrayAllocator::getMaxExtraSize() const { return impl_->getMaxExtraSize(); }

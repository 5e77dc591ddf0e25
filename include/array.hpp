// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <new>
#include <sys/mman.h>
#include <type_traits>
#include <utility>

namespace qxarray_detail {

/// Elements behind the end that a block has room for: matrix-vector products of some BLAS libraries read one complex
/// number too many. Nobody uses what is there.
template <class T>
constexpr std::uint32_t spareElements = std::is_same_v<T, std::complex<double>> ? 1 : 0;

/// First element count that is refused, spare ones included: a block must stay below 2^32 bytes.
template <class T>
constexpr std::uint64_t elementLimit() { return 0xffffffffULL / sizeof(T); }

/// First touch of a large fresh block costs more than many kernels that fill it; huge pages take two thirds of that
/// away. Only advice: failure is ignored.
inline void adviseHugePages(void* block, std::size_t bytes)
{
    constexpr std::size_t page = 4096, threshold = std::size_t(4) << 20;
    if (bytes < threshold)
        return;
    const auto first = (reinterpret_cast<std::uintptr_t>(block) + page - 1) / page * page;
    const auto last = (reinterpret_cast<std::uintptr_t>(block) + bytes) / page * page;
    (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

} // namespace qxarray_detail

/// Dense column-major array of rank N = 1, 2 or 3 that owns its element block: the first index runs fastest, which is
/// the order that LAPACK takes.
///
/// T is double, std::complex<double>, int, long, unsigned long, char or bool. New elements are not initialised (complex
/// ones are zero by their constructor; do not rely on it). A request whose element count times sizeof(T) reaches
/// 2^32 - 1 bytes (one element less for complex numbers, whose blocks have 16 spare bytes behind them), or whose product of extents reaches 4294967295, throws std::bad_alloc and leaves extents and capacity
/// 0, stride 1 and the data pointer null. There is no growth slack: the capacity is the count asked for last.
///
/// Ownership: the block is the array's own. Copies are deep, over the whole capacity. Threads: as for a plain value.
template <class T, int N>
class Array
{
    static_assert(N >= 1 && N <= 3, "Array has rank 1, 2 or 3");

public:
    using value_type = T;

    /// Empty: extents 0, stride 1, no block.
    Array() = default;
    /// n elements (rank 1).
    explicit Array(unsigned long n) requires(N == 1) { resize(n); }
    explicit Array(int n) requires(N == 1) : Array(static_cast<unsigned long>(n)) {}
    explicit Array(unsigned n) requires(N == 1) : Array(static_cast<unsigned long>(n)) {}
    /// Extents read from an array of N numbers (not an element count).
    explicit Array(const unsigned long* extents) { resize(extents); }
    /// m rows, n columns.
    Array(unsigned long m, unsigned long n) requires(N == 2) { resize(m, n); }
    Array(unsigned long m, unsigned long n, unsigned long k) requires(N == 3) { resize(m, n, k); }

    /// Deep copy of the whole capacity, which may exceed size() when the array was leased from an allocator.
    Array(const Array& other)
    {
        allocate(other.capacity_);
        std::copy_n(other.data_, capacity_, data_);
        copyShape(other);
    }

    Array(Array&& other) noexcept { swap(other); }

    Array& operator=(const Array& other)
    {
        if (this == &other)
            return *this;
        if (capacity_ != other.capacity_) {
            discard();
            allocate(other.capacity_);
        }
        std::copy_n(other.data_, capacity_, data_);
        copyShape(other);
        return *this;
    }

    Array& operator=(Array&& other) noexcept
    {
        swap(other);
        return *this;
    }

    ~Array() { deleteBlock(data_); }

    /// Fills the whole capacity, not only size() elements.
    Array& operator=(const T& value)
    {
        std::fill_n(data_, capacity_, value);
        return *this;
    }

    /// Same count: keeps block and contents. Other count: releases the block, then allocates one of exactly n elements;
    /// contents are lost. A failure leaves the array empty, with a null block.
    void resize(unsigned long n) requires(N == 1) { reshape({n}); }
    void resize(unsigned long m, unsigned long n) requires(N == 2) { reshape({m, n}); }
    void resize(unsigned long m, unsigned long n, unsigned long k) requires(N == 3) { reshape({m, n, k}); }
    void resize(const unsigned long* extents)
    {
        unsigned long e[N];
        std::copy_n(extents, N, e);
        reshape(e);
    }

    /// Extents 0; a block that was not empty is replaced by one of no elements.
    void clear()
    {
        const bool hadBlock = capacity_ != 0;
        if (hadBlock) {
            discard();
            data_ = newBlock(0);
        }
        setShape({});
    }

    void swap(Array& other) noexcept
    {
        std::swap(extents_, other.extents_);
        std::swap(strides_, other.strides_);
        std::swap(data_, other.data_);
        std::swap(capacity_, other.capacity_);
    }

    /// Number of elements in use: the product of the extents.
    unsigned long size() const
    {
        unsigned long n = 1;
        for (std::uint32_t e : extents_)
            n *= e;
        return n;
    }
    /// Extent of dimension d, 0-based.
    unsigned long extent(int d) const { return extents_[d]; }
    unsigned long stride(int d) const { return strides_[d]; }
    /// Element count of the block.
    unsigned long capacity() const { return capacity_; }

    T* data() { return data_; }
    const T* data() const { return data_; }
    T* begin() { return data_; }
    const T* begin() const { return data_; }
    T* end() { return data_ + size(); }
    const T* end() const { return data_ + size(); }

    /// Element of the block by its linear index. Not checked.
    T& operator[](unsigned long i) { return data_[i]; }
    const T& operator[](unsigned long i) const { return data_[i]; }
    T& operator()(unsigned long i) { return data_[i]; }
    const T& operator()(unsigned long i) const { return data_[i]; }
    T& operator()(unsigned long i, unsigned long j) requires(N >= 2) { return data_[i + std::size_t(strides_[1]) * j]; }
    const T& operator()(unsigned long i, unsigned long j) const requires(N >= 2)
    {
        return data_[i + std::size_t(strides_[1]) * j];
    }
    T& operator()(unsigned long i, unsigned long j, unsigned long k) requires(N == 3)
    {
        return data_[i + std::size_t(strides_[1]) * j + std::size_t(strides_[2]) * k];
    }
    const T& operator()(unsigned long i, unsigned long j, unsigned long k) const requires(N == 3)
    {
        return data_[i + std::size_t(strides_[1]) * j + std::size_t(strides_[2]) * k];
    }

    /// A place for invariant checks; does nothing in a release build.
    void ASSERT_() const {}

private:
    void reshape(const unsigned long (&extents)[N])
    {
        double product = 1.0;
        for (unsigned long e : extents)
            product *= static_cast<double>(e);
        const bool tooMany = product + spare >= static_cast<double>(qxarray_detail::elementLimit<T>());
        if (tooMany || (N > 1 && product >= 4294967295.0)) {
            discard();
            throw std::bad_alloc();
        }
        const auto n = static_cast<std::uint32_t>(product);
        if (n != capacity_ || data_ == nullptr) {
            discard();
            allocate(n);
        }
        setShape(extents);
    }

    /// Releases the block and leaves the empty state with a null pointer.
    void discard() noexcept
    {
        deleteBlock(data_);
        data_ = nullptr;
        capacity_ = 0;
        setShape({});
    }

    // On a cache line, which the widest vector loads need to be fast.
    static constexpr std::align_val_t kAlignment{64};
    static constexpr std::uint32_t spare = qxarray_detail::spareElements<T>;
    static T* newBlock(std::uint32_t n) { return new (kAlignment) T[n == 0 ? 0 : n + spare]; }
    static void deleteBlock(T* block) noexcept
    {
        static_assert(std::is_trivially_destructible_v<T>);
        ::operator delete[](block, kAlignment);
    }

    void allocate(std::uint32_t n)
    {
        data_ = newBlock(n);
        capacity_ = n;
        qxarray_detail::adviseHugePages(data_, std::size_t(n) * sizeof(T));
    }

    void setShape(const unsigned long (&extents)[N]) noexcept
    {
        std::uint32_t stride = 1;
        for (int d = 0; d < N; ++d) {
            extents_[d] = static_cast<std::uint32_t>(extents[d]);
            strides_[d] = d == 0 ? 1 : stride;
            stride *= extents_[d];
        }
    }

    void copyShape(const Array& other) noexcept
    {
        std::copy_n(other.extents_, N, extents_);
        std::copy_n(other.strides_, N, strides_);
    }

    std::uint32_t extents_[N] = {};
    std::uint32_t strides_[N] = {1};
    T* data_ = nullptr;
    std::uint32_t capacity_ = 0;
};

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What the parallel members of the stores share: teams whose work is dealt to numbered shares, and scratch memory.

#include "array.hpp"
#include "qxexception.hpp"
#include "qxparallel.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <omp.h>
#include <vector>

namespace qxsparse {

/// Half-open range of items.
struct Slice
{
    unsigned long from, to;
};

/// The threads of one operation. Work is dealt to size() numbered shares; a team that OpenMP makes smaller than asked
/// for walks the shares that are left, so results never depend on the team that was given.
class Team
{
public:
    /// Rule for sums, products and transposition.
    static Team ofWork(unsigned long work)
    {
        qxbase::Parallel policy;
        policy.setNumberThreads(work);
        return Team(policy.isParallelizable(work) ? policy.getNumberThreads() : 1);
    }
    /// Rule for loops over the values of a store.
    static Team ofLoop(unsigned long count) { return Team(qxbase::isParallelLoop(count) ? AVAILABLETHREADS() : 1); }
    explicit Team(int shares) : Team(shares, shares) {}
    /// A number of shares that does not follow the number of threads.
    Team(int shares, int threads)
        : shares_(shares), threads_(AVAILABLETHREADS() > 1 ? std::min(shares, threads) : 1)
    {
    }

    int size() const { return shares_; }
    Slice even(unsigned long n, int share) const
    {
        Slice s;
        qxbase::Parallel::evenSlice(n, share, shares_, s.from, s.to);
        return s;
    }
    /// Division of n columns by the entries between their offsets.
    Slice weighted(unsigned long n, const unsigned long* offsets, int share) const
    {
        if (shares_ == 1)
            return {0, n};
        Slice s;
        qxbase::Parallel::weightedSlice(n, offsets[n], share, shares_, offsets, s.from, s.to);
        return s;
    }

    /// Runs body(share) for every share and returns when all are done. The first failure is raised after that.
    template <class Body>
    void run(const Body& body) const
    {
        if (threads_ == 1) {
            for (int share = 0; share < shares_; ++share)
                body(share);
            return;
        }
        qxbase::ParallelException failure;
#pragma omp parallel num_threads(threads_)
        for (int share = omp_get_thread_num(); share < shares_; share += omp_get_num_threads()) {
            try {
                body(share);
            } catch (...) {
                failure.storeCurrent();
            }
        }
        failure.throwException();
    }
    /// body(i) for i below n, each share its even slice.
    template <class Body>
    void forEach(unsigned long n, const Body& body) const
    {
        run([&](int share) {
            const Slice s = even(n, share);
            for (unsigned long i = s.from; i < s.to; ++i)
                body(i);
        });
    }

private:
    int shares_, threads_;
};

/// Uninitialised scratch memory of n elements of a trivial type, on huge pages when it is large. std::bad_alloc, also for
/// a count whose bytes no pointer spans.
template <class E>
class Scratch
{
public:
    Scratch() = default;
    explicit Scratch(std::size_t n)
    {
        if (n > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(E))
            throw std::bad_alloc();
        data_.reset(static_cast<E*>(::operator new(n * sizeof(E))));
        qxarray_detail::adviseHugePages(data_.get(), n * sizeof(E));
    }
    E* get() const { return data_.get(); }
    E& operator[](std::size_t i) const { return data_.get()[i]; }

private:
    struct Release
    {
        void operator()(E* p) const { ::operator delete(p); }
    };
    std::unique_ptr<E, Release> data_;
};

/// Row markers, one zeroed area for each share, made by the thread that uses it.
class Markers
{
public:
    Markers(const Team& team, unsigned long rows) : rows_(rows), areas_(static_cast<std::size_t>(team.size())) {}
    std::uint32_t* make(int share) const
    {
        Scratch<std::uint32_t>& area = areas_[static_cast<std::size_t>(share)];
        area = Scratch<std::uint32_t>(rows_);
        std::fill_n(area.get(), rows_, 0U);
        return area.get();
    }
    std::uint32_t* of(int share) const { return areas_[static_cast<std::size_t>(share)].get(); }

private:
    unsigned long rows_;
    mutable std::vector<Scratch<std::uint32_t>> areas_;
};

/// counts[1..n] to running sums: offsets[j+1] = offsets[j] + count of j. offsets[0] stays.
inline void runningSum(unsigned long* offsets, unsigned long n)
{
    for (unsigned long j = 0; j < n; ++j)
        offsets[j + 1] += offsets[j];
}

} // namespace qxsparse

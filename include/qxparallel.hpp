// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

/// Threads that the library may use now; at least 1. Starts as OpenMP's own maximum.
///
/// In a child process made by fork it is 1 for the thread that forked, and OpenMP's count for this thread too: the team it
/// may have used does not exist there. Threads made in the child have teams of their own. A fork while another thread is
/// inside the library is good for nothing but exec: locks may be held that nobody gives back.
///
/// A team that the system refuses to make ends the process: the OpenMP runtime says "Thread creation failed" and exits, and
/// nothing can be caught. Set OMP_THREAD_LIMIT, or fewer threads here, where the number of threads is rationed.
QX_API int AVAILABLETHREADS();
/// Upper bound of AVAILABLETHREADS over the life of the process so far: tables with one place a thread take this size.
QX_API int MAXAVAILABLETHREADS();

namespace qxbase {

/// For hosts and tests: sets AVAILABLETHREADS (values below 1 mean 1) and raises MAXAVAILABLETHREADS to it if needed.
/// More threads than processors are allowed. Returns the former value.
QX_API int setAvailableThreads(int count);

/// From this count of elements on, loops over values, products and sweeps go parallel.
constexpr unsigned long parallelThreshold = 10000;

/// The rule for loops over count elements (scaling, conjugation, sums of arrays), matrix-vector products and sweeps:
/// count >= 10000, more than one thread available, and not in a parallel region already.
QX_API bool isParallelLoop(unsigned long count);

/// Thread policy of one operation: decides whether it goes parallel, how large its team is and who does what.
///
///     qxbase::Parallel parallel;
///     const bool fork = parallel.isParallelizable(work);
///     parallel.setNumberThreads(work);
///     #pragma omp parallel if(fork) num_threads(parallel.getNumberThreads())
///     { unsigned long from, to; parallel.optimalWork(n, from, to); ... }
///
/// OpenMP may give a smaller team than asked for: the slices belong to the team that runs. Outside a region the caller
/// is a team of one. Bodies that need exactly getNumberThreads() slices loop over slice numbers and name them.
/// Threads: an object belongs to one thread; getPID and optimalWork may be called by every member of a team.
class QX_API Parallel
{
public:
    Parallel() = default;

    /// True from 10000 on if more than one thread is available and the caller is not inside a parallel region.
    bool isParallelizable(unsigned long work) const;
    /// Team size for an amount of work: all available threads if it is parallelizable, else 1.
    void setNumberThreads(unsigned long work);
    /// What setNumberThreads chose; 1 before.
    int getNumberThreads() const { return threads_; }
    /// Processors that this process may run on.
    int getNumberCPUs() const;
    /// The calling thread's index in its team.
    int getPID() const;

    /// This thread's half-open slice of n items. Slices are contiguous, ordered by thread and cover [0, n); the first
    /// n mod T of T threads have one item more.
    void optimalWork(unsigned long n, unsigned long& from, unsigned long& to) const;

    /// This thread's slice of n columns, balanced by weight: weights (n + 1) is the running sum with weights[0] = 0 (a
    /// column offset array), total its last value. Slice p begins at the first column whose running sum is at least
    /// p total / T, so the slices are contiguous, ordered, disjoint and cover [0, n) for every T.
    void optimalWork(unsigned long n, unsigned long total, const unsigned long* weights, unsigned long& from,
                     unsigned long& to) const;
    /// The same slice for a named thread of a team of getNumberThreads().
    void optimalWork(unsigned long n, unsigned long total, int pid, const unsigned long* weights, unsigned long& from,
                     unsigned long& to) const;

    /// Slice number pid of team in an even division of n items.
    static void evenSlice(unsigned long n, int pid, int team, unsigned long& from, unsigned long& to);
    /// Slice number pid of team in a division by weight, as optimalWork says.
    static void weightedSlice(unsigned long n, unsigned long total, int pid, int team, const unsigned long* weights,
                              unsigned long& from, unsigned long& to);

private:
    int threads_ = 1;
};

/// Sets the number of threads that BLAS uses for a scope and restores it at the end.
///
/// The library is found at run time; with another BLAS than OpenBLAS, or none, nothing happens. A build that takes its
/// threads from OpenMP has a count for each calling thread: omp_set_num_threads, and no other thread notices. A build with
/// threads of its own has one count for the process: that of the newest scope holds, and the count from before the first
/// scope comes back with the end of the last, in whatever order scopes of different threads end.
class QX_API BlasThreadScope
{
public:
    explicit BlasThreadScope(int count);
    ~BlasThreadScope();
    BlasThreadScope(const BlasThreadScope&) = delete;
    BlasThreadScope& operator=(const BlasThreadScope&) = delete;

    /// Threads that BLAS may use now when this thread calls it; 0 when it cannot be asked.
    static int current();

private:
    enum class Kind { None, OfThread, OfProcess } kind_;
    int count_, before_ = 0;
    BlasThreadScope* older_ = nullptr;
};

} // namespace qxbase

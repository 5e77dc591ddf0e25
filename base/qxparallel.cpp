// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxparallel.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>

#include <dlfcn.h>
#include <omp.h>
#include <pthread.h>

namespace {

struct ThreadLimits
{
    std::atomic<int> available{std::max(1, omp_get_max_threads())};
    std::atomic<int> maximum{std::max(available.load(), omp_get_num_procs())};
};

ThreadLimits& limits()
{
    static ThreadLimits instance;
    return instance;
}

/// In a child process: this is the thread that forked, and the team that it may have had stayed behind in the parent.
thread_local bool hasLostTeam = false;

void beginChild()
{
    hasLostTeam = true;
    omp_set_num_threads(1); // for BLAS libraries that open teams of their own
}

/// Registered with this shared library: the handler goes when it is closed.
[[maybe_unused]] const int childHandler = pthread_atfork(nullptr, nullptr, beginChild);

/// OpenBLAS's own controls; null while no such library is in the process.
struct BlasControls
{
    void (*set)(int) = nullptr;
    int (*get)() = nullptr;
    bool openMp = false; ///< it takes its threads from OpenMP

    void find(void* library)
    {
        auto* setter = reinterpret_cast<void (*)(int)>(dlsym(library, "openblas_set_num_threads"));
        auto* getter = reinterpret_cast<int (*)()>(dlsym(library, "openblas_get_num_threads"));
        if (setter && getter) {
            set = setter;
            get = getter;
            constexpr int byOpenMp = 2;
            auto* kind = reinterpret_cast<int (*)()>(dlsym(library, "openblas_get_parallel"));
            openMp = kind && kind() == byOpenMp;
        }
    }
};

BlasControls blas()
{
    static std::mutex mutex;
    static BlasControls controls;
    const std::lock_guard lock(mutex);
    if (!controls.set)
        controls.find(RTLD_DEFAULT);
    if (!controls.set) // a host may have loaded us, and it, with local symbol scope
        if (void* library = dlopen("libopenblas.so.0", RTLD_LAZY | RTLD_NOLOAD))
            controls.find(library);
    return controls;
}

} // namespace

int AVAILABLETHREADS() { return hasLostTeam ? 1 : limits().available.load(std::memory_order_relaxed); }
int MAXAVAILABLETHREADS() { return limits().maximum.load(std::memory_order_relaxed); }

namespace qxbase {

int setAvailableThreads(int count)
{
    count = std::max(1, count);
    ThreadLimits& l = limits();
    int maximum = l.maximum.load();
    while (maximum < count && !l.maximum.compare_exchange_weak(maximum, count)) {
    }
    return l.available.exchange(count);
}

bool isParallelLoop(unsigned long count)
{
    return count >= parallelThreshold && AVAILABLETHREADS() > 1 && !omp_in_parallel();
}

bool Parallel::isParallelizable(unsigned long work) const { return isParallelLoop(work); }

void Parallel::setNumberThreads(unsigned long work) { threads_ = isParallelizable(work) ? AVAILABLETHREADS() : 1; }

int Parallel::getNumberCPUs() const { return omp_get_num_procs(); }

int Parallel::getPID() const { return omp_get_thread_num(); }

void Parallel::optimalWork(unsigned long n, unsigned long& from, unsigned long& to) const
{
    evenSlice(n, omp_get_thread_num(), omp_get_num_threads(), from, to);
}

void Parallel::optimalWork(unsigned long n, unsigned long total, const unsigned long* weights, unsigned long& from,
                           unsigned long& to) const
{
    weightedSlice(n, total, omp_get_thread_num(), omp_get_num_threads(), weights, from, to);
}

void Parallel::optimalWork(unsigned long n, unsigned long total, int pid, const unsigned long* weights,
                           unsigned long& from, unsigned long& to) const
{
    weightedSlice(n, total, pid, threads_, weights, from, to);
}

void Parallel::evenSlice(unsigned long n, int pid, int team, unsigned long& from, unsigned long& to)
{
    const auto p = static_cast<unsigned long>(pid), t = static_cast<unsigned long>(team);
    const unsigned long share = n / t, rest = n % t;
    from = p * share + std::min(p, rest);
    to = from + share + (p < rest ? 1 : 0);
}

void Parallel::weightedSlice(unsigned long n, unsigned long total, int pid, int team, const unsigned long* weights,
                             unsigned long& from, unsigned long& to)
{
    const auto boundary = [&](int p) -> unsigned long {
        if (p <= 0)
            return 0;
        if (p >= team)
            return n;
        // ceil(p total / team), by parts so that the product cannot overflow
        const auto q = static_cast<unsigned long>(p), t = static_cast<unsigned long>(team);
        const unsigned long bound = total / t * q + (total % t * q + t - 1) / t;
        return static_cast<unsigned long>(std::lower_bound(weights, weights + n, bound) - weights);
    };
    from = boundary(pid);
    to = boundary(pid + 1);
}

namespace {

/// The scopes that hold the process-wide count of a BLAS library, newest first, and the count from before the first.
std::mutex scopesMutex;
BlasThreadScope* newestScope = nullptr;
int countBeforeScopes = 0;

} // namespace

BlasThreadScope::BlasThreadScope(int count) : count_(std::max(1, count))
{
    const BlasControls controls = blas();
    if (!controls.set) {
        kind_ = Kind::None;
    } else if (controls.openMp) {
        kind_ = Kind::OfThread;
        before_ = omp_get_max_threads();
        omp_set_num_threads(count_);
    } else {
        kind_ = Kind::OfProcess;
        const std::lock_guard lock(scopesMutex);
        if (!newestScope)
            countBeforeScopes = controls.get();
        older_ = newestScope;
        newestScope = this;
        controls.set(count_);
    }
}

BlasThreadScope::~BlasThreadScope()
{
    if (kind_ == Kind::OfThread) {
        omp_set_num_threads(before_);
    } else if (kind_ == Kind::OfProcess) {
        const std::lock_guard lock(scopesMutex);
        BlasThreadScope** link = &newestScope;
        while (*link != this)
            link = &(*link)->older_;
        *link = older_;
        blas().set(newestScope ? newestScope->count_ : countBeforeScopes);
    }
}

int BlasThreadScope::current()
{
    const BlasControls controls = blas();
    return !controls.get ? 0 : controls.openMp ? omp_get_max_threads() : controls.get();
}

} // namespace qxbase

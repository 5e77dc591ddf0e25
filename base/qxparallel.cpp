#include "qxparallel.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>

#include <dlfcn.h>
#include <omp.h>

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

/// OpenBLAS's own controls; null while no such library is in the process.
struct BlasControls
{
    void (*set)(int) = nullptr;
    int (*get)() = nullptr;

    void find(void* library)
    {
        auto* setter = reinterpret_cast<void (*)(int)>(dlsym(library, "openblas_set_num_threads"));
        auto* getter = reinterpret_cast<int (*)()>(dlsym(library, "openblas_get_num_threads"));
        if (setter && getter) {
            set = setter;
            get = getter;
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

int AVAILABLETHREADS() { return limits().available.load(std::memory_order_relaxed); }
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

BlasThreadScope::BlasThreadScope(int count) : before_(current())
{
    if (before_ > 0 && before_ != count)
        blas().set(std::max(1, count));
}

BlasThreadScope::~BlasThreadScope()
{
    if (before_ > 0 && current() != before_)
        blas().set(before_);
}

int BlasThreadScope::current()
{
    const BlasControls controls = blas();
    return controls.get ? controls.get() : 0;
}

} // namespace qxbase

#pragma once

#include "qxparallel.hpp"

#include <mutex>
#include <optional>

namespace qxsolvers_detail {

/// While objects of this class live, BLAS works with one thread: a factorisation then has the same bits however many there
/// are, which parallel BLAS does not give (OpenBLAS's gemm and gemv divide sums). The pieces of a sparse factorisation are
/// also too small to be shared on a machine that has other work: threads would wait for each other at each one.
///
/// Threads: objects of different threads may overlap; the count of before comes back with the last one.
class OneBlasThread
{
public:
    OneBlasThread()
    {
        const std::lock_guard lock(mutex_);
        if (users_++ == 0)
            scope_.emplace(1);
    }
    ~OneBlasThread()
    {
        const std::lock_guard lock(mutex_);
        if (--users_ == 0)
            scope_.reset();
    }
    OneBlasThread(const OneBlasThread&) = delete;
    OneBlasThread& operator=(const OneBlasThread&) = delete;

private:
    static inline std::mutex mutex_;
    static inline int users_ = 0;
    static inline std::optional<qxbase::BlasThreadScope> scope_;
};

} // namespace qxsolvers_detail

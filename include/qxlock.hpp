// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>

#include <mutex>

namespace qxbase {

/// A lock that its owner may take again; other threads wait. Shared by boost::shared_ptr, held through LockHandler.
///
/// It belongs to the operating system's thread, not to an OpenMP task: entering again from a nested parallel region of
/// one thread does not dead-lock.
class NestedLock
{
public:
    void lock() { mutex_.lock(); }
    bool try_lock() { return mutex_.try_lock(); }
    void unlock() { mutex_.unlock(); }

private:
    std::recursive_mutex mutex_;
};

/// Holds a NestedLock, and a share in it, for a scope. lock is never null.
class LockHandler
{
public:
    explicit LockHandler(const boost::shared_ptr<NestedLock>& lock) : lock_(lock) { lock_->lock(); }
    ~LockHandler() { lock_->unlock(); }
    LockHandler(const LockHandler&) = delete;
    LockHandler& operator=(const LockHandler&) = delete;

private:
    boost::shared_ptr<NestedLock> lock_;
};

/// A plain lock, not to be taken twice by one thread. Use with std::lock_guard.
class OmpLock
{
public:
    void lock() { mutex_.lock(); }
    bool try_lock() { return mutex_.try_lock(); }
    void unlock() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

} // namespace qxbase

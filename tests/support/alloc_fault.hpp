// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <functional>
#include <new>
#include <string>

/// Allocation failures on request, and counts of allocations: the test programs replace the global operator new.
///
/// Counts and faults cover every thread and every form of operator new. Counts also cover malloc and its relatives called
/// directly, by C libraries too, where no sanitizer has them replaced already.
namespace qxtest {

/// Allocations in this process so far. Two readings around a piece of work tell how often it allocated.
long allocationCount();
/// Blocks from operator new that have not been deleted. Equal before and after a piece of work: nothing leaked.
long liveAllocations();

/// From now on only allocations by code between two addresses, such as those of one library, count for faults and may
/// fail; null: all.
void failOnlyIn(const void* from, const void* to);

/// Lets the n-th allocation from now on (n >= 1) fail with std::bad_alloc; with andAllLater, every one after it too.
/// The destructor ends it. One at a time.
class AllocFault
{
public:
    explicit AllocFault(long n, bool andAllLater = false);
    ~AllocFault();
    AllocFault(const AllocFault&) = delete;
    AllocFault& operator=(const AllocFault&) = delete;
    /// Whether an allocation failed.
    bool happened() const;
};

/// How one run under failEveryAllocation ended.
struct FaultRun
{
    long n;          ///< number of the allocation that was to fail
    bool faulted;    ///< whether there was such an allocation; false in the last, undisturbed run
    bool badAlloc;   ///< std::bad_alloc came out
    std::string id;  ///< identifier of the qxbase::Exception that came out, or empty
    long leaked;     ///< blocks more than before the run; the exception's own are gone by then
};

/// Runs act again and again with its first, second, third ... allocation failing, until a run needs no more
/// allocations; after each run, with faults off, calls check. Returns the number of allocations that act made.
/// A std::bad_alloc or qxbase::Exception that leaves act is reported to check; anything else passes through.
long failEveryAllocation(const std::function<void()>& act, const std::function<void(const FaultRun&)>& check);

} // namespace qxtest

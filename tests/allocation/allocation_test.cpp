// SPDX-License-Identifier: LicenseRef-qxkernel
// Every allocation of every call fails once. The call then raises what its module promises, its objects are as they were,
// nothing leaks, and the same call made again gives what it gives undisturbed.

#include "calls.hpp"
#include "support/alloc_fault.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <set>

using namespace qxtest;

namespace {

std::vector<Call> allCalls()
{
    std::vector<Call> all;
    for (const auto& module : {baseCalls(), symbolicCalls(), compilerCalls(), denseCalls(), interpCalls(), daeCalls(), sparseCalls(),
                               functionsCalls(), evalCalls(), solversCalls(), optimCalls(), formulasCalls()})
        all.insert(all.end(), module.begin(), module.end());
    return all;
}

/// How a call ended with its n-th allocation failing.
struct Attempt
{
    bool faulted = false;
    std::string failedBy; ///< empty: it did without
};

Attempt attempt(const Prepared& prepared, long n)
{
    Attempt a;
    std::optional<AllocFault> fault(std::in_place, n);
    const auto end = [&] {
        a.faulted = fault->happened();
        fault.reset();
    };
    try {
        prepared.make();
        end();
    } catch (const std::bad_alloc&) {
        end();
        a.failedBy = "bad_alloc";
    } catch (const qxbase::Exception& e) {
        end();
        a.failedBy = e.getId();
    }
    return a;
}

bool promises(const Call& call, const std::string& identifier)
{
    return (' ' + call.failsBy + ' ').find(' ' + identifier + ' ') != std::string::npos;
}

class AllocationFailure : public testing::TestWithParam<Call>
{
};

std::string nameOf(const testing::TestParamInfo<Call>& info)
{
    std::string name = info.param.module + '_' + info.param.name;
    std::replace_if(name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Calls, AllocationFailure, testing::ValuesIn(allCalls()), nameOf);

} // namespace

TEST_P(AllocationFailure, IsRaisedByNameLeaksNothingAndLeavesEverythingAsItWas)
{
    const Call& call = GetParam();
    std::string before, wanted;
    for (int warm = 0; warm < 3; ++warm) // what is kept for good is made now
        try {
            const Prepared p = call.prepare();
            before = p.state();
            p.make();
            wanted = p.state();
        } catch (const qxbase::Exception& e) {
            FAIL() << e.toString();
        }

    long failures = 0, attempts = 0;
    for (bool faulted = true; faulted;) {
        const std::string where = "allocation " + std::to_string(++attempts);
        const long alive = liveAllocations();
        {
            const Prepared p = call.prepare();
            Attempt a = attempt(p, attempts);
            faulted = a.faulted;
            if (!a.failedBy.empty()) {
                ++failures;
                ASSERT_TRUE(faulted) << a.failedBy << " undisturbed";
                ASSERT_TRUE(promises(call, a.failedBy)) << a.failedBy << ", " << where;
                ASSERT_EQ(p.state(), before) << where;
                p.make();
            }
            ASSERT_EQ(p.state(), wanted) << where;
        }
        ASSERT_EQ(liveAllocations() - alive, 0) << "leaked, " << where;
    }

    EXPECT_GT(failures, 0) << "the call does not allocate";
    if (std::getenv("QX_ALLOCATION_TABLE"))
        std::printf("allocation: %-10s %-40s %5ld runs\n", call.module.c_str(), call.name.c_str(), attempts);
}

TEST(AllocationTable, HasCallsOfEveryModule)
{
    std::set<std::string> modules, names;
    for (const Call& call : allCalls()) {
        modules.insert(call.module);
        EXPECT_TRUE(names.insert(call.module + ' ' + call.name).second) << call.name << " stands twice";
    }

    EXPECT_EQ(modules.size(), 12u);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// A benchmark program with a case of every outcome. Which one runs is chosen by --filter.

#include "harness.hpp"
#include "qxexception.hpp"

#include <limits>
#include <string>

using namespace qxbench;

namespace {

void count(int n)
{
    for (int i = 0; i < n; ++i)
        keep(i);
}

} // namespace

void qxbench::benchmarks()
{
    BENCH("good/goal met").ours([] { count(1); }).peer("slow", [] { count(100000); }).check([] { return 0.0; }, 0.0).atMost(0.5).items(10, "points");
    BENCH("good/alone").ours([] { count(100); });
    uses("sample's peer", "7.8");
    BENCH("good/size " + std::to_string(sized(1000, 10))).ours([] { count(sized(1000, 10)); });
    BENCH("slow/goal missed").ours([] { count(100000); }).peer("fast", [] { count(1); }).atMost(1.0);
    BENCH("wrong/answer").ours([] { count(1); }).peer("other", [] { count(1); }).check([] { return 0.5; }, 0.25);
    BENCH("wrong/nan").ours([] { count(1); }).check([] { return std::numeric_limits<double>::quiet_NaN(); }, 1.0);
    BENCH("wrong/ours raises").ours([] { QX_RAISE("sample", "Nothing_works"); }).peer("other", [] { count(1); });
    BENCH("wrong/peer raises").ours([] { count(1); }).peer("other", [] { throw 1; });
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// What this machine gives: the limits that the other tables are read against.
#include "harness.hpp"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

void qxbench::benchmarks()
{
    const std::size_t n = std::size_t{1} << sized(24, 20);
    std::vector<double> x(n);
    std::vector<double> y(n);
    std::vector<double> z(n);
    std::iota(x.begin(), x.end(), 0.5);

    BENCH("memory/copy " + sized<std::string>("128 MB", "8 MB"))
        .ours([&] { std::copy(x.begin(), x.end(), y.begin()); })
        .peer("memcpy", [&] { std::memcpy(z.data(), x.data(), 8 * n); })
        .check([&] { return y == z ? 0.0 : 1.0; }, 0.0)
        .bytes(16.0 * double(n));

    double ours = 0.0;
    BENCH("memory/sum in order " + sized<std::string>("128 MB", "8 MB"))
        .ours([&] { keep(ours = std::accumulate(x.begin(), x.end(), 0.0)); })
        .check([&] { return ours / (0.5 * double(n) * double(n)) - 1.0; }, 1e-12)
        .bytes(8.0 * double(n))
        .items(double(n), "numbers");
}

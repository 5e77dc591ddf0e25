// SPDX-License-Identifier: LicenseRef-qxkernel
#include "base/nearestname_detail.hpp"

#include <algorithm>
#include <cstddef>

namespace qxbase {

namespace {

/// Edit distance with swaps of neighbours (the optimal string alignment distance), three rows of the table at a time.
std::size_t distance(const std::string& a, const std::string& b)
{
    const std::size_t n = b.size();
    std::vector<std::size_t> before(n + 1), above(n + 1), row(n + 1);
    for (std::size_t j = 0; j <= n; ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        before.swap(above);
        above.swap(row);
        row[0] = i;
        for (std::size_t j = 1; j <= n; ++j) {
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] != b[j - 1] ? 1u : 0u)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[n];
}

} // namespace

std::string nearestName(const std::string& name, const std::vector<std::string>& known)
{
    constexpr std::size_t farthest = 2, longest = 200;
    std::string nearest;
    std::size_t least = farthest + 1;
    if (name.size() > longest)
        return nearest;
    for (const std::string& k : known) {
        if (k.size() > name.size() + farthest || name.size() > k.size() + farthest)
            continue;
        const std::size_t d = distance(name, k);
        if (d < least && 2 * d < std::max(name.size(), k.size())) {
            least = d;
            nearest = k;
        }
    }
    return nearest;
}

ExceptionArgs unknownName(const std::string& name, const std::vector<std::string>& known)
{
    ExceptionArgs args{{"Name", name}};
    if (std::string nearest = nearestName(name, known); !nearest.empty())
        args.emplace_back("Nearest", std::move(nearest));
    return args;
}

} // namespace qxbase

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "dae.hpp"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <vector>

/// The signature matrix method (Pryce, BIT 41 (2001) 364-394), slow and independent of any matching algorithm.
namespace qxtest {

/// The variables in an equation with the orders of their derivatives.
using Row = std::vector<Dae::VarOrder>;

/// The smallest c, d >= 0 with d_j - c_i >= sigma_ij everywhere and equality along a transversal of largest sum, found
/// by trying all; none if there is no transversal.
struct Offsets
{
    std::vector<int> c, d;
};

inline std::optional<Offsets> signatureOffsets(const std::vector<Row>& rows)
{
    const int n = static_cast<int>(rows.size());
    std::vector<std::map<int, int>> sigma(n);
    for (int i = 0; i < n; ++i)
        for (const auto& [var, order] : rows[i])
            sigma[i][var] = std::max(order, sigma[i].count(var) ? sigma[i][var] : 0);
    std::vector<int> columns(n), best;
    std::iota(columns.begin(), columns.end(), 0);
    int bestSum = -1;
    do {
        int sum = 0;
        bool complete = true;
        for (int i = 0; i < n && complete; ++i) {
            const auto entry = sigma[i].find(columns[i]);
            complete = entry != sigma[i].end();
            if (complete)
                sum += entry->second;
        }
        if (complete && sum > bestSum) {
            bestSum = sum;
            best = columns;
        }
    } while (std::next_permutation(columns.begin(), columns.end()));
    if (best.empty())
        return std::nullopt;
    Offsets o{std::vector<int>(n, 0), std::vector<int>(n, 0)};
    for (bool changed = true; changed;) {
        changed = false;
        for (int i = 0; i < n; ++i)
            for (const auto& [j, order] : sigma[i])
                if (o.d[j] < order + o.c[i]) {
                    o.d[j] = order + o.c[i];
                    changed = true;
                }
        for (int i = 0; i < n; ++i)
            o.c[i] = o.d[best[i]] - sigma[i][best[i]];
    }
    return o;
}

} // namespace qxtest

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/ending.hpp"

#include <algorithm>
#include <cmath>

namespace ending {

int stateOf(double value, double lower, double upper, double tolerance)
{
    const auto near = [&](double bound) { return std::fabs(value - bound) <= tolerance * std::max(1.0, std::fabs(bound)); };
    if (lower == upper || near(lower))
        return 0;
    return near(upper) ? 1 : 2;
}

int markBasic(std::vector<int>& rowStates, std::vector<int>& variableStates)
{
    std::size_t wanted = rowStates.size();
    int superbasic = 0;
    for (std::vector<int>* states : {&rowStates, &variableStates})
        for (int& state : *states) {
            if (state != 2)
                continue;
            if (wanted > 0) {
                state = 3;
                --wanted;
            } else {
                ++superbasic;
            }
        }
    return superbasic;
}

double violationOf(double value, double lower, double upper)
{
    return std::max({lower - value, value - upper, 0.0});
}

bool areBadBounds(const double* lower, const double* upper, int count, double infinity)
{
    for (int i = 0; i < count; ++i)
        if (!(lower[i] <= upper[i]) || lower[i] >= infinity || upper[i] <= -infinity)
            return true;
    return false;
}

} // namespace ending

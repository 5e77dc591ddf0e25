// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <vector>

/// What is said of a point at the end of a run, for both kinds of problem.
namespace ending {

/// How a value stands to its bounds: 0 at the lower or fixed, 1 at the upper, 2 between.
int stateOf(double value, double lower, double upper, double tolerance);
/// Of those between, the first `rows` become 3: rows before variables. Returns the number that remain 2.
int markBasic(std::vector<int>& rowStates, std::vector<int>& variableStates);
/// By how much a value misses its bounds.
double violationOf(double value, double lower, double upper);

struct Infeasibility
{
    int count = 0;
    double sum = 0.0;
    void add(double violation, double tolerance)
    {
        if (violation > tolerance) {
            ++count;
            sum += violation;
        }
    }
};

/// Bounds that are no numbers, that cross, or that leave nothing on one side.
bool areBadBounds(const double* lower, const double* upper, int count, double infinity);

} // namespace ending

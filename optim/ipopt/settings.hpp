// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optim/ipopt/options.hpp"
#include "optim/ipopt/program.hpp"
#include "optim/ipopt/userfunctions.hpp"

/// Settings of both kinds of problem.
inline Settings commonSettings(const OptionStore& options)
{
    Settings settings;
    settings.scale = options.integer("Scale option", 1) != 0;
    settings.infinity = options.real("Infinite bound size", 1e20);
    return settings;
}

/// Where findStructure writes: linear entries with their values, and the pattern of the others.
struct Structure
{
    int *iA, *jA;
    double* A;
    int lenA;
    int* neA;
    int *iG, *jG;
    int lenG;
    int* neG;
};

/// Finds which entries of the Jacobian are zero, constant or neither: by differences with long steps at three points near
/// x, so that a constant slope comes out with all its digits. Cost: 3 (n + 1) evaluations.
///
/// Returns 102, 61 where the functions are undefined, 71 when the caller stopped, 91 for too little room.
int findStructure(UserFunctions& functions, const std::vector<double>& x, const std::vector<double>& xl,
                  const std::vector<double>& xu, int nF, const Structure& out);

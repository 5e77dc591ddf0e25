// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optimise/model.hpp"

/// IPOPT called directly, with the functions of a model and the options that the free optimizer gives it: what the drivers
/// and the free optimizer are measured against.
namespace qxbench {

struct DirectResult
{
    int status = -1, iterations = 0;
    double objective = 0.0;
    long evaluations = 0;
};
DirectResult solveDirectly(const examples::Model& model, double tolerance, double feasibility, int iterations);

} // namespace qxbench

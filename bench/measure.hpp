// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "harness.hpp"

#include <vector>

namespace qxbench {

/// Median and median absolute deviation: unmoved by the few samples that an interrupt lengthened.
struct Spread
{
    double median = 0.0;
    double mad = 0.0;
};
Spread spreadOf(std::vector<double> samples);

struct Effort
{
    int rounds = 15;             ///< interleaved rounds of one case
    double sampleSeconds = 0.01; ///< calls are repeated until one sample is this long
    double caseSeconds = 2.5;    ///< a case that would take longer gets fewer rounds
    int leastRounds = 3;         ///< but no fewer than these
};
/// Enough to see that a case works.
constexpr Effort quickEffort{3, 0.001, 0.05, 2};

/// Times of several pieces of work, in seconds a call, sample by sample: times[w][round].
///
/// Each round measures every piece once and each second round goes backwards, so that a change of the machine's speed
/// meets all of them alike.
std::vector<std::vector<double>> interleaved(const std::vector<Work>& works, const Effort& effort);

/// Bytes a second when n threads read an array far larger than the caches: the best of several passes. Measured once.
double readBandwidth(int threads);

} // namespace qxbench

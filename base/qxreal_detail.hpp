// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/// The elementary functions of single numbers, as the processor at hand computes them: what qxmath's functions call, for
/// loops that look it up once.
namespace qxmath {

struct RealFunctions
{
    using Unary = double (*)(double);
    using Binary = double (*)(double, double);
    Unary exp, log, log10, sin, cos, tan, asin, acos, atan, sinh, cosh, tanh;
    Binary atan2;
};

/// With fused multiply-add, whose bits are those of all vector units that have it; without.
extern const RealFunctions fmaFunctions, portableFunctions;

/// The ones for this processor.
const RealFunctions& realFunctions();

} // namespace qxmath

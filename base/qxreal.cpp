// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxreal.hpp"

#include "base/qxreal_detail.hpp"
#include "qxnumber.hpp"

#include <cmath>

namespace qxmath {

const RealFunctions& realFunctions()
{
    static const RealFunctions& best = __builtin_cpu_supports("fma") ? fmaFunctions : portableFunctions;
    return best;
}

double acosDouble(double x) { return realFunctions().acos(x); }
double asinDouble(double x) { return realFunctions().asin(x); }
double atan(double x) { return realFunctions().atan(x); }
double atan2(double y, double x) { return realFunctions().atan2(y, x); }
double cos(double x) { return realFunctions().cos(x); }
double cosh(double x) { return realFunctions().cosh(x); }
double exp(double x) { return realFunctions().exp(x); }
double log2Double(double x) { return realFunctions().log(x) * std::numbers::log2e; }
double log10Double(double x) { return realFunctions().log10(x); }
double logDouble(double x) { return realFunctions().log(x); }
double sin(double x) { return realFunctions().sin(x); }
double sinh(double x) { return realFunctions().sinh(x); }
double sqrtDouble(double x) { return std::sqrt(x); }
double tan(double x) { return realFunctions().tan(x); }
double tanh(double x) { return realFunctions().tanh(x); }

double mod(double x, double y)
{
    if (y == 0)
        return x;
    const double q = x / y;
    const double nudged = std::floor(y) == y ? 5.0 * qxGetEps() * std::fabs(q) + q : q;
    return x - std::floor(nudged) * y;
}

} // namespace qxmath

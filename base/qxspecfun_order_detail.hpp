// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <complex>

/// Bessel functions of large order: what can be said of them at a fixed cost, whatever the order.
///
/// Recurrences take as many steps as the order is large, and ball arithmetic as many bits as the value has, so that
/// Y of order 1e5 at 0.5, which is -Inf in double, takes a second and one of order 1e60 ten. The uniform expansions
/// (DLMF 10.41.3, 10.41.4) tell first whether the value has a size that a double can hold.
namespace qxspecfun_detail {

enum class Bessel { J, Y, I, K };

/// How large a value is, as far as it matters to a double.
enum class Size {
    Open,    ///< it may be an ordinary number
    Zero,    ///< surely below the smallest double
    Infinite ///< surely above the largest
};

struct Magnitude
{
    Size size;
    bool isByK; ///< the solution that decays in the argument, K or Y, is the larger part; else I or J
};

/// The magnitude of one function at z, which is not 0. Open for |nu| below 100.
Magnitude magnitudeOf(Bessel kind, double nu, const std::complex<double>& z);

/// I_nu(x) and K_nu(x) for x > 0 and nu from mostRecurred on by four terms of the uniform expansions in 64-bit mantissas.
/// Relative error: 1e-15 + nu 2e-19.
struct Modified
{
    long double i, k;
};
Modified modifiedOfLargeOrder(double nu, double x);

constexpr double mostRecurred = 1e4;   ///< I and K: beyond, the expansions
constexpr double mostExpanded = 1e9;   ///< I and K: beyond, they have lost seven digits
constexpr double mostOscillating = 1e5; ///< J and Y: recurrences of more steps are not begun
constexpr double mostComplex = 4000;   ///< complex arguments: beyond, ball arithmetic ends without a value

} // namespace qxspecfun_detail

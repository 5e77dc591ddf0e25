// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxspecfun_order_detail.hpp"

#include "qxspecfun_detail.hpp"

#include <numbers>

namespace qxspecfun_detail {

namespace {

using Wide = long double;
constexpr Wide pi = std::numbers::pi_v<Wide>;

/// log |I_nu(w)| and log |K_nu(w)| for Re w >= 0, by the first term of their expansions: within 0.1 for nu >= 100 away
/// from w = +-i nu, where both are near 0. Beyond those points on the imaginary axis they are bounds of the oscillation.
struct Growth
{
    Wide i, k;
    Wide doubt; ///< rounding errors of either
};

Growth growthOf(Wide nu, const std::complex<Wide>& w)
{
    const std::complex<Wide> z = w / nu, iz(-z.imag(), z.real());
    const std::complex<Wide> root = std::sqrt(Wide(1) + iz) * std::sqrt(Wide(1) - iz); // of 1 + z^2
    const std::complex<Wide> logarithm = std::log(z / (Wide(1) + root));
    const Wide eta = (root + logarithm).real();
    const Wide doubt = 4 * std::numeric_limits<Wide>::epsilon() * nu * (std::abs(root) + std::abs(logarithm));
    const Wide scale = std::max(std::abs(root), 1 / nu);
    return {nu * eta - std::log(2 * pi * nu * scale) / 2, -nu * eta + std::log(pi / (2 * nu * scale)) / 2, doubt};
}

} // namespace

Magnitude magnitudeOf(Bessel kind, double nu, const std::complex<double>& z)
{
    constexpr double least = 100;
    // The largest double is exp(709.8), the smallest exp(-745.1). A factor sin(pi nu) that is not 0 is at least 1e-14, and
    // parts that differ by less than exp(50) might cancel.
    constexpr Wide tooLarge = 760, tooSmall = -760, apart = 50;
    if (std::fabs(nu) < least)
        return {Size::Open, false};

    // J and Y are combinations of I and K of the argument turned by a quarter, in size the same in both half planes.
    const bool isModified = kind == Bessel::I || kind == Bessel::K;
    std::complex<Wide> w = isModified ? std::complex<Wide>(z) : std::complex<Wide>(z.imag(), -z.real());
    const bool isLeft = w.real() < 0;
    const Growth growth = growthOf(std::fabs(nu), isLeft ? -w : w);
    const bool isWholeOrPositive = nu >= 0 || isWhole(nu);
    const bool hasI = kind != Bessel::K || isLeft;
    const bool hasK = kind == Bessel::K || kind == Bessel::Y || !isWholeOrPositive;

    const bool isByK = hasK && (!hasI || growth.k > growth.i);
    const Wide larger = isByK ? growth.k : growth.i, smaller = hasI && hasK ? std::min(growth.i, growth.k) : -infinity;
    if (larger + growth.doubt < tooSmall)
        return {Size::Zero, isByK};
    if (larger - growth.doubt > tooLarge && larger - smaller - 2 * growth.doubt > apart)
        return {Size::Infinite, isByK};
    return {Size::Open, isByK};
}

Modified modifiedOfLargeOrder(double nu, double x)
{
    const Wide order = nu, z = x / order, root = std::sqrt(1 + z * z), exponent = order * (root + std::log(z / (1 + root)));
    const Wide p = 1 / root, q = p * p;
    // DLMF 10.41.10 and 10.41.11; U4 from the recurrence 10.41.9.
    const Wide u[] = {p * (3 - 5 * q) / 24, q * (81 + q * (-462 + 385 * q)) / 1152,
                      p * q * (30375 + q * (-369603 + q * (765765 - 425425 * q))) / 414720,
                      q * q * (4465125 + q * (-94121676 + q * (349922430 + q * (-446185740 + 185910725 * q)))) / 39813120};
    Wide even = 1, odd = 0, power = 1;
    for (int k = 0; k < 4; ++k) {
        power /= order;
        (k % 2 == 0 ? odd : even) += u[k] * power;
    }
    return {std::exp(exponent) / std::sqrt(2 * pi * order * root) * (even + odd),
            std::exp(-exponent) * std::sqrt(pi / (2 * order * root)) * (even - odd)};
}

} // namespace qxspecfun_detail

// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas.hpp"

#include <complex>
#include <cstddef>
#include <vector>

namespace qxtest {

using cplx = std::complex<double>;

/// n numbers that differ, from lower to upper.
inline std::vector<double> ramp(std::size_t n, double lower, double upper)
{
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = lower + (upper - lower) * static_cast<double>(i) / static_cast<double>(n);
    return v;
}

/// The values of one formula of x over x.
inline std::vector<double> valuesOf(const std::string& expression, const std::vector<double>& x,
                                    const qx::Options& options = {})
{
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add(expression);
    std::vector<double> out(x.size());
    qx::Points p(x.size());
    p.set("x", x);
    f.compile().evaluate(p, formula, out, options);
    return out;
}

} // namespace qxtest

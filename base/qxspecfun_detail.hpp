// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxspecfun.hpp"

#include <boost/math/policies/policy.hpp>

#include <cmath>
#include <complex>
#include <exception>
#include <limits>

/// What the special functions share: the no-throw policy and the way a value becomes a status.
namespace qxspecfun_detail {

/// Poles and overflow come back as NaN or infinity. A method that did not converge, or that cannot count its own steps,
/// throws: with such an error ignored it returns whatever it holds, the order of a Bessel function for one. The work is
/// done with 64 bits of mantissa: in double, recurrences and asymptotic series lose up to a dozen bits.
using Quiet = boost::math::policies::policy<
    boost::math::policies::domain_error<boost::math::policies::ignore_error>,
    boost::math::policies::pole_error<boost::math::policies::ignore_error>,
    boost::math::policies::overflow_error<boost::math::policies::ignore_error>,
    boost::math::policies::indeterminate_result_error<boost::math::policies::ignore_error>,
    boost::math::policies::promote_float<false>, boost::math::policies::promote_double<true>>;

constexpr double quietNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

inline bool isNaN(const std::complex<double>& z) { return std::isnan(z.real()) || std::isnan(z.imag()); }
inline bool isFinite(const std::complex<double>& z) { return std::isfinite(z.real()) && std::isfinite(z.imag()); }
inline bool isWhole(double x) { return x == std::floor(x); }

/// The value of a function of Boost, NaN if it gave up.
template <class Function>
double attempt(Function function)
{
    try {
        return function();
    } catch (const std::exception&) {
        return quietNaN;
    }
}

inline int noValue(double& result)
{
    result = quietNaN;
    return QxSpecfunDomain;
}

inline int noValue(std::complex<double>& result)
{
    result = {quietNaN, quietNaN};
    return QxSpecfunDomain;
}

/// Keeps value and finds its status.
inline int conclude(double value, double& result)
{
    result = value;
    return std::isfinite(value) ? QxSpecfunOk : std::isinf(value) ? QxSpecfunInfinite : QxSpecfunInaccurate;
}

inline int conclude(const std::complex<double>& value, std::complex<double>& result)
{
    result = value;
    return isFinite(value) ? QxSpecfunOk
           : std::isinf(value.real()) || std::isinf(value.imag()) ? QxSpecfunInfinite
                                                                  : QxSpecfunInaccurate;
}

} // namespace qxspecfun_detail

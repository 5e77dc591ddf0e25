// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Tables and failures for the tests of this folder.

#include "cubicinterpolator.hpp"
#include "gridinterpolator.hpp"
#include "support/failure.hpp"

#include <boost/make_shared.hpp>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace interptest {

using Axes = Interpolator::Axes;
using InterpolatorPtr = boost::shared_ptr<Interpolator>;
using Ext = Interpolator::ExtMethod;
using qxtest::failureOf;
using qxtest::idOf;

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double eps = std::numeric_limits<double>::epsilon();

inline InterpolatorPtr make(const Axes& axes, const std::vector<double>& values, const std::string& method, int ext = 0,
                            double extValue = 0.0)
{
    return Interpolator::createInterpolator(boost::make_shared<const Axes>(axes),
                                            boost::make_shared<const std::vector<double>>(values), method, Ext(ext),
                                            extValue);
}

inline std::string failure(const Axes& axes, const std::vector<double>& values, const std::string& method)
{
    return idOf([&] { make(axes, values, method); });
}

inline double at(const InterpolatorPtr& f, const std::vector<double>& x) { return (*f)(x); }

/// The block form at one point.
inline double blockAt(const InterpolatorPtr& f, const std::vector<double>& x)
{
    std::vector<const double*> points;
    for (const double& c : x)
        points.push_back(&c);
    double out = -777.0;
    f->evaluate(points.data(), 1, &out);
    return out;
}

inline bool sameBits(double a, double b) { return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0; }

/// n ascending numbers from low to high, unevenly spread, both ends included.
inline std::vector<double> unevenAxis(std::size_t n, double low, double high, std::mt19937& generator)
{
    std::uniform_real_distribution<double> width(0.05, 1.0);
    std::vector<double> x(n, 0.0);
    for (std::size_t i = 1; i < n; ++i)
        x[i] = x[i - 1] + width(generator);
    const double length = x.back();
    for (double& v : x)
        v = n == 1 ? low : low + (high - low) * (v / length);
    return x;
}

} // namespace interptest

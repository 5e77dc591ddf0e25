// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interp/axissearch_detail.hpp"
#include "interp_values.hpp"

#include <algorithm>

using namespace interptest;
using qxinterp_detail::AxisSearch;

namespace {

/// Arguments where a search can go wrong: every point, its neighbours among the doubles, middles, and far outside.
std::vector<double> arguments(const std::vector<double>& points)
{
    std::vector<double> x = {-inf, inf, notANumber, -1e308, 1e308, 0.0, -0.0};
    for (std::size_t i = 0; i < points.size(); ++i) {
        x.push_back(points[i]);
        x.push_back(std::nextafter(points[i], -inf));
        x.push_back(std::nextafter(points[i], inf));
        if (i > 0)
            x.push_back(points[i - 1] + 0.5 * (points[i] - points[i - 1]));
    }
    return x;
}

std::ptrdiff_t standardLowerBound(const std::vector<double>& points, double x)
{
    return std::lower_bound(points.begin(), points.end(), x) - points.begin();
}

void expectStandardIndex(const std::vector<double>& points, const char* name)
{
    const AxisSearch search(points);
    for (const double x : arguments(points)) {
        ASSERT_EQ(static_cast<std::ptrdiff_t>(search.lowerBound(x)), standardLowerBound(points, x)) << name << " at " << x;
        if (points.size() > 1) {
            const double inside = search.clamped(x);
            ASSERT_EQ(static_cast<std::ptrdiff_t>(search.cellEnd(inside)),
                      std::max<std::ptrdiff_t>(1, standardLowerBound(points, inside)))
                << name << " at " << x;
        }
    }
}

std::vector<double> geometric(std::size_t n)
{
    std::vector<double> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = std::pow(10.0, -12.0 + 12.0 * static_cast<double>(i) / static_cast<double>(n - 1));
    return x;
}

} // namespace

TEST(AxisSearch, FindsTheIndexOfLowerBoundOnEverySizeOfAxis)
{
    std::mt19937 generator(7);

    for (std::size_t n : {1, 2, 3, 4, 5, 6, 7, 31, 1000})
        for (double length : {1.0, 1e-300, 1e300})
            expectStandardIndex(unevenAxis(n, -0.25 * length, 0.75 * length, generator), "uneven");
}

TEST(AxisSearch, FindsTheIndexOfLowerBoundOnAGeometricAxis)
{
    expectStandardIndex(geometric(1001), "geometric");
}

TEST(AxisSearch, FindsTheIndexOfLowerBoundOnNeighbouringDoubles)
{
    std::vector<double> tight = {1.0};
    for (int i = 0; i < 50; ++i)
        tight.push_back(std::nextafter(tight.back(), inf));
    std::vector<double> clusters;
    for (double centre : {-1e6, 0.0, 1e-3, 5e5})
        for (int i = 0; i < 40; ++i)
            clusters.push_back(centre + i * 1e-7);

    expectStandardIndex(tight, "tight");
    expectStandardIndex(clusters, "clusters");
}

TEST(AxisSearch, FindsTheIndexOfLowerBoundWhereNoGuideIsPossible)
{
    const double tiny = std::numeric_limits<double>::denorm_min();

    expectStandardIndex({-1e308, -1.0, 0.0, 1.0, 2.0, 1e308}, "length overflows");
    expectStandardIndex({0.0, tiny, 2 * tiny, 3 * tiny, 4 * tiny, 5 * tiny, 6 * tiny}, "denormal");
    expectStandardIndex({-inf, -1.0, 0.0, 1.0, 2.0, inf}, "infinite ends");
    expectStandardIndex({0.0, 1.0, 2.0, 3.0, 4.0, inf}, "infinite end");
}

TEST(AxisSearch, AscendingMeansStrictlyAndWithoutNaN)
{
    using qxinterp_detail::isAscending;

    EXPECT_TRUE(isAscending({1.0}));
    EXPECT_TRUE(isAscending({1.0, std::nextafter(1.0, 2.0)}));
    EXPECT_FALSE(isAscending({}));
    EXPECT_FALSE(isAscending({1.0, 1.0}));
    EXPECT_FALSE(isAscending({1.0, 0.5}));
    EXPECT_FALSE(isAscending({1.0, notANumber}));
    EXPECT_FALSE(isAscending({notANumber, 1.0}));
}

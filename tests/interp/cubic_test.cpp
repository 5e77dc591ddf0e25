// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interp_values.hpp"

using namespace interptest;

namespace {

const std::vector<double> x5 = {0.0, 1.0, 2.5, 3.0, 5.0};
const std::vector<double> y5 = {1.0, 3.0, 2.0, 2.5, 4.0};
const char* const methods[] = {"piecewisecubic", "cubicspline"};

} // namespace

TEST(Cubic, PassesThroughItsPoints)
{
    for (const char* method : methods) {
        const InterpolatorPtr f = make({x5}, y5, method);
        for (std::size_t i = 0; i < x5.size(); ++i)
            EXPECT_NEAR(at(f, {x5[i]}), y5[i], 4e-15) << method << " at " << x5[i];
        EXPECT_EQ(at(f, {0.0}), 1.0); // the left end of its interval
    }
}

TEST(Cubic, SplineReproducesACubicFromFourPointsOn)
{
    const auto p = [](double x) { return ((0.5 * x - 2.0) * x + 1.0) * x - 3.0; };
    const auto dp = [](double x) { return (1.5 * x - 4.0) * x + 1.0; };
    std::mt19937 generator(3);
    for (std::size_t n = 4; n < 12; ++n) {
        const std::vector<double> x = unevenAxis(n, -1.0, 3.0, generator);
        std::vector<double> y;
        for (const double v : x)
            y.push_back(p(v));

        const InterpolatorPtr f = make({x}, y, "cubicspline"), df = f->diff(1);

        for (double v = -1.5; v < 3.5; v += 0.0625) {
            EXPECT_NEAR(at(f, {v}), p(v), 1e-13) << n << " points at " << v;
            EXPECT_NEAR(at(df, {v}), dp(v), 1e-12) << n << " points at " << v;
        }
    }
}

TEST(Cubic, ThreePointsGiveOneParabola)
{
    // By divided differences: 2 + 3 (x - 1) - 2 (x - 1)(x - 2) through (1, 2), (2, 5), (5, -10).
    const auto parabola = [](double x) { return 2.0 + 3.0 * (x - 1.0) - 2.0 * (x - 1.0) * (x - 2.0); };
    const InterpolatorPtr f = make({{1.0, 2.0, 5.0}}, {2.0, 5.0, -10.0}, "cubicspline");

    for (double x = 0.0; x <= 6.0; x += 0.125)
        EXPECT_NEAR(at(f, {x}), parabola(x), 1e-15 * 20.0) << x;
}

TEST(Cubic, TwoIntervalsOfVeryDifferentWidthAreStillOneParabola)
{
    for (const double h : {1e-4, 1e-2, 0.5}) { // of the range
        const double y0 = 0.3, y1 = 0.7, y2 = -0.9, s0 = (y1 - y0) / h, s1 = (y2 - y1) / (1.0 - h);
        const auto parabola = [&](double x) { return y0 + x * (s0 + (x - h) * (s1 - s0)); };
        const double largest = std::max(0.9, std::fabs(parabola(0.5)));

        const InterpolatorPtr f = make({{0.0, h, 1.0}}, {y0, y1, y2}, "cubicspline");

        for (double x = 0.0; x <= 1.0; x += 1.0 / 64)
            EXPECT_NEAR(at(f, {x}), parabola(x), 2e-14 * largest) << "h = " << h << " at " << x;
    }
}

TEST(Cubic, MonotoneDataStayMonotoneAndWithinTheirBounds)
{
    std::mt19937 generator(1);
    std::uniform_real_distribution<double> step(0.0, 1.0), shape(0.0, 6.0);
    for (int table = 0; table < 1000; ++table) {
        const std::size_t n = 3 + generator() % 10;
        std::vector<double> x(n), y(n);
        for (std::size_t i = 1; i < n; ++i) {
            x[i] = x[i - 1] + std::pow(10.0, -shape(generator));
            y[i] = y[i - 1] + (generator() % 4 == 0 ? 0.0 : std::pow(step(generator), shape(generator)));
        }
        const bool falling = table % 2 == 1;
        if (falling)
            for (double& v : y)
                v = -v;
        const InterpolatorPtr f = make({x}, y, "piecewisecubic");

        const double rounding = 8.0 * eps * std::fabs(y.back());
        double before = y.front();
        for (std::size_t i = 0; i + 1 < n; ++i)
            for (int k = 0; k <= 40; ++k) {
                const double v = at(f, {x[i] + (x[i + 1] - x[i]) * k / 40.0});
                ASSERT_TRUE(falling ? v <= before + rounding : v >= before - rounding)
                    << "table " << table << " in interval " << i << ": " << v << " after " << before;
                ASSERT_LE(std::fabs(v), std::fabs(y.back()) + rounding);
                before = v;
            }
    }
}

TEST(Cubic, SlopeIsZeroAtALocalExtremumAndOnAPlateau)
{
    const InterpolatorPtr d = make({{0.0, 1.0, 2.0, 3.0, 4.0}}, {0.0, 5.0, 1.0, 1.0, 2.0}, "piecewisecubic")->diff(1);

    EXPECT_EQ(at(d, {std::nextafter(1.0, 2.0)}), 0.0 + at(d, {std::nextafter(1.0, 2.0)}));
    EXPECT_NEAR(at(d, {1.0}), 0.0, 1e-14);
    EXPECT_NEAR(at(d, {2.0}), 0.0, 1e-14);
    EXPECT_EQ(at(d, {2.5}), 0.0);
}

TEST(Cubic, EndSlopesAreLimitedToThreeTimesTheSecant)
{
    // del = (1, -20) on unit intervals: the three-point slope 11.5 has the sign of 1 and exceeds 3.
    const InterpolatorPtr d = make({{0.0, 1.0, 2.0}}, {0.0, 1.0, -19.0}, "piecewisecubic")->diff(1);
    // del = (1, 4): the three-point slope -0.5 turns back.
    const InterpolatorPtr e = make({{0.0, 1.0, 2.0}}, {0.0, 1.0, 5.0}, "piecewisecubic")->diff(1);

    EXPECT_EQ(at(d, {0.0}), 3.0);
    EXPECT_EQ(at(e, {0.0}), 0.0);
}

TEST(Cubic, CoefficientsStandFlatFromTheCubeDownForEachInterval)
{
    const auto axes = boost::make_shared<const Axes>(Axes{x5});
    const auto values = boost::make_shared<const std::vector<double>>(y5);
    for (const char* method : methods) {
        std::vector<double> c;

        const InterpolatorPtr f = Interpolator::createStdCubic(axes, values, method, c);

        ASSERT_EQ(c.size(), 16u);
        for (std::size_t i = 0; i < 4; ++i) {
            const double t = 0.4 * (x5[i + 1] - x5[i]);
            EXPECT_NEAR(((c[4 * i] * t + c[4 * i + 1]) * t + c[4 * i + 2]) * t + c[4 * i + 3], at(f, {x5[i] + t}), 1e-15 * 8);
            EXPECT_EQ(c[4 * i + 3], y5[i]);
        }
    }
}

TEST(Cubic, QuirkCreateStdCubicContinuesTheEndPolynomials)
{
    std::vector<double> c;
    const InterpolatorPtr f = Interpolator::createStdCubic(boost::make_shared<const Axes>(Axes{x5}),
                                                           boost::make_shared<const std::vector<double>>(y5),
                                                           "cubicspline", c);
    const InterpolatorPtr forEver = make({x5}, y5, "cubicspline", 0);

    for (const double x : {-3.0, 9.0})
        EXPECT_TRUE(sameBits(at(f, {x}), at(forEver, {x})));
}

TEST(Cubic, CreateStdCubicLeavesTheCoefficientsAfterAFailure)
{
    std::vector<double> c = {1.0};

    EXPECT_EQ(idOf([&] {
                  Interpolator::createStdCubic(boost::make_shared<const Axes>(Axes{{0.0, 1.0}}),
                                               boost::make_shared<const std::vector<double>>(2, 0.0), "cubicspline", c);
              }),
              "Not_enough_interpolation_points");
    EXPECT_EQ(c, std::vector<double>{1.0});
}

TEST(Cubic, MethodsOutsideAreNotThoseOfGrids)
{
    // Three points of 1 + x^2: the parabola itself.
    const std::vector<double> x = {0.0, 1.0, 2.0}, y = {1.0, 2.0, 5.0};
    const auto value = [&](int ext, double at) { return (*make({x}, y, "cubicspline", ext, -7.0))({at}); };

    for (int ext : {0, 3}) {
        EXPECT_EQ(value(ext, -3.0), 10.0);
        EXPECT_EQ(value(ext, 5.0), 26.0);
    }
    EXPECT_EQ(value(1, -1e-300), -7.0);
    EXPECT_EQ(value(1, 2.5), -7.0);
    EXPECT_EQ(value(2, -3.0), 1.0);
    EXPECT_EQ(value(2, 5.0), 5.0);
    EXPECT_EQ(value(4, -3.0), 1.0);  // slope 0 at 0
    EXPECT_EQ(value(4, 5.0), 17.0);  // slope 4 at 2
    for (int ext = 0; ext < 5; ++ext) {
        EXPECT_EQ(value(ext, 0.0), 1.0) << ext;
        EXPECT_EQ(value(ext, 2.0), 5.0) << ext;
    }
}

TEST(Cubic, DerivativesOutsideFollowTheMethod)
{
    const std::vector<double> x = {0.0, 1.0, 2.0}, y = {1.0, 2.0, 5.0}; // 1 + x^2
    for (int ext = 0; ext < 5; ++ext) {
        const InterpolatorPtr d = make({x}, y, "cubicspline", ext, -7.0)->diff(1), dd = d->diff(1);
        const bool forEver = ext == 0 || ext == 3;

        EXPECT_EQ(at(d, {3.0}), forEver ? 6.0 : ext == 4 ? 4.0 : 0.0) << ext;
        EXPECT_EQ(at(d, {-1.0}), forEver ? -2.0 : 0.0) << ext;
        EXPECT_EQ(at(d, {1.5}), 3.0) << ext;
        EXPECT_EQ(at(dd, {3.0}), forEver ? 2.0 : 0.0) << ext;
        EXPECT_EQ(at(dd, {1.5}), 2.0) << ext;
        EXPECT_EQ(at(dd->diff(1)->diff(1), {1.5}), 0.0) << ext;
    }
}

TEST(Cubic, QuirkNaNTakesTheBranchAboveTheLastPoint)
{
    for (const char* method : methods) {
        for (int ext : {0, 2, 3})
            EXPECT_EQ(at(make({x5}, y5, method, ext, -7.0), {notANumber}), 4.0) << ext;
        EXPECT_EQ(at(make({x5}, y5, method, 1, -7.0), {notANumber}), -7.0);
        EXPECT_TRUE(std::isnan(at(make({x5}, y5, method, 4, -7.0), {notANumber})));
    }
}

TEST(Cubic, InfinityContinuesThePolynomialWithMethod0)
{
    const InterpolatorPtr f = make({{0.0, 1.0, 2.0, 3.0}}, {0.0, 1.0, 8.0, 27.0}, "cubicspline", 0);

    EXPECT_FALSE(std::isfinite(at(f, {inf})));
    EXPECT_FALSE(std::isfinite(at(f, {-inf})));
}

TEST(Cubic, FromCoefficientsUsesTheGivenBounds)
{
    const auto axes = boost::make_shared<const Axes>(Axes{{0.0, 1.0, 2.0}});
    const std::vector<double> c = {0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 2.0, 1.0}; // t, then 1 + 2 t

    const CubicInterpolator f(2, axes, c, 0.5, -1.0, 1.5, -2.0, Interpolator::ExtEnd);

    EXPECT_EQ(f({0.25}), -1.0);
    EXPECT_EQ(f({0.75}), 0.75);
    EXPECT_EQ(f({1.5}), 2.0);
    EXPECT_EQ(f({1.75}), -2.0);
    EXPECT_EQ(f.getCoeffFlat(), c);
    EXPECT_EQ(f.getNIntervals(), 2);
}

TEST(Cubic, FromCoefficientsRefusesSizesThatDisagree)
{
    const auto axes = boost::make_shared<const Axes>(Axes{{0.0, 1.0, 2.0}});
    const auto id = [&](int n, std::size_t size) {
        return idOf([&] { CubicInterpolator(n, axes, std::vector<double>(size), 0, 0, 0, 0, Interpolator::ExtEnd); });
    };

    EXPECT_EQ(id(2, 8), "");
    EXPECT_EQ(id(1, 4), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(id(2, 7), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(id(-1, 0), "Wrong_size_of_interpolation_data");
}

TEST(Cubic, TakesOneAxisOnly)
{
    const Axes two = {{0.0, 1.0}, {0.0, 1.0}};
    const std::vector<double> values(4, 1.0);

    EXPECT_EQ(failure(two, values, "cubicspline"), "Cubic_spline_interpolation_only_1D");
    EXPECT_EQ(failure(two, values, "piecewisecubic"), "Piecewise_cubic_interpolation_only_1D");
    EXPECT_EQ(failure({}, {1.0}, "cubicspline"), "Cubic_spline_interpolation_only_1D");
}

TEST(Cubic, RefusesTablesThatAreTooShortUnorderedOrOfUnequalLength)
{
    for (const char* method : methods) {
        EXPECT_EQ(failure({{0.0, 1.0}}, {1.0, 2.0}, method), "Not_enough_interpolation_points");
        EXPECT_EQ(failure({{}}, {}, method), "Not_enough_interpolation_points");
        EXPECT_EQ(failure({{0.0, 1.0, 2.0}}, {1.0, 2.0}, method), "Wrong_size_of_interpolation_data");
        EXPECT_EQ(failure({{0.0, 2.0, 1.0}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
        EXPECT_EQ(failure({{0.0, 1.0, 1.0}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
        EXPECT_EQ(failure({{0.0, 1.0, notANumber}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
    }
    EXPECT_EQ(idOf([] {
                  CubicInterpolator(boost::make_shared<const Axes>(Axes{{0.0, 1.0, 2.0}}),
                                    boost::make_shared<const std::vector<double>>(3, 1.0), "linear",
                                    Interpolator::ExtDefault, 0.0);
              }),
              "Unknown_interpolation_method");
}

TEST(Cubic, RefusesAnotherNumberOfCoordinatesAndAxes)
{
    const InterpolatorPtr f = make({x5}, y5, "cubicspline");

    EXPECT_EQ(idOf([&] { at(f, {}); }), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(idOf([&] { at(f, {1.0, 2.0}); }), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(idOf([&] { f->diff(0); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { f->diff(2); }), "QUORIX_assertion_failure");
    EXPECT_EQ(f->range(1), std::make_pair(0.0, 5.0));
}

TEST(Cubic, NaNValuesStayInTheirNeighbourhoodWithPiecewiseCubics)
{
    const InterpolatorPtr f = make({{0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0}}, {notANumber, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0},
                                   "piecewisecubic");

    EXPECT_TRUE(std::isnan(at(f, {0.5})));
    EXPECT_NEAR(at(f, {5.5}), 5.5, 1e-14);
}

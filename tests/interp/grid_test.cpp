// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interp_values.hpp"

#include <algorithm>
#include <functional>

using namespace interptest;

namespace {

const Axes square = {{0.0, 1.0, 3.0}, {-1.0, 2.0}};
const std::vector<double> squareValues = {1.0, 2.0, 4.0, 10.0, 20.0, 40.0};

/// Values of f on the grid, first axis fastest.
std::vector<double> valuesOf(const Axes& axes, const std::function<double(const std::vector<double>&)>& f)
{
    std::vector<double> values, x(axes.size());
    const std::function<void(std::size_t)> walk = [&](std::size_t k) {
        for (const double c : axes[k]) {
            x[k] = c;
            if (k == 0)
                values.push_back(f(x));
            else
                walk(k - 1);
        }
    };
    walk(axes.size() - 1);
    return values;
}

} // namespace

TEST(LinGrid, ReproducesMultilinearFunctionsInOneToFourDimensions)
{
    std::mt19937 generator(11);
    std::uniform_real_distribution<double> uniform(0.0, 1.0), coefficient(-2.0, 2.0);
    for (std::size_t d = 1; d <= 4; ++d) {
        Axes axes;
        for (std::size_t k = 0; k < d; ++k)
            axes.push_back(unevenAxis(5 + k, -1.0, 2.0, generator));
        std::vector<double> c(std::size_t(1) << d);
        for (double& v : c)
            v = coefficient(generator);
        const auto f = [&](const std::vector<double>& x) { // sum of c_e times the product of the coordinates in e
            double sum = 0.0;
            for (std::size_t e = 0; e < c.size(); ++e) {
                double term = c[e];
                for (std::size_t k = 0; k < d; ++k)
                    term *= e >> k & 1 ? x[k] : 1.0;
                sum += term;
            }
            return sum;
        };
        const std::vector<double> values = valuesOf(axes, f);
        const double largest = std::fabs(*std::max_element(
            values.begin(), values.end(), [](double a, double b) { return std::fabs(a) < std::fabs(b); }));
        const InterpolatorPtr g = make(axes, values, "linear");

        for (int i = 0; i < 200; ++i) {
            std::vector<double> x(d), node(d);
            for (std::size_t k = 0; k < d; ++k) {
                x[k] = -1.0 + 3.0 * uniform(generator);
                node[k] = axes[k][generator() % axes[k].size()];
            }
            // Values carry a rounding of up to 2^d terms of their own.
            EXPECT_NEAR(at(g, x), f(x), (d < 3 ? 1e-15 : 4e-15) * largest);
            EXPECT_EQ(at(g, node), f(node));
        }
    }
}

TEST(LinGrid, TakesTheEndValueOutsideWithMethods024)
{
    for (int ext : {0, 2, 4}) {
        const InterpolatorPtr f = make(square, squareValues, "linear", ext, -5.0);

        EXPECT_EQ(at(f, {-3.0, -1.0}), 1.0) << ext;
        EXPECT_EQ(at(f, {7.0, -1.0}), 4.0);
        EXPECT_EQ(at(f, {7.0, 9.0}), 40.0);
        EXPECT_EQ(at(f, {-inf, inf}), 10.0);
        EXPECT_EQ(at(f, {2.0, -4.0}), 3.0);
    }
}

TEST(LinGrid, TakesExtValueOutsideWithMethod1AndTheDataOnBothEnds)
{
    const InterpolatorPtr f = make(square, squareValues, "linear", 1, -5.0);

    EXPECT_EQ(at(f, {0.0, -1.0}), 1.0);
    EXPECT_EQ(at(f, {3.0, 2.0}), 40.0);
    EXPECT_EQ(at(f, {std::nextafter(0.0, -1.0), 0.0}), -5.0);
    EXPECT_EQ(at(f, {std::nextafter(3.0, 4.0), 0.0}), -5.0);
    EXPECT_EQ(at(f, {1.0, 2.5}), -5.0);
}

TEST(LinGrid, ContinuesTheEndCellWithMethod3)
{
    const InterpolatorPtr f = make(square, squareValues, "linear", 3);

    EXPECT_EQ(at(f, {-2.0, -1.0}), -1.0); // slope 1 from the value 1 at 0
    EXPECT_EQ(at(f, {5.0, -1.0}), 6.0);   // slope 1 from the value 4 at 3
    EXPECT_EQ(at(f, {0.0, 5.0}), 19.0);   // slope 3 from the value 10 at 2
}

TEST(LinGrid, KeepsValuesAtPointsExactWhereWeightsRound)
{
    std::mt19937 generator(5);
    const Axes axes = {unevenAxis(50, 0.1, 0.7, generator)};
    std::vector<double> values;
    for (int i = 0; i < 50; ++i)
        values.push_back(0.1 * i + 1.0 / 3.0);
    const InterpolatorPtr f = make(axes, values, "linear");

    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(at(f, {axes[0][i]}), values[i]);
}

TEST(LinGrid, QuirkNaNCountsAsTheFirstPointButForMethod3)
{
    for (int ext : {0, 1, 2, 4})
        EXPECT_EQ(at(make(square, squareValues, "linear", ext, -5.0), {notANumber, 2.0}), 10.0) << ext;
    EXPECT_TRUE(std::isnan(at(make(square, squareValues, "linear", 3), {notANumber, 2.0})));
}

TEST(LinGrid, QuirkANaNNeighbourReachesThePointBesideIt)
{
    const InterpolatorPtr f = make({{0.0, 1.0, 2.0}}, {5.0, notANumber, 7.0}, "linear");
    const InterpolatorPtr g = make({{0.0, 1.0, 2.0}}, {notANumber, 5.0, 7.0}, "linear");

    EXPECT_TRUE(std::isnan(at(f, {0.0}))); // weight 0 times NaN
    EXPECT_TRUE(std::isnan(at(g, {1.0}))); // the cell below holds the NaN
    EXPECT_EQ(at(g, {1.5}), 6.0);
}

TEST(LinGrid, AnAxisOfOnePointMayStandAnywhere)
{
    const std::vector<double> values = {1.0, 3.0, 2.0, 8.0};
    const std::vector<double> x = {0.0, 1.0}, y = {0.0, 2.0}, point = {5.0};

    EXPECT_EQ(at(make({point, x, y}, values, "linear"), {-77.0, 0.5, 1.0}), 3.5);
    EXPECT_EQ(at(make({x, point, y}, values, "linear"), {0.5, 5.0, 1.0}), 3.5);
    EXPECT_EQ(at(make({x, y, point}, values, "linear"), {0.5, 1.0, 100.0}), 3.5);
    EXPECT_EQ(at(make({x, point, y}, values, "linear", 1, -1.0), {0.5, 5.0, 1.0}), 3.5);
    EXPECT_EQ(at(make({x, point, y}, values, "linear", 1, -1.0), {0.5, 5.5, 1.0}), -1.0);
    EXPECT_EQ(at(make({x, point, y}, values, "linear", 3), {2.0, 9.0, 0.0}), 5.0);
    EXPECT_EQ(at(make({point}, {6.0}, "linear"), {1.0}), 6.0);
}

TEST(LinGrid, FortyAxesOfOnePointCostNothing)
{
    const Axes axes(40, {1.0});

    const InterpolatorPtr f = make(axes, {2.5}, "linear");

    EXPECT_EQ(at(f, std::vector<double>(40, 0.0)), 2.5);
}

TEST(LinGrid, QuirkAnInfiniteValueBesideAnAxisOfOnePointIsNaN)
{
    EXPECT_EQ(at(make({{0.0}}, {7.0}, "linear"), {0.0}), 7.0);
    EXPECT_TRUE(std::isnan(at(make({{0.0}}, {inf}, "linear"), {0.0}))); // its second term is 0 times infinity
}

TEST(NNGrid, TakesTheNearestPointAndTheLowerOneOfTwoAtEqualDistance)
{
    const InterpolatorPtr f = make({{0.0, 1.0, 3.0}}, {5.0, 6.0, 7.0}, "neighbor");

    EXPECT_EQ(at(f, {0.49}), 5.0);
    EXPECT_EQ(at(f, {0.5}), 5.0);
    EXPECT_EQ(at(f, {0.51}), 6.0);
    EXPECT_EQ(at(f, {2.0}), 6.0);
    EXPECT_EQ(at(f, {std::nextafter(2.0, 3.0)}), 7.0);
    EXPECT_EQ(at(f, {1.0}), 6.0);
}

TEST(NNGrid, ClampsOutsideWithEveryMethodButMethod1)
{
    for (int ext : {0, 2, 3, 4}) {
        const InterpolatorPtr f = make({{0.0, 1.0}}, {5.0, 6.0}, "neighbor", ext, -1.0);

        EXPECT_EQ(at(f, {-9.0}), 5.0) << ext;
        EXPECT_EQ(at(f, {inf}), 6.0) << ext;
    }
    const InterpolatorPtr f = make({{0.0, 1.0}}, {5.0, 6.0}, "neighbor", 1, -1.0);
    EXPECT_EQ(at(f, {-1e-300}), -1.0);
    EXPECT_EQ(at(f, {1.0}), 6.0);
    EXPECT_EQ(at(f, {1.5}), -1.0);
}

TEST(NNGrid, QuirkNaNCountsAsTheFirstPointWithEveryMethod)
{
    for (int ext = 0; ext < 5; ++ext)
        EXPECT_EQ(at(make({{0.0, 1.0}}, {5.0, 6.0}, "neighbor", ext, -1.0), {notANumber}), 5.0) << ext;
}

TEST(Grid, WithoutCoordinatesHasOneValue)
{
    EXPECT_EQ(at(make({}, {3.5}, "neighbor"), {}), 3.5);
    EXPECT_EQ(at(make({}, {3.5}, "linear"), {}), 3.5);
    EXPECT_EQ(failure({}, {}, "linear"), "Wrong_size_of_interpolation_data");
}

TEST(DLinGrid, IsTheSlopeOfTheCellBelowAtAPoint)
{
    const InterpolatorPtr f = make({{0.0, 1.0, 3.0}}, {5.0, 6.0, 2.0}, "linear")->diff(1);

    EXPECT_EQ(at(f, {0.0}), 1.0);
    EXPECT_EQ(at(f, {1.0}), 1.0);
    EXPECT_EQ(at(f, {std::nextafter(1.0, 2.0)}), -2.0);
    EXPECT_EQ(at(f, {3.0}), -2.0);
}

TEST(DLinGrid, OutsideIsZeroButContinuesWithMethod3)
{
    for (int ext = 0; ext < 5; ++ext) {
        const InterpolatorPtr f = make({{0.0, 1.0, 3.0}}, {5.0, 6.0, 2.0}, "linear", ext, 77.0)->diff(1);

        EXPECT_EQ(at(f, {-1.0}), ext == 3 ? 1.0 : 0.0) << ext;
        EXPECT_EQ(at(f, {4.0}), ext == 3 ? -2.0 : 0.0) << ext;
    }
}

TEST(DLinGrid, ATrifleOutsideCountsAsTheEndCellUnlessMethod1Forbids)
{
    const double length = 3.0, within = 0.9e-10 * length, beyond = 1.1e-10 * length;
    for (int ext = 0; ext < 5; ++ext) {
        const InterpolatorPtr f = make({{0.0, 1.0, 3.0}}, {5.0, 6.0, 2.0}, "linear", ext, 77.0)->diff(1);

        EXPECT_EQ(at(f, {-within}), ext == 1 ? 0.0 : 1.0) << ext;
        EXPECT_EQ(at(f, {3.0 + within}), ext == 1 ? 0.0 : -2.0) << ext;
        EXPECT_EQ(at(f, {-beyond}), ext == 3 ? 1.0 : 0.0) << ext;
        EXPECT_EQ(at(f, {3.0 + beyond}), ext == 3 ? -2.0 : 0.0) << ext;
    }
}

TEST(DLinGrid, AlongOtherAxesItIsInterpolatedAndExtended)
{
    // The slope along x is 1 or 10 in the first cell for y = -1 or 2.
    EXPECT_EQ(at(make(square, squareValues, "linear")->diff(1), {0.5, 0.5}), 5.5);
    EXPECT_EQ(at(make(square, squareValues, "linear")->diff(1), {0.5, 9.0}), 10.0);
    EXPECT_EQ(at(make(square, squareValues, "linear", 3)->diff(1), {0.5, 5.0}), 19.0);
    EXPECT_EQ(at(make(square, squareValues, "linear", 1)->diff(1), {0.5, 9.0}), 0.0);
}

TEST(DLinGrid, QuirkNaNCountsAsInTheFirstCell)
{
    for (int ext = 0; ext < 5; ++ext)
        EXPECT_EQ(at(make({{0.0, 1.0, 3.0}}, {5.0, 6.0, 2.0}, "linear", ext)->diff(1), {notANumber}), 1.0) << ext;
}

TEST(DLinGrid, AlongAnAxisOfOnePointItIsZero)
{
    for (int ext = 0; ext < 5; ++ext) {
        const InterpolatorPtr f = make({{0.0, 1.0}, {5.0}}, {1.0, 2.0}, "linear", ext)->diff(2);

        EXPECT_EQ(at(f, {0.5, 5.0}), 0.0) << ext;
        EXPECT_EQ(blockAt(f, {0.5, 5.0}), 0.0) << ext;
        EXPECT_EQ(at(f->diff(1), {0.5, 5.0}), 0.0) << ext;
    }
}

TEST(DLinGrid, TwiceAlongOneAxisIsZeroAndMixedOrderCommutes)
{
    const InterpolatorPtr f = make(square, squareValues, "linear", 3);

    const InterpolatorPtr xy = f->diff(1)->diff(2), yx = f->diff(2)->diff(1), xx = f->diff(1)->diff(1);

    for (const double x : {-1.0, 0.5, 1.0, 2.0, 4.0}) {
        EXPECT_NEAR(at(xy, {x, 0.3}), 3.0, 1e-14); // (10 - 1) / 3 in both cells
        EXPECT_TRUE(sameBits(at(xy, {x, 0.3}), at(yx, {x, 0.3})));
        EXPECT_EQ(at(xx, {x, 0.3}), 0.0);
    }
    EXPECT_NE(dynamic_cast<ZeroInterpolator*>(xx.get()), nullptr);
    EXPECT_NE(dynamic_cast<ZeroInterpolator*>(xy->diff(2).get()), nullptr);
}

TEST(DLinGrid, CanBeMadeWithItsFlagsAtOnce)
{
    const auto axes = boost::make_shared<const Axes>(square);
    const auto values = boost::make_shared<const std::vector<double>>(squareValues);
    const InterpolatorPtr steps = make(square, squareValues, "linear")->diff(2)->diff(1);

    const DLinGridInterpolator atOnce(axes, values, {7, -1}, Interpolator::ExtDefault);

    EXPECT_TRUE(sameBits(atOnce({0.3, 0.4}), at(steps, {0.3, 0.4})));
    EXPECT_EQ(idOf([&] { DLinGridInterpolator(axes, values, {1}, Interpolator::ExtDefault); }),
              "Wrong_size_of_interpolation_data");
}

TEST(NNGrid, HasTheDerivativeZero)
{
    const InterpolatorPtr zero = make(square, squareValues, "neighbor")->diff(2);

    EXPECT_NE(dynamic_cast<ZeroInterpolator*>(zero.get()), nullptr);
    EXPECT_EQ(at(zero, {1.0, notANumber}), 0.0);
    EXPECT_EQ(at(zero->diff(1), {1.0, 2.0}), 0.0);
}

TEST(Grid, RefusesAxesThatAreNotStrictlyAscending)
{
    for (const char* method : {"linear", "neighbor"}) {
        EXPECT_EQ(failure({{0.0, 2.0, 1.0}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
        EXPECT_EQ(failure({{0.0, 1.0, 1.0}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
        EXPECT_EQ(failure({{3.0, 2.0, 1.0}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
        EXPECT_EQ(failure({{0.0, notANumber, 1.0}}, {1.0, 2.0, 3.0}, method), "Non_monotonous_interpolation_grid");
        EXPECT_EQ(failure({{0.0, 1.0}, {1.0, 0.0}}, {1.0, 2.0, 3.0, 4.0}, method), "Non_monotonous_interpolation_grid");
    }
}

TEST(Grid, RefusesANumberOfValuesOtherThanTheProductOfTheLengths)
{
    for (const char* method : {"linear", "neighbor"}) {
        EXPECT_EQ(failure({{0.0, 1.0}}, {1.0}, method), "Wrong_size_of_interpolation_data");
        EXPECT_EQ(failure({{0.0, 1.0}, {0.0, 1.0}}, {1.0, 2.0, 3.0}, method), "Wrong_size_of_interpolation_data");
        EXPECT_EQ(failure({{0.0, 1.0}, {0.0, 1.0}}, {1.0, 2.0, 3.0, 4.0, 5.0}, method), "Wrong_size_of_interpolation_data");
        EXPECT_EQ(failure({{0.0, 1.0}, {}}, {}, method), "Wrong_size_of_interpolation_data");
        EXPECT_EQ(failure({{}}, {}, method), "Wrong_size_of_interpolation_data");
    }
}

TEST(Grid, RefusesAnotherNumberOfCoordinatesAndAxesThatItHasNot)
{
    for (const char* method : {"linear", "neighbor"}) {
        const InterpolatorPtr f = make(square, squareValues, method);
        for (const InterpolatorPtr& g : {f, f->diff(1), f->diff(1)->diff(1)}) {
            EXPECT_EQ(idOf([&] { at(g, {1.0}); }), "Wrong_size_of_interpolation_data");
            EXPECT_EQ(idOf([&] { at(g, {1.0, 2.0, 3.0}); }), "Wrong_size_of_interpolation_data");
            EXPECT_EQ(idOf([&] { g->diff(0); }), "QUORIX_assertion_failure");
            EXPECT_EQ(idOf([&] { g->diff(3); }), "QUORIX_assertion_failure");
            EXPECT_EQ(idOf([&] { g->range(3); }), "QUORIX_assertion_failure");
            EXPECT_EQ(g->dim(), 2);
        }
        EXPECT_EQ(f->range(1), std::make_pair(0.0, 3.0));
        EXPECT_EQ(f->range(2), std::make_pair(-1.0, 2.0));
    }
}

TEST(Interpolator, RefusesAnUnknownMethodAndExtrapolation)
{
    EXPECT_EQ(failure({{0.0, 1.0, 2.0}}, {1.0, 2.0, 3.0}, "Linear"), "Unknown_interpolation_method");
    EXPECT_EQ(failure({{0.0, 1.0, 2.0}}, {1.0, 2.0, 3.0}, ""), "Unknown_interpolation_method");
    EXPECT_EQ(idOf([] { make({{0.0, 1.0}}, {1.0, 2.0}, "linear", 5); }), "Unknown_extrapolation_method");
    EXPECT_EQ(idOf([] { make({{0.0, 1.0}}, {1.0, 2.0}, "linear", -1); }), "Unknown_extrapolation_method");
}

TEST(ZeroInterpolator, TakesAnyNumberOfCoordinates)
{
    const ZeroInterpolator zero;

    EXPECT_EQ(zero({}), 0.0);
    EXPECT_EQ(zero({1.0, 2.0}), 0.0);
    EXPECT_EQ((*zero.diff(9))({}), 0.0);
    EXPECT_EQ(zero.range(4), std::make_pair(-inf, inf));
}

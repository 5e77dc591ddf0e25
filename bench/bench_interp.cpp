// SPDX-License-Identifier: LicenseRef-qxkernel
// Interpolation: single virtual calls and blocks against GSL, against a branch-free binary search written for the purpose,
// and against GSL's bilinear interpolation on grids.
#include "cubicinterpolator.hpp"
#include "gridinterpolator.hpp"
#include "harness.hpp"

#include <boost/make_shared.hpp>
#include <cmath>
#include <random>
#ifdef QX_HAVE_GSL
#include <gsl/gsl_interp2d.h>
#include <gsl/gsl_spline.h>
#include <gsl/gsl_spline2d.h>
#endif

namespace {

using Numbers = std::vector<double>;

std::mt19937 generator(5);

Numbers unevenAxis(std::size_t n)
{
    std::uniform_real_distribution<double> width(0.05, 1.0);
    Numbers x(n);
    for (std::size_t i = 1; i < n; ++i)
        x[i] = x[i - 1] + width(generator);
    for (double& v : x)
        v /= x.back();
    x.back() = 1.0;
    return x;
}

Numbers randomNumbers(std::size_t n)
{
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    Numbers x(n);
    for (double& v : x)
        v = uniform(generator);
    return x;
}

boost::shared_ptr<Interpolator> table(const Interpolator::Axes& axes, const Numbers& values, const char* method)
{
    return Interpolator::createInterpolator(boost::make_shared<const Interpolator::Axes>(axes),
                                            boost::make_shared<const Numbers>(values), method, Interpolator::ExtEnd, 0.0);
}

double difference(const Numbers& a, const Numbers& b)
{
    double worst = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        worst = std::max(worst, std::fabs(a[i] - b[i]));
    return worst;
}

/// A cubic table as one writes it by hand for speed: bisection without branches, then Horner's rule.
struct BranchFree
{
    const Numbers& x;
    const Numbers& c;
    void evaluate(const double* points, std::size_t n, double* out) const
    {
        const double* const knots = x.data();
        for (std::size_t i = 0; i < n; ++i) {
            const double* base = knots;
            for (std::size_t left = x.size() - 1; left > 1;) {
                const std::size_t half = left / 2;
                base += base[half] < points[i] ? half : 0;
                left -= half;
            }
            const double t = points[i] - *base;
            const double* a = c.data() + 4 * (base - knots);
            out[i] = ((a[0] * t + a[1]) * t + a[2]) * t + a[3];
        }
    }
};

#ifdef QX_HAVE_GSL
/// A cubic with the slopes of ours, so that values agree.
struct GslCubic
{
    GslCubic(const Numbers& x, const Numbers& y) : spline(gsl_spline_alloc(gsl_interp_cspline, x.size()))
    {
        gsl_spline_init(spline, x.data(), y.data(), x.size());
    }
    ~GslCubic()
    {
        gsl_spline_free(spline);
        gsl_interp_accel_free(accelerator);
    }
    gsl_spline* spline;
    gsl_interp_accel* accelerator = gsl_interp_accel_alloc();
};
#endif

void oneDimension()
{
    constexpr std::size_t knots = 1000, n = 1000000;
    const Numbers x = unevenAxis(knots), points = randomNumbers(n);
    Numbers y(knots), ours(n), theirs(n);
    for (std::size_t i = 0; i < knots; ++i)
        y[i] = std::sin(5.0 * x[i]);
    const auto f = table({x}, y, "cubicspline");
    const Numbers coefficients = dynamic_cast<const CubicInterpolator&>(*f).getCoeffFlat();
    const BranchFree byHand{x, coefficients};
    const double* const axes[] = {points.data()};
    const auto block = [&] { f->evaluate(axes, n, ours.data()); };
    const auto single = [&] {
        Numbers point(1);
        for (std::size_t i = 0; i < n; ++i) {
            point[0] = points[i];
            ours[i] = (*f)(point);
        }
    };
#ifdef QX_HAVE_GSL
    const GslCubic peer(x, y);
    const auto gsl = [&] {
        for (std::size_t i = 0; i < n; ++i)
            theirs[i] = gsl_spline_eval(peer.spline, points[i], peer.accelerator);
    };
    // GSL has natural ends: the curves differ a little there.
    BENCH("cubic 1-D/single calls").ours(single).peer("GSL", gsl).check([&] { return difference(ours, theirs); }, 1e-4).atMost(0.2).items(n, "points");
    BENCH("cubic 1-D/block").ours(block).peer("GSL", gsl).check([&] { return difference(ours, theirs); }, 1e-4).atMost(0.1)
        .peer("branch-free search", [&] { byHand.evaluate(points.data(), n, theirs.data()); })
        .check([&] { return difference(ours, theirs); }, 0.0).atMost(1.0 / 1.3).items(n, "points");
#else
    BENCH("cubic 1-D/single calls").ours(single)
        .peer("branch-free search", [&] { byHand.evaluate(points.data(), n, theirs.data()); })
        .check([&] { return difference(ours, theirs); }, 0.0).items(n, "points");
    BENCH("cubic 1-D/block").ours(block)
        .peer("branch-free search", [&] { byHand.evaluate(points.data(), n, theirs.data()); })
        .check([&] { return difference(ours, theirs); }, 0.0).atMost(1.0 / 1.3).items(n, "points");
#endif
}

void grids()
{
    constexpr std::size_t side = 200, n = 1000000;
    const Numbers x = unevenAxis(side), y = unevenAxis(side), px = randomNumbers(n), py = randomNumbers(n), pz = randomNumbers(n);
    Numbers values(side * side), ours(n), theirs(n);
    for (std::size_t j = 0; j < side; ++j)
        for (std::size_t i = 0; i < side; ++i)
            values[i + side * j] = std::sin(3.0 * x[i]) * std::cos(4.0 * y[j]);
    const auto f = table({x, y}, values, "linear");
    const double* const axes[] = {px.data(), py.data(), pz.data()};
#ifdef QX_HAVE_GSL
    gsl_spline2d* const plane = gsl_spline2d_alloc(gsl_interp2d_bilinear, side, side);
    gsl_interp_accel *const ax = gsl_interp_accel_alloc(), *const ay = gsl_interp_accel_alloc();
    gsl_spline2d_init(plane, x.data(), y.data(), values.data(), side, side);
    BENCH("linear 2-D/block").ours([&] { f->evaluate(axes, n, ours.data()); })
        .peer("GSL bilinear", [&] {
            for (std::size_t i = 0; i < n; ++i)
                theirs[i] = gsl_spline2d_eval(plane, px[i], py[i], ax, ay);
        }).check([&] { return difference(ours, theirs); }, 1e-14).atMost(0.2).items(n, "points");
    gsl_spline2d_free(plane);
    gsl_interp_accel_free(ax);
    gsl_interp_accel_free(ay);
#endif
    // No peer in this process for three dimensions: against the single calls, which the block must beat.
    const Numbers z = unevenAxis(30), u = unevenAxis(40), v = unevenAxis(50);
    Numbers cube(30 * 40 * 50);
    for (std::size_t i = 0; i < cube.size(); ++i)
        cube[i] = std::sin(0.37 * double(i));
    const auto g = table({z, u, v}, cube, "linear");
    BENCH("linear 3-D/block").ours([&] { g->evaluate(axes, n, ours.data()); })
        .peer("single calls", [&] {
            Numbers point(3);
            for (std::size_t i = 0; i < n; ++i) {
                point = {px[i], py[i], pz[i]};
                theirs[i] = (*g)(point);
            }
        }).check([&] { return difference(ours, theirs); }, 0.0).items(n, "points");
}

} // namespace

void qxbench::benchmarks()
{
    oneDimension();
    grids();
}

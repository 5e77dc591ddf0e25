// SPDX-License-Identifier: LicenseRef-qxkernel
// One object, many threads; no allocation; the block form; failing allocations.

#include "interp_values.hpp"
#include "support/alloc_fault.hpp"

#include <atomic>
#include <thread>

using namespace interptest;

namespace {

struct Named
{
    std::string name;
    InterpolatorPtr f;
};

/// One interpolator of every class, of dimensions 1 to 5, with every extension rule.
std::vector<Named> everyKind()
{
    std::mt19937 generator(2);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<Named> all;
    for (const std::size_t d : {1, 2, 3, 4, 5}) {
        Axes axes;
        std::size_t size = 1;
        for (std::size_t k = 0; k < d; ++k) {
            axes.push_back(unevenAxis(k == 3 ? 1 : 7 - k, 0.0, 1.0, generator));
            size *= axes.back().size();
        }
        std::vector<double> values(size);
        for (double& v : values)
            v = uniform(generator);
        for (int ext = 0; ext < 5; ++ext) {
            const std::string name = std::to_string(d) + "-D, method " + std::to_string(ext);
            all.push_back({"neighbor " + name, make(axes, values, "neighbor", ext, 9.0)});
            all.push_back({"linear " + name, make(axes, values, "linear", ext, 9.0)});
            all.push_back({"slope " + name, all.back().f->diff(1)});
            if (d == 1) {
                all.push_back({"piecewisecubic " + name, make(axes, values, "piecewisecubic", ext, 9.0)});
                all.push_back({"cubicspline " + name, make(axes, values, "cubicspline", ext, 9.0)});
                all.push_back({"slope of spline " + name, all.back().f->diff(1)});
            }
        }
        all.push_back({"zero", boost::make_shared<ZeroInterpolator>(static_cast<int>(d))});
    }
    return all;
}

/// n points around the unit cube, NaN, infinities and grid ends among them.
std::vector<std::vector<double>> somePoints(int d, std::size_t n, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> uniform(-0.3, 1.3);
    std::vector<std::vector<double>> x(static_cast<std::size_t>(d), std::vector<double>(n));
    for (std::vector<double>& axis : x)
        for (double& v : axis) {
            const double special[] = {0.0, 1.0, -0.0, inf, -inf, notANumber};
            v = generator() % 16 == 0 ? special[generator() % 6] : uniform(generator);
        }
    return x;
}

std::vector<double> single(const Interpolator& f, const std::vector<std::vector<double>>& x)
{
    std::vector<double> values, point(x.size());
    for (std::size_t i = 0; i < x[0].size(); ++i) {
        for (std::size_t k = 0; k < x.size(); ++k)
            point[k] = x[k][i];
        values.push_back(f(point));
    }
    return values;
}

std::vector<const double*> pointers(const std::vector<std::vector<double>>& x)
{
    std::vector<const double*> p;
    for (const auto& axis : x)
        p.push_back(axis.data());
    return p;
}

} // namespace

TEST(InterpolatorBlock, GivesTheBitsOfSingleCalls)
{
    for (const auto& [name, f] : everyKind()) {
        const auto x = somePoints(f->dim(), 1003, 4);
        std::vector<double> out(1004, -777.0);

        f->evaluate(pointers(x).data(), 1003, out.data());

        const std::vector<double> wanted = single(*f, x);
        for (std::size_t i = 0; i < 1003; ++i)
            ASSERT_TRUE(sameBits(out[i], wanted[i])) << name << ", point " << i << ": " << out[i] << " and " << wanted[i];
        EXPECT_EQ(out[1003], -777.0);
    }
}

TEST(InterpolatorBlock, MayOverwriteOneOfItsArguments)
{
    for (const auto& [name, f] : everyKind())
        for (std::size_t k = 0; k < static_cast<std::size_t>(f->dim()); ++k) {
            auto x = somePoints(f->dim(), 300, 5);
            const std::vector<double> wanted = single(*f, x);

            f->evaluate(pointers(x).data(), 300, x[k].data());

            for (std::size_t i = 0; i < 300; ++i)
                ASSERT_TRUE(sameBits(x[k][i], wanted[i])) << name << ", point " << i;
        }
}

TEST(InterpolatorBlock, OfNoPointsTouchesNothing)
{
    for (const auto& [name, f] : everyKind()) {
        std::vector<const double*> points(static_cast<std::size_t>(f->dim()), nullptr);

        f->evaluate(points.data(), 0, nullptr);
    }
}

TEST(InterpolatorEvaluation, AllocatesNothing)
{
    const std::vector<Named> all = everyKind();
    for (const auto& [name, f] : all) {
        const auto x = somePoints(f->dim(), 100, 6);
        const std::vector<double> point(static_cast<std::size_t>(f->dim()), 0.4);
        const std::vector<const double*> p = pointers(x);
        std::vector<double> out(100);

        const long before = qxtest::allocationCount();
        volatile double sum = 0.0;
        for (int i = 0; i < 100; ++i)
            sum = sum + (*f)(point);
        f->evaluate(p.data(), 100, out.data());

        EXPECT_EQ(qxtest::allocationCount(), before) << name;
    }
}

TEST(InterpolatorEvaluation, ManyThreadsShareOneObject)
{
    constexpr int nThreads = 16;
    for (const Named& kind : everyKind()) {
        const InterpolatorPtr& f = kind.f;
        const auto x = somePoints(f->dim(), 200, 8);
        const std::vector<double> wanted = single(*f, x);
        std::atomic<int> wrong = 0;

        std::vector<std::thread> threads;
        for (int t = 0; t < nThreads; ++t)
            threads.emplace_back([&, t] {
                std::vector<double> out(200);
                if (t % 2 == 0)
                    f->evaluate(pointers(x).data(), 200, out.data());
                else
                    out = single(*f, x);
                for (std::size_t i = 0; i < 200; ++i)
                    wrong += !sameBits(out[i], wanted[i]);
            });
        for (std::thread& t : threads)
            t.join();

        EXPECT_EQ(wrong, 0) << kind.name;
    }
}

TEST(InterpolatorConstruction, SurvivesEveryFailingAllocation)
{
    std::mt19937 generator(9);
    const auto axes = boost::make_shared<const Axes>(Axes{unevenAxis(20, 0.0, 1.0, generator)});
    const auto plane = boost::make_shared<const Axes>(
        Axes{unevenAxis(20, 0.0, 1.0, generator), {0.5}, unevenAxis(6, 0.0, 1.0, generator)});
    const auto values = boost::make_shared<const std::vector<double>>(20, 1.0);
    const auto planeValues = boost::make_shared<const std::vector<double>>(120, 1.0);
    struct Case
    {
        const char* method;
        bool plane;
    };
    for (const Case c : {Case{"linear", false}, Case{"linear", true}, Case{"neighbor", true}, Case{"piecewisecubic", false},
                         Case{"cubicspline", false}}) {
        const auto act = [&] {
            const InterpolatorPtr f = Interpolator::createInterpolator(c.plane ? plane : axes, c.plane ? planeValues : values,
                                                                       c.method, Interpolator::ExtLine, 0.0);
            f->diff(1)->diff(c.plane ? 3 : 1);
        };
        const long count = qxtest::failEveryAllocation(act, [&](const qxtest::FaultRun& run) {
            EXPECT_EQ(run.badAlloc, run.faulted) << c.method << ", allocation " << run.n;
            EXPECT_EQ(run.leaked, 0) << c.method << ", allocation " << run.n;
        });
        EXPECT_GE(count, 4) << c.method;
    }
}

TEST(InterpolatorConstruction, KeepsTheCallersTableByReference)
{
    const auto axes = boost::make_shared<const Axes>(Axes{{0.0, 1.0, 2.0}});
    const auto values = boost::make_shared<const std::vector<double>>(3, 1.0);

    const InterpolatorPtr f =
        Interpolator::createInterpolator(axes, values, "linear", Interpolator::ExtDefault, 0.0);
    const InterpolatorPtr d = f->diff(1);

    EXPECT_EQ(values.use_count(), 2); // the function and its derivative hold one grid
}

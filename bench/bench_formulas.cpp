// SPDX-License-Identifier: LicenseRef-qxkernel
// The ready-made host against the engine under a host written for the purpose: what formulas.hpp costs. One thread, blocks
// of 1000 points. Both copy columns into the engine's blocks and values out of them; formulas.hpp looks for points without a
// value as well.

#include "evaluation_host.hpp"
#include "formulas.hpp"
#include "harness.hpp"

#include <cmath>
#include <random>

using namespace qxbench;

namespace {

constexpr std::size_t block = 1000, points = 100 * block;

/// Two columns and the standard functions, nothing else.
class CopyingHost : public ColumnHost
{
public:
    CopyingHost(const double* x, const double* y) : ColumnHost(block), x_(x), y_(y) {}

    using ColumnHost::eval;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep, const ValRepCachePtr&) override
    {
        DArrayPtr array;
        rep->reset(false, false, block);
        rep->addDArray(array);
        std::copy_n((name == "x" ? x_ : y_) + current * block, block, array->data());
        rep->setEvaluated();
    }

private:
    const double *x_, *y_;
};

double largestDifference(const std::vector<double>& a, const std::vector<double>& b)
{
    double largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

} // namespace

void qxbench::benchmarks()
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(0.01, 1.0);
    std::vector<double> x(points), y(points), ours(points), bare(points);
    for (std::size_t i = 0; i < points; ++i) {
        x[i] = uniform(random);
        y[i] = uniform(random);
    }
    const std::pair<const char*, const char*> formulas[] = {
        {"linear", "0.7*x+1.3*y+2.1"},
        {"squares", "x^2+y^2"},
        {"elementary", "sin(x)*exp(-y^2)+sqrt(x^2+y^2+1)"},
        {"wave packet", "exp(-((x-0.5)^2+(y-0.5)^2)/0.02)*cos(10*x)*cos(10*y)"},
        {"material law", "(350+275*sqrt(x))*(1+0.022*log(1+y))*(1-((x-0.293)/1.207)^2)"}};
    for (const auto& [name, text] : formulas) {
        const auto allocator = boost::make_shared<SerialArrayAllocator>(block, 0);
        const auto host = boost::make_shared<CopyingHost>(x.data(), y.data());
        const auto cache = boost::make_shared<ValRepCache>(allocator);
        const std::vector<EvalTreePtr> tree{boost::make_shared<EvalTree>(text, false)};
        qx::Formulas f({"x", "y"});
        const qx::Formula formula = f.add(text);
        const qx::Program program = f.compile();
        qx::Points p(points);
        p.set("x", x).set("y", y);

        BENCH(std::string("ready-made host/") + name)
            .ours([&] { program.evaluate(p, formula, ours, {.threads = 1}); })
            .items(points, "points")
            .peer("engine with a host of its own", [&] {
                overBlocks(host, cache, tree, points / block, EvalValues, [&](std::size_t, std::size_t j, const ValRepPtr& v) {
                    v->throwError();
                    std::copy_n(v->getDoubleIterator(0), block, bare.data() + j * block);
                });
            })
            .check([&] { return largestDifference(ours, bare); }, 0.0)
            .atMost(1.02)
            .fastest();
    }
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Optimisation: what the drivers add to the callbacks, what the free optimizer adds to IPOPT, and gradients of formulas
// with ten thousand variables against hand-written code. One thread.

#include "harness.hpp"
#include "ipopt_direct.hpp"
#include "optimise/solve.hpp"
#include "optimnp.hpp"
#include "qxparallel.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

using namespace qxbench;
using namespace examples;

namespace {

// --- A thousand calls with 10^4 entries -------------------------------------------------------------------------------------

/// f_i = a sum over ten neighbouring variables each, 1000 functions of 1000 variables, 10^4 entries.
class Band : public OptimNPCallback
{
public:
    static constexpr int n = 1000, width = 10;

    void eval(int&, int, const double* x, bool, int nF, double* F, bool, int, double* G) override
    {
        for (int i = 0; i < nF; ++i) {
            double sum = 0.0;
            for (int k = 0; k < width; ++k) {
                const double v = x[(i + k) % n];
                sum += v * v / (1.0 + std::fabs(v));
                G[i * width + k] = (2.0 * v + v * std::fabs(v)) / ((1.0 + std::fabs(v)) * (1.0 + std::fabs(v)));
            }
            F[i] = sum;
        }
        ++calls;
    }
    long calls = 0;
};

template <class T>
Array<T, 1> filled(int count, T value)
{
    Array<T, 1> array(count);
    array = value;
    return array;
}

void benchmarkMarshalling()
{
    OptimState::setLibraryPath(QX_CALLER_FOLDER);
    OptimState::loadLib();
    const auto callback = boost::make_shared<Band>();
    const auto state = boost::make_shared<OptimState>(4000, 500, 500, true, 0, 0);
    constexpr int n = Band::n, entries = n * Band::width;
    Array<int, 1> none(0), iG(entries), jG(entries), xstate = filled(n, 0), Fstate = filled(n, 0);
    Array<double, 1> noValues(0), x = filled(n, 0.5), xmul = filled(n, 0.0), F = filled(n, 0.0), Fmul = filled(n, 0.0);
    const auto low = filled(n, -1e20), high = filled(n, 1e20);
    for (int k = 0; k < entries; ++k) {
        iG[k] = k / Band::width + 1;
        jG[k] = (k / Band::width + k % Band::width) % n + 1;
    }
    qxbase::Prop prop;
    OptimState::checkNP(prop);
    int inform = 0, nInf = 0, iterations = 0, majors = 0;
    double sInf = 0.0;
    std::string message;
    Band alone;
    OptimNPCallback* volatile direct = &alone; // called as the driver calls, not inlined
    std::vector<double> directF(n), directG(entries);
    int status = 0;
    BENCH("marshalling/1000-calls")
        .ours([&] {
            OptimNP::solve(callback, state, prop, n, n, none, none, noValues, iG, jG, x, low, high, xmul, xstate, F, low, high,
                           Fmul, Fstate, 1, inform, nInf, sInf, iterations, majors, message);
        })
        .peer("the callbacks alone", [&] {
            for (int call = 0; call < 1000; ++call)
                direct->eval(status, n, x.data(), true, n, directF.data(), true, entries, directG.data());
        })
        .check([&] { return std::fabs(F[n - 1] - directF[n - 1]) + (inform == 1 ? 0.0 : 1.0); }, 0.0)
        .atMost(1.02)
        .fastest();
}

// --- Problems of the collection -----------------------------------------------------------------------------------------------

std::vector<std::unique_ptr<Model>> nonlinearProblems(std::size_t count)
{
    std::vector<std::unique_ptr<Model>> models;
    std::vector<Problem> problems;
    std::ifstream in(QX_REFERENCE_DIR "/hock_schittkowski.txt");
    for (std::string line; std::getline(in, line);) {
        const std::size_t blank = line.find(' ');
        const std::string word = line.substr(0, blank), rest = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (word == "problem")
            problems.emplace_back();
        else if (word == "minimise")
            problems.back().objective = rest;
        else if (word == "variables")
            problems.back().variables = parseVariables(rest);
        else if (word == "subject-to")
            problems.back().constraints.push_back(parseConstraint(rest));
    }
    for (const Problem& p : problems)
        if (models.size() < count && p.constraints.size() < p.variables.size())
            if (auto model = std::make_unique<Model>(p); !model->isQuadratic())
                models.push_back(std::move(model));
    if (models.size() < count)
        throw std::runtime_error("too few problems in the collection");
    return models;
}

void benchmarkCollection()
{
    OptimState::setLibraryPath(QX_OPTIMIZER_FOLDER);
    constexpr std::size_t count = 40;
    constexpr double tolerance = 1e-8;
    const auto models = nonlinearProblems(count);
    std::vector<double> ours(count), theirs(count);
    SolveOptions options;
    options.tolerance = tolerance;
    BENCH("collection/40-problems")
        .ours([&] {
            for (std::size_t k = 0; k < count; ++k)
                ours[k] = solveFrom(*models[k], options, models[k]->start()).F[0];
        })
        .peer("IPOPT directly", [&] {
            const qxbase::BlasThreadScope oneThread(1);
            for (std::size_t k = 0; k < count; ++k)
                theirs[k] = solveDirectly(*models[k], tolerance, tolerance, options.iterations).objective;
        })
        .check([&] {
            double worst = 0.0;
            for (std::size_t k = 0; k < count; ++k)
                worst = std::max(worst, std::fabs(ours[k] - theirs[k]) / std::max(1.0, std::fabs(theirs[k])));
            return worst;
        }, 1e-6)
        .items(count, "problems")
        .atMost(1.15)
        .fastest();
}

// --- A formula of ten thousand variables ---------------------------------------------------------------------------------------

Problem chain(int n)
{
    Problem p;
    std::ostringstream f;
    for (int k = 1; k <= n; ++k) {
        f << (k > 1 ? "+" : "") << "(x" << k << "-1)^2";
        p.variables.push_back({"x" + std::to_string(k), 0.5});
    }
    for (int k = 1; k < n; ++k)
        f << "+0.1*(x" << k + 1 << "-x" << k << "^2)^2";
    p.objective = f.str();
    return p;
}

/// The same by hand.
double chainByHand(const std::vector<double>& x, std::vector<double>& g)
{
    double f = 0.0;
    const std::size_t n = x.size();
    for (std::size_t k = 0; k < n; ++k) {
        f += (x[k] - 1.0) * (x[k] - 1.0);
        g[k] = 2.0 * (x[k] - 1.0);
    }
    for (std::size_t k = 0; k + 1 < n; ++k) {
        const double d = x[k + 1] - x[k] * x[k];
        f += 0.1 * d * d;
        g[k + 1] += 0.2 * d;
        g[k] -= 0.4 * d * x[k];
    }
    return f;
}

void benchmarkGradient()
{
    constexpr int n = 10000;
    const Model model(chain(n));
    std::vector<double> x = model.start(), g(n), G(model.nonlinear().size()), F(1);
    double f = 0.0;
    BENCH("gradient/chain-10000")
        .ours([&] { model.evaluate(x.data(), F.data(), G.data()); })
        .peer("by hand", [&] { f = chainByHand(x, g); })
        .check([&] {
            double worst = std::fabs(F[0] - f) / f;
            for (std::size_t k = 0; k < G.size(); ++k)
                worst = std::max(worst, std::fabs(G[k] - g[static_cast<std::size_t>(model.nonlinear()[k].column)]));
            return worst;
        }, 1e-11)
        .items(n, "variables")
        .atMost(30.0)
        .fastest();
    BENCH("building/chain-10000")
        .ours([&] { x = Model(chain(n)).start(); })
        .items(n, "variables");
}

} // namespace

void qxbench::benchmarks()
{
    qxoptim::initializeOptim();
    benchmarkMarshalling();
    benchmarkCollection();
    benchmarkGradient();
}

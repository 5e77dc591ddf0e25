// SPDX-License-Identifier: LicenseRef-qxkernel
#include "solve.hpp"

#include "optimnp.hpp"
#include "optimqp.hpp"
#include "qxexception.hpp"
#include "sparse.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <limits>
#include <random>

namespace examples {

namespace {

constexpr double kInfinite = 1e20;

template <class T, class From>
Array<T, 1> arrayOf(std::size_t count, const From& element)
{
    Array<T, 1> array(count);
    for (std::size_t k = 0; k < count; ++k)
        array[k] = element(k);
    return array;
}

double bound(double value) { return std::clamp(value, -kInfinite, kInfinite); }

/// What is remembered of a run while it goes on: the points, and the best of them should it be cancelled.
class Track
{
public:
    Track(const Model& model, const SolveOptions& options) : model_(model), options_(options) {}

    void add(const double* x, const std::vector<double>& total)
    {
        ++evaluations;
        const double violation = model_.violation(total);
        const double f = model_.problem().maximise ? -total[0] : total[0];
        const bool feasible = violation <= 1e-6, bestFeasible = bestViolation_ <= 1e-6;
        if (best.empty() || (feasible && (!bestFeasible || f < bestF_)) || (!bestFeasible && violation < bestViolation_)) {
            best.assign(x, x + model_.n());
            bestF_ = f;
            bestViolation_ = violation;
        }
        last_.assign(x, x + model_.n());
        lastF_ = total[0];
        lastViolation_ = violation;
        if (path.empty())
            iterationEnded(0); // the start
    }

    /// The point that was looked at last is where an iteration ended.
    void iterationEnded(int count)
    {
        if (path.size() < 100000)
            path.push_back(last_);
        if (options_.progress)
            options_.progress(count, lastF_, lastViolation_);
    }

    long evaluations = 0;
    std::vector<double> best;
    std::vector<std::vector<double>> path;

private:
    const Model& model_;
    const SolveOptions& options_;
    double bestF_ = 0.0, bestViolation_ = kUnbounded;
    std::vector<double> last_;
    double lastF_ = 0.0, lastViolation_ = 0.0;
};

class NonlinearFunctions : public OptimNPCallback
{
public:
    NonlinearFunctions(const Model& model, Track& track)
        : model_(model), track_(track), total_(model.rows().size()), G_(model.nonlinear().size() + 1), F_(total_)
    {
    }

    void eval(int& status, int, const double* x, bool needF, int, double* F, bool needG, int, double* G) override
    {
        if (!model_.evaluate(x, F_.data(), G_.data())) {
            status = -1;
            return;
        }
        if (needF)
            std::copy(F_.begin(), F_.end(), F);
        if (needG)
            std::copy(G_.begin(), G_.end() - 1, G);
        total_ = F_;
        for (const Entry& e : model_.linear())
            total_[static_cast<std::size_t>(e.row)] += e.value * x[e.column];
        track_.add(x, total_);
    }
    void onIteration(int count) override { track_.iterationEnded(count); }

private:
    const Model& model_;
    Track& track_;
    std::vector<double> total_, G_, F_;
};

class QuadraticPart : public OptimQPCallback
{
public:
    explicit QuadraticPart(const Model& model) : model_(model) {}

    void hessMult(int&, int ncolH, const double* x, double* Hx) override
    {
        std::fill(Hx, Hx + ncolH, 0.0);
        for (const Entry& e : model_.hessian())
            Hx[e.row] += e.value * x[e.column];
    }

private:
    const Model& model_;
};

qxbase::Prop properties(const Model& model, const SolveOptions& options, bool quadratic)
{
    qxoptim::initializeOptim();
    qxbase::Prop prop;
    prop.setString("maximize", model.problem().maximise ? "on" : "off");
    prop.setString("stop", "off");
    prop.setDouble("opttol", options.tolerance);
    prop.setDouble("feastol", std::min(options.tolerance, 1e-7));
    prop.setInt(quadratic ? "itlim" : "majitlim", options.iterations);
    if (!quadratic)
        prop.setDouble("majfeastol", std::min(options.tolerance, 1e-7));
    if (!options.printFile.empty())
        prop.setString("print", options.printFile);
    quadratic ? OptimState::checkQP(prop) : OptimState::checkNP(prop);
    return prop;
}

boost::shared_ptr<OptimState> newState(bool np, const SolveOptions& options)
{
    OptimState::loadLib();
    const auto state = boost::make_shared<OptimState>(4000, 500, 500, np, 0, 0);
    state->setRunInfo(options.run);
    return state;
}

void solveNonlinear(const Model& model, const SolveOptions& options, const Solution* warm, Track& track, Solution& s)
{
    const std::size_t n = static_cast<std::size_t>(model.n()), rows = model.rows().size();
    const auto& variables = model.problem().variables;
    const auto row = [&](const std::vector<Entry>& entries) {
        return arrayOf<int>(entries.size(), [&](std::size_t k) { return entries[k].row + 1; });
    };
    const auto column = [&](const std::vector<Entry>& entries) {
        return arrayOf<int>(entries.size(), [&](std::size_t k) { return entries[k].column + 1; });
    };
    const auto A = arrayOf<double>(model.linear().size(), [&](std::size_t k) { return model.linear()[k].value; });
    auto x = arrayOf<double>(n, [&](std::size_t j) { return s.x[j]; });
    auto xmul = arrayOf<double>(n, [&](std::size_t j) { return warm != nullptr ? warm->xMultiplier[j] : 0.0; });
    auto Fmul = arrayOf<double>(rows, [&](std::size_t i) { return warm != nullptr ? warm->multiplier[i] : 0.0; });
    auto F = arrayOf<double>(rows, [](std::size_t) { return 0.0; });
    auto xstate = arrayOf<int>(n, [](std::size_t) { return 0; }), Fstate = arrayOf<int>(rows, [](std::size_t) { return 0; });
    int nInf = 0, majors = 0;
    double sInf = 0.0;
    const auto read = [&] {
        s.x.assign(x.begin(), x.end());
        s.xMultiplier.assign(xmul.begin(), xmul.end());
        s.multiplier.assign(Fmul.begin(), Fmul.end());
    };
    try {
        OptimNP::solve(boost::make_shared<NonlinearFunctions>(model, track), newState(true, options),
                       properties(model, options, false), static_cast<int>(rows), model.n(), row(model.linear()),
                       column(model.linear()), A, row(model.nonlinear()), column(model.nonlinear()), x,
                       arrayOf<double>(n, [&](std::size_t j) { return bound(variables[j].low); }),
                       arrayOf<double>(n, [&](std::size_t j) { return bound(variables[j].high); }), xmul, xstate, F,
                       arrayOf<double>(rows, [&](std::size_t i) { return bound(model.rows()[i].low); }),
                       arrayOf<double>(rows, [&](std::size_t i) { return bound(model.rows()[i].high); }), Fmul, Fstate, 1,
                       s.code, nInf, sInf, s.iterations, majors, s.exit, warm == nullptr);
    } catch (const qxbase::CancelException&) {
        s.cancelled = true;
    } catch (const qxbase::Exception&) {
        if (s.exit.empty()) // it failed before there was an answer
            throw;
    }
    read();
}

void solveQuadratic(const Model& model, const SolveOptions& options, const Solution* warm, Solution& s)
{
    const std::size_t n = static_cast<std::size_t>(model.n()), m = model.rows().size() - 1;
    const auto& variables = model.problem().variables;
    std::vector<unsigned long> is, js;
    std::vector<double> values;
    // c is the gradient of the objective at 0: what H does not say.
    std::vector<double> origin(n, 0.0), c, F0;
    model.gradientOf(0, origin.data(), c);
    model.total(origin.data(), F0);
    for (const Entry& e : model.linear())
        if (e.row > 0) {
            is.push_back(static_cast<unsigned long>(e.row - 1));
            js.push_back(static_cast<unsigned long>(e.column));
            values.push_back(e.value);
        }
    Sparse A;
    A.triplet2sparse(is, js, values, m, n);
    const auto part = [&](const auto& ofVariable, const auto& ofRow) {
        return arrayOf<double>(n + m, [&](std::size_t k) { return k < n ? ofVariable(k) : ofRow(k - n + 1); });
    };
    const auto none = [](std::size_t) { return 0.0; };
    auto x = part([&](std::size_t j) { return s.x[j]; }, none);
    auto rc = part([&](std::size_t j) { return warm != nullptr ? warm->xMultiplier[j] : 0.0; },
                   [&](std::size_t i) { return warm != nullptr ? warm->multiplier[i] : 0.0; });
    auto hs = arrayOf<int>(n + m, [](std::size_t) { return 0; });
    int nInf = 0;
    double sInf = 0.0, objective = 0.0;
    try {
        OptimQP::solve(boost::make_shared<QuadraticPart>(model), newState(false, options), properties(model, options, true),
                       model.n(), warm == nullptr, A, model.hessian().empty() ? 0 : model.n(),
                       arrayOf<double>(n, [&](std::size_t j) { return c[j]; }), x,
                       part([&](std::size_t j) { return bound(variables[j].low); },
                            [&](std::size_t i) { return bound(model.rows()[i].low - model.rows()[i].constant); }),
                       part([&](std::size_t j) { return bound(variables[j].high); },
                            [&](std::size_t i) { return bound(model.rows()[i].high - model.rows()[i].constant); }),
                       arrayOf<int>(n + m, [](std::size_t) { return 0; }), hs, rc, s.code, nInf, sInf, s.iterations,
                       objective, s.exit);
    } catch (const qxbase::CancelException&) {
        s.cancelled = true;
    } catch (const qxbase::Exception&) {
        if (s.exit.empty())
            throw;
    }
    s.x.assign(x.begin(), x.begin() + n);
    s.xMultiplier.assign(rc.begin(), rc.begin() + n);
    s.multiplier.assign(1, 1.0);
    s.multiplier.insert(s.multiplier.end(), rc.begin() + n, rc.end());
}

constexpr int kIndefinite = 53;

} // namespace

Solution solveFrom(const Model& model, const SolveOptions& options, const std::vector<double>& start, const Solution* warm)
{
    Solution s;
    Track track(model, options);
    s.x = start;
    s.quadratic = model.isQuadratic() && !options.general;
    if (s.quadratic) {
        solveQuadratic(model, options, warm, s);
        if (s.code == kIndefinite) { // not convex: a local optimum is what there is
            s = Solution();
            s.x = start;
        }
    }
    if (!s.quadratic)
        solveNonlinear(model, options, warm, track, s);
    if (s.cancelled && !track.best.empty())
        s.x = track.best;
    if (model.total(s.x.data(), s.F))
        s.violation = model.violation(s.F);
    else
        s.F.assign(model.rows().size(), std::numeric_limits<double>::quiet_NaN());
    s.solved = !s.cancelled && (s.code == 1 || s.code == 2 || s.code == 4);
    s.evaluations = track.evaluations;
    s.path = std::move(track.path);
    if (!s.path.empty() && s.path.back() != s.x)
        s.path.push_back(s.x);
    return s;
}

Solution solve(const Model& model, const SolveOptions& options)
{
    std::vector<double> start = model.start();
    Solution best = solveFrom(model, options, start);
    std::mt19937_64 random(1); // the same starts in every run
    const double sign = model.problem().maximise ? -1.0 : 1.0;
    for (int k = 1; k < options.starts && !best.cancelled; ++k) {
        for (std::size_t j = 0; j < start.size(); ++j) {
            const Variable& v = model.problem().variables[j];
            const double reach = 2.0 * std::max(1.0, std::fabs(v.start));
            const double low = std::isfinite(v.low) ? v.low : std::max(v.start - reach, v.low);
            const double high = std::isfinite(v.high) ? v.high : v.start + reach;
            start[j] = std::uniform_real_distribution<double>(low, high)(random);
        }
        Solution other = solveFrom(model, options, start);
        const long evaluations = best.evaluations + other.evaluations;
        if (other.cancelled || (other.solved && (!best.solved || sign * other.F[0] < sign * best.F[0]))) {
            other.cancelled ? void(best.cancelled = true) : void(best = std::move(other));
        }
        best.evaluations = evaluations;
    }
    return best;
}

GradientCheck checkGradient(const Model& model)
{
    GradientCheck check;
    const std::vector<double> x = model.start();
    std::vector<double> g, up, down;
    for (int i = 0; i < static_cast<int>(model.rows().size()); ++i) {
        if (!model.gradientOf(i, x.data(), g))
            return {kUnbounded, i, 0};
        for (std::size_t j = 0; j < x.size(); ++j) {
            std::vector<double> moved = x;
            const double h = 6e-6 * (1.0 + std::fabs(x[j]));
            const Variable& v = model.problem().variables[j];
            moved[j] = std::min(x[j] + h, v.high);
            const double right = moved[j];
            if (!model.total(moved.data(), up))
                continue;
            moved[j] = std::max(x[j] - h, v.low);
            if (right == moved[j] || !model.total(moved.data(), down))
                continue;
            const std::size_t row = static_cast<std::size_t>(i);
            const double difference = (up[row] - down[row]) / (right - moved[j]);
            const double error = std::fabs(difference - g[j]) / (1.0 + std::fabs(difference));
            if (error > check.worst)
                check = {error, i, static_cast<int>(j)};
        }
    }
    return check;
}

} // namespace examples

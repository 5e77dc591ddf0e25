// SPDX-License-Identifier: LicenseRef-qxkernel
#include "fit.hpp"

#include "report.hpp"

#include "arrayutil.hpp"
#include "formulas.hpp"
#include "optimnp.hpp"
#include "qxexception.hpp"
#include "support/options.hpp"

#include <algorithm>
#include <array>
#include <boost/make_shared.hpp>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <ostream>

namespace examples {

namespace {

/// The model over all rows: values, residuals and derivatives by the parameters.
class Regression
{
public:
    Regression(const Fit& fit, const Table& data)
        : fit_(fit), formulas_(namesOf(fit, data)), points_(data.rows()), y_(data.column(fit.observed)),
          value_(data.rows()), derivative_(fit.parameters.size(), std::vector<double>(data.rows()))
    {
        for (const auto& [name, text] : fit.definitions)
            formulas_.define(name, text);
        formula_ = formulas_.add(fit.model);
        program_.emplace(formulas_.compile());
        for (const std::string& x : data.variables())
            points_.set(x, data.column(x));
        weight_.assign(data.rows(), 1.0);
        if (!fit.weights.empty())
            weight_ = data.column(fit.weights);
        for (std::size_t i = 0; i < weight_.size(); ++i)
            if (!(weight_[i] > 0.0 && std::isfinite(weight_[i])))
                throw UsageError("row " + std::to_string(i + 1) + ": a weight is a positive number");
        for (std::size_t i = 0; i < y_.size(); ++i)
            if (!std::isfinite(y_[i]))
                throw UsageError("row " + std::to_string(i + 1) + ": the observed value is no number");
        double size = 0.0;
        for (std::size_t i = 0; i < y_.size(); ++i)
            size += weight_[i] * y_[i] * y_[i];
        scale_ = size > 0.0 ? 1.0 / size : 1.0;
    }

    std::size_t rows() const { return y_.size(); }
    std::size_t parameters() const { return derivative_.size(); }
    const std::vector<double>& values() const { return value_; }
    const std::vector<double>& observed() const { return y_; }
    const std::vector<double>& weights() const { return weight_; }
    const std::vector<double>& derivative(std::size_t k) const { return derivative_[k]; }
    /// What makes the sum of squares a number of order one.
    double scale() const { return scale_; }

    /// The sum of squares at these parameters; false where the model has no value at some row.
    bool evaluate(const double* p, double& sum)
    {
        for (std::size_t k = 0; k < parameters(); ++k)
            points_.set(fit_.parameters[k].name, p[k]);
        std::vector<qx::Derivative> by;
        for (std::size_t k = 0; k < parameters(); ++k)
            by.push_back({fit_.parameters[k].name, derivative_[k]});
        qx::Options options;
        options.onFailure = qx::OnFailure::nan;
        options.requireFinite = true;
        options.keepReal = true;
        if (program_->gradient(points_, formula_, value_, by, options).count != 0)
            return false;
        sum = 0.0;
        for (std::size_t i = 0; i < rows(); ++i)
            sum += weight_[i] * (y_[i] - value_[i]) * (y_[i] - value_[i]);
        return std::isfinite(sum);
    }

    void gradientOfSum(double* g) const
    {
        for (std::size_t k = 0; k < parameters(); ++k) {
            g[k] = 0.0;
            for (std::size_t i = 0; i < rows(); ++i)
                g[k] -= 2.0 * weight_[i] * (y_[i] - value_[i]) * derivative_[k][i];
        }
    }

private:
    static std::vector<std::string> namesOf(const Fit& fit, const Table& data)
    {
        std::vector<std::string> names = data.variables();
        for (const Variable& p : fit.parameters) {
            if (data.find(p.name) >= 0)
                throw UsageError("the parameter " + p.name + " is a column of " + data.file);
            names.push_back(p.name);
        }
        return names;
    }

    const Fit& fit_;
    qx::Formulas formulas_;
    qx::Formula formula_;
    std::optional<qx::Program> program_;
    qx::Points points_;
    const std::vector<double>& y_;
    std::vector<double> weight_, value_;
    std::vector<std::vector<double>> derivative_;
    double scale_ = 1.0;
};

class SumOfSquares : public OptimNPCallback
{
public:
    /// units: the optimizer's variables are the parameters divided by these.
    SumOfSquares(Regression& regression, std::vector<double> units, const SolveOptions& options, Solution& solution)
        : regression_(regression), units_(std::move(units)), options_(options), solution_(solution)
    {
    }

    void eval(int& status, int n, const double* x, bool needF, int, double* F, bool needG, int lenG, double* G) override
    {
        double sum = 0.0;
        std::vector<double> p(x, x + n);
        for (std::size_t k = 0; k < p.size(); ++k)
            p[k] *= units_[k];
        if (!regression_.evaluate(p.data(), sum)) {
            status = -1;
            return;
        }
        if (needF)
            F[0] = sum * regression_.scale();
        if (needG) {
            regression_.gradientOfSum(G);
            for (int k = 0; k < lenG; ++k)
                G[k] *= regression_.scale() * units_[static_cast<std::size_t>(k)];
        }
        ++solution_.evaluations;
        if (best_.empty() || sum < bestSum_) {
            best_ = p;
            bestSum_ = sum;
        }
        lastSum_ = sum;
        if (solution_.evaluations == 1)
            onIteration(0); // the start
    }
    void onIteration(int count) override
    {
        if (options_.progress)
            options_.progress(count, lastSum_, 0.0);
    }

    const std::vector<double>& best() const { return best_; }

private:
    Regression& regression_;
    const std::vector<double> units_;
    const SolveOptions& options_;
    Solution& solution_;
    std::vector<double> best_;
    double bestSum_ = 0.0, lastSum_ = 0.0;
};

/// The inverse of a positive definite matrix with ones on its diagonal. False where the data do not determine it.
bool invert(Array<double, 2> matrix, Array<double, 2>& inverse)
{
    const std::size_t n = matrix.extent(0);
    inverse.resize(n, n);
    inverse = 0.0;
    for (std::size_t k = 0; k < n; ++k)
        inverse(k, k) = 1.0;
    if (qxarray::linsolv(matrix, inverse, 0) != 0)
        return false;
    constexpr double hopeless = 1e14; // a variance that rounding has made
    for (std::size_t k = 0; k < n; ++k)
        if (!(inverse(k, k) > 0.0 && inverse(k, k) < hopeless))
            return false;
    return true;
}

Array<double, 1> boundsOf(const std::vector<Variable>& parameters, double Variable::*bound, const std::vector<double>& units)
{
    Array<double, 1> bounds(parameters.size());
    for (std::size_t k = 0; k < parameters.size(); ++k)
        bounds[k] = std::clamp(parameters[k].*bound / units[k], -1e20, 1e20);
    return bounds;
}

void optimise(Regression& regression, const Fit& fit, const SolveOptions& options, Solution& s)
{
    const std::size_t n = fit.parameters.size();
    qxoptim::initializeOptim();
    OptimState::loadLib();
    const auto state = boost::make_shared<OptimState>(4000, 500, 500, true, 0, 0);
    state->setRunInfo(options.run);
    qxbase::Prop prop;
    prop.setString("stop", "off");
    prop.setDouble("opttol", 1e-4 * options.tolerance); // a good fit leaves little of a sum that begins near one
    prop.setInt("majitlim", options.iterations);
    prop.setInt("hessupd", 50);
    OptimState::checkNP(prop);

    Array<double, 1> x(n), xmul(n), F(1), Flow(1), Fupp(1), Fmul(1), A(0);
    Array<int, 1> none(0), row(n), column(n), xstate(n), Fstate(1);
    std::vector<double> units; // parameters of all sizes begin at one
    for (std::size_t k = 0; k < n; ++k) {
        const double start = fit.parameters[k].start;
        units.push_back(start != 0.0 ? std::fabs(start) : 1.0);
        x[k] = start / units[k];
        row[k] = 1;
        column[k] = static_cast<int>(k) + 1;
    }
    xmul = 0.0, F = 0.0, Fmul = 0.0, xstate = 0, Fstate = 0;
    Flow = -1e20, Fupp = 1e20;
    int nInf = 0, majors = 0;
    double sInf = 0.0;
    const auto callback = boost::make_shared<SumOfSquares>(regression, units, options, s);
    try {
        OptimNP::solve(callback, state, prop, 1, static_cast<int>(n), none, none, A, row, column, x,
                       boundsOf(fit.parameters, &Variable::low, units), boundsOf(fit.parameters, &Variable::high, units), xmul, xstate, F,
                       Flow, Fupp, Fmul, Fstate, 1, s.code, nInf, sInf, s.iterations, majors, s.exit);
    } catch (const qxbase::CancelException&) {
        s.cancelled = true;
    }
    for (std::size_t k = 0; k < n; ++k)
        s.x.push_back(x[k] * units[k]);
    if (s.cancelled && !callback->best().empty())
        s.x = callback->best();
    s.solved = !s.cancelled && s.code == 1;
}

/// The model over a column alone. Raises qxbase::Exception where it needs another one too.
std::vector<double> modelOver(const Fit& fit, const std::vector<double>& parameters, const std::string& over,
                              const std::vector<double>& at)
{
    std::vector<std::string> names{over};
    for (const Variable& p : fit.parameters)
        names.push_back(p.name);
    qx::Formulas formulas(names);
    for (const auto& [name, text] : fit.definitions)
        formulas.define(name, text);
    const qx::Formula formula = formulas.add(fit.model);
    const qx::Program program = formulas.compile();
    qx::Points points(at.size());
    points.set(over, at);
    for (std::size_t k = 0; k < parameters.size(); ++k)
        points.set(fit.parameters[k].name, parameters[k]);
    std::vector<double> values(at.size());
    qx::Options options;
    options.onFailure = qx::OnFailure::nan;
    options.keepReal = true;
    program.evaluate(points, formula, values, options);
    return values;
}

} // namespace

std::string observedColumn(const Fit& fit, const Table& data)
{
    // A column is mentioned where it stands as a word of the model or of a definition.
    std::string texts = fit.model;
    for (const auto& [name, text] : fit.definitions)
        texts += " " + text;
    const auto isLetter = [](char c) { return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0; };
    std::string found;
    for (const std::string& name : data.names) {
        bool mentioned = name == fit.weights;
        for (std::size_t at = texts.find(name); at != std::string::npos; at = texts.find(name, at + 1))
            mentioned = mentioned || ((at == 0 || !isLetter(texts[at - 1])) &&
                                      (at + name.size() == texts.size() || !isLetter(texts[at + name.size()])));
        if (mentioned)
            continue;
        if (!found.empty())
            throw UsageError("which column was observed, " + found + " or " + name + "? Say so with --observed");
        found = name;
    }
    if (found.empty())
        throw UsageError("all columns of " + data.file + " stand in the model; say with --observed which was observed");
    return found;
}

FitResult fitParameters(const Fit& fit, const Table& data, const SolveOptions& options)
{
    if (data.rows() == 0 || fit.parameters.empty())
        throw UsageError("a fit needs data and parameters");
    Regression regression(fit, data);
    FitResult r;
    optimise(regression, fit, options, r.solution);

    const std::size_t n = fit.parameters.size(), rows = regression.rows();
    if (!regression.evaluate(r.solution.x.data(), r.sumOfSquares))
        r.sumOfSquares = std::numeric_limits<double>::quiet_NaN();
    r.solution.F = {r.sumOfSquares};
    r.fitted = regression.values();
    double sumW = 0.0, mean = 0.0, total = 0.0;
    for (std::size_t i = 0; i < rows; ++i) {
        r.residual.push_back(regression.observed()[i] - r.fitted[i]);
        sumW += regression.weights()[i];
        mean += regression.weights()[i] * regression.observed()[i];
    }
    mean /= sumW;
    for (std::size_t i = 0; i < rows; ++i)
        total += regression.weights()[i] * (regression.observed()[i] - mean) * (regression.observed()[i] - mean);
    r.rSquared = total > 0.0 ? 1.0 - r.sumOfSquares / total : std::numeric_limits<double>::quiet_NaN();
    r.degreesOfFreedom = static_cast<long>(rows) - static_cast<long>(n);

    // J^T W J, scaled to ones on its diagonal, and its inverse column by column.
    std::vector<double> size(n);
    Array<double, 2> normal(n, n);
    const auto product = [&](std::size_t a, std::size_t b) {
        double sum = 0.0;
        for (std::size_t i = 0; i < rows; ++i)
            sum += regression.weights()[i] * regression.derivative(a)[i] * regression.derivative(b)[i];
        return sum;
    };
    for (std::size_t a = 0; a < n; ++a)
        size[a] = std::sqrt(product(a, a));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    r.error.assign(n, nan);
    r.correlation.assign(n, std::vector<double>(n, nan));
    const double variance = r.degreesOfFreedom > 0 ? r.sumOfSquares / static_cast<double>(r.degreesOfFreedom) : nan;
    r.deviation = std::sqrt(variance);
    if (std::any_of(size.begin(), size.end(), [](double s) { return !(s > 0.0); }))
        return r;
    for (std::size_t a = 0; a < n; ++a)
        for (std::size_t b = 0; b < n; ++b)
            normal(a, b) = product(a, b) / (size[a] * size[b]);
    Array<double, 2> inverse;
    if (!invert(normal, inverse))
        return r;
    for (std::size_t a = 0; a < n; ++a) {
        r.error[a] = std::sqrt(variance * inverse(a, a)) / size[a];
        for (std::size_t b = 0; b < n; ++b)
            r.correlation[a][b] = inverse(a, b) / std::sqrt(inverse(a, a) * inverse(b, b));
    }
    return r;
}

std::vector<std::array<double, 2>> fittedCurve(const Fit& fit, const FitResult& r, const Table& data, const std::string& over)
{
    const std::vector<double>& t = data.column(over);
    std::vector<std::array<double, 2>> curve;
    if (t.empty())
        return curve;
    const auto [low, high] = std::minmax_element(t.begin(), t.end());
    constexpr std::size_t count = 401;
    std::vector<double> at(count), value;
    for (std::size_t i = 0; i < count; ++i)
        at[i] = *low + (*high - *low) * static_cast<double>(i) / (count - 1);
    try {
        value = modelOver(fit, r.solution.x, over, at);
    } catch (const qxbase::Exception&) { // other columns count too: the model has values at the data alone
        at = t;
        value = r.fitted;
    }
    for (std::size_t i = 0; i < at.size(); ++i)
        curve.push_back({at[i], value[i]});
    std::sort(curve.begin(), curve.end());
    return curve;
}

void printReport(std::ostream& out, const Fit& fit, const FitResult& r)
{
    char line[256];
    std::string exit = r.solution.exit;
    std::replace(exit.begin(), exit.end(), '_', ' ');
    out << (r.solution.cancelled ? "Cancelled; the best parameters so far." : exit) << '\n'
        << fit.observed << "  near  " << fit.model << '\n';
    std::size_t width = 9;
    for (const Variable& p : fit.parameters)
        width = std::max(width, p.name.size());
    std::snprintf(line, sizeof line, "%-*s  %16s  %14s\n", static_cast<int>(width), "parameter", "value", "standard error");
    out << line;
    for (std::size_t k = 0; k < fit.parameters.size(); ++k) {
        std::snprintf(line, sizeof line, "%-*s  %16.8g  %14.3g\n", static_cast<int>(width), fit.parameters[k].name.c_str(),
                      r.solution.x[k], r.error[k]);
        out << line;
    }
    if (fit.parameters.size() > 1)
        out << "correlations\n";
    for (std::size_t a = 1; a < fit.parameters.size(); ++a) {
        std::snprintf(line, sizeof line, "%-*s ", static_cast<int>(width), fit.parameters[a].name.c_str());
        out << line;
        for (std::size_t b = 0; b < a; ++b) {
            std::snprintf(line, sizeof line, " %s %.3f", fit.parameters[b].name.c_str(), r.correlation[a][b]);
            out << line;
        }
        out << '\n';
    }
    double smallest = kUnbounded, largest = -kUnbounded;
    for (const double e : r.residual) {
        smallest = std::min(smallest, e);
        largest = std::max(largest, e);
    }
    std::snprintf(line, sizeof line,
                  "sum of squares %.8g, standard deviation %.4g with %ld degrees of freedom, R^2 %.6f\n"
                  "residuals from %.4g to %.4g; %d iterations, %ld evaluations\n",
                  r.sumOfSquares, r.deviation, r.degreesOfFreedom, r.rSquared, smallest, largest, r.solution.iterations,
                  r.solution.evaluations);
    out << line;
}

void printJson(std::ostream& out, const Fit& fit, const FitResult& r)
{
    out << "{\"solved\": " << (r.solution.solved ? "true" : "false") << ", \"cancelled\": "
        << (r.solution.cancelled ? "true" : "false") << ", \"exit\": " << jsonText(r.solution.exit) << ", \"model\": "
        << jsonText(fit.model) << ", \"observed\": " << jsonText(fit.observed) << ",\n \"parameters\": [";
    for (std::size_t k = 0; k < fit.parameters.size(); ++k) {
        out << (k > 0 ? ",\n  " : "\n  ") << "{\"name\": " << jsonText(fit.parameters[k].name) << ", \"value\": "
            << jsonNumber(r.solution.x[k]) << ", \"error\": " << jsonNumber(r.error[k]) << ", \"correlation\": [";
        for (std::size_t b = 0; b < fit.parameters.size(); ++b)
            out << (b > 0 ? ", " : "") << jsonNumber(r.correlation[k][b]);
        out << "]}";
    }
    out << "],\n \"sum\": " << jsonNumber(r.sumOfSquares) << ", \"deviation\": " << jsonNumber(r.deviation)
        << ", \"degreesOfFreedom\": " << r.degreesOfFreedom << ", \"rSquared\": " << jsonNumber(r.rSquared)
        << ",\n \"residuals\": [";
    for (std::size_t i = 0; i < r.residual.size(); ++i)
        out << (i > 0 ? ", " : "") << jsonNumber(r.residual[i]);
    out << "]}\n";
}

} // namespace examples

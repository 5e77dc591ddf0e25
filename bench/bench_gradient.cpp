// SPDX-License-Identifier: LicenseRef-qxkernel
// A value and its gradient with respect to ten variables: against the value alone, derivative graphs against GiNaC's, and
// accuracy against muParser's difference quotients. One thread, blocks of 1000 points.

#include "evaluation_host.hpp"
#include "evaltreeset.hpp"
#include "harness.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <ginac/ginac.h>
#include <muParser.h>
#include <omp.h>
#include <random>
#include <set>

using namespace qxbench;

namespace {

constexpr std::size_t variables = 10, block = 1000, blocks = 4, points = block * blocks, passes = 20;
constexpr unsigned flags = EvalValues | EvalKeepReal;

/// A number with its derivatives in long double: forward differentiation, the reference for all contenders.
struct Jet
{
    long double value = 0;
    std::array<long double, variables> d{};

    Jet() = default;
    Jet(long double v) : value(v) {}

    template <class F>
    static Jet of(long double value, F&& derivative)
    {
        Jet r(value);
        for (std::size_t i = 0; i < variables; ++i)
            r.d[i] = derivative(i);
        return r;
    }
    friend Jet operator+(const Jet& a, const Jet& b)
    {
        return of(a.value + b.value, [&](std::size_t i) { return a.d[i] + b.d[i]; });
    }
    friend Jet operator-(const Jet& a, const Jet& b)
    {
        return of(a.value - b.value, [&](std::size_t i) { return a.d[i] - b.d[i]; });
    }
    friend Jet operator*(const Jet& a, const Jet& b)
    {
        return of(a.value * b.value, [&](std::size_t i) { return a.d[i] * b.value + a.value * b.d[i]; });
    }
    friend Jet operator/(const Jet& a, const Jet& b)
    {
        const long double q = a.value / b.value;
        return of(q, [&](std::size_t i) { return (a.d[i] - q * b.d[i]) / b.value; });
    }
    Jet chain(long double f, long double slope) const
    {
        return of(f, [&](std::size_t i) { return slope * d[i]; });
    }
};
Jet square(const Jet& a) { return a * a; }
Jet exp(const Jet& a) { return a.chain(std::exp(a.value), std::exp(a.value)); }
Jet log(const Jet& a) { return a.chain(std::log(a.value), 1 / a.value); }
Jet cos(const Jet& a) { return a.chain(std::cos(a.value), -std::sin(a.value)); }
Jet sqrt(const Jet& a) { return a.chain(std::sqrt(a.value), 0.5L / std::sqrt(a.value)); }

using Point = std::array<Jet, variables>;

struct Example
{
    std::string name;
    std::string text;
    std::function<Jet(const Point&)> exact;
};

/// The terms of i = first .. last-1 with the numbers of variables put in for # (i) and $ (i+1), joined.
std::string joined(std::size_t last, const std::string& separator, const std::string& term)
{
    std::string text;
    for (std::size_t i = 0; i < last; ++i) {
        text += i == 0 ? "" : separator;
        for (const char c : term)
            text += c == '#' ? std::to_string(i) : c == '$' ? std::to_string(i + 1) : std::string(1, c);
    }
    return text;
}

std::vector<Example> examples()
{
    const std::string sum = joined(variables, "+", "x#"), squares = joined(variables, "+", "x#^2");
    return {
        // Each term knows two variables: the gradient has few operations of its own.
        {"Rosenbrock chain", joined(variables - 1, "+", "100*(x$-x#^2)^2+(1-x#)^2"),
         [](const Point& x) {
             Jet f;
             for (std::size_t i = 0; i + 1 < variables; ++i)
                 f = f + 100.0L * square(x[i + 1] - square(x[i])) + square(1.0L - x[i]);
             return f;
         }},
        // Every derivative contains the whole value.
        {"damped wave", "exp(-sqrt(" + squares + "+0.1))*cos(" + joined(variables, "+", "$*x#") + ")",
         [](const Point& x) {
             Jet r = 0.1L, phase;
             for (std::size_t i = 0; i < variables; ++i) {
                 r = r + square(x[i]);
                 phase = phase + static_cast<long double>(i + 1) * x[i];
             }
             return exp(0.0L - sqrt(r)) * cos(phase);
         }},
        // Speelpenning's product: derivatives are products of all other variables.
        {"product of ten", joined(variables, "*", "x#"),
         [](const Point& x) {
             Jet f = 1.0L;
             for (const Jet& factor : x)
                 f = f * factor;
             return f;
         }},
        // Free energy of a mixture: a logarithm for each part, and one of the whole.
        {"energy of a mixture",
         joined(variables, "+", "x#*log(x#/(11-(" + sum + ")))") + "-(" + sum + ")*log(1+0.3*(" + sum + "))/(" + squares + "+2)",
         [](const Point& x) {
             Jet all, squared, f;
             for (const Jet& part : x) {
                 all = all + part;
                 squared = squared + square(part);
             }
             for (const Jet& part : x)
                 f = f + part * log(part / (11.0L - all));
             return f - all * log(1.0L + 0.3L * all) / (squared + 2.0L);
         }}};
}

/// Nodes of a GiNaC expression: all, and the distinct ones.
void countNodes(const GiNaC::ex& e, std::size_t& all, std::set<GiNaC::ex, GiNaC::ex_is_less>& distinct)
{
    ++all;
    distinct.insert(e);
    for (std::size_t i = 0; i < e.nops(); ++i)
        countNodes(e.op(i), all, distinct);
}

class Gradient
{
public:
    explicit Gradient(const Example& example) : example_(example)
    {
        std::mt19937_64 random(1);
        std::uniform_real_distribution<double> uniform(0.1, 1.0);
        for (auto& column : columns_) {
            column.resize(points);
            for (double& v : column)
                v = uniform(random);
        }
        host_ = makeHost();
        for (std::size_t k = 0; k < variables; ++k)
            host_->addColumn(nameOf(k), columns_[k].data(), points);
        cache_ = boost::make_shared<ColumnCache>(host_, allocator_);
        trees_ = build(host_);
        set_ = std::make_unique<EvalTreeSet>(trees_);
        exact_.resize(points);
        for (std::size_t i = 0; i < points; ++i) {
            Point p;
            for (std::size_t k = 0; k < variables; ++k) {
                p[k].value = columns_[k][i];
                p[k].d[k] = 1;
            }
            exact_[i] = example_.exact(p);
        }
    }

    void benchEvaluation()
    {
        double errorOfDiff = 0;
        const auto together = [&](auto&& take) {
            for (std::size_t j = 0; j < blocks; ++j) {
                cache_->reset();
                host_->current = j;
                set_->eval(host_, cache_, flags, values_);
                for (std::size_t t = 1; t < trees_.size(); ++t)
                    take(t, j, values_[t]);
            }
        };
        const auto repeated = [](auto&& work) {
            for (std::size_t pass = 0; pass < passes; ++pass)
                work();
        };
        const auto drop = [](std::size_t, std::size_t, const ValRepPtr& v) { keep(v.get()); };
        // The error is found in a pass of its own.
        const auto errorOf = [&](auto&& evaluate) {
            double largest = 0;
            evaluate([&](std::size_t t, std::size_t j, const ValRepPtr& v) {
                if (t > 0)
                    note(largest, t - 1, j, *v);
            });
            return largest;
        };
        const auto oneByOne = [&](auto&& take) { overBlocks(host_, cache_, trees_, blocks, flags, take); };
        BENCH("value and gradient/" + example_.name)
            .ours([&] { repeated([&] { together(drop); }); })
            .items(points * passes, "points")
            .peer("value alone", [&] { repeated([&] { overBlocks(host_, cache_, {trees_[0]}, blocks, flags, drop); }); })
            .check([&] { return errorOf(together); }, 1e-12)
            .atMost(4.0)
            .peer("eleven trees one by one", [&] { repeated([&] { oneByOne(drop); }); })
            .check([&] { return errorOf(oneByOne); }, 1e-12);

        // muParser differentiates by a difference quotient of four values around the point.
        std::array<double, variables> at{};
        mu::Parser parser;
        for (std::size_t k = 0; k < variables; ++k)
            parser.DefineVar(nameOf(k), &at[k]);
        parser.DefineFun("log", static_cast<double (*)(double)>(std::log), true);
        parser.SetExpr(example_.text);
        constexpr std::size_t few = 100; // points; ours takes all
        const auto quotients = [&] {
            for (std::size_t i = 0; i < few; ++i) {
                for (std::size_t k = 0; k < variables; ++k)
                    at[k] = columns_[k][i];
                for (std::size_t k = 0; k < variables; ++k)
                    errorOfDiff = std::max(errorOfDiff, error(k, i, parser.Diff(&at[k], at[k])));
            }
        };
        BENCH("gradient at 100 points/" + example_.name)
            .ours([&] {
                for (int repeat = 0; repeat < 10; ++repeat) { // ten blocks of 1000 count as ten times 100 points
                    cache_->reset();
                    host_->current = 0;
                    set_->eval(host_, cache_, flags, values_);
                }
            })
            .items(10 * block, "points")
            .peer("muParser Diff, 100 times fewer points", quotients)
            .check([&] { return errorOfDiff; }, 1e-5);
        quotients();
        std::printf("largest error of a derivative, relative to 1 + |derivative|: ours %.2g, muParser Diff %.2g\n\n",
                    errorOf(together), errorOfDiff);
    }

    void benchBuilding()
    {
        GiNaC::symtab names;
        std::vector<GiNaC::symbol> symbols;
        for (std::size_t k = 0; k < variables; ++k) {
            symbols.emplace_back(nameOf(k));
            names[nameOf(k)] = symbols.back();
        }
        GiNaC::parser reader(names);
        std::vector<GiNaC::ex> theirs;
        const auto differentiate = [&] {
            const GiNaC::ex f = reader(example_.text);
            theirs.assign(1, f);
            for (const GiNaC::symbol& x : symbols)
                theirs.push_back(f.diff(x));
        };
        const auto evaluate = [&](std::size_t i) {
            GiNaC::exmap at;
            for (std::size_t k = 0; k < variables; ++k)
                at[symbols[k]] = columns_[k][i];
            double worst = 0;
            for (std::size_t k = 0; k < variables; ++k)
                worst = std::max(worst,
                                 error(k, i, GiNaC::ex_to<GiNaC::numeric>(theirs[k + 1].subs(at).evalf()).to_double()));
            return worst;
        };
        const auto host = makeHost();
        BENCH("build value and gradient/" + example_.name)
            .ours([&] {
                host->getNodeMaker()->reset(); // nothing is shared with what was built before
                host->updateVersion();
                keep(build(host));
            })
            .peer("GiNaC parser and diff", differentiate)
            .check([&] { return evaluate(0); }, 1e-10)
            .atMost(1.0);

        BENCH("evaluate gradient at 5 points/" + example_.name)
            .ours([&] {
                cache_->reset();
                host_->current = 0;
                set_->eval(host_, cache_, flags, values_);
            })
            .items(block, "points")
            .peer("GiNaC subs and evalf, 200 times fewer points", [&] {
                for (std::size_t i = 0; i < 5; ++i)
                    keep(evaluate(i));
            });

        std::size_t all = 0;
        std::set<GiNaC::ex, GiNaC::ex_is_less> distinct;
        for (const GiNaC::ex& e : theirs)
            countNodes(e, all, distinct);
        EvalTreeSet value({trees_[0]});
        std::vector<ValRepPtr> unused;
        value.eval(host_, cache_, flags, unused);
        std::printf("distinct operations: value %zu, value and gradient %zu; GiNaC: %zu distinct nodes, %zu in all\n\n",
                    value.getOperationCount(), set_->getOperationCount(), distinct.size(), all);
    }

private:
    static std::string nameOf(std::size_t k) { return "x" + std::to_string(k); }
    boost::shared_ptr<ColumnHost> makeHost() const { return boost::make_shared<ColumnHost>(block, allocator_); }

    std::vector<EvalTreePtr> build(const VarEvaluatorPtr& host) const
    {
        std::vector<EvalTreePtr> trees{boost::make_shared<EvalTree>(example_.text, false)};
        for (std::size_t k = 0; k < variables; ++k)
            trees.push_back(trees[0]->diff(nameOf(k), host));
        return trees;
    }

    double error(std::size_t k, std::size_t i, double derivative) const
    {
        const long double expected = exact_[i].d[k];
        const auto difference = static_cast<double>(std::abs(derivative - expected) / (1 + std::abs(expected)));
        return std::isnan(difference) ? HUGE_VAL : difference;
    }
    void note(double& largest, std::size_t k, std::size_t j, const ValRep& v) const
    {
        const bool scalar = v.isScalar() || v.isZero();
        const double* const values = scalar ? nullptr : v.getDoubleIterator(0);
        for (std::size_t i = 0; i < block; ++i)
            largest = std::max(largest, error(k, j * block + i, scalar ? v.getDouble() : values[i]));
    }

    const Example example_;
    const ArrayAllocatorPtr allocator_ = boost::make_shared<SerialArrayAllocator>(block, 0);
    ValRepCachePtr cache_;
    std::array<std::vector<double>, variables> columns_;
    boost::shared_ptr<ColumnHost> host_;
    std::vector<EvalTreePtr> trees_;
    std::unique_ptr<EvalTreeSet> set_;
    std::vector<ValRepPtr> values_;
    std::vector<Jet> exact_;
};

} // namespace

void qxbench::benchmarks()
{
    omp_set_num_threads(1);
    for (const Example& example : examples()) {
        Gradient gradient(example);
        gradient.benchEvaluation();
        gradient.benchBuilding();
    }
}

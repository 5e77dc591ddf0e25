// SPDX-License-Identifier: LicenseRef-qxkernel
// Formulas over points, tree building, and what the steady state allocates. One thread, blocks of 1000 points.

#include "aligned.hpp"
#include "chunked_interpreter.hpp"
#include "evaluation_host.hpp"
#include "harness.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <muParser.h>
#include <omp.h>
#include <random>

using namespace qxbench;

namespace {

// A million points in all: four blocks again and again, so that the columns stay in the cache. With columns that come
// from memory every contender waits for the same bandwidth, and the ratio tells about that and not about evaluation.
constexpr std::size_t block = 1000, points = 4 * block, passes = 250;
constexpr unsigned realFlags = EvalValues | EvalKeepReal;

struct Formula
{
    std::string name;
    std::string infix;
    std::string postfix;
    double parserGoal; // our time over muParser's, at most
};

std::string polynomialInfix()
{
    std::string text = "0.5";
    for (int i = 1; i < 200; ++i)
        text += "+" + std::to_string(i) + "*x^" + std::to_string(2 + i % 3) + "*y";
    return text;
}

std::string polynomialPostfix()
{
    std::string text = "0.5";
    for (int i = 1; i < 200; ++i)
        text += " " + std::to_string(i) + " x " + std::to_string(2 + i % 3) + " ^ * y * +";
    return text;
}

const std::vector<Formula>& formulas()
{
    static const std::vector<Formula> all = {
        {"linear", "0.7*x+1.3*y+2.1", "0.7 x * 1.3 y * + 2.1 +", 1 / 25.0},
        {"squares", "x^2+y^2", "x 2 ^ y 2 ^ +", 1 / 25.0},
        {"comparison", "(x>0.5)*x*(1-x)+abs(y)", "x 0.5 > x * 1 x - * y abs +", 1 / 25.0},
        {"elementary", "sin(x)*exp(-y^2)+sqrt(x^2+y^2+1)",
         "x sin -1 y 2 ^ * exp * x 2 ^ y 2 ^ + 1 + sqrt +", 1 / 10.0},
        {"wave packet", "exp(-((x-0.5)^2+(y-0.5)^2)/0.02)*cos(10*x)*cos(10*y)",
         "-1 x 0.5 - 2 ^ y 0.5 - 2 ^ + * 0.02 / exp 10 x * cos * 10 y * cos *", 1 / 10.0},
        {"material law",
         "(350+275*sqrt(x))*(1+0.022*log(1+y))*(1-((x-0.293)/1.207)^2)+(350+275*sqrt(x))*0.022*((x-0.293)/1.207)/(1+y)",
         "350 275 x sqrt * + 1 0.022 1 y + log * + * 1 x 0.293 - 1.207 / 2 ^ - * 350 275 x sqrt * + 0.022 * x 0.293 - "
         "1.207 / * 1 y + / +",
         1 / 10.0},
        {"polynomial of 200 terms", polynomialInfix(), polynomialPostfix(), 1 / 10.0}};
    return all;
}

template <class A, class B>
double largestRelativeDifference(const A& a, const B& b)
{
    double largest = 0;
    for (std::size_t i = 0; i < points; ++i)
        largest = std::max(largest, std::abs(a[i] - b[i]) / (1 + std::abs(b[i])));
    return largest;
}

void benchFormulas()
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(0.01, 1.0);
    AlignedVector<double> x(points), y(points), ours(points), single(points), bulk(points), limit(points);
    AlignedVector<std::complex<double>> cx(points), cy(points);
    // The same numbers where malloc may put them: 16 bytes behind a line.
    constexpr std::size_t offset = 2;
    AlignedVector<double> xBehind(points + offset), yBehind(points + offset), limitBehind(points + offset);
    for (std::size_t i = 0; i < points; ++i) {
        x[i] = uniform(random);
        y[i] = uniform(random);
        cx[i] = {x[i], 0.3 * y[i]};
        cy[i] = {y[i], -0.2 * x[i]};
        xBehind[i + offset] = x[i];
        yBehind[i + offset] = y[i];
    }
    for (const Formula& formula : formulas()) {
        const auto allocator = boost::make_shared<SerialArrayAllocator>(block, 0);
        const auto host = boost::make_shared<ColumnHost>(block, allocator);
        host->addColumn("x", x.data(), points);
        host->addColumn("y", y.data(), points);
        const auto complexHost = boost::make_shared<ColumnHost>(block, allocator);
        complexHost->addColumn("x", cx.data(), points);
        complexHost->addColumn("y", cy.data(), points);
        const auto cache = boost::make_shared<ColumnCache>(host, allocator);
        const auto complexCache = boost::make_shared<ColumnCache>(complexHost, allocator);
        const std::vector<EvalTreePtr> tree{boost::make_shared<EvalTree>(formula.infix, false)};
        const auto runOurs = [&] {
            for (std::size_t pass = 0; pass < passes; ++pass)
                overBlocks(host, cache, tree, points / block, realFlags,
                           [&](std::size_t, std::size_t j, const ValRepPtr& v) {
                               const double* const values = v->getDoubleIterator(0);
                               keep(values);
                               if (pass + 1 == passes) // for the comparison; a host reads values where they are
                                   std::copy_n(values, block, ours.data() + j * block);
                           });
        };

        double vx = 0, vy = 0;
        mu::Parser parser;
        parser.DefineVar("x", &vx);
        parser.DefineVar("y", &vy);
        parser.DefineFun("log", static_cast<double (*)(double)>(std::log), true);
        parser.SetExpr(formula.infix);
        mu::Parser bulkParser;
        bulkParser.DefineVar("x", x.data());
        bulkParser.DefineVar("y", y.data());
        bulkParser.DefineFun("log", static_cast<double (*)(double)>(std::log), true);
        bulkParser.SetExpr(formula.infix);
        ChunkedInterpreter interpreter(formula.postfix, {{"x", x.data()}, {"y", y.data()}});
        ChunkedInterpreter unaligned(formula.postfix, {{"x", xBehind.data() + offset}, {"y", yBehind.data() + offset}}, offset);

        BENCH("real formulas/" + formula.name)
            .ours(runOurs)
            .items(points * passes, "points")
            .peer("muParser", [&] {
                for (std::size_t pass = 0; pass < passes; ++pass)
                    for (std::size_t i = 0; i < points; ++i) {
                        vx = x[i];
                        vy = y[i];
                        single[i] = parser.Eval();
                    }
            })
            .check([&] { return largestRelativeDifference(ours, single); }, 1e-13)
            .atMost(formula.parserGoal)
            .peer("muParser bulk", [&] {
                for (std::size_t pass = 0; pass < passes; ++pass)
                    bulkParser.Eval(bulk.data(), static_cast<int>(points));
            })
            .check([&] { return largestRelativeDifference(ours, bulk); }, 1e-13)
            .atMost(formula.parserGoal)
            .peer("chunked interpreter", [&] {
                for (std::size_t pass = 0; pass < passes; ++pass)
                    interpreter.run(limit.data(), points);
            })
            .check([&] { return largestRelativeDifference(ours, limit); }, 1e-13)
            .atMost(1.3)
            .peer("chunked interpreter, unaligned", [&] {
                for (std::size_t pass = 0; pass < passes; ++pass)
                    unaligned.run(limitBehind.data() + offset, points);
            })
            .check([&] { return largestRelativeDifference(ours, limitBehind.data() + offset); }, 1e-13);

        if (formula.name == "comparison")
            continue; // orders real parts only: its complex form is no other formula
        std::complex<double> sum;
        BENCH("complex against real/" + formula.name)
            .ours([&] {
                for (std::size_t pass = 0; pass < passes; ++pass)
                    overBlocks(complexHost, complexCache, tree, points / block, EvalValues,
                               [&](std::size_t, std::size_t, const ValRepPtr& v) { sum += v->getComplex(); });
                keep(sum);
            })
            .items(points * passes, "points")
            .peer("real arithmetic", runOurs)
            .atMost(4.0);
    }
}

void benchBuilding()
{
    struct Text
    {
        const char* name;
        std::string text;
    };
    std::string sum = "x";
    while (sum.size() < 4500) // muParser refuses texts of 5000 characters
        sum += "+y*x-" + std::to_string(sum.size()) + ".5*y";
    for (const Text& t : {Text{"linear", formulas()[0].infix}, Text{"elementary", formulas()[3].infix},
                          Text{"wave packet", formulas()[4].infix}, Text{"material law", formulas()[5].infix},
                          Text{"polynomial of 200 terms", formulas()[6].infix}, Text{"sum at the length limit", sum}}) {
        const auto host = boost::make_shared<ColumnHost>(1);
        double vx = 1.5, vy = 0.5, theirs = 0;
        host->addColumn("x", &vx, 1);
        host->addColumn("y", &vy, 1);
        double ours = 0;
        const auto evalOurs = [&](EvalTree& tree) {
            return tree.eval(host, boost::make_shared<ColumnCache>(host, ArrayAllocatorPtr()), realFlags)->getDouble();
        };
        BENCH("tree building/" + std::string(t.name))
            .ours([&] {
                EvalTree tree(t.text, false);
                tree.parse(host);
                keep(tree);
            })
            .items(static_cast<double>(t.text.size()), "characters")
            .peer("muParser set-up", [&] {
                mu::Parser parser;
                parser.DefineVar("x", &vx);
                parser.DefineVar("y", &vy);
                parser.DefineFun("log", static_cast<double (*)(double)>(std::log), true);
                parser.SetExpr(t.text);
                theirs = parser.Eval(); // the first evaluation builds the byte code
            })
            .check([&] {
                EvalTree tree(t.text, false);
                ours = evalOurs(tree);
                return std::abs(ours - theirs) / (1 + std::abs(theirs));
            }, 1e-12)
            .atMost(2.0);
    }
}

} // namespace

void qxbench::benchmarks()
{
    uses("muParser", mu::ParserVersion);
    omp_set_num_threads(1); // the bulk mode of muParser would take all
    benchFormulas();
    benchBuilding();
}

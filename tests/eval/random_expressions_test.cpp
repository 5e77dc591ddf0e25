// SPDX-License-Identifier: LicenseRef-qxkernel
// Random expressions against a slow evaluator of this test's own: recursive, scalar, on the C library's functions.

#include "host.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>

using namespace qxtest;

namespace {

/// The test's own expression: an operation, its operands, its text.
struct Expr
{
    std::string op; // "x", "y", "c" or an operation
    double number = 0;
    std::vector<Expr> args;

    std::string text() const
    {
        if (op == "c")
            return number < 0 ? "(" + std::to_string(number) + ")" : std::to_string(number);
        if (args.empty())
            return op;
        if (args.size() == 1)
            return op == "-" ? "(-" + args[0].text() + ")" : op + "(" + args[0].text() + ")";
        return "(" + args[0].text() + op + args[1].text() + ")";
    }

    template <class T>
    T eval(const T& x, const T& y) const
    {
        if (op == "c")
            return T(std::stod(std::to_string(number)));
        if (op == "x")
            return x;
        if (op == "y")
            return y;
        const T a = args[0].eval(x, y);
        if (args.size() == 1) {
            if (op == "-")
                return -a;
            if (op == "sin")
                return std::sin(a);
            if (op == "cos")
                return std::cos(a);
            if (op == "exp")
                return std::exp(a);
            if (op == "atan")
                return std::atan(a);
            return std::tanh(a);
        }
        const T b = args[1].eval(x, y);
        if (op == "+")
            return a + b;
        if (op == "-")
            return a - b;
        if (op == "*")
            return a * b;
        if (op == "/")
            return a / b;
        return a * a; // "^": the exponent is 2
    }
};

class Generator
{
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    Expr make(int depth)
    {
        if (depth == 0 || pick(8) == 0)
            return leaf();
        switch (pick(10)) {
        case 0:
            return {"+", 0, {make(depth - 1), make(depth - 1)}};
        case 1:
            return {"-", 0, {make(depth - 1), make(depth - 1)}};
        case 2:
        case 3:
            return {"*", 0, {make(depth - 1), make(depth - 1)}};
        case 4: // a divisor that stays away from 0
            return {"/", 0, {make(depth - 1), {"+", 0, {{"c", 2.5, {}}, {"sin", 0, {make(depth - 1)}}}}}};
        case 5:
            return {"^", 0, {make(depth - 1), {"c", 2, {}}}};
        case 6:
            return {"-", 0, {make(depth - 1)}};
        case 7: // an exponent that stays small
            return {"exp", 0, {{"sin", 0, {make(depth - 1)}}}};
        default: {
            static const char* const names[] = {"sin", "cos", "atan", "tanh"};
            return {names[pick(4)], 0, {make(depth - 1)}};
        }
        }
    }

    double number() { return std::uniform_real_distribution<double>(-1.5, 1.5)(random_); }

private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    Expr leaf()
    {
        switch (pick(3)) {
        case 0:
            return {"x", 0, {}};
        case 1:
            return {"y", 0, {}};
        default:
            return {"c", 0.25 * pick(12) - 1.25, {}};
        }
    }

    std::mt19937 random_;
};

} // namespace

TEST(RandomExpressions, HaveTheValuesOfASlowEvaluator)
{
    int compared = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        Generator generator(seed);
        const Expr expr = generator.make(5);
        const std::vector<double> xs{generator.number(), generator.number(), generator.number()};
        const std::vector<double> ys{generator.number(), generator.number(), generator.number()};
        const HostPtr host = makeHost({{"x", xs}, {"y", ys}});
        const std::string text = expr.text();
        const ValRepPtr value = evalText(text, host);
        const CValRepReaderPtr read = value->getComplexReader();
        for (int i = 0; i < 3; ++i) {
            const auto p = static_cast<std::size_t>(i);
            const double expected = expr.eval(xs[p], ys[p]);
            if (!(std::abs(expected) < 1e6))
                continue; // condition numbers without bound
            ++compared;
            ASSERT_NEAR((*read)(i, 0).real(), expected, 1e-9 * (1 + std::abs(expected))) << seed << ": " << text;
            ASSERT_EQ((*read)(i, 0).imag(), 0) << seed << ": " << text;
        }
    }
    EXPECT_GT(compared, 8000);
}

TEST(RandomExpressions, HaveTheComplexValuesOfASlowEvaluator)
{
    int compared = 0;
    for (unsigned seed = 0; seed < 2000; ++seed) {
        Generator generator(seed);
        const Expr expr = generator.make(4);
        const HostPtr host = makeHost();
        std::vector<cplx> xs, ys;
        for (int i = 0; i < 2; ++i) {
            xs.emplace_back(generator.number(), 0.4 * generator.number());
            ys.emplace_back(generator.number(), 0.4 * generator.number());
        }
        host->complexes = {{"x", xs}, {"y", ys}};
        const std::string text = expr.text();
        const ValRepPtr value = evalText(text, host);
        if (value->isNaN())
            continue;
        const CValRepReaderPtr read = value->getComplexReader();
        for (int i = 0; i < 2; ++i) {
            const auto p = static_cast<std::size_t>(i);
            const cplx expected = expr.eval(xs[p], ys[p]);
            if (!(std::abs(expected) < 1e3))
                continue;
            ++compared;
            ASSERT_NEAR(std::abs((*read)(i, 0) - expected), 0, 1e-8 * (1 + std::abs(expected))) << seed << ": " << text;
        }
    }
    EXPECT_GT(compared, 3000);
}

TEST(RandomExpressions, HaveDerivativesOfAtMostFiveNodesPerNode)
{
    std::size_t value = 0, derivative = 0;
    double worst = 0;
    for (unsigned seed = 0; seed < 500; ++seed) {
        const HostPtr host = makeHost();
        const EvalNodePtr root = treeOf(Generator(seed).make(9).text())->getRoot(host);
        const std::size_t size = countNodes(root), slope = countNodes(root->diff("x", host));
        if (size < 20)
            continue;
        value += size;
        derivative += slope;
        worst = std::max(worst, double(slope) / double(size));
        EXPECT_LE(slope, 5 * size) << "seed " << seed;
    }
    EXPECT_GT(value, 15000u);
    RecordProperty("nodes_per_node", std::to_string(double(derivative) / double(value)));
    RecordProperty("worst", std::to_string(worst));
}

TEST(RandomExpressions, HaveDerivativesThatAgreeWithCentralDifferences)
{
    int compared = 0;
    for (unsigned seed = 0; seed < 10000; ++seed) {
        Generator generator(seed);
        const Expr expr = generator.make(4);
        const double x = generator.number(), y = generator.number();
        const HostPtr host = makeHost({{"x", {x}}, {"y", {y}}});
        const std::string text = expr.text();

        // By the slow evaluator, with two steps: their difference tells how far the quotient itself is to be trusted.
        const auto quotient = [&](double h) { return (expr.eval(x + h, y) - expr.eval(x - h, y)) / (2 * h); };
        const double coarse = quotient(2e-4), fine = quotient(1e-4);
        const double expected = (4 * fine - coarse) / 3; // Richardson
        if (!(std::abs(expected) < 1e4) || std::abs(fine - coarse) > 1e-4 * (1 + std::abs(fine)))
            continue;
        ++compared;
        const double got = treeOf(text)->diff("x", host)->eval(host, makeCache(), EvalValues)->getComplex().real();
        ASSERT_NEAR(got, expected, 1e-6 * (1 + std::abs(expected))) << seed << ": " << text << " at " << x << ", " << y;
    }
    EXPECT_GT(compared, 8000);
}

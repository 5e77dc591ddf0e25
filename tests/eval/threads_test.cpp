// SPDX-License-Identifier: LicenseRef-qxkernel
// Eight threads at once, outside of OpenMP as the threads of a Java host are: each with an evaluator and a cache of its
// own, over node makers, trees and nodes that all of them share.

#include "exprimpl.hpp"
#include "host.hpp"

#include <algorithm>
#include <barrier>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>

using namespace qxtest;

namespace {

constexpr int kThreads = 8;

/// Calls work(thread) on eight threads that start together.
template <class Work>
void onAllThreads(Work&& work)
{
    std::barrier together(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            together.arrive_and_wait();
            work(t);
        });
    for (std::thread& thread : threads)
        thread.join();
}

/// Formulas of every kind: shared parts, definitions, derivatives, tests, functions that turn complex.
std::vector<std::string> formulas()
{
    std::vector<std::string> texts = {"k*(x-y)+sin(k)", "d(k*x^3,x)", "sqrt(x-1)*log(y-2)", "depends(k,x)+islinear(x*y)",
                                      "x^2+y^2", "besselj(0.5,x+2)", "(x>y)*exp(-x)+(x<=y)*tanh(y)", "2^3+1/4"};
    for (int i = 0; i < 40; ++i)
        texts.push_back("tan(x+" + std::to_string(i) + ")*(x*y+" + std::to_string(i % 5) + ")-x*y");
    return texts;
}

HostPtr makeThreadHost(const NodeMakerPtr& maker)
{
    const auto host = boost::make_shared<Host>(maker);
    host->reals = {{"x", {-0.5, 0.25, 2.0}}, {"y", {1.5, 2.5, -3.0}}};
    host->definitions = {{"k", "1+0.5*x*y"}};
    return host;
}

std::vector<cplx> valuesOf(EvalTree& tree, const HostPtr& host)
{
    const ValRepPtr value = tree.eval(host, makeCache(), EvalValues);
    const auto read = value->getComplexReader();
    return {(*read)(0, 0), (*read)(1, 0), (*read)(2, 0)};
}

std::vector<EvalTreePtr> makeTrees()
{
    std::vector<EvalTreePtr> trees;
    for (const std::string& text : formulas())
        trees.push_back(treeOf(text));
    return trees;
}

} // namespace

TEST(EightThreads, ParseAndEvaluateTheSameTreesAtOnce)
{
    std::vector<std::vector<cplx>> wanted;
    {
        const HostPtr host = makeThreadHost(boost::make_shared<NodeMaker>());
        for (const EvalTreePtr& tree : makeTrees())
            wanted.push_back(valuesOf(*tree, host));
    }
    const auto maker = boost::make_shared<NodeMaker>();
    const std::vector<EvalTreePtr> trees = makeTrees();
    std::vector<int> wrong(kThreads);

    onAllThreads([&](int t) {
        const HostPtr host = makeThreadHost(maker);
        const std::size_t n = trees.size(), first = std::size_t(t) * 5;
        for (int pass = 0; pass < 3; ++pass)
            for (std::size_t i = 0; i < n; ++i) {
                const std::size_t k = (first + i) % n; // two threads meet at a tree in any order
                wrong[std::size_t(t)] += valuesOf(*trees[k], host) != wanted[k];
            }
    });

    EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
}

TEST(EightThreads, MakeTreesOfTheirOwnWithOneNodeMaker)
{
    std::vector<std::vector<cplx>> wanted; // of one thread alone
    std::vector<std::string> wantedTexts;
    for (const EvalTreePtr& tree : makeTrees()) {
        const HostPtr host = makeThreadHost(boost::make_shared<NodeMaker>());
        wanted.push_back(valuesOf(*tree, host));
        wantedTexts.push_back(EvalTree(tree->getRoot(host)).getExpr());
    }
    const auto maker = boost::make_shared<NodeMaker>();
    std::vector<std::vector<std::vector<cplx>>> values(kThreads);
    std::vector<std::vector<std::string>> texts(kThreads);

    onAllThreads([&](int t) {
        const HostPtr host = makeThreadHost(maker);
        for (const EvalTreePtr& tree : makeTrees()) {
            values[std::size_t(t)].push_back(valuesOf(*tree, host));
            texts[std::size_t(t)].push_back(EvalTree(tree->getRoot(host)).getExpr());
        }
    });

    const auto letters = [](std::string text) { // operands of sums and products may stand in another order
        std::sort(text.begin(), text.end());
        return text;
    };
    for (std::size_t t = 0; t < kThreads; ++t)
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            EXPECT_EQ(values[t][i], wanted[i]) << t << ' ' << formulas()[i];
            EXPECT_EQ(letters(texts[t][i]), letters(wantedTexts[i])) << t;
        }
}

TEST(EightThreads, DifferentiateOneTree)
{
    const auto maker = boost::make_shared<NodeMaker>();
    const EvalTreePtr tree = treeOf("exp(-x*y)*sin(k)+(x*y)^3");
    std::vector<std::vector<cplx>> slopes(kThreads);

    onAllThreads([&](int t) {
        const HostPtr host = makeThreadHost(maker);
        slopes[std::size_t(t)] = valuesOf(*tree->diff("x", host), host);
    });

    const std::vector<double> xs = makeThreadHost(maker)->reals["x"], ys = makeThreadHost(maker)->reals["y"];
    for (std::size_t t = 0; t < kThreads; ++t)
        for (std::size_t i = 0; i < 3; ++i) {
            const double x = xs[i], y = ys[i], k = 1 + 0.5 * x * y;
            const double wanted = std::exp(-x * y) * (-y * std::sin(k) + 0.5 * y * std::cos(k)) + 3 * x * y * x * y * y;
            EXPECT_NEAR(std::abs(slopes[t][i] - wanted), 0, 1e-12 * (1.0 + std::abs(wanted))) << t;
        }
}

TEST(EightThreads, EachTellTheWholeStoryOfAFailure)
{
    const auto maker = boost::make_shared<NodeMaker>();
    const EvalTreePtr element = treeOf("1+sqrt(x)"), constant = boost::make_shared<EvalTree>(maker->makeConstNode(cplx(1, 2)));
    std::vector<std::string> stories(kThreads);

    onAllThreads([&](int t) {
        const HostPtr host = makeThreadHost(maker);
        for (int pass = 0; pass < 20; ++pass) {
            const ValRepPtr value = element->eval(host, makeCache(), EvalValues | EvalKeepReal);
            const ValRepPtr refused = constant->eval(host, makeCache(), EvalValues | EvalNoComplex);
            stories[std::size_t(t)] = std::to_string(value->getErrors()->size()) + raisedId([&] { value->getDouble(); }) + " " +
                                      raisedId([&] { refused->getDouble(); });
        }
    });

    EXPECT_EQ(stories, std::vector<std::string>(kThreads, "2sqrt expreval"));
}

TEST(EightThreads, ReadSimplifyAndPrintSymbolicExpressions)
{
    const auto work = [](int i) {
        ExprImpl e;
        e.scan("f(x+" + std::to_string(i) + ")*(2.5*x-x/2)^2+'text'*sin(0*x)+1/3");
        const std::string read = e.toString();
        ExprTree tree;
        tree.scan("x*sin(" + std::to_string(i) + "*x)+log(x)*erf(x)");
        tree.simp(false);
        tree.diff("x");
        std::string text;
        tree.print(text);
        return read + "\n" + text;
    };
    std::vector<std::string> wanted;
    for (int i = 0; i < 50; ++i)
        wanted.push_back(work(i));
    std::vector<int> wrong(kThreads);

    onAllThreads([&](int t) {
        for (int i = 0; i < 50; ++i)
            wrong[std::size_t(t)] += work(i) != wanted[std::size_t(i)];
    });

    EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
}

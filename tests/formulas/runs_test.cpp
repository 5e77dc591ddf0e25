// SPDX-License-Identifier: LicenseRef-qxkernel
// Progress, cancel, memory.

#include "formulas.hpp"

#include "formulas/points.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace qxtest;

namespace {

struct Listener : qxutil::RunListener
{
    void onProgress(const std::string& title, double fraction) override
    {
        titles.push_back(title);
        fractions.push_back(fraction);
        if (thread != std::this_thread::get_id())
            elsewhere = true;
        if (info != nullptr && fraction >= 0.5)
            info->cancel();
    }
    std::vector<std::string> titles;
    std::vector<double> fractions;
    std::thread::id thread = std::this_thread::get_id();
    bool elsewhere = false;
    qxutil::RunInfo* info = nullptr; // cancelled half way
};

} // namespace

TEST(FormulaRun, ReportsItsProgressOnTheCallingThread)
{
    const std::vector<double> x = ramp(50000, 1, 2);
    for (const int threads : {1, 3}) {
        Listener listener;
        qxutil::RunInfo info(&listener);

        valuesOf("sin(x)", x, {.threads = threads, .run = &info});

        ASSERT_FALSE(listener.fractions.empty());
        EXPECT_TRUE(std::is_sorted(listener.fractions.begin(), listener.fractions.end())) << threads;
        EXPECT_EQ(listener.fractions.back(), 1.0);
        EXPECT_EQ(listener.titles.back(), "Evaluating formulas");
        EXPECT_FALSE(listener.elsewhere);
        if (threads == 1) {
            EXPECT_GE(listener.fractions.size(), 50u);
        }
    }
}

TEST(FormulaRun, StopsWhenAListenerCancelsIt)
{
    const std::vector<double> x = ramp(50000, 1, 2);
    Listener listener;
    qxutil::RunInfo info(&listener);
    listener.info = &info;

    EXPECT_THROW(valuesOf("sin(x)", x, {.threads = 1, .run = &info}), qxbase::CancelException);

    EXPECT_EQ(listener.fractions.back(), 0.5);
}

TEST(FormulaRun, StopsAllThreadsWhenItIsCancelled)
{
    const std::vector<double> x(1000000);
    std::vector<double> out(x.size());
    std::atomic<int> calls{0};
    qxutil::RunInfo info;
    qx::Formulas f({"x"});
    f.function("stop", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> values) {
                            if (++calls == 10)
                                info.cancel();
                            std::copy(args[0].begin(), args[0].end(), values.begin());
                        }});
    const qx::Formula formula = f.add("stop(x)");
    const qx::Program program = f.compile();
    qx::Points p(x.size());
    p.set("x", x);

    EXPECT_THROW(program.evaluate(p, formula, out, {.threads = 3, .run = &info}), qxbase::CancelException);

    EXPECT_LE(calls, 10 + 2); // each other thread may have a block at work
}

TEST(FormulaRun, StopsWithinABlock)
{
    int later = 0;
    qxutil::RunInfo info;
    qx::Formulas f({"x"});
    const auto copy = [](qx::Arguments<double> args, std::span<double> values) {
        std::copy(args[0].begin(), args[0].end(), values.begin());
    };
    f.function("stop", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> values) {
                            info.cancel();
                            copy(args, values);
                        }});
    f.function("later", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> values) {
                             ++later;
                             copy(args, values);
                         }});
    const qx::Formula formula = f.add("later(stop(x)+1)");
    const qx::Program program = f.compile();
    double out = 0;
    qx::Points p(1);
    p.set("x", 1.0);

    EXPECT_THROW(program.evaluate(p, formula, std::span(&out, 1), {.run = &info}), qxbase::CancelException);
    EXPECT_EQ(later, 0);
}

TEST(FormulaRun, LooksAtACancelledRunBeforeItBegins)
{
    qxutil::RunInfo info;
    info.cancel();
    std::atomic<int> calls{0};
    qx::Formulas f({"x"});
    f.function("count", {.parameters = {"t"}, .real = [&](qx::Arguments<double>, std::span<double>) { ++calls; }});
    const qx::Formula formula = f.add("count(x)");
    const qx::Program program = f.compile();
    double out = 0;
    qx::Points p(1);
    p.set("x", 1.0);

    EXPECT_THROW(program.evaluate(p, formula, std::span(&out, 1), {.run = &info}), qxbase::CancelException);
    EXPECT_EQ(calls, 0);
    info.cancel(false);
    program.evaluate(p, formula, std::span(&out, 1), {.run = &info});
    EXPECT_EQ(calls, 1);
}

TEST(FormulaRun, CanBeCancelledWhileFailingPointsAreLookedFor)
{
    qxutil::RunInfo info;
    const std::vector<double> x(1000, -1.0);
    std::vector<double> out(1000);
    std::atomic<int> calls{0};
    qx::Formulas f({"x"});
    f.function("count", {.parameters = {"t"}, .real = [&](qx::Arguments<double> args, std::span<double> values) {
                             if (++calls == 5)
                                 info.cancel();
                             std::copy(args[0].begin(), args[0].end(), values.begin());
                         }});
    const qx::Formula formula = f.add("log(count(x))");
    const qx::Program program = f.compile();
    qx::Points p(1000);
    p.set("x", x);

    EXPECT_THROW(program.evaluate(p, formula, out, {.onFailure = qx::OnFailure::nan, .keepReal = true, .run = &info}),
                 qxbase::CancelException);
    EXPECT_LE(calls, 6);
}

/// What is allocated in an evaluation does not depend on the number of blocks.
TEST(FormulaRun, AllocatesNothingForEachBlock)
{
    qx::Formulas f({"x", "y"});
    f.define("r", "sqrt(x^2+y^2)");
    const qx::Formula a = f.add("exp(-r)*sin(x)"), b = f.add("r+3");
    const qx::Program program = f.compile();
    const auto allocations = [&](std::size_t n) {
        const std::vector<double> x = ramp(n, 1, 2), y = ramp(n, 1, 3);
        std::vector<double> out(n), other(n);
        qx::Points p(n);
        p.set("x", x).set("y", y);
        const auto evaluate = [&] { program.evaluate(p, {{a, out}, {b, other}}, {.threads = 1}); };
        evaluate();
        const long before = allocationCount();
        evaluate();
        return allocationCount() - before;
    };

    const long few = allocations(2000), many = allocations(40000);

    EXPECT_EQ(few, many);
    EXPECT_LE(many, 40);
}

TEST(FormulaRun, SurvivesEveryFailingAllocation)
{
    const std::vector<double> x = ramp(3000, 1, 2);
    std::vector<double> out(3000), dx(3000);
    qx::Formulas f({"x"});
    f.define("a", "x^2").function("twice", {.parameters = {"t"},
                                             .real = [](qx::Arguments<double> args, std::span<double> values) {
                                                 for (std::size_t i = 0; i < values.size(); ++i)
                                                     values[i] = 2 * args[0][i];
                                             },
                                             .derivatives = {"2"}});
    const qx::Formula formula = f.add("twice(a)");
    qx::Points p(3000);
    p.set("x", x);
    long refused = 0;

    failEveryAllocation(
        [&] {
            const qx::Program program = f.compile(); // anew each time, with nothing made yet
            program.gradient(p, formula, out, {{"x", dx}}, {.threads = 1});
        },
        [&](const FaultRun& run) {
            EXPECT_FALSE(run.badAlloc) << run.n;
            if (run.faulted && !run.id.empty())
                ++refused;
            if (run.faulted) {
                EXPECT_TRUE(run.id.empty() || run.id.starts_with("Out_of_memory_")) << run.n << " " << run.id;
            }
        });

    EXPECT_GT(refused, 100);
    EXPECT_EQ(out[10], 2 * x[10] * x[10]);
    EXPECT_EQ(dx[10], 4 * x[10]);
}

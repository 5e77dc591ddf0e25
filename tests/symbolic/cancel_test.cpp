// SPDX-License-Identifier: LicenseRef-qxkernel
// Simplification and differentiation of large trees stop when they are asked to, and leave the tree as it was.
#include "symbolic_support.hpp"

#include "qxrun.hpp"

#include <atomic>
#include <chrono>
#include <thread>

using namespace qxtest;

namespace {

struct Large
{
    const char* name;
    std::string text;
};

void PrintTo(const Large& large, std::ostream* stream) { *stream << large.name; }

std::string repeated(const std::string& piece, int n, const std::string& first)
{
    std::string text = first;
    for (int i = 0; i < n; ++i)
        text += piece + std::to_string(i + 2) + ")";
    return text;
}

std::string nested(int n)
{
    std::string text;
    for (int i = 0; i < n; ++i)
        text += "sin(y+";
    return text + "x" + std::string(static_cast<std::size_t>(n), ')');
}

class Cancel : public testing::TestWithParam<Large>
{
};

INSTANTIATE_TEST_SUITE_P(Trees, Cancel,
                         testing::Values(Large{"sum", repeated("+cos(x*", 8000, "x")}, Large{"product", repeated("*(x+", 400, "x")},
                                         Large{"nest", nested(1500)}),
                         [](const auto& test) { return std::string(test.param.name); });

std::string printed(const ExprTree& tree)
{
    std::string text;
    tree.print(text);
    return text;
}

/// Cancels after the work has gone on for a while, again and again with longer times, until it comes to its end.
template <class Work>
int cancelRepeatedly(ExprTree& tree, Work&& work)
{
    const std::string before = printed(tree);
    int cancelled = 0;
    for (auto wait = std::chrono::microseconds(100);; wait *= 3) {
        qxutil::RunInfo info;
        std::atomic<bool> done{false};
        std::thread impatient([&] {
            const auto end = std::chrono::steady_clock::now() + wait;
            while (!done && std::chrono::steady_clock::now() < end)
                std::this_thread::yield();
            info.cancel();
        });
        bool stopped = false;
        try {
            work(&info);
        } catch (const qxbase::CancelException&) {
            stopped = true;
        }
        done = true;
        impatient.join();
        if (!stopped)
            return cancelled;
        ++cancelled;
        EXPECT_EQ(printed(tree), before);
    }
}

} // namespace

TEST_P(Cancel, LeavesTheTreeAsItWas)
{
    ExprTree tree;
    int cancelled = 0;
    for (int attempt = 0; attempt < 50 && cancelled == 0; ++attempt) { // a busy machine may be late each time
        tree.scan(GetParam().text);
        cancelRepeatedly(tree, [&](const qxutil::RunInfo* info) { tree.simp(false, info); });
        cancelled = cancelRepeatedly(tree, [&](const qxutil::RunInfo* info) { tree.diff("x", info); });
    }

    EXPECT_GT(cancelled, 0);
    ExprTree undisturbed;
    undisturbed.scan(GetParam().text);
    undisturbed.simp(false);
    undisturbed.diff("x");
    EXPECT_EQ(printed(tree), printed(undisturbed));
}

TEST(Cancelled, IsSeenBeforeTheFirstStep)
{
    ExprTree tree;
    tree.scan("x+x");
    qxutil::RunInfo info;
    info.cancel();

    EXPECT_THROW(tree.simp(false, &info), qxbase::CancelException);
    EXPECT_THROW(tree.diff("x", &info), qxbase::CancelException);

    EXPECT_EQ(printed(tree), "x+x");
    info.cancel(false);
    tree.simp(false, &info);
    EXPECT_EQ(printed(tree), "2*x");
}

TEST(Cancelled, IsForgottenByTheNextCall)
{
    ExprTree tree;
    tree.scan("x*x");
    {
        qxutil::RunInfo info;
        info.cancel();
        EXPECT_THROW(tree.simp(false, &info), qxbase::CancelException);
    }

    tree.simp(false); // asks nobody

    EXPECT_EQ(printed(tree), "x^2");
}

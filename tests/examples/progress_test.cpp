// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"
#include "support/progress.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using examples::Progress;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr std::chrono::milliseconds atOnce(0);

/// For a scope the standard error stream is something else; text() ends that and gives what was written.
class RedirectedErrors
{
public:
    enum class To { Pipe, Terminal };

    explicit RedirectedErrors(To to)
    {
        std::array<int, 2> ends{-1, -1};
        if (to == To::Pipe) {
            if (pipe(ends.data()) != 0)
                std::abort();
        } else {
            ends[0] = posix_openpt(O_RDWR | O_NOCTTY);
            if (ends[0] < 0 || grantpt(ends[0]) != 0 || unlockpt(ends[0]) != 0)
                std::abort();
            ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY);
        }
        read_ = ends[0];
        std::fflush(stderr);
        former_ = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        fcntl(read_, F_SETFL, O_NONBLOCK);
    }

    std::string text()
    {
        std::fflush(stderr);
        std::string all;
        std::array<char, 4096> part{};
        for (ssize_t n; (n = read(read_, part.data(), part.size())) > 0;)
            all.append(part.data(), static_cast<std::size_t>(n));
        return all;
    }

    ~RedirectedErrors()
    {
        std::fflush(stderr);
        dup2(former_, STDERR_FILENO);
        close(former_);
        close(read_);
    }

private:
    int read_ = -1;
    int former_ = -1;
};

} // namespace

TEST(Progress, IsSilentWhereThereIsNoTerminal)
{
    RedirectedErrors errors(RedirectedErrors::To::Pipe);
    {
        Progress progress("counting", 10, false, atOnce);
        progress.advance(4);
        progress.advance(6);
    }
    EXPECT_EQ(errors.text(), "");
}

TEST(Progress, DrawsABarOnATerminalAndWipesIt)
{
    if (!hasTerminals())
        GTEST_SKIP() << "no /dev/pts";
    RedirectedErrors errors(RedirectedErrors::To::Terminal);
    {
        Progress progress("counting", 8, false, atOnce);
        progress.advance(2);
        EXPECT_EQ(errors.text(), "\rcounting [" + std::string(10, '#') + std::string(30, ' ') + "]  25 %");
    }
    EXPECT_EQ(errors.text(), "\r\033[K");
}

TEST(Progress, ShortWorkShowsNothingOnATerminal)
{
    if (!hasTerminals())
        GTEST_SKIP() << "no /dev/pts";
    RedirectedErrors errors(RedirectedErrors::To::Terminal);
    {
        Progress progress("counting", 8, false, std::chrono::hours(1));
        progress.advance(8);
    }
    EXPECT_EQ(errors.text(), "");
}

TEST(Progress, IsDrawnWhereThereIsNoTerminalWhenAskedForAndEndsWithALine)
{
    RedirectedErrors errors(RedirectedErrors::To::Pipe);
    {
        Progress progress("counting", 2, true, atOnce);
        progress.advance(1);
        progress.advance(1);
    }
    const std::string text = errors.text();
    EXPECT_THAT(text, StartsWith("\rcounting [" + std::string(20, '#')));
    EXPECT_THAT(text, HasSubstr("  50 %"));
    EXPECT_THAT(text, EndsWith("[" + std::string(40, '#') + "] 100 %\n"));
}

TEST(Progress, WorkThatStopsHalfwayEndsAtItsLastState)
{
    RedirectedErrors errors(RedirectedErrors::To::Pipe);
    {
        Progress progress("counting", 4, true, atOnce);
        progress.advance(1);
    }
    EXPECT_THAT(errors.text(), EndsWith("  25 %\n"));
}

TEST(Progress, NothingToDoIsDone)
{
    RedirectedErrors errors(RedirectedErrors::To::Pipe);
    {
        Progress progress("counting", 0, true, atOnce);
        progress.advance(0);
    }
    EXPECT_THAT(errors.text(), EndsWith("100 %\n"));
}

TEST(Progress, ThreadsMayReportAtOnce)
{
    RedirectedErrors errors(RedirectedErrors::To::Pipe);
    {
        Progress progress("counting", 8000, true, atOnce);
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < 1000; ++i)
                    progress.advance(1);
            });
        for (std::thread& t : threads)
            t.join();
    }
    EXPECT_THAT(errors.text(), EndsWith("100 %\n"));
}

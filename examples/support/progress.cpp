// SPDX-License-Identifier: LicenseRef-qxkernel
#include "progress.hpp"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <utility>

namespace examples {

struct Progress::State
{
    using Clock = std::chrono::steady_clock;

    State(std::string t, long n, bool always, Clock::duration patience)
        : title(std::move(t)), total(n), terminal(isatty(STDERR_FILENO) != 0), shown(terminal || always),
          next(Clock::now() + patience)
    {}

    const std::string title;
    const long total;
    const bool terminal;
    const bool shown;
    std::atomic<long> done{0};
    std::mutex drawing;
    Clock::time_point next;
    bool drawn = false;

    void draw(long n)
    {
        constexpr int width = 40;
        const double part = total > 0 ? static_cast<double>(n) / static_cast<double>(total) : 1.0;
        const std::string bar(static_cast<std::size_t>(part * width), '#');
        std::fprintf(stderr, "\r%s [%-*s] %3.0f %%", title.c_str(), width, bar.c_str(), 100.0 * part);
        std::fflush(stderr);
        drawn = true;
    }
};

Progress::Progress(std::string title, long total, bool always, std::chrono::milliseconds patience)
    : state_(std::make_unique<State>(std::move(title), total, always, patience))
{}

Progress::~Progress()
{
    if (!state_->drawn)
        return;
    if (state_->terminal) {
        std::fputs("\r\033[K", stderr);
    } else {
        state_->draw(state_->done);
        std::fputc('\n', stderr);
    }
    std::fflush(stderr);
}

void Progress::advance(long n)
{
    const long done = state_->done += n;
    if (!state_->shown)
        return;
    const std::unique_lock<std::mutex> lock(state_->drawing, std::try_to_lock); // who comes second need not wait
    if (!lock || State::Clock::now() < state_->next)
        return;
    state_->draw(done);
    state_->next = State::Clock::now() + std::chrono::milliseconds(100);
}

} // namespace examples

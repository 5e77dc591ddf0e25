#include "watch.hpp"

#include "solution.hpp"

#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace examples {
namespace {

constexpr long kSteps = 1000;     // of a bar
constexpr double kPatience = 0.5; // seconds in which a short run shows nothing

} // namespace

Watch::Watch() : terminal_(isatty(STDERR_FILENO) != 0), start_(secondsNow()) {}

Watch::~Watch()
{
    phase("");
}

void Watch::wipe()
{
    bar_.reset();
    if (!shown_.empty())
        std::fputs("\r\033[K", stderr);
    shown_.clear();
}

void Watch::phase(const std::string& name)
{
    wipe();
    if (!terminal_ || name.empty() || secondsNow() - start_ < kPatience)
        return;
    shown_ = name;
    std::fprintf(stderr, "%s ...", name.c_str());
    std::fflush(stderr);
}

void Watch::onProgress(const std::string& title, double fraction)
{
    const long done = std::lround(static_cast<double>(kSteps) * fraction);
    if (!bar_ || done < done_) {
        bar_ = std::make_unique<Progress>(title, kSteps);
        done_ = 0;
    }
    bar_->advance(done - done_);
    done_ = done;
    if (done == kSteps)
        bar_.reset();
}

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "watch.hpp"

#include "solution.hpp"

#include <unistd.h>

#include <cstdio>

namespace examples {
namespace {

constexpr double kPatience = 0.5; // seconds in which a short run shows nothing

} // namespace

Watch::Watch() : terminal_(isatty(STDERR_FILENO) != 0), start_(secondsNow()) {}

Watch::~Watch()
{
    phase("");
}

void Watch::wipe()
{
    end();
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

} // namespace examples

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "progressbar.hpp"

#include <cmath>
#include <utility>

namespace examples {
namespace {

constexpr long kSteps = 1000; // of a bar

} // namespace

ProgressBar::ProgressBar(std::string title, bool always, std::chrono::milliseconds patience)
    : title_(std::move(title)), always_(always), patience_(patience)
{
}

void ProgressBar::onProgress(const std::string& title, double fraction)
{
    const long done = std::lround(static_cast<double>(kSteps) * fraction);
    if (!bar_ || done < done_) {
        bar_.emplace(title_.empty() ? title : title_, kSteps, always_, patience_);
        done_ = 0;
    }
    bar_->advance(done - done_);
    done_ = done;
    if (done == kSteps)
        bar_.reset();
}

} // namespace examples

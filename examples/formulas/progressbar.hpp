// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "support/progress.hpp"

#include "qxrun.hpp"

#include <chrono>
#include <optional>
#include <string>

namespace examples {

/// Shows the progress that the library reports as a bar; a new one whenever work begins again.
class ProgressBar : public qxutil::RunListener
{
public:
    /// title: above all that is reported; empty: what the library calls the work. always, patience: see Progress.
    explicit ProgressBar(std::string title = "", bool always = false,
                         std::chrono::milliseconds patience = std::chrono::milliseconds(500));
    void onProgress(const std::string& title, double fraction) override;
    /// Takes the bar away.
    void end() { bar_.reset(); }

private:
    std::string title_;
    bool always_;
    std::chrono::milliseconds patience_;
    std::optional<Progress> bar_;
    long done_ = 0;
};

} // namespace examples

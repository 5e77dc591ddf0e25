// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas/progressbar.hpp"

#include <string>

namespace examples {

/// Shows on a terminal what a long run does: the phase it is in, and a bar where the library reports progress.
class Watch : public ProgressBar
{
public:
    Watch();
    ~Watch() override;

    /// A phase begins; an empty name: none.
    void phase(const std::string& name);

private:
    void wipe();

    bool terminal_;
    double start_;
    std::string shown_;
};

} // namespace examples

#pragma once

#include "support/progress.hpp"

#include "qxrun.hpp"

#include <memory>
#include <string>

namespace examples {

/// Shows on a terminal what a long run does: the phase it is in, and a bar where the library reports progress.
class Watch : public qxutil::RunListener
{
public:
    Watch();
    ~Watch() override;

    /// A phase begins; an empty name: none.
    void phase(const std::string& name);
    void onProgress(const std::string& title, double fraction) override;

private:
    void wipe();

    bool terminal_;
    double start_;
    std::string shown_;
    std::unique_ptr<Progress> bar_;
    long done_ = 0;
};

} // namespace examples

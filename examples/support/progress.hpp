#pragma once

#include <memory>
#include <string>

namespace examples {

/// A bar on the standard error stream for work that takes longer than half a second; silent when that is no terminal.
///
/// Any thread may report. The bar is drawn at most ten times a second and wiped at the end.
class Progress
{
public:
    Progress(std::string title, long total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Further n of the total are done.
    void advance(long n);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace examples

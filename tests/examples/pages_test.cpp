// SPDX-License-Identifier: LicenseRef-qxkernel
// What the pages show is what the programs print. A block of a page that begins with "$ " is a command, then its output: the
// standard output of a program that succeeds, the error stream of one that does not.
#include "examples/program.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kRoot = QX_SOURCE_DIR;

struct Shown
{
    std::string page, command, output;
};

// The blocks of all pages, fenced or indented by four blanks.
std::vector<Shown> shownCommands()
{
    std::vector<Shown> all;
    for (const auto& page : std::filesystem::directory_iterator(kRoot + "/docs/pages")) {
        std::istringstream in(ScratchDirectory::read(page.path()));
        const std::string name = page.path().filename();
        bool fenced = false, open = false;
        std::string blank; // lines that belong to a block only if it goes on behind them
        for (std::string line; std::getline(in, line);) {
            const bool indented = line.rfind("    ", 0) == 0;
            if (line.empty() && !fenced) {
                blank += '\n';
                continue;
            }
            if (line.rfind("```", 0) == 0)
                fenced = !fenced;
            if (line.rfind("```", 0) == 0 || (!fenced && !indented)) {
                open = false;
                blank.clear();
                continue;
            }
            const std::string text = fenced ? line : line.substr(4);
            if (text.rfind("$ ", 0) == 0) {
                all.push_back({name, text.substr(2), ""});
                open = true;
            } else if (open && all.back().command.ends_with('\\')) {
                all.back().command += "\n" + text;
            } else if (open) {
                all.back().output += blank + text + "\n";
            }
            blank.clear();
        }
    }
    return all;
}

// Equal texts; numbers may differ in the sixth digit, and those below 1e-9, which are rounding, by a factor of a thousand.
bool same(const std::string& a, const std::string& b)
{
    static const std::regex number(R"([-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?)");
    if (std::regex_replace(a, number, "#") != std::regex_replace(b, number, "#"))
        return false;
    std::sregex_iterator p(a.begin(), a.end(), number), q(b.begin(), b.end(), number);
    for (; p != std::sregex_iterator(); ++p, ++q) {
        const double x = std::fabs(std::stod(p->str())), y = std::fabs(std::stod(q->str()));
        const bool rounding = std::max(x, y) < 1e-9 && std::max(x, y) <= 1000.0 * std::min(x, y);
        if (!rounding && std::fabs(x - y) > 1e-6 * std::max(x, y))
            return false;
    }
    return true;
}

} // namespace

TEST(Pages, NumbersOfRoundingMayDifferAndOthersMayNot)
{
    EXPECT_TRUE(same("residual 1.5e-15, u 20.5", "residual 3e-16, u 20.5"));
    EXPECT_FALSE(same("u 20.5", "u 20.6"));
    EXPECT_FALSE(same("u 20.5", "v 20.5"));
    EXPECT_FALSE(same("residual 1e-15", "residual 1e-8"));
}

TEST(Pages, ShowWhatTheProgramsPrint)
{
    const std::vector<Shown> shown = shownCommands();
    EXPECT_GE(shown.size(), 5u);
    const ScratchDirectory scratch;
    for (const Shown& s : shown) {
        SCOPED_TRACE(s.page + ": " + s.command);
        const std::string script = scratch.file("run.sh", "cd '" + kRoot + "'\nPATH=" QX_PROGRAM_PATH ":$PATH\nscratch='" +
                                                              scratch.path("") + "'\n" + s.command + "\n");

        const Outcome o = run("/bin/sh", {script});

        const std::string& printed = o.status == 0 ? o.out : o.err;
        EXPECT_TRUE(same(printed, s.output)) << printed << "is printed, shown is\n" << s.output;
    }
}

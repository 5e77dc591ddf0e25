// SPDX-License-Identifier: LicenseRef-qxkernel
// What all programs of the examples have in common.
#include "examples/program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Program
{
    const char* name;
    const char* path;
    std::vector<std::string> work;       // words that make it work, and print something
    std::vector<std::string> unreadable; // an option with a value that cannot be read, and that value
};

std::vector<Program> programs()
{
    return {
        {"evaluate", QX_EVALUATE, {QX_EXAMPLE_DATA "/temperatures.csv", "2*T"}, {"--threads", "two"}},
        {"heat", QX_HEAT, {QX_EXAMPLE_DATA "/finned_pipe.msh", "--fixed", "inlet: 1"}, {"--refine", "1.5"}},
        {"spectrum", QX_SPECTRUM, {"3"}, {"--damper", "0,strong"}},
        {"compile", QX_COMPILE, {"--help"}, {"--eval", "1;2"}},
        {"pendulum", QX_PENDULUM, {"pendulum", "--end", "0.1"}, {"--step", "abc"}},
        {"matrix_market", QX_MATRIX_MARKET, {QX_EXAMPLE_DATA "/plate.mtx"}, {}},
#ifdef QX_OPTIMISE
        {"optimise", QX_OPTIMISE, {"--help"}, {"--starts", "0"}},
#endif
    };
}

} // namespace

class CommandLine : public testing::TestWithParam<Program>
{
};

TEST_P(CommandLine, HelpShowsUsageAndTheCommonOptions)
{
    const Outcome o = run(GetParam().path, {"--help"});

    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.err, "");
    EXPECT_THAT(o.out, AllOf(HasSubstr("usage: " + std::string(GetParam().name) + " "), HasSubstr("--help"),
                             HasSubstr("--version")));
}

TEST_P(CommandLine, VersionIsThatOfTheLibrary)
{
    const Outcome o = run(GetParam().path, {"--version"});

    EXPECT_EQ(o.status, 0);
    EXPECT_THAT(o.out, testing::MatchesRegex(std::string(GetParam().name) + " of qxkernel [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_P(CommandLine, UnknownOptionsAreRefused)
{
    std::vector<std::string> words = GetParam().work;
    words.insert(words.begin(), "--nonesuch");
    if (words.back() == "--help")
        words.pop_back();

    const Outcome o = run(GetParam().path, words);

    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err, std::string(GetParam().name) + ": unknown option --nonesuch, see " + GetParam().name + " --help\n");
}

TEST_P(CommandLine, AValueThatCannotBeReadIsShownWithItsOption)
{
    if (GetParam().unreadable.empty())
        GTEST_SKIP() << "no option with a value";
    const std::string& option = GetParam().unreadable.front();
    const std::string& value = GetParam().unreadable.back();

    const Outcome o = run(GetParam().path, {option, value});

    EXPECT_EQ(o.status, 2);
    EXPECT_THAT(o.err, StartsWith(std::string(GetParam().name) + ": " + option + ": '" + value.substr(value.find(',') + 1)));
}

TEST_P(CommandLine, AnOptionWithoutItsValueIsRefused)
{
    if (GetParam().unreadable.empty())
        GTEST_SKIP() << "no option with a value";

    const Outcome o = run(GetParam().path, {GetParam().unreadable.front()});

    EXPECT_EQ(o.status, 2);
    EXPECT_THAT(o.err, AllOf(StartsWith(GetParam().name), HasSubstr(GetParam().unreadable.front())));
}

TEST_P(CommandLine, OutputThatCannotBeWrittenIsAFailure)
{
    const ScratchDirectory scratch;
    std::string script = std::string("'") + GetParam().path + "'";
    for (const std::string& word : GetParam().work)
        script += " '" + word + "'";

    const Outcome o = run("/bin/sh", {scratch.file("full.sh", script + " > /dev/full\n")});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, HasSubstr(": the output cannot be written"));
}

INSTANTIATE_TEST_SUITE_P(Programs, CommandLine, testing::ValuesIn(programs()),
                         [](const auto& program) { return std::string(program.param.name); });

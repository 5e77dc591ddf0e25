// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/options.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace examples;

namespace {

struct Example
{
    Options options{"program", "WORDS", "Does something."};
    bool flag = false;
    int number = 0;
    std::string text;

    Example()
    {
        options.flag("--flag", "a flag", flag);
        options.value("--number", "N", "a number", [&](const std::string& v) { number = wholeNumber(v, 1, 9); });
        options.text("--text", "TEXT", "a text", text);
    }

    std::vector<std::string> read(std::vector<const char*> words)
    {
        words.insert(words.begin(), "program");
        return options.read(static_cast<int>(words.size()), words.data());
    }

    std::string errorOf(const std::vector<const char*>& words)
    {
        try {
            read(words);
            return "no error";
        } catch (const UsageError& e) {
            return e.what();
        }
    }
};

} // namespace

TEST(Options, TakeValuesAsNextWordOrBehindAnEqualSign)
{
    Example e;

    const auto words = e.read({"one", "--flag", "--number", "3", "--text=a=b", "-x+1", "--", "--flag2"});

    EXPECT_TRUE(e.flag);
    EXPECT_EQ(e.number, 3);
    EXPECT_EQ(e.text, "a=b");
    EXPECT_EQ(words, (std::vector<std::string>{"one", "-x+1", "--flag2"}));
}

TEST(Options, MistakesAreToldWithTheOptionsName)
{
    EXPECT_EQ(Example().errorOf({"--none"}), "unknown option --none, see program --help");
    EXPECT_EQ(Example().errorOf({"--number"}), "--number needs N");
    EXPECT_EQ(Example().errorOf({"--number", "0"}), "--number: '0' is no whole number from 1 to 9");
    EXPECT_EQ(Example().errorOf({"--number", "2x"}), "--number: '2x' is no whole number from 1 to 9");
    EXPECT_EQ(Example().errorOf({"--number", "99999999999999"}),
              "--number: '99999999999999' is no whole number from 1 to 9");
    EXPECT_EQ(Example().errorOf({"--flag=1"}), "--flag takes no value");
}

TEST(Options, HelpNamesEveryOption)
{
    Example e;

    e.read({"--help"});

    EXPECT_TRUE(e.options.helpWanted());
    const std::string help = e.options.help();
    for (const char* name : {"usage: program WORDS", "--help", "--flag", "--number N", "--text TEXT", "a number"})
        EXPECT_NE(help.find(name), std::string::npos) << help;
}

TEST(Options, VersionIsShownInPlaceOfHelp)
{
    Example e;

    e.read({"--version"});

    EXPECT_TRUE(e.options.helpWanted());
    EXPECT_EQ(e.options.help().rfind("program of qxkernel ", 0), 0u);
}

TEST(Options, PositiveNumbersAreReadWhole)
{
    EXPECT_EQ(positiveNumber("2.5e-3"), 2.5e-3);
    for (const char* text : {"", "abc", "1x", "0", "-1", "nan", "inf", "1e999", " 1"})
        EXPECT_THROW(positiveNumber(text), UsageError) << text;
}

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
    std::vector<std::string> list;

    Example()
    {
        options.flag("--flag", "a flag", flag);
        options.value("--number", "N", "a number", [&](const std::string& v) { number = wholeNumber(v, 1, 9); });
        options.text("-t,--text", "TEXT", "a text", text);
        options.values("--list", "ITEM", "can be given again", [&](const std::string& v) { list.push_back(v); });
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

TEST(Options, ValuesMayBeginWithAMinusSignOrBeEmpty)
{
    Example e;

    const auto words = e.read({"--list", "-x", "--list", "--number", "--list=", "-y", "--text", "", "-2"});

    EXPECT_EQ(e.list, (std::vector<std::string>{"-x", "--number", "-y"})); // the word after "--list=" is its value
    EXPECT_EQ(e.text, "");
    EXPECT_EQ(words, (std::vector<std::string>{"-2"}));
}

TEST(Options, AnOptionMayHaveAShortName)
{
    Example e;

    e.read({"-t", "short"});

    EXPECT_EQ(e.text, "short");
}

TEST(Options, MistakesAreToldWithTheOptionsName)
{
    EXPECT_EQ(Example().errorOf({"--none"}), "unknown option --none, see program --help");
    EXPECT_EQ(Example().errorOf({"--none=1"}), "unknown option --none, see program --help");
    EXPECT_NE(Example().errorOf({"--number"}).find("--number"), std::string::npos);
    EXPECT_NE(Example().errorOf({"--number", "1", "--number", "2"}).find("--number"), std::string::npos);
    EXPECT_EQ(Example().errorOf({"--number", "0"}), "--number: '0' is no whole number from 1 to 9");
    EXPECT_EQ(Example().errorOf({"--number", "2x"}), "--number: '2x' is no whole number from 1 to 9");
    EXPECT_EQ(Example().errorOf({"--number", "99999999999999"}),
              "--number: '99999999999999' is no whole number from 1 to 9");
    EXPECT_NE(Example().errorOf({"--flag=0"}).find("flag"), std::string::npos);
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

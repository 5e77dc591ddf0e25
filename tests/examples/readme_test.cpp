// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

namespace {

const std::string kRoot = QX_SOURCE_DIR;
const std::string kReadme = ScratchDirectory::read(kRoot + "/README.md");

} // namespace

TEST(Readme, ShowsTheProgramThatIsBuiltAndWhatItPrints)
{
    const std::string program = ScratchDirectory::read(kRoot + "/examples/ten_lines.cpp");
    const Outcome o = run(QX_TEN_LINES, {});

    EXPECT_EQ(o.status, 0);
    // At 0: sin 0 = 0, and d/dx sin(2 x)/(x^2 + 1) = 2.
    EXPECT_THAT(o.out, testing::StartsWith("0 2\n"));
    EXPECT_THAT(kReadme, testing::HasSubstr("```cpp\n" + program + "```\n\nprints\n\n```\n" + o.out + "```\n"));
}

TEST(Readme, LinksOnlyToFilesThatAreThere)
{
    const std::regex link(R"(\]\(([^)#:]+)\))");
    int n = 0;
    for (std::sregex_iterator at(kReadme.begin(), kReadme.end(), link), end; at != end; ++at, ++n)
        EXPECT_TRUE(std::filesystem::exists(kRoot + "/" + (*at)[1].str())) << (*at)[1];
    EXPECT_GT(n, 5);
}

TEST(Readme, NamesOnlyWordsThatMakeKnows)
{
    const std::string makefile = ScratchDirectory::read(kRoot + "/Makefile");
    const std::regex word("make ([a-z]+)");
    std::set<std::string> named;
    for (std::sregex_iterator at(kReadme.begin(), kReadme.end(), word), end; at != end; ++at)
        named.insert((*at)[1]);
    for (const std::string& w : named)
        EXPECT_NE(makefile.find("\n" + w + ":\n"), std::string::npos) << w;
    EXPECT_TRUE(named.count("demo") && named.count("check"));
}

TEST(Readme, ShowsAPictureThatIsOne)
{
    const std::regex picture(R"(!\[[^\]]+\]\(([^)]+\.svg)\))");
    std::smatch found;
    ASSERT_TRUE(std::regex_search(kReadme, found, picture));
    const std::string svg = ScratchDirectory::read(kRoot + "/" + found[1].str());
    EXPECT_THAT(svg, testing::AllOf(testing::StartsWith("<svg"), testing::HasSubstr("</svg>")));
}

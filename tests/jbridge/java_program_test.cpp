// SPDX-License-Identifier: LicenseRef-qxkernel
// A Java program that loads a native library, started as a user starts it.
#include "support/java_vm.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <sstream>

namespace {

struct Output
{
    int status;
    std::vector<std::string> lines;
};

Output runJava(const std::string& arguments)
{
    const std::string command = QX_JAVA " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    std::string text;
    std::array<char, 4096> piece;
    while (const std::size_t n = std::fread(piece.data(), 1, piece.size(), pipe))
        text.append(piece.data(), n);
    Output output{pclose(pipe), {}};
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        output.lines.push_back(line);
    return output;
}

} // namespace

TEST(AJavaProgram, LoadsTheLibraryAndIsServed)
{
    const Output output = runJava("-Xcheck:jni -Xmx64m -Xss320k -cp " QX_MAIN_CLASSES " bridge.Main " QX_JAVALIB " "
                                  QX_TEST_CLASSES);

    EXPECT_EQ(output.status, 0);
    for (const char* name : {"machine-from-loading", "machine-from-symbol", "context-class-loader",
                             "hundred-thousand-conversions", "exception"})
        EXPECT_THAT(output.lines, testing::Contains(std::string("ok ") + name));
    for (const std::string& line : output.lines)
        EXPECT_FALSE(qxtest::isJniWarning(line)) << line;
    // Deep text on small stacks: a value or an identifier, never the end of the machine; shallow text works.
    const auto deepLine = [&](const std::string& start) {
        return testing::Contains(testing::MatchesRegex(start + ": (good|[A-Z][A-Za-z_]*|circvar) (good|[A-Z][A-Za-z_]*|circvar)( good good)?"));
    };
    for (const char* start : {"deep 320", "deep 1024", "main"})
        EXPECT_THAT(output.lines, deepLine(start));
}

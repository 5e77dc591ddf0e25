// SPDX-License-Identifier: LicenseRef-qxkernel
// The Java program of the examples, checking every JNI call.
#include "program.hpp"

#include "support/java_vm.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

using testing::HasSubstr;

namespace {

Outcome runDemo(const std::string& library)
{
    return run(QX_JAVA, {"-Xcheck:jni", "-cp", QX_JAVA_CLASSES, "-Dqx.library=" + library, "qx.Demo"});
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

TEST(JavaExample, DrivesTheKernel)
{
    const Outcome demo = runDemo(QX_JAVA_LIBRARY);

    EXPECT_EQ(demo.status, 0) << demo.err;
    EXPECT_EQ(demo.err, "");
    const std::vector<std::string> lines = linesOf(demo.out);
    for (const std::string& line : lines)
        EXPECT_FALSE(qxtest::isJniWarning(line)) << line;

    // f = x y + exp(-s) cos(3 s) with s = x^2 + y^2, and its gradient, computed here.
    ASSERT_GE(lines.size(), 7u);
    for (int row = 2; row < 7; ++row) {
        std::istringstream numbers(lines[row]);
        double x, y, f, fx, fy;
        ASSERT_TRUE(numbers >> x >> y >> f >> fx >> fy) << lines[row];
        const double s = x * x + y * y, slope = -std::exp(-s) * (std::cos(3 * s) + 3 * std::sin(3 * s));
        EXPECT_NEAR(f, x * y + std::exp(-s) * std::cos(3 * s), 6e-6);
        EXPECT_NEAR(fx, y + 2 * x * slope, 6e-6);
        EXPECT_NEAR(fy, x + 2 * y * slope, 6e-6);
    }
    EXPECT_THAT(demo.out, HasSubstr("Unknown_variable_name: Name = z, Expression = x+z\n"));
    EXPECT_THAT(demo.out, HasSubstr("Unexpected_NaN: Point = 1, x = 1, y = 0, Expression = 1+depth*y\n"));
    EXPECT_THAT(demo.out, HasSubstr("Error_in_callback: Function = picky, Exception = "
                                    "java.lang.IllegalArgumentException: no values today"));
    EXPECT_THAT(demo.out, HasSubstr("Irregular_number_of_columns\n"));
    EXPECT_THAT(demo.out, HasSubstr("progress up to 100 % (many events)\n"));
    EXPECT_THAT(demo.out, HasSubstr("largest error below 1e-4\n"));
    EXPECT_THAT(demo.out, HasSubstr("cancelled: <CANCEL>Linear_solver_cancelled\n"));
    EXPECT_THAT(demo.out, HasSubstr("Formulas is closed\n"));
    const auto two = demo.out.find("and twice as much: ");
    ASSERT_NE(two, std::string::npos);
    EXPECT_NEAR(std::stod(demo.out.substr(two + 19)), 2 * std::stod(demo.out.substr(demo.out.rfind('\n', two) + 1)), 2e-6);
}

TEST(JavaExample, SaysWhenItsLibraryCannotBeLoaded)
{
    const Outcome demo = runDemo("/no/such/library.so");

    EXPECT_EQ(demo.status, 2);
    EXPECT_THAT(demo.err, HasSubstr("qx.Demo: cannot load /no/such/library.so (start Java with -Dqx.library="));
    EXPECT_THAT(demo.err, testing::Not(HasSubstr("\tat "))) << "a message, not a stack";
}

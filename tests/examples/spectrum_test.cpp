// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"
#include "support/csv.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

const std::string kProgram = QX_SPECTRUM;

examples::Table spectrum(const std::vector<std::string>& arguments)
{
    const Outcome o = run(kProgram, arguments);
    EXPECT_EQ(o.status, 0) << o.err;
    std::string text = o.out; // "s.re" is no name of a column that formulas may use
    for (const char* part : {"s.re", "s.im"})
        text.replace(text.find(part) + 1, 1, "_");
    std::istringstream in(text);
    return examples::readCsv(in, "output");
}

} // namespace

TEST(Spectrum, WithoutADamperHasTheFrequenciesOfAChain)
{
    // s = 2 i sin((2j - 1) pi / (2 (2n + 1))), j = 1 .. n, and its conjugate: a chain held at one end.
    const int n = 9;

    const examples::Table t = spectrum({"9", "--damper", "0"});

    ASSERT_EQ(t.rows(), 18u);
    for (int j = 1; j <= n; ++j) {
        const auto row = static_cast<std::size_t>(2 * j - 2);
        const double wanted = 2.0 * std::sin((2 * j - 1) * M_PI / (2 * (2 * n + 1)));
        EXPECT_NEAR(std::fabs(t.column("s_im")[row]), wanted, 1e-13);
        EXPECT_NEAR(t.column("s_im")[row + 1], -t.column("s_im")[row], 1e-13); // a pair, in either order
        EXPECT_NEAR(t.column("s_re")[row], 0.0, 1e-13);
    }
}

TEST(Spectrum, ADamperMakesEveryMotionDieAway)
{
    const examples::Table t = spectrum({"6", "--damper", "0.3,3"});

    ASSERT_EQ(t.rows(), 24u);
    double sum = 0.0;
    for (std::size_t i = 0; i < 24; ++i) {
        EXPECT_LT(t.column("s_re")[i], 0.0);
        sum += i < 12 ? t.column("s_re")[i] : 0.0;
    }
    EXPECT_NEAR(sum, -0.3, 1e-13); // the trace of -C
}

TEST(Spectrum, AJointWithoutMassTakesTwoEigenvaluesAway)
{
    EXPECT_EQ(spectrum({"5", "--massless", "--damper", "0"}).rows(), 8u);
    EXPECT_EQ(spectrum({"5", "--massless", "--damper", "1"}).rows(), 9u); // the damper moves with the force at once
}

TEST(Spectrum, DrawsAndRefuses)
{
    ScratchDirectory scratch;

    EXPECT_EQ(run(kProgram, {"5", "--plot", scratch.path("s.svg")}).status, 0);

    EXPECT_THAT(scratch.read(scratch.path("s.svg")), testing::HasSubstr("<circle"));
    EXPECT_EQ(run(kProgram, {"0"}).status, 2);
    EXPECT_EQ(run(kProgram, {"5", "--damper", "x"}).status, 2);
    EXPECT_EQ(run(kProgram, {"5", "6"}).status, 2);
}

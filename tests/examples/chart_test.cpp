// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/chart.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <sstream>

using testing::HasSubstr;

namespace {

std::string chartOf(const std::vector<std::vector<examples::ChartPanel>>& rows)
{
    std::ostringstream out;
    examples::writeChart(out, "a < b", "x & y", rows);
    return out.str();
}

std::size_t count(const std::string& text, const std::string& piece)
{
    std::size_t n = 0;
    for (std::size_t at = text.find(piece); at != text.npos; at = text.find(piece, at + 1))
        ++n;
    return n;
}

} // namespace

TEST(Chart, DrawsLinesAndDotsInPanels)
{
    const std::string svg = chartOf({{{"f", {{{0, 1, 2}, {1, 3, 2}}, {{0, 2}, {1, 2}, true}}}, {"g", {{{0, 1}, {5, 5}}}}}});

    EXPECT_EQ(count(svg, "<polyline"), 2u);
    EXPECT_EQ(count(svg, "<circle"), 2u);
    EXPECT_EQ(count(svg, "<rect"), 3u);
    EXPECT_THAT(svg, HasSubstr("a &lt; b"));
    EXPECT_THAT(svg, HasSubstr("x &amp; y"));
    EXPECT_THAT(svg, Not(HasSubstr("nan")));
}

TEST(Chart, BreaksLinesAtNumbersThatAreNotFinite)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();

    const std::string svg = chartOf({{{"f", {{{0, 1, 2, 3, 4}, {1, nan, 2, inf, 3}}}}}});

    EXPECT_EQ(count(svg, "<polyline"), 3u);
    EXPECT_THAT(svg, Not(HasSubstr("nan")));
}

TEST(Chart, OfNothingIsStillAPicture)
{
    EXPECT_THAT(chartOf({{{"empty", {}}}}), HasSubstr("</svg>"));
    EXPECT_THAT(chartOf({{{"empty", {}, true}}}), Not(HasSubstr("nan")));
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/colourmap.hpp"
#include "support/contour.hpp"
#include "support/picture.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

using namespace examples;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The unit square in 2 n^2 triangles, without the cells for which hole(i, j) holds.
template <class Hole>
Mesh square(int n, Hole hole)
{
    Mesh mesh;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
            mesh.points.push_back({double(i) / n, double(j) / n});
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i;
            if (hole(i, j))
                continue;
            mesh.triangles.push_back({a, a + 1, a + n + 2});
            mesh.triangles.push_back({a, a + n + 2, a + n + 1});
        }
    return mesh;
}

Mesh square(int n)
{
    return square(n, [](int, int) { return false; });
}

template <class F>
std::vector<double> values(const Mesh& mesh, F f)
{
    std::vector<double> v;
    for (const Point& p : mesh.points)
        v.push_back(f(p[0], p[1]));
    return v;
}

// Twice the enclosed area by the shoelace formula; holes count negative.
double area(const std::vector<Line>& lines)
{
    double twice = 0.0;
    for (const Line& line : lines)
        for (std::size_t k = 0; k < line.size(); ++k) {
            const Point& p = line[k];
            const Point& q = line[(k + 1) % line.size()];
            twice += p[0] * q[1] - p[1] * q[0];
        }
    return 0.5 * twice;
}

double length(const std::vector<Line>& lines)
{
    double sum = 0.0;
    for (const Line& line : lines)
        for (std::size_t k = 1; k < line.size(); ++k)
            sum += std::hypot(line[k][0] - line[k - 1][0], line[k][1] - line[k - 1][1]);
    return sum;
}

int count(const std::string& text, const std::string& part)
{
    int n = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

} // namespace

TEST(Contour, RegionAboveAPlaneHasTheExactAreaAndOneBoundary)
{
    const Mesh mesh = square(7);
    const std::vector<double> f = values(mesh, [](double x, double y) { return x + 2.0 * y; });

    // x + 2 y >= 1/2 cuts off the triangle with the legs 1/2 and 1/4, x + 2 y >= 5/2 leaves one with 1/2 and 1/4.
    EXPECT_NEAR(area(Contours(mesh, f).regionAbove(0.5)), 1.0 - 1.0 / 16.0, 1e-14);
    EXPECT_NEAR(area(Contours(mesh, f).regionAbove(2.5)), 1.0 / 16.0, 1e-14);
    EXPECT_EQ(Contours(mesh, f).regionAbove(0.5).size(), 1u);
    EXPECT_TRUE(Contours(mesh, f).regionAbove(3.5).empty());
}

TEST(Contour, IsoLineOfAPlaneIsOneStraightLine)
{
    const Mesh mesh = square(5);
    const std::vector<double> f = values(mesh, [](double x, double) { return x; });

    const std::vector<Line> lines = Contours(mesh, f).isoLines(0.3);

    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NEAR(length(lines), 1.0, 1e-14);
    for (const Point& p : lines[0])
        EXPECT_NEAR(p[0], 0.3, 1e-15);
}

TEST(Contour, OutlineGoesRoundHolesTheOtherWay)
{
    const Mesh mesh = square(3, [](int i, int j) { return i == 1 && j == 1; });

    const std::vector<double> f(16, 0.0);

    const std::vector<Line> lines = Contours(mesh, f).outline();

    EXPECT_EQ(lines.size(), 2u);
    EXPECT_NEAR(area(lines), 8.0 / 9.0, 1e-14);
}

TEST(Contour, LevelsThroughNodesAndClosedLinesAreComplete)
{
    const Mesh mesh = square(8);
    const std::vector<double> f = values(mesh, [](double x, double y) { return -std::abs(x - 0.5) - std::abs(y - 0.5); });

    // |x - 1/2| + |y - 1/2| <= 1/4 holds on a square with diagonals 1/2; nodes lie on the level.
    EXPECT_NEAR(area(Contours(mesh, f).regionAbove(-0.25)), 0.125, 0.04);
    EXPECT_EQ(Contours(mesh, f).regionAbove(-0.25).size(), 1u);
}

TEST(Contour, TrianglesWithNaNDoNotCount)
{
    const Mesh mesh = square(4);
    std::vector<double> f(25, 1.0);
    f[0] = NAN; // two triangles of area 1/32

    EXPECT_NEAR(area(Contours(mesh, f).regionAbove(0.0)), 1.0 - 2.0 / 32.0, 1e-14);
}

TEST(Contour, OrientTurnsClockwiseTrianglesAndRefusesCornersThatAreNoPoints)
{
    Mesh mesh{{{0.0, 0.0}, {1.0, 0.0}, {0.0, 1.0}}, {{0, 2, 1}}};

    orient(mesh);

    const std::vector<double> f(3, 0.0);
    EXPECT_NEAR(area(Contours(mesh, f).outline()), 0.5, 1e-15);
    for (const int corner : {-1, 3}) {
        mesh.triangles[0][1] = corner;
        EXPECT_THROW(orient(mesh), std::invalid_argument);
    }
}

TEST(RoundNumbers, AreMultiplesOfOneTwoOrFive)
{
    EXPECT_EQ(roundNumbers(0.0, 1.0, 10).size(), 11u);
    EXPECT_EQ(roundNumbers(22.4, 80.0, 10), (std::vector<double>{30.0, 40.0, 50.0, 60.0, 70.0, 80.0}));
    EXPECT_TRUE(roundNumbers(1.0, 1.0, 10).empty());
    EXPECT_TRUE(roundNumbers(0.0, kInfinity, 10).empty());
}

TEST(ColourMap, LightnessOfTheSequentialMapRises)
{
    double last = -1.0;
    for (int k = 0; k <= 100; ++k) {
        const std::string c = colour(ColourMap::Sequential, k / 100.0);
        const auto light = [&](std::size_t at) {
            return std::pow(std::stoi(c.substr(at, 2), nullptr, 16) / 255.0, 2.2);
        };
        const double luminance = 0.2126 * light(1) + 0.7152 * light(3) + 0.0722 * light(5);

        EXPECT_GT(luminance, last - 0.002) << c;
        last = luminance;
    }
}

TEST(Picture, FieldsThatCannotBeScaledAreDrawnWithoutNumbersGoingAstray)
{
    const Mesh mesh = square(2);
    for (const double v : {0.0, 3.0, double(NAN), kInfinity, 1e300, -1e-300}) {
        std::ostringstream out;

        writePicture(out, mesh, std::vector<double>(9, v), {"f", "", ""});

        EXPECT_EQ(out.str().find("nan"), std::string::npos) << v;
        EXPECT_EQ(out.str().find("inf"), std::string::npos) << v;
        EXPECT_EQ(count(out.str(), "<svg"), count(out.str(), "</svg>"));
    }
}

TEST(Picture, TextOfAFormulaIsEscaped)
{
    std::ostringstream out;

    writePicture(out, square(1), {0.0, 1.0, 2.0, 3.0}, {"(x<1)&&\"y\"", "a>b", "<script>"});

    EXPECT_NE(out.str().find("(x&lt;1)&amp;&amp;&quot;y&quot;"), std::string::npos);
    EXPECT_EQ(out.str().find("<script>"), std::string::npos);
}

TEST(Picture, DrawsOneArrowHeadPairPerCellAndNoneForAZeroField)
{
    const Mesh mesh = square(40);
    const std::vector<double> f = values(mesh, [](double x, double) { return x; });
    std::ostringstream with;
    std::ostringstream without;

    writePicture(with, mesh, f, {"f", "", ""}, std::vector<Point>(mesh.points.size(), Point{1.0, 0.0}));
    writePicture(without, mesh, f, {"f", "", ""}, std::vector<Point>(mesh.points.size(), Point{0.0, 0.0}));

    EXPECT_GT(with.str().size(), without.str().size() + 1000);
}

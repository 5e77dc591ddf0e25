// SPDX-License-Identifier: LicenseRef-qxkernel
#include "heat/mesh.hpp"
#include "heat/vtu.hpp"
#include "support/fileerror.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>

using namespace examples;

namespace {

// Two triangles on the unit square: "in" is the lower edge, group 7 without a name the left one. Node 9 is used by none.
const std::string kSquare = R"($MeshFormat
4.1 0 8
$EndMeshFormat
$PhysicalNames
2
1 5 "in let"
2 1 "body"
$EndPhysicalNames
$Entities
1 2 1 0
1 0 0 0 0
1 0 0 0 1 0 0 1 5 2 1 -2
4 0 0 0 0 1 0 1 7 2 4 -1
1 0 0 0 1 1 0 1 1 4 1 2 3 4
$EndEntities
$Nodes
2 5 1 30
1 1 0 2
1
20
0 0 0
1 0 0
2 1 1 3
30
4
9
1 1 0 0.5 0.5
0 1 0 0.5 0.5
5 5 0 0.5 0.5
$EndNodes
$Elements
4 5 1 5
0 1 15 1
1 1
1 1 1 1
2 1 20
1 4 1 1
3 4 1
2 1 2 2
4 1 20 30
5 1 4 30
$EndElements
$Periodic
0
$EndPeriodic
)";

std::string errorOf(const std::string& text)
{
    try {
        readMshText(text, "m.msh");
        return "no error";
    } catch (const FileError& e) {
        return e.what();
    }
}

std::string with(const std::string& old, const std::string& other)
{
    std::string text = kSquare;
    return text.replace(text.find(old), old.size(), other);
}

double area(const Mesh& mesh)
{
    double sum = 0.0;
    for (const auto& [a, b, c] : mesh.triangles) {
        const Point& p = mesh.points[std::size_t(a)];
        const Point& q = mesh.points[std::size_t(b)];
        const Point& r = mesh.points[std::size_t(c)];
        sum += 0.5 * ((q[0] - p[0]) * (r[1] - p[1]) - (q[1] - p[1]) * (r[0] - p[0]));
    }
    return sum;
}

} // namespace

TEST(MshReader, ReadsTrianglesAndNamedBoundariesAndDropsUnusedNodes)
{
    const NamedMesh m = readMshText(kSquare, "m.msh");

    EXPECT_EQ(m.points.size(), 4u);
    EXPECT_EQ(m.triangles.size(), 2u);
    EXPECT_DOUBLE_EQ(area(m), 1.0); // the second triangle is clockwise in the file
    ASSERT_EQ(m.boundaries.size(), 2u);
    EXPECT_EQ(m.boundaryNodes("in let"), (std::vector<int>{0, 1}));
    EXPECT_EQ(m.boundaryNodes("7"), (std::vector<int>{0, 3}));
}

TEST(MshReader, AnUnknownBoundaryNamesTheOnesThereAre)
{
    const NamedMesh m = readMshText(kSquare, "m.msh");
    try {
        m.boundary("out");
        FAIL() << "no error";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "the mesh has no boundary 'out', only 7, in let");
    }
}

TEST(MshReader, DamageIsToldInOneLineWithFileAndLine)
{
    const struct { std::string text; const char* error; } cases[] = {
        {"", "m.msh:1: expected $MeshFormat"},
        {"hello", "m.msh:1: expected $MeshFormat"},
        {with("4.1 0 8", "2.2 0 8"), "m.msh:2: format version '2.2', this reader needs 4.1"},
        {with("4.1 0 8", "4.1 1 8"), "m.msh:2: the file is binary, this reader needs ASCII"},
        {with("\"in let\"", "inlet"), "m.msh:6: the name of a group must stand between quotes"},
        {with("\"in let\"", "\"inlet"), "m.msh:6: the name of a group must stand between quotes"},
        {with("2 5 1 30", "2 9999999999 1 30"), "m.msh:17: number of nodes 9999999999 is more than the file can hold"},
        {with("2 5 1 30", "2 6 1 30"), "m.msh:29: 5 nodes, the section promised 6"},
        {with("1 1 0 2", "1 1 0 2000000"), "m.msh:18: number of nodes 2000000 is more than the file can hold"},
        {with("1\n20\n", "1\n1\n"), "m.msh:20: node 1 is there twice"},
        {with("1 0 0\n2 1 1 3", "1 0,5 0\n2 1 1 3"), "m.msh:22: '0,5' is no coordinate"},
        {with("1 0 0\n2 1 1 3", "1 nan 0\n2 1 1 3"), "m.msh:22: a coordinate is not finite"},
        {with("1 0 0\n2 1 1 3", "1 0 0.5\n2 1 1 3"), "m.msh:22: the mesh is not flat: z must be 0"},
        {with("2 1 20\n1 4", "2 1 21\n1 4"), "m.msh:36: element 2 names node 21, which is not there"},
        {with("4 1 20 30", "4 1 20 1"), "m.msh:40: element 4 has no area"},
        {with("2 1 2 2", "2 1 9 2"), "m.msh:39: element type 9, only lines and triangles of first order are read"},
        {with("4 5 1 5", "4 6 1 5"), "m.msh:41: 5 elements, the section promised 6"},
        {with("$EndElements", "$EndNodes"), "m.msh:42: expected $EndElements"},
        {with("$EndPeriodic", ""), "m.msh:46: the file ends before $EndPeriodic"},
        {with("$Periodic", "Periodic"), "m.msh:43: expected the name of a section, found 'Periodic'"},
        {kSquare.substr(0, kSquare.find("$Elements")), "m.msh: the mesh has no triangles"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(errorOf(c.text), c.error);
}

TEST(MshReader, AFileCutOrDamagedAnywhereGivesAMeshOrALineNeverACrash)
{
    for (std::size_t n = 0; n < kSquare.size(); ++n)
        errorOf(kSquare.substr(0, n));
    std::mt19937 random(7);
    for (int k = 0; k < 20000; ++k) {
        std::string text = kSquare;
        for (int j = 0; j < 3; ++j)
            text[random() % text.size()] = "0123456789 -.$\n\"e"[random() % 17];
        errorOf(text);
    }
}

TEST(MshReader, AMissingFileIsToldByName)
{
    EXPECT_THROW(readMsh("/nowhere/m.msh"), FileError);
}

TEST(RefinedMesh, KeepsAreaAndBoundariesAndQuartersTriangles)
{
    const NamedMesh m = readMshText(kSquare, "m.msh");

    const NamedMesh fine = refined(refined(m));

    EXPECT_EQ(fine.triangles.size(), 32u);
    EXPECT_EQ(fine.points.size(), 25u);
    EXPECT_NEAR(area(fine), 1.0, 1e-15);
    EXPECT_EQ(fine.boundary("in let").size(), 4u);
    for (const int n : fine.boundaryNodes("in let"))
        EXPECT_EQ(fine.points[std::size_t(n)][1], 0.0);
    for (const auto& t : fine.triangles)
        EXPECT_EQ(std::count(t.begin(), t.end(), t[0]), 1);
}

TEST(Vtu, LosesNoDigits)
{
    // More than one buffer full, with the widest numbers there are.
    const NamedMesh m = readMshText(kSquare, "m.msh");
    std::mt19937_64 bits(1);
    std::vector<double> values;
    while (values.size() < 20000) {
        double v;
        const std::uint64_t pattern = bits();
        std::memcpy(&v, &pattern, sizeof v);
        if (!std::isnan(v))
            values.push_back(v);
    }
    std::ostringstream out;

    writeVtu(out, m, {{"T", values}});

    const std::string text = out.str();
    const char* at = text.c_str() + text.find('\n', text.find("Name=\"T\""));
    for (const double v : values) {
        char* end = nullptr;
        ASSERT_EQ(std::strtod(at, &end), v);
        at = end;
    }
    EXPECT_EQ(std::string(at, 13), "\n</DataArray>");
}

TEST(Vtu, HoldsPointsTrianglesAndFields)
{
    const NamedMesh m = readMshText(kSquare, "m.msh");
    std::ostringstream out;

    writeVtu(out, m, {{"T", {1.0, 2.5, -3.0, NAN}}});

    const std::string text = out.str();
    for (const char* part : {"NumberOfPoints=\"4\" NumberOfCells=\"2\"", "Name=\"T\"", "1\n2.5\n-3\nNaN\n</DataArray>",
                             "0 0 0\n1 0 0\n1 1 0\n0 1 0\n</DataArray>", "0 1 2\n0 2 3\n</DataArray>",
                             "3\n6\n</DataArray>", "5\n5\n</DataArray>", "</VTKFile>"})
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nin\n" << text;
}

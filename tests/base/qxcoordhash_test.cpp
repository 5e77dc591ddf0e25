// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxcoordhash.hpp"

#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <gtest/gtest.h>

#include <random>

namespace {

std::string raised(const std::function<void()>& work)
{
    try {
        work();
        return "";
    } catch (const qxbase::Exception& e) {
        return e.getId();
    }
}

CoordHashMap unitSquare(double tolerance)
{
    const double lower[] = {0, 0}, upper[] = {1, 1};
    return CoordHashMap(10, tolerance, 2, false, lower, upper);
}

int insert(CoordHashMap& map, double x, double y, int index, bool add = true)
{
    const double at[] = {x, y};
    return map.insert(at, index, add);
}

} // namespace

TEST(CoordHashMap, PointsWithinTheToleranceAreOnePoint)
{
    CoordHashMap map = unitSquare(0.01);

    EXPECT_EQ(insert(map, 0.5, 0.5, 1), 1);
    EXPECT_EQ(insert(map, 0.509, 0.491, 2), 1);
    EXPECT_EQ(insert(map, 0.511, 0.5, 3), 3);
    EXPECT_EQ(map.size(), 2);
}

TEST(CoordHashMap, FindsNeighboursAcrossCellBorders)
{
    // Pairs of points on both sides of every border that a grid of any width can have.
    CoordHashMap map = unitSquare(1e-3);
    std::mt19937 random(3);
    std::uniform_real_distribution<double> anywhere(0, 1), near(-0.9e-3, 0.9e-3);

    for (int i = 0; i < 2000; ++i) {
        const double x = anywhere(random), y = anywhere(random);
        if (insert(map, x, y, i) == i) { // else it lies near an earlier point
            EXPECT_LE(insert(map, x + near(random), y + near(random), 100000), i);
        }
    }
}

TEST(CoordHashMap, OfSeveralPointsWithinReachTheNearestWins)
{
    CoordHashMap map = unitSquare(0.01);
    insert(map, 0.500, 0.5, 1);
    insert(map, 0.512, 0.5, 2);

    EXPECT_EQ(insert(map, 0.507, 0.5, 3), 2);
    EXPECT_EQ(insert(map, 0.505, 0.5, 4), 1);
}

TEST(CoordHashMap, ZeroToleranceMergesEqualPointsOnly)
{
    CoordHashMap map = unitSquare(0);

    EXPECT_EQ(insert(map, 0.1, 0.2, 1), 1);
    EXPECT_EQ(insert(map, 0.1, 0.2, 2), 1);
    EXPECT_EQ(insert(map, 0.1, std::nextafter(0.2, 1), 3), 3);
    EXPECT_EQ(insert(map, -0.0, 0, 4), 4);
    EXPECT_EQ(insert(map, 0.0, 0, 5), 4);
}

TEST(CoordHashMap, LookingUpStoresNothing)
{
    CoordHashMap map = unitSquare(0.01);

    EXPECT_EQ(insert(map, 0.5, 0.5, 1, false), -1);
    EXPECT_EQ(map.size(), 0);
}

TEST(CoordHashMap, ARelativeToleranceIsAFractionOfTheLongestSide)
{
    const double lower[] = {0}, upper[] = {1000};
    CoordHashMap map(0, 0.01, 1, true, lower, upper);
    const double a[] = {500}, b[] = {509}, c[] = {511};

    EXPECT_EQ(map.insert(a, 1), 1);
    EXPECT_EQ(map.insert(b, 2), 1);
    EXPECT_EQ(map.insert(c, 3), 3);
}

TEST(CoordHashMap, PointsFarOutsideTheBoxAndBoxesWithoutWidthAreFine)
{
    const double lower[] = {1, 1, 1}, upper[] = {1, 1, 1};
    CoordHashMap map(0, 0, 3, false, lower, upper);
    const double far[] = {1e300, -1e300, 0}, farther[] = {-1e300, 1e300, 0};

    EXPECT_EQ(map.insert(far, 1), 1);
    EXPECT_EQ(map.insert(farther, 2), 2);
    EXPECT_EQ(map.insert(far, 3), 1);
}

TEST(CoordHashMap, HoldsTheNodesOfAFineGrid)
{
    CoordHashMap map = unitSquare(1e-9);
    for (int pass = 0; pass < 2; ++pass)
        for (int i = 0; i <= 200; ++i)
            for (int j = 0; j <= 200; ++j)
                ASSERT_EQ(insert(map, i / 200.0, j / 200.0, 201 * i + j), 201 * i + j);

    EXPECT_EQ(map.size(), 201 * 201);
}

TEST(CoordHashMap, UnusableArgumentsRaise)
{
    const double lower[] = {0, 0, 0, 0}, upper[] = {1, 1, 1, 1}, nan[] = {qxGetNaN()};

    EXPECT_EQ(raised([&] { CoordHashMap(0, 0.1, 0, false, lower, upper); }), "Invalid_coordinate_hash");
    EXPECT_EQ(raised([&] { CoordHashMap(0, 0.1, 4, false, lower, upper); }), "Invalid_coordinate_hash");
    EXPECT_EQ(raised([&] { CoordHashMap(0, -0.1, 2, false, lower, upper); }), "Invalid_coordinate_hash");
    EXPECT_EQ(raised([&] { CoordHashMap(0, qxGetNaN(), 2, false, lower, upper); }), "Invalid_coordinate_hash");
    EXPECT_EQ(raised([&] { CoordHashMap(0, 0.1, 1, false, nan, upper); }), "Invalid_coordinate_hash");
    CoordHashMap map = unitSquare(0.1);
    EXPECT_EQ(raised([&] { insert(map, 0, qxGetInf(), 1); }), "Undefined_coordinate");
    EXPECT_EQ(map.size(), 0);
}

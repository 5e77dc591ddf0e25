// SPDX-License-Identifier: LicenseRef-qxkernel
#include "array.hpp"

#include <gtest/gtest.h>

#include <numeric>

template <class A>
void expectEmptyWithNullBlock(const A& a)
{
    EXPECT_EQ(a.size(), 0u);
    EXPECT_EQ(a.capacity(), 0u);
    EXPECT_EQ(a.stride(0), 1u);
    EXPECT_EQ(a.data(), nullptr);
}

template <class T>
void expectLimit(unsigned long limit)
{
    Array<T, 1> a(3);

    EXPECT_THROW(a.resize(limit), std::bad_alloc);

    expectEmptyWithNullBlock(a);
}

TEST(Array, RequiredQuirkRequestAtTheLimitThrowsAndLeavesNothing)
{
    expectLimit<double>(0x1fffffff);
    expectLimit<std::complex<double>>(0xfffffff);
    expectLimit<int>(0x3fffffff);
    expectLimit<unsigned long>(0x1fffffff);
    expectLimit<long>(0x1fffffff);
    expectLimit<char>(0xffffffff);
    expectLimit<bool>(0xffffffff);
}

TEST(Array, ACountAboveThirtyTwoBitsIsNotNarrowed) { expectLimit<double>((1UL << 32) + 2); }

TEST(Array, ProductOfExtentsIsTestedBeforeAllocation)
{
    Array<char, 2> a;

    EXPECT_THROW(a.resize(65536, 65536), std::bad_alloc);

    expectEmptyWithNullBlock(a);
}

TEST(Array, SameSizeKeepsPointerAndContents)
{
    Array<double, 1> a(4);
    a = 2.5;
    const double* before = a.data();

    a.resize(4);

    EXPECT_EQ(a.data(), before);
    EXPECT_EQ(a[3], 2.5);
}

TEST(Array, RequiredQuirkOtherSizeAlwaysReallocatesWithoutSlack)
{
    Array<double, 1> a(8);

    a.resize(3);

    EXPECT_EQ(a.capacity(), 3u);
    EXPECT_EQ(a.size(), 3u);
}

TEST(Array, RequiredQuirkClearInstallsABlockOfNoElements)
{
    Array<double, 1> a(3);

    a.clear();

    EXPECT_EQ(a.size(), 0u);
    EXPECT_EQ(a.stride(0), 1u);
    EXPECT_EQ(a.capacity(), 0u);
    EXPECT_NE(a.data(), nullptr);
}

TEST(Array, CopyIsDeep)
{
    Array<int, 1> a(3);
    std::iota(a.begin(), a.end(), 1);

    Array<int, 1> b(a);
    b[0] = 9;

    EXPECT_EQ(a[0], 1);
    EXPECT_EQ(b[2], 3);
}

TEST(Array, SelfAssignmentKeepsTheContents)
{
    Array<int, 1> a(2);
    a = 7;
    Array<int, 1>& alias = a;

    a = alias;

    EXPECT_EQ(a[1], 7);
}

TEST(Array, AssignmentReusesABlockOfEqualCapacity)
{
    Array<int, 1> a(2), b(2);
    b = 5;
    const int* before = a.data();

    a = b;

    EXPECT_EQ(a.data(), before);
    EXPECT_EQ(a[0], 5);
}

TEST(Array, IsColumnMajor)
{
    Array<int, 2> a(2, 3);
    std::iota(a.begin(), a.end(), 0);

    EXPECT_EQ(a(1, 0), 1);
    EXPECT_EQ(a(0, 2), 4);
    EXPECT_EQ(a.stride(1), 2u);
}

TEST(Array, ThirdStrideIsTheProductOfTheFirstTwoExtents)
{
    const unsigned long extents[] = {2, 3, 4};
    Array<double, 3> a(extents);

    EXPECT_EQ(a.stride(2), 6u);
    EXPECT_EQ(a.size(), 24u);
    EXPECT_EQ(&a(1, 2, 3), a.data() + 23);
}

TEST(Array, LiteralZeroIsAnElementCount)
{
    Array<double, 1> a(0);

    EXPECT_EQ(a.size(), 0u);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Scoped handles of Java arrays, behind an environment that counts.
#include "jniarrayutil.hpp"

#include "support/failure.hpp"
#include "support/fake_java.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qxarray;
using qxtest::FakeJava;
using qxtest::idOf;
using testing::ElementsAre;

TEST(JavaArrayHandle, ShowsTheElementsAndCopiesThemBackAtTheEnd)
{
    FakeJava java;
    jdoubleArray array = java.doubles({1, 2, 3});
    {
        const jdoubleArrayRH handle(java.env(), array, JNI_FALSE, 42);

        EXPECT_EQ(handle.get()[2], 3);
        handle.get()[0] = 7;
        EXPECT_TRUE(handle.isCopy()) << "what Java says, not what was passed";
        EXPECT_EQ(handle.tag(), 42);
        EXPECT_EQ(handle.array(), array);
        EXPECT_EQ(java.pinned, 1);
    }

    EXPECT_EQ(java.pinned, 0);
    EXPECT_THAT(java.valuesOf<double>(array), ElementsAre(7, 2, 3));
    EXPECT_THAT(java.breaches, ElementsAre());
}

TEST(JavaArrayHandle, DiscardReleasesWithoutCopyingBack)
{
    FakeJava java;
    jintArray array = java.numbers<jintArray>(std::vector<jint>{1, 2});
    {
        jintArrayRH handle(java.env(), array, JNI_FALSE, 0);
        handle.get()[0] = 9;

        handle.discard();

        EXPECT_EQ(handle.get(), nullptr);
        EXPECT_EQ(java.pinned, 0);
    }
    EXPECT_EQ(java.aborted, 1);
    EXPECT_THAT(java.valuesOf<jint>(array), ElementsAre(1, 2));
}

TEST(JavaArrayHandle, PlainOnesLeaveTheReferenceToTheCaller)
{
    FakeJava java;
    jfloatArray array = java.numbers<jfloatArray>(std::vector<jfloat>{1.5f});
    {
        const jfloatArrayRH handle(java.env(), array, JNI_FALSE, 0);
        EXPECT_EQ(handle.get()[0], 1.5f);
    }
    EXPECT_EQ(java.liveRefs, 0);
}

TEST(JavaArrayHandle, WithLengthGivesElementsAndNumberToTheCaller)
{
    FakeJava java;
    double* elements = nullptr;
    int* numbers = nullptr;
    int length = -1, count = -1;

    const jdoubleArray1RH handle(java.env(), java.doubles({4, 5}), JNI_FALSE, 0, elements, length);
    const jintArray1RH ints(java.env(), java.numbers<jintArray>(std::vector<jint>{6, 7, 8}), JNI_FALSE, 0, numbers, count);

    EXPECT_EQ(length, 2);
    EXPECT_EQ(elements, handle.get());
    EXPECT_EQ(elements[1], 5);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(numbers[2], 8);
}

TEST(JavaArrayHandle, RaisesForNullForFailureAndForAPendingException)
{
    FakeJava java;
    EXPECT_EQ(idOf([&] { jdoubleArrayRH(java.env(), nullptr, JNI_FALSE, 0); }), "JNI_exception");

    jdoubleArray array = java.doubles({1});
    java.failCall(1);
    EXPECT_EQ(idOf([&] { jdoubleArrayRH(java.env(), array, JNI_FALSE, 0); }), "JNI_exception");
    EXPECT_TRUE(java.pending) << "the Java method above sees the OutOfMemoryError";

    EXPECT_EQ(idOf([&] { jdoubleArrayRH(java.env(), array, JNI_FALSE, 0); }), "JNI_exception");
    EXPECT_EQ(java.pinned, 0);
    EXPECT_THAT(java.breaches, ElementsAre());
}

TEST(JavaArrayHandle, ReleasesOnEveryPath)
{
    FakeJava java;
    jdoubleArray array = java.doubles({1, 2});

    EXPECT_EQ(idOf([&] {
                  const jdoubleArrayRH handle(java.env(), array, JNI_FALSE, 0);
                  java.pending = true; // as after a failing call in the scope
                  QX_RAISE("test", "Something_else");
              }),
              "Something_else");

    EXPECT_EQ(java.pinned, 0);
    EXPECT_TRUE(java.pending);
    EXPECT_THAT(java.breaches, ElementsAre());
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Array exchange with a real virtual machine that checks every call.
#include "qxjarray.hpp"

#include "support/alloc_fault.hpp"
#include "support/failure.hpp"
#include "support/java_test.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>

using namespace qxarray;
using qxtest::idOf;

namespace {

class JavaArraysInAVM : public qxtest::JavaTest
{
};

template <class T, int N>
Array<T, N> numbered(std::initializer_list<unsigned long> extents)
{
    Array<T, N> a(extents.begin());
    for (unsigned long i = 0; i < a.size(); ++i)
        a[i] = static_cast<T>(i) - 5;
    return a;
}

template <class T, int N>
void expectRoundTrip(JNIEnv* env, std::initializer_list<unsigned long> extents)
{
    const Array<T, N> source = numbered<T, N>(extents);
    Array<T, N> back;

    toCpp(env, toJavaNew(env, source), back);

    for (int d = 0; d < N; ++d)
        EXPECT_EQ(back.extent(d), source.extent(d));
    EXPECT_TRUE(std::equal(source.begin(), source.end(), back.begin()));
}

template <class T>
void expectVectorRoundTrip(JNIEnv* env, const T& source)
{
    T back;
    toCpp(env, toJavaNew(env, source), back);
    EXPECT_EQ(back, source);
}

} // namespace

TEST_F(JavaArraysInAVM, NumbersOfEveryFormTravelBothWays)
{
    expectRoundTrip<double, 1>(env, {1000});
    expectRoundTrip<double, 1>(env, {0});
    expectRoundTrip<double, 1>(env, {1000000});
    expectRoundTrip<int, 1>(env, {(4u << 20) / sizeof(int)});
    expectRoundTrip<double, 2>(env, {13, 7});
    expectRoundTrip<double, 2>(env, {5, 0});
    expectRoundTrip<double, 2>(env, {3, 1200});
    expectRoundTrip<double, 3>(env, {3, 4, 5});
    expectRoundTrip<int, 1>(env, {10});
    expectRoundTrip<int, 2>(env, {9, 9});
    expectRoundTrip<int, 3>(env, {2, 1, 2});
    expectVectorRoundTrip(env, std::vector<double>{1.5, -2});
    expectVectorRoundTrip(env, std::vector<int>{-7});
    expectVectorRoundTrip(env, std::vector<signed char>{-128, 127});
    expectVectorRoundTrip(env, std::vector<unsigned short>{65535, 0});
    expectVectorRoundTrip(env, std::vector<long long>{-9000000000000000000LL});
    expectVectorRoundTrip(env, std::vector<std::vector<double>>{{1, 2, 3}, {}, {4}});
    expectVectorRoundTrip(env, std::vector<std::vector<int>>{{}, {5}});
}

TEST_F(JavaArraysInAVM, ALargeArrayIsWrittenIntoWhereItIs)
{
    const Array<double, 1> source = numbered<double, 1>({1000000});
    jdoubleArray array = toJavaNew(env, std::vector<double>(1000000)), same = array;
    Array<double, 1> back(1000000);

    toJavaExisting(env, source, same);
    toCpp(env, same, back);

    EXPECT_EQ(same, array);
    EXPECT_TRUE(std::equal(source.begin(), source.end(), back.begin()));
}

TEST_F(JavaArraysInAVM, TextsTravelBothWays)
{
    expectVectorRoundTrip(env, std::vector<std::string>{"", "\xf0\x9f\x98\x80", std::string("a\0b", 3)});
    expectVectorRoundTrip(env, std::vector<std::wstring>{L"", L"\U0001F600", std::wstring(L"a\0b", 3)});
    expectVectorRoundTrip(env, std::vector<std::vector<std::string>>{{"x"}, {}, {"y", "z"}});
    expectVectorRoundTrip(env, std::vector<std::vector<std::wstring>>{{L"x", L"\u00e9"}});
}

TEST_F(JavaArraysInAVM, TenThousandRowsNeedAFewReferences)
{
    expectRoundTrip<double, 2>(env, {10000, 3});
    expectVectorRoundTrip(env, std::vector<std::vector<double>>(10000, std::vector<double>(2, 1.0)));
    Array<double, 2> source = numbered<double, 2>({10000, 3});
    jobjectArray array = toJavaNew(env, source);
    jobjectArray same = array;

    toJavaExisting(env, source, same);

    EXPECT_EQ(checkSizeMatrix(env, array, 10000), 3);
    EXPECT_EQ(same, array);
    EXPECT_EQ(qxtest::jniWarnings(), 0);
}

TEST_F(JavaArraysInAVM, AHundredThousandConversionsLeaveNothingBehind)
{
    const Array<double, 2> source = numbered<double, 2>({2, 2});
    Array<double, 2> target;
    jobjectArray array = toJavaNew(env, source);
    toCpp(env, array, target);
    const long before = qxtest::liveAllocations();

    for (int i = 0; i < 100000; ++i)
        toCpp(env, array, target);
    for (int i = 0; i < 10000; ++i)
        env->DeleteLocalRef(toJavaNew(env, source));

    EXPECT_EQ(qxtest::liveAllocations(), before);
    EXPECT_EQ(qxtest::jniWarnings(), 0);
}

TEST_F(JavaArraysInAVM, HandlesOfManyRowsStayWithinTheRoomTheyAsked)
{
    jobjectArray matrix = toJavaNew(env, numbered<double, 2>({200, 2}));
    jobjectArray ints = toJavaNew(env, numbered<int, 2>({100, 1}));
    {
        std::vector<boost::shared_ptr<jdoubleArrayRH>> rows;
        jdM2vdAH(env, matrix, rows);

        EXPECT_EQ(rows[199]->get()[1], 394);
        rows[0]->get()[0] = 77;
        rows[1]->get()[0] = 78;
        rows[1]->discard();
    }
    {
        std::vector<boost::shared_ptr<jintArrayRH>> rows;
        jiM2viAH(env, ints, rows);
        EXPECT_EQ(rows[99]->get()[0], 94);
    }
    Array<double, 2> after;
    toCpp(env, matrix, after);
    EXPECT_EQ(after(0, 0), 77) << "copied back";
    EXPECT_EQ(after(1, 0), -4) << "discarded";
}

TEST_F(JavaArraysInAVM, PlanesOfHandlesAndPlainOnes)
{
    std::vector<std::vector<boost::shared_ptr<jdoubleArrayRH>>> planes;
    jdA32vvdAH(env, toJavaNew(env, numbered<double, 3>({30, 40, 4})), planes);
    EXPECT_EQ(planes[1][2]->get()[3], 1 + 2 * 30 + 3 * 1200 - 5);
    planes.clear();

    jdoubleArray array = toJavaNew(env, std::vector<double>{1, 2, 3});
    double* elements = nullptr;
    int length = 0;
    const jdoubleArray1RH handle(env, array, JNI_FALSE, 0, elements, length);
    EXPECT_EQ(length, 3);
    EXPECT_EQ(elements[2], 3);
}

TEST_F(JavaArraysInAVM, ArraysOfOtherTypesAreRefused)
{
    Array<double, 2> target;
    std::vector<std::string> texts;

    EXPECT_EQ(idOf([&] { toCpp(env, toJavaNew(env, numbered<int, 2>({1, 1})), target); }), "Internal_error_array_processing");
    EXPECT_EQ(idOf([&] { toCpp(env, toJavaNew(env, numbered<double, 2>({1, 1})), texts); }),
              "Internal_error_array_processing");
}

TEST_F(JavaArraysInAVM, AJavaHeapThatIsFullLeavesTheErrorPending)
{
    constexpr const char* id = "JNI_exception";
    constexpr const char* error = "java.lang.OutOfMemoryError";
    const auto expectFull = [&](const auto& convert) {
        const long before = qxtest::liveAllocations();
        EXPECT_EQ(idOf(convert), id);
        EXPECT_EQ(takePending(), error);
        EXPECT_EQ(qxtest::liveAllocations(), before);
    };
    const Array<double, 1> big(12000000); // 96 MB for a heap of 64
    const Array<double, 2> tall(60000, 200);
    const Array<int, 2> tallInts(60000, 400);
    const Array<double, 3> planes(300, 200, 200);
    const std::vector<std::vector<double>> rows(4000, std::vector<double>(3000));
    const std::vector<std::string> texts(200, std::string(500000, 'x'));
    const std::vector<std::wstring> wide(50, std::wstring(1000000, L'\u20ac'));
    jdoubleArray none = nullptr;
    jobjectArray noMatrix = nullptr;

    expectFull([&] { toJavaNew(env, big); });
    expectFull([&] { toJavaNew(env, tall); });
    expectFull([&] { toJavaNew(env, tallInts); });
    expectFull([&] { toJavaNew(env, planes); });
    expectFull([&] { toJavaNew(env, rows); });
    expectFull([&] { toJavaNew(env, texts); });
    expectFull([&] { toJavaNew(env, wide); });
    expectFull([&] { toJavaNew(env, std::vector<signed char>(80000000)); });
    expectFull([&] { toJavaExisting(env, big, none); });
    expectFull([&] { toJavaExisting(env, tall, noMatrix); });
    expectFull([&] { toJavaExisting(env, planes, noMatrix); });
    expectFull([&] { toJavaExisting(env, rows, noMatrix); });
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(noMatrix, nullptr);
    expectRoundTrip<double, 2>(env, {3, 3}); // it serves again
}

TEST_F(JavaArraysInAVM, APendingExceptionStaysPending)
{
    Array<double, 1> target(1);
    jdoubleArray array = toJavaNew(env, target);
    ASSERT_EQ(env->FindClass("no/such/Class"), nullptr);

    EXPECT_EQ(idOf([&] { toCpp(env, array, target); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toJavaNew(env, target); }), "JNI_exception");

    EXPECT_EQ(takePending(), "java.lang.NoClassDefFoundError");
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Array exchange behind an environment that counts references, lets any call fail and notes breaches of the rules of JNI.
// The same with a real virtual machine: arrays_vm_test.cpp.
#include "qxjarray.hpp"

#include "jbridge/qxjarray_detail.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"
#include "support/fake_java.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace qxarray;
using qxtest::FakeJava;
using qxtest::idOf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Rows = std::vector<std::vector<double>>;

/// Element (i, j) is 100 i + j.
Rows someRows(int m, int n)
{
    Rows rows(static_cast<std::size_t>(m), std::vector<double>(static_cast<std::size_t>(n)));
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
            rows[i][j] = 100.0 * i + j;
    return rows;
}

Rows rowsOf(const Array<double, 2>& a)
{
    Rows rows(a.extent(0), std::vector<double>(a.extent(1)));
    for (unsigned long i = 0; i < a.extent(0); ++i)
        for (unsigned long j = 0; j < a.extent(1); ++j)
            rows[i][j] = a(i, j);
    return rows;
}

Array<double, 2> arrayOf(const Rows& rows, unsigned long n)
{
    Array<double, 2> a(rows.size(), n);
    for (unsigned long i = 0; i < rows.size(); ++i)
        for (unsigned long j = 0; j < n; ++j)
            a(i, j) = rows[i][j];
    return a;
}

Array<double, 3> numberedCube(unsigned long m, unsigned long n, unsigned long k)
{
    Array<double, 3> a(m, n, k);
    for (unsigned long i = 0; i < a.size(); ++i)
        a[i] = static_cast<double>(i);
    return a;
}

/// A Java program whose rules are found kept at the end of the test.
class JavaArrays : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_THAT(java.breaches, IsEmpty());
        EXPECT_EQ(java.pinned, 0);
    }
    FakeJava java;
};

class JavaMatrix : public JavaArrays, public testing::WithParamInterface<std::pair<int, int>>
{
};

} // namespace

// ---- matrices

TEST_P(JavaMatrix, GoesToColumnsAndBack)
{
    const auto [m, n] = GetParam();
    const Rows rows = someRows(m, n);
    Array<double, 2> target;

    toCpp(java.env(), java.matrix(rows), target);

    EXPECT_EQ(target.extent(0), static_cast<unsigned long>(m));
    EXPECT_EQ(target.extent(1), static_cast<unsigned long>(m == 0 ? 0 : n));
    EXPECT_EQ(rowsOf(target), rows);

    jobjectArray back = toJavaNew(java.env(), target);

    EXPECT_EQ(java.rowsOf(back), rows);
    EXPECT_EQ(java.liveRefs, 1) << "the new array only";
    EXPECT_LE(java.peakRefs, 12) << "however many rows";
}

INSTANTIATE_TEST_SUITE_P(Shapes, JavaMatrix, // around the block of 8 rows and 512 columns
                         testing::Values(std::pair(0, 0), std::pair(1, 1), std::pair(3, 0), std::pair(1, 5), std::pair(7, 2),
                                         std::pair(8, 3), std::pair(9, 3), std::pair(17, 511), std::pair(16, 512),
                                         std::pair(3, 513), std::pair(9, 1025), std::pair(200, 1)));

TEST_F(JavaArrays, AnEmptyOuterArrayEmptiesTheTarget)
{
    Array<double, 2> matrix(2, 3);
    Array<double, 3> cube(1, 1, 1);

    toCpp(java.env(), java.matrix({}), matrix);
    toCpp(java.env(), java.objects("[[[D", {}), cube);

    EXPECT_EQ(matrix.size(), 0u);
    EXPECT_EQ(matrix.extent(0), 0u);
    EXPECT_EQ(matrix.extent(1), 0u);
    EXPECT_EQ(cube.extent(0), 0u);
}

TEST_F(JavaArrays, ATargetOfTheRightSizeKeepsItsStorage)
{
    Array<double, 2> matrix(3, 4);
    Array<double, 1> array(2);
    Array<double, 3> cube(2, 1, 2);
    std::vector<double> vector(2);
    std::vector<std::vector<double>> nested(3, std::vector<double>(4));
    const double* const before[] = {matrix.data(), array.data(), cube.data(), vector.data(), nested[2].data()};

    toCpp(java.env(), java.matrix(someRows(3, 4)), matrix);
    toCpp(java.env(), java.doubles({1, 2}), array);
    toCpp(java.env(), toJavaNew(java.env(), numberedCube(2, 1, 2)), cube);
    toCpp(java.env(), java.doubles({1, 2}), vector);
    toCpp(java.env(), java.matrix(someRows(3, 4)), nested);

    EXPECT_THAT(before, ElementsAre(matrix.data(), array.data(), cube.data(), vector.data(), nested[2].data()));
    EXPECT_EQ(rowsOf(matrix), someRows(3, 4));
    EXPECT_EQ(cube[3], 3);
    EXPECT_EQ(nested[2][3], 203);
}

TEST_F(JavaArrays, ATargetOfAnotherSizeTakesTheNewOne)
{
    Array<double, 2> matrix(4, 3); // the same number of elements

    toCpp(java.env(), java.matrix(someRows(3, 4)), matrix);

    EXPECT_EQ(rowsOf(matrix), someRows(3, 4));
}

TEST_F(JavaArrays, RowsOfUnequalLengthsRaiseAndLeaveATargetOfAnotherSizeAlone)
{
    for (const Rows& rows : {Rows{{1, 2}, {3}}, Rows{{1, 2}, {3, 4, 5}}, Rows{{}, {1}}}) {
        Array<double, 2> target(1, 1);
        target[0] = 5;

        EXPECT_EQ(idOf([&] { toCpp(java.env(), java.matrix(rows), target); }), "Irregular_number_of_columns");

        EXPECT_EQ(target.size(), 1u);
        EXPECT_EQ(target[0], 5);
        EXPECT_EQ(java.liveRefs, 0);
    }
}

TEST_F(JavaArrays, NullRowsAndNullArraysRaise)
{
    Array<double, 1> array;
    Array<double, 2> matrix;
    Array<double, 3> cube;
    std::vector<double> vector;
    std::vector<std::vector<double>> nested;
    std::vector<std::string> texts;
    JNIEnv* env = java.env();
    jobjectArray gap = java.objects("[[D", {java.doubles({1}), nullptr});

    EXPECT_EQ(idOf([&] { toCpp(env, gap, matrix); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp(env, java.objects("[[D", {nullptr}), matrix); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp(env, gap, nested); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp(env, java.objects("[[[D", {nullptr}), cube); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp(env, java.objects("[Ljava/lang/String;", {nullptr}), texts); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp<double>(env, nullptr, matrix); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp<double>(env, nullptr, cube); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp<double>(env, nullptr, array); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp<double>(env, nullptr, vector); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp<double>(env, nullptr, nested); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { toCpp(env, nullptr, texts); }), "JNI_exception");
    EXPECT_EQ(java.liveRefs, 0);
}

TEST_F(JavaArrays, ArraysOfOtherObjectsRaise)
{
    Array<double, 2> matrix;
    std::vector<std::string> texts;
    jobjectArray other = java.objects("[Ljava/lang/Object;", {});

    EXPECT_EQ(idOf([&] { toCpp(java.env(), other, matrix); }), "Internal_error_array_processing");
    EXPECT_EQ(idOf([&] { toCpp(java.env(), other, texts); }), "Internal_error_array_processing");
    EXPECT_EQ(idOf([&] { checkSizeMatrix(java.env(), other, 0); }), "Internal_error_array_processing");
    EXPECT_EQ(idOf([&] { toJavaExisting(java.env(), matrix, other); }), "Internal_error_array_processing");
    EXPECT_EQ(java.liveRefs, 0);
}

TEST_F(JavaArrays, CubesRunWithTheFirstIndexFastest)
{
    const Array<double, 3> cube = numberedCube(2, 3, 4);

    jobjectArray array = toJavaNew(java.env(), cube);

    const auto& planes = java.valuesOf<jobject>(array);
    ASSERT_EQ(planes.size(), 2u);
    // Element (i, j, l) has the number i + 2 j + 6 l.
    EXPECT_EQ(java.rowsOf(planes[1]), (Rows{{1, 7, 13, 19}, {3, 9, 15, 21}, {5, 11, 17, 23}}));

    Array<double, 3> back;
    toCpp(java.env(), array, back);
    EXPECT_EQ(back.extent(1), 3u);
    EXPECT_TRUE(std::equal(cube.begin(), cube.end(), back.begin()));
    EXPECT_EQ(java.liveRefs, 1);
}

TEST_F(JavaArrays, IrregularCubesRaise)
{
    Array<double, 3> target;
    jobjectArray planes = java.objects("[[[D", {java.matrix({{1, 2}}), java.matrix({{1, 2}, {3, 4}})});
    jobjectArray lines = java.objects("[[[D", {java.matrix({{1, 2}}), java.matrix({{1}})});

    EXPECT_EQ(idOf([&] { toCpp(java.env(), planes, target); }), "Irregular_number_of_columns");
    EXPECT_EQ(idOf([&] { toCpp(java.env(), lines, target); }), "Irregular_number_of_columns");
    EXPECT_EQ(target.size(), 0u);
}

TEST_F(JavaArrays, IntegerArraysOfAllRanksTravel)
{
    Array<int, 1> one(2);
    Array<int, 2> two(2, 2);
    Array<int, 3> three(1, 2, 2), back3;
    one[0] = -1, one[1] = 2147483647;
    for (int i = 0; i < 4; ++i)
        two[i] = three[i] = i;
    Array<int, 1> back1;
    Array<int, 2> back2;

    toCpp(java.env(), toJavaNew(java.env(), one), back1);
    toCpp(java.env(), toJavaNew(java.env(), two), back2);
    toCpp(java.env(), toJavaNew(java.env(), three), back3);

    EXPECT_EQ(back1[1], 2147483647);
    EXPECT_EQ(back2(0, 1), 2);
    EXPECT_EQ(back3(0, 1, 1), 3);
}

// ---- vectors and texts

TEST_F(JavaArrays, VectorsOfEachNumberTypeTravel)
{
    const auto roundTrip = [&]<class T>(const std::vector<T>& values) {
        std::vector<T> back;
        toCpp(java.env(), toJavaNew(java.env(), values), back);
        EXPECT_EQ(back, values);
    };
    roundTrip(std::vector<double>{1.5, -0.0});
    roundTrip(std::vector<int>{-2147483647 - 1, 7});
    roundTrip(std::vector<signed char>{-128, 127});
    roundTrip(std::vector<long long>{-9223372036854775807LL - 1, 1});
    roundTrip(std::vector<double>{});
}

TEST_F(JavaArrays, ShortsAreUnsignedHereAndKeepTheirBits)
{
    std::vector<unsigned short> values;

    toCpp(java.env(), java.numbers<jshortArray>(std::vector<jshort>{-1, -32768, 5}), values);

    EXPECT_THAT(values, ElementsAre(65535, 32768, 5));
    EXPECT_THAT(java.valuesOf<jshort>(toJavaNew(java.env(), values)), ElementsAre(-1, -32768, 5));
}

TEST_F(JavaArrays, NestedVectorsKeepRowsOfAnyLength)
{
    const Rows rows = {{1, 2, 3}, {}, {4}};
    std::vector<std::vector<double>> back(1);
    std::vector<std::vector<int>> ints;

    toCpp(java.env(), toJavaNew(java.env(), rows), back);
    toCpp(java.env(), toJavaNew(java.env(), std::vector<std::vector<int>>{{1}, {2, 3}}), ints);

    EXPECT_EQ(back, rows);
    EXPECT_EQ(ints[1][1], 3);
}

TEST_F(JavaArrays, VectorsOfPointersToVectorsGoToJava)
{
    using Row = std::vector<double>;
    std::vector<boost::shared_ptr<Row>> rows = {boost::make_shared<Row>(Row{1, 2}), boost::make_shared<Row>()};

    EXPECT_EQ(java.rowsOf(toJavaNew(java.env(), rows)), (Rows{{1, 2}, {}}));

    rows.push_back(nullptr);
    EXPECT_EQ(idOf([&] { toJavaNew(java.env(), rows); }), "Internal_error_array_processing");
    EXPECT_EQ(java.liveRefs, 1);
}

TEST_F(JavaArrays, NestedTextsKeepEmptySupplementaryAndZeroCharacters)
{
    const std::vector<std::vector<std::string>> texts = {{"", "\xf0\x9f\x98\x80"}, {}, {std::string("a\0b", 3), "T\xc3\xa9"}};
    const std::vector<std::vector<std::wstring>> wide = {{L"", L"\U0001F600"}, {std::wstring(L"a\0b", 3)}};
    std::vector<std::vector<std::string>> back;
    std::vector<std::vector<std::wstring>> wideBack;
    std::vector<std::string> flat;
    std::vector<std::wstring> wideFlat;

    toCpp(java.env(), toJavaNew(java.env(), texts), back);
    toCpp(java.env(), toJavaNew(java.env(), wide), wideBack);
    toCpp(java.env(), toJavaNew(java.env(), texts[2]), flat);
    toCpp(java.env(), toJavaNew(java.env(), wide[0]), wideFlat);

    EXPECT_EQ(back, texts);
    EXPECT_EQ(wideBack, wide);
    EXPECT_EQ(flat, texts[2]);
    EXPECT_EQ(wideFlat, wide[0]);
    EXPECT_EQ(java.liveRefs, 4) << "the four made arrays";
}

// ---- existing Java arrays

TEST_F(JavaArrays, AnExistingArrayOfTheRightLengthIsWrittenInto)
{
    jdoubleArray numbers = java.doubles({0, 0});
    jintArray ints = java.numbers<jintArray>(std::vector<jint>{0});
    jobjectArray matrix = java.matrix(someRows(9, 2)), cube = toJavaNew(java.env(), numberedCube(2, 1, 2));
    const std::vector<jobject> rowsBefore = java.valuesOf<jobject>(matrix);
    const jobject planeBefore = java.valuesOf<jobject>(cube)[1];
    Array<double, 1> one(2);
    one[0] = 1, one[1] = 2;
    Array<int, 1> oneInt(1);
    oneInt[0] = 3;
    Array<double, 2> two = arrayOf(someRows(9, 2), 2);
    two(8, 1) = -1;
    Array<double, 3> three = numberedCube(2, 1, 2);
    three[3] = -3;
    jdoubleArray numbersAfter = numbers;
    jintArray intsAfter = ints;
    jobjectArray matrixAfter = matrix, cubeAfter = cube;

    toJavaExisting(java.env(), one, numbersAfter);
    toJavaExisting(java.env(), oneInt, intsAfter);
    toJavaExisting(java.env(), two, matrixAfter);
    toJavaExisting(java.env(), three, cubeAfter);

    EXPECT_EQ(numbersAfter, numbers);
    EXPECT_EQ(intsAfter, ints);
    EXPECT_EQ(matrixAfter, matrix);
    EXPECT_EQ(cubeAfter, cube);
    EXPECT_THAT(java.valuesOf<double>(numbers), ElementsAre(1, 2));
    EXPECT_THAT(java.valuesOf<jint>(ints), ElementsAre(3));
    EXPECT_EQ(java.valuesOf<jobject>(matrix), rowsBefore);
    EXPECT_EQ(java.rowsOf(matrix)[8][1], -1);
    EXPECT_EQ(java.valuesOf<jobject>(cube)[1], planeBefore);
    EXPECT_EQ(java.rowsOf(planeBefore)[0][1], -3);
}

TEST_F(JavaArrays, NullTooShortAndTooLongOnesAreReplaced)
{
    Array<double, 1> source(2);
    source[0] = 1, source[1] = 2;
    for (jdoubleArray before : {jdoubleArray(nullptr), java.doubles({9}), java.doubles({9, 9, 9})}) {
        jdoubleArray after = before;

        toJavaExisting(java.env(), source, after);

        EXPECT_NE(after, before);
        EXPECT_THAT(java.valuesOf<double>(after), ElementsAre(1, 2));
        if (before) {
            EXPECT_THAT(java.valuesOf<double>(before), testing::Each(9));
        }
    }
}

TEST_F(JavaArrays, OnlyTheRowsThatDoNotFitAreReplaced)
{
    jdoubleArray good = java.doubles({0, 0});
    jobjectArray matrix = java.objects("[[D", {good, nullptr, java.doubles({1})});
    jobjectArray nested = java.objects("[[D", {good, nullptr, java.doubles({1})});
    jobjectArray cube = java.objects("[[[D", {nullptr, java.matrix({{0, 0}})});
    const jobject plane = java.valuesOf<jobject>(cube)[1];
    jobjectArray after = matrix;

    toJavaExisting(java.env(), arrayOf(someRows(3, 2), 2), after);
    toJavaExisting(java.env(), someRows(3, 2), nested);
    toJavaExisting(java.env(), numberedCube(2, 1, 2), cube);

    EXPECT_EQ(after, matrix);
    EXPECT_EQ(java.rowsOf(matrix), someRows(3, 2));
    EXPECT_EQ(java.valuesOf<jobject>(matrix)[0], good);
    EXPECT_EQ(java.rowsOf(nested), someRows(3, 2));
    EXPECT_EQ(java.valuesOf<jobject>(nested)[0], good);
    EXPECT_EQ(java.valuesOf<jobject>(cube)[1], plane);
    EXPECT_EQ(java.rowsOf(java.valuesOf<jobject>(cube)[0]), (Rows{{0, 2}}));
    EXPECT_EQ(java.liveRefs, 0);
}

TEST_F(JavaArrays, AComplexNumberIsAnArrayOfTwo)
{
    jdoubleArray array = nullptr;

    toJavaExisting(java.env(), std::complex<double>(3, -4), array);
    jdoubleArray again = array;
    toJavaExisting(java.env(), std::complex<double>(5, 6), again);

    EXPECT_EQ(again, array);
    EXPECT_THAT(java.valuesOf<double>(array), ElementsAre(5, 6));
}

// ---- shapes

TEST_F(JavaArrays, CheckSizeMatrixNamesWhatIsWrong)
{
    JNIEnv* env = java.env();
    EXPECT_EQ(checkSizeMatrix(env, java.matrix(someRows(3, 2)), 3), 2);
    EXPECT_EQ(checkSizeMatrix(env, java.matrix({}), 0), 0);
    EXPECT_EQ(checkSizeMatrix(env, java.matrix({{}, {}}), 2), 0);
    EXPECT_EQ(idOf([&] { checkSizeMatrix(env, java.matrix({{1}}), 2); }), "Illegal_number_of_rows");
    EXPECT_EQ(idOf([&] { checkSizeMatrix(env, java.matrix({{1}, {1, 2}}), 2); }), "Irregular_number_of_columns");
    EXPECT_EQ(idOf([&] { checkSizeMatrix(env, java.objects("[[D", {nullptr}), 1); }), "Illegal_number_of_columns");
    EXPECT_EQ(idOf([&] { checkSizeMatrix(env, nullptr, 0); }), "JNI_exception");
    EXPECT_EQ(java.liveRefs, 0);
}

TEST_F(JavaArrays, AFlatArrayBecomesAMatrixColumnByColumn)
{
    Array<double, 2> target;
    jdoubleArray flat = java.doubles({1, 2, 3, 4, 5, 6});

    jdA1cppdA2(java.env(), flat, 2, 3, target);

    EXPECT_EQ(rowsOf(target), (Rows{{1, 3, 5}, {2, 4, 6}}));
    for (const auto& size : {std::pair(2, 2), std::pair(4, 3), std::pair(-2, -3), std::pair(65536, 65536)})
        EXPECT_EQ(idOf([&] { jdA1cppdA2(java.env(), flat, size.first, size.second, target); }), "Illegal_number_of_rows");
    EXPECT_EQ(rowsOf(target), (Rows{{1, 3, 5}, {2, 4, 6}}));
}

TEST_F(JavaArrays, RealAndImaginaryPartsBecomeAVector)
{
    Matrix<1> x;
    JNIEnv* env = java.env();

    jVDblVDbl2CppV(env, java.doubles({1, 2}), nullptr, x);
    EXPECT_TRUE(x.isReal());
    EXPECT_EQ(x[1], 2.0);

    std::vector<double> re(3000), im(3000);
    for (int i = 0; i < 3000; ++i)
        re[i] = i, im[i] = -i;
    jVDblVDbl2CppV(env, java.doubles(re), java.doubles(im), x);
    EXPECT_FALSE(x.isReal());
    EXPECT_EQ(x.size(), 3000u);
    EXPECT_EQ(x[2999], std::complex<double>(2999, -2999));

    const auto* before = x.gethzArr().data();
    jVDblVDbl2CppV(env, java.doubles(im), java.doubles(re), x);
    EXPECT_EQ(x.gethzArr().data(), before) << "a target of the right size keeps its storage";
    EXPECT_EQ(x[1], std::complex<double>(-1, 1));

    const Matrix<1> copy = x;
    jVDblVDbl2CppV(env, java.doubles(re), java.doubles(im), x);
    EXPECT_EQ(copy[1], std::complex<double>(-1, 1)) << "which is not shared with others";

    EXPECT_EQ(idOf([&] { jVDblVDbl2CppV(env, java.doubles({1}), java.doubles({1, 2}), x); }),
              "Internal_error_array_processing");
    EXPECT_EQ(idOf([&] { jVDblVDbl2CppV(env, nullptr, nullptr, x); }), "JNI_exception");
    EXPECT_EQ(x.size(), 3000u);
}

TEST_F(JavaArrays, RowsArePinnedByHandlesThatOwnTheirReferences)
{
    std::vector<boost::shared_ptr<jdoubleArrayRH>> rows;
    std::vector<boost::shared_ptr<jintArrayRH>> ints;
    std::vector<boost::shared_ptr<jfloatArrayRH>> floats;
    std::vector<std::vector<boost::shared_ptr<jdoubleArrayRH>>> planes;
    jobjectArray matrix = java.matrix(someRows(40, 2));
    const auto oneRow = [&](const char* type, jobject row) { return java.objects(type, {row}); };

    jdM2vdAH(java.env(), matrix, rows);
    jiM2viAH(java.env(), oneRow("[[I", java.numbers<jintArray>(std::vector<jint>{5})), ints);
    jfM2vfAH(java.env(), oneRow("[[F", java.numbers<jfloatArray>(std::vector<jfloat>{2.5f})), floats);
    jdA32vvdAH(java.env(), java.objects("[[[D", {matrix, matrix}), planes);

    EXPECT_EQ(rows.size(), 40u);
    EXPECT_EQ(rows[39]->get()[1], 3901);
    EXPECT_EQ(ints[0]->get()[0], 5);
    EXPECT_EQ(floats[0]->get()[0], 2.5f);
    EXPECT_EQ(planes[1][39]->get()[0], 3900);
    EXPECT_EQ(java.pinned, 122);
    EXPECT_EQ(java.liveRefs, 122);
    EXPECT_THAT(java.calls, testing::Contains("EnsureLocalCapacity").Times(5));

    rows[0]->get()[0] = -7;
    rows.clear(), ints.clear(), floats.clear(), planes.clear();
    EXPECT_EQ(java.liveRefs, 0);
}

// ---- sizes

TEST_F(JavaArrays, LengthsThatJavaCannotHoldRaise)
{
    EXPECT_EQ(javaSize(2147483647UL), 2147483647);
    EXPECT_EQ(idOf([] { javaSize(2147483648UL); }), "Matrix_too_large_for_JNI_interface");

    // 3*10^9 rows of no columns take no memory.
    EXPECT_EQ(idOf([&] { toJavaNew(java.env(), Array<double, 2>(3000000000UL, 0)); }), "Matrix_too_large_for_JNI_interface");
    EXPECT_EQ(idOf([&] { toJavaNew(java.env(), Array<double, 3>(0, 3000000000UL, 0)); }), "Matrix_too_large_for_JNI_interface");
    jobjectArray there = nullptr;
    EXPECT_EQ(idOf([&] { toJavaExisting(java.env(), Array<double, 2>(0, 3000000000UL), there); }),
              "Matrix_too_large_for_JNI_interface");
}

TEST_F(JavaArrays, TotalsBeyondTheInterfaceRaiseBeforeAnythingIsAllocated)
{
    jdoubleArray row = java.doubles({});
    jobjectArray matrix = java.objects("[[D", {row}), cube = java.objects("[[[D", {matrix});
    java.claimLength(row, 65536);
    java.claimLength(matrix, 65536);
    java.claimLength(cube, 2);
    Array<double, 2> two;
    Array<double, 3> three;

    EXPECT_EQ(idOf([&] { toCpp(java.env(), matrix, two); }), "Matrix_too_large_for_JNI_interface");
    EXPECT_EQ(idOf([&] { toCpp(java.env(), cube, three); }), "Matrix_too_large_for_JNI_interface");
    EXPECT_EQ(java.liveRefs, 0);
}

TEST_F(JavaArrays, ASizeThatAnArrayDoesNotHoldIsOutOfMemory)
{
    jdoubleArray array = java.doubles({});
    java.claimLength(array, 1000000000); // 8 GB
    Array<double, 1> target(3);

    EXPECT_EQ(idOf([&] { toCpp(java.env(), array, target); }), "Out_of_memory_array_processing");

    EXPECT_EQ(target.size(), 3u);
}

// ---- failures anywhere

namespace {

struct Conversion
{
    const char* name;
    std::function<void(FakeJava&)> run;
};

std::vector<Conversion> allConversions()
{
    const auto cube = [](FakeJava& java) { return java.objects("[[[D", {java.matrix(someRows(2, 3)), java.matrix(someRows(2, 3))}); };
    const auto texts = [](FakeJava& java) {
        jobject inner = java.objects("[Ljava/lang/String;", {java.text(u"a"), java.text(u"b")});
        return java.objects("[[Ljava/lang/String;", {inner, inner});
    };
    return {
        {"Array1", [](FakeJava& java) { Array<double, 1> t; toCpp(java.env(), java.doubles({1, 2}), t); }},
        {"Array2", [](FakeJava& java) { Array<double, 2> t; toCpp(java.env(), java.matrix(someRows(9, 3)), t); }},
        {"Array3", [=](FakeJava& java) { Array<double, 3> t; toCpp(java.env(), cube(java), t); }},
        {"Vector", [](FakeJava& java) { std::vector<double> t; toCpp(java.env(), java.doubles({1, 2}), t); }},
        {"Nested", [](FakeJava& java) { Rows t; toCpp(java.env(), java.matrix(someRows(3, 2)), t); }},
        {"Texts", [=](FakeJava& java) { std::vector<std::vector<std::string>> t; toCpp(java.env(), texts(java), t); }},
        {"WideTexts", [=](FakeJava& java) { std::vector<std::vector<std::wstring>> t; toCpp(java.env(), texts(java), t); }},
        {"NewArray1", [](FakeJava& java) { toJavaNew(java.env(), Array<double, 1>(2)); }},
        {"NewArray2", [](FakeJava& java) { toJavaNew(java.env(), arrayOf(someRows(9, 3), 3)); }},
        {"NewArray3", [](FakeJava& java) { toJavaNew(java.env(), numberedCube(2, 3, 2)); }},
        {"NewVector", [](FakeJava& java) { toJavaNew(java.env(), std::vector<long long>{1, 2}); }},
        {"NewLarge", [](FakeJava& java) { toJavaNew(java.env(), std::vector<double>(600000)); }},
        {"NewNested", [](FakeJava& java) { toJavaNew(java.env(), someRows(3, 2)); }},
        {"NewTexts", [](FakeJava& java) { toJavaNew(java.env(), std::vector<std::vector<std::string>>{{"a", "b"}, {"c"}}); }},
        {"ExistingArray1", [](FakeJava& java) { jdoubleArray t = nullptr; toJavaExisting(java.env(), Array<double, 1>(2), t); }},
        {"ExistingArray2", [](FakeJava& java) { jobjectArray t = java.objects("[[D", {java.doubles({1, 2}), nullptr, nullptr});
                                                toJavaExisting(java.env(), arrayOf(someRows(3, 2), 2), t); }},
        {"ExistingArray3", [=](FakeJava& java) { jobjectArray t = cube(java); toJavaExisting(java.env(), numberedCube(2, 3, 3), t); }},
        {"ExistingNested", [](FakeJava& java) { jobjectArray t = java.matrix({{1, 2}, {3}}); toJavaExisting(java.env(), someRows(2, 2), t); }},
        {"CheckSize", [](FakeJava& java) { checkSizeMatrix(java.env(), java.matrix(someRows(3, 2)), 3); }},
        {"Flat", [](FakeJava& java) { Array<double, 2> t; jdA1cppdA2(java.env(), java.doubles({1, 2}), 1, 2, t); }},
        {"Complex", [](FakeJava& java) { Matrix<1> t; jVDblVDbl2CppV(java.env(), java.doubles({1}), java.doubles({2}), t); }},
        {"Handles", [](FakeJava& java) { std::vector<boost::shared_ptr<jdoubleArrayRH>> t; jdM2vdAH(java.env(), java.matrix(someRows(3, 2)), t); }},
        {"NestedHandles", [=](FakeJava& java) { std::vector<std::vector<boost::shared_ptr<jdoubleArrayRH>>> t; jdA32vvdAH(java.env(), cube(java), t); }},
    };
}

class EachConversion : public testing::TestWithParam<Conversion>
{
};

} // namespace

TEST_P(EachConversion, AFailingCallRaisesLeavesItsExceptionPendingAndGivesEverythingBack)
{
    int failures = 0;
    for (int n = 1;; ++n) {
        FakeJava java;
        java.failCall(n);

        const std::string id = idOf([&] { GetParam().run(java); });

        if (!java.failed())
            break;
        EXPECT_EQ(id, "JNI_exception") << "call " << n << ": " << java.calls.back();
        EXPECT_TRUE(java.pending);
        EXPECT_EQ(java.liveRefs, 0) << "call " << n;
        EXPECT_EQ(java.pinned, 0);
        ++failures;
    }
    EXPECT_GE(failures, 1);
}

TEST_P(EachConversion, APendingExceptionRaisesBeforeAnyOtherCallAndStaysPending)
{
    FakeJava java;
    java.pending = true;

    EXPECT_EQ(idOf([&] { GetParam().run(java); }), "JNI_exception");

    EXPECT_TRUE(java.pending);
    EXPECT_THAT(java.calls, testing::Each("ExceptionCheck"));
}

TEST_P(EachConversion, AFailingAllocationRaisesAndGivesEverythingBack)
{
    // The stand-in for Java allocates too: what it does before and between the library's own allocations may be hit.
    for (long n = 1; n < 400; ++n) {
        FakeJava java;
        bool faulted = false;
        std::string id;
        id.reserve(100);
        try {
            const qxtest::AllocFault fault(n);
            try {
                GetParam().run(java);
            } catch (...) {
                faulted = fault.happened();
                throw;
            }
            faulted = fault.happened();
        } catch (const std::bad_alloc&) {
            continue; // of the stand-in, outside the library
        } catch (const qxbase::Exception& e) {
            id = e.getId();
        }
        if (!faulted)
            break;
        EXPECT_THAT(id, testing::AnyOf("Out_of_memory_array_processing", "")) << n;
        EXPECT_LE(java.liveRefs, id.empty() ? 1 : 0) << n;
        EXPECT_EQ(java.pinned, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, EachConversion, testing::ValuesIn(allConversions()),
                         [](const testing::TestParamInfo<Conversion>& test) { return std::string(test.param.name); });

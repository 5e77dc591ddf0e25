// SPDX-License-Identifier: LicenseRef-qxkernel
// Matrices and arrays inside property values: the twelve forms.
#include "qxjarray.hpp"

#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

using namespace qxarray;
using qxtest::idOf;
using testing::ElementsAre;

namespace {

constexpr const char* internal = "Internal_error_array_processing";
constexpr const char* tooLarge = "Matrix_too_large_for_JNI_interface";

template <int N>
Array<double, N> numbered(const std::vector<unsigned long>& extents)
{
    Array<double, N> array(extents.data());
    std::iota(array.begin(), array.end(), 1.0);
    return array;
}

template <int N>
Matrix<N> realMatrix(const std::vector<unsigned long>& extents)
{
    return Matrix<N>(boost::make_shared<Array<double, N>>(numbered<N>(extents)));
}

template <int N>
std::vector<unsigned long> someExtents()
{
    return std::vector<unsigned long>{2, 3, 4}.size() == N ? std::vector<unsigned long>{2, 3, 4}
           : N == 2                                        ? std::vector<unsigned long>{2, 3}
                                                           : std::vector<unsigned long>{2};
}

template <int N>
std::vector<int> asDims()
{
    const auto extents = someExtents<N>();
    return {extents.begin(), extents.end()};
}

template <class N>
class PropertyForms : public testing::Test
{
public:
    static constexpr int rank = N::value;
};
using Ranks = testing::Types<std::integral_constant<int, 1>, std::integral_constant<int, 2>, std::integral_constant<int, 3>>;
TYPED_TEST_SUITE(PropertyForms, Ranks);

} // namespace

TYPED_TEST(PropertyForms, AMatrixShowsAddressExtentsAndType)
{
    constexpr int N = TestFixture::rank;
    const Matrix<N> matrix = realMatrix<N>(someExtents<N>());
    const boost::any value = matrix;

    EXPECT_EQ(getMatrixAdr(value), reinterpret_cast<long>(matrix.gethdArr().data()));
    EXPECT_EQ(getMatrixDim(value), asDims<N>());
    EXPECT_TRUE(isMatrixReal(value));
}

TYPED_TEST(PropertyForms, AVectorOfMatricesIsReadByIndex)
{
    constexpr int N = TestFixture::rank;
    auto vector = boost::make_shared<std::vector<Matrix<N>>>(2);
    (*vector)[1] = realMatrix<N>(someExtents<N>());
    (*vector)[1].real2complex();
    const boost::any value = vector;

    EXPECT_EQ(getVMatrixLen(value), 2);
    EXPECT_EQ(getVMatrixAdr(value, 0), 0) << "empty";
    EXPECT_EQ(getVMatrixAdr(value, 1), reinterpret_cast<long>((*vector)[1].gethzArr().data()));
    EXPECT_EQ(getVMatrixDim(value, 1), asDims<N>());
    EXPECT_TRUE(isVMatrixReal(value, 0));
    EXPECT_FALSE(isVMatrixReal(value, 1));
}

TYPED_TEST(PropertyForms, AnArrayShowsAddressValuesExtentsAndLength)
{
    constexpr int N = TestFixture::rank;
    boost::any value = numbered<N>(someExtents<N>());
    const auto& array = *boost::any_cast<Array<double, N>>(&value);

    EXPECT_EQ(getDoubleArrayAdr(value), reinterpret_cast<long>(array.data()));
    EXPECT_EQ(getDoubleArrayVal(value), std::vector<double>(array.begin(), array.end()));
    EXPECT_EQ(getDoubleArrayDim(value), asDims<N>());
    EXPECT_EQ(getDoubleArrayLen(value), static_cast<int>(array.size()));
}

TYPED_TEST(PropertyForms, AVectorOfArraysIsReadByIndex)
{
    constexpr int N = TestFixture::rank;
    auto vector = boost::make_shared<std::vector<Array<double, N>>>();
    vector->push_back({});
    vector->push_back(numbered<N>(someExtents<N>()));
    const boost::any value = vector;
    const auto& array = (*vector)[1];

    EXPECT_EQ(getDoubleArrayLen(value), 2);
    EXPECT_EQ(getDoubleArrayLen(value, 0), 0);
    EXPECT_EQ(getDoubleArrayLen(value, 1), static_cast<int>(array.size()));
    EXPECT_EQ(getDoubleArrayAdr(value, 0), 0);
    EXPECT_EQ(getDoubleArrayAdr(value, 1), reinterpret_cast<long>(array.data()));
    EXPECT_EQ(getDoubleArrayVal(value, 1), std::vector<double>(array.begin(), array.end()));
    EXPECT_EQ(getDoubleArrayDim(value, 1), asDims<N>());
}

TYPED_TEST(PropertyForms, SettingExtentsGivesZerosOfTheWantedType)
{
    constexpr int N = TestFixture::rank;
    boost::any value = Matrix<N>();

    setMatrixDim(value, asDims<N>(), true);
    EXPECT_EQ(getMatrixDim(value), asDims<N>());
    EXPECT_TRUE(isMatrixReal(value));
    const auto& real = boost::any_cast<Matrix<N>>(&value)->gethdArr();
    EXPECT_THAT(std::vector<double>(real.begin(), real.end()), testing::Each(0.0));
    const unsigned long size = real.size();

    setMatrixDim(value, asDims<N>(), false);
    EXPECT_FALSE(isMatrixReal(value));
    const auto& complex = boost::any_cast<Matrix<N>>(&value)->gethzArr();
    EXPECT_EQ(complex.size(), size);
    EXPECT_THAT(std::vector<std::complex<double>>(complex.begin(), complex.end()), testing::Each(std::complex<double>()));
}

TYPED_TEST(PropertyForms, SettingTheExtentsItHasKeepsStorageUnlessItIsShared)
{
    constexpr int N = TestFixture::rank;
    boost::any value = realMatrix<N>(someExtents<N>());
    const long before = getMatrixAdr(value);

    setMatrixDim(value, asDims<N>(), true);
    EXPECT_EQ(getMatrixAdr(value), before);

    const boost::any copy = value;
    setMatrixDim(value, asDims<N>(), true);
    EXPECT_NE(getMatrixAdr(value), before) << "what is written there must not show in the copy";
    EXPECT_EQ(getMatrixAdr(copy), before);
    EXPECT_EQ(boost::any_cast<Matrix<N>>(&value)->gethdArr()[1], 2.0);
}

TYPED_TEST(PropertyForms, TheVectorOfMatricesIsMadeLongerAndShorter)
{
    constexpr int N = TestFixture::rank;
    auto vector = boost::make_shared<std::vector<Matrix<N>>>(1, realMatrix<N>(someExtents<N>()));
    boost::any value = vector;

    setVMatrixLen(value, 3, false);
    EXPECT_EQ(getVMatrixLen(value), 3);
    EXPECT_TRUE(isVMatrixReal(value, 0)) << "those that were there stay as they were";
    EXPECT_FALSE(isVMatrixReal(value, 2));
    EXPECT_EQ(getVMatrixAdr(value, 2), 0);

    setVMatrixDim(value, asDims<N>(), true, 2);
    EXPECT_EQ(getVMatrixDim(value, 2), asDims<N>());
    EXPECT_EQ(getVMatrixDim(value, 1), std::vector<int>(N, 0)) << "its neighbour does not share it";

    setVMatrixLen(value, 0, true);
    EXPECT_EQ(getVMatrixLen(value), 0);
}

TYPED_TEST(PropertyForms, BadIndicesNullPointersAndBadExtentsRaise)
{
    constexpr int N = TestFixture::rank;
    boost::any matrices = boost::make_shared<std::vector<Matrix<N>>>(1);
    boost::any arrays = boost::make_shared<std::vector<Array<double, N>>>(1);
    boost::any nothing = boost::shared_ptr<std::vector<Matrix<N>>>();
    boost::any matrix = Matrix<N>();
    for (int i : {-1, 1}) {
        EXPECT_EQ(idOf([&] { getVMatrixAdr(matrices, i); }), internal);
        EXPECT_EQ(idOf([&] { getVMatrixDim(matrices, i); }), internal);
        EXPECT_EQ(idOf([&] { isVMatrixReal(matrices, i); }), internal);
        EXPECT_EQ(idOf([&] { setVMatrixDim(matrices, asDims<N>(), true, i); }), internal);
        EXPECT_EQ(idOf([&] { getDoubleArrayAdr(arrays, i); }), internal);
        EXPECT_EQ(idOf([&] { getDoubleArrayVal(arrays, i); }), internal);
        EXPECT_EQ(idOf([&] { getDoubleArrayDim(arrays, i); }), internal);
        EXPECT_EQ(idOf([&] { getDoubleArrayLen(arrays, i); }), internal);
    }
    EXPECT_EQ(idOf([&] { getVMatrixLen(nothing); }), internal);
    EXPECT_EQ(idOf([&] { setVMatrixLen(matrices, -1, true); }), internal);
    EXPECT_EQ(idOf([&] { setMatrixDim(matrix, std::vector<int>(N + 1, 1), true); }), internal);
    EXPECT_EQ(idOf([&] { setMatrixDim(matrix, std::vector<int>(N, -1), true); }), internal);
}

TEST(Property, AnIntIsNoneOfTheForms)
{
    boost::any value = 5;
    EXPECT_EQ(idOf([&] { getMatrixAdr(value); }), internal);
    EXPECT_EQ(idOf([&] { getMatrixDim(value); }), internal);
    EXPECT_EQ(idOf([&] { isMatrixReal(value); }), internal);
    EXPECT_EQ(idOf([&] { getVMatrixAdr(value, 0); }), internal);
    EXPECT_EQ(idOf([&] { getVMatrixDim(value, 0); }), internal);
    EXPECT_EQ(idOf([&] { isVMatrixReal(value, 0); }), internal);
    EXPECT_EQ(idOf([&] { getVMatrixLen(value); }), internal);
    EXPECT_EQ(idOf([&] { setVMatrixLen(value, 1, true); }), internal);
    EXPECT_EQ(idOf([&] { setMatrixDim(value, {1}, true); }), internal);
    EXPECT_EQ(idOf([&] { setVMatrixDim(value, {1}, true, 0); }), internal);
    EXPECT_EQ(idOf([&] { getDoubleArrayAdr(value); }), internal);
    EXPECT_EQ(idOf([&] { getDoubleArrayVal(value); }), internal);
    EXPECT_EQ(idOf([&] { getDoubleArrayDim(value); }), internal);
    EXPECT_EQ(idOf([&] { getDoubleArrayLen(value); }), internal);
    EXPECT_EQ(idOf([&] { getDoubleArrayLen(boost::any()); }), internal);
}

TEST(Property, AnOutsideBufferCannotChangeItsShape)
{
    Matrix<1> buffer(3, true);
    buffer.setNoRealloc(true);
    boost::any value = buffer;

    EXPECT_EQ(idOf([&] { setMatrixDim(value, {4}, true); }), internal);
    EXPECT_EQ(idOf([&] { setMatrixDim(value, {3}, false); }), internal);
    setMatrixDim(value, {3}, true);

    EXPECT_EQ(getMatrixAdr(value), reinterpret_cast<long>(buffer.gethdArr().data()));
}

TEST(Property, ExtentsThatJavaCannotHoldRaise)
{
    // 3*10^9 rows of no columns take no memory.
    const Array<double, 2> tall(3000000000UL, 0);
    const boost::any array = tall, matrix = Matrix<2>(boost::make_shared<Array<double, 2>>(tall));

    EXPECT_EQ(idOf([&] { getDoubleArrayDim(array); }), tooLarge);
    EXPECT_EQ(idOf([&] { getMatrixDim(matrix); }), tooLarge);
    EXPECT_EQ(getDoubleArrayLen(array), 0);
}

TEST(Property, FailingAllocationsLeaveValuesAsTheyWere)
{
    boost::any value = realMatrix<2>({2, 3});
    boost::any vector = boost::make_shared<std::vector<Matrix<2>>>(1);

    const std::vector<int> one = {4, 5}, other = {2, 3};
    qxtest::failEveryAllocation([&] { setMatrixDim(value, one, false); setMatrixDim(value, other, true); },
                                [&](const qxtest::FaultRun& run) {
                                    EXPECT_EQ(run.id, run.faulted ? "Out_of_memory_array_processing" : "");
                                    EXPECT_THAT(getMatrixDim(value), testing::AnyOf(ElementsAre(2, 3), ElementsAre(4, 5)));
                                });
    qxtest::failEveryAllocation([&] { setVMatrixLen(vector, 9, false); },
                                [&](const qxtest::FaultRun& run) {
                                    EXPECT_EQ(getVMatrixLen(vector), run.faulted ? 1 : 9);
                                });
    EXPECT_EQ(idOf([&] { setMatrixDim(value, {2000000000, 2000000000}, true); }), "Out_of_memory_array_processing");
}

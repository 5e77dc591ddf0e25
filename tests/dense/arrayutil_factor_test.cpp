// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/lapack_detail.hpp"
#include "dense_values.hpp"

namespace {

using namespace densetest;

template <class T>
class Factor : public testing::Test
{
};
using Types = testing::Types<double, cplx>;
TYPED_TEST_SUITE(Factor, Types);

template <class T>
testing::AssertionResult hasOrthonormalColumns(const Array<T, 2>& Q)
{
    return allNear(product(adjointOf(Q), Q), identity<T>(Q.extent(1)), 1e-13);
}

template <class T>
Array<T, 2> timesDiagonal(const Array<T, 2>& U, const Array<double, 1>& s)
{
    Array<T, 2> US(U.extent(0), s.size());
    for (unsigned long j = 0; j < s.size(); ++j)
        for (unsigned long i = 0; i < U.extent(0); ++i)
            US(i, j) = U(i, j) * s[j];
    return US;
}

TYPED_TEST(Factor, QrAndQReproduceA)
{
    using T = TypeParam;
    for (const auto& [m, n] : {std::pair(7ul, 7ul), {9ul, 4ul}, {1ul, 1ul}}) {
        const Array<T, 2> A = randomMatrix<T>(m, n, 1);
        Array<T, 2> Q = A;
        Array<T, 1> tau;

        EXPECT_EQ(qxarray::qr(Q, tau, 3), 0);
        const Array<T, 2> R = upperTriangle(Q);
        EXPECT_EQ(qxarray::q(Q, tau, 3), 0);

        EXPECT_TRUE(hasOrthonormalColumns(Q));
        EXPECT_TRUE(allNear(product(Q, R), A, 1e-13));
    }
}

TYPED_TEST(Factor, QrOfAWideMatrixReproducesItThroughItsLeadingColumns)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(3, 8, 2);
    Array<T, 2> F = A, Q(3, 3);
    Array<T, 1> tau;

    EXPECT_EQ(qxarray::qr(F, tau, 3), 0);
    EXPECT_EQ(tau.size(), 3u);
    std::copy_n(F.data(), 9, Q.data());
    EXPECT_EQ(qxarray::q(Q, tau, 3), 0);

    EXPECT_TRUE(allNear(product(Q, upperTriangle(F)), A, 1e-13));
}

TYPED_TEST(Factor, QrGivesTheBitsOfTheRoutineCalledDirectly)
{
    using T = TypeParam;
    Array<T, 2> A = randomMatrix<T>(40, 30, 3), direct = A;
    Array<T, 1> tau;

    EXPECT_EQ(qxarray::qr(A, tau, 3), 0);

    const int m = 40, n = 30, query = -1;
    int info = 0;
    T size(0);
    std::vector<T> directTau(30);
    qxarray_detail::Lapack<T>::geqrf(&m, &n, direct.data(), &m, directTau.data(), &size, &query, &info);
    const int lwork = static_cast<int>(std::real(size));
    std::vector<T> work(lwork);
    qxarray_detail::Lapack<T>::geqrf(&m, &n, direct.data(), &m, directTau.data(), work.data(), &lwork, &info);
    EXPECT_TRUE(sameBits(A, direct));
    EXPECT_TRUE(std::equal(tau.begin(), tau.end(), directTau.begin()));
}

TYPED_TEST(Factor, PivotedQrReproducesThePermutedMatrixWithADescendingDiagonal)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(8, 5, 4);
    Array<T, 2> Q = A, AP(8, 5), F = A;
    Array<T, 1> tau;
    Array<int, 1> jpvt = vectorOf<int>({1, 1, 1, 1, 1}), jpvtOnly; // what stands in it does not matter

    EXPECT_EQ(qxarray::qr(Q, tau, jpvt, 3), 0);
    EXPECT_EQ(qxarray::qr(F, jpvtOnly), 0);

    const Array<T, 2> R = upperTriangle(Q);
    for (unsigned long k = 1; k < 5; ++k)
        EXPECT_LE(std::abs(R(k, k)), std::abs(R(k - 1, k - 1)));
    for (unsigned long j = 0; j < 5; ++j)
        std::copy_n(A.data() + 8 * (jpvt[j] - 1), 8, AP.data() + 8 * j);
    EXPECT_EQ(qxarray::q(Q, tau, 3), 0);
    EXPECT_TRUE(allNear(product(Q, R), AP, 1e-13));
    EXPECT_TRUE(allNear(upperTriangle(F), R, 0.0));
    EXPECT_TRUE(std::equal(jpvt.begin(), jpvt.end(), jpvtOnly.begin()));
}

TYPED_TEST(Factor, EmptyFactorisationsReturnAtOnce)
{
    using T = TypeParam;
    Array<T, 2> A(3, 0), B(0, 2);
    Array<T, 1> tau;
    Array<int, 1> jpvt;

    EXPECT_EQ(qxarray::qr(A, tau, 3), 0);
    EXPECT_EQ(qxarray::q(A, tau, 3), 0);
    EXPECT_EQ(qxarray::qr(B, tau, jpvt, 3), 0);
    EXPECT_EQ(jpvt[0], 1);
    EXPECT_EQ(jpvt[1], 2);
}

TYPED_TEST(Factor, QOfMoreColumnsThanRowsOrReflectorsThanColumnsIsIllegal)
{
    using T = TypeParam;
    Array<T, 2> wide(2, 3), A(3, 2);
    const Array<T, 1> tau(3);

    EXPECT_EQ(qxarray::q(wide, tau, 0), -2);
    EXPECT_EQ(qxarray::q(A, tau, 0), -3);
    EXPECT_EQ(detailOf([&] { qxarray::q(A, tau, 2); }), "Illegal_input_values_in_LAPACK_call");
}

TYPED_TEST(Factor, SvdReproducesAForEveryShapeAndJob)
{
    using T = TypeParam;
    for (const auto& [m, n] : {std::pair(6ul, 4ul), {4ul, 6ul}, {5ul, 5ul}, {1ul, 5ul}, {5ul, 1ul}}) {
        const Array<T, 2> A = randomMatrix<T>(m, n, 5);
        const unsigned long k = std::min(m, n);
        for (const char* job : {"A", "S", "a", "s"}) {
            Array<T, 2> work = A, U, VT;
            Array<double, 1> s;

            EXPECT_EQ(qxarray::svd(job, job, work, U, s, VT, 3), 0);

            EXPECT_EQ(U.extent(1), *job == 'A' || *job == 'a' ? m : k);
            EXPECT_EQ(VT.extent(0), *job == 'A' || *job == 'a' ? n : k);
            EXPECT_TRUE(hasOrthonormalColumns(U));
            EXPECT_TRUE(hasOrthonormalColumns(adjointOf(VT)));
            EXPECT_TRUE(std::is_sorted(s.begin(), s.end(), std::greater<>()));
            Array<T, 2> leading(k, n);
            for (unsigned long j = 0; j < n; ++j)
                for (unsigned long i = 0; i < k; ++i)
                    leading(i, j) = VT(i, j);
            EXPECT_TRUE(allNear(product(timesDiagonal(U, s), leading), A, 1e-13));
        }
    }
}

TYPED_TEST(Factor, SvdWithoutVectorsLeavesUAndVTUntouched)
{
    using T = TypeParam;
    Array<T, 2> A = matrixOf<T>({{3, 0}, {0, -4}}), U = matrixOf<T>({{42}}), VT = matrixOf<T>({{43}});
    Array<double, 1> s;

    EXPECT_EQ(qxarray::svd("N", "N", A, U, s, VT, 3), 0);

    EXPECT_EQ(U(0, 0), T(42));
    EXPECT_EQ(VT(0, 0), T(43));
    EXPECT_TRUE(allNear(s, vectorOf<double>({4, 3}), 1e-14));
}

TYPED_TEST(Factor, SvdCanOverwriteAWithVectors)
{
    using T = TypeParam;
    const Array<T, 2> original = randomMatrix<T>(6, 3, 6);
    Array<T, 2> A = original, none, VT;
    Array<double, 1> s;

    EXPECT_EQ(qxarray::svd("O", "S", A, none, s, VT, 3), 0);

    EXPECT_TRUE(allNear(product(timesDiagonal(A, s), VT), original, 1e-13));
}

TYPED_TEST(Factor, SvdOfOneRowIsItsNorm)
{
    using T = TypeParam;
    Array<T, 2> A = matrixOf<T>({{2, 3, 6}});
    Array<double, 1> s;

    EXPECT_EQ(qxarray::svd(A, s, 3), 0);

    EXPECT_EQ(s.size(), 1u);
    EXPECT_NEAR(s[0], 7.0, 1e-14);
}

TYPED_TEST(Factor, SvdOfAnEmptyMatrixHasIdentitiesAsVectors)
{
    using T = TypeParam;
    Array<T, 2> A(2, 0), U, VT;
    Array<double, 1> s(3);

    EXPECT_EQ(qxarray::svd("A", "A", A, U, s, VT, 3), 0);

    EXPECT_EQ(s.size(), 0u);
    EXPECT_TRUE(sameBits(U, identity<T>(2)));
    EXPECT_EQ(VT.size(), 0u);
}

TYPED_TEST(Factor, SvdRefusesUnknownJobsAndNaN)
{
    using T = TypeParam;
    Array<T, 2> A = identity<T>(2), U, VT;
    Array<double, 1> s;

    EXPECT_EQ(qxarray::svd("X", "N", A, U, s, VT, 1), -1);
    EXPECT_EQ(qxarray::svd("N", "", A, U, s, VT, 1), -2);
    EXPECT_EQ(qxarray::svd("O", "O", A, U, s, VT, 1), -2);
    EXPECT_EQ(detailOf([&] { qxarray::svd("X", "N", A, U, s, VT, 2); }), "Illegal_input_values_in_LAPACK_call");

    A(0, 1) = notANumber;
    EXPECT_EQ(qxarray::svd(A, s, 1), -5);
}

TYPED_TEST(Factor, RankCountsSingularValuesAboveTheLimit)
{
    using T = TypeParam;
    double limit = -1.0;

    EXPECT_EQ(qxarray::rank(matrixOf<T>({{1, 2}, {2, 4}, {3, 6}}), 1e-10, &limit), 1);
    EXPECT_NEAR(limit, 1e-10 * std::sqrt(70.0) * 3.0, 1e-22); // sqrt(1+4+9) sqrt(1+4) = sqrt(70)
    EXPECT_EQ(qxarray::rank(randomMatrix<T>(4, 9, 7), 1e-10), 4);
}

TYPED_TEST(Factor, RankDoesNotCountAValueExactlyAtTheLimit)
{
    using T = TypeParam;
    // Singular values 8 and 4; 0.25 * 8 * 2 = 4 is exact.
    const Array<T, 2> A = matrixOf<T>({{8, 0}, {0, 4}});
    double limit = 0.0;

    EXPECT_EQ(qxarray::rank(A, 0.25, &limit), 1);
    EXPECT_EQ(limit, 4.0);
    EXPECT_EQ(qxarray::rank(A, 0.2499, &limit), 2);
    EXPECT_EQ(A(0, 0), T(8));
}

TYPED_TEST(Factor, RankOfAZeroOrEmptyMatrixIsZero)
{
    using T = TypeParam;
    Array<T, 2> zero(3, 3);
    zero = T(0);
    double limit = 5.0;

    EXPECT_EQ(qxarray::rank(zero, 1e-10, &limit), 0);
    EXPECT_EQ(limit, 0.0);
    limit = 5.0;
    EXPECT_EQ(qxarray::rank(Array<T, 2>(0, 4), 1e-10, &limit), 0);
    EXPECT_EQ(limit, 0.0);
}

TYPED_TEST(Factor, RankOfAMatrixWithNaNRaises)
{
    Array<TypeParam, 2> A = identity<TypeParam>(2);
    A(0, 0) = notANumber;

    EXPECT_EQ(idOf([&] { qxarray::rank(A, 1e-10); }), "Internal_numerical_error");
}

TYPED_TEST(Factor, AllocationFailurePassesThroughAndLeavesTheMatrix)
{
    using T = TypeParam;
    const Array<T, 2> A0 = randomMatrix<T>(6, 4, 8);
    Array<T, 2> A = A0, U, VT;
    Array<T, 1> tau;
    Array<double, 1> s;
    Array<int, 1> jpvt;
    const std::function<void()> operations[] = {
        [&] { qxarray::qr(A, tau, 3); },
        [&] { qxarray::qr(A, tau, jpvt, 3); },
        [&] { qxarray::qr(A, jpvt); },
        [&] { qxarray::svd("A", "A", A, U, s, VT, 3); },
        [&] { qxarray::rank(A, 1e-10); },
    };
    const auto reset = [&] {
        A = A0;
        U = VT = Array<T, 2>();
        tau = Array<T, 1>();
        s = Array<double, 1>();
        jpvt = Array<int, 1>();
    };
    for (const std::function<void()>& operation : operations) {
        reset();
        EXPECT_GT(qxtest::failEveryAllocation(operation,
                                              [&](const qxtest::FaultRun& run) {
                                                  EXPECT_EQ(run.badAlloc, run.faulted);
                                                  EXPECT_TRUE(!run.faulted || sameBits(A, A0));
                                                  reset();
                                              }),
                  0);
    }
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "dense_values.hpp"

namespace {

using namespace densetest;
using qxarray_detail::Lapack;

template <class T>
class Solve : public testing::Test
{
};
using Types = testing::Types<double, cplx>;
TYPED_TEST_SUITE(Solve, Types);

/// A matrix of rank 1 and a right-hand side.
template <class T>
Array<T, 2> singular()
{
    return matrixOf<T>({{1, 2}, {2, 4}});
}

TYPED_TEST(Solve, LinsolvGivesTheBitsOfTheRoutineCalledDirectly)
{
    using T = TypeParam;
    Array<T, 2> A = randomMatrix<T>(17, 17, 1), directA = A, B = randomMatrix<T>(17, 3, 2), directB = B;

    EXPECT_EQ(qxarray::linsolv(A, B, 3), 0);

    const int n = 17, nrhs = 3;
    int info = 0;
    std::vector<int> ipiv(17);
    Lapack<T>::gesv(&n, &nrhs, directA.data(), &n, ipiv.data(), directB.data(), &n, &info);
    EXPECT_TRUE(sameBits(A, directA));
    EXPECT_TRUE(sameBits(B, directB));
}

TYPED_TEST(Solve, LinsolvSolvesOneAndSeveralRightHandSides)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(30, 30, 3), X = randomMatrix<T>(30, 4, 4);
    Array<T, 2> factors = A, B = product(A, X);

    EXPECT_EQ(qxarray::linsolv(factors, B, 3), 0);
    EXPECT_TRUE(allNear(B, X, 1e-11));

    Array<T, 1> x = randomVector<T>(30, 5), b(30);
    const Array<T, 2> Ax = product(A, columnOf(x));
    std::copy(Ax.begin(), Ax.end(), b.begin());
    factors = A;
    EXPECT_EQ(qxarray::linsolv(factors, b, 3), 0);
    EXPECT_TRUE(allNear(b, x, 1e-11));
}

TYPED_TEST(Solve, RequiredQuirkAnEmptyRightHandSideReturnsOneWhateverTheFlags)
{
    using T = TypeParam;
    Array<T, 2> A = singular<T>(), none(0, 0), noColumns(2, 0), noRows(0, 2);
    Array<T, 1> noElements;
    const Array<int, 1> ipiv;
    for (const int flags : {0, 1, 2, 3}) {
        EXPECT_EQ(qxarray::linsolv(A, noColumns, flags), 1);
        EXPECT_EQ(qxarray::linsolv(A, noElements, flags), 1);
        EXPECT_EQ(qxarray::linsolv(none, noRows, flags), 1);
        EXPECT_EQ(qxarray::linsolvsolve(A, ipiv, noColumns, flags), 1);
        EXPECT_EQ(qxarray::linsolvsolve(none, ipiv, noRows, flags), 1);
    }
    EXPECT_TRUE(sameBits(A, singular<T>()));
}

TYPED_TEST(Solve, RequiredQuirkASingularMatrixFillsAllOfBWithNaN)
{
    using T = TypeParam;
    Array<T, 2> A = singular<T>(), B(4, 2); // two rows more than the system has
    B = T(1);

    EXPECT_EQ(qxarray::linsolv(A, B, 0), 2); // the second pivot is zero

    for (const T& b : B) {
        EXPECT_TRUE(std::isnan(std::real(b)));
        EXPECT_TRUE((std::is_same_v<T, double>) || std::isnan(std::imag(b)));
    }
}

TYPED_TEST(Solve, ASingularMatrixRaisesWithTheFirstFlag)
{
    using T = TypeParam;
    Array<T, 2> A = singular<T>();
    Array<T, 1> b = vectorOf<T>({1, 1});

    const qxbase::Exception e = failureOf([&] { qxarray::linsolv(A, b, 1); });

    EXPECT_EQ(e.getId(), "Error_in_LAPACK_call");
    EXPECT_EQ(e.getArgs(0).front().first, "Singular_matrix");
    EXPECT_EQ(e.getFile(0), "arrayutil");
}

TYPED_TEST(Solve, ArgumentsThatDoNotFitRaiseWithTheSecondFlagOnly)
{
    using T = TypeParam;
    Array<T, 2> wide(2, 3), A = identity<T>(3), B(2, 1);
    wide = T(1);
    B = T(7);
    Array<int, 1> shortPivots(2);
    struct Case
    {
        std::function<int(int)> call;
        int info;
    } const cases[] = {
        {[&](int flags) { return qxarray::linsolv(wide, B, flags); }, -1},
        {[&](int flags) { return qxarray::linsolv(A, B, flags); }, -7},
        {[&](int flags) { return qxarray::linsolvsolve(wide, shortPivots, B, flags); }, -2},
        {[&](int flags) { return qxarray::linsolvsolve(A, shortPivots, B, flags); }, -6},
        {[&](int flags) {
             const Array<int, 1> pivots = vectorOf<int>({1, 2, 3});
             return qxarray::linsolvsolve(A, pivots, B, flags);
         },
         -8},
        {[&](int flags) {
             Array<T, 2> X;
             return qxarray::leastSquares(wide, B, X, -1.0, flags);
         },
         -7},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.call(0), c.info);
        EXPECT_EQ(c.call(1), c.info);
        EXPECT_EQ(idOf([&] { c.call(2); }), "Internal_numerical_error");
        EXPECT_EQ(detailOf([&] { c.call(3); }), "Illegal_input_values_in_LAPACK_call");
    }
    EXPECT_EQ(B[0], T(7));
    EXPECT_TRUE(sameBits(A, identity<T>(3)));
}

TYPED_TEST(Solve, LuThenLinsolvsolveEqualsLinsolv)
{
    using T = TypeParam;
    Array<T, 2> A = randomMatrix<T>(12, 12, 6), factors = A, decomposed = A, B = randomMatrix<T>(12, 2, 7), X = B;
    Array<int, 1> ipiv, ipiv2;

    EXPECT_EQ(qxarray::linsolv(A, B, 3), 0);
    EXPECT_EQ(qxarray::lu(factors, ipiv, 3), 0);
    EXPECT_EQ(qxarray::linsolvsolve(factors, ipiv, X, 3), 0);
    EXPECT_EQ(qxarray::linsolvdecomp(decomposed, ipiv2), 0);

    EXPECT_TRUE(allNear(X, B, 1e-13));
    EXPECT_TRUE(sameBits(decomposed, factors));
    EXPECT_TRUE(std::equal(ipiv.begin(), ipiv.end(), ipiv2.begin(), ipiv2.end()));
}

TYPED_TEST(Solve, LuFactorsARectangularMatrix)
{
    using T = TypeParam;
    Array<T, 2> A = matrixOf<T>({{1, 2}, {4, 4}, {2, 8}});
    Array<int, 1> ipiv;

    EXPECT_EQ(qxarray::lu(A, ipiv, 3), 0);

    // By hand: rows ordered 2, 3, 1; multipliers 1/2, 1/4; u22 = 8 - 4/2 = 6, then (2 - 1) / 6.
    EXPECT_TRUE(allNear(A, matrixOf<T>({{4, 4}, {0.5, 6}, {0.25, 1.0 / 6.0}}), 1e-15));
    EXPECT_EQ(ipiv[0], 2);
    EXPECT_EQ(ipiv[1], 3);
}

TYPED_TEST(Solve, LuOfASingularMatrixReturnsTheColumnOrRaises)
{
    using T = TypeParam;
    Array<T, 2> A = singular<T>();
    Array<int, 1> ipiv;

    EXPECT_EQ(qxarray::lu(A, ipiv, 0), 2);
    A = singular<T>();
    EXPECT_EQ(qxarray::linsolvdecomp(A, ipiv), 2);
    A = singular<T>();
    EXPECT_EQ(detailOf([&] { qxarray::lu(A, ipiv, 1); }), "Singular_matrix");
}

TYPED_TEST(Solve, LuOfAnEmptyMatrixHasNoPivots)
{
    Array<TypeParam, 2> A(0, 3);
    Array<int, 1> ipiv(5);

    EXPECT_EQ(qxarray::lu(A, ipiv, 3), 0);
    EXPECT_EQ(ipiv.size(), 0u);
}

TYPED_TEST(Solve, LinsolvsolveSolvesEachSliceOfARankThreeRightHandSide)
{
    using T = TypeParam;
    Array<T, 2> A = randomMatrix<T>(5, 5, 8);
    Array<int, 1> ipiv;
    Array<T, 3> B(5, 2, 3);
    const Array<T, 1> values = randomVector<T>(30, 9);
    std::copy(values.begin(), values.end(), B.begin());
    ASSERT_EQ(qxarray::lu(A, ipiv, 3), 0);

    std::vector<Array<T, 2>> slices;
    for (int k = 0; k < 3; ++k) {
        Array<T, 2> slice(5, 2);
        std::copy_n(B.data() + 10 * k, 10, slice.data());
        ASSERT_EQ(qxarray::linsolvsolve(A, ipiv, slice, 3), 0);
        slices.push_back(slice);
    }
    EXPECT_EQ(qxarray::linsolvsolve(A, ipiv, B, 3), 0);

    for (int k = 0; k < 3; ++k)
        for (int i = 0; i < 10; ++i)
            EXPECT_NEAR(std::abs(B[10 * k + i] - slices[k][i]), 0.0, 1e-13);
}

TYPED_TEST(Solve, CholReproducesAndLeavesTheLowerTriangle)
{
    using T = TypeParam;
    const Array<T, 2> R = upperTriangle(matrixOf<T>({{2, 1, 3}, {0, 4, -1}, {0, 0, 5}}));
    Array<T, 2> A = product(adjointOf(R), R);
    for (int j = 0; j < 3; ++j)
        for (int i = j + 1; i < 3; ++i)
            A(i, j) = T(77);

    EXPECT_EQ(qxarray::chol(A, 1), 0);

    EXPECT_TRUE(allNear(upperTriangle(A), R, 1e-14));
    EXPECT_EQ(A(2, 0), T(77));
    EXPECT_EQ(A(2, 1), T(77));
}

TYPED_TEST(Solve, RequiredQuirkCholsFlagRaisesOnAnyInfo)
{
    using T = TypeParam;
    Array<T, 2> indefinite = matrixOf<T>({{1, 2}, {2, 1}}), wide(1, 2), none;
    const Array<T, 2> original = indefinite;

    EXPECT_EQ(qxarray::chol(indefinite, 0), 2); // the leading minor of order 2 is -3
    for (const int flag : {1, 2, 4, -1}) {
        indefinite = original;
        EXPECT_EQ(idOf([&] { qxarray::chol(indefinite, flag); }), "Input matrix must be positive definite.");
        EXPECT_EQ(idOf([&] { qxarray::chol(wide, flag); }), "Input matrix must be positive definite.");
    }
    EXPECT_LT(qxarray::chol(wide, 0), 0);
    EXPECT_EQ(qxarray::chol(none, 1), 0);
}

TYPED_TEST(Solve, LeastSquaresOverdeterminedMakesTheResidualOrthogonal)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(9, 4, 10), B = randomMatrix<T>(9, 2, 11);
    Array<T, 2> work = A, X;

    EXPECT_EQ(qxarray::leastSquares(work, B, X, -1.0, 3), 0);

    Array<T, 2> residual = product(A, X);
    for (unsigned long i = 0; i < residual.size(); ++i)
        residual[i] = B[i] - residual[i];
    Array<T, 2> zero(4, 2);
    zero = T(0);
    EXPECT_TRUE(allNear(product(adjointOf(A), residual), zero, 1e-13));
}

TYPED_TEST(Solve, LeastSquaresUnderdeterminedTakesTheSmallestSolution)
{
    using T = TypeParam;
    Array<T, 2> A = matrixOf<T>({{3, 4}});
    const Array<T, 1> b = vectorOf<T>({25, 99}); // the second row exists only because n > m
    Array<T, 1> x;

    EXPECT_EQ(qxarray::leastSquares(A, b, x, -1.0, 3), 0);

    EXPECT_TRUE(allNear(x, vectorOf<T>({3, 4}), 1e-14)); // A^H b / |A|^2
    EXPECT_EQ(b[0], T(25));
}

TYPED_TEST(Solve, LeastSquaresOfARankDeficientMatrixTakesTheSmallestSolution)
{
    using T = TypeParam;
    Array<T, 2> A = singular<T>();
    Array<T, 1> x;

    // (1, 2; 2, 4) = u v^T with u = v = (1, 2): x = v (u . b) / (|u|^2 |v|^2) = (1, 2) 15 / 25 for b = (3, 6).
    EXPECT_EQ(qxarray::leastSquares(A, vectorOf<T>({3, 6}), x, 1e-10, 3), 0);

    EXPECT_TRUE(allNear(x, vectorOf<T>({0.6, 1.2}), 1e-14));
}

TYPED_TEST(Solve, LeastSquaresOfEmptyProblems)
{
    using T = TypeParam;
    Array<T, 2> A(3, 2), noRows(0, 2), X;
    A = T(1);

    EXPECT_EQ(qxarray::leastSquares(A, Array<T, 2>(3, 0), X, -1.0, 3), 1);
    EXPECT_EQ(X.extent(0), 2u);
    EXPECT_EQ(X.extent(1), 0u);

    Array<T, 2> B(2, 1);
    B = T(5);
    EXPECT_EQ(qxarray::leastSquares(noRows, B, X, -1.0, 3), 0);
    EXPECT_EQ(X(0, 0), T(0));
    EXPECT_EQ(X(1, 0), T(0));
}

TYPED_TEST(Solve, SystemsWithNaNEnd)
{
    using T = TypeParam;
    Array<T, 2> A = identity<T>(3), X;
    A(1, 1) = notANumber;
    const Array<T, 2> bad = A;
    Array<T, 2> B = identity<T>(3);
    Array<int, 1> ipiv;

    qxarray::linsolv(A, B, 0);
    EXPECT_TRUE(std::isnan(std::real(B(1, 1))));
    A = bad;
    EXPECT_NE(qxarray::chol(A, 0), 0);
    A = bad;
    EXPECT_GE(qxarray::lu(A, ipiv, 0), 0);
    A = bad;
    EXPECT_EQ(qxarray::leastSquares(A, identity<T>(3), X, -1.0, 1), -4);
}

TEST(LeastSquaresQR, SolvesOverAndUnderdeterminedSystems)
{
    Array<double, 2> A, B;
    Array<double, 1> work;

    // The line through (0, 1), (1, 3), (2, 5): 1 + 2 t.
    qxarray::leastSquaresQRResize(3, 2, 1, A, B, work);
    for (int i = 0; i < 3; ++i) {
        A(i, 0) = 1.0;
        A(i, 1) = i;
        B(i, 0) = 1.0 + 2.0 * i;
    }
    EXPECT_EQ(qxarray::leastSquaresQR(3, 2, 1, A, B, work, 3), 0);
    EXPECT_NEAR(B(0, 0), 1.0, 1e-14);
    EXPECT_NEAR(B(1, 0), 2.0, 1e-14);

    qxarray::leastSquaresQRResize(1, 2, 1, A, B, work);
    A(0, 0) = 3.0;
    A(0, 1) = 4.0;
    B(0, 0) = 25.0;
    EXPECT_EQ(qxarray::leastSquaresQR(1, 2, 1, A, B, work, 3), 0);
    EXPECT_NEAR(B(0, 0), 3.0, 1e-14);
    EXPECT_NEAR(B(1, 0), 4.0, 1e-14);
}

TEST(LeastSquaresQR, ReusesItsWorkWithoutAllocation)
{
    Array<double, 2> A, B;
    Array<double, 1> work;
    qxarray::leastSquaresQRResize(20, 5, 2, A, B, work);
    const Array<double, 2> values = randomMatrix<double>(20, 5, 12), rhs = randomMatrix<double>(20, 2, 13);
    A = values;
    B = rhs;
    qxarray::leastSquaresQR(20, 5, 2, A, B, work, 3);

    A = values;
    B = rhs;
    const long before = qxtest::allocationCount();
    EXPECT_EQ(qxarray::leastSquaresQR(20, 5, 2, A, B, work, 3), 0);
    EXPECT_EQ(qxtest::allocationCount(), before);
}

TEST(LeastSquaresQR, UsesTheLeadingBlocksOfLargerArrays)
{
    Array<double, 2> A(5, 4), B(6, 3);
    Array<double, 1> work(100);
    A = 99.0;
    B = 99.0;
    A(0, 0) = 2.0;
    A(0, 1) = A(1, 0) = 0.0;
    A(1, 1) = 4.0;
    B(0, 0) = B(1, 0) = 8.0;

    EXPECT_EQ(qxarray::leastSquaresQR(2, 2, 1, A, B, work, 3), 0);

    EXPECT_NEAR(B(0, 0), 4.0, 1e-14);
    EXPECT_NEAR(B(1, 0), 2.0, 1e-14);
    EXPECT_EQ(B(2, 0), 99.0);
    EXPECT_EQ(B(0, 1), 99.0);
}

TEST(LeastSquaresQR, ReportsEachArgumentThatDoesNotFit)
{
    Array<double, 2> A(2, 2), B(2, 1);
    Array<double, 1> work(100), little(1);

    EXPECT_EQ(qxarray::leastSquaresQR(3, 2, 1, A, B, work, 0), -6);
    EXPECT_EQ(qxarray::leastSquaresQR(2, 2, 2, A, B, work, 0), -8);
    EXPECT_EQ(qxarray::leastSquaresQR(2, 2, 1, A, B, little, 0), -10);
    EXPECT_EQ(qxarray::leastSquaresQR(2, 2, 0, A, B, work, 3), 1);
    EXPECT_EQ(detailOf([&] { qxarray::leastSquaresQR(3, 2, 1, A, B, work, 2); }),
              "Illegal_input_values_in_LAPACK_call");
}

TEST(LeastSquaresQR, AZeroColumnFillsBWithNaNOrRaises)
{
    Array<double, 2> A(2, 2), B(2, 1);
    Array<double, 1> work(100);
    A = 0.0;
    A(0, 0) = 1.0;
    B = 1.0;
    const Array<double, 2> original = A;

    EXPECT_EQ(qxarray::leastSquaresQR(2, 2, 1, A, B, work, 0), 2);
    EXPECT_TRUE(std::isnan(B(0, 0)) && std::isnan(B(1, 0)));

    A = original;
    B = 1.0;
    EXPECT_EQ(detailOf([&] { qxarray::leastSquaresQR(2, 2, 1, A, B, work, 1); }), "Singular_matrix");
}

TEST(LapackSizes, BeyondTheIntegersOfLapackThrow)
{
    EXPECT_EQ(qxarray_detail::lapackInt(2147483647ul), 2147483647);
    EXPECT_THROW(qxarray_detail::lapackInt(2147483648ul), std::bad_alloc);
    EXPECT_EQ(qxarray_detail::workSize(10.0), 10);
    EXPECT_EQ(qxarray_detail::workSize(0.0), 1);
    EXPECT_THROW(qxarray_detail::workSize(2147483648.0), std::bad_alloc);
    EXPECT_THROW(qxarray_detail::workSize(4294967295.0), std::bad_alloc);
    EXPECT_THROW(qxarray_detail::workSize(notANumber), std::bad_alloc);
    EXPECT_THROW(qxarray_detail::workSize(cplx(1e300, 0.0)), std::bad_alloc);
}

TEST(LapackSizes, AnExtentOfAnEmptyMatrixBeyondTheIntegersThrows)
{
    Array<double, 2> A(0, 3000000000ul);
    Array<double, 1> tau;
    Array<int, 1> ipiv;

    EXPECT_THROW(qxarray::qr(A, tau, 0), std::bad_alloc);
    EXPECT_THROW(qxarray::lu(A, ipiv, 0), std::bad_alloc);
}

TYPED_TEST(Solve, AllocationFailurePassesThroughAndLeavesTheMatrices)
{
    using T = TypeParam;
    // Large enough for work arrays that do not stand in the frame.
    const Array<T, 2> A0 = randomMatrix<T>(70, 70, 14), B0 = randomMatrix<T>(70, 2, 15);
    Array<T, 2> A = A0, B = B0, X;
    Array<int, 1> ipiv;
    const std::function<void()> operations[] = {
        [&] { qxarray::linsolv(A, B, 3); },
        [&] { qxarray::lu(A, ipiv, 3); },
        [&] { qxarray::leastSquares(A, B, X, -1.0, 3); },
    };
    for (const std::function<void()>& operation : operations) {
        ipiv = Array<int, 1>();
        X = Array<T, 2>();
        const long allocations = qxtest::failEveryAllocation(operation, [&](const qxtest::FaultRun& run) {
            EXPECT_EQ(run.badAlloc, run.faulted);
            if (run.faulted) {
                EXPECT_TRUE(sameBits(A, A0));
                EXPECT_TRUE(sameBits(B, B0));
            }
            A = A0;
            B = B0;
            ipiv = Array<int, 1>();
            X = Array<T, 2>();
        });
        EXPECT_GT(allocations, 0);
    }
}

TEST(InitializeArray, MayBeCalledTwice)
{
    qxarray::initializeArray();
    qxarray::initializeArray();
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "dense_values.hpp"

namespace {

using namespace densetest;

template <class T>
class Eigen : public testing::Test
{
};
using Types = testing::Types<double, cplx>;
TYPED_TEST_SUITE(Eigen, Types);

/// Eigenvalues of A by the library, as complex numbers in the order they come.
std::vector<cplx> eigenvalues(Array<double, 2> A)
{
    Array<double, 1> wr, wi;
    EXPECT_EQ(qxarray::eig(A, wr, wi, 3), 0);
    std::vector<cplx> w;
    for (unsigned long i = 0; i < wr.size(); ++i)
        w.emplace_back(wr[i], wi[i]);
    return w;
}

std::vector<cplx> eigenvalues(Array<cplx, 2> A)
{
    Array<cplx, 1> w;
    EXPECT_EQ(qxarray::eig(A, w, 3), 0);
    return {w.begin(), w.end()};
}

Array<cplx, 2> complexOf(const Array<double, 2>& A)
{
    Array<cplx, 2> Z(A.extent(0), A.extent(1));
    std::copy(A.begin(), A.end(), Z.begin());
    return Z;
}

std::vector<cplx> sorted(std::vector<cplx> w)
{
    std::sort(w.begin(), w.end(), [](const cplx& a, const cplx& b) {
        return std::abs(a.real() - b.real()) > 1e-8 ? a.real() < b.real() : a.imag() < b.imag();
    });
    return w;
}

testing::AssertionResult sameSet(const std::vector<cplx>& got, const std::vector<cplx>& wanted, double tolerance)
{
    if (got.size() != wanted.size())
        return testing::AssertionFailure() << got.size() << " values, wanted " << wanted.size();
    const std::vector<cplx> a = sorted(got), b = sorted(wanted);
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!(std::abs(a[i] - b[i]) <= tolerance))
            return testing::AssertionFailure() << "value " << i << ": " << a[i] << ", wanted " << b[i];
    return testing::AssertionSuccess();
}

template <class T>
testing::AssertionResult isUnitary(const Array<T, 2>& Q)
{
    return allNear(product(adjointOf(Q), Q), identity<T>(Q.extent(0)), 1e-13);
}

template <class T>
testing::AssertionResult isZeroBelow(const Array<T, 2>& A, unsigned long subdiagonal)
{
    for (unsigned long j = 0; j < A.extent(1); ++j)
        for (unsigned long i = j + subdiagonal + 1; i < A.extent(0); ++i)
            if (A(i, j) != T(0))
                return testing::AssertionFailure() << "element " << i << ", " << j << " is " << A(i, j);
    return testing::AssertionSuccess();
}

/// Complex eigenvector j of a real result, in which a pair shares two columns.
Array<cplx, 2> vectorOfPair(const Array<double, 2>& V, const Array<double, 1>& wi, unsigned long j)
{
    Array<cplx, 2> v(V.extent(0), 1);
    for (unsigned long i = 0; i < V.extent(0); ++i)
        v(i, 0) = wi[j] == 0.0  ? cplx(V(i, j))
                  : wi[j] > 0.0 ? cplx(V(i, j), V(i, j + 1))
                                : cplx(V(i, j - 1), -V(i, j));
    return v;
}

/// The residual B w beta = A v alpha of each pair, with w = v.
testing::AssertionResult isEigenpair(const Array<cplx, 2>& A, const Array<cplx, 2>& B, const Array<cplx, 2>& v,
                                     cplx alpha, cplx beta, double tolerance)
{
    const Array<cplx, 2> Av = product(A, v), Bv = product(B, v);
    double worst = 0.0;
    for (unsigned long i = 0; i < v.size(); ++i)
        worst = std::max(worst, std::abs(beta * Av[i] - alpha * Bv[i]));
    if (worst <= tolerance)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "residual " << worst << " for " << alpha << " / " << beta;
}

TEST(Eig, RealVectorsAreRightAndLeftEigenvectors)
{
    const Array<double, 2> A = randomMatrix<double>(8, 8, 1);
    Array<double, 2> work = A, VL, VR;
    Array<double, 1> wr, wi;

    ASSERT_EQ(qxarray::eig("V", "V", work, wr, wi, VL, VR, 3), 0);

    EXPECT_TRUE(std::any_of(wi.begin(), wi.end(), [](double x) { return x != 0.0; }));
    const Array<cplx, 2> Z = complexOf(A), I = identity<cplx>(8);
    for (unsigned long j = 0; j < 8; ++j) {
        const cplx w(wr[j], wi[j]);
        EXPECT_TRUE(isEigenpair(Z, I, vectorOfPair(VR, wi, j), w, 1.0, 1e-13));
        EXPECT_TRUE(isEigenpair(adjointOf(Z), I, vectorOfPair(VL, wi, j), std::conj(w), 1.0, 1e-13));
    }
}

TEST(Eig, ComplexVectorsAreRightAndLeftEigenvectors)
{
    const Array<cplx, 2> A = randomMatrix<cplx>(7, 7, 2), I = identity<cplx>(7);
    Array<cplx, 2> work = A, VL, VR;
    Array<cplx, 1> w;

    ASSERT_EQ(qxarray::eig("V", "V", work, w, VL, VR, 3), 0);

    for (unsigned long j = 0; j < 7; ++j) {
        Array<cplx, 2> right(7, 1), left(7, 1);
        std::copy_n(VR.data() + 7 * j, 7, right.data());
        std::copy_n(VL.data() + 7 * j, 7, left.data());
        EXPECT_TRUE(isEigenpair(A, I, right, w[j], 1.0, 1e-13));
        EXPECT_TRUE(isEigenpair(adjointOf(A), I, left, std::conj(w[j]), 1.0, 1e-13));
    }
}

TYPED_TEST(Eigen, ValuesOfATriangularMatrixAreItsDiagonal)
{
    using T = TypeParam;

    EXPECT_TRUE(sameSet(eigenvalues(matrixOf<T>({{1, 5, 6}, {0, 2, 7}, {0, 0, -3}})), {1, 2, -3}, 1e-14));
}

TYPED_TEST(Eigen, WithoutVectorsTheirArraysStayAsTheyWere)
{
    using T = TypeParam;
    Array<T, 2> A = identity<T>(2), VL = matrixOf<T>({{8}}), VR = matrixOf<T>({{9}});
    if constexpr (std::is_same_v<T, double>) {
        Array<double, 1> wr, wi;
        EXPECT_EQ(qxarray::eig("N", "N", A, wr, wi, VL, VR, 3), 0);
    } else {
        Array<cplx, 1> w;
        EXPECT_EQ(qxarray::eig("n", "N", A, w, VL, VR, 3), 0);
    }
    EXPECT_EQ(VL(0, 0), T(8));
    EXPECT_EQ(VR(0, 0), T(9));
}

TEST(Eig, ConditionOfAnEigenvalueZeroOverZeroIsZero)
{
    // The second eigenvalue of diag(2, 0) - lambda diag(1, 0) is 0/0.
    for (const bool allZero : {false, true}) {
        Array<double, 2> A = matrixOf<double>({{allZero ? 0.0 : 2.0, 0.0}, {0.0, 0.0}});
        Array<double, 2> B = matrixOf<double>({{allZero ? 0.0 : 1.0, 0.0}, {0.0, 0.0}});
        Array<double, 1> alphar, alphai, beta, rconde;
        double abnrm = 0.0, bbnrm = 0.0;

        EXPECT_EQ(qxarray::eig(A, B, alphar, alphai, beta, &abnrm, &bbnrm, rconde, 0), 0);

        for (unsigned long j = 0; j < 2; ++j)
            if (alphar[j] == 0.0 && beta[j] == 0.0) {
                EXPECT_EQ(rconde[j], 0.0);
            } else {
                EXPECT_GT(rconde[j], 0.0);
            }
    }
}

TEST(Eig, PackedMatrixAndResultsStayWhenMemoryFails)
{
    const Array<double, 1> original = vectorOf<double>({2, 1, 3, 0, 1, 4});
    Array<double, 1> AP, w;
    Array<double, 2> Z;
    Array<int, 1> ifail;
    const auto reset = [&] {
        AP = original;
        w = vectorOf<double>({7.0});
        Z = matrixOf<double>({{8.0}});
        ifail = vectorOf<int>({9});
    };
    reset();
    const long count = qxtest::failEveryAllocation(
        [&] { qxarray::eig(AP, w, Z, "V", "A", "U", 0.0, 0.0, 0, 0, 0.0, ifail); },
        [&](const qxtest::FaultRun& run) {
            if (run.faulted) {
                EXPECT_TRUE(run.badAlloc);
                EXPECT_TRUE(sameBits(AP, original)) << run.n;
                EXPECT_EQ(w[0], 7.0) << run.n;
                EXPECT_EQ(Z[0], 8.0) << run.n;
                EXPECT_EQ(ifail[0], 9) << run.n;
            } else {
                EXPECT_EQ(w.size(), 3u);
            }
            reset();
        });
    EXPECT_GT(count, 5);
}

TEST(Eig, RotationHasAPairWithThePositiveImaginaryPartFirst)
{
    EXPECT_TRUE(sameSet(eigenvalues(matrixOf<double>({{0, -1}, {1, 0}})), {{0, 1}, {0, -1}}, 1e-15));
    EXPECT_GT(eigenvalues(matrixOf<double>({{0, -1}, {1, 0}}))[0].imag(), 0.0);
}

TEST(Eig, EmptyMatricesHaveNoValues)
{
    Array<double, 2> A, B, V;
    Array<double, 1> x(3), y(3), beta(3);
    Array<cplx, 2> Z, W;
    Array<cplx, 1> z(3), zbeta(3);

    EXPECT_EQ(qxarray::eig("V", "V", A, x, y, V, V, 3), 0);
    EXPECT_EQ(qxarray::eig(A, B, x, y, beta, 3), 0);
    EXPECT_EQ(qxarray::eig(Z, z, 3), 0);
    EXPECT_EQ(qxarray::eig(Z, W, z, zbeta, 3), 0);
    EXPECT_EQ(x.size() + y.size() + beta.size() + z.size() + zbeta.size(), 0u);
}

TEST(Eig, ArgumentsThatDoNotFitAreReported)
{
    Array<double, 2> wide(2, 3), A = identity<double>(2), B = identity<double>(3), V;
    Array<double, 1> x, y, z;
    Array<cplx, 2> Z(2, 3);
    Array<cplx, 1> w, beta;

    EXPECT_EQ(qxarray::eig("X", "N", A, x, y, V, V, 1), -1);
    EXPECT_EQ(qxarray::eig("N", "X", A, x, y, V, V, 1), -2);
    EXPECT_EQ(qxarray::eig(wide, x, y, 1), -3);
    EXPECT_EQ(qxarray::eig(A, B, x, y, z, 1), -7);
    EXPECT_EQ(qxarray::eig(Z, w, 1), -3);
    EXPECT_EQ(qxarray::eig(Z, Z, w, beta, 1), -3);
    EXPECT_EQ(detailOf([&] { qxarray::eig(wide, x, y, 2); }), "Illegal_input_values_in_LAPACK_call");
    EXPECT_EQ(detailOf([&] { qxarray::eig(A, B, x, y, z, 3); }), "Illegal_input_values_in_LAPACK_call");
}

TEST(Eig, NoConvergenceRaisesWithTheIteration)
{
    using namespace qxarray_detail;
    struct Case
    {
        Breakdown breakdown;
        const char *id, *key, *value;
    } const cases[] = {
        {svdFailed, "DBDSQR_did_not_converge", "Unconverged_superdiagonals", "7"},
        {qrFailed, "Iteration_in_the_QR_algorithm_failed", "Iteration", "7"},
        {qzFailed, "Iteration_in_the_QZ_algorithm_failed", "Iteration", "7"},
    };
    for (const Case& c : cases) {
        const qxbase::Exception e = failureOf([&] { judge(7, 1, c.breakdown); });
        EXPECT_EQ(e.getId(), c.id);
        EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{c.key, c.value}}));
        EXPECT_EQ(judge(7, 2, c.breakdown), 7);
        EXPECT_EQ(judge(-7, 1, c.breakdown), -7);
        EXPECT_EQ(idOf([&] { judge(-7, 2, c.breakdown); }), "Internal_numerical_error");
    }
}

TEST(Eig, NaNAndInfinityAreIllegalValues)
{
    for (const double bad : {notANumber, infinity}) {
        Array<double, 2> A = randomMatrix<double>(5, 5, 3), B = A, Q;
        A(2, 3) = bad;
        Array<double, 1> x, y, beta, rconde, AP = vectorOf<double>({1, bad, 2}), w;
        Array<int, 1> ifail;
        double abnrm = 0.0, bbnrm = 0.0;

        EXPECT_EQ(qxarray::eig(A, x, y, 1), -3);
        EXPECT_EQ(qxarray::eig(A, B, x, y, beta, 1), -3);
        EXPECT_EQ(qxarray::eig(B, A, x, y, beta, 1), -7);
        EXPECT_EQ(qxarray::eig(A, B, x, y, beta, &abnrm, &bbnrm, rconde, 1), -6);
        EXPECT_EQ(qxarray::eig(B, A, x, y, beta, &abnrm, &bbnrm, rconde, 1), -8);
        EXPECT_EQ(qxarray::eig(AP, w, Q, "N", "A", "U", 0.0, 0.0, 0, 0, 0.0, ifail), -5);
        EXPECT_EQ(qxarray::schur(A, Q, true), -1);
        EXPECT_EQ(idOf([&] { qxarray::eig(A, x, y, 3); }), "Internal_numerical_error");
    }
}

TEST(Roots, OfCoefficientsThatOverflowAreIllegalValues)
{
    Array<double, 1> zr, zi;

    EXPECT_EQ(qxarray::roots(vectorOf<double>({1e-200, 1e200}), zr, zi, 1), -3);
}

TEST(GeneralizedEig, RealVectorsSatisfyThePencil)
{
    const Array<double, 2> A = randomMatrix<double>(6, 6, 4), B = randomMatrix<double>(6, 6, 5);
    Array<double, 2> a = A, b = B, VL, VR;
    Array<double, 1> alphar, alphai, beta;

    ASSERT_EQ(qxarray::eig("V", "V", a, b, alphar, alphai, beta, VL, VR, 3), 0);

    const Array<cplx, 2> ZA = complexOf(A), ZB = complexOf(B);
    for (unsigned long j = 0; j < 6; ++j) {
        const cplx alpha(alphar[j], alphai[j]);
        EXPECT_TRUE(isEigenpair(ZA, ZB, vectorOfPair(VR, alphai, j), alpha, beta[j], 1e-12));
        EXPECT_TRUE(isEigenpair(adjointOf(ZA), adjointOf(ZB), vectorOfPair(VL, alphai, j), std::conj(alpha), beta[j],
                                1e-12));
    }
}

TEST(GeneralizedEig, ComplexVectorsSatisfyThePencil)
{
    const Array<cplx, 2> A = randomMatrix<cplx>(6, 6, 6), B = randomMatrix<cplx>(6, 6, 7);
    Array<cplx, 2> a = A, b = B, VL, VR;
    Array<cplx, 1> alpha, beta;

    ASSERT_EQ(qxarray::eig("V", "V", a, b, alpha, beta, VL, VR, 3), 0);

    for (unsigned long j = 0; j < 6; ++j) {
        Array<cplx, 2> right(6, 1);
        std::copy_n(VR.data() + 6 * j, 6, right.data());
        EXPECT_TRUE(isEigenpair(A, B, right, alpha[j], beta[j], 1e-12));
    }
}

TEST(GeneralizedEig, ASingularBGivesAnInfiniteValue)
{
    Array<double, 2> A = identity<double>(2), B = matrixOf<double>({{2, 0}, {0, 0}});
    Array<double, 1> alphar, alphai, beta;

    ASSERT_EQ(qxarray::eig(A, B, alphar, alphai, beta, 3), 0);

    std::vector<double> values = {alphar[0] / beta[0], alphar[1] / beta[1]};
    std::sort(values.begin(), values.end());
    EXPECT_DOUBLE_EQ(values[0], 0.5);
    EXPECT_EQ(values[1], infinity);
}

TEST(GeneralizedEig, GivesTheBitsOfTheRoutineCalledDirectly)
{
    Array<double, 2> A = randomMatrix<double>(9, 9, 8), B = randomMatrix<double>(9, 9, 9), a = A, b = B;
    Array<double, 1> alphar, alphai, beta;

    ASSERT_EQ(qxarray::eig(A, B, alphar, alphai, beta, 3), 0);

    const int n = 9, one = 1, query = -1;
    int info = 0;
    double size = 0.0;
    std::vector<double> ar(9), ai(9), be(9);
    const qxarray_detail::Lapack<double>::Values values{ar.data(), ai.data()};
    const auto call = [&](double* work, int lwork) {
        qxarray_detail::Lapack<double>::ggev("N", "N", &n, a.data(), &n, b.data(), &n, values, be.data(), nullptr, &one,
                                             nullptr, &one, work, &lwork, nullptr, &info);
    };
    call(&size, query);
    std::vector<double> work(static_cast<std::size_t>(size));
    call(work.data(), static_cast<int>(size));
    EXPECT_TRUE(std::equal(ar.begin(), ar.end(), alphar.begin()));
    EXPECT_TRUE(std::equal(ai.begin(), ai.end(), alphai.begin()));
    EXPECT_TRUE(std::equal(be.begin(), be.end(), beta.begin()));
}

TEST(GeneralizedEig, ExpertFormGivesNormsAndConditionNumbers)
{
    // Diagonal pencil: balancing leaves it alone, eigenvalues 1/2, 3, 2; for normal pencils a value is as well
    // conditioned as sqrt(a^2 + b^2) of its row: rconde is the chordal condition |(a, b)| / (|x| |y|).
    Array<double, 2> A = identity<double>(3), B = identity<double>(3);
    A(1, 1) = 3.0;
    A(2, 2) = 4.0;
    B(0, 0) = 2.0;
    B(2, 2) = 2.0;
    const Array<double, 2> A0 = A, B0 = B;
    Array<double, 1> alphar, alphai, beta, rconde;
    double abnrm = 0.0, bbnrm = 0.0;

    ASSERT_EQ(qxarray::eig(A, B, alphar, alphai, beta, &abnrm, &bbnrm, rconde), 0);

    std::vector<cplx> values;
    for (unsigned long j = 0; j < 3; ++j) {
        values.push_back(alphar[j] / beta[j]);
        EXPECT_NEAR(rconde[j], std::hypot(alphar[j], beta[j]), 1e-13);
    }
    EXPECT_TRUE(sameSet(values, {0.5, 3.0, 2.0}, 1e-14));
    EXPECT_GT(abnrm, 0.0);
    EXPECT_GT(bbnrm, 0.0);
}

TEST(GeneralizedEig, ExpertFormAgreesWithThePlainOne)
{
    Array<double, 2> A = randomMatrix<double>(10, 10, 10), B = randomMatrix<double>(10, 10, 11), a = A, b = B;
    Array<double, 1> ar, ai, be, ar2, ai2, be2, rconde;
    double abnrm = 0.0, bbnrm = 0.0;

    ASSERT_EQ(qxarray::eig(A, B, ar, ai, be, 3), 0);
    ASSERT_EQ(qxarray::eig(a, b, ar2, ai2, be2, &abnrm, &bbnrm, rconde), 0);

    std::vector<cplx> plain, expert;
    for (unsigned long j = 0; j < 10; ++j) {
        plain.push_back(cplx(ar[j], ai[j]) / be[j]);
        expert.push_back(cplx(ar2[j], ai2[j]) / be2[j]);
        EXPECT_GT(rconde[j], 0.0);
    }
    EXPECT_TRUE(sameSet(expert, plain, 1e-10));
}

TEST(GeneralizedEig, ExpertFormRefusesShapesAndTakesEmptyOnes)
{
    Array<double, 2> A(2, 3), B = identity<double>(2), none;
    Array<double, 1> x, y, beta, rconde(2);
    double abnrm = 1.0, bbnrm = 1.0;

    EXPECT_EQ(qxarray::eig(A, B, x, y, beta, &abnrm, &bbnrm, rconde, 0), -6);
    EXPECT_EQ(qxarray::eig(B, A, x, y, beta, &abnrm, &bbnrm, rconde, 0), -8);
    EXPECT_EQ(idOf([&] { qxarray::eig(A, B, x, y, beta, &abnrm, &bbnrm, rconde); }), "Internal_numerical_error");
    EXPECT_EQ(qxarray::eig(none, none, x, y, beta, &abnrm, &bbnrm, rconde), 0);
    EXPECT_EQ(abnrm, 0.0);
    EXPECT_EQ(rconde.size(), 0u);
}

/// Packed upper triangle of the second difference matrix, eigenvalues 2 - 2 cos(k pi / (n + 1)).
Array<double, 1> packedLaplacian(unsigned long n)
{
    Array<double, 1> AP(n * (n + 1) / 2);
    unsigned long k = 0;
    for (unsigned long j = 0; j < n; ++j)
        for (unsigned long i = 0; i <= j; ++i)
            AP[k++] = i == j ? 2.0 : i + 1 == j ? -1.0 : 0.0;
    return AP;
}

double laplacianValue(unsigned long n, unsigned long k)
{
    return 2.0 - 2.0 * std::cos(static_cast<double>(k) * std::acos(-1.0) / static_cast<double>(n + 1));
}

TEST(PackedEig, AllValuesAndVectors)
{
    const unsigned long n = 6;
    Array<double, 1> AP = packedLaplacian(n), w;
    Array<double, 2> Z;
    Array<int, 1> ifail;

    ASSERT_EQ(qxarray::eig(AP, w, Z, "V", "A", "U", 0.0, 0.0, 0, 0, 0.0, ifail), 0);

    ASSERT_EQ(w.size(), n);
    for (unsigned long k = 0; k < n; ++k) {
        EXPECT_NEAR(w[k], laplacianValue(n, k + 1), 1e-14);
        EXPECT_EQ(ifail[k], 0);
    }
    EXPECT_TRUE(isUnitary(Z));
}

TEST(PackedEig, ByIndexAndByInterval)
{
    const unsigned long n = 6;
    Array<double, 1> AP = packedLaplacian(n), w;
    Array<double, 2> Z;
    Array<int, 1> ifail;

    ASSERT_EQ(qxarray::eig(AP, w, Z, "V", "I", "U", 0.0, 0.0, 2, 3, 0.0, ifail), 0);
    ASSERT_EQ(w.size(), 2u);
    EXPECT_EQ(Z.extent(1), 2u);
    EXPECT_NEAR(w[1], laplacianValue(n, 3), 1e-14);

    AP = packedLaplacian(n);
    ASSERT_EQ(qxarray::eig(AP, w, Z, "N", "V", "U", 2.0, 5.0, 0, 0, 0.0, ifail), 0);
    ASSERT_EQ(w.size(), 3u); // the spectrum is symmetric about 2
    EXPECT_NEAR(w[0], laplacianValue(n, 4), 1e-14);
}

TEST(PackedEig, ReportsEachArgumentThatDoesNotFit)
{
    Array<double, 1> AP = packedLaplacian(3), four(4), none, w;
    Array<double, 2> Z;
    Array<int, 1> ifail;
    const auto call = [&](Array<double, 1>& ap, const char* jobz, const char* range, const char* uplo, int il, int iu) {
        return qxarray::eig(ap, w, Z, jobz, range, uplo, 1.0, 0.0, il, iu, 0.0, ifail);
    };

    EXPECT_EQ(call(AP, "X", "A", "U", 0, 0), -1);
    EXPECT_EQ(call(AP, "N", "X", "U", 0, 0), -2);
    EXPECT_EQ(call(AP, "N", "A", "X", 0, 0), -3);
    EXPECT_EQ(call(four, "N", "A", "U", 0, 0), -4);
    EXPECT_EQ(call(AP, "N", "V", "U", 0, 0), -7);
    EXPECT_EQ(call(AP, "N", "I", "U", 0, 2), -8);
    EXPECT_EQ(call(AP, "N", "I", "U", 2, 4), -9);
    EXPECT_EQ(call(none, "V", "A", "U", 0, 0), 0);
    EXPECT_EQ(w.size(), 0u);
}

TYPED_TEST(Eigen, SchurReproducesA)
{
    using T = TypeParam;
    for (const unsigned long n : {1ul, 2ul, 3ul, 12ul}) {
        const Array<T, 2> A = randomMatrix<T>(n, n, 12);
        Array<T, 2> Tri = A, Q, only = A, untouched = matrixOf<T>({{5}});

        EXPECT_EQ(qxarray::schur(Tri, Q, true), 0);
        EXPECT_EQ(qxarray::schur(only, untouched, false), 0);

        EXPECT_TRUE(isUnitary(Q));
        EXPECT_TRUE(isZeroBelow(Tri, std::is_same_v<T, double> ? 1 : 0));
        EXPECT_TRUE(allNear(product(product(Q, Tri), adjointOf(Q)), A, 1e-13));
        EXPECT_TRUE(sameSet(eigenvalues(only), eigenvalues(A), 1e-12));
        EXPECT_EQ(untouched(0, 0), T(5));
    }
}

TYPED_TEST(Eigen, OrdschurMovesTheSelectedValuesToTheFront)
{
    using T = TypeParam;
    const unsigned long n = 6;
    const Array<T, 2> A = upperTriangle(randomMatrix<T>(n, n, 13));
    Array<T, 2> Tri = A, Q = identity<T>(n), alone = A, none;
    for (unsigned long i = 0; i < n; ++i)
        Tri(i, i) = alone(i, i) = T(static_cast<double>(i));
    const Array<T, 2> start = Tri;
    Array<int, 1> select = vectorOf<int>({0, 0, 1, 0, 7, 1}); // any value but 0 selects

    EXPECT_EQ(qxarray::ordschur(Tri, Q, select), 0);
    EXPECT_EQ(qxarray::ordschur(alone, none, select), 0);

    EXPECT_NEAR(std::abs(Tri(0, 0) - T(2)), 0.0, 1e-13);
    EXPECT_NEAR(std::abs(Tri(1, 1) - T(4)), 0.0, 1e-13);
    EXPECT_NEAR(std::abs(Tri(2, 2) - T(5)), 0.0, 1e-13);
    EXPECT_TRUE(isUnitary(Q));
    EXPECT_TRUE(allNear(product(product(Q, Tri), adjointOf(Q)), start, 1e-12));
    EXPECT_TRUE(allNear(alone, Tri, 1e-13));
}

TYPED_TEST(Eigen, OrdschurRefusesShapesThatDoNotFit)
{
    using T = TypeParam;
    Array<T, 2> Tri = identity<T>(2), wide(2, 3), Q = identity<T>(3), none;
    const Array<int, 1> select = vectorOf<int>({1, 0}), one = vectorOf<int>({1});

    EXPECT_EQ(qxarray::ordschur(Tri, none, one), -3);
    EXPECT_EQ(qxarray::ordschur(wide, none, select), -4);
    EXPECT_EQ(qxarray::ordschur(Tri, Q, select), -8);
    EXPECT_EQ(qxarray::ordschur(none, none, one), 0);
}

TYPED_TEST(Eigen, HessReproducesA)
{
    using T = TypeParam;
    for (const unsigned long n : {1ul, 2ul, 9ul}) {
        const Array<T, 2> A = randomMatrix<T>(n, n, 14);
        Array<T, 2> H = A, Q, only = A, untouched;

        EXPECT_EQ(qxarray::hess(H, Q, true), 0);
        EXPECT_EQ(qxarray::hess(only, untouched, false), 0);

        EXPECT_TRUE(isUnitary(Q));
        EXPECT_TRUE(isZeroBelow(H, 1));
        EXPECT_TRUE(allNear(product(product(Q, H), adjointOf(Q)), A, 1e-13));
        EXPECT_TRUE(sameBits(only, H));
        EXPECT_EQ(untouched.size(), 0u);
    }
}

TYPED_TEST(Eigen, GeneralizedHessReproducesBothForFullAndTriangularB)
{
    using T = TypeParam;
    const unsigned long n = 7;
    const Array<T, 2> A = randomMatrix<T>(n, n, 15), full = randomMatrix<T>(n, n, 16);
    for (const Array<T, 2>& B : {full, upperTriangle(full)}) {
        Array<T, 2> H = A, R = B, Q, Z;

        EXPECT_EQ(qxarray::generalizedHess(H, R, Q, Z), 0);

        EXPECT_TRUE(isUnitary(Q));
        EXPECT_TRUE(isUnitary(Z));
        EXPECT_TRUE(isZeroBelow(H, 1));
        EXPECT_TRUE(isZeroBelow(R, 0));
        EXPECT_TRUE(allNear(product(product(Q, H), adjointOf(Z)), A, 1e-13));
        EXPECT_TRUE(allNear(product(product(Q, R), adjointOf(Z)), B, 1e-13));
    }
}

TYPED_TEST(Eigen, ReductionsRefuseShapesThatDoNotFitAndTakeEmptyOnes)
{
    using T = TypeParam;
    Array<T, 2> wide(2, 3), two = identity<T>(2), Q, Z, none;

    EXPECT_EQ(qxarray::schur(wide, Q, true), -1);
    EXPECT_EQ(qxarray::hess(wide, Q, true), -1);
    EXPECT_EQ(qxarray::generalizedHess(wide, two, Q, Z), -3);
    EXPECT_EQ(qxarray::generalizedHess(two, wide, Q, Z), -9);
    EXPECT_EQ(qxarray::schur(none, Q, true), 0);
    EXPECT_EQ(qxarray::hess(none, Q, true), 0);
    EXPECT_EQ(qxarray::generalizedHess(none, none, Q, Z), 0);
    EXPECT_EQ(Q.size(), 0u);
}

std::vector<cplx> rootsOf(std::initializer_list<double> coefficients)
{
    Array<double, 1> zr, zi;
    EXPECT_EQ(qxarray::roots(vectorOf(coefficients), zr, zi, 3), 0);
    std::vector<cplx> z;
    for (unsigned long i = 0; i < zr.size(); ++i)
        z.emplace_back(zr[i], zi[i]);
    return z;
}

TEST(Roots, OfSmallPolynomials)
{
    EXPECT_TRUE(sameSet(rootsOf({1, -6, 11, -6}), {1, 2, 3}, 1e-13)); // (x-1)(x-2)(x-3)
    EXPECT_TRUE(sameSet(rootsOf({1, 0, 1}), {{0, 1}, {0, -1}}, 1e-15));
    EXPECT_TRUE(sameSet(rootsOf({2, -3}), {1.5}, 0.0));
    EXPECT_TRUE(sameSet(rootsOf({0, 0, 2, -3}), {1.5}, 0.0)); // leading zeros
    EXPECT_TRUE(sameSet(rootsOf({1, 0, 0}), {0, 0}, 0.0));
    EXPECT_TRUE(rootsOf({5}).empty());
    EXPECT_TRUE(rootsOf({0}).empty());
    EXPECT_TRUE(rootsOf({}).empty());
}

TEST(Roots, AreTheEigenvaluesOfTheCompanionMatrix)
{
    EXPECT_TRUE(sameSet(rootsOf({2, 4, -6, 8}), eigenvalues(matrixOf<double>({{-2, 3, -4}, {1, 0, 0}, {0, 1, 0}})), 0.0));
}

TEST(Roots, OfComplexPolynomials)
{
    Array<cplx, 1> z;

    // (x - i)(x - 2) = x^2 - (2 + i) x + 2i
    ASSERT_EQ(qxarray::roots(vectorOf<cplx>({0, 1, {-2, -1}, {0, 2}}), z, 3), 0);

    EXPECT_TRUE(sameSet({z.begin(), z.end()}, {{0, 1}, 2}, 1e-14));
}

TYPED_TEST(Eigen, AllocationFailurePassesThroughAndLeavesTheMatrices)
{
    using T = TypeParam;
    const Array<T, 2> A0 = randomMatrix<T>(5, 5, 17), B0 = randomMatrix<T>(5, 5, 18);
    Array<T, 2> A = A0, B = B0, Q, Z;
    const auto eig = [&] {
        if constexpr (std::is_same_v<T, double>) {
            Array<double, 1> wr, wi;
            qxarray::eig("V", "V", A, wr, wi, Q, Z, 3);
        } else {
            Array<cplx, 1> w;
            qxarray::eig("V", "V", A, w, Q, Z, 3);
        }
    };
    const auto pencil = [&] {
        Array<T, 1> beta;
        if constexpr (std::is_same_v<T, double>) {
            Array<double, 1> ar, ai;
            qxarray::eig("V", "V", A, B, ar, ai, beta, Q, Z, 3);
        } else {
            Array<cplx, 1> alpha;
            qxarray::eig("V", "V", A, B, alpha, beta, Q, Z, 3);
        }
    };
    const std::function<void()> operations[] = {
        eig,
        pencil,
        [&] { qxarray::schur(A, Q, true); },
        [&] { qxarray::hess(A, Q, true); },
        [&] { qxarray::generalizedHess(A, B, Q, Z); },
    };
    for (const std::function<void()>& operation : operations) {
        Q = Z = Array<T, 2>();
        EXPECT_GT(qxtest::failEveryAllocation(operation,
                                              [&](const qxtest::FaultRun& run) {
                                                  EXPECT_EQ(run.badAlloc, run.faulted);
                                                  if (run.faulted) {
                                                      EXPECT_TRUE(sameBits(A, A0));
                                                      EXPECT_TRUE(sameBits(B, B0));
                                                  }
                                                  A = A0;
                                                  B = B0;
                                                  Q = Z = Array<T, 2>();
                                              }),
                  0);
    }
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "krylov.hpp"

#include "arrayutil.hpp"
#include "dense/gmres_detail.hpp"
#include "dense_values.hpp"

#include <array>
#include <sstream>

using namespace densetest;

namespace {

template <class T>
Matrix<1> vectorOf(const Array<T, 1>& x)
{
    return Matrix<1>(boost::make_shared<Array<T, 1>>(x));
}

template <class T>
Matrix<2> matrixOf(const Array<T, 2>& A)
{
    return Matrix<2>(boost::make_shared<Array<T, 2>>(A));
}

/// Random with a heavy diagonal: GMRES converges in a few dozen steps.
template <class T>
Array<T, 2> dominant(unsigned long n, unsigned seed)
{
    Array<T, 2> A = randomMatrix<T>(n, n, seed);
    for (unsigned long i = 0; i < n; ++i)
        A(i, i) += T(0.2 * static_cast<double>(n));
    return A;
}

/// A x - b by plain loops.
template <class T>
Array<T, 1> residual(const Array<T, 2>& A, const Array<T, 1>& x, const Array<T, 1>& b)
{
    Array<T, 1> r(b.size());
    for (unsigned long i = 0; i < b.size(); ++i) {
        r[i] = -b[i];
        for (unsigned long j = 0; j < x.size(); ++j)
            r[i] += A(i, j) * x[j];
    }
    return r;
}

template <class T>
double norm2(const Array<T, 1>& x)
{
    double sum = 0.0;
    for (const T& v : x)
        sum += std::norm(v);
    return std::sqrt(sum);
}

/// One run of the solver's inside, with the estimates of the first cycle.
template <class T>
std::vector<double> estimates(const Array<T, 2>& A, const Array<T, 1>& b, Array<T, 1> x, int m)
{
    std::vector<double> found;
    qxarray_detail::Gmres<T> solver(b.size(), static_cast<unsigned long>(m), vectorOf(b));
    solver.solve(
        [&](const T* v, T* y) {
            for (unsigned long j = 0; j < b.size(); ++j)
                for (unsigned long i = 0; i < b.size(); ++i)
                    y[i] += A(i, j) * v[j];
        },
        x, 1e-300, 1.0, m, [&](unsigned long, double estimate) { found.push_back(estimate); });
    return found;
}

struct Outcome
{
    int status;
    Matrix<1> x;
    double flops;
};

Outcome solved(const Matrix<2>& A, const Matrix<1>& b, double tol, int m, int maxIts, double scale = 1.0)
{
    Outcome r{0, Matrix<1>(b.size(), true), 0.0};
    r.status = gmres(A, b, r.x, tol, m, scale, maxIts, r.flops);
    return r;
}

template <class T>
Array<T, 1> numbersOf(const Matrix<1>& x)
{
    if constexpr (std::is_same_v<T, double>)
        return x.gethdArr();
    else
        return x.gethzArr();
}

Array<double, 2> identity(unsigned long n)
{
    Array<double, 2> I(n, n);
    I = 0.0;
    for (unsigned long i = 0; i < n; ++i)
        I(i, i) = 1.0;
    return I;
}

Array<double, 1> zeros(unsigned long n)
{
    Array<double, 1> x(n);
    x = 0.0;
    return x;
}

/// All elements of each array.
template <class T, class... A>
void fill(const T& value, A&... arrays)
{
    ((arrays = value), ...);
}

/// What act writes to the standard output.
template <class Act>
std::string printed(Act act)
{
    testing::internal::CaptureStdout();
    act();
    return testing::internal::GetCapturedStdout();
}

template <class T>
class Krylov : public testing::Test
{
};
using ElementTypes = testing::Types<double, cplx>;
TYPED_TEST_SUITE(Krylov, ElementTypes);

} // namespace

// ---- the parts

TYPED_TEST(Krylov, GramSchmidtLeavesWOrthogonalAndWritesItsCoefficients)
{
    using T = TypeParam;
    Array<T, 2> Q = randomMatrix<T>(40, 5, 1);
    Array<T, 1> tau;
    qxarray::qr(Q, tau, 3);
    qxarray::q(Q, tau, 3);
    const Array<T, 1> w0 = randomVector<T>(40, 2);
    Array<T, 1> w = w0;
    Array<T, 2> H(6, 5);
    H = T(-777);

    qxarray::gramSchmidt(H, w, Q, 3);

    for (unsigned long i = 0; i < 4; ++i) {
        T dot(0), left(0);
        for (unsigned long k = 0; k < 40; ++k) {
            dot += conjugate(Q(k, i)) * w0[k];
            left += conjugate(Q(k, i)) * w[k];
        }
        EXPECT_NEAR(std::abs(H(i, 3) - dot), 0.0, 1e-14);
        EXPECT_NEAR(std::abs(left), 0.0, 1e-14);
    }
    EXPECT_EQ(H(4, 3), T(-777));
    EXPECT_EQ(H(0, 2), T(-777));
}

TYPED_TEST(Krylov, GramSchmidtIsModifiedAndOnePass)
{
    using T = TypeParam;
    // Two vectors that are far from orthogonal show the order of work.
    Array<T, 2> V(2, 2), H(2, 2);
    V(0, 0) = T(1), V(1, 0) = T(0), V(0, 1) = T(0.5), V(1, 1) = T(0.5);
    Array<T, 1> w(2);
    w[0] = T(3), w[1] = T(1);

    qxarray::gramSchmidt(H, w, V, 1);

    EXPECT_EQ(H(0, 1), T(3));
    EXPECT_EQ(H(1, 1), T(0.5)); // of w without its first part, not of w: that would be 2
    EXPECT_EQ(w[0], T(-0.25));
    EXPECT_EQ(w[1], T(0.75));
}

TYPED_TEST(Krylov, GramSchmidtOnMatrixColumnsAndListsIsTheSame)
{
    using T = TypeParam;
    for (const unsigned long n : {7ul, 300ul, 20000ul}) {
        const Array<T, 2> V = randomMatrix<T>(n, 4, 3);
        MultiTree<Array<T, 1>, 1> list(4);
        MultiTree<Matrix<1>, 1> matrices(4);
        for (unsigned long j = 0; j < 4; ++j) {
            list[j].resize(n);
            std::copy_n(&V(0, j), n, list[j].data());
            matrices[j] = vectorOf(list[j]);
        }
        const Array<T, 1> w = randomVector<T>(n, 4);
        Array<T, 2> H(4, 4);
        H = T(0);
        Array<T, 2> Hlist = H;
        Array<T, 1> wColumns = w, wList = w;
        Matrix<2> HofM = matrixOf(H), HofMatrices = matrixOf(H);
        Matrix<1> wOfM = vectorOf(w), wOfMatrices = vectorOf(w);

        qxarray::gramSchmidt(H, wColumns, V, 3);
        qxarray::gramSchmidt(Hlist, wList, list, 3);
        gramSchmidt(HofM, wOfM, matrixOf(V), 3);
        gramSchmidt(HofMatrices, wOfMatrices, matrices, 3);

        EXPECT_TRUE(sameBits(Hlist, H));
        EXPECT_TRUE(sameBits(wList, wColumns));
        for (unsigned long i = 0; i < n; i += 97) {
            EXPECT_EQ(wOfM[i], cplx(wColumns[i]));
            EXPECT_EQ(wOfMatrices[i], cplx(wColumns[i]));
        }
        for (unsigned long i = 0; i < 4; ++i) {
            EXPECT_EQ(HofM[12 + i], cplx(H(i, 3)));
            EXPECT_EQ(HofMatrices[12 + i], cplx(H(i, 3)));
        }
    }
}

TYPED_TEST(Krylov, GramSchmidtAgreesWithPlainLoops)
{
    using T = TypeParam;
    const unsigned long n = 8192 * 2 + 5;
    const Array<T, 2> V = randomMatrix<T>(n, 3, 5);
    Array<T, 1> w = randomVector<T>(n, 6), plain = w;
    Array<T, 2> H(3, 3);

    qxarray::gramSchmidt(H, w, V, 2);

    for (unsigned long i = 0; i < 3; ++i) {
        T h(0);
        for (unsigned long k = 0; k < n; ++k)
            h += conjugate(V(k, i)) * plain[k];
        EXPECT_NEAR(std::abs(H(i, 2) - h), 0.0, 1e-9);
        for (unsigned long k = 0; k < n; ++k)
            plain[k] -= H(i, 2) * V(k, i);
    }
    EXPECT_TRUE(allNear(w, plain, 1e-9));
}

TYPED_TEST(Krylov, GramSchmidtRefusesSizesThatDoNotFit)
{
    using T = TypeParam;
    Array<T, 2> H(3, 3), low(2, 3), V(4, 3);
    fill(T(1), H, low, V);
    Array<T, 1> w(4), shorter(3);
    fill(T(1), w, shorter);
    MultiTree<Array<T, 1>, 1> list(3);
    for (unsigned long j = 0; j < 3; ++j)
        list[j] = w;

    EXPECT_EQ(detailOf([&] { qxarray::gramSchmidt(H, w, V, 3); }), "Column index out of bounds.");
    EXPECT_EQ(detailOf([&] { qxarray::gramSchmidt(H, w, list, 3); }), "Column index out of bounds.");
    EXPECT_EQ(detailOf([&] { qxarray::gramSchmidt(low, w, V, 2); }), "Size of input mismatch.");
    EXPECT_EQ(detailOf([&] { qxarray::gramSchmidt(H, shorter, V, 2); }), "Size of input mismatch.");
    EXPECT_EQ(detailOf([&] { qxarray::gramSchmidt(H, shorter, list, 2); }), "Size of input mismatch.");
    EXPECT_EQ(idOf([&] { qxarray::gramSchmidt(H, w, V, 3); }), "Internal_numerical_error");
    EXPECT_EQ(w[0], T(1));
}

TYPED_TEST(Krylov, GivensRotAppliesTheStoredRotations)
{
    using T = TypeParam;
    Array<T, 2> H = randomMatrix<T>(4, 4, 7);
    const Array<T, 2> before = H;
    Array<T, 1> c(3), s(3);
    for (unsigned long i = 0; i < 3; ++i) {
        c[i] = T(0.6);
        s[i] = T(0.8);
        if constexpr (std::is_same_v<T, cplx>)
            s[i] = std::polar(0.8, 0.3 * static_cast<double>(i) + 0.2);
    }

    const T out = qxarray::givensRot(H, c, s, 3);

    T t = before(0, 3);
    for (unsigned long i = 0; i < 3; ++i) {
        const T u = before(i + 1, 3);
        EXPECT_NEAR(std::abs(H(i, 3) - (c[i] * t - conjugate(s[i]) * u)), 0.0, 1e-15);
        t = c[i] * u + s[i] * t;
    }
    EXPECT_NEAR(std::abs(out - t), 0.0, 1e-15);
    EXPECT_EQ(H(3, 3), before(3, 3)); // left to the caller
    EXPECT_EQ(H(0, 2), before(0, 2));
}

TYPED_TEST(Krylov, GivensRotRefusesSizesThatDoNotFit)
{
    using T = TypeParam;
    Array<T, 2> H(3, 3), low(2, 3);
    fill(T(1), H, low);
    Array<T, 1> two(2), three(3), one(1);
    fill(T(0.5), two, three, one);

    EXPECT_EQ(detailOf([&] { qxarray::givensRot(H, three, three, 3); }), "Column index out of bounds.");
    EXPECT_EQ(detailOf([&] { qxarray::givensRot(H, two, three, 2); }), "Size of input mismatch.");
    EXPECT_EQ(detailOf([&] { qxarray::givensRot(H, one, one, 2); }), "Size of input mismatch.");
    EXPECT_EQ(detailOf([&] { qxarray::givensRot(low, two, two, 2); }), "Size of input mismatch.");
    EXPECT_EQ(qxarray::givensRot(H, one, one, 0), T(1));
}

TEST(KrylovMatrix, MixedTypesAreRefused)
{
    Matrix<2> H(2, 2, true), Hz(2, 2, false);
    const Matrix<2> V(3, 2, true);
    Matrix<1> w(3, true), wz(3, false), c(2, true), cz(2, false), x(2, true);
    MultiTree<Matrix<1>, 1> list(2);
    list[0] = w;
    list[1] = wz;

    EXPECT_EQ(detailOf([&] { gramSchmidt(H, wz, V, 0); }), "Types must agree.");
    EXPECT_EQ(detailOf([&] { gramSchmidt(Hz, wz, V, 0); }), "Types must agree.");
    EXPECT_EQ(detailOf([&] { gramSchmidt(H, w, list, 1); }), "Types must agree.");
    EXPECT_EQ(detailOf([&] { gramSchmidt(Hz, w, list, 0); }), "Types must agree.");
    EXPECT_EQ(detailOf([&] { givensRot(H, c, cz, 0); }), "Types must agree.");
    EXPECT_EQ(detailOf([&] { givensRot(Hz, c, c, 0); }), "Types must agree.");
    EXPECT_EQ(detailOf([&] { triSolve(Hz, x, true, NoTrans, 2); }), "triSolve: Mixed real and complex case not implemented.");
    EXPECT_EQ(idOf([&] { triSolve(Hz, x, true, NoTrans, 2); }), "Internal_numerical_error");
    EXPECT_TRUE(H.isReal() && w.isReal() && x.isReal());
}

TYPED_TEST(Krylov, TriSolveOnMatricesTakesEveryTranspose)
{
    using T = TypeParam;
    Array<T, 2> R = upperTriangle(dominant<T>(6, 8));
    const Array<T, 1> b = randomVector<T>(6, 9);
    for (const Trans_t trans : {NoTrans, Trans, ConjTrans}) {
        Matrix<1> x = vectorOf(b);

        triSolve(matrixOf(R), x, true, trans, 6);

        for (unsigned long i = 0; i < 6; ++i) {
            cplx sum(0);
            for (unsigned long j = 0; j < 6; ++j)
                sum += cplx(trans == NoTrans ? R(i, j) : trans == Trans ? R(j, i) : conjugate(R(j, i))) * x[j];
            EXPECT_NEAR(std::abs(sum - cplx(b[i])), 0.0, 1e-14) << trans;
        }
    }
}

TEST(MultiTree, CopiesShareTheirVectors)
{
    MultiTree<Array<double, 1>, 1> a(3);
    MultiTree<Array<double, 1>, 1> b = a;

    b[1].resize(4ul);

    EXPECT_EQ(a.size(), 3u);
    EXPECT_EQ(a[1].size(), 4u);
    EXPECT_EQ((MultiTree<Matrix<1>, 1>().size()), 0u);
}

// ---- products that count

TEST(CountedProduct, AddsForEveryPairOfTypesAndTranspose)
{
    const Array<double, 2> Ad = randomMatrix<double>(5, 4, 1);
    const Array<cplx, 2> Az = randomMatrix<cplx>(5, 4, 2);
    for (const bool realA : {true, false})
        for (const bool realX : {true, false})
            for (const bool realY : {true, false})
                for (const Trans_t trans : {NoTrans, Trans, ConjTrans})
                    for (const auto& [m, n] : {std::pair(-1, -1), std::pair(3, 2), std::pair(0, 0), std::pair(5, 0)}) {
                        const Matrix<2> A = realA ? matrixOf(Ad) : matrixOf(Az);
                        const Matrix<1> x = realX ? vectorOf(randomVector<double>(5, 3)) : vectorOf(randomVector<cplx>(5, 4));
                        Matrix<1> y = realY ? vectorOf(randomVector<double>(5, 5)) : vectorOf(randomVector<cplx>(5, 6));
                        const Matrix<1> y0 = y;
                        double flops = 1.0;

                        yPlusAMulx(y, A, x, flops, trans, m, n);

                        const unsigned long rows = m < 0 ? 5 : static_cast<unsigned long>(m);
                        const unsigned long columns = n < 0 ? 4 : static_cast<unsigned long>(n);
                        EXPECT_EQ(y.isReal(), realY && realA && realX);
                        EXPECT_EQ(flops, 1.0 + (realA && realX ? 2.0 : realA || realX ? 4.0 : 8.0) * double(rows * columns));
                        for (unsigned long i = 0; i < 5; ++i) {
                            cplx sum = y0[i];
                            for (unsigned long j = 0; j < 5; ++j)
                                if (trans == NoTrans ? i < rows && j < columns : j < rows && i < columns) {
                                    const cplx a = trans == NoTrans ? A[i + 5 * j] : A[j + 5 * i];
                                    sum += (trans == ConjTrans ? std::conj(a) : a) * x[j];
                                }
                            EXPECT_NEAR(std::abs(y[i] - sum), 0.0, 1e-15) << realA << realX << realY << trans << m << n;
                        }
                    }
}

TEST(CountedProduct, RefusesSizesThatDoNotFitAndLeavesY)
{
    const Matrix<2> A = matrixOf(randomMatrix<cplx>(3, 2, 1));
    Matrix<1> y(3, true);
    const Matrix<1> x(2, true);
    double flops = 5.0;

    EXPECT_EQ(detailOf([&] { yPlusAMulx(y, A, x, flops, NoTrans, 4, 2); }), "yPlusAMulx: Size of A less than required by m and n.");
    EXPECT_EQ(detailOf([&] { yPlusAMulx(y, A, x, flops, NoTrans, 3, 3); }), "yPlusAMulx: Size of A less than required by m and n.");
    EXPECT_EQ(detailOf([&] { yPlusAMulx(y, A, x, flops, Trans); }), "yPlusAMulx: Size of x or y less than required by m and n.");
    EXPECT_TRUE(y.isReal());
    EXPECT_EQ(flops, 5.0);
}

TEST(CountedProduct, MayAddAVectorsOwnProductToIt)
{
    const Array<double, 2> A = randomMatrix<double>(3, 3, 1);
    const Array<double, 1> v = randomVector<double>(3, 2);
    Matrix<1> y = vectorOf(v);
    double flops = 0.0;

    yPlusAMulx(y, matrixOf(A), y, flops);

    for (unsigned long i = 0; i < 3; ++i)
        EXPECT_NEAR(y[i].real(), v[i] + A(i, 0) * v[0] + A(i, 1) * v[1] + A(i, 2) * v[2], 1e-15);
}

// ---- rotations

TYPED_TEST(Krylov, ARotationAnnihilatesItsSecondNumber)
{
    using T = TypeParam;
    std::vector<T> ts = {T(0), T(1), T(-1), T(-3e-9), T(1e150), T(-1e-160), T(0.5)};
    if constexpr (std::is_same_v<T, cplx>)
        for (int k = 0; k < 8; ++k)
            ts.push_back(std::polar(std::pow(10.0, k - 4), 0.7 * k));
    for (const T& t : ts)
        for (const double h : {0.0, 1e-160, 1e-9, 0.5, 1.0, 3.0, 1e150}) {
            T c, s;

            qxarray_detail::makeRotation(t, h, c, s);

            EXPECT_NEAR(std::norm(c) + std::norm(s), 1.0, 4 * eps) << t << h;
            EXPECT_LE(std::abs(s * t + c * h), 4 * eps * std::max(std::abs(t), h)) << t << h;
            EXPECT_EQ(std::imag(c), 0.0);
        }
    T c, s;
    qxarray_detail::makeRotation(T(0), 2.0, c, s);
    EXPECT_EQ(c, T(0));
    EXPECT_EQ(std::abs(s), 1.0);
    qxarray_detail::makeRotation(T(-2), 0.0, c, s);
    EXPECT_EQ(c, T(1));
    EXPECT_EQ(s, T(0));
}

// ---- gmres

TYPED_TEST(Krylov, TheEstimateIsTheTrueResidualAtEachStep)
{
    using T = TypeParam;
    const unsigned long n = 30;
    const Array<T, 2> A = randomMatrix<T>(n, n, 11); // not dominant: the residual falls slowly
    const Array<T, 1> b = randomVector<T>(n, 12), x0 = randomVector<T>(n, 13);

    const std::vector<double> found = estimates(A, b, x0, 25);

    ASSERT_EQ(found.size(), 25u);
    for (int j = 0; j < 25; ++j) {
        Matrix<1> x = vectorOf(x0);
        double flops = 0.0;
        gmres(matrixOf(A), vectorOf(b), x, 1e-300, j + 1, 1.0, j + 1, flops); // one cycle of j + 1 steps
        const double truth = norm2(residual(A, numbersOf<T>(x), b));
        EXPECT_NEAR(found[static_cast<std::size_t>(j)], truth, 1e-12 * norm2(b)) << "step " << j;
        if (j > 0) {
            EXPECT_LE(found[static_cast<std::size_t>(j)], found[static_cast<std::size_t>(j) - 1]);
        }
    }
}

TYPED_TEST(Krylov, EveryRestartLengthFindsTheSolution)
{
    using T = TypeParam;
    const unsigned long n = 50;
    const Array<T, 2> A = dominant<T>(n, 21);
    const Array<T, 1> b = randomVector<T>(n, 22);
    Array<T, 2> LU = A;
    Array<T, 1> wanted = b;
    qxarray::linsolv(LU, wanted, 3);

    for (const int m : {1, 2, 7, 50}) {
        const Outcome r = solved(matrixOf(A), vectorOf(b), 1e-13, m, 5000);

        EXPECT_EQ(r.status, 1) << m;
        EXPECT_EQ(r.x.isReal(), (std::is_same_v<T, double>));
        EXPECT_TRUE(allNear(numbersOf<T>(r.x), wanted, 1e-12)) << m;
    }
}

TYPED_TEST(Krylov, MLargerThanNEndsByBreakdown)
{
    using T = TypeParam;
    const Array<T, 2> A = dominant<T>(3, 31);
    const Array<T, 1> b = randomVector<T>(3, 32);

    const Outcome r = solved(matrixOf(A), vectorOf(b), 1e-12, 40, 100);

    EXPECT_EQ(r.status, 1);
    EXPECT_LE(norm2(residual(A, numbersOf<T>(r.x), b)), 1e-12 * norm2(b));
}

TEST(Gmres, TheIdentityTakesOneStepThatBreaksDown)
{
    const Array<double, 1> b = randomVector<double>(5, 1);

    const Outcome r = solved(matrixOf(identity(5)), vectorOf(b), 1e-14, 4, 100);

    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(allNear(r.x.gethdArr(), b, 1e-15));
    EXPECT_EQ(r.flops, 3 * 2.0 * 25); // the first residual, one step, the last residual
}

TEST(Gmres, ExactBreakdownUsesTheIdentityRotation)
{
    // A permutation: the Krylov space of e1 closes after exactly 3 steps with all numbers 0 or 1.
    Array<double, 2> P(3, 3);
    P = 0.0;
    P(1, 0) = P(2, 1) = P(0, 2) = 1.0;
    Array<double, 1> b(3);
    b = 0.0;
    b[0] = 1.0;

    const std::vector<double> found = estimates(P, b, zeros(3), 3);
    const Outcome r = solved(matrixOf(P), vectorOf(b), 1e-15, 6, 100);

    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0], 1.0); // no progress at all until the last step
    EXPECT_EQ(found[1], 1.0);
    EXPECT_EQ(found[2], 0.0);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.x[2], 1.0);
}

TEST(Gmres, ConvergesInAsManyStepsAsThereAreEigenvalues)
{
    const unsigned long n = 40;
    Array<double, 2> A(n, n);
    A = 0.0;
    for (unsigned long i = 0; i < n; ++i)
        A(i, i) = 1.0 + static_cast<double>(i % 5);

    const std::vector<double> found = estimates(A, randomVector<double>(n, 3), zeros(40), 8);

    EXPECT_GT(found[3], 1e-4);
    EXPECT_LT(found[4], 1e-13);
}

TEST(Gmres, QuirkAZeroOnTheDiagonalSkipsTheSolveAndStillAddsVg)
{
    // A nilpotent matrix: A v0 = 0, so H(0,0) = 0 and hn = 0.
    Array<double, 2> N(2, 2);
    N = 0.0;
    N(0, 1) = 1.0;
    Array<double, 1> b(2);
    b[0] = 3.0;
    b[1] = 0.0;
    Outcome r{};

    const std::string text = printed([&] { r = solved(matrixOf(N), vectorOf(b), 1e-10, 1, 1); });

    EXPECT_EQ(text, "Warning: Singular Hessenberg matrix.\n");
    EXPECT_EQ(r.status, -1);
    EXPECT_EQ(r.x[0], 3.0); // V g with the g that was not solved for
    EXPECT_EQ(r.x[1], 0.0);
}

TEST(Gmres, ZeroRightHandSideGivesZeroWhateverTheGuess)
{
    for (const bool real : {true, false}) {
        Matrix<1> x(4, real);
        x = cplx(notANumber);
        double flops = 7.0;

        EXPECT_EQ(gmres(Matrix<2>(4, 4, true), Matrix<1>(4, true), x, 1e-10, 2, 1.0, 10, flops), 1);

        for (unsigned long i = 0; i < 4; ++i)
            EXPECT_EQ(x[i], 0.0);
        EXPECT_EQ(x.isReal(), real);
        EXPECT_EQ(flops, 7.0);
    }
}

TEST(Gmres, AnExactGuessIsTakenAsItIs)
{
    const Array<double, 2> A = dominant<double>(6, 1);
    Array<double, 1> x(6), b(6);
    x = 1.0;
    b = 0.0;
    qxarray::yPlusAMulx(b, A, x);
    Matrix<1> guess = vectorOf(x);
    double flops = 0.0;

    EXPECT_EQ(gmres(matrixOf(A), vectorOf(b), guess, 1e-12, 3, 1.0, 0, flops), 1);

    EXPECT_TRUE(sameBits(guess.gethdArr(), x));
    EXPECT_EQ(flops, 72.0);
}

TEST(Gmres, QuirkMaxItsCountsStepsOverRestartsAndOneIsMadeAtLeast)
{
    const Matrix<2> A = matrixOf(randomMatrix<double>(30, 30, 2));
    const Matrix<1> b = vectorOf(randomVector<double>(30, 3));
    const auto steps = [&](int maxIts, int m) {
        const Outcome r = solved(A, b, 1e-14, m, maxIts);
        EXPECT_EQ(r.status, -1);
        const int cycles = (std::max(maxIts, 1) + m - 1) / m;
        return r.flops / 1800.0 - 1 - cycles; // the products without those of residuals
    };

    EXPECT_EQ(steps(0, 5), 1);
    EXPECT_EQ(steps(1, 5), 1);
    EXPECT_EQ(steps(4, 5), 4);
    EXPECT_EQ(steps(5, 5), 5);
    EXPECT_EQ(steps(7, 5), 7);
    EXPECT_EQ(steps(12, 5), 12);
}

TEST(Gmres, ScaleMakesTheTestStricter)
{
    const Array<double, 2> A = dominant<double>(40, 5);
    const Array<double, 1> b = randomVector<double>(40, 6);
    for (const double scale : {1.0, 2.0, 1e4}) {
        const Outcome r = solved(matrixOf(A), vectorOf(b), 1e-4, 40, 200, scale);

        EXPECT_EQ(r.status, 1);
        EXPECT_LE(scale * norm2(residual(A, r.x.gethdArr(), b)), 1e-4 * norm2(b));
        const Outcome same = solved(matrixOf(A), vectorOf(b), 1e-4 / scale, 40, 200);
        EXPECT_TRUE(sameBits(r.x.gethdArr(), same.x.gethdArr()));
    }
}

TEST(Gmres, MixedTypesPromoteXAndSolve)
{
    const Array<double, 2> A = dominant<double>(12, 7);
    Array<cplx, 2> Az(12, 12);
    qxmatrix::copy(Az.data(), A.data(), A.size());
    const Array<cplx, 1> b = randomVector<cplx>(12, 8);

    const Outcome realA = solved(matrixOf(A), vectorOf(b), 1e-13, 12, 100), bothZ = solved(matrixOf(Az), vectorOf(b), 1e-13, 12, 100);
    const Outcome realB = solved(matrixOf(Az), vectorOf(randomVector<double>(12, 9)), 1e-13, 12, 100);

    EXPECT_EQ(realA.status, 1);
    EXPECT_FALSE(realA.x.isReal());
    EXPECT_TRUE(allNear(realA.x.gethzArr(), bothZ.x.gethzArr(), 1e-13));
    EXPECT_EQ(realA.flops * 2.0, bothZ.flops); // 4 m n and 8 m n
    EXPECT_FALSE(realB.x.isReal());
    for (unsigned long i = 0; i < 12; ++i)
        EXPECT_NEAR(realB.x[i].imag(), 0.0, 1e-15);
}

TEST(Gmres, AnXThatMayNotBeReplacedIsNotPromoted)
{
    const Matrix<2> A = matrixOf(dominant<cplx>(4, 1));
    Matrix<1> x(4, true);
    x.setNoRealloc(true);
    double flops = 0.0;

    EXPECT_EQ(idOf([&] { gmres(A, Matrix<1>(4, true), x, 1e-10, 2, 1.0, 10, flops); }), "Internal_error_matrix");
    EXPECT_TRUE(x.isReal());
    EXPECT_EQ(flops, 0.0);
}

TEST(Gmres, WritesIntoAnExternalBuffer)
{
    const Array<double, 2> A = dominant<double>(4, 1);
    const auto buffer = boost::make_shared<Array<double, 1>>(4ul);
    *buffer = 0.0;
    Matrix<1> x(buffer);
    x.setNoRealloc(true);
    const double* const place = x.gethdArr().data();
    double flops = 0.0;

    EXPECT_EQ(gmres(matrixOf(A), vectorOf(randomVector<double>(4, 2)), x, 1e-12, 4, 1.0, 20, flops), 1);

    EXPECT_EQ(x.gethdArr().data(), place);
}

TEST(Gmres, XMayBeTheRightHandSideItself)
{
    const Array<double, 2> A = dominant<double>(8, 1);
    const Array<double, 1> b = randomVector<double>(8, 2);
    for (const bool external : {false, true}) {
        Matrix<1> both = vectorOf(b);
        both.setNoRealloc(external);
        double flops = 0.0;

        EXPECT_EQ(gmres(matrixOf(A), both, both, 1e-13, 8, 1.0, 100, flops), 1);

        EXPECT_LE(norm2(residual(A, both.gethdArr(), b)), 1e-12);
    }
}

TEST(Gmres, RefusesSizesThatDoNotFit)
{
    double flops = 0.0;
    const auto refusal = [&](const Matrix<2>& A, unsigned long nb, unsigned long nx, int m) {
        Matrix<1> x(nx, true);
        const auto act = [&] { gmres(A, Matrix<1>(nb, true), x, 1e-10, m, 1.0, 10, flops); };
        EXPECT_EQ(idOf(act), "Internal_error_solver");
        return detailOf(act);
    };
    const Matrix<2> A(3, 3, true);

    EXPECT_EQ(refusal(A, 2, 3, 5), "gmres: RHS or initial guess has wrong size.");
    EXPECT_EQ(refusal(A, 3, 4, 5), "gmres: RHS or initial guess has wrong size.");
    EXPECT_EQ(refusal(Matrix<2>(3, 2, true), 3, 3, 5), "gmres: Matrix is not square.");
    EXPECT_EQ(refusal(A, 3, 3, 0), "gmres: Size of the Krylov space is less than 1.");
    EXPECT_EQ(refusal(A, 3, 3, -2), "gmres: Size of the Krylov space is less than 1.");
}

TEST(Gmres, NaNInTheMatrixEndsAtTheLimit)
{
    Array<double, 2> A = dominant<double>(5, 1);
    A(2, 2) = notANumber;

    EXPECT_EQ(solved(matrixOf(A), vectorOf(randomVector<double>(5, 2)), 1e-10, 3, 20).status, -1);
    A(2, 2) = infinity;
    EXPECT_EQ(solved(matrixOf(A), vectorOf(randomVector<double>(5, 2)), 1e-10, 3, 20).status, -1);
}

TEST(Gmres, AnEmptySystemIsSolved)
{
    EXPECT_EQ(solved(Matrix<2>(0, 0, true), Matrix<1>(0, true), 1e-10, 3, 20).status, 1);
}

TEST(Gmres, SurvivesEveryFailingAllocation)
{
    const Matrix<2> A = matrixOf(dominant<cplx>(6, 1));
    const Matrix<1> b = vectorOf(randomVector<double>(6, 2));
    Matrix<1> x(6, true);
    x.set(3, 5.0);

    const long count = qxtest::failEveryAllocation(
        [&] {
            Matrix<1> trial = x;
            double flops = 0.0;
            gmres(A, b, trial, 1e-12, 3, 1.0, 50, flops);
        },
        [&](const qxtest::FaultRun& run) {
            EXPECT_EQ(run.badAlloc, run.faulted) << run.n;
            EXPECT_EQ(run.leaked, 0) << run.n;
            EXPECT_TRUE(x.isReal() && x[3] == 5.0 && x[0] == 0.0);
        });
    EXPECT_GT(count, 8);
}

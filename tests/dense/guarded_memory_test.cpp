// SPDX-License-Identifier: LicenseRef-qxkernel
// Every complex front end on memory that ends at an unmapped page: BLAS libraries that read an element too many find one.

#include "arrayutil.hpp"
#include "dense_values.hpp"
#include "support/guard_pages.hpp"

namespace densetest {
namespace {

using Complex1 = Array<cplx, 1>;
using Complex2 = Array<cplx, 2>;

/// All front ends for an m-by-n matrix. The values are checked elsewhere: here it counts that the program survives.
void callEverything(unsigned long m, unsigned long n)
{
    const Complex2 A = randomMatrix<cplx>(m, n, 1), S = randomMatrix<cplx>(n, n, 2), D = randomMatrix<cplx>(n, n, 3);
    const Complex1 x = randomVector<cplx>(std::max(m, n), 4);
    const auto fresh = [](const auto& original) { return original; };
    Complex2 U, VT, Q, Z;
    Complex1 tau, w, beta, y;
    Array<double, 1> s;
    Array<int, 1> pivots;

    for (const char* jobu : {"A", "S", "O", "N"})
        for (const char* jobvt : {"A", "S", "O", "N"}) {
            Complex2 copy = fresh(A);
            if (*jobu != 'O' || *jobvt != 'O') {
                EXPECT_EQ(qxarray::svd(jobu, jobvt, copy, U, s, VT, 0), 0);
            }
        }
    qxarray::rank(A, eps);
    for (const unsigned long sides : {1ul, 2ul}) {
        Complex2 copy = fresh(A), X;
        EXPECT_EQ(qxarray::leastSquares(copy, randomMatrix<cplx>(std::max(m, n), sides, 5), X, -1.0, 0), 0);
    }
    Complex2 copy = fresh(A);
    qxarray::leastSquares(copy, x, y, -1.0, 0);
    qxarray::qr(copy = fresh(A), tau, 0);
    if (m >= n)
        qxarray::q(copy, tau, 0);
    qxarray::qr(copy = fresh(A), tau, pivots, 0);
    qxarray::lu(copy = fresh(A), pivots, 0);

    Complex2 square = fresh(S), other = fresh(D);
    qxarray::eig("V", "V", square, w, U, VT, 0);
    qxarray::eig(square = fresh(S), w, 0);
    qxarray::eig("V", "V", square = fresh(S), other, w, beta, U, VT, 0);
    qxarray::schur(square = fresh(S), Q, true);
    Array<int, 1> select(n);
    for (unsigned long i = 0; i < n; ++i)
        select[i] = i % 2 == 1;
    qxarray::ordschur(square, Q, select);
    qxarray::hess(square = fresh(S), Q, true);
    qxarray::generalizedHess(square = fresh(S), other = fresh(D), Q, Z);
    Complex1 right = randomVector<cplx>(n, 6);
    qxarray::linsolv(square = fresh(S), right, 0);
    qxarray::linsolvdecomp(square = fresh(S), pivots);
    qxarray::linsolvsolve(square, pivots, right, 0);
    qxarray::chol(square = product(adjointOf(S), S), 0);
    qxarray::roots(right, w, 0);

    for (const Trans_t trans : {NoTrans, Trans, ConjTrans}) {
        for (const bool upper : {true, false}) {
            Complex1 solution = randomVector<cplx>(n, 7);
            qxarray::triSolve(S, solution, upper, trans, int(n));
        }
        const unsigned long rows = trans == NoTrans ? m : n, columns = trans == NoTrans ? n : m;
        Complex1 sum = randomVector<cplx>(rows, 8);
        qxarray::yPlusAMulx(sum, A, randomVector<cplx>(columns, 9), trans);
        qxarray::dot(sum, sum, trans);
    }
    qxarray::norm(x);
    qxarray::scale(y = fresh(x), cplx(0.5, 2.0));
    qxarray::yPlusaMulx(y, cplx(0.5, 2.0), x);
    qxarray::adjoint(A, U);
}

} // namespace

TEST(GuardedMemory, ComplexFrontEndsReadNothingBehindTheirArrays)
{
    const long before = qxtest::GuardPages::blocks();
    {
        const qxtest::GuardPages guard;
        for (unsigned long m = 1; m <= 11; ++m)
            for (unsigned long n = 1; n <= 11; ++n)
                callEverything(m, n);
        for (const unsigned long m : {14ul, 30ul, 66ul}) // sizes with m mod 4 = 2, in which blocks of LAPACK end
            for (const unsigned long n : {3ul, 14ul, 30ul})
                callEverything(m, n), callEverything(n, m);
    }
    EXPECT_GT(qxtest::GuardPages::blocks(), before + 1000); // the arrays did stand there
}

TEST(GuardedMemory, TheGuardIsThere)
{
    const auto readBehind = [] {
        const qxtest::GuardPages guard;
        const Array<double, 1> x(2);
        const volatile double* const data = x.data();
        return data[2];
    };
    EXPECT_DEATH((void)readBehind(), "");
}

TEST(GuardedMemory, ComplexBlocksCountTheirSpareElement)
{
    EXPECT_EQ((Array<cplx, 1>(3).capacity()), 3u); // nobody sees it
    const auto refused = [](unsigned long count) {
        Array<cplx, 1> x;
        try {
            x.resize(count);
        } catch (const std::bad_alloc&) {
            return true;
        }
        return false;
    };
    const unsigned long bytes = 0xffffffff, elements = bytes / sizeof(cplx);
    EXPECT_TRUE(refused(elements));
    EXPECT_TRUE(refused(elements - 1)); // fits without the spare one
}

} // namespace densetest

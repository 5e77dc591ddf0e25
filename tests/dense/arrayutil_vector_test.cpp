// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "dense_values.hpp"
#include "support/threads.hpp"

namespace {

using namespace densetest;

template <class T>
class VectorKernels : public testing::Test
{
};
using Types = testing::Types<double, cplx>;
TYPED_TEST_SUITE(VectorKernels, Types);

template <class T>
Array<T, 2> applied(const Array<T, 2>& A, Trans_t trans)
{
    Array<T, 2> B(A.extent(1), A.extent(0));
    if (trans == NoTrans)
        return A;
    for (unsigned long j = 0; j < A.extent(1); ++j)
        for (unsigned long i = 0; i < A.extent(0); ++i)
            B(j, i) = trans == ConjTrans ? conjugate(A(i, j)) : A(i, j);
    return B;
}

template <class T>
Array<T, 2> leadingBlock(const Array<T, 2>& A, unsigned long m, unsigned long n)
{
    Array<T, 2> B(m, n);
    for (unsigned long j = 0; j < n; ++j)
        for (unsigned long i = 0; i < m; ++i)
            B(i, j) = A(i, j);
    return B;
}

template <class T>
Array<T, 2> leadingColumn(const Array<T, 1>& x, unsigned long n)
{
    return leadingBlock(columnOf(x), n, 1);
}

constexpr Trans_t allTrans[] = {NoTrans, Trans, ConjTrans};

TYPED_TEST(VectorKernels, AdjointTransposesAndConjugates)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(37, 21, 1);
    Array<T, 2> B;

    qxarray::adjoint(A, B);

    EXPECT_TRUE(sameBits(B, adjointOf(A)));
    qxarray::adjoint(Array<T, 2>(0, 4), B);
    EXPECT_EQ(B.extent(0), 4u);
    EXPECT_EQ(B.extent(1), 0u);
}

TYPED_TEST(VectorKernels, TriSolveInvertsEveryFormOnTheLeadingBlock)
{
    using T = TypeParam;
    Array<T, 2> A = randomMatrix<T>(6, 7, 2);
    for (int i = 0; i < 6; ++i)
        A(i, i) = T(3 + i);
    for (const bool upper : {true, false})
        for (const Trans_t trans : allTrans)
            for (const int n : {6, 4, 1}) {
                Array<T, 2> triangle = leadingBlock(A, n, n);
                for (int j = 0; j < n; ++j)
                    for (int i = 0; i < n; ++i)
                        if (upper ? i > j : i < j)
                            triangle(i, j) = T(0);
                const Array<T, 1> b = randomVector<T>(6, 3);
                Array<T, 1> x = b;

                qxarray::triSolve(A, x, upper, trans, n);

                EXPECT_TRUE(allNear(product(applied(triangle, trans), leadingColumn(x, n)), leadingColumn(b, n), 1e-13))
                    << "upper " << upper << ", trans " << trans << ", n " << n;
                for (int i = n; i < 6; ++i)
                    EXPECT_EQ(x[i], b[i]);
            }
}

TYPED_TEST(VectorKernels, TriSolveBeyondTheSizesRaises)
{
    using T = TypeParam;
    Array<T, 2> A = identity<T>(3);
    Array<T, 1> x(2);

    for (const int n : {3, 4, -1})
        EXPECT_EQ(detailOf([&] { qxarray::triSolve(A, x, true, NoTrans, n); }),
                  "triSolve: Size of A or x less than required by n.");
    qxarray::triSolve(A, x, true, NoTrans, 0);
}

TYPED_TEST(VectorKernels, RequiredQuirkYPlusAMulxTakesZeroForAllOfTheLeadingBlock)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(7, 5, 4);
    for (const Trans_t trans : allTrans)
        for (const auto& [m, n] : {std::pair(0ul, 0ul), {7ul, 5ul}, {3ul, 0ul}, {0ul, 2ul}, {4ul, 3ul}}) {
            const unsigned long rows = m ? m : 7, columns = n ? n : 5;
            const Array<T, 1> x = randomVector<T>(7, 5), y0 = randomVector<T>(8, 6);
            Array<T, 1> y = y0;

            qxarray::yPlusAMulx(y, A, x, trans, m, n);

            const Array<T, 2> block = applied(leadingBlock(A, rows, columns), trans);
            const Array<T, 2> sum = product(block, leadingColumn(x, block.extent(1)));
            for (unsigned long i = 0; i < 8; ++i)
                EXPECT_NEAR(std::abs(y[i] - y0[i] - (i < sum.size() ? sum[i] : T(0))), 0.0, 1e-14);
        }
}

TYPED_TEST(VectorKernels, YPlusAMulxRefusesWhatDoesNotFit)
{
    using T = TypeParam;
    const Array<T, 2> A = identity<T>(3);
    Array<T, 1> y = vectorOf<T>({1, 2, 3}), two = vectorOf<T>({1, 2});
    const Array<T, 1> x = y;

    const char* const wrongA = "yPlusAMulx: Size of A less than required by m and n.";
    const char* const wrongVectors = "yPlusAMulx: Size of x or y less than required by m and n.";
    EXPECT_EQ(detailOf([&] { qxarray::yPlusAMulx(y, A, x, NoTrans, 4, 3); }), wrongA);
    EXPECT_EQ(detailOf([&] { qxarray::yPlusAMulx(y, A, x, NoTrans, 3, 4); }), wrongA);
    EXPECT_EQ(detailOf([&] { qxarray::yPlusAMulx(two, A, x, NoTrans); }), wrongVectors);
    EXPECT_EQ(detailOf([&] { qxarray::yPlusAMulx(y, A, two, NoTrans); }), wrongVectors);
    EXPECT_EQ(detailOf([&] { qxarray::yPlusAMulx(y, A, two, Trans); }), wrongVectors);
    EXPECT_EQ(idOf([&] { qxarray::yPlusAMulx(y, A, two, Trans); }), "Internal_numerical_error");
    EXPECT_TRUE(sameBits(y, x));

    EXPECT_NO_THROW(qxarray::yPlusAMulx(y, A, x, NoTrans, 3, 3));
    EXPECT_NO_THROW(qxarray::yPlusAMulx(two, A, x, NoTrans, 2, 3));
    EXPECT_NO_THROW(qxarray::yPlusAMulx(two, A, x, Trans, 3, 2));
    Array<T, 1> none;
    EXPECT_NO_THROW(qxarray::yPlusAMulx(none, Array<T, 2>(), none));
}

TYPED_TEST(VectorKernels, YPlusaMulxAddsAMultiple)
{
    using T = TypeParam;
    Array<T, 1> y = vectorOf<T>({1, 2});

    qxarray::yPlusaMulx(y, 3.0, vectorOf<T>({10, 20}));

    EXPECT_TRUE(sameBits(y, vectorOf<T>({31, 62})));
}

TYPED_TEST(VectorKernels, RequiredQuirkLengthTextsDifferBetweenRealAndComplex)
{
    using T = TypeParam;
    Array<T, 1> y(2);
    const Array<T, 1> x(3);

    EXPECT_EQ(detailOf([&] { qxarray::yPlusaMulx(y, 1.0, x); }),
              (std::is_same_v<T, double>) ? "yPlusaMulx: x and y does not have the same length."
                                          : "yPlusaMulx: y and x does not have the same length.");
    EXPECT_EQ(detailOf([&] { qxarray::dot(x, y); }), "dot: x and y does not have the same length.");
    EXPECT_EQ(idOf([&] { qxarray::dot(x, y, ConjTrans); }), "Internal_numerical_error");
    EXPECT_EQ(failureOf([&] { qxarray::dot(x, y); }).getFile(0), "arrayutil");
}

TYPED_TEST(VectorKernels, YPlusaEqualsALoopBitForBit)
{
    using T = TypeParam;
    for (const unsigned long n : {0ul, 1ul, 7ul, 10001ul}) {
        Array<T, 1> y = randomVector<T>(n, 7), wanted = y;
        for (unsigned long i = 0; i < n; ++i)
            wanted[i] += T(0.1);

        qxarray::yPlusa(y, T(0.1));

        EXPECT_TRUE(sameBits(y, wanted));
    }
    Array<T, 2> A = identity<T>(2);
    qxarray::yPlusa(A, 1.0);
    EXPECT_TRUE(sameBits(A, matrixOf<T>({{2, 1}, {1, 2}})));
}

TYPED_TEST(VectorKernels, NormIsSafeFromOverflow)
{
    using T = TypeParam;
    EXPECT_DOUBLE_EQ(qxarray::norm(vectorOf<T>({3e200, 4e200})), 5e200);
    EXPECT_DOUBLE_EQ(qxarray::norm(vectorOf<T>({3e-200, 4e-200})), 5e-200);
    EXPECT_DOUBLE_EQ(qxarray::norm(matrixOf<T>({{1, 1}, {1, 1}})), 2.0);
    EXPECT_EQ(qxarray::norm(Array<T, 1>()), 0.0);
    EXPECT_TRUE(std::isnan(qxarray::norm(vectorOf<T>({1, notANumber}))));
}

TYPED_TEST(VectorKernels, CopyTakesTheShape)
{
    using T = TypeParam;
    const Array<T, 2> A = randomMatrix<T>(3, 4, 8);
    Array<T, 2> B;

    qxarray::copy(A, B);

    EXPECT_TRUE(sameBits(B, A));
}

TYPED_TEST(VectorKernels, TimesMultipliesElementsAlsoInPlace)
{
    using T = TypeParam;
    Array<T, 1> x = vectorOf<T>({2, 3}), z(2);
    const Array<T, 1> y = vectorOf<T>({5, 7});

    qxarray::times(2, x.data(), y.data(), z.data());
    qxarray::times(2, x.data(), y.data(), x.data());

    EXPECT_TRUE(sameBits(z, vectorOf<T>({10, 21})));
    EXPECT_TRUE(sameBits(x, z));
}

TYPED_TEST(VectorKernels, DotAddsFixedBlocksInTheirOrder)
{
    // The same bits as sums of blocks of 8192 elements, one after the other, with one thread and with several.
    using T = TypeParam;
    for (const unsigned long n : {99999ul, 100000ul, 100001ul, 8192ul * 260 + 17}) {
        const Array<T, 1> x = randomVector<T>(n, 9), y = randomVector<T>(n, 10);
        T wanted(0);
        for (unsigned long from = 0; from < n; from += 8192) {
            const unsigned long count = std::min(8192ul, n - from);
            Array<T, 1> xs(count), ys(count);
            std::copy_n(x.data() + from, count, xs.data());
            std::copy_n(y.data() + from, count, ys.data());
            wanted += qxarray::dot(xs, ys);
        }
        for (const int threads : {1, 2, 5}) {
            const qxtest::Threads some(threads);
            EXPECT_EQ(qxarray::dot(x, y), wanted) << n << " elements, " << threads << " threads";
        }
    }
}

TYPED_TEST(VectorKernels, GiveTheSameBitsForAnyNumberOfThreads)
{
    using T = TypeParam;
    const unsigned long n = 100003;
    const Array<T, 1> x = randomVector<T>(n, 9), y0 = randomVector<T>(n, 10);
    struct Results
    {
        T dot, conjugated;
        double norm;
        Array<T, 1> sum, scaled, times;
    };
    const auto run = [&](int threads) {
        const int before = qxbase::setAvailableThreads(threads);
        const qxbase::BlasThreadScope blas(threads);
        Results r{qxarray::dot(x, y0), qxarray::dot(x, y0, ConjTrans), qxarray::norm(x), y0, x, y0};
        qxarray::yPlusaMulx(r.sum, 1.0 / 3.0, x);
        qxarray::scale(r.scaled, 1.0 / 3.0);
        qxarray::times(n, x.data(), y0.data(), r.times.data());
        qxbase::setAvailableThreads(before);
        return r;
    };
    const Results one = run(1);
    for (const int threads : {2, 3, 7, 16}) {
        const Results many = run(threads);
        EXPECT_EQ(many.dot, one.dot) << threads;
        EXPECT_EQ(many.conjugated, one.conjugated) << threads;
        EXPECT_EQ(many.norm, one.norm) << threads;
        EXPECT_TRUE(sameBits(many.sum, one.sum)) << threads;
        EXPECT_TRUE(sameBits(many.scaled, one.scaled)) << threads;
        EXPECT_TRUE(sameBits(many.times, one.times)) << threads;
    }
}

TEST(Dot, ConjugatesTheFirstVectorOnlyForConjTrans)
{
    const Array<cplx, 1> x = vectorOf<cplx>({{0, 1}, {2, 0}}), y = vectorOf<cplx>({{0, 3}, {1, 1}});

    EXPECT_EQ(qxarray::dot(x, y), cplx(-1, 2)); // i 3i + 2 (1 + i)
    EXPECT_EQ(qxarray::dot(x, y, Trans), cplx(-1, 2));
    EXPECT_EQ(qxarray::dot(x, y, ConjTrans), cplx(5, 2)); // -i 3i + 2 (1 + i)
    EXPECT_EQ(qxarray::dot(vectorOf<double>({1, 2}), vectorOf<double>({3, 4}), ConjTrans), 11.0);
    EXPECT_EQ(qxarray::dot(Array<cplx, 1>(), Array<cplx, 1>()), cplx(0));
}

TEST(Dot, SumsAcrossItsBlocks)
{
    Array<double, 1> x(20000), y(20000);
    for (unsigned long i = 0; i < 20000; ++i) {
        x[i] = static_cast<double>(i);
        y[i] = 2.0;
    }

    EXPECT_EQ(qxarray::dot(x, y), 19999.0 * 20000.0); // 2 sum i, exact in double
}

TEST(Scale, ComplexByRealTakesTheRealPath)
{
    const Array<cplx, 1> z = randomVector<cplx>(1001, 11);
    Array<double, 1> parts(2002);
    for (unsigned long i = 0; i < 1001; ++i) {
        parts[2 * i] = z[i].real();
        parts[2 * i + 1] = z[i].imag();
    }
    Array<cplx, 1> scaled = z;

    qxarray::scale(scaled, cplx(1.0 / 3.0, 0.0));
    qxarray::scale(parts, 1.0 / 3.0);

    for (unsigned long i = 0; i < 1001; ++i)
        ASSERT_EQ(scaled[i], cplx(parts[2 * i], parts[2 * i + 1])) << i;
    // An infinite part beside a finite one stays apart: the full product would mix them to NaN.
    Array<cplx, 1> infinite = vectorOf<cplx>({{infinity, 1.0}});
    qxarray::scale(infinite, cplx(2.0, 0.0));
    EXPECT_EQ(infinite[0], cplx(infinity, 2.0));
}

TEST(Scale, ByAComplexNumberRotates)
{
    Array<cplx, 1> z = vectorOf<cplx>({{1, 2}});

    qxarray::scale(z, cplx(0, 1));

    EXPECT_EQ(z[0], cplx(-2, 1));
}

TEST(Scale, ByZeroKeepsNaN)
{
    Array<double, 1> x = vectorOf<double>({notANumber, infinity, 3});

    qxarray::scale(x, 0.0);

    EXPECT_TRUE(std::isnan(x[0]) && std::isnan(x[1]));
    EXPECT_EQ(x[2], 0.0);
}

TEST(Pow, ToTheZeroIsOneForAnyBase)
{
    Array<double, 1> x = vectorOf<double>({0, -3, infinity, notANumber});
    Array<cplx, 1> z = vectorOf<cplx>({0, {0, 1}}), w = z;

    qxarray::pow(x.data(), 0.0, 4);
    qxarray::pow(z.data(), 0.0, 2);
    qxarray::pow(w.data(), cplx(0.0), 2);

    EXPECT_TRUE(sameBits(x, vectorOf<double>({1, 1, 1, 1})));
    EXPECT_TRUE(sameBits(z, vectorOf<cplx>({1, 1})));
    EXPECT_TRUE(sameBits(w, vectorOf<cplx>({1, 1})));
}

TEST(Pow, OfRealsIsTheRealPower)
{
    Array<double, 1> x = vectorOf<double>({4, 2.25, -8});

    qxarray::pow(x.data(), 0.5, 3);

    EXPECT_EQ(x[0], 2.0);
    EXPECT_EQ(x[1], 1.5);
    EXPECT_TRUE(std::isnan(x[2]));
    double cube = -2.0;
    qxarray::pow(&cube, 3.0, 1);
    EXPECT_EQ(cube, -8.0);
}

TEST(Pow, OfANegativeBaseToAComplexPower)
{
    const double pi = std::acos(-1.0);
    // (-1)^i = exp(i log(-1)) = exp(i i pi) = exp(-pi);  i^2 = -1;  (-4)^(1/2) = 2i
    cplx a(-1.0, 0.0), b(0.0, 1.0), c(-4.0, 0.0);

    qxarray::pow(&a, cplx(0.0, 1.0), 1);
    qxarray::pow(&b, 2.0, 1);
    qxarray::pow(&c, 0.5, 1);

    EXPECT_NEAR(std::abs(a - std::exp(-pi)), 0.0, 1e-16);
    EXPECT_NEAR(std::abs(b - cplx(-1.0)), 0.0, 1e-15);
    EXPECT_NEAR(std::abs(c - cplx(0.0, 2.0)), 0.0, 1e-15);
}

TEST(Pow, OfAComplexZero)
{
    cplx a(0.0), b(0.0), c(0.0), d(0.0);

    qxarray::pow(&a, cplx(1.0, 1.0), 1);
    qxarray::pow(&b, 2.0, 1);
    qxarray::pow(&c, -1.0, 1);
    qxarray::pow(&d, cplx(-1.0, 1.0), 1);

    EXPECT_EQ(a, cplx(0.0));
    EXPECT_EQ(b, cplx(0.0));
    EXPECT_EQ(c.real(), infinity);
    EXPECT_TRUE(std::isnan(d.real()) && std::isnan(d.imag()));
}

} // namespace

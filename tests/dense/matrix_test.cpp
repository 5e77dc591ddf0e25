// SPDX-License-Identifier: LicenseRef-qxkernel
#include "matrix.hpp"

#include "arrayutil.hpp"
#include "dense_values.hpp"
#include "qxexception.hpp"

#include <gtest/gtest.h>

namespace {

using namespace densetest;

using RealVector = Array<double, 1>;
using ComplexVector = Array<cplx, 1>;
using Values = std::vector<cplx>;

Matrix<1> realVector(std::initializer_list<double> values)
{
    Matrix<1> x(values.size(), true);
    std::copy(values.begin(), values.end(), x.getdArr().begin());
    return x;
}

Matrix<1> complexVector(std::initializer_list<cplx> values)
{
    Matrix<1> x(values.size(), false);
    std::copy(values.begin(), values.end(), x.getzArr().begin());
    return x;
}

template <int N>
Values elements(const Matrix<N>& x)
{
    Values all;
    for (unsigned long i = 0; i < x.size(); ++i)
        all.push_back(x[i]);
    return all;
}

TEST(Matrix, StartsRealAndEmpty)
{
    const Matrix<2> A;

    EXPECT_TRUE(A.isReal());
    EXPECT_EQ(A.size(), 0u);
    EXPECT_EQ(A.size(0) + A.size(1), 0u);
}

TEST(Matrix, SetOnACopyLeavesTheSourceUnchangedAndReal)
{
    const Matrix<1> source = realVector({5, 6, 7});
    Matrix<1> copy = source;

    copy.set(1, cplx(1, 0));

    EXPECT_TRUE(copy.isReal());
    EXPECT_EQ(elements(source), (Values{5, 6, 7}));
    EXPECT_EQ(elements(copy), (Values{5, 1, 7}));
}

TEST(Matrix, SetWithAnImaginaryPartPromotes)
{
    Matrix<1> x = realVector({1, 2});

    x.set(0, cplx(0, 3));

    EXPECT_FALSE(x.isReal());
    EXPECT_EQ(elements(x), (Values{{0, 3}, 2}));
}

TEST(Matrix, SetTakesNaNForAnImaginaryPartThatIsNotZero)
{
    Matrix<1> x = realVector({1, 2});

    x.set(0, cplx(0, notANumber));

    EXPECT_FALSE(x.isReal());
    EXPECT_TRUE(std::isnan(x[0].imag()));
}

TEST(Matrix, SetByRowAndColumnIsColumnMajor)
{
    Matrix<2> A(2, 3, true);

    A.set(1, 2, 9.0);

    EXPECT_EQ(elements(A), (Values{0, 0, 0, 0, 0, 9}));
}

TEST(Matrix, ElementOfARealMatrixHasZeroImaginaryPart)
{
    EXPECT_EQ(realVector({4})[0], cplx(4, 0));
}

TEST(Matrix, NewMatricesReadAsZeros)
{
    EXPECT_EQ(elements(Matrix<1>(3, true)), Values(3));
    EXPECT_EQ(elements(Matrix<2>(2, 2, false)), Values(4));
    EXPECT_FALSE(Matrix<2>(2, 2, false).isReal());
}

TEST(Matrix, AdoptsASharedArray)
{
    const boost::shared_ptr<RealVector> d(new RealVector(2));
    const boost::shared_ptr<ComplexVector> z(new ComplexVector(2));

    EXPECT_EQ(&Matrix<1>(d).gethdArr(), d.get());
    EXPECT_EQ(&Matrix<1>(z).gethzArr(), z.get());
    EXPECT_FALSE(Matrix<1>(z).isReal());
    EXPECT_EQ(Matrix<1>(boost::shared_ptr<RealVector>()).size(), 0u);
}

TEST(Matrix, WritingLeavesTheAdoptedArrayToItsOtherHolder)
{
    const boost::shared_ptr<RealVector> held(new RealVector(1));
    (*held)[0] = 1.0;
    Matrix<1> x(held);

    x.set(0, 2.0);

    EXPECT_EQ((*held)[0], 1.0);
    EXPECT_EQ(x[0], cplx(2));
}

TEST(Matrix, SizeOfAnEmptyMatrixKeepsItsExtents)
{
    const Matrix<2> A(0, 3, true);

    EXPECT_EQ(A.size(), 0u);
    EXPECT_EQ(A.size(0), 0u);
    EXPECT_EQ(A.size(1), 3u);
}

TEST(Matrix, HasUniqueDataUntilItIsCopied)
{
    Matrix<1> x = realVector({1});
    EXPECT_TRUE(x.hasUniqueData());

    const Matrix<1> y = x;
    EXPECT_FALSE(x.hasUniqueData());

    x.set(0, 2.0);
    EXPECT_TRUE(x.hasUniqueData());
    EXPECT_TRUE(y.hasUniqueData());
}

TEST(Matrix, WritingAnUnsharedMatrixKeepsItsArray)
{
    Matrix<1> x = realVector({1});
    const RealVector* before = &x.gethdArr();

    x.set(0, 2.0);
    x *= cplx(2.0);

    EXPECT_EQ(&x.gethdArr(), before);
}

TEST(Matrix, ScalingByARealStaysRealAndByAComplexPromotes)
{
    Matrix<1> x = realVector({1, -2}), y = x;

    x *= cplx(2, 0);
    y *= cplx(0, 1);

    EXPECT_TRUE(x.isReal());
    EXPECT_EQ(elements(x), (Values{2, -4}));
    EXPECT_EQ(elements(y), (Values{{0, 1}, {0, -2}}));
}

TEST(Matrix, ScalingByZeroKeepsNaN)
{
    Matrix<1> x = realVector({1, notANumber}), z = complexVector({{1, notANumber}});

    x *= cplx(0.0);
    z *= cplx(0.0);

    EXPECT_EQ(x[0], cplx(0));
    EXPECT_TRUE(std::isnan(x[1].real()));
    EXPECT_EQ(z[0].real(), 0.0);
    EXPECT_TRUE(std::isnan(z[0].imag()));
}

TEST(Matrix, AssignmentOfANumberSetsAllElementsAndPromotesForAnImaginaryPart)
{
    Matrix<1> x = realVector({1, 2});
    const Matrix<1> sharer = x;

    x = cplx(3, 0);
    EXPECT_TRUE(x.isReal());
    EXPECT_EQ(elements(x), (Values{3, 3}));

    x = cplx(3, 1);
    EXPECT_EQ(elements(x), (Values{{3, 1}, {3, 1}}));
    EXPECT_EQ(elements(sharer), (Values{1, 2}));
}

TEST(Matrix, TrueCopySharesNothing)
{
    const Matrix<1> source = realVector({1, 2});
    Matrix<1> copy;

    copy.trueCopy(source, true);
    EXPECT_TRUE(copy.hasUniqueData());
    copy.set(0, 9.0);

    EXPECT_EQ(source[0], cplx(1));
}

TEST(Matrix, TrueCopyToComplexHasZeroImaginaryParts)
{
    Matrix<1> copy;

    copy.trueCopy(realVector({1, 2}), false);

    EXPECT_FALSE(copy.isReal());
    EXPECT_EQ(elements(copy), (Values{1, 2}));
}

TEST(Matrix, TrueCopyOfAComplexMatrixIsComplexWhateverIsAsked)
{
    const Matrix<1> source = complexVector({{1, 2}});
    Matrix<1> copy;

    copy.trueCopy(source, true);

    EXPECT_EQ(elements(copy), elements(source));
    EXPECT_TRUE(copy.hasUniqueData());
}

TEST(Matrix, TrueCopyClearsNoRealloc)
{
    Matrix<1> source = realVector({1}), copy;
    source.setNoRealloc(true);

    copy.trueCopy(source, true);
    EXPECT_FALSE(copy.isNoRealloc());
    copy.trueCopy(source, false);
    EXPECT_FALSE(copy.isReal());
}

TEST(Matrix, ComplexArrayOfASharedRealMatrixIsPrivateAndSharersStayReal)
{
    Matrix<1> x = realVector({1, 2});
    const Matrix<1> sharer = x;

    x.getzArr()[0] = cplx(0, 1);

    EXPECT_FALSE(x.isReal());
    EXPECT_TRUE(sharer.isReal());
    EXPECT_EQ(elements(sharer), (Values{1, 2}));
}

TEST(Matrix, TheArrayOfTheOtherTypeIsRefused)
{
    Matrix<1> z = complexVector({{1, 2}});

    EXPECT_EQ(idOf([&] { z.getdArr(); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { z.gethdArr(); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { realVector({1}).gethzArr(); }), "Internal_error_matrix");
    EXPECT_EQ(z[0], cplx(1, 2));
}

TEST(Matrix, FailureNamesTheHeaderAsItsSource)
{
    Matrix<1> x = realVector({1});
    x.setNoRealloc(true);

    const qxbase::Exception e = failureOf([&] { x.real2complex(); });

    EXPECT_EQ(e.getId(), "Internal_error_matrix");
    EXPECT_EQ(e.getFile(0), "../include/matrix.hpp");
}

TEST(Matrix, ReplacingANoReallocArrayIsRefusedAndChangesNothing)
{
    Matrix<1> x = realVector({1, 2});
    x.setNoRealloc(true);

    EXPECT_EQ(idOf([&] { x.real2complex(); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { x.getzArr(); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { x.set(0, cplx(0, 1)); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { x = cplx(0, 1); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { x *= cplx(0, 1); }), "Internal_error_matrix");
    EXPECT_EQ(idOf([&] { x.clear(); }), "Internal_error_matrix");

    EXPECT_TRUE(x.isReal());
    EXPECT_EQ(elements(x), (Values{1, 2}));
}

TEST(Matrix, PromotionOfAComplexNoReallocMatrixDoesNothing)
{
    Matrix<1> z = complexVector({{1, 2}});
    z.setNoRealloc(true);
    const ComplexVector* before = &z.gethzArr();

    z.real2complex();

    EXPECT_EQ(&z.gethzArr(), before);
}

TEST(Matrix, SetNoReallocMakesASharedMatrixPrivateFirst)
{
    Matrix<1> x = realVector({1});
    const Matrix<1> sharer = x;

    x.setNoRealloc(true);

    EXPECT_NE(&x.gethdArr(), &sharer.gethdArr());
    x.set(0, 2.0);
    EXPECT_EQ(sharer[0], cplx(1));
}

TEST(Matrix, RequiredQuirkCopiesOfANoReallocMatrixAliasItsBuffer)
{
    Matrix<1> x = realVector({1});
    x.setNoRealloc(true);
    Matrix<1> copy = x;

    copy.set(0, 2.0);

    EXPECT_TRUE(copy.isNoRealloc());
    EXPECT_EQ(x[0], cplx(2));
}

TEST(Matrix, RequiredQuirkClearKeepsTheElementType)
{
    Matrix<1> z = complexVector({{1, 2}});
    const Matrix<1> sharer = z;

    z.clear();

    EXPECT_FALSE(z.isReal());
    EXPECT_EQ(z.size(), 0u);
    EXPECT_EQ(sharer.size(), 1u);
}

TEST(Matrix, FillWritesAColumnAndPromotesForAComplexOne)
{
    Matrix<2> A(2, 2, true), Z(1, 2, false);

    A.fill(realVector({1, 2}), 1);
    EXPECT_EQ(elements(A), (Values{0, 0, 1, 2}));
    EXPECT_TRUE(A.isReal());

    A.fill(complexVector({{1, 1}, 2}), 0);
    Z.fill(realVector({3}), 1);
    EXPECT_EQ(elements(A), (Values{{1, 1}, 2, 1, 2}));
    EXPECT_EQ(elements(Z), (Values{0, 3}));
}

TEST(Matrix, RequiredQuirkFillRefusesAShortVectorAndCutsALongOne)
{
    Matrix<2> A(2, 1, true);

    EXPECT_EQ(idOf([&] { A.fill(realVector({1}), 0); }), "Too_few_elements_in_fill");
    EXPECT_EQ(elements(A), (Values{0, 0}));

    A.fill(realVector({1, 2, 3}), 0);
    EXPECT_EQ(elements(A), (Values{1, 2}));
}

TEST(Matrix, FillBeyondTheLastColumnIsRefused)
{
    Matrix<2> A(2, 1, true);

    EXPECT_EQ(idOf([&] { A.fill(realVector({1, 2}), 1); }), "Internal_error_matrix");
}

TEST(Matrix, HcatOfARealAndAComplexVectorIsComplex)
{
    const Matrix<2> A = hcat({realVector({1, 2}), complexVector({{0, 3}, 4})});

    EXPECT_FALSE(A.isReal());
    EXPECT_EQ(A.size(1), 2u);
    EXPECT_EQ(elements(A), (Values{1, 2, {0, 3}, 4}));
}

TEST(Matrix, RequiredQuirkHcatTakesTheRowsOfTheFirstVectorAndCutsLongerOnes)
{
    EXPECT_EQ(elements(hcat({realVector({1}), realVector({2, 3})})), (Values{1, 2}));
    EXPECT_EQ(idOf([] { hcat({realVector({1, 2}), realVector({3})}); }), "Too_few_elements_in_fill");
    EXPECT_EQ(hcat({}).size(), 0u);
}

TEST(Matrix, NormIsTheTwoNorm)
{
    EXPECT_DOUBLE_EQ(norm(realVector({3, 4})), 5.0);
    EXPECT_DOUBLE_EQ(norm(complexVector({{0, 3}, {4, 0}})), 5.0);
    EXPECT_EQ(norm(Matrix<2>()), 0.0);
}

TEST(Matrix, RequiredQuirkDotIsUnconjugated)
{
    const Matrix<1> z = complexVector({{0, 1}});

    EXPECT_EQ(dot(z, z), cplx(-1));
    EXPECT_EQ(dot(realVector({2}), z), cplx(0, 2));
    EXPECT_EQ(dot(realVector({1, 2}), realVector({3, 4})), cplx(11));
    EXPECT_EQ(idOf([&] { dot(realVector({1, 2}), z); }), "Internal_numerical_error");
}

TEST(Matrix, MixedSumsPromoteTheTarget)
{
    const cplx i(0, 1);
    struct Case
    {
        Matrix<1> y;
        cplx a;
        Matrix<1> x;
        Values sum;
        bool real;
    } cases[] = {
        {realVector({1, 2}), 2, realVector({3, 4}), {7, 10}, true},
        {realVector({1, 2}), i, realVector({3, 4}), {{1, 3}, {2, 4}}, false},
        {realVector({1, 2}), 2, complexVector({i, 1}), {{1, 2}, 4}, false},
        {complexVector({i, 2}), 2, realVector({3, 4}), {{6, 1}, 10}, false},
        {complexVector({i, 2}), i, realVector({3, 4}), {{0, 4}, {2, 4}}, false},
        {complexVector({i, 2}), 2, complexVector({i, 1}), {{0, 3}, 4}, false},
        {complexVector({i, 2}), i, complexVector({i, 1}), {{-1, 1}, {2, 1}}, false},
    };
    for (Case& c : cases) {
        yPlusaMulx(c.y, c.a, c.x);
        EXPECT_EQ(elements(c.y), c.sum);
        EXPECT_EQ(c.y.isReal(), c.real);
    }
}

TEST(Matrix, SumWithItselfChangesNoSharer)
{
    Matrix<1> x = realVector({1, 2});
    const Matrix<1> sharer = x;

    yPlusaMulx(x, 1.0, x);
    EXPECT_EQ(elements(x), (Values{2, 4}));
    EXPECT_EQ(elements(sharer), (Values{1, 2}));

    yPlusaMulx(x, cplx(0, 1), x);
    EXPECT_EQ(elements(x), (Values{{2, 2}, {4, 4}}));
}

TEST(Matrix, SumIntoARealNoReallocMatrixMustBeReal)
{
    Matrix<1> y = realVector({1});
    y.setNoRealloc(true);

    EXPECT_EQ(idOf([&] { yPlusaMulx(y, cplx(0, 1), realVector({1})); }), "Internal_error_matrix");
    EXPECT_EQ(y[0], cplx(1));
}

TEST(Matrix, SumOfDifferentLengthsIsRefusedBeforePromotion)
{
    Matrix<1> y = realVector({1});

    EXPECT_EQ(detailOf([&] { yPlusaMulx(y, 1.0, realVector({1, 2})); }),
              "yPlusaMulx: x and y does not have the same length.");
    EXPECT_EQ(detailOf([&] { yPlusaMulx(y, cplx(0, 1), realVector({1, 2})); }),
              "yPlusaMulx: y and x does not have the same length.");
    EXPECT_TRUE(y.isReal());
}

TEST(Matrix, LinsolvPromotesAMixedPair)
{
    Matrix<2> A(2, 2, true);
    A.set(0, 0, 2.0);
    A.set(1, 1, 4.0);
    Matrix<1> b = complexVector({{0, 2}, 4});

    EXPECT_EQ(linsolv(A, b, 3), 0);

    EXPECT_EQ(elements(b), (Values{{0, 1}, 1}));
}

TEST(Matrix, LuAndLinsolvsolveEqualLinsolv)
{
    Matrix<2> A(2, 2, true);
    A = cplx(1.0);
    A.set(0, 0, 3.0);
    const Matrix<2> original = A;
    Matrix<1> x = realVector({5, 3}), b = x;
    Array<int, 1> ipiv;

    EXPECT_EQ(lu(A, ipiv, 3), 0);
    EXPECT_EQ(linsolvsolve(A, ipiv, b, 3), 0);
    Matrix<2> copy = original;
    EXPECT_EQ(linsolv(copy, x, 3), 0);

    EXPECT_EQ(elements(b), elements(x));
    EXPECT_EQ(elements(x), (Values{1, 2})); // 3 + 2 = 5, 1 + 2 = 3
    EXPECT_EQ(original[0], cplx(3));
}

TEST(Matrix, ThreeDimensionsAreStoredAndShared)
{
    const boost::shared_ptr<Array<double, 3>> cube(new Array<double, 3>(2, 3, 4));
    *cube = 1.0;
    Matrix<3> x(cube);

    EXPECT_EQ(x.size(), 24u);
    EXPECT_EQ(x.size(2), 4u);
    EXPECT_EQ(x.getzArr()(1, 2, 3), cplx(1));
    EXPECT_FALSE(x.isReal());
}

TEST(Matrix, AllocationFailureLeavesEveryOperandAsItWas)
{
    const Matrix<1> x = realVector({1, 2}), z = complexVector({{0, 1}, 3});
    const Values xs = elements(x), zs = elements(z);
    Matrix<1> target, y;

    const auto unchanged = [&](const qxtest::FaultRun& run) {
        EXPECT_TRUE(run.badAlloc || !run.faulted) << run.id;
        EXPECT_EQ(elements(x), xs);
        EXPECT_EQ(elements(z), zs);
        EXPECT_TRUE(x.isReal());
        if (run.faulted) {
            EXPECT_EQ(elements(target), xs);
            EXPECT_TRUE(target.isReal());
        }
        target = x;
    };
    const std::function<void()> operations[] = {
        [&] { target.set(0, 2.0); },
        [&] { target.set(0, cplx(0, 1)); },
        [&] { target = cplx(0, 1); },
        [&] { target *= cplx(0, 1); },
        [&] { target.real2complex(); },
        [&] { target.clear(); },
        [&] { target.setNoRealloc(true); target.setNoRealloc(false); },
        [&] { target.trueCopy(z, true); },
        [&] { yPlusaMulx(target, cplx(0, 1), z); },
        [&] { (void)dot(x, z); },
        [&] { hcat({z, x}); },
    };
    for (const std::function<void()>& operation : operations) {
        target = x;
        EXPECT_GT(qxtest::failEveryAllocation(operation, unchanged), 0);
    }
}

// --- Raw kernels ---------------------------------------------------------------------------------------------------

class MixedKernels : public testing::TestWithParam<unsigned long>
{
protected:
    void SetUp() override
    {
        x.resize(GetParam());
        y.resize(GetParam());
        for (unsigned long i = 0; i < GetParam(); ++i) {
            x[i] = 1.0 / (1.0 + static_cast<double>(i));
            y[i] = cplx(static_cast<double>(i % 17), 0.1);
        }
    }

    template <class F>
    ComplexVector run(int threads, F f)
    {
        const int before = qxbase::setAvailableThreads(threads);
        ComplexVector result = y;
        f(result.data(), x.data(), GetParam());
        qxbase::setAvailableThreads(before);
        return result;
    }

    template <class F>
    void expectSameBits(F f)
    {
        const ComplexVector one = run(1, f);
        for (const int threads : {2, 3, 7, 16}) {
            const ComplexVector many = run(threads, f);
            EXPECT_TRUE(std::equal(one.begin(), one.end(), many.begin())) << threads << " threads";
        }
    }

    RealVector x;
    ComplexVector y;
};

TEST_P(MixedKernels, GiveTheSameBitsForAnyNumberOfThreads)
{
    expectSameBits([](cplx* a, const double* b, unsigned long n) { qxmatrix::copy(a, b, n); });
    expectSameBits([](cplx* a, const double* b, unsigned long n) { qxmatrix::times(a, b, n); });
    expectSameBits([](cplx* a, const double*, unsigned long n) { qxmatrix::scale(a, 1.0 / 3.0, n); });
    expectSameBits([](cplx* a, const double*, unsigned long n) { qxmatrix::yPlusa(a, 1.0 / 3.0, n); });
    expectSameBits([](cplx* a, const double* b, unsigned long n) { qxmatrix::yPlusaMulx(a, cplx(0.1, 0.3), b, n); });
    expectSameBits([](cplx* a, const double* b, unsigned long n) { qxmatrix::yPlusaMulx(a, 0.1, b, n); });
}

TEST_P(MixedKernels, FollowTheirFormulas)
{
    const ComplexVector t = run(2, [](cplx* a, const double* b, unsigned long n) { qxmatrix::times(a, b, n); });
    const ComplexVector c = run(2, [](cplx* a, const double* b, unsigned long n) { qxmatrix::copy(a, b, n); });
    const ComplexVector s =
        run(2, [](cplx* a, const double* b, unsigned long n) { qxmatrix::yPlusaMulx(a, cplx(0.0, 2.0), b, n); });

    for (unsigned long i = 0; i < GetParam(); ++i) {
        ASSERT_EQ(t[i], cplx(y[i].real() * x[i], y[i].imag() * x[i])) << i;
        ASSERT_EQ(s[i], cplx(y[i].real(), y[i].imag() + 2.0 * x[i])) << i;
        ASSERT_EQ(c[i], cplx(x[i])) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(OnBothSidesOfTheThreshold, MixedKernels, testing::Values(0ul, 1ul, 9999ul, 10000ul, 10001ul));

TEST(QxMatrix, PureFormsAreThoseOfTheArrays)
{
    double x[] = {1, 2}, y[] = {3, 5};
    cplx u[] = {{0, 1}, 2}, v[] = {{1, 1}, 3};

    qxmatrix::times(y, x, 2);
    EXPECT_EQ(y[1], 10.0);
    qxmatrix::times(v, u, 2);
    EXPECT_EQ(v[0], cplx(-1, 1));
    qxmatrix::yPlusaMulx(v, cplx(0, 1), u, 2);
    EXPECT_EQ(v[0], cplx(-2, 1));
    qxmatrix::scale(x, 3.0, 2);
    EXPECT_EQ(x[1], 6.0);
    qxmatrix::yPlusa(u, cplx(1, 1), 2);
    EXPECT_EQ(u[0], cplx(1, 2));
    qxmatrix::copy(u, v, 2);
    EXPECT_EQ(u[0], v[0]);
    const double triple[] = {2, 3, 6};
    EXPECT_DOUBLE_EQ(qxmatrix::norm(triple, 3), 7.0);
}

TEST(MixedVectors, EveryFormOfAComplexVectorWithARealNumberOrVectorIsTheFormulaElementByElement)
{
    using cplx = std::complex<double>;
    const cplx y0[] = {{1, 2}, {-3, 4}, {0, -5}};
    const double x[] = {2, -0.5, 3};
    const auto apply = [&](auto&& form) {
        std::vector<cplx> y(y0, y0 + 3);
        form(y.data());
        return y;
    };
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::copy(y, x, 3); }), (std::vector<cplx>{2.0, -0.5, 3.0}));
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::times(y, x, 3); }), (std::vector<cplx>{{2, 4}, {1.5, -2}, {0, -15}}));
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::scale(y, 2.0, 3); }), (std::vector<cplx>{{2, 4}, {-6, 8}, {0, -10}}));
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::yPlusa(y, 2.0, 3); }), (std::vector<cplx>{{3, 2}, {-1, 4}, {2, -5}}));
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::yPlusaMulx(y, 2.0, x, 3); }), (std::vector<cplx>{{5, 2}, {-4, 4}, {6, -5}}));
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::yPlusaMulx(y, cplx(0, 2), x, 3); }),
              (std::vector<cplx>{{1, 6}, {-3, 3}, {0, 1}}));
    EXPECT_EQ(apply([&](cplx* y) { qxmatrix::yPlusaMulx(y, 2.0, y0, 3); }), (std::vector<cplx>{{3, 6}, {-9, 12}, {0, -15}}));
}

} // namespace

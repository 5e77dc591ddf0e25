// SPDX-License-Identifier: LicenseRef-qxkernel
#include "umfpack.hpp"

#include "arrayutil.hpp"
#include "qxcutil.h"
#include "qxparallel.hpp"
#include "qxrun.hpp"
#include "failing_calloc.hpp"
#include "solvers/umfpack_context.h"
#include "sparse_values.hpp"
#include "support/alloc_fault.hpp"

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <random>
#include <stdexcept>
#include <thread>
#include <umfpack.h>

namespace {

using namespace solverstest;

class UmfpackTest : public testing::Test
{
protected:
    qxutil::RunInfo run;
    Umfpack solver{run};

    void factorise(const Sparse& A, bool transpose = false, bool allowSingular = false, bool scale = true)
    {
        Sparse copy(A);
        solver.init(copy, false, transpose, allowSingular, scale);
    }

    /// Solution for a dense right-hand side, as a column.
    Dense solution(const Dense& b)
    {
        std::vector<cplx> values;
        for (const auto& row : b)
            values.push_back(row[0]);
        Matrix<1> x;
        EXPECT_EQ(solver.solve(complexVector(values), x), 1);
        Dense column(x.size(), std::vector<cplx>(1));
        for (unsigned long i = 0; i < x.size(); ++i)
            column[i][0] = x[i];
        return column;
    }

    void expectSolves(const Sparse& A)
    {
        factorise(A);
        const Dense D = denseOf(A), wanted = randomDense(D.size(), 1, 77, true);
        EXPECT_TRUE(allNear(solution(times(D, wanted)), wanted, 1e-10));
    }
};

Sparse withSymm(Sparse A, Symm_t symm)
{
    A.setSymm(symm);
    return A;
}

const Dense threeByThree = {{4, 1, 0}, {1, 5, 2}, {0, -2, 6}};

TEST_F(UmfpackTest, SolvesOneByOneAndPermutedIdentity)
{
    factorise(sparseOf({{4}}));
    EXPECT_TRUE(allNear(solution({{8}}), {{2}}, 0.0));

    factorise(sparseOf({{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}));
    EXPECT_TRUE(allNear(solution({{7}, {8}, {9}}), {{8}, {9}, {7}}, 0.0));
}

TEST_F(UmfpackTest, SolvesARandomMatrixToASmallResidual)
{
    Dense D = randomDense(200, 200, 1, false, 0.05);
    for (int i = 0; i < 200; ++i)
        D[i][i] += 3.0;
    factorise(sparseOf(D));
    Matrix<1> x;

    EXPECT_EQ(solver.solve(realVector(std::vector<double>(200, 1.0)), x), 1);

    EXPECT_TRUE(x.isReal());
    for (int i = 0; i < 200; ++i) {
        cplx sum = -1.0;
        for (int j = 0; j < 200; ++j)
            sum += D[i][j] * x[j];
        EXPECT_LE(std::abs(sum), 1e-12);
    }
}

TEST_F(UmfpackTest, SolvesWhatEveryKindOfStoreStandsFor)
{
    const cplx i(0, 1);
    expectSolves(sparseOf(threeByThree));
    expectSolves(withSymm(sparseOf({{2, 0, 0}, {1, 3, 0}, {0, -1, 4}}), Symmetric));
    expectSolves(withSymm(sparseOf({{2, 0, 0}, {1.0 + i, 3, 0}, {0, -i, 4}}), Symmetric));
    expectSolves(withSymm(sparseOf({{2, 0, 0}, {1.0 + i, 3, 0}, {0, -i, 4}}), Hermitian));
    expectSolves(withSymm(sparseOf(threeByThree), RowStored));
    expectSolves(sparseOf({{4.0 + i, 1, 0}, {i, 5, 2}, {0, -2.0 * i, 6}}));
}

TEST_F(UmfpackTest, ASymmetricStoreWithHalvedDiagonalIsTheTrueMatrix)
{
    factorise(withSymm(sparseOf({{1, 0}, {-1, 1}}), Symmetric)); // stands for (2 -1; -1 2)

    EXPECT_TRUE(allNear(solution({{1}, {1}}), {{1}, {1}}, 1e-15));
}

TEST_F(UmfpackTest, RequiredQuirkTransposedSolveDoesNotConjugate)
{
    const cplx i(0, 1);
    const Dense D = {{2.0 + i, 1, 0}, {3.0 * i, 4, i}, {1, 0, 5.0 - i}};
    const Dense wanted = {{1}, {i}, {2.0 - i}};
    factorise(sparseOf(D));

    solver.setTranspose(true);
    EXPECT_TRUE(allNear(solution(times(transposed(D), wanted)), wanted, 1e-14));

    solver.setTranspose(true);
    EXPECT_TRUE(allNear(solution(times(transposed(D), wanted)), wanted, 1e-14));

    solver.setTranspose(false);
    EXPECT_TRUE(allNear(solution(times(D, wanted)), wanted, 1e-14));

    factorise(sparseOf(D), true);
    EXPECT_TRUE(allNear(solution(times(transposed(D), wanted)), wanted, 1e-14));
}

TEST_F(UmfpackTest, DuplicatesCountAsTheirSumAndStayInTheStore)
{
    const std::vector<unsigned long> colPtr = {0, 3, 5}, rows = {1, 0, 1, 1, 0};
    Sparse A;
    A.flat2sparse(rows, colPtr, realVector({1, 4, 2, 5, 1}), 2, 2); // (4 1; 1+2 5)

    expectSolves(A);

    EXPECT_EQ(A.getNnz(), 5u);
    EXPECT_TRUE(allNear(denseOf(A), {{4, 1}, {3, 5}}, 0.0));
}

TEST_F(UmfpackTest, AnEmptyMatrixIsDoneAtOnceAndSolveCopies)
{
    for (const bool allowSingular : {false, true}) {
        factorise(sparseOf({}), false, allowSingular);
        Matrix<1> x = realVector({1, 2});
        EXPECT_EQ(solver.solve(realVector({}), x), 1);
        EXPECT_EQ(x.size(), 0u);
    }
    EXPECT_NO_THROW(factorise(sparseOf({}, false, 3)));
}

TEST_F(UmfpackTest, ANonSquareMatrixIsRefusedUnlessSingularOnesAreAllowed)
{
    const Sparse tall = sparseOf({{1, 0}, {0, 1}, {1, 1}});

    EXPECT_EQ(idOf([&] { factorise(tall); }), "Matrix_not_square");
    EXPECT_NO_THROW(factorise(tall, false, true));
    Matrix<1> x;
    EXPECT_EQ(idOf([&] { solver.solve(realVector({1, 2, 3}), x); }), "Internal_error_in_UMFPACK");
}

TEST_F(UmfpackTest, AZeroMatrixIsRefusedBeforeUmfpackAndAcceptedIfSingularOnesAre)
{
    Sparse explicitZero = sparseOf({{1, 1}, {1, 1}}), none;
    std::fill_n(explicitZero.getDoubleVal(), 4, 0.0);
    none.zeros(2);

    for (const Sparse& A : {explicitZero, none}) {
        EXPECT_EQ(idOf([&] { factorise(A); }), "Matrix_is_zero");
        EXPECT_NO_THROW(factorise(A, false, true));
        Matrix<1> x;
        EXPECT_EQ(idOf([&] { solver.solve(realVector({1, 2}), x); }), "Singular_matrix");
    }
}

TEST_F(UmfpackTest, NaNAndInfinityAreSingularNotZero)
{
    for (const double bad : {notANumber, std::numeric_limits<double>::infinity()}) {
        Sparse A = sparseOf({{1, 1}, {1, 2}});
        std::fill_n(A.getDoubleVal(), 4, 0.0);
        A.getDoubleVal()[0] = bad;
        EXPECT_EQ(idOf([&] { factorise(A); }), "Singular_matrix");
    }
}

TEST_F(UmfpackTest, AnExactlySingularMatrixRaisesOrIsAcceptedAndThenSolveRaises)
{
    const Sparse A = sparseOf({{1, 2}, {2, 4}});

    EXPECT_EQ(idOf([&] { factorise(A); }), "Singular_matrix");
    EXPECT_EQ(failureOf([&] { factorise(A); }).getFile(0), "umfpack");

    factorise(A, false, true);
    Matrix<1> x;
    EXPECT_EQ(idOf([&] { solver.solve(realVector({1, 2}), x); }), "Singular_matrix");
    Array<cplx, 1> b(2), z;
    b = cplx(1);
    EXPECT_EQ(idOf([&] { solver.solve(b, z); }), "Singular_matrix");
}

TEST_F(UmfpackTest, ANumericallySingularMatrixIsNotNoticed)
{
    EXPECT_NO_THROW(factorise(sparseOf({{1, 4, 7}, {2, 5, 8}, {3, 6, 9}})));
}

TEST_F(UmfpackTest, AfterAFailedInitSolveRaisesAndTheNextInitWorks)
{
    EXPECT_EQ(idOf([&] { factorise(sparseOf({{1, 2}, {2, 4}})); }), "Singular_matrix");

    Matrix<1> x;
    const qxbase::Exception e = failureOf([&] { solver.solve(realVector({1, 2}), x); });
    EXPECT_EQ(e.getId(), "Internal_error_in_UMFPACK");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Error_code", "-3"}}));

    expectSolves(sparseOf(threeByThree));
}

TEST_F(UmfpackTest, SolveBeforeInitOrWithAWrongLengthRaises)
{
    Matrix<1> x;
    Array<double, 1> two(2), y;
    two = 1.0;
    EXPECT_EQ(idOf([&] { solver.solve(realVector({1, 2}), x); }), "Internal_error_in_UMFPACK");

    factorise(sparseOf(threeByThree));
    EXPECT_EQ(idOf([&] { solver.solve(realVector({1, 2}), x); }), "Internal_error_in_UMFPACK");
    EXPECT_EQ(idOf([&] { solver.solve(complexVector({1, 2}), x); }), "Internal_error_in_UMFPACK");
    EXPECT_EQ(idOf([&] { solver.solve(two, y); }), "Internal_error_in_UMFPACK");
}

TEST_F(UmfpackTest, RequiredQuirkComplexFactorsRefuseTheRealArraySolve)
{
    factorise(sparseOf({{cplx(0, 2)}}));
    Array<double, 1> b(1), x;
    b = 1.0;

    EXPECT_EQ(idOf([&] { solver.solve(b, x); }), "Internal_error_in_UMFPACK");
    Matrix<1> z;
    EXPECT_EQ(solver.solve(realVector({4}), z), 1); // the matrix form promotes
    EXPECT_EQ(z[0], cplx(0, -2));
}

TEST_F(UmfpackTest, RealFactorsSolveForAComplexVector)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    Matrix<1> x = realVector({9, 9, 9});
    const Matrix<1> sharer = x;

    EXPECT_EQ(solver.solve(complexVector({cplx(2, 4), 8}), x), 1);

    EXPECT_EQ(x[0], cplx(1, 2));
    EXPECT_EQ(x[1], cplx(2));
    EXPECT_EQ(sharer.size(), 3u);
}

TEST_F(UmfpackTest, TheSolutionMayReplaceTheRightHandSide)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    Matrix<1> x = realVector({2, 8}), z = complexVector({2, cplx(0, 8)});
    Array<double, 1> y(2);
    y = 4.0;

    solver.solve(x, x);
    solver.solve(z, z);
    solver.solve(y, y);

    EXPECT_EQ(x[1], cplx(2));
    EXPECT_EQ(z[1], cplx(0, 2));
    EXPECT_EQ(y[0], 2.0);
    EXPECT_EQ(y[1], 1.0);
}

TEST_F(UmfpackTest, ANoReallocSolutionMustHaveTheLength)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    Matrix<1> x(2, true), wrong(3, true);
    x.setNoRealloc(true);
    wrong.setNoRealloc(true);
    const double* buffer = x.gethdArr().data();

    solver.solve(realVector({2, 4}), x);

    EXPECT_EQ(x.gethdArr().data(), buffer);
    EXPECT_EQ(x[0], cplx(1));
    EXPECT_EQ(idOf([&] { solver.solve(realVector({2, 4}), wrong); }), "Internal_error_in_UMFPACK");
    EXPECT_EQ(idOf([&] { solver.solve(complexVector({2, 4}), x); }), "Internal_error_matrix");
}

TEST_F(UmfpackTest, RequiredQuirkOnlyTheMatrixFormLooksForNaN)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    Array<double, 1> b(2), x;
    b = notANumber;
    Array<cplx, 1> zb(2), zx;
    zb = cplx(notANumber);
    Matrix<1> y;

    EXPECT_EQ(solver.solve(b, x), 1);
    EXPECT_TRUE(std::isnan(x[0]));
    EXPECT_EQ(solver.solve(zb, zx), 1);
    const auto matrixForm = [&] { solver.solve(realVector({notANumber, 1}), y); };
    EXPECT_EQ(idOf(matrixForm), "Undefined_value_found_Linsolv");
    EXPECT_EQ(detailOf(matrixForm), "NaN_or_Inf_found_when_solving_linear_system_using_UMFPACK");
}

TEST_F(UmfpackTest, ClearInputEmptiesTheHandleAndLeavesSharers)
{
    Sparse A = sparseOf(threeByThree);
    const Sparse sharer = A;

    solver.init(A, true, false, false, true);

    EXPECT_EQ(A.getM() + A.getN() + A.getNnz(), 0u);
    EXPECT_TRUE(allNear(denseOf(sharer), threeByThree, 0.0));
    EXPECT_TRUE(allNear(solution(times(threeByThree, {{1}, {2}, {3}})), {{1}, {2}, {3}}, 1e-14));
}

TEST_F(UmfpackTest, ClearInputHoldsAlsoWhenTheFactorisationFails)
{
    Sparse A = sparseOf({{1, 2}, {2, 4}});

    EXPECT_EQ(idOf([&] { solver.init(A, true, false, false, true); }), "Singular_matrix");

    EXPECT_EQ(A.getM(), 0u);
}

TEST_F(UmfpackTest, ClearReleasesEverything)
{
    factorise(sparseOf(threeByThree));
    solver.clear();

    Matrix<1> x;
    EXPECT_EQ(idOf([&] { solver.solve(realVector({1, 2, 3}), x); }), "Internal_error_in_UMFPACK");
    EXPECT_EQ(solver.solve(realVector({}), x), 1);
    solver.clear();
}

TEST_F(UmfpackTest, CheckTolerancesReturnsItsThreeCodes)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    const Matrix<1> b = realVector({2, 4}), x = realVector({1, 1}), off = realVector({1.5, 1});
    double res = -1.0, err = -1.0;

    EXPECT_EQ(solver.checkTolerances(x, b, 0.0, 0.0, res, err), 1);
    EXPECT_EQ(res, 0.0);
    EXPECT_EQ(err, 0.0);

    // r = A off - b = (1, 0), e = (1/2, 0)
    EXPECT_EQ(solver.checkTolerances(off, b, 0.1, 1.0, res, err), -15);
    EXPECT_NEAR(res, 1.0 / std::sqrt(20.0), 1e-15);
    EXPECT_EQ(solver.checkTolerances(off, b, 1.0, 0.1, res, err), -16);
    EXPECT_NEAR(err, 0.5 / std::sqrt(3.25), 1e-15);
    EXPECT_EQ(solver.checkTolerances(off, b, res, err, res, err), 1); // equal does not exceed
}

TEST_F(UmfpackTest, CheckTolerancesIsAbsoluteForZeroVectors)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    double res = 0.0, err = 0.0;

    EXPECT_EQ(solver.checkTolerances(realVector({1, 0}), realVector({0, 0}), 5.0, 5.0, res, err), 1);
    EXPECT_EQ(res, 2.0);
    EXPECT_EQ(solver.checkTolerances(realVector({0, 0}), realVector({2, 0}), 5.0, 5.0, res, err), 1);
    EXPECT_EQ(err, 1.0);
}

TEST_F(UmfpackTest, CheckTolerancesFollowsTheTransposedAndTheComplexSystem)
{
    const cplx i(0, 1);
    const Dense D = {{2.0 + i, 1}, {3, -i}}, x = {{1}, {i}};
    const Dense b = times(D, x), bt = times(transposed(D), x);
    factorise(sparseOf(D));
    double res = 0.0, err = 0.0;

    EXPECT_EQ(solver.checkTolerances(complexVector({1, i}), complexVector({b[0][0], b[1][0]}), 1e-15, 1e-14, res, err),
              1);
    solver.setTranspose(true);
    EXPECT_EQ(solver.checkTolerances(complexVector({1, i}), complexVector({bt[0][0], bt[1][0]}), 1e-15, 1e-14, res, err),
              1);

    factorise(sparseOf({{1, 2}, {3, 4}}), true); // transposed and real: (1 3; 2 4) (1, 1) = (4, 6)
    EXPECT_EQ(solver.checkTolerances(realVector({1, 1}), realVector({4, 6}), 0.0, 0.0, res, err), 1);
    EXPECT_EQ(solver.checkTolerances(complexVector({i, i}), complexVector({4.0 * i, 6.0 * i}), 0.0, 0.0, res, err), 1);
}

TEST_F(UmfpackTest, RequiredQuirkNaNExceedsNoTolerance)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    double res = 0.0, err = 0.0;

    EXPECT_EQ(solver.checkTolerances(realVector({notANumber, 1}), realVector({1, 1}), 0.0, 0.0, res, err), 1);
    EXPECT_TRUE(std::isnan(res));
}

TEST_F(UmfpackTest, CheckTolerancesRefusesWrongLengths)
{
    factorise(sparseOf({{2, 0}, {0, 4}}));
    double res = 0.0, err = 0.0;

    EXPECT_EQ(idOf([&] { solver.checkTolerances(realVector({1}), realVector({1, 1}), 0, 0, res, err); }),
              "Internal_error_in_UMFPACK");
    EXPECT_EQ(idOf([&] { solver.checkTolerances(realVector({1, 1}), realVector({1}), 0, 0, res, err); }),
              "Internal_error_in_UMFPACK");
}

struct LuCase
{
    Dense matrix;
    bool scale;
    bool forceComplex;
};

class LuFactors : public UmfpackTest, public testing::WithParamInterface<LuCase>
{
};

TEST_P(LuFactors, ReproduceTheScaledAndPermutedMatrix)
{
    const LuCase& c = GetParam();
    factorise(sparseOf(c.matrix, c.forceComplex), false, true, c.scale);
    Sparse L, U, P, Q, R;

    solver.getLuFactorization(L, U, P, Q, R);

    const std::size_t m = c.matrix.size(), n = c.matrix[0].size(), k = std::min(m, n);
    const Dense l = denseOf(L), u = denseOf(U), p = denseOf(P), q = denseOf(Q), r = denseOf(R);
    EXPECT_TRUE(allNear(times(l, u), times(times(p, r), times(c.matrix, q)), 1e-13));
    EXPECT_EQ(L.isReal(), !c.forceComplex);
    EXPECT_EQ(L.getSymm(), Unsymmetric);
    EXPECT_EQ(L.getN(), k);
    EXPECT_EQ(U.getM(), k);
    for (std::size_t i = 0; i < m; ++i)
        for (std::size_t j = 0; j < k; ++j)
            EXPECT_TRUE(i > j || l[i][j] == (i == j ? 1.0 : 0.0));
    for (std::size_t i = 0; i < k; ++i)
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_EQ(u[i][j], 0.0);
    if (!c.scale) {
        for (std::size_t i = 0; i < m; ++i)
            EXPECT_EQ(r[i][i], 1.0);
    }
}

Dense wellConditioned(unsigned long n, bool complex)
{
    Dense D = randomDense(n, n, 5, complex, 0.4);
    for (unsigned long i = 0; i < n; ++i)
        D[i][i] += 2.0;
    return D;
}

INSTANTIATE_TEST_SUITE_P(Matrices, LuFactors,
                         testing::Values(LuCase{wellConditioned(12, false), true, false},
                                         LuCase{wellConditioned(12, false), false, false},
                                         LuCase{wellConditioned(12, true), true, true},
                                         LuCase{wellConditioned(12, true), false, true},
                                         LuCase{{{1, 2, 3}, {4, 5, 7}}, true, false},
                                         LuCase{{{1, 2}, {3, 4}, {5, 7}}, true, false},
                                         LuCase{{{1, 2}, {3, 4}, {5, 7}}, true, true},
                                         LuCase{{{1, 2}, {2, 4}}, true, false}));

TEST_F(UmfpackTest, FactorsBeforeInitAreRefused)
{
    Sparse L, U, P, Q, R;

    EXPECT_EQ(idOf([&] { solver.getLuFactorization(L, U, P, Q, R); }), "Internal_error_in_UMFPACK");
}

TEST_F(UmfpackTest, TheThresholdCountsFromTheNextInit)
{
    // With threshold 0.1 and column (1, 2) the sparser row may be the pivot; with 1 the pivot is the largest entry: then
    // every |l| <= 1.
    Dense D = randomDense(60, 60, 6, false, 0.1);
    for (int i = 0; i < 60; ++i)
        D[i][i] += 1.0;
    const auto largestFactor = [&] {
        Sparse L, U, P, Q, R;
        solver.getLuFactorization(L, U, P, Q, R);
        return largest(denseOf(L));
    };
    factorise(sparseOf(D));
    const double before = largestFactor();
    EXPECT_GT(before, 1.0 + 1e-9);

    solver.setThreshold(1.0);
    EXPECT_EQ(largestFactor(), before);
    factorise(sparseOf(D));
    EXPECT_LE(largestFactor(), 1.0 + 1e-12);
    solver.setAllocInit(0.5);
    EXPECT_NO_THROW(factorise(sparseOf(D)));
}

TEST_F(UmfpackTest, DroppedEntriesAreMadeUpForByRefinement)
{
    Umfpack dropping(run, 1e-6, 0.1, 0.7);
    Sparse A = laplacian(20, 2);
    dropping.init(A, false, false, false, true);
    const Matrix<1> b = realVector(std::vector<double>(400, 1.0));
    Matrix<1> x;
    double res = 0.0, err = 0.0;

    dropping.solve(b, x);

    EXPECT_EQ(dropping.checkTolerances(x, b, 1e-9, 1.0, res, err), 1) << res;
}

TEST_F(UmfpackTest, ManyObjectsHaveContextsOfTheirOwn)
{
    std::vector<std::unique_ptr<Umfpack>> solvers;
    for (int k = 1; k <= 5; ++k) {
        solvers.push_back(std::make_unique<Umfpack>(run));
        Sparse A = sparseOf({{static_cast<double>(k)}});
        solvers.back()->init(A, false, false, false, true);
    }
    solvers[1].reset();
    for (int k : {1, 3, 4, 5}) {
        Matrix<1> x;
        solvers[k - 1]->solve(realVector({60}), x);
        EXPECT_DOUBLE_EQ(x[0].real(), 60.0 / k);
    }
}

// --- Progress, cancelling, faults ----------------------------------------------------------------------------------

class Listener : public qxutil::RunListener
{
public:
    void onProgress(const std::string& title, double fraction) override
    {
        titles.push_back(title);
        fractions.push_back(fraction);
    }
    void onParam(const std::string& title, const std::string& name, double value) override
    {
        titles.push_back(title);
        names.push_back(name);
        values.push_back(value);
    }
    std::vector<std::string> titles, names;
    std::vector<double> fractions, values;
};

TEST(UmfpackRun, ReportsUnderItsTitleWithTheStepAsParameter)
{
    Listener listener;
    qxutil::RunInfo run(&listener);
    Umfpack solver(run);
    Sparse A = sparseOf(threeByThree);

    solver.init(A, false, false, false, true);

    for (const std::string& title : listener.titles)
        EXPECT_EQ(title, "UMFPACK");
    EXPECT_EQ(listener.fractions.front(), 0.0);
    EXPECT_EQ(listener.fractions.back(), 1.0);
    EXPECT_EQ(listener.names, (std::vector<std::string>{"Step", "Step", "Step"}));
    EXPECT_EQ(listener.values, (std::vector<double>{0.0, 1.0, 2.0}));
}

TEST(UmfpackRun, AHostSeesTheFactorisationAdvance)
{
    for (const cplx shift : {cplx(0.0), cplx(0.0, 1.0)}) {
        Listener listener;
        qxutil::RunInfo run(&listener);
        Umfpack solver(run);
        Sparse A = laplacian(14, 3, shift);

        solver.init(A, false, false, false, true);

        const std::vector<double>& f = listener.fractions;
        ASSERT_GE(f.size(), 20u);
        EXPECT_LE(f.size(), 110u); // a report for each hundredth, no more
        EXPECT_TRUE(std::is_sorted(f.begin(), f.end()));
        EXPECT_LT(f[1], 0.2);
        EXPECT_EQ(f.back(), 1.0);
        EXPECT_GT(f[f.size() - 2], 0.5);
    }
}

testing::AssertionResult isCancelled(const std::function<void()>& f)
{
    try {
        f();
    } catch (const qxbase::CancelException& e) {
        if (e.getId() == "<CANCEL>Linear_solver_cancelled" && e.getFile(0) == "umfpack")
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << e.toString();
    } catch (const qxbase::Exception& e) {
        return testing::AssertionFailure() << "not a cancel: " << e.toString();
    }
    return testing::AssertionFailure() << "no exception";
}

TEST(UmfpackRun, AFlagThatIsUpBeforehandCancelsAtOnceAndTheNextInitWorks)
{
    for (const cplx shift : {cplx(0.0), cplx(0.0, 1.0)}) {
        qxutil::RunInfo run;
        Umfpack solver(run);
        Sparse A = laplacian(10, 2, shift);
        run.cancel();

        EXPECT_TRUE(isCancelled([&] { solver.init(A, false, false, false, true); }));
        EXPECT_EQ(qxcBlockCount(), 0);

        run.cancel(false);
        solver.init(A, false, false, false, true);
        Matrix<1> x;
        const Matrix<1> b = realVector(std::vector<double>(100, 1.0));
        solver.solve(b, x);
        double res = 0.0, err = 0.0;
        EXPECT_EQ(solver.checkTolerances(x, b, 1e-13, 1e-12, res, err), 1);
    }
}

/// Does something once in the middle of a factorisation.
class Interrupter : public qxutil::RunListener
{
public:
    void onProgress(const std::string&, double fraction) override
    {
        last = fraction;
        if (fraction >= 0.3 && fraction < 1.0) {
            ++calls;
            act();
        }
    }
    std::function<void()> act;
    double last = 0.0;
    int calls = 0;
};

TEST(UmfpackRun, ACancelDuringAFactorisationIsHeardBeforeTheNextPieceOfWork)
{
    for (const cplx shift : {cplx(0.0), cplx(0.0, 1.0)}) {
        Interrupter interrupter;
        qxutil::RunInfo run(&interrupter);
        interrupter.act = [&run] { run.cancel(); };
        Umfpack solver(run);
        Sparse A = laplacian(16, 3, shift);

        EXPECT_TRUE(isCancelled([&] { solver.init(A, false, false, false, true); }));

        EXPECT_EQ(interrupter.calls, 1); // not even the next report, a hundredth of the work later
        EXPECT_EQ(qxcBlockCount(), 0);
        run.cancel(false);
        interrupter.act = [] {};
        Sparse small = sparseOf(threeByThree);
        EXPECT_NO_THROW(solver.init(small, false, false, false, true));
    }
}

TEST(UmfpackRun, ACancelFromAnotherThreadEndsAFactorisationInItsMiddle)
{
    // The listener holds the factorisation until the other thread has cancelled: no clock decides.
    std::promise<void> reached;
    std::promise<void> cancelled;
    Interrupter interrupter;
    qxutil::RunInfo run(&interrupter);
    interrupter.act = [&] {
        reached.set_value();
        cancelled.get_future().wait();
    };
    Umfpack solver(run);
    Sparse A = laplacian(16, 3);
    std::thread canceller([&] {
        reached.get_future().wait();
        run.cancel();
        cancelled.set_value();
    });

    EXPECT_TRUE(isCancelled([&] { solver.init(A, false, false, false, true); }));
    if (interrupter.calls == 0)
        reached.set_value();
    canceller.join();

    EXPECT_EQ(interrupter.calls, 1);
    EXPECT_EQ(qxcBlockCount(), 0);
}

TEST(UmfpackRun, AnExceptionOfTheListenerEndsTheFactorisationAndComesOut)
{
    Interrupter interrupter;
    qxutil::RunInfo run(&interrupter);
    interrupter.act = [] { throw std::range_error("the listener's own"); };
    Umfpack solver(run);
    Sparse A = laplacian(16, 3);

    try {
        solver.init(A, false, false, false, true);
        FAIL() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "the listener's own");
    }

    EXPECT_EQ(interrupter.calls, 1);
    EXPECT_EQ(qxcBlockCount(), 0);
    Matrix<1> x;
    EXPECT_EQ(idOf([&] { solver.solve(realVector(std::vector<double>(4096, 1.0)), x); }), "Internal_error_in_UMFPACK");
    interrupter.act = [] {};
    Sparse small = sparseOf(threeByThree);
    EXPECT_NO_THROW(solver.init(small, false, false, false, true));
}

/// Makes the n-th look of the next factorisation jump with a code, or an allocation fail with code 0. An Umfpack object
/// selects and clears its context at each init, so the fault is planned from inside: by the first report of the log.
class FaultPlanner : public qxutil::RunListener
{
public:
    void onParam(const std::string&, const std::string&, double value) override
    {
        if (value == step)
            qxcSetFault(code, n);
    }
    double step = 1.0;
    int code = 0;
    long n = 0;
};

TEST(UmfpackRun, JumpCodesBecomeTheirFailures)
{
    struct Case
    {
        int code;
        const char *id, *detail;
    } const cases[] = {
        {1, "Out_of_memory_operation_sparse_matrix", ""},
        {2, "Singular_matrix", ""},
        {3, "Error_in_spooles_internal", ""},
        {4, "Internal_error_in_memory_handler", "Calloc failed"},
        {5, "Matrix_is_not_positive_definite", ""},
        {6, "<CANCEL>Linear_solver_cancelled", ""},
        {7, "Out_of_stack_space_during_taucs_factorization", ""},
        {8, "Error_in_umfpack_internal", "Overflow_in_blas_operation"},
    };
    FaultPlanner planner;
    qxutil::RunInfo run(&planner);
    Umfpack solver(run);
    for (const double step : {1.0, 2.0})
        for (const Case& c : cases) {
            Sparse A = laplacian(8, 2);
            planner.step = step;
            planner.code = c.code;
            planner.n = 3;
            const auto init = [&] { solver.init(A, false, false, false, true); };
            EXPECT_EQ(idOf(init), c.id);
            EXPECT_EQ(detailOf(init), c.detail);
            EXPECT_EQ(qxcBlockCount(), 0);
        }
}

TEST(UmfpackRun, RequiredQuirkUnknownJumpCodesAreIgnored)
{
    FaultPlanner planner;
    qxutil::RunInfo run(&planner);
    Umfpack solver(run);
    Sparse A = laplacian(8, 2);
    planner.code = 9;
    planner.n = 3;

    planner.step = 2.0; // in the factorisation: nothing raises, but there are no factors
    EXPECT_NO_THROW(solver.init(A, false, false, false, true));
    Matrix<1> x;
    EXPECT_EQ(idOf([&] { solver.solve(realVector(std::vector<double>(64, 1.0)), x); }), "Internal_error_in_UMFPACK");

    planner.step = 1.0; // in the analysis: the factorisation misses its object
    const qxbase::Exception e = failureOf([&] { solver.init(A, false, false, false, true); });
    EXPECT_EQ(e.getId(), "Internal_error_in_UMFPACK");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Error_code", "-4"}}));
}

TEST(UmfpackRun, EveryFailedAllocationOfUmfpackIsSurvivedOrReported)
{
    FaultPlanner planner;
    qxutil::RunInfo run(&planner);
    Umfpack solver(run);
    Sparse A = laplacian(6, 2, cplx(0.0, 1.0)), real = laplacian(6, 2);
    const Matrix<1> b = realVector(std::vector<double>(36, 1.0));
    int failures = 0;
    for (Sparse* matrix : {&A, &real})
        for (const double step : {1.0, 2.0})
            for (planner.n = 1; planner.n < 60; ++planner.n) {
                planner.step = step;
                planner.code = 0;
                const std::string id = idOf([&] { solver.init(*matrix, false, false, false, true); });
                if (!id.empty()) {
                    EXPECT_EQ(id, "Out_of_memory_LU_factorization");
                    EXPECT_EQ(qxcBlockCount(), 0);
                    ++failures;
                    continue;
                }
                Matrix<1> x;
                double res = 0.0, err = 0.0;
                solver.solve(b, x);
                EXPECT_EQ(solver.checkTolerances(x, b, 1e-13, 1e-12, res, err), 1);
            }
    EXPECT_GT(failures, 20);
}

TEST(UmfpackRun, EveryFailedAllocationOfTheDriverIsReported)
{
    qxutil::RunInfo run;
    Umfpack solver(run);
    const Sparse A = withSymm(sparseOf({{2, 0, 0}, {1, 3, 0}, {0, -1, 4}}), Symmetric);
    const Dense D = denseOf(A);
    const Matrix<1> b = complexVector({1, 2, 3});
    Sparse L, U, P, Q, R;
    Matrix<1> x;
    const auto act = [&] {
        Sparse input(A);
        solver.init(input, false, false, false, true);
        solver.solve(b, x);
        solver.getLuFactorization(L, U, P, Q, R);
    };
    const long allocations = qxtest::failEveryAllocation(act, [&](const qxtest::FaultRun& fault) {
        EXPECT_FALSE(fault.badAlloc) << fault.n;
        if (fault.faulted) {
            EXPECT_EQ(fault.id.substr(0, 14), "Out_of_memory_") << fault.n;
        }
        EXPECT_TRUE(allNear(denseOf(A), D, 0.0));
        solver.clear();
        x = Matrix<1>();
        L = U = P = Q = R = Sparse();
    });
    EXPECT_GT(allocations, 30);
}

void* noMemory(size_t) { return nullptr; }

/// Where UMFPACK takes its allocations from.
#ifdef QX_UMFPACK_POLLS_BLAS
SuiteSparse_config_struct& settings = qx_umfpack_config;
#else
SuiteSparse_config_struct& settings = SuiteSparse_config;
#endif

TEST(UmfpackRun, ASolveWithoutMemorySaysSo)
{
    qxutil::RunInfo run;
    Umfpack solver(run);
    Sparse A = sparseOf(threeByThree), Z = sparseOf(threeByThree, true);
    Matrix<1> x;
    for (Sparse* matrix : {&A, &Z}) {
        solver.init(*matrix, false, false, false, true);
        void* (*before)(size_t) = settings.malloc_func;
        settings.malloc_func = noMemory;
        const std::string id = idOf([&] { solver.solve(realVector({1, 2, 3}), x); });
        settings.malloc_func = before;
        EXPECT_EQ(id, "Out_of_memory_back_substitution");
    }
}

/// Blocks that UMFPACK has asked for and not given back.
class LiveBlocks
{
public:
    LiveBlocks() : malloc_(settings.malloc_func), free_(settings.free_func)
    {
        current = this;
        settings.malloc_func = [](size_t size) { return current->note(current->malloc_(size)); };
        settings.free_func = [](void* block) {
            current->live_ -= block != nullptr;
            current->free_(block);
        };
    }
    ~LiveBlocks()
    {
        settings.malloc_func = malloc_;
        settings.free_func = free_;
    }
    LiveBlocks(const LiveBlocks&) = delete;
    LiveBlocks& operator=(const LiveBlocks&) = delete;

    long live() const { return live_; }
    long asked() const { return asked_; }

private:
    void* note(void* block)
    {
        ++asked_;
        live_ += block != nullptr;
        return block;
    }

    static LiveBlocks* current;
    void* (*malloc_)(size_t);
    void (*free_)(void*);
    long live_ = 0, asked_ = 0;
};
LiveBlocks* LiveBlocks::current = nullptr;

TEST(UmfpackRun, SolvesASecondInitAFailedOneAndTheDestructorLeaveNothingBehind)
{
    const LiveBlocks blocks;
    qxutil::RunInfo run;
    for (const bool failLast : {false, true}) {
        Umfpack solver(run);
        Matrix<1> x;
        for (int k = 0; k < 2; ++k) {
            Sparse A = sparseOf(threeByThree, k == 1);
            solver.init(A, false, false, false, true);
            const long afterInit = blocks.live();
            EXPECT_GT(afterInit, 0);
            solver.solve(realVector({1, 2, 3}), x);
            solver.solve(realVector({3, 2, 1}), x);
            EXPECT_EQ(blocks.live(), afterInit);
        }
        if (failLast) {
            Sparse singular = sparseOf({{1, 2}, {2, 4}});
            EXPECT_EQ(idOf([&] { solver.init(singular, false, false, false, true); }), "Singular_matrix");
            EXPECT_EQ(blocks.live(), 0);
        }
    }
    EXPECT_EQ(blocks.live(), 0);
    EXPECT_GT(blocks.asked(), 100);
}

TEST(UmfpackRun, WithoutMemoryForAContextTheConstructorSaysSo)
{
    // Contexts that others gave back need no memory: so many solvers that a new one is needed.
    qxutil::RunInfo run;
    std::vector<std::unique_ptr<Umfpack>> solvers;
    solverstest::failCalloc(true);
    std::string id;
    while (id.empty() && solvers.size() < 1000)
        id = idOf([&] { solvers.push_back(std::make_unique<Umfpack>(run)); });
    solverstest::failCalloc(false);

    EXPECT_EQ(id, "Error_in_umfpack_initialization");
    EXPECT_NO_THROW(solvers.push_back(std::make_unique<Umfpack>(run)));
}

TEST(UmfpackRun, AnotherUserOfTheLibraryIsNotDisturbed)
{
    qxutil::RunInfo run;
    Umfpack solver(run);
    std::atomic<bool> stop{false};
    std::atomic<int> good{0}, bad{0};
    std::thread other([&] {
        const long Ap[] = {0, 2, 4}, Ai[] = {0, 1, 0, 1};
        const double Ax[] = {2, 1, 1, 3}, b[] = {3, 4};
        while (!stop) {
            void *symbolic = nullptr, *numeric = nullptr;
            double x[2] = {};
            umfpack_dl_symbolic(2, 2, Ap, Ai, Ax, &symbolic, nullptr, nullptr);
            umfpack_dl_numeric(Ap, Ai, Ax, symbolic, &numeric, nullptr, nullptr);
            const long status = umfpack_dl_solve(UMFPACK_A, Ap, Ai, Ax, x, b, numeric, nullptr, nullptr);
            umfpack_dl_free_symbolic(&symbolic);
            umfpack_dl_free_numeric(&numeric);
            (status == UMFPACK_OK && std::abs(x[0] - 1.0) + std::abs(x[1] - 1.0) < 1e-14 ? good : bad)++;
        }
    });
    Sparse A = laplacian(12, 2);
    for (int k = 0; k < 100; ++k) {
        run.cancel(k % 2 == 1);
        if (k % 2 == 1)
            EXPECT_TRUE(isCancelled([&] { solver.init(A, false, false, false, true); }));
        else
            EXPECT_NO_THROW(solver.init(A, false, false, false, true));
    }
    while (good < 10 && bad == 0)
        std::this_thread::yield();
    stop = true;
    other.join();

    EXPECT_EQ(bad, 0);
}

TEST_F(UmfpackTest, FactorsOfSingularMatricesMultiplyToTheMatrixAlsoWithExplicitZeros)
{
    std::mt19937 generator(1);
    const auto below = [&](unsigned long n) { return generator() % n; };
    for (int trial = 0; trial < 400; ++trial) {
        const bool complexValues = trial % 2 == 1, scale = below(2) == 0;
        const unsigned long m = 1 + below(7), n = trial % 3 == 0 ? 1 + below(7) : m, count = below(m * n + 1);
        std::vector<unsigned long> rows, columns;
        std::vector<cplx> values;
        for (unsigned long k = 0; k < count; ++k) {
            rows.push_back(below(m));
            columns.push_back(below(n));
            values.push_back(below(3) == 0 ? 0.0 : cplx(double(below(7)) - 3.0, complexValues ? double(below(3)) - 1.0 : 0.0));
        }
        std::vector<double> reals;
        for (const cplx& v : values)
            reals.push_back(v.real());
        Sparse A, L, U, P, Q, R;
        if (complexValues)
            A.triplet2sparse(rows, columns, values, m, n);
        else
            A.triplet2sparse(rows, columns, reals, m, n);

        factorise(A, false, true, scale);
        solver.getLuFactorization(L, U, P, Q, R);

        ASSERT_TRUE(allNear(denseOf(L * U), denseOf(P * R * A * Q), 1e-12)) << "trial " << trial;
    }
}

TEST_F(UmfpackTest, FailedAllocationsAroundTheFactorsHaveTheDriversName)
{
    Sparse A = laplacian(4, 2), S = laplacian(4, 2), L, U, P, Q, R;
    S.setSymm(Symmetric);
    for (Sparse* input : {&A, &S})
        qxtest::failEveryAllocation([&] { factorise(*input); },
                                    [](const qxtest::FaultRun& fault) {
                                        EXPECT_FALSE(fault.badAlloc) << fault.n;
                                        if (fault.faulted) {
                                            EXPECT_EQ(fault.id, "Out_of_memory_LU_factorization") << fault.n;
                                        }
                                    });
    factorise(A);
    const Sparse before = Sparse().eye(2);
    L = before;
    const long count = qxtest::failEveryAllocation([&] { solver.getLuFactorization(L, U, P, Q, R); },
                                                   [&](const qxtest::FaultRun& fault) {
                                                       EXPECT_FALSE(fault.badAlloc) << fault.n;
                                                       if (fault.faulted) {
                                                           EXPECT_EQ(fault.id, "Out_of_memory_LU_factorization") << fault.n;
                                                           EXPECT_EQ(L.getptrD(), before.getptrD());
                                                       }
                                                   });
    EXPECT_GT(count, 20);
}

TEST(UmfpackRun, SameBitsForOneAndTwoThreads)
{
    // Fronts of some hundred rows: BLAS would divide them among its threads.
    for (const cplx shift : {cplx(0.0), cplx(0.0, 1.0)}) {
        std::vector<Matrix<1>> solutions;
        for (const int threads : {1, 2, 3}) {
            const qxbase::BlasThreadScope blas(threads);
            const int before = qxbase::setAvailableThreads(threads);
            qxutil::RunInfo run;
            Umfpack solver(run);
            Sparse A = laplacian(14, 3, shift);
            solver.init(A, false, false, false, true);
            solver.solve(realVector(std::vector<double>(14 * 14 * 14, 1.0)), solutions.emplace_back());
            EXPECT_EQ(qxbase::BlasThreadScope::current(), threads); // given back
            qxbase::setAvailableThreads(before);
        }
        for (unsigned long i = 0; i < solutions[0].size(); ++i)
            for (const Matrix<1>& other : solutions)
                ASSERT_EQ(other[i], solutions[0][i]) << "unknown " << i;
    }
}

TEST(UmfpackRun, FactorisationsOfTwoThreadsGiveTheBlasThreadsBack)
{
    const qxbase::BlasThreadScope blas(2);
    // Each waits in its factorisation for the other: the first to enter is not the last to leave.
    std::promise<void> inside[2];
    std::shared_future<void> entered[2] = {inside[0].get_future().share(), inside[1].get_future().share()};
    std::vector<std::thread> threads;
    for (const int k : {0, 1})
        threads.emplace_back([&, k] {
            Interrupter interrupter;
            interrupter.act = [&, k] {
                if (interrupter.calls == 1) {
                    inside[k].set_value();
                    entered[1 - k].wait();
                }
            };
            qxutil::RunInfo run(&interrupter);
            Umfpack solver(run);
            Sparse A = laplacian(k == 0 ? 12 : 14, 3);
            solver.init(A, false, false, false, true);
            EXPECT_GT(interrupter.calls, 0);
            if (interrupter.calls == 0)
                inside[k].set_value();
        });
    for (std::thread& t : threads)
        t.join();

    EXPECT_EQ(qxbase::BlasThreadScope::current(), 2);
}

TEST(UmfpackRun, GivesTheBitsOfTheLibraryCalledDirectly)
{
    const qxbase::BlasThreadScope blas(1);
    qxutil::RunInfo run;
    Umfpack solver(run);
    Sparse A = laplacian(15, 2);
    solver.init(A, false, false, false, true);
    Array<double, 1> b(225), x;
    for (unsigned long i = 0; i < 225; ++i)
        b[i] = 1.0 / (1.0 + static_cast<double>(i));
    solver.solve(b, x);

    A.format(FormSorted, true);
    std::vector<long> Ap(A.getColPtr(), A.getColPtr() + 226), Ai(A.getRow(), A.getRow() + A.getNnz());
    void *symbolic = nullptr, *numeric = nullptr;
    std::vector<double> direct(225);
    double control[UMFPACK_CONTROL];
    umfpack_dl_defaults(control);
    umfpack_dl_symbolic(225, 225, Ap.data(), Ai.data(), A.getDoubleVal(), &symbolic, control, nullptr);
    umfpack_dl_numeric(Ap.data(), Ai.data(), A.getDoubleVal(), symbolic, &numeric, control, nullptr);
    umfpack_dl_solve(UMFPACK_A, Ap.data(), Ai.data(), A.getDoubleVal(), direct.data(), b.data(), numeric, control,
                     nullptr);
    umfpack_dl_free_symbolic(&symbolic);
    umfpack_dl_free_numeric(&numeric);
    for (unsigned long i = 0; i < 225; ++i)
        EXPECT_EQ(x[i], direct[i]);
}

TEST(UmfpackRun, GivesItsContextBack)
{
    qxutil::RunInfo run;
    const int before = qxcNextFreeID();
    qxcFreeID(before);
    for (int k = 0; k < 1000; ++k)
        const Umfpack solver(run);
    const int after = qxcNextFreeID();
    qxcFreeID(after);
    EXPECT_EQ(after, before);
}

} // namespace

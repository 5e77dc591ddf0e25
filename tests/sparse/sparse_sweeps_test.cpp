// SPDX-License-Identifier: LicenseRef-qxkernel
// Relaxation: sweeps against a dense relaxation that recomputes the residual of every unknown from r = A x - b.

#include "parallelsparse.hpp"
#include "sparse_testing.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace qxtest;

namespace {

using List = std::vector<Index>;

/// Dense relaxation in a given order of the unknowns.
struct Relaxed
{
    Dense x, t, r;
};

Relaxed relaxDense(const Dense& A, const Dense& x0, const Dense& b, double omega, const List& order)
{
    Relaxed result{x0, Dense(A.m, 1), Dense(A.m, 1)};
    for (Index j : order) {
        cplx s = -b.v[j];
        for (Index k = 0; k < A.n; ++k)
            s += A(j, k) * result.x.v[k];
        result.t.v[j] = -omega * s / A(j, j);
        result.x.v[j] += result.t.v[j];
    }
    result.r = A * result.x - b;
    return result;
}

List natural(Index n, bool reverse = false)
{
    List order(n);
    std::iota(order.begin(), order.end(), 0ul);
    if (reverse)
        std::reverse(order.begin(), order.end());
    return order;
}

Array<Index, 1> array(const List& list)
{
    Array<Index, 1> a(list.size());
    std::copy(list.begin(), list.end(), a.data());
    return a;
}

struct Case
{
    Symm_t symm;
    bool reverse;
    double omega;
    bool real;
};

std::vector<Case> allCases()
{
    std::vector<Case> cases;
    for (Symm_t symm : allLayouts)
        for (bool reverse : {false, true})
            for (double omega : {0.7, 1.0, 1.3})
                for (bool real : {true, false})
                    if (symm != Hermitian || !real)
                        cases.push_back({symm, reverse, omega, real});
    return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info)
{
    const Case& c = info.param;
    return name(c.symm) + (c.reverse ? "Backward" : "Forward") + std::to_string(int(c.omega * 10)) +
           (c.real ? "Real" : "Complex");
}

class Sweep : public testing::TestWithParam<Case>
{
protected:
    const Case& c = GetParam();

    /// A problem of size n: matrix in diagonal form, iterate, right-hand side, residual.
    void make(Index n, Index count, Form_t form)
    {
        A = randomDominant(n, count, c.real, c.symm, 41);
        A.format(form, true);
        x0 = randomVector(n, c.real, 42);
        b = dense(randomVector(n, c.real, 43));
        r0 = Matrix<1>(n, c.real);
        const Dense r = dense(A) * dense(x0) - b;
        for (Index i = 0; i < n; ++i)
            r0.set(i, r.v[i]);
    }

    Sparse A;
    Matrix<1> x0, r0;
    Dense b{0, 0};
};

} // namespace

TEST_P(Sweep, LeavesIterateAndCorrectionsOfTheDenseRelaxation)
{
    for (Form_t form : {FormDiag, FormSortedDiag}) {
        make(23, 120, form);
        const Relaxed wanted = relaxDense(dense(A), dense(x0), b, c.omega, natural(23, c.reverse));
        Matrix<1> x = x0, r = r0;

        EXPECT_EQ(SORIt(A, r, x, c.omega, c.reverse), -1);

        EXPECT_TRUE(near(dense(x), wanted.x, 1e-13));
        EXPECT_TRUE(near(dense(r), wanted.t, 1e-13)); // corrections, no longer a residual
    }
}

TEST_P(Sweep, UpdaterFormLeavesTheResidualOfTheNewIterate)
{
    make(23, 120, FormDiag);
    const Relaxed wanted = relaxDense(dense(A), dense(x0), b, c.omega, natural(23, c.reverse));
    Matrix<1> x = x0, r = r0, x2 = x0, r2 = r0;

    EXPECT_EQ(SORItUpdater(A, r, x, c.omega, c.reverse), -1);
    SORIt(A, r2, x2, c.omega, c.reverse);
    EXPECT_EQ(SORUpdater(A, r2, c.omega, !c.reverse), -1);

    EXPECT_TRUE(near(dense(x), wanted.x, 1e-13));
    EXPECT_TRUE(near(dense(r), wanted.r, 1e-12));
    EXPECT_TRUE(sameBits(x, x2));
    EXPECT_TRUE(sameBits(r, r2)); // the two roads take the same additions in the same order
}

TEST_P(Sweep, PipelineHasTheBitsOfTheSerialSweepForAnyNumberOfThreads)
{
    make(800, 14000, FormSortedDiag);
    ASSERT_GE(A.getNnz(), qxbase::parallelThreshold);
    Matrix<1> xs = x0, rs = r0, xu = x0, ru = r0, us = r0;
    {
        const Threads one(1);
        SORIt(A, rs, xs, c.omega, c.reverse);
        SORItUpdater(A, ru, xu, c.omega, c.reverse);
        SORUpdater(A, us, c.omega, c.reverse);
    }
    for (int threads : {2, 3, 7, 16}) {
        const Threads some(threads);
        const int repetitions = threads == 3 ? 40 : 2; // races
        for (int k = 0; k < repetitions; ++k) {
            Matrix<1> x = x0, r = r0;
            SORIt(A, r, x, c.omega, c.reverse);
            ASSERT_TRUE(sameBits(x, xs)) << threads << " threads";
            ASSERT_TRUE(sameBits(r, rs)) << threads << " threads";
        }
        Matrix<1> x = x0, r = r0, u = r0;
        SORItUpdater(A, r, x, c.omega, c.reverse);
        SORUpdater(A, u, c.omega, c.reverse);
        EXPECT_TRUE(sameBits(x, xu)) << threads << " threads";
        EXPECT_TRUE(sameBits(r, ru)) << threads << " threads";
        EXPECT_TRUE(sameBits(u, us)) << threads << " threads";
    }
}

TEST_P(Sweep, UpdaterOfAnUnsortedMatrixHasTheSameBitsForAnyNumberOfThreadsAboveOne)
{
    make(800, 14000, FormDiag); // not sorted: no blocks
    Matrix<1> serial = r0, two = r0;
    {
        const Threads one(1);
        SORUpdater(A, serial, c.omega, c.reverse);
    }
    {
        const Threads threads(2);
        SORUpdater(A, two, c.omega, c.reverse);
    }
    EXPECT_TRUE(near(dense(two), dense(serial), 6e3 * 1e-14)); // elements up to 6e3
    for (int threads : {3, 7, 16}) {
        const Threads some(threads);
        Matrix<1> u = r0;
        SORUpdater(A, u, c.omega, c.reverse);
        EXPECT_TRUE(sameBits(u, two));
    }
}

TEST_P(Sweep, ListOfAllUnknownsInOrderHasTheBitsOfThePlainSweep)
{
    make(23, 120, FormDiag);
    const Array<Index, 1> idx = array(natural(23));
    Matrix<1> x = x0, r = r0, xi = x0, ri = r0, xu = x0, ru = r0, xv = x0, rv = r0;

    SORIt(A, r, x, c.omega, c.reverse);
    EXPECT_EQ(SORIt(A, ri, xi, idx, c.omega, c.reverse), -1);
    SORItUpdater(A, ru, xu, c.omega, c.reverse);
    SORItUpdater(A, rv, xv, idx, c.omega, c.reverse);

    EXPECT_TRUE(sameBits(x, xi));
    EXPECT_TRUE(sameBits(r, ri));
    EXPECT_TRUE(sameBits(xu, xv));
    EXPECT_TRUE(sameBits(ru, rv));
    SORUpdater(A, r, c.omega, !c.reverse);
    SORUpdater(A, ri, idx, c.omega, !c.reverse);
    EXPECT_TRUE(sameBits(r, ri));
}

TEST_P(Sweep, EmptyListChangesNothing)
{
    make(23, 120, FormDiag);
    const Array<Index, 1> idx(0ul);
    Matrix<1> x = x0, r = r0;

    EXPECT_EQ(SORIt(A, r, x, idx, c.omega, c.reverse), -1);
    EXPECT_EQ(SORUpdater(A, r, idx, c.omega, c.reverse), -1);

    EXPECT_TRUE(sameBits(x, x0));
    EXPECT_TRUE(sameBits(r, r0));
}

namespace {

/// The correction lists of a sweep over idx: positions of entries on the wrong side of the visiting order.
void correctionLists(const Sparse& A, const List& idx, bool reverse, List& ptr1, List& list1, List& ptr2, List& list2)
{
    List place(A.getM());
    for (Index k = 0; k < idx.size(); ++k)
        place[idx[k]] = reverse ? idx.size() - 1 - k : k;
    ptr1 = ptr2 = {0};
    for (Index j : idx) {
        for (Index p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p) {
            const Index i = A.getRow()[p];
            const bool gathered = reverse ? i > j : i < j, scattered = reverse ? i < j : i > j;
            if (gathered && place[i] > place[j])
                list1.push_back(p);
            if (scattered && place[i] < place[j])
                list2.push_back(p);
        }
        ptr1.push_back(list1.size());
        ptr2.push_back(list2.size());
    }
}

} // namespace

TEST_P(Sweep, AnyOrderWithBothCorrectionListsEqualsTheDenseRelaxationInThatOrder)
{
    make(23, 120, FormDiag);
    List order = natural(23);
    std::shuffle(order.begin(), order.end(), std::mt19937(5));
    List ptr1, list1, ptr2, list2;
    correctionLists(A, order, c.reverse, ptr1, list1, ptr2, list2);
    List visits = order;
    if (c.reverse)
        std::reverse(visits.begin(), visits.end());
    const Relaxed wanted = relaxDense(dense(A), dense(x0), b, c.omega, visits);
    Matrix<1> x = x0, r = r0;

    EXPECT_EQ(SORIt(A, r, x, array(order), array(ptr1), array(list1), array(ptr2), array(list2), c.omega, c.reverse), -1);
    EXPECT_TRUE(near(dense(x), wanted.x, 1e-12));
    EXPECT_TRUE(near(dense(r), wanted.t, 1e-12));

    // Sweep and updater together bring r from r0 to r0 + A t.
    SORUpdater(A, r, array(order), array(ptr1), array(list1), array(ptr2), array(list2), c.omega, !c.reverse);
    EXPECT_TRUE(near(dense(r) - dense(r0), dense(A) * wanted.t, 1e-12));
}

TEST_P(Sweep, OrderThatOnlyDelaysUnknownsNeedsTheFirstListAlone)
{
    // Diagonal blocks of two unknowns visited as (1, 0), (3, 2), ...: with a matrix that couples only upward inside a
    // block there are no entries on the scattered side that were visited before.
    const Index n = 8;
    std::vector<Entry> list;
    for (Index j = 0; j < n; ++j)
        list.push_back({j, j, 4.0});
    for (Index j = 0; j + 1 < n; j += 2)
        list.push_back(c.reverse != (c.symm == RowStored) ? Entry{j + 1, j, 1.0} : Entry{j, j + 1, 1.0});
    Sparse M = sparseOf(n, n, list, c.real, c.symm == RowStored ? Unsymmetric : c.symm);
    if (c.symm == RowStored)
        M = convertToRow(M);
    M.format(FormDiag, true);
    List order = {1, 0, 3, 2, 5, 4, 7, 6};
    List ptr1, list1, ptr2, list2;
    correctionLists(M, order, c.reverse, ptr1, list1, ptr2, list2);
    Matrix<1> x = randomVector(n, c.real, 1), r = randomVector(n, c.real, 2), x2 = x, r2 = r;
    ASSERT_TRUE(list2.empty());
    ASSERT_FALSE(list1.empty()); // there is something to correct

    SORIt(M, r, x, array(order), array(ptr1), array(list1), c.omega, c.reverse);
    SORIt(M, r2, x2, array(order), array(ptr1), array(list1), array(ptr2), array(list2), c.omega, c.reverse);
    EXPECT_TRUE(sameBits(x, x2));
    EXPECT_TRUE(sameBits(r, r2));
    SORUpdater(M, r, array(order), array(ptr1), array(list1), c.omega, !c.reverse);
    SORUpdater(M, r2, array(order), array(ptr1), array(list1), array(ptr2), array(list2), c.omega, !c.reverse);
    EXPECT_TRUE(sameBits(r, r2));
}

TEST_P(Sweep, JacobiStepLeavesTheResidualAndDividesByTheWholeDiagonal)
{
    make(23, 120, FormDiag);
    const Dense D = dense(A);
    Matrix<1> x = x0;
    const Matrix<1> r = r0;

    EXPECT_EQ(JacobiIts(A, r, x, c.omega), -1);

    for (Index j = 0; j < 23; ++j)
        EXPECT_LT(std::abs(x[j] - (x0[j] - c.omega * r0[j] / D(j, j))), 1e-14);
    EXPECT_TRUE(sameBits(r, r0));
}

INSTANTIATE_TEST_SUITE_P(All, Sweep, testing::ValuesIn(allCases()), caseName);

TEST(SweepUnsymmetric, SubsetOfUnknownsUpdatesTheWholeResidual)
{
    Sparse A = randomDominant(20, 80, true, Unsymmetric, 3);
    A.format(FormDiag, true);
    const List idx = {2, 3, 11, 17};
    const Matrix<1> x0 = randomVector(20, true, 4), r0 = randomVector(20, true, 5);
    Matrix<1> x = x0, r = r0;

    SORItUpdater(A, r, x, array(idx), 1.2, false);

    EXPECT_TRUE(near(dense(r) - dense(r0), dense(A) * (dense(x) - dense(x0)), 1e-13));
    for (Index i = 0; i < 20; ++i)
        if (std::find(idx.begin(), idx.end(), i) == idx.end()) {
            EXPECT_EQ(x[i], x0[i]);
        }
}

TEST(SweepSymmetric, SummandFromAnyMixtureOfTrianglesSweepsLikeTheFullMatrix)
{
    // A = S + S^T from the lower triangle, the upper one, and a mixture of both.
    const Sparse full = randomDominant(15, 60, true, Symmetric, 9);
    const Dense D = dense(full);
    const auto summand = [&](auto takesLower) {
        std::vector<Entry> list;
        for (Index j = 0; j < 15; ++j)
            for (Index i = j; i < 15; ++i)
                if (D(i, j) != 0.0)
                    list.push_back(i == j ? Entry{i, i, 0.5 * D(i, i)} : takesLower(i, j) ? Entry{i, j, D(i, j)} : Entry{j, i, D(i, j)});
        Sparse S = sparseOf(15, 15, list, true, Symmetric);
        S.format(FormDiag, true);
        return S;
    };
    std::vector<Entry> all;
    for (Index j = 0; j < 15; ++j)
        for (Index i = 0; i < 15; ++i)
            if (D(i, j) != 0.0)
                all.push_back({i, j, D(i, j)});
    Sparse plain = sparseOf(15, 15, all);
    plain.format(FormDiag, true);
    for (bool reverse : {false, true}) {
        Matrix<1> wantedX = randomVector(15, true, 1), wantedR = randomVector(15, true, 2);
        const Matrix<1> x0 = wantedX, r0 = wantedR;
        SORIt(plain, wantedR, wantedX, 1.3, reverse);
        for (const Sparse& S : {summand([](Index, Index) { return true; }), summand([](Index, Index) { return false; }),
                                summand([](Index i, Index j) { return (i + j) % 3 == 0; })}) {
            Matrix<1> x = x0, r = r0;
            SORIt(S, r, x, 1.3, reverse);
            EXPECT_TRUE(near(dense(x), dense(wantedX), 1e-13));
            EXPECT_TRUE(near(dense(r), dense(wantedR), 1e-13));
            Matrix<1> xj = x0, xw = x0;
            JacobiIts(S, r0, xj, 0.8);
            JacobiIts(plain, r0, xw, 0.8);
            EXPECT_TRUE(near(dense(xj), dense(xw), 1e-15));
        }
    }
}

TEST(SweepOmega, OneLeavesOnlyTheOtherTriangleToTheUpdater)
{
    // omega 1 makes c = 0: forward sweep over A = [2 1; 3 4], t = (1, 1): u = (1 * t1, 0).
    Sparse A = sparseOf(2, 2, {{0, 0, 2.0}, {1, 0, 3.0}, {0, 1, 1.0}, {1, 1, 4.0}});
    A.format(FormDiag, true);
    Matrix<1> u(2, true);
    u.set(0, 1.0);
    u.set(1, 1.0);

    SORUpdater(A, u, 1.0, true);

    EXPECT_EQ(u[0], 1.0);
    EXPECT_EQ(u[1], 0.0);
}

TEST(SweepOmega, RequiredQuirkUpdaterHasItsOwnDirectionAndFalseWalksDown)
{
    // u = (t0, t1) from a backward sweep (upper triangle used): the lower one is missing: u1 += a10 t0.
    Sparse A = sparseOf(2, 2, {{0, 0, 2.0}, {1, 0, 3.0}, {0, 1, 1.0}, {1, 1, 4.0}});
    A.format(FormDiag, true);
    Matrix<1> u(2, true);
    u.set(0, 5.0);
    u.set(1, 7.0);

    SORUpdater(A, u, 1.0, false);

    EXPECT_EQ(u[0], 0.0);
    EXPECT_EQ(u[1], 15.0);
}

TEST(SweepEdges, RequiredQuirkAllReturnMinusOneOnEmptyMatricesToo)
{
    Sparse A;
    A.format(FormDiag, true);
    Matrix<1> r(0ul, true), x(0ul, true);
    EXPECT_EQ(SORIt(A, r, x, 1.0, false), -1);
    EXPECT_EQ(SORItUpdater(A, r, x, 1.0, true), -1);
    EXPECT_EQ(SORUpdater(A, r, 1.0, false), -1);
    EXPECT_EQ(JacobiIts(A, r, x, 1.0), -1);
}

TEST(SweepEdges, RequiredQuirkZeroDiagonalGivesInfinitiesAndNoFailure)
{
    Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {1, 1, 1.0}});
    A.format(FormDiag, true);
    A.getDoubleVal()[0] = 0.0;
    Matrix<1> r(2, true), x(2, true);
    r.set(0, 1.0);
    EXPECT_EQ(SORIt(A, r, x, 1.0, false), -1);
    EXPECT_TRUE(std::isinf(x[0].real()));
    EXPECT_EQ(x[1], 0.0);
}

TEST(SweepEdges, ComplexDivisionDoesNotOverflow)
{
    // (1e300 + 1e300 i) / a by hand for a = i, 1 + 1e-300 i, 1e300 + 1e300 i.
    const std::vector<std::pair<cplx, cplx>> cases = {
        {{0.0, 1.0}, {1e300, -1e300}}, {{1.0, 1e-300}, {1e300, 1e300}}, {{1e300, 1e300}, {1.0, 0.0}}};
    for (const auto& [a, quotient] : cases) {
        Sparse A = sparseOf(1, 1, {{0, 0, a}}, false);
        A.format(FormDiag, true);
        Matrix<1> r(1, false), x(1, false);
        r.set(0, {1e300, 1e300});
        SORIt(A, r, x, 1.0, false);
        EXPECT_LE(std::abs(x[0] + quotient) / std::abs(quotient), 1e-15) << a;
    }
}

TEST(SweepTypes, AnyComplexOperandPromotesTheOthers)
{
    Sparse real = sparseOf(1, 1, {{0, 0, 2.0}}), complex = sparseOf(1, 1, {{0, 0, cplx(0.0, 2.0)}}, false);
    real.format(FormDiag, true);
    complex.format(FormDiag, true);
    Matrix<1> r(1, true), x(1, false);
    r.set(0, 4.0);
    SORIt(real, r, x, 1.0, false);
    EXPECT_FALSE(r.isReal());
    EXPECT_EQ(x[0], cplx(-2.0));

    Matrix<1> r2(1, true), x2(1, true);
    r2.set(0, 4.0);
    SORItUpdater(complex, r2, x2, 1.0, false);
    EXPECT_EQ(x2[0], cplx(0.0, 2.0));
    EXPECT_EQ(r2[0], cplx(0.0));

    Matrix<1> x3(1, true);
    const Matrix<1> r3 = [] { Matrix<1> v(1, true); v.set(0, 4.0); return v; }();
    JacobiIts(complex, r3, x3, 1.0);
    EXPECT_EQ(x3[0], cplx(0.0, 2.0));
    EXPECT_TRUE(r3.isReal()); // only read
}

TEST(SweepChoice, RequiredQuirkJacobiJudgesByTheNumberOfUnknowns)
{
    const Threads two(2);
    for (Index n : {9999ul, 10000ul}) {
        Sparse A = Sparse().eye(n);
        A.format(FormDiag, true);
        Matrix<1> r(n, true), x(n, true);
        r = 1.0;
        JacobiIts(A, r, x, 0.5);
        EXPECT_EQ(A.getHasParallel(), n >= 10000);
        EXPECT_EQ(x[n - 1], -0.5);
        EXPECT_EQ(x[0], -0.5);
    }
}

TEST(SweepChoice, RequiredQuirkIndexListsNeverGoParallel)
{
    const Threads two(2);
    Sparse A = randomDominant(800, 14000, true, Unsymmetric, 3);
    A.format(FormSortedDiag, true);
    Matrix<1> r = randomVector(800, true, 1), x = randomVector(800, true, 2);
    SORIt(A, r, x, array(natural(800)), 1.0, false);
    EXPECT_FALSE(A.getHasParallel());
    SORIt(A, r, x, 1.0, false);
    EXPECT_TRUE(A.getHasParallel());
}

TEST(SweepChoice, JacobiHasTheSameBitsForAnyNumberOfThreads)
{
    Sparse A = randomDominant(12000, 24000, true, Unsymmetric, 3);
    A.format(FormDiag, true);
    const Matrix<1> r = randomVector(12000, true, 1), x0 = randomVector(12000, true, 2);
    Matrix<1> serial = x0;
    {
        const Threads one(1);
        JacobiIts(A, r, serial, 0.9);
    }
    for (int threads : {2, 3, 7, 16}) {
        const Threads some(threads);
        Matrix<1> x = x0;
        JacobiIts(A, r, x, 0.9);
        EXPECT_TRUE(sameBits(x, serial));
    }
}

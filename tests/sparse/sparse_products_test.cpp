// SPDX-License-Identifier: LicenseRef-qxkernel
// Products with vectors: every layout, transposition and type against dense arithmetic, serial, block and work-array
// forms, and the 32-bit hook.

#include "externalsparse.hpp"
#include "parallelsparse.hpp"
#include "sparse_testing.hpp"

#include "support/alloc_fault.hpp"

#include <cmath>
#include <cstdlib>
#include <omp.h>
#include <thread>
#include <tuple>

using namespace qxtest;

namespace {

struct Case
{
    Symm_t symm;
    Trans_t trans;
    bool realA, realX, realY;
};

std::vector<Case> allCases()
{
    std::vector<Case> cases;
    for (Symm_t symm : allLayouts)
        for (Trans_t trans : allTrans)
            for (int types = 0; types < 8; ++types)
                if (symm != Hermitian || !(types & 1))
                    cases.push_back({symm, trans, (types & 1) != 0, (types & 2) != 0, (types & 4) != 0});
    return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info)
{
    const Case& c = info.param;
    const char* const trans[] = {"NoTrans", "Trans", "ConjTrans"};
    return name(c.symm) + trans[c.trans] + "A" + (c.realA ? "d" : "z") + "X" + (c.realX ? "d" : "z") + "Y" +
           (c.realY ? "d" : "z");
}

bool square(Symm_t symm) { return symm == Symmetric || symm == Hermitian; }

class Product : public testing::TestWithParam<Case>
{
protected:
    /// m rows unless the layout wants a square matrix; enough entries for the parallel paths when large.
    Sparse matrix(Index m, Index n, Index count, bool sorted) const
    {
        Sparse A = randomSparse(square(GetParam().symm) ? n : m, n, count, GetParam().realA, GetParam().symm, 30);
        if (sorted)
            A.format(FormSorted, false);
        return A;
    }
    Index rows(const Sparse& A) const { return GetParam().trans == NoTrans ? A.getM() : A.getN(); }
    Index columns(const Sparse& A) const { return GetParam().trans == NoTrans ? A.getN() : A.getM(); }
    Matrix<1> x(const Sparse& A) const { return randomVector(columns(A), GetParam().realX, 31); }
    Matrix<1> y(const Sparse& A) const { return randomVector(rows(A), GetParam().realY, 32); }
};

/// k eps sum |a||x| over a row of k terms; generous by the row length.
double sumBound(const Sparse& A) { return 1e-15 * 8.0 * static_cast<double>(A.getNnz()) / 50.0 + 1e-13; }

} // namespace

TEST_P(Product, AgreesWithDenseArithmetic)
{
    const Sparse A = matrix(37, 29, 200, false);
    const Matrix<1> x0 = x(A), y0 = y(A);
    const Dense Ax = op(dense(A), GetParam().trans) * dense(x0);

    Matrix<1> plus = y0, minus = y0;
    yPlusAMulx(plus, A, x0, GetParam().trans);
    yMinusAMulx(minus, A, x0, GetParam().trans);

    EXPECT_TRUE(near(dense(plus), dense(y0) + Ax, 1e-13));
    EXPECT_TRUE(near(dense(minus), dense(y0) - Ax, 1e-13));
    EXPECT_EQ(plus.isReal(), GetParam().realA && GetParam().realX && GetParam().realY);
    EXPECT_TRUE(near(dense(AMulx(A, x0, GetParam().trans)), Ax, 1e-13));
}

TEST_P(Product, TakesAColumnOfAMatrix)
{
    const Sparse A = matrix(37, 29, 200, false);
    const Matrix<1> first = x(A), last = randomVector(columns(A), GetParam().realX, 77);
    const Matrix<2> X = hcat(std::vector<Matrix<1>>{first, last});

    for (Index col : {0ul, 1ul}) {
        Matrix<1> wanted = y(A), got = y(A);
        yPlusAMulx(wanted, A, col == 0 ? first : last, GetParam().trans);
        yPlusAMulx(got, A, X, GetParam().trans, col);
        EXPECT_TRUE(sameBits(got, wanted));
    }
    Matrix<1> y0 = y(A);
    EXPECT_EQ(raised([&] { yPlusAMulx(y0, A, X, GetParam().trans, 2); }), "Size_vector_sparse_matrix_disagree");
}

TEST_P(Product, BlockFormHasTheBitsOfTheSerialFormForAnyNumberOfThreads)
{
    const Sparse A = matrix(597, 597, 12000, true); // square and sorted
    ASSERT_GE(A.getNnz(), qxbase::parallelThreshold);
    Matrix<1> serialPlus = y(A), serialMinus = y(A);
    serialyPlusAMulx(serialPlus, A, x(A), GetParam().trans);
    serialyMinusAMulx(serialMinus, A, x(A), GetParam().trans);

    for (int threads : {2, 3, 5, 7, 8, 16}) {
        const Threads some(threads);
        Matrix<1> plus = y(A), minus = y(A);
        selectyPlusAMulx(plus, A, x(A), GetParam().trans);
        selectyMinusAMulx(minus, A, x(A), GetParam().trans);
        EXPECT_TRUE(sameBits(plus, serialPlus)) << threads << " threads";
        EXPECT_TRUE(sameBits(minus, serialMinus)) << threads << " threads";
    }
    EXPECT_TRUE(A.getHasParallel());
}

TEST_P(Product, WorkArrayFormHasTheSameBitsForAnyNumberOfThreadsAboveOne)
{
    const Sparse A = matrix(643, 597, 12000, false); // not square, or not sorted
    ASSERT_GE(A.getNnz(), qxbase::parallelThreshold);
    Matrix<1> serial = y(A), two = y(A);
    serialyPlusAMulx(serial, A, x(A), GetParam().trans);
    {
        const Threads threads(2);
        selectyPlusAMulx(two, A, x(A), GetParam().trans);
    }
    EXPECT_TRUE(near(dense(two), dense(serial), sumBound(A)));
    for (int threads : {3, 7, 16}) {
        const Threads some(threads);
        Matrix<1> got = y(A);
        selectyPlusAMulx(got, A, x(A), GetParam().trans);
        EXPECT_TRUE(sameBits(got, two)) << threads << " threads";
    }
    const bool gathers = (A.getSymm() == Unsymmetric) == (GetParam().trans != NoTrans) && !square(A.getSymm());
    if (gathers) { // one writer an element: serial bits even here
        EXPECT_TRUE(sameBits(two, serial));
    }
}

INSTANTIATE_TEST_SUITE_P(All, Product, testing::ValuesIn(allCases()), caseName);

TEST(ProductSizes, DisagreeingVectorsAreRefusedBeforeAnythingChanges)
{
    const Sparse A = sparseOf(2, 3, {{0, 2, 1.0}});
    Matrix<1> y2(2, true), y3(3, true);
    const Matrix<1> x2(2, true), x3(3, true);
    const char* const wanted = "sparse:Size_vector_sparse_matrix_disagree";

    EXPECT_EQ(raised([&] { yPlusAMulx(y2, A, x2, NoTrans); }, true), wanted);
    EXPECT_EQ(raised([&] { yPlusAMulx(y3, A, x3, NoTrans); }, true), wanted);
    EXPECT_EQ(raised([&] { yMinusAMulx(y2, A, x3, Trans); }, true), wanted);
    EXPECT_EQ(raised([&] { yPlusAMulx(y2, A, x2, ConjTrans); }, true), wanted);
    EXPECT_EQ(raised([&] { A * x2; }, true), wanted);
    const Matrix<1> z(2, false);
    EXPECT_EQ(raised([&] { yPlusAMulx(y2, A, z, NoTrans); }), "Size_vector_sparse_matrix_disagree");
    EXPECT_TRUE(y2.isReal());
}

TEST(ProductTypes, ComplexYKeepsItsImaginaryPartsWithRealOperands)
{
    const Sparse A = sparseOf(1, 1, {{0, 0, 2.0}});
    Matrix<1> y(1, false), x(1, true);
    y.set(0, {1.0, 5.0});
    x.set(0, 3.0);

    yPlusAMulx(y, A, x, NoTrans);

    EXPECT_EQ(y[0], cplx(7.0, 5.0));
}

TEST(ProductTypes, ExternalRealBufferIsNotPromotedAndStaysAsItWas)
{
    const Sparse A = sparseOf(1, 1, {{0, 0, cplx(0.0, 2.0)}}, false);
    Matrix<1> y(1, true), x(1, true);
    y.set(0, 4.0);
    y.setNoRealloc(true);

    EXPECT_EQ(raised([&] { yPlusAMulx(y, A, x, NoTrans); }), "Internal_error_matrix");
    EXPECT_TRUE(y.isReal());
    EXPECT_EQ(y[0], 4.0);
}

TEST(ProductTypes, TheSameVectorMayStandOnBothSides)
{
    // y + A y with A = [0 1; 1 0]: both old values are needed.
    const Sparse A = sparseOf(2, 2, {{0, 1, 1.0}, {1, 0, 1.0}});
    for (bool external : {false, true}) {
        Matrix<1> y(2, true);
        y.set(0, 3.0);
        y.set(1, 4.0);
        if (external)
            y.setNoRealloc(true);
        yPlusAMulx(y, A, y, NoTrans);
        EXPECT_EQ(y[0], 7.0);
        EXPECT_EQ(y[1], 7.0);
    }
    Matrix<1> z(2, true);
    z.set(0, 3.0);
    const Sparse C = sparseOf(2, 2, {{1, 0, cplx(0.0, 1.0)}}, false);
    yPlusAMulx(z, C, z, NoTrans); // promotes y, which is x
    EXPECT_EQ(z[1], cplx(0.0, 3.0));
}

TEST(ProductTypes, EmptyMatricesLeaveYAsItIs)
{
    const Sparse A = Sparse().zeros(2, 0, 0, true);
    Matrix<1> y(2, true);
    y.set(0, 1.5);
    yPlusAMulx(y, A, Matrix<1>(0ul, true), NoTrans);
    EXPECT_EQ(y[0], 1.5);
    EXPECT_EQ(y[1], 0.0);
}

TEST(ProductTypes, NanAndInfinityTravelThroughProducts)
{
    const double inf = INFINITY;
    const Sparse A = sparseOf(2, 1, {{0, 0, NAN}, {1, 0, inf}});
    Matrix<1> x(1, true);
    x.set(0, 1.0);
    const Matrix<1> y = A * x;
    EXPECT_TRUE(std::isnan(y[0].real()));
    EXPECT_EQ(y[1].real(), inf);
}

TEST(ProductChoice, GoesParallelFromTenThousandEntriesOn)
{
    for (Index count : {9999ul, 10000ul}) {
        Sparse A;
        std::vector<Index> rows(count), cols(count);
        for (Index k = 0; k < count; ++k)
            rows[k] = k % 200, cols[k] = k / 200;
        A.triplet2sparse(rows, cols, 1.0, 200, 200);
        ASSERT_EQ(A.getNnz(), count);
        Matrix<1> y(200, true), x(200, true);
        {
            const Threads one(1);
            yPlusAMulx(y, A, x, NoTrans);
            EXPECT_FALSE(A.getHasParallel());
        }
        const Threads two(2);
        yPlusAMulx(y, A, x, NoTrans);
        EXPECT_EQ(A.getHasParallel(), count >= 10000);
    }
}

// --- ParallelSparse ------------------------------------------------------------------------------------------------

namespace {

Sparse sortedSquare(Index n, Index count, unsigned seed = 3)
{
    Sparse A = randomSparse(n, n, count, true, Unsymmetric, seed);
    A.format(FormSorted, false);
    return A;
}

Matrix<1> product(const Sparse& A, const Matrix<1>& x)
{
    Matrix<1> y(A.getM(), A.isReal() && x.isReal());
    selectyPlusAMulx(y, A, x, NoTrans);
    return y;
}

Matrix<1> serialProduct(const Sparse& A, const Matrix<1>& x)
{
    Matrix<1> y(A.getM(), A.isReal() && x.isReal());
    serialyPlusAMulx(y, A, x, NoTrans);
    return y;
}

} // namespace

TEST(ParallelSparse, RequiredQuirkBlocksOnlySquareSortedMatricesOnTwoThreadsOrMore)
{
    Sparse sorted = sortedSquare(50, 400), unsorted = randomSparse(50, 50, 400, true, Unsymmetric, 4);
    Sparse tall = randomSparse(60, 50, 400, true, Unsymmetric, 5), diag = randomDominant(50, 400, true, Unsymmetric, 6);
    tall.format(FormSorted, false);
    diag.format(FormDiag, true);
    ParallelSparse p;

    EXPECT_TRUE(p.isBlocked(sorted, 2, NoTrans));
    EXPECT_FALSE(p.isBlocked(sorted, 1, NoTrans));
    EXPECT_FALSE(p.isBlocked(unsorted, 2, NoTrans));
    EXPECT_FALSE(p.isBlocked(tall, 2, NoTrans));
    EXPECT_FALSE(p.isBlocked(diag, 2, NoTrans)); // FormDiag alone
    sorted.format(FormDiag, false);
    EXPECT_TRUE(p.isBlocked(sorted, 3, NoTrans)); // both
    unsorted.format(FormSorted, false);
    EXPECT_TRUE(p.isBlocked(unsorted, 2, NoTrans)); // sorting enables it at the next call
}

TEST(ParallelSparse, BlockDataListColumnsAndPositionsOfEachRowRange)
{
    const Sparse A = sortedSquare(40, 300);
    ParallelSparse p;
    const int threads = 3;
    ASSERT_TRUE(p.isBlocked(A, threads, NoTrans));

    Index row = 0, covered = 0;
    for (int t = 0; t < threads; ++t) {
        const ParallelSparseData& d = p.getData(t);
        EXPECT_EQ(d.getStartRows(), row);
        row = d.getStopRows();
        for (Index k = 0; k < d.getNCol(); ++k) {
            const Index j = d.getProcCol()[k];
            if (k > 0) {
                EXPECT_LT(d.getProcCol()[k - 1], j);
            }
            EXPECT_LT(d.getStartCol()[k], d.getStopCol()[k]);
            for (Index q = A.getColPtr()[j]; q < A.getColPtr()[j + 1]; ++q) {
                const bool inside = A.getRow()[q] >= d.getStartRows() && A.getRow()[q] < d.getStopRows();
                EXPECT_EQ(inside, q >= d.getStartCol()[k] && q < d.getStopCol()[k]);
            }
            covered += d.getStopCol()[k] - d.getStartCol()[k];
        }
        for (int q = 0; q < threads; ++q)
            for (Index k = 0; k < d.getNCol(); ++k) {
                const ParallelSparseData& other = p.getData(q);
                const bool inRange = d.getProcCol()[k] >= other.getStartRows() && d.getProcCol()[k] < other.getStopRows();
                EXPECT_EQ(inRange, k >= d.getProcStart(q) && k < d.getProcStop(q));
            }
    }
    EXPECT_EQ(row, 40u);
    EXPECT_EQ(covered, A.getNnz());
}

TEST(ParallelSparse, ColumnsThatLieInOneRowRangeWholeAreKnown)
{
    // Tridiagonal, 12 unknowns, 34 entries on two threads: the range ends cut the columns beside them.
    std::vector<Entry> list;
    for (Index j = 0; j < 12; ++j)
        for (Index i = j > 0 ? j - 1 : 0; i < std::min<Index>(j + 2, 12); ++i)
            list.push_back({i, j, 1.0});
    Sparse A = sparseOf(12, 12, list);
    A.format(FormSorted, false);
    ParallelSparse p;
    ASSERT_TRUE(p.isBlocked(A, 2, NoTrans));
    for (int t : {0, 1}) {
        const ParallelSparseData& d = p.getData(t);
        const Index* cols = d.getProcCol();
        EXPECT_EQ(cols[d.getWholeStart()], t == 0 ? 0 : d.getStartRows() + 1);
        EXPECT_EQ(cols[d.getWholeStop() - 1] + 1, t == 0 ? d.getStopRows() - 1 : 12);
    }
}

TEST(ParallelSparse, OneDenseColumnLeavesThreadsWithoutRowsAndIsStillRight)
{
    const Threads five(5);
    for (Index dense : {0ul, 10099ul}) {
        std::vector<Entry> list;
        for (Index i = 0; i < 10100; ++i)
            list.push_back({i, dense, 1.0 + double(i % 7)});
        for (Symm_t symm : {Unsymmetric, Symmetric, RowStored}) {
            Sparse A = sparseOf(10100, 10100, list, true, symm);
            A.format(FormSorted, false);
            const Matrix<1> x = randomVector(10100, true, 8);
            EXPECT_TRUE(sameBits(product(A, x), serialProduct(A, x))) << name(symm) << " column " << dense;
        }
    }
}

TEST(ParallelSparse, RequiredQuirkWorkVectorsKeepAReserveOfAThousand)
{
    Sparse A = randomSparse(60, 50, 400, true, Unsymmetric, 5);
    ParallelSparse owner;
    ParallelSparseData d(owner, 0);
    d.setWorkArray(A, true);
    const double* before = d.getCurrentWorkdArray();

    const Sparse larger = Sparse().zeros(1060, 1, 0, true), tooLarge = Sparse().zeros(1061, 1, 0, true);
    EXPECT_FALSE(d.changeWorkArray(larger, true));
    EXPECT_TRUE(d.changeWorkArray(tooLarge, true));
    EXPECT_TRUE(d.changeWorkArray(A, false));
    d.setWorkArray(larger, true);
    EXPECT_EQ(d.getCurrentWorkdArray(), before); // within the reserve: no new array
    d.setWorkArray(A, true);
    EXPECT_FALSE(d.changeWorkArray(larger, true)); // never shrinks
}

TEST(ParallelSparse, RequiredQuirkValueChangesKeepTheBlocksThatStructureChangesRebuild)
{
    const Threads two(2);
    Sparse A = sortedSquare(300, 12000);
    const Matrix<1> x = randomVector(300, true, 9);
    product(A, x);
    const ParallelSparse& p = *A.getParallelSparse();
    const Index* columns = p.getData(0).getProcCol();
    const Index count = p.getData(0).getNCol();

    A.getDoubleVal()[5] = 100.0; // value only, through the raw view
    EXPECT_TRUE(sameBits(product(A, x), serialProduct(A, x)));
    EXPECT_EQ(p.getData(0).getProcCol(), columns);
    EXPECT_EQ(p.getData(0).getNCol(), count);

    A.setElem(0, 299, 3.0);
    A.setElem(299, 0, 3.0);
    A.format(FormSorted, false);
    EXPECT_TRUE(sameBits(product(A, x), serialProduct(A, x)));
}

TEST(ParallelSparse, TwoSharersOfWhichOneChangedAreBothRightInAlternation)
{
    const Threads two(2);
    Sparse A = sortedSquare(300, 12000), B = A;
    const Matrix<1> x = randomVector(300, true, 9);
    product(A, x);
    B.setElem(7, 200, 5.0);

    for (int k = 0; k < 3; ++k) {
        EXPECT_TRUE(sameBits(product(A, x), serialProduct(A, x)));
        EXPECT_TRUE(sameBits(product(B, x), serialProduct(B, x)));
    }
    EXPECT_NE(A.getParallelSparse(), B.getParallelSparse());
}

TEST(ParallelSparse, ThreadsThatShareOneMatrixsFirstProductAreAllRight)
{
    const Threads two(2);
    for (int repetition = 0; repetition < 20; ++repetition) {
        const Sparse A = sortedSquare(300, 12000), copy = A;
        const Matrix<1> x = randomVector(300, true, 9), wanted = serialProduct(A, x);
        Matrix<1> results[4];
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] { results[t] = product(t % 2 ? copy : A, x); });
        for (std::thread& t : threads)
            t.join();
        for (const Matrix<1>& y : results)
            EXPECT_TRUE(sameBits(y, wanted));
    }
}

TEST(ParallelSparse, InsideAParallelRegionRunsSeriallyAndRight)
{
    const Threads four(4);
    const Sparse A = sortedSquare(300, 12000);
    const Matrix<1> x = randomVector(300, true, 9), wanted = serialProduct(A, x);
    Matrix<1> results[2];
#pragma omp parallel num_threads(2)
    {
        const int t = omp_get_thread_num();
        results[t] = product(A, x);
#pragma omp single
        if (omp_get_num_threads() < 2)
            results[1] = results[0];
    }
    EXPECT_TRUE(sameBits(results[0], wanted));
    EXPECT_TRUE(sameBits(results[1], wanted));
}

TEST(ParallelSparse, ATeamSmallerThanAskedForGivesTheSameBits)
{
    // With dynamic teams and all other processors taken, OpenMP gives fewer threads than asked for.
    const int dynamic = omp_get_dynamic();
    omp_set_dynamic(1);
    const Threads many(64);
    const Sparse A = sortedSquare(300, 12000);
    const Sparse B = randomSparse(400, 300, 12000, true, Unsymmetric, 21);
    const Matrix<1> x = randomVector(300, true, 9);
    const Matrix<1> got = product(A, x), gotB = product(B, x);
    omp_set_dynamic(0);
    EXPECT_TRUE(sameBits(got, serialProduct(A, x)));
    EXPECT_TRUE(sameBits(gotB, product(B, x)));
    omp_set_dynamic(dynamic);
}

TEST(ParallelSparse, ClearForgetsAndALaterProductIsRight)
{
    const Threads two(2);
    const Sparse A = sortedSquare(300, 12000);
    const Matrix<1> x = randomVector(300, true, 9), wanted = product(A, x);

    A.getParallelSparse()->clear();

    EXPECT_FALSE(A.getParallelSparse()->getData(0).isBlocked());
    EXPECT_TRUE(sameBits(product(A, x), wanted));
}

TEST(ParallelSparse, TimesItsBlocksProductsAndSweeps)
{
    const Threads two(2);
    Sparse A = randomDominant(300, 12000, true, Unsymmetric, 3);
    A.format(FormSortedDiag, true);
    const Matrix<1> x = randomVector(300, true, 9);
    product(A, x), product(A, x);
    Matrix<1> r = x, z = x;
    SORIt(A, r, z, 1.0, false);
    const auto& timers = A.getParallelSparse()->getUtils().getStopwatch().getTimers();
    EXPECT_EQ(timers.at("blocks").getTurns(), 1); // made once, used three times
    EXPECT_EQ(timers.at("products").getTurns(), 2);
    EXPECT_EQ(timers.at("sweeps").getTurns(), 1);
    EXPECT_GT(timers.at("products").getTotal(), 0.0);
}

TEST(ParallelSparse, RepeatedOperationsTakeNoMemory)
{
    if (std::getenv("OMP_DYNAMIC") || std::getenv("OMP_THREAD_LIMIT"))
        GTEST_SKIP() << "the OpenMP runtime makes its teams anew";
    const Threads two(2);
    for (bool sorted : {true, false}) {
        Sparse A = randomDominant(300, 12000, true, Unsymmetric, 3);
        A.format(sorted ? FormSortedDiag : FormDiag, true);
        const Matrix<1> x = randomVector(300, true, 9);
        Matrix<1> y(300, true), u(300, true);
        yPlusAMulx(y, A, x, NoTrans), SORUpdater(A, u, 1.0, false);
        const long before = allocationCount();
        yPlusAMulx(y, A, x, NoTrans), SORUpdater(A, u, 1.0, false);
        EXPECT_EQ(allocationCount(), before);
    }
}

TEST(ParallelSparse, RequiredQuirkFailureTextsEndInAFullStopAndTheNextCallIsRight)
{
    const Threads two(2);
    for (bool sorted : {true, false}) {
        const Sparse A = sorted ? sortedSquare(300, 12000) : randomSparse(310, 300, 12000, true, Unsymmetric, 3);
        const Matrix<1> x = randomVector(300, true, 9), wanted = product(A, x);
        Matrix<1> y(A.getM(), true);
        const Matrix<1> zero(A.getM(), true);
        int named = 0;
        failEveryAllocation(
            [&] {
                y = Matrix<1>(A.getM(), true);
                A.getParallelSparse()->clear();
                selectyPlusAMulx(y, A, x, NoTrans);
            },
            [&](const FaultRun& run) {
                if (!run.faulted) {
                    EXPECT_TRUE(sameBits(y, wanted));
                    return;
                }
                if (run.id == "Out_of_memory_operation_sparse_matrix.")
                    ++named;
                else
                    EXPECT_TRUE(run.badAlloc || run.id == "Out_of_memory_operation_sparse_matrix") << run.id;
                if (!run.id.empty()) {
                    EXPECT_TRUE(sameBits(y, zero));
                }
            });
        EXPECT_GT(named, 0) << (sorted ? "block" : "work") << " form";
    }
}

// --- ExternalSparse ------------------------------------------------------------------------------------------------

namespace {

struct BuiltInKernels
{
    BuiltInKernels() { ExternalSparse::useBuiltIn(true); }
    ~BuiltInKernels() { ExternalSparse::useBuiltIn(false); }
};

/// Records what it is called with.
class Recorder : public ExternalMatVec
{
public:
    struct Call
    {
        double alpha;
        Trans_t trans;
        std::vector<int> colPtr, row;
    };
    mutable std::vector<Call> calls;

    void multiply(double*, double alpha, Index, Index n, const int* colPtr, const int* row, const double*,
                  const double*, Trans_t trans) const override
    {
        calls.push_back({alpha, trans, {colPtr, colPtr + n + 1}, {row, row + colPtr[n]}});
    }
};

} // namespace

TEST(ExternalSparse, IsOffByDefaultAndGivesTheNumbersOfTheStore)
{
    EXPECT_FALSE(ExternalSparse::isRealMatVec());
    EXPECT_EQ(ExternalSparse::getMatVecLibrary(), nullptr);
    for (Symm_t symm : {Unsymmetric, Symmetric, RowStored})
        for (Trans_t trans : allTrans) {
            SCOPED_TRACE(testing::Message() << "symm = " << symm << ", trans = " << trans);
            const Sparse A = randomSparse(20, 20, 90, true, symm, 12);
            const Matrix<1> x = randomVector(20, true, 13);
            Matrix<1> wanted = x, got = x, less = x, wantedLess = x;
            A.getptrD()->yPlusAMulx(wanted.getdArr().data(), x.gethdArr().data(), trans);
            A.getptrD()->yMinusAMulx(wantedLess.getdArr().data(), x.gethdArr().data(), trans);
            ExternalSparse e;
            e.yPlusAMulx(got, A, x, trans);
            e.yMinusAMulx(less, A, x, trans);
            EXPECT_TRUE(sameBits(got, wanted));
            EXPECT_TRUE(sameBits(less, wantedLess));
        }
}

TEST(ExternalSparse, IsNotMadeByAProductWithoutALibrary)
{
    const Sparse A = randomSparse(20, 20, 90, true, Unsymmetric, 12);
    A * randomVector(20, true, 13);
    EXPECT_FALSE(A.getHasExternal());

    const BuiltInKernels on;
    A * randomVector(20, true, 13);
    EXPECT_TRUE(A.getHasExternal());
}

TEST(ExternalSparse, BuiltInKernelsGiveTheBitsOfTheStore)
{
    for (Symm_t symm : {Unsymmetric, RowStored, Symmetric})
        for (Trans_t trans : allTrans) {
            SCOPED_TRACE(testing::Message() << "symm = " << symm << ", trans = " << trans);
            const Sparse A = randomSparse(20, symm == Symmetric ? 20 : 30, 90, true, symm, 12);
            const Matrix<1> x = randomVector(trans == NoTrans ? A.getN() : A.getM(), true, 13);
            const Matrix<1> wanted = AMulx(A, x, trans);
            const BuiltInKernels on;
            const Matrix<1> got = AMulx(A, x, trans);
            if (symm == Symmetric) // two products one after the other: another order of additions
                EXPECT_TRUE(near(dense(got), dense(wanted), 1e-14));
            else
                EXPECT_TRUE(sameBits(got, wanted));
        }
}

TEST(ExternalSparse, RefusesComplexArguments)
{
    const Sparse real = randomSparse(3, 3, 5, true, Unsymmetric, 1), complex = randomSparse(3, 3, 5, false, Unsymmetric, 1);
    Matrix<1> d(3, true), z(3, false);
    ExternalSparse e;
    const char* const wanted = "externalsparse:Internal_error_in_ExternalSparse";
    EXPECT_EQ(raised([&] { e.yPlusAMulx(d, real, z, NoTrans); }, true), wanted);
    EXPECT_EQ(raised([&] { e.yPlusAMulx(z, real, d, NoTrans); }, true), wanted);
    EXPECT_EQ(raised([&] { e.yMinusAMulx(d, complex, d, NoTrans); }, true), wanted);
    EXPECT_TRUE(d.isReal());
}

TEST(ExternalSparse, RequiredQuirkLoadLibraryIgnoresItsArgument)
{
    ExternalSparse::loadLibrary(false);
    EXPECT_TRUE(ExternalSparse::libraryLoaded());
    EXPECT_FALSE(ExternalSparse::isComplexMatVec());
}

TEST(ExternalSparse, RequiredQuirkAlphaCountsBySignOnly)
{
    const Sparse A = sparseOf(1, 1, {{0, 0, 2.0}});
    Matrix<1> x(1, true);
    x.set(0, 1.0);
    ExternalSparse e;
    const auto result = [&](double alpha) {
        Matrix<1> y(1, true);
        e.realyPlusAlphaAMulx(y, alpha, A, x, NoTrans);
        return y[0].real();
    };
    EXPECT_EQ(result(7.0), 2.0);
    EXPECT_EQ(result(-7.0), -2.0);
    EXPECT_EQ(result(0.0), -2.0);
}

TEST(ExternalSparse, RequiredQuirkLibrariesSeeTransForConjTransAndIntViewsOfTheStore)
{
    const boost::shared_ptr<Recorder> recorder(new Recorder);
    ExternalSparse::setMatVecLibrary(recorder);
    for (Symm_t symm : {Unsymmetric, RowStored, Symmetric}) {
        const Sparse A = randomSparse(9, 9, 30, true, symm, 12);
        Matrix<1> y(9, true), x(9, true);
        ExternalSparse e;
        e.yPlusAMulx(y, A, x, NoTrans);
        e.yMinusAMulx(y, A, x, ConjTrans);

        const auto& calls = recorder->calls;
        ASSERT_EQ(calls.size(), symm == Symmetric ? 4u : 2u);
        for (const Recorder::Call& call : calls) {
            EXPECT_EQ(call.colPtr, std::vector<int>(A.getColPtr(), A.getColPtr() + 10));
            EXPECT_EQ(call.row, std::vector<int>(A.getRow(), A.getRow() + A.getNnz()));
        }
        EXPECT_EQ(calls.front().alpha, 1.0);
        EXPECT_EQ(calls.back().alpha, -1.0);
        EXPECT_EQ(calls[0].trans, symm == RowStored ? Trans : NoTrans);
        EXPECT_EQ(calls[1].trans, symm == RowStored ? NoTrans : Trans);
        recorder->calls.clear();
    }
    ExternalSparse::setMatVecLibrary({});
}

TEST(ExternalSparse, RebuildsItsViewsWhenTheStructureChanges)
{
    Sparse A = sparseOf(3, 3, {{0, 0, 1.0}, {2, 1, 1.0}});
    ExternalSparse e;
    ASSERT_TRUE(e.isIntRep(A));
    const int* kept = e.getIntRow(A);
    EXPECT_EQ(e.getIntRow(A), kept); // nothing changed, nothing made again

    A.setElem(1, 2, 4.0); // nnz and version
    EXPECT_EQ(e.getIntColPtr(A)[3], 3);
    EXPECT_EQ(e.getIntRow(A)[2], 1);
    A.setElem(0, 4, 4.0); // n
    EXPECT_EQ(e.getIntColPtr(A)[5], 4);
    e.clear();
    EXPECT_EQ(e.getIntColPtr(A)[5], 4);
}

TEST(ExternalSparse, MakingRoomForIndicesForgetsTheOldOnes)
{
    const BuiltInKernels on;
    const Sparse A = sparseOf(3, 2, {{0, 0, 1.0}, {2, 1, 2.0}}), R = sparseOf(3, 2, {{0, 0, 1.0}}, true, RowStored);
    ExternalSparse e;
    ASSERT_TRUE(e.isIntRep(A));
    e.allocIntColPtr(R);
    e.allocIntRow(R);
    EXPECT_EQ(e.getIntColPtr(A)[2], 2); // made again
    EXPECT_EQ(e.getIntRow(A)[1], 2);
    Array<int, 1> holder;
    const int* data = ExternalSparse::allocate(holder, 7);
    EXPECT_EQ(data, holder.data());
    EXPECT_EQ(holder.size(), 7u);
}

TEST(ExternalSparse, MatricesBeyond32BitsAndFailedCopiesFallBackToTheStore)
{
    const BuiltInKernels on;
    const Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {1, 1, 2.0}});
    const boost::shared_ptr<llsparse<double>> tall(new llsparse<double>(*A.getptrD()));
    tall->m = 1ul << 31; // only claims its rows
    ExternalSparse e;
    EXPECT_FALSE(e.isIntRep(Sparse(tall)));
    EXPECT_EQ(e.getIntRow(Sparse(tall)), nullptr);

    const boost::shared_ptr<llsparse<double>> huge(new llsparse<double>(*A.getptrD()));
    huge->colPtr[2] = 1ul << 31; // only claims its entries
    EXPECT_FALSE(e.isIntRep(Sparse(huge)));

    e.clear();
    Matrix<1> x(2, true), y(2, true);
    x.set(0, 5.0);
    {
        ExternalSparse fresh;
        const AllocFault fault(1);
        EXPECT_FALSE(fresh.isIntRep(A));
    }
    e.yPlusAMulx(y, A, x, NoTrans);
    EXPECT_EQ(y[0], 5.0);
}

TEST(SparseProducts, APartThatEndsAtZeroReachesToTheLastColumn)
{
    for (Symm_t symm : allLayouts)
        for (Trans_t trans : allTrans)
            for (const Index from : {0ul, 3ul}) {
                SCOPED_TRACE(testing::Message() << "symm = " << symm << ", trans = " << trans << ", from = " << from);
                const Sparse A = randomSparse(7, 7, 30, false, symm, 4);
                const Matrix<1> x = randomVector(7, false, 1);
                std::vector<cplx> toZero(7), toEnd(7);
                const auto product = [&](std::vector<cplx>& y, Index to) {
                    A.getptrZ()->yPlusAMulx(y.data(), x.gethzArr().data(), trans, nullptr, 0, nullptr, nullptr, from, to);
                    A.getptrZ()->yMinusAMulx(y.data() + 0, x.gethzArr().data(), trans, nullptr, 0, nullptr, nullptr, 6, to);
                };

                product(toZero, 0);
                product(toEnd, 7);

                EXPECT_EQ(toZero, toEnd);
                EXPECT_NE(toEnd, std::vector<cplx>(7)); // something was added
            }
}

// --- Parts of unsorted and rectangular products -------------------------------------------------------------------

namespace {

/// A band matrix of n columns, `width` entries in each, its rows scrambled.
Sparse unsortedBand(Index m, Index n, Index width, bool real, unsigned seed)
{
    std::mt19937 generator(seed);
    std::vector<Entry> list;
    for (Index j = 0; j < n; ++j)
        for (Index k = 0; k < width; ++k)
            list.push_back({(j * m / n + (k * 7) % width) % m, j,
                            cplx(double(generator() % 1000) / 500.0 - 1.0, real ? 0.0 : double(generator() % 1000) / 500.0)});
    return sparseOf(m, n, list, real);
}

} // namespace

TEST(ParallelSparseParts, UnsortedAndRectangularProductsAreRightAndTheSameForAnyTeam)
{
    struct Case
    {
        const char* name;
        Sparse A;
    };
    const std::vector<Case> cases = {
        {"band", unsortedBand(40000, 40000, 9, true, 1)},
        {"complex band", unsortedBand(4000, 4000, 9, false, 2)},
        {"tall", unsortedBand(30000, 9000, 5, true, 3)},
        {"wide", unsortedBand(3000, 20000, 5, true, 4)},
        {"random", randomSparse(900, 900, 20000, true, Unsymmetric, 5)},
        {"random rows", randomSparse(900, 700, 20000, true, RowStored, 5)},
        {"summand", randomSparse(900, 900, 20000, true, Symmetric, 6)},
        {"hermitian", randomSparse(500, 500, 12000, false, Hermitian, 7)},
        {"few rows", unsortedBand(2, 15000, 2, true, 8)},
    };
    for (const Case& c : cases)
        for (Trans_t trans : allTrans)
            for (bool minus : {false, true}) {
                SCOPED_TRACE(testing::Message() << c.name << " " << int(trans) << (minus ? " minus" : " plus"));
                const Index rows = trans == NoTrans ? c.A.getM() : c.A.getN();
                const Matrix<1> x = randomVector(trans == NoTrans ? c.A.getN() : c.A.getM(), true, 11);
                const auto product = [&](int threads) {
                    const Threads some(threads);
                    Matrix<1> y;
                    y.trueCopy(randomVector(rows, c.A.isReal(), 12), c.A.isReal());
                    minus ? yMinusAMulx(y, c.A, x, trans) : yPlusAMulx(y, c.A, x, trans);
                    return y;
                };
                const Matrix<1> serial = product(1), two = product(2);
                EXPECT_TRUE(near(dense(two), dense(serial), 1e-12 * double(1 + c.A.getNnz() / rows)));
                for (int threads : {3, 7, 64})
                    EXPECT_TRUE(sameBits(product(threads), two)) << threads;
            }
}

TEST(ParallelSparseParts, AStructureThatChangedIsDividedAnew)
{
    const Threads two(2);
    Sparse A = unsortedBand(2000, 2000, 9, true, 1);
    const Matrix<1> x = randomVector(2000, true, 2);
    A * x;
    A.setElem(1999, 0, 5.0); // far outside the rows that the first part had
    A.setElem(0, 1999, 7.0);
    const Matrix<1> y = A * x;
    const Threads one(1);
    EXPECT_TRUE(near(dense(y), dense(A * x), 1e-12));
}

TEST(ParallelSparseParts, VectorsOfPartsAreFewerThanTheEntries)
{
    // A random matrix touches all rows in each part: two vectors. A band touches few: the most there are.
    const Threads two(2);
    for (const auto& [A, atLeast, atMost] : std::vector<std::tuple<Sparse, Index, Index>>{
             {randomSparse(9000, 9000, 60000, true, Unsymmetric, 1), 2, 4}, {unsortedBand(70000, 70000, 5, true, 1), 64, 64}}) {
        A * randomVector(A.getN(), true, 1);
        Index vectors = 0;
        for (int t = 0; t < int(A.getParallelSparse()->dataCount()); ++t)
            vectors += A.getParallelSparse()->getData(t).workSize() > 0;
        EXPECT_GE(vectors, atLeast);
        EXPECT_LE(vectors, atMost);
    }
}

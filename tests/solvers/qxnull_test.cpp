// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxnull.hpp"

#include "arrayutil.hpp"
#include "prop.hpp"
#include "qxparallel.hpp"
#include "qxrun.hpp"
#include "solvers/nullsparse_detail.hpp"
#include "solvers/qxnull_detail.hpp"
#include "sparse_values.hpp"
#include "support/alloc_fault.hpp"

#include <algorithm>
#include <functional>

namespace {

using namespace solverstest;

const cplx I(0, 1);

struct Bases
{
    Sparse Null, Compl, Range, NullF, ComplF, RangeF;
};

Bases bases(const Sparse& N, NullFun method, const Sparse& NF = Sparse(), bool reorder = false,
            const Sparse& NT = Sparse())
{
    qxutil::RunInfo run;
    Bases b;
    const bool second = NF.getM() + NF.getN() != 0;
    qxNull(run, N, NT, NF, true, b.Null, true, b.Compl, true, b.Range, b.NullF, second, b.ComplF, second, b.RangeF,
           second, method, reorder);
    return b;
}

Dense zeros(std::size_t m, std::size_t n) { return Dense(m, std::vector<cplx>(n)); }

Dense identity(std::size_t n)
{
    Dense D = zeros(n, n);
    for (std::size_t i = 0; i < n; ++i)
        D[i][i] = 1.0;
    return D;
}

Dense beside(const Dense& A, const Dense& B)
{
    Dense C = A;
    for (std::size_t i = 0; i < C.size(); ++i)
        C[i].insert(C[i].end(), B[i].begin(), B[i].end());
    return C;
}

int rankOf(const Dense& D)
{
    Array<cplx, 2> A(D.size(), D.empty() ? 0 : D[0].size());
    for (unsigned long i = 0; i < A.extent(0); ++i)
        for (unsigned long j = 0; j < A.extent(1); ++j)
            A(i, j) = D[i][j];
    return qxarray::rank(A, 1e-12);
}

/// What both methods must give: N^H Null = 0, Range = Compl^H N, and full rank side by side.
void expectTriple(const Dense& N, const Sparse& Null, const Sparse& Compl, const Sparse& Range, std::size_t rank,
                  double tolerance = 1e-12)
{
    const std::size_t d = N.size(), c = N[0].size();
    const Dense null = denseOf(Null), compl_ = denseOf(Compl), range = denseOf(Range);
    ASSERT_EQ(Null.getM(), d);
    ASSERT_EQ(Null.getN(), d - rank);
    ASSERT_EQ(Compl.getM(), d);
    ASSERT_EQ(Compl.getN(), rank);
    ASSERT_EQ(Range.getM(), rank);
    ASSERT_EQ(Range.getN(), c);
    if (rank < d) {
        EXPECT_TRUE(allNear(times(transposed(N, true), null), zeros(c, d - rank), tolerance * (1.0 + largest(null))));
    }
    EXPECT_EQ(rankOf(beside(null, compl_)), static_cast<int>(d));
    if (rank > 0) {
        EXPECT_TRUE(allNear(range, times(transposed(compl_, true), N), tolerance * (1.0 + largest(compl_))));
        EXPECT_EQ(rankOf(range), static_cast<int>(rank));
    }
}

void expectOrthonormal(const Dense& N, const Bases& b)
{
    const Dense null = denseOf(b.Null), compl_ = denseOf(b.Compl), all = beside(null, compl_);
    EXPECT_TRUE(allNear(times(transposed(all, true), all), identity(all.size()), 1e-13));
    if (b.Compl.getN() > 0) {
        EXPECT_TRUE(allNear(times(compl_, denseOf(b.Range)), N, 1e-12));
    }
}

/// A matrix of the given rank: a product of two random ones.
Dense ofRank(unsigned long d, unsigned long c, unsigned long rank, unsigned seed, bool complex)
{
    return times(randomDense(d, rank, seed, complex), randomDense(rank, c, seed + 1000, complex));
}

class BothMethods : public testing::TestWithParam<NullFun>
{
};
INSTANTIATE_TEST_SUITE_P(Method, BothMethods, testing::Values(NullFunSparse, NullFunOrthonormal));

TEST(QxNullSp, WorkedExampleWithTwoConstraints)
{
    // W = (1 -1 0; 0 1 2): row 0 takes column 0 (one entry), row 1 takes column 2 (column 1 counts its explicit zero).
    const Bases b = bases(sparseOf({{1, 0}, {-1, 1}, {0, 2}}), NullFunSparse);

    EXPECT_TRUE(allNear(denseOf(b.Null), {{1}, {1}, {-0.5}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.Compl), {{1, 0}, {0, 0}, {0, 1}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.Range), {{1, 0}, {0, 2}}, 0.0));
}

TEST(QxNullSp, WorkedExampleWithNonIdealConstraints)
{
    const Bases b = bases(sparseOf({{1}, {-1}, {0}}), NullFunSparse, sparseOf({{1}, {-2}, {0}}));

    // The last of two equal candidates is the pivot.
    EXPECT_TRUE(allNear(denseOf(b.Null), {{1, 0}, {1, 0}, {0, 1}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.NullF), {{1, 0}, {0.5, 0}, {0, 1}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.Compl), {{0}, {1}, {0}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.ComplF), {{0}, {1}, {0}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.Range), {{-1}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.RangeF), {{-2}}, 0.0));
}

TEST(QxNullOrth, WorkedExampleWithOneConstraint)
{
    const Dense N = {{1}, {1}, {0}};
    const Bases b = bases(sparseOf(N), NullFunOrthonormal);

    const double h = std::sqrt(0.5);
    EXPECT_TRUE(allNear(denseOf(b.Compl), {{h}, {h}, {0}}, 1e-15));
    EXPECT_TRUE(allNear(denseOf(b.Range), {{std::sqrt(2.0)}}, 1e-15));
    const Dense null = denseOf(b.Null);
    EXPECT_NEAR(std::abs(null[0][0]), h, 1e-15);
    EXPECT_NEAR(std::abs(null[0][0] + null[1][0]), 0.0, 1e-15);
    EXPECT_EQ(null[2][1], 1.0);
    expectOrthonormal(N, b);
}

TEST(QxNullOrth, WorkedExampleOfRankOne)
{
    const Dense N = {{1, 2}, {0, 0}, {1, 2}};
    const Bases b = bases(sparseOf(N), NullFunOrthonormal);

    // Signs are LAPACK's: compare products.
    EXPECT_TRUE(allNear(times(denseOf(b.Compl), transposed(denseOf(b.Compl))), {{0.5, 0, 0.5}, {0, 0, 0}, {0.5, 0, 0.5}},
                        1e-15));
    EXPECT_NEAR(std::abs(denseOf(b.Range)[0][0]), std::sqrt(2.0), 1e-15);
    EXPECT_NEAR(std::abs(denseOf(b.Range)[0][1]), 2.0 * std::sqrt(2.0), 1e-15);
    EXPECT_EQ(denseOf(b.Null)[1][1], 1.0); // the untouched unknown, after the block that begins with unknown 0
    expectOrthonormal(N, b);
}

TEST_P(BothMethods, GiveNullSpaceComplementAndRangeForRandomMatricesOfLowRank)
{
    for (const bool complex : {false, true})
        for (unsigned seed = 0; seed < 20; ++seed) {
            const Dense N = ofRank(8, 5, 3, seed, complex);
            const Bases b = bases(sparseOf(N), GetParam());
            expectTriple(N, b.Null, b.Compl, b.Range, 3);
            EXPECT_EQ(b.Null.isReal(), !complex);
            if (GetParam() == NullFunOrthonormal)
                expectOrthonormal(N, b);
        }
}

TEST_P(BothMethods, KeepTheContractForSparseRandomMatrices)
{
    for (const bool complex : {false, true})
        for (unsigned seed = 0; seed < 40; ++seed) {
            const Dense N = randomDense(14, 6, 100 + seed, complex, 0.25);
            const Bases b = bases(sparseOf(N, complex), GetParam());
            expectTriple(N, b.Null, b.Compl, b.Range, static_cast<std::size_t>(rankOf(N)), 1e-10);
        }
}

TEST(QxNullSp, UnitVectorsCompleteNullWherePivotsAreOfOneKind)
{
    // Each constraint ties a slave to masters that no other constraint touches: the slave is never a master.
    const Dense N = {{1, 0}, {-0.5, 0}, {-0.5, 1}, {0, -1}};
    const Bases b = bases(sparseOf(N), NullFunSparse);

    for (const auto& row : denseOf(b.Compl))
        for (const cplx& v : row)
            EXPECT_TRUE(v == 0.0 || v == 1.0);
    expectTriple(N, b.Null, b.Compl, b.Range, 2, 0.0);
}

TEST(QxNullSp, AChainOfEqualPivotsStillCompletesTheSpace)
{
    // Pivot unknowns are 2, then 0, although rows 0 and 2 of N are equal: unit vectors there would not complete Null.
    const Dense N = {{1, 1}, {1, 5}, {1, 1}};
    const Bases b = bases(sparseOf(N), NullFunSparse);

    expectTriple(N, b.Null, b.Compl, b.Range, 2);

    // A mean value of many unknowns: neighbours in pairs, not all against one.
    const Dense mean(50, std::vector<cplx>(1, 1.0));
    const Bases m = bases(sparseOf(mean), NullFunSparse);
    expectTriple(mean, m.Null, m.Compl, m.Range, 1);
    EXPECT_EQ(m.Null.getNnz(), 98u);
}

TEST_P(BothMethods, ConjugateForComplexConstraints)
{
    const Dense N = {{1}, {I}};
    const Bases b = bases(sparseOf(N), GetParam());

    // N^H v = v_0 - i v_1 = 0: v is a multiple of (1, -i).
    const Dense null = denseOf(b.Null);
    ASSERT_EQ(b.Null.getN(), 1u);
    EXPECT_NEAR(std::abs(null[1][0] + I * null[0][0]), 0.0, 1e-15);
    EXPECT_GT(std::abs(times(transposed(N), null)[0][0]), 0.5);
}

TEST_P(BothMethods, TakeNOrItsTranspose)
{
    const Dense N = randomDense(7, 3, 5, true, 0.6);
    const Sparse n = sparseOf(N, true), nt = sparseOf(transposed(N), true);

    const Bases fromN = bases(n, GetParam()), fromNT = bases(Sparse(), GetParam(), Sparse(), false, nt),
                both = bases(n, GetParam(), Sparse(), false, nt);

    EXPECT_TRUE(allNear(denseOf(fromNT.Null), denseOf(fromN.Null), 0.0));
    EXPECT_TRUE(allNear(denseOf(both.Range), denseOf(fromN.Range), 0.0));
}

TEST_P(BothMethods, TakeEveryKindOfStore)
{
    Sparse byRows = sparseOf({{1, -1, 0}, {0, 1, 2}});
    byRows.setSymm(RowStored); // the transpose, stored by rows
    const Bases b = bases(byRows, GetParam());
    expectTriple({{1, 0}, {-1, 1}, {0, 2}}, b.Null, b.Compl, b.Range, 2);

    Sparse symmetric = sparseOf({{0.5, 0}, {1, 0.5}}); // stands for (1 1; 1 1)
    symmetric.setSymm(Symmetric);
    const Bases s = bases(symmetric, GetParam());
    expectTriple({{1, 1}, {1, 1}}, s.Null, s.Compl, s.Range, 1);
}

TEST_P(BothMethods, GiveTheIdentityWithoutEntries)
{
    Sparse none, flat;
    none.zeros(3, 2, 0, true);
    flat.zeros(0, 2, 0, true);

    const Bases b = bases(none, GetParam(), none, true);
    EXPECT_TRUE(allNear(denseOf(b.Null), identity(3), 0.0));
    EXPECT_TRUE(allNear(denseOf(b.NullF), identity(3), 0.0));
    EXPECT_EQ(b.Compl.getM(), 3u);
    EXPECT_EQ(b.Compl.getN(), 0u);
    EXPECT_EQ(b.Range.getM(), 0u);
    EXPECT_EQ(b.Range.getN(), 2u);
    EXPECT_EQ(bases(flat, GetParam()).Null.getM(), 0u);

    Bases absent;
    absent.Null = sparseOf({{1}});
    qxutil::RunInfo run;
    qxNull(run, Sparse(), Sparse(), Sparse(), true, absent.Null, false, absent.Compl, false, absent.Range, absent.NullF,
           false, absent.ComplF, false, absent.RangeF, false, GetParam(), true);
    EXPECT_EQ(absent.Null.getM(), 0u);
}

TEST_P(BothMethods, RepeatedAndZeroConstraintsAddNothingToTheRank)
{
    const Dense N = {{1, 1, 0, 2}, {-1, -1, 0, -2}, {0, 0, 0, 0}};
    Sparse n = sparseOf(N);
    const Bases b = bases(n, GetParam());

    expectTriple(N, b.Null, b.Compl, b.Range, 1);
}

TEST_P(BothMethods, FullyConstrainedUnknownsLeaveNoNullSpace)
{
    const Dense N = {{2, 1}, {0, 3}};
    const Bases b = bases(sparseOf(N), GetParam());

    expectTriple(N, b.Null, b.Compl, b.Range, 2);
    EXPECT_EQ(b.Null.getN(), 0u);
}

TEST_P(BothMethods, LeaveAnUnknownFreeThatNoConstraintTouches)
{
    const Bases b = bases(sparseOf({{1}, {0}, {1}}), GetParam());

    const Dense null = denseOf(b.Null);
    EXPECT_EQ(null[1][1], 1.0);
    EXPECT_EQ(null[0][1], 0.0);
    EXPECT_EQ(null[2][1], 0.0);
}

TEST_P(BothMethods, NoiseOfThirdsIsNoPivot)
{
    for (unsigned seed = 0; seed < 100; ++seed) {
        Dense N = ofRank(9, 5, 3, 500 + seed, false);
        for (auto& row : N)
            row[4] = row[0] / 3.0 + row[1] / 3.0; // dependent but for rounding
        const Bases b = bases(sparseOf(N), GetParam());
        ASSERT_EQ(b.Compl.getN(), 3u) << "seed " << seed;
        EXPECT_TRUE(allNear(times(transposed(N, true), denseOf(b.Null)), zeros(5, 6),
                            1e-11 * (1.0 + largest(denseOf(b.Null)))));
    }
}

TEST(QxNullSp, AnEntryOfRelativeSizeOfTheToleranceIsNoCandidate)
{
    // Unknown 0 is in both constraints, and small in the second, where nothing else is.
    const auto rank = [](double small) { return bases(sparseOf({{1, small}, {1, 0}}), NullFunSparse).Compl.getN(); };

    // Both unknowns have the entry 1 in constraint 0; the count makes unknown 1 its pivot. Unknown 0 then has what is
    // left of (1, small), norm 1: exactly 1e-10 is not above.
    EXPECT_EQ(rank(1e-11), 1u);
    EXPECT_EQ(rank(1e-10), 1u);
    EXPECT_EQ(rank(2e-10), 2u);
}

TEST(QxNullSp, BadlyScaledUnknownsAreMeasuredByThemselves)
{
    const Dense N = {{1e-30, 0}, {1, 0}, {0, 1e20}, {0, 1}};
    const Bases b = bases(sparseOf(N), NullFunSparse);

    EXPECT_EQ(b.Compl.getN(), 2u);
    EXPECT_TRUE(allNear(times(transposed(N, true), denseOf(b.Null)), zeros(2, 2), 1e-10));
}

TEST(QxNullSp, RequiredQuirkTheLastOfThePivotsWithTheSmallestCountRemains)
{
    EXPECT_EQ(denseOf(bases(sparseOf({{1}, {1}, {1}}), NullFunSparse).Range)[0][0], 1.0);
    const Bases b = bases(sparseOf({{2}, {3}, {5}}), NullFunSparse);
    EXPECT_TRUE(allNear(denseOf(b.Range), {{5}}, 0.0));
    EXPECT_TRUE(allNear(denseOf(b.Compl), {{0}, {0}, {1}}, 0.0));
}

TEST(QxNullOrth, RequiredQuirkOneConstraintIsMeasuredAbsolutelyAndSeveralRelatively)
{
    EXPECT_EQ(bases(sparseOf({{1e-11}, {1e-11}}), NullFunOrthonormal).Compl.getN(), 0u);
    EXPECT_EQ(bases(sparseOf({{1e-9}, {1e-9}}), NullFunOrthonormal).Compl.getN(), 1u);
    EXPECT_EQ(bases(sparseOf({{1e-11, 0}, {1e-11, 1e-11}}), NullFunOrthonormal).Compl.getN(), 2u);
    EXPECT_EQ(bases(sparseOf({{1, 0}, {1, 1e-11}}), NullFunOrthonormal).Compl.getN(), 1u);
}

TEST(QxNullOrth, BlocksOfOneOfLowRankAndInterleaved)
{
    const Dense single = {{-4}};
    const Bases one = bases(sparseOf(single), NullFunOrthonormal);
    expectTriple(single, one.Null, one.Compl, one.Range, 1);

    const Dense deficient = {{1, 2, 3}, {2, 4, 6}, {1, 0, 1}};
    const Bases b = bases(sparseOf(deficient), NullFunOrthonormal);
    expectTriple(deficient, b.Null, b.Compl, b.Range, 2);

    const Dense interleaved = {{1, 0, 2}, {0, 3, 0}, {1, 0, -1}, {0, 4, 0}, {1, 0, 1}};
    const Bases two = bases(sparseOf(interleaved), NullFunOrthonormal);
    expectTriple(interleaved, two.Null, two.Compl, two.Range, 3);
    expectOrthonormal(interleaved, two);
    const Dense null = denseOf(two.Null); // the block of unknown 0 first
    EXPECT_EQ(null[1][0], 0.0);
    EXPECT_NE(null[1][1], 0.0);
}

TEST(QxNullOrth, SameBitsForOneAndTwoThreads)
{
    const Sparse N = sparseOf(randomDense(120, 80, 31, false));
    std::vector<Bases> results;
    for (const int threads : {1, 2}) {
        const qxbase::BlasThreadScope blas(threads);
        results.push_back(bases(N, NullFunOrthonormal));
    }
    EXPECT_TRUE(allNear(denseOf(results[1].Null), denseOf(results[0].Null), 0.0));
    EXPECT_TRUE(allNear(denseOf(results[1].Compl), denseOf(results[0].Compl), 0.0));
    EXPECT_TRUE(allNear(denseOf(results[1].Range), denseOf(results[0].Range), 0.0));
}

TEST(BlockDsp, ListsUnknownsByBlockAndConstraintsWithTheirBlock)
{
    const Sparse N = sparseOf({{0, 0, 0, 0}, {0, 2, 0, 0}, {1, 0, 0, 0}, {0, 3, 0, 4}, {1, 0, 0, 0}});
    NullBlocks blocks;
    NullPairs pairs;

    blockdsp(N, transpose(N, Trans), blocks, pairs);

    EXPECT_EQ(blocks, (NullBlocks{{1, 3}, {2, 4}}));
    EXPECT_EQ(pairs, (NullPairs{{0, 1}, {1, 0}, {3, 0}}));
}

TEST(BlockDsp, ATransposeThatIsNoneIsNoticed)
{
    const Sparse N = sparseOf({{1, 0}, {0, 0}}), other = sparseOf({{0, 0}, {0, 1}});
    NullBlocks blocks;
    NullPairs pairs;

    EXPECT_EQ(idOf([&] { blockdsp(N, other, blocks, pairs); }), "Internal_solver_error");
    EXPECT_EQ(detailOf([&] { blockdsp(N, other, blocks, pairs); }), "r or s vector does not sum up correct.");
    EXPECT_EQ(idOf([&] { blockdsp(N, sparseOf({{1, 1}, {0, 0}}), blocks, pairs); }), "Internal_solver_error");
    EXPECT_EQ(detailOf([&] { blockdsp(N, sparseOf({{1}}), blocks, pairs); }), "Mismatching N and NT matrices.");
}

TEST_P(BothMethods, NonIdealConstraintsKeepTheContractForBothMatrices)
{
    for (const bool complex : {false, true})
        for (unsigned seed = 0; seed < 10; ++seed) {
            const Dense N = randomDense(9, 4, 700 + seed, complex, 0.5), NF = randomDense(9, 4, 800 + seed, complex, 0.5);
            if (rankOf(N) != rankOf(NF))
                continue;
            const Bases b = bases(sparseOf(N, complex), GetParam(), sparseOf(NF, complex));
            const auto rank = static_cast<std::size_t>(rankOf(N));
            expectTriple(N, b.Null, b.Compl, b.Range, rank, 1e-10);
            expectTriple(NF, b.NullF, b.ComplF, b.RangeF, rank, 1e-10);
        }
}

TEST_P(BothMethods, ATwiceAsLargeNFHasTheSameNullSpace)
{
    const Dense N = randomDense(6, 2, 11, false, 0.7);
    Dense NF = N;
    for (auto& row : NF)
        for (cplx& v : row)
            v *= 2.0;
    const Bases b = bases(sparseOf(N), GetParam(), sparseOf(NF));

    EXPECT_TRUE(allNear(denseOf(b.NullF), denseOf(b.Null), 1e-14));
}

TEST_P(BothMethods, DifferentRanksAreInconsistent)
{
    const Sparse N = sparseOf({{1, 0}, {0, 1}, {0, 0}}), NF = sparseOf({{1, 2}, {0, 0}, {0, 0}}), none = [] {
        Sparse S;
        S.zeros(3, 2, 0, true);
        return S;
    }();

    const qxbase::Exception e = failureOf([&] { bases(N, GetParam(), NF); });

    EXPECT_EQ(e.getId(), "Inconsistent_non-ideal_constraint");
    EXPECT_EQ(e.getFile(0), "qxnull");
    EXPECT_EQ(e.getArgs(0)[0], (std::pair<std::string, std::string>("Rank_N", "2")));
    EXPECT_EQ(e.getArgs(0)[1], (std::pair<std::string, std::string>("Rank_NF", "1")));
    ASSERT_EQ(e.getArgs(0).size(), 3u);
    EXPECT_EQ(e.getArgs(0)[2], (std::pair<std::string, std::string>("Constraint_repeated_in_NF", "1")));
    EXPECT_EQ(idOf([&] { bases(N, GetParam(), none); }), "Inconsistent_non-ideal_constraint");
    EXPECT_EQ(idOf([&] { bases(none, GetParam(), N); }), "Inconsistent_non-ideal_constraint");
}

TEST(CheckRanks, BasesThatDoNotShareOutTheUnknownsAreAnInternalSolverError)
{
    using qxnull_detail::checkRanks;
    qxnull_detail::Triple whole, lacking;
    whole.rank = lacking.rank = 2;
    whole.Null.zeros(5, 3, 0, true);
    lacking.Null.zeros(5, 2, 0, true); // 2 + 2 of 5 unknowns

    EXPECT_NO_THROW(checkRanks(5, whole, whole));
    for (const auto& call : {std::function<void()>([&] { checkRanks(5, lacking, whole); }),
                             std::function<void()>([&] { checkRanks(5, whole, lacking); })}) {
        EXPECT_EQ(idOf(call), "Internal_solver_error");
        EXPECT_EQ(detailOf(call), "r vectors does not sum up correct.");
    }
}

TEST(CheckPivots, FlagsAndPivotsThatDisagreeAreAnInternalErrorSolver)
{
    using qxnull_detail::checkPivots;
    const std::vector<char> twoOfThree = {1, 0, 1};

    EXPECT_NO_THROW(checkPivots(twoOfThree, {2, 0}));
    EXPECT_NO_THROW(checkPivots({}, {}));
    for (const std::vector<unsigned long>& pivots : {std::vector<unsigned long>{2}, {2, 0, 2}}) { // lost, found twice
        const auto call = [&] { checkPivots(twoOfThree, pivots); };
        EXPECT_EQ(idOf(call), "Internal_error_solver");
        EXPECT_EQ(detailOf(call), "Range-size and nrange mismatch");
    }
}

TEST_P(BothMethods, MismatchesAreRefused)
{
    const Sparse N = sparseOf({{1, 0}, {0, 1}, {1, 0}}), wrong = sparseOf({{1, 0}, {0, 1}});
    Sparse complexNT = transpose(N, Trans), more = sparseOf({{1, 1, 1}, {0, 1, 0}});
    complexNT.real2complex();

    for (const Sparse& NT : {wrong, complexNT, more}) {
        const auto call = [&] { bases(N, GetParam(), Sparse(), false, NT); };
        EXPECT_EQ(idOf(call), "Internal_error_solver");
        EXPECT_EQ(detailOf(call), "Mismatching N and NT matrices.");
    }
    const auto call = [&] { bases(N, GetParam(), wrong); };
    EXPECT_EQ(idOf(call), "Internal_error_solver");
    EXPECT_EQ(detailOf(call), "Mismatching N and NF matrices.");
}

TEST(QxNullSp, RequiredQuirkARealAndAComplexMatrixAreAnInternalSolverError)
{
    const Sparse N = sparseOf({{1}, {1}}), NF = sparseOf({{1}, {I}});

    EXPECT_EQ(idOf([&] { bases(N, NullFunSparse, NF); }), "Internal_solver_error");
    EXPECT_EQ(idOf([&] { bases(NF, NullFunSparse, N); }), "Internal_solver_error");
}

TEST(QxNull, RequiredQuirkAnotherMethodIsAnInternalSolverError)
{
    const auto call = [] { bases(sparseOf({{1}, {1}}), NullFun(3)); };

    EXPECT_EQ(idOf(call), "Internal_solver_error");
    EXPECT_EQ(detailOf(call), "not allowed value for nullfun");
}

TEST_P(BothMethods, NaNIsRefused)
{
    Sparse one = sparseOf({{1}, {1}}), two = sparseOf({{1, 1}, {1, 2}});
    one.getDoubleVal()[0] = notANumber;
    two.getDoubleVal()[0] = notANumber;
    const std::string id =
        GetParam() == NullFunSparse ? "Internal_error_solver" : "Constraint_elimination_failed_in_SVD";

    EXPECT_EQ(idOf([&] { bases(one, GetParam()); }), id);
    EXPECT_EQ(idOf([&] { bases(two, GetParam()); }), id);
}

TEST_P(BothMethods, OutputsThatAreNotWantedStayAsTheyAre)
{
    qxutil::RunInfo run;
    Bases b;
    b.Compl = b.NullF = sparseOf({{42}});
    qxNull(run, sparseOf({{1}, {1}}), Sparse(), Sparse(), true, b.Null, false, b.Compl, true, b.Range, b.NullF, false,
           b.ComplF, false, b.RangeF, false, GetParam(), true);

    EXPECT_EQ(b.Null.getN(), 1u);
    EXPECT_EQ(denseOf(b.Compl)[0][0], 42.0);
    EXPECT_EQ(denseOf(b.NullF)[0][0], 42.0);
}

TEST_P(BothMethods, ACancelledRunRaisesAndLeavesTheOutputs)
{
    qxutil::RunInfo run;
    run.cancel();
    Bases b;
    b.Null = sparseOf({{42}});
    const auto call = [&] {
        qxNull(run, sparseOf({{1}, {1}}), Sparse(), Sparse(), true, b.Null, true, b.Compl, true, b.Range, b.NullF, false,
               b.ComplF, false, b.RangeF, false, GetParam(), true);
    };
    try {
        call();
        FAIL() << "no exception";
    } catch (const qxbase::CancelException& e) {
        EXPECT_EQ(e.getId(),
                  GetParam() == NullFunSparse ? "<CANCEL>qxNullSp_cancelled" : "<CANCEL>qxNullOrth_cancelled");
    }
    EXPECT_EQ(denseOf(b.Null)[0][0], 42.0);

    run.cancel(false);
    EXPECT_NO_THROW(call());
}

TEST_P(BothMethods, EveryFailedAllocationIsReportedAndLeavesTheOutputs)
{
    const Dense D = {{1, 0}, {-1, 1}, {0, 2}, {1, 1}};
    const Sparse N = sparseOf(D), NF = sparseOf({{2, 0}, {-1, 1}, {0, 1}, {1, 1}});
    qxutil::RunInfo run;
    Bases b;
    b.Null = sparseOf({{42}});
    const Bases before = b;
    const auto act = [&] {
        qxNull(run, N, Sparse(), NF, true, b.Null, true, b.Compl, true, b.Range, b.NullF, true, b.ComplF, true, b.RangeF,
               true, GetParam(), true);
    };
    const long allocations = qxtest::failEveryAllocation(act, [&](const qxtest::FaultRun& fault) {
        EXPECT_FALSE(fault.badAlloc);
        if (fault.faulted) {
            EXPECT_EQ(fault.id.substr(0, 14), "Out_of_memory_");
            EXPECT_EQ(denseOf(b.Null)[0][0], 42.0);
            EXPECT_EQ(b.RangeF.getM(), 0u);
        }
        EXPECT_TRUE(allNear(denseOf(N), D, 0.0));
        b = before;
    });
    EXPECT_GT(allocations, 50);
}

TEST(QxNullSp, BuildsWhatIsSelected)
{
    qxutil::RunInfo run;
    Array<bool, 1> all(3), none(3);
    all = true;
    none = false;
    none[1] = true;
    Bases b;
    const Sparse N = sparseOf({{1}, {-1}, {0}}), NF = sparseOf({{1}, {-2}, {0}});

    qxNullSp(run, N, Sparse(), NF, Sparse(), b.Null, b.Compl, b.Range, b.NullF, b.ComplF, b.RangeF, all, none);
    EXPECT_EQ(b.Null.getN(), 2u);
    EXPECT_EQ(b.NullF.getM(), 0u);
    EXPECT_EQ(b.ComplF.getN(), 1u);

    Bases alone;
    qxNullSp(run, N, Sparse(), alone.Null, alone.Compl, alone.Range, all);
    EXPECT_TRUE(allNear(denseOf(alone.Null), denseOf(b.Null), 0.0));
    Bases joint;
    qxNullSp(run, N, NF, joint.Null, joint.Compl, joint.Range, all);
    EXPECT_TRUE(allNear(denseOf(joint.Range), {{-1}}, 0.0));
}

TEST(QxNullOrth, WorksOnGivenBlocks)
{
    qxutil::RunInfo run;
    Array<bool, 1> all(3);
    all = true;
    const Dense D = {{1, 0}, {0, 2}, {1, 0}};
    const Sparse N = sparseOf(D), NT = transpose(N, Trans);
    NullBlocks blocks;
    NullPairs pairs;
    blockdsp(N, NT, blocks, pairs);
    Bases b;

    qxNullOrth(run, N, NT, blocks, pairs, b.Null, b.Compl, b.Range, all);

    expectTriple(D, b.Null, b.Compl, b.Range, 2);
}

// --- Reordering ----------------------------------------------------------------------------------------------------

TEST(ReorderNullF, UndoesAPermutationAndSignFlips)
{
    const Dense Q = {{1, 0, 0}, {0, 0.8, -0.6}, {0, 0.6, 0.8}, {0, 0, 0}};
    Dense F = Q;
    for (std::size_t i = 0; i < 4; ++i)
        F[i] = {-Q[i][2], Q[i][0], Q[i][1]};
    Sparse NullF = sparseOf(F);

    reorderNullF(NullF, sparseOf(Q));

    EXPECT_TRUE(allNear(denseOf(NullF), Q, 0.0));
}

TEST(ReorderNullF, TakesTheRealPartForTheSignOfComplexPartners)
{
    Sparse NullF = sparseOf({{-1.0 + I}}, true);

    reorderNullF(NullF, sparseOf({{1}}, true));

    EXPECT_TRUE(allNear(denseOf(NullF), {{1.0 - I}}, 0.0));
}

TEST(ReorderNullF, RequiredQuirkFailureWarnsOnStandardOutputAndChangesNothing)
{
    Sparse NullF = sparseOf({{0, 1}, {0, 1}, {1, 0}});
    const Dense before = denseOf(NullF);

    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    reorderNullF(NullF, sparseOf({{1, 1}, {-1, 0}, {0, 0}})); // column 0 of P is zero
    const std::string err = testing::internal::GetCapturedStderr(), out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(out, "Warning: Re-ordering of null vectors failed\n");
    EXPECT_EQ(err, "");
    EXPECT_TRUE(allNear(denseOf(NullF), before, 0.0));
}

TEST(QxNull, ReordersTheSecondBasisOnRequest)
{
    const Sparse N = sparseOf({{1}, {1}, {0}}), NF = sparseOf({{1}, {1.5}, {0}});
    const Bases plain = bases(N, NullFunOrthonormal, NF, false), reordered = bases(N, NullFunOrthonormal, NF, true);

    const Dense P = times(transposed(denseOf(reordered.NullF)), denseOf(reordered.Null));
    for (std::size_t j = 0; j < P.size(); ++j)
        EXPECT_GT(P[j][j].real(), 0.5);
    EXPECT_EQ(plain.NullF.getN(), 2u);
}

// --- Properties ----------------------------------------------------------------------------------------------------

TEST(QxNullProp, WritesWhatIsWanted)
{
    qxutil::RunInfo run;
    qxbase::Prop in, out;
    in.setany("n", sparseOf({{1, 0}, {-1, 1}, {0, 2}}));
    in.setany("out", std::vector<std::string>{"range", "null"});

    qxNull(run, in, out);

    EXPECT_EQ(out.getKeys(), (std::vector<std::string>{"null", "range"}));
    EXPECT_TRUE(allNear(denseOf(out.get<Sparse>("null")), {{1}, {1}, {-0.5}}, 0.0));
}

TEST(QxNullProp, DefaultsAreTheSparseMethodAndAllThatCanBeHad)
{
    qxbase::Prop in, both;
    in.setany("n", sparseOf({{1}}));
    both.setany("nf", sparseOf({{1}}));

    qxNullCheck(in);
    qxNullCheck(both);

    EXPECT_EQ(in.getInt("nullfun"), 1);
    EXPECT_EQ(in.getInt("nargout"), 3);
    EXPECT_EQ(in.get<std::vector<std::string>>("out"), (std::vector<std::string>{"null", "compl", "range"}));
    EXPECT_EQ(both.getInt("nargout"), 6);
    EXPECT_NO_THROW(in.assertChecked());
}

TEST(QxNullProp, UsesAllMatricesAndTheMethod)
{
    qxutil::RunInfo run;
    qxbase::Prop in, out;
    const Dense N = {{1}, {1}, {0}};
    in.setany("n", sparseOf(N));
    in.setany("nt", sparseOf(transposed(N)));
    in.setany("nf", sparseOf({{1}, {2}, {0}}));
    in.setInt("nullfun", 2);

    qxNull(run, in, out);

    EXPECT_EQ(out.getKeys().size(), 6u);
    EXPECT_NEAR(std::abs(denseOf(out.get<Sparse>("compl"))[0][0]), std::sqrt(0.5), 1e-15);
    EXPECT_NEAR(std::abs(denseOf(out.get<Sparse>("rangef"))[0][0]), std::sqrt(5.0), 1e-15);
}

TEST(QxNullProp, MissingOrWrongPropertiesAreRefused)
{
    qxutil::RunInfo run;
    qxbase::Prop empty, noF, method, wrong, out;
    EXPECT_EQ(idOf([&] { qxNull(run, empty, out); }), "No_N_matrix_given");

    noF.setany("n", sparseOf({{1}}));
    noF.setany("out", std::vector<std::string>{"nullf"});
    EXPECT_EQ(idOf([&] { qxNull(run, noF, out); }), "No_NF_matrix_given");

    method.setany("n", sparseOf({{1}}));
    method.setInt("nullfun", 3);
    EXPECT_EQ(idOf([&] { qxNull(run, method, out); }), "Internal_solver_error");

    wrong.setInt("n", 5);
    const qxbase::Exception e = failureOf([&] { qxNull(run, wrong, out); });
    EXPECT_EQ(e.getId(), "Internal_error_property_processing");
    EXPECT_EQ(e.getArgs(0).front().first, "get<>: Property \"n\" does not have type Sparse");
    EXPECT_TRUE(out.getKeys().empty());
}

// --- The work form -------------------------------------------------------------------------------------------------

TEST(NullSparse, AddsEntriesInOrderAndKeepsZeros)
{
    const Sparse S = sparseOf({{0, 5}, {0, 0}, {3, 0}});
    qxnull_detail::NullSparse<double> A(*S.getptrD(), false, 0, [] {});

    A.addEntry(0, 0, 1.0);
    A.addEntry(2, 0, -3.0);
    A.addEntry(1, 1, 7.0);

    EXPECT_EQ(A.column(0).rows, (std::vector<unsigned long>{0, 2}));
    EXPECT_EQ(A.column(0).values, (std::vector<double>{1, 0}));
    EXPECT_EQ(A.count(0), 2u);
    EXPECT_EQ(A(1, 1), 7.0);
    EXPECT_EQ(A(2, 1), 0.0);
}

TEST(NullSparse, AddsColumnsAndRemembersTheLargestScale)
{
    const Sparse S = sparseOf({{3, 1}, {4, 0}, {0, 2}});
    qxnull_detail::NullSparse<double> A(*S.getptrD(), false, 0, [] {});

    EXPECT_EQ(A.reference(0), 25.0);
    A.addColumn(0, 1, -3.0);
    A.updateScale(0);
    EXPECT_EQ(A.column(0).values, (std::vector<double>{0, 4, -6}));
    EXPECT_EQ(A.reference(0), 52.0);
    A.setEntry(2, 0, 0.0);
    A.updateScale(0);
    EXPECT_EQ(A.reference(0), 52.0);
}

TEST(NullSparse, IdentityColumnsAreUnitVectorsUntilTheyChange)
{
    qxnull_detail::NullSparse<cplx> E;
    E.eye(3);

    E.addColumn(0, 2, I);

    EXPECT_EQ(E(0, 0), cplx(1));
    EXPECT_EQ(E(2, 0), I);
    EXPECT_EQ(E(1, 1), cplx(1));
    EXPECT_EQ(E(0, 1), cplx(0));
    EXPECT_EQ(E.count(1), 1u);
    E.clear();
    EXPECT_EQ(E.columns(), 0u);
}

TEST(NullSparse, SumsDuplicatesAndConjugatesOnRequest)
{
    const std::vector<unsigned long> colPtr = {0, 3}, rows = {0, 1, 1};
    Sparse S;
    S.flat2sparse(rows, colPtr, complexVector({I, 1, I}), 2, 1);
    const qxnull_detail::NullSparse<cplx> A(*S.getptrZ(), true, 0, [] {});

    EXPECT_EQ(A(0, 0), -I);
    EXPECT_EQ(A(1, 0), 1.0 - I);
    EXPECT_EQ(A.count(0), 2u);
}

TEST(NullSparse, IndicesOutOfRangeRaise)
{
    qxnull_detail::NullSparse<double> E;
    E.eye(2);

    EXPECT_EQ(idOf([&] { E(2, 0); }), "Internal_error_solver");
    EXPECT_EQ(idOf([&] { E(0, 2); }), "Internal_error_solver");
    EXPECT_EQ(idOf([&] { E.addEntry(2, 0, 1.0); }), "Internal_error_solver");
    EXPECT_EQ(idOf([&] { E.addColumn(0, 2, 1.0); }), "Internal_error_solver");
    EXPECT_EQ(idOf([&] { E.updateScale(5); }), "Internal_error_solver");
    EXPECT_EQ(detailOf([&] { E.setEntry(1, 0, 1.0); }), "Entry not found.");
}

} // namespace

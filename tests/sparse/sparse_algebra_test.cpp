// SPDX-License-Identifier: LicenseRef-qxkernel
// Sums, products, transposition, scaling and concatenation against dense arithmetic; orders and forms of results.

#include "sparse_testing.hpp"

#include "qxrun.hpp"

#include "sparse/merge_in_place.hpp"
#include "support/alloc_fault.hpp"

#include <cmath>
#include <numeric>

using namespace qxtest;
using testing::ElementsAre;

namespace {

std::vector<Index> rowsOf(const Sparse& A) { return {A.getRow(), A.getRow() + A.getNnz()}; }
std::vector<double> valuesOf(const Sparse& A) { return {A.getDoubleVal(), A.getDoubleVal() + A.getNnz()}; }

struct Pair
{
    bool realA, realB, byRow;
};

class Algebra : public testing::TestWithParam<Pair>
{
protected:
    Symm_t symm() const { return GetParam().byRow ? RowStored : Unsymmetric; }
    Sparse a(Index m, Index n, Index count) const { return randomSparse(m, n, count, GetParam().realA, symm(), 51); }
    Sparse b(Index m, Index n, Index count) const { return randomSparse(m, n, count, GetParam().realB, symm(), 52); }
};

std::string pairName(const testing::TestParamInfo<Pair>& pair)
{
    return std::string(pair.param.realA ? "d" : "z") + (pair.param.realB ? "d" : "z") + (pair.param.byRow ? "Row" : "Col");
}

/// results() on one thread and on several.
void expectSameBitsForAnyThreads(const std::function<std::vector<Sparse>()>& results)
{
    const std::vector<Sparse> serial = [&] { const Threads one(1); return results(); }();
    for (int threads : {2, 3, 7, 16}) {
        const Threads some(threads);
        const std::vector<Sparse> got = results();
        for (std::size_t k = 0; k < got.size(); ++k)
            EXPECT_TRUE(sameBits(got[k], serial[k])) << "result " << k << ", " << threads << " threads";
    }
}

const std::vector<cplx> scalars = {1.0, -1.0, 0.0, 2.5, cplx(0.5, -2.0)};

} // namespace

TEST_P(Algebra, SumsAgreeWithDenseArithmetic)
{
    const Sparse A = a(20, 17, 90), B = b(20, 17, 70);
    for (cplx alpha : scalars) {
        const Dense wanted = alpha * dense(A) + dense(B);
        EXPECT_TRUE(near(dense(add(A, alpha, B)), wanted, 1e-15)) << alpha;
        for (bool inPlace : {false, true}) {
            Sparse sum = B;
            sum.addMat(alpha, A, inPlace);
            EXPECT_TRUE(near(dense(sum), wanted, 1e-15)) << alpha;
            EXPECT_EQ(sum.isReal(), A.isReal() && B.isReal() && alpha.imag() == 0.0);
            EXPECT_EQ(sum.getForm(), FormNone);
            EXPECT_EQ(sum.getSymm(), symm());
        }
    }
    EXPECT_TRUE(near(dense(A + B), dense(A) + dense(B), 0));
    EXPECT_TRUE(near(dense(A - B), dense(A) - dense(B), 0));
    EXPECT_TRUE(near(dense(-A), cplx(-1.0) * dense(A), 0));
    EXPECT_EQ((+A).getptrD(), A.getptrD());
}

TEST_P(Algebra, ProductsAgreeWithDenseArithmetic)
{
    const Sparse A = a(20, 17, 90), B = b(17, 23, 70);
    const Dense AB = dense(A) * dense(B);

    const Sparse P = A * B;
    EXPECT_TRUE(near(dense(P), AB, 1e-14));
    EXPECT_EQ(P.getForm(), FormNone);
    EXPECT_EQ(P.getSymm(), symm());
    EXPECT_EQ(P.isReal(), A.isReal() && B.isReal());
    for (Trans_t trans : {Trans, ConjTrans}) {
        const Sparse T = mul(A, B, trans);
        EXPECT_TRUE(near(dense(T), op(AB, trans), 1e-14));
        EXPECT_EQ(T.getForm(), FormSorted);
    }
    EXPECT_TRUE(sameBits(mul(A, B, NoTrans), P));
}

TEST_P(Algebra, ProductsOntoAMatrixAgreeWithDenseArithmetic)
{
    const Sparse A = a(17, 17, 60), B = b(17, 17, 50);
    for (bool inPlace : {false, true}) {
        for (Trans_t trans : allTrans) {
            SCOPED_TRACE(testing::Message() << "inPlace = " << inPlace << ", trans = " << trans);
            Sparse left = A;
            left.multLeft(B, trans, inPlace);
            EXPECT_TRUE(near(dense(left), op(dense(B), B.isReal() && trans == ConjTrans ? Trans : trans) * dense(A), 1e-14));
        }
        Sparse right = A;
        right.mulRight(B, inPlace);
        EXPECT_TRUE(near(dense(right), dense(A) * dense(B), 1e-14));
    }
}

TEST_P(Algebra, ResultsDoNotDependOnTheNumberOfThreads)
{
    const Sparse A = a(300, 290, 9000), B = b(290, 310, 9000), C = b(300, 290, 8000);
    const auto results = [&] {
        Sparse inPlace = A, left = B, right = A;
        inPlace.addMat(2.5, C, true);
        left.multLeft(A, NoTrans, true);
        right.mulRight(B, true);
        return std::vector<Sparse>{A * B, mul(A, B, Trans), mul(A, B, ConjTrans), A + C, add(A, 2.5, C), A - C,
                                   transpose(A, Trans), transpose(A, ConjTrans), inPlace, left, right};
    };
    expectSameBitsForAnyThreads(results);
}

TEST_P(Algebra, TransposedProductHasTheBitsOfTheTransposedPlainProduct)
{
    const Sparse A = a(60, 50, 900), B = b(50, 70, 900);
    for (Trans_t trans : {Trans, ConjTrans})
        for (int threads : {1, 2, 3, 7, 16}) {
            SCOPED_TRACE(testing::Message() << "trans = " << trans << ", threads = " << threads);
            const Threads some(threads);
            Sparse wanted = transpose(A * B, trans);
            wanted.setForm(FormSorted);
            EXPECT_TRUE(sameBits(mul(A, B, trans), wanted));
        }
}

TEST_P(Algebra, ConcatenationsAgreeWithDenseBlocks)
{
    const Sparse A = a(4, 5, 9), B = b(4, 3, 7), C = b(6, 5, 9), D = b(2, 2, 3);
    const auto blocks = [](const Dense& x, const Dense& y, bool side) {
        Dense r(side ? std::max(x.m, y.m) : x.m + y.m, side ? x.n + y.n : std::max(x.n, y.n));
        for (Index j = 0; j < x.n; ++j)
            for (Index i = 0; i < x.m; ++i)
                r(i, j) = x(i, j);
        for (Index j = 0; j < y.n; ++j)
            for (Index i = 0; i < y.m; ++i)
                r(side ? i : x.m + i, side ? x.n + j : j) = y(i, j);
        return r;
    };
    EXPECT_TRUE(near(dense(hcat(A, B, false)), blocks(dense(A), dense(B), true), 0));
    EXPECT_TRUE(near(dense(vcat(A, C, false)), blocks(dense(A), dense(C), false), 0));
    EXPECT_TRUE(near(dense(hcat(A, D, true)), blocks(dense(A), dense(D), true), 0));
    EXPECT_TRUE(near(dense(vcat(A, D, true)), blocks(dense(A), dense(D), false), 0));
    EXPECT_EQ(raised([&] { hcat(A, D, false); }, true), "sparse:Size_sparse_matrices_disagree");
    EXPECT_EQ(raised([&] { vcat(A, D, false); }), "Size_sparse_matrices_disagree");

    using Member = boost::shared_ptr<Sparse>;
    Sparse list;
    list.setSymm(symm());
    list.hcat({Member(new Sparse(A)), Member(new Sparse(B)), Member(new Sparse(D))}, 4);
    EXPECT_TRUE(near(dense(list), blocks(blocks(dense(A), dense(B), true), dense(D), true), 0));
    EXPECT_EQ(list.isReal(), A.isReal() && B.isReal());
    list.vcat({Member(new Sparse(A)), Member(new Sparse(C)), Member(new Sparse(D))}, 5);
    EXPECT_TRUE(near(dense(list), blocks(blocks(dense(A), dense(C), false), dense(D), false), 0));
    EXPECT_EQ(raised([&] { list.hcat({Member(new Sparse(C))}, 4); }), "Size_sparse_matrices_disagree");
    const Sparse before = list;
    list.hcat({}, 7);
    EXPECT_TRUE(sameBits(list, before)); // an empty total leaves the target as it was
}

INSTANTIATE_TEST_SUITE_P(Types, Algebra,
                         testing::Values(Pair{true, true, false}, Pair{true, false, false}, Pair{false, true, false},
                                         Pair{false, false, false}, Pair{true, true, true}, Pair{true, false, true},
                                         Pair{false, true, true}, Pair{false, false, true}),
                         pairName);

// --- Orders, forms, quirks -----------------------------------------------------------------------------------------

TEST(SparseSum, RequiredQuirkEntriesOfTheFirstThenNewRowsOfTheSecondAndZerosStay)
{
    const Sparse A = sparseOf(4, 1, {{2, 0, 1.0}, {0, 0, 2.0}}), B = sparseOf(4, 1, {{3, 0, 5.0}, {0, 0, -2.0}, {1, 0, 7.0}});
    const Sparse sum = add(A, 1.0, B);
    EXPECT_THAT(rowsOf(sum), ElementsAre(2, 0, 3, 1));
    EXPECT_THAT(valuesOf(sum), ElementsAre(1, 0, 5, 7)); // 2 - 2 stays as an explicit zero
}

TEST(SparseSum, PlusOneAndMinusOneGiveTheBitsOfTheGeneralCase)
{
    const Sparse A = randomSparse(30, 30, 200, true, Unsymmetric, 1), B = randomSparse(30, 30, 200, true, Unsymmetric, 2);
    for (double sign : {1.0, -1.0}) {
        llsparse<cplx> general;
        llsparse<double> exact;
        exact.llsp_add(sign, *A.getptrD(), *B.getptrD());
        general.llsp_add(cplx(sign, 0.0), *A.getptrD(), *B.getptrD());
        for (Index p = 0; p < exact.nnz(); ++p)
            EXPECT_EQ(general.val[p], exact.val[p]);
    }
}

TEST(SparseSum, ScalarZeroKeepsZerosAndNanMultiplies)
{
    const Sparse A = sparseOf(2, 1, {{0, 0, 3.0}}), B = sparseOf(2, 1, {{1, 0, 4.0}});
    EXPECT_THAT(valuesOf(add(A, 0.0, B)), ElementsAre(0, 4));
    EXPECT_TRUE(std::isnan(add(A, NAN, B).getDoubleVal()[0]));
}

TEST(SparseSum, DuplicatesOfTheFirstStayAndThoseOfTheSecondAreMerged)
{
    llsparse<double> twice(2, 1, 2), sum;
    twice.row[0] = twice.row[1] = 1;
    twice.val[0] = 1.0;
    twice.val[1] = 2.0;
    twice.colPtr[1] = 2;
    const Sparse B = sparseOf(2, 1, {{0, 0, 5.0}});
    sum.llsp_add(1.0, twice, *B.getptrD());
    EXPECT_EQ(sum.nnz(), 3u);
    sum.llsp_add(1.0, *B.getptrD(), twice);
    EXPECT_EQ(sum.nnz(), 2u);
    EXPECT_EQ(sum.val[1], 3.0);
    sum.llsp_add(1.0, twice, twice); // equal columns, but not strictly ascending
    EXPECT_EQ(sum.nnz(), 2u);
    EXPECT_EQ(sum.val[0] + sum.val[1], 6.0);
}

TEST(SparseSum, RequiredQuirkSymmetriesOfStoresAreNotExpanded)
{
    const Sparse S = randomSparse(6, 6, 12, true, Symmetric, 1), U = randomSparse(6, 6, 12, true, Unsymmetric, 2);
    EXPECT_EQ((S + S).getSymm(), Symmetric);
    EXPECT_EQ((S + U).getSymm(), Unsymmetric);
    EXPECT_TRUE(near(storedDense(S + U), storedDense(S) + storedDense(U), 0));
    EXPECT_EQ((S * U).getSymm(), Unsymmetric);
    EXPECT_TRUE(near(storedDense(S * U), storedDense(S) * storedDense(U), 1e-15));
    const Sparse H = randomSparse(6, 6, 12, false, Hermitian, 3);
    EXPECT_EQ((H + H).getSymm(), Hermitian);
    EXPECT_EQ((H + S).getSymm(), Unsymmetric);
}

TEST(SparseSum, RequiredQuirkInPlaceKeepsTheCapacityThatFitsAndTakesAVersionInEveryCase)
{
    // 3 entries and 3 new ones: capacity 5, 6, 7 around the need of 6.
    for (Index capacity : {5ul, 6ul, 7ul}) {
        Sparse A = Sparse().zeros(4, 3, capacity, true);
        A.setElem(0, 0, 1.0), A.setElem(1, 1, 2.0), A.setElem(2, 2, 3.0);
        const Sparse B = sparseOf(4, 3, {{3, 0, 4.0}, {0, 1, 5.0}, {0, 2, 6.0}});
        const Index* row = A.getRow();
        const auto version = A.getRowColptrVersion();
        A.getptrD()->llsp_inplaceAdd(1.0, *B.getptrD());
        EXPECT_TRUE(near(dense(A), {{1, 5, 6}, {0, 2, 0}, {0, 0, 3}, {4, 0, 0}}, 0)) << capacity;
        EXPECT_EQ(A.getRow() == row, capacity >= 6);
        EXPECT_EQ(A.getNzmax(), std::max(capacity, 6ul));
        EXPECT_EQ(A.getForm(), FormNone);
        EXPECT_GT(A.getRowColptrVersion(), version);
    }
}

TEST(SparseSum, InPlaceQueueHoldsColumnsThatOutgrowTheirPlace)
{
    // Every result column is longer than the one it replaces; the last old column is empty.
    std::vector<Entry> full;
    for (Index j = 0; j < 6; ++j)
        for (Index i = 0; i < 8; ++i)
            full.push_back({i, j, double(i + 10 * j)});
    const Sparse B = sparseOf(8, 6, full);
    Sparse A = Sparse().zeros(8, 6, 60, true);
    for (Index j = 0; j < 5; ++j)
        A.setElem(j, j, 1000.0);
    const Dense wanted = dense(A) + dense(B);
    A.getptrD()->llsp_inplaceAdd(1.0, *B.getptrD());
    EXPECT_TRUE(near(dense(A), wanted, 0));
    EXPECT_EQ(A.getNzmax(), 60u);
}

TEST(SparseSum, MergeRefusesCountsThatExceedTheCapacity)
{
    llsparse<double> s(2, 1, 1);
    const Index counts[] = {0, 2};
    const auto merge = [&] { qxsparse::mergeInPlace(s, counts, [](Index, Index*, double*) {}); };
    EXPECT_EQ(raised(merge, true), "sputil:Internal_error_sparse");
    try {
        merge();
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getArgs(0).front().first, "Reallocation is needed.");
    }
}

TEST(SparseSum, EmptyOperandsGiveACopyOfTheOther)
{
    const Sparse Z = Sparse().zeros(5, 4, 0, true), A = randomSparse(5, 4, 9, true, Unsymmetric, 1);
    EXPECT_TRUE(near(dense(Z + A), dense(A), 0));
    EXPECT_TRUE(near(dense(add(A, 2.0, Z)), cplx(2.0) * dense(A), 0));
    for (auto [m, n] : {std::pair(0ul, 0ul), std::pair(0ul, 3ul), std::pair(3ul, 0ul)}) {
        const Sparse E = Sparse().zeros(m, n, 0, true);
        EXPECT_EQ((E + E).getM(), m);
        EXPECT_EQ(transpose(E, Trans).getM(), n);
        EXPECT_EQ((transpose(E, Trans) * E).getN(), n);
        EXPECT_EQ((E * transpose(E, Trans)).getM(), m);
        Sparse F = E;
        F.addMat(2.0, E, true);
        F.scale(3.0);
        F.format(FormSorted, false);
        F.removeDuplicates();
        F.truncateCols(0.1);
        F.removeZeroCols();
        EXPECT_EQ(F.getM(), m);
    }
}

TEST(SparseProduct, RequiredQuirkColumnsStandInFirstTouchOrderAndTransposedOnesAscend)
{
    // Column 0 of B = (row 1, row 0): columns 1, then 0 of A.
    const Sparse A = sparseOf(3, 2, {{2, 1, 1.0}, {0, 1, 1.0}, {1, 0, 1.0}, {2, 0, 1.0}});
    const Sparse B = sparseOf(2, 1, {{1, 0, 2.0}, {0, 0, 3.0}});
    EXPECT_THAT(rowsOf(A * B), ElementsAre(2, 0, 1));
    EXPECT_THAT(valuesOf(A * B), ElementsAre(5, 2, 3));
    EXPECT_THAT(valuesOf(mul(A, B, Trans)), ElementsAre(2, 3, 5));
}

TEST(SparseProduct, InPlaceFromTheRightTakesAnyColumnOfTheOldMatrix)
{
    const Sparse A = randomSparse(7, 7, 20, true, Unsymmetric, 1);
    std::vector<Entry> permutation, upper, full;
    for (Index j = 0; j < 7; ++j)
        for (Index i = 0; i < 7; ++i) {
            if (i == (j + 3) % 7)
                permutation.push_back({i, j, 2.0});
            if (i <= j)
                upper.push_back({i, j, double(i + j)});
            full.push_back({i, j, double(i) - double(j)});
        }
    for (const auto& list : {permutation, upper, full})
        for (Index capacity : {20ul, 49ul, 60ul}) {
            const Sparse B = sparseOf(7, 7, list);
            Sparse C = Sparse().zeros(7, 7, capacity, true);
            C.getptrD()->llsp_inplaceAdd(1.0, *A.getptrD());
            const Index held = C.getNzmax();
            C.getptrD()->llsp_inplaceMulRightPrivate(*B.getptrD());
            EXPECT_TRUE(near(dense(C), dense(A) * dense(B), 1e-14));
            EXPECT_EQ(C.getNzmax(), std::max(held, C.getNnz()));
        }
}

TEST(SparseProduct, RequiredQuirkSelectionFromTheLeftIsForTransposedFactorsOnly)
{
    const Sparse A = randomSparse(6, 6, 18, true, Unsymmetric, 1);
    const Sparse E = sparseOf(6, 3, {{1, 0, 1.0}, {3, 1, 1.0}, {5, 2, 1.0}}); // columns 1, 3, 5 of the identity
    ASSERT_TRUE(E.isSimple());
    Sparse rows = A, columns = A, complex = A;
    rows.multLeft(E, Trans, true);
    columns.mulRight(E, true);
    complex.real2complex();
    complex.multLeft(E, ConjTrans, true);
    EXPECT_TRUE(near(dense(rows), op(dense(E), Trans) * dense(A), 0));
    EXPECT_TRUE(near(dense(columns), dense(A) * dense(E), 0));
    EXPECT_TRUE(near(dense(complex), op(dense(E), Trans) * dense(A), 0));
    Sparse wrong = Sparse().eye(5);
    EXPECT_EQ(raised([&] { wrong.multLeft(E, Trans, true); }), "Size_sparse_matrices_disagree");
    EXPECT_EQ(raised([&] { wrong.mulRight(E, true); }), "Size_sparse_matrices_disagree");
    Sparse general = transpose(A, Trans);
    general.multLeft(Sparse().eye(6), NoTrans, true); // NoTrans goes the general way
    EXPECT_EQ(general.getForm(), FormNone);
    const Sparse byRow = convertToRow(E);
    Sparse rowResult = convertToRow(A);
    rowResult.multLeft(byRow, Trans, true);
    EXPECT_TRUE(near(dense(rowResult), op(dense(E), Trans) * dense(A), 0));
}

TEST(SparseProduct, RequiredQuirkSelectionFromTheRightAsksForNoTransposition)
{
    const Sparse A = randomSparse(4, 3, 8, true, Unsymmetric, 1);
    Sparse B = A;
    B.mulRight(Sparse().eye(3), true);
    EXPECT_TRUE(near(dense(B), dense(A), 0));
    EXPECT_EQ(B.getForm(), A.getForm());
}

TEST(SparseMixture, RequiredQuirkOnlyRowStoresWithUnsymmetricOnesAreRefused)
{
    const Sparse U = Sparse().eye(3), R = convertToRow(U);
    const auto both = [&](auto f) {
        EXPECT_EQ(raised([&] { f(U, R); }, true), "sparse:Symmetry_sparse_matrices_disagree");
        EXPECT_EQ(raised([&] { f(R, U); }), "Symmetry_sparse_matrices_disagree");
    };
    both([](const Sparse& a, const Sparse& b) { a + b; });
    both([](const Sparse& a, const Sparse& b) { a - b; });
    both([](const Sparse& a, const Sparse& b) { a * b; });
    both([](const Sparse& a, const Sparse& b) { mul(a, b, Trans); });
    both([](const Sparse& a, const Sparse& b) { add(a, 2.0, b); });
    both([](const Sparse& a, const Sparse& b) { hcat(a, b, true); });
    both([](const Sparse& a, const Sparse& b) { vcat(a, b, true); });
    both([](Sparse a, const Sparse& b) { a.addMat(1.0, b, true); });
    both([](Sparse a, const Sparse& b) { a.multLeft(b, NoTrans, true); });
    both([](Sparse a, const Sparse& b) { a.multLeft(b, Trans, true); });
    both([](Sparse a, const Sparse& b) { a.mulRight(b, true); });
    both([](Sparse a, const Sparse& b) { a.hcat({boost::shared_ptr<Sparse>(new Sparse(b))}, 3); });
    const auto stores = [&](auto f) {
        llsparse<double> s(*U.getptrD());
        EXPECT_EQ(raised([&] { f(s, *R.getptrD()); }, true), "sputil:Symmetry_sparse_matrices_disagree");
    };
    using S = llsparse<double>;
    stores([](S& a, const S& b) { S r; r.llsp_add(1.0, a, b); });
    stores([](S& a, const S& b) { a.llsp_inplaceAdd(1.0, b); });
    stores([](S& a, const S& b) { S r; r.llsp_mulPrivate(a, b); });
    stores([](S& a, const S& b) { S r; r.llsp_multPrivate(a, b, Trans); });
    stores([](S& a, const S& b) { a.llsp_inplaceMulLeftPrivate(b); });
    stores([](S& a, const S& b) { a.llsp_inplaceMulRightPrivate(b); });
    stores([](S& a, const S& b) { S r; r.llsp_hcatPrivate(a, b); });
    stores([](S& a, const S& b) { S r; r.llsp_vcatPrivate(a, b); });
}

TEST(SparseSizes, DisagreeingOperandsAreRefused)
{
    const Sparse A = Sparse().zeros(2, 3, 0, true), B = Sparse().zeros(3, 3, 0, true);
    const auto refused = [](auto f) { EXPECT_EQ(raised(f, true), "sparse:Size_sparse_matrices_disagree"); };
    refused([&] { A + B; });
    refused([&] { A - B; });
    refused([&] { add(A, 1.0, B); });
    refused([&] { A * A; });
    refused([&] { mul(A, A, Trans); });
    refused([&] { Sparse C = A; C.addMat(1.0, B, true); });
    refused([&] { Sparse C = B; C.multLeft(A, Trans, true); });
    refused([&] { Sparse C = A; C.mulRight(A, true); });
}

TEST(SparseSelf, OperationsOfAMatrixWithItselfAreRight)
{
    const Sparse A = randomSparse(9, 9, 30, true, Unsymmetric, 1);
    const Dense d = dense(A);
    EXPECT_TRUE(near(dense(A + A), d + d, 0));
    EXPECT_TRUE(near(dense(A * A), d * d, 1e-15));
    for (bool inPlace : {false, true}) {
        Sparse s = A, l = A, r = A;
        s.setElem(0, 0, d(0, 0)), l.setElem(0, 0, d(0, 0)), r.setElem(0, 0, d(0, 0)); // stores of their own
        s.addMat(2.0, s, inPlace);
        l.multLeft(l, Trans, inPlace);
        r.mulRight(r, inPlace);
        EXPECT_TRUE(near(dense(s), cplx(3.0) * d, 1e-15));
        EXPECT_TRUE(near(dense(l), op(d, Trans) * d, 1e-15));
        EXPECT_TRUE(near(dense(r), d * d, 1e-15));
    }
    Sparse E = Sparse().eye(3);
    E.multLeft(E, Trans, true);
    E.mulRight(E, true);
    EXPECT_TRUE(near(dense(E), dense(Sparse().eye(3)), 0));
}

TEST(SparseTranspose, RequiredQuirkFormFollowsTheSourceAlthoughColumnsComeOutSorted)
{
    Sparse A = randomDominant(12, 50, true, Unsymmetric, 3);
    EXPECT_EQ(transpose(A, Trans).getForm(), FormNone); // ascending all the same
    const Sparse twice = transpose(transpose(A, Trans), Trans);
    A.format(FormSortedDiag, true);
    EXPECT_EQ(transpose(A, Trans).getForm(), FormSorted);
    EXPECT_THAT(rowsOf(twice), testing::ElementsAreArray(rowsOf(A)));
    EXPECT_THAT(valuesOf(twice), testing::ElementsAreArray(valuesOf(A)));
    const Sparse shared = transpose(A, NoTrans);
    EXPECT_EQ(shared.getptrD(), A.getptrD());
}

TEST(SparseThreads, MoreThreadsThanColumnsGiveTheSameBits)
{
    const Sparse A = randomSparse(9000, 3, 14000, true, Unsymmetric, 1), B = randomSparse(9000, 3, 14000, true, Unsymmetric, 2);
    const Sparse C = randomSparse(3, 3, 9, true, Unsymmetric, 3);
    const auto results = [&] {
        Sparse inPlace = A;
        inPlace.addMat(2.0, B, true);
        return std::vector<Sparse>{A + B, A * C, mul(A, C, Trans), transpose(A, Trans), inPlace};
    };
    expectSameBitsForAnyThreads(results);
}

TEST(SparseTranspose, LargeOnesHaveTheSameBitsForAnyNumberOfThreads)
{
    // From ten thousand columns of the result on, threads share the work.
    for (bool real : {true, false}) {
        const Sparse A = randomSparse(12000, 11000, 30000, real, Unsymmetric, 4);
        Array<int, 1> few(1000);
        std::iota(few.begin(), few.end(), 0);
        const Sparse B = randomSparse(11000, 10500, 30000, real, Unsymmetric, 5);
        const auto results = [&] {
            return std::vector<Sparse>{transpose(A, Trans), transpose(A, ConjTrans), mul(A, B, Trans), mul(A, B, ConjTrans)};
        };
        expectSameBitsForAnyThreads(results);
        EXPECT_TRUE(near(dense(subMatrix(transpose(A, ConjTrans), few, few)), op(dense(subMatrix(A, few, few)), ConjTrans), 0));
    }
}

TEST(SparseTranspose, RequiredQuirkOfASymmetricStoreIsTheTransposedSummand)
{
    const Sparse S = randomSparse(6, 6, 12, true, Symmetric, 1);
    const Sparse T = transpose(S, Trans);
    EXPECT_EQ(T.getSymm(), Unsymmetric);
    EXPECT_TRUE(near(dense(T), op(storedDense(S), Trans), 0));
}

TEST(SparseScale, DiagonalsScaleRowsAndColumnsOfEveryLayoutAndType)
{
    for (bool realA : {true, false})
        for (bool realD : {true, false})
            for (Symm_t symm : {Unsymmetric, RowStored}) {
                const Sparse A = randomSparse(5, 7, 20, realA, symm, 1);
                const Matrix<1> r = randomVector(5, realD, 2), c = randomVector(7, realD, 3);
                Dense wanted[4] = {dense(A), dense(A), dense(A), dense(A)};
                for (Index i = 0; i < 5; ++i)
                    for (Index j = 0; j < 7; ++j) {
                        wanted[0](i, j) *= c[j];
                        wanted[1](i, j) /= c[j];
                        wanted[2](i, j) *= r[i];
                        wanted[3](i, j) /= r[i];
                    }
                Sparse got[4] = {A, A, A, A};
                got[0].colscale(c), got[1].colscaleInv(c), got[2].rowscale(r), got[3].rowscaleInv(r);
                for (int k = 0; k < 4; ++k) {
                    EXPECT_TRUE(near(dense(got[k]), wanted[k], 1e-11)) << k;
                    EXPECT_EQ(got[k].isReal(), realA && realD);
                }
                Sparse B = A;
                EXPECT_EQ(raised([&] { B.colscale(r); }, true), "sparse:Size_vector_sparse_matrix_disagree");
                EXPECT_EQ(raised([&] { B.rowscaleInv(c); }), "Size_vector_sparse_matrix_disagree");
            }
}

TEST(SparseScale, InverseByZeroGivesInfinity)
{
    Sparse A = sparseOf(1, 1, {{0, 0, 2.0}});
    A.colscaleInv(Matrix<1>(1, true));
    EXPECT_TRUE(std::isinf(A.getDoubleVal()[0]));
}

TEST(SparseScale, RequiredQuirkZeroEmptiesAlsoOverNan)
{
    for (Symm_t symm : {Unsymmetric, RowStored}) {
        Sparse A = sparseOf(2, 3, {{0, 0, cplx(NAN, 1)}, {1, 2, 3.0}}, false, symm);
        A.scale(0.0);
        EXPECT_TRUE(A.isReal());
        EXPECT_EQ(A.getNnz(), 0u);
        EXPECT_EQ(A.getM(), 2u);
        EXPECT_EQ(A.getN(), 3u);
        EXPECT_EQ(A.getSymm(), Unsymmetric);
    }
}

TEST(SparseScale, NumbersScaleEveryType)
{
    const Sparse A = sparseOf(1, 1, {{0, 0, 2.0}}), Z = sparseOf(1, 1, {{0, 0, cplx(1, INFINITY)}}, false);
    EXPECT_TRUE((A * cplx(3.0)).isReal());
    EXPECT_TRUE(near(dense(cplx(0, 1) * A), {{cplx(0, 2)}}, 0));
    EXPECT_EQ((Z * cplx(2.0)).getDcmplxVal()[0], cplx(2, INFINITY)); // a real factor touches no other part
    EXPECT_TRUE(std::isnan((A * cplx(NAN)).getDoubleVal()[0]));
    EXPECT_TRUE(near(dense(A), {{2}}, 0)); // sources keep their values
}

TEST(SparseScale, LoopsOverValuesHaveTheSameBitsForAnyNumberOfThreads)
{
    const Sparse A = randomSparse(400, 300, 14000, false, Unsymmetric, 1);
    const Matrix<1> r = randomVector(400, false, 2), c = randomVector(300, true, 3);
    const auto scaled = [&] {
        Sparse B = A;
        B.scale(cplx(0.3, 0.7)), B.colscale(c), B.rowscaleInv(r), B.rowscale(r), B.colscaleInv(c), B.conjugate();
        return B;
    };
    const Sparse serial = [&] { const Threads one(1); return scaled(); }();
    for (int threads : {2, 3, 7, 16}) {
        const Threads some(threads);
        EXPECT_TRUE(sameBits(scaled(), serial));
    }
}

// --- Sums of columns that resemble each other --------------------------------------------------------------------

TEST(SparseAlgebra, AColumnEqualToTwoNeighbouringColumnsStrungTogetherIsNoEqualColumn)
{
    // Column 0 of B has the rows of columns 0 and 1 of A, one after the other; and the other way round.
    const Sparse A = sparseOf(4, 2, {{0, 0, 1.0}, {1, 0, 2.0}, {2, 1, 3.0}, {3, 1, 4.0}});
    const Sparse B = sparseOf(4, 2, {{0, 0, 10.0}, {1, 0, 20.0}, {2, 0, 30.0}, {3, 0, 40.0}});
    const Dense sum = {{11, 0}, {22, 0}, {30, 3}, {40, 4}};

    EXPECT_TRUE(near(dense(A + B), sum, 0));
    EXPECT_TRUE(near(dense(B + A), sum, 0));
    EXPECT_TRUE(near(dense(add(A, 1.0, B)), sum, 0));
    Sparse inPlace = A;
    inPlace.addMat(1.0, B, true);
    EXPECT_TRUE(near(dense(inPlace), sum, 0));
}

// --- Cancel -------------------------------------------------------------------------------------------------------

TEST(SparseCancel, ProductsSumsTransposesAndAssemblyHeedTheRunThatTheyAreGiven)
{
    qxutil::RunInfo run;
    const Sparse A = randomSparse(120, 120, 11000, true, Unsymmetric, 1), B = randomSparse(120, 120, 11000, false, Unsymmetric, 2);
    std::vector<Index> rows, cols;
    std::vector<double> vals;
    for (const Entry& e : entries(A))
        rows.push_back(e.row), cols.push_back(e.col), vals.push_back(e.val.real());
    const auto assemble = [&](Sparse& S, const qxutil::RunInfo* watched) {
        S.triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), vals.data(), vals.size(), 120, 120, false, watched);
    };
    const auto cancelled = [](const std::function<void()>& f) {
        try {
            f();
        } catch (const qxbase::CancelException&) {
            return true;
        }
        return false;
    };
    for (int threads : {1, 2, 7}) {
        const Threads some(threads);
        run.cancel(false);
        for (Trans_t trans : allTrans)
            EXPECT_TRUE(sameBits(mul(A, B, trans, &run), mul(A, B, trans))); // pieces change nothing
        EXPECT_TRUE(sameBits(add(A, 2.0, B, &run), add(A, 2.0, B)));
        for (Trans_t trans : {Trans, ConjTrans})
            EXPECT_TRUE(sameBits(transpose(B, trans, &run), transpose(B, trans)));
        Sparse watched, plain;
        assemble(watched, &run);
        assemble(plain, nullptr);
        EXPECT_TRUE(sameBits(watched, plain));

        run.cancel();
        for (Trans_t trans : allTrans)
            EXPECT_TRUE(cancelled([&] { mul(A, B, trans, &run); }));
        EXPECT_TRUE(cancelled([&] { add(A, 2.0, B, &run); }));
        EXPECT_TRUE(cancelled([&] { add(A, cplx(0.0, 1.0), A, &run); }));
        for (Trans_t trans : {Trans, ConjTrans})
            EXPECT_TRUE(cancelled([&] { transpose(A, trans, &run); }));
        const Sparse before = watched;
        EXPECT_TRUE(cancelled([&] { assemble(watched, &run); }));
        EXPECT_EQ(watched.getptrD(), before.getptrD());
        EXPECT_EQ((A * B).getM(), 120u); // nobody cancels these
    }
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Elements, formats, selections and shapes of a store.

#include "sparse_testing.hpp"

#include "support/alloc_fault.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace qxtest;
using testing::ElementsAre;
using Store = llsparse<double>;

namespace {

std::vector<Index> rowsOf(const Store& s) { return {s.row, s.row + s.nnz()}; }
std::vector<double> valuesOf(const Store& s) { return {s.val, s.val + s.nnz()}; }
std::vector<Index> offsetsOf(const Store& s) { return {s.colPtr, s.colPtr + s.n + 1}; }

/// One column with the given rows; values number the entries.
Store column(Index m, const std::vector<Index>& rows)
{
    Store s(m, 1, rows.size());
    for (Index k = 0; k < rows.size(); ++k) {
        s.row[k] = rows[k];
        s.val[k] = double(k + 1);
    }
    s.colPtr[1] = rows.size();
    s.form = FormNone;
    return s;
}

} // namespace

// --- setElem -------------------------------------------------------------------------------------------------------

TEST(SetElem, RequiredQuirkZeroIsStoredOnlyWhereTheMatrixGrows)
{
    Store s(2, 2, 0);
    s.setElem(0, 0, 0.0);
    EXPECT_EQ(s.nnz(), 0u); // absent, inside

    s.setElem(0, 2, 0.0); // a column more
    EXPECT_EQ(s.n, 3u);
    EXPECT_EQ(s.nnz(), 1u);
    s.setElem(2, 0, 0.0); // a row more
    EXPECT_EQ(s.m, 3u);
    EXPECT_EQ(s.nnz(), 2u);
    EXPECT_THAT(offsetsOf(s), ElementsAre(0, 1, 1, 2));
    s.setElem(2, 0, 0.0); // present: overwritten
    EXPECT_EQ(s.nnz(), 2u);
}

TEST(SetElem, ColumnFarBeyondTheEndLeavesEmptyColumnsBetween)
{
    Store s(2, 2, 0);
    s.setElem(1, 7, 3.0);
    EXPECT_EQ(s.n, 8u);
    EXPECT_THAT(offsetsOf(s), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 1));
}

TEST(SetElem, RequiredQuirkEveryCallTakesANewVersionAndLeavesFormAndDiagonalAlone)
{
    Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {1, 1, 2.0}});
    A.format(FormSortedDiag, true);
    Store& s = *A.getptrD();
    const Index* diag = s.diag;
    for (auto [i, j, v] : {std::tuple(0ul, 0ul, 5.0), std::tuple(1ul, 0ul, 0.0), std::tuple(1ul, 0ul, 1.0), std::tuple(0ul, 5ul, 1.0)}) {
        const auto before = s.rowColptrVersion;
        s.setElem(i, j, v);
        EXPECT_GT(s.rowColptrVersion, before);
        EXPECT_EQ(s.form, FormSortedDiag);
        EXPECT_EQ(s.diag, diag);
    }
}

TEST(SetElem, KeepsTheOrderOfASortedColumn)
{
    Store sorted(9, 1, 0);
    for (Index i : {4ul, 8ul, 1ul, 6ul, 0ul, 7ul, 2ul})
        sorted.setElem(i, 0, double(i + 1));
    EXPECT_THAT(rowsOf(sorted), ElementsAre(0, 1, 2, 4, 6, 7, 8));
    EXPECT_THAT(valuesOf(sorted), ElementsAre(1, 2, 3, 5, 7, 8, 9));
}

TEST(SetElem, AppendsToTheEndOfAnUnsortedColumn)
{
    Store s = column(9, {7, 2, 5, 1, 8, 0});
    s.setElem(3, 0, 9.0);
    s.setElem(5, 0, 4.0);
    EXPECT_THAT(rowsOf(s), ElementsAre(7, 2, 5, 1, 8, 0, 3));
    EXPECT_THAT(valuesOf(s), ElementsAre(1, 2, 4, 4, 5, 6, 9));
}

TEST(SetElem, NanIsNotZero)
{
    Store s(1, 1, 0);
    s.setElem(0, 0, NAN);
    EXPECT_EQ(s.nnz(), 1u);
}

TEST(SetElem, SwapsTheIndicesOfARowStore)
{
    Sparse A = convertToRow(sparseOf(2, 3, {{0, 2, 1.0}}));
    A.setElem(1, 0, 4.0);
    A.setElem(2, 3, 5.0); // grows both ways
    EXPECT_TRUE(near(dense(A), {{0, 0, 1, 0}, {4, 0, 0, 0}, {0, 0, 0, 5}}, 0));
}

TEST(SetElem, RequiredQuirkAFullStoreGrowsByAThirtySecondAndOne)
{
    for (auto [before, after] : {std::pair(0ul, 1ul), std::pair(31ul, 32ul), std::pair(32ul, 34ul), std::pair(64ul, 67ul)}) {
        std::vector<Index> rows(before);
        std::iota(rows.begin(), rows.end(), 0ul);
        Store s = column(100, rows);
        s.setElem(99, 0, 1.0);
        EXPECT_EQ(s.nzmax, after);
        EXPECT_EQ(s.nnz(), before + 1);
        EXPECT_EQ(s.val[before], 1.0);
    }
}

TEST(SetElem, RandomInsertionsAgreeWithADenseMatrix)
{
    std::mt19937 random(3);
    Sparse A = Sparse().zeros(5, 5, 0, true);
    Dense D(9, 9);
    for (int k = 0; k < 400; ++k) {
        const Index i = random() % 9, j = random() % 9;
        const double v = double(random() % 5);
        A.setElem(i, j, v);
        D(i, j) = v;
    }
    EXPECT_TRUE(near(dense(A), D, 0));
    EXPECT_EQ(A.getForm(), FormSorted);
    for (Index j = 0; j < 9; ++j)
        EXPECT_TRUE(std::is_sorted(A.getRow() + A.getColPtr()[j], A.getRow() + A.getColPtr()[j + 1]));
}

// --- format --------------------------------------------------------------------------------------------------------

TEST(FormatSorted, SortsColumnsOfEveryLengthAndPattern)
{
    for (Index count : {2ul, 6ul, 7ul, 8ul, 9ul, 100ul, 1000ul, 10000ul}) {
        std::vector<Index> ascending(count);
        std::iota(ascending.begin(), ascending.end(), 0ul);
        std::vector<std::vector<Index>> patterns = {ascending, ascending, ascending, ascending};
        std::reverse(patterns[1].begin(), patterns[1].end());
        std::shuffle(patterns[2].begin(), patterns[2].end(), std::mt19937(1));
        for (Index k = 0; k < count; ++k) // organ pipe: even rows up, odd rows down
            patterns[3][k] = k < (count + 1) / 2 ? 2 * k : 2 * (count - 1 - k) + 1;
        for (std::vector<Index>& rows : patterns) {
            Store s = column(count, rows);
            s.format(FormSorted, true);
            ASSERT_EQ(rowsOf(s), ascending);
            for (Index p = 0; p < count; ++p) // the value still belongs to its row
                ASSERT_EQ(rows[Index(s.val[p]) - 1], s.row[p]);
            EXPECT_EQ(s.form, FormSorted);
        }
    }
}

TEST(FormatSorted, RequiredQuirkIsSetForColumnsWithDuplicatesToo)
{
    Store s = column(5, {3, 1, 3, 1});
    s.format(FormSorted, true);
    EXPECT_THAT(rowsOf(s), ElementsAre(1, 1, 3, 3));
    EXPECT_THAT(valuesOf(s), ElementsAre(2, 4, 1, 3)); // insertion sort: equal rows keep their order
    EXPECT_EQ(s.form, FormSorted);
}

TEST(FormatSorted, RequiredQuirkEqualRowsEndInTheOrderOfThePublishedSteps)
{
    // Nine equal rows, traced by hand. Swap 1 with 4: 1 5 3 4 2 6 7 8 9; the median step finds nothing to do. Both walks
    // stop at every element: swaps (2,7), (3,6), (4,5) give 1 5 8 7 6 2 4 3 9 and end with i = 5, j = 4. The pivot goes to
    // place 4: 1 6 8 7 5 2 4 3 9. The two ranges of four are left as they are by the insertion sort.
    Store s = column(5, {2, 2, 2, 2, 2, 2, 2, 2, 2});
    s.format(FormSorted, true);
    EXPECT_THAT(valuesOf(s), ElementsAre(1, 6, 8, 7, 5, 2, 4, 3, 9));
}

TEST(FormatSorted, ManyEqualRowsAreSortedInBoundedTime)
{
    std::vector<Index> rows(200000);
    for (Index k = 0; k < rows.size(); ++k)
        rows[k] = (k * 7919) % 3;
    Store s = column(3, rows);
    s.format(FormSorted, true);
    EXPECT_TRUE(std::is_sorted(s.row, s.row + s.nnz()));
}

TEST(FormatSorted, LeavesSortedColumnsUntouchedButTakesAVersion)
{
    Store s = column(5, {1, 3, 4});
    const auto before = s.rowColptrVersion;
    s.format(FormSorted, true);
    EXPECT_THAT(valuesOf(s), ElementsAre(1, 2, 3));
    EXPECT_GT(s.rowColptrVersion, before);
    const auto sorted = s.rowColptrVersion;
    s.format(FormSorted, true); // holds already
    EXPECT_EQ(s.rowColptrVersion, sorted);
}

TEST(FormatDiag, PartitionsUnsortedColumnsAroundTheDiagonal)
{
    std::mt19937 random(5);
    for (int repetition = 0; repetition < 300; ++repetition) {
        const Index n = 12, j = random() % n;
        std::vector<Index> rows(n);
        std::iota(rows.begin(), rows.end(), 0ul);
        std::shuffle(rows.begin(), rows.end(), random);
        rows.resize(1 + random() % n);
        Store s(n, n, rows.size());
        for (Index k = 0; k < rows.size(); ++k) {
            s.row[k] = rows[k];
            s.val[k] = double(rows[k] + 1);
        }
        std::fill(s.colPtr + j + 1, s.colPtr + n + 1, rows.size());
        s.form = FormNone;

        s.format(FormDiag, false);

        const bool present = std::find(rows.begin(), rows.end(), j) != rows.end();
        ASSERT_EQ(s.diag[j], present ? s.diag[j] : rows.size());
        if (present) {
            ASSERT_EQ(s.row[s.diag[j]], j);
            for (Index p = 0; p < rows.size(); ++p)
                ASSERT_EQ(p < s.diag[j], s.row[p] < j) << "position " << p;
        }
        for (Index p = 0; p < rows.size(); ++p)
            ASSERT_EQ(s.val[p], double(s.row[p] + 1));
        for (Index other = 0; other < n; ++other)
            if (other != j) {
                ASSERT_EQ(s.diag[other], rows.size());
            }
    }
}

TEST(FormatDiag, FindsTheDiagonalOfSortedColumns)
{
    Sparse A = sparseOf(3, 3, {{2, 0, 3.0}, {0, 0, 1.0}, {0, 1, 1.0}, {2, 2, 5.0}, {1, 2, 4.0}});
    A.format(FormSortedDiag, false);
    EXPECT_EQ(A.getForm(), FormSortedDiag);
    EXPECT_THAT(std::vector<Index>(A.getDiag(), A.getDiag() + 3), ElementsAre(0, 5, 4));
}

TEST(FormatDiag, RequiredQuirkZerosOfEitherSignAreMissingAndNanIsPresent)
{
    for (Form_t form : {FormDiag, FormSortedDiag})
        for (double v : {0.0, -0.0, double(NAN)}) {
            SCOPED_TRACE(testing::Message() << "form = " << form << ", v = " << v);
            Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {1, 1, v}, {0, 1, 2.0}});
            const std::string id = raised([&] { A.format(form, true); }, true);
            EXPECT_EQ(id, std::isnan(v) ? "" : "sputil:Matrix_has_zero_on_diagonal");
            EXPECT_EQ((A.getForm() & FormDiag) != 0, std::isnan(v));
        }
}

TEST(FormatDiag, RequiredQuirkAFailureLeavesEarlierColumnsRearranged)
{
    Sparse A = sparseOf(3, 3, {{2, 0, 3.0}, {0, 0, 1.0}, {2, 1, 1.0}});
    EXPECT_EQ(raised([&] { A.format(FormDiag, true); }), "Matrix_has_zero_on_diagonal");
    EXPECT_EQ(A.getRow()[0], 0u); // the diagonal entry moved to the front of column 0
    EXPECT_EQ(A.getForm(), FormNone);
    EXPECT_EQ(A.getDiag(), nullptr);
    A.format(FormDiag, false);
    EXPECT_EQ(A.getDiag()[1], 3u);
}

TEST(FormatDiag, RequiredQuirkSortingKeepsTheBitAndTheDiagonalStaysRight)
{
    Sparse A = randomDominant(20, 100, true, Unsymmetric, 8);
    A.format(FormDiag, true);
    A.format(FormSorted, true);
    EXPECT_EQ(A.getForm(), FormSortedDiag);
    for (Index j = 0; j < 20; ++j)
        EXPECT_EQ(A.getRow()[A.getDiag()[j]], j);
}

// --- selections and shapes -----------------------------------------------------------------------------------------

namespace {

/// keep(rows) of a dense matrix; a repeated index counts at its last place only.
Dense keepRows(const Dense& d, const std::vector<Index>& keep)
{
    Dense r(keep.size(), d.n);
    for (Index k = 0; k < keep.size(); ++k)
        if (std::find(keep.begin() + long(k) + 1, keep.end(), keep[k]) == keep.end())
            for (Index j = 0; j < d.n; ++j)
                r(k, j) = d(keep[k], j);
    return r;
}

} // namespace

TEST(RemoveRows, RequiredQuirkKeepsTheListedIndicesInTheirOrder)
{
    for (Symm_t symm : {Unsymmetric, RowStored})
        for (const std::vector<Index>& keep : {std::vector<Index>{0, 3, 4, 8}, {8, 4, 3, 0}, {}, {5, 1, 7}}) {
            Sparse A = randomSparse(9, 7, 30, true, symm, 4), B = randomSparse(7, 9, 30, true, symm, 4);
            A.format(FormSorted, false);
            B.format(FormSorted, false);
            const Dense a = dense(A), b = dense(B);
            A.getptrD()->llsp_removeRows(keep.data(), keep.size());
            B.getptrD()->llsp_removeCols(keep.data(), keep.size());
            EXPECT_TRUE(near(dense(A), keepRows(a, keep), 0)) << name(symm);
            EXPECT_TRUE(near(dense(B), op(keepRows(op(b, Trans), keep), Trans), 0)) << name(symm);
            for (const Sparse& M : {A, B})
                if (M.getForm() & FormSorted) {
                    for (Index j = 0; j < (symm == RowStored ? M.getM() : M.getN()); ++j)
                        EXPECT_TRUE(std::is_sorted(M.getRow() + M.getColPtr()[j], M.getRow() + M.getColPtr()[j + 1]));
                }
        }
}

TEST(RemoveRows, ARepeatedIndexKeepsItsLastPlace)
{
    Sparse A = randomSparse(5, 5, 15, true, Unsymmetric, 4);
    const Dense a = dense(A);
    const std::vector<Index> keep = {2, 0, 2};
    A.getptrD()->llsp_removeRows(keep.data(), 3);
    EXPECT_TRUE(near(dense(A), keepRows(a, keep), 0));
}

TEST(RemoveRows, ClearsTheDiagonalForm)
{
    Sparse A = randomDominant(5, 10, true, Unsymmetric, 4);
    A.format(FormSortedDiag, true);
    const Index keep[] = {1, 2};
    A.getptrD()->llsp_removeCols(keep, 2);
    EXPECT_EQ(A.getForm(), FormSorted);
    EXPECT_EQ(A.getDiag(), nullptr);
}

TEST(ZeroCols, EmptiesMaskedLogicalColumns)
{
    const int mask[] = {0, 1, 0, 2};
    for (Symm_t symm : allLayouts) {
        Sparse A = randomSparse(4, 4, 12, symm != Hermitian, symm, 4);
        Dense wanted = storedDense(A);
        for (Index i = 0; i < 4; ++i)
            wanted(i, 1) = wanted(i, 3) = 0.0;
        A.zeroCols(mask);
        EXPECT_TRUE(near(storedDense(A), wanted, 0)) << name(symm);
        EXPECT_EQ(A.getSymm(), symm); // of a symmetric store the summand is masked
    }
}

TEST(Reshape, ThereAndBackIsTheIdentity)
{
    for (Symm_t symm : {Unsymmetric, RowStored})
        for (bool sorted : {true, false}) {
            SCOPED_TRACE(testing::Message() << "symm = " << symm << ", sorted = " << sorted);
            Sparse A = randomSparse(4, 6, 15, true, symm, 4);
            if (sorted)
                A.format(FormSorted, false);
            const Dense before = dense(A);
            A.reshape(8, 3);
            EXPECT_EQ(A.getM(), 8u);
            EXPECT_EQ(A.getSymm(), symm);
            const Dense between = dense(A);
            for (Index k = 0; k < 24; ++k)
                EXPECT_EQ(between.v[k], before.v[k]); // column-major index kept
            EXPECT_EQ((A.getForm() & FormSorted) != 0, sorted && symm == Unsymmetric);
            if (sorted && symm == Unsymmetric) {
                for (Index j = 0; j < 3; ++j)
                    EXPECT_TRUE(std::is_sorted(A.getRow() + A.getColPtr()[j], A.getRow() + A.getColPtr()[j + 1]));
            }
            A.reshape(4, 6);
            EXPECT_TRUE(near(dense(A), before, 0));
        }
}

TEST(Reshape, SameSizeChangesNothingAndTooSmallIsRefused)
{
    Sparse A = sparseOf(2, 3, {{1, 2, 4.0}});
    const auto version = A.getRowColptrVersion();
    A.reshape(2, 3);
    EXPECT_EQ(A.getRowColptrVersion(), version);
    EXPECT_EQ(raised([&] { A.reshape(5, 1); }, true), "sputil:Internal_error_sparse"); // index 5 does not fit
    EXPECT_EQ(raised([&] { A.reshape(0, 3); }), "Internal_error_sparse");
    EXPECT_EQ(raised([&] { A.reshape(-1, -6); }), "Internal_error_sparse");
    EXPECT_TRUE(near(dense(A), {{0, 0, 0}, {0, 0, 4}}, 0));
    Sparse S = randomSparse(2, 2, 3, true, Symmetric, 6);
    S.reshape(4, 1);
    EXPECT_EQ(S.getSymm(), Unsymmetric);
}

TEST(Reshape, RowStoreLosesFormSorted)
{
    Sparse A = randomSparse(6, 4, 20, true, RowStored, 6);
    A.format(FormSorted, false);
    A.reshape(4, 6);
    EXPECT_EQ(A.getForm(), FormNone); // a row store is not in the order of the column-major index
}

// --- symmetry ------------------------------------------------------------------------------------------------------

TEST(IsSymmetric, ToleranceCountsEntryAndDiagonal)
{
    // a = 2, mirror 2 + 2^-2, diagonal 1 and 1: (1/4)^2 against tol^2 (4 + 1): equality passes.
    const double tol = 0.25 / std::sqrt(5.0);
    const auto matrix = [](double mirror) {
        return sparseOf(2, 2, {{0, 0, 1.0}, {1, 1, 1.0}, {1, 0, 2.0}, {0, 1, mirror}});
    };
    EXPECT_TRUE(matrix(2.0).isSymmetric(0.0, Trans)); // equality with tolerance 0
    EXPECT_TRUE(matrix(2.25).isSymmetric(tol * (1 + 1e-15), Trans));
    EXPECT_FALSE(matrix(2.26).isSymmetric(tol, Trans));
}

TEST(IsSymmetric, MissingMirrorIsJudgedByTheDiagonal)
{
    EXPECT_FALSE(sparseOf(2, 2, {{1, 0, 1e-3}}).isSymmetric(0.5, Trans)); // zero diagonal
    EXPECT_TRUE(sparseOf(2, 2, {{1, 0, 1e-3}, {0, 0, 1.0}, {1, 1, 1.0}}).isSymmetric(1e-3, Trans));
    EXPECT_FALSE(sparseOf(2, 2, {{1, 0, 1e-3}, {0, 0, 1.0}, {1, 1, 1.0}}).isSymmetric(0.9e-3, Trans));
}

TEST(IsSymmetric, RequiredQuirkRowStoreAnswersFalse)
{
    const Sparse A = Sparse().eye(3);
    EXPECT_TRUE(A.isSymmetric(0.0, Trans));
    EXPECT_FALSE(convertToRow(A).isSymmetric(0.0, Trans));
    Sparse S = A;
    S.setSymm(Symmetric);
    EXPECT_TRUE(S.isSymmetric(0.0, Trans));
    EXPECT_FALSE(sparseOf(2, 3, {{0, 0, 1.0}}).isSymmetric(1.0, Trans)); // not square
}

TEST(IsSymmetric, ComplexStoresAreJudgedPlainOrConjugated)
{
    const Sparse symmetric = sparseOf(2, 2, {{1, 0, cplx(1, 2)}, {0, 1, cplx(1, 2)}}, false);
    const Sparse hermitian = sparseOf(2, 2, {{1, 0, cplx(1, 2)}, {0, 1, cplx(1, -2)}}, false);
    EXPECT_TRUE(symmetric.isSymmetric(0.0, Trans));
    EXPECT_FALSE(symmetric.isSymmetric(0.0, ConjTrans));
    EXPECT_TRUE(hermitian.isSymmetric(0.0, ConjTrans));
    EXPECT_FALSE(hermitian.isSymmetric(0.0, Trans));
}

TEST(IsSymmetric, EveryFormAndThreadCountAnswersAlike)
{
    Sparse A = randomDominant(200, 9000, true, Unsymmetric, 4);
    Sparse S = A + transpose(A, Trans);
    ASSERT_GE(S.getNnz(), qxbase::parallelThreshold);
    for (int threads : {1, 2, 3, 7, 16}) {
        const Threads some(threads);
        for (Form_t form : {FormNone, FormDiag, FormSorted, FormSortedDiag}) {
            SCOPED_TRACE(testing::Message() << "threads = " << threads << ", form = " << form);
            Sparse M = S, N = A;
            M.setElem(0, 0, M.getDoubleVal()[0]); // a store of its own
            M.format(form, false);
            EXPECT_TRUE(S.isSymmetric(1e-12, Trans));
            EXPECT_FALSE(N.isSymmetric(1e-12, Trans));
        }
    }
}

TEST(IsSymmetric, OneColumnCanBeAskedFor)
{
    const Sparse A = sparseOf(2, 2, {{1, 0, 2.0}, {0, 1, 3.0}, {0, 0, 1.0}, {1, 1, 1.0}});
    const double d[] = {1.0, 1.0};
    EXPECT_FALSE(A.getptrD()->isSymmetric(0.1, d, 0));
    EXPECT_TRUE(A.getptrD()->isSymmetric(1.0, d, 0));
}

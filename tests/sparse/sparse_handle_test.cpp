// SPDX-License-Identifier: LicenseRef-qxkernel
// The handle: sharing, inspection, members that drop and move entries, conversions, text form.

#include "parallelsparse.hpp"
#include "sparse_testing.hpp"

#include <cmath>
#include <limits>
#include <sstream>

using namespace qxtest;
using testing::ElementsAre;

namespace {

std::vector<Index> rowsOf(const Sparse& A) { return {A.getRow(), A.getRow() + A.getNnz()}; }
std::vector<double> valuesOf(const Sparse& A) { return {A.getDoubleVal(), A.getDoubleVal() + A.getNnz()}; }

/// The source of a copy is as it was after change(copy).
void expectSourceUnchanged(const Sparse& A, const std::function<void(Sparse&)>& change)
{
    const Sparse wanted(boost::shared_ptr<llsparse<double>>(new llsparse<double>(*A.getptrD())));
    const auto version = A.getRowColptrVersion();
    Sparse copy = A;
    change(copy);
    EXPECT_TRUE(sameBits(A, wanted));
    EXPECT_EQ(A.getRowColptrVersion(), version);
    EXPECT_NE(copy.getptrD(), A.getptrD());
}

} // namespace

TEST(SparseSharing, WritingACopyLeavesTheSourceAsItIs)
{
    const Sparse A = randomSparse(6, 6, 20, true, Symmetric, 1);
    expectSourceUnchanged(A, [](Sparse& c) { c.setElem(1, 1, 5.0); });
    expectSourceUnchanged(A, [](Sparse& c) { c.setElem(1, 1, cplx(5.0, 1.0)); });
    expectSourceUnchanged(A, [](Sparse& c) { c.setSymm(RowStored); });
    expectSourceUnchanged(A, [](Sparse& c) { c.setForm(FormSorted); });
    expectSourceUnchanged(A, [](Sparse& c) { c.reshape(4, 9); });
    expectSourceUnchanged(A, [](Sparse& c) { c.removeDuplicates(); });
    expectSourceUnchanged(A, [](Sparse& c) { c.removeZeroCols(); });
    expectSourceUnchanged(A, [](Sparse& c) { c.uniqueSymmetric(); });
    expectSourceUnchanged(A, [](Sparse& c) { c.makeSymmetric(Trans); });
    expectSourceUnchanged(A, [](Sparse& c) { c.scale(2.0); });
    expectSourceUnchanged(A, [](Sparse& c) { c.sign(); });
    expectSourceUnchanged(A, [&](Sparse& c) { c.addMat(1.0, A, true); });
    expectSourceUnchanged(A, [&](Sparse& c) { c.multLeft(A, Trans, true); });
    expectSourceUnchanged(A, [&](Sparse& c) { c.mulRight(A, true); });
    expectSourceUnchanged(A, [](Sparse& c) { const int mask[6] = {1}; c.zeroCols(mask); });
    expectSourceUnchanged(A, [](Sparse& c) { c.clear(); });
    Sparse shared = transpose(A, NoTrans);
    shared.setElem(0, 0, 9.0);
    EXPECT_NE(shared.getptrD(), A.getptrD());
}

TEST(SparseSharing, FormatWorksOnTheSharedStore)
{
    const Sparse A = randomSparse(6, 6, 20, true, Unsymmetric, 1);
    Sparse copy = A;
    copy.format(FormSorted, false);
    EXPECT_EQ(A.getForm(), FormSorted);
    EXPECT_EQ(copy.getptrD(), A.getptrD());
}

TEST(SparseSharing, PromotionHandsOverOrCopiesTheIndexArrays)
{
    Sparse alone = randomSparse(6, 6, 20, true, Unsymmetric, 1), shared = randomSparse(6, 6, 20, true, Unsymmetric, 1);
    const Sparse keeper = shared;
    const Dense before = dense(alone);
    const Index* rows = alone.getRow();
    alone.real2complex();
    shared.real2complex();
    EXPECT_EQ(alone.getRow(), rows);
    EXPECT_NE(shared.getRow(), keeper.getRow());
    EXPECT_TRUE(near(dense(alone), before, 0));
    EXPECT_TRUE(near(dense(keeper), before, 0));
    EXPECT_LT(alone.getRowColptrVersion(), 0);
    alone.real2complex(); // already
    EXPECT_EQ(alone.getRow(), rows);
}

TEST(SparseSharing, ReallocateTrimsBelowTheFractionOnly)
{
    Sparse A = Sparse().zeros(20, 1, 20, true);
    for (Index i = 0; i < 14; ++i)
        A.setElem(i, 0, 1.0);
    EXPECT_FALSE(A.reallocate(0.7)); // exactly the fraction
    EXPECT_EQ(A.getNzmax(), 20u);
    EXPECT_TRUE(A.reallocate(0.71));
    EXPECT_EQ(A.getNzmax(), 14u);
}

TEST(SparseSharing, ClearAndDefaultAreRealAndEmpty)
{
    Sparse A = randomSparse(6, 6, 20, false, Unsymmetric, 1);
    A.clear();
    EXPECT_TRUE(A.isReal());
    EXPECT_EQ(A.getM(), 0u);
    EXPECT_EQ(Sparse().getN(), 0u);
    EXPECT_EQ(Sparse(boost::shared_ptr<llsparse<cplx>>()).getNnz(), 0u);
}

TEST(SparseSetElem, RequiredQuirkMakesASymmetricMatrixUnsymmetricAndKeepsARowStore)
{
    Sparse S = Sparse().eye(2), R = convertToRow(S);
    S.setSymm(Symmetric);
    S.setElem(0, 1, 2.0);
    R.setElem(0, 1, 2.0);
    EXPECT_EQ(S.getSymm(), Unsymmetric);
    EXPECT_EQ(R.getSymm(), RowStored);
    EXPECT_TRUE(near(dense(R), {{1, 2}, {0, 1}}, 0));
}

TEST(SparseSetElem, RequiredQuirkKeepsTheHelpersOfProducts)
{
    const Threads two(2);
    Sparse A = randomSparse(300, 300, 12000, true, Unsymmetric, 3);
    A.format(FormSorted, false);
    A * randomVector(300, true, 1);
    const auto helper = A.getParallelSparse();
    ASSERT_TRUE(helper->getData(0).isBlocked());
    A.setElem(0, 0, 5.0);
    EXPECT_TRUE(helper->getData(0).isBlocked()); // stale, but not cleared
    A.removeDuplicates();
    EXPECT_FALSE(helper->getData(0).isBlocked());
}

TEST(SparseSetElem, ComplexValueMakesTheMatrixComplexForGood)
{
    Sparse A = Sparse().eye(2);
    A.setElem(0, 0, cplx(0, 1));
    EXPECT_FALSE(A.isReal());
    A.setElem(0, 0, 3.0);
    EXPECT_FALSE(A.isReal());
    A.setElem(1, 0, cplx(2.0, NAN));
    EXPECT_TRUE(std::isnan(entries(A)[1].val.imag()));
}

TEST(SparseInspect, SetSymmTakesHermitianAsSymmetricOnRealStores)
{
    Sparse A = Sparse().eye(2), Z = A;
    Z.real2complex();
    A.setSymm(Hermitian);
    Z.setSymm(Hermitian);
    EXPECT_EQ(A.getSymm(), Symmetric);
    EXPECT_EQ(Z.getSymm(), Hermitian);
    Sparse R = sparseOf(2, 3, {});
    R.setSymm(RowStored);
    EXPECT_EQ(R.getM(), 3u);
    EXPECT_EQ(R.getN(), 2u);
}

TEST(SparseInspect, SimpleMeansASelection)
{
    EXPECT_TRUE(Sparse().eye(3).isSimple());
    EXPECT_TRUE(Sparse().eye(3, 2).isSimple());
    EXPECT_FALSE(Sparse().eye(2, 3).isSimple()); // an empty column
    EXPECT_FALSE(sparseOf(1, 1, {{0, 0, 1.0 + 2.3e-16}}).isSimple());
    EXPECT_FALSE(sparseOf(2, 2, {{1, 0, 1.0}, {0, 1, 1.0}}).isSimple());
    EXPECT_FALSE(sparseOf(2, 1, {{0, 0, 1.0}, {1, 0, 1.0}}).isSimple());
    Sparse Z = Sparse().eye(3);
    Z.real2complex();
    EXPECT_FALSE(Z.isSimple());
}

TEST(SparseInspect, RequiredQuirkEqualIsStrict)
{
    Sparse A = randomSparse(6, 6, 20, true, Unsymmetric, 1);
    EXPECT_FALSE(A.isEqual(A, 0.0, NoTrans));
    EXPECT_TRUE(A.isEqual(A, 1e-16, NoTrans));
    EXPECT_TRUE(Sparse().isEqual(Sparse(), 0.0, NoTrans)); // nothing to differ
    Sparse B = A;
    B.setElem(0, 0, 0.5);
    EXPECT_FALSE(A.isEqual(B, 1e-3, NoTrans));
    Sparse sorted = A;
    sorted.setElem(rowsOf(A)[0], 0, A.getDoubleVal()[0]); // a store of its own
    if (sorted.getNnz() == A.getNnz()) {
        sorted.format(FormSorted, false);
        EXPECT_TRUE(sorted.isEqual(A, 1e-16, NoTrans)); // unsorted: looked up
    }
    Sparse N = sparseOf(1, 1, {{0, 0, NAN}});
    EXPECT_FALSE(N.isEqual(N, 1.0, NoTrans));
    // (a - b)^2 = 1 against tol^2 (1 + 4): equality fails.
    const Sparse one = sparseOf(1, 1, {{0, 0, 1.0}}), two = sparseOf(1, 1, {{0, 0, 2.0}});
    EXPECT_TRUE(one.isEqual(two, 0.4473, NoTrans));
    EXPECT_FALSE(one.isEqual(two, 0.4472, NoTrans));
    const Sparse z = sparseOf(1, 1, {{0, 0, cplx(1, 2)}}, false), w = sparseOf(1, 1, {{0, 0, cplx(1, -2)}}, false);
    EXPECT_TRUE(z.isEqual(w, 1e-9, ConjTrans));
    EXPECT_FALSE(z.isEqual(w, 1e-9, NoTrans));
    EXPECT_FALSE(one.isEqual(z, 9.0, NoTrans));
}

TEST(SparseInspect, RequiredQuirkPosDiagNeedsASortedSummandExactly)
{
    const auto matrix = [](double d) {
        Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {1, 0, 3.0}, {1, 1, d}});
        A.setSymm(Symmetric);
        A.format(FormSorted, false);
        return A;
    };
    EXPECT_TRUE(matrix(2.0).posDiag());
    EXPECT_FALSE(matrix(0.0).posDiag());
    EXPECT_FALSE(matrix(-1.0).posDiag());
    EXPECT_FALSE(matrix(NAN).posDiag());
    Sparse A = matrix(2.0);
    A.format(FormDiag, false);
    EXPECT_FALSE(A.posDiag()); // form 3
    Sparse U = Sparse().eye(2);
    EXPECT_FALSE(U.posDiag());
    Sparse upper = sparseOf(2, 2, {{0, 0, 1.0}, {0, 1, 3.0}, {1, 1, 2.0}});
    upper.setSymm(Symmetric);
    upper.format(FormSorted, false);
    EXPECT_FALSE(upper.posDiag());
}

TEST(SparseInspect, IndexHelpersFollowLogicalRowsAndColumns)
{
    for (Symm_t symm : {Unsymmetric, RowStored}) {
        const Sparse A = sparseOf(2, 3, {{0, 0, 1.0}, {1, 0, -2.0}, {1, 2, 0.0}}, true, symm);
        int mask[3] = {7, 7, 7};
        EXPECT_EQ(A.nonZeros(1, mask), 2u);
        EXPECT_THAT(mask, ElementsAre(1, 0, 1));
        std::vector<std::pair<int, int>> pairs;
        A.getVectorPair(pairs);
        EXPECT_THAT(pairs, ElementsAre(std::pair(0, 0), std::pair(0, -2), std::pair(2, -2))); // zero counts as negative
    }
    const Sparse Z = sparseOf(1, 2, {{0, 1, cplx(3, 4)}}, false);
    double re[1];
    Z.getReal(re);
    EXPECT_EQ(re[0], 3.0);
    std::vector<std::pair<int, int>> pairs;
    EXPECT_EQ(raised([&] { Z.getVectorPair(pairs); }), "Internal_error_sparse");
}

TEST(SparseInspect, IntCopiesAreRefusedBeyond32Bits)
{
    const Sparse A = sparseOf(2, 2, {{1, 0, 1.0}, {0, 1, 1.0}});
    int offsets[3], rows[2];
    std::vector<int*> out = {offsets, rows};
    A.getIdx(out);
    EXPECT_THAT(offsets, ElementsAre(0, 1, 2));
    EXPECT_THAT(rows, ElementsAre(1, 0));
    const boost::shared_ptr<llsparse<double>> huge(new llsparse<double>(*A.getptrD()));
    huge->colPtr[2] = 1ul << 31; // only claims its entries
    EXPECT_EQ(raised([&] { Sparse(huge).getIdx(out); }, true), "sparse:Matrix_too_large_for_JNI_interface");
    huge->colPtr[2] = 2;
    huge->m = 1ul << 31;
    EXPECT_EQ(raised([&] { Sparse(huge).getIdx(out); }), "Matrix_too_large_for_JNI_interface");
}

// --- Members that drop and move entries ----------------------------------------------------------------------------

TEST(SparseTruncate, DropsZerosOrWhatIsNotAboveTheLimit)
{
    const auto matrix = [] {
        return sparseOf(4, 2, {{0, 0, 10.0}, {1, 0, 1.0}, {2, 0, 0.0}, {3, 0, -1.001}, {0, 1, 0.0}, {1, 1, 0.0}});
    };
    for (double tol : {0.0, -1.0, double(NAN)}) {
        Sparse A = matrix();
        A.truncateCols(tol);
        EXPECT_THAT(valuesOf(A), ElementsAre(10, 1, -1.001)) << tol;
    }
    Sparse A = matrix(), B = matrix();
    A.truncateCols(0.1);
    EXPECT_THAT(valuesOf(A), ElementsAre(10, -1.001)); // a tenth exactly is dropped
    B.truncateCols(1.0);
    EXPECT_EQ(B.getNnz(), 0u);
    EXPECT_EQ(B.getNzmax(), 0u); // trimmed
}

TEST(SparseTruncate, RequiredQuirkATolDropsNanAndZeroTolKeepsIt)
{
    Sparse A = sparseOf(2, 1, {{0, 0, NAN}, {1, 0, 2.0}}), B = sparseOf(2, 1, {{0, 0, NAN}, {1, 0, 0.0}});
    A.truncateCols(0.1);
    B.truncateCols(0.0);
    EXPECT_THAT(rowsOf(A), ElementsAre(1));
    EXPECT_THAT(rowsOf(B), ElementsAre(0));
}

TEST(SparseTruncate, ComplexEntriesCountByMagnitude)
{
    Sparse A = sparseOf(2, 1, {{0, 0, cplx(3, 4)}, {1, 0, cplx(0, 0.5)}}, false);
    A.truncateCols(0.1);
    EXPECT_EQ(A.getNnz(), 1u); // 0.5 is a tenth of 5
}

TEST(SparseTruncate, ASharedStoreIsReportedOnStandardOutput)
{
    Sparse A = sparseOf(2, 1, {{0, 0, 1.0}, {1, 0, 0.0}});
    const Sparse sharer = A;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    A.truncateCols(0.0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: truncateCols with non-unique llsparse matrix\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(sharer.getNnz(), 2u);
    testing::internal::CaptureStdout();
    A.truncateCols(0.0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(SparseClean, RemoveDuplicatesMergesRunsAndDropsZeroSums)
{
    const boost::shared_ptr<llsparse<double>> s(new llsparse<double>(3, 1, 6));
    const Index rows[] = {2, 0, 2, 1, 0, 1};
    const double values[] = {1, 2, 3, NAN, -2, 1};
    std::copy_n(rows, 6, s->row);
    std::copy_n(values, 6, s->val);
    s->colPtr[1] = 6;
    s->form = FormNone;
    Sparse A(s);
    A.removeDuplicates();
    EXPECT_THAT(rowsOf(A), ElementsAre(1, 2)); // 2 - 2 dropped, NaN kept
    EXPECT_TRUE(std::isnan(A.getDoubleVal()[0]));
    EXPECT_EQ(A.getDoubleVal()[1], 4.0);
    EXPECT_EQ(A.getForm(), FormSorted);
    EXPECT_EQ(A.getNzmax(), 6u);
    Sparse D = randomDominant(9, 20, true, Unsymmetric, 3);
    D.format(FormSortedDiag, true);
    D.getDoubleVal()[D.getDiag()[0] == 0 ? 1 : 0] = 0.0;
    D.removeDuplicates();
    EXPECT_EQ(D.getForm(), FormSortedDiag);
    for (Index j = 0; j < 9; ++j)
        EXPECT_EQ(D.getRow()[D.getDiag()[j]], j);
}

TEST(SparseClean, RemoveZeroColsDropsEmptyLogicalColumns)
{
    for (Symm_t symm : {Unsymmetric, RowStored}) {
        Sparse A = sparseOf(3, 6, {{2, 1, 4.0}, {0, 1, 5.0}, {1, 4, 6.0}}, true, symm);
        A.removeZeroCols();
        EXPECT_TRUE(near(dense(A), {{5, 0}, {0, 6}, {4, 0}}, 0)) << name(symm);
    }
}

TEST(SparseClean, UniqueSymmetricMovesEntriesOntoTheirMirrorsAndKeepsTheMatrix)
{
    for (Symm_t symm : {Symmetric, Hermitian})
        for (bool sorted : {true, false}) {
            SCOPED_TRACE(testing::Message() << "symm = " << symm << ", sorted = " << sorted);
            Sparse A = randomSparse(12, 12, 90, symm == Symmetric, symm, 5);
            if (sorted)
                A.format(FormSorted, false);
            const Dense before = dense(A);
            A.uniqueSymmetric();
            EXPECT_TRUE(near(dense(A), before, 1e-15));
            for (const Entry& e : entries(A))
                if (e.row < e.col) { // an upper entry stays only without a mirror
                    for (const Entry& f : entries(A))
                        EXPECT_FALSE(f.row == e.col && f.col == e.row);
                }
        }
    Sparse U = randomSparse(5, 5, 12, true, Unsymmetric, 1);
    const auto version = U.getRowColptrVersion();
    U.uniqueSymmetric();
    EXPECT_EQ(U.getRowColptrVersion(), version);
}

TEST(SparseClean, MakeSymmetricHalvesTheDiagonalAndKeepsTheMatrix)
{
    for (Symm_t symm : {Unsymmetric, RowStored})
        for (Trans_t trans : {Trans, ConjTrans})
            for (bool real : {true, false}) {
                Sparse B = randomSparse(8, 8, 30, real, Unsymmetric, 3);
                Sparse A = B + transpose(B, trans);
                if (symm == RowStored)
                    A = convertToRow(A);
                A.format(FormSortedDiag, false);
                const Dense before = dense(A);
                A.makeSymmetric(trans);
                EXPECT_TRUE(near(dense(A), before, 1e-15)) << name(symm) << trans << real;
                EXPECT_EQ(A.getSymm(), real || trans == Trans ? Symmetric : Hermitian);
                EXPECT_EQ(A.getForm(), FormSorted);
            }
}

TEST(SparseClean, RequiredQuirkTriangleHalvesTheStoredDiagonalAndKeepsTheLayout)
{
    // S: diagonal 4 at (0,0) and none at (1,1); (1,0) = 1 and its mirror (0,1) = 2 + 3i.
    const Sparse S = sparseOf(2, 2, {{0, 1, cplx(2, 3)}, {1, 0, 1.0}, {0, 0, 4.0}}, false, Hermitian);
    const Sparse T = sparse2tril(S);
    EXPECT_EQ(T.getSymm(), Hermitian);
    EXPECT_EQ(T.getForm(), FormNone);
    EXPECT_THAT(rowsOf(T), ElementsAre(0, 1, 1, 1)); // diagonal in front; both mirrors stay
    EXPECT_EQ(T.getDcmplxVal()[0], cplx(2.0));
    EXPECT_EQ(T.getDcmplxVal()[1], cplx(1.0));
    EXPECT_EQ(T.getDcmplxVal()[2], cplx(2, -3));
    EXPECT_EQ(T.getDcmplxVal()[3], cplx(0.0));
    const Sparse U = Sparse().eye(2, 3);
    EXPECT_EQ(sparse2tril(U).getptrD(), U.getptrD());
    Sparse wrong = sparseOf(2, 3, {});
    wrong.getptrD()->symm = Symmetric; // the handle would refuse it
    EXPECT_EQ(raised([&] { sparse2tril(wrong); }, true), "sparse:Matrix_not_square");
}

TEST(SparseClean, SignIsRealOnly)
{
    Sparse A = sparseOf(4, 1, {{0, 0, 3.0}, {1, 0, -2.0}, {2, 0, 0.0}, {3, 0, NAN}});
    A.sign();
    EXPECT_THAT(valuesOf(A), ElementsAre(1, -1, 0, 0));
    A.real2complex();
    EXPECT_EQ(raised([&] { A.sign(); }, true), "sparse:Sign_of_complex_Sparse_not_implemented");
}

TEST(SparseClean, ConjugateTouchesComplexStoresOnly)
{
    Sparse A = sparseOf(1, 1, {{0, 0, cplx(1, 2)}}, false), B = Sparse().eye(2);
    const auto store = B.getptrD();
    A.conjugate();
    B.conjugate();
    EXPECT_EQ(A.getDcmplxVal()[0], cplx(1, -2));
    EXPECT_EQ(B.getptrD(), store);
}

// --- Selections, conversions, text ---------------------------------------------------------------------------------

TEST(SparseSubMatrix, FollowsTheListsInEveryLayout)
{
    const auto list = [](std::initializer_list<int> l) {
        Array<int, 1> a(l.size());
        std::copy(l.begin(), l.end(), a.data());
        return a;
    };
    for (Symm_t symm : {Unsymmetric, RowStored}) {
        const Sparse A = sparseOf(3, 3, {{0, 0, 1.0}, {1, 0, 2.0}, {2, 1, 3.0}, {0, 2, 4.0}}, true, symm);
        EXPECT_TRUE(near(dense(subMatrix(A, list({2, 0}), list({1, 2, 0}))), {{3, 0, 0}, {0, 4, 1}}, 0));
        EXPECT_EQ(subMatrix(A, list({}), list({1})).getM(), 0u);
        EXPECT_EQ(subMatrix(A, list({1}), list({})).getN(), 0u);
        EXPECT_EQ(subMatrix(A, list({0}), list({0})).getSymm(), symm);
        EXPECT_EQ(raised([&] { subMatrix(A, list({3}), list({0})); }, true), "sparse:Internal_error_sparse");
        EXPECT_EQ(raised([&] { subMatrix(A, list({0}), list({-1})); }), "Internal_error_sparse");
    }
    const Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {1, 1, 2.0}});
    EXPECT_TRUE(near(dense(subMatrix(A, list({0, 1, 0}), list({0, 0}))), {{0, 0}, {0, 0}, {1, 1}}, 0));
}

TEST(SparseConvert, LayoutsConvertThereAndBack)
{
    for (auto [m, n] : {std::pair(4ul, 6ul), std::pair(0ul, 5ul), std::pair(0ul, 0ul)}) {
        const Sparse A = randomSparse(m, n, 12, true, Unsymmetric, 1), R = convertToRow(A), C = convertToCol(R);
        EXPECT_EQ(R.getSymm(), RowStored);
        EXPECT_EQ(R.getM(), m);
        EXPECT_EQ(R.getN(), n);
        EXPECT_TRUE(near(dense(R), dense(A), 0));
        EXPECT_EQ(C.getSymm(), Unsymmetric);
        EXPECT_TRUE(near(dense(C), dense(A), 0));
        EXPECT_EQ(convertToRow(R).getptrD(), R.getptrD());
        EXPECT_EQ(convertToCol(A).getptrD(), A.getptrD());
    }
}

TEST(SparseText, ListsEntriesInStoreOrder)
{
    const auto text = [](const Sparse& A) {
        std::ostringstream out;
        out << A;
        return out.str();
    };
    EXPECT_EQ(text(sparseOf(2, 2, {{1, 0, 1.0 / 3.0}, {0, 1, -2e10}})),
              "Sparse 2-by-2 matrix. Nnz = 2.\n"
              "    Row    Col               Value\n"
              "      1      0            0.333333\n"
              "      0      1              -2e+10\n");
    EXPECT_EQ(text(sparseOf(2, 2, {{1, 0, cplx(1.5, -2)}}, false)),
              "Sparse 2-by-2 matrix. Nnz = 1.\n"
              "    Row    Col               Value\n"
              "      1      0            (1.5,-2)\n");
    EXPECT_EQ(text(Sparse().zeros(1, 3, 0, true)),
              "Sparse 1-by-3 matrix. Nnz = 0.\n"
              "    Row    Col               Value\n");
}

TEST(SparseText, RequiredQuirkRowStoresAreCalledSymmetricToo)
{
    std::ostringstream out;
    out << convertToRow(sparseOf(2, 3, {{0, 2, 7.0}}));
    EXPECT_EQ(out.str(), "Sparse 2-by-3 matrix. Nnz = 1.\nSymmetric.\n"
                         "    Row    Col               Value\n      0      2                   7\n");
}

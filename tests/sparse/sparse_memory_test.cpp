// SPDX-License-Identifier: LicenseRef-qxkernel
// What must not reach memory that is not there: companions of a store that are shorter than it has become, summands that
// are not square, sizes beyond the range, sweeps over matrices without a diagonal.

#include "sparse_testing.hpp"

#include "externalsparse.hpp"
#include "matrixmarket.hpp"
#include "parallelsparse.hpp"

#include <sstream>

using namespace qxtest;

namespace {

/// n by n with unit diagonal and the FormDiag bit, to which setElem then adds `more` columns.
Sparse grown(Index n, Index more, Form_t form, bool real = true)
{
    std::vector<Entry> list;
    for (Index j = 0; j < n; ++j)
        list.push_back({j, j, 4.0 + double(j)});
    Sparse A = sparseOf(n, n, list, real);
    A.format(form, true);
    for (Index k = n; k < n + more; ++k) {
        A.setElem(k, k, 2.0);
        A.setElem(0, k, 1.0);
    }
    return A;
}

/// "Key=value" of every argument of the exception that leaves f.
std::vector<std::string> argumentsOf(const std::function<void()>& f)
{
    std::vector<std::string> list;
    try {
        f();
    } catch (const qxbase::Exception& e) {
        for (const auto& [key, value] : e.getArgs(0))
            list.push_back(key + "=" + value);
    }
    return list;
}

const char* const internal = "Internal_error_sparse";
const char* const tooLarge = "Out_of_memory_operation_sparse_matrix";

} // namespace

// --- The diagonal positions ---------------------------------------------------------------------------------------

TEST(SparseMemory, FormatRenewsDiagonalPositionsThatAreShorterThanTheMatrixHasBecome)
{
    for (bool real : {true, false})
        for (Form_t before : {FormDiag, FormSortedDiag})
            for (Form_t wanted : {FormSorted, FormDiag, FormSortedDiag}) {
                SCOPED_TRACE(testing::Message() << int(before) << " then " << int(wanted));
                Sparse A = grown(3, 400, before, real);
                const Dense before403 = dense(A);

                A.format(wanted, true);

                EXPECT_EQ(A.getForm() & FormDiag, FormDiag); // no bit is dropped
                EXPECT_TRUE(near(dense(A), before403, 0));
                for (Index j = 0; j < A.getN(); ++j) {
                    const Index p = A.getDiag()[j];
                    ASSERT_LT(p, A.getNnz());
                    EXPECT_EQ(A.getRow()[p], j);
                    for (Index q = A.getColPtr()[j]; q < p; ++q)
                        EXPECT_LT(A.getRow()[q], j);
                    for (Index q = p + 1; q < A.getColPtr()[j + 1]; ++q)
                        EXPECT_GT(A.getRow()[q], j);
                }
            }
}

TEST(SparseMemory, AGrownMatrixSweepsAfterItWasFormattedAgain)
{
    Sparse A = grown(3, 50, FormDiag);
    A.format(FormDiag, true);
    Matrix<1> r = randomVector(53, true, 1), x = randomVector(53, true, 2);
    Matrix<1> wantedR(53, true), wantedX(53, true);
    wantedR.trueCopy(r, true), wantedX.trueCopy(x, true);
    Sparse fresh = sparseOf(53, 53, entries(A));
    fresh.format(FormDiag, true);

    SORItUpdater(A, r, x, 1.1, false);
    SORItUpdater(fresh, wantedR, wantedX, 1.1, false);

    EXPECT_TRUE(sameBits(r, wantedR));
    EXPECT_TRUE(sameBits(x, wantedX));
}

TEST(SparseMemory, ADiagonalThatCannotBeRenewedLeavesItsFormAsItWas)
{
    Sparse A = grown(3, 5, FormDiag); // column 8 has no diagonal entry
    A.setElem(0, 8, 1.0);
    A.setElem(8, 0, 1.0);

    EXPECT_EQ(raised([&] { A.format(FormDiag, true); }), "Matrix_has_zero_on_diagonal");
    EXPECT_EQ(A.getForm() & FormDiag, FormNone);
    A.format(FormDiag, false);
    EXPECT_EQ(A.getDiag()[8], A.getNnz());
}

TEST(SparseMemory, EveryReaderOfAShortDiagonalManages)
{
    for (Form_t form : {FormDiag, FormSortedDiag}) {
        const Sparse A = grown(3, 400, form);
        Sparse copy = A, duplicates = A, promoted = A, rows = A;
        copy.setElem(0, 0, 4.0); // a private copy
        copy.format(FormSorted, false);
        EXPECT_EQ(copy.getDiag()[402], copy.getColPtr()[403] - 1);
        duplicates.removeDuplicates();
        EXPECT_EQ(duplicates.getDiag()[402], duplicates.getColPtr()[403] - 1);
        promoted.real2complex();
        promoted.format(FormSorted, false);
        EXPECT_EQ(promoted.getDiag()[402], promoted.getColPtr()[403] - 1);
        EXPECT_FALSE(A.isSymmetric(1e-3, Trans));
        EXPECT_TRUE(A.isSymmetric(1e3, Trans)); // the diagonal counts, behind the old end too
    }
}

// --- Summands that are not square ---------------------------------------------------------------------------------

TEST(SparseMemory, ASummandThatIsNotSquareIsRefusedWhereItWouldArise)
{
    for (const auto& [m, n] : std::vector<std::pair<Index, Index>>{{2, 5}, {5, 2}}) {
        Sparse A = randomSparse(m, n, 6, true, Unsymmetric, 3);
        const Sparse Z = randomSparse(m, n, 6, false, Unsymmetric, 3);
        const std::vector<std::string> sizes = {"Rows=" + std::to_string(m), "Columns=" + std::to_string(n)};
        for (Sparse B : {A, Z}) {
            const Dense before = dense(B);
            EXPECT_EQ(raised([&] { B.setSymm(Symmetric); }, true), "sparse:Internal_error_sparse");
            EXPECT_EQ(raised([&] { B.setSymm(Hermitian); }), internal);
            EXPECT_EQ(raised([&] { B.makeSymmetric(Trans); }), internal);
            EXPECT_EQ(raised([&] { B.makeSymmetric(ConjTrans); }), internal);
            EXPECT_EQ(argumentsOf([&] { B.setSymm(Symmetric); }), sizes);
            EXPECT_EQ(argumentsOf([&] { B.makeSymmetric(Trans); }), sizes);
            EXPECT_TRUE(near(dense(B), before, 0));
        }
        A.setSymm(RowStored); // a rectangular store by rows is legal
        EXPECT_EQ((A * randomVector(A.getN(), true, 1)).size(), A.getM());
    }
}

TEST(SparseMemory, RemovalsRefuseToMakeASummandRectangular)
{
    const std::vector<int> mask = {0, 1, 0, 1};
    for (Symm_t symm : {Symmetric, Hermitian}) {
        Sparse S = randomSparse(4, 4, 12, symm == Symmetric, symm, 5);
        S.zeroCols(mask.data());
        const Sparse before = S;
        const Sparse pick = sparseOf(4, 2, {{0, 0, 1.0}, {3, 1, 1.0}});
        EXPECT_EQ(raised([&] { S.removeZeroCols(); }), internal);
        EXPECT_EQ(raised([&] { S.multLeft(pick, Trans, true); }), internal);
        EXPECT_EQ(raised([&] { S.mulRight(pick, true); }), internal);
        EXPECT_TRUE(sameBits(S, before));
        EXPECT_EQ((S * randomVector(4, true, 1)).size(), 4u);
    }
    Sparse full = randomSparse(4, 4, 60, true, Symmetric, 5);
    full.removeZeroCols(); // nothing to drop
    EXPECT_EQ(full.getN(), 4u);
}

TEST(SparseMemory, ProductsSweepsAndConversionsRefuseAStoreThatWasMadeRectangularBehindTheHandle)
{
    for (int threads : {1, 2})
        for (const auto& [m, n] : std::vector<std::pair<Index, Index>>{{200, 500}, {500, 200}}) {
            const Threads some(threads);
            Sparse A = randomSparse(m, n, 11000, true, Unsymmetric, 3);
            A.format(FormSortedDiag, false);
            A.getptrD()->symm = Symmetric;
            const Matrix<1> x = randomVector(500, true, 1);
            Matrix<1> y = randomVector(500, true, 2), exact = randomVector(A.getM(), true, 2), r = x;
            const Matrix<2> X(500, 1, true);
            const std::vector<std::function<void()>> calls = {
                [&] { A * randomVector(A.getN(), true, 1); },
                [&] { selectyPlusAMulx(y, A, x, NoTrans); },
                [&] { selectyMinusAMulx(y, A, x, Trans); },
                [&] { selectyPlusAMulx(y, A, X, NoTrans, 0); },
                [&] { serialyPlusAMulx(y, A, x, NoTrans); },
                [&] { serialyMinusAMulx(y, A, x, NoTrans); },
                [&] { serialyPlusAMulx(y, A, X, NoTrans, 0); },
                [&] { SORIt(A, r, y, 1.0, false); },
                [&] { SORItUpdater(A, r, y, 1.0, false); },
                [&] { SORUpdater(A, r, 1.0, false); },
                [&] { JacobiIts(A, x, y, 1.0); },
                [&] { ParallelSparse().yPlusAMulx(y, A, x, NoTrans); },
                [&] { Sparse(A).uniqueSymmetric(); },
            };
            for (std::size_t k = 0; k < calls.size(); ++k) {
                EXPECT_EQ(raised(calls[k]), internal) << k;
                EXPECT_THAT(argumentsOf(calls[k]),
                            testing::ElementsAre("Rows=" + std::to_string(m), "Columns=" + std::to_string(n))) << k;
            }
            EXPECT_EQ(raised([&] { sparse2tril(A); }), "Matrix_not_square");
            ExternalSparse::useBuiltIn(true);
            EXPECT_EQ(raised([&] { serialyPlusAMulx(y, A, x, NoTrans); }), internal);
            EXPECT_EQ(raised([&] { ExternalSparse().yPlusAMulx(y, A, x, NoTrans); }), internal);
            ExternalSparse::useBuiltIn(false);
        }
}

// --- Sweeps -------------------------------------------------------------------------------------------------------

TEST(SparseMemory, SweepsRefuseAMatrixThatIsNotSquare)
{
    for (Symm_t symm : {Unsymmetric, RowStored})
        for (const auto& [m, n] : std::vector<std::pair<Index, Index>>{{3, 5}, {5, 3}}) {
            Sparse A = randomSparse(m, n, 9, true, symm, 3);
            A.format(FormSortedDiag, false);
            Matrix<1> r = randomVector(5, true, 1), x = randomVector(5, true, 2);
            Array<Index, 1> idx(1);
            idx[0] = 2;
            const std::vector<std::function<void()>> calls = {
                [&] { SORIt(A, r, x, 1.0, false); },      [&] { SORItUpdater(A, r, x, 1.0, true); },
                [&] { SORUpdater(A, r, 1.0, false); },    [&] { JacobiIts(A, r, x, 1.0); },
                [&] { SORIt(A, r, x, idx, 1.0, false); }, [&] { SORUpdater(A, r, idx, 1.0, false); },
            };
            for (const auto& call : calls) {
                EXPECT_EQ(raised(call), internal);
                EXPECT_THAT(argumentsOf(call), testing::ElementsAre("Rows=" + std::to_string(m), "Columns=" + std::to_string(n)));
            }
        }
}

TEST(SparseMemory, SweepsRefuseAMissingDiagonalEntryAndNameIt)
{
    Sparse A = sparseOf(3, 3, {{0, 0, 2.0}, {1, 1, 0.0}, {2, 2, 2.0}, {2, 1, 1.0}});
    A.format(FormSortedDiag, false); // an exact zero counts as missing
    Matrix<1> r = randomVector(3, true, 1), x = randomVector(3, true, 2);
    Matrix<1> r0, x0;
    r0.trueCopy(r, true), x0.trueCopy(x, true);
    for (const std::function<void()>& call : std::vector<std::function<void()>>{
             [&] { SORIt(A, r, x, 1.0, false); }, [&] { SORItUpdater(A, r, x, 1.0, true); },
             [&] { SORUpdater(A, r, 1.0, false); }, [&] { JacobiIts(A, r, x, 1.0); }}) {
        EXPECT_EQ(raised(call), internal);
        EXPECT_THAT(argumentsOf(call), testing::ElementsAre("Missing_diagonal_entry=1", "Size=3"));
    }
    EXPECT_TRUE(sameBits(r, r0));
    EXPECT_TRUE(sameBits(x, x0));
    Array<Index, 1> others(2), all(3);
    others[0] = 0, others[1] = 2;
    all[0] = 0, all[1] = 1, all[2] = 2;
    EXPECT_EQ(SORIt(A, r, x, others, 1.0, false), -1); // column 1 is not visited
    EXPECT_EQ(raised([&] { SORIt(A, r, x, all, 1.0, false); }), internal);
}

TEST(SparseSweeps, RequiredQuirkReadTheDiagonalPositionsWhateverTheFormBitSays)
{
    Sparse A = randomDominant(9, 30, true, Unsymmetric, 3);
    A.format(FormSortedDiag, true);
    Matrix<1> r = randomVector(9, true, 1), x = randomVector(9, true, 2), r2, x2;
    r2.trueCopy(r, true), x2.trueCopy(x, true);
    Sparse B = A;
    B.setForm(FormSorted); // the positions stay

    EXPECT_EQ(SORItUpdater(A, r, x, 1.3, false), -1);
    EXPECT_EQ(SORItUpdater(B, r2, x2, 1.3, false), -1);

    EXPECT_TRUE(sameBits(r, r2));
    EXPECT_TRUE(sameBits(x, x2));
}

// --- Sizes --------------------------------------------------------------------------------------------------------

TEST(SparseMemory, SizesAboveTheRangeAreRefusedAtOnceWithSizeAndLimit)
{
    const Index limit = 4294967294, beyond = limit + 1;
    const std::vector<Index> zero = {0};
    const std::vector<std::string> args = {"Size=4294967295", "Limit=4294967294"};
    Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
    const Sparse before = A;
    const auto expectRefused = [&](const char* id, const std::function<void()>& call) {
        EXPECT_EQ(raised(call), id);
        EXPECT_EQ(argumentsOf(call), args);
    };
    expectRefused(tooLarge, [&] { A.zeros(beyond, 2, 0, true); });
    expectRefused(tooLarge, [&] { A.zeros(beyond, 2, 0, false); });
    expectRefused(tooLarge, [&] { A.zeros(2, beyond, 0, true); });
    expectRefused(tooLarge, [&] { A.eye(beyond, 2); });
    expectRefused(tooLarge, [&] { A.setElem(limit, 0, 1.0); });
    expectRefused(tooLarge, [&] { A.setElem(0, limit, 1.0); });
    expectRefused("Out_of_memory_creating_sparse_matrix", [&] { A.triplet2sparse(zero, zero, 1.0, beyond, 2); });
    expectRefused("Out_of_memory_creating_sparse_matrix", [&] { A.triplet2sparse(zero, zero, 1.0, 2, beyond); });
    expectRefused("Out_of_memory_creating_sparse_matrix",
                  [&] { A.flat2sparse(zero, std::vector<Index>{0, 1}, Matrix<1>(1, true), beyond, 1); });
    EXPECT_TRUE(sameBits(A, before));
    EXPECT_EQ(A.zeros(limit, 2, 0, true).getM(), limit); // the last one that is taken
    const boost::shared_ptr<Sparse> many(new Sparse(A)), one(new Sparse(sparseOf(1, 2, {{0, 0, 1.0}})));
    expectRefused(tooLarge, [&] { vcat(*many, *one, false); });
    expectRefused(tooLarge, [&] { A.vcat({many, one}, 2); });
}

TEST(SparseMemory, AnIndexOutOfRangeIsNamedWithItsLimit)
{
    Sparse A;
    const std::vector<Index> rows = {0, 7, 1}, cols = {0, 1, 0}, farColumns = {0, 9, 0}, offsets = {0, 1, 3};
    const Matrix<1> vals(3, true);
    EXPECT_THAT(argumentsOf([&] { A.triplet2sparse(rows, cols, 1.0, 3, 2); }), testing::ElementsAre("Index=7", "Size=3", "Limit=2"));
    EXPECT_THAT(argumentsOf([&] { A.triplet2sparse(cols, farColumns, 1.0, 3, 2); }), testing::ElementsAre("Index=9", "Size=2", "Limit=1"));
    EXPECT_THAT(argumentsOf([&] { A.flat2sparse(rows, offsets, vals, 3, 2); }), testing::ElementsAre("Index=7", "Size=3", "Limit=2"));
}

TEST(SparseMemory, AShortMatrixMarketFileDoesNotTakeAGigabyteByDefault)
{
    for (const char* sizes : {"1 100000000 1", "100000000 1 1"}) {
        std::istringstream file(std::string("%%MatrixMarket matrix coordinate real general\n") + sizes + "\n1 1 3.0\n");
        EXPECT_EQ(raised([&] { readMatrixMarket(file, "short"); }), "Invalid_matrix_file");
    }
    std::istringstream file("%%MatrixMarket matrix coordinate real general\n1 100000000 1\n1 1 3.0\n");
    EXPECT_THAT(argumentsOf([&] { readMatrixMarket(file, "short"); }),
                testing::ElementsAre("File=short", "Line=2", "Reason=number of columns is out of range", "Limit=16777216"));
}

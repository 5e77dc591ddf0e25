// SPDX-License-Identifier: LicenseRef-qxkernel
// What goes wrong, for every operation alike: failed allocations, empty matrices, NaN, sizes at the end of the range,
// arguments that do not fit.

#include "sparse_testing.hpp"

#include "parallelsparse.hpp"
#include "support/failure.hpp"
#include "support/alloc_fault.hpp"

#include <cmath>
#include <limits>
#include <sstream>

using namespace qxtest;

namespace {

constexpr Index last = std::numeric_limits<Index>::max();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// An operation on a real and a complex square matrix.
struct Operation
{
    const char* name;
    std::function<void(Sparse&, Sparse&)> act;
    bool ownMemory = false; ///< act makes its arguments first
};

boost::shared_ptr<Sparse> shared(const Sparse& A) { return boost::shared_ptr<Sparse>(new Sparse(A)); }

/// Every operation of the handle that takes memory; n is the size of both matrices.
std::vector<Operation> allOperations(Index n)
{
    const Matrix<1> d = randomVector(n, false, 4), x = randomVector(n, true, 5);
    Array<int, 1> list(2);
    list[0] = 1, list[1] = 0;
    const Sparse C = randomSparse(n, n, 2 * n, true, Unsymmetric, 3);
    const Sparse pick = sparseOf(n, 3, {{1, 0, 1.0}, {4, 1, 1.0}, {7, 2, 1.0}});
    const std::vector<int> mask(n, 1);
    return {
        {"sum", [](Sparse& A, Sparse& B) { A + B; }},
        {"difference", [](Sparse& A, Sparse& B) { A - B; }},
        {"scaled sum", [](Sparse& A, Sparse& B) { add(A, cplx(2, 1), B); }},
        {"product", [](Sparse& A, Sparse& B) { A * B; }},
        {"transposed product", [](Sparse& A, Sparse& B) { mul(A, B, ConjTrans); }},
        {"transpose", [](Sparse& A, Sparse&) { transpose(A, Trans); }},
        {"negative", [](Sparse&, Sparse& B) { -B; }},
        {"scaled copy", [](Sparse& A, Sparse&) { A * cplx(2, 1); }},
        {"sum onto", [](Sparse& A, Sparse& B) { A.addMat(2.0, B, false); }},
        {"in-place sum", [C](Sparse& A, Sparse&) { A.addMat(2.0, C, true); }},
        {"in-place sum of itself", [](Sparse& A, Sparse&) { A.addMat(2.0, A, true); }},
        {"promoting sum", [](Sparse& A, Sparse& B) { A.addMat(2.0, B, true); }},
        {"product from the left", [C](Sparse& A, Sparse&) { A.multLeft(C, Trans, true); }},
        {"product from the right", [C](Sparse&, Sparse& B) { B.mulRight(C, true); }},
        {"product onto", [](Sparse& A, Sparse& B) { A.multLeft(B, ConjTrans, false); }},
        {"selected rows", [pick](Sparse& A, Sparse&) { A.multLeft(pick, Trans, true); }},
        {"selected columns", [pick](Sparse& A, Sparse&) { A.mulRight(pick, true); }},
        {"side by side", [](Sparse& A, Sparse& B) { hcat(A, B, false); }},
        {"on top", [](Sparse& A, Sparse& B) { vcat(A, B, false); }},
        {"list side by side", [n](Sparse& A, Sparse& B) { A.hcat({shared(A), shared(B)}, n); }, true},
        {"list on top", [n](Sparse& A, Sparse& B) { A.vcat({shared(B), shared(B)}, n); }, true},
        {"scaling", [](Sparse& A, Sparse&) { A.scale(cplx(1, 2)); }},
        {"scaling by zero", [](Sparse& A, Sparse&) { A.scale(0.0); }},
        {"column scaling", [d](Sparse& A, Sparse&) { A.colscale(d); }},
        {"row scaling", [x](Sparse& A, Sparse&) { A.rowscaleInv(x); }},
        {"conjugate", [](Sparse&, Sparse& B) { B.conjugate(); }},
        {"sign", [](Sparse& A, Sparse&) { A.sign(); }},
        {"setElem", [](Sparse& A, Sparse&) { A.setElem(500, 500, cplx(1, 2)); }},
        {"setElem of a real", [](Sparse&, Sparse& B) { B.setElem(500, 500, 1.0); }},
        {"setSymm", [](Sparse& A, Sparse&) { A.setSymm(Symmetric); }},
        {"setForm", [](Sparse& A, Sparse&) { A.setForm(FormNone); }},
        {"format", [](Sparse&, Sparse& B) { B.format(FormSortedDiag, false); }},
        {"duplicates", [](Sparse& A, Sparse&) { A.removeDuplicates(); }},
        {"empty columns", [](Sparse& A, Sparse&) { A.removeZeroCols(); }},
        {"masked columns", [mask](Sparse& A, Sparse&) { A.zeroCols(mask.data()); }},
        {"truncation", [](Sparse& A, Sparse&) { A.truncateCols(0.9); }},
        {"reshape", [n](Sparse& A, Sparse&) { A.reshape(int(2 * n), int(n / 2)); }},
        {"summand form", [](Sparse& A, Sparse&) { A.makeSymmetric(Trans); }},
        {"by rows", [](Sparse& A, Sparse&) { convertToRow(A); }},
        {"submatrix", [list](Sparse& A, Sparse&) { subMatrix(A, list, list); }},
        {"promotion", [](Sparse& A, Sparse&) { A.real2complex(); }},
        {"trimming", [](Sparse& A, Sparse&) { A.reallocate(2.0); }},
        {"clearing", [](Sparse& A, Sparse&) { A.clear(); }},
        {"zeros", [](Sparse& A, Sparse&) { A.zeros(5, 6, 7, true); }},
        {"identity", [](Sparse& A, Sparse&) { A.eye(9); }},
        {"symmetry test", [](Sparse& A, Sparse&) { A.isSymmetric(0.1, Trans); }},
        {"signed pairs", [](Sparse& A, Sparse&) { std::vector<std::pair<int, int>> out; A.getVectorPair(out); }},
        {"product with a vector", [x](Sparse& A, Sparse& B) { A * x; AMulx(B, x, ConjTrans); }},
    };
}

/// No entries, and more rows than the handle allows: as a host could set them in a store.
Sparse endless(Index m, Index n)
{
    const Sparse A = Sparse().zeros(1, n, 0, true);
    A.getptrD()->m = m;
    return A;
}

Sparse privateCopy(const Sparse& A)
{
    if (A.isReal())
        return Sparse(boost::shared_ptr<llsparse<double>>(new llsparse<double>(*A.getptrD())));
    return Sparse(boost::shared_ptr<llsparse<cplx>>(new llsparse<cplx>(*A.getptrZ())));
}

void expectUnchanged(const Sparse& A, const Sparse& wanted, const std::string& where)
{
    EXPECT_EQ(A.isReal(), wanted.isReal()) << where;
    EXPECT_EQ(A.getSymm(), wanted.getSymm()) << where;
    EXPECT_TRUE(near(storedDense(A), storedDense(wanted), 0)) << where;
}

} // namespace

TEST(SparseFaults, EveryFailedAllocationIsNamedLeaksNothingAndLeavesOperandsAsTheyWere)
{
    const Index n = 110;
    const Sparse A0 = randomSparse(n, n, 10500, true, Unsymmetric, 1), B0 = randomSparse(n, n, 10500, false, Unsymmetric, 2);
    const std::vector<Operation> operations = allOperations(n);
    testing::internal::CaptureStdout(); // truncateCols reports shared stores
    for (int threads : {1, 2})
        for (bool isShared : {false, true})
            for (const Operation& operation : operations) {
                const Threads some(threads);
                long attempt = 0;
                for (bool faulted = true; faulted;) {
                    const std::string where = std::string(operation.name) + ", allocation " + std::to_string(++attempt);
                    const long before = liveAllocations();
                    {
                        std::string id = "none";
                        Sparse A = privateCopy(A0), B = privateCopy(B0);
                        const Sparse keepA = isShared ? A : Sparse(), keepB = isShared ? B : Sparse();
                        {
                            const AllocFault fault(attempt);
                            try {
                                operation.act(A, B);
                            } catch (const qxbase::Exception& e) {
                                id = e.getId();
                            } catch (const std::bad_alloc&) {
                                EXPECT_TRUE(operation.ownMemory) << where;
                            }
                            faulted = fault.happened();
                        }
                        if (id != "none") {
                            EXPECT_TRUE(id == "Out_of_memory_operation_sparse_matrix" ||
                                        id == "Out_of_memory_operation_sparse_matrix.") << where << ": " << id;
                            EXPECT_TRUE(faulted) << where;
                            expectUnchanged(A, A0, where);
                            expectUnchanged(B, B0, where);
                        }
                        if (isShared) {
                            expectUnchanged(keepA, A0, where);
                            expectUnchanged(keepB, B0, where);
                        }
                    }
                    EXPECT_EQ(liveAllocations(), before) << where << " leaked";
                    ASSERT_LT(attempt, 200) << where;
                }
                if (isShared) {
                    EXPECT_GT(attempt, 1) << operation.name << " takes no memory: not a case";
                }
            }
    testing::internal::GetCapturedStdout();
}

TEST(SparseFaults, HelpersThatCannotBeMadeHaveTheModulesName)
{
    Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
    for (const std::function<void()>& make :
         std::vector<std::function<void()>>{[&] { A.getParallelSparse(); }, [&] { A.getExternalSparse(); }}) {
        const long count = failEveryAllocation(make, [&](const FaultRun& run) {
            EXPECT_FALSE(run.badAlloc) << run.n;
            if (run.faulted) {
                EXPECT_EQ(run.id, "Out_of_memory_operation_sparse_matrix");
                EXPECT_EQ(run.leaked, 0);
            }
            A = sparseOf(2, 2, {{0, 1, 3.0}});
        });
        EXPECT_GT(count, 0);
    }
}

TEST(SparseFaults, SummandOperationsSurviveFailedAllocations)
{
    const Sparse S = randomSparse(60, 60, 700, true, Symmetric, 3);
    const std::vector<std::pair<const char*, std::function<void(Sparse&)>>> operations = {
        {"unique", [](Sparse& A) { A.uniqueSymmetric(); }},
        {"triangle", [](Sparse& A) { sparse2tril(A); }},
    };
    for (const auto& operation : operations) {
        const auto& name = operation.first;
        const auto& act = operation.second;
        Sparse A = S;
        failEveryAllocation([&] { act(A); },
                            [&](const FaultRun& run) {
                                if (run.faulted && !run.id.empty()) {
                                    EXPECT_EQ(run.id, "Out_of_memory_operation_sparse_matrix") << name;
                                    expectUnchanged(A, S, name);
                                }
                                EXPECT_FALSE(run.badAlloc) << name;
                                A = S;
                            });
    }
}

TEST(SparseFaults, SweepsThatCannotHaveTheirMemoryChangeNoVector)
{
    const Index n = 400;
    for (int threads : {1, 2})
        for (Symm_t symm : {Unsymmetric, RowStored})
            for (bool sorted : {true, false}) {
                const Threads some(threads);
                Sparse A = randomDominant(n, 12000, true, symm, 5);
                A.format(sorted ? FormSortedDiag : FormDiag, true);
                const Matrix<1> r0 = randomVector(n, true, 6), x0 = randomVector(n, true, 7);
                Matrix<1> r, x;
                const std::vector<std::function<void()>> sweeps = {
                    [&] { SORIt(A, r, x, 1.2, false); },
                    [&] { SORItUpdater(A, r, x, 1.2, true); },
                    [&] { SORUpdater(A, r, 1.2, false); },
                    [&] { JacobiIts(A, r, x, 1.2); },
                };
                for (const auto& sweep : sweeps)
                    failEveryAllocation(
                        [&] {
                            r.trueCopy(r0, true), x.trueCopy(x0, true);
                            sweep();
                        },
                        [&](const FaultRun& run) {
                            if (!run.id.empty()) {
                                EXPECT_TRUE(sameBits(r, r0)) << run.n;
                                EXPECT_TRUE(sameBits(x, x0)) << run.n;
                            }
                        });
            }
}

TEST(SparseFaults, AssemblyNamesItsFailureAndKeepsTheMatrix)
{
    // Long runs of one column, single triplets all over, and few triplets in very many rows take different ways.
    struct Input
    {
        std::vector<Index> rows, cols;
        Index m;
    };
    std::vector<Input> inputs(3);
    for (Index k = 0; k < 20000; ++k) {
        inputs[0].rows.push_back(k % 500), inputs[0].cols.push_back(k / 100);
        inputs[1].rows.push_back((k * 31) % 500), inputs[1].cols.push_back((k * 17) % 300);
    }
    inputs[0].m = inputs[1].m = 500;
    inputs[2] = {{1ul << 31, 3, 1ul << 31}, {0, 5, 0}, (1ul << 32) - 2};
    for (int threads : {1, 2})
        for (const Input& input : inputs) {
            const Threads some(threads);
            const Matrix<1> vals(input.rows.size(), true);
            Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
            const Sparse before = A;
            failEveryAllocation([&] { A.triplet2sparse(input.rows, input.cols, vals, input.m, 300); },
                                [&](const FaultRun& run) {
                                    if (run.faulted) {
                                        EXPECT_EQ(run.id, "Out_of_memory_creating_sparse_matrix");
                                        EXPECT_EQ(A.getptrD(), before.getptrD());
                                        EXPECT_EQ(run.leaked, 0);
                                    }
                                    A = before;
                                });
        }
    const std::vector<Index> offsets = {0, 1}, row = {0};
    const Matrix<1> one(1, false);
    Sparse A;
    failEveryAllocation([&] { A.flat2sparse(row, offsets, one, 1, 1); },
                        [&](const FaultRun& run) {
                            if (run.faulted) {
                                EXPECT_EQ(run.id, "Out_of_memory_creating_sparse_matrix");
                            }
                        });
}

// --- Sizes at the end of the range --------------------------------------------------------------------------------

TEST(SparseRange, SizesThatNoArrayHoldsAreRefusedAndChangeNothing)
{
    const char* const tooLarge = "Out_of_memory_operation_sparse_matrix";
    Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
    const Sparse before = A;
    const std::vector<Index> zero = {0};
    EXPECT_EQ(raised([&] { A.zeros(2, last, 0, true); }), tooLarge);
    EXPECT_EQ(raised([&] { A.zeros(last, 2, 0, true); }), tooLarge);
    EXPECT_EQ(raised([&] { A.zeros(2, 1ul << 40, 0, false); }), tooLarge);
    EXPECT_EQ(raised([&] { A.zeros(2, 2, 1ul << 40, true); }), tooLarge);
    EXPECT_EQ(raised([&] { A.eye(last, last); }), tooLarge);
    EXPECT_EQ(raised([&] { A.setElem(0, last, 1.0); }), tooLarge);
    EXPECT_EQ(raised([&] { A.setElem(last, 0, 1.0); }), tooLarge);
    EXPECT_EQ(raised([&] { A.setElem(0, last - 1, cplx(0, 1)); }), tooLarge);
    EXPECT_EQ(raised([&] { A.triplet2sparse(zero, zero, 1.0, 2, last); }), "Out_of_memory_creating_sparse_matrix");
    EXPECT_EQ(raised([&] { A.triplet2sparse(zero, zero, 1.0, last, 2); }), "Out_of_memory_creating_sparse_matrix");
    EXPECT_TRUE(sameBits(A, before));
}

TEST(SparseRange, OperationsOnAstronomicallyManyRowsAreRefusedOrRight)
{
    // No entries, no memory: only the number of rows is large. The handle makes no such matrix, a store may hold one.
    const Index rows = 1ul << 62;
    const Sparse A = endless(rows, 2), B = sparseOf(2, 2, {{0, 1, 3.0}});
    const char* const tooLarge = "Out_of_memory_operation_sparse_matrix";
    EXPECT_EQ(raised([&] { A + A; }), tooLarge);
    EXPECT_EQ(raised([&] { A * B; }), tooLarge);
    EXPECT_EQ(raised([&] { mul(A, B, Trans); }), tooLarge);
    EXPECT_EQ(raised([&] { transpose(A, Trans); }), tooLarge);
    EXPECT_EQ(raised([&] { AMulx(A, Matrix<1>(2, true), NoTrans); }), tooLarge);
    Sparse C = A;
    EXPECT_EQ(raised([&] { C.addMat(1.0, A, true); }), tooLarge);
    Sparse few = A, many = endless(rows, 8);
    few.reshape(4, 4); // no entry that does not fit
    EXPECT_EQ(few.getM(), 4u);
    EXPECT_EQ(raised([&] { many.reshape(4, 4); }), "Internal_error_sparse"); // more elements than numbers
    EXPECT_EQ(raised([&] { vcat(A, B, false); }), tooLarge);
    const Sparse all = endless(last - 1, 2);
    EXPECT_EQ(raised([&] { vcat(all, B, false); }), tooLarge); // the sum of the rows is no number
    EXPECT_EQ(raised([&] { C.vcat({shared(all), shared(B)}, 2); }), tooLarge);
    EXPECT_EQ(C.getM(), rows);
    EXPECT_EQ(raised([&] { std::vector<std::pair<int, int>> out; A.getVectorPair(out); }), "Internal_error_sparse");
}

TEST(SparseRange, FewTripletsInVeryManyRowsTakeMemoryForTheTripletsOnly)
{
    const Index m = (1ul << 32) - 2;
    Sparse A;
    A.triplet2sparse({m - 1, 5, m - 1, 7}, {2, 2, 2, 0}, Matrix<1>(4, true), m, 3);
    const std::vector<Entry> got = entries(A);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].row, 7u);
    EXPECT_EQ(got[1].row, m - 1); // the order of first appearance
    EXPECT_EQ(got[2].row, 5u);
    const std::vector<Index> beyond = {m}, first = {0};
    EXPECT_EQ(raised([&] { A.triplet2sparse(beyond, first, 1.0, m, 3); }), "Internal_error_sparse");
    EXPECT_EQ(A.getM(), m);
}

// --- Arguments that do not fit ------------------------------------------------------------------------------------

TEST(SparseArguments, AnIndexOutOfRangeIsToldWithSizeAndLimit)
{
    const Sparse A = sparseOf(2, 3, {{0, 1, 3.0}});
    const auto args = [](const char* index, const char* size, const char* limit) {
        return qxbase::ExceptionArgs{{"Index", index}, {"Size", size}, {"Limit", limit}};
    };
    const std::vector<Index> beyond = {2}, first = {0};
    const Array<int, 1> none(0);
    Array<int, 1> negative(1), third(1);
    negative[0] = -1;
    third[0] = 3;
    int mask[3] = {};

    const auto triplet = failureOf([&] { Sparse B; B.triplet2sparse(beyond, first, 1.0, 2, 3); });
    const auto row = failureOf([&] { A.nonZeros(5, mask); });
    const auto emptyRow = failureOf([&] { sparseOf(0, 3, {}).nonZeros(0, mask); });
    const auto below = failureOf([&] { subMatrix(A, negative, none); });
    const auto column = failureOf([&] { subMatrix(A, none, third); });

    EXPECT_EQ(triplet.getArgs(0), args("2", "2", "1"));
    EXPECT_EQ(row.getArgs(0), args("5", "2", "1"));
    EXPECT_EQ(emptyRow.getArgs(0), args("0", "0", "none"));
    EXPECT_EQ(below.getArgs(0), args("-1", "2", "1"));
    EXPECT_EQ(column.getArgs(0), args("3", "3", "2"));
    for (const auto& e : {triplet, row, emptyRow, below, column})
        EXPECT_EQ(e.getId(), "Internal_error_sparse");
}

TEST(SparseArguments, RowsThatDoNotExistAndMissingMatricesAreRefused)
{
    Sparse A = sparseOf(2, 3, {{0, 1, 3.0}});
    int mask[3] = {7, 7, 7};
    EXPECT_EQ(raised([&] { A.nonZeros(2, mask); }), "Internal_error_sparse");
    EXPECT_EQ(mask[0], 7);
    EXPECT_EQ(raised([&] { A.hcat({shared(A), nullptr}, 2); }), "Internal_error_sparse");
    EXPECT_EQ(raised([&] { A.vcat({nullptr}, 3); }), "Internal_error_sparse");
    std::vector<std::pair<int, int>> out;
    EXPECT_EQ(raised([&] { sparseOf(2, 2, {}, false).getVectorPair(out); }), "Internal_error_sparse");
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(raised([&] { A.reshape(-1, 2); }, true), "sputil:Internal_error_sparse");
    EXPECT_EQ(A.getN(), 3u);
}

TEST(SparseArguments, AStoreWithoutArraysIsAnEmptyMatrix)
{
    const Sparse A(boost::shared_ptr<llsparse<double>>(new llsparse<double>));
    const Sparse Z(boost::shared_ptr<llsparse<cplx>>(new llsparse<cplx>));
    for (const Sparse& E : {A, Z}) {
        EXPECT_EQ(E.getM() + E.getN() + E.getNnz(), 0u);
        EXPECT_EQ(transpose(E, Trans).getM(), 0u);
        EXPECT_EQ((E + E).getNnz(), 0u);
        EXPECT_EQ(E.isSimple(), E.isReal());
    }
}

TEST(SparseArguments, SweepsRefuseShortVectorsAndMatricesWithoutDiagonalForm)
{
    Sparse A = sparseOf(3, 3, {{0, 0, 2.0}, {1, 1, 2.0}, {2, 2, 2.0}});
    Matrix<1> r(3, true), x(3, true), tooShort(2, true);
    const char* const length = "Size_vector_sparse_matrix_disagree";
    EXPECT_EQ(raised([&] { SORIt(A, r, x, 1.0, false); }), "Internal_error_sparse"); // not formatted
    A.setForm(FormDiag);                                                          // believed, but nothing is there
    EXPECT_EQ(raised([&] { JacobiIts(A, r, x, 1.0); }), "Internal_error_sparse");
    A.setForm(FormNone);
    A.format(FormDiag, true);
    EXPECT_EQ(raised([&] { SORIt(A, tooShort, x, 1.0, false); }), length);
    EXPECT_EQ(raised([&] { SORItUpdater(A, r, tooShort, 1.0, true); }), length);
    EXPECT_EQ(raised([&] { SORUpdater(A, tooShort, 1.0, true); }), length);
    EXPECT_EQ(raised([&] { JacobiIts(A, tooShort, x, 1.0); }), length);
    EXPECT_EQ(SORIt(A, r, x, 1.0, false), -1);

    A.setElem(3, 3, 2.0); // one column more than the diagonal form knows
    Matrix<1> r4(4, true), x4(4, true);
    EXPECT_EQ(raised([&] { SORIt(A, r4, x4, 1.0, false); }), "Internal_error_sparse");
}

TEST(SparseArguments, SubsetSweepsRefuseListsThatDoNotFit)
{
    Sparse A = sparseOf(3, 3, {{0, 0, 2.0}, {1, 1, 2.0}, {2, 2, 2.0}, {2, 0, 1.0}});
    A.format(FormSortedDiag, true);
    Matrix<1> r(3, true), x(3, true);
    const auto list = [](std::vector<Index> values) {
        Array<Index, 1> array(values.size());
        std::copy(values.begin(), values.end(), array.begin());
        return array;
    };
    const char* const length = "Size_vector_sparse_matrix_disagree";
    EXPECT_EQ(raised([&] { SORIt(A, r, x, list({0, 3}), 1.0, false); }), "Internal_error_sparse");
    EXPECT_EQ(raised([&] { SORItUpdater(A, r, x, list({3}), 1.0, false); }), "Internal_error_sparse");
    EXPECT_EQ(raised([&] { SORUpdater(A, r, list({3}), 1.0, false); }), "Internal_error_sparse");
    EXPECT_EQ(raised([&] { SORIt(A, r, x, list({0, 1}), list({0, 1}), list({1}), 1.0, false); }), length);
    EXPECT_EQ(raised([&] { SORIt(A, r, x, list({0, 1}), list({0, 1, 2}), list({1}), 1.0, false); }), length);
    EXPECT_EQ(raised([&] { SORIt(A, r, x, list({0, 1}), list({1, 0, 1}), list({1}), 1.0, false); }), length);
    EXPECT_EQ(raised([&] { SORIt(A, r, x, list({0, 1}), list({0, 1, 1}), list({4}), 1.0, false); }),
              "Internal_error_sparse");
    EXPECT_EQ(raised([&] { SORUpdater(A, r, list({0}), list({0, 1}), list({4}), 1.0, false); }), "Internal_error_sparse");
    EXPECT_EQ(SORIt(A, r, x, list({0, 1}), list({0, 1, 1}), list({3}), list({0, 0, 0}), list({}), 1.0, false), -1);
}

// --- Empty matrices in every position -----------------------------------------------------------------------------

TEST(SparseEmpty, EveryOperationTakesMatricesWithoutRowsColumnsOrEntries)
{
    for (bool real : {true, false})
        for (Symm_t symm : {Unsymmetric, RowStored})
            for (const auto& [m, n] : std::vector<std::pair<Index, Index>>{{0, 0}, {0, 3}, {3, 0}, {3, 3}}) {
                SCOPED_TRACE(testing::Message() << name(symm) << " " << m << " by " << n << (real ? " real" : " complex"));
                const Sparse E = randomSparse(m, n, 0, real, symm, 1), F = randomSparse(n, 2, 0, true, symm, 1);
                const auto sizes = [](const Sparse& A) { return std::pair(A.getM(), A.getN()); };
                const auto size = std::pair(m, n);
                Array<int, 1> none;
                Sparse A = E;
                EXPECT_EQ(sizes(E + E), size);
                EXPECT_EQ(sizes(E - E), size);
                EXPECT_EQ(sizes(-E), size);
                EXPECT_EQ(sizes(E * cplx(2, 1)), size);
                EXPECT_EQ(sizes(E * F), std::pair(m, 2ul));
                EXPECT_EQ(sizes(mul(E, F, Trans)), std::pair(2ul, m));
                EXPECT_EQ(sizes(transpose(E, ConjTrans)), symm == RowStored ? std::pair(n, m) : std::pair(n, m));
                EXPECT_EQ(sizes(hcat(E, E, false)), std::pair(m, 2 * n));
                EXPECT_EQ(sizes(vcat(E, E, false)), std::pair(2 * m, n));
                EXPECT_EQ(sizes(subMatrix(E, none, none)), std::pair(0ul, 0ul));
                EXPECT_EQ(sizes(convertToRow(E)), size);
                EXPECT_EQ(sizes(convertToCol(E)), size);
                A.addMat(2.0, E, true), A.format(FormSortedDiag, false), A.removeDuplicates(), A.truncateCols(0.5);
                A.truncateCols(0.0), A.conjugate(), A.scale(2.0);
                A.colscale(Matrix<1>(n, true)), A.rowscaleInv(Matrix<1>(m, true));
                EXPECT_EQ(sizes(A), size);
                EXPECT_EQ(A.isSymmetric(0.0, Trans), m == n && symm == Unsymmetric);
                EXPECT_TRUE(A.isEqual(A, 0.0, NoTrans));
                A.zeroCols(std::vector<int>(n + 1, 1).data());
                EXPECT_EQ(sizes(A), size);
                A.removeZeroCols();
                EXPECT_EQ(sizes(A), std::pair(m, 0ul));
                A = E;
                A.setSymm(m == n ? Symmetric : symm);
                A.uniqueSymmetric();
                EXPECT_EQ(sizes(sparse2tril(A)), size);
                A = E;
                A.hcat({}, 5), A.vcat({shared(randomSparse(0, 0, 0, real, symm, 1))}, 5); // an empty total leaves the matrix
                EXPECT_EQ(sizes(A), size);
                EXPECT_EQ((E * Matrix<1>(n, true)).size(), m);
                EXPECT_EQ(AMulx(E, Matrix<1>(m, false), ConjTrans).size(), n);
                EXPECT_FALSE(A.posDiag());
                std::ostringstream text;
                text << E;
                EXPECT_NE(text.str().find("Nnz = 0."), std::string::npos);
                A.setElem(1, 2, 5.0); // grows from nothing
                EXPECT_EQ(A.getNnz(), 1u);
                EXPECT_EQ(sizes(A), std::pair(std::max(m, 2ul), std::max(n, 3ul)));
            }
}

// --- NaN -----------------------------------------------------------------------------------------------------------

namespace {

/// Elements that are NaN.
std::vector<std::pair<Index, Index>> nans(const Dense& a)
{
    std::vector<std::pair<Index, Index>> found;
    for (Index j = 0; j < a.n; ++j)
        for (Index i = 0; i < a.m; ++i)
            if (std::isnan(a(i, j).real()) || std::isnan(a(i, j).imag()))
                found.emplace_back(i, j);
    return found;
}

} // namespace

TEST(SparseNan, TravelsThroughArithmeticToWhereItBelongs)
{
    using Places = std::vector<std::pair<Index, Index>>;
    // A = [1 NaN; 0 2], B = [3 0; 4 5], stored entries only.
    for (bool real : {true, false}) {
        const Sparse A = sparseOf(2, 2, {{0, 0, 1.0}, {0, 1, notANumber}, {1, 1, 2.0}}, real);
        const Sparse B = sparseOf(2, 2, {{0, 0, 3.0}, {1, 0, 4.0}, {1, 1, 5.0}}, real);
        EXPECT_EQ(nans(dense(A + B)), (Places{{0, 1}}));
        EXPECT_EQ(nans(dense(B - A)), (Places{{0, 1}}));
        EXPECT_EQ(nans(dense(A * B)), (Places{{0, 0}, {0, 1}})); // row 0 of A meets both columns of B
        EXPECT_EQ(nans(dense(B * A)), (Places{{0, 1}, {1, 1}}));
        EXPECT_EQ(nans(dense(mul(A, B, Trans))), (Places{{0, 0}, {1, 0}}));
        EXPECT_EQ(nans(dense(transpose(A, ConjTrans))), (Places{{1, 0}}));
        EXPECT_EQ(nans(dense(hcat(A, B, false))), (Places{{0, 1}}));
        Sparse C = B;
        C.addMat(notANumber, B, true);
        EXPECT_EQ(nans(dense(C)), (Places{{0, 0}, {1, 0}, {1, 1}})); // entries, not absent places
        Sparse D = A;
        D.format(FormSortedDiag, true);
        EXPECT_EQ(nans(dense(D)), (Places{{0, 1}}));
        D.removeDuplicates();
        EXPECT_EQ(nans(dense(D)), (Places{{0, 1}}));
        D.truncateCols(0.0);
        EXPECT_EQ(nans(dense(D)), (Places{{0, 1}}));
        EXPECT_FALSE(A.isEqual(A, 1e300, NoTrans));
        Sparse E = A;
        E.setElem(0, 1, 1.0);
        EXPECT_EQ(nans(dense(E)), Places());
    }
}

TEST(SparseNan, InAssemblyStaysWithItsEntry)
{
    Sparse A;
    Matrix<1> vals(4, true);
    vals.set(0, 1.0), vals.set(1, notANumber), vals.set(2, 2.0), vals.set(3, 3.0);
    A.triplet2sparse({0, 1, 1, 0}, {0, 0, 0, 0}, vals, 2, 2);
    ASSERT_EQ(A.getNnz(), 2u);
    EXPECT_EQ(A.getDoubleVal()[0], 4.0);
    EXPECT_TRUE(std::isnan(A.getDoubleVal()[1]));
}

TEST(SparseNan, RequiredQuirkDoesNotExceedASymmetryTolerance)
{
    // A comparison with NaN is never true, so nothing exceeds the limit.
    const Sparse A = sparseOf(2, 2, {{0, 1, notANumber}, {1, 0, 1.0}});
    EXPECT_TRUE(A.isSymmetric(0.0, Trans));
}

TEST(SparseNan, InSummandsReachesBothTriangles)
{
    using Places = std::vector<std::pair<Index, Index>>;
    const Sparse S = sparseOf(2, 2, {{1, 0, notANumber}, {0, 0, 1.0}, {1, 1, 1.0}}, true, Symmetric);
    EXPECT_EQ(nans(dense(S)), (Places{{1, 0}, {0, 1}}));
    EXPECT_EQ(nans(dense(sparse2tril(S))), (Places{{1, 0}, {0, 1}}));
    const Matrix<1> y = S * randomVector(2, true, 1);
    EXPECT_TRUE(std::isnan(y[0].real()) && std::isnan(y[1].real()));
    Sparse G = sparseOf(2, 2, {{1, 0, notANumber}, {0, 1, notANumber}, {0, 0, 1.0}, {1, 1, 1.0}});
    G.makeSymmetric(Trans);
    EXPECT_EQ(nans(dense(G)), (Places{{1, 0}, {0, 1}}));
}

TEST(SparseNan, InAResidualSpreadsAlongTheSweepOnly)
{
    // Unknown 1 is NaN; unknown 2 hangs on it, unknown 0 does not.
    Sparse A = sparseOf(3, 3, {{0, 0, 2.0}, {1, 1, 2.0}, {2, 2, 2.0}, {2, 1, 1.0}});
    A.format(FormSortedDiag, true);
    Matrix<1> r(3, true), x(3, true);
    r.set(0, 1.0), r.set(1, notANumber), r.set(2, 1.0);
    EXPECT_EQ(SORIt(A, r, x, 1.0, false), -1);
    EXPECT_EQ(x[0].real(), -0.5);
    EXPECT_TRUE(std::isnan(x[1].real()) && std::isnan(x[2].real()));

    Matrix<1> s(3, true), z(3, true);
    s.set(1, notANumber);
    EXPECT_EQ(JacobiIts(A, s, z, 1.0), -1);
    EXPECT_EQ(z[0].real(), 0.0);
    EXPECT_TRUE(std::isnan(z[1].real()));
    EXPECT_EQ(z[2].real(), 0.0);
}

// --- Inside a parallel region of the caller -----------------------------------------------------------------------

TEST(SparseRegion, EveryKernelRunsInsideAParallelRegionWithTheBitsThatItHasOutside)
{
    const Index n = 400;
    Sparse A = randomSparse(n, n, 12000, true, Unsymmetric, 1), B = randomSparse(n, n, 12000, false, Unsymmetric, 2);
    A.format(FormSorted, false), B.format(FormSorted, false); // unsorted products alone differ between one thread and more
    Sparse D = randomDominant(n, 12000, true, Symmetric, 3);
    D.format(FormSortedDiag, true);
    const Matrix<1> x0 = randomVector(n, true, 4), r0 = randomVector(n, true, 5);
    std::vector<Index> rows(30000), cols(30000);
    for (Index k = 0; k < rows.size(); ++k)
        rows[k] = (k * 31) % n, cols[k] = k / 100;
    struct Results
    {
        std::vector<Sparse> matrices;
        std::vector<Matrix<1>> vectors;
    };
    const auto work = [&] {
        Results out;
        Sparse T, S = A, P = A;
        T.triplet2sparse(rows, cols, 1.5, n, n);
        S.addMat(2.0, T, true), P.multLeft(T, Trans, true), S.scale(0.5), S.colscale(x0);
        out.matrices = {T, S, P, A + B, A * B, mul(A, B, ConjTrans), transpose(A, Trans)};
        Matrix<1> x = x0, r = r0, y = A * x0, z = x0;
        SORIt(D, r, x, 1.1, false);
        Matrix<1> u = r;
        SORUpdater(D, u, 1.1, true), SORItUpdater(D, y, z, 1.1, true), JacobiIts(D, r0, z, 0.7);
        out.vectors = {x, r, u, y, z, D * x0, AMulx(B, x0, Trans)};
        return out;
    };
    const Threads four(4);
    const Results outside = work();
    constexpr int callers = 3;
    Results inside[callers];
#pragma omp parallel for num_threads(callers) schedule(static, 1)
    for (int t = 0; t < callers; ++t)
        inside[t] = work();
    for (const Results& got : inside) {
        for (std::size_t k = 0; k < outside.matrices.size(); ++k)
            EXPECT_TRUE(sameBits(got.matrices[k], outside.matrices[k])) << "matrix " << k;
        for (std::size_t k = 0; k < outside.vectors.size(); ++k)
            EXPECT_TRUE(sameBits(got.vectors[k], outside.vectors[k])) << "vector " << k;
    }
}

// --- Failures of the work vectors ---------------------------------------------------------------------------------

TEST(ParallelSparseFaults, WorkVectorsThatNoIndexTypeCountsAreInternalErrors)
{
    // The reserve of 1000 elements overflows the count: the array that results does not serve.
    const Sparse tooLong = endless(last - 10, 2);
    ParallelSparse p;
    ParallelSparseData d(p, 0);
    EXPECT_EQ(raised([&] { d.setWorkArray(tooLong, true); }, true), "matrix:Internal_error_matrix");
    EXPECT_TRUE(d.changeWorkArray(Sparse(), true)); // nothing is claimed
    EXPECT_EQ(raised([&] { p.setWorkArray(tooLong, true, 2); }, true), "parallelsparse:Internal_error_sparse_matrix.");
    EXPECT_EQ(raised([&] { p.setWorkArray(endless(1ul << 40, 2), true, 2); }, true),
              "parallelsparse:Out_of_memory_operation_sparse_matrix.");
    p.setWorkArray(sparseOf(3, 3, {}), true, 2); // usable afterwards
    EXPECT_FALSE(p.getData(0).changeWorkArray(sparseOf(3, 3, {}), true));
}

TEST(ParallelSparseFaults, OneThreadNeedsNoWorkVectors)
{
    ParallelSparse p;
    p.setWorkArray(endless(last - 10, 2), true, 1);
    EXPECT_TRUE(p.getData(0).changeWorkArray(sparseOf(3, 3, {}), true));
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Assembly of new values into a known pattern: the bits of assembling anew, and what is refused.

#include "assemblypattern.hpp"
#include "sparse_testing.hpp"

#include "qxrun.hpp"
#include "support/alloc_fault.hpp"

#include <cmath>
#include <limits>
#include <map>
#include <thread>
#include <utility>

using namespace qxtest;
using testing::ElementsAre;

namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();

struct List
{
    std::vector<Index> rows, cols;
    Index m = 0, n = 0;

    std::size_t size() const { return rows.size(); }
    AssemblyPattern pattern() const { return {rows, cols, m, n}; }
};

/// Triplets in runs of one column, so that both ways of assembly are met; rows and columns random.
List randomList(std::size_t count, Index m, Index n, std::size_t run, unsigned seed)
{
    std::mt19937_64 random(seed);
    List list{{}, {}, m, n};
    for (std::size_t k = 0; k < count; ++k) {
        list.rows.push_back(random() % m);
        list.cols.push_back(k % run == 0 ? random() % n : list.cols.back());
    }
    return list;
}

/// Numbers that add up to other bits in another order; now and then a signed zero, a NaN or an infinity.
template <class V>
std::vector<V> randomValues(std::size_t count, unsigned seed)
{
    std::mt19937_64 random(seed);
    const auto number = [&] {
        switch (random() % 64) {
        case 0: return 0.0;
        case 1: return -0.0;
        case 2: return notANumber;
        case 3: return std::numeric_limits<double>::infinity();
        default: return double(random() % 1000) / 7.0 - 50.0;
        }
    };
    std::vector<V> values;
    for (std::size_t k = 0; k < count; ++k)
        if constexpr (std::is_same_v<V, double>)
            values.push_back(number());
        else
            values.push_back({number(), number()});
    return values;
}

/// The slow model: a map from (column, row) to place and sum, in the order of the list.
template <class V>
void expectAssembled(const Sparse& A, const List& list, const std::vector<V>& values, const std::string& where)
{
    std::map<std::pair<Index, Index>, std::pair<Index, V>> wanted;
    std::vector<Index> count(list.n);
    for (std::size_t k = 0; k < list.size(); ++k) {
        const auto [it, isNew] = wanted.try_emplace({list.cols[k], list.rows[k]}, count[list.cols[k]], values[k]);
        if (isNew)
            ++count[list.cols[k]];
        else
            it->second.second += values[k];
    }
    ASSERT_EQ(A.isReal(), (std::is_same_v<V, double>)) << where;
    ASSERT_EQ(A.getNnz(), wanted.size()) << where;
    ASSERT_EQ(A.getSymm(), Unsymmetric) << where;
    ASSERT_EQ(A.getForm(), FormNone) << where;
    const V* val = nullptr;
    if constexpr (std::is_same_v<V, double>)
        val = A.getDoubleVal();
    else
        val = A.getDcmplxVal();
    for (const auto& [key, place] : wanted) {
        const Index p = A.getColPtr()[key.first] + place.first;
        ASSERT_EQ(A.getRow()[p], key.second) << where << ", column " << key.first;
        ASSERT_EQ(std::memcmp(&val[p], &place.second, sizeof(V)), 0)
            << where << ": entry (" << key.second << ", " << key.first << ") is " << val[p] << ", wanted " << place.second;
    }
}

template <class V>
Sparse anew(const List& list, const std::vector<V>& values)
{
    Sparse A;
    A.triplet2sparse(list.rows, list.cols, values, list.m, list.n);
    return A;
}

} // namespace

TEST(AssemblyPattern, AssemblesInTheOrderOfFirstAppearanceAndKeepsSumsThatCancel)
{
    const List list{{2, 0, 1, 0, 2}, {0, 1, 0, 0, 0}, 3, 2};
    const AssemblyPattern pattern = list.pattern();

    Sparse A;
    pattern.assemble(std::vector<double>{1, 2, 3, 0, -1}, A);

    EXPECT_EQ(pattern.getM(), 3u);
    EXPECT_EQ(pattern.getN(), 2u);
    EXPECT_EQ(pattern.getNnz(), 4u);
    EXPECT_EQ(pattern.getCount(), 5u);
    EXPECT_THAT(std::vector<Index>(A.getColPtr(), A.getColPtr() + 3), ElementsAre(0, 3, 4));
    EXPECT_THAT(std::vector<Index>(A.getRow(), A.getRow() + 4), ElementsAre(2, 1, 0, 0));
    EXPECT_THAT(std::vector<double>(A.getDoubleVal(), A.getDoubleVal() + 4), ElementsAre(0.0, 3.0, 0.0, 2.0));
}

TEST(AssemblyPattern, SignedZerosAndNaNComeOutAsFromAssemblingAnew)
{
    const List list{{0, 1, 1, 2, 2}, {0, 0, 0, 0, 0}, 3, 1};
    const std::vector<double> values = {-0.0, -0.0, 0.0, notANumber, 1.0};

    Sparse A;
    list.pattern().assemble(values, A);

    EXPECT_TRUE(std::signbit(A.getDoubleVal()[0])); // alone: as it came
    EXPECT_FALSE(std::signbit(A.getDoubleVal()[1])); // -0 + 0 = +0
    EXPECT_TRUE(std::isnan(A.getDoubleVal()[2]));
    EXPECT_TRUE(sameBits(A, anew(list, values)));
}

TEST(AssemblyPattern, RandomSequencesOfAssembliesAgreeWithAMapOfRowsAndColumns)
{
    // A handful of matrices, filled again and again by two patterns, real and complex, and changed in between.
    for (const std::size_t run : {1, 40})
        for (const int madeWith : {1, 2, 7}) {
            std::mt19937_64 random(5);
            const Threads some(madeWith);
            const List lists[] = {randomList(12000, 60, 70, run, 1), randomList(15000, 90, 2000, run, 2)};
            const AssemblyPattern patterns[] = {lists[0].pattern(), lists[1].pattern()};
            std::vector<Sparse> matrices(3);
            for (unsigned step = 0; step < 25; ++step) {
                const Threads now(int(1 + random() % 3));
                Sparse& A = matrices[random() % matrices.size()];
                const std::size_t which = random() % 2;
                const List& list = lists[which];
                const std::string where = "step " + std::to_string(step);
                switch (random() % 8) {
                case 0: A.setElem(1, 1, 5.0); break; // another structure
                case 1: A.format(FormSorted, false); break;
                case 2: A.setSymm(RowStored); break;
                case 3: A.scale(2.0); break;
                case 4: A = matrices[random() % matrices.size()]; break;
                case 5: A.real2complex(); break;
                default: break;
                }
                if (random() % 3 != 0) {
                    const std::vector<double> values = randomValues<double>(list.size(), step);
                    patterns[which].assemble(values, A);
                    expectAssembled(A, list, values, where);
                } else {
                    const std::vector<cplx> values = randomValues<cplx>(list.size(), step);
                    patterns[which].assemble(values, A);
                    expectAssembled(A, list, values, where);
                }
                if (HasFatalFailure())
                    return;
            }
        }
}

TEST(AssemblyPattern, SameBitsForAnyNumberOfThreads)
{
    for (const std::size_t run : {1, 64})
        for (const int madeWith : {1, 2, 5}) {
            const List list = randomList(60000, 500, 700, run, 3);
            const std::vector<cplx> values = randomValues<cplx>(list.size(), 4);
            const Sparse wanted = [&] { const Threads one(1); return anew(list, values); }();
            const AssemblyPattern pattern = [&] { const Threads some(madeWith); return list.pattern(); }();
            for (const int threads : {1, 2, 3, 16}) {
                const Threads some(threads);
                Sparse A;
                for (int time = 0; time < 2; ++time) {
                    pattern.assemble(values, A);
                    EXPECT_TRUE(sameBits(A, wanted)) << "made with " << madeWith << ", " << threads << " threads";
                }
            }
        }
}

TEST(AssemblyPattern, OneNumberServesEveryTriplet)
{
    const List list = randomList(5000, 30, 40, 1, 5);
    Sparse A, B, wantedA, wantedB;
    wantedA.triplet2sparse(list.rows, list.cols, 0.1, list.m, list.n);
    wantedB.triplet2sparse(list.rows, list.cols, cplx(0.1, -0.7), list.m, list.n);

    list.pattern().assemble(0.1, A);
    list.pattern().assemble(cplx(0.1, -0.7), B);

    EXPECT_TRUE(sameBits(A, wantedA));
    EXPECT_TRUE(sameBits(B, wantedB));
}

TEST(AssemblyPattern, TakesMatricesOfValues)
{
    const List list = randomList(300, 10, 12, 1, 6);
    for (const bool real : {true, false}) {
        const Matrix<1> values = randomVector(list.size(), real, 7);
        Array<Index, 1> rows(list.size()), cols(list.size());
        std::copy(list.rows.begin(), list.rows.end(), rows.data());
        std::copy(list.cols.begin(), list.cols.end(), cols.data());
        Sparse A, wanted;
        wanted.triplet2sparse(rows, cols, values, list.m, list.n);

        list.pattern().assemble(values, A);

        EXPECT_TRUE(sameBits(A, wanted));
    }
}

TEST(AssemblyPattern, FillsAMatrixOfItsOwnInPlaceAndKeepsTheStructureVersion)
{
    const List list = randomList(40000, 300, 300, 30, 8);
    const AssemblyPattern pattern = list.pattern();
    for (const int threads : {1, 2}) {
        const Threads some(threads);
        Sparse A, B;
        pattern.assemble(randomValues<double>(list.size(), 1), A);
        pattern.assemble(randomValues<double>(list.size(), 2), B);
        const auto version = A.getRowColptrVersion();
        const double* val = A.getDoubleVal();
        const std::vector<double> values = randomValues<double>(list.size(), 3);

        const long before = allocationCount();
        pattern.assemble(values, A);
        const long allocations = allocationCount() - before;

        if (threads == 1) {
            EXPECT_EQ(allocations, 0);
        }
        EXPECT_EQ(A.getDoubleVal(), val);
        EXPECT_EQ(A.getRowColptrVersion(), version);
        EXPECT_EQ(B.getRowColptrVersion(), version); // the same structure
        expectAssembled(A, list, values, "in place");
    }
    Sparse Z;
    pattern.assemble(cplx(1, 1), Z);
    EXPECT_LT(Z.getRowColptrVersion(), 0);
}

TEST(AssemblyPattern, ProductsSeeTheNewValues)
{
    // Products keep a block structure and 32-bit indices by structure version: it stays, the values do not.
    const List list = randomList(40000, 300, 300, 30, 9);
    const AssemblyPattern pattern = list.pattern();
    const Matrix<1> x = randomVector(300, true, 1);
    const Threads two(2);
    Sparse A;
    pattern.assemble(1.0, A);
    const Matrix<1> unused = A * x;
    std::vector<double> values(list.size());
    for (std::size_t k = 0; k < values.size(); ++k)
        values[k] = std::sin(double(k));

    pattern.assemble(values, A);

    EXPECT_TRUE(sameBits(A * x, anew(list, values) * x));
}

TEST(AssemblyPattern, LeavesHandlesThatShareTheStoreAsTheyWere)
{
    const List list{{0, 1}, {0, 0}, 2, 1};
    const AssemblyPattern pattern = list.pattern();
    Sparse A;
    pattern.assemble(std::vector<double>{1, 2}, A);
    const Sparse copy = A;

    pattern.assemble(std::vector<double>{3, 4}, A);

    EXPECT_THAT(std::vector<double>(copy.getDoubleVal(), copy.getDoubleVal() + 2), ElementsAre(1.0, 2.0));
    EXPECT_THAT(std::vector<double>(A.getDoubleVal(), A.getDoubleVal() + 2), ElementsAre(3.0, 4.0));
}

TEST(AssemblyPattern, RefusesAListOfAnotherLengthBeforeAnythingChanges)
{
    const List list{{0, 1, 0}, {0, 0, 1}, 2, 2};
    const AssemblyPattern pattern = list.pattern();
    Sparse A;
    pattern.assemble(std::vector<double>{1, 2, 3}, A);
    const Sparse before = anew(list, std::vector<double>{1, 2, 3});

    const std::vector<double> two(2), four(4);
    const std::vector<Index> ones(4, 1);
    EXPECT_EQ(raised([&] { pattern.assemble(two, A); }, true), "sparse:Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([&] { pattern.assemble(four, A); }), "Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([&] { pattern.assemble(std::vector<cplx>(2), A); }), "Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([&] { pattern.assemble(list.rows, list.cols, two, A); }), "Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([&] { pattern.assemble(ones, ones, four, A); }), "Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([&] { pattern.assemble(list.rows, ones, std::vector<double>(3), A); }),
              "Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([&] { pattern.assemble(two.data(), 2, true, A); }), "Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([] { AssemblyPattern({0, 1}, {0}, 2, 2); }, true), "sparse:Length_triplet_vectors_disagree");
    EXPECT_TRUE(sameBits(A, before));
}

TEST(AssemblyPattern, RefusesOtherIndicesBeforeAnythingChanges)
{
    const List list = randomList(30000, 200, 250, 1, 10);
    const AssemblyPattern pattern = list.pattern();
    const std::vector<double> values = randomValues<double>(list.size(), 1), others(list.size(), 9.0);
    Sparse A;
    pattern.assemble(list.rows, list.cols, values, A);
    const Sparse before = anew(list, values);
    ASSERT_TRUE(sameBits(A, before));

    for (const int threads : {1, 2})
        for (const std::size_t at : {std::size_t{0}, list.size() / 2, list.size() - 1}) {
            const Threads some(threads);
            for (const Index bad : {Index{201}, ~Index{0}, Index{1} << 32}) {
                List other = list;
                other.rows[at] = bad;
                EXPECT_EQ(raised([&] { pattern.assemble(other.rows, other.cols, others, A); }, true),
                          "sparse:Indices_assembly_pattern_disagree");
            }
            List other = list;
            other.cols[at] = (list.cols[at] + 1) % list.n; // of the pattern, elsewhere
            EXPECT_EQ(raised([&] { pattern.assemble(other.rows, other.cols, std::vector<cplx>(list.size()), A); }),
                      "Indices_assembly_pattern_disagree");
            other.cols[at] = ~Index{0};
            try {
                pattern.checkIndices(other.rows.data(), other.size(), other.cols.data(), other.size());
                ADD_FAILURE() << "nothing raised";
            } catch (const qxbase::Exception& e) {
                EXPECT_NE(e.toString().find(std::to_string(at)), std::string::npos) << e.toString();
                EXPECT_NE(e.toString().find(std::to_string(~Index{0})), std::string::npos) << e.toString();
            }
        }
    EXPECT_TRUE(sameBits(A, before));
}

TEST(AssemblyPattern, TwoTripletsThatChangePlacesAreOtherIndices)
{
    // The sum would have other bits: the order of a list is part of it.
    const AssemblyPattern pattern({0, 1}, {0, 0}, 2, 1);

    EXPECT_EQ(raised([&] { Sparse A; pattern.assemble({1, 0}, {0, 0}, std::vector<double>{1, 2}, A); }),
              "Indices_assembly_pattern_disagree");
}

TEST(AssemblyPattern, EmptyListsAndMatricesWithoutRowsOrColumns)
{
    Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
    AssemblyPattern().assemble(std::vector<double>(), A);
    EXPECT_EQ(A.getM() + A.getN() + A.getNnz(), 0u);

    AssemblyPattern({}, {}, 3, 2).assemble(std::vector<double>(), A);
    EXPECT_TRUE(sameBits(A, anew(List{{}, {}, 3, 2}, std::vector<double>())));

    for (const auto& [m, n] : {std::pair(0ul, 3ul), std::pair(3ul, 0ul), std::pair(0ul, 0ul)}) {
        const List list{{0, 1}, {0, 1}, m, n};
        const AssemblyPattern pattern = list.pattern();
        for (int time = 0; time < 2; ++time) {
            pattern.assemble(std::vector<double>{1, 2}, A);
            EXPECT_TRUE(sameBits(A, anew(list, std::vector<double>{1, 2}))) << m << " by " << n;
        }
        EXPECT_EQ(raised([&] { pattern.assemble(std::vector<double>(1), A); }), "Length_triplet_vectors_disagree");
        EXPECT_EQ(raised([&] { pattern.assemble(list.rows, list.cols, std::vector<double>(2), A); }), "");
    }
}

TEST(AssemblyPattern, FewTripletsInManyRows)
{
    const Index m = 4000000000;
    const List list{{m - 1, 5, m - 1, 0, 5}, {0, 0, 0, 2, 1}, m, 3};
    const std::vector<double> values = {1, 2, 4, 8, 16};
    Sparse A;

    list.pattern().assemble(values, A);

    EXPECT_TRUE(sameBits(A, anew(list, values)));
}

TEST(AssemblyPattern, RefusesIndicesOutOfRangeAndTooManyTriplets)
{
    const Index none = 0;
    EXPECT_EQ(raised([] { AssemblyPattern({2}, {0}, 2, 2); }, true), "sparse:Internal_error_sparse");
    EXPECT_EQ(raised([] { AssemblyPattern({0}, {2}, 2, 2); }, true), "sparse:Internal_error_sparse");
    EXPECT_EQ(raised([&] { AssemblyPattern(&none, 4009617632, &none, 4009617632, 1, 1); }, true),
              "sparse:Size_input_vector_too_large");
}

TEST(AssemblyPattern, FailedAllocationsLeavePatternAndMatrixAsTheyWere)
{
    const List list = randomList(10500, 50, 60, 7, 11);
    const std::vector<double> first = randomValues<double>(list.size(), 1), second = randomValues<double>(list.size(), 2);
    for (const int threads : {1, 2}) {
        const Threads some(threads);
        AssemblyPattern pattern = list.pattern();
        const long making = failEveryAllocation(
            [&] { pattern = AssemblyPattern(list.rows.data(), list.size(), list.cols.data(), list.size(), 50, 60); },
            [&](const FaultRun& run) {
                EXPECT_FALSE(run.badAlloc) << run.n;
                if (run.faulted && !run.id.empty()) { // trimming a list does without
                    EXPECT_EQ(run.id, "Out_of_memory_creating_sparse_matrix") << run.n;
                    EXPECT_EQ(run.leaked, 0) << run.n;
                }
                Sparse A;
                pattern.assemble(first, A);
                expectAssembled(A, list, first, "making, allocation " + std::to_string(run.n));
            });
        EXPECT_GT(making, 5);

        Sparse A = anew(list, first); // of the same structure, but not filled by the pattern: a new store
        const long filling = failEveryAllocation([&] { pattern.assemble(second, A); }, [&](const FaultRun& run) {
            EXPECT_FALSE(run.badAlloc) << run.n;
            if (run.faulted) {
                EXPECT_EQ(run.id, "Out_of_memory_creating_sparse_matrix") << run.n;
                EXPECT_EQ(run.leaked, 0) << run.n;
                expectAssembled(A, list, first, "filling, allocation " + std::to_string(run.n));
            }
        });
        EXPECT_GT(filling, 3);
        expectAssembled(A, list, second, "filled at last");
    }
}

TEST(AssemblyPattern, HeedsTheRunThatItIsGiven)
{
    const List list = randomList(20000, 50, 60, 7, 12);
    qxutil::RunInfo run;
    run.cancel();
    EXPECT_THROW(AssemblyPattern(list.rows.data(), list.size(), list.cols.data(), list.size(), 50, 60, &run),
                 qxbase::CancelException);
    run.cancel(false);
    EXPECT_EQ(AssemblyPattern(list.rows.data(), list.size(), list.cols.data(), list.size(), 50, 60, &run).getCount(),
              list.size());
}

TEST(AssemblyPattern, ServesManyThreadsAtOnce)
{
    const List list = randomList(20000, 50, 60, 7, 13);
    const AssemblyPattern pattern = list.pattern();
    std::vector<Sparse> matrices(4);
    {
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < matrices.size(); ++t)
            threads.emplace_back([&, t] {
                for (unsigned time = 0; time < 5; ++time)
                    pattern.assemble(randomValues<double>(list.size(), t), matrices[t]);
            });
        for (std::thread& t : threads)
            t.join();
    }
    for (unsigned t = 0; t < matrices.size(); ++t)
        expectAssembled(matrices[t], list, randomValues<double>(list.size(), t), "thread " + std::to_string(t));
}

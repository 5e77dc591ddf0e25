// SPDX-License-Identifier: LicenseRef-qxkernel
// Construction and assembly: llsparse constructors, versions, triplet2sparse, flat2sparse.

#include "sparse_testing.hpp"

#include "support/alloc_fault.hpp"

#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <numeric>
#include <type_traits>

using namespace qxtest;
using testing::ElementsAre;

namespace {

std::vector<Index> offsets(const Sparse& A)
{
    const Index columns = A.getSymm() == RowStored ? A.getM() : A.getN();
    return {A.getColPtr(), A.getColPtr() + columns + 1};
}
std::vector<Index> rowsOf(const Sparse& A) { return {A.getRow(), A.getRow() + A.getNnz()}; }
std::vector<double> values(const Sparse& A) { return {A.getDoubleVal(), A.getDoubleVal() + A.getNnz()}; }

Sparse assembled(const std::vector<Index>& r, const std::vector<Index>& c, const std::vector<double>& v, Index m, Index n)
{
    Sparse A;
    A.triplet2sparse(r, c, v, m, n);
    return A;
}

} // namespace

TEST(LlsparseStore, EyeOfTwoByThreeHasTwoEntries)
{
    const Sparse A = Sparse().eye(2, 3);

    EXPECT_THAT(offsets(A), ElementsAre(0, 1, 2, 2));
    EXPECT_THAT(rowsOf(A), ElementsAre(0, 1));
    EXPECT_THAT(values(A), ElementsAre(1.0, 1.0));
    EXPECT_EQ(A.getForm(), FormSorted);
}

TEST(LlsparseStore, DefaultHasNoArraysButAVersion)
{
    const llsparse<double> s;

    EXPECT_EQ(s.colPtr, nullptr);
    EXPECT_EQ(s.row, nullptr);
    EXPECT_EQ(s.val, nullptr);
    EXPECT_EQ(s.nnz(), 0u);
    EXPECT_GT(s.rowColptrVersion, 0);
}

TEST(LlsparseStore, RequiredQuirkRealVersionsArePositiveAndComplexOnesNegative)
{
    const llsparse<double> a(2, 2, 0), b(a);
    const llsparse<cplx> c(2, 2, 0), d(c);

    EXPECT_GT(a.rowColptrVersion, 0);
    EXPECT_GT(b.rowColptrVersion, a.rowColptrVersion); // a copy takes a new one
    EXPECT_LT(c.rowColptrVersion, 0);
    EXPECT_LT(d.rowColptrVersion, c.rowColptrVersion);
}

TEST(LlsparseStore, CopyTrimsTheCapacityToTheEntries)
{
    llsparse<double> s(3, 3, 10);
    s.setElem(1, 1, 4.0);

    const llsparse<double> copy(s);

    EXPECT_EQ(s.nzmax, 10u);
    EXPECT_EQ(copy.nzmax, 1u);
    EXPECT_EQ(copy.val[0], 4.0);
    EXPECT_NE(copy.val, s.val);
}

TEST(LlsparseStore, CopyKeepsAValidDiagonalForm)
{
    Sparse A = sparseOf(2, 2, {{1, 0, 5.0}, {0, 0, 3.0}, {1, 1, 4.0}});
    A.format(FormSortedDiag, true);

    const llsparse<double> copy(*A.getptrD());

    EXPECT_EQ(copy.form, FormSortedDiag);
    EXPECT_EQ(copy.diag[0], 0u);
    EXPECT_EQ(copy.diag[1], 2u);
}

TEST(LlsparseStore, WideningHandsTheIndexArraysOfAnUnsharedSourceOver)
{
    llsparse<double> source(2, 2, 4);
    source.setElem(1, 0, 7.0);
    const Index* rows = source.row;
    llsparse<cplx> target;

    llsp_real2complex(source, target, 1);

    EXPECT_EQ(target.row, rows);
    EXPECT_EQ(target.val[0], cplx(7.0, 0.0));
    EXPECT_EQ(target.nzmax, 4u);
    EXPECT_LT(target.rowColptrVersion, 0);
    EXPECT_EQ(source.row, nullptr);
    EXPECT_EQ(source.nnz(), 0u);
}

TEST(LlsparseStore, WideningCopiesTheIndexArraysOfASharedSource)
{
    llsparse<double> source(2, 2, 4);
    source.setElem(1, 0, 7.0);
    llsparse<cplx> target;

    llsp_real2complex(source, target, 2);

    EXPECT_NE(target.row, source.row);
    EXPECT_EQ(target.row[0], 1u);
    EXPECT_EQ(source.val[0], 7.0);
}

TEST(LlsparseHash, SizeIsTheFirstPrimeNotBelowTheLoadLimit)
{
    EXPECT_EQ(llsp_hashsize(0), 0u);
    EXPECT_EQ(llsp_hashsize(1), 3u); // never the first entry of the table
    EXPECT_EQ(llsp_hashsize(2), 3u);
    EXPECT_EQ(llsp_hashsize(3), 5u);
}

TEST(LlsparseHash, TableAscendsByATenthThrough206PrimesTo4009617631)
{
    const auto isPrime = [](Index n) {
        for (Index d = 2; d * d <= n; ++d)
            if (n % d == 0)
                return false;
        return true;
    };
    std::vector<Index> primes = {2}; // the first is never returned
    for (Index size = 3;;) {
        primes.push_back(size);
        if (size == 4009617631)
            break;
        // the smallest length whose table is larger
        Index lo = 1, hi = 4009617631;
        while (lo < hi) {
            const Index mid = (lo + hi) / 2;
            llsp_hashsize(mid) > size ? hi = mid : lo = mid + 1;
        }
        size = llsp_hashsize(lo);
    }

    EXPECT_THAT(std::vector<Index>(primes.begin(), primes.begin() + 11),
                ElementsAre(2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 37));
    EXPECT_EQ(primes.size(), 206u);
    EXPECT_THAT(std::vector<Index>(primes.end() - 3, primes.end()), ElementsAre(3313733573, 3645106919, 4009617631));
    for (std::size_t k = 0; k < primes.size(); ++k) {
        EXPECT_TRUE(isPrime(primes[k])) << primes[k];
        if (k > 0 && primes[k - 1] > 200) {
            EXPECT_LE(double(primes[k]) / double(primes[k - 1]), 1.16);
        }
    }
    for (Index len : {1ul, 2ul, 100ul, 12345ul, 2000000000ul})
        EXPECT_GT(llsp_hashsize(len), len);
}

TEST(LlsparseHash, SecondModulusIsCapped)
{
    EXPECT_EQ(llsp_hash2nd(285349622), 285349621u);
    EXPECT_EQ(llsp_hash2nd(285349621), 285349619u);
    EXPECT_EQ(llsp_hash2nd(11), 9u);
}

TEST(Triplet2sparse, EmptyListGivesAnEmptyMatrix)
{
    const Sparse A = assembled({}, {}, {}, 3, 2);

    EXPECT_THAT(offsets(A), ElementsAre(0, 0, 0));
    EXPECT_EQ(A.getNzmax(), 0u);
    EXPECT_EQ(A.getForm(), FormNone);
}

TEST(Triplet2sparse, MatrixWithoutRowsOrColumnsTakesNoEntries)
{
    for (auto [m, n] : {std::pair(0ul, 3ul), std::pair(3ul, 0ul), std::pair(0ul, 0ul)}) {
        const Sparse A = assembled({0, 1}, {0, 1}, {1.0, 2.0}, m, n);

        EXPECT_EQ(A.getM(), m);
        EXPECT_EQ(A.getN(), n);
        EXPECT_EQ(A.getNzmax(), 0u);
        EXPECT_EQ(A.getRow(), nullptr);
        EXPECT_EQ(A.getDoubleVal(), nullptr);
    }
}

TEST(Triplet2sparse, RequiredQuirkDuplicatesCancelToAnExplicitZero)
{
    const Sparse A = assembled({1, 1, 1}, {0, 0, 0}, {1.0, 2.0, -3.0}, 2, 1);

    EXPECT_EQ(A.getNnz(), 1u);
    EXPECT_EQ(A.getDoubleVal()[0], 0.0);
}

TEST(Triplet2sparse, RequiredQuirkEntriesStandInTheOrderOfFirstAppearance)
{
    const Sparse A = assembled({2, 0, 1, 0, 2}, {0, 1, 0, 0, 0}, {1, 2, 3, 4, 5}, 3, 2);

    EXPECT_THAT(offsets(A), ElementsAre(0, 3, 4));
    EXPECT_THAT(rowsOf(A), ElementsAre(2, 1, 0, 0));
    EXPECT_THAT(values(A), ElementsAre(6, 3, 4, 2));
    EXPECT_EQ(A.getForm(), FormNone);
}

TEST(Triplet2sparse, OneNumberServesEveryTriplet)
{
    Sparse A;
    A.triplet2sparse(std::vector<Index>{0, 1, 0}, std::vector<Index>{0, 0, 0}, 2.5, 2, 1);

    EXPECT_THAT(values(A), ElementsAre(5.0, 2.5));
}

TEST(Triplet2sparse, TakesArraysAndComplexValues)
{
    Array<Index, 1> r(2), c(2);
    r[0] = 1, r[1] = 0, c[0] = 0, c[1] = 1;
    Matrix<1> v(2, false);
    v.set(0, {1, 2});
    v.set(1, {3, 0});

    Sparse A, B;
    A.triplet2sparse(r, c, v, 2, 2);
    B.triplet2sparse(r, c, cplx(0, 1), 2, 2);

    EXPECT_FALSE(A.isReal());
    EXPECT_TRUE(near(dense(A), {{0, 3}, {cplx(1, 2), 0}}, 0));
    EXPECT_TRUE(near(dense(B), {{0, cplx(0, 1)}, {cplx(0, 1), 0}}, 0));
}

TEST(Triplet2sparse, AMillionTripletsAgreeWithAMapOfRowsAndColumns)
{
    // Independent: sums in a std::map, places by the order of first appearance. Columns all over, and in runs as element
    // matrices have them: the two are read in different ways.
    for (Index run : {1ul, 50ul}) {
        std::mt19937_64 random(7);
        const Index len = 1000000, m = 997, n = 1009;
        std::vector<Index> r(len), c(len);
        std::vector<double> v(len);
        std::map<std::pair<Index, Index>, std::pair<Index, double>> wanted; // (col, row) -> (place in column, sum)
        std::vector<Index> count(n);
        for (Index k = 0; k < len; ++k) {
            r[k] = random() % m;
            c[k] = k % run == 0 ? random() % n : c[k - 1];
            v[k] = double(random() % 1000) / 7.0;
            auto [it, isNew] = wanted.try_emplace({c[k], r[k]}, count[c[k]], v[k]);
            if (isNew)
                ++count[c[k]];
            else
                it->second.second += v[k];
        }

        const Sparse A = assembled(r, c, v, m, n);

        ASSERT_EQ(A.getNnz(), wanted.size());
        for (const auto& [key, place] : wanted) {
            const Index p = A.getColPtr()[key.first] + place.first;
            ASSERT_EQ(A.getRow()[p], key.second);
            ASSERT_EQ(A.getDoubleVal()[p], place.second); // same additions in the same order: same bits
        }
    }
}

TEST(Triplet2sparse, DoesNotConfuseIndicesWhoseProductExceeds32Bits)
{
    const Index n = 70000;
    // 70000 * 61356 + 47296 = 2^32: keys formed in 32 bits coincide for (0, 0) and (47296, 61356).
    const Sparse A = assembled({0, 47296, 0, 47296}, {0, 61356, 1, 61356}, {1, 2, 3, 4}, n, n);

    EXPECT_EQ(A.getNnz(), 3u);
    EXPECT_EQ(A.getColPtr()[61357] - A.getColPtr()[61356], 1u);
    EXPECT_EQ(A.getDoubleVal()[2], 6.0);
}

TEST(Triplet2sparse, SameBitsForAnyNumberOfThreads)
{
    for (const auto& [m, n] : {std::pair(500ul, 700ul), std::pair(3ul, 70000ul), std::pair(70000ul, 2ul)}) {
        std::mt19937_64 random(11);
        const Index len = 60000;
        std::vector<Index> r(len), c(len);
        std::vector<double> v(len);
        for (Index k = 0; k < len; ++k) {
            r[k] = random() % m;
            c[k] = random() % n;
            v[k] = double(random() % 1000) / 7.0;
        }
        for (Index run : {1ul, 60ul}) {
            for (Index k = 0; k < len; ++k)
                c[k] = c[k - k % run];
            const Sparse serial = [&, m = m, n = n] { Threads one(1); return assembled(r, c, v, m, n); }();
            for (int threads : {2, 3, 7, 16}) {
                Threads some(threads);
                EXPECT_TRUE(sameBits(assembled(r, c, v, m, n), serial)) << threads << " threads, runs of " << run;
            }
        }
    }
}

TEST(Triplet2sparse, RefusesListsOfDifferentLengths)
{
    EXPECT_EQ(raised([] { assembled({0, 1, 0}, {0, 1, 1}, {1.0, 2.0}, 2, 2); }, true),
              "sparse:Length_triplet_vectors_disagree");
    EXPECT_EQ(raised([] { assembled({0, 1, 0}, {0, 1}, {1.0, 2.0, 3.0}, 2, 2); }),
              "Length_triplet_vectors_disagree");
}

TEST(Triplet2sparse, RefusesIndicesOutOfRangeAndLeavesTheMatrixAsItWas)
{
    Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
    const Sparse before = A;

    EXPECT_EQ(raised([&] { A.triplet2sparse(std::vector<Index>{2}, std::vector<Index>{0}, 1.0, 2, 2); }, true),
              "sparse:Internal_error_sparse");
    EXPECT_EQ(raised([&] { A.triplet2sparse(std::vector<Index>{0}, std::vector<Index>{2}, 1.0, 2, 2); }),
              "Internal_error_sparse");
    EXPECT_EQ(A.getptrD(), before.getptrD());
}

namespace {

/// Lists whose columns come in each of the orders that assembly treats in a way of its own.
struct Columns
{
    std::string name;
    Index m, n;
    std::function<Index(Index k, std::mt19937_64& random)> of;
};
const std::vector<Columns> columnOrders = {
    {"runs of one column", 300, 500, [](Index k, std::mt19937_64&) { return k / 60 % 500; }},
    {"four cursors", 40, 3000, [](Index k, std::mt19937_64&) { return (k % 4 * 750 + k / 80) % 3000; }},
    {"all over a small matrix", 50, 600, [](Index, std::mt19937_64& random) { return random() % 600; }},
    {"all over a large matrix", 9, 600000, [](Index k, std::mt19937_64& random) { return k % 3 == 0 ? 599999 : random() % 600000; }},
    {"one column", 700, 1, [](Index, std::mt19937_64&) { return 0; }}};

template <class V>
V anyValue(std::mt19937_64& random)
{
    const auto number = [&] {
        const double special[] = {0.0, -0.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()};
        const auto pick = random() % 50;
        return pick < std::size(special) ? special[pick] : double(random() % 1000) / 7.0 - 70.0;
    };
    if constexpr (std::is_same_v<V, double>)
        return number();
    else
        return {number(), number()};
}

/// The slow model: places by first appearance, sums in the order of the list, bit for bit.
template <class V>
void expectAssembled(const Sparse& A, const V* val, const std::vector<Index>& rows, const std::vector<Index>& cols,
                     const std::vector<V>& values, const std::string& where)
{
    std::map<std::pair<Index, Index>, std::pair<Index, V>> wanted; // (col, row) -> (place in column, sum)
    std::map<Index, Index> count;
    for (Index k = 0; k < rows.size(); ++k) {
        const auto [it, isNew] = wanted.try_emplace({cols[k], rows[k]}, count[cols[k]], values[k]);
        if (isNew)
            ++count[cols[k]];
        else
            it->second.second += values[k];
    }
    ASSERT_EQ(A.getNnz(), wanted.size()) << where;
    ASSERT_EQ(A.getNzmax(), wanted.size()) << where;
    for (const auto& [key, place] : wanted) {
        const Index p = A.getColPtr()[key.first] + place.first;
        ASSERT_LT(p, A.getColPtr()[key.first + 1]) << where;
        ASSERT_EQ(A.getRow()[p], key.second) << where << ", column " << key.first;
        ASSERT_EQ(std::memcmp(&val[p], &place.second, sizeof(V)), 0)
            << where << ": (" << key.second << ", " << key.first << ") is " << val[p] << ", wanted " << place.second;
    }
}

} // namespace

TEST(Triplet2sparse, EveryOrderOfColumnsAgreesWithAMapOfRowsAndColumns)
{
    for (const Columns& columns : columnOrders)
        for (const int threads : {1, 2, 5})
            for (const bool constant : {false, true}) {
                const Threads some(threads);
                const std::string where = columns.name + ", " + std::to_string(threads) + " threads";
                std::mt19937_64 random(3);
                const Index len = 40000;
                std::vector<Index> rows, cols;
                std::vector<double> real;
                std::vector<cplx> complex;
                for (Index k = 0; k < len; ++k) {
                    rows.push_back(random() % columns.m);
                    cols.push_back(columns.of(k, random));
                    real.push_back(constant ? 0.1 : anyValue<double>(random));
                    complex.push_back(constant ? cplx(0.1, -0.7) : anyValue<cplx>(random));
                }

                Sparse A, Z;
                if (constant) {
                    A.triplet2sparse(rows, cols, 0.1, columns.m, columns.n);
                    Z.triplet2sparse(rows, cols, cplx(0.1, -0.7), columns.m, columns.n);
                } else {
                    A.triplet2sparse(rows, cols, real, columns.m, columns.n);
                    Z.triplet2sparse(rows, cols, complex, columns.m, columns.n);
                }

                expectAssembled(A, A.getDoubleVal(), rows, cols, real, where);
                expectAssembled(Z, Z.getDcmplxVal(), rows, cols, complex, where + ", complex");
                if (HasFatalFailure())
                    return;
            }
}

TEST(Triplet2sparse, RefusesAnIndexOutOfRangeAnywhereInEveryOrderOfColumns)
{
    // The bad index first, inside and last; also beyond 32 bits.
    for (const Columns& columns : columnOrders)
        for (int threads : {1, 2}) {
            const Threads some(threads);
            std::mt19937_64 random(3);
            std::vector<Index> rows, cols;
            for (Index k = 0; k < 40000; ++k) {
                rows.push_back(random() % columns.m);
                cols.push_back(columns.of(k, random));
            }
            const auto assembling = [&] {
                Sparse A;
                A.triplet2sparse(rows, cols, 1.0, columns.m, columns.n);
            };
            EXPECT_EQ(raised(assembling), "") << columns.name;
            for (Index at : {0ul, 15001ul, 39999ul})
                for (Index bad : {0ul, 1ul << 32, ~0ul})
                    for (std::vector<Index>* list : {&rows, &cols}) {
                        const Index good = (*list)[at];
                        (*list)[at] = bad > 0 ? bad : list == &rows ? columns.m : columns.n;
                        EXPECT_EQ(raised(assembling, true), "sparse:Internal_error_sparse")
                            << columns.name << ", " << (list == &rows ? "row" : "column") << ' ' << (*list)[at] << " at " << at;
                        (*list)[at] = good;
                    }
        }
}

TEST(Triplet2sparse, EveryOrderOfColumnsSurvivesFailedAllocations)
{
    for (const Columns& columns : columnOrders) {
        const Threads two(2);
        std::mt19937_64 random(3);
        std::vector<Index> rows, cols;
        for (Index k = 0; k < 40000; ++k) {
            rows.push_back(random() % columns.m);
            cols.push_back(columns.of(k, random));
        }
        Sparse A = sparseOf(2, 2, {{0, 1, 3.0}});
        const long count = failEveryAllocation([&] { A.triplet2sparse(rows, cols, 1.0, columns.m, columns.n); },
                                               [&](const FaultRun& run) {
                                                   if (run.faulted) {
                                                       EXPECT_EQ(run.id, "Out_of_memory_creating_sparse_matrix") << columns.name;
                                                       EXPECT_EQ(run.leaked, 0) << columns.name;
                                                       EXPECT_EQ(A.getNnz(), 1u) << columns.name;
                                                   }
                                               });
        EXPECT_GT(count, 5) << columns.name;
        EXPECT_EQ(A.getN(), columns.n);
    }
}

TEST(Triplet2sparse, RefusesMoreTripletsThanTheHashTablesTake)
{
    const Index none = 0;
    const double value = 1.0;
    Sparse A;
    // The lengths are judged before an element is read.
    EXPECT_EQ(raised([&] { A.triplet2sparse(&none, 4009617632, &none, 4009617632, &value, 1, 1, 1, true); }, true),
              "sparse:Size_input_vector_too_large");
}

TEST(Flat2sparse, CopiesCompressedColumns)
{
    Matrix<1> v(3, true);
    v.set(0, 1.0), v.set(1, 2.0), v.set(2, 3.0);
    Sparse A;
    A.flat2sparse(std::vector<Index>{1, 0, 2}, {0, 2, 3}, v, 3, 2);

    EXPECT_TRUE(near(dense(A), {{2, 0}, {1, 0}, {0, 3}}, 0));
    EXPECT_EQ(A.getForm(), FormNone);
}

TEST(Flat2sparse, RefusesOffsetsAndListsThatDisagree)
{
    Matrix<1> v(2, true);
    Sparse A;
    const auto flat = [&](const std::vector<Index>& rows, const std::vector<Index>& colPtr) {
        return raised([&] { A.flat2sparse(rows, colPtr, v, 3, 2); }, true);
    };
    EXPECT_EQ(flat({0, 1}, {0, 2}), "sparse:Length_triplet_vectors_disagree"); // n offsets
    EXPECT_EQ(flat({0, 1, 2}, {0, 2, 3}), "sparse:Length_triplet_vectors_disagree");
    EXPECT_EQ(flat({0, 1}, {0, 1, 1}), "sparse:Internal_error_sparse");
    EXPECT_EQ(flat({0, 1}, {1, 1, 2}), "sparse:Internal_error_sparse");
    EXPECT_EQ(flat({0, 1}, {0, 3, 2}), "sparse:Internal_error_sparse");
    EXPECT_EQ(flat({0, 3}, {0, 1, 2}), "sparse:Internal_error_sparse");
}

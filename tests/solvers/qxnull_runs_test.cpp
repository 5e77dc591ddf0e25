// SPDX-License-Identifier: LicenseRef-qxkernel
// Null spaces under cancel, failed allocations and extreme scales.

#include "prop.hpp"
#include "qxnull.hpp"
#include "qxrun.hpp"
#include "sparse_values.hpp"
#include "support/alloc_fault.hpp"

#include <limits>

namespace {

using namespace solverstest;

struct Triples
{
    Sparse Null, Compl, Range, NullF, ComplF, RangeF;
};

Triples triplesOf(qxutil::RunInfo& run, const Sparse& N, const Sparse& NF, NullFun method)
{
    Triples t;
    const bool second = NF.getM() != 0;
    qxNull(run, N, Sparse(), NF, true, t.Null, true, t.Compl, true, t.Range, t.NullF, second, t.ComplF, second, t.RangeF,
           second, method, true);
    return t;
}

Sparse scaled(const Sparse& A, double factor) { return A * cplx(factor); }

/// Cancels at its n-th report and counts them.
class CancelAt : public qxutil::RunListener
{
public:
    explicit CancelAt(int n) : at_(n) {}
    void onProgress(const std::string& title, double fraction) override
    {
        EXPECT_EQ(title, "Null space");
        EXPECT_GE(fraction, last);
        EXPECT_LE(fraction, 1.0);
        last = fraction;
        if (++reports == at_)
            run->cancel();
    }
    qxutil::RunInfo* run = nullptr;
    int reports = 0;
    double last = 0.0;

private:
    int at_;
};

/// Coupled constraints, some of them repeated, of several blocks.
Sparse constraints(bool complexValues, unsigned seed)
{
    Dense D(14, std::vector<cplx>(9));
    const Dense first = randomDense(6, 4, seed, complexValues), second = randomDense(5, 2, seed + 1, complexValues);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 4; ++j)
            D[i][j] = first[i][j];
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 2; ++j)
            D[6 + i][5 + j] = second[i][j];
    for (int i = 0; i < 6; ++i)
        D[i][4] = D[i][0] + D[i][1]; // depends on two others
    D[12][7] = 2.0;
    return sparseOf(D, complexValues);
}

const char* const outOfMemory = "Out_of_memory_constraint_elimination";

} // namespace

// --- Scales -------------------------------------------------------------------------------------------------------

TEST(QxNullScale, TheScaleOfTheMatrixDoesNotMatter)
{
    qxutil::RunInfo run;
    for (const bool complexValues : {false, true}) {
        const Sparse N = constraints(complexValues, 5);
        const Triples plain = triplesOf(run, N, Sparse(), NullFunSparse);
        ASSERT_EQ(plain.Null.getN(), 14u - 7u);
        for (const int exponent : {-1000, -600, 600, 1000}) {
            const double factor = std::ldexp(1.0, exponent);
            const Triples other = triplesOf(run, scaled(N, factor), Sparse(), NullFunSparse);
            EXPECT_TRUE(allNear(denseOf(other.Null), denseOf(plain.Null), 0.0)) << exponent; // a power of two: the same bits
            EXPECT_TRUE(allNear(denseOf(other.Compl), denseOf(plain.Compl), 0.0)) << exponent;
            EXPECT_TRUE(allNear(denseOf(scaled(other.Range, 1.0 / factor)), denseOf(plain.Range), 0.0)) << exponent;
        }
    }
}

TEST(QxNullScale, HugeMultiplesOfTheIdentityHaveFullRank)
{
    qxutil::RunInfo run;
    for (const double factor : {1e200, 1e308, 1e-200, 5e-324})
        for (const NullFun method : {NullFunSparse, NullFunOrthonormal}) {
            if (method == NullFunOrthonormal && factor < 1.0)
                continue; // a single constraint below 1e-10 does not count there
            const Triples t = triplesOf(run, scaled(Sparse().eye(3), factor), Sparse(), method);
            EXPECT_EQ(t.Null.getN(), 0u) << factor;
            EXPECT_EQ(t.Compl.getN(), 3u) << factor;
            EXPECT_EQ(largest(denseOf(t.Range)), factor);
        }
}

TEST(QxNullScale, NormsThatOverflowAreRefused)
{
    // Elimination by a pivot of 1e-9 makes entries of 1e9, again and again, until their squares overflow.
    const int n = 40;
    Dense D(n + 1, std::vector<cplx>(n));
    for (int j = 0; j < n; ++j) {
        D[j][j] = 1.0;
        D[j + 1][j] = 1e9;
    }
    const Sparse N = sparseOf(D);
    qxutil::RunInfo run;
    Triples t;
    try {
        t = triplesOf(run, N, Sparse(), NullFunSparse);
        for (const auto& row : denseOf(t.Null))
            for (const cplx& v : row)
                EXPECT_TRUE(std::isfinite(v.real())); // never an infinite basis
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Internal_error_solver");
    }
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(idOf([&] { triplesOf(run, sparseOf({{1, inf}, {1, 1}}), Sparse(), NullFunSparse); }), "Internal_error_solver");
}

// --- Order of the checks ------------------------------------------------------------------------------------------

TEST(QxNullOrder, RequiredQuirkAMatrixWithoutEntriesIsAnsweredBeforeTheMethodIsLookedAt)
{
    qxutil::RunInfo run;
    const Sparse none = Sparse().zeros(3, 2, 0, true), some = sparseOf({{1, 0}, {0, 0}, {0, 0}});
    const NullFun unknown = NullFun(7);

    const Triples t = triplesOf(run, none, none, unknown);
    EXPECT_TRUE(allNear(denseOf(t.Null), denseOf(Sparse().eye(3)), 0.0));
    EXPECT_TRUE(allNear(denseOf(t.NullF), denseOf(Sparse().eye(3)), 0.0));

    for (const auto& [N, NF] : std::vector<std::pair<Sparse, Sparse>>{{some, Sparse()}, {none, some}, {some, none}})
        EXPECT_EQ(detailOf([&, &N = N, &NF = NF] { triplesOf(run, N, NF, unknown); }), "not allowed value for nullfun");
}

// --- Cancel -------------------------------------------------------------------------------------------------------

TEST(QxNullCancel, EveryCancelIsAnsweredAndKeepsTheOutputs)
{
    for (const bool complexValues : {false, true})
        for (const NullFun method : {NullFunSparse, NullFunOrthonormal})
            for (const bool second : {false, true}) {
                const Sparse N = constraints(complexValues, 5), NF = second ? constraints(complexValues, 9) : Sparse();
                for (int k = 1;; ++k) {
                    CancelAt listener(k);
                    qxutil::RunInfo run(&listener);
                    listener.run = &run;
                    Triples t;
                    t.Null = N;
                    std::string id;
                    try {
                        t = triplesOf(run, N, NF, method);
                    } catch (const qxbase::CancelException& e) {
                        id = e.getId();
                    }
                    if (listener.reports < k) { // no k-th report: nobody cancelled
                        EXPECT_EQ(id, "");
                        EXPECT_GT(k, method == NullFunSparse ? 60 : 30); // every column of every pass was a chance
                        break;
                    }
                    EXPECT_EQ(id, method == NullFunSparse ? "<CANCEL>qxNullSp_cancelled" : "<CANCEL>qxNullOrth_cancelled") << k;
                    EXPECT_EQ(listener.reports, k); // not one report later
                    EXPECT_TRUE(allNear(denseOf(t.Null), denseOf(N), 0.0));
                }
            }
}

TEST(QxNullCancel, ARunThatIsCancelledBeforeItBeginsDoesNothing)
{
    qxutil::RunInfo run;
    run.cancel();
    const Sparse N = constraints(false, 5);
    Array<bool, 1> all(3);
    all = true;
    NullBlocks blocks;
    NullPairs pairs;
    blockdsp(N, transpose(N, Trans), blocks, pairs);
    Sparse a, b, c;
    const auto cancelled = [](const std::function<void()>& f) {
        try {
            f();
        } catch (const qxbase::CancelException&) {
            return true;
        }
        return false;
    };
    EXPECT_TRUE(cancelled([&] { triplesOf(run, N, Sparse(), NullFunSparse); }));
    EXPECT_TRUE(cancelled([&] { triplesOf(run, N, N, NullFunOrthonormal); }));
    EXPECT_TRUE(cancelled([&] { qxNullSp(run, N, Sparse(), a, b, c, all); }));
    EXPECT_TRUE(cancelled([&] { qxNullOrth(run, N, Sparse(), blocks, pairs, a, b, c, all); }));
}

// --- Failed allocations -------------------------------------------------------------------------------------------

TEST(QxNullFaults, EveryFailedAllocationHasTheModulesOwnNameLeaksNothingAndKeepsTheOutputs)
{
    qxutil::RunInfo run;
    const Sparse N = constraints(false, 5), NF = constraints(false, 9), Z = constraints(true, 5), before = Sparse().eye(2);
    const Sparse NT = transpose(N, Trans), none;
    Sparse swapped; // columns of a basis in another order
    swapped = triplesOf(run, N, Sparse(), NullFunOrthonormal).Null;
    const Sparse Null = swapped;
    {
        std::vector<unsigned long> rows, cols;
        for (unsigned long k = 0; k < Null.getN(); ++k)
            rows.push_back(k), cols.push_back(Null.getN() - 1 - k);
        Sparse order;
        order.triplet2sparse(rows, cols, 1.0, Null.getN(), Null.getN());
        swapped = Null * order;
    }
    Triples t;
    Sparse target;
    NullBlocks blocks;
    NullPairs pairs;
    qxbase::Prop in, out;
    const auto reset = [&] {
        t = Triples{before, before, before, before, before, before};
        target = swapped;
        in = qxbase::Prop();
        in.setany("n", N);
        in.setany("nf", NF);
        out = qxbase::Prop();
    };
    const auto all = [&](const Sparse& A, const Sparse& B, NullFun method) {
        const bool second = B.getM() != 0;
        qxNull(run, A, none, B, true, t.Null, true, t.Compl, true, t.Range, t.NullF, second, t.ComplF, second, t.RangeF,
               second, method, true);
    };
    const std::vector<std::pair<const char*, std::function<void()>>> calls = {
        {"sparse", [&] { all(N, none, NullFunSparse); }},
        {"sparse pair", [&] { all(N, NF, NullFunSparse); }},
        {"sparse complex", [&] { all(Z, none, NullFunSparse); }},
        {"orthonormal", [&] { all(N, none, NullFunOrthonormal); }},
        {"orthonormal pair", [&] { all(N, NF, NullFunOrthonormal); }},
        {"properties", [&] { qxNull(run, in, out); }},
        {"defaults", [&] { qxNullCheck(in); }},
        {"blocks", [&] { blockdsp(N, NT, blocks, pairs); }},
        {"order", [&] { reorderNullF(target, Null); }},
    };
    for (const auto& call : calls) {
        reset();
        const long count = qxtest::failEveryAllocation(call.second, [&](const qxtest::FaultRun& fault) {
            EXPECT_FALSE(fault.badAlloc) << call.first << ", allocation " << fault.n;
            if (!fault.id.empty()) {
                EXPECT_EQ(fault.id, outOfMemory) << call.first << ", allocation " << fault.n;
                if (!in.got("out")) { // the defaults that were supplied take memory
                    EXPECT_EQ(fault.leaked, 0) << call.first << ", allocation " << fault.n;
                }
                for (const Sparse* output : {&t.Null, &t.Compl, &t.Range, &t.NullF, &t.ComplF, &t.RangeF})
                    EXPECT_EQ(output->getptrD(), before.getptrD()) << call.first;
                EXPECT_EQ(target.getptrD(), swapped.getptrD()) << call.first;
                EXPECT_FALSE(out.got("null")) << call.first;
            }
            reset();
        });
        EXPECT_GT(count, 3) << call.first;
    }
}

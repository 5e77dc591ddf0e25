// SPDX-License-Identifier: LicenseRef-qxkernel
// Factor, null spaces, constrained systems in one call.

#include "constrained.hpp"

#include "qxrun.hpp"
#include "solvers/sparse_values.hpp"
#include "support/alloc_fault.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace solverstest;

namespace {

using Reals = std::vector<double>;
using Complexes = std::vector<cplx>;

/// A chain of n masses between springs of stiffness 1, both ends loose: singular by itself.
Sparse looseChain(unsigned long n, Symm_t symm = Unsymmetric)
{
    std::vector<unsigned long> i, j;
    Reals v;
    const auto add = [&](unsigned long a, unsigned long b, double x) {
        i.push_back(a);
        j.push_back(b);
        v.push_back(x);
    };
    for (unsigned long k = 0; k + 1 < n; ++k) {
        const double diagonal = symm == Unsymmetric ? 1.0 : 0.5; // a summand holds half of it
        add(k, k, diagonal);
        add(k + 1, k + 1, diagonal);
        add(k, k + 1, -1.0);
        if (symm == Unsymmetric)
            add(k + 1, k, -1.0);
    }
    Sparse K;
    K.triplet2sparse(i, j, v, n, n);
    K.setSymm(symm);
    return K;
}

std::string argument(const qxbase::Exception& e, const std::string& key)
{
    for (const auto& [k, v] : e.getArgs(0))
        if (k == key)
            return v;
    return "(none)";
}

void expectNear(const Reals& found, const Reals& wanted, double tolerance)
{
    ASSERT_EQ(found.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i)
        EXPECT_NEAR(found[i], wanted[i], tolerance) << i;
}

} // namespace

TEST(Multiply, TakesVectorsInEachDirection)
{
    const Sparse A = sparseOf({{1, 2, 3}, {0, 4, 0}}), C = sparseOf({{cplx(0, 1), 2}});

    EXPECT_EQ(qx::multiply(A, Reals{1, 10, 100}), (Reals{321, 40}));
    EXPECT_EQ(qx::multiply(A, Reals{1, 10}, Trans), (Reals{1, 42, 3}));
    EXPECT_EQ(qx::multiply(A, Complexes{{0, 1}, 0, 1}), (Complexes{{3, 1}, 0}));
    EXPECT_EQ(qx::multiply(C, Complexes{1}, ConjTrans), (Complexes{{0, -1}, 2}));
    EXPECT_EQ(qx::multiply(sparseOf({{2.0}}), Reals{3}), Reals{6});
}

TEST(Multiply, RefusesWrongLengthsAndComplexMatricesForRealValues)
{
    const Sparse A = sparseOf({{1, 2, 3}, {0, 4, 0}});
    for (const auto& [trans, wrong, expected] : {std::tuple(NoTrans, 2u, "3"), std::tuple(Trans, 3u, "2")})
        try {
            qx::multiply(A, Reals(wrong), trans);
            ADD_FAILURE() << expected;
        } catch (const qxbase::Exception& e) {
            EXPECT_EQ(e.getId(), "Wrong_number_of_values");
            EXPECT_EQ(argument(e, "Expected"), expected);
        }
    try {
        qx::multiply(sparseOf({{cplx(0, 1)}}), Reals{1});
        ADD_FAILURE();
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getId(), "Complex_matrix_for_real_values");
    }
}

TEST(Factor, SolvesForSeveralRightSides)
{
    qx::Factor lu(sparseOf({{2, 1}, {1, 3}}));

    expectNear(lu.solve(Reals{5, 10}), {1, 3}, 1e-15);
    expectNear(lu.solve(Reals{3, 4}), {1, 1}, 1e-15);
    EXPECT_LT(lu.estimatedError(), 1e-14);
}

TEST(Factor, SolvesWithTheTranspose)
{
    qx::Factor lu(sparseOf({{1, 2}, {0, 1}}), {.transposed = true});

    expectNear(lu.solve(Reals{1, 5}), {1, 3}, 1e-15);
}

TEST(Factor, SolvesInComplexNumbers)
{
    qx::Factor real(sparseOf({{2, 0}, {0, 4}})), complex(sparseOf({{cplx(0, 1), 0}, {0, 2}}));

    const Complexes x = real.solve(Complexes{{2, 4}, {0, 4}}), y = complex.solve(Complexes{{1, 0}, {0, 2}});

    EXPECT_EQ(x, (Complexes{{1, 2}, {0, 1}}));
    EXPECT_EQ(y, (Complexes{{0, -1}, {0, 1}}));
}

TEST(Factor, MovesWithItsFactors)
{
    qx::Factor first(sparseOf({{2.0}}));
    qx::Factor second(std::move(first));

    expectNear(second.solve(Reals{4}), {2}, 0);
}

TEST(Factor, RefusesWhatDoesNotFit)
{
    qx::Factor lu(sparseOf({{2, 1}, {1, 3}})), complex(sparseOf({{cplx(0, 1)}}));

    EXPECT_EQ(idOf([&] { lu.solve(Reals{1}); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([&] { complex.solve(Reals{1}); }), "Complex_matrix_for_real_values");
    EXPECT_EQ(idOf([] { qx::Factor f(sparseOf({{1, 2}})); }), "Matrix_not_square");
    EXPECT_EQ(idOf([] { qx::Factor f(sparseOf({{1, 2}, {2, 4}})); }), "Singular_matrix");
}

TEST(Factor, RefusesASolutionWithoutDigits)
{
    // Singular but for rounding: a ring of springs whose stiffnesses do not add up to 0 exactly.
    std::vector<unsigned long> i, j;
    Reals v;
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> stiffness(0.1, 1.0);
    const unsigned long n = 200;
    for (unsigned long k = 0; k < n; ++k) {
        const double s = stiffness(random);
        const unsigned long l = (k + 1) % n;
        for (const auto& [a, b, x] : {std::tuple(k, k, s), {l, l, s}, {k, l, -s}, {l, k, -s}}) {
            i.push_back(a);
            j.push_back(b);
            v.push_back(x);
        }
    }
    Sparse K;
    K.triplet2sparse(i, j, v, n, n);
    Reals b(n);
    b[0] = 1;

    EXPECT_EQ(idOf([&] {
                  qx::Factor lu(K);
                  lu.solve(b);
              }),
              "Singular_matrix");
}

TEST(NullSpaceOf, HoldsTheThreeRelations)
{
    const Sparse N = sparseOf({{1, 0}, {1, 2}, {0, 1}, {3, 0}});
    for (const bool orthonormal : {false, true}) {
        const qx::NullSpace s = qx::nullSpace(N, {.orthonormal = orthonormal});

        EXPECT_EQ(s.null.getN(), 2u);
        const Dense zero = denseOf(transpose(N, ConjTrans) * s.null);
        const Dense range = denseOf(transpose(s.complement, ConjTrans) * N), given = denseOf(s.range);
        for (std::size_t r = 0; r < 2; ++r)
            for (std::size_t c = 0; c < 2; ++c) {
                EXPECT_NEAR(std::abs(zero[r][c]), 0.0, 1e-15) << orthonormal;
                EXPECT_NEAR(std::abs(range[r][c] - given[r][c]), 0.0, 1e-14) << orthonormal;
            }
        const Dense gram = denseOf(transpose(s.null, ConjTrans) * s.null);
        EXPECT_EQ(std::abs(gram[0][1]) < 1e-15 && std::abs(gram[0][0] - 1.0) < 1e-14, orthonormal);
    }
}

TEST(SolveConstrained, HangsAChainOnItsEnds)
{
    // u_0 = 0, u_3 = 3 and no forces: a straight line.
    const Sparse N = sparseOf({{1, 0}, {0, 0}, {0, 0}, {0, 1}});
    for (const Symm_t symm : {Unsymmetric, Symmetric}) {
        const auto s = qx::solveConstrained(looseChain(4, symm), Reals(4), N, Reals{0, 3});

        expectNear(s.u, {0, 1, 2, 3}, 1e-14);
        EXPECT_LT(s.residual, 1e-14);
        EXPECT_EQ(s.unknowns, 2u);
        EXPECT_TRUE(s.dropped.empty());
    }
}

TEST(SolveConstrained, TakesForcesAndAConstraintOnManyUnknowns)
{
    // By hand: mean 0, force 1 on the left and -1 on the right end of three masses: u = (1, 0, -1).
    const Sparse N = sparseOf({{1}, {1}, {1}});
    for (const bool orthonormal : {false, true}) {
        const auto s = qx::solveConstrained(looseChain(3), Reals{1, 0, -1}, N, Reals{0}, {.orthonormal = orthonormal});

        expectNear(s.u, {1, 0, -1}, 1e-14);
    }
}

TEST(SolveConstrained, SolvesWithoutConstraintsAndWithNothingElse)
{
    const auto none = qx::solveConstrained(sparseOf({{2, 1}, {1, 3}}), Reals{5, 10}, Sparse(), Reals{});
    const auto all = qx::solveConstrained(looseChain(2), Reals{7, 7}, sparseOf({{1, 0}, {0, 2}}), Reals{3, 4});

    expectNear(none.u, {1, 3}, 1e-15);
    expectNear(all.u, {3, 2}, 1e-15);
    EXPECT_EQ(all.unknowns, 0u);
    EXPECT_EQ(all.residual, 0.0);
}

TEST(SolveConstrained, SolvesInComplexNumbers)
{
    // i (u_0 - u_1) = f with u_0 - i u_1 = g in the form N^H u = g, N = (1, i)^T.
    const Sparse K = sparseOf({{cplx(0, 1), cplx(0, -1)}, {cplx(0, -1), cplx(0, 1)}}), N = sparseOf({{1}, {cplx(0, 1)}});
    const auto s = qx::solveConstrained(K, Complexes{0, 0}, N, Complexes{{1, -1}});

    // No forces: u_0 = u_1 = u, (1 - i) u = 1 - i.
    EXPECT_LT(std::abs(s.u[0] - 1.0) + std::abs(s.u[1] - 1.0), 1e-14);
}

TEST(SolveConstrained, LeavesOutConstraintsThatFollowFromOthersAndSaysWhich)
{
    // u_0 = 1, u_0 + u_2 = 4, u_2 = 3 (follows), 2 u_0 = 2 (follows)
    const Sparse N = sparseOf({{1, 1, 0, 2}, {0, 0, 0, 0}, {0, 1, 1, 0}});

    const auto s = qx::solveConstrained(looseChain(3), Reals{0, 0, 0}, N, Reals{1, 4, 3, 2});

    expectNear(s.u, {1, 2, 3}, 1e-14);
    EXPECT_EQ(s.dropped.size(), 2u);
    EXPECT_TRUE(std::is_sorted(s.dropped.begin(), s.dropped.end()));
}

TEST(SolveConstrained, NamesConstraintsThatContradictEachOther)
{
    // u_0 = 1 and 2 u_0 = 3
    const Sparse N = sparseOf({{1, 0, 2}, {0, 1, 0}});

    const qxbase::Exception e =
        failureOf([&] { qx::solveConstrained(looseChain(2), Reals{0, 0}, N, Reals{1, 0, 3}); });

    EXPECT_EQ(e.getId(), "Contradicting_constraints");
    EXPECT_EQ(argument(e, "Constraint"), "2");
    EXPECT_EQ(argument(e, "With"), "0");
    EXPECT_EQ(argument(e, "Difference"), "1"); // 3 is 1 more than 2 * 1
    EXPECT_EQ(argument(e, "Value"), "3");
}

TEST(SolveConstrained, FindsAZeroConstraintThatIsToBeOne)
{
    const Sparse N = sparseOf({{1, 0}, {0, 0}});

    const auto s = qx::solveConstrained(sparseOf({{2, 0}, {0, 2}}), Reals{0, 2}, N, Reals{1, 0});
    const qxbase::Exception e =
        failureOf([&] { qx::solveConstrained(sparseOf({{2, 0}, {0, 2}}), Reals{0, 2}, N, Reals{1, 5}); });

    expectNear(s.u, {1, 1}, 0);
    EXPECT_EQ(s.dropped, (std::vector<std::size_t>{1}));
    EXPECT_EQ(e.getId(), "Contradicting_constraints");
    EXPECT_EQ(argument(e, "Constraint"), "1");
}

TEST(SolveConstrained, RefusesASystemThatStaysSingular)
{
    // Only a difference is held: the chain can still move as a whole.
    EXPECT_EQ(idOf([] { qx::solveConstrained(looseChain(3), Reals{0, 0, 0}, sparseOf({{1}, {-1}, {0}}), Reals{1}); }),
              "Singular_matrix");
}

TEST(SolveConstrained, RefusesWhatDoesNotFit)
{
    const Sparse K = looseChain(3), N = sparseOf({{1}, {0}, {0}}), complexN = sparseOf({{cplx(0, 1)}, {0}, {0}});
    const auto solve = [&](const Sparse& k, Reals f, const Sparse& n, Reals g) {
        return idOf([&] { qx::solveConstrained(k, f, n, g); });
    };

    EXPECT_EQ(solve(K, {0, 0}, N, {0}), "Wrong_number_of_values");
    EXPECT_EQ(solve(K, {0, 0, 0}, N, {0, 0}), "Wrong_number_of_values");
    EXPECT_EQ(solve(K, {0, 0, 0}, sparseOf({{1}}), {0}), "Wrong_number_of_values");
    EXPECT_EQ(solve(sparseOf({{1, 2}}), {0}, N, {0}), "Wrong_number_of_values");
    EXPECT_EQ(solve(K, {0, 0, 0}, complexN, {0}), "Complex_matrix_for_real_values");
    EXPECT_EQ(solve(sparseOf({{cplx(0, 1)}}), {0}, sparseOf({{1}}), {0}), "Complex_matrix_for_real_values");
}

TEST(SolveConstrained, CanBeCancelled)
{
    qxutil::RunInfo run;
    run.cancel();

    EXPECT_THROW(qx::solveConstrained(looseChain(3), Reals(3), sparseOf({{1}, {0}, {0}}), Reals{1}, {.run = &run}),
                 qxbase::CancelException);
}

/// Random constraints, some of them sums of others: the solution fulfils all of them, and what is dropped is as many as
/// do not count in the rank.
TEST(SolveConstrained, FulfilsRandomConstraintsOfAnyRank)
{
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> number(-1, 1);
    for (int round = 0; round < 200; ++round) {
        const std::size_t d = 3 + random() % 10, independent = 1 + random() % (d - 1), repeated = random() % 5;
        Dense N(d, std::vector<cplx>(independent + repeated));
        for (std::size_t i = 0; i < d; ++i) {
            for (std::size_t j = 0; j < independent; ++j)
                N[i][j] = i == j ? 1.0 : random() % 3 == 0 ? number(random) : 0.0;
        }
        Reals wanted(d), g(independent + repeated);
        for (double& w : wanted)
            w = number(random);
        for (std::size_t j = independent; j < g.size(); ++j)
            for (std::size_t k = 0; k < independent; ++k) {
                const double factor = random() % 2 == 0 ? number(random) : 0.0;
                for (std::size_t i = 0; i < d; ++i)
                    N[i][j] += factor * N[i][k];
            }
        for (std::size_t j = 0; j < g.size(); ++j)
            for (std::size_t i = 0; i < d; ++i)
                g[j] += N[i][j].real() * wanted[i];
        Dense K(d, std::vector<cplx>(d));
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j < d; ++j)
                K[i][j] = i == j ? 20.0 : number(random);

        qx::Constrained<double> s;
        const qxbase::Exception e = failureOf(
            [&] { s = qx::solveConstrained(sparseOf(K), Reals(d, 1.0), sparseOf(N, false, g.size()), g); });
        ASSERT_EQ(e.toString(), "") << round;

        EXPECT_EQ(s.dropped.size(), repeated) << round;
        EXPECT_LT(s.residual, 1e-10) << round;
        for (std::size_t j = 0; j < g.size(); ++j) {
            double sum = 0;
            for (std::size_t i = 0; i < d; ++i)
                sum += N[i][j].real() * s.u[i];
            EXPECT_NEAR(sum, g[j], 1e-9) << "round " << round << " constraint " << j;
        }
    }
}

TEST(SolveConstrained, LeaksNothingWhenMemoryFails)
{
    const Sparse K = looseChain(4), N = sparseOf({{1, 0, 2}, {0, 0, 0}, {0, 0, 0}, {0, 1, 0}});
    const Reals f(4), g{0, 3, 0};
    qx::solveConstrained(K, f, N, g);

    qxtest::failEveryAllocation([&] { qx::solveConstrained(K, f, N, g); }, [](const qxtest::FaultRun& run) {
        EXPECT_EQ(run.leaked, 0) << run.n;
        if (run.faulted && run.badAlloc)
            ADD_FAILURE() << "std::bad_alloc at allocation " << run.n;
    });
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Methods, options, progress and cancel.
#include "distributed/model.hpp"
#include "distributed/world.hpp"

#include "qxrun.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace qx::distributed;

namespace {

template <class F>
qxbase::Exception failureOf(const F& f)
{
    try {
        f();
    } catch (const qxbase::CancelException&) {
        return {"test", 0, "Cancelled"};
    } catch (const qxbase::Exception& e) {
        return e;
    }
    return {};
}

int last() { return world().size() - 1; }

/// The Laplacian on a square of side by side nodes, rows of nodes dealt to ranks in slices; `fix`: 0 on the boundary.
struct Grid
{
    explicit Grid(Index n, bool fix = true, double shift = 0.0) : side(n)
    {
        const Index from = n * world().rank() / world().size();
        const Index to = n * (world().rank() + 1) / world().size();
        for (Index y = from; y < to; ++y)
            for (Index x = 0; x < n; ++x)
                numbers.push_back(y * n + x);
        owned = numbers.size();
        const bool above = to < n && to > from;
        if (above)
            for (Index x = 0; x < n; ++x)
                numbers.push_back(to * n + x);
        Conditions c;
        for (std::size_t k = 0; fix && k < owned; ++k) {
            const Index x = numbers[k] % n;
            const Index y = numbers[k] / n;
            if (x == 0 || y == 0 || x == n - 1 || y == n - 1)
                c.fix(numbers[k], 0.0);
        }
        unknowns = std::make_unique<Unknowns>(world(), numbers, owned, c);
        system = std::make_unique<Assembly>(*unknowns);
        std::vector<Index> rows, columns;
        std::vector<Scalar> values;
        const auto put = [&](Index a, Index b, double v) {
            rows.push_back(a);
            columns.push_back(b);
            values.push_back(v);
        };
        const auto spring = [&](Index a, Index b) {
            put(a, a, 1.0);
            put(b, b, 1.0);
            put(a, b, -1.0);
            put(b, a, -1.0);
        };
        for (std::size_t k = 0; k < owned; ++k) {
            const Index u = numbers[k];
            if (u % n + 1 < n)
                spring(u, u + 1);
            if (u / n + 1 < n)
                spring(u, u + n);
            put(u, u, -shift);
        }
        system->add(rows, columns, values);
        const std::vector<Index> own(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(owned));
        std::vector<Scalar> f(owned);
        for (std::size_t k = 0; k < owned; ++k) // of sum 0 over each row of nodes
            f[k] = own[k] % n == 0 ? static_cast<double>(1 - n) : 1.0;
        system->addLoad(own, f);
        system->finish();
    }

    Index side;
    std::vector<Index> numbers;
    std::size_t owned;
    std::unique_ptr<Unknowns> unknowns;
    std::unique_ptr<Assembly> system;
};

class Listener : public qxutil::RunListener
{
public:
    void onProgress(const std::string& title, double fraction) override
    {
        titles.push_back(title);
        fractions.push_back(fraction);
        if (cancelAfter >= 0 && static_cast<int>(fractions.size()) > cancelAfter)
            run->cancel();
        if (raises)
            throw std::runtime_error("the listener is broken");
    }

    qxutil::RunInfo* run = nullptr;
    int cancelAfter = -1;
    bool raises = false;
    std::vector<std::string> titles;
    std::vector<double> fractions;
};

std::vector<Scalar> direct(const Grid& g) { return Solver(*g.unknowns, {.direct = 1 << 20, .prefix = "direct_"}).solve(*g.system).values; }

TEST(Solver, DefaultsOfEachKindAgreeWithAFactorisation)
{
    const Grid g(40);
    const std::vector<Scalar> wanted = direct(g);
    for (const Kind kind : {Kind::Spd, Kind::Symmetric, Kind::General}) {
        Solver solver(*g.unknowns, {.kind = kind, .tolerance = 1e-12, .direct = 0, .prefix = "kinds_"});

        const Solution s = solver.solve(*g.system);

        EXPECT_LT(maxDifference(s.values, wanted), 1e-8) << static_cast<int>(kind);
        EXPECT_LT(s.residual, 1e-11);
    }
}

TEST(Solver, SmallProblemsAreFactorised)
{
    const Grid g(20);

    const Solution s = Solver(*g.unknowns, {.kind = Kind::Spd}).solve(*g.system);

    EXPECT_LE(s.iterations, 1);
    EXPECT_LT(s.residual, 1e-13);
}

TEST(Solver, IndefiniteProblemsAreSolvedAsSymmetric)
{
    const Grid g(24, true, 0.5); // several eigenvalues of the Laplacian are below the shift

    const Solution s = Solver(*g.unknowns, {.kind = Kind::Symmetric, .direct = 0, .prefix = "indef_"}).solve(*g.system);

    EXPECT_LT(s.residual, 1e-11);
}

TEST(Solver, TheHistoryBeginsWithTheRightSideAndEndsBelowTheTolerance)
{
    const Grid g(40);

    const Solution s = Solver(*g.unknowns, {.kind = Kind::Spd, .tolerance = 1e-8, .direct = 0, .prefix = "hist_"}).solve(*g.system);

    ASSERT_EQ(s.history.size(), static_cast<std::size_t>(s.iterations) + 1);
    EXPECT_NEAR(s.history.front() / g.system->rightSideNorm(), 1.0, 1e-12);
    EXPECT_LE(s.history.back(), 1e-8 * s.history.front());
    EXPECT_LT(s.residual, 1.01e-8);
}

TEST(Solver, OptionsChooseTheMethod)
{
    const Grid g(24);
    const std::vector<Scalar> wanted = direct(g);

    for (const char* text : {"-ksp_type bcgs -pc_type bjacobi", "-ksp_type cg -pc_type jacobi -ksp_rtol 1e-12",
                             "-ksp_type fgmres -pc_type asm -sub_pc_type ilu"}) {
        const Solution s = Solver(*g.unknowns, {.tolerance = 1e-12, .direct = 0, .options = text, .prefix = "choice_"}).solve(*g.system);
        EXPECT_LT(maxDifference(s.values, wanted), 1e-7) << text;
        EXPECT_GT(s.iterations, 1) << text;
    }
}

TEST(Solver, UnknownOptionsAreNamedBeforeTheIteration)
{
    const Grid g(24);
    Solver solver(*g.unknowns, {.direct = 0, .options = "-ksp_typ bcgs -pc_type jacobi -nonsense 7 -ksp_view_final_residual", .prefix = "unknown_"});

    const auto e = failureOf([&] { solver.solve(*g.system); });

    ASSERT_EQ(e.getId(), "Unknown_option");
    EXPECT_THAT(e.getArgs(0), testing::Contains(testing::Pair("Option", "-ksp_typ")));
    EXPECT_THAT(e.getArgs(0), testing::Contains(testing::Pair("Option", "-nonsense")));
    EXPECT_THAT(e.getArgs(0), testing::Not(testing::Contains(testing::Pair("Option", "-pc_type"))));
}

TEST(Solver, OptionsOfMultigridAndOfIterationsAreKnown)
{
    const Grid g(40);
    for (const char* text : {"-pc_gamg_threshold 0.01 -mg_levels_ksp_type chebyshev -mg_levels_pc_type sor", "-ksp_max_it 200 -ksp_norm_type preconditioned -ksp_error_if_not_converged"}) {
        Solver solver(*g.unknowns, {.kind = Kind::Spd, .direct = 0, .options = text, .prefix = "known_"});
        EXPECT_NO_THROW(solver.solve(*g.system)) << text;
    }
}

TEST(Solver, ATextThatIsNoListOfOptionsIsRefused)
{
    const Grid g(6);

    const auto e = failureOf([&] { Solver(*g.unknowns, {.options = "-ksp_type cg gmres"}); });

    EXPECT_EQ(e.getId(), "Invalid_option");
    EXPECT_EQ(argumentOf(e, e.getId(), "Option"), "gmres");
    EXPECT_EQ(failureOf([&] { Solver(*g.unknowns, {.options = "cg"}); }).getId(), "Invalid_option");
}

TEST(Solver, AValueThatPetscRefusesIsAFailureOfAll)
{
    const Grid g(6);
    Solver solver(*g.unknowns, {.options = "-ksp_type no_such_method", .prefix = "refused_"});

    const auto e = failureOf([&] { solver.solve(*g.system); });

    EXPECT_EQ(e.getId(), "PETSc_failed");
    EXPECT_THAT(argumentOf(e, e.getId(), "Message"), testing::HasSubstr("no_such_method"));
}

TEST(Solver, OptionsOfASolverThatIsGoneDoNotCount)
{
    const Grid g(24);
    {
        Solver other(*g.unknowns, {.direct = 0, .options = "-ksp_max_it 1 -ksp_type cg -pc_type none", .prefix = "gone_"});
        EXPECT_EQ(failureOf([&] { other.solve(*g.system); }).getId(), "Solution_did_not_converge");
    }

    EXPECT_NO_THROW(Solver(*g.unknowns, {.kind = Kind::Spd, .direct = 0, .prefix = "gone_"}).solve(*g.system));
}

TEST(Solver, AnIterationThatDoesNotConvergeSaysSo)
{
    const Grid g(40);
    Solver solver(*g.unknowns, {.kind = Kind::Spd, .maxIterations = 3, .direct = 0, .options = "-pc_type jacobi", .prefix = "few_"});

    const auto e = failureOf([&] { solver.solve(*g.system); });

    EXPECT_EQ(e.getId(), "Solution_did_not_converge");
    EXPECT_EQ(argumentOf(e, e.getId(), "Reason"), "DIVERGED_ITS");
    EXPECT_EQ(argumentOf(e, e.getId(), "Iterations"), "3");
    EXPECT_GT(std::stod(argumentOf(e, e.getId(), "Residual")), 1e-10);
}

TEST(Solver, ASingularMatrixIsNoSolution)
{
    const Unknowns u(world(), std::vector<Index>{world().rank()}, 1);
    Assembly system(u);
    const std::vector<Scalar> zero{0.0}, one{1.0};
    system.add({world().rank()}, {world().rank()}, zero);
    system.addLoad(std::vector<Index>{world().rank()}, one);
    system.finish();

    const auto e = failureOf([&] { Solver(u, {.prefix = "singular_"}).solve(system); });

    EXPECT_EQ(e.getId(), "Solution_did_not_converge");
}

TEST(Solver, WithAllUnknownsFixedThereIsNothingToSolve)
{
    const std::vector<Index> numbers{world().rank()};
    Conditions c;
    c.fix(world().rank(), 4.0);
    const Unknowns u(world(), numbers, 1, c);
    Assembly system(u);
    system.finish();

    const Solution s = Solver(u).solve(system);

    EXPECT_EQ(s.values, std::vector<Scalar>{4.0});
}

TEST(Solver, AMatrixThatAnnulsConstantsIsSolvedBesideThem)
{
    const Grid g(30, false);
    Solver solver(*g.unknowns, {.kind = Kind::Spd, .direct = 0, .prefix = "neumann_"});
    solver.setNullSpace({std::vector<Scalar>(g.numbers.size(), 1.0)});

    const Solution s = solver.solve(*g.system);

    const std::vector<Scalar> u = gatheredValues(world(), g.numbers, s.values, g.owned, g.side * g.side);
    Scalar sum = 0.0;
    for (const Scalar& v : u)
        sum += v;
    EXPECT_NEAR(std::abs(sum), 0.0, 1e-8);
    EXPECT_LT(s.residual, 1e-9);
}

TEST(Solver, NullSpacesOfAnotherLengthAreRefused)
{
    const Grid g(6);
    Solver solver(*g.unknowns, {.prefix = "lengths_"});
    std::vector<Scalar> v(g.numbers.size() + (world().rank() == last() ? 1 : 0), 1.0);

    EXPECT_EQ(failureOf([&] { solver.setNearNullSpace({v}); }).getId(), "Wrong_number_of_values");
    EXPECT_EQ(failureOf([&] { solver.setNullSpace({v}); }).getId(), "Wrong_number_of_values");
}

TEST(Solver, AssembliesThatDoNotFitAreRefused)
{
    const Grid g(6);
    const Grid other(6);
    Solver solver(*g.unknowns, {.prefix = "fit_"});
    const Assembly empty(*g.unknowns);

    EXPECT_EQ(failureOf([&] { solver.solve(empty); }).getId(), "Assembly_not_finished");
    EXPECT_EQ(failureOf([&] { solver.solve(*other.system); }).getId(), "Assembly_of_other_unknowns");
    EXPECT_NO_THROW(solver.solve(*g.system));
}

TEST(Solver, ProgressComesOnTheFirstRankOnly)
{
    const Grid g(40);
    Listener listener;
    qxutil::RunInfo run(&listener);

    Solver(*g.unknowns, {.kind = Kind::Spd, .direct = 0, .prefix = "progress_", .run = &run}).solve(*g.system);

    EXPECT_EQ(listener.fractions.empty(), world().rank() != 0);
    if (world().rank() == 0) {
        EXPECT_EQ(listener.titles.front(), "Iterative solution");
        EXPECT_EQ(listener.fractions.front(), 0.0);
        EXPECT_GT(listener.fractions.back(), 0.95);
    }
}

TEST(Solver, ACancelOnAnyRankStopsAllAfterTheIteration)
{
    const Grid g(40);
    Listener listener;
    qxutil::RunInfo first(&listener);
    listener.run = &first;
    listener.cancelAfter = 2;
    Solver solver(*g.unknowns, {.kind = Kind::Spd, .direct = 0, .options = "-pc_type jacobi", .prefix = "stop_", .run = &first});

    EXPECT_EQ(failureOf([&] { solver.solve(*g.system); }).getId(), "Cancelled");
    if (world().rank() == 0) {
        EXPECT_EQ(listener.fractions.size(), 3u);
    }

    first.cancel(false);
    listener.cancelAfter = -1;
    EXPECT_LT(solver.solve(*g.system).residual, 1e-9);
    first.cancel(world().rank() == last());
    EXPECT_EQ(failureOf([&] { solver.solve(*g.system); }).getId(), "Cancelled");
}

TEST(Solver, AListenerThatFailsIsAFailureOfAll)
{
    const Grid g(40);
    Listener listener;
    listener.raises = true;
    qxutil::RunInfo run(&listener);
    Solver solver(*g.unknowns, {.kind = Kind::Spd, .direct = 0, .prefix = "listener_", .run = &run});

    const auto e = failureOf([&] { solver.solve(*g.system); });

    EXPECT_EQ(argumentOf(e, "Exception_on_rank", "Reason"), "the listener is broken");
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), "0");
}

TEST(Solver, TheSameRanksGiveTheSameBits)
{
    const Grid a(30);
    const Grid b(30);
    // Multigrid adds on its coarse levels as messages come.
    const SolverOptions options{.kind = Kind::Spd, .direct = 0, .options = "-pc_type jacobi", .prefix = "bits_"};

    const Solution x = Solver(*a.unknowns, options).solve(*a.system);
    const Solution y = Solver(*b.unknowns, options).solve(*b.system);

    EXPECT_EQ(x.values, y.values);
}

TEST(Solver, MultigridKeepsTheMotionsOfARigidBody)
{
    // Plane elasticity of a square of springs, held at its left edge: with the three rigid motions fewer iterations.
    const Index n = 40;
    const auto numberOf = [&](Index x, Index y, Index d) { return 2 * (y * n + x) + d; };
    const Index from = n * world().rank() / world().size();
    const Index to = n * (world().rank() + 1) / world().size();
    std::vector<Index> numbers;
    for (Index y = from; y < std::min(n, to + 1); ++y)
        for (Index x = 0; x < n; ++x)
            for (Index d = 0; d < 2; ++d)
                numbers.push_back(numberOf(x, y, d));
    const auto owned = static_cast<std::size_t>(2 * n * (to - from));
    Conditions c;
    for (Index y = from; y < to; ++y)
        for (Index d = 0; d < 2; ++d)
            c.fix(numberOf(0, y, d), 0.0);
    const Unknowns u(world(), numbers, owned, c);
    Assembly system(u);
    std::vector<Index> rows, columns;
    std::vector<Scalar> values;
    const auto spring = [&](Index x, Index y, Index dx, Index dy) { // along (dx, dy)
        if (x + dx < 0 || x + dx >= n || y + dy >= n)
            return;
        const double direction[2] = {static_cast<double>(dx), static_cast<double>(dy)};
        const double length2 = direction[0] * direction[0] + direction[1] * direction[1];
        for (Index i = 0; i < 2; ++i)
            for (Index j = 0; j < 2; ++j)
                for (int p = 0; p < 2; ++p)
                    for (int q = 0; q < 2; ++q) {
                        rows.push_back(numberOf(x + p * dx, y + p * dy, i));
                        columns.push_back(numberOf(x + q * dx, y + q * dy, j));
                        values.push_back((p == q ? 1.0 : -1.0) * direction[i] * direction[j] / length2);
                    }
    };
    for (Index y = from; y < to; ++y)
        for (Index x = 0; x < n; ++x) {
            spring(x, y, 1, 0);
            spring(x, y, 0, 1);
            spring(x, y, 1, 1);
            spring(x, y, -1, 1);
        }
    system.add(rows, columns, values);
    const std::vector<Scalar> load(owned, 1e-3);
    system.addLoad(std::span(numbers).first(owned), load);
    system.finish();
    std::vector<std::vector<Scalar>> motions(3, std::vector<Scalar>(numbers.size(), 0.0));
    for (std::size_t k = 0; k < numbers.size(); ++k) {
        const Index d = numbers[k] % 2;
        const Index node = numbers[k] / 2;
        motions[static_cast<std::size_t>(d)][k] = 1.0;
        motions[2][k] = d == 0 ? -static_cast<double>(node / n) : static_cast<double>(node % n);
    }
    Solver plain(u, {.kind = Kind::Spd, .direct = 0, .prefix = "plain_"});
    Solver rigid(u, {.kind = Kind::Spd, .direct = 0, .prefix = "rigid_"});
    rigid.setNearNullSpace(motions);

    const Solution a = plain.solve(system);
    const Solution b = rigid.solve(system);

    EXPECT_LT(b.iterations, a.iterations);
    double size = 0.0;
    for (const Scalar& v : a.values)
        size = std::max(size, std::abs(v));
    EXPECT_LT(maxDifference(a.values, b.values), 1e-6 * size);
    EXPECT_NE(rigid.ksp(), nullptr);
}

} // namespace

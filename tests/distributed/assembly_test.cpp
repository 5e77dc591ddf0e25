// SPDX-License-Identifier: LicenseRef-qxkernel
// Sums of triplets over ranks.
#include "distributed/model.hpp"
#include "distributed/world.hpp"

#include "qxparallel.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace qx::distributed;

namespace {

template <class F>
qxbase::Exception failureOf(const F& f)
{
    try {
        f();
    } catch (const qxbase::Exception& e) {
        return e;
    }
    return {};
}

int last() { return world().size() - 1; }
bool isLast() { return world().rank() == last(); }

Solver factor(const Unknowns& u) { return Solver(u, {.kind = Kind::General, .prefix = "test_"}); }

/// A method without a choice of its own to make: the same matrix on the same ranks gives the same bits. MUMPS does not.
std::vector<Scalar> solvedInOrder(const Unknowns& u, const Assembly& system)
{
    return Solver(u, {.kind = Kind::Spd, .direct = 0, .options = "-pc_type jacobi", .prefix = "order_"}).solve(system).values;
}

bool sameBits(const std::vector<Scalar>& a, const std::vector<Scalar>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Scalar)) == 0;
}

TEST(Assembly, WithConditionsOfAllKindsTheSolutionIsThatOfTheKernelOnOneMachine)
{
    for (const unsigned seed : {21u, 22u, 23u, 24u, 25u}) {
        Model m = Model::random(70, seed);
        m.addRandomConditions(seed);
        std::size_t owned = 0;
        const std::vector<Index> numbers = m.numbersOf(world().rank(), world().size(), owned);
        const Unknowns u = m.unknownsOn(world());
        Assembly system(u);

        m.addTo(system, world());
        system.finish();
        const Solution s = factor(u).solve(system);

        EXPECT_LT(maxDifference(gatheredValues(world(), numbers, s.values, owned, m.count), m.solution()), 1e-10) << "seed " << seed;
        EXPECT_LT(s.residual, 1e-12);
    }
}

TEST(Assembly, ValuesOfUnknownsThatARankOnlyTouchesAreTheirOwners)
{
    Model m = Model::random(40, 31);
    m.addRandomConditions(31);
    std::size_t owned = 0;
    const std::vector<Index> numbers = m.numbersOf(world().rank(), world().size(), owned);
    const Unknowns u = m.unknownsOn(world());
    Assembly system(u);
    m.addTo(system, world());
    system.finish();

    const Solution s = factor(u).solve(system);

    const std::vector<Scalar> all = gatheredValues(world(), numbers, s.values, owned, m.count);
    for (std::size_t k = owned; k < numbers.size(); ++k)
        EXPECT_EQ(s.values[k], all[static_cast<std::size_t>(numbers[k])]);
}

TEST(Assembly, BatchesAndReuseChangeNothingButRounding)
{
    Model m = Model::random(60, 41);
    m.addRandomConditions(42);
    const Unknowns u = m.unknownsOn(world());
    const std::vector<Scalar> wanted = m.solution();
    std::size_t owned = 0;
    const std::vector<Index> numbers = m.numbersOf(world().rank(), world().size(), owned);

    for (const bool reuse : {true, false})
        for (const int batches : {1, 2, 7, 200}) { // more batches than elements: empty ones
            Assembly system(u, {.reuse = reuse});
            m.addTo(system, world(), batches);
            system.finish();
            const Solution s = factor(u).solve(system);
            EXPECT_LT(maxDifference(gatheredValues(world(), numbers, s.values, owned, m.count), wanted), 1e-10)
                << "reuse " << reuse << ", batches " << batches;
        }
}

TEST(Assembly, ASecondOneOnTheSamePatternHasTheSameBits)
{
    Model m = Model::random(60, 51);
    m.addRandomConditions(52);
    const Unknowns u = m.unknownsOn(world());
    for (const int batches : {1, 3}) {
        Assembly system(u);
        m.addTo(system, world(), batches);
        system.finish();
        const std::vector<Scalar> first = solvedInOrder(u, system);

        system.restart();
        m.addAgain(system, world(), batches);
        system.finish();
        const std::vector<Scalar> second = solvedInOrder(u, system);

        EXPECT_TRUE(sameBits(first, second));
    }
}

TEST(Assembly, OtherValuesOnTheSamePatternGiveTheirOwnSolution)
{
    Model m = Model::random(60, 53);
    m.addRandomConditions(54);
    const Unknowns u = m.unknownsOn(world());
    Assembly system(u);
    m.addTo(system, world());
    system.finish();
    for (Model::Element& e : m.elements) {
        for (Scalar& v : e.matrix)
            v *= 3.0;
        for (Scalar& f : e.load)
            f *= -2.0;
    }

    system.restart();
    m.addAgain(system, world());
    system.finish();
    const Solution s = factor(u).solve(system);

    std::size_t owned = 0;
    const std::vector<Index> numbers = m.numbersOf(world().rank(), world().size(), owned);
    EXPECT_LT(maxDifference(gatheredValues(world(), numbers, s.values, owned, m.count), m.solution()), 1e-10);
}

TEST(Assembly, WithoutReuseTheNextOneBeginsFromNothing)
{
    const Model m = Model::random(30, 55);
    const Unknowns u = m.unknownsOn(world());
    Assembly system(u, {.reuse = false});
    m.addTo(system, world());
    system.finish();
    const std::vector<Scalar> first = solvedInOrder(u, system);

    system.restart();
    m.addTo(system, world());
    system.finish();

    EXPECT_TRUE(sameBits(first, solvedInOrder(u, system)));
}

TEST(Assembly, AnyNumberOfThreadsGivesTheSameBits)
{
    const Model m = Model::random(4000, 61); // more triplets than make loops fork
    const Unknowns u = m.unknownsOn(world());
    std::vector<std::vector<Scalar>> solutions;
    const int before = qxbase::setAvailableThreads(1);

    for (const int threads : {1, 2, 3}) {
        qxbase::setAvailableThreads(threads);
        Assembly system(u);
        m.addTo(system, world());
        system.finish();
        qxbase::setAvailableThreads(1);
        solutions.push_back(solvedInOrder(u, system));
    }
    qxbase::setAvailableThreads(before);

    EXPECT_TRUE(sameBits(solutions[0], solutions[1]));
    EXPECT_TRUE(sameBits(solutions[0], solutions[2]));
}

TEST(Assembly, AStepOfNewtonsMethodKeepsTheConditions)
{
    Model m = Model::random(60, 71);
    m.addRandomConditions(72);
    const std::vector<Scalar> wanted = m.solution();
    std::size_t owned = 0;
    const std::vector<Index> numbers = m.numbersOf(world().rank(), world().size(), owned);
    const Unknowns u = m.unknownsOn(world());
    Assembly system(u, {.lifted = false});

    // from u = particular: Null^H A Null z = Null^H (f - A particular)
    std::vector<Scalar> whole = gatheredValues(world(), numbers, {u.particular().begin(), u.particular().end()}, owned, m.count);
    m.addTo(system, world());
    for (const std::size_t k : m.elementsOf(world().rank(), world().size())) {
        const Model::Element& e = m.elements[k];
        std::vector<Scalar> product(e.unknowns.size(), Scalar(0.0));
        for (std::size_t a = 0; a < product.size(); ++a)
            for (std::size_t b = 0; b < product.size(); ++b)
                product[a] -= e.matrix[a * product.size() + b] * whole[static_cast<std::size_t>(e.unknowns[b])];
        system.addLoad(e.unknowns, product);
    }
    system.finish();
    const Solution step = factor(u).solve(system);

    for (std::size_t k = 0; k < numbers.size(); ++k)
        EXPECT_NEAR(std::abs(u.particular()[k] + step.values[k] - wanted[static_cast<std::size_t>(numbers[k])]), 0.0, 1e-10);
}

TEST(Assembly, LoadsAloneMakeARightSideAndLeaveTheMatrix)
{
    const Model m = Model::random(30, 73);
    const Unknowns u = m.unknownsOn(world());
    Assembly system(u);
    m.addTo(system, world());
    system.finish();
    const Solution before = factor(u).solve(system);

    system.restart();
    for (const std::size_t k : m.elementsOf(world().rank(), world().size())) {
        std::vector<Scalar> twice = m.elements[k].load;
        for (Scalar& f : twice)
            f *= 2.0;
        system.addLoad(m.elements[k].unknowns, twice);
    }
    system.finishLoads();
    const Solution after = factor(u).solve(system);

    for (std::size_t k = 0; k < before.values.size(); ++k)
        EXPECT_NEAR(std::abs(after.values[k] - 2.0 * before.values[k]), 0.0, 1e-12);
}

TEST(Assembly, TheNormOfTheRightSideIsThatOfAllRanks)
{
    std::vector<Index> numbers{world().rank()};
    const Unknowns u(world(), numbers, 1);
    Assembly system(u);
    const std::vector<Scalar> three{3.0};
    EXPECT_EQ(failureOf([&] { system.rightSideNorm(); }).getId(), "Assembly_not_finished");

    system.addLoad(numbers, three);
    system.finishLoads();

    EXPECT_NEAR(system.rightSideNorm(), 3.0 * std::sqrt(world().size()), 1e-14);
}

TEST(Assembly, ARankWithoutElementsTakesPart)
{
    Model m = Model::random(20, 81);
    std::vector<Index> numbers;
    if (world().rank() == 0)
        for (Index k = 0; k < m.count; ++k)
            numbers.push_back(k);
    const Unknowns u(world(), numbers, numbers.size());
    Assembly system(u);

    if (world().rank() == 0) {
        const Session alone(MPI_COMM_SELF);
        m.addTo(system, alone);
    }
    system.finish();
    const Solution s = factor(u).solve(system);

    EXPECT_EQ(s.values.size(), numbers.size());
    EXPECT_LT(maxDifference(gatheredValues(world(), numbers, s.values, numbers.size(), m.count), m.solution()), 1e-11);
}

TEST(Assembly, AnUnknownThatARankDoesNotTouchIsRefusedByAll)
{
    const std::vector<Index> numbers{world().rank()};
    const Unknowns u(world(), numbers, 1);
    Assembly system(u);
    const std::vector<Scalar> ones{1.0, 1.0};

    system.add({}, {}, {});
    system.add({world().rank(), isLast() ? 1 << 30 : world().rank()}, {world().rank(), world().rank()}, ones);
    const auto e = failureOf([&] { system.finish(); });

    EXPECT_EQ(e.getId(), "Unknown_not_touched");
    EXPECT_EQ(argumentOf(e, e.getId(), "Unknown"), std::to_string(1 << 30));
    EXPECT_EQ(argumentOf(e, e.getId(), "Triplet"), "1");
    EXPECT_EQ(argumentOf(e, "In_batch", "Batch"), "1");
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last()));
    EXPECT_EQ(system.matrix(), nullptr);
}

TEST(Assembly, NegativeNumbersAreRefused)
{
    const std::vector<Index> numbers{world().rank()};
    const Unknowns u(world(), numbers, 1);
    Assembly system(u);
    const std::vector<Scalar> one{1.0};

    system.add({world().rank()}, {-1}, one);

    EXPECT_EQ(failureOf([&] { system.finish(); }).getId(), "Unknown_not_touched");
}

TEST(Assembly, ListsOfDifferentLengthsAreRefused)
{
    const std::vector<Index> numbers{world().rank()};
    const Index own = world().rank();
    const Unknowns u(world(), numbers, 1);
    const std::vector<Scalar> one{1.0}, two{1.0, 2.0};
    const auto idOf = [&](const auto& spoil) {
        Assembly system(u);
        if (isLast())
            spoil(system);
        return failureOf([&] { system.finish(); }).getId();
    };

    EXPECT_EQ(idOf([&](Assembly& s) { s.add({own}, {own}, two); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([&](Assembly& s) { s.add({own}, {}, one); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([&](Assembly& s) { s.addLoad(numbers, two); }), "Wrong_number_of_values");
}

TEST(Assembly, ValuesThatAreNotFiniteAreRefused)
{
    const std::vector<Index> numbers{world().rank()};
    const Index own = world().rank();
    const Unknowns u(world(), numbers, 1);
    const std::vector<Scalar> bad{std::numeric_limits<double>::quiet_NaN()};
    for (const bool reuse : {true, false}) {
        Assembly system(u, {.reuse = reuse});
        if (isLast())
            system.add({own}, {own}, bad);

        EXPECT_EQ(failureOf([&] { system.finish(); }).getId(), "Value_not_finite");
    }
    Assembly loads(u);
    if (isLast())
        loads.addLoad(numbers, bad);
    EXPECT_EQ(failureOf([&] { loads.finish(); }).getId(), "Value_not_finite");
}

TEST(Assembly, APatternMustBeThereAndBeFilled)
{
    const Model m = Model::random(20, 91);
    const Unknowns u = m.unknownsOn(world());
    const std::vector<Scalar> one{1.0};
    Assembly system(u);
    if (isLast())
        system.add(one);
    EXPECT_EQ(failureOf([&] { system.finish(); }).getId(), "No_pattern_for_batch");

    system.restart();
    m.addTo(system, world(), 2);
    system.finish();
    system.restart();
    if (!isLast())
        m.addAgain(system, world(), 2);
    const auto e = failureOf([&] { system.finish(); });
    EXPECT_EQ(e.getId(), "Pattern_incomplete");
    EXPECT_EQ(argumentOf(e, e.getId(), "Expected"), "2");

    system.restart();
    m.addTo(system, world(), 2);
    EXPECT_EQ(failureOf([&] { system.finish(); }).getId(), "Pattern_is_kept");

    system.restart();
    m.addAgain(system, world(), 2);
    EXPECT_NO_THROW(system.finish());
}

TEST(Assembly, AfterAFailureTheMatrixIsAsItWas)
{
    const Model m = Model::random(20, 92);
    const Unknowns u = m.unknownsOn(world());
    Assembly system(u);
    m.addTo(system, world());
    system.finish();
    const std::vector<Scalar> before = solvedInOrder(u, system);
    const std::vector<Scalar> tooMany(100000, 1.0);

    system.restart();
    system.add(tooMany);
    EXPECT_EQ(failureOf([&] { system.finish(); }).getId(), "Wrong_number_of_values");

    EXPECT_TRUE(sameBits(before, solvedInOrder(u, system)));
}

TEST(Assembly, ObjectsMayOutliveTheirSession)
{
    std::unique_ptr<Assembly> system;
    {
        const Session session(world().comm());
        const Model m = Model::random(20, 93);
        const Unknowns u = m.unknownsOn(session);
        system = std::make_unique<Assembly>(u);
        m.addTo(*system, session);
        system->finish();
    }

    const Solution s = factor(system->unknowns()).solve(*system);

    EXPECT_LT(s.residual, 1e-12);
}

} // namespace

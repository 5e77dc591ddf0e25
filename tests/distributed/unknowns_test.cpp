// SPDX-License-Identifier: LicenseRef-qxkernel
// Numbers, owners, and what conditions leave free.
#include "distributed/model.hpp"
#include "distributed/world.hpp"

#include "qxrun.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <set>

using namespace qx::distributed;

namespace {

/// Each rank owns so many unknowns and touches the next one too.
struct Line
{
    explicit Line(Index each)
    {
        for (Index k = 0; k < each; ++k)
            numbers.push_back(world().rank() * each + k);
        owned = numbers.size();
        count = each * world().size();
        if (numbers.back() + 1 < count)
            numbers.push_back(numbers.back() + 1);
    }
    Unknowns with(const Conditions& c, const UnknownsOptions& o = {}) const { return Unknowns(world(), numbers, owned, c, o); }

    std::vector<Index> numbers;
    std::size_t owned;
    Index count;
};

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

using Row = std::vector<std::pair<Index, Scalar>>;

/// Rows of Null by number, of all that this rank touches.
std::map<Index, Row> rowsOf(const Unknowns& u, const std::vector<Index>& numbers)
{
    std::map<Index, Row> rows;
    for (std::size_t k = 0; k < numbers.size(); ++k)
        rows[numbers[k]] = u.row(k);
    return rows;
}

TEST(Unknowns, WithoutConditionsEachIsFreeUnderItsNumber)
{
    const Line line(5);

    const Unknowns u = line.with({});

    EXPECT_EQ(u.count(), line.count);
    EXPECT_EQ(u.freeCount(), line.count);
    EXPECT_EQ(u.ownedFree(), 5);
    EXPECT_EQ(u.firstFree(), 5 * world().rank());
    for (std::size_t k = 0; k < line.numbers.size(); ++k)
        EXPECT_EQ(u.row(k), (Row{{line.numbers[k], 1.0}}));
}

TEST(Unknowns, AFixedOneIsNotFreeAndHasItsValue)
{
    const Line line(5);
    Conditions c;
    if (isLast())
        c.fix(1, 2.5); // one that the first rank owns

    const Unknowns u = line.with(c);

    EXPECT_EQ(u.freeCount(), line.count - 1);
    for (std::size_t k = 0; k < line.numbers.size(); ++k) {
        const Index n = line.numbers[k];
        EXPECT_EQ(u.row(k), n == 1 ? Row{} : (Row{{n > 1 ? n - 1 : n, 1.0}}));
        EXPECT_EQ(u.particular()[k], n == 1 ? Scalar(2.5) : Scalar(0.0));
    }
}

TEST(Unknowns, AJoinAcrossRanksLeavesOneOfTwo)
{
    const Line line(3);
    Conditions c;
    if (world().rank() == 0)
        c.join(0, line.count - 1);

    const Unknowns u = line.with(c);

    EXPECT_EQ(u.freeCount(), line.count - 1);
    // both have the same row, whoever owns it
    const auto rows = rowsOf(u, line.numbers);
    Index wanted = -1;
    for (const Index end : {Index(0), line.count - 1})
        if (rows.count(end) != 0)
            wanted = rows.at(end).at(0).first;
    Index most = wanted;
    MPI_Allreduce(&wanted, &most, 1, MPI_INT64_T, MPI_MAX, world().comm());
    for (const Index end : {Index(0), line.count - 1})
        if (rows.count(end) != 0) {
            EXPECT_EQ(rows.at(end), (Row{{most, 1.0}}));
        }
}

TEST(Unknowns, NullAndParticularAreTheSameBitsForAnyNumberOfRanks)
{
    for (const unsigned seed : {1u, 2u, 3u}) {
        Model m = Model::random(60, seed);
        m.addRandomConditions(seed + 100);
        std::size_t owned = 0;
        const std::vector<Index> mine = m.numbersOf(world().rank(), world().size(), owned);
        const Session alone(MPI_COMM_SELF);
        const std::vector<Index> all = m.numbersOf(0, 1, owned);

        const Unknowns together = m.unknownsOn(world());
        const Unknowns serial = m.unknownsOn(alone);

        EXPECT_EQ(together.freeCount(), serial.freeCount());
        const auto wanted = rowsOf(serial, all);
        for (std::size_t k = 0; k < mine.size(); ++k) {
            EXPECT_EQ(together.row(k), wanted.at(mine[k])) << "unknown " << mine[k] << ", seed " << seed;
            EXPECT_EQ(together.particular()[k], serial.particular()[static_cast<std::size_t>(
                                                    std::find(all.begin(), all.end(), mine[k]) - all.begin())]);
        }
    }
}

TEST(Unknowns, NullAnnulsEveryCondition)
{
    Model m = Model::random(60, 4);
    m.addRandomConditions(5);
    const Session alone(MPI_COMM_SELF);
    const Unknowns u = m.unknownsOn(alone);
    std::size_t owned = 0;
    const std::vector<Index> all = m.numbersOf(0, 1, owned);
    const auto rows = rowsOf(u, all);

    for (const Model::Condition& c : m.conditions) {
        std::map<Index, Scalar> sum;
        Scalar value = 0.0;
        for (const auto& [unknown, by] : c.entries) {
            for (const auto& [free, factor] : rows.at(unknown))
                sum[free] += by * factor;
            value += by * u.particular()[static_cast<std::size_t>(std::find(all.begin(), all.end(), unknown) - all.begin())];
        }
        for (const auto& entry : sum)
            EXPECT_NEAR(std::abs(entry.second), 0.0, 1e-13);
        EXPECT_NEAR(std::abs(value - c.value), 0.0, 1e-13);
    }
}

TEST(Unknowns, EveryFreeOneHasAHome)
{
    for (const unsigned seed : {11u, 12u, 13u, 14u}) {
        Model m = Model::random(50, seed);
        m.addRandomConditions(seed);

        const Unknowns u = m.unknownsOn(world());

        Index sum = 0;
        const Index own = u.ownedFree();
        MPI_Allreduce(&own, &sum, 1, MPI_INT64_T, MPI_SUM, world().comm());
        EXPECT_EQ(sum, u.freeCount());
        std::size_t owned = 0;
        for (std::size_t k = 0; k < m.numbersOf(world().rank(), world().size(), owned).size(); ++k)
            for (const auto& [free, factor] : u.row(k)) {
                EXPECT_GE(free, 0);
                EXPECT_LT(free, u.freeCount());
            }
    }
}

TEST(Unknowns, ConditionsThatRepeatOthersAreNamedByRankAndPlace)
{
    const Line line(4);
    Conditions c;
    c.fix(0, 1.0); // by all ranks: one counts, that of the first
    if (isLast())
        c.join(1, 2).join(2, 3).join(1, 3);

    const Unknowns u = line.with(c);

    EXPECT_EQ(u.freeCount(), line.count - 3);
    std::vector<ConditionPlace> wanted;
    for (int r = 1; r < world().size(); ++r)
        wanted.push_back({r, 0});
    ASSERT_EQ(u.redundant().size(), wanted.size() + 1);
    for (const ConditionPlace& p : wanted)
        EXPECT_THAT(u.redundant(), testing::Contains(p));
    EXPECT_EQ(u.redundant().back().rank, last());
    EXPECT_GE(u.redundant().back().condition, 1);
}

TEST(Unknowns, ContradictionsAcrossRanksNameBothConditions)
{
    const Line line(4);
    Conditions c;
    if (world().rank() == 0)
        c.join(1, 2).fix(0, 1.0);
    if (isLast())
        c.fix(3, 9.0).fix(0, 3.0);

    const auto e = failureOf([&] { line.with(c); });

    ASSERT_EQ(e.getId(), "Contradicting_conditions");
    const std::string id = e.getId();
    const std::string first = "0:1";
    const std::string second = std::to_string(last()) + ":" + (world().size() == 1 ? "3" : "1");
    const std::string own = argumentOf(e, id, "Rank") + ":" + argumentOf(e, id, "Condition");
    EXPECT_TRUE((own == first && argumentOf(e, id, "With") == second) || (own == second && argumentOf(e, id, "With") == first))
        << e.toString();
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), "0");
}

TEST(Unknowns, AConditionWithoutUnknownsContradictsByItself)
{
    const Line line(2);
    Conditions c;
    if (isLast())
        c.add({}, 1.0);

    EXPECT_EQ(failureOf([&] { line.with(c); }).getId(), "Contradicting_conditions");
}

TEST(Unknowns, TheLimitOfEntriesHoldsOverAllRanks)
{
    const Line line(4);
    Conditions c;
    c.join(4 * world().rank(), 4 * world().rank() + 1); // two entries and a value
    const Index entries = 3 * world().size();

    const auto e = failureOf([&] { line.with(c, {.entryLimit = entries - 1}); });

    EXPECT_EQ(e.getId(), "Too_many_condition_entries");
    EXPECT_EQ(argumentOf(e, e.getId(), "Entries"), std::to_string(entries));
    EXPECT_EQ(argumentOf(e, e.getId(), "Limit"), std::to_string(entries - 1));
    EXPECT_NO_THROW(line.with(c, {.entryLimit = entries}));
}

TEST(Unknowns, ARankMayHaveNone)
{
    std::vector<Index> numbers;
    if (world().rank() == 0)
        numbers = {2, 0, 1};

    const Unknowns u(world(), numbers, numbers.size());

    EXPECT_EQ(u.count(), 3);
    EXPECT_EQ(u.ownedFree(), world().rank() == 0 ? 3 : 0);
}

TEST(Unknowns, ThereMayBeNone)
{
    const Unknowns u(world(), {}, 0);

    EXPECT_EQ(u.count(), 0);
    EXPECT_EQ(u.freeCount(), 0);
}

TEST(Unknowns, AllMayBeFixed)
{
    const Line line(3);
    Conditions c;
    for (std::size_t k = 0; k < line.owned; ++k)
        c.fix(line.numbers[k], 1.0);

    const Unknowns u = line.with(c);

    EXPECT_EQ(u.freeCount(), 0);
    EXPECT_EQ(u.particular().front(), Scalar(1.0));
}

TEST(Unknowns, NumbersOutOfRangeAreRefusedByAll)
{
    Line line(4);
    if (isLast())
        line.numbers[line.owned - 1] = line.count;

    const auto e = failureOf([&] { line.with({}); });

    EXPECT_EQ(e.getId(), "Unknown_out_of_range");
    EXPECT_EQ(argumentOf(e, e.getId(), "Unknown"), std::to_string(line.count));
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last()));
    line.numbers[0] = -1;
    EXPECT_EQ(failureOf([&] { line.with({}); }).getId(), "Unknown_out_of_range");
}

TEST(Unknowns, ANumberListedTwiceIsRefused)
{
    Line line(4);
    if (isLast())
        line.numbers[1] = line.numbers[0];

    const auto e = failureOf([&] { line.with({}); });

    EXPECT_EQ(e.getId(), "Unknown_listed_twice");
    EXPECT_EQ(argumentOf(e, e.getId(), "Unknown"), std::to_string(4 * last()));
}

TEST(Unknowns, AnUnknownWithTwoOwnersOrNoneIsNamed)
{
    if (world().size() == 1)
        GTEST_SKIP() << "needs two ranks";
    std::vector<Index> numbers{2 * world().rank(), 2 * world().rank() + 1};
    if (isLast())
        numbers[0] = 0;

    const auto e = failureOf([&] { Unknowns(world(), numbers, 2); });

    EXPECT_EQ(e.getId(), "Unknown_without_one_owner");
    EXPECT_EQ(argumentOf(e, e.getId(), "Unknown"), std::to_string(2 * last()));
    EXPECT_EQ(argumentOf(e, e.getId(), "Owners"), "0");
}

TEST(Unknowns, MoreOwnedThanListedIsRefused)
{
    const std::vector<Index> none;

    EXPECT_EQ(failureOf([&] { Unknowns(world(), none, 1); }).getId(), "Wrong_number_of_values");
}

TEST(Unknowns, ConditionsThatDoNotFitTogetherAreRefused)
{
    const Line line(4);
    Conditions good;
    good.join(0, 1);
    const auto idOf = [&](void (*spoil)(Conditions&)) {
        Conditions c = good;
        if (isLast())
            spoil(c);
        return failureOf([&] { line.with(c); }).getId();
    };

    EXPECT_EQ(idOf([](Conditions& c) { c.factor.pop_back(); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([](Conditions& c) { c.value.pop_back(); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([](Conditions& c) { c.start.clear(); }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([](Conditions& c) { c.start.back() = 1; }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([](Conditions& c) { c.start.front() = 1; }), "Wrong_number_of_values");
    EXPECT_EQ(idOf([](Conditions& c) { c.unknown[1] = 1 << 20; }), "Unknown_out_of_range");
    EXPECT_EQ(idOf([](Conditions& c) { c.unknown[1] = -1; }), "Unknown_out_of_range");
    EXPECT_EQ(idOf([](Conditions& c) { c.factor[1] = std::numeric_limits<double>::quiet_NaN(); }), "Value_not_finite");
    EXPECT_EQ(idOf([](Conditions& c) { c.value[0] = std::numeric_limits<double>::infinity(); }), "Value_not_finite");
}

TEST(Unknowns, ACancelOfTheFirstRankIsACancelOfAll)
{
    const Line line(4);
    Conditions c;
    c.join(4 * world().rank(), 4 * world().rank() + 1);
    qxutil::RunInfo run;
    run.cancel();

    EXPECT_THROW(line.with(c, {.run = &run}), qxbase::CancelException);
}

TEST(Unknowns, AStartIsMadeToObeyTheConditions)
{
    Model m = Model::random(60, 6);
    m.addRandomConditions(7);
    std::size_t owned = 0;
    const std::vector<Index> numbers = m.numbersOf(world().rank(), world().size(), owned);
    const Unknowns u = m.unknownsOn(world());
    std::vector<Scalar> start;
    for (const Index n : numbers)
        start.push_back(0.1 * static_cast<double>(n));

    const std::vector<Scalar> made = u.admissible(start);

    const std::vector<Scalar> all = gatheredValues(world(), numbers, made, owned, m.count);
    for (const Model::Condition& c : m.conditions) {
        Scalar value = 0.0;
        for (const auto& [unknown, by] : c.entries)
            value += by * all[static_cast<std::size_t>(unknown)];
        EXPECT_NEAR(std::abs(value - c.value), 0.0, 1e-12);
    }
    EXPECT_EQ(all[59], start.empty() ? all[59] : Scalar(0.1 * 59.0)); // in no condition
    start.push_back(0.0);
    EXPECT_EQ(failureOf([&] { u.admissible(start); }).getId(), "Wrong_number_of_values");
}

TEST(Unknowns, ARowThatIsNotThereIsRefused)
{
    const Line line(2);
    const Unknowns u = line.with({});

    EXPECT_EQ(failureOf([&] { u.row(u.size()); }).getId(), "Wrong_number_of_values");
}

} // namespace

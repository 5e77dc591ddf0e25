// SPDX-License-Identifier: LicenseRef-qxkernel
// Failures of single ranks become failures of all.
#include "distributed/world.hpp"

#include "formulas.hpp"
#include "qxrun.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

using namespace qx::distributed;

namespace {

template <class Step>
qxbase::Exception failureOf(const Step& step)
{
    try {
        world().together(step);
    } catch (const qxbase::Exception& e) {
        return e;
    }
    return {};
}

int last() { return world().size() - 1; }

TEST(Agreement, AStepThatSucceedsEverywhereReturnsEverywhere)
{
    int taken = 0;

    world().together([&] { ++taken; });

    EXPECT_EQ(taken, 1);
}

TEST(Agreement, AFailureOfOneRankIsRaisedByAllWithItsStoryAndRank)
{
    const auto e = failureOf([] {
        if (world().rank() == last())
            QX_RAISE("test", "Something_failed", qxbase::ExceptionArgs{{"Key", "a:b 7"}, {"Empty", ""}, {"Lines", "x\ny"}});
    });

    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e.getId(), "Something_failed");
    EXPECT_EQ(e.getFile(0), "test");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Key", "a:b 7"}, {"Empty", ""}, {"Lines", "x\ny"}}));
    EXPECT_EQ(e.getId(1), "Failed_on_rank");
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last()));
}

TEST(Agreement, OfSeveralFailuresTheLowestRankIsTold)
{
    const auto e = failureOf([] {
        if (world().rank() >= last() / 2)
            QX_RAISE("test", "Rank_failed", "Own", world().rank());
    });

    EXPECT_EQ(argumentOf(e, "Rank_failed", "Own"), std::to_string(last() / 2));
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last() / 2));
}

TEST(Agreement, ACancelOfOneRankIsACancelOfAll)
{
    qxutil::RunInfo run;
    run.cancel(world().rank() == last());

    EXPECT_THROW(world().agreeOnCancel(run), qxbase::CancelException);
}

TEST(Agreement, ForeignExceptionsTravelWithTheirReason)
{
    const auto e = failureOf([] {
        if (world().rank() == last())
            throw std::runtime_error("the file is gone");
    });

    EXPECT_EQ(e.getId(), "Exception_on_rank");
    EXPECT_EQ(argumentOf(e, "Exception_on_rank", "Reason"), "the file is gone");
}

TEST(Agreement, WhatIsNoExceptionTravelsToo)
{
    const auto e = failureOf([] {
        if (world().rank() == last())
            throw 7;
    });

    EXPECT_EQ(e.getId(), "Exception_on_rank");
}

TEST(Agreement, ExhaustedMemoryOfOneRankHasItsIdentifier)
{
    const auto e = failureOf([] {
        if (world().rank() == last())
            throw std::bad_alloc();
    });

    EXPECT_EQ(e.getId(), "Out_of_memory_on_rank");
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last()));
}

TEST(Agreement, AnAgreementInsideAnotherKeepsTheFirstRank)
{
    const auto e = failureOf([] {
        world().together([] {
            if (world().rank() == last())
                QX_RAISE("test", "Inner");
        });
    });

    EXPECT_EQ(e.size(), 2u);
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last()));
}

TEST(Agreement, WorkGoesOnAfterAFailureThatWasCaught)
{
    failureOf([] { QX_RAISE("test", "First"); });
    int sum = 0;
    const int one = 1;

    world().together([] {});
    MPI_Allreduce(&one, &sum, 1, MPI_INT, MPI_SUM, world().comm());

    EXPECT_EQ(sum, world().size());
}

TEST(Agreement, AFormulaWithoutAValueAtAPointOfOneRankIsToldByAll)
{
    qx::Formulas f({"x"});
    const qx::Formula formula = f.add("1/(x-2)");
    const qx::Program program = f.compile();
    std::vector<double> x{5.0, 3.0, world().rank() == last() ? 2.0 : 7.0}, y(3);
    qx::Points points(3);
    points.set("x", x);

    const auto e = failureOf([&] {
        try {
            program.evaluate(points, formula, y, {.requireFinite = true});
        } catch (qxbase::Exception& failure) {
            failure.add("test", __LINE__, "In_element", {{"Element", "4711"}});
            throw;
        }
    });

    EXPECT_EQ(argumentOf(e, "Evaluation_failed_at_point", "Point"), "2");
    EXPECT_EQ(argumentOf(e, "In_element", "Element"), "4711");
    EXPECT_EQ(argumentOf(e, "Failed_on_rank", "Rank"), std::to_string(last()));
}

TEST(Agreement, ASessionOfOneRankLivesBesideThatOfAll)
{
    const Session alone(MPI_COMM_SELF);
    bool raised = false;

    try {
        alone.together([] {
            if (world().rank() == last())
                QX_RAISE("test", "Only_here");
        });
    } catch (const qxbase::Exception&) {
        raised = true;
    }
    world().together([] {});

    EXPECT_EQ(alone.size(), 1);
    EXPECT_EQ(raised, world().rank() == last());
}

} // namespace

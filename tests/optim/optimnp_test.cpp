// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimnp.hpp"

#include "arrays.hpp"
#include "qxrun.hpp"
#include "recorder.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <limits>
#include <memory>
#include <new>
#include <thread>

namespace {

using qxbase::Prop;
using qxtest::doubles;
using qxtest::failureOf;
using qxtest::idOf;
using qxtest::ints;
using recording::JacobianCall;
using recording::NonlinearCall;
using testing::ElementsAre;
using testing::HasSubstr;

template <class T>
std::vector<T> listOf(const Array<T, 1>& from)
{
    return {from.begin(), from.end()};
}

/// f_1 = x_1^2 + x_2^2, f_2 = 0: the second function is linear only. What is called is counted; what should happen instead
/// of a value is set by the test.
class Circle : public OptimNPCallback
{
public:
    void eval(int& status, int n, const double* x, bool needF, int nF, double* F, bool needG, int lenG, double* G) override
    {
        ++calls;
        firstStatus = calls == 1 ? status : firstStatus;
        sizes = {n, nF, lenG};
        wanted = {needF, needG};
        if (instead)
            instead(status);
        if (needF) {
            F[0] = x[0] * x[0] + x[1] * x[1];
            F[1] = 0.0;
        }
        if (needG) {
            G[0] = 2 * x[0];
            G[1] = 2 * x[1];
        }
    }
    bool isCancelled() override { return cancelled; }
    void onIteration(int count) override { iterations.emplace_back(count, calls); }

    std::vector<std::pair<int, int>> iterations; ///< count, evaluations before it was told
    int calls = 0, firstStatus = -9;
    std::vector<int> sizes;
    std::vector<bool> wanted;
    std::function<void(int&)> instead;
    bool cancelled = false;
};

class OptimNPTest : public WithRecorder
{
protected:
    /// minimise x_1^2 + x_2^2 with 1 <= x_1 + 3 x_2, all arrays as they should be.
    struct Problem
    {
        int nF = 2, n = 2, objRow = 1;
        Array<int, 1> iA = ints({2, 2}), jA = ints({1, 2}), iG = ints({1, 1}), jG = ints({1, 2});
        Array<double, 1> A = doubles({1, 3});
        Array<double, 1> x = doubles({0.5, 0.25}), xlow = doubles({-5, -6}), xupp = doubles({5, 6}), xmul = doubles({0, 0});
        Array<int, 1> xstate = ints({0, 0}), Fstate = ints({0, 0});
        Array<double, 1> F = doubles({0, 0}), Flow = doubles({-1e20, 1}), Fupp = doubles({1e20, 1e20}),
                         Fmul = doubles({0, 0});
        int inform = -1, nInf = -1, iterations = -1, majors = -1;
        double sInf = -1;
        std::string message;
        bool cold = true;
    };

    void solve()
    {
        OptimNP::solve(callback, state, prop, p.nF, p.n, p.iA, p.jA, p.A, p.iG, p.jG, p.x, p.xlow, p.xupp, p.xmul,
                       p.xstate, p.F, p.Flow, p.Fupp, p.Fmul, p.Fstate, p.objRow, p.inform, p.nInf, p.sInf, p.iterations,
                       p.majors, p.message, p.cold);
    }
    void pattern()
    {
        OptimNP::pattern(callback, state, prop, p.nF, p.n, p.x, p.xlow, p.xupp, p.objRow, p.iA, p.jA, p.A, p.iG, p.jG,
                         p.inform, p.message);
    }
    void stop(bool on) { prop.setInt("stop", on ? 0 : 1); }

    boost::shared_ptr<Circle> callback{new Circle};
    boost::shared_ptr<OptimState> state{new OptimState(4000, 500, 500, true, 0, 0)};
    Prop prop;
    Problem p;
};

// --- Marshalling -------------------------------------------------------------------------------------------------------

TEST_F(OptimNPTest, TheOptimizerSeesTheProblemAsItStands)
{
    bool seen = false;
    script->onNonlinear = [&](const NonlinearCall& call) {
        seen = true;
        EXPECT_EQ(call.start, 0);
        EXPECT_EQ(call.nF, 2);
        EXPECT_EQ(call.n, 2);
        EXPECT_EQ(call.nxname, 1);
        EXPECT_EQ(call.nFname, 1);
        EXPECT_EQ(call.objAdd, 0.0);
        EXPECT_EQ(call.objRow, 1);
        EXPECT_EQ(call.problem, "        ");
        EXPECT_EQ(call.xnames, "        ");
        EXPECT_EQ(call.Fnames, "        ");
        EXPECT_THAT(call.iA, ElementsAre(2, 2));
        EXPECT_THAT(call.jA, ElementsAre(1, 2));
        EXPECT_THAT(call.A, ElementsAre(1, 3));
        EXPECT_THAT(call.iG, ElementsAre(1, 1));
        EXPECT_THAT(call.jG, ElementsAre(1, 2));
        EXPECT_THAT(call.xlow, ElementsAre(-5, -6));
        EXPECT_THAT(call.xupp, ElementsAre(5, 6));
        EXPECT_THAT(call.Flow, ElementsAre(-1e20, 1));
        EXPECT_THAT(call.Fupp, ElementsAre(1e20, 1e20));
        EXPECT_THAT(call.lengths, ElementsAre(8, 8, 8, 8, 8));
        EXPECT_EQ(call.x[0], 0.5);
        EXPECT_EQ(call.x[1], 0.25);
    };

    solve();

    EXPECT_TRUE(seen);
    EXPECT_THAT(script->calls, ElementsAre("qxsninit 0 0 lengths 500 500 500",
                                           "qxsnseti 'Derivative option' = 1 print 0",
                                           "qxsnmema 2 2 names 1 1 entries 2 2", "qxsnopta"));
}

TEST_F(OptimNPTest, ResultsComeBackInTheCallersArrays)
{
    script->minorIterations = 17;
    script->majorIterations = 5;
    script->onNonlinear = [&](const NonlinearCall& call) {
        for (int i = 0; i < 2; ++i) {
            call.x[i] = 0.1 * i;
            call.xmul[i] = 1 + i;
            call.xstate[i] = 2 + i;
            call.F[i] = 10 + i;
            call.Fmul[i] = 20 + i;
            call.Fstate[i] = 30 + i;
        }
        *call.nInf = 3;
        *call.sInf = 0.75;
    };

    solve();

    EXPECT_THAT(listOf(p.x), ElementsAre(0, 0.1));
    EXPECT_THAT(listOf(p.xmul), ElementsAre(1, 2));
    EXPECT_THAT(listOf(p.xstate), ElementsAre(2, 3));
    EXPECT_THAT(listOf(p.F), ElementsAre(10, 11));
    EXPECT_THAT(listOf(p.Fmul), ElementsAre(20, 21));
    EXPECT_THAT(listOf(p.Fstate), ElementsAre(30, 31));
    EXPECT_EQ(p.nInf, 3);
    EXPECT_EQ(p.sInf, 0.75);
    EXPECT_EQ(p.iterations, 17);
    EXPECT_EQ(p.majors, 5);
    EXPECT_EQ(p.inform, 1);
    EXPECT_EQ(p.message, "Optimality conditions satisfied.");
}

TEST_F(OptimNPTest, TellsOfIterationsBeforeTheNextEvaluationAndAtTheEnd)
{
    script->onNonlinear = [&](const NonlinearCall& call) {
        double f[2], g[2];
        for (const int done : {0, 0, 1, 1, 3}) {
            call.iw[421] = done;
            call.evaluate(0, call.x, true, f, true, g);
        }
        call.iw[421] = 4;
    };
    state->init();
    state->getIw()[421] = 7; // what an earlier run left
    script->majorIterations = 7;

    solve();

    EXPECT_THAT(callback->iterations, ElementsAre(std::pair(1, 2), std::pair(3, 4), std::pair(4, 5)));
}

TEST_F(OptimNPTest, WarmStartIsTwo)
{
    p.cold = false;
    int start = -1;
    script->onNonlinear = [&](const NonlinearCall& call) { start = call.start; };

    solve();

    EXPECT_EQ(start, 2);
}

TEST_F(OptimNPTest, DerivativeLevelAndPropertiesAreSentBeforeTheEstimate)
{
    state->setDerivLevel(0);
    prop.setInt("verify", 3);

    solve();

    EXPECT_THAT(script->calls, ElementsAre("qxsninit 0 0 lengths 500 500 500", "qxsnseti 'Verify level' = 3 print 0",
                                           "qxsnseti 'Derivative option' = 0 print 0",
                                           "qxsnmema 2 2 names 1 1 entries 2 2", "qxsnopta"));
}

TEST_F(OptimNPTest, UncheckedTextsAreTheHostsMistake)
{
    prop.setString("maximize", "on");

    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_property_processing");
}

TEST_F(OptimNPTest, AnInitialisedStateIsNotInitialisedAgain)
{
    state->init();

    solve();
    solve();

    EXPECT_EQ(callsOf("qxsninit").size(), 1u);
}

TEST_F(OptimNPTest, CallbackSeesTheOptimizersArguments)
{
    script->onNonlinear = [&](const NonlinearCall& call) {
        const double x[] = {3, 4};
        double F[] = {-1, -1}, G[] = {-1, -1};
        EXPECT_EQ(call.evaluate(1, x, true, F, false, G), 1);
        EXPECT_EQ(callback->wanted, (std::vector<bool>{true, false}));
        EXPECT_EQ(F[0], 25);
        EXPECT_EQ(G[0], -1);
        EXPECT_EQ(call.evaluate(0, x, false, F, true, G), 0);
        EXPECT_EQ(callback->wanted, (std::vector<bool>{false, true}));
        EXPECT_EQ(G[1], 8);
    };

    solve();

    EXPECT_EQ(callback->firstStatus, 1);
    EXPECT_EQ(callback->sizes, (std::vector<int>{2, 2, 2}));
}

TEST_F(OptimNPTest, TheLastNotificationDoesNotReachTheCallback)
{
    script->onNonlinear = [&](const NonlinearCall& call) {
        double x[] = {0, 0}, F[2];
        EXPECT_EQ(call.evaluate(2, x, true, F, false, nullptr), 2);
        EXPECT_EQ(call.evaluate(5, x, true, F, false, nullptr), 5);
    };

    solve();

    EXPECT_EQ(callback->calls, 0);
}

TEST_F(OptimNPTest, AnUndefinedPointIsReportedAsMinusOne)
{
    callback->instead = [](int& status) { status = -1; };
    script->onNonlinear = [&](const NonlinearCall& call) {
        double x[] = {0, 0}, F[2];
        EXPECT_EQ(call.evaluate(0, x, true, F, false, nullptr), -1);
        callback->instead = nullptr;
        EXPECT_EQ(call.evaluate(0, x, true, F, false, nullptr), 0);
    };

    solve();

    EXPECT_EQ(callback->calls, 2);
}

TEST_F(OptimNPTest, RunsWithinRunsKeepTheirCallbacksApart)
{
    const boost::shared_ptr<Circle> inner(new Circle);
    int depth = 0;
    script->onNonlinear = [&](const NonlinearCall& call) {
        double x[] = {1, 1}, F[2];
        if (++depth == 1) {
            Problem saved = p;
            OptimNP::solve(inner, boost::shared_ptr<OptimState>(new OptimState(0, 0, 0, true, 0, 0)), prop, saved.nF,
                           saved.n, saved.iA, saved.jA, saved.A, saved.iG, saved.jG, saved.x, saved.xlow, saved.xupp,
                           saved.xmul, saved.xstate, saved.F, saved.Flow, saved.Fupp, saved.Fmul, saved.Fstate,
                           saved.objRow, saved.inform, saved.nInf, saved.sInf, saved.iterations, saved.majors,
                           saved.message);
            call.evaluate(0, x, true, F, false, nullptr);
        }
        call.evaluate(0, x, true, F, false, nullptr);
    };

    solve();

    EXPECT_EQ(callback->calls, 2);
    EXPECT_EQ(inner->calls, 1);
}

TEST_F(OptimNPTest, ACallAllocatesNothing)
{
    long before = 0, after = 0;
    script->onNonlinear = [&](const NonlinearCall& call) {
        double x[] = {1, 1}, F[2], G[2];
        call.evaluate(1, x, true, F, true, G);
        before = qxtest::allocationCount();
        for (int k = 0; k < 1000; ++k)
            callback->calls += call.evaluate(0, x, true, F, true, G);
        after = qxtest::allocationCount();
    };
    struct Silent : qxutil::RunListener
    {
    } listener;
    qxutil::RunInfo info(&listener);
    state->setRunInfo(&info);
    class Plain : public OptimNPCallback
    {
        void eval(int&, int, const double*, bool, int, double* F, bool, int, double* G) override { F[0] = G[0] = 1; }
    };

    OptimNP::solve(OptimNP::Callback(new Plain), state, prop, p.nF, p.n, p.iA, p.jA, p.A, p.iG, p.jG, p.x, p.xlow, p.xupp,
                   p.xmul, p.xstate, p.F, p.Flow, p.Fupp, p.Fmul, p.Fstate, p.objRow, p.inform, p.nInf, p.sInf,
                   p.iterations, p.majors, p.message);

    EXPECT_GT(before, 0);
    EXPECT_EQ(after, before);
}

// --- Checks before the optimizer is called ---------------------------------------------------------------------------------

TEST_F(OptimNPTest, BadSizesAreFoundInTheirOrderBeforeAnyCall)
{
    const std::string values = "The_number_of_initial_values_is_not_equal_to_the_number_of_constraints",
                      states = "The_number_of_initial_values_is_not_equal_to_the_number_of_states",
                      bounds = "The_number_of_upper_or_lower_bounds_is_not_equal_to_the_number_of_constraints";
    // All is wrong at first; each step mends what was reported.
    p.n = 0;
    p.objRow = 0;
    const auto idNow = [&] { return idOf([&] { solve(); }); };
    p.x.resize(1);
    p.F.resize(1);
    p.xstate.resize(1);
    p.xupp.resize(3);
    p.Flow.resize(1);
    p.Fstate.resize(3);
    p.xmul.resize(1);
    p.Fmul.resize(3);
    p.iA.resize(1);

    EXPECT_EQ(idNow(), "The_number_of_optimization_variables_must_be_greater_than_0");
    p.n = -3;
    EXPECT_EQ(idNow(), "The_number_of_optimization_variables_must_be_greater_than_0");
    p.n = 2;
    EXPECT_EQ(idNow(), "No_objective_given");
    p.objRow = 3;
    EXPECT_EQ(idNow(), "No_objective_given");
    p.objRow = 2;
    EXPECT_EQ(idNow(), values);
    p.x = doubles({0, 0});
    EXPECT_EQ(idNow(), values);
    p.F = doubles({0, 0});
    EXPECT_EQ(idNow(), states);
    p.xstate = ints({0, 0});
    EXPECT_EQ(idNow(), bounds);
    p.xupp = doubles({9, 9});
    EXPECT_EQ(idNow(), bounds);
    p.Flow = doubles({0, 0});
    EXPECT_EQ(idNow(), states); // the same identifier again, now for states of functions and multipliers
    p.Fstate = ints({0, 0});
    EXPECT_EQ(idNow(), states);
    p.xmul = doubles({0, 0});
    EXPECT_EQ(idNow(), states);
    p.Fmul = doubles({0, 0});
    EXPECT_EQ(idNow(), "Internal_error_optim");
    EXPECT_TRUE(script->calls.empty());
    p.iA = ints({2, 2});
    EXPECT_EQ(idNow(), "");
}

TEST_F(OptimNPTest, IndicesOutsideTheProblemAreRefused)
{
    const auto refused = [&](Array<int, 1>& indices, int value) {
        const int kept = indices[1];
        indices[1] = value;
        const std::string id = idOf([&] { solve(); });
        indices[1] = kept;
        return id == "Internal_error_optim";
    };

    for (Array<int, 1>* indices : {&p.iA, &p.jA, &p.iG, &p.jG}) {
        EXPECT_TRUE(refused(*indices, 0));
        EXPECT_TRUE(refused(*indices, 3));
    }
    p.jG = ints({1});
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    EXPECT_TRUE(script->calls.empty());
}

TEST_F(OptimNPTest, NeedsALibraryACallbackAndAStateOfItsClass)
{
    const boost::shared_ptr<Circle> good = callback;
    callback.reset();
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { pattern(); }), "Internal_error_optim");
    callback = good;
    state.reset();
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    state.reset(new OptimState(0, 0, 0, false, 0, 0));
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    state.reset(new OptimState(0, 0, 0, true, 0, 0));

    OptimState::setLibraryPath("");
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { pattern(); }), "Internal_error_optim");
    EXPECT_TRUE(script->calls.empty());
}

TEST_F(OptimNPTest, ALibraryWithoutTheOptimizerIsNamed)
{
    OptimState::setLibraryPath(QX_PARTIAL_FOLDER);
    OptimState::loadLib();

    const qxbase::Exception failure = failureOf([&] { solve(); });

    EXPECT_EQ(failure.getId(), "Symbol_not_found_in_library");
    EXPECT_THAT(failure.toString(), HasSubstr("qxsnopta"));
}

// --- Exits -------------------------------------------------------------------------------------------------------------------

struct ExitRow
{
    int code;
    int state; ///< 0 returned, 1 raised unless "stop" is off, 2 always raised
    const char* text;
};

const ExitRow kExits[] = {
    {0, 0, "Finished successfully."},
    {1, 0, "Optimality conditions satisfied."},
    {2, 0, "Feasible point found."},
    {3, 1, "Requested_accuracy_could_not_be_achieved."},
    {4, 0, "Weak_QP_minimizer."},
    {10, 1, "The_problem_appears_to_be_infeasible."},
    {11, 1, "Infeasible_linear_constraints."},
    {12, 1, "Infeasible_linear_equalities."},
    {13, 1, "Nonlinear_infeasibilities_minimized."},
    {14, 1, "Infeasibilities_minimized."},
    {20, 1, "The_problem_appears_to_be_unbounded."},
    {21, 1, "Unbounded_objective."},
    {22, 1, "Constraint_violation_limit_reached."},
    {30, 1, "Resource_limit_error."},
    {31, 1, "Iteration_limit_reached."},
    {32, 1, "Major_iteration_limit_reached."},
    {33, 1, "The_superbasics_limit_is_too_small."},
    {40, 1, "Terminated_after_numerical_difficulties."},
    {41, 1, "Current_point_cannot_be_improved."},
    {42, 1, "Singular_basis."},
    {43, 1, "Cannot_satisfy_the_general_constraints."},
    {44, 1, "Ill-conditioned_null-space_basis."},
    {50, 2, "Error_in_the_user-supplied_functions."},
    {51, 2, "Incorrect_objective_derivatives."},
    {52, 2, "Incorrect_constraint_derivatives."},
    {60, 1, "Undefined_user-supplied_functions."},
    {61, 1, "Undefined_function_at_the_first_feasible_point."},
    {62, 1, "Undefined_function_at_the_initial_point."},
    {63, 1, "Unable_to_proceed_into_undefined_region."},
    {70, 1, "User_requested_termination."},
    {71, 1, "Terminated_during_function_evaluation."},
    {72, 1, "Terminated_during_function_evaluation."},
    {73, 1, "Terminated_during_function_evaluation."},
    {74, 1, "Terminated_from_monitor_routine."},
    {80, 2, "Insufficient_storage_allocated."},
    {84, 2, "Insufficient_storage_allocated."},
    {90, 2, "Input_arguments_out_of_range."},
    {91, 2, "Invalid_input_argument."},
    {92, 2, "Basis_file_dimensions_do_not_match_this_problem."},
    {140, 2, "System_error."},
    {141, 2, "Wrong_number_of_basic_variables."},
    {142, 2, "Error_in_basis_package."},
};

TEST_F(OptimNPTest, EachExitCodeReturnsOrRaisesItsText)
{
    for (const bool on : {true, false})
        for (const auto& [code, exitState, text] : kExits) {
            script->exits = {code};
            stop(on);
            p = Problem();

            const std::string id = idOf([&] { solve(); });

            EXPECT_EQ(id, exitState == 2 || (exitState == 1 && on) ? text : "") << code << " stop " << on;
            EXPECT_EQ(p.inform, code);
            EXPECT_EQ(p.message, text);
        }
}

TEST_F(OptimNPTest, UnknownCodesAreNamedUnderAKeyWithAColon)
{
    for (const int code : {5, 53, 75, 79, 85, 93, 139, 143, 999, -1}) {
        script->exits = {code};
        stop(false);

        const qxbase::Exception failure = failureOf([&] { solve(); });

        EXPECT_EQ(failure.getId(), "Unknown_error_occurred_during_optimization");
        EXPECT_EQ(failure.getArgs(0), (qxbase::ExceptionArgs{{"Error code:", std::to_string(code)}}));
    }
}

TEST_F(OptimNPTest, ResultsAreWrittenBeforeAnExitIsRaised)
{
    script->exits = {32};
    script->onNonlinear = [](const NonlinearCall& call) { call.x[0] = 42; };

    EXPECT_EQ(idOf([&] { solve(); }), "Major_iteration_limit_reached.");

    EXPECT_EQ(p.x[0], 42);
    EXPECT_EQ(p.inform, 32);
}

// --- Storage -------------------------------------------------------------------------------------------------------------------

TEST_F(OptimNPTest, StorageGrowsByHalfTruncatedUntilItSuffices)
{
    state.reset(new OptimState(8000, 1000, 1000, true, 0, 0));
    script->exits = {82, 83, 84, 82, 1};

    solve();

    std::vector<std::vector<int>> wanted;
    for (const int length : {1000, 1500, 2250, 3375, 5062})
        wanted.push_back({length, length, length});
    EXPECT_EQ(script->lengths, wanted);
    EXPECT_EQ(p.inform, 1);
    EXPECT_EQ(state->getCwBytes(), 40500); // bytes grow, words are counted down
}

TEST_F(OptimNPTest, FiveAttemptsAreAll)
{
    script->exits = {84};
    stop(false);

    EXPECT_EQ(idOf([&] { solve(); }), "Insufficient_storage_allocated.");

    EXPECT_EQ(script->lengths.size(), 5u);
    EXPECT_EQ(script->lengths.back(), (std::vector<int>{2531, 2530, 2530}));
    EXPECT_EQ(p.message, "Insufficient_storage_allocated.");
}

TEST_F(OptimNPTest, EachAttemptBeginsWhereTheCallerBegan)
{
    script->exits = {83, 1};
    std::vector<double> starts;
    script->onNonlinear = [&](const NonlinearCall& call) {
        starts.push_back(call.x[0]);
        call.x[0] = 99;
        call.xstate[0] = 9;
    };

    solve();

    EXPECT_THAT(starts, ElementsAre(0.5, 0.5));
}

TEST_F(OptimNPTest, TheEstimateLengthensWorkspacesBeforeTheFirstAttempt)
{
    script->mincw = 501;
    script->miniw = 777;
    script->minrw = 3;

    solve();

    EXPECT_EQ(script->lengths.front(), (std::vector<int>{501, 777, 500}));
}

TEST_F(OptimNPTest, AnEstimateBeyondAllBoundsIsAStorageFailure)
{
    script->mincw = std::numeric_limits<int>::max() / 8 + 1;

    EXPECT_EQ(idOf([&] { solve(); }), "Insufficient_storage_allocated.");
    EXPECT_TRUE(callsOf("qxsnopta").empty());
}

TEST_F(OptimNPTest, WorkspacesAreUsedAgain)
{
    script->exits = {82, 1};
    solve();
    script->lengths.clear();

    solve();

    EXPECT_EQ(script->lengths.front(), (std::vector<int>{750, 750, 750}));
}

// --- Failures of the callback ------------------------------------------------------------------------------------------------

class OptimNPFailure : public OptimNPTest
{
protected:
    /// The optimizer evaluates three times and then ends with this code.
    void evaluateAndEndWith(int code)
    {
        script->exits = {code};
        script->onNonlinear = [this](const NonlinearCall& call) {
            double x[] = {1, 1}, F[2];
            for (int k = 0; k < 3; ++k)
                statuses.push_back(call.evaluate(0, x, true, F, false, nullptr));
            call.x[0] = 7;
        };
    }
    std::vector<int> statuses;
};

TEST_F(OptimNPFailure, AnExceptionIsKeptAndWinsOverTheExitCode)
{
    callback->instead = [](int&) { QX_RAISE("host", "Host_failure", "Where", "here"); };
    for (const int code : {1, 71, 999, 140}) {
        evaluateAndEndWith(code);
        statuses.clear();
        callback->calls = 0;

        const qxbase::Exception failure = failureOf([&] { solve(); });

        EXPECT_EQ(failure.getId(), "Host_failure");
        EXPECT_THAT(failure.toString(), HasSubstr("Where = here"));
        EXPECT_THAT(statuses, ElementsAre(-2, -2, -2));
        EXPECT_EQ(callback->calls, 1); // not asked again after a failure
        EXPECT_EQ(p.x[0], 7);          // results are there all the same
    }
}

TEST_F(OptimNPFailure, OtherExceptionsHaveTextsOfTheDriver)
{
    evaluateAndEndWith(71);

    callback->instead = [](int&) { throw std::bad_alloc(); };
    EXPECT_EQ(idOf([&] { solve(); }), "Out of memory in optimization");
    callback->instead = [](int&) { throw 7; };
    EXPECT_EQ(idOf([&] { solve(); }), "Unknown exception in optimization");
    EXPECT_THAT(statuses, testing::Each(-2));
}

TEST_F(OptimNPFailure, ExceptionsKeepTheirType)
{
    evaluateAndEndWith(71);
    callback->instead = [](int&) { throw qxbase::CancelException("host", 1); };

    EXPECT_THROW(solve(), qxbase::CancelException);
}

TEST_F(OptimNPFailure, ARunAfterAFailureIsAsGoodAsAny)
{
    evaluateAndEndWith(1);
    callback->instead = [](int&) { throw 7; };
    EXPECT_NE(idOf([&] { solve(); }), "");
    callback->instead = nullptr;

    EXPECT_EQ(idOf([&] { solve(); }), "");
}

TEST_F(OptimNPFailure, CancelOfTheCallbackEndsTheRun)
{
    evaluateAndEndWith(71);
    callback->cancelled = true;

    EXPECT_THROW(solve(), qxbase::CancelException);
    EXPECT_EQ(callback->calls, 0);
    EXPECT_THAT(statuses, ElementsAre(-2, -2, -2));
}

TEST_F(OptimNPFailure, CancelFromAnotherThreadEndsTheRun)
{
    qxutil::RunInfo info;
    state->setRunInfo(&info);
    callback->instead = [&](int&) {
        if (callback->calls == 2)
            std::thread([&] { info.cancel(); }).join();
    };
    evaluateAndEndWith(71);

    EXPECT_THROW(solve(), qxbase::CancelException);
    EXPECT_THAT(statuses, ElementsAre(0, 0, -2));
    info.cancel(false);
    EXPECT_EQ(idOf([&] { solve(); }), "Terminated_during_function_evaluation.");
}

TEST_F(OptimNPFailure, EvaluationsAreReported)
{
    struct Listener : qxutil::RunListener
    {
        void onParam(const std::string& title, const std::string& name, double value) override
        {
            seen.push_back(title + "/" + name + "/" + std::to_string(static_cast<int>(value)));
        }
        std::vector<std::string> seen;
    } listener;
    qxutil::RunInfo info(&listener);
    state->setRunInfo(&info);
    evaluateAndEndWith(1);

    solve();

    EXPECT_THAT(listener.seen, ElementsAre("Optimization/Evaluations/1", "Optimization/Evaluations/2",
                                           "Optimization/Evaluations/3"));
}

TEST_F(OptimNPFailure, PrintFileIsClosedOnEveryPath)
{
    prop.setString("print", "run.out");

    solve();
    EXPECT_EQ(callsOf("qxsnclose").size(), 1u);
    evaluateAndEndWith(71);
    callback->instead = [](int&) { throw 7; };
    EXPECT_NE(idOf([&] { solve(); }), "");
    EXPECT_EQ(callsOf("qxsnclose").size(), 2u);
    prop.setString("maximize", "unchecked");
    EXPECT_NE(idOf([&] { solve(); }), "");
    EXPECT_EQ(callsOf("qxsnclose").size(), 3u);
}

TEST_F(OptimNPFailure, AllocationFailuresLeaveTheArraysAndTheStateUsable)
{
    script->onNonlinear = [](const NonlinearCall& call) { call.x[0] = 7; };
    script->calls.reserve(100000);
    script->lengths.reserve(100000);
    const double before = p.x[0];

    const long allocations = qxtest::failEveryAllocation([&] { p = Problem(); solve(); },
                                                         [&](const qxtest::FaultRun& run) {
        if (!run.faulted)
            return;
        EXPECT_TRUE(run.badAlloc || run.id == "Out of memory in optimization" || run.id.empty()) << run.id;
        EXPECT_TRUE(p.x.size() != 2 || p.x[0] == before || p.x[0] == 7);
    });

    EXPECT_GT(allocations, 20);
    EXPECT_EQ(p.x[0], 7);
}

// --- Pattern ---------------------------------------------------------------------------------------------------------------------

TEST_F(OptimNPTest, PatternGivesTheTripletsFound)
{
    script->exits = {102};
    script->onJacobian = [&](const JacobianCall& call) {
        EXPECT_EQ(call.lenA, 4);
        EXPECT_EQ(call.lenG, 4);
        double x[] = {1, 2}, F[2];
        EXPECT_EQ(call.evaluate(1, x, F), 1);
        EXPECT_EQ(F[0], 5);
        call.iA[0] = 2;
        call.jA[0] = 1;
        call.A[0] = 3.5;
        *call.neA = 1;
        call.iG[0] = 1, call.jG[0] = 1;
        call.iG[1] = 1, call.jG[1] = 2;
        *call.neG = 2;
    };

    pattern();

    EXPECT_THAT(listOf(p.iA), ElementsAre(2));
    EXPECT_THAT(listOf(p.jA), ElementsAre(1));
    EXPECT_THAT(listOf(p.A), ElementsAre(3.5));
    EXPECT_THAT(listOf(p.iG), ElementsAre(1, 1));
    EXPECT_THAT(listOf(p.jG), ElementsAre(1, 2));
    EXPECT_EQ(p.inform, 102);
    EXPECT_EQ(p.message, "Satisfactory coordinates were found.");
}

TEST_F(OptimNPTest, PatternRaisesOneIdentifierWithTheTextOfItsExit)
{
    const std::pair<int, const char*> exits[] = {{61, "Undefined function at the first feasible point."},
                                                 {71, "Terminated during function evaluation."},
                                                 {99, "Errors while estimating Jacobian structure."},
                                                 {82, "Errors while estimating Jacobian structure."}};
    for (const auto& [code, text] : exits) {
        script->exits = {code};

        const qxbase::Exception failure = failureOf([&] { pattern(); });

        EXPECT_EQ(failure.getId(), "Unknown_error_occurred_when_determining_sparsity_pattern");
        EXPECT_EQ(failure.getArgs(0), (qxbase::ExceptionArgs{{"Message", text}}));
        EXPECT_EQ(p.inform, code);
        EXPECT_EQ(p.message, text);
        EXPECT_THAT(listOf(p.iA), ElementsAre(2, 2)); // untouched
    }
}

TEST_F(OptimNPTest, PatternChecksAsSolveDoes)
{
    p.n = 0;
    EXPECT_EQ(idOf([&] { pattern(); }), "The_number_of_optimization_variables_must_be_greater_than_0");
    p.n = 2;
    p.objRow = 0;
    EXPECT_EQ(idOf([&] { pattern(); }), "No_objective_given");
    p.objRow = 1;
    p.x.resize(3);
    EXPECT_EQ(idOf([&] { pattern(); }), "The_number_of_initial_values_is_not_equal_to_the_number_of_constraints");
    p.x.resize(2);
    p.xlow.resize(3);
    EXPECT_EQ(idOf([&] { pattern(); }),
              "The_number_of_upper_or_lower_bounds_is_not_equal_to_the_number_of_constraints");
    EXPECT_TRUE(script->calls.empty());
}

TEST_F(OptimNPTest, PatternRefusesMoreEntriesThanItHasRoomFor)
{
    p.n = 2;
    p.nF = 50000001;

    EXPECT_EQ(idOf([&] { pattern(); }), "Out of memory in optimization");
    EXPECT_TRUE(script->calls.empty());
}

TEST_F(OptimNPTest, PatternRaisesWhatTheCallbackRaised)
{
    script->exits = {71};
    callback->instead = [](int&) { QX_RAISE("host", "Host_failure"); };
    script->onJacobian = [](const JacobianCall& call) {
        double x[] = {1, 2}, F[2];
        EXPECT_EQ(call.evaluate(1, x, F), -2);
    };

    EXPECT_EQ(idOf([&] { pattern(); }), "Host_failure");
    EXPECT_EQ(p.inform, 71);
}

} // namespace

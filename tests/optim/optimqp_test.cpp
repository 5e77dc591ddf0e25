// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimqp.hpp"

#include "arrays.hpp"
#include "qxrun.hpp"
#include "recorder.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <complex>
#include <new>

namespace {

using qxbase::Prop;
using qxtest::doubles;
using qxtest::failureOf;
using qxtest::idOf;
using qxtest::ints;
using recording::QuadraticCall;
using testing::ElementsAre;

Sparse matrix(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& columns,
              const std::vector<double>& values, unsigned long m, unsigned long n)
{
    Sparse A;
    A.triplet2sparse(rows, columns, values, m, n);
    return A;
}

/// H = identity.
class Identity : public OptimQPCallback
{
public:
    void hessMult(int& status, int ncolH, const double* x, double* Hx) override
    {
        ++calls;
        if (instead)
            instead(status);
        std::copy_n(x, ncolH, Hx);
    }
    bool isCancelled() override { return cancelled; }

    int calls = 0;
    bool cancelled = false;
    std::function<void(int&)> instead;
};

class OptimQPTest : public WithRecorder
{
protected:
    /// Three variables, two rows: x_1 + 2 x_3 and 4 x_3.
    struct Problem
    {
        int n = 3, ncolH = 2;
        bool cold = true;
        Sparse A = matrix({0, 0, 1}, {0, 2, 2}, {1, 2, 4}, 2, 3);
        Array<double, 1> c = doubles({1, -1, 0.5});
        Array<double, 1> x = doubles({1, 2, 3, 4, 5}), bl = doubles({0, 0, 0, -1, -2}), bu = doubles({9, 9, 9, 8, 7}),
                         rc = doubles({0, 0, 0, 0, 0});
        Array<int, 1> eType = ints({0, 1, 2, 3, 0}), hs = ints({0, 1, 0, 0, 3});
        int inform = -1, nInf = -1, iterations = -1;
        double sInf = -1, objective = -1;
        std::string message;
    };

    void solve()
    {
        OptimQP::solve(callback, state, prop, p.n, p.cold, p.A, p.ncolH, p.c, p.x, p.bl, p.bu, p.eType, p.hs, p.rc,
                       p.inform, p.nInf, p.sInf, p.iterations, p.objective, p.message);
    }

    boost::shared_ptr<Identity> callback{new Identity};
    boost::shared_ptr<OptimState> state{new OptimState(4000, 500, 500, false, 0, 0)};
    Prop prop;
    Problem p;
};

TEST_F(OptimQPTest, TheOptimizerSeesTheProblemByColumnsFromOne)
{
    bool seen = false;
    script->onQuadratic = [&](const QuadraticCall& call) {
        seen = true;
        EXPECT_EQ(call.start, "Cold");
        EXPECT_EQ(call.problem, "        ");
        EXPECT_EQ(call.m, 2);
        EXPECT_EQ(call.n, 3);
        EXPECT_EQ(call.neA, 3);
        EXPECT_EQ(call.lencObj, 3);
        EXPECT_EQ(call.ncolH, 2);
        EXPECT_EQ(call.iObj, 0);
        EXPECT_THAT(call.A, ElementsAre(1, 2, 4));
        EXPECT_THAT(call.indA, ElementsAre(1, 1, 2));
        EXPECT_THAT(call.locA, ElementsAre(1, 2, 2, 4));
        EXPECT_THAT(call.bl, ElementsAre(0, 0, 0, -1, -2));
        EXPECT_THAT(call.bu, ElementsAre(9, 9, 9, 8, 7));
        EXPECT_THAT(call.cObj, ElementsAre(1, -1, 0.5));
        EXPECT_THAT(call.eType, ElementsAre(0, 1, 2, 3, 0));
        EXPECT_EQ(call.hs[4], 3);
        EXPECT_EQ(call.x[4], 5);
        EXPECT_THAT(call.lengths, ElementsAre(4, 8, 8, 8, 8));
    };

    solve();

    EXPECT_TRUE(seen);
    EXPECT_THAT(script->calls, ElementsAre("qxsqinit 0 0 lengths 500 500 500",
                                           "qxsqmem 2 3 entries 3 linear 3 quadratic 2", "qxsqopt"));
}

TEST_F(OptimQPTest, WarmStartHasItsWord)
{
    p.cold = false;
    script->onQuadratic = [](const QuadraticCall& call) { EXPECT_EQ(call.start, "Warm"); };

    solve();
}

TEST_F(OptimQPTest, ResultsComeBackInTheCallersArrays)
{
    script->minorIterations = 12;
    script->onQuadratic = [](const QuadraticCall& call) {
        for (int i = 0; i < 5; ++i) {
            call.x[i] = i;
            call.rc[i] = 10 + i;
            call.hs[i] = 20 + i;
        }
        *call.nInf = 2;
        *call.sInf = 0.25;
        *call.objective = -3.5;
    };

    solve();

    EXPECT_EQ(p.x[4], 4);
    EXPECT_EQ(p.rc[3], 13);
    EXPECT_EQ(p.hs[0], 20);
    EXPECT_EQ(p.nInf, 2);
    EXPECT_EQ(p.sInf, 0.25);
    EXPECT_EQ(p.objective, -3.5);
    EXPECT_EQ(p.iterations, 12);
    EXPECT_EQ(p.inform, 1);
    EXPECT_EQ(p.message, "Optimality conditions satisfied.");
}

TEST_F(OptimQPTest, RowsStoredMatricesAreTurned)
{
    p.A = convertToRow(p.A);
    script->onQuadratic = [](const QuadraticCall& call) {
        EXPECT_THAT(call.A, ElementsAre(1, 2, 4));
        EXPECT_THAT(call.indA, ElementsAre(1, 1, 2));
        EXPECT_THAT(call.locA, ElementsAre(1, 2, 2, 4));
    };

    solve();
}

TEST_F(OptimQPTest, ExplicitZerosAreKeptAndRepeatedPlacesSummed)
{
    Array<unsigned long, 1> rows(4UL), start(4UL);
    Matrix<1> values(uninit_t(), 4, true);
    const unsigned long r[] = {0, 0, 1, 0}, s[] = {0, 1, 1, 4};
    const double v[] = {0, 2, 4, 5};
    std::copy_n(r, 4, rows.data());
    std::copy_n(s, 4, start.data());
    std::copy_n(v, 4, values.getdArr().data());
    p.A.flat2sparse(rows, start, values, 2, 3);
    script->onQuadratic = [](const QuadraticCall& call) {
        EXPECT_THAT(call.A, ElementsAre(0, 7, 4));
        EXPECT_THAT(call.indA, ElementsAre(1, 1, 2));
        EXPECT_THAT(call.locA, ElementsAre(1, 2, 2, 4));
    };

    solve();
}

TEST_F(OptimQPTest, WithoutRowsTheOptimizerGetsOneFreeRowOfZeros)
{
    p.A.zeros(0, 3, 0, true);
    p.x = doubles({1, 2, 3});
    p.bl = doubles({0, 0, 0});
    p.bu = doubles({1, 1, 1});
    p.rc = doubles({0, 0, 0});
    p.eType = ints({0, 0, 0});
    p.hs = ints({0, 0, 0});
    script->onQuadratic = [](const QuadraticCall& call) {
        EXPECT_EQ(call.m, 1);
        EXPECT_THAT(call.A, ElementsAre(0));
        EXPECT_THAT(call.indA, ElementsAre(1));
        EXPECT_THAT(call.locA, ElementsAre(1, 1, 1, 2));
        EXPECT_LT(call.bl[3], -1e20);
        EXPECT_GT(call.bu[3], 1e20);
        EXPECT_EQ(call.eType[3], 0);
        call.x[3] = 77;
        call.x[2] = 5;
    };

    solve();

    EXPECT_EQ(p.x.size(), 3u);
    EXPECT_EQ(p.x[2], 5);
}

TEST_F(OptimQPTest, SymmetricAndComplexMatricesAreRefused)
{
    p.A = matrix({0, 1, 2}, {0, 1, 2}, {1, 1, 1}, 3, 3);
    p.A.setSymm(Symmetric);
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    p.A.setSymm(Unsymmetric);
    p.A.real2complex();
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    EXPECT_TRUE(script->calls.empty());
}

TEST_F(OptimQPTest, LinearProgramsHaveNoQuadraticPartAndMayHaveNoLinearOne)
{
    p.ncolH = 0;
    p.c.clear();
    script->onQuadratic = [](const QuadraticCall& call) {
        EXPECT_EQ(call.ncolH, 0);
        EXPECT_EQ(call.lencObj, 0);
    };

    solve();
}

TEST_F(OptimQPTest, BadSizesAreFoundInTheirOrderBeforeAnyCall)
{
    const auto idNow = [&] { return idOf([&] { solve(); }); };
    const std::string values = "The_number_of_initial_values_does_not_match_size_of_constraint_matrix";
    p.n = 0;
    p.A = matrix({0}, {1}, {1}, 2, 2);
    p.x.resize(4);
    p.bl.resize(4);
    p.bu.resize(6);
    p.eType.resize(4);
    p.hs.resize(1);
    p.rc.resize(6);
    p.ncolH = 4;

    EXPECT_EQ(idNow(), "The_number_of_optimization_variables_must_be_greater_than_0");
    p.n = 3;
    EXPECT_EQ(idNow(), values); // columns
    p.A = Problem().A;
    EXPECT_EQ(idNow(), values);
    p.x.resize(5);
    EXPECT_EQ(idNow(), "The_number_of_lower_bounds_does_not_match_size_of_constraint_matrix");
    p.bl.resize(5);
    EXPECT_EQ(idNow(), "The_number_of_upper_bounds_does_not_match_size_of_constraint_matrix");
    p.bu.resize(5);
    EXPECT_EQ(idNow(), "Size_of_elastic_vector_does_not_match_size_of_constraint_matrix");
    p.eType.resize(5);
    EXPECT_EQ(idNow(), "Size_of_state_vector_does_not_match_size_of_constraint_matrix");
    p.hs.resize(5);
    EXPECT_EQ(idNow(), "The_number_of_initial_values_is_not_equal_to_the_number_of_lambda_values");
    p.rc.resize(5);
    EXPECT_EQ(idNow(), "Internal_error_optim");
    p.ncolH = 3;
    p.c.resize(2);
    EXPECT_EQ(idNow(), "Internal_error_optim");
    EXPECT_TRUE(script->calls.empty());
    p = Problem();
    EXPECT_EQ(idNow(), "");
}

TEST_F(OptimQPTest, NeedsALibraryACallbackAndAStateOfItsClass)
{
    state.reset(new OptimState(0, 0, 0, true, 0, 0));
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    state.reset();
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    state.reset(new OptimState(0, 0, 0, false, 0, 0));
    callback.reset();
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
    callback.reset(new Identity);
    OptimState::setLibraryPath("");
    EXPECT_EQ(idOf([&] { solve(); }), "Internal_error_optim");
}

struct ExitRow
{
    int code;
    int state;
    const char* text;
};

const ExitRow kExits[] = {
    {0, 0, "Finished successfully."},
    {1, 0, "Optimality conditions satisfied."},
    {2, 0, "Feasible point found."},
    {4, 0, "Weak QP minimizer."},
    {10, 1, "The problem appears to be infeasible."},
    {11, 1, "Infeasible linear constraints."},
    {12, 1, "Infeasible linear equalities."},
    {14, 1, "Infeasibilities minimized."},
    {20, 1, "The problem appears to be unbounded."},
    {21, 1, "Unbounded objective."},
    {30, 1, "Resource limit error."},
    {31, 1, "Iteration limit reached."},
    {33, 1, "The superbasics limit is too small."},
    {40, 1, "Terminated after numerical difficulties."},
    {42, 1, "Singular basis."},
    {43, 1, "Cannot satisfy the general constraints."},
    {44, 1, "Ill-conditioned null-space basis."},
    {50, 2, "Error in the user-supplied functions."},
    {53, 2, "The QP Hessian is indefinite."},
    {70, 1, "User requested termination."},
    {73, 1, "Terminated during user callback."},
    {74, 1, "Terminated from monitor routine."},
    {81, 2, "Insufficient storage allocated."},
    {90, 2, "Input arguments out of range."},
    {91, 2, "Invalid input argument."},
    {92, 2, "Basis file dimensions do not match this problem."},
    {140, 2, "System error"},            // no full stop here
    {141, 2, "Wrong number of basic variables."},
    {142, 2, "Error in basis package"},  // nor here
};

TEST_F(OptimQPTest, EachExitCodeReturnsOrRaisesItsText)
{
    for (const bool on : {true, false})
        for (const auto& [code, exitState, text] : kExits) {
            script->exits = {code};
            prop.setInt("stop", on ? 0 : 1);

            const std::string id = idOf([&] { solve(); });

            EXPECT_EQ(id, exitState == 2 || (exitState == 1 && on) ? text : "") << code << " stop " << on;
            EXPECT_EQ(p.inform, code);
            EXPECT_EQ(p.message, text);
        }
}

TEST_F(OptimQPTest, CodesOfNonlinearProblemsAreUnknownHere)
{
    prop.setInt("stop", 1);
    for (const int code : {3, 13, 22, 32, 41, 51, 52, 60, 61, 62, 63, 71, 72, 5, -1, 999}) {
        script->exits = {code};

        const qxbase::Exception failure = failureOf([&] { solve(); });

        EXPECT_EQ(failure.getId(), "Internal_error_optim") << code;
        EXPECT_TRUE(failure.getArgs(0).empty());
    }
}

TEST_F(OptimQPTest, StorageGrowsFourTimesAndThenFails)
{
    state.reset(new OptimState(8000, 1000, 1000, false, 0, 0));
    script->exits = {82, 83, 84, 80, 81, 1};

    EXPECT_EQ(idOf([&] { solve(); }), "Insufficient storage allocated.");

    EXPECT_EQ(script->lengths.size(), 5u);
    EXPECT_EQ(script->lengths.back(), (std::vector<int>{5062, 5062, 5062}));
}

class OptimQPFailure : public OptimQPTest
{
protected:
    OptimQPFailure()
    {
        script->exits = {73};
        script->onQuadratic = [this](const QuadraticCall& call) {
            double x[] = {1, 1}, Hx[2];
            for (const int status : {1, 0, 2})
                statuses.push_back(call.multiply(status, x, Hx));
        };
    }
    std::vector<int> statuses;
};

TEST_F(OptimQPFailure, AnExceptionIsKeptAndWinsOverTheExitCode)
{
    callback->instead = [](int&) { QX_RAISE("host", "Host_failure"); };

    EXPECT_EQ(idOf([&] { solve(); }), "Host_failure");
    EXPECT_THAT(statuses, ElementsAre(-2, -2, -2));
    EXPECT_EQ(callback->calls, 1);
}

TEST_F(OptimQPFailure, OtherExceptionsHaveTextsOfTheDriver)
{
    callback->instead = [](int&) { throw std::bad_alloc(); };
    EXPECT_EQ(idOf([&] { solve(); }), "Out_of_memory_in_optimization");
    callback->instead = [](int&) { throw 7; };
    EXPECT_EQ(idOf([&] { solve(); }), "Unknown_error_occurred_during_optimization");
}

TEST_F(OptimQPFailure, CancelEndsTheRun)
{
    callback->cancelled = true;
    EXPECT_THROW(solve(), qxbase::CancelException);
    callback->cancelled = false;
    qxutil::RunInfo info;
    info.cancel();
    state->setRunInfo(&info);
    EXPECT_THROW(solve(), qxbase::CancelException);
    EXPECT_EQ(callback->calls, 0);
}

TEST_F(OptimQPFailure, TheLastNotificationDoesNotReachTheCallback)
{
    script->exits = {1};

    solve();

    EXPECT_THAT(statuses, ElementsAre(1, 0, 2));
    EXPECT_EQ(callback->calls, 2);
}

TEST_F(OptimQPFailure, AllocationFailuresLeaveTheArraysAndTheStateUsable)
{
    script->exits = {1};
    script->onQuadratic = [](const QuadraticCall& call) { call.x[0] = 7; };
    script->calls.reserve(100000);
    script->lengths.reserve(100000);

    const long allocations = qxtest::failEveryAllocation([&] { solve(); }, [&](const qxtest::FaultRun& run) {
        if (!run.faulted)
            return;
        // The matrix has words of its own for its own arrays.
        EXPECT_TRUE(run.id.empty() || run.id == "Out_of_memory_in_optimization" ||
                    run.id == "Out_of_memory_operation_sparse_matrix")
            << run.id;
        EXPECT_EQ(p.x.size(), 5u);
    });

    EXPECT_GT(allocations, 20);
    EXPECT_EQ(p.x[0], 7);
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimnp.hpp"
#include "optimqp.hpp"

#include "arrays.hpp"
#include "qxrun.hpp"
#include "support/failure.hpp"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <limits>
#include <sstream>
#include <thread>
#include <unistd.h>

// The free optimizer through the drivers: what users of formulas rely on.

namespace {

using qxbase::Prop;
using qxtest::doubles;
using qxtest::failureOf;
using qxtest::idOf;
using qxtest::ints;

constexpr double kNone = 1e20;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class WithOptimizer : public testing::Test
{
protected:
    WithOptimizer()
    {
        qxoptim::initializeOptim();
        OptimState::setLibraryPath(QX_OPTIMIZER_FOLDER);
        OptimState::loadLib();
    }
};

// --- Nonlinear problems ---------------------------------------------------------------------------------------------------

using Values = std::function<void(const double* x, double* F)>;
using Derivatives = std::function<void(const double* x, double* G)>;

class Functions : public OptimNPCallback
{
public:
    void eval(int& status, int n, const double* x, bool needF, int, double* F, bool needG, int, double* G) override
    {
        ++calls;
        for (int j = 0; j < n; ++j) {
            lowest = std::min(lowest, x[j]);
            highest = std::max(highest, x[j]);
        }
        if (before)
            before(status, x);
        if (needF)
            values(x, F);
        if (needG && derivatives)
            derivatives(x, G);
    }
    bool isCancelled() override { return cancelled; }

    Values values;
    Derivatives derivatives;
    std::function<void(int&, const double*)> before;
    std::atomic<bool> cancelled{false};
    int calls = 0;
    double lowest = 1e300, highest = -1e300;
};

class FreeNP : public WithOptimizer
{
protected:
    /// F_1 is the objective; all entries of the Jacobian of f are in the pattern, by rows, unless a test says otherwise.
    void define(int n, int nF, const Values& values, const Derivatives& derivatives)
    {
        callback->values = values;
        callback->derivatives = derivatives;
        x = xlow = xupp = xmul = Array<double, 1>(n);
        xstate = Array<int, 1>(n);
        F = Flow = Fupp = Fmul = Array<double, 1>(nF);
        Fstate = Array<int, 1>(nF);
        x = 0.0, xlow = -kNone, xupp = kNone, xmul = 0.0, xstate = 0;
        F = 0.0, Flow = -kNone, Fupp = kNone, Fmul = 0.0, Fstate = 0;
        std::vector<int> rows, columns;
        for (int i = 1; i <= nF; ++i)
            for (int j = 1; j <= n; ++j) {
                rows.push_back(i);
                columns.push_back(j);
            }
        iG = ints(rows);
        jG = ints(columns);
    }

    /// (x_1 - 2)^2 + (x_2 - 1)^2 with x_1 + x_2 <= 2, from (0, 0).
    void defineCircle()
    {
        define(2, 2,
               [](const double* p, double* f) {
                   f[0] = (p[0] - 2) * (p[0] - 2) + (p[1] - 1) * (p[1] - 1);
                   f[1] = p[0] + p[1];
               },
               [](const double* p, double* g) {
                   g[0] = 2 * (p[0] - 2);
                   g[1] = 2 * (p[1] - 1);
                   g[2] = g[3] = 1;
               });
        Fupp[1] = 2;
    }

    std::string solve(bool cold = true)
    {
        state->setDerivLevel(derivLevel);
        Prop checked(prop);
        OptimState::checkNP(checked);
        return idOf([&] {
            OptimNP::solve(callback, state, checked, static_cast<int>(F.size()), static_cast<int>(x.size()), iA, jA, A, iG,
                           jG, x, xlow, xupp, xmul, xstate, F, Flow, Fupp, Fmul, Fstate, objRow, inform, nInf, sInf,
                           iterations, majors, message, cold);
        });
    }

    boost::shared_ptr<Functions> callback{new Functions};
    boost::shared_ptr<OptimState> state{new OptimState(4000, 500, 500, true, 0, 0)};
    Prop prop;
    Array<int, 1> iA = ints({}), jA = ints({}), iG, jG, xstate, Fstate;
    Array<double, 1> A = doubles({}), x, xlow, xupp, xmul, F, Flow, Fupp, Fmul;
    int objRow = 1, inform = 0, nInf = 0, iterations = 0, majors = 0, derivLevel = 1;
    double sInf = 0;
    std::string message;
};

TEST_F(FreeNP, FindsTheValleyOfRosenbrock)
{
    define(2, 1,
           [](const double* p, double* f) {
               f[0] = 100 * std::pow(p[1] - p[0] * p[0], 2) + std::pow(1 - p[0], 2);
           },
           [](const double* p, double* g) {
               g[0] = -400 * p[0] * (p[1] - p[0] * p[0]) - 2 * (1 - p[0]);
               g[1] = 200 * (p[1] - p[0] * p[0]);
           });
    x = doubles({-1.2, 1});

    EXPECT_EQ(solve(), "");

    EXPECT_EQ(inform, 1);
    EXPECT_EQ(message, "Optimality conditions satisfied.");
    EXPECT_NEAR(x[0], 1, 1e-5);
    EXPECT_NEAR(x[1], 1, 1e-5);
    EXPECT_GT(iterations, 5);
    EXPECT_EQ(iterations, majors);
    EXPECT_EQ(xstate[0], 2); // nothing holds it
}

TEST_F(FreeNP, MultipliersHaveTheSignsOfTheClosedLibrary)
{
    // By hand: x = (3/2, 1/2), grad f = (-1, -1) = J^T pi with pi = -1.
    defineCircle();

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 1.5, 1e-6);
    EXPECT_NEAR(x[1], 0.5, 1e-6);
    EXPECT_NEAR(Fmul[1], -1, 1e-5);
    EXPECT_EQ(Fmul[0], 1);
    EXPECT_NEAR(xmul[0], 0, 1e-5);
    EXPECT_EQ(Fstate[1], 1); // at its upper bound
    EXPECT_EQ(nInf, 0);
}

TEST_F(FreeNP, ReducedGradientOfAnActiveBound)
{
    // x_1 <= 1: x = (1, 1), grad f = (-2, 0).
    defineCircle();
    xupp[0] = 1;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 1, 1e-6);
    EXPECT_NEAR(xmul[0] + Fmul[1], -2, 1e-5);
    EXPECT_EQ(xstate[0], 1);
}

TEST_F(FreeNP, FixedVariablesHaveAMultiplier)
{
    // x_1 = 0.5 fixed: x_2 = 1, xmul_1 = 2 (0.5 - 2) = -3.
    defineCircle();
    xlow[0] = xupp[0] = 0.5;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[1], 1, 1e-6);
    EXPECT_NEAR(xmul[0], -3, 1e-5);
    EXPECT_EQ(xstate[0], 0);
}

TEST_F(FreeNP, AllVariablesFixedIsLookedAtOnly)
{
    defineCircle();
    xlow = doubles({0.5, 0.25});
    xupp = doubles({0.5, 0.25});

    EXPECT_EQ(solve(), "");
    EXPECT_EQ(F[1], 0.75);
    EXPECT_EQ(xmul[0], -3);

    Fupp[1] = 0.5;
    EXPECT_EQ(solve(), "Nonlinear_infeasibilities_minimized.");
    EXPECT_EQ(nInf, 1);
    EXPECT_EQ(sInf, 0.25);
}

TEST_F(FreeNP, MaximisesWithTheSignsOfTheUsersFunction)
{
    // max -(x_1 - 2)^2 - (x_2 - 1)^2 over the same set: the same point; f grows with the bound: pi = +1.
    define(2, 2,
           [](const double* p, double* f) {
               f[0] = -(p[0] - 2) * (p[0] - 2) - (p[1] - 1) * (p[1] - 1);
               f[1] = p[0] + p[1];
           },
           [](const double* p, double* g) {
               g[0] = -2 * (p[0] - 2);
               g[1] = -2 * (p[1] - 1);
               g[2] = g[3] = 1;
           });
    Fupp[1] = 2;
    prop.setString("maximize", "on");

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(F[0], -0.5, 1e-6);
    EXPECT_NEAR(Fmul[1], 1, 1e-5);
    EXPECT_EQ(Fmul[0], -1);
    EXPECT_NEAR(xmul[0], 0, 1e-5);
}

TEST_F(FreeNP, SolvesProblem71OfTheCollection)
{
    // Hock, Schittkowski, Lecture Notes in Economics and Mathematical Systems 187 (1981), problem 71.
    define(4, 3,
           [](const double* p, double* f) {
               f[0] = p[0] * p[3] * (p[0] + p[1] + p[2]) + p[2];
               f[1] = p[0] * p[1] * p[2] * p[3];
               f[2] = p[0] * p[0] + p[1] * p[1] + p[2] * p[2] + p[3] * p[3];
           },
           [](const double* p, double* g) {
               g[0] = p[3] * (2 * p[0] + p[1] + p[2]);
               g[1] = p[0] * p[3];
               g[2] = p[0] * p[3] + 1;
               g[3] = p[0] * (p[0] + p[1] + p[2]);
               g[4] = p[1] * p[2] * p[3];
               g[5] = p[0] * p[2] * p[3];
               g[6] = p[0] * p[1] * p[3];
               g[7] = p[0] * p[1] * p[2];
               for (int j = 0; j < 4; ++j)
                   g[8 + j] = 2 * p[j];
           });
    x = doubles({1, 5, 5, 1});
    xlow = 1.0;
    xupp = 5.0;
    Flow[1] = 25;
    Flow[2] = Fupp[2] = 40;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(F[0], 17.0140173, 2e-5);
    EXPECT_NEAR(x[1], 4.7429994, 1e-5);
    EXPECT_EQ(xstate[0], 0);
    EXPECT_EQ(Fstate[1], 0);
    EXPECT_GE(callback->lowest, 1); // never called outside the bounds
    EXPECT_LE(callback->highest, 5);
}

TEST_F(FreeNP, LinearPartAndNonlinearPartAreSummed)
{
    // The same circle, with the constraint and a piece of the objective as triplets.
    define(2, 2,
           [](const double* p, double* f) {
               f[0] = p[0] * p[0] + p[1] * p[1];
               f[1] = 0;
           },
           [](const double* p, double* g) {
               g[0] = 2 * p[0];
               g[1] = 2 * p[1];
           });
    iG = ints({1, 1}), jG = ints({1, 2});
    iA = ints({1, 1, 2, 2}), jA = ints({1, 2, 1, 2});
    A = doubles({-4, -2, 1, 1});
    Fupp[1] = 2;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 1.5, 1e-6);
    EXPECT_NEAR(F[0], -4.5, 1e-6); // the linear part is in F
    EXPECT_NEAR(F[1], 2, 1e-6);
    EXPECT_NEAR(Fmul[1], -1, 1e-5);
}

TEST_F(FreeNP, LinearProgramsNeedNoNonlinearPart)
{
    // min x + y with x + y >= 1 in the unit square: any point of the edge is right.
    define(2, 2, [](const double*, double* f) { f[0] = f[1] = 0; }, nullptr);
    iG = jG = ints({});
    iA = ints({1, 1, 2, 2}), jA = ints({1, 2, 1, 2});
    A = doubles({1, 1, 1, 1});
    xlow = 0.0, xupp = 1.0;
    Flow[1] = 1;
    x = doubles({0.2, 0.8});

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(F[0], 1, 1e-6);
    EXPECT_NEAR(x[0] + x[1], 1, 1e-6);
}

TEST_F(FreeNP, ObjectiveMayStandInAnyRow)
{
    define(1, 3,
           [](const double* p, double* f) {
               f[0] = p[0];
               f[1] = (p[0] - 3) * (p[0] - 3);
               f[2] = p[0] * p[0];
           },
           [](const double* p, double* g) {
               g[0] = 1;
               g[1] = 2 * (p[0] - 3);
               g[2] = 2 * p[0];
           });
    objRow = 2;
    Flow[0] = -5;
    Fupp[2] = 4;
    x[0] = 0.5;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 2, 1e-6);
    EXPECT_NEAR(Fmul[2], -0.5, 1e-5); // 2 (x - 3) = pi 2 x
    EXPECT_NEAR(Fmul[0], 0, 1e-5);
    EXPECT_EQ(Fmul[1], 1);
}

TEST_F(FreeNP, MissingDerivativesComeFromDifferences)
{
    for (const int level : {0, 1}) {
        defineCircle();
        derivLevel = level;
        // Level 1: only what the caller leaves out; he gives the second column alone.
        callback->derivatives = [](const double* p, double* g) {
            g[1] = 2 * (p[1] - 1);
            g[3] = 1;
        };

        EXPECT_EQ(solve(), "") << level;

        EXPECT_NEAR(x[0], 1.5, 1e-5);
        EXPECT_NEAR(x[1], 0.5, 1e-5);
    }
}

TEST_F(FreeNP, DifferencesShareEvaluationsWhereColumnsShareNoRow)
{
    // f = sum x_j^2 over 40 variables in 40 rows of one entry each: one shifted evaluation serves all columns.
    const int n = 40;
    define(n, n + 1,
           [](const double* p, double* f) {
               f[0] = 0;
               for (int j = 0; j < n; ++j)
                   f[j + 1] = (p[j] - 1) * (p[j] - 1);
           },
           nullptr);
    derivLevel = 0;
    std::vector<int> rows, columns;
    for (int j = 1; j <= n; ++j) {
        rows.push_back(j + 1);
        columns.push_back(j);
    }
    iG = ints(rows), jG = ints(columns);
    iA = ints(std::vector<int>(n, 1)), jA = ints(columns), A = doubles(std::vector<double>(n, 1));
    for (int j = 1; j <= n; ++j)
        Fupp[j] = 0.25;
    x = 1.0;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(F[0], n * 0.5, 1e-4);
    EXPECT_LT(callback->calls, 8 * (iterations + 2)); // and not 40 for each iteration
}

TEST_F(FreeNP, WrongDerivativesAreFoundWhenAsked)
{
    for (const int wrong : {0, 3}) {
        defineCircle();
        const Derivatives right = callback->derivatives;
        callback->derivatives = [=](const double* p, double* g) {
            right(p, g);
            g[wrong] += 0.5;
        };
        prop.setInt("verify", 1);

        EXPECT_EQ(solve(), wrong == 0 ? "Incorrect_objective_derivatives." : "Incorrect_constraint_derivatives.");
    }
    defineCircle();
    xlow = 0.0; // the start is a corner: differences stay inside
    callback->lowest = 0;
    EXPECT_EQ(solve(), "");
    EXPECT_GE(callback->lowest, 0);
}

TEST_F(FreeNP, WarmStartsFromAnAnswerAreShort)
{
    defineCircle();
    EXPECT_EQ(solve(), "");
    const int cold = iterations;

    EXPECT_EQ(solve(false), "");

    EXPECT_LT(iterations, cold);
    EXPECT_NEAR(x[0], 1.5, 1e-6);
}

TEST_F(FreeNP, InfeasibleProblemsEndInTheirRow)
{
    // x_1^2 + x_2^2 <= -1
    define(2, 2,
           [](const double* p, double* f) {
               f[0] = p[0];
               f[1] = p[0] * p[0] + p[1] * p[1];
           },
           [](const double* p, double* g) {
               g[0] = 1;
               g[1] = 0;
               g[2] = 2 * p[0];
               g[3] = 2 * p[1];
           });
    x = doubles({3, 4});
    Fupp[1] = -1;

    EXPECT_EQ(solve(), "Nonlinear_infeasibilities_minimized.");
    EXPECT_EQ(inform, 13);
    EXPECT_EQ(nInf, 1);
    EXPECT_NEAR(sInf, 1, 1e-3);

    prop.setString("stop", "off");
    EXPECT_EQ(solve(), "");
    EXPECT_EQ(message, "Nonlinear_infeasibilities_minimized.");
}

TEST_F(FreeNP, InfeasibleLinearRowsEndInTheirs)
{
    define(2, 3, [](const double* p, double* f) { f[0] = p[0] * p[0] + p[1] * p[1], f[1] = f[2] = 0; },
           [](const double* p, double* g) { g[0] = 2 * p[0], g[1] = 2 * p[1]; });
    iG = ints({1, 1}), jG = ints({1, 2});
    iA = ints({2, 2, 3, 3}), jA = ints({1, 2, 1, 2}), A = doubles({1, 1, 1, 1});
    Flow[1] = 2;
    Fupp[2] = 1;

    EXPECT_EQ(solve(), "Infeasible_linear_constraints.");
}

TEST_F(FreeNP, UnboundedProblemsAreRecognised)
{
    define(2, 2, [](const double*, double* f) { f[0] = f[1] = 0; }, nullptr);
    iG = jG = ints({});
    iA = ints({1, 2, 2}), jA = ints({1, 1, 2}), A = doubles({-1, 1, -1});
    xlow = 0.0;
    Flow[1] = 0;

    EXPECT_EQ(solve(), "Unbounded_objective.");
    EXPECT_EQ(inform, 21);
}

TEST_F(FreeNP, MoreEquationsThanVariablesAreSolvedWhenTheyAgree)
{
    define(1, 3,
           [](const double* p, double* f) {
               f[0] = p[0];
               f[1] = p[0] * p[0];
               f[2] = p[0] * p[0] * p[0];
           },
           [](const double* p, double* g) {
               g[0] = 1;
               g[1] = 2 * p[0];
               g[2] = 3 * p[0] * p[0];
           });
    x[0] = 1.5;
    Flow[1] = Fupp[1] = 4;
    Flow[2] = Fupp[2] = 8;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 2, 1e-5);
}

TEST_F(FreeNP, LimitsOfIterationsHaveRowsOfTheirOwn)
{
    defineCircle();
    prop.setInt("majitlim", 1);
    EXPECT_EQ(solve(), "Major_iteration_limit_reached.");
    EXPECT_EQ(majors, 1);

    defineCircle();
    prop.setInt("majitlim", 10);
    prop.setInt("totitlim", 2);
    EXPECT_EQ(solve(), "Iteration_limit_reached.");
    EXPECT_EQ(iterations, 2);
}

// --- Undefined points, failures, cancel -------------------------------------------------------------------------------------

TEST_F(FreeNP, UndefinedPointsShortenTheStep)
{
    // x - log x, undefined for x <= 0, from the far side.
    define(1, 1, [](const double* p, double* f) { f[0] = p[0] - std::log(p[0]); },
           [](const double* p, double* g) { g[0] = 1 - 1 / p[0]; });
    int undefined = 0;
    callback->before = [&](int& status, const double* p) {
        if (p[0] <= 0) {
            status = -1;
            ++undefined;
        }
    };
    x[0] = 20;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 1, 1e-5);
}

TEST_F(FreeNP, UndefinedStartHasItsRow)
{
    defineCircle();
    callback->before = [](int& status, const double*) { status = -1; };
    EXPECT_EQ(solve(), "Undefined_function_at_the_initial_point.");
    EXPECT_EQ(callback->calls, 1);

    callback->before = nullptr;
    callback->values = [](const double*, double* f) { f[0] = kNaN, f[1] = 0; };
    EXPECT_EQ(solve(), "Undefined_function_at_the_initial_point.");
}

TEST_F(FreeNP, NaNInDerivativesNeverReachesIpopt)
{
    // It would end the process.
    defineCircle();
    callback->derivatives = [](const double*, double* g) { g[0] = g[1] = 1, g[2] = kNaN, g[3] = 1; };

    EXPECT_EQ(solve(), "Undefined_function_at_the_initial_point.");

    defineCircle();
    const Derivatives right = callback->derivatives;
    callback->derivatives = [=, this](const double* p, double* g) {
        right(p, g);
        if (callback->calls > 3)
            g[0] = kNaN;
    };
    EXPECT_EQ(solve(), "Unable_to_proceed_into_undefined_region.");
}

TEST_F(FreeNP, ARegionThatCannotBeEnteredEndsTheRunSoon)
{
    // min x^2, undefined below 0.5: without a limit 168 thousand calls.
    define(1, 1, [](const double* p, double* f) { f[0] = p[0] * p[0]; },
           [](const double* p, double* g) { g[0] = 2 * p[0]; });
    callback->before = [](int& status, const double* p) {
        if (p[0] < 0.5)
            status = -1;
    };
    x[0] = 2;

    EXPECT_EQ(solve(), "Unable_to_proceed_into_undefined_region.");

    EXPECT_EQ(inform, 63);
    EXPECT_LT(callback->calls, 5000);
    EXPECT_NEAR(x[0], 0.5, 0.1);
}

TEST_F(FreeNP, ACallbackThatThrowsIsNotCalledAgain)
{
    defineCircle();
    callback->before = [&](int&, const double*) {
        if (callback->calls == 5)
            QX_RAISE("host", "Host_failure");
    };

    EXPECT_EQ(solve(), "Host_failure");

    EXPECT_EQ(callback->calls, 5);
    EXPECT_EQ(inform, 71);
    callback->before = nullptr;
    EXPECT_EQ(solve(), "");
    EXPECT_NEAR(x[0], 1.5, 1e-6);
}

TEST_F(FreeNP, AStopOfTheCallbackHasItsRow)
{
    defineCircle();
    callback->before = [&](int& status, const double*) { status = callback->calls == 4 ? -2 : status; };

    EXPECT_EQ(solve(), "Terminated_during_function_evaluation.");

    EXPECT_EQ(callback->calls, 4);
}

TEST_F(FreeNP, CancelFromAnotherThreadLeavesTheBestPointSoFar)
{
    defineCircle();
    qxutil::RunInfo info;
    state->setRunInfo(&info);
    callback->before = [&](int&, const double*) {
        if (callback->calls == 3)
            std::thread([&] { info.cancel(); }).join();
    };
    Prop checked;
    OptimState::checkNP(checked);

    EXPECT_THROW(OptimNP::solve(callback, state, checked, 2, 2, iA, jA, A, iG, jG, x, xlow, xupp, xmul, xstate, F, Flow,
                                Fupp, Fmul, Fstate, objRow, inform, nInf, sInf, iterations, majors, message),
                 qxbase::CancelException);

    EXPECT_EQ(callback->calls, 3);
    EXPECT_EQ(inform, 71);
    EXPECT_NE(x[0], 0);
    EXPECT_NEAR(F[1], x[0] + x[1], 1e-12); // point and values belong together
    info.cancel(false);
    callback->before = nullptr;
    EXPECT_EQ(solve(), "");
}

// --- Bad input ------------------------------------------------------------------------------------------------------------------

TEST_F(FreeNP, NumbersThatAreNoneAndCrossingBoundsAreRefused)
{
    const std::string refused = "Invalid_input_argument.";
    const std::function<void()> spoils[] = {
        [&] { x[0] = kNaN; },          [&] { xlow[0] = kNaN; },
        [&] { Fupp[1] = kNaN; },       [&] { xlow[0] = 2, xupp[0] = 1; },
        [&] { Flow[1] = 3; },          [&] { x[1] = std::numeric_limits<double>::infinity(); },
        [&] { xlow[0] = kNone; },      [&] { Fupp[1] = -kNone; },
        [&] { iA = jA = ints({1}), A = doubles({kNaN}); },
    };
    for (const auto& spoil : spoils) {
        defineCircle();
        spoil();

        EXPECT_EQ(solve(), refused);
        EXPECT_EQ(callback->calls, 0);
    }
}

TEST_F(FreeNP, InfiniteBoundsFollowTheProperty)
{
    defineCircle();
    xupp[0] = 1000; // none, with this
    xlow[0] = 1000;
    prop.setDouble("infbound", 500.0);
    EXPECT_EQ(solve(), "Invalid_input_argument."); // no value between
    xlow[0] = -1000;
    EXPECT_EQ(solve(), "");
    EXPECT_NEAR(x[0], 1.5, 1e-6);
}

TEST_F(FreeNP, ExtremeOptionsAreTakenAndPrintNothing)
{
    for (const double tolerance : {0.0, std::numeric_limits<double>::infinity()})
        for (const int limit : {0, std::numeric_limits<int>::max()}) {
            defineCircle();
            prop.setDouble("opttol", tolerance);
            prop.setDouble("majfeastol", tolerance);
            prop.setInt("majitlim", limit);
            prop.setInt("hessupd", limit);
            testing::internal::CaptureStdout();

            solve();

            EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        }
}

// --- Print file, option file -----------------------------------------------------------------------------------------------------

class Folder
{
public:
    Folder() : path_(std::filesystem::temp_directory_path() / ("qx_optim_" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(path_);
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    static std::string contentsOf(const std::string& name)
    {
        std::ifstream in(name);
        std::ostringstream out;
        out << in.rdbuf();
        return out.str();
    }

private:
    std::filesystem::path path_;
};

TEST_F(FreeNP, PrintFileGetsALineForEachIterationAtItsEnd)
{
    const Folder folder;
    const std::string name = folder.file("run.out");
    std::ofstream(name) << "before\n";
    defineCircle();
    prop.setString("print", name);
    prop.setInt("majprintfreq", 1);

    EXPECT_EQ(solve(), "");

    const std::string text = Folder::contentsOf(name);
    EXPECT_EQ(text.substr(0, 7), "before\n");
    EXPECT_THAT(text, testing::HasSubstr("exit 1 after " + std::to_string(iterations) + " iterations"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 1 + iterations + 1 + 1);
}

TEST_F(FreeNP, PrintFileThatCannotBeOpenedRaises)
{
    defineCircle();
    prop.setString("print", "/no/such/folder/run.out");

    EXPECT_EQ(solve(), "Internal_error_optim");
}

TEST_F(FreeNP, UnknownOptionsAreNotedInThePrintFile)
{
    const Folder folder;
    const std::string name = folder.file("run.out");
    state->init();
    state->setPrintFile(name);

    state->seti("Nonsense frequency", 3);
    state->set("Maximise nothing");
    state->seti("cHECK    frequency", 3);
    state->set("hessian  FULL memory");
    state->closePrintFile();

    EXPECT_EQ(Folder::contentsOf(name), "unknown option: Nonsense frequency\nunknown option: Maximise nothing\n");
}

TEST_F(FreeNP, AnOptionFileInTheWorkingDirectoryIsNotRead)
{
    const Folder folder;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(folder.file("x")).parent_path());
    std::ofstream("ipopt.opt") << "max_iter 1\n";
    defineCircle();

    const std::string id = solve();
    std::filesystem::current_path(before);

    EXPECT_EQ(id, "");
}

// --- Structure ---------------------------------------------------------------------------------------------------------------------

TEST_F(FreeNP, PatternTellsConstantEntriesFromOthers)
{
    // f_1 = x_1^2 + 3 x_2, f_2 = 2 x_1 - x_3, f_3 = x_2 x_3.
    define(3, 3,
           [](const double* p, double* f) {
               f[0] = p[0] * p[0] + 3 * p[1];
               f[1] = 2 * p[0] - p[2];
               f[2] = p[1] * p[2];
           },
           nullptr);
    x = doubles({1, 2, 3});

    OptimNP::pattern(callback, state, prop, 3, 3, x, xlow, xupp, 1, iA, jA, A, iG, jG, inform, message);

    EXPECT_EQ(inform, 102);
    std::vector<std::tuple<int, int, double>> linear;
    for (unsigned long k = 0; k < A.size(); ++k)
        linear.emplace_back(iA[k], jA[k], std::round(A[k] * 1e9) / 1e9);
    EXPECT_THAT(linear, testing::UnorderedElementsAre(std::tuple(1, 2, 3.0), std::tuple(2, 1, 2.0), std::tuple(2, 3, -1.0)));
    std::vector<std::pair<int, int>> nonlinear;
    for (unsigned long k = 0; k < iG.size(); ++k)
        nonlinear.emplace_back(iG[k], jG[k]);
    EXPECT_THAT(nonlinear, testing::UnorderedElementsAre(std::pair(1, 1), std::pair(3, 2), std::pair(3, 3)));
}

TEST_F(FreeNP, PatternEndsAtUndefinedStartsAndStops)
{
    defineCircle();
    callback->before = [](int& status, const double*) { status = -1; };
    const auto find = [&] {
        return idOf([&] {
            OptimNP::pattern(callback, state, prop, 2, 2, x, xlow, xupp, 1, iA, jA, A, iG, jG, inform, message);
        });
    };

    EXPECT_EQ(find(), "Unknown_error_occurred_when_determining_sparsity_pattern");
    EXPECT_EQ(inform, 61);
    callback->before = [](int& status, const double*) { status = -2; };
    EXPECT_EQ(find(), "Unknown_error_occurred_when_determining_sparsity_pattern");
    EXPECT_EQ(inform, 71);
}

// --- Quadratic problems ------------------------------------------------------------------------------------------------------

class DenseHessian : public OptimQPCallback
{
public:
    void hessMult(int& status, int ncolH, const double* x, double* Hx) override
    {
        ++calls;
        if (before)
            before(status);
        for (int i = 0; i < ncolH; ++i) {
            Hx[i] = 0;
            for (int j = 0; j < ncolH; ++j)
                Hx[i] += H[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] * x[j];
        }
    }
    std::vector<std::vector<double>> H;
    std::function<void(int&)> before;
    int calls = 0;
};

class FreeQP : public WithOptimizer
{
protected:
    /// rows: dense rows of A.
    void define(const std::vector<std::vector<double>>& H, const std::vector<double>& linear,
                const std::vector<std::vector<double>>& rows)
    {
        callback->H = H;
        n = linear.size();
        c = doubles(linear);
        std::vector<unsigned long> is, js;
        std::vector<double> values;
        for (unsigned long i = 0; i < rows.size(); ++i)
            for (unsigned long j = 0; j < n; ++j) {
                is.push_back(i);
                js.push_back(j);
                values.push_back(rows[i][j]);
            }
        A.triplet2sparse(is, js, values, rows.size(), n);
        const unsigned long size = n + rows.size();
        x = bl = bu = rc = Array<double, 1>(size);
        eType = hs = Array<int, 1>(size);
        x = 0.0, rc = 0.0, bl = -kNone, bu = kNone, eType = 0, hs = 0;
    }

    std::string solve(bool cold = true)
    {
        Prop checked(prop);
        OptimState::checkQP(checked);
        return idOf([&] {
            OptimQP::solve(callback, state, checked, static_cast<int>(n), cold, A, static_cast<int>(callback->H.size()), c, x,
                           bl, bu, eType, hs, rc, inform, nInf, sInf, iterations, objective, message);
        });
    }

    boost::shared_ptr<DenseHessian> callback{new DenseHessian};
    boost::shared_ptr<OptimState> state{new OptimState(4000, 500, 500, false, 0, 0)};
    Prop prop;
    unsigned long n = 0;
    Sparse A;
    Array<double, 1> c, x, bl, bu, rc;
    Array<int, 1> eType, hs;
    int inform = 0, nInf = 0, iterations = 0;
    double sInf = 0, objective = 0;
    std::string message;
};

TEST_F(FreeQP, SolvesAConvexProblemWithItsMultipliers)
{
    // (x_1 - 2)^2 + (x_2 - 1)^2 - 5 with x_1 + x_2 <= 2: x = (3/2, 1/2), multiplier -1.
    define({{2, 0}, {0, 2}}, {-4, -2}, {{1, 1}});
    bu[2] = 2;

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 1.5, 1e-6);
    EXPECT_NEAR(x[2], 2, 1e-6);
    EXPECT_NEAR(objective, -4.5, 1e-6);
    EXPECT_NEAR(rc[2], -1, 1e-5);
    EXPECT_NEAR(rc[0], 0, 1e-5);
    EXPECT_EQ(hs[2], 1);
    EXPECT_EQ(message, "Optimality conditions satisfied.");
}

TEST_F(FreeQP, WarmStartAndMaximise)
{
    define({{2, 0}, {0, 2}}, {-4, -2}, {{1, 1}});
    bu[2] = 2;
    EXPECT_EQ(solve(), "");
    const int cold = iterations;

    EXPECT_EQ(solve(false), "");
    EXPECT_LE(iterations, cold);

    define({{-2, 0}, {0, -2}}, {4, 2}, {{1, 1}});
    bu[2] = 2;
    prop.setString("maximize", "on");
    EXPECT_EQ(solve(), "");
    EXPECT_NEAR(objective, 4.5, 1e-6);
    EXPECT_NEAR(rc[2], 1, 1e-5);
}

TEST_F(FreeQP, ProblemsWithoutRowsAndWithoutQuadraticPart)
{
    define({{2}}, {-2}, {});
    A.zeros(0, 1, 0, true);
    EXPECT_EQ(solve(), "");
    EXPECT_NEAR(x[0], 1, 1e-6);

    define({}, {1, 2}, {{1, 1}});
    bl = doubles({0, 0, 1});
    EXPECT_EQ(solve(), "");
    EXPECT_NEAR(objective, 1, 1e-6); // x = (1, 0)
    EXPECT_NEAR(rc[1], 1, 1e-5);
}

TEST_F(FreeQP, OnlyTheFirstColumnsMayBeQuadratic)
{
    // x_1^2 + x_2 with x_1 + x_2 >= 1, x_2 >= 0: x = (1/2, 1/2).
    define({{2}}, {0, 1}, {{1, 1}});
    bl = doubles({-kNone, 0, 1});

    EXPECT_EQ(solve(), "");

    EXPECT_NEAR(x[0], 0.5, 1e-5);
    EXPECT_NEAR(objective, 0.75, 1e-6);
}

TEST_F(FreeQP, IndefiniteHessiansAreRefused)
{
    define({{1, 2}, {2, 1}}, {0, 0}, {{1, 1}});
    bl = doubles({-1, -1, -1});
    bu = doubles({1, 1, 1});
    prop.setString("stop", "off");

    EXPECT_EQ(solve(), "The QP Hessian is indefinite.");

    define({{1, 1}, {1, 1}}, {0, 0}, {{1, 1}}); // singular is not indefinite
    bl = doubles({-1, -1, -1});
    bu = doubles({1, 1, 1});
    EXPECT_EQ(solve(), "");
    prop.setString("maximize", "on");
    EXPECT_EQ(solve(), "The QP Hessian is indefinite.");
}

TEST_F(FreeQP, InfeasibleAndUnboundedOnesEndInTheirRows)
{
    define({{2, 0}, {0, 2}}, {0, 0}, {{1, 1}, {1, 1}});
    bl[2] = 2;
    bu[3] = 1;
    EXPECT_EQ(solve(), "Infeasible linear constraints.");

    define({}, {-1, 0}, {{1, -1}});
    bl = doubles({0, 0, 0});
    EXPECT_EQ(solve(), "Unbounded objective.");
}

TEST_F(FreeQP, ElasticModes)
{
    // x in [0, 1] and, elastic from below, x >= 3; f = x^2.
    const auto pose = [&](int mode, int objectiveKind, double weight) {
        define({{2}}, {0}, {{1}});
        bl = doubles({0, 3});
        bu = doubles({1, kNone});
        eType = ints({0, 1});
        prop.setInt("elastic", mode);
        prop.setInt("elasticobj", objectiveKind);
        prop.setDouble("elasticw", weight);
        return solve();
    };

    EXPECT_EQ(pose(0, 1, 1), "Infeasible linear constraints.");
    EXPECT_EQ(pose(1, 2, 1), "Infeasibilities minimized.");
    EXPECT_NEAR(x[0], 1, 1e-5); // the sum alone: as near to 3 as may be
    EXPECT_NEAR(sInf, 2, 1e-5);
    EXPECT_EQ(nInf, 1);
    EXPECT_EQ(pose(2, 2, 1), "Infeasibilities minimized.");
    EXPECT_NEAR(x[0], 1, 1e-5);
    EXPECT_EQ(pose(2, 1, 1), "Infeasibilities minimized.");
    EXPECT_NEAR(x[0], 0.5, 1e-5); // x^2 + (3 - x)
    EXPECT_EQ(pose(2, 1, 0.5), "Infeasibilities minimized.");
    EXPECT_NEAR(x[0], 0.25, 1e-5);
    EXPECT_EQ(pose(2, 0, 1), "Infeasibilities minimized.");
    EXPECT_NEAR(x[0], 0, 1e-3); // f alone
    EXPECT_NEAR(objective, 0, 1e-5);
}

TEST_F(FreeQP, ElasticBoundsOfVariablesAndOfBothSides)
{
    // |x - 2| by an elastic fixed variable, against x <= 1 as a row.
    define({}, {0}, {{1}});
    bl = doubles({2, -kNone});
    bu = doubles({2, 1});
    eType = ints({3, 0});
    prop.setInt("elastic", 1);

    EXPECT_EQ(solve(), "Infeasibilities minimized.");
    EXPECT_NEAR(x[0], 1, 1e-5);
    EXPECT_NEAR(sInf, 1, 1e-5);

    bu[1] = 5; // feasible: nothing gives way
    EXPECT_EQ(solve(), "");
    EXPECT_NEAR(x[0], 2, 1e-6);
}

TEST_F(FreeQP, FailuresAndStopsOfTheCallback)
{
    define({{2}}, {-2}, {{1}});
    callback->before = [](int&) { QX_RAISE("host", "Host_failure"); };
    EXPECT_EQ(solve(), "Host_failure");
    EXPECT_EQ(inform, 73);
    callback->before = [](int& status) { status = -2; };
    EXPECT_EQ(solve(), "Terminated during user callback.");
    callback->before = nullptr;
    EXPECT_EQ(solve(), "");
}

TEST_F(FreeQP, NumbersThatAreNoneAreRefused)
{
    for (Array<double, 1>* spoiled : {&x, &bl, &bu, &c}) {
        define({{2}}, {-2}, {{1}});
        (*spoiled)[0] = kNaN;
        EXPECT_EQ(solve(), "Invalid input argument.");
    }
    define({{2}}, {-2}, {{kNaN}});
    EXPECT_EQ(solve(), "Invalid input argument.");
    define({{2}}, {-2}, {{1}});
    bl[1] = 2, bu[1] = 1;
    EXPECT_EQ(solve(), "Invalid input argument.");
}

TEST_F(FreeQP, ManyVariablesGoWithoutSecondDerivatives)
{
    // sum (x_j + 1/2 - j mod 3)^2 over 2100 variables in [0, 1.4]: one third at the lower bound.
    class Diagonal : public OptimQPCallback
    {
        void hessMult(int&, int ncolH, const double* p, double* Hx) override
        {
            for (int j = 0; j < ncolH; ++j)
                Hx[j] = 2 * p[j];
        }
    };
    const int size = 2100;
    std::vector<double> linear;
    for (int j = 0; j < size; ++j)
        linear.push_back(1.0 - 2.0 * (j % 3));
    c = doubles(linear);
    A.zeros(0, size, 0, true);
    x = bl = bu = rc = Array<double, 1>(size);
    eType = hs = Array<int, 1>(size);
    x = 0.7, rc = 0.0, bl = 0.0, bu = 1.4, eType = 0, hs = 0;
    OptimState::checkQP(prop);

    OptimQP::solve(OptimQP::Callback(new Diagonal), state, prop, size, true, A, size, c, x, bl, bu, eType, hs, rc, inform, nInf,
                   sInf, iterations, objective, message);

    EXPECT_EQ(inform, 1);
    EXPECT_NEAR(x[0], 0, 1e-4);
    EXPECT_NEAR(x[1], 0.5, 1e-4);
    EXPECT_NEAR(x[2], 1.4, 1e-4);
    EXPECT_NEAR(rc[0], 1, 1e-4);
}

/// Convex problems with a known answer: choose x* and multipliers, then c = -H x* + A^T y + z makes it optimal.
TEST_F(FreeQP, RandomConvexProblemsWithKnownAnswers)
{
    unsigned seed = 7;
    const auto draw = [&] {
        seed = seed * 1664525u + 1013904223u;
        return (seed >> 8) / 8388608.0 - 1.0;
    };
    for (int problem = 0; problem < 30; ++problem) {
        const std::size_t size = 2 + static_cast<std::size_t>(problem) % 9, rows = 1 + static_cast<std::size_t>(problem) % 5;
        std::vector<std::vector<double>> L(size, std::vector<double>(size)), H(L), R(rows, std::vector<double>(size));
        for (auto& row : L)
            for (double& value : row)
                value = draw();
        for (std::size_t i = 0; i < size; ++i)
            for (std::size_t j = 0; j < size; ++j) {
                H[i][j] = i == j ? 0.1 : 0.0;
                for (std::size_t k = 0; k < size; ++k)
                    H[i][j] += L[i][k] * L[j][k];
            }
        for (auto& row : R)
            for (double& value : row)
                value = draw();
        std::vector<double> answer(size), linear(size, 0.0), y(rows), z(size, 0.0), Rx(rows, 0.0);
        for (double& value : answer)
            value = draw();
        for (std::size_t i = 0; i < rows; ++i) {
            y[i] = i % 2 == 0 && i / 2 + 2 < size ? 1.5 + draw() : 0.0; // active at the lower bound, or free
            for (std::size_t j = 0; j < size; ++j)
                Rx[i] += R[i][j] * answer[j];
        }
        z[0] = 2.0; // x_1 at its lower bound
        for (std::size_t j = 0; j < size; ++j) {
            linear[j] = z[j];
            for (std::size_t k = 0; k < size; ++k)
                linear[j] -= H[j][k] * answer[k];
            for (std::size_t i = 0; i < rows; ++i)
                linear[j] += R[i][j] * y[i];
        }
        define(H, linear, R);
        bl[0] = answer[0];
        for (std::size_t i = 0; i < rows; ++i)
            bl[size + i] = y[i] > 0 ? Rx[i] : Rx[i] - 1;
        prop.setDouble("opttol", 1e-9);

        EXPECT_EQ(solve(), "") << problem;

        for (std::size_t j = 0; j < size; ++j) {
            EXPECT_NEAR(x[j], answer[j], 1e-5) << problem;
            EXPECT_NEAR(rc[j], z[j], 1e-4) << problem;
        }
        for (std::size_t i = 0; i < rows; ++i)
            EXPECT_NEAR(rc[size + i], y[i], 1e-4) << problem;
    }
}

} // namespace

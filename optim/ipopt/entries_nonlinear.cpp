// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/entrypoints_detail.hpp"
#include "optim/ipopt/ending.hpp"
#include "optim/ipopt/nonlinear.hpp"
#include "optim/ipopt/options.hpp"
#include "optim/ipopt/printfile.hpp"
#include "optim/ipopt/settings.hpp"

#include <IpReturnCodes.h>
#include <algorithm>
#include <cmath>
#include <new>

namespace {

constexpr int kMemory = 30;
constexpr int kSystemError = 140;
constexpr int kInvalidArgument = 91;
constexpr int kStoppedByUser = 71;

/// What runs of this kind are asked for.
struct Request
{
    NonlinearProgram::Parts parts;
    Point start;
    Settings settings;
    bool warm;
    int verify;
    double interval, step, feasibility;
    bool withDerivatives;
    bool majorLimitBinds; ///< of the two limits of iterations
};

struct Answer
{
    int info = kSystemError;
    std::vector<double> x, F, pi, xmul;
    int iterations = 0;
};

bool isUnusable(const Request& request)
{
    const NonlinearProgram::Parts& p = request.parts;
    const auto bad = [](const std::vector<double>& values) {
        return std::any_of(values.begin(), values.end(), [](double v) { return !std::isfinite(v); });
    };
    return bad(request.start.x) || bad(p.A) ||
           ending::areBadBounds(p.xl.data(), p.xu.data(), p.n, request.settings.infinity) ||
           ending::areBadBounds(p.Fl.data(), p.Fu.data(), p.nF, request.settings.infinity);
}

/// Largest violation of the constraints by the values F.
double violation(const NonlinearProgram& program, const std::vector<double>& F)
{
    double worst = 0.0;
    for (std::size_t i = 0; i < F.size(); ++i)
        if (const int c = program.constraintOf(static_cast<int>(i)); c >= 0)
            worst = std::max(worst, ending::violationOf(F[i], program.gl[static_cast<std::size_t>(c)],
                                                        program.gu[static_cast<std::size_t>(c)]));
    return worst;
}

int exitFor(int status, const Request& request, const NonlinearProgram& program, double worstViolation)
{
    const bool infeasible = worstViolation > request.feasibility;
    switch (status) {
    case Solve_Succeeded: return request.parts.objectiveRow > 0 ? 1 : 2;
    case Solved_To_Acceptable_Level: return 3;
    case Infeasible_Problem_Detected: return program.hasLinearConstraints() ? 11 : 13;
    case Search_Direction_Becomes_Too_Small: return 41;
    case Diverging_Iterates: return 21;
    case User_Requested_Stop: return program.isUnbounded() ? 21 : program.isStuck() ? 63 : 74;
    case Feasible_Point_Found: return 2;
    case Maximum_Iterations_Exceeded: return request.majorLimitBinds ? 32 : 31;
    case Restoration_Failed: return infeasible ? 13 : 41;
    case Error_In_Step_Computation: return 40;
    case Maximum_CpuTime_Exceeded: return 30;
    case Not_Enough_Degrees_Of_Freedom: return 40;
    case Invalid_Problem_Definition:
    case Invalid_Option: return kInvalidArgument;
    case Invalid_Number_Detected: return 63;
    case Insufficient_Memory: return kMemory;
    default: return kSystemError;
    }
}

/// All variables are fixed: nothing to optimise, only to look at.
bool isFixed(const Program& program)
{
    return std::equal(program.xl.begin(), program.xl.end(), program.xu.begin());
}

Answer solve(const Request& request, UserFunctions& functions)
{
    Answer answer;
    answer.x = request.start.x;
    NonlinearProgram program(request.parts, functions);
    answer.F.assign(static_cast<std::size_t>(request.parts.nF), 0.0);
    answer.pi.assign(program.gl.size(), 0.0);
    answer.xmul.assign(program.xl.size(), 0.0);

    Point point = request.start;
    for (std::size_t j = 0; j < point.x.size(); ++j)
        point.x[j] = std::clamp(point.x[j], program.xl[j], program.xu[j]);
    const auto ended = [&](int info) {
        answer.info = info;
        return answer;
    };
    if (!program.moveTo(point.x.data()))
        return ended(functions.isStopped() ? kStoppedByUser : 62);
    answer.x = point.x;
    answer.F = program.total();
    if (request.verify >= 1)
        if (const int wrong = functions.findWrongDerivative(request.step); wrong >= 0)
            return ended(request.parts.iG[static_cast<std::size_t>(wrong)] == request.parts.objectiveRow ? 51 : 52);
    if (functions.isStopped())
        return ended(kStoppedByUser);

    int status = Solve_Succeeded;
    if (isFixed(program)) {
        if (violation(program, program.total()) > request.feasibility)
            status = Infeasible_Problem_Detected;
    } else {
        functions.takeUndefined();
        Outcome outcome = runIpopt(program, request.settings, point);
        if (outcome.status == Not_Enough_Degrees_Of_Freedom) {
            program.widenEqualities(request.feasibility);
            point.x = answer.x;
            outcome = runIpopt(program, request.settings, point);
        }
        status = outcome.status;
        answer.iterations = outcome.iterations;
    }

    if (!functions.isStopped() && program.moveTo(point.x.data())) {
        answer.x = point.x;
        answer.F = program.total();
        const double sign = request.parts.maximise ? 1.0 : -1.0;
        for (std::size_t i = 0; i < answer.pi.size(); ++i)
            answer.pi[i] = sign * point.lambda[i];
        answer.xmul = program.reducedGradient(answer.pi);
    } else if (!program.acceptedPoint().empty()) {
        answer.x = program.acceptedPoint();
        answer.F = program.acceptedTotal();
    }
    if (functions.isStopped())
        return ended(kStoppedByUser);
    const double worst = violation(program, answer.F);
    const int row = request.parts.objectiveRow;
    if (row > 0 && std::fabs(answer.F[static_cast<std::size_t>(row - 1)]) > 1e15 && worst <= 1.0)
        return ended(21);
    return ended(exitFor(status, request, program, worst));
}

/// Exit codes as the last call of the user's function knows them.
int lastStatusFor(int info)
{
    if (info < 10)
        return 2;
    return info < 20 ? 3 : info < 30 ? 4 : 5;
}

} // namespace

void qxsnopta(const int* start, const int* nF, const int* n, const int*, const int*, const double* objAdd,
              const int* objRow, const char*, OptimUserFunction* usrfun, const int* iAfun, const int* jAvar, const int*,
              const int* neA, const double* A, const int* iGfun, const int* jGvar, const int*, const int* neG,
              const double* xlow, const double* xupp, const char*, const double* Flow, const double* Fupp, const char*,
              double* x, int* xstate, double* xmul, double* F, int* Fstate, double* Fmul, int* info, int* mincw,
              int* miniw, int* minrw, int* nS, int* nInf, double* sInf, QX_USER_DATA, QX_WORKSPACES, HiddenLength,
              HiddenLength, HiddenLength, HiddenLength cuLength, HiddenLength)
try {
    OptionStore options(cw, lencw, iw, leniw, rw, lenrw);
    *mincw = *miniw = *minrw = 500;
    *nS = *nInf = 0;
    *sInf = 0.0;
    if (*info = options.storageExit(); *info != 0)
        return;
    *info = kInvalidArgument;
    if (!options.isInitialised() || *start == 1 || *start < 0 || *start > 2 || *n <= 0 || *nF <= 0 || *objRow < 0 ||
        *objRow > *nF)
        return;

    const auto count = static_cast<std::size_t>(*n), rows = static_cast<std::size_t>(*nF);
    const auto copied = [](const auto* from, int length) { return std::vector(from, from + length); };
    Request request{{*n, *nF, *objRow, *objAdd, copied(iAfun, *neA), copied(jAvar, *neA), copied(iGfun, *neG),
                     copied(jGvar, *neG), copied(A, *neA), copied(xlow, *n), copied(xupp, *n), copied(Flow, *nF),
                     copied(Fupp, *nF), options.lineIs("maximize", "on")},
                    {}, commonSettings(options), *start == 2, options.integer("Verify level", 0),
                    options.real("Difference interval", 1.5e-8), options.real("Central difference interval", 6e-6),
                    options.real("Major feasibility tolerance", 1e-6), options.integer("Derivative option", 1) != 0, true};
    Settings& settings = request.settings;
    settings.tolerance = options.real("Major optimality tolerance", 1e-6);
    settings.feasibility = request.feasibility;
    constexpr int defaultLimit = 3000;
    const int majors = options.integer("Major iterations limit", defaultLimit);
    const int total = options.integer("Iterations limit", std::max(majors, defaultLimit));
    request.majorLimitBinds = majors <= total;
    settings.iterations = std::min(majors, total);
    settings.memory = options.lineIs("hessmem", "full") ? 50 : options.integer("Hessian updates", 10);
    settings.print = options.integer("Major print level", 1) > 0 ? printfile::find(options.integer("Print file", 0)) : nullptr;
    settings.printEvery = options.integer("Major print frequency", 1);
    settings.warm = request.warm;
    options.setIterations(0);
    settings.iterationsDone = options.adrMajorIterations();

    request.start.x.assign(x, x + count);
    request.start.zL.assign(count, 0.0);
    request.start.zU.assign(count, 0.0);
    if (isUnusable(request))
        return;
    for (int i = 0; i < *nF; ++i)
        if (i != *objRow - 1)
            request.start.lambda.push_back(request.warm ? (request.parts.maximise ? Fmul[i] : -Fmul[i]) : 0.0);
    if (request.start.lambda.empty())
        request.start.lambda.push_back(0.0);
    if (request.warm)
        for (std::size_t j = 0; j < count; ++j) {
            const double z = request.parts.maximise ? -xmul[j] : xmul[j];
            request.start.zL[j] = std::max(z, 0.0);
            request.start.zU[j] = std::max(-z, 0.0);
        }

    UserFunctions functions({usrfun, *n, *nF, cu, lencu, iu, leniu, ru, lenru, cuLength}, request.parts.iG,
                            request.parts.jG, request.parts.xl, request.parts.xu, request.interval,
                            request.withDerivatives);
    const Answer answer = solve(request, functions);

    std::copy(answer.x.begin(), answer.x.end(), x);
    std::copy(answer.F.begin(), answer.F.end(), F);
    std::copy(answer.xmul.begin(), answer.xmul.end(), xmul);
    std::vector<int> rowStates, variableStates(count);
    ending::Infeasibility infeasible;
    std::size_t constraint = 0;
    for (std::size_t i = 0; i < rows; ++i) {
        if (static_cast<int>(i) == *objRow - 1) {
            Fmul[i] = request.parts.maximise ? -1.0 : 1.0;
            continue;
        }
        Fmul[i] = answer.pi[constraint++];
        rowStates.push_back(ending::stateOf(F[i], Flow[i], Fupp[i], request.feasibility));
        infeasible.add(ending::violationOf(F[i], Flow[i], Fupp[i]), request.feasibility);
    }
    for (std::size_t j = 0; j < count; ++j)
        variableStates[j] = ending::stateOf(x[j], xlow[j], xupp[j], request.feasibility);
    *nS = ending::markBasic(rowStates, variableStates);
    std::copy(variableStates.begin(), variableStates.end(), xstate);
    constraint = 0;
    for (std::size_t i = 0; i < rows; ++i)
        Fstate[i] = static_cast<int>(i) == *objRow - 1 ? 3 : rowStates[constraint++];
    *nInf = infeasible.count;
    *sInf = infeasible.sum;
    options.setIterations(answer.iterations);
    *info = answer.info;
    if (settings.print != nullptr)
        std::fprintf(settings.print, "exit %d after %d iterations\n", *info, answer.iterations);
    functions.finish(lastStatusFor(*info));
} catch (const std::bad_alloc&) {
    *info = kMemory;
} catch (...) {
    *info = kSystemError;
}

void qxsnjac(int* info, const int* nF, const int* n, OptimUserFunction* usrfun, int* iAfun, int* jAvar, const int* lenA,
             int* neA, double* A, int* iGfun, int* jGvar, const int* lenG, int* neG, const double* x, const double* xlow,
             const double* xupp, int* mincw, int* miniw, int* minrw, QX_USER_DATA, QX_WORKSPACES, HiddenLength cuLength,
             HiddenLength)
try {
    OptionStore options(cw, lencw, iw, leniw, rw, lenrw);
    *mincw = *miniw = *minrw = 500;
    if (*info = options.storageExit(); *info != 0)
        return;
    const Settings settings = commonSettings(options);
    *info = kInvalidArgument;
    if (*n <= 0 || *nF <= 0 || ending::areBadBounds(xlow, xupp, *n, settings.infinity))
        return;
    UserFunctions functions({usrfun, *n, *nF, cu, lencu, iu, leniu, ru, lenru, cuLength}, {}, {}, {xlow, xlow + *n},
                            {xupp, xupp + *n}, options.real("Difference interval", 1.5e-8), false);
    *info = findStructure(functions, {x, x + *n}, {xlow, xlow + *n}, {xupp, xupp + *n}, *nF,
                          {iAfun, jAvar, A, *lenA, neA, iGfun, jGvar, *lenG, neG});
} catch (const std::bad_alloc&) {
    *info = kMemory;
} catch (...) {
    *info = kSystemError;
}

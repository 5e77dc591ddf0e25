// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/entrypoints_detail.hpp"
#include "optim/ipopt/ending.hpp"
#include "optim/ipopt/options.hpp"
#include "optim/ipopt/printfile.hpp"
#include "optim/ipopt/quadratic.hpp"
#include "optim/ipopt/settings.hpp"

#include <IpReturnCodes.h>
#include <algorithm>
#include <cmath>
#include <new>
#include <string_view>

namespace {

constexpr int kMemory = 30;
constexpr int kSystemError = 140;
constexpr int kInvalidArgument = 91;
constexpr int kStoppedByUser = 73;
constexpr int kIndefinite = 53;

enum ElasticMode { Never, WhenInfeasible, AtOnce };
enum ElasticObjective { FOnly, FAndSum, SumOnly };

struct Request
{
    Settings settings;
    bool warm;
    int elasticMode, elasticObjective;
    double elasticWeight;
    std::vector<double> x, rc;
};

struct Answer
{
    int info = kSystemError;
    int iterations = 0;
    std::vector<double> all, rc; ///< (x, A x) and reduced costs with multipliers
    double objective = 0.0;
    ending::Infeasibility infeasible;
};

bool isInfeasible(int status, double violated, double tolerance)
{
    return status == Infeasible_Problem_Detected || (status == Restoration_Failed && violated > tolerance);
}

int exitFor(int status, const QuadraticProgram& program, bool elastic, const Answer& answer)
{
    switch (status) {
    case Solve_Succeeded:
    case Solved_To_Acceptable_Level: return elastic && answer.infeasible.count > 0 ? 14 : 1;
    case Infeasible_Problem_Detected: return elastic ? 14 : 11;
    case Search_Direction_Becomes_Too_Small: return 40;
    case Diverging_Iterates: return 21;
    case User_Requested_Stop: return program.isUnbounded() ? 21 : 74;
    case Feasible_Point_Found: return 2;
    case Maximum_Iterations_Exceeded: return 31;
    case Restoration_Failed: return answer.infeasible.count > 0 ? 14 : 40;
    case Error_In_Step_Computation: return 40;
    case Maximum_CpuTime_Exceeded: return 30;
    case Not_Enough_Degrees_Of_Freedom: return 40;
    case Invalid_Problem_Definition:
    case Invalid_Option: return kInvalidArgument;
    case Invalid_Number_Detected: return kStoppedByUser;
    case Insufficient_Memory: return kMemory;
    default: return kSystemError;
    }
}

/// The end of a run in the caller's terms; multipliers of the first m rows are his.
void describe(QuadraticProgram& program, const Request& request, const Point& point, Answer& answer)
{
    const QuadraticProgram::Parts& parts = program.parts();
    answer.all = program.withRows(point.x.data());
    std::vector<double> df;
    if (!program.value(point.x.data(), answer.objective, df))
        return;
    const auto n = static_cast<std::size_t>(parts.n);
    const double sign = parts.maximise ? 1.0 : -1.0;
    answer.rc.assign(answer.all.size(), 0.0);
    for (std::size_t i = n; i < answer.rc.size(); ++i)
        answer.rc[i] = sign * point.lambda[i - n];
    std::copy(df.begin(), df.end(), answer.rc.begin());
    for (std::size_t k = 0; k < parts.A.size(); ++k)
        answer.rc[static_cast<std::size_t>(parts.columnOf[k])] -=
            parts.A[k] * answer.rc[n + static_cast<std::size_t>(parts.rowOf[k])];
    for (std::size_t k = 0; k < answer.all.size(); ++k)
        answer.infeasible.add(ending::violationOf(answer.all[k], parts.lower[k], parts.upper[k]),
                              request.settings.feasibility);
}

/// One run from the caller's start.
int run(QuadraticProgram& program, const Request& request, Point& point, int& iterations)
{
    const auto n = static_cast<std::size_t>(program.parts().n);
    point.x.assign(program.xl.size(), 0.0);
    for (std::size_t j = 0; j < n; ++j)
        point.x[j] = std::clamp(request.x[j], program.xl[j], program.xu[j]);
    point.lambda.assign(program.gl.size(), 0.0);
    point.zL.assign(program.xl.size(), 0.0);
    point.zU = point.zL;
    if (request.warm) {
        const double sign = program.parts().maximise ? 1.0 : -1.0;
        for (std::size_t i = 0; i < static_cast<std::size_t>(program.parts().m); ++i)
            point.lambda[i] = sign * request.rc[n + i];
        for (std::size_t j = 0; j < n; ++j) {
            point.zL[j] = std::max(-sign * request.rc[j], 0.0);
            point.zU[j] = std::max(sign * request.rc[j], 0.0);
        }
    }
    const std::vector<double> start = point.x;
    Outcome outcome = runIpopt(program, request.settings, point);
    if (outcome.status == Not_Enough_Degrees_Of_Freedom) {
        program.widenEqualities(request.settings.feasibility);
        point.x = start;
        outcome = runIpopt(program, request.settings, point);
    }
    iterations += outcome.iterations;
    return outcome.status;
}

/// Nothing can move: every variable is fixed.
bool isFixed(const Program& program)
{
    return std::equal(program.xl.begin(), program.xl.end(), program.xu.begin());
}

Answer solve(const Request& request, const QuadraticProgram::Parts& parts, const QuadraticProgram::Caller& caller)
{
    QuadraticProgram program(parts, caller);
    Answer answer;
    const auto ended = [&](int info) {
        answer.info = info;
        if (answer.all.empty())
            answer.all = program.withRows(request.x.data());
        answer.rc.resize(answer.all.size(), 0.0);
        return answer;
    };
    if (!program.build())
        return ended(kStoppedByUser);
    if (!program.isConvex())
        return ended(kIndefinite);

    const auto makeElastic = [&](QuadraticProgram& which) {
        which.makeElastic(request.elasticObjective == SumOnly ? 0.0 : 1.0,
                          request.elasticObjective == FOnly ? 0.0 : request.elasticWeight);
    };
    bool elastic = request.elasticMode == AtOnce && program.hasElasticBounds();
    if (elastic)
        makeElastic(program);
    Point point;
    int status = Solve_Succeeded;
    if (isFixed(program)) {
        point.x = program.xl;
        point.lambda.assign(program.gl.size(), 0.0);
        describe(program, request, point, answer);
        status = answer.infeasible.count > 0 ? Infeasible_Problem_Detected : Solve_Succeeded;
    } else {
        status = run(program, request, point, answer.iterations);
        describe(program, request, point, answer);
    }
    if (program.isStopped())
        return ended(kStoppedByUser);
    if (!elastic && request.elasticMode == WhenInfeasible && program.hasElasticBounds() &&
        isInfeasible(status, answer.infeasible.sum, request.settings.feasibility)) {
        elastic = true;
        QuadraticProgram relaxed(parts, caller);
        if (!relaxed.build())
            return ended(kStoppedByUser);
        makeElastic(relaxed);
        status = run(relaxed, request, point, answer.iterations);
        answer.infeasible = {};
        describe(relaxed, request, point, answer);
        if (relaxed.isStopped())
            return ended(kStoppedByUser);
        return ended(exitFor(status, relaxed, elastic, answer));
    }
    if (std::fabs(answer.objective) > 1e15 && answer.infeasible.count == 0)
        return ended(21);
    return ended(exitFor(status, program, elastic, answer));
}

bool isUnusable(const QuadraticProgram::Parts& parts, const Request& request)
{
    const auto bad = [](const std::vector<double>& values, std::size_t count) {
        return std::any_of(values.begin(), values.begin() + static_cast<long>(count),
                           [](double v) { return !std::isfinite(v); });
    };
    return bad(parts.A, parts.A.size()) || bad(parts.c, parts.c.size()) ||
           bad(request.x, static_cast<std::size_t>(parts.n)) ||
           ending::areBadBounds(parts.lower.data(), parts.upper.data(), parts.n + parts.m, parts.infinity);
}

} // namespace

void qxsqopt(const char* start, OptimHessianFunction* qpHx, const int* m, const int* n, const int*, const int*,
             const int* lencObj, const int* ncolH, const int* iObj, const double* objAdd, const char*, const double* A,
             const int* indA, const int* locA, const double* bl, const double* bu, const double* cObj, const char*,
             const int* eType, int* hs, double* x, double* pi, double* rc, int* info, int* mincw, int* miniw, int* minrw,
             int* nS, int* nInf, double* sInf, double* objective, QX_USER_DATA, QX_WORKSPACES, HiddenLength startLength,
             HiddenLength, HiddenLength, HiddenLength cuLength, HiddenLength)
try {
    OptionStore options(cw, lencw, iw, leniw, rw, lenrw);
    *mincw = *miniw = *minrw = 500;
    *nS = *nInf = 0;
    *sInf = *objective = 0.0;
    if (*info = options.storageExit(); *info != 0)
        return;
    *info = kInvalidArgument;
    const std::string_view word(start, startLength);
    if (!options.isInitialised() || (word != "Cold" && word != "Warm") || *m <= 0 || *n <= 0 || *ncolH < 0 ||
        *ncolH > *n || *iObj != 0)
        return;

    const int size = *n + *m, entries = locA[*n] - 1;
    QuadraticProgram::Parts parts{*m, *n, *ncolH, *objAdd, {}, {A, A + entries}, {}, {}, {bl, bl + size}, {bu, bu + size},
                                  {eType, eType + size}, options.lineIs("maximize", "on"),
                                  options.real("Infinite bound size", 1e20)};
    parts.c.assign(static_cast<std::size_t>(*n), 0.0);
    std::copy_n(cObj, *lencObj, parts.c.begin());
    for (int j = 0; j < *n; ++j)
        for (int k = locA[j]; k < locA[j + 1]; ++k) {
            parts.rowOf.push_back(indA[k - 1] - 1);
            parts.columnOf.push_back(j);
        }
    Request request{commonSettings(options), word == "Warm", options.integer("Elastic mode", WhenInfeasible),
                    options.integer("Elastic objective", SumOnly), options.real("Elastic weight", 1.0), {x, x + size},
                    {rc, rc + size}};
    Settings& settings = request.settings;
    settings.tolerance = options.real("Optimality tolerance", 1e-6);
    settings.feasibility = options.real("Feasibility tolerance", 1e-6);
    settings.iterations = options.integer("Iterations limit", 3000);
    settings.print = options.integer("Print level", 1) > 0 ? printfile::find(options.integer("Print file", 0)) : nullptr;
    settings.printEvery = options.integer("Print frequency", 1);
    settings.warm = request.warm;
    if (isUnusable(parts, request))
        return;

    const Answer answer = solve(request, parts, {qpHx, cu, lencu, iu, leniu, ru, lenru, cuLength});

    std::copy(answer.all.begin(), answer.all.end(), x);
    std::copy(answer.rc.begin(), answer.rc.end(), rc);
    std::copy(answer.rc.begin() + *n, answer.rc.end(), pi);
    std::vector<int> variableStates, rowStates;
    for (int k = 0; k < size; ++k)
        (k < *n ? variableStates : rowStates).push_back(ending::stateOf(x[k], bl[k], bu[k], settings.feasibility));
    *nS = ending::markBasic(rowStates, variableStates);
    std::copy(variableStates.begin(), variableStates.end(), hs);
    std::copy(rowStates.begin(), rowStates.end(), hs + *n);
    *nInf = answer.infeasible.count;
    *sInf = answer.infeasible.sum;
    *objective = answer.objective;
    options.setIterations(answer.iterations);
    *info = answer.info;
    if (settings.print != nullptr)
        std::fprintf(settings.print, "exit %d after %d iterations\n", *info, answer.iterations);
} catch (const std::bad_alloc&) {
    *info = kMemory;
} catch (...) {
    *info = kSystemError;
}

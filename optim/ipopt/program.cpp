// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/program.hpp"

#include <IpStdCInterface.h>
#include <algorithm>
#include <cmath>
#include <memory>

namespace {

/// What the callbacks find behind IPOPT's user data.
struct Run
{
    Program& program;
    const Settings& settings;
    int iterations = 0;
};

Run& runOf(UserDataPtr data) { return *static_cast<Run*>(data); }

extern "C" {

static Bool objectiveOf(Index, Number* x, Bool, Number* f, UserDataPtr data)
{
    return runOf(data).program.objective(x, *f);
}

static Bool gradientOf(Index, Number* x, Bool, Number* df, UserDataPtr data)
{
    return runOf(data).program.gradient(x, df);
}

static Bool constraintsOf(Index, Number* x, Bool, Index, Number* g, UserDataPtr data)
{
    return runOf(data).program.constraints(x, g);
}

static Bool jacobianOf(Index, Number* x, Bool, Index, Index, Index* rows, Index* columns, Number* values,
                       UserDataPtr data)
{
    Program& program = runOf(data).program;
    if (values != nullptr)
        return program.jacobian(x, values);
    std::copy(program.jacobianRow.begin(), program.jacobianRow.end(), rows);
    std::copy(program.jacobianColumn.begin(), program.jacobianColumn.end(), columns);
    return TRUE;
}

static Bool hessianOf(Index, Number*, Bool, Number factor, Index, Number*, Bool, Index, Index* rows, Index* columns,
                      Number* values, UserDataPtr data)
{
    Program& program = runOf(data).program;
    if (!program.exactHessian)
        return FALSE;
    if (values != nullptr)
        return program.hessian(factor, values);
    std::copy(program.hessianRow.begin(), program.hessianRow.end(), rows);
    std::copy(program.hessianColumn.begin(), program.hessianColumn.end(), columns);
    return TRUE;
}

static Bool iterationOf(Index, Index count, Number f, Number violation, Number dual, Number mu, Number step, Number,
                        Number, Number alpha, Index, UserDataPtr data)
{
    Run& run = runOf(data);
    run.iterations = count;
    if (run.settings.iterationsDone != nullptr)
        *run.settings.iterationsDone = count;
    if (run.settings.print != nullptr && count % std::max(run.settings.printEvery, 1) == 0)
        std::fprintf(run.settings.print, "%6d %22.14e %10.2e %10.2e %10.2e %10.2e %10.2e\n", count, f, violation, dual, mu,
                     step, alpha);
    return run.program.proceed(f, violation);
}
}

/// The options, whose keywords IPOPT takes as writable text and never writes.
class Options
{
public:
    explicit Options(IpoptProblem problem) : problem_(problem) {}
    void text(const char* key, const char* value)
    {
        AddIpoptStrOption(problem_, const_cast<char*>(key), const_cast<char*>(value));
    }
    void number(const char* key, double value) { AddIpoptNumOption(problem_, const_cast<char*>(key), value); }
    void integer(const char* key, int value) { AddIpoptIntOption(problem_, const_cast<char*>(key), value); }

private:
    IpoptProblem problem_;
};

void setOptions(Options options, const Program& program, const Settings& settings)
{
    options.text("option_file_name", ""); // no file of the working directory is read
    options.text("sb", "yes");
    options.integer("print_level", 0);
    // Values outside IPOPT's ranges would be complained about on standard output.
    const double tolerance = std::clamp(settings.tolerance, 1e-14, 1e10);
    options.number("tol", tolerance);
    options.number("dual_inf_tol", tolerance);
    options.number("compl_inf_tol", tolerance);
    const double feasibility = std::clamp(settings.feasibility, 1e-14, 1e10);
    options.number("constr_viol_tol", feasibility);
    // The level that a run may end at when it gets no further: near to what was asked for.
    options.number("acceptable_tol", 100 * tolerance);
    options.number("acceptable_dual_inf_tol", 100 * tolerance);
    options.number("acceptable_compl_inf_tol", 100 * tolerance);
    options.number("acceptable_constr_viol_tol", feasibility);
    options.integer("max_iter", std::max(settings.iterations, 0));
    options.text("nlp_scaling_method", settings.scale ? "gradient-based" : "none");
    options.number("nlp_lower_bound_inf", -settings.infinity);
    options.number("nlp_upper_bound_inf", settings.infinity);
    options.number("bound_relax_factor", 0.0); // functions are never called outside the bounds
    options.number("diverging_iterates_tol", 1e10);
    options.text("check_derivatives_for_naninf", "yes");
    if (program.exactHessian) {
        options.text("hessian_constant", program.isQuadratic ? "yes" : "no");
    } else {
        options.text("hessian_approximation", "limited-memory");
        options.integer("limited_memory_max_history", std::clamp(settings.memory, 1, 50));
    }
    if (program.isQuadratic) {
        options.text("jac_c_constant", "yes");
        options.text("jac_d_constant", "yes");
    }
    if (settings.warm) {
        options.text("warm_start_init_point", "yes");
        options.number("mu_init", 1e-6);
        for (const char* push : {"warm_start_bound_push", "warm_start_bound_frac", "warm_start_slack_bound_push",
                                 "warm_start_slack_bound_frac", "warm_start_mult_bound_push"})
            options.number(push, 1e-9);
    }
}

} // namespace

Outcome runIpopt(Program& program, const Settings& settings, Point& point)
{
    const int entries = static_cast<int>(program.jacobianRow.size());
    const int second = program.exactHessian ? static_cast<int>(program.hessianRow.size()) : 0;
    const std::unique_ptr<IpoptProblemInfo, decltype(&FreeIpoptProblem)> problem(
        CreateIpoptProblem(program.n(), program.xl.data(), program.xu.data(), program.m(), program.gl.data(),
                           program.gu.data(), entries, second, 1, &objectiveOf, &constraintsOf, &gradientOf, &jacobianOf,
                           &hessianOf),
        &FreeIpoptProblem);
    if (!problem)
        return {Invalid_Problem_Definition, 0};
    setOptions(Options(problem.get()), program, settings);
    SetIntermediateCallback(problem.get(), &iterationOf);
    if (settings.print != nullptr)
        std::fprintf(settings.print, "%6s %22s %10s %10s %10s %10s %10s\n", "iter", "objective", "violation", "dual", "mu",
                     "step", "length");
    std::vector<double> g(static_cast<std::size_t>(program.m()));
    double f = 0.0;
    Run run{program, settings};
    const int status = IpoptSolve(problem.get(), point.x.data(), g.data(), &f, point.lambda.data(), point.zL.data(),
                                  point.zU.data(), &run);
    return {status, run.iterations};
}

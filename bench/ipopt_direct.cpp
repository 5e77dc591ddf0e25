// SPDX-License-Identifier: LicenseRef-qxkernel
#include "ipopt_direct.hpp"

#include <IpStdCInterface.h>
#include <algorithm>
#include <cmath>

namespace qxbench {

namespace {

using examples::Entry;

/// One evaluation a point serves all callbacks, as in the free optimizer.
struct Run
{
    const examples::Model& model;
    std::vector<double> x, F, G, total;
    std::vector<const Entry*> linear;
    std::vector<std::size_t> nonlinear;
    bool known = false;
    int iterations = 0;
    long evaluations = 0;

    bool moveTo(const double* to)
    {
        if (known && std::equal(x.begin(), x.end(), to))
            return true;
        ++evaluations;
        if (!model.evaluate(to, F.data(), G.data()))
            return false;
        x.assign(to, to + model.n());
        total = F;
        for (const Entry& e : model.linear())
            total[static_cast<std::size_t>(e.row)] += e.value * to[e.column];
        known = true;
        return true;
    }
};

extern "C" {
static Bool f(Index, Number* x, Bool, Number* value, UserDataPtr data)
{
    Run& run = *static_cast<Run*>(data);
    if (!run.moveTo(x))
        return FALSE;
    *value = run.total[0];
    return TRUE;
}
static Bool df(Index n, Number* x, Bool, Number* g, UserDataPtr data)
{
    Run& run = *static_cast<Run*>(data);
    if (!run.moveTo(x))
        return FALSE;
    std::fill(g, g + n, 0.0);
    for (const Entry& e : run.model.linear())
        if (e.row == 0)
            g[e.column] += e.value;
    for (std::size_t k = 0; k < run.model.nonlinear().size(); ++k)
        if (run.model.nonlinear()[k].row == 0)
            g[run.model.nonlinear()[k].column] += run.G[k];
    return TRUE;
}
static Bool g(Index, Number* x, Bool, Index m, Number* values, UserDataPtr data)
{
    Run& run = *static_cast<Run*>(data);
    if (!run.moveTo(x))
        return FALSE;
    values[0] = 0.0;
    for (std::size_t i = 1; i < run.total.size(); ++i)
        values[i - 1] = run.total[i];
    (void)m;
    return TRUE;
}
static Bool dg(Index, Number* x, Bool, Index, Index, Index* rows, Index* columns, Number* values, UserDataPtr data)
{
    Run& run = *static_cast<Run*>(data);
    if (values == nullptr) {
        rows[0] = columns[0] = 1;
        for (const Entry* e : run.linear) {
            *rows++ = e->row;
            *columns++ = e->column + 1;
        }
        for (const std::size_t k : run.nonlinear) {
            *rows++ = run.model.nonlinear()[k].row;
            *columns++ = run.model.nonlinear()[k].column + 1;
        }
        return TRUE;
    }
    if (!run.moveTo(x))
        return FALSE;
    values[0] = 0.0;
    for (const Entry* e : run.linear)
        *values++ = e->value;
    for (const std::size_t k : run.nonlinear)
        *values++ = run.G[k];
    return TRUE;
}
static Bool noHessian(Index, Number*, Bool, Number, Index, Number*, Bool, Index, Index*, Index*, Number*, UserDataPtr)
{
    return FALSE;
}
static Bool step(Index, Index count, Number, Number, Number, Number, Number, Number, Number, Number, Index, UserDataPtr data)
{
    static_cast<Run*>(data)->iterations = count;
    return TRUE;
}
}

} // namespace

DirectResult solveDirectly(const examples::Model& model, double tolerance, double feasibility, int iterations)
{
    Run run{model, {}, std::vector<double>(model.rows().size()), std::vector<double>(model.nonlinear().size() + 1), {}, {}, {}};
    for (const Entry& e : model.linear())
        if (e.row > 0)
            run.linear.push_back(&e);
    for (std::size_t k = 0; k < model.nonlinear().size(); ++k)
        if (model.nonlinear()[k].row > 0)
            run.nonlinear.push_back(k);
    std::vector<double> x = model.start(), xl, xu, gl, gu;
    const auto bound = [](double value) { return std::clamp(value, -1e20, 1e20); };
    for (const examples::Variable& v : model.problem().variables) {
        xl.push_back(bound(v.low));
        xu.push_back(bound(v.high));
    }
    for (std::size_t i = 1; i < model.rows().size(); ++i) {
        gl.push_back(bound(model.rows()[i].low));
        gu.push_back(bound(model.rows()[i].high));
    }
    if (gl.empty()) {
        gl.push_back(-1e20);
        gu.push_back(1e20);
    }
    const int entries = std::max<int>(1, static_cast<int>(run.linear.size() + run.nonlinear.size()));
    IpoptProblem problem = CreateIpoptProblem(model.n(), xl.data(), xu.data(), static_cast<int>(gl.size()), gl.data(), gu.data(),
                                              entries, 0, 1, &f, &g, &df, &dg, &noHessian);
    const auto text = [&](const char* key, const char* value) {
        AddIpoptStrOption(problem, const_cast<char*>(key), const_cast<char*>(value));
    };
    const auto number = [&](const char* key, double value) { AddIpoptNumOption(problem, const_cast<char*>(key), value); };
    const auto integer = [&](const char* key, int value) { AddIpoptIntOption(problem, const_cast<char*>(key), value); };
    text("option_file_name", "");
    text("sb", "yes");
    integer("print_level", 0);
    for (const char* key : {"tol", "dual_inf_tol", "compl_inf_tol"})
        number(key, tolerance);
    for (const char* key : {"acceptable_tol", "acceptable_dual_inf_tol", "acceptable_compl_inf_tol"})
        number(key, 100 * tolerance);
    number("constr_viol_tol", feasibility);
    number("acceptable_constr_viol_tol", feasibility);
    integer("max_iter", iterations);
    text("nlp_scaling_method", "gradient-based");
    number("nlp_lower_bound_inf", -1e20);
    number("nlp_upper_bound_inf", 1e20);
    number("bound_relax_factor", 0.0);
    number("diverging_iterates_tol", 1e10);
    text("check_derivatives_for_naninf", "yes");
    text("hessian_approximation", "limited-memory");
    integer("limited_memory_max_history", 10);
    SetIntermediateCallback(problem, &step);
    DirectResult result;
    std::vector<double> values(gl.size()), lambda(gl.size()), zL(x.size()), zU(x.size());
    result.status = IpoptSolve(problem, x.data(), values.data(), &result.objective, lambda.data(), zL.data(), zU.data(), &run);
    result.iterations = run.iterations;
    result.evaluations = run.evaluations;
    FreeIpoptProblem(problem);
    return result;
}

} // namespace qxbench

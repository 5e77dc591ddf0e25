// SPDX-License-Identifier: LicenseRef-qxkernel
// Optimises formulas that a user types, and fits formulas to data.
//
//     minimise f(x)  with  low <= x <= high  and  constraints g(x) <= 0, h(x) = 0
//
// Builds on: optimnp.hpp and optimqp.hpp for the optimizer, evaltree.hpp for formulas and their derivatives.
// Run:       optimise --minimise "100*(y-x^2)^2+(1-x)^2" --variables "x=-1.2, y=1 in [0,2]" --subject-to "x^2+y^2<=2"
//            optimise --fit decay.csv --model "a*exp(-b*t)+c" --variables "a=1, b=1, c=0"
//
//   1. Formulas become a graph; the gradient of each is one reverse accumulation over it (graph.cpp).
//   2. Constant derivatives are handed over as numbers; all others are evaluated together with the functions (model.cpp).
//   3. The optimizer is opened at run time; a quadratic objective under linear constraints goes a way of its own (solve.cpp).
//   4. Multipliers tell how much each active bound costs (report.cpp); two variables make a picture (picture.cpp).
//   5. A fit is a sum of squares over the rows of a table, with derivatives over all rows at once (fit.cpp).
//
// To try: --maximise, --starts 20, --check, a start in a place where the formula has no value.

#include "fit.hpp"
#include "picture.hpp"
#include "report.hpp"
#include "solve.hpp"

#include "formulas/explain.hpp"
#include "formulas/formula.hpp"
#include "optimstate.hpp"
#include "qxexception.hpp"
#include "support/fileerror.hpp"
#include "support/options.hpp"
#include "support/program.hpp"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace {

using namespace examples;

/// Control-C asks the run to stop; a second one ends the program.
qxutil::RunInfo interrupt;
extern "C" void onInterrupt(int)
{
    interrupt.cancel();
    std::signal(SIGINT, SIG_DFL);
}

struct Task
{
    Problem problem;
    Fit fit;
    std::string data, over;
    SolveOptions options;
    bool json = false, check = false, progress = false;
    std::string plot, library;
};

Task readTask(Options& options, int argc, char** argv)
{
    Task t;
    options.value("--minimise", "FORMULA", "what is to become small", [&](const std::string& v) {
        t.problem.objective = v;
        t.problem.maximise = false;
    });
    options.value("--maximise", "FORMULA", "what is to become large", [&](const std::string& v) {
        t.problem.objective = v;
        t.problem.maximise = true;
    });
    options.value("--variables", "LIST", "\"x=START in [LOW,HIGH], y\"; of a fit, its parameters", [&](const std::string& v) {
        t.problem.variables = parseVariables(v);
    });
    options.values("--subject-to", "CONSTRAINT", "two formulas with <=, >= or = between them; can be given again",
                  [&](const std::string& v) { t.problem.constraints.push_back(parseConstraint(v)); });
    options.values("--define", "NAME=FORMULA", "a name that formulas may use; can be given again", [&](const std::string& v) {
        const Formula f = Formula::parse(v);
        if (f.name == f.text)
            throw UsageError("'" + v + "' has no NAME=");
        t.problem.definitions[f.name] = f.text;
    });
    options.text("--fit", "FILE.csv", "fit the parameters of --model to this table", t.data);
    options.text("--model", "FORMULA", "of columns and parameters", t.fit.model);
    options.text("--observed", "COLUMN", "what the model is to be near (the column that it does not mention)", t.fit.observed);
    options.text("--weights", "COLUMN", "weights of the rows, positive (1)", t.fit.weights);
    options.text("--over", "COLUMN", "the axis of the picture of a fit (the first column)", t.over);
    options.value("--starts", "N", "optimise from N - 1 random points as well and keep the best",
                  [&](const std::string& v) { t.options.starts = wholeNumber(v, 1, 1000000); });
    options.value("--tolerance", "NUMBER", "of optimality and, up to 1e-7, of constraints (1e-8)", [&](const std::string& v) {
        if (!fromText(v, t.options.tolerance) || !(t.options.tolerance > 0.0))
            throw UsageError("'" + v + "' is no positive number");
    });
    options.value("--iterations", "N", "at most so many (1000)",
                  [&](const std::string& v) { t.options.iterations = wholeNumber(v, 0, 1000000); });
    options.flag("--check", "compare the gradients with differences, and do no more", t.check);
    options.flag("--json", "the answer for programs", t.json);
    options.flag("--progress", "a line for each iteration on the standard error stream", t.progress);
    options.text("--plot", "FILE.svg", "draw a problem of two variables, or a fit", t.plot);
    options.text("--print", "FILE", "the optimizer's own protocol, appended", t.options.printFile);
    options.text("--library", "FOLDER", "where the optimizer library is, libqxsnopt.dylib", t.library);
    const std::vector<std::string> words = options.read(argc, argv);
    if (options.helpWanted())
        return t;
    if (!words.empty())
        throw UsageError("'" + words.front() + "' belongs to no option, see optimise --help");
    if (t.data.empty() == t.problem.objective.empty())
        throw UsageError("either --minimise, --maximise or --fit is needed, see optimise --help");
    if (t.data.empty() != t.fit.model.empty())
        throw UsageError("--fit and --model need each other");
    if (t.problem.variables.empty())
        throw UsageError("--variables is needed");
    if (!t.data.empty() && !t.problem.constraints.empty())
        throw UsageError("a fit takes ranges of its parameters, no --subject-to");
    t.fit.parameters = t.problem.variables;
    t.fit.definitions = t.problem.definitions;
    return t;
}

void writePlot(const std::string& file, const std::function<void(std::ostream&)>& draw)
{
    std::ofstream out(file);
    draw(out);
    if (!out.flush())
        throw FileError(file, "cannot be written");
}

int checkGradients(const Model& model)
{
    const GradientCheck check = checkGradient(model);
    std::printf("largest relative difference between gradient and differences %.2g, of %s by %s\n", check.worst,
                model.rows()[static_cast<std::size_t>(check.row)].text.c_str(),
                model.problem().variables[static_cast<std::size_t>(check.column)].name.c_str());
    return check.worst <= 1e-4 ? 0 : 1;
}

int optimise(const Task& task)
{
    const Model model(task.problem);
    if (task.check)
        return checkGradients(model);
    const Solution solution = solve(model, task.options);
    task.json ? printJson(std::cout, model, solution) : printReport(std::cout, model, solution);
    if (!task.plot.empty())
        writePlot(task.plot, [&](std::ostream& out) { drawLandscape(out, model, solution); });
    return solution.solved ? 0 : 3;
}

int fit(Task& task)
{
    const Table data = readCsv(task.data);
    if (task.fit.observed.empty())
        task.fit.observed = observedColumn(task.fit, data);
    const FitResult result = fitParameters(task.fit, data, task.options);
    task.json ? printJson(std::cout, task.fit, result) : printReport(std::cout, task.fit, result);
    if (!task.plot.empty())
        writePlot(task.plot, [&](std::ostream& out) {
            drawFit(out, task.fit, result, data, task.over.empty() ? data.names.front() : task.over);
        });
    return result.solution.solved ? 0 : 3;
}

int run(Task& task)
{
    if (!task.library.empty())
        OptimState::setLibraryPath(task.library);
    task.options.run = &interrupt;
    if (task.progress)
        task.options.progress = [](long count, double f, double violation) {
            std::fprintf(stderr, "%6ld  %18.10g  violation %.2e\n", count, f, violation);
        };
    std::signal(SIGINT, onInterrupt);
    return task.data.empty() ? optimise(task) : fit(task);
}

} // namespace

int main(int argc, char** argv)
{
    Options options("optimise", "",
                    "Finds the smallest or largest value of a formula under constraints, or fits a formula to data.\n"
                    "Ends with 0 for an answer, 3 when the optimizer stopped early, 1 for a failure, 2 for bad options.");
    return guarded(
        options,
        [&] {
            Task task = readTask(options, argc, argv);
            if (!options.helpWanted())
                return run(task);
            std::cout << options.help();
            return 0;
        },
        [](const qxbase::Exception& e) { return "it cannot be done\n" + explain(e); });
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Heat conduction on a mesh, from formulas to a picture.
//
//     -div(k grad u) = f,   k du/dn = q on boundaries,   u fixed, periodic or with a given mean on others
//
// Builds on: evaluate. Run:
//
//     heat examples/data/finned_pipe.msh --k "1+0.5*x" --source "exp(-50*((x-.3)^2+y^2))"
//          --fixed "inlet: 20+5*sin(10*y)" --flux "fins: 3*(15-u)" --periodic left,right --plot heat.svg
//
//   1. A mesh in Gmsh's format is read, refined if wanted (mesh.hpp).
//   2. Formulas become graphs; their derivatives by u come from the graphs (coefficient.hpp).
//   3. They are evaluated block by block at the points of a quadrature rule, elements are added up as triplets
//      (assembly.hpp).
//   4. Fixed values, periodic pairs and mean values are conditions N^H u = g; a sparse basis of their null space
//      eliminates them (constraints.hpp, solution.hpp).
//   5. Newton's method with UMFPACK solves what is left; a linear problem takes one step.
//   6. The result goes to a VTK file and a picture.
//
// To try: --k "1+0.02*(u-20)^2" makes it nonlinear; --complex --source "-i*40*u" shows thermal waves; --refine 3.

#include "assembly.hpp"
#include "mesh.hpp"
#include "solution.hpp"
#include "support/csv.hpp"
#include "support/fileerror.hpp"
#include "support/options.hpp"
#include "support/picture.hpp"
#include "support/program.hpp"
#include "vtu.hpp"
#include "watch.hpp"

#include "qxexception.hpp"
#include "qxrun.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>

namespace {

using namespace examples;

Watch watch;
qxutil::RunInfo runInfo(&watch);

extern "C" void onInterrupt(int)
{
    runInfo.cancel(); // one atomic store: allowed here
}

struct Task
{
    std::string mesh;
    HeatModel model;
    SolutionOptions options;
    int refine = 0;
    bool complex = false;
    std::string vtu;
    std::string plot;
    std::string title = "u";
    std::string unit;
    std::string exact;
};

Task readTask(Options& options, int argc, char** argv)
{
    Task t;
    const auto boundaryFormula = [&](std::vector<BoundaryFormula>& list) {
        return [&list](const std::string& v) { list.push_back(BoundaryFormula::parse(v)); };
    };
    options.values("--define", "NAME=FORMULA", "a name that formulas may use; can be given again", [&](const std::string& v) {
        const Formula f = Formula::parse(v);
        if (f.name == f.text)
            throw UsageError("'" + v + "' has no NAME=");
        t.model.definitions.push_back(f);
    });
    options.values("--table", "NAME=FILE,METHOD,OUTSIDE", kTableHelp, [&](const std::string& v) {
        for (NamedTable& table : NamedTable::parse(v))
            t.model.tables.push_back(std::move(table));
    });
    options.text("--k", "FORMULA", "conductivity, of x, y and u (1)", t.model.conductivity);
    options.text("--source", "FORMULA", "heat made in the body, of x, y and u (0)", t.model.source);
    options.values("--flux", "BOUNDARY: FORMULA", "heat that enters there, of x, y and u", boundaryFormula(t.model.flux));
    options.values("--fixed", "BOUNDARY: FORMULA", "u there, of x and y", boundaryFormula(t.model.fixed));
    options.values("--mean", "BOUNDARY: FORMULA", "mean of u over the boundary", boundaryFormula(t.model.mean));
    options.values("--periodic", "A,B", "u is the same on two boundaries", [&](const std::string& v) {
        const std::vector<std::string> pair = split(v, ',');
        if (pair.size() != 2)
            throw UsageError("'" + v + "' are not two boundaries");
        t.model.periodic.emplace_back(pair[0], pair[1]);
    });
    options.flag("--complex", "values may be complex; the problem must be linear", t.complex);
    options.value("--refine", "N", "quarter the triangles N times", [&](const std::string& v) { t.refine = wholeNumber(v, 0, 8); });
    options.value("--threads", "N", "threads to use (1)",
                  [&](const std::string& v) { t.options.effort.threads = wholeNumber(v, 1, 1024); });
    options.text("--vtu", "FILE.vtu", "write the solution for ParaView", t.vtu);
    options.text("--plot", "FILE.svg", "draw the solution (of a complex one the real part)", t.plot);
    options.text("--title", "TEXT", "above the picture", t.title);
    options.text("--unit", "TEXT", "above the colour bar", t.unit);
    options.text("--exact", "FORMULA", "print the L2 distance from this solution", t.exact);

    const std::vector<std::string> words = options.read(argc, argv);
    if (options.helpWanted())
        return t;
    if (words.size() != 1)
        throw UsageError("one mesh is needed, see heat --help");
    t.mesh = words.front();
    for (auto f = t.model.fixed.begin(); f != t.model.fixed.end(); ++f)
        if (std::any_of(t.model.fixed.begin(), f, [&](const BoundaryFormula& g) { return g.boundary == f->boundary; }))
            throw UsageError("--fixed: '" + f->boundary + "' has two values");
    t.options.effort.run = &runInfo;
    return t;
}

std::vector<double> partOf(const std::vector<std::complex<double>>& u, double (*part)(const std::complex<double>&))
{
    std::vector<double> v;
    for (const std::complex<double>& z : u)
        v.push_back(part(z));
    return v;
}

using Fields = std::vector<std::pair<std::string, std::vector<double>>>;

Fields fieldsOf(const std::vector<double>& u)
{
    return {{"u", u}};
}

Fields fieldsOf(const std::vector<std::complex<double>>& u)
{
    return {{"u.re", partOf(u, [](const std::complex<double>& z) { return z.real(); })},
            {"u.im", partOf(u, [](const std::complex<double>& z) { return z.imag(); })},
            {"u.abs", partOf(u, [](const std::complex<double>& z) { return std::abs(z); })}};
}

template <class Write>
void writeFile(const std::string& name, Write write)
{
    if (name.empty())
        return;
    std::ofstream out(name, std::ios::binary);
    write(out);
    if (!out.flush())
        throw FileError(name, "cannot be written");
}

template <class T>
void run(const Task& task)
{
    Phases phases([](const std::string& name) { watch.phase(name); });
    phases.start("read mesh");
    NamedMesh mesh = readMsh(task.mesh);
    for (int k = 0; k < task.refine; ++k)
        mesh = refined(mesh);
    const Solution<T> s = solve<T>(mesh, task.model, task.options, runInfo, phases);

    phases.start("write");
    const Fields fields = fieldsOf(s.u);
    writeFile(task.vtu, [&](std::ostream& out) { writeVtu(out, mesh, fields); });
    writeFile(task.plot, [&](std::ostream& out) {
        writePicture(out, mesh, fields.front().second,
                     {task.title, std::to_string(s.unknowns) + " unknowns on " + std::to_string(mesh.triangles.size()) +
                                      " triangles",
                      task.unit});
    });
    phases.start("");

    std::printf("mesh         %zu nodes, %zu triangles\n", mesh.points.size(), mesh.triangles.size());
    std::printf("unknowns     %zu, %zu conditions eliminated\n", s.unknowns, s.constraints);
    std::printf("matrix       %zu entries\n", s.entries);
    std::printf("solution     %d step%s, relative residual %.1e\n", s.steps, s.steps == 1 ? "" : "s", s.residual);
    for (const auto& [name, values] : fields) {
        const auto [low, high] = std::minmax_element(values.begin(), values.end());
        std::printf("%-12s %.6g to %.6g\n", name.c_str(), *low, *high);
    }
    if (!task.exact.empty())
        std::printf("L2 error     %.6e\n", Assembly(mesh, task.model, task.options.effort).error(s.u, task.exact));
    double total = 0.0;
    for (const auto& [name, seconds] : phases.seconds())
        total += seconds;
    for (const auto& [name, seconds] : phases.seconds())
        std::fprintf(stderr, "  %-18s %8.1f ms  %3.0f %%\n", name.c_str(), 1e3 * seconds, 100.0 * seconds / total);
}

} // namespace

int main(int argc, char** argv)
{
    Options options("heat", "MESH.msh", "Solves -div(k grad u) = f on a mesh in Gmsh's MSH 4.1 format.");
    return guarded(options, [&] {
        const Task task = readTask(options, argc, argv);
        if (options.helpWanted()) {
            std::cout << options.help();
            return 0;
        }
        std::signal(SIGINT, onInterrupt);
        try {
            task.complex ? run<std::complex<double>>(task) : run<double>(task);
        } catch (...) {
            watch.phase(""); // what is shown of the work gives way to what is said of the failure
            throw;
        }
        return 0;
    });
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Heat conduction on a mesh that many ranks share: the program `heat` over MPI.
//
//     -div(k grad u) = f,   k du/dn = q on boundaries,   u fixed, periodic or with a given mean on others
//
// Builds on: heat. Run:
//
//     tools/mpi_run 4 60 build/release/examples/heat_mpi examples/data/finned_pipe.msh --refine 3
//          --fixed "inlet: 80" --flux "fins: 6*(20-u)" --kind spd --vtu heat.pvtu --plot heat.svg
//
//   1. The first rank reads the mesh and METIS partitions it; each rank refines its part (meshpart.hpp).
//   2. Formulas, elements and their sums are those of `heat`, on the part of each rank (field.cpp).
//   3. Conditions of all boundaries are reduced once by a null space; entries of shared nodes are sent and added up
//      (distributed.hpp).
//   4. PETSc solves: --petsc "-ksp_monitor -pc_type hypre". Newton's method goes round all this.
//   5. Each rank writes its piece of the result; a picture is drawn from a coarser mesh (output.hpp).
//
// Built twice: heat_mpi for real numbers, heat_mpi_complex for complex ones. To try: --restart with the file of --vtu;
// --petsc "-ksp_type preonly -pc_type lu -pc_factor_mat_solver_type mumps"; --beside with a file that `heat` wrote.

#include "field.hpp"
#include "output.hpp"

#include "heat/watch.hpp"
#include "support/csv.hpp"
#include "support/options.hpp"
#include "support/picture.hpp"

#include "qxexception.hpp"
#include "qxparallel.hpp"
#include "qxrun.hpp"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <complex>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <type_traits>

namespace {

using namespace examples;

constexpr bool kComplex = !std::is_same_v<Scalar, double>;
constexpr const char* kProgram = kComplex ? "heat_mpi_complex" : "heat_mpi";
constexpr std::size_t kPictureTriangles = 60'000;
constexpr unsigned kSecondsToStop = 1; // after a signal; then the process goes, wherever it is

Watch watch;
qxutil::RunInfo runInfo(&watch);
volatile std::sig_atomic_t signalled = 0;
char phaseNow[64] = "start";

/// What a library holds up ends here: nothing but what a handler may do.
extern "C" void onAlarm(int)
{
    const char head[] = "stopped in: ";
    [[maybe_unused]] ssize_t ignored = write(STDERR_FILENO, head, sizeof head - 1);
    ignored = write(STDERR_FILENO, phaseNow, std::strlen(phaseNow));
    ignored = write(STDERR_FILENO, "\n", 1);
    _exit(128 + (signalled != 0 ? signalled : SIGALRM));
}

extern "C" void onSignal(int signal)
{
    signalled = signal;
    runInfo.cancel();
    alarm(kSecondsToStop);
}

struct Task
{
    std::string mesh;
    HeatModel model;
    FieldOptions options;
    std::string wholeRun; ///< PETSc's options that belong to no solver
    int refine = 0;
    bool complex = false;
    std::string vtu, restart, plot, beside, exact, unit;
    std::string title = "u";
    std::vector<Point> probes;
};

/// Parts PETSc's options: those of the whole run are read when it starts.
void takePetsc(const std::string& text, Task& t)
{
    static const std::vector<std::string> ofRun{"-log_", "-options_", "-malloc", "-info", "-memory_view", "-on_error", "-mat_", "-vec_"};
    std::istringstream in(text);
    std::string* to = &t.options.linear.options;
    for (std::string word; in >> word;) {
        if (word.size() > 1 && word[0] == '-' && std::isalpha(static_cast<unsigned char>(word[1])) != 0)
            to = std::any_of(ofRun.begin(), ofRun.end(), [&](const std::string& o) { return word.rfind(o, 0) == 0; })
                     ? &t.wholeRun
                     : &t.options.linear.options;
        *to += (to->empty() ? "" : " ") + word;
    }
}

Task readTask(Options& options, int argc, char** argv)
{
    Task t;
    t.options.linear.tolerance = 1e-12;
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
    options.value("--refine", "N", "quarter the triangles N times", [&](const std::string& v) { t.refine = wholeNumber(v, 0, 12); });
    options.value("--threads", "N", "threads a rank (1)",
                  [&](const std::string& v) { t.options.newton.effort.threads = wholeNumber(v, 1, 1024); });
    options.value("--kind", "KIND", "of the matrix: spd, symmetric or general (general)", [&](const std::string& v) {
        using qx::distributed::Kind;
        if (v != "spd" && v != "symmetric" && v != "general")
            throw UsageError("'" + v + "' is none of spd, symmetric, general");
        t.options.linear.kind = v == "spd" ? Kind::Spd : v == "symmetric" ? Kind::Symmetric : Kind::General;
    });
    options.value("--tolerance", "X", "of the linear solution (1e-12)",
                  [&](const std::string& v) { t.options.linear.tolerance = positiveNumber(v); });
    options.values("--petsc", "OPTIONS", "PETSc's options: \"-ksp_monitor -pc_type jacobi -log_view\"",
                  [&](const std::string& v) { takePetsc(v, t); });
    options.text("--restart", "FILE.pvtu", "begin with the solution there, of the same mesh and number of ranks", t.restart);
    options.text("--vtu", "FILE.pvtu", "write the solution for ParaView, a piece a rank", t.vtu);
    options.text("--plot", "FILE.svg", "draw the solution (of a complex one the real part)", t.plot);
    options.text("--title", "TEXT", "above the picture", t.title);
    options.text("--unit", "TEXT", "above the colour bar", t.unit);
    options.text("--exact", "FORMULA", "print the L2 distance from this solution", t.exact);
    options.text("--beside", "FILE.vtu", "print the distance from a solution that heat wrote", t.beside);
    options.values("--probe", "X,Y", "print the value at a point; can be given again", [&](const std::string& v) {
        const std::vector<std::string> xy = split(v, ',');
        Point p{};
        std::istringstream in(xy.size() == 2 ? xy[0] + " " + xy[1] : "");
        in.imbue(std::locale::classic());
        if (!(in >> p[0] >> p[1]))
            throw UsageError("'" + v + "' is no point X,Y");
        t.probes.push_back(p);
    });

    const std::vector<std::string> words = options.read(argc, argv);
    if (options.helpWanted())
        return t;
    if (words.size() != 1)
        throw UsageError(std::string("one mesh is needed, see ") + kProgram + " --help");
    if (t.complex && !kComplex)
        throw UsageError("--complex: run heat_mpi_complex, which is built with PETSc for complex numbers");
    t.mesh = words.front();
    for (auto f = t.model.fixed.begin(); f != t.model.fixed.end(); ++f)
        if (std::any_of(t.model.fixed.begin(), f, [&](const BoundaryFormula& g) { return g.boundary == f->boundary; }))
            throw UsageError("--fixed: '" + f->boundary + "' has two values");
    t.options.newton.effort.run = &runInfo;
    t.options.linear.run = &runInfo;
    return t;
}

[[maybe_unused]] Fields fieldsOf(const std::vector<double>& u)
{
    return {{"u", u}};
}

[[maybe_unused]] Fields fieldsOf(const std::vector<std::complex<double>>& u)
{
    Fields fields{{"u.re", {}}, {"u.im", {}}, {"u.abs", {}}};
    for (const std::complex<double>& z : u) {
        fields[0].second.push_back(z.real());
        fields[1].second.push_back(z.imag());
        fields[2].second.push_back(std::abs(z));
    }
    return fields;
}

[[maybe_unused]] void setImaginary(std::vector<double>&, const std::vector<double>&) {}

[[maybe_unused]] void setImaginary(std::vector<std::complex<double>>& u, const std::vector<double>& part)
{
    for (std::size_t k = 0; k < u.size(); ++k)
        u[k].imag(part[k]);
}

/// Together: prints on the first rank.
void printExtremes(const Session& session, const std::string& name, const std::vector<double>& values)
{
    double low = INFINITY;
    double high = -INFINITY;
    for (const double v : values) {
        low = std::min(low, v);
        high = std::max(high, v);
    }
    MPI_Allreduce(MPI_IN_PLACE, &low, 1, MPI_DOUBLE, MPI_MIN, session.comm());
    MPI_Allreduce(MPI_IN_PLACE, &high, 1, MPI_DOUBLE, MPI_MAX, session.comm());
    if (session.rank() == 0)
        std::printf("%-12s %.6g to %.6g\n", name.c_str(), low, high);
}

/// Together: how far places and values of nodes are from those with the same numbers in a serial run's file.
void printBeside(const Session& session, const std::string& file, const MeshPart& part, const Fields& fields)
{
    double place = 0.0;
    double difference = 0.0;
    double size = 0.0;
    session.together([&] {
        const std::vector<double> points = readVtuArray(file, "Points");
        if (points.size() != 3 * static_cast<std::size_t>(part.nodes))
            throw FileError(file, "has another number of points");
        for (const auto& [name, values] : fields) {
            const std::vector<double> other = readVtuArray(file, name);
            for (const double v : other)
                size = std::max(size, std::abs(v));
            for (std::size_t k = 0; k < values.size(); ++k) {
                const auto n = static_cast<std::size_t>(part.nodeNumber[k]);
                difference = std::max(difference, std::abs(values[k] - other.at(n)));
                place = std::max({place, std::abs(points[3 * n] - part.points[k][0]), std::abs(points[3 * n + 1] - part.points[k][1])});
            }
        }
    });
    double all[2] = {place, difference};
    MPI_Allreduce(MPI_IN_PLACE, all, 2, MPI_DOUBLE, MPI_MAX, session.comm());
    if (session.rank() == 0)
        std::printf("beside       nodes of the same number apart by %.1e, values by %.1e of the largest\n", all[0],
                    size > 0.0 ? all[1] / size : all[1]);
}

void run(const Session& session, const Task& task)
{
    const bool first = session.rank() == 0;
    Phases phases([&](const std::string& name) {
        std::strncpy(phaseNow, name.c_str(), sizeof phaseNow - 1);
        if (first)
            watch.phase(name);
    });
    phases.start("read mesh");
    MeshPart part = readPart(session, task.mesh);
    MeshPart coarse = part;
    phases.start("refine");
    for (int k = 0; k < task.refine; ++k) {
        session.agreeOnCancel(runInfo);
        part = refined(session, part);
        if (static_cast<std::size_t>(part.triangleCount) <= kPictureTriangles)
            coarse = part;
    }
    FieldOptions options = task.options;
    if (!task.restart.empty())
        session.together([&] {
            const std::vector<double> re = readPiece(session, task.restart, part, kComplex ? "u.re" : "u");
            options.start.assign(re.begin(), re.end());
            if (kComplex)
                setImaginary(options.start, readPiece(session, task.restart, part, "u.im"));
        });
    const Field s = solve(session, part, task.model, options, runInfo, phases);

    phases.start("write");
    const Fields fields = fieldsOf(s.u);
    writePieces(session, task.vtu, part, fields);
    if (!task.plot.empty()) {
        const Overview o = overview(session, coarse, part, fields.front().second);
        session.together([&] {
            if (first)
                writeWhole(task.plot, [&](std::ostream& out) {
                    writePicture(out, o.mesh, o.values,
                                 {task.title, std::to_string(s.unknowns) + " unknowns on " + std::to_string(part.triangleCount) +
                                                  " triangles, " + std::to_string(session.size()) + " ranks",
                                  task.unit});
                });
        });
    }
    phases.start("");

    if (first) {
        std::printf("mesh         %lld nodes, %lld triangles\n", static_cast<long long>(part.nodes),
                    static_cast<long long>(part.triangleCount));
        std::printf("ranks        %d\n", session.size());
        std::printf("unknowns     %lld, %lld conditions eliminated\n", static_cast<long long>(s.unknowns),
                    static_cast<long long>(s.conditions));
        std::printf("matrix       %.0f entries before sharing\n", s.entries);
        std::printf("solution     %d step%s, %d iterations, relative residual %.1e\n", s.steps, s.steps == 1 ? "" : "s", s.iterations,
                    s.residual);
    }
    for (const auto& [name, values] : fields)
        printExtremes(session, name, values);
    for (const Point& p : task.probes) {
        const double value = valueAt(session, part, fields.front().second, p);
        if (first)
            std::printf("at           (%g, %g): %.10g\n", p[0], p[1], value);
    }
    if (!task.exact.empty()) {
        const double distance = error(session, part, task.model, options.newton.effort, s.u, task.exact);
        if (first)
            std::printf("L2 error     %.6e\n", distance);
    }
    if (!task.beside.empty())
        printBeside(session, task.beside, part, fields);
    if (!first)
        return;
    double total = 0.0;
    for (const auto& [name, seconds] : phases.seconds())
        total += seconds;
    for (const auto& [name, seconds] : phases.seconds())
        std::fprintf(stderr, "  %-18s %8.1f ms  %3.0f %%\n", name.c_str(), 1e3 * seconds, 100.0 * seconds / total);
}

/// What all ranks agree on is told once.
int fail(const Session& session, int status, const std::string& message)
{
    if (session.rank() == 0) {
        watch.phase("");
        std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
    }
    return status;
}

/// The story, for the person who typed the formulas, and the rank that it comes from.
std::string textOf(const qxbase::Exception& e)
{
    std::string reason, rank;
    for (std::size_t i = 0; i < e.size(); ++i)
        for (const auto& [key, value] : e.getArgs(i)) {
            if (key == "Reason")
                reason = value;
            if (key == "Rank" && e.getId(i) == "Failed_on_rank")
                rank = value;
        }
    if (e.getId() == "Exception_on_rank")
        return reason + "\n  (rank " + rank + ")";
    return e.toString();
}

} // namespace

int main(int argc, char** argv)
{
    Task task;
    try {
        Options options(kProgram, "MESH.msh", "Solves -div(k grad u) = f on a mesh in Gmsh's MSH 4.1 format, over MPI.");
        task = readTask(options, argc, argv);
        if (options.helpWanted()) {
            std::cout << options.help();
            return std::cout.flush() ? 0 : 1;
        }
    } catch (const std::exception& e) { // the same on every rank
        const char* rank = std::getenv("OMPI_COMM_WORLD_RANK");
        if (rank == nullptr || std::string(rank) == "0")
            std::cerr << kProgram << ": " << e.what() << '\n';
        return 2;
    }
    try {
        const Session session(MPI_COMM_WORLD, {.options = task.wholeRun});
        std::signal(SIGALRM, onAlarm);
        std::signal(SIGINT, onSignal);
        std::signal(SIGTERM, onSignal);
        qxbase::setAvailableThreads(task.options.newton.effort.threads);
        try {
            run(session, task);
            return 0;
        } catch (const qxbase::CancelException&) {
            return fail(session, 130, std::string("stopped in: ") + phaseNow);
        } catch (const qxbase::Exception& e) {
            return fail(session, 1, textOf(e));
        }
    } catch (const qxbase::Exception& e) {
        std::cerr << kProgram << ": " << e.toString();
    } catch (const std::exception& e) {
        std::cerr << kProgram << ": " << e.what() << '\n';
    }
    return 1;
}

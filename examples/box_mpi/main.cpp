// SPDX-License-Identifier: LicenseRef-qxkernel
// Conduction in a cube of hexahedra, made and solved by many ranks; nothing is ever in one place.
//
//     -div(k grad u) = f   in the unit cube,   u = g on its surface
//
// Builds on: heat_mpi. Run:
//
//     tools/mpi_run 4 300 build/release/examples/box_mpi 60 --k "1+x*y" --petsc "-ksp_monitor"
//
//   1. The cube is dealt to ranks in blocks of cells; a node belongs to the block that begins at it.
//   2. Formulas are evaluated at 2 x 2 x 2 Gauss points of some thousand cells at a time, and their element matrices
//      go to the assembly as a batch: only its distinct entries stay.
//   3. The surface's values are conditions; conjugate gradients with multigrid do the rest.
//   4. What a rank needed of memory is printed an unknown.
//
// Expect: without options u = sin(pi x) sin(pi y) sin(pi z), and an error that a halved cell size divides by four. To try:
// --petsc "-pc_type hypre"; --batch 100 and --batch 1000000 beside the printed memory.
// Source: Hughes, The Finite Element Method, Dover 2000, chapter 3 (trilinear hexahedron, Gauss points).

#include "support/options.hpp"

#include "distributed.hpp"
#include "formulas.hpp"
#include "qxexception.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace examples;
namespace dist = qx::distributed;
using dist::Index;

struct Task
{
    Index cells = 0;
    std::string k = "1", f = "3*pi^2*sin(pi*x)*sin(pi*y)*sin(pi*z)", g = "0", exact = "sin(pi*x)*sin(pi*y)*sin(pi*z)";
    std::string petsc;
    Index batch = 4096;
    bool reuse = false;
};

/// A rank's block: cells from[d] ... to[d] - 1 in each direction, and the nodes that they touch.
struct Block
{
    std::array<Index, 3> from, to;
    Index cells; ///< of the cube, along an edge

    Block(const dist::Session& session, Index n) : cells(n)
    {
        int parts[3] = {0, 0, 0};
        MPI_Dims_create(session.size(), 3, parts);
        int rest = session.rank();
        for (std::size_t d = 0; d < 3; ++d) {
            const Index at = rest % parts[d];
            rest /= parts[d];
            from[d] = n * at / parts[d];
            to[d] = n * (at + 1) / parts[d];
        }
    }
    Index numberOf(Index i, Index j, Index k) const { return i + (cells + 1) * (j + (cells + 1) * k); }
    bool isEmpty() const { return from[0] == to[0] || from[1] == to[1] || from[2] == to[2]; }
    bool owns(Index i, Index j, Index k) const
    {
        const std::array<Index, 3> at{i, j, k};
        bool mine = true;
        for (std::size_t d = 0; d < 3; ++d)
            mine = mine && (at[d] < to[d] || to[d] == cells);
        return mine;
    }
    bool onSurface(Index i, Index j, Index k) const
    {
        return i == 0 || j == 0 || k == 0 || i == cells || j == cells || k == cells;
    }
};

/// Numbers and places of the nodes of a block, those that it owns first.
struct Nodes
{
    std::vector<Index> number;
    std::vector<double> x, y, z;
    std::vector<bool> surface;
    std::size_t owned = 0;

    explicit Nodes(const Block& b)
    {
        if (b.isEmpty())
            return;
        const double h = 1.0 / static_cast<double>(b.cells);
        for (const bool mine : {true, false}) {
            for (Index k = b.from[2]; k <= b.to[2]; ++k)
                for (Index j = b.from[1]; j <= b.to[1]; ++j)
                    for (Index i = b.from[0]; i <= b.to[0]; ++i)
                        if (b.owns(i, j, k) == mine) {
                            number.push_back(b.numberOf(i, j, k));
                            x.push_back(h * static_cast<double>(i));
                            y.push_back(h * static_cast<double>(j));
                            z.push_back(h * static_cast<double>(k));
                            surface.push_back(b.onSurface(i, j, k));
                        }
            if (mine)
                owned = number.size();
        }
    }
};

/// The trilinear element of a cube of size h: integrals at Gauss point q, without k and f.
struct Element
{
    double stiffness[8][8][8]; ///< weight grad phi_i . grad phi_j
    double load[8][8];         ///< weight phi_i
    double at[8][3];           ///< Gauss points in the unit cell

    explicit Element(double h)
    {
        const double low = 0.5 - 0.5 / std::sqrt(3.0);
        for (int q = 0; q < 8; ++q) {
            double phi[8], gradient[8][3];
            for (int d = 0; d < 3; ++d)
                at[q][d] = (q >> d & 1) != 0 ? 1.0 - low : low;
            for (int i = 0; i < 8; ++i) {
                double factor[3];
                for (int d = 0; d < 3; ++d)
                    factor[d] = (i >> d & 1) != 0 ? at[q][d] : 1.0 - at[q][d];
                phi[i] = factor[0] * factor[1] * factor[2];
                for (int d = 0; d < 3; ++d)
                    gradient[i][d] = ((i >> d & 1) != 0 ? 1.0 : -1.0) / h * factor[(d + 1) % 3] * factor[(d + 2) % 3];
            }
            const double weight = h * h * h / 8.0;
            for (int i = 0; i < 8; ++i) {
                load[q][i] = weight * phi[i];
                for (int j = 0; j < 8; ++j)
                    stiffness[q][i][j] = weight * (gradient[i][0] * gradient[j][0] + gradient[i][1] * gradient[j][1] +
                                                   gradient[i][2] * gradient[j][2]);
            }
        }
    }
};

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

double kilobytesNow()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
}

/// Formulas and elements of all cells of a block, a batch at a time.
void addCells(const Block& b, const Task& task, dist::Assembly& system)
{
    const double h = 1.0 / static_cast<double>(b.cells);
    const Element element(h);
    qx::Formulas formulas({"x", "y", "z"});
    const qx::Formula kFormula = formulas.add(task.k);
    const qx::Formula fFormula = formulas.add(task.f);
    const qx::Program program = formulas.compile();

    std::vector<std::array<Index, 3>> cells;
    const auto flush = [&] {
        const std::size_t count = cells.size();
        std::vector<double> x, y, z, k(8 * count), f(8 * count);
        for (const auto& c : cells)
            for (const auto& gauss : element.at) {
                x.push_back(h * (static_cast<double>(c[0]) + gauss[0]));
                y.push_back(h * (static_cast<double>(c[1]) + gauss[1]));
                z.push_back(h * (static_cast<double>(c[2]) + gauss[2]));
            }
        qx::Points points(x.size());
        points.set("x", x).set("y", y).set("z", z);
        program.evaluate(points, {{kFormula, k}, {fFormula, f}}, {.requireFinite = true});

        std::vector<Index> rows, columns, at;
        std::vector<dist::Scalar> values, loads;
        rows.reserve(64 * count);
        columns.reserve(64 * count);
        values.reserve(64 * count);
        for (std::size_t c = 0; c < count; ++c) {
            std::array<Index, 8> node{};
            for (Index i = 0; i < 8; ++i)
                node[static_cast<std::size_t>(i)] =
                    b.numberOf(cells[c][0] + (i & 1), cells[c][1] + (i >> 1 & 1), cells[c][2] + (i >> 2 & 1));
            for (std::size_t i = 0; i < 8; ++i) {
                double load = 0.0;
                for (std::size_t q = 0; q < 8; ++q)
                    load += f[8 * c + q] * element.load[q][i];
                at.push_back(node[i]);
                loads.push_back(load);
                for (std::size_t j = 0; j < 8; ++j) {
                    double v = 0.0;
                    for (std::size_t q = 0; q < 8; ++q)
                        v += k[8 * c + q] * element.stiffness[q][i][j];
                    rows.push_back(node[i]);
                    columns.push_back(node[j]);
                    values.push_back(v);
                }
            }
        }
        system.add(std::move(rows), std::move(columns), values);
        system.addLoad(at, loads);
        cells.clear();
    };
    for (Index k = b.from[2]; k < b.to[2]; ++k)
        for (Index j = b.from[1]; j < b.to[1]; ++j)
            for (Index i = b.from[0]; i < b.to[0]; ++i) {
                cells.push_back({i, j, k});
                if (static_cast<Index>(cells.size()) == task.batch)
                    flush();
            }
    if (!cells.empty())
        flush();
}

std::vector<double> atNodes(const std::string& text, const Nodes& nodes)
{
    qx::Formulas formulas({"x", "y", "z"});
    const qx::Formula formula = formulas.add(text);
    std::vector<double> values(nodes.number.size());
    qx::Points points(values.size());
    points.set("x", nodes.x).set("y", nodes.y).set("z", nodes.z);
    formulas.compile().evaluate(points, formula, values);
    return values;
}

void run(const dist::Session& session, const Task& task)
{
    const bool first = session.rank() == 0;
    const double before = kilobytesNow();
    auto start = Clock::now();
    const Block block(session, task.cells);
    const Nodes nodes(block);
    dist::Conditions surface;
    std::vector<double> exact;
    session.together([&] {
        const std::vector<double> g = atNodes(task.g, nodes);
        for (std::size_t k = 0; k < nodes.owned; ++k)
            if (nodes.surface[k])
                surface.fix(nodes.number[k], g[k]);
        if (!task.exact.empty())
            exact = atNodes(task.exact, nodes);
    });
    const dist::Unknowns unknowns(session, nodes.number, nodes.owned, surface);
    const double made = secondsSince(start);

    start = Clock::now();
    dist::Assembly system(unknowns, {.reuse = task.reuse});
    session.together([&] { addCells(block, task, system); });
    const double elements = secondsSince(start);
    start = Clock::now();
    system.finish();
    const double added = secondsSince(start);
    const double assembled = kilobytesNow();

    start = Clock::now();
    dist::Solver solver(unknowns, {.kind = dist::Kind::Spd, .tolerance = 1e-10, .options = task.petsc});
    const dist::Solution s = solver.solve(system);
    const double solved = secondsSince(start);

    double most = 0.0;
    for (std::size_t k = 0; k < exact.size(); ++k)
        most = std::max(most, std::abs(s.values[k] - exact[k]));
    MPI_Allreduce(MPI_IN_PLACE, &most, 1, MPI_DOUBLE, MPI_MAX, session.comm());
    double memory[3] = {assembled - before, kilobytesNow() - before, before};
    MPI_Allreduce(MPI_IN_PLACE, memory, 3, MPI_DOUBLE, MPI_SUM, session.comm());
    if (!first)
        return;
    const auto free = static_cast<double>(unknowns.freeCount());
    std::printf("cells        %lld of %d ranks\n", static_cast<long long>(task.cells * task.cells * task.cells), session.size());
    std::printf("unknowns     %lld\n", static_cast<long long>(unknowns.freeCount()));
    std::printf("solution     %d iterations, relative residual %.1e\n", s.iterations, s.residual);
    if (!exact.empty())
        std::printf("error        %.3e at most\n", most);
    std::printf("memory       %.2f kB an unknown after assembly, %.2f at most; %.0f MB before\n", memory[0] / free,
                memory[1] / free, memory[2] / 1024.0);
    std::printf("seconds      mesh %.2f, formulas and elements %.2f, adding up %.2f, solution %.2f\n", made, elements, added, solved);
}

} // namespace

int main(int argc, char** argv)
{
    Task task;
    try {
        Options options("box_mpi", "CELLS", "Solves -div(k grad u) = f in a cube of CELLS^3 hexahedra, over MPI.");
        options.text("--k", "FORMULA", "conductivity, of x, y and z (1)", task.k);
        options.text("--source", "FORMULA", "f, of x, y and z", task.f);
        options.text("--fixed", "FORMULA", "u on the surface (0)", task.g);
        options.text("--exact", "FORMULA", "print the distance from it; empty: none", task.exact);
        options.text("--petsc", "OPTIONS", "PETSc's options for the solver", task.petsc);
        options.value("--batch", "N", "cells assembled at a time (4096)", [&](const std::string& v) { task.batch = wholeNumber(v, 1, 1 << 24); });
        options.flag("--reuse", "keep what a second assembly needs", task.reuse);
        const std::vector<std::string> words = options.read(argc, argv);
        if (options.helpWanted()) {
            std::cout << options.help();
            return 0;
        }
        if (words.size() != 1)
            throw UsageError("the number of cells along an edge is needed, see box_mpi --help");
        task.cells = wholeNumber(words.front(), 1, 100'000);
    } catch (const UsageError& e) {
        std::cerr << "box_mpi: " << e.what() << '\n';
        return 2;
    }
    const dist::Session session;
    try {
        run(session, task);
        return 0;
    } catch (const qxbase::Exception& e) {
        if (session.rank() == 0)
            std::cerr << "box_mpi: " << e.toString();
        return 1;
    }
}

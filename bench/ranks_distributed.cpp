// SPDX-License-Identifier: LicenseRef-qxkernel
// Sums over ranks and iterations, as ratios in one run: started by tools/bench through mpirun.
//
// usage: ranks_distributed [SIDE]      a square of SIDE x SIDE linear elements (two triangles each) in all, 800 if not said
#include "distributed.hpp"
#include "formulas.hpp"

#include <petscmat.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace qx::distributed;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 5;

/// Seconds of the slowest rank.
template <class Work>
double timed(const Session& session, const Work& work)
{
    MPI_Barrier(session.comm());
    const auto start = Clock::now();
    work();
    double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    MPI_Allreduce(MPI_IN_PLACE, &seconds, 1, MPI_DOUBLE, MPI_MAX, session.comm());
    return seconds;
}

/// A slice of rows of nodes of a square of linear triangles for the Laplacian, held at its edge.
struct Slice
{
    Slice(const Session& session, Index cells) : side(cells + 1)
    {
        const Index from = side * session.rank() / session.size();
        const Index to = side * (session.rank() + 1) / session.size();
        for (Index j = from; j < std::min(side, to + 1); ++j)
            for (Index i = 0; i < side; ++i)
                numbers.push_back(j * side + i);
        owned = static_cast<std::size_t>((to - from) * side);
        for (std::size_t k = 0; k < owned; ++k) {
            const Index i = numbers[k] % side;
            const Index j = numbers[k] / side;
            if (i == 0 || j == 0 || i == side - 1 || j == side - 1)
                edge.fix(numbers[k], 0.0);
        }
        for (Index j = from; j < std::min(to, side - 1); ++j)
            for (Index i = 0; i < side - 1; ++i) {
                const Index a = j * side + i;
                triangle(a, a + 1, a + side + 1);
                triangle(a + side + 1, a + side, a);
            }
    }

    /// A right angle at b.
    void triangle(Index a, Index b, Index c)
    {
        const Index node[3] = {a, b, c};
        constexpr double matrix[3][3] = {{0.5, -0.5, 0.0}, {-0.5, 1.0, -0.5}, {0.0, -0.5, 0.5}};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                rows.push_back(node[i]);
                columns.push_back(node[j]);
                values.push_back(matrix[i][j]);
            }
    }

    Index side;
    std::vector<Index> numbers;
    std::size_t owned;
    Conditions edge;
    std::vector<Index> rows, columns;
    std::vector<Scalar> values;
};

void row(const Session& session, const char* what, double ours, double peer, double goal)
{
    if (session.rank() == 0)
        std::printf("%-58s %9.3f s %9.3f s   %6.3f   goal %.2f%s\n", what, ours, peer, ours / peer, goal,
                    ours / peer <= goal ? "" : "   MISSED");
}

/// PETSc alone on the same triplets: its rows must be those that a rank owns, so slices without conditions are compared.
void assembly(const Session& session, Index cells)
{
    const Slice slice(session, cells);
    const Unknowns unknowns(session, slice.numbers, slice.owned);
    double first = 1e30, again = 1e30, petscFirst = 1e30, petscAgain = 1e30;
    for (int round = 0; round < kRounds; ++round) {
        Assembly system(unknowns);
        auto rows = slice.rows;
        auto columns = slice.columns;
        first = std::min(first, timed(session, [&] {
                             system.add(std::move(rows), std::move(columns), slice.values);
                             system.finish();
                         }));
        again = std::min(again, timed(session, [&] {
                             system.restart();
                             system.add(slice.values);
                             system.finish();
                         }));
        Mat peer = nullptr;
        auto peerRows = slice.rows;
        auto peerColumns = slice.columns;
        petscFirst = std::min(petscFirst, timed(session, [&] {
                                  MatCreate(session.comm(), &peer);
                                  MatSetSizes(peer, static_cast<PetscInt>(slice.owned), static_cast<PetscInt>(slice.owned), unknowns.count(),
                                              unknowns.count());
                                  MatSetType(peer, MATAIJ);
                                  MatSetPreallocationCOO(peer, static_cast<PetscCount>(slice.values.size()),
                                                         reinterpret_cast<PetscInt*>(peerRows.data()),
                                                         reinterpret_cast<PetscInt*>(peerColumns.data()));
                                  MatSetValuesCOO(peer, slice.values.data(), INSERT_VALUES);
                              }));
        petscAgain = std::min(petscAgain,
                              timed(session, [&] { MatSetValuesCOO(peer, slice.values.data(), INSERT_VALUES); }));
        MatAXPY(peer, -1.0, system.matrix(), UNKNOWN_NONZERO_PATTERN);
        PetscReal difference = 0.0;
        MatNorm(peer, NORM_FROBENIUS, &difference);
        MatDestroy(&peer);
        if (difference > 1e-10 && session.rank() == 0)
            std::printf("THE MATRICES DIFFER by %g\n", difference);
    }
    row(session, "assembly from triplets / PETSc's COO alone", first, petscFirst, 1.2);
    row(session, "second assembly, same pattern / the first", again, first, 0.1);
    row(session, "  (PETSc alone, second / first)", petscAgain, petscFirst, 1.0);
}

/// Iterations and seconds of conjugate gradients with multigrid as the problem grows.
void growth(const Session& session, Index most)
{
    double smallUnknowns = 0.0, smallSeconds = 0.0;
    int smallIterations = 0;
    for (const Index cells : {100, 316, 1000, 2000}) {
        if (cells > most)
            break;
        const Slice slice(session, cells);
        const Unknowns unknowns(session, slice.numbers, slice.owned, slice.edge);
        Assembly system(unknowns, {.reuse = false});
        system.add(slice.rows, slice.columns, slice.values);
        const std::vector<Index> own(slice.numbers.begin(), slice.numbers.begin() + static_cast<std::ptrdiff_t>(slice.owned));
        system.addLoad(own, std::vector<Scalar>(own.size(), 1.0));
        system.finish();
        Solution s;
        double seconds = 1e30;
        for (int round = 0; round < 2; ++round) {
            Solver solver(unknowns, {.kind = Kind::Spd, .tolerance = 1e-8, .direct = 0});
            seconds = std::min(seconds, timed(session, [&] { s = solver.solve(system); }));
        }
        const auto n = static_cast<double>(unknowns.freeCount());
        if (smallIterations == 0) {
            smallUnknowns = n;
            smallIterations = s.iterations;
            smallSeconds = seconds;
        }
        if (session.rank() == 0)
            std::printf("growth: %9.0f unknowns %3d iterations (%.2f times, goal 1.30) %8.2f s (exponent %.2f, goal 1.25)\n", n,
                        s.iterations, s.iterations / static_cast<double>(smallIterations), seconds,
                        n > smallUnknowns ? std::log(seconds / smallSeconds) / std::log(n / smallUnknowns) : 1.0);
    }
}

/// Formulas and elements: all of the points on one rank while the others wait, then a share on each.
void formulas(const Session& session)
{
    qx::Formulas f({"x", "y"});
    const qx::Formula formula = f.add("sin(x)*exp(-y^2)+sqrt(1+x^2)*cos(3*y)");
    const qx::Program program = f.compile();
    constexpr std::size_t all = 2'000'000;
    const auto evaluate = [&](std::size_t count) {
        std::vector<double> x(count), y(count), values(count);
        for (std::size_t k = 0; k < count; ++k) {
            x[k] = 1e-6 * static_cast<double>(k);
            y[k] = 1.0 - x[k];
        }
        qx::Points points(count);
        points.set("x", x).set("y", y);
        program.evaluate(points, formula, values, {.threads = 1});
    };
    double alone = 1e30, shared = 1e30;
    for (int round = 0; round < kRounds; ++round) {
        alone = std::min(alone, timed(session, [&] {
                             if (session.rank() == 0)
                                 evaluate(all);
                         }));
        shared = std::min(shared, timed(session, [&] { evaluate(all / static_cast<std::size_t>(session.size())); }));
    }
    const double goal = session.size() == 2 ? 1.0 / 1.7 : 1.0;
    row(session, "formulas on all ranks, one thread each / on one rank", shared, alone, goal);
}

} // namespace

int main(int argc, char** argv)
{
    const Session session;
    const Index cells = argc > 1 ? std::atol(argv[1]) : 800;
    if (session.rank() == 0)
        std::printf("distributed, %d ranks, fastest of %d rounds, the slowest rank%21s %11s %8s\n", session.size(), kRounds, "ours", "peer", "ratio");
    try {
        assembly(session, cells);
        formulas(session);
        growth(session, argc > 2 ? std::atol(argv[2]) : 1000);
    } catch (const qxbase::Exception& e) {
        if (session.rank() == 0)
            std::fprintf(stderr, "%s", e.toString().c_str());
        return 1;
    }
    return 0;
}

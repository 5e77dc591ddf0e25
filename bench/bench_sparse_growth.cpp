// SPDX-License-Identifier: LicenseRef-qxkernel
// Growth of the sparse operations with the size: time and peak memory of a problem against those of a tenth of it. Slopes are
// exponents of the number of entries; their limits stand in one table below.

#include "assemblypattern.hpp"
#include "harness.hpp"
#include "sparse_workloads.hpp"

#include <cmath>

using namespace qxbench;

namespace {

/// Five-point stencil of a square grid with about n points, each triplet twice.
Triplets grid(Index n)
{
    const long side = std::lround(std::sqrt(double(n)));
    Triplets once = stencil("grid", side, side, 1, [](long x, long y, long) { return x * x + y * y <= 1; });
    Triplets twice = once;
    for (Index k = 0; k < once.row.size(); ++k)
        twice.add(once.row[k], once.col[k], once.val[k]);
    return twice;
}

/// Operands of one size.
struct Problem
{
    explicit Problem(Index n) : list(grid(n)), A(assemble(list))
    {
        A.format(FormSortedDiag, true);
        B = transpose(A, Trans);
        pattern = AssemblyPattern(list.row, list.col, list.n, list.n);
        pattern.assemble(list.val, again);
        x = y = Matrix<1>(list.n, true);
        x = 1.0;
        y = 0.0;
    }

    Triplets list;
    Sparse A, B, again, result;
    AssemblyPattern pattern;
    Matrix<1> x, y;
};

/// One row a public operation. Limits leave room for the step from the caches to memory, which is no fault of the algorithm.
struct Operation
{
    const char* name;
    std::function<void(Problem&)> run;
    double timeSlope, memorySlope; ///< at most
};
const std::vector<Operation> operations = {
    {"assembly", [](Problem& p) { p.result = assemble(p.list); }, 1.2, 1.1},
    {"assembly again", [](Problem& p) { p.pattern.assemble(p.list.val, p.again); }, 1.3, 0.0},
    {"making a pattern", [](Problem& p) { p.pattern = AssemblyPattern(p.list.row, p.list.col, p.list.n, p.list.n); }, 1.2, 1.1},
    {"sum", [](Problem& p) { p.result = p.A + p.B; }, 1.3, 1.1},
    {"product", [](Problem& p) { p.result = p.A * p.B; }, 1.2, 1.1},
    {"transpose", [](Problem& p) { p.result = transpose(p.A, Trans); }, 1.3, 1.1},
    {"sorting", [](Problem& p) { p.result = p.A * p.B; p.result.format(FormSorted, false); }, 1.2, 1.1},
    {"product with a vector", [](Problem& p) { yPlusAMulx(p.y, p.A, p.x, NoTrans); }, 1.3, 0.0},
    {"sweep", [](Problem& p) { SORIt(p.A, p.y, p.x, 1.2, false); }, 1.3, 0.0},
};

void growthOf(const Operation& operation, Problem& small, Problem& middle, Problem& large)
{
    const auto run = [&](Problem& p) { withThreads(1, [&] { operation.run(p); }); };
    const auto entries = [](const Problem& p) { return double(p.A.getNnz()); };
    const auto compare = [&](Problem& p, Problem& tenth) {
        BENCH(std::string("growth/") + operation.name + "-" + std::to_string(p.A.getNnz()))
            .ours([&] { run(p); })
            .peer("a tenth of the size", [&] { run(tenth); })
            .items(entries(p), "entries")
            .atMost(std::pow(entries(p) / entries(tenth), operation.timeSlope));
    };
    compare(middle, small);
    compare(large, middle);
    if (operation.memorySlope == 0.0)
        return;
    const auto peak = [&](Problem& p) {
        p.result = Sparse();
        return peakMemory([&] { run(p); });
    };
    // What is checked, and shown, is the slope.
    BENCH(std::string("growth of peak memory/") + operation.name)
        .ours([&] { run(large); })
        .check([&] { return std::log(peak(large) / peak(middle)) / std::log(entries(large) / entries(middle)); },
               operation.memorySlope);
}

} // namespace

void qxbench::benchmarks()
{
    const Index largest = sized<Index>(1000000, 10000);
    Problem small(largest / 100), middle(largest / 10), large(largest);
    for (const Operation& operation : operations)
        growthOf(operation, small, middle, large);
}

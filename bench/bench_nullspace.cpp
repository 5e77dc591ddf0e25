// SPDX-License-Identifier: LicenseRef-qxkernel
// The sparse null space of periodic and hanging-node constraints, a tenth as many as there are unknowns, against a pass
// that copies the constraint matrix. The rate should be the same for every size.
#include "harness.hpp"
#include "qxnull.hpp"
#include "qxrun.hpp"

#include <string>

namespace {

/// For each constraint ten unknowns: every second one ties u_1 to u_6 (periodic pair), the others set u_1 to the mean of
/// u_2 and u_3 (hanging node); unknown 1 of a hanging node also pairs with the next ten's.
Sparse constraints(unsigned long count)
{
    std::vector<unsigned long> rows, cols;
    std::vector<double> values;
    const auto put = [&](unsigned long row, unsigned long column, double value) {
        rows.push_back(row);
        cols.push_back(column);
        values.push_back(value);
    };
    for (unsigned long k = 0; k < count; ++k) {
        const unsigned long first = 10 * k;
        put(first + 1, k, 1.0);
        if (k % 2 == 0) {
            put(first + 6, k, -1.0);
        } else {
            put(first + 2, k, -0.5);
            put(first + 3, k, -0.5);
            put(first - 10 + 6, k, k % 4 == 1 ? 0.25 : 0.0);
        }
    }
    Sparse N;
    N.triplet2sparse(rows, cols, values, 10 * count, count);
    return N;
}

void measure(unsigned long count)
{
    Sparse N = constraints(count);
    N.format(FormSorted, true);
    qxutil::RunInfo run;
    Sparse Null, Compl, Range, unused;
    std::vector<unsigned long> rows(N.getNnz());
    std::vector<double> values(N.getNnz());
    BENCH("null space/" + std::to_string(count) + " constraints")
        .ours([&] {
            qxNull(run, N, Sparse(), Sparse(), true, Null, true, Compl, true, Range, unused, false, unused, false,
                   unused, false, NullFunSparse, false);
        })
        .peer("one pass over the entries",
              [&] {
                  std::copy_n(N.getRow(), rows.size(), rows.begin());
                  std::copy_n(N.getDoubleVal(), values.size(), values.begin());
                  qxbench::keep(values.back());
              })
        .check(
            [&] {
                // |N^H Null| by the product of the library, and the sizes.
                const Sparse P = transpose(N, ConjTrans) * Null;
                double d = Null.getN() + Compl.getN() == N.getM() && Compl.getN() == count ? 0.0 : 1.0;
                for (unsigned long k = 0; k < P.getNnz(); ++k)
                    d = std::max(d, std::abs(P.getDoubleVal()[k]));
                return d;
            },
            1e-12)
        .items(double(N.getNnz()), "entries");
}

} // namespace

void qxbench::benchmarks()
{
    for (const unsigned long count : {1000ul, 10000ul, 100000ul, 1000000ul})
        if (!quick() || count <= 1000)
            measure(count);
}

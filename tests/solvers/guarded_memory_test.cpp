// SPDX-License-Identifier: LicenseRef-qxkernel
// Complex factorisations and null spaces on memory that ends at an unmapped page.

#include "qxnull.hpp"
#include "qxrun.hpp"
#include "sparse_values.hpp"
#include "support/guard_pages.hpp"
#include "umfpack.hpp"

#include <cstdlib>

namespace {

using namespace solverstest;

TEST(GuardedMemory, ComplexFactorisationsAndSolutionsReadNothingBehindTheirArrays)
{
    qxutil::RunInfo run;
    Umfpack solver(run);
    const qxtest::GuardPages guard;
    void* volatile probe = std::malloc(1); // keeps the call
    EXPECT_TRUE(qxtest::isGuarded(probe));
    std::free(probe);
    const auto solveBoth = [&](Sparse A) {
        const unsigned long n = A.getN();
        for (const bool transposed : {false, true}) {
            solver.init(A, false, transposed, false, true);
            Matrix<1> x;
            EXPECT_EQ(solver.solve(complexVector(std::vector<cplx>(n, cplx(1, 2))), x), 1);
        }
        Sparse L, U, P, Q, R;
        solver.getLuFactorization(L, U, P, Q, R);
    };
    for (unsigned long n = 1; n <= 24; ++n) { // dense fronts of every size
        Dense D = randomDense(n, n, unsigned(n), true);
        for (unsigned long i = 0; i < n; ++i)
            D[i][i] += 4.0;
        solveBoth(sparseOf(D, true));
    }
    for (const unsigned long edge : {5ul, 6ul, 14ul})
        solveBoth(laplacian(edge, 2, cplx(0, 1)));
    solveBoth(laplacian(6, 3, cplx(0, 1)));
    solver.clear();
}

TEST(GuardedMemory, ComplexNullSpacesReadNothingBehindTheirArrays)
{
    qxutil::RunInfo run;
    const qxtest::GuardPages guard;
    for (const NullFun method : {NullFunSparse, NullFunOrthonormal})
        for (unsigned long rows = 2; rows <= 15; ++rows)
            for (unsigned long constraints = 1; constraints < rows; constraints += 2) {
                const Sparse N = sparseOf(randomDense(rows, constraints, unsigned(rows), true), true);
                Sparse Null, Compl, Range, NullF, ComplF, RangeF;
                qxNull(run, N, Sparse(), N, true, Null, true, Compl, true, Range, NullF, true, ComplF, true, RangeF, true,
                       method, true);
                EXPECT_EQ(Null.getN(), rows - constraints);
            }
}

} // namespace

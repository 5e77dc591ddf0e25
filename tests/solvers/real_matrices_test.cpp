// SPDX-License-Identifier: LicenseRef-qxkernel
// Matrices from applications. They are not part of the project: the tests look for the folder `matrices` in $QX_DATA, or
// in ../shared/data beside the project, and are skipped without it.
#include "matrixmarket.hpp"
#include "qxnull.hpp"
#include "qxrun.hpp"
#include "sparse_values.hpp"
#include "umfpack.hpp"

#include <cstdlib>
#include <filesystem>

namespace {

using namespace solverstest;

std::filesystem::path folder()
{
    const char* data = std::getenv("QX_DATA");
    const std::filesystem::path root = data != nullptr ? data : QX_PROJECT_ROOT "/../shared/data";
    return root / "matrices";
}

double oneNorm(const Dense& A)
{
    double norm = 0.0;
    for (std::size_t j = 0; j < A[0].size(); ++j) {
        double sum = 0.0;
        for (const auto& row : A)
            sum += std::abs(row[j]);
        norm = std::max(norm, sum);
    }
    return norm;
}

struct Known
{
    const char* name;
    double oneNorm; ///< by NumPy
};

class RealMatrices : public testing::TestWithParam<Known>
{
};
INSTANTIATE_TEST_SUITE_P(Files, RealMatrices,
                         testing::Values(Known{"b1_ss", 2}, Known{"bfwa62", 11.8636136}, Known{"fs_183_1", 1703177421.01},
                                         Known{"494_bus", 40015.422479}, Known{"west0479", 382221.51},
                                         Known{"young1c", 474.46}),
                         [](const auto& file) { return "Matrix_" + std::string(file.param.name); });

TEST_P(RealMatrices, AreSolvedToASmallBackwardError)
{
    const std::filesystem::path file = folder() / (std::string(GetParam().name) + ".mtx");
    if (!std::filesystem::exists(file))
        GTEST_SKIP() << "no " << file;
    Sparse A = readMatrixMarket(file.string(), MatrixMarketOptions{.expand = false});
    ASSERT_NEAR(oneNorm(denseOf(A)) / GetParam().oneNorm, 1.0, 1e-9);
    qxutil::RunInfo run;
    Umfpack solver(run);
    Matrix<1> ones(A.getM(), true), x;
    ones = cplx(1.0);

    for (const bool transposed : {false, true}) {
        const Dense D = transposed ? solverstest::transposed(denseOf(A)) : denseOf(A);
        Matrix<1> b(A.getM(), A.isReal());
        for (unsigned long i = 0; i < D.size(); ++i) {
            cplx sum = 0.0;
            for (const cplx& v : D[i])
                sum += v;
            b.set(i, sum);
        }
        solver.init(A, false, transposed, false, true);
        solver.solve(b, x);

        // |A x - b| / (|A| |x| + |b|) in the maximum norm.
        double residual = 0.0, rowNorm = 0.0, xNorm = 0.0, bNorm = 0.0;
        for (unsigned long i = 0; i < D.size(); ++i) {
            cplx r = -b[i];
            double sum = 0.0;
            for (unsigned long j = 0; j < D.size(); ++j) {
                r += D[i][j] * x[j];
                sum += std::abs(D[i][j]);
            }
            residual = std::max(residual, std::abs(r));
            rowNorm = std::max(rowNorm, sum);
            xNorm = std::max(xNorm, std::abs(x[i]));
            bNorm = std::max(bNorm, std::abs(b[i]));
        }
        EXPECT_LE(residual, 1e-15 * (rowNorm * xNorm + bNorm)) << (transposed ? "transposed" : "");
        double res = 0.0, err = 0.0;
        EXPECT_EQ(solver.checkTolerances(x, b, 1e-9, 1e-3, res, err), 1) << res << " " << err;
    }
}

TEST(RealConstraints, ARectangularPatternHasBothNullSpaces)
{
    const std::filesystem::path file = folder() / "ash219.mtx";
    if (!std::filesystem::exists(file))
        GTEST_SKIP() << "no " << file;
    const Sparse N = readMatrixMarket(file.string(), MatrixMarketOptions{.expand = false}); // 219 unknowns, 85 constraints, rank 85
    const Dense D = denseOf(N);
    for (const NullFun method : {NullFunSparse, NullFunOrthonormal}) {
        qxutil::RunInfo run;
        Sparse Null, Compl, Range, unused;
        qxNull(run, N, Sparse(), Sparse(), true, Null, true, Compl, true, Range, unused, false, unused, false, unused,
               false, method, false);

        EXPECT_EQ(Null.getN(), 219u - 85u);
        EXPECT_EQ(Compl.getN(), 85u);
        EXPECT_LE(largest(times(solverstest::transposed(D, true), denseOf(Null))), 1e-12);
        EXPECT_TRUE(allNear(denseOf(Range), times(solverstest::transposed(denseOf(Compl), true), D), 1e-12));
    }
}

} // namespace

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

TEST(MatrixMarketExample, PrintsFactsMultipliesRelaxesAndDrawsThePattern)
{
    const ScratchDirectory directory;
    const std::string picture = directory.path("pattern.svg");

    const Outcome o = run(QX_MATRIX_MARKET, {QX_EXAMPLE_DATA "/plate.mtx", picture});

    // Norms, |A 1| and residuals from a dense symmetric Gauss-Seidel iteration in Python.
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "Sparse 108-by-108 matrix. Nnz = 498.\n"
                     "real, symmetric\n"
                     "norms: 1 8, infinity 8, Frobenius 46.0217\n"
                     "|A 1| = 7.07107\n"
                     "after   1 symmetric sweeps |r| / |b| = 3.01e-01\n"
                     "after  10 symmetric sweeps |r| / |b| = 4.37e-02\n"
                     "after 100 symmetric sweeps |r| / |b| = 5.35e-08\n"
                     "pattern: " + picture + "\n");
    const std::string svg = ScratchDirectory::read(picture);
    EXPECT_THAT(svg, testing::StartsWith("<svg"));
    std::size_t cells = 0;
    for (std::size_t at = svg.find("width='1'"); at != svg.npos; at = svg.find("width='1'", at + 1))
        ++cells;
    EXPECT_EQ(cells, 498u); // 108 cells a side: one entry each
}

TEST(MatrixMarketExample, NamesWhatIsWrongWithAFile)
{
    const ScratchDirectory directory;
    const std::string bad = directory.file("bad.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 1\n1 3 5\n");

    const Outcome o = run(QX_MATRIX_MARKET, {bad});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, testing::HasSubstr("Invalid_matrix_file"));
    EXPECT_THAT(o.err, testing::HasSubstr("column index is out of range"));
    EXPECT_EQ(run(QX_MATRIX_MARKET, {}).status, 2);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// A library built without UMFPACK (QX_WITH_UMFPACK=OFF): the driver is there and says why it cannot work.

#include "constrained.hpp"
#include "qxrun.hpp"
#include "sparse_values.hpp"
#include "umfpack.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// Identifier and "Reason" of the failure.
template <class Work>
std::pair<std::string, std::string> storyOf(const Work& work)
{
    const qxbase::Exception e = qxtest::failureOf(work);
    if (e.size() != 0)
        for (const auto& [key, value] : e.getArgs(0))
            if (key == "Reason")
                return {e.getId(), value};
    return {e.getId(), ""};
}

const std::pair kWanted(std::string("Internal_error_in_UMFPACK"),
                        std::string("This library was built without UMFPACK (QX_WITH_UMFPACK=OFF)"));

} // namespace

TEST(WithoutUmfpack, InitRaisesAndLeavesTheMatrix)
{
    qxutil::RunInfo run;
    Umfpack solver(run);
    Sparse A = solverstest::sparseOf({{3, 0}, {0, 3}});

    EXPECT_EQ(storyOf([&] { solver.init(A, true, false, false, true); }), kWanted);

    EXPECT_EQ(A.getNnz(), 2u);
}

TEST(WithoutUmfpack, WhatNeedsFactorsRaises)
{
    qxutil::RunInfo run;
    Umfpack solver(run, 0.0, 0.1, 0.7);
    solver.setTranspose(true);
    solver.clear();
    Matrix<1> b(2, true), x;
    Array<double, 1> rb(2), rx;
    Array<std::complex<double>, 1> zb(2), zx;
    double res = 0, err = 0;
    Sparse L, U, P, Q, R;

    EXPECT_EQ(storyOf([&] { solver.solve(b, x); }), kWanted);
    EXPECT_EQ(storyOf([&] { solver.solve(rb, rx); }), kWanted);
    EXPECT_EQ(storyOf([&] { solver.solve(zb, zx); }), kWanted);
    EXPECT_EQ(storyOf([&] { solver.checkTolerances(b, b, 1, 1, res, err); }), kWanted);
    EXPECT_EQ(storyOf([&] { solver.getLuFactorization(L, U, P, Q, R); }), kWanted);
}

TEST(WithoutUmfpack, AFactorSaysSoToo)
{
    const Sparse A = solverstest::sparseOf({{3, 0}, {0, 3}});

    EXPECT_EQ(storyOf([&] { qx::Factor{A}; }), kWanted);
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// A value at a point has the same bits whatever other points are evaluated with it.

#include "random_formulas.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

using namespace qxtest;

namespace {

constexpr unsigned valuesOnly = EvalValues | EvalIgnoreElementErrors;

bool sameBits(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

/// The values of a tree over x and y, in blocks of some size.
std::vector<cplx> inBlocks(EvalTree& tree, const HostPtr& host, const std::vector<double>& x, const std::vector<double>& y,
                           std::size_t size)
{
    std::vector<cplx> all;
    for (std::size_t begin = 0; begin < x.size(); begin += size) {
        const std::size_t end = std::min(begin + size, x.size());
        const auto part = [&](const std::vector<double>& v) {
            std::vector<double> some(v.begin() + static_cast<long>(begin), v.begin() + static_cast<long>(end));
            if (some.size() == 1)
                some.push_back(some[0]); // the host makes a scalar of one number
            return some;
        };
        host->reals = {{"x", part(x)}, {"y", part(y)}};
        const ValRepPtr value = tree.eval(host, makeCache(), valuesOnly);
        if (value->isNaN()) {
            all.resize(all.size() + end - begin, cplx(std::nan(""), std::nan("")));
            continue;
        }
        const auto read = value->getComplexReader();
        for (std::size_t i = begin; i < end; ++i)
            all.push_back((*read)(static_cast<int>(i - begin), 0));
    }
    return all;
}

} // namespace

TEST(SameBits, OfRandomFormulasInBlocksOfAnySize)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> wide(-2.5, 2.5);
    std::vector<double> x, y;
    for (int i = 0; i < 120; ++i) {
        x.push_back(i % 10 == 0 ? 0.0 : i % 10 == 1 ? 4.0 : wide(random));
        y.push_back(i % 15 == 0 ? 1.0 : wide(random));
    }
    RandomFormulas formulas(2026);
    int compared = 0;
    for (int k = 0; k < 2000; ++k) {
        const std::string text = formulas(1 + k % 4);
        const HostPtr host = makeHost();
        const EvalTreePtr tree = treeOf(text);
        const std::vector<cplx> whole = inBlocks(*tree, host, x, y, x.size());
        for (const std::size_t size : {1u, 7u, 64u}) {
            const std::vector<cplx> parts = inBlocks(*tree, host, x, y, size);
            for (std::size_t i = 0; i < x.size(); ++i, ++compared)
                ASSERT_TRUE(sameBits(parts[i].real(), whole[i].real()) && sameBits(parts[i].imag(), whole[i].imag()))
                    << text << " at x = " << x[i] << ", y = " << y[i] << " in blocks of " << size << ": " << parts[i]
                    << ", in one of " << x.size() << ": " << whole[i];
        }
    }
    EXPECT_EQ(compared, 2000 * 3 * 120);
}

TEST(SameBits, OfAQuotientByANumberWhereAnotherPointTurnsComplex)
{
    for (const char* text : {"sqrt(x)/3", "sqrt(x)/7", "sqrt(x)/(-0.3)", "sqrt(x)/0"}) {
        const HostPtr host = makeHost();
        const EvalTreePtr tree = treeOf(text);
        host->reals["x"] = {4.0, 9.0};
        const double alone = (*tree->eval(host, makeCache(), valuesOnly)->getComplexReader())(0, 0).real();
        host->reals["x"] = {4.0, -1.0};
        const cplx beside = (*tree->eval(host, makeCache(), valuesOnly)->getComplexReader())(0, 0);
        EXPECT_TRUE(sameBits(alone, beside.real())) << text;
        EXPECT_TRUE(sameBits(beside.imag(), 0.0)) << text;
    }
}

TEST(SameBits, APointOnTheAxisHasNoSignedZeroForAnImaginaryPart)
{
    for (const char* text : {"-sqrt(x)", "conj(sqrt(x))", "conj(-sqrt(x))", "1.1-sqrt(x)^(y-0)", "(-2)*sqrt(x)", "sqrt(x)*(-y)",
                             "(-sqrt(x))*(-sqrt(x))", "sqrt(x)-sqrt(x)", "-sqrt(x)-conj(sqrt(x))"}) {
        const HostPtr host = makeHost();
        host->reals = {{"x", {4.0, -1.0}}, {"y", {2.0, 2.0}}};
        const cplx z = (*treeOf(text)->eval(host, makeCache(), valuesOnly)->getComplexReader())(0, 0);
        EXPECT_TRUE(sameBits(z.imag(), 0.0)) << text << ' ' << z;
    }
}

TEST(SameBits, BranchesAreThoseOfThePointAlone)
{
    for (const char* text : {"(-sqrt(x))^0.5", "arg(-sqrt(x))", "arg(conj(-sqrt(x)))", "atan2(-sqrt(x)*0,-sqrt(x))", "log(-sqrt(x))",
                             "sqrt(-sqrt(x))", "conj(-sqrt(x))^0.5", "acosh(-sqrt(x))"}) {
        const HostPtr host = makeHost();
        const EvalTreePtr tree = treeOf(text);
        host->reals["x"] = {4.0, 9.0};
        const cplx alone = (*tree->eval(host, makeCache(), valuesOnly)->getComplexReader())(0, 0);
        host->reals["x"] = {4.0, -1.0};
        const cplx beside = (*tree->eval(host, makeCache(), valuesOnly)->getComplexReader())(0, 0);
        EXPECT_TRUE(sameBits(alone.real(), beside.real()) && sameBits(alone.imag(), beside.imag()))
            << text << ' ' << alone << ' ' << beside;
    }
}

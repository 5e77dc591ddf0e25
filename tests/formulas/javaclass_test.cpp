// SPDX-License-Identifier: LicenseRef-qxkernel
#include "formulas.hpp"

#include "exprcomp.hpp"
#include "support/failure.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

namespace {

using qxtest::idOf;

TEST(FormulasAsJavaClass, TheCompilersInterpreterGivesValuesAndDerivatives)
{
    qx::Formulas f({"x", "a"});
    f.define("r", "a*x+1");
    const qx::Formula q = f.add("r^2*sin(x)");
    const qx::Program program = f.compile();
    ExprComp compiler;

    const std::vector<std::string> by{"x"};
    const std::vector<std::string> names = program.feed(compiler, {&q, 1}, by);
    std::vector<unsigned char> bytes;
    compiler.compile("Q", "eval", bytes, false);
    std::vector<double> out;
    compiler.eval({0.5, 2.0}, out);

    EXPECT_EQ(names, (std::vector<std::string>{"r^2*sin(x)", "d(r^2*sin(x),x)"}));
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NEAR(out[0], 4 * std::sin(0.5), 1e-15); // r = 2
    EXPECT_NEAR(out[1], 2 * 2 * 2 * std::sin(0.5) + 4 * std::cos(0.5), 1e-14);
    EXPECT_EQ(bytes[0], 0xca); // a class file
}

TEST(FormulasAsJavaClass, RefusesWhatCompiledCodeDoesNotKnow)
{
    qx::Formulas f({"x"});
    f.function("mine", {.parameters = {"t"},
                        .real = [](qx::Arguments<double> args, std::span<double> out) {
                            std::copy(args[0].begin(), args[0].end(), out.begin());
                        }});
    const qx::Formula q = f.add("mine(x)");
    const qx::Program program = f.compile();
    const std::vector<std::string> nobody{"nobody"};

    ExprComp first, second, third;

    EXPECT_EQ(idOf([&] { program.feed(first, {&q, 1}); }), "Cannot create definitions from mine");
    EXPECT_EQ(idOf([&] { program.feed(second, {&q, 1}, nobody); }), "Cannot create definitions from mine");
    const qx::Formula none;
    EXPECT_EQ(idOf([&] { program.feed(third, {&none, 1}); }), "Unknown_formula");
}

} // namespace

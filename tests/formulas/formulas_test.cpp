// SPDX-License-Identifier: LicenseRef-qxkernel
// Building and compiling: names, syntax, circles.

#include "formulas.hpp"

#include "formulas/points.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <cmath>
#include <gtest/gtest.h>

using namespace qxtest;

namespace {

/// The value of a formula of the object at x = 2.
double valueAtTwo(qx::Formulas& f, const std::string& expression)
{
    const qx::Formula formula = f.add(expression);
    double out = 0;
    qx::Points p(1);
    p.set("x", 2.0);
    f.compile().evaluate(p, formula, std::span(&out, 1));
    return out;
}

} // namespace

TEST(Formulas, EvaluatesADefinitionGivenAfterItsUse)
{
    qx::Formulas f({"x"});
    f.define("a", "2*b").define("b", "x+1");

    EXPECT_EQ(valueAtTwo(f, "a^2"), 36.0);
}

TEST(Formulas, KnowsPiAndTheImaginaryUnit)
{
    qx::Formulas f({"x"});

    EXPECT_EQ(valueAtTwo(f, "x*pi"), 2 * M_PI);
    EXPECT_EQ(valueAtTwo(f, "i*i*x"), -2.0);
}

TEST(Formulas, LetsAVariableAndADefinitionTakeTheNamesOfConstants)
{
    qx::Formulas f({"x", "i"});
    f.define("pi", "3");
    const qx::Formula sum = f.add("i+pi");
    double out = 0;
    qx::Points p(1);
    p.set("i", 7.0);

    f.compile().evaluate(p, sum, std::span(&out, 1));

    EXPECT_EQ(out, 10.0);
}

TEST(Formulas, RefusesNamesThatNoFormulaCanContain)
{
    qx::Formulas f({"x"});

    EXPECT_EQ(idOf([] { qx::Formulas g({"x y"}); }), "Invalid_name");
    EXPECT_EQ(idOf([&] { f.define("", "1"); }), "Invalid_name");
    EXPECT_EQ(idOf([&] { f.function("1f", {}); }), "Invalid_name");
}

TEST(Formulas, RefusesANameThatIsInUse)
{
    qx::Formulas f({"x"});
    f.define("a", "1");

    EXPECT_EQ(idOf([] { qx::Formulas g({"x", "x"}); }), "Name_in_use");
    EXPECT_EQ(idOf([&] { f.define("x", "1"); }), "Name_in_use");
    EXPECT_EQ(idOf([&] { f.define("a", "2"); }), "Name_in_use");
    EXPECT_EQ(valueAtTwo(f, "a"), 1.0); // as it was
}

TEST(Formulas, LetsAFunctionAndAVariableHaveOneName)
{
    qx::Formulas f({"x"});
    f.define("sin", "x/2");

    EXPECT_EQ(valueAtTwo(f, "sin+sin(0)"), 1.0);
}

TEST(Formulas, FindsSyntaxErrorsAtOnceAndStaysAsItWas)
{
    qx::Formulas f({"x"});

    EXPECT_EQ(idOf([&] { f.add("x+"); }), "Syntax_error_in_expression");
    EXPECT_EQ(idOf([&] { f.define("a", ")"); }), "Syntax_error_in_expression");
    EXPECT_EQ(valueAtTwo(f.define("a", "1"), "a"), 1.0);
}

TEST(Formulas, NamesTheFormulaWithAnUnknownNameAndTheNearestKnownOne)
{
    qx::Formulas f({"pressure"});
    f.add("2*presure");

    const qxbase::Exception e = failureOf([&] { f.compile(); });

    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e.getId(0), "Unknown_variable_name");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Name", "presure"}, {"Nearest", "pressure"}}));
    EXPECT_EQ(e.getId(1), "In_formula");
    EXPECT_EQ(e.getArgs(1), (qxbase::ExceptionArgs{{"Expression", "2*presure"}}));
}

TEST(Formulas, NamesTheDefinitionWithAnUnknownName)
{
    qx::Formulas f({"x"});
    f.define("a", "b+1").add("a");

    const qxbase::Exception e = failureOf([&] { f.compile(); });

    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e.getId(0), "Unknown_variable_name");
    EXPECT_EQ(e.getId(1), "In_definition");
    EXPECT_EQ(e.getArgs(1), (qxbase::ExceptionArgs{{"Name", "a"}, {"Expression", "b+1"}}));
}

TEST(Formulas, NamesUnknownFunctionsAndWrongCountsOfArguments)
{
    qx::Formulas unknown({"x"}), count({"x"});
    unknown.add("sqr(x)");
    count.add("atan2(x)");

    const qxbase::Exception a = failureOf([&] { unknown.compile(); });
    const qxbase::Exception b = failureOf([&] { count.compile(); });

    EXPECT_EQ(a.getId(), "Unknown_function_name");
    EXPECT_EQ(a.getArgs(0), (qxbase::ExceptionArgs{{"Name", "sqr"}, {"Nearest", "sqrt"}}));
    EXPECT_EQ(b.getId(), "Wrong_number_of_function_arguments");
    EXPECT_EQ(b.getArgs(0), (qxbase::ExceptionArgs{{"Name", "atan2"}, {"Expected", "2"}, {"Found", "1"}}));
}

TEST(Formulas, FindsTheUnknownNameInADerivativeOfAFormula)
{
    qx::Formulas f({"x"});
    f.add("d(x*q,x)"); // q itself

    EXPECT_EQ(idOf([&] { f.compile(); }), "Unknown_variable_name");
}

TEST(Formulas, TellsACircleOfDefinitionsOnce)
{
    qx::Formulas f({"x"});
    f.define("start", "a").define("a", "b+1").define("b", "c*x").define("c", "a");

    const qxbase::Exception e = failureOf([&] { f.compile(); });

    EXPECT_EQ(e.getId(), "circvar");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"var", "a"}, {"Circle", "a -> b -> c -> a"}}));
}

TEST(Formulas, TellsADefinitionByItself)
{
    qx::Formulas f({"x"});
    f.define("a", "a+1");

    EXPECT_EQ(failureOf([&] { f.compile(); }).getArgs(0), (qxbase::ExceptionArgs{{"var", "a"}, {"Circle", "a -> a"}}));
}

TEST(Formulas, TakesTheSameDefinitionOnManyRoads)
{
    qx::Formulas f({"x"});
    f.define("d0", "x");
    for (int k = 1; k < 60; ++k) // 2^59 roads to d0
        f.define("d" + std::to_string(k), "(d" + std::to_string(k - 1) + "+d" + std::to_string(k - 1) + ")/2");

    EXPECT_EQ(valueAtTwo(f, "d59"), 2.0);
}

TEST(Formulas, CanBeExtendedAndCompiledAgainWhileEarlierProgramsStay)
{
    qx::Formulas f({"x"});
    const qx::Formula first = f.add("x+1");
    const qx::Program before = f.compile();
    const qx::Formula second = f.define("a", "x^2").add("a+1");
    const qx::Program after = f.compile();
    double one = 0, two = 0;
    qx::Points p(1);
    p.set("x", 3.0);

    after.evaluate(p, {{first, std::span(&one, 1)}, {second, std::span(&two, 1)}});

    EXPECT_EQ(one, 4.0);
    EXPECT_EQ(two, 10.0);
    EXPECT_EQ(idOf([&] { before.evaluate(p, second, std::span(&two, 1)); }), "Unknown_formula");
}

TEST(Formulas, LivesOnInItsPrograms)
{
    std::vector<double> x = ramp(5, 0, 1), out(5);
    qx::Points p(5);
    p.set("x", x);
    qx::Formula formula;
    const qx::Program program = [&] {
        qx::Formulas f({"x"});
        f.define("a", "x*x");
        formula = f.add("a");
        return f.compile();
    }();

    program.evaluate(p, formula, out);

    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(out[i], x[i] * x[i]);
}

TEST(Formulas, LeaksNothingAndStaysUsableWhenMemoryFails)
{
    qx::Formulas f({"x"});
    f.define("a", "x+1").define("b", "sin(a)*a").function("twice", {.parameters = {"t"},
                                                                      .real = [](auto, auto) {},
                                                                      .derivatives = {"2"}});
    f.add("b^2+d(b,x)");
    f.compile(); // tables with static storage are made

    long refused = 0;
    failEveryAllocation([&] { f.compile(); }, [&](const FaultRun& run) {
        EXPECT_FALSE(run.badAlloc) << run.n;
        if (!run.id.empty()) { // the engine does without some of its buffers
            EXPECT_EQ(run.id, "Out_of_memory_compiling_formulas") << run.n;
            ++refused;
        }
        EXPECT_EQ(run.leaked, 0) << run.n;
    });

    EXPECT_GT(refused, 100);
    EXPECT_EQ(valueAtTwo(f, "a"), 3.0);
}

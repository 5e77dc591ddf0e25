// SPDX-License-Identifier: LicenseRef-qxkernel
#include "probe.hpp"

#include "random_list.hpp"
#include "support/alloc_fault.hpp"

#include "qxmathfun.hpp"
#include "qxnumber.hpp"

#include <bit>
#include <cmath>
#include <gmock/gmock.h>

using namespace qxtest;

namespace {

const double notANumber = qxGetNaN(), inf = qxGetInf();

std::string idOfFunction(const std::string& name, const std::vector<double>& args)
{
    return idOf([&] { interpretedFunction(name, args); });
}

double y1(const std::string& name, double a) { return interpretedFunction(name, {a}); }
double y2(const std::string& name, double a, double b) { return interpretedFunction(name, {a, b}); }

} // namespace

TEST(ExprCompEval, ElementaryFunctionsHaveTheBitsOfQxmath)
{
    using F = double (*)(double);
    const std::vector<std::pair<std::string, F>> functions{
        {"exp", qxmath::exp}, {"sin", qxmath::sin}, {"cos", qxmath::cos}, {"tan", qxmath::tan}, {"atan", qxmath::atan},
        {"sinh", qxmath::sinh}, {"cosh", qxmath::cosh}, {"tanh", qxmath::tanh}, {"log", qxmath::logDouble},
        {"log10", qxmath::log10Double}, {"log2", qxmath::log2Double}, {"acos", qxmath::acosDouble},
        {"asin", qxmath::asinDouble}, {"sqrt", qxmath::sqrtDouble}, {"abs", std::fabs}, {"floor", std::floor},
        {"ceil", std::ceil}};

    for (const auto& [name, f] : functions)
        for (const double x : {0.0, 0.1, 0.5, 0.75, 1.0}) {
            EXPECT_EQ(std::bit_cast<long>(y1(name, x)), std::bit_cast<long>(f(x))) << name << ' ' << x;
        }
    EXPECT_EQ(y2("atan2", -1, -2), qxmath::atan2(-1, -2));
    for (const auto& [name, f] : std::vector<std::pair<std::string, F>>{
             {"sec", qxmath::cos}, {"csc", qxmath::sin}, {"cot", qxmath::tan}, {"sech", qxmath::cosh},
             {"csch", qxmath::sinh}, {"coth", qxmath::tanh}})
        EXPECT_EQ(y1(name, 0.7), 1 / f(0.7)) << name;
}

TEST(ExprCompEval, TakesListsThatNoClassCanHold)
{
    // x + 1.5 + 2.5 + ... with more constants than a class has room for
    constexpr int terms = 70000;
    const auto fill = [](ExprComp& comp) {
        comp.addInput(0);
        int sum = 0, next = 1;
        for (int i = 1; i <= terms; ++i) {
            comp.addDef(next, i + 0.5);
            comp.addDef(next + 1, ExprComp::Plus, sum, next);
            sum = next + 1;
            next += 2;
        }
        comp.addOutput(sum);
    };
    ExprComp native, written;
    fill(native);
    fill(written);
    std::vector<unsigned char> bytes;
    std::vector<double> out;

    native.compile();
    native.eval({0.25}, out);

    EXPECT_EQ(out, std::vector<double>{0.25 + 0.5 * terms + 0.5 * terms * (terms + 1.0)});
    EXPECT_EQ(idOf([&] { written.compile("T", "f", bytes, false); }), "Compilation failed: Too many different constants.");
    EXPECT_EQ(idOf([&] { native.compile(); }), "QUORIX_assertion_failure") << "one object compiles once";
}

TEST(ExprCompEval, ArithmeticIsUnchecked)
{
    EXPECT_EQ(y2("/", 1, 0), inf);
    EXPECT_TRUE(std::isnan(y2("/", 0, 0)));
    EXPECT_EQ(y2("-", 1, 3), -2);
    EXPECT_EQ(y2("*", 1e300, 1e300), inf);
    EXPECT_EQ(y1("U-", 2), -2);
    EXPECT_EQ(y1("U+", 2), 2);
    EXPECT_EQ(y1("real", 2), 2);
    EXPECT_EQ(y1("conj", 2), 2);
    EXPECT_EQ(y1("identity", 2), 2);
    EXPECT_EQ(y1("imag", 2), 0);
}

TEST(ExprCompEval, DomainFailuresHaveTheirIdentifiers)
{
    EXPECT_EQ(idOfFunction("sqrt", {-1}), "Sqrt_of_negative");
    EXPECT_EQ(idOfFunction("log", {-1}), "Log_of_negative");
    EXPECT_EQ(idOfFunction("log10", {-1}), "Log_of_negative");
    EXPECT_EQ(idOfFunction("log2", {-1e-300}), "Log_of_negative");
    EXPECT_EQ(idOfFunction("acos", {1.0000000000000002}), "Real_argument_out_of_range");
    EXPECT_EQ(idOfFunction("asin", {-2}), "Real_argument_out_of_range");
    EXPECT_EQ(idOfFunction("^", {-2, 0.5}), "Power_of_negative");
    EXPECT_EQ(failureOf([] { interpretedFunction("sqrt", {-1}); }).getFile(0), "exprcomp");

    EXPECT_EQ(y1("log", 0), -inf);
    EXPECT_EQ(y1("sqrt", -0.0), 0);
    EXPECT_EQ(y1("acos", 1), 0);
}

TEST(ExprCompEval, QuirkNaNPassesTheDomainTestsButNotThePower)
{
    for (const char* name : {"sqrt", "log", "log10", "log2", "acos", "asin"})
        EXPECT_TRUE(std::isnan(y1(name, notANumber))) << name;
    EXPECT_EQ(idOfFunction("^", {notANumber, 2.5}), "Power_of_negative");
    EXPECT_EQ(y2("^", notANumber, 0), 1); // the C library's power
}

TEST(ExprCompEval, PowersOfZeroAndPowersThatTheCLibraryDefinesForNaN)
{
    EXPECT_EQ(y2("^", 0, 0), 1);
    EXPECT_EQ(y2("^", 0, 2), 0);
    EXPECT_EQ(y2("^", 0, -1), 0);
    EXPECT_EQ(y2("^", 0, notANumber), 0);
    EXPECT_EQ(y2("^", 1, notANumber), 1);
    EXPECT_EQ(y2("^", 1, inf), 1);
    EXPECT_EQ(y2("^", -1, inf), 1);
    EXPECT_EQ(y2("^", -2, 3), -8);
}

TEST(ExprCompEval, RoundingSignsAndRemainders)
{
    EXPECT_EQ(y1("round", 2.5), 3);
    EXPECT_EQ(y1("round", -2.5), -2);
    EXPECT_EQ(y1("round", 0.49999999999999994), 1); // floor(x + 0.5)
    EXPECT_TRUE(std::signbit(y1("fix", -0.5)));
    EXPECT_EQ(y1("fix", -1.5), -1);
    EXPECT_EQ(y1("fix", 1.5), 1);
    EXPECT_EQ(y1("sign", -3), -1);
    EXPECT_EQ(y1("sign", -0.0), 0);
    EXPECT_EQ(y1("sign", 3), 1);
    EXPECT_EQ(y1("sign", notANumber), -1); // quirk: 0 in the evaluation graph
    EXPECT_EQ(y2("mod", 3, 0), 3);
    EXPECT_EQ(y2("mod", -1, 3), 2);
    EXPECT_EQ(y2("mod", 0.3, 0.1), qxmath::mod(0.3, 0.1));
}

TEST(ExprCompEval, ComparisonsAndLogicWithNaN)
{
    for (const char* name : {"<", "<=", ">", ">=", "=="}) {
        EXPECT_EQ(y2(name, notANumber, 1), 0) << name;
        EXPECT_EQ(y2(name, 1, notANumber), 0) << name;
    }
    EXPECT_EQ(y2("!=", notANumber, notANumber), 1);
    EXPECT_EQ(y2("<", 1, 2), 1);
    EXPECT_EQ(y2("<=", 2, 2), 1);
    EXPECT_EQ(y2(">", 2, 1), 1);
    EXPECT_EQ(y2(">=", 1, 2), 0);
    EXPECT_EQ(y2("==", 0.0, -0.0), 1);
    EXPECT_EQ(y2("and", notANumber, 1), 1); // a NaN is not 0
    EXPECT_EQ(y2("and", 0, 1), 0);
    EXPECT_EQ(y2("or", notANumber, 0), 1);
    EXPECT_EQ(y2("or", 0, -0.0), 0);
    EXPECT_EQ(y1("!", notANumber), 0);
    EXPECT_EQ(y1("!", 0), 1);
    EXPECT_EQ(interpretedFunction("if", {notANumber, 2, 3}), 2);
    EXPECT_EQ(interpretedFunction("if", {-0.0, 2, 3}), 3);
}

TEST(ExprCompEval, MinAndMaxAreThoseOfTheStandardLibrary)
{
    EXPECT_TRUE(std::isnan(y2("min", notANumber, 1)));
    EXPECT_EQ(y2("min", 1, notANumber), 1);
    EXPECT_TRUE(std::isnan(y2("max", notANumber, 1)));
    EXPECT_EQ(y2("max", 1, notANumber), 1);
    EXPECT_TRUE(std::signbit(y2("min", -0.0, 0.0)));
    EXPECT_FALSE(std::signbit(y2("min", 0.0, -0.0)));
}

TEST(ExprCompEval, QuirkBothBranchesOfIfAreEvaluated)
{
    Probe comp({"y=if(c,l,zero)", "c=>(x,zero)", "l=log(x)", "zero=0"}, {"x"}, {"y"});
    comp.classBytes();

    EXPECT_EQ(comp.valuesAt({1.0})[0], 0.0);
    EXPECT_EQ(idOf([&] { comp.valuesAt({-1.0}); }), "Log_of_negative");
}

TEST(ExprCompEval, RefusesAWrongNumberOfInputsAndAnObjectThatWasNotCompiled)
{
    Probe comp({"y=sin(x)"}, {"x"}, {"y"});
    std::vector<double> out{7};
    const std::string internalError = "Internal_error_symbolic_processing";

    EXPECT_EQ(idOf([&] { comp.eval({1.0}, out); }), internalError);
    comp.classBytes();
    EXPECT_EQ(idOf([&] { comp.eval({}, out); }), internalError);
    EXPECT_EQ(idOf([&] { comp.eval({1, 2}, out); }), internalError);
    EXPECT_EQ(out, std::vector<double>{7});

    Probe broken({"y=sin(z)"}, {"x"}, {"y"});
    EXPECT_NE(idOf([&] { broken.classBytes(); }), "");
    EXPECT_EQ(idOf([&] { broken.eval({1.0}, out); }), internalError);
}

TEST(ExprCompEval, FailureLeavesTheResultAndALaterCallWorks)
{
    Probe comp({"y=sqrt(x)", "z=sin(x)"}, {"x"}, {"z", "y"});
    comp.classBytes();
    std::vector<double> out{1, 2, 3};

    EXPECT_EQ(idOf([&] { comp.eval({-1.0}, out); }), "Sqrt_of_negative");
    EXPECT_EQ(out, (std::vector<double>{1, 2, 3}));

    comp.eval({4.0}, out);
    EXPECT_EQ(out, (std::vector<double>{qxmath::sin(4.0), 2}));
}

TEST(ExprCompEval, ResultMayGoWhereTheInputsCameFrom)
{
    Probe comp({"y=-(a,b)", "z=+(a,b)"}, {"a", "b"}, {"y", "z"});
    comp.classBytes();
    std::vector<double> both{5, 3};

    comp.eval(both, both);

    EXPECT_EQ(both, (std::vector<double>{2, 8}));
}

TEST(ExprCompEval, NothingIsAllocatedFromTheSecondCallOn)
{
    RandomList list(1, {3, 200, 4, false, 0});
    Probe comp(list.definitions, list.inputs, list.outputs);
    comp.classBytes();
    const std::vector<double> in = list.point();
    std::vector<double> out;
    comp.eval(in, out);

    const long before = allocationCount();
    for (int i = 0; i < 100; ++i)
        comp.eval(in, out);

    EXPECT_EQ(allocationCount() - before, 0);
}

TEST(ExprCompEval, RandomArithmeticListsHaveTheValuesOfASlowEvaluation)
{
    int compared = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        RandomList::Options options;
        options.functions = false;
        options.inputs = static_cast<int>(seed % 5);
        options.operations = 1 + static_cast<int>(seed % 97);
        options.nearby = seed % 3 == 0 ? 2 : 0;
        RandomList list(seed, options);
        Probe comp(list.definitions, list.inputs, list.outputs);
        comp.classBytes();
        for (int k = 0; k < 3; ++k) {
            const std::vector<double> in = list.point();
            const std::vector<double> wanted = list.slowValues(in), got = comp.valuesAt(in);
            ASSERT_EQ(got.size(), wanted.size());
            for (std::size_t i = 0; i < got.size(); ++i) {
                ASSERT_TRUE(got[i] == wanted[i] || (std::isnan(got[i]) && std::isnan(wanted[i])))
                    << "seed " << seed << ", output " << i << ": " << got[i] << " for " << wanted[i];
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 20000);
}

TEST(ExprCompEval, ChainOfAHundredThousandOperationsAndAFanOfAsMany)
{
    constexpr int n = 100000;
    Probe chain, fan;
    chain.addInput(-1);
    fan.addInput(-1);
    for (int i = 0; i < n; ++i) {
        chain.addDef(i, ExprComp::UnaryMinus, i == 0 ? -1 : i - 1);
        fan.addDef(2 * i, 0.5 * i);
        fan.addDef(2 * i + 1, ExprComp::Plus, -1, 2 * i);
        fan.addOutput(2 * i + 1);
    }
    chain.addOutput(n - 1);

    chain.runPasses();
    fan.runPasses();

    EXPECT_EQ(chain.valuesAt({3.0}), std::vector<double>{3.0}); // an even number of signs
    EXPECT_EQ(fan.valuesAt({1.0}).back(), 1.0 + 0.5 * (n - 1));
}

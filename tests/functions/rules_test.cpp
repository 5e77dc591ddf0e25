// SPDX-License-Identifier: LicenseRef-qxkernel
// The derivative rules at ten points and more each, real and complex, against 50-digit references.

#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "nodemaker.hpp"
#include "support/reference_lines.hpp"
#include "tests/functions/fun_support.hpp"

#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

namespace {

/// The rule's node on constant arguments; its value, folded or evaluated.
Complex valueOf(const EvalNodePtr& node)
{
    const ValRepPtr v = node->isScalar() ? node->getScalar() : node->eval(VarEvaluatorPtr(), ValRepCachePtr(), 4);
    return v->getComplex();
}

/// The partial derivative of a function at x (and y, which is the exponent of a power with a fixed one).
Complex partial(const std::string& name, int argument, Complex x, Complex y)
{
    static const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const auto constant = [](Complex z) {
        return z.imag() == 0.0 ? maker->makeConstNode(z.real()) : maker->makeConstNode(z);
    };
    const FunObjPtr f = name == "pow" ? makeConstPow(y.real()) : fun(name);
    EvalNodes args = {constant(x)};
    if (f->nArgs() == 2)
        args.push_back(constant(y));
    return valueOf(f->diffRule(args, argument, maker));
}

double relativeError(Complex got, Complex wanted) { return std::abs(got - wanted) / std::fmax(std::abs(wanted), 1e-3); }

void expectGoodPointsEach(const Tally& tally, int points)
{
    for (const auto& [name, row] : tally.rows()) {
        EXPECT_EQ(row.points, points) << name;
        EXPECT_LE(row.worst, 1e-12) << name << ": " << row.where;
    }
}

TEST(DerivativeRules, AgreeWithTheReferenceInEveryArgument)
{
    Tally tally;
    for (const ReferenceLine& line : readReferences(QX_REFERENCE_FILE, "d")) {
        const std::vector<double>& n = line.numbers;
        const int argument = static_cast<int>(n[0]);
        const double got = partial(line.name, argument, n[1], n[2]).real();
        tally.add(line.name + " " + std::to_string(argument), qxtest::relativeError(got, n[3]), line.text);
    }

    EXPECT_EQ(tally.rows().size(), 33u + 2 * 11 + 4 + 2 * 8); // one argument; both; a Bessel function's second; steps
    expectGoodPointsEach(tally, 10);
}

TEST(DerivativeRules, HoldInThePlane)
{
    Tally tally;
    for (const ReferenceLine& line : readReferences(QX_REFERENCE_FILE, "z")) {
        const std::vector<double>& n = line.numbers;
        const Complex wanted(n[4], n[5]), got = partial(line.name, 1, {n[0], n[1]}, 0.0);
        tally.add(line.name, relativeError(got, wanted), line.text);
    }

    EXPECT_EQ(tally.rows().size(), 29u);
    expectGoodPointsEach(tally, 100);
}

TEST(DerivativeRules, OfTwoArgumentsHoldInThePlane)
{
    Tally tally;
    for (const ReferenceLine& line : readReferences(QX_REFERENCE_FILE, "c")) {
        const std::vector<double>& n = line.numbers;
        const int argument = static_cast<int>(n[0]);
        const Complex wanted(n[5], n[6]), got = partial(line.name, argument, {n[1], n[2]}, {n[3], n[4]});
        tally.add(line.name + " " + std::to_string(argument), relativeError(got, wanted), line.text);
    }

    EXPECT_EQ(tally.rows().size(), 2 * 6u + 1 + 4 + 2 * 8); // operators; fixed exponents; Bessel functions; steps
    expectGoodPointsEach(tally, 10);
}

TEST(DerivativeRules, StepsAndPartsHaveNone)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const EvalNodePtr x = maker->makeVarNode("x"), y = maker->makeVarNode("y");

    for (const char* name : {"!", "sign", "round", "ceil", "floor", "fix", "imag", "arg"})
        EXPECT_TRUE(fun(name)->diffRule({x}, 1, maker)->isZero()) << name;
    for (const char* name : {"<", ">", "<=", ">=", "==", "!=", "&&", "||"})
        EXPECT_TRUE(fun(name)->diffRule({x, y}, 1, maker)->isZero() && fun(name)->diffRule({x, y}, 2, maker)->isZero()) << name;
    EXPECT_TRUE(fun("real")->diffRule({x}, 1, maker)->isUnit());
    EXPECT_TRUE(fun("conj")->diffRule({x}, 1, maker)->isUnit());
    EXPECT_TRUE(fun("besselj")->diffRule({x, y}, 1, maker)->isZero());
}

TEST(DerivativeRules, OfWholePowersUseTheSharedProducts)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const EvalNodePtr x = maker->makeVarNode("x");
    const auto text = [](const EvalNodePtr& node) {
        std::ostringstream out;
        node->ostreamOperator(out);
        return out.str();
    };

    // Products are ordered by the age of their nodes: x is older than the constants.
    EXPECT_EQ(text(makeConstPow(2.0)->diffRule({x}, 1, maker)), "(x*2)");
    EXPECT_EQ(text(makeConstPow(3.0)->diffRule({x}, 1, maker)), "((x^2)*3)");
    EXPECT_EQ(text(makeConstPow(4.0)->diffRule({x}, 1, maker)), "((x^3)*4)");
    EXPECT_EQ(text(makeConstPow(-1.0)->diffRule({x}, 1, maker)), "(-(1/(x^2)))");
    EXPECT_EQ(text(makeConstPow(-2.0)->diffRule({x}, 1, maker)), "((-2)/(x^3))");
    EXPECT_EQ(text(makeConstPow(7.0)->diffRule({x}, 1, maker)), "((x^6)*7)");
    EXPECT_EQ(text(fun("^")->diffRule({x, maker->makeConstNode(3.0)}, 1, maker)), "((x^2)*3)");
}

TEST(DerivativeRules, AreTakenByArgumentNumberFromOne)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const EvalNodePtr x = maker->makeVarNode("x"), y = maker->makeVarNode("y");

    EXPECT_EQ(fun("*")->diffRule({x, y}, 1, maker), y);
    EXPECT_EQ(fun("*")->diffRule({x, y}, 2, maker), x);
    EXPECT_TRUE(fun("-")->diffRule({x, y}, 1, maker)->isUnit());
    EXPECT_TRUE(fun("-")->diffRule({x, y}, 2, maker)->isNUnit());
    EXPECT_TRUE(fun("U-")->diffRule({x}, 1, maker)->isNUnit());
    EXPECT_TRUE(fun("U+")->diffRule({x}, 1, maker)->isUnit());
}

} // namespace

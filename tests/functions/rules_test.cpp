// The derivative rules at 100 points each, real and complex, against 50-digit references.

#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "nodemaker.hpp"
#include "tests/functions/fun_support.hpp"

#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

namespace {

double number(std::istringstream& in)
{
    std::string text;
    in >> text;
    return std::strtod(text.c_str(), nullptr);
}

struct Tally
{
    int points = 0;
    double worst = 0.0;
    std::string where;
};

/// The rule's node on constant arguments; its value, folded or evaluated.
Complex valueOf(const EvalNodePtr& node)
{
    const ValRepPtr v = node->isScalar() ? node->getScalar() : node->eval(VarEvaluatorPtr(), ValRepCachePtr(), 4);
    return v->getComplex();
}

TEST(DerivativeRules, AgreeWithTheReferenceInEveryArgument)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    std::map<std::string, Tally> tally;
    std::ifstream file(QX_REFERENCE_FILE);
    for (std::string line; std::getline(file, line);) {
        std::istringstream in(line);
        std::string kind, name;
        int argument;
        in >> kind >> name;
        if (kind != "d")
            continue;
        in >> argument;
        const double x = number(in), y = number(in), wanted = number(in);
        EvalNodes args = {maker->makeConstNode(x)};
        if (fun(name)->nArgs() == 2)
            args.push_back(maker->makeConstNode(y));
        const double got = valueOf(fun(name)->diffRule(args, argument, maker)).real();
        Tally& t = tally[name + " " + std::to_string(argument)];
        ++t.points;
        // Relative, down to where the derivative vanishes and cancellation takes over.
        const double error = std::fabs(got - wanted) / std::max(std::fabs(wanted), 1e-3);
        if (!(error <= t.worst)) {
            t.worst = error;
            t.where = line + " got " + std::to_string(got) + " wanted " + std::to_string(wanted);
        }
    }

    EXPECT_EQ(tally.size(), 30u + 2 * 11 + 4 + 2 * 8);
    for (const auto& [name, t] : tally) {
        EXPECT_EQ(t.points, 100) << name;
        EXPECT_LE(t.worst, 1e-12) << name << ": " << t.where;
    }
}

TEST(DerivativeRules, HoldInThePlane)
{
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    std::map<std::string, Tally> tally;
    std::ifstream file(QX_REFERENCE_FILE);
    for (std::string line; std::getline(file, line);) {
        std::istringstream in(line);
        std::string kind, name;
        in >> kind >> name;
        if (kind != "z")
            continue;
        const double re = number(in), im = number(in);
        number(in), number(in);
        const double dre = number(in), dim = number(in);
        const Complex wanted(dre, dim);
        const EvalNodes args = {maker->makeConstNode(Complex(re, im))};
        const Complex got = valueOf(fun(name)->diffRule(args, 1, maker));
        Tally& t = tally[name];
        ++t.points;
        const double error = std::abs(got - wanted) / std::abs(wanted);
        if (!(error <= t.worst)) {
            t.worst = error;
            t.where = line;
        }
    }

    EXPECT_EQ(tally.size(), 29u);
    for (const auto& [name, t] : tally) {
        EXPECT_EQ(t.points, 100) << name;
        EXPECT_LE(t.worst, 1e-12) << name << ": " << t.where;
    }
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

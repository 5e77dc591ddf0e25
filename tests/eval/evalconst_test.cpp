// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalconst.hpp"

#include "evalfun.hpp"
#include "evalrep.hpp"
#include "host.hpp"

#include <cmath>
#include <gtest/gtest.h>

using qxtest::raisedArgument;
using qxtest::raisedId;

TEST(EvalConst, EvaluatesConstantExpressions)
{
    EXPECT_EQ(EvalConst().evalExpr("1+2*3"), 7.0);
    EXPECT_EQ(EvalConst().evalExpr("2^10"), 1024.0);
    EXPECT_DOUBLE_EQ(EvalConst().evalExpr("sqrt(2)"), std::sqrt(2.0));
}

TEST(EvalConst, KnowsConstantsInTheOrderOfTheirDefinition)
{
    const EvalConst constants({"a = 3", "b=a^2", " c\t= b + a"});
    EXPECT_EQ(constants.evalExpr("c"), 12.0);
}

TEST(EvalConst, RefusesDefinitionsThatAreNone)
{
    EXPECT_EQ(raisedId([] { EvalConst({"a"}); }), "Syntax_error_in_expression");
    EXPECT_EQ(raisedId([] { EvalConst({"=3"}); }), "Syntax_error_in_expression");
    EXPECT_EQ(raisedId([] { EvalConst({"a=b"}); }), "Unknown_variable_name");
    EXPECT_EQ(raisedId([] { EvalConst({"a="}); }), "Syntax_error_in_expression");
}

TEST(EvalConst, TakesIAndJAsTheImaginaryUnit)
{
    EXPECT_EQ(EvalConst().evalExprComplex("1+2*i"), std::complex<double>(1, 2));
    EXPECT_EQ(EvalConst().evalExprComplex("j*j"), std::complex<double>(-1, 0));
}

TEST(EvalConst, LetsConstantsHideTheImaginaryUnit)
{
    EXPECT_EQ(EvalConst({"i=5"}).evalExpr("i+1"), 6.0);
    EXPECT_EQ(EvalConst({"j=7"}).evalExpr("j"), 7.0);
}

TEST(EvalConst, TakesComplexConstants)
{
    EXPECT_EQ(EvalConst({"z=3+4*i"}).evalExprComplex("abs(z)"), std::complex<double>(5, 0));
}

TEST(EvalConst, RaisesForComplexNumbersInARealExpression)
{
    EXPECT_EQ(raisedId([] { EvalConst().evalExpr("1+i"); }), "Complex_number_in_real_expression");
}

TEST(EvalConst, RequiredQuirkARealResultOfComplexNumbersIsRefused)
{
    EXPECT_EQ(raisedId([] { EvalConst().evalExpr("i*i"); }), "Complex_number_in_real_expression");
}

TEST(EvalConst, RaisesTheFunctionsMessageForARootOfANegativeNumber)
{
    EXPECT_EQ(raisedId([] { EvalConst().evalExpr("sqrt(-1)"); }), "sqrt");
    EXPECT_EQ(EvalConst().evalExprComplex("sqrt(-1)"), std::complex<double>(0, 1));
}

TEST(EvalConst, RaisesForUnknownNames)
{
    const auto variable = [] { EvalConst().evalExpr("nobody+1"); };
    EXPECT_EQ(raisedId(variable), "Unknown_variable_name");
    EXPECT_EQ(raisedArgument(variable, "Name"), "nobody");
    const auto function = [] { EvalConst().evalExpr("nothing(1)"); };
    EXPECT_EQ(raisedId(function), "Unknown_function_name");
    EXPECT_EQ(raisedArgument(function, "Name"), "nothing");
}

TEST(EvalConst, OffersTheNearestKnownName)
{
    EXPECT_EQ(raisedArgument([] { EvalConst({"radius=2"}).evalExpr("2*raduis"); }, "Nearest"), "radius");
    EXPECT_EQ(raisedArgument([] { EvalConst().evalExpr("sqr(2)"); }, "Nearest"), "sqrt");
}

TEST(EvalConst, RaisesForWrongArgumentCounts)
{
    const auto count = [] { EvalConst().evalExpr("atan2(1)"); };
    EXPECT_EQ(raisedId(count), "Wrong_number_of_function_arguments");
    EXPECT_EQ(raisedArgument(count, "Name"), "atan2");
}

TEST(EvalConst, KnowsNoFunctionsOfStrings)
{
    EXPECT_EQ(raisedId([] { EvalConst().evalExpr("f('a',1)"); }), "Unknown_function_name");
}

TEST(EvalConst, ReadsPlusSquares)
{
    EXPECT_EQ(EvalConst().evalExpr("plussq(3,4)"), 25.0);
}

TEST(ConstVarEvaluator, HasNoDefinitions)
{
    const auto evaluator = boost::make_shared<ConstVarEvaluator>(std::vector<std::string>{"a=1"});
    EXPECT_FALSE(evaluator->expand(evaluator, "a"));
}

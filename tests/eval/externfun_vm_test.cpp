// SPDX-License-Identifier: LicenseRef-qxkernel
// Functions of formulas that are defined in Java, in a real virtual machine. A program of its own: the machine stays.
#include "externfun.hpp"

#include "exprimpl.hpp"

#include "host.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"
#include "support/java_test.hpp"

#include <gmock/gmock.h>

#include <cmath>
#include <thread>

using namespace qxtest;
using testing::ElementsAre;

namespace {

constexpr const char* matlab = "com/quorix/server/MatlabEvaluator";

class FunctionsInJava : public JavaTest
{
protected:
    void SetUp() override
    {
        JavaTest::SetUp();
        setInfixConverter(qxInfixToPrefix); // not the parser class of these tests, which knows a few forms
        host->reals = {{"x", {0.5, 1, 2}}, {"y", {10, 20, 30}}, {"s", {4}}, {"n", {-1, 4, 9}}};
        host->complexes = {{"z", {cplx(1, 2), cplx(3, 0), cplx(0, -1)}}, {"r", {cplx(2, 0), cplx(3, 0), cplx(4, 0)}},
                           {"zs", {cplx(0, 2)}}};
        const auto add = [this](const std::string& name, int nArgs, const std::string& complexName = "",
                                const std::vector<std::string>& derivatives = {}) {
            host->functions[name] = boost::make_shared<ExternFun>(name, nArgs, complexName, derivatives);
        };
        add("sum", 3);
        add("damped", 1, "", {"dampedslope"});
        add("realsquare", 1, "square");
        add("hole", 1);
        add("status", 1);
        add("throws", 1);
        add("memory", 1);
        host->stringFun = [](const std::string&, int, const auto&, const auto&) { return FunObjPtr(); };
    }
    std::vector<double> values(const std::string& text, unsigned flags = EvalValues | EvalKeepReal)
    {
        Array<double, 1> target(3);
        evalText(text, host, flags)->copyToArray(target);
        return {target.begin(), target.end()};
    }
    std::vector<cplx> complexValues(const std::string& text)
    {
        Array<cplx, 1> target(3);
        evalText(text, host)->copyToArray(target);
        return {target.begin(), target.end()};
    }
    int calls() { return staticInt(matlab, "calls"); }

    HostPtr host = makeHost();
};

} // namespace

TEST_F(FunctionsInJava, AreCalledOnceForAllPointsWithScalarsRepeated)
{
    const int before = calls();

    EXPECT_THAT(values("1+sum(x,y,s)*2"), ElementsAre(30.0, 51.0, 73.0));

    EXPECT_EQ(calls() - before, 1);
    EXPECT_EQ(realValue("sum(s,1,s)", host), 9.0) << "scalars alone: one point";
}

TEST_F(FunctionsInJava, LeaveTheirArgumentsAsTheyWere)
{
    EXPECT_THAT(values("sum(x,x,s)+0*y+x"), ElementsAre(5.5, 7, 10));
    EXPECT_THAT(host->reals["x"], ElementsAre(0.5, 1, 2));
}

TEST_F(FunctionsInJava, TakeComplexArgumentsThroughTheirComplexName)
{
    EXPECT_THAT(complexValues("realsquare(z)"), ElementsAre(cplx(-3, 4), cplx(9, 0), cplx(-1, 0)));
    EXPECT_EQ(evalText("realsquare(zs)", host)->getComplex(), cplx(-4, 0));
    EXPECT_FALSE(evalText("realsquare(zs)", host)->isComplex()) << "really real";
    EXPECT_THAT(values("realsquare(y)"), ElementsAre(100, 400, 900));
    EXPECT_THAT(complexValues("sum(r,y,s)"), ElementsAre(cplx(16), cplx(27), cplx(38))) << "really real arguments need none";
}

TEST_F(FunctionsInJava, WithoutAComplexNameComplexArgumentsAreElementErrorsThatNameTheFunction)
{
    EXPECT_EQ(raisedArgument([&] { complexValues("1+sum(z,y,s)"); }, "fun"), "sum");
    EXPECT_EQ(raisedArgument([&] { evalText("damped(zs)", host)->getComplex(); }, "fun"), "damped");
}

TEST_F(FunctionsInJava, AHoleInTheResultIsAnElementErrorThatNamesTheFunction)
{
    const ValRepPtr value = evalText("1+hole(n)", host, EvalValues | EvalKeepReal);
    EXPECT_TRUE(value->isNaN());
    EXPECT_EQ(raisedArgument([&] { value->throwError(); }, "fun"), "hole");

    const std::vector<double> all = values("1+hole(n)", EvalValues | EvalKeepReal | EvalIgnoreElementErrors);
    EXPECT_TRUE(std::isnan(all[0]));
    EXPECT_EQ(all[2], 4.0);
}

TEST_F(FunctionsInJava, AStatusRaisesWithFunctionAndNumber)
{
    const qxbase::Exception e = failureOf([&] { values("1+status(x)"); });

    EXPECT_EQ(e.getId(), "Error_in_callback");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Function", "status"}, {"Status", "7"}}));
}

TEST_F(FunctionsInJava, AnExceptionRaisesWithItsStoryAndTheNextEvaluationWorks)
{
    for (const auto& [text, story] : {std::pair("throws(x)+y", "java.lang.IllegalStateException: na\xc3\xafve \xf0\x9f\x98\x80 message"),
                                      std::pair("y*memory(x)", "java.lang.OutOfMemoryError: Java heap space")}) {
        EXPECT_EQ(raisedId([&, t = text] { values(t); }), "Error_in_callback");
        EXPECT_EQ(raisedArgument([&, t = text] { values(t); }, "Exception"), story);
    }
    EXPECT_THAT(values("sum(x,y,s)"), ElementsAre(14.5, 25, 36));
    EXPECT_THAT(values("x"), ElementsAre(0.5, 1, 2));
}

TEST_F(FunctionsInJava, AreRefusedByDifferentiationUnlessTheirDerivativesAreKnown)
{
    EXPECT_EQ(raisedId([&] { values("d(sum(x,y,s),x)"); }), "Differentiation_rule_missing");
    EXPECT_EQ(raisedArgument([&] { values("d(sum(x,y,s),x)"); }, "Function"), "sum");
    EXPECT_THAT(values("d(x*sum(y,y,y),s)"), ElementsAre(0, 0, 0)) << "nothing to differentiate";

    const std::vector<double> slope = values("d(damped(2*x),x)");
    for (int i = 0; i < 3; ++i) {
        const double u = 2 * host->reals["x"][i];
        EXPECT_NEAR(slope[i], 2 * (std::cos(u) - std::sin(u)) * std::exp(-u), 1e-15);
    }
    EXPECT_EQ(raisedArgument([&] { values("d(d(damped(x),x),x)"); }, "Function"), "dampedslope") << "none is known for it";
}

TEST_F(FunctionsInJava, OfTextsAloneAreCalledWhenTheTreeIsMade)
{
    // "T\u00e9" is three bytes: 0x54 + 0xc3 + 0xa9 = 448, and "a" is 97.
    EXPECT_EQ(evalText("bytes('T\xc3\xa9','a')", host)->getComplex(), cplx(4, 448 + 97));

    const qxbase::Exception e = failureOf([&] { treeOf("status('a')")->parse(host); });
    EXPECT_EQ(e.getId(), "Error_in_callback");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Function", "status"}, {"Status", "7"}}));
    EXPECT_EQ(raisedId([&] { treeOf("throws('a')")->parse(host); }), "Error_in_callback");
}

TEST_F(FunctionsInJava, ServeThreadsThatAreNotAttached)
{
    std::vector<double> found;
    std::thread([&] { found = values("sum(x,y,s)"); }).join();
    EXPECT_THAT(found, ElementsAre(14.5, 25, 36));
}

TEST_F(FunctionsInJava, RepeatedEvaluationLeavesNothingBehind)
{
    const EvalTreePtr tree = treeOf("sum(x,y,s)+realsquare(z)");
    const auto evaluate = [&] { tree->eval(host, makeCache(), EvalValues)->getComplexReader(); };
    evaluate();
    const long before = liveAllocations();

    for (int i = 0; i < 2000; ++i)
        evaluate();

    EXPECT_LE(liveAllocations(), before + 20);
    failEveryAllocation(evaluate, [&](const FaultRun& run) {
        EXPECT_THAT(run.id, testing::AnyOf("", "Internal_error_callback")) << run.n;
        EXPECT_FALSE(env->ExceptionCheck());
    });
    evaluate();
}

TEST(ExternFun, NeedsArgumentsAndAsManyDerivatives)
{
    EXPECT_EQ(idOf([] { ExternFun("f", 0); }), "Wrong_number_of_function_arguments");
    EXPECT_EQ(idOf([] { ExternFun("f", 2, "", {"g"}); }), "Wrong_number_of_function_arguments");
    EXPECT_EQ(idOf([] { ExternFun("f", 2, "", {"g", "h"}, {"g"}); }), "Wrong_number_of_function_arguments");
    const ExternFun f("f", 2);
    EXPECT_EQ(f.getName(), "f");
    EXPECT_EQ(f.nArgs(), 2);
    EXPECT_FALSE(f.isBuiltin());
    EXPECT_TRUE(f.isRealIfReal());
    EXPECT_FALSE(f.isAlwaysReal());
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interpfun.hpp"

#include "eval/host.hpp"
#include "interpfilereader.hpp"
#include "qxhash.hpp"
#include "support/alloc_fault.hpp"
#include "support/threads.hpp"

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <thread>

using namespace qxtest;

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

InterpTableData tableOf(const std::string& text)
{
    std::istringstream stream(text);
    return InterpFileReader().read(stream, "table");
}

/// 1 + x^2 at 0, 1, 2, 3, 4.
const std::string parabola = "0 1\n1 2\n2 5\n3 10\n4 17\n";
/// x y + y at x = 0, 1, 2 and y = 0, 4.
const std::string plane = "0 0 0\n1 0 0\n2 0 0\n0 4 4\n1 4 8\n2 4 12\n";

FunObjPtr table(const std::string& name, const std::string& text, const std::string& method = "linear",
                const std::string& extension = "clamp")
{
    return boost::make_shared<InterpFun>(name, makeInterpolator(tableOf(text), 0, {method, extension}));
}

HostPtr hostWith(const std::vector<FunObjPtr>& tables, const std::map<std::string, std::vector<double>>& reals = {})
{
    const HostPtr host = makeHost(reals);
    for (const FunObjPtr& f : tables)
        host->functions[f->getName()] = f;
    return host;
}

std::vector<double> realsOf(const std::string& text, const HostPtr& host, std::size_t n, unsigned flags = EvalValues)
{
    std::vector<double> out(n);
    evalText(text, host, flags)->copyToArray(out.data(), static_cast<int>(n), 1);
    return out;
}

} // namespace

TEST(InterpFun, IsAFunctionOfFormulas)
{
    const HostPtr host = hostWith({table("mu", parabola), table("k", plane)}, {{"T", {0.5, 1.0, 3.5, 9.0}}, {"y", {1.5}}});

    EXPECT_EQ(realsOf("2*mu(T)+1", host, 4), (std::vector<double>{4.0, 5.0, 28.0, 35.0}));
    EXPECT_EQ(realsOf("k(T,y)", host, 4), (std::vector<double>{2.25, 3.0, 4.5, 4.5}));
    EXPECT_EQ(realsOf("k(0.5,T)", host, 4), (std::vector<double>{0.75, 1.5, 5.25, 6.0}));
    EXPECT_EQ(realValue("mu(y)", host), 3.5);
    EXPECT_EQ(realValue("k(1,3)", host), 6.0);
    EXPECT_EQ(realValue("mu(0)", host), 1.0);
}

TEST(InterpFun, TakesATableOfAnyDimension)
{
    std::string text;
    for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 2; ++x)
                text += std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(z) + " " +
                        std::to_string(x + 10 * y + 100 * z) + "\n";
    const HostPtr host = hostWith({table("g", text)}, {{"x", {0.25, 0.5}}, {"y", {0.5, 0.0}}, {"z", {0.75, 1.0}}});

    EXPECT_EQ(realsOf("g(x,y,z)", host, 2), (std::vector<double>{80.25, 100.5}));
    EXPECT_EQ(realsOf("g(x,1,z)", host, 2), (std::vector<double>{85.25, 110.5}));
    EXPECT_EQ(realsOf("d(g(x,y,z),z)", host, 2), (std::vector<double>{100.0, 100.0}));
}

TEST(InterpFun, LeavesItsArgumentsAsTheyAre)
{
    const HostPtr host = hostWith({table("mu", parabola), table("k", plane)}, {{"x", {0.5, 1.0}}, {"y", {3.0, 1.5}}});

    EXPECT_EQ(realsOf("k(x,y)+mu(x)+x+y+k(y,x)", host, 2), realsOf("mu(x)+(k(y,x)+k(x,y))+(y+x)", host, 2));
    EXPECT_EQ(realsOf("x+0*k(x,y)", host, 2), (std::vector<double>{0.5, 1.0}));
}

TEST(InterpFun, GivesTheBitsOfItsInterpolatorForEveryStorageAndPlace)
{
    const InterpTableData data = tableOf(parabola);
    for (const char* method : {"linear", "cubicspline"}) {
        const auto f = boost::make_shared<InterpFun>("f", makeInterpolator(data, 0, {method, "linear"}));
        const Interpolator& wanted = *f->getInterpolator();
        constexpr unsigned n = 1000;
        const auto reals = boost::make_shared<Array<double, 1>>(n + 3);
        const auto complexes = boost::make_shared<Array<cplx, 1>>(n + 3);
        for (unsigned i = 0; i < n + 3; ++i)
            (*complexes)[i] = (*reals)[i] = 7.0 * i / n - 1.0;

        EXPECT_EQ((*f)(reals, n), 0u);
        EXPECT_EQ((*f)(complexes, n), 0u);

        for (unsigned i = 0; i < n; ++i) {
            const double x = 7.0 * i / n - 1.0, value = wanted({x});
            ASSERT_EQ((*reals)[i], value) << method << " at " << x;
            ASSERT_EQ((*complexes)[i], cplx(value, 0.0)) << method << " at " << x;
            const auto scalar = boost::make_shared<double>(x);
            EXPECT_EQ((*f)(scalar), 0u);
            ASSERT_EQ(*scalar, value);
        }
        EXPECT_EQ((*reals)[n], 7.0 - 1.0); // behind the end
    }
}

TEST(InterpFun, ComplexStorageWithZeroImaginaryPartsCountsAsReal)
{
    const HostPtr host = hostWith({table("mu", parabola), table("k", plane)});
    host->complexes["z"] = {cplx(0.5, 0.0), cplx(3.0, -0.0)};
    host->complexes["one"] = {cplx(1.0, 0.0)};

    for (const char* text : {"mu(z)", "k(z,one)", "k(1,z)"}) {
        const ValRepPtr v = evalText(text, host);
        ASSERT_FALSE(v->isNaN()) << text;
        EXPECT_FALSE(v->isComplex()) << text;
    }
    EXPECT_EQ(realsOf("mu(z)", host, 2), (std::vector<double>{1.5, 10.0}));
    EXPECT_EQ(realsOf("k(z,one)", host, 2), (std::vector<double>{1.5, 3.0}));
    EXPECT_EQ(realValue("mu(one)", host), 2.0);
}

TEST(InterpFun, AComplexArgumentIsAnElementErrorWithItsStory)
{
    const HostPtr host = hostWith({table("mu", parabola), table("k", plane)}, {{"x", {1.0, 2.0}}});
    host->complexes["z"] = {cplx(0.5, 0.0), cplx(3.0, 1e-300)};
    host->complexes["w"] = {cplx(0.5, 2.0)};
    host->complexes["lost"] = {cplx(0.5, notANumber)};

    for (const char* text : {"mu(z)", "k(z,x)", "k(x,z)", "k(w,1)", "mu(w)", "mu(lost)"}) {
        EXPECT_EQ(raisedId([&] { evalText(text, host)->throwError(); }), "interp_cmplx") << text;
        EXPECT_EQ(raisedArgument([&] { evalText(text, host)->throwError(); }, "fun"), text[0] == 'm' ? "mu" : "k");
    }
}

TEST(InterpFun, AWrongNumberOfArgumentsIsRefused)
{
    const HostPtr host = hostWith({table("mu", parabola), table("k", plane)}, {{"x", {1.0, 2.0}}});

    EXPECT_EQ(raisedId([&] { evalText("mu(x,x)", host); }), "Wrong_number_of_function_arguments");
    EXPECT_EQ(raisedId([&] { evalText("k(x)", host); }), "Wrong_number_of_function_arguments");
    EXPECT_EQ(raisedId([&] { evalText("k(x,x,x)", host); }), "Wrong_number_of_function_arguments");
}

TEST(InterpFun, PointsOutsideAreErrorsOnRequest)
{
    const HostPtr host = hostWith({table("mu", parabola, "cubicspline", "error"), table("k", plane, "linear", "error")},
                                  {{"T", {0.0, 4.0}}, {"hot", {1.0, 4.5}}, {"cold", {-1e-12, 1.0}}, {"y", {4.5}}});

    EXPECT_EQ(realsOf("mu(T)", host, 2), (std::vector<double>{1.0, 17.0})); // both ends belong to the table
    for (const char* text : {"mu(hot)", "mu(cold)", "k(1,y)", "k(cold,1)", "k(hot,hot)", "mu(4.5)"}) {
        EXPECT_EQ(raisedId([&] { evalText(text, host)->throwError(); }), "interp_range") << text;
        EXPECT_EQ(raisedArgument([&] { evalText(text, host)->throwError(); }, "fun"), text[0] == 'm' ? "mu" : "k");
    }
    const std::vector<double> kept = realsOf("mu(hot)", host, 2, EvalValues | EvalIgnoreElementErrors);
    EXPECT_EQ(kept[0], 2.0);
    EXPECT_TRUE(std::isnan(kept[1]));
}

TEST(InterpFun, DerivativesHaveTheLimitsOfTheTable)
{
    const HostPtr host = hostWith({table("mu", parabola, "cubicspline", "error")}, {{"T", {1.0, 2.0}}, {"hot", {1.0, 4.5}}});

    EXPECT_EQ(raisedId([&] { evalText("d(mu(hot),hot)", host)->throwError(); }), "interp_range");
    EXPECT_EQ(raisedArgument([&] { evalText("d(mu(hot),hot)", host)->throwError(); }, "fun"), "mu_d1");
    EXPECT_NEAR(realsOf("d(mu(T),T)", host, 2)[1], 4.0, 1e-14);
}

TEST(InterpFun, ANaNArgumentIsAnError)
{
    const HostPtr host = hostWith({table("mu", parabola), table("k", plane)}, {{"T", {1.0, notANumber}}, {"x", {1.0, 2.0}}});

    for (const char* text : {"mu(T)", "k(T,x)", "k(x,T)"})
        EXPECT_EQ(raisedId([&] { evalText(text, host)->throwError(); }), "nan") << text;
    const std::vector<double> kept = realsOf("mu(T)", host, 2, EvalValues | EvalIgnoreElementErrors);
    EXPECT_EQ(kept[0], 2.0);
    EXPECT_TRUE(std::isnan(kept[1])); // not the first value of the table
}

TEST(InterpFun, ANaNInTheTableIsAnError)
{
    const auto axes = boost::make_shared<const Interpolator::Axes>(Interpolator::Axes{{0.0, 1.0, 2.0}});
    const auto values = boost::make_shared<const std::vector<double>>(std::vector<double>{1.0, 2.0, notANumber});
    const FunObjPtr f = boost::make_shared<InterpFun>(
        "f", Interpolator::createInterpolator(axes, values, "linear", Interpolator::ExtDefault, 0.0));
    const HostPtr host = hostWith({f}, {{"x", {0.5, 1.5}}});

    EXPECT_EQ(raisedId([&] { evalText("f(x)", host)->throwError(); }), "funeval");
    EXPECT_EQ(realValue("f(0.5)", host), 1.5);
}

TEST(InterpFun, TheDerivativeIsTheSlopeOfTheTable)
{
    const std::vector<double> T = {0.3, 1.0, 2.7, 3.9, 6.0};
    const HostPtr host = hostWith({table("s", parabola, "cubicspline", "linear"), table("l", parabola)}, {{"T", T}});

    const std::vector<double> first = realsOf("d(s(T),T)", host, 5), second = realsOf("d(d(s(T),T),T)", host, 5),
                              partial = realsOf("pd(s(T),T)", host, 5), chain = realsOf("d(s(T)^2,T)", host, 5),
                              steps = realsOf("d(l(T),T)", host, 5);

    const double wanted[] = {0.6, 2.0, 5.4, 7.8, 8.0}; // 2 T, and the end slope beyond 4
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_NEAR(first[i], wanted[i], 1e-13);
        EXPECT_EQ(partial[i], first[i]);
        EXPECT_NEAR(second[i], i < 4 ? 2.0 : 0.0, 1e-12);
        const double value = i < 4 ? 1.0 + T[i] * T[i] : 33.0;
        EXPECT_NEAR(chain[i], 2.0 * value * wanted[i], 1e-10);
    }
    EXPECT_EQ(steps, (std::vector<double>{1.0, 1.0, 5.0, 7.0, 0.0}));
}

TEST(InterpFun, PartialDerivativesOfAGridCommuteAndEndInZero)
{
    const HostPtr host = hostWith({table("k", plane)}, {{"x", {0.5, 1.5}}, {"y", {1.0, 2.0}}});

    EXPECT_EQ(realsOf("d(k(x,y),x)", host, 2), (std::vector<double>{1.0, 2.0}));   // y
    EXPECT_EQ(realsOf("d(k(x,y),y)", host, 2), (std::vector<double>{1.5, 2.5}));   // x + 1
    EXPECT_EQ(realsOf("d(d(k(x,y),x),y)", host, 2), (std::vector<double>{1.0, 1.0}));
    EXPECT_EQ(realsOf("d(d(k(x,y),y),x)", host, 2), (std::vector<double>{1.0, 1.0}));
    EXPECT_TRUE(treeOf("d(d(k(x,y),x),x)")->eval(host, makeCache(), EvalValues)->isZero());
    EXPECT_TRUE(hostWith({table("n", parabola, "neighbor")})->functions["n"]->diffRule(
        {host->getNodeMaker()->makeVarNode("x")}, 1, host->getNodeMaker())->isZero());
}

TEST(InterpFun, DerivativesOfOneTableAreMadeOnce)
{
    const HostPtr host = hostWith({table("mu", parabola, "cubicspline")}, {{"T", {1.5}}});
    const NodeMakerPtr& maker = host->getNodeMaker();
    const FunObj& mu = *host->functions["mu"];
    const EvalNodes args = {maker->makeVarNode("T")};

    const EvalNodePtr a = mu.diffRule(args, 1, maker), b = mu.diffRule(args, 1, maker);

    const auto funOf = [](const EvalNodePtr& node) { return dynamic_cast<const OpNode&>(*node).getFun().get(); };
    EXPECT_EQ(funOf(a), funOf(b));
    EXPECT_EQ(funOf(a)->getName(), "mu_d1");
    EXPECT_TRUE(mu.diffRule(args, 0, maker)->isZero());
    EXPECT_TRUE(mu.diffRule(args, 2, maker)->isZero());
}

TEST(InterpFun, CreateDefsRefusesWithTheTablesName)
{
    const FunObjPtr mu = table("mu", parabola);
    FunObj::DefIds names;
    int nextId = 0;
    alignas(8) static char none[8]; // stands for a compiler and is never looked at

    EXPECT_EQ(raisedId([&] { mu->createDefs({}, reinterpret_cast<ExprComp&>(none), names, nextId, VarEvaluatorPtr()); }),
              "Cannot create definitions from mu");
}

TEST(InterpFun, SaysWhatItIs)
{
    const FunObjPtr mu = table("mu", parabola), k = table("k", plane);
    std::ostringstream text;
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();

    k->ostreamOperator({maker->makeVarNode("a"), maker->makeVarNode("b")}, text);

    EXPECT_EQ(text.str(), "k(a,b)");
    EXPECT_EQ(mu->nArgs(), 1);
    EXPECT_EQ(k->nArgs(), 2);
    EXPECT_FALSE(mu->isMulti());
    EXPECT_TRUE(k->isMulti());
    EXPECT_TRUE(mu->isAlwaysReal());
    EXPECT_TRUE(mu->isRealIfReal());
    EXPECT_FALSE(mu->isLinear(1));
    EXPECT_EQ(mu->makeError(0), nullptr);
    EXPECT_EQ(mu->makeError(kFunComplex), nullptr);
}

TEST(InterpFun, RefusesATableWithoutArgumentsOrWithTooMany)
{
    using Axes = Interpolator::Axes;
    const auto fun = [](std::size_t d) {
        const auto values = boost::make_shared<const std::vector<double>>(1, 5.0);
        InterpFun("f", Interpolator::createInterpolator(boost::make_shared<const Axes>(d, std::vector<double>{1.0}), values,
                                                        "linear", Interpolator::ExtDefault, 0.0));
    };

    EXPECT_EQ(raisedId([&] { fun(0); }), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(raisedId([&] { fun(32); }), "");
    EXPECT_EQ(raisedId([&] { fun(33); }), "Wrong_size_of_interpolation_data");
    EXPECT_EQ(raisedId([] { InterpFun("f", boost::shared_ptr<const Interpolator>()); }), "Wrong_size_of_interpolation_data");
}

TEST(InterpFun, CallsAllocateNothing)
{
    const FunObjPtr mu = table("mu", parabola, "cubicspline", "error"), k = table("k", plane);
    const auto x = boost::make_shared<Array<double, 1>>(1000ul);
    const auto z = boost::make_shared<Array<cplx, 1>>(1000ul);
    *x = 1.5;
    *z = cplx(1.5);
    const std::vector<FunObj::DA> two = {x, boost::make_shared<Array<double, 1>>(*x)};
    const std::vector<FunObj::CA> twoComplex = {z, boost::make_shared<Array<cplx, 1>>(*z)};

    const long before = allocationCount();
    (*mu)(x, 1000);
    (*mu)(z, 1000);
    (*k)(two, 1000, 2);
    (*k)(twoComplex, 1000, 1);

    EXPECT_EQ(allocationCount(), before);
}

TEST(InterpFun, EvaluatesInsideOpenMPAndOnThreadsOfTheHost)
{
    const FunObjPtr mu = table("mu", parabola, "cubicspline"), k = table("k", plane);
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const auto work = [&](int seed) {
        const HostPtr host = boost::make_shared<Host>(maker);
        host->functions["mu"] = mu;
        host->functions["k"] = k;
        std::vector<double> T(500), wanted;
        for (std::size_t i = 0; i < T.size(); ++i)
            T[i] = std::fmod(0.37 * static_cast<double>(i) + seed, 2.0);
        host->reals["T"] = T;
        const std::vector<double> values = realsOf("mu(T)*k(T,1.5)+d(mu(T),T)", host, T.size());
        int wrong = 0;
        const InterpFun& f = dynamic_cast<const InterpFun&>(*mu);
        const auto slope = f.getInterpolator()->diff(1);
        for (std::size_t i = 0; i < T.size(); ++i) {
            const double k2 = (*dynamic_cast<const InterpFun&>(*k).getInterpolator())({T[i], 1.5});
            wrong += values[i] != (*f.getInterpolator())({T[i]}) * k2 + (*slope)({T[i]});
        }
        return wrong;
    };
    int wrongInside = 0;
    std::atomic<int> wrongOutside = 0;

#pragma omp parallel for num_threads(4) reduction(+ : wrongInside)
    for (int i = 0; i < 16; ++i)
        wrongInside += work(i);
    std::vector<std::thread> threads;
    for (int t = 0; t < 16; ++t)
        threads.emplace_back([&, t] { wrongOutside += work(t); });
    for (std::thread& t : threads)
        t.join();

    EXPECT_EQ(wrongInside, 0);
    EXPECT_EQ(wrongOutside, 0);
}

TEST(InterpFun, SurvivesEveryFailingAllocation)
{
    const InterpTable interp = makeInterpolator(tableOf(parabola), 0, {"cubicspline", "error"});
    const NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    const EvalNodes args = {maker->makeVarNode("T")};

    const auto act = [&] {
        const InterpFun f("a rather long name of a function", interp);
        f.diffRule(args, 1, maker);
    };
    const long count = failEveryAllocation(act, [](const FaultRun& run) {
        EXPECT_EQ(run.badAlloc, run.faulted) << run.n;
        EXPECT_EQ(run.leaked, 0) << run.n;
    });

    EXPECT_GT(count, 5);
}

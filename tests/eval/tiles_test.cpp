// SPDX-License-Identifier: LicenseRef-qxkernel
// A block is computed in tiles. Nothing of that may be seen: values, storage, flags and stories are those of the walk over
// value objects, which knows the whole block at each operation.

#include "evaltreeset.hpp"
#include "random_formulas.hpp"
#include "support/alloc_fault.hpp"
#include "walk.hpp"

#include <gtest/gtest.h>
#include <limits>

using namespace qxtest;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr unsigned kReal = EvalValues | EvalKeepReal;
constexpr std::size_t kTile = 256; // of blocks that are longer than one tile

/// Positions around the edges of tiles: of short ones and of long ones.
std::vector<std::size_t> placesIn(std::size_t size)
{
    std::vector<std::size_t> places;
    for (const std::size_t p : {std::size_t(0), kTile / 4 - 1, kTile / 4, kTile - 1, kTile, 3 * kTile - 1, 3 * kTile, size - 1})
        if (p < size)
            places.push_back(p);
    return places;
}

std::vector<double> positiveNumbers(std::size_t size)
{
    std::vector<double> v(size);
    for (std::size_t i = 0; i < size; ++i)
        v[i] = 0.25 + 0.001 * static_cast<double>(i % 700);
    return v;
}

std::string firstDifference(const std::string& a, const std::string& b)
{
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i])
        ++i;
    const std::size_t from = i < 60 ? 0 : i - 60;
    return "..." + a.substr(from, 120) + "\n..." + b.substr(from, 120);
}

/// Evaluates twice and compares with the walk.
void expectWalk(EvalTree& tree, const HostPtr& host, unsigned flags, const std::string& what)
{
    const EvalNodePtr root = tree.getRoot(host);
    const std::size_t size = host->reals.empty() ? host->complexes.begin()->second.size() : host->reals.begin()->second.size();
    const ArrayAllocatorPtr allocator = boost::make_shared<SerialArrayAllocator>(std::max<std::size_t>(size, 64), 0);
    const std::string expected = stateOf(walk(root, host, makeCache(allocator), flags));
    for (int i = 0; i < 2; ++i) {
        const std::string state = stateOf(root->eval(host, makeCache(allocator), flags));
        ASSERT_TRUE(state == expected) << tree.getExpr() << " under flags " << flags << ", " << what << '\n'
                                       << firstDifference(state, expected);
    }
}

void expectWalk(const std::string& text, const HostPtr& host, unsigned flags, const std::string& what)
{
    expectWalk(*treeOf(text), host, flags, what);
}

} // namespace

TEST(Tiles, RandomFormulasHaveTheBitsOfTheWalkInBlocksOfAnySize)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<double> wide(-2.5, 2.5), positive(0.05, 2.5);
    const std::size_t sizes[] = {1, 7, 31, 32, 33, 64, 255, 256, 257, 600, 1000, 1024, 1025, 4096};
    const unsigned flagSets[] = {EvalValues, kReal, EvalValues | EvalIgnoreElementErrors, kReal | EvalIgnoreElementErrors};
    RandomFormulas formulas(77);
    for (int k = 0; k < 2000; ++k) {
        const std::string text = formulas(1 + k % 4);
        const std::size_t size = sizes[static_cast<std::size_t>(k) % std::size(sizes)] + (k % 14 == 0 ? 1 : 0);
        const HostPtr host = makeHost();
        const bool mild = k % 3 != 0; // no failures and nothing complex from most functions
        for (const char* name : {"x", "y"}) {
            if (k % 8 < 6 || (k % 8 == 6 && *name == 'x')) {
                auto& v = host->reals[name];
                for (std::size_t i = 0; i < size; ++i)
                    v.push_back(mild ? positive(random) : wide(random));
            } else {
                auto& v = host->complexes[name];
                for (std::size_t i = 0; i < size; ++i)
                    v.emplace_back(wide(random), random() % 4 == 0 ? 0.0 : wide(random));
            }
        }
        EvalTree tree(text, false);
        for (const unsigned flags : {flagSets[k % 4], flagSets[(k / 4 + 1) % 4]})
            expectWalk(tree, host, flags, std::to_string(size) + " points");
    }
}

TEST(Tiles, AFailureInAnyTileIsToldAsTheWalkTellsIt)
{
    const std::size_t size = 4 * kTile + 37;
    for (const char* text : {"log(x)*2+y", "(x+y)*sqrt(x)-1", "x^0.5+y*x", "asin(x-1)*y", "2*log(abs(y)+1)/sqrt(x)+mod(y,x)"})
        for (const std::size_t place : placesIn(size)) {
            const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
            host->reals["x"][place] = -1.5;
            expectWalk(text, host, kReal, "at " + std::to_string(place));
            expectWalk(text, host, kReal | EvalIgnoreElementErrors, "at " + std::to_string(place));
        }
}

TEST(Tiles, OfFailuresInSeveralTilesThatOfTheFirstOperationIsTold)
{
    const std::size_t size = 4 * kTile + 37;
    for (const std::size_t p : placesIn(size))
        for (const std::size_t q : placesIn(size)) {
            const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
            host->reals["x"][p] = -1.5;
            host->reals["y"][q] = -2.5;
            const std::string what = std::to_string(p) + " and " + std::to_string(q);
            expectWalk("log(x)+sqrt(y)", host, kReal, what);
            expectWalk("asin(y)*y+log10(x)", host, kReal, what);
        }
}

TEST(Tiles, AValueThatTurnsComplexInAnyTileMakesTheWholeBlockComplex)
{
    const std::size_t size = 4 * kTile + 37;
    for (const char* text : {"sqrt(x)", "sqrt(x)*y+1", "log(x)-y*log(x)", "y/(1+sqrt(x))", "abs(sqrt(x))+y", "x^0.5*y", "x^1.5",
                             "sqrt(x)*sqrt(x)", "real(log(x))*y", "exp(sqrt(x))", "sqrt(x)/3", "acosh(x+1)+asin(x)", "-sqrt(x)"})
        for (const std::size_t place : placesIn(size)) {
            const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
            expectWalk(text, host, EvalValues, "nowhere");
            host->reals["x"][place] = -1.5;
            expectWalk(text, host, EvalValues, "at " + std::to_string(place));
            expectWalk(text, host, EvalValues | EvalIgnoreElementErrors, "at " + std::to_string(place));
        }
}

TEST(Tiles, SeveralOperationsMayTurnComplexInDifferentTiles)
{
    const std::size_t size = 4 * kTile + 37;
    for (const std::size_t p : placesIn(size))
        for (const std::size_t q : placesIn(size)) {
            const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
            host->reals["x"][p] = -1.5;
            host->reals["y"][q] = -2.5;
            expectWalk("sqrt(x)+x*log(y)", host, EvalValues, std::to_string(p) + " and " + std::to_string(q));
        }
}

TEST(Tiles, ComplexNumbersThatTurnRealInTheWholeBlockAreRealAfterwards)
{
    const std::size_t size = 3 * kTile + 5;
    const HostPtr host = makeHost();
    auto &x = host->complexes["x"], &y = host->complexes["y"];
    for (std::size_t i = 0; i < size; ++i) {
        x.emplace_back(0.001 * static_cast<double>(i) - 0.3, 0.5);
        y.emplace_back(0.25, 0.0);
    }
    for (const char* text : {"abs(x)+y", "abs(x)*abs(x)-abs(y)", "real(x)*2-imag(x)", "x*conj(x)+1", "(x>y)*2", "sqrt(abs(x))", "(x-x)*x",
                             "realdot(x,x)^0.5", "x-x", "sqrt(real(x))*x"})
        expectWalk(text, host, EvalValues, "complex");
    x[size - 1] = {1.0, 0.0}; // one point on the axis
    expectWalk("x*conj(x)+sqrt(x)", host, EvalValues, "one real point");
}

TEST(Tiles, ADefinitionThatIsStoredComplexButRealIsRealToItsUsers)
{
    const std::size_t size = 3 * kTile + 5;
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}});
    host->definitions = {{"root", "sqrt(x)"}, {"half", "log(x)/2"}};
    for (const char* text : {"root", "root*2", "root+half*x", "root^2-half", "sqrt(root)", "root/half", "sin(root)*sin(root)"})
        expectWalk(text, host, EvalValues, "definitions");
}

TEST(Tiles, SpecialNumbersAreTakenAsTheWalkTakesThem)
{
    const double numbers[] = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 2.0, -2.0, 1e-320, -1e-320, 1e300, -1e300, kInf, -kInf, 3.0, -3.0};
    const HostPtr host = makeHost();
    std::vector<EvalTreePtr> trees;
    for (const auto& [name, f] : host->functions)
        if (f->nArgs() == 1 && !name.starts_with("bessel"))
            trees.push_back(treeOf(name + "(x)*y+" + name + "(y)"));
    for (const char* text : {"x^y", "x^0.5", "x^(-0.5)", "x^1.5-y", "atan2(x,y)", "mod(x,y)", "x/y", "1/x+y", "x^(-2)", "2^x"})
        trees.push_back(treeOf(text));
    for (const double a : numbers)
        for (const double b : numbers) {
            host->reals = {{"x", {a, a, 0.75, a}}, {"y", {b, b, b, 0.5}}};
            for (const EvalTreePtr& tree : trees)
                expectWalk(*tree, host, EvalValues, std::to_string(a) + ", " + std::to_string(b));
        }
}

TEST(Tiles, InfinitiesOfBothSignsInDifferentTilesCountAsANaNInASumAsInOneTile)
{
    const std::size_t size = 4 * kTile + 37;
    for (const std::size_t p : placesIn(size))
        for (const std::size_t q : placesIn(size)) {
            const HostPtr host = makeHost({{"x", std::vector<double>(size, 1.5)}, {"y", std::vector<double>(size, 401.0)}});
            host->reals["x"][p] = -10.0;
            host->reals["x"][q] = 10.0;
            const std::string what = std::to_string(p) + " and " + std::to_string(q);
            EXPECT_EQ(evalText("x^y", host, kReal)->isNaN(), p != q) << what;
            expectWalk("x^y", host, kReal, what);
            expectWalk("x^y+1", host, kReal | EvalIgnoreElementErrors, what);
            host->reals["x"][p] = 0.0;
            host->reals["x"][q] = kInf;
            expectWalk("2*log(x)", host, kReal, what);
        }
}

TEST(Tiles, LeaveTheValuesOfVariablesAloneWhenTheyFail)
{
    const std::size_t size = 4 * kTile;
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}});
    host->reals["x"][size - 1] = -1;
    const ValRepCachePtr cache = makeCache();
    const EvalTreePtr tree = treeOf("(x*2+1)*log(x)");
    EXPECT_TRUE(tree->eval(host, cache, kReal)->isNaN());
    const ValRepPtr x = cache->getVar("x", kReal).second;
    EXPECT_TRUE(std::equal(host->reals["x"].begin(), host->reals["x"].end(), x->getDoubleIterator(0)));
    EXPECT_EQ(host->evaluations["x"], 1);
}

TEST(Tiles, AskEachLeafOncePerBlock)
{
    const std::size_t size = 10 * kTile;
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
    for (const char* text : {"x*y+x", "sqrt(x-0.3)*y", "log(x-0.3)+y"}) {
        host->evaluations.clear();
        evalText(text, host);
        EXPECT_EQ(host->evaluations["x"], 1) << text;
        EXPECT_EQ(host->evaluations["y"], 1) << text;
    }
}

TEST(Tiles, TouchNoAllocatorInTheSteadyState)
{
    const std::size_t size = 20 * kTile;
    const auto allocator = boost::make_shared<SerialArrayAllocator>(size, 0);
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
    host->complexes = {{"z", std::vector<cplx>(size, {0.5, 0.25})}};
    const ValRepCachePtr cache = makeCache(allocator);
    for (const char* text : {"x*y+2*x", "sqrt(x)", "log(x)*y", "sqrt(x-0.4)*y+x", "z*x+z", "abs(z)*y", "exp(z)*conj(z)"}) {
        const EvalTreePtr tree = treeOf(text);
        const auto pass = [&] {
            cache->reset();
            tree->eval(host, cache, EvalValues);
        };
        pass();
        pass();
        const long before = allocationCount();
        pass();
        EXPECT_EQ(allocationCount() - before, 0) << text;
    }
}

TEST(Tiles, SurviveEveryAllocationFailure)
{
    const std::size_t size = 2 * kTile + 9;
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}});
    host->complexes = {{"z", std::vector<cplx>(size, {0.5, 0.25})}};
    const std::string text = "sqrt(x-0.4)*z+abs(z)*log(x)", expected = stateOf(evalText(text, host));
    failEveryAllocation([&] { stateOf(treeOf(text)->eval(host, makeCache(), EvalValues)); },
                        [&](const FaultRun& run) {
                            EXPECT_EQ(stateOf(treeOf(text)->eval(host, makeCache(), EvalValues)), expected) << run.n;
                        });
}

TEST(Tiles, SetsOfTreesShareThem)
{
    const std::size_t size = 3 * kTile + 1;
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
    const std::vector<std::string> texts{"sqrt(x)", "sqrt(x)*y", "sqrt(x)*y+log(y)", "x", "log(y)", "x*y"};
    for (const double special : {0.5, -1.0}) {
        host->reals["x"][kTile] = special;
        std::vector<EvalTreePtr> trees;
        for (const std::string& text : texts)
            trees.push_back(treeOf(text));
        EvalTreeSet set(trees);
        for (const unsigned flags : {unsigned(EvalValues), kReal}) {
            std::vector<ValRepPtr> values;
            set.eval(host, makeCache(), flags, values);
            for (std::size_t i = 0; i < texts.size(); ++i) {
                const std::string state = stateOf(values[i]), expected = stateOf(evalText(texts[i], host, flags));
                EXPECT_TRUE(state == expected) << texts[i] << ' ' << special << ' ' << flags << '\n'
                                               << firstDifference(state, expected);
            }
        }
    }
}

TEST(Tiles, BlocksBeyondTheCacheHaveTheBitsOfTheWalk)
{
    const std::size_t size = (std::size_t(1) << 17) + 301;
    const HostPtr host = makeHost({{"x", positiveNumbers(size)}, {"y", positiveNumbers(size)}});
    expectWalk("0.7*x+1.3*y+sqrt(x)*y", host, EvalValues, "all real");
    host->reals["x"][size - 1] = -1.5;
    expectWalk("sqrt(x)*y+1", host, EvalValues, "the last turns complex");
    expectWalk("log(x)*y+1", host, kReal, "the last fails");
}

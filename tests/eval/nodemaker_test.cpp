// SPDX-License-Identifier: LicenseRef-qxkernel
#include "derivativenodes.hpp"
#include "funfactory.hpp"
#include "host.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <omp.h>
#include <pthread.h>

using namespace qxtest;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

class NodeMakerTest : public testing::Test
{
protected:
    NodeMakerPtr maker = boost::make_shared<NodeMaker>();
    EvalNodePtr x = maker->makeVarNode("x");
    EvalNodePtr y = maker->makeVarNode("y");

    EvalNodePtr num(double v) { return maker->makeConstNode(v); }
    double constant(const EvalNodePtr& node)
    {
        double v = notANumber;
        EXPECT_TRUE(node->isRealScalar(v)) << *node;
        return v;
    }
};

/// The operation behind a proxy.
const OpNode& operation(const EvalNodePtr& node)
{
    const auto& proxy = dynamic_cast<const ProxyNode&>(*node);
    return dynamic_cast<const OpNode&>(*proxy.getTarget());
}

} // namespace

using NodeMakerConstants = NodeMakerTest;
using NodeMakerFolding = NodeMakerTest;
using NodeMakerSharing = NodeMakerTest;

// Constants ----------------------------------------------------------------------------------------------------------

TEST_F(NodeMakerConstants, AreTheSharedNodesForZeroOneAndMinusOne)
{
    EXPECT_EQ(num(0), maker->makeZeroNode());
    EXPECT_EQ(num(1), maker->makeUnitNode());
    EXPECT_EQ(num(-1), maker->makeNUnitNode());
    EXPECT_EQ(maker->makeZeroNode()->getId(), 0u);
    EXPECT_EQ(maker->makeUnitNode()->getId(), 1u);
    EXPECT_EQ(maker->makeNUnitNode()->getId(), 2u);
    EXPECT_TRUE(num(0)->isZero());
    EXPECT_TRUE(num(1)->isUnit());
    EXPECT_TRUE(num(-1)->isNUnit());
}

TEST_F(NodeMakerConstants, RequiredQuirkMinusZeroIsTheZeroNode)
{
    EXPECT_EQ(num(-0.0), maker->makeZeroNode());
}

TEST_F(NodeMakerConstants, AreOneNodePerNumber)
{
    EXPECT_EQ(num(2.5), num(2.5));
    EXPECT_NE(num(2.5), num(-2.5));
    EXPECT_EQ(num(notANumber), num(-std::nan("7")));
    EXPECT_EQ(maker->makeConstNode(cplx(1, 2)), maker->makeConstNode(cplx(1, 2)));
    EXPECT_NE(maker->makeConstNode(cplx(1, 2)), maker->makeConstNode(cplx(2, 1)));
}

TEST_F(NodeMakerConstants, WithZeroImaginaryPartShareTheRealTable)
{
    EXPECT_EQ(maker->makeConstNode(cplx(2.5, 0)), num(2.5));
    EXPECT_EQ(maker->makeConstNode(cplx(0, 0)), maker->makeZeroNode());
}

TEST_F(NodeMakerConstants, AreReadFromText)
{
    EXPECT_EQ(maker->makeConstNode(std::string("2.5e1")), num(25));
    EXPECT_EQ(maker->makeConstNode(std::string("no number")), num(notANumber));
    EXPECT_EQ(maker->makeConstNode(std::string("0x1F")), num(31));
    EXPECT_EQ(maker->makeConstNode(std::string(" 0x1.8p1 metres")), num(3));
    EXPECT_EQ(maker->makeConstNode(std::string("+.5e1x")), num(5));
    EXPECT_EQ(maker->makeConstNode(std::string("-inf")), num(-std::numeric_limits<double>::infinity()));
    EXPECT_EQ(maker->makeConstNode(std::string("")), num(notANumber));
}

TEST_F(NodeMakerConstants, AreTakenFromValues)
{
    EXPECT_EQ(maker->makeConstNode(boost::make_shared<ValRep>(2.5)), num(2.5));
    EXPECT_EQ(maker->makeConstNode(boost::make_shared<ValRep>(cplx(1, 2))), maker->makeConstNode(cplx(1, 2)));
    EXPECT_EQ(maker->makeConstNode(ValRep::makeZero()), maker->makeZeroNode());

    const auto twoBlocks = boost::make_shared<ValRep>();
    boost::shared_ptr<double> out;
    twoBlocks->addDScalar(out);
    *out = 3;
    twoBlocks->addDScalar(out);
    *out = 4;
    twoBlocks->setEvaluated();
    const EvalNodePtr node = maker->makeConstNode(twoBlocks);
    EXPECT_TRUE(node->isScalar());
    EXPECT_EQ(node->getScalar()->getNBlocks(), 2u);
    EXPECT_NE(node, maker->makeConstNode(twoBlocks));
    EXPECT_NE(node->getScalar(), twoBlocks) << "the value is a private clone";
}

// Folding ------------------------------------------------------------------------------------------------------------

struct UnaryCase
{
    FunId id;
    double argument;
    double expected;
};

class NodeMakerUnaryFold : public NodeMakerTest, public testing::WithParamInterface<UnaryCase>
{
};

TEST_P(NodeMakerUnaryFold, GivesTheConstant)
{
    const UnaryCase& c = GetParam();
    EXPECT_DOUBLE_EQ(constant(maker->makeOpNode(c.id, num(c.argument))), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    AllOperators, NodeMakerUnaryFold,
    testing::Values(UnaryCase{ABS, -2.5, 2.5}, UnaryCase{ABS, 0, 0}, UnaryCase{ABS, -inf, inf}, UnaryCase{COS, 0, 1},
                    UnaryCase{COS, 2.5, std::cos(2.5)}, UnaryCase{EXP, 1, std::exp(1.0)}, UnaryCase{EXP, -inf, 0},
                    UnaryCase{LOG, 2.5, std::log(2.5)}, UnaryCase{POW2, -2.5, 6.25}, UnaryCase{POW3, -2.5, -15.625},
                    UnaryCase{POW4, -2.5, 39.0625}, UnaryCase{SIN, 2.5, std::sin(2.5)}, UnaryCase{SQRT, 2.5, std::sqrt(2.5)},
                    UnaryCase{SQRT, 0, 0}, UnaryCase{SQRT, inf, inf}, UnaryCase{UMINUS, 2.5, -2.5},
                    UnaryCase{UMINUS, 1, -1}, UnaryCase{NOT, 0, 1}, UnaryCase{NOT, -2.5, 0}, UnaryCase{SIGN, -2.5, -1},
                    UnaryCase{POWM1, 4, 0.25}, UnaryCase{POWM2, 2, 0.25}));

struct BinaryCase
{
    FunId id;
    double a, b;
    double expected;
};

class NodeMakerBinaryFold : public NodeMakerTest, public testing::WithParamInterface<BinaryCase>
{
};

TEST_P(NodeMakerBinaryFold, GivesTheConstant)
{
    const BinaryCase& c = GetParam();
    EXPECT_DOUBLE_EQ(constant(maker->makeOpNode(c.id, num(c.a), num(c.b))), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    AllOperators, NodeMakerBinaryFold,
    testing::Values(BinaryCase{GE, 2, 2, 1}, BinaryCase{GE, 1, 2, 0}, BinaryCase{GT, 2, 2, 0}, BinaryCase{GT, 3, 2, 1},
                    BinaryCase{LE, 2, 2, 1}, BinaryCase{LE, 3, 2, 0}, BinaryCase{LT, 2, 2, 0}, BinaryCase{LT, 1, 2, 1},
                    BinaryCase{EQ, 2, 2, 1}, BinaryCase{EQ, 2, 3, 0}, BinaryCase{NE, 2, 3, 1}, BinaryCase{AND, 2, 0, 0},
                    BinaryCase{AND, 2, 3, 1}, BinaryCase{OR, 0, 0, 0}, BinaryCase{OR, 0, 3, 1},
                    BinaryCase{PLUS, 2.5, -2.5, 0}, BinaryCase{PLUS, 2, 3, 5}, BinaryCase{MINUS, 2, 3, -1},
                    BinaryCase{TIMES, 2.5, 4, 10}, BinaryCase{DIV, 1, 4, 0.25}, BinaryCase{DIV, 1, 0, inf},
                    BinaryCase{DIV, -2, 0, -inf}, BinaryCase{POW, 2, 3, 8}, BinaryCase{POW, 2, 0.5, std::sqrt(2.0)},
                    BinaryCase{POW, 2, -2, 0.25}, BinaryCase{PLUSSQ, 3, 4, 25}, BinaryCase{PLUS, inf, 1, inf}));

// One implementation serves numbers and arrays: a folded constant has the bits that evaluation gives at every point.
TEST_F(NodeMakerFolding, GivesTheBitsOfEvaluationForEveryOperatorAndKindOfConstant)
{
    const HostPtr host = boost::make_shared<Host>(maker);
    const cplx kinds[] = {0.0, 1.0, -1.0, 2.5, -2.5, inf, notANumber, cplx(0.5, -1.5)};
    const auto set = [&](const char* name, cplx value, bool array) {
        host->reals.erase(name);
        host->complexes.erase(name);
        const std::size_t points = array ? 3 : 1;
        if (value.imag() == 0)
            host->reals[name].assign(points, value.real());
        else
            host->complexes[name].assign(points, value);
    };
    const auto sameBits = [](double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; };
    const auto compare = [&](const EvalNodePtr& folded, const EvalNodePtr& unfolded, const std::string& what) {
        const ValRepPtr value = unfolded->eval(host, makeCache(), EvalValues | EvalKeepReal);
        if (value->isNaN()) { // stays an operation, which tells it; the root of a NaN is a NaN without complaint
            EXPECT_TRUE(!folded->isScalar() || std::isnan(folded->getScalar()->getDouble())) << what;
            return;
        }
        ASSERT_TRUE(folded->isScalar()) << what;
        const cplx constant = folded->getScalar()->getComplex();
        const CValRepReaderPtr read = value->getComplexReader();
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(sameBits(constant.real(), (*read)(i, 0).real()) && sameBits(constant.imag(), (*read)(i, 0).imag()))
                << what << ": " << constant << " and " << (*read)(i, 0);
    };

    for (int n = ABS; n <= UPLUS; ++n) {
        const auto id = static_cast<FunId>(n);
        for (const cplx a : kinds)
            for (const bool array : {false, true}) {
                set("x", a, array);
                std::ostringstream what;
                what << "operator " << n << " of " << a << (array ? " at three points" : "");
                if (funArity(id) == 1) {
                    compare(maker->makeOpNode(id, maker->makeConstNode(a)), maker->makeOpNode(id, x), what.str());
                    continue;
                }
                for (const cplx b : kinds) {
                    if (id == TIMES && (a == 0.0 || b == 0.0))
                        continue; // the identity wins over infinities and NaN
                    set("y", b, array);
                    const EvalNodePtr right = maker->makeConstNode(b); // a power of x by it, as a formula has it
                    compare(maker->makeOpNode(id, maker->makeConstNode(a), right),
                            maker->makeOpNode(id, x, id == POW ? right : y), what.str() + " and " + std::to_string(b.real()));
                }
            }
    }
}

TEST_F(NodeMakerFolding, ReturnsTheOperandOfUnaryPlus)
{
    EXPECT_EQ(maker->makeOpNode(UPLUS, x), x);
    EXPECT_EQ(maker->makeOpNode(maker->idToFun(UPLUS, 1), x), x);
}

TEST_F(NodeMakerFolding, LeavesRootsAndLogarithmsOfNegativeNumbersToEvaluation)
{
    for (const FunId id : {SQRT, LOG}) {
        const EvalNodePtr node = maker->makeOpNode(id, num(-2));
        EXPECT_FALSE(node->isScalar());
        EXPECT_EQ(operation(node).getFun(), maker->idToFun(id, 1));
    }
    EXPECT_FALSE(maker->makeOpNode(SQRT, num(-1))->isScalar());
}

TEST_F(NodeMakerFolding, RequiredQuirkCosineOfInfinityIsAConstantNaN)
{
    const EvalNodePtr node = maker->makeOpNode(COS, num(inf));
    ASSERT_TRUE(node->isScalar());
    EXPECT_FALSE(node->getScalar()->isNaN());
    EXPECT_TRUE(std::isnan(node->getScalar()->getDouble()));
}

TEST_F(NodeMakerFolding, RequiredQuirkPolesOfConstantsDifferBetweenDivisionAndPower)
{
    EXPECT_EQ(constant(maker->makeOpNode(DIV, num(1), num(0))), inf);
    EXPECT_EQ(constant(maker->makeOpNode(POW, num(0), num(-1))), 0);
    const EvalNodePtr indefinite = maker->makeOpNode(DIV, num(0), num(0));
    EXPECT_TRUE(indefinite->isScalar());
}

TEST_F(NodeMakerFolding, FoldsComplexConstants)
{
    const EvalNodePtr z = maker->makeConstNode(cplx(1, 2));
    EXPECT_EQ(maker->makeOpNode(TIMES, z, z), maker->makeConstNode(cplx(-3, 4)));
    EXPECT_EQ(maker->makeOpNode(PLUS, z, maker->makeConstNode(cplx(1, -2))), num(2));
    EXPECT_EQ(constant(maker->makeOpNode(ABS, maker->makeConstNode(cplx(3, 4)))), 5);
}

TEST_F(NodeMakerFolding, UsesTheIdentitiesOfZeroAndOne)
{
    const EvalNodePtr zero = num(0), one = num(1), minusOne = num(-1);
    EXPECT_EQ(maker->makeOpNode(PLUS, zero, x), x);
    EXPECT_EQ(maker->makeOpNode(PLUS, x, zero), x);
    EXPECT_EQ(maker->makeOpNode(MINUS, x, zero), x);
    EXPECT_EQ(maker->makeOpNode(MINUS, zero, x), maker->makeOpNode(UMINUS, x));
    EXPECT_EQ(maker->makeOpNode(TIMES, zero, x), zero);
    EXPECT_EQ(maker->makeOpNode(TIMES, x, zero), zero);
    EXPECT_EQ(maker->makeOpNode(TIMES, one, x), x);
    EXPECT_EQ(maker->makeOpNode(TIMES, x, one), x);
    EXPECT_EQ(maker->makeOpNode(TIMES, minusOne, x), maker->makeOpNode(UMINUS, x));
    EXPECT_EQ(maker->makeOpNode(TIMES, x, minusOne), maker->makeOpNode(UMINUS, x));
}

TEST_F(NodeMakerFolding, LetsIdentitiesWinOverPoles)
{
    const EvalNodePtr pole = maker->makeOpNode(DIV, num(1), maker->makeOpNode(MINUS, x, x));
    EXPECT_EQ(maker->makeOpNode(TIMES, num(0), pole), maker->makeZeroNode());
}

TEST_F(NodeMakerFolding, RequiredQuirkKnowsNoOtherIdentities)
{
    for (const EvalNodePtr& node :
         {maker->makeOpNode(MINUS, x, x), maker->makeOpNode(DIV, x, x), maker->makeOpNode(DIV, x, num(1)),
          maker->makeOpNode(DIV, num(0), x), maker->makeOpNode(POW, x, num(0)), maker->makeOpNode(POW, x, num(1))})
        EXPECT_EQ(operation(node).getArgs().size(), 2u) << *node;
}

TEST_F(NodeMakerFolding, TurnsWholePowersIntoTheSharedObjects)
{
    for (const auto& [e, id] : {std::pair(-2.0, POWM2), {-1.0, POWM1}, {2.0, POW2}, {3.0, POW3}, {4.0, POW4}}) {
        const EvalNodePtr node = maker->makeOpNode(POW, x, num(e));
        EXPECT_EQ(operation(node).getFun(), maker->idToFun(id, 1)) << e;
        EXPECT_EQ(node, maker->makeOpNode(id, x));
    }
    for (const double e : {2.0000001, 5.0, 0.5, inf})
        EXPECT_EQ(operation(maker->makeOpNode(POW, x, num(e))).getFun(), maker->idToFun(POW, 2)) << e;
}

TEST_F(NodeMakerFolding, SquaresAProductOfEqualFactors)
{
    EXPECT_EQ(maker->makeOpNode(TIMES, x, x), maker->makeOpNode(POW2, x));
}

TEST_F(NodeMakerFolding, LeavesRealConstantsThatWouldTurnComplexToEvaluation)
{
    const FunObjPtr root = makeFunObj(SQRT);
    EXPECT_FALSE(maker->makeOpNode(root, num(-1))->isScalar());
    EXPECT_EQ(constant(maker->makeOpNode(root, num(4))), 2);
    EXPECT_EQ(maker->makeOpNode(root, maker->makeConstNode(cplx(-3, 4))), maker->makeConstNode(cplx(1, 2)));
}

TEST_F(NodeMakerFolding, KnowsTheIdentitiesOfObjectsByName)
{
    const FunObjPtr plus = makeFunObj(PLUS), times = makeFunObj(TIMES);
    EXPECT_EQ(maker->makeOpNode(plus, num(0), x), x);
    EXPECT_EQ(maker->makeOpNode(plus, x, num(0)), x);
    EXPECT_EQ(maker->makeOpNode(times, EvalNodes{x, num(0)}), num(0));
    EXPECT_EQ(maker->makeOpNode(times, num(1), x), x);
    EXPECT_EQ(maker->makeOpNode(times, x, num(-1)), maker->makeOpNode(UMINUS, x));
    const FunObjPtr minus = makeFunObj(MINUS);
    EXPECT_NE(maker->makeOpNode(minus, x, num(0)), x);
}

// Sharing ------------------------------------------------------------------------------------------------------------

TEST_F(NodeMakerSharing, MakesOneNodeOfEqualOperations)
{
    const EvalNodePtr sum = maker->makeOpNode(PLUS, x, y);
    EXPECT_FALSE(dynamic_cast<const ProxyNode&>(*sum).isShared());
    EXPECT_EQ(maker->makeOpNode(PLUS, x, y), sum);
    EXPECT_TRUE(dynamic_cast<const ProxyNode&>(*sum).isShared());
    EXPECT_EQ(maker->makeOpNode(PLUS, y, x), sum) << "sums and products do not know an order";
    EXPECT_EQ(maker->makeOpNode(TIMES, y, x), maker->makeOpNode(TIMES, x, y));
    EXPECT_NE(maker->makeOpNode(MINUS, y, x), maker->makeOpNode(MINUS, x, y));
}

TEST_F(NodeMakerSharing, RequiredQuirkSumsAndProductsPrintInTheOrderInWhichTheirOperandsWereMade)
{
    ASSERT_LT(x->getId(), y->getId());
    EXPECT_EQ(textOf(maker->makeOpNode(PLUS, y, x)), "(x+y)");
    EXPECT_EQ(textOf(maker->makeOpNode(TIMES, y, x)), "(x*y)");
    EXPECT_EQ(textOf(maker->makeOpNode(MINUS, y, x)), "(y-x)");
}

TEST_F(NodeMakerSharing, GivesAProxyItsOwnIdAfterItsOperation)
{
    const EvalNodePtr sum = maker->makeOpNode(PLUS, x, y);
    EXPECT_EQ(sum->getId(), operation(sum).getId() + 1);
}

TEST_F(NodeMakerSharing, MakesOneNodeOfEachVariable)
{
    EXPECT_EQ(maker->makeVarNode("x"), x);
    EXPECT_NE(x, y);
}

TEST_F(NodeMakerSharing, LeavesOperationsOfObjectsUnshared)
{
    const FunObjPtr f = makeFunObj(SIN);
    EXPECT_NE(maker->makeOpNode(f, x), maker->makeOpNode(f, x));
}

TEST_F(NodeMakerSharing, MakesOneNodeOfHostOperatorsOfUpToThreeArguments)
{
    EXPECT_EQ(maker->makeGenOpNode("op", {}), maker->makeGenOpNode("op", {}));
    EXPECT_EQ(maker->makeGenOpNode("op", {x, y, x}), maker->makeGenOpNode("op", {x, y, x}));
    EXPECT_NE(maker->makeGenOpNode("op", {x, y, x}), maker->makeGenOpNode("op", {x, x, y}));
    EXPECT_NE(maker->makeGenOpNode("op", {x}), maker->makeGenOpNode("po", {x}));
    EXPECT_NE(maker->makeGenOpNode("op", {maker->makeZeroNode()}), maker->makeGenOpNode("op", {}));
    EXPECT_NE(maker->makeGenOpNode("op", {x, y, x, y}), maker->makeGenOpNode("op", {x, y, x, y}));
    EXPECT_NE(maker->makeGenOpNodeRaw("op", {x}), maker->makeGenOpNodeRaw("op", {x}));
}

TEST_F(NodeMakerSharing, MakesOneNodeOfEqualDerivativesAndTests)
{
    EXPECT_EQ(maker->makeDiffNode(x, y, 0), maker->makeDiffNode(x, y, 0));
    EXPECT_NE(maker->makeDiffNode(x, y, 0), maker->makeDiffNode(x, y, 1));
    EXPECT_EQ(maker->makeDepNode(x, y), maker->makeDepNode(x, y));
    EXPECT_NE(maker->makeDepNode(x, y), maker->makeJacDepNode(x, y));
    EXPECT_EQ(maker->makeUDepNode(x), maker->makeUDepNode(x));
    EXPECT_EQ(maker->makeJacUDepNode(x), maker->makeJacUDepNode(x));
    EXPECT_EQ(maker->makeVarDiffNode(x, "x", "t"), maker->makeVarDiffNode(x, "x", "t"));
    EXPECT_NE(maker->makeVarDiffNode(x, "x", "t"), maker->makeVarDiffNode(x, "x", "s"));
}

TEST_F(NodeMakerSharing, WipesAFullTableAndKeepsValues)
{
    const HostPtr host = boost::make_shared<Host>(maker);
    host->reals["x"] = {2.0};
    const EvalNodePtr early = maker->makeOpNode(MINUS, x, num(0.5));
    // 16384 entries fit, the next request wipes; the limit is tested before the insertion.
    for (int i = 1; i < 16384; ++i)
        maker->makeOpNode(MINUS, x, num(i + 1.0));
    EXPECT_EQ(maker->makeOpNode(MINUS, x, num(0.5)), early);
    for (int i = 0; i < 100; ++i)
        maker->makeOpNode(MINUS, x, num(i + 0.25));
    const EvalNodePtr late = maker->makeOpNode(MINUS, x, num(0.5));
    EXPECT_NE(late, early);
    EXPECT_EQ(early->eval(host, makeCache(), EvalValues)->getDouble(), 1.5);
    EXPECT_EQ(late->eval(host, makeCache(), EvalValues)->getDouble(), 1.5);
}

TEST_F(NodeMakerSharing, MakesOneTreeOfANodeUntilTheTableIsWiped)
{
    const EvalTreePtr tree = maker->makeTree(x);
    EXPECT_EQ(maker->makeTree(x), tree);
    EXPECT_EQ(maker->makeNamedTree(x, "a"), maker->makeNamedTree(x, "a"));
    EXPECT_NE(maker->makeNamedTree(x, "a"), maker->makeNamedTree(x, "b"));
    EXPECT_EQ(maker->makeNamedTree(x, "a")->getExpr(), "a");
    for (int i = 0; i < 16500; ++i)
        maker->makeTree(num(i + 0.5));
    EXPECT_NE(maker->makeTree(x), tree);
}

TEST_F(NodeMakerSharing, EndsWithAReset)
{
    const EvalNodePtr sum = maker->makeOpNode(PLUS, x, y);
    const EvalNodePtr constant = num(2.5);
    const HostPtr host = boost::make_shared<Host>(maker);
    host->reals = {{"x", {1.0}}, {"y", {2.0}}};
    EvalTree old("x+y", false);
    old.parse(host);

    maker->reset();

    const EvalNodePtr newX = maker->makeVarNode("x");
    EXPECT_NE(newX, x);
    EXPECT_GT(newX->getId(), constant->getId());
    EXPECT_NE(maker->makeOpNode(PLUS, x, y), sum);
    EXPECT_NE(num(2.5), constant);
    EXPECT_EQ(num(1), maker->makeUnitNode());
    EXPECT_EQ(old.eval(host, makeCache(), EvalValues)->getDouble(), 3.0);
}

TEST_F(NodeMakerSharing, GivesTwoThreadsOfATeamTwoEqualNodes)
{
    EvalNodePtr nodes[2];
#pragma omp parallel num_threads(2)
    nodes[omp_get_thread_num() & 1] = maker->makeOpNode(PLUS, x, y);
    if (!nodes[1])
        GTEST_SKIP() << "no team of two threads";
    EXPECT_NE(nodes[0], nodes[1]);
    EXPECT_EQ(textOf(nodes[0]), textOf(nodes[1]));
}

TEST_F(NodeMakerSharing, IsSafeOnThreadsThatHaveTheSameNumber)
{
    // Threads outside of any parallel region all have the number 0.
    struct Job
    {
        NodeMaker& maker;
        double sum = 0;
    };
    const auto work = [](void* argument) -> void* {
        Job& job = *static_cast<Job*>(argument);
        const EvalNodePtr v = job.maker.makeVarNode("v");
        for (int i = 2; i < 3000; ++i) {
            const EvalNodePtr node = job.maker.makeOpNode(PLUS, job.maker.makeConstNode(double(i)), v);
            double number = 0;
            operation(node).getArgs()[0]->isRealScalar(number);
            operation(node).getArgs()[1]->isRealScalar(number);
            job.sum += number;
            if (i % 500 == 0)
                job.maker.reset();
        }
        return nullptr;
    };
    std::vector<Job> jobs(8, Job{*maker});
    std::vector<pthread_t> threads(8);
    for (std::size_t i = 0; i < threads.size(); ++i)
        ASSERT_EQ(pthread_create(&threads[i], nullptr, work, &jobs[i]), 0);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    for (const Job& job : jobs)
        EXPECT_EQ(job.sum, 2999.0 * 3000 / 2 - 1);
}

// Errors -------------------------------------------------------------------------------------------------------------

TEST_F(NodeMakerTest, RaisesForOperatorsOfAnotherArity)
{
    EXPECT_EQ(raisedId([&] { maker->idToFun(PLUS, 1); }), "Evaluation_internal_error");
    EXPECT_EQ(raisedId([&] { maker->idToFun(SIN, 2); }), "Evaluation_internal_error");
    EXPECT_EQ(raisedId([&] { maker->idToFun(SIN, 3); }), "Evaluation_internal_error");
    EXPECT_EQ(raisedId([&] { maker->idToFun(FunId(0), 1); }), "Evaluation_internal_error");
    EXPECT_EQ(raisedId([&] { maker->idToFun(FunId(30), 2); }), "Evaluation_internal_error");
    EXPECT_EQ(raisedId([&] { maker->makeOpNode(PLUS, EvalNodes{x, y, x}); }), "Evaluation_internal_error");
    EXPECT_EQ(raisedId([&] { maker->makeOpNode(PLUS, EvalNodes{}); }), "Evaluation_internal_error");
}

TEST_F(NodeMakerTest, HasAnObjectForEveryOperator)
{
    for (int id = ABS; id <= UPLUS; ++id)
        EXPECT_EQ(maker->idToFun(FunId(id), funArity(FunId(id)))->nArgs(), funArity(FunId(id)));
}

// The compiler's own time, and its interpreter against muParser at one point a call.

#include "evaluation_host.hpp"
#include "harness.hpp"

#include "exprcomp.hpp"

#include <cmath>
#include <memory>
#include <muParser.h>
#include <random>

using namespace qxbench;

namespace {

// Arithmetic on three inputs and ten constants; operands among the last thousand definitions, many of them alive at once.
void feed(ExprComp& comp, int n, unsigned seed)
{
    std::mt19937 random(seed);
    const auto pick = [&](int m) { return static_cast<int>(random() % static_cast<unsigned>(m)); };
    for (int i = 0; i < 3; ++i)
        comp.addInput(-1 - i);
    for (int i = 0; i < 10; ++i)
        comp.addDef(i, 0.5 + 0.25 * i);
    const int kinds[] = {ExprComp::Plus, ExprComp::Minus, ExprComp::Times, ExprComp::Max};
    for (int i = 10; i < n; ++i) {
        const auto operand = [&] { return pick(5) == 0 ? -1 - pick(3) : i - 1 - pick(std::min(i, 1000)); };
        const int a = i - 1;
        comp.addDef(i, kinds[pick(4)], a, operand());
    }
    comp.addOutput(n - 1);
}

void compileList(int n)
{
    static unsigned seed = 0;
    ExprComp comp;
    feed(comp, n, seed++ % 5);
    std::vector<unsigned char> bytes;
    comp.compile("B", "f", bytes, false);
    keep(bytes.size());
}

void benchCompile()
{
    for (const int n : {10000, 100000, 1000000}) {
        const int tenth = n / 10;
        BENCH("compile, passes to bytes; peer: a tenth of the size ten times/" + std::to_string(n))
            .ours([&] { compileList(n); })
            .items(n, "definitions")
            .peer("ten tenths", [&] {
                for (int i = 0; i < 10; ++i)
                    compileList(tenth);
            })
            .atMost(1.1)
            .fastest();
    }
}

struct Formula
{
    const char* name;
    std::string text;
    double goal;
};

std::string polynomial()
{
    std::string text = "0.5";
    for (int i = 1; i < 200; ++i)
        text += "+" + std::to_string(i) + "*x^" + std::to_string(2 + i % 3) + "*y";
    return text;
}

void benchInterpreter()
{
    const std::vector<Formula> formulas{
        {"linear", "0.7*x+1.3*y+2.1", 0.7},
        {"squares", "x^2+y^2", 0.7},
        {"comparison", "(x>0.5)*x*(1-x)+abs(y)", 0.7},
        {"polynomial of 200 terms", polynomial(), 0.7},
        {"elementary", "sin(x)*exp(-y^2)+sqrt(x^2+y^2+1)", 1.0},
        {"wave packet", "exp(-((x-0.5)^2+(y-0.5)^2)/0.02)*cos(10*x)*cos(10*y)", 1.0},
        {"material law",
         "(350+275*sqrt(x))*(1+0.022*log(1+y))*(1-((x-0.293)/1.207)^2)+(350+275*sqrt(x))*0.022*((x-0.293)/1.207)/(1+y)", 1.0}};
    constexpr int points = 1000;
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(0.01, 1.0);
    std::vector<double> x(points), y(points), ours(points), theirs(points);
    for (int i = 0; i < points; ++i) {
        x[static_cast<std::size_t>(i)] = uniform(random);
        y[static_cast<std::size_t>(i)] = uniform(random);
    }
    for (const Formula& formula : formulas) {
        const auto host = boost::make_shared<ColumnHost>(1, boost::make_shared<SerialArrayAllocator>(1, 0));
        ExprComp comp;
        DefIds names;
        int nextId = 0;
        for (const char* name : {"x", "y"}) {
            names.insert(name, nextId);
            comp.addInput(nextId++);
        }
        comp.addOutput(EvalTree(formula.text, false).getRoot(host)->createDefs(comp, names, nextId, host));
        std::vector<unsigned char> bytes;
        comp.compile("B", "f", bytes, false);

        double vx = 0, vy = 0;
        mu::Parser parser;
        parser.DefineVar("x", &vx);
        parser.DefineVar("y", &vy);
        parser.DefineFun("log", static_cast<double (*)(double)>(std::log), true);
        parser.SetExpr(formula.text);
        std::vector<double> in(2), out(1);
        BENCH(std::string("ExprComp::eval, one point a call/") + formula.name)
            .ours([&] {
                for (std::size_t i = 0; i < points; ++i) {
                    in[0] = x[i];
                    in[1] = y[i];
                    comp.eval(in, out);
                    ours[i] = out[0];
                }
            })
            .items(points, "points")
            .peer("muParser", [&] {
                for (std::size_t i = 0; i < points; ++i) {
                    vx = x[i];
                    vy = y[i];
                    theirs[i] = parser.Eval();
                }
            })
            .check([&] {
                double largest = 0;
                for (std::size_t i = 0; i < points; ++i)
                    largest = std::max(largest, std::abs(ours[i] - theirs[i]) / (1 + std::abs(theirs[i])));
                return largest;
            }, 1e-13)
            .atMost(formula.goal)
            .fastest();
    }
}

} // namespace

void qxbench::benchmarks()
{
    benchCompile();
    benchInterpreter();
}

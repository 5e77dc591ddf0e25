// SPDX-License-Identifier: LicenseRef-qxkernel
// The compiler's own time, its interpreter against muParser at one point a call, and a generated class against the same
// straight-line code in C++, compiled here with the library's flags.

#include "evaluation_host.hpp"
#include "harness.hpp"

#include "exprcomp.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <jni.h>
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

// A bounded list of 5000 operations: halving products, then sums of products and inputs; or every fifth one a function.
struct StraightLine
{
    explicit StraightLine(bool functions)
    {
        std::mt19937 random(7);
        const auto pick = [&](int m) { return static_cast<int>(random() % static_cast<unsigned>(m)); };
        for (int i = 0; i < 3; ++i)
            comp.addInput(-1 - i);
        comp.addDef(0, 0.4375);
        source = "#include <cmath>\nextern \"C\" int law(const double* __restrict x, double* __restrict y)\n{\n"
                 "const double v0 = 0.4375;\n";
        const auto name = [](int id) { return id < 0 ? "x[" + std::to_string(-1 - id) + "]" : "v" + std::to_string(id); };
        for (int i = 1; i <= operations; ++i) {
            const int before = i == 1 ? -1 : i - 1;
            source += "const double " + name(i) + " = ";
            if (functions && i % 5 == 0) {
                static const struct { int kind; const char* name; } all[] = {
                    {ExprComp::Sin, "std::sin"}, {ExprComp::Exp, "std::exp"}, {ExprComp::Abs, "std::fabs"}};
                const auto& f = all[i / 5 % 3];
                comp.addDef(i, f.kind, before);
                source += std::string(f.name) + '(' + name(before);
                source += ");\n";
            } else if (i % 2 == 0) {
                comp.addDef(i, ExprComp::Times, before, 0);
                source += name(before) + "*v0;\n";
            } else {
                const int other = i < 60 || pick(4) == 0 ? -1 - pick(3) : i - 1 - 10 * pick(5);
                const bool minus = functions || pick(2) == 0;
                comp.addDef(i, minus ? ExprComp::Minus : ExprComp::Plus, before, other);
                source += name(before) + (minus ? "-" : "+") + name(other) + ";\n";
            }
        }
        comp.addOutput(operations);
        source += "y[0] = " + name(operations) + ";\nreturn 0;\n}\n";
    }

    static constexpr int operations = 5000;
    ExprComp comp;
    std::string source;
};

JNIEnv* startJava()
{
    void* const library = dlopen("/usr/lib/jvm/default-java/lib/server/libjvm.so", RTLD_NOW);
    if (!library)
        return nullptr;
    const auto create = reinterpret_cast<jint (*)(JavaVM**, void**, void*)>(dlsym(library, "JNI_CreateJavaVM"));
    char serial[] = "-XX:+UseSerialGC";
    JavaVMOption option{serial, nullptr};
    JavaVMInitArgs arguments{JNI_VERSION_1_8, 1, &option, JNI_FALSE};
    JavaVM* vm = nullptr;
    void* env = nullptr;
    return create(&vm, &env, &arguments) == JNI_OK ? static_cast<JNIEnv*>(env) : nullptr;
}

void benchClass()
{
    JNIEnv* const env = startJava();
    if (!env) {
        std::puts("generated classes: no Java on this machine");
        return;
    }
    for (const bool functions : {false, true}) {
        StraightLine law(functions);
        const std::string name = functions ? "WithFunctions" : "Arithmetic";
        std::vector<unsigned char> bytes;
        law.comp.compile(name, "law", bytes, false);
        const jclass made = env->DefineClass(name.c_str(), nullptr, reinterpret_cast<const jbyte*>(bytes.data()),
                                             static_cast<jsize>(bytes.size()));
        const jmethodID method = env->GetStaticMethodID(made, "law", "([D[D)I");
        const jdoubleArray in = env->NewDoubleArray(3), out = env->NewDoubleArray(1);
        const double x[] = {0.3, 0.6, 0.9};
        env->SetDoubleArrayRegion(in, 0, 3, x);

        const std::filesystem::path base = std::filesystem::temp_directory_path() / ("qxlaw" + std::to_string(functions));
        std::ofstream(base.string() + ".cpp") << law.source;
        const std::string command = "c++ -O3 -ffp-contract=off -fno-math-errno -shared -fPIC '" + base.string() + ".cpp' -o '" +
                                    base.string() + ".so'";
        void* const native = std::system(command.c_str()) == 0 ? dlopen((base.string() + ".so").c_str(), RTLD_NOW) : nullptr;
        if (!native) {
            std::puts("generated classes: no C++ compiler on this machine");
            return;
        }
        const auto f = reinterpret_cast<int (*)(const double*, double*)>(dlsym(native, "law"));

        constexpr int calls = 200;
        for (int i = 0; i < 20000; ++i) // until the machine has compiled it
            env->CallStaticIntMethod(made, method, in, out);
        double y = 0;
        BENCH("generated class, 5000 operations/" + name)
            .ours([&] {
                for (int i = 0; i < calls; ++i)
                    env->CallStaticIntMethod(made, method, in, out);
            })
            .items(calls * StraightLine::operations, "operations")
            .peer("C++ -O3", [&] {
                for (int i = 0; i < calls; ++i)
                    keep(f(x, &y));
            })
            .check([&] {
                double ours = 0;
                env->GetDoubleArrayRegion(out, 0, 1, &ours);
                return std::abs(ours - y) / (1 + std::abs(y));
            }, 1e-9)
            .atMost(functions ? 1 / 0.35 : 1 / 0.65)
            .fastest();
        dlclose(native);
        std::filesystem::remove(base.string() + ".cpp");
        std::filesystem::remove(base.string() + ".so");
    }
}

} // namespace

void qxbench::benchmarks()
{
    benchCompile();
    benchInterpreter();
    benchClass();
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Three engines, one answer: the evaluation graph, the interpreter of the flat list, and the generated class in a real
// virtual machine that verifies it. A program of its own: the machine stays to its end.
#include "classfile.hpp"
#include "error_sweep.hpp"
#include "evalfun_binary.hpp"
#include "exprimpl.hpp"
#include "funfactory.hpp"
#include "java_class.hpp"
#include "random_list.hpp"
#include "tests/eval/host.hpp"

#include "qxnumber.hpp"

#include <boost/make_shared.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <pthread.h>

using namespace qxtest;

namespace {

std::string freshName()
{
    static int count = 0;
    return "G" + std::to_string(count++);
}

class Engines : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!JavaMachine::get().env)
            GTEST_SKIP() << "no Java on this machine";
        setInfixConverter(qxInfixToPrefix); // the platform's parser class is not here
    }

    static JavaClass load(ExprComp& comp)
    {
        Bytes bytes;
        comp.compile(freshName(), "eval", bytes, false);
        return JavaClass(JavaMachine::get().env, bytes, "eval", JavaMachine::get().loader);
    }

    /// The status and the outputs of a list at a point, from the class.
    static std::pair<int, std::vector<double>> run(const Texts& definitions, const Texts& inputNames,
                                                   const Texts& outputNames, const std::vector<double>& in)
    {
        Probe comp(definitions, inputNames, outputNames);
        const JavaClass java = load(comp);
        std::vector<double> out;
        const int status = java.run(in, out, outputNames.size());
        return {status, out};
    }
    static std::pair<int, double> runFunction(const std::string& name, const std::vector<double>& args)
    {
        const Texts letters{"a", "b", "c"};
        std::string text = "y=" + name + "(";
        for (std::size_t i = 0; i < args.size(); ++i)
            text += (i ? "," : "") + letters[i];
        const auto [status, out] = run({text + ")"}, Texts(letters.begin(), letters.begin() + static_cast<long>(args.size())), {"y"}, args);
        return {status, out[0]};
    }
};

/// `if` as a host has it: an operator on three values.
class IfHost : public Host
{
public:
    using Host::eval;
    ValRepPtr eval(const VarEvaluatorPtr&, const std::string&, const std::vector<ValRepPtr>& args, unsigned,
                   const ValRepCachePtr&) override
    {
        return args[0]->getDouble() == 0 ? args[2] : args[1];
    }
};

bool equalButForZeros(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

std::string idOfStatus(int status)
{
    switch (status) {
    case -1: return "Log_of_negative";
    case -2: return "Sqrt_of_negative";
    case -4: return "Real_argument_out_of_range";
    case -5: return "Power_of_negative";
    default: return "";
    }
}

/// A random graph of nodes on x, y, z: every function and operator that has a compiled form, `if`, constants, shared parts.
class RandomGraph
{
public:
    RandomGraph(unsigned seed, const boost::shared_ptr<IfHost>& host) : host_(host), maker_(*host->getNodeMaker()), random_(seed)
    {
        for (const char* name : {"x", "y", "z"})
            nodes_.push_back(maker_.makeVarNode(name));
        const int operations = 1 + pick(pick(4) == 0 ? 300 : 40);
        for (int i = 0; i < operations; ++i)
            nodes_.push_back(operation());
    }

    const EvalNodePtr& root() const { return nodes_.back(); }

private:
    int pick(std::size_t n) { return static_cast<int>(random_() % n); }

    EvalNodePtr operand()
    {
        if (pick(6) == 0)
            return maker_.makeConstNode(0.25 * (pick(25) - 12));
        // mostly recent ones, so that graphs get deep; any other for sharing
        const std::size_t range = pick(3) ? std::min<std::size_t>(4, nodes_.size()) : nodes_.size();
        return nodes_[nodes_.size() - 1 - static_cast<std::size_t>(pick(range))];
    }

    EvalNodePtr operation()
    {
        static const std::vector<FunObjPtr> functions = [] {
            std::vector<FunObjPtr> all, standard;
            makeStandardFunctions(standard);
            for (const FunObjPtr& f : standard) {
                const std::string name = f->getName();
                if (ExprComp::kindOf(name, f->nArgs()) || name.substr(0, 2) == "qx")
                    all.push_back(f);
            }
            return all;
        }();
        switch (pick(10)) {
        case 0: case 1: case 2: {
            const FunObjPtr& f = functions[static_cast<std::size_t>(pick(functions.size()))];
            return f->nArgs() == 1 ? maker_.makeOpNode(f, operand()) : maker_.makeOpNode(f, operand(), operand());
        }
        case 3: return maker_.makeGenOpNode("if", {operand(), operand(), operand()});
        case 4: {
            static const FunId logic[] = {AND, OR, NOT, LT, GT, LE, GE, EQ, NE, PLUSSQ};
            const FunId id = logic[pick(10)];
            return id == NOT ? maker_.makeOpNode(id, operand()) : maker_.makeOpNode(id, operand(), operand());
        }
        case 5: {
            static const double exponents[] = {2, 3, 4, -1, -2, 0.5, 1.5, 5};
            return maker_.makeOpNode(POW, operand(), maker_.makeConstNode(exponents[pick(8)]));
        }
        default: {
            static const FunId arithmetic[] = {PLUS, MINUS, TIMES, DIV, UMINUS, PLUS, TIMES, MINUS};
            const FunId id = arithmetic[pick(8)];
            return id == UMINUS ? maker_.makeOpNode(id, operand()) : maker_.makeOpNode(id, operand(), operand());
        }
        }
    }

    boost::shared_ptr<IfHost> host_;
    NodeMaker& maker_;
    std::mt19937 random_;
    EvalNodes nodes_;
};

} // namespace

TEST_F(Engines, AgreeOnTenThousandRandomFormulas)
{
    constexpr unsigned formulas = QX_FORMULAS;
    const std::vector<std::pair<std::string, double>> point{{"x", 0.7}, {"y", -1.3}, {"z", 2.6}};
    std::vector<double> in;
    for (const auto& [name, value] : point)
        in.push_back(value);
    unsigned compared = 0, exact = 0, refused = 0, graphs = 0;
    boost::shared_ptr<IfHost> host;
    for (unsigned seed = 0; compared < formulas; ++seed) {
        ASSERT_LT(seed, 8 * formulas) << "too few formulas are of use: " << compared;
        if (seed % 100 == 0) { // nodes of former formulas go
            host = boost::make_shared<IfHost>();
            for (const auto& [name, value] : point)
                host->reals[name] = {value};
        }
        const EvalNodePtr root = RandomGraph(seed, host).root();
        Probe comp;
        DefIds names;
        int nextId = 0;
        const int id = root->createDefs(comp, names, nextId, host);
        for (const auto& [name, value] : point) {
            const QxHashLookup hit = names.lookup(name);
            comp.addInput(hit ? names.at(hit.slot) : nextId++);
        }
        comp.addOutput(id);
        const JavaClass java = load(comp);

        std::vector<double> interpretedOut, javaOut;
        const std::string raised = idOf([&] { comp.eval(in, interpretedOut); });
        const ErrorSweep sweep(comp);
        ASSERT_EQ(raised, idOfStatus(sweep.status)) << "seed " << seed;
        if (!sweep.decided || (sweep.status == 0 && !std::isfinite(interpretedOut[0])))
            continue;
        const double allowed = sweep.status == 0 ? sweep.allowed(0) : 0;
        if (!std::isfinite(allowed))
            continue;
        ++compared;
        ASSERT_EQ(java.run(in, javaOut, 1), sweep.status) << "seed " << seed;
        if (sweep.status != 0) {
            ++refused;
            continue;
        }
        if (sweep.exact) {
            ++exact;
            ASSERT_TRUE(equalButForZeros(interpretedOut[0], javaOut[0]))
                << "seed " << seed << ": " << interpretedOut[0] << " and " << javaOut[0];
        }
        ASSERT_LE(std::fabs(interpretedOut[0] - javaOut[0]), allowed) << "seed " << seed << ": " << interpretedOut[0];

        const ValRepPtr value = EvalTree(root).eval(host, makeCache(), EvalValues | EvalKeepReal);
        if (value->isNaN())
            continue; // the graph looks at values that reach no output here
        ++graphs;
        ASSERT_LE(std::fabs(value->getDouble() - interpretedOut[0]), allowed)
            << "seed " << seed << ": " << interpretedOut[0] << ", graph " << value->getDouble();
    }
    std::printf("%u formulas: %u exact, %u refused with a status, %u against the graph\n", compared, exact, refused, graphs);
    EXPECT_GT(exact, formulas / 20);
    EXPECT_GT(refused, formulas / 50);
    EXPECT_GT(graphs, formulas / 2);
}

TEST_F(Engines, AgreeOnGradients)
{
    const Texts texts{"sin(x*y)^2/(1+z^2)", "exp(-x^2)*log(1+y^2)", "sqrt(1+x^2+y^2)*atan2(y,x)", "x^y*(x>y)",
                      "tanh(x)*cosh(y)/(2+sin(z))", "qxsmhs(x-y,2)*z^3", "acos(x/4)+asin(y/4)", "abs(x-y)*sech(z)",
                      "log10(x)+log2(z)*cot(x)", "x^-2+y^-1+x^0.5", "max(x,y)*min(y,z)+coth(x)"};
    const auto host = boost::make_shared<IfHost>();
    const std::vector<std::pair<std::string, double>> point{{"x", 0.7}, {"y", 0.6}, {"z", 2.6}};
    std::vector<double> in;
    for (const auto& [name, value] : point) {
        host->reals[name] = {value};
        in.push_back(value);
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        const EvalTreePtr tree = treeOf(text);
        std::vector<EvalTreePtr> trees{tree};
        for (const auto& [name, value] : point)
            trees.push_back(tree->diff(name, host));
        Probe comp;
        DefIds names;
        int nextId = 0;
        for (const auto& [name, value] : point) {
            names.insert(name, nextId);
            comp.addInput(nextId++);
        }
        for (const EvalTreePtr& t : trees) {
            const std::string refused =
                raisedId([&] { comp.addOutput(t->getRoot(host)->createDefs(comp, names, nextId, host)); });
            ASSERT_EQ(refused, "");
        }
        const JavaClass java = load(comp);
        std::vector<double> out, javaOut;
        comp.eval(in, out);
        const ErrorSweep sweep(comp);
        ASSERT_TRUE(sweep.decided) << text;

        ASSERT_EQ(java.run(in, javaOut, trees.size()), 0) << text;

        for (std::size_t k = 0; k < trees.size(); ++k) {
            const double graph = trees[k]->eval(host, makeCache(), EvalValues | EvalKeepReal)->getDouble();
            EXPECT_LE(std::fabs(out[k] - javaOut[k]), sweep.allowed(k)) << text << ", output " << k;
            EXPECT_LE(std::fabs(out[k] - graph), sweep.allowed(k)) << text << ", output " << k;
        }
        for (std::size_t k = 0; k < in.size(); ++k) { // and the derivative is one: central difference
            std::vector<double> moved = in, high, low;
            const double h = 1e-5;
            moved[k] = in[k] + h;
            comp.eval(moved, high);
            moved[k] = in[k] - h;
            comp.eval(moved, low);
            EXPECT_NEAR((high[0] - low[0]) / (2 * h), out[k + 1], 1e-7 * (1 + std::fabs(out[k + 1]))) << text << k;
        }
    }
}

TEST_F(Engines, StatusesTellTheKindOfFailure)
{
    EXPECT_EQ(runFunction("sqrt", {-1}).first, -2);
    EXPECT_EQ(runFunction("log", {-1}).first, -1);
    EXPECT_EQ(runFunction("log10", {-1}).first, -1);
    EXPECT_EQ(runFunction("log2", {-1}).first, -1);
    EXPECT_EQ(runFunction("acos", {1.0000000000000002}).first, -4);
    EXPECT_EQ(runFunction("asin", {-2}).first, -4);
    EXPECT_EQ(runFunction("^", {-2, 0.5}).first, -5);
    EXPECT_EQ(runFunction("sqrt", {0}), std::pair(0, 0.0));
    EXPECT_EQ(runFunction("log", {0}), std::pair(0, -qxGetInf()));
    EXPECT_EQ(runFunction("acos", {1}), std::pair(0, 0.0));
}

TEST_F(Engines, QuirkNaNFailsTheDomainTestsOfTheClass)
{
    const double nan = qxGetNaN();
    for (const auto& [name, status] : std::vector<std::pair<std::string, int>>{
             {"sqrt", -2}, {"log", -1}, {"log10", -1}, {"log2", -1}, {"acos", -4}, {"asin", -4}}) {
        EXPECT_EQ(runFunction(name, {nan}).first, status) << name;
        EXPECT_TRUE(std::isnan(interpretedFunction(name, {nan}))) << name;
    }
}

TEST_F(Engines, QuirksWhereClassAndInterpreterDiffer)
{
    const double nan = qxGetNaN(), inf = qxGetInf();

    EXPECT_EQ(runFunction("tanh", {nan}).second, 1);
    EXPECT_EQ(runFunction("^", {1, nan}).first, -5); // 1 in C
    EXPECT_EQ(runFunction("^", {1, inf}).first, -5);
    EXPECT_EQ(runFunction("^", {-1, inf}).first, -5);
    EXPECT_EQ(runFunction("round", {nan}).second, 0);
    EXPECT_EQ(runFunction("round", {0.49999999999999994}).second, 0); // 1 in the interpreter
    EXPECT_EQ(runFunction("round", {1e30}).second, 9223372036854775807.0);
    EXPECT_EQ(runFunction("cosh", {710}).second, inf); // 1.1e308 in the interpreter
    EXPECT_TRUE(std::isnan(runFunction("max", {1, nan}).second)); // 1 in the interpreter
    EXPECT_FALSE(std::signbit(run({"y=*(k,a)", "k=-0"}, {"a"}, {"y"}, {1}).second[0])); // a constant -0 becomes 0
    EXPECT_TRUE(std::signbit(interpreted({"y=*(k,a)", "k=-0"}, {"a"}, {"y"}, {1})[0]));
    EXPECT_EQ(runFunction("sign", {nan}).second, -1); // here both agree
}

TEST_F(Engines, SpecialValuesAgreeWhereNothingIsSaidOtherwise)
{
    const double nan = qxGetNaN(), inf = qxGetInf();
    for (const char* name : {"+", "-", "*", "/", "<", "<=", ">", ">=", "==", "!=", "and", "or", "mod"})
        for (const double a : {0.0, -0.0, 1.0, -2.5, 7.0, inf, -inf, nan})
            for (const double b : {0.0, -0.0, 1.0, -2.5, 3.0, inf, -inf, nan}) {
                const auto [status, value] = runFunction(name, {a, b});
                EXPECT_EQ(status, 0);
                EXPECT_TRUE(equalButForZeros(value, interpretedFunction(name, {a, b}))) << name << ' ' << a << ' ' << b << ": " << value;
            }
    for (const char* name : {"abs", "floor", "ceil", "fix", "sign", "!", "U-", "U+", "real", "conj", "identity", "imag"})
        for (const double a : {0.0, -0.0, 0.5, -0.5, 2.0, -2.5, 1e300, inf, -inf, nan})
            EXPECT_TRUE(equalButForZeros(runFunction(name, {a}).second, interpretedFunction(name, {a}))) << name << ' ' << a;
    EXPECT_EQ(runFunction("^", {0, 0}), std::pair(0, 1.0));
    EXPECT_EQ(runFunction("^", {0, 2}), std::pair(0, 0.0));
    EXPECT_EQ(runFunction("^", {0, -1}), std::pair(0, 0.0));
    for (const double condition : {0.0, -0.0, 1.0, -3.0, nan})
        EXPECT_EQ(runFunction("if", {condition, 2, 3}).second, interpretedFunction("if", {condition, 2, 3}));
    EXPECT_TRUE(std::signbit(runFunction("fix", {-0.5}).second));
}

TEST_F(Engines, OutputsStoredBeforeAFailureRemain)
{
    Probe comp({"y=sin(a)", "z=sqrt(b)"}, {"a", "b"}, {"y", "z"});
    const JavaClass java = load(comp);
    std::vector<double> out;

    EXPECT_EQ(java.run({0.5, -1}, out, 2, 7), -2);
    EXPECT_DOUBLE_EQ(out[0], std::sin(0.5));
    EXPECT_EQ(out[1], 7);
}

TEST_F(Engines, ArrayOfInputsThatIsTooShortFailsAtOnce)
{
    Probe comp({"y=sin(a)"}, {"a", "b"}, {"y"});
    const JavaClass java = load(comp);
    std::vector<double> out;

    EXPECT_THROW(java.run({0.5}, out, 1), std::runtime_error);
    EXPECT_EQ(java.run({0.5, 1}, out, 1), 0);
    EXPECT_EQ(java.staticInt("NARGIN"), 2);
    EXPECT_EQ(java.staticInt("NARGOUT"), 1);
}

TEST_F(Engines, RandomListsAgreeBitForBitOnArithmetic)
{
    for (unsigned seed = 0; seed < QX_FORMULAS / 20; ++seed) {
        RandomList::Options options;
        options.functions = false;
        options.inputs = static_cast<int>(seed % 4);
        options.operations = seed % 20 == 0 ? 3000 : 1 + static_cast<int>(seed % 200);
        options.outputs = 1 + static_cast<int>(seed % 5);
        options.nearby = seed % 3 ? 0 : 3;
        RandomList list(seed, options);
        Probe comp(list.definitions, list.inputs, list.outputs);
        const JavaClass java = load(comp);
        const std::vector<double> in = list.point();
        std::vector<double> out, javaOut;
        comp.eval(in, out);

        ASSERT_EQ(java.run(in, javaOut, list.outputs.size()), 0);

        bool nanMet = false; // max and min of a NaN differ
        for (const double v : comp.evalWork)
            nanMet = nanMet || std::isnan(v);
        for (std::size_t k = 0; !nanMet && k < out.size(); ++k)
            ASSERT_TRUE(equalButForZeros(out[k], javaOut[k])) << "seed " << seed << ", output " << k;
    }
}

TEST_F(Engines, ValuesCrossPiecesOfPieces)
{
    // Sums that wait until all of them are made: hundreds of registers live across every cut, three levels deep and more.
    for (const int n : {300, 3000}) {
        Probe comp;
        comp.addInput(-1);
        for (int i = 0; i < n; ++i) {
            comp.addDef(3 * i, 0.5 + i % 7);
            comp.addDef(3 * i + 1, ExprComp::Plus, i == 0 ? -1 : 3 * i - 2, 3 * i);
        }
        for (int i = 0; i < n; ++i)
            comp.addDef(3 * i + 2, ExprComp::Max, i == 0 ? 3 * n - 2 : 3 * i - 1, 3 * (n - 1 - i) + 1);
        comp.addDef(3 * n, ExprComp::Minus, 3 * n - 1, -1);
        comp.addOutput(3 * n);
        const JavaClass java = load(comp);
        std::vector<double> out, javaOut;
        comp.eval({1.25}, out);

        ASSERT_EQ(java.run({1.25}, javaOut, 1), 0);

        EXPECT_EQ(out, javaOut);
    }
}

TEST_F(Engines, TwoHundredInputsAndOutputs)
{
    Texts inputNames, definitions, outputNames;
    std::vector<double> in;
    for (int i = 0; i < 200; ++i) {
        const std::string n = std::to_string(i);
        inputNames.push_back("x" + n);
        definitions.push_back("y" + n + "=-(x" + n + ",x" + std::to_string(199 - i) + ")");
        outputNames.push_back("y" + n);
        in.push_back(0.5 * i * i);
    }
    EXPECT_EQ(run(definitions, inputNames, outputNames, in).second, interpreted(definitions, inputNames, outputNames, in));
}

namespace {

struct LongRun
{
    JavaVM* vm;
    const Bytes* bytes;
    std::vector<double> out;
    std::string failure;
};

void* runOnOwnStack(void* data)
{
    auto& job = *static_cast<LongRun*>(data);
    JNIEnv* env = nullptr;
    job.vm->AttachCurrentThread(reinterpret_cast<void**>(&env), nullptr);
    try {
        const JavaClass java(env, *job.bytes, "eval", JavaMachine::get().loader);
        const int status = java.run({0.75}, job.out, 1);
        job.failure = status == 0 ? "" : "status " + std::to_string(status);
    } catch (const std::exception& e) {
        job.failure = e.what();
    }
    job.vm->DetachCurrentThread();
    return nullptr;
}

} // namespace

TEST_F(Engines, HundredThousandOperationsLoadAndRun)
{
    constexpr int n = 100000;
    Probe comp;
    comp.addInput(-1);
    comp.addDef(0, 1.0000001);
    for (int i = 1; i < n; ++i) {
        const int before = i == 1 ? -1 : i - 1;
        if (i % 5 == 0 && i > 600) // a value of long ago
            comp.addDef(i, i % 2 ? ExprComp::Min : ExprComp::Max, before, i - 500);
        else
            comp.addDef(i, i % 3 == 0 ? ExprComp::Times : i % 3 == 1 ? ExprComp::Plus : ExprComp::Minus, before, 0);
    }
    comp.addOutput(n - 1);
    Bytes bytes;
    comp.compile(freshName(), "eval", bytes, false);
    LongRun job{nullptr, &bytes, {}, ""};
    JavaMachine::get().env->GetJavaVM(&job.vm);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t(64) << 20);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, runOnOwnStack, &job), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);

    EXPECT_EQ(job.failure, "");
    EXPECT_EQ(job.out, comp.valuesAt({0.75}));
}

// main, in a machine of its own -------------------------------------------------------------------------------------------

namespace {

std::string outputOf(const std::string& command)
{
    std::string text;
    if (FILE* const pipe = popen((command + " 2>&1").c_str(), "r")) {
        for (int c; (c = std::fgetc(pipe)) != EOF;)
            text += static_cast<char>(c);
        pclose(pipe);
    }
    return text;
}

} // namespace

TEST_F(Engines, AsmAndJavapReadTheClasses)
{
    const std::string jars = "/usr/share/java/asm.jar:/usr/share/java/asm-tree.jar:/usr/share/java/asm-analysis.jar:"
                             "/usr/share/java/asm-util.jar";
    if (!std::filesystem::exists("/usr/share/java/asm-util.jar") || std::system("javac -version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "no ASM or no Java compiler";
    const auto directory = std::filesystem::temp_directory_path() / ("qxasm." + std::to_string(::getpid()));
    std::filesystem::create_directory(directory);
    constexpr unsigned classes = 100;
    for (unsigned seed = 0; seed < classes; ++seed) {
        RandomList list(seed, {2, seed % 25 == 0 ? 3000 : 60, 3, true, static_cast<int>(seed % 3)});
        const std::string name = "C" + std::to_string(seed);
        ExprComp::compile(name, "eval", (directory / (name + ".class")).string(), list.definitions, list.inputs,
                          list.outputs, seed % 2 == 0);
    }

    EXPECT_EQ(outputOf("java -cp " + jars + " " QX_CHECK_CLASSES " '" + directory.string() + "'"),
              std::to_string(classes) + " checked\n");
    const std::string listing = outputOf("javap -v -cp '" + directory.string() + "' C0");
    EXPECT_THAT(listing, testing::HasSubstr("public static int eval(double[], double[]);"));
    EXPECT_THAT(listing, testing::HasSubstr("public static final int NARGIN"));
    EXPECT_THAT(listing, testing::HasSubstr("Compiled from \"Byte code generated by QUORIX.\""));
    std::filesystem::remove_all(directory);
}

TEST_F(Engines, DriverPrintsOutputsStatusesAndTimes)
{
    if (std::system("java -version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "no java command";
    const auto directory = std::filesystem::temp_directory_path() / ("qxdriver." + std::to_string(::getpid()));
    std::filesystem::create_directory(directory);
    ExprComp::compile("p/Law", "eval", (directory / "Law.class").string(), {"y=+(a,b)", "z=sqrt(a)"}, {"a", "b"}, {"y", "z"}, true);
    std::filesystem::create_directory(directory / "p");
    std::filesystem::rename(directory / "Law.class", directory / "p" / "Law.class");
    const std::string java = "java -Xverify:all -cp '" + directory.string() + "' p.Law ";

    EXPECT_EQ(outputOf(java + "4 0.5"), "4.5\n2.0\n");
    EXPECT_EQ(outputOf(java + "-4 0.5"), "error\n-2\n");
    const std::string timed = outputOf(java + "4 0.5 1000");
    EXPECT_EQ(timed.substr(0, 8), "4.5\n2.0\n");
    EXPECT_EQ(timed.substr(timed.size() - 3), " s\n");
    std::filesystem::remove_all(directory);
}

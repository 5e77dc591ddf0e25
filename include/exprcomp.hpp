// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"
#include "qxpool.hpp"
#include "stopwatch.hpp"

#include <array>
#include <boost/shared_ptr.hpp>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qxmath {
struct RealFunctions;
}

/// Compiler of sets of scalar real formulas to straight-line code.
///
/// The input is a flat list of single-assignment definitions, one operation each, with the input and the output variables
/// in their order. It comes as text (parse) or piece by piece (addInput, addDef, addOutput: what the createDefs operations
/// of nodes and function objects call, with ids from one counter; ids of text are string handles, so one object takes only
/// one of the two). compile cleans the list up, gives every value a place to live and writes a Java class whose static
/// method reads an array of inputs, fills an array of outputs and returns a status; eval runs the same list natively.
///
/// One object compiles once: after compile, failed or not, it takes no more definitions.
/// Not for: complex arithmetic, arrays. eval is for one point at a time; many points are the evaluation graph's work.
/// Cost:    linear in the number of definitions, machine stack logarithmic in it.
/// Threads: one object belongs to one thread; objects share nothing.
/// Fails:   qxbase::Exception with the source "exprcomp". A wrong use raises "QUORIX_assertion_failure".
class QX_API ExprComp : public QxStringPool
{
public:
    /// What a definition does. The numbers are an interface: createDefs and lists of other makers use them.
    /// Power1 to Power4 and DivideNonZero come from the passes; text cannot name them.
    enum Kind : int {
        Abs = 1, Acos, And, Asin, Atan, Atan2, Ceil, Conj, Cos, Cosh, Cot, Coth, Csc, Csch, Divide, DivideNonZero, Equal,
        Exp, Fix, Floor, GreaterEqual, Greater, Identity, If, Imag, LessEqual, Log, Log10, Log2, Less, Max, Min, Minus, Mod,
        NotEqual, Not, Constant, Or, Plus, Power, Square, Cube, Fourth, Real, Round, Sec, Sech, Sign, Sin, Sinh, Sqrt, Tan,
        Tanh, Times, UnaryMinus, UnaryPlus
    };

    // The class file and its parts: classfile.hpp.
    class Instr;
    class ConstPool;
    class Method;
    class Field;
    class BytecodeStream;
    class MemoryBytecodeStream;
    class FileBytecodeStream;
    class ClassFile;
    class FunctionTable;

    /// One definition: a plain value.
    struct QX_API Def
    {
        int id;                  ///< the caller's; after crossRef the index in the list
        int kind;                ///< Kind
        int nArgs;               ///< 0 to 3, fixed by kind
        std::array<int, 3> args; ///< ids; after crossRef >= 0 a definition's index, < 0 the input number -1 - arg
        double value;            ///< of a Constant

        Def(int id, double value);
        /// Raises "QUORIX_assertion_failure" as checkArgs does, and for more than three arguments.
        Def(int id, int kind, const int* args, std::size_t nArgs);

        /// Raises "QUORIX_assertion_failure" for a kind outside 1..56 or a number of arguments that is not the kind's.
        void checkArgs() const;
        /// The operation as text: "+", "sin", "U-"; a constant as its value to 20 digits.
        std::string getName() const;
        /// name(arg,arg) with the ids as arguments.
        std::string toString() const;
        /// True, and the value, for a constant.
        bool getNumVal(double& number) const;
        /// Equal definitions hash alike, also with the operands of a commutative kind exchanged. -0 hashes as 0, every NaN
        /// alike.
        int getExprHash() const;
        /// Same kind and arguments. Constants compare as numbers: -0 equals 0, a NaN equals nothing.
        static bool exprEqual(const Def& a, const Def& b);
        /// and, ==, max, min, !=, or, +, *
        bool isBinaryCommutative() const;

        /// Emits the operation on operands that stand on the operand stack; scratch: the first of two free locals.
        void generateCode(FunctionTable& functions, Method& method, int scratch) const;
    };

    ExprComp();
    virtual ~ExprComp();
    ExprComp(const ExprComp&) = delete;
    ExprComp& operator=(const ExprComp&) = delete;

    /// The kind that parse knows by this name and number of arguments; 0 if there is none.
    static int kindOf(std::string_view name, int nArgs);
    /// The number of arguments of a kind, -1 for a number that is no kind. The text of a kind ("" for a constant).
    static int nArgsOf(int kind);
    static std::string nameOf(int kind);

    // Building. The order of inputs and outputs fixes their positions in the arrays. All of it, parse too, raises
    // "QUORIX_assertion_failure" after compile.
    void addInput(int id);
    void addOutput(int id);
    /// A constant.
    void addDef(int id, double value);
    void addDef(int id, int kind, int a);
    void addDef(int id, int kind, int a, int b);
    void addDef(int id, int kind, int a, int b, int c);
    void addDef(int id, int kind, const std::vector<int>& args);
    /// A name for messages and listings. getVarName: "_v" and the id without one.
    void setName(int id, const std::string& name);
    std::string getVarName(int id) const;

    /// Adds definitions "name=function(arg,...)" or "name=number", where every argument is a name. Nothing is stripped or
    /// nested. A right side without "(" is read as atof reads it, point as decimal sign: the longest number at its start,
    /// 0 for a word.
    /// Raises "Syntax_error_in_expression" with "Expression" and the definition for a missing "=", a ")" that is not the
    /// last character, and a name that is unknown with this number of arguments; nothing has been added then.
    void parse(const std::vector<std::string>& definitions, const std::vector<std::string>& inputNames,
               const std::vector<std::string>& outputNames);

    /// Runs the passes and writes the class into out, which is cleared first. className with slashes between packages.
    ///
    ///   public static int methodName(double[] inputs, double[] outputs)
    ///
    /// gives 0, -1 (logarithm of a negative number), -2 (square root of one), -4 (acos or asin beyond 1) or -5 (NaN from a
    /// power); a NaN argument fails these tests too. Outputs stored before the failure remain. withMain adds a driver for
    /// the command line: input values, then how often to run.
    /// Raises "Duplicate input: ", "Duplicate definition of " and the name, "Undefined inputs: " and up to ten names,
    /// "Output #k lacks definition.", "Cyclic dependency for definition #d.", "Compilation failed: Too many different
    /// constants." (also for more than 32765 values alive at once), "QUORIX_assertion_failure" the second time.
    void compile(const std::string& className, const std::string& methodName, std::vector<unsigned char>& out,
                 bool withMain);
    /// The same into a file. The class is complete before the file is opened. Raises "Cannot_create_native_file" with the
    /// file name when it cannot be opened or written; a regular file that was begun is removed then.
    void compile(const std::string& className, const std::string& methodName, const std::string& fileName, bool withMain);
    /// The passes alone, for eval: no class is written, so that the limits of one do not count. The other refusals are the same.
    void compile();
    /// parse and compile on an object of their own.
    static void compile(const std::string& className, const std::string& methodName, std::vector<unsigned char>& out,
                        const std::vector<std::string>& definitions, const std::vector<std::string>& inputNames,
                        const std::vector<std::string>& outputNames, bool withMain);
    static void compile(const std::string& className, const std::string& methodName, const std::string& fileName,
                        const std::vector<std::string>& definitions, const std::vector<std::string>& inputNames,
                        const std::vector<std::string>& outputNames, bool withMain);
    /// The class before it is written.
    boost::shared_ptr<ClassFile> compileToClass(const std::string& className, const std::string& methodName, bool withMain);

    /// The outputs at one point, natively, after compile. out gets one number an output; no allocation from the second
    /// call on. Elementary functions have the bits of qxmath's, powers those of the C library.
    /// Raises "Internal_error_symbolic_processing" before compile or when in has not one number an input;
    /// "Sqrt_of_negative", "Log_of_negative", "Real_argument_out_of_range" (acos, asin), "Power_of_negative" (a NaN power).
    /// A NaN argument passes all but the last. After a failure out is as it was.
    void eval(const std::vector<double>& in, std::vector<double>& out) const;

    /// Inputs, outputs and, after compile, the definitions in topological order with lifetimes and registers.
    void dumpFlatList(std::ostream& out) const;

    /// Tells this object from every other one of the process: what nodes remember beside an id.
    unsigned long getSerial() const { return serial; }
    std::size_t getInputCount() const { return inputs.size(); }
    std::size_t getOutputCount() const { return outputs.size(); }
    /// Time of "parser", "compile" and of each pass.
    const Stopwatch& getStopwatch() const { return stopwatch; }

protected:
    /// Where the value of a register is while code is generated.
    enum class RegMode : unsigned char { Free = 0, Local = 1, Spilled = 2 };

    // The passes, in their order; each relies on the results of those before it. runPasses: all of them.
    void runPasses();
    void crossRef();        ///< ids to list positions; every output a definition of its own
    void topoSort();        ///< order and lifeRange of what the outputs reach
    void eliminateCommon(); ///< folding, rewriting, one definition for equal ones
    void allocateRegs();    ///< regOf
    void optimizeStack();   ///< stackMode, swapMode
    void createEval();      ///< the tape of eval

    /// Bytes of code, and of saving new locals, that the definitions from each position to the next empty operand stack
    /// can take.
    std::vector<int> codeBounds() const;
    boost::shared_ptr<Method> createWork(ClassFile& classFile, int first, int last, const std::string& name, bool isEntry);
    boost::shared_ptr<Method> createMain(ConstPool& pool, int evalMethodIndex, int nInputs, int nOutputs);

    bool compiled = false;
    std::vector<int> inputs;                         ///< ids; -1 - position after crossRef
    std::vector<int> outputs;                        ///< ids; definition indices after crossRef
    std::vector<Def> defs;
    QxHashMap<std::string, int> names;               ///< display name of an id
    QxHashMap<int, int> inputIndex;                  ///< negative input id to position
    QxHashMap<int, int> outputIndex;                 ///< definition to output position
    std::vector<int> order;                          ///< topological order, definition indices
    std::vector<std::pair<int, int>> lifeRange;      ///< per definition: its position in order, that of its last use
    std::vector<RegMode> regState;                   ///< per register
    int liveLocals = 0;                              ///< registers in state Local
    std::vector<int> regOf;                          ///< per definition: register or -1
    std::vector<int> stackMode;                      ///< per definition: 1 only on the operand stack, 2 stored as well
    std::vector<int> swapMode;                       ///< per definition: 1 exchange the operands, 2 duplicate the operand

    /// One operation of the tape on slots of the work vector: inputs first, then the definitions in topological order.
    struct Step
    {
        int kind;
        std::array<int, 3> args;
        int slot;
    };
    std::vector<Step> evalOps;                       ///< all but the constants, whose slots are filled from the start
    std::vector<int> evalOuts;                       ///< slot of each output
    mutable std::vector<double> evalWork;

private:
    class WorkWriter;

    void requireOpen() const;
    void add(const Def& def);
    boost::shared_ptr<ClassFile> createClass(const std::string& className, const std::string& methodName, bool withMain);

    const unsigned long serial;
    const qxmath::RealFunctions* realFunctions = nullptr; ///< set by createEval
    Stopwatch stopwatch;
    std::vector<int> spillCandidates; ///< registers that came to state Local since the last spill
    std::vector<int> codeBound;       ///< per position: codeBounds()
};

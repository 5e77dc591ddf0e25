// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprcomp.hpp"

#include "classfile.hpp"
#include "compiler/exprkinds_detail.hpp"
#include "compiler/opcodes_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <iostream>

namespace op = qxcompiler::op;

namespace {

// Locals of a generated method: 0 inputs, 1 outputs, 2 spilled registers, 3 and 4 scratch, then two for each register.
constexpr int inputsLocal = 0, outputsLocal = 1, spillLocal = 2, scratchLocal = 3, firstRegister = 5;
constexpr int mostLocals = 65535;

constexpr std::uint16_t publicStatic = 9;

// A method ends where the operand stack is empty but for its base and the code, with what saving the live registers will
// cost, passes methodGoal; or where it would pass methodLimit, beyond which the virtual machine only interprets.
constexpr int methodGoal = 7200, methodLimit = 8000, saveBytes = 10;
// The array of spilled registers, the calls of two pieces, the return.
constexpr int closingBytes = 50;

std::size_t at(int i)
{
    return static_cast<std::size_t>(i);
}

int localOf(int reg)
{
    return firstRegister + 2 * reg;
}

} // namespace

/// Bytes of code, and of saving new locals, that the definitions from each position of order to the next one that leaves
/// the operand stack at its base can take.
std::vector<int> ExprComp::codeBounds() const
{
    constexpr int argumentBytes = 8, swapBytes = 2, resultBytes = 8;
    std::vector<int> bounds(order.size() + 1, 0);
    for (std::size_t i = order.size(); i-- > 0;) {
        const Def& def = defs[at(order[i])];
        const int own = argumentBytes * def.nArgs + swapBytes + qxcompiler::infoOf(def.kind)->codeBytes + resultBytes + saveBytes;
        bounds[i] = own + (stackMode[at(order[i])] == 0 ? 0 : bounds[i + 1]);
    }
    return bounds;
}

boost::shared_ptr<ExprComp::ClassFile> ExprComp::createClass(const std::string& className, const std::string& methodName,
                                                            bool withMain)
{
    if (localOf(static_cast<int>(regState.size())) > mostLocals)
        QX_RAISE("exprcomp", "Compilation failed: Too many different constants.");
    const auto made = boost::make_shared<ClassFile>(*this, className, "java/lang/Object");
    codeBound = codeBounds();
    made->addMethod(createWork(*made, 0, static_cast<int>(order.size()), methodName, true));

    ConstPool& pool = made->getPool();
    const int nInputs = static_cast<int>(inputs.size()), nOutputs = static_cast<int>(outputs.size());
    constexpr std::uint16_t publicStaticFinal = 0x19;
    made->addField(boost::make_shared<Field>(pool, "NARGIN", "I", publicStaticFinal, pool.getInteger(nInputs)));
    made->addField(boost::make_shared<Field>(pool, "NARGOUT", "I", publicStaticFinal, pool.getInteger(nOutputs)));
    if (withMain)
        made->addMethod(createMain(pool, pool.getMethod(className, methodName, "([D[D)I"), nInputs, nOutputs));
    return made;
}

/// One method under construction.
///
/// At the base of its operand stack lies a reference to the inputs, all the way through; height counts entries, a double
/// as one, the reference included.
class ExprComp::WorkWriter
{
public:
    WorkWriter(ExprComp& comp, ClassFile& classFile, Method& method)
        : c_(comp), class_(classFile), m_(method)
    {
    }

    void begin();
    /// The definitions from first on; where the method ends, last or before.
    int run(int first, int last);
    void finish(int position, int last, const std::string& name, bool isEntry);

private:
    int positionOf(int def) const { return c_.lifeRange[at(def)].first; }
    void loadInput(int position, bool twoInputsFollow);
    void loadArgument(const Def& def, int k, int position);
    void releaseArguments(const Def& def, int position);
    void storeResult(int d);
    void spill();
    void call(int methodIndex);

    ExprComp& c_;
    ClassFile& class_;
    Method& m_;
    int height_ = 1;
    int stackLimit_ = 10;
    bool pendingDup_ = false; ///< a second reference waits below the first of two inputs
};

void ExprComp::WorkWriter::begin()
{
    m_.addAload(inputsLocal);
    if (!c_.inputs.empty()) { // an array that is too short fails before any work
        m_.add(op::dup);
        m_.addIconst(static_cast<int>(c_.inputs.size()) - 1);
        m_.add(op::daload);
        m_.add(op::pop2);
    }
}

void ExprComp::WorkWriter::loadInput(int input, bool anotherFollows)
{
    if (pendingDup_) {
        m_.add(op::dup2_x1);
        m_.add(op::pop2);
        --height_;
        pendingDup_ = false;
    } else if (height_ <= 2) {
        if (height_ == 1) {
            m_.add(op::dup);
        } else {
            m_.add(op::dup2_x1);
            m_.add(op::pop2);
            m_.add(op::dup_x2);
        }
        if (anotherFollows) {
            m_.add(op::dup);
            ++height_;
            pendingDup_ = true;
        }
    } else {
        m_.addAload(inputsLocal);
    }
    m_.addIconst(input);
    m_.add(op::daload);
    ++height_;
}

void ExprComp::WorkWriter::loadArgument(const Def& def, int k, int position)
{
    const int x = def.args[at(k)];
    if (x < 0) {
        loadInput(c_.inputIndex.at(c_.inputIndex.lookup(x).slot), k == 0 && def.nArgs == 2 && def.args[1] < 0);
        return;
    }
    const Def& source = c_.defs[at(x)];
    if (const QxHashLookup output = c_.outputIndex.lookup(x)) {
        m_.addAload(outputsLocal);
        m_.addIconst(c_.outputIndex.at(output.slot));
        m_.add(op::daload);
    } else if (source.kind == Constant) {
        source.generateCode(class_.getFunctions(), m_, scratchLocal);
    } else if (c_.stackMode[at(x)] == 0 || (c_.stackMode[at(x)] == 2 && positionOf(x) < position - 1)) {
        const int reg = c_.regOf[at(x)];
        switch (c_.regState[at(reg)]) {
        case RegMode::Local:
            m_.addDload(localOf(reg));
            break;
        case RegMode::Spilled:
            m_.addAload(spillLocal);
            m_.addIconst(reg);
            m_.add(op::daload);
            break;
        case RegMode::Free:
            QX_RAISE("exprcomp", "QUORIX_assertion_failure");
        }
    } else {
        return; // it is on the operand stack
    }
    ++height_;
}

void ExprComp::WorkWriter::releaseArguments(const Def& def, int position)
{
    for (int k = 0; k < def.nArgs; ++k) {
        const int x = def.args[at(k)];
        if (x < 0 || c_.lifeRange[at(x)].second != position || c_.regOf[at(x)] <= 0)
            continue; // register 0 keeps its state, which costs a slot and no more
        RegMode& state = c_.regState[at(c_.regOf[at(x)])];
        if (state == RegMode::Local)
            --c_.liveLocals;
        state = RegMode::Free;
    }
}

void ExprComp::WorkWriter::storeResult(int d)
{
    if (c_.stackMode[at(d)] == 1)
        return;
    if (c_.stackMode[at(d)] == 2)
        m_.add(op::dup2);
    if (const QxHashLookup output = c_.outputIndex.lookup(d)) {
        m_.addAload(outputsLocal);
        m_.addIconst(c_.outputIndex.at(output.slot));
        m_.add(op::dup2_x2);
        m_.add(op::pop2);
        m_.add(op::dastore);
    } else if (c_.defs[at(d)].kind != Constant) {
        const int reg = c_.regOf[at(d)];
        m_.addDstore(localOf(reg));
        if (c_.regState[at(reg)] != RegMode::Local) {
            c_.regState[at(reg)] = RegMode::Local;
            ++c_.liveLocals;
            c_.spillCandidates.push_back(reg);
        }
    }
}

int ExprComp::WorkWriter::run(int first, int last)
{
    begin();
    for (int i = first; i < last; ++i) {
        const int d = c_.order[at(i)];
        const Def& def = c_.defs[at(d)];
        for (int k = 0; k < def.nArgs; ++k)
            loadArgument(def, k, i);
        releaseArguments(def, i);
        if (c_.swapMode[at(d)] == 1) {
            m_.add(op::dup2_x2);
            m_.add(op::pop2);
        } else if (c_.swapMode[at(d)] == 2) {
            m_.add(op::dup2);
            ++height_;
        }
        if (def.kind != Constant || c_.outputIndex.contains(d))
            def.generateCode(class_.getFunctions(), m_, scratchLocal);
        height_ += (c_.stackMode[at(d)] != 0 ? 1 : 0) - def.nArgs;
        storeResult(d);
        stackLimit_ = std::max(stackLimit_, height_ + 10 + def.nArgs);

        const int size = m_.getCodeLength() + saveBytes * c_.liveLocals;
        if (height_ == 1 && (size > methodGoal || size + c_.codeBound[at(i + 1)] + closingBytes > methodLimit))
            return i + 1;
    }
    if (height_ != 1) {
        std::cerr << "stackHeight=" << height_ << '\n' << first << ' ' << last << ' ' << last << '\n';
        QX_RAISE("exprcomp", "QUORIX_assertion_failure");
    }
    return last;
}

/// Saves every register that is held in a local; the reference to the array of spilled registers is on the stack.
void ExprComp::WorkWriter::spill()
{
    std::vector<int>& registers = c_.spillCandidates;
    std::sort(registers.begin(), registers.end());
    registers.erase(std::unique(registers.begin(), registers.end()), registers.end());
    for (const int reg : registers) {
        if (c_.regState[at(reg)] != RegMode::Local)
            continue;
        m_.add(op::dup);
        m_.addIconst(reg);
        m_.addDload(localOf(reg));
        m_.add(op::dastore);
        c_.regState[at(reg)] = RegMode::Spilled;
    }
    registers.clear();
    c_.liveLocals = 0;
}

/// Calls a piece; a status other than 0 leaves this method too.
void ExprComp::WorkWriter::call(int methodIndex)
{
    m_.addAload(inputsLocal);
    m_.addAload(outputsLocal);
    m_.addAload(spillLocal);
    m_.addArg2(op::invokestatic, static_cast<std::uint16_t>(methodIndex));
    m_.add(op::dup);
    const int success = m_.addJumpInstr(op::ifeq);
    m_.add(op::ireturn);
    m_.setJumpTarget(success, m_.add(op::pop));
}

void ExprComp::WorkWriter::finish(int position, int last, const std::string& name, bool isEntry)
{
    if (!isEntry || position < last) {
        if (isEntry) {
            m_.addIconst(static_cast<int>(c_.regState.size()));
            m_.addArg1(op::newarray, op::arrayOfDouble);
            m_.add(op::dup);
            m_.addAstore(spillLocal);
        } else {
            m_.addAload(spillLocal);
        }
        spill();
        m_.add(op::pop);
    }
    if (position < last) { // two pieces; a value and its consumer stay together
        int middle = (position + last) / 2;
        while (middle < last && c_.stackMode[at(c_.order[at(middle - 1)])] != 0)
            ++middle;
        const auto piece = [&](int from, int to, const std::string& pieceName) {
            if (from == to)
                return;
            class_.addMethod(c_.createWork(class_, from, to, pieceName, false));
            call(class_.getPool().getMethod(class_.getName(), pieceName, "([D[D[D)I"));
        };
        piece(position, middle, name + "A");
        piece(middle, last, name + "B");
    }
    m_.addIconst(0);
    m_.add(op::ireturn);
    m_.setLimits(stackLimit_, localOf(static_cast<int>(c_.regState.size())));
}

boost::shared_ptr<ExprComp::Method> ExprComp::createWork(ClassFile& classFile, int first, int last,
                                                        const std::string& name, bool isEntry)
{
    if (isEntry) {
        std::fill(regState.begin(), regState.end(), RegMode::Free);
        liveLocals = 0;
        spillCandidates.clear();
    }
    const auto method = boost::make_shared<Method>(classFile.getPool(), name, isEntry ? "([D[D)I" : "([D[D[D)I", publicStatic);
    WorkWriter writer(*this, classFile, *method);
    const int position = writer.run(first, last);
    writer.finish(position, last, name, isEntry);
    return method;
}

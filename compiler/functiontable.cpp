// SPDX-License-Identifier: LicenseRef-qxkernel
#include "classfile.hpp"

#include "compiler/opcodes_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <boost/make_shared.hpp>
#include <cmath>

namespace op = qxcompiler::op;

/// Emission of operations into one method.
///
/// Operands and results are doubles at the top of the operand stack. "Swap" of two doubles is dup2_x2, pop2; the
/// instruction of that name exchanges two integers.
class ExprComp::FunctionTable::Emitter
{
public:
    Emitter(FunctionTable& functions, Method& method, int scratch) : f_(functions), m_(method), scratch_(scratch) {}

    void emit(int kind, int nArgs);

private:
    void ops(std::initializer_list<int> codes)
    {
        for (const int code : codes)
            m_.add(code);
    }
    void swapDoubles() { ops({op::dup2_x2, op::pop2}); }
    int invoke(int methodIndex) { return m_.addArg2(op::invokestatic, static_cast<std::uint16_t>(methodIndex)); }
    int math(int kind, const char* name) { return invoke(f_.methodOf(kind, 1, "java/lang/Math", name, "(D)D")); }
    void math2(int kind, const char* name) { invoke(f_.methodOf(kind, 2, "java/lang/Math", name, "(DD)D")); }
    int jump(int code) { return m_.addJumpInstr(code); }
    void landOnNop(std::initializer_list<int> jumps)
    {
        const int here = m_.add(op::nop);
        for (const int from : jumps)
            m_.setJumpTarget(from, here);
    }
    void leave(int status)
    {
        m_.addIconst(status);
        m_.add(op::ireturn);
    }

    void arcFunction(int kind, const char* name);
    void rootOrLog(int kind, const char* name, int status);
    void scaledLog(double factor);
    void cosh();
    void sinh();
    void tanh();
    void reciprocalOf(int kind);
    void compare(int comparison, int jumpIfFalse);
    void isZero();
    void logic(bool isOr);
    void select();
    void fix();
    void power();

    FunctionTable& f_;
    Method& m_;
    const int scratch_;
};

void ExprComp::FunctionTable::Emitter::emit(int kind, int nArgs)
{
    if (ExprComp::nArgsOf(kind) != nArgs)
        QX_RAISE("exprcomp", "QUORIX_assertion_failure");
    switch (kind) {
    case Conj: case Identity: case Real: case UnaryPlus: break;
    case UnaryMinus:     ops({op::dneg}); break;
    case Plus:           ops({op::dadd}); break;
    case Minus:          ops({op::dsub}); break;
    case Times:          ops({op::dmul}); break;
    case Divide: case DivideNonZero: ops({op::ddiv}); break;
    case Square:         ops({op::dup2, op::dmul}); break;
    case Cube:           ops({op::dup2, op::dup2, op::dmul, op::dmul}); break;
    case Fourth:         ops({op::dup2, op::dmul, op::dup2, op::dmul}); break;
    case Abs:            math(kind, "abs"); break;
    case Atan:           math(kind, "atan"); break;
    case Ceil:           math(kind, "ceil"); break;
    case Cos:            math(kind, "cos"); break;
    case Exp:            math(kind, "exp"); break;
    case Floor:          math(kind, "floor"); break;
    case Sin:            math(kind, "sin"); break;
    case Tan:            math(kind, "tan"); break;
    case Atan2:          math2(kind, "atan2"); break;
    case Max:            math2(kind, "max"); break;
    case Min:            math2(kind, "min"); break;
    case Acos:           arcFunction(kind, "acos"); break;
    case Asin:           arcFunction(kind, "asin"); break;
    case Sqrt:           rootOrLog(kind, "sqrt", -2); break;
    case Log:            rootOrLog(kind, "log", -1); break;
    case Log10:          scaledLog(1.0 / std::log(10.0)); break;
    case Log2:           scaledLog(1.0 / std::log(2.0)); break;
    case Cosh:           cosh(); break;
    case Sinh:           sinh(); break;
    case Tanh:           tanh(); break;
    case Sec:            reciprocalOf(Cos); break;
    case Csc:            reciprocalOf(Sin); break;
    case Cot:            reciprocalOf(Tan); break;
    case Sech:           reciprocalOf(Cosh); break;
    case Csch:           reciprocalOf(Sinh); break;
    case Coth:           reciprocalOf(Tanh); break;
    case Round:
        invoke(f_.methodOf(kind, 1, "java/lang/Math", "round", "(D)J"));
        ops({op::l2d});
        break;
    case Fix:            fix(); break;
    case Sign:           ops({op::dconst_0, op::dcmpl, op::i2d}); break;
    case Imag:           ops({op::pop2, op::dconst_0}); break;
    case Equal:          compare(op::dcmpl, op::ifne); break;
    case NotEqual:       compare(op::dcmpl, op::ifeq); break;
    case GreaterEqual:   compare(op::dcmpl, op::iflt); break;
    case Greater:        compare(op::dcmpl, op::ifle); break;
    case LessEqual:      compare(op::dcmpg, op::ifgt); break;
    case Less:           compare(op::dcmpg, op::ifge); break;
    case Not:            isZero(); break;
    case And:            logic(false); break;
    case Or:             logic(true); break;
    case If:             select(); break;
    case Power:          power(); break;
    case Mod:            invoke(f_.modImpl()); break;
    default:             QX_RAISE("exprcomp", "QUORIX_assertion_failure");
    }
}

// acos, asin: status -4 unless |x| <= 1; a NaN fails.
void ExprComp::FunctionTable::Emitter::arcFunction(int kind, const char* name)
{
    ops({op::dup2});
    math(Abs, "abs");
    ops({op::dconst_1, op::dcmpg});
    const int ok = jump(op::ifle);
    leave(-4);
    m_.setJumpTarget(ok, math(kind, name));
}

// sqrt, log: the status unless x >= 0; a NaN fails.
void ExprComp::FunctionTable::Emitter::rootOrLog(int kind, const char* name, int status)
{
    ops({op::dup2, op::dconst_0, op::dcmpl});
    const int ok = jump(op::ifge);
    leave(status);
    m_.setJumpTarget(ok, math(kind, name));
}

void ExprComp::FunctionTable::Emitter::scaledLog(double factor)
{
    rootOrLog(Log, "log", -1);
    m_.addDconst(factor);
    ops({op::dmul});
}

// (e^-x + e^x) / 2
void ExprComp::FunctionTable::Emitter::cosh()
{
    ops({op::dup2, op::dneg});
    math(Exp, "exp");
    swapDoubles();
    math(Exp, "exp");
    ops({op::dadd});
    m_.addDconst(0.5);
    ops({op::dmul});
}

// (e^x - e^-x) / 2
void ExprComp::FunctionTable::Emitter::sinh()
{
    ops({op::dneg, op::dup2, op::dneg});
    math(Exp, "exp");
    swapDoubles();
    math(Exp, "exp");
    ops({op::dsub});
    m_.addDconst(0.5);
    ops({op::dmul});
}

// 1 above 30 (and for NaN), -1 below -30, sinh / cosh between.
void ExprComp::FunctionTable::Emitter::tanh()
{
    ops({op::dup2});
    m_.addDconst(30.0);
    ops({op::dcmpg});
    const int notLarge = jump(op::ifle);
    ops({op::pop2, op::dconst_1});
    const int large = jump(op::goto_);

    m_.setJumpTarget(notLarge, m_.add(op::dup2));
    m_.addDconst(-30.0);
    ops({op::dcmpl});
    const int notSmall = jump(op::ifge);
    ops({op::pop2});
    m_.addDconst(-1.0);
    const int small = jump(op::goto_);

    m_.setJumpTarget(notSmall, m_.add(op::dup2));
    sinh();
    swapDoubles();
    cosh();
    ops({op::ddiv});
    landOnNop({large, small});
}

void ExprComp::FunctionTable::Emitter::reciprocalOf(int kind)
{
    emit(kind, 1);
    ops({op::dconst_1});
    swapDoubles();
    ops({op::ddiv});
}

// comparison is the one of dcmpl and dcmpg that is false for a NaN.
void ExprComp::FunctionTable::Emitter::compare(int comparison, int jumpIfFalse)
{
    ops({comparison});
    const int isFalse = jump(jumpIfFalse);
    ops({op::dconst_1});
    const int isTrue = jump(op::goto_);
    m_.setJumpTarget(isFalse, m_.add(op::dconst_0));
    landOnNop({isTrue});
}

// 1 - cmp(x, 0)^2
void ExprComp::FunctionTable::Emitter::isZero()
{
    ops({op::dconst_0, op::dcmpl, op::dup, op::imul});
    m_.addIconst(1);
    ops({op::swap, op::isub, op::i2d});
}

// With p = cmp(b, 0)^2 and q = cmp(a, 0)^2: and is (p + q) >> 1, or is (p + q + 1) >> 1.
void ExprComp::FunctionTable::Emitter::logic(bool isOr)
{
    ops({op::dconst_0, op::dcmpl, op::dup, op::imul, op::dup_x2, op::pop});
    ops({op::dconst_0, op::dcmpl, op::dup, op::imul, op::iadd});
    if (isOr) {
        m_.addIconst(1);
        ops({op::iadd});
    }
    m_.addIconst(1);
    ops({op::ishr, op::i2d});
}

// The second operand unless the first is 0, then the third.
void ExprComp::FunctionTable::Emitter::select()
{
    m_.addDstore(scratch_);
    swapDoubles();
    ops({op::dconst_0, op::dcmpl});
    const int end = jump(op::ifne);
    ops({op::pop2});
    m_.addDload(scratch_);
    landOnNop({end});
}

void ExprComp::FunctionTable::Emitter::fix()
{
    ops({op::dup2, op::dconst_0, op::dcmpl});
    const int negative = jump(op::iflt);
    math(Floor, "floor");
    const int end = jump(op::goto_);
    m_.setJumpTarget(negative, math(Ceil, "ceil"));
    landOnNop({end});
}

// 0^b is 1 for b = 0 and else 0; a NaN result leaves with status -5.
void ExprComp::FunctionTable::Emitter::power()
{
    swapDoubles();
    ops({op::dup2, op::dconst_0, op::dcmpl});
    const int notZero = jump(op::ifne);
    ops({op::pop2});
    isZero();
    const int zeroBase = jump(op::goto_);

    m_.setJumpTarget(notZero, m_.add(op::dup2_x2));
    ops({op::pop2});
    math2(Power, "pow");
    ops({op::nop});

    m_.setJumpTarget(zeroBase, m_.add(op::dup2));
    invoke(f_.class_.getPool().getMethod("java/lang/Double", "isNaN", "(D)Z"));
    m_.addIstore(scratch_);
    m_.addIload(scratch_);
    const int isNumber = jump(op::ifle);
    leave(-5);
    landOnNop({isNumber});
}

void ExprComp::FunctionTable::generateCall(int kind, int nArgs, Method& method, int scratch)
{
    Emitter(*this, method, scratch).emit(kind, nArgs);
}

void ExprComp::Def::generateCode(FunctionTable& functions, Method& method, int scratch) const
{
    if (kind == Constant)
        method.addDconst(value);
    else
        functions.generateCall(kind, nArgs, method, scratch);
}

int ExprComp::FunctionTable::methodOf(int kind, int nArgs, const char* className, const char* name,
                                      const char* descriptor)
{
    if (const QxHashLookup hit = methods_.lookup({kind, nArgs}))
        return methods_.at(hit.slot);
    const int index = class_.getPool().getMethod(className, name, descriptor);
    methods_.insert({kind, nArgs}, index);
    return index;
}

// double modImpl(double a, double b)
int ExprComp::FunctionTable::modImpl()
{
    if (const QxHashLookup hit = methods_.lookup({Mod, 2}))
        return methods_.at(hit.slot);

    constexpr std::uint16_t publicStatic = 9;
    constexpr int a = 0, b = 2, q = 4, scratch = 6;
    const auto method = boost::make_shared<Method>(class_.getPool(), "modImpl", "(DD)D", publicStatic);
    Method& m = *method;
    const auto ops = [&m](std::initializer_list<int> codes) {
        for (const int code : codes)
            m.add(code);
    };
    m.addDload(b); // b = 0: a
    ops({op::dconst_0, op::dcmpl});
    const int notZero = m.addJumpInstr(op::ifne);
    m.addDload(a);
    ops({op::dreturn});

    m.addDload(a); // q = a / b
    m.setJumpTarget(notZero, m.getInstrCount() - 1);
    m.addDload(b);
    ops({op::ddiv});
    m.addDstore(q);

    m.addDload(b); // whole b: q = q + |q| 5 eps
    generateCall(Floor, 1, m, scratch);
    m.addDload(b);
    ops({op::dcmpl});
    const int notWhole = m.addJumpInstr(op::ifne);
    m.addDload(q);
    m.addDload(q);
    generateCall(Abs, 1, m, scratch);
    m.addDconst(5.0 * qxGetEps());
    ops({op::dmul, op::dadd});
    m.addDstore(q);

    m.addDload(a); // a - floor(q) b
    m.setJumpTarget(notWhole, m.getInstrCount() - 1);
    m.addDload(q);
    generateCall(Floor, 1, m, scratch);
    m.addDload(b);
    ops({op::dmul, op::dsub, op::dreturn});
    m.setLimits(10, 8);
    class_.addHelper(method);
    return methodOf(Mod, 2, class_.getName().c_str(), "modImpl", "(DD)D");
}

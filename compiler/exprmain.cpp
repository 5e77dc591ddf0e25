// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprcomp.hpp"

#include "classfile.hpp"
#include "compiler/opcodes_detail.hpp"

#include <boost/make_shared.hpp>

namespace op = qxcompiler::op;

// static void main(String[] args): the inputs, then how often to run; prints the outputs, and the seconds when it is more
// than once.
boost::shared_ptr<ExprComp::Method> ExprComp::createMain(ConstPool& pool, int evalMethodIndex, int nInputs, int nOutputs)
{
    constexpr std::uint16_t publicStatic = 9;
    constexpr int args = 0, x = 1, y = 2, i = 3, count = 4, start = 5, end = 7, status = 9;
    const auto method = boost::make_shared<Method>(pool, "main", "([Ljava/lang/String;)V", publicStatic);
    Method& m = *method;
    const auto invokeStatic = [&](const char* owner, const char* name, const char* descriptor) {
        m.addArg2(op::invokestatic, static_cast<std::uint16_t>(pool.getMethod(owner, name, descriptor)));
    };
    const auto systemOut = [&] {
        m.addArg2(op::getstatic,
                  static_cast<std::uint16_t>(pool.getField("java/lang/System", "out", "Ljava/io/PrintStream;")));
    };
    const auto print = [&](const char* name, const char* descriptor) {
        m.addArg2(op::invokevirtual, static_cast<std::uint16_t>(pool.getMethod("java/io/PrintStream", name, descriptor)));
    };
    const auto printText = [&](const char* text) {
        systemOut();
        m.addLdc(pool.getString(text));
        print("println", "(Ljava/lang/String;)V");
    };
    const auto newArray = [&](int size, int local) {
        m.addIconst(size);
        m.addArg1(op::newarray, op::arrayOfDouble);
        m.addAstore(local);
    };
    // for (i = 0; i < bound; ++i) body
    const auto loop = [&](const auto& pushBound, const auto& body) {
        m.addIconst(0);
        m.addIstore(i);
        m.addIload(i);
        const int top = m.getInstrCount() - 1;
        pushBound();
        const int leave = m.addJumpInstr(op::if_icmpge);
        body();
        m.addArg2(op::iinc, i, 1);
        m.setJumpTarget(m.addJumpInstr(op::goto_), top);
        m.setJumpTarget(leave, m.add(op::nop));
    };

    newArray(nInputs, x);
    newArray(nOutputs, y);
    loop([&] { m.addIconst(nInputs); },
         [&] {
             m.addAload(x);
             m.addIload(i);
             m.addAload(args);
             m.addIload(i);
             m.add(op::aaload);
             invokeStatic("java/lang/Double", "parseDouble", "(Ljava/lang/String;)D");
             m.add(op::dastore);
         });

    m.addIconst(1);
    m.addIstore(count);
    m.addAload(args);
    m.add(op::arraylength);
    m.addIconst(nInputs + 1);
    const int noCount = m.addJumpInstr(op::if_icmpne);
    m.addAload(args);
    m.addIconst(nInputs);
    m.add(op::aaload);
    invokeStatic("java/lang/Integer", "parseInt", "(Ljava/lang/String;)I");
    m.addIstore(count);
    m.setJumpTarget(noCount, m.add(op::nop));

    invokeStatic("java/lang/System", "currentTimeMillis", "()J");
    m.addLstore(start);
    loop([&] { m.addIload(count); },
         [&] {
             m.addAload(x);
             m.addAload(y);
             m.addArg2(op::invokestatic, static_cast<std::uint16_t>(evalMethodIndex));
             m.addIstore(status);
             m.addIload(status);
             const int success = m.addJumpInstr(op::ifeq);
             printText("error");
             systemOut();
             m.addIload(status);
             print("println", "(I)V");
             m.add(op::return_);
             m.setJumpTarget(success, m.add(op::nop));
         });
    invokeStatic("java/lang/System", "currentTimeMillis", "()J");
    m.addLstore(end);

    loop([&] { m.addIconst(nOutputs); },
         [&] {
             systemOut();
             m.addAload(y);
             m.addIload(i);
             m.add(op::daload);
             print("println", "(D)V");
         });
    m.addIload(count);
    m.addIconst(1);
    const int once = m.addJumpInstr(op::if_icmple);
    systemOut();
    m.addDconst(0.001);
    m.addLload(end);
    m.addLload(start);
    m.add(op::lsub);
    m.add(op::l2d);
    m.add(op::dmul);
    print("print", "(D)V");
    printText(" s");
    m.setJumpTarget(once, m.add(op::nop));
    m.add(op::return_);
    m.setLimits(20, 20);
    return method;
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "classfile.hpp"

#include "class_reader.hpp"
#include "probe.hpp"

#include <bit>
#include <boost/make_shared.hpp>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <sstream>

using namespace qxtest;
using ConstPool = ExprComp::ConstPool;
using Method = ExprComp::Method;

namespace {

const std::string assertion = "QUORIX_assertion_failure";
const std::string full = "Compilation failed: Too many different constants.";

struct Pool
{
    QxStringPool texts;
    ConstPool pool{texts};

    Bytes bytes() const
    {
        Bytes out;
        ExprComp::MemoryBytecodeStream stream(out);
        pool.writeBytecode(stream);
        return out;
    }
};

/// A method's code, without what stands around it.
Bytes codeOf(const Method& method)
{
    Bytes out;
    ExprComp::MemoryBytecodeStream stream(out);
    method.writeBytecode(stream);
    return Bytes(out.begin() + 22, out.end() - 4); // access, name, descriptor, count, "Code", length, limits, size
}

struct Fresh : Pool
{
    Method method{pool, "f", "()V", 9};
    template <class F>
    Bytes code(F f)
    {
        Method m(pool, "f", "()V", 9);
        f(m);
        return codeOf(m);
    }
};

void fill(ConstPool& pool, int upTo)
{
    for (int i = 0; pool.getCount() < upTo; ++i)
        pool.getInteger(i);
}

} // namespace

TEST(ClassFileInstr, KnowsItsOperandsAndJumps)
{
    ExprComp::Instr instr(0x99, 2, 1, 2);

    EXPECT_EQ(instr.getSize(), 3);
    instr.setArg(1, 9);
    EXPECT_EQ(instr.getArg(0), 1);
    EXPECT_EQ(instr.getArg(1), 9);
    EXPECT_EQ(idOf([&] { instr.getArg(2); }), assertion);
    EXPECT_EQ(idOf([&] { instr.getArg(-1); }), assertion);
    EXPECT_EQ(idOf([&] { instr.setArg(2, 0); }), assertion);
    EXPECT_EQ(idOf([] { ExprComp::Instr(0, 0).getArg(0); }), assertion);
    EXPECT_EQ(sizeof(ExprComp::Instr), 4u);
    for (int op = 0; op < 256; ++op)
        EXPECT_EQ(ExprComp::Instr::isJumpOpcode(op), (op >= 0x99 && op <= 0xA4) || op == 0xA7) << op;
}

TEST(ClassFileStream, WritesBigEndianToMemoryAndToStreams)
{
    Bytes bytes{9};
    std::ostringstream text;
    ExprComp::MemoryBytecodeStream memory(bytes);
    ExprComp::FileBytecodeStream file(text);
    for (ExprComp::BytecodeStream* stream : {static_cast<ExprComp::BytecodeStream*>(&memory),
                                             static_cast<ExprComp::BytecodeStream*>(&file)}) {
        *stream << std::uint8_t(1) << std::uint16_t(0x0203) << std::uint32_t(0x04050607);
        stream->write(Bytes{8, 255});
    }

    EXPECT_EQ(bytes, (Bytes{9, 1, 2, 3, 4, 5, 6, 7, 8, 255}));
    EXPECT_EQ(text.str(), "\1\2\3\4\5\6\7\10\377");
}

TEST(ClassFilePool, EntriesAreThoseOfTheFormat)
{
    Pool p;

    EXPECT_EQ(p.pool.getMethod("C", "m", "()V"), 6); // the texts and references before it
    EXPECT_EQ(p.pool.getInteger(-2), 7);
    EXPECT_EQ(p.pool.getDouble(1.5), 8);
    EXPECT_EQ(p.pool.getString("s"), 11);
    EXPECT_EQ(p.pool.getField("C", "f", "I"), 15);

    EXPECT_EQ(p.pool.getCount(), 15);
    EXPECT_EQ(p.bytes(), (Bytes{0, 16,
                                1, 0, 1, 'C', 7, 0, 1,                                // 1, 2
                                1, 0, 1, 'm', 1, 0, 3, '(', ')', 'V', 12, 0, 3, 0, 4, // 3 to 5
                                10, 0, 2, 0, 5,                                       // 6
                                3, 255, 255, 255, 254,                                // 7
                                6, 0x3f, 0xf8, 0, 0, 0, 0, 0, 0,                      // 8 and 9
                                1, 0, 1, 's', 8, 0, 10,                               // 10, 11
                                1, 0, 1, 'f', 1, 0, 1, 'I', 12, 0, 12, 0, 13,         // 12 to 14
                                9, 0, 2, 0, 14}));                                    // 15
}

TEST(ClassFilePool, EqualBytesShareAnIndexAndOthersDoNot)
{
    Pool p;
    const double quiet = std::numeric_limits<double>::quiet_NaN();
    const double otherNaN = std::bit_cast<double>(std::bit_cast<std::uint64_t>(quiet) | 1);

    EXPECT_EQ(p.pool.getDouble(0.5), p.pool.getDouble(0.5));
    EXPECT_NE(p.pool.getDouble(0.0), p.pool.getDouble(-0.0));
    EXPECT_NE(p.pool.getDouble(quiet), p.pool.getDouble(otherNaN));
    EXPECT_EQ(p.pool.getUtf8("abc"), p.pool.getUtf8("abc"));
    EXPECT_NE(p.pool.getUtf8("abc"), p.pool.getUtf8("abd"));
    EXPECT_NE(p.pool.getClass("abc"), p.pool.getString("abc"));
    EXPECT_EQ(idOf([&] { p.pool.getIndex({}); }), assertion);
}

TEST(ClassFilePool, TextIsRawBytesOfAtMost65535)
{
    Pool p;

    p.pool.getUtf8(std::string("\xc3\xa9\0", 3));
    EXPECT_EQ(p.bytes(), (Bytes{0, 2, 1, 0, 3, 0xc3, 0xa9, 0}));
    EXPECT_EQ(idOf([&] { p.pool.getUtf8(std::string(65536, 'x')); }), full);
    EXPECT_EQ(p.pool.getUtf8(std::string(65535, 'x')), 2);
}

TEST(ClassFilePool, OverflowsWithItsTextAndStillKnowsWhatItHas)
{
    Pool p;
    const qxbase::Exception raised = failureOf([&] {
        for (int i = 0; i < 33000; ++i)
            p.pool.getDouble(i);
    });

    EXPECT_EQ(raised.getId(), full);
    EXPECT_EQ(raised.getFile(0), "exprcomp");
    EXPECT_EQ(p.pool.getCount(), 65536);
    EXPECT_EQ(p.pool.getDouble(5), 11); // seen before
    EXPECT_EQ(idOf([&] { p.pool.getInteger(1); }), full);
}

TEST(ClassFilePool, LastIndexIsForAnEntryOfOneSlot)
{
    Pool p;
    fill(p.pool, 65535);

    EXPECT_EQ(idOf([&] { p.pool.getDouble(0.5); }), full);
    EXPECT_EQ(p.pool.getInteger(-1), 65536);
    EXPECT_EQ(idOf([&] { p.pool.getInteger(-2); }), full);
}

TEST(ClassFilePool, CountMustFitTheFormatWhenTheClassIsWritten)
{
    // The count in the file is one more than the highest index, in 16 bits.
    for (const int count : {65534 - 2, 65534 - 1}) {
        QxStringPool texts;
        ExprComp::ClassFile file(texts, "A", "B");
        fill(file.getPool(), count);
        Bytes bytes;
        ExprComp::MemoryBytecodeStream stream(bytes);

        EXPECT_EQ(idOf([&] { file.write(stream); }), count == 65532 ? "" : full);
        EXPECT_EQ(bytes.empty(), count != 65532);
        if (!bytes.empty()) {
            EXPECT_EQ(ClassReader(bytes).pool.size(), 65535u);
        }
    }
}

TEST(ClassFileMethod, PushesIntegersInTheShortestForm)
{
    Fresh f;
    const auto push = [&](int value) { return f.code([&](Method& m) { m.addIconst(value); }); };

    EXPECT_EQ(push(-1), (Bytes{0x02}));
    EXPECT_EQ(push(0), (Bytes{0x03}));
    EXPECT_EQ(push(5), (Bytes{0x08}));
    EXPECT_EQ(push(6), (Bytes{0x10, 6}));
    EXPECT_EQ(push(-2), (Bytes{0x10, 0xFE}));
    EXPECT_EQ(push(127), (Bytes{0x10, 127}));
    EXPECT_EQ(push(-128), (Bytes{0x10, 0x80}));
    EXPECT_EQ(push(128)[0], 0x12); // from the pool: no sipush
    EXPECT_EQ(push(-129)[0], 0x12);
}

TEST(ClassFileMethod, LongLdcFromIndex256)
{
    Fresh f;
    fill(f.pool, 254);

    EXPECT_EQ(f.code([&](Method& m) { m.addIconst(1000000); }), (Bytes{0x12, 255}));
    EXPECT_EQ(f.code([&](Method& m) { m.addIconst(1000001); }), (Bytes{0x13, 1, 0}));
}

TEST(ClassFileMethod, PushesDoublesAndQuirkLosesTheSignOfZero)
{
    Fresh f;
    const auto push = [&](double value) { return f.code([&](Method& m) { m.addDconst(value); }); };

    EXPECT_EQ(push(0.0), (Bytes{0x0E}));
    EXPECT_EQ(push(-0.0), (Bytes{0x0E}));
    EXPECT_EQ(push(1.0), (Bytes{0x0F}));
    EXPECT_EQ(push(-1.0)[0], 0x14);
    EXPECT_EQ(push(std::nan(""))[0], 0x14);
}

TEST(ClassFileMethod, LoadsAndStoresInThreeForms)
{
    Fresh f;
    using Access = void (Method::*)(int);
    struct Row
    {
        Access access;
        unsigned char op, shortBase;
    };
    for (const Row& row : {Row{&Method::addIload, 0x15, 0x1A}, Row{&Method::addLload, 0x16, 0x1E},
                           Row{&Method::addDload, 0x18, 0x26}, Row{&Method::addAload, 0x19, 0x2A},
                           Row{&Method::addIstore, 0x36, 0x3B}, Row{&Method::addLstore, 0x37, 0x3F},
                           Row{&Method::addDstore, 0x39, 0x47}, Row{&Method::addAstore, 0x3A, 0x4B}}) {
        const auto code = [&](int slot) { return f.code([&](Method& m) { (m.*row.access)(slot); }); };
        EXPECT_EQ(code(0), (Bytes{row.shortBase}));
        EXPECT_EQ(code(3), (Bytes{static_cast<unsigned char>(row.shortBase + 3)}));
        EXPECT_EQ(code(4), (Bytes{row.op, 4}));
        EXPECT_EQ(code(255), (Bytes{row.op, 255}));
        EXPECT_EQ(code(256), (Bytes{0xC4, row.op, 1, 0}));
        EXPECT_EQ(code(65535), (Bytes{0xC4, row.op, 255, 255}));
        EXPECT_EQ(idOf([&] { code(-1); }), assertion);
    }
}

TEST(ClassFileMethod, JumpsForwardAndBackByBytes)
{
    Fresh f;
    Method& m = f.method;
    const int top = m.add(0);
    const int forward = m.addJumpInstr(0x99);
    m.addIconst(100);
    const int back = m.addJumpInstr(0xA7);
    const int end = m.add(0);
    m.setJumpTarget(forward, end);
    m.setJumpTarget(back, top);

    EXPECT_EQ(codeOf(m), (Bytes{0, 0x99, 0, 8, 0x10, 100, 0xA7, 0xFF, 0xFA, 0}));
    EXPECT_EQ(m.getCodeLength(), 10);
    EXPECT_EQ(m.getOffset(end), 9);
    EXPECT_EQ(m.getInstrCount(), 5);
}

TEST(ClassFileMethod, RefusesBadJumps)
{
    Fresh f;
    Method& m = f.method;
    const int jump = m.addJumpInstr(0xA7);
    const int plain = m.addArg2(0x11, 0, 1);

    EXPECT_EQ(idOf([&] { m.addJumpInstr(0xA5); }), assertion); // if_acmpeq
    EXPECT_EQ(idOf([&] { m.setJumpTarget(jump, 2); }), assertion);
    EXPECT_EQ(idOf([&] { m.setJumpTarget(-1, 0); }), assertion);
    EXPECT_EQ(idOf([&] { m.setJumpTarget(2, 0); }), assertion);
    EXPECT_EQ(idOf([&] { m.setJumpTarget(plain, 0); }), assertion);
    EXPECT_EQ(idOf([&] { m.getInstr(2); }), assertion);
    EXPECT_EQ(idOf([&] { m.getOffset(-1); }), assertion);
    while (m.getCodeLength() < 32767)
        m.add(0);
    const int last = m.add(0), beyond = m.add(0);
    m.setJumpTarget(jump, last);
    EXPECT_EQ(idOf([&] { m.setJumpTarget(jump, beyond); }), assertion);
}

TEST(ClassFile, MinimalClassIsExactlyThis)
{
    QxStringPool texts;
    ExprComp::ClassFile file(texts, "T", "java/lang/Object");
    Bytes bytes;
    ExprComp::MemoryBytecodeStream stream(bytes);
    file.write(stream);

    const auto text = [](const std::string& t) { return Bytes(t.begin(), t.end()); };
    Bytes wanted{0xCA, 0xFE, 0xBA, 0xBE, 0, 0, 0, 46, 0, 12};
    for (const Bytes& entry : {Bytes{1, 0, 1}, text("T"), Bytes{7, 0, 1},                     // 1, 2
                               Bytes{1, 0, 16}, text("java/lang/Object"), Bytes{7, 0, 3},      // 3, 4
                               Bytes{1, 0, 6}, text("<init>"), Bytes{1, 0, 3}, text("()V"),    // 5, 6
                               Bytes{1, 0, 4}, text("Code"),                                   // 7
                               Bytes{12, 0, 5, 0, 6}, Bytes{10, 0, 4, 0, 8},                   // 8, 9
                               Bytes{1, 0, 10}, text("SourceFile"),                            // 10
                               Bytes{1, 0, 30}, text("Byte code generated by QUORIX."),        // 11
                               Bytes{0, 0x21, 0, 2, 0, 4, 0, 0, 0, 0, 0, 1},                   // no fields, one method
                               Bytes{0, 2, 0, 5, 0, 6, 0, 1, 0, 7, 0, 0, 0, 17, 0, 1, 0, 1, 0, 0, 0, 5},
                               Bytes{0x2A, 0xB7, 0, 9, 0xB1, 0, 0, 0, 0},
                               Bytes{0, 1, 0, 10, 0, 0, 0, 2, 0, 11}})
        wanted.insert(wanted.end(), entry.begin(), entry.end());
    EXPECT_EQ(bytes, wanted);

    const ClassReader read(bytes);
    EXPECT_EQ(read.name, "T");
    EXPECT_EQ(read.superName, "java/lang/Object");
    EXPECT_EQ(read.major, 46);
    EXPECT_EQ(read.minor, 0);
    EXPECT_EQ(read.access, 0x21);
    EXPECT_EQ(read.sourceFile, "Byte code generated by QUORIX.");
    EXPECT_TRUE(read.fields.empty());
    ASSERT_EQ(read.methods.size(), 1u);
    EXPECT_EQ(read.methods[0].name, "<init>");
    EXPECT_EQ(read.methods[0].access, 2);
    EXPECT_EQ(read.methods[0].maxStack, 1);
    EXPECT_EQ(read.methods[0].maxLocals, 1);

    Bytes again;
    ExprComp::MemoryBytecodeStream second(again);
    file.write(second);
    EXPECT_EQ(again, bytes);
}

TEST(ClassFile, FieldsWithAndWithoutValues)
{
    QxStringPool texts;
    ExprComp::ClassFile file(texts, "T", "java/lang/Object");
    ConstPool& pool = file.getPool();
    file.addField(boost::make_shared<ExprComp::Field>(pool, "N", "I", std::uint16_t(0x19), pool.getInteger(-7)));
    file.addField(boost::make_shared<ExprComp::Field>(pool, "M", "I", std::uint16_t(9), -1));
    Bytes bytes;
    ExprComp::MemoryBytecodeStream stream(bytes);
    file.write(stream);

    const ClassReader read(bytes);
    ASSERT_EQ(read.fields.size(), 2u);
    EXPECT_EQ(read.fields[0].name, "N");
    EXPECT_EQ(read.fields[0].access, 0x19);
    EXPECT_EQ(read.fields[0].value, -7);
    EXPECT_TRUE(read.fields[0].hasValue);
    EXPECT_FALSE(read.fields[1].hasValue);
}

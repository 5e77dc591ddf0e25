// SPDX-License-Identifier: LicenseRef-qxkernel
// What generated classes look like: methods and their lengths, pieces, pools; every class of these tests is checked by an
// independent simulation of the operand stack.
#include "class_reader.hpp"
#include "classfile.hpp"
#include "compiler/exprkinds_detail.hpp"
#include "probe.hpp"
#include "random_list.hpp"

#include <algorithm>
#include <gmock/gmock.h>

using namespace qxtest;
using testing::ElementsAre;

namespace {

Texts methodNames(const ClassReader& read)
{
    Texts names;
    for (const ClassReader::Method& m : read.methods)
        names.push_back(m.name);
    return names;
}

/// The class of a list, checked.
Bytes checkedClass(ExprComp& comp, bool withMain = false)
{
    Bytes bytes;
    comp.compile("T", "eval", bytes, withMain);
    const ClassReader read(bytes);
    CodeChecker(read).checkAll();
    EXPECT_LE(read.longestMethod(), 8000);
    return bytes;
}

/// y = f(f(...f(x)...)), n times.
void addChain(ExprComp& comp, int kind, int n)
{
    comp.addInput(-1);
    for (int i = 0; i < n; ++i)
        comp.addDef(i, kind, i == 0 ? -1 : i - 1);
    comp.addOutput(n - 1);
}

/// n sums that are all alive before their products: as many registers.
void addFan(ExprComp& comp, int n)
{
    comp.addInput(-1);
    for (int i = 0; i < n; ++i) {
        comp.addDef(3 * i, 0.5 + i % 100);
        comp.addDef(3 * i + 1, ExprComp::Plus, i == 0 ? -1 : 3 * i - 2, 3 * i);
    }
    for (int i = 0; i < n; ++i) // the sum of all, from the last to the first
        comp.addDef(3 * i + 2, ExprComp::Times, i == 0 ? 3 * n - 2 : 3 * i - 1, 3 * (n - 1 - i) + 1);
    comp.addOutput(3 * n - 1);
}

} // namespace

TEST(ClassCode, TableOfOperationLengthsIsExact)
{
    for (const qxcompiler::KindInfo& info : qxcompiler::kindTable) {
        if (info.kind == ExprComp::Constant)
            continue;
        QxStringPool texts;
        ExprComp::ClassFile file(texts, "T", "java/lang/Object");
        ExprComp::Method method(file.getPool(), "f", "()V", 9);

        file.getFunctions().generateCall(info.kind, info.nArgs, method, 3);

        EXPECT_EQ(method.getCodeLength(), info.codeBytes) << info.name;
        EXPECT_EQ(idOf([&] { file.getFunctions().generateCall(info.kind, info.nArgs + 1, method, 3); }),
                  "QUORIX_assertion_failure");
    }
}

TEST(ClassCode, UnknownKindIsRefused)
{
    QxStringPool texts;
    ExprComp::ClassFile file(texts, "T", "java/lang/Object");
    ExprComp::Method method(file.getPool(), "f", "()V", 9);
    for (const int kind : {0, 57, -3})
        EXPECT_EQ(idOf([&] { file.getFunctions().generateCall(kind, 1, method, 3); }), "QUORIX_assertion_failure");
    EXPECT_EQ(idOf([&] { file.getFunctions().generateCall(ExprComp::Constant, 0, method, 3); }),
              "QUORIX_assertion_failure");
    EXPECT_EQ(ExprComp::FunctionTable::getName(ExprComp::Sin), "sin");
}

TEST(ClassCode, SmallFormulaIsOneMethodWithoutSpillArray)
{
    Probe comp({"y=*(s,b)", "s=sin(a)"}, {"a", "b"}, {"y"});
    const Bytes bytes = checkedClass(comp);
    const ClassReader read(bytes);

    EXPECT_THAT(methodNames(read), ElementsAre("<init>", "eval"));
    const ClassReader::Method& eval = read.method("eval");
    EXPECT_EQ(eval.descriptor, "([D[D)I");
    EXPECT_EQ(eval.access, 9);
    EXPECT_EQ(eval.maxLocals, 5 + 2 * 8);
    ASSERT_EQ(read.fields.size(), 2u);
    EXPECT_EQ(read.fields[0].name, "NARGIN");
    EXPECT_EQ(read.fields[0].value, 2);
    EXPECT_EQ(read.fields[1].name, "NARGOUT");
    EXPECT_EQ(read.fields[1].value, 1);
    EXPECT_EQ(read.fields[0].access, 0x19);
    // aload_0; dup, iconst_1, daload, pop2; dup, iconst_0, daload, sin; (b) dup2_x1, pop2, dup_x2, iconst_1, daload, dmul;
    // aload_1, iconst_0, dup2_x2, pop2, dastore; iconst_0, ireturn
    const Bytes& code = eval.code;
    ASSERT_EQ(code.size(), 24u);
    EXPECT_EQ(Bytes(code.begin(), code.begin() + 9), (Bytes{0x2A, 0x59, 0x04, 0x31, 0x58, 0x59, 0x03, 0x31, 0xB8}));
    EXPECT_EQ(Bytes(code.begin() + 11, code.end()),
              (Bytes{0x5D, 0x58, 0x5B, 0x04, 0x31, 0x6B, 0x2B, 0x03, 0x5E, 0x58, 0x52, 0x03, 0xAC}));
}

TEST(ClassCode, TwoInputsShareTheWorkOfBringingUpTheirArray)
{
    Probe comp({"y=-(a,b)"}, {"a", "b"}, {"y"});
    const Bytes bytes = checkedClass(comp);
    const Bytes code = ClassReader(bytes).method("eval").code;

    // dup, dup, iconst_0, daload; dup2_x1, pop2, iconst_1, daload; dsub
    EXPECT_EQ(Bytes(code.begin() + 5, code.begin() + 14),
              (Bytes{0x59, 0x59, 0x03, 0x31, 0x5D, 0x58, 0x04, 0x31, 0x67}));
}

TEST(ClassCode, NoInputsMeansNoTouchOfTheirArray)
{
    Probe comp({"y=sin(k)", "k=2"}, {}, {"y"});
    const Bytes bytes = checkedClass(comp);
    const Bytes code = ClassReader(bytes).method("eval").code;

    EXPECT_EQ(code[0], 0x2A);
    EXPECT_EQ(code[1], 0x14); // the constant at once
}

TEST(ClassCode, NoOutputsIsAClassThatDoesNothing)
{
    Probe comp({"y=sin(a)"}, {"a"}, {});
    const Bytes bytes = checkedClass(comp);

    EXPECT_EQ(ClassReader(bytes).method("eval").code, (Bytes{0x2A, 0x59, 0x03, 0x31, 0x58, 0x03, 0xAC}));
}

TEST(ClassCode, HelperOfModIsThereOnceAndBehindTheConstructor)
{
    Texts definitions{"v0=mod(a,b)"};
    for (int i = 1; i < 3000; ++i)
        definitions.push_back("v" + std::to_string(i) + (i % 2 ? "=sin(v" : "=mod(a,v") + std::to_string(i - 1) + ")");
    Probe many(definitions, {"a", "b"}, {"v2999"});
    // the first use in a piece of a piece
    Texts late{"v0=sin(a)"};
    for (int i = 1; i < 3000; ++i)
        late.push_back("v" + std::to_string(i) + (i < 2900 ? "=sin(v" : "=mod(a,v") + std::to_string(i - 1) + ")");
    Probe inPiece(late, {"a", "b"}, {"v2999"});
    Probe none({"y=sin(a)"}, {"a"}, {"y"});

    for (Probe* comp : {&many, &inPiece}) {
        const Bytes bytes = checkedClass(*comp);
        const Texts names = methodNames(ClassReader(bytes));
        EXPECT_EQ(std::count(names.begin(), names.end(), "modImpl"), 1);
        EXPECT_EQ(names[1], "modImpl");
        const ClassReader::Method helper = ClassReader(bytes).method("modImpl");
        EXPECT_EQ(helper.maxStack, 10);
        EXPECT_EQ(helper.maxLocals, 8);
        EXPECT_EQ(helper.descriptor, "(DD)D");
    }
    EXPECT_THAT(methodNames(ClassReader(checkedClass(none))), ElementsAre("<init>", "eval"));
}

TEST(ClassCode, LongFormulaIsATreeOfPiecesInDepthFirstOrder)
{
    Probe comp;
    addChain(comp, ExprComp::Sin, 4000);
    const Bytes bytes = checkedClass(comp);
    const ClassReader read(bytes);

    const Texts names = methodNames(read);
    EXPECT_THAT(names, testing::Contains("evalA"));
    EXPECT_THAT(names, testing::Contains("evalB"));
    EXPECT_EQ(names.back(), "eval");
    for (std::size_t i = 1; i < names.size(); ++i) { // a piece stands before the one that calls it
        const auto parent = std::find(names.begin(), names.end(), names[i].substr(0, names[i].size() - 1));
        if (names[i] != "eval") {
            EXPECT_GT(parent - names.begin(), static_cast<long>(i)) << names[i];
            EXPECT_EQ(read.method(names[i]).descriptor, "([D[D[D)I");
        }
    }
}

TEST(ClassCode, NoMethodIsLongerThanTheVirtualMachineCompiles)
{
    for (const int kind : {ExprComp::Coth, ExprComp::Tanh, ExprComp::Csch, ExprComp::Acos, ExprComp::Sin}) {
        Probe comp;
        addChain(comp, kind, 3000);
        EXPECT_GT(ClassReader(checkedClass(comp)).longestMethod(), 6000) << kind;
    }
    Probe fan;
    addFan(fan, 3000);
    checkedClass(fan);
}

TEST(ClassCode, ChainWithAnInputBesideEveryStepIsCutToo)
{
    for (const int kind : {ExprComp::Plus, ExprComp::Minus, ExprComp::Power}) {
        Probe comp;
        comp.addInput(-1);
        for (int i = 0; i < 20000; ++i)
            comp.addDef(i, kind, -1, i == 0 ? -1 : i - 1);
        comp.addOutput(19999);
        checkedClass(comp);
    }
}

TEST(ClassCode, ManyRegistersUseWideLocals)
{
    Probe comp;
    addFan(comp, 300);
    const Bytes bytes = checkedClass(comp);

    EXPECT_GT(ClassReader(bytes).method("eval").maxLocals, 5 + 2 * 290);
}

TEST(ClassCode, ManyInputsAndOutputsUseIntegersOfThePool)
{
    Texts inputNames, definitions, outputNames;
    for (int i = 0; i < 200; ++i) {
        const std::string n = std::to_string(i);
        inputNames.push_back("x" + n);
        definitions.push_back("y" + n + "=sin(x" + n + ")");
        outputNames.push_back("y" + n);
    }
    Probe comp(definitions, inputNames, outputNames);
    const Bytes bytes = checkedClass(comp);

    const ClassReader read(bytes);
    int integers = 0;
    for (const ClassReader::Constant& c : read.pool)
        integers += c.tag == 3;
    EXPECT_EQ(integers, 200 - 128 + 1); // 128 to 199, and the 200 of the two fields
}

TEST(ClassCode, RegistersBeyondTheLastLocalAreRefusedBeforeAnyCode)
{
    for (const int registers : {32765, 32766}) {
        Probe comp;
        addFan(comp, registers);
        Bytes bytes{1};

        const std::string id = idOf([&] { comp.compile("T", "f", bytes, false); });

        EXPECT_EQ(comp.regState.size(), static_cast<std::size_t>(registers));
        EXPECT_EQ(id, registers == 32765 ? "" : "Compilation failed: Too many different constants.");
        EXPECT_EQ(bytes.empty(), registers == 32766);
        if (!bytes.empty()) {
            const ClassReader read(bytes);
            EXPECT_EQ(read.method("f").maxLocals, 65535);
            EXPECT_LE(read.longestMethod(), 8000);
        }
    }
}

TEST(ClassCode, TooManyConstantsAreRefused)
{
    Probe comp;
    comp.addInput(-1);
    for (int i = 0; i < 33000; ++i) {
        comp.addDef(2 * i, 0.5 + i);
        comp.addDef(2 * i + 1, ExprComp::Plus, i == 0 ? -1 : 2 * i - 1, 2 * i);
    }
    comp.addOutput(2 * 33000 - 1);
    Bytes bytes;

    EXPECT_EQ(idOf([&] { comp.compile("T", "f", bytes, false); }), "Compilation failed: Too many different constants.");
}

TEST(ClassCode, PiecesNestAsTheLogarithmOfTheLength)
{
    Probe comp;
    addChain(comp, ExprComp::UnaryMinus, 200000);
    Probe notFolded;
    notFolded.addInput(-1);
    for (int i = 0; i < 200000; ++i)
        notFolded.addDef(i, i % 2 ? ExprComp::Floor : ExprComp::Abs, i == 0 ? -1 : i - 1);
    notFolded.addOutput(199999);
    const Bytes bytes = checkedClass(notFolded);

    std::size_t deepest = 0;
    for (const std::string& name : methodNames(ClassReader(bytes)))
        deepest = std::max(deepest, name.size());
    EXPECT_LE(deepest, 4u + 8u); // 200000 / 2^8 fits one method
    checkedClass(comp);
}

TEST(ClassCode, MainIsTheLastMethodAndVerifies)
{
    Probe comp({"y=sqrt(a)", "z=+(a,b)"}, {"a", "b"}, {"y", "z"});
    const Bytes bytes = checkedClass(comp, true);
    const ClassReader read(bytes);

    EXPECT_THAT(methodNames(read), ElementsAre("<init>", "eval", "main"));
    EXPECT_EQ(read.method("main").maxStack, 20);
    EXPECT_EQ(read.method("main").maxLocals, 20);
    EXPECT_EQ(read.method("main").descriptor, "([Ljava/lang/String;)V");
}

TEST(ClassCode, RandomListsOfEveryShapeCheckAndStayWithinTheirBounds)
{
    for (unsigned seed = 0; seed < 1500; ++seed) {
        RandomList::Options options;
        options.inputs = static_cast<int>(seed % 6);
        options.operations = seed % 10 == 0 ? 1500 : 1 + static_cast<int>(seed % 151);
        options.outputs = 1 + static_cast<int>(seed % 7);
        options.nearby = seed % 4 == 0 ? 2 : seed % 4 == 1 ? 10 : 0;
        RandomList list(seed, options);
        Probe comp(list.definitions, list.inputs, list.outputs);
        try {
            checkedClass(comp, seed % 2 == 0);
        } catch (const std::runtime_error& e) {
            FAIL() << "seed " << seed << ": " << e.what();
        }
    }
}

TEST(ClassCode, SameListGivesTheSameBytes)
{
    RandomList list(3, {3, 2000, 3, true, 0});
    Probe first(list.definitions, list.inputs, list.outputs), second(list.definitions, list.inputs, list.outputs);

    EXPECT_EQ(first.classBytes(), second.classBytes());
}

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "probe.hpp"

#include "compiler/exprkinds_detail.hpp"
#include "qxnumber.hpp"
#include "support/comma_locale.hpp"

#include <cmath>
#include <gmock/gmock.h>

using namespace qxtest;

namespace {

double constantOf(const std::string& text)
{
    const Probe comp({"y=" + text}, {}, {});
    return comp.defs.front().value;
}

void expectSyntaxError(const std::string& text)
{
    Probe comp;
    const qxbase::Exception raised = failureOf([&] { comp.parse({"a=1", text}, {"x"}, {"y"}); });
    EXPECT_EQ(raised.getId(), "Syntax_error_in_expression") << text;
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised.getFile(0), "exprcomp");
    EXPECT_EQ(raised.getArgs(0), (qxbase::ExceptionArgs{{"Expression", text}}));
    EXPECT_TRUE(comp.defs.empty() && comp.inputs.empty() && comp.outputs.empty()) << "something was added: " << text;
}

} // namespace

TEST(ExprCompParse, ReadsAllFiftyOneRowsOfTheTable)
{
    int rows = 0;
    for (const qxcompiler::KindInfo& info : qxcompiler::kindTable) {
        if (!info.inText)
            continue;
        ++rows;
        const Texts names{"a", "b", "c"};
        std::string text = std::string("y=") + info.name + '(';
        for (int i = 0; i < info.nArgs; ++i)
            text += (i ? "," : "") + names[static_cast<std::size_t>(i)];

        Probe comp({text + ")"}, names, {"y"});

        ASSERT_EQ(comp.defs.size(), 1u);
        EXPECT_EQ(comp.defs[0].kind, info.kind) << text;
        EXPECT_EQ(comp.defs[0].nArgs, info.nArgs);
        for (int i = 0; i < info.nArgs; ++i)
            EXPECT_EQ(comp.getVarName(comp.defs[0].args[static_cast<std::size_t>(i)]), names[static_cast<std::size_t>(i)]);
        EXPECT_EQ(comp.getVarName(comp.defs[0].id), "y");
    }
    EXPECT_EQ(rows, 51);
}

TEST(ExprCompParse, RightSideWithoutParenthesisIsReadLikeAtof)
{
    EXPECT_EQ(constantOf("2.5"), 2.5);
    EXPECT_EQ(constantOf("  -3e2xyz"), -300.0);
    EXPECT_EQ(constantOf("0x10"), 16.0);
    EXPECT_EQ(constantOf("1e"), 1.0);
    EXPECT_EQ(constantOf(""), 0.0);
    EXPECT_TRUE(std::isinf(constantOf("inf")));
    EXPECT_TRUE(std::isnan(constantOf("nan")));
    EXPECT_EQ(constantOf("1e400"), qxGetInf());
}

TEST(ExprCompParse, QuirkAWordIsZero)
{
    EXPECT_EQ(constantOf("foo"), 0.0);
    EXPECT_EQ(constantOf("b"), 0.0); // no alias of b: write identity(b)
}

TEST(ExprCompParse, ReadsAPointInALocaleWithAComma)
{
    const CommaLocale comma;
    ASSERT_TRUE(CommaLocale::isInForce());

    EXPECT_EQ(constantOf("2.5"), 2.5);
    EXPECT_EQ(constantOf("2,5"), 2.0);
}

TEST(ExprCompParse, MalformedTextIsASyntaxErrorAndAddsNothing)
{
    for (const char* text : {"y", "", "sin(x)", "y=sin(a", "y=sin(a,b)", "y=sin(a) ", "y=sine(a)", "y=(a)", "y=+(a)",
                             "y=if(a,b)", "y=if(a,b,c,d)", "y= sin(a)", "y=&&(a,b)", "y=/NZ(a,b)", "y=^2(a)", "y=^(a)",
                             "y=sin(", "y=atan2(a)"})
        expectSyntaxError(text);
}

TEST(ExprCompParse, LongTextIsRefusedOrReadInLinearTime)
{
    const std::string million(1000000, 'x');
    expectSyntaxError(million);
    expectSyntaxError("y=" + std::string(1000000, '('));
    expectSyntaxError("y=" + std::string(1000000, ',') + "(");

    Probe comp({million + "=sin(" + million + "a)"}, {million + "a"}, {million});

    comp.runPasses();
    EXPECT_EQ(comp.valuesAt({0.0}), std::vector<double>{0.0});
}

TEST(ExprCompParse, TakesNamesAsTheyStand)
{
    // Blanks, bytes beyond ASCII, the empty name, and "=" inside a right side.
    Probe comp({" y =sin( x)", "\xc3\xa9=identity( y )", "=cos( x)", "z=+(\xc3\xa9,)"}, {" x"}, {"z"});

    comp.runPasses();

    EXPECT_EQ(comp.valuesAt({0.5})[0], interpretedFunction("sin", {0.5}) + interpretedFunction("cos", {0.5}));
}

TEST(ExprCompParse, FirstEqualsSignEndsTheName)
{
    const Probe comp({"a===(x,b)", "c=1=2"}, {"x", "b"}, {});

    EXPECT_EQ(comp.defs[0].kind, ExprComp::Equal);
    EXPECT_EQ(comp.defs[1].value, 1.0);
}

TEST(ExprCompParse, DefinitionsMayComeInAnyOrderAndInSeveralCalls)
{
    Probe comp;
    comp.parse({"y=+(s,c)"}, {"x"}, {"y"});
    comp.parse({"s=sin(x)", "c=identity(k)", "k=3"}, {}, {"s"});

    comp.runPasses();

    const double s = interpretedFunction("sin", {0.25});
    EXPECT_EQ(comp.valuesAt({0.25}), (std::vector<double>{s + 3, s}));
}

TEST(ExprCompBuilding, IsRefusedAfterCompile)
{
    Probe comp({"y=sin(x)"}, {"x"}, {"y"});
    comp.classBytes();
    const std::string assertion = "QUORIX_assertion_failure";

    EXPECT_EQ(idOf([&] { comp.addInput(1); }), assertion);
    EXPECT_EQ(idOf([&] { comp.addOutput(1); }), assertion);
    EXPECT_EQ(idOf([&] { comp.addDef(1, 2.0); }), assertion);
    EXPECT_EQ(idOf([&] { comp.addDef(1, ExprComp::Sin, 2); }), assertion);
    EXPECT_EQ(idOf([&] { comp.addDef(1, ExprComp::Plus, 2, 3); }), assertion);
    EXPECT_EQ(idOf([&] { comp.addDef(1, ExprComp::If, 2, 3, 4); }), assertion);
    EXPECT_EQ(idOf([&] { comp.addDef(1, ExprComp::Sin, std::vector<int>{2}); }), assertion);
    EXPECT_EQ(idOf([&] { comp.setName(1, "x"); }), assertion);
    EXPECT_EQ(idOf([&] { comp.parse({}, {}, {}); }), assertion);
    EXPECT_EQ(idOf([&] { comp.classBytes(); }), assertion);
    EXPECT_EQ(comp.valuesAt({0.5}), std::vector<double>{interpretedFunction("sin", {0.5})});
}

TEST(ExprCompBuilding, NamesDefaultToTheIdAndTheLastOneHolds)
{
    Probe comp;
    EXPECT_EQ(comp.getVarName(7), "_v7");
    EXPECT_EQ(comp.getVarName(-2), "_v-2");

    comp.setName(7, "T");
    comp.setName(7, "temperature");

    EXPECT_EQ(comp.getVarName(7), "temperature");
}

TEST(ExprCompBuilding, SerialNumbersTellObjectsApart)
{
    const ExprComp a, b;
    EXPECT_NE(a.getSerial(), b.getSerial());
}

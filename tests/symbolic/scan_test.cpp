// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_support.hpp"

#include "support/deep_stack.hpp"

#include <chrono>
#include <sstream>

using namespace qxtest;

namespace {

std::string idOfPrefix(const std::string& prefix)
{
    return idOf([&] { printedPrefix(prefix); });
}

/// Restores the default choice of the converter.
struct ForcedConverter
{
    explicit ForcedConverter(InfixConverter converter) { setInfixConverter(converter); }
    ~ForcedConverter() { setInfixConverter(nullptr); }
};

std::string neverCalled(const std::string& infix)
{
    ADD_FAILURE() << "converter called with " << infix;
    return "";
}

int convertedTexts = 0;
std::string counting(const std::string& infix)
{
    ++convertedTexts;
    return qxInfixToPrefix(infix);
}

} // namespace

TEST(Scan, DigitsBecomeAnUnparsedNumberWithoutTheConverter)
{
    const ForcedConverter forced(neverCalled);
    ExprImpl e;

    e.scan("42");

    EXPECT_EQ(e.getRoot()->type, Node::TypeUnparsedNumber);
    EXPECT_STREQ(e.getRoot()->getTypeName(), "LiteralValue");
    e.getRoot()->mergeOperators(e.getRoot());
    EXPECT_EQ(e.getRoot()->getNumVal(), Number(42));
}

TEST(Scan, PlainNameBecomesAnIdentifierWithoutTheConverter)
{
    const ForcedConverter forced(neverCalled);
    ExprImpl e;

    e.scan("x1_b");

    ASSERT_EQ(e.getRoot()->type, Node::TypeIdentifier);
    EXPECT_EQ(e.getRoot()->as<ExprImpl::Identifier>().var, e.getStore()->getVar("x1_b"));
}

TEST(Scan, UnderscoreFirstAndEmptyTextGoToTheConverter)
{
    const ForcedConverter forced(counting);
    convertedTexts = 0;
    ExprImpl e;

    e.scan("_x");
    EXPECT_EQ(e.toString(), "_x");
    EXPECT_EQ(idOf([&] { e.scan(""); }), syntaxError);

    EXPECT_EQ(convertedTexts, 2);
}

TEST(Scan, SyntaxErrorNamesTheTextAndKeepsTheRoot)
{
    ExprImpl e;
    e.scan("a+b");

    EXPECT_EQ(argsOf([&] { e.scan("a+"); }),
              (qxbase::ExceptionArgs{{"Expression", "a+"},
                                     {"Position", "3"},
                                     {"Line", "1"},
                                     {"Expected", "a number, a name, a text, '(', '[' or a sign"},
                                     {"Excerpt", "a+\n  ^"}}));
    EXPECT_EQ(idOf([&] { e.scan("1e400+a"); }), syntaxError);
    EXPECT_EQ(idOf([&] { e.scan(std::string(400, '9')); }), syntaxError);

    EXPECT_EQ(e.toString(), "a+b");
}

TEST(Prefix, ReadsEachToken)
{
    EXPECT_EQ(printedPrefix("x"), "x");
    EXPECT_EQ(printedPrefix("  x"), "x");
    EXPECT_EQ(printedPrefix("U- / 1 () sqrt 1 - 1 ^ x 2"), "-1/sqrt(1-x^2)");
    EXPECT_EQ(printedPrefix("U+ x"), "+x");
    EXPECT_EQ(printedPrefix("! x"), "!x");
    EXPECT_EQ(printedPrefix(", 2 x y"), "x , y");
    EXPECT_EQ(printedPrefix("(MAT) 2 x y"), "[x , y]");
    EXPECT_EQ(printedPrefix("(MAT) 0"), "[]");
    EXPECT_EQ(printedPrefix("(UNIT) a b"), "a[b]");
    EXPECT_EQ(printedPrefix("(DIFF) u t"), "ut");
    EXPECT_EQ(printedPrefix("() f 0"), "f()");
    EXPECT_EQ(printedPrefix("() f 3 x + y 1 2"), "f(x,y+1,2)");
    for (const char* op : {"+", "-", "*", "/", "^", "==", "!=", "<=", ">=", "<", ">", "&&", "||"})
        EXPECT_EQ(printedPrefix(std::string(op) + " a b"), std::string("a") + op + "b");
}

TEST(Prefix, StringsHoldBlanksAndTokens)
{
    EXPECT_EQ(printedPrefix("\"\" 3 abc"), "'abc'");
    EXPECT_EQ(printedPrefix("\"\" 0 "), "''");
    EXPECT_EQ(printedPrefix("() f 2 \"\" 5 + a b \"\" 1 '"), "f('+ a b','''')");
    ExprImpl e;
    e.scanInfix("\"\" 3 abc");
    EXPECT_EQ(e.getRoot()->type, Node::TypeStringLiteral);
}

TEST(Prefix, RefusesWhatItCannotRead)
{
    for (const char* text : {"x ", " ", "+ 1", "() f 3 x", "() f", "() f x", "()", ",", "(MAT) x", "\"\" 4 abc", "\"\" 0",
                             "\"\" x", ", 99999999999 x", "() f 4294967297 x", "(DIFF) x 1", "(DIFF) x + y z", "a.b",
                             "a-b", "1e", "--", "inf?", "e+", "*", "&", "=", "1e400", "U-", "(UNIT) a", "\xc3\xa9"})
        EXPECT_EQ(idOfPrefix(text), syntaxError) << text;
    EXPECT_EQ(argsOf([] { printedPrefix("+ 1"); }), (qxbase::ExceptionArgs{{"Expression", "+ 1"}}));
}

TEST(Prefix, LeftOverAndMissingExpressionsAreInternalErrors)
{
    EXPECT_EQ(idOfPrefix("1 2"), internalError);
    EXPECT_EQ(idOfPrefix(""), internalError);
    EXPECT_EQ(idOfPrefix("+ 1 2 3"), internalError);
}

TEST(Prefix, OneNameIsOneNodeWithinOneText)
{
    ExprImpl e;
    e.scanInfix("() f 5 x + x 1.5 x 1.5 y");
    const auto& f = e.getRoot()->as<ExprImpl::FuncCall>();

    EXPECT_EQ(f.args[0], f.args[2]);
    EXPECT_EQ(f.args[1]->getChild(0), f.args[0]);
    EXPECT_EQ(f.args[1]->getChild(1), f.args[3]);
    EXPECT_NE(f.args[0], f.args[4]);
}

TEST(Prefix, ManyNamesStayApart)
{
    std::string text = "() f 5000";
    std::string printed = "f(";
    for (int i = 0; i < 5000; ++i) {
        text += " v" + std::to_string(i);
        printed += (i ? ",v" : "v") + std::to_string(i);
    }
    EXPECT_EQ(printedPrefix(text), printed + ")");
}

TEST(Prefix, FailedReadKeepsTheRoot)
{
    ExprImpl e;
    e.scanInfix("+ a b");
    EXPECT_EQ(idOf([&] { e.scanInfix("+ a"); }), syntaxError);
    EXPECT_EQ(e.toString(), "a+b");
}

TEST(UnparsedNumber, TakesTheLongestNumberAtTheStart)
{
    const ExprImpl e;
    const auto value = [&](const char* text) { return ExprImpl::UnparsedNumber(e.getRules(), text).value; };
    EXPECT_EQ(value("1.5x"), 1.5);
    EXPECT_EQ(value("0x10"), 0.0);
    EXPECT_EQ(value("1.5.2"), 1.5);
    EXPECT_EQ(value("1e5e3"), 1e5);
    EXPECT_EQ(value("+3"), 3.0);
    EXPECT_EQ(value("1,5"), 1.0);
    EXPECT_EQ(value("4.9406564584124654e-324"), 4.9406564584124654e-324);
    for (const char* text : {"", "x", "1e", "1e+", "--1", "+", ".", "1e400", "-1e400", "inf", "nan"})
        EXPECT_EQ(idOf([&] { value(text); }), syntaxError) << text;
}

// Deep and long input.

namespace {

constexpr int million = 1000000;

std::string longSum(int n)
{
    std::string text = "a";
    for (int i = 1; i < n; ++i)
        text += "+b";
    return text;
}

} // namespace

TEST(DeepInput, SumOfAMillionTermsIsReadMadeBinaryPrintedAndReleasedOnASmallStack)
{
    runOnStack(javaStack, [] {
        const std::string text = longSum(million);
        ExprImpl e;
        e.scan(text);
        e.makeBinary();
        EXPECT_EQ(e.toString(), text);
    });
}

TEST(DeepInput, MillionNestedCallsAreReadMadeBinaryPrintedCopiedComparedAndReleasedOnASmallStack)
{
    runOnStack(javaStack, [] {
        std::string text;
        for (int i = 0; i < million; ++i)
            text += "f(";
        text += "x" + std::string(million, ')');
        ExprImpl e;
        e.scan(text);
        e.makeBinary();
        EXPECT_EQ(e.toString(), text);
        const NodePtr copy = e.getRoot()->getCopy(e.getRoot());
        EXPECT_TRUE(Node::equals(copy, e.getRoot()));
    });
}

TEST(DeepInput, MillionNestedSignsAndUnitsAreReadAndReleasedOnASmallStack)
{
    runOnStack(javaStack, [] {
        const std::string signs = std::string(million, '-') + "x";
        EXPECT_EQ(printedInfix(signs), signs);
        std::string powers = "x";
        for (int i = 0; i < million; ++i)
            powers += "^x";
        EXPECT_EQ(printedInfix(powers), powers);
        const std::string open(million, '(');
        EXPECT_EQ(idOf([&] { printedInfix(open + "x"); }), syntaxError);
    });
}

TEST(DeepInput, RightNestedSumIsPrintedWithItsParentheses)
{
    runOnStack(javaStack, [] {
        std::string text;
        for (int i = 0; i < million; ++i)
            text += "a-(";
        text += "a-b" + std::string(million, ')');
        EXPECT_EQ(printedInfix(text), text);
    });
}

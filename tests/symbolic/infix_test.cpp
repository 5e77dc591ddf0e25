// SPDX-License-Identifier: LicenseRef-qxkernel
#include "symbolic_support.hpp"

#include "support/deep_stack.hpp"

#include <vector>

using namespace qxtest;

struct Conversion
{
    const char* infix;
    const char* prefix;
};

class InfixConversion : public testing::TestWithParam<Conversion>
{
};

TEST_P(InfixConversion, Gives) { EXPECT_EQ(qxInfixToPrefix(GetParam().infix), GetParam().prefix) << GetParam().infix; }

INSTANTIATE_TEST_SUITE_P(
    Accepted, InfixConversion,
    testing::Values(Conversion{"1+2", "+ 1 2"}, Conversion{"a-b-c", "- - a b c"}, Conversion{"a-(b-c)", "- a - b c"},
                    Conversion{"a^b^c", "^ ^ a b c"}, Conversion{"a^(b^c)", "^ a ^ b c"},
                    Conversion{"a+b*c", "+ a * b c"}, Conversion{"a*b+c", "+ * a b c"}, Conversion{"-a+b", "+ U- a b"},
                    Conversion{"-a*b", "* U- a b"}, Conversion{"-2^2", "U- ^ 2 2"}, Conversion{"2^-1", "^ 2 U- 1"},
                    Conversion{"a^-b^c", "^ ^ a U- b c"}, Conversion{"a^-!b", "^ a U- ! b"},
                    Conversion{"a--b", "- a U- b"}, Conversion{"a*-b", "* a U- b"}, Conversion{"+a", "U+ a"},
                    Conversion{"!a==b", "== ! a b"}, Conversion{"!!a", "! ! a"}, Conversion{"a<b<c", "< < a b c"},
                    Conversion{"a<=b!=c>=d>e", "> >= != <= a b c d e"}, Conversion{"a||b&&c", "|| a && b c"},
                    Conversion{"a&&b||c", "|| && a b c"}, Conversion{"a[b]", "(UNIT) a b"},
                    Conversion{"a[b]^2", "^ (UNIT) a b 2"}, Conversion{"a^b[c]", "(UNIT) ^ a b c"},
                    Conversion{"a[b][c]", "(UNIT) (UNIT) a b c"}, Conversion{"-a[m]", "U- (UNIT) a m"},
                    Conversion{"a^-b[m]", "(UNIT) ^ a U- b m"}, Conversion{"2*a[m/s]", "* 2 (UNIT) a / m s"},
                    Conversion{"f()", "() f 0"}, Conversion{"f( )", "() f 0"}, Conversion{"f(x)", "() f 1 x"},
                    Conversion{"f (x, y)", "() f 2 x y"}, Conversion{"f(g(x),(y))", "() f 2 () g 1 x y"},
                    Conversion{"d(x,t)", "() d 2 x t"}, Conversion{"a,b", ", 2 a b"}, Conversion{"(a,b)", ", 2 a b"},
                    Conversion{"f((a,b))", "() f 1 , 2 a b"}, Conversion{"[]", "(MAT) 0"}, Conversion{"[a]", "(MAT) 1 a"},
                    Conversion{"[a,b+1]", "(MAT) 2 a + b 1"}, Conversion{"[a,b;c,d]", "(MAT) 2 , 2 a b , 2 c d"},
                    Conversion{"[a;b]", "(MAT) 2 , 1 a , 1 b"}, Conversion{"[a,b][m]", "(UNIT) (MAT) 2 a b m"},
                    Conversion{"a[b,c]", "(UNIT) a , 2 b c"}, Conversion{"'abc'", "\"\" 3 abc"},
                    Conversion{"'it''s'", "\"\" 4 it's"}, Conversion{"''", "\"\" 0 "},
                    Conversion{"f('a b','')", "() f 2 \"\" 3 a b \"\" 0 "}, Conversion{"_x1", "_x1"},
                    Conversion{"1.5e-3", "1.5e-3"}, Conversion{".5", ".5"}, Conversion{"1.", "1."},
                    Conversion{"1.e2", "1.e2"}, Conversion{" \t\r\n\v\fa ", "a"}, Conversion{"((a))", "a"},
                    Conversion{"x--2/3", "- x / U- 2 3"}));

class InfixRefusal : public testing::TestWithParam<const char*>
{
};

TEST_P(InfixRefusal, GivesTheEmptyText) { EXPECT_EQ(qxInfixToPrefix(GetParam()), "") << GetParam(); }

INSTANTIATE_TEST_SUITE_P(Refused, InfixRefusal,
                         testing::Values("", "  ", "f(,)", "f(a,)", "f(", "(a", "a)", "()", "[a", "a]", "a[", "a[]",
                                         "[a;]", "[;a]", "(a;b)", "a;b", "'abc", "'it''", "1e", "1e+", ".", "1..2",
                                         "1.2.3", "2x", "2_", "1e5x", "a b", "1 2", "a=b", "a&b", "a|b", "a!b", "a+",
                                         "*a", "a+*b", "a.b", "\"a\"", "a,", ",a", "#", "a\\b", "\xc3\xa9", "(a]",
                                         "[a)", "f(a;b)", "^2", "a^*b", "!", "a!=", "{a}"));

namespace {

struct Op
{
    const char* sign;
    int level;
};

constexpr Op binaryOps[] = {{"||", 1}, {"&&", 2}, {"==", 3}, {"!=", 3}, {"<=", 3}, {">=", 3}, {"<", 3},
                            {">", 3},  {"+", 4},  {"-", 4},  {"*", 5},  {"/", 5},  {"^", 6}};
constexpr const char* signs[] = {"+", "-", "!"};

std::string prefixSign(const std::string& s) { return s == "!" ? "!" : "U" + s; }

} // namespace

// All levels are left associative, so that of two operators the first binds first unless the second is on a higher level.
TEST(InfixPrecedence, AllOrderedPairsOfBinaryOperators)
{
    for (const Op& p : binaryOps)
        for (const Op& q : binaryOps) {
            const std::string infix = std::string("a") + p.sign + "b" + q.sign + "c";
            const std::string wanted = q.level > p.level ? std::string(p.sign) + " a " + q.sign + " b c"
                                                         : std::string(q.sign) + " " + p.sign + " a b c";
            EXPECT_EQ(qxInfixToPrefix(infix), wanted) << infix;
        }
}

TEST(InfixPrecedence, SignsBindTighterThanAllButPowers)
{
    for (const Op& p : binaryOps)
        for (const char* s : signs) {
            const std::string op = p.sign, sign = s, u = prefixSign(s);
            EXPECT_EQ(qxInfixToPrefix(sign + "a" + op + "b"), p.level == 6 ? u + " ^ a b" : op + " " + u + " a b");
            EXPECT_EQ(qxInfixToPrefix("a" + op + " " + sign + "b"), op + " a " + u + " b");
            EXPECT_EQ(qxInfixToPrefix("a" + op + " " + sign + "b^c"),
                      p.level == 6 ? "^ ^ a " + u + " b c" : op + " a " + u + " ^ b c");
        }
}

TEST(InfixPrecedence, AllOrderedPairsOfSigns)
{
    for (const char* s : signs)
        for (const char* t : signs)
            EXPECT_EQ(qxInfixToPrefix(std::string(s) + t + "a"), prefixSign(s) + " " + prefixSign(t) + " a");
}

TEST(InfixConverter, ReadsAMillionNestedParenthesesOnASmallStack)
{
    constexpr int n = 1000000;
    runOnStack(javaStack, [] {
        EXPECT_EQ(qxInfixToPrefix(std::string(n, '(') + "a" + std::string(n, ')')), "a");
        EXPECT_EQ(qxInfixToPrefix(std::string(n, '(') + "a" + std::string(n - 1, ')')), "");
        const std::string minus = qxInfixToPrefix(std::string(n, '-') + "a");
        EXPECT_EQ(minus.size(), 3u * n + 1);
    });
}

namespace {

struct Fault
{
    const char* text;
    std::size_t position;
    const char* expected;
};

void PrintTo(const Fault& fault, std::ostream* stream) { *stream << fault.text; }

class InfixFault : public testing::TestWithParam<Fault>
{
};

constexpr const char* operand = "a number, a name, a text, '(', '[' or a sign";
constexpr const char* atTheEnd = "an operator, ',' or the end";
constexpr const char* inParentheses = "an operator, ',' or ')'";

} // namespace

TEST_P(InfixFault, SaysWhereAndWhatWasExpected)
{
    InfixError error;

    EXPECT_EQ(qxInfixToPrefix(GetParam().text, error), "");

    EXPECT_EQ(error.position, GetParam().position);
    EXPECT_EQ(error.expected, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, InfixFault,
    testing::Values(Fault{"", 0, operand}, Fault{"x+", 2, operand}, Fault{"x+*y", 2, operand}, Fault{"(x", 2, inParentheses},
                    Fault{"x)", 1, atTheEnd}, Fault{"f(x,)", 4, operand}, Fault{"f(x]", 3, inParentheses},
                    Fault{"x[m)", 3, "an operator, ',' or ']'"}, Fault{"[1,2;3", 6, "an operator, ',', ';' or ']'"},
                    Fault{"(1;2)", 2, inParentheses}, Fault{"2x", 1, atTheEnd}, Fault{"(2x)", 2, inParentheses},
                    Fault{"1e", 2, "a digit"}, Fault{"1e+", 3, "a digit"}, Fault{".", 1, "a digit"}, Fault{"1.2.3", 3, atTheEnd},
                    Fault{"'text", 5, "a closing '"}, Fault{"a=b", 1, atTheEnd}, Fault{"a&b", 1, atTheEnd},
                    Fault{"x y", 2, atTheEnd}, Fault{"a+#", 2, operand}, Fault{"(a+b))*c", 5, atTheEnd}));

TEST(InfixFaults, NoneIsReportedForWhatReads)
{
    InfixError error{7, "left over"};

    EXPECT_EQ(qxInfixToPrefix("x+1", error), "+ x 1");

    EXPECT_EQ(error.position, 0u);
    EXPECT_EQ(error.expected, "");
}

TEST(InfixFaults, CaretCountsCharactersAndPositionBytes)
{
    // Two lines; in the second, two letters of two bytes each stand before the fault.
    const auto args = argsOf([] { printedInfix("a+\n'\xc3\xa4\xc3\xb6'+)"); });

    ASSERT_EQ(args.size(), 5u);
    EXPECT_EQ(args[0].first, "Expression");
    EXPECT_THAT(args, testing::Contains(std::make_pair(std::string("Position"), std::string("11"))));
    EXPECT_THAT(args, testing::Contains(std::make_pair(std::string("Line"), std::string("2"))));
    EXPECT_EQ(args[4].second, "'\xc3\xa4\xc3\xb6'+)\n     ^");
}

TEST(InfixFaults, ExcerptOfALongLineIsCut)
{
    const std::string text = std::string(200, '(') + "x" + std::string(100, ')') + "#" + std::string(100, ')');

    const auto args = argsOf([&] { printedInfix(text); });

    ASSERT_EQ(args.size(), 5u);
    EXPECT_EQ(args[0].second, text);
    EXPECT_EQ(args[4].second, std::string(40, ')') + "#" + std::string(39, ')') + "\n" + std::string(40, ' ') + "^");
}

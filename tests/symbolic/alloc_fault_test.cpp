// SPDX-License-Identifier: LicenseRef-qxkernel
// Every allocation of a piece of work fails once: std::bad_alloc or an identifier comes out, nothing leaks, and what was
// there before still works.
#include "symbolic_support.hpp"

#include "array.hpp"
#include "support/alloc_fault.hpp"

#include <cstdio>
#include <functional>

using namespace qxtest;

namespace {

/// Faults in work on a fresh tree that reads text first. A run that ends in spite of a fault (the release of nodes does
/// without its list when it must) has to give the same result.
template <class Work>
void expectSafe(const char* text, Work&& work)
{
    char result[256] = "", wanted[256] = "";
    const auto act = [&] {
        ExprTree tree;
        tree.scan(text);
        work(tree);
        std::string printed;
        tree.print(printed);
        std::snprintf(result, sizeof result, "%s", printed.c_str());
    };
    act();
    std::snprintf(wanted, sizeof wanted, "%s", result);

    const long allocations = failEveryAllocation(act, [&](const FaultRun& run) {
        EXPECT_EQ(run.leaked, 0) << text << ", allocation " << run.n;
        EXPECT_EQ(run.id, "") << text << ", allocation " << run.n;
        if (!run.badAlloc) {
            EXPECT_STREQ(result, wanted) << text << ", allocation " << run.n;
        }
        result[0] = '\0';
    });
    EXPECT_GT(allocations, 20);
}

} // namespace

TEST(AllocationFailure, WhileReadingAndMakingBinary)
{
    expectSafe("f(x,[1,2.5;y,z])+'text'[m]*(a-b)^2/-c", [](ExprTree& tree) { tree.makeBinary(); });
}

TEST(AllocationFailure, WhileSimplifying)
{
    expectSafe("x*y+y*x+2*x/exp(x)+y*(a/y+b)-(x^2)^3*x+sin(0)", [](ExprTree& tree) { tree.simp(true); });
}

TEST(AllocationFailure, WhileDifferentiating)
{
    expectSafe("sin(x*y)^2/(1+x)+atan2(x,y)", [](ExprTree& tree) {
        tree.simp(false);
        tree.diff("x");
    });
}

TEST(AllocationFailure, WhileSubstitutingDefinitions)
{
    expectSafe("a+b*a", [](ExprTree& tree) { tree.simp({"a", "b"}, {"* 2 x", "+ a 1"}); });
}

namespace {

/// A member of the handle, called on a tree of that text with operands of its own, which are made anew for each attempt.
struct Member
{
    const char* name;
    std::function<void(ExprTree& tree)> call;
    const char* text = "sin(x*y)^2/(1+x)+b+a*x+b*x+x*2*x";
    bool simplified = true;
};

void PrintTo(const Member& member, std::ostream* stream) { *stream << member.name; }

std::string printed(const ExprTree& tree)
{
    std::string text;
    tree.print(text);
    return text;
}

/// A tree of two operands that share nodes with nobody.
ExprTree other(const ExprTree& tree, const char* text)
{
    ExprTree result(tree.getStore(), {});
    result.scan(text);
    return result;
}

Array<int, 2> table(int first)
{
    Array<int, 2> values(2, 1);
    values(0, 0) = first;
    values(1, 0) = 1;
    return values;
}

/// Text and list that a member writes: unchanged if it fails.
template <class Call>
void keepsItsOperands(std::string text, Call&& call)
{
    const std::string before = text;
    std::vector<std::string> list{"kept"};
    try {
        call(text, list);
    } catch (...) {
        EXPECT_EQ(text, before);
        EXPECT_EQ(list, std::vector<std::string>{"kept"});
        throw;
    }
}

const std::vector<Member> members{
    {"scan", [](ExprTree& tree) { tree.scan("c*f(d,e)-[1,2.5;y,'z']"); }},
    {"scanInfix", [](ExprTree& tree) { tree.scanInfix("* c () f 2 d e"); }},
    {"simp", [](ExprTree& tree) { tree.simp(true); }, "x*y+y*x+2*x/exp(x)+y*(a/y+b)-(x^2)^3*x+sin(0)", false},
    {"simpWithDefinitions", [](ExprTree& tree) { tree.simp({"a", "b"}, {"* 2 x", "+ a 1"}); }, "a+b*a", false},
    {"diff", [](ExprTree& tree) { tree.diff("x"); }},
    {"divide", [](ExprTree& tree) { tree.divide(other(tree, "p+q"), other(tree, "r")); }},
    {"minus", [](ExprTree& tree) { tree.minus(other(tree, "p+q"), other(tree, "r")); }},
    {"makeBinary", [](ExprTree& tree) { tree.makeBinary(); }},
    {"replaceVars",
     [](ExprTree& tree) {
         const auto var = [&](const char* name) { return tree.getStore()->getVar(name); };
         tree.replaceVars({{{var("x"), 0}, var("z")}}, "t");
     }},
    {"getVars",
     [](ExprTree& tree) {
         keepsItsOperands("p+q*sin(p)", [&](auto& text, auto& list) { tree.getVars(text, list); });
     }},
    {"rename",
     [](ExprTree& tree) {
         keepsItsOperands("p+q*sin(p)", [&](auto& text, auto&) { tree.rename(text, {"p"}, {"pp"}, {"sin"}, {"cos"}); });
     }},
    {"replaceArgs",
     [](ExprTree& tree) {
         keepsItsOperands("g(p+q,h(p))+h(q)", [&](auto& text, auto& list) { tree.replaceArgs(text, {}, list); });
     }},
    {"boolEval",
     [](ExprTree& tree) {
         Array<int, 2> result = table(7);
         try {
             tree.boolEval({"x", "y", "a"}, {table(0), table(1), table(0)}, result);
             EXPECT_EQ(result(0, 0), 0);
         } catch (...) {
             EXPECT_EQ(result(0, 0), 7);
             throw;
         }
     },
     "x*y+a"},
    {"solveFor",
     [](ExprTree& tree) {
         ExprTree out = other(tree, "kept");
         try {
             tree.solveFor(tree.getStore()->getVar("b"), out);
         } catch (...) {
             EXPECT_EQ(printed(out), "kept");
             throw;
         }
     }},
    {"copyAndAssign",
     [](ExprTree& tree) {
         const ExprTree copy(tree);
         tree = copy;
     }},
};

class HandleUnderAllocationFailure : public testing::TestWithParam<Member>
{
};

INSTANTIATE_TEST_SUITE_P(Members, HandleUnderAllocationFailure, testing::ValuesIn(members),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace

// The second attempt, with all the memory there is, gives what the first would have given.
TEST_P(HandleUnderAllocationFailure, LeavesTheTreeAndTheOperandsAsTheyWere)
{
    ExprTree tree;
    tree.scan(GetParam().text);
    if (GetParam().simplified)
        tree.simp(false);
    const std::string before = printed(tree);
    ExprTree copy(tree);
    long failures = 0;

    for (long n = 1;; ++n) {
        bool failed = false;
        {
            const AllocFault fault(n);
            try {
                GetParam().call(tree);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
        }
        EXPECT_EQ(printed(copy), before) << "allocation " << n;
        if (!failed)
            break;
        ++failures;
        ASSERT_EQ(printed(tree), before) << "allocation " << n;
    }

    EXPECT_GT(failures, 0);
    GetParam().call(copy);
    EXPECT_EQ(printed(tree), printed(copy));
}

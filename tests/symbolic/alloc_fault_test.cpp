// Every allocation of a piece of work fails once: std::bad_alloc or an identifier comes out, nothing leaks, and what was
// there before still works.
#include "symbolic_support.hpp"

#include "support/alloc_fault.hpp"

#include <cstdio>

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

TEST(AllocationFailure, LeavesAScannedTreeAsItWas)
{
    ExprTree tree;
    tree.scan("a+b");
    for (long n = 1;; ++n) {
        bool failed = false;
        {
            const AllocFault fault(n);
            try {
                tree.scan("c*f(d,e)");
            } catch (const std::bad_alloc&) {
                failed = true;
            }
        }
        std::string text;
        tree.print(text);
        if (!failed) {
            EXPECT_EQ(text, "c*f(d,e)");
            break;
        }
        EXPECT_EQ(text, "a+b") << "allocation " << n;
    }
}

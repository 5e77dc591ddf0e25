// SPDX-License-Identifier: LicenseRef-qxkernel
// The matching and the search for augmenting paths, on plain tables of who occurs where.
#include "dae/structure_detail.hpp"
#include "support/deep_stack.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using testing::ElementsAre;
using Table = std::vector<std::vector<int>>;

std::vector<Dae::Eq> equationsOf(const Table& table)
{
    std::vector<Dae::Eq> eqs(table.size());
    for (std::size_t i = 0; i < table.size(); ++i)
        eqs[i].occurrences = table[i];
    return eqs;
}

/// The search in its recursive form.
bool augmentRecursively(const std::vector<Dae::Eq>& eqs, Dae::Matching& m, int e)
{
    m.markEq(e);
    for (const int v : eqs[e].occurrences)
        if (m.getVarMatch(v) < 0) {
            m.setVarMatch(v, e);
            return true;
        }
    for (const int v : eqs[e].occurrences)
        if (!m.isVarMarked(v)) {
            m.markVar(v);
            if (augmentRecursively(eqs, m, m.getVarMatch(v))) {
                m.setVarMatch(v, e);
                return true;
            }
        }
    return false;
}

template <class Search>
Dae::Matching matchAll(const std::vector<Dae::Eq>& eqs, Search search)
{
    Dae::Matching m;
    for (int e = 0; e < static_cast<int>(eqs.size()); ++e) {
        m.removeAllMarks();
        search(eqs, m, e);
    }
    return m;
}

std::vector<int> matches(Dae::Matching m, int nVars)
{
    std::vector<int> all;
    for (int v = 0; v < nVars; ++v)
        all.push_back(m.getVarMatch(v));
    return all;
}

Table randomTable(std::mt19937& random, int nEqs, int nVars, double density)
{
    std::bernoulli_distribution occurs(density);
    Table table(nEqs);
    for (auto& row : table) {
        for (int v = 0; v < nVars; ++v)
            if (occurs(random))
                row.push_back(v);
        std::shuffle(row.begin(), row.end(), random);
    }
    return table;
}

/// Largest number of equations with a variable each, by trying all choices.
int largestMatching(const Table& table, std::size_t e, unsigned taken)
{
    if (e == table.size())
        return 0;
    int best = largestMatching(table, e + 1, taken);
    for (const int v : table[e])
        if (!(taken & (1u << v)))
            best = std::max(best, 1 + largestMatching(table, e + 1, taken | (1u << v)));
    return best;
}

} // namespace

TEST(Matching, IsEmptyAtFirst)
{
    Dae::Matching m(3, 2);

    EXPECT_EQ(m.size(), 0);
    EXPECT_EQ(m.getVarCapacity(), 3);
    EXPECT_EQ(m.getVarMatch(2), -1);
    EXPECT_EQ(m.getEqMatch(1), -1);
    EXPECT_FALSE(m.isVarMarked(0));
    EXPECT_FALSE(m.isEqMarked(1));
}

TEST(Matching, GrowsOnDemand)
{
    Dae::Matching m;

    EXPECT_EQ(m.getVarMatch(4), -1);
    EXPECT_EQ(m.getVarCapacity(), 5);
    m.setVarMatch(9, 7);
    EXPECT_EQ(m.getVarCapacity(), 10);
    EXPECT_EQ(m.getVarMatch(9), 7);
    EXPECT_FALSE(m.isVarMarked(100));
    m.markEq(50);
    EXPECT_TRUE(m.isEqMarked(50));
    EXPECT_FALSE(m.isEqMarked(51));
    EXPECT_EQ(m.getEqMatch(1000), -1);
}

TEST(Matching, SizeCountsMatchedVariables)
{
    Dae::Matching m;

    m.setVarMatch(0, 5);
    m.setVarMatch(3, 1);
    m.setVarMatch(3, 2); // another equation, not another variable
    EXPECT_EQ(m.size(), 2);
    EXPECT_FALSE(m.isEqMatched(1));
    EXPECT_EQ(m.getEqMatch(2), 3);
    m.setVarMatch(0, -1);
    EXPECT_EQ(m.size(), 1);
    EXPECT_FALSE(m.isEqMatched(5));
    m.clearMatch();
    EXPECT_EQ(m.size(), 0);
    EXPECT_FALSE(m.isEqMatched(2));
    EXPECT_EQ(m.getVarMatch(3), -1);
}

TEST(Matching, ClearsMarksOfVariablesAndEquations)
{
    Dae::Matching m;
    m.markVar(2);
    m.markVar(2);
    m.markEq(1);
    EXPECT_THAT(m.getMarkedVars(), ElementsAre(2));

    m.removeAllMarks();

    EXPECT_FALSE(m.isVarMarked(2));
    EXPECT_FALSE(m.isEqMarked(1));
    EXPECT_TRUE(m.getMarkedVars().empty());
    EXPECT_TRUE(m.getMarkedEqs().empty());
}

TEST(AugmentPath, TakesTheFirstUnmatchedVariable)
{
    const auto eqs = equationsOf({{2, 0, 1}, {2, 1}});

    Dae::Matching m = matchAll(eqs, qxdae::augmentPath);

    EXPECT_THAT(matches(m, 3), ElementsAre(-1, 1, 0));
}

TEST(AugmentPath, PrefersAFreeVariableToMovingAnother)
{
    const auto eqs = equationsOf({{0, 1}, {0, 2}});

    EXPECT_THAT(matches(matchAll(eqs, qxdae::augmentPath), 3), ElementsAre(0, -1, 1));
}

TEST(AugmentPath, MovesOthersAlongThePath)
{
    // By hand: equation 2 wants 0, held by 0, which can only take 1 from 1, which can take 2.
    const auto eqs = equationsOf({{0, 1}, {1, 2}, {0}});
    Dae::Matching m;
    m.setVarMatch(0, 0);
    m.setVarMatch(1, 1);

    EXPECT_TRUE(qxdae::augmentPath(eqs, m, 2));

    EXPECT_THAT(matches(m, 3), ElementsAre(2, 0, 1));
    EXPECT_THAT(m.getMarkedEqs(), ElementsAre(2, 0, 1));
    EXPECT_THAT(m.getMarkedVars(), ElementsAre(0, 1));
    EXPECT_EQ(m.getEqMatch(2), 0);
    EXPECT_EQ(m.getEqMatch(0), 1);
    EXPECT_EQ(m.getEqMatch(1), 2);
}

TEST(AugmentPath, FailureMarksTheCompetitorsAndKeepsTheMatching)
{
    const auto eqs = equationsOf({{0, 1}, {1, 0}, {0, 1}, {3}});
    Dae::Matching m = matchAll(equationsOf({{0, 1}, {1, 0}}), qxdae::augmentPath);
    m.removeAllMarks();

    EXPECT_FALSE(qxdae::augmentPath(eqs, m, 2));

    EXPECT_THAT(matches(m, 2), ElementsAre(0, 1));
    EXPECT_THAT(m.getMarkedEqs(), testing::UnorderedElementsAre(0, 1, 2));
    EXPECT_THAT(m.getMarkedVars(), testing::UnorderedElementsAre(0, 1));
}

TEST(AugmentPath, OfAnEquationWithoutVariablesFails)
{
    Dae::Matching m;

    EXPECT_FALSE(qxdae::augmentPath(equationsOf({{}}), m, 0));
    EXPECT_THAT(m.getMarkedEqs(), ElementsAre(0));
}

TEST(AugmentPath, VisitsInTheOrderOfTheRecursiveForm)
{
    std::mt19937 random(1);
    for (int run = 0; run < 2000; ++run) {
        const int n = 1 + run % 12;
        const auto eqs = equationsOf(randomTable(random, n, n, 2.0 / n));

        Dae::Matching iterative = matchAll(eqs, qxdae::augmentPath);
        Dae::Matching recursive = matchAll(eqs, augmentRecursively);

        ASSERT_EQ(matches(iterative, n), matches(recursive, n)) << "run " << run;
        ASSERT_EQ(iterative.getMarkedEqs(), recursive.getMarkedEqs()) << "run " << run;
        ASSERT_EQ(iterative.getMarkedVars(), recursive.getMarkedVars()) << "run " << run;
    }
}

TEST(AugmentPath, FindsALargestMatching)
{
    std::mt19937 random(2);
    for (int run = 0; run < 500; ++run) {
        const int n = 1 + run % 8;
        const Table table = randomTable(random, n, n, 1.7 / n);

        EXPECT_EQ(matchAll(equationsOf(table), qxdae::augmentPath).size(), largestMatching(table, 0, 0));
    }
}

TEST(AugmentPath, GoesAMillionEquationsDeepOnAJavaThread)
{
    // Equation i holds variable i and could take i + 1; the last search pushes all of them on by one.
    const int n = 1000000;
    std::vector<Dae::Eq> eqs(n + 1);
    Dae::Matching m;
    for (int i = 0; i < n; ++i) {
        eqs[i].occurrences = {i, i + 1};
        m.setVarMatch(i, i);
    }
    eqs[n].occurrences = {0};
    bool found = false;

    qxtest::runOnStack(qxtest::javaStack, [&] { found = qxdae::augmentPath(eqs, m, n); });

    ASSERT_TRUE(found);
    EXPECT_EQ(m.size(), n + 1);
    EXPECT_EQ(m.getVarMatch(0), n);
    for (int i = 0; i < n; ++i)
        ASSERT_EQ(m.getVarMatch(i + 1), i);
}

TEST(AugmentAll, GivesTheMatchingOfOneSearchAfterTheOther)
{
    std::mt19937 random(3);
    for (int run = 0; run < 3000; ++run) {
        const int nEqs = 1 + run % 40;
        const int nVars = std::max(1, nEqs + run % 5 - 2); // with equations and with variables to spare
        const auto eqs = equationsOf(randomTable(random, nEqs, nVars, 1.8 / nVars));
        Dae::Matching wanted = matchAll(eqs, qxdae::augmentPath);
        Dae::Matching all;

        qxdae::augmentAll(eqs, all);

        ASSERT_EQ(matches(all, nVars), matches(wanted, nVars)) << "run " << run;
        ASSERT_EQ(all.size(), wanted.size()) << "run " << run;
    }
}

TEST(AugmentAll, KeepsWhatIsMatchedAlready)
{
    const auto eqs = equationsOf({{0, 1}, {0}, {1, 2}});
    Dae::Matching m;
    m.setVarMatch(1, 2);

    qxdae::augmentAll(eqs, m);

    EXPECT_THAT(matches(m, 3), ElementsAre(1, 0, 2)); // equation 1 sends equation 0 on to 1, and that sends 2 on
}

TEST(CountMatched, IsTheSizeOfALargestMatching)
{
    std::mt19937 random(4);
    for (int run = 0; run < 3000; ++run) {
        const int nEqs = run % 60;
        const int nVars = std::max(1, nEqs + run % 7 - 3);
        const auto eqs = equationsOf(randomTable(random, nEqs, nVars, 1.9 / nVars));

        ASSERT_EQ(qxdae::countMatched(eqs), matchAll(eqs, qxdae::augmentPath).size()) << "run " << run;
    }
}

TEST(CountMatched, OfLongPathsOnAJavaThread)
{
    const int n = 300000;
    std::vector<Dae::Eq> eqs(n + 1);
    for (int i = 0; i < n; ++i)
        eqs[i].occurrences = {i, i + 1};
    eqs[n].occurrences = {0};
    int size = 0;

    qxtest::runOnStack(qxtest::javaStack, [&] { size = qxdae::countMatched(eqs); });

    EXPECT_EQ(size, n + 1);
}

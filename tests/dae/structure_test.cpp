// SPDX-License-Identifier: LicenseRef-qxkernel
// Pantelides' algorithm on plain tables, compared with the signature matrix method, which looks at the problem as an
// assignment of orders (Pryce, BIT 41 (2001) 364-394).
#include "dae/structure_detail.hpp"
#include "offsets.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using qxtest::Row;
using qxtest::signatureOffsets;

/// Equations that are known by the highest order of each variable in them only.
class TableEquations : public qxdae::Equations
{
public:
    explicit TableEquations(std::vector<Row> rows) : rows_(std::move(rows)) {}
    void getOccurrences(int eq, Row& pairs) override { pairs = rows_[eq]; }
    Dae::Eq differentiate(int eq) override
    {
        Row row = rows_[eq];
        for (auto& [var, order] : row)
            ++order;
        rows_.push_back(row);
        return Dae::Eq();
    }

private:
    std::vector<Row> rows_;
};

struct Outcome
{
    int endless;
    std::vector<int> differentiations; // of each equation
    std::vector<int> highest;          // order of each variable
    std::vector<Dae::Var> vars;
    std::vector<Dae::Eq> eqs;
};

Outcome reduce(const std::vector<Row>& rows, int nVars, bool complete = false)
{
    Outcome out;
    for (int v = 0; v < nVars; ++v)
        out.vars.push_back(Dae::Var(boost::make_shared<ExprVar>("z" + std::to_string(v)), 0, 0, 0.0));
    out.eqs.resize(rows.size());
    TableEquations equations(rows);
    out.endless = qxdae::Pantelides(out.vars, out.eqs, equations).run(nullptr, complete);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        int count = 0;
        for (int q = out.eqs[i].deriv; q >= 0; q = out.eqs[q].deriv)
            ++count;
        out.differentiations.push_back(count);
    }
    for (int v = 0; v < nVars; ++v) {
        int last = v;
        while (out.vars[last].deriv >= 0)
            last = out.vars[last].deriv;
        out.highest.push_back(out.vars[last].order);
    }
    return out;
}

} // namespace

TEST(Pantelides, LeavesAnOrdinaryDifferentialEquationAlone)
{
    // x' = y, y' = x
    const Outcome out = reduce({{{0, 1}, {1, 0}}, {{0, 0}, {1, 1}}}, 2);

    EXPECT_EQ(out.endless, -1);
    EXPECT_EQ(out.eqs.size(), 2u);
    EXPECT_THAT(out.highest, testing::ElementsAre(1, 1));
}

TEST(Pantelides, DifferentiatesTheConstraintOfAPendulumTwice)
{
    // x, y, u, v, lambda; x' = u, y' = v, u' = -lambda x, v' = -lambda y - g, x^2 + y^2 = l^2 (Pantelides 1988)
    const Outcome out = reduce({{{0, 1}, {2, 0}},
                                {{1, 1}, {3, 0}},
                                {{0, 0}, {2, 1}, {4, 0}},
                                {{1, 0}, {3, 1}, {4, 0}},
                                {{0, 0}, {1, 0}}},
                               5);

    EXPECT_EQ(out.eqs.size(), 9u);
    EXPECT_THAT(out.differentiations, testing::ElementsAre(1, 1, 0, 0, 2));
    EXPECT_THAT(out.highest, testing::ElementsAre(2, 2, 1, 1, 0));
}

TEST(Pantelides, AgreesWithTheSignatureMatrixMethodOnRandomSystems)
{
    std::mt19937 random(3);
    int nCompared = 0;
    int nDifferentiated = 0;
    for (int run = 0; run < 4000; ++run) {
        const int n = 1 + run % 6;
        std::bernoulli_distribution occurs(std::min(1.0, 2.2 / n));
        std::uniform_int_distribution<int> order(0, run % 3);
        std::vector<Row> rows(n);
        for (Row& row : rows)
            for (int v = 0; v < n; ++v)
                if (occurs(random))
                    row.push_back({v, order(random)});
        const auto reference = signatureOffsets(rows);
        if (!reference)
            continue;

        const Outcome out = reduce(rows, n);

        ASSERT_EQ(out.endless, -1) << "run " << run;
        ASSERT_EQ(out.differentiations, reference->c) << "run " << run;
        ASSERT_EQ(out.highest, reference->d) << "run " << run;
        ++nCompared;
        nDifferentiated += out.eqs.size() > rows.size();
    }
    EXPECT_GT(nCompared, 1500);
    EXPECT_GT(nDifferentiated, 500);
}

TEST(Pantelides, NeedsNoSearchWhereAllEquationsFindAHighestDerivativeAtOnce)
{
    std::mt19937 random(11);
    int nComplete = 0;
    for (int run = 0; run < 4000; ++run) {
        const int n = 1 + run % 8;
        std::bernoulli_distribution occurs(std::min(1.0, 2.5 / n));
        std::vector<Row> rows(n);
        for (Row& row : rows)
            for (int v = 0; v < n; ++v)
                if (occurs(random))
                    row.push_back({v, static_cast<int>(random() % 3)});
        if (qxdae::countHighestMatched(rows, [](int) { return true; }) < n)
            continue;
        ++nComplete;

        const Outcome searched = reduce(rows, n), known = reduce(rows, n, true);

        EXPECT_EQ(known.endless, -1);
        EXPECT_EQ(searched.eqs.size(), rows.size()) << "run " << run; // nothing was differentiated
        EXPECT_EQ(known.eqs.size(), rows.size());
        EXPECT_EQ(known.highest, searched.highest) << "run " << run;
        ASSERT_EQ(known.vars.size(), searched.vars.size()) << "run " << run;
        for (std::size_t v = 0; v < known.vars.size(); ++v)
            EXPECT_EQ(known.vars[v].occurrences, searched.vars[v].occurrences) << "run " << run;
    }
    EXPECT_GT(nComplete, 300);
}

TEST(Pantelides, KeepsOccurrencesOfHighestDerivativesOnly)
{
    const Outcome out = reduce({{{0, 1}, {1, 0}}, {{0, 0}}}, 2); // x' = y, x = 0

    for (const Dae::Eq& eq : out.eqs)
        for (const int var : eq.occurrences)
            EXPECT_LT(out.vars[var].deriv, 0) << out.vars[var].getName();
    // x' = y holds x' and y, x = 0 nothing any more, x' = 0 x'.
    EXPECT_THAT(out.eqs[0].occurrences, testing::ElementsAre(2, 1));
    EXPECT_TRUE(out.eqs[1].occurrences.empty());
    EXPECT_THAT(out.eqs[2].occurrences, testing::ElementsAre(2));
    EXPECT_THAT(out.vars[2].occurrences, testing::UnorderedElementsAre(0, 2));
    EXPECT_TRUE(out.vars[0].occurrences.empty());
}

TEST(Pantelides, NamesTheEquationThatCannotBeMatchedHoweverOftenItIsDifferentiated)
{
    // y in the first, x in both others
    const Outcome out = reduce({{{1, 0}}, {{0, 1}}, {{0, 0}}}, 3);

    EXPECT_EQ(out.endless, 2);
}

TEST(Pantelides, AcceptsMoreDifferentiationsThanUnknowns)
{
    // x^(5) = y, x = 0: two unknowns, five differentiations.
    const Outcome out = reduce({{{0, 5}, {1, 0}}, {{0, 0}}}, 2);

    EXPECT_THAT(out.differentiations, testing::ElementsAre(0, 5));
    EXPECT_THAT(out.highest, testing::ElementsAre(5, 0));
}

TEST(Pantelides, UsesTheEntriesOfDerivativesThatAreThere)
{
    std::vector<Row> rows{{{0, 1}, {1, 0}}, {{0, 0}}};
    Outcome out = reduce(rows, 2);
    const std::size_t nVars = out.vars.size();
    std::vector<Dae::Eq> eqs(rows.size());
    TableEquations again(rows);

    EXPECT_EQ(qxdae::Pantelides(out.vars, eqs, again).run(nullptr), -1);

    EXPECT_EQ(out.vars.size(), nVars);
    EXPECT_EQ(eqs.size(), 3u);
}

TEST(Pantelides, StopsWhenCancelled)
{
    std::vector<Dae::Var> vars{Dae::Var(boost::make_shared<ExprVar>("x"), 0, 0, 0.0)};
    std::vector<Dae::Eq> eqs(1);
    TableEquations equations({{{0, 0}}});
    qxutil::RunInfo info;
    info.cancel();

    EXPECT_THROW(qxdae::Pantelides(vars, eqs, equations).run(&info), qxbase::CancelException);
}

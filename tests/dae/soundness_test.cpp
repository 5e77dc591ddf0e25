// SPDX-License-Identifier: LicenseRef-qxkernel
// What index reduction leaves is complete in structure and has the right number of initial values, whichever of its two
// rules chose the dummy derivatives. The account of both is kept by slow methods of this file's own.
#include "curves.hpp"
#include "dae.hpp"
#include "offsets.hpp"
#include "systems.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <set>

namespace {

using qxtest::Curves;
using qxtest::Jet;
using qxtest::makeDae;
using qxtest::Row;

/// What occurs in the equations of a system, and which of its variables count.
struct Structure
{
    std::vector<Row> rows;
    std::map<std::string, int> highest; // of each unknown that occurs
    std::vector<std::string> names;     // by index; empty for what is no unknown
};

Structure structureOf(const Dae& dae)
{
    Structure s;
    for (const Dae::Var& var : dae.getVars())
        s.names.push_back(var.isUnknown() && var.order == 0 ? var.getName() : std::string());
    for (const Dae::Eq& eq : dae.getEqs()) {
        std::vector<Dae::VarOrder> pairs;
        dae.getVarOccurrences(*eq.expr, pairs);
        Row row;
        for (const auto& [var, order] : pairs)
            if (!s.names[var].empty()) {
                row.push_back({var, order});
                int& highest = s.highest.insert({s.names[var], order}).first->second;
                highest = std::max(highest, order);
            }
        s.rows.push_back(row);
    }
    return s;
}

/// Number of equations that can be matched to highest derivatives, by trying.
int matched(const Structure& s)
{
    std::map<int, int> ownerOf;
    const std::function<bool(int, std::set<int>&)> place = [&](int eq, std::set<int>& tried) {
        for (const auto& [var, order] : s.rows[eq]) {
            if (order != s.highest.at(s.names[var]) || !tried.insert(var).second)
                continue;
            const auto owner = ownerOf.find(var);
            if (owner == ownerOf.end() || place(owner->second, tried)) {
                ownerOf[var] = eq;
                return true;
            }
        }
        return false;
    };
    int count = 0;
    for (int eq = 0; eq < static_cast<int>(s.rows.size()); ++eq) {
        std::set<int> tried;
        count += place(eq, tried);
    }
    return count;
}

/// The orders that dummies stand for, by the name of the variable.
std::map<std::string, std::set<int>> dummyOrders(const Dae& dae, std::size_t from)
{
    std::map<std::string, std::set<int>> orders;
    for (std::size_t i = from; i < dae.getVars().size(); ++i) {
        const Dae::Var& var = dae.getVars()[i];
        const std::string name = var.getName();
        const std::size_t dummy = name.rfind("_dummy");
        if (var.order == 0 && dummy != std::string::npos)
            orders[name.substr(0, dummy)].insert(std::stoi(name.substr(dummy + 6)));
    }
    return orders;
}

/// Complete but for the free pairs; the dummies of a variable are its top orders; offsets c, d of the rows before give the
/// orders that are left.
void expectSound(const Dae& dae, const Structure& before, const qxtest::Offsets& offsets, std::size_t nVarsBefore, int nFree,
                 const std::string& label)
{
    const Structure after = structureOf(dae);
    EXPECT_EQ(matched(after), static_cast<int>(dae.getEqs().size()) - nFree) << label;

    const auto orders = dummyOrders(dae, nVarsBefore);
    int sumLeft = 0, sumD = 0, sumC = 0;
    for (const int c : offsets.c)
        sumC += c;
    std::size_t j = 0;
    for (const std::string& name : before.names) {
        if (name.empty() || !before.highest.count(name))
            continue;
        const int d = offsets.d[j++];
        sumD += d;
        const auto left = after.highest.find(name);
        const int highest = left == after.highest.end() ? 0 : left->second;
        sumLeft += highest;
        const auto made = orders.find(name);
        std::set<int> wanted;
        for (int k = highest + 1; k <= d; ++k)
            wanted.insert(k);
        EXPECT_EQ(made == orders.end() ? std::set<int>() : made->second, wanted) << label << ", " << name;
    }
    EXPECT_EQ(sumLeft, sumD - sumC) << label;
}

/// The rows of the equations that hold unknowns, in numbers of those unknowns alone.
std::vector<Row> compact(const Structure& s)
{
    std::map<int, int> number;
    for (std::size_t v = 0; v < s.names.size(); ++v)
        if (!s.names[v].empty() && s.highest.count(s.names[v]))
            number.insert({static_cast<int>(v), static_cast<int>(number.size())});
    std::vector<Row> rows;
    for (const Row& row : s.rows) {
        if (row.empty())
            continue;
        rows.emplace_back();
        for (const auto& [var, order] : row)
            rows.back().push_back({number.at(var), order});
    }
    return rows;
}

/// Equations in z0, z1, ... and the excluded unknown p with random orders of derivatives.
class RandomSystem
{
public:
    RandomSystem(unsigned seed, int n) : random_(seed), n_(n) {}

    std::unique_ptr<Dae> make()
    {
        auto dae = std::make_unique<Dae>("t");
        if (hasExcluded)
            dae->addVar("p", false, false, true);
        for (int v = 0; v < n_; ++v)
            dae->addVar("z" + std::to_string(v));
        if (hasFreePair) {
            dae->addVar("free");
            dae->addEq("- k 1");
        }
        for (const std::string& text : equations_)
            dae->addEq(qxtest::equationText(text));
        return dae;
    }

    void choose()
    {
        hasFreePair = pick(5) == 0;
        hasExcluded = pick(4) == 0;
        const bool linear = pick(2) == 0;
        const int mostOrder = pick(4);
        equations_.clear();
        for (int i = 0; i < n_; ++i) {
            std::string text = std::to_string(1 + pick(5)) + "*cos(t)";
            for (int v = 0; v < n_; ++v) {
                if (pick(10 * n_) >= 22)
                    continue;
                const std::string z = derivative("z" + std::to_string(v), pick(mostOrder + 1));
                const std::string factor = "+" + std::to_string(2 + pick(7)) + "*";
                switch (linear ? 0 : pick(4)) {
                case 0: text += factor + z; break;
                case 1: text += factor + "sin(" + z + ")"; break;
                case 2: text += factor + z + "^2"; break;
                default: text += factor + "d(z" + std::to_string(v) + "*" + z + ",t)"; break;
                }
            }
            if (hasExcluded && pick(2) == 0)
                text += "+p";
            equations_.push_back(text);
        }
    }

    bool hasFreePair = false, hasExcluded = false;

private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    static std::string derivative(std::string z, int order)
    {
        for (; order > 0; --order)
            z = "d(" + z + ",t)";
        return z;
    }

    std::mt19937 random_;
    int n_;
    std::vector<std::string> equations_;
};

void expectValuesOfDerivatives(const Dae& original, const Dae& reduced, unsigned seed)
{
    Curves curves(seed);
    curves.makeConstant("k");
    const auto jetOf = [&](const std::string& name) { return curves(name); };
    for (std::size_t i = 0; i < original.getEqs().size(); ++i) {
        const Jet jet = qxtest::valueOf(original.getEqs()[i].expr->getImpl()->getRoot(), jetOf);
        int k = 0;
        for (int q = static_cast<int>(i); q >= 0; q = reduced.getEqs()[q].deriv, ++k) {
            const double wanted = jet.derivative(k);
            EXPECT_NEAR(qxtest::valueOf(reduced.getEqs()[q].expr->getImpl()->getRoot(), jetOf).c[0], wanted,
                        1e-8 * (1.0 + std::abs(wanted)))
                << "derivative " << k << " of " << original.getEq(static_cast<int>(i)) << ", reduced to " << reduced.getEq(q);
        }
    }
}

} // namespace

TEST(Soundness, HighestOrdersThatLeaveTheSystemSingularAreGivenUp)
{
    const auto dae = makeDae({"x0", "x1", "x2", "x3"},
                             {"d(d(d(x0,t),t),t)", "d(x1,t)+x0", "d(d(x2,t),t)+d(x3,t)", "x3+d(x0,t)"});
    dae->syncVars();
    const Structure before = structureOf(*dae);
    const auto offsets = qxtest::signatureOffsets(compact(before));
    ASSERT_TRUE(offsets);

    dae->pantelides();

    expectSound(*dae, before, *offsets, 4, 0, "");
}

TEST(Soundness, HighestOrdersThatLeaveAGapAreGivenUp)
{
    // By hand: offsets c = (2, 0, 2), d = (1, 3, 4), so that there are four initial values. The highest orders in the new
    // equations would take the first and second derivative of x1 and leave the third: six.
    const auto dae = makeDae({"x0", "x1", "x2"},
                             {"d(x1,t)+d(d(x2,t),t)", "d(x0,t)+d(d(d(x1,t),t),t)", "d(d(x2,t),t)+x1"});
    dae->syncVars();
    const Structure before = structureOf(*dae);
    const auto offsets = qxtest::signatureOffsets(compact(before));
    ASSERT_TRUE(offsets);

    dae->pantelides();

    expectSound(*dae, before, *offsets, 3, 0, "");
    EXPECT_EQ(structureOf(*dae).highest.at("x1"), 1);
}

TEST(Soundness, RigidlyCoupledInertiasAreMatchedCompletely)
{
    // J1 w1' = m1 - g, J2 w2' = g - m2, phi_i' = w_i, phi1 = phi2: index 3; one angle and one speed are free.
    const auto dae = makeDae({"phi1", "phi2", "w1", "w2", "g"},
                             {"d(phi1,t)-w1", "d(phi2,t)-w2", "J1*d(w1,t)+g-m1", "J2*d(w2,t)-g+m2", "phi1-phi2"});
    dae->syncVars();
    const Structure before = structureOf(*dae);
    const auto offsets = qxtest::signatureOffsets(compact(before));
    ASSERT_TRUE(offsets);

    dae->pantelides();

    expectSound(*dae, before, *offsets, 5, 0, "");
    int left = 0;
    for (const auto& [name, order] : structureOf(*dae).highest)
        left += order;
    EXPECT_EQ(left, 2);
}

TEST(Soundness, OfRandomRegularSystems)
{
    int nRegular = 0, nDifferentiated = 0, nFree = 0, nExcluded = 0, nValues = 0;
    for (unsigned seed = 0; nRegular < 3000; ++seed) {
        RandomSystem system(seed, 2 + static_cast<int>(seed % 5));
        system.choose();
        const auto dae = system.make();
        dae->syncVars();
        const Structure before = structureOf(*dae);
        const std::vector<Row> rows = compact(before);
        const int nFreePairs = static_cast<int>(before.rows.size() - rows.size());
        const auto offsets = rows.size() == before.highest.size() ? qxtest::signatureOffsets(rows) : std::nullopt;
        if (!offsets || nFreePairs != (system.hasFreePair ? 1 : 0))
            continue;
        ++nRegular;

        dae->pantelides();

        const std::string label = "seed " + std::to_string(seed);
        ASSERT_NO_FATAL_FAILURE(expectSound(*dae, before, *offsets, before.names.size(), nFreePairs, label));
        if (*std::max_element(offsets->d.begin(), offsets->d.end()) <= 6) {
            expectValuesOfDerivatives(*system.make(), *dae, seed);
            ++nValues;
        }
        const std::size_t nEqs = dae->getEqs().size();
        dae->reduceIndex(); // nothing is left to be done
        EXPECT_EQ(dae->getEqs().size(), nEqs) << label;
        expectSound(*dae, before, *offsets, before.names.size(), nFreePairs, label + ", second call");
        if (HasFailure())
            break;
        nDifferentiated += nEqs > before.rows.size();
        nFree += nFreePairs;
        nExcluded += system.hasExcluded;
    }
    EXPECT_GT(nDifferentiated, 1000);
    EXPECT_GT(nFree, 200);
    EXPECT_GT(nExcluded, 200);
    EXPECT_GT(nValues, 1000);
}

TEST(Soundness, OfSystemsThatGrewAfterTheFirstCall)
{
    int nGrown = 0;
    for (unsigned seed = 0; nGrown < 300; ++seed) {
        RandomSystem system(seed + 100000, 2 + static_cast<int>(seed % 2));
        system.choose();
        const auto dae = system.make();
        dae->syncVars();
        const std::vector<Row> rows = compact(structureOf(*dae));
        if (system.hasFreePair || rows.size() != dae->getEqs().size() || !qxtest::signatureOffsets(rows))
            continue;
        dae->reduceIndex();
        if (dae->getEqs().size() > 6)
            continue;
        // y follows z0, and w drives it: z0 must be differentiated twice more.
        for (const char* name : {"y", "w"})
            dae->addVar(name);
        dae->addEq(qxtest::equationText("d(d(y,t),t)-w"));
        dae->addEq(qxtest::equationText("y-z0-sin(t)"));
        dae->syncVars();
        const Structure before = structureOf(*dae);
        const auto offsets = qxtest::signatureOffsets(compact(before));
        ASSERT_TRUE(offsets) << "seed " << seed;
        ++nGrown;

        dae->reduceIndex();

        expectSound(*dae, before, *offsets, before.names.size(), 0, "seed " + std::to_string(seed));
        if (HasFailure())
            break;
    }
}

// SPDX-License-Identifier: LicenseRef-qxkernel
// Tables of occurrences, Pantelides' algorithm on them, and the choice of dummy derivatives.

#include "structure_detail.hpp"

#include "qxexception.hpp"
#include "qxrun.hpp"

#include <algorithm>
#include <set>

namespace qxdae {

namespace {

std::size_t at(int i)
{
    return static_cast<std::size_t>(i);
}

} // namespace

void clearOccurrences(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs)
{
    for (Dae::Var& var : vars)
        var.occurrences.clear();
    for (Dae::Eq& eq : eqs)
        eq.occurrences.clear();
}

int countUnknowns(const std::vector<Dae::Var>& vars)
{
    return static_cast<int>(std::count_if(vars.begin(), vars.end(),
                                          [](const Dae::Var& var) { return var.isUnknown() && var.order == 0; }));
}

void fillOccurrences(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs, const std::vector<Row>& rows)
{
    clearOccurrences(vars, eqs);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::vector<int>& occurrences = eqs[i].occurrences;
        for (const auto& [var, order] : rows[i]) {
            // The orders of one variable stand together: it enters once.
            if (!vars[at(var)].isUnknown() || (!occurrences.empty() && occurrences.back() == var))
                continue;
            occurrences.push_back(var);
            vars[at(var)].occurrences.push_back(static_cast<int>(i));
        }
    }
}

Pantelides::Pantelides(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs, Equations& equations)
    : vars_(vars), eqs_(eqs), equations_(equations)
{
    for (Dae::Var& var : vars_) {
        oldDeriv_.push_back(var.deriv);
        var.deriv = -1;
    }
    clearOccurrences(vars_, eqs_);
}

int Pantelides::run(qxutil::RunInfo* info, bool complete)
{
    qxutil::RunInfo silent;
    qxutil::RunLog log(info ? *info : silent);
    log.init("Index reduction");
    const int nOriginal = static_cast<int>(eqs_.size());
    log.setProgressScale(nOriginal);
    lookAtNewEquations();
    if (complete) {
        log.setProgress(nOriginal);
        return -1;
    }
    limit_ = std::count_if(vars_.begin(), vars_.end(), [](const Dae::Var& var) { return var.isUnknown(); });
    for (int k = 0; k < nOriginal; ++k) {
        if (!matchOrDifferentiate(k, info))
            return k;
        log.setProgress(k + 1);
    }
    return -1;
}

bool Pantelides::matchOrDifferentiate(int eq, qxutil::RunInfo* info)
{
    for (std::ptrdiff_t count = 0;; ++count) {
        if (info)
            info->throwIfCancelled("dae", __LINE__);
        if (!hasUnknown(eq))
            return true;
        if (findShortestPath(eq))
            return true;
        if (count == limit_)
            return false;
        differentiateMarked(info);
        lookAtNewEquations();
        eq = eqs_[at(eq)].deriv;
    }
}

/// Which path is taken makes no difference to the equations that a failed search has seen: the smallest set with more
/// equations than highest derivatives in it. The shortest one is found soonest.
bool Pantelides::findShortestPath(int eq)
{
    matching_.removeAllMarks();
    matching_.markEq(eq);
    reachedFrom_.resize(vars_.size());
    const std::vector<int>& seen = matching_.getMarkedEqs();
    for (std::size_t i = 0; i < seen.size(); ++i) {
        for (const int var : eqs_[at(seen[i])].occurrences) {
            if (matching_.isVarMarked(var))
                continue;
            matching_.markVar(var);
            reachedFrom_[at(var)] = seen[i];
            const int owner = matching_.getVarMatch(var);
            if (owner >= 0) {
                matching_.markEq(owner);
                continue;
            }
            for (int freed = var, taker = -1; taker != eq;) { // back to the start, each equation takes what it led to
                taker = reachedFrom_[at(freed)];
                const int left = matching_.getEqMatch(taker);
                matching_.setVarMatch(freed, taker);
                freed = left;
            }
            return true;
        }
    }
    return false;
}

void Pantelides::lookAtNewEquations()
{
    const std::size_t first = pairs_.size();
    for (std::size_t i = first; i < eqs_.size(); ++i) {
        equations_.getOccurrences(static_cast<int>(i), found_);
        for (const auto& [source, order] : found_) {
            int var = source;
            for (int k = 0; k < order; ++k)
                var = derivativeOf(var);
            if (!isActive(var))
                continue;
            eqs_[i].occurrences.push_back(var);
            vars_[at(var)].occurrences.push_back(static_cast<int>(i));
        }
        pairs_.push_back(found_);
    }
    dropInactive();
}

int Pantelides::derivativeOf(int var)
{
    const int deriv = vars_[at(var)].deriv;
    return deriv >= 0 ? deriv : appendDerivative(var);
}

int Pantelides::appendDerivative(int var)
{
    int deriv = at(var) < oldDeriv_.size() ? oldDeriv_[at(var)] : -1;
    if (deriv < 0) {
        deriv = static_cast<int>(vars_.size());
        vars_.push_back(Dae::Var(vars_[at(var)], 1));
    }
    vars_[at(var)].deriv = deriv;
    justDifferentiated_.push_back(var);
    return deriv;
}

// Takes the variables that are no highest derivatives any more out of the equations.
void Pantelides::dropInactive()
{
    std::vector<int> touched;
    for (const int var : justDifferentiated_) {
        std::vector<int>& occurrences = vars_[at(var)].occurrences;
        touched.insert(touched.end(), occurrences.begin(), occurrences.end());
        occurrences.clear();
    }
    justDifferentiated_.clear();
    std::sort(touched.begin(), touched.end());
    touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    for (const int i : touched) {
        std::vector<int>& occurrences = eqs_[at(i)].occurrences;
        occurrences.erase(std::remove_if(occurrences.begin(), occurrences.end(),
                                         [this](int var) { return !isActive(var); }),
                          occurrences.end());
    }
}

void Pantelides::differentiateMarked(qxutil::RunInfo* info)
{
    std::vector<int> eqs = matching_.getMarkedEqs();
    std::vector<int> vars = matching_.getMarkedVars();
    std::sort(eqs.begin(), eqs.end());
    std::sort(vars.begin(), vars.end());
    for (const int eq : eqs) {
        if (info)
            info->throwIfCancelled("dae", __LINE__);
        Dae::Eq derivative = equations_.differentiate(eq);
        eqs_[at(eq)].deriv = static_cast<int>(eqs_.size());
        eqs_.push_back(std::move(derivative));
    }
    // All marked variables are matched to marked equations, or the search would not have failed.
    for (const int var : vars)
        matching_.setVarMatch(derivativeOf(var), eqs_[at(matching_.getVarMatch(var))].deriv);
}

bool Pantelides::isActive(int var) const
{
    return vars_[at(var)].isUnknown() && vars_[at(var)].deriv < 0;
}

bool Pantelides::hasUnknown(int eq) const
{
    const auto& pairs = pairs_[at(eq)];
    return std::any_of(pairs.begin(), pairs.end(),
                       [this](const Dae::VarOrder& pair) { return vars_[at(pair.first)].isUnknown(); });
}

Row Pantelides::getMatchedDerivatives(int nOriginal) const
{
    Row chosen;
    for (int i = 0; i < nOriginal; ++i) {
        int last = i;
        int count = 0;
        while (eqs_[at(last)].deriv >= nOriginal) { // links to equations that were there before are of an earlier run
            last = eqs_[at(last)].deriv;
            ++count;
        }
        const int var = matching_.getEqMatch(last);
        for (int k = 0; var >= 0 && k < count; ++k)
            chosen.push_back({var, vars_[at(var)].order - k});
    }
    return chosen;
}

Row chooseHighestOrders(const std::vector<Dae::Var>& vars,
                                               const std::vector<Row>& pairs, int nOriginal)
{
    struct Candidates
    {
        Row pairs; // highest derivatives first
        std::size_t next = 0;
    };
    const auto highestFirst = [&vars](Row all) {
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [&vars](const Dae::VarOrder& pair) {
                                     return pair.second == 0 || !vars[at(pair.first)].isUnknown();
                                 }),
                  all.end());
        std::stable_sort(all.begin(), all.end(),
                         [](const Dae::VarOrder& a, const Dae::VarOrder& b) { return a.second > b.second; });
        return all;
    };
    std::vector<Candidates> equations;
    for (std::size_t i = at(nOriginal); i < pairs.size(); ++i)
        equations.push_back({highestFirst(pairs[i])});

    const std::size_t wanted = equations.size();
    Row chosen;
    std::set<Dae::VarOrder> isChosen;
    for (std::size_t before = wanted; chosen.size() < wanted && chosen.size() != before;) {
        before = chosen.size();
        for (auto& [candidates, next] : equations) {
            while (next < candidates.size() && isChosen.count(candidates[next]))
                ++next;
            if (next == candidates.size() || chosen.size() == wanted)
                continue;
            chosen.push_back(candidates[next]);
            isChosen.insert(candidates[next]);
        }
    }
    return chosen;
}

namespace {

/// The highest order of each variable; -1: it does not occur or is no unknown.
std::vector<int> highestOrders(const std::vector<Row>& pairs,
                               const std::function<bool(int)>& isUnknown)
{
    std::vector<int> highest;
    for (const auto& equation : pairs)
        for (const auto& [var, order] : equation) {
            if (at(var) >= highest.size())
                highest.resize(at(var) + 1, -1);
            if (isUnknown(var))
                highest[at(var)] = std::max(highest[at(var)], order);
        }
    return highest;
}

} // namespace

bool areTopOrders(const Row& chosen, const std::vector<Row>& pairs,
                  const std::function<bool(int)>& isUnknown)
{
    const std::vector<int> highest = highestOrders(pairs, isUnknown);
    std::vector<int> count(highest.size(), 0), lowest(highest);
    for (const auto& [var, order] : chosen) {
        ++count[at(var)];
        lowest[at(var)] = std::min(lowest[at(var)], order);
    }
    for (std::size_t var = 0; var < highest.size(); ++var)
        if (count[var] > 0 && lowest[var] != highest[var] - count[var] + 1)
            return false;
    return true;
}

int countHighestMatched(const std::vector<Row>& pairs, const std::function<bool(int)>& isUnknown)
{
    const std::vector<int> highest = highestOrders(pairs, isUnknown);
    std::vector<Dae::Eq> eqs(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i)
        for (const auto& [var, order] : pairs[i])
            if (order == highest[at(var)])
                eqs[i].occurrences.push_back(var);
    return countMatched(eqs);
}

} // namespace qxdae

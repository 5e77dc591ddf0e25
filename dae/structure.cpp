// Matching of equations to variables by augmenting paths, and Pantelides' algorithm on top of it.

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

/// The first variable of an equation that no equation is matched to; -1: none.
int findUnmatched(const Dae::Eq& eq, Dae::Matching& matching)
{
    for (const int var : eq.occurrences)
        if (matching.getVarMatch(var) < 0)
            return var;
    return -1;
}

} // namespace

bool augmentPath(const std::vector<Dae::Eq>& eqs, Dae::Matching& matching, int eq)
{
    struct Step
    {
        int eq;
        std::size_t next; // position of the variable to go on with; the one before it leads to the step above
    };
    std::vector<Step> path{{eq, 0}};
    matching.markEq(eq);

    int freeVar = findUnmatched(eqs[at(eq)], matching);
    while (freeVar < 0) {
        Step& step = path.back();
        const std::vector<int>& vars = eqs[at(step.eq)].occurrences;
        while (step.next < vars.size() && matching.isVarMarked(vars[step.next]))
            ++step.next;
        if (step.next == vars.size()) {
            path.pop_back();
            if (path.empty())
                return false;
            continue;
        }
        const int var = vars[step.next++];
        matching.markVar(var);
        const int other = matching.getVarMatch(var);
        matching.markEq(other);
        path.push_back({other, 0});
        freeVar = findUnmatched(eqs[at(other)], matching);
    }

    // From the end backwards: each equation hands the variable it was reached by to the one before.
    for (int var = freeVar; !path.empty();) {
        const int owner = path.back().eq;
        path.pop_back();
        matching.setVarMatch(var, owner);
        if (!path.empty())
            var = eqs[at(path.back().eq)].occurrences[path.back().next - 1];
    }
    return true;
}

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

void fillOccurrences(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs, Equations& equations)
{
    clearOccurrences(vars, eqs);
    std::vector<Dae::VarOrder> pairs;
    const int n = static_cast<int>(eqs.size());
    for (int i = 0; i < n; ++i) {
        equations.getOccurrences(i, pairs);
        std::vector<int>& occurrences = eqs[at(i)].occurrences;
        for (const auto& [var, order] : pairs) {
            // The orders of one variable stand together: it enters once.
            if (!vars[at(var)].isUnknown() || (!occurrences.empty() && occurrences.back() == var))
                continue;
            occurrences.push_back(var);
            vars[at(var)].occurrences.push_back(i);
        }
    }
}

void extendMatching(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs, Equations& equations,
                    Dae::Matching& matching)
{
    fillOccurrences(vars, eqs, equations);
    const int n = static_cast<int>(eqs.size());
    for (int i = 0; i < n; ++i) {
        if (matching.isEqMatched(i))
            continue;
        matching.removeAllMarks();
        augmentPath(eqs, matching, i);
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

int Pantelides::run(qxutil::RunInfo* info)
{
    qxutil::RunInfo silent;
    qxutil::RunLog log(info ? *info : silent);
    log.init("Index reduction");
    const int nOriginal = static_cast<int>(eqs_.size());
    log.setProgressScale(nOriginal);
    lookAtNewEquations();
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
        matching_.removeAllMarks();
        if (augmentPath(eqs_, matching_, eq))
            return true;
        if (count == limit_)
            return false;
        differentiateMarked(info);
        lookAtNewEquations();
        eq = eqs_[at(eq)].deriv;
    }
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

std::vector<Dae::VarOrder> Pantelides::getMatchedDerivatives(int nOriginal) const
{
    std::vector<Dae::VarOrder> chosen;
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

std::vector<Dae::VarOrder> chooseHighestOrders(const std::vector<Dae::Var>& vars,
                                               const std::vector<std::vector<Dae::VarOrder>>& pairs, int nOriginal)
{
    struct Candidates
    {
        std::vector<Dae::VarOrder> pairs; // highest derivatives first
        std::size_t next = 0;
    };
    const auto highestFirst = [&vars](std::vector<Dae::VarOrder> all) {
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
    std::vector<Dae::VarOrder> chosen;
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
std::vector<int> highestOrders(const std::vector<std::vector<Dae::VarOrder>>& pairs,
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

bool areTopOrders(const std::vector<Dae::VarOrder>& chosen, const std::vector<std::vector<Dae::VarOrder>>& pairs,
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

int countHighestMatched(const std::vector<std::vector<Dae::VarOrder>>& pairs, const std::function<bool(int)>& isUnknown)
{
    const std::vector<int> highest = highestOrders(pairs, isUnknown);
    std::vector<Dae::Eq> eqs(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i)
        for (const auto& [var, order] : pairs[i])
            if (order == highest[at(var)])
                eqs[i].occurrences.push_back(var);
    Dae::Matching matching(static_cast<int>(highest.size()), static_cast<int>(eqs.size()));
    for (std::size_t i = 0; i < eqs.size(); ++i) {
        matching.removeAllMarks();
        augmentPath(eqs, matching, static_cast<int>(i));
    }
    return matching.size();
}

} // namespace qxdae

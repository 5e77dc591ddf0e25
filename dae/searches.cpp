// SPDX-License-Identifier: LicenseRef-qxkernel
// Matching of equations to variables by augmenting paths.

#include "structure_detail.hpp"

#include <algorithm>
#include <climits>

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

namespace {

/// The variables of all equations in one table, with what a search keeps of each beside it.
class Table
{
protected:
    struct Equation
    {
        int begin; // of its variables in vars_
        int end;
        int first; // up to here no variable is free
        int next;  // where a search goes on
    };
    struct Variable
    {
        int owner;
        int seen;
    };

    explicit Table(const std::vector<Dae::Eq>& eqs)
    {
        eqs_.reserve(eqs.size());
        int nVars = 0;
        for (const Dae::Eq& eq : eqs) {
            const int begin = static_cast<int>(vars_.size());
            for (const int var : eq.occurrences) {
                vars_.push_back(var);
                nVars = std::max(nVars, var + 1);
            }
            eqs_.push_back({begin, static_cast<int>(vars_.size()), begin, begin});
        }
        states_.resize(at(nVars), {-1, 0});
    }

    int findFree(Equation& eq)
    {
        for (; eq.first < eq.end; ++eq.first)
            if (states_[at(vars_[at(eq.first)])].owner < 0)
                return vars_[at(eq.first)];
        return -1;
    }

    /// From the end of the path backwards: each equation hands the variable it was reached by to the one before.
    void shift(int var)
    {
        for (;;) {
            states_[at(var)].owner = path_.back();
            path_.pop_back();
            if (path_.empty())
                return;
            var = vars_[at(eqs_[at(path_.back())].next - 1)];
        }
    }

    std::vector<Equation> eqs_;
    std::vector<int> vars_;
    std::vector<Variable> states_;
    std::vector<int> path_;
};

/// The same paths as augmentPath finds one by one, without looking again at what can no longer change. A variable that is
/// matched stays matched, so that an equation asks each of its variables once whether it is free; and what a failed search
/// has seen, no later search need enter.
class Searches : Table
{
public:
    Searches(const std::vector<Dae::Eq>& eqs, Dae::Matching& matching) : Table(eqs), matching_(matching)
    {
        for (std::size_t var = 0; var < states_.size(); ++var)
            states_[var].owner = matching.getVarMatch(static_cast<int>(var));
    }

    void run()
    {
        for (int eq = 0; eq < static_cast<int>(eqs_.size()); ++eq)
            if (!matching_.isEqMatched(eq))
                augment(eq);
        for (std::size_t var = 0; var < states_.size(); ++var)
            if (states_[var].owner >= 0)
                matching_.setVarMatch(static_cast<int>(var), states_[var].owner);
    }

private:
    static constexpr int deadEnd = INT_MAX;

    void augment(int eq)
    {
        ++search_;
        seen_.clear();
        path_.clear();
        for (int next = eq; next >= 0;) {
            path_.push_back(next);
            Equation& row = eqs_[at(next)];
            const int freeVar = findFree(row);
            if (freeVar >= 0)
                return shift(freeVar);
            row.next = row.begin;
            next = nextEquation();
        }
        for (const int var : seen_)
            states_[at(var)].seen = deadEnd;
    }

    /// The owner of the next variable of the path's last equation, or of the one before where that has no more; -1: the
    /// path has come to nothing.
    int nextEquation()
    {
        for (; !path_.empty(); path_.pop_back()) {
            Equation& row = eqs_[at(path_.back())];
            while (row.next < row.end) {
                const int var = vars_[at(row.next++)];
                Variable& state = states_[at(var)];
                if (state.seen >= search_)
                    continue;
                state.seen = search_;
                seen_.push_back(var);
                return state.owner;
            }
        }
        return -1;
    }

    Dae::Matching& matching_;
    std::vector<int> seen_;
    int search_ = 0;
};

/// In phases: a maximal set of shortest paths that share nothing.
class QuickMatching : Table
{
public:
    explicit QuickMatching(const std::vector<Dae::Eq>& eqs) : Table(eqs), layer_(eqs.size(), 0) {}

    int run()
    {
        int size = 0;
        std::vector<int> open;
        for (int eq = 0; eq < static_cast<int>(eqs_.size()); ++eq) {
            const int var = findFree(eqs_[at(eq)]);
            if (var < 0) {
                open.push_back(eq);
                continue;
            }
            states_[at(var)].owner = eq;
            ++size;
        }
        while (!open.empty() && layOut(open)) {
            std::vector<int> left;
            for (const int eq : open)
                if (augment(eq))
                    ++size;
                else
                    left.push_back(eq);
            if (left.size() == open.size())
                break;
            open.swap(left);
        }
        return size;
    }

private:
    /// Numbers the equations by their distance from the open ones, up to the first free variable; false: there is none.
    bool layOut(const std::vector<int>& open)
    {
        std::fill(layer_.begin(), layer_.end(), INT_MAX);
        std::vector<int> queue = open;
        for (const int eq : open)
            layer_[at(eq)] = 0;
        int last = INT_MAX;
        for (std::size_t i = 0; i < queue.size(); ++i) {
            const int eq = queue[i];
            Equation& row = eqs_[at(eq)];
            row.next = row.begin;
            if (layer_[at(eq)] >= last)
                continue;
            for (int k = row.begin; k < row.end; ++k) {
                const int owner = states_[at(vars_[at(k)])].owner;
                if (owner < 0) {
                    last = layer_[at(eq)];
                } else if (layer_[at(owner)] == INT_MAX) {
                    layer_[at(owner)] = layer_[at(eq)] + 1;
                    queue.push_back(owner);
                }
            }
        }
        return last != INT_MAX;
    }

    /// Along the layers only; each variable of an equation is tried once in a phase.
    bool augment(int eq)
    {
        path_.assign(1, eq);
        while (!path_.empty()) {
            Equation& row = eqs_[at(path_.back())];
            if (row.next == row.end) {
                path_.pop_back();
                continue;
            }
            const int var = vars_[at(row.next++)];
            const int owner = states_[at(var)].owner;
            if (owner < 0) {
                shift(var);
                return true;
            }
            if (layer_[at(owner)] == layer_[at(path_.back())] + 1)
                path_.push_back(owner);
        }
        return false;
    }

    std::vector<int> layer_;
};

} // namespace

void augmentAll(const std::vector<Dae::Eq>& eqs, Dae::Matching& matching)
{
    Searches(eqs, matching).run();
}

int countMatched(const std::vector<Dae::Eq>& eqs)
{
    return QuickMatching(eqs).run();
}

} // namespace qxdae

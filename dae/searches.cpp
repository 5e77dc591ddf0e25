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

/// The same paths as augmentPath finds one by one, without looking again at what can no longer change. A variable that is
/// matched stays matched, so that an equation asks each of its variables once whether it is free; and what a failed search
/// has seen, no later search need enter.
///
/// Long searches wait for memory at every step. So an equation stands in one block with its variables, most of them
/// within one cache line, and all that leads from one to the next is the place of that block.
class Searches
{
public:
    Searches(const std::vector<Dae::Eq>& eqs, Dae::Matching& matching) : matching_(matching)
    {
        std::size_t size = 0;
        int nVars = 0;
        for (const Dae::Eq& eq : eqs) {
            places_.push_back(static_cast<int>(size));
            size += halves(eq.occurrences.size());
            for (const int var : eq.occurrences)
                nVars = std::max(nVars, var + 1);
        }
        blocks_.resize(size);
        for (std::size_t i = 0; i < eqs.size(); ++i) {
            const std::vector<int>& vars = eqs[i].occurrences;
            int* const eq = block(places_[i]);
            eq[Number] = static_cast<int>(i);
            eq[End] = Vars + static_cast<int>(vars.size());
            eq[First] = eq[Next] = Vars;
            std::copy(vars.begin(), vars.end(), eq + Vars);
        }
        variables_.resize(at(nVars), {-1, 0});
        for (int var = 0; var < nVars; ++var)
            if (const int owner = matching.getVarMatch(var); owner >= 0)
                variables_[at(var)].owner = places_[at(owner)];
    }

    void run()
    {
        for (std::size_t i = 0; i < places_.size(); ++i)
            if (!matching_.isEqMatched(static_cast<int>(i)))
                augment(places_[i]);
        for (std::size_t var = 0; var < variables_.size(); ++var)
            if (variables_[var].owner >= 0)
                matching_.setVarMatch(static_cast<int>(var), block(variables_[var].owner)[Number]);
    }

private:
    /// Of a block: the equation's number, where its variables end, up to where none is free, where a search goes on; then
    /// the variables.
    enum Field { Number, End, First, Next, Vars };
    struct Variable
    {
        int owner; ///< place of the block of the equation it is matched to; -1: free
        int seen;  ///< the search that saw it last
    };
    struct Step
    {
        int place;     ///< of an equation's block
        int reachedBy; ///< the variable it owns; -1: the search began here
    };
    static constexpr int deadEnd = INT_MAX;

    /// Blocks are made of halves of cache lines: short ones lie within one line.
    struct alignas(32) Half
    {
        int fields[8];
    };
    static std::size_t halves(std::size_t nVars) { return (Vars + nVars + 7) / 8; }
    int* block(int place) { return blocks_[at(place)].fields; }

    int findFree(int* eq)
    {
        for (; eq[First] < eq[End]; ++eq[First])
            if (variables_[at(eq[eq[First]])].owner < 0)
                return eq[eq[First]];
        return -1;
    }

    void augment(int start)
    {
        ++search_;
        seen_.clear();
        path_.clear();
        for (Step step{start, -1}; step.place >= 0; step = nextStep()) {
            path_.push_back(step);
            int* const eq = block(step.place);
            const int freeVar = findFree(eq);
            if (freeVar >= 0)
                return shift(freeVar);
            eq[Next] = Vars;
        }
        for (const int var : seen_)
            variables_[at(var)].seen = deadEnd;
    }

    /// To the owner of the next variable of the path's last equation, or of the one before where that has no more; to -1
    /// where the path has come to nothing.
    Step nextStep()
    {
        for (; !path_.empty(); path_.pop_back()) {
            int* const eq = block(path_.back().place);
            while (eq[Next] < eq[End]) {
                const int var = eq[eq[Next]++];
                Variable& variable = variables_[at(var)];
                if (variable.seen >= search_)
                    continue;
                variable.seen = search_;
                seen_.push_back(var);
                return {variable.owner, var};
            }
        }
        return {-1, -1};
    }

    /// From the end of the path backwards: each equation hands the variable it was reached by to the one before.
    void shift(int var)
    {
        for (auto step = path_.rbegin(); step != path_.rend(); ++step) {
            variables_[at(var)].owner = step->place;
            var = step->reachedBy;
        }
    }

    Dae::Matching& matching_;
    std::vector<int> places_;
    std::vector<Half> blocks_;
    std::vector<Variable> variables_;
    std::vector<Step> path_;
    std::vector<int> seen_;
    int search_ = 0;
};

/// In phases: a maximal set of shortest paths that share nothing.
class QuickMatching
{
public:
    explicit QuickMatching(const std::vector<Dae::Eq>& eqs) : layer_(eqs.size(), 0)
    {
        eqs_.reserve(eqs.size());
        int nVars = 0;
        for (const Dae::Eq& eq : eqs) {
            const int begin = static_cast<int>(vars_.size());
            for (const int var : eq.occurrences) {
                vars_.push_back(var);
                nVars = std::max(nVars, var + 1);
            }
            eqs_.push_back({begin, static_cast<int>(vars_.size()), begin});
        }
        owners_.assign(at(nVars), -1);
    }

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
            owners_[at(var)] = eq;
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
    struct Equation
    {
        int begin; // of its variables in vars_
        int end;
        int next; // where a search goes on
    };

    int findFree(const Equation& eq) const
    {
        for (int k = eq.begin; k < eq.end; ++k)
            if (owners_[at(vars_[at(k)])] < 0)
                return vars_[at(k)];
        return -1;
    }

    void shift(int var)
    {
        for (;;) {
            owners_[at(var)] = path_.back();
            path_.pop_back();
            if (path_.empty())
                return;
            var = vars_[at(eqs_[at(path_.back())].next - 1)];
        }
    }

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
                const int owner = owners_[at(vars_[at(k)])];
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
            const int owner = owners_[at(var)];
            if (owner < 0) {
                shift(var);
                return true;
            }
            if (layer_[at(owner)] == layer_[at(path_.back())] + 1)
                path_.push_back(owner);
        }
        return false;
    }

    std::vector<Equation> eqs_;
    std::vector<int> vars_;
    std::vector<int> owners_;
    std::vector<int> path_;
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

// SPDX-License-Identifier: LicenseRef-qxkernel
// Removal of unknowns that other variables give directly.

#include "dae_detail.hpp"
#include "text_detail.hpp"

#include "exprimpl.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"

#include <algorithm>
#include <deque>
#include <set>

namespace {

/// Larger expressions are neither rewritten nor substituted, and a substitution adds at most as many nodes: that keeps
/// the work on one unknown bounded.
constexpr int mostNodes = 400;
/// Unknowns that one look at an equation tries to solve it for.
constexpr int mostAttempts = 8;

std::size_t at(int i)
{
    return static_cast<std::size_t>(i);
}

/// Number of nodes as they would be printed; counts no further than limit + 1.
int countNodes(const ExprTree& tree, int limit)
{
    std::vector<const ExprImpl::Node*> open{tree.getImpl()->getRoot().get()};
    int count = 0;
    while (!open.empty() && count <= limit) {
        const ExprImpl::Node* node = open.back();
        open.pop_back();
        ++count;
        for (int i = 0; i < node->getChildCount(); ++i)
            open.push_back(node->childAt(i).get());
    }
    return count;
}

/// Puts def in the place of var everywhere in tree and brings it to canonical form.
void substitute(ExprTree& tree, const boost::shared_ptr<ExprVar>& var, const ExprTree& def)
{
    ExprImpl::Nodes defs{def.getImpl()->getRoot()};
    std::vector<int> status{2}; // the definition is free of definitions
    ExprImpl::Node::simplify(tree.getImpl()->getRoot(), {var}, defs, status);
    tree.simp(false);
}

} // namespace

class Dae::Simplification
{
public:
    explicit Simplification(Dae& dae) : dae_(dae), rowsOf_(dae.vars_.size()) {}

    void run(qxutil::RunInfo* info)
    {
        nEqs_ = static_cast<int>(dae_.eqs_.size());
        for (const Eq& eq : dae_.eqs_) {
            throwIfCancelled(info);
            addRow(qxdae::simplified(*eq.expr, info));
        }
        // What was eliminated before goes on in terms of what is left.
        for (Var& var : dae_.vars_)
            if (var.type == Var::TypeEliminated) {
                var.elimExpr = qxdae::simplified(*var.elimExpr, info);
                addRow(var.elimExpr);
            }
        findDifferentiated();
        std::deque<int> open;
        for (int i = 0; i < nEqs_; ++i)
            open.push_back(i);
        while (!open.empty()) {
            throwIfCancelled(info);
            const int row = open.front();
            open.pop_front();
            rows_[at(row)].queued = false;
            if (rows_[at(row)].removed)
                continue;
            refuseContradiction(row);
            const int var = solve(row);
            if (var < 0)
                continue;
            for (const int changed : remove(row, var))
                if (changed < nEqs_ && !rows_[at(changed)].queued) {
                    rows_[at(changed)].queued = true;
                    open.push_back(changed);
                }
        }
        store();
    }

private:
    /// An equation, or the definition of an eliminated variable.
    struct Row
    {
        boost::shared_ptr<ExprTree> tree;
        std::vector<VarOrder> pairs;
        int nodes;
        bool removed = false;
        bool queued = true;
    };

    static void throwIfCancelled(const qxutil::RunInfo* info)
    {
        if (info)
            info->throwIfCancelled("dae", __LINE__);
    }

    void addRow(const boost::shared_ptr<ExprTree>& tree)
    {
        rows_.push_back({tree, {}, 0});
        enter(static_cast<int>(rows_.size()) - 1);
    }

    void enter(int i)
    {
        Row& row = rows_[at(i)];
        row.nodes = countNodes(*row.tree, mostNodes);
        dae_.getVarOccurrences(*row.tree, row.pairs);
        for (const VarOrder& pair : row.pairs)
            rowsOf_[at(pair.first)].insert(i);
    }

    void leave(int i)
    {
        for (const VarOrder& pair : rows_[at(i)].pairs)
            rowsOf_[at(pair.first)].erase(i);
    }

    void findDifferentiated()
    {
        for (const Row& row : rows_)
            for (const auto& [var, order] : row.pairs)
                if (order > 0 && dae_.vars_[at(var)].isUnknown())
                    dae_.vars_[at(var)].type = Var::TypeFurther;
    }

    void refuseContradiction(int i) const
    {
        double value = 0.0;
        if (rows_[at(i)].tree->toReal(value) && value != 0.0)
            QX_RAISE("dae", "The DAE is locally over-determined with inconsistent right-hand sides.", "Equation",
                     dae_.getEq(i));
    }

    /// Finds an unknown that row may define, those added last first, and leaves its definition in definition_; -1: none.
    int solve(int i)
    {
        const Row& row = rows_[at(i)];
        if (row.nodes > mostNodes)
            return -1;
        int attempts = mostAttempts;
        for (auto pair = row.pairs.rbegin(); pair != row.pairs.rend() && attempts > 0; ++pair) {
            const int var = pair->first;
            if (dae_.vars_[at(var)].type != Var::TypeUnknown)
                continue;
            const std::size_t nOtherUnknowns = row.pairs.size() - 1;
            const std::size_t nOtherRows = rowsOf_[at(var)].size() - 1;
            if (nOtherUnknowns > 1 && nOtherRows > 1)
                continue;
            --attempts;
            if (define(i, var))
                return var;
        }
        return -1;
    }

    bool define(int i, int var)
    {
        definition_ = boost::make_shared<ExprTree>();
        if (!rows_[at(i)].tree->solveFor(dae_.vars_[at(var)].var, *definition_))
            return false;
        definition_ = qxdae::simplified(*definition_);
        std::vector<VarOrder> pairs;
        dae_.getVarOccurrences(*definition_, pairs);
        if (std::any_of(pairs.begin(), pairs.end(), [var](const VarOrder& pair) { return pair.first == var; }))
            return false;
        const std::set<int>& users = rowsOf_[at(var)];
        const int nodes = countNodes(*definition_, mostNodes);
        if ((nodes - 1) * static_cast<std::ptrdiff_t>(users.size() - 1) > mostNodes)
            return false;
        return std::all_of(users.begin(), users.end(), [this](int row) { return rows_[at(row)].nodes <= mostNodes; });
    }

    /// Replaces var by definition_, which row i gave; returns the rows that have changed.
    std::vector<int> remove(int i, int var)
    {
        leave(i);
        rows_[at(i)].removed = true;
        const std::vector<int> users(rowsOf_[at(var)].begin(), rowsOf_[at(var)].end());
        Var& entry = dae_.vars_[at(var)];
        for (const int user : users) {
            leave(user);
            substitute(*rows_[at(user)].tree, entry.var, *definition_);
            enter(user);
        }
        const int other = unknownThatIs(*definition_);
        if (other >= 0) {
            entry.type = Var::TypeReplaced;
            dae_.varIndex_[entry.var.get()] = other;
        } else {
            entry.type = Var::TypeEliminated;
            entry.elimExpr = definition_;
            addRow(definition_);
        }
        return users;
    }

    /// The unknown that an expression consists of; -1 if it is anything else.
    int unknownThatIs(const ExprTree& tree) const
    {
        const ExprImpl::Node& root = *tree.getImpl()->getRoot();
        if (root.type != ExprImpl::Node::TypeIdentifier)
            return -1;
        const auto found = dae_.varIndex_.find(root.as<ExprImpl::Identifier>().var.get());
        return found != dae_.varIndex_.end() && dae_.vars_[at(found->second)].isUnknown() ? found->second : -1;
    }

    void store()
    {
        std::vector<Eq> eqs;
        std::vector<int> place(at(nEqs_), -1);
        for (int i = 0; i < nEqs_; ++i) {
            if (rows_[at(i)].removed)
                continue;
            place[at(i)] = static_cast<int>(eqs.size());
            eqs.push_back(dae_.eqs_[at(i)]);
            eqs.back().expr = rows_[at(i)].tree;
        }
        for (Eq& eq : eqs)
            if (eq.deriv >= 0)
                eq.deriv = place[at(eq.deriv)];
        dae_.eqs_.swap(eqs);
    }

    Dae& dae_;
    int nEqs_ = 0;
    std::vector<Row> rows_; // the equations, then the definitions
    std::vector<std::set<int>> rowsOf_;
    boost::shared_ptr<ExprTree> definition_;
};

void Dae::simplify(qxutil::RunInfo* info)
{
    Snapshot before(*this);
    syncVars();
    clearOccurrences();
    Simplification(*this).run(info);
    before.keep();
}

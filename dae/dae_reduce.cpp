// SPDX-License-Identifier: LicenseRef-qxkernel
// Index reduction: checks, Pantelides' algorithm on the text, dummy derivatives, the new order of the equations.

#include "dae_detail.hpp"
#include "text_detail.hpp"

#include "qxexception.hpp"
#include "qxrun.hpp"

#include <algorithm>
#include <set>

namespace {

constexpr char inconsistent[] = "The DAE is structurally inconsistent.";
constexpr char overDetermined[] = "The DAE is locally over-determined with inconsistent right-hand sides.";

std::size_t at(int i)
{
    return static_cast<std::size_t>(i);
}

/// Collects texts for an error argument; after ten of them only that there are more.
class TextList
{
public:
    void add(const std::string& text)
    {
        if (count_ <= most)
            text_ += (count_ == 0 ? "" : "; ") + (count_ < most ? text : std::string("..."));
        ++count_;
    }
    void addTo(qxbase::ExceptionArgs& args, const std::string& key) const
    {
        if (count_ > 0)
            args.push_back({key, text_});
    }

private:
    static constexpr int most = 10;
    std::string text_;
    int count_ = 0;
};

} // namespace

const std::vector<qxdae::Row>& Dae::TextEquations::readRows()
{
    rows_.resize(dae_.eqs_.size());
    for (std::size_t i = 0; i < rows_.size(); ++i)
        dae_.getVarOccurrences(*dae_.eqs_[i].expr, rows_[i]);
    return rows_;
}

void Dae::TextEquations::getOccurrences(int eq, qxdae::Row& pairs)
{
    if (at(eq) < rows_.size())
        pairs = rows_[at(eq)];
    else
        dae_.getVarOccurrences(*dae_.eqs_[at(eq)].expr, pairs);
}

Dae::Eq Dae::TextEquations::differentiate(int eq)
{
    const auto tree = qxdae::simplified(*dae_.eqs_[at(eq)].expr, info_);
    tree->diff(dae_.timeName_, info_);
    return Eq(tree);
}

bool Dae::augmentPath(Matching& matching, int eq) const
{
    return qxdae::augmentPath(eqs_, matching, eq);
}

void Dae::clearOccurrences()
{
    qxdae::clearOccurrences(vars_, eqs_);
}

void Dae::extendMatching(Matching& matching)
{
    syncVars();
    qxdae::fillOccurrences(vars_, eqs_, TextEquations(*this).readRows());
    qxdae::augmentAll(eqs_, matching);
}

void Dae::raiseUnmatched(int line, const std::string& id, Matching& matching, qxbase::ExceptionArgs args) const
{
    TextList equations;
    for (int i = 0; i < static_cast<int>(eqs_.size()); ++i)
        if (!matching.isEqMatched(i))
            equations.add(getEq(i));
    equations.addTo(args, "Unmatched_equations");
    TextList variables;
    for (int i = 0; i < static_cast<int>(vars_.size()); ++i)
        if (vars_[at(i)].isUnknown() && vars_[at(i)].order == 0 && matching.getVarMatch(i) < 0)
            variables.add(getVarName(i));
    variables.addTo(args, "Unmatched_variables");
    throw qxbase::Exception("dae", line, id, args);
}

/// Raises unless there are as many equations as unknowns, and each equation can be matched to an unknown of its own
/// whatever the orders of the derivatives; an equation without unknowns and an unknown without equations make a pair.
/// Returns the number of these pairs. rows[i]: what occurs in equation i.
int Dae::checkRegular(const std::vector<std::vector<VarOrder>>& rows)
{
    const int nUnknowns = qxdae::countUnknowns(vars_);
    const int nEqs = static_cast<int>(eqs_.size());
    qxdae::fillOccurrences(vars_, eqs_, rows);
    if (nUnknowns == nEqs && qxdae::countMatched(eqs_) == nUnknowns)
        return 0;
    Matching matching(static_cast<int>(vars_.size()), nEqs);
    qxdae::augmentAll(eqs_, matching); // which ones are left over shows: in the order of the equations
    if (nUnknowns != nEqs)
        raiseUnmatched(__LINE__, inconsistent, matching,
                       {{"Variables", std::to_string(nUnknowns)}, {"Equations", std::to_string(nEqs)}});
    const auto nEmptyEqs = std::count_if(eqs_.begin(), eqs_.end(), [](const Eq& eq) { return eq.occurrences.empty(); });
    const auto nEmptyVars = std::count_if(vars_.begin(), vars_.end(), [](const Var& var) {
        return var.isUnknown() && var.order == 0 && var.occurrences.empty();
    });
    if (matching.size() + nEmptyEqs != nUnknowns || nEmptyEqs != nEmptyVars)
        raiseUnmatched(__LINE__, overDetermined, matching, overDeterminedPart(matching));
    return static_cast<int>(nEmptyEqs);
}

/// The equations and unknowns that a failed search from an unmatched equation has seen: one equation too many.
qxbase::ExceptionArgs Dae::overDeterminedPart(Matching& matching) const
{
    int start = -1; // an equation without unknowns says little: another one if there is any
    for (int i = static_cast<int>(eqs_.size()) - 1; i >= 0; --i)
        if (!matching.isEqMatched(i) && (start < 0 || !eqs_[at(i)].occurrences.empty() || eqs_[at(start)].occurrences.empty()))
            start = i;
    matching.removeAllMarks();
    augmentPath(matching, start);
    std::vector<int> eqs = matching.getMarkedEqs(), vars = matching.getMarkedVars();
    std::sort(eqs.begin(), eqs.end());
    std::sort(vars.begin(), vars.end());
    TextList equations, variables;
    for (const int eq : eqs)
        equations.add(getEq(eq));
    for (const int var : vars)
        variables.add(getVarName(var));
    qxbase::ExceptionArgs args;
    equations.addTo(args, "Overdetermined_equations");
    variables.addTo(args, "Overdetermined_variables");
    return args;
}

/// Derivatives that lose their role, the new unknowns for them, and the equations with these in their place. Until it is
/// stored, the Dae knows the new unknowns but has its old equations; the destructor takes them back then.
class Dae::DummyDerivatives
{
public:
    DummyDerivatives(Dae& dae, const std::vector<VarOrder>& chosen) : dae_(dae), nVars_(dae.vars_.size())
    {
        for (const VarOrder& pair : chosen)
            makeDummy(pair);
    }
    DummyDerivatives(const DummyDerivatives&) = delete;
    DummyDerivatives& operator=(const DummyDerivatives&) = delete;
    ~DummyDerivatives()
    {
        if (stored_)
            return;
        for (std::size_t i = nVars_; i < dae_.vars_.size(); ++i) {
            dae_.vars_[i].var->setType(ExprVar::TypeIndependent);
            dae_.varIndex_.erase(dae_.vars_[i].var.get());
        }
        dae_.vars_.erase(dae_.vars_.begin() + static_cast<std::ptrdiff_t>(nVars_), dae_.vars_.end());
    }

    /// pairs[i]: what occurs in equation i.
    void replaceAll(const std::vector<qxdae::Row>& pairs, const qxutil::RunInfo* info)
    {
        pairs_ = pairs;
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            if (info)
                info->throwIfCancelled("dae", __LINE__);
            trees_.push_back(dae_.eqs_[i].expr);
            if (!holdsReplaced(pairs[i]))
                continue;
            trees_[i] = replaced(*trees_[i]);
            dae_.getVarOccurrences(*trees_[i], pairs_[i]);
            // A derivative of a product or the like hides the derivatives of its variables: carry it out first.
            if (holdsReplaced(pairs_[i])) {
                trees_[i] = replaced(*qxdae::simplified(*dae_.eqs_[i].expr, info));
                dae_.getVarOccurrences(*trees_[i], pairs_[i]);
            }
        }
    }

    /// What occurs in each equation now.
    const std::vector<qxdae::Row>& getPairs() const { return pairs_; }

    void store()
    {
        for (std::size_t i = 0; i < trees_.size(); ++i)
            dae_.eqs_[i].expr.swap(trees_[i]);
        stored_ = true;
    }

private:
    void makeDummy(const VarOrder& pair)
    {
        const boost::shared_ptr<ExprVar> source = dae_.vars_[at(pair.first)].var;
        std::string name = source->getName() + "_dummy" + std::to_string(pair.second);
        boost::shared_ptr<ExprVar> dummy = dae_.store_->getVar(name);
        while (dae_.varIndex_.count(dummy.get()))
            dummy = dae_.store_->getVar(name += '_');
        made_.insert(pair);
        map_[{source, pair.second}] = dummy;
        dae_.vars_.push_back(Var(dummy, 0, Var::TypeUnknown, 0.0));
        dae_.syncVar(static_cast<int>(dae_.vars_.size()) - 1);
    }

    bool holdsReplaced(const std::vector<VarOrder>& pairs) const
    {
        return std::any_of(pairs.begin(), pairs.end(), [this](const VarOrder& pair) { return made_.count(pair) > 0; });
    }

    boost::shared_ptr<ExprTree> replaced(const ExprTree& tree) const
    {
        const auto result = boost::make_shared<ExprTree>(tree);
        result->replaceVars(map_, dae_.timeName_);
        return result;
    }

    Dae& dae_;
    const std::size_t nVars_;
    std::set<VarOrder> made_;
    ExprVarMap map_;
    std::vector<boost::shared_ptr<ExprTree>> trees_;
    std::vector<qxdae::Row> pairs_;
    bool stored_ = false;
};

void Dae::pantelides(qxutil::RunInfo* info)
{
    Snapshot before(*this);
    reduce(info);
    before.keep();
}

void Dae::reduceIndex(qxutil::RunInfo* info)
{
    Snapshot before(*this);
    reduce(info);
    orderByVariables();
    before.keep();
}

void Dae::reduce(qxutil::RunInfo* info)
{
    TextEquations text(*this, info);
    syncVars();
    const std::vector<qxdae::Row>& rows = text.readRows();
    const int nOriginal = static_cast<int>(eqs_.size());
    const auto isUnknown = [this](int var) { return vars_[at(var)].isUnknown(); };
    // Where every equation finds a highest derivative of its own, the system is regular and nothing is differentiated.
    const bool complete =
        qxdae::countUnknowns(vars_) == nOriginal && qxdae::countHighestMatched(rows, isUnknown) == nOriginal;
    const int nFreePairs = complete ? 0 : checkRegular(rows);
    qxdae::Pantelides structure(vars_, eqs_, text);
    const int endless = structure.run(info, complete);
    if (endless >= 0)
        QX_RAISE("dae", "Index_reduction_failed", "Equation", getEq(endless));

    if (!replaceDerivatives(qxdae::chooseHighestOrders(vars_, structure.getPairs(), nOriginal), structure.getPairs(),
                            nFreePairs, info)) {
        // Highest orders alone take a derivative that an equation needs, or leave a gap in the orders of a variable.
        std::vector<VarOrder> matched = structure.getMatchedDerivatives(nOriginal);
        for (auto& [var, order] : matched)
            var = findVar(*vars_[at(var)].var);
        if (!replaceDerivatives(matched, structure.getPairs(), nFreePairs, info))
            QX_RAISE("dae", "Index_reduction_failed", "New_equations", eqs_.size() - at(nOriginal));
    }
}

/// Puts new unknowns in the place of the chosen derivatives, unless that leaves the system singular in structure or with a
/// gap in the orders of a variable: false then, and nothing has changed. pairs[i]: what occurs in equation i.
bool Dae::replaceDerivatives(const std::vector<VarOrder>& chosen, const std::vector<qxdae::Row>& pairs,
                             int nFreePairs, qxutil::RunInfo* info)
{
    const auto isUnknown = [this](int var) { return vars_[at(var)].isUnknown(); };
    const std::size_t nNew = eqs_.size() - at(qxdae::countUnknowns(vars_));
    if (chosen.size() != nNew || !qxdae::areTopOrders(chosen, pairs, isUnknown))
        return false;
    DummyDerivatives dummies(*this, chosen);
    dummies.replaceAll(pairs, info);
    if (nNew > 0 && qxdae::countHighestMatched(dummies.getPairs(), isUnknown) + nFreePairs < static_cast<int>(eqs_.size()))
        return false;
    dummies.store();
    syncVars();
    qxdae::fillOccurrences(vars_, eqs_, dummies.getPairs());
    return true;
}

void Dae::orderByVariables()
{
    const int nEqs = static_cast<int>(eqs_.size());
    Matching matching(static_cast<int>(vars_.size()), nEqs);
    qxdae::augmentAll(eqs_, matching);
    if (matching.size() != nEqs)
        return;
    std::vector<Eq> ordered;
    std::vector<int> place(eqs_.size());
    for (int var = 0; var < matching.getVarCapacity(); ++var) {
        const int eq = matching.getVarMatch(var);
        if (eq < 0)
            continue;
        place[at(eq)] = static_cast<int>(ordered.size());
        ordered.push_back(eqs_[at(eq)]);
    }
    for (Eq& eq : ordered)
        if (eq.deriv >= 0)
            eq.deriv = place[at(eq.deriv)];
    eqs_.swap(ordered);
    clearOccurrences();
}

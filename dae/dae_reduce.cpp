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

void Dae::TextEquations::getOccurrences(int eq, std::vector<VarOrder>& pairs)
{
    dae_.getVarOccurrences(*dae_.eqs_[at(eq)].expr, pairs);
}

Dae::Eq Dae::TextEquations::differentiate(int eq)
{
    const auto tree = qxdae::simplified(*dae_.eqs_[at(eq)].expr);
    tree->diff(dae_.timeName_);
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
    TextEquations text(*this);
    qxdae::extendMatching(vars_, eqs_, text, matching);
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
void Dae::checkRegular()
{
    const int nUnknowns = qxdae::countUnknowns(vars_);
    const int nEqs = static_cast<int>(eqs_.size());
    Matching matching(static_cast<int>(vars_.size()), nEqs);
    extendMatching(matching);
    if (nUnknowns != nEqs)
        raiseUnmatched(__LINE__, inconsistent, matching,
                       {{"Variables", std::to_string(nUnknowns)}, {"Equations", std::to_string(nEqs)}});
    if (matching.size() == nUnknowns)
        return;
    const auto nEmptyEqs = std::count_if(eqs_.begin(), eqs_.end(), [](const Eq& eq) { return eq.occurrences.empty(); });
    const auto nEmptyVars = std::count_if(vars_.begin(), vars_.end(), [](const Var& var) {
        return var.isUnknown() && var.order == 0 && var.occurrences.empty();
    });
    if (matching.size() + nEmptyEqs != nUnknowns || nEmptyEqs != nEmptyVars)
        raiseUnmatched(__LINE__, overDetermined, matching);
}

/// Finds the derivatives that lose their role, makes new unknowns for them and puts these in their place.
class Dae::DummyDerivatives
{
public:
    DummyDerivatives(Dae& dae, const std::vector<std::vector<VarOrder>>& pairs) : dae_(dae), pairs_(pairs) {}

    /// As many as there are equations from nOriginal on; in passes, one at most for each of these equations in each
    /// pass: its highest derivative that is none yet. False if a pass makes none.
    bool make(int nOriginal)
    {
        struct Choice
        {
            std::vector<VarOrder> pairs; // highest derivatives first
            std::size_t next = 0;
        };
        std::vector<Choice> choices;
        const std::size_t wanted = pairs_.size() - at(nOriginal);
        for (std::size_t i = at(nOriginal); i < pairs_.size(); ++i)
            choices.push_back({highestFirst(pairs_[i])});
        while (made_.size() < wanted) {
            const std::size_t before = made_.size();
            for (std::size_t i = 0; i < choices.size() && made_.size() < wanted; ++i) {
                auto& [pairs, next] = choices[i];
                while (next < pairs.size() && made_.count(pairs[next]))
                    ++next;
                if (next < pairs.size())
                    makeDummy(pairs[next]);
            }
            if (made_.size() == before)
                return false;
        }
        return true;
    }

    void replaceIn(Eq& eq, const std::vector<VarOrder>& pairs) const
    {
        if (!holdsReplaced(pairs))
            return;
        auto tree = replaced(*eq.expr);
        std::vector<VarOrder> left;
        dae_.getVarOccurrences(*tree, left);
        // A derivative of a product or the like hides the derivatives of its variables: carry it out first.
        if (holdsReplaced(left))
            tree = replaced(*qxdae::simplified(*eq.expr));
        eq.expr = tree;
    }

private:
    std::vector<VarOrder> highestFirst(std::vector<VarOrder> pairs) const
    {
        const auto isOther = [this](const VarOrder& pair) {
            return pair.second == 0 || !dae_.vars_[at(pair.first)].isUnknown();
        };
        pairs.erase(std::remove_if(pairs.begin(), pairs.end(), isOther), pairs.end());
        std::stable_sort(pairs.begin(), pairs.end(),
                         [](const VarOrder& a, const VarOrder& b) { return a.second > b.second; });
        return pairs;
    }

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
    const std::vector<std::vector<VarOrder>>& pairs_;
    std::set<VarOrder> made_;
    ExprVarMap map_;
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
    checkRegular();
    const int nOriginal = static_cast<int>(eqs_.size());
    TextEquations text(*this);
    qxdae::Pantelides structure(vars_, eqs_, text);
    const int endless = structure.run(info);
    if (endless >= 0)
        QX_RAISE("dae", "Index_reduction_failed", "Equation", getEq(endless));

    DummyDerivatives dummies(*this, structure.getPairs());
    if (!dummies.make(nOriginal))
        QX_RAISE("dae", "Index_reduction_failed", "New_equations", eqs_.size() - at(nOriginal));
    for (std::size_t i = 0; i < eqs_.size(); ++i) {
        if (info)
            info->throwIfCancelled("dae", __LINE__);
        dummies.replaceIn(eqs_[i], structure.getPairs()[i]);
    }

    syncVars();
    qxdae::fillOccurrences(vars_, eqs_, text);
}

void Dae::orderByVariables()
{
    const int nEqs = static_cast<int>(eqs_.size());
    Matching matching(static_cast<int>(vars_.size()), nEqs);
    extendMatching(matching);
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

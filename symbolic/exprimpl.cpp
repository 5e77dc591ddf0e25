// The expression object: ownership of root and rules, and the sequence of passes.

#include "exprimpl.hpp"

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <cassert>
#include <ostream>

using namespace qxsymbolic;

ExprImpl::ExprImpl() : ExprImpl(boost::make_shared<ExprVarStore>(), NodePtr()) {}

ExprImpl::ExprImpl(const StorePtr& store, const NodePtr& root) : store_(store), root_(root)
{
    adoptRules(boost::make_shared<FuncRules>(store));
    if (!root_)
        root_ = make<Constant>(rules_, Number());
}

ExprImpl::ExprImpl(const StorePtr& store, const RulePairs& rules) : ExprImpl(store, NodePtr())
{
    for (const auto& [function, derivative] : rules)
        rules_->addDiffRule(function, derivative);
}

ExprImpl::ExprImpl(const ExprImpl& other) : ExprImpl(other.store_, other.root_) {}

ExprImpl& ExprImpl::operator=(const ExprImpl& other)
{
    if (this == &other)
        return *this;
    const NodePtr old = root_;
    dropRules();
    adoptRules(other.rules_);
    store_ = other.store_;
    root_ = other.root_;
    return *this;
}

ExprImpl::~ExprImpl()
{
    root_.reset();
    dropRules();
}

/// Counts the expressions on a FuncRules: the last one to go empties its caches.
void ExprImpl::adoptRules(const RulesPtr& rules)
{
    rules_ = rules;
    ++rules_->owners_;
}

void ExprImpl::dropRules() noexcept
{
    rules_->gc();
    if (--rules_->owners_ == 0)
        rules_->clear();
    rules_.reset();
}

void ExprImpl::write(std::ostream& stream) const { root_->write(stream); }
std::string ExprImpl::toString() const { return root_->toString(); }

std::ostream& operator<<(std::ostream& stream, const ExprImpl& expr)
{
    expr.write(stream);
    return stream;
}

void ExprImpl::makeBinary() { root_->makeBinary(root_); }

void ExprImpl::simp(bool evalFuncs)
{
    NodeHashTable table;
    const Temporarily simplification(current().simplification, nextMark());
    for ([[maybe_unused]] int round = 0;; ++round) {
        assert(round < 10000);
        root_->mergeOperators(root_);
        root_->foldConstants(root_);
        root_->makeCanonic(root_, table);
        rules_->gc();
        assert(isCanonicalTree(root_));
        if (!root_->simplify(root_, evalFuncs))
            return;
    }
}

void ExprImpl::simp(const std::vector<std::string>& names, const std::vector<std::string>& exprs)
{
    if (names.size() != exprs.size())
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    std::vector<VarPtr> vars;
    Nodes defs;
    InfixParser parser(store_, rules_);
    for (std::size_t i = 0; i < names.size(); ++i) {
        vars.push_back(store_->getVar(names[i]));
        defs.push_back(parser.parse(exprs[i]));
    }
    std::vector<int> status(names.size(), 0);
    simp(false);
    if (Node::simplify(root_, vars, defs, status))
        simp(false);
}

void ExprImpl::diff(const VarPtr& var)
{
    NodePtr derivative = make<Derivative>(rules_, root_, var);
    derivative->simplify(derivative, false);
    root_ = derivative;
    simp(false);
}

bool ExprImpl::solveFor(const VarPtr& var, ExprImpl& result) const { return root_->solveFor(var, result); }

void ExprImpl::rename(const NameMap& vars, const NameMap& functions) { root_->rename(vars, functions, store_); }

void ExprImpl::replaceVars(const ExprVarMap& map, const std::string& timeName)
{
    root_ = root_->replaceVars(root_, map, timeName);
}

void ExprImpl::getVarOccurrences(ExprVarOccurrences& set) const { root_->getVarOccurrences(set, 0); }

// SPDX-License-Identifier: LicenseRef-qxkernel
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

// What rewrites works on a copy and swaps last: other expressions share the nodes, and a failure leaves the root as it was.

void ExprImpl::makeBinary()
{
    NodePtr work = root_->getCopy(root_);
    work->makeBinary(work);
    root_.swap(work);
}

/// The passes, over nodes that no other expression holds.
void ExprImpl::canonicalise(NodePtr& work, bool evalFuncs) const
{
    NodeHashTable table;
    const Temporarily simplification(current().simplification, nextMark());
    for ([[maybe_unused]] int round = 0;; ++round) {
        assert(round < 10000);
        work->mergeOperators(work);
        work->foldConstants(work);
        work->makeCanonic(work, table);
        rules_->gc();
        assert(isCanonicalTree(work));
        if (!work->simplify(work, evalFuncs))
            return;
    }
}

void ExprImpl::simp(bool evalFuncs, const qxutil::RunInfo* info)
{
    const Cancellable run(info);
    NodePtr work = root_->getCopy(root_);
    canonicalise(work, evalFuncs);
    root_.swap(work);
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
    NodePtr work = root_->getCopy(root_);
    canonicalise(work, false);
    if (Node::simplify(work, vars, defs, status))
        canonicalise(work, false);
    root_.swap(work);
}

void ExprImpl::diff(const VarPtr& var, const qxutil::RunInfo* info)
{
    const Cancellable run(info);
    NodePtr work = make<Derivative>(rules_, root_->getCopy(root_), var);
    work->simplify(work, false);
    canonicalise(work, false);
    root_.swap(work);
}

bool ExprImpl::solveFor(const VarPtr& var, ExprImpl& result) const { return root_->solveFor(var, result); }

void ExprImpl::rename(const NameMap& vars, const NameMap& functions)
{
    NodePtr work = rebuildPostOrder(
        root_, [](const NodePtr&, NodePtr&) { return false; },
        [](const NodePtr& node, Nodes&& children) {
            return node->type == Node::TypeIdentifier ? make<Identifier>(node->rules, node->as<Identifier>().var)
                                                      : node->rebuild(node, std::move(children));
        });
    work->rename(vars, functions, store_);
    root_.swap(work);
}

void ExprImpl::replaceVars(const ExprVarMap& map, const std::string& timeName)
{
    root_ = root_->replaceVars(root_, map, timeName);
}

void ExprImpl::getVarOccurrences(ExprVarOccurrences& set) const
{
    ExprVarOccurrences found;
    root_->getVarOccurrences(found, 0);
    set.merge(found);
}

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

namespace {

/// Whether a node that has been found stable is still what it was, its children being the same.
bool isStable(Node& node, bool evalFuncs)
{
    return node.lasting >= (evalFuncs ? 2 : 1) && node.getHashCode() == node.code;
}

} // namespace

/// Nodes to rewrite in the place of an expression's own: stable ones stand for themselves and are settled, all others are
/// copied.
ExprImpl::NodePtr ExprImpl::adopt(const NodePtr& root, bool evalFuncs)
{
    const std::uint64_t mark = nextMark();
    const Temporarily sharing(current().sharing, mark);
    const std::uint64_t simplification = current().simplification;
    return rebuildPostOrder(
        root, [](const NodePtr&, NodePtr&) { return false; },
        [&](const NodePtr& node, std::span<NodePtr> children) -> NodePtr {
            if (!areChildrenOf(*node, children) || !isStable(*node, evalFuncs))
                return node->rebuild(node, children);
            node->codeMark = mark;
            if (!isBareFactor(*node))
                node->settled = simplification;
            return node;
        });
}

/// Takes prepare(nodes of the root) through the passes. The nodes are the root's own where these are stable, unless it
/// shows that one of those would have to change, because another node that equals it comes first in the new expression:
/// then copies of all.
template <class Prepare>
ExprImpl::NodePtr ExprImpl::canonical(const NodePtr& root, bool evalFuncs, Prepare&& prepare) const
{
    for (const bool copied : {false, true}) {
        const Temporarily simplification(current().simplification, nextMark());
        NodePtr work = prepare(copied ? root->getCopy(root) : adopt(root, evalFuncs));
        NodeHashTable table;
        for (int round = 0;; ++round) {
            assert(round < 10000);
            work->mergeOperators(work);
            work->foldConstants(work);
            if (!shareEqual(work, table, round == 0))
                break;
            rules_->gc();
            assert(isCanonicalTree(work));
            if (!work->simplify(work, evalFuncs))
                return work;
        }
    }
    QX_RAISE("exprimpl", "Internal_error_symbolic_processing"); // copies are never in the way
}

void ExprImpl::simp(bool evalFuncs, const qxutil::RunInfo* info)
{
    const Cancellable run(info);
    NodePtr work = canonical(root_, evalFuncs, [](NodePtr&& nodes) { return std::move(nodes); });
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
    const auto simplified = [this](const NodePtr& root) {
        return canonical(root, false, [](NodePtr&& nodes) { return std::move(nodes); });
    };
    NodePtr work = simplified(root_);
    work = work->getCopy(work); // the definitions go into its slots
    if (Node::simplify(work, vars, defs, status))
        work = simplified(work);
    root_.swap(work);
}

void ExprImpl::diff(const VarPtr& var, const qxutil::RunInfo* info)
{
    const Cancellable run(info);
    NodePtr work = canonical(root_, false, [&](NodePtr&& nodes) {
        const std::uint64_t now = current().simplification;
        // Ahead of the passes nothing is settled; what is settled already stays.
        const Temporarily none(current().simplification, nodes->settled == now ? now : std::uint64_t(0));
        NodePtr derivative = make<Derivative>(rules_, nodes, var);
        derivative->simplify(derivative, false);
        return derivative;
    });
    root_.swap(work);
}

bool ExprImpl::solveFor(const VarPtr& var, ExprImpl& result) const { return root_->solveFor(var, result); }

void ExprImpl::rename(const NameMap& vars, const NameMap& functions)
{
    NodePtr work = rebuildPostOrder(
        root_, [](const NodePtr&, NodePtr&) { return false; },
        [](const NodePtr& node, std::span<NodePtr> children) {
            return node->type == Node::TypeIdentifier ? make<Identifier>(node->rules, node->as<Identifier>().var)
                                                      : node->rebuild(node, children);
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

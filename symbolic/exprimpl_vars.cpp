// SPDX-License-Identifier: LicenseRef-qxkernel
// Variables in trees: renaming, replacing, reporting, and the evaluation of combinations of index tables.

#include "exprimpl_detail.hpp"
#include "array.hpp"
#include "base/nearestname_detail.hpp"
#include "qxexception.hpp"

#include <set>

using namespace qxsymbolic;

// Each node is renamed once, however many slots hold it: otherwise a second visit would rename the new name.
void ExprImpl::Node::rename(const NameMap& vars, const NameMap& functions, const StorePtr& store)
{
    const NodePtr self(NodePtr(), this);
    visitNodes(self, [&](Node& node) { node.renameStep(vars, functions, store); });
}

void ExprImpl::Node::renameStep(const NameMap&, const NameMap&, const StorePtr&) {}

void ExprImpl::Identifier::renameStep(const NameMap& vars, const NameMap&, const StorePtr& store)
{
    const auto found = vars.find(var->getName());
    if (found != vars.end())
        var = store->getVar(found->second);
}

void ExprImpl::FuncCall::renameStep(const NameMap&, const NameMap& functions, const StorePtr&)
{
    const auto found = functions.find(name);
    if (found != functions.end())
        name = found->second;
}

namespace {

/// The variable and the order that a Derivative in time stands for; null if it stands for another thing.
const ExprImpl::VarPtr* timeDerivative(const Node& node, const std::string& timeName, int& order)
{
    const Node* inner = &node;
    for (order = 0; inner->type == Node::TypeDerivative; ++order) {
        const auto& derivative = inner->as<ExprImpl::Derivative>();
        if (derivative.var->getName() != timeName)
            return nullptr;
        inner = derivative.child.get();
    }
    return inner->type == Node::TypeIdentifier ? &inner->as<ExprImpl::Identifier>().var : nullptr;
}

} // namespace

ExprImpl::NodePtr ExprImpl::Node::replaceVars(const NodePtr& slot, const ExprVarMap& map, const std::string& timeName)
{
    const auto mapped = [&](const NodePtr& node, NodePtr& out) {
        if (node->type != TypeIdentifier && node->type != TypeDerivative)
            return false;
        int order = 0;
        if (const VarPtr* var = timeDerivative(*node, timeName, order)) {
            const auto found = map.find({*var, order});
            if (found != map.end()) {
                out = make<Identifier>(node->rules, found->second);
                return true;
            }
        }
        out = node;
        return true;
    };
    return rebuildPostOrder(slot, mapped, [](const NodePtr& node, std::span<NodePtr> children) {
        return node->rebuild(node, children);
    });
}

void ExprImpl::Node::getVarOccurrences(ExprVarOccurrences& set, int order) const
{
    // A shared node is looked at once for each order in which it occurs.
    using Visit = std::pair<const Node*, int>;
    std::vector<Visit> open{{this, order}};
    std::set<Visit> seen;
    while (!open.empty()) {
        const auto [node, k] = open.back();
        open.pop_back();
        if (node->type == TypeIdentifier) {
            const VarPtr& var = node->as<Identifier>().var;
            if (var->getType() >= ExprVar::TypeDifferentiated)
                set.insert({var, k});
            continue;
        }
        const int next = node->type == TypeDerivative ? k + 1 : k;
        for (int i = node->getChildCount() - 1; i >= 0; --i) {
            const NodePtr& child = node->childAt(i);
            if (child.use_count() > 1 && child->getChildCount() > 0 && !seen.insert({child.get(), next}).second)
                continue;
            open.push_back({child.get(), next});
        }
    }
}

// Index tables.

namespace {

using Table = Array<int, 2>;

void combine(Node::Type type, Table& a, const Table& b)
{
    if (a.extent(0) != b.extent(0) || a.extent(1) != b.extent(1))
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    int* x = a.data();
    const int* y = b.data();
    for (std::size_t i = 0, n = a.size(); i < n; ++i) {
        const bool l = x[i] != 0, r = y[i] != 0;
        x[i] = type == Node::TypeAdd ? l || r : type == Node::TypeMul ? l && r : l && !r;
    }
}

[[noreturn]] void raiseUnimplemented(const Node& node)
{
    QX_RAISE("exprimpl", "Unimplemented_operator", "Name", node.getTypeName());
}

} // namespace

void ExprImpl::Node::boolEval(const std::vector<std::string>& names, const std::vector<Table>& values,
                              std::vector<Table>& work, int slot)
{
    // Each node leaves its table in its slot; the right operand of a node in slot s is evaluated in slot s+1.
    struct Step
    {
        const Node* node;
        bool operandsDone;
        int slot;
    };
    std::vector<Step> steps{{this, false, slot}};
    while (!steps.empty()) {
        const Step step = steps.back();
        steps.pop_back();
        const auto s = static_cast<std::size_t>(step.slot);
        if (work.size() < s + 1)
            work.resize(s + 1);
        const Node& node = *step.node;
        if (node.type == TypeIdentifier) {
            const std::string& name = node.as<Identifier>().var->getName();
            std::size_t i = 0;
            while (i < names.size() && names[i] != name)
                ++i;
            if (i == names.size())
                QX_RAISE("exprimpl", "Unknown_variable_name", qxbase::unknownName(name, names));
            work[s] = values[i];
            continue;
        }
        if (node.type != TypeAdd && node.type != TypeSub && node.type != TypeMul)
            raiseUnimplemented(node);
        if (step.operandsDone) {
            combine(node.type, work[s], work[s + 1]);
            continue;
        }
        const auto& binary = node.as<Binary>();
        steps.push_back({&node, true, step.slot});
        steps.push_back({binary.right.get(), false, step.slot + 1});
        steps.push_back({binary.left.get(), false, step.slot});
    }
}

void ExprImpl::boolEval(const std::vector<std::string>& names, const std::vector<Table>& values, Table& result)
{
    NodePtr binary = root_->getCopy(root_);
    binary->makeBinary(binary);
    std::vector<Table> work;
    binary->boolEval(names, values, work, 0);
    root_.swap(binary);
    result = std::move(work[0]);
}

#pragma once

#include "exprimpl.hpp"

#include <boost/make_shared.hpp>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// What the parts of the symbolic engine share and hosts do not see.
namespace qxsymbolic {

using Node = ExprImpl::Node;
using NodePtr = ExprImpl::NodePtr;
using Nodes = ExprImpl::Nodes;
using Number = ExprImpl::Number;
using RulesPtr = ExprImpl::RulesPtr;

/// One allocation per node.
template <class T, class... Args>
NodePtr make(const RulesPtr& rules, Args&&... args)
{
    return boost::make_shared<T>(rules, std::forward<Args>(args)...);
}

inline NodePtr makeUnary(const RulesPtr& rules, Node::Type type, const NodePtr& child)
{
    return make<ExprImpl::Unary>(rules, type, child);
}
inline NodePtr makeBinary(const RulesPtr& rules, Node::Type type, const NodePtr& left, const NodePtr& right)
{
    return make<ExprImpl::Binary>(rules, type, left, right);
}

/// FNV-1a over the bytes as signed chars, folded at the end.
std::uint32_t hashText(std::string_view text);

/// Sign and binding strength of the operators; null for other types.
struct Operator
{
    Node::Type type;
    const char* sign;
    int prec;
    bool unary;
};
const Operator* findOperator(Node::Type type);

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }
inline bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool isWordChar(char c) { return isLetter(c) || isDigit(c) || c == '_'; }
inline bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Number of a new walk, never used before by any thread.
std::uint64_t nextMark();

/// Each Term and Sum keeps its invariant. Cost: linear in the distinct nodes; for assertions.
bool isCanonicalTree(const NodePtr& root);

/// Bookkeeping of one rewriting walk over a graph of shared nodes: a node is visited once, and where it was replaced all
/// other slots that hold it get the replacement.
class Rewriting
{
public:
    /// True if the node in the slot is to be visited now. Otherwise the slot holds what the node has become.
    bool enter(NodePtr& slot)
    {
        if (slot->mark != mark_) {
            slot->mark = mark_;
            return true;
        }
        if (!replaced_.empty()) {
            const auto found = replaced_.find(slot.get());
            if (found != replaced_.end())
                slot = found->second.second;
        }
        return false;
    }

    /// Runs step(slot) and remembers a replacement if other slots may hold the node.
    template <class Step>
    void apply(NodePtr& slot, Step&& step)
    {
        if (slot.use_count() == 1) {
            step(slot);
            return;
        }
        const NodePtr before = slot;
        step(slot);
        if (slot != before)
            replaced_.emplace(before.get(), std::make_pair(before, slot));
    }

private:
    std::uint64_t mark_ = nextMark();
    std::unordered_map<const Node*, std::pair<NodePtr, NodePtr>> replaced_;
};

/// Visits the slots below and including root, children first, each distinct node once.
template <class Step>
void rewritePostOrder(NodePtr& root, Step&& step)
{
    struct Frame
    {
        NodePtr* slot;
        int next;
        int count;
    };
    Rewriting walk;
    std::vector<Frame> stack;
    walk.enter(root);
    stack.push_back({&root, 0, root->getChildCount()});
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next < top.count) {
            NodePtr& child = (*top.slot)->getChild(top.next++);
            if (walk.enter(child))
                stack.push_back({&child, 0, child->getChildCount()});
            continue;
        }
        NodePtr& slot = *top.slot;
        stack.pop_back();
        walk.apply(slot, step);
    }
}

/// Calls visit(node) for each distinct node, parents first.
template <class Visit>
void visitNodes(const NodePtr& root, Visit&& visit)
{
    const std::uint64_t mark = nextMark();
    std::vector<Node*> stack{root.get()};
    root->mark = mark;
    while (!stack.empty()) {
        Node& node = *stack.back();
        stack.pop_back();
        for (int i = node.getChildCount() - 1; i >= 0; --i) {
            Node* child = node.getChild(i).get();
            if (child->mark != mark) {
                child->mark = mark;
                stack.push_back(child);
            }
        }
        visit(node);
    }
}

/// Builds a new graph from an old one, children first, each distinct node once: make(slot, newChildren) gives the new
/// node of an interior node or leaf. shortcut(slot, out) may answer for a whole subtree.
template <class Shortcut, class Make>
NodePtr rebuildPostOrder(const NodePtr& root, Shortcut&& shortcut, Make&& make)
{
    struct Frame
    {
        const NodePtr* slot;
        int next;
        int count;
        std::size_t base;
    };
    std::unordered_map<const Node*, NodePtr> shared;
    Nodes results;
    std::vector<Frame> stack;

    const auto open = [&](const NodePtr& slot) {
        if (slot.use_count() > 1) {
            const auto found = shared.find(slot.get());
            if (found != shared.end()) {
                results.push_back(found->second);
                return;
            }
        }
        NodePtr answer;
        if (shortcut(slot, answer))
            results.push_back(answer);
        else
            stack.push_back({&slot, 0, slot->getChildCount(), results.size()});
    };

    open(root);
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next < top.count) {
            open((*top.slot)->getChild(top.next++));
            continue;
        }
        const Frame done = top;
        stack.pop_back();
        const auto first = results.begin() + static_cast<std::ptrdiff_t>(done.base);
        Nodes children(std::make_move_iterator(first), std::make_move_iterator(results.end()));
        results.erase(first, results.end());
        NodePtr made = make(*done.slot, std::move(children));
        if (done.slot->use_count() > 1)
            shared.emplace(done.slot->get(), made);
        results.push_back(std::move(made));
    }
    return results.back();
}

} // namespace qxsymbolic

/// Parts of a node's text, in order; nodes among them are printed in turn by the driver of Node::write.
class ExprImpl::Printer
{
public:
    /// The text must outlive the print: a literal or a member of the node.
    void text(std::string_view piece) { parts_.push_back({nullptr, piece, 0.0, 0}); }
    /// "%.16g".
    void number(double value) { parts_.push_back({nullptr, {}, value, 0}); }
    void node(const NodePtr& child, int outer) { parts_.push_back({child.get(), {}, 0.0, outer}); }
    void constant(const Number& value);

    /// Prints node to text.
    static void print(const Node& node, int outer, bool parentheses, std::string& text);

private:
    struct Part
    {
        const Node* node;
        std::string_view piece;
        double value;
        int outer;
    };
    std::vector<Part> parts_;
    /// Texts made during the print: a deque, since parts point into it.
    std::deque<std::string> owned_;
};

/// One differentiation: the derivative of each distinct node is made once.
class ExprImpl::DiffPass
{
public:
    explicit DiffPass(const VarPtr& by) : var(by) {}

    /// The derivative of a node that diffOperands named.
    const NodePtr& of(const NodePtr& node) const { return derivatives_.find(node.get())->second; }

    NodePtr run(const NodePtr& root);

    const VarPtr var;

private:
    std::unordered_map<const Node*, NodePtr> derivatives_;
};

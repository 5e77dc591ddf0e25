// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprimpl.hpp"
#include "qxrun.hpp"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <boost/make_shared.hpp>
#include <charconv>
#include <cstdint>
#include <deque>
#include <span>
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

/// "Syntax_error_in_expression" with "Expression", the text, and "Position", "Line", "Expected", "Excerpt".
[[noreturn]] void raiseSyntaxError(const std::string& text, const InfixError& error);

/// FNV-1a over the bytes as signed chars, folded at the end.
std::uint32_t hashText(std::string_view text);

/// "%.16g", with 17 digits where 16 would read back as infinity; NaN and Inf (whatever the sign) by name.
void appendNumber(std::string& text, double value);

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

/// A list for the length of a call: short ones stand on the machine stack.
template <class T, std::size_t N>
using WorkList = boost::container::small_vector<T, N>;

/// Number of a new walk, never used before by any thread; the number after it is the walk's too.
std::uint64_t nextMark();

/// What this thread is doing; 0: nothing of the kind.
struct Current
{
    std::uint64_t simplification = 0; ///< nodes settled in it are passed by
    std::uint64_t sharing = 0;        ///< hash codes made in this walk are right
    const qxutil::RunInfo* run = nullptr; ///< whom to ask whether to go on
    std::size_t worked = 0;               ///< since it was asked last
};
Current& current();

/// A value that comes back at the end of the scope.
template <class T>
class Temporarily
{
public:
    Temporarily(T& variable, T value) : variable_(variable), before_(variable) { variable = value; }
    ~Temporarily() { variable_ = before_; }
    Temporarily(const Temporarily&) = delete;
    Temporarily& operator=(const Temporarily&) = delete;

private:
    T& variable_;
    T before_;
};

/// A run that may be cancelled, for the length of the scope; null: it may not.
class Cancellable
{
public:
    explicit Cancellable(const qxutil::RunInfo* info) : run_(current().run, info)
    {
        if (info)
            info->throwIfCancelled("exprimpl", __LINE__);
    }

private:
    Temporarily<const qxutil::RunInfo*> run_;
};

/// Counts n more nodes or factors that were looked at, and asks now and then whether the run is cancelled.
inline void work(Current& now, std::size_t n)
{
    if (now.run && (now.worked += n) >= 20000) {
        now.worked = 0;
        now.run->throwIfCancelled("exprimpl", __LINE__);
    }
}

/// node.getHashCode(), from the node itself if it is known there.
inline std::uint32_t hashOf(Node& node, const Current& now)
{
    const bool known = (now.sharing != 0 && node.codeMark == now.sharing) ||
                       (now.simplification != 0 && node.settled == now.simplification);
    return known ? node.code : node.getHashCode();
}

/// Numbers by node: a table with open addressing, quicker than the standard one by the allocation for each entry.
class NodeIndex
{
public:
    static constexpr std::uint32_t none = ~std::uint32_t(0);

    std::uint32_t find(const Node* node) const
    {
        if (size_ == 0)
            return none;
        const Entry& entry = entries_[place(node)];
        return entry.node ? entry.index : none;
    }
    /// The node is not in the table yet.
    void add(const Node* node, std::uint32_t index)
    {
        if (2 * size_ >= entries_.size())
            grow();
        entries_[place(node)] = {node, index};
        ++size_;
    }

private:
    struct Entry
    {
        const Node* node = nullptr;
        std::uint32_t index = 0;
    };

    std::size_t place(const Node* node) const
    {
        const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(node));
        std::size_t i = static_cast<std::size_t>((address * 0x9e3779b97f4a7c15u) >> shift_);
        while (entries_[i].node && entries_[i].node != node)
            i = (i + 1) & (entries_.size() - 1);
        return i;
    }
    void grow()
    {
        WorkList<Entry, 16> old(entries_.empty() ? 16 : 2 * entries_.size());
        old.swap(entries_);
        shift_ = old.empty() ? 60 : shift_ - 1;
        for (const Entry& entry : old)
            if (entry.node)
                entries_[place(entry.node)] = entry;
    }

    WorkList<Entry, 16> entries_; // the size is a power of two, at most half of it in use
    std::size_t size_ = 0;
    int shift_ = 64;
};

/// Makes equal nodes one object: that which the walk comes to first. false: a settled node would have had to give way to
/// another, which may be in the way of nodes that are settled too. first: settled nodes are not known to the table yet.
bool shareEqual(NodePtr& root, ExprImpl::NodeHashTable& table, bool first);

/// Node::equalsWithoutOrder.
bool sameInAnyOrder(std::span<const NodePtr> a, std::span<const NodePtr> b);

/// Each Term and Sum keeps its invariant. Cost: linear in the distinct nodes; for assertions.
bool isCanonicalTree(const NodePtr& root);

/// Bookkeeping of one rewriting walk over a graph of shared nodes: a node is visited once, and where it was replaced all
/// other slots that hold it get the replacement. Settled nodes are passed by.
class Rewriting
{
public:
    enum Entry { Visit, Known, Replaced };

    /// Visit: the node in the slot is to be visited now. Otherwise the slot holds what the node has become: as it was
    /// with all below it if Known, not so if Replaced.
    Entry enter(NodePtr& slot)
    {
        Node& node = *slot;
        if (node.mark != mark_ && node.mark != mark_ + 1) {
            if (settled_ != 0 && node.settled == settled_)
                return Known;
            node.mark = mark_;
            return Visit;
        }
        if (!replaced_.empty()) {
            const auto found = replaced_.find(&node);
            if (found != replaced_.end()) {
                slot = found->second.second;
                return Replaced;
            }
        }
        return node.mark == mark_ ? Known : Replaced;
    }

    /// Remembers that something at or below a visited node has changed.
    void noteChange(Node& node) const { node.mark = mark_ + 1; }

    /// Runs step(slot) and remembers a replacement if other slots may hold the node. True if it was replaced.
    template <class Step>
    bool apply(NodePtr& slot, Step&& step)
    {
        if (slot.use_count() == 1) {
            const Node* const before = slot.get(); // a step makes the new node before it drops the old one
            step(slot);
            return slot.get() != before;
        }
        const NodePtr before = slot;
        step(slot);
        if (slot == before)
            return false;
        replaced_.emplace(before.get(), std::make_pair(before, slot));
        return true;
    }

    std::uint64_t mark() const { return mark_; }

    /// A walk that passes by what is settled, or one that does not.
    explicit Rewriting(bool passBy = true) : settled_(passBy ? current().simplification : 0) {}

private:
    std::uint64_t mark_ = nextMark();
    std::uint64_t settled_;
    std::unordered_map<const Node*, std::pair<NodePtr, NodePtr>> replaced_;
};

/// Visits the slots below and including root, children first, each distinct node once: step(slot, kept) with kept false if
/// anything below has changed; it says whether it has changed the node. The walk must be new.
template <class Step>
void rewritePostOrder(Rewriting& walk, NodePtr& root, Step&& step)
{
    struct Frame
    {
        NodePtr* slot;
        int next;
        int count;
        bool kept;
    };
    WorkList<Frame, 32> stack;
    Current& now = current();
    if (walk.enter(root) != Rewriting::Visit)
        return;
    stack.push_back({&root, 0, root->getChildCount(), true});
    while (!stack.empty()) {
        work(now, 1);
        Frame& top = stack.back();
        if (top.next < top.count) {
            NodePtr& child = (*top.slot)->getChild(top.next++);
            switch (walk.enter(child)) {
            case Rewriting::Visit: stack.push_back({&child, 0, child->getChildCount(), true}); break;
            case Rewriting::Replaced: top.kept = false; break;
            case Rewriting::Known: break;
            }
            continue;
        }
        NodePtr& slot = *top.slot;
        bool kept = top.kept;
        stack.pop_back();
        const bool replaced = walk.apply(slot, [&](NodePtr& s) { kept = !step(s, kept) && kept; });
        if (replaced || !kept) {
            if (!replaced)
                walk.noteChange(*slot);
            if (!stack.empty())
                stack.back().kept = false;
        }
    }
}

template <class Step>
void rewritePostOrder(NodePtr& root, Step&& step)
{
    Rewriting walk;
    rewritePostOrder(walk, root, [&](NodePtr& slot, bool) {
        step(slot);
        return false;
    });
}

/// Calls visit(node) for each distinct node, parents first.
template <class Visit>
void visitNodes(const NodePtr& root, Visit&& visit)
{
    const std::uint64_t mark = nextMark();
    WorkList<Node*, 32> stack(1, root.get());
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

/// Builds a new graph from an old one, children first, each distinct node once: make(slot, newChildren), which may move
/// from these, gives the new node of an interior node or leaf. shortcut(slot, out) may answer for a whole subtree.
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
    NodeIndex places; // of shared nodes in rebuilt
    WorkList<NodePtr, 16> rebuilt;
    WorkList<NodePtr, 32> results;
    WorkList<Frame, 32> stack;
    Current& now = current();

    const auto open = [&](const NodePtr& slot) {
        if (slot.use_count() > 1) {
            const std::uint32_t found = places.find(slot.get());
            if (found != NodeIndex::none) {
                results.push_back(rebuilt[found]);
                return;
            }
        }
        NodePtr answer;
        if (shortcut(slot, answer))
            results.push_back(std::move(answer));
        else
            stack.push_back({&slot, 0, slot->getChildCount(), results.size()});
    };

    open(root);
    while (!stack.empty()) {
        work(now, 1);
        Frame& top = stack.back();
        if (top.next < top.count) {
            open((*top.slot)->getChild(top.next++));
            continue;
        }
        const Frame done = top;
        stack.pop_back();
        NodePtr made = make(*done.slot, std::span<NodePtr>(results.data() + done.base, results.size() - done.base));
        results.resize(done.base);
        if (done.slot->use_count() > 1 && places.find(done.slot->get()) == NodeIndex::none) {
            places.add(done.slot->get(), static_cast<std::uint32_t>(rebuilt.size()));
            rebuilt.push_back(made);
        }
        results.push_back(std::move(made));
    }
    return std::move(results.back());
}

/// Whether these are the children of a node, by pointer.
inline bool areChildrenOf(const Node& node, std::span<const NodePtr> children)
{
    for (std::size_t i = 0; i < children.size(); ++i)
        if (children[i] != node.childAt(static_cast<int>(i)))
            return false;
    return true;
}

/// Nothing or one factor in the wrapping of a Term: folding puts the number or the factor itself in its place, and a Sum
/// wraps that again.
inline bool isBareFactor(const Node& node)
{
    if (node.type != Node::TypeTerm)
        return false;
    const auto& term = node.as<ExprImpl::Term>();
    const std::size_t n = term.num.size() + term.den.size();
    return n == 0 || (n == 1 && term.den.empty() && term.coeff == 1.0);
}

} // namespace qxsymbolic

/// Parts of a node's text, in order; nodes among them are printed in turn by the driver of Node::write.
class ExprImpl::Printer
{
public:
    /// The text must outlive the print: a literal or a member of the node.
    void text(std::string_view piece) { parts_.push_back({nullptr, piece, 0.0, 0}); }
    /// See appendNumber.
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
    const NodePtr& of(const NodePtr& node) const { return derivatives_[places_.find(node.get())]; }

    NodePtr run(const NodePtr& root);

    const VarPtr var;

private:
    qxsymbolic::NodeIndex places_; ///< in derivatives_
    qxsymbolic::WorkList<NodePtr, 16> derivatives_;
};

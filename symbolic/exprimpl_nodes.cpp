// SPDX-License-Identifier: LicenseRef-qxkernel
// The node classes: construction, release, children, hashing, comparison, copying, sharing.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>
#include <new>
#include <ostream>
#include <set>

using namespace qxsymbolic;

namespace {

constexpr int precAtom = 1000;

constexpr Operator operators[] = {
    {Node::TypeUnaryPlus, "+", 70, true},   {Node::TypeUnaryMinus, "-", 70, true}, {Node::TypeUnaryNot, "!", 70, true},
    {Node::TypeAdd, "+", 80, false},        {Node::TypeSub, "-", 80, false},       {Node::TypeSquareSum, "+", 80, false},
    {Node::TypeMul, "*", 90, false},        {Node::TypeDiv, "/", 90, false},       {Node::TypePow, "^", 110, false},
    {Node::TypeLess, "<", 60, false},       {Node::TypeGreater, ">", 60, false},   {Node::TypeLessEq, "<=", 60, false},
    {Node::TypeGreaterEq, ">=", 60, false}, {Node::TypeEqual, "==", 60, false},    {Node::TypeNotEqual, "!=", 60, false},
    {Node::TypeAnd, "&&", 50, false},       {Node::TypeOr, "||", 40, false},
};

int operatorPrec(Node::Type type, bool unary)
{
    const Operator* op = findOperator(type);
    if (!op || op->unary != unary)
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    return op->prec;
}

[[noreturn]] void raiseNoChild() { QX_RAISE("exprimpl", "Internal_error_symbolic_processing"); }

NodePtr& itemAt(Nodes& items, int i)
{
    if (i < 0 || static_cast<std::size_t>(i) >= items.size())
        raiseNoChild();
    return items[static_cast<std::size_t>(i)];
}

} // namespace

namespace qxsymbolic {

std::uint32_t hashText(std::string_view text)
{
    std::uint32_t v = 0x811c9dc5u;
    for (const char c : text)
        v = (v ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(c)))) * 16777619u;
    return v ^ (v >> 8) ^ (v >> 16) ^ (v >> 24);
}

const Operator* findOperator(Node::Type type)
{
    // Six bits of the types tell all operators apart: a table by them instead of a search.
    constexpr auto bitsOf = [](Node::Type t) { return (t >> 24) & 63u; };
    static constexpr auto byBits = [bitsOf] {
        std::array<signed char, 64> table{};
        table.fill(-1);
        for (std::size_t i = 0; i < std::size(operators); ++i)
            table[bitsOf(operators[i].type)] = static_cast<signed char>(i);
        return table;
    }();
    const int i = byBits[bitsOf(type)];
    return i >= 0 && operators[i].type == type ? &operators[i] : nullptr;
}

std::uint64_t nextMark()
{
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(2, std::memory_order_relaxed) + 2;
}

Current& current()
{
    static thread_local Current now;
    return now;
}

} // namespace qxsymbolic

// Release. A destructor hands its children's last references to the list of the outermost destructor that is running
// on this thread, which drops them one by one: no destructor recurses more than one level.

namespace {

using Pending = WorkList<NodePtr, 16>;

thread_local Pending* pendingRelease = nullptr;

void handOver(std::span<NodePtr> children, Pending& pending) noexcept
{
    for (NodePtr& child : children) {
        if (child.use_count() != 1) {
            child.reset(); // so that the last of several slots of one parent sees the last reference
            continue;
        }
        try {
            pending.push_back(std::move(child));
        } catch (const std::bad_alloc&) {
            // Dropped with the slot: the depth of this one subtree is on the stack.
        }
    }
}

/// Takes part in the release that is running, or runs one until nothing is left.
void releaseAll(std::span<NodePtr> first, std::span<NodePtr> second = {}) noexcept
{
    if (pendingRelease) {
        handOver(first, *pendingRelease);
        handOver(second, *pendingRelease);
        return;
    }
    Pending own;
    pendingRelease = &own;
    handOver(first, own);
    handOver(second, own);
    while (!own.empty()) {
        const NodePtr last = std::move(own.back());
        own.pop_back();
    }
    pendingRelease = nullptr;
}

std::span<NodePtr> only(NodePtr& child) { return {&child, 1}; }

} // namespace

ExprImpl::Node::~Node() = default;
ExprImpl::Unary::~Unary() { releaseAll(only(child)); }
ExprImpl::Binary::~Binary() { releaseAll(only(left), only(right)); }
ExprImpl::FuncCall::~FuncCall() { releaseAll(args); }
ExprImpl::Derivative::~Derivative() { releaseAll(only(child)); }
ExprImpl::List::~List() { releaseAll(items); }
ExprImpl::UnitConversion::~UnitConversion() { releaseAll(only(value), only(unit)); }
ExprImpl::Term::~Term() { releaseAll(num, den); }
ExprImpl::Sum::~Sum() { releaseAll(terms); }

// Construction.

ExprImpl::Unary::Unary(const RulesPtr& nodeRules, Type nodeType, const NodePtr& operand)
    : Node(nodeRules, nodeType, operatorPrec(nodeType, true)), child(operand)
{
}

ExprImpl::Binary::Binary(const RulesPtr& nodeRules, Type nodeType, const NodePtr& first, const NodePtr& second)
    : Node(nodeRules, nodeType, operatorPrec(nodeType, false)), left(first), right(second)
{
}

ExprImpl::FuncCall::FuncCall(const RulesPtr& nodeRules, const std::string& function, Nodes arguments)
    : Node(nodeRules, TypeFuncCall, precAtom), name(function), nameHash(hashText(function)), args(std::move(arguments))
{
}

ExprImpl::FuncCall::FuncCall(const RulesPtr& nodeRules, const std::string& function, const NodePtr& argument)
    : FuncCall(nodeRules, function, Nodes(1, argument))
{
}

ExprImpl::Derivative::Derivative(const RulesPtr& nodeRules, const NodePtr& operand, const VarPtr& by)
    : Node(nodeRules, TypeDerivative, precAtom), child(operand), var(by)
{
}

ExprImpl::List::List(const RulesPtr& nodeRules, Nodes elements) : List(nodeRules, TypeList, std::move(elements)) {}

ExprImpl::List::List(const RulesPtr& nodeRules, Type nodeType, Nodes elements)
    : Node(nodeRules, nodeType, 30), items(std::move(elements))
{
}

ExprImpl::Vector::Vector(const RulesPtr& nodeRules, Nodes elements) : List(nodeRules, TypeVector, std::move(elements)) {}

ExprImpl::UnitConversion::UnitConversion(const RulesPtr& nodeRules, const NodePtr& quantity, const NodePtr& unitText)
    : Node(nodeRules, TypeUnitConversion, 100), value(quantity), unit(unitText)
{
}

ExprImpl::Identifier::Identifier(const RulesPtr& nodeRules, const VarPtr& variable)
    : Node(nodeRules, TypeIdentifier, precAtom), var(variable)
{
}

ExprImpl::LiteralValue::LiteralValue(const RulesPtr& nodeRules, Type nodeType, const std::string& content)
    : Node(nodeRules, nodeType, precAtom), text(content), textHash(hashText(content))
{
}

ExprImpl::StringLiteral::StringLiteral(const RulesPtr& nodeRules, const std::string& content)
    : LiteralValue(nodeRules, TypeStringLiteral, content)
{
}

ExprImpl::Constant::Constant(const RulesPtr& nodeRules, const Number& number)
    : Node(nodeRules, TypeConstant, precAtom), value(number), hash(number.getHashCode())
{
}

ExprImpl::Term::Term(const RulesPtr& nodeRules, Nodes above, Nodes below, const Number& factor)
    : Node(nodeRules, TypeTerm, 90), coeff(factor), num(std::move(above)), den(std::move(below))
{
}

ExprImpl::Sum::Sum(const RulesPtr& nodeRules, Nodes summands, const Number& addend)
    : Node(nodeRules, TypeSum, 80), constant(addend), terms(std::move(summands))
{
}

// Names and children.

const char* ExprImpl::Unary::getTypeName() const { return "Unary"; }
const char* ExprImpl::Binary::getTypeName() const { return "Binary"; }
const char* ExprImpl::FuncCall::getTypeName() const { return "FuncCall"; }
const char* ExprImpl::Derivative::getTypeName() const { return "Derivative"; }
const char* ExprImpl::List::getTypeName() const { return "List"; }
const char* ExprImpl::Vector::getTypeName() const { return "Vector"; }
const char* ExprImpl::UnitConversion::getTypeName() const { return "UnitConversion"; }
const char* ExprImpl::Identifier::getTypeName() const { return "Identifier"; }
const char* ExprImpl::LiteralValue::getTypeName() const { return "LiteralValue"; }
const char* ExprImpl::Constant::getTypeName() const { return "Constant"; }
const char* ExprImpl::Term::getTypeName() const { return "Term"; }
const char* ExprImpl::Sum::getTypeName() const { return "Sum"; }

int ExprImpl::Unary::getChildCount() const { return 1; }
int ExprImpl::Binary::getChildCount() const { return 2; }
int ExprImpl::FuncCall::getChildCount() const { return static_cast<int>(args.size()); }
int ExprImpl::Derivative::getChildCount() const { return 1; }
int ExprImpl::List::getChildCount() const { return static_cast<int>(items.size()); }
int ExprImpl::UnitConversion::getChildCount() const { return 2; }
int ExprImpl::Identifier::getChildCount() const { return 0; }
int ExprImpl::LiteralValue::getChildCount() const { return 0; }
int ExprImpl::Constant::getChildCount() const { return 0; }
int ExprImpl::Term::getChildCount() const { return static_cast<int>(num.size() + den.size()); }
int ExprImpl::Sum::getChildCount() const { return static_cast<int>(terms.size()); }

ExprImpl::NodePtr& ExprImpl::Unary::getChild(int i)
{
    if (i != 0)
        raiseNoChild();
    return child;
}

ExprImpl::NodePtr& ExprImpl::Binary::getChild(int i)
{
    if (i != 0 && i != 1)
        raiseNoChild();
    return i == 0 ? left : right;
}

ExprImpl::NodePtr& ExprImpl::FuncCall::getChild(int i) { return itemAt(args, i); }

ExprImpl::NodePtr& ExprImpl::Derivative::getChild(int i)
{
    if (i != 0)
        raiseNoChild();
    return child;
}

ExprImpl::NodePtr& ExprImpl::List::getChild(int i) { return itemAt(items, i); }

ExprImpl::NodePtr& ExprImpl::UnitConversion::getChild(int i)
{
    if (i != 0 && i != 1)
        raiseNoChild();
    return i == 0 ? value : unit;
}

ExprImpl::NodePtr& ExprImpl::Identifier::getChild(int) { raiseNoChild(); }
ExprImpl::NodePtr& ExprImpl::LiteralValue::getChild(int) { raiseNoChild(); }
ExprImpl::NodePtr& ExprImpl::Constant::getChild(int) { raiseNoChild(); }

ExprImpl::NodePtr& ExprImpl::Term::getChild(int i)
{
    const int above = static_cast<int>(num.size());
    return i < above ? itemAt(num, i) : itemAt(den, i - above);
}

ExprImpl::NodePtr& ExprImpl::Sum::getChild(int i) { return itemAt(terms, i); }

const ExprImpl::Number& ExprImpl::Node::getNumVal() const { QX_RAISE("exprimpl", "Internal_error_symbolic_processing"); }
const ExprImpl::Number& ExprImpl::Constant::getNumVal() const { return value; }

// Hash codes, in 32-bit arithmetic that wraps.

namespace {

std::uint32_t hashAddress(const void* p) { return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p)); }

/// The nodes in a total order that is stable within one run. Short lists, the rule, need no allocation.
class ByIdentity
{
public:
    explicit ByIdentity(std::span<const NodePtr> nodes) : size_(nodes.size())
    {
        if (size_ > std::size(few_))
            many_.resize(size_);
        Node** out = data();
        for (const NodePtr& node : nodes)
            *out++ = node.get();
        std::sort(begin(), end());
    }
    Node** begin() { return data(); }
    Node** end() { return data() + size_; }
    bool operator==(ByIdentity& other) { return std::equal(begin(), end(), other.begin(), other.end()); }

private:
    Node** data() { return many_.empty() ? few_ : many_.data(); }

    std::size_t size_;
    Node* few_[8];
    std::vector<Node*> many_;
};

} // namespace

std::uint32_t ExprImpl::Node::hashChildren(Node& node)
{
    std::uint32_t h = node.type;
    for (int i = 0, n = node.getChildCount(); i < n; ++i)
        h = h * 69069u + hashAddress(node.getChild(i).get());
    return h;
}

std::uint32_t ExprImpl::Node::getHashCode() { return hashChildren(*this); }
std::uint32_t ExprImpl::FuncCall::getHashCode() { return hashChildren(*this) ^ nameHash; }
std::uint32_t ExprImpl::Derivative::getHashCode() { return type ^ hashAddress(child.get()) ^ hashAddress(var.get()); }
std::uint32_t ExprImpl::Identifier::getHashCode() { return hashAddress(var.get()); }
std::uint32_t ExprImpl::LiteralValue::getHashCode() { return type ^ textHash; }
std::uint32_t ExprImpl::Constant::getHashCode() { return hash; }
std::uint32_t ExprImpl::Term::getHashCode() { return type ^ coeff.getHashCode() ^ getQuotientHashCode(); }

std::uint32_t ExprImpl::Term::getQuotientHashCode() const
{
    Current& now = current();
    work(now, num.size() + den.size()); // long lists are sorted at each look
    std::uint32_t h = 1;
    for (Node* factor : ByIdentity(num))
        h = h * 69069u + hashOf(*factor, now);
    for (Node* factor : ByIdentity(den))
        h = hashOf(*factor, now) * 1664525u + h * 69069u + 1013904223u;
    return h;
}

std::uint32_t ExprImpl::Sum::getHashCode()
{
    std::uint32_t h = type ^ constant.getHashCode();
    for (const Node* term : ByIdentity(terms))
        h = h * 69069u + hashAddress(term);
    return h;
}

// Equality.

bool ExprImpl::Node::sameNode(const Node&) const { return true; }
bool ExprImpl::FuncCall::sameNode(const Node& other) const
{
    const auto& call = other.as<FuncCall>();
    return nameHash == call.nameHash && name == call.name;
}
bool ExprImpl::Derivative::sameNode(const Node& other) const { return var == other.as<Derivative>().var; }
bool ExprImpl::Identifier::sameNode(const Node& other) const { return var == other.as<Identifier>().var; }
bool ExprImpl::LiteralValue::sameNode(const Node& other) const { return text == other.as<LiteralValue>().text; }
bool ExprImpl::Constant::sameNode(const Node& other) const { return value == other.as<Constant>().value; }
bool ExprImpl::Term::sameNode(const Node& other) const
{
    const auto& term = other.as<Term>();
    return coeff == term.coeff && equalsWithoutOrder(num, term.num) && equalsWithoutOrder(den, term.den);
}
bool ExprImpl::Sum::sameNode(const Node& other) const
{
    const auto& sum = other.as<Sum>();
    return constant == sum.constant && equalsWithoutOrder(terms, sum.terms);
}

bool qxsymbolic::sameInAnyOrder(std::span<const NodePtr> a, std::span<const NodePtr> b)
{
    if (a.size() != b.size())
        return false;
    if (a.size() <= 1)
        return a.empty() || a[0] == b[0];
    ByIdentity x(a), y(b);
    return x == y;
}

bool ExprImpl::Node::equalsWithoutOrder(const Nodes& a, const Nodes& b) { return sameInAnyOrder(a, b); }

bool ExprImpl::Node::equals(const NodePtr& other)
{
    // Pairs of shared nodes are compared once: two graphs of n nodes may stand for trees of 2^n.
    using Pair = std::pair<Node*, Node*>;
    WorkList<Pair, 16> open{{this, other.get()}};
    std::set<Pair> seen;
    while (!open.empty()) {
        const auto [a, b] = open.back();
        open.pop_back();
        if (a == b)
            continue;
        if (a->type != b->type || !a->sameNode(*b))
            return false;
        if (a->type == TypeTerm || a->type == TypeSum)
            continue;
        const int n = a->getChildCount();
        if (n != b->getChildCount())
            return false;
        for (int i = 0; i < n; ++i) {
            const NodePtr& x = a->getChild(i);
            const NodePtr& y = b->getChild(i);
            if (x == y)
                continue;
            if (x.use_count() > 1 && y.use_count() > 1 && !seen.insert({x.get(), y.get()}).second)
                continue;
            open.push_back({x.get(), y.get()});
        }
    }
    return true;
}

// Copying.

namespace {

Nodes taken(std::span<NodePtr> children)
{
    return Nodes(std::make_move_iterator(children.begin()), std::make_move_iterator(children.end()));
}

} // namespace

ExprImpl::NodePtr ExprImpl::Node::rebuild(const NodePtr& slot, std::span<NodePtr>) const
{
    if (getChildCount() > 0)
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    return slot;
}

ExprImpl::NodePtr ExprImpl::Unary::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<Unary>(rules, type, children[0]);
}
ExprImpl::NodePtr ExprImpl::Binary::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<Binary>(rules, type, children[0], children[1]);
}
ExprImpl::NodePtr ExprImpl::FuncCall::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<FuncCall>(rules, name, taken(children));
}
ExprImpl::NodePtr ExprImpl::Derivative::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<Derivative>(rules, children[0], var);
}
ExprImpl::NodePtr ExprImpl::List::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<List>(rules, taken(children));
}
ExprImpl::NodePtr ExprImpl::Vector::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<Vector>(rules, taken(children));
}
ExprImpl::NodePtr ExprImpl::UnitConversion::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<UnitConversion>(rules, children[0], children[1]);
}
ExprImpl::NodePtr ExprImpl::Term::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<Term>(rules, taken(children.first(num.size())), taken(children.subspan(num.size())), coeff);
}
ExprImpl::NodePtr ExprImpl::Sum::rebuild(const NodePtr&, std::span<NodePtr> children) const
{
    return make<Sum>(rules, taken(children), constant);
}

ExprImpl::NodePtr ExprImpl::Node::getCopy(const NodePtr& slot) const
{
    return rebuildPostOrder(
        slot, [](const NodePtr&, NodePtr&) { return false; },
        [](const NodePtr& node, std::span<NodePtr> children) { return node->rebuild(node, children); });
}

ExprImpl::Nodes ExprImpl::Node::getCopy(const Nodes& nodes)
{
    Nodes copies;
    copies.reserve(nodes.size());
    for (const NodePtr& node : nodes)
        copies.push_back(node->getCopy(node));
    return copies;
}

// Sharing.

std::size_t ExprImpl::NodeHashTable::find(std::uint32_t code) const
{
    // Codes are sums of addresses: multiplication spreads their upper bits too.
    std::size_t i = (code * 2654435769u) >> shift_;
    while (entries_[i].node && entries_[i].code != code)
        i = (i + 1) & (entries_.size() - 1);
    return i;
}

void ExprImpl::NodeHashTable::grow()
{
    std::vector<Entry> old(entries_.empty() ? 32 : 2 * entries_.size());
    old.swap(entries_);
    shift_ = old.empty() ? 27 : shift_ - 1;
    for (Entry& entry : old)
        if (entry.node)
            entries_[find(entry.code)] = std::move(entry);
}

ExprImpl::NodePtr& ExprImpl::NodeHashTable::slot(std::uint32_t code)
{
    if (2 * size_ >= entries_.size())
        grow();
    Entry& entry = entries_[find(code)];
    if (!entry.node) {
        entry.code = code;
        ++size_;
    }
    return entry.node;
}

void ExprImpl::NodeHashTable::addNode(std::uint32_t code, const NodePtr& node) { slot(code) = node; }

bool ExprImpl::NodeHashTable::getNode(std::uint32_t code, NodePtr& out) const
{
    if (entries_.empty())
        return false;
    const Entry& entry = entries_[find(code)];
    if (entry.node)
        out = entry.node;
    return static_cast<bool>(entry.node);
}

void ExprImpl::NodeHashTable::clear() { *this = NodeHashTable(); }

bool qxsymbolic::shareEqual(NodePtr& root, ExprImpl::NodeHashTable& table, bool first)
{
    Rewriting walk(!first);
    const Temporarily sharing(current().sharing, walk.mark());
    const std::uint64_t simplification = current().simplification;
    bool good = true;
    rewritePostOrder(walk, root, [&](NodePtr& node, bool) {
        const bool settled = (simplification != 0 && node->settled == simplification) ||
                             (first && node->lasting > 0 && isBareFactor(*node)); // a settled Sum's
        const std::uint32_t hash = settled ? node->code : node->getHashCode();
        NodePtr& known = table.slot(hash);
        if (known && known != node && Node::equals(node, known)) {
            good = good && !settled;
            if (!settled)
                node = known;
        } else {
            known = node;
        }
        node->code = hash;
        node->codeMark = walk.mark();
        return false;
    });
    return good;
}

void ExprImpl::Node::makeCanonic(NodePtr& slot, NodeHashTable& table) { shareEqual(slot, table, false); }

void ExprImpl::Node::dump(std::ostream& stream, int indent) const
{
    std::vector<std::pair<const Node*, int>> open{{this, indent}};
    while (!open.empty()) {
        const auto [node, depth] = open.back();
        open.pop_back();
        stream << std::string(static_cast<std::size_t>(depth), ' ') << node->getTypeName() << '\n';
        for (int i = node->getChildCount() - 1; i >= 0; --i)
            open.push_back({node->childAt(i).get(), depth + 1});
    }
}

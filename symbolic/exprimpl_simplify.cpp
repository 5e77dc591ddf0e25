// SPDX-License-Identifier: LicenseRef-qxkernel
// The rewriting rules, one round of which is a call of simplify.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

using namespace qxsymbolic;

namespace {

using Effect = Node::Effect;

/// A factor alone that stands in a Sum as a Term: folding unwraps it there and wraps it again, which changes nothing.
bool isWrappedFactor(const Node& node, std::uint64_t simplification)
{
    if (!isBareFactor(node) || node.getChildCount() == 0)
        return false;
    const Node& factor = *node.childAt(0);
    return (factor.type == Node::TypeFuncCall || factor.type == Node::TypePow) && factor.settled == simplification;
}

/// Whether the passes of the next rounds would leave this node as it is, given that those of this round did: they look at
/// nothing but the node and what is below it. lasting becomes what Node::lasting says of the children.
bool isSettled(const Node& node, std::uint64_t simplification, std::uint8_t& lasting)
{
    const bool sum = node.type == Node::TypeSum;
    for (int i = 0, n = node.getChildCount(); i < n; ++i) {
        const Node& child = *node.childAt(i);
        if (child.settled != simplification && !(sum && isWrappedFactor(child, simplification)))
            return false;
        lasting = std::min(lasting, child.lasting);
    }
    return true;
}

} // namespace

bool ExprImpl::Node::simplify(NodePtr& slot, bool evalFuncs)
{
    bool changed = false;
    const std::uint64_t simplification = current().simplification;
    Rewriting walk;
    rewritePostOrder(walk, slot, [&](NodePtr& node, bool kept) {
        Node* const before = node.get();
        // A derivative of what has changed waits for the next round: until then there are products and quotients in it.
        if (!kept && before->type == TypeDerivative)
            return false;
        const Effect effect = before->simplifyStep(node, evalFuncs);
        changed = changed || effect == Effect::Change;
        std::uint8_t level = evalFuncs ? 2 : 1;
        if (simplification != 0 && kept && effect == Effect::None && node.get() == before &&
            isSettled(*before, simplification, level)) {
            before->lasting = before->type == TypeDerivative ? std::uint8_t(0) : level;
            if (!isBareFactor(*before))
                before->settled = simplification;
        }
        return effect == Effect::Change;
    });
    return changed;
}

ExprImpl::Node::Effect ExprImpl::Node::simplifyStep(NodePtr&, bool) { return Effect::None; }

// (a^b)^c -> a^(b*c), whatever the sign of a.
ExprImpl::Node::Effect ExprImpl::Binary::simplifyStep(NodePtr& slot, bool)
{
    if (type != TypePow || left->type != TypePow)
        return Effect::None;
    const auto& inner = left->as<Binary>();
    slot = qxsymbolic::makeBinary(rules, TypePow, inner.left, qxsymbolic::makeBinary(rules, TypeMul, inner.right, right));
    return Effect::Change;
}

ExprImpl::Node::Effect ExprImpl::Derivative::simplifyStep(NodePtr& slot, bool)
{
    if (child->type == TypeDerivative)
        return Effect::None;
    if (child->type == TypeIdentifier) {
        const VarPtr& inner = child->as<Identifier>().var;
        const ExprVar::Type kind = inner->getType();
        if (kind == ExprVar::TypeDependent || (kind == ExprVar::TypeDifferentiated && inner != var))
            return Effect::None;
        slot = rules->constant(kind >= ExprVar::TypeIndependent && inner == var ? 1.0 : 0.0);
        return Effect::Change;
    }
    slot = child->diff(child, var);
    return Effect::Change;
}

ExprImpl::Node::Effect ExprImpl::FuncCall::simplifyStep(NodePtr& slot, bool evalFuncs)
{
    if (name == "d" && args.size() == 2) {
        if (args[0]->type == TypeConstant) {
            slot = rules->constant(0.0);
            return Effect::Change;
        }
        if (args[0]->type == TypeSum && args[0]->as<Sum>().constant != 0.0) {
            const NodePtr withoutConstant = make<Sum>(rules, args[0]->as<Sum>().terms, Number());
            slot = make<FuncCall>(rules, name, Nodes{withoutConstant, args[1]});
            return Effect::Change;
        }
    }
    if (name == "if" && args.size() == 3) {
        if (args[0]->type == TypeConstant) {
            slot = NodePtr(args[args[0]->getNumVal() != 0.0 ? 1 : 2]);
            return Effect::Change;
        }
        if (equals(args[1], args[2])) {
            slot = NodePtr(args[1]);
            return Effect::Change;
        }
    }
    if (!evalFuncs || args.empty())
        return Effect::None;
    std::vector<double> values;
    for (const NodePtr& arg : args) {
        if (arg->type != TypeConstant)
            return Effect::None;
        values.push_back(arg->getNumVal().toReal());
    }
    double result;
    if (!FuncRules::evalElemFunc(name, values, result))
        return Effect::None;
    slot = rules->constant(result);
    return Effect::Change;
}

// Products.

namespace {

/// For each element of a list whether it goes.
using Removals = WorkList<bool, 32>;

/// Keeps the elements whose mark is not set, in order.
void compress(Nodes& nodes, const Removals& removed)
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (!removed[i]) {
            if (kept != i)
                nodes[kept] = std::move(nodes[i]);
            ++kept;
        }
    nodes.resize(kept);
}

bool isPower(const NodePtr& node) { return node->type == Node::TypePow; }
const NodePtr& baseOf(const NodePtr& factor) { return isPower(factor) ? factor->as<ExprImpl::Binary>().left : factor; }

/// Moves powers with a negative constant exponent to the other side of the fraction; true if there were any.
bool moveNegativePowers(const RulesPtr& rules, Nodes& from, Nodes& to)
{
    Removals moved;
    for (std::size_t i = 0; i < from.size(); ++i) {
        if (!isPower(from[i]))
            continue;
        const auto& power = from[i]->as<ExprImpl::Binary>();
        if (power.right->type != Node::TypeConstant || !(power.right->getNumVal().toReal() < 0.0))
            continue;
        to.push_back(makeBinary(rules, Node::TypePow, power.left, rules->constant(-power.right->getNumVal())));
        moved.resize(from.size(), false);
        moved[i] = true;
    }
    if (!moved.empty())
        compress(from, moved);
    return !moved.empty();
}

/// exp(u) in the denominator becomes exp(-u) in the numerator.
bool moveExponentials(const RulesPtr& rules, Nodes& num, Nodes& den)
{
    Removals moved;
    for (std::size_t i = 0; i < den.size(); ++i) {
        if (den[i]->type != Node::TypeFuncCall)
            continue;
        const auto& call = den[i]->as<ExprImpl::FuncCall>();
        if (call.name != "exp" || call.args.size() != 1)
            continue;
        moved.resize(den.size(), false);
        num.push_back(make<ExprImpl::FuncCall>(rules, call.name, makeUnary(rules, Node::TypeUnaryMinus, call.args[0])));
        moved[i] = true;
    }
    if (!moved.empty())
        compress(den, moved);
    return !moved.empty();
}

/// Sum of exponents: a number while all are numbers, a chain of additions from there on.
class ExponentSum
{
public:
    explicit ExponentSum(const RulesPtr& rules) : rules_(rules) {}

    void add(const NodePtr& factor, bool negate)
    {
        const NodePtr exponent = isPower(factor) ? factor->as<ExprImpl::Binary>().right : NodePtr();
        if (!chain_ && (!exponent || exponent->type == Node::TypeConstant)) {
            const Number value = exponent ? exponent->getNumVal() : Number(1);
            number_ = negate ? number_ - value : number_ + value;
            ++count_;
            return;
        }
        NodePtr next = exponent ? exponent : rules_->constant(1.0);
        if (negate)
            next = makeUnary(rules_, Node::TypeUnaryMinus, next);
        if (!chain_ && count_ > 0)
            chain_ = rules_->constant(number_);
        chain_ = chain_ ? makeBinary(rules_, Node::TypeAdd, chain_, next) : next;
    }

    NodePtr node() const { return chain_ ? chain_ : rules_->constant(number_); }

private:
    const RulesPtr& rules_;
    Number number_;
    int count_ = 0;
    NodePtr chain_;
};

} // namespace

bool ExprImpl::Term::collectPowers()
{
    // Numerator factor i has the index i+1, denominator factor i the index -(i+1): within a group of one base the
    // denominators come first, and the last one is a numerator if there is any. It names the slot that keeps the power.
    using Member = std::pair<const Node*, int>;
    WorkList<Member, 16> members;
    members.reserve(num.size() + den.size());
    for (std::size_t i = 0; i < num.size(); ++i)
        members.emplace_back(baseOf(num[i]).get(), static_cast<int>(i) + 1);
    for (std::size_t i = 0; i < den.size(); ++i)
        members.emplace_back(baseOf(den[i]).get(), -static_cast<int>(i) - 1);
    std::sort(members.begin(), members.end());

    Removals goneNum, goneDen;
    const auto factorAt = [this](int index) -> NodePtr& {
        return index > 0 ? num[static_cast<std::size_t>(index - 1)] : den[static_cast<std::size_t>(-index - 1)];
    };
    bool any = false;
    for (std::size_t from = 0, to; from < members.size(); from = to) {
        for (to = from + 1; to < members.size() && members[to].first == members[from].first; ++to)
            ;
        if (to - from < 2)
            continue;
        const int target = members[to - 1].second;
        goneNum.resize(num.size(), false);
        goneDen.resize(den.size(), false);
        ExponentSum exponents(rules);
        for (std::size_t k = from; k < to; ++k) {
            const int index = members[k].second;
            exponents.add(factorAt(index), index < 0 && target > 0);
            if (index == target)
                continue;
            if (index > 0)
                goneNum[static_cast<std::size_t>(index - 1)] = true;
            else
                goneDen[static_cast<std::size_t>(-index - 1)] = true;
        }
        const NodePtr base = baseOf(factorAt(target));
        factorAt(target) = qxsymbolic::makeBinary(rules, TypePow, base, exponents.node());
        any = true;
    }
    if (any) {
        compress(num, goneNum);
        compress(den, goneDen);
    }
    return any;
}

namespace {

/// y * (a/y + b) -> a + y*b for S, a sum, and y; null if no term of S has y in its denominator.
NodePtr cancelOverSum(const RulesPtr& rules, const NodePtr& S, const NodePtr& y)
{
    if (S->type != Node::TypeSum)
        return NodePtr();
    const auto& sum = S->as<ExprImpl::Sum>();
    Nodes cancelled, others;
    for (const NodePtr& term : sum.terms) {
        if (term->type == Node::TypeTerm) {
            const auto& t = term->as<ExprImpl::Term>();
            const auto found = std::find(t.den.begin(), t.den.end(), y);
            if (found != t.den.end()) {
                Nodes below(t.den.begin(), found);
                below.insert(below.end(), found + 1, t.den.end());
                cancelled.push_back(make<ExprImpl::Term>(rules, t.num, std::move(below), t.coeff));
                continue;
            }
        }
        others.push_back(term);
    }
    if (cancelled.empty())
        return NodePtr();
    const NodePtr rest = make<ExprImpl::Sum>(rules, std::move(others), sum.constant);
    cancelled.push_back(make<ExprImpl::Term>(rules, Nodes{y, rest}, Nodes(), Number(1)));
    return make<ExprImpl::Sum>(rules, std::move(cancelled), Number());
}

} // namespace

ExprImpl::Node::Effect ExprImpl::Term::simplifyStep(NodePtr& slot, bool)
{
    const bool spliced = updateFactors();
    bool changed = moveExponentials(rules, num, den);
    if (num.size() + den.size() >= 2)
        changed = collectPowers() || changed;
    // A round after a move: the new power may have an equal elsewhere, or be all that is left of the product.
    if (!den.empty())
        changed = moveNegativePowers(rules, num, den) || changed;
    changed = moveNegativePowers(rules, den, num) || changed;

    if (num.size() == 2 && den.empty()) {
        for (std::size_t i = 0; i < 2; ++i) {
            NodePtr result = cancelOverSum(rules, num[i], num[1 - i]);
            if (!result)
                continue;
            slot = coeff == 1.0 ? result : make<Term>(rules, Nodes{result}, Nodes(), coeff);
            return Effect::Change;
        }
    }
    return changed ? Effect::Change : spliced ? Effect::Quiet : Effect::None;
}

// Sums.

namespace {

const Number one(1);

using Factors = std::span<const NodePtr>;

/// A term of a Sum as coefficient and factors; an Identifier is itself once. The slot must outlive it.
struct TermView
{
    explicit TermView(const NodePtr& node)
    {
        if (node->type == Node::TypeTerm) {
            const auto& term = node->as<ExprImpl::Term>();
            coeff = &term.coeff;
            num = term.num;
            den = term.den;
        } else {
            num = Factors(&node, 1);
        }
    }

    const Number* coeff = &one;
    Factors num, den;
};

Nodes listOf(Factors factors) { return Nodes(factors.begin(), factors.end()); }

std::uint32_t quotientHash(const NodePtr& node)
{
    if (node->type == Node::TypeTerm)
        return node->as<ExprImpl::Term>().getQuotientHashCode();
    return 69069u + hashOf(*node, current()); // that of a Term with this one factor
}

} // namespace

bool ExprImpl::Sum::collectLikeTerms()
{
    WorkList<std::pair<std::uint32_t, std::size_t>, 32> groups;
    groups.reserve(terms.size());
    for (std::size_t i = 0; i < terms.size(); ++i)
        groups.emplace_back(quotientHash(terms[i]), i);
    std::sort(groups.begin(), groups.end());

    Removals gone(terms.size(), false);
    bool any = false;
    for (std::size_t from = 0, to; from < groups.size(); from = to) {
        for (to = from + 1; to < groups.size() && groups[to].first == groups[from].first; ++to)
            ;
        if (to - from < 2)
            continue;
        NodePtr& target = terms[groups[from].second];
        const TermView first(target);
        Number sum = *first.coeff;
        bool added = false;
        for (std::size_t k = from + 1; k < to; ++k) {
            const TermView other(terms[groups[k].second]);
            if (!sameInAnyOrder(first.num, other.num) || !sameInAnyOrder(first.den, other.den))
                continue;
            sum = sum + *other.coeff;
            gone[groups[k].second] = added = true;
        }
        if (added) {
            target = make<Term>(rules, listOf(first.num), listOf(first.den), sum);
            any = true;
        }
    }
    if (any)
        compress(terms, gone);
    return any;
}

namespace {

/// c*T1 - c*T2 + c -> c*(T1 - T2 + 1); null unless all coefficients and the constant have the magnitude of the first.
NodePtr pullOutMagnitude(const RulesPtr& rules, const ExprImpl::Sum& sum)
{
    if (sum.terms.empty() || (sum.terms.size() == 1 && sum.constant != 0.0))
        return NodePtr();
    for (const NodePtr& term : sum.terms)
        if (term->type != Node::TypeTerm)
            return NodePtr();
    const Number c = sum.terms[0]->as<ExprImpl::Term>().coeff;
    const Number minus = -c;
    if (c == 1.0 || c == -1.0 || c == 0.0)
        return NodePtr();
    for (const NodePtr& term : sum.terms) {
        const Number& coeff = term->as<ExprImpl::Term>().coeff;
        if (coeff != c && coeff != minus)
            return NodePtr();
    }
    if (sum.constant != 0.0 && sum.constant != c && sum.constant != minus)
        return NodePtr();

    Nodes signs;
    signs.reserve(sum.terms.size());
    for (const NodePtr& term : sum.terms) {
        const auto& t = term->as<ExprImpl::Term>();
        signs.push_back(make<ExprImpl::Term>(rules, t.num, t.den, Number(t.coeff == c ? 1 : -1)));
    }
    const int rest = sum.constant == c ? 1 : sum.constant == minus ? -1 : 0;
    const NodePtr inner = make<ExprImpl::Sum>(rules, std::move(signs), Number(rest));
    return make<ExprImpl::Term>(rules, Nodes{inner}, Nodes(), c);
}

/// Factors of the first term of a sum that the other terms share.
class CommonFactors
{
public:
    explicit CommonFactors(Factors factors) : factors_(factors)
    {
        entries_.reserve(factors.size());
        for (const NodePtr& factor : factors)
            entries_.push_back({hashOf(*factor, now_), 1, 0, false});
        if (entries_.size() > few)
            for (std::size_t i = 0; i < entries_.size(); ++i)
                byHash_[entries_[i].hash] = i;
    }

    /// Counts the factors found in the list of term number k; false if none is.
    bool count(Factors list, std::size_t k)
    {
        work(current(), list.size());
        bool any = false;
        for (const NodePtr& factor : list) {
            const std::size_t i = find(factor);
            if (i == npos || entries_[i].seenBy == k)
                continue;
            entries_[i].seenBy = k;
            ++entries_[i].count;
            any = true;
        }
        return any;
    }

    /// Those that all terms have; from here on without() takes them away.
    Nodes common(std::size_t nTerms)
    {
        Nodes result;
        for (std::size_t i = 0; i < factors_.size(); ++i) {
            entries_[i].isCommon = entries_[i].count == nTerms;
            entries_[i].seenBy = npos;
            if (entries_[i].isCommon)
                result.push_back(factors_[i]);
        }
        return result;
    }

    /// The list of term number k without one occurrence of each common factor.
    Nodes without(Factors list, std::size_t k)
    {
        work(current(), list.size());
        Nodes rest;
        rest.reserve(list.size());
        for (const NodePtr& factor : list) {
            const std::size_t i = find(factor);
            if (i == npos || !entries_[i].isCommon || entries_[i].seenBy == k)
                rest.push_back(factor);
            else
                entries_[i].seenBy = k;
        }
        return rest;
    }

private:
    struct Entry
    {
        std::uint32_t hash;
        std::size_t count;
        std::size_t seenBy; // the term that met the factor last
        bool isCommon;
    };
    static constexpr std::size_t npos = ~std::size_t(0);
    static constexpr std::size_t few = 8; // are looked through one by one

    /// Of two with one hash code the later one stands.
    std::size_t find(const NodePtr& factor) const
    {
        const std::uint32_t hash = hashOf(*factor, now_);
        std::size_t i = npos;
        if (entries_.size() > few) {
            const auto found = byHash_.find(hash);
            i = found != byHash_.end() ? found->second : npos;
        } else {
            for (std::size_t k = 0; k < entries_.size(); ++k)
                i = entries_[k].hash == hash ? k : i;
        }
        return i != npos && Node::equals(factors_[i], factor) ? i : npos;
    }

    const Current now_ = current();
    const Factors factors_;
    WorkList<Entry, 8> entries_;
    std::unordered_map<std::uint32_t, std::size_t> byHash_;
};

/// a*x + a*y -> a*(x + y); null if the terms have no factor in common.
NodePtr pullOutFactors(const RulesPtr& rules, const ExprImpl::Sum& sum)
{
    if (sum.terms.size() < 2 || sum.constant != 0.0)
        return NodePtr();
    const TermView first(sum.terms[0]);
    CommonFactors above(first.num), below(first.den);
    for (std::size_t k = 1; k < sum.terms.size(); ++k) {
        const TermView term(sum.terms[k]);
        const bool anyAbove = above.count(term.num, k);
        const bool anyBelow = below.count(term.den, k);
        if (!anyAbove && !anyBelow)
            return NodePtr();
    }
    Nodes num = above.common(sum.terms.size()), den = below.common(sum.terms.size());
    if (num.empty() && den.empty())
        return NodePtr();

    Nodes rest;
    rest.reserve(sum.terms.size());
    for (std::size_t k = 0; k < sum.terms.size(); ++k) {
        const TermView term(sum.terms[k]);
        rest.push_back(make<ExprImpl::Term>(rules, above.without(term.num, k), below.without(term.den, k), *term.coeff));
    }
    const NodePtr factor = make<ExprImpl::Term>(rules, std::move(num), std::move(den), one);
    const NodePtr inner = make<ExprImpl::Sum>(rules, std::move(rest), sum.constant);
    return make<ExprImpl::Term>(rules, Nodes{factor, inner}, Nodes(), one);
}

} // namespace

ExprImpl::Node::Effect ExprImpl::Sum::simplifyStep(NodePtr& slot, bool)
{
    const bool spliced = updateTerms();
    const bool changed = terms.size() >= 2 && collectLikeTerms();
    if (NodePtr result = pullOutMagnitude(rules, *this)) {
        slot = result;
        return Effect::Change;
    }
    if (NodePtr result = pullOutFactors(rules, *this)) {
        slot = result;
        return Effect::Change;
    }
    return changed ? Effect::Change : spliced ? Effect::Quiet : Effect::None;
}

// Substitution of definitions.

bool ExprImpl::Node::simplify(NodePtr& slot, const std::vector<VarPtr>& vars, Nodes& defs, std::vector<int>& status)
{
    // The first definition of a variable counts once it is finished; later ones of the same variable are looked at too.
    std::unordered_map<const ExprVar*, std::vector<std::size_t>> byVar;
    for (std::size_t i = 0; i < vars.size(); ++i)
        byVar[vars[i].get()].push_back(i);

    // One walk per definition in work, innermost last; a definition is copied where it is used.
    struct Walk
    {
        NodePtr* root;
        int definition; // index in defs, -1 for the slot itself
        std::vector<NodePtr*> open;
    };
    std::vector<Walk> walks;
    std::unordered_set<const Node*> seen;
    bool changed = false;
    walks.push_back({&slot, -1, {&slot}});
    while (!walks.empty()) {
        Walk& walk = walks.back();
        if (walk.open.empty()) {
            if (walk.definition >= 0)
                status[static_cast<std::size_t>(walk.definition)] = 2;
            walks.pop_back();
            continue;
        }
        NodePtr& node = *walk.open.back();
        if (node->type != TypeIdentifier) {
            walk.open.pop_back();
            if (node.use_count() > 1 && !seen.insert(node.get()).second)
                continue;
            for (int i = node->getChildCount() - 1; i >= 0; --i)
                walk.open.push_back(&node->getChild(i));
            continue;
        }
        const VarPtr& var = node->as<Identifier>().var;
        const auto found = byVar.find(var.get());
        if (found == byVar.end()) {
            walk.open.pop_back();
            continue;
        }
        int toDo = -1;
        for (const std::size_t i : found->second) {
            if (status[i] == 1)
                QX_RAISE("exprimpl", "Cyclic_dependencies", "Variable_name", var->getName());
            if (status[i] == 0) {
                toDo = static_cast<int>(i);
                break;
            }
        }
        if (toDo >= 0) {
            status[static_cast<std::size_t>(toDo)] = 1;
            NodePtr& definition = defs[static_cast<std::size_t>(toDo)];
            walks.push_back({&definition, toDo, {&definition}});
            continue;
        }
        walk.open.pop_back();
        const NodePtr& definition = defs[found->second.back()];
        node = definition->getCopy(definition);
        changed = true;
    }
    return changed;
}

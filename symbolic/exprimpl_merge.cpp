// SPDX-License-Identifier: LicenseRef-qxkernel
// Chains of operators to Sum and Term nodes, and the upkeep of their lists.

#include "exprimpl_detail.hpp"

#include <algorithm>

using namespace qxsymbolic;

namespace {

bool isSign(Node::Type type) { return type == Node::TypeUnaryPlus || type == Node::TypeUnaryMinus; }
bool isAdditive(Node::Type type) { return type == Node::TypeAdd || type == Node::TypeSub || isSign(type); }
bool isMultiplicative(Node::Type type) { return type == Node::TypeMul || type == Node::TypeDiv || isSign(type); }

/// The slots below node that end its chain, from left to right. A link of the chain that other slots hold too counts as
/// an end: it is merged on its own, once, and its lists are spliced in where it stands.
template <class InChain>
void collectChain(Node& node, InChain inChain, std::vector<NodePtr*>& ends)
{
    WorkList<NodePtr*, 32> open;
    const auto push = [&open](Node& link) {
        for (int i = link.getChildCount() - 1; i >= 0; --i)
            open.push_back(&link.getChild(i));
    };
    push(node);
    while (!open.empty()) {
        NodePtr& slot = *open.back();
        open.pop_back();
        if (inChain(slot->type) && slot.use_count() == 1)
            push(*slot);
        else
            ends.push_back(&slot);
    }
}

/// Lists longer than this are checked for repeated elements when they are made: a shared product of 60 levels stands for
/// 2^60 factors, of which few are distinct.
constexpr std::size_t compactAbove = 64;

} // namespace

void ExprImpl::Node::mergeOperators(NodePtr& slot)
{
    struct Frame
    {
        NodePtr* slot;
        std::size_t first; // operands[first .. next) are still to be visited
    };
    Rewriting walk;
    std::vector<NodePtr*> operands;
    operands.reserve(32);
    WorkList<Frame, 32> stack;
    const auto open = [&](NodePtr& node) {
        if (walk.enter(node) != Rewriting::Visit)
            return;
        stack.push_back({&node, operands.size()});
        node->collectOperands(node, operands);
        std::reverse(operands.begin() + static_cast<std::ptrdiff_t>(stack.back().first), operands.end());
    };

    Current& now = current();
    open(slot);
    while (!stack.empty()) {
        work(now, 1);
        const Frame& top = stack.back();
        if (operands.size() > top.first) {
            NodePtr& next = *operands.back();
            operands.pop_back();
            open(next);
            continue;
        }
        NodePtr& node = *top.slot;
        stack.pop_back();
        walk.apply(node, [](NodePtr& s) { s->mergeStep(s); });
    }
}

void ExprImpl::Node::collectOperands(NodePtr&, std::vector<NodePtr*>& operands)
{
    for (int i = 0, n = getChildCount(); i < n; ++i)
        operands.push_back(&getChild(i));
}

void ExprImpl::Unary::collectOperands(NodePtr& slot, std::vector<NodePtr*>& operands)
{
    if (isSign(type))
        collectChain(*this, isAdditive, operands);
    else
        Node::collectOperands(slot, operands);
}

void ExprImpl::Binary::collectOperands(NodePtr& slot, std::vector<NodePtr*>& operands)
{
    if (isAdditive(type))
        collectChain(*this, isAdditive, operands);
    else if (isMultiplicative(type))
        collectChain(*this, isMultiplicative, operands);
    else
        Node::collectOperands(slot, operands);
}

void ExprImpl::Node::mergeStep(NodePtr&) {}

void ExprImpl::Unary::mergeStep(NodePtr& slot)
{
    if (isSign(type))
        slot = make<Sum>(rules, slot);
}

void ExprImpl::Binary::mergeStep(NodePtr& slot)
{
    if (isAdditive(type))
        slot = make<Sum>(rules, slot);
    else if (isMultiplicative(type))
        slot = make<Term>(rules, slot, false);
}

ExprImpl::Sum::Sum(const RulesPtr& nodeRules, const NodePtr& node) : Node(nodeRules, TypeSum, 80)
{
    expand(node, false, constant, terms);
    if (terms.size() > compactAbove)
        collectLikeTerms();
}

ExprImpl::Term::Term(const RulesPtr& nodeRules, const NodePtr& node, bool negate)
    : Node(nodeRules, TypeTerm, 90), coeff(negate ? -1 : 1)
{
    expand(node, false, coeff, num, den);
    if (num.size() + den.size() > compactAbove)
        collectPowers();
}

void ExprImpl::Sum::expand(const NodePtr& root, bool negateRoot, Number& constant, Nodes& terms)
{
    WorkList<std::pair<const NodePtr*, bool>, 32> open{{&root, negateRoot}};
    while (!open.empty()) {
        const auto [slot, negate] = open.back();
        open.pop_back();
        const NodePtr& node = *slot;
        switch (node->type) {
        case TypeAdd:
        case TypeSub: {
            const auto& binary = node->as<Binary>();
            open.push_back({&binary.right, negate != (node->type == TypeSub)});
            open.push_back({&binary.left, negate});
            break;
        }
        case TypeUnaryPlus:
        case TypeUnaryMinus:
            open.push_back({&node->as<Unary>().child, negate != (node->type == TypeUnaryMinus)});
            break;
        case TypeSum: {
            const auto& sum = node->as<Sum>();
            constant = negate ? constant - sum.constant : constant + sum.constant;
            for (auto term = sum.terms.rbegin(); term != sum.terms.rend(); ++term)
                open.push_back({&*term, negate});
            break;
        }
        case TypeConstant:
            constant = negate ? constant - node->getNumVal() : constant + node->getNumVal();
            break;
        case TypeIdentifier:
        case TypeTerm:
            if (!negate) {
                terms.push_back(node);
                break;
            }
            [[fallthrough]];
        default:
            terms.push_back(make<Term>(node->rules, node, negate));
        }
    }
}

void ExprImpl::Term::expand(const NodePtr& root, bool invertRoot, Number& coeff, Nodes& num, Nodes& den)
{
    WorkList<std::pair<const NodePtr*, bool>, 32> open{{&root, invertRoot}};
    const auto scale = [&coeff](const Number& by, bool invert) { coeff = invert ? coeff / by : coeff * by; };
    while (!open.empty()) {
        const auto [slot, invert] = open.back();
        open.pop_back();
        const NodePtr& node = *slot;
        switch (node->type) {
        case TypeMul:
        case TypeDiv: {
            const auto& binary = node->as<Binary>();
            open.push_back({&binary.right, invert != (node->type == TypeDiv)});
            open.push_back({&binary.left, invert});
            continue;
        }
        case TypeUnaryMinus:
            coeff = -coeff;
            [[fallthrough]];
        case TypeUnaryPlus:
            open.push_back({&node->as<Unary>().child, invert});
            continue;
        case TypeTerm: {
            const auto& term = node->as<Term>();
            scale(term.coeff, invert);
            Nodes& above = invert ? den : num;
            Nodes& below = invert ? num : den;
            above.insert(above.end(), term.num.begin(), term.num.end());
            below.insert(below.end(), term.den.begin(), term.den.end());
            continue;
        }
        case TypeConstant:
            scale(node->getNumVal(), invert);
            continue;
        case TypeSum: {
            const auto& sum = node->as<Sum>();
            if (sum.terms.empty()) {
                scale(sum.constant, invert);
                continue;
            }
            if (sum.terms.size() == 1 && sum.constant == 0.0) {
                open.push_back({&sum.terms[0], invert});
                continue;
            }
            break;
        }
        default:
            break;
        }
        (invert ? den : num).push_back(node);
    }
}

namespace {

bool isPlainTerm(const NodePtr& node) { return node->type == Node::TypeTerm || node->type == Node::TypeIdentifier; }

/// A factor that no Term in order has.
bool mustSplice(const NodePtr& node)
{
    if (node->type != Node::TypeSum)
        return node->type == Node::TypeTerm || node->type == Node::TypeConstant || isMultiplicative(node->type);
    const auto& sum = node->as<ExprImpl::Sum>();
    return sum.terms.empty() || (sum.terms.size() == 1 && sum.constant == 0.0);
}

} // namespace

bool ExprImpl::Sum::isCanonical() const { return std::all_of(terms.begin(), terms.end(), isPlainTerm); }

bool ExprImpl::Term::isCanonical() const
{
    return std::none_of(num.begin(), num.end(), mustSplice) && std::none_of(den.begin(), den.end(), mustSplice);
}

bool qxsymbolic::isCanonicalTree(const NodePtr& root)
{
    bool good = true;
    visitNodes(root, [&good](Node& node) {
        if (node.type == Node::TypeTerm)
            good = good && node.as<ExprImpl::Term>().isCanonical();
        else if (node.type == Node::TypeSum)
            good = good && node.as<ExprImpl::Sum>().isCanonical();
    });
    return good;
}

bool ExprImpl::Sum::updateTerms()
{
    if (isCanonical())
        return false;
    Number newConstant = constant;
    Nodes newTerms;
    newTerms.reserve(terms.size());
    for (const NodePtr& term : terms) {
        if (isPlainTerm(term)) {
            newTerms.push_back(term);
        } else if (term->type == TypeSum) {
            const auto& sum = term->as<Sum>();
            newConstant = newConstant + sum.constant;
            newTerms.insert(newTerms.end(), sum.terms.begin(), sum.terms.end());
        } else {
            expand(term, false, newConstant, newTerms);
        }
    }
    constant = newConstant;
    terms.swap(newTerms);
    if (terms.size() > compactAbove && terms.size() > 2 * newTerms.size())
        collectLikeTerms();
    return true;
}

bool ExprImpl::Term::updateFactors()
{
    if (isCanonical())
        return false;
    Number newCoeff = coeff;
    Nodes newNum, newDen;
    for (const NodePtr& factor : num)
        expand(factor, false, newCoeff, newNum, newDen);
    for (const NodePtr& factor : den)
        expand(factor, true, newCoeff, newNum, newDen);
    const std::size_t before = num.size() + den.size();
    coeff = newCoeff;
    num.swap(newNum);
    den.swap(newDen);
    if (num.size() + den.size() > compactAbove && num.size() + den.size() > 2 * before)
        collectPowers();
    return true;
}

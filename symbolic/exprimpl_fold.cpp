// SPDX-License-Identifier: LicenseRef-qxkernel
// Folding of constants.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

using namespace qxsymbolic;

void ExprImpl::Node::foldConstants(NodePtr& slot)
{
    rewritePostOrder(slot, [](NodePtr& node) { node->foldStep(node); });
}

void ExprImpl::Node::foldStep(NodePtr&) {}

namespace {

bool compare(Node::Type type, const Number& a, const Number& b)
{
    switch (type) {
    case Node::TypeLess: return a < b;
    case Node::TypeGreater: return a > b;
    case Node::TypeLessEq: return a <= b;
    case Node::TypeGreaterEq: return a >= b;
    case Node::TypeEqual: return a == b;
    default: return a != b;
    }
}

} // namespace

void ExprImpl::Binary::foldStep(NodePtr& slot)
{
    const NodePtr &l = left, &r = right; // gone once the slot has another node
    const bool constL = l->type == TypeConstant, constR = r->type == TypeConstant;
    if (!constL && !constR)
        return;
    const auto isValue = [](const NodePtr& node, double v) { return node->getNumVal().toReal() == v; };

    switch (type) {
    case TypeLess:
    case TypeGreater:
    case TypeLessEq:
    case TypeGreaterEq:
    case TypeEqual:
    case TypeNotEqual:
        if (constL && constR)
            slot = rules->constant(compare(type, l->getNumVal(), r->getNumVal()) ? 1.0 : 0.0);
        break;
    case TypeAdd:
    case TypeSub: // the sum for both: never reached from simp, where merging leaves no such node; kept for direct callers
        if (constL && constR)
            slot = rules->constant(l->getNumVal() + r->getNumVal());
        break;
    case TypeMul:
        if (constL && isValue(l, 0.0))
            slot = l;
        else if (constL && isValue(l, 1.0))
            slot = r;
        else if (constR && isValue(r, 0.0))
            slot = r;
        else if (constR && isValue(r, 1.0))
            slot = l;
        else if (constL && constR)
            slot = rules->constant(l->getNumVal() * r->getNumVal());
        break;
    case TypeDiv:
        if (constL && constR)
            slot = rules->constant(l->getNumVal() / r->getNumVal());
        else if (constL && isValue(l, 0.0))
            slot = l;
        else if (constR && isValue(r, 0.0))
            QX_RAISE("exprimpl", "Divide_by_zero");
        break;
    case TypePow:
        if (constR && isValue(r, 0.0)) {
            slot = rules->constant(1.0);
        } else if (constR && isValue(r, -1.0)) {
            // A Term at once: a quotient left in the tree could not be differentiated.
            slot = make<Term>(rules, qxsymbolic::makeBinary(rules, TypeDiv, rules->constant(1.0), l), false);
            slot->foldStep(slot);
        } else if (constL && constR) {
            slot = rules->constant(Number::power(l->getNumVal(), r->getNumVal()));
        }
        break;
    default:
        break;
    }
}

void ExprImpl::Sum::foldStep(NodePtr& slot)
{
    updateTerms();
    if (terms.empty())
        slot = rules->constant(constant);
    else if (terms.size() == 1 && constant == 0.0) {
        slot = NodePtr(terms[0]);
        slot->foldStep(slot); // a factor in the wrapping that terms of a sum have, a sign over a sum
    }
}

void ExprImpl::Term::foldStep(NodePtr& slot)
{
    updateFactors();
    if (coeff == 0.0 || (num.empty() && den.empty())) {
        slot = rules->constant(coeff);
        return;
    }
    if (num.size() != 1 || !den.empty())
        return;
    if (coeff == 1.0) {
        slot = NodePtr(num[0]);
        return;
    }
    if (num[0]->type != TypeSum || coeff.toReal() != -1.0)
        return;

    // -(constant + sum of terms): the sign goes to each term.
    const auto& inner = num[0]->as<Sum>();
    Nodes negated;
    negated.reserve(inner.terms.size());
    for (const NodePtr& term : inner.terms) {
        if (term->type == TypeTerm) {
            const auto& t = term->as<Term>();
            negated.push_back(make<Term>(rules, t.num, t.den, -t.coeff));
        } else {
            negated.push_back(make<Term>(rules, term, true));
        }
    }
    slot = make<Sum>(rules, std::move(negated), -inner.constant);
}

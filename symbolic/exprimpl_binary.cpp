// SPDX-License-Identifier: LicenseRef-qxkernel
// Canonical nodes back to unary and binary operations, for consumers that want a plain tree.

#include "exprimpl_detail.hpp"

using namespace qxsymbolic;

namespace {

NodePtr productOf(const RulesPtr& rules, NodePtr product, Nodes::const_iterator from, Nodes::const_iterator to)
{
    for (; from != to; ++from)
        product = product ? makeBinary(rules, Node::TypeMul, product, *from) : *from;
    return product;
}

/// The sum of two, as a sum of squares if it is one.
NodePtr sumOf(const RulesPtr& rules, const NodePtr& left, const NodePtr& right)
{
    NodePtr sum = makeBinary(rules, Node::TypeAdd, left, right);
    sum->binaryStep(sum);
    return sum;
}

bool isSquare(const NodePtr& node)
{
    if (node->type != Node::TypePow)
        return false;
    const NodePtr& exponent = node->as<ExprImpl::Binary>().right;
    return exponent->type == Node::TypeConstant && exponent->getNumVal() == 2.0;
}

} // namespace

void ExprImpl::Node::makeBinary(NodePtr& slot)
{
    rewritePostOrder(slot, [](NodePtr& node) { node->binaryStep(node); });
}

void ExprImpl::Node::binaryStep(NodePtr&) {}

void ExprImpl::Binary::binaryStep(NodePtr& slot)
{
    if (type == TypeAdd && isSquare(left) && isSquare(right))
        slot = make<Binary>(rules, TypeSquareSum, NodePtr(left->as<Binary>().left), NodePtr(right->as<Binary>().left));
}

void ExprImpl::Term::binaryStep(NodePtr& slot)
{
    const NodePtr keep(slot);
    const double c = coeff.toReal();
    const bool negated = c == -1.0 && !num.empty();
    const bool plain = (c == 1.0 || c == -1.0) && !num.empty();

    NodePtr result = productOf(rules, plain ? NodePtr() : rules->constant(coeff), num.begin(), num.end());
    if (!den.empty())
        result = qxsymbolic::makeBinary(rules, TypeDiv, result, productOf(rules, NodePtr(), den.begin(), den.end()));
    slot = negated ? makeUnary(rules, TypeUnaryMinus, result) : result;
}

ExprImpl::NodePtr ExprImpl::Sum::toBinary(int lo, int hi) const
{
    if (lo >= hi)
        return rules->constant(0.0);
    if (hi - lo == 1)
        return terms[static_cast<std::size_t>(lo)];
    const int mid = lo + (hi - lo) / 2;
    return sumOf(rules, toBinary(lo, mid), toBinary(mid, hi));
}

void ExprImpl::Sum::binaryStep(NodePtr& slot)
{
    const NodePtr keep(slot);
    if (terms.empty()) {
        slot = rules->constant(constant);
        return;
    }
    slot = toBinary(0, getChildCount());
    if (constant.toReal() != 0.0)
        slot = sumOf(rules, rules->constant(constant), slot);
}

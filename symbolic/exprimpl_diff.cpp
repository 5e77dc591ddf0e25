// Derivatives, and the solution of linear equations.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <tuple>

using namespace qxsymbolic;

ExprImpl::NodePtr ExprImpl::DiffPass::run(const NodePtr& root)
{
    struct Frame
    {
        const NodePtr* node;
        std::size_t first; // operands[first ..) are still to be visited
    };
    std::vector<const NodePtr*> operands;
    std::vector<Frame> stack;
    const auto open = [&](const NodePtr& node) {
        if (places_.find(node.get()) != NodeIndex::none)
            return;
        stack.push_back({&node, operands.size()});
        node->diffOperands(operands);
    };

    open(root);
    while (!stack.empty()) {
        const Frame top = stack.back();
        if (operands.size() > top.first) {
            const NodePtr& next = *operands.back();
            operands.pop_back();
            open(next);
            continue;
        }
        stack.pop_back();
        if (places_.find(top.node->get()) == NodeIndex::none) {
            NodePtr derivative = (*top.node)->diffStep(*top.node, *this);
            places_.add(top.node->get(), static_cast<std::uint32_t>(derivatives_.size()));
            derivatives_.push_back(std::move(derivative));
        }
    }
    return of(root);
}

ExprImpl::NodePtr ExprImpl::Node::diff(const NodePtr& slot, const VarPtr& var) const { return DiffPass(var).run(slot); }

void ExprImpl::Node::diffOperands(std::vector<const NodePtr*>&) const {}

namespace {

void appendAll(const Nodes& nodes, std::vector<const NodePtr*>& operands)
{
    for (const NodePtr& node : nodes)
        operands.push_back(&node);
}

bool isZero(const NodePtr& node) { return node->type == Node::TypeConstant && node->getNumVal() == 0.0; }
bool isConstant(const NodePtr& node) { return node->type == Node::TypeConstant; }

} // namespace

// Numbers, texts and variables.

ExprImpl::NodePtr ExprImpl::Constant::diffStep(const NodePtr&, DiffPass&) const { return rules->constant(0.0); }
ExprImpl::NodePtr ExprImpl::LiteralValue::diffStep(const NodePtr&, DiffPass&) const { return rules->constant(0.0); }

ExprImpl::NodePtr ExprImpl::Identifier::diffStep(const NodePtr& slot, DiffPass& pass) const
{
    switch (var->getType()) {
    case ExprVar::TypeIndependent:
        return rules->constant(var == pass.var ? 1.0 : 0.0);
    case ExprVar::TypeDifferentiated:
        if (var == pass.var)
            return rules->constant(1.0);
        [[fallthrough]];
    case ExprVar::TypeDependent:
        return make<Derivative>(rules, slot, pass.var);
    default:
        return rules->constant(0.0);
    }
}

// Operators. Sums, differences, products and quotients are Sum and Term nodes by now.

void ExprImpl::Unary::diffOperands(std::vector<const NodePtr*>& operands) const { operands.push_back(&child); }

ExprImpl::NodePtr ExprImpl::Unary::diffStep(const NodePtr&, DiffPass& pass) const
{
    return makeUnary(rules, type, pass.of(child));
}

void ExprImpl::Binary::diffOperands(std::vector<const NodePtr*>& operands) const
{
    if (type == TypeSquareSum || (type == TypePow && !isZero(right))) {
        operands.push_back(&left);
        operands.push_back(&right);
    }
}

namespace {

/// Lists longer than this are left to merging, which looks for repeated factors in them.
constexpr std::size_t fewFactors = 64;

/// a^b b/a a' for a number b, as the one Term that merging and folding would make of it; null where they would do more.
NodePtr powerRule(const NodePtr& power, const NodePtr& da)
{
    const auto& [a, b] = std::tie(power->as<ExprImpl::Binary>().left, power->as<ExprImpl::Binary>().right);
    if (!isConstant(b))
        return NodePtr();
    switch (a->type) {
    case Node::TypeIdentifier:
    case Node::TypeFuncCall:
    case Node::TypePow: break;
    case Node::TypeSum:
        if (a->as<ExprImpl::Sum>().terms.size() >= 2)
            break;
        [[fallthrough]];
    default: return NodePtr();
    }
    Number coeff = b->getNumVal();
    Nodes num{power}, den{a};
    ExprImpl::Term::expand(da, false, coeff, num, den);
    if (num.size() + den.size() > fewFactors)
        return NodePtr();
    return make<ExprImpl::Term>(power->rules, std::move(num), std::move(den), coeff);
}

} // namespace

ExprImpl::NodePtr ExprImpl::Binary::diffStep(const NodePtr& slot, DiffPass& pass) const
{
    const auto binary = [this](Type op, const NodePtr& a, const NodePtr& b) {
        return qxsymbolic::makeBinary(rules, op, a, b);
    };
    switch (type) {
    case TypeAdd:
    case TypeSub:
    case TypeMul:
    case TypeDiv:
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    case TypeSquareSum: // 2 (a a' + b b')
        return binary(TypeMul, rules->constant(2.0),
                      binary(TypeAdd, binary(TypeMul, left, pass.of(left)), binary(TypeMul, right, pass.of(right))));
    case TypePow: { // a^b (b/a a' + log(a) b')
        if (isZero(right))
            return rules->constant(0.0);
        const NodePtr &da = pass.of(left), &db = pass.of(right);
        if (isZero(da) && isZero(db) && !isConstant(left))
            return rules->constant(0.0);
        if (isZero(db))
            if (NodePtr quick = powerRule(slot, da))
                return quick;
        return binary(TypeMul, slot,
                      binary(TypeAdd, binary(TypeMul, binary(TypeDiv, right, left), da),
                             binary(TypeMul, make<FuncCall>(rules, "log", left), db)));
    }
    default:
        return rules->constant(0.0);
    }
}

void ExprImpl::FuncCall::diffOperands(std::vector<const NodePtr*>& operands) const { appendAll(args, operands); }

ExprImpl::NodePtr ExprImpl::FuncCall::diffStep(const NodePtr&, DiffPass& pass) const
{
    Nodes argDerivs;
    argDerivs.reserve(args.size());
    for (const NodePtr& arg : args)
        argDerivs.push_back(pass.of(arg));
    return rules->diff(name, args, argDerivs);
}

ExprImpl::NodePtr ExprImpl::Derivative::diffStep(const NodePtr& slot, DiffPass& pass) const
{
    return make<Derivative>(rules, slot, pass.var);
}

void ExprImpl::List::diffOperands(std::vector<const NodePtr*>& operands) const { appendAll(items, operands); }

ExprImpl::NodePtr ExprImpl::List::diffStep(const NodePtr&, DiffPass& pass) const
{
    Nodes derivs;
    derivs.reserve(items.size());
    for (const NodePtr& item : items)
        derivs.push_back(pass.of(item));
    return make<List>(rules, std::move(derivs));
}

void ExprImpl::UnitConversion::diffOperands(std::vector<const NodePtr*>& operands) const { operands.push_back(&value); }

ExprImpl::NodePtr ExprImpl::UnitConversion::diffStep(const NodePtr&, DiffPass& pass) const
{
    return make<UnitConversion>(rules, pass.of(value), unit);
}

// Sums and products. A summand whose derivative is the constant 0 is left out: folding would drop it.

void ExprImpl::Sum::diffOperands(std::vector<const NodePtr*>& operands) const { appendAll(terms, operands); }

ExprImpl::NodePtr ExprImpl::Sum::diffStep(const NodePtr&, DiffPass& pass) const
{
    Nodes derivs;
    for (const NodePtr& term : terms)
        if (const NodePtr& d = pass.of(term); !isZero(d))
            derivs.push_back(d);
    return derivs.empty() ? rules->constant(0.0) : make<Sum>(rules, std::move(derivs), Number());
}

void ExprImpl::Term::diffOperands(std::vector<const NodePtr*>& operands) const
{
    appendAll(num, operands);
    appendAll(den, operands);
}

namespace {

/// Leibniz: the sum of the products in which one factor at a time is replaced by its derivative.
NodePtr diffProduct(const RulesPtr& rules, const Nodes& factors, ExprImpl::DiffPass& pass)
{
    Nodes summands;
    for (std::size_t i = 0; i < factors.size(); ++i) {
        const NodePtr& d = pass.of(factors[i]);
        if (isZero(d))
            continue;
        Nodes product = factors;
        product[i] = d;
        summands.push_back(make<ExprImpl::Term>(rules, std::move(product), Nodes(), Number(1)));
    }
    return summands.empty() ? rules->constant(0.0) : make<ExprImpl::Sum>(rules, std::move(summands), Number());
}

} // namespace

ExprImpl::NodePtr ExprImpl::Term::diffStep(const NodePtr&, DiffPass& pass) const
{
    if (num.empty() && den.empty())
        return rules->constant(0.0);
    const auto binary = [this](Type op, const NodePtr& a, const NodePtr& b) {
        return qxsymbolic::makeBinary(rules, op, a, b);
    };
    NodePtr quotient = diffProduct(rules, num, pass);
    if (den.empty() && num.size() <= fewFactors && !isZero(quotient)) { // coeff * quotient, as merging would make it
        const auto& sum = quotient->as<Sum>();
        return make<Term>(rules, sum.terms.size() == 1 ? sum.terms[0]->as<Term>().num : Nodes{quotient}, Nodes(), coeff);
    }
    if (!den.empty()) { // (N' D - N D') / D^2
        const NodePtr N = make<Term>(rules, num, Nodes(), Number(1));
        const NodePtr D = make<Term>(rules, den, Nodes(), Number(1));
        const NodePtr dD = diffProduct(rules, den, pass);
        if (isZero(quotient) && isZero(dD))
            return rules->constant(0.0);
        quotient = binary(TypeDiv, binary(TypeSub, binary(TypeMul, quotient, D), binary(TypeMul, N, dD)),
                          binary(TypePow, D, rules->constant(2.0)));
    }
    return isZero(quotient) ? quotient : binary(TypeMul, rules->constant(coeff), quotient);
}

// Linear equations.

bool ExprImpl::Node::solveFor(const VarPtr& var, ExprImpl& result)
{
    bool solved = false;
    for (NodePtr next = solveStep(var, result, solved); next;)
        next = NodePtr(next)->solveStep(var, result, solved);
    return solved;
}

ExprImpl::NodePtr ExprImpl::Node::solveStep(const VarPtr&, ExprImpl&, bool&) { return NodePtr(); }

ExprImpl::NodePtr ExprImpl::Identifier::solveStep(const VarPtr&, ExprImpl& result, bool& solved)
{
    result.setRoot(rules->constant(0.0));
    solved = true;
    return NodePtr();
}

ExprImpl::NodePtr ExprImpl::Term::solveStep(const VarPtr&, ExprImpl&, bool&)
{
    return coeff.toReal() != 0.0 && num.size() == 1 && den.empty() ? num[0] : NodePtr();
}

ExprImpl::NodePtr ExprImpl::Sum::solveStep(const VarPtr& var, ExprImpl& result, bool& solved)
{
    if (!isCanonical()) {
        const auto canonical = boost::make_shared<Sum>(rules, terms, constant);
        canonical->updateTerms();
        return canonical;
    }
    if (terms.size() == 1 && constant == 0.0)
        return terms[0];

    const auto isVar = [&var](const NodePtr& node) {
        return node->type == TypeIdentifier && node->as<Identifier>().var == var;
    };
    for (std::size_t i = 0; i < terms.size(); ++i) {
        Number a(1);
        if (!isVar(terms[i])) {
            if (terms[i]->type != TypeTerm)
                continue;
            const auto& term = terms[i]->as<Term>();
            if (term.num.size() != 1 || !term.den.empty() || !isVar(term.num[0]) || term.coeff.toReal() == 0.0)
                continue;
            a = term.coeff;
        }
        Nodes others = terms;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
        others.push_back(rules->constant(constant));
        const NodePtr rest = make<Sum>(rules, std::move(others), Number());
        result.setRoot(qxsymbolic::makeBinary(rules, TypeMul, rest, make<Constant>(rules, Number(-1) / a)));
        solved = true;
        break;
    }
    return NodePtr();
}

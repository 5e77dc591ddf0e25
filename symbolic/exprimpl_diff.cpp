// SPDX-License-Identifier: LicenseRef-qxkernel
// Derivatives, and the solution of linear equations.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

using namespace qxsymbolic;

ExprImpl::NodePtr ExprImpl::DiffPass::run(const NodePtr& root)
{
    struct Frame
    {
        const NodePtr* node;
        std::size_t first; // operands[first ..) are still to be visited
    };
    std::vector<const NodePtr*> operands;
    operands.reserve(32);
    WorkList<Frame, 32> stack;
    const auto open = [&](const NodePtr& node) {
        if (places_.find(node.get()) != NodeIndex::none)
            return;
        stack.push_back({&node, operands.size()});
        node->diffOperands(operands);
    };

    Current& now = current();
    open(root);
    while (!stack.empty()) {
        work(now, 1);
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

/// Products of more factors are left to merging, which looks for repeated ones among them.
constexpr std::size_t fewFactors = 64;

/// Whether merging would make products of few factors of them, and no more than that.
bool isShortProduct(std::span<const NodePtr> factors)
{
    WorkList<const Node*, 32> open;
    for (const NodePtr& factor : factors)
        open.push_back(factor.get());
    for (std::size_t count = 0; !open.empty(); ++count) {
        const Node& node = *open.back();
        open.pop_back();
        const int n = node.getChildCount();
        switch (node.type) {
        case Node::TypeSum:
            if (n > 1)
                break;
            [[fallthrough]];
        case Node::TypeMul:
        case Node::TypeDiv:
        case Node::TypeAdd:
        case Node::TypeSub:
        case Node::TypeUnaryPlus:
        case Node::TypeUnaryMinus:
        case Node::TypeTerm:
            for (int i = 0; i < n && count + open.size() <= fewFactors; ++i)
                open.push_back(node.childAt(i).get());
            break;
        default: break;
        }
        if (count + open.size() > fewFactors)
            return false;
    }
    return true;
}

// Derivatives of nested products grow by some factors from level to level. Lists of factors within lists would be copied at
// each level when they are merged; a chain of operators is merged in one go, through however many levels it runs. So what
// is no longer short becomes a chain.

NodePtr multiplied(const RulesPtr& rules, NodePtr chain, const Nodes& factors)
{
    for (const NodePtr& factor : factors)
        chain = makeBinary(rules, Node::TypeMul, chain, factor);
    return chain;
}

/// The Term that merging makes of coeff times factors.
NodePtr product(const RulesPtr& rules, Number coeff, std::span<const NodePtr> factors)
{
    Nodes num, den;
    for (const NodePtr& factor : factors)
        ExprImpl::Term::expand(factor, false, coeff, num, den);
    return make<ExprImpl::Term>(rules, std::move(num), std::move(den), coeff);
}

/// a^b b/a a' for a number b, as the one Term that merging would make of it while it is short.
NodePtr powerRule(const NodePtr& power, const NodePtr& da)
{
    const RulesPtr& rules = power->rules;
    const NodePtr &a = power->as<ExprImpl::Binary>().left, &b = power->as<ExprImpl::Binary>().right;
    if (!isShortProduct(std::span(&da, 1)))
        return makeBinary(rules, Node::TypeMul, makeBinary(rules, Node::TypeDiv, multiplied(rules, b, {power}), a), da);
    Number coeff = b->getNumVal();
    Nodes num{power}, den{a};
    ExprImpl::Term::expand(da, false, coeff, num, den);
    return make<ExprImpl::Term>(rules, std::move(num), std::move(den), coeff);
}

/// Whether a^b b/a a' may be written as a product: merging and folding do more with other bases.
bool isPlainBase(const NodePtr& a)
{
    return a->type == Node::TypeIdentifier || a->type == Node::TypeFuncCall || a->type == Node::TypePow ||
           (a->type == Node::TypeSum && a->as<ExprImpl::Sum>().terms.size() >= 2);
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
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing", "Reason",
                 "the expression must be simplified before it is differentiated");
    case TypeSquareSum: // 2 (a a' + b b')
        return binary(TypeMul, rules->constant(2.0),
                      binary(TypeAdd, binary(TypeMul, left, pass.of(left)), binary(TypeMul, right, pass.of(right))));
    case TypePow: { // a^b (b/a a' + log(a) b')
        if (isZero(right))
            return rules->constant(0.0);
        const NodePtr &da = pass.of(left), &db = pass.of(right);
        if (isZero(da) && isZero(db) && !isConstant(left))
            return rules->constant(0.0);
        if (isZero(db) && isConstant(right) && isPlainBase(left))
            return powerRule(slot, da);
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
    if (derivs.empty())
        return rules->constant(0.0);
    if (derivs.size() == 1 && !isShortProduct(derivs))
        return derivs[0];
    return make<Sum>(rules, std::move(derivs), Number());
}

void ExprImpl::Term::diffOperands(std::vector<const NodePtr*>& operands) const
{
    appendAll(num, operands);
    appendAll(den, operands);
}

namespace {

using Products = WorkList<Nodes, 4>;

/// Leibniz: the products in which one factor at a time is replaced by its derivative, each as a list of factors.
Products diffProduct(const Nodes& factors, ExprImpl::DiffPass& pass)
{
    Products products;
    for (std::size_t i = 0; i < factors.size(); ++i) {
        const NodePtr& d = pass.of(factors[i]);
        if (isZero(d))
            continue;
        work(current(), factors.size());
        products.push_back(factors);
        products.back()[i] = d;
    }
    return products;
}

/// Factors whose product is the sum of products.
Nodes sumOf(const RulesPtr& rules, Products&& products)
{
    if (products.size() == 1)
        return std::move(products[0]);
    Nodes terms;
    terms.reserve(products.size());
    for (Nodes& product : products)
        terms.push_back(make<ExprImpl::Term>(rules, std::move(product), Nodes(), Number(1)));
    return {make<ExprImpl::Sum>(rules, std::move(terms), Number())};
}

} // namespace

ExprImpl::NodePtr ExprImpl::Term::diffStep(const NodePtr&, DiffPass& pass) const
{
    Products dNum = diffProduct(num, pass), dDen = diffProduct(den, pass);
    if (dNum.empty() && dDen.empty())
        return rules->constant(0.0);
    const auto binary = [this](Type op, const NodePtr& a, const NodePtr& b) {
        return qxsymbolic::makeBinary(rules, op, a, b);
    };
    const auto term = [this](Nodes&& factors) { return make<Term>(rules, std::move(factors), Nodes(), Number(1)); };
    const bool changesAbove = !dNum.empty(), changesBelow = !dDen.empty();
    Nodes dN = changesAbove ? sumOf(rules, std::move(dNum)) : Nodes();
    Nodes dD = changesBelow ? sumOf(rules, std::move(dDen)) : Nodes();

    if (den.empty()) {
        if (isShortProduct(dN))
            return make<Term>(rules, std::move(dN), Nodes(), coeff);
        return multiplied(rules, rules->constant(coeff), dN);
    }
    // coeff (N' D - N D') / D^2
    const NodePtr D = term(Nodes(den));
    const NodePtr squareOfD = binary(TypePow, D, rules->constant(2.0));
    if (!changesBelow && !isShortProduct(dN))
        return binary(TypeDiv, binary(TypeMul, multiplied(rules, rules->constant(coeff), dN), D), squareOfD);
    if (!changesAbove && !isShortProduct(dD))
        return binary(TypeDiv, multiplied(rules, multiplied(rules, rules->constant(-coeff), num), dD), squareOfD);
    const NodePtr parts[] = {changesAbove ? term(std::move(dN)) : rules->constant(0.0), D, term(Nodes(num)),
                             changesBelow ? term(std::move(dD)) : rules->constant(0.0)};
    const std::span<const NodePtr> all(parts);
    if (isShortProduct(all)) { // as merging would leave it
        Nodes difference{product(rules, Number(1), all.first(2)), product(rules, Number(-1), all.subspan(2))};
        return make<Term>(rules, Nodes{make<Sum>(rules, std::move(difference), Number())}, Nodes{squareOfD}, coeff);
    }
    const NodePtr dND = binary(TypeMul, parts[0], parts[1]), NdD = binary(TypeMul, parts[2], parts[3]);
    return binary(TypeMul, rules->constant(coeff), binary(TypeDiv, binary(TypeSub, dND, NdD), squareOfD));
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

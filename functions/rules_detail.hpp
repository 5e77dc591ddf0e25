// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Derivative rules in the notation of mathematics: a Term is a node together with the factory that builds on it, so that
// 1.0 / square(cos(u)) builds (and folds) that node.

#include "evalnodes.hpp"
#include "nodemaker.hpp"

#include <boost/make_shared.hpp>

namespace qxfun_detail {

class Term
{
public:
    Term(EvalNodePtr node, NodeMaker& maker) : node_(std::move(node)), maker_(&maker) {}

    const EvalNodePtr& node() const { return node_; }
    NodeMaker& maker() const { return *maker_; }
    Term constant(double value) const { return {maker_->makeConstNode(value), *maker_}; }
    Term apply(FunId id) const { return {maker_->makeOpNode(id, node_), *maker_}; }
    Term apply(FunId id, const Term& right) const { return {maker_->makeOpNode(id, node_, right.node_), *maker_}; }
    Term apply(const FunObjPtr& f) const { return {maker_->makeOpNode(f, node_), *maker_}; }
    Term apply(const FunObjPtr& f, const Term& right) const { return {maker_->makeOpNode(f, node_, right.node_), *maker_}; }
    bool isReal(double& value) const { return node_->isRealScalar(value); }

private:
    EvalNodePtr node_;
    NodeMaker* maker_;
};

inline Term operator+(const Term& a, const Term& b) { return a.apply(PLUS, b); }
inline Term operator-(const Term& a, const Term& b) { return a.apply(MINUS, b); }
inline Term operator*(const Term& a, const Term& b) { return a.apply(TIMES, b); }
inline Term operator/(const Term& a, const Term& b) { return a.apply(DIV, b); }
inline Term operator-(const Term& a) { return a.apply(UMINUS); }
inline Term operator+(const Term& a, double b) { return a + a.constant(b); }
inline Term operator-(const Term& a, double b) { return a - a.constant(b); }
inline Term operator-(double a, const Term& b) { return b.constant(a) - b; }
inline Term operator*(double a, const Term& b) { return b.constant(a) * b; }
inline Term operator/(double a, const Term& b) { return b.constant(a) / b; }
inline Term operator<(const Term& a, const Term& b) { return a.apply(LT, b); }
inline Term operator>(const Term& a, const Term& b) { return a.apply(GT, b); }

inline Term square(const Term& u) { return u.apply(POW2); }
inline Term cube(const Term& u) { return u.apply(POW3); }
inline Term pow(const Term& u, const Term& v) { return u.apply(POW, v); }
inline Term sqrt(const Term& u) { return u.apply(SQRT); }
inline Term exp(const Term& u) { return u.apply(EXP); }
inline Term log(const Term& u) { return u.apply(LOG); }
inline Term sin(const Term& u) { return u.apply(SIN); }
inline Term cos(const Term& u) { return u.apply(COS); }

/// F(u) for a function class without an operator id. The object is made once.
template <class F>
Term call(const Term& u)
{
    static const FunObjPtr f = boost::make_shared<F>();
    return u.apply(f);
}

// Rules that several functions share.
inline Term derivativeOne(const Term& u) { return u.constant(1.0); }
inline Term derivativeOne(const Term& u, const Term&) { return u.constant(1.0); }
inline Term derivativeMinusOne(const Term& u) { return u.constant(-1.0); }

} // namespace qxfun_detail

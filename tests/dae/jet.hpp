// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprimpl.hpp"

#include <array>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>

/// Values of expressions along a curve, by arithmetic on Taylor polynomials: an account of time derivatives that shares
/// nothing with the symbolic rules.
namespace qxtest {

/// c[k] t^k summed over k: a function of time around t = 0, exact up to the order that is kept.
struct Jet
{
    static constexpr int n = 9;
    std::array<double, n> c{};

    static Jet constant(double value)
    {
        Jet j;
        j.c[0] = value;
        return j;
    }
    /// k-th derivative at 0.
    double derivative(int k) const { return std::tgamma(k + 1.0) * c[k]; }
};

inline Jet operator+(const Jet& a, const Jet& b)
{
    Jet r;
    for (int k = 0; k < Jet::n; ++k)
        r.c[k] = a.c[k] + b.c[k];
    return r;
}

inline Jet operator*(double s, const Jet& a)
{
    Jet r;
    for (int k = 0; k < Jet::n; ++k)
        r.c[k] = s * a.c[k];
    return r;
}

inline Jet operator-(const Jet& a, const Jet& b) { return a + (-1.0) * b; }

inline Jet operator*(const Jet& a, const Jet& b)
{
    Jet r;
    for (int k = 0; k < Jet::n; ++k)
        for (int i = 0; i <= k; ++i)
            r.c[k] += a.c[i] * b.c[k - i];
    return r;
}

inline Jet operator/(const Jet& a, const Jet& b)
{
    Jet r;
    for (int k = 0; k < Jet::n; ++k) {
        double s = a.c[k];
        for (int i = 0; i < k; ++i)
            s -= r.c[i] * b.c[k - i];
        r.c[k] = s / b.c[0];
    }
    return r;
}

/// The time derivative; the highest coefficient is lost.
inline Jet timeDerivative(const Jet& a)
{
    Jet r;
    for (int k = 0; k + 1 < Jet::n; ++k)
        r.c[k] = (k + 1) * a.c[k + 1];
    return r;
}

/// f with f' = rate and a value at 0.
inline Jet integral(const Jet& rate, double start)
{
    Jet r = Jet::constant(start);
    for (int k = 1; k < Jet::n; ++k)
        r.c[k] = rate.c[k - 1] / k;
    return r;
}

inline Jet exp(const Jet& a)
{
    // f' = a' f, coefficient by coefficient.
    Jet r = Jet::constant(std::exp(a.c[0]));
    for (int k = 1; k < Jet::n; ++k) {
        for (int i = 1; i <= k; ++i)
            r.c[k] += i * a.c[i] * r.c[k - i];
        r.c[k] /= k;
    }
    return r;
}

inline Jet log(const Jet& a) { return integral(timeDerivative(a) / a, std::log(a.c[0])); }

/// sin and cos together: s' = a' c, c' = -a' s.
inline std::pair<Jet, Jet> sinCos(const Jet& a)
{
    Jet s = Jet::constant(std::sin(a.c[0]));
    Jet c = Jet::constant(std::cos(a.c[0]));
    for (int k = 1; k < Jet::n; ++k) {
        for (int i = 1; i <= k; ++i) {
            s.c[k] += i * a.c[i] * c.c[k - i] / k;
            c.c[k] -= i * a.c[i] * s.c[k - i] / k;
        }
    }
    return {s, c};
}

inline Jet power(const Jet& a, const Jet& b)
{
    bool isConstant = true;
    for (int k = 1; k < Jet::n; ++k)
        isConstant = isConstant && b.c[k] == 0.0;
    const double p = b.c[0];
    if (!isConstant || p != std::round(p) || std::abs(p) > 16.0)
        return exp(b * log(a));
    Jet r = Jet::constant(1.0);
    for (int i = 0; i < std::abs(p); ++i)
        r = r * a;
    return p < 0.0 ? Jet::constant(1.0) / r : r;
}

using JetOf = std::function<Jet(const std::string&)>;

/// The value of an expression, given the jets of its variables. The time must be among these.
inline Jet valueOf(const ExprImpl::NodePtr& node, const JetOf& jetOf)
{
    using Node = ExprImpl::Node;
    const auto child = [&](int i) { return valueOf(node->childAt(i), jetOf); };
    switch (node->type) {
    case Node::TypeUnaryPlus: return child(0);
    case Node::TypeUnaryMinus: return -1.0 * child(0);
    case Node::TypeAdd: return child(0) + child(1);
    case Node::TypeSub: return child(0) - child(1);
    case Node::TypeMul: return child(0) * child(1);
    case Node::TypeDiv: return child(0) / child(1);
    case Node::TypePow: return power(child(0), child(1));
    case Node::TypeDerivative: return timeDerivative(child(0));
    case Node::TypeIdentifier: return jetOf(node->as<ExprImpl::Identifier>().var->getName());
    case Node::TypeConstant: return Jet::constant(node->getNumVal().toReal());
    case Node::TypeUnparsedNumber: return Jet::constant(node->as<ExprImpl::UnparsedNumber>().value);
    case Node::TypeTerm: {
        const auto& term = node->as<ExprImpl::Term>();
        Jet value = Jet::constant(term.coeff.toReal());
        for (const auto& factor : term.num)
            value = value * valueOf(factor, jetOf);
        for (const auto& factor : term.den)
            value = value / valueOf(factor, jetOf);
        return value;
    }
    case Node::TypeSum: {
        const auto& sum = node->as<ExprImpl::Sum>();
        Jet value = Jet::constant(sum.constant.toReal());
        for (const auto& term : sum.terms)
            value = value + valueOf(term, jetOf);
        return value;
    }
    case Node::TypeFuncCall: {
        const std::string& name = node->as<ExprImpl::FuncCall>().name;
        if (name == "sin")
            return sinCos(child(0)).first;
        if (name == "cos")
            return sinCos(child(0)).second;
        if (name == "exp")
            return exp(child(0));
        if (name == "log")
            return log(child(0));
        if (name == "sqrt")
            return exp(0.5 * log(child(0)));
        break;
    }
    default: break;
    }
    throw std::invalid_argument("no value for " + node->toString());
}

} // namespace qxtest

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun_basic.hpp"

#include "functions/records_detail.hpp"

#include <numbers>

using namespace qxfun_detail;
using K = qxkernels::KernelTable;

static constexpr ErrorKeys sqrtErrors{"evalfun_basic", "sqrt"}, logErrors{"evalfun_basic", "log"},
    erfErrors{"evalfun_basic", "nan", "erf"}, modErrors{"evalfun_basic", "impl"};

static Term absDerivative(const Term& u) { return u.apply(SIGN); }
static Term expDerivative(const Term& u) { return exp(u); }
static Term sqrtDerivative(const Term& u) { return 0.5 / sqrt(u); }
static Term logDerivative(const Term& u) { return 1.0 / u; }
static Term log10Derivative(const Term& u) { return 1.0 / (std::numbers::ln10 * u); }
static Term log2Derivative(const Term& u) { return 1.0 / (std::numbers::ln2 * u); }
static Term erfDerivative(const Term& u) { return 2.0 * std::numbers::inv_sqrtpi * exp(-square(u)); }
static Term isLess(const Term& u, const Term& v) { return u < v; }
static Term isGreater(const Term& u, const Term& v) { return u > v; }
static Term first(const Term& u, const Term&) { return u; }
static Term second(const Term&, const Term& v) { return v; }
static Term modDerivative2(const Term& u, const Term& v) { return -call<FloorFun>(u / v); }

QX_DEFINE_UNARY(SignFun, "sign", kRealIfReal, &K::Sign)
QX_DEFINE_UNARY(ExpFun, "exp", kRealIfReal, &K::Exp, expDerivative)
QX_DEFINE_UNARY(SqrtFun, "sqrt", 0, &K::Sqrt, sqrtDerivative, sqrtErrors)
QX_DEFINE_UNARY(ArgFun, "arg", kAlwaysReal | kRealIfReal, &K::Arg)
QX_DEFINE_UNARY(AbsFun, "abs", kAlwaysReal | kRealIfReal, &K::Abs, absDerivative)
// As functions of a real argument.
QX_DEFINE_UNARY(RealFun, "real", kAlwaysReal | kRealIfReal, &K::Real, derivativeOne)
QX_DEFINE_UNARY(ImagFun, "imag", kAlwaysReal | kRealIfReal, &K::Imag)
QX_DEFINE_UNARY(ConjFun, "conj", kRealIfReal, &K::Conj, derivativeOne)
QX_DEFINE_UNARY(LogFun, "log", 0, &K::Log, logDerivative, logErrors)
QX_DEFINE_UNARY(Log10Fun, "log10", 0, &K::Log10, log10Derivative, logErrors)
QX_DEFINE_UNARY(Log2Fun, "log2", 0, &K::Log2, log2Derivative, logErrors)
QX_DEFINE_UNARY(ErfFun, "erf", kRealIfReal, &K::Erf, erfDerivative, erfErrors)
QX_DEFINE_UNARY(RoundFun, "round", kRealIfReal, &K::Round)
QX_DEFINE_UNARY(CeilFun, "ceil", kRealIfReal, &K::Ceil)
QX_DEFINE_UNARY(FloorFun, "floor", kRealIfReal, &K::Floor)
QX_DEFINE_UNARY(FixFun, "fix", kRealIfReal, &K::Fix)

QX_DEFINE_BINARY(RealDotFun, "realdot", kAlwaysReal | kRealIfReal, &K::RealDot, second, first)
QX_DEFINE_BINARY(MinFun, "min", kRealIfReal, &K::Min, isLess, isGreater)
QX_DEFINE_BINARY(MaxFun, "max", kRealIfReal, &K::Max, isGreater, isLess)
QX_DEFINE_BINARY(ModFun, "mod", kRealIfReal, &K::Mod, derivativeOne, modDerivative2, modErrors)

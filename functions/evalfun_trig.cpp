// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun_trig.hpp"

#include "functions/records_detail.hpp"

using namespace qxfun_detail;
using K = qxkernels::KernelTable;

static constexpr ErrorKeys rangeErrors{"evalfun_trig", "range"};

static Term sinDerivative(const Term& u) { return cos(u); }
static Term cosDerivative(const Term& u) { return -sin(u); }
static Term tanDerivative(const Term& u) { return 1.0 / square(cos(u)); }
static Term cotDerivative(const Term& u) { return -(1.0 / square(sin(u))); }
static Term secDerivative(const Term& u) { return call<SecFun>(u) * call<TanFun>(u); }
static Term cscDerivative(const Term& u) { return -(call<CscFun>(u) * call<CotFun>(u)); }
static Term asinDerivative(const Term& u) { return 1.0 / sqrt(1.0 - square(u)); }
static Term acosDerivative(const Term& u) { return -asinDerivative(u); }
static Term atanDerivative(const Term& u) { return 1.0 / (square(u) + 1.0); }
static Term acotDerivative(const Term& u) { return -atanDerivative(u); }
static Term asecDerivative(const Term& u) { return 1.0 / (square(u) * sqrt(1.0 - 1.0 / square(u))); }
static Term acscDerivative(const Term& u) { return -asecDerivative(u); }
static Term atan2ByY(const Term& y, const Term& x) { return x / y.apply(PLUSSQ, x); }
static Term atan2ByX(const Term& y, const Term& x) { return -(y / y.apply(PLUSSQ, x)); }

QX_DEFINE_UNARY(SinFun, "sin", kRealIfReal, &K::Sin, sinDerivative)
QX_DEFINE_UNARY(CosFun, "cos", kRealIfReal, &K::Cos, cosDerivative)
QX_DEFINE_UNARY(TanFun, "tan", kRealIfReal, &K::Tan, tanDerivative)
QX_DEFINE_UNARY(SecFun, "sec", kRealIfReal, &K::Sec, secDerivative)
QX_DEFINE_UNARY(CscFun, "csc", kRealIfReal, &K::Csc, cscDerivative)
QX_DEFINE_UNARY(CotFun, "cot", kRealIfReal, &K::Cot, cotDerivative)
QX_DEFINE_UNARY(AsinFun, "asin", 0, &K::Asin, asinDerivative, rangeErrors)
QX_DEFINE_UNARY(AcosFun, "acos", 0, &K::Acos, acosDerivative, rangeErrors)
QX_DEFINE_UNARY(AtanFun, "atan", kRealIfReal, &K::Atan, atanDerivative)
QX_DEFINE_UNARY(AcotFun, "acot", kRealIfReal, &K::Acot, acotDerivative)
QX_DEFINE_UNARY(AsecFun, "asec", 0, &K::Asec, asecDerivative, rangeErrors)
QX_DEFINE_UNARY(AcscFun, "acsc", 0, &K::Acsc, acscDerivative, rangeErrors)
QX_DEFINE_BINARY(Atan2Fun, "atan2", kAlwaysReal | kRealIfReal, &K::Atan2, atan2ByY, atan2ByX)

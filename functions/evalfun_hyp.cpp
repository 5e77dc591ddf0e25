// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun_hyp.hpp"

#include "functions/records_detail.hpp"

using namespace qxfun_detail;
using K = qxkernels::KernelTable;

static constexpr ErrorKeys rangeErrors{"evalfun_hyp", "range"};

static Term sinhDerivative(const Term& u) { return call<CoshFun>(u); }
static Term coshDerivative(const Term& u) { return call<SinhFun>(u); }
static Term tanhDerivative(const Term& u) { return 1.0 / square(call<CoshFun>(u)); }
static Term cothDerivative(const Term& u) { return -(1.0 / square(call<SinhFun>(u))); }
static Term sechDerivative(const Term& u) { return -(call<SechFun>(u) * call<TanhFun>(u)); }
static Term cschDerivative(const Term& u) { return -(call<CschFun>(u) * call<CothFun>(u)); }
static Term asinhDerivative(const Term& u) { return 1.0 / sqrt(square(u) + 1.0); }
static Term acoshDerivative(const Term& u) { return 1.0 / sqrt(square(u) - 1.0); }
static Term atanhDerivative(const Term& u) { return 1.0 / (1.0 - square(u)); }
static Term asechDerivative(const Term& u)
{
    return -(1.0 / (square(u) * (sqrt(1.0 / u - 1.0) * sqrt(1.0 / u + 1.0))));
}
static Term acschDerivative(const Term& u) { return -(1.0 / (square(u) * sqrt(1.0 / square(u) + 1.0))); }

QX_DEFINE_UNARY(SinhFun, "sinh", kRealIfReal, &K::Sinh, sinhDerivative)
QX_DEFINE_UNARY(CoshFun, "cosh", kRealIfReal, &K::Cosh, coshDerivative)
QX_DEFINE_UNARY(TanhFun, "tanh", kRealIfReal, &K::Tanh, tanhDerivative)
QX_DEFINE_UNARY(SechFun, "sech", kRealIfReal, &K::Sech, sechDerivative)
QX_DEFINE_UNARY(CschFun, "csch", kRealIfReal, &K::Csch, cschDerivative)
QX_DEFINE_UNARY(CothFun, "coth", kRealIfReal, &K::Coth, cothDerivative)
QX_DEFINE_UNARY(AsinhFun, "asinh", kRealIfReal, &K::Asinh, asinhDerivative)
QX_DEFINE_UNARY(AcoshFun, "acosh", 0, &K::Acosh, acoshDerivative, rangeErrors)
QX_DEFINE_UNARY(AtanhFun, "atanh", 0, &K::Atanh, atanhDerivative, rangeErrors)
QX_DEFINE_UNARY(AcothFun, "acoth", 0, &K::Acoth, atanhDerivative, rangeErrors)
QX_DEFINE_UNARY(AsechFun, "asech", 0, &K::Asech, asechDerivative, rangeErrors)
QX_DEFINE_UNARY(AcschFun, "acsch", kRealIfReal, &K::Acsch, acschDerivative)

// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun_binary.hpp"

#include "functions/records_detail.hpp"
#include "funfactory.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>

using namespace qxfun_detail;
using namespace qxkernels;
using K = KernelTable;

static constexpr ErrorKeys divErrors{"evalfun_binary", "div"}, powErrors{"evalfun_binary", "pow"};

// ---- derivatives

/// u^e, through the shared operators where there is one.
static Term wholePower(const Term& u, double e)
{
    if (e == 0.0)
        return u.constant(1.0);
    if (e == 1.0)
        return u;
    if (e >= -2.0 && e <= 4.0)
        return pow(u, u.constant(e));
    return u.apply(makeConstPow(e));
}

static bool isWhole(double e) { return std::floor(e) == e && std::isfinite(e); }

static Term multByX(const Term&, const Term& v) { return v; }
static Term multByY(const Term& u, const Term&) { return u; }
static Term minusByY(const Term& u, const Term&) { return u.constant(-1.0); }
static Term divByX(const Term&, const Term& v) { return 1.0 / v; }
static Term divByY(const Term& u, const Term& v) { return -(u / square(v)); }
static Term plusSqByX(const Term& u, const Term&) { return 2.0 * u; }
static Term plusSqByY(const Term&, const Term& v) { return 2.0 * v; }
static Term powByX(const Term& u, const Term& v)
{
    double e;
    if (v.isReal(e) && isWhole(e))
        return e * wholePower(u, e - 1.0);
    return v * pow(u, v - 1.0);
}
static Term powByY(const Term& u, const Term& v) { return log(u) * pow(u, v); }

// ---- simplification: the identities that need no look at the values

static EvalNodePtr simplifyUPlus(const FunObjPtr&, const EvalNodes& args, NodeMaker&) { return args[0]; }

static EvalNodePtr simplifyPlus(const FunObjPtr&, const EvalNodes& args, NodeMaker& maker)
{
    if (args[0]->isZero())
        return args[1];
    if (args[1]->isZero())
        return args[0];
    return maker.makeOpNode(PLUS, args);
}

static EvalNodePtr simplifyMinus(const FunObjPtr&, const EvalNodes& args, NodeMaker& maker)
{
    if (args[1]->isZero())
        return args[0];
    if (args[0]->isZero())
        return maker.makeOpNode(UMINUS, args[1]);
    return maker.makeOpNode(MINUS, args);
}

static EvalNodePtr simplifyMult(const FunObjPtr&, const EvalNodes& args, NodeMaker& maker)
{
    if (args[0]->isZero())
        return args[0];
    if (args[1]->isZero())
        return args[1];
    if (args[0]->isUnit())
        return args[1];
    if (args[1]->isUnit())
        return args[0];
    if (args[0]->isNUnit())
        return maker.makeOpNode(UMINUS, args[1]);
    if (args[1]->isNUnit())
        return maker.makeOpNode(UMINUS, args[0]);
    return maker.makeOpNode(TIMES, args);
}

template <FunId id>
static EvalNodePtr rebuild(const FunObjPtr&, const EvalNodes& args, NodeMaker& maker)
{
    return maker.makeOpNode(id, args);
}

// ---- the operators

static constexpr unsigned kLogic = kAlwaysReal | kRealIfReal | kOperator;
static constexpr unsigned kSum = kRealIfReal | kLinear1 | kLinear2 | kOperator;

QX_DEFINE_UNARY(UPlusFun, "U+", kRealIfReal | kLinear1 | kOperator, &K::UPlus, derivativeOne, {}, simplifyUPlus)
QX_DEFINE_UNARY(UMinusFun, "U-", kRealIfReal | kLinear1 | kOperator, &K::UMinus, derivativeMinusOne)
QX_DEFINE_UNARY(UNotFun, "!", kAlwaysReal | kRealIfReal, &K::Not)

QX_DEFINE_BINARY(PlusFun, "+", kSum, &K::Plus, derivativeOne, derivativeOne, {}, simplifyPlus)
QX_DEFINE_BINARY(MinusFun, "-", kSum, &K::Minus, derivativeOne, minusByY, {}, simplifyMinus)
QX_DEFINE_BINARY(MultFun, "*", kSum, &K::Mult, multByX, multByY, {}, simplifyMult)
QX_DEFINE_BINARY(PlusSqFun, "plussq", kRealIfReal, &K::PlusSq, plusSqByX, plusSqByY, {}, rebuild<PLUSSQ>)
QX_DEFINE_BINARY(PowFun, "^", kOperator, &K::Pow, powByX, powByY, powErrors, rebuild<POW>)

QX_DEFINE_BINARY(LTFun, "<", kLogic, &K::LT)
QX_DEFINE_BINARY(GTFun, ">", kLogic, &K::GT)
QX_DEFINE_BINARY(LEFun, "<=", kLogic, &K::LE)
QX_DEFINE_BINARY(GEFun, ">=", kLogic, &K::GE)
QX_DEFINE_BINARY(EQFun, "==", kLogic, &K::EQ)
QX_DEFINE_BINARY(NEFun, "!=", kLogic, &K::NE)
QX_DEFINE_BINARY(AndFun, "&&", kLogic, &K::And)
QX_DEFINE_BINARY(OrFun, "||", kLogic, &K::Or)

/// An array is divided by a real number through its reciprocal: one division in all.
static unsigned divide(double* out, const double* x, const double* y, unsigned shape, std::size_t n)
{
    const bool realNumber = (shape & kYScalar) != 0 && ((shape & kYComplex) == 0 || y[1] == 0.0);
    const bool complexArray = (shape & (kXComplex | kLikeY)) == kXComplex;
    if (!realNumber || (shape & kXScalar) != 0 || (!complexArray && shape != kYScalar)) // no array by a real number
        return kernels().Div(out, x, y, shape, n);
    if (*y == 0.0) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        if (!complexArray) {
            std::fill_n(out, n, nan);
            return kFunDomain;
        }
        unsigned bits = kFunDomain;
        for (std::size_t i = 0; i < n; ++i) { // without an imaginary part as in real storage
            const bool real = x[2 * i + 1] == 0.0;
            bits |= real ? 0u : kFunComplex;
            out[2 * i] = nan;
            out[2 * i + 1] = real ? 0.0 : nan;
        }
        return bits;
    }
    const double inverse = 1.0 / *y;
    return kernels().Mult(out, x, &inverse, complexArray ? unsigned(kXComplex | kYScalar) : shape, n);
}

static const BinaryRecord recordDiv = {"/", kRealIfReal | kLinear1 | kOperator, &K::Div, divByX, divByY, divErrors, rebuild<DIV>};
DivFun::DivFun() : KernelBinFun(recordDiv, divide) {}

// ---- powers with a fixed exponent

ConstPowFun::ConstPowFun(double e) : exponent_(e) {}

/// The kernel of an exponent that is computed by products.
const Unary* ConstPowFun::loops() const
{
    const KernelTable& k = kernels();
    const double e = exponent_;
    return e == 2.0 ? &k.Pow2 : e == 3.0 ? &k.Pow3 : e == 4.0 ? &k.Pow4 : e == -1.0 ? &k.PowM1 : e == -2.0 ? &k.PowM2 : nullptr;
}

unsigned int ConstPowFun::applyReal(double* out, const double* x, std::size_t n) const
{
    if (const Unary* const kernel = loops())
        return kernel->real(out, x, n);
    const unsigned bits = kernels().Pow(out, x, &exponent_, kYScalar, n);
    return isWhole(exponent_) && exponent_ >= 0.0 ? 0u : bits;
}

unsigned int ConstPowFun::applyComplex(double* out, const double* z, std::size_t n) const
{
    if (const Unary* const kernel = loops())
        return kernel->complex(out, z, n);
    return kernels().Pow(out, z, &exponent_, kXComplex | kYScalar, n);
}

bool ConstPowFun::isRealIfReal() const { return isWhole(exponent_); }

EvalNodePtr ConstPowFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    if (argIndex != 1)
        return maker->makeZeroNode();
    const Term u(args[0], *maker);
    if (exponent_ == -1.0)
        return (-(1.0 / square(u))).node();
    if (exponent_ == -2.0)
        return (-2.0 / cube(u)).node();
    return (exponent_ * wholePower(u, exponent_ - 1.0)).node();
}

void ConstPowFun::ostreamOperator(const EvalNodes& args, std::ostream& stream) const
{
    stream << '(';
    args[0]->ostreamOperator(stream);
    stream << '^' << qxutil::formatDouble(exponent_, 6) << ')';
}

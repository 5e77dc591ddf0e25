// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun_kernel.hpp"

// The operators of the expression language.

/// +a
class QX_API UPlusFun : public KernelUnFun
{
public:
    UPlusFun();
};

/// -a
class QX_API UMinusFun : public KernelUnFun
{
public:
    UMinusFun();
};

/// !a: 1 when all parts are 0, else 0 (also for NaN).
class QX_API UNotFun : public KernelUnFun
{
public:
    UNotFun();
};

/// a + b. With one complex operand only real parts are touched. A complex target stays flagged complex.
class QX_API PlusFun : public KernelBinFun
{
public:
    PlusFun();
};

/// a - b.
class QX_API MinusFun : public KernelBinFun
{
public:
    MinusFun();
};

/// a * b; complex products by the formula, without recovery of infinities.
class QX_API MultFun : public KernelBinFun
{
public:
    MultFun();
};

/// plussq(a, b): a*a + b*b, without conjugation.
class QX_API PlusSqFun : public KernelBinFun
{
public:
    PlusSqFun();
    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;
};

/// a ^ b. Real form, tests in this order: a = 0 gives 1 for b = 0 and else 0, also for b < 0; b = 2 a*a; b = 1 a;
/// b = 0 1; otherwise the power, 1 ulp; error "pow" for NaN. Complex form: the same tests; real operands with a real
/// power keep to the real form; otherwise exp(b log a).
class QX_API PowFun : public KernelBinFun
{
public:
    PowFun();
};

/// Comparisons and logic give 1 or 0 and are always real. <, >, <=, >= compare real parts, false for NaN.
class QX_API LTFun : public KernelBinFun
{
public:
    LTFun();
};

/// a > b
class QX_API GTFun : public KernelBinFun
{
public:
    GTFun();
};

/// a <= b
class QX_API LEFun : public KernelBinFun
{
public:
    LEFun();
};

/// a >= b
class QX_API GEFun : public KernelBinFun
{
public:
    GEFun();
};

/// a == b, both parts.
class QX_API EQFun : public KernelBinFun
{
public:
    EQFun();
};

/// a != b, both parts.
class QX_API NEFun : public KernelBinFun
{
public:
    NEFun();
};

/// a && b: a number is true when a part is not 0.
class QX_API AndFun : public KernelBinFun
{
public:
    AndFun();
};

/// a || b
class QX_API OrFun : public KernelBinFun
{
public:
    OrFun();
};

/// a / b. Real array by a real number b: multiplied by 1/b, so that the last bit may differ from an element division; an
/// array of NaN for b = 0. Otherwise element division. Complex: Smith's method in extended precision; (re/0, im/0) for
/// b = 0. A zero divisor sets the error bit, which evaluation ignores for the name "/": infinities and NaN are results.
class QX_API DivFun : public KernelBinFun
{
public:
    DivFun();
};

/// a ^ e for a fixed exponent, with the tests of PowFun. The exponents 2, 3, 4, -1 and -2 are products: x*x, x*(x*x),
/// (x*x)*(x*x), 1/x and (1/x)*(1/x). Real if real for a whole e.
class QX_API ConstPowFun : public LoopUnFun
{
public:
    explicit ConstPowFun(double e);

    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    std::string getName() const override { return "^"; }
    void ostreamOperator(const EvalNodes& args, std::ostream& stream) const override;
    bool isRealIfReal() const override;

    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;
    double getExponent() const { return exponent_; }
    const qxkernels::Unary* loops() const override;

protected:
    unsigned int applyReal(double* out, const double* x, std::size_t n) const override;
    unsigned int applyComplex(double* out, const double* z, std::size_t n) const override;

private:
    double exponent_;
};

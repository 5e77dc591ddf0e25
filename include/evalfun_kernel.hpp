// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun.hpp"

#include <cstddef>

namespace qxfun_detail {
struct UnaryRecord;
struct BinaryRecord;
} // namespace qxfun_detail
namespace qxkernels {
struct Unary;
}

/// Function of one argument whose four forms are one loop over reals and one over complex numbers, given as (re, im)
/// pairs. Scalars are arrays of one element: a constant that was folded and an array that was evaluated have the same
/// bits.
class QX_API LoopUnFun : public UnFunObj
{
public:
    using UnFunObj::operator();
    unsigned int operator()(const D& x) const override;
    unsigned int operator()(const C& x) const override;
    unsigned int operator()(const DA& x, Size size) const override;
    unsigned int operator()(const CA& x, Size size) const override;
    bool unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const override;
    /// The loops over elements where they are all that a call consists of; null otherwise.
    virtual const qxkernels::Unary* loops() const { return nullptr; }

protected:
    /// out = f(x) over n elements; out may be x.
    virtual unsigned int applyReal(double* out, const double* x, std::size_t n) const = 0;
    virtual unsigned int applyComplex(double* out, const double* z, std::size_t n) const = 0;
};

/// Function of two arguments whose sixteen forms are one loop.
class QX_API LoopBinFun : public BinFunObj
{
public:
    using BinFunObj::operator();
    unsigned int operator()(const D& x, const D& y, int which) const override;
    unsigned int operator()(const C& x, const D& y, int which) const override;
    unsigned int operator()(const D& x, const C& y, int which) const override;
    unsigned int operator()(const C& x, const C& y, int which) const override;
    unsigned int operator()(const DA& x, const D& y, Size size, int which) const override;
    unsigned int operator()(const CA& x, const D& y, Size size, int which) const override;
    unsigned int operator()(const DA& x, const C& y, Size size, int which) const override;
    unsigned int operator()(const CA& x, const C& y, Size size, int which) const override;
    unsigned int operator()(const D& x, const DA& y, Size size, int which) const override;
    unsigned int operator()(const C& x, const DA& y, Size size, int which) const override;
    unsigned int operator()(const D& x, const CA& y, Size size, int which) const override;
    unsigned int operator()(const C& x, const CA& y, Size size, int which) const override;
    unsigned int operator()(const DA& x, const DA& y, Size size, int which) const override;
    unsigned int operator()(const CA& x, const DA& y, Size size, int which) const override;
    unsigned int operator()(const DA& x, const CA& y, Size size, int which) const override;
    unsigned int operator()(const CA& x, const CA& y, Size size, int which) const override;
    bool binaryInto(double* out, const double* x, const double* y, unsigned shape, std::size_t n,
                    unsigned& bits) const override;

protected:
    /// out = f(x, y) over n elements. out may be x or y. shape: which operand is one number for all, which is complex, and
    /// which one has the storage type of out (the bits of qxkernels::Shape).
    virtual unsigned int apply(double* out, const double* x, const double* y, unsigned shape, std::size_t n) const = 0;

private:
    template <class X, class Y>
    unsigned int run(const X& x, const Y& y, Size size, int which) const;
};

/// A built-in function of one argument: a kernel, and one record with everything else that it says.
class QX_API KernelUnFun : public LoopUnFun
{
public:
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    EvalNodePtr simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const override;
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    std::string getName() const override;
    void ostreamOperator(const EvalNodes& args, std::ostream& stream) const override;
    bool isAlwaysReal() const override;
    bool isRealIfReal() const override;
    bool isLinear(int argIndex) const override;
    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;
    bool unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const override;

    const qxkernels::Unary* loops() const override { return &loops_; }

protected:
    explicit KernelUnFun(const qxfun_detail::UnaryRecord& record);
    unsigned int applyReal(double* out, const double* x, std::size_t n) const override;
    unsigned int applyComplex(double* out, const double* z, std::size_t n) const override;

private:
    const qxfun_detail::UnaryRecord& record_;
    const qxkernels::Unary& loops_;
};

/// A built-in function or operator of two arguments.
class QX_API KernelBinFun : public LoopBinFun
{
public:
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    EvalNodePtr simpRule(const FunObjPtr& self, const EvalNodes& args, const NodeMakerPtr& maker) const override;
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    std::string getName() const override;
    void ostreamOperator(const EvalNodes& args, std::ostream& stream) const override;
    bool isAlwaysReal() const override;
    bool isRealIfReal() const override;
    bool isLinear(int argIndex) const override;
    /// The compiler's kind of the same name; refused if there is none.
    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;

    using Loop = unsigned (*)(double* out, const double* x, const double* y, unsigned shape, std::size_t n);
    /// The loop over elements, which tells a function apart from others.
    Loop loop() const { return loop_; }

protected:
    /// own: the loop, if it is not simply the record's kernel.
    explicit KernelBinFun(const qxfun_detail::BinaryRecord& record, Loop own = nullptr);
    unsigned int apply(double* out, const double* x, const double* y, unsigned shape, std::size_t n) const final
    {
        return loop_(out, x, y, shape, n);
    }

private:
    const qxfun_detail::BinaryRecord& record_;
    Loop loop_;
};

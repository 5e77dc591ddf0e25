// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun_kernel.hpp"
#include "polyevaluator.hpp"

#include <vector>

/// Smoothed step f(x, w): low for x < 0, high for x > 0, and between them, for |x| < |w|, a polynomial of x / w.
///
///   |w| > |x|:  p(x / w);    otherwise, with q = x / w:  low for q < 0, else high
///
/// The comparison comes first, so the division only decides the side. Hence high at x = w, for x = w = 0 and for a NaN x;
/// w = -0.0 exchanges the sides. Complex arguments: by the moduli, the sign of Re q and the complex polynomial; a w with
/// an imaginary part that is not 0 is the error "trans".
class QX_API TransPolyFun : public LoopBinFun
{
public:
    TransPolyFun(const std::string& name, const boost::shared_ptr<PolyEvaluator>& poly, double low, double high);

    /// d/dx = D(x, w), d/dw = -(x / w) D(x, w) with the Dirac function D of p', whose name has a "d" after "qx".
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    std::string getName() const override { return name_; }
    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;

protected:
    unsigned int apply(double* out, const double* x, const double* w, unsigned shape, std::size_t n) const override;

private:
    std::string name_;
    boost::shared_ptr<PolyEvaluator> poly_;
    double low_, high_;
};

/// Derivative of a smoothed step: p(x / w) / w for |w| > |x|, otherwise 0. Complex arguments as for the step.
class QX_API DiracPolyFun : public LoopBinFun
{
public:
    DiracPolyFun(const std::string& name, const boost::shared_ptr<PolyEvaluator>& poly);

    /// With E the Dirac function of p':  d/dx = E(x, w) / w,  d/dw = -(D(x, w) + (x / w) E(x, w)) / w.
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    std::string getName() const override { return name_; }
    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;

protected:
    unsigned int apply(double* out, const double* x, const double* w, unsigned shape, std::size_t n) const override;

private:
    std::string name_;
    boost::shared_ptr<PolyEvaluator> poly_;
};

/// A function of one argument given by pieces: piece k on [bounds[k], bounds[k+1]], the right end of the last one
/// included.
class QX_API PiecewisePolyFun : public LoopUnFun
{
public:
    using Pieces = std::vector<boost::shared_ptr<ExtendedPolyEvaluatorBase>>;

    /// Keeps the pieces. realIfReal and linear are what the object answers.
    /// Raises (evalfun_spec) "Piecewise_unsupported_intervals" for no piece, or a number of bounds that is not one more
    /// than that of the pieces; "Piecewise_specification_out_of_order" for bounds that do not increase, or a NaN;
    /// "Piecewise_unsupported_order" for a piece that is null.
    PiecewisePolyFun(const std::string& name, const std::vector<double>& bounds, const Pieces& pieces, bool realIfReal,
                     bool linear);

    /// Index of the piece whose interval holds x, -1 outside (and for NaN).
    int locatePolynom(double x) const;

    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    /// "piecewise_range" outside the intervals, "piecewise_cmplx" for an imaginary part that is not 0.
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    std::string getName() const override { return name_; }
    bool isRealIfReal() const override { return realIfReal_; }
    bool isLinear(int argIndex) const override { return argIndex == 1 && linear_; }

protected:
    unsigned int applyReal(double* out, const double* x, std::size_t n) const override;
    unsigned int applyComplex(double* out, const double* z, std::size_t n) const override;

private:
    double value(double x, unsigned& bits) const;

    std::string name_;
    std::vector<double> bounds_;
    Pieces pieces_;
    bool realIfReal_, linear_;
};

/// Bessel functions of real order (argument 1) and real or complex argument (argument 2), kind by name: "besselj" and
/// "bessel", "bessely", "besseli", "besselk". Accuracy and branches: qxspecfun.hpp.
///
/// An element whose function has no finite value is NaN with the error "bessel_range"; a complex order, or a complex value
/// of real arguments where real storage is kept, gives "bessel_cmplx".
class QX_API BesselFun : public LoopBinFun
{
public:
    /// Raises "Evaluation_internal_error" (evalfun_spec) for another name.
    explicit BesselFun(const std::string& name);

    /// By the argument: (f(nu-1) - f(nu+1)) / 2 for J and Y, (I(nu-1) + I(nu+1)) / 2, -(K(nu-1) + K(nu+1)) / 2
    /// (DLMF 10.6.1, 10.29.1). By the order: 0.
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    std::string getName() const override { return name_; }
    bool isRealIfReal() const override { return false; }

    int getKind() const { return kind_; }

protected:
    unsigned int apply(double* out, const double* nu, const double* z, unsigned shape, std::size_t n) const override;

private:
    std::string name_;
    int kind_;
};

/// The sum of its arguments, added from left to right.
class QX_API GenAddFun : public MultiFunObj
{
public:
    using MultiFunObj::operator();
    GenAddFun(const std::string& name, int nArgs);

    unsigned int operator()(const std::vector<D>& args, int which) const override;
    unsigned int operator()(const std::vector<C>& args, int which) const override;
    unsigned int operator()(const std::vector<DA>& args, Size size, int which) const override;
    unsigned int operator()(const std::vector<CA>& args, Size size, int which) const override;
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    bool isLinear(int) const override { return true; }
    int createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                   const VarEvaluatorPtr& evaluator) const override;
};

/// The eight smoothed steps and their derivatives that the expression language knows, by name ("qxsmhs", "qxdsmhs", ...).
/// Raises "Evaluation_internal_error" (evalfun_spec) for another name.
QX_API FunObjPtr makeStepFunction(const std::string& name);

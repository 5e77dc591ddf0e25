// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun.hpp"
#include "qxexport.hpp"

#include <string>
#include <vector>

/// A function that is defined outside, in Java: what a host's getFun returns for one.
///
/// All points are evaluated by one call of com/quorix/server/MatlabEvaluator.evalMat(name, in, out) for each block:
/// in has the arguments one behind the other, scalars repeated over the points, out one number for each point. Complex
/// arguments go to complexName in the layout that Callback describes; without that name an argument with an imaginary
/// part that is not 0 is an element error. Real arguments give a real result.
///
/// A NaN in the result is an element error that names the function. A status other than 0 raises "Error_in_callback"
/// (callback) with "Function" and "Status"; an exception in Java and a missing virtual machine raise what Callback
/// raises. Constant arguments are evaluated when the tree is made.
///
/// Threads: as Callback; a thread that evaluates often should hold a qxutil::AttachThread.
class QX_API ExternFun : public MultiFunObj
{
public:
    /// derivatives, if given: the functions that are the partial derivatives with respect to each argument, of the same
    /// arguments; an empty name stands for none. Raises "Wrong_number_of_function_arguments" (externfun) with "Name" for
    /// nArgs below 1 and for another number of derivatives.
    ExternFun(const std::string& name, int nArgs, const std::string& complexName = "",
              const std::vector<std::string>& derivatives = {}, const std::vector<std::string>& complexDerivatives = {});
    using MultiFunObj::operator();

    // With one argument the unary forms, which leave an operand that must be kept where it is, else the n-ary ones.
    unsigned int operator()(const D& x) const override;
    unsigned int operator()(const C& x) const override;
    unsigned int operator()(const DA& x, Size size) const override;
    unsigned int operator()(const CA& x, Size size) const override;
    unsigned int operator()(const std::vector<D>& args, int which) const override;
    unsigned int operator()(const std::vector<C>& args, int which) const override;
    unsigned int operator()(const std::vector<DA>& args, Size size, int which) const override;
    unsigned int operator()(const std::vector<CA>& args, Size size, int which) const override;

    /// Raises "Differentiation_rule_missing" (externfun) with "Function" and the name unless the derivative is given.
    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    bool isBuiltin() const override { return false; }
    bool isMulti() const override { return nArgs() > 1; }
    bool unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const override;

private:
    unsigned real(const std::vector<const double*>& args, std::size_t n, double* out) const;
    unsigned complex(const std::vector<const std::complex<double>*>& args, std::size_t n, std::complex<double>* out) const;

    std::string complexName_;
    std::vector<std::string> derivatives_, complexDerivatives_;
};

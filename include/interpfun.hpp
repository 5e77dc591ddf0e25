// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalfun.hpp"
#include "interptable.hpp"

#include <mutex>

/// A table as a function of the expression language: mu(T), k(x,y). As many arguments as the table has axes.
///
/// The derivative by argument k is the function of Interpolator::diff, named after this one with "_d" and k ("mu_d1"), or
/// the zero node; each is made once, so that a derivative that occurs often shares one table.
///
/// The result is real. Element errors, each with its message and "fun":
///     "interp_cmplx"  an argument with an imaginary part that is not 0 (complex storage alone is no error)
///     "interp_range"  a point outside the table, when that is asked for; its derivatives have the same limits
///     "nan"           an argument is NaN, whatever the interpolator would make of it
///     "funeval"       the interpolator gives NaN
/// createDefs raises "Cannot create definitions from " and the name: class files have no tables.
///
/// Hosts give it out from VarEvaluator::getFun. Cost: of Interpolator::evaluate, and one pass over the arguments.
/// Threads: as every function object; no allocation in calls.
class QX_API InterpFun : public MultiFunObj
{
public:
    /// errorOutside: points outside the axes of the table are errors.
    /// Fails: "Wrong_size_of_interpolation_data" for less than 1 or more than 32 axes.
    InterpFun(const std::string& name, const boost::shared_ptr<const Interpolator>& interpolator, bool errorOutside = false);
    /// A table by the names of its options.
    InterpFun(const std::string& name, const InterpTable& table);
    ~InterpFun() override;

    using MultiFunObj::operator();
    unsigned int operator()(const D& x) const override;
    unsigned int operator()(const C& x) const override;
    unsigned int operator()(const DA& x, Size size) const override;
    unsigned int operator()(const CA& x, Size size) const override;
    unsigned int operator()(const std::vector<D>& args, int which) const override;
    unsigned int operator()(const std::vector<C>& args, int which) const override;
    unsigned int operator()(const std::vector<DA>& args, Size size, int which) const override;
    unsigned int operator()(const std::vector<CA>& args, Size size, int which) const override;

    EvalNodePtr diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const override;
    boost::shared_ptr<ErrInfo> makeError(unsigned int bits) const override;
    /// A function of one argument uses the unary forms.
    bool isMulti() const override { return nArgs() != 1; }
    bool unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const override;

    const boost::shared_ptr<const Interpolator>& getInterpolator() const { return interpolator_; }

private:
    using Ranges = std::vector<std::pair<double, double>>;
    InterpFun(const std::string& name, const boost::shared_ptr<const Interpolator>& interpolator, const Ranges& limits);

    unsigned markErrors(const double* const* args, std::size_t n, bool* bad) const;
    unsigned applyReal(double* out, const double* const* args, std::size_t n) const;
    unsigned applyComplex(double* out, const double* const* args, std::size_t n) const;
    FunObjPtr derivative(int argIndex) const;

    boost::shared_ptr<const Interpolator> interpolator_;
    Ranges limits_; ///< beyond which points are errors

    struct Derivative
    {
        bool known = false;
        FunObjPtr fun; ///< null for zero
    };
    mutable std::mutex mutex_;
    mutable std::vector<Derivative> derivatives_; ///< under the mutex
};

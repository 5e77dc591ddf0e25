// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"
#include "qxexport.hpp"

#include <complex>
#include <utility>
#include <vector>

/// A polynomial-like function of one variable. Immutable, shared freely between threads.
class QX_API PolyInterface
{
public:
    virtual ~PolyInterface();
    virtual double operator()(double x) const = 0;
    virtual std::complex<double> operator()(const std::complex<double>& x) const = 0;
    virtual boost::shared_ptr<PolyInterface> diff() const = 0;
};

/// sum_k c[k] x^k by Horner's rule.
class QX_API PolyEvaluator : public PolyInterface
{
public:
    explicit PolyEvaluator(std::vector<double> coefficients) : c_(std::move(coefficients)) {}
    double operator()(double x) const override;
    std::complex<double> operator()(const std::complex<double>& x) const override;
    boost::shared_ptr<PolyInterface> diff() const override { return derivative(); }
    boost::shared_ptr<PolyEvaluator> derivative() const;
    const std::vector<double>& coefficients() const { return c_; }

private:
    std::vector<double> c_;
};

/// sum_k c[k] x^-k by Horner's rule in 1 / x; c[0] is the constant.
class QX_API NegativePolyEvaluator : public PolyInterface
{
public:
    explicit NegativePolyEvaluator(std::vector<double> coefficients) : c_(std::move(coefficients)) {}
    double operator()(double x) const override;
    std::complex<double> operator()(const std::complex<double>& x) const override;
    boost::shared_ptr<PolyInterface> diff() const override;

private:
    std::vector<double> c_;
};

/// sum of c x^e over (exponent e, coefficient c); any real exponents.
class QX_API GenericPolyEvaluator : public PolyInterface
{
public:
    using Terms = std::vector<std::pair<double, double>>;
    explicit GenericPolyEvaluator(Terms terms) : terms_(std::move(terms)) {}
    double operator()(double x) const override;
    std::complex<double> operator()(const std::complex<double>& x) const override;
    boost::shared_ptr<PolyInterface> diff() const override;

private:
    Terms terms_;
};

/// A sum of such functions: one piece of a piecewise function.
class QX_API ExtendedPolyEvaluatorBase
{
public:
    using Sum = std::vector<boost::shared_ptr<PolyInterface>>;

    virtual ~ExtendedPolyEvaluatorBase();
    virtual double operator()(double x) const = 0;
    virtual std::complex<double> operator()(const std::complex<double>& x) const = 0;
    virtual boost::shared_ptr<ExtendedPolyEvaluatorBase> diff() const = 0;
};

/// sum_k f_k(x).
class QX_API ExtendedPolyEvaluator : public ExtendedPolyEvaluatorBase
{
public:
    explicit ExtendedPolyEvaluator(Sum sum) : sum_(std::move(sum)) {}
    double operator()(double x) const override;
    std::complex<double> operator()(const std::complex<double>& x) const override;
    boost::shared_ptr<ExtendedPolyEvaluatorBase> diff() const override;

private:
    Sum sum_;
};

/// With a scaled variable: factor * sum_k f_k((x - shift) / scale).
class QX_API ExtendedPolyEvaluatorSN : public ExtendedPolyEvaluatorBase
{
public:
    ExtendedPolyEvaluatorSN(Sum sum, double shift, double scale, double factor);
    double operator()(double x) const override;
    std::complex<double> operator()(const std::complex<double>& x) const override;
    boost::shared_ptr<ExtendedPolyEvaluatorBase> diff() const override;

private:
    Sum sum_;
    double shift_, scale_, factor_;
};

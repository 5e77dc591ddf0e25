// SPDX-License-Identifier: LicenseRef-qxkernel
#include "polyevaluator.hpp"

#include <boost/make_shared.hpp>
#include <cmath>

using Complex = std::complex<double>;

namespace {

template <class T>
T horner(const std::vector<double>& c, const T& x)
{
    T sum{};
    for (std::size_t k = c.size(); k-- > 0;)
        sum = sum * x + c[k];
    return sum;
}

template <class T>
T powerSum(const GenericPolyEvaluator::Terms& terms, const T& x)
{
    T sum{};
    for (const auto& [exponent, coefficient] : terms)
        sum += coefficient * std::pow(x, exponent);
    return sum;
}

ExtendedPolyEvaluatorBase::Sum derivatives(const ExtendedPolyEvaluatorBase::Sum& sum)
{
    ExtendedPolyEvaluatorBase::Sum result;
    for (const auto& f : sum)
        result.push_back(f->diff());
    return result;
}

template <class T>
T total(const ExtendedPolyEvaluatorBase::Sum& sum, const T& x)
{
    T result{};
    for (const auto& f : sum)
        result += (*f)(x);
    return result;
}

} // namespace

PolyInterface::~PolyInterface() = default;
ExtendedPolyEvaluatorBase::~ExtendedPolyEvaluatorBase() = default;

double PolyEvaluator::operator()(double x) const { return horner(c_, x); }
Complex PolyEvaluator::operator()(const Complex& x) const { return horner(c_, x); }
boost::shared_ptr<PolyEvaluator> PolyEvaluator::derivative() const
{
    std::vector<double> d;
    for (std::size_t k = 1; k < c_.size(); ++k)
        d.push_back(static_cast<double>(k) * c_[k]);
    return boost::make_shared<PolyEvaluator>(std::move(d));
}

double NegativePolyEvaluator::operator()(double x) const { return horner(c_, 1.0 / x); }
Complex NegativePolyEvaluator::operator()(const Complex& x) const { return horner(c_, 1.0 / x); }
boost::shared_ptr<PolyInterface> NegativePolyEvaluator::diff() const
{
    std::vector<double> d(c_.size() + 1, 0.0); // (c x^-k)' = -k c x^-(k+1)
    for (std::size_t k = 1; k < c_.size(); ++k)
        d[k + 1] = -static_cast<double>(k) * c_[k];
    return boost::make_shared<NegativePolyEvaluator>(std::move(d));
}

double GenericPolyEvaluator::operator()(double x) const { return powerSum(terms_, x); }
Complex GenericPolyEvaluator::operator()(const Complex& x) const { return powerSum(terms_, x); }
boost::shared_ptr<PolyInterface> GenericPolyEvaluator::diff() const
{
    Terms d;
    for (const auto& [exponent, coefficient] : terms_)
        if (exponent != 0.0)
            d.emplace_back(exponent - 1.0, exponent * coefficient);
    return boost::make_shared<GenericPolyEvaluator>(std::move(d));
}

double ExtendedPolyEvaluator::operator()(double x) const { return total(sum_, x); }
Complex ExtendedPolyEvaluator::operator()(const Complex& x) const { return total(sum_, x); }
boost::shared_ptr<ExtendedPolyEvaluatorBase> ExtendedPolyEvaluator::diff() const
{
    return boost::make_shared<ExtendedPolyEvaluator>(derivatives(sum_));
}

ExtendedPolyEvaluatorSN::ExtendedPolyEvaluatorSN(Sum sum, double shift, double scale, double factor)
    : sum_(std::move(sum)), shift_(shift), scale_(scale), factor_(factor)
{
}
double ExtendedPolyEvaluatorSN::operator()(double x) const { return factor_ * total(sum_, (x - shift_) / scale_); }
Complex ExtendedPolyEvaluatorSN::operator()(const Complex& x) const { return factor_ * total(sum_, (x - shift_) / scale_); }
boost::shared_ptr<ExtendedPolyEvaluatorBase> ExtendedPolyEvaluatorSN::diff() const
{
    return boost::make_shared<ExtendedPolyEvaluatorSN>(derivatives(sum_), shift_, scale_, factor_ / scale_);
}

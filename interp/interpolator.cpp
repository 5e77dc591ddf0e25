// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interpolator.hpp"

#include "cubicinterpolator.hpp"
#include "gridinterpolator.hpp"
#include "interp/checks_detail.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

using namespace qxinterp_detail;

Interpolator::~Interpolator() = default;

boost::shared_ptr<Interpolator> Interpolator::createInterpolator(const AxesPtr& axes, const ValuesPtr& values,
                                                                 const std::string& method, ExtMethod extMethod,
                                                                 double extValue)
{
    if (extMethod < ExtDefault || extMethod > ExtLine)
        QX_RAISE("interpolator", "Unknown_extrapolation_method", "Method", static_cast<int>(extMethod));
    if (method == "neighbor")
        return boost::make_shared<NNGridInterpolator>(axes, values, extMethod, extValue);
    if (method == "linear")
        return boost::make_shared<LinGridInterpolator>(axes, values, extMethod, extValue);
    if (method == "piecewisecubic" || method == "cubicspline")
        return boost::make_shared<CubicInterpolator>(axes, values, method, extMethod, extValue);
    QX_RAISE("interpolator", "Unknown_interpolation_method", "Method", method);
}

boost::shared_ptr<Interpolator> Interpolator::createStdCubic(const AxesPtr& axes, const ValuesPtr& values,
                                                             const std::string& method, std::vector<double>& coeffs)
{
    const auto cubic = boost::make_shared<CubicInterpolator>(axes, values, method, ExtContinue, 0.0);
    coeffs = cubic->getCoeffFlat();
    return cubic;
}

double ZeroInterpolator::operator()(const std::vector<double>& x) const
{
    if (dim_ != 0)
        checkCoordinates(x, dim_);
    return 0.0;
}

boost::shared_ptr<Interpolator> ZeroInterpolator::diff(const int& axis) const
{
    if (dim_ != 0)
        checkAxis(axis, dim_);
    return boost::make_shared<ZeroInterpolator>(dim_);
}

void ZeroInterpolator::evaluate(const double* const*, std::size_t n, double* out) const { std::fill_n(out, n, 0.0); }

std::pair<double, double> ZeroInterpolator::range(int axis) const
{
    if (dim_ != 0)
        checkAxis(axis, dim_);
    return {-qxGetInf(), qxGetInf()};
}

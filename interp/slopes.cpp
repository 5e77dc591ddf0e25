// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interp/slopes_detail.hpp"

#include <cmath>
#include <cstddef>

namespace qxinterp_detail {

namespace {

/// Interval widths and secant slopes.
struct Secants
{
    Secants(const std::vector<double>& x, const std::vector<double>& y) : h(x.size() - 1), del(x.size() - 1)
    {
        for (std::size_t i = 0; i < h.size(); ++i) {
            h[i] = x[i + 1] - x[i];
            del[i] = (y[i + 1] - y[i]) / h[i];
        }
    }
    std::vector<double> h, del;
};

/// Slope at an end from the two nearest intervals, the end's own one first: that of their parabola, unless the curve would
/// turn back or overshoot.
double endSlope(double h0, double h1, double del0, double del1)
{
    const double d = del0 - h0 / (h0 + h1) * (del1 - del0);
    if (!(d * del0 > 0.0))
        return 0.0;
    if (del0 * del1 < 0.0 && std::fabs(d) > 3.0 * std::fabs(del0))
        return 3.0 * del0;
    return d;
}

} // namespace

std::vector<double> monotoneSlopes(const std::vector<double>& x, const std::vector<double>& y)
{
    const auto [h, del] = Secants(x, y);
    const std::size_t n = h.size();
    std::vector<double> d(n + 1, 0.0);
    d[0] = endSlope(h[0], h[1], del[0], del[1]);
    for (std::size_t i = 1; i < n; ++i) {
        if (!(del[i - 1] * del[i] > 0.0))
            continue;
        const double w1 = (1.0 + h[i - 1] / (h[i - 1] + h[i])) / 3.0;
        const double w2 = (1.0 + h[i] / (h[i - 1] + h[i])) / 3.0;
        d[i] = del[i - 1] * del[i] / (w1 * del[i - 1] + w2 * del[i]);
    }
    d[n] = endSlope(h[n - 1], h[n - 2], del[n - 1], del[n - 2]);
    return d;
}

/// Equal second derivatives at the inner points give, for the slopes d,
///
///     h_i d_{i-1} + 2 (h_{i-1} + h_i) d_i + h_{i-1} d_{i+1} = 3 (h_i del_{i-1} + h_{i-1} del_i),   0 < i < n,
///
/// and equal third derivatives at the second point and the last but one
///
///     h_1 d_0 + (h_0 + h_1) d_1 = ((2 h_1 + 3 h_0) h_1 del_0 + h_0^2 del_1) / (h_0 + h_1)
///
/// and its mirror image. Taking these from the first and the last inner equation removes d_0 and d_n; what remains is
/// solved by elimination without exchanges, whose pivots stay above h_{i-1} + h_i, but for the last one.
std::vector<double> splineSlopes(const std::vector<double>& x, const std::vector<double>& y)
{
    const auto [h, del] = Secants(x, y);
    const std::size_t n = h.size();
    std::vector<double> d(n + 1);
    if (n == 2) { // both end conditions are the same equation: a parabola closes the system
        const double c = (del[1] - del[0]) / (h[0] + h[1]);
        d[0] = del[0] - h[0] * c;
        d[1] = (h[1] * del[0] + h[0] * del[1]) / (h[0] + h[1]);
        d[2] = del[1] + h[1] * c;
        return d;
    }
    const auto endValue = [](double h0, double h1, double del0, double del1) {
        return ((2.0 * h1 + 3.0 * h0) * h1 * del0 + h0 * h0 * del1) / (h0 + h1);
    };
    const double first = endValue(h[0], h[1], del[0], del[1]), last = endValue(h[n - 1], h[n - 2], del[n - 1], del[n - 2]);

    std::vector<double> pivot(n);
    for (std::size_t i = 1; i < n; ++i) {
        pivot[i] = 2.0 * (h[i - 1] + h[i]);
        d[i] = 3.0 * (h[i] * del[i - 1] + h[i - 1] * del[i]);
        if (i == 1) {
            pivot[i] -= h[0] + h[1];
            d[i] -= first;
        }
        if (i == n - 1) {
            pivot[i] -= h[n - 2] + h[n - 1];
            d[i] -= last;
        }
        if (i > 1) {
            const double factor = h[i] / pivot[i - 1];
            pivot[i] -= factor * h[i - 2];
            d[i] -= factor * d[i - 1];
        }
    }
    d[n - 1] /= pivot[n - 1];
    for (std::size_t i = n - 2; i > 0; --i)
        d[i] = (d[i] - h[i - 1] * d[i + 1]) / pivot[i];
    d[0] = (first - (h[0] + h[1]) * d[1]) / h[1];
    d[n] = (last - (h[n - 1] + h[n - 2]) * d[n - 1]) / h[n - 2];
    return d;
}

} // namespace qxinterp_detail

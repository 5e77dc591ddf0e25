// SPDX-License-Identifier: LicenseRef-qxkernel
// Special functions against GSL and, for the incomplete ones, against nothing: the rate gives the cost of a call.
#include "harness.hpp"

#include "qxspecfun.hpp"

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#ifdef QX_HAVE_GSL
#include <gsl/gsl_sf_bessel.h>
#endif

namespace {

using Bessel = int (*)(double, double, double&);
using ComplexBessel = int (*)(double, const std::complex<double>&, std::complex<double>&);
using PeerFunction = double (*)(double, double);

struct Points
{
    std::vector<double> nu, x, y, mine, theirs;
};

/// Orders 0 to 12, whole or not, and arguments of 0.1 to 100.
Points pointsOf(bool whole)
{
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> order(0, 12), power(-1, 2), angle(-3, 3);
    Points p;
    for (int i = 0; i < 1000; ++i) {
        const double nu = order(random);
        p.nu.push_back(whole ? std::floor(nu) : nu);
        p.x.push_back(std::pow(10.0, power(random)));
        p.y.push_back(angle(random));
    }
    p.mine.resize(p.x.size());
    p.theirs.resize(p.x.size());
    return p;
}

double worstDifference(const Points& p)
{
    double worst = 0;
    for (std::size_t i = 0; i < p.x.size(); ++i)
        worst = std::max(worst, std::abs(p.mine[i] - p.theirs[i]) / (std::abs(p.mine[i]) + 1e-3));
    return worst;
}

void realCase(const std::string& name, Bessel ours, [[maybe_unused]] PeerFunction peer, bool whole)
{
    Points p = pointsOf(whole);
    qxbench::Case c(name);
    c.ours([&] {
        for (std::size_t i = 0; i < p.x.size(); ++i)
            ours(p.nu[i], p.x[i], p.mine[i]);
    });
#ifdef QX_HAVE_GSL
    c.peer("GSL 2.7", [&] {
        for (std::size_t i = 0; i < p.x.size(); ++i)
            p.theirs[i] = peer(p.nu[i], p.x[i]);
    });
    c.check([&] { return worstDifference(p); }, 1e-9);
#endif
    c.items(static_cast<double>(p.x.size()), "values");
}

void complexCase(const std::string& name, ComplexBessel ours)
{
    const Points p = pointsOf(false);
    BENCH(name)
        .ours([&] {
            for (std::size_t i = 0; i < p.x.size(); ++i) {
                std::complex<double> r;
                ours(p.nu[i], std::polar(p.x[i], p.y[i]), r);
                qxbench::keep(r);
            }
        })
        .items(static_cast<double>(p.x.size()), "values");
}

} // namespace

void qxbench::benchmarks()
{
#ifdef QX_HAVE_GSL
    const PeerFunction j = gsl_sf_bessel_Jnu, y = gsl_sf_bessel_Ynu, i = gsl_sf_bessel_Inu, k = gsl_sf_bessel_Knu;
#else
    const PeerFunction j = nullptr, y = nullptr, i = nullptr, k = nullptr;
#endif
    for (const bool whole : {true, false}) {
        const std::string orders = whole ? "whole" : "fractional";
        realCase("bessel/J " + orders, qxbesselj, j, whole);
        realCase("bessel/Y " + orders, qxbessely, y, whole);
        realCase("bessel/I " + orders, qxbesseli, i, whole);
        realCase("bessel/K " + orders, qxbesselk, k, whole);
    }
    complexCase("complex/J", qxbesselj);
    complexCase("complex/Y", qxbessely);
    complexCase("complex/I", qxbesseli);
    complexCase("complex/K", qxbesselk);
}

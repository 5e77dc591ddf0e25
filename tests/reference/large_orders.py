#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Modified Bessel functions of large order with 20 digits, for tests/base/qxspecfun_test.cpp.

I by its power series (DLMF 10.25.2), whose terms are all positive; K by its integral (DLMF 10.32.9) about the saddle point.
"""
from mpmath import asinh, cosh, exp, log, loggamma, mp, mpf, nstr, quad, sqrt

mp.dps = 40


def besseli(nu, x):
    q, term, total, k = x * x / 4, mpf(1), mpf(1), 0
    while term > total * mpf(10) ** -35:
        k += 1
        term *= q / (k * (nu + k))
        total += term
    return exp(nu * log(x / 2) - loggamma(nu + 1) + log(total))


def besselk(nu, x):
    saddle = asinh(nu / x)
    width, height = 1 / sqrt(x * cosh(saddle)), nu * saddle - x * cosh(saddle)
    integrand = lambda t: exp(nu * t - x * cosh(t) - height)  # the other half of cosh(nu t) is exp(-2 nu saddle) of it
    return exp(height) * quad(integrand, [saddle + i * width for i in range(-14, 15, 2)]) / 2


for nu, x in ((20000.25, 13300), (123456.75, 81800), (1e6, 662800)):
    print(nu, x, nstr(besseli(mpf(nu), mpf(x)), 20), nstr(besselk(mpf(nu), mpf(x)), 20))

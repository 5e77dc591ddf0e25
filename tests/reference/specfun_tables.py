#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Reference values of the special functions, computed with mpmath at 40 digits and more.

usage: specfun_tables.py [DIRECTORY]     (default: the folder specfun beside this script)

Writes one file a function: 1000 lines of arguments and value. Arguments are short decimals, taken as the doubles nearest
to them; values have 20 significant digits. Complex numbers are two columns. Read by tests/base/specfun_accuracy_test.cpp.
Debian package: python3-mpmath.
"""
import math
import pathlib
import random
import sys

import mpmath as mp

mp.mp.dps = 40
COUNT = 1000
DIGITS = 20
# DLMF tables 7.13.1 and 7.13.2, refined
ERF_ZEROS = [complex(mp.findroot(mp.erf, z)) for z in (1.45061616 + 1.88094300j, 2.24465928 + 2.61657514j,
                                                       2.83974105 + 3.17562810j)]
ERFC_ZEROS = [complex(mp.findroot(mp.erfc, z)) for z in (-1.35481013 + 1.99146684j, -2.17704491 + 2.69114903j,
                                                         -2.78438761 + 3.23533087j)]
HUGE, TINY = mp.mpf(2) ** 1020, mp.mpf(2) ** -1000  # well inside the range of double


def short(x, digits=4):
    """The double nearest to x rounded to a few digits, and its text."""
    text = f"{x:.{digits}g}"
    return float(text), text


def logarithmic(low, high):
    return low * (high / low) ** random.random()


def order(limit):
    """Orders of both signs: half of them whole, a quarter of the rest half-integer."""
    if random.random() < 0.5:
        return float(random.randint(-limit, limit))
    if random.random() < 0.25:
        return random.randint(-limit, limit - 1) + 0.5
    return random.uniform(-limit, limit)


def polar(low, high):
    r, phi = logarithmic(low, high), random.uniform(-3.1, 3.1)
    return r * math.cos(phi), r * math.sin(phi)


def near(zeros):
    """Points around zeros, at distances of all magnitudes."""
    def draw():
        zero, r, phi = random.choice(zeros), logarithmic(1e-12, 0.1), random.uniform(-3.1, 3.1)
        return zero.real + r * math.cos(phi), zero.imag + r * math.sin(phi)
    return draw


def digits(value):
    return mp.nstr(value, DIGITS, strip_zeros=False, min_fixed=0, max_fixed=0)


def isInRange(value):
    parts = [value.real, value.imag] if isinstance(value, mp.mpc) else [value]
    return TINY < abs(value) < HUGE and all(p == 0 or abs(p) > TINY for p in parts)


def table(directory, name, draw, function, isComplex=False, argumentDigits=4):
    random.seed(name)
    lines = []
    while len(lines) < COUNT:
        numbers, texts = zip(*[short(x, argumentDigits) for x in draw()])
        try:
            with mp.workdps(mp.mp.dps + 20):
                value = function(*[mp.mpf(x) for x in numbers])
        except ValueError:  # a pole
            continue
        if isComplex:
            value = mp.mpc(value)
        elif isinstance(value, mp.mpc):
            value = value.real
        if not isInRange(value):
            continue
        parts = [value.real, value.imag] if isComplex else [value]
        lines.append(" ".join(list(texts) + [digits(p) for p in parts]))
    (directory / f"{name}.txt").write_text("\n".join(lines) + "\n")
    print(name, flush=True)


def gammainc(x, a):
    return mp.gammainc(a, 0, x, regularized=True)


def betainc(x, a, b):
    return mp.betainc(a, b, 0, x, regularized=True)


def erfcx(z):
    return mp.exp(z * z) * mp.erfc(z)


def main():
    directory = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).parent / "specfun"
    directory.mkdir(exist_ok=True)

    def real(low, high):
        return lambda: [random.choice([-1, 1]) * logarithmic(low, high)]

    def positive(limit, low, high):
        return lambda: [order(limit), logarithmic(low, high)]

    def plane(limit, low, high):
        return lambda: [order(limit), *polar(low, high)]

    table(directory, "besselj", positive(20, 1e-3, 1e3), mp.besselj)
    table(directory, "bessely", positive(20, 1e-3, 1e3), mp.bessely)
    table(directory, "besseli", positive(20, 1e-3, 700), mp.besseli)
    table(directory, "besselk", positive(20, 1e-3, 700), mp.besselk)
    for name, f in (("j", mp.besselj), ("y", mp.bessely), ("i", mp.besseli), ("k", mp.besselk)):
        table(directory, f"cbessel{name}", plane(10, 1e-2, 1e2), lambda n, x, y, f=f: f(n, mp.mpc(x, y)), True)
    # J + i Y, as mpmath has it, loses up to 2 |z| / ln 10 digits: 18 of the 60 here
    table(directory, "cbesselh1", plane(10, 1e-2, 20), lambda n, x, y: mp.hankel1(n, mp.mpc(x, y)), True)

    table(directory, "erf", real(1e-3, 6), mp.erf)
    table(directory, "erfc", real(1e-3, 25), mp.erfc)
    table(directory, "erfcx", lambda: [random.uniform(-25, 50)], erfcx)
    for name, f in (("erf", mp.erf), ("erfc", mp.erfc), ("erfcx", erfcx)):
        table(directory, f"c{name}", lambda: polar(1e-2, 10), lambda x, y, f=f: f(mp.mpc(x, y)), True)
    for name, f, zeros in (("erf", mp.erf, ERF_ZEROS), ("erfc", mp.erfc, ERFC_ZEROS), ("erfcx", erfcx, ERFC_ZEROS)):
        table(directory, f"c{name}_zeros", near(zeros), lambda x, y, f=f: f(mp.mpc(x, y)), True, 17)
    table(directory, "gamma", lambda: [random.uniform(-60, 170)], mp.gamma)
    table(directory, "cgamma", lambda: polar(1e-2, 50), lambda x, y: mp.gamma(mp.mpc(x, y)), True)
    table(directory, "gammainc", lambda: [logarithmic(1e-3, 200), logarithmic(1e-2, 200)], gammainc)
    table(directory, "betainc", lambda: [random.uniform(0.001, 0.999), logarithmic(1e-1, 50), logarithmic(1e-1, 50)],
          betainc)


main()

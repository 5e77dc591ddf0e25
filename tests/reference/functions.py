#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Reference values of the function objects, by mpmath with 50 digits: makes tests/reference/functions.txt.

usage: functions.py > functions.txt        (Debian package python3-mpmath)

Lines:  v name x value rest            real value, as the nearest double and what is left over, points of accuracy.def
        d name arg x y value           real partial derivative with respect to argument arg (y is 0 for one argument)
        z name re im vre vim dre dim   complex value and derivative
        c name arg xre xim yre yim dre dim   complex partial derivative of a function of two arguments

A power with a fixed exponent is called "pow" and has its exponent as y.

Ten points a group: a wrong rule fails at the first, and tests/functions/sweep_test.cpp measures the accuracy of real values at any
number of random points against ball arithmetic. A hundred for complex values, whose accuracy is measured here only.
"""
import pathlib
import random
import re

import mpmath as mp

mp.mp.dps = 50
random.seed(20260301)
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
ONE = mp.mpf(1)
FEW, MANY = 10, 100

UNARY = {
    "exp": mp.exp, "sqrt": mp.sqrt, "log": mp.log, "log10": lambda x: mp.log(x) / mp.log(10),
    "log2": lambda x: mp.log(x) / mp.log(2), "erf": mp.erf, "sin": mp.sin, "cos": mp.cos, "tan": mp.tan,
    "sec": mp.sec, "csc": mp.csc, "cot": mp.cot, "asin": mp.asin, "acos": mp.acos, "atan": mp.atan,
    "acot": lambda x: mp.atan(ONE / x), "asec": lambda x: mp.acos(ONE / x), "acsc": lambda x: mp.asin(ONE / x),
    "sinh": mp.sinh, "cosh": mp.cosh, "tanh": mp.tanh, "sech": mp.sech, "csch": mp.csch, "coth": mp.coth,
    "asinh": mp.asinh, "acosh": mp.acosh, "atanh": mp.atanh, "acoth": lambda x: mp.atanh(ONE / x),
    "asech": lambda x: mp.acosh(ONE / x), "acsch": lambda x: mp.asinh(ONE / x),
}
REAL_RANGE = {  # where the derivative is looked at
    "sqrt": (0.1, 50), "log": (0.1, 50), "log10": (0.1, 50), "log2": (0.1, 50), "asin": (-0.95, 0.95),
    "acos": (-0.95, 0.95), "asec": (1.1, 20), "acsc": (1.1, 20), "acosh": (1.1, 20), "atanh": (-0.95, 0.95),
    "acoth": (1.1, 20), "asech": (0.05, 0.95), "acsch": (0.1, 10), "sinh": (-10, 10), "cosh": (-10, 10),
    "exp": (-10, 10), "sech": (-10, 10), "csch": (0.1, 10), "coth": (0.1, 10), "acot": (0.1, 10), "erf": (-3, 3),
}


def mod(x, y):
    return x - mp.floor(x / y) * y


def dirac(poly):
    def value(x, w):
        return mp.polyval(list(reversed(poly)), x / w) / w
    return value


def trans(poly):
    def value(x, w):
        return mp.polyval(list(reversed(poly)), x / w)
    return value


STEPS = {
    "smhs": [0.5, 1.640625, 0, -2.734375, 0, 2.296875, 0, -0.703125],
    "smsign": [0, 3.28125, 0, -5.46875, 0, 4.59375, 0, -1.40625],
    "c1hs": [0.5, 0.75, 0, -0.25],
    "c2hs": [0.5, 0.9375, 0, -0.625, 0, 0.1875],
}
BINARY = {  # value, ranges of the arguments, arguments to differentiate by
    "/": (lambda u, v: u / v, (-5, 5), (0.5, 5), (1, 2)),
    "^": (lambda u, v: u ** v, (0.2, 5), (-3, 3), (1, 2)),
    "plussq": (lambda u, v: u * u + v * v, (-5, 5), (-5, 5), (1, 2)),
    "+": (lambda u, v: u + v, (-5, 5), (-5, 5), (1, 2)),
    "-": (lambda u, v: u - v, (-5, 5), (-5, 5), (1, 2)),
    "*": (lambda u, v: u * v, (-5, 5), (-5, 5), (1, 2)),
    "atan2": (mp.atan2, (0.2, 5), (0.2, 5), (1, 2)),
    "min": (lambda u, v: min(u, v), (-5, 5), (-5, 5), (1, 2)),
    "max": (lambda u, v: max(u, v), (-5, 5), (-5, 5), (1, 2)),
    "mod": (mod, (-5, 5), (0.7, 3), (1, 2)),
    "realdot": (lambda u, v: u * v, (-5, 5), (-5, 5), (1, 2)),
    "besselj": (mp.besselj, (-2.4, 4), (0.5, 20), (2,)),
    "bessely": (mp.bessely, (-2.4, 4), (0.5, 20), (2,)),
    "besseli": (mp.besseli, (-2.4, 4), (0.5, 20), (2,)),
    "besselk": (mp.besselk, (-2.4, 4), (0.5, 20), (2,)),
}
for name, poly in STEPS.items():
    BINARY["qx" + name] = (trans(poly), None, (0.5, 2), (1, 2))
    BINARY["qxd" + name] = (dirac([k * c for k, c in enumerate(poly)][1:]), None, (0.5, 2), (1, 2))


def text(x):
    return float(x).hex()


def uniform(low, high):
    return random.uniform(low, high)


def point(low, high):
    """Evenly spread in the logarithm where the range spans magnitudes."""
    if low > 0 and high / low > 1e3:
        return float(mp.exp(uniform(float(mp.log(low)), float(mp.log(high)))))
    return uniform(low, high)


table = re.findall(r"^QX_ACC\(\s*(\w+),\s*([-\w.+]+),\s*([-\w.+]+),", (ROOT / "functions/accuracy.def").read_text(), re.M)
for name, low, high in table:
    for _ in range(FEW):
        x = point(float(low), float(high))
        exact = UNARY[name](mp.mpf(x))
        value = float(exact)
        print("v", name, text(x), text(value), text(exact - mp.mpf(value)))

for name, f in UNARY.items():
    low, high = REAL_RANGE.get(name, (-1.5, 1.5) if name in ("tan", "sec") else (0.1, 3.0))
    for _ in range(FEW):
        x = uniform(low, high)
        print("d", name, 1, text(x), text(0.0), text(mp.re(mp.diff(f, mp.mpf(x)))))

for name, (f, xs, ys, arguments) in BINARY.items():
    for argument in arguments:
        for _ in range(FEW):
            y = uniform(*ys)
            x = uniform(-0.95 * y, 0.95 * y) if xs is None else uniform(*xs)
            if name == "^" and argument == 1 and random.random() < 0.3:
                y = float(random.randint(-4, 6))
            if name == "mod" and abs(x / y - round(x / y)) < 1e-6:
                x += 0.1 * y
            order = (1, 0) if argument == 1 else (0, 1)
            print("d", name, argument, text(x), text(y), text(mp.diff(f, (mp.mpf(x), mp.mpf(y)), order)))

for name, f in UNARY.items():
    if name == "erf":
        continue
    for _ in range(MANY):
        re_low = 0.1 if name in ("acosh", "asech", "acoth") else -3
        z = mp.mpc(uniform(re_low, 3), random.choice((-1, 1)) * uniform(0.05, 3))
        v, d = f(z), mp.diff(f, z)
        print("z", name, text(z.real), text(z.imag), text(v.real), text(v.imag), text(mp.re(d)), text(mp.im(d)))

# ---- what came later, behind the rest so that the points above stay what they were

for name, f in (("abs", abs), ("sign", mp.sign)):
    for _ in range(FEW):
        x = random.choice((-1, 1)) * uniform(0.1, 5)
        print("d", name, 1, text(x), text(0.0), text(mp.diff(f, mp.mpf(x))))

EXPONENTS = (-3.0, -2.0, -1.0, 2.0, 3.0, 4.0, 5.0, 0.5, -1.5)
for _ in range(FEW):
    x, e = uniform(0.2, 5), random.choice(EXPONENTS)
    print("d", "pow", 1, text(x), text(e), text(mp.diff(lambda u: u ** mp.mpf(e), mp.mpf(x))))


def anywhere(low, high):
    """A point with a modulus between low and high, off the negative real axis."""
    r, phi = uniform(low, high), random.uniform(-3.0, 3.0)
    return mp.mpc(r * float(mp.cos(phi)), r * float(mp.sin(phi)))


def real(low, high):
    return lambda: mp.mpc(uniform(low, high))


def within(low, high):
    return lambda: anywhere(low, high)


COMPLEX = {  # value, arguments, arguments to differentiate by
    "+": (lambda u, v: u + v, within(0.1, 5), within(0.1, 5), (1, 2)),
    "-": (lambda u, v: u - v, within(0.1, 5), within(0.1, 5), (1, 2)),
    "*": (lambda u, v: u * v, within(0.1, 5), within(0.1, 5), (1, 2)),
    "/": (lambda u, v: u / v, within(0.1, 5), within(0.5, 5), (1, 2)),
    "^": (lambda u, v: u ** v, within(0.2, 5), within(0.2, 3), (1, 2)),
    "plussq": (lambda u, v: u * u + v * v, within(0.1, 5), within(0.1, 5), (1, 2)),
    "pow": (lambda u, e: u ** e, within(0.2, 5), lambda: mp.mpc(random.choice(EXPONENTS)), (1,)),
    "besselj": (mp.besselj, real(-2.4, 4), within(0.5, 10), (2,)),
    "bessely": (mp.bessely, real(-2.4, 4), within(0.5, 10), (2,)),
    "besseli": (mp.besseli, real(-2.4, 4), within(0.5, 10), (2,)),
    "besselk": (mp.besselk, real(-2.4, 4), within(0.5, 10), (2,)),
}
for name in STEPS:  # inside the zone; the width is real
    for full in ("qx" + name, "qxd" + name):
        COMPLEX[full] = (BINARY[full][0], within(0.1, 0.9), real(1.0, 1.5), (1, 2))

for name, (f, xs, ys, arguments) in COMPLEX.items():
    for argument in arguments:
        for _ in range(FEW):
            x, y = xs(), ys()
            order = (1, 0) if argument == 1 else (0, 1)
            d = mp.mpc(mp.diff(f, (x, y), order))
            print("c", name, argument, text(x.real), text(x.imag), text(y.real), text(y.imag), text(d.real), text(d.imag))

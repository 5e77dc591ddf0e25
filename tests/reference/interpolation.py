#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Reference values of the interpolators in exact rational arithmetic, rounded once.

usage: interpolation.py > interpolation.txt
       interpolation.py --scipy      (compares itself with SciPy inside the tables)

A line "grid NAME ..." holds: extrapolation method, extValue, flags-or-0 per axis preceded by the number of axes, then per
axis its length and points, the values, the number of queries, and per query the coordinates, the value, its scale.
A line "cubic NAME ...": extrapolation method, extValue, derivative order, number of points, points, values, number of
queries, and per query x, the value, its scale. The scale is the sum of the sizes of the terms that are added.
"""
import itertools
import random
import sys
from bisect import bisect_left
from fractions import Fraction as F

RNG = random.Random(20240711)


def dyadic(low, high, bits=20):
    """A double with few digits, so that the text is short."""
    return low + (high - low) * RNG.randrange(1 << bits) / (1 << bits)


def axis(n, low, high, spread=False):
    if spread:  # from 1e-12 of the length to its whole
        return [low + (high - low) * 10.0 ** (-12 + 12 * i / (n - 1)) for i in range(n)]
    while True:
        points = sorted({dyadic(low, high) for _ in range(n)})
        if len(points) == n:
            return points


# ---- grids

def linear_weights(points, x, ext, flag):
    """(index, weight) pairs of an axis, or None for the whole result 0."""
    n = len(points)
    if n == 1:
        return None if flag else [(0, F(1))]
    j = bisect_left(points, x)
    if flag:
        tolerance = 1e-10 * (points[-1] - points[0])
        if ext != 3 and (x < points[0] - tolerance or x > points[-1] + tolerance):
            return None
        j = min(max(j, 1), n - 1)
        w = F(1) / (F(points[j]) - F(points[j - 1]))
        return [(j - 1, -w), (j, w)]
    if ext == 3:
        j = min(max(j, 1), n - 1)
    if j == 0:
        return [(0, F(1))]
    if j == n:
        return [(n - 1, F(1))]
    w = (F(points[j]) - F(x)) / (F(points[j]) - F(points[j - 1]))
    return [(j - 1, w), (j, 1 - w)]


def value_index(axes, index):
    at, stride = 0, 1
    for points, i in zip(axes, index):
        at += i * stride
        stride *= len(points)
    return at


def linear(axes, values, x, ext, ext_value, flags):
    if ext == 1 and any(c < p[0] or c > p[-1] for c, p in zip(x, axes)):
        v = 0.0 if any(flags) else ext_value
        return F(v), F(abs(v))
    parts = [linear_weights(p, c, ext, f) for p, c, f in zip(axes, x, flags)]
    if any(p is None for p in parts):
        return F(0), F(0)
    total = scale = F(0)
    for corner in itertools.product(*parts):
        w = F(1)
        for _, factor in corner:
            w *= factor
        term = w * F(values[value_index(axes, [i for i, _ in corner])])
        total += term
        scale += abs(term)
    return total, scale


def neighbor(axes, values, x, ext, ext_value):
    if ext == 1 and any(c < p[0] or c > p[-1] for c, p in zip(x, axes)):
        return F(ext_value)
    index = []
    for points, c in zip(axes, x):
        best = min(range(len(points)), key=lambda i: (abs(F(points[i]) - F(c)), i))
        index.append(best)
    return F(values[value_index(axes, index)])


def queries_along(points):
    low, high = points[0], points[-1]
    length = high - low if high > low else 1.0
    inside = [dyadic(low, high) for _ in range(3)] + [RNG.choice(points)]
    if len(points) > 1:
        inside.append((points[0] + points[1]) / 2)
    outside = [low - length * 0.25, high + length * 0.75, low - length * 1e-12, high + length * 1e-12]
    return inside + [low, high] + outside


def show(*numbers):
    return " ".join(repr(float(v)) for v in numbers)


def grid_line(method, axes, values, ext, ext_value, flags, count):
    along = [queries_along(p) for p in axes]
    points = list(itertools.product(*along))
    if len(points) > count:
        points = RNG.sample(points, count)
    text = [show(ext, ext_value, len(axes), *flags)]
    text += [show(len(p), *p) for p in axes] + [show(*values), show(len(points))]
    for x in points:
        if method == "linear":
            v, scale = linear(axes, values, x, ext, ext_value, flags)
        else:
            v = neighbor(axes, values, x, ext, ext_value)
            scale = F(0)
        text.append(show(*x, v, scale))
    return f"grid {method} " + " ".join(text)


# ---- cubics

def secants(x, y):
    h = [F(x[i + 1]) - F(x[i]) for i in range(len(x) - 1)]
    return h, [(F(y[i + 1]) - F(y[i])) / h[i] for i in range(len(h))]


def monotone_slopes(x, y):
    h, s = secants(x, y)
    d = [F(0)] * len(x)
    for i in range(1, len(h)):
        if s[i - 1] * s[i] > 0:
            w1 = (1 + h[i - 1] / (h[i - 1] + h[i])) / 3
            w2 = (1 + h[i] / (h[i - 1] + h[i])) / 3
            d[i] = s[i - 1] * s[i] / (w1 * s[i - 1] + w2 * s[i])

    def end(h0, h1, s0, s1):
        e = s0 - h0 / (h0 + h1) * (s1 - s0)
        if e * s0 <= 0:
            return F(0)
        return 3 * s0 if s0 * s1 < 0 and abs(e) > 3 * abs(s0) else e

    d[0] = end(h[0], h[1], s[0], s[1])
    d[-1] = end(h[-1], h[-2], s[-1], s[-2])
    return d


def solve(a, b):
    """Gauss-Jordan elimination."""
    n = len(b)
    rows = [list(r) + [v] for r, v in zip(a, b)]
    for k in range(n):
        p = next(i for i in range(k, n) if rows[i][k] != 0)
        rows[k], rows[p] = rows[p], rows[k]
        rows[k] = [v / rows[k][k] for v in rows[k]]
        for i in range(n):
            if i != k and rows[i][k] != 0:
                f = rows[i][k]
                rows[i] = [u - f * v for u, v in zip(rows[i], rows[k])]
    return [r[-1] for r in rows]


def spline_coefficients(x, y):
    """All conditions of the spline at once, in the coefficients themselves: no slopes, no recurrence."""
    n = len(x) - 1
    if n == 2:
        h, s = secants(x, y)
        b = (s[1] - s[0]) / (h[0] + h[1])
        d0 = s[0] - h[0] * b
        return [(F(0), b, d0, F(y[0])), (F(0), b, d0 + 2 * b * h[0], F(y[1]))]
    h, _ = secants(x, y)
    a, rhs = [], []

    def row(entries, value):
        r = [F(0)] * (4 * n)
        for at, v in entries:
            r[at] = F(v)
        a.append(r)
        rhs.append(F(value))

    for i in range(n):
        row([(4 * i + 3, 1)], F(y[i]))
        row([(4 * i, h[i] ** 3), (4 * i + 1, h[i] ** 2), (4 * i + 2, h[i]), (4 * i + 3, 1)], F(y[i + 1]))
    for i in range(n - 1):
        row([(4 * i, 3 * h[i] ** 2), (4 * i + 1, 2 * h[i]), (4 * i + 2, 1), (4 * i + 6, -1)], 0)
        row([(4 * i, 3 * h[i]), (4 * i + 1, 1), (4 * i + 5, -1)], 0)
    row([(0, 1), (4, -1)], 0)
    row([(4 * n - 8, 1), (4 * n - 4, -1)], 0)
    c = solve(a, rhs)
    return [tuple(c[4 * i:4 * i + 4]) for i in range(n)]


def hermite_coefficients(x, y):
    h, s = secants(x, y)
    d = monotone_slopes(x, y)
    out = []
    for i in range(len(h)):
        a = (d[i] + d[i + 1] - 2 * s[i]) / h[i] ** 2
        out.append((a, (s[i] - d[i]) / h[i] - h[i] * a, d[i], F(y[i])))
    return out


def cubic(x, y, coefficients, at, ext, ext_value, order):
    def poly(i, t, k):
        a, b, c, d = coefficients[i]
        terms = {0: [a * t ** 3, b * t ** 2, c * t, d], 1: [3 * a * t ** 2, 2 * b * t, c], 2: [6 * a * t, 2 * b]}[k]
        return sum(terms), sum(abs(v) for v in terms)

    i = min(max(bisect_left(x, at) - 1, 0), len(x) - 2)
    if ext in (0, 3) or x[0] <= at <= x[-1]:
        return poly(i, F(at) - F(x[i]), order)
    end, y_end = (x[0], y[0]) if at < x[0] else (x[-1], y[-1])
    if ext == 1:
        v = F(ext_value) if order == 0 else F(0)
    elif ext == 2:
        v = F(y_end) if order == 0 else F(0)
    else:
        slope, scale = poly(i, F(end) - F(x[i]), 1)
        if order == 0:
            return F(y_end) + (F(at) - F(end)) * slope, abs(F(y_end)) + abs(F(at) - F(end)) * scale
        return (slope, scale) if order == 1 else (F(0), F(0))
    return v, abs(v)


def cubic_line(method, x, y, ext, ext_value, order, coefficients):
    points = queries_along(x) + [x[1], (x[-2] + x[-1]) / 2]
    text = [show(ext, ext_value, order, len(x), *x, *y, len(points))]
    for at in points:
        v, scale = cubic(x, y, coefficients, at, ext, ext_value, order)
        text.append(show(at, v, scale))
    return f"cubic {method} " + " ".join(text)


def compare_with_scipy():
    import numpy
    from scipy.interpolate import CubicSpline, PchipInterpolator, RegularGridInterpolator
    worst = 0.0
    for n in (4, 5, 9, 30):
        x, y = axis(n, -2.0, 5.0), [dyadic(-3.0, 3.0) for _ in range(n)]
        for coefficients, theirs in ((spline_coefficients(x, y), CubicSpline(x, y)),
                                     (hermite_coefficients(x, y), PchipInterpolator(x, y))):
            for at in queries_along(x)[:6]:
                for order in (0, 1, 2):
                    ours, scale = cubic(x, y, coefficients, at, 0, 0.0, order)
                    i = bisect_left(x, at)
                    if order == 2 and i < n and x[i] == at:
                        continue  # the second derivative jumps at a point of a monotone cubic
                    worst = max(worst, abs(float(ours) - float(theirs(at, order))) / max(float(scale), 1.0))
    for d in (1, 2, 3, 4):
        axes = [axis(4 + k, -1.0, 2.0) for k in range(d)]
        values = [dyadic(-3.0, 3.0) for _ in range(int(numpy.prod([len(p) for p in axes])))]
        table = numpy.array(values).reshape([len(p) for p in axes], order="F")
        for method in ("linear", "nearest"):
            theirs = RegularGridInterpolator(axes, table, method=method)
            for _ in range(50):
                at = [dyadic(p[0], p[-1]) for p in axes]
                ours = linear(axes, values, at, 0, 0.0, [0] * d)[0] if method == "linear" else \
                    neighbor(axes, values, at, 0, 0.0)
                worst = max(worst, abs(float(ours) - float(theirs([at])[0])))
    print(f"largest difference {worst:.3g}")


def main():
    if sys.argv[1:] == ["--scipy"]:
        return compare_with_scipy()
    shapes = [[7], [2], [1], [1, 4], [5, 4], [3, 1, 4], [4, 3, 5], [4, 1], [3, 2, 4, 2]]
    for shape in shapes:
        axes = [axis(n, -1.5, 4.0) for n in shape]
        count = 1
        for n in shape:
            count *= n
        values = [dyadic(-8.0, 8.0) for _ in range(count)]
        for ext in range(5):
            zero = [0] * len(shape)
            print(grid_line("neighbor", axes, values, ext, -7.25, zero, 24))
            print(grid_line("linear", axes, values, ext, -7.25, zero, 40))
            for k in range(len(shape)):
                flags = [1 if j == k else 0 for j in range(len(shape))]
                print(grid_line("linear", axes, values, ext, -7.25, flags, 24))
            if len(shape) > 1:
                print(grid_line("linear", axes, values, ext, -7.25, [1] * len(shape), 12))
    tables = [axis(n, -2.0, 5.0) for n in (3, 4, 5, 12, 25)] + [[0.0, 1e-3, 1.0, 1.5, 4.0]]
    for x in tables:
        y = [dyadic(-3.0, 3.0) for _ in x]
        if len(x) == 12:
            y.sort()
        for method, coefficients in (("piecewisecubic", hermite_coefficients(x, y)),
                                     ("cubicspline", spline_coefficients(x, y))):
            for ext in range(5):
                for order in (0, 1, 2):
                    print(cubic_line(method, x, y, ext, 11.5, order, coefficients))


main()

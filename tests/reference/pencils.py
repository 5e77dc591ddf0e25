#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Generalised eigenvalues with 50 digits, by mpmath: makes tests/reference/pencils.txt.

usage: pencils.py > pencils.txt        (Debian package python3-mpmath)

Lines:  pencil NAME n  A by columns  B by columns  then n times: alpha re, alpha im, beta of an eigenvalue alpha / beta,
        scaled to |alpha|^2 + beta^2 = 1; beta 0 for an infinite one.
"""
import random

import mpmath as mp

mp.mp.dps = 50
random.seed(20250311)


def uniform(n):
    return [[random.randrange(-64, 65) / 32.0 for _ in range(n)] for _ in range(n)]


def product(p, q):
    n = len(p)
    return [[sum(p[i][k] * q[k][j] for k in range(n)) for j in range(n)] for i in range(n)]


def triangle(n, diagonal):
    m = [[random.randrange(-8, 9) / 8.0 if j > i else 0.0 for j in range(n)] for i in range(n)]
    for i in range(n):
        m[i][i] = float(diagonal[i])
    return m


def unit(n):
    """An integer matrix of determinant 1: products with it are exact and keep the eigenvalues."""
    lower = [[float(random.randrange(-1, 2)) if j < i else float(i == j) for j in range(n)] for i in range(n)]
    upper = [[float(random.randrange(-1, 2)) if j > i else float(i == j) for j in range(n)] for i in range(n)]
    return product(lower, upper)


def eigenvalues(a, b):
    """Pairs (alpha, beta). A shift makes the pencil regular in both matrices: (A + s B) y = mu B y, or its reciprocal."""
    a, b = mp.matrix(a), mp.matrix(b)
    shift = mp.mpf("0.7310585786300049")
    c = a + shift * b
    mu, _ = mp.eig(mp.inverse(c) * b)  # B y = mu (A + s B) y
    pairs = []
    for m in mu:
        # lambda = 1 / mu - s
        alpha, beta = 1 - shift * m, m
        if abs(beta) < mp.mpf(10) ** -30:
            alpha, beta = mp.mpf(1), mp.mpf(0)
        if beta != 0:
            alpha, beta = alpha / beta, mp.mpf(1)
        size = mp.sqrt(abs(alpha) ** 2 + abs(beta) ** 2)
        pairs.append((alpha / size, mp.re(beta / size)))
    return pairs


def show(name, a, b):
    n = len(a)
    numbers = [repr(a[i][j]) for j in range(n) for i in range(n)] + [repr(b[i][j]) for j in range(n) for i in range(n)]
    for alpha, beta in eigenvalues(a, b):
        numbers += [mp.nstr(mp.re(alpha), 20), mp.nstr(mp.im(alpha), 20), mp.nstr(beta, 20)]
    print("pencil", name, n, *numbers)


for n in (1, 2, 3, 5, 8, 12, 20):
    show("random", uniform(n), uniform(n))
for n in (3, 6, 9):
    show("infinite", product(unit(n), uniform(n)), product(unit(n), triangle(n, [0 if k % 3 == 1 else k + 1 for k in range(n)])))
    graded = uniform(n)
    show("graded", [[v * 2.0 ** (-i - j) for j, v in enumerate(row)] for i, row in enumerate(graded)],
         [[float(i == j) * 2.0 ** (-2 * i) for j in range(n)] for i in range(n)])
    p, q = unit(n), unit(n)
    show("repeated", product(product(p, triangle(n, [1 + k // 2 for k in range(n)])), q), product(p, q))
show("rotation", [[0.0, 1.0], [-1.0, 0.0]], [[1.0, 0.0], [0.0, 2.0]])
show("cyclic", [[float((i - j) % 4 == 1) for j in range(4)] for i in range(4)], [[float(i == j) for j in range(4)] for i in range(4)])

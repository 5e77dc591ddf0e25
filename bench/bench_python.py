#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Ratios of the Python package against the usual tools, in one run: numexpr, NumPy, SciPy. See bench/README.md.

usage: PYTHONPATH=build/release/python bench/bench_python.py [--rounds N] [--quick] [--cpu] [--json FILE]

Rounds are interleaved; the ratio is the median over rounds of ours / peer in that round, its scatter the median absolute
deviation. Answers are compared before anything counts. Losses stay in the table.
"""

import argparse
import json
import platform
import time

import numpy as np
import qxkernel as qx

E1 = "x^2+2*x*y+y^2"
E2 = "sin(x)*exp(-y^2/2)"
LAW = "(2.1+0.3*x+0.02*x^2)*(1+0.1*y)/(1+exp(-(x-0.5)*4))+0.05*(x*y)^2-sqrt(1+x*x+y*y)"


def numpy_of(text):
    code = compile(text.replace("^", "**"), "formula", "eval")
    names = {name: getattr(np, name) for name in ("sin", "exp", "sqrt")}
    return lambda x, y: eval(code, names, {"x": x, "y": y})


def ratio(ours, peer, rounds):
    ours(), peer()
    repeat = max(1, int(2e-3 / max(1e-7, min(seconds(ours, 1), seconds(peer, 1)))))
    ratios = np.array([seconds(ours, repeat) / seconds(peer, repeat) for _ in range(rounds)])
    middle = np.median(ratios)
    return middle, np.median(np.abs(ratios - middle))


clock = time.perf_counter


def seconds(function, repeat):
    start = clock()
    for _ in range(repeat):
        function()
    return (clock() - start) / repeat


class Bench:
    def __init__(self, rounds):
        self.rounds, self.rows = rounds, []

    def row(self, name, peer_name, ours, peer, tolerance=1e-13):
        a, b = ours(), peer()
        error = float(np.max(np.abs(a - b)) / (np.max(np.abs(b)) or 1))
        if not error <= tolerance:
            print(f"{name:44} {peer_name:24} WRONG: {error:.1e}")
            self.rows.append({"name": name, "peer": peer_name, "wrong": error})
            return
        middle, scatter = ratio(ours, peer, self.rounds)
        side = "level" if abs(middle - 1) <= max(0.01, 2 * scatter) else "ours" if middle < 1 else "peer"
        print(f"{name:44} {peer_name:24} {middle:6.2f} +- {scatter:4.2f}  {side:6} check {error:.0e}")
        self.rows.append({"name": name, "peer": peer_name, "ratio": middle, "scatter": scatter, "check": error})


def formulas(bench, sizes):
    rng = np.random.default_rng(7)
    try:
        import numexpr
        numexpr.set_num_threads(1)
    except ImportError:
        numexpr = None
        print("numexpr is not installed: its rows are left out")
    for n in sizes:
        x, y = rng.random(n), rng.random(n)
        f, out = qx.Formulas(x=x, y=y), np.empty(n)
        for name, text in (("E1", E1), ("E2", E2), ("law", LAW)):
            kernel = lambda: f(text, out=out, threads=1)
            plain, target = numpy_of(text), np.empty(n)
            bench.row(f"{name}, {n} points", "NumPy", kernel, lambda: plain(x, y))
            if numexpr:
                theirs = text.replace("^", "**")
                bench.row(f"{name}, {n} points", "numexpr", kernel, lambda: numexpr.evaluate(theirs, {"x": x, "y": y}, out=target))
    n = sizes[-1]
    x, y = rng.random(n), rng.random(n)
    f, out = qx.Formulas(x=x, y=y), np.empty(n)
    if clock is time.perf_counter:
        bench.row(f"law, {n} points, two threads", "ours, one thread", lambda: f(LAW, out=out, threads=2).copy(),
                  lambda: f(LAW, out=out, threads=1).copy())
    if numexpr:
        z, w = x + 1j * y, y - 1j * x
        g = qx.Formulas(z=z, w=w)
        for name, text in (("complex polynomial", "z^2+2*z*w+w^2"), ("complex with exp, sin", "exp(z)*sin(w)")):
            theirs = text.replace("z^2", "z*z").replace("w^2", "w*w")
            bench.row(f"{name}, {n} points", "numexpr", lambda: g(text, threads=1), lambda: numexpr.evaluate(theirs, {"z": z, "w": w}))
    one, two = np.array([1.5]), np.array([2.0])
    f = qx.Formulas(x=one, y=two)
    for name, text in (("E1", E1), ("law", LAW)):
        plain = numpy_of(text)
        bench.row(f"{name}, one point (overhead of the call)", "NumPy", lambda: f(text), lambda: plain(one, two))


def tables(bench, points):
    """Linear interpolation on a grid of three axes at random points."""
    try:
        from scipy.interpolate import RegularGridInterpolator
    except ImportError:
        return
    rng = np.random.default_rng(11)
    axes = [np.cumsum(rng.uniform(0.5, 1.5, 40)) for _ in range(3)]
    values = rng.random((40, 40, 40))
    at = [rng.uniform(axis[0], axis[-1], points) for axis in axes]
    table, peer, stacked = qx.Table(tuple(axes), values), RegularGridInterpolator(axes, values), np.stack(at, axis=1)
    bench.row(f"linear table, 3 axes, {points} points", "SciPy", lambda: table(*at), lambda: peer(stacked))


def poisson(n, dimensions):
    """The Laplacian on a grid, as a SciPy matrix."""
    from scipy import sparse
    line = sparse.diags([-1.0, 2.0, -1.0], [-1, 0, 1], (n, n))
    eye = sparse.identity(n)
    total = line
    for _ in range(dimensions - 1):
        total = sparse.kron(total, eye) + sparse.kron(sparse.identity(total.shape[0]), line)
    return total.tocsc()


def solution(bench, sizes):
    try:
        from scipy.sparse.linalg import splu
    except ImportError:
        print("SciPy is not installed: its rows are left out")
        return
    for n in sizes:
        A = poisson(n, 3)
        b = np.ones(A.shape[0])
        bench.row(f"factor and solve {n}^3", "SciPy, default", lambda: qx.splu(A).solve(b), lambda: splu(A).solve(b), 1e-9)
        best = dict(permc_spec="MMD_AT_PLUS_A", options={"SymmetricMode": True}, diag_pivot_thresh=0.0)
        bench.row(f"factor and solve {n}^3", "SciPy, at its best", lambda: qx.splu(A).solve(b),
                  lambda: splu(A, **best).solve(b), 1e-9)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=11)
    parser.add_argument("--quick", action="store_true", help="small sizes, three rounds")
    parser.add_argument("--cpu", action="store_true", help="processor time of all threads, for a busy machine")
    parser.add_argument("--json", metavar="FILE")
    options = parser.parse_args()
    if options.cpu:
        global clock
        clock = time.process_time
    kind = "processor" if options.cpu else "wall"
    bench = Bench(3 if options.quick else options.rounds)
    print(f"qxkernel {qx.__version__}, Python {platform.python_version()}, NumPy {np.__version__}, "
          f"{platform.processor() or platform.machine()}, {kind} time, {time.strftime('%Y-%m-%d')}")
    formulas(bench, (10**4,) if options.quick else (10**4, 10**5, 10**6))
    tables(bench, 10**4 if options.quick else 10**6)
    bench.rounds = min(bench.rounds, 3)
    solution(bench, (8,) if options.quick else (24,))
    if options.json:
        with open(options.json, "w") as file:
            json.dump(bench.rows, file, indent=1)


if __name__ == "__main__":
    main()

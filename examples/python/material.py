# SPDX-License-Identifier: LicenseRef-qxkernel
"""A material given by a table, in a formula, with the slope that Newton's method wants.

Builds on: Table for the data, Formulas for the rest.
Run:       material.py [--svg material.svg]

A bar of length 1 conducts heat, (k(u) u')' = 0, u(0) = 20, u(1) = 900. The conductivity of steel comes as points of
k(u) = 54 - 0.0333 u up to 800 degrees and 27.3 from there on (EN 1993-1-2:2005, 3.4.1.3, W/(m K)).
"""

import sys

import numpy as np
import qxkernel as qx

points = np.array([20.0, 100, 200, 300, 400, 500, 600, 700, 800, 900, 1200])
table = qx.Table(points, np.where(points < 800, 54 - 3.33e-2 * points, 27.3), method="piecewisecubic")

n = 200
u = np.linspace(20, 900, n + 1)
f = qx.Formulas("u").table("k", table)
for step in range(1, 20):
    middle, slope = (u[1:] + u[:-1]) / 2, np.diff(u) * n
    f.set(u=middle)
    k, (dk,) = f.gradient("k(u)", ["u"])
    residual = np.diff(k * slope)
    if np.abs(residual).max() < 1e-7:
        break
    # d(k slope)/du_left and /du_right of each cell, then the equations of the inner nodes
    left, right = dk * slope / 2 - k * n, dk * slope / 2 + k * n
    inner = np.arange(n - 1)
    J = qx.Sparse.from_triplets(np.concatenate([inner, inner, inner[1:], inner[:-1]]),
                                np.concatenate([inner, inner, inner[:-1], inner[1:]]),
                                np.concatenate([left[1:], -right[:-1], -left[1:-1], right[1:-1]]), (n - 1, n - 1))
    u[1:-1] -= qx.splu(J).solve(residual)

flux = k * slope
print(f"{step - 1} Newton steps; the flux is {flux.mean():.3f} W/m^2, the same in all cells to {np.ptp(flux):.1e}")
print(f"u(0.5) = {u[n // 2]:.4f}")

if "--svg" in sys.argv[1:]:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    figure, (left, right) = plt.subplots(1, 2, figsize=(9, 3.6))
    fine = np.linspace(20, 1200, 500)
    left.plot(fine, table(fine), label="k(u)")
    left.plot(points, table(points), "o")
    left.set(xlabel="u", ylabel="k in W/(m K)", title="Conductivity of steel")
    right.plot(np.linspace(0, 1, n + 1), u)
    right.set(xlabel="x", ylabel="u", title="Temperature of the bar")
    figure.tight_layout()
    figure.savefig(sys.argv[sys.argv.index("--svg") + 1])

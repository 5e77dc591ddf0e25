# SPDX-License-Identifier: LicenseRef-qxkernel
"""Stationary heat conduction on a plate with a hole, -div(k(x,y) grad u) = q(x,y), in about forty lines.

Builds on: Formulas for the coefficients, Sparse for assembly, nullspace and splu for constraints and solution.
Run:       heat.py [--svg heat.svg]

  1. A mesh of triangles: a ring of quadrilaterals between the hole and the plate's edge, each cut in two.
  2. Conductivity and source are formulas, evaluated at all centroids at once.
  3. Linear elements, all of them at once with NumPy; Sparse.from_triplets adds what belongs together.
  4. The rim of the hole is held at 0 by constraints N u = 0; the null space of N eliminates them.

To try: another conductivity; a rim that is held at a formula of x and y (a particular solution comes in then).
"""

import sys

import numpy as np
import qxkernel as qx

K = "1+4*exp(-20*((x-0.6)^2+y^2))"
Q = "10*sin(pi*x)^2"

# 1. Mesh: n points around, m outwards; the outer edge is the square |x|, |y| <= 1.
n, m = 128, 48
angle = np.linspace(0, 2 * np.pi, n, endpoint=False)
circle = np.stack([np.cos(angle), np.sin(angle)])
square = circle / np.abs(circle).max(axis=0)
s = np.linspace(0, 1, m)[:, None]
x, y = ((1 - s) * 0.3 * circle[:, None, :] + s * square[:, None, :]).reshape(2, -1)
i, j = np.meshgrid(np.arange(m - 1), np.arange(n), indexing="ij")
a, b, c, d = (((i + di) * n + (j + dj) % n).ravel() for di, dj in ((0, 0), (1, 0), (1, 1), (0, 1)))
triangles = np.concatenate([np.stack([a, b, c]), np.stack([a, c, d])], axis=1)

# 2. Coefficients at the centroids.
px, py = x[triangles], y[triangles]
f = qx.Formulas(x=px.mean(axis=0), y=py.mean(axis=0))
k, q = f([K, Q])

# 3. Elements: with b, c the edges' components, K_ij = k (b_i b_j + c_i c_j) / (4 area).
b, c = np.roll(py, -1, 0) - np.roll(py, -2, 0), np.roll(px, -2, 0) - np.roll(px, -1, 0)
area = 0.5 * (px[0] * b[0] + px[1] * b[1] + px[2] * b[2])
stiffness = (b[:, None] * b + c[:, None] * c) * (k / (4 * area))
rows, cols = np.broadcast_arrays(triangles[:, None], triangles)
A = qx.Sparse.from_triplets(rows.ravel(), cols.ravel(), stiffness.ravel(), (x.size, x.size))
load = np.bincount(triangles.ravel(), np.tile(q * area / 3, 3), x.size)

# 4. Constraints, reduction, solution.
rim = np.arange(n)
N = qx.Sparse.from_triplets(np.arange(n), rim, np.ones(n), (n, x.size))
null = qx.nullspace(N).null
u = null @ qx.splu(null.T @ A @ null).solve(null.T @ load)

residual = (A @ u - load)[n:]
print(f"{x.size} nodes, {triangles.shape[1]} triangles; u between {u.min():.4f} and {u.max():.4f}")
print(f"largest residual off the rim {np.abs(residual).max():.1e}; heat that leaves through the rim "
      f"{-(A @ u - load)[:n].sum():.6f}, heat that comes in {load.sum():.6f}")

if "--svg" in sys.argv[1:]:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    figure, axes = plt.subplots(figsize=(6, 5))
    picture = axes.tricontourf(x, y, triangles.T, u, levels=24, cmap="inferno")
    figure.colorbar(picture, label="temperature")
    axes.set(aspect="equal", xlabel="x", ylabel="y", title="Heat conduction around a hole")
    figure.savefig(sys.argv[sys.argv.index("--svg") + 1])

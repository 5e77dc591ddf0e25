# SPDX-License-Identifier: LicenseRef-qxkernel
"""A pendulum written down in Cartesian coordinates, made solvable by index reduction, integrated by SciPy.

Builds on: DAE for the reduction, Formulas for residual and Jacobian. Needs SciPy.
Run:       pendulum.py [--svg pendulum.svg]

  1. The force p in the rod appears in no equation that could give it: index 3.
  2. DAE.reduce() differentiates the length of the rod twice; two derivatives become unknowns of their own.
  3. The reduced equations are linear in what is not integrated: one Newton step a call solves them.
  4. The energy, which the integration does not use, tells how good the motion is.
"""

import sys

import numpy as np
import qxkernel as qx
from scipy.integrate import solve_ivp

m, g, length = 0.5, 9.81, 1.25
system = qx.DAE(["m*d(d(x,t),t)+p*x", "m*d(d(y,t),t)+p*y+m*g", "x^2+y^2-l^2"], ["p", "y", "x"])
print("As written down:\n", system, sep="\n")
print("Reduced, with", " and ".join(system.reduce().dummies), "as new unknowns:\n")
print(system)

unknowns = ["p", "y", "xtt", "y_dummy1", "y_dummy2"]  # what x and xt determine
algebra = qx.Formulas("x", "xt", *unknowns, m=m, g=g, l=length).vector_function(system.equations, unknowns)


def solve(x, xt, guess):
    algebra.set(x=x, xt=xt)
    for _ in range(20):
        residual = algebra(guess)
        if np.abs(residual).max() < 1e-13:
            break
        guess = guess - np.linalg.solve(algebra.jac(guess), residual)
    return guess


start = np.array([1.0, -length, 0.0, 0.0, 0.0])
motion = solve_ivp(lambda t, s: [s[1], solve(*s, start)[2]], (0, 3), [length * np.sin(1.2), 0.0], rtol=1e-8, atol=1e-10,
                   dense_output=True)
times = np.linspace(0, 3, 61)
x, xt = motion.sol(times)
rest = np.array([solve(*state, start) for state in zip(x, xt)])
y, yt = rest[:, 1], rest[:, 3]
energy = 0.5 * m * (xt**2 + yt**2) + m * g * y
print(f"energy {energy[0]:.6f} J, largest drift {np.abs(energy - energy[0]).max():.1e} J in {motion.t.size - 1} steps")

if "--svg" in sys.argv[1:]:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    figure, axes = plt.subplots(figsize=(6, 4))
    axes.plot(times, x, label="x")
    axes.plot(times, y, label="y")
    axes.set(xlabel="t / s", ylabel="m", title="Pendulum, from 1.2 rad")
    axes.legend()
    figure.savefig(sys.argv[sys.argv.index("--svg") + 1])

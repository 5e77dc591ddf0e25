# SPDX-License-Identifier: LicenseRef-qxkernel
"""Formulas that users type, beside the same in NumPy: values, gradients, failing points, shapes.

Run:       formulas.py

To try: 801 points in x and y, so that one is the origin, where sqrt has no derivative; another formula in WAVE and NumPy's form of it below; float32 arrays; a third axis.
"""

import numpy as np
import qxkernel as qx

WAVE = "exp(-r^2)*sin(a*x)"

x, y = np.meshgrid(np.linspace(-2, 2, 800), np.linspace(-2, 2, 600))
f = qx.Formulas(x=x, y=y, a=3.0).define(r="sqrt(x**2+y**2)")

wave, (by_x, by_y) = f.gradient(WAVE, ["x", "y"])
envelope = np.exp(-x**2 - y**2)
print(f"value:    largest difference from NumPy {np.abs(wave - envelope * np.sin(3 * x)).max():.1e}")
print(f"d/dx:     {np.abs(by_x - envelope * (3 * np.cos(3 * x) - 2 * x * np.sin(3 * x))).max():.1e}")
print(f"d/dy:     {np.abs(by_y + 2 * y * envelope * np.sin(3 * x)).max():.1e}")

try:
    f("log(x)/y")
except qx.Error as error:
    print(f"log(x)/y: {error.identifier} at point {error.point}")
values, failures = f("sqrt(x)", on_failure="nan")
print(f"sqrt(x):  no value at {failures.count} points, NaN there; with complex=True {f('sqrt(x)', complex=True)[0, 0]:.4f}")

column, row = np.arange(3.0)[:, None], np.arange(4, dtype=np.float32)
print(f"shapes:   {column.shape} and {row.shape} give {qx.Formulas(p=column, q=row)('10*p+q').shape}")

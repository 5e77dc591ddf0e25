#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Writes the material table of the examples: python3 make_steel.py.

steel.csv           T (degrees Celsius), k (W/(m K)) thermal conductivity, c (J/(kg K)) specific heat of carbon steel
temperatures.csv    T from 0 to 1300: where curves are drawn

Source of the formulas: EN 1993-1-2, Design of steel structures, part 1-2: structural fire design, 3.4.1.2 and 3.4.1.3. The
specific heat has a peak at 735 degrees, where the crystal structure changes.
"""
import pathlib

HERE = pathlib.Path(__file__).resolve().parent


def conductivity(t):
    return 54 - 3.33e-2 * t if t < 800 else 27.3


def heat(t):
    if t < 600:
        return 425 + 7.73e-1 * t - 1.69e-3 * t ** 2 + 2.22e-6 * t ** 3
    if t < 735:
        return 666 + 13002 / (738 - t)
    if t < 900:
        return 545 + 17820 / (t - 731)
    return 650.0


points = [20, 100, 200, 300, 400, 500, 600, 650, 690, 710, 725, 735, 745, 760, 780, 800, 850, 900, 1000, 1200]
with open(HERE / "steel.csv", "w", newline="\n") as out:
    out.write("# carbon steel, EN 1993-1-2; made by make_steel.py\nT,k,c\n")
    for t in points:
        out.write(f"{t},{conductivity(t):.6g},{heat(t):.6g}\n")
with open(HERE / "temperatures.csv", "w", newline="\n") as out:
    out.write("T\n" + "".join(f"{t}\n" for t in range(0, 1301, 2)))

#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Meshes the part and writes the tables of the examples: run here, needs the program gmsh.

finned_pipe.msh             the mesh with its named boundaries
finned_pipe_points.csv      x, y (m); T (degrees Celsius) and w (mm), smooth made-up fields
finned_pipe_triangles.csv   a, b, c: the corners of each triangle, counterclockwise, as line numbers of the points from 1

T falls from 80 at the bore towards 22 with the distance, faster inside the fins. w is a standing wave of the base.
"""
import math
import pathlib
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
BORE, RADIUS = (0.5, 0.27), 0.115


def temperature(x, y):
    distance = math.hypot(x - BORE[0], y - BORE[1]) - RADIUS
    fin = 1.0 / (1.0 + math.exp((y - 0.02) / 0.03)) * max(0.0, 0.05 - y)
    return 22.0 + 58.0 * math.exp(-distance / 0.42 - 1.9 * fin)


def deflection(x, y):
    return 0.8 * math.sin(2.0 * math.pi * x) * math.cos(3.0 * y) + 0.15 * math.cos(6.0 * math.pi * x) * y


def blocks(lines):
    """The entity blocks of a section: (dimension, count, offset of the first line behind the header)."""
    n_blocks, at = int(lines[0].split()[0]), 1
    for _ in range(n_blocks):
        dimension, _, _, count = map(int, lines[at].split())
        yield dimension, count, at + 1
        at += 1 + count * (2 if lines is NODES else 1)


subprocess.run(["gmsh", "-2", "-v", "1", "-format", "msh41", "-o", "finned_pipe.msh", "finned_pipe.geo"],
               cwd=HERE, check=True)
text = (HERE / "finned_pipe.msh").read_text()
NODES = text.split("$Nodes\n")[1].split("$EndNodes")[0].splitlines()
ELEMENTS = text.split("$Elements\n")[1].split("$EndElements")[0].splitlines()

position = {}
for _, count, at in blocks(NODES):
    for k in range(count):
        x, y, _ = map(float, NODES[at + count + k].split())
        position[int(NODES[at + k])] = (x, y)
triangles = [[int(t) for t in line.split()[1:]]
             for dimension, count, at in blocks(ELEMENTS) if dimension == 2
             for line in ELEMENTS[at:at + count]]

number = {}                     # only nodes of triangles: the mesh also holds the centres of the arcs
for corner in sorted({c for t in triangles for c in t}):
    number[corner] = len(number) + 1
with open(HERE / "finned_pipe_points.csv", "w") as out:
    out.write("x,y,T,w\n")
    for corner in number:
        x, y = position[corner]
        out.write(f"{x:.7g},{y:.7g},{temperature(x, y):.5f},{deflection(x, y):.6f}\n")
with open(HERE / "finned_pipe_triangles.csv", "w") as out:
    out.write("a,b,c\n")
    for t in triangles:
        out.write(",".join(str(number[c]) for c in t) + "\n")
print(len(number), "points,", len(triangles), "triangles")

#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Draws docs/images/design.svg: the way of one formula through the house. Its own colours for light and dark pages."""
import pathlib

W = 980
BOXES = [ # x, y, width, title, lines
    (20, 20, 200, "Formulas::add", ['"sin(a*x)/(x^2+1)"', "text of a user", "formulas/"]),
    (270, 20, 200, "reader", ["/ (sin) * a x + ^ x 2 1", "tree of symbols", "symbolic/"]),
    (520, 20, 200, "NodeMaker", ["constants folded,", "equal parts are one node", "eval/"]),
    (770, 20, 190, "graph", ["immutable, shared", "by all threads", "eval/"]),
    (770, 190, 190, "derivative", ["each function's rule", "makes nodes of this graph", "functions/"]),
    (520, 190, 200, "program", ["a row of kernel calls", "with registers, parts once", "eval/"]),
    (270, 190, 200, "block of 1000 points", ["one worker a thread,", "values stay in the cache", "formulas/"]),
    (20, 190, 200, "kernel", ["sin of 4 or 8 lanes,", "the same bits everywhere", "functions/, base/"]),
    (20, 360, 200, "values", ["double or complex,", "NaN with its story", "eval/ → your spans"]),
    (270, 360, 200, "assembly", ["triplets of elements,", "sparse columns", "sparse/"]),
    (520, 360, 200, "constraints", ["null space of Nᴴ,", "contradictions named", "solvers/"]),
    (770, 360, 190, "solution", ["UMFPACK, refined,", "cancelled when you like", "solvers/"]),
]
ARROWS = [(0, 1), (1, 2), (2, 3), (3, 4), (4, 5), (5, 6), (6, 7), (7, 8), (8, 9), (9, 10), (10, 11)]
H = 96


def arrow(a, b):
    xa, ya, wa = a[:3]
    xb, yb, wb = b[:3]
    if ya == yb:
        y = ya + H / 2
        return (xa + wa, y, xb - 3, y) if xb > xa else (xa, y, xb + wb + 3, y)
    return (xa + wa / 2, ya + H, xb + wb / 2, yb - 3)


def text(s):
    return s.replace("&", "&amp;").replace("<", "&lt;")


out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {W} 476" font-family="sans-serif" font-size="13" role="img"',
       '  aria-label="The way of one formula through the library">',
       "<style>.box{fill:#eef3fa;stroke:#33608f}.t{fill:#12263a}.h{font-weight:bold}.f{fill:#33608f;font-family:monospace}",
       ".a{stroke:#33608f;stroke-width:1.6;fill:none}.m{fill:#33608f}",
       "@media(prefers-color-scheme:dark){.box{fill:#1d2a38;stroke:#7fb0e0}.t{fill:#e6edf3}.f{fill:#7fb0e0}.a{stroke:#7fb0e0}.m{fill:#7fb0e0}}",
       "</style>",
       '<defs><marker id="m" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" orient="auto">'
       '<path class="m" d="M0 0 8 4 0 8z"/></marker></defs>']
for x, y, w, title, lines in BOXES:
    out.append(f'<rect class="box" x="{x}" y="{y}" width="{w}" height="{H}" rx="7"/>')
    out.append(f'<text class="t h" x="{x + 12}" y="{y + 22}">{text(title)}</text>')
    for k, line in enumerate(lines):
        kind = "f" if k + 1 == len(lines) else "t"
        out.append(f'<text class="{kind}" x="{x + 12}" y="{y + 43 + 19 * k}">{text(line)}</text>')
for a, b in ARROWS:
    x1, y1, x2, y2 = arrow(BOXES[a], BOXES[b])
    out.append(f'<path class="a" marker-end="url(#m)" d="M{x1} {y1}L{x2} {y2}"/>')
out.append("</svg>")
(pathlib.Path(__file__).parent / "design.svg").write_text("\n".join(out) + "\n", encoding="utf-8")

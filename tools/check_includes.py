#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Fails on an include that the floor table forbids, and on a circular include.

usage: check_includes.py BUILD_DIR      (reads headers.txt and uses.txt that the configure step writes there)
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)


def rows(path):
    return [line.split() for line in path.read_text().splitlines() if line.strip()]


def main():
    build = pathlib.Path(sys.argv[1])
    owner = {header: folder for header, folder in rows(build / "headers.txt")}
    uses = {row[0]: set(row[1:]) | {row[0]} for row in rows(build / "uses.txt")}
    errors = []
    edges = {}

    def folder_of(name):
        parts = name.split("/")
        return parts[0] if len(parts) > 1 and parts[0] in uses else owner.get(parts[-1])

    def scan(path, folder):
        found = INCLUDE.findall(path.read_text(encoding="utf-8"))
        for name in found:
            target = folder_of(name)
            if target is None:
                if not (path.parent / name).exists():
                    errors.append(f"{path.relative_to(ROOT)}: \"{name}\" belongs to no folder of the floor table")
            elif target not in uses[folder]:
                errors.append(f"{path.relative_to(ROOT)}: {folder}/ may not include \"{name}\" of {target}/")
        return found

    for header, folder in owner.items():
        edges[header] = [n for n in scan(ROOT / "include" / header, folder) if n in owner]
    for folder in uses:
        for path in sorted((ROOT / folder).glob("*.[ch]*")):
            scan(path, folder)
    for header in sorted(p.name for p in (ROOT / "include").glob("*.h*")):
        if header not in owner:
            errors.append(f"include/{header}: no folder names it among its HEADERS")

    state = {}

    def visit(header, trail):
        if state.get(header) == "done":
            return
        if header in trail:
            errors.append("circular include: " + " -> ".join(trail[trail.index(header):] + [header]))
            return
        for nxt in edges[header]:
            visit(nxt, trail + [header])
        state[header] = "done"

    for header in edges:
        visit(header, [])

    print("\n".join(sorted(set(errors))) or f"includes: {len(owner)} public headers, {len(uses)} folders, floor table holds")
    sys.exit(1 if errors else 0)


main()

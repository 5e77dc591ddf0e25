#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Fails when a folder's objects need a symbol that only a folder outside its row of the floor table defines.

It is the linker's view of the table, taken from the objects of a finished build: what would stay undefined if each
folder were linked as a library of its own against the folders that it may use.

usage: check_symbols.py BUILD_DIR      (reads uses.txt that the configure step writes there)
"""
import pathlib
import subprocess
import sys


def symbols(objects, *options):
    out = subprocess.run(["nm", "--portability", "--no-sort", *options, *objects], check=True, capture_output=True, text=True)
    return {line.split()[0] for line in out.stdout.splitlines() if line and not line.endswith(":")}


def main():
    build = pathlib.Path(sys.argv[1])
    uses = {row[0]: set(row[1:]) for row in map(str.split, (build / "uses.txt").read_text().splitlines()) if row}
    defined, needed = {}, {}
    for folder in uses:
        parts = list((build / folder / "CMakeFiles").glob(f"qx_{folder}*.dir"))
        if not parts:  # an optional folder that this build leaves out
            defined[folder], needed[folder] = set(), set()
            continue
        objects = sorted(str(o) for part in parts for o in part.rglob("*.o"))
        if not objects:
            sys.exit(f"symbols: no objects of {folder}/ in {build}; build it first")
        defined[folder] = symbols(objects, "--defined-only", "--extern-only")
        needed[folder] = symbols(objects, "--undefined-only") - defined[folder]

    errors = []
    for folder, names in needed.items():
        for name in sorted(names):
            owners = {other for other in defined if name in defined[other]}
            if owners and not owners & uses[folder]:
                errors.append(f"{folder}/ needs {name} of {', '.join(sorted(owners))}/")
    print("\n".join(errors) or f"symbols: {len(uses)} folders, floor table holds")
    sys.exit(1 if errors else 0)


main()

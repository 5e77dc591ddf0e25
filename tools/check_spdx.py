#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Fails on a source file whose head has no SPDX line; with --write adds the missing ones.

Files that cannot carry such a line (data, pictures, texts, programs that pages show whole) are covered by REUSE.toml.

usage: check_spdx.py [--write]
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LINE = "SPDX-License-Identifier: LicenseRef-qxkernel"
COMMENT = {".c": "//", ".cpp": "//", ".h": "//", ".hpp": "//", ".java": "//", ".cmake": "#", ".py": "#", ".pyi": "#", ".sh": "#",
           "CMakeLists.txt": "#", "Makefile": "#"}


def comment_of(path):
    """How the file starts a comment; None for a file that is no source."""
    mark = COMMENT.get(path.name) or COMMENT.get(path.suffix)
    if mark is None and not path.suffix and path.is_file():
        with path.open("rb") as file:
            mark = "#" if file.read(2) == b"#!" else None
    return mark


def main():
    tracked = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True, text=True).stdout
    shown = re.findall(r'"([^"]+)"', re.search(r"^path = \[(.*?)\]", (ROOT / "REUSE.toml").read_text(), re.M | re.S)[1])
    checked, missing = 0, []
    for name in filter(None, tracked.split("\0")):
        path = ROOT / name
        mark = comment_of(path) if path.exists() else None
        if mark is None or any(pathlib.PurePath(name).match(pattern) for pattern in shown):
            continue
        checked += 1
        text = path.read_text(encoding="utf-8")
        head = text.split("\n", 2)[:2]
        if any(re.fullmatch(re.escape(f"{mark} {LINE}"), line) for line in head):
            continue
        missing.append(name)
        if "--write" in sys.argv[1:]:
            first, rest = ("", text) if not text.startswith("#!") else text.split("\n", 1)
            path.write_text((first + "\n" if first else "") + f"{mark} {LINE}\n{rest}", encoding="utf-8")

    if missing and "--write" not in sys.argv[1:]:
        print("\n".join(f"{name}: no line '{LINE}' at its head" for name in missing))
        sys.exit("SPDX lines are missing; tools/check_spdx.py --write adds them")
    print(f"SPDX lines: {checked} source files, {len(missing)} lines added" if missing else f"SPDX lines: {checked} source files")


main()

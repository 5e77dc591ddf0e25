#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""Holds the exported symbols of the shared library to the reviewed lists in cmake/.

exports.txt        every exported symbol, demangled; the version script is made from it. Within a major version it only grows.
not_exported.txt   names marked QX_API (with their class, say) that stay inside all the same: private members above all.

Fails when a listed symbol is not exported, when one is exported that is not listed, when the last tag of this major version
lists one that is gone, and when a marked symbol stands in neither list. Symbols of std and boost are never exported.

usage: check_exports.py BUILD_DIR                    the check
       check_exports.py BUILD_DIR --export REGEX     adds the marked symbols that match and stand in neither list to the first
       check_exports.py BUILD_DIR --inside REGEX     adds their names to the second
       check_exports.py BUILD_DIR --prune            drops listed symbols that no object defines and no tag of this version has
       check_exports.py BUILD_DIR --map FILE         for the build: the version script of the listed symbols and, with a warning,
                                                     of those that stand in neither list
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
EXPORTS = ROOT / "cmake" / "exports.txt"
INSIDE = ROOT / "cmake" / "not_exported.txt"
FOREIGN = ("std::", "boost::", "__", ".gomp_critical_user_", "_Z")  # __: the compiler's; _Z: lambdas without a readable name
OPERATOR = re.compile(r"operator ?(\(\)|\[\]|<=>|->\*?|<<=?|>>=?|<=?|>=?|[^\w\s(<>]+)")
DATA = re.compile(r"^(?:vtable|typeinfo|typeinfo name|VTT|guard variable) for |^(?:non-)?virtual thunk to ")


def output(*words, text=None):
    return subprocess.run(words, input=text, check=True, capture_output=True, text=True).stdout


def demangled(names):
    # As the linker reads names in a version script.
    return set(output("c++filt", "--no-verbose", text="\n".join(names)).splitlines())


def exported(library):
    rows = [line.split() for line in output("nm", "--dynamic", "--defined-only", library).splitlines()]
    return demangled(name.split("@")[0] for _, kind, name in rows if kind != "A")


def marked(objects):
    """Symbols of default visibility that the objects define."""
    rows = [line.split() for line in output("readelf", "--symbols", "--wide", *objects).splitlines()]
    return demangled({row[7] for row in rows if len(row) == 8 and row[4] in ("GLOBAL", "WEAK", "UNIQUE") and row[5] == "DEFAULT"
                      and row[6] != "UND"})


def name_of(symbol):
    """The qualified name in a demangled symbol: without template arguments, parameters and type of the result."""
    text = DATA.sub("", symbol).replace("(anonymous namespace)", "@")
    name, depth, at = "", 0, 0
    while at < len(text):
        operator = OPERATOR.match(text, at) if depth == 0 and name[-1:] in ("", ":", " ") else None
        if operator:
            name += operator[0].replace(" ", "")
            at = operator.end()
            continue
        c = text[at]
        depth += (c == "<") - (c == ">")
        if c == "(" and depth == 0:
            break
        if depth == 0 and c != ">":
            name += c
        at += 1
    conversion = re.search(r"\S*operator \w.*", name)
    return conversion[0] if conversion else re.sub(r"\[abi:\w+\]", "", name).split(" ")[-1]


def read(path):
    return {line for line in path.read_text().splitlines() if line and not line.startswith("#")}


def write(path, lines):
    head = [line for line in path.read_text().splitlines() if line.startswith("#")]
    path.write_text("\n".join(head + sorted(lines)) + "\n")


def major():
    return re.search(r"VERSION (\d+)\.", (ROOT / "CMakeLists.txt").read_text().split("project(", 1)[1])[1]


def last_tag():
    """The last tag of this major version, None where there is none (or no git)."""
    try:
        tags = output("git", "-C", str(ROOT), "tag", "--list", f"v{major()}.*", "--sort=version:refname").split()
    except (OSError, subprocess.CalledProcessError):
        return None
    return tags[-1] if tags else None


def main():
    build, action, pattern = pathlib.Path(sys.argv[1]), *(sys.argv[2:] + ["", ""])[:2]
    folders = [row.split()[0] for row in (build / "uses.txt").read_text().splitlines() if row]
    objects = [str(o) for f in folders for o in sorted((build / f / "CMakeFiles" / f"qx_{f}.dir").rglob("*.o"))]
    listed, inside = read(EXPORTS), read(INSIDE)
    defined = marked(objects)
    unjudged = {s for s in defined - listed if not (n := name_of(s)).startswith(FOREIGN) and n not in inside}

    tag = last_tag()
    promised = set(output("git", "-C", str(ROOT), "show", f"{tag}:cmake/exports.txt").splitlines()) if tag else set()

    if action == "--prune":
        gone = listed - defined - promised
        write(EXPORTS, listed - gone)
        print("\n".join(sorted(gone)) or "nothing to drop")
        return
    if action in ("--export", "--inside"):
        chosen = {s for s in unjudged if re.search(pattern, s)}
        if action == "--export":
            write(EXPORTS, listed | chosen)
        else:
            write(INSIDE, inside | {name_of(s) for s in chosen})
        print("\n".join(sorted(chosen)) or "nothing matches")
        return
    if action == "--map":
        if unjudged:
            print("exports: in neither list of cmake/ (tools/check_exports.py tells how to add them):")
            print("\n".join(["  " + s for s in sorted(unjudged)[:20]] + ["  ..."] * (len(unjudged) > 20)))
        names = "".join(f'    "{s}";\n' for s in sorted(listed | unjudged))
        pathlib.Path(pattern).write_text(f'QXKERNEL_{major()} {{\n  global: extern "C++" {{\n{names}  }};\n  local: *;\n}};\n')
        return

    there = exported(str(build / "libqxkernel.so"))
    errors = [f"listed but not exported: {s}" for s in sorted(listed - there)]
    errors += [f"exported but not listed: {s}" for s in sorted(there - listed)]
    errors += [f"marked QX_API but in neither list: {s}" for s in sorted(unjudged)]
    errors += [f"gone since {tag}: {s}" for s in sorted(promised - listed)]
    print("\n".join(errors) or f"exports: {len(there)} symbols, as listed; nothing gone since {tag or 'the first tag, still to come'}")
    sys.exit("exports: see the head of tools/check_exports.py" if errors else 0)


if __name__ == "__main__":
    main()

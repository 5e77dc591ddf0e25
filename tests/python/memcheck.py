# SPDX-License-Identifier: LicenseRef-qxkernel
"""Failed allocations under Valgrind's word: no invalid access and no lost block with a frame of this library.

memcheck.py LIBRARY   the file of failing_new. Ends with 77 where Valgrind is missing.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

STEP = "23"  # not every allocation, which takes minutes: the whole suite runs them natively
OURS = re.compile(r"qxkernel|_core\.")


def complaints(log):
    """The records of Valgrind's log, each a text; those that have a frame of ours."""
    records, lines = [], []
    for line in log.splitlines():
        text = re.sub(r"^==\d+== ?", "", line)
        if text.strip():
            lines.append(text)
        elif lines:
            records.append("\n".join(lines))
            lines = []
    serious = re.compile(r"^(Invalid|Conditional|Use of|Mismatched|Process terminating)|definitely lost in")
    return [r for r in records if OURS.search(r) and serious.search(r)]


def main():
    if not shutil.which("valgrind"):
        print("Valgrind is not installed")
        return 77
    here = pathlib.Path(__file__).parent
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder, "log")
        environment = dict(os.environ, PYTHONMALLOC="malloc", PYTHONDONTWRITEBYTECODE="1", OMP_NUM_THREADS="1",
                           OPENBLAS_NUM_THREADS="1", LD_PRELOAD=sys.argv[1])
        run = subprocess.run(
            ["valgrind", "--tool=memcheck", "--leak-check=full", "--show-leak-kinds=definite", "--num-callers=40",
             "--soname-synonyms=somalloc=nouserintercepts", f"--log-file={log}", sys.executable,
             str(here / "allocation_faults.py"), STEP],
            env=environment, check=False)
        text = log.read_text(errors="replace")
        found = complaints(text)
        if "HEAP SUMMARY" not in text:
            found.append("Valgrind did not come to its end:\n" + text[-2000:])
    for record in found:
        print(record, end="\n\n")
    return 1 if found or run.returncode else 0


if __name__ == "__main__":
    sys.exit(main())

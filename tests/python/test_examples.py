# SPDX-License-Identifier: LicenseRef-qxkernel
"""The example programs and the notebook run and print what they promise."""

import json
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

EXAMPLES = Path(__file__).resolve().parents[2] / "examples" / "python"


def run(name, *arguments):
    result = subprocess.run([sys.executable, EXAMPLES / name, *arguments], capture_output=True, text=True, timeout=300,
                            env={**os.environ, "MPLBACKEND": "Agg"})
    assert result.returncode == 0, result.stderr
    return result.stdout


def test_heat_leaves_as_much_as_it_takes_in(tmp_path):
    pytest.importorskip("matplotlib", reason="Matplotlib is not installed")

    text = run("heat.py", "--svg", tmp_path / "heat.svg")

    out, into = map(float, re.search(r"rim ([0-9.]+), heat that comes in ([0-9.]+)", text).groups())
    assert out == pytest.approx(into, rel=1e-9) and (tmp_path / "heat.svg").stat().st_size > 10_000


def test_the_pendulum_keeps_its_energy():
    pytest.importorskip("scipy", reason="SciPy is not installed")

    assert float(re.search(r"largest drift ([0-9.e+-]+) J", run("pendulum.py")).group(1)) < 1e-5


def test_newtons_method_converges_with_the_slope_of_the_table():
    """The same bar by hand: the integral of k from 20 to 900 is the flux, since it is constant along the bar."""
    text = run("material.py")

    steps, flux = re.search(r"(\d+) Newton steps; the flux is ([0-9.]+)", text).groups()
    exact = 54 * 780 - 3.33e-2 * (800**2 - 20**2) / 2 + 27.3 * 100
    assert int(steps) <= 6 and float(flux) == pytest.approx(exact, rel=1e-3)


def test_the_notebook_runs(monkeypatch):
    matplotlib = pytest.importorskip("matplotlib", reason="Matplotlib is not installed")
    matplotlib.use("Agg")
    names = {}

    for cell in json.loads((EXAMPLES / "tutorial.ipynb").read_text())["cells"]:
        if cell["cell_type"] == "code":
            exec(compile("".join(cell["source"]), "tutorial.ipynb", "exec"), names)

    assert names["failures"].count == 10000


def test_formulas_agree_with_numpy():
    text = run("formulas.py")

    differences = [float(value) for value in re.findall(r"(?:NumPy |d/d[xy]: +)([0-9.e+-]+)", text)]
    assert len(differences) == 3 and max(differences) < 1e-14
    assert "at point (0, 0)" in text and "no value at 240000 points" in text and "give (3, 4)" in text

# SPDX-License-Identifier: LicenseRef-qxkernel
import numpy as np
import pytest
from qxkernel import Error, Formulas, minimize


@pytest.fixture(autouse=True)
def optimizer():
    try:
        minimize(Formulas(), "x^2", {"x": 1.0})
    except Error as failure:
        if "library" in failure.identifier.lower():
            pytest.skip(f"the optimizer library is not there: {failure}")
        raise


def test_the_valley_of_rosenbrock():
    """The minimum 0 lies at (1, 1), as published."""
    best = minimize(Formulas(), "100*(y-x**2)**2+(1-x)**2", {"x": -1.2, "y": 1.0})

    assert best.success and best.code == 1
    assert best.x["x"] == pytest.approx(1, abs=1e-5) and best.value == pytest.approx(0, abs=1e-9)


def test_constraints_bounds_and_multipliers():
    """By hand: (3/2, 1/2) with grad f = (-1, -1) = -1 times the constraint's; with a <= 1/2 the bound alone holds a."""
    f = Formulas("a", "b", c=2.0).define(d="a-c")
    problem = dict(objective="d^2+(b-1)^2", start={"a": 0.0, "b": 0.0}, subject_to=[("a+b", None, 2.0)])

    best = minimize(f, **problem)
    bounded = minimize(f, **problem, bounds={"a": (None, 0.5)})

    assert best.x == pytest.approx({"a": 1.5, "b": 0.5}, abs=1e-5) and best.multipliers == pytest.approx([-1], abs=1e-4)
    assert best.constraints == pytest.approx([2.0], abs=1e-6) and bounded.x == pytest.approx({"a": 0.5, "b": 1}, abs=1e-5)


def test_maximise():
    best = minimize(Formulas(), "x*(2-x)", {"x": 0.0}, maximize=True)

    assert best.x["x"] == pytest.approx(1, abs=1e-5) and best.value == pytest.approx(1)


def test_an_infeasible_problem_raises_its_exit():
    with pytest.raises(Error) as failure:
        minimize(Formulas(), "x^2", {"x": 0.0}, subject_to=[("x", 2.0, None), ("x", None, 1.0)])
    assert "infeasib" in failure.value.identifier.lower()


def test_what_a_function_raises_leaves_unchanged():
    def fail(x):
        raise LookupError("as it was")

    f = Formulas().function("bad", fail, derivatives=["1"])
    with pytest.raises(LookupError, match="as it was"):
        minimize(f, "bad(x)", {"x": 0.0})
    assert minimize(Formulas(), "x^2", {"x": 1.0}).success


def test_unknown_options_are_refused():
    with pytest.raises(Error) as failure:
        minimize(Formulas(), "x^2", {"x": 1.0}, options={"nobody": 1})
    assert failure.value.identifier == "Unknown_property"

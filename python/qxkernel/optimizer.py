# SPDX-License-Identifier: LicenseRef-qxkernel
"""Optimisation of formulas."""

from collections import namedtuple

import numpy as np

from . import _core
from ._progress import progress_function
from .formulas import VectorFunction

__all__ = ["Optimum", "minimize", "set_optimizer_path"]

_INFINITE = 1e20

Optimum = namedtuple("Optimum", "x value multipliers constraints success code message iterations")
Optimum.__doc__ = """What minimize returns: x {name: value}, value of the objective, multipliers of the constraints, values of
the constraints, whether the optimality conditions hold, exit code and text of the optimizer, iterations."""


def set_optimizer_path(folder):
    """A folder in which the optimizer library is looked for first."""
    import os
    _core.set_optimizer_path(os.fspath(folder))


def minimize(formulas, objective, start, *, bounds=None, subject_to=(), maximize=False, options=None, progress=None,
             cancel=None):
    """The optimum of a formula, with exact derivatives from the evaluation graph.

    formulas    a Formulas with definitions, functions, tables and further variables (numbers)
    objective   text
    start       {name: value} of the variables of the optimisation
    bounds      {name: (lower, upper)}, None for no bound
    subject_to  list of (text, lower, upper): lower <= text <= upper
    options     properties of the optimizer, such as {"opttol": 1e-8, "majitlim": 200}

    Needs the optimizer library (the free one is built where IPOPT is installed). An early end, infeasible or unbounded
    problems among them, raises qxkernel.Error with the text of the exit as identifier, unless options has "stop": "off".
    One optimisation at a time in a process: others wait.
    """
    names = list(start)
    texts = [objective] + [text for text, _, _ in subject_to]
    function = VectorFunction(formulas, texts, names)
    rows, columns = np.nonzero(function.sparsity)
    lower, upper = np.full(len(names), -_INFINITE), np.full(len(names), _INFINITE)
    for name, pair in (bounds or {}).items():
        k = names.index(name)
        lower[k], upper[k] = _bounds(*pair)
    limits = np.array([(-_INFINITE, _INFINITE)] + [_bounds(low, high) for _, low, high in subject_to])

    def values(x):
        return function(x), function.jac(x)[rows, columns]

    options = dict(options or {})
    if maximize:
        options["maximize"] = "on"
    with progress_function(progress) as report:
        x, F, _, multipliers, code, iterations, message = _core.optimize(
            values, np.array([float(start[name]) for name in names]), lower, upper, limits[:, 0], limits[:, 1],
            (rows + 1).tolist(), (columns + 1).tolist(), options, report, cancel)
    return Optimum(dict(zip(names, x.tolist())), float(F[0]), multipliers[1:], F[1:], code in (1, 2), code, message,
                   iterations)


def _bounds(low, high):
    return -_INFINITE if low is None else max(float(low), -_INFINITE), \
        _INFINITE if high is None else min(float(high), _INFINITE)

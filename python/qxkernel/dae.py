# SPDX-License-Identifier: LicenseRef-qxkernel
"""Differential-algebraic systems and the reduction of their index."""

from collections import Counter, namedtuple
from itertools import chain

from . import _core
from ._text import kernel_text, variable_name
from ._progress import progress_function

__all__ = ["DAE"]

Variable = namedtuple("Variable", "name order kind value derivative")
Variable.__doc__ = """A variable of a system: name, order of the derivative that it is, kind ("unknown", "function",
"constant", "excluded", "eliminated", "replaced"), value of a constant, index of its derivative in time or -1."""


class DAE:
    """A system of equations (text = 0) in unknowns and their derivatives d(x,t), d(d(x,t),t), ...

    equations  list of texts, each equal to 0
    unknowns   names; of two derivatives of the same order that could become a dummy, the one of the unknown that was
               named first does: name first what the constraints determine, last what is to be integrated
    functions  names of functions given from outside: their derivatives in time count as 0
    excluded   names of unknowns that are never matched
    time       name of the time

    Other names are constant parameters. A method that fails or is cancelled leaves the system as it was.

    Fails: ValueError for what is no name, or named twice; qxkernel.Error for texts, and see reduce().
    """

    def __init__(self, equations, unknowns, *, functions=(), excluded=(), time="t"):
        names = [tuple(map(variable_name, group)) for group in (unknowns, functions, excluded, (time,))]
        for name, times in Counter(chain.from_iterable(names)).items():
            if times > 1:
                raise ValueError(f"{name!r} is named twice")
        self._arguments = (tuple(kernel_text(text) for text in equations), *names[:3], names[3][0])
        self._steps = []
        self._start()

    def _start(self):
        equations, unknowns, functions, excluded, time = self._arguments
        self._system = _core.DaeSystem(time)
        for kind, names in (("unknown", unknowns), ("function", functions), ("excluded", excluded)):
            for name in names:
                self._system.add_variable(name, kind, 0.0)
        for text in equations:
            self._system.add_equation(text)

    def __getstate__(self):
        return {"arguments": self._arguments, "steps": self._steps}

    def __setstate__(self, state):
        self._arguments, self._steps = state["arguments"], list(state["steps"])
        self._start()
        for step in self._steps:
            getattr(self._system, step)(None, None)

    def _run(self, step, progress, cancel):
        with progress_function(progress) as report:
            getattr(self._system, step)(report, cancel)
        self._steps.append(step)
        return self

    def reduce(self, *, progress=None, cancel=None):
        """Reduces the structural index to one at most: some equations are differentiated, some derivatives become
        unknowns of their own (`dummies`). Returns self.

        Fails: "The DAE is structurally inconsistent." (as many equations as unknowns are needed), "The DAE is locally
        over-determined with inconsistent right-hand sides.", "Index_reduction_failed"; arguments name equations and
        variables. Source: Pantelides 1988; Mattsson and Soderlind 1993.
        """
        return self._run("reduce_index", progress, cancel)

    def simplify(self, *, progress=None, cancel=None):
        """Eliminates unknowns that an equation gives directly. Returns self."""
        return self._run("simplify", progress, cancel)

    @property
    def equations(self):
        """Texts of the equations now; x' is written xt, x'' xtt."""
        return self._system.equations()

    @property
    def variables(self):
        """All variables now, as Variable tuples."""
        return [Variable(*entry) for entry in self._system.variables()]

    @property
    def dummies(self):
        """Names of the unknowns that the reduction put in the place of derivatives."""
        given = set(self._arguments[1] + self._arguments[2] + self._arguments[3])
        return [v.name for v in self.variables if v.order == 0 and v.kind == "unknown" and v.name not in given]

    @property
    def differentiations(self):
        """{index of an equation now: index of its derivative in time} of the equations that were differentiated."""
        return {i: d for i, d in enumerate(self._system.equation_derivatives()) if d >= 0}

    @property
    def orders(self):
        """{unknown: highest order of a derivative in the equations}; 0 for algebraic ones."""
        variables = self.variables
        highest = {v.name: 0 for v in variables if v.kind == "unknown" and v.order == 0}
        for pairs in self._system.occurrences():
            for index, order in pairs:
                name = variables[index].name
                if name in highest:
                    highest[name] = max(highest[name], order)
        return highest

    def definition(self, name):
        """The definition of an unknown that simplify() eliminated, as text."""
        for index, variable in enumerate(self.variables):
            if variable.name == name and variable.order == 0:
                return self._system.definition(index)
        raise KeyError(name)

    def __str__(self):
        return self._system.log()

    def __repr__(self):
        return f"<DAE of {len(self.equations)} equations in {', '.join(self._arguments[1][:8])}>"

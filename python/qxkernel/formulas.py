# SPDX-License-Identifier: LicenseRef-qxkernel
"""Formulas over arrays."""

from collections import OrderedDict, namedtuple

import numpy as np

from . import _core
from ._progress import progress_function
from ._text import kernel_text
from .interpolation import Table

__all__ = ["Compiled", "Failures", "Formulas", "JavaClass", "VectorFunction"]

_KEPT = 256  # compiled formulas of one object, the latest used

Failures = namedtuple("Failures", "count first")
Failures.__doc__ = """Points at which a formula has no value: their exact number, and the first hundred as pairs of
(index of the formula, Error)."""

JavaClass = namedtuple("JavaClass", "code inputs outputs listing")
JavaClass.__doc__ = "What compile_java returns: the bytes of the class, names of inputs and outputs, its definitions as text."

_PLAIN = _core.CallOptions(False, False, False, 0, None, None)


def _array(name, value):
    if isinstance(value, np.ma.MaskedArray):
        raise TypeError(f"the values of '{name}' are masked")
    array = np.asarray(value)
    if array.dtype.kind == "O":
        raise TypeError(f"the values of '{name}' are objects, not numbers")
    return array if array.dtype.isnative else array.astype(array.dtype.newbyteorder("="))


class Compiled:
    """A formula, or several that are evaluated together, made ready; by Formulas.compile.

    Call it with the values of variables by name: those not given are the ones of the Formulas it came from.
    """

    __slots__ = ("_program", "_texts", "_single", "_values", "_data")

    def __init__(self, program, texts, single, values):
        self._program, self._texts, self._single, self._values = program, texts, single, values
        self._data = None

    def _points(self, values):
        if values:
            return _point_data({**self._values, **{name: _array(name, value) for name, value in values.items()}})
        if self._data is None:
            self._data = _point_data(self._values)
        return self._data

    def __call__(self, *, out=None, complex=False, on_failure="raise", require_finite=False, threads=0, progress=None,
                 cancel=None, **values):
        return self._evaluate(self._points(values), out, complex, on_failure, require_finite, threads, progress, cancel)

    def _evaluate(self, data, out=None, complex=False, on_failure="raise", require_finite=False, threads=0,
                  progress=None, cancel=None):
        outs = [] if out is None else [out] if self._single else list(out)
        targets = _apart(outs, self._values)
        results, failures = _call(self._program.evaluate, (data, targets), complex, on_failure, require_finite, threads,
                                  progress, cancel)
        results = _delivered(results, outs, targets)
        values = results[0] if self._single else results
        return values if failures is None else (values, failures)

    def gradient(self, names, **values):
        """(value, derivatives): the array of values and an array (len(names), ...) of the derivatives."""
        return self._gradient(self._points(values), names)

    def _gradient(self, data, names, **options):
        if not self._single:
            raise TypeError("the gradient is that of one formula; use jacobian")
        names = list(names)
        results, failures = _call(self._program.gradient, (data, names, []), **options)
        result = results[0], np.stack(results[1:]) if names else np.empty((0, *data.shape))
        return result if failures is None else (*result, failures)

    def derivative_text(self, name):
        """The derivative of the first formula as the kernel writes it."""
        return self._program.derivative_text(name)

    def __repr__(self):
        return f"<Compiled {', '.join(self._texts)}>"


def _call(method, arguments, complex=False, on_failure="raise", require_finite=False, threads=0, progress=None,
          cancel=None):
    if on_failure not in ("raise", "nan"):
        raise ValueError(f"on_failure must be 'raise' or 'nan', not {on_failure!r}")
    with progress_function(progress) as report:
        options = _core.CallOptions(on_failure == "nan", require_finite, complex, threads, report, cancel)
        results, failures = method(*arguments, options)
    return results, None if failures is None else Failures(failures[0], list(failures[1]))


def _point_data(values):
    return _core.PointData(list(values.items()))


def _apart(outs, values):
    """Arrays to compute into: an out that overlaps an input gets a stand-in, since points may be computed twice."""
    if not all(isinstance(out, np.ndarray) for out in outs):
        raise TypeError("out must be an array")
    return [np.empty_like(out) if any(np.may_share_memory(out, v) for v in values.values()) else out for out in outs]


def _delivered(results, outs, targets):
    if not outs:
        return tuple(array[()] if array.ndim == 0 else array for array in results)
    for out, target in zip(outs, targets):
        if target is not out:
            out[...] = target
    return tuple(outs)


class Formulas:
    """Formulas over arrays: variables with their values, definitions, functions and tables.

    >>> f = Formulas(x=x, y=y)
    >>> f.define(r="sqrt(x**2+y**2)")
    >>> f("exp(-r^2)*sin(3*x)")

    Variables are arrays of any shapes that broadcast, or numbers; names alone (Formulas("t", x=x)) get their values
    later, by set() or from the call of a compiled formula. float32, integers and bool are converted to double block by
    block, without a temporary as long as the array; objects, dates and long doubles are refused.

    Values are real unless a variable is complex or complex=True is asked for: a real result that turns complex is a
    failure at that point. A point at which a formula has no value raises qxkernel.Error with the index of the point
    (`point`), or with on_failure="nan" becomes NaN and is listed.

    Options of all calls: out, an array for the values; complex; on_failure; require_finite, infinities are failures;
    threads, 0 for as many as allowed; progress and cancel.

    Threads: the GIL is released; objects may be evaluated by many threads, while define, function, table and set belong
    to one. Formulas that call Python functions use one thread. Compiled formulas are kept by their text, the latest 256.
    Pickles if its functions do.
    """

    def __init__(self, *names, **values):
        self._names = list(names) + [name for name in values if name not in names]
        self._values = {name: _array(name, value) for name, value in values.items()}
        self._definitions = {}
        self._functions = {}
        self._tables = {}
        self._forget()

    def _forget(self):
        self._programs = OrderedDict()
        self._data = None
        self._parts = None

    # --- What formulas are made of ------------------------------------------------------------------------------------

    @property
    def variables(self):
        """The names of the variables."""
        return tuple(self._names)

    def set(self, **values):
        """Gives variables new values; a name that is not there becomes a variable. Returns self."""
        arrays = {name: _array(name, value) for name, value in values.items()}
        if any(name not in self._names for name in arrays):
            self._names += [name for name in arrays if name not in self._names]
            self._programs.clear()
            self._parts = None
        self._values = {**self._values, **arrays}
        self._data = None
        for compiled in self._programs.values():
            compiled._values, compiled._data = self._values, None
        return self

    def define(self, **definitions):
        """Gives expressions names. They may use variables and each other in any order. Returns self."""
        return self._with("_definitions", {name: kernel_text(text) for name, text in definitions.items()})

    def function(self, name, function, *, arguments=None, derivatives=None, parameters=None, complex=False):
        """A function of your own: function(*arrays) gives an array of as many values, or one number.

        arguments    their number (1 unless parameters or derivatives say otherwise)
        parameters   their names, which matter in derivatives only
        derivatives  texts of the partial derivatives, one for each argument; without them it cannot be differentiated
        complex      whether it takes complex arrays too

        It must be pure: blocks of up to 65,536 points, in any order, perhaps twice. What it raises comes out of the
        call unchanged. Returns self.
        """
        if not callable(function):
            raise TypeError(f"{name}: {function!r} cannot be called")
        derivatives = [kernel_text(text) for text in derivatives or ()]
        parameters = list(parameters or ())
        count = arguments or len(parameters) or len(derivatives) or 1
        return self._with("_functions", {name: (function, count, parameters, derivatives, complex)})

    def table(self, name, table):
        """A qxkernel.Table as a function; it can be differentiated twice. Returns self."""
        if not isinstance(table, Table):
            raise TypeError(f"{name} must be a Table, not {type(table).__name__}")
        return self._with("_tables", {name: table})

    def _with(self, kind, entries):
        before = getattr(self, kind)
        setattr(self, kind, {**before, **entries})
        self._forget()
        try:
            self._builder()
            self._compiled(("0",), True)
        except Exception:
            setattr(self, kind, before)
            self._forget()
            raise
        return self

    def _builder(self):
        if self._parts is None:
            builder = _core.FormulaBuilder(self._names)
            for name, table in self._tables.items():
                builder.table(name, table._function)
            for name, parts in self._functions.items():
                builder.python_function(name, *parts)
            for name, text in self._definitions.items():
                builder.define(name, text)
            self._parts = builder
        return self._parts

    def _compiled(self, texts, single):
        key = texts[0] if single else texts
        compiled = self._programs.get(key)
        if compiled is None:
            program = _core.CompiledFormulas(self._builder(), [kernel_text(text) for text in texts])
            compiled = Compiled(program, texts, single, self._values)
            self._programs[key] = compiled
            if len(self._programs) > _KEPT:
                self._programs.popitem(last=False)
        else:
            self._programs.move_to_end(key)
        return compiled

    def _points(self):
        if self._data is None:
            self._data = _point_data(self._values)
        return self._data

    # --- Evaluation ---------------------------------------------------------------------------------------------------

    def __call__(self, text, **options):
        """The values of a formula, or a tuple of those of several that are computed together."""
        if not options:  # the quick way
            compiled = self._programs.get(text) if type(text) is str else None
            if compiled is not None:
                results, _ = compiled._program.evaluate(self._data or self._points(), (), _PLAIN)
                return results[0] if self._data.shape else results[0][()]
        return self.compile(text)._evaluate(self._points(), **options)

    def compile(self, text):
        """A formula, or a list of them, as a function of the variables: compile("x^2")(x=3.0)."""
        if isinstance(text, str) or not isinstance(text, (list, tuple)):
            return self._compiled((text if isinstance(text, str) else kernel_text(text),), True)
        return self._compiled(tuple(text), False)

    def gradient(self, text, names, **options):
        """(value, derivatives): the values of a formula and an array (len(names), ...) of its derivatives."""
        return self.compile(text)._gradient(self._points(), names, **options)

    def jacobian(self, texts, names, **options):
        """The derivatives of several formulas as an array (len(texts), len(names), ...)."""
        return np.stack([self.gradient(text, names, **options)[1] for text in texts])

    def pattern(self, texts, names):
        """Which formula depends on which variable, as a boolean array (len(texts), len(names))."""
        texts, names = list(texts), list(names)
        starts, columns = self._compiled(tuple(texts), False)._program.pattern(names)
        result = np.zeros((len(texts), len(names)), bool)
        result[np.repeat(np.arange(len(texts)), np.diff(starts)), columns] = True
        return result

    def compile_java(self, class_name, texts, gradient=(), *, method="eval", main=False):
        """A Java class with `static int method(double[] in, double[] out)`: its bytes, inputs are `variables` in their
        order, outputs the formulas, each followed by its derivatives by the names in gradient.

        Packages by slashes or dots; main=True adds a driver for the command line. Returns JavaClass(code, inputs,
        outputs, listing). Fails: qxkernel.Error, "Cannot create definitions from " and the name for functions that
        compiled code does not know.
        """
        texts = [texts] if isinstance(texts, str) else list(texts)
        program = self._compiled(tuple(texts), False)._program
        code, outputs, listing = program.java_class(class_name.replace(".", "/"), method, list(gradient), main)
        return JavaClass(code, self.variables, tuple(outputs), listing)

    def vector_function(self, texts, states, time=None):
        """Several formulas as a function of a vector of states, for solve_ivp and root; see VectorFunction."""
        return VectorFunction(self, texts, states, time)

    def __getstate__(self):
        return {"names": self._names, "values": self._values, "definitions": self._definitions,
                "functions": self._functions, "tables": self._tables}

    def __setstate__(self, state):
        self._names, self._values = state["names"], state["values"]
        self._definitions, self._functions, self._tables = state["definitions"], state["functions"], state["tables"]
        self._forget()

    def __repr__(self):
        return f"<Formulas of {', '.join(self._names)}>"


class VectorFunction:
    """Formulas as a function of a vector of states, with the derivative by it.

    fun(t, y) for scipy.integrate.solve_ivp if a time is named, fun(y) for scipy.optimize.root if not; y (n) or (n, k).
    jac is the matrix of derivatives (m, n), sparsity its pattern as an array.

    >>> rhs = f.vector_function(["v", "-k*x"], ["x", "v"], time="t")
    >>> solve_ivp(rhs, (0, 1), [1, 0], method="BDF", jac=rhs.jac)
    """

    def __init__(self, formulas, texts, states, time=None):
        names = list(formulas._names) + [n for n in [*states, *([time] if time else [])] if n not in formulas._names]
        self._formulas = Formulas(*names, **formulas._values)
        for kind in ("_definitions", "_functions", "_tables"):
            setattr(self._formulas, kind, dict(getattr(formulas, kind)))
        self._texts, self._states, self._time = tuple(texts), tuple(states), time
        self._all = self._formulas.compile(list(self._texts))

    def set(self, **values):
        """Gives further variables new values. Returns self."""
        self._formulas.set(**values)
        return self

    def _values(self, arguments):
        expected = 2 if self._time else 1
        if len(arguments) != expected:
            raise TypeError(f"{expected} arguments are needed: {'time and states' if self._time else 'the states'}")
        y = np.asarray(arguments[-1])
        if y.ndim not in (1, 2) or y.shape[0] != len(self._states):
            raise ValueError(f"{len(self._states)} states are needed, not an array of shape {y.shape}")
        values = dict(zip(self._states, y))
        if self._time:
            values[self._time] = arguments[0]
        return values, y.shape[1:]

    def __call__(self, *arguments):
        values, shape = self._values(arguments)
        return np.stack([np.broadcast_to(row, shape) for row in self._all(**values)])

    def jac(self, *arguments):
        """The matrix of derivatives (m, n) at one vector of states."""
        values, _ = self._values(arguments)
        return np.stack([self._formulas.compile(text).gradient(self._states, **values)[1] for text in self._texts])

    @property
    def sparsity(self):
        return self._formulas.pattern(self._texts, self._states)

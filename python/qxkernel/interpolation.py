# SPDX-License-Identifier: LicenseRef-qxkernel
"""Tabulated functions."""

import numpy as np

from . import _core
from .sparse import _numbers

__all__ = ["Table"]

# Names of what happens outside a table, by kind of method: grids, cubics.
_GRID = {"clamp": 0, "value": 1, "linear": 3}
_CUBIC = {"polynomial": 0, "value": 1, "clamp": 2, "linear": 4}
_EXTENSIONS = {"neighbor": {"clamp": 0, "value": 1}, "linear": _GRID, "piecewisecubic": _CUBIC, "cubicspline": _CUBIC}


class Table:
    """A function given by a table, immutable.

    Table(x, y)                        one coordinate, x ascending
    Table((x1, x2, ...), values)       a grid, values[i, j, ...] at (x1[i], x2[j], ...)
    method     "linear", "neighbor", or for one coordinate "piecewisecubic" (keeps monotone data monotone), "cubicspline"
    outside    beyond the ends: "clamp", "linear", "polynomial" (cubics only), or a number that is the value there

    Call it with one array a coordinate; shapes are broadcast. `diff(axis)` is the partial derivative as a table.
    Threads: any, without the GIL. Fails: qxkernel.Error for tables that are none.
    """

    __slots__ = ("_function", "_made_of", "_axes")

    def __init__(self, points, values, *, method="linear", outside="clamp"):
        if method not in _EXTENSIONS:
            raise ValueError(f"method must be one of {', '.join(_EXTENSIONS)}, not {method!r}")
        number = 0.0
        if not isinstance(outside, str):
            outside, number = "value", float(outside)
        if outside not in _EXTENSIONS[method]:
            raise ValueError(f"outside a {method} table: {', '.join(_EXTENSIONS[method])} or a number, not {outside!r}")
        axes = points if isinstance(points, (tuple, list)) and points and np.ndim(points[0]) == 1 else (points,)
        axes = tuple(np.ascontiguousarray(_numbers(axis, "points")) for axis in axes)
        values = _numbers(values)
        if np.iscomplexobj(values):
            raise TypeError("the values of a table are real")
        if values.shape != tuple(axis.size for axis in axes):
            raise ValueError(f"the values have shape {values.shape}, the axes {tuple(axis.size for axis in axes)}")
        self._made_of = (axes, values, method, number if outside == "value" else outside)
        self._axes = ()
        self._function = _core.TableFunction(list(axes), values.ravel(order="F"), method, _EXTENSIONS[method][outside],
                                             number)

    @property
    def ndim(self):
        """Number of coordinates."""
        return len(self._made_of[0])

    def diff(self, axis=0):
        """The partial derivative by a coordinate, counted from 0."""
        if not 0 <= axis < self.ndim:
            raise ValueError(f"axis {axis} of a table of {self.ndim} coordinates")
        derivative = object.__new__(Table)
        derivative._made_of = self._made_of
        derivative._axes = self._axes + (axis,)
        derivative._function = self._function.diff(axis + 1)
        return derivative

    def __call__(self, *coordinates):
        if len(coordinates) != self.ndim:
            raise TypeError(f"the table has {self.ndim} coordinates, not {len(coordinates)}")
        points = np.broadcast_arrays(*(_numbers(x, "coordinates") for x in coordinates))
        values = self._function.evaluate([np.ascontiguousarray(x).ravel() for x in points])
        return values.reshape(points[0].shape)[()]

    def __reduce__(self):
        return _table, (self._made_of, self._axes)

    def __repr__(self):
        axes, _, method, outside = self._made_of
        shape = "x".join(str(axis.size) for axis in axes)
        return f"<Table of {shape} values, {method}, outside {outside!r}{''.join(f', d/dx{a}' for a in self._axes)}>"


def _table(made_of, axes):
    points, values, method, outside = made_of
    table = Table(points, values, method=method, outside=outside)
    for axis in axes:
        table = table.diff(axis)
    return table

# SPDX-License-Identifier: LicenseRef-qxkernel
"""Every allocation of the kernel in some calls fails once. Run by memcheck.py with failing_new in front of all libraries.

Each call either succeeds, because it could do without the memory, or raises MemoryError (qxkernel.Error with the
identifier that a module has for it); the same call then gives what it gave before.
"""

import ctypes
import sys

import numpy as np

import qxkernel
from qxkernel import DAE, Error, Expr, Formulas, Table

process = ctypes.CDLL(None)
process.failing_new_at.argtypes = [ctypes.c_long]
process.failing_new_only_in.argtypes = [ctypes.c_char_p]
LIBRARY = b"libqxkernel.so"
assert process.failing_new_only_in(LIBRARY), "the library is not loaded"

x = np.linspace(0.5, 1.5, 5)
y = np.linspace(2.0, 3.0, 5)


def is_memory(e):
    return "emory" in e.identifier


def formulas():
    f = Formulas(x=x, y=y)
    f.define(r="sqrt(x^2+y^2)")
    return f("exp(-r)*sin(3*x)").tolist()


def gradient():
    return [np.asarray(g).tolist() for g in Formulas(x=x, y=y).gradient("x^2*y", ["x", "y"])]


def own_function():
    f = Formulas(x=x)
    f.function("half", lambda t: 0.5 * t)
    return f("half(x)+1").tolist()


def failing_element():
    try:
        Formulas(x=-x)("log(x)+nothing(x)")
    except Error as e:
        if is_memory(e):
            raise
        return e.identifier
    raise AssertionError("nothing was raised")


def symbolic():
    return str(Expr("x*sin(a*x)").diff("x"))


def index_reduction():
    pendulum = DAE(["d(d(x,t),t)+p*x", "d(d(y,t),t)+p*y+9.81", "x^2+y^2-1"], ["p", "y", "x"])
    return list(pendulum.reduce().equations)


def table():
    return Table(np.array([0.0, 1, 2]), np.array([0.0, 1, 4]), method="cubicspline")(x).tolist()


def eigenvalues():
    size = 20  # smaller ones work on the stack
    return np.sort(np.asarray(qxkernel.eig(np.diag(np.arange(size, 0.0, -1)))[0]).real).tolist()


CALLS = [formulas, gradient, own_function, failing_element, symbolic, index_reduction, table, eigenvalues]


def fail_each(call, step):
    """Fails allocation 1, 1 + step, 1 + 2 step, ... of the call until there are no more; the number of failures."""
    expected = call()
    failures, n = 0, 1
    while True:
        process.failing_new_at(n)
        try:
            result = call()
        except MemoryError:
            result = expected
        except Error as e:
            if not is_memory(e):
                raise
            result = expected
        happened = process.failing_new_happened()
        assert result == expected, (call.__name__, n, result)
        assert call() == expected, (call.__name__, n)
        if not happened:
            return failures
        failures += 1
        n += step


if __name__ == "__main__":
    step = int(sys.argv[1]) if len(sys.argv) > 1 else 1
    for each in CALLS:
        count = fail_each(each, step)
        print(f"{each.__name__}: {count} failures", flush=True)
        assert count > (3 if step == 1 else 0), each.__name__

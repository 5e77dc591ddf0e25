# SPDX-License-Identifier: LicenseRef-qxkernel
"""qxkernel: formulas over arrays, symbolic expressions, differential-algebraic systems and sparse matrices.

Formulas      formulas over arrays: values, gradients, own functions and tables
Expr          symbolic expressions: derivative, canonical form, solution, LaTeX
DAE           differential-algebraic systems, reduction of the index
Sparse        sparse matrices, to and from SciPy
splu          sparse direct solution
eig, gmres    eigenvalues of matrices and pencils, Krylov iteration
minimize      optimisation of formulas
Table         tabulated functions
nullspace     elimination of linear constraints
Error         what the kernel raises: identifier, arguments, story
"""

from . import _core
from ._core import CancelToken
from .dae import DAE
from .dense import eig, gmres
from .errors import Cancelled, Error
from .formulas import Compiled, Failures, Formulas, JavaClass, VectorFunction
from .interpolation import Table
from .optimizer import Optimum, minimize, set_optimizer_path
from .sparse import (Constrained, Factor, NullSpace, Sparse, constrained_operator, nullspace, read_matrix_market,
                     solve_constrained, splu, write_matrix_market)
from .symbolic import Expr

__version__ = _core.version

__all__ = ["CancelToken", "Cancelled", "Compiled", "Constrained", "DAE", "Error", "Expr", "Factor", "Failures",
           "Formulas", "JavaClass", "NullSpace", "Optimum", "Sparse", "Table", "VectorFunction",
           "constrained_operator", "eig", "gmres", "minimize", "nullspace", "read_matrix_market",
           "set_optimizer_path", "show_config", "solve_constrained", "splu", "write_matrix_market"]


def show_config():
    """Prints versions and where the compiled half is."""
    import sys

    import numpy
    print(f"qxkernel {__version__} ({_core.__file__})")
    print(f"Python {sys.version.split()[0]}, NumPy {numpy.__version__}, threads allowed: {_core.threads()}")

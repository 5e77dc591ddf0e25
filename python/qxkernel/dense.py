# SPDX-License-Identifier: LicenseRef-qxkernel
"""Dense eigenvalues and GMRES."""

import numpy as np

from . import _core
from .sparse import _numbers

__all__ = ["eig", "gmres"]


def eig(A, B=None, *, left=False, right=True, homogeneous=False):
    """Eigenvalues of A x = w x, or of A x = w B x; a QZ iteration that does not converge is repeated with other shifts.

    A, B          (n, n), real or complex, unchanged
    left, right   which vectors to return: u^H A = w u^H B and A v = w B v
    homogeneous   for a pencil: return (alpha, beta) with w = alpha / beta in place of w

    Returns w (n) complex, infinite where beta is 0 or the quotient too large (NaN for 0/0), then the wanted vectors as columns.
    Fails: qxkernel.Error with "Iteration_in_the_QR_algorithm_failed", "Iteration_in_the_QZ_algorithm_failed".
    """
    if B is None:
        if homogeneous:
            raise ValueError("homogeneous eigenvalues are those of a pencil A, B")
        values, VL, VR = _core.eig(_numbers(A), left, right)
    else:
        A, B = _numbers(A), _numbers(B)
        if A.shape != B.shape:
            raise ValueError(f"A is {A.shape}, B is {B.shape}")
        alpha, beta, VL, VR = _core.eig_pencil(A, B, left, right)
        values = (alpha, beta) if homogeneous else _quotients(alpha, beta)
    wanted = [vectors for vectors, is_wanted in ((VL, left), (VR, right)) if is_wanted]
    return (values, *wanted) if wanted else values


def _quotients(alpha, beta):
    with np.errstate(divide="ignore", invalid="ignore", over="ignore"):
        finite = beta != 0
        divisor = np.where(finite, beta, 1)
        w = alpha / divisor
        if not np.iscomplexobj(beta):  # one that overflows keeps its direction
            w.real, w.imag = alpha.real / divisor, alpha.imag / divisor
        return np.where(finite, w, np.where(alpha != 0, np.inf, np.nan))


def gmres(A, b, x0=None, *, tol=1e-8, restart=50, max_iterations=1000):
    """Solves A x = b for a dense matrix by GMRES, restarted.

    A (n, n), b (n), x0 (n) the first guess, real or complex; converged when |b - A x| <= tol |b|.
    Returns (x, converged). Fails: qxkernel.Error with "Internal_error_solver" for other sizes.
    """
    A, b = _numbers(A), _numbers(b)
    if A.ndim != 2 or b.ndim != 1:
        raise ValueError(f"a matrix and a vector are needed, not {A.ndim} and {b.ndim} dimensions")
    x0 = np.zeros(b.shape, b.dtype) if x0 is None else _numbers(x0)
    x, converged, _ = _core.gmres(A, b, x0, tol, restart, max_iterations)
    return x, converged

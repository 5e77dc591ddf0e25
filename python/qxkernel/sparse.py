# SPDX-License-Identifier: LicenseRef-qxkernel
"""Sparse matrices: to and from SciPy, products, relaxation, direct solution, null spaces."""

from collections import namedtuple

import numpy as np

from . import _core
from ._progress import progress_function

__all__ = ["Constrained", "Sparse", "Factor", "NullSpace", "constrained_operator", "splu", "nullspace", "solve_constrained", "read_matrix_market", "write_matrix_market"]


def _numbers(values, what="values"):
    """A float64 or complex128 array of what holds numbers; long doubles, objects and dates are refused."""
    array = np.asarray(values)
    kind = array.dtype.kind
    if kind in "biu" or (kind == "f" and array.dtype.itemsize <= 8):
        return array.astype(np.float64, copy=False)
    if kind == "c" and array.dtype.itemsize <= 16:
        return array.astype(np.complex128, copy=False)
    raise TypeError(f"{what} of type {array.dtype} cannot be taken as double precision numbers")


class Sparse:
    """A real or complex sparse matrix, immutable, by columns with ascending rows.

    Sparse(A)                                    of a SciPy matrix or array, of a dense one, of a Sparse
    Sparse.from_triplets(rows, cols, values, shape)  sum of triplets, any order, repeated places added

    `A @ x`, `A @ B`, `A + B`, `A - B`, `2 * A`, `A.T`, `A.H`. Values of 32 bits and integers become doubles.
    Indices and values are copied once on the way in and not at all on the way out (see tocsc).

    Fails: qxkernel.Error with "Invalid_sparse_matrix" for indices out of range or offsets that decrease,
    "Size_sparse_matrices_disagree", "Size_vector_sparse_matrix_disagree".
    """

    __slots__ = ("_store",)
    __array_ufunc__ = None  # NumPy leaves `array @ A` and `2 * A` to us

    def __init__(self, matrix):
        if isinstance(matrix, Sparse):
            self._store = matrix._store
            return
        if not hasattr(matrix, "tocsc"):
            dense = _numbers(matrix)
            if dense.ndim != 2:
                raise ValueError(f"a matrix has 2 dimensions, not {dense.ndim}")
            columns, rows = np.nonzero(dense.T)
            offsets = np.zeros(dense.shape[1] + 1, np.int64)
            np.cumsum(np.bincount(columns, minlength=dense.shape[1]), out=offsets[1:])
            self._store = _core.SparseStore.compressed(*dense.shape, offsets, rows, dense.T[columns, rows], False)
            return
        by_rows = getattr(matrix, "format", None) == "csr"
        if not by_rows and getattr(matrix, "format", None) != "csc":
            matrix = matrix.tocsc()
        if not by_rows and matrix.data.size != matrix.indptr[-1] or matrix.data.ndim != 1:
            matrix = matrix.copy()
        self._store = _core.SparseStore.compressed(*matrix.shape, matrix.indptr, matrix.indices,
                                                   _numbers(matrix.data), by_rows)

    @classmethod
    def _of(cls, store):
        self = object.__new__(cls)
        self._store = store
        return self

    @classmethod
    def from_triplets(cls, rows, cols, values, shape):
        """The sum of triplets (rows[k], cols[k], values[k]); shape is (m, n)."""
        rows, cols = np.asarray(rows), np.asarray(cols)
        for name, index in (("rows", rows), ("cols", cols)):
            if index.dtype.kind not in "iu" and index.size:
                raise TypeError(f"{name} must be integers, not {index.dtype}")
        return cls._of(_core.SparseStore.from_triplets(rows, cols, _numbers(values), *shape))

    @property
    def shape(self):
        return self._store.m, self._store.n

    @property
    def nnz(self):
        return self._store.nnz

    @property
    def dtype(self):
        return np.dtype(np.float64 if self._store.real else np.complex128)

    ndim = 2

    @property
    def T(self):
        return Sparse._of(self._store.transposed(False))

    @property
    def H(self):
        return Sparse._of(self._store.transposed(True))

    def transpose(self):
        return self.T

    def views(self):
        """(indptr, indices, data) by columns: read-only views on the matrix itself, int64 and values."""
        return self._store.views()

    def tocsc(self):
        """A scipy.sparse.csc_matrix on the same memory, read-only; needs SciPy."""
        from scipy.sparse import csc_matrix
        indptr, indices, data = self.views()
        result = csc_matrix(self.shape, dtype=self.dtype)
        result.indptr, result.indices, result.data = indptr, indices, data
        result.has_sorted_indices = True
        return result

    def toarray(self):
        """The dense matrix."""
        indptr, indices, data = self.views()
        result = np.zeros(self.shape, self.dtype)
        np.add.at(result, (indices, np.repeat(np.arange(self.shape[1]), np.diff(indptr))), data)
        return result

    def multiply(self, x, trans="N"):
        """op(A) x for a vector x (n) or columns (n, k); op: "N" A, "T" its transpose, "H" its adjoint."""
        x = _numbers(x)
        if x.ndim == 1:
            return self._store.multiply(x, trans)
        if x.ndim != 2:
            raise ValueError(f"a vector or a matrix of columns is needed, not {x.ndim} dimensions")
        rows = self.shape[0] if trans == "N" else self.shape[1]
        out = np.empty((rows, x.shape[1]), np.result_type(self.dtype, x.dtype), order="F")
        for j in range(x.shape[1]):
            out[:, j] = self._store.multiply(x[:, j], trans)
        return out

    def __matmul__(self, other):
        if isinstance(other, Sparse) or hasattr(other, "tocsc"):
            return Sparse._of(self._store.matmul(Sparse(other)._store))
        return self.multiply(other)

    def __rmatmul__(self, other):
        if hasattr(other, "tocsc"):
            return Sparse(other) @ self
        other = _numbers(other)
        return self.multiply(other.T, "T").T

    def _sum(self, other, factor):
        if not isinstance(other, Sparse) and not hasattr(other, "tocsc"):
            return NotImplemented
        return Sparse._of(self._store.add(Sparse(other)._store, factor))

    def __add__(self, other): return self._sum(other, 1.0)
    def __radd__(self, other): return self._sum(other, 1.0)
    def __sub__(self, other): return self._sum(other, -1.0)
    def __rsub__(self, other): return (-self)._sum(other, 1.0)
    def __neg__(self): return self * -1.0
    def __pos__(self): return self

    def __mul__(self, factor):
        if not np.isscalar(factor):
            return NotImplemented
        return Sparse._of(self._store.scaled(complex(factor)))

    __rmul__ = __mul__

    def __truediv__(self, divisor):
        if not np.isscalar(divisor):
            return NotImplemented
        return self * (1.0 / divisor)

    def relaxation(self):
        """Sweeps of successive over-relaxation and of Jacobi's method with this matrix, as a Relaxation."""
        return Relaxation(self)

    def __reduce__(self):
        return _restored, (self.shape, *(np.array(part) for part in self.views()))

    def __repr__(self):
        return f"<{self.shape[0]}x{self.shape[1]} Sparse of {self.dtype} with {self.nnz} entries>"


def _restored(shape, indptr, indices, data):
    return Sparse._of(_core.SparseStore.compressed(*shape, indptr, indices, data, False))


class Relaxation:
    """Relaxation of A x = b. Raises "Matrix_has_zero_on_diagonal" for a missing diagonal entry."""

    def __init__(self, A):
        self.shape = A.shape
        self._sweeps = _core.RelaxationStore(A._store)

    def sor(self, b, x=None, *, omega=1.0, sweeps=1, reverse=False):
        """x after sweeps of successive over-relaxation, 0 < omega < 2; x None: from 0."""
        return self._sweep(b, x, omega, sweeps, reverse, False)

    def jacobi(self, b, x=None, *, omega=1.0, sweeps=1):
        """x after sweeps of damped Jacobi relaxation."""
        return self._sweep(b, x, omega, sweeps, False, True)

    def _sweep(self, b, x, omega, sweeps, reverse, jacobi):
        b = _numbers(b)
        x = np.zeros(self.shape[1], b.dtype) if x is None else _numbers(x)
        return self._sweeps.sweep(b, x, omega, sweeps, reverse, jacobi)


class Factor:
    """Factors of a square matrix, P R A Q = L U; made by splu."""

    def __init__(self, store):
        self._store = store

    @property
    def shape(self):
        return self._store.size, self._store.size

    @property
    def dtype(self):
        return np.dtype(np.float64 if self._store.real else np.complex128)

    def solve(self, b, trans="N"):
        """x with op(A) x = b, for b (n) or (n, k); real or complex. trans: "N", "T" or "H". Solutions are refined.

        Threads: any; solutions with one factor wait for each other, without the GIL.
        """
        return self._store.solve(_numbers(b), trans)

    __call__ = solve

    @property
    def lu(self):
        """(L, U, P, Q, R) with L U = P R A Q, as Sparse."""
        return tuple(Sparse._of(store) for store in self._store.factors())

    def operator(self):
        """The inverse as a scipy.sparse.linalg.LinearOperator; needs SciPy."""
        from scipy.sparse.linalg import LinearOperator
        return LinearOperator(self.shape, matvec=self.solve, matmat=self.solve, dtype=self.dtype,
                              rmatvec=lambda b: self.solve(b, "H"), rmatmat=lambda b: self.solve(b, "H"))

    def __repr__(self):
        return f"<Factor of a {self.shape[0]}x{self.shape[1]} matrix of {self.dtype}>"


def splu(A, *, drop_tol=0.0, pivot_threshold=0.1, scale=True, progress=None, cancel=None):
    """Factorises a sparse matrix (multifrontal method) for any number of solutions.

    A  Sparse, SciPy matrix or dense array, square. Ctrl-C, or a CancelToken as `cancel`, stops it within 50 ms and one
    call of BLAS; progress: a function of (title, fraction), or True for a bar by tqdm.

    Fails: qxkernel.Error with "Matrix_not_square", "Matrix_is_zero", "Singular_matrix",
    "Out_of_memory_LU_factorization".
    """
    with progress_function(progress) as report:
        return Factor(_core.FactorStore(Sparse(A)._store, drop_tol, pivot_threshold, scale, report, cancel))


class NullSpace:
    """Bases for constraints N u = g, N (constraints, unknowns).

    null   (d, d-r)  N @ null = 0
    compl  (d, r)    [null compl] is invertible
    range  (r, c)    compl^H N^H
    """

    def __init__(self, null, compl, range_):
        self.null, self.compl, self.range = null, compl, range_

    @property
    def rank(self):
        return self.range.shape[0]

    def __iter__(self):
        return iter((self.null, self.compl, self.range))

    def __repr__(self):
        return f"<NullSpace of rank {self.rank} in {self.null.shape[0]} unknowns>"


def nullspace(N, *, orthonormal=False, progress=None, cancel=None):
    """Bases that eliminate linear constraints N u = g: one row of N for each constraint.

    Sparse bases by elimination, or orthonormal ones by singular values of connected blocks. Redundant constraints are
    no failure: they do not add to the rank. Fails: qxkernel.Error from "qxnull".
    """
    with progress_function(progress) as report:
        stores = _core.null_space(Sparse(N).H._store, orthonormal, report, cancel)
    return NullSpace(*(Sparse._of(store) for store in stores))


Constrained = namedtuple("Constrained", "u residual dropped")
Constrained.__doc__ = """What solve_constrained returns: the solution, the relative residual of the reduced system, the
constraints (from 0) that follow from the others."""


def solve_constrained(K, f, N, g, *, orthonormal=False, progress=None, cancel=None):
    """Solves K u = f under the constraints N u = g, up to the forces that the constraints exert: one row of N each.

    K (n, n), f (n), N (c, n), g (c); real or complex. Constraints that follow from others are dropped and listed.
    Fails: qxkernel.Error with "Contradicting_constraints" (arguments name them), "Singular_matrix",
    "Wrong_number_of_values".
    """
    with progress_function(progress) as report:
        u, residual, dropped = _core.solve_constrained(Sparse(K)._store, _numbers(f), Sparse(N).H._store, _numbers(g),
                                                       orthonormal, report, cancel)
    return Constrained(u, residual, tuple(dropped))


def constrained_operator(K, N, *, orthonormal=False, progress=None, cancel=None):
    """f -> u with K u = f under N u = 0, factorised once, as a scipy.sparse.linalg.LinearOperator; needs SciPy.

    Arguments and failures as for solve_constrained; the operator is null (null^H K null)^-1 null^H.
    """
    from scipy.sparse.linalg import LinearOperator
    K = Sparse(K)
    null = nullspace(N, orthonormal=orthonormal, progress=progress, cancel=cancel).null
    adjoint = null.H
    factor = splu(adjoint @ K @ null, progress=progress, cancel=cancel)

    def solve(f, trans="N"):
        return null @ factor.solve(adjoint @ f, trans)

    return LinearOperator(K.shape, matvec=solve, matmat=solve, dtype=np.result_type(K.dtype, null.dtype),
                          rmatvec=lambda f: solve(f, "H"), rmatmat=lambda f: solve(f, "H"))


def read_matrix_market(path):
    """The matrix in a Matrix Market file; symmetric files are expanded. Fails: "Cannot_open_matrix_file",
    "Invalid_matrix_file" with file, line and reason."""
    import os
    return Sparse._of(_core.SparseStore.read_matrix_market(os.fspath(path)))


def write_matrix_market(path, A):
    """Writes a matrix with 17 digits: reading gives the same doubles back."""
    import os
    Sparse(A)._store.write_matrix_market(os.fspath(path))

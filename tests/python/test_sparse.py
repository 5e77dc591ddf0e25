# SPDX-License-Identifier: LicenseRef-qxkernel
import os
import pickle
import signal
import threading

import numpy as np
import pytest
from qxkernel import (CancelToken, Cancelled, Error, Sparse, constrained_operator, nullspace, read_matrix_market, solve_constrained, splu, write_matrix_market)


def random_dense(rng, m, n, complex_=False, density=0.3):
    values = rng.standard_normal((m, n)) * (rng.random((m, n)) < density)
    return values + 1j * rng.standard_normal((m, n)) * (values != 0) if complex_ else values


def regular(rng, n, complex_=False):
    return random_dense(rng, n, n, complex_) + n * np.eye(n)


def laplacian(n):
    """Five points on an n by n grid, as triplets."""
    i = np.arange(n * n)
    pairs = [(i, i, 4.0)]
    for step, inside in ((1, i % n < n - 1), (n, i < n * (n - 1))):
        a = i[inside]
        pairs += [(a, a + step, -1.0), (a + step, a, -1.0)]
    return Sparse.from_triplets(np.concatenate([p[0] for p in pairs]), np.concatenate([p[1] for p in pairs]),
                                np.concatenate([np.full(len(p[0]), p[2]) for p in pairs]), (n * n, n * n))


@pytest.mark.parametrize("complex_", [False, True])
@pytest.mark.parametrize("kind", ["csc_matrix", "csr_matrix", "coo_matrix", "csc_array", "csr_array", "coo_array"])
def test_scipy_matrices_come_in_and_go_out_alike(scipy_sparse, rng, kind, complex_):
    dense = random_dense(rng, 7, 11, complex_)

    A = Sparse(getattr(scipy_sparse, kind)(dense))

    assert A.shape == (7, 11) and A.dtype == dense.dtype
    assert np.array_equal(A.toarray(), dense) and np.array_equal(A.tocsc().toarray(), dense)


def test_views_are_read_only_share_memory_and_outlive_the_matrix(rng):
    dense = random_dense(rng, 20, 20)
    A = Sparse(dense)
    first, second = A.views(), A.views()

    assert all(np.shares_memory(a, b) for a, b in zip(first, second))
    with pytest.raises(ValueError):
        first[2][0] = 1.0
    del A, second
    assert np.array_equal(first[2], dense.T[dense.T != 0])


def test_operations_do_not_move_entries_under_a_view(rng):
    A = Sparse(regular(rng, 30))
    B = A @ A
    kept = [part.copy() for part in B.views()]

    splu(B).solve(np.ones(30))
    B.relaxation().sor(np.ones(30))
    nullspace(B)

    assert all(np.array_equal(a, b) for a, b in zip(kept, B.views()))


@pytest.mark.parametrize("complex_", [False, True])
def test_products_and_sums_agree_with_dense_ones(rng, complex_):
    a, b = random_dense(rng, 9, 6, complex_), random_dense(rng, 6, 8)
    A, B, x = Sparse(a), Sparse(b), rng.standard_normal((6, 3))

    for ours, dense in [(A @ x, a @ x), (A @ x[:, 0], a @ x[:, 0]), ((A @ B).toarray(), a @ b),
                        (A.multiply(np.ones(9), "H"), a.conj().T @ np.ones(9)), (np.ones(9) @ A, np.ones(9) @ a),
                        (A.T.toarray(), a.T), (A.H.toarray(), a.conj().T), ((A - A * 0.5).toarray(), a / 2),
                        ((2 * A + A).toarray(), 3 * a), ((-A / 4).toarray(), -a / 4)]:
        assert np.allclose(ours, dense, rtol=1e-14, atol=1e-14)


def test_triplets_of_one_place_are_added():
    A = Sparse.from_triplets([0, 1, 0], [1, 0, 1], [1.0, 2.0, 5.0], (2, 2))

    assert np.array_equal(A.toarray(), [[0.0, 6.0], [2.0, 0.0]])


@pytest.mark.parametrize("rows, cols, values, failure", [
    ([0, 2], [0, 0], [1.0, 1.0], Error), ([-1], [0], [1.0], Error), ([0], [0, 1], [1.0], Error),
    ([0.5], [0], [1.0], TypeError), ([0], [0], ["a"], TypeError), ([0], [0], [np.longdouble(1)], TypeError)])
def test_bad_triplets_are_refused(rows, cols, values, failure):
    with pytest.raises(failure):
        Sparse.from_triplets(rows, cols, values, (2, 2))


@pytest.mark.parametrize("indptr, indices", [([0, 1, 3], [0, 5, 1]), ([0, 2, 1], [0, 1, 0]), ([1, 2, 3], [0, 1, 0]),
                                             ([0, 1, 9], [0, 1, 0]), ([0, 1, 3], [0, -1, 1])])
def test_damaged_scipy_matrices_are_refused(scipy_sparse, indptr, indices):
    A = scipy_sparse.csc_matrix((2, 2))
    A.indptr, A.indices, A.data = np.array(indptr, np.int32), np.array(indices, np.int32), np.ones(3)

    with pytest.raises((Error, ValueError)):
        Sparse(A)


@pytest.mark.parametrize("complex_", [False, True])
@pytest.mark.parametrize("trans", ["N", "T", "H"])
def test_factors_solve_real_complex_transposed_and_many(rng, complex_, trans):
    a = regular(rng, 25, complex_)
    op = {"N": a, "T": a.T, "H": a.conj().T}[trans]
    factor = splu(a)

    for b in (rng.standard_normal(25), rng.standard_normal((25, 4)), rng.standard_normal(25) * 1j,
              np.asfortranarray(rng.standard_normal((25, 2)))[::, ::-1]):
        x = factor.solve(b, trans)
        assert x.shape == b.shape and np.allclose(op @ x, b, rtol=1e-12, atol=1e-12)


def test_factors_multiply_to_the_permuted_matrix(rng):
    a = regular(rng, 12)

    L, U, P, Q, R = (part.toarray() for part in splu(a).lu)

    assert np.allclose(L @ U, P @ R @ a @ Q, rtol=1e-13, atol=1e-13)


@pytest.mark.parametrize("matrix, identifier", [(np.zeros((2, 2)), "Matrix_is_zero"),
                                                (np.ones((2, 2)), "Singular_matrix"),
                                                (np.ones((2, 3)), "Matrix_not_square")])
def test_what_cannot_be_factorised_is_named(matrix, identifier):
    with pytest.raises(Error) as failure:
        splu(matrix)
    assert failure.value.identifier == identifier


def test_wrong_right_hand_sides_are_refused(rng):
    factor = splu(regular(rng, 4))

    for b in (np.ones(3), np.ones((4, 2, 2)), 1.0):
        with pytest.raises((ValueError, IndexError)):
            factor.solve(b)
    with pytest.raises(ValueError):
        factor.solve(np.ones(4), "X")
    with pytest.raises(TypeError):
        factor.solve(np.array(["a"] * 4))


def test_many_threads_share_one_factor(rng):
    a = regular(rng, 60)
    factor = splu(a)
    right = rng.standard_normal((8, 60))
    found = [None] * 8

    def work(k):
        found[k] = factor.solve(right[k], "T" if k % 2 else "N")

    threads = [threading.Thread(target=work, args=(k,)) for k in range(8)]
    [t.start() for t in threads]
    [t.join() for t in threads]

    for k in range(8):
        assert np.allclose((a.T if k % 2 else a) @ found[k], right[k], atol=1e-12)


def test_a_factor_is_a_linear_operator(rng):
    pytest.importorskip("scipy.sparse.linalg", reason="SciPy is not installed")
    a = regular(rng, 10)

    operator = splu(a).operator()

    assert np.allclose(a @ (operator @ np.ones(10)), 1.0)


def test_a_token_raised_by_the_progress_ends_a_factorisation():
    token = CancelToken()

    with pytest.raises(Cancelled):
        splu(laplacian(300), cancel=token, progress=lambda title, fraction: token.cancel())

    token.clear()
    assert splu(laplacian(10), cancel=token).shape == (100, 100)


def test_control_c_leaves_a_keyboard_interrupt():
    def press(title, fraction):
        os.kill(os.getpid(), signal.SIGINT)

    with pytest.raises(KeyboardInterrupt):
        splu(laplacian(300), progress=press)


@pytest.mark.parametrize("orthonormal", [False, True])
def test_null_spaces_satisfy_their_equations(rng, orthonormal):
    constraints = np.array([[1.0, -1.0, 0, 0, 0], [0, 0, 1.0, 1.0, 0], [1.0, -1.0, 1.0, 1.0, 0]])  # the last repeats

    null, compl, range_ = nullspace(constraints, orthonormal=orthonormal)

    assert null.shape == (5, 3) and compl.shape == (5, 2)
    assert np.allclose(constraints @ null.toarray(), 0, atol=1e-15)
    assert np.linalg.matrix_rank(np.hstack([null.toarray(), compl.toarray()])) == 5
    assert np.allclose(compl.H.toarray() @ constraints.T, range_.toarray())


def test_complex_constraints_are_met_not_their_conjugates():
    constraints = np.array([[1.0, 1j]])

    null = nullspace(constraints).null.toarray()

    assert np.allclose(constraints @ null, 0) and null.shape == (2, 1)


def test_relaxation_reaches_the_solution():
    A = laplacian(8)
    b = np.arange(64.0)
    exact = np.linalg.solve(A.toarray(), b)
    relaxation = A.relaxation()

    assert np.allclose(relaxation.sor(b, omega=1.5, sweeps=200), exact, rtol=1e-10)
    assert np.allclose(relaxation.jacobi(b, sweeps=2000), exact, rtol=1e-8)
    with pytest.raises(Error) as failure:
        Sparse(np.array([[0.0, 1.0], [1.0, 1.0]])).relaxation()
    assert failure.value.identifier == "Matrix_has_zero_on_diagonal"


def test_matrix_market_files_keep_every_bit(rng, tmp_path):
    A = Sparse(random_dense(rng, 5, 9, True))
    path = tmp_path / "matrix ä.mtx"

    write_matrix_market(path, A)

    assert np.array_equal(read_matrix_market(path).toarray(), A.toarray())
    with pytest.raises(Error) as failure:
        read_matrix_market(tmp_path / "missing.mtx")
    assert failure.value.identifier == "Cannot_open_matrix_file"


def test_matrices_pickle(rng):
    A = Sparse(random_dense(rng, 5, 6))

    assert np.array_equal(pickle.loads(pickle.dumps(A)).toarray(), A.toarray())


def test_empty_matrices_work():
    A = Sparse(np.zeros((0, 3)))

    assert A.nnz == 0 and (A @ np.ones(3)).shape == (0,) and A.T.shape == (3, 0) and A.toarray().shape == (0, 3)


def test_values_of_other_types_become_doubles():
    for dtype in (np.float32, np.int16, bool, np.uint8):
        assert Sparse(np.eye(3, dtype=dtype)).dtype == np.float64
    assert Sparse(np.eye(3, dtype=np.complex64)).dtype == np.complex128
    for bad in (np.array([["a"]]), np.array([[None]]), np.array([[np.datetime64("2020")]]), np.eye(2, dtype=np.longdouble)):
        with pytest.raises(TypeError):
            Sparse(bad)


@pytest.mark.parametrize("complex_", [False, True])
def test_constrained_systems_meet_constraints_and_equations(rng, complex_):
    K = regular(rng, 8, complex_)
    N = np.zeros((3, 8))
    N[0, :2] = [1, -1]
    N[1, 4] = 1
    N[2] = 2 * N[0]  # repeats the first

    u, residual, dropped = solve_constrained(K, np.ones(8), N, [0.5, 2.0, 1.0])

    null = nullspace(N).null.toarray()
    assert np.allclose(N @ u, [0.5, 2.0, 1.0]) and np.allclose(null.conj().T @ (K @ u - 1), 0, atol=1e-10)
    assert len(dropped) == 1 and dropped[0] in (0, 2) and residual < 1e-12


def test_contradicting_constraints_are_named():
    with pytest.raises(Error) as failure:
        solve_constrained(np.eye(3), np.ones(3), [[1.0, 0, 0], [1.0, 0, 0]], [1.0, 2.0])
    assert failure.value.identifier == "Contradicting_constraints" and "Constraint" in failure.value.arguments


@pytest.mark.parametrize("complex_", [False, True])
def test_a_constrained_solve_is_a_linear_operator(rng, complex_):
    pytest.importorskip("scipy.sparse.linalg", reason="SciPy is not installed")
    K, f = regular(rng, 8, complex_), rng.standard_normal(8)
    N = np.zeros((1, 8))
    N[0, :2] = [1, -1]

    operator = constrained_operator(K, N)

    assert np.allclose(operator @ f, solve_constrained(K, f, N, [0.0]).u, rtol=1e-10)
    assert np.vdot(operator @ f, f) == pytest.approx(np.vdot(f, operator.H @ f), rel=1e-10)

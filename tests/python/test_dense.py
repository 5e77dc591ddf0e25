# SPDX-License-Identifier: LicenseRef-qxkernel
import numpy as np
import pytest
from qxkernel import Error, eig, gmres


@pytest.mark.parametrize("complex_", [False, True])
def test_eigenvectors_satisfy_their_equation(rng, complex_):
    A = rng.standard_normal((9, 9)) + (1j * rng.standard_normal((9, 9)) if complex_ else 0)
    kept = A.copy()

    w, U, V = eig(A, left=True)

    assert np.allclose(A @ V, V * w) and np.allclose(U.conj().T @ A, w[:, None] * U.conj().T)
    assert np.array_equal(A, kept)


@pytest.mark.parametrize("complex_", [False, True])
def test_pencils_with_infinite_eigenvalues(rng, complex_):
    A = rng.standard_normal((6, 6)) + (1j * rng.standard_normal((6, 6)) if complex_ else 0)
    B = np.diag([1.0, 2.0, 3.0, 4.0, 5.0, 0.0])

    w, V = eig(A, B)
    alpha, beta = eig(A, B, right=False, homogeneous=True)

    finite = np.isfinite(w)
    assert finite.sum() == 5 and np.allclose(A @ V[:, finite], B @ V[:, finite] * w[finite])
    assert np.allclose(alpha[beta != 0] / beta[beta != 0], w[finite])


def test_eigenvalues_too_large_for_a_double_are_infinite_in_their_direction():
    w = eig(np.array([[0.0, 0.0], [0.0, -1e200]]), np.diag([1.0, 1e-200]), right=False)

    assert sorted(w.real) == [-np.inf, 0.0]
    assert (w.imag == 0.0).all()


def test_what_has_no_eigenvalues_is_refused():
    for A, B in [(np.ones((2, 3)), None), (np.eye(2), np.eye(3)), (np.ones(3), None)]:
        with pytest.raises(ValueError):
            eig(A, B)
    with pytest.raises(ValueError):
        eig(np.eye(2), homogeneous=True)
    assert eig(np.zeros((0, 0)), right=False).shape == (0,)


@pytest.mark.parametrize("complex_", [False, True])
def test_gmres_converges_to_the_solution(rng, complex_):
    A = 20 * np.eye(60) + rng.standard_normal((60, 60)) + (1j * rng.standard_normal((60, 60)) if complex_ else 0)
    b = rng.standard_normal(60)

    x, converged = gmres(A, b, restart=10, tol=1e-12)

    assert converged and np.allclose(A @ x, b, rtol=1e-10)
    assert gmres(A, b, x, tol=1e-10, max_iterations=0)[1] and not gmres(A, b, tol=1e-14, max_iterations=2)[1]


def test_gmres_refuses_what_does_not_fit():
    with pytest.raises(Error) as failure:
        gmres(np.eye(3), np.ones(2))
    assert failure.value.identifier == "Internal_error_solver"
    with pytest.raises(ValueError):
        gmres(np.ones(3), np.ones(3))


def test_the_configuration_is_shown(capsys):
    import qxkernel

    qxkernel.show_config()

    assert qxkernel.__version__ in capsys.readouterr().out

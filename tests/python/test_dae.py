# SPDX-License-Identifier: LicenseRef-qxkernel
import pickle

import pytest
from qxkernel import DAE, CancelToken, Cancelled, Error

PENDULUM = ["m*d(d(x,t),t)+p*x", "m*d(d(y,t),t)+p*y+m*g", "x^2+y^2-l^2"]


def pendulum():
    return DAE(PENDULUM, ["p", "y", "x"])


def test_the_pendulum_of_index_three_gets_two_dummies():
    system = pendulum().reduce()

    assert system.dummies == ["y_dummy1", "y_dummy2"]  # by hand: the constraint is differentiated twice
    assert len(system.equations) == 5 and len(system.differentiations) == 2
    assert system.orders["x"] == 2 and system.orders["y"] == 0


def test_a_failed_reduction_names_what_does_not_fit_and_leaves_the_system():
    system = DAE(["x+y", "x+y-1", "d(z,t)-x"], ["x", "y", "z", "w"])
    before = system.equations

    with pytest.raises(Error) as failure:
        system.reduce()

    assert failure.value.identifier == "The DAE is structurally inconsistent."
    assert failure.value.arguments["Equations"] == "3" and failure.value.arguments["Variables"] == "4"
    assert system.equations == before


def test_systems_pickle_with_their_reduction():
    system = pendulum().reduce()

    again = pickle.loads(pickle.dumps(system))

    assert again.equations == system.equations and again.variables == system.variables


def test_simplify_eliminates_and_tells_the_definition():
    system = DAE(["d(x,t)-y", "y-2*x"], ["x", "y"]).simplify()

    kinds = {v.name: v.kind for v in system.variables}

    assert kinds["y"] == "eliminated" and system.definition("y") == "xt"
    with pytest.raises(KeyError):
        system.definition("nobody")


def test_progress_is_heard_and_its_failure_ends_the_call():
    heard = []
    pendulum().reduce(progress=lambda title, fraction: heard.append((title, fraction)))
    assert heard and heard[-1][1] == 1.0

    def fail(title, fraction):
        raise LookupError("enough")

    system = pendulum()
    with pytest.raises(LookupError, match="enough"):
        system.reduce(progress=fail)
    assert system.equations == pendulum().equations


def test_a_raised_token_ends_a_long_reduction():
    n = 30000
    equations = [f"d(x{i},t)-x{i + 1}" for i in range(n - 1)] + ["x0-sin(t)"]
    system = DAE(equations, [f"x{i}" for i in range(n)])
    token = CancelToken()
    token.cancel()

    with pytest.raises(Cancelled):
        system.reduce(cancel=token, progress=lambda title, fraction: token.cancel())


def test_a_text_that_does_not_read_is_refused():
    with pytest.raises(Error) as failure:
        DAE(["x+"], ["x"])
    assert failure.value.identifier == "Syntax_error_in_expression"


@pytest.mark.parametrize("names, options", [(["x", "x"], {}), (["x "], {}), ([""], {}), (["x"], {"excluded": ["x"]}),
                                            (["t"], {}), (["x"], {"time": "a b"})])
def test_what_is_no_name_or_named_twice_is_refused(names, options):
    with pytest.raises(ValueError):
        DAE(["d(x,t)-1"], names, **options)


def test_an_integrated_pendulum_keeps_its_length():
    """The reduced system by SciPy's solver against the length of the rod, which no integration uses."""
    integrate = pytest.importorskip("scipy.integrate", reason="SciPy is not installed")
    import numpy as np
    system = pendulum().reduce()
    m, g, l = 0.5, 9.81, 1.25
    code = [compile(text.replace("^", "**"), "equation", "eval") for text in system.equations]

    def algebraic(x, xt, guess):
        names = ("p", "y", "xtt", "y_dummy1", "y_dummy2")
        z = np.array(guess)
        for _ in range(20):
            def residual(z):
                point = dict(zip(names, z), x=x, xt=xt, m=m, g=g, l=l)
                return np.array([eval(c, {}, point) for c in code])
            r = residual(z)
            if np.abs(r).max() < 1e-13:
                break
            J = np.array([(residual(z + 1e-7 * e) - r) / 1e-7 for e in np.eye(5)]).T
            z = z - np.linalg.solve(J, r)
        return z

    guess = [1.0, -l, 0.0, 0.0, 0.0]

    def rate(t, state):
        guess[:] = algebraic(*state, guess)
        return [state[1], guess[2]]

    result = integrate.solve_ivp(rate, (0, 1.0), [0.3, 0.0], rtol=1e-9, atol=1e-11)

    y = algebraic(*result.y[:, -1], guess)[1]
    energy = [0.5 * m * (xt ** 2 + z[3] ** 2) + m * g * z[1]
              for x, xt in (result.y[:, 0], result.y[:, -1]) for z in [algebraic(x, xt, guess)]]
    assert np.hypot(result.y[0, -1], y) == pytest.approx(l, abs=1e-10)
    assert energy[1] == pytest.approx(energy[0], abs=1e-6)

# SPDX-License-Identifier: LicenseRef-qxkernel
import pickle
import threading

import numpy as np
import pytest
from qxkernel import Error, Table


def test_linear_tables_agree_with_numpy(rng):
    x, y, at = np.sort(rng.random(50)), rng.random(50), rng.uniform(-0.2, 1.2, (20, 30))

    assert np.allclose(Table(x, y)(at), np.interp(at, x, y), rtol=1e-14)


@pytest.mark.parametrize("method", ["piecewisecubic", "cubicspline"])
def test_cubic_tables_agree_with_scipy(rng, method):
    scipy = pytest.importorskip("scipy.interpolate", reason="SciPy is not installed")
    x = np.cumsum(rng.uniform(0.1, 1.0, 30))
    y, at = np.cumsum(rng.random(30)), rng.uniform(x[0], x[-1], 1000)
    reference = {"piecewisecubic": scipy.PchipInterpolator, "cubicspline": scipy.CubicSpline}[method](x, y)

    table = Table(x, y, method=method)

    assert np.allclose(table(at), reference(at), rtol=1e-12)
    assert np.allclose(table.diff()(at), reference(at, 1), rtol=1e-9, atol=1e-11)


def test_grids_reproduce_what_is_linear_in_each_coordinate(rng):
    axes = [np.sort(rng.random(k)) for k in (4, 5, 6)]
    f = lambda a, b, c: 1 + 2 * a - b + 3 * c + a * b * c
    table = Table(tuple(axes), f(*np.meshgrid(*axes, indexing="ij")))
    points = [rng.uniform(axis[0], axis[-1], (7, 1)) for axis in axes]

    assert np.allclose(table(*points), f(*points), rtol=1e-13)
    assert np.allclose(table.diff(1)(*points), -1 + points[0] * points[2], rtol=1e-11)


@pytest.mark.parametrize("method, outside, expected", [
    ("linear", "clamp", 4.0), ("linear", "linear", 10.0), ("linear", -7.0, -7.0), ("neighbor", "clamp", 4.0),
    ("cubicspline", "polynomial", 16.0), ("cubicspline", "clamp", 4.0), ("cubicspline", "linear", 12.0)])
def test_what_happens_outside(method, outside, expected):
    """y = x^2 at 0, 1, 2, asked at 4: by hand."""
    assert Table([0.0, 1, 2], [0.0, 1, 4], method=method, outside=outside)(4.0) == pytest.approx(expected)


@pytest.mark.parametrize("arguments, options, failure", [
    (([1.0, 0.0], [1.0, 2.0]), {}, Error), (([0.0, 1.0], [1.0]), {}, ValueError), (([], []), {}, Error),
    (([0.0, 1.0], [1.0, 2j]), {}, TypeError), (([0.0, 1.0], [1.0, 2.0]), {"method": "best"}, ValueError),
    (([0.0, 1.0], [1.0, 2.0]), {"outside": "polynomial"}, ValueError)])
def test_what_is_no_table_is_refused(arguments, options, failure):
    with pytest.raises(failure):
        Table(*(np.array(a) for a in arguments), **options)


def test_empty_lists_are_no_table():
    with pytest.raises(Error, match="Wrong_size_of_interpolation_data"):
        Table([], [])


def test_tables_pickle_with_their_derivatives():
    table = Table([0.0, 1, 2], [0.0, 1, 4], outside="linear").diff()

    assert pickle.loads(pickle.dumps(table))(1.5) == table(1.5) == 3.0


def test_one_table_serves_many_threads(rng):
    x = np.linspace(0, 1, 100)
    table, at = Table(x, np.sin(x), method="cubicspline"), rng.random(20000)
    expected, found = table(at), [None] * 8

    def work(k):
        found[k] = table(at)

    threads = [threading.Thread(target=work, args=(k,)) for k in range(8)]
    [t.start() for t in threads]
    [t.join() for t in threads]

    assert all(np.array_equal(f, expected) for f in found)

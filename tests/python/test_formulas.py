# SPDX-License-Identifier: LicenseRef-qxkernel
import gc
import multiprocessing
import os
import pickle
import signal
import subprocess
import sys
import threading
import tracemalloc

import numpy as np
import pytest
from qxkernel import Cancelled, CancelToken, Error, Formulas, Table


@pytest.fixture
def xy(rng):
    return rng.uniform(0.1, 2.0, 1000), rng.uniform(-1.0, 1.0, 1000)


def test_values_agree_with_numpy(xy):
    x, y = xy
    f = Formulas(x=x, y=y).define(r="sqrt(x**2+y**2)")

    assert np.allclose(f("exp(-r^2)*sin(3*x)"), np.exp(-(x**2 + y**2)) * np.sin(3 * x), rtol=1e-14, atol=1e-16)


def test_gradients_agree_with_derivatives_by_hand(xy):
    x, y = xy
    f = Formulas(x=x, y=y)

    value, gradient = f.gradient("x^2*sin(y)", ["x", "y"])

    assert gradient.shape == (2, 1000)
    assert np.allclose(value, x**2 * np.sin(y)) and np.allclose(gradient, [2 * x * np.sin(y), x**2 * np.cos(y)])
    assert f.gradient("x", [])[1].shape == (0, 1000)


def test_jacobian_and_its_pattern(xy):
    x, y = xy
    f = Formulas(x=x, y=y)

    assert np.allclose(f.jacobian(["x*y", "y^2"], ["x", "y"]), [[y, x], [0 * x, 2 * y]])
    assert f.pattern(["x*y", "y^2", "1"], ["x", "y"]).tolist() == [[True, True], [False, True], [False, False]]


def test_several_formulas_at_once_are_the_single_ones(xy):
    f = Formulas(x=xy[0], y=xy[1])
    texts = ["sin(x)*y", "sin(x)+y", "2"]

    together = f(texts)

    assert isinstance(together, tuple) and all(np.array_equal(a, f(t)) for a, t in zip(together, texts))


@pytest.mark.parametrize("dtype", ["f8", "f4", "i8", "i4", "i2", "i1", "u8", "u4", "u2", "u1", "?", ">f8", ">i4"])
def test_real_types_become_doubles(dtype):
    x = np.array([0, 1, 1, 0, 1]).astype(dtype)

    assert f"{Formulas(x=x)('2*x+1').tolist()}" == "[1.0, 3.0, 3.0, 1.0, 3.0]"


@pytest.mark.parametrize("bad", [np.array(["a"]), np.array([object()]), np.array(["2020-01-01"], "M8[D]"),
                                 np.array([1], np.longdouble), np.array([1j], np.clongdouble), np.array([1], np.float16),
                                 np.ma.masked_array([1.0]), [[1, 2], [3]], None])
def test_what_holds_no_doubles_is_refused(bad):
    with pytest.raises((TypeError, ValueError)):
        Formulas(x=bad)("x")


@pytest.mark.parametrize("view", [lambda a: a[::2], lambda a: a[::-1], lambda a: a.T, lambda a: a[:, 3:4], lambda a: a[1],
                                  lambda a: a.swapaxes(0, 1)[::-2, ::3], lambda a: np.asfortranarray(a),
                                  lambda a: a.view("f8").reshape(-1)[7:], lambda a: a[:0], lambda a: a[2, 2],
                                  lambda a: a.reshape(10, 2, 5, 2)[:, ::-1].transpose(3, 1, 0, 2)])
def test_any_strides_and_shapes(rng, view):
    x = view(rng.random((20, 10)))

    values = Formulas(x=x, c=2.0)("c*x+x^2")

    assert values.shape == x.shape and np.allclose(values, 2 * x + x**2, rtol=1e-15)


def test_unaligned_memory_is_read():
    raw = np.zeros(81, np.uint8)
    x = raw[1:].view(np.float64)
    x[:] = np.arange(10)

    assert np.array_equal(Formulas(x=x)("x+1"), np.arange(10) + 1.0)


def test_shapes_are_broadcast_over_many_blocks(rng):
    a, b = rng.random((300, 1, 7)), rng.random((100, 1)).astype(np.float32)

    values = Formulas(a=a, b=b, c=3)("a*b+c")

    assert values.shape == (300, 100, 7) and np.allclose(values, a * b + 3, rtol=1e-15)
    with pytest.raises(ValueError, match="'b' have shape"):
        Formulas(a=np.ones(3), b=np.ones(4))("a+b")


def test_numbers_alone_give_a_number():
    value = Formulas(x=1.5)("2*x")

    assert value == 3.0 and np.ndim(value) == 0


def test_the_first_and_the_second_call_agree(xy):
    f = Formulas(x=xy[0])

    assert np.array_equal(f("exp(x)"), f("exp(x)")) and Formulas(x=2.0)("x") == 2.0


def test_complex_values_are_asked_for_or_come_from_complex_variables(xy):
    x = xy[1]
    f = Formulas(x=x, z=x + 1j)

    assert np.allclose(Formulas(x=x)("sqrt(x)", complex=True), np.sqrt(x.astype(complex)))
    assert np.allclose(f("z^2"), (x + 1j) ** 2) and np.allclose(Formulas(z=(x + 1j).astype("c8"))("z"), x + 1j)
    with pytest.raises(Error) as failure:
        Formulas(x=x)("sqrt(x)")
    assert failure.value.identifier == "Complex_number_in_real_expression"
    assert failure.value.point == np.flatnonzero(x < 0)[0]


def test_a_failing_point_is_named_in_any_block_and_shape(rng):
    x = rng.uniform(1, 2, (500, 400)).astype(np.float32)  # converted in blocks
    x[444, 321] = -1.0

    with pytest.raises(Error) as failure:
        Formulas(x=x)("log(x)")

    assert failure.value.point == (444, 321)
    assert failure.value.arguments["Point"] == str(444 * 400 + 321) and failure.value.arguments["Expression"] == "log(x)"


def test_failures_become_nan_and_are_listed_exactly(xy):
    x = xy[1]
    f = Formulas(x=x)

    values, failures = f("sqrt(x)", on_failure="nan")

    assert np.array_equal(np.isnan(values), x < 0) and np.allclose(values[x >= 0], np.sqrt(x[x >= 0]))
    assert failures.count == (x < 0).sum() and len(failures.first) == 100
    assert [error.point for _, error in failures.first] == np.flatnonzero(x < 0)[:100].tolist()
    with pytest.raises(ValueError):
        f("x", on_failure="ignore")


def test_infinities_are_values_unless_refused():
    f = Formulas(x=np.array([1.0, np.inf]))

    assert f("2*x")[1] == np.inf
    with pytest.raises(Error) as failure:
        f("2*x", require_finite=True)
    assert failure.value.identifier == "Infinite_value" and failure.value.point == 1


def test_out_takes_the_values_whatever_its_strides(xy):
    x, y = xy
    f = Formulas(x=x, y=y)
    plain, strided, complex_ = np.empty(1000), np.empty((1000, 2))[:, 1], np.empty(1000, complex)

    for out in (plain, strided, complex_):
        assert f("x*y", out=out) is out and np.array_equal(out, x * y)
    assert f(["x", "y"], out=[plain, strided])[1] is strided and np.array_equal(strided, y)


def test_out_may_be_an_input(xy):
    x = xy[0].copy()
    expected = np.log(x) + x

    Formulas(x=x)("log(x)+x", out=x)

    assert np.allclose(x, expected, rtol=1e-15)


@pytest.mark.parametrize("out, failure", [(np.empty(999), ValueError), (np.empty(1000, np.float32), TypeError),
                                          (np.broadcast_to(0.0, 1000), ValueError), ([0.0] * 1000, TypeError)])
def test_bad_targets_are_refused(xy, out, failure):
    with pytest.raises(failure):
        Formulas(x=xy[0])("x", out=out)


@pytest.mark.parametrize("text", ["x+", "nobody", "f(x)", "", "sin(x,y)"])
def test_formulas_that_cannot_be_compiled_raise_and_leave_the_rest(xy, text):
    f = Formulas(x=xy[0], y=xy[1])

    with pytest.raises(Error):
        f(text)
    with pytest.raises(Error):
        f.define(a=text)

    assert np.array_equal(f("x"), xy[0])


@pytest.mark.parametrize("bad", [None, 3, b"x", ["x", 1]])
def test_what_is_no_text_is_refused(xy, bad):
    with pytest.raises(TypeError):
        Formulas(x=xy[0])(bad)


def test_circular_definitions_are_refused(xy):
    f = Formulas(x=xy[0])
    with pytest.raises(Error):
        f.define(a="b", b="a")
    f.define(a="x")
    assert np.array_equal(f("a"), xy[0])


def test_variables_without_values_are_named():
    f = Formulas("t", x=np.ones(3))

    with pytest.raises(Error) as failure:
        f("t*x")

    assert failure.value.identifier == "Variable_without_values" and failure.value.arguments["Name"] == "t"
    assert f.compile("t*x")(t=2.0).tolist() == [2.0, 2.0, 2.0]


def test_set_gives_new_values_to_compiled_formulas_too():
    f = Formulas(x=1.0)
    g = f.compile("2*x")

    f.set(x=5.0)

    assert f("2*x") == 10.0 and g() == 10.0 and f.set(y=1.0)("x+y") == 6.0


def test_a_compiled_formula_takes_values_by_name(xy):
    g = Formulas("a", x=xy[0]).compile("a*x")

    assert np.array_equal(g(a=2.0), 2 * xy[0]) and np.array_equal(g(a=np.ones(3), x=np.arange(3.0)), np.arange(3.0))
    assert np.allclose(g.gradient(["a"], a=2.0)[1][0], xy[0]) and "x" in g.derivative_text("a")


def test_only_the_latest_formulas_are_kept(xy):
    f = Formulas(x=xy[0])
    for k in range(300):
        f(f"x+{k}")

    assert len(f._programs) == 256 and np.array_equal(f("x+0"), xy[0])


# --- Functions in Python ----------------------------------------------------------------------------------------------


def test_python_functions_see_blocks_and_their_derivatives_are_used(xy):
    x = xy[0]
    sizes = []

    def mine(a):
        sizes.append(a.size)
        return np.cos(a)

    f = Formulas(x=x).function("mine", mine, derivatives=["-sin(x1)"])

    assert np.allclose(f("mine(x)+1"), np.cos(x) + 1) and 1000 in sizes
    assert np.allclose(f.gradient("mine(x)", ["x"])[1][0], -np.sin(x))


def test_python_functions_of_several_arguments_and_of_complex_ones():
    f = Formulas(x=np.arange(3.0), z=1j).function("add", lambda a, b: a + b, arguments=2, complex=True)

    assert np.allclose(f("add(x,z)"), np.arange(3) + 1j)


def test_a_python_exception_leaves_unchanged(xy):
    class Mine(Exception):
        pass

    calls = []

    def bad(a):
        calls.append(1)
        raise Mine("as it was")

    f = Formulas(x=xy[0]).function("bad", bad)
    with pytest.raises(Mine, match="as it was"):
        f("bad(x)+1")

    assert len(calls) == 1 and np.array_equal(f("x"), xy[0])


def test_a_python_function_with_the_wrong_number_of_values_is_refused(xy):
    with pytest.raises(ValueError, match="3 values for"):
        Formulas(x=xy[0]).function("bad", lambda a: np.ones(3))("bad(x)")
    with pytest.raises(TypeError):
        Formulas(x=xy[0]).function("bad", 3)


def test_a_python_function_may_call_back_in(xy):
    inner = Formulas(a=1.0).compile("a^2")

    f = Formulas(x=xy[0]).function("square", lambda a: inner(a=a))

    assert np.allclose(f("square(x)"), xy[0] ** 2)


def test_arguments_of_python_functions_may_be_kept(xy):
    kept = []
    Formulas(x=xy[0]).function("keep", lambda a: (kept.append(a), a)[1])("keep(x)+1")

    assert any(np.array_equal(a, xy[0]) for a in kept)


def test_tables_are_functions_with_derivatives(xy):
    t = Table(np.linspace(0, 3, 31), np.linspace(0, 3, 31) ** 2, method="cubicspline")
    f = Formulas(x=xy[0]).table("k", t)

    assert np.allclose(f("k(x)^2"), t(xy[0]) ** 2) and np.allclose(f.gradient("k(x)", ["x"])[1][0], 2 * xy[0])


# --- Threads, processes, signals --------------------------------------------------------------------------------------


def test_same_bits_for_any_number_of_threads(rng):
    x = rng.random(200000)
    f = Formulas(x=x)

    assert np.array_equal(f("sin(x)*exp(x)", threads=1), f("sin(x)*exp(x)", threads=7))


def test_many_threads_evaluate_one_object(rng):
    x = rng.random(20000)
    f = Formulas(x=x)
    expected = [f(f"sin({k}*x)") for k in range(8)]
    found = [None] * 8

    def work(k):
        for _ in range(5):
            found[k] = f(f"sin({k}*x)")

    threads = [threading.Thread(target=work, args=(k,)) for k in range(8)]
    [t.start() for t in threads]
    [t.join() for t in threads]

    assert all(np.array_equal(a, b) for a, b in zip(found, expected))


def test_an_array_deleted_while_in_use_stays(rng):
    x = rng.random(100000)
    expected = x * 2
    f = Formulas(x=x)
    del x
    gc.collect()

    assert np.array_equal(f("2*x"), expected)


def work_in_child(f):
    return f("sin(x)").tolist()


@pytest.mark.parametrize("method", ["fork", "spawn"])
def test_child_processes_evaluate(method, rng):
    f = Formulas(x=rng.random(50000))
    f("sin(x)")
    with multiprocessing.get_context(method).Pool(2) as pool:
        results = pool.map_async(work_in_child, [f, f]).get(timeout=120)

    assert results == [f("sin(x)").tolist()] * 2


def test_cancel_and_control_c_end_an_evaluation():
    x = np.ones(3_000_000)
    f = Formulas(x=x)
    long = "+".join(f"sin(x+{k})" for k in range(60))
    token = CancelToken()
    token.cancel()
    with pytest.raises(Cancelled):
        f(long, cancel=token)

    timer = threading.Timer(0.2, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(100):
            f(long, threads=1)
    timer.cancel()

    heard = []
    f("x", progress=lambda title, fraction: heard.append(fraction))
    assert heard[-1] == 1.0


def test_the_interpreter_may_end_while_threads_evaluate():
    program = """if True:
        import sys, threading, numpy as np, qxkernel
        f = qxkernel.Formulas(x=np.ones(500000))
        for _ in range(4):
            threading.Thread(target=lambda: [f("sin(x)*exp(x)") for _ in range(1000)], daemon=True).start()
        f("x")
        sys.exit(7)
    """
    assert subprocess.run([sys.executable, "-c", program], timeout=120).returncode == 7


def test_sub_interpreters_are_refused():
    program = """if True:
        import _xxsubinterpreters as sub
        other = sub.create()
        try:
            sub.run_string(other, "import qxkernel._core")
        except sub.RunFailedError as failure:
            assert "sub-interpreter" in str(failure), failure
        else:
            raise AssertionError("it was imported")
    """
    subprocess.run([sys.executable, "-c", program], check=True, timeout=120)


# --- Memory -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("make", [lambda n: np.ones(n, np.float32), lambda n: np.ones((n, 2))[:, 0],
                                  lambda n: np.ones(n), lambda n: np.broadcast_to(np.ones(1), n)])
def test_no_temporary_is_as_long_as_the_input(make):
    n = 4_000_000
    f = Formulas(x=make(n))
    out = np.empty(n)
    f("2*x+1", out=out, threads=1)
    before = peak_memory()

    f("2*x+1", out=out, threads=1)

    assert peak_memory() - before < n * 8 // 4


def peak_memory():
    """The largest resident memory so far, bytes."""
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) * 1024 for line in status if line.startswith("VmHWM"))


def test_a_failed_call_leaves_nothing_behind(rng):
    f = Formulas(x=rng.uniform(-1, 1, 1000))

    def fail():
        with pytest.raises(Error):
            f("sqrt(x)")

    for _ in range(10):
        fail()
    tracemalloc.start()
    fail()
    first = tracemalloc.get_traced_memory()[0]
    for _ in range(200):
        fail()
    gc.collect()
    grown = tracemalloc.get_traced_memory()[0] - first
    tracemalloc.stop()

    assert grown < 20_000


def test_a_result_too_large_is_a_memory_error():
    with pytest.raises((MemoryError, ValueError)):
        Formulas(x=np.broadcast_to(1.0, (1 << 20, 1 << 24)))("x")


# --- Other libraries --------------------------------------------------------------------------------------------------


def test_formulas_pickle_with_data_definitions_and_tables(xy):
    f = Formulas(x=xy[0]).define(r="2*x").table("k", Table([0.0, 3.0], [0.0, 6.0]))

    again = pickle.loads(pickle.dumps(f))

    assert np.array_equal(again("r+k(x)"), f("r+k(x)")) and again.variables == ("x",)


def test_an_oscillator_integrated_by_scipy():
    integrate = pytest.importorskip("scipy.integrate", reason="SciPy is not installed")
    f = Formulas(k=4.0)
    rhs = f.vector_function(["v", "-k*x"], ["x", "v"], time="t")

    result = integrate.solve_ivp(rhs, (0, 3), [1.0, 0.0], method="BDF", jac=rhs.jac, rtol=1e-8, atol=1e-10)

    assert np.allclose(result.y[0], np.cos(2 * result.t), atol=1e-5)
    assert rhs.jac(0.0, [1.0, 0.0]).tolist() == [[0.0, 1.0], [-4.0, 0.0]] and rhs.sparsity.tolist() == [[0, 1], [1, 0]]


def test_a_root_found_by_scipy():
    optimize = pytest.importorskip("scipy.optimize", reason="SciPy is not installed")
    fun = Formulas().vector_function(["x^2+y^2-4", "x-y"], ["x", "y"])

    assert np.allclose(optimize.root(fun, [1.0, 2.0], jac=fun.jac).x, np.sqrt(2))
    with pytest.raises(ValueError):
        fun([1.0])
    with pytest.raises(TypeError):
        fun(0.0, [1.0, 2.0])


def test_a_java_class_computes_the_same(tmp_path):
    import shutil
    f = Formulas(x=0.5, a=2.0).define(r="a*x+1")
    made = f.compile_java("pkg.Law", "r**2*sin(x)", ["x"])

    assert made.code[:4] == bytes.fromhex("cafebabe") and made.inputs == ("x", "a") and len(made.outputs) == 2
    if shutil.which("javac") is None:
        pytest.skip("there is no Java compiler")
    (tmp_path / "pkg").mkdir()
    (tmp_path / "pkg" / "Law.class").write_bytes(made.code)
    (tmp_path / "Use.java").write_text("""
        class Use { public static void main(String[] a) {
            double[] out = new double[2];
            System.out.println(pkg.Law.eval(new double[] {0.5, 2.0}, out) + " " + out[0] + " " + out[1]);
        } }""")
    subprocess.run(["javac", "-cp", tmp_path, "-d", tmp_path, tmp_path / "Use.java"], check=True)
    text = subprocess.run(["java", "-cp", tmp_path, "Use"], check=True, capture_output=True, text=True).stdout
    status, value, slope = text.split()
    expected, (gradient,) = f.gradient("r^2*sin(x)", ["x"])
    assert status == "0" and float(value) == pytest.approx(expected, rel=1e-14)
    assert float(slope) == pytest.approx(float(gradient), rel=1e-14)


def test_what_has_no_compiled_form_is_refused():
    f = Formulas(x=0.5).function("mine", np.cos)
    with pytest.raises(Error) as failure:
        f.compile_java("Law", "mine(x)")
    assert failure.value.identifier == "Cannot create definitions from mine"

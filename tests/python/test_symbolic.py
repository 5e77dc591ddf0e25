# SPDX-License-Identifier: LicenseRef-qxkernel
import math
import pickle

import pytest
from qxkernel import Error, Expr


def value(expression, **point):
    """By Python's own arithmetic, independent of the kernel."""
    names = {name: getattr(math, name) for name in ("sin", "cos", "exp", "log", "sqrt")}
    return eval(str(expression).replace("^", "**"), {"__builtins__": {}}, {**names, **point})


def test_derivative_has_the_values_of_a_central_difference():
    f = Expr("x*sin(a*x)+exp(-x^2)/(1+a)")
    point, h = {"x": 0.7, "a": 1.3}, 1e-6

    slope = value(f.diff("x"), **point)

    ahead, behind = (value(f, x=point["x"] + s * h, a=point["a"]) for s in (1, -1))
    assert slope == pytest.approx((ahead - behind) / (2 * h), rel=1e-8)


def test_second_derivative_is_the_derivative_twice():
    f = Expr("sin(x)^3")

    assert f.diff("x", 2) == f.diff("x").diff("x")
    assert f.diff("x", 0) == f
    with pytest.raises(ValueError):
        f.diff("x", -1)


def test_both_powers_read_alike():
    assert Expr("x**2+y**-1") == Expr("x^2+y^(-1)")
    assert Expr("-x**2") == Expr("-(x^2)")


@pytest.mark.parametrize("text", ["x**y**z", "x^y**z", "x**y^z", "f(x**y**2)", "x**-y**2"])
def test_a_chain_of_powers_that_could_mean_two_things_is_refused(text):
    with pytest.raises(Error) as failure:
        Expr(text)

    assert failure.value.identifier == "Ambiguous_power"
    assert failure.value.arguments["Expression"] == text


@pytest.mark.parametrize("text", ["x**(y**z)", "(x**y)**z", "x**2*y**2", "f(x**2)+y**2", "x**f(y**2)", "x^y^z"])
def test_powers_with_one_meaning_are_read(text):
    Expr(text)


def test_strings_keep_their_stars():
    assert "**" in str(Expr("f('a**b', x**2)"))


def test_solves_what_is_linear_and_says_none_else():
    assert Expr("2*x-4*a").solve("x") == Expr("2*a")
    assert Expr("sin(x)-1").solve("x") is None


def test_substitution_is_simultaneous_and_refuses_circles():
    assert Expr("x^2+y").substitute(x="a+1", y=2) == Expr("(a+1)^2+2")
    with pytest.raises(Error) as failure:
        Expr("x").substitute(x="y", y="x")
    assert failure.value.identifier == "Cyclic_dependencies"


def test_operators_make_new_expressions():
    x, y = Expr("x"), Expr("y")

    assert x + y == Expr("x+y") and 2 * x - y / 3 == Expr("2*x-y/3") and x ** 2 == Expr("x^2")
    assert -(x + 1) == Expr("-x-1") and 1 / x == Expr("1/x") and "x+1" * y == Expr("(x+1)*y")
    with pytest.raises(TypeError):
        x + [1]


def test_equal_is_what_differs_by_nothing():
    assert Expr("a+b") == Expr("b+a") and hash(Expr("a+b")) == hash(Expr("b+a"))
    assert Expr("a") != Expr("b") and Expr("1+1") == 2 and Expr("a") != [1]


def test_expressions_do_not_change_and_pickle():
    f = Expr("x^2")
    with pytest.raises(AttributeError):
        f.text = "y"
    assert pickle.loads(pickle.dumps(f)) == f and repr(f) == "Expr('x^2')"


def test_names_and_numbers():
    assert Expr("b*sin(a)+b").variables == ("a", "b")
    assert float(Expr("sin(1)+2")) == pytest.approx(math.sin(1) + 2, rel=1e-15)
    with pytest.raises(TypeError):
        float(Expr("x"))


def test_division_by_zero_has_its_identifier():
    with pytest.raises(Error) as failure:
        Expr("1/(2-2)").simplify()
    assert failure.value.identifier == "Divide_by_zero"


def test_a_syntax_error_names_the_text_and_pickles():
    with pytest.raises(Error) as failure:
        Expr("x+")

    assert failure.value.identifier == "Syntax_error_in_expression"
    assert failure.value.arguments["Expression"] == "x+"
    assert pickle.loads(pickle.dumps(failure.value)) == failure.value


@pytest.mark.parametrize("bad", [None, 1j, b"x", ["x"]])
def test_what_is_no_text_is_refused(bad):
    with pytest.raises(TypeError):
        Expr(bad)


@pytest.mark.parametrize("text, expected", [
    ("x/y", r"\frac{x}{y}"),
    ("(a+b)*c", r"\left(a + b\right)\,c"),
    ("a-(b-c)", r"a - \left(b - c\right)"),
    ("x^(n+1)", r"x^{n + 1}"),
    ("(-x)^2", r"\left(-x\right)^{2}"),
    ("sqrt(alpha_1)", r"\sqrt{\alpha_{1}}"),
    ("sin(x)", r"\sin\left(x\right)"),
    ("x<=1", r"x \leq 1"),
])
def test_latex(text, expected):
    assert Expr(text).latex() == expected
    assert Expr(text)._repr_latex_().startswith("$")


def test_latex_of_deep_nesting_falls_back_to_text():
    deep = "sin(" * 3000 + "x" + ")" * 3000

    assert Expr(deep).latex().startswith(r"\texttt")


def test_a_million_parentheses_are_read():
    assert Expr("(" * 10**6 + "x" + ")" * 10**6).simplify() == Expr("x")


def test_sympy_round_trip():
    sympy = pytest.importorskip("sympy")
    x, y = sympy.symbols("x y")
    f = Expr("sin(x)^2/y+abs(x)")

    assert sympy.simplify(f.to_sympy() - (sympy.sin(x) ** 2 / y + sympy.Abs(x))) == 0
    assert Expr.from_sympy(f.to_sympy()) == f
    assert Expr.from_sympy(x ** (y ** 2)) == Expr("x^(y^2)")


def test_what_no_text_can_say_is_refused_instead_of_changed():
    """A "not" over a sum prints without its parentheses."""
    with pytest.raises(Error) as failure:
        Expr("!(a+b)").simplify()

    assert failure.value.identifier == "Expression_has_no_text"
    assert str(Expr("!(a+b)")) == "!(a+b)" and Expr("!(a&&b)").simplify() == Expr("!(a&&b)")

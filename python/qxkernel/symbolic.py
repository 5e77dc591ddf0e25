# SPDX-License-Identifier: LicenseRef-qxkernel
"""Symbolic expressions."""

from numbers import Number

from . import _core
from ._text import from_sympy_text, kernel_text, latex, to_sympy_text, variable_name

__all__ = ["Expr"]


def _text(value):
    if isinstance(value, Expr):
        return str(value)
    if isinstance(value, Number) and not isinstance(value, complex):
        return repr(float(value)) if isinstance(value, float) else str(value)
    return kernel_text(value)


class Expr:
    """A symbolic expression, immutable.

    >>> Expr("x*sin(a*x)").diff("x")
    Expr('sin(a*x)+x*a*cos(a*x)')

    Keeps the text as it was typed until an operation makes a new one. `^` and `**` both mean the power. Operators with expressions, numbers and texts make new
    expressions. Two expressions are equal if the canonical form of their difference
    is 0. Pickles as text.

    Fails: qxkernel.Error with "Syntax_error_in_expression" for text that does not read; see the methods.
    """

    __slots__ = ("_source",)

    def __init__(self, text):
        source = _text(text)
        _core.expr_check(source)
        object.__setattr__(self, "_source", source)

    def __setattr__(self, name, value):
        raise AttributeError("expressions do not change")

    @classmethod
    def _of(cls, text):
        self = object.__new__(cls)
        object.__setattr__(self, "_source", text)
        return self

    def __str__(self):
        return self._source

    def __repr__(self):
        return f"Expr({self._source!r})"

    def _repr_latex_(self):
        return f"$\\displaystyle {self.latex()}$"

    def __reduce__(self):
        return Expr, (self._source,)

    def latex(self):
        """LaTeX, without dollar signs."""
        return latex(self._source)

    def simplify(self, evaluate_functions=False):
        """The canonical form; with evaluate_functions also the values of functions of constants, such as sin(1).

        Fails: "Divide_by_zero", "Power_of_negative".
        """
        return Expr._of(_core.expr_simplify(self._source, evaluate_functions))

    def diff(self, variable, order=1):
        """The derivative by a variable, in canonical form.

        Fails: "Differentiation_rule_missing" with the name of the function.
        """
        if order < 0:
            raise ValueError("the order of a derivative must not be negative")
        text = self._source
        for _ in range(order):
            text = _core.expr_diff(text, variable_name(variable))
        return Expr._of(text)

    def solve(self, variable):
        """The solution of (self = 0) for a variable in which it is linear; None where it is not."""
        text = _core.expr_solve(self._source, variable_name(variable))
        return None if text is None else Expr._of(text)

    def substitute(self, values=None, /, **named):
        """Puts expressions, texts or numbers in the place of names, all at once, and simplifies.

        >>> Expr("x^2+y").substitute(x="a+1", y=2)
        Expr('(a+1)^2+2')

        A definition may use other names of the list; a circle of them fails with "Cyclic_dependencies".
        """
        values = {**(values or {}), **named}
        return Expr._of(_core.expr_substitute(self._source, {variable_name(k): _text(v) for k, v in values.items()}))

    @property
    def variables(self):
        """The names of the variables, sorted."""
        return tuple(_core.expr_variables(self._source))

    def __float__(self):
        value = _core.expr_number(self._source)
        if value is None:
            raise TypeError(f"{self._source} is no number")
        return value

    def to_sympy(self):
        """The same as a SymPy expression (needs SymPy)."""
        import sympy
        return sympy.sympify(to_sympy_text(self._source), locals={name: sympy.Symbol(name) for name in self.variables})

    @classmethod
    def from_sympy(cls, expression):
        """Of a SymPy expression, or of its text."""
        return cls(from_sympy_text(str(expression)))

    def _binary(self, operator, other, swapped=False):
        if not isinstance(other, (Expr, Number, str)):
            return NotImplemented
        left, right = (_text(other), self._source) if swapped else (self._source, _text(other))
        return Expr(f"({left}){operator}({right})").simplify()

    def __add__(self, other): return self._binary("+", other)
    def __radd__(self, other): return self._binary("+", other, True)
    def __sub__(self, other): return self._binary("-", other)
    def __rsub__(self, other): return self._binary("-", other, True)
    def __mul__(self, other): return self._binary("*", other)
    def __rmul__(self, other): return self._binary("*", other, True)
    def __truediv__(self, other): return self._binary("/", other)
    def __rtruediv__(self, other): return self._binary("/", other, True)
    def __pow__(self, other): return self._binary("^", other)
    def __rpow__(self, other): return self._binary("^", other, True)
    def __neg__(self): return Expr(f"-({self._source})").simplify()
    def __pos__(self): return self

    def __eq__(self, other):
        if isinstance(other, (Number, str)) and not isinstance(other, complex):
            other = Expr(other)
        if not isinstance(other, Expr):
            return NotImplemented
        if self._source == other._source:
            return True
        return _core.expr_simplify(f"({self._source})-({other._source})", False) == "0"

    def __hash__(self):
        return hash(self.simplify().variables)

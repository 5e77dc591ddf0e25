# SPDX-License-Identifier: LicenseRef-qxkernel
"""Text of formulas: tokens, the two spellings of the power, LaTeX, SymPy's names."""

import re

from .errors import Error

_TOKEN = re.compile(
    r"\s*(?:(?P<number>(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?)"
    r"|(?P<name>[^\W\d]\w*)"
    r"|(?P<string>'[^']*'|\"[^\"]*\")"
    r"|(?P<operator>\*\*|==|!=|<=|>=|&&|\|\||[-+*/^<>!(),\[\];])"
    r"|(?P<other>\S))")

_POWERS = ("^", "**")


def tokens(text):
    """[(kind, token)] of a formula; kind is number, name, string, operator or other. Linear, never fails."""
    return [(match.lastgroup, match.group(match.lastgroup)) for match in _TOKEN.finditer(text.rstrip())]


def variable_name(variable):
    """The name as a str; ValueError if it is none."""
    name = str(variable)
    if not name.isidentifier():
        raise ValueError(f"{name!r} is no name of a variable")
    return name


def kernel_text(text):
    """The formula with `**` written as `^`; strings stay as they are.

    `^` groups from the left, `**` from the right in Python: a chain that holds a `**` could mean either and is refused
    ("Ambiguous_power"); write the parentheses.
    """
    if not isinstance(text, str):
        raise TypeError(f"a formula must be a str, not {type(text).__name__}")
    if "**" not in text:
        return text
    parts = []
    open_powers = [[]]  # for each bracket level: the powers whose right operand is being read
    for kind, token in tokens(text):
        level = open_powers[-1]
        if token in _POWERS and kind == "operator":
            if level and "**" in level + [token]:
                raise Error((("python", 0, "Ambiguous_power",
                              (("Expression", text), ("Hint", "write a**(b**c) or (a**b)**c"))),))
            level.append(token)
            parts.append("^")
            continue
        parts.append(token)
        if kind != "operator":
            continue
        if token in ("(", "["):
            open_powers.append([])
        elif token in (")", "]"):
            if len(open_powers) > 1:
                open_powers.pop()
        elif not (token in "+-!" and len(parts) > 1 and parts[-2] == "^"):  # a sign inside the exponent ends nothing
            level.clear()
    return _joined(parts)


def _joined(parts):
    text = []
    for part in parts:
        if text and (text[-1][-1].isalnum() or text[-1][-1] in "_.") and (part[0].isalnum() or part[0] in "_."):
            text.append(" ")
        text.append(part)
    return "".join(text)


_SYMPY_ONLY = {"ceiling": "ceil", "Abs": "abs", "re": "real", "im": "imag", "Max": "max", "Min": "min"}


def to_sympy_text(text):
    """The formula as SymPy reads it."""
    back = {ours: theirs for theirs, ours in _SYMPY_ONLY.items()}
    parts = []
    for kind, token in tokens(text):
        if kind == "name":
            token = back.get(token, token)
        parts.append("**" if token == "^" else token)
    return _joined(parts)


def from_sympy_text(text):
    """A formula of what str() gives for a SymPy expression."""
    return kernel_text(_joined([_SYMPY_ONLY.get(token, token) if kind == "name" else token
                                for kind, token in tokens(text)]))


# --- LaTeX ------------------------------------------------------------------------------------------------------------

_GREEK = set("alpha beta gamma delta epsilon zeta eta theta iota kappa lambda mu nu xi pi rho sigma tau upsilon phi chi psi "
             "omega Gamma Delta Theta Lambda Xi Pi Sigma Upsilon Phi Psi Omega".split())
_NAMED = set("sin cos tan cot sec csc sinh cosh tanh coth exp log max min arg".split())
_COMPARISONS = {"==": "=", "!=": r"\neq", "<=": r"\leq", ">=": r"\geq", "<": "<", ">": ">", "&&": r"\land",
                "||": r"\lor"}
_STRENGTH = {"||": 1, "&&": 2, "==": 3, "!=": 3, "<=": 3, ">=": 3, "<": 3, ">": 3, "+": 4, "-": 4, "*": 5, "/": 5}
_SIGN, _POWER, _ATOM = 6, 7, 8
_DEEPEST = 100


class _TooDeep(Exception):
    pass


class _Latex:
    """Reads a formula that the kernel has printed and writes it as LaTeX; each part is (text, strength)."""

    def __init__(self, text):
        self._tokens = tokens(text)
        self._at = 0
        self._depth = 0

    def read(self):
        text, _ = self._binary(0)
        return text

    def _peek(self):
        return self._tokens[self._at][1] if self._at < len(self._tokens) else ""

    def _next(self):
        self._at += 1
        return self._tokens[self._at - 1]

    def _binary(self, weakest):
        self._depth += 1
        if self._depth > _DEEPEST:
            raise _TooDeep
        left, strength = self._sign()
        while _STRENGTH.get(self._peek(), -1) > weakest:
            operator = self._next()[1]
            own = _STRENGTH[operator]
            right, right_strength = self._binary(own)
            if operator == "/":
                left, strength = rf"\frac{{{left}}}{{{right}}}", _ATOM
                continue
            left = _guarded(left, strength, own)
            right = _guarded(right, right_strength, own + 1 if operator == "-" else own)
            if operator == "*":
                left = left + (r"\cdot " if right[:1].isdigit() else r"\,") + right
            else:
                left = f"{left} {_COMPARISONS.get(operator, operator)} {right}"
            strength = own
        self._depth -= 1
        return left, strength

    def _sign(self):
        if self._peek() in ("-", "+", "!"):
            sign = self._next()[1]
            text, strength = self._sign()
            return (r"\lnot " if sign == "!" else sign) + _guarded(text, strength, _SIGN), 4
        return self._power()

    def _power(self):
        base, strength = self._atom()
        while self._peek() == "^":
            self._next()
            if self._peek() in ("-", "+", "!"):
                sign = self._next()[1]
                exponent = sign + self._atom()[0]
            else:
                exponent = self._atom()[0]
            base, strength = f"{_guarded(base, strength, _ATOM)}^{{{exponent}}}", _POWER
        return base, strength

    def _atom(self):
        kind, token = self._next()
        if kind == "number":
            mantissa, _, exponent = token.lower().partition("e")
            return (rf"{mantissa} \cdot 10^{{{int(exponent)}}}", 5) if exponent else (token, _ATOM)
        if token == "(":
            inside = self._binary(0)
            self._next()
            return inside
        if kind == "name" and self._peek() == "(":
            return self._call(token)
        return (_name(token) if kind == "name" else rf"\text{{{_escaped(token)}}}"), _ATOM

    def _call(self, function):
        self._next()
        arguments = []
        while self._peek() not in (")", ""):
            arguments.append(self._binary(0)[0])
            if self._peek() == ",":
                self._next()
        self._next()
        inside = ", ".join(arguments)
        if function == "sqrt":
            return rf"\sqrt{{{inside}}}", _ATOM
        if function == "abs":
            return rf"\left|{inside}\right|", _ATOM
        head = rf"\{function}" if function in _NAMED else rf"\operatorname{{{_escaped(function)}}}"
        return rf"{head}\left({inside}\right)", _ATOM


def _guarded(text, strength, needed):
    return text if strength >= needed else rf"\left({text}\right)"


def _escaped(text):
    return re.sub(r"([_%&#$])", r"\\\1", text)


def _name(name):
    head, _, tail = name.partition("_")
    match = re.fullmatch(r"([^\W\d_]+)(\d*)", head)
    if match is None:
        return rf"\mathrm{{{_escaped(name)}}}"
    letters, digits = match.groups()
    if letters in _GREEK:
        letters = "\\" + letters
    elif len(letters) > 1:
        letters = rf"\mathrm{{{letters}}}"
    subscript = ",".join(part for part in (digits, _escaped(tail)) if part)
    return f"{letters}_{{{subscript}}}" if subscript else letters


def latex(text):
    """LaTeX of a printed formula; of one nested deeper than 100 levels its text."""
    try:
        return _Latex(text).read()
    except _TooDeep:
        return rf"\texttt{{{_escaped(text)}}}"

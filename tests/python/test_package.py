# SPDX-License-Identifier: LicenseRef-qxkernel
"""What the package says of itself: stubs, documentation."""

import ast
import inspect
import pydoc
from pathlib import Path

import pytest
import qxkernel

STUB = ast.parse((Path(qxkernel.__file__).parent / "__init__.pyi").read_text())
PUBLIC = [getattr(qxkernel, name) for name in qxkernel.__all__]


def parameters(function):
    """Names of a function's parameters as the stub gives them."""
    a = function.args
    return [p.arg for p in [*a.posonlyargs, *a.args, *([a.vararg] if a.vararg else []), *a.kwonlyargs,
                            *([a.kwarg] if a.kwarg else [])]]


def test_the_stub_names_what_the_package_offers():
    named = {node.name for node in STUB.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}

    assert named == set(qxkernel.__all__)


@pytest.mark.parametrize("node", [n for n in STUB.body if isinstance(n, (ast.ClassDef, ast.FunctionDef))],
                         ids=lambda n: n.name)
def test_signatures_in_the_stub_are_those_of_the_code(node):
    thing = getattr(qxkernel, node.name)
    members = [node] if isinstance(node, ast.FunctionDef) else [n for n in node.body if isinstance(n, ast.FunctionDef)]

    for member in members:
        if any("overload" in ast.dump(d) or "property" in ast.dump(d) for d in member.decorator_list):
            continue
        function = thing if member is node else getattr(thing, member.name)
        if not inspect.isfunction(inspect.unwrap(getattr(function, "__func__", function))):
            continue  # compiled
        expected = list(inspect.signature(getattr(function, "__func__", function)).parameters)
        assert parameters(member) == expected, member.name


@pytest.mark.parametrize("thing", PUBLIC, ids=lambda t: t.__name__)
def test_everything_public_is_documented(thing):
    assert inspect.getdoc(thing)
    for name, member in vars(thing).items() if inspect.isclass(thing) else ():
        if not name.startswith("_") and inspect.isfunction(member):
            assert member.__doc__ or name in ("transpose",), name


def test_pydoc_reads_it():
    text = pydoc.render_doc(qxkernel, renderer=pydoc.plaintext)

    assert "class Formulas" in text and "on_failure" in text

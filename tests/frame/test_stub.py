"""The stub names what the module binds, private names included, in the module's own words."""

from __future__ import annotations

import ast
import copy
from pathlib import Path

import pytest

from brindlefen.distribution import client_manifest

from .surface import CONSTANTS, DEFINITIONS, FUNCTIONS, METHOD_TEXTS, METHODS, TEXTS
from .windows_surface import (
    BOUNDARY_CONSTANTS,
    BOUNDARY_METHODS,
    BOUNDARY_PROPERTY,
    WINDOWS_METHODS,
)

assert client_manifest.__file__ is not None
STUB = Path(client_manifest.__file__).with_name("client_manifest.pyi")
TREE = ast.parse(STUB.read_text(encoding="utf-8"))


def is_for_checkers_only(node: ast.stmt) -> bool:
    return isinstance(node, ast.ClassDef) and any(
        isinstance(decorator, ast.Name) and decorator.id == "type_check_only"
        for decorator in node.decorator_list
    )


def names_of(statements: list[ast.stmt]) -> dict[str, ast.stmt]:
    """The names that the statements bind, in their order."""
    found: dict[str, ast.stmt] = {}
    for node in statements:
        if is_for_checkers_only(node):
            continue
        if isinstance(node, (ast.FunctionDef, ast.ClassDef)):
            found[node.name] = node
        elif isinstance(node, ast.AnnAssign) and isinstance(node.target, ast.Name):
            found[node.target.id] = node
        elif isinstance(node, ast.Assign) and isinstance(node.targets[0], ast.Name):
            found[node.targets[0].id] = node
    return found


def members_of(name: str) -> dict[str, ast.FunctionDef]:
    """The functions in the body of a class of the stub, in their order."""
    definition = MODULE_NAMES[name]
    assert isinstance(definition, ast.ClassDef)
    functions = [node for node in definition.body if isinstance(node, ast.FunctionDef)]
    return {node.name: node for node in functions}


def shape(function: ast.FunctionDef) -> str:
    """The parameters with their defaults, as a caller gives them, without the annotations."""
    arguments = copy.deepcopy(function.args)
    for argument in [*arguments.args, *arguments.kwonlyargs]:
        argument.annotation = None
    if arguments.args and arguments.args[0].arg in ("self", "cls"):
        del arguments.args[0]
    return f"({ast.unparse(arguments)})"


def text_of(node: ast.stmt) -> str:
    """The documentation text of a definition, without its breaks of lines."""
    assert isinstance(node, (ast.FunctionDef, ast.ClassDef))
    return " ".join((ast.get_docstring(node) or "").split())


MODULE_NAMES = names_of(TREE.body)
METHODS_OF = {
    "PinnedRoot": METHODS,
    "_WindowsHandleFileSystem": BOUNDARY_METHODS,
    "_WindowsPinnedRoot": WINDOWS_METHODS,
}
MEMBERS_OF = {name: members_of(name) for name in METHODS_OF}
every_method = pytest.mark.parametrize(
    ("kind", "name"), [(kind, name) for kind, methods in METHODS_OF.items() for name in methods]
)


def test_the_stub_has_every_name_in_its_order_and_no_other() -> None:
    assert list(MODULE_NAMES) == [*CONSTANTS, *DEFINITIONS]


@pytest.mark.parametrize("kind", METHODS_OF)
def test_the_stub_has_every_member_in_its_order(kind: str) -> None:
    members = [name for name in MEMBERS_OF[kind] if name != BOUNDARY_PROPERTY]
    assert members == list(METHODS_OF[kind])


def test_the_stub_has_the_constants_of_the_boundary_with_their_values() -> None:
    boundary = MODULE_NAMES["_WindowsHandleFileSystem"]
    assert isinstance(boundary, ast.ClassDef)
    constants = {
        ast.unparse(node.target): ast.literal_eval(node.value)
        for node in boundary.body
        if isinstance(node, ast.AnnAssign) and node.value is not None
    }
    assert list(constants.items()) == list(BOUNDARY_CONSTANTS.items())


@pytest.mark.parametrize("name", FUNCTIONS)
def test_the_stub_gives_a_function_its_parameters(name: str) -> None:
    node = MODULE_NAMES[name]
    assert isinstance(node, ast.FunctionDef)
    assert shape(node) == FUNCTIONS[name]


@every_method
def test_the_stub_gives_a_method_its_parameters(kind: str, name: str) -> None:
    assert shape(MEMBERS_OF[kind][name]) == METHODS_OF[kind][name]


@pytest.mark.parametrize("name", TEXTS)
def test_the_stub_begins_with_the_text_of_the_module(name: str) -> None:
    assert text_of(MODULE_NAMES[name]).startswith(" ".join(TEXTS[name].split()))


@pytest.mark.parametrize("name", METHOD_TEXTS)
def test_the_stub_begins_with_the_text_of_the_method(name: str) -> None:
    assert text_of(MEMBERS_OF["PinnedRoot"][name]).startswith(METHOD_TEXTS[name])


@pytest.mark.parametrize("name", FUNCTIONS)
def test_the_stub_tells_of_every_function(name: str) -> None:
    assert text_of(MODULE_NAMES[name]).endswith(".")


@every_method
def test_the_stub_tells_of_every_method(kind: str, name: str) -> None:
    assert text_of(MEMBERS_OF[kind][name]).endswith((".", ")"))

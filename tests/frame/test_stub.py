"""The stub names what the module binds, private names included, in the module's own words."""

from __future__ import annotations

import ast
from pathlib import Path

import pytest

from brindlefen.distribution import client_manifest

from .surface import CONSTANTS, DEFINITIONS, METHODS, TEXTS

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


MODULE_NAMES = names_of(TREE.body)


def test_the_stub_has_every_name_and_no_other() -> None:
    assert set(MODULE_NAMES) == {*CONSTANTS, *DEFINITIONS}


def test_the_stub_has_every_member_in_its_order() -> None:
    pinned_root = MODULE_NAMES["PinnedRoot"]
    assert isinstance(pinned_root, ast.ClassDef)
    members = [node.name for node in pinned_root.body if isinstance(node, ast.FunctionDef)]
    assert members == list(METHODS)


@pytest.mark.parametrize("name", TEXTS)
def test_the_stub_begins_with_the_text_of_the_module(name: str) -> None:
    node = MODULE_NAMES[name]
    assert isinstance(node, (ast.FunctionDef, ast.ClassDef))
    text = " ".join((ast.get_docstring(node) or "").split())
    assert text.startswith(" ".join(TEXTS[name].split()))

"""Every public operation stands in the reference: in the table of calls, and in an example."""

from __future__ import annotations

import ast
import re
from pathlib import Path

import pytest

from brindlefen.distribution import client_manifest

REPOSITORY = Path(__file__).resolve().parents[2]
PAGES = [REPOSITORY / "docs/reference.md", *sorted(REPOSITORY.glob("docs/reference/*.md"))]
FENCE = re.compile(r"^```python\n(.*?)^```$", re.MULTILINE | re.DOTALL)
INDEX = PAGES[0].read_text("utf-8")

# The operations are functions of a kind of their own; what the module imports is of other kinds.
OPERATION = type(client_manifest.parse_strict_json_object_bytes)


def public_functions() -> list[str]:
    """The module's own functions, by the names that callers use."""
    return [
        name
        for name, value in vars(client_manifest).items()
        if type(value) is OPERATION and not name.startswith("_")
    ]


def public_methods() -> list[str]:
    """What callers can ask of a pinned root."""
    return [name for name in vars(client_manifest.PinnedRoot) if not name.startswith("_")]


def names_called(page: Path) -> set[str]:
    """The attributes that the examples of one page call, such as `read` in `file.read()`."""
    calls = (
        node.func
        for found in FENCE.finditer(page.read_text("utf-8"))
        for node in ast.walk(ast.parse(found[1]))
        if isinstance(node, ast.Call)
    )
    return {called.attr for called in calls if isinstance(called, ast.Attribute)}


CALLED = set().union(*map(names_called, PAGES))
OPERATIONS = sorted({*public_functions(), *public_methods()})


@pytest.mark.parametrize("name", OPERATIONS)
def test_an_operation_has_an_example(name: str) -> None:
    assert name in CALLED


@pytest.mark.parametrize("name", OPERATIONS)
def test_an_operation_stands_in_the_table_of_calls(name: str) -> None:
    table = INDEX[INDEX.index("## Which call for what") : INDEX.index("## Conventions")]
    assert f"`{name}`" in table


def test_the_operations_are_found() -> None:
    assert {"load_accepted_distribution_set", "hash_regular_file"} <= set(OPERATIONS)
    assert "dataclass" not in OPERATIONS

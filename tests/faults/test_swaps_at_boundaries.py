"""Whatever changes between two calls, an operation tells the truth about the pinned tree or fails.

Each change is made before each call in turn, and after the last: what lies between two calls is
one boundary. The answers are the whole right result, or a documented failure of the one list;
nothing from outside the root is ever among them.
"""

from __future__ import annotations

import hashlib
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from faults.injection import armed
from faults.layout import CONTENT, LABEL, LEAF, make_tree, pinned
from faults.swaps import GROWTH, PUT_BACK, REPLACEMENT, SWAPS, Swap, Target, answers
from faults.trace import require_single_closes

# Every whole content that the leaf has at one time or another.
CONTENTS = (CONTENT, REPLACEMENT, CONTENT + GROWTH)


def _read(reader: Any) -> bool:
    return reader.read_regular_file(LEAF, label=LABEL) in CONTENTS


def _hash(reader: Any) -> bool:
    identity = reader.hash_regular_file(LEAF, label=LABEL)
    found = (identity.size_bytes, identity.sha256)
    return found in [(len(content), hashlib.sha256(content).hexdigest()) for content in CONTENTS]


def _stat(reader: Any) -> bool:
    return reader.stat_regular_file(LEAF, label=LABEL).st_size in map(len, CONTENTS)


# Each says whether what it was given is a right result.
OPERATIONS: dict[str, Callable[[Any], bool]] = {"read": _read, "hash": _hash, "stat": _stat}


def _boundaries(name: str, tmp_path: Path) -> int:
    with pinned(make_tree(tmp_path / "clean")) as reader, armed() as shim:
        assert OPERATIONS[name](reader)
    return len(shim.calls)


def _answer(name: str, target: Target, swap: Swap, boundary: int, last: int, back: int) -> str:
    """The answer to a change at one boundary, which is undone at another if that is not 0."""
    make_tree(target.root)
    target.prepare()
    change = swap.change(target)
    with pinned(target.root) as reader, armed() as shim:
        if boundary <= last:
            shim.before("any", boundary, change)
        else:
            shim.after("any", last, change)
        if back:
            shim.before_if_made("any", back, change)
        try:
            answer = "result" if OPERATIONS[name](reader) else "a wrong result"
        except Exception as error:
            key = type(error).__name__, str(error)
            answer = answers(LABEL, LEAF, name).get(key, repr(error))
    require_single_closes(shim.calls)
    return answer


def _expected(name: str, swap: Swap) -> tuple[frozenset[str], frozenset[str]]:
    """The answers that must be drawn somewhere, and those that may be."""
    drawn = swap.drawn | {"result"}
    if name == "stat":
        drawn -= {"consumed"}
    if name != "hash":
        drawn -= {"reopened"}
    if name == "read" and "no parent" in drawn:
        # A read says the same of a missing parent and of a missing leaf.
        drawn = drawn - {"no parent"} | {"missing"}
    return drawn, drawn | swap.possible


@pytest.mark.parametrize("swap_name", SWAPS)
@pytest.mark.parametrize("name", OPERATIONS)
def test_a_change_at_any_boundary_draws_a_right_result_or_its_own_failures(
    name: str, swap_name: str, tmp_path: Path
) -> None:
    swap = SWAPS[swap_name]
    drawn, possible = _expected(name, swap)
    last = _boundaries(name, tmp_path)
    told = [
        _answer(name, Target(tmp_path / f"{boundary}", LEAF), swap, boundary, last, back=0)
        for boundary in range(1, last + 2)
    ]
    assert drawn <= set(told) <= possible, told
    assert told[-1] == "result"


@pytest.mark.parametrize("width", [1, 2, 5])
@pytest.mark.parametrize("swap_name", [name for name in SWAPS if SWAPS[name].restorable])
@pytest.mark.parametrize("name", OPERATIONS)
def test_a_change_that_only_a_few_calls_see_draws_no_more(
    name: str, swap_name: str, width: int, tmp_path: Path
) -> None:
    swap = SWAPS[swap_name]
    _, possible = _expected(name, swap)
    last = _boundaries(name, tmp_path)
    told = {
        _answer(
            name, Target(tmp_path / f"{boundary}", LEAF), swap, boundary, last, boundary + width
        )
        for boundary in range(1, last + 1)
    }
    assert told & swap.drawn, told
    assert told <= possible | PUT_BACK, told

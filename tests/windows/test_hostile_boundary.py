"""A boundary is foreign code: whatever it raises or answers, nothing crashes."""

from __future__ import annotations

from functools import partial
from typing import Any

import pytest

from windows.frame_steps import CASES
from windows.hostile import ODD, Ending, Own, Raising, RaisingPair, Root, hook_at, pinned, survive
from windows.substitute import SubstituteBoundary
from windows.volume import Volume
from windows.walked import handles_kept


@pytest.mark.parametrize("name", CASES)
def test_an_odd_answer_at_any_step_crashes_nothing(hostile: Volume, name: str) -> None:
    for position in range(len(CASES[name].steps)):
        for answer in ODD:
            boundary = SubstituteBoundary(hostile)
            root = pinned(boundary)
            hook_at(boundary, name, position, returns=answer)
            survive(partial(CASES[name].run, root, root.sub))
            assert boundary.unspent_hooks == []


@pytest.mark.parametrize(
    "operation, nth",
    [
        ("split_root_path", 1),
        ("open_volume", 1),
        ("is_reparse", 1),
        ("kind", 1),
        ("open_directory", 1),
        ("is_reparse", 2),
        ("kind", 2),
        ("close", 1),
        ("identity", 1),
    ],
)
def test_an_odd_answer_while_pinning_crashes_nothing(
    hostile: Volume, operation: str, nth: int
) -> None:
    for answer in ODD:
        boundary = SubstituteBoundary(hostile)
        boundary.hook(operation, nth, returns=answer)
        survive(partial(Root, "C:\\data", _boundary=boundary))
        assert boundary.unspent_hooks == []


ODD_SPLITS: list[Any] = [
    None,
    "ab",
    (),
    ("\\\\?\\C:\\",),
    ("\\\\?\\C:\\", ("data",), 3),
    ("\\\\?\\C:\\", None),
    ("\\\\?\\C:\\", 5),
    ("\\\\?\\C:\\", (None,)),
    ("\\\\?\\C:\\", "data"),
    (None, ("data",)),
    (Raising(), Raising()),
    ("\\\\?\\C:\\", RaisingPair(("data",))),
    ["\\\\?\\C:\\", ["data"]],
]


def test_an_odd_split_crashes_nothing(hostile: Volume) -> None:
    for answer in ODD_SPLITS:
        boundary = SubstituteBoundary(hostile)
        boundary.hook("split_root_path", 1, returns=answer)
        survive(lambda: Root("C:\\data", _boundary=boundary).assert_root_unchanged())
        assert boundary.unspent_hooks == []


@pytest.mark.parametrize("kind", [Own, Ending, KeyboardInterrupt, SystemExit, MemoryError])
@pytest.mark.parametrize("name", CASES)
def test_what_is_raised_at_any_step_comes_out_as_it_is(
    hostile: Volume, name: str, kind: type[BaseException]
) -> None:
    for position, step in enumerate(CASES[name].steps):
        if step.rules is None:
            continue
        boundary = SubstituteBoundary(hostile)
        root, error = pinned(boundary), kind("mine")
        hook_at(boundary, name, position, raises=error)
        with pytest.raises(kind) as caught:
            CASES[name].run(root, root.sub)
        assert caught.value is error


# The calls that run under a promise to close on every exit, whatever it is that ends them.
GUARDED = [
    ("proof", "identity", 1),
    ("replaceable leaf", "is_reparse", 1),
    ("replaceable leaf", "kind", 1),
    ("matching file", "open_regular", 1),
    ("matching file", "kind", 2),
    ("matching file", "stat", 1),
    ("matching parent", "identity", 1),
    ("matching parent", "identity", 2),
    ("matching root", "identity", 2),
    ("matching directory", "open_directory", 2),
    ("matching directory", "kind", 2),
    ("matching directory", "identity", 2),
    ("missing leaf", "open_entry", 1),
]


@pytest.mark.parametrize("name, operation, nth", GUARDED)
def test_what_is_guarded_is_closed_whatever_is_raised(
    planted: Volume, boundary: SubstituteBoundary, name: str, operation: str, nth: int
) -> None:
    root, error = pinned(boundary), Ending("mine")
    boundary.hook(operation, nth, raises=error)
    with handles_kept(planted), pytest.raises(Ending) as caught:
        CASES[name].run(root, root.sub)
    assert caught.value is error
    for handle in (root.deep, root.sub):
        boundary.close(handle)
    root.close()


@pytest.mark.parametrize("boundary", [object(), 7, "text", type, Raising, [1]])
def test_what_is_no_boundary_is_told_by_the_host(boundary: Any) -> None:
    with pytest.raises((AttributeError, TypeError)):
        Root("C:\\data", _boundary=boundary)


def test_a_boundary_whose_truth_raises_lets_it_out() -> None:
    with pytest.raises(Own):
        Root("C:\\data", _boundary=Raising())

"""What was opened is judged: a link is refused as a link before its kind is asked."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import Volume
from windows.walked import NO_DIRECTORY, REPARSE_DIRECTORY

Judge = Callable[[Any, int], Any]


def as_directory(root: Any, handle: int) -> Any:
    return root._require_safe_directory(handle, "shown/path")


def as_file(root: Any, handle: int) -> Any:
    return root._require_safe_regular(handle, "shown/path", "what")


def entry(pin: Pin, boundary: SubstituteBoundary, name: str) -> tuple[Any, int]:
    """A root, and a handle on one of its entries, whatever that is."""
    root = pin()
    handle = boundary.open_entry(root._descriptor, name, delete=False)
    boundary.calls.clear()
    return root, handle


@pytest.mark.parametrize("judge, name", [(as_directory, "sub"), (as_file, "file")])
def test_what_is_safe_passes(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, judge: Judge, name: str
) -> None:
    root, handle = entry(pin, boundary, name)
    assert judge(root, handle) is None
    assert boundary.calls == [("is_reparse", (handle,), {}), ("kind", (handle,), {})]
    assert planted.is_open(handle)
    boundary.close(handle)


@pytest.mark.parametrize(
    "judge, name, text",
    [
        (as_directory, "file", f"{NO_DIRECTORY}: shown/path"),
        (as_directory, "link", f"{REPARSE_DIRECTORY}: shown/path"),
        (as_directory, "junction", f"{REPARSE_DIRECTORY}: shown/path"),
        (as_file, "sub", "what must be a regular file: shown/path"),
        (as_file, "link", "what is an unsafe reparse point: shown/path"),
        (as_file, "junction", "what is an unsafe reparse point: shown/path"),
    ],
)
def test_what_is_not_safe_is_refused_and_stays_open(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, judge: Judge, name: str, text: str
) -> None:
    root, handle = entry(pin, boundary, name)
    with fails_with(ValueError, text):
        judge(root, handle)
    asked_for_kind = "kind" in boundary.names_called()
    assert asked_for_kind == ("reparse" not in text)
    assert planted.is_open(handle)
    boundary.close(handle)


@pytest.mark.parametrize("judge, good", [(as_directory, "directory"), (as_file, "regular")])
@pytest.mark.parametrize("answer", [1, "no", [0], 2.5, object()])
def test_any_true_answer_means_a_link(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, judge: Judge, good: str, answer: Any
) -> None:
    root = pin()
    boundary.hook("is_reparse", 1, returns=answer)
    boundary.hook("kind", 1, returns=good)
    with pytest.raises(ValueError, match="unsafe reparse point"):
        judge(root, root._descriptor)
    assert boundary.unspent_hooks == ["kind"]


@pytest.mark.parametrize("judge, good", [(as_directory, "directory"), (as_file, "regular")])
@pytest.mark.parametrize("answer", [0, None, "", [], 0.0])
def test_any_false_answer_means_no_link(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, judge: Judge, good: str, answer: Any
) -> None:
    root = pin()
    boundary.hook("is_reparse", 1, returns=answer)
    boundary.hook("kind", 1, returns=good)
    judge(root, root._descriptor)


@pytest.mark.parametrize("judge", [as_directory, as_file])
@pytest.mark.parametrize(
    "answer", [None, 16, b"directory", "Directory", "REGULAR", "", ["regular"]]
)
def test_any_other_kind_is_the_wrong_one(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, judge: Judge, answer: Any
) -> None:
    root = pin()
    boundary.hook("is_reparse", 1, returns=False)
    boundary.hook("kind", 1, returns=answer)
    with pytest.raises(ValueError, match="must be a (directory|regular file): shown/path$"):
        judge(root, root._descriptor)


@pytest.mark.parametrize("judge", [as_directory, as_file])
@pytest.mark.parametrize("operation", ["is_reparse", "kind"])
@pytest.mark.parametrize("kind", [OSError, FileNotFoundError, KeyError, KeyboardInterrupt])
def test_a_failing_look_passes_as_it_is(
    boundary: SubstituteBoundary,
    pin: Pin,
    judge: Judge,
    operation: str,
    kind: type[BaseException],
) -> None:
    root, error = pin(), kind("mine")
    boundary.hook(operation, 1, raises=error)
    with pytest.raises(kind) as caught:
        judge(root, root._descriptor)
    assert caught.value is error

"""A failure of any call to the boundary leaves no handle, and comes out in its own words."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from windows.conftest import Pin
from windows.frame_steps import CASES, Chain, Step, absolute
from windows.substitute import SubstituteBoundary
from windows.volume import Volume
from windows.walked import handles_kept


class Own(Exception):
    """A failure of no class that anything here looks for."""


FAILURES: list[Exception] = [
    FileNotFoundError("injected"),
    FileExistsError("injected"),
    OSError(5, "injected"),
    ValueError("injected"),
    RuntimeError("injected"),
    Own("injected"),
]

STEPS = [
    (name, position)
    for name, case in CASES.items()
    for position, step in enumerate(case.steps)
    if step.rules is not None
]


@pytest.fixture
def root(planted: Volume, boundary: SubstituteBoundary, pin: Pin) -> Iterator[Any]:
    """A root that holds a handle on `sub` and one on `sub/deep` beside its own."""
    root = pin()
    root.sub = boundary.open_directory(root._descriptor, "sub", create=False)
    root.deep = boundary.open_directory(root.sub, "deep", create=False)
    boundary.calls.clear()
    yield root
    boundary.close(root.deep)
    boundary.close(root.sub)


def occurrence(steps: list[Step], position: int) -> int:
    """Which of the calls of its name the step at `position` is, counted from 1."""
    return sum(step.name == steps[position].name for step in steps[: position + 1])


def expected_of(step: Step, error: Exception) -> Chain:
    chain: Chain = [(type(error), None)]
    for rule in step.rules or ():
        chain = rule(chain)
    return chain


def assert_is(error: BaseException | None, chain: Chain, injected: Exception) -> None:
    """Requires exactly the classes and texts of `chain`, and the injected failure at its end."""
    for kind, text in chain:
        assert error is not None
        if text is None:
            assert error is injected
            return
        assert (type(error), str(error)) == (kind, text)
        assert error.__context__ is error.__cause__
        assert error.__suppress_context__
        error = error.__cause__
    assert error is None


@pytest.mark.parametrize("name", CASES)
def test_an_operation_makes_exactly_its_calls(
    planted: Volume, boundary: SubstituteBoundary, root: Any, name: str
) -> None:
    with handles_kept(planted):
        CASES[name].run(root, root.sub)
    assert boundary.names_called() == [step.name for step in CASES[name].steps]


@pytest.mark.parametrize("name, position", STEPS)
def test_a_failing_call_is_told_and_leaves_nothing_open(
    planted: Volume, boundary: SubstituteBoundary, root: Any, name: str, position: int
) -> None:
    case, before = CASES[name], planted.tree()
    step = case.steps[position]
    for error in FAILURES:
        boundary.hook(step.name, occurrence(case.steps, position), raises=error)
        caught: Exception | None = None
        with handles_kept(planted):
            try:
                case.run(root, root.sub)
            except Exception as failure:
                caught = failure
        assert_is(caught, expected_of(step, error), error)
        assert boundary.unspent_hooks == []
        error.__cause__ = error.__context__ = error.__traceback__ = None
    assert planted.tree() == before


PINNING = [Step("split_root_path"), *absolute(), Step("identity")]


@pytest.mark.parametrize(
    "position", [place for place, step in enumerate(PINNING) if step.rules is not None]
)
@pytest.mark.parametrize("create", [False, True])
def test_a_failure_while_pinning_passes_and_leaves_nothing_open(
    planted: Volume, boundary: SubstituteBoundary, position: int, create: bool
) -> None:
    root_class: Any = client_manifest._WindowsPinnedRoot
    for error in FAILURES:
        boundary.hook(PINNING[position].name, occurrence(PINNING, position), raises=error)
        with handles_kept(planted), pytest.raises(type(error)) as caught:
            root_class("C:\\data", create=create, _boundary=boundary)
        assert caught.value is error
        assert boundary.unspent_hooks == []


def test_a_failing_close_after_a_failure_is_told_with_it(
    planted: Volume, boundary: SubstituteBoundary, root: Any
) -> None:
    first, second = OSError(5, "first"), OSError(9, "second")
    boundary.hook("stat", 1, raises=first)
    boundary.hook("close", 2, raises=second)
    with handles_kept(planted), pytest.raises(OSError) as caught:
        root._assert_path_matches_regular_file("sub/file", label="what", expected_stat=None)
    assert caught.value is second
    assert second.__context__ is first

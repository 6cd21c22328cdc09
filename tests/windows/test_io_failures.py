"""Every call to the boundary that fails ends its operation in the stated words, with no handle."""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import assert_chained
from windows.planted import TEMPORARY, files
from windows.step_tables import OPERATIONS, STAGED, Operation
from windows.steps import Step, Told, passes
from windows.substitute import SubstituteBoundary
from windows.volume import Volume


class Own(Exception):
    """A failure of nobody's knowing."""


INJECTED: tuple[type[Exception], ...] = (OSError, FileNotFoundError, ValueError, Own)


@contextmanager
def scene(operation: Operation) -> Iterator[tuple[Volume, SubstituteBoundary, Any]]:
    """A volume of its own, planted as the operation needs it, that has to end unheld."""
    volume = Volume()
    try:
        volume.plant({f"data/{path}": found for path, found in operation.before.items()})
        boundary = SubstituteBoundary(volume)
        root = client_manifest._WindowsPinnedRoot("C:\\data", _boundary=boundary)
        pinned = volume.open_handles
        boundary.calls.clear()
        yield volume, boundary, root
        assert volume.open_handles == pinned
        root.close()
        assert not volume.open_handles and not volume.misuse
    finally:
        volume.dispose()


def nth(steps: list[Step], number: int) -> int:
    """Which call of its own name the step is."""
    return [step.name for step in steps[: number + 1]].count(steps[number].name)


def fail(operation: Operation, number: int, error: Exception) -> None:
    """Runs the operation with this step failing, and holds what comes out against its rule."""
    step = operation.steps[number]
    assert step.rule is not None
    told = step.rule(error)
    with scene(operation) as (volume, boundary, root):
        boundary.hook(step.name, nth(operation.steps, number), raises=error)
        caught: Exception | None = None
        try:
            operation.run(root)
        except Exception as raised:
            caught = raised
        assert boundary.unspent_hooks == []
        judge(caught, told, error)
        if operation.stands is not None and caught is not None:
            left = {named(path): found for path, found in files(volume).items()}
            assert left == operation.stands(number)


def judge(caught: Exception | None, told: Told | None, error: Exception) -> None:
    if told is None:
        assert caught is error
        assert error.__cause__ is None and error.__suppress_context__ is False
        return
    if told.kind is None:
        assert caught is None, repr(caught)
        return
    assert type(caught) is told.kind, repr(caught)
    assert str(caught) == told.text
    assert_chained(caught, told.cause)
    chain: list[BaseException | None] = [caught]
    while chain[-1] is not None:
        chain.append(chain[-1].__cause__)
    assert error in chain


CASES = [
    (name, number, operation.steps[number].name)
    for name, operation in OPERATIONS.items()
    for number in range(len(operation.steps))
    if operation.steps[number].rule is not None
]


@pytest.mark.parametrize(
    ("name", "number"),
    [case[:2] for case in CASES],
    ids=[f"{name}-{number}-{step}" for name, number, step in CASES],
)
def test_a_failing_step_is_told_as_stated_and_leaves_no_handle(name: str, number: int) -> None:
    operation = OPERATIONS[name]
    plain_pass = operation.steps[number].rule is passes
    for kind in (FileNotFoundError, Own) if plain_pass else INJECTED:
        fail(operation, number, kind("injected"))


@pytest.mark.parametrize("name", OPERATIONS)
def test_an_operation_makes_these_calls_and_no_others(name: str) -> None:
    operation = OPERATIONS[name]
    with scene(operation) as (_, boundary, root):
        operation.run(root)
    made = [(call.name, plain(call.args), call.kwargs) for call in boundary.calls[:-1]]
    stated = [(step.name, step.values, dict(step.keywords)) for step in operation.steps]
    assert made == stated


def plain(arguments: tuple[Any, ...]) -> tuple[Any, ...]:
    """The arguments without the handles."""
    return tuple(named(value) for value in arguments if not isinstance(value, int))


def named(path: str) -> str:
    """The path as it is, or one word for a temporary name, which differs each time."""
    return STAGED if TEMPORARY.fullmatch(path.rsplit("/", 1)[-1]) else path

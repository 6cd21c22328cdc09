"""Proves the steps of a move: both roots entered, one operation, two proofs, both roots left."""

from __future__ import annotations

from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.recording import NO_FAILURE, Records, Step, stand_in_roots
from support.failures import fails_with

FROM, TO, SOURCE, DESTINATION = object(), object(), object(), object()


@pytest.fixture
def records(monkeypatch: pytest.MonkeyPatch) -> Records:
    return stand_in_roots(monkeypatch)


def move() -> Any:
    function: Any = client_manifest.move_contained_regular_file
    return function(FROM, SOURCE, TO, DESTINATION)


def test_a_move_takes_exactly_these_steps(records: Records) -> None:
    records.results[0, "move_regular_file_to"] = "dropped"
    assert move() is None
    assert records.steps == [
        Step(0, "pin", (FROM,), {}),
        Step(0, "enter"),
        Step(1, "pin", (TO,), {"create": True}),
        Step(1, "enter"),
        Step(0, "move_regular_file_to", (SOURCE, records.roots[1], DESTINATION), {}),
        Step(0, "prove"),
        Step(1, "prove"),
        Step(1, "exit", NO_FAILURE),
        Step(0, "exit", NO_FAILURE),
    ]


@pytest.mark.parametrize("failure", [OSError(18, "another device"), KeyboardInterrupt("no")])
@pytest.mark.parametrize("step", [(0, "move_regular_file_to"), (0, "prove"), (1, "prove")])
def test_a_failing_step_leaves_both_roots(
    step: tuple[int, str], failure: BaseException, records: Records
) -> None:
    records.failing[step] = failure
    with pytest.raises(type(failure)) as raised:
        move()
    assert raised.value is failure
    assert records.order()[-3:] == [step, (1, "exit"), (0, "exit")]
    assert [exit.args[1] for exit in records.exits()] == [failure, failure]


@pytest.mark.parametrize(
    ("step", "expected"),
    [
        ((0, "pin"), [(0, "pin")]),
        ((1, "pin"), [(0, "pin"), (0, "enter"), (1, "pin"), (0, "exit")]),
        ((1, "enter"), [(0, "pin"), (0, "enter"), (1, "pin"), (1, "enter"), (0, "exit")]),
    ],
    ids=str,
)
def test_a_root_that_cannot_be_had_ends_the_move(
    step: tuple[int, str], expected: list[tuple[int, str]], records: Records
) -> None:
    records.failing[step] = ValueError("no root")
    with fails_with(ValueError, "no root"):
        move()
    assert records.order() == expected


def test_the_source_is_left_though_leaving_the_destination_fails(records: Records) -> None:
    first = records.failing[1, "exit"] = LookupError("destination")
    last = records.failing[0, "exit"] = ValueError("source")
    with pytest.raises(ValueError) as raised:
        move()
    assert raised.value is last and last.__context__ is first
    assert records.order()[-2:] == [(1, "exit"), (0, "exit")]


def test_neither_path_is_judged_nor_a_token_drawn_here(
    records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    for name in ("validate_manifest_relative_path", "secrets"):
        monkeypatch.delattr(client_manifest, name)
    move()
    assert records.names(1) == ["pin", "enter", "prove", "exit"]

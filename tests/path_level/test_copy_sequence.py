"""Proves the steps of a copy: what is opened, written, published, proved and removed, in order."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.recording import NO_FAILURE, Records, Step, stand_in_roots
from path_level.stand_in_files import StandInFile
from path_level.transfers import TOKEN, fix_token
from support.failures import fails_with
from support.naming import named

FROM, TO = object(), object()
STAGED = f"b/copied.{TOKEN}.tmp"
CHUNK = 1_048_576

OPENING = [
    Step(0, "pin", (FROM,), {}),
    Step(0, "enter"),
    Step(1, "pin", (TO,), {"create": True}),
    Step(1, "enter"),
    Step(0, "open_regular_file_for_read", ("a",), {"label": "contained copy source"}),
    Step(1, "open_regular_file_for_update", (STAGED,), {"create": True}),
]
STREAMING = [
    Step(-1, "to.seek", (0,)),
    Step(-1, "to.truncate"),
    Step(-1, "from.read", (CHUNK,)),
    Step(-1, "to.write", (b"one",)),
    Step(-1, "from.read", (CHUNK,)),
    Step(-1, "to.write", (b"two",)),
    Step(-1, "from.read", (CHUNK,)),
    Step(-1, "to.flush"),
    Step(-1, "to.fileno"),
]
CLOSING = [Step(-1, "to.close"), Step(-1, "from.close")]
PUBLISHING = [
    Step(1, "replace_regular_file", (STAGED, "b/copied")),
    Step(0, "prove"),
    Step(1, "prove"),
]
REMOVING = Step(1, "remove_regular_file", (STAGED,), {"missing_ok": True})
LEAVING = [Step(1, "exit", NO_FAILURE), Step(0, "exit", NO_FAILURE)]

# The steps in which a copy can fail between the opens and the end, with the closes of each.
GUARDED = [
    (0, "open_regular_file_for_read"),
    (1, "open_regular_file_for_update"),
    *[(step.root, step.name) for step in STREAMING],
    (-1, "to.close"),
    (-1, "from.close"),
    *[(step.root, step.name) for step in PUBLISHING],
]


@pytest.fixture
def records(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> Iterator[Records]:
    records = stand_in_roots(monkeypatch)
    source = StandInFile(records, "from", tmp_path / "from", [b"one", b"two"])
    target = StandInFile(records, "to", tmp_path / "to", [])
    records.results[0, "open_regular_file_for_read"] = source
    records.results[1, "open_regular_file_for_update"] = target
    fix_token(monkeypatch, TOKEN)
    yield records
    # A copy that ends before it has opened a file leaves the stand-in as it was.
    source.release()
    target.release()


def copy() -> None:
    roots: Any = (FROM, TO)
    client_manifest.copy_contained_regular_file(roots[0], "a", roots[1], "b/copied")


def test_a_copy_takes_exactly_these_steps(records: Records) -> None:
    copy()
    assert records.steps == [
        *OPENING,
        *STREAMING,
        *CLOSING,
        *PUBLISHING,
        REMOVING,
        *LEAVING,
    ]
    assert records.results[1, "open_regular_file_for_update"].written == b"onetwo"


def test_an_empty_source_is_read_once_and_nothing_is_written(records: Records) -> None:
    records.results[0, "open_regular_file_for_read"]._parts.clear()
    copy()
    streaming = [step.name for step in records.steps if step.root == -1]
    assert streaming == [
        "to.seek",
        "to.truncate",
        "from.read",
        "to.flush",
        "to.fileno",
        "to.close",
        "from.close",
    ]


def expected_names(failing: tuple[int, str]) -> list[tuple[int, str]]:
    """The steps of a copy that fails in this one, the first of its name."""
    whole = [*OPENING, *STREAMING, *CLOSING, *PUBLISHING]
    order = [(step.root, step.name) for step in whole]
    steps = order[: order.index(failing) + 1]
    for opened, close in (
        ((1, "open_regular_file_for_update"), (-1, "to.close")),
        ((0, "open_regular_file_for_read"), (-1, "from.close")),
    ):
        if opened in steps[:-1] and close not in steps:
            steps.append(close)
    return [*steps, (1, "remove_regular_file"), (1, "exit"), (0, "exit")]


@pytest.mark.parametrize("failure", [OSError(28, "full"), KeyboardInterrupt("no")], ids=named)
@pytest.mark.parametrize("step", GUARDED, ids=str)
def test_a_failing_step_closes_removes_and_leaves(
    step: tuple[int, str], failure: BaseException, records: Records
) -> None:
    records.failing[step] = failure
    with pytest.raises(type(failure)) as raised:
        copy()
    assert raised.value is failure
    assert records.order() == expected_names(step)
    assert records.steps[-3] == REMOVING
    assert [exit.args[1] for exit in records.exits()] == [failure, failure]


@pytest.mark.parametrize("step", GUARDED, ids=str)
def test_a_failing_removal_replaces_the_failure_of_a_step(
    step: tuple[int, str], records: Records
) -> None:
    first = records.failing[step] = LookupError("first")
    last = records.failing[1, "remove_regular_file"] = ValueError("not removed")
    with pytest.raises(ValueError) as raised:
        copy()
    assert raised.value is last
    assert raised.value.__context__ is first
    assert [exit.args[1] for exit in records.exits()] == [last, last]


def test_a_failing_removal_after_a_success_is_told(records: Records) -> None:
    last = records.failing[1, "remove_regular_file"] = ValueError("not removed")
    with pytest.raises(ValueError) as raised:
        copy()
    assert raised.value is last and last.__context__ is None
    assert records.order()[-4:] == [
        (1, "prove"),
        (1, "remove_regular_file"),
        (1, "exit"),
        (0, "exit"),
    ]


def test_whatever_the_removal_gives_is_ignored(records: Records) -> None:
    records.results[1, "remove_regular_file"] = True
    assert copy() is None  # type: ignore[func-returns-value]


@pytest.mark.parametrize(
    ("step", "expected"),
    [
        ((0, "pin"), [(0, "pin")]),
        ((0, "enter"), [(0, "pin"), (0, "enter")]),
        ((1, "pin"), [(0, "pin"), (0, "enter"), (1, "pin"), (0, "exit")]),
        ((1, "enter"), [(0, "pin"), (0, "enter"), (1, "pin"), (1, "enter"), (0, "exit")]),
    ],
    ids=str,
)
def test_a_root_that_cannot_be_had_ends_the_copy(
    step: tuple[int, str], expected: list[tuple[int, str]], records: Records
) -> None:
    records.failing[step] = ValueError("no root")
    with fails_with(ValueError, "no root"):
        copy()
    assert records.order() == expected


@pytest.mark.parametrize("both", [False, True])
def test_both_roots_are_left_when_leaving_the_first_fails(both: bool, records: Records) -> None:
    first = records.failing[1, "exit"] = LookupError("destination")
    if both:
        records.failing[0, "exit"] = ValueError("source")
    with pytest.raises((LookupError, ValueError)) as raised:
        copy()
    assert records.order()[-2:] == [(1, "exit"), (0, "exit")]
    assert records.steps[-1].args[1] is first
    assert (raised.value.__context__ if both else raised.value) is first


def test_the_validated_destination_names_the_transfer_and_the_given_one_the_copy(
    records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    seen: list[Any] = []

    def validate(path: Any) -> str:
        seen.append((path, len(records.steps)))
        return "validated"

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", validate)
    copy()
    assert seen == [("b/copied", 0)]
    assert records.steps[5].args == (f"validated.{TOKEN}.tmp",)
    publication = next(step for step in records.steps if step.name == "replace_regular_file")
    assert publication.args == (f"validated.{TOKEN}.tmp", "b/copied")

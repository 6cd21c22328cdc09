"""Proves the steps of a link and of its fallback, and when each descriptor is closed."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.parents import NAME, STAGED, Parents
from path_level.recording import NO_FAILURE, Records, Step, stand_in_roots
from path_level.transfers import TOKEN, fix_token, strays_closed
from support.naming import named

FROM, TO = object(), object()

OPENING = [
    Step(0, "pin", (FROM,), {}),
    Step(0, "enter"),
    Step(1, "pin", (TO,), {"create": True}),
    Step(1, "enter"),
]
WALK_TO_SOURCE = Step(
    0, "_open_parent", ("s/a",), {"label": "contained link source", "create": False}
)
WALK_TO_NAME = Step(
    1, "_open_parent", (STAGED,), {"label": "contained link destination", "create": True}
)
REPLACING = Step(1, "replace_regular_file", (STAGED, "d/linked"))
PROVING = [Step(0, "prove"), Step(1, "prove")]
REMOVING = Step(1, "remove_regular_file", (STAGED,), {"missing_ok": True})
LEAVING = [Step(1, "exit", NO_FAILURE), Step(0, "exit", NO_FAILURE)]


@pytest.fixture
def parents(tmp_path: Path) -> Parents:
    for name in ("s", "d"):
        (tmp_path / name).mkdir()
    (tmp_path / "s" / "a").write_bytes(b"source")
    return Parents(tmp_path / "s", tmp_path / "d")


@pytest.fixture
def records(monkeypatch: pytest.MonkeyPatch, parents: Parents) -> Records:
    records = stand_in_roots(monkeypatch)
    records.actions[0, "_open_parent"] = parents.give_source
    records.actions[1, "_open_parent"] = parents.give_destination
    fix_token(monkeypatch, TOKEN, "f" * 16)
    return records


def link() -> Any:
    function: Any = client_manifest.link_or_copy_contained_regular_file
    return function(FROM, "s/a", TO, "d/linked")


def test_a_link_takes_exactly_these_steps(records: Records, parents: Parents) -> None:
    records.actions[1, "replace_regular_file"] = lambda *args: os.path.samefile(
        parents.source / "a", parents.destination / NAME
    )
    assert link() == "linked"
    assert records.steps == [
        *OPENING,
        WALK_TO_SOURCE,
        WALK_TO_NAME,
        REPLACING,
        *PROVING,
        REMOVING,
        *LEAVING,
    ]
    assert os.path.samefile(parents.source / "a", parents.destination / NAME)
    assert parents.open_now() == [False, False]


def test_both_parents_are_open_in_the_removal_and_closed_when_the_roots_are_left(
    records: Records, parents: Parents
) -> None:
    seen: dict[str, list[bool]] = {}
    for key, name in (
        ((1, "replace_regular_file"), "replacement"),
        ((1, "remove_regular_file"), "removal"),
        ((1, "exit"), "exit of the destination"),
    ):
        records.actions[key] = lambda *args, _name=name, **keywords: seen.update(
            {_name: parents.open_now()}
        )
    link()
    assert seen == {
        "replacement": [True, True],
        "removal": [True, True],
        "exit of the destination": [False, False],
    }


@pytest.mark.parametrize("failure", [OSError(18, "no"), KeyboardInterrupt("no")], ids=named)
@pytest.mark.parametrize("step", [REPLACING, *PROVING], ids=lambda step: f"{step[:2]}")
def test_a_failing_step_behind_the_link_removes_the_name(
    step: Step, failure: BaseException, records: Records, parents: Parents
) -> None:
    records.failing[step.root, step.name] = failure
    with pytest.raises(type(failure)) as raised:
        link()
    assert raised.value is failure
    assert records.order()[-4:] == [
        (step.root, step.name),
        (1, "remove_regular_file"),
        (1, "exit"),
        (0, "exit"),
    ]
    assert parents.open_now() == [False, False]
    assert len(records.roots) == 2


def test_nothing_is_removed_without_a_parent_of_the_destination(
    records: Records, parents: Parents
) -> None:
    for step, given in (((0, "_open_parent"), 0), ((1, "_open_parent"), 1)):
        failure = records.failing[step] = LookupError("no parent")
        with pytest.raises(LookupError) as raised:
            link()
        assert raised.value is failure
        assert (1, "remove_regular_file") not in records.order()
        assert parents.open_now() == [False] * given
        records.steps.clear()
        records.roots.clear()
        records.failing.clear()


def test_a_source_that_is_missing_or_no_file_ends_the_link_at_once(
    records: Records, parents: Parents
) -> None:
    (parents.source / "a").unlink()
    with pytest.raises(FileNotFoundError):
        link()
    assert records.order()[4:] == [(0, "_open_parent"), (1, "exit"), (0, "exit")]
    assert parents.open_now() == [False]


def test_a_failing_removal_replaces_the_failure_of_a_step(records: Records) -> None:
    first = records.failing[1, "replace_regular_file"] = LookupError("first")
    last = records.failing[1, "remove_regular_file"] = ValueError("not removed")
    with strays_closed(), pytest.raises(ValueError) as raised:
        link()
    assert raised.value is last and last.__context__ is first
    assert records.order()[-2:] == [(1, "exit"), (0, "exit")]


def test_both_paths_are_judged_before_anything_is_pinned(
    records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    seen: list[Any] = []

    def validate(path: Any) -> str:
        seen.append((path, len(records.steps)))
        return {"s/a": "safe/source", "d/linked": "safe/destination"}[path]

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", validate)
    assert link() == "linked"
    assert seen == [("s/a", 0), ("d/linked", 0)]
    assert records.steps[4].args == ("safe/source",)
    assert records.steps[5].args == (f"safe/destination.{TOKEN}.tmp",)
    assert records.steps[6].args == (f"safe/destination.{TOKEN}.tmp", "safe/destination")


def test_the_fallback_takes_exactly_these_steps(
    records: Records, parents: Parents, monkeypatch: pytest.MonkeyPatch
) -> None:
    (parents.destination / NAME).write_bytes(b"in the way")

    def copy(*args: Any, **keywords: Any) -> None:
        records.note(-1, "copy", *args, **keywords)
        assert parents.open_now() == [True, True]

    monkeypatch.setattr(client_manifest, "copy_contained_regular_file", copy)
    assert link() == "copied"
    assert records.steps == [
        *OPENING,
        WALK_TO_SOURCE,
        WALK_TO_NAME,
        Step(-1, "copy", (FROM, "s/a", TO, "d/linked"), {}),
        REMOVING,
        *LEAVING,
    ]
    assert parents.open_now() == [False, False]


def test_the_fallback_hands_on_the_validated_paths(
    parents: Parents, records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    (parents.destination / NAME).write_bytes(b"in the way")
    seen: list[Any] = []
    monkeypatch.setattr(
        client_manifest, "validate_manifest_relative_path", lambda path: f"safe/{path}"
    )
    monkeypatch.setattr(
        client_manifest, "copy_contained_regular_file", lambda *args: seen.append(args)
    )
    assert link() == "copied"
    assert seen == [(FROM, "safe/s/a", TO, "safe/d/linked")]


def test_a_failing_removal_replaces_the_failure_of_the_copy(
    records: Records, parents: Parents, monkeypatch: pytest.MonkeyPatch
) -> None:
    (parents.destination / NAME).write_bytes(b"in the way")
    first = LookupError("no copy")

    def copy(*args: Any) -> None:
        raise first

    monkeypatch.setattr(client_manifest, "copy_contained_regular_file", copy)
    last = records.failing[1, "remove_regular_file"] = ValueError("not removed")
    with strays_closed(), pytest.raises(ValueError) as raised:
        link()
    assert raised.value is last and last.__context__ is first
    assert type(first.__context__) is FileExistsError


def test_four_roots_are_pinned_in_the_copy_of_the_fallback(
    records: Records, parents: Parents
) -> None:
    (parents.destination / NAME).write_bytes(b"in the way")
    failure = records.failing[2, "open_regular_file_for_read"] = LookupError("far enough")
    with pytest.raises(LookupError) as raised:
        link()
    assert raised.value is failure
    assert [step for step in records.steps if step.name == "pin"] == [
        Step(0, "pin", (FROM,), {}),
        Step(1, "pin", (TO,), {"create": True}),
        Step(2, "pin", (FROM,), {}),
        Step(3, "pin", (TO,), {"create": True}),
    ]
    assert [step.root for step in records.exits()] == [3, 2, 1, 0]
    second = f"d/linked.{'f' * 16}.tmp"
    assert [step.args for step in records.steps if step.name == "remove_regular_file"] == [
        (second,),
        (STAGED,),
    ]

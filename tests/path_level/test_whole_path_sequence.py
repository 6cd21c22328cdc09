"""Proves what the whole-path functions call, and that only a hash pins before it judges."""

from __future__ import annotations

import os
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.recording import NO_FAILURE, Records, Step, stand_in_roots
from support.failures import fails_with

EXACT = "manifest relative path must be an exact relative POSIX path"

# Leaves that a host path can have, and a contained path cannot.
BAD_LEAVES = [" leaf", "leaf ", "leaf\n", "C:", "c:leaf", "é:", "back\\slash", "nul\0"]


@pytest.fixture
def records(monkeypatch: pytest.MonkeyPatch) -> Records:
    return stand_in_roots(monkeypatch)


class Passed(list[Any]):
    """Stands in for a one-shot function: notes its calls and gives `result`."""

    result = object()

    def __call__(self, *args: Any, **keywords: Any) -> object:
        self.append((args, keywords))
        return self.result


def passed(monkeypatch: pytest.MonkeyPatch, name: str) -> Passed:
    stand_in = Passed()
    monkeypatch.setattr(client_manifest, name, stand_in)
    return stand_in


def test_a_read_goes_through_the_one_shot_read(monkeypatch: pytest.MonkeyPatch) -> None:
    calls, label = passed(monkeypatch, "read_contained_regular_file"), object()
    read: Any = client_manifest.read_regular_file_path
    assert read("/one/two/leaf", label=label) is calls.result
    assert calls == [((Path("/one/two"), "leaf"), {"label": label})]
    assert type(calls[0][0][0]) is type(Path("/"))


def test_a_write_goes_through_the_one_shot_write(monkeypatch: pytest.MonkeyPatch) -> None:
    calls = passed(monkeypatch, "write_contained_regular_file")
    payload, allowed = object(), object()
    write: Any = client_manifest.write_regular_file_path
    assert write("/one/two/leaf", payload) is calls.result
    assert write("/one/two/leaf", payload, allow_replace=allowed) is calls.result
    assert calls == [
        ((Path("/one/two"), "leaf", payload), {"allow_replace": True}),
        ((Path("/one/two"), "leaf", payload), {"allow_replace": allowed}),
    ]
    assert calls[0][0][2] is payload


@pytest.mark.parametrize("keywords", [{}, {"chunk_bytes": 5}], ids=str)
def test_a_hash_takes_exactly_these_steps(keywords: dict[str, int], records: Records) -> None:
    digest = object()
    records.results[0, "hash_regular_file"] = SimpleNamespace(sha256=digest)
    hashed: Any = client_manifest.hash_regular_file_path
    assert hashed("/one/two/leaf", label="f", **keywords) is digest
    chunk = keywords.get("chunk_bytes", 1_048_576)
    assert records.steps == [
        Step(0, "pin", (Path("/one/two"),), {}),
        Step(0, "enter"),
        Step(0, "hash_regular_file", ("leaf",), {"label": "f", "chunk_bytes": chunk}),
        Step(0, "prove"),
        Step(0, "exit", NO_FAILURE),
    ]


@pytest.mark.parametrize("step", ["hash_regular_file", "prove"])
def test_a_failing_step_of_a_hash_passes_through_the_exit(step: str, records: Records) -> None:
    records.results[0, "hash_regular_file"] = SimpleNamespace(sha256="dropped")
    failure = records.failing[0, step] = KeyboardInterrupt("no")
    with pytest.raises(KeyboardInterrupt) as raised:
        client_manifest.hash_regular_file_path("/one/leaf", label="f")
    assert raised.value is failure
    assert records.names()[-2:] == [step, "exit"]
    assert records.steps[-1].args[1] is failure


def test_a_failing_exit_of_a_hash_drops_the_digest(records: Records) -> None:
    records.results[0, "hash_regular_file"] = SimpleNamespace(sha256="dropped")
    records.failing[0, "exit"] = ValueError("another root")
    with fails_with(ValueError, "another root"):
        client_manifest.hash_regular_file_path("/one/leaf", label="f")


def test_a_read_and_a_write_judge_the_leaf_before_they_pin(
    records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    for leaf in BAD_LEAVES:
        with fails_with(ValueError, EXACT):
            client_manifest.read_regular_file_path(f"/one/{leaf}", label="f")
        with fails_with(ValueError, EXACT):
            client_manifest.write_regular_file_path(f"/one/{leaf}", b"")
    assert records.steps == []


@pytest.mark.parametrize("leaf", BAD_LEAVES, ids=ascii)
def test_a_hash_pins_before_it_judges_the_leaf(leaf: str, records: Records) -> None:
    with fails_with(ValueError, EXACT) as caught:
        client_manifest.hash_regular_file_path(f"/one/{leaf}", label="f")
    assert records.names() == ["pin", "enter", "exit"]
    assert records.steps[-1].args[1] is caught.error


def test_a_bad_leaf_under_a_missing_parent_tells_them_apart(tmp_path: Path) -> None:
    path = tmp_path / "absent" / "leaf "
    with fails_with(ValueError, EXACT):
        client_manifest.read_regular_file_path(path, label="f")
    with fails_with(ValueError, EXACT):
        client_manifest.write_regular_file_path(path, b"")
    with fails_with(FileNotFoundError, None):
        client_manifest.hash_regular_file_path(path, label="f")
    assert list(tmp_path.iterdir()) == []


def test_a_bad_leaf_is_told_before_a_bad_chunk_and_a_bad_payload(tmp_path: Path) -> None:
    number: Any = "no number"
    payload: Any = "no bytes"
    with fails_with(ValueError, EXACT):
        client_manifest.hash_regular_file_path(tmp_path / "a ", label="f", chunk_bytes=number)
    with fails_with(ValueError, EXACT):
        client_manifest.write_regular_file_path(tmp_path / "a ", payload)


@pytest.mark.parametrize("path", ["/", "/..", "/a/.."])
def test_the_root_of_the_file_system_has_an_empty_leaf(path: str) -> None:
    for call in (
        lambda: client_manifest.read_regular_file_path(path, label="f"),
        lambda: client_manifest.write_regular_file_path(path, b""),
        lambda: client_manifest.hash_regular_file_path(path, label="f"),
    ):
        with fails_with(ValueError, EXACT):
            call()


def test_the_root_of_the_file_system_is_pinned_by_a_hash_only(records: Records) -> None:
    for call in (
        lambda: client_manifest.read_regular_file_path("/", label="f"),
        lambda: client_manifest.write_regular_file_path("/", b""),
    ):
        with fails_with(ValueError, EXACT):
            call()
    assert records.steps == []
    with fails_with(ValueError, EXACT):
        client_manifest.hash_regular_file_path("/", label="f")
    assert records.steps[:2] == [Step(0, "pin", (Path("/"),), {}), Step(0, "enter")]


def test_the_leaf_is_judged_through_the_module(
    records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    failure = ValueError("judged elsewhere")
    seen: list[Any] = []

    def validate(leaf: Any) -> str:
        seen.append((leaf, records.names()))
        raise failure

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", validate)
    for call in (
        lambda: client_manifest.read_regular_file_path("/one/leaf", label="f"),
        lambda: client_manifest.write_regular_file_path("/one/leaf", b""),
        lambda: client_manifest.hash_regular_file_path("/one/leaf", label="f"),
    ):
        with fails_with(ValueError, "judged elsewhere") as caught:
            call()
        assert caught.error is failure
    assert seen == [("leaf", []), ("leaf", []), ("leaf", ["pin", "enter"])]


def test_the_host_makes_the_path_absolute(monkeypatch: pytest.MonkeyPatch) -> None:
    calls = passed(monkeypatch, "read_contained_regular_file")
    given = object()
    host = SimpleNamespace(
        fspath={given: "text"}.__getitem__,
        path=SimpleNamespace(abspath={"text": "/absolute/leaf"}.__getitem__),
        name=os.name,
    )
    made: list[Any] = []

    def path(*args: Any) -> Path:
        made.append(args)
        return Path(*args)

    monkeypatch.setattr(client_manifest, "os", host)
    monkeypatch.setattr(client_manifest, "Path", path)
    read: Any = client_manifest.read_regular_file_path
    read(given, label="f")
    assert made == [("/absolute/leaf",)]
    assert calls == [((Path("/absolute"), "leaf"), {"label": "f"})]

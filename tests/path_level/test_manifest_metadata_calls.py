"""Proves what a look at one manifest calls, with which arguments, and which failure it takes."""

from __future__ import annotations

import os
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from support.naming import named

KEYS = ["version", "market_id", "era_number"]


class Place:
    """A path-like value; its text is another one each time that it is asked."""

    def __init__(self) -> None:
        self.asked = 0

    def __fspath__(self) -> str:
        self.asked += 1
        return f"text {self.asked}"


class Manifest:
    """What a parse gives: only `get` with one key is asked of it."""

    def __init__(self, calls: list[Any]) -> None:
        self.calls = calls

    def get(self, *args: Any) -> Any:
        self.calls.append(("get", args, {}))
        return args[0]


@pytest.fixture
def calls(monkeypatch: pytest.MonkeyPatch) -> list[Any]:
    """The calls of the three functions that a look at a manifest rests on."""
    calls: list[Any] = []
    results: dict[str, Callable[..., Any]] = {
        "read_regular_file_path": lambda *args, **keywords: "the bytes",
        "parse_distribution_manifest_bytes": lambda *args, **keywords: Manifest(calls),
        "positive_manifest_int": lambda value: f"<{value}>",
    }

    def noting(name: str) -> Any:
        def note(*args: Any, **keywords: Any) -> Any:
            calls.append((name, args, keywords))
            return results[name](*args, **keywords)

        return note

    for name in results:
        monkeypatch.setattr(client_manifest, name, noting(name))
    return calls


def look(path: Any = "a/path") -> Any:
    return client_manifest.manifest_metadata_from_path(path)


def of(calls: list[Any], name: str) -> list[Any]:
    return [call for call in calls if call[0] == name]


def test_the_file_is_read_parsed_and_asked_for_its_numbers(calls: list[Any]) -> None:
    assert look() == {
        "client_manifest_version": "<version>",
        "client_manifest_market_id": "<market_id>",
        "client_manifest_era_number": "<era_number>",
    }
    assert calls[:2] == [
        ("read_regular_file_path", ("a/path",), {"label": "a/path"}),
        ("parse_distribution_manifest_bytes", ("the bytes",), {"label": "a/path"}),
    ]
    assert of(calls, "get") == [("get", (key,), {}) for key in KEYS]
    assert of(calls, "positive_manifest_int") == [
        ("positive_manifest_int", (key,), {}) for key in KEYS
    ]


def test_a_path_is_passed_on_as_it_came_and_its_text_is_the_label(calls: list[Any]) -> None:
    place = Place()
    look(place)
    assert calls[0][1][0] is place
    assert calls[0][2] == {"label": "text 1"}
    assert calls[1][2] == {"label": "text 2"}


def test_the_host_gives_the_text_of_the_path(
    calls: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    host = SimpleNamespace(fspath=lambda path: f"<{path}>", name=os.name)
    monkeypatch.setattr(client_manifest, "os", host)
    look(5)
    assert calls[0] == ("read_regular_file_path", (5,), {"label": "<5>"})


@pytest.mark.parametrize("bad", KEYS)
def test_all_three_numbers_are_judged_even_if_one_is_none(
    bad: str, calls: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    judged: list[Any] = []

    def judge(value: Any) -> Any:
        judged.append(value)
        return None if value == bad else 1

    monkeypatch.setattr(client_manifest, "positive_manifest_int", judge)
    assert look() == {}
    assert judged == KEYS


def test_a_number_that_is_false_but_not_none_is_reported(
    calls: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "positive_manifest_int", lambda value: 0)
    assert list(look().values()) == [0, 0, 0]


def failing(error: BaseException) -> Any:
    def fail(*args: Any, **keywords: Any) -> Any:
        raise error

    return fail


@pytest.mark.parametrize(
    "error", [FileNotFoundError(2, "no"), type("Own", (FileNotFoundError,), {})("no")], ids=named
)
def test_absence_in_the_read_leaves_nothing(
    error: BaseException, calls: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "read_regular_file_path", failing(error))
    assert look() == {}
    assert calls == []


@pytest.mark.parametrize(
    "error",
    [
        OSError("no"),
        ValueError("no"),
        NotADirectoryError(20, "no"),
        PermissionError(13, "no"),
        RuntimeError("no"),
        KeyboardInterrupt("no"),
    ],
    ids=named,
)
def test_any_other_failure_of_the_read_passes(
    error: BaseException, calls: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "read_regular_file_path", failing(error))
    with pytest.raises(type(error)) as raised:
        look()
    assert raised.value is error


@pytest.mark.parametrize("name", ["parse_distribution_manifest_bytes", "positive_manifest_int"])
def test_absence_behind_the_read_passes(
    name: str, calls: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    error = FileNotFoundError(2, "not from the read")
    monkeypatch.setattr(client_manifest, name, failing(error))
    with pytest.raises(FileNotFoundError) as raised:
        look()
    assert raised.value is error


@pytest.mark.parametrize("path", [None, 5, object()], ids=named)
def test_what_is_no_path_is_refused_before_the_read(path: Any, calls: list[Any]) -> None:
    with fails_with(TypeError, None):
        look(path)
    assert calls == []

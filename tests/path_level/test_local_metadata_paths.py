"""Proves which manifests a search tries, in which order, and that the first record ends it."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from path_level.data_dirs import manifest_path, put
from support.failures import fails_with
from support.naming import named

search = client_manifest.local_client_manifest_metadata

FLAT = "manifest.json"
BOTH = "distribution/market_5/era_4/manifest.json"
SOLE = "distribution/market_x/era_4/manifest.json"

# Requests that count as this number, and requests that count as none.
FIVE = [5, 5.9, "5", " 5\n", b"5", "0_5"]
FOUR = [4, 4.2, "4", "\u0664"]
NOTHING: list[Any] = [None, True, False, 0, -5, 0.5, "", "five", "5.0", [], {}, object()]


class Undecided:
    """A value that must not be looked at."""

    def __int__(self) -> int:
        raise LookupError("looked at")

    __bool__ = __int__


@pytest.fixture
def tried(monkeypatch: pytest.MonkeyPatch) -> list[Any]:
    """The paths that a search tries; none of them holds anything."""
    tried: list[Any] = []

    def look(*args: Any, **keywords: Any) -> dict[str, int]:
        assert not keywords and len(args) == 1
        tried.append(args[0])
        return {}

    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", look)
    return tried


@pytest.fixture
def data_dir(tmp_path: Path) -> Path:
    """One market holds era 4; nothing in it is a usable manifest."""
    put(manifest_path(tmp_path, "market_x"), b"")
    return tmp_path


@pytest.mark.parametrize("market_id", FIVE, ids=named)
@pytest.mark.parametrize("era_number", FOUR, ids=named)
def test_market_and_era_select_one_directory(
    market_id: Any, era_number: Any, data_dir: Path, tried: list[Any]
) -> None:
    assert search(data_dir, market_id=market_id, era_number=era_number) == {}
    assert tried == [f"{data_dir}/{BOTH}", f"{data_dir}/{FLAT}"]
    assert {type(path) for path in tried} == {str}


@pytest.mark.parametrize("market_id", NOTHING, ids=lambda value: repr(value)[:12])
def test_an_era_alone_selects_its_only_market(
    market_id: Any, data_dir: Path, tried: list[Any]
) -> None:
    assert search(data_dir, market_id=market_id, era_number=4) == {}
    assert tried == [f"{data_dir}/{SOLE}", f"{data_dir}/{FLAT}"]
    assert {type(path) for path in tried} == {str}


@pytest.mark.parametrize("era_number", NOTHING, ids=lambda value: repr(value)[:12])
@pytest.mark.parametrize("market_id", [5, None, True])
def test_without_an_era_only_the_flat_manifest_is_tried(
    market_id: Any, era_number: Any, data_dir: Path, tried: list[Any]
) -> None:
    assert search(data_dir, market_id=market_id, era_number=era_number) == {}
    assert tried == [f"{data_dir}/{FLAT}"]


def test_both_requests_may_be_left_out(data_dir: Path, tried: list[Any]) -> None:
    assert search(data_dir) == {}
    assert search(data_dir, market_id=5) == {}
    assert tried == [f"{data_dir}/{FLAT}"] * 2
    search(data_dir, era_number=4)
    assert tried[2:] == [f"{data_dir}/{SOLE}", f"{data_dir}/{FLAT}"]


def test_the_requests_are_not_taken_by_position(data_dir: Path, tried: list[Any]) -> None:
    function: Any = search
    with fails_with(TypeError, None):
        function(data_dir, 5, 4)
    assert tried == []


@pytest.mark.parametrize("data_dir", [None, "", b"", 0, [], (), {}, False], ids=named)
def test_no_directory_gives_an_empty_mapping_and_looks_at_nothing(
    data_dir: Any, tried: list[Any]
) -> None:
    request: Any = Undecided()
    found = search(data_dir, market_id=request, era_number=request)
    assert (found, type(found)) == ({}, dict)
    assert tried == []
    found["key"] = 1
    assert search(data_dir) == {}


@pytest.mark.parametrize("spelling", ["data", "data/", "./data", "x/../data", "data//."])
def test_the_spelling_of_the_directory_is_kept(
    spelling: str, tmp_path: Path, tried: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    put(manifest_path(tmp_path / "data", "market_x"), b"")
    (tmp_path / "x").mkdir()
    monkeypatch.chdir(tmp_path)
    search(spelling, market_id=5, era_number=4)
    assert tried == [os.path.join(spelling, BOTH), os.path.join(spelling, FLAT)]
    tried.clear()
    search(spelling, era_number=4)
    # A candidate of the search has gone through the host's `Path`, which tidies it a little.
    assert tried == [str(Path(spelling) / SOLE), os.path.join(spelling, FLAT)]


class Place:
    def __fspath__(self) -> str:
        return "elsewhere"


@pytest.mark.parametrize("place", [Path("elsewhere"), Place()], ids=["path", "path-like"])
def test_the_directory_may_be_path_like(place: Any, tried: list[Any]) -> None:
    search(place, market_id=5, era_number=4)
    assert tried == [f"elsewhere/{BOTH}", f"elsewhere/{FLAT}"]


def test_the_working_directory_as_a_path_is_a_directory(tried: list[Any]) -> None:
    search(Path(""))
    assert tried == [f"./{FLAT}"]


@pytest.mark.parametrize("place", [5, 1.5, True, ["data"], object()], ids=named)
def test_what_is_no_path_is_refused_before_the_requests_are_looked_at(
    place: Any, tried: list[Any]
) -> None:
    request: Any = Undecided()
    with fails_with(TypeError, None):
        search(place, market_id=request, era_number=request)
    assert tried == []


@pytest.mark.parametrize("requests", [{}, {"market_id": 5, "era_number": 4}, {"era_number": 4}])
def test_a_path_of_bytes_cannot_be_searched(requests: Any, tried: list[Any]) -> None:
    place: Any = b"data"
    with pytest.raises(TypeError):
        search(place, **requests)
    assert tried == []


def test_the_market_is_converted_before_the_era(
    tried: list[Any], monkeypatch: pytest.MonkeyPatch
) -> None:
    converted: list[Any] = []
    monkeypatch.setattr(client_manifest, "positive_manifest_int", converted.append)
    search("data", market_id="m", era_number="e")
    assert converted == ["m", "e"]
    assert tried == ["data/manifest.json"]


def test_the_first_record_is_given_as_it_is_and_ends_the_search(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    first, tried = object(), []

    def look(path: str) -> Any:
        tried.append(path)
        return first

    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", look)
    assert search("data", market_id=5, era_number=4) is first
    assert tried == [f"data/{BOTH}"]


def test_the_last_record_is_given_as_it_is(monkeypatch: pytest.MonkeyPatch) -> None:
    records: list[Any] = [[], last := object()]
    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", lambda path: records.pop(0))
    assert search("data", market_id=5, era_number=4) is last


def test_a_search_that_finds_nothing_gives_a_mapping_of_its_own(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", lambda path: [])
    found = search("data")
    assert (found, type(found)) == ({}, dict)
    found["key"] = 1
    assert search("data") == {}


def test_a_failing_look_ends_the_search(monkeypatch: pytest.MonkeyPatch) -> None:
    tried: list[str] = []

    def look(path: str) -> Any:
        tried.append(path)
        raise FileNotFoundError(2, "not taken here")

    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", look)
    with pytest.raises(FileNotFoundError):
        search("data", market_id=5, era_number=4)
    assert tried == [f"data/{BOTH}"]


@given(st.integers(1, 10**40), st.integers(1, 10**40))
def test_the_numbers_are_written_in_decimal(market: int, era: int) -> None:
    tried: list[str] = []
    with pytest.MonkeyPatch.context() as patch:
        patch.setattr(client_manifest, "manifest_metadata_from_path", tried.append)
        assert search("data", market_id=market, era_number=era) == {}
    assert tried[0] == f"data/distribution/market_{market}/era_{era}/manifest.json"

"""Proves what each state of a candidate does to the search: end it, pass it on, or fail it."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import ManifestJsonError, StrictJsonError
from path_level.data_dirs import document, manifest_path, put, record
from pinned_root.disk import swap_for_link
from support.failures import fails_with
from support.naming import named

search = client_manifest.local_client_manifest_metadata

UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"

FLAT = record(version=9)
MARKET = "market_5"

# How a search comes upon the candidate that is tried before the flat manifest.
REQUESTS: list[dict[str, Any]] = [
    {"market_id": 5, "era_number": 4},
    {"era_number": 4},
]
every_request = pytest.mark.parametrize("request_", REQUESTS, ids=["both", "era alone"])


@pytest.fixture
def data_dir(tmp_path: Path) -> Path:
    """A good flat manifest of version 9."""
    put(manifest_path(tmp_path), document(version=9))
    return tmp_path


@every_request
def test_a_usable_candidate_ends_the_search(request_: Any, data_dir: Path) -> None:
    put(manifest_path(data_dir, MARKET), document())
    manifest_path(data_dir).write_bytes(b"never read: not JSON")
    assert search(data_dir, **request_) == record()


@every_request
def test_what_the_candidate_says_is_not_compared_with_the_request(
    request_: Any, data_dir: Path
) -> None:
    put(manifest_path(data_dir, MARKET), document(market_id=6, era_number=7))
    assert search(data_dir, **request_) == record(market_id=6, era_number=7)
    manifest_path(data_dir, MARKET).unlink()
    assert search(data_dir, **request_) == FLAT


@every_request
@pytest.mark.parametrize("below", ["", "..", "../.."])
def test_absence_passes_the_search_on(request_: Any, below: str, data_dir: Path) -> None:
    (manifest_path(data_dir, MARKET).parent / below).resolve().mkdir(parents=True)
    assert search(data_dir, **request_) == FLAT


@every_request
@pytest.mark.parametrize(
    "content",
    [
        {},
        document(version=0),
        document(version=True),
        document(market_id=-1),
        document(era_number="four"),
        document(era_number=None),
    ],
    ids=named,
)
def test_a_number_that_does_not_count_passes_the_search_on(
    request_: Any, content: Any, data_dir: Path
) -> None:
    put(manifest_path(data_dir, MARKET), content)
    assert search(data_dir, **request_) == FLAT
    manifest_path(data_dir).unlink()
    assert search(data_dir, **request_) == {}


@every_request
@pytest.mark.parametrize(
    ("content", "text"),
    [
        (b"{", "{label} is not valid JSON"),
        (b"\xff", "{label} is not valid UTF-8"),
        (b"[1]", "{label} must contain a JSON object"),
        (b'{"a": 1, "a": 2}', "{label} contains duplicate object key: a"),
        (b'{"a": Infinity}', "non-finite JSON constant is forbidden: Infinity"),
    ],
    ids=named,
)
def test_what_is_no_strict_object_fails_the_search(
    request_: Any, content: bytes, text: str, data_dir: Path
) -> None:
    path = put(manifest_path(data_dir, MARKET), content)
    with fails_with(ManifestJsonError, text.replace("{label}", str(path)), cause=StrictJsonError):
        search(data_dir, **request_)


@every_request
def test_an_infinite_number_fails_the_search(request_: Any, data_dir: Path) -> None:
    put(manifest_path(data_dir, MARKET), b'{"version": 1e999, "market_id": 1, "era_number": 1}')
    with fails_with(OverflowError, None):
        search(data_dir, **request_)


@every_request
def test_a_leaf_that_is_a_link_fails_the_search(request_: Any, data_dir: Path) -> None:
    path = put(manifest_path(data_dir, MARKET), document())
    swap_for_link(path)
    text = f"{path} is a symlink or is not safely readable: manifest.json"
    with fails_with(ValueError, text, cause=OSError):
        search(data_dir, **request_)


def test_a_dangling_leaf_fails_only_the_search_that_does_not_look_for_it(data_dir: Path) -> None:
    path = manifest_path(data_dir, MARKET)
    path.parent.mkdir(parents=True)
    path.symlink_to("nowhere")
    assert search(data_dir, era_number=4) == FLAT
    text = f"{path} is a symlink or is not safely readable: manifest.json"
    with fails_with(ValueError, text, cause=OSError):
        search(data_dir, market_id=5, era_number=4)


@every_request
def test_a_leaf_that_is_a_directory_fails_the_search(request_: Any, data_dir: Path) -> None:
    path = manifest_path(data_dir, MARKET)
    path.mkdir(parents=True)
    with fails_with(ValueError, f"{path} must be a regular file: manifest.json"):
        search(data_dir, **request_)


@every_request
@pytest.mark.parametrize("level", [0, 1, 2], ids=["era", "market", "distribution"])
def test_an_ancestor_that_is_a_link_fails_the_search(
    request_: Any, level: int, data_dir: Path
) -> None:
    path = put(manifest_path(data_dir, MARKET), document())
    target = path.parents[level]
    target.rename(data_dir / "aside")
    target.symlink_to(data_dir / "aside")
    with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
        search(data_dir, **request_)


@pytest.mark.parametrize("level", [0, 1, 2], ids=["era", "market", "distribution"])
def test_an_ancestor_that_is_a_file_fails_only_the_search_that_does_not_look_for_it(
    level: int, data_dir: Path
) -> None:
    put(manifest_path(data_dir, MARKET).parents[level], b"a file")
    assert search(data_dir, era_number=4) == FLAT
    with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
        search(data_dir, market_id=5, era_number=4)


def test_a_name_that_is_too_long_fails_the_search(data_dir: Path) -> None:
    assert search(data_dir, market_id=10**300, era_number=4) == FLAT
    (data_dir / "distribution").mkdir()
    with fails_with(ValueError, UNSAFE, cause=OSError):
        search(data_dir, market_id=10**300, era_number=4)


def change_during_the_read(monkeypatch: pytest.MonkeyPatch, change: Callable[[], object]) -> None:
    """Runs `change` when all bytes have been read, and nothing has been proved yet."""
    original: Any = client_manifest.PinnedRoot

    class Changing(original):  # type: ignore[misc]
        def _assert_path_matches_regular_file(self, *args: Any, **keywords: Any) -> None:
            change()
            super()._assert_path_matches_regular_file(*args, **keywords)

    monkeypatch.setattr(client_manifest, "PinnedRoot", Changing)


@every_request
def test_a_change_during_the_read_fails_the_search(
    request_: Any, data_dir: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    path = put(manifest_path(data_dir, MARKET), document())
    change_during_the_read(monkeypatch, lambda: os.truncate(path, 1))
    text = f"{path} path identity changed while open: manifest.json"
    with fails_with(ValueError, text):
        search(data_dir, **request_)


@every_request
def test_a_leaf_that_vanishes_during_the_read_fails_the_search(
    request_: Any, data_dir: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    path = put(manifest_path(data_dir, MARKET), document())
    change_during_the_read(monkeypatch, path.unlink)
    text = f"{path} path changed while open: manifest.json"
    with fails_with(ValueError, text, cause=FileNotFoundError):
        search(data_dir, **request_)


@every_request
def test_a_denied_permission_fails_the_search(
    request_: Any, data_dir: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    put(manifest_path(data_dir, MARKET), document())
    denied = PermissionError(13, "denied")

    class Denying(client_manifest.PinnedRoot):
        def open_regular_file_for_read(self, *args: Any, **keywords: Any) -> Any:
            raise denied

    monkeypatch.setattr(client_manifest, "PinnedRoot", Denying)
    with fails_with(PermissionError, None) as caught:
        search(data_dir, **request_)
    assert caught.error is denied


def test_the_states_of_the_flat_manifest_are_the_same(data_dir: Path) -> None:
    path = manifest_path(data_dir)
    assert search(data_dir) == FLAT
    path.write_bytes(b"{")
    with fails_with(ManifestJsonError, f"{path} is not valid JSON", cause=StrictJsonError):
        search(data_dir)
    put(path, document(version=0))
    assert search(data_dir) == {}
    path.unlink()
    assert search(data_dir) == {}
    path.mkdir()
    with fails_with(ValueError, f"{path} must be a regular file: manifest.json"):
        search(data_dir)


def test_a_data_directory_that_is_missing_gives_an_empty_mapping(tmp_path: Path) -> None:
    absent = tmp_path / "absent"
    for request_ in ({}, {"market_id": 5}, *REQUESTS):
        assert search(absent, **request_) == {}
    assert not absent.exists()


def test_a_data_directory_behind_a_link_fails_the_search(data_dir: Path) -> None:
    link = data_dir / "link"
    link.symlink_to(data_dir)
    for request_ in ({}, *REQUESTS):
        with pytest.raises(ValueError, match="^pinned root is missing, has a symlinked ancestor"):
            search(link, **request_)

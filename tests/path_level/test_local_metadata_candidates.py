"""Proves which directories a search by era finds, and that it never chooses between two."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from path_level.data_dirs import document, manifest_path, put, record
from pinned_root.disk import swap_for_link
from support.failures import fails_with

search = client_manifest.local_client_manifest_metadata

UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"


@pytest.fixture
def data_dir(tmp_path: Path) -> Path:
    """A flat manifest of version 9, which tells that no candidate was chosen."""
    put(manifest_path(tmp_path), document(version=9))
    return tmp_path


FLAT = record(version=9)


def test_the_only_market_of_an_era_is_found(data_dir: Path) -> None:
    put(manifest_path(data_dir, "market_5"), document())
    put(manifest_path(data_dir, "market_6", "era_3"), document(version=6))
    assert search(data_dir, era_number=4) == record()


def test_an_era_of_two_markets_is_ambiguous(data_dir: Path) -> None:
    put(manifest_path(data_dir, "market_5"), document())
    put(manifest_path(data_dir, "market_6"), b"never read: not JSON")
    assert search(data_dir, era_number=4) == FLAT
    manifest_path(data_dir).unlink()
    assert search(data_dir, era_number=4) == {}
    put(manifest_path(data_dir, "market_7"), document())
    assert search(data_dir, era_number=4) == {}
    assert search(data_dir, market_id=7, era_number=4) == record()


def test_a_market_without_a_manifest_makes_nothing_ambiguous(data_dir: Path) -> None:
    put(manifest_path(data_dir, "market_5"), document())
    manifest_path(data_dir, "market_6").parent.mkdir(parents=True)
    put(manifest_path(data_dir, "market_7").parent, b"a file in the place of the era")
    put(data_dir / "distribution" / "market_8", b"a file in the place of the market")
    manifest_path(data_dir, "market_9").parent.mkdir(parents=True)
    manifest_path(data_dir, "market_9").symlink_to("nowhere")
    assert search(data_dir, era_number=4) == record()


@pytest.mark.parametrize("name", ["market_", "market_x", "market_5 old", "market_*", "market_\n"])
def test_any_name_with_the_prefix_is_a_market(name: str, data_dir: Path) -> None:
    put(manifest_path(data_dir, name), document())
    assert search(data_dir, era_number=4) == record()


@pytest.mark.parametrize("name", ["market", "Market_5", "xmarket_5", ".market_5", "market-5"])
def test_a_name_without_the_prefix_is_no_market(name: str, data_dir: Path) -> None:
    put(manifest_path(data_dir, name), document())
    assert search(data_dir, era_number=4) == FLAT


@pytest.mark.parametrize("era", ["era_04", "era_44", "era_", "Era_4", "era_4 "])
def test_the_name_of_the_era_is_exact(era: str, data_dir: Path) -> None:
    put(manifest_path(data_dir, "market_5", era), document())
    assert search(data_dir, era_number=4) == FLAT


def test_a_market_deeper_down_is_not_found(data_dir: Path) -> None:
    put(manifest_path(data_dir / "distribution", "market_5"), document())
    put(data_dir / "market_5" / "era_4" / "manifest.json", document())
    assert search(data_dir, era_number=4) == FLAT


def test_a_market_behind_a_link_is_found_and_then_refused(data_dir: Path) -> None:
    put(manifest_path(data_dir, "kept"), document())
    (data_dir / "distribution" / "market_5").symlink_to("kept")
    with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
        search(data_dir, era_number=4)


def test_a_link_to_a_market_makes_its_era_ambiguous(data_dir: Path) -> None:
    put(manifest_path(data_dir, "market_5"), document())
    (data_dir / "distribution" / "market_6").symlink_to("market_5")
    assert search(data_dir, era_number=4) == FLAT


@pytest.mark.parametrize("level", ["distribution", "market_5/era_4"])
def test_a_link_on_the_way_is_found_and_then_refused(level: str, data_dir: Path) -> None:
    put(manifest_path(data_dir, "market_5"), document())
    target = data_dir / "distribution"
    swap_for_link(target if level == "distribution" else target / level)
    with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
        search(data_dir, era_number=4)


def test_a_missing_or_misplaced_distribution_leaves_the_flat_manifest(data_dir: Path) -> None:
    assert search(data_dir, era_number=4) == FLAT
    (data_dir / "distribution").write_bytes(b"a file")
    assert search(data_dir, era_number=4) == FLAT


class Candidate:
    """A match of the search that is compared and turned into text like a path."""

    def __init__(self, text: str, failing: bool = False) -> None:
        self.text, self.failing = text, failing

    def __lt__(self, other: Candidate) -> bool:
        if self.failing:
            raise LookupError("compared")
        return self.text < other.text

    def __str__(self) -> str:
        return self.text


class Directory:
    """Stands in for the host's `Path`, and gives these candidates for any pattern."""

    def __init__(self, steps: list[Any], candidates: list[Candidate]) -> None:
        self.steps, self.candidates = steps, candidates

    def __truediv__(self, name: str) -> Directory:
        self.steps.append(("/", name))
        return self

    def glob(self, *args: Any, **keywords: Any) -> Any:
        self.steps.append(("glob", args, keywords))
        yield from self.candidates


@pytest.mark.parametrize("count", [0, 1, 2])
def test_the_candidates_come_from_the_host(count: int, monkeypatch: pytest.MonkeyPatch) -> None:
    steps: list[Any] = []
    candidates = [Candidate("second"), Candidate("first")][:count]
    tried: list[str] = []

    def path(*args: Any) -> Directory:
        steps.append(("Path", args))
        return Directory(steps, candidates)

    monkeypatch.setattr(client_manifest, "Path", path)
    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", tried.append)
    assert search("data", era_number=4) == {}
    assert steps == [
        ("Path", ("data",)),
        ("/", "distribution"),
        ("glob", ("market_*/era_4/manifest.json",), {}),
    ]
    assert tried == (["second"] if count == 1 else []) + ["data/manifest.json"]


def test_the_candidates_are_sorted_though_it_has_no_effect(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    candidates = [Candidate("a", failing=True), Candidate("b", failing=True)]
    monkeypatch.setattr(client_manifest, "Path", lambda text: Directory([], candidates))
    with fails_with(LookupError, "compared"):
        search("data", era_number=4)


def test_a_search_that_fails_passes_its_failure(monkeypatch: pytest.MonkeyPatch) -> None:
    class Broken(Directory):
        def glob(self, *args: Any, **keywords: Any) -> Any:
            yield Candidate("first")
            raise OSError(5, "broken off")

    monkeypatch.setattr(client_manifest, "Path", lambda text: Broken([], []))
    with fails_with(OSError, "[Errno 5] broken off"):
        search("data", era_number=4)


markets = st.dictionaries(
    st.sampled_from(["market_1", "market_2", "market_x"]),
    st.sampled_from([b"{}", document(), document(version=0), document(market_id=8)]),
    max_size=3,
)
flat = st.sampled_from([None, b"{}", document(version=9)])


@settings(max_examples=40)
@given(markets, flat, st.sampled_from([None, 1, 2, 3, 0]), st.sampled_from([None, 4, 5, True]))
def test_every_search_tells_what_a_plain_reading_of_the_disk_tells(
    tmp_path_factory: pytest.TempPathFactory, markets: Any, flat: Any, market: Any, era: Any
) -> None:
    data_dir = tmp_path_factory.mktemp("data")
    for name, content in markets.items():
        put(manifest_path(data_dir, name), content)
    if flat is not None:
        put(manifest_path(data_dir), flat)

    tried = [flat]
    if market and era == 4:
        tried.insert(0, markets.get(f"market_{market}"))
    elif era == 4 and len(markets) == 1:
        tried.insert(0, next(iter(markets.values())))
    usable = [found for found in tried if isinstance(found, dict) and found["version"]]
    expected = record(**usable[0]) if usable else {}
    assert search(data_dir, market_id=market, era_number=era) == expected

"""Both cleanup walks make exactly the calls of their steps, and each syncs by its own rule."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from faults.injection import armed
from faults.layout import listed, listing, make_tree, names_of, pinned
from faults.trace import essential


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def _told(root: Path, act: Callable[[Any], object]) -> list[str]:
    with pinned(root) as remover:
        with armed() as shim:
            act(remover)
        return essential(shim.calls, names_of(remover))


class Walk:
    """A cleanup as a test expects it: what it enters, and what it does to a file."""

    def enters(self, path: str) -> bool:
        """All directories, unless a cleanup says otherwise."""
        return True

    def visit(self, place: str, name: str, path: str) -> Iterator[str]:
        """The calls that one file brings."""
        raise NotImplementedError

    def told(self, directory: Path, place: str, above: str = "") -> Iterator[str]:
        """The calls in the order of the disk, without the sync of each directory."""
        for name in listed(directory):
            path = f"{above}{name}"
            if not (directory / name).is_dir():
                yield from self.visit(place, name, path)
            elif self.enters(path):
                below = f"{place}/{name}"
                yield f"openat {place} {name} directory"
                yield from listing(below, *self.told(directory / name, below, f"{path}/"))
                yield f"close {below}"


class BySuffix(Walk):
    """Removes what ends in ".old", but for one file."""

    def visit(self, place: str, name: str, path: str) -> Iterator[str]:
        if name.endswith(".old") and path != "a/keep.old":
            yield f"fstatat {place} {name} nofollow"
            yield f"unlinkat {place} {name}"


class ByPrefix(Walk):
    """Removes what lies under "a", but for one file and all that is hidden."""

    def enters(self, path: str) -> bool:
        return f"{path}/".startswith("a/") and not Path(path).name.startswith(".")

    def visit(self, place: str, name: str, path: str) -> Iterator[str]:
        if path.startswith("a/") and path != "a/keep.old" and not name.startswith("."):
            yield f"openat {place} {name} source"
            yield f"fstat {place}/{name}"
            yield f"unlinkat {place} {name}"
            yield f"close {place}/{name}"


def _without_syncs(lines: list[str]) -> list[str]:
    return [line for line in lines if not line.startswith("fsync ")]


@pytest.fixture()
def wood(tmp_path: Path) -> Path:
    """Several files at several depths, beside others that a cleanup leaves alone."""
    for path in (
        "top.old", "top.new", "a/one.old", "a/two.old", "a/keep.old", "a/.hidden.old",
        "a/x/three.old", "a/.y/four.old", "ab/five.old", "b/six.new", "a.old/seven.old",
    ):  # fmt: skip
        (tmp_path / "wood" / path).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / "wood" / path).write_bytes(path.encode())
    return tmp_path / "wood"


def test_a_cleanup_by_suffix_enters_everything_and_looks_at_what_it_unlinks(wood: Path) -> None:
    expected = ["dup root", *listing("root*", *BySuffix().told(wood, "root*")), "close root*"]
    told = _told(
        wood,
        lambda remover: remover.remove_regular_files_with_suffix(
            ".old", preserve_relative_paths={"a/keep.old"}
        ),
    )
    assert _without_syncs(told) == expected


def test_a_cleanup_by_prefix_enters_what_matters_and_holds_what_it_unlinks(wood: Path) -> None:
    expected = ["dup root", *listing("root*", *ByPrefix().told(wood, "root*")), "close root*"]
    told = _told(
        wood,
        lambda remover: remover.remove_regular_files_in_prefixes(
            ("a",), preserve_relative_paths={"a/keep.old"}
        ),
    )
    assert _without_syncs(told) == expected
    assert [line for line in told if line.startswith("fsync ")] == [
        "fsync root*/a/x",
        "fsync root*/a",
    ]


def test_a_cleanup_by_suffix_syncs_every_directory_that_ends_after_the_first_removal(
    wood: Path,
) -> None:
    told = _told(
        wood,
        lambda remover: remover.remove_regular_files_with_suffix(
            ".old", preserve_relative_paths={"a/keep.old"}
        ),
    )
    removed = False
    for line, following in zip(told, [*told[1:], ""], strict=True):
        removed = removed or line.startswith("unlinkat ")
        if line.startswith("closedir "):
            place = line.removeprefix("closedir ").removesuffix("/.")
            assert (following == f"fsync {place}") is removed
    assert removed


def test_a_cleanup_by_suffix_syncs_an_untouched_root_for_what_went_below_it(root: Path) -> None:
    told = _told(
        root,
        lambda remover: remover.remove_regular_files_with_suffix(
            "leaf", preserve_relative_paths=()
        ),
    )
    assert [line for line in told if line.startswith("fsync ")] == [
        "fsync root*/sub/deep",
        "fsync root*/sub",
        "fsync root*",
    ]


def test_a_cleanup_by_prefix_syncs_only_the_directory_that_lost_a_file(root: Path) -> None:
    told = _told(
        root,
        lambda remover: remover.remove_regular_files_in_prefixes(
            ("sub",), preserve_relative_paths=()
        ),
    )
    assert [line for line in told if line.startswith("fsync ")] == ["fsync root*/sub/deep"]


def test_a_cleanup_that_finds_nothing_syncs_nothing(wood: Path) -> None:
    def by_suffix(remover: Any) -> None:
        assert remover.remove_regular_files_with_suffix("!", preserve_relative_paths=()) == ()

    def by_prefix(remover: Any) -> None:
        assert remover.remove_regular_files_in_prefixes(("c",), preserve_relative_paths=()) == ()

    for act in (by_suffix, by_prefix):
        assert not [line for line in _told(wood, act) if line.startswith("fsync ")]


def test_no_prefix_is_no_call(wood: Path) -> None:
    def none(remover: Any) -> None:
        assert remover.remove_regular_files_in_prefixes((), preserve_relative_paths=()) == ()

    assert _told(wood, none) == []

"""A file is carried to its new name with its inode, by both operations that do so."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away
from pinned_root.moves import MOVES
from pinned_root.trees import DIRECTORY, contents, without
from support.descriptors import descriptors_kept

SOURCE = "sub/inner.bin"

EACH = pytest.mark.parametrize("word", MOVES)


def identity(path: Path) -> tuple[int, int]:
    found = path.lstat()
    return found.st_dev, found.st_ino


@EACH
@pytest.mark.parametrize(
    ("source", "destination"),
    [
        ("file.bin", "fresh.bin"),
        ("sub/inner.bin", "sub/fresh.bin"),
        ("sub/inner.bin", "fresh.bin"),
        ("file.bin", "sub/deep/fresh.bin"),
        ("sub/deep/leaf.bin", "sub/.hidden.tmp"),
    ],
)
def test_the_file_goes_and_arrives(
    root: PinnedRoot, tree: Path, word: str, source: str, destination: str
) -> None:
    before, moved = contents(tree), identity(tree / source)
    with descriptors_kept():
        assert MOVES[word](root, source, destination) is None
    assert contents(tree) == {**without(before, source), destination: before[source]}
    assert identity(tree / destination) == moved


@EACH
@pytest.mark.parametrize("destination", ["file.bin", "sub/deep/leaf.bin"])
def test_a_regular_file_at_the_destination_is_replaced(
    root: PinnedRoot, tree: Path, word: str, destination: str
) -> None:
    os.link(tree / destination, tree / "old")
    former = (tree / destination).read_bytes()
    with descriptors_kept():
        assert MOVES[word](root, SOURCE, destination) is None
    assert (tree / destination).read_bytes() == b"inner bytes"
    assert (tree / "old").read_bytes() == former
    assert not (tree / SOURCE).exists()


@EACH
def test_missing_parents_of_the_destination_are_made(
    root: PinnedRoot, tree: Path, word: str
) -> None:
    before = contents(tree)
    with descriptors_kept():
        MOVES[word](root, SOURCE, "new/newer/leaf")
    assert contents(tree) == {
        **without(before, SOURCE),
        "new": DIRECTORY,
        "new/newer": DIRECTORY,
        "new/newer/leaf": b"inner bytes",
    }


@EACH
@pytest.mark.parametrize("path", ["file.bin", SOURCE])
def test_a_file_carried_to_its_own_name_stays(
    root: PinnedRoot, tree: Path, word: str, path: str
) -> None:
    before, kept = contents(tree), identity(tree / path)
    with descriptors_kept():
        assert MOVES[word](root, path, path) is None
    assert contents(tree) == before
    assert identity(tree / path) == kept


@EACH
def test_a_file_carried_to_another_hard_link_of_its_own_passes(
    root: PinnedRoot, tree: Path, word: str
) -> None:
    """The system renames nothing then: both names hold the file before and after."""
    os.link(tree / SOURCE, tree / "twin")
    before = contents(tree)
    assert MOVES[word](root, SOURCE, "twin") is None
    assert contents(tree) == before


@EACH
def test_mode_and_modification_time_are_carried_along(
    root: PinnedRoot, tree: Path, word: str
) -> None:
    os.utime(tree / SOURCE, ns=(1_000_000_001, 2_000_000_002))
    (tree / SOURCE).chmod(0o640)
    MOVES[word](root, SOURCE, "fresh.bin")
    found = (tree / "fresh.bin").stat()
    assert (found.st_mode & 0o7777, found.st_mtime_ns) == (0o640, 2_000_000_002)


@EACH
def test_an_open_file_is_carried_and_stays_readable(
    root: PinnedRoot, tree: Path, word: str
) -> None:
    with root.open_regular_file_for_read(SOURCE, label="file") as file:
        MOVES[word](root, SOURCE, "fresh.bin")
        assert file.read() == b"inner bytes"
        assert os.fstat(file.fileno()).st_ino == identity(tree / "fresh.bin")[1]


@EACH
@pytest.mark.parametrize("name", ["\udcff\udcfe", "a\nb", " inner space".strip(), "é", "-", "*"])
def test_names_have_no_other_meaning(
    root: PinnedRoot, tree: Path, word: str, name: str
) -> None:
    MOVES[word](root, SOURCE, f"{name}/{name}")
    assert (tree / name / name).read_bytes() == b"inner bytes"
    MOVES[word](root, f"{name}/{name}", SOURCE)
    assert (tree / SOURCE).read_bytes() == b"inner bytes"


@EACH
def test_the_root_is_not_proved(root: PinnedRoot, tree: Path, word: str) -> None:
    """The work is done beneath the pin, wherever its directory lies by now."""
    aside = move_away(tree)
    assert MOVES[word](root, SOURCE, "fresh.bin") is None
    assert (aside / "fresh.bin").read_bytes() == b"inner bytes"
    assert not tree.exists()


def test_the_arguments_are_taken_by_place_and_by_name(root: Any, tree: Path) -> None:
    root.replace_regular_file(
        destination_relative_path="sub/second", source_relative_path="file.bin"
    )
    root.move_regular_file_to(
        destination_relative_path="third", destination_root=root, source_relative_path="sub/second"
    )
    assert (tree / "third").read_bytes() == b"outer bytes"
    incomplete: list[tuple[Any, ...]] = [(), ("third",), ("third", "x", "y", "z")]
    for arguments in incomplete:
        with pytest.raises(TypeError):
            root.replace_regular_file(*arguments)
        with pytest.raises(TypeError):
            root.move_regular_file_to(*arguments)

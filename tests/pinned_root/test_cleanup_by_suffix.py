"""The suffix cleanup removes the regular files whose names end so, anywhere in the tree."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import by_suffix
from pinned_root.disk import move_away
from pinned_root.trees import DIRECTORY, FIFO, SOCKET, contents, link_to, plant, without
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

BAD_SUFFIX = "contained cleanup suffix must be a non-empty filename suffix"


def test_files_are_removed_at_every_depth_and_told_sorted(root: PinnedRoot, tree: Path) -> None:
    plant(
        tree,
        {
            "b.tmp": b"",
            "a.tmp": b"1",
            "sub/z.tmp": b"2",
            "sub/deep/one.tmp": b"3",
            "sub/deep/empty/only.tmp": b"4",
            "B.tmp": b"5",
            "sub-1/x.tmp": b"6",
        },
    )
    before = contents(tree)
    with descriptors_kept():
        removed = by_suffix(root, ".tmp")
    assert removed == (
        "B.tmp",
        "a.tmp",
        "b.tmp",
        "sub-1/x.tmp",
        "sub/deep/empty/only.tmp",
        "sub/deep/one.tmp",
        "sub/z.tmp",
    )
    assert type(removed) is tuple and {type(path) for path in removed} == {str}
    assert contents(tree) == without(before, *removed)


def test_the_result_is_a_tuple_for_one_file_and_for_none(root: PinnedRoot) -> None:
    assert by_suffix(root, "f.bin") == ("sub/deep/leaf.bin",)
    assert by_suffix(root, "f.bin") == ()


def test_hidden_names_and_hidden_directories_are_treated_like_others(
    root: PinnedRoot, tree: Path
) -> None:
    plant(tree, {".one.tmp": b"", ".git/two.tmp": b"", ".git/.tmp": b"", "sub/.tmp/three.tmp": b""})
    assert by_suffix(root, ".tmp") == (
        ".git/.tmp",
        ".git/two.tmp",
        ".one.tmp",
        "sub/.tmp/three.tmp",
    )


def test_a_directory_with_the_suffix_is_entered_and_stays(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"d.tmp/e.tmp/file.tmp": b"", "d.tmp/kept": b"", "empty.tmp": DIRECTORY})
    assert by_suffix(root, ".tmp") == ("d.tmp/e.tmp/file.tmp",)
    assert {"d.tmp", "d.tmp/e.tmp", "d.tmp/kept", "empty.tmp"} <= contents(tree).keys()


@pytest.mark.parametrize(
    ("suffix", "removed"),
    [
        ("file.bin", ("file.bin",)),
        ("n", ("file.bin", "sub/deep/leaf.bin", "sub/inner.bin")),
        (".bin", ("file.bin", "sub/deep/leaf.bin", "sub/inner.bin")),
        ("r.bin", ("sub/inner.bin",)),
        ("xfile.bin", ()),
        (".BIN", ()),
        (".bi", ()),
        (".", ()),
        ("..", ()),
        ("*", ()),
        ("bin ", ()),
    ],
)
def test_the_end_of_the_name_is_compared_exactly(
    root: PinnedRoot, tree: Path, suffix: str, removed: tuple[str, ...]
) -> None:
    before = contents(tree)
    assert by_suffix(root, suffix) == removed
    assert contents(tree) == without(before, *removed)


def test_the_path_above_the_name_takes_no_part(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"x.t/mp": b"", "y/.tmp.old": b"", ".tmp/x": b""})
    assert by_suffix(root, ".tmp") == ()


def test_a_suffix_of_a_text_subclass_counts_as_text(root: PinnedRoot) -> None:
    assert by_suffix(root, type("Text", (str,), {})("r.bin")) == ("sub/inner.bin",)


@pytest.mark.parametrize(
    "suffix",
    ["", "/", "sub/x", "/x", "x/", 5, 0, None, b".tmp", bytearray(b".tmp"), [".tmp"], (".tmp",)],
    ids=named,
)
def test_a_suffix_that_is_none_is_refused(root: PinnedRoot, tree: Path, suffix: Any) -> None:
    before = contents(tree)
    with descriptors_kept(), fails_with(ValueError, BAD_SUFFIX) as caught:
        by_suffix(root, suffix)
    assert caught.error.__context__ is None
    assert contents(tree) == before


@pytest.mark.parametrize("suffix", ["\0", ".tmp\0", "\ud800", "n" * 300])
def test_a_suffix_that_no_name_can_have_removes_nothing(root: PinnedRoot, suffix: str) -> None:
    assert by_suffix(root, suffix) == ()


def test_exact_paths_are_preserved(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"one.tmp": b"", "sub/one.tmp": b"", "sub/deep/one.tmp": b""})
    assert by_suffix(root, ".tmp", {"sub/one.tmp", "absent.tmp"}) == (
        "one.tmp",
        "sub/deep/one.tmp",
    )
    assert (tree / "sub" / "one.tmp").exists()


def test_preserving_a_directory_protects_nothing_below_it(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"d.tmp/one.tmp": b""})
    assert by_suffix(root, ".tmp", {"d.tmp", "d.tmp/one", "one.tmp"}) == ("d.tmp/one.tmp",)


def test_what_the_suffix_does_not_pick_is_left_alone(root: PinnedRoot, tree: Path) -> None:
    plant(
        tree,
        {
            "link": link_to("one.tmp"),
            "dangling": link_to("nowhere"),
            "linked": link_to("sub"),
            "fifo": FIFO,
            "socket": SOCKET,
            "sub/one.tmp": b"",
        },
    )
    before = contents(tree)
    with descriptors_kept():
        assert by_suffix(root, ".tmp") == ("sub/one.tmp",)
    assert contents(tree) == without(before, "sub/one.tmp")


def test_a_preserved_entry_is_not_looked_at(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"link.tmp": link_to("file.bin"), "sub/fifo.tmp": FIFO})
    before = contents(tree)
    assert by_suffix(root, ".tmp", {"link.tmp", "sub/fifo.tmp"}) == ()
    assert contents(tree) == before


def test_a_link_to_a_directory_is_not_entered(root: PinnedRoot, tree: Path) -> None:
    outside = tree.parent / "outside"
    plant(outside, {"canary.tmp": b"canary"})
    plant(tree, {"linked": link_to(str(outside))})
    assert by_suffix(root, ".tmp") == ()
    assert (outside / "canary.tmp").exists()


def test_an_empty_root_gives_nothing(tmp_path: Path) -> None:
    (tmp_path / "empty").mkdir()
    with PinnedRoot(tmp_path / "empty") as root:
        assert by_suffix(root, ".tmp") == ()


def test_the_root_is_not_proved(root: PinnedRoot, tree: Path) -> None:
    aside = move_away(tree)
    assert by_suffix(root, "r.bin") == ("sub/inner.bin",)
    assert not (aside / "sub" / "inner.bin").exists()


def test_a_contained_root_cleans_beneath_itself_with_paths_of_its_own(
    root: PinnedRoot, tree: Path
) -> None:
    with root.open_contained_root("sub", label="child") as child:
        assert by_suffix(child, ".bin", ["deep/leaf.bin"]) == ("inner.bin",)
    assert (tree / "file.bin").exists()

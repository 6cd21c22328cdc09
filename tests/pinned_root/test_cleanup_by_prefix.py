"""The prefix cleanup removes the visible regular files that lie strictly under a prefix."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.cleanups import by_prefix
from pinned_root.disk import move_away
from pinned_root.outcomes import Failure, outcome_of
from pinned_root.trees import DIRECTORY, FIFO, contents, link_to, plant, without
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"

AROUND: dict[str, Any] = {
    "a/b/file": b"1",
    "a/b/deep/er/file": b"2",
    "a/b/empty": DIRECTORY,
    "a/bee/file": b"3",
    "a/b.txt": b"4",
    "a/file": b"5",
    "b/file": b"6",
    "x/a/b/file": b"7",
    "A/b/file": b"8",
}


@pytest.fixture
def around(tmp_path: Path) -> Path:
    """Files at, above, beside and below the directory `a/b`."""
    plant(tmp_path / "around", AROUND)
    return tmp_path / "around"


@pytest.mark.parametrize("prefix", ["a/b", "a/b/", "a/b//", "a/b////"])
def test_only_what_lies_strictly_under_the_prefix_goes(around: Path, prefix: str) -> None:
    before = contents(around)
    with PinnedRoot(around) as root, descriptors_kept():
        removed = by_prefix(root, (prefix,))
    assert removed == ("a/b/deep/er/file", "a/b/file")
    assert type(removed) is tuple
    assert contents(around) == without(before, *removed)


@pytest.mark.parametrize(
    ("prefixes", "removed"),
    [
        (("a/b.txt",), ()),
        (("a/b.txt/",), ()),
        (("a/file",), ()),
        (("absent",), ()),
        (("a/b/absent",), ()),
        (("a/b/empty",), ()),
        (("b",), ("b/file",)),
        (("b", "a/bee"), ("a/bee/file", "b/file")),
        (("a/bee", "b", "a/bee/"), ("a/bee/file", "b/file")),
        (("a/b", "a/b/deep"), ("a/b/deep/er/file", "a/b/file")),
        (("a",), ("a/b.txt", "a/b/deep/er/file", "a/b/file", "a/bee/file", "a/file")),
        (("a/b/deep/er/file",), ()),
        (("x/a/b", "A"), ("A/b/file", "x/a/b/file")),
    ],
)
def test_prefixes_select_by_whole_segments(
    around: Path, prefixes: tuple[str, ...], removed: tuple[str, ...]
) -> None:
    before = contents(around)
    with PinnedRoot(around) as root:
        assert by_prefix(root, prefixes) == removed
    assert contents(around) == without(before, *removed)


def test_a_regular_file_whose_path_equals_the_prefix_is_kept(tree: Path, root: PinnedRoot) -> None:
    assert by_prefix(root, ("sub/inner.bin",)) == ()
    assert by_prefix(root, ("sub/inner.bin/",)) == ()
    assert (tree / "sub" / "inner.bin").exists()


def test_hidden_names_are_neither_removed_nor_entered(around: Path) -> None:
    plant(
        around,
        {
            "a/b/.hidden": b"",
            "a/b/.git/file": b"",
            ".top/b/file": b"",
            "a/b/.link": link_to("file"),
            "a/b/.fifo": FIFO,
            "a/b/..odd": b"",
        },
    )
    before = contents(around)
    with PinnedRoot(around) as root:
        assert by_prefix(root, ("a/b",)) == ("a/b/deep/er/file", "a/b/file")
        for prefix in (".top", ".top/b", "a/b/.git"):
            assert by_prefix(root, (prefix,)) == ()
    assert contents(around) == without(before, "a/b/deep/er/file", "a/b/file")


def test_directories_that_are_not_relevant_are_not_opened(around: Path) -> None:
    """An unreadable directory beside the prefix is no hindrance, one on the way to it is."""
    (around / "a" / "bee").chmod(0)
    (around / "b").chmod(0)
    around.chmod(0o755)
    root = PinnedRoot(around)

    def cleaned() -> None:
        drop_rights()
        for prefix in ("a/absent", "a/be", "a/beef", "a/beef/x"):
            assert by_prefix(root, (prefix,)) == ()
        with fails_with(PermissionError, "[Errno 13] Permission denied: 'bee'") as caught:
            by_prefix(root, ("a/bee/deep/down",))
        assert caught.error.__context__ is None

    try:
        run_in_child(cleaned)
    finally:
        root.close()
        (around / "a" / "bee").chmod(0o755)
        (around / "b").chmod(0o755)


def test_no_prefix_gives_the_empty_tuple_at_once(root: Any, tree: Path) -> None:
    """Neither the paths to preserve nor the root are asked for."""
    before = contents(tree)
    root.close()
    nothing: list[Any] = [(), [], iter(())]
    for prefixes in nothing:
        for preserved in ({"/"}, [None], None, 5):
            assert by_prefix(root, prefixes, preserved) == ()
    assert contents(tree) == before


@pytest.mark.parametrize(
    ("prefix", "text"),
    [
        ("", EXACT),
        ("/", EXACT),
        ("///", EXACT),
        ("/a", EXACT),
        (" a", EXACT),
        ("a\\b", EXACT),
        ("C:", EXACT),
        ("a ", EXACT),
        (".", SEGMENTS),
        ("a/..", SEGMENTS),
        ("../a/", SEGMENTS),
        ("a//b", SEGMENTS),
        ("a/./b/", SEGMENTS),
    ],
)
def test_a_prefix_that_is_no_contained_path_fails_the_whole_call(
    around: Path, prefix: str, text: str
) -> None:
    before = contents(around)
    with PinnedRoot(around) as root, descriptors_kept():
        with fails_with(ValueError, text):
            by_prefix(root, ("a/b", prefix, "b"))
    assert contents(around) == before


@pytest.mark.parametrize("prefix", [None, 5, b"a/b", Path("a/b"), ["a/b"]], ids=named)
def test_a_prefix_that_is_no_text_fails_the_whole_call(around: Path, prefix: object) -> None:
    before = contents(around)
    with PinnedRoot(around) as root, descriptors_kept():
        ended = outcome_of(lambda: by_prefix(root, ("a/b", prefix)))
    assert isinstance(ended, Failure) and ended.kind in {TypeError, AttributeError}
    assert contents(around) == before


def test_a_prefix_with_a_blank_before_its_slash_is_refused(root: PinnedRoot) -> None:
    with fails_with(ValueError, EXACT):
        by_prefix(root, ("sub /",))
    with fails_with(ValueError, SEGMENTS):
        by_prefix(root, ("sub//inner/",))


def test_exact_paths_are_preserved(around: Path) -> None:
    with PinnedRoot(around) as root:
        kept = {"a/b/file", "a/b/deep", "a/b", "absent"}
        assert by_prefix(root, ("a/b",), kept) == ("a/b/deep/er/file",)
    assert (around / "a" / "b" / "file").exists()


def test_a_preserved_entry_is_not_looked_at(around: Path) -> None:
    plant(around, {"a/b/link": link_to("file"), "a/b/fifo": FIFO})
    with PinnedRoot(around) as root:
        removed = by_prefix(root, ("a/b",), ["a/b/link", "a/b/fifo"])
    assert removed == ("a/b/deep/er/file", "a/b/file")
    assert {"a/b/link", "a/b/fifo"} <= contents(around).keys()


def test_what_lies_outside_the_prefixes_is_left_alone(around: Path) -> None:
    plant(around, {"a/link": link_to("file"), "fifo": FIFO, "linked": link_to("a/b")})
    with PinnedRoot(around) as root, descriptors_kept():
        assert by_prefix(root, ("b", "linked")) == ("b/file",)
    assert (around / "a" / "b" / "file").exists()


def test_the_root_is_not_proved(around: Path) -> None:
    root = PinnedRoot(around)
    aside = move_away(around)
    assert by_prefix(root, ("b",)) == ("b/file",)
    assert not (aside / "b" / "file").exists()
    root.close()

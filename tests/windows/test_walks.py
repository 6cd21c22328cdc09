"""The three walks open one segment at a time, prove each, and hold no handle too many."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, Volume
from windows.walked import REPARSE_DIRECTORY, called, handles_kept


class Most:
    """Watches how many handles are open at once while a walk runs."""

    def __init__(self, volume: Volume, boundary: SubstituteBoundary) -> None:
        self.volume, self.seen = volume, 0
        for nth in range(1, 20):
            boundary.hook("is_reparse", nth, before=self._look)
            boundary.hook("close", nth, before=self._look)

    def _look(self) -> None:
        self.seen = max(self.seen, len(self.volume.open_handles))


def test_the_absolute_walk_takes_no_heed_of_its_path(planted: Volume, pin: Pin) -> None:
    root = pin("C:\\data\\sub")
    for path in (Path("C:\\beside"), None, 3):
        handle = root._open_absolute_directory(path, create=False)
        assert planted.path_of(handle) == "data/sub"
        planted.close(handle)


def test_the_absolute_walk_shows_the_path_of_the_root(planted: Volume, pin: Pin) -> None:
    root = pin("C:\\data\\sub")
    root.path = Path("shown")
    planted.make_reparse("data/sub")
    with handles_kept(planted), fails_with(ValueError, f"{REPARSE_DIRECTORY}: shown"):
        root._open_absolute_directory(Path("not shown"), create=True)


def test_the_absolute_walk_creates_as_told(planted: Volume, pin: Pin) -> None:
    root = pin()
    root._root_components = ("data", "new", "newer")
    with fails_with(FileNotFoundError, "new"):
        root._open_absolute_directory(root.path, create=False)
    handle = root._open_absolute_directory(root.path, create=True)
    assert planted.path_of(handle) == "data/new/newer"
    planted.close(handle)


def test_the_walk_of_components_leaves_the_anchor_alone(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.calls.clear()
    handle = root._open_directory_components(root._descriptor, ("sub", "deep"), label="what")
    assert called(boundary) == [
        ("duplicate", "#1"),
        ("open_directory", "#2", "sub", {"create": False}),
        ("is_reparse", "#3"),
        ("kind", "#3"),
        ("close", "#2"),
        ("open_directory", "#3", "deep", {"create": False}),
        ("is_reparse", "#4"),
        ("kind", "#4"),
        ("close", "#3"),
    ]
    assert planted.path_of(handle) == "data/sub/deep"
    assert planted.is_open(root._descriptor)
    planted.close(handle)


def test_no_components_are_a_duplicate_of_the_anchor(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.calls.clear()
    handle = root._open_directory_components(root._descriptor, (), label="what")
    assert boundary.names_called() == ["duplicate"]
    assert handle != root._descriptor and planted.path_of(handle) == "data"
    planted.close(handle)


@pytest.mark.parametrize(
    "parts, kind, text, cause",
    [
        (("none",), FileNotFoundError, "what is missing: none", FileNotFoundError),
        (("none", "x"), FileNotFoundError, "what is missing: none/x", FileNotFoundError),
        (
            ("sub", "file", "x"),
            ValueError,
            "what has a reparse or non-directory segment: sub/file/x",
            OSError,
        ),
        (("sub", "junction"), ValueError, f"{REPARSE_DIRECTORY}: sub/junction", None),
        (
            ("sub", "a\\b"),
            ValueError,
            "Windows handle-relative child name must be one segment",
            None,
        ),
    ],
)
def test_a_walk_of_components_fails_in_the_words_of_all_of_them(
    planted: Volume,
    pin: Pin,
    parts: tuple[str, ...],
    kind: type[Exception],
    text: str,
    cause: type[Exception] | None,
) -> None:
    root = pin()
    with handles_kept(planted), fails_with(kind, text, cause=cause):
        root._open_directory_components(root._descriptor, parts, label="what")


def test_a_walk_holds_two_handles_at_most(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    planted.plant({"data/a/b/c/d": DIRECTORY})
    root = pin("C:\\data\\a\\b")
    most = Most(planted, boundary)
    parent, _ = root._open_parent("c/d/leaf", label="what", create=False)
    planted.close(parent)
    root.assert_root_unchanged()
    root.close()
    assert most.seen == 3


def test_a_deep_walk_is_no_deep_recursion(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    deep = "/".join(["d"] * 1200)
    root = pin()
    parent, _ = root._open_parent(f"{deep}/leaf", label="what", create=True)
    assert planted.path_of(parent) == f"data/{deep}"
    with root.open_contained_root(deep, label="what") as child:
        assert child._root_identity == boundary.identity(parent)
    planted.close(parent)


@pytest.mark.parametrize(
    "name, arguments",
    [
        ("_open_absolute_directory", ("C:\\data", False)),
        ("_open_directory_components", (4, (), "what")),
        ("_open_parent", ("sub/x", "what", False)),
        ("_assert_replaceable_leaf", (4, "x", "x", True)),
        ("_assert_path_matches_regular_file", ("x", "what", None)),
        ("_assert_parent_path_matches", ("x", 4, "what")),
        ("_assert_directory_path_matches", ("x", 4, "what")),
        ("_assert_leaf_missing", ("x", "what")),
    ],
)
def test_what_is_said_by_keyword_is_said_by_keyword_alone(
    boundary: SubstituteBoundary, pin: Pin, name: str, arguments: tuple[Any, ...]
) -> None:
    root = pin()
    boundary.calls.clear()
    with pytest.raises(TypeError):
        getattr(root, name)(*arguments)
    assert boundary.calls == []

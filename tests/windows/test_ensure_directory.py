"""Directories are made one segment at a time, each judged, and the last proved by its path."""

from __future__ import annotations

from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import BAD_PATHS, CLOSED, Pin, at, directories, files, planted, swap
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

UNSAFE = "contained directory is an unsafe reparse point: {}"
CHANGED = "contained directory or ancestor changed: {}"
FAILED = "[Errno 267] Windows handle-relative operation failed: {}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE})


@pytest.mark.parametrize(
    ("path", "made"),
    [
        ("new", {"new"}),
        ("sub/new", {"sub/new"}),
        ("a/b/c", {"a", "a/b", "a/b/c"}),
        ("sub", set()),
        ("sub/deep", set()),
    ],
)
def test_what_is_missing_is_made_and_what_is_there_stays(
    root: Any, volume: Volume, path: str, made: set[str]
) -> None:
    before, held = directories(volume), files(volume)
    deep = volume.identity_of(at("sub/deep"))
    for _ in range(2):
        assert root.ensure_directory(path) is None
        assert directories(volume) == before | made
    assert files(volume) == held and volume.identity_of(at("sub/deep")) == deep


@pytest.mark.parametrize(
    ("path", "kind", "text"),
    [
        ("file.bin", OSError, FAILED.format("file.bin")),
        ("sub/inner.bin", OSError, FAILED.format("inner.bin")),
        ("file.bin/more", OSError, FAILED.format("file.bin")),
        ("link", OSError, FAILED.format("link")),
        ("junction", ValueError, UNSAFE.format("junction")),
        ("junction/more", ValueError, UNSAFE.format("junction/more")),
    ],
)
def test_what_is_no_directory_is_refused_as_the_boundary_tells_it(
    root: Any, volume: Volume, path: str, kind: type[Exception], text: str
) -> None:
    before = volume.tree()
    with fails_with(kind, text) as caught:
        root.ensure_directory(path)
    assert caught.error.__context__ is None
    assert volume.tree() == before


def test_what_opens_as_a_file_is_no_directory(root: Any, boundary: Any) -> None:
    boundary.hook("kind", 1, returns="regular")
    with fails_with(ValueError, "contained path must be a directory: sub/new"):
        root.ensure_directory("sub/new")


def test_what_was_made_stays_when_a_later_segment_fails(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("open_directory", 3, raises=FileNotFoundError("c"))
    with fails_with(FileNotFoundError, "c"):
        root.ensure_directory("a/b/c")
    assert {"a", "a/b"} <= directories(volume) and "a/b/c" not in directories(volume)


def test_a_directory_replaced_at_the_end_is_another(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("open_directory", 2, after=lambda: volume.replace(at("sub/new"), b""))
    text = CHANGED.format("sub/new")
    with fails_with(ValueError, text, cause=OSError):
        root.ensure_directory("sub/new")


def test_an_ancestor_replaced_on_the_way_is_another(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("open_directory", 2, after=lambda: swap(volume, at("sub")))
    with fails_with(ValueError, CHANGED.format("sub/new")):
        root.ensure_directory("sub/new")


@pytest.mark.parametrize("path", ["sub/new", "new"])
def test_a_directory_that_goes_at_once_is_told(
    root: Any, volume: Volume, boundary: Any, path: str
) -> None:
    opens = len(path.split("/"))
    boundary.hook("open_directory", opens, after=lambda: volume.remove(at(path)))
    with fails_with(ValueError, CHANGED.format(path), cause=FileNotFoundError):
        root.ensure_directory(path)


def test_an_ancestor_that_turns_into_a_junction_is_told_as_one(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("open_directory", 2, after=lambda: volume.make_reparse(at("sub")))
    with fails_with(ValueError, UNSAFE.format("sub/new")):
        root.ensure_directory("sub/new")


def test_a_directory_under_deletion_is_missing(root: Any, volume: Volume) -> None:
    volume.plant({at("going"): volume.node(at("sub/deep")).content()})
    let_go = volume.pend(at("going"))
    with fails_with(FileNotFoundError, "going"):
        root.ensure_directory("going")
    let_go()
    root.ensure_directory("going")
    assert "going" in directories(volume)


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_root(root: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    with fails_with(kind, text):
        root.ensure_directory(path)
    with fails_with(RuntimeError, CLOSED):
        root.ensure_directory("new")


def test_the_root_is_not_proved(root: Any, volume: Volume) -> None:
    volume.move("data", "aside")
    root.ensure_directory("new")
    assert volume.exists("aside/new")


def test_a_contained_root_makes_below_itself(root: Any, volume: Volume) -> None:
    with root.open_contained_root("sub", label="sub") as contained:
        contained.ensure_directory("x/y")
    assert {"sub/x", "sub/x/y"} <= directories(volume)

"""Proves that a copy that fails leaves no transfer file, and tells of the failure that counts."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.transfers import TOKEN, fix_token, names_below
from pinned_root.disk import move_away, swap_for_copy
from support.failures import fails_with

copy = client_manifest.copy_contained_regular_file

STAGED = f"one/copied.{TOKEN}.tmp"
ANOTHER = "pinned root canonical path changed during operation"
UNSAFE_UPDATE = f"contained update file is a symlink or is unsafe: {STAGED}"
NOT_REMOVED = f"contained removal file must be regular: {STAGED}"


@pytest.fixture
def other(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """The destination root, with a directory `one`; the token is known beforehand."""
    fix_token(monkeypatch, TOKEN)
    (tmp_path / "other" / "one").mkdir(parents=True)
    return tmp_path / "other"


def install(
    monkeypatch: pytest.MonkeyPatch, name: str, extra: Callable[[Callable[..., Any]], Any]
) -> None:
    """Puts a class in place whose operation `name` runs `extra` with the original bound."""
    original = client_manifest.PinnedRoot

    class Changed(original):  # type: ignore[misc, valid-type]
        pass

    def operation(self: Any, *args: Any, **keywords: Any) -> Any:
        return extra(lambda: getattr(original, name)(self, *args, **keywords))

    setattr(Changed, name, operation)
    monkeypatch.setattr(client_manifest, "PinnedRoot", Changed)


@pytest.mark.parametrize("kind", ["directory", "link", "dangling link", "pipe"])
def test_a_destination_that_is_no_file_leaves_no_transfer_file(
    kind: str, tree: Path, other: Path
) -> None:
    taken = other / "one" / "copied"
    if kind == "directory":
        taken.mkdir()
    elif kind == "pipe":
        os.mkfifo(taken)
    else:
        taken.symlink_to(tree / "sub/leaf.bin" if kind == "link" else "nowhere")
    text = "contained file destination is a symlink or non-regular file: one/copied"
    with fails_with(ValueError, text):
        copy(tree, "file.bin", other, "one/copied")
    assert names_below(other) == ["one", "one/copied"]
    assert (tree / "sub" / "leaf.bin").read_bytes() == b"leaf bytes"


def test_a_parent_that_is_a_link_is_told_with_the_transfer_name(
    tree: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    fix_token(monkeypatch, TOKEN)
    other = tmp_path / "other"
    other.mkdir()
    (other / "one").symlink_to(tree / "sub")
    # The clean-up meets the same link, and its words replace those of the update.
    text = f"contained removal file has a non-directory or symlink parent: {STAGED}"
    with fails_with(ValueError, text, cause=NotADirectoryError) as caught:
        copy(tree, "file.bin", other, "one/copied")
    assert caught.error.__cause__ is not None
    first = caught.error.__cause__.__context__
    assert str(first) == (f"contained update file has a non-directory or symlink parent: {STAGED}")
    assert names_below(tree / "sub") == ["deep", "deep/lost.tmp", "kept.tmp", "leaf.bin"]


@pytest.mark.parametrize("kind", ["directory", "link"])
def test_what_is_no_file_at_the_transfer_name_is_kept(kind: str, tree: Path, other: Path) -> None:
    staged = other / STAGED
    if kind == "directory":
        staged.mkdir()
    else:
        staged.symlink_to(tree / "sub" / "leaf.bin")
    with fails_with(ValueError, NOT_REMOVED) as caught:
        copy(tree, "file.bin", other, "one/copied")
    assert type(caught.error.__context__) is ValueError
    assert str(caught.error.__context__) == UNSAFE_UPDATE
    assert names_below(other) == ["one", STAGED]
    assert (tree / "sub" / "leaf.bin").read_bytes() == b"leaf bytes"


def test_a_failure_while_the_file_is_staged_leaves_nothing(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    class Broken:
        """A source that breaks off behind its first bytes."""

        parts = [b"first"]
        closed = False

        def read(self, size: int) -> bytes:
            assert names_below(other) == ["one", STAGED]
            if not self.parts:
                raise OSError(5, "broken off")
            return self.parts.pop()

        def close(self) -> None:
            Broken.closed = True

        def __enter__(self) -> Broken:
            return self

        def __exit__(self, *details: Any) -> None:
            self.close()

    install(monkeypatch, "open_regular_file_for_read", lambda base: Broken())
    with fails_with(OSError, "[Errno 5] broken off"):
        copy(tree, "file.bin", other, "one/copied")
    assert Broken.closed
    assert names_below(other) == ["one"]


def test_directories_that_were_made_stay_when_the_copy_fails(tree: Path, other: Path) -> None:
    (other / "new").mkdir()
    (other / "new" / "taken").mkdir()
    text = "contained file destination is a symlink or non-regular file: new/taken"
    with fails_with(ValueError, text):
        copy(tree, "file.bin", other, "new/taken")
    assert names_below(other) == ["new", "new/taken", "one"]


@pytest.mark.parametrize("swapped", ["source", "destination"])
def test_a_published_copy_stays_when_a_root_was_swapped(
    swapped: str, tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    root = tree if swapped == "source" else other
    asides: list[Path] = []

    def replace_then_swap(base: Callable[[], Any]) -> None:
        base()
        asides.append(swap_for_copy(root))

    install(monkeypatch, "replace_regular_file", replace_then_swap)
    with fails_with(ValueError, ANOTHER):
        copy(tree, "file.bin", other, "one/copied")
    published = other if swapped == "source" else asides[0]
    assert (published / "one" / "copied").read_bytes() == b"outer bytes"
    assert names_below(published) == ["one", "one/copied"]


def test_a_transfer_file_goes_even_when_the_root_has_moved(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asides: list[Path] = []

    def swap_then_fail(base: Callable[[], Any]) -> None:
        asides.append(move_away(other))
        assert names_below(asides[0]) == ["one", STAGED]
        raise LookupError("not published")

    install(monkeypatch, "replace_regular_file", swap_then_fail)
    # The failed proof on the way out is what the caller sees in the end.
    text = "pinned root canonical path changed or became unsafe during operation"
    with fails_with(ValueError, text, cause=FileNotFoundError):
        copy(tree, "file.bin", other, "one/copied")
    assert names_below(asides[0]) == ["one"]


def test_a_failing_removal_replaces_the_first_failure(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def fail(base: Callable[[], Any]) -> None:
        base()
        raise LookupError("not removed")

    (other / "one" / "copied").mkdir()
    install(monkeypatch, "remove_regular_file", fail)
    with fails_with(LookupError, "not removed") as caught:
        copy(tree, "file.bin", other, "one/copied")
    assert str(caught.error.__context__) == (
        "contained file destination is a symlink or non-regular file: one/copied"
    )


def test_a_failing_removal_is_told_even_of_a_published_copy(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def fail(base: Callable[[], Any]) -> None:
        assert base() is False
        raise LookupError("not removed")

    install(monkeypatch, "remove_regular_file", fail)
    with fails_with(LookupError, "not removed") as caught:
        copy(tree, "file.bin", other, "one/copied")
    assert caught.error.__context__ is None
    assert (other / "one" / "copied").read_bytes() == b"outer bytes"

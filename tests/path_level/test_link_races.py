"""Proves what a link does when the source changes between the look at it and the link."""

from __future__ import annotations

import errno
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.transfers import TOKEN, fix_token, names_below, strays_closed
from pinned_root.disk import replace_by_rename
from support.failures import fails_with

link = client_manifest.link_or_copy_contained_regular_file

STAGED = f"linked.{TOKEN}.tmp"


@pytest.fixture
def other(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    fix_token(monkeypatch, TOKEN, "f" * 16)
    return tmp_path / "other"


def change_before_the_link(monkeypatch: pytest.MonkeyPatch, change: Callable[[], object]) -> None:
    """Runs `change` once, when the source has been looked at and the name is about to be made."""
    original: Any = client_manifest.PinnedRoot
    changes = [change]

    class Changing(original):  # type: ignore[misc]
        def _open_parent(self, path: str, *, label: str, create: bool) -> Any:
            if label == "contained link destination":
                changes.pop()()
            return super()._open_parent(path, label=label, create=create)

    monkeypatch.setattr(client_manifest, "PinnedRoot", Changing)


def test_a_source_that_became_a_link_is_linked_as_a_link_and_not_published(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def become_a_link() -> None:
        (tree / "file.bin").unlink()
        (tree / "file.bin").symlink_to("sub/leaf.bin")

    change_before_the_link(monkeypatch, become_a_link)
    text = f"contained removal file must be regular: {STAGED}"
    with strays_closed(), fails_with(ValueError, text) as caught:
        link(tree, "file.bin", other, "linked")
    first = caught.error.__context__
    assert isinstance(first, OSError) and first.errno == errno.ELOOP
    assert names_below(other) == [STAGED]
    assert (other / STAGED).is_symlink()
    assert (tree / "sub" / "leaf.bin").stat().st_nlink == 1


def test_a_source_that_vanished_is_missed_by_the_copy(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    change_before_the_link(monkeypatch, (tree / "file.bin").unlink)
    with fails_with(FileNotFoundError, None) as caught:
        link(tree, "file.bin", other, "linked")
    assert type(caught.error.__context__) is FileNotFoundError
    assert names_below(other) == []


def test_a_source_that_became_another_file_is_linked_as_it_is_now(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    change_before_the_link(monkeypatch, lambda: replace_by_rename(tree / "file.bin"))
    assert link(tree, "file.bin", other, "linked") == "linked"
    assert (other / "linked").samefile(tree / "file.bin")


def test_a_source_that_became_a_directory_cannot_be_linked_or_copied(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def become_a_directory() -> None:
        (tree / "file.bin").unlink()
        (tree / "file.bin").mkdir()

    change_before_the_link(monkeypatch, become_a_directory)
    text = "contained copy source must be a regular file: file.bin"
    with fails_with(ValueError, text) as caught:
        link(tree, "file.bin", other, "linked")
    assert type(caught.error.__context__) is PermissionError
    assert names_below(other) == []

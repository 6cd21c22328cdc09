"""Proves that a load follows no link and takes nothing but regular files for its own."""

from __future__ import annotations

import errno
import os
import stat
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    MEMBERS,
    SIGNAL_PNL,
    Distribution,
    build_distribution,
    index_document,
)
from support.failures import fails_with

UNSAFE_ROOT = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"
LABELS = {"manifest.json": "manifest.json", SIGNAL_PNL: "membership file"}


def load(root: Path, **keywords: Any) -> Any:
    return client_manifest.load_accepted_distribution_set(root, **keywords)


def link_to_itself_elsewhere(path: Path) -> None:
    elsewhere = path.parent / "elsewhere"
    path.rename(elsewhere)
    path.symlink_to(elsewhere.name)


def dangling_link(path: Path) -> None:
    path.unlink(missing_ok=True)
    path.symlink_to("absent")


def socket(path: Path) -> None:
    path.unlink(missing_ok=True)
    os.mknod(path, stat.S_IFSOCK | 0o600)


def directory(path: Path) -> None:
    path.unlink(missing_ok=True)
    path.mkdir()


def label_and_path(valid: Distribution, which: str) -> tuple[str, str]:
    if which == "sidecar":
        return "signals_index sidecar", valid.reference
    return LABELS[which], which


@pytest.mark.parametrize("which", ["manifest.json", "sidecar", SIGNAL_PNL])
@pytest.mark.parametrize("become", [link_to_itself_elsewhere, dangling_link, socket])
def test_links_and_sockets_are_not_opened(
    valid: Distribution, root: Path, which: str, become: Callable[[Path], None]
) -> None:
    label, path = label_and_path(valid, which)
    become(root / path)
    with fails_with(
        ValueError, f"{label} is a symlink or is not safely readable: {path}", cause=OSError
    ) as caught:
        load(root)
    assert isinstance(caught.error.__cause__, OSError)
    expected = errno.ENXIO if become is socket else errno.ELOOP
    assert caught.error.__cause__.errno == expected


@pytest.mark.parametrize("which", ["manifest.json", "sidecar", SIGNAL_PNL])
def test_directories_are_no_files(valid: Distribution, root: Path, which: str) -> None:
    label, path = label_and_path(valid, which)
    directory(root / path)
    with fails_with(ValueError, f"{label} must be a regular file: {path}"):
        load(root)


@pytest.mark.parametrize("which", ["sidecar", SIGNAL_PNL])
def test_a_linked_parent_is_not_followed(valid: Distribution, root: Path, which: str) -> None:
    label, path = label_and_path(valid, which)
    link_to_itself_elsewhere((root / path).parent)
    with fails_with(
        ValueError,
        f"{label} has a non-directory or symlink parent: {path}",
        cause=NotADirectoryError,
    ):
        load(root)


@pytest.mark.parametrize("which", ["sidecar", SIGNAL_PNL])
def test_a_file_is_no_parent(valid: Distribution, root: Path, which: str) -> None:
    label, path = label_and_path(valid, which)
    (root / path).unlink()
    (root / path).parent.rmdir()
    (root / path).parent.write_bytes(b"")
    with fails_with(
        ValueError,
        f"{label} has a non-directory or symlink parent: {path}",
        cause=NotADirectoryError,
    ):
        load(root)


@pytest.mark.parametrize("become", [dangling_link, socket])
@pytest.mark.parametrize("supplied", [False, True])
def test_a_retired_path_that_cannot_be_opened_is_no_absence(
    valid: Distribution, root: Path, become: Callable[[Path], None], supplied: bool
) -> None:
    become(root / "signals_index.json")
    with fails_with(
        ValueError,
        "legacy signals_index.json is a symlink or is not safely readable: signals_index.json",
        cause=OSError,
    ):
        load(root, manifest=valid.manifest if supplied else None)


def test_a_retired_path_that_is_a_directory_is_no_absence(root: Path) -> None:
    directory(root / "signals_index.json")
    with fails_with(
        ValueError, "legacy signals_index.json must be a regular file: signals_index.json"
    ):
        load(root)


def test_a_linked_root_is_not_followed(root: Path) -> None:
    link_to_itself_elsewhere(root)
    with fails_with(ValueError, UNSAFE_ROOT, cause=NotADirectoryError):
        load(root)


def test_a_linked_ancestor_of_the_root_is_not_followed(valid: Distribution, tmp_path: Path) -> None:
    root = valid.write(tmp_path / "above" / "root")
    link_to_itself_elsewhere(root.parent)
    with fails_with(ValueError, UNSAFE_ROOT, cause=NotADirectoryError):
        load(root)


def test_a_link_that_the_written_path_leaves_again_is_never_seen(
    root: Path, tmp_path: Path
) -> None:
    (tmp_path / "link").symlink_to("/")
    assert load(tmp_path / "link" / ".." / "root").membership_paths == MEMBERS


def test_a_hard_link_is_a_regular_file(root: Path, tmp_path: Path) -> None:
    os.link(root / SIGNAL_PNL, tmp_path / "other name")
    assert load(root).membership_paths == MEMBERS


def distribution_with(path: str) -> Distribution:
    document = index_document(useful_signals={"a": {"files": [path]}})
    return build_distribution(document, {path: b""}, {})


def test_a_name_too_long_for_the_disk_is_not_readable(tmp_path: Path) -> None:
    path = "dir/" + "n" * 300
    distribution = distribution_with(path)
    distribution.payloads = {}
    (distribution.write(tmp_path) / "dir").mkdir()
    with fails_with(
        ValueError,
        f"membership file is a symlink or is not safely readable: {path}",
        cause=OSError,
    ) as caught:
        load(tmp_path)
    assert isinstance(caught.error.__cause__, OSError)
    assert caught.error.__cause__.errno == errno.ENAMETOOLONG


@pytest.mark.parametrize("path", ["\ud800", "dir/\ud800/leaf", "\ud83d\ude00\udfff"])
def test_a_name_that_no_disk_can_hold_fails_without_a_leak(tmp_path: Path, path: str) -> None:
    distribution = distribution_with(path)
    distribution.payloads = {}
    (distribution.write(tmp_path) / "dir").mkdir()
    with pytest.raises((ValueError, OSError)):
        load(tmp_path)


@pytest.mark.parametrize("path", ["é/ü.bin", "a b/c d", "{0}/%s", "1:/x", "a\nb", "\U0001f40d"])
def test_unusual_names_load(tmp_path: Path, path: str) -> None:
    assert load(distribution_with(path).write(tmp_path)).membership_paths == (path,)


def test_a_deep_member_loads(tmp_path: Path) -> None:
    path = "/".join(["d"] * 200) + "/leaf"
    assert load(distribution_with(path).write(tmp_path)).membership_paths == (path,)

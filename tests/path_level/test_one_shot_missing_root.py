"""Proves that only a write and a new directory make a missing root, and all refuse a bad one."""

from __future__ import annotations

import errno
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.members import CREATING, MEMBERS, OTHERS, WITH_A_PATH, Member
from pinned_root.disk import swap_for_link
from support.failures import fails_with

UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"
EXACT = "manifest relative path must be an exact relative POSIX path"


def name_of(member: Member) -> str:
    return member.function


@pytest.mark.parametrize("below", ["absent", "absent/below"])
@pytest.mark.parametrize("member", OTHERS, ids=name_of)
def test_a_missing_root_is_the_failure_of_the_pin(
    member: Member, below: str, tmp_path: Path
) -> None:
    with fails_with(FileNotFoundError, None) as caught:
        member.call(tmp_path / below)
    assert isinstance(caught.error, FileNotFoundError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENOENT, "absent")
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize(
    "function", ["remove_contained_regular_file", "remove_contained_directory_tree"]
)
def test_what_may_be_missing_is_not_the_root(function: str, tmp_path: Path) -> None:
    for keywords in ({}, {"missing_ok": True}):
        with fails_with(FileNotFoundError, None):
            getattr(client_manifest, function)(tmp_path / "absent", "leaf", **keywords)


def test_no_prefix_still_needs_a_root(tmp_path: Path) -> None:
    with fails_with(FileNotFoundError, None):
        client_manifest.cleanup_contained_regular_files_in_prefixes(
            tmp_path / "absent", prefixes=(), preserve_relative_paths=set()
        )


@pytest.mark.parametrize("member", CREATING, ids=name_of)
def test_a_missing_root_is_made_with_all_above_it(member: Member, tmp_path: Path) -> None:
    root = tmp_path / "made" / "root"
    assert member.call(root) == f"{root}/{member.args[0]}"
    assert (root / member.args[0]).exists()
    for made in (root, root.parent):
        assert made.stat().st_mode & 0o022 == 0


@pytest.mark.parametrize("member", CREATING, ids=name_of)
def test_a_root_that_was_made_stays_when_the_path_is_bad(member: Member, tmp_path: Path) -> None:
    with fails_with(ValueError, EXACT):
        member.call(tmp_path / "made", "/bad", *member.args[1:])
    assert list((tmp_path / "made").iterdir()) == []


@pytest.mark.parametrize(
    "member", [member for member in WITH_A_PATH if not member.creates], ids=name_of
)
def test_a_missing_root_is_reported_before_a_bad_path(member: Member, tmp_path: Path) -> None:
    paths: list[Any] = ["/bad", "", None, 5, b"bytes"]
    for path in paths:
        with fails_with(FileNotFoundError, None):
            member.call(tmp_path / "absent", path)


def test_a_missing_root_is_reported_before_any_other_bad_argument(tmp_path: Path) -> None:
    absent, bad = tmp_path / "absent", "/bad"
    chunk: Any = "no number"
    for identify in (
        client_manifest.identify_contained_regular_file,
        client_manifest.hash_contained_regular_file,
    ):
        with fails_with(FileNotFoundError, None):
            identify(absent, bad, label="f", chunk_bytes=chunk)
    with fails_with(FileNotFoundError, None):
        client_manifest.cleanup_contained_regular_files(
            absent, suffix="", preserve_relative_paths={bad}
        )
    with fails_with(FileNotFoundError, None):
        client_manifest.cleanup_contained_regular_files_in_prefixes(
            absent, prefixes=(bad,), preserve_relative_paths={bad}
        )


@pytest.mark.parametrize("member", WITH_A_PATH, ids=name_of)
def test_the_path_is_judged_beneath_a_good_root(member: Member, tree: Path) -> None:
    segments = "manifest relative path must not contain empty, dot, or parent segments"
    with fails_with(ValueError, segments):
        member.call(tree, "../up", *member.args[1:])
    path: Any = Path("sub")
    with fails_with(TypeError, "manifest relative path must be a string"):
        member.call(tree, path, *member.args[1:])


@pytest.mark.parametrize("member", MEMBERS, ids=name_of)
def test_a_root_that_is_a_file_is_refused(member: Member, tree: Path) -> None:
    for root in (tree / "file.bin", tree / "file.bin" / "below"):
        with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
            member.call(root)


@pytest.mark.parametrize("member", MEMBERS, ids=name_of)
def test_a_root_behind_a_link_is_refused(member: Member, tree: Path) -> None:
    aside = swap_for_link(tree)
    before = sorted(aside.rglob("*"))
    for root in (tree, tree / "sub"):
        with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
            member.call(root)
    assert sorted(aside.rglob("*")) == before


@pytest.mark.parametrize("member", MEMBERS, ids=name_of)
def test_a_root_that_is_no_path_is_refused(member: Member) -> None:
    for root in (None, 5, b"/bytes", ["/"], object()):
        with fails_with(TypeError, None):
            member.call(root)

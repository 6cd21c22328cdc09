"""Listing, ensuring and removing directories make exactly the calls of their steps."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from faults.injection import Call, Shim, armed
from faults.layout import LEAF, down, listed, listing, make_tree, names_of, pinned
from faults.trace import essential
from support.failures import fails_with


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    return make_tree(tmp_path / "root")


def _recorded(root: Path, act: Callable[[Any], object]) -> tuple[list[Call], list[str]]:
    with pinned(root) as holder:
        with armed() as shim:
            act(holder)
        return shim.calls, essential(shim.calls, names_of(holder))


def _told(root: Path, act: Callable[[Any], object]) -> list[str]:
    return _recorded(root, act)[1]


def _list(holder: Any) -> tuple[str, ...]:
    names = holder.list_directory_names()
    assert isinstance(names, tuple)
    return names


def test_a_listing_opens_each_directory_that_it_names_and_nothing_else(root: Path) -> None:
    for name in (".hidden", "b", "a"):
        (root / name).mkdir()
    (root / "file").touch()
    (root / "link").symlink_to("sub")
    opened = [
        line
        for name in listed(root)
        if name not in ("file", "link")
        for line in (f"openat root* {name} directory", f"close root*/{name}")
    ]
    assert _told(root, _list) == ["dup root", *listing("root*", *opened), "close root*"]


def test_an_empty_root_is_listed_all_the_same(tmp_path: Path) -> None:
    assert _told(tmp_path, _list) == ["dup root", *listing("root*"), "close root*"]


def test_a_root_that_cannot_be_opened_anew_is_listed_by_a_duplicate(root: Path) -> None:
    with pinned(root) as holder:
        for _ in range(2):  # the second time the position of the first one's end is shared
            with armed() as shim:
                shim.fail("openat", 1, errno.EACCES)
                assert _list(holder) == ("sub",)
            assert essential(shim.calls, names_of(holder))[:4] == [
                "dup root",
                "openat root* . directory -> EACCES",
                "dup root*",
                "fdopendir root**",
            ]


def test_a_listing_starts_at_the_beginning_of_the_directory_each_time(root: Path) -> None:
    with pinned(root) as holder:
        assert [_list(holder) for _ in range(3)] == [("sub",)] * 3


def _ensured(start: str, *segments: str, made: int) -> list[str]:
    """The walk of an ensured directory, which takes no look at what it has opened."""
    told = []
    here = start
    for left, segment in zip(range(len(segments), 0, -1), segments, strict=True):
        made_one = [f"mkdirat {here} {segment} 755", f"fsync {here}"]
        told += made_one if left <= made else [f"mkdirat {here} {segment} 755 -> EEXIST"]
        told += [f"openat {here} {segment} directory", f"close {here}"]
        here = f"{here}/{segment}"
    return ["dup root", *told, f"close {here}"]


@pytest.mark.parametrize(("path", "made"), [("sub/deep", 0), ("sub/new", 1), ("a/b/c", 3)])
def test_an_ensured_directory_syncs_each_parent_in_which_it_made_one(
    root: Path, path: str, made: int
) -> None:
    for expected in (made, 0):
        told = _told(root, lambda holder: holder.ensure_directory(path))
        assert told == _ensured("root*", *path.split("/"), made=expected)


def test_a_directory_that_is_a_file_is_found_out_by_its_open(root: Path) -> None:
    def refused(holder: Any) -> None:
        text = f"contained directory has a symlink or non-directory segment: {LEAF}/below"
        with fails_with(ValueError, text, cause=NotADirectoryError):
            holder.ensure_directory(f"{LEAF}/below")

    assert _told(root, refused)[-3:] == [
        "mkdirat root*/sub/deep leaf 755 -> EEXIST",
        "openat root*/sub/deep leaf directory -> ENOTDIR",
        "close root*/sub/deep",
    ]


def _remove(holder: Any) -> None:
    assert holder.remove_directory_tree("sub", missing_ok=False)


def _cleared(directory: Path, place: str) -> list[str]:
    """The calls that empty one directory, in the order of the disk."""
    inner = []
    for name in listed(directory):
        below = f"{place}/{name}"
        if (directory / name).is_dir():
            inner += [
                f"openat {place} {name} directory",
                *_cleared(directory / name, below),
                f"close {below}",
                f"unlinkat {place} {name} directory",
            ]
        else:
            inner += [
                f"openat {place} {name} source",
                f"fstat {below}",
                f"unlinkat {place} {name}",
                f"close {below}",
            ]
    return [*listing(place, *inner), *([f"fsync {place}"] if inner else [])]


@pytest.mark.parametrize(
    "files", [[], ["sub/.hidden", "sub/a/one", "sub/a/two", "sub/deep/b/three"]], ids=len
)
def test_a_tree_goes_depth_first_and_each_directory_that_changed_is_synced(
    root: Path, files: list[str]
) -> None:
    for path in files:
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        (root / path).touch()
    expected = [
        "dup root",
        "openat root* sub directory",
        *_cleared(root / "sub", "root*/sub"),
        "close root*/sub",
        "unlinkat root* sub directory",
        "fsync root*",
        "close root*",
    ]
    assert _told(root, _remove) == expected
    assert listed(root) == []


def test_an_empty_tree_is_removed_with_one_sync(root: Path) -> None:
    (root / "sub/empty").mkdir()
    told = _told(root, lambda holder: holder.remove_directory_tree("sub/empty", missing_ok=False))
    assert told == [
        "dup root",
        *down("root*", "sub"),
        "openat root*/sub empty directory",
        *listing("root*/sub/empty"),
        "close root*/sub/empty",
        "unlinkat root*/sub empty directory",
        "fsync root*/sub",
        "close root*/sub",
    ]


@pytest.mark.parametrize("path", ["gone", "gone/below"])
def test_a_tree_that_is_not_there_changes_nothing(root: Path, path: str) -> None:
    told = _told(root, lambda holder: holder.remove_directory_tree(path, missing_ok=True))
    assert told == ["dup root", "openat root* gone directory -> ENOENT", "close root*"]


Act = Callable[[Any], object]
LISTING: dict[str, Act] = {
    "list": _list,
    "suffix": lambda holder: holder.remove_regular_files_with_suffix(
        "leaf", preserve_relative_paths=()
    ),
    "prefix": lambda holder: holder.remove_regular_files_in_prefixes(
        ("sub",), preserve_relative_paths=()
    ),
    "tree": _remove,
}


@pytest.mark.parametrize("name", LISTING)
def test_an_entry_without_a_type_is_looked_at_and_not_followed(tmp_path: Path, name: str) -> None:
    told = []
    for forgets in (False, True):
        with pinned(make_tree(tmp_path / f"{forgets}")) as holder:
            with armed() as shim:
                if forgets:
                    shim.forget_type(0)
                LISTING[name](holder)
            told.append(essential(shim.calls, names_of(holder)))
    plain, looked = told
    assert [line for line in looked if line not in _looks(looked)] == [
        line for line in plain if line not in _looks(looked)
    ]
    assert len(_looks(looked)) > len(_looks(plain))


def _looks(lines: list[str]) -> list[str]:
    return [line for line in lines if line.startswith("fstatat ")]


@pytest.mark.parametrize("name", LISTING)
def test_a_link_without_a_type_is_no_directory(tmp_path: Path, name: str) -> None:
    root = make_tree(tmp_path / "root")
    (tmp_path / "outside").mkdir()
    (tmp_path / "outside/leaf").touch()
    (root / "sub/link").symlink_to(tmp_path / "outside")
    with pinned(root) as holder, armed() as shim:
        shim.forget_type(0)
        if name == "list":
            assert _list(holder) == ("sub",)
        else:
            _act_or_refuse(LISTING[name], holder)
    assert not [call for call in shim.calls if call.name == "link" and _is_entered(call)]
    assert (tmp_path / "outside/leaf").exists()
    assert os.path.islink(root / "sub/link")


def _is_entered(call: Call) -> bool:
    return call.kind == "openat" and bool(call.flags & os.O_DIRECTORY)


def _act_or_refuse(act: Act, holder: Any) -> None:
    try:
        act(holder)
    except ValueError as error:
        assert "symlink" in str(error)


def test_an_entry_that_vanished_before_it_was_typed_is_no_directory(root: Path) -> None:
    (root / "going").mkdir()
    with pinned(root) as holder:
        with armed() as shim:
            shim.forget_type(0)
            _vanish(shim, root / "going", listed(root).index("going"))
            assert _list(holder) == ("sub",)


def _vanish(shim: Shim, directory: Path, looks_before: int) -> None:
    shim.before("fstatat", looks_before + 1, lambda: directory.rmdir())

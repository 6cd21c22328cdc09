"""A directory that stops being readable ends the walk with the host's failure and no leak."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from faults.injection import Call, armed
from faults.layout import LEAF, make_tree, names_of, pinned
from faults.trace import essential, require_single_closes

LISTING: dict[str, Callable[[Any], object]] = {
    "list": lambda holder: holder.list_directory_names(),
    "suffix": lambda holder: holder.remove_regular_files_with_suffix(
        "leaf", preserve_relative_paths=()
    ),
    "prefix": lambda holder: holder.remove_regular_files_in_prefixes(
        ("sub",), preserve_relative_paths=()
    ),
    "tree": lambda holder: holder.remove_directory_tree("sub", missing_ok=False),
}


def _calls(root: Path, act: Callable[[Any], object]) -> list[Call]:
    with pinned(make_tree(root)) as holder, armed() as shim:
        act(holder)
    return shim.calls


@pytest.mark.parametrize("code", [errno.EIO, errno.EINTR, errno.ENOENT], ids=errno.errorcode.get)
@pytest.mark.parametrize("name", LISTING)
def test_a_look_into_a_directory_that_fails_ends_the_walk(
    name: str, code: int, tmp_path: Path
) -> None:
    calls = _calls(tmp_path / "clean", LISTING[name])
    looks = [number for number, call in enumerate(calls, start=1) if call.kind == "readdir"]
    assert looks
    for number in looks:
        root = make_tree(tmp_path / f"{number}")
        with pinned(root) as holder:
            with armed() as shim, pytest.raises(OSError) as caught:
                shim.fail("any", number, code)
                LISTING[name](holder)
            told = essential(shim.calls, names_of(holder))
        assert type(caught.value) is type(OSError(code, ""))
        assert caught.value.errno == code
        assert (caught.value.__cause__, caught.value.__context__) == (None, None)
        require_single_closes(shim.calls)
        _require_only_letting_go(told)
        removed = [call for call in calls[: number - 1] if call.kind == "unlinkat"]
        assert (root / LEAF).exists() is not bool(removed)


def _require_only_letting_go(told: list[str]) -> None:
    """Behind the failure every listing and every directory is closed, from the inside out."""
    (failed,) = (index for index, line in enumerate(told) if line.startswith("readdir "))
    kinds = [line.split(" ")[0] for line in told[failed + 1 :]]
    assert kinds[0] == "closedir"
    assert set(kinds) == {"close", "closedir"}


@pytest.mark.parametrize("name", LISTING)
def test_a_listing_that_would_not_end_leaves_nothing_open(name: str, tmp_path: Path) -> None:
    with pinned(make_tree(tmp_path / "root")) as holder:
        with armed() as shim:
            shim.fail_after("closedir", 1, errno.EIO)
            _act_or_fail(lambda: LISTING[name](holder))
    require_single_closes(shim.calls)


def _act_or_fail(act: Callable[[], object]) -> None:
    """Whether the end of a listing can fail is open; that it is made once is not."""
    try:
        act()
    except OSError as error:
        assert error.errno == errno.EIO


@pytest.mark.parametrize("name", LISTING)
def test_an_entry_that_cannot_be_typed_ends_the_walk(name: str, tmp_path: Path) -> None:
    root = make_tree(tmp_path / "root")
    with pinned(root) as holder:
        with armed() as shim, pytest.raises(OSError) as caught:
            shim.forget_type(0)
            shim.fail("fstatat", 1, errno.EIO)
            LISTING[name](holder)
    assert type(caught.value) is OSError
    assert caught.value.errno == errno.EIO
    assert (root / LEAF).exists()


def test_a_child_that_cannot_be_opened_is_left_out_and_the_next_is_listed(tmp_path: Path) -> None:
    for name in ("a", "b", "c"):
        (tmp_path / name).mkdir()
    with pinned(tmp_path) as holder:
        for code in (errno.EACCES, errno.EIO, errno.ELOOP, errno.EMFILE, errno.ENOENT):
            with armed() as shim:
                shim.fail("openat", 2, code)
                names = holder.list_directory_names()
            opened = [call.name for call in shim.calls if call.kind == "openat"]
            assert names == tuple(sorted({"a", "b", "c"} - {opened[1]}))


@pytest.mark.parametrize("name", ["suffix", "prefix"])
def test_what_was_removed_before_a_failure_stays_removed_and_is_not_synced(
    name: str, tmp_path: Path
) -> None:
    root = make_tree(tmp_path / "root")
    (root / "sub/deep/second-leaf").touch()
    with pinned(root) as holder, armed() as shim, pytest.raises((OSError, ValueError)):
        shim.fail("unlinkat", 2, errno.EIO)
        LISTING[name](holder)
    assert len(os.listdir(root / "sub/deep")) == 1
    assert "fsync" not in {call.kind for call in shim.calls}


@pytest.mark.parametrize("kind", ["fstatat", "unlinkat"])
def test_a_name_that_is_no_text_is_told_with_its_bytes_kept(kind: str, tmp_path: Path) -> None:
    name = os.fsdecode(b"\xff-leaf")
    (tmp_path / name).touch()
    with pinned(tmp_path) as holder:
        with armed() as shim, pytest.raises(OSError) as caught:
            shim.fail(kind, 1, errno.EIO)
            LISTING["suffix"](holder)
    assert caught.value.filename == name
    assert caught.value.errno == errno.EIO
    assert (tmp_path / name).exists()

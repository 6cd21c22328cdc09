"""Short writes, false successes and late refusals leave the old leaf or the new one, whole."""

from __future__ import annotations

import errno
import os
import threading
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from faults.injection import Shim, armed
from faults.layout import LEAF, make_tree, names_of, pinned
from faults.mutation import NEW, OLD
from faults.trace import essential
from support.descriptors import descriptors_kept
from support.failures import fails_with

PARENT = "root*/sub/deep"
TOKEN = "0123456789abcdef"
SHORT = "short write while staging contained file"
OTHER = "sub/deep/other"


@pytest.fixture()
def root(tmp_path: Path) -> Path:
    (make_tree(tmp_path / "root") / LEAF).write_bytes(OLD)
    return tmp_path / "root"


@pytest.fixture()
def writer(root: Path) -> Iterator[Any]:
    with pinned(root) as writer:
        yield writer


def _names_beside(root: Path) -> list[str]:
    return sorted(os.listdir((root / LEAF).parent))


def _nothing_is_written(shim: Shim) -> None:
    shim.shorten("write", 1, 0)


def _nothing_is_said_to_be_written(shim: Shim) -> None:
    shim.skip("write", 1)


def _the_second_write_stops(shim: Shim) -> None:
    shim.shorten("write", 1, 4)
    shim.skip("write", 2)


@pytest.mark.parametrize(
    "stop", [_nothing_is_written, _nothing_is_said_to_be_written, _the_second_write_stops]
)
def test_a_write_of_nothing_is_a_failure_and_not_an_endless_loop(
    root: Path, writer: Any, stop: Callable[[Shim], None]
) -> None:
    with armed() as shim, fails_with(OSError, SHORT) as caught:
        stop(shim)
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert isinstance(caught.error, OSError)
    assert caught.error.errno is None
    assert caught.error.args == (SHORT,)
    assert essential(shim.calls, names_of(writer))[-3:] == [
        f"close {PARENT}/.leaf.tmp",
        f"unlinkat {PARENT} .leaf.tmp",
        f"close {PARENT}",
    ]
    assert (root / LEAF).read_bytes() == OLD
    assert _names_beside(root) == ["leaf"]


def test_a_disk_that_fills_up_within_the_payload_keeps_the_old_leaf(
    root: Path, writer: Any
) -> None:
    with armed() as shim, fails_with(OSError, "[Errno 28] No space left on device"):
        shim.shorten("write", 1, 5)
        shim.fail("write", 2, errno.ENOSPC)
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert (root / LEAF).read_bytes() == OLD
    assert _names_beside(root) == ["leaf"]


@pytest.mark.parametrize("count", [1, 7])
def test_any_row_of_short_writes_adds_up_to_the_payload(
    root: Path, writer: Any, count: int
) -> None:
    with armed() as shim:
        shim.shorten("write", 0, count)
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert (root / LEAF).read_bytes() == NEW
    sizes = [call.size for call in shim.calls if call.kind == "write"]
    assert sizes == list(range(len(NEW), 0, -count))


def test_a_rename_that_was_made_but_reported_as_failed_leaves_the_new_leaf(
    root: Path, writer: Any
) -> None:
    with armed() as shim, pytest.raises(OSError, match="Input/output error") as caught:
        shim.fail_after("renameat", 1, errno.EIO)
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert caught.value.filename.endswith(".tmp")
    assert caught.value.filename2 == "leaf"
    assert (root / LEAF).read_bytes() == NEW
    assert _names_beside(root) == ["leaf"]


def test_a_rename_that_never_was_is_found_out_and_takes_the_old_leaf_with_it(
    root: Path, writer: Any
) -> None:
    text = f"contained file staging leaf changed during publish: {LEAF}"
    with armed() as shim, fails_with(ValueError, text):
        shim.skip("renameat", 1)
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert essential(shim.calls, names_of(writer))[-6:] == [
        f"fstatat {PARENT} leaf nofollow",
        f"unlinkat {PARENT} leaf",
        f"fsync {PARENT}",
        f"close {PARENT}/.leaf.tmp",
        f"unlinkat {PARENT} .leaf.tmp",
        f"close {PARENT}",
    ]
    assert _names_beside(root) == []


@pytest.mark.parametrize("kind", ["unlinkat", "fsync"])
def test_a_foreign_leaf_that_cannot_be_taken_away_is_a_failure_of_that_call(
    root: Path, writer: Any, kind: str
) -> None:
    # The first sync is that of the staged file.
    nth = {"unlinkat": 1, "fsync": 2}[kind]
    with armed() as shim, pytest.raises(OSError, match="Input/output error") as caught:
        shim.skip("renameat", 1)
        shim.fail(kind, nth, errno.EIO)
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert (caught.value.__cause__, caught.value.__context__) == (None, None)
    assert _names_beside(root) == (["leaf"] if kind == "unlinkat" else [])


@pytest.mark.parametrize("moves", [False, True], ids=["replacement", "move"])
def test_a_replacement_that_never_was_takes_the_destination_and_leaves_the_source(
    root: Path, writer: Any, moves: bool
) -> None:
    (root / OTHER).write_bytes(NEW)
    word = "move" if moves else "replacement"
    text = f"contained {word} source changed before publish: {OTHER}"
    with armed() as shim, fails_with(ValueError, text):
        shim.skip("renameat", 1)
        if moves:
            writer.move_regular_file_to(OTHER, writer, LEAF)
        else:
            writer.replace_regular_file(OTHER, LEAF)
    assert not (root / LEAF).exists()
    assert (root / OTHER).read_bytes() == NEW


def test_what_bears_the_staged_name_already_is_removed_all_the_same(
    root: Path, writer: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr("secrets.token_hex", lambda size: TOKEN[: 2 * size])
    name = f".leaf.{os.getpid()}.{threading.get_ident()}.{TOKEN}.tmp"
    (root / LEAF).with_name(name).write_bytes(b"in the way")
    with fails_with(FileExistsError, f"[Errno 17] File exists: {name!r}"):
        writer.write_atomic(LEAF, NEW, allow_replace=True)
    assert (root / LEAF).read_bytes() == OLD
    assert _names_beside(root) == ["leaf"]


@pytest.mark.keeps_descriptors
def test_a_refusal_is_the_context_of_a_clean_up_that_fails(root: Path, writer: Any) -> None:
    with descriptors_kept(left_open=1):
        with armed() as shim, pytest.raises(OSError, match="Input/output error") as caught:
            shim.fail("unlinkat", 1, errno.EIO)
            writer.write_atomic(LEAF, NEW, allow_replace=False)
    (parent,) = {call.fd for call in shim.calls if call.kind == "unlinkat"}
    os.close(parent)
    context = caught.value.__context__
    assert type(context) is FileExistsError
    assert str(context) == f"contained file already exists: {LEAF}"
    assert caught.value.__cause__ is None


def test_a_payload_that_is_refused_costs_no_call(writer: Any) -> None:
    with armed() as shim, fails_with(TypeError, "contained file payload must be bytes"):
        writer.write_atomic(LEAF, bytearray(NEW), allow_replace=True)
    assert shim.calls == []


def test_a_sync_that_says_the_entry_exists_is_taken_like_the_mkdir(root: Path, writer: Any) -> None:
    with armed() as shim:
        shim.fail("fsync", 1, errno.EEXIST)
        writer.write_atomic("new/leaf", NEW, allow_replace=False)
    assert (root / "new/leaf").read_bytes() == NEW
    with armed() as shim:
        shim.fail("fsync", 1, errno.EEXIST)
        writer.ensure_directory("other/below")
    assert (root / "other/below").is_dir()

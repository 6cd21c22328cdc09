"""The temporary name is made of leaf, process, thread and token, and never outlives a write."""

from __future__ import annotations

import errno
import os
import secrets
import threading
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import run_in_child
from pinned_root.hostile import Own, raise_own
from pinned_root.staging import SPECIAL, TEMPORARY, TOKEN, acting, fix_token, names_in
from pinned_root.staging import strays_closed, temporary_name
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

LIMIT = 255


def staged_while_writing(tree: Path, leaf: str) -> str:
    """The one name that stands in the directory of a new `leaf` while it is written."""
    seen: list[str] = []
    directory = (tree / leaf).parent
    before = set(names_in(directory))
    kind = acting("before", 2, lambda: seen.extend(set(names_in(directory)) - before))
    root = kind(tree)
    root.write_atomic(leaf, b"payload", allow_replace=True)
    root.close()
    (staged,) = seen
    assert set(names_in(directory)) == before | {Path(leaf).name}
    return staged


@pytest.mark.parametrize("name", ["new", "a b", ".x.", "%s{}", "é", "\udcff", "a.tmp", "a\nb"])
def test_the_name_tells_leaf_process_thread_and_token(tree: Path, name: str) -> None:
    found = TEMPORARY.fullmatch(staged_while_writing(tree, f"sub/{name}"))
    assert found is not None
    leaf, process, thread, _ = found.groups()
    assert (leaf, process, thread) == (name, str(os.getpid()), str(threading.get_ident()))


def test_the_token_is_the_hosts_for_eight_bytes(
    tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[tuple[Any, ...]] = []

    def token(*args: Any, **keywords: Any) -> str:
        asked.append((args, keywords))
        return TOKEN

    monkeypatch.setattr(secrets, "token_hex", token)
    assert staged_while_writing(tree, "new") == temporary_name("new")
    assert asked == [((8,), {})]


def test_each_write_draws_a_token_of_its_own(tree: Path) -> None:
    names = set()
    for number in range(20):
        found = TEMPORARY.fullmatch(staged_while_writing(tree, f"sub/new{number}"))
        assert found is not None
        names.add(found[4])
    assert len(names) == 20


def test_the_parts_are_looked_up_when_a_write_runs(
    tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    """Both ways of replacing them are seen: in the host's modules and in this module's names."""
    monkeypatch.setattr(threading, "get_ident", lambda: 77)
    monkeypatch.setattr(secrets, "token_hex", lambda count: "first")
    assert staged_while_writing(tree, "one") == f".one.{os.getpid()}.77.first.tmp"
    source = type("Source", (), {"token_hex": staticmethod(lambda count: "second")})
    threads = type("Threads", (), {"get_ident": staticmethod(lambda: 88)})
    monkeypatch.setattr(client_manifest, "secrets", source)
    monkeypatch.setattr(client_manifest, "threading", threads)
    assert staged_while_writing(tree, "two") == f".two.{os.getpid()}.88.second.tmp"


def test_a_thread_and_a_forked_process_have_names_of_their_own(tree: Path) -> None:
    here = staged_while_writing(tree, "here").split(".")
    seen: list[list[str]] = []
    thread = threading.Thread(
        target=lambda: seen.append(staged_while_writing(tree, "there").split("."))
    )
    thread.start()
    thread.join()
    assert seen[0][2] == here[2] and seen[0][3] == str(thread.ident) != here[3]

    def forked() -> None:
        found = staged_while_writing(tree, "forked").split(".")
        assert found[2] == str(os.getpid()) != here[2]

    run_in_child(forked)


def put_file(path: Path) -> None:
    path.write_bytes(b"foreign")


FOREIGN: dict[str, Callable[[Path], object]] = {
    "file": put_file,
    "link": lambda path: path.symlink_to(path.parent / "file.bin"),
    "dangling link": lambda path: path.symlink_to(path.parent / "nowhere"),
    "fifo": os.mkfifo,
}


@pytest.mark.parametrize("foreign", FOREIGN)
@pytest.mark.parametrize("leaf", ["file.bin", "new"])
def test_a_foreign_entry_of_that_name_refuses_the_write_and_is_removed(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch, leaf: str, foreign: str
) -> None:
    """The clean-up does not ask whose entry it is."""
    fix_token(monkeypatch)
    FOREIGN[foreign](tree / temporary_name(leaf))
    with descriptors_kept(), fails_with(FileExistsError, None) as caught:
        root.write_atomic(leaf, b"payload", allow_replace=True)
    assert isinstance(caught.error, OSError)
    assert caught.error.errno == errno.EEXIST
    assert caught.error.filename == temporary_name(leaf)
    assert caught.error.__context__ is None
    assert names_in(tree) == ["file.bin", "sub"]
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


def test_a_foreign_entry_is_removed_also_when_the_leaf_is_refused(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    fix_token(monkeypatch)
    put_file(tree / temporary_name("sub"))
    with descriptors_kept(), fails_with(ValueError, SPECIAL.format("sub")):
        root.write_atomic("sub", b"payload", allow_replace=True)
    assert names_in(tree) == ["file.bin", "sub"]


# The clean-up is one plain sequence: where it cannot remove the temporary name, the parent's
# descriptor is left.
@pytest.mark.keeps_descriptors
def test_a_foreign_directory_of_that_name_stops_the_clean_up(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    fix_token(monkeypatch)
    (tree / temporary_name("new")).mkdir()
    with strays_closed() as strays, fails_with(IsADirectoryError, None) as caught:
        root.write_atomic("new", b"payload", allow_replace=True)
    assert isinstance(caught.error, OSError)
    assert caught.error.filename == temporary_name("new")
    assert type(caught.error.__context__) is FileExistsError
    assert len(strays) == 1
    assert names_in(tree) == sorted([temporary_name("new"), "file.bin", "sub"])


def longest_leaf() -> str:
    """The longest leaf whose temporary name is still a name."""
    return "n" * (LIMIT - len(temporary_name("")))


@pytest.mark.keeps_descriptors
@pytest.mark.parametrize("largest", [False, True], ids=["one over", "largest"])
def test_a_leaf_that_fits_alone_may_be_too_long_with_its_additions(
    root: PinnedRoot, tree: Path, largest: bool
) -> None:
    """Neither the staging nor the clean-up can name the staged file."""
    name = "n" * LIMIT if largest else longest_leaf() + "n"
    with strays_closed() as strays, fails_with(OSError, None) as caught:
        root.write_atomic(f"new/{name}", b"payload", allow_replace=True)
    staging = caught.error.__context__
    for error in (caught.error, staging):
        assert isinstance(error, OSError) and error.errno == errno.ENAMETOOLONG
        assert TEMPORARY.fullmatch(str(error.filename))
    assert staging is not None and staging.__context__ is None
    assert len(strays) == 1
    assert names_in(tree / "new") == []


def test_the_longest_leaf_that_fits_is_written(root: PinnedRoot, tree: Path) -> None:
    name = longest_leaf()
    with descriptors_kept():
        root.write_atomic(name, b"payload", allow_replace=False)
    assert (tree / name).read_bytes() == b"payload"


@pytest.mark.keeps_descriptors
def test_the_clean_up_of_a_long_name_replaces_the_refusal_of_the_leaf(
    root: PinnedRoot, tree: Path
) -> None:
    name = "n" * 240
    (tree / name).mkdir()
    with strays_closed() as strays, fails_with(OSError, None) as caught:
        root.write_atomic(name, b"payload", allow_replace=True)
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.ENAMETOOLONG
    assert type(caught.error.__context__) is ValueError
    assert str(caught.error.__context__) == SPECIAL.format(name)
    assert len(strays) == 1


@pytest.mark.keeps_descriptors
@pytest.mark.parametrize("missing", ["token_hex", "get_ident"])
def test_a_part_that_cannot_be_had_ends_the_write(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch, missing: str
) -> None:
    monkeypatch.setattr(secrets if missing == "token_hex" else threading, missing, raise_own)
    with strays_closed(), fails_with(Own, "mine"):
        root.write_atomic("new", b"payload", allow_replace=True)
    assert names_in(tree) == ["file.bin", "sub"]


@pytest.mark.parametrize("token", [5, None, "", "x" * 16, "a b", "é"], ids=named)
def test_whatever_the_token_is_it_is_put_in_as_text(
    tree: Path, monkeypatch: pytest.MonkeyPatch, token: object
) -> None:
    monkeypatch.setattr(secrets, "token_hex", lambda count: token)
    assert staged_while_writing(tree, "new") == temporary_name("new", token)


@pytest.mark.keeps_descriptors
@pytest.mark.parametrize("token", ["a\0b", "\ud800", type("T", (), {"__format__": raise_own})()])
def test_a_token_that_no_name_can_hold_ends_the_write(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch, token: object
) -> None:
    monkeypatch.setattr(secrets, "token_hex", lambda count: token)
    with strays_closed(), pytest.raises((ValueError, Own)):
        root.write_atomic("new", b"payload", allow_replace=True)
    assert names_in(tree) == ["file.bin", "sub"]

"""The two cleanups differ in the listed points and in no others, told side by side."""

from __future__ import annotations

from pathlib import Path
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.cleanups import CLEANUPS, by_prefix, by_suffix
from pinned_root.trees import DIRECTORY, FIFO, SOCKET, Entry, contents, link_to, plant, without
from support.descriptors import descriptors_kept
from support.failures import fails_with

NON_REGULAR = "contained cleanup target is a symlink or non-regular file: {}"
UNSAFE = "contained cleanup target is a symlink or unsafe file: {}"
BAD_SUFFIX = "contained cleanup suffix must be a non-empty filename suffix"
EXACT = "manifest relative path must be an exact relative POSIX path"

EACH = pytest.mark.parametrize("walk", CLEANUPS)


class Told(NamedTuple):
    """A failure that is expected: its class, its words, and the class of its cause."""

    kind: type[Exception]
    text: str
    cause: type[Exception] | None = None


# What each walk makes of one odd entry that its selector picks.
TARGETS: dict[str, tuple[Entry, dict[str, Told]]] = {
    "link": (
        link_to("../file.bin"),
        {
            "suffix": Told(ValueError, NON_REGULAR),
            "prefix": Told(ValueError, UNSAFE, OSError),
        },
    ),
    "dangling link": (
        link_to("nowhere"),
        {
            "suffix": Told(ValueError, NON_REGULAR),
            "prefix": Told(ValueError, UNSAFE, OSError),
        },
    ),
    "link to a directory": (
        link_to("../sub"),
        {
            "suffix": Told(ValueError, NON_REGULAR),
            "prefix": Told(ValueError, UNSAFE, OSError),
        },
    ),
    "fifo": (
        FIFO,
        {
            "suffix": Told(ValueError, NON_REGULAR),
            "prefix": Told(ValueError, NON_REGULAR),
        },
    ),
    "socket": (
        SOCKET,
        {
            "suffix": Told(ValueError, NON_REGULAR),
            "prefix": Told(ValueError, UNSAFE, OSError),
        },
    ),
}


@EACH
@pytest.mark.parametrize("target", TARGETS)
def test_a_picked_entry_that_is_no_regular_file(
    root: PinnedRoot, tree: Path, walk: str, target: str
) -> None:
    entry, told = TARGETS[target]
    plant(tree, {"yard/odd.tmp": entry})
    before = contents(tree)
    text = told[walk].text.format("yard/odd.tmp")
    with descriptors_kept(), fails_with(told[walk].kind, text, cause=told[walk].cause) as caught:
        CLEANUPS[walk](root, ())
    if told[walk].cause is None:
        assert caught.error.__context__ is None
    assert contents(tree) == before


@EACH
def test_a_preserved_entry_is_left_alone_whatever_it_is(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    plant(tree, {f"yard/{name}.tmp": entry for name, (entry, _) in TARGETS.items()})
    before = contents(tree)
    assert CLEANUPS[walk](root, {f"yard/{name}.tmp" for name in TARGETS}) == ()
    assert contents(tree) == before


NAMES: Any = {
    "yard/plain.tmp": b"",
    "yard/other": b"",
    "yard/.hidden.tmp": b"",
    "yard/.git/file.tmp": b"",
    "yard/empty.tmp": DIRECTORY,
    "yard/d.tmp/inner": b"",
    "elsewhere/plain.tmp": b"",
    "elsewhere/linked": link_to("../yard"),
    "plain.tmp": b"",
}

REMOVED = {
    "suffix": (
        "elsewhere/plain.tmp",
        "plain.tmp",
        "yard/.git/file.tmp",
        "yard/.hidden.tmp",
        "yard/plain.tmp",
    ),
    "prefix": ("yard/d.tmp/inner", "yard/other", "yard/plain.tmp"),
}


@EACH
def test_which_names_are_picked(root: PinnedRoot, tree: Path, walk: str) -> None:
    plant(tree, NAMES)
    before = contents(tree)
    with descriptors_kept():
        assert CLEANUPS[walk](root, ()) == REMOVED[walk]
    assert contents(tree) == without(before, *REMOVED[walk])


@EACH
def test_preserving_a_directory_protects_nothing_below(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    plant(tree, NAMES)
    assert CLEANUPS[walk](root, {"yard", "yard/d.tmp", "elsewhere"}) == REMOVED[walk]


def test_an_empty_selector(root: PinnedRoot) -> None:
    for preserved in ({"fine"}, {"/bad"}):
        with fails_with(ValueError, BAD_SUFFIX):
            by_suffix(root, "", preserved)
        assert by_prefix(root, (), preserved) == ()


def test_the_paths_to_preserve_are_judged_unless_there_is_no_prefix(root: PinnedRoot) -> None:
    with fails_with(ValueError, EXACT):
        by_suffix(root, ".nothing ends so", {"/bad"})
    with fails_with(ValueError, EXACT):
        by_prefix(root, ("nothing/lies/here",), {"/bad"})


@EACH
def test_a_directory_on_the_way_that_cannot_be_opened_is_the_hosts_failure(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    plant(tree, {"yard/closed/file.tmp": b""})
    (tree / "yard" / "closed").chmod(0)

    def refused() -> None:
        drop_rights()
        text = "[Errno 13] Permission denied: 'closed'"
        with descriptors_kept(), fails_with(PermissionError, text) as caught:
            CLEANUPS[walk](root, ())
        assert caught.error.__context__ is None

    try:
        run_in_child(refused)
    finally:
        (tree / "yard" / "closed").chmod(0o755)


def test_a_directory_elsewhere_that_cannot_be_opened_stops_only_the_suffix_walk(
    root: PinnedRoot, tree: Path
) -> None:
    (tree / "closed").mkdir(mode=0)
    (tree / "yard").mkdir()

    def refused() -> None:
        drop_rights()
        assert CLEANUPS["prefix"](root, ()) == ()
        with fails_with(PermissionError, "[Errno 13] Permission denied: 'closed'"):
            CLEANUPS["suffix"](root, ())

    try:
        run_in_child(refused)
    finally:
        (tree / "closed").chmod(0o755)


@EACH
def test_a_file_that_may_not_be_unlinked(root: PinnedRoot, tree: Path, walk: str) -> None:
    plant(tree, {"yard/file.tmp": b""})
    (tree / "yard").chmod(0o555)

    def refused() -> None:
        drop_rights()
        raw = "[Errno 13] Permission denied: 'file.tmp'"
        unsafe = UNSAFE.format("yard/file.tmp")
        told = {
            "suffix": Told(PermissionError, raw),
            "prefix": Told(ValueError, unsafe, PermissionError),
        }[walk]
        with descriptors_kept(), fails_with(told.kind, told.text, cause=told.cause) as caught:
            CLEANUPS[walk](root, ())
        assert raw in (str(caught.error), str(caught.error.__cause__))

    try:
        run_in_child(refused)
    finally:
        (tree / "yard").chmod(0o755)
    assert (tree / "yard" / "file.tmp").exists()


def test_a_file_that_may_not_be_read_stops_only_the_walk_that_holds_it_open(
    root: PinnedRoot, tree: Path
) -> None:
    plant(tree, {"yard/file.tmp": b""})
    (tree / "yard" / "file.tmp").chmod(0)
    (tree / "yard").chmod(0o777)

    def refused() -> None:
        drop_rights()
        with fails_with(ValueError, UNSAFE.format("yard/file.tmp"), cause=PermissionError):
            CLEANUPS["prefix"](root, ())
        assert CLEANUPS["suffix"](root, ()) == ("yard/file.tmp",)

    run_in_child(refused)


@EACH
def test_the_calls_take_their_values_by_place_and_by_name(
    root: Any, tree: Path, walk: str
) -> None:
    operation, selector, value = {
        "suffix": (root.remove_regular_files_with_suffix, "suffix", ".none"),
        "prefix": (root.remove_regular_files_in_prefixes, "prefixes", ("none",)),
    }[walk]
    assert operation(**{selector: value, "preserve_relative_paths": set()}) == ()
    incomplete: list[Any] = [(), (value,), (value, set())]
    for arguments in incomplete:
        with pytest.raises(TypeError):
            operation(*arguments)
